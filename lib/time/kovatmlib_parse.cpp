// Reading a time by a format: the walk over the format, and one reader for each kind of directive.
#include "chars/kovambwc.h"
#include "time/kovatmlib_quick.h"
#include "time/kovatree.h"

#include <limits.h>

namespace {
struct time_reader {
    kovaloc *loc;
    const ko_wchar_t *at; // in the text
    time_info *ti;
    bool at_end; // reading has met the terminator of the text
    time_walker walker;
    int literal(const ko_wchar_t *format, const ko_wchar_t *end);
    int directive(const time_spec &spec);
};
} // namespace

// ---- Text ----

static inline bool is_blank(const time_reader *r, ko_wchar_t wc) {
    return has_class(r->loc, wc, KO_CT_SPACE);
}
static inline unsigned ascii(const time_reader *r) { return portable(r->loc, *r->at); }

// Notes whether reading stopped at the end of the text.
static inline int ended(time_reader *r, int error) {
    r->at_end |= !*r->at;
    return error;
}

static inline void skip_blanks(time_reader *r) {
    while (*r->at && is_blank(r, *r->at))
        ++r->at;
}

// Reads a character that stands for itself; blanks before it in the text are skipped.
static int read_character(time_reader *r, ko_wchar_t wc) {
    if (*r->at != wc) skip_blanks(r);
    if (*r->at != wc) return ended(r, KO_EMISMATCH);
    ++r->at;
    return 0;
}

int time_reader::literal(const ko_wchar_t *format, const ko_wchar_t *end) {
    while (format != end) {
        if (is_blank(this, *format)) {
            skip_blanks(this);
            ended(this, 0);
            while (format != end && is_blank(this, *format))
                ++format;
            if (format == end) break;
        }
        const int error = read_character(this, *format++);
        if (error) return error;
    }
    return 0;
}

// ---- Numbers ----

// Reads an optional sign and digits, at most width units in all. A value that is too large becomes
// one outside every range. False without a digit.
static bool read_digits(time_reader *r, int width, int *value) {
    if (ascii(r) - '0' > 9) skip_blanks(r);
    const ko_wchar_t *const start = r->at;
    const bool minus = ascii(r) == '-';
    if (minus || ascii(r) == '+') ++r->at;
    const int most = (width ? width : INT_MAX) - (r->at != start);
    int n = 0;
    int64_t number = 0;
    for (unsigned digit; n < most && (digit = ascii(r) - '0') < 10; ++n, ++r->at)
        number = number > INT_MAX ? number : number * 10 + digit;
    ended(r, 0);
    number = number > INT_MAX ? INT_MAX : number;
    *value = int(minus ? -number : number);
    return n > 0;
}

// Reads a number in the locale's digits, without a sign. Where one digit is the beginning of
// another, as one is of eleven, the longer one is taken.
static bool read_alt_digits(time_reader *r, int width, int *value) {
    const ltime *t = &r->loc->ltime_info;
    skip_blanks(r);
    int left = width ? width : INT_MAX, n = 0;
    int64_t number = 0;
    for (;; ++n) {
        const wc_found found = find_longest_name(r->loc, t->alt_digits_cache, r->at, left);
        r->at_end |= !r->at[found.seen];
        if (!found.node) break;
        if (number <= INT_MAX) number = number * t->max_alt_digits + found.node->val;
        r->at += found.len;
        left -= found.len;
    }
    *value = int(number > INT_MAX ? INT_MAX : number);
    return n > 0;
}

static int read_number(time_reader *r, const time_reading &rule, int width, bool alternative) {
    int value;
    const bool found =
        alternative ? read_alt_digits(r, width, &value) : read_digits(r, width, &value);
    if (!found) return rule.missing;
    const int hi = rule.hi == by_months ? month_count(&r->loc->ltime_info) : rule.hi;
    if (value < rule.lo || value > hi) return rule.range;
    if (rule.field == &time_info::week_day) value %= 7;
    time_info *const ti = r->ti;
    ti->*rule.field = value - rule.bias;
    ti->set = (ti->set & ~rule.clear) | rule.set;
    if (rule.type) ti->*rule.type = rule.type_value;
    return 0;
}

// Reads the fraction of a second, of which six digits count; there must be at least as many as the
// digit after the letter says.
static int read_fraction(time_reader *r, const time_spec &spec) {
    if (spec.pointed) {
        if (ascii(r) != '.') return ended(r, KO_EFRACTION);
        ++r->at;
    }
    const int most = spec.m.width ? spec.m.width : INT_MAX;
    int n = 0, usec = 0;
    for (unsigned digit; n < most && (digit = ascii(r) - '0') < 10; ++r->at, ++n) {
        if (n < 6) usec = usec * 10 + int(digit);
    }
    ended(r, 0);
    if (!n || n < spec.fraction_digits) return KO_EFRACTION;
    for (; n < 6; n++)
        usec *= 10;
    r->ti->usec = usec;
    r->ti->set |= seen_usec;
    return 0;
}

// ---- Names ----

// Reads a name and returns its value, by the first tree that contains one; -1 for none.
static int read_name(time_reader *r, const wc_tnode *full, const wc_tnode *abbr) {
    for (const wc_tnode *tree : {full, abbr}) {
        const wc_found found = find_name(r->loc, tree, r->at);
        if (!found.len) r->at_end |= !r->at[found.seen];
        if (r->walker.depth) r->walker.work += work_of(found.seen);
        if (!found.node) continue;
        r->at += found.len;
        return found.node->val;
    }
    return -1;
}

static int read_day_name(time_reader *r) {
    const ltime *t = &r->loc->ltime_info;
    const int day = read_name(r, t->full_day_cache, t->abbr_day_cache);
    if (day < 0) return KO_EWDAY;
    r->ti->week_day = day;
    r->ti->set |= seen_week_day;
    return 0;
}

static int read_month_name(time_reader *r) {
    const ltime *t = &r->loc->ltime_info;
    const int month = read_name(r, t->full_mon_cache, t->abbr_mon_cache);
    if (month < 0) return KO_EMONTHNAME;
    r->ti->monidx = month;
    r->ti->set = (r->ti->set & ~ko_ulong_t{seen_mon}) | seen_monidx;
    return 0;
}

static int read_half_day(time_reader *r) {
    const int half = read_name(r, r->loc->ltime_info.ampm_cache, nullptr);
    if (half < 0) return KO_EMISMATCH;
    r->ti->ampm = half;
    r->ti->set |= seen_ampm;
    r->ti->hour_type = clock_12;
    return 0;
}

static int read_named(time_reader *r, const time_directive &row) {
    if (row.view == time_view::month_index) return read_month_name(r);
    return row.view == time_view::half_day ? read_half_day(r) : read_day_name(r);
}

static int read_era_name(time_reader *r) {
    const ltime *t = &r->loc->ltime_info;
    const int era = read_name(r, t->full_era_cache, t->abbr_era_cache);
    if (era < 0) return KO_EERA;
    r->ti->era = era;
    r->ti->set |= seen_era;
    return 0;
}

static int read_era_year(time_reader *r, int width) {
    if (!read_digits(r, width, &r->ti->era_off)) return KO_EYEAR;
    r->ti->set |= seen_era_off;
    return 0;
}

// ---- Formats inside formats ----

static int read_locale_format(time_reader *r, const time_directive &row) {
    const int error = walk_nested(r, r->loc->ltime_info.*row.format);
    return error && row.letter == 'r' ? KO_EDIRECTIVE : error;
}

// Reads by the first era whose own format matches. Each attempt starts again, so the text that it
// passes counts as work. An era that the format reads by name must have this era's name.
static int read_era_format(time_reader *r) {
    const ltime *t = &r->loc->ltime_info;
    time_info before = *r->ti;
    before.set &= ~ko_ulong_t{seen_era};
    const ko_wchar_t *const start = r->at;
    for (int i = 0; i < t->era_count; i++) {
        *r->ti = before;
        r->at = start;
        const int error = walk_nested(r, t->decode_era[i].w_format, i > 0);
        r->walker.work += work_of(r->at - start);
        if (error) {
            if (r->walker.exhausted) return error;
            continue;
        }
        if (r->ti->set & seen_era && !same_name(t->decode_era[r->ti->era], t->decode_era[i]))
            continue;
        r->ti->era = i;
        r->ti->set |= seen_era;
        return 0;
    }
    return KO_EERA;
}

// ---- Directives ----

static int read_unit(time_reader *r, const time_directive &row) {
    const ko_wchar_t *const start = r->at;
    if (row.letter != '%') {
        skip_blanks(r);
        return ended(r, r->at == start ? KO_EMISMATCH : 0);
    }
    if (ascii(r) != '%') return ended(r, KO_EDIRECTIVE);
    ++r->at;
    return 0;
}

// Reads numbers with signs between them; the width does not apply to them.
static int read_parts(time_reader *r, const time_spec &spec) {
    return each_part(
        spec,
        [r](const time_spec &part) {
            return read_number(r, part.row->reading, 0, part.alternative);
        },
        [r](char sign) { return read_character(r, native(r->loc, sign)); });
}

int time_reader::directive(const time_spec &spec) {
    if (walker.depth && walker.spent()) return KO_EDIRECTIVE;
    const time_directive &row = *spec.row;
    if (&row == era_by_letter[uint8_t(row.letter)]) ti->year_type = year_of_era;
    switch (row.kind) {
    case time_kind::unit:
        return read_unit(this, row);
    case time_kind::name:
        return read_named(this, row);
    case time_kind::number:
    case time_kind::day:
        return read_number(this, row.reading, spec.m.width, spec.alternative);
    case time_kind::fraction:
        return read_fraction(this, spec);
    case time_kind::parts:
        return read_parts(this, spec);
    case time_kind::format:
        return read_locale_format(this, row);
    case time_kind::era_name:
        return read_era_name(this);
    case time_kind::era_year:
        return read_era_year(this, spec.m.width);
    case time_kind::era_format:
        return read_era_format(this);
    case time_kind::forms:
        break;
    }
    return KO_EDIRECTIVE;
}

// ---- Entries ----

namespace {
struct time_read {
    int error;
    const ko_wchar_t *end; // after what was read
    bool at_end;           // the error or the end might differ in a longer text
};

// The beginning of a multibyte text as at most room - 1 wide characters and a terminator. It ends
// early at what is not a character.
struct text_front {
    int len;
    enum { whole, cut, broken } state;
};
} // namespace

static time_read read_time(kovaloc *loc, const ko_wchar_t *text, const ko_wchar_t *format,
                           time_info *ti) {
    *ti = {};
    time_reader r = {.loc = loc, .at = text, .ti = ti};
    const int error = walk_format(&r, format);
    return {error, r.at, r.at_end};
}

static text_front widen_front(kovaloc *loc, ko_wchar_t *wide, int room, const ko_mchar_t *text) {
    const int most = room - 1, n = loc->exp.single_byte ? is_mbstowcs(loc, wide, text, most)
                                                        : widen_quietly(loc, wide, text, most);
    text_front front = {n, n == most ? text_front::cut : text_front::whole};
    for (int i = 0; front.len < 0; i++) {
        const int bytes = i < most ? read_wide_char(loc, &wide[i], text) : 0;
        if (bytes < 1) front = {i, i < most ? text_front::broken : text_front::cut};
        text += bytes;
    }
    wide[front.len] = 0;
    return front;
}

// Reads as much of the beginning of a text as room can hold. False if the rest may make a
// difference.
static bool read_front(kovaloc *loc, const ko_mchar_t *text, const ko_wchar_t *format,
                       ko_wchar_t *wide, int room, time_info *ti, time_read *result) {
    const text_front front = widen_front(loc, wide, room, text);
    *result = read_time(loc, wide, format, ti);
    if (!result->at_end || front.state == text_front::whole || room == INT_MAX) return true;
    if (front.state == text_front::cut) return false;
    if (result->error) result->error = KO_EILSEQ;
    return true;
}

// The place of character n in a multibyte text.
static const ko_mchar_t *place_of(kovaloc *loc, const ko_mchar_t *text, ptrdiff_t n) {
    if (loc->exp.single_byte) return text + n;
    while (n--)
        text += ko_full_mblen(loc, text, 4);
    return text;
}

// Reads with the engine. *end gets the place after what was read. 0 or the error number.
static int engine_parse(kovaloc *loc, const ko_wchar_t *text, const ko_wchar_t *format,
                        time_info *ti, const ko_wchar_t **end) {
    const time_read result = read_time(loc, text, format, ti);
    *end = result.end;
    return result.error;
}

// Converts a multibyte text only as far as reading needs it, since a long text may follow the date.
[[gnu::noinline]] static int engine_parse(kovaloc *loc, const ko_mchar_t *text,
                                          const ko_mchar_t *format, time_info *ti,
                                          const ko_mchar_t **end) {
    wide_text wide_format;
    const int error = try_widen(loc, format, &wide_format);
    if (error < 0) return -error;
    time_read result;
    ko_wchar_t local[wide_text_room];
    bool enough = read_front(loc, text, wide_format.p, local, wide_text_room, ti, &result);
    ptrdiff_t len = result.end - local;
    for (int room = wide_text_room; !enough;) {
        room = room > INT_MAX / 8 ? INT_MAX : room * 8;
        ext_block<ko_wchar_t> wide{size_t(room)};
        if (!wide.p) return KO_ENOMEM;
        enough = read_front(loc, text, wide_format.p, wide.p, room, ti, &result);
        len = result.end - wide.p;
    }
    if (!result.error) *end = place_of(loc, text, len);
    return result.error;
}

// Reads in the quick way or else with the engine. Returns the place after what was read; NULL with
// *error.
template <class Unit>
static inline const Unit *read_text(kovaloc *loc, const Unit *text, const Unit *format,
                                    time_info *ti, int *error) {
    const Unit *end = quick_parse(loc, text, format, ti);
    if (end) return end;
    *error = engine_parse(loc, text, format, ti, &end);
    return *error ? nullptr : end;
}

// The error number of bad arguments, 0 for good ones.
static int bad_arguments(ko_lc_t loc, const void *text, const void *format, const void *result) {
    if (!loc) return KO_ENULL;
    if (!format) return KO_EFORMAT;
    return text && result ? 0 : KO_ENULL;
}

ko_wchar_t *ko_wcsptime1(ko_lc_t loc, const ko_wchar_t *buf, const ko_wchar_t *format,
                         time_info *ti, int) {
    ko_wchar_t *const none = nullptr;
    int error = bad_arguments(loc, buf, format, ti);
    if (error) return fail(loc, error, none);
    *ti = {};
    const ko_wchar_t *const end = read_text(record(loc), buf, format, ti, &error);
    return error ? fail(loc, error, none) : const_cast<ko_wchar_t *>(end);
}

template <class Unit>
static inline Unit *parse_tm(ko_lc_t loc, const Unit *text, const Unit *format, ko_tm_t *tm,
                             int algorithm) {
    Unit *const none = nullptr;
    int error = bad_arguments(loc, text, format, tm);
    if (error) return fail(loc, error, none);
    time_info ti = {};
    const Unit *const end = read_text(record(loc), text, format, &ti, &error);
    if (!error) error = set_values(record(loc), &ti, algorithm, tm);
    return error ? fail(loc, error, none) : const_cast<Unit *>(end);
}

ko_wchar_t *ko_wcsptime(ko_lc_t loc, const ko_wchar_t *buf, const ko_wchar_t *format, ko_tm_t *tm,
                        int algorithm) {
    return parse_tm(loc, buf, format, tm, algorithm);
}

ko_mchar_t *ko_mbsptime(ko_lc_t loc, const ko_mchar_t *buf, const ko_mchar_t *format, ko_tm_t *tm,
                        int algorithm) {
    return parse_tm(loc, buf, format, tm, algorithm);
}
