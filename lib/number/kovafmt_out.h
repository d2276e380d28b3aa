// The output side of number formatting: fields with sign and padding, and grouped digits. A unit is
// a wide character or, where every character is one byte, a byte.
#ifndef KOVAFMT_OUT_H
#define KOVAFMT_OUT_H

#include "chars/kovaportable.h"
#include "number/kovafmt.h"

#include <string.h>

#include <array>
#include <bit>

template <class Unit> struct fmt_out {
    kovaloc *loc;
    Unit *at;
    int64_t room;          // units for which there is still room
    Unit *unfit = nullptr; // the place of the first character that is not a unit
};

// A sign, a separator or a decimal symbol.
struct fmt_mark {
    const void *text = nullptr; // if it has several units; NULL: the unit len times
    int len = 0;                // in units
    ko_wchar_t unit = 0;
    bool wide = false; // the text consists of wide characters, else of bytes
};
fmt_mark long_mark(const kovaloc *loc, const ko_mchar_t *bytes, const ko_wchar_t *wide,
                   int otherwise);
// otherwise: what replaces an absent string, an ASCII character or 0 for nothing.
inline fmt_mark mark_of(const kovaloc *loc, const ko_mchar_t *bytes, const ko_wchar_t *wide,
                        int otherwise) {
    if (bytes && loc->exp.single_byte && bytes[0] && !bytes[1])
        return {nullptr, 1, bytes[0], false};
    return long_mark(loc, bytes, wide, otherwise);
}
inline fmt_mark decimal_mark(const kovaloc *loc) {
    if (const ko_wchar_t unit = loc->marks.decimal) return {nullptr, 1, unit, false};
    const monum &m = loc->monum_info;
    return mark_of(loc, m.decimal_point, m.w_decimal_point, '.');
}
inline fmt_mark separator_mark(const kovaloc *loc) {
    const monum &m = loc->monum_info;
    return mark_of(loc, m.thousands_sep, m.w_thousands_sep, 0);
}
inline fmt_mark positive_mark(const kovaloc *loc) {
    const monum &m = loc->monum_info;
    return mark_of(loc, m.num_positive_sign, m.w_num_positive_sign, 0);
}
inline fmt_mark negative_mark(const kovaloc *loc) {
    const monum &m = loc->monum_info;
    return mark_of(loc, m.num_negative_sign, m.w_num_negative_sign, '-');
}
// What precedes a number: a sign, or blanks in its place.
inline fmt_mark sign_mark(const kovaloc *loc, bool negative, const format_modifiers &m) {
    if (negative) return negative_mark(loc);
    if (!(m.flags & (fmt_plus | fmt_space))) return {};
    const fmt_mark sign = positive_mark(loc);
    return m.flags & fmt_plus ? sign : fmt_mark{nullptr, sign.len, native(loc, ' '), false};
}

template <class Unit> inline Unit *put_units(Unit *at, ko_wchar_t unit, int64_t count) {
    for (; count > 0; --count)
        *at++ = Unit(unit);
    return at;
}
template <class Unit> [[gnu::noinline]] Unit *put_long_mark(Unit *at, const fmt_mark &mark) {
    if (!mark.text) return put_units(at, mark.unit, mark.len);
    const auto *const wide = static_cast<const ko_wchar_t *>(mark.text);
    const auto *const bytes = static_cast<const ko_mchar_t *>(mark.text);
    for (int i = 0; i < mark.len; ++i)
        *at++ = Unit(mark.wide ? wide[i] : bytes[i]);
    return at;
}
template <class Unit> inline Unit *put_mark(Unit *at, const fmt_mark &mark) {
    if (mark.len > 1) return put_long_mark(at, mark);
    if (mark.len) *at++ = Unit(mark.unit);
    return at;
}

// Takes the room of a field of at least the width, writes its sign and padding, and returns the
// place of its body, which the caller writes. NULL with KO_E2BIG and nothing written.
template <class Unit>
[[gnu::noinline]] Unit *open_padded(fmt_out<Unit> *out, const fmt_mark &sign, int64_t body,
                                    const format_modifiers &m) {
    Unit *const none = nullptr, *const at = out->at;
    const int64_t length = body + sign.len;
    const int64_t width = length > m.width ? length : m.width, pad = width - length;
    if (width > out->room) return fail(out->loc, KO_E2BIG, none);
    out->at += width;
    out->room -= width;
    if (pads_with_zeros(m)) return put_units(put_mark(at, sign), native(out->loc, '0'), pad);
    const ko_wchar_t blank = native(out->loc, ' ');
    if (!pads_right(m)) return put_mark(put_units(at, blank, pad), sign);
    put_units(out->at - pad, blank, pad);
    return put_mark(at, sign);
}
// Opens the field of a number; the flags may ask for a sign.
template <class Unit>
inline Unit *open_number(fmt_out<Unit> *out, bool negative, int64_t body,
                         const format_modifiers &m) {
    const unsigned padded = unsigned(m.width) | (m.flags & (fmt_plus | fmt_space));
    if (negative || padded || body > out->room) {
        return open_padded(out, sign_mark(out->loc, negative, m), body, m);
    }
    Unit *const at = out->at;
    out->at += body;
    out->room -= body;
    return at;
}

// ---- Digits ----

// Numbers of any length take the same steps: a loop over the digits would end at a different place
// each time, and mispredicting that costs a processor more than the digits do.
constexpr int decimal_room = 16;
inline constexpr auto powers_of_ten = [] {
    std::array<uint64_t, 20> values{};
    uint64_t power = 1;
    for (uint64_t &value : values)
        value = power, power *= 10;
    return values;
}();
inline void put_eight_digits(char *to, uint32_t value) {
    const uint32_t high = value / 10000, low = value % 10000;
    memcpy(to, digit_pairs<ko_mchar_t>[high / 100].data(), 2);
    memcpy(to + 2, digit_pairs<ko_mchar_t>[high % 100].data(), 2);
    memcpy(to + 4, digit_pairs<ko_mchar_t>[low / 100].data(), 2);
    memcpy(to + 6, digit_pairs<ko_mchar_t>[low % 100].data(), 2);
}
inline int count_digits(uint64_t number) {
    const uint64_t odd = number | 1;                         // has as many digits, and at least one
    const int below = int(std::bit_width(odd)) * 1233 >> 12; // log 2
    return below + (odd >= powers_of_ten[size_t(below)]);
}
// Writes a number of at most 16 digits at the end of the room and returns their count.
inline int put_decimal(char *room, uint64_t number) {
    put_eight_digits(room, uint32_t(number / 100000000));
    put_eight_digits(room + 8, uint32_t(number % 100000000));
    return count_digits(number);
}
inline int put_decimal(char *room, uint32_t number) {
    memcpy(room + 6, digit_pairs<ko_mchar_t>[number / 100000000].data(), 2);
    put_eight_digits(room + 8, number % 100000000);
    return count_digits(number);
}

// ASCII digits, first to last, followed by zeros up to the total.
struct digit_run {
    const char *digits;
    int given;
    int total;
};
// The size of group i, counted from 1 at the right, of a grouping (a count and sizes); 0 ends
// grouping. The last size repeats, or the one before it if the last is 0.
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

// Writes four or more digits in groups of three; the copy of the first group may be too long.
template <class Unit> inline void put_threes(Unit *at, const digit_run &run, ko_wchar_t separator) {
    const char *digit = run.digits;
    const int first = (run.total - 1) % 3 + 1;
    const auto copy_three = [&] {
        for (int i = 0; i < 3; ++i)
            at[i] = Unit(digit[i]);
    };
    copy_three();
    at += first;
    digit += first;
    for (int groups = (run.total - 1) / 3; groups; --groups, digit += 3, at += 3) {
        *at++ = Unit(separator);
        copy_three();
    }
}

// How digits are grouped: not at all, by three with a separator of one unit, or otherwise.
enum grouping_kind { ungrouped, by_three, by_sizes };
struct grouping {
    grouping_kind kind = ungrouped;
    fmt_mark separator;
    const int *sizes = nullptr;
};
inline grouping init_grouping(const kovaloc *loc, const format_modifiers &m) {
    if (!(m.flags & fmt_group)) return {};
    const int *const sizes = loc->monum_info.group_num;
    if (const ko_wchar_t unit = loc->marks.threes) {
        const fmt_mark byte = {nullptr, 1, unit, false};
        return {by_three, byte, sizes};
    }
    const fmt_mark separator = separator_mark(loc);
    const bool plain = separator.len == 1 && groups_by_three(sizes);
    return {plain ? by_three : by_sizes, separator, sizes};
}
// The units of so many digits with their separators.
inline int64_t grouped_len(const grouping &g, int digits) {
    if (g.kind == ungrouped) return digits;
    if (g.kind == by_three) return digits + int(unsigned(digits - 1) / 3);
    int64_t len = digits;
    for (int i = 1, size; (size = group_size(g.sizes, i)) > 0 && size < digits; ++i, digits -= size)
        len += g.separator.len;
    return len;
}

// The digits of a number.
struct number_digits {
    uint64_t number;
    int count;          // in all; if the number has fewer, zeros come first
    int zeros = 0;      // of these, zeros after the number
    int bits = 0;       // per digit; 0: base 10
    bool upper = false; // digits above 9 are upper-case letters
};

template <class Unit> inline void put_pair(Unit *at, uint32_t pair, ko_wchar_t zero) {
    at[0] = Unit(zero - '0' + digit_pairs<ko_mchar_t>[pair][0]);
    at[1] = Unit(zero - '0' + digit_pairs<ko_mchar_t>[pair][1]);
}
// Writes count decimal digits so that they end at end.
template <class Unit, class Number>
inline void put_decimals(Unit *end, Number number, int count, ko_wchar_t zero) {
    for (; count > 1; count -= 2, number /= 100)
        put_pair(end -= 2, uint32_t(number % 100), zero);
    if (count > 0) end[-1] = Unit(zero + number % 10);
}
// Writes count decimal digits in groups of three so that they end at end.
template <class Unit, class Number>
inline void put_threes(Unit *end, Number number, int count, ko_wchar_t zero, ko_wchar_t separator) {
    for (; count > 3; count -= 3, number /= 1000) {
        const auto three = uint32_t(number % 1000);
        put_pair(end - 2, three % 100, zero);
        end[-3] = Unit(zero + three / 100);
        *(end -= 4) = Unit(separator);
    }
    put_decimals(end, uint32_t(number), count, zero);
}
// Writes digits by any group sizes and in any base so that they end at end.
template <class Unit>
[[gnu::noinline]] void put_each_digit(const kovaloc *loc, Unit *end, number_digits d,
                                      const grouping &g) {
    const ko_wchar_t zero = native(loc, '0'), ten = native(loc, d.upper ? 'A' : 'a');
    const uint64_t mask = (uint64_t{1} << d.bits) - 1;
    int index = 1, left = g.kind ? group_size(g.sizes, index) : 0;
    for (int i = 0; i < d.count; ++i, --left) {
        if (i && !left) {
            put_mark(end -= g.separator.len, g.separator);
            left = group_size(g.sizes, ++index);
        }
        uint64_t digit = 0;
        if (i >= d.zeros) {
            digit = d.bits ? d.number & mask : d.number % 10;
            d.number = d.bits ? d.number >> d.bits : d.number / 10;
        }
        *--end = Unit(digit < 10 ? zero + digit : ten + (digit - 10));
    }
}

// Writes a number of count digits, with separators between their groups, so that they end at end.
template <class Unit, class Number>
inline void put_number(const kovaloc *loc, Unit *end, Number number, int count, const grouping &g) {
    const ko_wchar_t zero = native(loc, '0');
    if (g.kind == by_three) return put_threes(end, number, count, zero, g.separator.unit);
    if (g.kind == by_sizes) return put_each_digit(loc, end, {number, count}, g);
    put_decimals(end, number, count, zero);
}

// ---- Directives ----

// Conversion letters, for formatting and for parsing.
enum number_kind : unsigned char {
    number_none,
    number_integer,
    number_real,
    number_char,
    number_string
};
struct number_letter {
    number_kind kind;
    unsigned char base; // of integers
    bool is_signed;
};
inline constexpr auto number_letters = [] {
    std::array<number_letter, 128> rows{};
    for (const char c : {'d', 'i'})
        rows[size_t(c)] = {number_integer, 10, true};
    for (const char c : {'x', 'X'})
        rows[size_t(c)] = {number_integer, 16, true};
    for (const char c : {'e', 'E', 'f', 'g', 'G'})
        rows[size_t(c)] = {number_real, 0, true};
    rows['u'] = {number_integer, 10, false};
    rows['o'] = {number_integer, 8, true};
    rows['q'] = {number_integer, 4, true};
    rows['b'] = {number_integer, 2, true};
    rows['c'] = {number_char, 0, false};
    rows['s'] = {number_string, 0, false};
    return rows;
}();
// The entry of a portable character; NULL: none.
inline const number_letter *find_number_letter(unsigned c) {
    return c < number_letters.size() && number_letters[c].kind ? &number_letters[c] : nullptr;
}

// Skips the letter of a size and returns it: 'l', 'h' or 0.
template <class Unit> inline char scan_size(const kovaloc *loc, const Unit **format) {
    const unsigned c = portable(loc, **format) | 0x20;
    if (c != 'l' && c != 'h') return 0;
    ++*format;
    return char(c);
}

// Writes a real in the style of the letter: "e", "E", "f", "g" or "G". -1 with KO_E2BIG.
template <class Unit>
int format_float(fmt_out<Unit> *out, double value, char letter, const format_modifiers &m);

#endif
