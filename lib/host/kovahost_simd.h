// Runs of well-formed text, converted many characters at once.
#ifndef KOVAHOST_SIMD_H
#define KOVAHOST_SIMD_H

#include "kova.h"

// Units read and units made, of whole characters.
struct run_of {
    size_t taken, made;
};

// Runs are not begun with less text or room than that; blocks may be stored beyond what they make,
// inside the room.
constexpr size_t run_least = 32;

// Converts at most n units up to the first that it does not take, which may be any of the last
// run_least ones.
run_of convert_run(ko_wchar_t *dst, size_t room, const unsigned char *src, size_t n);
run_of convert_run(unsigned char *dst, size_t room, const ko_wchar_t *src, size_t n);

#endif
