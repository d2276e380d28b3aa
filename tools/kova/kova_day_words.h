// Names of months and of days of the week as people type them: English ones, and those of a locale.
#pragma once

#include <cstddef>
#include <string>

#include "kova/kova_names.h"

namespace kovacli {

// From now on the names of a locale count, too. Those of its months do not where years may be
// counted otherwise: in locales with eras or with another calendar.
void choose_words(const codec &code, const time_names &names);

// The longest name at the start of a text, in either case, with a point that follows it.
struct name_found {
    size_t len = 0;  // 0: none
    int number = -1; // from 0; -1 if names of several begin the text
};
name_found month_at(const char *text);
name_found weekday_at(const char *text); // 0 is Sunday

} // namespace kovacli
