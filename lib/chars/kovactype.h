// Character classes and case: the derived tables of LC_CTYPE.
#ifndef KOVACTYPE_H
#define KOVACTYPE_H

#include "record/kovasetlc.h"
#include "record/kovashare.h"

// The mask of a class that the locale defines, 0 if it does not.
ko_ctype_t user_class(const kovaloc *loc, const char *name);

// Case mapping of characters: the state and partner of each character of one or two bytes.
enum { case_same = mb_final, case_mapped = 8 }; // any other state: not a character
struct case_second {                            // of two-byte characters, by first byte
    const unsigned char *states[256];
    const ko_wchar_t *partners[256];
};
struct case_pages {
    const unsigned char *state1; // 256 states of one-byte characters
    const ko_wchar_t *partner1;  // 256 partners, where the state is case_mapped
    case_second *second;         // owned; NULL where no first byte is a prefix
    unsigned char *owned;        // the block that holds the pages made here
    bool plain_ascii;            // 0x01..0x7F are characters and map as ASCII does
};

// Bits of ctype_flat.pairs. The null character has none, so runs end there.
enum {
    pair_valid = 1, // a two-byte character of the class table
    pair_upper = 2, // and one of the case table that is its own upper case
    pair_lower = 4,
    pair_space = 8, // one of the class table that is a space
};

// What a record reads for LC_CTYPE.
struct ctype_parts {
    void *ctype, *cconv;
    conv_elem *cconv_arr;
    user_bit *user_bits;
    int num_conv_elems, num_user_bits;
};

// Tables for hot loops, derived when LC_CTYPE is loaded; NULL in a record whose tables are empty or
// for which memory ran short (then the trees are walked). Shared by reference with copies of the
// category, and with records that have read equal data.
struct ctype_flat {
    const void *ctype; // the tables from which it was made; any others are walked
    const void *cconv;
    mb_flat classes;
    mb_flat cases;
    bool has_cases;       // the pages below are valid: the tables agree on the length of characters
    bool plain_ascii;     // 0x01..0x7F are one-byte characters of the class table
    unsigned char *pairs; // owned: facts of two-byte characters, by wide value; NULL: none
    case_pages upper;
    case_pages lower;
    shared_place<ctype_flat> place;
    uint64_t number;   // of shared ones: no others of the process ever have it; 0: not shared
    ctype_parts parts; // of shared ones
};
ctype_flat *build_ctype_flat(const kovaloc *loc);
void free_ctype_flat(ctype_flat *flat);

// Sharing (kovactype_share.cpp). Only code sets with characters of two bytes are worth the search.
void share_ctype(kovaloc *loc);   // replaces what was read by equal data of another record
void offer_ctype(kovaloc *loc);   // to other records, with the tables derived
void release_ctype(kovaloc *loc); // frees what no other record uses; the fields keep their values

// Finds the boxes of the two-byte characters of a class table.
void derive_pairs(const void *ctype, coll_pairs *pairs);

// Cuts a table of 256 bytes into rows; the table may be NULL.
void derive_case_rows(const unsigned char *table, case_rows *rows);

#endif
