// The scanner of what stands between "%" and a conversion letter.
#include "kovaportable.h"

#include <limits.h>

static bool is_digit(unsigned c) { return c - '0' < 10; }
static bool is_letter(unsigned c) { return (c | 0x20) - 'a' < 26; }

// Reads a run of digits, none of which makes 0; the value saturates.
static int scan_number(const kovaloc *loc, const ko_wchar_t **format) {
    int value = 0;
    for (unsigned c; is_digit(c = portable(loc, **format)); ++*format) {
        const int digit = static_cast<int>(c - '0');
        value = value > (INT_MAX - digit) / 10 ? INT_MAX : value * 10 + digit;
    }
    return value;
}

// A number or a star. True for the star.
static bool scan_star_or_number(const kovaloc *loc, const ko_wchar_t **format, int *value) {
    if (portable(loc, **format) == '*') {
        ++*format;
        return true;
    }
    *value = scan_number(loc, format);
    return false;
}

// Digits before a "$" count arguments, which cannot be reached out of order.
static bool scan_position_spec(const kovaloc *loc, const ko_wchar_t *format) {
    const ko_wchar_t *const start = format;
    scan_number(loc, &format);
    return format > start && portable(loc, *format) == '$';
}

static unsigned scan_format_flags(const kovaloc *loc, const ko_wchar_t **format, unsigned flags) {
    for (;; ++*format) {
        switch (portable(loc, **format)) {
        case ' ':
            flags |= fmt_space;
            break;
        case '#':
            flags |= fmt_alternate;
            break;
        case '\'':
            flags |= fmt_group;
            break;
        case '+':
            flags |= fmt_plus;
            break;
        case '-':
            flags |= fmt_left;
            break;
        case '0': // ends the flags
            ++*format;
            return flags & fmt_left ? flags : flags | fmt_zero;
        default:
            return flags;
        }
    }
}

int scan_format_modifiers(const kovaloc *loc, const ko_wchar_t **format, format_modifiers *m) {
    m->width = 0;
    m->precision = -1;
    m->precision_star = false;
    if (scan_position_spec(loc, *format)) return KO_EDIRECTIVE;
    m->flags = scan_format_flags(loc, format, m->flags);
    m->width_star = scan_star_or_number(loc, format, &m->width);
    if (portable(loc, **format) == '.') {
        const unsigned next = portable(loc, *++*format);
        if (is_digit(next) || next == '*')
            m->precision_star = scan_star_or_number(loc, format, &m->precision);
        else if (next && !is_letter(next))
            return KO_EPRECISION;
    }
    return **format ? 0 : KO_EFORMAT;
}
