// Reading reals under a locale. Numbers of few digits are computed by one exact operation, the
// others by the standard conversion of a copy without separators.
#include "number/kovalibn_text.h"

#include <float.h>
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>

constexpr int copy_room = 2 * number_room; // integer part and fraction

namespace {
// A number in the text: its place and the value of its digits.
struct real_text {
    int start;  // first digit or symbol
    int end;    // after the number; equal to start: there is none
    int digits; // how many make up value
    uint64_t value;
    int64_t exponent;  // of ten
    bool all_fraction; // a "." stands before the start
    wide_symbol separator;
    wide_symbol symbol;
};
} // namespace

template <class Unit> static void scan_digits(const number_text<Unit> &t, real_text *n) {
    const int end = add_digits(t, n->end, 10, &n->value);
    n->digits += end - n->end;
    n->end = end;
}

template <class Unit>
static void scan_exponent(const number_text<Unit> &t, real_text *n, unsigned letter) {
    int i = n->end;
    if ((at(t, i) | 0x20) != letter) return;
    const unsigned sign = at(t, ++i);
    if (is_sign(sign)) ++i;
    if (at(t, i) - '0' > 9) return;
    int64_t value = 0;
    for (unsigned d; (d = at(t, i) - '0') <= 9; ++i)
        if (value < INT32_MAX) value = value * 10 + d;
    n->exponent += sign == '-' ? -value : value;
    n->end = i;
}

// Units of a decimal symbol; with any_point, "." is one, too.
template <class Unit>
static int point_len(const number_text<Unit> &t, int i, const wide_symbol &symbol, bool any_point) {
    const int len = symbol_len_at(t, i, symbol);
    return len ? len : any_point && at(t, i) == '.';
}

// Reads the decimal symbol after the integer part, and the fraction. False if there is none.
template <class Unit>
static bool scan_fraction(const number_text<Unit> &t, real_text *n, bool any_point) {
    const int lead = n->end;
    const int point = point_len(t, lead, n->symbol, any_point);
    if (!point) return false;
    n->end += point;
    scan_digits(t, n);
    const int digits = n->end - lead - point;
    n->exponent = -digits;
    if (lead > n->start || digits) return true;
    n->end = n->start;
    return false;
}

// Reads the integer part of a grouped number. If the grouping gives no size for more than one group
// at the left, the number ends at its first separator (*ended). False if the groups are refused.
template <class Unit>
static bool scan_integer_part(const number_text<Unit> &t, real_text *n, int mode, bool *ended) {
    digit_groups groups;
    if (!scan_groups(t, n->start, 0, 10, n->separator, &groups)) return false;
    const int beyond = check_groups(groups, grouping_of(t.loc, mode, n->separator));
    *ended = beyond > 1;
    if (*ended) keep_first_group(t, n->start, 0, 10, &groups);
    n->end = groups.end;
    n->digits = groups.digits;
    n->value = groups.value;
    return beyond >= 0;
}

// ---- Values ----

bool exact_real(uint64_t digits, int64_t exponent, double *value) {
    static constexpr double powers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                        1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                        1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    // A processor that computes with more bits would round twice.
    if (FLT_EVAL_METHOD != 0 || digits >> DBL_MANT_DIG) return false;
    if (exponent < -22 || exponent > 22) return false;
    const auto whole = double(digits);
    *value = exponent < 0 ? whole / powers[-exponent] : whole * powers[exponent];
    return true;
}

static bool exact_value(const real_text &n, double *value) {
    return n.digits <= 19 && exact_real(n.value, n.exponent, value);
}

template <class Unit>
static double converted_value(const number_text<Unit> &t, const real_text &n) {
    char copy[copy_room + 2];
    char *to = copy;
    if (n.all_fraction) *to++ = '.';
    for (int i = n.start; i < n.end;) {
        int len = symbol_len_at(t, i, n.separator); // first, as the decimal symbol may be the same
        if (!len) {
            len = symbol_len_at(t, i, n.symbol);
            *to++ = len ? '.' : char(at(t, i));
        }
        i += len ? len : 1;
    }
    *to = 0;
    const char *end;
    return c_strtod(copy, &end);
}

// ---- Words and hexadecimal digits ----

template <class Unit>
static bool word_at(const number_text<Unit> &t, int i, const char *lower_case) {
    for (; *lower_case; ++i, ++lower_case)
        if ((at(t, i) | 0x20) != uint8_t(*lower_case)) return false;
    return true;
}

// Units of an infinity or a NaN; 0 for anything else.
template <class Unit> static int word_len(const number_text<Unit> &t, int i, double *value) {
    if (word_at(t, i, "inf")) {
        *value = HUGE_VAL;
        return word_at(t, i + 3, "inity") ? 8 : 3;
    }
    if (!word_at(t, i, "nan")) return 0;
    *value = double(NAN);
    if (at(t, i + 3) != '(') return 3;
    int len = 4;
    while (digit_at(t, i + len) != no_digit || at(t, i + len) == '_')
        ++len;
    return at(t, i + len) == ')' ? len + 1 : 3;
}

// Copies hexadecimal digits, as many as there is room for.
template <class Unit>
static char *copy_digits(const number_text<Unit> &t, int *i, char *to, const char *room_end) {
    for (; digit_at(t, *i) < 16; ++*i)
        if (to < room_end) *to++ = char(at(t, *i));
    return to;
}

// Reads a hexadecimal number; false, with *n as it was, if there is none. The copy has no point,
// which moves into the exponent, so that the process locale has no influence.
template <class Unit>
static bool scan_hexadecimal(const number_text<Unit> &t, real_text *n, double *value) {
    constexpr int exponent_room = 16;
    char copy[number_room + exponent_room] = "0x";
    const char *const digits_end = copy + number_room;
    int i = n->start + 2;
    if (at(t, n->start) != '0' || (at(t, n->start + 1) | 0x20) != 'x') return false;
    char *to = copy_digits(t, &i, copy + 2, digits_end);
    const int point = point_len(t, i, n->symbol, true);
    const int fraction = i += point;
    if (point) to = copy_digits(t, &i, to, digits_end);
    if (to == copy + 2) return false;
    n->end = i;
    n->exponent = -4 * (i - fraction);
    scan_exponent(t, n, 'p');
    constexpr int64_t beyond = 99999; // every double
    const int64_t exponent = std::clamp(n->exponent, -beyond, beyond);
    snprintf(to, exponent_room, "p%d", int(exponent));
    *value = strtod(copy, nullptr);
    return true;
}

// ---- Reading ----

// Reads the magnitude at n->start. Returns its end; -1 if it is too long.
template <class Unit>
static int plain_real(const number_text<Unit> &t, real_text *n, double *value) {
    if (const int len = word_len(t, n->start, value)) {
        n->end += len;
    } else if (!scan_hexadecimal(t, n, value)) {
        scan_digits(t, n);
        scan_fraction(t, n, true);
        if (n->end > n->start) scan_exponent(t, n, 'e');
        if (n->end - n->start >= number_room) return -1;
        if (n->end > n->start && !exact_value(*n, value)) *value = converted_value(t, *n);
    }
    return n->end;
}

// Reads the grouped magnitude at n->start. Returns its end; -1 if it is refused.
template <class Unit>
static int grouped_real(const number_text<Unit> &t, real_text *n, int mode, double *value) {
    bool ended;
    n->separator = group_separator(t.loc, mode);
    if (!scan_integer_part(t, n, mode, &ended)) return -1;
    if (n->all_fraction) {
        n->exponent = -n->digits;
    } else if (!ended && scan_fraction(t, n, !t.loc->monum_info.decimal_point)) {
        scan_exponent(t, n, 'e');
    }
    if (n->end - n->start > copy_room) return -1;
    if (n->end > n->start && !exact_value(*n, value)) *value = converted_value(t, *n);
    return n->end;
}

template <class Unit>
static int read_text(const number_text<Unit> &t, bool grouping, int mode, double *value) {
    const int white = white_len(t);
    real_text n = {.symbol = decimal_symbol(t.loc)};
    const unsigned c = at(t, white);
    const bool at_symbol = point_len(t, white, n.symbol, !t.loc->monum_info.decimal_point) != 0;
    const bool has_sign = is_sign(c) && !at_symbol;
    // With another sign there is no number, but grouped digits after it can still be refused, and a
    // "." in its place makes them a fraction.
    const bool other_sign = grouping && !has_sign && !at_symbol && takes_for_sign(t, white);
    n.all_fraction = other_sign && c == '.';
    *value = 0;
    n.start = n.end = white + (has_sign || other_sign);
    const int end = grouping ? grouped_real(t, &n, mode, value) : plain_real(t, &n, value);
    // The sign counts: 255 digits and a sign are too many.
    if (end < 0 || (!grouping && end - white >= number_room)) {
        *value = real_failure;
        return fail(t.loc, KO_EINVAL, -1);
    }
    if (end == n.start || (other_sign && !n.all_fraction)) {
        *value = 0;
        return 0;
    }
    if (has_sign && c == '-') *value = -*value;
    return end;
}

int read_real(kovaloc *loc, const ko_wchar_t *text, int most, bool grouping, int mode,
              double *value) {
    return read_text(number_text<ko_wchar_t>{loc, text, most}, grouping, mode, value);
}

double ko_wcstod_num_mon(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end, int grouping,
                         int mode) {
    if (!loc || !wcs) return fail(loc, KO_ENULL, real_failure);
    double value;
    const int used = read_real(record(loc), wcs, INT_MAX, grouping != 0, mode, &value);
    store_end(end, wcs, used, true);
    return value;
}

double ko_wcstod(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end, int grouping) {
    return ko_wcstod_num_mon(loc, wcs, end, grouping, mode_number);
}

double ko_mbstod(ko_lc_t loc, const ko_mchar_t *mbs, ko_mchar_t **end, int grouping) {
    static constexpr number_failure<double> failure = {real_failure, real_failure, true};
    return read_multibyte(record(loc), mbs, end, failure, [=](const auto &t, double *value) {
        return read_text(t, grouping != 0, mode_number, value);
    });
}
