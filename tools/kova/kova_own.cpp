// The commands' own directives of time formats.
#include "kova/kova_own.h"

#include <cstdio>

namespace kovacli {
namespace {

// A month's name without a day, where the locale has such; else by the library's directive.
wide_text month_text(const codec &code, const time_names &names, const format_directive &d,
                     const moment &when) {
    const auto &lone = d.conversion == 'B' ? names.lone_months : names.lone_short_months;
    if (lone.empty()) return native(code, std::string("%") + d.conversion);
    return lone.at(size_t(when.tm.tm_mon));
}

std::string zone_offset(const moment &when) {
    const int minutes = when.offset / 60, size = minutes < 0 ? -minutes : minutes;
    char text[16];
    std::snprintf(text, sizeof text, "%c%02d%02d", minutes < 0 ? '-' : '+', size / 60, size % 60);
    return text;
}

std::string number_text(char letter, const moment &when) {
    char text[32];
    const iso_week week = iso_week_of(day_of(when.tm));
    if (letter == 'G') std::snprintf(text, sizeof text, "%04d", week.year);
    if (letter == 'V') std::snprintf(text, sizeof text, "%02d", week.week);
    if (letter == 'Z') {
        std::string name;
        for (const char c : when.zone)
            name += c == '%' ? "%%" : std::string(1, c); // it becomes part of a format
        return name;
    }
    return letter == 's' ? std::to_string(when.seconds) : letter == 'z' ? zone_offset(when) : text;
}

bool is_own(const format_directive &d) {
    const std::string_view months = "Bbh", others = "GVsZz";
    if (d.modifiers == "O") return d.conversion && months.find(d.conversion) != months.npos;
    return d.modifiers.empty() && d.conversion && others.find(d.conversion) != others.npos;
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
        const wide_text text = d.modifiers == "O" ? month_text(code, names, d, when)
                                                  : native(code, number_text(d.conversion, when));
        result.insert(result.end(), text.begin(), text.end());
    }
    copy_to(format.size());
    return result;
}

} // namespace kovacli
