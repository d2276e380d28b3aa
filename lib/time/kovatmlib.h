// Dates and times: eras, calendars, and what is derived from LC_TIME.
#ifndef KOVATMLIB_H
#define KOVATMLIB_H

#include "record/kovasetlc.h"

// The name of a calendar as a locale object spells it, newline included, and its number.
struct calendar_name {
    const char *name;
    const ko_wchar_t *w_name;
    int number;
};
extern const calendar_name calendar_names[4];

// Eras (kovatmlib_era.cpp).
int decode_eras(kovaloc *loc); // from ltime's definitions; 0, -1 with the error word set
void free_eras(ltime *t);
int current_era(const lera *eras, int count, const ko_alt_tm_t *tm); // -1: none
int check_bounds(const lera *era, int day, int month, int year);     // 0 inside the era, else -1
int era_offset(const lera *eras, int index, const ko_alt_tm_t *tm);

// Names for the quick ways (kovatmlib_quick.cpp), built after the trees; absent without memory.
void build_quick_times(kovaloc *loc);
void free_quick_times(ltime *t);

// Calendars (kovatmcvt.cpp): numbers of ltime::calendar.
enum { calendar_none = 0, calendar_gregorian = 1, calendar_hebrew = 2, calendar_islamic = 3 };
// A locale without times has number 0, and its dates are Gregorian.
inline bool is_gregorian(const ltime *t) {
    return t->calendar == calendar_gregorian || t->calendar == calendar_none;
}
bool leap_year(int year); // Gregorian

// Makes the working form; the month's index is the month.
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
// Rebuilds the joined strings and, if the record's code set is known, the wide form of every
// string. -1 without memory or if a string is not text in the code set (error word set).
int derive_ltime(kovaloc *loc);

#endif
