// Runs of well-formed text, converted many characters at once.
#ifndef KOVAHOST_SIMD_H
#define KOVAHOST_SIMD_H

#include "kova.h"

// Units read and units written, of whole characters.
struct run_of {
    size_t taken, made;
};

// A run does not start with less text or room than this. Stores may go beyond the result, but never
// beyond the room.
constexpr size_t run_least = 32;

// Converts at most n units, up to the first one that it cannot take; it may leave up to run_least
// units at the end unconverted.
run_of convert_run(ko_wchar_t *dst, size_t room, const unsigned char *src, size_t n);
run_of convert_run(unsigned char *dst, size_t room, const ko_wchar_t *src, size_t n);

#endif
