/* Numbers, money, dates and items of a locale, for the Python part of kova.Locale. These calls are
 * short and use the record's error word, so they keep the interpreter's lock. */
#include "kova_python.h"

#include <stdlib.h>
#include <string.h>

static int *error_word(locale_object *self) { return ko_ext_errno(self->loc); }

/* ---- Wide texts ---- */

/* A str in wide characters with a terminator, which the caller frees; NULL with an exception. */
static ko_wchar_t *wide_text(locale_object *self, PyObject *str) {
    utf8_text text;
    if (strict_text(str, &text) < 0) return NULL;
    ko_wchar_t *wide = NULL;
    if (text.length && memchr(text.text, 0, text.length)) {
        PyErr_SetString(PyExc_ValueError, "embedded null character");
    } else if (text.length > (1 << 24)) {
        fail_locale(self, KO_ERANGE);
    } else if (!(wide = calloc(text.length + 1, sizeof *wide))) { /* no unit without a byte */
        PyErr_NoMemory();
    } else {
        const int64_t size =
            ko_utf8stowcs(self->loc, wide, text.length, text.text, text.length, NULL);
        if (size < 0) {
            fail_locale(self, (int)-size);
            free(wide);
            wide = NULL;
        }
    }
    release_text(&text);
    return wide;
}

static PyObject *str_of(locale_object *self, const ko_wchar_t *wide, size_t length) {
    const int64_t size = ko_wcstoutf8s(self->loc, NULL, 0, wide, length, NULL);
    if (size < 0) return fail_locale(self, (int)-size);
    char *text = malloc((size_t)size + 1);
    if (!text) return PyErr_NoMemory();
    ko_wcstoutf8s(self->loc, text, (size_t)size, wide, length, NULL);
    PyObject *str = PyUnicode_DecodeUTF8(text, (Py_ssize_t)size, NULL);
    free(text);
    return str;
}

static PyObject *str_of_string(locale_object *self, const ko_wchar_t *wide) {
    if (!wide) Py_RETURN_NONE;
    return str_of(self, wide, (size_t)ko_wcslen(wide));
}

/* ---- Results of unknown length ---- */

typedef struct write_job {
    locale_object *self;
    const ko_wchar_t *format;
    int is_real, whole; /* a number: which of the two is written */
    double real;
    ko_tm_t tm;
} write_job;

/* Write into room for so many characters and a terminator; the length, or -1. */
typedef int (*writer)(const write_job *job, ko_wchar_t *out, int room);

static int write_number(const write_job *job, ko_wchar_t *out, int room) {
    if (job->is_real) return ko_wcsfnum(job->self->loc, out, room, job->format, job->real);
    return ko_wcsfnum(job->self->loc, out, room, job->format, job->whole);
}

static int write_money(const write_job *job, ko_wchar_t *out, int room) {
    return ko_wcsfmon(job->self->loc, out, room, job->format, job->real);
}

static int write_date(const write_job *job, ko_wchar_t *out, int room) {
    const int size = ko_wcsftime(job->self->loc, out, room + 1, job->format, &job->tm);
    return size == 0 && *error_word(job->self) ? -1 : size;
}

static PyObject *written(const write_job *job, writer write) {
    enum { room_max = 1 << 20 };
    for (int room = 256; room <= room_max; room *= 4) {
        ko_wchar_t *out = malloc(((size_t)room + 1) * sizeof *out);
        if (!out) return PyErr_NoMemory();
        *error_word(job->self) = 0;
        const int size = write(job, out, room);
        PyObject *result = size < 0 ? NULL : str_of(job->self, out, (size_t)size);
        free(out);
        if (size >= 0) return result;
        /* A year that does not fit is an error of its own. */
        if (*error_word(job->self) != KO_E2BIG && *error_word(job->self) != KO_EYEAR) break;
    }
    const int error = *error_word(job->self);
    return fail_locale(job->self, error ? error : KO_EILSEQ);
}

/* ---- Formats with one directive ---- */

/* What may stand between "%" and the letter. Formats are checked because the library takes its
 * arguments as the format says. */
typedef struct grammar {
    const char *flags;
    int fill;            /* "=" and a character is a flag */
    const char *numbers; /* what comes before a number: "" the width, then these */
    const char *letters;
} grammar;

static const char *skip_digits(const char *at) { return at + strspn(at, "0123456789"); }

static const char *skip_flags(const grammar *g, const char *at) {
    for (;; ++at) {
        if (g->fill && at[0] == '=' && at[1]) {
            for (++at; ((unsigned char)at[1] & 0xC0) == 0x80;)
                ++at;
        } else if (!*at || !strchr(g->flags, *at)) {
            return at;
        }
    }
}

/* The letter of the directive after a "%", and the place after it; 0 if it is not one. */
static char directive_letter(const grammar *g, const char **place) {
    const char *at = skip_digits(skip_flags(g, *place));
    for (const char *mark = g->numbers; *mark; ++mark)
        if (*at == *mark) at = skip_digits(at + 1);
    *place = at + 1;
    return *at && strchr(g->letters, *at) ? *at : 0;
}

/* The letter of a format's only directive; 0 with an exception. */
static char only_letter(const grammar *g, PyObject *format) {
    utf8_text text;
    if (strict_text(format, &text) < 0) return 0;
    char letter = 0;
    int count = 0, good = 1;
    for (const char *at = text.text; good && (at = strchr(at, '%'));) {
        if (*++at == '%') {
            ++at;
            continue;
        }
        letter = directive_letter(g, &at);
        good = letter != 0;
        ++count;
    }
    release_text(&text);
    if (good && count == 1) return letter;
    PyErr_Format(PyExc_ValueError,
                 "the format %R needs one directive: %% with flags and digits, "
                 "then one of %s",
                 format, g->letters);
    return 0;
}

static int refuse_count(Py_ssize_t count, Py_ssize_t wanted) {
    if (count == wanted) return 0;
    PyErr_Format(PyExc_TypeError, "%zd arguments are needed", wanted);
    return -1;
}

/* ---- Numbers and money ---- */

static int number_value(char letter, PyObject *value, write_job *job) {
    job->is_real = strchr("eEfgG", letter) != NULL;
    if (job->is_real) {
        job->real = PyFloat_AsDouble(value);
        return PyErr_Occurred() ? -1 : 0;
    }
    const long long whole = PyLong_AsLongLong(value);
    if (whole == -1 && PyErr_Occurred()) return -1;
    const int plain = letter == 'u';
    if (whole < (plain ? 0 : INT32_MIN) || whole > (plain ? (long long)UINT32_MAX : INT32_MAX)) {
        PyErr_Format(PyExc_OverflowError, "%%%c writes 32 bits", letter);
        return -1;
    }
    job->whole = (int)(uint32_t)whole;
    return 0;
}

PyObject *locale_format_number(PyObject *object, PyObject *const *args, Py_ssize_t count) {
    static const grammar numbers = {" #'+-", 0, ".", "diuoqbxXeEfgG"};
    write_job job = {.self = (locale_object *)object};
    if (refuse_count(count, 2) < 0) return NULL;
    const char letter = only_letter(&numbers, args[0]);
    if (!letter || number_value(letter, args[1], &job) < 0) return NULL;
    ko_wchar_t *format = wide_text(job.self, args[0]);
    if (!format) return NULL;
    job.format = format;
    PyObject *result = written(&job, write_number);
    free(format);
    return result;
}

PyObject *locale_format_money(PyObject *object, PyObject *const *args, Py_ssize_t count) {
    static const grammar money = {"!(+-^", 1, "#.", "ni"};
    write_job job = {.self = (locale_object *)object};
    if (refuse_count(count, 2) < 0 || !only_letter(&money, args[0])) return NULL;
    job.real = PyFloat_AsDouble(args[1]);
    if (PyErr_Occurred()) return NULL;
    ko_wchar_t *format = wide_text(job.self, args[0]);
    if (!format) return NULL;
    job.format = format;
    PyObject *result = written(&job, write_money);
    free(format);
    return result;
}

/* ---- Dates ---- */

static int read_tm(PyObject *tuple, ko_tm_t *tm) {
    memset(tm, 0, sizeof *tm);
    return PyArg_ParseTuple(tuple, "iiiiiiiii", &tm->tm_year, &tm->tm_mon, &tm->tm_mday,
                            &tm->tm_hour, &tm->tm_min, &tm->tm_sec, &tm->tm_usec, &tm->tm_wday,
                            &tm->tm_yday)
               ? 0
               : -1;
}

PyObject *locale_format_date(PyObject *object, PyObject *const *args, Py_ssize_t count) {
    write_job job = {.self = (locale_object *)object};
    if (refuse_count(count, 2) < 0 || read_tm(args[1], &job.tm) < 0) return NULL;
    ko_wchar_t *format = wide_text(job.self, args[0]);
    if (!format) return NULL;
    job.format = format;
    PyObject *result = written(&job, write_date);
    free(format);
    return result;
}

/* What was read, as ((year, month, day, hour, minute, second, microsecond), fields, rest). */
static PyObject *reading(locale_object *self, const ko_tm_t *tm, const time_info *ti,
                         const ko_wchar_t *rest) {
    PyObject *text = str_of_string(self, rest);
    if (!text) return NULL;
    return Py_BuildValue("((iiiiiii)(Iiiiiiiiiiiiiiiii)N)", tm->tm_year, tm->tm_mon, tm->tm_mday,
                         tm->tm_hour, tm->tm_min, tm->tm_sec, (int)tm->tm_usec, (unsigned)ti->set,
                         ti->usec, ti->second, ti->minute, ti->hour12, ti->ampm, ti->hour24,
                         ti->month_day, ti->week_day, ti->year_day, ti->mon, ti->monidx, ti->era,
                         ti->era_off, ti->century, ti->year_off, ti->full_year, text);
}

static PyObject *read_wide(locale_object *self, const ko_wchar_t *text, const ko_wchar_t *format,
                           int rule, ko_tm_t *tm) {
    time_info ti;
    memset(&ti, 0, sizeof ti);
    *error_word(self) = 0;
    const ko_wchar_t *end = ko_wcsptime1(self->loc, text, format, &ti, rule);
    if (end && !ko_wcsptime(self->loc, text, format, tm, rule)) end = NULL;
    if (end) return reading(self, tm, &ti, end);
    const int error = *error_word(self);
    return fail_locale(self, error ? error : KO_EFORMAT);
}

PyObject *locale_read_date(PyObject *object, PyObject *const *args, Py_ssize_t count) {
    locale_object *self = (locale_object *)object;
    ko_tm_t tm;
    if (refuse_count(count, 4) < 0 || read_tm(args[3], &tm) < 0) return NULL;
    const int rule = (int)PyLong_AsLong(args[2]);
    if (PyErr_Occurred()) return NULL;
    ko_wchar_t *text = wide_text(self, args[0]);
    ko_wchar_t *format = text ? wide_text(self, args[1]) : NULL;
    PyObject *result = format ? read_wide(self, text, format, rule, &tm) : NULL;
    free(format);
    free(text);
    return result;
}

static PyObject *date_tuple(const ko_alt_tm_t *date) {
    return Py_BuildValue("(iiiii)", date->alt_tm_year + 1900, date->alt_tm_mon, date->alt_tm_monidx,
                         date->alt_tm_mday, date->alt_tm_yday);
}

static int read_date(PyObject *const *args, Py_ssize_t count, ko_alt_tm_t *date) {
    int parts[4];
    if (refuse_count(count, 4) < 0) return -1;
    for (int i = 0; i < 4; ++i) {
        const long part = PyLong_AsLong(args[i]);
        if (part == -1 && PyErr_Occurred()) return -1;
        if (part < -1 || part > 99999) {
            PyErr_SetString(PyExc_ValueError, "there is no such date");
            return -1;
        }
        parts[i] = (int)part;
    }
    memset(date, 0, sizeof *date);
    date->alt_tm_year = parts[0] - 1900;
    date->alt_tm_mon = parts[1];
    date->alt_tm_monidx = parts[2];
    date->alt_tm_mday = parts[3];
    return 0;
}

PyObject *locale_to_local(PyObject *object, PyObject *const *args, Py_ssize_t count) {
    ko_alt_tm_t date, local;
    if (read_date(args, count, &date) < 0) return NULL;
    if (ko_cal_gregorian_to_local(((locale_object *)object)->loc, &date, &local) != 0)
        Py_RETURN_NONE;
    return date_tuple(&local);
}

PyObject *locale_to_gregorian(PyObject *object, PyObject *const *args, Py_ssize_t count) {
    ko_alt_tm_t date, gregorian;
    if (read_date(args, count, &date) < 0) return NULL;
    if (ko_cal_local_to_gregorian(((locale_object *)object)->loc, &date, &gregorian) != 0)
        Py_RETURN_NONE;
    return date_tuple(&gregorian);
}

/* ---- What a locale says ---- */

PyObject *locale_langinfo(PyObject *object, PyObject *item) {
    locale_object *self = (locale_object *)object;
    const unsigned long number = PyLong_AsUnsignedLong(item);
    if (PyErr_Occurred()) return NULL;
    if (number > KO_LANGINFO_MAX) Py_RETURN_NONE;
    if (number == KO_CALENDAR || number == KO_CODESET) { /* names of the library's own, in ASCII */
        const void *name = ko_nl_langinfo(self->loc, (unsigned)number);
        if (!name) Py_RETURN_NONE;
        return PyUnicode_DecodeASCII(name, (Py_ssize_t)strcspn(name, "\n"), "replace");
    }
    return str_of_string(self, ko_wc_nl_langinfo(self->loc, (unsigned)number));
}

static PyObject *group_sizes(const char *grouping) {
    PyObject *list = PyList_New(0);
    for (; list && grouping && *grouping; ++grouping) {
        PyObject *size = PyLong_FromLong(*grouping);
        if (!size || PyList_Append(list, size) < 0) Py_CLEAR(list);
        Py_XDECREF(size);
    }
    PyObject *tuple = list ? PyList_AsTuple(list) : NULL;
    Py_XDECREF(list);
    return tuple;
}

static int set_value(PyObject *dict, const char *name, PyObject *value) {
    const int result = value ? PyDict_SetItemString(dict, name, value) : -1;
    Py_XDECREF(value);
    return result;
}

static PyObject *small_value(char value) {
    if (value == 127) Py_RETURN_NONE;
    return PyLong_FromLong(value);
}

static int set_conventions(locale_object *self, const koconv *conv, PyObject *dict) {
    const struct {
        const char *name;
        const ko_wchar_t *text;
    } texts[] = {
        {"decimal_point",     conv->w_decimal_point    },
        {"thousands_sep",     conv->w_thousands_sep    },
        {"int_curr_symbol",   conv->w_int_curr_symbol  },
        {"currency_symbol",   conv->w_currency_symbol  },
        {"mon_decimal_point", conv->w_mon_decimal_point},
        {"mon_thousands_sep", conv->w_mon_thousands_sep},
        {"positive_sign",     conv->w_positive_sign    },
        {"negative_sign",     conv->w_negative_sign    },
    };
    const struct {
        const char *name;
        char value;
    } values[] = {
        {"int_frac_digits", conv->int_frac_digits},
        {"frac_digits",     conv->frac_digits    },
        {"p_cs_precedes",   conv->p_cs_precedes  },
        {"p_sep_by_space",  conv->p_sep_by_space },
        {"n_cs_precedes",   conv->n_cs_precedes  },
        {"n_sep_by_space",  conv->n_sep_by_space },
        {"p_sign_posn",     conv->p_sign_posn    },
        {"n_sign_posn",     conv->n_sign_posn    },
    };
    int error = set_value(dict, "grouping", group_sizes(conv->grouping));
    if (!error) error = set_value(dict, "mon_grouping", group_sizes(conv->mon_grouping));
    for (size_t i = 0; !error && i < sizeof texts / sizeof *texts; ++i)
        error = set_value(dict, texts[i].name, str_of_string(self, texts[i].text));
    for (size_t i = 0; !error && i < sizeof values / sizeof *values; ++i)
        error = set_value(dict, values[i].name, small_value(values[i].value));
    return error;
}

PyObject *locale_conventions(PyObject *object, PyObject *unused) {
    locale_object *self = (locale_object *)object;
    const koconv *conv = ko_localeconv(self->loc);
    (void)unused;
    if (!conv) return fail_locale(self, KO_ENOMEM);
    PyObject *dict = PyDict_New();
    if (dict && set_conventions(self, conv, dict) < 0) Py_CLEAR(dict);
    return dict;
}
