// Years as people count them from the beginning of an era: 令和8年, พ.ศ. 2569.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "kova/kova_names.h"

namespace kovacli {

// What a directive such as %EY writes on a day; empty where it writes nothing.
wide_text era_text(const codec &code, std::string_view directive, std::chrono::sys_days day);

// The Gregorian years that begin or end in the year that a text names as %EY writes it; blanks and
// case do not count.
std::vector<int> years_named(const codec &code, const wide_text &text);

// Why a number that stands for a Gregorian year far from today's was perhaps meant as the year of
// an era: "พ.ศ. 2569 is 2026". Empty if no era has such a year within a century of today.
std::string era_meant(const codec &code, int number, std::chrono::sys_days today);

} // namespace kovacli
