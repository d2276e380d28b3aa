// Character classes and case: the records of the LC_CTYPE category.
#ifndef KOVACTYPE_H
#define KOVACTYPE_H

#include "kovamulti.h"

struct user_bit {
    unsigned bitpos;
    char *name;
};

struct conv_elem {  // case partners of one character, 0 for none
    ko_wchar_t upper;
    ko_wchar_t lower;
};

struct kovaloc;

// What LC_CTYPE derives at load for hot loops; NULL in a record whose tables are empty or whose
// memory ran short (then the tree walks serve). Shared by reference with copies of the category.
struct ctype_flat;
ctype_flat *build_ctype_flat(const kovaloc *loc);
void free_ctype_flat(ctype_flat *flat);

#endif
