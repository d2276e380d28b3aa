// Dates of a calendar and their conversion to another: what the calendars' sources share.
#ifndef KOVATMCVT_H
#define KOVATMCVT_H

#include <stdint.h>

// 64 bits wide, because days of the month are not checked: day 40 lies in the next month.
struct calendar_date {
    int64_t year;    // of the calendar itself
    int64_t month;   // place in the year, from 0
    int64_t index;   // of its name; differs from the place in the leap years of the Hebrew calendar
    int64_t day;     // from 1
    int64_t weekday; // 0 is Sunday
    int64_t yearday; // from 0
};

// Is a date the same as or later than year, month and day?
bool not_before(const calendar_date &date, int64_t year, int64_t month, int64_t day);

// The Gregorian calendar, without the gap in 1582 (gregor.cpp). Months 0..11.
int64_t gregorian_yearday(int64_t day, int64_t month, int64_t year);
int64_t gregorian_weekday(int64_t day, int64_t month, int64_t year);
// Converts days after the start of a year 1 to a year and a day of the year from 0, where every
// fourth year is a leap year. The year may begin with March, since the leap day is its last day
// then, too.
bool split_days(int64_t days, int64_t *year, int64_t *yearday);
// Converts the number of a day, 0 being 1 January 1, to a date. False for a number below 0.
bool gregorian_from_days(int64_t days, calendar_date *to);

// Each takes year, month (for local dates the index if month is -1) and day. False for a date
// outside the range of the conversion and for a month that the calendar lacks.
bool gregorian_to_hebrew(const calendar_date &from, calendar_date *to); // hebrew.cpp
bool hebrew_to_gregorian(const calendar_date &from, calendar_date *to);
bool gregorian_to_islamic(const calendar_date &from, calendar_date *to); // islamic.cpp
bool islamic_to_gregorian(const calendar_date &from, calendar_date *to);

// The number of the day before the start of a year of the Hebrew calendar; years count from 3744.
int64_t hebrew_size_in_days(int64_t cycle_year);
int64_t islamic_weekday(int64_t day, int64_t month, int64_t year);

#endif
