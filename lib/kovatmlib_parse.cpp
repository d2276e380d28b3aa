// Reading a time by a format: the walk over the format, and one reader for each kind of directive.
#include "kovatmlib_parse.h"
#include "kovafmt.h"
#include "kovambwc.h"
#include "kovaportable.h"
#include "kovatree.h"

#include <limits.h>
#include <string.h>

#include <array>

// Formats inside formats of one call, however they are nested: eras try theirs one after another.
constexpr int nested_max = 4096;

struct time_walk {
    kovaloc *loc;
    const ko_wchar_t *at;     // in the text
    const ko_wchar_t *format; // behind the directive's letter, for one that has more than that
    time_info *ti;
    int depth;
    int nested;
    bool at_end; // reading has met the terminator of the text
};

// What stands between "%" and the letter.
struct time_manner {
    int width;        // 0: none
    bool alternative; // in the locale's digits
};

static int read_format(time_walk *w, const ko_wchar_t *format);

// ---- Text ---------------------------------------------------------------------------------------

static inline bool is_blank(const time_walk *w, ko_wchar_t wc) {
    return has_class(w->loc, wc, KO_CT_SPACE);
}
static inline unsigned ascii(const time_walk *w) { return portable(w->loc, *w->at); }

// Notes whether reading stopped at the end of the text.
static inline int ended(time_walk *w, int error) {
    w->at_end |= !*w->at;
    return error;
}

static inline void skip_blanks(time_walk *w) {
    while (*w->at && is_blank(w, *w->at))
        ++w->at;
}

// A character that stands for itself; blanks before it in the text do not count.
static int read_character(time_walk *w, ko_wchar_t wc) {
    if (*w->at != wc) skip_blanks(w);
    if (*w->at != wc) return ended(w, KO_EMISMATCH);
    ++w->at;
    return 0;
}

// What the format holds up to a directive or behind the next character that is no blank.
static int read_text(time_walk *w) {
    if (is_blank(w, *w->format)) {
        skip_blanks(w);
        ended(w, 0);
        while (*w->format && is_blank(w, *w->format))
            ++w->format;
        if (!*w->format || portable(w->loc, *w->format) == '%') return 0;
    }
    return read_character(w, *w->format++);
}

// ---- Numbers ------------------------------------------------------------------------------------

// A sign or none and digits, at most width units of both. A value that is too large becomes one
// that no range has. False without a digit.
static bool read_digits(time_walk *w, int width, int *value) {
    if (ascii(w) - '0' > 9) skip_blanks(w);
    const ko_wchar_t *const start = w->at;
    const bool minus = ascii(w) == '-';
    if (minus || ascii(w) == '+') ++w->at;
    const int most = (width ? width : INT_MAX) - (w->at != start);
    int n = 0;
    int64_t number = 0;
    for (unsigned digit; n < most && (digit = ascii(w) - '0') < 10; ++n, ++w->at)
        number = number > INT_MAX ? number : number * 10 + digit;
    ended(w, 0);
    number = number > INT_MAX ? INT_MAX : number;
    *value = static_cast<int>(minus ? -number : number);
    return n > 0;
}

static bool has_alt_digits(const ltime *t) { return t->max_alt_digits >= 2; }

// The same in the locale's digits, without a sign.
static bool read_alt_digits(time_walk *w, int width, int *value) {
    const ltime *t = &w->loc->ltime_info;
    skip_blanks(w);
    int left = width ? width : INT_MAX, n = 0;
    int64_t number = 0;
    for (;; ++n) {
        const wc_found found = find_name(w->loc, t->alt_digits_cache, w->at);
        w->at_end |= !w->at[found.seen];
        if (!found.node || found.len > left) break;
        if (number <= INT_MAX) number = number * t->max_alt_digits + found.node->val;
        w->at += found.len;
        left -= found.len;
    }
    *value = static_cast<int>(number > INT_MAX ? INT_MAX : number);
    return n > 0;
}

// A directive that reads a number.
struct number_rule {
    char letter;
    int time_info::*field;
    unsigned set;
    unsigned clear;
    ko_errnum missing;
    ko_errnum range;
    int lo;
    int hi; // 0: by the locale's months
    int bias;
    int time_info::*type; // NULL: none
    int type_value;
};
static constexpr number_rule number_rules[] = {
    {'C', &time_info::century,   seen_century,   0,           KO_EYEAR,  KO_EYEARRANGE,  0, 99,   0,
     &time_info::year_type,                                                                                      year_short},
    {'g', &time_info::century,   seen_century,   0,           KO_EYEAR,  KO_EYEARRANGE,  0, 99,   0,
     &time_info::year_type,                                                                                      year_short},
    {'d', &time_info::month_day, seen_month_day, 0,           KO_EDAY,   KO_EDAYRANGE,   1, 31,   0,    nullptr, 0         },
    {'e', &time_info::month_day, seen_month_day, 0,           KO_EDAY,   KO_EDAYRANGE,   1, 31,   0,    nullptr, 0         },
    {'H', &time_info::hour24,    seen_hour24,    0,           KO_EHOUR,  KO_EHOURRANGE,  0, 23,   0,
     &time_info::hour_type,                                                                                      clock_24  },
    {'I', &time_info::hour12,    seen_hour12,    0,           KO_EHOUR,  KO_EHOURRANGE,  1, 12,   0,
     &time_info::hour_type,                                                                                      clock_12  },
    {'j', &time_info::year_day,  seen_year_day,  0,           KO_EYDAY,  KO_EYDAYRANGE,  1, 366,  1,    nullptr, 0         },
    {'m', &time_info::mon,       seen_mon,       seen_monidx, KO_EMONTH, KO_EMONTHRANGE, 1, 0,    1,    nullptr, 0         },
    {'M', &time_info::minute,    seen_minute,    0,           KO_EMIN,   KO_EMINRANGE,   0, 59,   0,    nullptr, 0         },
    {'S', &time_info::second,    seen_second,    0,           KO_ESEC,   KO_ESECRANGE,   0, 61,   0,    nullptr, 0         },
    {'u', &time_info::week_day,  seen_week_day,  0,           KO_EWDAY,  KO_EWDAYRANGE,  1, 7,    0,    nullptr, 0         },
    {'w', &time_info::week_day,  seen_week_day,  0,           KO_EWDAY,  KO_ERANGE,      0, 6,    0,    nullptr, 0         },
    {'y', &time_info::year_off,  seen_year_off,  0,           KO_EYEAR,  KO_ERANGE,      0, 99,   0,
     &time_info::year_type,                                                                                      year_short},
    {'Y', &time_info::full_year, seen_full_year, 0,           KO_EYEAR,  KO_ERANGE,      0, 9999, 1900,
     &time_info::year_type,                                                                                      year_full },
};

// A record without times counts as Gregorian.
static int months_of(const ltime *t) { return t->calendar == calendar_none ? 12 : t->mon_count; }

static int read_number(time_walk *w, const number_rule &rule, const time_manner &how) {
    int value;
    const bool found =
        how.alternative ? read_alt_digits(w, how.width, &value) : read_digits(w, how.width, &value);
    if (!found) return rule.missing;
    const int hi = rule.hi ? rule.hi : months_of(&w->loc->ltime_info);
    if (value < rule.lo || value > hi) return rule.range;
    time_info *const ti = w->ti;
    ti->*rule.field = value - rule.bias;
    ti->set = (ti->set & ~rule.clear) | rule.set;
    if (rule.type) ti->*rule.type = rule.type_value;
    return 0;
}

// The digits behind the point of a second, six of which count; at least as many as the digit behind
// the letter says.
static int read_fraction(time_walk *w, const time_manner &how) {
    int width = how.width, needed = 0;
    if (const unsigned digit = portable(w->loc, *w->format) - '0'; digit < 10) {
        if (digit > 5) return KO_EDIRECTIVE;
        ++w->format;
        needed = static_cast<int>(digit);
        if (width < needed) width = needed;
    }
    int n = 0, usec = 0;
    for (unsigned digit; (!width || n < width) && (digit = ascii(w) - '0') < 10; ++w->at) {
        if (n < 6) usec = usec * 10 + static_cast<int>(digit);
        if (n < INT_MAX) ++n;
    }
    if (!n || n < needed) return ended(w, KO_EFRACTION);
    for (int i = n; i < 6; i++)
        usec *= 10;
    w->ti->usec = usec;
    w->ti->set |= seen_usec;
    return ended(w, 0);
}

// ---- Names --------------------------------------------------------------------------------------

// The value of the name that the text goes on with, by the first tree that has one; -1 for none.
static int read_name(time_walk *w, const wc_tnode *full, const wc_tnode *abbr) {
    for (const wc_tnode *tree : {full, abbr}) {
        const wc_found found = find_name(w->loc, tree, w->at);
        if (!found.len) w->at_end |= !w->at[found.seen];
        if (!found.node) continue;
        w->at += found.len;
        return found.node->val;
    }
    return -1;
}

static int read_day_name(time_walk *w, const time_manner &) {
    const ltime *t = &w->loc->ltime_info;
    const int day = read_name(w, t->full_day_cache, t->abbr_day_cache);
    if (day < 0) return KO_EWDAY;
    w->ti->week_day = day;
    w->ti->set |= seen_week_day;
    return 0;
}

static int read_month_name(time_walk *w, const time_manner &) {
    const ltime *t = &w->loc->ltime_info;
    const int month = read_name(w, t->full_mon_cache, t->abbr_mon_cache);
    if (month < 0) return KO_EMONTHNAME;
    w->ti->monidx = month;
    w->ti->set = (w->ti->set & ~unsigned{seen_mon}) | seen_monidx;
    return 0;
}

static int read_ampm(time_walk *w, const time_manner &) {
    const int half = read_name(w, w->loc->ltime_info.ampm_cache, nullptr);
    if (half < 0) return KO_EMISMATCH;
    w->ti->ampm = half;
    w->ti->set |= seen_ampm;
    w->ti->hour_type = clock_12;
    return 0;
}

static int read_era_year(time_walk *w, const time_manner &how) {
    if (!read_digits(w, how.width, &w->ti->era_off)) return KO_EYEAR;
    w->ti->set |= seen_era_off;
    return 0;
}

static int read_era_name(time_walk *w, const time_manner &) {
    const ltime *t = &w->loc->ltime_info;
    const int era = read_name(w, t->full_era_cache, t->abbr_era_cache);
    if (era < 0) return KO_EERA;
    w->ti->era = era;
    w->ti->set |= seen_era;
    return 0;
}

// ---- Formats inside formats ---------------------------------------------------------------------

static int read_nested(time_walk *w, const ko_wchar_t *format) {
    if (!format || !*format) return 0;
    if (w->depth == format_depth_max || w->nested == nested_max) return KO_EDIRECTIVE;
    const ko_wchar_t *const outer = w->format;
    ++w->nested;
    ++w->depth;
    const int error = read_format(w, format);
    --w->depth;
    w->format = outer;
    return error;
}

// The first era whose own format fits. An era that the format reads by name is of this name.
static int read_full_era(time_walk *w, const time_manner &) {
    const ltime *t = &w->loc->ltime_info;
    time_info before = *w->ti;
    before.set &= ~unsigned{seen_era};
    const ko_wchar_t *const start = w->at;
    for (int i = 0; i < t->era_count; i++) {
        *w->ti = before;
        w->at = start;
        if (read_nested(w, t->decode_era[i].w_format)) continue;
        if (w->ti->set & seen_era && !same_name(t->decode_era[w->ti->era], t->decode_era[i]))
            continue;
        w->ti->era = i;
        w->ti->set |= seen_era;
        return 0;
    }
    return KO_EERA;
}

// ---- Directives ---------------------------------------------------------------------------------

static int read_blanks(time_walk *w, const time_manner &) {
    const ko_wchar_t *const start = w->at;
    skip_blanks(w);
    return ended(w, w->at == start ? KO_EMISMATCH : 0);
}

static int read_percent(time_walk *w, const time_manner &) {
    if (ascii(w) != '%') return ended(w, KO_EDIRECTIVE);
    ++w->at;
    return 0;
}

static int read_era_form(time_walk *w, const time_manner &how);
static int read_alternative(time_walk *w, const time_manner &how);
static int read_index_form(time_walk *w, const time_manner &how);

// What a letter reads: a number, by its rule; numbers and the signs between them; a format of the
// locale; or what a reader of its own takes.
struct time_directive {
    char letter;
    int (*read)(time_walk *w, const time_manner &how);
    ko_wchar_t *ltime::*format;
    const char *parts;
};
static constexpr time_directive directives[] = {
    {'%', read_percent,     nullptr,              nullptr},
    {'a', read_day_name,    nullptr,              nullptr},
    {'A', read_day_name,    nullptr,              nullptr},
    {'b', read_month_name,  nullptr,              nullptr},
    {'B', read_month_name,  nullptr,              nullptr},
    {'h', read_month_name,  nullptr,              nullptr},
    {'p', read_ampm,        nullptr,              nullptr},
    {'F', read_fraction,    nullptr,              nullptr},
    {'n', read_blanks,      nullptr,              nullptr},
    {'t', read_blanks,      nullptr,              nullptr},
    {'E', read_era_form,    nullptr,              nullptr},
    {'O', read_alternative, nullptr,              nullptr},
    {'i', read_index_form,  nullptr,              nullptr},
    {'c', nullptr,          &ltime::w_d_t_fmt,    nullptr},
    {'x', nullptr,          &ltime::w_d_fmt,      nullptr},
    {'X', nullptr,          &ltime::w_t_fmt,      nullptr},
    {'r', nullptr,          &ltime::w_t_fmt_ampm, nullptr},
    {'D', nullptr,          nullptr,              "m/d/y"},
    {'R', nullptr,          nullptr,              "H:M"  },
    {'T', nullptr,          nullptr,              "H:M:S"},
};
static constexpr time_directive era_directives[] = {
    {'C', read_era_name, nullptr,               nullptr},
    {'g', read_era_name, nullptr,               nullptr},
    {'y', read_era_year, nullptr,               nullptr},
    {'Y', read_full_era, nullptr,               nullptr},
    {'c', nullptr,       &ltime::w_era_d_t_fmt, nullptr},
    {'x', nullptr,       &ltime::w_era_d_fmt,   nullptr},
    {'X', nullptr,       &ltime::w_era_t_fmt,   nullptr},
};
static constexpr char alternative_letters[] = "CDHIMRSTdejmuwy", index_letters[] = "FYy";

// Rows by letter, counted from 1.
using letter_index = std::array<unsigned char, 128>;
template <class Row, size_t n> static constexpr letter_index by_letter(const Row (&rows)[n]) {
    letter_index index{};
    for (size_t i = 0; i < n; i++)
        index[static_cast<unsigned char>(rows[i].letter)] = static_cast<unsigned char>(i + 1);
    return index;
}
static constexpr letter_index number_index = by_letter(number_rules);
static constexpr letter_index directive_index = by_letter(directives);
static constexpr letter_index era_index = by_letter(era_directives);

static int read_letter(time_walk *w, unsigned letter, const time_manner &how);

static int read_row(time_walk *w, const time_directive &row, const time_manner &how) {
    if (row.read) return row.read(w, how);
    if (!row.parts) {
        const int error = read_nested(w, w->loc->ltime_info.*row.format);
        return error && row.letter == 'r' ? KO_EDIRECTIVE : error;
    }
    for (const char *part = row.parts; *part; part++) {
        const bool sign = !number_index[static_cast<unsigned char>(*part)];
        const int error = sign ? read_character(w, native(w->loc, *part))
                               : read_letter(w, static_cast<unsigned char>(*part), how);
        if (error) return error;
    }
    return 0;
}

static int read_letter(time_walk *w, unsigned letter, const time_manner &how) {
    if (letter >= 128) return KO_EDIRECTIVE;
    if (const unsigned n = number_index[letter]) return read_number(w, number_rules[n - 1], how);
    if (const unsigned n = directive_index[letter]) return read_row(w, directives[n - 1], how);
    return KO_EDIRECTIVE;
}

// The letter behind one that has several forms, and the format moved behind it; 0 at its end.
static unsigned next_letter(time_walk *w) {
    return *w->format ? portable(w->loc, *w->format++) : 0;
}

static int read_era_form(time_walk *w, const time_manner &how) {
    const unsigned letter = next_letter(w);
    if (!letter) return KO_EFORMAT;
    const unsigned n = letter < 128 ? era_index[letter] : 0;
    if (!n) return KO_EDIRECTIVE;
    w->ti->year_type = year_of_era;
    return read_row(w, era_directives[n - 1], how);
}

static int read_alternative(time_walk *w, const time_manner &how) {
    const unsigned letter = next_letter(w);
    if (!letter) return KO_EFORMAT;
    if (letter >= 128 || !strchr(alternative_letters, static_cast<int>(letter)))
        return KO_EDIRECTIVE;
    // A date or time of several numbers has no width.
    const int width = number_index[letter] ? how.width : 0;
    return read_letter(w, letter, {width, true});
}

static int read_index_form(time_walk *w, const time_manner &how) {
    const unsigned letter = next_letter(w);
    if (!letter) return KO_EFORMAT;
    if (letter >= 128 || !strchr(index_letters, static_cast<int>(letter))) return KO_EDIRECTIVE;
    if (letter == 'F') {
        if (ascii(w) != '.') return ended(w, KO_EFRACTION);
        ++w->at;
    }
    return read_letter(w, letter, how);
}

// ---- The walk -----------------------------------------------------------------------------------

// A directive, its "%" taken.
static int read_directive(time_walk *w) {
    const ltime *t = &w->loc->ltime_info;
    time_manner how = {};
    unsigned letter = portable(w->loc, *w->format);
    if (letter - 'A' > 'z' - 'A') {
        format_modifiers m = {};
        const int error = scan_format_modifiers(w->loc, &w->format, &m);
        if (error) return error;
        if (m.width_star || m.precision_star) return KO_EDIRECTIVE;
        how.width = m.width;
    }
    letter = next_letter(w);
    const bool plain = (letter == 'E' && !t->era_count) || (letter == 'O' && !has_alt_digits(t));
    if (plain) {
        letter = next_letter(w);
        if (letter == 'E' || letter == 'O') return KO_EDIRECTIVE; // one is taken as not there
    }
    return letter ? read_letter(w, letter, how) : KO_EFORMAT;
}

static int read_format(time_walk *w, const ko_wchar_t *format) {
    w->format = format;
    for (int error = 0; *w->format;) {
        if (portable(w->loc, *w->format) != '%') {
            error = read_text(w);
        } else {
            ++w->format;
            error = read_directive(w);
        }
        if (error) return error;
    }
    return 0;
}

// ---- Entry points -------------------------------------------------------------------------------

struct time_read {
    int error;
    const ko_wchar_t *end; // behind what was read
    bool at_end;           // the error or the end might be others in a longer text
};
static time_read read_time(kovaloc *loc, const ko_wchar_t *text, const ko_wchar_t *format,
                           time_info *ti) {
    time_walk w = {.loc = loc, .at = text, .ti = ti};
    const int error = read_format(&w, format);
    return {error, w.at, w.at_end};
}

// What is wrong with the arguments, 0 for nothing.
static int bad_arguments(const void *text, const void *format, const void *result) {
    if (!format) return KO_EFORMAT;
    return text && result ? 0 : KO_ENULL;
}

ko_wchar_t *ko_wcsptime1(ko_lc_t loc, const ko_wchar_t *buf, const ko_wchar_t *format,
                         time_info *ti, int) {
    ko_wchar_t *const none = nullptr;
    if (const int error = bad_arguments(buf, format, ti)) return fail(loc, error, none);
    const time_read result = read_time(record(loc), buf, format, ti);
    return result.error ? fail(loc, result.error, none) : const_cast<ko_wchar_t *>(result.end);
}

ko_wchar_t *ko_wcsptime(ko_lc_t loc, const ko_wchar_t *buf, const ko_wchar_t *format, ko_tm_t *tm,
                        int algorithm) {
    ko_wchar_t *const none = nullptr;
    if (const int error = bad_arguments(buf, format, tm)) return fail(loc, error, none);
    time_info ti = {};
    const time_read result = read_time(record(loc), buf, format, &ti);
    int error = result.error;
    if (!error) error = set_values(record(loc), &ti, algorithm, tm);
    return error ? fail(loc, error, none) : const_cast<ko_wchar_t *>(result.end);
}

// The front of a multibyte text as wide characters, at most room - 1 of them and a terminator. It
// ends early at what is no character.
struct text_front {
    int len;
    enum { whole, cut, broken } state;
};
static text_front widen_front(kovaloc *loc, ko_wchar_t *wide, int room, const ko_mchar_t *text) {
    errno_guard kept(loc);
    const int most = room - 1, n = loc->exp.mbstowcs(loc, wide, text, most);
    text_front front = {n, n == most ? text_front::cut : text_front::whole};
    for (int i = 0; front.len < 0; i++) {
        const int bytes = i < most ? ko_full_mbtowc(loc, &wide[i], text, 4) : 0;
        if (bytes < 1) front = {i, i < most ? text_front::broken : text_front::cut};
        text += bytes;
    }
    wide[front.len] = 0;
    return front;
}

// Reads the front of a text that room takes. False when the rest may make a difference.
static bool read_front(kovaloc *loc, const ko_mchar_t *text, const ko_wchar_t *format,
                       ko_wchar_t *wide, int room, time_info *ti, time_read *result) {
    *ti = {};
    const text_front front = widen_front(loc, wide, room, text);
    *result = read_time(loc, wide, format, ti);
    if (!result->at_end || front.state == text_front::whole || room == INT_MAX) return true;
    if (front.state == text_front::cut) return false;
    result->error = KO_EILSEQ;
    return true;
}

// A text is taken in as far as reading needs it, for a date may stand before a long one. *len gets
// the characters read. 0 or the error number.
static int read_multibyte(kovaloc *loc, const ko_mchar_t *text, const ko_wchar_t *format,
                          time_info *ti, ptrdiff_t *len) {
    time_read result;
    ko_wchar_t local[wide_text_room];
    bool enough = read_front(loc, text, format, local, wide_text_room, ti, &result);
    *len = result.end - local;
    for (int room = wide_text_room; !enough;) {
        room = room > INT_MAX / 8 ? INT_MAX : room * 8;
        ext_block<ko_wchar_t> wide(static_cast<size_t>(room));
        if (!wide.p) return KO_ENOMEM;
        enough = read_front(loc, text, format, wide.p, room, ti, &result);
        *len = result.end - wide.p;
    }
    return result.error;
}

// The place of a character in a multibyte text.
static const ko_mchar_t *place_of(kovaloc *loc, const ko_mchar_t *text, ptrdiff_t n) {
    if (loc->exp.single_byte) return text + n;
    while (n--)
        text += ko_full_mblen(loc, text, 4);
    return text;
}

ko_mchar_t *ko_mbsptime(ko_lc_t loc, const ko_mchar_t *buf, const ko_mchar_t *format, ko_tm_t *tm,
                        int algorithm) {
    ko_mchar_t *const none = nullptr;
    if (const int error = bad_arguments(buf, format, tm)) return fail(loc, error, none);
    kovaloc *const r = record(loc);
    wide_text wide_format;
    if (widen_text(r, format, &wide_format) < 0) return none;
    time_info ti;
    ptrdiff_t len;
    int error = read_multibyte(r, buf, wide_format.p, &ti, &len);
    if (!error) error = set_values(r, &ti, algorithm, tm);
    return error ? fail(loc, error, none) : const_cast<ko_mchar_t *>(place_of(r, buf, len));
}
