// The short way of reading times: what nearly every format consists of, on the units of the text
// itself. What it does not take, and every error, is left to the engine.
#include "kovambwc.h"
#include "kovatmlib_table.h"
#include "kovatree.h"

#include <string.h>

// The rows of the table again, small and by letter: how numbers are read.
struct quick_rule {
    int time_info::*field;
    int time_info::*type; // NULL: none
    uint16_t set, clear;
    int16_t lo, hi, bias; // hi below 0: by the locale's months
    uint8_t type_value;
    time_kind kind; // forms: not taken here
};
static constexpr std::array<quick_rule, 128> quick_rules = [] {
    std::array<quick_rule, 128> rules{};
    for (quick_rule &rule : rules)
        rule.kind = time_kind::forms;
    for (const time_directive &row : time_directives) {
        const time_reading &how = row.reading;
        rules[static_cast<unsigned char>(row.letter)] = {
            .field = how.field,
            .type = how.type,
            .set = static_cast<uint16_t>(how.set),
            .clear = static_cast<uint16_t>(how.clear),
            .lo = static_cast<int16_t>(how.lo),
            .hi = static_cast<int16_t>(how.hi),
            .bias = static_cast<int16_t>(how.bias),
            .type_value = static_cast<uint8_t>(how.type_value),
            .kind = row.kind == time_kind::day ? time_kind::number : row.kind,
        };
    }
    return rules;
}();

template <class Unit> struct quick_reader {
    kovaloc *loc;
    const Unit *at;
    time_info *ti;
    unsigned plain;          // units below it are characters of their own value
    unsigned set;            // what becomes time_info::set
    const uint16_t *classes; // of the characters below listed
    unsigned listed;
};

template <class Unit> static inline bool is_blank(const quick_reader<Unit> *r, unsigned unit) {
    if (unit < r->listed) return r->classes[unit] & KO_CT_SPACE;
    return unit < r->plain && has_class(r->loc, static_cast<ko_wchar_t>(unit), KO_CT_SPACE);
}

template <class Unit> static inline void skip_blanks(quick_reader<Unit> *r) {
    while (*r->at && is_blank(r, *r->at))
        ++r->at;
}

// No sign and at most nine digits, in the range that a directive allows.
template <class Unit>
[[gnu::always_inline]] static inline bool take_number(quick_reader<Unit> *r,
                                                      const quick_rule &rule) {
    if (*r->at - 0u - '0' > 9) skip_blanks(r);
    const Unit *const start = r->at;
    const Unit *at = start;
    unsigned number = *at - 0u - '0', digit;
    if (number > 9) return false;
    for (++at; (digit = *at - 0u - '0') <= 9; ++at)
        number = number * 10 + digit;
    r->at = at;
    int value = static_cast<int>(number);
    const int hi = rule.hi < 0 ? month_count(&r->loc->ltime_info) : rule.hi;
    if (at - start > 9 || value < rule.lo || value > hi) return false;
    if (value == 7 && rule.set == seen_week_day) value = 0;
    r->ti->*rule.field = value - rule.bias;
    r->set = (r->set & ~unsigned{rule.clear}) | rule.set;
    if (rule.type) r->ti->*rule.type = rule.type_value;
    return true;
}

template <class Unit>
static int take_one_of(quick_reader<Unit> *r, const wc_tnode *full, const wc_tnode *abbr) {
    wc_found found = find_name(r->loc, full, r->at);
    if (!found.node) found = find_name(r->loc, abbr, r->at);
    if (!found.node) return -1;
    r->at += found.len;
    return found.node->val;
}

template <class Unit> static bool take_name(quick_reader<Unit> *r, const time_directive &row) {
    const ltime *t = &r->loc->ltime_info;
    time_info *const ti = r->ti;
    if (row.view == time_view::month_index) {
        ti->monidx = take_one_of(r, t->full_mon_cache, t->abbr_mon_cache);
        r->set = (r->set & ~unsigned{seen_mon}) | seen_monidx;
        return ti->monidx >= 0;
    }
    if (row.view != time_view::plain) return false;
    ti->week_day = take_one_of(r, t->full_day_cache, t->abbr_day_cache);
    r->set |= seen_week_day;
    return ti->week_day >= 0;
}

// A character that stands for itself, which must not be a blank; blanks before it do not count.
template <class Unit> static inline bool take_sign(quick_reader<Unit> *r, unsigned sign) {
    if (*r->at != sign) skip_blanks(r);
    if (*r->at != sign) return false;
    ++r->at;
    return true;
}

template <class Unit>
[[gnu::noinline]] static bool take_parts(quick_reader<Unit> *r, const char *parts) {
    for (; *parts; ++parts) {
        const quick_rule &rule = quick_rules[static_cast<unsigned char>(*parts)];
        const bool number = rule.kind == time_kind::number;
        if (!(number ? take_number(r, rule) : take_sign(r, static_cast<unsigned char>(*parts))))
            return false;
    }
    return true;
}

template <class Unit>
[[gnu::noinline]] static bool take_other(quick_reader<Unit> *r, unsigned letter) {
    const time_directive &row = *time_by_letter[letter];
    if (row.kind == time_kind::name) return take_name(r, row);
    return row.kind == time_kind::parts && take_parts(r, row.parts);
}

// A character of several bytes that is the same in both. Returns its bytes, 0 when it is another
// one, no character or a blank.
static int same_character(const quick_reader<ko_mchar_t> *r, const ko_mchar_t *format) {
    const ctype_flat *flat = flat_classes(r->loc);
    if (!flat || flat->classes.flag1[*format] != mb_prefix) return 0;
    const unsigned first = *format, second = format[1];
    if (flat->classes.second->flags[first][second] != mb_final) return 0;
    if (flat->classes.second->items[first][second] & KO_CT_SPACE) return 0;
    return r->at[0] == first && r->at[1] == second ? 2 : 0;
}
static int same_character(const quick_reader<ko_wchar_t> *, const ko_wchar_t *) { return 0; }

template <class Unit> static const Unit *read_quickly(quick_reader<Unit> *r, const Unit *format) {
    for (;;) {
        const unsigned unit = *format;
        if (unit == '%') {
            const unsigned letter = format[1];
            if (letter > 127 || quick_rules[letter].kind == time_kind::forms) return nullptr;
            const quick_rule &rule = quick_rules[letter];
            if (!(rule.kind == time_kind::number ? take_number(r, rule) : take_other(r, letter)))
                return nullptr;
            format += 2;
        } else if (!unit) {
            r->ti->set = r->set;
            return r->at;
        } else if (unit >= r->plain) {
            const int n = same_character(r, format);
            if (!n) return nullptr;
            format += n;
            r->at += n;
        } else {
            if (is_blank(r, unit))
                skip_blanks(r);
            else if (!take_sign(r, unit))
                return nullptr;
            ++format;
        }
    }
}

// Where digits and signs have places of their own the engine serves.
template <class Unit>
static inline const Unit *read_in(kovaloc *loc, const Unit *text, const Unit *format,
                                  time_info *ti) {
    quick_reader<Unit> r = {loc, text, ti, sizeof(Unit) == 1 ? 0x80 : 0x10000, 0, nullptr, 0};
    const ctype_flat *const flat = flat_classes(loc);
    if (loc->portable) return nullptr;
    if (const uint16_t *classes = loc->exp.sb_ctype_table) {
        r.classes = classes;
        r.listed = 0x100;
        if (sizeof(Unit) == 1) r.plain = 0x100;
    } else if (flat && flat->plain_ascii) {
        r.classes = flat->classes.item1;
        r.listed = 0x80;
    } else if (sizeof(Unit) == 1) {
        return nullptr;
    }
    return read_quickly(&r, format);
}

const ko_wchar_t *quick_read(kovaloc *loc, const ko_wchar_t *text, const ko_wchar_t *format,
                             time_info *ti) {
    return read_in(loc, text, format, ti);
}

const ko_mchar_t *quick_read(kovaloc *loc, const ko_mchar_t *text, const ko_mchar_t *format,
                             time_info *ti) {
    return read_in(loc, text, format, ti);
}
