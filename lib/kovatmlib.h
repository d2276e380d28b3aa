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

struct wc_tnode;    // a node of a name tree, see kovatree.h
struct quick_times; // names for the quick ways, see kovatmlib_quick.h

// A decoded era. Dates are of the locale's calendar, months from 1.
struct lera {
    int direction; // +1: years count forward from the start date; -1: backward
    int offset;    // the era year of the start date
    int start_day;
    int start_month;
    int start_year;
    int end_day;
    int end_month;
    int end_year;
    int end_time; // times direction above 0: the era has no end
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
    // Names by their wide characters, lower-cased; NULL: no names.
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

// The strings of the record, by the item that a host asks for them.
struct time_string {
    unsigned item;
    ko_mchar_t *ltime::*mbs;
    ko_wchar_t *ltime::*wcs;
};
extern const time_string time_strings[9];

struct kovaloc;

// Eras (kovatmlib_era.cpp).
int decode_eras(kovaloc *loc); // from ltime's definitions; 0, -1 with the error word set
void free_eras(ltime *t);
int current_era(const lera *eras, int count, const ko_alt_tm_t *tm); // -1: none
int check_bounds(const lera *era, int day, int month, int year);     // 0 within, else -1
int era_offset(const lera *eras, int index, const ko_alt_tm_t *tm);

// Names for the quick ways (kovatmlib_quick.cpp), by the finished trees; left out without memory.
void build_quick_times(kovaloc *loc);
void free_quick_times(ltime *t);

// Calendars (kovatmcvt.cpp): numbers of ltime::calendar.
enum { calendar_none = 0, calendar_gregorian = 1, calendar_hebrew = 2, calendar_islamic = 3 };
// 0 stands for a locale without times, whose dates are Gregorian.
inline bool is_gregorian(const ltime *t) {
    return t->calendar == calendar_gregorian || t->calendar == calendar_none;
}
bool leap_year(int year); // Gregorian

// The month index becomes the month.
inline void alt_from_tm(ko_alt_tm_t *alt, const ko_tm_t *tm) {
    *alt = {
        .alt_tm_usec = tm->tm_usec,
        .alt_tm_sec = tm->tm_sec,
        .alt_tm_min = tm->tm_min,
        .alt_tm_hour = tm->tm_hour,
        .alt_tm_mday = tm->tm_mday,
        .alt_tm_mon = tm->tm_mon,
        .alt_tm_monidx = tm->tm_mon,
        .alt_tm_year = tm->tm_year,
        .alt_tm_wday = tm->tm_wday,
        .alt_tm_yday = tm->tm_yday,
        .alt_tm_isdst = tm->tm_isdst,
        .alt_tm_zone = tm->tm_zone,
        .alt_tm_gmtoff = tm->tm_gmtoff,
    };
}
void tm_from_alt(ko_tm_t *tm, const ko_alt_tm_t *alt);

constexpr int format_depth_max = 8; // formats inside formats

// Frees what the record owns and clears it.
void free_ltime(ltime *t);
// Builds the joined strings and, where the record's code set is known, the wide form of every
// string anew. -1 without memory or when a string is no text of the code set (error word set).
int derive_ltime(kovaloc *loc);

#endif
