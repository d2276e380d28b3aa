// Digits of the scripts of the world, by the names that CLDR has for them.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "kova/kova_text.h"

namespace kovacli {

// The digits 0 to 9 in the outer form; all empty where they stay as they are.
using digit_set = std::array<std::string, 10>;

// "deva", "arab", ..., "native" for those of the locale's language, "" and "latn" for 0 to 9.
// Throws failure.
digit_set digits_named(const codec &code, const std::string &name, const object_file &object);

// The outer form of wide characters, with other digits.
std::string with_digits(const codec &code, const digit_set &digits, const ko_wchar_t *wide,
                        size_t count);

// Text in the outer form with decimal digits of any script as 0 to 9.
std::string plain_digits(const codec &code, const std::string &text);

// The value of a decimal digit of any script; -1 for other characters.
int digit_value(uint32_t code_point);

} // namespace kovacli
