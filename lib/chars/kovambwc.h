// What the character sources share: which derived table serves a record, and the kernels that
// process many bytes at once.
#ifndef KOVAMBWC_H
#define KOVAMBWC_H

#include "chars/kovactype.h"

#include <limits.h>

inline gen_exports *head(ko_lc_t loc) { return static_cast<gen_exports *>(loc); }

inline const mb_decode *class_table(const kovaloc *r) {
    return static_cast<const mb_decode *>(r->ctype);
}
// Bytes of the terminator: 1..4 whatever a damaged table states, so that strings always end.
inline int terminator_len(const kovaloc *r) {
    const int n = r->ctype ? class_table(r)->min_char_len : 2;
    return unsigned(n) - 1 < 4 ? n : n < 1 ? 1 : 4;
}

// A count as a result. Strings whose count an int cannot hold are refused.
inline int counted(ko_lc_t loc, size_t count, int refused = -1) {
    return count <= INT_MAX ? int(count) : fail(loc, KO_ERANGE, refused);
}

// The flat form of the record's class table, or of its case table; NULL if the tree must be walked.
inline const ctype_flat *flat_classes(const kovaloc *r) {
    return r->chars && r->chars->ctype == r->ctype ? r->chars : nullptr;
}
inline const mb_flat *code_set(const kovaloc *r) {
    return r->chars && r->chars->ctype == r->ctype ? &r->chars->classes : nullptr;
}
inline const ctype_flat *flat_cases(const kovaloc *r) {
    const ctype_flat *flat = flat_classes(r);
    return flat && flat->has_cases && flat->cconv == r->cconv ? flat : nullptr;
}

// The classes of a wide character, 0 for what is not a character; stores no error.
unsigned tree_classes(const kovaloc *r, ko_wchar_t wc);
inline unsigned wide_classes(const kovaloc *r, unsigned wide) {
    if (const uint16_t *table = r->exp.sb_ctype_table) return wide < 256 ? table[wide] : 0u;
    const auto wc = ko_wchar_t(wide);
    const mb_flat *flat = code_set(r);
    if (!flat) return tree_classes(r, wc);
    const uint16_t *item = flat_wchar(flat, wc);
    return item ? *item : 0u;
}
inline bool has_class(const kovaloc *r, unsigned wide, unsigned mask) {
    return wide_classes(r, wide) & mask;
}

// The case partner to which an index of the case table refers; 0 for none, or for a damaged index.
inline ko_wchar_t case_partner(const kovaloc *r, unsigned index, ko_wchar_t conv_elem::*side) {
    if (!index || index > unsigned(r->num_conv_elems) || !r->cconv_arr) return 0;
    return r->cconv_arr[index].*side;
}

// Steps of calls that go on where these fail: no error is stored. upper_of and lower_of return what
// is not a character as it is; the bytes of a wide value are 0 for none; a character is read as by
// ko_full_mbtowc with at most four bytes; a text is widened as by im_mbstowcs and narrowed as by
// ko_full_wcstombs.
ko_wchar_t upper_of(const kovaloc *r, ko_wchar_t wc);
ko_wchar_t lower_of(const kovaloc *r, ko_wchar_t wc);
int bytes_of_wide(const kovaloc *r, ko_mchar_t *dst, ko_wchar_t wc);
int read_wide_char(const kovaloc *r, ko_wchar_t *wc, const ko_mchar_t *mb);
int widen_quietly(const kovaloc *r, ko_wchar_t *dst, const ko_mchar_t *mbs, int n);
int narrow_quietly(const kovaloc *r, ko_mchar_t *dst, const ko_wchar_t *wcs, int n);

// Bytes of a string with its terminator; or 0 with *error: KO_EILSEQ, or KO_ERANGE where an int
// cannot count them.
int string_room(ko_lc_t loc, const ko_mchar_t *mbs, int *error);

// The number of bytes before the four zero bytes that end a string of a locale object.
size_t zeros_at(const void *string);
// Makes the wide form of such a string; NULL for NULL. -1 with the error word set and *wide NULL.
int alloc_wc_from_mb(kovaloc *loc, const ko_mchar_t *mbs, ko_wchar_t **wide);

// Kernels (kovambwc_simd.cpp). Each processes the units before the first one that it cannot take
// and returns their number; it may also stop early, so a plain loop follows every call. The
// destination may be the source.

// Maps bytes up to a zero byte through the rows of a case table.
void choose_kernel(case_rows *rows);
size_t map_rows(ko_mchar_t *dst, const ko_mchar_t *src, const case_rows &rows);
// Maps ASCII bytes up to zero or a byte above 0x7F; only the 26 letters from first on change case.
size_t map_ascii(ko_mchar_t *dst, const ko_mchar_t *src, unsigned first);
// Widens at most n bytes of 1..most (0x7F or 0xFF).
size_t widen_run(ko_wchar_t *dst, const ko_mchar_t *src, size_t n, unsigned most);
// Narrows at most n values of 1..most.
size_t narrow_run(ko_mchar_t *dst, const ko_wchar_t *src, size_t n, unsigned most);
// The same where has_wide_runs() is true (kovambwc_wide.cpp).
size_t narrow_wide(ko_mchar_t *dst, const ko_wchar_t *src, size_t n, unsigned most);
// Two-byte characters, by the pairs of a flat table: convert at most n of them, copy those that
// have a bit, count them.
size_t widen_pairs(ko_wchar_t *dst, const ko_mchar_t *src, size_t n, const ctype_flat *flat);
size_t narrow_pairs(ko_mchar_t *dst, const ko_wchar_t *src, size_t n, const ctype_flat *flat);
size_t copy_pairs(ko_mchar_t *dst, const ko_mchar_t *src, const ctype_flat *flat, unsigned bit);
size_t count_pairs(const ko_mchar_t *src, const ctype_flat *flat);

#endif
