// The flat tables derived when LC_CTYPE is loaded: classes, case pages, rows of single-byte tables.
#include "chars/kovambwc.h"

#include <initializer_list>
#include <string.h>

static constexpr unsigned char no_states[256] = {};
static constexpr ko_wchar_t no_partners[256] = {};

namespace {
// One direction of the case table while its pages are built.
struct page_builder {
    const kovaloc *loc;
    const mb_flat *cases;
    const mb_flat *classes;
    ko_wchar_t conv_elem::*side;
    case_pages *pages;
};
} // namespace

static ko_wchar_t partner_of(const page_builder &from, unsigned index) {
    return case_partner(from.loc, index, from.side);
}

static bool page_maps(const page_builder &from, const unsigned char *flags, const uint16_t *items) {
    if (items == from.cases->default_page && !*items) return false; // as most are
    uint16_t any = 0;
    for (unsigned i = 0; i < 256; ++i)
        any |= items[i];
    if (!any) return false; // index 0 has no partner
    for (unsigned i = 0; i < 256; ++i) {
        if (flags[i] == mb_final && partner_of(from, items[i])) return true;
    }
    return false;
}

constexpr size_t page_bytes = 256 * (sizeof(ko_wchar_t) + 1); // partners, then states

// False if a partner has no bytes in the code set.
static bool fill_page(const page_builder &from, const unsigned char *flags, const uint16_t *items,
                      unsigned char *page, const unsigned char **states,
                      const ko_wchar_t **partners) {
    void *block = page; // of the host's memory, at a multiple of a page from its start
    auto *to = static_cast<ko_wchar_t *>(block);
    unsigned char *state = page + 256 * sizeof(ko_wchar_t);
    for (unsigned i = 0; i < 256; ++i) {
        to[i] = flags[i] == mb_final ? partner_of(from, items[i]) : ko_wchar_t{0};
        state[i] = to[i] ? uint8_t(case_mapped) : flags[i];
        if (to[i] && !flat_wchar(from.classes, to[i])) return false;
    }
    *states = state;
    *partners = to;
    return true;
}

static bool maps_as_ascii(const case_pages &pages, bool to_upper) {
    const unsigned first = to_upper ? 'a' : 'A';
    for (unsigned c = 1; c < 0x80; ++c) {
        const bool changes = c - first < 26;
        if (pages.state1[c] != (changes ? case_mapped : case_same)) return false;
        if (changes && pages.partner1[c] != (c ^ 0x20)) return false;
    }
    return true;
}

static bool build_second(const page_builder &from, const bool *maps, unsigned char *page) {
    ext_block<case_second> block(1);
    if (!block.p) return false;
    case_second *second = from.pages->second = block.release();
    const mb_second *chars = from.cases->second;
    for (unsigned b = 0; b < 256; ++b) {
        second->states[b] = from.cases->flag1[b] == mb_prefix ? chars->flags[b] : no_states;
        second->partners[b] = no_partners;
        if (!maps[b]) continue;
        if (!fill_page(from, chars->flags[b], chars->items[b], page, &second->states[b],
                       &second->partners[b])) {
            return false;
        }
        page += page_bytes;
    }
    return true;
}

// Pages without partners are the table's own flags, so that only rows with case take memory.
static bool build_pages(const page_builder &from) {
    const mb_flat *f = from.cases;
    case_pages *pages = from.pages;
    bool maps[256] = {};
    size_t count = 1;
    for (unsigned b = 0; f->second && b < 256; ++b) {
        maps[b] =
            f->flag1[b] == mb_prefix && page_maps(from, f->second->flags[b], f->second->items[b]);
        count += maps[b];
    }
    ext_block<unsigned char> block(count * page_bytes);
    if (!block.p) return false;
    unsigned char *page = pages->owned = block.release();
    if (!fill_page(from, f->flag1, f->item1, page, &pages->state1, &pages->partner1)) return false;
    if (f->second && !build_second(from, maps, page + page_bytes)) return false;
    pages->plain_ascii = maps_as_ascii(*pages, from.side == &conv_elem::upper);
    return true;
}

// The pages derive lengths from values alone, so both tables must agree on which characters have
// one byte. In a code set whose terminator has two bytes none has, and then the shortest character
// of the case table has two bytes as well.
static bool lengths_agree(const ctype_flat *flat) {
    const mb_flat &classes = flat->classes, &cases = flat->cases;
    if (classes.min_char_len != cases.min_char_len) return false;
    if (classes.min_char_len == 1) return true;
    return classes.min_char_len == 2 && !memchr(cases.flag1, mb_final, 256);
}

static bool is_plain_ascii(const mb_flat &classes) {
    if (classes.min_char_len != 1) return false;
    for (unsigned c = 1; c < 0x80; ++c) {
        if (classes.flag1[c] != mb_final) return false;
    }
    return true;
}

namespace {
// What decides on the pairs that begin with a byte.
struct pair_source {
    const unsigned char *valid, *upper, *lower;
    const uint16_t *classes;
};
} // namespace

static bool same(const pair_source &a, const pair_source &b) {
    return a.valid == b.valid && a.upper == b.upper && a.lower == b.lower && a.classes == b.classes;
}

static pair_source source_of(const ctype_flat *flat, unsigned hi) {
    const bool cased = flat->has_cases && flat->upper.second;
    return {flat->classes.second->flags[hi], cased ? flat->upper.second->states[hi] : no_states,
            cased ? flat->lower.second->states[hi] : no_states, flat->classes.second->items[hi]};
}

static void fill_pairs(const pair_source &from, unsigned char *bits) {
    for (unsigned lo = 0; lo < 256; ++lo) {
        const unsigned facts = (from.upper[lo] == case_same ? unsigned{pair_upper} : 0u) |
                               (from.lower[lo] == case_same ? unsigned{pair_lower} : 0u) |
                               (from.classes[lo] & KO_CT_SPACE ? unsigned{pair_space} : 0u);
        bits[lo] = uint8_t(from.valid[lo] == mb_final ? pair_valid | facts : 0u);
    }
}

static bool build_pairs(ctype_flat *flat) {
    const unsigned char *first_flags = flat->classes.flag1;
    if (!flat->classes.second) return true;
    ext_block<unsigned char> pairs(0x10000);
    if (!pairs.p) return false;
    pair_source last = {};
    const unsigned char *last_bits = nullptr;
    for (unsigned hi = 0; hi < 256; ++hi) {
        unsigned char *bits = pairs.p + (hi << 8);
        // Where a zero byte ends a string, no run may begin with one.
        if (first_flags[hi] != mb_prefix || (!hi && flat->classes.min_char_len <= 1)) {
            memset(bits, 0, 256);
            continue;
        }
        const pair_source from = source_of(flat, hi);
        if (last_bits && same(from, last)) // rows of ideographs share their arrays
            memcpy(bits, last_bits, 256);
        else
            fill_pairs(from, bits);
        if (hi) last_bits = bits;
        if (!hi) bits[0] = 0;
        last = from;
    }
    flat->pairs = pairs.release();
    return true;
}

static void fill_cases(const kovaloc *loc, ctype_flat *flat) {
    const auto *cconv = static_cast<const mb_decode *>(loc->cconv);
    if (!cconv || flatten_multi(cconv, &flat->cases)) return;
    flat->cconv = cconv;
    if (!lengths_agree(flat)) return;
    const mb_flat *cases = &flat->cases, *classes = &flat->classes;
    flat->has_cases = build_pages({loc, cases, classes, &conv_elem::upper, &flat->upper}) &&
                      build_pages({loc, cases, classes, &conv_elem::lower, &flat->lower});
}

static bool fill_flat(const kovaloc *loc, ctype_flat *flat) {
    const auto *ctype = static_cast<const mb_decode *>(loc->ctype);
    flat->ctype = ctype;
    if (flatten_multi(ctype, &flat->classes)) return false;
    flat->plain_ascii = is_plain_ascii(flat->classes);
    fill_cases(loc, flat);
    return build_pairs(flat);
}

ctype_flat *build_ctype_flat(const kovaloc *loc) {
    const auto *ctype = static_cast<const mb_decode *>(loc->ctype);
    if (!ctype || ctype->max_char_len < 1) return nullptr;
    ext_block<ctype_flat> flat(1);
    if (!flat.p) return nullptr;
    *flat.p = {};
    if (fill_flat(loc, flat.p)) return flat.release();
    free_ctype_flat(flat.release());
    return nullptr;
}

void free_ctype_flat(ctype_flat *flat) {
    if (!flat) return;
    free_flat(&flat->classes);
    free_flat(&flat->cases);
    free_ptr(flat->pairs);
    for (const case_pages *pages : {&flat->upper, &flat->lower}) {
        free_ptr(pages->owned);
        free_ptr(pages->second);
    }
    free_ptr(flat);
}

void derive_case_rows(const unsigned char *table, case_rows *rows) {
    *rows = {.table = table};
    if (!table) return;
    for (unsigned high = 0; high < 16; ++high) {
        unsigned char change[16];
        unsigned changes = 0;
        for (unsigned low = 0; low < 16; ++low) {
            change[low] = uint8_t(table[high * 16 + low] ^ (high * 16 + low));
            changes |= change[low];
        }
        if (!changes) continue;
        rows->row[rows->count] = uint8_t(high << 4);
        memcpy(rows->change[rows->count++], change, 16);
    }
    choose_kernel(rows);
}
