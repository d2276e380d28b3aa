// The short way of reading times: what nearly every format consists of, on the units of the text
// itself. What it does not take, and every error, is left to the engine.
#include "kovambwc.h"
#include "kovatmlib_table.h"
#include "kovatree.h"

#include <string.h>

// The rows of the table again, small and by letter: how numbers are read.
struct quick_rule {
    int time_info::*field;
    unsigned set, clear; // bits of what becomes time_info::set, and the types above them
    int lo;
    unsigned span; // hi - lo
    int bias;
    bool number;
};

// Above the bits of time_info::set stand the types of year and hour.
constexpr int year_shift = 16, hour_shift = 18;
constexpr unsigned type_bits(const time_reading &how, unsigned value) {
    return how.type == &time_info::year_type   ? value << year_shift
           : how.type == &time_info::hour_type ? value << hour_shift
                                               : 0;
}

constexpr int usual_months = 12; // a locale may have more, which the engine reads

// Weekday 7 is a 0 and left to the engine.
static constexpr std::array<quick_rule, 128> quick_rules = [] {
    std::array<quick_rule, 128> rules{};
    for (const time_directive &row : time_directives) {
        const bool number = row.kind == time_kind::number || row.kind == time_kind::day;
        if (!number || row.view == time_view::weekday7) continue;
        const time_reading &how = row.reading;
        const int hi = how.hi == by_months ? usual_months : how.hi;
        rules[static_cast<unsigned char>(row.letter)] = {
            .field = how.field,
            .set = how.set | type_bits(how, static_cast<unsigned>(how.type_value)),
            .clear = how.clear | type_bits(how, 3),
            .lo = how.lo,
            .span = static_cast<unsigned>(hi - how.lo),
            .bias = how.bias,
            .number = true,
        };
    }
    return rules;
}();

// ---- Names --------------------------------------------------------------------------------------

// The full names as texts usually have them, letter by letter, by a hash of their first three
// units. Only those that the tree finds whole and under their own place are there.
template <class Unit> struct exact_name {
    const Unit *name; // NULL: none
    int len, val;
};
template <class Unit> struct exact_list {
    uint32_t factor;
    exact_name<Unit> slot[32];
};
template <class Unit> struct exact_lists { exact_list<Unit> days, months; };
struct exact_times {
    exact_lists<ko_mchar_t> bytes;
    exact_lists<ko_wchar_t> wide;
};

template <class Unit>
static inline exact_name<Unit> &slot_of(exact_list<Unit> *list, const Unit *text) {
    return list->slot[(text[0] + text[1] * 0x100u + text[2] * 0x10000u) * list->factor >> 27];
}

static int length_of(const ko_mchar_t *s) {
    return static_cast<int>(strlen(reinterpret_cast<const char *>(s)));
}
static int length_of(const ko_wchar_t *s) { return ko_wcslen(s); }

// False when two names share a slot; the second is left out then.
template <class Unit>
static bool fill_exact(exact_list<Unit> *list, Unit *const *names, const bool *whole, int count) {
    bool alone = true;
    for (int i = 0; i < count; ++i) {
        if (!whole[i] || length_of(names[i]) < 3) continue;
        exact_name<Unit> &slot = slot_of(list, names[i]);
        if (slot.name)
            alone = false;
        else
            slot = {names[i], length_of(names[i]), i};
    }
    return alone;
}

constexpr int exact_most = 14; // names, the months of a leap year included

template <class Unit>
static void build_exact(exact_list<Unit> *list, Unit *const *names, const bool *whole, int count) {
    uint32_t factor = 1;
    for (int tries = 200; tries--;) {
        *list = {.factor = factor = factor * 0x9E3779B1 + 2};
        if (fill_exact(list, names, whole, count)) return;
    }
}

// Which names the tree finds whole, under their own place.
static void find_whole(kovaloc *loc, const wc_tnode *tree, ko_wchar_t *const *names, int count,
                       bool (&whole)[exact_most]) {
    for (int i = 0; i < count; ++i) {
        const wc_found found = names[i] ? find_name(loc, tree, names[i]) : wc_found{};
        whole[i] = found.node && found.node->val == i; // another's would be found before its end
    }
}

void build_exact_times(kovaloc *loc) {
    ltime *t = &loc->ltime_info;
    free_exact_times(t);
    exact_times *const exact = static_cast<exact_times *>(ko_ext_malloc(sizeof(exact_times)));
    if (!exact) return;
    *exact = {};
    t->exact = exact;
    bool whole[exact_most];
    find_whole(loc, t->full_day_cache, t->w_day, 7, whole);
    build_exact(&exact->bytes.days, t->day, whole, 7);
    build_exact(&exact->wide.days, t->w_day, whole, 7);
    if (!t->mon || !t->w_mon) return;
    const int months = t->mon_count < exact_most ? t->mon_count : exact_most;
    find_whole(loc, t->full_mon_cache, t->w_mon, months, whole);
    build_exact(&exact->bytes.months, t->mon, whole, months);
    build_exact(&exact->wide.months, t->w_mon, whole, months);
}

void free_exact_times(ltime *t) {
    free_ptr(t->exact);
    t->exact = nullptr;
}

static bool begins_with(const ko_mchar_t *text, const ko_mchar_t *name, int len) {
    return !strncmp(reinterpret_cast<const char *>(text), reinterpret_cast<const char *>(name),
                    static_cast<size_t>(len));
}
static bool begins_with(const ko_wchar_t *text, const ko_wchar_t *name, int len) {
    for (int i = 0; i < len; ++i) {
        if (text[i] != name[i]) return false;
    }
    return true;
}

template <class Unit>
static inline const Unit *find_exact(exact_list<Unit> &list, const Unit *text, int *value) {
    if (!text[0] || !text[1]) return nullptr;
    const exact_name<Unit> &slot = slot_of(&list, text);
    if (!slot.name || !begins_with(text, slot.name, slot.len)) return nullptr;
    *value = slot.val;
    return text + slot.len;
}

// ---- Reading ------------------------------------------------------------------------------------

template <class Unit> struct quick_reader {
    kovaloc *loc;
    time_info *ti;
    unsigned plain;          // units below it are characters of their own value
    const uint16_t *classes; // of the characters below listed
    unsigned listed;
    const mb_flat *pairs;     // of characters of two bytes
    exact_lists<Unit> *exact; // NULL: names are looked up in the trees alone
};

// Each reader takes the place in the text and returns the place behind what it has read; NULL for
// what the engine must do. What becomes time_info::set and the types goes through *set.

template <class Unit> static inline bool is_blank(const quick_reader<Unit> &r, unsigned unit) {
    if (unit < r.listed) return r.classes[unit] & KO_CT_SPACE;
    return unit < r.plain && has_class(r.loc, static_cast<ko_wchar_t>(unit), KO_CT_SPACE);
}

template <class Unit>
static inline const Unit *behind_blanks(const quick_reader<Unit> &r, const Unit *at) {
    while (*at && is_blank(r, *at))
        ++at;
    return at;
}

// No sign and at most nine digits, in the range that a directive allows.
template <class Unit>
[[gnu::always_inline]] static inline const Unit *
take_number(const quick_reader<Unit> &r, const Unit *at, const quick_rule &rule, unsigned *set) {
    if (*at - 0u - '0' > 9) at = behind_blanks(r, at);
    unsigned number = *at - 0u - '0', digit;
    if (number > 9) return nullptr;
    if ((digit = *++at - 0u - '0') <= 9) {
        number = number * 10 + digit;
        for (const Unit *const second = at; (digit = *++at - 0u - '0') <= 9;) {
            if (at - second == 8) return nullptr;
            number = number * 10 + digit;
        }
    }
    const int value = static_cast<int>(number);
    if (static_cast<unsigned>(value - rule.lo) > rule.span) return nullptr;
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

// A character that stands for itself, which must not be a blank; blanks before it do not count.
template <class Unit>
static inline const Unit *take_sign(const quick_reader<Unit> &r, const Unit *at, unsigned sign) {
    if (*at != sign) at = behind_blanks(r, at);
    return *at == sign ? at + 1 : nullptr;
}

template <class Unit>
static const Unit *take_parts(const quick_reader<Unit> &r, const Unit *at, const char *parts,
                              unsigned *set) {
    for (; *parts && at; ++parts) {
        const auto letter = static_cast<unsigned char>(*parts);
        const quick_rule &rule = quick_rules[letter];
        at = rule.number ? take_number(r, at, rule, set) : take_sign(r, at, letter);
    }
    return at;
}

template <class Unit>
[[gnu::noinline]] static const Unit *take_other(const quick_reader<Unit> &r, const Unit *at,
                                                unsigned letter, unsigned *set) {
    const time_directive *const row = time_by_letter[letter];
    if (!row) return nullptr;
    if (row->kind == time_kind::name) return take_name(r, at, *row, set);
    return row->kind == time_kind::parts ? take_parts(r, at, row->parts, set) : nullptr;
}

// A character of several bytes that is the same in both. Returns its bytes, 0 when it is another
// one, no character or a blank.
static int same_character(const quick_reader<ko_mchar_t> &r, const ko_mchar_t *at,
                          const ko_mchar_t *format) {
    const unsigned first = *format, second = format[1];
    if (!r.pairs || at[0] != first || r.pairs->flag1[first] != mb_prefix) return 0;
    if (at[1] != second || r.pairs->second->flags[first][second] != mb_final) return 0;
    return r.pairs->second->items[first][second] & KO_CT_SPACE ? 0 : 2;
}
static int same_character(const quick_reader<ko_wchar_t> &, const ko_wchar_t *,
                          const ko_wchar_t *) {
    return 0;
}

template <class Unit>
[[gnu::always_inline]] static inline const Unit *read_quickly(const quick_reader<Unit> &r,
                                                              const Unit *at, const Unit *format) {
    unsigned set = 0;
    while (at) {
        const unsigned unit = *format++;
        if (unit == '%') {
            const unsigned letter = *format++;
            if (letter > 127) return nullptr;
            const quick_rule &rule = quick_rules[letter];
            if (rule.number) {
                at = take_number(r, at, rule, &set);
            } else {
                unsigned kept = set; // leaves set in a register
                at = take_other(r, at, letter, &kept);
                set = kept;
            }
        } else if (!unit) {
            r.ti->set = set & 0xFFFF;
            r.ti->year_type = set >> year_shift & 3;
            r.ti->hour_type = static_cast<int>(set >> hour_shift);
            return at;
        } else if (unit < r.plain) {
            at = is_blank(r, unit) ? behind_blanks(r, at) : take_sign(r, at, unit);
        } else {
            const int n = same_character(r, at, --format);
            if (!n) return nullptr;
            format += n;
            at += n;
        }
    }
    return nullptr;
}

// Where digits and signs have places of their own the engine serves.
template <class Unit>
static inline const Unit *read_in(kovaloc *loc, const Unit *text, const Unit *format, time_info *ti,
                                  exact_lists<Unit> *exact) {
    constexpr bool bytes = sizeof(Unit) == 1;
    constexpr unsigned shared = category_bit(KO_LC_TIME) | category_bit(KO_LC_CTYPE);
    if (loc->portable || month_count(&loc->ltime_info) < usual_months) return nullptr;
    quick_reader<Unit> r = {loc, ti, 0x10000, loc->exp.sb_ctype_table, 0x100, nullptr, exact};
    if (loc->copied & shared) r.exact = nullptr; // its names go by the characters of another locale
    if (!r.classes) {
        const ctype_flat *const flat = flat_classes(loc);
        const bool listed = flat && flat->plain_ascii;
        if (bytes && !listed) return nullptr;
        r.listed = listed ? 0x80 : 0;
        r.classes = listed ? flat->classes.item1 : nullptr;
        r.pairs = listed ? &flat->classes : nullptr;
        if (bytes) r.plain = 0x80;
    }
    return read_quickly(r, text, format);
}

const ko_wchar_t *quick_read(kovaloc *loc, const ko_wchar_t *text, const ko_wchar_t *format,
                             time_info *ti) {
    exact_times *const exact = loc->ltime_info.exact;
    return read_in(loc, text, format, ti, exact ? &exact->wide : nullptr);
}

const ko_mchar_t *quick_read(kovaloc *loc, const ko_mchar_t *text, const ko_mchar_t *format,
                             time_info *ti) {
    exact_times *const exact = loc->ltime_info.exact;
    return read_in(loc, text, format, ti, exact ? &exact->bytes : nullptr);
}
