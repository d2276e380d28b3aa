// kova cal: a month of a locale's calendar, drawn like cal(1), with the Gregorian day beside each
// day of another calendar.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string_view>

#include "kova/kova_char.h"
#include "kova/kova_cli.h"
#include "kova/kova_io.h"
#include "kova/kova_locale.h"
#include "kova/kova_text.h"

namespace kovacli {
namespace {

using std::chrono::sys_days;
using wide_text = std::vector<ko_wchar_t>;

struct cal_job {
    locale_handle handle;
    codec code;
    std::string calendar; // "gregorian", "hebrew", ...
    bool gregorian = true;
    unsigned first_weekday = 0; // 0 is Sunday
};

struct month {
    ko_alt_tm_t first; // its first day in the locale's calendar
    sys_days begin;
    int length = 0;
};

// ---- text of the locale ----

// ASCII in the locale's code set.
wide_text plain(const cal_job &job, std::string_view text) {
    const codec &code = job.code;
    wide_text wide;
    for (const char c : text) {
        const auto point = uint8_t(c);
        const ko_wchar_t mapped = code.mapped && !code.utf16 ? code.wide_of[point] : point;
        wide.push_back(mapped ? mapped : point);
    }
    return wide;
}

wide_text item(const cal_job &job, unsigned number) {
    const ko_wchar_t *text = ko_wc_nl_langinfo(job.handle.loc, number);
    return text ? wide_text(text, text + ko_wcslen(text)) : wide_text();
}

int width_cols(const cal_job &job, const wide_text &text) {
    return int(columns_of_text(job.code, text.data(), text.size()));
}

void append(wide_text &line, const wide_text &text) {
    line.insert(line.end(), text.begin(), text.end());
}

void append_blanks(const cal_job &job, wide_text &line, int count) {
    if (count > 0) append(line, plain(job, std::string(size_t(count), ' ')));
}

void append_right(const cal_job &job, wide_text &line, const wide_text &text, int cols) {
    append_blanks(job, line, cols - width_cols(job, text));
    append(line, text);
}

void write_line(const cal_job &job, const wide_text &line, output &out) {
    std::string text;
    encode(job.code, line.data(), line.size(), text);
    text = visible(job.code, text);
    if (job.code.utf8)
        text += '\n';
    else
        encode_bytes(job.code, job.code.newline, text);
    write(out, text);
}

// ---- dates ----

ko_alt_tm_t record_of(sys_days day) {
    const std::chrono::year_month_day date = day;
    ko_alt_tm_t t = {};
    t.alt_tm_year = int(date.year()) - 1900;
    t.alt_tm_mon = t.alt_tm_monidx = int(unsigned(date.month())) - 1;
    t.alt_tm_mday = int(unsigned(date.day()));
    return t;
}

bool local_of(const cal_job &job, sys_days day, ko_alt_tm_t *local) {
    const ko_alt_tm_t t = record_of(day);
    return ko_cal_gregorian_to_local(job.handle.loc, &t, local) == 0;
}

constexpr int last_year = 10323; // the last with dates in another calendar

// Finds the first day of a month in the Gregorian calendar. False for a month out of range.
bool begin_of(const cal_job &job, const ko_alt_tm_t &local, sys_days *day) {
    ko_alt_tm_t t;
    if (ko_cal_local_to_gregorian(job.handle.loc, &local, &t) != 0) return false;
    const int year = t.alt_tm_year + 1900;
    if (t.alt_tm_mon < 0 || t.alt_tm_mon > 11 || year < 1 || year > last_year) return false;
    *day = std::chrono::year(year) / (t.alt_tm_mon + 1) / t.alt_tm_mday;
    return true;
}

sys_days today() {
    uint16_t mdy[3] = {};
    ko_ext_currdate(mdy);
    return std::chrono::year(mdy[2]) / int{mdy[0]} / int{mdy[1]};
}

// ---- arguments ----

// A number of at most five digits; -1 for anything else.
int number_of(const std::string &text) {
    if (text.empty() || text.size() > 5) return -1;
    if (text.find_first_not_of("0123456789") != text.npos) return -1;
    return std::stoi(text);
}

wide_text lower(const cal_job &job, wide_text text) {
    wide_text result(text.size() + 1);
    text.push_back(0);
    ko_towcslower(job.handle.loc, result.data(), text.data());
    return result;
}

// Reads a month: its number in the year, or its full or short name in the locale, in either case.
void read_month(const cal_job &job, const std::string &text, ko_alt_tm_t *wanted) {
    constexpr int most_months = 13;
    constexpr unsigned names = KO_ABMON_1 - KO_MON_1;
    const int number = number_of(text);
    wanted->alt_tm_mon = number - 1;
    if (number >= 1 && number <= most_months) return;
    const wide_text name = lower(job, decode_argument(job.code, text, "MONTH"));
    for (unsigned i = 0; number < 0 && i < 2 * names; ++i) {
        const wide_text known = item(job, KO_MON_1 + i);
        if (known.empty() || lower(job, known) != name) continue;
        wanted->alt_tm_monidx = int(i % names);
        wanted->alt_tm_mon = job.gregorian ? wanted->alt_tm_monidx : -1;
        return;
    }
    throw failure(bad_usage, "cal: \"" + text + "\" is not a month of " + job.handle.name +
                                 ": a number from 1 or a name, see kova info");
}

ko_alt_tm_t read_arguments(const cal_job &job, const cal_options &options) {
    ko_alt_tm_t wanted;
    if (!local_of(job, today(), &wanted))
        throw failure(bad_locale, "the dates of " + job.handle.name + " are of the calendar \"" +
                                      job.calendar + "\", which is a name without rules");
    wanted.alt_tm_mday = 1;
    if (!options.month.empty()) read_month(job, options.month, &wanted);
    if (options.year.empty()) return wanted;
    const int year = number_of(options.year);
    if (year < 1)
        throw failure(bad_usage,
                      "cal: \"" + options.year + "\" is not a year, which is a number from 1");
    wanted.alt_tm_year = year - 1900;
    return wanted;
}

month find_month(const cal_job &job, const cal_options &options) {
    const ko_alt_tm_t wanted = read_arguments(job, options);
    const std::string year =
        std::to_string(wanted.alt_tm_year + 1900) + " of the calendar \"" + job.calendar + "\"";
    month found;
    const auto same_month = [&found](const ko_alt_tm_t &t) {
        return t.alt_tm_year == found.first.alt_tm_year && t.alt_tm_mon == found.first.alt_tm_mon;
    };
    if (!begin_of(job, wanted, &found.begin) || !local_of(job, found.begin, &found.first))
        throw failure(bad_usage, "cal: there is no such month in the year " + year +
                                     ", or its dates cannot be converted");
    if (found.first.alt_tm_year != wanted.alt_tm_year)
        throw failure(bad_usage, "cal: there is no such month in the year " + year);
    ko_alt_tm_t t = found.first;
    while (same_month(t) && found.length < 31) {
        ++found.length;
        if (!local_of(job, found.begin + std::chrono::days(found.length), &t)) break;
    }
    return found;
}

// ---- drawing ----

std::string date_text(sys_days day) {
    const std::chrono::year_month_day date = day;
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u", int(date.year()), unsigned(date.month()),
                  unsigned(date.day()));
    return text;
}

// "11", or "11 (20)" with the Gregorian day.
std::string day_text(const cal_job &job, const month &m, int day) {
    const std::string number = std::to_string(day);
    if (job.gregorian) return number;
    const std::chrono::year_month_day date = m.begin + std::chrono::days(day - 1);
    const std::string other = std::to_string(unsigned(date.day()));
    return number + (other.size() < 2 ? "  (" : " (") + other + ")";
}

void write_centred(const cal_job &job, const wide_text &text, int cols, output &out) {
    wide_text line;
    append_blanks(job, line, (cols - width_cols(job, text)) / 2);
    append(line, text);
    write_line(job, line, out);
}

constexpr int week = 7;

void write_days(const cal_job &job, const month &m, int cell, int gap, output &out) {
    const unsigned weekday = std::chrono::weekday(m.begin).c_encoding();
    int column = int((weekday + week - job.first_weekday) % week);
    wide_text line;
    append_blanks(job, line, column * (cell + gap));
    for (int day = 1; day <= m.length; ++day) {
        append_right(job, line, plain(job, day_text(job, m, day)), column ? cell + gap : cell);
        column = (column + 1) % week;
        if (column && day < m.length) continue;
        write_line(job, line, out);
        line.clear();
    }
}

void draw(const cal_job &job, const month &m, output &out) {
    const int gap = job.gregorian ? 1 : 2;
    int cell = job.gregorian ? 2 : int(day_text(job, m, 28).size());
    wide_text names[week], line;
    for (unsigned i = 0; i < week; ++i) {
        names[i] = item(job, KO_ABDAY_1 + (job.first_weekday + i) % week);
        cell = std::max(cell, width_cols(job, names[i]));
    }
    const int cols = week * cell + (week - 1) * gap;
    wide_text title = item(job, KO_MON_1 + unsigned(m.first.alt_tm_monidx));
    append(title, plain(job, " " + std::to_string(m.first.alt_tm_year + 1900)));
    write_centred(job, title, cols, out);
    const std::string span =
        date_text(m.begin) + " - " + date_text(m.begin + std::chrono::days(m.length - 1));
    if (!job.gregorian) write_centred(job, plain(job, span), cols, out);
    for (const wide_text &name : names)
        append_right(job, line, name, line.empty() ? cell : cell + gap);
    write_line(job, line, out);
    write_days(job, m, cell, gap, out);
}

} // namespace

int run_cal(const common_options &common, const cal_options &options) {
    cal_job job;
    open_with_codec(common, options.locale, job.handle, job.code);
    if (const ko_mchar_t *name = ko_nl_langinfo(job.handle.loc, KO_CALENDAR))
        job.calendar = reinterpret_cast<const char *>(name);
    job.calendar.erase(std::min(job.calendar.find('\n'), job.calendar.size()));
    job.gregorian = job.calendar == "gregorian";
    for (const std::string &line : job.handle.object.header)
        if (line.size() == 15 && line.compare(0, 14, "FIRST_WEEKDAY=") == 0)
            job.first_weekday = unsigned(line[14] - '0') % 7;
    const month m = find_month(job, options);
    output out;
    draw(job, m, out);
    finish(out);
    return done;
}

} // namespace kovacli
