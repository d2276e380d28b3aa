// Display widths of characters and strings.
#include "text/kovastr.h"

// Looked up among the locale's own classes: no standard class has this name.
static ko_ctype_t full_width(const kovaloc *loc) { return user_class(loc, "full_width"); }

// Columns of a printable character: two in the class "full_width".
static inline unsigned columns(unsigned classes, ko_ctype_t full) { return classes & full ? 2 : 1; }

// Columns of characters of a single-byte locale; -1 if one has no width.
template <class Unit>
static int64_t table_width(const uint16_t *table, ko_ctype_t full, const Unit *s, int len) {
    unsigned common = KO_CT_PRINT, total = 0;
    for (int i = 0; i < len; ++i) {
        const unsigned wide = s[i], classes = wide < 256 ? table[wide] : 0u;
        common &= classes;
        total += columns(classes, full);
    }
    return common ? int64_t{total} : -1;
}

// Columns of a text. A character that begins before the end but extends beyond it is refused.
template <class By, class Unit>
static int text_width(const By &by, const Unit *s, ptrdiff_t max_chars, const Unit *end) {
    const ko_ctype_t full = full_width(by.loc);
    if constexpr (By::one_unit) {
        if (const uint16_t *table = by.loc->exp.sb_ctype_table) {
            if (end && end - s < max_chars) max_chars = end - s;
            const ptrdiff_t len = by.length(s, max_chars);
            if (size_t(len) > INT_MAX) return fail(by.loc, KO_ERANGE, -1);
            const int64_t width = table_width(table, full, s, int(len));
            return width < 0 ? fail(by.loc, KO_EINVAL, -1) : counted(by.loc, size_t(width));
        }
    }
    size_t total = 0;
    for (size_t left = size_t(max_chars); left && s != end; --left) {
        text_char c = {2, 0};
        if (by.pair_facts(s) & pair_valid) {
            c.code = unsigned(s[0] << 8 | s[1]);
        } else {
            c = by.at(s);
        }
        if (!c.units) break;
        const unsigned classes = by.classes(s, c);
        if (!(classes & KO_CT_PRINT)) return fail(by.loc, KO_EINVAL, -1);
        if (end && c.units > end - s) return fail(by.loc, KO_EPOS, -1);
        total += columns(classes, full);
        s += c.units;
    }
    return counted(by.loc, total);
}

int ko_wcwidth(ko_lc_t loc, ko_wchar_t wc) {
    if (!loc) return fail(loc, KO_ENULL, -1);
    if (!wc) return 0;
    const unsigned classes = wide_classes(record(loc), wc);
    if (!(classes & KO_CT_PRINT)) return fail(loc, KO_EINVAL, -1);
    return int(columns(classes, full_width(record(loc))));
}

int ko_mbwidth(ko_lc_t loc, const ko_mchar_t *mb) { return ko_mbswidth(loc, mb, 1); }

int ko_wcswidth(ko_lc_t loc, const ko_wchar_t *wcs, int n) {
    const ko_wchar_t *const no_end = nullptr;
    if (!loc || !wcs) return fail(loc, KO_ENULL, -1);
    if (n < 0) return fail(loc, KO_EINDEX, -1);
    return text_width(by_wide{record(loc), 1}, wcs, n, no_end);
}

int ko_mbswidth(ko_lc_t loc, const ko_mchar_t *mbs, int n) {
    const ko_mchar_t *const no_end = nullptr;
    if (!loc || !mbs) return fail(loc, KO_ENULL, -1);
    if (n < 0) return fail(loc, KO_EINDEX, -1);
    return by_code_set(loc, [&](const auto &by) { return text_width(by, mbs, n, no_end); });
}

int ko_wcspwidth(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *end) {
    if (!loc || !wcs || !end) return fail(loc, KO_ENULL, -1);
    if (end < wcs) return fail(loc, KO_EPOS, -1);
    return text_width(by_wide{record(loc), 1}, wcs, PTRDIFF_MAX, end);
}

int ko_mbspwidth(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *end) {
    if (!loc || !mbs || !end) return fail(loc, KO_ENULL, -1);
    if (end < mbs) return fail(loc, KO_EPOS, -1);
    return by_code_set(loc, [&](const auto &by) { return text_width(by, mbs, PTRDIFF_MAX, end); });
}
