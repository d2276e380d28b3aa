// Texts in UTF-8 and UTF-16 as characters of another code set, for the walks of kovacoll_pass.h.
#ifndef KOVAHOST_MAPPED_H
#define KOVAHOST_MAPPED_H

#include "host/kovahost_made.h"
#include "host/kovahost_map.h"

// What a walk has met that is not a character of the code set.
struct host_misses {
    bool ill_formed, lacking;
};

// take() returns wide characters without U+0000, and the bytes in UTF-8 of what is not a character
// of the code set as values from raw_first up, also for UTF-16: such text comes after all others,
// ordered by code.
template <class Unit> struct mapped_text {
    const Unit *s, *begin, *end;
    const host_map *map;
    host_misses *misses;
    uint8_t left;                    // bytes of the character just met that are still to be taken
    unsigned char raw[longest_char]; // the last one first
};
template <class Unit> struct mapped_back {
    mapped_text<Unit> text; // its raw bytes are those of the first one first
};

// The character at s; a surrogate without a partner is its own code.
inline utf8_step char_at(const unsigned char *s, const unsigned char *end) {
    return utf8_char(s, end);
}
inline utf8_step char_at(const char16_t *s, const char16_t *end) {
    const unsigned unit = *s;
    if (!is_high_unit(unit) || end - s < 2 || !is_low_unit(s[1])) return {unit, 1};
    return {(unit - 0xD7C0) << 10 | (s[1] & 0x3FFu), 2};
}

// The character that ends before s.
inline utf8_step char_before(const unsigned char *begin, const unsigned char *s) {
    unsigned bytes = 1;
    while (bytes < 4 && s - begin > ptrdiff_t(bytes) && is_trail(*(s - bytes)))
        ++bytes;
    const utf8_step step = utf8_char(s - bytes, s);
    return step.code != no_code && step.bytes == bytes ? step : utf8_step{no_code, 1};
}
inline utf8_step char_before(const char16_t *begin, const char16_t *s) {
    if (s - begin > 1 && is_low_unit(s[-1]) && is_high_unit(s[-2])) return char_at(s - 2, s);
    return {s[-1], 1};
}

inline bool is_surrogate(unsigned code) { return (code & 0xFFFFF800) == 0xD800; }

// The bytes of what is not a character of the code set, in UTF-8 of which those of surrogates are
// not well-formed either.
template <class Unit>
static inline unsigned raw_bytes(const mapped_text<Unit> &t, utf8_step step, const Unit *at,
                                 unsigned char *bytes) {
    const bool ill = step.code == no_code || is_surrogate(step.code);
    (ill ? t.misses->ill_formed : t.misses->lacking) = true;
    if (step.code != no_code) return unsigned(units_of(bytes, step.code));
    bytes[0] = uint8_t(*at);
    return 1;
}

template <class Unit> inline unsigned take(mapped_text<Unit> &t) {
    if (t.left) return raw_first + t.raw[--t.left];
    while (t.s != t.end && !*t.s)
        ++t.s;
    if (t.s == t.end) return 0;
    const utf8_step step = char_at(t.s, t.end);
    const Unit *const at = t.s;
    t.s += step.bytes;
    const unsigned wide = step.code == no_code ? no_code : wide_of(t.map, step.code);
    if (wide != no_code) return wide;
    unsigned char bytes[longest_char];
    const unsigned count = raw_bytes(t, step, at, bytes);
    t.left = uint8_t(count - 1);
    for (unsigned i = 1; i < count; ++i)
        t.raw[count - 1 - i] = bytes[i];
    return raw_first + bytes[0];
}

template <class Unit> inline bool take_plain(mapped_text<Unit> &, unsigned *) { return false; }

template <class Unit> inline unsigned take(mapped_back<Unit> &back) {
    mapped_text<Unit> &t = back.text;
    if (t.left) return raw_first + t.raw[--t.left];
    while (t.s != t.begin && !t.s[-1])
        --t.s;
    if (t.s == t.begin) return 0;
    const utf8_step step = char_before(t.begin, t.s);
    t.s -= step.bytes;
    const unsigned wide = step.code == no_code ? no_code : wide_of(t.map, step.code);
    if (wide != no_code) return wide;
    const unsigned count = raw_bytes(t, step, t.s, t.raw);
    t.left = uint8_t(count - 1);
    return raw_first + t.raw[t.left];
}

#endif
