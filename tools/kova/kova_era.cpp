// Years of eras, found by writing the first and last days of Gregorian years.
#include "kova/kova_era.h"

#include <algorithm>
#include <cstdlib>

#include "kova/kova_day.h"

namespace kovacli {

using namespace std::chrono;

constexpr int nearby_years = 100; // from today's

wide_text era_text(const codec &code, std::string_view directive, sys_days day) {
    const ko_tm_t tm = tm_of(day);
    wide_text format = native(code, directive);
    format.push_back(0);
    wide_text out(256);
    *ko_ext_errno(code.loc) = 0;
    const int size = ko_wcsftime(code.loc, out.data(), int(out.size()), format.data(), &tm);
    out.resize(*ko_ext_errno(code.loc) || size < 0 ? 0 : size_t(size));
    return out;
}

static wide_text without_blanks(const codec &code, wide_text text) {
    std::erase(text, native(code, " ")[0]);
    return lower_text(code, std::move(text));
}

static std::vector<sys_days> ends_of(int year_ad) {
    return {sys_days{year{year_ad} / December / 31}, sys_days{year{year_ad} / January / 1}};
}

std::vector<int> years_named(const codec &code, const wide_text &text) {
    const wide_text name = without_blanks(code, text);
    std::vector<int> years;
    for (int year_ad = 1; year_ad < 10000 && !name.empty(); ++year_ad)
        for (const sys_days day : ends_of(year_ad)) {
            if (without_blanks(code, era_text(code, "%EY", day)) != name) continue;
            if (years.empty() || years.back() != year_ad) years.push_back(year_ad);
        }
    return years;
}

std::string era_meant(const codec &code, int number, sys_days today) {
    const int now = int(year_month_day(today).year());
    if (std::abs(number - now) <= nearby_years) return "";
    const wide_text wanted = native(code, std::to_string(number));
    for (int distance = 0; distance <= nearby_years; ++distance)
        for (const int year_ad : {now - distance, now + distance})
            for (const sys_days day : ends_of(year_ad))
                if (year_ad > 0 && year_ad < 10000 && era_text(code, "%Ey", day) == wanted)
                    return outer_text(code, era_text(code, "%EY", day)) + " is " +
                           std::to_string(year_ad);
    return "";
}

} // namespace kovacli
