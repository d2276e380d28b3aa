// The Islamic calendar by its cycle of 30 years, of which 11 have 355 days and the others 354. Its
// first day is Thursday, 18 July 622.
#include "time/kovatmcvt.h"

static constexpr int64_t cycle_days = 10631;
static constexpr int64_t days_before = 227013; // of the Gregorian calendar, from 1 January 1

static constexpr int cycle_year_length[30] = {
    354, 355, 354, 354, 355, 354, 355, 354, 354, 355, 354, 354, 355, 354, 354,
    355, 354, 355, 354, 354, 355, 354, 354, 355, 354, 355, 354, 354, 355, 354,
};

// Days of the calendar before a date; day, month and year count from 1.
static int64_t days_until(int64_t day, int64_t month, int64_t year) {
    int64_t days = (year - 1) / 30 * cycle_days + (59 * month + 1) / 2 + day - 1;
    for (int64_t y = 0; y < (year - 1) % 30; y++)
        days += cycle_year_length[y];
    return days;
}

int64_t islamic_weekday(int64_t day, int64_t month, int64_t year) {
    return (days_until(day, month, year) + 4) % 7;
}

bool gregorian_to_islamic(const calendar_date &from, calendar_date *to) {
    if (!not_before(from, 622, 6, 18) || not_before(from, 10323, 9, 21)) return false;
    if (from.month < 0 || from.month > 11) return false;
    const int64_t past = from.year - 1;
    const int64_t days = past * 365 + past / 4 - past / 100 + past / 400 +
                         gregorian_yearday(from.day, from.month, from.year) - days_before;
    if (days < 0) return false;
    int64_t year = 30 * (days / cycle_days) + 1, rest = days % cycle_days;
    for (int y = 0; cycle_year_length[y] <= rest; y++, year++)
        rest -= cycle_year_length[y];
    int64_t month = 2 * rest / 59, day = rest - (59 * month + 1) / 2 + 1;
    if (month == 12) month = 11, day = 30; // the additional day of a leap year
    *to = {year, month, month, day, islamic_weekday(day, month, year), rest};
    return true;
}

bool islamic_to_gregorian(const calendar_date &from, calendar_date *to) {
    calendar_date date = from;
    if (date.month == -1) date.month = date.index;
    if (date.month < 0 || date.month > 11) return false;
    if (!not_before(date, 1, 0, 1) || date.year > 9999) return false;
    return gregorian_from_days(days_until(date.day, date.month, date.year) + days_before, to);
}
