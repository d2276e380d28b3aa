// Texts that hosts pass in: UTF-8 or UTF-16, with a length. Ill-formed parts are recognised, not
// refused.
#ifndef KOVAHOST_TEXT_H
#define KOVAHOST_TEXT_H

#include "kova_host.h"
#include "record/kovasetlc.h"

#include <string.h>

// Is the code set of a category "unicode", whose characters are the units of UTF-16?
inline bool is_unicode(const kovaloc *loc, int category) {
    static constexpr char name[] = "unicode";
    // NOLINTNEXTLINE(clang-analyzer-*): callers refuse NULL first, some in another source
    return !memcmp(loc->codeset[category - KO_LC_CTYPE], name, sizeof name);
}

inline bool is_trail(unsigned byte) { return (byte & 0xC0) == 0x80; }
inline bool is_high_unit(unsigned unit) { return (unit & 0xFC00) == 0xD800; }
inline bool is_low_unit(unsigned unit) { return (unit & 0xFC00) == 0xDC00; }
constexpr unsigned last_unit = 0xFFFF;
inline unsigned high_unit(unsigned code) { return 0xD7C0 + (code >> 10); }
inline unsigned low_unit(unsigned code) { return 0xDC00 + (code & 0x3FF); }

constexpr unsigned no_code = 0xFFFFFFFF;
struct utf8_step {
    unsigned code;  // no_code: ill-formed
    unsigned bytes; // of the character, or of the maximal ill-formed subpart
};

// The character at s, which lies before end.
inline utf8_step utf8_char(const unsigned char *s, const unsigned char *end) {
    const unsigned first = *s;
    if (first < 0x80) return {first, 1};
    if (first - 0xC2 > 0xF4 - 0xC2) return {no_code, 1};
    const unsigned count = 2u + (first >= 0xE0) + (first >= 0xF0);
    // The second byte excludes overlong forms, surrogates, and codes above 0x10FFFF.
    const unsigned lo = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned hi = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (end - s < 2 || s[1] < lo || s[1] > hi) return {no_code, 1};
    unsigned code = (first & (0x7Fu >> count)) << 6 | (s[1] & 0x3F);
    for (unsigned i = 2; i < count; ++i) {
        if (s + i == end || !is_trail(s[i])) return {no_code, i};
        code = code << 6 | (s[i] & 0x3F);
    }
    return {code, count};
}

// ---- Texts for the walks of kovacoll_pass.h ----

// take() returns the units of UTF-16 without U+0000, and bytes that are not a character as values
// above the last unit. Between the two units of a character beyond the basic plane, the place is
// after its first byte (forward) or before its last one (backward).
constexpr unsigned raw_first = 0x10000;

struct utf8_text {
    const unsigned char *s, *begin, *end;
    bool *ill_formed; // set when such bytes are taken
};
struct utf8_back {
    const unsigned char *s, *begin, *end;
    bool *ill_formed;
};
template <class Unit> struct utf16_text { const Unit *s, *end; };
template <class Unit> struct utf16_back { const Unit *s, *begin; };

unsigned take_rare(utf8_text &t);
unsigned take_rare(utf8_back &t);

// Takes a unit that needs no rare step. False at the end, and where one is needed.
inline bool take_plain(utf8_text &t, unsigned *unit) {
    const ptrdiff_t left = t.end - t.s;
    if (left <= 0) return false;
    const unsigned first = *t.s;
    if (first - 1 < 0x7F) {
        ++t.s;
        *unit = first;
        return true;
    }
    if (first < 0xE0) {
        if (first < 0xC2 || left < 2 || !is_trail(t.s[1])) return false;
        *unit = (first & 0x1F) << 6 | (t.s[1] & 0x3Fu);
        t.s += 2;
        return true;
    }
    if (first >= 0xF0 || left < 3) return false;
    const unsigned rest = unsigned(t.s[1] << 8 | t.s[2]);
    const unsigned code = (first & 0xF) << 12 | (rest & 0x3F00) >> 2 | (rest & 0x3F);
    // Neither overlong nor a surrogate.
    if ((rest & 0xC0C0) != 0x8080 || code < 0x800 || (code & 0xF800) == 0xD800) return false;
    *unit = code;
    t.s += 3;
    return true;
}

inline unsigned take(utf8_text &t) {
    unsigned unit;
    if (t.s == t.end) return 0;
    return take_plain(t, &unit) ? unit : take_rare(t);
}

inline unsigned take(utf8_back &t) {
    if (t.s == t.begin) return 0;
    const unsigned last = t.s[-1];
    if (last - 1 >= 0x7F) return take_rare(t);
    --t.s;
    return last;
}

template <class Unit> inline unsigned take(utf16_text<Unit> &t) {
    while (t.s != t.end)
        if (const unsigned unit = *t.s++) return unit;
    return 0;
}
template <class Unit> inline bool take_plain(utf16_text<Unit> &t, unsigned *unit) {
    return t.s != t.end && (*unit = *t.s++);
}
template <class Unit> inline unsigned take(utf16_back<Unit> &t) {
    while (t.s != t.begin)
        if (const unsigned unit = *--t.s) return unit;
    return 0;
}

inline const unsigned char *bytes_of(const char *text) {
    const void *p = text;
    return static_cast<const unsigned char *>(p);
}

#endif
