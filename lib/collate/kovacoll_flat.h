// Collation: the derived tables of the hot loops.
#ifndef KOVACOLL_FLAT_H
#define KOVACOLL_FLAT_H

#include "record/kovasetlc.h"
#include "record/kovashare.h"

// A weight ready to be compared: ch breaks ties under coll_code_tie. ch is 0 only at the end.
struct coll_item {
    uint16_t weight;
    ko_wchar_t ch;
};

struct coll_seq { // what a character or an element yields in a pass, in walking order
    const coll_item *items;
    unsigned count;
};

struct coll_candidate {
    const ko_wchar_t *chars; // of an element, in walking order
    unsigned nchars;
    unsigned number; // counts all candidates of a pass; the same in all forward ones
    coll_seq seq;
};

// Many candidates by their second character: those of its low bits, in file order.
constexpr unsigned coll_seconds = 128;
struct coll_second {
    uint16_t first[coll_seconds]; // the candidate's place plus 1; 0: none
    const uint16_t *next;         // by place, as in first
};

// What may follow a character whose elements have to be looked for.
constexpr unsigned char coll_next_ascii = 1, coll_next_beyond = 2, coll_next_any = 4;

struct coll_special {
    coll_seq own;       // if no candidate matches
    unsigned char next; // the kinds of the candidates' second characters
    // Elements that a walk meets with this character, in file order. A backward pass meets them
    // with their last one, and only those that do not weigh as their characters one by one.
    const coll_candidate *candidates;
    unsigned num_candidates;
    const coll_second *seconds; // NULL: few candidates, or one of a single character
};

// The key bytes of one character in a pass. A count above 7 means too many, or that the character
// alone does not decide them.
struct alignas(8) coll_cell {
    unsigned char bytes[7];
    unsigned char count;
};
constexpr unsigned char coll_cell_none = 0xFF;
constexpr uint64_t coll_no_counts = ~uint64_t{0};

struct coll_flat_pass {
    // Weights by high and low byte of the character: 0 for the terminator, 1 for what the pass
    // ignores, the index of a special if coll_expansion is set, else a weight ready to be compared.
    // The last page is for bytes of UTF-8 that are not a character of the code set.
    const uint16_t *page[257];
    const coll_special *specials;
    const coll_cell *cells; // for characters below 256
    bool forward;
    bool ties; // some weight carries coll_code_tie
};

struct short_keys;

// What a record reads for LC_COLLATE, and the lists derived from it.
struct coll_parts {
    void *coll;
    coll_data info;
    const ko_mchar_t **ignored;
    ko_coll_equiv_class_map *equivalents;
};

constexpr uint32_t ascii_weight = 0x3FFF, ascii_inner = 0x4000, ascii_none = 0x8000;
constexpr unsigned ascii_next_bit = 16;

struct coll_flat {
    int num_passes;
    bool elements;
    bool byte_rows;                  // characters below 256 weigh like the bytes
    const unsigned char *inner[256]; // 1 for characters inside an element, other than its first
    // Plain weights of a first pass that runs forward, by byte, or without byte_rows by ASCII
    // character; 0 for those that have none or may be part of an element.
    uint16_t first_weights[256];
    // By the first byte of a character in UTF-8: its kinds if it may be inside an element or
    // ignored there.
    unsigned char inner_bytes[256];
    // If starts_forward, the pages of the first pass, with 0 for characters inside an element.
    const uint16_t *alone[256];
    // By byte of UTF-8: the first weight of an ASCII character that has just one plain weight, and
    // ascii_none for all others. ascii_inner: inside_element. From ascii_next_bit on: what may
    // follow it in elements, as in coll_special.
    uint32_t ascii[256];
    bool starts_forward; // raw_fits, and the first pass runs forward
    bool raw_fits;       // no weight of the locale's own equals coll_raw_weight
    bool first_decides;  // the first weights that differ decide: no elements, not backward
    void *blocks;        // memory of all the tables
    short_keys *keys;    // made for the first short key, see kovacoll_short.h
    // By byte, with pass p from bit 8p on: the count of key bytes in each pass, and the key byte if
    // that count is 1. coll_no_counts: the byte alone does not decide, or a pass is backward.
    uint64_t counts[256];
    uint64_t digits[256];
    shared_place<coll_flat> place;
    uint64_t ctype;   // of shared ones: the number of the class tables that they were made with
    coll_parts parts; // of shared ones
    coll_flat_pass pass[coll_max_passes]; // only num_passes of them are allocated
};

inline bool inside_element(const coll_flat *flat, unsigned ch) {
    return flat->inner[ch >> 8][ch & 0xFF];
}

// May the text from s on continue an element whose next character is of these kinds?
inline bool may_continue(const coll_flat *flat, unsigned kinds, const unsigned char *s,
                         const unsigned char *end) {
    return kinds & (s == end ? coll_next_any : flat->inner_bytes[*s]);
}
template <class Unit>
inline bool may_continue(const coll_flat *flat, unsigned kinds, const Unit *s, const Unit *end) {
    if (s == end) return kinds & coll_next_any;
    if (*s < 0x80) return kinds & flat->inner_bytes[*s];
    return kinds & (inside_element(flat, *s) ? coll_next_any | coll_next_beyond : coll_next_any);
}

// What a unit or an element yields in a pass. candidate: the element's number among those that the
// unit begins, -1 for the unit by itself.
inline coll_seq yielded(const coll_flat_pass *p, unsigned unit, ptrdiff_t candidate,
                        coll_item *own) {
    const uint16_t weight = p->page[unit >> 8][unit & 0xFF];
    if (weight == coll_ignored_weight) return {nullptr, 0};
    if (weight & coll_expansion) {
        const coll_special &special = p->specials[weight & coll_low_bits];
        return candidate < 0 ? special.own : special.candidates[candidate].seq;
    }
    *own = {weight, ko_wchar_t(unit)};
    return {own, 1};
}

// Does this high byte have the same pages as the one before it, in every pass?
inline bool repeats(const coll_flat *flat, unsigned hi) {
    bool same = hi > 0;
    for (int p = 0; same && p < flat->num_passes; ++p)
        same = flat->pass[p].page[hi] == flat->pass[p].page[hi - 1];
    return same;
}

// The weight of a byte that is not a character: after all others; ties by its value, which is the
// lower half of what take() returns for it.
constexpr uint16_t coll_raw_weight = coll_code_tie | coll_low_bits;

// Builds the derived tables of the hot loops. NULL if there is no collation, if it is code-set
// order or Thai, without memory, or for a shape that the tables cannot represent (then the row walk
// is used). Copies of the category share them by reference, and so do records that have read equal
// data.
coll_flat *build_coll_flat(const kovaloc *loc);
void free_coll_flat(coll_flat *flat);

// Sharing (kovacoll_share.cpp), where the class tables are shared, too.
bool share_collation(kovaloc *loc); // replaces what was read by equal data and all derived from it
void offer_collation(kovaloc *loc); // to other records, with the tables derived
void release_collate(kovaloc *loc); // frees what no other record uses; the fields keep their values

#endif
