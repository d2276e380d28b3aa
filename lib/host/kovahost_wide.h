// Conversion between UTF-8 and UTF-16 where the processor has vectors of 64 bytes.
#ifndef KOVAHOST_WIDE_H
#define KOVAHOST_WIDE_H

#include "chars/kovawide.h"
#include "host/kovahost_simd.h"

#ifdef KOVA_X86_WIDE

// Convert whole characters up to the end of the text or the room, or up to somewhere before the
// first thing that is no character. Units of UTF-16 are two bytes at any address, those of the
// other byte order swapped; room and n count units. Nothing outside text and room is touched.
run_of wide_from_utf8(unsigned char *dst, size_t room, const unsigned char *src, size_t n,
                      bool swapped);
run_of wide_to_utf8(unsigned char *dst, size_t room, const unsigned char *src, size_t n,
                    bool swapped);

#else

inline run_of wide_from_utf8(unsigned char *, size_t, const unsigned char *, size_t, bool) {
    return {0, 0};
}
inline run_of wide_to_utf8(unsigned char *, size_t, const unsigned char *, size_t, bool) {
    return {0, 0};
}

#endif

// The same between units of this machine's byte order.
inline run_of wide_run(ko_wchar_t *dst, size_t room, const unsigned char *src, size_t n) {
    void *const to = dst;
    return wide_from_utf8(static_cast<unsigned char *>(to), room, src, n, false);
}
inline run_of wide_run(unsigned char *dst, size_t room, const ko_wchar_t *src, size_t n) {
    const void *const from = src;
    return wide_to_utf8(dst, room, static_cast<const unsigned char *>(from), n, false);
}

#endif
