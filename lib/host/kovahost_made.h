// A text being made in a caller's room.
#ifndef KOVAHOST_MADE_H
#define KOVAHOST_MADE_H

#include "host/kovahost_text.h"

// Once a character no longer fits into the room, the rest of the text goes to scratch, because its
// length is still counted.
template <class Unit> struct made_text {
    Unit *at;
    size_t left;
    size_t total; // units made so far
    Unit scratch[1024];
};

constexpr size_t longest_char = 4; // in units

template <class Unit> static inline void start_text(made_text<Unit> *out, Unit *dst, size_t room) {
    out->at = dst;
    out->left = room;
    out->total = 0;
}

template <class Unit> static inline void took(made_text<Unit> *out, size_t n) {
    out->at += n;
    out->left -= n;
    out->total += n;
}

template <class Unit> static inline void put(made_text<Unit> *out, const Unit *units, size_t n) {
    if (n > out->left) {
        out->at = out->scratch;
        out->left = sizeof out->scratch / sizeof *out->scratch;
    }
    for (size_t i = 0; i < n; ++i)
        out->at[i] = units[i]; // NOLINT(clang-analyzer-*): NULL has no room left
    took(out, n);
}

inline size_t units_of(ko_wchar_t *units, unsigned code) {
    if (code <= last_unit) {
        units[0] = ko_wchar_t(code);
        return 1;
    }
    units[0] = ko_wchar_t(high_unit(code));
    units[1] = ko_wchar_t(low_unit(code));
    return 2;
}

inline size_t units_of(unsigned char *bytes, unsigned code) {
    const unsigned count = 1u + (code >= 0x80) + (code >= 0x800) + (code > last_unit);
    static constexpr uint8_t first[] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (unsigned i = count; i-- > 1; code >>= 6)
        bytes[i] = uint8_t(0x80 | (code & 0x3F));
    bytes[0] = uint8_t(first[count] | code);
    return count;
}

#endif
