// Collation: the record of the LC_COLLATE category and its derived tables.
#ifndef KOVACOLL_H
#define KOVACOLL_H

#include "kovamulti.h"

constexpr int coll_max_passes = 8;
enum { coll_forward = 1, coll_backward = 2 };         // pass types; the wide path tests bit 0
enum { collate_none = 0, collate_specified = 1, collate_thai = 2 };
constexpr unsigned coll_expansion = 0x4000;  // weight: low 14 bits index exp_arr
constexpr unsigned coll_code_tie = 0x8000;   // weight: equal ones ordered by character code
constexpr unsigned coll_low_bits = 0x3FFF;

struct coll_exp {
    unsigned nchars;
    ko_wchar_t *exp_data;
};

struct coll_elem {
    unsigned nchars;
    ko_wchar_t *elem_data;
    uint16_t row;
};

struct coll_data {
    int num_passes;
    int num_rows;  // rows are numbered 0..num_rows
    int num_expansions;
    int num_coll_elems;
    int num_weights;
    int pass_type[coll_max_passes];
    uint16_t *pass_arr[coll_max_passes];  // weight by row
    coll_exp *exp_arr;
    coll_elem *elem_arr;
    int codeset_order_flg;
    coll_exp **exp_direct[coll_max_passes];  // by byte value, for the passes that exist
    int *elem_candidate;                     // by byte value; NULL without elements
    int collate;
};

struct kovaloc;

// Reads the LC_COLLATE section behind its marker into the record, and derives what the section
// derives. 0, or -1 (the error word is set except for an unknown keyword).
int read_collate(text_in *in, kovaloc *loc);

// Derived tables of the hot loops, by pass: NULL when collation is none, in code-set order or
// Thai, or without memory (then the row walk serves). Shared by reference with copies.
struct coll_flat;
coll_flat *build_coll_flat(const kovaloc *loc);
void free_coll_flat(coll_flat *flat);

// Frees what coll_info, coll_ignored and coll_equiv_class_map own and clears them; the row table
// is the caller's.
void free_coll_data(kovaloc *loc);

#endif
