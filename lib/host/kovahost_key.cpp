// Keys of texts in UTF-8 and UTF-16: bytes whose order is that of the texts. docs/collation.md
// describes the format.
#include "collate/kovacoll_key.h"
#include "collate/kovacoll_short.h"
#include "host/kovahost_order.h"

// ---- Weights ----

// The place in the sink, kept in the local variables of a loop.
namespace {
struct place {
    ko_mchar_t *out, *limit;
};
} // namespace

static inline place place_in(const coll_sink *sink) {
    return {sink->room + sink->used, sink->room + sink->full};
}
// Makes room for coll_sink_spare bytes again.
static inline place make_room(place at, coll_sink *sink) {
    sink->used = size_t(at.out - sink->room);
    if (at.out <= at.limit) return at;
    sink_flush(sink);
    return place_in(sink);
}

// The bytes of an item, with the first in bits 16 to 23.
static inline uint32_t item_bytes(uint32_t code, coll_item item) {
    if (!(item.weight & coll_code_tie))
        return code << 8 * (3 - short_count(code)) & short_bytes_mask;
    uint32_t number = (code + item.ch) & short_bytes_mask, bytes = 0;
    for (unsigned i = 3 - short_count(code); i < 3; ++i) {
        // Filled from the last digit on.
        bytes = bytes >> 8 | (number % short_digits + short_first) << 16;
        number /= short_digits;
    }
    return bytes;
}

static inline ko_mchar_t *put_bytes(ko_mchar_t *out, uint32_t bytes, unsigned count) {
    out[0] = ko_mchar_t(bytes >> 16);
    out[1] = ko_mchar_t(bytes >> 8);
    out[2] = ko_mchar_t(bytes);
    return out + count;
}

// What is written between weights depends on earlier ones: on a lead that is still valid, or a run
// of common weights.
namespace {
struct first_pass {
    unsigned lead; // 0: none
};
struct lower_pass {
    const short_pass *pass;
    size_t run;
    unsigned common; // the run's
};
} // namespace

static inline ko_mchar_t *leave_lead(ko_mchar_t *out, unsigned lead, unsigned next) {
    if (lead) *out++ = ko_mchar_t(next < lead ? short_down : short_up);
    return out;
}

static inline place put_item(first_pass &state, uint32_t code, coll_item item, place at,
                             coll_sink *) {
    const uint32_t bytes = item_bytes(code, item);
    const unsigned lead = bytes >> 16;
    if (!(code & short_keeps_lead)) {
        at.out = put_bytes(leave_lead(at.out, state.lead, lead), bytes, short_count(code));
        state.lead = 0;
        return at;
    }
    if (lead != state.lead) {
        at.out = leave_lead(at.out, state.lead, lead);
        *at.out++ = ko_mchar_t(lead);
        state.lead = lead;
    }
    at.out = put_bytes(at.out, bytes << 8, short_count(code) - 1);
    return at;
}

static inline place put_raw(first_pass &state, place at, coll_sink *) {
    at.out = leave_lead(at.out, state.lead, short_raw);
    state.lead = 0;
    *at.out++ = short_raw;
    return at;
}

static inline place end_pass(first_pass &, place at, coll_sink *, bool last) {
    if (!last) *at.out++ = short_end;
    return at;
}

namespace {
enum class run_end { pass, lower, higher };
} // namespace

static inline place put_run(lower_pass &state, run_end end, place at, coll_sink *sink) {
    if (!state.run) return at;
    const unsigned bytes = state.pass->run_bytes[state.common], longest = state.pass->longest_run;
    for (; state.run > longest; state.run -= longest) {
        *at.out++ = ko_mchar_t(bytes + 2 * longest);
        at = make_room(at, sink);
    }
    const unsigned n = unsigned(state.run);
    *at.out++ = ko_mchar_t(end == run_end::higher  ? bytes + 3 * longest + 1 - n
                           : end == run_end::lower ? bytes + 2 * n - 1
                                                   : bytes + 2 * n - 2);
    state.run = 0;
    return at;
}

static inline place put_item(lower_pass &state, uint32_t code, coll_item item, place at,
                             coll_sink *sink) {
    if (code < short_most_commons) {
        if (code != state.common) {
            at = put_run(state, code > state.common ? run_end::higher : run_end::lower, at, sink);
            state.common = code;
        }
        ++state.run;
        return at;
    }
    const uint32_t bytes = item_bytes(code, item);
    const bool higher = bytes >> 16 > state.pass->run_bytes[state.common];
    at = put_run(state, higher ? run_end::higher : run_end::lower, at, sink);
    at.out = put_bytes(at.out, bytes, short_count(code));
    return at;
}

static inline place put_raw(lower_pass &state, place at, coll_sink *sink) {
    at = put_run(state, run_end::higher, at, sink);
    *at.out++ = short_raw;
    return at;
}

static inline place end_pass(lower_pass &state, place at, coll_sink *sink, bool last) {
    if (state.run) return put_run(state, run_end::pass, at, sink);
    if (!last) *at.out++ = short_end;
    return at;
}

template <class State, class Text>
static void key_pass(State state, const coll_flat_pass *p, const uint32_t *codes, Text text,
                     coll_sink *sink, bool last) {
    place at = place_in(sink);
    const auto put = [&](coll_item item) {
        if (item.weight == coll_raw_weight) {
            at = put_raw(state, at, sink);
            *at.out++ = ko_mchar_t(item.ch);
        } else {
            at = put_item(state, codes[item.weight & coll_low_bits], item, at, sink);
        }
        at = make_room(at, sink);
    };
    for (;;) {
        const unsigned c = take(text);
        const uint16_t weight = p->page[c >> 8][c & 0xFF];
        if (plain_weight(weight)) {
            at = make_room(put_item(state, codes[weight], {weight, 0}, at, sink), sink);
        } else if (weight & coll_expansion) {
            const coll_seq seq = special_seq(p->specials[weight & coll_low_bits], text);
            for (unsigned i = 0; i < seq.count; ++i)
                put(seq.items[i]);
        } else if (weight & coll_code_tie) {
            put({weight, ko_wchar_t(c)});
        } else if (weight != coll_ignored_weight) {
            break; // the terminator's 0
        }
    }
    at = make_room(end_pass(state, at, sink, last), sink);
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
static void put_passes(const coll_flat *flat, const short_keys *keys, const Text &text,
                       bool nulls_follow, coll_sink *sink) {
    for (int pass = 0; pass < flat->num_passes; ++pass) {
        const coll_flat_pass *p = &flat->pass[pass];
        const short_pass *s = &keys->pass[pass];
        const bool last = pass + 1 == flat->num_passes && !nulls_follow;
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
static void put_weights(const coll_flat *flat, const short_keys *keys, const Text &text,
                        coll_sink *sink) {
    const bool nulls = has_null(text);
    ko_wchar_t units[units_room];
    size_t count = 0;
    if (read_units(text, units, &count))
        put_passes(flat, keys, host_text<ko_wchar_t>{units, count, text.misses}, nulls, sink);
    else
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

template <class Text> static int put_key(const kovaloc *loc, const Text &text, coll_sink *sink) {
    coll_flat *const flat = loc->weights;
    if (!flat) {
        put_codes(text, sink);
        return KO_OK;
    }
    const short_keys *const keys = short_keys_of(flat);
    if (!keys) return KO_ENOMEM;
    if (keys->num_passes < 0) return KO_EOBJECT;
    put_weights(flat, keys, text, sink);
    return KO_OK;
}

template <class Unit>
static int64_t key_of(ko_lc_t loc, void *dst, size_t room, const Unit *text, size_t len) {
    if (const int error = unfit_for_order(loc)) return -error;
    if ((!text && len) || (!dst && room)) return -KO_ENULL;
    coll_sink sink;
    sink.dst = static_cast<ko_mchar_t *>(dst);
    sink.maxbytes = room;
    sink.written = sink.used = 0;
    sink.room = sink.local;
    sink.full = coll_sink_full;
    host_misses misses = {};
    const host_map *const map = map_for(record(loc), KO_LC_COLLATE);
    const int error = map ? put_key(record(loc), mapped_host<Unit>{text, len, &misses, map}, &sink)
                          : put_key(record(loc), host_text<Unit>{text, len, &misses}, &sink);
    if (error) return -error;
    sink_flush(&sink);
    return int64_t(sink.written);
}

int64_t ko_utf8sxfrm(ko_lc_t loc, void *dst, size_t room, const char *text, size_t len) {
    return key_of(loc, dst, room, bytes_of(text), len);
}

int64_t ko_utf16sxfrm(ko_lc_t loc, void *dst, size_t room, const char16_t *text, size_t len) {
    return key_of(loc, dst, room, text, len);
}
