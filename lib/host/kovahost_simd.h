// Runs of well-formed text, converted many characters at once.
#ifndef KOVAHOST_SIMD_H
#define KOVAHOST_SIMD_H

#include "kova.h"

// Units read and units written, of whole characters.
struct run_of {
    size_t taken, made;
};

// Runs do not begin with less text or room than this; blocks may be stored beyond their result, but
// inside the room.
constexpr size_t run_least = 32;

// Converts at most n units, up to the first one that it cannot take; it may leave any of the last
// run_least ones.
run_of convert_run(ko_wchar_t *dst, size_t room, const unsigned char *src, size_t n);
run_of convert_run(unsigned char *dst, size_t room, const ko_wchar_t *src, size_t n);

#endif
