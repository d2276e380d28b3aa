/* Functions that write a value by a format: numbers, money, dates. */
#include "kova_pg.h"

#include <datatype/timestamp.h>
#include <miscadmin.h>
#include <utils/builtins.h>
#include <utils/date.h>
#include <utils/datetime.h>
#include <utils/numeric.h>
#include <utils/timestamp.h>

#include <string.h>

/* ---- Writing by a format ---- */

/* What is written. The format is wide, ended by 0. */
typedef struct writing {
    ko_lc_t loc;
    const ko_wchar_t *format;
    double real;
    ko_tm_t tm;
    /* Writes into room for so many characters and a terminator. Returns the characters, or -1 with
     * the record's error word set. */
    int (*write)(const struct writing *w, ko_wchar_t *out, int room);
} writing;

static const ko_wchar_t *wide_format(ko_lc_t loc, const char *format) {
    const size_t n = strlen(format);
    ko_wchar_t *wide = palloc((n + 1) * sizeof *wide);
    const int64_t length = ko_utf8stowcs(loc, wide, n, format, n, NULL);
    if (length < 0) kova_fail((int)-length, "the format \"%s\"", format);
    wide[length] = 0;
    return wide;
}

static text *narrow_text(ko_lc_t loc, const ko_wchar_t *wide, int n) {
    const size_t room = (size_t)n * 4;
    text *result = palloc(VARHDRSZ + room);
    const int64_t size = ko_wcstoutf8s(loc, VARDATA(result), room, wide, (size_t)n, NULL);
    if (size < 0) kova_fail((int)-size, "a result");
    SET_VARSIZE(result, VARHDRSZ + (Size)size);
    return result;
}

/* Results have at most so many characters: nobody reads a number with more decimals. */
enum { written_max = 1000000 };

/* Formats say nothing of the length of what they make, so the room grows until it suffices. */
static text *written(const writing *w, const char *format) {
    for (int room = 125; room <= written_max; room *= 20) {
        ko_wchar_t *out = palloc(((size_t)room + 1) * sizeof *out);
        int length;
        CHECK_FOR_INTERRUPTS();
        *ko_ext_errno(w->loc) = 0;
        length = w->write(w, out, room);
        if (length >= 0) return narrow_text(w->loc, out, length);
        if (*ko_ext_errno(w->loc) != KO_E2BIG)
            kova_fail(*ko_ext_errno(w->loc), "the format \"%s\"", format);
        pfree(out);
    }
    kova_fail(KO_E2BIG, "the format \"%s\"", format);
}

/* ---- Numbers and money ---- */

/* A directive of a family: its flags, the sign before a second width, and its letters. The library
 * takes the types of values from the format, so that nothing passes that it could read in another
 * way. */
typedef struct grammar {
    const char *flags, *left, *letters, *shape;
} grammar;

static const grammar number_grammar = {" #'+-0", "", "eEfgG",
                                       "flags, width, .digits and one of e E f g G"};
static const grammar money_grammar = {"!(+-^", "#", "in",
                                      "flags, width, #digits, .digits and i or n"};

/* The place after a directive whose "%" is before at; NULL if it is none of the family. */
static const char *skip_directive(const char *at, const grammar *g) {
    static const char digits[] = "0123456789";
    at += strspn(at, g->flags);
    while (*g->left && *at == '=' && at[1] > ' ' && at[1] < 0x7F) {
        at += 2;
        at += strspn(at, g->flags);
    }
    at += strspn(at, digits);
    if (*g->left && *at == *g->left) at += 1 + strspn(at + 1, digits);
    if (*at == '.') at += 1 + strspn(at + 1, digits);
    return *at && strchr(g->letters, *at) ? at + 1 : NULL;
}

/* In a format "%%" is text. */
static bool has_one_directive(const char *format, const grammar *g) {
    int found = 0;
    for (const char *at = strchr(format, '%'); at; at = strchr(at, '%')) {
        if (at[1] == '%') {
            at += 2;
            continue;
        }
        at = skip_directive(at + 1, g);
        if (!at || found++) return false;
    }
    return found == 1;
}

static void need_one_directive(const char *format, const grammar *g) {
    if (has_one_directive(format, g)) return;
    ereport(ERROR, (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                    errmsg("the format \"%s\" does not have exactly one directive: %% with %s",
                           format, g->shape)));
}

/* A double holds any decimal number of so many digits. */
enum { digits_max = 15 };

static double exact_double(Datum number) {
    const char *shown = DatumGetCString(DirectFunctionCall1(numeric_out, number));
    int digits = 0;
    for (const char *at = shown; *at; at++)
        if (*at >= (digits ? '0' : '1') && *at <= '9') digits++;
    for (const char *end = shown + strlen(shown); strchr(shown, '.') && end[-1] == '0'; end--)
        digits--; /* 1.50 has two */
    if (digits <= digits_max) return DatumGetFloat8(DirectFunctionCall1(numeric_float8, number));
    ereport(ERROR, (errcode(ERRCODE_NUMERIC_VALUE_OUT_OF_RANGE),
                    errmsg("%s has more than %d digits", shown, (int)digits_max),
                    errhint("Round it first.")));
}

static int write_number(const writing *w, ko_wchar_t *out, int room) {
    return ko_wcsfnum(w->loc, out, room, w->format, w->real);
}

static int write_money(const writing *w, ko_wchar_t *out, int room) {
    return ko_wcsfmon(w->loc, out, room, w->format, w->real);
}

static Datum write_amount(FunctionCallInfo fcinfo, const grammar *g,
                          int (*write)(const writing *, ko_wchar_t *, int)) {
    const char *format = text_to_cstring(PG_GETARG_TEXT_PP(1));
    writing w = {.loc = kova_locale_arg(fcinfo, 2), .write = write};
    need_one_directive(format, g);
    w.real = exact_double(PG_GETARG_DATUM(0));
    w.format = wide_format(w.loc, format);
    PG_RETURN_TEXT_P(written(&w, format));
}

PG_FUNCTION_INFO_V1(kova_number);
Datum kova_number(PG_FUNCTION_ARGS) { return write_amount(fcinfo, &number_grammar, write_number); }

PG_FUNCTION_INFO_V1(kova_money);
Datum kova_money(PG_FUNCTION_ARGS) { return write_amount(fcinfo, &money_grammar, write_money); }

/* ---- Dates ---- */

static int write_time(const writing *w, ko_wchar_t *out, int room) {
    const int length = ko_wcsftime(w->loc, out, room + 1, w->format, &w->tm);
    return length > 0 ? length : *ko_ext_errno(w->loc) ? -1 : 0;
}

static void set_time(ko_tm_t *tm, Timestamp when) {
    struct pg_tm parts;
    fsec_t usec;
    int day;
    if (TIMESTAMP_NOT_FINITE(when) || timestamp2tm(when, NULL, &parts, &usec, NULL, NULL))
        ereport(ERROR, (errcode(ERRCODE_DATETIME_VALUE_OUT_OF_RANGE),
                        errmsg("a timestamp without a date has no text")));
    day = date2j(parts.tm_year, parts.tm_mon, parts.tm_mday);
    *tm = (ko_tm_t){.tm_usec = usec,
                    .tm_sec = parts.tm_sec,
                    .tm_min = parts.tm_min,
                    .tm_hour = parts.tm_hour,
                    .tm_mday = parts.tm_mday,
                    .tm_mon = parts.tm_mon - 1,
                    .tm_year = parts.tm_year - 1900,
                    .tm_wday = j2day(day),
                    .tm_yday = day - date2j(parts.tm_year, 1, 1)};
}

PG_FUNCTION_INFO_V1(kova_date);
Datum kova_date(PG_FUNCTION_ARGS) {
    const char *format = text_to_cstring(PG_GETARG_TEXT_PP(1));
    writing w = {.loc = kova_locale_arg(fcinfo, 2), .write = write_time};
    set_time(&w.tm, PG_GETARG_TIMESTAMP(0));
    w.format = wide_format(w.loc, format);
    PG_RETURN_TEXT_P(written(&w, format));
}
