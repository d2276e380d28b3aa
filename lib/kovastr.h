// How the string operations look at text: by bytes in single-byte locales, by the flat class table,
// by the tree of the class table, or by wide values. Each way is a record with the same members, so
// an operation is one template over them.
#ifndef KOVASTR_H
#define KOVASTR_H

#include "kovambwc.h"

// The character at a position.
struct text_char {
    int units; // 0 at the terminator, -1 for what is no character, with the error word set
    unsigned wide;
    unsigned classes;
};

// The classes of a wide character, none where it is no character; stores no error.
inline unsigned wide_classes(kovaloc *r, ko_wchar_t wc) {
    if (const uint16_t *table = r->exp.sb_ctype_table) return wc < 256 ? table[wc] : 0u;
    if (const ctype_flat *flat = flat_classes(r)) {
        const uint16_t *item = flat_wchar(&flat->classes, wc);
        return item ? *item : 0u;
    }
    errno_guard kept(r);
    return static_cast<unsigned>(im_iswctype(r, wc, 0xFFFF));
}

struct by_wide {
    using unit = ko_wchar_t;
    kovaloc *loc;
    text_char at(const unit *s) const {
        return *s ? text_char{1, *s, wide_classes(loc, *s)} : text_char{0, 0, 0};
    }
};

struct by_byte {
    using unit = ko_mchar_t;
    kovaloc *loc;
    text_char at(const unit *s) const {
        return *s ? text_char{1, *s, wide_classes(loc, *s)} : text_char{0, 0, 0};
    }
};

struct by_flat { // terminators of one or two bytes
    using unit = ko_mchar_t;
    kovaloc *loc;
    const mb_flat *f;
    bool short_end;
    text_char at(const unit *s) const {
        const unsigned b = *s;
        if (!b && (short_end || !s[1])) return {0, 0, 0};
        if (f->flag1[b] == mb_final) return {1, b, f->item1[b]};
        if (f->flag1[b] == mb_prefix && f->second->flags[b][s[1]] == mb_final) {
            return {2, b << 8 | s[1], f->second->items[b][s[1]]};
        }
        return fail(loc, KO_EILSEQ, text_char{-1, 0, 0});
    }
};

struct by_tree {
    using unit = ko_mchar_t;
    kovaloc *loc;
    text_char at(const unit *s) const;
};

// Calls the operation with the way that fits the record.
template <class Operation> inline auto by_code_set(ko_lc_t loc, Operation run) {
    kovaloc *r = record(loc);
    if (r->exp.single_byte) return run(by_byte{r});
    const ctype_flat *flat = flat_classes(r);
    const int end_len = terminator_len(r);
    if (flat && end_len <= 2) return run(by_flat{r, &flat->classes, end_len == 1});
    return run(by_tree{r});
}

#endif
