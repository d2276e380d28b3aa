// Comparison of multibyte and wide strings, by weights and in code order.
#include "collate/kovacoll_block.h"
#include "collate/kovacoll_text.h"

// ---- Comparison on the derived tables ----

static inline byte_text forward_text(const ko_mchar_t *s) { return {s}; }
static inline wide_forward forward_text(const ko_wchar_t *s) { return {s}; }
static inline byte_back backward_text(const ko_mchar_t *begin, const ko_mchar_t *end) {
    return {end, begin};
}
static inline wide_back backward_text(const ko_wchar_t *begin, const ko_wchar_t *end) {
    return {end, begin};
}

// Compares in the passes from first on. begin_ are the strings, a and b the places after their
// common start.
template <class Unit>
static int compare_passes(const coll_flat *flat, int first, const Unit *begin_a, const Unit *a,
                          const Unit *begin_b, const Unit *b) {
    const Unit *end_a = nullptr, *end_b = nullptr;
    for (int pass = first; pass < flat->num_passes; ++pass) {
        const coll_flat_pass *p = &flat->pass[pass];
        int order;
        if (p->forward) {
            order = pass_order(p, forward_text(a), forward_text(b));
        } else {
            if (!end_a) {
                for (end_a = a; *end_a;)
                    ++end_a;
                for (end_b = b; *end_b;)
                    ++end_b;
            }
            order = pass_order(p, backward_text(begin_a, end_a), backward_text(begin_b, end_b));
        }
        if (order) return order;
    }
    return 0;
}

// The first place where two strings differ or both end; often the very first.
static inline size_t parting_place(const ko_mchar_t *a, const ko_mchar_t *b) {
    return *a == *b ? common_start(a, b) : 0;
}
static inline size_t parting_place(const ko_wchar_t *a, const ko_wchar_t *b) {
    size_t i = 0;
    while (a[i] == b[i] && a[i])
        ++i;
    return i;
}

// The order by two characters that differ, if neither may be part of an element. 0: not decided.
static inline int first_order(const coll_flat *flat, unsigned a, unsigned b) {
    if ((a | b) > 0xFF) return 0;
    const unsigned x = flat->first_weights[a], y = flat->first_weights[b];
    return x && y ? order_of(x, y) : 0;
}

// Equal characters at the start weigh the same in every forward pass, unless an element extends
// beyond them: then comparison begins at the last place that lies inside no element.
template <class Unit>
static int compare_units(const coll_flat *flat, const Unit *begin_a, const Unit *begin_b) {
    const size_t same = parting_place(begin_a, begin_b);
    const Unit *a = begin_a + same, *b = begin_b + same;
    if (*a == *b) return 0;
    if (const int order = first_order(flat, *a, *b)) return order;
    if (flat->elements)
        for (; a != begin_a && (inside_element(flat, *a) || inside_element(flat, *b)); --a)
            --b;
    return compare_passes(flat, 0, begin_a, a, begin_b, b);
}

static int thai_order(kovaloc *loc, const ko_mchar_t *a, const ko_mchar_t *b) {
    return thaismocoll(loc, a, b);
}
static int thai_order(kovaloc *loc, const ko_wchar_t *a, const ko_wchar_t *b) {
    const size_t len_a = text_length(a), len_b = text_length(b);
    if (len_a > INT_MAX / 2 - 2 || len_b > INT_MAX / 2 - 2) return fail(loc, KO_ERANGE, 0);
    const int bytes_a = int(2 * (len_a + 1)), bytes_b = int(2 * (len_b + 1));
    const ext_block<ko_mchar_t> text_a{size_t(bytes_a)};
    const ext_block<ko_mchar_t> text_b{size_t(bytes_b)};
    if (!text_a.p || !text_b.p) return fail(loc, KO_ENOMEM, 0);
    if (ko_full_wcstombs(loc, text_a.p, a, bytes_a) < 0) return 0;
    if (ko_full_wcstombs(loc, text_b.p, b, bytes_b) < 0) return 0;
    return thaismocoll(loc, text_a.p, text_b.p);
}

template <class Unit>
[[gnu::noinline]] static int order_without_tables(kovaloc *loc, const Unit *a, const Unit *b) {
    if (by_code(loc)) return code_order(forward_text(a), forward_text(b));
    if (loc->coll_info.collate == collate_thai) return thai_order(loc, a, b);
    return walk_compare(loc, a, text_length(a), b, text_length(b));
}

template <class Unit> static int order_units(kovaloc *loc, const Unit *a, const Unit *b) {
    return loc->weights ? compare_units(loc->weights, a, b) : order_without_tables(loc, a, b);
}

int ko_full_wcscoll(ko_lc_t handle, const ko_wchar_t *wcs1, const ko_wchar_t *wcs2) {
    if (!handle || !wcs1 || !wcs2) return fail(handle, KO_ENULL, 0);
    return order_units(record(handle), wcs1, wcs2);
}

[[gnu::noinline]] static int single_byte_order(kovaloc *loc, const ko_mchar_t *a,
                                               const ko_mchar_t *b) {
    return order_units(loc, a, b);
}

// ---- Multibyte strings ----

static bool valid_rest(const mb_flat *cs, const ko_mchar_t *s) {
    for (;;) {
        const unsigned n = char_bytes(cs, s);
        if (!n) return false;
        if (!wide_value(s, n)) return true;
        s += n;
    }
}

static int wide_copies_order(kovaloc *loc, const ko_mchar_t *a, const ko_mchar_t *b,
                             int first_pass) {
    wide_copy wide_a, wide_b;
    if (!widen(loc, a, &wide_a) || !widen(loc, b, &wide_b)) return 0;
    if (!first_pass) return ko_full_wcscoll(loc, wide_a.p, wide_b.p);
    return compare_passes(loc->weights, first_pass, wide_a.p, wide_a.p, wide_b.p, wide_b.p);
}

// Compares valid text from the places where the strings part.
static int compare_mb(kovaloc *loc, const mb_flat *cs, const ko_mchar_t *begin_a,
                      const ko_mchar_t *a, const ko_mchar_t *begin_b, const ko_mchar_t *b) {
    const coll_flat *flat = loc->weights;
    for (int pass = 0; pass < flat->num_passes; ++pass) {
        const coll_flat_pass *p = &flat->pass[pass];
        if (!p->forward) return wide_copies_order(loc, begin_a, begin_b, pass);
        const int order = pass_order(p, mb_text{a, cs->flag1}, mb_text{b, cs->flag1});
        if (order) return order;
    }
    return 0;
}

// Finds where two strings part and whether both are valid, then compares them.
static int compare_text(kovaloc *loc, const mb_flat *cs, const ko_mchar_t *begin_a,
                        const ko_mchar_t *begin_b) {
    const coll_flat *flat = loc->weights;
    const bool elements = flat && flat->elements;
    const ko_mchar_t *a = begin_a, *b = begin_b, *meet_a = a;
    unsigned n;
    for (;;) {
        n = char_bytes(cs, a);
        if (!n) return fail(loc, KO_EILSEQ, 0);
        if (*a != *b || (n == 2 && a[1] != b[1])) break;
        const unsigned ch = wide_value(a, n);
        if (!ch) return 0;
        if (elements && !inside_element(flat, ch)) meet_a = a;
        a += n;
        b += n;
    }
    const unsigned m = char_bytes(cs, b);
    if (!m || !valid_rest(cs, a) || !valid_rest(cs, b)) return fail(loc, KO_EILSEQ, 0);
    if (by_code(loc)) return code_order(mb_text{a, cs->flag1}, mb_text{b, cs->flag1});
    if (elements &&
        (inside_element(flat, wide_value(a, n)) || inside_element(flat, wide_value(b, m)))) {
        b -= a - meet_a;
        a = meet_a;
    }
    return compare_mb(loc, cs, begin_a, a, begin_b, b);
}

[[gnu::noinline]] static int multibyte_order(kovaloc *loc, const ko_mchar_t *a,
                                             const ko_mchar_t *b) {
    const mb_flat *cs = code_set(loc);
    if (!cs || (!loc->weights && !by_code(loc))) return wide_copies_order(loc, a, b, 0);
    return compare_text(loc, cs, a, b);
}

// The order of short strings by the first weights in which they differ, which decide most pairs. 0:
// not decided.
static inline int short_pairs_order(const kovaloc *loc, const ko_mchar_t *a, const ko_mchar_t *b) {
    const coll_flat *flat = loc->weights;
    ptrdiff_t common;
    if (!flat || !flat->first_decides || !loc->pairs.any) return 0;
    if (!short_pairs(&loc->pairs, a, b, &common)) return 0;
    a += common;
    b += common;
    if (!*a || !*b) return 0;
    const uint16_t *const *page = flat->pass[0].page;
    const unsigned w1 = page[a[0]][a[1]], w2 = page[b[0]][b[1]];
    return both_plain(w1, w2) ? order_of(w1, w2) : 0;
}

int im_mbscoll(ko_lc_t handle, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2) {
    if (!handle || !mbs1 || !mbs2) return fail(handle, KO_ENULL, 0);
    kovaloc *loc = record(handle);
    if (loc->exp.single_byte) return single_byte_order(loc, mbs1, mbs2);
    const int order = short_pairs_order(loc, mbs1, mbs2);
    return order ? order : multibyte_order(loc, mbs1, mbs2);
}

// ---- Code order ----

int ko_wcscmp(const ko_wchar_t *wcs1, const ko_wchar_t *wcs2) {
    while (*wcs1 && *wcs1 == *wcs2)
        ++wcs1, ++wcs2;
    return *wcs1 - *wcs2;
}

int ko_wcsncmp(const ko_wchar_t *wcs1, const ko_wchar_t *wcs2, int n) {
    if (n <= 0) return 0;
    for (; --n && *wcs1 && *wcs1 == *wcs2; ++wcs1)
        ++wcs2;
    return *wcs1 - *wcs2;
}

// The end of at most nc characters; stops before an invalid one.
static const ko_mchar_t *skip_chars(kovaloc *loc, const ko_mchar_t *s, int nc) {
    for (; nc > 0; --nc) {
        if (loc->exp.single_byte) {
            if (!*s) break;
            ++s;
            continue;
        }
        if (ko_ismbsterm(loc, s)) break;
        const ko_mchar_t *next = ko_full_mbsnext(loc, s);
        if (!next) break;
        s = next;
    }
    return s;
}

int ko_full_mbsncmp(ko_lc_t handle, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2, int len_chars) {
    if (!handle || !mbs1 || !mbs2) return fail(handle, KO_ENULL, 0);
    const ko_mchar_t *end1 = skip_chars(record(handle), mbs1, len_chars);
    const ko_mchar_t *end2 = skip_chars(record(handle), mbs2, len_chars);
    for (; mbs1 < end1 && mbs2 < end2; ++mbs1, ++mbs2)
        if (*mbs1 != *mbs2) return *mbs1 - *mbs2;
    return mbs1 < end1 ? 1 : mbs2 < end2 ? -1 : 0;
}

int ko_wcspre(ko_lc_t handle, const ko_wchar_t *str, int len, const ko_wchar_t *prefix,
              int preflen) {
    if (!str || !prefix) return fail(handle, KO_ENULL, 0);
    if (preflen > len) return 0;
    for (int i = 0; i < preflen; ++i)
        if (str[i] != prefix[i]) return 0;
    return 1;
}
