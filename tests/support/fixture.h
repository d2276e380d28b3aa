// What several tests share: hooks of an imaginary host that count, fail on demand and keep their
// files and variables in memory, and directories that vanish after the test.
#ifndef FIXTURE_H
#define FIXTURE_H

#include "kova.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_set>
#include <vector>

// A handle with nothing but an error word.
struct test_handle {
    gen_exports gen = {};
    operator void *() { return &gen; }
    int error() const { return gen.ko_lerrno; }
};

// A handle of the library and the result of the call that made it; given back at the end.
template <auto unload> struct owned {
    void *handle = nullptr;
    int result = 0;
    owned() = default;
    ~owned() { unload(handle); }
    owned(const owned &) = delete;
    operator void *() const { return handle; }
    int error() const { return *ko_ext_errno(handle); }
};

template <class Fn> ko_extfn_t as_hook(Fn *fn) { return reinterpret_cast<ko_extfn_t>(fn); }

// Hooks that are installed while the object lives.
struct installed_hooks {
    std::vector<int> codes;
    installed_hooks(std::initializer_list<std::pair<int, ko_extfn_t>> hooks);
    ~installed_hooks();
    installed_hooks(const installed_hooks &) = delete;
};

// Memory hooks; one object at a time.
struct memory_hooks {
    long live = 0;     // blocks not given back yet
    long calls = 0;    // allocations asked for
    long fail_at = -1; // the allocation of this number (from 0) fails; -1: none
    std::unordered_set<void *> blocks;
    installed_hooks installed;
    memory_hooks();
    ~memory_hooks(); // no block may be left
};

// What a stream shows after the call that fails.
enum class stream_state { good, at_end, failed };

// Stream hooks over files in memory; one object at a time.
struct file_hooks {
    std::map<std::string, std::string> files; // contents by the path as the library forms it
    std::vector<std::string> tried;           // every path asked for, in order
    long streams = 0;                         // streams left open
    long calls = 0;                           // opens, reads and writes
    long fail_at = -1; // the call of this number fails, a write but for its last byte; -1: none
    stream_state on_failure = stream_state::failed;
    installed_hooks installed;
    file_hooks();
    ~file_hooks(); // no stream may be left
};

// Environment hooks; one object at a time. The real environment is out of sight.
struct env_hooks {
    std::map<std::string, std::string> vars;
    installed_hooks installed;
    env_hooks();
};

constexpr long fail_loop_max = 200000;

// Runs op (a callable of no argument that returns true on success) with call 0, 1, ... of the
// memory hooks failing, or where prepare(file_hooks &) puts files in place, of the stream hooks,
// until it succeeds. Nothing may be left. Returns the runs that failed.
template <class Op, class Prepare = std::nullptr_t>
long each_call_fails(Op op, Prepare prepare = nullptr) {
    constexpr bool of_streams = !std::is_same_v<Prepare, std::nullptr_t>;
    for (long n = 0; n < fail_loop_max && !::testing::Test::HasFailure(); ++n) {
        SCOPED_TRACE(n);
        memory_hooks memory;
        std::optional<file_hooks> streams;
        if constexpr (of_streams) prepare(streams.emplace());
        (of_streams ? streams->fail_at : memory.fail_at) = n;
        const bool done = op();
        if (!done || (of_streams ? streams->calls : memory.calls) > n) continue;
        EXPECT_GT(n, 0) << "no call was made";
        return n;
    }
    ADD_FAILURE() << "never succeeded";
    return -1;
}
template <class Op> long each_allocation_fails(Op op) { return each_call_fails(op); }
template <class Prepare, class Op> long each_stream_call_fails(Prepare prepare, Op op) {
    return each_call_fails(op, prepare);
}

// Runs op(text) on the text cut before every step-th byte, and with that byte changed to each of
// the given ones, until something fails. No block may be left.
template <class Op>
void each_damage(const std::string &whole, std::string_view bytes, Op op, size_t step = 1) {
    for (size_t at = 0; at < whole.size(); at += step)
        for (size_t i = 0; i <= bytes.size() && !::testing::Test::HasFailure(); ++i) {
            std::string text = i < bytes.size() ? whole : whole.substr(0, at);
            if (i < bytes.size()) text[at] = bytes[i];
            SCOPED_TRACE("byte " + std::to_string(at) + ", damage " + std::to_string(i));
            const memory_hooks memory;
            op(text);
        }
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

std::string env(const char *name);                    // of the real environment; "" when unset
std::string slurp(const std::filesystem::path &path); // "" when missing
std::string hex(std::string_view bytes);

inline const ko_mchar_t *mb(const char *text) { return reinterpret_cast<const ko_mchar_t *>(text); }
inline std::string text(const ko_mchar_t *mbs) { return reinterpret_cast<const char *>(mbs); }
inline std::u16string wide(const ko_wchar_t *wcs) {
    std::u16string result;
    for (; *wcs; ++wcs)
        result += char16_t(*wcs);
    return result;
}
inline std::vector<ko_wchar_t> wcs(std::u16string_view text) { // with its terminator
    std::vector<ko_wchar_t> result(text.begin(), text.end());
    result.push_back(0);
    return result;
}

#endif
