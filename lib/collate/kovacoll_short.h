// Short keys: the bytes that stand for weights in the keys of texts with lengths. Their order is
// that of the comparison; docs/collation.md tells the format.
#ifndef KOVACOLL_SHORT_H
#define KOVACOLL_SHORT_H

#include "collate/kovacoll_flat.h"

// Bytes of a short key. Weights are spelled with 3..0xFE.
constexpr unsigned short_end = 1;    // of a pass, where no run says so
constexpr unsigned short_down = 2;   // leaves a lead for a lower one
constexpr unsigned short_up = 0xFF;  // leaves a lead for a higher one
constexpr unsigned short_raw = 0xFF; // a byte that is no character follows
constexpr unsigned short_first = 3;
constexpr unsigned short_digits = 0xFF - short_first;

// What spells a weight: the number of bytes, 0 for the common weight of a lower pass, in bits 30
// and 31; bit 29 where the first byte is a lead that the next weight need not repeat; and the
// bytes, or under coll_code_tie a number that the character's code is added to, digits of base
// short_digits.
constexpr uint32_t short_keeps_lead = 1u << 29;
constexpr uint32_t short_bytes_mask = 0xFFFFFF;
inline unsigned short_count(uint32_t code) { return code >> 30; }

struct short_pass {
    const uint32_t *codes; // by weight
    // Runs of the common weight: of up to longest_run, by what comes after them. From run_bytes up
    // two bytes for each length: the pass ends, a lower weight; then one for longest_run of a
    // longer run; then one for each length, falling: a higher weight.
    unsigned run_bytes;
    unsigned longest_run;
};

struct short_keys {
    int num_passes; // -1: the weights of a pass are too many to be spelled
    short_pass pass[coll_max_passes];
};

// Derives them, or takes those of an earlier call, also in another thread. NULL without memory.
const short_keys *short_keys_of(coll_flat *flat);
void free_short_keys(short_keys *keys);

#endif
