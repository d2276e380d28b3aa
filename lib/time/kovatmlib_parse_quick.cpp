// The quick way of reading times. Each reader takes a place in the text and returns the place after
// what it has read; NULL for what the engine must do. *set collects what becomes time_info::set and
// the types.
#include "chars/kovambwc.h"
#include "chars/kovasimd.h"
#include "time/kovatmlib_quick.h"
#include "time/kovatree.h"

#include <string.h>

// How numbers are read: the rows of the table of directives in a small form, by letter.
namespace {
struct quick_rule {
    int time_info::*field;
    unsigned set, clear; // bits of time_info::set, and the types above them
    int lo;
    unsigned span; // hi - lo
    int bias;
    bool number;
};

template <class Unit> struct quick_reader {
    kovaloc *loc;
    time_info *ti;
    unsigned plain;          // units below it are characters with their own value
    const uint16_t *classes; // of the characters below listed
    unsigned listed;
    const unsigned char *pairs;     // facts of characters of two bytes
    const exact_lists<Unit> *exact; // NULL: names are looked up only in the trees
};
} // namespace

// The types of year and hour are above the bits of time_info::set.
constexpr int year_shift = 16, hour_shift = 18;
constexpr unsigned type_bits(const time_reading &how, unsigned value) {
    return how.type == &time_info::year_type   ? value << year_shift
           : how.type == &time_info::hour_type ? value << hour_shift
                                               : 0;
}

// Weekday 7 means 0 and is left to the engine.
static constexpr std::array<quick_rule, 128> quick_rules = [] {
    std::array<quick_rule, 128> rules{};
    for (const time_directive &row : time_directives) {
        if (!is_number(row.kind) || row.view == time_view::weekday7) continue;
        const time_reading &how = row.reading;
        const int hi = how.hi == by_months ? usual_months : how.hi;
        rules[uint8_t(row.letter)] = {
            .field = how.field,
            .set = how.set | type_bits(how, unsigned(how.type_value)),
            .clear = how.clear | type_bits(how, 3),
            .lo = how.lo,
            .span = unsigned(hi - how.lo),
            .bias = how.bias,
            .number = true,
        };
    }
    return rules;
}();

// ---- Names ----

template <class Unit> static inline bool begins_with(const Unit *text, const Unit *name, int len) {
#ifdef KOVA_BLOCKS
    const size_t bytes = size_t(len) * sizeof(Unit);
    if (bytes <= 16 && readable(text) >= 16 && readable(name) >= 16) {
        const __m128i same = load_text(text, size_t(len)), other = load_text(name, size_t(len));
        return !(~equal_bytes(same, other) & ((1u << bytes) - 1));
    }
#endif
    for (int i = 0; i < len; ++i) {
        if (text[i] != name[i]) return false;
    }
    return true;
}

template <class Unit>
static inline const Unit *find_exact(const exact_list<Unit> &list, const Unit *text, int *value) {
    if (!text[0] || !text[1]) return nullptr;
    const exact_name<Unit> &slot = slot_of(list, text);
    if (!slot.name || !begins_with(text, slot.name, slot.len)) return nullptr;
    *value = slot.val;
    return text + slot.len;
}

// ---- Reading ----

template <class Unit> static inline bool is_blank(const quick_reader<Unit> &r, unsigned unit) {
    if (unit < r.listed) return r.classes[unit] & KO_CT_SPACE;
    return unit < r.plain && has_class(r.loc, ko_wchar_t(unit), KO_CT_SPACE);
}

template <class Unit>
static inline const Unit *after_blanks(const quick_reader<Unit> &r, const Unit *at) {
    while (*at && is_blank(r, *at))
        ++at;
    return at;
}

// Reads a number without a sign, of at most nine digits and in the range that a directive allows.
template <class Unit>
[[gnu::always_inline]] static inline const Unit *
take_number(const quick_reader<Unit> &r, const Unit *at, const quick_rule &rule, unsigned *set) {
    if (*at - 0u - '0' > 9) at = after_blanks(r, at);
    unsigned number = *at - 0u - '0', digit;
    if (number > 9) return nullptr;
    if ((digit = *++at - 0u - '0') <= 9) {
        number = number * 10 + digit;
        for (const Unit *const second = at; (digit = *++at - 0u - '0') <= 9;) {
            if (at - second == 8) return nullptr;
            number = number * 10 + digit;
        }
    }
    const int value = int(number);
    if (unsigned(value - rule.lo) > rule.span) return nullptr;
    r.ti->*rule.field = value - rule.bias;
    *set = (*set & ~rule.clear) | rule.set;
    return at;
}

template <class Unit>
static const Unit *take_name(const quick_reader<Unit> &r, const Unit *at, const time_directive &row,
                             unsigned *set) {
    const ltime *t = &r.loc->ltime_info;
    const bool month = row.view == time_view::month_index;
    if (!month && row.view != time_view::plain) return nullptr;
    *set = month ? (*set & ~unsigned{seen_mon}) | seen_monidx : *set | seen_week_day;
    int *const value = month ? &r.ti->monidx : &r.ti->week_day;
    const Unit *const end =
        !r.exact ? nullptr : find_exact(month ? r.exact->months : r.exact->days, at, value);
    if (end) return end;
    wc_found found = find_name(r.loc, month ? t->full_mon_cache : t->full_day_cache, at);
    if (!found.node) found = find_name(r.loc, month ? t->abbr_mon_cache : t->abbr_day_cache, at);
    if (!found.node) return nullptr;
    *value = found.node->val;
    return at + found.len;
}

// Takes a character that stands for itself and is not a blank; blanks before it are skipped.
template <class Unit>
static inline const Unit *take_sign(const quick_reader<Unit> &r, const Unit *at, unsigned sign) {
    if (*at != sign) at = after_blanks(r, at);
    return *at == sign ? at + 1 : nullptr;
}

template <class Unit>
static const Unit *take_parts(const quick_reader<Unit> &r, const Unit *at, const char *parts,
                              unsigned *set) {
    for (; *parts && at; ++parts) {
        const auto letter = uint8_t(*parts);
        const quick_rule &rule = quick_rules[letter];
        at = rule.number ? take_number(r, at, rule, set) : take_sign(r, at, letter);
    }
    return at;
}

template <class Unit>
[[gnu::noinline, gnu::aligned(64)]] static const Unit *
take_other(const quick_reader<Unit> &r, const Unit *at, unsigned letter, unsigned *set) {
    const time_directive *const row = time_by_letter[letter];
    if (!row) return nullptr;
    if (row->kind == time_kind::name) return take_name(r, at, *row, set);
    return row->kind == time_kind::parts ? take_parts(r, at, row->parts, set) : nullptr;
}

// Is it a character of two bytes that is not a blank?
static bool is_sign_pair(const unsigned char *pairs, const ko_mchar_t *at) {
    return pairs && (pairs[at[0] << 8 | at[1]] & (pair_valid | pair_space)) == pair_valid;
}

// Compares a character of several bytes in text and format. Returns its bytes if both are equal; 0
// for different ones, a blank, or what is not a character.
static int same_character(const quick_reader<ko_mchar_t> &r, const ko_mchar_t *at,
                          const ko_mchar_t *format) {
    return at[0] == format[0] && at[1] == format[1] && is_sign_pair(r.pairs, format) ? 2 : 0;
}
static int same_character(const quick_reader<ko_wchar_t> &, const ko_wchar_t *,
                          const ko_wchar_t *) {
    return 0;
}

// Takes a character of the format that stands for itself, and moves the format past it.
template <class Unit>
[[gnu::always_inline]] static inline const Unit *take_literal(const quick_reader<Unit> &r,
                                                              const Unit *at, const Unit **format) {
    const unsigned unit = **format;
    if (unit < r.plain) {
        ++*format;
        return is_blank(r, unit) ? after_blanks(r, at) : take_sign(r, at, unit);
    }
    const int n = same_character(r, at, *format);
    *format += n;
    return n ? at + n : nullptr;
}

template <class Unit>
[[gnu::always_inline]] static inline const Unit *read_quickly(const quick_reader<Unit> &r,
                                                              const Unit *at, const Unit *format) {
    unsigned set = 0;
    for (; at; ++format) {
        // Mostly, one character follows each directive: then both tests are easy to predict.
        while (*format != '%') {
            if (!*format) {
                r.ti->set = set & 0xFFFF;
                r.ti->year_type = set >> year_shift & 3;
                r.ti->hour_type = int(set >> hour_shift);
                return at;
            }
            at = take_literal(r, at, &format);
            if (!at) return nullptr;
        }
        const unsigned letter = *++format;
        if (letter > 127) return nullptr;
        const quick_rule &rule = quick_rules[letter];
        if (rule.number) {
            at = take_number(r, at, rule, &set);
        } else {
            unsigned kept = set; // keeps set in a register
            at = take_other(r, at, letter, &kept);
            set = kept;
        }
    }
    return nullptr;
}

// Code sets in which digits and signs have other codes are left to the engine.
template <class Unit>
static inline const Unit *read_in(kovaloc *loc, const Unit *text, const Unit *format, time_info *ti,
                                  const exact_lists<Unit> *exact) {
    constexpr bool bytes = sizeof(Unit) == 1;
    constexpr unsigned shared = category_bit(KO_LC_TIME) | category_bit(KO_LC_CTYPE);
    if (loc->portable || !exact) return nullptr;
    quick_reader<Unit> r = {loc, ti, 0x10000, loc->exp.sb_ctype_table, 0x100, nullptr, exact};
    if (loc->copied & shared) r.exact = nullptr; // its names follow another locale
    if (!r.classes) {
        const ctype_flat *const flat = flat_classes(loc);
        const bool listed = flat && flat->plain_ascii;
        if (bytes && !listed) return nullptr;
        r.listed = listed ? 0x80 : 0;
        r.classes = listed ? flat->classes.item1 : nullptr;
        r.pairs = listed ? flat->pairs : nullptr;
        if (bytes) r.plain = 0x80;
    }
    return read_quickly(r, text, format);
}

// A blank at the end of the format skips blanks of two bytes, too, which the engine does.
[[gnu::noinline]] static bool may_skip_more(kovaloc *loc, const ko_mchar_t *at) {
    return !loc->exp.sb_ctype_table && !is_sign_pair(flat_classes(loc)->pairs, at);
}

[[gnu::aligned(64)]] const ko_mchar_t *quick_parse(kovaloc *loc, const ko_mchar_t *text,
                                                   const ko_mchar_t *format, time_info *ti) {
    const quick_times *const quick = loc->ltime_info.quick;
    const ko_mchar_t *const end =
        read_in(loc, text, format, ti, quick ? &quick->bytes.exact : nullptr);
    return end && *end >= 0x80 && may_skip_more(loc, end) ? nullptr : end;
}

[[gnu::aligned(64)]] const ko_wchar_t *quick_parse(kovaloc *loc, const ko_wchar_t *text,
                                                   const ko_wchar_t *format, time_info *ti) {
    const quick_times *const quick = loc->ltime_info.quick;
    return read_in(loc, text, format, ti, quick ? &quick->wide.exact : nullptr);
}
