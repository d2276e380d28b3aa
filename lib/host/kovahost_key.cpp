// Keys of texts in UTF-8 and UTF-16: bytes whose order is that of the texts. docs/collation.md
// describes the format.
#include "collate/kovacoll_thai.h"
#include "host/kovahost_letters.h"
#include "host/kovahost_order.h"

// ---- Pass by pass ----

template <class State, class Text>
static void key_pass(State state, const coll_flat_pass *p, const uint32_t *codes, Text text,
                     coll_sink *sink, bool last) {
    sink_place at = place_in(sink);
    for (;;) {
        const unsigned c = take(text);
        const uint16_t weight = p->page[c >> 8][c & 0xFF];
        if (plain_weight(weight)) {
            at = make_room(put_item(state, codes[weight], {weight, 0}, at, sink), sink);
        } else if (weight & coll_expansion) {
            const coll_seq seq = special_seq(p->specials[weight & coll_low_bits], text);
            at = put_seq(state, codes, seq, at, sink);
        } else if (weight & coll_code_tie) {
            at = put_any(state, codes, {weight, ko_wchar_t(c)}, at, sink);
        } else if (weight != coll_ignored_weight) {
            break; // the terminator's 0
        }
    }
    leave_place(make_room(end_pass(state, at, sink, last), sink), sink);
}

// ---- Keys ----

// Writes the gap before each U+0000: the number of bytes it takes, then these bytes.
template <class Text> static void put_gaps(const Text &text, coll_sink *sink) {
    null_gaps<Text> gaps = {text, 0};
    for (size_t gap; (gap = next_gap(gaps)) != SIZE_MAX;) {
        unsigned bytes = 1;
        while (bytes < sizeof gap && gap >> 8 * bytes)
            ++bytes;
        sink_byte(sink, bytes);
        while (bytes--)
            sink_byte(sink, gap >> 8 * bytes & 0xFF);
    }
}

template <class Text>
static void walk_pass(const coll_flat *flat, const short_keys *keys, int pass, const Text &text,
                      bool last, coll_sink *sink) {
    const coll_flat_pass *p = &flat->pass[pass];
    const short_pass *s = &keys->pass[pass];
    const auto put = [&](auto walk) {
        if (pass)
            key_pass(lower_pass{s, 0, 0}, p, s->codes, walk, sink, last);
        else
            key_pass(first_pass{0}, p, s->codes, walk, sink, last);
    };
    if (p->forward)
        put(walk_from(text, 0));
    else
        put(walk_back(text));
}

// Reads the units of a short text whose characters the code set has, so that each pass can walk
// them. UTF-16 is walked as it is.
constexpr size_t units_room = 256;
template <class Text> static bool read_units(const Text &text, ko_wchar_t *units, size_t *count) {
    if (text.len > units_room) return false;
    auto walk = walk_from(text, 0);
    for (unsigned unit; (unit = take(walk)) && unit <= last_unit;)
        units[(*count)++] = ko_wchar_t(unit);
    return !text.misses->ill_formed && !text.misses->lacking;
}
static bool read_units(const host_text<char16_t> &, ko_wchar_t *, size_t *) { return false; }

template <class Text>
static void put_pass(const coll_flat *flat, const short_keys *keys, int pass, const Text &text,
                     bool last, coll_sink *sink) {
    ko_wchar_t units[units_room];
    size_t count = 0;
    if (read_units(text, units, &count))
        walk_pass(flat, keys, pass, host_text<ko_wchar_t>{units, count, text.misses}, last, sink);
    else
        walk_pass(flat, keys, pass, text, last, sink);
}

// ---- All passes ----

static void start_sink(coll_sink *sink, void *dst, size_t room) {
    sink->dst = static_cast<ko_mchar_t *>(dst);
    sink->maxbytes = room;
    sink->written = sink->used = 0;
    sink->room = sink->local;
    sink->full = coll_sink_full;
}

template <class Text>
static void put_passes(const coll_flat *flat, const short_keys *keys, const Text &text, bool nulls,
                       coll_sink *sink) {
    if (flat->num_passes == 1) return walk_pass(flat, keys, 0, text, !nulls, sink);
    for (int pass = 0; pass < flat->num_passes; ++pass)
        put_pass(flat, keys, pass, text, pass + 1 == flat->num_passes && !nulls, sink);
}

// Walks over units of Unicode see U+0000 themselves.
template <class Unit> static inline bool unseen_null(const host_text<Unit> &) { return false; }
template <class Unit> static inline bool unseen_null(const mapped_host<Unit> &text) {
    return has_null(text);
}

// Appends the passes after the first one, each as the walk has made it or by a walk of its own.
template <class Text>
[[gnu::noinline]] static void put_lower_passes(const letter_walk &walk, lanes l, const Text &text,
                                               bool nulls, coll_sink *sink) {
    const auto passes = unsigned(walk.flat->num_passes);
    for (unsigned pass = 1; pass < passes; ++pass) {
        const bool more = pass + 1 < passes || nulls;
        if (walk.incomplete || !walk.flat->pass[pass].forward)
            put_pass(walk.flat, walk.keys, int(pass), text, !more, sink);
        else
            put_made_pass(walk, l, pass, more, sink);
    }
}

template <class Text>
static void put_letters(const coll_flat *flat, const short_keys *keys, const Text &text,
                        coll_sink *sink) {
    letter_walk walk;
    walk.flat = flat;
    walk.keys = keys;
    walk.letters = keys->letters;
    walk.nulls = unseen_null(text);
    walk.incomplete = false;
    walk.stored = 0;
    walk.from = 0;
    memset(walk.lane, 0, sizeof walk.lane);
    memset(walk.grown, 0, sizeof walk.grown);
    const auto passes = unsigned(flat->num_passes);
    const lanes l = walk_letters(walk, walk_from(text, 0), sink);
    const bool nulls = walk.nulls;
    if (passes > 1 || nulls) sink_byte(sink, short_end);
    const bool whole = passes > 1 && !walk.incomplete && walk.letters->forward;
    if (!whole || !put_short_lanes(walk, l, passes, nulls, sink))
        put_lower_passes(walk, l, text, nulls, sink);
    if (walk.stored > lane_room) free_lanes(walk);
    if (nulls) put_gaps(text, sink);
}

template <class Text>
[[gnu::noinline]] static void put_pass_by_pass(const coll_flat *flat, const short_keys *keys,
                                               const Text &text, coll_sink *sink) {
    const bool nulls = has_null(text);
    put_passes(flat, keys, text, nulls, sink);
    if (nulls) put_gaps(text, sink);
}

// Writes a key in code order: two bytes per unit, and more if they are the largest possible.
template <class Text> static void put_codes(const Text &text, coll_sink *sink) {
    auto walk = walk_from(text, 0);
    for (int code; (code = take_code(walk)) >= 0;) {
        const auto unit = unsigned(code);
        const unsigned two = unit < last_unit ? unit : last_unit;
        sink_byte(sink, two >> 8);
        sink_byte(sink, two & 0xFF);
        if (unit >= last_unit) sink_byte(sink, unit >> 16);
        if (unit > last_unit) sink_byte(sink, unit & 0xFF);
    }
}

// Writes the numbers of the Thai method: one byte, or for large ones (places far along, what the
// code set lacks) how many bytes follow and these bytes.
template <class Text> static void put_thai(const Text &text, coll_sink *sink) {
    constexpr size_t one_byte = 0xF0;
    thai_walk walk(walk_from(text, 0));
    while (const size_t number = thai_next(walk)) {
        if (number < one_byte) {
            sink_byte(sink, unsigned(number) + 1);
            continue;
        }
        unsigned bytes = 1;
        while (bytes < sizeof number && number >> 8 * bytes)
            ++bytes;
        sink_byte(sink, unsigned(one_byte) + bytes);
        while (bytes--)
            sink_byte(sink, number >> 8 * bytes & 0xFF);
    }
    if (!has_null(text)) return;
    sink_byte(sink, short_end);
    put_gaps(text, sink);
}

template <class Text>
static inline int put_by_weights(coll_flat *flat, const Text &text, coll_sink *sink) {
    const short_keys *const keys = short_keys_of(flat);
    if (!keys) return KO_ENOMEM;
    if (keys->num_passes < 0) return KO_EOBJECT;
    if (keys->letters)
        put_letters(flat, keys, text, sink);
    else
        put_pass_by_pass(flat, keys, text, sink);
    return KO_OK;
}

template <class Text> static int put_key(const kovaloc *loc, const Text &text, coll_sink *sink) {
    if (loc->weights) return put_by_weights(loc->weights, text, sink);
    by_thai(loc) ? put_thai(text, sink) : put_codes(text, sink);
    return KO_OK;
}

// The key of any text.
template <class Unit>
[[gnu::noinline]] static int put_any_key(ko_lc_t loc, const host_text<Unit> &text,
                                         coll_sink *sink) {
    if (const int error = unfit_for_order(loc)) return error;
    if ((!text.s && text.len) || (!sink->dst && sink->maxbytes)) return KO_ENULL;
    const host_map *const map = map_for(record(loc), KO_LC_COLLATE);
    if (!map) return put_key(record(loc), text, sink);
    return put_key(record(loc), mapped_host<Unit>{text.s, text.len, text.misses, map}, sink);
}

// Copies bytes in a few pieces, which may overlap.
static inline void copy_short(ko_mchar_t *to, const ko_mchar_t *from, size_t n) {
    constexpr size_t wide = 16, word = 8;
    if (n >= wide) {
        for (size_t at = 0; at + wide < n; at += wide)
            memcpy(to + at, from + at, wide);
        memcpy(to + n - wide, from + n - wide, wide);
    } else if (n >= word) {
        memcpy(to, from, word);
        memcpy(to + n - word, from + n - word, word);
    } else {
        for (size_t at = 0; at < n; ++at)
            to[at] = from[at];
    }
}

// Passes on what the sink has gathered. Returns the bytes of the key.
static inline int64_t finish_key(coll_sink &sink) {
    if (!sink.written && sink.used <= sink.maxbytes) {
        copy_short(sink.dst, sink.local, sink.used);
        return int64_t(sink.used);
    }
    sink_flush(&sink);
    return int64_t(sink.written);
}

template <class Unit>
static int64_t key_of(ko_lc_t loc, void *dst, size_t room, const Unit *s, size_t len) {
    coll_sink sink;
    start_sink(&sink, dst, room);
    host_misses misses = {};
    const host_text<Unit> text = {s, len, &misses};
    coll_flat *const flat = tables_of_units(loc);
    const int error =
        flat && s && dst ? put_by_weights(flat, text, &sink) : put_any_key(loc, text, &sink);
    return error ? -error : finish_key(sink);
}

int64_t ko_utf8sxfrm(ko_lc_t loc, void *dst, size_t room, const char *text, size_t len) {
    return key_of(loc, dst, room, bytes_of(text), len);
}

int64_t ko_utf16sxfrm(ko_lc_t loc, void *dst, size_t room, const char16_t *text, size_t len) {
    return key_of(loc, dst, room, text, len);
}
