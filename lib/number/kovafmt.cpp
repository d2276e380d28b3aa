// Number formatting: the walk over a format, and the fields of integers, characters and strings.
#include "chars/kovambwc.h"
#include "number/kovafmt_out.h"
#include "number/kovafmt_scan.h"
#include "record/kovaframe.h"

#include <limits.h>
#include <string.h>

// ---- Marks ----

// Strings of the record are copied byte by byte, which would be wrong only where every character
// has several bytes.
static bool marks_in_bytes(const kovaloc *loc) {
    return !loc->ctype || class_table(loc)->min_char_len <= 1;
}

fmt_mark long_mark(const kovaloc *loc, const ko_mchar_t *bytes, const ko_wchar_t *wide,
                   int otherwise) {
    fmt_mark mark;
    if (!bytes) {
        if (otherwise) mark.len = 1, mark.unit = native(loc, otherwise);
    } else if (marks_in_bytes(loc)) {
        mark.unit = bytes[0];
        mark.text = bytes;
        while (bytes[mark.len])
            ++mark.len;
    } else if (wide) {
        mark.unit = wide[0];
        mark.text = wide;
        mark.len = ko_wcslen(wide);
        mark.wide = true;
    }
    return mark;
}

// The mark of a string that is one byte of a single-byte code set; 0 for any other.
static ko_wchar_t byte_mark(const kovaloc *loc, const ko_mchar_t *bytes) {
    return loc->exp.single_byte && bytes && bytes[0] && !bytes[1] ? bytes[0] : ko_wchar_t{0};
}

void derive_marks(kovaloc *loc) {
    const monum &m = loc->monum_info;
    const bool threes = groups_by_three(m.group_num);
    loc->marks = {byte_mark(loc, m.decimal_point),
                  threes ? byte_mark(loc, m.thousands_sep) : ko_wchar_t{0}};
}

// ---- Integers ----

// Writes an integer in base 10. -1 with KO_E2BIG.
template <class Unit>
[[gnu::noinline]] static int format_any_decimal(fmt_out<Unit> *out, uint32_t magnitude,
                                                bool negative, const format_modifiers &m) {
    kovaloc *const loc = out->loc;
    const int count = count_digits(magnitude);
    const int zeros = m.precision > count ? m.precision - count : 0;
    const grouping g = init_grouping(loc, m);
    const int64_t grouped = grouped_len(g, count);
    Unit *at = open_number(out, negative, zeros + grouped, m);
    if (!at) return -1;
    if (zeros) at = put_units(at, native(loc, '0'), zeros);
    put_number(loc, at + grouped, magnitude, count, g);
    return 0;
}

// The same. The usual ones have no sign, no padding and, if they are grouped, a separator of one
// byte between groups of three.
template <class Unit>
static inline int format_decimal(fmt_out<Unit> *out, uint32_t magnitude, bool negative,
                                 const format_modifiers &m) {
    kovaloc *const loc = out->loc;
    const ko_wchar_t separator = m.flags ? loc->marks.threes : ko_wchar_t{0};
    const bool other = (m.flags & ~unsigned{fmt_group}) || (m.flags && !separator);
    if (negative || other || m.width || m.precision >= 0) {
        return format_any_decimal(out, magnitude, negative, m);
    }
    const int count = count_digits(magnitude);
    const int len = separator ? count + int(unsigned(count - 1) / 3) : count;
    if (len > out->room) return fail(loc, KO_E2BIG, -1);
    Unit *const end = out->at += len;
    out->room -= len;
    if (separator)
        put_threes(end, magnitude, count, native(loc, '0'), separator);
    else
        put_decimals(end, magnitude, count, native(loc, '0'));
    return 0;
}

// Writes an integer in base 2, 4, 8 or 16. -1 with KO_E2BIG.
template <class Unit>
[[gnu::noinline]] static int format_binary(fmt_out<Unit> *out, uint32_t magnitude, int base,
                                           bool negative, const format_modifiers &m) {
    kovaloc *const loc = out->loc;
    const bool upper = (m.flags & fmt_upper) != 0, alternate = (m.flags & fmt_alternate) != 0;
    const int bits = std::countr_zero(unsigned(base));
    const int count = (int(std::bit_width(magnitude | 1)) + bits - 1) / bits;
    int64_t zeros = m.precision > count ? m.precision - count : 0;
    if (base == 8 && alternate && count >= m.precision) zeros = 1;
    const grouping g = init_grouping(loc, m);
    const int prefix = base == 16 && alternate ? 2 : 0;
    const int64_t grouped = grouped_len(g, count);
    Unit *at = open_number(out, negative, prefix + zeros + grouped, m);
    if (!at) return -1;
    if (prefix) {
        *at++ = Unit(native(loc, '0'));
        *at++ = Unit(native(loc, upper ? 'X' : 'x'));
    }
    at = put_units(at, native(loc, '0'), zeros);
    put_each_digit(loc, at + grouped, {magnitude, count, 0, bits, upper}, g);
    return 0;
}

static uint32_t magnitude_of(int value) {
    const auto bits = uint32_t(value);
    return value < 0 ? 0 - bits : bits;
}

int write_plain_number(kovaloc *loc, ko_wchar_t *out, int room, int value,
                       const format_modifiers &m) {
    fmt_out<ko_wchar_t> field = {loc, out, room};
    const uint32_t magnitude = magnitude_of(value);
    const int count = count_digits(magnitude);
    const int zeros = m.precision > count ? m.precision - count : 0;
    fmt_mark sign;
    if (value < 0) sign.len = 1, sign.unit = native(loc, '-');
    ko_wchar_t *const at = open_padded(&field, sign, int64_t{zeros} + count, m);
    if (!at) return -1;
    put_decimals(put_units(at, native(loc, '0'), zeros) + count, magnitude, count,
                 native(loc, '0'));
    return int(field.at - out);
}

// ---- Characters and strings ----

// A character that is not a unit fails the call only at its end: any other error is reported first,
// as where wide characters are formatted and then converted.
template <class Unit> static Unit unit_of(fmt_out<Unit> *out, Unit *at, ko_wchar_t wc) {
    const auto unit = Unit(wc);
    if (unit != wc && !out->unfit) out->unfit = at;
    return unit;
}

template <class Unit>
static int format_char(fmt_out<Unit> *out, ko_wchar_t wc, const format_modifiers &m) {
    Unit *const at = open_padded(out, {}, 1, m);
    if (!at) return -1;
    *at = unit_of(out, at, wc);
    return 0;
}

// Gets the first character of mb; -1 with the error word set if there is none.
static int first_char(kovaloc *loc, const ko_mchar_t *mb, ko_wchar_t *wc) {
    if (!mb) return fail(loc, KO_ENULL, -1);
    *wc = *mb;
    const int n = !loc->exp.single_byte ? ko_full_mbtowc(loc, wc, mb, 4) : *mb ? 1 : 0;
    return n ? n : fail(loc, KO_EILSEQ, -1);
}

// Deliberately, without a precision a text longer than the width is cut to the width.
template <class Unit, class Source>
static int format_string(fmt_out<Unit> *out, const Source *text, int len, format_modifiers m) {
    const int precision = m.precision;
    int field = len, taken = len;
    if (len <= m.width || precision < m.width)
        field = precision < 0 && !m.width ? len : m.width;
    else if (precision > m.width)
        field = len < precision ? len : precision;
    if (precision >= 0 && taken > precision) taken = precision;
    if (taken > field) taken = field;
    m.width = field;
    Unit *const at = open_padded(out, {}, taken, m);
    if (!at) return -1;
    for (int i = 0; i < taken; ++i)
        at[i] = unit_of(out, at + i, text[i]);
    return 0;
}

static int format_multibyte(fmt_out<ko_wchar_t> *out, const ko_mchar_t *mbs,
                            const format_modifiers &m) {
    wide_text text;
    const int len = try_widen(out->loc, mbs, &text);
    if (len < 0) return fail(out->loc, len == -KO_ERANGE ? int(KO_E2BIG) : -len, -1);
    return format_string(out, text.p, len, m);
}
static int format_multibyte(fmt_out<ko_mchar_t> *out, const ko_mchar_t *mbs,
                            const format_modifiers &m) {
    const void *const bytes = mbs;
    const size_t len = strlen(static_cast<const char *>(bytes));
    return len > INT_MAX ? fail(out->loc, KO_E2BIG, -1) : format_string(out, mbs, int(len), m);
}

// ---- Directives ----

namespace {
// A call of the formatter: what persists from directive to directive.
template <class Unit> struct formatting {
    fmt_out<Unit> out;
    format_modifiers m;
    bool negative; // a negative integer was written: later ones take its sign
    va_list values;
};
} // namespace

// Takes the arguments of the stars.
template <class Unit> static void take_stars(formatting<Unit> *f) {
    format_modifiers &m = f->m;
    if (m.width_star) {
        m.width = va_arg(f->values, int);
        if (m.width < 0) {
            m.flags |= fmt_left;
            m.width = m.width == INT_MIN ? INT_MAX : -m.width;
        }
    }
    if (!m.precision_star) return;
    m.precision = va_arg(f->values, int);
    if (m.precision < 0) m.precision = -1;
}

template <class Unit>
static int format_integer(formatting<Unit> *f, const number_letter &row, char size) {
    int value = va_arg(f->values, int); // the interface's long is an int, too
    if (size == 'h') value = row.is_signed ? int16_t(value) : value & 0xFFFF;
    if (row.is_signed && value < 0) f->negative = true;
    const uint32_t magnitude = row.is_signed ? magnitude_of(value) : uint32_t(value);
    return row.base == 10 ? format_decimal(&f->out, magnitude, f->negative, f->m)
                          : format_binary(&f->out, magnitude, row.base, f->negative, f->m);
}

// Characters and strings.
template <class Unit>
[[gnu::noinline]] static int format_text(formatting<Unit> *f, number_kind kind, char size) {
    kovaloc *const loc = f->out.loc;
    if (kind == number_char && size == 'l') {
        const auto wc = ko_wchar_t(va_arg(f->values, int));
        return wc ? format_char(&f->out, wc, f->m) : fail(loc, KO_EILSEQ, -1);
    }
    if (size == 'l') {
        const ko_wchar_t *const text = va_arg(f->values, const ko_wchar_t *);
        if (!text) return fail(loc, KO_ENULL, -1);
        const int len = ko_wcslen(text);
        return len < 0 ? fail(loc, KO_E2BIG, -1) : format_string(&f->out, text, len, f->m);
    }
    const ko_mchar_t *const text = va_arg(f->values, const ko_mchar_t *);
    ko_wchar_t wc;
    if (kind == number_char) {
        return first_char(loc, text, &wc) < 0 ? -1 : format_char(&f->out, wc, f->m);
    }
    return text ? format_multibyte(&f->out, text, f->m) : fail(loc, KO_ENULL, -1);
}

// Formats a directive, from the place after its "%".
template <class Unit> static int format_directive(formatting<Unit> *f, const Unit **format) {
    kovaloc *const loc = f->out.loc;
    if (const int error = scan_modifiers(loc, format, &f->m)) return fail(loc, error, -1);
    if (f->m.width_star | f->m.precision_star) take_stars(f);
    unsigned c = portable(loc, **format);
    const number_letter *row = find_number_letter(c);
    char size = 0;
    if (!row) {
        size = scan_size(loc, format);
        c = portable(loc, **format);
        row = find_number_letter(c);
    }
    if (!row) return fail(loc, **format ? KO_EDIRECTIVE : KO_EFORMAT, -1);
    ++*format;
    if (row->kind == number_integer) {
        if (row->base == 16 && c == 'X') f->m.flags |= fmt_upper;
        return format_integer(f, *row, size);
    }
    if (row->kind != number_real) return format_text(f, row->kind, size);
    return format_float(&f->out, va_arg(f->values, double), char(c), f->m);
}

template <class Unit> static int walk_format(formatting<Unit> *f, const Unit *format) {
    const ko_wchar_t percent = native(f->out.loc, '%');
    while (*format) {
        const Unit unit = *format++;
        if (unit == percent && *format != percent) {
            if (format_directive(f, &format) < 0) return -1;
            continue;
        }
        if (f->out.room < 1) return fail(f->out.loc, KO_E2BIG, -1);
        *f->out.at++ = unit;
        --f->out.room;
        if (unit == percent) ++format;
    }
    return 0;
}

// ---- Entry points ----

template <class Unit>
static inline int format_numbers(formatting<Unit> *f, Unit *out, int max, const Unit *format) {
    f->out.at = out;
    f->out.room = max > 0 ? max : 0;
    f->m.flags = 0;
    f->negative = false;
    int result = walk_format(f, format);
    if (sizeof(Unit) == 1 && f->out.unfit) { // every wide character is a unit
        f->out.at = f->out.unfit;
        if (result >= 0) result = fail(f->out.loc, KO_EILSEQ, -1);
    }
    if (max >= 0) *f->out.at = 0;
    return result < 0 ? -1 : int(f->out.at - out);
}

HOLDS_NO_TEXT int ko_wcsfnum1(ko_lc_t loc, ko_wchar_t *out, int max_chars, const ko_wchar_t *format,
                              va_list values) {
    if (!loc || !out || !format) return fail(loc, KO_ENULL, -1);
    formatting<ko_wchar_t> f;
    f.out.loc = record(loc);
    va_copy(f.values, values);
    const int result = format_numbers(&f, out, max_chars, format);
    va_end(f.values);
    return result;
}

// The list of values is started in place: copying it takes as long as some directives.
HOLDS_NO_TEXT int ko_wcsfnum(ko_lc_t loc, ko_wchar_t *out, int max_chars, const ko_wchar_t *format,
                             ...) {
    if (!loc || !out || !format) return fail(loc, KO_ENULL, -1);
    formatting<ko_wchar_t> f;
    f.out.loc = record(loc);
    va_start(f.values, format);
    const int result = format_numbers(&f, out, max_chars, format);
    va_end(f.values);
    return result;
}

constexpr int result_room = 512; // results that take no block of the host's memory

// Formats by way of wide characters, where characters have several bytes.
[[gnu::noinline]] static int format_widened(formatting<ko_wchar_t> *f, ko_mchar_t *out,
                                            int max_bytes, const ko_mchar_t *format) {
    kovaloc *const loc = f->out.loc;
    if (max_bytes >= 0) ko_mbsterm(loc, out); // empty after a failure
    wide_text wide;
    if (widen_text(loc, format, &wide) < 0) return -1;
    ko_wchar_t local[result_room];
    if (max_bytes < result_room) {
        // NOLINTBEGIN(clang-analyzer-*): nobody reads where f ends
        if (format_numbers(f, local, max_bytes > 0 ? max_bytes : 0, wide.p) < 0) return -1;
        return narrow_result(loc, out, max_bytes, local);
        // NOLINTEND(clang-analyzer-*)
    }
    const ext_block<ko_wchar_t> block(size_t(max_bytes) + 1);
    if (!block.p) return fail(loc, KO_ENOMEM, -1);
    if (format_numbers(f, block.p, max_bytes, wide.p) < 0) return -1;
    return narrow_result(loc, out, max_bytes, block.p);
}

HOLDS_NO_TEXT int ko_mbsfnum(ko_lc_t loc, ko_mchar_t *out, int max_bytes, const ko_mchar_t *format,
                             ...) {
    if (!loc || !out || !format) return fail(loc, KO_ENULL, -1);
    int result;
    if (record(loc)->exp.single_byte) {
        formatting<ko_mchar_t> f;
        f.out.loc = record(loc);
        va_start(f.values, format);
        result = format_numbers(&f, out, max_bytes, format);
        va_end(f.values);
    } else {
        formatting<ko_wchar_t> f;
        f.out.loc = record(loc);
        va_start(f.values, format);
        result = format_widened(&f, out, max_bytes, format);
        va_end(f.values);
    }
    return result;
}
