// The calendars of locales against models of their own, every day of their ranges.
#include "time/time_records.h"

#include <chrono>

namespace {

enum calendar_number { gregorian = 1, hebrew = 2, islamic = 3, arabic = 4 };

struct date {
    int year, mon, idx, day; // months from 0
    bool operator==(const date &) const = default;
};
void PrintTo(const date &d, std::ostream *out) {
    *out << d.year << "/" << d.mon << "(" << d.idx << ")/" << d.day;
}

// The models count days from 0, the last day of the year before 1 January 1.
using day_number = long long;

// Hebrew years by the mean new moon of their first month and the rules of the first day.
day_number hebrew_elapsed(day_number year) {
    const day_number months = (235 * year - 234) / 19;
    const day_number day = 29 * months + (12084 + 13753 * months) / 25920;
    return (3 * (day + 1)) % 7 < 3 ? day + 1 : day;
}
day_number hebrew_new_year(day_number year) {
    const day_number before = hebrew_elapsed(year - 1), at = hebrew_elapsed(year);
    const day_number delay = hebrew_elapsed(year + 1) - at == 356 ? 2 : at - before == 382 ? 1 : 0;
    return -1373427 + at + delay;
}
bool hebrew_leap(int year) { return (7 * year + 1) % 19 < 7; }
int hebrew_month_length(int year, int index) {
    const day_number days = hebrew_new_year(year + 1) - hebrew_new_year(year);
    if (index == 1) return days % 10 == 5 ? 30 : 29;
    if (index == 2) return days % 10 == 3 ? 29 : 30;
    static constexpr int lengths[] = {30, 0, 0, 29, 30, 29, 30, 29, 30, 29, 30, 29, 30, 29};
    return lengths[index];
}
bool islamic_leap(int year) { return (14 + 11 * year) % 30 < 11; }
int islamic_month_length(int year, int index) {
    return index == 11 && islamic_leap(year) ? 30 : 30 - index % 2;
}

// The next day of a calendar.
struct walker {
    int calendar;
    date at;
    int yday;
    int length = month_length();
    int month_length() const {
        return calendar == hebrew ? hebrew_month_length(at.year, at.idx)
                                  : islamic_month_length(at.year, at.idx);
    }
    void next() {
        yday++;
        if (++at.day <= length) return;
        at.day = 1;
        at.mon++;
        const bool leap = calendar == hebrew && hebrew_leap(at.year);
        if (at.mon == (leap ? 13 : 12)) {
            at.year++;
            at.mon = yday = 0;
        }
        at.idx = !leap || at.mon < 5 ? at.mon : at.mon < 7 ? at.mon + 7 : at.mon - 1;
        length = month_length();
    }
};

// The time 02:03:04.000005 of summer in a zone, and days of the week and year that no result keeps.
ko_alt_tm_t record_of(const date &d) {
    return {5, 4, 3, 2, d.day, d.mon, d.idx, d.year - 1900, -9, -9, 1, "zone", 6};
}
date date_of(const ko_alt_tm_t &t) {
    return {t.alt_tm_year + 1900, t.alt_tm_mon, t.alt_tm_monidx, t.alt_tm_mday};
}
bool is_clear(const ko_alt_tm_t &t) {
    return date_of(t) == date{1900, 0, 0, 0} && !t.alt_tm_usec && !t.alt_tm_hour &&
           !t.alt_tm_zone && !t.alt_tm_wday && !t.alt_tm_yday && !t.alt_tm_isdst;
}

struct calendar_loc : own_record {
    explicit calendar_loc(int calendar) { (*this)->ltime_info.calendar = calendar; }
    // The date in the other calendar; {} of a failure, which clears the record.
    date convert(bool back, const date &d, ko_alt_tm_t *out) const {
        *out = record_of(d);
        const int status = back ? ko_cal_local_to_gregorian(handle, out, out)
                                : ko_cal_gregorian_to_local(handle, out, out);
        if (status == 0) return date_of(*out);
        EXPECT_TRUE(status == -1 && is_clear(*out)) << testing::PrintToString(d);
        return {};
    }
    date to_local(const date &d, ko_alt_tm_t *out) const { return convert(false, d, out); }
    date to_gregorian(const date &d, ko_alt_tm_t *out) const { return convert(true, d, out); }
};

// Gregorian days by their numbers.
struct gregorian_day {
    std::chrono::sys_days at;
    std::chrono::year_month_day ymd{at};
    explicit gregorian_day(day_number number) : at(std::chrono::days(number - 719163)) {}
    date value() const {
        const int month = int(unsigned{ymd.month()}) - 1;
        return {int(ymd.year()), month, month, int(unsigned{ymd.day()})};
    }
    int yday() const { return int((at - std::chrono::sys_days(ymd.year() / 1 / 1)).count()); }
};
day_number number_of(int year, unsigned month, unsigned day) {
    const std::chrono::sys_days at =
        std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
    return at.time_since_epoch().count() + 719163;
}

// A calendar's days from the first Gregorian day to the last that converts, and on until a local
// date fails to come back.
void compare_all_days(walker local, day_number first, day_number last) {
    const calendar_loc loc(local.calendar);
    const day_number recent = number_of(1900, 1, 1), recent_end = number_of(2101, 1, 1);
    ko_alt_tm_t out;
    for (day_number n = first;; n++, local.next()) {
        // Every third day meets all weekdays, months and kinds of year many times over.
        if (n % 3 && n > first && n < last && (n < recent || n >= recent_end)) continue;
        const gregorian_day day(n);
        const date g = day.value(), back = loc.to_gregorian(local.at, &out);
        if (n > last && back == date{}) break;
        const int wday = int(n % 7);
        ASSERT_EQ(back, g) << testing::PrintToString(local.at);
        const date by_name = {local.at.year, -1, local.at.idx, local.at.day};
        ASSERT_EQ(loc.to_gregorian(by_name, &out), g) << testing::PrintToString(by_name);
        ASSERT_TRUE(out.alt_tm_wday == wday && out.alt_tm_yday == day.yday()) << g.year;
        const date there = loc.to_local(g, &out);
        ASSERT_EQ(there, n > last ? date{} : local.at) << testing::PrintToString(g);
        if (n > last) continue;
        ASSERT_TRUE(out.alt_tm_wday == wday && out.alt_tm_yday == local.yday) << g.year;
    }
}

} // namespace

TEST(Calendars, HebrewDaysFollowMoonAndRulesOverTheWholeRange) {
    const date tevet = {3761, 3, 3, 18};
    const walker first = {hebrew, tevet, int(1 - hebrew_new_year(3761))};
    compare_all_days(first, number_of(1, 1, 1), number_of(10000, 2, 23));
}

TEST(Calendars, IslamicDaysFollowTheCycleOverTheWholeRange) {
    const date muharram = {1, 0, 0, 1};
    const walker first = {islamic, muharram, 0};
    compare_all_days(first, number_of(622, 7, 18), number_of(10323, 10, 20));
}

// Calendar, ">" to it or "<" back, a date with both numbers of its month, and what becomes of it:
// nothing where it fails. The first days and the last, and those after them, are in the walks
// above.
TEST(Calendars, DatesOutsideTheRangeFailAndClearTheResult) {
    for (const std::string &row :
         split("1>2024 40 -3 99 = 2024 40 -3 99|2>2024 12 0 1|2>2147483647 0 0 1|"
               "2>2024 5 5 2147483647 = 5885325 7 7 24|2<3761 3 3 17|2<14214 0 0 1|2<5783 13 0 1|"
               "2<5783 -1 12 1|2<5784 -1 12 21 = 2024 2 2 1|2<5784 -1 14 1|2<5784 -1 -1 1|"
               "2<5784 0 0 40 = 2023 9 9 25|2<5784 0 0 -2147483648|3>622 6 6 17|"
               "3>2000 0 0 -2147483648|3>2024 5 5 2147483647 = 6061506 11 11 24|3>2000 12 0 1|"
               "3<0 11 11 29|3<10000 0 0 1|3<1420 -1 -1 1|3<1420 -1 8 25 = 2000 0 0 1|"
               "3<1420 -1 12 1|3<-2147481748 0 0 -2147483648|4>2000 0 0 1|4<1420 8 8 25|"
               "0>2000 0 0 1|-1<2000 0 0 1")) {
        int calendar = 0;
        char way = 0;
        date d = {}, want = {};
        sscanf(row.c_str(), "%d%c%d%d%d%d = %d%d%d%d", &calendar, &way, &d.year, &d.mon, &d.idx,
               &d.day, &want.year, &want.mon, &want.idx, &want.day);
        ko_alt_tm_t out;
        EXPECT_EQ(calendar_loc(calendar).convert(way == '<', d, &out), want) << row;
    }
}

TEST(Calendars, TimesAreCopiedAndCenturiesFixed) {
    static constexpr int centuries[] = {0, 0, 57, 14, 0};
    for (int calendar = 0; calendar < 5; calendar++) {
        const calendar_loc loc(calendar);
        EXPECT_EQ(ko_alt_getcentury(loc, 99, -1, 5, 'Q'), centuries[calendar]);
        const ko_alt_tm_t from = record_of({2024, 1, 1, 29});
        ko_alt_tm_t to = from;
        to.alt_tm_zone = "";
        if (!ko_cal_gregorian_to_local(loc, &from, &to)) {
            EXPECT_TRUE(to.alt_tm_usec == 5 && to.alt_tm_sec == 4 && to.alt_tm_min == 3 &&
                        to.alt_tm_hour == 2 && to.alt_tm_isdst == 1 && to.alt_tm_gmtoff == 6);
            EXPECT_STREQ(to.alt_tm_zone, "zone");
        }
    }
    EXPECT_EQ(ko_alt_getcentury(nullptr, 1, 1, 1, 'C'), 0);
}
