// Translation of bytes between single-byte code sets, by the widest vectors that the processor has.
// All ways give the same bytes and stop at the same place.
#include "chars/kovawide.h"
#include "convert/kovacvlib.h"

static size_t translate_plain(const cv_bytes *b, unsigned char *out, const unsigned char *in,
                              size_t n, bool stop) {
    if (!stop || !b->has_special) {
        for (size_t i = 0; i < n; ++i)
            out[i] = b->map[in[i]];
        return n;
    }
    size_t i = 0;
    while (i < n && !b->special[in[i]]) {
        out[i] = b->map[in[i]];
        ++i;
    }
    return i;
}

#ifdef KOVA_X86_WIDE
WIDE static size_t translate_wide(const cv_bytes *b, unsigned char *out, const unsigned char *in,
                                  size_t n, bool stop) {
    const wide_table map = load_table(b->map);
    size_t i = 0;
    if (!stop || !b->has_special) {
        for (; n - i >= 64; i += 64)
            _mm512_storeu_si512(out + i, look_up(map, _mm512_loadu_si512(in + i)));
        const __mmask64 take = _bzhi_u64(~0ull, unsigned(n - i));
        _mm512_mask_storeu_epi8(out + i, take, look_up(map, _mm512_maskz_loadu_epi8(take, in + i)));
        return n;
    }
    for (const wide_table special = load_table(b->special); i < n; i += 64) {
        const __mmask64 take = n - i >= 64 ? ~__mmask64(0) : ~__mmask64(0) >> (64 - (n - i));
        const __m512i x = _mm512_maskz_loadu_epi8(take, in + i);
        const __mmask64 found = _mm512_movepi8_mask(look_up(special, x)) & take;
        if (found) {
            const unsigned before = unsigned(__builtin_ctzll(found));
            _mm512_mask_storeu_epi8(out + i, (__mmask64(1) << before) - 1, look_up(map, x));
            return i + before;
        }
        _mm512_mask_storeu_epi8(out + i, take, look_up(map, x));
    }
    return n;
}

// Sixteen rows of sixteen bytes: each row is looked up where the high nibble selects it.
__attribute__((target("avx2"))) static inline __m256i look_up16(const unsigned char *t, __m256i x) {
    const __m256i nibble = _mm256_set1_epi8(0x0F);
    const __m256i high = _mm256_and_si256(_mm256_srli_epi16(x, 4), nibble);
    const __m256i low = _mm256_and_si256(x, nibble);
    __m256i r = _mm256_setzero_si256();
    for (int i = 0; i < 16; ++i) {
        const __m256i row = _mm256_broadcastsi128_si256(load_block(t + 16 * i));
        const __m256i here = _mm256_cmpeq_epi8(high, _mm256_set1_epi8(char(i)));
        r = _mm256_or_si256(r, _mm256_and_si256(here, _mm256_shuffle_epi8(row, low)));
    }
    return r;
}
__attribute__((target("avx2"))) static size_t translate_avx2(const cv_bytes *b, unsigned char *out,
                                                             const unsigned char *in, size_t n,
                                                             bool stop) {
    const bool stops = stop && b->has_special;
    size_t i = 0;
    for (; n - i >= 32; i += 32) {
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(in + i));
        if (stops && _mm256_movemask_epi8(look_up16(b->special, x))) break;
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + i), look_up16(b->map, x));
    }
    return i + translate_plain(b, out + i, in + i, n - i, stop);
}
#endif

#ifdef KOVA_ARM_VECTORS
namespace {
struct rows_neon { // each of 64 bytes
    uint8x16x4_t r[4];
};
} // namespace
static inline rows_neon load_rows(const unsigned char *t) {
    return {
        {vld1q_u8_x4(t), vld1q_u8_x4(t + 64), vld1q_u8_x4(t + 128), vld1q_u8_x4(t + 192)}
    };
}
// For an index beyond its row, a look-up gives 0 or leaves what is there.
static inline uint8x16_t look_up(const rows_neon &t, uint8x16_t x) {
    uint8x16_t found = vqtbl4q_u8(t.r[0], x);
    found = vqtbx4q_u8(found, t.r[1], veorq_u8(x, vdupq_n_u8(0x40)));
    found = vqtbx4q_u8(found, t.r[2], veorq_u8(x, vdupq_n_u8(0x80)));
    return vqtbx4q_u8(found, t.r[3], veorq_u8(x, vdupq_n_u8(0xC0)));
}
static size_t translate_neon(const cv_bytes *b, unsigned char *out, const unsigned char *in,
                             size_t n, bool stop) {
    const rows_neon map = load_rows(b->map), special = load_rows(b->special);
    const bool stops = stop && b->has_special;
    size_t i = 0;
    for (; n - i >= 16; i += 16) {
        const uint8x16_t x = vld1q_u8(in + i);
        if (stops && vmaxvq_u8(look_up(special, x))) break;
        vst1q_u8(out + i, look_up(map, x));
    }
    return i + translate_plain(b, out + i, in + i, n - i, stop);
}
#endif

int cv_translates(cv_translate *kinds) {
    int count = 0;
    kinds[count++] = translate_plain;
#ifdef KOVA_X86_WIDE
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2")) kinds[count++] = translate_avx2;
    if (has_wide_runs()) kinds[count++] = translate_wide;
#elif defined(KOVA_ARM_VECTORS)
    kinds[count++] = translate_neon;
#endif
    return count;
}

cv_bytes *build_cv_bytes(const mb_decode *table) {
    ext_block<cv_bytes> b(1);
    if (!b.p) return nullptr;
    b.p->has_special = false;
    for (unsigned i = 0; i < 256; ++i) {
        const unsigned char *e = cv_direct(table, i);
        b.p->map[i] = e[1];
        const bool plain = (e[0] & cv_flags) && !(e[0] & (cv_substitute | cv_terminator));
        // In counted text a terminator is a byte like any other. NUL is not special here: where the
        // checked routine must stop at it, it looks for it first.
        const bool nul = !i && (e[0] & cv_flags) && !(e[0] & cv_substitute);
        b.p->special[i] = !plain && !nul ? 0xFF : 0;
        if (b.p->special[i]) b.p->has_special = true;
    }
    cv_translate kinds[cv_translates_max];
    b.p->translate = kinds[cv_translates(kinds) - 1];
    return b.release();
}
