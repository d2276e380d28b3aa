// Comparison of texts in UTF-8 and UTF-16, directly from their units.
#include "collate/kovacoll_thai.h"
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

template <class Text> static size_t boundary(const Text &text, size_t at) {
    return character_end(text.s, at);
}
// Both units of a pair are one character of another code set.
static size_t boundary(const mapped_host<char16_t> &text, size_t at) {
    return at && is_high_unit(text.s[at - 1]) ? at - 1 : at;
}

static unsigned unit_at(const unsigned char *s, const unsigned char *end) {
    const utf8_step step = utf8_char(s, end);
    if (step.code == no_code) return last_unit;
    return step.code > last_unit ? high_unit(step.code) : step.code;
}
static unsigned unit_at(const char16_t *s, const char16_t *) { return *s; }

template <class Unit> static unsigned unit_of(const host_text<Unit> &text, size_t at) {
    return unit_at(text.s + at, text.s + text.len);
}
template <class Unit> static unsigned unit_of(const mapped_host<Unit> &text, size_t at) {
    const unsigned code = char_at(text.s + at, text.s + text.len).code;
    const unsigned wide = code == no_code ? no_code : wide_of(text.map, code);
    return wide == no_code ? last_unit : wide;
}

// Can a place be inside an element, so that a walk from here would differ from one from the start?
// An element may extend beyond U+0000, which is ignored.
template <class Text> static bool inside(const coll_flat *flat, const Text &text, size_t at) {
    if (at == text.len) return false;
    const unsigned unit = unit_of(text, at);
    return !unit || inside_element(flat, unit);
}

// Where comparison can begin: equal units at the start weigh the same in every forward pass, unless
// an element extends beyond them.
template <class Text>
static size_t meeting_place(const coll_flat *flat, const Text &a, const Text &b, size_t common) {
    size_t at = boundary(a, common);
    if (flat->elements)
        while (at && (inside(flat, a, at) || inside(flat, b, at)))
            at = boundary(a, at - 1);
    return at;
}

// ---- Order ----

template <class Text>
static int order_by_weights(const coll_flat *flat, const Text &a, const Text &b, size_t common) {
    const size_t at = meeting_place(flat, a, b, common);
    for (int pass = 0; pass < flat->num_passes; ++pass) {
        const coll_flat_pass *p = &flat->pass[pass];
        const int order = p->forward ? pass_order(p, walk_from(a, at), walk_from(b, at))
                                     : pass_order(p, walk_back(a), walk_back(b));
        if (order) return order;
    }
    return null_order(a, b);
}

template <class Text> static int order_by_codes(const Text &a, const Text &b, size_t common) {
    const size_t at = boundary(a, common);
    auto walk_a = walk_from(a, at), walk_b = walk_from(b, at);
    for (;;) {
        const int x = take_code(walk_a), y = take_code(walk_b);
        if (x != y) return x < y ? -1 : 1;
        if (x < 0) return 0;
    }
}

template <class Text> static int order_by_thai(const Text &a, const Text &b) {
    const int order = thai_order(walk_from(a, 0), walk_from(b, 0));
    return order ? order : null_order(a, b);
}

template <class Text>
static int order_of_characters(const kovaloc *loc, const Text &a, const Text &b, size_t common) {
    const coll_flat *flat = loc->weights;
    const int order = flat           ? order_by_weights(flat, a, b, common)
                      : by_thai(loc) ? order_by_thai(a, b)
                                     : order_by_codes(a, b, common);
    if (a.misses->ill_formed) return order * (1 + KO_EILSEQ);
    return a.misses->lacking ? order * (1 + KO_ENOCHAR) : order;
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
    host_misses misses = {};
    a.misses = b.misses = &misses;
    const host_map *const map = map_for(record(loc), KO_LC_COLLATE);
    if (!map) return order_of_characters(record(loc), a, b, common);
    return order_of_characters(record(loc), mapped_host<Unit>{a.s, a.len, &misses, map},
                               mapped_host<Unit>{b.s, b.len, &misses, map}, common);
}

int ko_utf8scoll(ko_lc_t loc, const char *a, size_t alen, const char *b, size_t blen) {
    return order_of_texts<unsigned char>(loc, {bytes_of(a), alen, nullptr},
                                         {bytes_of(b), blen, nullptr});
}

int ko_utf16scoll(ko_lc_t loc, const char16_t *a, size_t alen, const char16_t *b, size_t blen) {
    return order_of_texts<char16_t>(loc, {a, alen, nullptr}, {b, blen, nullptr});
}
