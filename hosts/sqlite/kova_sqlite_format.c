/* Functions that write one value by a format: numbers, money, dates. */
#include "kova_sqlite.h"

#include <limits.h>
#include <math.h>
#include <string.h>

SQLITE_EXTENSION_INIT3

/* ---- Writing by a format ---- */

/* What is written. Formats are wide, ended by 0, in the locale's code set. */
typedef struct writing {
    ko_lc_t loc;
    ko_wchar_t *format;
    int whole;   /* numbers: the value of integer directives */
    double real; /* that of others, and of money */
    ko_tm_t tm;
    /* Writes into room for so many characters and a terminator. Returns the characters, or -1 with
     * the record's error word set. */
    int (*write)(const struct writing *w, ko_wchar_t *out, int room);
} writing;

static ko_wchar_t *wide_text(sqlite3_context *ctx, ko_lc_t loc, const char *text, size_t n) {
    ko_wchar_t *wide = result_room(ctx, ((int64_t)n + 1) * (int64_t)sizeof *wide);
    if (!wide) return NULL;
    const int64_t length = ko_utf8stowcs(loc, wide, n, text, n, NULL);
    if (length >= 0) {
        wide[length] = 0;
        return wide;
    }
    sqlite3_free(wide);
    fail_by(ctx, (int)-length, "the format");
    return NULL;
}

static void return_wide(sqlite3_context *ctx, ko_lc_t loc, const ko_wchar_t *wide, size_t n) {
    const int64_t room = (int64_t)n * 4;
    char *result = result_room(ctx, room);
    if (!result) return;
    const int64_t size = ko_wcstoutf8s(loc, result, (size_t)room, wide, n, NULL);
    if (size >= 0) {
        sqlite3_result_text64(ctx, result, (sqlite3_uint64)size, sqlite3_free, SQLITE_UTF8);
        return;
    }
    sqlite3_free(result);
    fail_by(ctx, (int)-size, "the result");
}

/* Results have at most so many characters: nobody reads a number with more decimals. */
enum { written_max = 1000000 };

/* Writes into more and more room. The error words of records are shared with other connections. */
static void return_written(sqlite3_context *ctx, const writing *w, const char *format) {
    int error = KO_E2BIG;
    for (int64_t room = 125; error == KO_E2BIG && room <= written_max; room *= 20) {
        ko_wchar_t *out = result_room(ctx, (room + 1) * (int64_t)sizeof *out);
        if (!out) return;
        lock_words();
        *ko_ext_errno(w->loc) = 0;
        const int length = w->write(w, out, (int)room);
        error = length < 0 ? *ko_ext_errno(w->loc) : 0;
        unlock_words();
        if (length >= 0) return_wide(ctx, w->loc, out, (size_t)length);
        sqlite3_free(out);
    }
    if (error == KO_E2BIG)
        sqlite3_result_error_toobig(ctx);
    else if (error)
        fail_by(ctx, error, format);
}

/* ---- Formats with one directive ---- */

/* The directive of a format, whose parts are places in the text. */
typedef struct directive {
    size_t size;   /* of l or h, else of the letter */
    size_t letter; /* of the conversion */
    bool precise;  /* has a precision */
    bool marked;   /* has the flag # */
} directive;

static size_t skip(const char *text, size_t at, const char *set) {
    while (text[at] && strchr(set, text[at]))
        at++;
    return at;
}

/* The grammars of both families: what may come before the width and before the precision, sizes,
 * and conversions. */
typedef struct grammar {
    const char *flags, *left, *sizes, *letters;
    const char *shape; /* for messages */
} grammar;

static const grammar number_grammar = {
    " #'+-0", "", "lLhH", "diuoqbxXeEfgG",
    "flags, width, .digits and one of d i u o q b x X e E f g G"};
static const grammar money_grammar = {"!(+-^", "#", "", "ni",
                                      "flags, width, #digits, .digits and n or i"};

/* Reads a directive after its "%". Nothing passes that the library could read in another way: it
 * takes the values' types from the format. */
static bool read_directive(const char *text, size_t at, const grammar *g, directive *d) {
    static const char digits[] = "0123456789";
    const size_t flags = at;
    for (;;) {
        at = skip(text, at, g->flags);
        if (g != &money_grammar || text[at] != '=' || !text[at + 1] || text[at + 1] & 0x80) break;
        at += 2;
    }
    d->marked = memchr(text + flags, '#', at - flags) != NULL;
    at = skip(text, at, digits);
    if (*g->left && text[at] == *g->left) at = skip(text, at + 1, digits);
    d->precise = text[at] == '.';
    if (d->precise) at = skip(text, at + 1, digits);
    d->size = at;
    if (text[at] && strchr(g->sizes, text[at])) at++;
    d->letter = at;
    const bool real = text[at] && strchr("eEfgG", text[at]); /* these have no size */
    return text[at] && strchr(g->letters, text[at]) && !(real && d->letter > d->size);
}

/* Finds the one directive of a format, in which "%%" is text. */
static bool find_directive(sqlite3_context *ctx, const char *format, const grammar *g,
                           directive *d) {
    int found = 0;
    bool well = true;
    for (const char *at = format; well && (at = strchr(at, '%'));) {
        if (at[1] == '%') {
            at += 2;
            continue;
        }
        well = !found++ && read_directive(format, (size_t)(at - format) + 1, g, d);
        at = format + d->letter + 1;
    }
    if (well && found) return true;
    fail_with(ctx, "kova: the format '%s' does not have exactly one directive: %% with %s", format,
              g->shape);
    return false;
}

/* ---- Values ---- */

/* More digits than a double holds would be written as others. */
enum { digits_max = 15 };
static const double whole_max = 999999999999999.0;

static int count_digits(const char *text) {
    int n = 0;
    for (; *text && *text != 'e' && *text != 'E'; text++)
        if (*text >= (n ? '0' : '1') && *text <= '9') n++;
    return n;
}

/* A number, also one in a text. */
static bool take_number(sqlite3_context *ctx, sqlite3_value *value, double *real) {
    text_arg shown = {0};
    int type = sqlite3_value_type(value);
    const bool text = type == SQLITE_TEXT;
    if (text && !take_text(ctx, value, &shown)) return false;
    const bool longer = text && count_digits(shown.s) > digits_max;
    if (text) type = sqlite3_value_numeric_type(value); /* it may change the text */
    if (type != SQLITE_INTEGER && type != SQLITE_FLOAT) {
        fail_with(ctx, "kova: '%s' is not a number", text ? shown.s : "a BLOB");
        return false;
    }
    *real = sqlite3_value_double(value);
    const bool exact = type == SQLITE_FLOAT || (*real <= whole_max && *real >= -whole_max);
    if (exact && !longer) return true;
    fail_with(ctx, "kova: the value has more than %d digits", (int)digits_max);
    return false;
}

/* ---- kova_number(value, format, locale) ---- */

static int write_whole(const writing *w, ko_wchar_t *out, int room) {
    return ko_wcsfnum(w->loc, out, room, w->format, w->whole);
}

static int write_real(const writing *w, ko_wchar_t *out, int room) {
    return ko_wcsfnum(w->loc, out, room, w->format, w->real);
}

/* The least and the largest value of an integer directive: the library's are of 32 and 16 bits. */
static void limits_of(const char *format, const directive *d, double *least, double *most) {
    const bool half = strchr("hH", format[d->size]) != NULL, plain = format[d->letter] == 'u';
    *most = half ? plain ? UINT16_MAX : INT16_MAX : plain ? UINT32_MAX : INT32_MAX;
    *least = plain ? 0 : -*most - 1;
}

/* Makes a value beyond 32 bits one of the directive of reals without decimals, which writes the
 * same. NULL: it cannot, or there is no memory; an error is the result. */
static char *as_real(sqlite3_context *ctx, const char *format, const directive *d, double value) {
    const bool decimal = strchr("diu", format[d->letter]) && strchr("diulL", format[d->size]);
    if (!decimal || d->precise || d->marked || (format[d->letter] == 'u' && value < 0)) {
        fail_with(ctx, "kova: %.15g is out of the range of '%s'", value, format);
        return NULL;
    }
    char *made = sqlite3_mprintf("%.*s.0f%s", (int)d->size, format, format + d->letter + 1);
    if (!made) sqlite3_result_error_nomem(ctx);
    return made;
}

static bool set_number(sqlite3_context *ctx, writing *w, const char *format, const directive *d,
                       char **changed) {
    double least, most;
    w->write = write_real;
    if (strchr("eEfgG", format[d->letter])) return true;
    if (!(fabs(w->real) <= whole_max) || w->real != floor(w->real)) {
        fail_with(ctx,
                  "kova: %.15g is not a whole number of at most %d digits, as '%s' writes "
                  "them; %%f and %%g write others",
                  w->real, (int)digits_max, format);
        return false;
    }
    limits_of(format, d, &least, &most);
    if (w->real < least || w->real > most) return (*changed = as_real(ctx, format, d, w->real));
    w->write = write_whole;
    w->whole = (int)(unsigned)(int64_t)w->real;
    return true;
}

void number_function(sqlite3_context *ctx, int count, sqlite3_value **values) {
    writing w = {0};
    directive d = {0};
    if (has_null(count, values)) return;
    const char *format = take_name(ctx, values[1], "the format");
    w.loc = format ? take_locale(ctx, values[2]) : NULL;
    if (!w.loc || !find_directive(ctx, format, &number_grammar, &d)) return;
    char *changed = NULL;
    if (!take_number(ctx, values[0], &w.real) || !set_number(ctx, &w, format, &d, &changed)) return;
    const char *used = changed ? changed : format;
    w.format = wide_text(ctx, w.loc, used, strlen(used));
    if (w.format) return_written(ctx, &w, format);
    sqlite3_free(w.format);
    sqlite3_free(changed);
}

/* ---- kova_money(value, format, locale) ---- */

static int write_money(const writing *w, ko_wchar_t *out, int room) {
    return ko_wcsfmon(w->loc, out, room, w->format, w->real);
}

void money_function(sqlite3_context *ctx, int count, sqlite3_value **values) {
    writing w = {.write = write_money};
    directive d = {0};
    if (has_null(count, values)) return;
    const char *format = take_name(ctx, values[1], "the format");
    w.loc = format ? take_locale(ctx, values[2]) : NULL;
    if (!w.loc || !find_directive(ctx, format, &money_grammar, &d)) return;
    if (!take_number(ctx, values[0], &w.real)) return;
    w.format = wide_text(ctx, w.loc, format, strlen(format));
    if (w.format) return_written(ctx, &w, format);
    sqlite3_free(w.format);
}

/* ---- kova_date(value, format, locale) ---- */

/* Days since 1970-01-01 of a Gregorian date, and back; months count from 1. */
static int64_t days_of(int64_t year, int month, int day) {
    if (month <= 2) year--; /* years begin in March, so that leap days end them */
    const int64_t cycle = (year >= 0 ? year : year - 399) / 400;
    const int64_t of_cycle = year - cycle * 400;
    const int64_t of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return cycle * 146097 + of_cycle * 365 + of_cycle / 4 - of_cycle / 100 + of_year - 719468;
}

static void set_date(ko_tm_t *tm, int64_t days) {
    const int64_t shifted = days + 719468;
    const int64_t cycle = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
    const int64_t of_cycle = shifted - cycle * 146097;
    const int64_t years = (of_cycle - of_cycle / 1460 + of_cycle / 36524 - of_cycle / 146096) / 365;
    const int64_t of_year = of_cycle - (365 * years + years / 4 - years / 100);
    const int64_t month = (5 * of_year + 2) / 153; /* from March */
    tm->tm_mday = (int)(of_year - (153 * month + 2) / 5 + 1);
    tm->tm_mon = (int)(month < 10 ? month + 2 : month - 10);
    const int64_t year = years + cycle * 400 + (tm->tm_mon <= 1);
    tm->tm_year = (int)(year - 1900);
    tm->tm_wday = (int)(((days + 4) % 7 + 7) % 7);
    tm->tm_yday = (int)(days - days_of(year, 1, 1));
}

/* Takes so many digits, after the character that comes before them (0: none). */
static bool take_digits(const char **at, char before, int digits, int most, int *number) {
    const char *c = *at;
    if (before && *c++ != before) return false;
    *number = 0;
    for (int i = 0; i < digits; i++, c++) {
        if (*c < '0' || *c > '9') return false;
        *number = *number * 10 + (*c - '0');
    }
    *at = c;
    return *number <= most;
}

/* Digits after the sixth are microseconds no more. */
static bool take_fraction(const char **at, ko_long_t *usec) {
    const char *c = *at;
    if (*c < '0' || *c > '9') return false;
    ko_long_t unit = 100000;
    for (; *c >= '0' && *c <= '9'; c++, unit /= 10)
        *usec += unit * (*c - '0');
    *at = c;
    return true;
}

/* YYYY-MM-DD, and after a blank or a T perhaps HH:MM, HH:MM:SS or HH:MM:SS.F with perhaps a Z. */
static bool read_time(const char *at, ko_tm_t *tm) {
    int year, month, day;
    if (!take_digits(&at, 0, 4, 9999, &year) || !take_digits(&at, '-', 2, 12, &month) ||
        !take_digits(&at, '-', 2, 31, &day) || month < 1 || day < 1)
        return false;
    set_date(tm, days_of(year, month, day));
    if (tm->tm_mday != day) return false; /* the month is shorter */
    if (!*at) return true;
    const char between = *at == 'T' ? 'T' : ' ';
    if (!take_digits(&at, between, 2, 23, &tm->tm_hour) ||
        !take_digits(&at, ':', 2, 59, &tm->tm_min))
        return false;
    if (*at == ':' && !take_digits(&at, ':', 2, 59, &tm->tm_sec)) return false;
    if (*at == '.' && (at++, !take_fraction(&at, &tm->tm_usec))) return false;
    return !strcmp(at, "") || !strcmp(at, "Z");
}

/* Seconds since 1970, UTC, of the years 0 to 9999. */
static bool set_seconds(int64_t seconds, ko_tm_t *tm) {
    if (seconds < -62167219200 || seconds > 253402300799) return false;
    const int64_t days = (seconds >= 0 ? seconds : seconds - 86399) / 86400;
    const int of_day = (int)(seconds - days * 86400);
    set_date(tm, days);
    tm->tm_hour = of_day / 3600;
    tm->tm_min = of_day / 60 % 60;
    tm->tm_sec = of_day % 60;
    return true;
}

/* A REAL is refused: SQLite's own functions use it for Julian days and for seconds. */
static bool take_time(sqlite3_context *ctx, sqlite3_value *value, ko_tm_t *tm) {
    text_arg text;
    const int type = sqlite3_value_type(value);
    if (type == SQLITE_INTEGER && set_seconds(sqlite3_value_int64(value), tm)) return true;
    if (!take_text(ctx, value, &text)) return false;
    if (type == SQLITE_TEXT && strlen(text.s) == text.n && read_time(text.s, tm)) return true;
    fail_with(ctx,
              "kova: '%s' is not a time: a text such as 2026-11-21 15:05:07, or seconds since "
              "1970 as an INTEGER; datetime() makes such a text of others",
              text.s ? text.s : "");
    return false;
}

static int write_time(const writing *w, ko_wchar_t *out, int room) {
    const int length = ko_wcsftime(w->loc, out, room + 1, w->format, &w->tm);
    return length > 0 ? length : *ko_ext_errno(w->loc) ? -1 : 0;
}

void date_function(sqlite3_context *ctx, int count, sqlite3_value **values) {
    writing w = {.write = write_time};
    if (has_null(count, values)) return;
    const char *format = take_name(ctx, values[1], "the format");
    w.loc = format ? take_locale(ctx, values[2]) : NULL;
    if (!w.loc || !take_time(ctx, values[0], &w.tm)) return;
    w.format = wide_text(ctx, w.loc, format, strlen(format));
    if (w.format) return_written(ctx, &w, format);
    sqlite3_free(w.format);
}
