// Short keys: the bytes that represent weights in the keys of texts with a length. Their order is
// that of the comparison; docs/collation.md describes the format.
#ifndef KOVACOLL_SHORT_H
#define KOVACOLL_SHORT_H

#include "collate/kovacoll_flat.h"

#include <atomic>

// Bytes of a short key. Weights are spelled with 3..0xFE.
constexpr unsigned short_end = 1;    // ends a pass, unless a run says so
constexpr unsigned short_down = 2;   // leaves a lead for a lower one
constexpr unsigned short_up = 0xFF;  // leaves a lead for a higher one
constexpr unsigned short_raw = 0xFF; // a byte that is not a character follows
constexpr unsigned short_first = 3;
constexpr unsigned short_digits = 0xFF - short_first;

// How a weight is spelled: bits 30 and 31 are the number of bytes, 0 for a common weight of a lower
// pass, whose number the low bits are; bit 29 says that the first byte is a lead that the next
// weight need not repeat; the low bits are the bytes or, under coll_code_tie, a number to which the
// character's code is added and which is written in digits of base short_digits.
constexpr uint32_t short_keeps_lead = 1u << 29;
constexpr uint32_t short_bytes_mask = 0xFFFFFF;
inline unsigned short_count(uint32_t code) { return code >> 30; }

// In place of the code of a weight under coll_code_tie: each of its characters has one of its own,
// after the codes of all weights.
constexpr uint32_t short_ranked = 1u << 28;
constexpr unsigned short_ranks = coll_low_bits + 1;
inline uint32_t item_code(const uint32_t *codes, coll_item item) {
    const uint32_t code = codes[item.weight & coll_low_bits];
    return code == short_ranked ? codes[short_ranks + item.ch] : code;
}

// The bytes of an item, with the first in bits 16 to 23.
inline uint32_t item_bytes(uint32_t code, coll_item item) {
    if (!(item.weight & coll_code_tie))
        return code << 8 * (3 - short_count(code)) & short_bytes_mask;
    uint32_t number = (code + item.ch) & short_bytes_mask, bytes = 0;
    for (unsigned i = 3 - short_count(code); i < 3; ++i) {
        // Filled from the last digit on.
        bytes = bytes >> 8 | (number % short_digits + short_first) << 16;
        number /= short_digits;
    }
    return bytes;
}

constexpr unsigned short_most_commons = 2;
struct short_pass {
    const uint32_t *codes; // by weight, see item_code
    // Bytes for runs of a common weight, of up to longest_run, by what follows them. From
    // run_bytes up: for each length, two bytes (the pass ends; a lower weight follows); then one
    // byte for longest_run of a longer run; then, with falling lengths, one byte for each (a higher
    // weight follows).
    unsigned run_bytes[short_most_commons];
    unsigned longest_run;
};

enum class run_end { pass, lower, higher };

// The byte of a run of n common weights is first + n * each.
struct run_bytes {
    int16_t first, each;
};
inline run_bytes bytes_of_run(const short_pass &pass, unsigned common, run_end end) {
    const auto bytes = int(pass.run_bytes[common]), longest = int(pass.longest_run);
    if (end == run_end::higher) return {int16_t(bytes + 3 * longest + 1), -1};
    return {int16_t(end == run_end::lower ? bytes - 1 : bytes - 2), 2};
}

struct short_letters;

struct short_keys {
    int num_passes; // -1: a pass has too many weights to spell
    short_pass pass[coll_max_passes];
    const short_letters *letters; // NULL: none, see kovacoll_letters.h
};

// Derives the short keys, or returns those of an earlier call, also from another thread. NULL
// without memory.
const short_keys *make_short_keys(coll_flat *flat);
inline const short_keys *short_keys_of(coll_flat *flat) {
    const short_keys *known =
        std::atomic_ref<short_keys *>(flat->keys).load(std::memory_order_acquire);
    return known ? known : make_short_keys(flat);
}
void free_short_keys(short_keys *keys);

#endif
