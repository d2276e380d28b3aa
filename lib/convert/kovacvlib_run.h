// Runs of ordinary characters, converted from the flat tables. A run ends at the first character
// that is not ordinary (a shift, an error, a terminator), at the end of the input, or where room
// gets short; the rules convert what follows. The loops are written to take few instructions: most
// texts are short and consist of ordinary characters. Only the conversion engine includes them, so
// that each of its usual calls is one function.
#ifndef KOVACVLIB_RUN_H
#define KOVACVLIB_RUN_H

#include "convert/kovacvlib.h"

#include <bit>
#include <string.h>
#include <type_traits>

// Inlined at each call, so that a flag whose value is known there costs nothing.
#ifdef __GNUC__
#define KOVA_EACH [[gnu::always_inline]] inline
#else
#define KOVA_EACH inline
#endif

namespace {

// Which flags a run accepts: under the mask, they must be the wanted ones.
struct cv_rule {
    unsigned mask, want;
};
struct cv_run { // where it stopped, and the bytes it wrote
    const ko_mchar_t *p;
    size_t made;
};

// What a run works on. There is room for whatever the bytes before end become.
template <class W> struct runner {
    const cv_flat *flat;
    const W *words;
    cv_rule rule;
    const ko_mchar_t *begin, *end;
};
// The place of a run: in the text, and in the output, or the bytes counted if none are written.
template <bool Write> struct place {
    const ko_mchar_t *p;
    std::conditional_t<Write, ko_mchar_t *, size_t> out;
};

constexpr uint64_t high_bits = 0x8080808080808080u;
constexpr bool is_little = std::endian::native == std::endian::little;
template <class W> constexpr unsigned top_byte = 8 * (sizeof(W) - 1);

template <class W, bool Write> inline void put_word(W word, place<Write> *at) {
    if constexpr (Write && is_little) {
        memcpy(at->out, &word, sizeof word); // with its top byte, which the next word overwrites
    } else if constexpr (Write) {
        for (unsigned i = 0; i + 1 < sizeof word; ++i)
            at->out[i] = ko_mchar_t(word >> (8 * i));
    }
}

// Does a word have no flags?
template <class W> inline bool is_plain(W word) { return word < W{cv_length + 1} << top_byte<W>; }

template <class W, bool Write> inline void put_plain(W word, place<Write> *at) {
    put_word<W, Write>(word, at);
    at->out += size_t(word >> top_byte<W>);
}

template <class W, bool Write> inline bool take_plain(W word, place<Write> *at) {
    if (!is_plain(word)) return false;
    put_plain<W, Write>(word, at);
    return true;
}

// ---- Characters that stand for themselves

// The high bit of each byte that is above 0x7F or does not map to itself. Only the lowest bit set
// is exact.
inline uint64_t special_bytes(const cv_flat *flat, uint64_t block) {
    constexpr uint64_t low_bits = 0x0101010101010101u;
    const uint64_t a = block ^ flat->odd[0], b = block ^ flat->odd[1];
    return (block | ((a - low_bits) & ~a) | ((b - low_bits) & ~b)) & high_bits;
}

// Copies bytes that map to themselves, eight at a time.
template <class W, bool Write> inline void ascii_run(const runner<W> &r, place<Write> *at) {
    // Where a terminator counts, only the last byte can be the null character.
    const ko_mchar_t *const end = r.end - (r.rule.mask & cv_terminator ? 1 : 0);
    while (at->p < end) {
        const size_t left = size_t(end - at->p);
        uint64_t block;
        if (left >= 8) {
            memcpy(&block, at->p, 8);
        } else if (is_little && end - r.begin >= 8) {
            memcpy(&block, end - 8, 8); // the last bytes, then zeros
            block >>= 8 * (8 - left);
        } else {
            return;
        }
        const uint64_t special = special_bytes(r.flat, block);
        if (special && !is_little) return;
        if constexpr (Write) memcpy(at->out, &block, 8);
        size_t n = special ? unsigned(std::countr_zero(special)) / 8 : 8;
        if (n > left) n = left;
        at->p += n;
        at->out += n;
        if (special) return;
    }
}

// ---- Characters of one length

template <class W, bool Write>
KOVA_EACH void singles(const runner<W> &r, W want, place<Write> *at) {
    place<Write> a = *at;
    while (a.p < r.end && take_plain<W, Write>(r.words[*a.p] ^ want, &a))
        ++a.p;
    *at = a;
}

template <class W, bool Write> KOVA_EACH void pairs(const runner<W> &r, W want, place<Write> *at) {
    place<Write> a = *at;
    const void *const *const second = r.flat->second;
    const auto word = [&](const ko_mchar_t *p) {
        return static_cast<const W *>(second[p[0]])[p[1]] ^ want;
    };
    const ko_mchar_t *const stop = r.end - 1;
    for (const ko_mchar_t *const pair_stop = r.end - 3; a.p < pair_stop; a.p += 4) {
        const W one = word(a.p), two = word(a.p + 2);
        if (!is_plain(one | two)) break;
        put_plain<W, Write>(one, &a);
        put_plain<W, Write>(two, &a);
    }
    for (; a.p < stop; a.p += 2)
        if (!take_plain<W, Write>(word(a.p), &a)) break;
    *at = a;
}

template <class W, bool Write>
KOVA_EACH void utf8_pairs(const runner<W> &r, W want, place<Write> *at) {
    place<Write> a = *at;
    const void *const *const rows = r.flat->trails->two;
    for (const ko_mchar_t *const stop = r.end - 1; a.p < stop; a.p += 2) {
        const unsigned trail = a.p[1] - 0x80u;
        if (trail > 0x3F) break;
        const W *const row = static_cast<const W *>(rows[a.p[0]]);
        if (!take_plain<W, Write>(row[trail] ^ want, &a)) break;
    }
    *at = a;
}

template <class W, bool Write>
KOVA_EACH void utf8_triples(const runner<W> &r, W want, place<Write> *at) {
    place<Write> a = *at;
    const void *const *const *const leads = r.flat->trails->leads;
    const auto word = [&](const ko_mchar_t *p, unsigned second, unsigned third) {
        return static_cast<const W *>(leads[p[0]][second])[third] ^ want;
    };
    const ko_mchar_t *const stop = r.end - 2;
    for (const ko_mchar_t *const pair_stop = r.end - 5; a.p < pair_stop; a.p += 6) {
        const unsigned second = a.p[1] - 0x80u, third = a.p[2] - 0x80u;
        const unsigned next_second = a.p[4] - 0x80u, next_third = a.p[5] - 0x80u;
        if ((second | third | next_second | next_third) > 0x3F) break;
        const W one = word(a.p, second, third), two = word(a.p + 3, next_second, next_third);
        if (!is_plain(one | two)) break;
        put_plain<W, Write>(one, &a);
        put_plain<W, Write>(two, &a);
    }
    for (; a.p < stop; a.p += 3) {
        const unsigned second = a.p[1] - 0x80u, third = a.p[2] - 0x80u;
        if ((second | third) > 0x3F) break;
        if (!take_plain<W, Write>(word(a.p, second, third), &a)) break;
    }
    *at = a;
}

// ---- Characters of any length

// Converts one character of any length, with any flags that the rule allows.
template <class W, bool Write> inline bool any(const runner<W> &r, place<Write> *at) {
    W word = r.words[*at->p];
    ptrdiff_t n = 1;
    while ((word >> top_byte<W> | 1) == cv_full_row && n < r.end - at->p) {
        const unsigned byte = at->p[n++];
        const W *const row = r.words + (word & cv_row_index) * 64;
        if (word >> top_byte<W> == cv_full_row)
            word = row[byte];
        else
            word = (byte & 0xC0) == 0x80 ? row[byte & 0x3F] : W{cv_special} << top_byte<W>;
    }
    const unsigned top = unsigned(word >> top_byte<W>);
    if ((top ^ r.rule.want) & (r.rule.mask | cv_special)) return false;
    put_word<W, Write>(word, at);
    at->out += top & cv_length;
    at->p += n;
    return true;
}

template <class W, bool Write>
KOVA_EACH void run_any(const runner<W> &r, W want, bool ascii, place<Write> *at) {
    const bool one_byte = r.flat->one_byte;
    while (at->p < r.end) {
        const ko_mchar_t *const begin = at->p;
        if (ascii) ascii_run<W, Write>(r, at);
        if (r.flat->trails) {
            utf8_triples<W, Write>(r, want, at);
            utf8_pairs<W, Write>(r, want, at);
        } else if (!one_byte) {
            pairs<W, Write>(r, want, at);
        }
        // Among characters of two bytes, a run of others is mostly of ASCII.
        if (!ascii || one_byte) singles<W, Write>(r, want, at);
        if (at->p == begin && !any<W, Write>(r, at)) return;
    }
}

template <class W, bool Write> KOVA_EACH void run_any(const runner<W> &r, place<Write> *at) {
    const W want = W(r.rule.want & r.rule.mask) << top_byte<W>;
    if (want) return run_any<W, Write>(r, want, false, at);
    return r.flat->ascii ? run_any<W, Write>(r, 0, true, at) : run_any<W, Write>(r, 0, false, at);
}

// Converts single bytes and pairs, switched by one-byte shifts that write nothing.
template <class W, bool Write>
KOVA_EACH void run_shifted(const runner<W> &single, const runner<W> &pair, unsigned shift_out,
                           int *state, place<Write> *at) {
    constexpr W shift_in = W{cv_source_shift} << top_byte<W>;
    place<Write> a = *at;
    bool shifted = *state == 1;
    for (;; ++a.p) {
        if (shifted) {
            pairs<W, Write>(pair, 0, &a);
            if (a.p >= pair.end || *a.p != shift_out) break;
        } else {
            singles<W, Write>(single, 0, &a);
            if (a.p >= single.end || single.words[*a.p] != shift_in) break;
        }
        shifted = !shifted;
    }
    if (shifted != (*state == 1)) *state = shifted;
    *at = a;
}

// False for a state of the caller's making, which is left to the rules.
inline bool can_shift(const iconv_rec *cv, const int *state) {
    return !state || (cv->flat_shift && unsigned(*state) <= 1);
}

template <class W> const W *words_of(const cv_flat *flat) {
    return static_cast<const W *>(flat->words);
}

// Converts in pieces for which there certainly is room, with one word to spare.
template <class W, bool Write>
cv_run run_pieces(const iconv_rec *cv, const cv_flat *flat, cv_rule rule, int *state,
                  const ko_mchar_t *in, int len, ko_mchar_t *out, int room) {
    const cv_flat *const pair = cv->flat_shift;
    const int most = state && pair->most > flat->most ? pair->most : flat->most;
    place<Write> at = {in, {}};
    if constexpr (Write) at.out = out;
    size_t made = 0;
    for (const ko_mchar_t *const end = in + len; at.p < end;) {
        const ko_mchar_t *const begin = at.p;
        const int64_t spare = int64_t{room} - 8 - int64_t(made);
        if (spare < most) break;
        const ko_mchar_t *const stop =
            int64_t{end - begin} * most > spare ? begin + spare / most : end;
        const runner<W> r = {flat, words_of<W>(flat), rule, begin, stop};
        if (state)
            run_shifted<W, Write>(r, {pair, words_of<W>(pair), rule, begin, r.end},
                                  cv->source_so[0], state, &at);
        else
            run_any<W, Write>(r, &at);
        if (at.p == begin) break;
        if constexpr (Write)
            made = size_t(at.out - out);
        else
            made = at.out;
    }
    return {at.p, made};
}

// Converts ordinary characters by a flat table, which may be NULL; without out it only counts. With
// a source state, it converts single bytes by that table and pairs by flat_shift, with one-byte
// shifts.
inline cv_run run_text(const iconv_rec *cv, const cv_flat *flat, cv_rule rule, int *state,
                       const ko_mchar_t *in, int len, ko_mchar_t *out, int room) {
    if (!flat || len < 1 || !can_shift(cv, state)) return {in, 0};
    const auto pieces = flat->wide
                            ? (out ? run_pieces<uint64_t, true> : run_pieces<uint64_t, false>)
                            : (out ? run_pieces<uint32_t, true> : run_pieces<uint32_t, false>);
    return pieces(cv, flat, rule, state, in, len, out, room);
}

// Converts a counted text of ordinary characters if there is room for whatever it becomes; true if
// the run took all of it. The state is that of a source with shifts, else NULL.
KOVA_EACH bool run_through(const iconv_rec *cv, int *state, const ko_mchar_t **inmbs, int *inlen,
                           ko_mchar_t **outmbs, int *outlen) {
    const cv_flat *const flat = cv->flat_noshift, *const pair = cv->flat_shift;
    if (!inlen || *inlen <= 0 || !flat || flat->wide || !can_shift(cv, state)) return false;
    const int64_t most = state && pair->most > flat->most ? pair->most : flat->most;
    if (*inlen * most > *outlen - int64_t{8}) return false;
    place<true> at = {*inmbs, *outmbs};
    const cv_rule rule = {cv_special | cv_substitute | cv_source_shift, 0};
    const runner<uint32_t> r = {flat, words_of<uint32_t>(flat), rule, at.p, at.p + *inlen};
    if (!state)
        run_any<uint32_t, true>(r, 0, flat->ascii, &at);
    else
        run_shifted<uint32_t, true>(r, {pair, words_of<uint32_t>(pair), rule, at.p, r.end},
                                    cv->source_so[0], state, &at);
    *inlen = int(r.end - at.p);
    *outlen -= int(at.out - *outmbs);
    *inmbs = at.p;
    *outmbs = at.out;
    return at.p == r.end;
}

} // namespace

#endif
