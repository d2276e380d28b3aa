// kova parse-date: a date and time read by a format, as a Gregorian date.
#include <cstdio>

#include "kova/kova_char.h"
#include "kova/kova_cli.h"
#include "kova/kova_format.h"
#include "kova/kova_io.h"

namespace kovacli {

// What the library's error numbers mean for a text.
static std::string reason(int error) {
    switch (error) {
    case KO_EDIRECTIVE:
        return "no such directive, or the text differs from it";
    case KO_EFORMAT:
        return "the format ends inside a directive";
    case KO_EPRECISION:
        return "a \".\" without digits";
    case KO_EMISMATCH:
        return "the text differs here";
    case KO_ESECRANGE:
    case KO_EMINRANGE:
    case KO_EHOURRANGE:
    case KO_EDAYRANGE:
    case KO_EWDAYRANGE:
    case KO_EYDAYRANGE:
    case KO_EMONTHRANGE:
    case KO_EYEARRANGE:
    case KO_ERANGE:
        return "the number is out of range";
    case KO_EFRACTION:
        return "no fraction of a second, or one with fewer digits";
    case KO_EERA:
        return "no era, or none that contains the date";
    case KO_EMONTHNAME:
        return "no name of a month";
    case KO_EWDAY:
        return "no day of the week";
    default:
        return "not a number";
    }
}

// Reads the date that counts as today, such as "2026-11-21".
static ko_tm_t today_of(const std::string &text) {
    ko_tm_t tm = {};
    if (text.empty()) {
        uint16_t mdy[3] = {};
        ko_ext_currdate(mdy);
        tm.tm_mday = mdy[1];
        tm.tm_mon = mdy[0] - 1;
        tm.tm_year = mdy[2] - 1900;
        return tm;
    }
    int year = 0, month = 0, day = 0, end = 0;
    const bool read = std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &end) == 3 &&
                      size_t(end) == text.size();
    if (!read || year < 1 || month < 1 || month > 12 || day < 1 || day > 31)
        throw failure(bad_usage, "--today, " + text + ", is not a date such as 2026-11-21");
    ko_set_current_time(__LINE__, __FILE__, day, month, year);
    tm.tm_mday = day;
    tm.tm_mon = month - 1;
    tm.tm_year = year - 1900;
    return tm;
}

// Reports which directive fails and, below that, where in the text.
[[noreturn]] static void bad_date(const codec &code, const format_text &format,
                                  const std::vector<ko_wchar_t> &text, int error) {
    const ko_wchar_t *reached = text.data();
    const size_t place = longest_working(format, [&](const ko_wchar_t *front) {
        time_info info{};
        const ko_wchar_t *end = ko_wcsptime1(code.loc, text.data(), front, &info, 'R');
        if (end) reached = end;
        return end != nullptr;
    });
    const size_t read = size_t(reached - text.data());
    std::string shown;
    encode(code, text.data(), text.size() - 1, shown);
    if (place + 1 == format.wide.size())
        throw failure(bad_text, shown + ": there is no such date: " + reason(error) + " (error " +
                                    std::to_string(error) + ")");
    const size_t columns = columns_of_text(code, text.data(), read);
    const bool of_format = error == KO_EFORMAT || error == KO_EPRECISION;
    try {
        fail_in_format(code, format, place, of_format ? bad_usage : bad_text, reason(error));
    } catch (const failure &e) {
        throw failure(e.status, e.what(),
                      e.excerpt + "\nand at character " + std::to_string(read + 1) +
                          " of the text\n  " + shown + "\n  " + std::string(columns, ' ') + '^');
    }
}

int run_parse_date(const common_options &common, const parse_date_options &options) {
    locale_handle handle;
    codec code;
    const data_place data = open_with_codec(common, options.locale, handle, code);
    if (!code.mapped) add_mapping(handle, data, code);
    const format_text format = decode_format(code, options.format, {"-+ #'", "EOi", "F"});
    std::vector<ko_wchar_t> text = decode_argument(code, options.text, "TEXT");
    text.push_back(0);
    ko_tm_t tm = today_of(options.today);
    *ko_ext_errno(code.loc) = 0;
    const ko_wchar_t *end =
        ko_wcsptime(code.loc, text.data(), format.wide.data(), &tm, options.century[0]);
    if (!end) bad_date(code, format, text, *ko_ext_errno(code.loc));
    char line[80];
    int size = std::snprintf(line, sizeof line, "%04d-%02d-%02d %02d:%02d:%02d", tm.tm_year + 1900,
                             tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
    if (tm.tm_usec)
        size += std::snprintf(line + size, sizeof line - size_t(size), ".%06d", int(tm.tm_usec));
    std::string result(line, size_t(size));
    result += '\n';
    if (*end) {
        result += "not read: ";
        encode(code, end, size_t(&text.back() - end), result);
        result += '\n';
    }
    output out;
    write(out, for_terminal(code, result));
    finish(out);
    return done;
}

} // namespace kovacli
