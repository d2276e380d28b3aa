// Making, loading, reading and freeing records: everything that knows all categories.
#ifndef KOVASETLC_LOAD_H
#define KOVASETLC_LOAD_H

#include "record/kovasetlc.h"

// The record (kovasetlc.cpp).
void init_koconv_t(koconv *conv);
bool is_error_record(const void *loc);
int hand_out_filer(ko_lc_t *result);             // stores the "no file" record; -1
void reset_category(kovaloc *loc, int category); // frees what a failed read left; keeps the error
void update_locale(kovaloc *loc);                // derives what depends on several categories
void free_locale(kovaloc *loc);                  // a record that nobody shares

// Loading (kovasetlc_load.cpp). dir may be NULL.
char *set_categories(kovaloc *loc, int category, const char *name, const char *dir);
void setting_value(const char *setting, int category, char *name);         // name has setting_room
char *join_path(const char *dir, const char *separator, const char *name); // a new string

// The list of shared locales (kovasetlc_share.cpp).
enum node_state { node_missing, node_in_use, node_dropped };
node_state give_back_node(const kovaloc *loc); // lowers the use count of a listed record

// Reading locale objects (kovasetlc_read.cpp).
int read_locale_file(text_in *in, kovaloc *loc);
void note_read_error(kovaloc *loc, void *stream); // of an open stream that was read
int read_file_header(text_in *in, char *codeset, object_facts *facts, int *error);
int read_ctype(text_in *in, kovaloc *loc);
void read_numeric(text_in *in, monum *m);
void read_monetary(text_in *in, monum *m);
int read_time(text_in *in, ltime *t, int *error);
void read_messages(text_in *in, monum *m);
int read_category(text_in *in, kovaloc *loc, int category); // the section after its marker

// Derived wide data (kovasetlc_info.cpp).
int init_locale_info(kovaloc *loc);
void fill_koconv(kovaloc *loc);
void free_koconv(koconv *conv);
void widen_koconv(kovaloc *loc);
void widen_names(kovaloc *loc);

#endif
