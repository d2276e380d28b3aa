// The texts from which comparison and keys start: their code set, and wide copies of them.
#ifndef KOVACOLL_TEXT_H
#define KOVACOLL_TEXT_H

#include "chars/kovambwc.h"
#include "collate/kovacoll_pass.h"

#include <limits.h>
#include <string.h>

// Is the order code order, as it is without a collation category?
inline bool by_code(const kovaloc *loc) {
    return loc->exp.codeset_order || loc->coll_info.collate == collate_none;
}

inline size_t text_length(const ko_mchar_t *mbs) {
    return strlen(reinterpret_cast<const char *>(mbs));
}

inline size_t text_length(const ko_wchar_t *wcs) {
    size_t n = 0;
    while (wcs[n])
        ++n;
    return n;
}

// Bytes of the character at s, 0 for what is not one.
inline unsigned char_bytes(const mb_flat *cs, const ko_mchar_t *s) {
    return unsigned(flat_mblen(*cs, s));
}

inline unsigned wide_value(const ko_mchar_t *s, unsigned bytes) {
    return bytes == 1 ? *s : unsigned(s[0] << 8 | s[1]);
}

constexpr size_t wide_local = 256;

struct wide_copy {
    ko_wchar_t *p = nullptr;
    size_t len = 0; // before the terminator
    ko_wchar_t local[wide_local];
    ~wide_copy() {
        if (p && p != local) ko_ext_free(p);
    }
};

// False with the error word set for invalid text or without memory.
bool widen(kovaloc *loc, const ko_mchar_t *mbs, wide_copy *copy);

#endif
