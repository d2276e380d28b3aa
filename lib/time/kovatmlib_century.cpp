// The century of two-digit years, and the date that counts as today.
#include "time/kovatmcvt.h"
#include "time/kovatmlib_parse.h"

#include <atomic>

namespace {
struct calendar_day {
    int year, month, day; // month from 1
};
} // namespace

// Set by the host, mainly for tests, under the state lock; if it is not set, the hook is asked.
static constinit calendar_day set_today = {};
static constinit std::atomic<bool> today_is_set = false;

void ko_set_current_time(int, const char *, int day, int month, int year) {
    const state_lock lock;
    set_today = {year, month, day};
    today_is_set.store(true, std::memory_order_relaxed);
}

void ko_reset_time(int, const char *) { today_is_set.store(false, std::memory_order_relaxed); }

static calendar_day get_today() {
    if (today_is_set.load(std::memory_order_relaxed)) {
        const state_lock lock;
        return set_today;
    }
    uint16_t mdy[3] = {};
    ko_ext_currdate(mdy); // without an answer the date is invalid
    return {mdy[2], mdy[0], mdy[1]};
}

// Days from 1 January 1 to 1 January of a year.
static int64_t days_before(int64_t year) {
    const int64_t past = year - 1;
    return past * 365 + past / 4 - past / 100 + past / 400;
}

// Computes the number of a day, 1 being 1 January 1900. 0 or the error number.
static int get_julian(int month, int day, int64_t year, int64_t *number) {
    static constexpr int lengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12) return KO_EMONTHRANGE;
    const bool leap_day = month == 2 && leap_year(int(year % 400));
    if (day < 1 || day > lengths[month - 1] + leap_day) return KO_EDAYRANGE;
    if (year < 1 || year > 9999) return KO_EYEARRANGE;
    *number = days_before(year) - days_before(1900) + gregorian_yearday(day, month - 1, year) + 1;
    return 0;
}

static int64_t distance(int64_t a, int64_t b) { return a < b ? b - a : a - b; }

// The century in which a date is closest to today, from the numbers of its days in the last
// century, this one and the next. If last and next century are equally far, the rule takes the
// earlier one.
static int closest(const int64_t (&date)[3], int64_t today, int century) {
    const int64_t last = distance(date[0], today), now = distance(date[1], today),
                  next = distance(date[2], today);
    if (now >= last) return next <= last ? century + 1 : century - 1;
    return now >= next ? century + 1 : century;
}

int find_century(kovaloc *loc, int month, int day, int year, int algorithm, int *century) {
    if (!is_gregorian(&loc->ltime_info)) {
        *century = ko_alt_getcentury(loc, month, day, year, algorithm);
        return 0;
    }
    if (year > 99) return *century = year / 100, 0;
    const calendar_day today = get_today();
    const int now = *century = today.year / 100;
    if (algorithm == 'R') return 0;
    int64_t date[3], today_number;
    for (int i = 0; i < 3; i++) {
        const int64_t in_year = int64_t{100} * (now - 1 + i) + year;
        const int error =
            get_julian(month ? month : today.month, day ? day : today.day, in_year, &date[i]);
        if (error) return error;
    }
    const int error = get_julian(today.month, today.day, today.year, &today_number);
    if (error) return error;
    // Today itself is neither in the future nor in the past.
    if (algorithm == 'C') *century = closest(date, today_number, now);
    if (algorithm == 'F' && date[1] <= today_number) *century = now + 1;
    if (algorithm == 'P' && date[1] >= today_number) *century = now - 1;
    return 0;
}

int ko_getcentury(ko_lc_t loc, int month, int day, int year, int algorithm) {
    if (!loc) return fail(loc, KO_ENULL, -1);
    int century;
    const int error = find_century(record(loc), month, day, year, algorithm, &century);
    return error ? fail(loc, error, -1) : century;
}
