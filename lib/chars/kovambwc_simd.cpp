// Conversion and case mapping of many units at once. The kernels process whole blocks of a string.
// The loops of the second half take units one by one: those at the end of a page, where no block
// fits, and all units in builds without blocks.
#include "chars/kovambwc.h"

#include "chars/kovawide.h"

#include <string.h>

namespace {
enum class form { bytes, wide, nothing };
} // namespace

#ifdef KOVA_BLOCKS

// ---- Kernels: whole blocks, and the part of the last one that lies before the end ----

// How many of the units left lie before the place from which blocks of that size fit into pages
// again.
template <class Unit> static inline size_t to_blocks(const Unit *s, size_t block, size_t left) {
    const size_t n = (readable(s) % (block * sizeof(Unit)) + sizeof(Unit) - 1) / sizeof(Unit);
    return n < left ? n : left;
}

static inline void store_half(void *p, __m128i v) {
    _mm_storel_epi64(static_cast<__m128i *>(p), v);
}

// Stores the first n (below 16) bytes of a block.
static inline void store_part(void *p, __m128i v, unsigned n) {
    auto *to = static_cast<unsigned char *>(p);
    if (n & 8) {
        store_half(p, v);
        v = _mm_srli_si128(v, 8);
        to += 8;
    }
    auto rest = uint64_t(_mm_cvtsi128_si32(v)) & 0xFFFFFFFF;
    if (n & 4) {
        memcpy(to, &rest, 4);
        rest = uint64_t(_mm_cvtsi128_si32(_mm_srli_si128(v, 4))) & 0xFFFFFFFF;
        to += 4;
    }
    if (n & 2) {
        memcpy(to, &rest, 2);
        rest >>= 16;
        to += 2;
    }
    if (n & 1) *to = uint8_t(rest);
}

// A bit for each byte that ends a run, among the n bytes that may be taken.
static inline unsigned stops(__m128i v, unsigned most, size_t n) {
    const unsigned above = most < 0x80 ? unsigned(_mm_movemask_epi8(v)) : 0;
    return zero_bytes(v) | above | (n < 16 ? 1u << n : 0);
}

#ifdef KOVA_X86_WIDE

static bool has_wide_blocks() { return __builtin_cpu_supports("avx2"); }

// load_text for blocks of 32 bytes.
__attribute__((target("avx2"))) static inline __m256i load_wide_text(const ko_mchar_t *s,
                                                                     size_t most) {
#ifdef KOVA_CHECKED_READS
    __m256i block;
    copy_checked(&block, sizeof block, s, most, true);
    return block;
#else
    const void *from = s;
    static_cast<void>(most);
    return _mm256_loadu_si256(static_cast<const __m256i *>(from));
#endif
}

// Takes at most n bytes other than zero, up to the block that holds the first zero byte.
__attribute__((target("avx2"))) static size_t widen_wide_blocks(ko_wchar_t *dst,
                                                                const ko_mchar_t *src, size_t n) {
    const size_t fit = readable(src) < n ? readable(src) : n;
    size_t i = 0;
    for (size_t left = fit / 32; left; --left, i += 32) {
        void *to = dst + i, *second = dst + i + 16;
        const __m256i v = load_wide_text(src + i, n - i);
        if (_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, _mm256_setzero_si256()))) break;
        _mm256_storeu_si256(static_cast<__m256i *>(to),
                            _mm256_cvtepu8_epi16(_mm256_castsi256_si128(v)));
        _mm256_storeu_si256(static_cast<__m256i *>(second),
                            _mm256_cvtepu8_epi16(_mm256_extracti128_si256(v, 1)));
    }
    return i;
}

template <size_t rows>
__attribute__((target("avx2"))) static size_t rows_avx2(ko_mchar_t *dst, const ko_mchar_t *src,
                                                        const case_rows &map) {
    __m256i row[rows], change[rows];
    for (size_t r = 0; r < rows; ++r) {
        row[r] = _mm256_set1_epi8(char(map.row[r]));
        change[r] = _mm256_broadcastsi128_si256(load_block(map.change[r]));
    }
    const __m256i keep = _mm256_set1_epi8(0x70);
    size_t i = 0;
    for (size_t left = readable(src) / 32; left; --left, i += 32) {
        void *to = dst + i;
        const __m256i v = load_wide_text(src + i, SIZE_MAX);
        __m256i mapped = v;
        for (size_t r = 0; r < rows; ++r) {
            const __m256i index = _mm256_adds_epu8(_mm256_xor_si256(v, row[r]), keep);
            mapped = _mm256_xor_si256(mapped, _mm256_shuffle_epi8(change[r], index));
        }
        const __m256i zero = _mm256_cmpeq_epi8(v, _mm256_setzero_si256());
        const auto mask = unsigned(_mm256_movemask_epi8(zero));
        if (mask) {
            const unsigned k = first_bit(mask);
            if (k & 16) store_block(to, _mm256_castsi256_si128(mapped));
            store_part(dst + i + (k & 16),
                       k & 16 ? _mm256_extracti128_si256(mapped, 1)
                              : _mm256_castsi256_si128(mapped),
                       k & 15);
            return i + k;
        }
        _mm256_storeu_si256(static_cast<__m256i *>(to), mapped);
    }
    return i;
}

static void choose_wide_rows(int size, case_rows *rows) {
    static constexpr decltype(rows->kernel) kernels[] = {rows_avx2<4>, rows_avx2<6>, rows_avx2<16>};
    if (has_wide_blocks()) rows->kernel = kernels[size];
}

#else

static bool has_wide_blocks() { return false; }
static size_t widen_wide_blocks(ko_wchar_t *, const ko_mchar_t *, size_t) { return 0; }
static void choose_wide_rows(int, case_rows *) {}

#endif

// The next kernels take units from *done on and advance it. True if the run ended; false at the end
// of the page or if the rest of it has no room for a block.
static inline bool widen_blocks(ko_wchar_t *dst, const ko_mchar_t *src, size_t n, unsigned most,
                                size_t *done) {
    size_t i = *done;
    if (most > 0x7F && n - i >= 256 && has_wide_blocks()) {
        i += widen_wide_blocks(dst + i, src + i, n - i);
    }
    for (size_t left = readable(src + i) / 16; left; --left, i += 16) {
        const __m128i v = load_text(src + i, n - i);
        const __m128i low = _mm_unpacklo_epi8(v, _mm_setzero_si128());
        const __m128i high = _mm_unpackhi_epi8(v, _mm_setzero_si128());
        const unsigned mask = stops(v, most, n - i);
        if (mask) {
            const unsigned k = first_bit(mask);
            if (k & 8) store_block(dst + i, low);
            store_part(dst + i + (k & 8), k & 8 ? high : low, (k & 7) * 2);
            *done = i + k;
            return true;
        }
        store_block(dst + i, low);
        store_block(dst + i + 8, high);
    }
    *done = i;
    return false;
}

// Loads eight of the n values at src; *bad gets two mask bits for each value that ends the run.
static inline __m128i narrow_8(const ko_wchar_t *src, size_t n, unsigned most, unsigned *bad) {
    const __m128i v = load_text(src, n);
    const __m128i less = _mm_sub_epi16(v, _mm_set1_epi16(1)); // 0 becomes the largest value
    const __m128i over = _mm_subs_epu16(less, _mm_set1_epi16(short(most - 1)));
    const __m128i good = _mm_cmpeq_epi16(over, _mm_setzero_si128());
    *bad = ~unsigned(_mm_movemask_epi8(good)) & 0xFFFF;
    return v;
}

// How many of n values follow the first eight, which the block has; 0 also if they hold the end.
static inline size_t after_8(__m128i first, size_t n) {
#ifdef KOVA_CHECKED_READS
    if (n <= 8 || _mm_movemask_epi8(_mm_cmpeq_epi16(first, _mm_setzero_si128()))) return 0;
#endif
    static_cast<void>(first);
    return n - 8;
}

static inline bool narrow_blocks(ko_mchar_t *dst, const ko_wchar_t *src, size_t n, unsigned most,
                                 size_t *done) {
    size_t i = *done;
    for (size_t left = readable(src + i) / 32; left; --left, i += 16) {
        unsigned bad1, bad2;
        const __m128i v1 = narrow_8(src + i, n - i, most, &bad1);
        const __m128i v2 = narrow_8(src + i + 8, after_8(v1, n - i), most, &bad2);
        // Values above 0xFF saturate, but are not stored.
        const __m128i bytes = _mm_packus_epi16(v1, v2);
        const bool cut = n - i < 16;
        if (bad1 | bad2 | cut) {
            const uint64_t mask = bad1 | uint64_t{bad2} << 16 | uint64_t{1} << 32;
            unsigned k = unsigned(__builtin_ctzll(mask)) / 2;
            if (cut && k > n - i) k = unsigned(n - i);
            store_part(dst + i, bytes, k);
            *done = i + k;
            return true;
        }
        store_block(dst + i, bytes);
    }
    *done = i;
    return false;
}

static inline bool ascii_blocks(ko_mchar_t *dst, const ko_mchar_t *src, unsigned first,
                                size_t *done) {
    // Shifts the letters from first on to the lowest signed bytes.
    const __m128i shift = _mm_set1_epi8(char(0x80 - first));
    const __m128i bound = _mm_set1_epi8(-128 + 26), flip = _mm_set1_epi8(0x20);
    size_t i = *done;
    for (size_t left = readable(src + i) / 16; left; --left, i += 16) {
        const __m128i v = load_text(src + i, SIZE_MAX);
        const __m128i letter = _mm_cmplt_epi8(_mm_add_epi8(v, shift), bound);
        const __m128i mapped = _mm_xor_si128(v, _mm_and_si128(letter, flip));
        const unsigned mask = stops(v, 0x7F, 16);
        if (mask) {
            const unsigned k = first_bit(mask);
            store_part(dst + i, mapped, k);
            *done = i + k;
            return true;
        }
        store_block(dst + i, mapped);
    }
    *done = i;
    return false;
}

static inline __m128i swap_pairs(__m128i v) {
    return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
}

// The bits that all four values have in pairs.
static inline unsigned common_bits(const unsigned char *pairs, __m128i wide) {
    uint64_t four;
    store_half(&four, wide);
    return pairs[four & 0xFFFF] & pairs[four >> 16 & 0xFFFF] & pairs[four >> 32 & 0xFFFF] &
           pairs[four >> 48];
}

// load_text for characters of two bytes. The text goes on after those that have the bit.
#ifdef KOVA_CHECKED_READS
template <form from>
static inline __m128i load_pairs(const ko_mchar_t *s, const unsigned char *pairs, unsigned bit,
                                 const unsigned char *first_flags) {
    const void *const wide = s;
    if (from == form::wide) return load_text(static_cast<const ko_wchar_t *>(wide), 8);
    for (unsigned at = 0; at < 16; at += 2) {
        if (!s[at] && first_flags[0] == mb_final) return load_counted(s, at + 1);
        if (!(pairs[s[at] << 8 | s[at + 1]] & bit)) return load_counted(s, at + 2);
    }
    return load_block(s);
}
#else
template <form>
static inline __m128i load_pairs(const ko_mchar_t *s, const unsigned char *, unsigned,
                                 const unsigned char *) {
    return load_block(s);
}
#endif

// Takes characters that have the bit, eight at a time, at the end four; x86 stores low bytes first.
template <form from, form to>
static inline void pair_blocks(ko_mchar_t *dst, const ko_mchar_t *src, size_t n,
                               const unsigned char *pairs, unsigned bit,
                               const unsigned char *first_flags, size_t *done) {
    size_t i = *done;
    const size_t fit = readable(src + 2 * i) / 2;
    for (size_t left = (fit < n - i ? fit : n - i) / 8; left; --left, i += 8) {
        const __m128i raw = load_pairs<from>(src + 2 * i, pairs, bit, first_flags);
        const __m128i wide = from == form::bytes ? swap_pairs(raw) : raw;
        const __m128i out = to == form::wide ? wide : from == to ? raw : swap_pairs(wide);
        const unsigned low = common_bits(pairs, wide);
        if (!(low & bit)) break;
        if (!(common_bits(pairs, _mm_unpackhi_epi64(wide, wide)) & bit)) {
            if (to != form::nothing) store_half(dst + 2 * i, out);
            i += 4;
            break;
        }
        if (to != form::nothing) store_block(dst + 2 * i, out);
    }
    *done = i;
}

// Each row handles the bytes with its own high nibble: for these the index has bit 7 clear and the
// shuffle gives the change by the low nibble; for all other bytes bit 7 is set and the result is
// zero.
template <size_t rows>
__attribute__((target("ssse3"))) static size_t rows_ssse3(ko_mchar_t *dst, const ko_mchar_t *src,
                                                          const case_rows &map) {
    __m128i row[rows], change[rows];
    for (size_t r = 0; r < rows; ++r) {
        row[r] = _mm_set1_epi8(char(map.row[r]));
        change[r] = load_block(map.change[r]);
    }
    const __m128i keep = _mm_set1_epi8(0x70);
    size_t i = 0;
    for (size_t left = readable(src) / 16; left; --left, i += 16) {
        const __m128i v = load_text(src + i, SIZE_MAX);
        __m128i mapped = v;
        for (size_t r = 0; r < rows; ++r) {
            const __m128i index = _mm_adds_epu8(_mm_xor_si128(v, row[r]), keep);
            mapped = _mm_xor_si128(mapped, _mm_shuffle_epi8(change[r], index));
        }
        const unsigned mask = stops(v, 0xFF, 16);
        if (mask) {
            store_part(dst + i, mapped, first_bit(mask));
            return i + first_bit(mask);
        }
        store_block(dst + i, mapped);
    }
    return i;
}

// More than six rows are rare, and a few unused rows cost less than a loop over their number.
static void choose_row_blocks(case_rows *rows) {
    const int size = rows->count <= 4 ? 0 : rows->count <= 6 ? 1 : 2;
    static constexpr decltype(rows->kernel) kernels[] = {rows_ssse3<4>, rows_ssse3<6>,
                                                         rows_ssse3<16>};
    if (__builtin_cpu_supports("ssse3")) rows->kernel = kernels[size];
    choose_wide_rows(size, rows);
}

#else

// ---- No kernels ----

template <class Unit> static size_t to_blocks(const Unit *, size_t, size_t left) { return left; }
static bool widen_blocks(ko_wchar_t *, const ko_mchar_t *, size_t, unsigned, size_t *) {
    return false;
}
static bool narrow_blocks(ko_mchar_t *, const ko_wchar_t *, size_t, unsigned, size_t *) {
    return false;
}
static bool ascii_blocks(ko_mchar_t *, const ko_mchar_t *, unsigned, size_t *) { return false; }
template <form from, form to>
static void pair_blocks(ko_mchar_t *, const ko_mchar_t *, size_t, const unsigned char *, unsigned,
                        const unsigned char *, size_t *) {}
static void choose_row_blocks(case_rows *) {}

#endif

// ---- Whole runs ----

size_t widen_run(ko_wchar_t *dst, const ko_mchar_t *src, size_t n, unsigned most) {
    for (size_t i = 0; i < n;) {
        if (widen_blocks(dst, src, n, most, &i)) return i;
        for (const size_t edge = i + to_blocks(src + i, 16, n - i); i < edge; ++i) {
            if (src[i] - 1u >= most) return i;
            dst[i] = src[i];
        }
    }
    return n;
}

size_t narrow_run(ko_mchar_t *dst, const ko_wchar_t *src, size_t n, unsigned most) {
#ifdef KOVA_BLOCKS
    if (most > 0x7F && has_wide_runs()) return narrow_wide(dst, src, n, most);
#endif
    for (size_t i = 0; i < n;) {
        if (narrow_blocks(dst, src, n, most, &i)) return i;
        for (const size_t edge = i + to_blocks(src + i, 16, n - i); i < edge; ++i) {
            if (src[i] - 1u >= most) return i;
            dst[i] = ko_mchar_t(src[i]);
        }
    }
    return n;
}

// Takes characters that have the bit: blocks of four, then up to four one at a time.
template <form from, form to>
static inline size_t run_of_pairs(void *dst, const void *src, size_t n, const ctype_flat *flat,
                                  unsigned bit) {
    const unsigned char *pairs = flat->pairs, *first_flags = flat->classes.flag1;
    const auto *in_bytes = static_cast<const ko_mchar_t *>(src);
    const auto *in_wide = static_cast<const ko_wchar_t *>(src);
    auto *out_bytes = static_cast<ko_mchar_t *>(dst);
    auto *out_wide = static_cast<ko_wchar_t *>(dst);
    for (size_t i = 0;;) {
        pair_blocks<from, to>(out_bytes, in_bytes, n, pairs, bit, first_flags, &i);
        for (int step = 0; step < 4; ++step, ++i) {
            if (i == n) return i;
            unsigned v;
            if (from == form::wide) {
                v = in_wide[i];
            } else {
                if (first_flags[in_bytes[2 * i]] != mb_prefix) return i;
                v = unsigned(in_bytes[2 * i] << 8 | in_bytes[2 * i + 1]);
            }
            if (!(pairs[v] & bit)) return i;
            if (to == form::wide) out_wide[i] = ko_wchar_t(v);
            if (to == form::bytes) {
                out_bytes[2 * i] = ko_mchar_t(v >> 8);
                out_bytes[2 * i + 1] = ko_mchar_t(v & 0xFF);
            }
        }
    }
}

size_t widen_pairs(ko_wchar_t *dst, const ko_mchar_t *src, size_t n, const ctype_flat *flat) {
    return run_of_pairs<form::bytes, form::wide>(dst, src, n, flat, pair_valid);
}

size_t narrow_pairs(ko_mchar_t *dst, const ko_wchar_t *src, size_t n, const ctype_flat *flat) {
    return run_of_pairs<form::wide, form::bytes>(dst, src, n, flat, pair_valid);
}

size_t copy_pairs(ko_mchar_t *dst, const ko_mchar_t *src, const ctype_flat *flat, unsigned bit) {
    return run_of_pairs<form::bytes, form::bytes>(dst, src, SIZE_MAX, flat, bit);
}

size_t count_pairs(const ko_mchar_t *src, const ctype_flat *flat) {
    return run_of_pairs<form::bytes, form::nothing>(nullptr, src, SIZE_MAX, flat, pair_valid);
}

size_t map_ascii(ko_mchar_t *dst, const ko_mchar_t *src, unsigned first) {
    for (size_t i = 0;;) {
        if (ascii_blocks(dst, src, first, &i)) return i;
        for (int step = 0; step < 16; ++step, ++i) {
            const unsigned c = src[i];
            if (c - 1 >= 0x7F) return i;
            dst[i] = ko_mchar_t(c - first < 26 ? c ^ 0x20 : c);
        }
    }
}

static size_t rows_plain(ko_mchar_t *dst, const ko_mchar_t *src, const case_rows &rows) {
    size_t i = 0;
    for (; src[i]; ++i)
        dst[i] = rows.table[src[i]];
    return i;
}

void choose_kernel(case_rows *rows) {
    rows->kernel = rows_plain;
    choose_row_blocks(rows);
}

size_t map_rows(ko_mchar_t *dst, const ko_mchar_t *src, const case_rows &rows) {
    for (size_t i = 0;;) {
        i += rows.kernel(dst + i, src + i, rows);
        if (!src[i]) return i;
        for (const size_t edge = i + to_blocks(src + i, 32, SIZE_MAX - i); i < edge; ++i) {
            if (!src[i]) return i;
            dst[i] = rows.table[src[i]];
        }
    }
}
