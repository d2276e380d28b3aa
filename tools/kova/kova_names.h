// The words of a locale's times, and ASCII in its code set, as wide characters.
#pragma once

#include <array>
#include <string_view>
#include <vector>

#include "kova/kova_text.h"

namespace kovacli {

using wide_text = std::vector<ko_wchar_t>;

wide_text native(const codec &code, std::string_view ascii);

// An item of ko_wc_nl_langinfo.
wide_text item_text(const codec &code, unsigned item);

// In lower case; as many characters.
wide_text lower_text(const codec &code, wide_text text);

std::string outer_text(const codec &code, const wide_text &text);

// The groups of ko_mbstimeinfo, by its numbers.
enum name_group {
    full_days = 1,
    short_days,
    full_months,
    short_months,
    full_eras,
    short_eras,
    own_digits,
    day_halves,
    name_groups
};

struct time_names {
    std::array<std::vector<wide_text>, name_groups> of;
    // Names of months as they are without a day, where the locale has such: 12, or none.
    std::vector<wide_text> lone_months, lone_short_months;
    bool gregorian = true;
    std::string calendar; // "gregorian", "hebrew", ...
};
int first_weekday(const object_file &object); // 0 is Sunday
time_names names_of(const codec &code, const object_file &object);

} // namespace kovacli
