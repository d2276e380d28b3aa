// Character classes and case: the data of LC_CTYPE that stand in the record.
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

// A single-byte case table cut into its 16 rows of 16 bytes, for mapping many bytes at once. It
// serves only as long as the record still has the table it was made from.
struct case_rows {
    const unsigned char *table; // NULL: none
    // Maps whole blocks up to the end of a page or of the string.
    size_t (*kernel)(ko_mchar_t *dst, const ko_mchar_t *src, const case_rows &rows);
    int count;                    // rows that change a byte
    unsigned char row[16];        // their high nibbles, as the upper four bits
    unsigned char change[16][16]; // by low nibble: byte XOR its partner
};

constexpr int coll_boxes = 3;

// Two-byte characters of a record's class table: where both bytes, the first one at even places,
// lie from lo to hi of one box, they are a character. Unused boxes are empty.
struct coll_pairs {
    bool any;
    unsigned char lo[coll_boxes][16], hi[coll_boxes][16];
};
#endif
