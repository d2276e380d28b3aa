// From the fields that were read to a date, with a check of every field.
#include <algorithm>
#include <cstdlib>
#include <optional>

#include "kova/kova_era.h"
#include "kova/kova_reading.h"
#include "kova/kova_when.h"

namespace kovacli {
namespace {

using std::chrono::days;
using std::chrono::sys_days;

struct resolver {
    const date_setting &setting;
    const read_fields &fields;
    const time_info &info;
    ko_alt_tm_t today;               // in the locale's calendar
    std::vector<std::string> filled; // fields that are today's
    read_date result;
};

bool has(const resolver &r, unsigned bits) { return r.info.set & bits; }

// ---- calendars ----

std::optional<ko_alt_tm_t> to_local(const date_setting &setting, sys_days day) {
    const ko_alt_tm_t alt = alt_of(day);
    ko_alt_tm_t local;
    if (ko_cal_gregorian_to_local(setting.code.loc, &alt, &local) != 0) return {};
    return local;
}

// The day of a date in the locale's calendar; none if there is no such date.
std::optional<sys_days> to_day(const date_setting &setting, const ko_alt_tm_t &local) {
    using namespace std::chrono;
    if (setting.names.gregorian) {
        const int month_no = local.alt_tm_mon + 1, day_no = local.alt_tm_mday;
        if (!date_fault(local.alt_tm_year + 1900, month_no, day_no).empty()) return {};
        return sys_days{year{local.alt_tm_year + 1900} / month_no / day_no};
    }
    ko_alt_tm_t t;
    if (ko_cal_local_to_gregorian(setting.code.loc, &local, &t) != 0) return {};
    if (!date_fault(t.alt_tm_year + 1900, t.alt_tm_mon + 1, t.alt_tm_mday).empty()) return {};
    const sys_days found = year{t.alt_tm_year + 1900} / (t.alt_tm_mon + 1) / t.alt_tm_mday;
    const std::optional<ko_alt_tm_t> back = to_local(setting, found);
    const bool same = back && back->alt_tm_year == local.alt_tm_year &&
                      back->alt_tm_mday == local.alt_tm_mday &&
                      (local.alt_tm_mon < 0 || back->alt_tm_mon == local.alt_tm_mon) &&
                      (local.alt_tm_monidx < 0 || back->alt_tm_monidx == local.alt_tm_monidx);
    return same ? std::optional(found) : std::nullopt;
}

// ---- month and day ----

void set_month(const resolver &r, int mon, int monidx, ko_alt_tm_t &local) {
    local.alt_tm_mon = r.setting.names.gregorian && mon < 0 ? monidx : mon;
    local.alt_tm_monidx = r.setting.names.gregorian ? local.alt_tm_mon : monidx;
}

// The month and the day that were read, or today's. A day of the year decides both later.
void choose_month(resolver &r, ko_alt_tm_t &local) {
    if (has(r, seen_mon | seen_monidx))
        set_month(r, has(r, seen_mon) ? r.info.mon : -1, has(r, seen_monidx) ? r.info.monidx : -1,
                  local);
    else
        set_month(r, -1, r.today.alt_tm_monidx, local);
    local.alt_tm_mday = has(r, seen_month_day) ? r.info.month_day : r.today.alt_tm_mday;
    if (has(r, seen_year_day)) return;
    if (!has(r, seen_mon | seen_monidx)) r.filled.push_back("month");
    if (!has(r, seen_month_day)) r.filled.push_back("day");
}

// ---- years ----

bool writes(const resolver &r, std::string_view format, const ko_tm_t &tm, const wide_text &text) {
    wide_text wide = native(r.setting.code, format);
    wide.push_back(0);
    ko_wchar_t out[256];
    *ko_ext_errno(r.setting.code.loc) = 0;
    const int size = ko_wcsftime(r.setting.code.loc, out, int(std::size(out)), wide.data(), &tm);
    if (size < 0 || *ko_ext_errno(r.setting.code.loc)) return false;
    if (size_t(size) != text.size()) return false; // as for most years that are tried
    if (std::equal(text.begin(), text.end(), out)) return true;
    const bool digits = format == "%Ey";
    return !digits && lower_text(r.setting.code, wide_text(out, out + size)) ==
                          lower_text(r.setting.code, text);
}

// Is the day in the era, and in the year of it, that were read?
bool in_era(const resolver &r, sys_days day) {
    const ko_tm_t tm = tm_of(day);
    if (!r.fields.era_text.empty() && writes(r, "%EY", tm, r.fields.era_text)) return true;
    // A first year may be written with its number, and a number with zeros.
    if (!r.fields.era_text.empty() && !has(r, seen_era_off)) return false;
    if (has(r, seen_era_off) &&
        !writes(r, "%Ey", tm, native(r.setting.code, std::to_string(r.info.era_off))))
        return false;
    return !has(r, seen_era) ||
           writes(r, "%EC", tm, r.setting.names.of[full_eras].at(size_t(r.info.era)));
}

// The years in which the month and the day are in the era.
std::vector<int> years_of_era(const resolver &r, ko_alt_tm_t local) {
    std::vector<int> years;
    if (has(r, seen_year_day) && !has(r, seen_mon | seen_monidx)) local.alt_tm_mday = 1;
    for (local.alt_tm_year = 1 - 1900; local.alt_tm_year < 10000 - 1900; ++local.alt_tm_year) {
        const std::optional<sys_days> day = to_day(r.setting, local);
        if (day && in_era(r, *day)) years.push_back(local.alt_tm_year);
    }
    return years;
}

std::string listed(const std::vector<int> &years) {
    std::string text;
    for (size_t i = 0; i < years.size() && i < 4; ++i)
        text += (i ? ", " : "") + std::to_string(years[i] + 1900);
    return years.size() > 4 ? text + ", ..." : text;
}

constexpr int nearby_years = 100; // of today's, where people mean most dates to be

bool is_nearby(const resolver &r, int year) {
    const auto now = int(std::chrono::year_month_day(r.setting.today).year());
    return std::abs(year - now) <= nearby_years;
}

// A number that was read as the year of an era, and looks like one of the Gregorian calendar.
void tell_of_era(resolver &r, int year) {
    if (has(r, seen_era) || is_nearby(r, year) || !is_nearby(r, r.info.era_off)) return;
    r.result.told.push_back("the year " + std::to_string(r.info.era_off) +
                            " is taken as one of the era, which is " + std::to_string(year) +
                            "; %Y reads years of the Gregorian calendar");
}

void choose_era_year(resolver &r, ko_alt_tm_t &local) {
    const std::vector<int> years = years_of_era(r, local);
    std::string &fault = r.result.fault;
    if (years.size() == 1) {
        local.alt_tm_year = years[0];
        tell_of_era(r, local.alt_tm_year + 1900);
    } else if (!years.empty()) {
        fault = "the year is undecided: the era and its year fit " + listed(years);
    } else {
        fault = "the era does not have this year";
        if (!r.filled.empty()) fault += " on today's month and day, which the text does not give";
    }
}

// The century of a date that not each of the last, this and the next has: among those which have
// it, by the rule; -1 if none fits.
int century_of_leap_day(const resolver &r, int month, int day) {
    using namespace std::chrono;
    const sys_days today = r.setting.today;
    const int now = int(year_month_day(today).year()) / 100;
    const char rule = r.setting.century;
    int found = -1;
    days best{};
    for (const int century : {now - 1, now, now + 1}) {
        const year_month_day date = year{century * 100 + r.info.year_off} / month / day;
        const days from = sys_days{date} - today;
        const bool fits = date.ok() && (rule == 'F'   ? from.count() > 0
                                        : rule == 'P' ? from.count() < 0
                                                      : rule == 'C');
        if (!fits || (found >= 0 && abs(from) >= best)) continue;
        found = century;
        best = abs(from);
    }
    return found;
}

void choose_short_year(resolver &r, ko_alt_tm_t &local) {
    const bool named = has(r, seen_mon | seen_monidx);
    int month = named ? std::max(local.alt_tm_mon, local.alt_tm_monidx) + 1 : 1;
    int day = has(r, seen_year_day) && !named ? 1 : local.alt_tm_mday;
    if (has(r, seen_year_day) && r.setting.names.gregorian) {
        const std::chrono::year year{2000 + r.info.year_off}; // leap years are those of its century
        const std::chrono::year_month_day date = sys_days{year / 1 / 1} + days(r.info.year_day);
        month = int(unsigned(date.month()));
        day = int(unsigned(date.day()));
    }
    int century = ko_getcentury(r.setting.code.loc, month, day, r.info.year_off,
                                static_cast<unsigned char>(r.setting.century));
    if (century < 0) century = century_of_leap_day(r, month, day);
    if (century < 0) {
        const auto now = int(std::chrono::year_month_day(r.setting.today).year());
        r.result.fault = date_fault(now / 100 * 100 + r.info.year_off, month, day);
        r.result.fault = r.result.fault.empty()
                             ? "there is no such date in the century that the rule " +
                                   std::string(1, r.setting.century) + " takes"
                             : "there is no such date: " + r.result.fault;
        return;
    }
    local.alt_tm_year = century * 100 + r.info.year_off - 1900;
    const std::string rule = r.setting.names.gregorian
                                 ? std::string("by the rule ") + r.setting.century
                                 : "in the calendar's usual century";
    const std::string two = std::to_string(100 + r.info.year_off).substr(1);
    r.result.told.push_back("the year " + two + " is taken as " +
                            std::to_string(local.alt_tm_year + 1900) + ", " + rule);
}

// A year such as 26 means itself only to those who say so.
void check_whole_year(resolver &r, int year) {
    if (r.fields.year_digits >= 4 || r.setting.short_years) return;
    r.result.fault = "the year, " + std::to_string(year) +
                     ", has fewer than four digits, and %Y reads whole years: %y reads those of a "
                     "century, and --allow-short-year takes it as it is";
}

// A year of an era or the Gregorian calendar, read by a directive for the locale's years.
void tell_era(resolver &r, int year) {
    if (!r.setting.names.gregorian && is_nearby(r, year))
        r.result.told.push_back("the year " + std::to_string(year) +
                                " is taken as one of the calendar \"" + r.setting.names.calendar +
                                "\"");
    const bool by_era = has(r, seen_era | seen_era_off) || !r.fields.era_text.empty();
    if (by_era || !r.setting.names.gregorian || r.setting.names.of[full_eras].empty()) return;
    const std::string meant = era_meant(r.setting.code, year, r.setting.today);
    if (!meant.empty())
        r.result.told.push_back("the year " + std::to_string(year) +
                                " is taken as one of the Gregorian calendar; " + meant +
                                ", and %EY or %Ey reads it");
}

void choose_year(resolver &r, ko_alt_tm_t &local) {
    if (has(r, seen_full_year)) {
        local.alt_tm_year = r.info.full_year;
        check_whole_year(r, local.alt_tm_year + 1900);
        tell_era(r, local.alt_tm_year + 1900);
    } else if (has(r, seen_century) && has(r, seen_year_off)) {
        local.alt_tm_year = r.info.century * 100 + r.info.year_off - 1900;
    } else if (has(r, seen_era_off) || !r.fields.era_text.empty()) {
        choose_era_year(r, local);
    } else if (has(r, seen_year_off)) {
        choose_short_year(r, local);
    } else if (has(r, seen_century)) {
        r.result.fault = "the year is undecided: only its century was read";
    } else if (has(r, seen_era)) {
        r.result.fault = "the year is undecided: only its era was read";
    } else {
        local.alt_tm_year = r.today.alt_tm_year;
        r.filled.insert(r.filled.begin(), "year");
    }
}

// ---- the day ----

std::string no_such_date(const resolver &r, const ko_alt_tm_t &local) {
    const std::string year = std::to_string(local.alt_tm_year + 1900);
    std::string text = "there is no such date: ";
    if (r.setting.names.gregorian)
        text += date_fault(local.alt_tm_year + 1900, local.alt_tm_mon + 1, local.alt_tm_mday);
    else
        text += "the year " + year + " of the calendar \"" + r.setting.names.calendar +
                "\" lacks its month or day";
    if (std::find(r.filled.begin(), r.filled.end(), "day") != r.filled.end())
        text += ", and the day, " + std::to_string(local.alt_tm_mday) +
                ", is today's: the text does not give one";
    return text;
}

// The day of a week of ISO 8601, which takes the year, the week and the day of the week.
void choose_iso_day(resolver &r) {
    const int year = r.fields.iso_year, week = r.fields.iso_week;
    if (year < 0 || week < 0 || !has(r, seen_week_day)) {
        r.result.fault = "the day is undecided: the year of ISO 8601, the week and the day of the "
                         "week (%G %V %u) decide it together";
        return;
    }
    check_whole_year(r, year);
    const sys_days fourth = std::chrono::year(year) / 1 / 4; // which is in week 1
    const std::chrono::weekday monday = std::chrono::Monday;
    const sys_days day = fourth - (std::chrono::weekday{fourth} - monday) +
                         days(7 * (week - 1) + (r.info.week_day + 6) % 7);
    const iso_week back = iso_week_of(day);
    r.result.tm = tm_of(day);
    if (back.year != year || back.week != week)
        r.result.fault = "there is no such date: " + std::to_string(year) + " has no week " +
                         std::to_string(week);
}

void choose_day(resolver &r) {
    ko_alt_tm_t local = {};
    if (r.fields.iso_year >= 0 || r.fields.iso_week >= 0) return choose_iso_day(r);
    if (!r.info.set) {
        r.result.fault = "the format reads no part of a date or a time";
        return;
    }
    choose_month(r, local);
    if (has(r, seen_week_day) && !has(r, seen_month_day | seen_year_day)) {
        r.result.fault = "the day is undecided: only the day of the week was read";
        return;
    }
    choose_year(r, local);
    if (!r.result.fault.empty()) return;
    const bool by_year_day =
        has(r, seen_year_day) && (!has(r, seen_mon | seen_monidx) || !has(r, seen_month_day));
    if (by_year_day) {
        set_month(r, 0, -1, local);
        local.alt_tm_mday = 1;
    }
    std::optional<sys_days> day = to_day(r.setting, local);
    if (day && by_year_day) {
        *day += days(r.info.year_day);
        const std::optional<ko_alt_tm_t> found = to_local(r.setting, *day);
        if (found && found->alt_tm_year != local.alt_tm_year)
            r.result.fault = "there is no such date: the year " +
                             std::to_string(local.alt_tm_year + 1900) + " has " +
                             std::to_string(r.info.year_day - found->alt_tm_yday) + " days";
    }
    if (!day) r.result.fault = no_such_date(r, local);
    if (day) r.result.tm = tm_of(*day);
}

// ---- the time ----

// A minute has a second 60 where an hour of some zone ends.
void check_second(resolver &r) {
    const int second = r.result.tm.tm_sec, minute = r.result.tm.tm_min;
    if (second > 60)
        r.result.fault = "there is no such time: no minute has a second " + std::to_string(second);
    else if (second == 60 && minute % 15 != 14)
        r.result.fault = "there is no such time: a leap second, 60, ends an hour, or a quarter of "
                         "it";
}

void choose_time(resolver &r) {
    ko_tm_t &tm = r.result.tm;
    const time_info &info = r.info;
    const int half = has(r, seen_ampm) ? info.ampm : 0;
    if (has(r, seen_hour24))
        tm.tm_hour = info.hour24;
    else if (has(r, seen_hour12) && has(r, seen_ampm))
        tm.tm_hour = info.hour12 % 12 + 12 * half;
    else if (has(r, seen_hour12))
        r.result.fault = "the hour is undecided: of the 12-hour clock, " +
                         std::to_string(info.hour12) + ", without the half of the day";
    else if (has(r, seen_ampm))
        r.result.fault = "the hour is undecided: only the half of the day was read";
    if (has(r, seen_minute)) tm.tm_min = info.minute;
    if (has(r, seen_second)) tm.tm_sec = info.second;
    if (has(r, seen_usec)) tm.tm_usec = info.usec;
    if (r.result.fault.empty()) check_second(r);
}

// ---- the check ----

std::string weekday_text(const resolver &r, int wday) {
    const wide_text &name = r.setting.names.of[full_days].at(size_t(wday));
    return outer_text(r.setting.code, name);
}

// The first field that was read and is not that of the date; "" if none.
std::string contradiction(const resolver &r) {
    const ko_tm_t &tm = r.result.tm;
    const time_info &i = r.info;
    const sys_days day = day_of(tm);
    const std::optional<ko_alt_tm_t> local = to_local(r.setting, day);
    if (!local) return "the date is outside the locale's calendar";
    const int year = local->alt_tm_year + 1900;
    const struct {
        unsigned bit;
        int read, is;
        const char *name;
    } rows[] = {
        {seen_full_year, i.full_year, local->alt_tm_year,                     "year"           },
        {seen_century,   i.century,   year / 100,                             "century"        },
        {seen_year_off,  i.year_off,  year % 100,                             "year"           },
        {seen_mon,       i.mon,       local->alt_tm_mon,                      "month"          },
        {seen_monidx,    i.monidx,    local->alt_tm_monidx,                   "month"          },
        {seen_month_day, i.month_day, local->alt_tm_mday,                     "day"            },
        {seen_year_day,  i.year_day,  local->alt_tm_yday,                     "day of the year"},
        {seen_hour12,    i.hour12,    tm.tm_hour % 12 ? tm.tm_hour % 12 : 12, "hour"           },
        {seen_ampm,      i.ampm,      tm.tm_hour / 12,                        "half of the day"},
    };
    const std::string date = " contradicts the date, " + day_text(day);
    const std::string time = " contradicts the time, " + clock_text(tm);
    for (const auto &row : rows)
        if (has(r, row.bit) && row.read != row.is)
            return "the " + std::string(row.name) +
                   (row.bit & (seen_hour12 | seen_ampm) ? time : date);
    if (has(r, seen_era | seen_era_off) && !in_era(r, day)) return "the era" + date;
    if (has(r, seen_week_day) && i.week_day != tm.tm_wday)
        return "the day of the week, " + weekday_text(r, i.week_day) + "," + date + ", which is " +
               weekday_text(r, tm.tm_wday);
    return "";
}

void tell_filled(resolver &r) {
    if (r.filled.empty()) return;
    std::string text = "the text has";
    for (size_t i = 0; i < r.filled.size(); ++i)
        text += (i ? i + 1 < r.filled.size() ? ", no " : " and no " : " no ") + r.filled[i];
    r.result.told.push_back(text + ": taken from today, " + day_text(r.setting.today));
}

} // namespace

read_date resolve_date(const date_setting &setting, const read_fields &fields) {
    resolver r{setting, fields, fields.info, {}, {}, {}};
    r.result.fault = fields.fault;
    const std::optional<ko_alt_tm_t> today = to_local(setting, setting.today);
    if (r.result.fault.empty() && !today)
        r.result.fault = "the locale's dates are of a calendar that is a name without rules";
    if (!r.result.fault.empty()) return r.result;
    r.today = *today;
    choose_day(r);
    if (r.result.fault.empty()) choose_time(r);
    if (r.result.fault.empty()) r.result.fault = contradiction(r);
    tell_filled(r);
    return r.result;
}

} // namespace kovacli
