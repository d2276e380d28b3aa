// kova cal: months of a locale's calendar, drawn like cal(1), with the Gregorian day beside each
// day of another calendar.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "common/tool_text.h"
#include "kova/kova_char.h"
#include "kova/kova_cli.h"
#include "kova/kova_day.h"
#include "kova/kova_era.h"
#include "kova/kova_io.h"
#include "kova/kova_names.h"
#include "kova/kova_page.h"
#include "kova/kova_table.h"
#include "kova/kova_when.h"

namespace kovacli {
namespace {

using std::chrono::sys_days;

struct cal_job {
    locale_handle handle;
    codec code;
    time_names names;
    unsigned first_weekday = 0; // 0 is Sunday
    bool weeks = false;         // numbered
    bool year_days = false;     // days are counted in their year
    bool marks_today = false;
};

struct month {
    ko_alt_tm_t first; // its first day in the locale's calendar
    sys_days begin;
    int length = 0;
};

// ---- text of the locale ----

int width_cols(const cal_job &job, const wide_text &text) {
    return int(columns_of_text(job.code, text.data(), text.size()));
}

void append(wide_text &line, const wide_text &text) {
    line.insert(line.end(), text.begin(), text.end());
}

void append_blanks(const cal_job &job, wide_text &line, int count) {
    if (count > 0) append(line, native(job.code, std::string(size_t(count), ' ')));
}

void append_right(const cal_job &job, wide_text &line, const wide_text &text, int cols) {
    append_blanks(job, line, cols - width_cols(job, text));
    append(line, text);
}

// A line of a drawing, with the place of today in it.
struct drawn_line {
    wide_text text;
    size_t mark = 0, mark_end = 0; // in characters; empty: not today
};
using drawing = std::vector<drawn_line>;

void write_line(const cal_job &job, const drawn_line &line, output &out) {
    const auto part = [&](size_t from, size_t to) {
        std::string text;
        encode(job.code, line.text.data() + from, to - from, text);
        return visible(job.code, text);
    };
    std::string text = part(0, job.marks_today ? line.mark : line.text.size());
    if (job.marks_today) {
        if (line.mark_end > line.mark)
            text += "\x1B[7m" + part(line.mark, line.mark_end) + "\x1B[0m";
        text += part(line.mark_end, line.text.size());
    }
    if (job.code.utf8)
        text += '\n';
    else
        encode_bytes(job.code, job.code.newline, text);
    write(out, text);
}

// Some names have blanks around them in the sources, for columns of equal width.
wide_text trimmed(const cal_job &job, wide_text text) {
    const ko_wchar_t blank = native(job.code, " ")[0];
    while (!text.empty() && text.back() == blank)
        text.pop_back();
    const auto first =
        std::find_if(text.begin(), text.end(), [blank](ko_wchar_t c) { return c != blank; });
    text.erase(text.begin(), first);
    return text;
}

// ---- dates ----

bool local_of(const cal_job &job, sys_days day, ko_alt_tm_t *local) {
    const ko_alt_tm_t t = alt_of(day);
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

// ---- arguments ----

// A number of at most five digits; -1 for anything else.
int number_of(const std::string &text) {
    if (text.empty() || text.size() > 5) return -1;
    if (text.find_first_not_of("0123456789") != text.npos) return -1;
    return std::stoi(text);
}

// Reads a month: its number in the year, or its full or short name in the locale, with or without
// the form that goes with a day, in either case.
void read_month(const cal_job &job, const std::string &text, ko_alt_tm_t *wanted) {
    constexpr int most_months = 13;
    const int number = number_of(text);
    wanted->alt_tm_mon = number - 1;
    if (number >= 1 && number <= most_months) return;
    const auto plain = [&job](const wide_text &form) {
        return lower_text(job.code, trimmed(job, form));
    };
    const wide_text name = plain(decode_argument(job.code, text, "MONTH"));
    const time_names &names = job.names;
    for (const auto *list : {&names.of[full_months], &names.of[short_months], &names.lone_months,
                             &names.lone_short_months}) {
        for (size_t i = 0; number < 0 && i < list->size(); ++i) {
            if (name.empty() || plain((*list)[i]) != name) continue;
            wanted->alt_tm_monidx = int(i);
            wanted->alt_tm_mon = names.gregorian ? wanted->alt_tm_monidx : -1;
            return;
        }
    }
    throw failure(bad_usage, "cal: \"" + text + "\" is not a month of " + job.handle.name +
                                 ": a number from 1 or a name, see kova info");
}

bool has_eras(const cal_job &job) {
    return job.names.gregorian && !job.names.of[full_eras].empty();
}

// The year that a text with an era names, such as พ.ศ. 2569; 0 for other texts.
int year_of_era(const cal_job &job, const std::string &text) {
    if (!has_eras(job) || text.empty() || number_of(text) >= 0) return 0;
    const std::vector<int> years = years_named(job.code, decode_argument(job.code, text, "YEAR"));
    return years.size() == 1 ? years[0] : 0;
}

std::string year_with_era(const cal_job &job, int year) {
    const sys_days day = std::chrono::year{year} / std::chrono::December / 31;
    return "\"" + outer_text(job.code, era_text(job.code, "%EY", day)) + "\"";
}

// A number is a year of the calendar, unless it may be the year of an era as well.
int read_year(const cal_job &job, const std::string &text) {
    const int number = number_of(text), of_era = year_of_era(job, text);
    if (of_era) return of_era;
    if (number < 1)
        throw failure(bad_usage, "cal: \"" + text + "\" is not a year, which is a number from 1");
    const std::string meant = has_eras(job) ? era_meant(job.code, number, system_day()) : "";
    if (!meant.empty())
        throw failure(bad_usage, "cal: " + text +
                                     " may be a year of an era or of the Gregorian "
                                     "calendar: " +
                                     meant + "; the year " + text + " itself is " +
                                     year_with_era(job, number));
    const auto now = int(std::chrono::year_month_day(system_day()).year());
    if (!job.names.gregorian && std::abs(number - now) <= 100)
        kovatool::tell("kova", "cal: " + text + " is a year of the calendar \"" +
                                   job.names.calendar + "\"");
    if (number < 100)
        kovatool::tell("kova", "cal: " + text + " is the year " + std::to_string(number) +
                                   " itself, not one of this century");
    return number;
}

// The month that the arguments mean; a number beyond the months, alone, is a year.
ko_alt_tm_t read_arguments(const cal_job &job, const cal_options &options, bool *whole_year) {
    ko_alt_tm_t wanted;
    if (!local_of(job, system_day(), &wanted))
        throw failure(bad_locale, "the dates of " + job.handle.name + " are of the calendar \"" +
                                      job.names.calendar + "\", which is a name without rules");
    wanted.alt_tm_mday = 1;
    std::string month_name = options.month, year_name = options.year;
    if (year_name.empty() && month_name.size() == 7 && month_name[4] == '-') { // such as 2026-11
        year_name = month_name.substr(0, 4);
        month_name.erase(0, 5);
    }
    if (year_name.empty() &&
        (options.whole_year || number_of(month_name) > 13 || year_of_era(job, month_name)))
        year_name.swap(month_name);
    *whole_year = options.whole_year || (month_name.empty() && !year_name.empty());
    if (!month_name.empty()) read_month(job, month_name, &wanted);
    if (*whole_year) wanted.alt_tm_mon = wanted.alt_tm_monidx = 0;
    if (year_name.empty()) return wanted;
    wanted.alt_tm_year = read_year(job, year_name) - 1900;
    return wanted;
}

month find_month(const cal_job &job, const ko_alt_tm_t &wanted) {
    const std::string year = std::to_string(wanted.alt_tm_year + 1900) + " of the calendar \"" +
                             job.names.calendar + "\"";
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

// The month of a day.
month month_around(const cal_job &job, sys_days day) {
    ko_alt_tm_t local;
    if (!local_of(job, day, &local))
        throw failure(bad_usage, "cal: the months around it are outside the calendar \"" +
                                     job.names.calendar + "\"");
    local.alt_tm_mday = 1;
    return find_month(job, local);
}

std::vector<month> find_months(const cal_job &job, const cal_options &options) {
    bool whole_year = false;
    const ko_alt_tm_t wanted = read_arguments(job, options, &whole_year);
    const month first = find_month(job, wanted);
    std::vector<month> months;
    if (options.three) months.push_back(month_around(job, first.begin - std::chrono::days(1)));
    months.push_back(first);
    const auto next = [&] {
        return month_around(job, months.back().begin + std::chrono::days(months.back().length));
    };
    if (options.three) months.push_back(next());
    while (months.size() < size_t(options.months))
        months.push_back(next());
    if (!whole_year) return months;
    for (month m = next(); m.first.alt_tm_year == wanted.alt_tm_year; m = next())
        months.push_back(m);
    return months;
}

// ---- drawing ----

// In its month, or in its year.
int shown_day(const cal_job &job, const month &m, int day) {
    return day + (job.year_days ? m.first.alt_tm_yday : 0);
}

// "11", or "11 (20)" with the Gregorian day.
std::string cell_text(const cal_job &job, const month &m, int day) {
    const std::string number = std::to_string(shown_day(job, m, day));
    if (job.names.gregorian) return number;
    const std::chrono::year_month_day date = m.begin + std::chrono::days(day - 1);
    const std::string other = std::to_string(unsigned(date.day()));
    return number + (other.size() < 2 ? "  (" : " (") + other + ")";
}

drawn_line centred(const cal_job &job, const wide_text &text, int cols) {
    drawn_line line;
    append_blanks(job, line.text, (cols - width_cols(job, text)) / 2);
    append(line.text, text);
    return line;
}

constexpr int week = 7;

// The number of the week that begins on a day, or around it: that of its Thursday.
int week_number(const cal_job &job, sys_days begin) {
    const unsigned to_thursday = (4 + week - job.first_weekday) % week;
    return iso_week_of(begin + std::chrono::days(int(to_thursday))).week;
}

void append_week(const cal_job &job, sys_days begin, int cols, wide_text &line) {
    if (!job.weeks) return;
    append_right(job, line, native(job.code, std::to_string(week_number(job, begin))), cols);
    append_blanks(job, line, 2);
}

void draw_days(const cal_job &job, const month &m, int cell, int gap, drawing &lines) {
    const sys_days today = system_day();
    const unsigned weekday = std::chrono::weekday(m.begin).c_encoding();
    int column = int((weekday + week - job.first_weekday) % week);
    drawn_line line;
    append_week(job, m.begin - std::chrono::days(column), 2, line.text);
    if (column) append_blanks(job, line.text, column * (cell + gap) - gap);
    for (int day = 1; day <= m.length; ++day) {
        const wide_text text = native(job.code, cell_text(job, m, day));
        append_right(job, line.text, text, column ? cell + gap : cell);
        if (m.begin + std::chrono::days(day - 1) == today) {
            line.mark = line.text.size() - text.size();
            line.mark_end = line.text.size();
        }
        column = (column + 1) % week;
        if (column && day < m.length) continue;
        lines.push_back(line);
        line = {};
        if (day < m.length) append_week(job, m.begin + std::chrono::days(day), 2, line.text);
    }
}

// When a month of the Islamic calendar begins in its Umm al-Qura form, by the lines of the object's
// header: the first year and the day, since 1970, on which it begins; then three hexadecimal digits
// for each year, whose bits from the highest on are set for months of 30 days. index counts months.
struct umalqura_month {
    int begin, length; // length 0: not known
};

umalqura_month find_umalqura(const cal_job &job, int year, int index) {
    int first = 0, begin = 0, lines = 0;
    std::string digits;
    for (const std::string &line : job.handle.object.header) {
        const std::string key = "UMALQURA_" + std::to_string(lines + 1) + "=";
        if (line.compare(0, 9, "UMALQURA=") == 0)
            std::sscanf(line.c_str() + 9, "%d %d", &first, &begin);
        if (line.compare(0, key.size(), key) != 0) continue;
        digits += line.substr(key.size());
        ++lines;
    }
    // An object of anybody's making states no year and no day that the sums below cannot hold.
    const bool sane = first > 0 && first < 10000 && begin > -4000000 && begin < 4000000;
    if (!sane || year < first) return {0, 0};
    const int from = (year - first) * 12 + index; // the months before it
    if (from / 12 * 3 + 3 > int(digits.size())) return {0, 0};
    for (int i = 0;; ++i) {
        const std::string of_year = digits.substr(size_t(i) / 12 * 3, 3);
        const long bits = std::strtol(of_year.c_str(), nullptr, 16);
        const int length = 29 + int(bits >> (11 - i % 12) & 1);
        if (i == from) return {begin, length};
        begin += length;
    }
}

// "März 2024", in a locale with eras "2月 2026 (令和8年)", with both where the era changes.
wide_text title_of(const cal_job &job, const month &m) {
    const auto index = unsigned(m.first.alt_tm_monidx);
    const bool lone = index < job.names.lone_months.size();
    wide_text title =
        trimmed(job, lone ? job.names.lone_months[index] : item_text(job.code, KO_MON_1 + index));
    append(title, native(job.code, " " + std::to_string(m.first.alt_tm_year + 1900)));
    if (job.names.of[full_eras].empty()) return title;
    const wide_text first = era_text(job.code, "%EY", m.begin);
    const wide_text last = era_text(job.code, "%EY", m.begin + std::chrono::days(m.length - 1));
    if (first.empty() && last.empty()) return title;
    append(title, native(job.code, " ("));
    append(title, first);
    if (last != first) {
        append(title, native(job.code, " - "));
        append(title, last);
    }
    append(title, native(job.code, ")"));
    return title;
}

struct layout {
    int cell, gap, cols;
    wide_text names[week];
};

layout layout_of(const cal_job &job) {
    layout l{job.names.gregorian ? 2 : 7, job.names.gregorian ? 1 : 2, 0, {}};
    if (job.year_days) ++l.cell;
    for (unsigned i = 0; i < week; ++i) {
        l.names[i] = trimmed(job, item_text(job.code, KO_ABDAY_1 + (job.first_weekday + i) % week));
        l.cell = std::max(l.cell, width_cols(job, l.names[i]));
    }
    l.cols = week * l.cell + (week - 1) * l.gap + (job.weeks ? 4 : 0);
    return l;
}

// The first and last Gregorian days, where the calendar is another one, here and in other forms.
std::vector<wide_text> spans_of(const cal_job &job, const month &m) {
    std::vector<wide_text> spans;
    const auto add = [&](const std::string &label, sys_days begin, int length) {
        const sys_days end = begin + std::chrono::days(length - 1);
        spans.push_back(native(job.code, label + day_text(begin) + " - " + day_text(end)));
    };
    if (!job.names.gregorian) add("", m.begin, m.length);
    const umalqura_month other =
        find_umalqura(job, m.first.alt_tm_year + 1900, m.first.alt_tm_monidx);
    if (other.length) add("Umm al-Qura: ", sys_days{std::chrono::days(other.begin)}, other.length);
    return spans;
}

drawing draw(const cal_job &job, const month &m, const layout &l) {
    drawing lines{centred(job, title_of(job, m), l.cols)};
    for (const wide_text &span : spans_of(job, m))
        lines.push_back(centred(job, span, l.cols));
    drawn_line head;
    if (job.weeks) append_blanks(job, head.text, 4);
    for (unsigned i = 0; i < week; ++i)
        append_right(job, head.text, l.names[i], i ? l.cell + l.gap : l.cell);
    lines.push_back(head);
    draw_days(job, m, l.cell, l.gap, lines);
    return lines;
}

// Puts a drawing to the right of others, from a column on.
void put_beside(const cal_job &job, const drawing &right, int cols, drawing &all) {
    if (all.size() < right.size()) all.resize(right.size());
    for (size_t i = 0; i < right.size(); ++i) {
        wide_text &text = all[i].text;
        append_blanks(job, text, cols - width_cols(job, text));
        if (right[i].mark_end) {
            all[i].mark = text.size() + right[i].mark;
            all[i].mark_end = text.size() + right[i].mark_end;
        }
        append(text, right[i].text);
    }
}

// Draws months three in a row, or wide ones below each other.
void draw_all(const cal_job &job, const std::vector<month> &months, output &out) {
    const layout l = layout_of(job);
    const size_t in_row = job.names.gregorian ? 3 : 1;
    int cols = l.cols;
    for (const month &m : months)
        cols = std::max(cols, width_cols(job, title_of(job, m)));
    for (size_t i = 0; i < months.size(); i += in_row) {
        drawing all;
        for (size_t j = i; j < std::min(i + in_row, months.size()); ++j)
            put_beside(job, draw(job, months[j], l), int(j - i) * (cols + 3), all);
        if (i) write_line(job, {}, out);
        for (const drawn_line &line : all)
            write_line(job, line, out);
    }
}

// Each day as a JSON object.
void write_days(const cal_job &job, const std::vector<month> &months, output &out) {
    std::vector<std::vector<cell>> rows = {
        {{"month"}, {"day", -1, true}, {"date"}, {"weekday"}, {"week", -1, true}}
    };
    for (const month &m : months) {
        const std::string title = outer_text(job.code, title_of(job, m));
        for (int day = 1; day <= m.length; ++day) {
            const sys_days date = m.begin + std::chrono::days(day - 1);
            const unsigned on = std::chrono::weekday(date).c_encoding();
            const wide_text name = trimmed(job, item_text(job.code, KO_DAY_1 + on));
            rows.push_back({{title},
                            {std::to_string(shown_day(job, m, day))},
                            {day_text(date)},
                            {outer_text(job.code, name)},
                            {std::to_string(iso_week_of(date).week)}});
        }
    }
    write_json_rows(out, rows);
}

// ---- pages ----

std::string weekday_heads(const cal_job &job) {
    std::string row = job.weeks ? "<td></td>" : "";
    for (unsigned i = 0; i < week; ++i) {
        const unsigned day = (job.first_weekday + i) % week;
        const auto name = [&](unsigned item) {
            return outer_text(job.code, trimmed(job, item_text(job.code, item + day)));
        };
        row += html_element("th", name(KO_ABDAY_1),
                            " scope=\"col\" title=\"" + html_text(name(KO_DAY_1)) + "\"");
    }
    return "<thead><tr>" + row + "</tr></thead>\n";
}

// A day, with the Gregorian one below it where the calendar is another.
std::string day_cell(const cal_job &job, const month &m, int day) {
    const sys_days date = m.begin + std::chrono::days(day - 1);
    const std::chrono::year_month_day gregorian = date;
    std::string small;
    if (!job.names.gregorian)
        small = html_element("small", std::to_string(unsigned(gregorian.day())));
    const std::string today = date == system_day() ? " class=\"today\" aria-current=\"date\"" : "";
    return "<td" + today + "><time datetime=\"" + day_text(date) + "\">" +
           std::to_string(shown_day(job, m, day)) + "</time>" + small + "</td>";
}

std::string week_row(const cal_job &job, const month &m, int first_day) {
    std::string row;
    if (job.weeks) {
        const int number = week_number(job, m.begin + std::chrono::days(first_day - 1));
        row = html_element("th", std::to_string(number), " scope=\"row\"");
    }
    for (int day = first_day; day < first_day + week; ++day)
        row += day < 1 || day > m.length ? "<td></td>" : day_cell(job, m, day);
    return "<tr>" + row + "</tr>\n";
}

std::string month_html(const cal_job &job, const month &m) {
    const unsigned weekday = std::chrono::weekday(m.begin).c_encoding();
    const int before = int((weekday + week - job.first_weekday) % week);
    std::string rows = weekday_heads(job) + "<tbody>\n";
    for (int day = 1 - before; day <= m.length; day += week)
        rows += week_row(job, m, day);
    std::string markup =
        html_box(outer_text(job.code, title_of(job, m)), "month", rows + "</tbody>\n");
    for (const wide_text &span : spans_of(job, m))
        markup += "<p class=\"dim\">" + html_element("bdi", outer_text(job.code, span)) + "</p>\n";
    return "<section>\n" + markup + "</section>\n";
}

void write_months(const cal_job &job, const std::vector<month> &months, output &out) {
    std::string title = outer_text(job.code, title_of(job, months[0])), body;
    const int year = months[0].first.alt_tm_year;
    if (months.size() >= 12 && year == months.back().first.alt_tm_year)
        title = std::to_string(year + 1900);
    else if (months.size() > 1)
        title += " \u2013 " + outer_text(job.code, title_of(job, months.back()));
    for (const month &m : months)
        body += month_html(job, m);
    write_html(out, title + " \u00B7 " + job.handle.name,
               "<div class=\"months\">\n" + body + "</div>\n",
               language_of(job.code, job.handle.object));
}

} // namespace

int run_cal(const common_options &common, const cal_options &options) {
    choose_zone("");
    cal_job job;
    common_options asked = common;
    if (options.html) asked.form = text_form::utf8;
    open_with_codec(asked, options.locale, job.handle, job.code);
    job.names = names_of(job.code, job.handle.object);
    job.first_weekday = unsigned(first_weekday(job.handle.object));
    if (options.monday) job.first_weekday = 1;
    if (options.sunday) job.first_weekday = 0;
    job.weeks = options.weeks;
    job.year_days = options.year_days;
    job.marks_today =
        options.out.empty() && job.code.utf8 && is_terminal(stdout) && env_text("NO_COLOR").empty();
    const std::vector<month> months = find_months(job, options);
    output out;
    open(out, options.out);
    if (options.html)
        write_months(job, months, out);
    else if (common.json)
        write_days(job, months, out);
    else
        draw_all(job, months, out);
    finish(out);
    return done;
}

} // namespace kovacli
