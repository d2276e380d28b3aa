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

struct table_data {
    int type;             // 's' a single character, 'r' a named range
    char name[name_room]; // of a range: with its trailing digits as zeros
    char_desc desc;       // of a single character
    link_list *ranges;    // of the ranges that share the name; in sym_char alone
};

struct symbol_table {
    link_list bins[symbol_bins]; // of table_data
    // Derived: the entries in file order, and open addressing over them.
    const table_data **slots;
    unsigned mask;
    unsigned count;
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
    // Derived: the ranges in file order; ascending and apart, as the compiler writes them, or not.
    const range_data **ranges;
    int range_count;
    bool ranges_ascend;
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
// The first range from number i on, in file order, that holds a character; -1 when none does.
int find_range(const kovacmap *map, const char_desc &desc, int i);

unsigned name_bin(const char *name);
unsigned char_bin(const char_desc &desc);
// The first single character of a name, or single name of a character; NULL without one.
const table_data *find_named(const symbol_table *table, const char *name, int type);
const table_data *find_char(const symbol_table *table, const char_desc &desc);

#endif
