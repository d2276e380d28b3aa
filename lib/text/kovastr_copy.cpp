// Copying, joining and changing strings.
#include "text/kovastr.h"

// ---- Copying and joining ----

static constexpr ptrdiff_t whole = PTRDIFF_MAX; // as a number of characters: all of them

namespace {
// Multibyte and wide strings for the templates below. Their members count the units of a string or
// of its first n characters; -1 with the error word set.
struct mb_strings {
    ko_lc_t loc;
    bool usable() const { return loc; }
    int end_units() const { return terminator_len(record(loc)); }
    ptrdiff_t length(const ko_mchar_t *s, ptrdiff_t n = whole) const {
        if (n == whole) {
            const void *text = s;
            if (record(loc)->exp.single_byte)
                return ptrdiff_t(strlen(static_cast<const char *>(text)));
            return ko_mbsbytes_nt(loc, s);
        }
        int skipped;
        const ko_mchar_t *const end = skip_chars(loc, s, int(n), &skipped);
        return end ? end - s : -1;
    }
};
struct wide_strings { // without a locale: only an error hook learns of errors
    ko_lc_t loc = nullptr;
    bool usable() const { return true; }
    int end_units() const { return 1; }
    ptrdiff_t length(const ko_wchar_t *s, ptrdiff_t n = whole) const {
        return by_wide{}.length(s, n);
    }
};
} // namespace

namespace {
enum class place { start, end };
} // namespace

// Copies at most n characters to the start, or to the end, of dst. Lengths are measured first, so
// that an invalid string leaves dst as it was.
template <class Strings, class Unit>
static Unit *copy_text(const Strings &strings, Unit *dst, const Unit *src, ptrdiff_t n,
                       place where) {
    Unit *const none = nullptr;
    if (!dst || !src || !strings.usable()) return fail(strings.loc, KO_ENULL, none);
    if (n < 0) return fail(strings.loc, KO_EINDEX, none);
    const ptrdiff_t before = where == place::end ? strings.length(dst) : 0;
    if (before < 0) return none;
    const ptrdiff_t len = strings.length(src, n);
    if (len < 0) return none;
    memmove(dst + before, src, size_t(len) * sizeof(Unit));
    end_text(dst + before + len, strings.end_units());
    return dst;
}

ko_mchar_t *ko_full_mbscpy(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *src) {
    return copy_text(mb_strings{loc}, dst, src, whole, place::start);
}
ko_mchar_t *ko_full_mbscat(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *src) {
    return copy_text(mb_strings{loc}, dst, src, whole, place::end);
}
ko_mchar_t *ko_mbsncpy(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *src, int n) {
    return copy_text(mb_strings{loc}, dst, src, n, place::start);
}
ko_mchar_t *ko_mbsncat(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *src, int n) {
    return copy_text(mb_strings{loc}, dst, src, n, place::end);
}

ko_wchar_t *ko_wcscpy(ko_wchar_t *dst, const ko_wchar_t *src) {
    return copy_text(wide_strings{}, dst, src, whole, place::start);
}
ko_wchar_t *ko_wcscat(ko_wchar_t *dst, const ko_wchar_t *src) {
    return copy_text(wide_strings{}, dst, src, whole, place::end);
}
ko_wchar_t *ko_wcsncpy(ko_wchar_t *dst, const ko_wchar_t *src, int n) {
    return copy_text(wide_strings{}, dst, src, n, place::start);
}
ko_wchar_t *ko_wcsncat(ko_wchar_t *dst, const ko_wchar_t *src, int n) {
    return copy_text(wide_strings{}, dst, src, n, place::end);
}

// ---- Replacing a character ----

// The null character has no bytes here: it deletes the old character.
ko_mchar_t *ko_mbcreplace(ko_lc_t loc, ko_mchar_t *position, const ko_mchar_t *mb) {
    ko_mchar_t *const none = nullptr;
    if (!loc || !position || !mb) return fail(loc, KO_ENULL, none);
    if (ko_ismbsterm(loc, position)) return fail(loc, KO_EINDEX, none);
    const ko_mchar_t *const next = ko_full_mbsnext(loc, position);
    if (!next) return none;
    const int len = ko_full_mblen(loc, mb, 2);
    const int rest = len < 0 ? 0 : ko_mbsbytes(loc, next);
    if (!rest) return none;
    const auto head_bytes = size_t(len), rest_bytes = size_t(rest);
    const ext_block<ko_mchar_t> scratch(rest_bytes + 2); // mb may lie in the string
    if (!scratch.p) return fail(loc, KO_ENOMEM, none);
    memcpy(scratch.p, mb, head_bytes);
    memcpy(scratch.p + head_bytes, next, rest_bytes);
    memcpy(position, scratch.p, head_bytes + rest_bytes);
    return position;
}

ko_mchar_t *ko_full_putmbsi(ko_lc_t loc, ko_mchar_t *mbs, int i, const ko_mchar_t *mb) {
    ko_mchar_t *const none = nullptr;
    if (!loc || !mbs || !mb) return fail(loc, KO_ENULL, none);
    ko_mchar_t *const position = ko_full_getmbsi(loc, mbs, i);
    return position ? ko_mbcreplace(loc, position, mb) : none;
}

// ---- Wide copies ----

ko_wchar_t *ko_mbstowcslen(ko_lc_t loc, const ko_mchar_t *mbs, int *len_chars) {
    ko_wchar_t *const none = nullptr;
    if (len_chars) *len_chars = 0;
    if (!loc || !mbs || !len_chars) return fail(loc, KO_ENULL, none);
    int chars;
    const ko_mchar_t *const end = skip_chars(loc, mbs, INT_MAX, &chars);
    if (!end) return none;
    if (!ko_ismbsterm(loc, end)) return fail(loc, KO_ERANGE, none);
    const auto room = size_t(chars) + 1;
    ext_block<ko_wchar_t> copy(room);
    if (!copy.p) return fail(loc, KO_ENOMEM, none);
    const kovaloc *r = record(loc);
    const auto convert = r->exp.single_byte ? is_mbstowcs : im_mbstowcs;
    copy.p[chars] = 0;
    *len_chars = convert(loc, copy.p, mbs, chars);
    return copy.release();
}
