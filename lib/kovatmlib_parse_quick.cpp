// The short way of reading times: what nearly every format consists of, on the units of the text
// itself. What it does not take, and every error, is left to the engine.
#include "kovambwc.h"
#include "kovatmlib_table.h"
#include "kovatree.h"

#include <string.h>

template <class Unit> struct quick_reader {
    kovaloc *loc;
    const Unit *at;
    time_info *ti;
    unsigned plain; // units below it are characters of their own value
    unsigned zero;  // the digit
    unsigned set;   // what becomes time_info::set
};

template <class Unit> static inline bool is_blank(const quick_reader<Unit> *r, unsigned unit) {
    if (const uint16_t *classes = r->loc->exp.sb_ctype_table)
        return unit < 256 && classes[unit] & KO_CT_SPACE;
    return unit < r->plain && wide_class(r->loc, static_cast<ko_wchar_t>(unit), KO_CT_SPACE);
}

template <class Unit> static inline void skip_blanks(quick_reader<Unit> *r) {
    while (*r->at && is_blank(r, *r->at))
        ++r->at;
}

// No sign and at most nine digits, in the range that a directive allows.
template <class Unit>
[[gnu::always_inline]] static inline bool take_number(quick_reader<Unit> *r,
                                                      const time_reading &rule) {
    if (*r->at - r->zero > 9) skip_blanks(r);
    const Unit *const start = r->at;
    unsigned number = 0;
    for (unsigned digit; (digit = *r->at - r->zero) <= 9; ++r->at)
        number = number * 10 + digit;
    const int hi = rule.hi == by_months ? month_count(&r->loc->ltime_info) : rule.hi;
    int value = static_cast<int>(number);
    if (r->at == start || r->at - start > 9 || value < rule.lo || value > hi) return false;
    time_info *const ti = r->ti;
    if (value == 7 && rule.field == &time_info::week_day) value = 0;
    ti->*rule.field = value - rule.bias;
    r->set = (r->set & ~rule.clear) | rule.set;
    if (rule.type) ti->*rule.type = rule.type_value;
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

template <class Unit> static bool take_parts(quick_reader<Unit> *r, const char *parts) {
    for (; *parts; ++parts) {
        const time_directive *const row = time_by_letter[static_cast<unsigned char>(*parts)];
        const bool taken =
            row ? take_number(r, row->reading) : take_sign(r, native(r->loc, *parts));
        if (!taken) return false;
    }
    return true;
}

template <class Unit>
[[gnu::always_inline]] static inline bool take_directive(quick_reader<Unit> *r,
                                                         const time_directive &row) {
    switch (row.kind) {
    case time_kind::number:
    case time_kind::day:
        return take_number(r, row.reading);
    case time_kind::name:
        return take_name(r, row);
    case time_kind::parts:
        return take_parts(r, row.parts);
    default:
        return false;
    }
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
    const unsigned percent = native(r->loc, '%');
    for (;;) {
        const unsigned unit = *format;
        if (unit == percent) {
            const time_directive *const row =
                find_directive(time_by_letter, portable(r->loc, format[1]));
            if (!row || !take_directive(r, *row)) return nullptr;
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

const ko_wchar_t *quick_read(kovaloc *loc, const ko_wchar_t *text, const ko_wchar_t *format,
                             time_info *ti) {
    quick_reader<ko_wchar_t> r = {loc, text, ti, 0x10000, native(loc, '0'), 0};
    return read_quickly(&r, format);
}

const ko_mchar_t *quick_read(kovaloc *loc, const ko_mchar_t *text, const ko_mchar_t *format,
                             time_info *ti) {
    unsigned plain = 0x100;
    if (!loc->exp.single_byte) {
        const ctype_flat *flat = flat_classes(loc);
        if (!flat || !flat->plain_ascii) return nullptr;
        plain = 0x80;
    }
    quick_reader<ko_mchar_t> r = {loc, text, ti, plain, native(loc, '0'), 0};
    return read_quickly(&r, format);
}
