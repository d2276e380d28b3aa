// Decimal numbers of any length, without rounding, and the units of 1000 and 1024 that follow them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace kovacli {

struct decimal {
    bool negative = false;
    std::string digits; // without zeros at either end; empty for 0
    int64_t point = 0;  // how many of them are whole; may be negative, or more than there are
};

// Reads digits with ".", a sign and an exponent. False if the text is something else, or has an
// exponent beyond 9999.
bool read_decimal(std::string_view text, decimal &number);

// Digits with ".", no exponent.
std::string text_of(const decimal &number);

enum class rounding { from_zero, towards_zero, up, down, nearest };

// Rounds to some digits after the point. Halves go away from zero by nearest.
void round_to(decimal &number, int places, rounding rule);

// ---- units ----

enum class unit_scale { none, si, iec, iec_i, any };

// "si", "iec", "iec-i", "auto", "" for none.
unit_scale scale_named(const std::string &name);

// Multiplies by the unit at the end of the text, if there is one, and cuts it off. Throws failure
// where the scale does not have it.
decimal read_with_unit(const std::string &text, const std::string &what, unit_scale scale);

struct scaled {
    decimal number;
    std::string unit; // "", "K", "Mi", ...
    int places = 0;   // digits after the point to write
};
// Divides by the largest unit that leaves a whole part, and rounds: to places, or for -1 to one
// digit below ten and none above.
scaled scaled_to(decimal number, unit_scale scale, int places, rounding rule);

// The number that digits begin with; most if it is larger, however many digits it has.
inline int number_up_to(const char *digits, int most) {
    return int(std::min(std::strtol(digits, nullptr, 10), long{most}));
}

} // namespace kovacli
