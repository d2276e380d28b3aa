// Money: rounding, which all amounts share, and the usual amounts: those of "%n" and "%i" alone, in
// locales that group by three or not at all. They are written at once, without a layout.
#ifndef KOVAMNLIB_USUAL_H
#define KOVAMNLIB_USUAL_H

#include "number/kovafmt_out.h"

constexpr int right_precision_max = 100;
constexpr int right_precision_default = 2;
constexpr int decimals = 6;         // of an amount before it is rounded
constexpr double scaled_max = 1e16; // amounts from here on are whole; below, decimal_room digits do

// Digits after the decimal symbol, of which -1 asks for as many as the locale has.
inline int right_precision(const monum *m, int asked, bool international) {
    if (asked >= 0) return asked < right_precision_max ? asked : right_precision_max;
    const int stored = international ? m->int_frac_digits : m->frac_digits;
    return stored < 0 || stored > right_precision_max ? right_precision_default : stored;
}

// ---- Digits ----

inline constexpr int64_t powers[] = {1, 10, 100, 1000, 10000, 100000, 1000000};
// Multiplying six decimals by one of these and dropping 40 bits divides by the power, exactly.
inline constexpr auto reciprocals = [] {
    std::array<uint64_t, decimals> values{};
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = (uint64_t{1} << 40) / uint64_t(powers[i]) + 1;
    return values;
}();

// The first six decimals of a part below 1, rounded from its exact value with ties to even; 1000000
// if it rounds up to 1.
inline int64_t six_decimals(double part) {
    if (part < 0x1p-22) return 0; // below half of the sixth decimal
    // The factor makes the part an integer below 2^63, whatever its exponent.
    const bool small = part < 0x1p-11;
    const int64_t scaled = int64_t(part * (small ? 0x1p74 : 0x1p63));
    const int64_t low = (scaled & 0xFFFFFFFF) * powers[decimals];
    const int64_t high = (scaled >> 32) * powers[decimals] + (low >> 32);
    const int shift = small ? 42 : 31;
    const int64_t half = int64_t{1} << shift, digits = high >> shift;
    const int64_t rest = (high & (half - 1)) << 1 | ((low & 0xFFFFFFFF) != 0);
    return digits + (rest > half || (rest == half && digits & 1));
}

// Rounds an amount below scaled_max by the digit after the last one written, halves up. Digits
// after that one are deliberately ignored.
inline int64_t round_amount(double amount, int right, unsigned *fraction) {
    int64_t whole = int64_t(amount);
    int64_t six = six_decimals(amount - double(whole));
    if (six == powers[decimals]) {
        six = 0;
        ++whole;
    }
    if (right < decimals) {
        const int64_t kept =
            int64_t(uint64_t(six) * reciprocals[size_t(decimals - 1 - right)] >> 40);
        six = (kept + 5) / 10;
        if (six == powers[right]) {
            six = 0;
            ++whole;
        }
    }
    *fraction = unsigned(six);
    return whole;
}

template <class Unit>
inline void put_fraction(Unit *out, unsigned fraction, int count, ko_wchar_t zero) {
    const int bias = zero - '0';
    if (count & 1) {
        out[--count] = Unit(zero + fraction % 10);
        fraction /= 10;
    }
    for (; count > 0; fraction /= 100) {
        const auto &pair = digit_pairs<ko_mchar_t>[fraction % 100];
        out[--count] = Unit(bias + pair[1]);
        out[--count] = Unit(bias + pair[0]);
    }
}

// ---- Usual amounts ----

// The most units of one, with what is written beyond its end.
constexpr int usual_room = 48;

// Writes an amount where usual_room units are free. Returns its end; NULL for what is not prepared.
template <class Unit>
inline Unit *put_usual(const kovaloc *loc, Unit *out, bool international, double amount) {
    const money_forms &money = loc->money;
    const int right = money.ready[international] - 1;
    const double magnitude = amount < 0 ? -amount : amount;
    if (right < 0 || !(magnitude < scaled_max)) return nullptr;
    unsigned fraction;
    const auto whole = uint64_t(round_amount(magnitude, right, &fraction));
    const money_form &form = money.form[international][amount < 0];
    for (int i = 0; i < money_text_room; ++i)
        out[i] = Unit(form.before[i]);
    out += form.before_len;
    const int count = count_digits(whole);
    if (money.separator)
        put_threes(out += count + int(unsigned(count - 1) / 3), whole, count, '0', money.separator);
    else
        put_decimals(out += count, whole, count, '0');
    if (right) {
        *out++ = Unit(money.radix);
        put_fraction(out, fraction, right, '0');
        out += right;
    }
    for (int i = 0; i < money_text_room; ++i)
        out[i] = Unit(form.after[i]);
    return out + form.after_len;
}

#endif
