// Small conversion objects for tests, written entry by entry; the tables are written by the library
// itself. Build objects before installing stream hooks: the builder installs its own.
#ifndef CONVERSION_BUILDER_H
#define CONVERSION_BUILDER_H

#include "convert/kovacvlib.h"
#include "support/guarded_block.h"
#include "support/tables.h"

#include <stdio.h>
#include <string.h>

struct cv_entry {
    std::string source;
    unsigned flags;
    std::string target;
};

inline int print_entry(void *stream, const void *item) {
    const auto *e = static_cast<const unsigned char *>(item);
    const std::string text = hex({reinterpret_cast<const char *>(e), 1u + (e[0] & cv_length)});
    return ko_ext_fwrite(text.data(), 1, text.size(), stream) == text.size() ? 0 : -1;
}

inline std::string entries_text(const std::vector<cv_entry> &entries, int target_max,
                                const std::string &fill) {
    const auto item = [](std::string bytes) {
        bytes.resize(5);
        return bytes;
    };
    const table_guard table(unsigned(target_max + 1), item(fill).data());
    for (const cv_entry &e : entries) {
        const char_desc desc = desc_of(e.source);
        const auto first = char(e.flags | e.target.size());
        EXPECT_EQ(insert_desc_multi(&desc, item(first + e.target).data(), table), 0);
    }
    return printed(table, -1, print_entry);
}

struct cv_object {
    std::string header = "FILE_TYPE=codeset_conversion_object\nCOMPILER_VERSION=9\n"
                         "HEADER_LENGTH=4\nSOURCE=a test\n";
    int source_stateful = 0, target_stateful = 0;
    std::string shifts = "0000"; // target si, so, source si, so
    int target_min = 1, target_max = 1, shift_min = 0, shift_max = 0, min = 1, max = 1, checks = 1;
    std::string ratio = "1";
    std::vector<cv_entry> noshift, shift;
    std::string fill; // the entry of bytes that have none

    std::string str() const {
        char numbers[160];
        snprintf(numbers, sizeof numbers, "%d %d\n%s\n%d %d %d %d %d %d %d\n%s\n", source_stateful,
                 target_stateful, shifts.c_str(), target_min, target_max, shift_min, shift_max, min,
                 max, checks, ratio.c_str());
        std::string out = header + numbers + entries_text(noshift, target_max, fill);
        if (source_stateful) out += entries_text(shift, target_max, fill);
        return out;
    }
};

// A descriptor of an object, which a host's streams bring or which lies in memory.
enum class cv_from { stream, memory };
struct cv_record : owned<ko_cv_unload> {
    explicit cv_record(const std::string &object, cv_from from = cv_from::stream) {
        if (from == cv_from::memory) {
            text_in in = memory_of(object);
            auto *const rec = static_cast<iconv_rec *>(ko_ext_malloc(sizeof(iconv_rec)));
            *rec = {};
            handle = rec;
            result = read_cv_object(&in, rec);
            return;
        }
        file_hooks files;
        files.files["\\o.cvo"] = object;
        result = ko_iconv_open1(&handle, "\\o.cvo");
    }
    cv_record(ko_cv_t opened, int how) { // takes a descriptor
        handle = opened;
        result = how;
    }
    iconv_rec *rec() const { return descriptor(handle); }
    // From here on every character is converted by the rules alone.
    void forget_derived() const {
        free_cv_flat(rec()->flat_noshift);
        free_cv_flat(rec()->flat_shift);
        free_ptr(rec()->bytes);
        rec()->flat_noshift = rec()->flat_shift = nullptr;
        rec()->bytes = nullptr;
    }
};

// One call's results.
struct cv_outcome {
    int result;
    std::string out;
    int taken, sub, error;
    bool operator==(const cv_outcome &) const = default;
};
inline void PrintTo(const cv_outcome &o, std::ostream *to) {
    *to << "result " << o.result << ", error " << o.error << ", taken " << o.taken << ", sub "
        << o.sub << ", out " << testing::PrintToString(o.out);
}

// Converts with room for so many bytes; a length of -1 selects a terminated text. Without a state
// the stateless call is made. Neither the text nor the room may be left.
inline cv_outcome convert(const cv_record &cv, const std::string &in, int room,
                          conv_state *st = nullptr, int len = -2) {
    static guarded_block text_block, out_block;
    const ko_mchar_t *const text = text_block.put({in.c_str(), in.size() + (len == -1 ? 1 : 0)});
    ko_mchar_t *const out = out_block.room<ko_mchar_t>(size_t(room));
    const ko_mchar_t *from = text;
    ko_mchar_t *to = out;
    int left = len == -2 ? int(in.size()) : len, space = room, sub = 7;
    *ko_ext_errno(cv) = 0;
    int *const count = len == -1 ? nullptr : &left;
    const int result = st ? ko_cv_mconv(cv, st, &from, count, &to, &space, &sub)
                          : ko_miconv(cv, &from, count, &to, &space, &sub);
    EXPECT_EQ(to - out, room - space);
    const int taken = int(from - text);
    if (count) {
        EXPECT_EQ(taken, (len == -2 ? int(in.size()) : len) - left);
    }
    return {result, std::string(out, to), taken, sub, cv.error()};
}

#endif
