// The locale record: all categories of one locale side by side.
#ifndef KOVASETLC_H
#define KOVASETLC_H

#include "kovacoll.h"
#include "kovactype.h"
#include "kovafmt.h"
#include "kovatmlib.h"

constexpr int codeset_room = 21;  // a code-set name of 20 characters
constexpr int locname_room = 32;
constexpr int setting_room = 312;  // a setting or file name of 311 characters

struct kovaloc {
    loc_exports exp;
    void *ctype;  // mb_decode: class masks; also the definition of the code set
    int num_user_bits;
    user_bit *user_bits;
    void *cconv;  // mb_decode: indexes into cconv_arr
    conv_elem *cconv_arr;  // from index 1
    void *coll;  // mb_decode: rows
    coll_data coll_info;
    monum monum_info;
    ltime ltime_info;
    koconv koconv_info;
    char codeset[6][codeset_room];  // by category less 2; empty: absent
    ko_wchar_t w_codeset[6][codeset_room];
    char locname[6][locname_room];
    ko_wchar_t w_locname[6][locname_room];
    // Derived and bookkeeping data behind the listed fields.
    int num_conv_elems;       // entries of cconv_arr are 1..num_conv_elems
    ctype_flat *chars;        // of LC_CTYPE
    coll_flat *weights;       // of LC_COLLATE
};

inline kovaloc *record(ko_lc_t loc) { return static_cast<kovaloc *>(loc); }

extern const char *const category_markers[8];
extern const char *const category_params[8];

void init_koconv_t(koconv *conv);
void update_locale(kovaloc *loc);
void free_locale(kovaloc *loc);

// Reading locale objects (kovasetlc_read.cpp).
int read_locale_file(text_in *in, kovaloc *loc);
int read_file_header(text_in *in, char *codeset, int *error);
int read_ctype(text_in *in, kovaloc *loc);
void read_numeric(text_in *in, monum *m);
void read_monetary(text_in *in, monum *m);
int read_time(text_in *in, ltime *t, int *error);
void read_messages(text_in *in, monum *m);
int init_locale_info(kovaloc *loc);
int alloc_wc_from_mb(kovaloc *loc, const ko_mchar_t *mbs, ko_wchar_t **wide);

#endif
