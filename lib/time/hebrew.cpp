// The Hebrew calendar: years of 12 or 13 months that begin near the mean new moon of Tishri, in
// cycles of 19 years. A leap year has a first and a second Adar in the places 5 and 6, whose names
// come after the twelve of a common year.
#include "time/kovatmcvt.h"

namespace {

// Cycle years count from a year 1 that is year 3745 of the calendar, 16 years before 1 January 1.
constexpr int64_t cycle_start = 3744;
constexpr int64_t gregorian_offset = 16;
constexpr int64_t year_limit = 14214;
constexpr int64_t winter_days = 236; // Shevat or, in a leap year, Adar to Elul
constexpr int64_t longest_common = 355, shortest_leap = 383;
constexpr int64_t longest_year = 385;
constexpr int64_t adar_index = 5, adar1_index = 12, adar2_index = 13;

// Time is counted in parts of a day. A month is 28 days and 39673 parts.
constexpr int64_t day_parts = 25920, week_parts = 7 * day_parts;
constexpr int64_t month_parts = 39673, first_month_parts = 8339;

// The first four months last 117 to 119 days, depending on whether the year is deficient, regular
// or complete.
int64_t autumn_days(int64_t year_length) { return year_length % 10 + 114; }

int64_t year_length(int64_t cycle_year) {
    return hebrew_size_in_days(cycle_year + 1) - hebrew_size_in_days(cycle_year);
}

// The place of a month in its year by the index of its name; -1 where the year has no such month.
int64_t month_of_index(int64_t index, int64_t length) {
    if (length <= longest_common) return index > 11 ? -1 : index;
    if (index > adar2_index) return -1;
    if (index >= adar1_index) return index - adar1_index + 5;
    return index > adar_index ? index + 1 : index;
}

// Converts the number t of a day in its year, from 0, to month, name and day.
void split_year(int64_t t, int64_t length, calendar_date *to) {
    if (t < length - winter_days) {
        const int64_t autumn = autumn_days(length);
        to->month = to->index = 4 * t / autumn;
        to->day = t - (to->month * autumn + 3) / 4 + 1;
        return;
    }
    const int64_t u = t - (length - winter_days), k = 2 * u / 59;
    const bool leap = length >= shortest_leap;
    to->day = u - (59 * k + 1) / 2 + 1;
    to->month = k + (leap ? 5 : 4);
    to->index = k + 4;
    if (leap && to->index < 6) to->index += 8;
}

} // namespace

// The new year is postponed by a day if the new moon falls late on a Tuesday or, after a leap year,
// on a Monday, because a year would otherwise have 356 or 382 days; and it never begins on a
// Sunday, Wednesday or Friday.
int64_t hebrew_size_in_days(int64_t cycle_year) {
    const int64_t a = 7 * cycle_year + 1;
    const int64_t months = a / 19 + 12 * cycle_year, leap = a % 19;
    const int64_t parts = months * month_parts + first_month_parts; // passes 2^32 in 12497
    const int64_t rest = parts % week_parts;
    const int64_t weekday = rest / day_parts, time = rest % day_parts;
    const bool late =
        (leap < 12 && weekday == 3 && time >= 16404) || (leap < 7 && weekday == 2 && time >= 23269);
    const int64_t begins = weekday + late;
    const bool barred = begins == 1 || begins == 4 || begins == 6;
    return parts / day_parts + 28 * months - 2 + late + barred;
}

bool gregorian_to_hebrew(const calendar_date &from, calendar_date *to) {
    if (!not_before(from, 1, 0, 1) || not_before(from, 10000, 1, 24)) return false;
    if (from.month < 0 || from.month > 11) return false;
    // January and February belong to the year that began in the March before.
    const bool early = from.month < 2;
    const int64_t year = early ? from.year - 1 : from.year;
    const int64_t month = early ? from.month + 11 : from.month - 1;
    const int64_t days =
        365 * year + year / 4 - year / 100 + year / 400 + 367 * month / 12 + from.day + 5970;
    int64_t cycle_year = year + gregorian_offset;
    if (from.day > longest_year) cycle_year += from.day / (longest_year + 1); // far ahead
    int64_t start = hebrew_size_in_days(cycle_year), next = hebrew_size_in_days(cycle_year + 1);
    while (next <= days) {
        start = next;
        next = hebrew_size_in_days(++cycle_year + 1);
    }
    to->year = cycle_year + cycle_start;
    to->weekday = (days + 1) % 7;
    to->yearday = days - start;
    split_year(to->yearday, next - start, to);
    return to->month >= 0;
}

bool hebrew_to_gregorian(const calendar_date &from, calendar_date *to) {
    if (from.year < 3761 || from.year >= year_limit) return false;
    const int64_t cycle_year = from.year - cycle_start, length = year_length(cycle_year);
    calendar_date date = from;
    if (date.month == -1) date.month = month_of_index(date.index, length);
    if (date.month < 0 || date.month > 12 || !not_before(date, 3761, 3, 18)) return false;
    // At first as if Heshvan had 29 and Kislev 30 days.
    const int64_t month = date.month;
    int64_t days = date.day + hebrew_size_in_days(cycle_year) - 6002;
    if (length >= shortest_leap && month >= 6)
        days += (58 * (month - 1) + month) / 2 + 30;
    else
        days += (59 * month + 1) / 2;
    if (length % 10 >= 5 && month >= 2) days++;
    if (length % 10 < 4 && month >= 3) days--;
    int64_t year, yearday; // of a year that begins with March
    if (!split_days(days, &year, &yearday)) return false;
    const int64_t n = 4 * (3 * yearday + 735) / 367;
    const bool next_year = n - 6 >= 12;
    to->year = next_year ? year : year - 1;
    to->month = to->index = next_year ? n - 18 : n - 6;
    to->day = yearday - ((368 * (n - 7) + (7 - n)) / 12 - 30) + 1;
    to->weekday = gregorian_weekday(to->day, to->month, to->year);
    to->yearday = gregorian_yearday(to->day, to->month, to->year);
    return true;
}
