// Sixteen characters of a text file at once: hexadecimal digits, as compiled files hold them, and
// ends of lines. What is not of the usual form is left to the readers of kovautils.h.
#ifndef KOVABLOCKS_H
#define KOVABLOCKS_H

#if defined(__GNUC__) && defined(__SSE2__)
#include <emmintrin.h>
#include <stdint.h>
#include <string.h>
#define KOVA_BYTE_BLOCKS 1

inline __m128i load_digits(const unsigned char *p) {
    const void *const block = p;
    return _mm_loadu_si128(static_cast<const __m128i *>(block));
}

// A bit for each of the sixteen characters at p that is this one, the first one lowest.
inline unsigned bytes_equal_to(const unsigned char *p, char c) {
    return unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(load_digits(p), _mm_set1_epi8(c))));
}

// The bytes that sixteen digits spell, twice; false if one of them is not a digit.
inline bool hex_bytes(__m128i digits, __m128i *bytes) {
    const __m128i ten = _mm_sub_epi8(digits, _mm_set1_epi8('0'));
    const __m128i six = _mm_sub_epi8(_mm_or_si128(digits, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
    const __m128i decimal = _mm_cmpeq_epi8(_mm_min_epu8(ten, _mm_set1_epi8(9)), ten);
    const __m128i letter = _mm_cmpeq_epi8(_mm_min_epu8(six, _mm_set1_epi8(5)), six);
    if (_mm_movemask_epi8(_mm_or_si128(decimal, letter)) != 0xFFFF) return false;
    const __m128i values = _mm_add_epi8(_mm_and_si128(digits, _mm_set1_epi8(0x0F)),
                                        _mm_and_si128(letter, _mm_set1_epi8(9)));
    const __m128i pairs = _mm_and_si128(
        _mm_or_si128(_mm_slli_epi16(values, 4), _mm_srli_epi16(values, 8)), _mm_set1_epi16(0xFF));
    *bytes = _mm_packus_epi16(pairs, pairs);
    return true;
}

// The numbers of four digits each that bytes spell, most significant byte first.
inline __m128i hex_numbers(__m128i bytes) {
    return _mm_or_si128(_mm_slli_epi16(bytes, 8), _mm_srli_epi16(bytes, 8));
}

inline void store_eight(void *to, __m128i bytes) {
    _mm_storel_epi64(static_cast<__m128i *>(to), bytes);
}

// Four numbers of four digits, each with a blank or a line's end after it, from the twenty
// characters at p. False, with nothing stored, if they are not of that form.
constexpr int spaced_numbers = 20; // characters
inline bool spaced_hex(const unsigned char *p, uint16_t *to) {
    const __m128i ends = load_digits(p + 4);
    const __m128i white = _mm_or_si128(_mm_cmpeq_epi8(ends, _mm_set1_epi8(' ')),
                                       _mm_cmpeq_epi8(ends, _mm_set1_epi8('\n')));
    if ((_mm_movemask_epi8(white) & 0x8421) != 0x8421) return false;
    int part[4];
    for (int i = 0; i < 4; ++i)
        memcpy(&part[i], p + 5 * i, 4);
    __m128i bytes;
    if (!hex_bytes(_mm_setr_epi32(part[0], part[1], part[2], part[3]), &bytes)) return false;
    store_eight(to, hex_numbers(bytes));
    return true;
}
#endif

#endif
