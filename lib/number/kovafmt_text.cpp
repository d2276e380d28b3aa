// Conversion between multibyte text and the wide engines of numbers, money and time.
#include "chars/kovambwc.h"
#include "number/kovafmt.h"

wide_text::~wide_text() { free_ptr(block); }

// Formats and results are short: one byte at a time costs less than blocks, which would wait for
// bytes that have just been written.
static int widen_bytes(ko_wchar_t *out, const ko_mchar_t *mbs, size_t most) {
    size_t i = 0;
    while (i < most && (out[i] = mbs[i]))
        ++i;
    return int(i);
}

int widen_text(kovaloc *loc, const ko_mchar_t *mbs, wide_text *text) {
    if (!loc->exp.mbstowcs) return fail(loc, KO_EILSEQ, -1); // a record without a code set
    const int len = loc->exp.single_byte ? widen_bytes(text->local, mbs, wide_text_room)
                                         : loc->exp.mbstowcs(loc, text->local, mbs, wide_text_room);
    if (len < 0) return -1;
    if (len < wide_text_room) {
        text->p = text->local;
        return len;
    }
    const int room = ko_mbsbytes(loc, mbs); // terminator included, so no fewer than the characters
    if (!room) return fail(loc, KO_EILSEQ, -1);
    text->block = static_cast<ko_wchar_t *>(ko_ext_malloc(size_t(room) * sizeof(ko_wchar_t)));
    if (!text->block) return fail(loc, KO_ENOMEM, -1);
    const int all = loc->exp.mbstowcs(loc, text->block, mbs, room);
    if (all < 0) return -1;
    text->p = text->block;
    return all;
}

// Bytes of a text before its terminator, if all its characters have bytes.
static int64_t narrow_size(const kovaloc *loc, const ko_wchar_t *wcs) {
    const int least = terminator_len(loc), most = least < 2 ? 2 : least;
    int64_t size = 0;
    for (; *wcs; ++wcs)
        size += *wcs > 0xFF ? most : least;
    return size;
}

static int narrow_bytes(kovaloc *loc, ko_mchar_t *out, int max_bytes, const ko_wchar_t *wcs) {
    ko_mchar_t *p = out, *const limit = out + max_bytes;
    for (; p < limit && *wcs - 1u < 0xFF; ++wcs)
        *p++ = ko_mchar_t(*wcs);
    if (*wcs) p = out; // empty after a failure
    *p = 0;
    return !*wcs ? int(p - out) : fail(loc, *wcs > 0xFF ? KO_EILSEQ : KO_E2BIG, -1);
}

int narrow_result(kovaloc *loc, ko_mchar_t *out, int max_bytes, const ko_wchar_t *wcs) {
    if (max_bytes < 0) return *wcs ? fail(loc, KO_E2BIG, -1) : 0;
    if (loc->exp.single_byte) return narrow_bytes(loc, out, max_bytes, wcs);
    ko_mbsterm(loc, out); // empty after a failure
    const int64_t size = narrow_size(loc, wcs);
    if (size > max_bytes) return fail(loc, KO_E2BIG, -1);
    const int64_t room = size + terminator_len(loc);
    const int limit = room < INT32_MAX ? int(room) : INT32_MAX;
    const int written = ko_full_wcstombs(loc, out, wcs, limit);
    if (written < 0) ko_mbsterm(loc, out);
    return written;
}
