// Lengths of strings and characters, terminators, the next character.
#include "chars/kovambwc.h"

#include <string.h>

int ko_wcslen(const ko_wchar_t *wcs) {
    if (!wcs) return 0;
    const ko_wchar_t *end = wcs;
    while (*end)
        ++end;
    return size_t(end - wcs) <= INT_MAX ? int(end - wcs) : -1;
}

int ko_wcsbytes(const ko_wchar_t *wcs) {
    const int unit = sizeof(ko_wchar_t), len = ko_wcslen(wcs);
    return len >= 0 && len < INT_MAX / unit ? unit * (len + 1) : -1;
}

int ko_full_mblen(ko_lc_t loc, const ko_mchar_t *mb, int len_bytes) {
    return ko_full_mbtowc(loc, nullptr, mb, len_bytes);
}

// ---- Terminators, the next character ----

int ko_mbsterm(ko_lc_t loc, ko_mchar_t *mb) {
    if (!loc || !mb) return fail(loc, KO_ENULL, 0);
    const int n = terminator_len(record(loc));
    memset(mb, 0, size_t(n));
    return n;
}

int ko_ismbsterm(ko_lc_t loc, const ko_mchar_t *mb) {
    if (!loc || !mb) return fail(loc, KO_ENULL, 0);
    const int n = terminator_len(record(loc));
    for (int i = 0; i < n; ++i) {
        if (mb[i]) return 0;
    }
    return n;
}

// The terminator counts as an ordinary character here if the code set has it.
ko_mchar_t *ko_full_mbsnext(ko_lc_t loc, const ko_mchar_t *mb) {
    ko_mchar_t *const none = nullptr;
    if (!loc || !mb) return fail(loc, KO_ENULL, none);
    const kovaloc *r = record(loc);
    int n = 1;
    if (!r->exp.single_byte) n = retrieve_text_multi_nv(mb, r->ctype, head(loc));
    if (!n) return none;
    return const_cast<ko_mchar_t *>(mb) + n;
}

// ---- Lengths ----

namespace {
struct extent {
    size_t chars, bytes;
    bool valid;
};
} // namespace

// Characters and bytes before the null character. Characters of more than two bytes are invalid
// here.
static extent measure(ko_lc_t loc, const ko_mchar_t *mbs) {
    extent seen = {0, 0, true};
    const ctype_flat *flat = flat_classes(record(loc));
    for (;;) {
        int n;
        if (flat && flat->pairs) {
            const size_t run = count_pairs(mbs + seen.bytes, flat);
            seen.bytes += 2 * run;
            seen.chars += run;
        }
        const ko_mchar_t *at = mbs + seen.bytes;
        if (flat && flat->classes.flag1[*at] == mb_final) {
            n = *at ? 1 : 0;
        } else {
            n = ko_full_mblen(loc, at, 2);
        }
        if (n < 0) seen.valid = false;
        if (n <= 0) return seen;
        seen.bytes += size_t(n);
        ++seen.chars;
    }
}

static size_t byte_len(const ko_mchar_t *mbs) {
    const void *text = mbs;
    return strlen(static_cast<const char *>(text));
}

int im_mbslen(ko_lc_t loc, const ko_mchar_t *mbs) {
    if (!loc || !mbs) return fail(loc, KO_ENULL, -1);
    if (record(loc)->exp.single_byte) return counted(loc, byte_len(mbs));
    const extent seen = measure(loc, mbs);
    return seen.valid ? counted(loc, seen.chars) : -1;
}

int string_room(ko_lc_t loc, const ko_mchar_t *mbs, int *error) {
    const kovaloc *r = record(loc);
    const extent seen = r->exp.single_byte ? extent{0, byte_len(mbs), true} : measure(loc, mbs);
    const size_t bytes = seen.bytes + size_t(terminator_len(r));
    *error = !seen.valid ? KO_EILSEQ : bytes > INT_MAX ? KO_ERANGE : KO_OK;
    return *error ? 0 : int(bytes);
}

int ko_mbsbytes(ko_lc_t loc, const ko_mchar_t *mbs) {
    int error = KO_OK;
    if (!loc || !mbs) return 0;
    const int bytes = string_room(loc, mbs, &error);
    return error == KO_ERANGE ? fail(loc, KO_ERANGE, 0) : bytes;
}
