// Dates and times: the record of the LC_TIME category.
#ifndef KOVATMLIB_H
#define KOVATMLIB_H

#include "kova.h"

// A name of a calendar as a locale object writes it, newline included, by calendar number.
struct calendar_name {
    const char *name;
    const ko_wchar_t *w_name;
    int number;
};
extern const calendar_name calendar_names[4];

struct lera;     // a decoded era
struct wc_tnode; // a node of a name tree

struct ltime {
    int calendar;
    ko_mchar_t *abday[7]; // Sunday first
    ko_wchar_t *w_abday[7];
    ko_mchar_t *day[7];
    ko_wchar_t *w_day[7];
    int abmon_count;
    ko_mchar_t **abmon;
    ko_wchar_t **w_abmon;
    int mon_count;
    ko_mchar_t **mon;
    ko_wchar_t **w_mon;
    ko_mchar_t *d_t_fmt;
    ko_wchar_t *w_d_t_fmt;
    ko_mchar_t *d_fmt;
    ko_wchar_t *w_d_fmt;
    ko_mchar_t *t_fmt;
    ko_wchar_t *w_t_fmt;
    ko_mchar_t *am_pm[2];
    ko_wchar_t *w_am_pm[2];
    ko_mchar_t *t_fmt_ampm;
    ko_wchar_t *w_t_fmt_ampm;
    int era_count;
    ko_mchar_t **era; // definitions as the locale writes them
    ko_wchar_t **w_era;
    ko_mchar_t *era_info; // the definitions joined by ";", NULL without eras
    ko_wchar_t *w_era_info;
    ko_mchar_t *era_d_fmt;
    ko_wchar_t *w_era_d_fmt;
    ko_mchar_t *era_t_fmt;
    ko_wchar_t *w_era_t_fmt;
    ko_mchar_t *era_d_t_fmt;
    ko_wchar_t *w_era_d_t_fmt;
    int max_alt_digits;
    ko_mchar_t **alt_digits;
    ko_wchar_t **w_alt_digits;
    ko_mchar_t *alt_digits_info; // joined by ";", NULL without digits
    ko_wchar_t *w_alt_digits_info;
};

struct kovaloc;

// Frees what the record owns and clears it.
void free_ltime(ltime *t);
// Builds the joined strings and, where the record's code set is known, the wide form of every
// string anew. -1 without memory or when a string is no text of the code set (error word set).
int derive_ltime(kovaloc *loc);

#endif
