// The scanner of what stands between "%" and a conversion letter.
#include "kovafmt_out.h"

#include <limits.h>

static bool is_digit(unsigned c) { return c - '0' < 10; }
static bool is_letter(unsigned c) { return (c | 0x20) - 'a' < 26; }

// Reads a run of digits, none of which makes 0; the value saturates.
template <class Unit> static int scan_number(const kovaloc *loc, const Unit **format) {
    const Unit *at = *format;
    int value = 0;
    for (unsigned c; is_digit(c = portable(loc, *at)); ++at) {
        const int digit = static_cast<int>(c - '0');
        value = value > (INT_MAX - digit) / 10 ? INT_MAX : value * 10 + digit;
    }
    *format = at;
    return value;
}

// Digits before a "$" count arguments, which cannot be reached out of order.
template <class Unit> static bool scan_position_spec(const kovaloc *loc, const Unit *format) {
    if (!is_digit(portable(loc, *format))) return false;
    scan_number(loc, &format);
    return portable(loc, *format) == '$';
}

static unsigned flag_of(unsigned c) {
    switch (c) {
    case ' ':
        return fmt_space;
    case '#':
        return fmt_alternate;
    case '\'':
        return fmt_group;
    case '+':
        return fmt_plus;
    case '-':
        return fmt_left;
    default:
        return 0;
    }
}

// Moves behind the flags; a "0" is the last.
template <class Unit>
static const Unit *scan_format_flags(const kovaloc *loc, const Unit *format, unsigned *flags) {
    unsigned c;
    for (; (c = portable(loc, *format)) < '1'; ++format) {
        const unsigned flag = flag_of(c);
        *flags |= flag;
        if (!flag) break;
    }
    if (c != '0') return format;
    if (!(*flags & fmt_left)) *flags |= fmt_zero;
    return format + 1;
}

// A number, or a star instead. True for the star.
template <class Unit>
static bool scan_star_or_number(const kovaloc *loc, const Unit **format, int *value) {
    const unsigned c = portable(loc, **format);
    if (is_digit(c)) *value = scan_number(loc, format);
    if (c != '*') return false;
    ++*format;
    return true;
}

template <class Unit>
static int scan_modifiers(const kovaloc *loc, const Unit **format, format_modifiers *m) {
    const Unit *at = *format;
    m->width = 0;
    m->precision = -1;
    m->precision_star = false;
    if (scan_position_spec(loc, at)) return KO_EDIRECTIVE;
    at = scan_format_flags(loc, at, &m->flags);
    m->width_star = scan_star_or_number(loc, &at, &m->width);
    if (portable(loc, *at) == '.') {
        const unsigned next = portable(loc, *++at);
        m->precision_star = scan_star_or_number(loc, &at, &m->precision);
        if (next && !is_digit(next) && next != '*' && !is_letter(next)) return KO_EPRECISION;
    }
    *format = at;
    return *at ? 0 : KO_EFORMAT;
}

int scan_format_modifiers(const kovaloc *loc, const ko_wchar_t **format, format_modifiers *m) {
    return scan_modifiers(loc, format, m);
}

int scan_format_modifiers(const kovaloc *loc, const ko_mchar_t **format, format_modifiers *m) {
    return scan_modifiers(loc, format, m);
}
