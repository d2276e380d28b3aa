// Positions of characters in strings, and trailing spaces.
#include "text/kovastr.h"

// ---- The character at a position ----

text_char by_tree::at(const unit *s) const {
    if (ko_ismbsterm(loc, s)) return {0, 0};
    text_char c = {retrieve_text_multi_nv(s, loc->ctype, head(loc)), 0};
    if (!c.units) return {-1, 0};
    for (int i = 0; i < c.units; ++i)
        c.code = c.code << 8 | s[i];
    return c;
}

unsigned by_tree::classes(const unit *s, text_char c) const {
    const void *item = c.units > 0 ? retrieve_text_multi_nl(s, loc->ctype, nullptr) : nullptr;
    uint16_t classes = 0;
    if (item) memcpy(&classes, item, sizeof classes);
    return classes;
}

ptrdiff_t by_tree::length(const unit *s) const {
    const unit *end = s;
    for (text_char c; (c = at(end)).units; end += c.units) {
        if (c.units < 0) return -1;
    }
    return end - s;
}

// ---- Positions ----

namespace {
// The character that contains the last unit before a position, or the terminator where that comes
// first.
struct held_char {
    const ko_mchar_t *start; // NULL for what is not a character
    int units;               // 0 at the terminator
};
} // namespace
static held_char holding(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *position) {
    return by_code_set(loc, [=](const auto &by) {
        for (const ko_mchar_t *s = mbs;;) {
            const text_char c = by.at(s);
            if (c.units < 0) return held_char{nullptr, 0};
            if (!c.units || c.units >= position - s) return held_char{s, c.units};
            s += c.units;
        }
    });
}

ko_mchar_t *ko_full_mbsprev(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *mb) {
    ko_mchar_t *const none = nullptr;
    if (!loc || !mbs || !mb) return fail(loc, KO_ENULL, none);
    if (mb <= mbs) return fail(loc, KO_EPOS, none);
    return const_cast<ko_mchar_t *>(holding(loc, mbs, mb).start);
}

int ko_charoffset(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *position, int *len_bytes) {
    if (len_bytes) *len_bytes = 0;
    if (!loc || !mbs || !position || !len_bytes) return fail(loc, KO_ENULL, -1);
    if (position < mbs) return fail(loc, KO_EINVAL, -1);
    const held_char c = holding(loc, mbs, position + 1);
    if (!c.start) return -1;
    if (!c.units && position != c.start) return fail(loc, KO_EINVAL, -1);
    *len_bytes = c.units ? c.units : terminator_len(record(loc));
    return int(position - c.start);
}

const ko_mchar_t *skip_chars(ko_lc_t loc, const ko_mchar_t *mbs, int n, int *skipped) {
    return by_code_set(loc, [=]<class By>(const By &by) {
        const ko_mchar_t *s = mbs;
        if constexpr (By::one_unit) {
            *skipped = int(by.length(s, n));
            return s + *skipped;
        }
        for (*skipped = 0; *skipped < n; ++*skipped) {
            const text_char c = by.at(s);
            if (c.units < 0) s = nullptr;
            if (c.units <= 0) break;
            s += c.units;
        }
        return s;
    });
}

ko_mchar_t *ko_full_getmbsi(ko_lc_t loc, const ko_mchar_t *mbs, int i) {
    ko_mchar_t *const none = nullptr;
    if (!loc || !mbs) return fail(loc, KO_ENULL, none);
    if (i < 0) return fail(loc, KO_EINDEX, none);
    int skipped;
    const ko_mchar_t *const at = skip_chars(loc, mbs, i, &skipped);
    if (at && skipped < i) return fail(loc, KO_EINDEX, none);
    return const_cast<ko_mchar_t *>(at);
}

ko_mchar_t *ko_getmbsinull(ko_lc_t loc, const ko_mchar_t *mbs, int n, int *flag) {
    ko_mchar_t *const none = nullptr;
    if (flag) *flag = 0;
    if (!loc || !mbs || !flag) return fail(loc, KO_ENULL, none);
    if (n < 0) return fail(loc, KO_EINDEX, none);
    int skipped;
    return const_cast<ko_mchar_t *>(skip_chars(loc, mbs, n, &skipped));
}

int ko_mbsbytes_nt(ko_lc_t loc, const ko_mchar_t *mbs) {
    if (!loc || !mbs) return fail(loc, KO_ENULL, -1);
    const int bytes = ko_mbsbytes(loc, mbs);
    return bytes ? bytes - terminator_len(record(loc)) : -1;
}

// ---- Trailing spaces ----

namespace {
// A string without its trailing spaces.
struct kept_text {
    ptrdiff_t chars; // -1 for an invalid string
    ptrdiff_t units;
    bool spaces; // are there any after them?
};
} // namespace

template <class By> static bool is_space(const By &by, const typename By::unit *s, text_char c) {
    return by.classes(s, c) & KO_CT_SPACE;
}

template <class By> static kept_text without_spaces(const By &by, const typename By::unit *s) {
    if constexpr (By::one_unit) {
        const ptrdiff_t all = by.length(s);
        ptrdiff_t kept = all;
        while (kept && is_space(by, s + kept - 1, {1, s[kept - 1]}))
            --kept;
        return {kept, kept, kept < all};
    }
    const typename By::unit *const start = s, *kept_end = s;
    ptrdiff_t chars = 0, kept = 0;
    for (;;) {
        unsigned facts;
        while ((facts = by.pair_facts(s)) & pair_valid) {
            s += 2;
            ++chars;
            if (facts & pair_space) continue;
            kept = chars;
            kept_end = s;
        }
        const text_char c = by.at(s);
        if (!c.units) break;
        if (c.units < 0) return {-1, 0, false};
        ++chars;
        const bool space = is_space(by, s, c);
        s += c.units;
        if (space) continue;
        kept = chars;
        kept_end = s;
    }
    return {kept, kept_end - start, kept < chars};
}

static kept_text kept_of(ko_lc_t loc, const ko_mchar_t *mbs) {
    const kept_text none = {-1, -1, false};
    if (!loc || !mbs) return fail(loc, KO_ENULL, none);
    return by_code_set(loc, [=](const auto &by) { return without_spaces(by, mbs); });
}
static kept_text kept_of(ko_lc_t loc, const ko_wchar_t *wcs) {
    const kept_text none = {-1, -1, false};
    if (!loc || !wcs) return fail(loc, KO_ENULL, none);
    return without_spaces(by_wide{record(loc), 1}, wcs);
}

template <class Unit> static int kept_chars(ko_lc_t loc, const Unit *s) {
    const ptrdiff_t chars = kept_of(loc, s).chars;
    return chars < 0 ? -1 : counted(loc, size_t(chars));
}

int ko_mbsntslen(ko_lc_t loc, const ko_mchar_t *mbs) { return kept_chars(loc, mbs); }
int ko_wcsntslen(ko_lc_t loc, const ko_wchar_t *wcs) { return kept_chars(loc, wcs); }

int ko_mbsntsbytes(ko_lc_t loc, const ko_mchar_t *mbs) {
    const kept_text kept = kept_of(loc, mbs);
    return kept.chars < 0 ? -1 : counted(loc, size_t(kept.units));
}

ko_mchar_t *ko_mbsp(ko_lc_t loc, const ko_mchar_t *mbs) {
    const kept_text kept = kept_of(loc, mbs);
    return kept.spaces ? const_cast<ko_mchar_t *>(mbs) + kept.units : nullptr;
}

template <class Unit> static Unit *truncate_text(ko_lc_t loc, Unit *s) {
    const kept_text kept = kept_of(loc, s);
    if (kept.chars < 0) return nullptr;
    if (kept.spaces) end_text(s + kept.units, terminator_len(record(loc)));
    return s;
}

ko_mchar_t *ko_mbsntstrunc(ko_lc_t loc, ko_mchar_t *mbs) { return truncate_text(loc, mbs); }
ko_wchar_t *ko_wcsntstrunc(ko_lc_t loc, ko_wchar_t *wcs) { return truncate_text(loc, wcs); }
