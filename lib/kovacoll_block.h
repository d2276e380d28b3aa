// Short strings of two-byte characters, taken as one block.
#ifndef KOVACOLL_BLOCK_H
#define KOVACOLL_BLOCK_H

#include "kovacoll.h"

// With the vector units of x86, short strings are taken as one block. A block never reaches into a
// page that the string does not touch; the address sanitizer would object nevertheless.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KOVA_COLL_PLAIN 1
#endif
#endif
#if defined(__GNUC__) && defined(__SSE2__) && !defined(__SANITIZE_ADDRESS__) &&                    \
    !defined(KOVA_COLL_PLAIN)
#define KOVA_COLL_BLOCKS 1
#include <emmintrin.h>
#endif

#ifdef KOVA_COLL_BLOCKS

// A block from p stays inside the page of p, of the smallest size that systems use, up to
// block_place_max.
static inline unsigned block_place(const void *p) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p) & 4095);
}
constexpr unsigned block_place_max = 4096 - 16;

// A bit for each byte of a block that is part of a pair inside a box.
static inline unsigned boxed(const coll_pairs *pairs, __m128i block) {
    const __m128i zero = _mm_setzero_si128();
    __m128i inside = zero;
    for (int box = 0; box < coll_boxes; ++box) {
        const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i *>(pairs->lo[box]));
        const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i *>(pairs->hi[box]));
        const __m128i off = _mm_or_si128(_mm_subs_epu8(block, hi), _mm_subs_epu8(lo, block));
        inside = _mm_or_si128(inside, _mm_cmpeq_epi16(off, zero));
    }
    return static_cast<unsigned>(_mm_movemask_epi8(inside));
}

static inline unsigned equal_bytes(__m128i a, __m128i b) {
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(a, b)));
}

// Two strings of fewer than 16 bytes, all of them pairs inside the boxes: *common is where they
// part, in bytes. False for others, of which nothing is known.
static inline bool short_pairs(const coll_pairs *pairs, const ko_mchar_t *a, const ko_mchar_t *b,
                               ptrdiff_t *common) {
    const unsigned place_a = block_place(a), place_b = block_place(b);
    if ((place_a > place_b ? place_a : place_b) > block_place_max) return false;
    const __m128i block_a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(a));
    const __m128i block_b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(b));
    // The bits below the first terminator, or more than 16 of them without one.
    const unsigned ends_a = equal_bytes(block_a, _mm_setzero_si128());
    const unsigned ends_b = equal_bytes(block_b, _mm_setzero_si128());
    const unsigned text_a = (ends_a & (0 - ends_a)) - 1, text_b = (ends_b & (0 - ends_b)) - 1;
    if ((text_a & ~boxed(pairs, block_a)) | (text_b & ~boxed(pairs, block_b))) return false;
    const unsigned part = ~equal_bytes(block_a, block_b) | (text_a + 1);
    *common = __builtin_ctz(part) & ~1;
    return true;
}

// Bytes of a string of fewer than 16, all of them pairs inside the boxes; -1 for others.
static inline int short_pairs_length(const coll_pairs *pairs, const ko_mchar_t *s) {
    if (block_place(s) > block_place_max) return -1;
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s));
    const unsigned ends = equal_bytes(block, _mm_setzero_si128());
    const unsigned text = (ends & (0 - ends)) - 1;
    return text & ~boxed(pairs, block) ? -1 : __builtin_ctz(text + 1);
}

#else
static inline bool short_pairs(const coll_pairs *, const ko_mchar_t *, const ko_mchar_t *,
                               ptrdiff_t *) {
    return false;
}
static inline int short_pairs_length(const coll_pairs *, const ko_mchar_t *) { return -1; }
#endif

#endif
