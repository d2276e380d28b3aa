// Money: formatting of amounts. One wide engine; the multibyte entry converts in and out.
#include "number/kovamnlib.h"
#include "chars/kovambwc.h"
#include "number/kovamnlib_usual.h"
#include "record/kovaframe.h"

#include <float.h>
#include <stdio.h>

// ---- Digits ----

constexpr int digits_room = DBL_MAX_10_EXP + 8;

namespace {
// A rounded amount without its sign.
struct mon_digits {
    char text[digits_room];
    const char *first; // digits of the whole part; or "inf", "nan"; ASCII
    int len;
    unsigned fraction; // the first digits after the decimal symbol, at most six
    bool number;
};
} // namespace

static void take_digits(double amount, int right, mon_digits *d) {
    const double magnitude = amount < 0 ? -amount : amount;
    d->first = d->text;
    d->fraction = 0;
    d->number = magnitude <= DBL_MAX;
    if (!d->number) {
        d->len = 3;
        memcpy(d->text, magnitude > DBL_MAX ? "inf" : "nan", 3);
        return;
    }
    if (magnitude >= scaled_max) {
        d->len = snprintf(d->text, sizeof d->text, "%.0f", magnitude);
        return;
    }
    const auto whole = uint64_t(round_amount(magnitude, right, &d->fraction));
    d->len =
        whole > UINT32_MAX ? put_decimal(d->text, whole) : put_decimal(d->text, uint32_t(whole));
    d->first = d->text + decimal_room - d->len;
}

// The number of separators between the groups of so many digits.
static int64_t count_separators(const int *group, bool threes, int64_t digits) {
    if (threes) return (digits - 1) / 3;
    int64_t separators = 0;
    int at = 0;
    for (int size; (size = next_mon_group(group, &at)) > 0 && digits > size; digits -= size) {
        if (at == group[0]) return separators + (digits - 1) / size;
        ++separators;
    }
    return separators;
}

// ---- One amount ----

namespace {
// Columns before the value and after it.
struct mon_columns {
    int64_t before;
    int64_t after;
};

// What a directive writes, measured beforehand.
struct mon_item {
    const char *mask;
    mon_strings s; // the sign as written: empty for a positive amount without "+"
    mon_digits digits;
    int right;          // digits after the decimal symbol
    bool threes;        // all groups have three digits
    int64_t fill;       // fill characters before the value
    int64_t separators; // within the value
    int64_t front;      // spaces for alignment, before and after
    int64_t back;
    int64_t pad; // spaces for the field width
    int64_t len; // all units
};
} // namespace

static bool starts_blank(kovaloc *loc, const mon_directive &d, const mon_item &item) {
    return item.fill > 0 && has_class(loc, d.fill, KO_CT_BLANK);
}

// A space directly before a value that itself begins with one is left out.
static bool drops_space(const char *piece, bool blank) { return piece[1] == 'V' && blank; }

// Columns of a string; its characters, if one of them has no width.
static int width_of(const kovaloc *loc, const wide_symbol &s) {
    if (!s.len) return 0;
    const ko_ctype_t full = user_class(loc, "full_width");
    int width = 0;
    for (int i = 0; i < s.len; ++i) {
        const unsigned classes = wide_classes(loc, s.units[i]);
        if (!(classes & KO_CT_PRINT)) return s.len;
        width += classes & full ? 2 : 1;
    }
    return width;
}

static mon_columns columns_of(const char *mask, int symbol, int sign, bool blank) {
    mon_columns columns = {};
    int64_t *side = &columns.before;
    for (const char *piece = mask; *piece; ++piece) {
        switch (*piece) {
        case 'V':
            side = &columns.after;
            break;
        case '$':
            *side += symbol;
            break;
        case 'S':
            *side += sign;
            break;
        case '_':
            *side += !drops_space(piece, blank);
            break;
        default:
            ++*side;
        }
    }
    return columns;
}

// Computes the spaces that align positive and negative amounts in one column.
static bool align(kovaloc *loc, const mon_positions &positions, bool blank, mon_item *item) {
    const int symbol = width_of(loc, item->s.symbol);
    mon_columns most = {};
    for (const bool negative : {false, true}) {
        wide_symbol sign;
        if (!mon_sign(loc, negative, &sign)) return false;
        const char *mask = mon_mask(positions.side[negative]);
        const mon_columns c = columns_of(mask, symbol, width_of(loc, sign), blank);
        if (c.before > most.before) most.before = c.before;
        if (c.after > most.after) most.after = c.after;
    }
    const mon_columns own = columns_of(item->mask, symbol, width_of(loc, item->s.sign), blank);
    item->front = own.before < most.before ? most.before - own.before : 0;
    item->back = own.after < most.after ? most.after - own.after : 0;
    return true;
}

static int64_t units_of(const mon_item &item, bool blank) {
    int64_t len = item.front + item.back;
    for (const char *piece = item.mask; *piece; ++piece) {
        switch (*piece) {
        case 'V':
            len += item.fill + item.digits.len + item.separators * item.s.separator.len;
            if (item.right) len += item.s.radix.len + item.right;
            break;
        case '$':
            len += item.s.symbol.len;
            break;
        case 'S':
            len += item.s.sign.len;
            break;
        case '_':
            len += !drops_space(piece, blank);
            break;
        default:
            ++len;
        }
    }
    return len;
}

// Measures an amount. False, with the error word set, if a string is not text in the code set.
static bool measure(kovaloc *loc, const mon_positions &positions, const mon_directive &d,
                    double amount, mon_item *item) {
    const int *group = loc->monum_info.group_mon;
    const bool negative = amount < 0;
    item->mask = mon_mask(positions.side[negative]);
    item->right = right_precision(&loc->monum_info, d.right_precision, d.international);
    take_digits(amount, item->right, &item->digits);
    if (!item->digits.number) item->right = 0;
    item->s.sign = item->s.separator = item->s.radix = {};
    item->threes = false;
    item->fill = item->separators = item->front = item->back = 0;
    if (!mon_symbol(loc, d, &item->s.symbol)) return false;
    if ((negative || d.plus) && !mon_sign(loc, negative, &item->s.sign)) return false;
    if (item->right && !mon_radix(loc, &item->s.dot, &item->s.radix)) return false;
    if (d.grouping && !mon_separator(loc, &item->s.separator)) return false;
    if (item->s.separator.len && item->digits.number) {
        item->threes = groups_by_three(group);
        item->separators = count_separators(group, item->threes, item->digits.len);
    }
    bool blank = false;
    if (d.left_precision) {
        const int64_t most =
            item->s.separator.len ? count_separators(group, item->threes, d.left_precision) : 0;
        item->fill =
            d.left_precision - item->digits.len + (most - item->separators) * item->s.separator.len;
        if (item->fill < 0) item->fill = 0;
        blank = starts_blank(loc, d, *item);
        if (!align(loc, positions, blank, item)) return false;
    }
    item->len = units_of(*item, blank);
    item->pad = item->len < d.width ? d.width - item->len : 0;
    item->len += item->pad;
    return true;
}

// ---- Writing ----

static ko_wchar_t *put(ko_wchar_t *out, ko_wchar_t wc, int64_t times) {
    for (; times > 0; --times)
        *out++ = wc;
    return out;
}

static ko_wchar_t *put_string(ko_wchar_t *out, const wide_symbol &s) {
    for (int i = 0; i < s.len; ++i)
        *out++ = s.units[i];
    return out;
}

// Writes the whole part, from the right unless its groups have three digits.
static ko_wchar_t *put_grouped(const kovaloc *loc, ko_wchar_t *out, const mon_item &item) {
    const int *group = loc->monum_info.group_mon;
    const char *const first = item.digits.first, *from = first + item.digits.len;
    ko_wchar_t *const end = out + item.digits.len + item.separators * item.s.separator.len,
                      *p = end;
    if (item.separators && item.s.separator.len == 1 && item.threes && !loc->portable) {
        put_threes(out, {first, item.digits.len, item.digits.len}, item.s.separator.units[0]);
        return end;
    }
    int at = 0;
    for (int64_t left = item.separators; left > 0; --left) {
        for (int n = next_mon_group(group, &at); n > 0; --n)
            *--p = native(loc, *--from);
        p -= item.s.separator.len;
        put_string(p, item.s.separator);
    }
    while (from > first)
        *--p = native(loc, *--from);
    return end;
}

static ko_wchar_t *put_value(const kovaloc *loc, ko_wchar_t *out, const mon_directive &d,
                             const mon_item &item) {
    out = put_grouped(loc, put(out, d.fill, item.fill), item);
    if (!item.right) return out;
    out = put_string(out, item.s.radix);
    const int known = item.right < decimals ? item.right : decimals;
    const ko_wchar_t zero = native(loc, '0');
    put_fraction(out, item.digits.fraction, known, zero);
    return put(out + known, zero, item.right - known);
}

static ko_wchar_t *put_item(kovaloc *loc, ko_wchar_t *out, const mon_directive &d,
                            const mon_item &item) {
    const ko_wchar_t space = native(loc, ' ');
    const bool blank = starts_blank(loc, d, item);
    out = put(out, space, item.front + (d.left ? 0 : item.pad));
    for (const char *piece = item.mask; *piece; ++piece) {
        switch (*piece) {
        case 'V':
            out = put_value(loc, out, d, item);
            break;
        case '$':
            out = put_string(out, item.s.symbol);
            break;
        case 'S':
            out = put_string(out, item.s.sign);
            break;
        case '_':
            out = put(out, space, !drops_space(piece, blank));
            break;
        default:
            *out++ = native(loc, *piece);
        }
    }
    return put(out, space, item.back + (d.left ? item.pad : 0));
}

// ---- Entries ----

// Writes an amount into room for left units. Returns the end; or NULL with the error word set.
static ko_wchar_t *write_amount(kovaloc *loc, ko_wchar_t *out, int64_t left,
                                const mon_positions &positions, const mon_directive &d,
                                double amount) {
    mon_item item;
    if (!measure(loc, positions, d, amount, &item)) return nullptr;
    if (item.len > left) return fail(loc, KO_E2BIG, nullptr);
    return put_item(loc, out, d, item);
}

// Is a directive that begins after its "%" a letter alone, and prepared?
template <class Unit> static inline bool is_usual(const kovaloc *loc, const Unit *format) {
    const unsigned letter = *format;
    return (letter == 'n' || letter == 'i') && loc->money.ready[letter == 'i'];
}

HOLDS_NO_TEXT int ko_wcsfmon1(ko_lc_t handle, ko_wchar_t *wcs, int max_chars,
                              const ko_wchar_t *format, va_list values) {
    if (!handle || !wcs || !format) return fail(handle, KO_ENULL, -1);
    if (max_chars < 0) return fail(handle, KO_E2BIG, -1);
    kovaloc *loc = record(handle);
    mon_positions positions = mon_working_positions(&loc->monum_info);
    bool changed = false; // the positions, perhaps
    ko_wchar_t *out = wcs, *const limit = wcs + max_chars;
    for (*out = 0; *format; *out = 0) {
        const ko_wchar_t wc = *format++;
        const bool directive = is_percent(loc, wc) && !is_percent(loc, *format);
        if (!directive) {
            // Deliberately, other text needs room for the terminator as well.
            if (limit - out < 2) return fail(handle, KO_E2BIG, -1);
            *out++ = wc;
            if (is_percent(loc, wc)) ++format;
            continue;
        }
        const bool usual = !changed && limit - out >= usual_room && is_usual(loc, format);
        const ko_wchar_t *const letter = format;
        mon_directive d;
        if (!usual && !scan_mon_directive(loc, &format, &positions, &d))
            return fail(handle, KO_EMONEY, -1);
        const double amount = va_arg(values, double);
        if (usual) {
            if (ko_wchar_t *const end = put_usual(loc, out, *letter == 'i', amount)) {
                out = end;
                ++format;
                continue;
            }
            scan_mon_directive(loc, &format, &positions, &d);
        }
        changed = true;
        out = write_amount(loc, out, limit - out, positions, d, amount);
        if (!out) return -1;
    }
    return int(out - wcs);
}

HOLDS_NO_TEXT int ko_wcsfmon(ko_lc_t loc, ko_wchar_t *out, int max_chars, const ko_wchar_t *format,
                             ...) {
    va_list values;
    va_start(values, format);
    const int written = ko_wcsfmon1(loc, out, max_chars, format, values);
    va_end(values);
    return written;
}

// Writes the usual amounts of a single-byte code set, and other text. Returns the bytes; -1 for
// what is left to the engine.
static int usual_bytes(const kovaloc *loc, ko_mchar_t *out, int max_bytes, const ko_mchar_t *format,
                       va_list values) {
    ko_mchar_t *at = out, *const limit = out + max_bytes;
    while (const ko_mchar_t byte = *format++) {
        if (byte == '%' && *format != '%') {
            if (limit - at < usual_room || !is_usual(loc, format)) return -1;
            at = put_usual(loc, at, *format++ == 'i', va_arg(values, double));
            if (!at) return -1;
            continue;
        }
        if (limit - at < 2) return -1;
        *at++ = byte;
        if (byte == '%') ++format;
    }
    *at = 0;
    return int(at - out);
}

// By way of wide characters.
[[gnu::noinline]] static int format_widened(kovaloc *loc, ko_mchar_t *out, int max_bytes,
                                            const ko_mchar_t *format, va_list values) {
    const ext_block<ko_wchar_t> wcs(size_t(max_bytes) + 1);
    if (!wcs.p) {
        ko_mbsterm(loc, out);
        return -1; // deliberately the one failure without an error number
    }
    wcs.p[0] = 0;
    wide_text wide_format;
    int written = widen_text(loc, format, &wide_format);
    if (written >= 0) written = ko_wcsfmon1(loc, wcs.p, max_bytes, wide_format.p, values);
    if (written >= 0) return narrow_result(loc, out, max_bytes, wcs.p);
    try_narrow(loc, out, max_bytes, wcs.p); // what was written before an error stays
    return -1;
}

HOLDS_NO_TEXT int ko_mbsfmon(ko_lc_t handle, ko_mchar_t *out, int max_bytes,
                             const ko_mchar_t *format, ...) {
    if (!handle || !out || !format) return fail(handle, KO_ENULL, -1);
    if (max_bytes < 0) return fail(handle, KO_E2BIG, -1);
    kovaloc *loc = record(handle);
    va_list values;
    if (loc->exp.single_byte && !loc->portable) {
        va_start(values, format);
        const int usual = usual_bytes(loc, out, max_bytes, format, values);
        va_end(values);
        if (usual >= 0) return usual;
    }
    va_start(values, format);
    const int written = format_widened(loc, out, max_bytes, format, values);
    va_end(values);
    return written;
}
