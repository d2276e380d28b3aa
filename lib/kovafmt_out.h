// The output side of number formatting: fields with sign and padding, and grouped digits.
#ifndef KOVAFMT_OUT_H
#define KOVAFMT_OUT_H

#include "kovaportable.h"

struct fmt_out {
    kovaloc *loc;
    ko_wchar_t *at;
    int64_t room; // characters that still fit
};

// A sign, a separator or a decimal symbol.
struct fmt_mark {
    int len = 0;         // in characters
    ko_wchar_t unit = 0; // written len times where there is no text
    const ko_mchar_t *bytes = nullptr;
    const ko_wchar_t *wide = nullptr;
};
fmt_mark decimal_mark(const kovaloc *loc);
fmt_mark separator_mark(const kovaloc *loc);
fmt_mark positive_mark(const kovaloc *loc);
fmt_mark negative_mark(const kovaloc *loc);
// What stands before a number: a sign, or blanks in its place.
fmt_mark sign_mark(const kovaloc *loc, bool negative, const format_modifiers &m);

inline ko_wchar_t *put_units(ko_wchar_t *at, ko_wchar_t unit, int64_t count) {
    for (; count > 0; --count)
        *at++ = unit;
    return at;
}
inline ko_wchar_t *put_mark(ko_wchar_t *at, const fmt_mark &mark) {
    for (int i = 0; i < mark.len; ++i)
        *at++ = mark.wide ? mark.wide[i] : mark.bytes ? mark.bytes[i] : mark.unit;
    return at;
}

// Takes the room of a field of at least the width, writes its sign and padding, and returns the
// place of its body characters, which the caller writes. NULL with KO_E2BIG, nothing written.
ko_wchar_t *open_field(fmt_out *out, const fmt_mark &sign, int64_t body, const format_modifiers &m);

// Digits in ASCII, first to last; zeros follow up to the total.
struct digit_run {
    const char *digits;
    int given;
    int total;
};
// Separators within that many digits. group: a count and sizes from the right; NULL: ungrouped.
int separators_in(const int *group, int digits);
// Writes the digits, and a separator after each group that is complete, so that they end at end.
void put_digits(const kovaloc *loc, ko_wchar_t *end, const digit_run &run, const int *group,
                const fmt_mark &separator);

// Conversion letters, for formatting and for parsing.
enum number_kind { number_integer, number_real, number_char, number_string };
struct number_letter {
    char letter;
    number_kind kind;
    int base;
    bool is_signed;
};
const number_letter *find_number_letter(const kovaloc *loc, ko_wchar_t wc); // NULL: none
// Steps over the letter of a size: 'l', 'h' or 0.
char scan_size(const kovaloc *loc, const ko_wchar_t **format);

// Writes a real as the letter, "e", "E", "f", "g" or "G", says. -1 with KO_E2BIG.
int format_float(fmt_out *out, double value, char letter, const format_modifiers &m);

#endif
