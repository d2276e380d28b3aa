// kova parse-date: a date and time read by a format, as a Gregorian date.
#include <cstdio>

#include "common/tool_text.h"
#include "kova/kova_cli.h"
#include "kova/kova_io.h"
#include "kova/kova_reading.h"

namespace kovacli {

// Reads the date that counts as today, such as "2026-11-21".
static std::chrono::sys_days today_of(const std::string &text) {
    if (text.empty()) return system_day();
    int year = 0, month = 0, day = 0, end = 0;
    const bool read = std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &end) == 3 &&
                      size_t(end) == text.size();
    if (!read || year < 1)
        throw failure(bad_usage, "--today, " + text + ", is not a date such as 2026-11-21");
    const std::string fault = date_fault(year, month, day);
    if (!fault.empty()) throw failure(bad_usage, "--today, " + text + ": " + fault);
    ko_set_current_time(__LINE__, __FILE__, day, month, year);
    return std::chrono::year(year) / month / day;
}

static std::string time_text(const ko_tm_t &tm) {
    char text[40];
    int size =
        std::snprintf(text, sizeof text, " %02d:%02d:%02d", tm.tm_hour, tm.tm_min, tm.tm_sec);
    if (tm.tm_usec)
        size += std::snprintf(text + size, sizeof text - size_t(size), ".%06d", int(tm.tm_usec));
    return std::string(text, size_t(size));
}

int run_parse_date(const common_options &common, const parse_date_options &options) {
    locale_handle handle;
    codec code;
    const data_place data = open_with_codec(common, options.locale, handle, code);
    if (!code.mapped) add_mapping(handle, data, code);
    const format_text format = decode_format(code, options.format, time_grammar());
    wide_text text = decode_argument(code, options.text, "TEXT");
    text.push_back(0);
    const time_names names = names_of(code, handle.object);
    const date_setting setting{code, names, today_of(options.today), options.century[0]};
    const read_date date = read_whole_date(setting, format, text);
    for (const std::string &line : date.told)
        kovatool::tell("kova", line);
    output out;
    write(out, day_text(day_of(date.tm)) + time_text(date.tm) + "\n");
    finish(out);
    return done;
}

} // namespace kovacli
