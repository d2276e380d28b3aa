// Comparison of texts in UTF-8 and UTF-16, directly from their units.
#include "chars/kovasimd.h"
#include "collate/kovacoll_thai.h"
#include "host/kovahost_order.h"

// ---- Where two texts part ----

constexpr size_t block_bytes = 16;
#ifdef KOVA_BLOCKS
static inline bool have_blocks(const void *a, const void *b) {
    const size_t place_a = place_in_page(a), place_b = place_in_page(b);
    return (place_a > place_b ? place_a : place_b) <= memory_page - block_bytes;
}
template <class Unit> static inline size_t common_in_block(const Unit *a, const Unit *b, size_t n) {
    return first_bit(~equal_bytes(load_counted(a, n), load_counted(b, n)));
}
#else
static inline bool have_blocks(const void *, const void *) { return false; }
static inline size_t common_in_block(const void *, const void *, size_t) { return 0; }
#endif

template <class Unit> static inline size_t common_units(const Unit *a, const Unit *b, size_t n) {
    size_t i = 0;
    if (n && have_blocks(a, b)) {
        i = common_in_block(a, b, n) / sizeof(Unit);
        if (i >= n) return n;
        if (i < block_bytes / sizeof(Unit)) return i;
    }
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

// ---- The first characters that differ ----

// Can the character before a place not be part of an element that goes on there?
template <class Unit>
static bool ends_alone(const coll_flat *flat, const host_text<Unit> &text, size_t at) {
    if (!at) return true;
    const unsigned code = char_before(text.s, text.s + at).code;
    if (!code || code > last_unit || is_surrogate(code) || inside_element(flat, code)) return false;
    return !(flat->pass[0].page[code >> 8][code & 0xFF] & coll_expansion);
}

// The first unit of a character beyond the basic plane.
static inline bool take_high(utf8_text &rest, unsigned *unit) {
    if (rest.s == rest.end || *rest.s < 0xF0) return false;
    const utf8_step step = utf8_char(rest.s, rest.end);
    if (step.code == no_code) return false;
    *unit = high_unit(step.code);
    ++rest.s;
    return true;
}
template <class Unit> static inline bool take_high(utf16_text<Unit> &, unsigned *) { return false; }

// The first item that a text yields from a place on in the first pass; its ch is 0 at the end.
// False if more has to be looked at.
template <class Unit>
[[gnu::always_inline]] static inline bool
first_item(const coll_flat *flat, const host_text<Unit> &text, size_t at, coll_item *item) {
    const coll_flat_pass *const p = &flat->pass[0];
    auto rest = walk_from(text, at);
    *item = {0, 0};
    bool alone = false; // what comes next is not inside an element
    for (unsigned unit; rest.s != rest.end; alone = true) {
        if (!take_plain(rest, &unit) && !take_high(rest, &unit)) return false;
        const unsigned own = flat->alone[unit >> 8][unit & 0xFF];
        if (plain_weight(own)) {
            *item = {uint16_t(own), ko_wchar_t(unit)};
            return true;
        }
        if (!alone && inside_element(flat, unit) && !ends_alone(flat, text, at)) return false;
        const unsigned weight = p->page[unit >> 8][unit & 0xFF];
        if (weight == coll_ignored_weight) continue;
        if (!(weight & coll_expansion)) {
            *item = {uint16_t(weight), ko_wchar_t(unit)};
            return true;
        }
        const coll_special &special = p->specials[weight & coll_low_bits];
        const bool element = may_continue(flat, special.next, rest.s, rest.end);
        const coll_seq seq = element ? special_seq(special, rest) : special.own;
        if (!seq.count) continue;
        *item = seq.items[0];
        return true;
    }
    return true;
}

// The order by the first items that differ, which decide most pairs. 0 if they do not, or if more
// has to be looked at.
template <class Unit>
static inline int first_order(const coll_flat *flat, const host_text<Unit> &a,
                              const host_text<Unit> &b, size_t common) {
    const size_t at = boundary(a, common);
    coll_item x, y;
    if (!first_item(flat, a, at, &x) || !first_item(flat, b, at, &y)) return 0;
    if (a.misses->ill_formed) return 0;
    if (!x.ch || !y.ch) return order_of(x.ch, y.ch);
    const unsigned low_x = x.weight & coll_low_bits, low_y = y.weight & coll_low_bits;
    if (low_x != low_y) return order_of_different(low_x, low_y);
    return x.weight & coll_code_tie ? order_of(x.ch, y.ch) : 0;
}

// ---- All characters that differ ----

// The order found so far: the first difference of a pass, or the last one if it runs backward.
struct found_order {
    int pass; // all passes before it are equal
    int order;
};

// Takes a character that is no part of an element. False if more has to be looked at, and at the
// end.
template <class Unit>
static inline bool take_alone(const coll_flat *flat, const host_text<Unit> &text, size_t *at,
                              unsigned *unit) {
    auto rest = walk_from(text, *at);
    if (!take_plain(rest, unit)) return false;
    if (inside_element(flat, *unit) && !ends_alone(flat, text, *at)) return false;
    const coll_flat_pass *const p = &flat->pass[0];
    const unsigned weight = p->page[*unit >> 8][*unit & 0xFF];
    if (weight & coll_expansion) {
        const unsigned next = p->specials[weight & coll_low_bits].next;
        if (may_continue(flat, next, rest.s, rest.end)) return false;
    }
    *at = size_t(rest.s - text.s);
    return true;
}

// Compares what two units yield in a pass. False if one yields more than the other.
static inline bool yields_order(const coll_flat_pass *p, unsigned x, unsigned y, int *order) {
    coll_item own_x, own_y;
    const coll_seq a = yielded(p, x, -1, &own_x), b = yielded(p, y, -1, &own_y);
    *order = 0;
    for (unsigned i = 0; i < a.count && i < b.count && !*order; ++i) {
        const unsigned low_a = a.items[i].weight & coll_low_bits,
                       low_b = b.items[i].weight & coll_low_bits;
        const bool tie = low_a == low_b && a.items[i].weight & coll_code_tie;
        *order = tie ? order_of(a.items[i].ch, b.items[i].ch) : order_of(low_a, low_b);
    }
    return *order || a.count == b.count;
}

// Adds two units that stand at the same place in the passes that can still decide.
static inline bool add_difference(const coll_flat *flat, unsigned x, unsigned y,
                                  found_order *found) {
    for (int pass = 0; pass <= found->pass && pass < flat->num_passes; ++pass) {
        const coll_flat_pass *const p = &flat->pass[pass];
        if (pass == found->pass && p->forward) return true;
        int order;
        if (!yields_order(p, x, y, &order)) return false;
        if (order) *found = {pass, order};
    }
    return true;
}

// The first pass that a unit yields something in.
static inline int first_pass_of(const coll_flat *flat, unsigned unit) {
    coll_item own;
    int pass = 0;
    while (pass < flat->num_passes && !yielded(&flat->pass[pass], unit, -1, &own).count)
        ++pass;
    return pass;
}

// Adds a unit that the passes before one ignore, by what the other text has there: another unit, or
// 0 for its end.
static inline bool add_inserted(const coll_flat *flat, int pass, unsigned x, unsigned y,
                                found_order *found) {
    if (pass > found->pass || pass == flat->num_passes) return true;
    const coll_flat_pass *const p = &flat->pass[pass];
    if (!p->forward) return false;
    if (pass == found->pass) return true;
    int order = 1;
    coll_item own;
    if (y && (!yielded(p, y, -1, &own).count || !yields_order(p, x, y, &order) || !order))
        return false;
    *found = {pass, order};
    return true;
}

// Adds the rest of a text that goes on where the other one ends.
template <class Unit>
static bool add_rest(const coll_flat *flat, const host_text<Unit> &text, size_t at,
                     found_order *found) {
    while (at < text.len && found->pass) {
        unsigned unit;
        if (!take_alone(flat, text, &at, &unit)) return false;
        if (!add_inserted(flat, first_pass_of(flat, unit), unit, 0, found)) return false;
    }
    return true;
}

static inline found_order reversed(found_order found) { return {found.pass, -found.order}; }

// Compares texts by the characters that differ, as long as these stand at the same place of each
// pass. 0 if more has to be looked at.
template <class Unit>
[[gnu::noinline]] static int order_by_differences(const coll_flat *flat, const host_text<Unit> &a,
                                                  const host_text<Unit> &b, size_t common) {
    size_t at_a = boundary(a, common), at_b = at_a;
    found_order found = {flat->num_passes, 0};
    while (at_a < a.len && at_b < b.len && found.pass) {
        size_t after_a = at_a, after_b = at_b;
        unsigned x, y;
        if (!take_alone(flat, a, &after_a, &x) || !take_alone(flat, b, &after_b, &y)) return 0;
        const int pass_x = first_pass_of(flat, x), pass_y = first_pass_of(flat, y);
        if (pass_x >= pass_y) at_a = after_a;
        if (pass_y >= pass_x) at_b = after_b;
        if (pass_x > pass_y) {
            if (!add_inserted(flat, pass_x, x, y, &found)) return 0;
        } else if (pass_x < pass_y) {
            found = reversed(found);
            if (!add_inserted(flat, pass_y, y, x, &found)) return 0;
            found = reversed(found);
        } else if (!add_difference(flat, x, y, &found)) {
            return 0;
        }
        const size_t left_a = a.len - at_a, left_b = b.len - at_b;
        const size_t same = common_units(a.s + at_a, b.s + at_b, left_a < left_b ? left_a : left_b);
        const size_t ahead = same ? boundary(a, at_a + same) - at_a : 0;
        at_a += ahead;
        at_b += ahead;
    }
    if (!add_rest(flat, a, at_a, &found)) return 0;
    found = reversed(found);
    if (!add_rest(flat, b, at_b, &found)) return 0;
    return -found.order;
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

// The order of any texts.
template <class Unit> static int order_of_all(ko_lc_t loc, host_text<Unit> a, host_text<Unit> b) {
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
        const bool less = common < shorter ? a.s[common] < b.s[common] : a.len < b.len;
        return less ? -1 - error : 1 + error;
    }
    const host_map *const map = map_for(record(loc), KO_LC_COLLATE);
    if (!map) return order_of_characters(record(loc), a, b, common);
    return order_of_characters(record(loc), mapped_host<Unit>{a.s, a.len, a.misses, map},
                               mapped_host<Unit>{b.s, b.len, b.misses, map}, common);
}

// The steps of a comparison have the parameters of the call, so that one can end in another.

static inline const coll_flat *flat_of(ko_lc_t loc) { return record(loc)->weights; }

// The order of texts that have common units.
template <class Unit>
[[gnu::noinline]] static int order_from(ko_lc_t loc, const Unit *a, size_t alen, const Unit *b,
                                        size_t blen, size_t common) {
    const coll_flat *const flat = flat_of(loc);
    host_misses misses = {};
    const host_text<Unit> text_a = {a, alen, &misses}, text_b = {b, blen, &misses};
    int order = first_order(flat, text_a, text_b, common);
    if (!order && !misses.ill_formed) order = order_by_differences(flat, text_a, text_b, common);
    if (order) return order;
    misses = {};
    return order_of_all(loc, text_a, text_b);
}

template <class Unit>
[[gnu::noinline]] static int order_without_tables(ko_lc_t loc, const Unit *a, size_t alen,
                                                  const Unit *b, size_t blen) {
    host_misses misses = {};
    return order_of_all(loc, host_text<Unit>{a, alen, &misses}, host_text<Unit>{b, blen, &misses});
}

// ---- ASCII letters ----

// Does the character before a place end there, as ASCII characters do?
static inline bool after_ascii(const unsigned char *s, size_t at) {
    return s[at - (at > 0)] < 0x80;
}

// May an element go on after an ASCII letter, with which it begins?
static inline bool may_go_on(const coll_flat *flat, uint32_t letter, const unsigned char *s,
                             size_t len, size_t at) {
    return may_continue(flat, letter >> ascii_next_bit, s + at + 1, s + len);
}

// The order by two ASCII letters, the first characters that differ, of which one stands in
// elements.
[[gnu::noinline]] static int order_by_edges(ko_lc_t loc, const unsigned char *a, size_t alen,
                                            const unsigned char *b, size_t blen, size_t at) {
    const coll_flat *const flat = flat_of(loc);
    const uint32_t x = flat->ascii[a[at]], y = flat->ascii[b[at]];
    const unsigned weight_x = x & ascii_weight, weight_y = y & ascii_weight;
    if (weight_x == weight_y || (at && (x | y) & ascii_inner) || may_go_on(flat, x, a, alen, at) ||
        may_go_on(flat, y, b, blen, at))
        return order_from(loc, a, alen, b, blen, at);
    return order_of_different(weight_x, weight_y);
}

// The order of a text and one that goes on after it.
[[gnu::noinline]] static int order_by_end(ko_lc_t loc, const unsigned char *a, size_t alen,
                                          const unsigned char *b, size_t blen, size_t at) {
    const unsigned char *const longer = alen > blen ? a : b;
    const uint32_t letter = flat_of(loc)->ascii[longer[at]];
    if (letter > ascii_weight || !after_ascii(longer, at))
        return order_from(loc, a, alen, b, blen, at);
    return alen > blen ? 1 : -1;
}

// The order of texts that differ at a place, before which they are equal.
static inline int order_by_units(const coll_flat *flat, ko_lc_t loc, const unsigned char *a,
                                 size_t alen, const unsigned char *b, size_t blen, size_t at) {
    const uint32_t x = flat->ascii[a[at]], y = flat->ascii[b[at]];
    if ((x | y) & ascii_none || !after_ascii(a, at) || x == y)
        return order_from(loc, a, alen, b, blen, at);
    if ((x | y) > ascii_weight) return order_by_edges(loc, a, alen, b, blen, at);
    return order_of_different(x, y);
}
static inline int order_by_units(const coll_flat *, ko_lc_t loc, const char16_t *a, size_t alen,
                                 const char16_t *b, size_t blen, size_t at) {
    return order_from(loc, a, alen, b, blen, at);
}
static inline int order_by_end(ko_lc_t loc, const char16_t *a, size_t alen, const char16_t *b,
                               size_t blen, size_t at) {
    return order_from(loc, a, alen, b, blen, at);
}

template <class Unit>
static inline int order_of_texts(ko_lc_t loc, const Unit *a, size_t alen, const Unit *b,
                                 size_t blen) {
    const coll_flat *const flat = tables_of_units(loc);
    if (!flat || !a || !b) return order_without_tables(loc, a, alen, b, blen);
    const size_t shorter = alen < blen ? alen : blen;
    const size_t common = common_units(a, b, shorter);
    if (common < shorter) return order_by_units(flat, loc, a, alen, b, blen, common);
    return alen == blen ? 0 : order_by_end(loc, a, alen, b, blen, common);
}

int ko_utf8scoll(ko_lc_t loc, const char *a, size_t alen, const char *b, size_t blen) {
    return order_of_texts(loc, bytes_of(a), alen, bytes_of(b), blen);
}

int ko_utf16scoll(ko_lc_t loc, const char16_t *a, size_t alen, const char16_t *b, size_t blen) {
    return order_of_texts(loc, a, alen, b, blen);
}
