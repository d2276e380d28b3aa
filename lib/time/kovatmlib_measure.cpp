// The most columns and bytes that a format of times can produce.
#include "text/kovastr.h"
#include "time/kovatmlib_table.h"

#include <limits.h>

namespace {
// The most that the names of a list take when one precision cuts them.
struct name_extent {
    bool known;
    bool any;
    int precision; // 0 for uncut names
    time_extent most;
    int64_t surplus; // the most bytes by which a name exceeds as many blanks as it has columns
};
// Further lists that are measured: the names of eras.
enum : uint8_t { list_era_name = time_lists, list_era_abbr, measured_lists };

struct time_measure {
    kovaloc *loc;
    column_counter columns;
    int ascii_bytes; // of a digit, sign or blank
    time_extent sum;
    time_walker walker;
    // What every directive of a kind needs, computed by the first.
    name_extent names[measured_lists];
    name_extent alt_digits;
    int era_digits[2]; // most digits of years from 0 on, and of those before; 0: none
    bool era_years_known;

    int literal(const ko_wchar_t *first, const ko_wchar_t *last);
    int directive(const time_spec &spec);
};
} // namespace

// ---- Pieces -------------------------------------------------------------------------------------

// Bytes of a character, 0 for one without bytes.
static int bytes_of(const kovaloc *loc, ko_wchar_t wc) {
    ko_mchar_t scratch[4];
    return loc->exp.single_byte ? 1 : bytes_of_wide(loc, scratch, wc);
}

// Limited, so that repeated widths and precisions of 31 bits stay within 64 bits.
static void add(time_measure *in, int64_t columns, int64_t bytes) {
    constexpr int64_t most = int64_t{1} << 40;
    time_extent &sum = in->sum;
    sum.columns = sum.columns + columns < most ? sum.columns + columns : most;
    sum.bytes = sum.bytes + bytes < most ? sum.bytes + bytes : most;
}

static void add_ascii(time_measure *in, int64_t units) { add(in, units, units * in->ascii_bytes); }

static int64_t larger(int64_t a, int64_t b) { return a > b ? a : b; }

static void take_larger(time_extent *most, const time_extent &extent) {
    if (extent.columns > most->columns) most->columns = extent.columns;
    if (extent.bytes > most->bytes) most->bytes = extent.bytes;
}

int time_measure::literal(const ko_wchar_t *first, const ko_wchar_t *last) {
    for (; first != last; ++first)
        add(this, 1, bytes_of(loc, *first));
    return 0;
}

static int digits_in(int value, int base) {
    int n = 1;
    for (; value >= base; value /= base)
        ++n;
    return n;
}

// ---- Names --------------------------------------------------------------------------------------

static void take_name(time_measure *in, const ko_wchar_t *text, name_extent *all) {
    time_extent extent;
    int units = 0;
    if (text) {
        const name_cut part = cut_name(in->columns, text, all->precision);
        extent.columns = part.columns;
        units = part.units;
        for (int i = 0; i < units; ++i)
            extent.bytes += bytes_of(in->loc, text[i]);
    }
    // Only alternating precisions make the names be measured more than once.
    if (in->walker.depth && all->precision && !in->walker.spent())
        in->walker.work += work_of(units + 16);
    const int64_t surplus = extent.bytes - extent.columns * in->ascii_bytes;
    all->surplus = all->any ? larger(all->surplus, surplus) : surplus;
    all->any = true;
    take_larger(&all->most, extent);
}

// The extent of a list; name(i) is the name of index i.
template <class Name>
static const name_extent &extent_of(time_measure *in, name_extent *all, int precision, int count,
                                    Name name) {
    if (precision < 0) precision = 0;
    if (all->known && all->precision == precision) return *all;
    *all = {.known = true, .precision = precision};
    for (int i = 0; i < count; ++i)
        take_name(in, name(i), all);
    return *all;
}

static void add_padded(time_measure *in, const name_extent &all, int width) {
    if (!all.any) return;
    const int64_t padded = all.surplus + int64_t{width} * in->ascii_bytes;
    add(in, larger(all.most.columns, width), larger(all.most.bytes, padded));
}

static void add_names(time_measure *in, const time_spec &spec) {
    const time_names list = names_of(&in->loc->ltime_info, spec.row->list);
    const auto name = [&list](int i) { return list.names[i]; };
    add_padded(in,
               extent_of(in, &in->names[spec.row->list], spec.m.precision,
                         list.names ? list.count : 0, name),
               spec.m.width);
}

static void add_era_names(time_measure *in, const time_spec &spec) {
    const ltime *t = &in->loc->ltime_info;
    const auto text = spec.row->era;
    const auto name = [t, text](int i) { return t->decode_era[i].*text; };
    name_extent *const all =
        &in->names[text == &lera::w_name ? int{list_era_name} : int{list_era_abbr}];
    add_padded(in, extent_of(in, all, spec.m.precision, t->era_count, name), spec.m.width);
}

// ---- Numbers ------------------------------------------------------------------------------------

static int largest_of(const time_measure *in, const time_directive &row) {
    return row.largest ? row.largest : month_count(&in->loc->ltime_info);
}

// Adds as many digits as the largest value has, each as wide as the widest and as long as the
// longest.
static void add_alternative(time_measure *in, const time_directive &row,
                            const format_modifiers &m) {
    const ltime *t = &in->loc->ltime_info;
    const time_extent digit = extent_of(in, &in->alt_digits, 0, t->max_alt_digits, [t](int i) {
                                  return t->w_alt_digits[i];
                              }).most;
    const int precision = m.precision < 0 ? row.digits : m.precision;
    const int64_t count = larger(digits_in(largest_of(in, row), t->max_alt_digits), precision);
    const int64_t blank = row.kind == time_kind::day, after_blank = larger(1, precision);
    const int64_t columns = larger(count * digit.columns, blank + after_blank * digit.columns);
    const int64_t bytes =
        larger(count * digit.bytes, blank * in->ascii_bytes + after_blank * digit.bytes);
    // Padding consists of blanks or of strings for zero, which may take several bytes per column.
    const int64_t pad_bytes = m.width * larger(in->ascii_bytes, digit.bytes);
    add(in, larger(m.width, columns), bytes + pad_bytes);
}

static void add_number(time_measure *in, const time_spec &spec) {
    const time_directive &row = *spec.row;
    if (spec.alternative) return add_alternative(in, row, spec.m);
    const int precision = spec.m.precision < 0 ? row.digits : spec.m.precision;
    int64_t units = larger(digits_in(largest_of(in, row), 10), precision);
    if (row.kind == time_kind::day) units = larger(units, 1 + larger(1, precision));
    add_ascii(in, larger(units, spec.m.width));
}

static void add_fraction(time_measure *in, const time_spec &spec) {
    const int by_default = spec.pointed ? 2 : 6;
    const int digits = spec.m.precision < 0 ? by_default : spec.m.precision;
    add_ascii(in, spec.pointed + larger(digits, spec.m.width));
}

// The years of an era run from its offset to that of the first or last year that can be formatted.
// The numbers of a definition have nine digits at most, so that no sum of them exceeds an int.
static void find_era_years(time_measure *in) {
    const ltime *t = &in->loc->ltime_info;
    in->era_years_known = true;
    for (int i = 0; i < t->era_count; ++i) {
        const lera &era = t->decode_era[i];
        const int years = era.direction > 0 ? 9999 - era.start_year : era.start_year;
        for (const int year : {era.offset, era.offset + (years > 0 ? years : 0)}) {
            int *const most = &in->era_digits[year < 0];
            const int digits = digits_in(year < 0 ? -year : year, 10);
            if (digits > *most) *most = digits;
        }
    }
}

// Adds the year of an era: at least four digits.
static void add_era_year(time_measure *in, const time_spec &spec) {
    if (!in->era_years_known) find_era_years(in);
    int64_t units = larger(4, spec.m.precision);
    for (const int before : {0, 1})
        if (const int digits = in->era_digits[before])
            units = larger(units, before + larger(digits, spec.m.precision));
    add_ascii(in, larger(units, spec.m.width));
}

static int add_parts(time_measure *in, const time_spec &spec) {
    return each_part(
        spec,
        [in](const time_spec &part) {
            add_number(in, part);
            return 0;
        },
        [in](char) {
            add_ascii(in, 1);
            return 0;
        });
}

// ---- Formats ------------------------------------------------------------------------------------

static int add_era_formats(time_measure *in, const time_spec &spec) {
    const ltime *t = &in->loc->ltime_info;
    const time_extent before = in->sum;
    time_extent most;
    for (int i = 0; i < t->era_count; ++i) {
        in->sum = {};
        const int error = walk_nested(in, t->decode_era[i].*spec.row->era, i > 0);
        if (error) return error;
        take_larger(&most, in->sum);
    }
    in->sum = before;
    add(in, most.columns, most.bytes);
    return 0;
}

int time_measure::directive(const time_spec &spec) {
    if (walker.depth && walker.spent()) return KO_EDIRECTIVE;
    switch (spec.row->kind) {
    case time_kind::unit:
        add_ascii(this, 1);
        return 0;
    case time_kind::name:
        add_names(this, spec);
        return 0;
    case time_kind::number:
    case time_kind::day:
        add_number(this, spec);
        return 0;
    case time_kind::parts:
        return add_parts(this, spec);
    case time_kind::format:
        return walk_nested(this, loc->ltime_info.*spec.row->format);
    case time_kind::fraction:
        add_fraction(this, spec);
        return 0;
    case time_kind::era_name:
        add_era_names(this, spec);
        return 0;
    case time_kind::era_year:
        add_era_year(this, spec);
        return 0;
    case time_kind::era_format:
        return add_era_formats(this, spec);
    case time_kind::forms:
        break;
    }
    return KO_EDIRECTIVE;
}

// ---- Entries ------------------------------------------------------------------------------------

int measure_format(kovaloc *loc, const ko_wchar_t *format, time_extent *extent) {
    const int digit = bytes_of(loc, native(loc, '0'));
    time_measure in = {.loc = loc, .columns = make_columns(loc), .ascii_bytes = digit ? digit : 1};
    const int error = walk_format(&in, format);
    if (error) return error;
    *extent = in.sum;
    return 0;
}

constexpr int time_formats = 1; // the only kind of format that is measured

static int measured(kovaloc *loc, const ko_wchar_t *format, int64_t time_extent::*count) {
    time_extent extent;
    if (const int error = measure_format(loc, format, &extent)) return fail(loc, error, -1);
    const int64_t most = extent.*count;
    return int(most > INT_MAX ? INT_MAX : most);
}

int ko_wcsfmtexpand(ko_lc_t handle, int kind, const ko_wchar_t *format) {
    if (!handle) return fail(handle, KO_ENULL, -1);
    if (kind != time_formats) return fail(handle, KO_ERANGE, -1);
    if (!format) return fail(handle, KO_EFORMAT, -1);
    return measured(record(handle), format, &time_extent::columns);
}

int ko_mbsfmtexpand(ko_lc_t handle, int kind, const ko_mchar_t *format) {
    if (!handle) return fail(handle, KO_ENULL, -1);
    if (kind != time_formats) return fail(handle, KO_ERANGE, -1);
    if (!format) return fail(handle, KO_EFORMAT, -1);
    wide_text wide;
    if (widen_text(record(handle), format, &wide) < 0) return -1;
    return measured(record(handle), wide.p, &time_extent::bytes);
}
