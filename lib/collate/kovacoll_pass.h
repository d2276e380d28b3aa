// One pass over two texts, or over one for its key, on the derived tables: shared by the wide, the
// multibyte and the single-byte comparers, which differ in how they step through a text.
#ifndef KOVACOLL_PASS_H
#define KOVACOLL_PASS_H

#include "collate/kovacoll.h"
#include "collate/kovacoll_flat.h"

// Texts: each take() gives the next character, 0 at the end, and is not called behind it. The
// _back forms go from the last character to the first.
struct byte_text {
    const ko_mchar_t *s;
};
struct byte_back {
    const ko_mchar_t *s, *begin;
};
struct wide_forward {
    const ko_wchar_t *s;
};
struct wide_back {
    const ko_wchar_t *s, *begin;
};
struct mb_text { // valid text of characters of one or two bytes
    const ko_mchar_t *s;
    const unsigned char *flag1;
};

struct pair_text { // valid text of two-byte characters alone, its terminator one byte
    const ko_mchar_t *s;
};
struct pair_back {
    const ko_mchar_t *s, *begin;
};

inline uint8_t take(byte_text &t) { return *t.s++; }
inline uint8_t take(byte_back &t) { return t.s == t.begin ? uint8_t{0} : *--t.s; }
inline ko_wchar_t take(wide_forward &t) { return *t.s++; }
inline ko_wchar_t take(wide_back &t) { return t.s == t.begin ? ko_wchar_t{0} : *--t.s; }
inline ko_wchar_t take(mb_text &t) {
    const unsigned first = *t.s++;
    if (t.flag1[first] == mb_final) return static_cast<ko_wchar_t>(first);
    return static_cast<ko_wchar_t>(first << 8 | *t.s++);
}

inline ko_wchar_t take(pair_text &t) {
    if (!*t.s) return 0;
    t.s += 2;
    return static_cast<ko_wchar_t>(t.s[-2] << 8 | t.s[-1]);
}
inline ko_wchar_t take(pair_back &t) {
    if (t.s == t.begin) return 0;
    t.s -= 2;
    return static_cast<ko_wchar_t>(t.s[0] << 8 | t.s[1]);
}

template <class Text> struct coll_walk {
    Text text;
    const coll_item *item, *item_end; // what an expansion still delivers
};

// What the character just taken delivers; steps over the element that it begins.
template <class Text> static coll_seq special_seq(const coll_special &special, Text &text) {
    for (unsigned i = 0; i < special.num_candidates; ++i) {
        const coll_candidate &c = special.candidates[i];
        Text probe = text;
        unsigned n = 1;
        while (n < c.elem->nchars && take(probe) == c.elem->elem_data[n])
            ++n;
        if (n < c.elem->nchars) continue;
        text = probe;
        return c.seq;
    }
    return special.own;
}

template <class Text>
static inline coll_item next_item(const uint16_t *const *page, const coll_special *specials,
                                  coll_walk<Text> &walk) {
    for (;;) {
        if (walk.item != walk.item_end) return *walk.item++;
        const auto c = take(walk.text);
        const uint16_t weight = page[c >> 8][c & 0xFF];
        if (weight == coll_ignored_weight) continue;
        if (!(weight & coll_expansion)) return {weight, c};
        const coll_seq seq = special_seq(specials[weight & coll_low_bits], walk.text);
        walk.item = seq.items;
        walk.item_end = seq.items + seq.count;
    }
}

template <class Text>
static int compare_items(const uint16_t *const *page, const coll_special *specials, Text a,
                         Text b) {
    coll_walk<Text> wa = {a, nullptr, nullptr}, wb = {b, nullptr, nullptr};
    for (;;) {
        const coll_item x = next_item(page, specials, wa), y = next_item(page, specials, wb);
        if (!x.ch || !y.ch) return x.ch ? 1 : y.ch ? -1 : 0;
        const unsigned wx = x.weight & coll_low_bits, wy = y.weight & coll_low_bits;
        if (wx != wy) return wx < wy ? -1 : 1;
        if ((x.weight & coll_code_tie) && x.ch != y.ch) return x.ch < y.ch ? -1 : 1;
    }
}

inline bool plain_weight(unsigned weight) { return weight - 2 < coll_expansion - 2; }

// The order of two texts in a pass: -1, 0 or 1. Most pairs are decided among plain weights.
template <class Text>
static inline int compare_pass(const uint16_t *const *page, const coll_special *specials, Text a,
                               Text b) {
    for (;;) {
        const Text at_a = a, at_b = b;
        const auto ca = take(a), cb = take(b);
        const unsigned wa = page[ca >> 8][ca & 0xFF], wb = page[cb >> 8][cb & 0xFF];
        if (!plain_weight(wa) || !plain_weight(wb))
            return compare_items(page, specials, at_a, at_b);
        if (wa != wb) return wa < wb ? -1 : 1;
    }
}

#endif
