// How the string operations read text: by bytes in single-byte locales, by the flat class table, by
// the tree of the class table, or by wide values. Each way is a record with the same members, so
// that an operation is one template over them.
#ifndef KOVASTR_H
#define KOVASTR_H

#include "chars/kovambwc.h"

#include <stddef.h>
#include <string.h>

// The character at a position.
struct text_char {
    int units;     // 0 at the terminator, -1 with the error word set for what is not a character
    unsigned code; // its wide value; of a multibyte character all bytes, high byte first
};

// Text in which every unit is a character: wide strings, strings of single-byte locales.
template <class Unit> struct by_unit {
    using unit = Unit;
    static constexpr bool one_unit = true;
    kovaloc *loc;
    int end_units;
    text_char at(const unit *s) const { return {*s ? 1 : 0, *s}; }
    // How many characters of two bytes begin at s, as far as a kernel counts them.
    size_t pairs(const unit *) const { return 0; }
    unsigned pair_facts(const unit *) const { return 0; }
    unsigned classes(const unit *, text_char c) const { return wide_classes(loc, c.code); }
    // Units before the terminator, at most most; -1 with the error word set for invalid text.
    ptrdiff_t length(const unit *s, ptrdiff_t most = PTRDIFF_MAX) const {
        ptrdiff_t n = 0;
        while (n < most && s[n])
            ++n;
        return n;
    }
};
using by_wide = by_unit<ko_wchar_t>;
using by_byte = by_unit<ko_mchar_t>;
template <> inline ptrdiff_t by_byte::length(const ko_mchar_t *s, ptrdiff_t most) const {
    const void *text = s;
    return ptrdiff_t(strnlen(static_cast<const char *>(text), size_t(most)));
}

struct by_flat { // code sets with terminators of one or two bytes
    using unit = ko_mchar_t;
    static constexpr bool one_unit = false;
    kovaloc *loc;
    int end_units;
    const mb_flat *f;
    text_char at(const unit *s) const {
        if (!*s && (end_units == 1 || !s[1])) return {0, 0};
        switch (flat_mblen(*f, s)) {
        case 1:
            return {1, *s};
        case 2:
            return {2, unsigned(s[0] << 8 | s[1])};
        default:
            return fail(loc, KO_EILSEQ, text_char{-1, 0});
        }
    }
    size_t pairs(const unit *s) const {
        if (f->flag1[*s] != mb_prefix || !loc->chars->pairs) return 0;
        return count_pairs(s, loc->chars);
    }
    // What the facts table says of the two-byte character at s; 0 for anything else.
    unsigned pair_facts(const unit *s) const {
        const unsigned char *facts = loc->chars->pairs;
        return facts && *s ? facts[s[0] << 8 | s[1]] : 0u;
    }
    unsigned classes(const unit *, text_char c) const {
        if (c.units < 2) return c.units == 1 ? f->item1[c.code] : 0u;
        return f->second->items[c.code >> 8][c.code & 0xFF];
    }
    ptrdiff_t length(const unit *s) const { return ko_mbsbytes(loc, s) - end_units; }
};

struct by_tree {
    using unit = ko_mchar_t;
    static constexpr bool one_unit = false;
    kovaloc *loc;
    int end_units;
    text_char at(const unit *s) const;
    size_t pairs(const unit *) const { return 0; }
    unsigned pair_facts(const unit *) const { return 0; }
    unsigned classes(const unit *s, text_char c) const;
    ptrdiff_t length(const unit *s) const;
};

// Calls the operation with the way that fits the record.
template <class Operation> inline auto by_code_set(ko_lc_t loc, Operation run) {
    kovaloc *r = record(loc);
    const int end_units = terminator_len(r);
    if (r->exp.single_byte) return run(by_byte{r, end_units});
    const mb_flat *flat = code_set(r);
    if (flat && end_units <= 2) return run(by_flat{r, end_units, flat});
    return run(by_tree{r, end_units});
}

// The position after n characters, or the terminator where that comes first; NULL with the error
// word set. *skipped gets the number of characters before it.
const ko_mchar_t *skip_chars(ko_lc_t loc, const ko_mchar_t *mbs, int n, int *skipped);

// Writes the terminator.
inline void end_text(ko_mchar_t *at, int end_units) { memset(at, 0, size_t(end_units)); }
inline void end_text(ko_wchar_t *at, int) { *at = 0; }

#endif
