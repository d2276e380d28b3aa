// Collation: the record of the LC_COLLATE category and its derived tables.
#ifndef KOVACOLL_H
#define KOVACOLL_H

#include "kovamulti.h"

constexpr int coll_max_passes = 8;
enum { coll_forward = 1, coll_backward = 2 }; // pass types; the wide path tests bit 0
enum { collate_none = 0, collate_specified = 1, collate_thai = 2 };
constexpr unsigned coll_ignored_weight = 1; // the character is skipped in the pass
constexpr unsigned coll_expansion = 0x4000; // weight: low 14 bits index exp_arr
constexpr unsigned coll_code_tie = 0x8000;  // weight: equal ones ordered by character code
constexpr unsigned coll_low_bits = 0x3FFF;
constexpr ko_wchar_t coll_element_char = 1; // delivered for a collating element, no real code

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
};

struct kovaloc;

// The row of a character: 0 for one that the collation map lacks. Stores no error.
uint16_t coll_row(const void *table, ko_wchar_t wc);
uint16_t coll_byte_row(const void *table, unsigned char byte); // of the map's first level

// Reads the LC_COLLATE section behind its marker into the record, and derives what the section
// derives. 0, or -1 (the error word is set except for an unknown keyword).
int read_collate(text_in *in, kovaloc *loc);

// Builds coll_ignored, coll_equiv_class_map (kovacoll_equiv.cpp). -1 without memory.
int derive_coll_lists(kovaloc *loc);

// Frees what coll_info, coll_ignored and coll_equiv_class_map own and clears them; the row table
// is the caller's.
void free_coll_data(kovaloc *loc);

// ---- Derived tables of the hot loops ----

// A weight ready to be compared: ch breaks ties under coll_code_tie. ch is 0 only at the end.
struct coll_item {
    uint16_t weight;
    ko_wchar_t ch;
};

struct coll_seq { // what a character or an element delivers in a pass, in walking order
    const coll_item *items;
    unsigned count;
};

struct coll_candidate {
    const coll_elem *elem;
    coll_seq seq;
};

struct coll_special {
    coll_seq own;                     // when no candidate matches
    const coll_candidate *candidates; // elements that begin with the character, in file order
    unsigned num_candidates;
};

// The key bytes of one character in a pass. count above 7: too many, or not decided by the
// character alone.
struct alignas(8) coll_cell {
    unsigned char bytes[7];
    unsigned char count;
};
constexpr unsigned char coll_cell_none = 0xFF;
constexpr uint64_t coll_no_counts = ~uint64_t{0};

struct coll_flat_pass {
    // Weights by high and low byte of the character: 0 for the terminator, 1 for what the pass
    // ignores, with coll_expansion the index of a special, else a weight ready to be compared.
    const uint16_t *page[256];
    const coll_special *specials;
    const coll_special *sb_specials; // as is_mbscoll_exp expands; NULL where it cannot use pages
    const coll_cell *cells;          // by characters below 256
    const uint16_t *byte_weights;    // of the rows of bytes, just as the rows have them
    bool forward;
    bool ties; // some weight carries coll_code_tie
};

constexpr int coll_boxes = 3;

// Two-byte characters of a record's class table: where both bytes, the first one at even places,
// lie from lo to hi of one box, they are a character. Unused boxes are empty.
struct coll_pairs {
    bool any;
    unsigned char lo[coll_boxes][16], hi[coll_boxes][16];
};
void derive_pairs(const void *ctype, coll_pairs *pairs);

struct coll_flat {
    int num_passes;
    bool elements;
    bool byte_rows;                  // characters below 256 weigh as the bytes do
    const unsigned char *inner[256]; // 1 for characters inside an element, not its first
    // Plain weights of the first pass by byte; 0 for bytes with none.
    uint16_t first_weights[256];
    bool first_decides; // the first weights that differ: not behind elements, nor backward
    void *blocks;       // memory of all the tables
    // By byte, with pass p in bits 8p.. up: the count of key bytes in each pass, and the key byte
    // where that is 1. coll_no_counts: not decided by the byte alone, or in a backward pass.
    uint64_t counts[256];
    uint64_t digits[256];
    coll_flat_pass pass[coll_max_passes]; // there is memory for num_passes of them
};

// Derived tables of the hot loops, by pass: NULL when collation is none, in code-set order or
// Thai, without memory, or for tables whose shape they cannot hold (then the row walk serves).
// Shared by reference with copies.
coll_flat *build_coll_flat(const kovaloc *loc);
void free_coll_flat(coll_flat *flat);

// ---- The row walk: every feature, weight by weight from the rows ----

// 0 with KO_ENOMEM when the marks of the elements find no memory.
int walk_compare(kovaloc *loc, const ko_wchar_t *a, size_t len_a, const ko_wchar_t *b,
                 size_t len_b);
int walk_compare(kovaloc *loc, const ko_mchar_t *a, size_t len_a, const ko_mchar_t *b,
                 size_t len_b);

// A key being written: gathered in room and handed to dst, of which maxbytes bytes may be written.
// What does not fit is only counted.
constexpr size_t coll_sink_spare = 8; // a step may store that much beyond full
constexpr size_t coll_sink_full = 512 - coll_sink_spare;
struct coll_sink {
    ko_mchar_t *dst;
    size_t maxbytes;
    size_t written;   // bytes handed over, also those that did not fit
    size_t used;      // bytes gathered in room
    size_t full;      // more than that, and room is handed over
    ko_mchar_t *room; // local, or dst itself
    ko_mchar_t local[512];
};
void sink_flush(coll_sink *sink);
inline void sink_byte(coll_sink *sink, unsigned byte) {
    sink->room[sink->used++] = static_cast<ko_mchar_t>(byte);
    if (sink->used > sink->full) sink_flush(sink);
}

// Digits of base 254, as many as maxw needs; the most significant one first.
inline void write_weight(unsigned w, unsigned maxw, coll_sink *sink) {
    unsigned v = (w - 2) & 0xFFFF;
    if (maxw >= 64516) {
        sink_byte(sink, v / 64516 + 2);
        v %= 64516;
    }
    if (maxw >= 254) {
        sink_byte(sink, v / 254 + 2);
        v %= 254;
    }
    sink_byte(sink, v + 2);
}
struct coll_widths { // largest weight and largest character code
    unsigned maxw;
    unsigned maxc;
};
// A weight as it stands in the key, with the character's code behind it under coll_code_tie. Codes
// and weights below 2 have no digit of their own.
inline void write_item(coll_item item, coll_widths widths, coll_sink *sink) {
    const bool tie = item.weight & coll_code_tie;
    const unsigned w = tie ? item.weight & coll_low_bits : item.weight;
    write_weight(w < 2 ? 2 : w, widths.maxw, sink);
    if (tie) write_weight(item.ch < 2 ? 2 : item.ch, widths.maxc, sink);
}
coll_widths key_widths(const kovaloc *loc);
// Writes all passes into the sink. -1 with KO_ENOMEM.
int walk_key(kovaloc *loc, const ko_wchar_t *text, size_t len, coll_sink *sink);
int walk_key(kovaloc *loc, const ko_mchar_t *text, size_t len, coll_sink *sink);

#endif
