// Character classes and case: the data of LC_CTYPE in the record.
#ifndef KOVACTYPE_DATA_H
#define KOVACTYPE_DATA_H

#include "locale/kovamulti.h"

struct user_bit {
    unsigned bitpos;
    char *name;
};

struct conv_elem { // case partners of one character, 0 for none
    ko_wchar_t upper;
    ko_wchar_t lower;
};

struct ctype_flat; // tables of the hot loops, see kovactype.h

// A single-byte case table cut into 16 rows of 16 bytes, for mapping many bytes at once. Valid only
// while the record still has the table from which it was made.
struct case_rows {
    const unsigned char *table; // NULL: none
    // Maps whole blocks up to the end of a page or the end of the string.
    size_t (*kernel)(ko_mchar_t *dst, const ko_mchar_t *src, const case_rows &rows);
    int count;                    // rows that change a byte
    unsigned char row[16];        // their high nibbles, as the upper four bits
    unsigned char change[16][16]; // by low nibble: byte XOR its partner
};

constexpr int coll_boxes = 3;

// Boxes of two-byte characters of a record's class table: two bytes are a character if each lies
// between lo and hi of one box, where even places bound first bytes and odd places second bytes.
// Unused boxes repeat the first.
struct coll_pairs {
    unsigned char lo[coll_boxes][16], hi[coll_boxes][16]; // first: a block's bounds in one line
    bool any;
};
#endif
