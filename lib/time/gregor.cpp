// The Gregorian calendar, extended back beyond its introduction.
#include "time/kovatmcvt.h"
#include "time/kovatmlib.h"

static constexpr int greg_month_length[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
static constexpr int64_t february = 1;

static bool leap(int64_t year) { return leap_year(int(year)); }

bool not_before(const calendar_date &date, int64_t year, int64_t month, int64_t day) {
    if (date.year != year) return date.year > year;
    return date.month != month ? date.month > month : date.day >= day;
}

int64_t gregorian_yearday(int64_t day, int64_t month, int64_t year) {
    int64_t yearday = day - 1;
    for (int64_t m = 0; m < month; m++)
        yearday += greg_month_length[m];
    return month > february && leap(year) ? yearday + 1 : yearday;
}

int64_t gregorian_weekday(int64_t day, int64_t month, int64_t year) {
    const int64_t past = year - 1;
    const int64_t days = past * 365 + past / 4 - past / 100 + past / 400;
    return (days + gregorian_yearday(day, month, year) + 1) % 7;
}

// 146097 days are 400 years, 36524 a century without its last leap day, 1461 four years.
bool split_days(int64_t days, int64_t *year, int64_t *yearday) {
    if (days < 0) return false;
    const int64_t centuries = (4 * days + 146100) / 146097 - 1;
    const int64_t rest = days - (146097 * (centuries / 4) + 36524 * (centuries % 4));
    const int64_t years = (4 * rest + 1464) / 1461 - 1;
    *year = 100 * centuries + years + 1;
    *yearday = rest - (1461 * (years / 4) + 365 * (years % 4));
    return true;
}

bool gregorian_from_days(int64_t days, calendar_date *to) {
    int64_t year, yearday;
    if (!split_days(days, &year, &yearday)) return false;
    int64_t month = 0, day = yearday + 1;
    for (; month < 11; month++) {
        const int64_t length = greg_month_length[month] + (month == february && leap(year));
        if (length >= day) break;
        day -= length;
    }
    *to = {year, month, month, day, gregorian_weekday(day, month, year), yearday};
    return true;
}
