// Collations for tests, written field by field and read by the library's own reader.
#ifndef COLL_BUILDER_H
#define COLL_BUILDER_H

#include "collate/kovacoll.h"
#include "load/kovasetlc_load.h"
#include "support/locale_builder.h"
#include "support/rows.h"

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
        std::string out = "as_specified\n" + table_text(map);
        const auto add = [&out](const char *format, auto... values) {
            char buf[64];
            snprintf(buf, sizeof buf, format, values...);
            out += buf;
        };
        add("%d %d %d %d %d %d\n", codeset_order, int(rows.size()) - 1, int(passes.size()),
            int(elements.size()), int(expansions.size()), num_weights);
        for (const int type : passes)
            add("%04x", unsigned(type));
        for (const element_spec &e : elements) {
            add("\n%x%04x", unsigned(e.chars.size()), e.row);
            for (const char16_t c : e.chars)
                add(" %08x", unsigned(c));
        }
        for (const std::u16string &e : expansions) {
            add("\n%x", unsigned(e.size()));
            for (const char16_t c : e)
                add(" %08x", unsigned(c));
        }
        for (const std::vector<unsigned> &row : rows)
            for (const unsigned weight : row)
                add("\n%04x", weight);
        return out + "\n";
    }
};

// Rows of weights: "2.x0 7t.1" has two of two passes; x stands for an expansion, t for a tie-break
// by code.
inline std::vector<std::vector<unsigned>> weights_of(const std::string &text) {
    std::vector<std::vector<unsigned>> rows;
    for (const std::string &row : split(text, ' ')) {
        rows.emplace_back();
        for (const std::string &weight : split(row, '.')) {
            const bool expands = weight[0] == 'x';
            rows.back().push_back(unsigned(atoi(weight.c_str() + expands)) |
                                  (expands ? coll_expansion : 0) |
                                  (weight.back() == 't' ? coll_code_tie : 0));
        }
    }
    return rows;
}

// Rows 1.. of the bytes in order.
inline std::vector<table_entry> byte_map(std::string_view bytes) {
    std::vector<table_entry> map(1, {std::string(1, '\0'), 0});
    for (const char c : bytes)
        map.push_back({std::string(1, c), uint16_t(map.size())});
    return map;
}

// Bytes with rows of their own, in order; the weights of row 0 come first. Expansions are words;
// each element is a word and the row that it has: "ab6 abb7".
inline coll_spec bytes_spec(std::string_view bytes, const char *weights,
                            const char *expansions = "", const char *elements = "",
                            int pass = coll_forward) {
    coll_spec spec = {.rows = weights_of(weights), .map = byte_map(bytes)};
    spec.passes.assign(spec.rows[0].size(), pass);
    for (const std::string &word : split(expansions, ' '))
        spec.expansions.emplace_back(word.begin(), word.end());
    for (const std::string &word : split(elements, ' ')) {
        const size_t row = word.find_first_of("0123456789");
        const std::u16string chars(word.begin(), word.begin() + long(row));
        spec.elements.push_back({chars, unsigned(std::stoi(word.substr(row)))});
    }
    return spec;
}

// What comparisons must give: "a<b ab=ba c>", each with its two texts around the sign.
struct order_row {
    std::string a, b;
    int want;
};
inline std::vector<order_row> orders(const std::string &text) {
    std::vector<order_row> rows;
    for (const std::string &word : split(text, ' ')) {
        const size_t sign = word.find_first_of("<=>");
        rows.push_back({word.substr(0, sign), word.substr(sign + 1), word[sign] - '='});
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
        all.push_back(std::string(1, char(c)));
    return all;
}

// The key in a room that fits or is too large, of which the key leaves the rest alone.
inline std::string sort_key(ko_lc_t loc, const ko_mchar_t *text) {
    const int need = ko_full_mbsxfrm(loc, nullptr, text, 0), spare = need % 3 * 8;
    if (need < 0) return "failed";
    std::string key(size_t(need + 1 + spare), '\xEE');
    EXPECT_EQ(
        ko_full_mbsxfrm(loc, reinterpret_cast<ko_mchar_t *>(key.data()), text, need + 1 + spare),
        need);
    EXPECT_EQ(key.substr(size_t(need) + 1), std::string(size_t(spare), '\xEE'));
    key.resize(size_t(need));
    return key;
}
inline std::string sort_key(ko_lc_t loc, const std::string &text) {
    return sort_key(loc, mb(text.c_str()));
}

#endif
