// kova date: a date and time in the words of a locale.
#include <chrono>

#include "common/tool_text.h"
#include "kova/kova_cli.h"
#include "kova/kova_format.h"
#include "kova/kova_io.h"

namespace kovacli {

// What the library's error numbers say of a format and a date.
static std::string reason(int error) {
    switch (error) {
    case KO_EDIRECTIVE:
        return "no such directive, or a format of the locale that contains itself";
    case KO_EFORMAT:
        return "the format ends inside a directive";
    case KO_EPRECISION:
        return "a \".\" without digits";
    case KO_ERANGE:
        return "no era contains the date";
    case KO_EYEARRANGE:
        return "the year is out of range, or the date is outside the locale's calendar";
    case KO_EYDAY:
        return "the day of the year is beyond 366";
    case KO_E2BIG:
        return "the result is too long";
    default:
        return "the date is out of range (error " + std::to_string(error) + ")";
    }
}

[[noreturn]] static void bad_when(const std::string &text) {
    throw failure(bad_usage, "--at \"" + text +
                                 "\" is not a date and time such as 2026-11-21, \"2026-11-21 "
                                 "14:30:05\" or 2026-11-21T14:30:05.25");
}

// Digits, at most so many. False without any.
static bool take_number(const char *&at, int most, int *number) {
    const char *const start = at;
    for (*number = 0; at - start < most && *at >= '0' && *at <= '9'; ++at)
        *number = *number * 10 + (*at - '0');
    return at != start;
}

static bool take(const char *&at, char sign) { return *at == sign && *at++; }

// ":SS" or ":SS.FFFFFF", further digits being dropped.
static bool take_seconds(const char *&at, ko_tm_t &tm) {
    if (!take(at, ':')) return true;
    if (!take_number(at, 2, &tm.tm_sec)) return false;
    if (!take(at, '.')) return true;
    const char *const start = at;
    for (int digit, unit = 100000; take_number(at, 1, &digit); unit /= 10)
        tm.tm_usec += digit * unit;
    return at != start;
}

// Reads "YYYY-MM-DD", optionally followed by a blank or "T", "HH:MM" and the seconds.
static ko_tm_t time_of(const std::string &text) {
    using namespace std::chrono;
    ko_tm_t tm = {};
    int year_ad = 0, month_no = 0;
    const char *at = text.c_str();
    bool good = take_number(at, 4, &year_ad) && at - text.c_str() == 4 && take(at, '-') &&
                take_number(at, 2, &month_no) && take(at, '-') && take_number(at, 2, &tm.tm_mday);
    if (good && *at) {
        good = (take(at, ' ') || take(at, 'T')) && take_number(at, 2, &tm.tm_hour) &&
               take(at, ':') && take_number(at, 2, &tm.tm_min) && take_seconds(at, tm);
    }
    const year_month_day date{year{year_ad}, month{unsigned(month_no)}, day{unsigned(tm.tm_mday)}};
    if (!good || *at || !date.ok() || tm.tm_hour > 23 || tm.tm_min > 59 || tm.tm_sec > 61)
        bad_when(text);
    tm.tm_year = year_ad - 1900;
    tm.tm_mon = month_no - 1;
    const sys_days days{date};
    tm.tm_wday = int(weekday{days}.c_encoding());
    tm.tm_yday = int((days - sys_days{date.year() / January / 1}).count());
    return tm;
}

static bool write_date(const codec &code, const ko_wchar_t *format, const ko_tm_t &tm,
                       std::vector<ko_wchar_t> &result) {
    const auto write_into = [&](ko_wchar_t *out, int room) {
        const int size = ko_wcsftime(code.loc, out, room, format, &tm);
        int &error = *ko_ext_errno(code.loc);
        if (error == KO_EYEAR) error = KO_E2BIG; // the year alone names its own lack of room
        return error ? -1 : size;
    };
    return written_text(code.loc, write_into, result);
}

int run_date(const common_options &common, const date_options &options) {
    ko_tm_t tm = {};
    if (options.at == "now")
        ko_ext_currtime(&tm);
    else
        tm = time_of(options.at);
    locale_handle handle;
    codec code;
    const data_place data = open_with_codec(common, options.locale, handle, code);
    if (!code.mapped) add_mapping(handle, data, code);
    const format_text format = decode_format(code, options.format, time_grammar());
    std::vector<ko_wchar_t> result;
    if (!write_date(code, format.wide.data(), tm, result)) {
        const int error = *ko_ext_errno(code.loc);
        const size_t place = longest_working(
            format, [&](const ko_wchar_t *front) { return write_date(code, front, tm, result); });
        const bool of_format =
            error == KO_EDIRECTIVE || error == KO_EFORMAT || error == KO_EPRECISION;
        fail_in_format(code, format, place, of_format ? bad_usage : bad_text, reason(error));
    }
    std::string line;
    encode(code, result.data(), result.size(), line);
    if (line.empty() && !options.format.empty())
        kovatool::tell("kova", handle.name + " writes nothing for this format");
    output out;
    write(out, for_terminal(code, line) + "\n");
    finish(out);
    return done;
}

} // namespace kovacli
