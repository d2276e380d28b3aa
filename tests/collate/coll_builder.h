// Collations for tests, written field by field and read by the library's own reader.
#ifndef COLL_BUILDER_H
#define COLL_BUILDER_H

#include "collate/kovacoll.h"
#include "load/kovasetlc_load.h"
#include "support/locale_builder.h"

#include <string>
#include <vector>

struct element_spec {
    std::u16string chars;
    unsigned row;
};

struct coll_spec {
    int codeset_order = 0;
    std::vector<int> passes = {1};
    int num_weights = 100;
    std::vector<element_spec> elements;
    std::vector<std::u16string> expansions;
    std::vector<std::vector<unsigned>> rows; // weights by row and pass
    std::vector<table_entry> map;            // bytes to row

    std::string text() const {
        char buf[64];
        const int last_row = static_cast<int>(rows.size()) - 1;
        snprintf(buf, sizeof buf, "%d %d %d %d %d %d\n", codeset_order, last_row,
                 static_cast<int>(passes.size()), static_cast<int>(elements.size()),
                 static_cast<int>(expansions.size()), num_weights);
        std::string out = "as_specified\n" + table_text(map) + buf;
        const auto add = [&](const char *format, unsigned value) {
            snprintf(buf, sizeof buf, format, value);
            out += buf;
        };
        for (const int type : passes)
            add("%04x", static_cast<unsigned>(type));
        for (const element_spec &e : elements) {
            add("\n%x", static_cast<unsigned>(e.chars.size()));
            add("%04x", e.row);
            for (const char16_t c : e.chars)
                add(" %08x", c);
        }
        for (const std::u16string &e : expansions) {
            add("\n%x", static_cast<unsigned>(e.size()));
            for (const char16_t c : e)
                add(" %08x", c);
        }
        for (const std::vector<unsigned> &row : rows)
            for (const unsigned weight : row)
                add("\n%04x", weight);
        return out + "\n";
    }
};

// Rows of weights: "2.x0 7t.1" has two of two passes; x stands for an expansion, t for a tie-break
// by code.
inline std::vector<std::vector<unsigned>> weights_of(const char *text) {
    std::vector<std::vector<unsigned>> rows(1, {0});
    for (; *text; ++text) {
        unsigned &last = rows.back().back();
        if (*text == ' ')
            rows.push_back({0});
        else if (*text == '.')
            rows.back().push_back(0);
        else if (*text == 'x')
            last = coll_expansion;
        else if (*text == 't')
            last |= coll_code_tie;
        else
            last = (last & coll_expansion) |
                   ((last & 0x3FFF) * 10 + static_cast<unsigned>(*text - '0'));
    }
    return rows;
}

// What comparisons must give: "a<b ab=ba c>", each with its two texts around the sign.
struct order_row {
    std::string a, b;
    int want;
};
inline std::vector<order_row> orders(const std::string &text) {
    std::vector<order_row> rows;
    for (size_t at = 0, end; at < text.size(); at = end + 1) {
        end = std::min(text.find(' ', at), text.size());
        const size_t sign = text.find_first_of("<=>", at);
        rows.push_back({text.substr(at, sign - at), text.substr(sign + 1, end - sign - 1),
                        text[sign] == '='   ? 0
                        : text[sign] == '<' ? -1
                                            : 1});
    }
    return rows;
}

// A record with a code set of the given characters and a collation read from text.
struct coll_record {
    ko_lc_t handle = nullptr;
    kovaloc *loc = nullptr;
    int result = 0; // of the reader
    coll_flat *flat = nullptr;

    coll_record(const std::vector<std::string> &characters, const std::string &collation) {
        EXPECT_EQ(ko_create_null_locale_2(&handle), 0);
        loc = record(handle);
        for (const std::string &bytes : characters)
            EXPECT_EQ(insert(loc->ctype, bytes, KO_CT_PRINT), 0);
        text_in in = memory_of(collation);
        result = read_collate(&in, loc);
        if (!result) update_locale(loc);
        flat = loc->weights;
    }
    ~coll_record() {
        loc->weights = flat;
        ko_lc_unload(handle);
    }
    coll_record(const coll_record &) = delete;
    void use_tables(bool use) { loc->weights = use ? flat : nullptr; }
    int error() const { return loc->exp.gen.ko_lerrno; }
    void clear_error() { loc->exp.gen.ko_lerrno = 0; }
};

inline std::vector<std::string> every_byte() {
    std::vector<std::string> all;
    for (int c = 0; c < 256; ++c)
        all.push_back(std::string(1, static_cast<char>(c)));
    return all;
}

// Rows 1.. of the bytes in order.
inline std::vector<table_entry> byte_map(std::string_view bytes) {
    std::vector<table_entry> map = {
        {std::string(1, '\0'), 0}
    };
    uint16_t row = 0;
    for (const char c : bytes)
        map.push_back({std::string(1, c), ++row});
    return map;
}

inline std::string sort_key(ko_lc_t loc, const std::string &text) {
    const int need = ko_full_mbsxfrm(loc, nullptr, mb(text.c_str()), 0);
    if (need < 0) return "failed";
    std::string key(static_cast<size_t>(need) + 1, '\0');
    EXPECT_EQ(ko_full_mbsxfrm(loc, reinterpret_cast<ko_mchar_t *>(key.data()), mb(text.c_str()),
                              need + 1),
              need);
    key.pop_back();
    return key;
}

#endif
