// The output side of number formatting: fields with sign and padding, and grouped digits. A unit is
// a wide character or, where every character is one byte, a byte.
#ifndef KOVAFMT_OUT_H
#define KOVAFMT_OUT_H

#include "kovaportable.h"

#include <string.h>

#include <array>
#include <bit>

template <class Unit> struct fmt_out {
    kovaloc *loc;
    Unit *at;
    int64_t room; // units that still fit
};

// A sign, a separator or a decimal symbol.
struct fmt_mark {
    int len = 0;         // in units
    ko_wchar_t unit = 0; // written len times where there is no text
    const ko_mchar_t *bytes = nullptr;
    const ko_wchar_t *wide = nullptr;
};
fmt_mark decimal_mark(const kovaloc *loc);
fmt_mark separator_mark(const kovaloc *loc);
fmt_mark positive_mark(const kovaloc *loc);
fmt_mark negative_mark(const kovaloc *loc);
fmt_mark blank_or_positive_mark(const kovaloc *loc, const format_modifiers &m);
// What stands before a number: a sign, or blanks in its place.
inline fmt_mark sign_mark(const kovaloc *loc, bool negative, const format_modifiers &m) {
    if (negative) return negative_mark(loc);
    return m.flags & (fmt_plus | fmt_space) ? blank_or_positive_mark(loc, m) : fmt_mark();
}

template <class Unit> inline Unit *put_units(Unit *at, ko_wchar_t unit, int64_t count) {
    for (; count > 0; --count)
        *at++ = static_cast<Unit>(unit);
    return at;
}
template <class Unit> inline Unit *put_mark(Unit *at, const fmt_mark &mark) {
    for (int i = 0; i < mark.len; ++i) {
        const ko_wchar_t unit = mark.wide ? mark.wide[i] : mark.bytes ? mark.bytes[i] : mark.unit;
        *at++ = static_cast<Unit>(unit);
    }
    return at;
}

// Takes the room of a field of at least the width, writes its sign and padding, and returns the
// place of its body characters, which the caller writes. NULL with KO_E2BIG, nothing written.
template <class Unit>
inline Unit *open_field(fmt_out<Unit> *out, const fmt_mark &sign, int64_t body,
                        const format_modifiers &m) {
    Unit *const none = nullptr;
    const int64_t length = body + sign.len;
    const int64_t width = length > m.width ? length : m.width;
    if (width > out->room) return fail(out->loc, KO_E2BIG, none);
    const int64_t pad = width - length;
    Unit *at = out->at;
    out->at += width;
    out->room -= width;
    if (!pad) return put_mark(at, sign);
    if (pads_with_zeros(m)) return put_units(put_mark(at, sign), native(out->loc, '0'), pad);
    const ko_wchar_t blank = native(out->loc, ' ');
    if (pads_right(m))
        put_units(out->at - pad, blank, pad);
    else
        at = put_units(at, blank, pad);
    return put_mark(at, sign);
}

// Numbers of any length take the same steps: a loop for each would end at another place every time,
// which costs a processor more than the digits do.
constexpr int decimal_room = 16;
inline constexpr auto digit_pairs = [] {
    std::array<std::array<char, 2>, 100> pairs{};
    for (size_t i = 0; i < 100; ++i)
        pairs[i] = {static_cast<char>('0' + i / 10), static_cast<char>('0' + i % 10)};
    return pairs;
}();
inline constexpr auto powers_of_ten = [] {
    std::array<uint64_t, 20> values{};
    uint64_t power = 1;
    for (uint64_t &value : values)
        value = power, power *= 10;
    return values;
}();
inline void put_eight_digits(char *to, uint32_t value) {
    const uint32_t high = value / 10000, low = value % 10000;
    memcpy(to, digit_pairs[high / 100].data(), 2);
    memcpy(to + 2, digit_pairs[high % 100].data(), 2);
    memcpy(to + 4, digit_pairs[low / 100].data(), 2);
    memcpy(to + 6, digit_pairs[low % 100].data(), 2);
}
inline int count_digits(uint64_t number) {
    const uint64_t odd = number | 1; // as many digits, and never none
    const int below = static_cast<int>(std::bit_width(odd)) * 1233 >> 12; // log 2
    return below + (odd >= powers_of_ten[static_cast<size_t>(below)]);
}
// Write a number, of at most 16 digits, at the end of the room and return their count.
inline int put_decimal(char *room, uint64_t number) {
    put_eight_digits(room, static_cast<uint32_t>(number / 100000000));
    put_eight_digits(room + 8, static_cast<uint32_t>(number % 100000000));
    return count_digits(number);
}
inline int put_decimal(char *room, uint32_t number) {
    memcpy(room + 6, digit_pairs[number / 100000000].data(), 2);
    put_eight_digits(room + 8, number % 100000000);
    return count_digits(number);
}

// Digits in ASCII, first to last; zeros follow up to the total.
struct digit_run {
    const char *digits;
    int given;
    int total;
};
// The size of group i, from 1 at the right, of a grouping (a count and sizes); 0 ends grouping. The
// last size repeats, or, where it is 0, the one before it.
inline int group_size(const int *group, int i) {
    const int count = group[0] < group_max ? group[0] : group_max - 1;
    if (count < 1) return 0;
    int size = group[i < count ? i : count];
    if (!size && i >= count && count > 1) size = group[count - 1];
    return size > 0 ? size : 0;
}
inline bool groups_by_three(const int *group) {
    for (int i = 1; i <= group[0] && i < group_max; ++i)
        if (group[i] != 3) return false;
    return group[0] > 0;
}

// How digits are grouped; without sizes they are not.
struct grouping {
    const int *sizes = nullptr;
    bool by_three = false; // all sizes are 3
    fmt_mark separator;
};
inline grouping init_grouping(const kovaloc *loc, const format_modifiers &m) {
    if (!(m.flags & fmt_group)) return {};
    const int *const sizes = loc->monum_info.group_num;
    return {sizes, groups_by_three(sizes), separator_mark(loc)};
}
// Separators within that many digits.
inline int separators_in(const grouping &g, int digits) {
    if (g.by_three) return (digits - 1) / 3;
    for (int i = 1, count = 0;; ++i, ++count) {
        const int size = g.sizes ? group_size(g.sizes, i) : 0;
        if (!size || digits <= size) return count;
        digits -= size;
    }
}

// Writes at least four digits in groups of three; the copy of the first group may be too long.
template <class Unit> inline void put_threes(Unit *at, const digit_run &run, ko_wchar_t separator) {
    const char *digit = run.digits;
    const int first = (run.total - 1) % 3 + 1;
    const auto copy_three = [&] {
        for (int i = 0; i < 3; ++i)
            at[i] = static_cast<Unit>(digit[i]);
    };
    copy_three();
    at += first;
    digit += first;
    for (int groups = (run.total - 1) / 3; groups; --groups, digit += 3, at += 3) {
        *at++ = static_cast<Unit>(separator);
        copy_three();
    }
}

// Writes the digits, and a separator after each group that is complete, so that they end at end.
template <class Unit>
inline void put_digits(const kovaloc *loc, Unit *end, const digit_run &run, const grouping &g) {
    const bool plain = !loc->portable && run.given == run.total;
    if (plain && g.by_three && g.separator.len == 1 && run.total > 3) {
        return put_threes(end - run.total - (run.total - 1) / 3, run, g.separator.unit);
    }
    for (int rest = run.total, index = 1;; ++index) {
        const int size = g.sizes ? group_size(g.sizes, index) : 0;
        const int stop = size && size < rest ? rest - size : 0;
        while (rest > stop) {
            --rest;
            *--end = static_cast<Unit>(native(loc, rest < run.given ? run.digits[rest] : '0'));
        }
        if (!rest) return;
        end -= g.separator.len;
        put_mark(end, g.separator);
    }
}

// Conversion letters, for formatting and for parsing.
enum number_kind { number_integer, number_real, number_char, number_string };
struct number_letter {
    char letter;
    number_kind kind;
    int base;
    bool is_signed;
};
const number_letter *find_number_letter(unsigned c); // of a portable character; NULL: none

// Steps over the letter of a size: 'l', 'h' or 0.
template <class Unit> inline char scan_size(const kovaloc *loc, const Unit **format) {
    const unsigned c = portable(loc, **format) | 0x20;
    if (c != 'l' && c != 'h') return 0;
    ++*format;
    return static_cast<char>(c);
}
int scan_format_modifiers(const kovaloc *loc, const ko_mchar_t **format, format_modifiers *m);

// Writes a real as the letter, "e", "E", "f", "g" or "G", says. -1 with KO_E2BIG.
template <class Unit>
int format_float(fmt_out<Unit> *out, double value, char letter, const format_modifiers &m);

#endif
