// Sources of LC_COLLATE in memory, for the tests of the collation compiler and of its judge.
#ifndef COLLATE_SOURCES_H
#define COLLATE_SOURCES_H

#include "kovac/kovac_collate.h"

#include "support/fixture.h"

#include <algorithm>

using units = std::vector<uint16_t>;

inline units units_of(std::u16string_view text) { return {text.begin(), text.end()}; }

// Every code point below the count, in as many bytes as its number.
inline kovac::charmap code_set_of(uint32_t count, uint8_t len) {
    kovac::charmap map;
    map.name = "TEST";
    map.unicode = len == 2;
    map.min_len = map.max_len = len;
    for (uint32_t c = 0; c < count; ++c) {
        map.by_code[c] = c;
        map.chars.push_back({c, uint16_t(c), len, 1});
    }
    return map;
}
inline const kovac::charmap &byte_set() {
    static const kovac::charmap map = code_set_of(256, 1);
    return map;
}
inline const kovac::charmap &wide_set() {
    static const kovac::charmap map = code_set_of(0x10000, 2);
    return map;
}

// Sources by name, the first of which is read. A line ends at "|" as well, so that short lines
// share one.
struct sources {
    const kovac::charmap &map;
    std::string messages;
    kovac::diagnostics diag{.sink = &messages};
    kovac::source_set set;
    kovac::collation tables;

    explicit sources(const std::string &body, const kovac::charmap &chars = byte_set(),
                     const std::map<std::string, std::string> &others = {})
        : map(chars) {
        add("main", body);
        for (const auto &[name, text] : others)
            add(name, text);
        set.main = set.files["main"].get();
    }
    void add(const std::string &name, std::string body) {
        std::replace(body.begin(), body.end(), '|', '\n');
        auto file = std::make_unique<kovac::source_file>();
        file->path = file->name = name;
        file->text = "comment_char %\nescape_char /\nLC_COLLATE\n" + body + "\nEND LC_COLLATE\n";
        set.files[name] = std::move(file);
    }
    bool compile(const kovac::collation_options &options = {}) {
        return compile_collation(set, map, diag, tables, nullptr, options);
    }
};

#endif
