// Short strings of two-byte characters, processed as one block.
#ifndef KOVACOLL_BLOCK_H
#define KOVACOLL_BLOCK_H

#include "chars/kovasimd.h"
#include "collate/kovacoll.h"

#ifdef KOVA_BLOCKS

constexpr size_t last_block_place = memory_page - sizeof(__m128i); // for a block inside its page

// A bit for each byte of a block that is part of a pair inside a box.
static inline unsigned boxed(const coll_pairs *pairs, __m128i block) {
    const __m128i zero = _mm_setzero_si128();
    __m128i inside = zero;
    for (int box = 0; box < coll_boxes; ++box) {
        const __m128i lo = load_block(pairs->lo[box]);
        const __m128i hi = load_block(pairs->hi[box]);
        const __m128i off = _mm_or_si128(_mm_subs_epu8(block, hi), _mm_subs_epu8(lo, block));
        inside = _mm_or_si128(inside, _mm_cmpeq_epi16(off, zero));
    }
    return unsigned(_mm_movemask_epi8(inside));
}

// For two strings of fewer than 16 bytes that consist of pairs inside the boxes, *common gets the
// place where they part, in bytes. False for any others.
static inline bool short_pairs(const coll_pairs *pairs, const ko_mchar_t *a, const ko_mchar_t *b,
                               ptrdiff_t *common) {
    const size_t place_a = place_in_page(a), place_b = place_in_page(b);
    if ((place_a > place_b ? place_a : place_b) > last_block_place) return false;
    const __m128i block_a = load_block(a);
    const __m128i block_b = load_block(b);
    // The bits below the first terminator; without one, more than 16 bits.
    const unsigned ends_a = zero_bytes(block_a);
    const unsigned ends_b = zero_bytes(block_b);
    const unsigned text_a = (ends_a & (0 - ends_a)) - 1, text_b = (ends_b & (0 - ends_b)) - 1;
    if ((text_a & ~boxed(pairs, block_a)) | (text_b & ~boxed(pairs, block_b))) return false;
    const unsigned part = ~equal_bytes(block_a, block_b) | (text_a + 1);
    *common = __builtin_ctz(part) & ~1;
    return true;
}

// The bytes of a string that has fewer than 16 and consists of pairs inside the boxes; -1 for
// others.
static inline int short_pairs_length(const coll_pairs *pairs, const ko_mchar_t *s) {
    if (place_in_page(s) > last_block_place) return -1;
    const __m128i block = load_block(s);
    const unsigned ends = zero_bytes(block);
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
