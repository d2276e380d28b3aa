// Portable characters in the code set of a locale: formats and numbers consist of digits, letters
// and signs that have other codes in an EBCDIC code set.
#ifndef KOVAPORTABLE_H
#define KOVAPORTABLE_H

#include "chars/kovactype.h"

#include <array>

struct portable_set {
    uint16_t meaning[256];     // ASCII value of a wide value, 0x100 or more for all others
    unsigned char native[128]; // wide value of an ASCII character
};
// The portable characters of the record's code set, by its class table; NULL for those of ASCII.
const portable_set *portable_of(const kovaloc *loc);

// The ASCII value of a portable character; a value of 0x80 or more for every other character.
inline unsigned portable(const portable_set *set, unsigned wc) {
    return !set ? wc : wc < 256 ? set->meaning[wc] : wc;
}
inline unsigned portable(const kovaloc *loc, unsigned wc) { return portable(loc->portable, wc); }
// The code of an ASCII character in the locale's code set.
inline ko_wchar_t native(const kovaloc *loc, int ascii) {
    return !loc->portable ? ko_wchar_t(ascii) : loc->portable->native[ascii & 0x7F];
}

// The numbers below 100 as two ASCII digits each.
template <class Unit>
inline constexpr auto digit_pairs = [] {
    std::array<std::array<Unit, 2>, 100> pairs{};
    for (size_t i = 0; i < 100; ++i)
        pairs[i] = {Unit('0' + i / 10), Unit('0' + i % 10)};
    return pairs;
}();

#endif
