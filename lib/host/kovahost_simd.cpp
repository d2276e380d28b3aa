// Conversion between UTF-8 and UTF-16 by runs of characters of one, two and three bytes. A block
// has 8 characters, of ASCII 16; those before the first one of another length, or before anything
// ill-formed, are converted.
#include "host/kovahost_wide.h"

#if defined(__GNUC__) && defined(__SSE2__)

static inline __m128i words(unsigned value) { return _mm_set1_epi16(short(value)); }

// The number of lanes before the first that is not all ones.
static inline unsigned good_lanes(__m128i good) {
    return first_bit(~unsigned(_mm_movemask_epi8(good))) / 2;
}

run_way best_way() {
    if (has_wide_runs()) return run_way::wide;
    const bool shuffles = __builtin_cpu_supports("ssse3") && __builtin_cpu_supports("popcnt");
    return shuffles ? run_way::shuffled : run_way::plain;
}

// Converts by some(), which is given what is left on both sides, until that takes nothing or too
// little is left.
template <class Out, class In, class Some>
static inline run_of all_runs(Out *dst, size_t room, const In *src, size_t n, Some some) {
    run_of run = {0, 0};
    while (n - run.taken >= run_least && room - run.made >= run_least) {
        const run_of more = some(dst + run.made, room - run.made, src + run.taken, n - run.taken);
        if (!more.taken) break;
        run.taken += more.taken;
        run.made += more.made;
    }
    return run;
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

namespace {
struct packing { // by mask: moves the lanes whose bits are set to the front
    uint8_t bytes[256][16];
};
} // namespace

static constexpr packing make_packing() {
    packing p = {};
    for (unsigned mask = 0; mask < 256; ++mask) {
        unsigned n = 0;
        for (unsigned lane = 0; lane < 8; ++lane) {
            if (!(mask >> lane & 1)) continue;
            p.bytes[mask][n++] = uint8_t(2 * lane);
            p.bytes[mask][n++] = uint8_t(2 * lane + 1);
        }
        while (n < 16)
            p.bytes[mask][n++] = 0x80;
    }
    return p;
}
alignas(64) static constexpr packing front_lanes = make_packing();

// Stores the lanes that a mask names. Returns how many there are.
__attribute__((target("ssse3,popcnt"))) static inline unsigned
store_lanes(ko_wchar_t *dst, __m128i lanes, unsigned mask) {
    store_block(dst, _mm_shuffle_epi8(lanes, load_block(front_lanes.bytes[mask])));
    return unsigned(__builtin_popcount(mask));
}

// The lanes of 16 that hold three-byte characters which are overlong or surrogates.
static inline unsigned false_triples(__m128i low, __m128i high, unsigned triples) {
    const __m128i zero = _mm_setzero_si128(), top = words(0xF800), surrogate = words(0xD800);
    const __m128i a = _mm_and_si128(low, top), b = _mm_and_si128(high, top);
    const __m128i bad_a = _mm_or_si128(_mm_cmpeq_epi16(a, zero), _mm_cmpeq_epi16(a, surrogate));
    const __m128i bad_b = _mm_or_si128(_mm_cmpeq_epi16(b, zero), _mm_cmpeq_epi16(b, surrogate));
    return unsigned(_mm_movemask_epi8(_mm_packs_epi16(bad_a, bad_b))) & triples;
}

// Converts the whole characters of one to three bytes in a block of 16 bytes that begins with one,
// up to anything else. Each lane gets the code of the character that ends there, if one does.
__attribute__((target("ssse3,popcnt"))) static inline run_of
decode_mixed(ko_wchar_t *dst, const unsigned char *src) {
    // The bits of a byte that belong to the code, by its upper half.
    const __m128i own_bits = _mm_setr_epi8(0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x3F,
                                           0x3F, 0x3F, 0x3F, 0x1F, 0x1F, 0x0F, 0);
    const __m128i v = load_block(src), zero = _mm_setzero_si128();
    const __m128i half = _mm_and_si128(_mm_srli_epi16(v, 4), _mm_set1_epi8(0x0F));
    const __m128i own = _mm_and_si128(v, _mm_shuffle_epi8(own_bits, half));
    const __m128i trail = _mm_cmplt_epi8(v, _mm_set1_epi8(-0x40));
    const __m128i before = _mm_and_si128(_mm_slli_si128(own, 1), trail);
    const __m128i two_before =
        _mm_and_si128(_mm_slli_si128(own, 2), _mm_and_si128(trail, _mm_slli_si128(trail, 1)));
    const auto lanes = [&](__m128i a, __m128i b, __m128i c) {
        return _mm_or_si128(a, _mm_or_si128(_mm_slli_epi16(b, 6), _mm_slli_epi16(c, 12)));
    };
    const __m128i low = lanes(_mm_unpacklo_epi8(own, zero), _mm_unpacklo_epi8(before, zero),
                              _mm_unpacklo_epi8(two_before, zero));
    const __m128i high = lanes(_mm_unpackhi_epi8(own, zero), _mm_unpackhi_epi8(before, zero),
                               _mm_unpackhi_epi8(two_before, zero));
    // Bits by byte. Bytes from 0x80 on are negative.
    const auto above = [&](int byte) {
        return unsigned(_mm_movemask_epi8(_mm_cmpgt_epi8(v, _mm_set1_epi8(char(byte)))));
    };
    const unsigned negative = unsigned(_mm_movemask_epi8(v)),
                   trails = unsigned(_mm_movemask_epi8(trail));
    const unsigned from_c2 = above(-0x3F) & negative, from_e0 = above(-0x21) & negative;
    const unsigned from_f0 = above(-0x11) & negative;
    const unsigned triples = (from_e0 & ~from_f0) << 2, pairs = (from_c2 & ~from_e0) << 1;
    const unsigned expected = pairs | triples | triples >> 1;
    unsigned wrong = (expected ^ trails) | (negative & ~trails & ~from_c2) | from_f0 | 1u << 16;
    wrong |= false_triples(low, high, triples);
    const unsigned ends = ((~negative & 0xFFFF) | pairs | triples) & ((1u << first_bit(wrong)) - 1);
    if (!ends) return {0, 0};
    const unsigned n = store_lanes(dst, low, ends & 0xFF);
    return {32u - unsigned(__builtin_clz(ends)), n + store_lanes(dst + n, high, ends >> 8)};
}

// What the next characters look like decides which loop converts them.
static inline bool begin_pairs(const unsigned char *s) {
    return (s[0] & 0xE0) == 0xC0 && (s[2] & 0xE0) == 0xC0 && (s[4] & 0xE0) == 0xC0;
}
static inline bool begin_triples(const unsigned char *s) {
    return (s[0] & 0xF0) == 0xE0 && (s[3] & 0xF0) == 0xE0 && (s[6] & 0xF0) == 0xE0;
}

static inline bool is_ascii(const unsigned char *src) {
    return !_mm_movemask_epi8(load_block(src));
}

// Without shuffles: runs of characters of one and two bytes.
static run_of convert_plain(ko_wchar_t *dst, size_t room, const unsigned char *src, size_t n) {
    const auto some = [](ko_wchar_t *to, size_t, const unsigned char *from, size_t) {
        const bool pairs = begin_pairs(from);
        const size_t good = pairs ? decode_pairs(to, from) : decode_ascii(to, from);
        return run_of{pairs ? 2 * good : good, good};
    };
    return all_runs(dst, room, src, n, some);
}

// The loop stands here because what uses shuffles can only be expanded inside such a function.
__attribute__((target("ssse3,popcnt"))) static run_of
convert_shuffled(ko_wchar_t *dst, size_t room, const unsigned char *src, size_t n) {
    run_of run = {0, 0};
    while (n - run.taken >= run_least && room - run.made >= run_least) {
        const unsigned char *const from = src + run.taken;
        ko_wchar_t *const to = dst + run.made;
        run_of more = {16, 16};
        if (is_ascii(from)) {
            decode_ascii(to, from);
        } else if (begin_triples(from)) {
            more = decode_triples(to, room - run.made, from, n - run.taken);
        } else {
            more = decode_mixed(to, from);
        }
        if (!more.taken) break;
        run.taken += more.taken;
        run.made += more.made;
    }
    return run;
}

run_of convert_run(run_way way, ko_wchar_t *dst, size_t room, const unsigned char *src, size_t n) {
    if (way == run_way::wide) return wide_run(dst, room, src, n);
    if (n < run_least || room < run_least) return {0, 0};
    return way == run_way::plain ? convert_plain(dst, room, src, n)
                                 : convert_shuffled(dst, room, src, n);
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

static run_of convert_some(unsigned char *dst, size_t room, const ko_wchar_t *src, size_t n,
                           bool shuffles) {
    if (*src < 0x80) {
        const unsigned good = encode_ascii(dst, src);
        return {good, good};
    }
    if (*src < 0x800) {
        const unsigned good = encode_pairs(dst, src);
        return {good, 2 * size_t{good}};
    }
    return shuffles ? encode_triples(dst, room, src, n) : run_of{0, 0};
}

run_of convert_run(run_way way, unsigned char *dst, size_t room, const ko_wchar_t *src, size_t n) {
    if (way == run_way::wide) return wide_run(dst, room, src, n);
    if (n < run_least || room < run_least) return {0, 0};
    const bool shuffles = way == run_way::shuffled;
    return all_runs(dst, room, src, n,
                    [shuffles](auto... some) { return convert_some(some..., shuffles); });
}

#else

run_way best_way() { return run_way::plain; }
run_of convert_run(run_way, ko_wchar_t *, size_t, const unsigned char *, size_t) { return {0, 0}; }
run_of convert_run(run_way, unsigned char *, size_t, const ko_wchar_t *, size_t) { return {0, 0}; }

#endif
