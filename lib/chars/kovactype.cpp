// Character classes and case mapping, of one character and of strings.
#include "chars/kovambwc.h"

#include <limits.h>
#include <math.h>
#include <string.h>

// ---- Bytes of a character ----

int ko_mb_loc_max(ko_lc_t loc) {
    void *table = loc ? record(loc)->ctype : nullptr;
    return table ? multi_max_length(table) : 0;
}

int ko_mb_loc_min(ko_lc_t loc) {
    void *table = loc ? record(loc)->ctype : nullptr;
    return table ? multi_min_length(table) : 2;
}

// ---- Classes ----

static constexpr struct {
    const char *name;
    ko_ctype_t mask;
} standard_classes[] = {
    {"upper",  KO_CT_UPPER },
    {"lower",  KO_CT_LOWER },
    {"alpha",  KO_CT_ALPHA },
    {"digit",  KO_CT_DIGIT },
    {"space",  KO_CT_SPACE },
    {"cntrl",  KO_CT_CNTRL },
    {"punct",  KO_CT_PUNCT },
    {"graph",  KO_CT_GRAPH },
    {"print",  KO_CT_PRINT },
    {"xdigit", KO_CT_XDIGIT},
    {"blank",  KO_CT_BLANK },
    {"alnum",  KO_CT_ALNUM },
};

constexpr ko_ctype_t first_user_class = 0x0800;

ko_ctype_t user_class(const kovaloc *loc, const char *name) {
    for (int i = 0; loc->user_bits && i < loc->num_user_bits; ++i) {
        const user_bit &bit = loc->user_bits[i];
        if (!bit.name || strcmp(name, bit.name) != 0) continue;
        return bit.bitpos < 21 ? first_user_class << bit.bitpos : 0;
    }
    return 0;
}

// Deliberately, standard names come first, so a locale cannot redefine them.
ko_ctype_t ko_ctype(ko_lc_t loc, const char *name) {
    if (!name) return 0;
    for (const auto &row : standard_classes) {
        if (!strcmp(name, row.name)) return row.mask;
    }
    return loc ? user_class(record(loc), name) : 0;
}

static ko_ctype_t mask_at(const void *item) {
    uint16_t mask;
    memcpy(&mask, item, sizeof mask);
    return mask;
}

int im_iswctype(ko_lc_t loc, ko_wchar_t wc, ko_ctype_t mask) {
    if (!loc) return fail(loc, KO_ENULL, 0);
    const kovaloc *r = record(loc);
    if (const mb_flat *flat = code_set(r)) {
        const uint16_t *item = flat_wchar(flat, wc);
        return item ? int(*item & mask) : fail(loc, KO_EILSEQ, 0);
    }
    const void *item = retrieve_wchar_multi_nl(head(loc), wc, r->ctype);
    return item ? int(mask_at(item) & mask) : 0;
}

unsigned tree_classes(const kovaloc *r, ko_wchar_t wc) {
    const void *item = retrieve_wchar_multi_nl(&nobody, wc, r->ctype);
    return item ? mask_at(item) : 0;
}

int im_ismctype(ko_lc_t loc, const ko_mchar_t *mb, ko_ctype_t mask) {
    if (!loc || !mb) return fail(loc, KO_ENULL, 0);
    const kovaloc *r = record(loc);
    if (const mb_flat *flat = code_set(r)) {
        const int n = flat_mblen(*flat, mb);
        if (n == 1) return int(flat->item1[*mb] & mask);
        if (n == 2) return int(flat->second->items[mb[0]][mb[1]] & mask);
        return fail(loc, KO_EILSEQ, 0);
    }
    const void *item = retrieve_text_multi_nl(mb, r->ctype, head(loc));
    return item ? int(mask_at(item) & mask) : 0;
}

// ---- Case of one character ----

namespace {
// What differs between the two directions of case mapping.
struct case_side {
    ko_wchar_t conv_elem::*partner;
    case_pages ctype_flat::*pages;
    unsigned char *loc_exports::*sb_table;
    case_rows kovaloc::*rows;
    unsigned pair_bit;
    unsigned first_letter; // the first ASCII letter that changes
};
} // namespace
static constexpr case_side to_upper = {
    &conv_elem::upper,    &ctype_flat::upper, &loc_exports::sb_toupper_table,
    &kovaloc::upper_rows, pair_upper,         'a'};
static constexpr case_side to_lower = {
    &conv_elem::lower,    &ctype_flat::lower, &loc_exports::sb_tolower_table,
    &kovaloc::lower_rows, pair_lower,         'A'};

// The partner to which an item of the case table refers, 0 for none.
template <const case_side &side> static ko_wchar_t partner_of(const kovaloc *r, const void *item) {
    uint16_t index;
    memcpy(&index, item, sizeof index);
    return case_partner(r, index, side.partner);
}

namespace {
// The state of a wide character in the case pages: case_same, case_mapped or not a character.
struct page_entry {
    unsigned state;
    ko_wchar_t partner;
};
} // namespace
static inline page_entry page_of(const ctype_flat *flat, const case_pages &pages, ko_wchar_t wc) {
    const unsigned hi = wc >> 8, lo = wc & 0xFF;
    if (!hi && flat->cases.min_char_len == 1) return {pages.state1[lo], pages.partner1[lo]};
    if (!pages.second) return {mb_invalid, 0};
    return {pages.second->states[hi][lo], pages.second->partners[hi][lo]};
}

template <const case_side &side>
static inline ko_wchar_t map_wide(const kovaloc *r, ko_wchar_t wc, gen_exports *errors) {
    if (const ctype_flat *flat = flat_cases(r)) {
        const page_entry entry = page_of(flat, flat->*side.pages, wc);
        if (entry.state == case_mapped) return entry.partner;
        return entry.state == case_same ? wc : fail(errors, KO_EILSEQ, wc);
    }
    const void *item = retrieve_wchar_multi_nl(errors, wc, r->cconv);
    const ko_wchar_t partner = item ? partner_of<side>(r, item) : ko_wchar_t{0};
    return partner ? partner : wc;
}

ko_wchar_t im_towupper(ko_lc_t loc, ko_wchar_t wc) {
    if (!loc) return fail(loc, KO_ENULL, wc);
    return map_wide<to_upper>(record(loc), wc, head(loc));
}

ko_wchar_t im_towlower(ko_lc_t loc, ko_wchar_t wc) {
    if (!loc) return fail(loc, KO_ENULL, wc);
    return map_wide<to_lower>(record(loc), wc, head(loc));
}

ko_wchar_t upper_of(const kovaloc *r, ko_wchar_t wc) { return map_wide<to_upper>(r, wc, &nobody); }

ko_wchar_t lower_of(const kovaloc *r, ko_wchar_t wc) { return map_wide<to_lower>(r, wc, &nobody); }

// Maps the character at mb by the tree. *taken gets its length; returns the bytes written, -1 for a
// partner without bytes, and with strict also for what is not a character.
template <const case_side &side>
static int map_multibyte(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mb, int *taken,
                         bool strict) {
    const kovaloc *r = record(loc);
    const void *item = retrieve_text_multi(mb, r->cconv, taken, head(loc));
    if (!item && strict) return -1;
    const ko_wchar_t partner = item ? partner_of<side>(r, item) : ko_wchar_t{0};
    if (partner) return ko_full_wctomb(loc, dst, partner);
    memmove(dst, mb, size_t(*taken));
    return *taken;
}

template <const case_side &side>
static uint16_t packed_lengths(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mb) {
    if (!loc || !dst || !mb) return fail(loc, KO_ENULL, uint16_t{0});
    int taken;
    const int written = map_multibyte<side>(loc, dst, mb, &taken, false);
    return uint16_t(taken << 8 | (written & 0xFF));
}

uint16_t im_tomupper(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mb) {
    return packed_lengths<to_upper>(loc, dst, mb);
}

uint16_t im_tomlower(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mb) {
    return packed_lengths<to_lower>(loc, dst, mb);
}

// ---- Case of strings ----

// Maps a string of a single-byte code set and returns its bytes.
static size_t map_bytes(ko_mchar_t *dst, const ko_mchar_t *mbs, const unsigned char *table,
                        const case_rows &rows) {
    size_t done = 0;
    if (rows.table == table) {
        done = rows.kernel(dst, mbs, rows); // mostly all of a short string
        if (mbs[done]) done += map_rows(dst + done, mbs + done, rows);
    }
    for (; mbs[done]; ++done)
        dst[done] = table[mbs[done]];
    dst[done] = 0;
    return done;
}

// Maps everything before the next character that a run cannot take.
template <const case_side &side>
static size_t map_runs(ko_mchar_t *dst, const ko_mchar_t *mbs, const ctype_flat *flat) {
    size_t n = 0;
    if ((flat->*side.pages).plain_ascii && mbs[0] - 1u < 0x7F)
        n = map_ascii(dst, mbs, side.first_letter);
    if (flat->pairs) n += 2 * copy_pairs(dst + n, mbs + n, flat, side.pair_bit);
    return n;
}

// Maps by the pages. Returns the bytes written, -1 at what is not a character.
template <const case_side &side>
static int map_pages(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs, const ctype_flat *flat) {
    const case_pages &pages = flat->*side.pages;
    const bool one_byte = flat->classes.min_char_len == 1;
    ko_mchar_t *const start = dst;
    for (;;) {
        const size_t run = map_runs<side>(dst, mbs, flat);
        dst += run;
        mbs += run;
        const unsigned b = mbs[0];
        if (!b && (one_byte || !mbs[1])) break;
        unsigned state = pages.state1[b], out = b, taken = 1;
        if (state == case_mapped) {
            out = pages.partner1[b];
        } else if (state != case_same) {
            state = pages.second ? pages.second->states[b][mbs[1]] : unsigned{mb_invalid};
            taken = 2;
            if (state != case_same && state != case_mapped) return fail(loc, KO_EILSEQ, -1);
            out = state == case_mapped ? pages.second->partners[b][mbs[1]] : b << 8 | mbs[1];
        }
        if (out > 0xFF || !one_byte) *dst++ = ko_mchar_t(out >> 8);
        *dst++ = ko_mchar_t(out & 0xFF);
        mbs += taken;
    }
    ko_mbsterm(loc, dst);
    return counted(loc, size_t(dst - start));
}

template <const case_side &side>
static int map_string(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs) {
    if (!loc || !dst || !mbs) return fail(loc, KO_ENULL, -1);
    const kovaloc *r = record(loc);
    if (const unsigned char *table = r->exp.*side.sb_table) {
        return counted(loc, map_bytes(dst, mbs, table, r->*side.rows));
    }
    if (const ctype_flat *flat = flat_cases(r)) return map_pages<side>(loc, dst, mbs, flat);
    size_t total = 0;
    while (!ko_ismbsterm(loc, mbs)) {
        int taken;
        const int written = map_multibyte<side>(loc, dst + total, mbs, &taken, true);
        if (written < 0) return -1;
        total += size_t(written);
        mbs += taken;
    }
    ko_mbsterm(loc, dst + total);
    return counted(loc, total);
}

int ko_tombsupper(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs) {
    return map_string<to_upper>(loc, dst, mbs);
}

int ko_tombslower(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs) {
    return map_string<to_lower>(loc, dst, mbs);
}

// A value absent from the case table ends the call, unlike the mapping of one wide character.
template <const case_side &side>
static int map_wide_string(ko_lc_t loc, ko_wchar_t *dst, const ko_wchar_t *wcs) {
    if (!loc || !dst || !wcs) return fail(loc, KO_ENULL, -1);
    const kovaloc *r = record(loc);
    const unsigned char *table = r->exp.*side.sb_table;
    const ctype_flat *flat = flat_cases(r);
    for (; *wcs; ++wcs, ++dst) {
        const ko_wchar_t wc = *wcs;
        if (table) {
            *dst = wc <= 0xFF ? table[wc] : wc;
        } else if (flat) {
            const page_entry entry = page_of(flat, flat->*side.pages, wc);
            if (entry.state != case_same && entry.state != case_mapped) {
                return fail(loc, KO_EILSEQ, -1);
            }
            *dst = entry.state == case_mapped ? entry.partner : wc;
        } else {
            const void *item = retrieve_wchar_multi_nl(head(loc), wc, r->cconv);
            if (!item) return -1;
            const ko_wchar_t partner = partner_of<side>(r, item);
            *dst = partner ? partner : wc;
        }
    }
    *dst = 0;
    return 0;
}

int ko_towcsupper(ko_lc_t loc, ko_wchar_t *dst, const ko_wchar_t *wcs) {
    return map_wide_string<to_upper>(loc, dst, wcs);
}

int ko_towcslower(ko_lc_t loc, ko_wchar_t *dst, const ko_wchar_t *wcs) {
    return map_wide_string<to_lower>(loc, dst, wcs);
}

// A locale object may state any ratio: one below 1 still leaves room for the source, and a huge one
// is limited to the largest length.
int ko_case_conv_outbuflen(ko_lc_t loc, int len_bytes) {
    const double ratio = loc ? ceil(record(loc)->exp.case_conv_ratio) : 1;
    const double room = len_bytes * (ratio > 1 ? ratio : 1);
    if (room >= INT_MAX) return INT_MAX;
    return room > INT_MIN ? int(room) : INT_MIN;
}
