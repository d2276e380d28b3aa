// Formatting of times: one writer for each kind of directive.
#include "record/kovaframe.h"
#include "text/kovastr.h"
#include "time/kovatmlib_quick.h"

#include <limits.h>

constexpr int era_unknown = -2;

namespace {
struct time_out {
    kovaloc *loc;
    const ko_alt_tm_t *tm; // in the locale's calendar
    ko_wchar_t *at;
    ko_wchar_t *end;
    time_walker walker;
    int era = era_unknown;

    int literal(const ko_wchar_t *first, const ko_wchar_t *last);
    int directive(const time_spec &spec);
};

struct alt_number {
    const ko_wchar_t *digits[32]; // of 31 bits in base 2, last digit first
    int count;
};
} // namespace

// ---- Units ----

static inline int put_unit(time_out *out, ko_wchar_t unit) {
    if (out->at == out->end) return KO_E2BIG;
    *out->at++ = unit;
    return 0;
}

static int put_units(time_out *out, ko_wchar_t unit, int64_t count) {
    if (count > out->end - out->at) return KO_E2BIG;
    for (; count > 0; --count)
        *out->at++ = unit;
    return 0;
}

static int put_text(time_out *out, const ko_wchar_t *text, int units) {
    if (units > out->end - out->at) return KO_E2BIG;
    for (int i = 0; i < units; ++i)
        *out->at++ = text[i]; // NOLINT(clang-analyzer-*): units of it were written
    return 0;
}

inline int time_out::literal(const ko_wchar_t *first, const ko_wchar_t *last) {
    ko_wchar_t *to = at;
    for (; first != last; ++first) {
        if (to == end) return KO_E2BIG;
        *to++ = *first;
    }
    at = to;
    return 0;
}

// ---- Names ----

column_counter make_columns(kovaloc *loc) { return {loc, user_class(loc, "full_width")}; }

int columns_of(const column_counter &by, ko_wchar_t wc) {
    const unsigned classes = wide_classes(by.loc, wc);
    return classes & KO_CT_PRINT && classes & by.full ? 2 : 1;
}

name_cut cut_name(const column_counter &by, const ko_wchar_t *name, int precision) {
    name_cut part = {0, 0};
    for (; name[part.units]; ++part.units) {
        const int columns = part.columns + columns_of(by, name[part.units]);
        if (precision > 0 && columns > precision) break;
        part.columns = columns;
    }
    return part;
}

static int put_padded_name(time_out *out, const ko_wchar_t *name, const format_modifiers &m) {
    const name_cut part = cut_name(make_columns(out->loc), name, m.precision);
    const int pad = m.width > part.columns ? m.width - part.columns : 0;
    const ko_wchar_t unit = native(out->loc, pads_with_zeros(m) ? '0' : ' ');
    int error = pads_right(m) ? 0 : put_units(out, unit, pad);
    if (!error) error = put_text(out, name, part.units);
    if (!error && pads_right(m)) error = put_units(out, unit, pad);
    return error;
}

static inline int put_name(time_out *out, const ko_wchar_t *name, const format_modifiers &m) {
    static constexpr ko_wchar_t none[1] = {0};
    if (!name) name = none;
    if (m.width || m.precision > 0) return put_padded_name(out, name, m);
    ko_wchar_t *to = out->at;
    for (; *name; ++name) {
        if (to == out->end) return KO_E2BIG;
        *to++ = *name;
    }
    out->at = to;
    return 0;
}

// ---- Numbers ----

static inline int field_value(const time_out *out, const time_directive &row, int *value) {
    return time_value(&out->loc->ltime_info, out->tm, row, value);
}

static int put_number(time_out *out, int value, format_modifiers m, int digits) {
    if (m.precision < 0) m.precision = digits;
    const auto room = int(out->end - out->at);
    const int n = write_plain_number(out->loc, out->at, room, value, m);
    if (n < 0) return KO_E2BIG;
    out->at += n;
    return 0;
}

// ---- Alternative digits ----

static const ko_wchar_t *alt_digit(const ltime *t, int digit) {
    static constexpr ko_wchar_t none[1] = {0};
    return t->w_alt_digits[digit] ? t->w_alt_digits[digit] : none;
}

static void take_alt_digits(const ltime *t, unsigned value, alt_number *number) {
    const auto base = unsigned(t->max_alt_digits);
    number->count = 0;
    do {
        number->digits[number->count++] = alt_digit(t, int(value % base));
        value /= base;
    } while (value);
}

// Columns of a text, counted only until they exceed most.
static int text_columns(const column_counter &by, const ko_wchar_t *text, int most) {
    return cut_name(by, text, most < INT_MAX - 2 ? most + 2 : INT_MAX).columns;
}

// Writes a digit string count times.
static int put_strings(time_out *out, const ko_wchar_t *text, int64_t count) {
    if (!count) return 0;
    const int units = ko_wcslen(text);
    if (!units) return 0;
    if (count > (out->end - out->at) / units) return KO_E2BIG;
    int error = 0;
    while (count-- > 0 && !error)
        error = put_text(out, text, units);
    return error;
}

// Pads before a number: with blanks, or with strings for zero and blanks for columns left over.
static int put_alt_padding(time_out *out, int64_t columns, const format_modifiers &m,
                           const ko_wchar_t *zero, int zero_columns) {
    const bool zeros = pads_with_zeros(m) && zero_columns > 0;
    const int64_t blanks = zeros ? columns % zero_columns : columns;
    const int error = put_units(out, native(out->loc, ' '), blanks);
    return error || !zeros ? error : put_strings(out, zero, columns / zero_columns);
}

static int put_alt_number(time_out *out, int value, format_modifiers m, int digits) {
    const ltime *t = &out->loc->ltime_info;
    if (m.precision < 0) m.precision = digits;
    alt_number number;
    take_alt_digits(t, unsigned(value < 0 ? -value : value), &number);
    const ko_wchar_t *const zero = alt_digit(t, 0);
    const int fill = m.precision > number.count ? m.precision - number.count : 0;
    int64_t pad = 0;
    int error = 0;
    if (m.width) {
        const column_counter by = make_columns(out->loc);
        const int zero_columns = text_columns(by, zero, m.width);
        pad = m.width - int64_t{fill} * zero_columns - (value < 0);
        for (int i = 0; i < number.count; ++i)
            pad -= text_columns(by, number.digits[i], m.width);
        if (pad < 0) pad = 0;
        if (!pads_right(m)) error = put_alt_padding(out, pad, m, zero, zero_columns);
    }
    if (!error && value < 0) error = put_unit(out, native(out->loc, '-'));
    if (!error) error = put_strings(out, zero, fill);
    while (number.count && !error)
        error = put_strings(out, number.digits[--number.count], 1);
    return error || !pads_right(m) ? error : put_units(out, native(out->loc, ' '), pad);
}

// ---- Directives ----

static inline int put_field(time_out *out, const time_spec &spec) {
    const time_directive &row = *spec.row;
    int value = 0;
    int error = field_value(out, row, &value);
    if (error) return error;
    format_modifiers m = spec.m;
    if (row.kind == time_kind::day && value < 10) {
        if (m.width) --m.width;
        error = put_unit(out, native(out->loc, ' '));
        if (error) return error;
    }
    error = spec.alternative ? put_alt_number(out, value, m, row.digits)
                             : put_number(out, value, m, row.digits);
    // The full year has its own error for too little room.
    const bool own_error = row.view == time_view::full_year && !spec.pointed;
    return error == KO_E2BIG && own_error ? KO_EYEAR : error;
}

static inline int put_listed_name(time_out *out, const time_spec &spec) {
    const ltime *t = &out->loc->ltime_info;
    int index = 0;
    if (const int error = field_value(out, *spec.row, &index)) return error;
    const time_names list = names_of(t, spec.row->list);
    if (index < 0 || index >= list.count || !list.names) {
        return t->calendar == calendar_none ? 0 : KO_EMONTHRANGE;
    }
    return put_name(out, list.names[index], spec.m);
}

static int put_parts(time_out *out, const time_spec &spec) {
    return each_part(
        spec, [out](const time_spec &part) { return put_field(out, part); },
        [out](char sign) { return put_unit(out, native(out->loc, sign)); });
}

// Writes six digits, cut or extended with zeros.
static int put_fraction(time_out *out, const time_spec &spec) {
    const ko_long_t usec = out->tm->alt_tm_usec;
    if (usec < 0 || usec > 999999) return KO_EFRACTION;
    const int by_default = spec.pointed ? 2 : 6;
    const int digits = spec.m.precision < 0 ? by_default : spec.m.precision;
    const int pad = spec.m.width > digits ? spec.m.width - digits : 0;
    const ko_wchar_t zero = native(out->loc, '0'), blank = native(out->loc, ' ');
    int error = spec.pointed ? put_unit(out, native(out->loc, '.')) : 0;
    if (!error && !pads_right(spec.m))
        error = put_units(out, pads_with_zeros(spec.m) ? zero : blank, pad);
    ko_long_t rest = usec;
    for (int i = 0, unit = 100000; i < digits && i < 6 && !error; ++i, unit /= 10) {
        error = put_unit(out, ko_wchar_t(zero + rest / unit));
        rest %= unit;
    }
    if (!error) error = put_units(out, zero, int64_t{digits} - 6);
    return error || !pads_right(spec.m) ? error : put_units(out, blank, pad);
}

// Finds the era of the date, once. 0 or the error number.
static int find_era(time_out *out, int *era) {
    const ltime *t = &out->loc->ltime_info;
    if (out->era == era_unknown) out->era = current_era(t->decode_era, t->era_count, out->tm);
    *era = out->era;
    return *era < 0 ? KO_ERANGE : 0;
}

static int put_era(time_out *out, const time_spec &spec) {
    for (const char letter : {'Y', 'm', 'd'}) {
        int value;
        const time_directive *const row = time_by_letter[uint8_t(letter)];
        if (const int error = field_value(out, *row, &value)) return error;
    }
    int era;
    if (const int error = find_era(out, &era)) return error;
    const lera *const eras = out->loc->ltime_info.decode_era;
    if (spec.row->kind == time_kind::era_name)
        return put_name(out, eras[era].*spec.row->era, spec.m);
    return put_number(out, era_offset(eras, era, out->tm), spec.m, spec.row->digits);
}

static int put_era_format(time_out *out, const time_spec &spec) {
    int era;
    const int error = find_era(out, &era);
    return error ? error : walk_nested(out, out->loc->ltime_info.decode_era[era].*spec.row->era);
}

inline int time_out::directive(const time_spec &spec) {
    switch (spec.row->kind) {
    case time_kind::unit:
        return put_unit(this, native(loc, *spec.row->parts));
    case time_kind::name:
        return put_listed_name(this, spec);
    case time_kind::number:
    case time_kind::day:
        return put_field(this, spec);
    case time_kind::parts:
        return put_parts(this, spec);
    case time_kind::format:
        return walk_nested(this, loc->ltime_info.*spec.row->format);
    case time_kind::fraction:
        return put_fraction(this, spec);
    case time_kind::era_name:
    case time_kind::era_year:
        return put_era(this, spec);
    case time_kind::era_format:
        return put_era_format(this, spec);
    case time_kind::forms:
        break;
    }
    return KO_EDIRECTIVE;
}

// ---- Entries ----

// Formats by the engine. Returns the units before the terminator; or the negative error number.
static int write_time(kovaloc *loc, ko_wchar_t *out, int maxsize, const ko_wchar_t *format,
                      const ko_alt_tm_t *tm, bool *bad_fraction) {
    ko_alt_tm_t local;
    if (!is_gregorian(&loc->ltime_info)) {
        if (ko_cal_gregorian_to_local(loc, tm, &local)) return -KO_EYEARRANGE;
        tm = &local;
    }
    time_out to = {loc, tm, out, out + maxsize, {}};
    int error = walk_format(&to, format);
    if (!error) error = put_unit(&to, 0);
    *bad_fraction = to.walker.bad_fraction;
    return error ? -error : int(to.at - out) - 1;
}

static int engine_format(kovaloc *loc, ko_wchar_t *out, int maxsize, const ko_wchar_t *format,
                         const ko_alt_tm_t *tm) {
    bool bad_fraction = false;
    const int units = write_time(loc, out, maxsize, format, tm, &bad_fraction);
    return units < 0 ? fail(loc, -units, bad_fraction ? -1 : 0) : units;
}

// Formats into wide, which has room for maxsize units, and narrows that.
static int format_narrow(kovaloc *loc, ko_mchar_t *out, int maxsize, const ko_wchar_t *format,
                         const ko_alt_tm_t *tm, ko_wchar_t *wide) {
    bool bad_fraction = false;
    const int units = write_time(loc, wide, maxsize, format, tm, &bad_fraction);
    if (units < 0) return fail(loc, -units, 0);
    const int most = maxsize - terminator_len(loc);
    if (most < 0) return fail(loc, KO_E2BIG, 0);
    const int written = narrow_result(loc, out, most, wide);
    return written < 0 ? 0 : written;
}

static int engine_format(kovaloc *loc, ko_mchar_t *out, int maxsize, const ko_mchar_t *format,
                         const ko_alt_tm_t *tm) {
    wide_text wide;
    if (widen_text(loc, format, &wide) < 0) return 0;
    if (maxsize <= wide_text_room) {
        ko_wchar_t local[wide_text_room];
        return format_narrow(loc, out, maxsize, wide.p, tm, local);
    }
    const ext_block<ko_wchar_t> block(size_t(maxsize) + 1);
    if (!block.p) return fail(loc, KO_ENOMEM, 0);
    return format_narrow(loc, out, maxsize, wide.p, tm, block.p);
}

template <class Unit>
static int format_time(kovaloc *loc, Unit *out, int maxsize, const Unit *format,
                       const ko_alt_tm_t *tm) {
    if (!out || !tm) return fail(loc, KO_ENULL, 0);
    if (maxsize <= 0) return fail(loc, KO_E2BIG, 0);
    const int quick = quick_format(loc, out, maxsize, format, tm);
    return quick >= 0 ? quick : engine_format(loc, out, maxsize, format, tm);
}

template <class Unit>
static int format_tm(ko_lc_t handle, Unit *out, int maxsize, const Unit *format,
                     const ko_tm_t *tm) {
    if (!handle) return fail(handle, KO_ENULL, 0);
    if (!format) return fail(handle, KO_EFORMAT, 0);
    if (!tm) return fail(handle, KO_ENULL, 0);
    ko_alt_tm_t alt;
    alt_from_tm(&alt, tm);
    return format_time(record(handle), out, maxsize, format, &alt);
}

static void add_saturated(int *count, int64_t more) {
    if (!count) return;
    const int64_t sum = *count + more;
    *count = int(sum > INT_MAX ? INT_MAX : sum);
}

static int measure_time(kovaloc *loc, const ko_wchar_t *format, int *maxw, int *maxm) {
    time_extent extent;
    if (const int error = measure_format(loc, format, &extent)) return fail(loc, error, 0);
    add_saturated(maxw, extent.columns);
    add_saturated(maxm, extent.bytes);
    return 0;
}

static int measure_time(kovaloc *loc, const ko_mchar_t *format, int *maxw, int *maxm) {
    wide_text wide;
    return widen_text(loc, format, &wide) < 0 ? 0 : measure_time(loc, wide.p, maxw, maxm);
}

template <class Unit>
static int format_or_measure(ko_lc_t handle, Unit *out, int maxsize, const Unit *format,
                             const ko_alt_tm_t *tm, int *maxw, int *maxm) {
    if (!handle) return fail(handle, KO_ENULL, 0);
    kovaloc *loc = record(handle);
    if (!format) return fail(loc, KO_EFORMAT, 0);
    return maxw || maxm ? measure_time(loc, format, maxw, maxm)
                        : format_time(loc, out, maxsize, format, tm);
}

int ko_wcsftime1(ko_lc_t loc, ko_wchar_t *out, int maxsize, const ko_wchar_t *format,
                 const ko_alt_tm_t *tm, int *maxw, int *maxm) {
    return format_or_measure(loc, out, maxsize, format, tm, maxw, maxm);
}

int ko_mbsftime1(ko_lc_t loc, ko_mchar_t *out, int maxsize, const ko_mchar_t *format,
                 const ko_alt_tm_t *tm, int *maxw, int *maxm) {
    return format_or_measure(loc, out, maxsize, format, tm, maxw, maxm);
}

HOLDS_NO_TEXT int ko_wcsftime(ko_lc_t handle, ko_wchar_t *out, int maxsize,
                              const ko_wchar_t *format, const ko_tm_t *tm) {
    return format_tm(handle, out, maxsize, format, tm);
}

HOLDS_NO_TEXT int ko_mbsftime(ko_lc_t handle, ko_mchar_t *out, int maxsize,
                              const ko_mchar_t *format, const ko_tm_t *tm) {
    return format_tm(handle, out, maxsize, format, tm);
}
