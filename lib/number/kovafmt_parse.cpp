// Number parsing: matching a format against a text.
#include "chars/kovambwc.h"
#include "number/kovafmt_out.h"
#include "number/kovalibn.h"

#include <limits.h>

namespace {
// A call of the parser: what persists from directive to directive.
struct parsing {
    kovaloc *loc;
    const ko_wchar_t *in; // what has not been read yet
    format_modifiers m;
    int stored;
    va_list pointers;
};
} // namespace

static bool is_space(kovaloc *loc, ko_wchar_t wc) { return wc && has_class(loc, wc, KO_CT_SPACE); }

static void skip_space(kovaloc *loc, const ko_wchar_t **text) {
    while (is_space(loc, **text))
        ++*text;
}

// Gets the place for the next value, NULL for a suppressed directive. False for a NULL pointer.
static bool next_pointer(parsing *p, void **to) {
    *to = p->m.width_star ? nullptr : va_arg(p->pointers, void *);
    return *to || p->m.width_star || fail(p->loc, KO_ENULL, false);
}

// Characters that a directive may read.
static int limit_of(const format_modifiers &m) { return m.width > 0 ? m.width : INT_MAX; }

// ---- Values ----

// Reads the number after a sign, at most most units. Returns the units read, -1 with the error word
// set.
static int scan_digits(parsing *p, const ko_wchar_t *text, int most, int base, ko_ulong_t *value) {
    if (most < 1 || digit_of(p->loc, *text) >= unsigned(base)) {
        return fail(p->loc, KO_EDIRECTIVE, -1);
    }
    const bool grouped = (p->m.flags & fmt_group) != 0;
    if (grouped) most = grouped_run(p->loc, text, most, base);
    const int read = read_ulong(p->loc, text, most, base, grouped, value);
    return read ? read : fail(p->loc, KO_EDIRECTIVE, -1);
}

static bool scan_decimal(parsing *p, const number_letter &row, char size) {
    const ko_wchar_t *at = p->in;
    int most = limit_of(p->m);
    for (; most && is_space(p->loc, *at); --most)
        ++at;
    const bool negative = most && portable(p->loc, *at) == '-';
    if (negative) {
        if (!row.is_signed) return fail(p->loc, KO_EDIRECTIVE, false);
        ++at;
        --most;
    }
    ko_ulong_t value;
    const int read = scan_digits(p, at, most, row.base, &value);
    if (read < 0) return false;
    if (negative) value = 0 - value;
    void *to;
    if (!next_pointer(p, &to)) return false;
    p->in = at + read;
    if (to && size == 'h') *static_cast<uint16_t *>(to) = uint16_t(value);
    if (to && size != 'h') *static_cast<uint32_t *>(to) = value;
    return true;
}

static bool scan_float(parsing *p) {
    if (is_space(p->loc, *p->in)) return fail(p->loc, KO_EDIRECTIVE, false);
    const bool grouped = (p->m.flags & fmt_group) != 0;
    double value;
    const int read = read_real(p->loc, p->in, limit_of(p->m), grouped, mode_number, &value);
    if (!read) set_error(p->loc, KO_EDIRECTIVE);
    void *to;
    if (read < 1 || !next_pointer(p, &to)) return false;
    p->in += read;
    if (to) *static_cast<double *>(to) = value;
    return true;
}

static bool scan_char(parsing *p, char size) {
    const ko_wchar_t wc = *p->in;
    if (!wc) return fail(p->loc, KO_EDIRECTIVE, false);
    void *to;
    if (!next_pointer(p, &to)) return false;
    ++p->in;
    if (!to) return true;
    if (size != 'l') return ko_full_wctomb(p->loc, static_cast<ko_mchar_t *>(to), wc) > 0;
    *static_cast<ko_wchar_t *>(to) = wc;
    return true;
}

// Stores the rest of the text, but deliberately leaves it to be read by the next directive.
static bool scan_string(parsing *p, char size) {
    void *to;
    if (!next_pointer(p, &to)) return false;
    if (!to) return true;
    const ko_wchar_t *from = p->in;
    int left = limit_of(p->m), n = 1;
    if (size == 'l') {
        auto *wcs = static_cast<ko_wchar_t *>(to);
        for (; *from && left > 0; --left)
            *wcs++ = *from++;
        *wcs = 0;
        return true;
    }
    auto *mbs = static_cast<ko_mchar_t *>(to);
    for (; *from && left > 0; mbs += n, --left) {
        n = ko_full_wctomb(p->loc, mbs, *from++);
        if (n < 1) break;
    }
    ko_mbsterm(p->loc, mbs);
    return n > 0;
}

// ---- The walk ----

// Reads by a directive, from the place after its "%".
static bool scan_directive(parsing *p, const ko_wchar_t **format) {
    kovaloc *const loc = p->loc;
    if (const int error = scan_format_modifiers(loc, format, &p->m)) {
        return fail(loc, error, false);
    }
    const char size = scan_size(loc, format);
    if (!**format) return fail(loc, KO_EFORMAT, false);
    const number_letter *const row = find_number_letter(portable(loc, **format));
    if (!row) return fail(loc, KO_EDIRECTIVE, false);
    ++*format;
    if (!(p->m.flags & (fmt_left | fmt_zero))) skip_space(loc, &p->in);
    const bool done = row->kind == number_integer ? scan_decimal(p, *row, size)
                      : row->kind == number_real  ? scan_float(p)
                      : row->kind == number_char  ? scan_char(p, size)
                                                  : scan_string(p, size);
    if (done && !p->m.width_star) ++p->stored;
    return done;
}

// Matches the next piece of the format; false when reading ends.
static bool scan_step(parsing *p, const ko_wchar_t **format) {
    const ko_wchar_t percent = native(p->loc, '%'), wc = *(*format)++;
    if (wc == percent && **format != percent) return scan_directive(p, format);
    if (is_space(p->loc, wc)) {
        skip_space(p->loc, format);
        skip_space(p->loc, &p->in);
        return true;
    }
    if (*p->in != wc) return fail(p->loc, KO_EDIRECTIVE, false);
    if (wc == percent) ++*format;
    ++p->in;
    return true;
}

int ko_wcspnum1(ko_lc_t loc, const ko_wchar_t *in, const ko_wchar_t *format, va_list pointers) {
    if (!loc || !in || !format) return fail(loc, KO_ENULL, 0);
    parsing p = {.loc = record(loc), .in = in};
    va_copy(p.pointers, pointers);
    while (*format && scan_step(&p, &format))
        continue;
    va_end(p.pointers);
    return p.stored;
}

int ko_wcspnum(ko_lc_t loc, const ko_wchar_t *in, const ko_wchar_t *format, ...) {
    va_list pointers;
    va_start(pointers, format);
    const int stored = ko_wcspnum1(loc, in, format, pointers);
    va_end(pointers);
    return stored;
}

int ko_mbspnum(ko_lc_t loc, const ko_mchar_t *in, const ko_mchar_t *format, ...) {
    if (!loc || !in || !format) return fail(loc, KO_ENULL, -1);
    wide_text text, wide_format;
    if (widen_text(record(loc), in, &text) < 0) return -1;
    if (widen_text(record(loc), format, &wide_format) < 0) return -1;
    va_list pointers;
    va_start(pointers, format);
    const int stored = ko_wcspnum1(loc, text.p, wide_format.p, pointers);
    va_end(pointers);
    return stored > 0 ? stored : -1;
}
