// Reals as text. Digits are those of the exact binary value, correctly rounded to at most 15
// significant ones; zeros stand for the rest.
#include "kovafmt_out.h"

#include <math.h>
#include <stdio.h>
#include <string.h>

#include <bit>

constexpr int real_digits = 15;
constexpr uint64_t real_digits_end = 1000000000000000; // the first number of 16 digits

// 0.digits times ten to the power of point. Zero is "0" with its point behind.
struct decimal {
    const char *digits; // in room
    int count;
    int point;
    char room[decimal_room]; // a carry may add a digit
};
static_assert(decimal_room > real_digits);

static void set_decimal(decimal *d, uint64_t number, int decimals) {
    d->count = put_decimal(d->room, number);
    d->digits = d->room + decimal_room - d->count;
    d->point = number ? d->count - decimals : 1;
}

// ---- In integers --------------------------------------------------------------------------------

#ifdef __SIZEOF_INT128__
__extension__ typedef unsigned __int128 wide_product;

// The exact value of a double: mantissa / 2^shift.
struct binary {
    uint64_t mantissa;
    int shift;
};
static binary take_apart(double value) {
    uint64_t bits;
    memcpy(&bits, &value, sizeof bits);
    constexpr uint64_t hidden = uint64_t{1} << 52;
    const auto exponent = static_cast<int>(bits >> 52);
    return {(bits & (hidden - 1)) | (exponent ? hidden : 0), 1075 - (exponent ? exponent : 1)};
}

// The integer nearest to value times ten to the power of decimals, of two the even one; saturates.
// False where 128 bits do not hold the exact product.
static bool scale(binary value, int decimals, uint64_t *number) {
    const int shift = value.shift;
    if (shift < 0 || decimals < 0 || decimals >= static_cast<int>(powers_of_ten.size()))
        return false;
    const wide_product product =
        static_cast<wide_product>(value.mantissa) * powers_of_ten[static_cast<size_t>(decimals)];
    *number = 0;
    if (shift >= 128) return true; // the product has 117 bits
    wide_product whole = product >> shift;
    if (shift) { // adding a half, or just less to an even number, carries where it rounds up
        const wide_product half = static_cast<wide_product>(1) << (shift - 1);
        whole = (product + half - 1 + (whole & 1)) >> shift;
    }
    *number = whole >> 64 ? UINT64_MAX : static_cast<uint64_t>(whole);
    return true;
}

// The nearest number with so many decimals; false where that is not to be had exactly.
static bool fast_fixed(double value, int decimals, uint64_t *number) {
    return scale(take_apart(value), decimals, number);
}

// Rounds a value above 0 to count significant digits.
static bool fast_significant(decimal *d, double value, int count) {
    const binary parts = take_apart(value);
    const int below = static_cast<int>(std::bit_width(parts.mantissa)) - parts.shift - 1;
    int decimals = count - 1 - (below * 1233 >> 12); // log 2; may be one too many
    uint64_t number;
    if (!scale(parts, decimals, &number)) return false;
    if (number >= powers_of_ten[static_cast<size_t>(count)] && !scale(parts, --decimals, &number)) {
        return false;
    }
    set_decimal(d, number, decimals);
    return true;
}
#else
static bool fast_fixed(double, int, uint64_t *) { return false; }
static bool fast_significant(decimal *, double, int) { return false; }
#endif

// ---- By the C library, whose decimal point may be any text --------------------------------------

static void slow_significant(decimal *d, double value, int count) {
    char text[real_digits + 32];
    snprintf(text, sizeof text, "%.*e", count - 1, value);
    const char *const tail = strrchr(text, 'e');
    d->digits = d->room;
    d->room[0] = text[0];
    memcpy(d->room + 1, tail - (count - 1), static_cast<size_t>(count - 1));
    d->count = count;
    d->point = 1;
    int exponent = 0;
    for (const char *c = tail + 2; *c; ++c)
        exponent = exponent * 10 + (*c - '0');
    d->point += tail[1] == '-' ? -exponent : exponent;
}

// Rounds to a number of decimals, at which value has at most 15 digits.
static void slow_fixed(decimal *d, double value, int decimals) {
    char text[400];
    const int len = snprintf(text, sizeof text, "%.*f", decimals, value);
    const char *const fraction = text + len - decimals;
    d->digits = d->room;
    d->count = d->point = 0;
    const auto take = [d](const char *c) {
        if (d->count || *c != '0') d->room[d->count++] = *c;
    };
    for (const char *c = text; *c >= '0' && *c <= '9' && c < fraction; ++c)
        take(c);
    d->point = d->count;
    for (const char *c = fraction; *c; ++c) {
        if (!d->count && *c == '0') --d->point;
        take(c);
    }
    if (!d->count) set_decimal(d, 0, 0);
}

// ---- Rounding -----------------------------------------------------------------------------------

static void round_significant(decimal *d, double value, int count) {
    if (!(value > 0)) return set_decimal(d, 0, 0);
    if (!fast_significant(d, value, count)) slow_significant(d, value, count);
}

static void round_fixed(decimal *d, double value, int decimals) {
    uint64_t number;
    if (fast_fixed(value, decimals, &number)) {
        if (number <= real_digits_end) return set_decimal(d, number, decimals);
        return round_significant(d, value, real_digits);
    }
    round_significant(d, value, real_digits);
    const int64_t asked = int64_t{d->point} + decimals;
    if (asked > real_digits || !(value > 0)) return;
    if (asked < 0) return set_decimal(d, 0, 0);
    slow_fixed(d, value, decimals);
}

// ---- Layout -------------------------------------------------------------------------------------

struct real_layout {
    decimal d;
    int64_t fraction;    // digits behind the decimal symbol
    int exponent_digits; // 0: no exponent
    int exponent;        // its magnitude
    fmt_mark exponent_sign;
    ko_wchar_t exponent_letter;
};

static void add_exponent(real_layout *r, const kovaloc *loc, char letter) {
    const int exponent = r->d.point - 1;
    r->d.point = 1;
    r->exponent = exponent < 0 ? -exponent : exponent;
    r->exponent_digits = r->exponent < 100 ? 2 : 3;
    r->exponent_sign = exponent < 0 ? negative_mark(loc) : positive_mark(loc);
    r->exponent_letter = native(loc, letter == 'e' ? 'e' : 'E'); // "E" for "g", on purpose
}

// Leading digits up to the last that is not zero, at least one.
static int significant_digits(const decimal &d) {
    int count = d.count;
    while (count > 1 && d.digits[count - 1] == '0')
        --count;
    return count;
}

static void lay_out(real_layout *r, const kovaloc *loc, double value, char letter,
                    const format_modifiers &m) {
    int precision = m.precision < 0 ? 6 : m.precision;
    if (letter == 'f') {
        round_fixed(&r->d, value, precision);
        r->fraction = precision;
        return;
    }
    const bool shortest = letter == 'g' || letter == 'G';
    if (shortest && precision) --precision; // now of digits behind the first
    round_significant(&r->d, value, precision < real_digits ? precision + 1 : real_digits);
    const int exponent = r->d.point - 1;
    const bool fixed = shortest && exponent >= -4 && exponent <= precision;
    r->fraction = fixed ? int64_t{precision} - exponent : precision;
    if (!fixed) add_exponent(r, loc, letter);
    if (!shortest || m.flags & fmt_alternate) return;
    const int kept = significant_digits(r->d) - r->d.point;
    r->fraction = kept > 0 ? kept : 0;
}

template <class Unit>
static Unit *print_fraction_part(const kovaloc *loc, Unit *at, const real_layout &r) {
    const ko_wchar_t zero = native(loc, '0');
    const decimal &d = r.d;
    int64_t left = r.fraction;
    for (int i = d.point; i < d.count && left > 0; ++i, --left)
        *at++ = static_cast<Unit>(i < 0 ? zero : native(loc, d.digits[i]));
    return put_units(at, zero, left);
}

template <class Unit>
static void print_exponent(const kovaloc *loc, Unit *at, const real_layout &r) {
    *at++ = static_cast<Unit>(r.exponent_letter);
    at = put_mark(at, r.exponent_sign) + r.exponent_digits;
    for (int i = 0, rest = r.exponent; i < r.exponent_digits; ++i, rest /= 10)
        *--at = static_cast<Unit>(native(loc, '0' + rest % 10));
}

// Infinity, and what is no number: padded with blanks in any case, on the left under the zero flag.
template <class Unit>
static int format_word(fmt_out<Unit> *out, double value, char letter, const format_modifiers &m) {
    const bool upper = letter == 'E' || letter == 'G';
    const char *const word = isinf(value) ? (upper ? "INF" : "inf") : (upper ? "NAN" : "nan");
    format_modifiers blanks = m;
    if (pads_with_zeros(m)) blanks.flags &= ~unsigned{fmt_zero | fmt_left};
    Unit *const at = open_field(out, sign_mark(out->loc, value < 0, m), 3, blanks);
    for (int i = 0; at && i < 3; ++i)
        at[i] = static_cast<Unit>(native(out->loc, word[i]));
    return at ? 0 : -1;
}

template <class Unit>
int format_float(fmt_out<Unit> *out, double value, char letter, const format_modifiers &m) {
    if (!isfinite(value)) return format_word(out, value, letter, m);
    const kovaloc *const loc = out->loc;
    real_layout r;
    r.exponent_digits = 0;
    lay_out(&r, loc, fabs(value), letter, m);
    const decimal &d = r.d;
    const digit_run whole =
        d.point > 0 ? digit_run{d.digits, d.count < d.point ? d.count : d.point, d.point}
                    : digit_run{"0", 1, 1};
    const grouping g = init_grouping(loc, m);
    const int64_t grouped = whole.total + int64_t{separators_in(g, whole.total)} * g.separator.len;
    const fmt_mark radix =
        r.fraction > 0 || m.flags & fmt_alternate ? decimal_mark(loc) : fmt_mark();
    const int tail = r.exponent_digits ? 1 + r.exponent_sign.len + r.exponent_digits : 0;
    Unit *at =
        open_field(out, sign_mark(loc, value < 0, m), grouped + radix.len + r.fraction + tail, m);
    if (!at) return -1;
    put_digits(loc, at + grouped, whole, g);
    at = print_fraction_part(loc, put_mark(at + grouped, radix), r);
    if (tail) print_exponent(loc, at, r);
    return 0;
}

template int format_float(fmt_out<ko_wchar_t> *out, double value, char letter,
                          const format_modifiers &m);
template int format_float(fmt_out<ko_mchar_t> *out, double value, char letter,
                          const format_modifiers &m);
