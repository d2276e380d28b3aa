// Runs of ordinary characters, converted from the flat tables. A run ends at the first character
// that is not ordinary (a shift, an error, a terminator), at the end of the input, or where the
// room gets short; what stands there is converted by the rules.
#include "kovacvlib.h"

#include <bit>
#include <string.h>

namespace {

// What a run works with; never changes while it is under way.
template <class W> struct runner {
    const W *words;
    const cv_flat *flat;
    unsigned mask, want; // of the low bytes of ordinary words
    const ko_mchar_t *begin, *end;
    ko_mchar_t *out;
    size_t limit; // the most bytes made before a word for which there still is room
};

constexpr uint64_t high_bits = 0x8080808080808080u;
constexpr bool is_little = std::endian::native == std::endian::little;

template <class W> inline void store_word(ko_mchar_t *out, W bytes) {
    if constexpr (is_little) {
        memcpy(out, &bytes, sizeof bytes);
    } else {
        for (unsigned i = 0; i + 1 < sizeof bytes; ++i)
            out[i] = ko_mchar_t(bytes >> (8 * i));
    }
}

// Writes an ordinary word and steps over its n source bytes. False for any other word.
template <class W, bool Write> inline bool take(const runner<W> &r, W word, cv_run *s, int n) {
    if ((unsigned(word) ^ r.want) & r.mask) return false;
    s->seen |= unsigned(word);
    if constexpr (Write) store_word(r.out + s->made, W(word >> 8));
    s->made += word & cv_length;
    s->p += n;
    return true;
}

// ---- Characters that stand for themselves

// The high bit of each byte that is above 0x7F or does not stand for itself. Only the lowest one
// set is exact.
inline uint64_t special_bytes(const cv_flat *flat, uint64_t block) {
    constexpr uint64_t low_bits = 0x0101010101010101u;
    const uint64_t a = block ^ flat->odd[0], b = block ^ flat->odd[1];
    return (block | ((a - low_bits) & ~a) | ((b - low_bits) & ~b)) & high_bits;
}

// Copies bytes that stand for themselves, eight at a time.
template <class W, bool Write> inline void ascii_run(const runner<W> &r, cv_run *s) {
    const size_t room = r.limit + sizeof(W);
    // Where a terminator counts, only the last byte can be the null character.
    const ko_mchar_t *const end = r.end - (r.mask & cv_terminator ? 1 : 0);
    while (s->p < end && s->made + 8 <= room) {
        const size_t left = size_t(end - s->p);
        uint64_t block;
        if (left >= 8) {
            memcpy(&block, s->p, 8);
        } else if (is_little && end - r.begin >= 8) {
            memcpy(&block, end - 8, 8); // the last bytes, in front of zeros
            block >>= 8 * (8 - left);
        } else {
            return;
        }
        const uint64_t special = special_bytes(r.flat, block);
        if (special && !is_little) return;
        if constexpr (Write) memcpy(r.out + s->made, &block, 8);
        size_t n = special ? unsigned(std::countr_zero(special)) / 8 : 8;
        if (n > left) n = left;
        s->p += n;
        s->made += n;
        if (special) return;
    }
}

// ---- Characters of one length

template <class W, bool Write> inline void singles(const runner<W> &r, cv_run *s) {
    while (s->p < r.end && s->made <= r.limit && take<W, Write>(r, r.words[*s->p], s, 1))
        continue;
}

template <class W, bool Write> inline void pairs(const runner<W> &r, cv_run *s) {
    const uint32_t *const second = r.flat->second;
    const ko_mchar_t *const stop = r.end - 1;
    while (s->p < stop && s->made <= r.limit &&
           take<W, Write>(r, r.words[second[s->p[0]] + s->p[1]], s, 2))
        continue;
}

template <class W, bool Write> inline void utf8_pairs(const runner<W> &r, cv_run *s) {
    const uint32_t *const rows = r.flat->trails->two;
    const ko_mchar_t *const stop = r.end - 1;
    while (s->p < stop && s->made <= r.limit && (s->p[0] & 0xE0) == 0xC0 &&
           (s->p[1] & 0xC0) == 0x80 &&
           take<W, Write>(r, r.words[rows[s->p[0] & 0x1F] + (s->p[1] & 0x3F)], s, 2))
        continue;
}

template <class W, bool Write> inline void utf8_triples(const runner<W> &r, cv_run *s) {
    const uint32_t *const rows = r.flat->trails->three;
    const ko_mchar_t *const stop = r.end - 2;
    while (s->p < stop && s->made <= r.limit) {
        const unsigned a = s->p[0], b = s->p[1] ^ 0x80u, c = s->p[2] ^ 0x80u;
        if ((a & 0xF0) != 0xE0 || ((b | c) & 0xC0)) return;
        if (!take<W, Write>(r, r.words[rows[(a & 0x0F) << 6 | b] + c], s, 3)) return;
    }
}

// ---- Characters of any length

template <class W> inline W next_word(const W *words, W prefix, unsigned byte) {
    const W *row = words + (prefix >> 8) * 64;
    if (prefix & 1) return row[byte];
    return (byte & 0xC0) == 0x80 ? row[byte & 0x3F] : W{cv_special};
}

// One character, by its tree.
template <class W, bool Write> inline bool any(const runner<W> &r, cv_run *s) {
    if (s->p >= r.end || s->made > r.limit) return false;
    W word = r.words[*s->p];
    int n = 1;
    while ((word & 0xFE) == cv_short_row && n < r.end - s->p)
        word = next_word(r.words, word, s->p[n++]);
    return take<W, Write>(r, word, s, n);
}

template <class W, bool Write> cv_run run_any(const runner<W> &r) {
    cv_run s = {r.begin, 0, 0};
    const bool ascii = r.flat->ascii && !(r.want & r.mask);
    do {
        if (ascii) ascii_run<W, Write>(r, &s);
        if (r.flat->trails) {
            utf8_triples<W, Write>(r, &s);
            utf8_pairs<W, Write>(r, &s);
        } else {
            pairs<W, Write>(r, &s);
        }
        if (!ascii) singles<W, Write>(r, &s);
    } while (any<W, Write>(r, &s));
    return s;
}

// Single bytes and pairs, switched by one-byte shifts.
template <class W, bool Write>
cv_run run_shifted(runner<W> r, const runner<W> &shifted, unsigned char shift_out, int *state) {
    cv_run s = {r.begin, 0, 0};
    for (;;) {
        if (*state == 1) {
            pairs<W, Write>(shifted, &s);
            if (s.p >= r.end || *s.p != shift_out) return s;
            *state = 0;
        } else {
            singles<W, Write>(r, &s);
            if (s.p >= r.end || s.made > r.limit) return s;
            // A plain shift code, which writes nothing.
            if ((r.words[*s.p] & 0xFF) != cv_source_shift) return s;
            *state = 1;
        }
        ++s.p;
    }
}

template <class W>
runner<W> make_runner(const W *words, const cv_flat *flat, cv_rule rule, const ko_mchar_t *in,
                      int len, ko_mchar_t *out, int room) {
    return {words,    flat, rule.mask | cv_special,  rule.want, in,
            in + len, out,  size_t(room) - sizeof(W)};
}

} // namespace

cv_run cv_run_any(const cv_flat *flat, cv_rule rule, const ko_mchar_t *in, int len, ko_mchar_t *out,
                  int room) {
    if (!flat || len < 1 || room < 8) return {in, 0, 0};
    if (flat->words) {
        const auto r = make_runner(flat->words, flat, rule, in, len, out, room);
        return out ? run_any<uint32_t, true>(r) : run_any<uint32_t, false>(r);
    }
    const auto r = make_runner(flat->words64, flat, rule, in, len, out, room);
    return out ? run_any<uint64_t, true>(r) : run_any<uint64_t, false>(r);
}

cv_run cv_run_shifted(const iconv_rec *cv, cv_rule rule, int *state, const ko_mchar_t *in, int len,
                      ko_mchar_t *out, int room) {
    const cv_flat *one = cv->flat_noshift, *two = cv->flat_shift;
    if (!one || !two || len < 1 || room < 8) return {in, 0, 0};
    const unsigned char shift_out = cv->source_so[0];
    if (one->words) {
        const auto r = make_runner(one->words, one, rule, in, len, out, room);
        const auto s = make_runner(two->words, two, rule, in, len, out, room);
        return out ? run_shifted<uint32_t, true>(r, s, shift_out, state)
                   : run_shifted<uint32_t, false>(r, s, shift_out, state);
    }
    const auto r = make_runner(one->words64, one, rule, in, len, out, room);
    const auto s = make_runner(two->words64, two, rule, in, len, out, room);
    return out ? run_shifted<uint64_t, true>(r, s, shift_out, state)
               : run_shifted<uint64_t, false>(r, s, shift_out, state);
}
