// Charmaps: symbolic names of the characters of a code set, read from a charmap object.
#ifndef KOVASYMS_H
#define KOVASYMS_H

#include "kovamulti.h"

constexpr int name_room = 71; // a symbol name of 70 characters and its terminator
struct cmap_exports {
    gen_exports gen;
};

// The memory that the records of a charmap share: blocks that are freed as a whole.
struct record_block;
struct record_pool {
    record_block *last;
    size_t used, room; // bytes of the last block
};

// Records are in the pool; each is followed by its name, see name_of.
struct single_char {
    single_char *next; // in file order; once all are read, the next with these bytes
    char_desc desc;
};
struct range_data;
// Derived from a long list of ranges: the ranges in ascending order; empty where two overlap.
struct range_start {
    uint64_t first; // the place of the range's first character or number
    const range_data *range;
};
struct range_index {
    range_start *at;
    int count;
};
// A run of characters whose names count up; the record's name is that of the first.
struct range_data {
    range_data *next;      // in file order
    range_data *sister;    // the next one whose name has the same canonical form
    range_index by_number; // in the first of the sisters, of them all
    char_desc base_char;
    int length;
    int name_base; // the number in the first character's name
};
template <class Record> const char *name_of(const Record *record) {
    return reinterpret_cast<const char *>(record + 1);
}

template <class Record> struct record_list { Record *first, *last; };

// Records in buckets by the hashes of their keys, sorted in each bucket by key and then in file
// order: many names with one hash, which the author of a file may choose, cost a look-up only the
// logarithm of their number.
template <class Record> struct symbol_index {
    Record **at;
    uint32_t *starts; // of the buckets, and the end of the last
    uint32_t mask;
};

struct kovacmap {
    cmap_exports exp;
    char codeset_name[22];
    uint16_t codeset_number;
    int source_version;
    int compiler_version;
    void *mb_struct;
    record_pool pool;
    record_list<single_char> singles;
    record_list<range_data> ranges;
    range_index by_char; // of the ranges
    symbol_index<single_char> by_name;
    symbol_index<single_char> by_desc;
    symbol_index<range_data> by_canonical; // name
};

// The records of a charmap object (kovasyms_read.cpp). 0, or the error number.
int read_charmap(text_in *in, kovacmap *map);
void free_charmap(kovacmap *map); // everything it owns, and itself

// Splits a name at its trailing decimal digits: canonical (name_room bytes) gets the name with
// zeros in their place. Returns the number that they form; -1 without digits or beyond an int.
int canonical_name(const char *name, char *canonical);
// Writes the name of character i of a range; out has name_room + 10 bytes.
void calculate_name(const range_data *range, int i, char *out);
// Character i of a range, carries included.
char_desc range_char(const range_data *range, int i);
// The place of a character in a range, -1 if it is not in it.
int range_place(const range_data *range, const char_desc &desc);
// The first range in file order that contains a character, NULL if none does. The search starts at
// *from, which becomes the range at which to continue, NULL at the end.
const range_data *find_range(const kovacmap *map, const char_desc &desc, const range_data **from);

// The first record in file order with a name, a character or a canonical name; NULL if there is
// none.
const single_char *find_named(const kovacmap *map, const char *name);
const single_char *find_char(const kovacmap *map, const char_desc &desc);
const range_data *find_canonical(const kovacmap *map, const char *canonical);
// The first range that contains a number, among the first of its group and the sisters; NULL if
// none does.
const range_data *find_number(const range_data *first, int number);

#endif
