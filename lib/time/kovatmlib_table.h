// The directives of time formats, one row each, for formatting, measuring and reading.
#ifndef KOVATMLIB_TABLE_H
#define KOVATMLIB_TABLE_H

#include "chars/kovaportable.h"
#include "number/kovafmt.h"
#include "time/kovatmlib.h"
#include "time/kovatmlib_parse.h"

#include <array>

enum class time_kind : uint8_t {
    unit,     // a character: the first of parts
    name,     // a name of the locale
    number,   // the value of a field
    day,      // a number with one blank before a single digit
    parts,    // numbers given by their letters, with signs between them
    format,   // a format of the locale
    fraction, // of a second; a digit may follow the letter
    era_name,
    era_year,   // the year within the era
    era_format, // the format of the era itself
    forms,      // "E", "O", "i": a further letter follows
};
constexpr bool is_number(time_kind kind) {
    return kind == time_kind::number || kind == time_kind::day;
}
constexpr bool is_field(time_kind kind) { return kind == time_kind::name || is_number(kind); }
// Is the letter always the end of the directive?
constexpr bool ends_at_letter(time_kind kind) {
    return kind != time_kind::fraction && kind != time_kind::forms;
}

// How a number, or the index of a name, is derived from its field.
enum class time_view : uint8_t {
    plain,
    century,
    short_year,
    full_year,
    hour12,
    weekday7,
    half_day,
    month_index, // index of the month's name, which is a field of its own
};
// above: how far the field is above the lowest value of its row. That is the year for the views of
// years, and the field itself for the other views that change it.
template <class Number> constexpr Number view_of(time_view view, Number above) {
    if (view == time_view::plain) return above; // most of them
    switch (view) {
    case time_view::century:
        return above / 100;
    case time_view::short_year:
        return above % 100;
    case time_view::hour12:
        return above % 12 ? above % 12 : 12;
    case time_view::weekday7:
        return above ? above : 7;
    case time_view::half_day:
        return above / 12;
    case time_view::plain:
    case time_view::full_year:
    case time_view::month_index:
        break;
    }
    return above;
}

// The locale's lists of names.
enum time_list : uint8_t {
    list_abday,
    list_day,
    list_abmon,
    list_mon,
    list_am_pm,
    time_lists, // how many
};
struct time_names {
    ko_wchar_t *const *names; // NULL: none; each may be NULL
    ko_mchar_t *const *bytes;
    int count;
};
inline time_names names_of(const ltime *t, time_list list) {
    const time_names all[time_lists] = {
        {t->w_abday, t->abday, 7             },
        {t->w_day,   t->day,   7             },
        {t->w_abmon, t->abmon, t->abmon_count},
        {t->w_mon,   t->mon,   t->mon_count  },
        {t->w_am_pm, t->am_pm, 2             },
    };
    return all[list];
}

constexpr int by_months = -1; // the upper limit follows from the locale's months

// How a number is read.
struct time_reading {
    int time_info::*field;
    unsigned set; // bits of time_info::set
    unsigned clear;
    ko_errnum missing;
    ko_errnum range;
    int lo, hi;           // of the number
    int bias;             // subtracted from it
    int time_info::*type; // NULL: none
    int type_value;
};

struct time_directive {
    char letter;
    time_kind kind;
    bool alternative;        // also exists in the locale's digits: "%O"
    int ko_alt_tm_t::*field; // of the value, or of the index of a name
    int lo, hi;              // of the field when formatting
    ko_errnum error;         // out of that range; KO_OK: not checked
    time_view view;
    int bias;    // added to the field
    int digits;  // the fewest; below 0: no default
    int largest; // value that can be written; 0: follows from the locale's months
    const char *parts;
    time_list list;
    ko_wchar_t *ltime::*format;
    ko_mchar_t *ltime::*format_bytes;
    ko_wchar_t *lera::*era;
    time_reading reading;
};

// clang-format off
inline constexpr time_reading read_century = {&time_info::century,   seen_century,   0,           KO_EYEAR,  KO_EYEARRANGE,  0, 99,        0,    &time_info::year_type, year_short};
inline constexpr time_reading read_short   = {&time_info::year_off,  seen_year_off,  0,           KO_EYEAR,  KO_ERANGE,      0, 99,        0,    &time_info::year_type, year_short};
inline constexpr time_reading read_year    = {&time_info::full_year, seen_full_year, 0,           KO_EYEAR,  KO_ERANGE,      0, 9999,      1900, &time_info::year_type, year_full};
inline constexpr time_reading read_mday    = {&time_info::month_day, seen_month_day, 0,           KO_EDAY,   KO_EDAYRANGE,   1, 31,        0,    nullptr, 0};
inline constexpr time_reading read_month   = {&time_info::mon,       seen_mon,       seen_monidx, KO_EMONTH, KO_EMONTHRANGE, 1, by_months, 1,    nullptr, 0};
inline constexpr time_reading read_yday    = {&time_info::year_day,  seen_year_day,  0,           KO_EYDAY,  KO_EYDAYRANGE,  1, 366,       1,    nullptr, 0};
inline constexpr time_reading read_wday7   = {&time_info::week_day,  seen_week_day,  0,           KO_EWDAY,  KO_EWDAYRANGE,  1, 7,         0,    nullptr, 0};
inline constexpr time_reading read_wday    = {&time_info::week_day,  seen_week_day,  0,           KO_EWDAY,  KO_ERANGE,      0, 6,         0,    nullptr, 0};
inline constexpr time_reading read_hour    = {&time_info::hour24,    seen_hour24,    0,           KO_EHOUR,  KO_EHOURRANGE,  0, 23,        0,    &time_info::hour_type, clock_24};
inline constexpr time_reading read_hour12  = {&time_info::hour12,    seen_hour12,    0,           KO_EHOUR,  KO_EHOURRANGE,  1, 12,        0,    &time_info::hour_type, clock_12};
inline constexpr time_reading read_minute  = {&time_info::minute,    seen_minute,    0,           KO_EMIN,   KO_EMINRANGE,   0, 59,        0,    nullptr, 0};
inline constexpr time_reading read_second  = {&time_info::second,    seen_second,    0,           KO_ESEC,   KO_ESECRANGE,   0, 61,        0,    nullptr, 0};
// clang-format on

// The year of the record counts from 1900.
constexpr int year_bias = 1900, year_max = 9999 - year_bias;

constexpr time_directive unit_row(char letter, const char *unit) {
    return {.letter = letter, .kind = time_kind::unit, .parts = unit};
}
constexpr time_directive parts_row(char letter, const char *parts) {
    return {.letter = letter, .kind = time_kind::parts, .alternative = true, .parts = parts};
}
constexpr time_directive format_row(char letter, ko_wchar_t *ltime::*format,
                                    ko_mchar_t *ltime::*bytes) {
    return {.letter = letter, .kind = time_kind::format, .format = format, .format_bytes = bytes};
}
constexpr time_directive forms_row(char letter) {
    return {.letter = letter, .kind = time_kind::forms};
}
constexpr time_directive name_row(char letter, time_list list, int ko_alt_tm_t::*field, int hi,
                                  ko_errnum error, time_view view = time_view::plain) {
    return {.letter = letter,
            .kind = time_kind::name,
            .field = field,
            .hi = hi,
            .error = error,
            .view = view,
            .list = list};
}
constexpr time_directive number_row(char letter, int ko_alt_tm_t::*field, int lo, int hi,
                                    ko_errnum error, int digits, int largest,
                                    const time_reading &reading, int bias = 0,
                                    time_view view = time_view::plain) {
    return {.letter = letter,
            .kind = time_kind::number,
            .alternative = true,
            .field = field,
            .lo = lo,
            .hi = hi,
            .error = error,
            .view = view,
            .bias = bias,
            .digits = digits,
            .largest = largest,
            .reading = reading};
}
constexpr time_directive year_row(char letter, ko_errnum error, int digits, int largest,
                                  const time_reading &reading, time_view view) {
    return number_row(letter, &ko_alt_tm_t::alt_tm_year, -year_bias, year_max, error, digits,
                      largest, reading, 0, view);
}
constexpr time_directive day_row(char letter, time_kind kind, int digits) {
    time_directive row =
        number_row(letter, &ko_alt_tm_t::alt_tm_mday, 1, 99, KO_EDAYRANGE, digits, 99, read_mday);
    row.kind = kind;
    return row;
}
constexpr time_directive portable_only(time_directive row) {
    row.alternative = false;
    return row;
}
constexpr time_directive fraction_row() { return {.letter = 'F', .kind = time_kind::fraction}; }
constexpr time_directive era_row(char letter, time_kind kind, ko_wchar_t *lera::*text) {
    return {.letter = letter, .kind = kind, .digits = -1, .era = text};
}

inline constexpr time_directive time_directives[] = {
    unit_row('%', "%"),
    unit_row('n', "\n"),
    unit_row('t', "\t"),
    name_row('a', list_abday, &ko_alt_tm_t::alt_tm_wday, 6, KO_EWDAYRANGE),
    name_row('A', list_day, &ko_alt_tm_t::alt_tm_wday, 6, KO_EWDAYRANGE),
    name_row('b', list_abmon, &ko_alt_tm_t::alt_tm_mon, by_months, KO_EMONTHRANGE,
             time_view::month_index),
    name_row('h', list_abmon, &ko_alt_tm_t::alt_tm_mon, by_months, KO_EMONTHRANGE,
             time_view::month_index),
    name_row('B', list_mon, &ko_alt_tm_t::alt_tm_mon, by_months, KO_EMONTHRANGE,
             time_view::month_index),
    name_row('p', list_am_pm, &ko_alt_tm_t::alt_tm_hour, 23, KO_EHOUR, time_view::half_day),
    format_row('c', &ltime::w_d_t_fmt, &ltime::d_t_fmt),
    format_row('r', &ltime::w_t_fmt_ampm, &ltime::t_fmt_ampm),
    format_row('x', &ltime::w_d_fmt, &ltime::d_fmt),
    format_row('X', &ltime::w_t_fmt, &ltime::t_fmt),
    parts_row('D', "m/d/y"),
    parts_row('R', "H:M"),
    parts_row('T', "H:M:S"),
    forms_row('E'),
    forms_row('O'),
    forms_row('i'),
    year_row('C', KO_EYEARRANGE, -1, 99, read_century, time_view::century),
    portable_only(year_row('g', KO_EYEARRANGE, -1, 99, read_century, time_view::century)),
    year_row('y', KO_OK, 2, 99, read_short, time_view::short_year),
    portable_only(year_row('Y', KO_EYEARRANGE, 4, 9999, read_year, time_view::full_year)),
    day_row('d', time_kind::number, 2),
    day_row('e', time_kind::day, -1),
    fraction_row(),
    number_row('H', &ko_alt_tm_t::alt_tm_hour, 0, 23, KO_EHOUR, 2, 23, read_hour),
    number_row('I', &ko_alt_tm_t::alt_tm_hour, 0, 23, KO_EHOUR, 2, 12, read_hour12, 0,
               time_view::hour12),
    number_row('j', &ko_alt_tm_t::alt_tm_yday, 0, 365, KO_EYDAY, 3, 366, read_yday, 1),
    number_row('m', &ko_alt_tm_t::alt_tm_mon, 0, by_months, KO_EMONTHRANGE, 2, 0, read_month, 1),
    number_row('M', &ko_alt_tm_t::alt_tm_min, 0, 59, KO_EMIN, 2, 59, read_minute),
    number_row('S', &ko_alt_tm_t::alt_tm_sec, 0, 61, KO_ESEC, 2, 61, read_second),
    number_row('u', &ko_alt_tm_t::alt_tm_wday, 0, 6, KO_EWDAYRANGE, 2, 7, read_wday7, 0,
               time_view::weekday7),
    number_row('w', &ko_alt_tm_t::alt_tm_wday, 0, 6, KO_EWDAYRANGE, 2, 6, read_wday),
};
// After "E", in a locale with eras.
inline constexpr time_directive era_directives[] = {
    era_row('C', time_kind::era_name, &lera::w_name),
    era_row('g', time_kind::era_name, &lera::w_abbr),
    era_row('y', time_kind::era_year, nullptr),
    era_row('Y', time_kind::era_format, &lera::w_format),
    format_row('c', &ltime::w_era_d_t_fmt, &ltime::era_d_t_fmt),
    format_row('x', &ltime::w_era_d_fmt, &ltime::era_d_fmt),
    format_row('X', &ltime::w_era_t_fmt, &ltime::era_t_fmt),
};
// After "i".
inline constexpr time_directive index_directives[] = {
    fraction_row(), // with a point before it
    year_row('Y', KO_EYEARRANGE, 4, 9999, read_year, time_view::full_year),
    year_row('y', KO_OK, 2, 99, read_short, time_view::short_year),
};

// A locale without times has twelve months without names.
inline int month_count(const ltime *t) { return t->calendar == calendar_none ? 12 : t->mon_count; }

// Derives a number, or the index of a name, from its field and checks the range. 0 or the error
// number.
inline int time_value(const ltime *t, const ko_alt_tm_t *tm, const time_directive &row,
                      int *value) {
    const int field = tm->*row.field;
    const int hi = row.hi == by_months ? month_count(t) - 1 : row.hi;
    if (row.error && (field < row.lo || field > hi)) return row.error;
    if (row.view == time_view::plain) return *value = field + row.bias, 0; // most of them
    *value = row.view == time_view::month_index ? tm->alt_tm_monidx
                                                : int(view_of(row.view, int64_t{field} - row.lo));
    return 0;
}

// Rows by letter; NULL: none.
using time_rows = std::array<const time_directive *, 128>;
template <size_t n> constexpr time_rows rows_of(const time_directive (&table)[n]) {
    time_rows rows = {};
    for (const time_directive &row : table)
        rows[uint8_t(row.letter)] = &row;
    return rows;
}
inline constexpr time_rows time_by_letter = rows_of(time_directives);
inline constexpr time_rows era_by_letter = rows_of(era_directives);
inline constexpr time_rows index_by_letter = rows_of(index_directives);

// The row of a character of the format; ascii is its value by portable().
inline const time_directive *find_directive(const time_rows &rows, unsigned ascii) {
    return ascii < 128 ? rows[ascii] : nullptr;
}

inline bool has_eras(const ltime *t) { return t->decode_era && t->era_count > 0; }
// Numbers need at least two digits.
inline bool has_alt_digits(const ltime *t) { return t->w_alt_digits && t->max_alt_digits >= 2; }

// A directive as it is spelled in a format.
struct time_spec {
    const time_directive *row;
    format_modifiers m;  // a digit after "F" is its precision and has raised the width
    bool alternative;    // in the locale's digits
    bool pointed;        // after "i": "F" has a point
    int fraction_digits; // after "F"; -1: none
    bool bad_fraction;   // the error is such a digit above 5
};
// A directive without modifiers.
inline time_spec plain_spec(const time_directive *row, bool alternative = false) {
    return {.row = row, .m = {.precision = -1}, .alternative = alternative, .fraction_digits = -1};
}
// Reads a directive, from the place after its "%", and moves *format past it. 0; or KO_EDIRECTIVE
// for what is not a directive and for values that would be arguments, KO_EFORMAT, KO_EPRECISION.
int scan_directive(const kovaloc *loc, const ko_wchar_t **format, time_spec *spec);

// The state of a walk over a format and the formats of the locale inside it.
constexpr int work_max = 1 << 20;
struct time_walker {
    int depth = 0;
    int work = 0;              // spent in nested formats, for one directive of the outermost
    bool bad_fraction = false; // the reason for the failure
    bool exhausted = false;    // the walk has reached one of its limits
    bool spent() { return exhausted = exhausted || work > work_max; }
};
// The work of passing so many characters, each of which takes less time than a directive.
constexpr int work_of(ptrdiff_t characters) { return int(characters / 16); }

// Passes runs of text in a format to out->literal(first, end) and directives to
// out->directive(spec) until one returns an error number. Out has a loc and a walker.
template <class Out> int walk_format(Out *out, const ko_wchar_t *format) {
    const kovaloc *const loc = out->loc;
    const ko_wchar_t percent = native(loc, '%');
    for (;;) {
        const ko_wchar_t *const run = format;
        while (*format && *format != percent)
            ++format;
        if (format != run) {
            if (const int error = out->literal(run, format)) return error;
        }
        if (!*format) return 0;
        const time_directive *const row = find_directive(time_by_letter, portable(loc, *++format));
        time_spec spec = plain_spec(row);
        int error = 0;
        if (row && ends_at_letter(row->kind)) {
            ++format;
        } else {
            error = scan_directive(loc, &format, &spec);
            out->walker.bad_fraction |= spec.bad_fraction;
        }
        if (!error) error = out->directive(spec);
        if (error) return error;
    }
}
// Walks over a nested format; NULL is an empty one. Formats that contain each other end with an
// error, and so do those that would take forever without containing themselves. of_many: one of
// several formats that a directive tries, whose work adds up.
template <class Out> int walk_nested(Out *out, const ko_wchar_t *format, bool of_many = false) {
    time_walker &walker = out->walker;
    if (!walker.depth && !of_many) walker.work = 0;
    const int length = format ? ko_wcslen(format) : 0;
    if (length && walker.depth == format_depth_max) walker.exhausted = true;
    if (walker.spent()) return KO_EDIRECTIVE;
    walker.work += length + 1;
    if (!length) return 0;
    ++walker.depth;
    const int error = walk_format(out, format);
    --walker.depth;
    return error;
}

// Calls run with each number of "m/d/y" and its kin, and sign with each sign between them.
template <class Run, class Sign> int each_part(const time_spec &spec, Run run, Sign sign) {
    for (const char *c = spec.row->parts; *c; ++c) {
        const time_directive *const row = find_directive(time_by_letter, unsigned(*c));
        const int error = row ? run(plain_spec(row, spec.alternative)) : sign(*c);
        if (error) return error;
    }
    return 0;
}

// Columns of the characters of names; one column for characters that are not printable.
struct column_counter {
    kovaloc *loc;
    ko_ctype_t full; // class of the characters of two columns
};
column_counter make_columns(kovaloc *loc);
int columns_of(const column_counter &by, ko_wchar_t wc);
// The part of a name that a precision above 0 leaves, in units, and its columns.
struct name_cut {
    int units;
    int columns;
};
name_cut cut_name(const column_counter &by, const ko_wchar_t *name, int precision);

// Adds the most columns and bytes that a format can produce. 0, or the error number.
struct time_extent {
    int64_t columns = 0;
    int64_t bytes = 0;
};
int measure_format(kovaloc *loc, const ko_wchar_t *format, time_extent *extent);

#endif
