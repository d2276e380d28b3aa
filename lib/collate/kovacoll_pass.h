// One pass over two texts, or over one for its key, using the derived tables. The wide, multibyte
// and single-byte comparers share it; they differ in how they step through a text.
#ifndef KOVACOLL_PASS_H
#define KOVACOLL_PASS_H

#include "collate/kovacoll.h"
#include "collate/kovacoll_flat.h"

// Texts: each take() returns the next character, 0 at the end, and is not called after that. The
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
struct pair_text { // valid text of only two-byte characters, with a terminator of one byte
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
    if (t.flag1[first] == mb_final) return ko_wchar_t(first);
    return ko_wchar_t(first << 8 | *t.s++);
}
inline ko_wchar_t take(pair_text &t) {
    if (!*t.s) return 0;
    t.s += 2;
    return ko_wchar_t(t.s[-2] << 8 | t.s[-1]);
}
inline ko_wchar_t take(pair_back &t) {
    if (t.s == t.begin) return 0;
    t.s -= 2;
    return ko_wchar_t(t.s[0] << 8 | t.s[1]);
}

// ---- Order ----

// Compares two numbers: -1, 0 or 1. Without a branch, which would be guessed wrong half the time.
inline int order_of(unsigned a, unsigned b) { return int{a > b} - int{a < b}; }
inline int order_of_different(unsigned a, unsigned b) { return a < b ? -1 : 1; }

template <class Text> static int code_order(Text a, Text b) {
    for (;;) {
        const unsigned x = take(a), y = take(b);
        if (x != y || !x) return order_of(x, y);
    }
}

inline bool plain_weight(unsigned weight) { return weight - 2 < coll_expansion - 2; }
// One test for two weights; it may refuse a pair of the very highest ones.
inline bool both_plain(unsigned a, unsigned b) { return ((a - 2) | (b - 2)) < coll_expansion - 2; }

// The order by the plain weights at the start of two texts. 0 if they do not decide; the texts then
// begin after those weights.
template <class Text, class WeightOf>
static inline int plain_order(Text &a, Text &b, WeightOf weight_of) {
    for (;;) {
        const Text at_a = a, at_b = b;
        const unsigned x = weight_of(take(a)), y = weight_of(take(b));
        if (!plain_weight(x) || !plain_weight(y)) {
            a = at_a;
            b = at_b;
            return 0;
        }
        if (x != y) return order_of_different(x, y);
    }
}

// The order of what two sources yield in a pass. next() returns the next item that the pass does
// not ignore: its ch is 0 at the end, and else orders equal weights under coll_code_tie.
template <auto next, class Source> static inline int items_order(Source &a, Source &b) {
    for (;;) {
        const coll_item x = next(a), y = next(b);
        if (!x.ch || !y.ch) return order_of(x.ch, y.ch);
        const unsigned low_x = x.weight & coll_low_bits, low_y = y.weight & coll_low_bits;
        if (low_x != low_y) return order_of_different(low_x, low_y);
        if ((x.weight & coll_code_tie) && x.ch != y.ch) return order_of(x.ch, y.ch);
    }
}

// ---- The walk over pages ----

template <class Text> struct page_walk {
    const uint16_t *const *page;
    const coll_special *specials;
    Text text;
    const coll_item *item, *item_end; // what an expansion still has to yield
};

// Does the rest of an element stand at the text, from its character n on? Skips it.
template <class Text>
static inline bool skip_element(const coll_candidate &c, unsigned n, Text &text) {
    Text probe = text;
    while (n < c.nchars && take(probe) == c.chars[n])
        ++n;
    if (n < c.nchars) return false;
    text = probe;
    return true;
}

// The element that begins with the character just taken, the rest of which is skipped; NULL for
// none.
template <class Text>
static inline const coll_candidate *find_candidate(const coll_special &special, Text &text) {
    if (const coll_second *const seconds = special.seconds) {
        Text probe = text;
        const unsigned second = take(probe);
        for (unsigned i = seconds->first[second % coll_seconds]; i; i = seconds->next[i - 1]) {
            const coll_candidate &c = special.candidates[i - 1];
            if (c.chars[1] != second || !skip_element(c, 2, probe)) continue;
            text = probe;
            return &c;
        }
        return nullptr;
    }
    for (unsigned i = 0; i < special.num_candidates; ++i)
        if (skip_element(special.candidates[i], 1, text)) return &special.candidates[i];
    return nullptr;
}

// What the character just taken yields; skips the rest of an element that it begins.
template <class Text> static coll_seq special_seq(const coll_special &special, Text &text) {
    const coll_candidate *const found = find_candidate(special, text);
    return found ? found->seq : special.own;
}

template <class Text> static inline coll_item next_item(page_walk<Text> &walk) {
    for (;;) {
        if (walk.item != walk.item_end) return *walk.item++;
        const auto c = take(walk.text);
        const uint16_t weight = walk.page[c >> 8][c & 0xFF];
        if (weight == coll_ignored_weight) continue;
        if (!(weight & coll_expansion)) return {weight, ko_wchar_t(c)};
        const coll_seq seq = special_seq(walk.specials[weight & coll_low_bits], walk.text);
        walk.item = seq.items;
        walk.item_end = seq.items + seq.count;
    }
}

template <class Text> static int walk_order(const coll_flat_pass *p, Text a, Text b) {
    page_walk<Text> walk_a = {p->page, p->specials, a, nullptr, nullptr};
    page_walk<Text> walk_b = {p->page, p->specials, b, nullptr, nullptr};
    return items_order<next_item<Text>>(walk_a, walk_b);
}

// The order of two texts in a pass. Plain weights decide most pairs.
template <class Text> static inline int pass_order(const coll_flat_pass *p, Text a, Text b) {
    const uint16_t *const *const page = p->page;
    const int order = plain_order(a, b, [page](auto c) { return page[c >> 8][c & 0xFF]; });
    return order ? order : walk_order(p, a, b);
}

#endif
