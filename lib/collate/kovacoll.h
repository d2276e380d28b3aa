// Collation: reading LC_COLLATE, and comparison by the rows of the object.
#ifndef KOVACOLL_H
#define KOVACOLL_H

#include "record/kovasetlc.h"

// The row of a character, 0 if the collation map lacks it. Stores no error.
uint16_t coll_row(const void *table, ko_wchar_t wc);
// The rows of all bytes at a node of the map, 0 for those that are not a character there.
void coll_node_rows(const mb_decode *table, const multi_arr *node, uint16_t *rows);

// Reads the LC_COLLATE section, from the place after its marker, into the record, and derives the
// lists and tables that follow from it. 0, or -1 (the error word is set except for an unknown
// keyword).
int read_collate(text_in *in, kovaloc *loc);

// Builds coll_ignored, coll_equiv_class_map (kovacoll_equiv.cpp). -1 without memory.
int derive_coll_lists(kovaloc *loc);

// Frees what coll_info, coll_ignored and coll_equiv_class_map own, and clears them; the row table
// belongs to the caller.
void free_coll_data(kovaloc *loc);

// ---- The row walk: every feature, weight by weight from the rows ----

// Compares two strings: -1, 0 or 1; 0 with KO_ENOMEM if there is no memory for marking elements.
template <class Unit>
int walk_compare(kovaloc *loc, const Unit *a, size_t len_a, const Unit *b, size_t len_b);

#endif
