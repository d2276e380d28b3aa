// What the sources for reading times share: the fields that a format has set, and how they become a
// time.
#ifndef KOVATMLIB_PARSE_H
#define KOVATMLIB_PARSE_H

#include "time/kovatmlib.h"

// Bits of time_info::set.
enum : unsigned {
    seen_usec = 0x0001,
    seen_second = 0x0002,
    seen_minute = 0x0004,
    seen_hour12 = 0x0008,
    seen_ampm = 0x0010,
    seen_hour24 = 0x0020,
    seen_month_day = 0x0040,
    seen_week_day = 0x0080,
    seen_year_day = 0x0100,
    seen_mon = 0x0200,    // a month by its number
    seen_monidx = 0x0400, // a month by its name
    seen_era = 0x0800,
    seen_era_off = 0x1000,
    seen_century = 0x2000,
    seen_year_off = 0x4000,
    seen_full_year = 0x8000,
};
enum { year_full = 1, year_short = 2, year_of_era = 3 }; // time_info::year_type
enum { clock_24 = 1, clock_12 = 2 };                     // time_info::hour_type

inline bool same_name(const lera &one, const lera &other) {
    const ko_wchar_t *a = one.w_name, *b = other.w_name;
    if (a == b || !a || !b) return a == b;
    for (; *a && *a == *b; ++a)
        ++b;
    return *a == *b;
}

// Replaces in *tm what a format has read. 0; or the error number with *tm as it was.
int set_values(kovaloc *loc, time_info *ti, int algorithm, ko_tm_t *tm);

// Finds the century of a two-digit year. 0 or the error number.
int find_century(kovaloc *loc, int month, int day, int year, int algorithm, int *century);

#endif
