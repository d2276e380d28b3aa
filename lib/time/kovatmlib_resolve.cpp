// From the fields that a format has read to a time: hour, month, year, and the calendar.
#include "time/kovatmlib_parse.h"

#include <limits.h>
#include <string.h>

namespace {
// The fields of either kind of record.
struct time_fields {
    ko_long_t *usec;
    int *sec, *min, *hour, *mday, *wday, *yday;
};
} // namespace
static inline time_fields fields_of(ko_tm_t *tm) {
    return {&tm->tm_usec, &tm->tm_sec,  &tm->tm_min, &tm->tm_hour,
            &tm->tm_mday, &tm->tm_wday, &tm->tm_yday};
}
static inline time_fields fields_of(ko_alt_tm_t *tm) {
    return {&tm->alt_tm_usec, &tm->alt_tm_sec,  &tm->alt_tm_min, &tm->alt_tm_hour,
            &tm->alt_tm_mday, &tm->alt_tm_wday, &tm->alt_tm_yday};
}

static inline void set_clock(const time_info &ti, const time_fields &tm) {
    if (ti.set & seen_usec) *tm.usec = ti.usec;
    if (ti.set & seen_second) *tm.sec = ti.second;
    if (ti.set & seen_minute) *tm.min = ti.minute;
    if (ti.hour_type == clock_12 && ti.set & seen_hour12) {
        // Without morning or afternoon the hour stays as read, 12 included.
        *tm.hour = ti.set & seen_ampm ? ti.hour12 % 12 + 12 * ti.ampm : ti.hour12;
    } else if (ti.set & seen_hour24) {
        *tm.hour = ti.hour24;
    }
}

static inline void set_days(const time_info &ti, const time_fields &tm) {
    if (ti.set & seen_year_day) *tm.yday = ti.year_day;
    if (ti.set & seen_month_day) *tm.mday = ti.month_day;
    if (ti.set & seen_week_day) *tm.wday = ti.week_day;
}

// In the Gregorian calendar the name and the number of a month determine each other.
static inline void complete_month(time_info *ti) {
    constexpr unsigned both = seen_mon | seen_monidx;
    const unsigned seen = ti->set & both;
    if (!seen) return;
    if (seen == seen_monidx) ti->mon = ti->monidx;
    if (seen == seen_mon) ti->monidx = ti->mon;
    ti->set |= both;
}

// In other calendars the missing one is -1, and conversion finds it.
static void set_month(const time_info &ti, ko_alt_tm_t *tm) {
    if (!(ti.set & (seen_mon | seen_monidx))) return;
    tm->alt_tm_mon = ti.set & seen_mon ? ti.mon : -1;
    tm->alt_tm_monidx = ti.set & seen_monidx ? ti.monidx : -1;
}

// ---- Years ----

// Does the date that was read lie within the era? *year gets its year in the calendar.
static bool year_in_era(const lera &era, const time_info &ti, int *year) {
    const int64_t d = era.direction, month = ti.mon + 1;
    const int64_t of_era = ti.set & seen_era_off ? ti.era_off : 1;
    int64_t found = d * (of_era - era.offset) + era.start_year;
    const int64_t months = d * (month - era.start_month), days = d * (ti.month_day - era.start_day);
    if (months < 0 || (months == 0 && days < 0)) found += d; // before the anniversary
    if (found < -INT_MAX / 2 || found > INT_MAX / 2) return false;
    *year = int(found);
    return check_bounds(&era, ti.month_day, int(month), *year) == 0;
}

// *decided tells whether an era decides the year. An error number if one was read and no era of its
// name contains the date.
static int era_year(const ltime *t, const time_info &ti, bool *decided, int *year) {
    constexpr unsigned needed = seen_era | seen_mon | seen_month_day;
    *decided = (ti.set & needed) == needed;
    if (!*decided) return 0;
    const lera &named = t->decode_era[ti.era];
    for (int i = ti.era; i >= 0; i--) {
        const lera &era = t->decode_era[i];
        int found;
        if ((i == ti.era || same_name(era, named)) && year_in_era(era, ti, &found)) {
            *year = found - 1900;
            return 0;
        }
    }
    return KO_EERA;
}

static int short_year(kovaloc *loc, const time_info &ti, int algorithm, int *year) {
    const int month = ti.set & seen_mon ? ti.mon + 1 : ti.set & seen_monidx ? ti.monidx + 1 : 1;
    const int day = ti.set & seen_month_day ? ti.month_day : 1;
    int century;
    const int error = find_century(loc, month, day, ti.year_off, algorithm, &century);
    if (error) return error;
    if (century < 0) return KO_EYEARRANGE;
    *year = century * 100 + ti.year_off - 1900;
    return 0;
}

// Finds the year if no full year was read, or if something else concerning the year was read after
// it.
[[gnu::noinline]] static int other_year(kovaloc *loc, const time_info &ti, int algorithm,
                                        int *year) {
    if (ti.year_type == year_of_era) {
        bool decided;
        const int error = era_year(&loc->ltime_info, ti, &decided, year);
        if (decided) return error;
    }
    constexpr unsigned both = seen_century | seen_year_off;
    // Two digits read last take precedence over a full year read earlier.
    if (ti.set & seen_full_year && !(ti.year_type == year_short && ti.set & seen_year_off)) {
        *year = ti.full_year;
    } else if ((ti.set & both) == both) {
        *year = ti.century * 100 + ti.year_off - 1900;
    } else if (ti.set & seen_year_off) {
        return short_year(loc, ti, algorithm, year);
    } else if (ti.set & seen_century) {
        *year = ti.century * 100 - 1900;
    }
    return 0;
}

static inline int set_year(kovaloc *loc, const time_info &ti, int algorithm, int *year) {
    if (ti.year_type != year_full) return other_year(loc, ti, algorithm, year);
    *year = ti.full_year;
    return 0;
}

// ---- Calendars ----

// Replaces the fields of the caller's date that were read, in the locale's calendar. A caller's
// date outside that calendar cannot supply the fields that were not read.
static int set_local_date(kovaloc *loc, const time_info &ti, int algorithm, ko_alt_tm_t *tm) {
    constexpr unsigned month = seen_mon | seen_monidx;
    constexpr unsigned year = seen_full_year | seen_year_off | seen_century;
    if (!(ti.set & (seen_month_day | month | year | seen_era))) {
        set_days(ti, fields_of(tm));
        return 0;
    }
    ko_alt_tm_t local;
    if (ko_cal_gregorian_to_local(loc, tm, &local)) {
        const bool has_year = ti.set & year || (ti.set & seen_era && ti.set & seen_mon);
        if (!(ti.set & seen_month_day && ti.set & month && has_year)) return KO_EYEARRANGE;
        local = *tm;
    }
    set_days(ti, fields_of(&local));
    set_month(ti, &local);
    const int error = set_year(loc, ti, algorithm, &local.alt_tm_year);
    if (error) return error;
    return ko_cal_local_to_gregorian(loc, &local, tm) ? KO_EYEARRANGE : 0;
}

[[gnu::noinline]] static int set_local_values(kovaloc *loc, const time_info &ti, int algorithm,
                                              ko_tm_t *tm) {
    ko_alt_tm_t alt;
    alt_from_tm(&alt, tm);
    set_clock(ti, fields_of(&alt));
    const int error = set_local_date(loc, ti, algorithm, &alt);
    if (!error) tm_from_alt(tm, &alt);
    return error;
}

int set_values(kovaloc *loc, time_info *ti, int algorithm, ko_tm_t *tm) {
    if (!is_gregorian(&loc->ltime_info)) return set_local_values(loc, *ti, algorithm, tm);
    complete_month(ti);
    const int error = set_year(loc, *ti, algorithm, &tm->tm_year); // stores nothing on an error
    if (error) return error;
    if (ti->set & seen_mon) tm->tm_mon = ti->mon;
    set_clock(*ti, fields_of(tm));
    set_days(*ti, fields_of(tm));
    return 0;
}
