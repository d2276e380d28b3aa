// Reals as text. The digits are those of the exact binary value, correctly rounded to at most 15
// significant ones; zeros stand for the rest.
#include "number/kovafmt_out.h"

#include <math.h>
#include <stdio.h>
#include <string.h>

#include <bit>

constexpr int real_digits = 15;
constexpr uint64_t real_digits_end = 1000000000000000; // the first number of 16 digits

namespace {
// number / ten to the power of decimals, which may be negative.
struct decimal {
    uint64_t number; // at most real_digits_end
    int decimals;
};
} // namespace
// Digits before the decimal point; 0 or less where zeros follow it.
static int point_of(const decimal &d) { return d.number ? count_digits(d.number) - d.decimals : 1; }

// ---- In integers ----

#ifdef __SIZEOF_INT128__
__extension__ typedef unsigned __int128 wide_product;

namespace {
// The exact value of a double: mantissa / 2^shift.
struct binary {
    uint64_t mantissa;
    int shift;
};
} // namespace
static binary take_apart(double value) {
    uint64_t bits;
    memcpy(&bits, &value, sizeof bits);
    constexpr uint64_t hidden = uint64_t{1} << 52;
    const auto exponent = int(bits >> 52);
    return {(bits & (hidden - 1)) | (exponent ? hidden : 0), 1075 - (exponent ? exponent : 1)};
}

// The integer nearest to product / 2^shift; of two equally near, the even one.
template <class Bits> static Bits halve(Bits product, int shift) {
    if (!shift) return product;
    // Adding a half, or just less if the number is even, carries where it rounds up.
    const Bits half = static_cast<Bits>(1) << (shift - 1);
    return (product + half - 1 + (product >> shift & 1)) >> shift;
}

// The integer nearest to value times ten to the power of decimals; of two equally near, the even
// one. Saturates. False if 128 bits cannot hold the exact product.
[[gnu::always_inline]] static inline bool scale(binary value, int decimals, uint64_t *number) {
    const int shift = value.shift;
    if (shift < 0 || decimals < 0 || decimals >= int(powers_of_ten.size())) return false;
    const wide_product product = wide_product(value.mantissa) * powers_of_ten[size_t(decimals)];
    *number = 0;
    if (shift >= 128) return true; // the product has 117 bits
    if (!(product >> 63) && shift < 64) {
        *number = halve(uint64_t(product), shift);
        return true;
    }
    const wide_product whole = halve(product, shift);
    *number = whole >> 64 ? UINT64_MAX : uint64_t(whole);
    return true;
}

// The nearest number with so many decimals; false if integers cannot compute it exactly.
static bool fast_fixed(double value, int decimals, uint64_t *number) {
    return scale(take_apart(value), decimals, number);
}

// Rounds a value above 0 to count significant digits; false if integers cannot do so exactly.
static bool fast_significant(decimal *d, double value, int count) {
    const binary parts = take_apart(value);
    const int below = int(std::bit_width(parts.mantissa)) - parts.shift - 1;
    int decimals = count - 1 - (below * 1233 >> 12); // log 2; may be one too many
    uint64_t number;
    if (!scale(parts, decimals, &number)) return false;
    if (number >= powers_of_ten[size_t(count)] && !scale(parts, --decimals, &number)) {
        return false;
    }
    *d = {number, decimals};
    return true;
}
#else
static bool fast_fixed(double, int, uint64_t *) { return false; }
static bool fast_significant(decimal *, double, int) { return false; }
#endif

// ---- By the C library, whose decimal point may be any text ----

// Appends the digits at the start of text to *number; returns their end.
static const char *take_digits(const char *text, uint64_t *number) {
    for (; *text >= '0' && *text <= '9'; ++text)
        *number = *number * 10 + uint64_t(*text - '0');
    return text;
}

static void slow_significant(decimal *d, double value, int count) {
    char text[real_digits + 32];
    snprintf(text, sizeof text, "%.*e", count - 1, value);
    const char *const tail = strrchr(text, 'e');
    uint64_t exponent = 0;
    *d = {uint64_t(text[0] - '0'), count - 1};
    take_digits(tail - (count - 1), &d->number);
    take_digits(tail + 2, &exponent);
    d->decimals += tail[1] == '-' ? int(exponent) : -int(exponent);
}

// Rounds to a number of decimals, at which value has at most 15 digits.
static void slow_fixed(decimal *d, double value, int decimals) {
    char text[400];
    const int len = snprintf(text, sizeof text, "%.*f", decimals, value);
    *d = {0, decimals};
    const char *const whole_end = take_digits(text, &d->number);
    if (*whole_end) take_digits(text + len - decimals, &d->number);
}

// ---- Rounding ----

static decimal round_significant(double value, int count) {
    decimal d = {0, 0};
    if (value > 0 && !fast_significant(&d, value, count)) slow_significant(&d, value, count);
    return d;
}

// Rounds values that are beyond the integers of fast_fixed.
[[gnu::noinline]] static decimal round_long(double value, int decimals) {
    decimal d = round_significant(value, real_digits);
    const int64_t asked = int64_t{point_of(d)} + decimals;
    if (asked > real_digits || !(value > 0)) return d;
    if (asked < 0) return {0, 0};
    slow_fixed(&d, value, decimals);
    return d;
}

static inline decimal round_fixed(double value, int decimals) {
    uint64_t number;
    if (!fast_fixed(value, decimals, &number)) return round_long(value, decimals);
    if (number > real_digits_end) return round_significant(value, real_digits);
    return {number, decimals};
}

// ---- Layout ----

namespace {
struct exponent_part {
    int digits;
    int magnitude;
    fmt_mark sign;
    ko_wchar_t letter;
};
} // namespace

// Takes the exponent out of a decimal, so that one digit is left before the decimal symbol.
static exponent_part take_exponent(decimal *d, const kovaloc *loc, char letter) {
    const int exponent = point_of(*d) - 1, magnitude = exponent < 0 ? -exponent : exponent;
    d->decimals += exponent;
    return {magnitude < 100 ? 2 : 3, magnitude,
            exponent < 0 ? negative_mark(loc) : positive_mark(loc),
            native(loc, letter == 'e' ? 'e' : 'E')}; // deliberately "E" for "g"
}

// Drops zeros at the end of the fraction; returns the number of digits left.
static int significant_digits(decimal *d) {
    for (; d->decimals > 0 && d->number % 10 == 0; --d->decimals)
        d->number /= 10;
    return d->decimals > 0 ? d->decimals : 0;
}

// Writes infinities and NaNs: always padded with blanks, and on the left under the zero flag.
template <class Unit>
static int format_word(fmt_out<Unit> *out, double value, char letter, const format_modifiers &m) {
    const bool upper = letter == 'E' || letter == 'G';
    const char *const word = isinf(value) ? (upper ? "INF" : "inf") : (upper ? "NAN" : "nan");
    format_modifiers blanks = m;
    if (pads_with_zeros(m)) blanks.flags &= ~unsigned{fmt_zero | fmt_left};
    Unit *const at = open_padded(out, sign_mark(out->loc, value < 0, m), 3, blanks);
    for (int i = 0; at && i < 3; ++i)
        at[i] = Unit(native(out->loc, word[i]));
    return at ? 0 : -1;
}

// Takes the whole part out of a decimal.
static inline number_digits take_whole(decimal *d) {
    if (d->decimals <= 0) {
        const number_digits whole = {d->number, count_digits(d->number) - d->decimals,
                                     -d->decimals};
        *d = {0, 0};
        return whole;
    }
    if (d->decimals >= int(powers_of_ten.size())) return {0, 1};
    const uint64_t one = powers_of_ten[size_t(d->decimals)];
    const uint64_t whole = d->number / one;
    d->number -= whole * one;
    return {whole, count_digits(whole)};
}

// Writes a decimal with so many digits after the decimal symbol; exponent may be NULL.
template <class Unit>
[[gnu::always_inline]] static inline int write_real(fmt_out<Unit> *out, bool negative, decimal d,
                                                    int64_t fraction, const exponent_part *exponent,
                                                    const format_modifiers &m) {
    const kovaloc *const loc = out->loc;
    const number_digits whole = take_whole(&d);
    const grouping g = init_grouping(loc, m);
    const int64_t grouped = grouped_len(g, whole.count);
    const fmt_mark radix = fraction > 0 || m.flags & fmt_alternate ? decimal_mark(loc) : fmt_mark();
    const int tail = exponent ? 1 + exponent->sign.len + exponent->digits : 0;
    Unit *at = open_number(out, negative, grouped + radix.len + fraction + tail, m);
    if (!at) return -1;
    const ko_wchar_t zero = native(loc, '0');
    at += grouped;
    if (whole.zeros)
        put_each_digit(loc, at, whole, g);
    else
        put_number(loc, at, whole.number, whole.count, g);
    at = put_mark(at, radix) + d.decimals;
    put_decimals(at, d.number, d.decimals, zero);
    at = put_units(at, zero, fraction - d.decimals);
    if (!exponent) return 0;
    *at++ = Unit(exponent->letter);
    at = put_mark(at, exponent->sign) + exponent->digits;
    put_decimals(at, unsigned(exponent->magnitude), exponent->digits, zero);
    return 0;
}

// Writes the styles with an exponent, or the shorter of both forms.
template <class Unit>
[[gnu::noinline]] static int format_exponent(fmt_out<Unit> *out, double value, char letter,
                                             const format_modifiers &m) {
    int precision = m.precision < 0 ? 6 : m.precision;
    const bool shortest = letter == 'g' || letter == 'G';
    if (shortest && precision) --precision; // now counts the digits after the first
    decimal d =
        round_significant(fabs(value), precision < real_digits ? precision + 1 : real_digits);
    const int point = point_of(d) - 1;
    const bool fixed = shortest && point >= -4 && point <= precision;
    const exponent_part exponent = fixed ? exponent_part() : take_exponent(&d, out->loc, letter);
    int64_t fraction = fixed ? int64_t{precision} - point : precision;
    if (shortest && !(m.flags & fmt_alternate)) fraction = significant_digits(&d);
    return write_real(out, value < 0, d, fraction, fixed ? nullptr : &exponent, m);
}

template <class Unit>
int format_float(fmt_out<Unit> *out, double value, char letter, const format_modifiers &m) {
    if (!isfinite(value)) return format_word(out, value, letter, m);
    if (letter != 'f') return format_exponent(out, value, letter, m);
    const int decimals = m.precision < 0 ? 6 : m.precision;
    return write_real(out, value < 0, round_fixed(fabs(value), decimals), decimals, nullptr, m);
}

template int format_float(fmt_out<ko_wchar_t> *out, double value, char letter,
                          const format_modifiers &m);
template int format_float(fmt_out<ko_mchar_t> *out, double value, char letter,
                          const format_modifiers &m);
