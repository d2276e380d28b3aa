// Integers and reals as text under a locale: what number, money and time texts share.
#ifndef KOVALIBN_H
#define KOVALIBN_H

#include "chars/kovaportable.h"
#include "number/kovafmt.h"

#include <array>

constexpr int number_room = 256; // a text of this many characters is not a number
constexpr ko_long_t long_failure = 0x7FFFFFFF;
constexpr double real_failure = 2147483647.0;

// ---- Symbols ----

// A separator or decimal symbol to look for in a text.
struct wide_symbol {
    const ko_wchar_t *units;
    int len; // 0: never found
};
enum { mode_number = 0, mode_money = 1 };

// The group separator of a mode (none for any other mode) and the decimal symbol, as reading looks
// for them. Deliberately, one that has fewer characters than bytes is never found, unless every
// character of the code set has several bytes.
wide_symbol group_separator(const kovaloc *loc, int mode);
wide_symbol decimal_symbol(const kovaloc *loc);

// Does a text, of which at most most units may be read, begin with the symbol?
template <class Unit> inline bool symbol_at(const Unit *text, int most, const wide_symbol &symbol) {
    if (!symbol.len || most < symbol.len || text[0] != symbol.units[0]) return false;
    for (int i = 1; i < symbol.len; ++i)
        if (text[i] != symbol.units[i]) return false;
    return true;
}

// ---- Digits ----

constexpr unsigned no_digit = 0xFF;
// Values of portable characters as digits: 0..9, and 10..35 for letters of either case.
inline constexpr auto digit_values = [] {
    std::array<unsigned char, 256> values{};
    for (unsigned c = 0; c < 256; ++c) {
        unsigned value = no_digit;
        if (c >= '0' && c <= '9') value = c - '0';
        if (c >= 'a' && c <= 'z') value = c - 'a' + 10;
        if (c >= 'A' && c <= 'Z') value = c - 'A' + 10;
        values[c] = uint8_t(value);
    }
    return values;
}();
inline unsigned digit_of(const kovaloc *loc, unsigned wc) {
    const unsigned c = portable(loc, wc);
    return c < 256 ? digit_values[c] : no_digit;
}

// Writes the digits of a value in base 2..36, at most 32, with upper-case letters and no
// terminator, so that they end before end. Returns the first.
char *long_base_str(char *end, ko_ulong_t value, int base);

// Computes digits times ten to the power of the exponent. False if one operation on exact operands
// cannot give it.
bool exact_real(uint64_t digits, int64_t exponent, double *value);

// ---- Reading ----

// The functions underneath ko_wcstoul and ko_wcstod: they read at most most units, or up to the
// terminator, without copying. Return the units read, white space included: 0 if there is no number
// (*value is 0), -1 with KO_EINVAL if the number is refused (*value is long_failure or
// real_failure).
int read_ulong(kovaloc *loc, const ko_wchar_t *text, int most, int base, bool grouping,
               ko_ulong_t *value);
int read_real(kovaloc *loc, const ko_wchar_t *text, int most, bool grouping, int mode,
              double *value);
// How many units at the start of a text are digits of a base (2..36), including group separators
// between them and the prefix of the base before them.
int grouped_run(kovaloc *loc, const ko_wchar_t *text, int most, int base);

#endif
