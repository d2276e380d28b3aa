// Look-up tables for tests: filled entry by entry, printed, and read from memory.
#ifndef TABLES_H
#define TABLES_H

#include "locale/kovamulti.h"
#include "locale/kovautils.h"
#include "support/fixture.h"

#include <string.h>

// A table that is freed at the end.
struct table_guard {
    void *p;
    explicit table_guard(unsigned size = 2, const void *item = nullptr)
        : p(create_multi(size, 0, item)) {}
    ~table_guard() { free_multi(p); }
    table_guard(const table_guard &) = delete;
    operator void *() const { return p; }
    mb_decode *operator->() const { return static_cast<mb_decode *>(p); }
};

// A character of the bytes, however many; those beyond the fourth are only counted.
inline char_desc desc_of(std::string_view bytes) {
    char_desc desc = {unsigned(bytes.size()), {}};
    memcpy(desc.bytes, bytes.data(), std::min(bytes.size(), sizeof desc.bytes));
    return desc;
}

// An item of 16 bits under the bytes; -1: the default item.
inline int insert(void *table, std::string_view bytes, int item = -1) {
    const char_desc desc = desc_of(bytes);
    const auto value = uint16_t(item);
    return insert_desc_multi(&desc, item < 0 ? nullptr : &value, table);
}

inline int print_item(void *stream, const void *item) {
    char text[8];
    snprintf(text, sizeof text, "%04x", *static_cast<const uint16_t *>(item));
    return ko_ext_fwrite(text, 1, 4, stream) == 4 ? 0 : -1;
}

// The text of a table; fail_at: the write that fails, "" then.
inline std::string printed(void *table, long fail_at = -1,
                           int (*print)(void *, const void *) = print_item) {
    file_hooks files;
    void *stream = ko_ext_fopen("table", "w");
    files.calls = 0;
    files.fail_at = fail_at;
    const int result = fprintf_multi(stream, table, print);
    ko_ext_fclose(stream);
    EXPECT_EQ(result, fail_at >= 0 && files.calls > fail_at ? -1 : 0);
    return result ? "" : files.files["table"];
}

// A reader over a text that outlives it.
inline text_in memory_of(std::string_view text) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(text.data());
    return {.pos = bytes, .end = bytes + text.size()};
}

#endif
