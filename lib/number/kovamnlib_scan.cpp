// Money: reading a directive, whose flags change the conventions of the call.
#include "number/kovamnlib.h"

// Deliberately, flags and conversions are recognised by the low byte of their unit alone.
static unsigned low_byte(const kovaloc *loc, ko_wchar_t wc) { return portable(loc, wc & 0xFFu); }

// False if the unit at *format is not a flag.
static bool take_flag(const kovaloc *loc, const ko_wchar_t **format, mon_positions *positions,
                      mon_directive *d) {
    mon_side *const positive = &positions->side[0], *const negative = &positions->side[1];
    switch (low_byte(loc, **format)) {
    case '!':
        d->symbol = false;
        break;
    case '(':
        negative->sign_posn = 0;
        break;
    case '+':
        d->plus = true;
        if (positive->sign_posn == 0) positive->sign_posn = 1;
        if (negative->sign_posn == 0) negative->sign_posn = 1;
        break;
    case '-':
        d->left = true;
        break;
    case '^':
        d->grouping = false;
        break;
    case '=':
        if (!(*format)[1]) return false; // an "=" that ends the format is not a conversion either
        d->fill = *++*format;
        break;
    default:
        return false;
    }
    ++*format;
    return true;
}

static int take_number(const kovaloc *loc, const ko_wchar_t **format) {
    int number = 0;
    for (unsigned digit; (digit = portable(loc, **format) - '0') < 10; ++*format) {
        number = number > (INT32_MAX - 9) / 10 ? INT32_MAX : number * 10 + int(digit);
    }
    return number;
}

bool scan_mon_directive(const kovaloc *loc, const ko_wchar_t **format, mon_positions *positions,
                        mon_directive *d) {
    *d = {.fill = native(loc, ' '), .grouping = true, .symbol = true, .right_precision = -1};
    while (take_flag(loc, format, positions, d)) {
    }
    d->width = take_number(loc, format);
    if (portable(loc, **format) == '#') {
        ++*format;
        d->left_precision = take_number(loc, format);
    }
    if (portable(loc, **format) == '.') {
        ++*format;
        d->right_precision = take_number(loc, format);
    }
    const unsigned conversion = low_byte(loc, **format);
    d->international = conversion == 'i';
    if (conversion != 'i' && conversion != 'n') return false;
    ++*format;
    return true;
}
