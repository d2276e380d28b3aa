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

int try_widen(kovaloc *loc, const ko_mchar_t *mbs, wide_text *text) {
    if (!loc->exp.mbstowcs) return -KO_EILSEQ; // a record without a code set
    const int len = loc->exp.single_byte ? widen_bytes(text->local, mbs, wide_text_room)
                                         : widen_quietly(loc, text->local, mbs, wide_text_room);
    if (len < 0) return -KO_EILSEQ;
    if (len < wide_text_room) {
        text->p = text->local;
        return len;
    }
    int error = 0;
    const int room = string_room(loc, mbs, &error); // in bytes, so no fewer than the characters
    if (!room) return -error;
    text->block = static_cast<ko_wchar_t *>(ko_ext_malloc(size_t(room) * sizeof(ko_wchar_t)));
    if (!text->block) return -KO_ENOMEM;
    const int all = loc->exp.mbstowcs(loc, text->block, mbs, room);
    if (all < 0) return -KO_EILSEQ;
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

static int narrow_bytes(ko_mchar_t *out, int max_bytes, const ko_wchar_t *wcs) {
    ko_mchar_t *p = out, *const limit = out + max_bytes;
    for (; p < limit && *wcs - 1u < 0xFF; ++wcs)
        *p++ = ko_mchar_t(*wcs);
    if (*wcs) p = out; // empty after a failure
    *p = 0;
    return !*wcs ? int(p - out) : *wcs > 0xFF ? -KO_EILSEQ : -KO_E2BIG;
}

int try_narrow(kovaloc *loc, ko_mchar_t *out, int max_bytes, const ko_wchar_t *wcs) {
    if (max_bytes < 0) return *wcs ? -KO_E2BIG : 0;
    if (loc->exp.single_byte) return narrow_bytes(out, max_bytes, wcs);
    ko_mbsterm(loc, out); // empty after a failure
    const int64_t size = narrow_size(loc, wcs);
    if (size > max_bytes) return -KO_E2BIG;
    const int64_t room = size + terminator_len(loc);
    const int limit = room < INT32_MAX ? int(room) : INT32_MAX;
    const int written = narrow_quietly(loc, out, wcs, limit);
    if (written >= 0) return written;
    ko_mbsterm(loc, out);
    return -KO_EILSEQ;
}
