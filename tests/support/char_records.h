// Locale records with character tables made by hand, for the tests of characters.
#ifndef CHAR_RECORDS_H
#define CHAR_RECORDS_H

#include "chars/kovambwc.h"
#include "support/guarded_block.h"
#include "support/tables.h"

#include <random>
#include <string.h>

// Code sets of one byte, of one and two, and of two; the last has partners of another length.
enum class shape { latin1, gaps, euc, sjis, two_byte, odd_case };
constexpr shape all_shapes[] = {shape::latin1, shape::gaps,     shape::euc,
                                shape::sjis,   shape::two_byte, shape::odd_case};

// A record whose LC_CTYPE tables are filled character by character, then finished once.
struct char_record {
    kovaloc loc = {};
    std::vector<conv_elem> pairs = {
        {0, 0}
    };
    std::vector<unsigned char> upper_bytes, lower_bytes;
    std::vector<uint16_t> masks;
    const uint16_t zero = 0;

    char_record() {
        loc.ctype = create_multi(2, 0, &zero);
        loc.cconv = create_multi(2, 0, &zero);
        loc.exp.case_conv_ratio = 1.0;
    }
    explicit char_record(shape s, bool flat = true, bool byte_tables = true);
    ~char_record() {
        free_ctype_flat(loc.chars);
        free_multi(loc.ctype);
        free_multi(loc.cconv);
    }
    char_record(const char_record &) = delete;
    operator ko_lc_t() { return &loc; }
    int error() const { return loc.exp.gen.ko_lerrno; }
    void clear() { loc.exp.gen.ko_lerrno = 0; }

    // where: 1 class table, 2 case table, 3 both
    void add(unsigned wide, unsigned bytes, unsigned mask = 0, unsigned upper = 0,
             unsigned lower = 0, int where = 3) {
        const char units[] = {0, 0, char(wide >> 8), char(wide)};
        const std::string_view character(units + 4 - bytes, bytes);
        int pair = 0;
        if (upper || lower) {
            pair = int(pairs.size());
            pairs.push_back({ko_wchar_t(upper), ko_wchar_t(lower)});
        }
        EXPECT_EQ(where & 1 ? insert(loc.ctype, character, int(mask)) : 0, 0);
        EXPECT_EQ(where & 2 ? insert(loc.cconv, character, pair) : 0, 0);
    }

    // As loading does; without flat the trees serve.
    void finish(bool flat, bool byte_tables = true) {
        loc.cconv_arr = pairs.data();
        loc.num_conv_elems = int(pairs.size()) - 1;
        loc.exp.single_byte = multi_max_length(loc.ctype) == 1;
        loc.exp.mbstowcs = loc.exp.single_byte ? is_mbstowcs : im_mbstowcs;
        if (flat) loc.chars = build_ctype_flat(&loc);
        if (!loc.exp.single_byte || !byte_tables) return;
        for (unsigned c = 0; c < 256; ++c) {
            const auto wc = ko_wchar_t(c);
            upper_bytes.push_back(static_cast<unsigned char>(im_towupper(&loc, wc)));
            lower_bytes.push_back(static_cast<unsigned char>(im_towlower(&loc, wc)));
        }
        clear();
        loc.exp.sb_toupper_table = upper_bytes.data();
        loc.exp.sb_tolower_table = lower_bytes.data();
        derive_case_rows(loc.exp.sb_toupper_table, &loc.upper_rows);
        derive_case_rows(loc.exp.sb_tolower_table, &loc.lower_rows);
    }
};

inline void add_ascii(char_record &r, unsigned bytes = 1) {
    for (unsigned c = 0; c < 0x80; ++c) {
        const bool up = c - 'A' < 26, low = c - 'a' < 26;
        const unsigned mask = up ? 0x5u : low ? 0x6u : c == ' ' ? 0x10u : 0u;
        r.add(c, bytes, mask, low ? c - 32 : 0, up ? c + 32 : 0);
    }
}

inline void add_rows(char_record &r, unsigned first, unsigned last, unsigned lo, unsigned hi) {
    const auto there = [=](unsigned a, unsigned b) { // all but some holes
        return b >= lo && b <= hi && b != 0x7F && (a + b) % 61 != 7;
    };
    for (unsigned a = first; a <= last; ++a) {
        for (unsigned b = lo; b <= hi; ++b) {
            if (!there(a, b)) continue;
            const bool cased = a % 16 == 3 && there(a, b ^ 1); // a row of case pairs
            const unsigned wide = a << 8 | b, partner = cased ? wide ^ 1 : 0;
            r.add(wide, 2, a & 0xF, b & 1 ? partner : 0, b & 1 ? 0 : partner);
        }
    }
}

inline char_record::char_record(shape s, bool flat, bool byte_tables) : char_record() {
    add_ascii(*this, s == shape::two_byte ? 2 : 1);
    for (unsigned c = 0x80; s == shape::latin1 && c < 0x100; ++c) {
        const bool up = c >= 0xC0 && c < 0xDF, low = c >= 0xE0 && c < 0xFF;
        add(c, 1, up ? 5u : low ? 6u : 0x40u, low ? c - 32 : 0, up ? c + 32 : 0);
    }
    for (unsigned c = 0xA1; s == shape::sjis && c < 0xE0; ++c)
        add(c, 1, 4);
    if (s == shape::gaps) add(0xE4, 1, 6, 0xC4), add(0xC4, 1, 5, 0, 0xE4);
    if (s == shape::euc) add_rows(*this, 0xA1, 0xB4, 0xA1, 0xFE);
    if (s == shape::sjis) add_rows(*this, 0x81, 0x93, 0x40, 0xFC);
    if (s == shape::two_byte) add_rows(*this, 0x03, 0x0A, 0x00, 0xFF);
    if (s == shape::odd_case) {
        add_rows(*this, 0xA1, 0xA2, 0xA1, 0xFE);
        add(0xF0F0, 2, 6, 'X');
        add(0xF1, 1, 6, 0xA1A1);
    }
    finish(flat, byte_tables);
}

// The same characters by the pages and by the tree.
struct char_records {
    char_record flat, tree;
    explicit char_records(shape s, bool byte_tables = true)
        : flat(s, true, byte_tables), tree(s, false, false) {
        EXPECT_TRUE(flat.loc.chars && flat.loc.chars->has_cases);
        tree.loc.exp.single_byte = 0;
    }
};

// A string of characters of the record's code set with a terminator; one in bad units is random.
inline std::string random_text(std::mt19937 &random, shape s, size_t chars, unsigned bad) {
    std::string text;
    const auto below = [&](unsigned n) { return unsigned(random() % n); };
    const auto byte = [&](unsigned from, unsigned count) { text += char(from + below(count)); };
    unsigned run = 0, kind = 0;
    for (size_t i = 0; i < chars; ++i) {
        if (!run--) run = below(24), kind = below(3);
        if (bad && below(bad) == 0) {
            byte(1, 255);
        } else if (s == shape::two_byte) {
            const unsigned hi = kind ? 3 + below(8) : 0;
            text += char(hi);
            byte(hi ? 0 : 1, hi ? 256 : 127);
        } else if (!kind || s == shape::gaps) {
            byte(1, 127);
        } else if (s == shape::latin1) {
            byte(1, 255);
        } else if (s == shape::sjis && kind == 1) {
            byte(0xA1, 0x3F);
        } else if (s == shape::sjis) {
            byte(0x81, 19), byte(0x80, 0x7D);
        } else if (s == shape::odd_case && below(5) == 0) {
            text += below(2) ? "\xF0\xF0" : "\xF1";
        } else {
            byte(0xA1, s == shape::euc ? 20 : 2), byte(0xA1, 94);
        }
    }
    return text.append(2, '\0');
}

#endif
