// Money: reading of amounts, the inverse of formatting.
#include "chars/kovambwc.h"
#include "number/kovamnlib.h"

#include <string.h>

// The character with which formatting pads and separates is blank in every locale.
static bool is_blank(kovaloc *loc, ko_wchar_t wc) {
    return wc && (wc == native(loc, ' ') || has_class(loc, wc, KO_CT_BLANK));
}
static bool is_white_space(kovaloc *loc, ko_wchar_t wc) {
    return wc && (wc == native(loc, ' ') || has_class(loc, wc, KO_CT_SPACE));
}
static bool is_digit(const kovaloc *loc, ko_wchar_t wc) { return digit_of(loc, wc) < 10; }

static const ko_wchar_t *skip_blanks(kovaloc *loc, const ko_wchar_t *text) {
    while (is_blank(loc, *text))
        ++text;
    return text;
}

static const ko_wchar_t *skip_white_space(kovaloc *loc, const ko_wchar_t *text) {
    while (is_white_space(loc, *text))
        ++text;
    return text;
}

static bool stands_at(const ko_wchar_t *text, const wide_symbol &s) {
    return symbol_at(text, INT32_MAX, s);
}

// ---- The value ----

namespace {
// The digits of a value as they are found.
struct mon_number {
    char text[number_room]; // digits, "." and the fraction; at most 255 characters
    int len;
    int whole;                         // digits before the decimal symbol
    unsigned char groups[number_room]; // digits before each separator
    int group_count;
    const ko_wchar_t *last_separator;
};
} // namespace

static bool take_digit(const kovaloc *loc, ko_wchar_t wc, mon_number *n) {
    if (n->len == number_room - 1) return false;
    n->text[n->len++] = char('0' + digit_of(loc, wc));
    return true;
}

// Takes the longest run of digits with separators between them. NULL if it is too long, or if there
// is more than one separator between two digits.
static const ko_wchar_t *take_whole(const kovaloc *loc, const ko_wchar_t *text,
                                    const wide_symbol &separator, mon_number *n) {
    n->len = n->group_count = 0;
    for (;; ++text) {
        if (n->len && stands_at(text, separator) && is_digit(loc, text[separator.len])) {
            n->groups[n->group_count++] = uint8_t(n->len);
            n->last_separator = text;
            text += separator.len;
        }
        if (!is_digit(loc, *text)) break;
        if (!take_digit(loc, *text, n)) return nullptr;
    }
    n->whole = n->len;
    const ko_wchar_t *behind = text;
    while (stands_at(behind, separator))
        behind += separator.len;
    return behind > text && is_digit(loc, *behind) ? nullptr : text;
}

// Are the separators where the locale's groups end, with none missing?
static bool groups_fit(const int *group, const mon_number &n) {
    int at = 0, left = n.whole, size = 0;
    for (int i = n.group_count; i-- > 0; left -= size) {
        size = next_mon_group(group, &at);
        if (!size || left - size != n.groups[i]) return false;
    }
    size = next_mon_group(group, &at);
    return !n.group_count || !size || left <= size;
}

// Takes the fraction, at most most digits of it, if there are a decimal symbol and a digit.
static const ko_wchar_t *take_fraction(const kovaloc *loc, const ko_wchar_t *text,
                                       const wide_symbol &radix, int most, mon_number *n) {
    if (!most || !stands_at(text, radix) || !is_digit(loc, text[radix.len])) return text;
    if (n->len == number_room - 1) return nullptr;
    n->text[n->len++] = '.';
    text += radix.len;
    for (; most-- && is_digit(loc, *text); ++text) {
        if (!take_digit(loc, *text, n)) return nullptr;
    }
    return text;
}

static bool same_symbol(const wide_symbol &a, const wide_symbol &b) {
    return a.len && a.len == b.len && !memcmp(a.units, b.units, size_t(a.len) * sizeof(ko_wchar_t));
}

static double value_of(mon_number *n) {
    n->text[n->len] = 0;
    const int fraction = n->len > n->whole ? n->len - n->whole - 1 : 0;
    uint64_t digits = 0;
    for (int i = 0; n->whole + fraction <= 19 && i < n->len; ++i)
        if (i != n->whole) digits = digits * 10 + unsigned(n->text[i] - '0');
    double value;
    const char *end;
    if (n->whole + fraction <= 19 && exact_real(digits, -fraction, &value)) return value;
    return c_strtod(n->text, &end);
}

// Skips blanks and fill characters before a value. If the fill character is a digit, only zeros
// that another digit follows are padding.
static const ko_wchar_t *skip_padding(kovaloc *loc, const ko_wchar_t *text, ko_wchar_t fill) {
    const bool zeros = digit_of(loc, fill) == 0, others = !is_digit(loc, fill);
    while (is_blank(loc, *text) ||
           (*text && *text == fill && (others || (zeros && is_digit(loc, text[1])))))
        ++text;
    return text;
}

static const ko_wchar_t *match_value(kovaloc *loc, const ko_wchar_t *text, const mon_strings &s,
                                     const mon_directive &d, double *value) {
    const int *group = loc->monum_info.group_mon;
    wide_symbol separator = s.separator;
    const int first = group[0] > 0 ? group[1] : 0;
    // One symbol serves both purposes: the last one is the decimal symbol if fewer digits than a
    // group follow it.
    const bool shared = d.right_precision && same_symbol(separator, s.radix);
    if (shared && first <= 0) separator = {};
    text = skip_padding(loc, text, d.fill);
    mon_number n;
    if (!is_digit(loc, *text) || !(text = take_whole(loc, text, separator, &n))) return nullptr;
    if (shared && n.group_count && n.whole - n.groups[n.group_count - 1] < first) {
        n.whole = n.len = n.groups[--n.group_count];
        text = n.last_separator;
    }
    if (!groups_fit(group, n)) return nullptr;
    text = take_fraction(loc, text, s.radix, d.right_precision, &n);
    if (!text || is_digit(loc, *text)) return nullptr;
    *value = value_of(&n);
    return text;
}

// ---- Layouts ----

// Matches a symbol or sign at the position. Its own blanks may be missing at the end of the text,
// and may already have been taken with those before the position.
static const ko_wchar_t *match_string(kovaloc *loc, const ko_wchar_t *start, const ko_wchar_t *text,
                                      const wide_symbol &s) {
    if (!s.len || stands_at(text, s)) return text + s.len;
    int i = 0;
    if (text == start || is_blank(loc, text[-1])) {
        while (i < s.len && is_blank(loc, s.units[i]))
            ++i;
    }
    for (; i < s.len && *text == s.units[i]; ++i)
        ++text;
    while (!*text && i < s.len && is_blank(loc, s.units[i]))
        ++i;
    return i == s.len ? text : nullptr;
}

int mon_maskmatch(kovaloc *loc, const ko_wchar_t *start, const char *mask, const mon_strings &s,
                  const mon_directive &d, double *value) {
    const ko_wchar_t *text = start;
    for (; *mask && text; ++mask) {
        switch (*mask) {
        case 'V':
            text = match_value(loc, text, s, d, value);
            break;
        case '$':
            text = match_string(loc, start, text, s.symbol);
            break;
        case 'S':
            text = match_string(loc, start, text, s.sign);
            break;
        case '_':
            text = skip_blanks(loc, text);
            break;
        default:
            text = *text == native(loc, *mask) ? text + 1 : nullptr;
        }
    }
    return text ? int(text - start) : -1;
}

// ---- Directives ----

namespace {
// What a directive reads: the text, and the rest of the format.
struct mon_input {
    const ko_wchar_t *text;
    const ko_wchar_t *format;
};
} // namespace

// For a text without the symbol that its layout has after the value: does the text end, or continue
// as the format does? If not, another symbol is there.
static bool goes_on(kovaloc *loc, const ko_wchar_t *text, const ko_wchar_t *format) {
    text = skip_white_space(loc, text);
    format = skip_white_space(loc, format);
    if (is_percent(loc, *format) && !is_percent(loc, format[1])) return true;
    return *text == *format;
}

namespace {
// One layout that a text may have.
struct mon_candidate {
    const char *mask;
    wide_symbol sign;
    bool negative;
};
} // namespace

// Returns the units of an item in the candidate's layout, with its value in *value; or -1.
// left_out: without the layout's symbol.
static int match_candidate(kovaloc *loc, const mon_input &in, const mon_candidate &c,
                           const mon_strings &common, bool left_out, const mon_directive &d,
                           double *value) {
    mon_strings s = common;
    s.sign = c.sign;
    if (left_out) s.symbol = {};
    const int len = mon_maskmatch(loc, in.text, c.mask, s, d, value);
    if (len < 0) return -1;
    const bool behind = strchr(c.mask, '$') > strchr(c.mask, 'V');
    if (left_out && behind && !goes_on(loc, in.text + len, in.format)) return -1;
    if (c.negative) *value = -*value;
    return len;
}

// Can a sign be seen in a text? Blanks cannot: those before an amount are skipped, and those inside
// or after it may be missing.
static bool is_visible(kovaloc *loc, const wide_symbol &sign) {
    for (int i = 0; i < sign.len; ++i)
        if (!is_blank(loc, sign.units[i])) return true;
    return false;
}

// Lists the layouts in the order in which they are tried. A positive layout may match the beginning
// of a negative text, so the negative one comes first, unless nothing distinguishes it from a
// positive one. Returns their number; -1 with the error word set.
static int list_candidates(kovaloc *loc, const mon_positions &positions, mon_candidate *list) {
    wide_symbol negative, positive;
    if (!mon_sign(loc, true, &negative) || !mon_sign(loc, false, &positive)) return -1;
    const char *mask = mon_mask(positions.side[1]);
    int count = 0;
    if (*mask == '(' || (*mask && is_visible(loc, negative)))
        list[count++] = {mask, negative, true};
    mask = mon_mask(positions.side[0]);
    if (*mask && positive.len) list[count++] = {mask, positive, false};
    if (*mask) list[count++] = {mask, {}, false};
    return count;
}

// Reads one amount. Returns the units taken from the text; or -1 with the error word set.
static int read_amount(kovaloc *loc, const mon_input &in, const mon_positions &positions,
                       const mon_directive &d, double *value) {
    mon_input item = {skip_white_space(loc, in.text), in.format};
    mon_strings s = {};
    mon_candidate list[3];
    const int count = list_candidates(loc, positions, list);
    if (count < 0 || !mon_symbol(loc, d, &s.symbol) || !mon_radix(loc, &s.dot, &s.radix)) return -1;
    if (d.grouping && !mon_separator(loc, &s.separator)) return -1;
    int len = -1;
    for (const bool left_out : {false, true}) {
        if (left_out && !s.symbol.len) break;
        for (int i = 0; i < count && len < 0; ++i)
            len = match_candidate(loc, item, list[i], s, left_out, d, value);
    }
    if (len < 0) return fail(loc, KO_EDIRECTIVE, -1);
    item.text += len;
    // Skips what alignment and the field width have added at the end.
    while (is_blank(loc, *item.text) &&
           (d.left_precision || (d.left && item.text - in.text < d.width)))
        ++item.text;
    return int(item.text - in.text);
}

// ---- Entries ----

// Moves in->text past what a unit of the format outside directives matches.
static bool match_text(kovaloc *loc, mon_input *in, ko_wchar_t wc) {
    if (is_white_space(loc, wc)) {
        in->text = skip_white_space(loc, in->text);
        return true;
    }
    if (is_percent(loc, wc)) ++in->format;
    if (*in->text != wc) return fail(loc, KO_EDIRECTIVE, false);
    ++in->text;
    return true;
}

static int wcspmon1(kovaloc *loc, const ko_wchar_t *text, const ko_wchar_t *format,
                    va_list pointers) {
    mon_positions positions = mon_working_positions(&loc->monum_info);
    mon_input in = {text, format};
    for (int stored = 0;;) {
        const ko_wchar_t wc = *in.format;
        if (!wc) return stored;
        ++in.format;
        if (!is_percent(loc, wc) || is_percent(loc, *in.format)) {
            if (!match_text(loc, &in, wc)) return stored;
            continue;
        }
        mon_directive d;
        if (!scan_mon_directive(loc, &in.format, &positions, &d)) {
            return fail(loc, KO_EMONEY, stored);
        }
        double value = 0;
        const int len = read_amount(loc, in, positions, d, &value);
        if (len < 0) return stored;
        double *const pointer = va_arg(pointers, double *);
        if (!pointer) return fail(loc, KO_ENULL, stored);
        *pointer = value;
        ++stored;
        in.text += len;
    }
}

int ko_wcspmon(ko_lc_t loc, const ko_wchar_t *in, const ko_wchar_t *format, ...) {
    if (!loc || !in || !format) return fail(loc, KO_ENULL, 0);
    va_list pointers;
    va_start(pointers, format);
    const int stored = wcspmon1(record(loc), in, format, pointers);
    va_end(pointers);
    return stored;
}

int ko_mbspmon(ko_lc_t loc, const ko_mchar_t *in, const ko_mchar_t *format, ...) {
    if (!loc || !in || !format) return fail(loc, KO_ENULL, -1);
    wide_text wide_in, wide_format;
    if (widen_text(record(loc), in, &wide_in) < 0) return -1;
    if (widen_text(record(loc), format, &wide_format) < 0) return -1;
    va_list pointers;
    va_start(pointers, format);
    const int stored = wcspmon1(record(loc), wide_in.p, wide_format.p, pointers);
    va_end(pointers);
    return stored ? stored : -1;
}
