// Letters: what each unit of UTF-16 writes into a short key, in all passes at once, so that one
// walk over a text makes the key of every pass.
#ifndef KOVACOLL_LETTERS_H
#define KOVACOLL_LETTERS_H

#include "collate/kovacoll_short.h"

// The passes after the first one have a lane of 16 bits each.
constexpr unsigned letter_lanes = 4;
constexpr unsigned lane_bits = 16;
constexpr uint64_t lane_mask = 0xFFFF, all_lanes_high = 0x8000800080008000;
inline unsigned lane_of(uint64_t lanes, unsigned lane) {
    return unsigned(lanes >> lane_bits * lane & lane_mask);
}

struct letter_op {
    uint32_t pass;                     // 0: after the letter's code
    uint32_t code;                     // as in short_pass, with the first byte in bits 16 to 23
    uint32_t bytes, count;             // of the code, with the first byte lowest
    run_bytes run[short_most_commons]; // before it
};

// What a letter writes besides its code in the first pass: further codes there, and in each other
// pass a few times one common weight, then other codes. Many letters have the same pattern. A
// backward pass is not part of it.
struct letter_pattern {
    uint64_t runs;    // by lane: how often the common weight
    uint64_t commons; // by lane: which one
    uint64_t valid;   // by lane: all ones where there is one
    uint32_t first_op;
    uint8_t num_ops, num_firsts; // those of the first pass come first
    bool one_code;               // one operation, in a later pass, with a code that is not common
};

// A letter, from bit 0: its code in the first pass with the first byte in bits 16 to 23, 0 if that
// pass ignores it; the number of its pattern; flags.
constexpr unsigned letter_pattern_bit = 32;
constexpr unsigned letter_flags_bit = 48;
constexpr uint64_t letter_tie = uint64_t{1} << 48;   // the code is a number, as in short_pass
constexpr uint64_t letter_items = uint64_t{1} << 49; // only the tables of the passes tell
constexpr uint64_t letter_none = uint64_t{1} << 50;  // none has this
constexpr unsigned letter_next_bit = 52; // from here: what follows it in elements, see coll_special
inline uint32_t letter_code(uint64_t letter) { return uint32_t(letter); }
inline unsigned letter_next(uint64_t letter) { return unsigned(letter >> letter_next_bit); }
inline unsigned letter_pattern_of(uint64_t letter) {
    return unsigned(letter >> letter_pattern_bit & 0xFFFF);
}

// How runs of each common weight end before the other one.
struct lane_runs {
    run_bytes change[short_most_commons];
    unsigned longest;
};

struct short_letters {
    lane_runs lane[letter_lanes];
    // By lane, in those of passes that there are: 1; the longest run of one byte; by common weight,
    // what twice a run is added to for the byte of a run that ends with its pass.
    uint64_t ones, longest, end[short_most_commons];
    const uint64_t *page[257]; // as in coll_flat_pass
    uint64_t bytes[256];       // of ASCII
    const uint64_t *elements;  // by the number of a candidate in the first pass
    const letter_pattern *patterns;
    const letter_op *ops;
    uint64_t *pages; // memory of the pages
    bool forward;    // all passes are
};

// NULL without memory, or if there are too many passes; keys are then made pass by pass.
const short_letters *build_short_letters(const coll_flat *flat, const short_keys *keys);
void free_short_letters(const short_letters *letters);

#endif
