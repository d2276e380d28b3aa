// Dates of one calendar and their way into another: what the calendars' sources share.
#ifndef KOVATMCVT_H
#define KOVATMCVT_H

#include <stdint.h>

// Of 64 bits, because days of the month are taken as they come: day 40 lies in the next month.
struct calendar_date {
    int64_t year;    // of the calendar itself
    int64_t month;   // its place in the year, from 0
    int64_t index;   // of its name; differs from the place in the leap years of the Hebrew calendar
    int64_t day;     // from 1
    int64_t weekday; // 0 is Sunday
    int64_t yearday; // from 0
};

// Whether one date of a calendar is not before another; by year, month and day.
bool not_before(const calendar_date &date, int64_t year, int64_t month, int64_t day);

// The Gregorian calendar, without gap in 1582 (gregor.cpp). Months 0..11.
int64_t gregorian_yearday(int64_t day, int64_t month, int64_t year);
int64_t gregorian_weekday(int64_t day, int64_t month, int64_t year);
// Days after the start of a year 1 to year and day of the year from 0, where every fourth year is
// the longer one. The year may begin with March: its last day is then the added one, too.
bool split_days(int64_t days, int64_t *year, int64_t *yearday);
// A day by its number, 0 being 1 January 1. False for a number below.
bool gregorian_from_days(int64_t days, calendar_date *to);

// Each takes year, month (of local dates index where month is -1) and day. False for a date outside
// the range of the conversion and a month that its calendar does not have.
bool gregorian_to_hebrew(const calendar_date &from, calendar_date *to); // hebrew.cpp
bool hebrew_to_gregorian(const calendar_date &from, calendar_date *to);
bool gregorian_to_islamic(const calendar_date &from, calendar_date *to); // islamic.cpp
bool islamic_to_gregorian(const calendar_date &from, calendar_date *to);

// The number of the day before which a year of the Hebrew calendar begins; years from 3744.
int64_t hebrew_size_in_days(int64_t cycle_year);
int64_t islamic_weekday(int64_t day, int64_t month, int64_t year);

#endif
