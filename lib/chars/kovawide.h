// Vectors of 64 bytes, where the processor has them together with the instructions that move their
// bytes by a mask. Masked loads and stores take incomplete blocks, so that nothing outside a text
// and its room is touched.
#ifndef KOVAWIDE_H
#define KOVAWIDE_H

#include "chars/kovasimd.h"

#ifdef KOVA_X86_WIDE

#ifndef __clang__ // GCC 12 objects to the undefined vectors in its own headers
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#define WIDE                                                                                       \
    __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,gfni,bmi,bmi2,"        \
                          "popcnt")))
// What a loop consists of: a call would pass vectors through memory.
#define WIDE_PART WIDE __attribute__((always_inline)) static inline
// What short texts do not need: its registers would be saved for them, too.
#define WIDE_APART WIDE __attribute__((noinline)) static

// Does the processor have all of it?
inline bool has_wide_runs() {
    return __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("avx512vbmi") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("gfni") && __builtin_cpu_supports("bmi2");
}

WIDE_PART unsigned ones(uint64_t bits) { return unsigned(__builtin_popcountll(bits)); }
WIDE_PART uint64_t lowest(size_t n) { return _bzhi_u64(~0ull, unsigned(n)); } // n <= 64
WIDE_PART __m512i each_byte(unsigned byte) { return _mm512_set1_epi8(char(byte)); }
WIDE_PART __m512i each_dword(unsigned value) { return _mm512_set1_epi32(int(value)); }

// A mask for arithmetic. Without this GCC moves masks back and forth at every use.
WIDE_PART uint64_t in_register(__mmask64 mask) {
    uint64_t bits = mask;
    __asm__("" : "+r"(bits));
    return bits;
}

// A table of 256 bytes.
namespace {
struct wide_table {
    __m512i r0, r1, r2, r3;
};
} // namespace
WIDE_PART wide_table load_table(const unsigned char *t) {
    return {_mm512_loadu_si512(t), _mm512_loadu_si512(t + 64), _mm512_loadu_si512(t + 128),
            _mm512_loadu_si512(t + 192)};
}
WIDE_PART __m512i look_up(const wide_table &t, __m512i bytes) {
    const __m512i low = _mm512_permutex2var_epi8(t.r0, bytes, t.r1);
    const __m512i high = _mm512_permutex2var_epi8(t.r2, bytes, t.r3);
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(bytes), low, high);
}

#else

inline bool has_wide_runs() { return false; }

#endif
#endif
