// The commands' own directives of time formats.
#include "kova/kova_own.h"

#include <cstdio>

#include "kova/kova_char.h"

namespace kovacli {
namespace {

constexpr int most_columns = 1000000;

// What stands between "%" and the letter, as the library reads it: padding at the end or of zeros,
// the width, the precision.
struct directive_size {
    bool left = false, zeros = false;
    int width = 0, precision = -1;
    std::string others; // letters
};

int take_number(const std::string &text, size_t &at) {
    int value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
        value = value > most_columns ? value : value * 10 + (text[at] - '0');
    if (value > most_columns) throw failure(bad_usage, "a width of the format is too large");
    return value;
}

directive_size size_of(const std::string &modifiers) {
    directive_size size;
    size_t at = modifiers.find_first_not_of("-+ #'0");
    at = at == modifiers.npos ? modifiers.size() : at;
    const std::string flags = modifiers.substr(0, at);
    size.left = flags.find('-') != flags.npos;
    size.zeros = flags.find('0') != flags.npos;
    size.width = take_number(modifiers, at);
    const bool point = at + 1 < modifiers.size() && modifiers[at] == '.' &&
                       std::string_view("0123456789").find(modifiers[at + 1]) != modifiers.npos;
    if (point) size.precision = take_number(modifiers, ++at);
    size.others = modifiers.substr(at);
    return size;
}

// A text cut and padded by columns as the library does it, and fit for a format.
wide_text sized(const codec &code, wide_text text, const directive_size &size) {
    const ko_wchar_t percent = native(code, "%")[0];
    size_t most = size.precision > 0 ? size_t(size.precision) : text.size() * 2, units = 0;
    for (size_t cols = 0; units < text.size();) {
        const size_t next = units_of(code, text.data() + units, text.size() - units);
        cols += columns_of_text(code, text.data() + units, next);
        if (cols > most) break;
        units += next;
    }
    text.resize(units);
    const size_t cols = columns_of_text(code, text.data(), text.size());
    const size_t missing = size_t(size.width) > cols ? size_t(size.width) - cols : 0;
    const bool zeros = size.zeros && !size.left;
    const wide_text padding = native(code, std::string(missing, zeros ? '0' : ' '));
    text.insert(size.left ? text.end() : text.begin(), padding.begin(), padding.end());
    for (size_t i = text.size(); i-- > 0;)
        if (text[i] == percent) text.insert(text.begin() + long(i), percent);
    return text;
}

const std::vector<wide_text> &lone_names(const time_names &names, char letter) {
    return letter == 'B' ? names.lone_months : names.lone_short_months;
}

// A month's name without a day, where the locale has such; else by the library's directive.
wide_text month_text(const codec &code, const time_names &names, const format_directive &d,
                     const moment &when) {
    const auto &lone = lone_names(names, d.conversion);
    if (!lone.empty()) return sized(code, lone.at(size_t(when.tm.tm_mon)), size_of(d.modifiers));
    std::string plain = "%" + d.modifiers + d.conversion;
    plain.erase(plain.find('O'), 1);
    return native(code, plain);
}

std::string zone_offset(const moment &when) {
    const int minutes = when.offset / 60, size = minutes < 0 ? -minutes : minutes;
    char text[16];
    std::snprintf(text, sizeof text, "%c%02d%02d", minutes < 0 ? '-' : '+', size / 60, size % 60);
    return text;
}

// A number with at least so many digits.
std::string digits_text(int64_t value, int digits) {
    std::string text = std::to_string(value < 0 ? -value : value);
    if (int(text.size()) < digits) text.insert(0, size_t(digits) - text.size(), '0');
    return value < 0 ? "-" + text : text;
}

std::string own_text(char letter, const moment &when, int precision) {
    const iso_week week = iso_week_of(day_of(when.tm));
    if (letter == 'Z') return when.zone;
    if (letter == 'z') return zone_offset(when);
    if (letter == 's') return digits_text(when.seconds, precision);
    const int usual = letter == 'G' ? 4 : 2;
    return digits_text(letter == 'G' ? week.year : week.week, precision < 0 ? usual : precision);
}

bool is_own(const format_directive &d) {
    const directive_size size = size_of(d.modifiers);
    std::string_view letters = d.modifiers.empty() ? "GVsZz" : "GVsZ";
    if (!size.others.empty()) letters = size.others == "O" ? "Bbh" : "";
    return d.conversion && letters.find(d.conversion) != letters.npos;
}

wide_text text_of(const codec &code, const time_names &names, const format_directive &d,
                  const moment &when) {
    const std::string_view months = "Bbh";
    if (months.find(d.conversion) != months.npos) return month_text(code, names, d, when);
    directive_size size = size_of(d.modifiers);
    const wide_text text = native(code, own_text(d.conversion, when, size.precision));
    if (d.conversion != 'Z') size.precision = -1; // which is of digits
    return sized(code, text, size);
}

} // namespace

wide_text with_own_directives(const codec &code, const time_names &names, const wide_text &format,
                              const moment &when) {
    const format_text split =
        split_format(code, wide_text(format.begin(), format.end() - 1), time_grammar());
    wide_text result;
    size_t at = 0;
    const auto copy_to = [&](size_t end) {
        result.insert(result.end(), format.begin() + long(at), format.begin() + long(end));
        at = end;
    };
    for (const format_directive &d : split.directives) {
        if (!is_own(d)) continue;
        copy_to(d.start);
        at = d.end;
        const wide_text text = text_of(code, names, d, when);
        result.insert(result.end(), text.begin(), text.end());
    }
    copy_to(format.size());
    return result;
}

} // namespace kovacli
