// Vector instructions: which ones a build may use, loads and stores, and how far a string may be
// read.
#ifndef KOVASIMD_H
#define KOVASIMD_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

// KOVA_X86_WIDE: code for vectors of 32 bytes and more may be compiled; the processor is asked at
// run time whether it has them. Windows does not align the stack for them.
#if defined(__GNUC__) && defined(__x86_64__) && !defined(_WIN32)
#define KOVA_X86_WIDE 1
#endif
#if defined(__GNUC__) && defined(__aarch64__)
#define KOVA_ARM_VECTORS 1
#include <arm_neon.h>
#endif

// KOVA_CHECKED_READS: sanitizers watch what is read, see load_text.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KOVA_CHECKED_READS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) ||                         \
    __has_feature(memory_sanitizer)
#define KOVA_CHECKED_READS 1
#endif
#endif
// KOVA_BLOCKS: strings are read in blocks that extend beyond their end.
#if defined(__GNUC__) && defined(__SSE2__)
#include <immintrin.h>
#define KOVA_BLOCKS 1

inline __m128i load_block(const void *p) {
    return _mm_loadu_si128(static_cast<const __m128i *>(p));
}
inline void store_block(void *p, __m128i v) { _mm_storeu_si128(static_cast<__m128i *>(p), v); }

// Load the block at the beginning of at most so many units of a text: of one that a null unit ends,
// or of one with a length. What follows the end may be anything, and nothing may depend on it. The
// sanitizers would object to reading it, so in their builds the same loops get a block with the
// units of the text and, after them, bytes of no meaning.
#ifdef KOVA_CHECKED_READS
template <class Unit>
inline void copy_checked(void *block, size_t bytes, const Unit *s, size_t most, bool terminated) {
    auto *const to = static_cast<unsigned char *>(block);
    const size_t noise = 0x8137 + (reinterpret_cast<uintptr_t>(s) >> 1) * 0x25;
    for (size_t at = 0; at < bytes; at += sizeof(Unit)) {
        Unit unit = Unit(noise + at * 0x6161);
        if (most) {
            memcpy(&unit, s++, sizeof unit);
            most = terminated && !unit ? 0 : most - 1;
        }
        memcpy(to + at, &unit, sizeof unit);
    }
}
template <class Unit> inline __m128i load_text(const Unit *s, size_t most) {
    __m128i block;
    copy_checked(&block, sizeof block, s, most, true);
    return block;
}
template <class Unit> inline __m128i load_counted(const Unit *s, size_t most) {
    __m128i block;
    copy_checked(&block, sizeof block, s, most, false);
    return block;
}
#else
template <class Unit> inline __m128i load_text(const Unit *s, size_t) { return load_block(s); }
template <class Unit> inline __m128i load_counted(const Unit *s, size_t) { return load_block(s); }
#endif
// How many of at most so many units of a terminated text may be loaded: all, but for the sanitizers
// none after the null unit.
template <class Unit> inline size_t loadable([[maybe_unused]] const Unit *s, size_t most) {
#ifdef KOVA_CHECKED_READS
    for (size_t i = 0; i < most; ++i)
        if (!s[i]) return i + 1;
#endif
    return most;
}

// A bit for each byte in which two blocks agree, or that is zero.
inline unsigned equal_bytes(__m128i a, __m128i b) {
    return unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(a, b)));
}
inline unsigned zero_bytes(__m128i v) { return equal_bytes(v, _mm_setzero_si128()); }
inline unsigned first_bit(unsigned mask) { return unsigned(__builtin_ctz(mask)); }

#endif

// A block inside a page that a string touches can be read whatever follows the string. The smallest
// page size that systems use is assumed.
constexpr size_t memory_page = 4096;
inline size_t place_in_page(const void *p) {
    return reinterpret_cast<uintptr_t>(p) & (memory_page - 1);
}
inline size_t readable(const void *p) { return memory_page - place_in_page(p); }

#endif
