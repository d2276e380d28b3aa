// Runs of well-formed text, converted many characters at once.
#ifndef KOVAHOST_SIMD_H
#define KOVAHOST_SIMD_H

#include "kova.h"

// Units read and units written, of whole characters.
struct run_of {
    size_t taken, made;
};

// The ways in which runs are converted. Stores may go beyond a result, but never beyond the room.
//   plain     blocks of 16 bytes, characters of one and two bytes
//   shuffled  the same blocks, characters of up to three bytes
//   wide      blocks of 64 bytes, all characters
enum class run_way { plain, shuffled, wide };

// The fastest way that this processor has.
run_way best_way();

// Converts at most n units, up to somewhere before the first thing that is no character. The plain
// and the shuffled way leave up to run_least units at the end, and need as much text and room.
constexpr size_t run_least = 32;
run_of convert_run(run_way way, ko_wchar_t *dst, size_t room, const unsigned char *src, size_t n);
run_of convert_run(run_way way, unsigned char *dst, size_t room, const ko_wchar_t *src, size_t n);

#endif
