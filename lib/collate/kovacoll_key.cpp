// Sort keys of multibyte and wide strings.
#include "collate/kovacoll_key.h"
#include "collate/kovacoll_block.h"
#include "collate/kovacoll_text.h"

// ---- Wide copies ----

static bool wide_room(kovaloc *loc, size_t units, wide_copy *copy) {
    if (units > INT_MAX) return fail(loc, KO_ERANGE, false);
    copy->p = units <= wide_local
                  ? copy->local
                  : static_cast<ko_wchar_t *>(ko_ext_malloc(units * sizeof *copy->p));
    return copy->p || fail(loc, KO_ENOMEM, false);
}

static bool widen_by_table(kovaloc *loc, const ko_mchar_t *mbs, wide_copy *copy) {
    const int count = loc->exp.single_byte ? -2 : im_mbslen(loc, mbs);
    if (count == -1) return false;
    copy->len = count < 0 ? text_length(mbs) : size_t(count);
    if (!wide_room(loc, copy->len + 1, copy)) return false;
    if (count >= 0) return im_mbstowcs(loc, copy->p, mbs, count + 1) >= 0;
    for (size_t i = 0; i <= copy->len; ++i)
        copy->p[i] = mbs[i];
    return true;
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

bool widen(kovaloc *loc, const ko_mchar_t *mbs, wide_copy *copy) {
    const mb_flat *cs = code_set(loc);
    if (!cs || loc->exp.single_byte) return widen_by_table(loc, mbs, copy);
    const ko_mchar_t *s = mbs;
    for (size_t i = 0; i < wide_local; ++i) {
        const unsigned n = char_bytes(cs, s);
        if (!n) return fail(loc, KO_EILSEQ, false);
        if (!(copy->local[i] = ko_wchar_t(wide_value(s, n)))) {
            copy->p = copy->local;
            copy->len = i;
            return true;
        }
        s += n;
    }
    if (!count_chars(cs, mbs, &copy->len)) return fail(loc, KO_EILSEQ, false);
    if (!wide_room(loc, copy->len + 1, copy)) return false;
    mb_text text = {mbs, cs->flag1};
    for (size_t i = 0; i <= copy->len; ++i)
        copy->p[i] = take(text);
    return true;
}

// ---- The sink ----

static void start_key(coll_sink *sink, ko_mchar_t *dst, int maxbytes) {
    sink->dst = dst;
    sink->maxbytes = maxbytes > 0 ? size_t(maxbytes) : 0;
    sink->written = 0;
    sink->used = 0;
    sink->room = sink->local;
    sink->full = coll_sink_full;
}

// Lets the key grow in dst itself as long as it fits. Only for writers that store no more bytes
// than they count.
static void write_in_place(coll_sink *sink) {
    if (sink->maxbytes <= coll_sink_spare) return;
    sink->room = sink->dst;
    sink->full = sink->maxbytes - coll_sink_spare;
}

void sink_flush(coll_sink *sink) {
    if (sink->room == sink->local && sink->written < sink->maxbytes) {
        const size_t left = sink->maxbytes - sink->written;
        memcpy(sink->dst + sink->written, sink->room, left < sink->used ? left : sink->used);
    }
    sink->written += sink->used;
    sink->used = 0;
    sink->room = sink->local;
    sink->full = coll_sink_full;
}

static int finish_key(kovaloc *loc, coll_sink *sink) {
    sink_flush(sink);
    if (sink->written < sink->maxbytes) sink->dst[sink->written] = 0;
    if (sink->written > INT_MAX) return fail(loc, KO_ERANGE, -1);
    return int(sink->written);
}

// ---- One pass ----

static void write_seq(coll_seq seq, coll_widths widths, coll_sink *sink) {
    for (unsigned i = 0; i < seq.count; ++i)
        write_item(seq.items[i], widths, sink);
}

// Writes one pass; digits: key bytes of a weight.
template <int digits, class Text>
static void key_pass(const coll_flat_pass *p, coll_widths widths, Text text, coll_sink *sink) {
    const uint16_t *const *const page = p->page;
    for (sink_place at = place_in(sink);;) {
        const auto c = take(text);
        const uint16_t weight = page[c >> 8][c & 0xFF];
        if (plain_weight(weight)) {
            const unsigned v = weight - 2u;
            if (digits == 3) *at.out++ = 2; // a plain weight is below 254 squared
            if (digits > 1) *at.out++ = ko_mchar_t(v / 254 + 2);
            *at.out++ = ko_mchar_t(digits > 1 ? v % 254 + 2 : v + 2);
            if (at.out > at.limit) at = flush_place(at, sink);
            continue;
        }
        if (weight == coll_ignored_weight) continue;
        leave_place(at, sink);
        if (weight & coll_expansion)
            write_seq(special_seq(p->specials[weight & coll_low_bits], text), widths, sink);
        else if (!c)
            return;
        else
            write_item({weight, c}, widths, sink);
        at = place_in(sink);
    }
}

template <class Text>
static void key_pass_wide(const coll_flat_pass *p, coll_widths widths, Text text, coll_sink *sink) {
    if (widths.maxw < 254) return key_pass<1>(p, widths, text, sink);
    if (widths.maxw < 64516) return key_pass<2>(p, widths, text, sink);
    key_pass<3>(p, widths, text, sink);
}

// Writes one pass for bytes, whose key bytes are prepared.
template <class Text>
static void key_pass_cells(const coll_flat_pass *p, coll_widths widths, Text text,
                           coll_sink *sink) {
    for (sink_place at = place_in(sink);;) {
        const auto c = take(text);
        const coll_cell cell = p->cells[c];
        if (cell.count <= sizeof cell.bytes) {
            memcpy(at.out, &cell, sizeof cell);
            at.out += cell.count;
            if (at.out > at.limit) at = flush_place(at, sink);
            continue;
        }
        leave_place(at, sink);
        if (!c) return;
        write_seq(special_seq(p->specials[p->page[0][c] & coll_low_bits], text), widths, sink);
        at = place_in(sink);
    }
}

template <class Forward, class Back>
static void key_passes(const kovaloc *loc, Forward text, Back back, coll_sink *sink) {
    const coll_flat *flat = loc->weights;
    const coll_widths widths = key_widths(loc);
    write_in_place(sink);
    for (int pass = 0; pass < flat->num_passes; ++pass) {
        const coll_flat_pass *p = &flat->pass[pass];
        if (pass) sink_byte(sink, 1);
        if (p->forward)
            key_pass_wide(p, widths, text, sink);
        else
            key_pass_wide(p, widths, back, sink);
    }
}

static void flat_key(const kovaloc *loc, const ko_wchar_t *text, size_t len, coll_sink *sink) {
    key_passes(loc, wide_forward{text}, wide_back{text + len, text}, sink);
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

// ---- All passes of a byte text at once ----

// Adds the number of key bytes in each pass to lens. Returns the first byte that the cells do not
// decide, usually the terminator.
template <unsigned passes>
static inline const ko_mchar_t *measure(const coll_flat *flat, const ko_mchar_t *text,
                                        size_t *lens) {
    constexpr int safe = 36; // the sum of so many counts of at most 7 fits into a byte
    for (;;) {
        const ko_mchar_t *const stop = text + safe;
        uint64_t sums = 0;
        for (uint64_t n; text < stop && (n = flat->counts[*text]) != coll_no_counts; ++text)
            sums += n;
        for (unsigned p = 0; p < passes; ++p)
            lens[p] += sums >> 8 * p & 0xFF;
        if (text < stop) return text;
    }
}

template <unsigned passes>
static inline void write_cells(const coll_flat *flat, const ko_mchar_t *text, const ko_mchar_t *end,
                               ko_mchar_t *const *starts) {
    constexpr uint64_t one_each = 0x0101010101010101u >> 8 * (8 - passes);
    ko_mchar_t *out[passes];
    for (unsigned p = 0; p < passes; ++p)
        out[p] = starts[p];
    for (; text < end; ++text) {
        const uint64_t digits = flat->digits[*text];
        if (flat->counts[*text] == one_each) {
            for (unsigned p = 0; p < passes; ++p)
                *out[p]++ = ko_mchar_t(digits >> 8 * p);
            continue;
        }
        for (unsigned p = 0; p < passes; ++p) {
            const coll_cell *cell = &flat->pass[p].cells[*text];
            for (unsigned i = 0; i < cell->count; ++i)
                *out[p]++ = cell->bytes[i];
        }
    }
}

// Makes a key from the cells. -1 if they do not decide the whole text, or if dst has room for only
// part of the key.
template <unsigned passes>
static int cells_key(const coll_flat *flat, ko_mchar_t *dst, const ko_mchar_t *text, int maxbytes) {
    size_t lens[passes] = {}, total = passes;
    const ko_mchar_t *const end = measure<passes>(flat, text, lens);
    for (unsigned p = 0; p < passes; ++p)
        total += lens[p];
    if (*end || total > INT_MAX) return -1;
    if (maxbytes <= 0) return int(total) - 1;
    if (total > size_t(maxbytes)) return -1;
    ko_mchar_t *starts[passes];
    for (unsigned p = 0; p < passes; ++p) {
        starts[p] = dst;
        dst += lens[p];
        *dst++ = p + 1 < passes;
    }
    write_cells<passes>(flat, text, end, starts);
    return int(total) - 1;
}

static int cells_key(const coll_flat *flat, ko_mchar_t *dst, const ko_mchar_t *text, int maxbytes) {
    switch (flat->num_passes) {
    case 1:
        return cells_key<1>(flat, dst, text, maxbytes);
    case 2:
        return cells_key<2>(flat, dst, text, maxbytes);
    case 3:
        return cells_key<3>(flat, dst, text, maxbytes);
    case 4:
        return cells_key<4>(flat, dst, text, maxbytes);
    default:
        return -1;
    }
}

// ---- Entries ----

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
        bytes += size_t(n);
    }
    return bytes > INT_MAX ? fail(loc, KO_ERANGE, -1) : int(bytes);
}

static int thai_key(kovaloc *loc, ko_mchar_t *dst, const ko_wchar_t *wcs, size_t len,
                    int maxbytes) {
    const int bytes = int(2 * (len + 1));
    const ext_block<ko_mchar_t> text{size_t(bytes)};
    if (!text.p) return fail(loc, KO_ENOMEM, -1);
    if (ko_full_wcstombs(loc, text.p, wcs, bytes) < 0) return -1;
    return thaismoxfrm(loc, text.p, dst, maxbytes);
}

static int wide_key(kovaloc *loc, ko_mchar_t *dst, const ko_wchar_t *wcs, size_t len,
                    int maxbytes) {
    if (loc->weights) return table_key(loc, dst, wcs, len, maxbytes);
    if (len > INT_MAX / 2 - 2) return fail(loc, KO_ERANGE, -1);
    if (by_code(loc)) return code_key(loc, dst, wcs, len, maxbytes);
    return loc->coll_info.collate == collate_thai ? thai_key(loc, dst, wcs, len, maxbytes)
                                                  : table_key(loc, dst, wcs, len, maxbytes);
}

int ko_wcsxfrm(ko_lc_t handle, ko_mchar_t *dst, const ko_wchar_t *wcs, int maxbytes) {
    if (!handle || !wcs || (!dst && maxbytes > 0)) return fail(handle, KO_ENULL, -1);
    return wide_key(record(handle), dst, wcs, text_length(wcs), maxbytes);
}

static int single_byte_key(kovaloc *loc, ko_mchar_t *dst, const ko_mchar_t *mbs, int maxbytes) {
    if (loc->weights) {
        const int len = cells_key(loc->weights, dst, mbs, maxbytes);
        if (len >= 0) return len;
    }
    const size_t len = text_length(mbs);
    if (len >= INT_MAX) return fail(loc, KO_ERANGE, -1);
    return table_key(loc, dst, mbs, len, maxbytes);
}

// Has a key one pass, which runs forward and writes two bytes for a weight?
static inline bool is_one_pass_of_two(const kovaloc *loc) {
    const coll_flat *flat = loc->weights;
    const int weights = loc->coll_info.num_weights;
    return flat->num_passes == 1 && flat->pass[0].forward && weights >= 254 && weights < 64516;
}

static int pairs_key(kovaloc *loc, ko_mchar_t *dst, const ko_mchar_t *mbs, int len, int maxbytes) {
    if (len < maxbytes && is_one_pass_of_two(loc) &&
        put_digits(loc->weights->pass[0].page, mbs, len, dst))
        return len;
    coll_sink sink;
    start_key(&sink, dst, maxbytes);
    key_passes(loc, pair_text{mbs}, pair_back{mbs + len, mbs}, &sink);
    return finish_key(loc, &sink);
}

int ko_full_mbsxfrm(ko_lc_t handle, ko_mchar_t *dst, const ko_mchar_t *mbs, int maxbytes) {
    if (!handle || !mbs || (!dst && maxbytes > 0)) return fail(handle, KO_ENULL, -1);
    kovaloc *loc = record(handle);
    if (loc->exp.single_byte && loc->coll_info.collate == collate_specified && !by_code(loc))
        return single_byte_key(loc, dst, mbs, maxbytes);
    if (!loc->exp.single_byte && loc->weights && !loc->weights->elements && loc->pairs.any) {
        const int len = pairs_length(&loc->pairs, mbs);
        if (len >= 0) return pairs_key(loc, dst, mbs, len, maxbytes);
    }
    wide_copy wide;
    return widen(loc, mbs, &wide) ? wide_key(loc, dst, wide.p, wide.len, maxbytes) : -1;
}
