// Collation: the data of LC_COLLATE in the record.
#ifndef KOVACOLL_DATA_H
#define KOVACOLL_DATA_H

#include "kova.h"

constexpr int coll_max_passes = 8;
enum { coll_forward = 1, coll_backward = 2 }; // pass types; the wide path tests bit 0
enum { collate_none = 0, collate_specified = 1, collate_thai = 2 };
constexpr unsigned coll_ignored_weight = 1; // the character is skipped in the pass
constexpr unsigned coll_expansion = 0x4000; // weight: low 14 bits index exp_arr
constexpr unsigned coll_code_tie = 0x8000;  // weight: equal ones ordered by character code
constexpr unsigned coll_low_bits = 0x3FFF;
constexpr unsigned coll_end_byte = 256;
constexpr ko_wchar_t coll_element_char = 1; // stands for a collating element; not a real code

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
    int num_rows; // rows are numbered 0..num_rows
    int num_expansions;
    int num_coll_elems;
    int num_weights;
    int pass_type[coll_max_passes];
    uint16_t *pass_arr[coll_max_passes]; // weight by row
    coll_exp *exp_arr;
    coll_elem *elem_arr;
    int codeset_order_flg;
    coll_exp **exp_direct[coll_max_passes]; // by byte value, for the passes that exist
    int *elem_candidate;                    // by byte value; NULL without elements
    int collate;
    uint16_t *byte_weights[coll_max_passes]; // by byte, for the passes that exist; 0 at byte 0,
                                             // whose own weight stands at coll_end_byte
};

struct coll_flat; // tables of the hot loops, see kovacoll_flat.h

#endif
