// What comparison and keys of texts with a length share.
#ifndef KOVAHOST_ORDER_H
#define KOVAHOST_ORDER_H

#include "collate/kovacoll_pass.h"
#include "host/kovahost_text.h"

template <class Unit> struct host_text {
    const Unit *s;
    size_t len;
};

inline utf8_text walk_from(const host_text<unsigned char> &text, size_t at, bool *ill_formed) {
    return {text.s + at, text.s, text.s + text.len, ill_formed};
}
inline utf8_back walk_back(const host_text<unsigned char> &text, bool *ill_formed) {
    return {text.s + text.len, text.s, text.s + text.len, ill_formed};
}
template <class Unit>
inline utf16_text<Unit> walk_from(const host_text<Unit> &text, size_t at, bool *) {
    return {text.s + at, text.s + text.len};
}
template <class Unit> inline utf16_back<Unit> walk_back(const host_text<Unit> &text, bool *) {
    return {text.s + text.len, text.s};
}

// 0 if the record can order these texts, else the error number.
int unfit_for_order(ko_lc_t loc);

// The next unit in code order, where U+0000 counts; -1 at the end.
template <class Text> static inline int take_code(Text &text) {
    if (text.s == text.end) return -1;
    if (*text.s) return int(take(text));
    ++text.s;
    return 0;
}

inline bool has_null(const host_text<unsigned char> &text) {
    return text.len && memchr(text.s, 0, text.len);
}
template <class Unit> static inline bool has_null(const host_text<Unit> &text) {
    for (size_t i = 0; i < text.len; ++i)
        if (!text.s[i]) return true;
    return false;
}

// The order of texts that differ only in U+0000, by the units between each and the one before it.
template <class Unit> struct null_gaps {
    host_text<Unit> text;
    size_t at;
};
// Units before the next U+0000; SIZE_MAX if there is none.
template <class Unit> static inline size_t next_gap(null_gaps<Unit> &gaps) {
    const host_text<Unit> &text = gaps.text;
    size_t null = gaps.at;
    while (null < text.len && text.s[null])
        ++null;
    if (null == text.len) return SIZE_MAX;
    bool ill_formed;
    auto walk = walk_from(host_text<Unit>{text.s, null}, gaps.at, &ill_formed);
    size_t units = 0;
    while (take(walk))
        ++units;
    gaps.at = null + 1;
    return units;
}

template <class Unit>
static inline int null_order(const host_text<Unit> &a, const host_text<Unit> &b) {
    null_gaps<Unit> gaps_a = {a, 0}, gaps_b = {b, 0};
    for (;;) {
        const size_t x = next_gap(gaps_a), y = next_gap(gaps_b);
        if (x == SIZE_MAX || y == SIZE_MAX) return x == y ? 0 : x == SIZE_MAX ? -1 : 1;
        if (x != y) return x < y ? -1 : 1;
    }
}

#endif
