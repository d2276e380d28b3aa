// Reading moments, and counting from them.
#include "kova/kova_when.h"

#include <algorithm>
#include <cstdio>
#include <optional>

#include "common/tool_text.h"
#include "kova/kova_cli.h"
#include "kova/kova_day_words.h"
#include "kova/kova_platform.h"

namespace kovacli {

using namespace std::chrono;

constexpr int64_t day_seconds = 86400;
constexpr int64_t first_second = -62167219200, last_second = 253402300799; // of the years 0 to 9999
constexpr int64_t most_count = 4000000000000; // of a unit, more than the years 0 to 9999 hold

// ---- zones ----

// The zone of all moments: a fixed offset, or the one chosen from the system.
static struct {
    bool fixed = false, asked = false;
    int offset = 0;
    std::string name;
} zone;

static std::string offset_text(int offset) {
    char text[16];
    const int size = (offset < 0 ? -offset : offset) / 60;
    std::snprintf(text, sizeof text, "%c%02d:%02d", offset < 0 ? '-' : '+', size / 60, size % 60);
    return text;
}

static int offset_at(int64_t seconds, std::string *name = nullptr) {
    if (name) *name = zone.name;
    return zone.fixed ? zone.offset : system_offset(seconds, name);
}

static ko_tm_t clocks_at(int64_t shown, int usec) {
    const sys_seconds local{std::chrono::seconds(shown)};
    const sys_days day = floor<days>(local);
    const int year_ad = int(year_month_day(day).year());
    if (year_ad < 0 || year_ad > 9999)
        throw failure(bad_usage, "the time is outside the years 0000 to 9999");
    ko_tm_t tm = tm_of(day);
    const auto rest = int((local - day).count());
    tm.tm_hour = rest / 3600;
    tm.tm_min = rest / 60 % 60;
    tm.tm_sec = rest % 60;
    tm.tm_usec = usec;
    return tm;
}

// The clocks of the zone at a moment.
static moment at_seconds(int64_t seconds, int usec) {
    if (seconds < first_second - day_seconds || seconds > last_second + day_seconds)
        throw failure(bad_usage, "the time is outside the years 0000 to 9999");
    moment when;
    when.seconds = seconds;
    when.offset = offset_at(seconds, &when.zone);
    when.tm = clocks_at(seconds + when.offset, usec);
    return when;
}

moment in_whole_minutes(const moment &when) {
    const int extra = when.offset % 60;
    if (!extra) return when;
    moment result = when;
    result.offset -= extra;
    result.tm = clocks_at(when.seconds + result.offset, int(when.tm.tm_usec));
    return result;
}

static int64_t clock_seconds(const ko_tm_t &tm) {
    return int64_t{day_of(tm).time_since_epoch().count()} * day_seconds + tm.tm_hour * 3600 +
           tm.tm_min * 60 + std::min(tm.tm_sec, 59);
}

// The moment at which the clocks of the zone show a time. Where clocks skip it, a time that was
// counted goes on as far behind the change, and one that was written is refused.
static moment on_clocks(const ko_tm_t &tm, bool counted = false) {
    const int64_t shown = clock_seconds(tm);
    moment when;
    when.tm = tm;
    int found = 0;
    for (const int64_t side : {-day_seconds, day_seconds}) {
        const int offset = offset_at(shown + side);
        if (offset_at(shown - offset) != offset || (found && offset == when.offset)) continue;
        if (!found++) when.offset = offset;
    }
    if (!found) when.offset = offset_at(shown - day_seconds);
    when.seconds = shown - when.offset;
    offset_at(when.seconds, &when.zone);
    if (found == 1) return when;
    const std::string text =
        moment_text(when) + " in " + (zone.asked ? zone.name : "the system's time zone");
    if (!found && counted) {
        when = at_seconds(when.seconds, int(tm.tm_usec));
        kovatool::tell("kova", "there is no " + text + ": " + moment_text(when) + " is taken");
        return when;
    }
    if (!found) throw failure(bad_usage, "there is no " + text + ": clocks skip it");
    kovatool::tell("kova", text + " happens twice; the first, at " + offset_text(when.offset) +
                               ", is taken");
    return when;
}

// ---- reading ----

namespace {
struct when_text {
    const char *at;
    bool failed = false;
};

// What a text has said so far.
struct when_parts {
    std::optional<sys_days> day;
    std::optional<weekday> on;    // the day of the week, without "next" and "last"
    std::optional<int64_t> clock; // seconds of the day
    int leap = 0;                 // seconds above 59
    int usec = 0;
    std::optional<int> offset;
    std::optional<int64_t> seconds; // since 1970
    bool from_now = true;           // keeps the time of day
    bool now = false;               // said so
    time_step step;
    std::string fault;
    std::string told; // what was filled in
};

struct unit_row {
    const char *name;
    int64_t time_step::*field;
    int64_t size;
};
} // namespace

static constexpr unit_row units[] = {
    {"second", &time_step::seconds, 1   },
    {"sec",    &time_step::seconds, 1   },
    {"minute", &time_step::seconds, 60  },
    {"min",    &time_step::seconds, 60  },
    {"hour",   &time_step::seconds, 3600},
    {"day",    &time_step::days,    1   },
    {"week",   &time_step::days,    7   },
    {"w",      &time_step::days,    7   },
    {"d",      &time_step::days,    1   },
    {"h",      &time_step::seconds, 3600},
    {"month",  &time_step::months,  1   },
    {"year",   &time_step::months,  12  },
};
static constexpr const char *weekdays[] = {"sunday",   "monday", "tuesday", "wednesday",
                                           "thursday", "friday", "saturday"};

static bool is_digit(char c) { return c >= '0' && c <= '9'; }
static bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

static void skip_blanks(when_text &in) {
    while (*in.at == ' ')
        ++in.at;
}

static bool take(when_text &in, char sign) { return *in.at == sign && *in.at++; }

static int digits_ahead(const when_text &in) {
    int n = 0;
    while (is_digit(in.at[n]))
        ++n;
    return n;
}

// So many digits; fails the text without them.
static int take_digits(when_text &in, int count) {
    int value = 0;
    for (; count > 0; --count, ++in.at) {
        if (!is_digit(*in.at)) return in.failed = true, 0;
        value = value * 10 + (*in.at - '0');
    }
    return value;
}

// Letters in lower case, without moving past them.
static std::string word_ahead(const when_text &in) {
    std::string word;
    for (const char *c = in.at; is_letter(*c); ++c)
        word += char(*c | 0x20);
    return word;
}

// Millionths after "." or ",": digits, of which six count.
static int take_fraction(when_text &in) {
    if (*in.at != '.' && *in.at != ',') return 0;
    ++in.at;
    in.failed |= !is_digit(*in.at);
    int usec = 0;
    for (int unit = 100000; is_digit(*in.at); ++in.at, unit /= 10)
        usec += (*in.at - '0') * unit;
    return usec;
}

// After "@": seconds, with a sign and a fraction where wanted.
static void take_seconds(when_text &in, when_parts &parts) {
    const bool minus = take(in, '-');
    const int count = digits_ahead(in);
    if (count < 1 || count > 12) {
        in.failed = true;
        return;
    }
    int64_t value = 0;
    for (; is_digit(*in.at); ++in.at)
        value = value * 10 + (*in.at - '0');
    in.failed |= parts.seconds.has_value();
    parts.usec = take_fraction(in);
    if (minus && parts.usec) ++value, parts.usec = 1000000 - parts.usec;
    parts.seconds = minus ? -value : value;
}

static void set_day(when_parts &parts, sys_days day) {
    if (parts.day && *parts.day != day)
        parts.fault = "two days, " + day_text(*parts.day) + " and " + day_text(day);
    parts.day = day;
}

static void set_date(when_parts &parts, int year_ad, int month_no, int day_no) {
    parts.fault = date_fault(year_ad, month_no, day_no);
    if (parts.fault.empty()) set_day(parts, sys_days{year{year_ad} / month_no / day_no});
}

static void set_week(when_parts &parts, int year_ad, int week, int weekday_no) {
    const sys_days fourth = year{year_ad} / January / 4; // which is in week 1
    const sys_days monday = fourth - (weekday{fourth} - Monday);
    const sys_days day = monday + days((week - 1) * 7 + weekday_no - 1);
    if (week < 1 || weekday_no < 1 || weekday_no > 7 || iso_week_of(day).year != year_ad)
        parts.fault = std::to_string(year_ad) + " has no day " + std::to_string(weekday_no) +
                      " of a week " + std::to_string(week);
    else
        set_day(parts, day);
}

static void set_year_day(when_parts &parts, int year_ad, int number) {
    const int count = year{year_ad}.is_leap() ? 366 : 365;
    if (number < 1 || number > count)
        parts.fault = std::to_string(year_ad) + " has " + std::to_string(count) + " days";
    else
        set_day(parts, sys_days{year{year_ad} / January / 1} + days(number - 1));
}

// YYYY-MM-DD, YYYY-DDD, YYYY-Www-D, YYYY-Www, or the same without "-".
static void take_date(when_text &in, when_parts &parts) {
    const int year_ad = take_digits(in, 4);
    const bool extended = take(in, '-');
    parts.from_now = false;
    if (take(in, 'W')) {
        const int week = take_digits(in, 2);
        const bool has_day = extended ? take(in, '-') : is_digit(*in.at);
        set_week(parts, year_ad, week, has_day ? take_digits(in, 1) : 1);
    } else if (digits_ahead(in) == 3) {
        set_year_day(parts, year_ad, take_digits(in, 3));
    } else {
        const int month_no = take_digits(in, 2);
        if (extended) in.failed |= !take(in, '-');
        const int day_no = take_digits(in, 2);
        if (!in.failed) set_date(parts, year_ad, month_no, day_no);
    }
    in.failed |= is_digit(*in.at);
}

static const unit_row *unit_of(const std::string &word);

// " +0200", " +02:00" or " UTC", after a blank; what could be steps is none.
static bool offset_follows(when_text in) {
    skip_blanks(in);
    const bool sign = *in.at == '+' || *in.at == '-';
    if (!sign) return false;
    ++in.at;
    const int digits = digits_ahead(in);
    in.at += digits;
    if (digits == 2 && *in.at == ':') return true;
    skip_blanks(in);
    return digits == 4 && !unit_of(word_ahead(in));
}

// "Z", "+02:00", "+0200" or "+02", directly after a time.
static void take_offset(when_text &in, when_parts &parts) {
    if (offset_follows(in)) skip_blanks(in);
    when_text ahead = in;
    skip_blanks(ahead);
    const std::string utc = word_ahead(ahead);
    if (utc == "utc" || (utc == "z" && ahead.at > in.at)) {
        in.at = ahead.at + utc.size();
        parts.offset = 0;
        return;
    }
    if (take(in, 'Z') || take(in, 'z')) {
        parts.offset = 0;
        return;
    }
    const char sign = *in.at;
    if ((sign != '+' && sign != '-') || !is_digit(in.at[1])) return;
    ++in.at;
    const int hours = take_digits(in, 2);
    const bool more = take(in, ':') || is_digit(*in.at);
    const int minutes = more ? take_digits(in, 2) : 0;
    in.failed |= hours > 23 || minutes > 59;
    parts.offset = (sign == '-' ? -1 : 1) * (hours * 3600 + minutes * 60);
}

// "am" or "pm" after a time of day, or after its hour alone; "" without.
static std::string half_ahead(when_text in) {
    skip_blanks(in);
    const std::string word = word_ahead(in);
    return word == "am" || word == "pm" ? word : "";
}

static void take_half(when_text &in, int &hour) {
    const std::string half = half_ahead(in);
    if (half.empty()) return;
    skip_blanks(in);
    in.at += half.size();
    in.failed |= hour < 1 || hour > 12;
    hour = hour % 12 + (half == "pm" ? 12 : 0);
}

// HH:MM, HH:MM:SS and HH:MM:SS.F, and without ":" only after "T", where HH suffices and hours and
// minutes may have a fraction, too, and before "am" and "pm". 24:00 is the next midnight.
static void take_clock(when_text &in, when_parts &parts, bool after_t) {
    int hour = take_digits(in, digits_ahead(in) == 1 ? 1 : 2);
    int minute = 0, second = 0, unit = 1; // the seconds of which a fraction is
    const bool colons = *in.at == ':';
    in.failed |= !colons && !after_t && half_ahead(in).empty();
    if (take(in, ':') || is_digit(*in.at)) {
        minute = take_digits(in, 2);
        if (colons ? take(in, ':') : is_digit(*in.at)) {
            second = take_digits(in, 2);
        } else {
            unit = 60;
        }
    } else {
        unit = 3600;
    }
    const bool fraction = unit == 1 || (after_t && is_digit(in.at[*in.at != 0]));
    const int64_t rest = fraction ? int64_t{take_fraction(in)} * unit : 0; // in millionths
    const auto more_seconds = int(rest / 1000000);
    parts.usec = int(rest % 1000000);
    if (hour == 24 && !minute && !second && !rest) hour = 0, ++parts.step.days;
    if (!after_t) take_half(in, hour);
    in.failed |= hour > 23 || minute > 59 || second > (minute % 15 == 14 ? 60 : 59);
    in.failed |= parts.clock.has_value();
    parts.leap = std::max(second - 59, 0);
    parts.clock = hour * 3600 + minute * 60 + std::min(second, 59) + more_seconds;
    parts.from_now = false;
    take_offset(in, parts);
}

static const unit_row *unit_of(const std::string &word) {
    for (const unit_row &row : units)
        if (word == row.name || (row.name[1] && word == std::string(row.name) + "s")) return &row;
    return nullptr;
}

// "+3 days", "-1 week", "3 days ago"; the last not after "in".
static bool take_step(when_text &in, time_step &step, bool may_be_past = true) {
    const bool minus = *in.at == '-';
    if (minus || *in.at == '+') ++in.at;
    skip_blanks(in);
    const int count = digits_ahead(in);
    if (count < 1 || count > 10) return false;
    int64_t number = 0;
    for (; is_digit(*in.at); ++in.at)
        number = number * 10 + (*in.at - '0');
    skip_blanks(in);
    const std::string word = word_ahead(in);
    const unit_row *const unit = unit_of(word);
    if (!unit) return false;
    in.at += word.size();
    skip_blanks(in);
    const bool ago = may_be_past && word_ahead(in) == "ago";
    if (ago) in.at += 3;
    step.*unit->field += (minus != ago ? -1 : 1) * number * unit->size;
    return true;
}

// ---- names of days and months ----

static void skip_word(when_text &in, const char *word) {
    skip_blanks(in);
    if (word_ahead(in) == word) in.at += std::char_traits<char>::length(word);
    skip_blanks(in);
}

// Moves past a name, which must be that of one month or day.
static int take_name(when_text &in, const name_found &name, when_parts &parts) {
    if (name.number < 0)
        parts.fault = "\"" + std::string(in.at, name.len) + "\" could be several months or days";
    in.at += name.len;
    return name.number;
}

// The weekday on or after today, after "next" after today, after "last" before today.
static bool take_weekday(when_text &in, int direction, when_parts &parts, sys_days today) {
    const name_found name = weekday_at(in.at);
    if (!name.len) return false;
    const int number = take_name(in, name, parts);
    if (number < 0) return true;
    const weekday wanted{unsigned(number)};
    const auto ahead = int((wanted - weekday{today}).count());
    parts.from_now = false;
    if (direction)
        set_day(parts, today + days(direction < 0 ? ahead - 7 : ahead ? ahead : 7));
    else if (parts.on && *parts.on != wanted)
        parts.fault = "two days of the week";
    else
        parts.on = wanted;
    return true;
}

// After a month, or its day: the year in four digits, or this one.
static int take_year(when_text &in, when_parts &parts, sys_days today) {
    when_text ahead = in;
    take(ahead, ',');
    skip_blanks(ahead);
    const int digits = digits_ahead(ahead);
    const char after = ahead.at[digits];
    when_text unit = {ahead.at + digits};
    skip_blanks(unit);
    const bool other = !digits || after == ':' || !half_ahead({ahead.at + digits}).empty() ||
                       (digits != 4 && unit_of(word_ahead(unit)));
    if (other) {
        const int year_ad = int(year_month_day(today).year());
        parts.told = "the date has no year: " + std::to_string(year_ad) + " is taken";
        return year_ad;
    }
    in.at = ahead.at;
    if (digits != 4) parts.fault = "a year has four digits after the name of a month";
    return take_digits(in, parts.fault.empty() ? 4 : 0);
}

// One or two digits, "." or "st", "nd", "rd", "th". 0 where the number is none of a day.
static int take_day_number(when_text &in) {
    const int digits = digits_ahead(in);
    if (digits < 1 || digits > 2 || in.at[digits] == ':') return 0;
    const int number = take_digits(in, digits);
    const std::string ending = word_ahead(in);
    if (ending == "st" || ending == "nd" || ending == "rd" || ending == "th") in.at += 2;
    if (*in.at == '.') ++in.at;
    return number;
}

// "24 Dec 2026", "24. Dezember", "24th of December"; false if no name of a month follows.
static bool take_day_month(when_text &in, when_parts &parts, sys_days today) {
    when_text ahead = in;
    const int day_no = take_day_number(ahead);
    skip_word(ahead, "of");
    const name_found name = month_at(ahead.at);
    if (!day_no || !name.len) return false;
    in.at = ahead.at;
    const int month_no = take_name(in, name, parts) + 1;
    const int year_ad = take_year(in, parts, today);
    parts.from_now = false;
    if (parts.fault.empty()) set_date(parts, year_ad, month_no, day_no);
    return true;
}

// "Dec 24", "December 24, 2026".
static void take_month_day(when_text &in, when_parts &parts, sys_days today) {
    const int month_no = take_name(in, month_at(in.at), parts) + 1;
    skip_blanks(in);
    const int day_no = take_day_number(in);
    if (!day_no && parts.fault.empty()) parts.fault = "a month without a day";
    const int year_ad = parts.fault.empty() ? take_year(in, parts, today) : 0;
    parts.from_now = false;
    if (parts.fault.empty()) set_date(parts, year_ad, month_no, day_no);
}

// The month of "of december 2027", "of month", "of next month".
static std::optional<year_month> take_of_month(when_text &in, when_parts &parts, sys_days today) {
    const year_month_day date = today;
    const name_found name = month_at(in.at);
    if (name.len) {
        const int number = take_name(in, name, parts);
        const int year_ad = take_year(in, parts, today);
        if (!parts.fault.empty()) return year_month{};
        return year{year_ad} / (number + 1);
    }
    skip_word(in, "the");
    const std::string which = word_ahead(in);
    const int direction = which == "next" ? 1 : which == "last" ? -1 : 0;
    if (direction || which == "this") in.at += 4;
    skip_blanks(in);
    if (word_ahead(in) != "month") return {};
    in.at += 5;
    return date.year() / date.month() + std::chrono::months(direction);
}

static constexpr const char *ordinals[] = {"last", "first", "second", "third", "fourth", "fifth"};

// "first monday of december", "last day of month"; false where the words go on otherwise.
static bool take_ordinal(when_text &in, when_parts &parts, sys_days today) {
    when_text ahead = in;
    skip_word(ahead, "the");
    const std::string word = word_ahead(ahead);
    const auto ordinal = std::find(std::begin(ordinals), std::end(ordinals), word);
    if (ordinal == std::end(ordinals)) return false;
    const auto count = int(ordinal - ordinals);
    ahead.at += word.size();
    skip_blanks(ahead);
    const bool any_day = word_ahead(ahead) == "day";
    const name_found on = weekday_at(ahead.at);
    if (!any_day && !on.len) return false;
    ahead.at += any_day ? 3 : on.len;
    skip_blanks(ahead);
    if (word_ahead(ahead) != "of") return false;
    skip_word(ahead, "of");
    in.at = ahead.at;
    const auto month_of = take_of_month(in, parts, today);
    if (!month_of) return false;
    if (!any_day && on.number < 0) parts.fault = "the day of the week is not clear";
    if (!parts.fault.empty()) return true;
    const weekday wanted{unsigned(std::max(on.number, 0))};
    const sys_days first = any_day ? sys_days{*month_of / 1} : sys_days{*month_of / wanted[1]};
    const sys_days end = any_day ? sys_days{*month_of / last} : sys_days{*month_of / wanted[last]};
    const sys_days day = count ? first + days((count - 1) * (any_day ? 1 : 7)) : end;
    parts.from_now = false;
    if (day > end)
        parts.fault = "the month has no " + word + " such day";
    else
        set_day(parts, day);
    return true;
}

// A name at which a moment goes on: false if there is none. One that a month and a day of the week
// share, or that is a word of steps, too, is refused.
static bool take_named(when_text &in, when_parts &parts, sys_days today) {
    const name_found a_month = month_at(in.at), a_day = weekday_at(in.at);
    const size_t len = std::max(a_month.len, a_day.len);
    if (!len) return false;
    if (a_month.len == a_day.len || (unit_of(word_ahead(in)) && word_ahead(in).size() == len))
        parts.fault = "\"" + std::string(in.at, len) + "\" could be several months or days";
    else if (a_month.len > a_day.len)
        take_month_day(in, parts, today);
    else
        return take_weekday(in, 0, parts, today);
    return true;
}

static bool take_word(when_text &in, when_parts &parts, sys_days today) {
    if (take_ordinal(in, parts, today) || take_named(in, parts, today)) return true;
    std::string word = word_ahead(in);
    in.at += word.size();
    static constexpr struct {
        const char *word;
        int days;
    } days_from_now[] = {
        {"now",       0 },
        {"today",     0 },
        {"tomorrow",  1 },
        {"yesterday", -1},
    };
    parts.now |= word == "now";
    if (word == "in") { // "in 3 days"
        skip_blanks(in);
        return is_digit(*in.at) && take_step(in, parts.step, false);
    }
    for (const auto &row : days_from_now)
        if (word == row.word) return parts.step.days += row.days, true;
    const int direction = word == "next" ? 1 : word == "last" ? -1 : 0;
    if (!direction) return false;
    skip_blanks(in);
    if (take_weekday(in, direction, parts, today)) return true;
    word = word_ahead(in);
    in.at += word.size();
    const unit_row *const unit = unit_of(word);
    if (unit) parts.step.*unit->field += direction * unit->size;
    return unit != nullptr;
}

static void take_part(when_text &in, when_parts &parts, sys_days today) {
    const int digits = digits_ahead(in);
    const bool joined = digits == 4 && (in.at[4] == '-' || in.at[4] == 'W');
    if (take(in, '@')) {
        take_seconds(in, parts);
    } else if ((*in.at == 'T' || *in.at == 't') && is_digit(in.at[1])) {
        ++in.at;
        take_clock(in, parts, true);
    } else if (joined || digits == 7 || digits == 8) {
        take_date(in, parts);
        if (!in.failed && (take(in, 'T') || take(in, 't'))) take_clock(in, parts, true);
    } else if (digits && (in.at[digits] == ':' || !half_ahead({in.at + digits}).empty())) {
        take_clock(in, parts, false);
    } else if (digits && take_day_month(in, parts, today)) {
        return;
    } else if (digits || *in.at == '+' || *in.at == '-') {
        in.failed |= !take_step(in, parts.step);
    } else {
        in.failed |= !take_word(in, parts, today);
    }
}

// What contradicts itself: a count of seconds is a day and a time, and so is now.
static void check_parts(when_parts &parts, sys_days today) {
    if (parts.on && !parts.day) set_day(parts, today + (*parts.on - weekday{today}));
    if (parts.on && *parts.on != weekday{*parts.day})
        parts.fault = day_text(*parts.day) + " is a " + weekdays[weekday{*parts.day}.c_encoding()];
    if ((parts.seconds || parts.now) && (parts.day || parts.clock))
        parts.fault = "a day or a time of its own beside what stands for both";
    if (parts.seconds && parts.now) parts.fault = "two moments";
}

static moment now() {
    const auto since = system_clock::now().time_since_epoch();
    const auto whole = floor<std::chrono::seconds>(since);
    return at_seconds(whole.count(), int(duration_cast<microseconds>(since - whole).count()));
}

static moment made_of(const when_parts &parts, const moment &here) {
    if (parts.seconds) return at_seconds(*parts.seconds, parts.usec);
    if (parts.from_now && !parts.day) return here;
    ko_tm_t tm = tm_of(parts.day ? *parts.day : day_of(here.tm));
    const int64_t clock = parts.clock.value_or(0);
    tm.tm_hour = int(clock / 3600);
    tm.tm_min = int(clock / 60 % 60);
    tm.tm_sec = int(clock % 60) + parts.leap;
    tm.tm_usec = parts.usec;
    if (!parts.offset) return on_clocks(tm);
    moment when = at_seconds(clock_seconds(tm) - *parts.offset, parts.usec);
    when.tm.tm_sec += parts.leap;
    return when;
}

moment moment_of(const std::string &text, const std::string &option) {
    when_text in{text.c_str()};
    when_parts parts;
    const moment here = now();
    skip_blanks(in);
    in.failed = !*in.at;
    while (*in.at && !in.failed && parts.fault.empty()) {
        take_part(in, parts, day_of(here.tm));
        take(in, ',');
        skip_blanks(in);
    }
    if (!in.failed && parts.fault.empty()) check_parts(parts, day_of(here.tm));
    if (!parts.fault.empty())
        throw failure(bad_usage, option + " \"" + text + "\": " + parts.fault);
    if (in.failed || in.at != text.c_str() + text.size())
        throw failure(bad_usage, option + " \"" + text +
                                     "\" is not a date and time such as 2026-11-21, \"2026-11-21 "
                                     "14:30:05\", \"24 Dec 2026\", @1700000000, now, \"+3 days\" "
                                     "or \"last monday\"");
    if (!parts.told.empty()) kovatool::tell("kova", parts.told);
    return moved(made_of(parts, here), parts.step, 1);
}

time_step step_of(const std::string &text, const std::string &option) {
    when_text in{text.c_str()};
    time_step step;
    skip_blanks(in);
    if (!take_step(in, step) || in.at != text.c_str() + text.size())
        throw failure(bad_usage, option + " \"" + text +
                                     "\" is not a distance such as 1day, \"2 weeks\", 1month or "
                                     "15min");
    return step;
}

// ---- counting ----

static sys_days months_later(sys_days from, int64_t months) {
    const year_month_day date = from;
    const int64_t index = int{date.year()} * int64_t{12} + unsigned(date.month()) - 1 + months;
    if (index < 0 || index >= 120000)
        throw failure(bad_usage, "the time is outside the years 0000 to 9999");
    const year_month target = year{int(index / 12)} / int(index % 12 + 1);
    const year_month_day wanted = target / date.day();
    if (wanted.ok()) return wanted;
    const sys_days last_day = target / last;
    kovatool::tell("kova", date_fault(int(target.year()), int(unsigned(target.month())), 31) +
                               "; for day " + std::to_string(unsigned(date.day())) + ", " +
                               day_text(last_day) + " is taken");
    return last_day;
}

moment moved(const moment &from, const time_step &step, int64_t times) {
    const auto scaled = [times](int64_t count) {
        if (count && (times > most_count / std::abs(count)))
            throw failure(bad_usage, "the time is outside the years 0000 to 9999");
        return count * times;
    };
    const int64_t months = scaled(step.months), add_days = scaled(step.days);
    const int64_t add_seconds = scaled(step.seconds);
    moment to = from;
    if (months || add_days) {
        if (std::abs(add_days) > 4000000)
            throw failure(bad_usage, "the time is outside the years 0000 to 9999");
        const sys_days day = months_later(day_of(from.tm), months) + days(add_days);
        const int year_ad = int(year_month_day(day).year());
        if (year_ad < 0 || year_ad > 9999)
            throw failure(bad_usage, "the time is outside the years 0000 to 9999");
        ko_tm_t tm = tm_of(day);
        tm.tm_hour = from.tm.tm_hour;
        tm.tm_min = from.tm.tm_min;
        tm.tm_sec = from.tm.tm_sec;
        tm.tm_usec = from.tm.tm_usec;
        to = on_clocks(tm, true);
    }
    return add_seconds ? at_seconds(to.seconds + add_seconds, int(to.tm.tm_usec)) : to;
}

iso_week iso_week_of(sys_days day) {
    const sys_days thursday = day - (weekday{day} - Monday) + days(3);
    const year_month_day date = thursday;
    const auto since = thursday - sys_days{date.year() / January / 1};
    return {int(date.year()), int(since.count() / 7) + 1};
}

std::string moment_text(const moment &when) {
    char text[32];
    std::snprintf(text, sizeof text, " %02d:%02d:%02d", when.tm.tm_hour, when.tm.tm_min,
                  when.tm.tm_sec);
    return day_text(day_of(when.tm)) + text;
}

// ---- the zone of the environment ----

// A name of letters, or of more between "<" and ">".
static void take_zone_name(when_text &in) {
    const bool quoted = take(in, '<');
    const char *const start = in.at;
    while (is_letter(*in.at) || (quoted && (is_digit(*in.at) || *in.at == '+' || *in.at == '-')))
        ++in.at;
    in.failed |= in.at - start < 3;
    if (quoted) in.failed |= !take(in, '>');
}

// "2", "-03:30" or "+5:00:30", with hours up to a largest one.
static void take_zone_hours(when_text &in, int most) {
    if (*in.at == '+' || *in.at == '-') ++in.at;
    const int digits = digits_ahead(in);
    in.failed |= digits < 1 || digits > 3;
    if (in.failed) return;
    in.failed |= take_digits(in, digits) > most;
    for (int part = 0; part < 2 && take(in, ':'); ++part)
        in.failed |= take_digits(in, 2) > 59;
}

// "M3.5.0", "J60" or "59", and "/2" where wanted.
static void take_zone_rule(when_text &in) {
    const auto number = [&in](int least, int most) {
        const int digits = digits_ahead(in);
        in.failed |= digits < 1 || digits > 3;
        const int value = in.failed ? least : take_digits(in, digits);
        in.failed |= value < least || value > most;
    };
    if (take(in, 'M')) {
        number(1, 12);
        in.failed |= !take(in, '.');
        number(1, 5);
        in.failed |= !take(in, '.');
        number(0, 6);
    } else {
        const bool without_leap_day = take(in, 'J');
        number(without_leap_day ? 1 : 0, 365);
    }
    if (take(in, '/')) take_zone_hours(in, 167);
}

// Is it such as "CET-1CEST,M3.5.0,M10.5.0/3"?
static bool is_zone_rule(const std::string &text) {
    when_text in{text.c_str()};
    take_zone_name(in);
    take_zone_hours(in, 24);
    if (*in.at && !in.failed) {
        take_zone_name(in);
        if (*in.at && *in.at != ',') take_zone_hours(in, 24);
        for (int i = 0; i < 2 && !in.failed && *in.at; ++i) {
            in.failed |= !take(in, ',');
            take_zone_rule(in);
        }
    }
    return !in.failed && in.at == text.c_str() + text.size();
}

// The C library takes UTC, without a word, where TZ names nothing.
static void check_system_zone() {
    std::string name = env_text("TZ");
    if (!name.empty() && name[0] == ':') name.erase(0, 1);
    if (name.empty()) return check_own_zone();
    if (name == "UTC" || name == "GMT" || is_zone_rule(name)) return;
    if (!has_system_zone(name))
        throw failure(bad_locale, "TZ, " + name +
                                      ", names no time zone of the system; names are such as "
                                      "Europe/Paris");
}

void choose_zone(const std::string &name) {
    zone = {};
    if (name.empty()) return check_system_zone();
    zone.asked = true;
    zone.name = name;
    when_text in{name.c_str()};
    when_parts parts;
    if (name == "UTC" || name == "Z") {
        zone.fixed = true;
        zone.name = "UTC";
    } else if (name[0] == '+' || name[0] == '-') {
        take_offset(in, parts);
        if (in.failed || !parts.offset || *in.at)
            throw failure(bad_usage, "--zone " + name + " is not an offset such as +02:00");
        zone.fixed = true;
        zone.offset = *parts.offset;
        zone.name = offset_text(zone.offset);
    } else if (!choose_system_zone(name)) {
        throw failure(bad_usage,
                      "--zone " + name +
                          ": the system has no such time zone; names are such as "
                          "Europe/Paris, and UTC and offsets such as +02:00 always work");
    }
}

} // namespace kovacli
