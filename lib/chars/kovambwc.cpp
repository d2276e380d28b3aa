// Conversion between multibyte characters and wide characters. A byte sequence is a character
// exactly when the class table says so.
#include "chars/kovambwc.h"

#include <string.h>

// ---- One character ----

// Bytes of the character at mb by the tree, at most limit (0: any number); *value gets them,
// big-endian and kept to 16 bits. For what is not a character, the negative error number.
static int walk_wide(const mb_decode *table, const ko_mchar_t *mb, int limit, ko_wchar_t *value) {
    const multi_arr *node = table_root(table);
    unsigned wide = 0;
    for (int n = 1;; ++n, ++mb) {
        wide = (wide << 8 | *mb) & 0xFFFF;
        const unsigned flag = node_flag(node, *mb);
        if (flag == mb_final) {
            *value = ko_wchar_t(wide);
            return n;
        }
        if (flag != mb_prefix) return -KO_EILSEQ;
        if (n == limit) return -KO_EINVAL;
        node = node_child(node, *mb);
    }
}

static inline int read_wide(const kovaloc *r, const ko_mchar_t *mb, int limit, ko_wchar_t *value) {
    const mb_flat *flat = code_set(r);
    if (!flat) return walk_wide(class_table(r), mb, limit, value);
    if (limit < 2 && flat->flag1[*mb] == mb_prefix) return -KO_EINVAL;
    const int n = flat_mblen(*flat, mb);
    if (!n) return -KO_EILSEQ;
    *value = ko_wchar_t(n == 1 ? *mb : mb[0] << 8 | mb[1]);
    return n;
}

int ko_full_mbtowc(ko_lc_t loc, ko_wchar_t *wc, const ko_mchar_t *mb, int len_bytes) {
    if (!mb) return 0;
    if (!loc) return fail(loc, KO_ENULL, -1);
    if (len_bytes < 1) return fail(loc, KO_EINVAL, -1);
    ko_wchar_t value;
    const int n = read_wide(record(loc), mb, len_bytes, &value);
    if (n < 0) return fail(loc, -n, -1);
    if (wc) *wc = value;
    return value ? n : 0;
}

int read_wide_char(const kovaloc *r, ko_wchar_t *wc, const ko_mchar_t *mb) {
    const int n = read_wide(r, mb, 4, wc);
    return n < 0 ? -1 : *wc ? n : 0;
}

// Writes the bytes of a wide value and returns their number; writes nothing and returns 0 for a
// value without bytes.
static inline int flat_bytes(const mb_flat &f, ko_mchar_t *dst, ko_wchar_t wc) {
    if (!flat_wchar(&f, wc)) return 0;
    if (wc <= 0xFF && f.min_char_len == 1) {
        dst[0] = ko_mchar_t(wc);
        return 1;
    }
    dst[0] = ko_mchar_t(wc >> 8);
    dst[1] = ko_mchar_t(wc & 0xFF);
    return 2;
}

int bytes_of_wide(const kovaloc *r, ko_mchar_t *dst, ko_wchar_t wc) {
    const ctype_flat *const flat = flat_classes(r);
    const int n = flat ? flat_bytes(flat->classes, dst, wc) : 0;
    return n ? n : wide_to_bytes(class_table(r), dst, wc);
}

int ko_full_wctomb(ko_lc_t loc, ko_mchar_t *dst, ko_wchar_t wc) {
    if (!loc || !dst) return fail(loc, KO_ENULL, -1);
    const int n = bytes_of_wide(record(loc), dst, wc);
    return n > 0 ? n : fail(loc, KO_EILSEQ, -1);
}

int sl_wctomb(ko_lc_t loc, ko_mchar_t *dst, ko_wchar_t wc) {
    if (!loc || !dst) return fail(loc, KO_ENULL, -1);
    const int n = wide_to_bytes(static_cast<const mb_decode *>(record(loc)->coll), dst, wc);
    return n > 0 ? n : fail(loc, KO_EILSEQ, -1);
}

int ko_wclen(ko_lc_t loc, ko_wchar_t wc) {
    if (!loc) return fail(loc, KO_ENULL, -1);
    if (record(loc)->exp.single_byte) return 1;
    ko_mchar_t scratch[4];
    return ko_full_wctomb(loc, scratch, wc);
}

// ---- Strings to wide ----

int is_mbstowcs(ko_lc_t loc, ko_wchar_t *dst, const ko_mchar_t *mbs, int n) {
    if (!dst || !mbs) return fail(loc, KO_ENULL, -1);
    const size_t most = n > 0 ? size_t(n) : 0;
    size_t i = widen_run(dst, mbs, most, 0xFF);
    for (; i < most; ++i) {
        dst[i] = mbs[i];
        if (!mbs[i]) break;
    }
    return int(i);
}

// Where the errors of a step go that calls share with others that do not want them.
template <bool quiet> static gen_exports *errors_of(const kovaloc *r) {
    return quiet ? &nobody : const_cast<gen_exports *>(&r->exp.gen);
}

template <bool quiet>
static inline int flat_mbstowcs(const kovaloc *r, ko_wchar_t *dst, const ko_mchar_t *mbs, size_t n,
                                const ctype_flat *flat) {
    const mb_flat &f = flat->classes;
    for (size_t i = 0; i < n;) {
        const unsigned b = *mbs;
        if (b - 1 < 0x7F && flat->plain_ascii) {
            const size_t run = widen_run(dst + i, mbs, n - i, 0x7F);
            i += run;
            mbs += run;
            if (run) continue;
        }
        if (f.flag1[b] == mb_prefix) {
            const size_t run = widen_pairs(dst + i, mbs, n - i, flat);
            i += run;
            mbs += 2 * run;
            if (run) continue;
            if (b | mbs[1] || f.second->flags[b][0] != mb_final)
                return fail(errors_of<quiet>(r), KO_EILSEQ, -1);
            dst[i] = 0;
        } else if (f.flag1[b] == mb_final) {
            dst[i] = ko_wchar_t(b);
            ++mbs;
        } else {
            return fail(errors_of<quiet>(r), KO_EILSEQ, -1);
        }
        if (!dst[i]) return int(i);
        ++i;
    }
    return int(n);
}

template <bool quiet>
static inline int widen(const kovaloc *r, ko_wchar_t *dst, const ko_mchar_t *mbs, int n) {
    if (n <= 0) return 0;
    if (const ctype_flat *flat = flat_classes(r)) {
        return flat_mbstowcs<quiet>(r, dst, mbs, size_t(n), flat);
    }
    for (int i = 0; i < n; ++i) {
        const int taken = walk_wide(class_table(r), mbs, 0, &dst[i]); // no limit
        if (taken < 0) return fail(errors_of<quiet>(r), -taken, -1);
        if (!dst[i]) return i;
        mbs += taken;
    }
    return n;
}

int im_mbstowcs(ko_lc_t loc, ko_wchar_t *dst, const ko_mchar_t *mbs, int n) {
    if (!loc || !dst || !mbs) return fail(loc, KO_ENULL, -1);
    return widen<false>(record(loc), dst, mbs, n);
}

int widen_quietly(const kovaloc *r, ko_wchar_t *dst, const ko_mchar_t *mbs, int n) {
    return widen<true>(r, dst, mbs, n);
}

// ---- Strings of a locale object ----

size_t zeros_at(const void *string) {
    const char *const s = static_cast<const char *>(string);
    const char *p = s + strlen(s);
    while (p[1] || p[2] || p[3]) { // a null byte within a character
        p++;
        p += strlen(p);
    }
    return size_t(p - s);
}

int alloc_wc_from_mb(kovaloc *loc, const ko_mchar_t *mbs, ko_wchar_t **wide) {
    *wide = nullptr;
    if (!mbs) return 0;
    const size_t room = zeros_at(mbs) + 1;
    if (room > INT32_MAX) return fail(loc, KO_ENOMEM, -1);
    ext_block<ko_wchar_t> wcs(room);
    if (!wcs.p) return fail(loc, KO_ENOMEM, -1);
    const int len = loc->exp.mbstowcs(loc, wcs.p, mbs, int(room));
    if (len < 0) return -1;
    if (size_t(len) < room) wcs.p[len] = 0;
    *wide = wcs.release();
    return 0;
}

// ---- Wide strings to bytes ----

int is_wcstombs(ko_lc_t loc, ko_mchar_t *dst, const ko_wchar_t *wcs, int n) {
    if (!dst || !wcs) return fail(loc, KO_ENULL, -1);
    const size_t room = n > 0 ? size_t(n) : 0;
    size_t i = narrow_run(dst, wcs, room, 0xFF);
    for (; i < room; ++i) {
        if (wcs[i] > 0xFF) return fail(loc, KO_EILSEQ, -1);
        dst[i] = ko_mchar_t(wcs[i]);
        if (!wcs[i]) break;
    }
    return int(i);
}

// Deliberately, a value above 0xFF takes two bytes of room but only one is written.
static int single_wcstombs(ko_mchar_t *dst, const ko_wchar_t *wcs, size_t room) {
    size_t done = 0;
    while (done < room) {
        const size_t run = narrow_run(dst + done, wcs, room - done, 0xFF);
        done += run;
        wcs += run;
        if (done == room) break;
        const ko_wchar_t wc = *wcs++;
        const size_t k = wc > 0xFF ? 2 : 1;
        if (done + k > room) break;
        dst[done] = ko_mchar_t(wc & 0xFF);
        if (!wc) break;
        done += k;
    }
    return int(done);
}

template <bool quiet>
static inline int flat_wcstombs(const kovaloc *r, ko_mchar_t *dst, const ko_wchar_t *wcs,
                                size_t room, const ctype_flat *flat) {
    const mb_flat &f = flat->classes;
    const auto least = size_t(f.min_char_len);
    size_t done = 0;
    for (;; ++wcs) {
        if (*wcs - 1u < 0x7F && flat->plain_ascii) {
            const size_t run = narrow_run(dst + done, wcs, room - done, 0x7F);
            done += run;
            wcs += run;
            if (done == room) break;
        }
        if (flat->pairs) {
            const size_t run = narrow_pairs(dst + done, wcs, (room - done) / 2, flat);
            done += 2 * run;
            wcs += run;
        }
        const ko_wchar_t wc = *wcs;
        const size_t k = wc > 0xFF || least > 1 ? 2 : 1;
        if (done + k > room) break;
        if (!wc) {
            memset(dst + done, 0, k);
            break;
        }
        if (!flat_bytes(f, dst + done, wc)) return fail(errors_of<quiet>(r), KO_EILSEQ, -1);
        done += k;
    }
    return int(done);
}

template <bool quiet>
static int tree_wcstombs(const kovaloc *r, ko_mchar_t *dst, const ko_wchar_t *wcs, int room) {
    const int least = terminator_len(r);
    for (int done = 0;; ++wcs) {
        const int k = *wcs > 0xFF && least < 2 ? 2 : least;
        if (done + k > room) return done;
        if (!*wcs) {
            memset(dst + done, 0, size_t(least));
            return done;
        }
        if (r->exp.single_byte) {
            dst[done] = ko_mchar_t(*wcs & 0xFF);
        } else if (bytes_of_wide(r, dst + done, *wcs) <= 0) {
            return fail(errors_of<quiet>(r), KO_EILSEQ, -1);
        }
        done += k;
    }
}

template <bool quiet>
static inline int narrow(const kovaloc *r, ko_mchar_t *dst, const ko_wchar_t *wcs, int n) {
    if (n <= 0) return 0;
    const int least = terminator_len(r);
    if (r->exp.single_byte && least == 1) {
        return single_wcstombs(dst, wcs, size_t(n));
    }
    const ctype_flat *flat = flat_classes(r);
    if (flat && !r->exp.single_byte && (least == 1 || least == 2)) {
        return flat_wcstombs<quiet>(r, dst, wcs, size_t(n), flat);
    }
    return tree_wcstombs<quiet>(r, dst, wcs, n);
}

int ko_full_wcstombs(ko_lc_t loc, ko_mchar_t *dst, const ko_wchar_t *wcs, int n) {
    if (!loc || !dst || !wcs) return fail(loc, KO_ENULL, -1);
    return narrow<false>(record(loc), dst, wcs, n);
}

int narrow_quietly(const kovaloc *r, ko_mchar_t *dst, const ko_wchar_t *wcs, int n) {
    return narrow<true>(r, dst, wcs, n);
}
