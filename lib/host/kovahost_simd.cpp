// Conversion between UTF-8 and UTF-16 by runs of characters of one, two and three bytes. A block
// has 8 characters, of ASCII 16; those before the first one of another length, or before anything
// ill-formed, are converted.
#include "host/kovahost_simd.h"

#include "chars/kovasimd.h"

#if defined(__GNUC__) && defined(__SSE2__)

static inline __m128i words(unsigned value) { return _mm_set1_epi16(short(value)); }

// The number of lanes before the first that is not all ones.
static inline unsigned good_lanes(__m128i good) {
    return first_bit(~unsigned(_mm_movemask_epi8(good))) / 2;
}

// ---- From UTF-8 ----

// Converts pairs of bytes that are a character.
static inline unsigned decode_pairs(ko_wchar_t *dst, const unsigned char *src) {
    const __m128i v = load_block(src);
    const __m128i shape = _mm_cmpeq_epi16(_mm_and_si128(v, words(0xC0E0)), words(0x80C0));
    const __m128i too_long = _mm_cmpeq_epi16(_mm_and_si128(v, words(0x001E)), _mm_setzero_si128());
    store_block(dst, _mm_or_si128(_mm_slli_epi16(_mm_and_si128(v, words(0x1F)), 6),
                                  _mm_and_si128(_mm_srli_epi16(v, 8), words(0x3F))));
    return good_lanes(_mm_andnot_si128(too_long, shape));
}

// Converts triples of bytes while at least run_least units are left on both sides.
__attribute__((target("ssse3"))) static run_of decode_triples(ko_wchar_t *dst, size_t room,
                                                              const unsigned char *src, size_t n) {
    // Second and third bytes as lanes, and first bytes: of characters 0 to 4 from a block at 0, of
    // the others from a block at 8.
    const __m128i rest_a = _mm_setr_epi8(2, 1, 5, 4, 8, 7, 11, 10, 14, 13, -1, -1, -1, -1, -1, -1);
    const __m128i rest_b =
        _mm_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 9, 8, 12, 11, 15, 14);
    const __m128i first_a =
        _mm_setr_epi8(0, -1, 3, -1, 6, -1, 9, -1, 12, -1, -1, -1, -1, -1, -1, -1);
    const __m128i first_b =
        _mm_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 7, -1, 10, -1, 13, -1);
    run_of run = {0, 0};
    unsigned good = 8;
    while (good == 8 && n - run.taken >= run_least && room - run.made >= run_least) {
        const __m128i a = load_block(src + run.taken), b = load_block(src + run.taken + 8);
        const __m128i rest = _mm_or_si128(_mm_shuffle_epi8(a, rest_a), _mm_shuffle_epi8(b, rest_b));
        const __m128i first =
            _mm_or_si128(_mm_shuffle_epi8(a, first_a), _mm_shuffle_epi8(b, first_b));
        const __m128i code =
            _mm_or_si128(_mm_slli_epi16(first, 12),
                         _mm_or_si128(_mm_srli_epi16(_mm_and_si128(rest, words(0x3F00)), 2),
                                      _mm_and_si128(rest, words(0x3F))));
        const __m128i top = _mm_and_si128(code, words(0xF800));
        const __m128i none = _mm_or_si128(_mm_cmpeq_epi16(top, _mm_setzero_si128()),
                                          _mm_cmpeq_epi16(top, words(0xD800)));
        const __m128i shape =
            _mm_and_si128(_mm_cmpeq_epi16(_mm_and_si128(first, words(0xF0)), words(0xE0)),
                          _mm_cmpeq_epi16(_mm_and_si128(rest, words(0xC0C0)), words(0x8080)));
        store_block(dst + run.made, code);
        good = good_lanes(_mm_andnot_si128(none, shape));
        run.taken += 3 * good;
        run.made += good;
    }
    return run;
}

// The number of ASCII bytes at the start of a block.
static inline unsigned decode_ascii(ko_wchar_t *dst, const unsigned char *src) {
    const __m128i v = load_block(src);
    store_block(dst, _mm_unpacklo_epi8(v, _mm_setzero_si128()));
    store_block(dst + 8, _mm_unpackhi_epi8(v, _mm_setzero_si128()));
    return first_bit(unsigned(_mm_movemask_epi8(v)) | 1u << 16);
}

run_of convert_run(ko_wchar_t *dst, size_t room, const unsigned char *src, size_t n) {
    const bool shuffles = __builtin_cpu_supports("ssse3");
    run_of run = {0, 0};
    while (n - run.taken >= run_least && room - run.made >= run_least) {
        const unsigned first = src[run.taken];
        if (first < 0x80) {
            const unsigned good = decode_ascii(dst + run.made, src + run.taken);
            run.taken += good;
            run.made += good;
        } else if (first < 0xE0) {
            const unsigned good = decode_pairs(dst + run.made, src + run.taken);
            if (!good) break;
            run.taken += 2 * good;
            run.made += good;
        } else {
            if (!shuffles) break;
            const run_of more =
                decode_triples(dst + run.made, room - run.made, src + run.taken, n - run.taken);
            if (!more.taken) break;
            run.taken += more.taken;
            run.made += more.made;
        }
    }
    return run;
}

// ---- To UTF-8 ----

static inline unsigned encode_ascii(unsigned char *dst, const ko_wchar_t *src) {
    const __m128i a = load_block(src), b = load_block(src + 8);
    const __m128i high = words(0xFF80), zero = _mm_setzero_si128();
    store_block(dst, _mm_packus_epi16(a, b));
    const __m128i good = _mm_packs_epi16(_mm_cmpeq_epi16(_mm_and_si128(a, high), zero),
                                         _mm_cmpeq_epi16(_mm_and_si128(b, high), zero));
    return first_bit(~unsigned(_mm_movemask_epi8(good)));
}

// Converts units of 0x80..0x7FF.
static inline unsigned encode_pairs(unsigned char *dst, const ko_wchar_t *src) {
    const __m128i v = load_block(src);
    const __m128i short_ones =
        _mm_cmpeq_epi16(_mm_and_si128(v, words(0xFF80)), _mm_setzero_si128());
    const __m128i fits = _mm_cmpeq_epi16(_mm_and_si128(v, words(0xF800)), _mm_setzero_si128());
    const __m128i bytes =
        _mm_or_si128(_mm_srli_epi16(v, 6), _mm_slli_epi16(_mm_and_si128(v, words(0x3F)), 8));
    store_block(dst, _mm_or_si128(bytes, words(0x80C0)));
    return good_lanes(_mm_andnot_si128(short_ones, fits));
}

// Converts units of 0x800 and more, except surrogates.
__attribute__((target("ssse3"))) static run_of encode_triples(unsigned char *dst, size_t room,
                                                              const ko_wchar_t *src, size_t n) {
    const __m128i first_a =
        _mm_setr_epi8(0, -1, -1, 2, -1, -1, 4, -1, -1, 6, -1, -1, 8, -1, -1, 10);
    const __m128i rest_a = _mm_setr_epi8(-1, 0, 1, -1, 2, 3, -1, 4, 5, -1, 6, 7, -1, 8, 9, -1);
    const __m128i first_b =
        _mm_setr_epi8(-1, -1, 12, -1, -1, 14, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m128i rest_b =
        _mm_setr_epi8(10, 11, -1, 12, 13, -1, 14, 15, -1, -1, -1, -1, -1, -1, -1, -1);
    run_of run = {0, 0};
    unsigned good = 8;
    while (good == 8 && n - run.taken >= run_least && room - run.made >= run_least) {
        const __m128i v = load_block(src + run.taken);
        const __m128i first = _mm_or_si128(_mm_srli_epi16(v, 12), words(0xE0));
        const __m128i rest =
            _mm_or_si128(_mm_or_si128(_mm_and_si128(_mm_srli_epi16(v, 6), words(0x3F)),
                                      _mm_slli_epi16(_mm_and_si128(v, words(0x3F)), 8)),
                         words(0x8080));
        unsigned char *const to = dst + run.made;
        store_block(to,
                    _mm_or_si128(_mm_shuffle_epi8(first, first_a), _mm_shuffle_epi8(rest, rest_a)));
        _mm_storel_epi64(
            static_cast<__m128i *>(static_cast<void *>(to + 16)),
            _mm_or_si128(_mm_shuffle_epi8(first, first_b), _mm_shuffle_epi8(rest, rest_b)));
        const __m128i top = _mm_and_si128(v, words(0xF800));
        const __m128i none = _mm_or_si128(_mm_cmpeq_epi16(top, _mm_setzero_si128()),
                                          _mm_cmpeq_epi16(top, words(0xD800)));
        good = first_bit(unsigned(_mm_movemask_epi8(none)) | 1u << 16) / 2;
        run.taken += good;
        run.made += 3 * good;
    }
    return run;
}

run_of convert_run(unsigned char *dst, size_t room, const ko_wchar_t *src, size_t n) {
    const bool shuffles = __builtin_cpu_supports("ssse3");
    run_of run = {0, 0};
    while (n - run.taken >= run_least && room - run.made >= run_least) {
        const unsigned first = src[run.taken];
        if (first < 0x80) {
            const unsigned good = encode_ascii(dst + run.made, src + run.taken);
            run.taken += good;
            run.made += good;
        } else if (first < 0x800) {
            const unsigned good = encode_pairs(dst + run.made, src + run.taken);
            run.taken += good;
            run.made += 2 * good;
        } else {
            if (!shuffles) break;
            const run_of more =
                encode_triples(dst + run.made, room - run.made, src + run.taken, n - run.taken);
            if (!more.taken) break;
            run.taken += more.taken;
            run.made += more.made;
        }
    }
    return run;
}

#else

run_of convert_run(ko_wchar_t *, size_t, const unsigned char *, size_t) { return {0, 0}; }
run_of convert_run(unsigned char *, size_t, const ko_wchar_t *, size_t) { return {0, 0}; }

#endif
