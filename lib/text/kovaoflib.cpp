// Writes characters and strings to the host's streams.
#include "text/kovastr.h"

// True if all bytes were written.
static bool put_bytes(ko_lc_t loc, const ko_mchar_t *bytes, ptrdiff_t count, void *stream) {
    const auto wanted = size_t(count);
    if (!wanted || ko_ext_fwrite(bytes, 1, wanted, stream) == wanted) return true;
    return fail(loc, KO_EIO, false);
}

const ko_mchar_t *ko_fputmb(ko_lc_t loc, const ko_mchar_t *mb, void *stream) {
    const ko_mchar_t *const none = nullptr;
    if (!loc || !mb || !stream) return fail(loc, KO_ENULL, none);
    const int longest = ko_mb_loc_max(loc);
    if (longest < 1) return fail(loc, KO_EINVAL, none);
    int n = *mb ? 1 : 0;
    if (!record(loc)->exp.single_byte) n = ko_full_mblen(loc, mb, longest);
    return n >= 0 && put_bytes(loc, mb, n, stream) ? mb : none;
}

static bool put_wide(ko_lc_t loc, ko_wchar_t wc, void *stream) {
    ko_mchar_t bytes[4] = {}; // zeros after the character
    if (record(loc)->exp.single_byte) {
        bytes[0] = ko_mchar_t(wc & 0xFF);
    } else if (ko_full_wctomb(loc, bytes, wc) < 0) {
        return false;
    }
    return ko_fputmb(loc, bytes, stream) != nullptr;
}

ko_wchar_t ko_fputwc(ko_lc_t loc, ko_wchar_t wc, void *stream) {
    constexpr ko_wchar_t none = 0xFFFF;
    if (!loc || !stream) return fail(loc, KO_ENULL, none);
    return put_wide(loc, wc, stream) ? wc : none;
}

int ko_fputmbs(ko_lc_t loc, const ko_mchar_t *mbs, void *stream) {
    if (!loc || !mbs || !stream) return fail(loc, KO_ENULL, -1);
    const ptrdiff_t n = by_code_set(loc, [=](const auto &by) { return by.length(mbs); });
    return n >= 0 && put_bytes(loc, mbs, n, stream) ? 0 : -1;
}

int ko_fputwcs(ko_lc_t loc, const ko_wchar_t *wcs, void *stream) {
    if (!loc || !wcs || !stream) return fail(loc, KO_ENULL, -1);
    while (*wcs) {
        if (!put_wide(loc, *wcs++, stream)) return -1;
    }
    return 0;
}
