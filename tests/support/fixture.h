// What several tests share: hooks of an imaginary host that count, fail on demand and keep their
// files and variables in memory, and directories that vanish after the test.
#ifndef FIXTURE_H
#define FIXTURE_H

#include "kova.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// A handle with nothing but an error word.
struct test_handle {
    gen_exports gen = {};
    operator void *() { return &gen; }
    int error() const { return gen.ko_lerrno; }
};

// Memory hooks, installed while the object lives; one object at a time.
struct memory_hooks {
    long live = 0;     // blocks not given back yet
    long calls = 0;    // allocations asked for
    long fail_at = -1; // the allocation of this number (from 0) fails; -1: none
    std::set<void *> blocks;
    memory_hooks();
    ~memory_hooks();
    memory_hooks(const memory_hooks &) = delete;
};

// Stream hooks over files in memory, installed while the object lives; one object at a time.
struct file_hooks {
    std::map<std::string, std::string> files; // contents by the path as the library forms it
    std::vector<std::string> tried;           // every path asked for, in order
    long streams = 0;                         // streams left open
    long calls = 0;                           // opens, reads and writes
    long fail_at = -1;                        // the call of this number fails; -1: none
    file_hooks();
    ~file_hooks();
    file_hooks(const file_hooks &) = delete;
};

// Environment hooks, installed while the object lives; one object at a time. The real environment
// is out of sight.
struct env_hooks {
    std::map<std::string, std::string> vars;
    env_hooks();
    ~env_hooks();
    env_hooks(const env_hooks &) = delete;
};

constexpr long fail_loop_max = 200000;

// Runs op (a callable of no argument that returns true on success) with allocation 0, 1, ...
// failing, until it succeeds, and checks that nothing is left behind. Returns the runs that failed.
template <class Op> long each_allocation_fails(Op op) {
    for (long n = 0; n < fail_loop_max; ++n) {
        memory_hooks memory;
        memory.fail_at = n;
        const bool done = op();
        EXPECT_EQ(memory.live, 0) << "blocks left when allocation " << n << " fails";
        if (done && memory.calls <= n) return n;
        if (::testing::Test::HasFailure()) break;
    }
    ADD_FAILURE() << "never succeeded";
    return -1;
}

// The same for calls of the stream hooks; files are put in place by prepare(file_hooks &).
template <class Prepare, class Op> long each_stream_call_fails(Prepare prepare, Op op) {
    for (long n = 0; n < fail_loop_max; ++n) {
        memory_hooks memory;
        file_hooks streams;
        prepare(streams);
        streams.fail_at = n;
        const bool done = op();
        EXPECT_EQ(streams.streams, 0) << "streams left when call " << n << " fails";
        EXPECT_EQ(memory.live, 0) << "blocks left when call " << n << " fails";
        if (done && streams.calls <= n) return n;
        if (::testing::Test::HasFailure()) break;
    }
    ADD_FAILURE() << "never succeeded";
    return -1;
}

// A directory that is removed with its contents at the end.
struct temp_dir {
    std::string path; // in the platform's notation, no separator at the end
    temp_dir();
    ~temp_dir();
    temp_dir(const temp_dir &) = delete;
    // name: relative, with slashes; directories on the way are made.
    std::string write(const std::string &name, std::string_view contents) const;
    std::string read(const std::string &name) const; // "" when missing
};

// A variable of the real environment, restored at the end; value NULL: unset.
struct real_variable {
    std::string name, before;
    bool was_set;
    real_variable(const char *variable, const char *value);
    ~real_variable();
    real_variable(const real_variable &) = delete;
};

inline const ko_mchar_t *mb(const char *text) { return reinterpret_cast<const ko_mchar_t *>(text); }
inline std::string text(const ko_mchar_t *mbs) { return reinterpret_cast<const char *>(mbs); }
inline std::u16string wide(const ko_wchar_t *wcs) {
    std::u16string result;
    for (; *wcs; ++wcs)
        result += static_cast<char16_t>(*wcs);
    return result;
}
inline std::vector<ko_wchar_t> wcs(std::u16string_view text) { // with its terminator
    std::vector<ko_wchar_t> result(text.begin(), text.end());
    result.push_back(0);
    return result;
}

#endif
