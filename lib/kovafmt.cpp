// Number formatting: the walk over a format, and the fields of integers, characters and strings.
#include "kovafmt_out.h"
#include "kovambwc.h"

#include <limits.h>
#include <string.h>

// ---- Marks --------------------------------------------------------------------------------------

// Strings of the record are copied byte by byte. Only where every character has several bytes would
// that tear them apart.
static bool marks_in_bytes(const kovaloc *loc) {
    return !loc->ctype || class_table(loc)->min_char_len <= 1;
}

// otherwise: what an absent string stands for, an ASCII character or 0 for nothing.
static fmt_mark mark_of(const kovaloc *loc, const ko_mchar_t *bytes, const ko_wchar_t *wide,
                        int otherwise) {
    fmt_mark mark;
    if (!bytes) {
        if (otherwise) mark.len = 1, mark.unit = native(loc, otherwise);
    } else if (marks_in_bytes(loc)) {
        while (bytes[mark.len])
            ++mark.len;
        if (mark.len == 1)
            mark.unit = bytes[0];
        else
            mark.bytes = bytes;
    } else if (wide) {
        mark.len = ko_wcslen(wide);
        mark.wide = wide;
    }
    return mark;
}

fmt_mark decimal_mark(const kovaloc *loc) {
    const monum &m = loc->monum_info;
    return mark_of(loc, m.decimal_point, m.w_decimal_point, '.');
}
fmt_mark separator_mark(const kovaloc *loc) {
    const monum &m = loc->monum_info;
    return mark_of(loc, m.thousands_sep, m.w_thousands_sep, 0);
}
fmt_mark positive_mark(const kovaloc *loc) {
    const monum &m = loc->monum_info;
    return mark_of(loc, m.num_positive_sign, m.w_num_positive_sign, 0);
}
fmt_mark negative_mark(const kovaloc *loc) {
    const monum &m = loc->monum_info;
    return mark_of(loc, m.num_negative_sign, m.w_num_negative_sign, '-');
}

fmt_mark sign_mark(const kovaloc *loc, bool negative, const format_modifiers &m) {
    if (negative) return negative_mark(loc);
    if (!(m.flags & (fmt_plus | fmt_space))) return {};
    const fmt_mark sign = positive_mark(loc);
    if (m.flags & fmt_plus) return sign;
    return {.len = sign.len, .unit = native(loc, ' ')};
}

// ---- Fields -------------------------------------------------------------------------------------

ko_wchar_t *open_field(fmt_out *out, const fmt_mark &sign, int64_t body,
                       const format_modifiers &m) {
    ko_wchar_t *const none = nullptr;
    const int64_t length = body + sign.len;
    const int64_t width = length > m.width ? length : m.width;
    if (width > out->room) return fail(out->loc, KO_E2BIG, none);
    const int64_t pad = width - length;
    ko_wchar_t *at = out->at;
    out->at += width;
    out->room -= width;
    if (pads_with_zeros(m)) return put_units(put_mark(at, sign), native(out->loc, '0'), pad);
    const ko_wchar_t blank = native(out->loc, ' ');
    if (pads_right(m))
        put_units(out->at - pad, blank, pad);
    else
        at = put_units(at, blank, pad);
    return put_mark(at, sign);
}

// The size of group i, from 1 at the right; 0 ends grouping. The last size repeats, or, where it is
// 0, the one before it.
static int group_size(const int *group, int i) {
    const int count = group[0] < group_max ? group[0] : group_max - 1;
    if (count < 1) return 0;
    int size = group[i < count ? i : count];
    if (!size && i >= count && count > 1) size = group[count - 1];
    return size > 0 ? size : 0;
}

int separators_in(const int *group, int digits) {
    for (int i = 1, count = 0;; ++i, ++count) {
        const int size = group ? group_size(group, i) : 0;
        if (!size || digits <= size) return count;
        digits -= size;
    }
}

void put_digits(const kovaloc *loc, ko_wchar_t *end, const digit_run &run, const int *group,
                const fmt_mark &separator) {
    for (int rest = run.total, index = 1;; ++index) {
        const int size = group ? group_size(group, index) : 0;
        const int stop = size && size < rest ? rest - size : 0;
        while (rest > stop) {
            --rest;
            *--end = native(loc, rest < run.given ? run.digits[rest] : '0');
        }
        if (!rest) return;
        end -= separator.len;
        put_mark(end, separator);
    }
}

// ---- Integers -----------------------------------------------------------------------------------

constexpr int digits_max = 32; // of 32 bits, in base 2

// Writes the digits so that they end at end; returns the first.
template <unsigned base> static char *digits_before(char *end, uint32_t value, const char *set) {
    do {
        *--end = set[value % base];
        value /= base;
    } while (value);
    return end;
}
static char *digits_before(char *end, uint32_t value, unsigned base, bool upper) {
    const char *const set = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    switch (base) {
    case 2:
        return digits_before<2>(end, value, set);
    case 4:
        return digits_before<4>(end, value, set);
    case 8:
        return digits_before<8>(end, value, set);
    case 16:
        return digits_before<16>(end, value, set);
    default:
        return digits_before<10>(end, value, set);
    }
}

// Writes an integer in base 2, 4, 8, 10 or 16. -1 with KO_E2BIG.
static int format_decimal(fmt_out *out, uint32_t magnitude, unsigned base, const fmt_mark &sign,
                          const format_modifiers &m) {
    kovaloc *const loc = out->loc;
    char text[digits_max];
    const bool upper = (m.flags & fmt_upper) != 0, alternate = (m.flags & fmt_alternate) != 0;
    const char *const digits = digits_before(text + digits_max, magnitude, base, upper);
    const auto count = static_cast<int>(text + digits_max - digits);
    int64_t zeros = m.precision > count ? m.precision - count : 0;
    if (base == 8 && alternate && count >= m.precision) zeros = 1;
    const int *const group = m.flags & fmt_group ? loc->monum_info.group_num : nullptr;
    const fmt_mark separator = group ? separator_mark(loc) : fmt_mark();
    const int prefix = base == 16 && alternate ? 2 : 0;
    const int grouped = count + separators_in(group, count) * separator.len;
    ko_wchar_t *at = open_field(out, sign, prefix + zeros + grouped, m);
    if (!at) return -1;
    if (prefix) {
        *at++ = native(loc, '0');
        *at++ = native(loc, upper ? 'X' : 'x');
    }
    at = put_units(at, native(loc, '0'), zeros);
    put_digits(loc, at + grouped, {digits, count, count}, group, separator);
    return 0;
}

static uint32_t magnitude_of(int value) {
    const auto bits = static_cast<uint32_t>(value);
    return value < 0 ? 0 - bits : bits;
}

int write_plain_number(kovaloc *loc, ko_wchar_t *out, int room, int value,
                       const format_modifiers &m) {
    fmt_out field = {loc, out, room};
    format_modifiers plain = m;
    plain.flags &= fmt_left | fmt_zero;
    fmt_mark sign;
    if (value < 0) sign.len = 1, sign.unit = native(loc, '-');
    if (format_decimal(&field, magnitude_of(value), 10, sign, plain) < 0) return -1;
    return static_cast<int>(field.at - out);
}
