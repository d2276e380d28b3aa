// Conversion of wide characters to bytes by blocks of 32.
#include "chars/kovambwc.h"
#include "chars/kovawide.h"

#ifdef KOVA_X86_WIDE

// At most 32 units are loaded, and none after the page; those that are not are zero, which ends a
// run.
WIDE size_t narrow_wide(ko_mchar_t *dst, const ko_wchar_t *src, size_t n, unsigned most) {
    const __m512i bound = _mm512_set1_epi16(short(most)), one = _mm512_set1_epi16(1);
    for (size_t i = 0; i < n;) {
        const size_t fit = readable(src + i) / sizeof *src, left = n - i < 32 ? n - i : 32;
        const size_t some = loadable(src + i, fit < left ? fit : left);
        if (!some) return i; // a unit that lies in two pages
        const __m512i v = _mm512_maskz_loadu_epi16(__mmask32(lowest(some)), src + i);
        // Zero becomes the largest value.
        const uint32_t stops = _mm512_cmpge_epu16_mask(_mm512_sub_epi16(v, one), bound);
        const __m256i bytes = _mm512_cvtepi16_epi8(v);
        if (stops) {
            const auto good = unsigned(__builtin_ctz(stops));
            _mm256_mask_storeu_epi8(dst + i, __mmask32(lowest(good)), bytes);
            i += good;
            if (good < some) return i;
        } else {
            void *const to = dst + i;
            _mm256_storeu_si256(static_cast<__m256i *>(to), bytes);
            i += 32;
        }
    }
    return n;
}

#endif
