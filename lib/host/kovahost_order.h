// What the comparison and the keys of texts with a length have in common.
#ifndef KOVAHOST_ORDER_H
#define KOVAHOST_ORDER_H

#include "collate/kovacoll_pass.h"
#include "host/kovahost_mapped.h"

// A text with what its walks need. The walks begin between characters.
template <class Unit> struct host_text {
    const Unit *s;
    size_t len;
    host_misses *misses;
};
template <class Unit> struct mapped_host {
    const Unit *s;
    size_t len;
    host_misses *misses;
    const host_map *map;
};

inline utf8_text walk_from(const host_text<unsigned char> &text, size_t at) {
    return {text.s + at, text.s, text.s + text.len, &text.misses->ill_formed};
}
inline utf8_back walk_back(const host_text<unsigned char> &text) {
    return {text.s + text.len, text.s, text.s + text.len, &text.misses->ill_formed};
}
template <class Unit> inline utf16_text<Unit> walk_from(const host_text<Unit> &text, size_t at) {
    return {text.s + at, text.s + text.len};
}
template <class Unit> inline utf16_back<Unit> walk_back(const host_text<Unit> &text) {
    return {text.s + text.len, text.s};
}
template <class Unit> inline mapped_text<Unit> walk_from(const mapped_host<Unit> &text, size_t at) {
    return {text.s + at, text.s, text.s + text.len, text.map, text.misses, 0, {}};
}
template <class Unit> inline mapped_back<Unit> walk_back(const mapped_host<Unit> &text) {
    return {walk_from(text, text.len)};
}

// Is a text ordered by the Thai method, which reads the bytes of a code set?
inline bool by_thai(const kovaloc *loc) {
    return loc->coll_info.collate == collate_thai && loc->exp.single_byte && loc->map;
}

// 0 if the record can order these texts, else the error number.
int unfit_for_order(ko_lc_t loc);

// The tables of a record whose characters are units and whose first pass runs forward.
inline coll_flat *tables_of_units(ko_lc_t loc) {
    if (!loc || !is_unicode(record(loc), KO_LC_COLLATE)) return nullptr;
    coll_flat *flat = record(loc)->weights;
    return flat && flat->starts_forward ? flat : nullptr;
}

// Takes the next unit for comparison in code order, in which U+0000 counts; -1 at the end.
template <class Text> static inline int take_code(Text &text) {
    if (text.s == text.end) return -1;
    if (*text.s) return int(take(text));
    ++text.s;
    return 0;
}
template <class Unit> static inline int take_code(mapped_text<Unit> &text) {
    if (text.left) return int(take(text));
    if (text.s == text.end) return -1;
    if (*text.s) return int(take(text));
    ++text.s;
    return 0;
}

template <class Text> static inline bool has_null(const Text &text) {
    if constexpr (sizeof *text.s == 1) return text.len && memchr(text.s, 0, text.len);
    for (size_t i = 0; i < text.len; ++i)
        if (!text.s[i]) return true;
    return false;
}

// The order of texts that differ only in U+0000, by the units between each and the one before it.
template <class Text> struct null_gaps {
    Text text;
    size_t at;
};
// The number of units before the next U+0000; SIZE_MAX if there is none.
template <class Text> static inline size_t next_gap(null_gaps<Text> &gaps) {
    Text part = gaps.text;
    size_t null = gaps.at;
    while (null < part.len && part.s[null])
        ++null;
    if (null == part.len) return SIZE_MAX;
    part.len = null;
    auto walk = walk_from(part, gaps.at);
    size_t units = 0;
    while (take(walk))
        ++units;
    gaps.at = null + 1;
    return units;
}

template <class Text> static inline int null_order(const Text &a, const Text &b) {
    null_gaps<Text> gaps_a = {a, 0}, gaps_b = {b, 0};
    for (;;) {
        const size_t x = next_gap(gaps_a), y = next_gap(gaps_b);
        if (x == SIZE_MAX || y == SIZE_MAX) return x == y ? 0 : x == SIZE_MAX ? -1 : 1;
        if (x != y) return x < y ? -1 : 1;
    }
}

#endif
