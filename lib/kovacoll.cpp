// Comparison and sort keys of multibyte and wide strings, and comparison in code order.
#include "kovacoll_pass.h"
#include "kovasetlc.h"

#include <limits.h>
#include <string.h>

// Without a collation category the order is that of the codes.
static bool by_code(const kovaloc *loc) {
    return loc->exp.codeset_order || loc->coll_info.collate == collate_none;
}

static int sign(int difference) { return difference < 0 ? -1 : difference > 0; }

// The pages of the code set, NULL when the record has none for its class table.
static const mb_flat *code_set(const kovaloc *loc) {
    return loc->chars && loc->chars->ctype == loc->ctype ? &loc->chars->classes : nullptr;
}

static size_t mbs_length(const ko_mchar_t *mbs) {
    return strlen(reinterpret_cast<const char *>(mbs));
}

static size_t wide_length(const ko_wchar_t *wcs) {
    size_t n = 0;
    while (wcs[n])
        ++n;
    return n;
}

// ---- Wide copies of multibyte text ----

struct wide_copy {
    ko_wchar_t *p = nullptr;
    ko_wchar_t local[256];
    ~wide_copy() {
        if (p && p != local) ko_ext_free(p);
    }
};

static bool wide_room(kovaloc *loc, size_t units, wide_copy *copy) {
    if (units > INT_MAX) return fail(loc, KO_ERANGE, false);
    copy->p = units <= 256 ? copy->local
                           : static_cast<ko_wchar_t *>(ko_ext_malloc(units * sizeof *copy->p));
    return copy->p || fail(loc, KO_ENOMEM, false);
}

// Bytes of the character at s, 0 for none.
static inline unsigned char_bytes(const mb_flat *cs, const ko_mchar_t *s) {
    const unsigned char state = cs->flag1[*s];
    if (state == mb_final) return 1;
    return state == mb_prefix && cs->flag2[*s][s[1]] == mb_final ? 2 : 0;
}

static inline unsigned wide_value(const ko_mchar_t *s, unsigned bytes) {
    return bytes == 1 ? *s : static_cast<unsigned>(s[0] << 8 | s[1]);
}

// Characters before the terminator; false for invalid text.
static bool count_chars(const mb_flat *cs, const ko_mchar_t *s, size_t *count) {
    for (*count = 0;; ++*count) {
        const unsigned n = char_bytes(cs, s);
        if (!n) return false;
        if (!wide_value(s, n)) return true;
        s += n;
    }
}

static bool widen(kovaloc *loc, const ko_mchar_t *mbs, wide_copy *copy) {
    const mb_flat *cs = code_set(loc);
    if (!cs) {
        const int count = im_mbslen(loc, mbs);
        return count >= 0 && wide_room(loc, static_cast<size_t>(count) + 1, copy) &&
               im_mbstowcs(loc, copy->p, mbs, count + 1) >= 0;
    }
    size_t count;
    if (!count_chars(cs, mbs, &count)) return fail(loc, KO_EILSEQ, false);
    if (!wide_room(loc, count + 1, copy)) return false;
    mb_text text = {mbs, cs->flag1};
    for (size_t i = 0; i <= count; ++i)
        copy->p[i] = take(text);
    return true;
}

// ---- Comparison on the derived tables ----

static inline bool inside_element(const coll_flat *flat, unsigned ch) {
    return flat->inner[ch >> 8][ch & 0xFF];
}

static inline byte_text forward_text(const ko_mchar_t *s) { return {s}; }
static inline wide_text forward_text(const ko_wchar_t *s) { return {s}; }
static inline byte_back backward_text(const ko_mchar_t *begin, const ko_mchar_t *end) {
    return {end, begin};
}
static inline wide_back backward_text(const ko_wchar_t *begin, const ko_wchar_t *end) {
    return {end, begin};
}

template <class Text> static int order_in(const coll_flat_pass *p, Text a, Text b) {
    return compare_pass(p->page, p->specials, a, b);
}

// The passes from first on. begin_ are the strings, a and b the places behind their common start.
template <class Unit>
static int compare_passes(const coll_flat *flat, int first, const Unit *begin_a, const Unit *a,
                          const Unit *begin_b, const Unit *b) {
    const Unit *end_a = nullptr, *end_b = nullptr;
    for (int pass = first; pass < flat->num_passes; ++pass) {
        const coll_flat_pass *p = &flat->pass[pass];
        int order;
        if (p->forward) {
            order = order_in(p, forward_text(a), forward_text(b));
        } else {
            if (!end_a) {
                for (end_a = a; *end_a;)
                    ++end_a;
                for (end_b = b; *end_b;)
                    ++end_b;
            }
            order = order_in(p, backward_text(begin_a, end_a), backward_text(begin_b, end_b));
        }
        if (order) return order;
    }
    return 0;
}

// Equal characters at the start weigh alike in every forward pass, unless an element reaches out
// of them: then the last character that stands inside no element is where the walks meet.
template <class Unit>
static int compare_units(const coll_flat *flat, const Unit *begin_a, const Unit *begin_b) {
    const Unit *a = begin_a, *b = begin_b;
    for (; *a == *b; ++a, ++b)
        if (!*a) return 0;
    if (flat->elements)
        for (; a != begin_a && (inside_element(flat, *a) || inside_element(flat, *b)); --a)
            --b;
    return compare_passes(flat, 0, begin_a, a, begin_b, b);
}

static int thai_wide(kovaloc *loc, const ko_wchar_t *a, const ko_wchar_t *b) {
    const size_t len_a = wide_length(a), len_b = wide_length(b);
    if (len_a > INT_MAX / 2 - 2 || len_b > INT_MAX / 2 - 2) return fail(loc, KO_ERANGE, 0);
    const int bytes_a = static_cast<int>(2 * (len_a + 1)),
              bytes_b = static_cast<int>(2 * (len_b + 1));
    const ext_block<ko_mchar_t> text_a(static_cast<size_t>(bytes_a));
    const ext_block<ko_mchar_t> text_b(static_cast<size_t>(bytes_b));
    if (!text_a.p || !text_b.p) return fail(loc, KO_ENOMEM, 0);
    if (ko_full_wcstombs(loc, text_a.p, a, bytes_a) < 0) return 0;
    if (ko_full_wcstombs(loc, text_b.p, b, bytes_b) < 0) return 0;
    return thaismocoll(loc, text_a.p, text_b.p);
}

int ko_full_wcscoll(ko_lc_t handle, const ko_wchar_t *wcs1, const ko_wchar_t *wcs2) {
    if (!handle || !wcs1 || !wcs2) return fail(handle, KO_ENULL, 0);
    kovaloc *loc = record(handle);
    if (by_code(loc)) return sign(ko_wcscmp(wcs1, wcs2));
    if (loc->coll_info.collate == collate_thai) return thai_wide(loc, wcs1, wcs2);
    if (loc->weights) return compare_units(loc->weights, wcs1, wcs2);
    return walk_compare(loc, wcs1, wide_length(wcs1), wcs2, wide_length(wcs2));
}

static int single_byte_order(kovaloc *loc, const ko_mchar_t *a, const ko_mchar_t *b) {
    if (loc->weights) return compare_units(loc->weights, a, b);
    if (by_code(loc)) {
        while (*a && *a == *b)
            ++a, ++b;
        return sign(*a - *b);
    }
    if (loc->coll_info.collate == collate_thai) return thaismocoll(loc, a, b);
    return walk_compare(loc, a, mbs_length(a), b, mbs_length(b));
}

static bool valid_rest(const mb_flat *cs, const ko_mchar_t *s) {
    for (;;) {
        const unsigned n = char_bytes(cs, s);
        if (!n) return false;
        if (!wide_value(s, n)) return true;
        s += n;
    }
}

static int mb_code_order(mb_text a, mb_text b) {
    for (;;) {
        const int x = take(a), y = take(b);
        if (x != y) return x < y ? -1 : 1;
        if (!x) return 0;
    }
}

static int wide_copies_order(kovaloc *loc, const ko_mchar_t *a, const ko_mchar_t *b,
                             int first_pass) {
    wide_copy wide_a, wide_b;
    if (!widen(loc, a, &wide_a) || !widen(loc, b, &wide_b)) return 0;
    if (!first_pass) return ko_full_wcscoll(loc, wide_a.p, wide_b.p);
    return compare_passes(loc->weights, first_pass, wide_a.p, wide_a.p, wide_b.p, wide_b.p);
}

// Compares valid text from the places where both strings part.
static int compare_mb(kovaloc *loc, const mb_flat *cs, const ko_mchar_t *begin_a,
                      const ko_mchar_t *a, const ko_mchar_t *begin_b, const ko_mchar_t *b) {
    const coll_flat *flat = loc->weights;
    for (int pass = 0; pass < flat->num_passes; ++pass) {
        const coll_flat_pass *p = &flat->pass[pass];
        if (!p->forward) return wide_copies_order(loc, begin_a, begin_b, pass);
        const int order = order_in(p, mb_text{a, cs->flag1}, mb_text{b, cs->flag1});
        if (order) return order;
    }
    return 0;
}

static int multibyte_order(kovaloc *loc, const ko_mchar_t *begin_a, const ko_mchar_t *begin_b) {
    const mb_flat *cs = code_set(loc);
    if (!cs || (!loc->weights && !by_code(loc))) return wide_copies_order(loc, begin_a, begin_b, 0);
    const coll_flat *flat = loc->weights;
    const bool elements = flat && flat->elements;
    const ko_mchar_t *a = begin_a, *b = begin_b, *meet_a = a;
    unsigned n;
    for (;;) {
        n = char_bytes(cs, a);
        if (!n) return fail(loc, KO_EILSEQ, 0);
        if (*a != *b || (n == 2 && a[1] != b[1])) break;
        const unsigned ch = wide_value(a, n);
        if (!ch) return 0;
        if (elements && !inside_element(flat, ch)) meet_a = a;
        a += n;
        b += n;
    }
    const unsigned m = char_bytes(cs, b);
    if (!m || !valid_rest(cs, a) || !valid_rest(cs, b)) return fail(loc, KO_EILSEQ, 0);
    if (by_code(loc)) return mb_code_order({a, cs->flag1}, {b, cs->flag1});
    if (elements &&
        (inside_element(flat, wide_value(a, n)) || inside_element(flat, wide_value(b, m)))) {
        b -= a - meet_a;
        a = meet_a;
    }
    return compare_mb(loc, cs, begin_a, a, begin_b, b);
}

int im_mbscoll(ko_lc_t handle, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2) {
    if (!handle || !mbs1 || !mbs2) return fail(handle, KO_ENULL, 0);
    kovaloc *loc = record(handle);
    return loc->exp.single_byte ? single_byte_order(loc, mbs1, mbs2)
                                : multibyte_order(loc, mbs1, mbs2);
}

// ---- Keys ----

static int finish_key(kovaloc *loc, coll_sink *sink) {
    sink_flush(sink);
    if (sink->written < sink->maxbytes) sink->dst[sink->written] = 0;
    if (sink->written > INT_MAX) return fail(loc, KO_ERANGE, -1);
    return static_cast<int>(sink->written);
}

static coll_sink *start_key(coll_sink *sink, ko_mchar_t *dst, int maxbytes) {
    sink->dst = dst;
    sink->maxbytes = maxbytes > 0 ? static_cast<size_t>(maxbytes) : 0;
    sink->written = 0;
    sink->used = 0;
    return sink;
}

template <class Text>
static void key_pass(const coll_flat_pass *p, coll_widths widths, Text text, coll_sink *sink) {
    for (;;) {
        const auto c = take(text);
        const uint16_t weight = p->page[c >> 8][c & 0xFF];
        if (plain_weight(weight)) {
            write_weight(weight, widths.maxw, sink);
        } else if (weight & coll_expansion) {
            const coll_seq seq = special_seq(p->specials[weight & coll_low_bits], text);
            for (unsigned i = 0; i < seq.count; ++i)
                write_item(seq.items[i], widths, sink);
        } else if (!c) {
            return;
        } else if (weight != coll_ignored_weight) {
            write_item({weight, c}, widths, sink);
        }
    }
}

// The same for bytes, whose key bytes stand ready.
template <class Text>
static void key_pass_cells(const coll_flat_pass *p, coll_widths widths, Text text,
                           coll_sink *sink) {
    for (;;) {
        const auto c = take(text);
        const coll_cell cell = p->cells[c];
        if (cell.count <= sizeof cell.bytes) {
            memcpy(sink->room + sink->used, &cell, sizeof cell);
            sink->used += cell.count;
            if (sink->used > coll_sink_full) sink_flush(sink);
            continue;
        }
        if (!c) return;
        const coll_seq seq = special_seq(p->specials[p->page[0][c] & coll_low_bits], text);
        for (unsigned i = 0; i < seq.count; ++i)
            write_item(seq.items[i], widths, sink);
    }
}

static void flat_key(const kovaloc *loc, const ko_wchar_t *text, size_t len, coll_sink *sink) {
    const coll_widths widths = key_widths(loc);
    for (int pass = 0; pass < loc->weights->num_passes; ++pass) {
        const coll_flat_pass *p = &loc->weights->pass[pass];
        if (pass) sink_byte(sink, 1);
        if (p->forward)
            key_pass(p, widths, wide_text{text}, sink);
        else
            key_pass(p, widths, wide_back{text + len, text}, sink);
    }
}

static void flat_key(const kovaloc *loc, const ko_mchar_t *text, size_t len, coll_sink *sink) {
    const coll_widths widths = key_widths(loc);
    for (int pass = 0; pass < loc->weights->num_passes; ++pass) {
        const coll_flat_pass *p = &loc->weights->pass[pass];
        if (pass) sink_byte(sink, 1);
        if (p->forward)
            key_pass_cells(p, widths, byte_text{text}, sink);
        else
            key_pass_cells(p, widths, byte_back{text + len, text}, sink);
    }
}

template <class Unit>
static int table_key(kovaloc *loc, ko_mchar_t *dst, const Unit *text, size_t len, int maxbytes) {
    coll_sink sink;
    start_key(&sink, dst, maxbytes);
    if (loc->weights)
        flat_key(loc, text, len, &sink);
    else if (walk_key(loc, text, len, &sink) < 0)
        return -1;
    return finish_key(loc, &sink);
}

// The key in code order is the string itself.
static int code_key(kovaloc *loc, ko_mchar_t *dst, const ko_wchar_t *wcs, size_t len,
                    int maxbytes) {
    const int got = maxbytes <= 0          ? 0
                    : loc->exp.single_byte ? is_wcstombs(loc, dst, wcs, maxbytes)
                                           : ko_full_wcstombs(loc, dst, wcs, maxbytes);
    if (got < 0) return -1;
    size_t bytes = 0;
    for (size_t i = 0; i < len; ++i) {
        const int n = ko_wclen(loc, wcs[i]);
        if (n < 0) return -1;
        bytes += static_cast<size_t>(n);
    }
    return bytes > INT_MAX ? fail(loc, KO_ERANGE, -1) : static_cast<int>(bytes);
}

int ko_wcsxfrm(ko_lc_t handle, ko_mchar_t *dst, const ko_wchar_t *wcs, int maxbytes) {
    if (!handle || !wcs || (!dst && maxbytes > 0)) return fail(handle, KO_ENULL, -1);
    kovaloc *loc = record(handle);
    const size_t len = wide_length(wcs);
    if (len > INT_MAX / 2 - 2) return fail(loc, KO_ERANGE, -1);
    if (by_code(loc)) return code_key(loc, dst, wcs, len, maxbytes);
    if (loc->coll_info.collate != collate_thai) return table_key(loc, dst, wcs, len, maxbytes);
    const int bytes = static_cast<int>(2 * (len + 1));
    const ext_block<ko_mchar_t> text(static_cast<size_t>(bytes));
    if (!text.p) return fail(loc, KO_ENOMEM, -1);
    if (ko_full_wcstombs(loc, text.p, wcs, bytes) < 0) return -1;
    return thaismoxfrm(loc, text.p, dst, maxbytes);
}

int ko_full_mbsxfrm(ko_lc_t handle, ko_mchar_t *dst, const ko_mchar_t *mbs, int maxbytes) {
    if (!handle || !mbs || (!dst && maxbytes > 0)) return fail(handle, KO_ENULL, -1);
    kovaloc *loc = record(handle);
    if (loc->exp.single_byte && loc->coll_info.collate == collate_specified && !by_code(loc)) {
        const size_t len = mbs_length(mbs);
        if (len >= INT_MAX) return fail(loc, KO_ERANGE, -1);
        return table_key(loc, dst, mbs, len, maxbytes);
    }
    wide_copy wide;
    if (!loc->exp.single_byte) {
        if (!widen(loc, mbs, &wide)) return -1;
        return ko_wcsxfrm(handle, dst, wide.p, maxbytes);
    }
    const size_t len = mbs_length(mbs);
    if (!wide_room(loc, len + 1, &wide)) return -1;
    for (size_t i = 0; i <= len; ++i)
        wide.p[i] = mbs[i];
    return ko_wcsxfrm(handle, dst, wide.p, maxbytes);
}

// ---- Code order ----

int ko_wcscmp(const ko_wchar_t *wcs1, const ko_wchar_t *wcs2) {
    while (*wcs1 && *wcs1 == *wcs2)
        ++wcs1, ++wcs2;
    return *wcs1 - *wcs2;
}

int ko_wcsncmp(const ko_wchar_t *wcs1, const ko_wchar_t *wcs2, int n) {
    if (n <= 0) return 0;
    for (; --n && *wcs1 && *wcs1 == *wcs2; ++wcs1)
        ++wcs2;
    return *wcs1 - *wcs2;
}

// The end of at most nc characters; stops before one that is not valid.
static const ko_mchar_t *skip_chars(kovaloc *loc, const ko_mchar_t *s, int nc) {
    for (; nc > 0; --nc) {
        if (loc->exp.single_byte) {
            if (!*s) break;
            ++s;
            continue;
        }
        if (ko_ismbsterm(loc, s)) break;
        const ko_mchar_t *next = ko_full_mbsnext(loc, s);
        if (!next) break;
        s = next;
    }
    return s;
}

int ko_full_mbsncmp(ko_lc_t handle, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2, int len_chars) {
    if (!handle || !mbs1 || !mbs2) return fail(handle, KO_ENULL, 0);
    const ko_mchar_t *end1 = skip_chars(record(handle), mbs1, len_chars);
    const ko_mchar_t *end2 = skip_chars(record(handle), mbs2, len_chars);
    for (; mbs1 < end1 && mbs2 < end2; ++mbs1, ++mbs2)
        if (*mbs1 != *mbs2) return *mbs1 - *mbs2;
    return mbs1 < end1 ? 1 : mbs2 < end2 ? -1 : 0;
}

int ko_wcspre(ko_lc_t handle, const ko_wchar_t *str, int len, const ko_wchar_t *prefix,
              int preflen) {
    if (!str || !prefix) return fail(handle, KO_ENULL, 0);
    if (preflen > len) return 0;
    for (int i = 0; i < preflen; ++i)
        if (str[i] != prefix[i]) return 0;
    return 1;
}
