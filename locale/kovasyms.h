// Charmaps: symbolic names of the characters of a code set, read from a charmap object.
#ifndef KOVASYMS_H
#define KOVASYMS_H

#include "kovalists.h"
#include "kovamulti.h"

constexpr int name_room = 71; // a symbol name of 70 characters
constexpr int symbol_bins = 127;

struct cmap_exports {
    gen_exports gen;
};

// A run of characters whose names count up.
struct range_data {
    int length;
    char_desc base_char;
    int name_base; // the number in the first character's name
    char name[name_room];
};

// Derived from a list of many ranges: they in ascending order, none where two overlap.
struct range_start {
    uint64_t first; // the place of the range's first character or number
    const range_data *range;
};
struct range_index {
    range_start *at;
    int count;
};

struct table_data {
    int type;              // 's' a single character, 'r' a named range
    char name[name_room];  // of a range: with its trailing digits as zeros
    char_desc desc;        // of a single character
    link_list *ranges;     // of the ranges that share the name; in sym_char alone
    range_index by_number; // of those ranges
    table_data *same;      // the next entry of the same key
    table_data *last_same; // of the first one: the last
};

struct symbol_table {
    link_list bins[symbol_bins]; // of table_data
    bool by_char;                // the key is desc, not type and name
    // Derived: open addressing over the first entry of every key.
    table_data **slots;
    unsigned mask;
    unsigned count; // of slots in use
};

struct kovacmap {
    cmap_exports exp;
    char codeset_name[22];
    uint16_t codeset_number;
    int source_version;
    int compiler_version;
    void *mb_struct;
    link_list *range_list; // of range_data
    symbol_table sym_char; // by name
    symbol_table char_sym; // by bytes, single characters alone
    range_index by_char;   // of range_list
};

// The records of a charmap object (kovasyms_read.cpp). 0, or the error number.
int read_charmap(text_in *in, kovacmap *map);
void free_charmap(kovacmap *map); // everything it owns, and itself

// Splits a name at its trailing decimal digits: *canonical (name_room bytes) gets it with zeros
// for them. Returns their number; -1 without digits or for one beyond an int.
int canonical_name(const char *name, char *canonical);
// The name of character i of a range; out has name_room + 10 bytes.
void calculate_name(const range_data *range, int i, char *out);
// Character i of a range, carries included.
char_desc range_char(const range_data *range, int i);
// The place of a character in a range, -1 when it is not there.
int range_place(const range_data *range, const char_desc &desc);
// The first range in file order that holds a character, NULL when none does. *from is the cell of
// range_list to look from, and gets the one to go on at, NULL at the end.
const range_data *find_range(const kovacmap *map, const char_desc &desc, const list_cell **from);
// The first range of an entry that holds a number, NULL when none does.
const range_data *find_number(const table_data *entry, int number);

// The single character or range of a name, and the single names of a character: the first in file
// order, which leads to the others; NULL without one.
table_data *find_named(const symbol_table *table, const char *name, int type);
table_data *find_char(const symbol_table *table, const char_desc &desc);

#endif
