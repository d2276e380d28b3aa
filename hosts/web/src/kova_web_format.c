/* Numbers, money, dates and items of a locale. Texts go in and out in UTF-8; what is written is
 * measured by the result, as in kova_host.h: the length of the whole text, or an error, negated. */
#include "kova_web.h"

#include <stdlib.h>
#include <string.h>

typedef struct utf8_text {
    const char *text;
    size_t length;
} utf8_text;

/* ---- Wide texts ---- */

/* A text in wide characters with a terminator, which the caller frees; NULL with *error. A
 * character has no fewer bytes than units. */
static ko_wchar_t *wide_text(ko_lc_t loc, utf8_text from, int *error) {
    ko_wchar_t *const wide = calloc(from.length + 1, sizeof *wide);
    if (!wide) {
        *error = -KO_ENOMEM;
        return NULL;
    }
    const int64_t size = ko_utf8stowcs(loc, wide, from.length, from.text, from.length, NULL);
    if (size >= 0) return wide;
    *error = (int)size;
    free(wide);
    return NULL;
}

static int put_wide(ko_lc_t loc, const ko_wchar_t *wide, size_t length, char *out, size_t room) {
    const int64_t size = ko_wcstoutf8s(loc, out, room, wide, length, NULL);
    return size > INT32_MAX ? -KO_ENOMEM : (int)size;
}

/* ---- Results of unknown length ---- */

typedef struct write_job {
    ko_lc_t loc;
    const ko_wchar_t *format;
    int is_real; /* a number: whether it is written as one */
    double value;
    const ko_tm_t *tm;
} write_job;

/* Write into room for so many characters and a terminator; the length, or -1. */
typedef int (*writer)(const write_job *job, ko_wchar_t *out, int room);

static int write_number(const write_job *job, ko_wchar_t *out, int room) {
    if (job->is_real) return ko_wcsfnum(job->loc, out, room, job->format, job->value);
    return ko_wcsfnum(job->loc, out, room, job->format, (int)(uint32_t)(int64_t)job->value);
}

static int write_money(const write_job *job, ko_wchar_t *out, int room) {
    return ko_wcsfmon(job->loc, out, room, job->format, job->value);
}

static int write_date(const write_job *job, ko_wchar_t *out, int room) {
    const int size = ko_wcsftime(job->loc, out, room + 1, job->format, job->tm);
    return size == 0 && *ko_ext_errno(job->loc) ? -1 : size;
}

static int written(const write_job *job, writer write, char *out, size_t out_room) {
    enum { room_max = 1 << 20 };
    for (int room = 256; room <= room_max; room *= 4) {
        ko_wchar_t *const wide = malloc(((size_t)room + 1) * sizeof *wide);
        if (!wide) return -KO_ENOMEM;
        *ko_ext_errno(job->loc) = 0;
        const int size = write(job, wide, room);
        const int result = size < 0 ? 0 : put_wide(job->loc, wide, (size_t)size, out, out_room);
        free(wide);
        if (size >= 0) return result;
        /* A year that does not fit is an error of its own. */
        if (*ko_ext_errno(job->loc) != KO_E2BIG && *ko_ext_errno(job->loc) != KO_EYEAR) break;
    }
    const int error = *ko_ext_errno(job->loc);
    return error ? -error : -KO_EILSEQ;
}

static int write_by(write_job *job, writer write, utf8_text format, char *out, size_t room) {
    int result = 0;
    ko_wchar_t *const wide = wide_text(job->loc, format, &result);
    job->format = wide;
    if (wide) result = written(job, write, out, room);
    free(wide);
    return result;
}

int WEB(web_number)(ko_lc_t loc, const char *format, size_t length, int is_real, double value,
                    char *out, size_t room) {
    write_job job = {.loc = loc, .is_real = is_real, .value = value};
    return write_by(&job, write_number, (utf8_text){format, length}, out, room);
}

int WEB(web_money)(ko_lc_t loc, const char *format, size_t length, double value, char *out,
                   size_t room) {
    write_job job = {.loc = loc, .value = value};
    return write_by(&job, write_money, (utf8_text){format, length}, out, room);
}

/* ---- Dates ---- */

/* A time as kova.mjs lays it out: the fields of ko_tm_t that it uses. */
typedef struct web_time {
    int year, month, day, hour, minute, second, microsecond, weekday, yearday;
} web_time;

static ko_tm_t tm_of(const web_time *t) {
    return (ko_tm_t){.tm_usec = t->microsecond,
                     .tm_sec = t->second,
                     .tm_min = t->minute,
                     .tm_hour = t->hour,
                     .tm_mday = t->day,
                     .tm_mon = t->month,
                     .tm_year = t->year,
                     .tm_wday = t->weekday,
                     .tm_yday = t->yearday};
}

int WEB(web_date)(ko_lc_t loc, const char *format, size_t length, const web_time *when, char *out,
                  size_t room) {
    const ko_tm_t tm = tm_of(when);
    write_job job = {.loc = loc, .tm = &tm};
    return write_by(&job, write_date, (utf8_text){format, length}, out, room);
}

/* The fields that were read: those of time_info, after the bits that say which. */
enum { read_fields = 17 };

static void put_fields(const time_info *ti, int *fields) {
    const int all[read_fields] = {
        (int)ti->set, ti->usec,      ti->second,   ti->minute,   ti->hour12,   ti->ampm,
        ti->hour24,   ti->month_day, ti->week_day, ti->year_day, ti->mon,      ti->monidx,
        ti->era,      ti->era_off,   ti->century,  ti->year_off, ti->full_year};
    memcpy(fields, all, sizeof all);
}

typedef struct read_job {
    ko_lc_t loc;
    const ko_wchar_t *text, *format;
    int rule; /* for the century */
    web_time *when;
    int *fields;
} read_job;

/* The characters that are left of the text, or an error. */
static int read_wide(const read_job *job) {
    time_info ti;
    ko_tm_t tm = tm_of(job->when);
    memset(&ti, 0, sizeof ti);
    *ko_ext_errno(job->loc) = 0;
    const ko_wchar_t *end = ko_wcsptime1(job->loc, job->text, job->format, &ti, job->rule);
    if (end && !ko_wcsptime(job->loc, job->text, job->format, &tm, job->rule)) end = NULL;
    const int error = *ko_ext_errno(job->loc);
    if (!end) return error ? -error : -KO_EFORMAT;
    put_fields(&ti, job->fields);
    *job->when = (web_time){tm.tm_year, tm.tm_mon,  tm.tm_mday, tm.tm_hour, tm.tm_min,
                            tm.tm_sec,  tm.tm_usec, tm.tm_wday, tm.tm_yday};
    return ko_wcslen(end);
}

/* Reads a date from the start of a text; the result is the number of characters after it, as wide
 * characters. */
int WEB(web_read_date)(ko_lc_t loc, const char *text, size_t text_length, const char *format,
                       size_t format_length, int rule, web_time *when, int *fields) {
    int result = 0;
    ko_wchar_t *const wide = wide_text(loc, (utf8_text){text, text_length}, &result);
    ko_wchar_t *const by =
        wide ? wide_text(loc, (utf8_text){format, format_length}, &result) : NULL;
    const read_job job = {loc, wide, by, rule, when, fields};
    if (by) result = read_wide(&job);
    free(by);
    free(wide);
    return result;
}

/* A date in one calendar as one in the other: year, month and the index of its name from 0, day of
 * the month and of the year. 0, or -1 outside the calendar. */
int WEB(web_other_calendar)(ko_lc_t loc, int to_local, int *date) {
    const ko_alt_tm_t from = {.alt_tm_mday = date[3],
                              .alt_tm_mon = date[1],
                              .alt_tm_monidx = date[2],
                              .alt_tm_year = date[0] - 1900};
    ko_alt_tm_t made;
    const int failed = to_local ? ko_cal_gregorian_to_local(loc, &from, &made)
                                : ko_cal_local_to_gregorian(loc, &from, &made);
    if (failed) return -1;
    const int all[] = {made.alt_tm_year + 1900, made.alt_tm_mon, made.alt_tm_monidx,
                       made.alt_tm_mday, made.alt_tm_yday};
    memcpy(date, all, sizeof all);
    return 0;
}

/* ---- What a locale says ---- */

static int put_wide_string(ko_lc_t loc, const ko_wchar_t *wide, char *out, size_t room) {
    if (!wide) return -KO_ENOCAT;
    return put_wide(loc, wide, (size_t)ko_wcslen(wide), out, room);
}

/* An item of ko_nl_langinfo; -KO_ENOCAT where the locale says nothing. */
int WEB(web_item)(ko_lc_t loc, unsigned item, char *out, size_t room) {
    if (item != KO_CALENDAR && item != KO_CODESET)
        return put_wide_string(loc, ko_wc_nl_langinfo(loc, item), out, room);
    /* names of the library's own, in ASCII */
    const char *const name = (const char *)ko_nl_langinfo(loc, item);
    if (!name) return -KO_ENOCAT;
    const size_t length = strcspn(name, "\n");
    memcpy(out, name, length < room ? length : room);
    return (int)length;
}

/* The texts of koconv in its order, without the groupings, which web_grouping answers. */
int WEB(web_convention)(ko_lc_t loc, unsigned which, char *out, size_t room) {
    const koconv *const conv = ko_localeconv(loc);
    if (!conv) return -KO_ENOMEM;
    const ko_wchar_t *const texts[] = {conv->w_decimal_point,     conv->w_thousands_sep,
                                       conv->w_int_curr_symbol,   conv->w_currency_symbol,
                                       conv->w_mon_decimal_point, conv->w_mon_thousands_sep,
                                       conv->w_positive_sign,     conv->w_negative_sign};
    if (which >= sizeof texts / sizeof *texts) return -KO_ERANGE;
    return put_wide_string(loc, texts[which], out, room);
}

/* The values of koconv in its order; 127 where the locale says nothing. */
int WEB(web_value)(ko_lc_t loc, unsigned which) {
    const koconv *const conv = ko_localeconv(loc);
    if (!conv) return -KO_ENOMEM;
    const char values[] = {conv->int_frac_digits, conv->frac_digits,   conv->p_cs_precedes,
                           conv->p_sep_by_space,  conv->n_cs_precedes, conv->n_sep_by_space,
                           conv->p_sign_posn,     conv->n_sign_posn};
    return which < sizeof values ? values[which] : -KO_ERANGE;
}

/* The size of a group of digits, of numbers or of money; 0 after the last. */
int WEB(web_grouping)(ko_lc_t loc, int of_money, unsigned which) {
    const koconv *const conv = ko_localeconv(loc);
    if (!conv) return -KO_ENOMEM;
    const char *const sizes = of_money ? conv->mon_grouping : conv->grouping;
    return sizes && which < strlen(sizes) ? sizes[which] : 0;
}
