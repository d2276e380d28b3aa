// Conversion between UTF-8 and UTF-16 by vectors of 64 bytes. Masked loads and stores take the
// last, incomplete blocks, so that nothing outside the text and the room is touched.
#include "host/kovahost_wide.h"
#include "chars/kovawide.h"

#ifdef KOVA_X86_WIDE

// Stores the first n (at most 64) bytes; a part of a text's end or, where there is room, more.
template <bool part> WIDE_PART void store_bytes(unsigned char *dst, __m512i v, size_t n) {
    if (part)
        _mm512_mask_storeu_epi8(dst, lowest(n), v);
    else
        _mm512_storeu_si512(dst, v);
}

template <bool swapped> WIDE_PART __m512i in_order(__m512i units) {
    return swapped ? _mm512_shldi_epi16(units, units, 8) : units;
}

// ---- From UTF-8 ----

// The matrix that moves bits first to last of each byte by a distance, upwards if it is positive.
static constexpr long long moving(int first, int last, int distance) {
    uint64_t matrix = 0;
    for (int bit = first; bit <= last; ++bit)
        matrix |= uint64_t{1} << bit << 8 * (7 - (bit + distance));
    return static_cast<long long>(matrix);
}
template <int first, int last, int distance> WIDE_PART __m512i moved(__m512i bytes) {
    return _mm512_gf2p8affine_epi64_epi8(bytes, _mm512_set1_epi64(moving(first, last, distance)),
                                         0);
}

// Seven bits of one, the rest of the other.
WIDE_PART __m512i join_bits(__m512i low, __m512i high) {
    return _mm512_ternarylogic_epi64(low, high, each_byte(0x7F), 0xEC); // a & c | b
}

namespace {
// A bit for each byte of a block that begins a character of two bytes or more, and so on.
struct first_bytes {
    uint64_t twos, threes, fours;
};

struct unit_bytes { // of the units that end at each byte
    __m512i low, high;
    uint64_t units; // which of them are there
};
} // namespace

// The bytes that come a few bytes after others, of which some may be in the block before.
static inline uint64_t after(uint64_t bits, uint64_t before, int distance) {
    return bits << distance | before >> (64 - distance);
}

// Characters of one and two bytes.
WIDE_PART void decode_twos(__m512i v, const unsigned char *src, __mmask64 trail, unit_bytes *u) {
    const __m512i lead = _mm512_maskz_loadu_epi8(trail, src - 1);
    u->low = join_bits(v, moved<0, 1, 6>(lead));
    u->high = moved<2, 4, -2>(lead);
}

// Characters of four bytes have two units; the first one takes the place of the third byte.
// Returns false if a code is not one of Unicode.
WIDE_PART bool decode_fours(__m512i v, const unsigned char *src, uint64_t third, uint64_t fourth,
                            unit_bytes *u) {
    const __m512i second = _mm512_maskz_loadu_epi8(third, src - 1);
    const __m512i first = _mm512_maskz_loadu_epi8(third, src - 2);
    const __m512i sum = _mm512_or_si512(moved<0, 5, 2>(second), moved<4, 5, -4>(v));
    const __mmask64 carry = _mm512_cmpge_epu8_mask(sum, each_byte(0x40));
    const __m512i plain = _mm512_add_epi8(moved<0, 3, 0>(first), each_byte(0xD7));
    const __m512i high = _mm512_mask_add_epi8(plain, carry, plain, each_byte(1));
    const __m512i fits = _mm512_and_si512(high, each_byte(0xFC));
    u->low = _mm512_mask_add_epi8(u->low, third, sum, each_byte(0xC0));
    u->high = _mm512_mask_mov_epi8(u->high, third, high);
    const __m512i last =
        _mm512_ternarylogic_epi64(u->high, each_byte(0x03), each_byte(0xDC), 0xEA); // a & b | c
    u->high = _mm512_mask_mov_epi8(u->high, fourth, last);
    return !_mm512_mask_cmpneq_epi8_mask(third, fits, each_byte(0xD8));
}

// Zero for the high bytes of codes that do not have three bytes: 00 to 07 and D8 to DF, where bits
// 7, 6, 4 and 3 are equal and bit 5 is not set.
WIDE_PART __m512i three_fit(__m512i high) {
    constexpr uint64_t parities = 0xC090882000000000; // of bits 7 and 6, 7 and 4, 7 and 3; bit 5
    return _mm512_gf2p8affine_epi64_epi8(high, _mm512_set1_epi64(static_cast<long long>(parities)),
                                         0);
}

// The units of a block, of whose bytes only those in take belong to the text and the others are
// zero. first is that of the 64 bytes before, then that of this block. Returns false if there is
// anything that is no character.
WIDE_PART bool decode_block(__m512i v, const unsigned char *src, uint64_t take, first_bytes *first,
                            unit_bytes *u) {
    const uint64_t beyond = in_register(_mm512_movepi8_mask(v));
    const __mmask64 trail = _mm512_cmplt_epi8_mask(v, each_byte(0xC0));
    const uint64_t trails = in_register(trail);
    const uint64_t twos = in_register(_mm512_cmpge_epu8_mask(v, each_byte(0xC2)));
    const uint64_t threes = in_register(_mm512_cmpge_epu8_mask(v, each_byte(0xE0)));
    const first_bytes before = *first;
    const uint64_t second = after(twos, before.twos, 1);
    const uint64_t third = after(threes, before.threes, 2);
    *first = {twos, threes, 0};
    // Only valid text has no trailing byte first, where nothing may be read before the text.
    if ((trails | twos) != beyond) return false;
    if (!(threes | third | before.fours >> 61)) {
        if (second != trails) return false;
        decode_twos(v, src, trail, u);
        u->units = (~beyond | second) & take;
        return true;
    }
    first->fours = in_register(_mm512_cmpge_epu8_mask(v, each_byte(0xF0)));
    const uint64_t fourth = after(first->fours, before.fours, 3);
    if ((second | third | fourth) != trails) return false;
    const uint64_t inner = after(threes, before.threes, 1);
    const uint64_t fours = after(first->fours, before.fours, 2);
    const __m512i last = _mm512_maskz_loadu_epi8(trail, src - 1);
    const __m512i lead = _mm512_maskz_loadu_epi8(third, src - 2);
    u->low = join_bits(v, moved<0, 1, 6>(last));
    u->high = _mm512_or_si512(moved<2, 5, -2>(last), moved<0, 3, 4>(lead));
    u->units = (~beyond | (second & ~inner) | third | fourth) & take;
    const __m512i fit = three_fit(u->high);
    if (in_register(_mm512_mask_testn_epi8_mask(third, fit, fit)) & ~fours) return false;
    return !(fours | fourth) || decode_fours(v, src, fours, fourth, u);
}

// Stores the units of a block; room for 64 is needed unless it is a part. Returns how many.
template <bool swapped, bool part>
WIDE_PART unsigned store_units(unsigned char *dst, const unit_bytes &u) {
    const unsigned n = ones(u.units);
    // Each quarter of a vector gets eight bytes of the first half, and of the second one.
    const __m512i halves = _mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7);
    __m512i a = _mm512_permutexvar_epi64(halves, _mm512_maskz_compress_epi8(u.units, u.low));
    __m512i b = _mm512_permutexvar_epi64(halves, _mm512_maskz_compress_epi8(u.units, u.high));
    if (swapped) {
        const __m512i kept = a;
        a = b;
        b = kept;
    }
    store_bytes<part>(dst, _mm512_unpacklo_epi8(a, b), n < 32 ? 2 * n : 64);
    if (!part || n > 32) store_bytes<part>(dst + 64, _mm512_unpackhi_epi8(a, b), 2 * n - 64);
    return n;
}

template <bool swapped> WIDE_PART void widen_block(unsigned char *dst, __m512i v) {
    const __m512i a = _mm512_cvtepu8_epi16(_mm512_castsi512_si256(v));
    const __m512i b = _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(v, 1));
    _mm512_storeu_si512(dst, in_order<swapped>(a));
    _mm512_storeu_si512(dst + 64, in_order<swapped>(b));
}

// How many bytes at the end of a block belong to a character that goes on after it, and whether it
// has given its first unit.
static inline unsigned open_bytes(const first_bytes &f, bool *half) {
    *half = f.fours >> 61 & 1;
    if (f.twos >> 63) return 1;
    if (f.threes >> 62) return 2;
    return *half ? 3 : 0;
}

template <bool swapped>
WIDE_PART run_of decode_blocks(unsigned char *dst, size_t room, const unsigned char *src,
                               size_t n) {
    run_of run = {0, 0};
    first_bytes first = {0, 0, 0};
    while (n - run.taken >= 64 && room - run.made >= 64) {
        const unsigned char *const from = src + run.taken;
        unsigned char *const to = dst + 2 * run.made;
        const __m512i v = _mm512_loadu_si512(from);
        if (!(first.twos >> 63 | first.threes >> 62 | first.fours >> 61) &&
            !_mm512_movepi8_mask(v)) {
            widen_block<swapped>(to, v);
            run.made += 64;
            first = {0, 0, 0};
        } else {
            const first_bytes before = first;
            unit_bytes u;
            if (!decode_block(v, from, ~0ull, &first, &u)) {
                first = before;
                break;
            }
            run.made += store_units<swapped, false>(to, u);
        }
        run.taken += 64;
    }
    bool half;
    run.taken -= open_bytes(first, &half);
    run.made -= half;
    return run;
}

// The bytes of whole characters among the first n (below 64) of a block, whose others are zero.
WIDE_PART unsigned whole_bytes(__m512i v, unsigned n) {
    const uint64_t twos = _mm512_cmpge_epu8_mask(v, each_byte(0xC0));
    const uint64_t threes = _mm512_cmpge_epu8_mask(v, each_byte(0xE0));
    const uint64_t fours = _mm512_cmpge_epu8_mask(v, each_byte(0xF0));
    const bool open = (twos << 1 | threes << 2 | fours << 3) >> n;
    return open ? 63 - unsigned(__builtin_clzll(twos)) : n;
}

template <bool swapped>
WIDE_APART run_of decode_run(unsigned char *dst, size_t room, const unsigned char *src, size_t n) {
    run_of run = {0, 0};
    if (n >= 64 && room >= 64) run = decode_blocks<swapped>(dst, room, src, n);
    size_t most = 63; // an open character expects more bytes than are there
    while (run.taken < n) {
        const unsigned char *const from = src + run.taken;
        const size_t left = n - run.taken, some = left < most ? left : most;
        const uint64_t take = lowest(some);
        const __m512i v = _mm512_maskz_loadu_epi8(take, from);
        first_bytes first = {0, 0, 0};
        unit_bytes u;
        if (!decode_block(v, from, take, &first, &u)) {
            most = whole_bytes(v, unsigned(some));
            if (most == some || !most) break;
        } else if (const size_t free = room - run.made; ones(u.units) > free) {
            if (!free) break;
            most = 1 + size_t(__builtin_ctzll(_pdep_u64(1ull << (free - 1), u.units)));
        } else {
            run.made += store_units<swapped, true>(dst + 2 * run.made, u);
            run.taken += some;
        }
    }
    return run;
}

// A text of at most 32 bytes, whose characters have at most three: each lane gets the unit of the
// character that ends there, if one does. Takes none where that does not do.
template <bool swapped>
WIDE_PART run_of decode_short(unsigned char *dst, size_t room, const unsigned char *src, size_t n) {
    const auto take = __mmask32(lowest(n));
    const __m256i v = _mm256_maskz_loadu_epi8(take, src);
    const unsigned trails = _mm256_cmplt_epi8_mask(v, _mm256_set1_epi8(char(0xC0)));
    const unsigned twos = _mm256_cmpge_epu8_mask(v, _mm256_set1_epi8(char(0xC2)));
    const unsigned threes = _mm256_cmpge_epu8_mask(v, _mm256_set1_epi8(char(0xE0)));
    const unsigned fours = _mm256_cmpge_epu8_mask(v, _mm256_set1_epi8(char(0xF0)));
    const unsigned beyond = unsigned(_mm256_movepi8_mask(v));
    const unsigned second = twos << 1, third = threes << 2;
    const uint64_t open = uint64_t{twos} << 1 | uint64_t{threes} << 2;
    const unsigned units = unsigned(take) & ~(beyond ^ ((second & ~(threes << 1)) | third));
    const unsigned made = ones(units);
    if ((trails | twos) != beyond || (second | third) != trails || fours || open >> n ||
        made > room)
        return {0, 0};
    // The bits of a byte before the last one are moved to where they belong.
    const __m512i last = _mm512_cvtepu8_epi16(v);
    const __m512i before = _mm512_cvtepu8_epi16(_mm256_maskz_loadu_epi8(trails, src - 1));
    const __m512i first = _mm512_cvtepu8_epi16(_mm256_maskz_loadu_epi8(third, src - 2));
    const __m512i low = _mm512_and_si512(last, _mm512_set1_epi16(0x7F));
    const __m512i two = _mm512_ternarylogic_epi64(_mm512_slli_epi16(before, 6),
                                                  _mm512_set1_epi16(0xFC0), low, 0xEA);
    const __m512i codes = _mm512_or_si512(two, _mm512_slli_epi16(first, 12));
    const __m512i top = _mm512_and_si512(codes, _mm512_set1_epi16(short(0xF800)));
    const unsigned wrong =
        _mm512_mask_testn_epi16_mask(third, top, top) |
        _mm512_mask_cmpeq_epi16_mask(third, top, _mm512_set1_epi16(short(0xD800)));
    if (wrong) return {0, 0};
    const __m512i packed = _mm512_maskz_compress_epi16(units, codes);
    _mm512_mask_storeu_epi16(dst, __mmask32(lowest(made)), in_order<swapped>(packed));
    return {n, made};
}

template <bool swapped>
WIDE_PART run_of from_utf8(unsigned char *dst, size_t room, const unsigned char *src, size_t n) {
    if (n <= 32) {
        const run_of run = decode_short<swapped>(dst, room, src, n);
        if (run.taken) return run;
    }
    return decode_run<swapped>(dst, room, src, n);
}

WIDE run_of wide_from_utf8(unsigned char *dst, size_t room, const unsigned char *src, size_t n,
                           bool swapped) {
    return swapped ? from_utf8<true>(dst, room, src, n) : from_utf8<false>(dst, room, src, n);
}

// ---- To UTF-8 ----

namespace {
// A bit for each unit of a block.
struct unit_kinds {
    unsigned valid, two, three, surrogate; // those of two bytes and more, and so on
};
} // namespace

// Lanes of 32 bits: their bytes 0 to 2 become those of a character, of which the short ones lack
// the first. Surrogates are not treated here.
WIDE_PART __m512i encode_lanes(__m512i codes, unsigned two, unsigned three) {
    // Each byte takes eight bits: from bit 12, 6 and 0 of its lane.
    const __m512i bits = _mm512_multishift_epi64_epi8(_mm512_set1_epi64(0x2020262C0000060C), codes);
    const __m512i long_ones =
        _mm512_ternarylogic_epi64(bits, each_dword(0x3F3F0F), each_dword(0x8080E0), 0xEA);
    const __m512i long_or_two =
        _mm512_mask_or_epi32(long_ones, __mmask16(~three), long_ones, each_dword(0x004000));
    return _mm512_mask_mov_epi32(bits, __mmask16(two), long_or_two);
}

// The bytes of 16 units that encode_lanes() made, by the units' kinds.
WIDE_PART uint64_t lane_bytes(unsigned valid, unsigned two, unsigned three) {
    return _pdep_u64(valid, 0x4444444444444444) | _pdep_u64(two, 0x2222222222222222) |
           _pdep_u64(three, 0x1111111111111111);
}

template <bool part>
WIDE_PART unsigned store_lanes(unsigned char *dst, __m512i lanes, uint64_t bytes) {
    const unsigned n = ones(bytes);
    store_bytes<part>(dst, _mm512_maskz_compress_epi8(bytes, lanes), n);
    return n;
}

// Sixteen units at most, with surrogates; takes none if one stands alone.
template <bool part>
WIDE_PART run_of encode_pairs(unsigned char *dst, __m512i codes, unit_kinds k) {
    const __m512i kind = _mm512_and_si512(codes, each_dword(0xFC00));
    unsigned valid = k.valid & 0xFFFF;
    unsigned high = _mm512_mask_cmpeq_epi32_mask(__mmask16(valid), kind, each_dword(0xD800));
    const unsigned low = _mm512_mask_cmpeq_epi32_mask(__mmask16(valid), kind, each_dword(0xDC00));
    const unsigned last = valid ^ valid >> 1;
    if (high & last) { // goes with the next ones
        valid ^= last;
        high ^= last;
    }
    if (low != high << 1) return {0, 0};
    const __m512i next = _mm512_alignr_epi32(_mm512_setzero_si512(), codes, 1);
    const __m512i joined = _mm512_sub_epi32(_mm512_add_epi32(_mm512_slli_epi32(codes, 10), next),
                                            each_dword(0x35FDC00));
    const __m512i bits =
        _mm512_multishift_epi64_epi8(_mm512_set1_epi64(0x20262C3200060C12), joined);
    const __m512i fours =
        _mm512_ternarylogic_epi64(bits, each_dword(0x3F3F3F07), each_dword(0x808080F0), 0xEA);
    const unsigned first = valid & ~low;
    const __m512i lanes =
        _mm512_mask_mov_epi32(encode_lanes(codes, k.two, k.three), __mmask16(high), fours);
    const uint64_t bytes =
        lane_bytes(first, k.two & first, k.three & first) | _pdep_u64(high, 0x8888888888888888);
    return {ones(valid), store_lanes<part>(dst, lanes, bytes)};
}

// Units below 0x800.
template <bool part>
WIDE_PART unsigned encode_twos(unsigned char *dst, __m512i units, unit_kinds k) {
    // The first byte of each lane takes eight bits from bit 6, the second one from bit 0.
    const __m512i bits = _mm512_multishift_epi64_epi8(_mm512_set1_epi64(0x3036202610160006), units);
    const __m512i twos =
        _mm512_ternarylogic_epi64(bits, each_dword(0x3F1F3F1F), each_dword(0x80C080C0), 0xEA);
    const uint64_t bytes =
        _pdep_u64(k.valid, 0xAAAAAAAAAAAAAAAA) | _pdep_u64(k.two, 0x5555555555555555);
    return store_lanes<part>(dst, _mm512_mask_mov_epi16(bits, k.two, twos), bytes);
}

WIDE_PART __m512i to_lanes(__m256i units) { return _mm512_cvtepu16_epi32(units); }

// Writes the characters of a block. There is room: if it is a part, as much as they need, else for
// 128 bytes.
template <bool part>
WIDE_PART run_of encode_block(unsigned char *dst, __m512i units, const unit_kinds &k) {
    if (!k.three) return {ones(k.valid), encode_twos<part>(dst, units, k)};
    const __m512i low = to_lanes(_mm512_castsi512_si256(units));
    if (k.surrogate & 0xFFFF) return encode_pairs<part>(dst, low, k);
    const unsigned valid = k.valid & 0xFFFF;
    unsigned made = store_lanes<part>(dst, encode_lanes(low, k.two, k.three),
                                      lane_bytes(valid, k.two & 0xFFFF, k.three & 0xFFFF));
    if (k.surrogate || !(k.valid >> 16)) return {ones(valid), made};
    const __m512i high = to_lanes(_mm512_extracti64x4_epi64(units, 1));
    made += store_lanes<part>(dst + made, encode_lanes(high, k.two >> 16, k.three >> 16),
                              lane_bytes(k.valid >> 16, k.two >> 16, k.three >> 16));
    return {ones(k.valid), made};
}

WIDE_PART unit_kinds kinds_of(__m512i units, unsigned valid) {
    const __m512i top = _mm512_and_si512(units, _mm512_set1_epi16(short(0xF800)));
    return {valid, _mm512_test_epi16_mask(units, _mm512_set1_epi16(short(0xFF80))),
            _mm512_test_epi16_mask(top, top),
            _mm512_cmpeq_epi16_mask(top, _mm512_set1_epi16(short(0xD800)))};
}

template <bool swapped>
WIDE_PART run_of encode_blocks(unsigned char *dst, size_t room, const unsigned char *src,
                               size_t n) {
    run_of run = {0, 0};
    while (n - run.taken >= 32 && room - run.made >= 128) {
        const __m512i units = in_order<swapped>(_mm512_loadu_si512(src + 2 * run.taken));
        const unit_kinds k = kinds_of(units, ~0u);
        run_of more = {32, 32};
        void *const to = dst + run.made;
        if (k.two)
            more = encode_block<false>(dst + run.made, units, k);
        else
            _mm256_storeu_si256(static_cast<__m256i *>(to), _mm512_cvtepi16_epi8(units));
        if (!more.taken) break;
        run.taken += more.taken;
        run.made += more.made;
    }
    return run;
}

template <bool swapped>
WIDE_APART run_of encode_run(unsigned char *dst, size_t room, const unsigned char *src, size_t n) {
    run_of run = encode_blocks<swapped>(dst, room, src, n);
    size_t most = 32;
    while (run.taken < n) {
        const size_t left = n - run.taken, some = left < most ? left : most;
        const auto valid = unsigned(lowest(some));
        const __m512i units =
            in_order<swapped>(_mm512_maskz_loadu_epi16(valid, src + 2 * run.taken));
        const unit_kinds k = kinds_of(units, valid);
        if (some + ones(k.two) + ones(k.three & ~k.surrogate) > room - run.made) {
            most = (room - run.made) / 3;
            if (!most) break;
            continue;
        }
        const run_of more = encode_block<true>(dst + run.made, units, k);
        if (!more.taken) break;
        run.taken += more.taken;
        run.made += more.made;
    }
    return run;
}

// At most 16 units, none of them a surrogate. Takes none where that does not do.
template <bool swapped>
WIDE_PART run_of encode_short(unsigned char *dst, size_t room, const unsigned char *src, size_t n) {
    const auto valid = __mmask16(lowest(n));
    __m256i units = _mm256_maskz_loadu_epi16(valid, src);
    if (swapped) units = _mm256_shldi_epi16(units, units, 8);
    const __m256i top = _mm256_and_si256(units, _mm256_set1_epi16(short(0xF800)));
    const unsigned two = _mm256_test_epi16_mask(units, _mm256_set1_epi16(short(0xFF80)));
    const unsigned three = _mm256_test_epi16_mask(top, top);
    const unsigned surrogate = _mm256_cmpeq_epi16_mask(top, _mm256_set1_epi16(short(0xD800)));
    const unsigned made = unsigned(n) + ones(two) + ones(three);
    if (surrogate || made > room) return {0, 0};
    const __m512i lanes = encode_lanes(to_lanes(units), two, three);
    store_bytes<true>(dst, _mm512_maskz_compress_epi8(lane_bytes(valid, two, three), lanes), made);
    return {n, made};
}

template <bool swapped>
WIDE_PART run_of to_utf8(unsigned char *dst, size_t room, const unsigned char *src, size_t n) {
    if (n <= 16) {
        const run_of run = encode_short<swapped>(dst, room, src, n);
        if (run.taken) return run;
    }
    return encode_run<swapped>(dst, room, src, n);
}

WIDE run_of wide_to_utf8(unsigned char *dst, size_t room, const unsigned char *src, size_t n,
                         bool swapped) {
    return swapped ? to_utf8<true>(dst, room, src, n) : to_utf8<false>(dst, room, src, n);
}

#endif
