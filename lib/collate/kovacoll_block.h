// Strings of two-byte characters, processed in blocks.
#ifndef KOVACOLL_BLOCK_H
#define KOVACOLL_BLOCK_H

#include "chars/kovasimd.h"
#include "collate/kovacoll.h"

#include <limits.h>
#include <string.h>

#ifdef KOVA_BLOCKS

constexpr size_t last_block_place = memory_page - sizeof(__m128i); // for a block inside its page

// A bit for each byte of a block that is part of a pair inside a box, so none for zeros.
static inline unsigned boxed(const coll_pairs *pairs, __m128i block) {
    __m128i inside = _mm_setzero_si128();
    for (int box = 0; box < coll_boxes; ++box) {
        const __m128i lo = load_block(pairs->lo[box]);
        const __m128i hi = load_block(pairs->hi[box]);
        const __m128i nearest = _mm_min_epu8(_mm_max_epu8(block, lo), hi);
        inside = _mm_or_si128(inside, _mm_cmpeq_epi16(nearest, block));
    }
    return unsigned(_mm_movemask_epi8(inside));
}

// Does the first byte that is in no box terminate the string? Adding 1 sets the bit of that byte,
// and only bits of boxed bytes stay set above it.
static inline bool ends_after_pairs(unsigned inside, unsigned ends) { return (inside + 1) & ends; }

// For two strings of fewer than 16 bytes that consist of pairs inside the boxes, *common gets the
// place where they part, in bytes. False for any others.
static inline bool short_pairs(const coll_pairs *pairs, const ko_mchar_t *a, const ko_mchar_t *b,
                               ptrdiff_t *common) {
    const size_t place_a = place_in_page(a), place_b = place_in_page(b);
    if ((place_a > place_b ? place_a : place_b) > last_block_place) return false;
    const __m128i block_a = load_text(a, 16);
    const __m128i block_b = load_text(b, 16);
    const unsigned ends_a = zero_bytes(block_a);
    if (!ends_after_pairs(boxed(pairs, block_a), ends_a)) return false;
    if (!ends_after_pairs(boxed(pairs, block_b), zero_bytes(block_b))) return false;
    *common = __builtin_ctz(~equal_bytes(block_a, block_b) | ends_a) & ~1;
    return true;
}

// Can a block of a string be read, all of whose bytes before s are known?
static inline bool is_readable_block(const ko_mchar_t *s) {
    const size_t place = place_in_page(s);
    if (place <= last_block_place) return true;
#ifdef KOVA_CHECKED_READS
    return !memchr(s, 0, memory_page - place);
#else
    const size_t back = place - last_block_place; // from s to the last block of its page
    return !(zero_bytes(load_block(s - back)) >> back);
#endif
}

// The bytes of a string that consists of pairs inside the boxes; -1 for others. All of its blocks
// can be read.
static inline int pairs_length(const coll_pairs *pairs, const ko_mchar_t *s) {
    constexpr ptrdiff_t longest = INT_MAX / 2;
    for (const ko_mchar_t *at = s; at - s < longest && is_readable_block(at);
         at += sizeof(__m128i)) {
        const __m128i block = load_text(at, 16);
        const unsigned inside = boxed(pairs, block), ends = zero_bytes(block);
        if (ends_after_pairs(inside, ends)) return int(at - s) + __builtin_ctz(ends);
        if (inside != 0xFFFF) break;
    }
    return -1;
}

// The first place where two strings differ or both end.
static inline size_t common_start(const ko_mchar_t *a, const ko_mchar_t *b) {
    size_t i = 0;
    while (readable(a + i) >= sizeof(__m128i) && readable(b + i) >= sizeof(__m128i)) {
        const __m128i block = load_text(a + i, sizeof block);
        const unsigned stops =
            ~equal_bytes(block, load_text(b + i, sizeof block)) | zero_bytes(block);
        if (const unsigned here = stops & 0xFFFF) return i + first_bit(here);
        i += sizeof(__m128i);
    }
    while (a[i] == b[i] && a[i])
        ++i;
    return i;
}

// ---- Keys ----

// The weights of the pairs of a block, whatever it holds.
static inline __m128i block_weights(const uint16_t *const *page, const ko_mchar_t *s) {
    const auto weight = [page, s](unsigned i) { return short(page[s[2 * i]][s[2 * i + 1]]); };
    return _mm_setr_epi16(weight(0), weight(1), weight(2), weight(3), weight(4), weight(5),
                          weight(6), weight(7));
}

// Bits for the bytes of weights that are not plain.
static inline unsigned not_plain(__m128i weights) {
    const __m128i above = _mm_subs_epu16(_mm_sub_epi16(weights, _mm_set1_epi16(2)),
                                         _mm_set1_epi16(coll_expansion - 3));
    return zero_bytes(_mm_cmpeq_epi16(above, _mm_setzero_si128()));
}

// The two key bytes of each of eight plain weights.
static inline __m128i key_digits(__m128i weights) {
    static_assert(coll_expansion < 33781, "from there on the product rounds v / 254 up");
    const __m128i v = _mm_sub_epi16(weights, _mm_set1_epi16(2));
    const __m128i high = _mm_srli_epi16(_mm_mulhi_epu16(v, _mm_set1_epi16(short(0x8103))), 7);
    // 256 * high + (v - 254 * high), with 2 added to both digits
    const __m128i both =
        _mm_add_epi16(_mm_add_epi16(v, _mm_add_epi16(high, high)), _mm_set1_epi16(0x0202));
    return _mm_or_si128(_mm_slli_epi16(both, 8), _mm_srli_epi16(both, 8));
}

// Stores the first n bytes of a block, at least one, and no others.
static inline void store_first(ko_mchar_t *dst, __m128i block, size_t n) {
    alignas(16) ko_mchar_t bytes[sizeof block];
    store_block(bytes, block);
    if (n < 4) {
        for (size_t i = 0; i < n; ++i)
            dst[i] = bytes[i];
        return;
    }
    const size_t last = n - 4;
    for (const size_t at : {size_t{0}, last < 4 ? last : 4, last < 8 ? last : 8, last})
        memcpy(dst + at, bytes + at, 4);
}

// Writes the key bytes of the pairs of a string, len bytes as well, and a terminator. False if not
// all of their weights are plain; dst then holds a part of them.
static inline bool put_digits(const uint16_t *const *page, const ko_mchar_t *s, int len,
                              ko_mchar_t *dst) {
    constexpr int step = sizeof(__m128i);
    for (; len >= step; len -= step, s += step, dst += step) {
        const __m128i weights = block_weights(page, s);
        if (not_plain(weights)) return false;
        store_block(dst, key_digits(weights));
    }
#ifdef KOVA_CHECKED_READS
    ko_mchar_t checked[step];
    store_block(checked, load_counted(s, size_t(len)));
    s = checked;
#endif
    const __m128i weights = block_weights(page, s);
    if (not_plain(weights) & ((1u << len) - 1)) return false;
    const __m128i digits = key_digits(weights);
    const __m128i inside =
        _mm_cmplt_epi16(_mm_setr_epi16(0, 2, 4, 6, 8, 10, 12, 14), _mm_set1_epi16(short(len)));
    store_first(dst, _mm_and_si128(digits, inside), size_t(len) + 1);
    return true;
}

#else
static inline size_t common_start(const ko_mchar_t *a, const ko_mchar_t *b) {
    size_t i = 0;
    while (a[i] == b[i] && a[i])
        ++i;
    return i;
}
static inline bool short_pairs(const coll_pairs *, const ko_mchar_t *, const ko_mchar_t *,
                               ptrdiff_t *) {
    return false;
}
static inline int pairs_length(const coll_pairs *, const ko_mchar_t *) { return -1; }
static inline bool put_digits(const uint16_t *const *, const ko_mchar_t *, int, ko_mchar_t *) {
    return false;
}
#endif

#endif
