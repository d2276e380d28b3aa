// Kernels of conversion and case mapping that take many bytes at once.
#include "kovambwc.h"

size_t map_rows(ko_mchar_t *, const ko_mchar_t *, const case_rows &) { return 0; }

size_t map_ascii(ko_mchar_t *dst, const ko_mchar_t *src, unsigned first) {
    size_t i = 0;
    for (; src[i] - 1u < 0x7F; ++i) {
        const unsigned c = src[i];
        dst[i] = static_cast<ko_mchar_t>(c - first < 26 ? c ^ 0x20 : c);
    }
    return i;
}

size_t widen_run(ko_wchar_t *dst, const ko_mchar_t *src, size_t n, unsigned most) {
    size_t i = 0;
    for (; i < n && src[i] - 1u < most; ++i)
        dst[i] = src[i];
    return i;
}

size_t narrow_run(ko_mchar_t *dst, const ko_wchar_t *src, size_t n, unsigned most) {
    size_t i = 0;
    for (; i < n && src[i] - 1u < most; ++i)
        dst[i] = static_cast<ko_mchar_t>(src[i]);
    return i;
}
