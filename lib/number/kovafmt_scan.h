// The scanner of the modifiers between "%" and a conversion letter.
#ifndef KOVAFMT_SCAN_H
#define KOVAFMT_SCAN_H

#include "chars/kovaportable.h"
#include "number/kovafmt.h"

#include <limits.h>

#include <array>

inline bool is_format_digit(unsigned c) { return c - '0' < 10; }
inline bool is_format_letter(unsigned c) { return (c | 0x20) - 'a' < 26; }

// Flags by their character; the list ends before "0", which is not one of them.
inline constexpr auto format_flags = [] {
    std::array<unsigned char, '0'> flags{};
    flags[' '] = fmt_space;
    flags['#'] = fmt_alternate;
    flags['\''] = fmt_group;
    flags['+'] = fmt_plus;
    flags['-'] = fmt_left;
    return flags;
}();

// Reads a run of digits; the value saturates.
template <class Unit>
inline const Unit *scan_digits(const kovaloc *loc, const Unit *at, int *value) {
    int64_t number = 0;
    for (unsigned c; is_format_digit(c = portable(loc, *at)); ++at) {
        number = number * 10 + int(c - '0');
        if (number > INT_MAX) number = INT_MAX;
    }
    *value = int(number);
    return at;
}

// Skips the flags; a "0" is the last.
template <class Unit>
inline const Unit *scan_format_flags(const kovaloc *loc, const Unit *at, unsigned *flags) {
    unsigned c;
    for (; (c = portable(loc, *at)) < format_flags.size() && format_flags[c]; ++at)
        *flags |= format_flags[c];
    if (c != '0') return at;
    if (!(*flags & fmt_left)) *flags |= fmt_zero;
    return at + 1;
}

// Reads a number or a star.
template <class Unit>
inline const Unit *scan_star_or_number(const kovaloc *loc, const Unit *at, int *value, bool *star) {
    const unsigned c = portable(loc, *at);
    *star = c == '*';
    return is_format_digit(c) ? scan_digits(loc, at, value) : at + *star;
}

// Digits before a "$" select an argument, which is refused: arguments can only be taken in order.
template <class Unit>
inline int scan_modifiers(const kovaloc *loc, const Unit **format, format_modifiers *m) {
    const Unit *at = scan_format_flags(loc, *format, &m->flags);
    m->width = 0;
    m->precision = -1;
    m->width_star = m->precision_star = false;
    *format = at;
    if (is_format_letter(portable(loc, *at))) return 0;
    at = scan_star_or_number(loc, at, &m->width, &m->width_star);
    unsigned c = portable(loc, *at);
    if (c == '$') return KO_EDIRECTIVE;
    if (c == '.') {
        const Unit *const dot = at + 1;
        at = scan_star_or_number(loc, dot, &m->precision, &m->precision_star);
        c = portable(loc, *at);
        if (at == dot && c && !is_format_letter(c)) return KO_EPRECISION;
    }
    *format = at;
    return c ? 0 : KO_EFORMAT;
}

#endif
