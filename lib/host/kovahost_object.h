// Conversion objects of one place.
#ifndef KOVAHOST_OBJECT_H
#define KOVAHOST_OBJECT_H

#include "convert/kovacvlib.h"
#include "locale/kovaextsa.h"

// Where data files are read.
struct data_origin {
    const char *root; // NULL: searched for
    bool verified;    // every file against the hash in its header
};

// An object's file, and the descriptor made from it.
struct cv_file {
    data_file file = no_data_file;
    unsigned char *bytes = nullptr;
    size_t size = 0;
    iconv_rec *rec = nullptr;

    cv_file() = default;
    cv_file(const cv_file &) = delete;
    cv_file &operator=(const cv_file &) = delete;
    ~cv_file();
};

// What a descriptor is for: with one from an image there are no bytes of the file, and its trees
// have no entries.
enum class cv_use { entries, conversion };
// Reads an object; 0 or the error, KO_EFILE if there is none.
int read_cv(const data_origin &origin, const char *name, cv_use use, cv_file *file);

#endif
