// Dates and times: the data of LC_TIME.
#ifndef KOVATMLIB_DATA_H
#define KOVATMLIB_DATA_H

#include "kova.h"

struct wc_tnode;    // a node of a name tree, see kovatree.h
struct quick_times; // names for the quick ways, see kovatmlib_quick.h

// A decoded era. Dates are in the locale's calendar, with months from 1.
struct lera {
    int direction; // +1: years count forward from the start date; -1: backward
    int offset;    // the era year of the start date
    int start_day;
    int start_month;
    int start_year;
    int end_day;
    int end_month;
    int end_year;
    int end_time; // if end_time * direction > 0, the era has no end
    ko_mchar_t *name;
    ko_mchar_t *abbr;
    ko_mchar_t *format;
    ko_wchar_t *w_format;
    ko_wchar_t *w_name;
    ko_wchar_t *w_abbr;
};

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
    lera *decode_era; // era_count definitions taken apart
    // Trees of names by their lower-cased wide characters; NULL: no names.
    wc_tnode *abbr_day_cache;
    wc_tnode *full_day_cache;
    wc_tnode *abbr_mon_cache;
    wc_tnode *full_mon_cache;
    wc_tnode *abbr_era_cache;
    wc_tnode *full_era_cache;
    wc_tnode *alt_digits_cache;
    wc_tnode *ampm_cache;
    quick_times *quick;   // NULL: the engine writes and reads everything
    wc_tnode *name_nodes; // the block of all their nodes
};

// The strings of the record, by the item under which a host asks for them.
struct time_string {
    unsigned item;
    ko_mchar_t *ltime::*mbs;
    ko_wchar_t *ltime::*wcs;
};
extern const time_string time_strings[9];

#endif
