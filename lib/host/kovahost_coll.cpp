// Comparison of texts in UTF-8 and UTF-16, directly from their units.
#include "host/kovahost_order.h"

// ---- Where two texts part ----

template <class Unit> static size_t common_units(const Unit *a, const Unit *b, size_t n) {
    size_t i = 0;
    for (constexpr size_t step = sizeof(uint64_t) / sizeof(Unit); n - i >= step; i += step) {
        uint64_t x, y;
        memcpy(&x, a + i, sizeof x);
        memcpy(&y, b + i, sizeof y);
        if (x != y) break;
    }
    while (i < n && a[i] == b[i])
        ++i;
    return i;
}

// The last place, at or before the end of the common beginning of two UTF-8 texts, where a
// character or a stray byte ends in both.
static size_t character_end(const unsigned char *text, size_t at) {
    for (size_t back = 1; back <= 3 && back <= at; ++back) {
        const unsigned byte = text[at - back];
        if (is_trail(byte)) continue;
        const size_t bytes = 1u + (byte >= 0xC0) + (byte >= 0xE0) + (byte >= 0xF0);
        return back < bytes ? at - back : at;
    }
    return at;
}
static size_t character_end(const char16_t *, size_t at) { return at; }

static unsigned unit_at(const unsigned char *s, const unsigned char *end) {
    const utf8_step step = utf8_char(s, end);
    if (step.code == no_code) return last_unit;
    return step.code > last_unit ? high_unit(step.code) : step.code;
}
static unsigned unit_at(const char16_t *s, const char16_t *) { return *s; }

// Can a place be inside an element, so that a walk from here would differ from one from the start?
// An element may extend beyond U+0000, which is ignored.
template <class Unit>
static bool inside(const coll_flat *flat, const host_text<Unit> &text, size_t at) {
    if (at == text.len) return false;
    const unsigned unit = unit_at(text.s + at, text.s + text.len);
    return !unit || inside_element(flat, unit);
}

// Where comparison can begin: equal units at the start weigh the same in every forward pass, unless
// an element extends beyond them.
template <class Unit>
static size_t meeting_place(const coll_flat *flat, const host_text<Unit> &a,
                            const host_text<Unit> &b, size_t common) {
    size_t at = character_end(a.s, common);
    if (flat->elements)
        while (at && (inside(flat, a, at) || inside(flat, b, at)))
            at = character_end(a.s, at - 1);
    return at;
}

// ---- Order ----

template <class Unit>
static int order_by_weights(const coll_flat *flat, const host_text<Unit> &a,
                            const host_text<Unit> &b, size_t common, bool *ill_formed) {
    const size_t at = meeting_place(flat, a, b, common);
    for (int pass = 0; pass < flat->num_passes; ++pass) {
        const coll_flat_pass *p = &flat->pass[pass];
        const int order =
            p->forward ? pass_order(p, walk_from(a, at, ill_formed), walk_from(b, at, ill_formed))
                       : pass_order(p, walk_back(a, ill_formed), walk_back(b, ill_formed));
        if (order) return order;
    }
    return null_order(a, b);
}

template <class Unit>
static int order_by_codes(const host_text<Unit> &a, const host_text<Unit> &b, size_t common,
                          bool *ill_formed) {
    const size_t at = character_end(a.s, common);
    auto walk_a = walk_from(a, at, ill_formed), walk_b = walk_from(b, at, ill_formed);
    for (;;) {
        const int x = take_code(walk_a), y = take_code(walk_b);
        if (x != y) return x < y ? -1 : 1;
        if (x < 0) return 0;
    }
}

template <class Unit> static int order_of_texts(ko_lc_t loc, host_text<Unit> a, host_text<Unit> b) {
    int error = unfit_for_order(loc);
    if ((!a.s && a.len) || (!b.s && b.len)) {
        error = KO_ENULL;
        a.len = a.s ? a.len : 0;
        b.len = b.s ? b.len : 0;
    }
    const size_t shorter = a.len < b.len ? a.len : b.len;
    const size_t common = common_units(a.s, b.s, shorter);
    if (common == a.len && common == b.len) return 0;
    if (error) {
        const bool less = common == shorter ? a.len < b.len : a.s[common] < b.s[common];
        return less ? -1 - error : 1 + error;
    }
    bool ill_formed = false;
    const coll_flat *flat = record(loc)->weights;
    const int order = flat ? order_by_weights(flat, a, b, common, &ill_formed)
                           : order_by_codes(a, b, common, &ill_formed);
    return ill_formed ? order * (1 + KO_EILSEQ) : order;
}

int ko_utf8scoll(ko_lc_t loc, const char *a, size_t alen, const char *b, size_t blen) {
    return order_of_texts<unsigned char>(loc, {bytes_of(a), alen}, {bytes_of(b), blen});
}

int ko_utf16scoll(ko_lc_t loc, const char16_t *a, size_t alen, const char16_t *b, size_t blen) {
    return order_of_texts<char16_t>(loc, {a, alen}, {b, blen});
}
