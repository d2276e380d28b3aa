// All passes of a key in one walk over the text, by its letters.
#ifndef KOVAHOST_LETTERS_H
#define KOVAHOST_LETTERS_H

#include "collate/kovacoll_letters.h"
#include "collate/kovacoll_pass.h"
#include "host/kovahost_mapped.h"
#include "host/kovahost_spell.h"

#include <bit>

// A pass after the first while the walk goes on: the last few bytes in a word, from its low end on,
// and those before them in the lane's room.
struct letter_lane {
    uint64_t last;
    uint32_t count; // bytes in last
    uint32_t stored;
};
constexpr unsigned lane_room = 256, lane_word = sizeof(uint64_t);
constexpr uint32_t lane_most = 1u << 30; // longer passes are made by walks of their own

// The first pass goes to the sink, what interrupts the runs of the others to their lanes.
struct letter_walk {
    const coll_flat *flat;
    const short_keys *keys;
    const short_letters *letters;
    bool nulls;      // the text has U+0000
    bool incomplete; // the lanes do not tell the passes after the first
    size_t stored;   // bytes in the rooms of all lanes, or more
    uint64_t from;   // by lane: where its run began, in common weights of the pass
    letter_lane lane[letter_lanes];
    ko_mchar_t *grown[letter_lanes]; // in place of a lane's room, once that is full
    uint32_t grown_to[letter_lanes];
    ko_mchar_t room[letter_lanes][lane_room + lane_word];
};

// The common weights of all letters so far, and the one of the current run, by lane.
struct lanes {
    uint64_t all, commons;
};

// ---- Passes after the first ----

static inline void store_word(ko_mchar_t *out, uint64_t word) {
    if constexpr (std::endian::native == std::endian::little)
        memcpy(out, &word, sizeof word);
    else
        for (size_t i = 0; i < sizeof word; ++i)
            out[i] = ko_mchar_t(word >> 8 * i);
}

static inline const ko_mchar_t *stored_bytes(const letter_walk &walk, unsigned lane) {
    return walk.grown[lane] ? walk.grown[lane] : walk.room[lane];
}

// Gives a lane four times its room. False without memory.
[[gnu::noinline]] static bool grow_lane(letter_walk &walk, unsigned lane) {
    const uint64_t size = uint64_t{4} * (walk.grown[lane] ? walk.grown_to[lane] : lane_room);
    ext_block<ko_mchar_t> fresh(size <= lane_most ? size_t(size) + lane_word : SIZE_MAX);
    if (!fresh.p) return false;
    memcpy(fresh.p, stored_bytes(walk, lane), walk.lane[lane].stored);
    if (walk.grown[lane]) ko_ext_free(walk.grown[lane]);
    walk.grown[lane] = fresh.release();
    walk.grown_to[lane] = uint32_t(size);
    return true;
}

[[gnu::noinline]] static void free_lanes(letter_walk &walk) {
    for (ko_mchar_t *const grown : walk.grown)
        if (grown) ko_ext_free(grown);
}

[[gnu::noinline]] static void keep_word(letter_walk &walk, unsigned lane) {
    letter_lane &l = walk.lane[lane];
    ko_mchar_t *const grown = walk.grown[lane];
    store_word((grown ? grown : walk.room[lane]) + l.stored, l.last);
    l.stored += l.count;
    walk.stored += l.count;
    l.last = l.count = 0;
    if (l.stored <= (grown ? walk.grown_to[lane] : lane_room) || grow_lane(walk, lane)) return;
    walk.incomplete = true;
    l.stored = 0;
}

// Adds up to four bytes, the first one lowest.
static inline void add_bytes(letter_walk &walk, unsigned lane, uint64_t bytes, unsigned count) {
    letter_lane &l = walk.lane[lane];
    if (l.count + count > lane_word) keep_word(walk, lane);
    l.last |= bytes << 8 * l.count;
    l.count += count;
}

// Writes the part of a run that is too long for one byte.
[[gnu::noinline]] static unsigned shorten_run(letter_walk &walk, unsigned lane, unsigned common,
                                              unsigned run) {
    const short_pass &pass = walk.keys->pass[lane + 1];
    for (; run > pass.longest_run && !walk.incomplete; run -= pass.longest_run)
        add_bytes(walk, lane, pass.run_bytes[common] + 2 * pass.longest_run, 1);
    return run;
}

// Ends the run of a lane. Returns how long it is, once what is too long for one byte is written.
static inline unsigned end_run(letter_walk &walk, lanes l, unsigned lane) {
    const unsigned run = lane_of(l.all - walk.from, lane);
    walk.from += uint64_t{run} << lane_bits * lane;
    if (run <= walk.letters->lane[lane].longest) return run;
    return shorten_run(walk, lane, lane_of(l.commons, lane), run);
}

static inline void change_run(letter_walk &walk, lanes l, unsigned lane) {
    const run_bytes bytes = walk.letters->lane[lane].change[lane_of(l.commons, lane)];
    if (const unsigned run = end_run(walk, l, lane)) add_bytes(walk, lane, run_byte(bytes, run), 1);
}

// Makes the lanes count from the beginnings of their runs again, which it keeps short. Returns the
// counts.
[[gnu::noinline]] static uint64_t restart_runs(letter_walk &walk, lanes l) {
    uint64_t all = 0;
    for (unsigned lane = 0; lane < letter_lanes; ++lane)
        all |= uint64_t{end_run(walk, l, lane)} << lane_bits * lane;
    walk.from = 0;
    return all;
}

// Puts a code that is no common weight.
[[gnu::noinline]] static void put_code(letter_walk &walk, lanes l, const letter_op &op) {
    const unsigned lane = op.pass - 1, run = end_run(walk, l, lane), runs = run > 0;
    const uint64_t before = runs ? run_byte(op.run[lane_of(l.commons, lane)], run) : 0;
    add_bytes(walk, lane, before | uint64_t{op.bytes} << 8 * runs, op.count + runs);
}

static inline lanes put_op(letter_walk &walk, lanes l, const letter_op &op) {
    if (op.code >= short_most_commons) {
        put_code(walk, l, op);
        return l;
    }
    const unsigned lane = op.pass - 1;
    if (lane_of(l.commons, lane) != op.code) {
        change_run(walk, l, lane);
        l.commons ^= uint64_t{1} << lane_bits * lane;
    }
    l.all += uint64_t{1} << lane_bits * lane;
    return l;
}

// Ends the runs of the lanes in which the common weight changes.
[[gnu::noinline]] static void change_runs(letter_walk &walk, lanes l, uint64_t changes) {
    do {
        change_run(walk, l, unsigned(std::countr_zero(changes)) / lane_bits);
    } while (changes &= changes - 1);
}

// Puts the operations of a letter in the passes after the first.
[[gnu::noinline]] static lanes put_ops(letter_walk &walk, lanes l, const letter_pattern &pattern) {
    const letter_op *op = walk.letters->ops + pattern.first_op;
    for (unsigned i = pattern.num_firsts; i < pattern.num_ops; ++i)
        l = put_op(walk, l, op[i]);
    return l;
}

// Copies what a lane has stored, and up to a word more.
[[gnu::noinline]] static ko_mchar_t *copy_stored(const letter_walk &walk, unsigned lane,
                                                 ko_mchar_t *out) {
    const unsigned stored = walk.lane[lane].stored;
    const ko_mchar_t *const bytes = stored_bytes(walk, lane);
    for (unsigned i = 0; i < stored; i += lane_word)
        memcpy(out + i, bytes + i, lane_word);
    return out + stored;
}

// Appends a pass that the walk has made; more: something follows.
[[gnu::noinline]] static void put_made_pass(const letter_walk &walk, lanes l, unsigned pass,
                                            bool more, coll_sink *sink) {
    const unsigned lane = pass - 1;
    const letter_lane &state = walk.lane[lane];
    sink_bytes(sink, stored_bytes(walk, lane), state.stored);
    sink_place at = place_in(sink);
    store_word(at.out, state.last);
    at.out += state.count;
    lower_pass lower = {&walk.keys->pass[pass], lane_of(l.all - walk.from, lane),
                        lane_of(l.commons, lane)};
    leave_place(make_room(end_pass(lower, at, sink, !more), sink), sink);
}

// The bytes that end the passes, one in each lane: those of their last runs, or short_end.
static inline uint64_t last_bytes(const short_letters *letters, uint64_t runs, uint64_t commons) {
    const uint64_t high = letters->ones << (lane_bits - 1), second = commons * lane_mask;
    const uint64_t none = (~(runs + (high - letters->ones)) & high) >> (lane_bits - 1);
    const uint64_t ends = (letters->end[0] & ~second) + (letters->end[1] & second) + 2 * runs;
    return (ends & ~(none * lane_mask)) | none * short_end;
}

// Appends all passes that the walk has made if the last run of each is short.
static inline bool put_short_lanes(const letter_walk &walk, lanes l, unsigned passes, bool more,
                                   coll_sink *sink) {
    const short_letters *const letters = walk.letters;
    const uint64_t runs = l.all - walk.from;
    constexpr size_t most_bytes = letter_lanes * (lane_word + 1);
    if (sink->used + most_bytes + walk.stored > sink->full) return false;
    if ((letters->longest - runs) & letters->ones << (lane_bits - 1)) return false;
    ko_mchar_t *out = sink->room + sink->used;
    uint64_t bytes = last_bytes(letters, runs, l.commons);
    for (unsigned lane = 0; lane + 1 < passes; ++lane, bytes >>= lane_bits) {
        const letter_lane &state = walk.lane[lane];
        if (state.stored) out = copy_stored(walk, lane, out);
        store_word(out, state.last);
        out += state.count;
        *out++ = ko_mchar_t(bytes);
    }
    const bool none = !more && !lane_of(runs, passes - 2);
    sink->used = size_t(out - sink->room) - none;
    return true;
}

// ---- Letters of a text ----

struct taken {
    unsigned unit; // 0 for U+0000
    uint64_t letter;
};

// Take the next letter; false at the end.
template <class Unit>
static inline bool take_letter(const short_letters *letters, mapped_text<Unit> &text, taken *next) {
    next->unit = take(text);
    next->letter = letters->page[next->unit >> 8][next->unit & 0xFF];
    return next->unit != 0;
}
template <class Unit>
static inline bool take_letter(const short_letters *letters, utf16_text<Unit> &text, taken *next) {
    if (text.s == text.end) return false;
    next->unit = *text.s++;
    next->letter = letters->page[next->unit >> 8][next->unit & 0xFF];
    return true;
}
static inline bool take_letter(const short_letters *letters, utf8_text &text, taken *next) {
    if (text.s == text.end) return false;
    next->unit = *text.s;
    next->letter = letters->bytes[next->unit];
    if (next->unit < 0x80) {
        ++text.s;
        return true;
    }
    if (!take_plain(text, &next->unit)) {
        utf8_text rest = text; // text itself stays in registers
        next->unit = take_rare(rest);
        text.s = rest.s;
    }
    next->letter = letters->page[next->unit >> 8][next->unit & 0xFF];
    return true;
}

template <class Text>
static inline bool may_continue(const coll_flat *flat, unsigned kinds, const Text &text) {
    return may_continue(flat, kinds, text.s, text.end);
}
template <class Unit>
static inline bool may_continue(const coll_flat *, unsigned kinds, const mapped_text<Unit> &) {
    return kinds;
}

// The letter of the element that begins with the unit just taken, or of the unit itself.
template <class Text>
[[gnu::noinline]] static uint64_t element_letter(letter_walk &walk, taken edge, Text &text,
                                                 ptrdiff_t *element) {
    const coll_flat_pass *p = &walk.flat->pass[0];
    const uint16_t weight = p->page[edge.unit >> 8][edge.unit & 0xFF];
    const coll_special &special = p->specials[weight & coll_low_bits];
    const auto *s = text.s;
    const coll_candidate *const found = find_candidate(special, text);
    if (!found) return edge.letter;
    for (; s != text.s; ++s)
        if (!*s) walk.nulls = true;
    *element = found - special.candidates;
    return walk.letters->elements[found->number];
}

// Letters like one before: their lead holds, they take one more byte, and their pattern has no
// operations. All bits but those of that byte are alike.
struct letter_run {
    uint64_t letter;
    uint64_t runs; // of the pattern
};
constexpr uint64_t second_byte = 0xFF00;
constexpr uint32_t led_code = uint32_t{2} << 30 | short_keeps_lead,
                   led_bits = uint32_t{3} << 30 | short_keeps_lead;
constexpr letter_run no_run = {letter_none, 0};
inline unsigned led_by(uint64_t letter) { return unsigned(letter >> 16 & 0xFF); }

static inline letter_run run_from(uint64_t letter, const letter_pattern &pattern) {
    constexpr uint64_t no_flags = (uint64_t{1} << letter_flags_bit) - 1;
    if ((letter & led_bits) != led_code) return no_run;
    return {letter & no_flags, pattern.runs};
}

// Puts what the tables say of the first pass. The lanes cannot tell the others then.
[[gnu::noinline]] static sink_place put_items(letter_walk &walk, unsigned unit, ptrdiff_t element,
                                              first_pass *first, sink_place at, coll_sink *sink) {
    if (!unit) {
        walk.nulls = true;
        return at;
    }
    walk.incomplete = true;
    coll_item own;
    const coll_seq seq = yielded(&walk.flat->pass[0], unit, element, &own);
    return put_seq(*first, walk.keys->pass[0].codes, seq, at, sink);
}

// Further codes of a letter in the first pass.
static inline sink_place put_firsts(const short_letters *letters, const letter_pattern &pattern,
                                    first_pass &first, sink_place at, coll_sink *sink) {
    for (unsigned i = 0; i < pattern.num_firsts; ++i) {
        const letter_op op = letters->ops[pattern.first_op + i];
        at = make_room(put_spelled(first, op.code, op.code & short_bytes_mask, at), sink);
    }
    return at;
}

// Puts the first pass into the sink, and what interrupts the others into the lanes. Returns how
// these end.
template <class Text>
static inline lanes walk_letters(letter_walk &walk, Text text, coll_sink *sink) {
    const short_letters *const letters = walk.letters;
    sink_place at = place_in(sink);
    first_pass first = {0};
    lanes l = {0, 0};
    letter_run run = no_run;
    for (taken next; take_letter(letters, text, &next);) {
        if (!((next.letter ^ run.letter) & ~second_byte)) {
            *at.out++ = ko_mchar_t(next.letter >> 8);
            l.all += run.runs;
            if (at.out <= at.limit) continue;
        } else {
            uint32_t bytes = letter_code(next.letter) & short_bytes_mask;
            if (next.letter >> letter_flags_bit) {
                ptrdiff_t element = -1;
                if (may_continue(walk.flat, letter_next(next.letter), text)) {
                    Text rest = text;
                    next.letter = element_letter(walk, next, rest, &element);
                    text = rest;
                }
                if (next.letter & letter_items) {
                    first_pass state = first; // first itself stays in a register
                    at = put_items(walk, next.unit, element, &state, at, sink);
                    first = state;
                    run = no_run;
                    continue;
                }
                bytes = letter_code(next.letter);
                bytes = next.letter & letter_tie
                            ? item_bytes(bytes, {coll_code_tie, ko_wchar_t(next.unit)})
                            : bytes & short_bytes_mask;
            }
            const letter_pattern &pattern = letters->patterns[letter_pattern_of(next.letter)];
            if (const uint32_t code = letter_code(next.letter))
                at = put_spelled(first, code, bytes, at);
            const uint64_t changes = (l.commons ^ pattern.commons) & pattern.valid;
            if (changes) change_runs(walk, l, changes);
            l = {l.all + pattern.runs, l.commons ^ changes};
            if (!pattern.num_ops) {
                run = run_from(next.letter, pattern);
            } else if (pattern.one_code) {
                put_code(walk, l, letters->ops[pattern.first_op]);
                if (changes || first.lead != led_by(run.letter)) run = no_run;
            } else {
                if (pattern.num_firsts) at = put_firsts(letters, pattern, first, at, sink);
                const uint64_t commons = l.commons;
                l = put_ops(walk, l, pattern);
                if (first.lead != led_by(run.letter) || l.commons != commons || changes)
                    run = no_run;
            }
            if (at.out <= at.limit && !(l.all & all_lanes_high)) continue;
        }
        at = make_room(at, sink);
        if (l.all & all_lanes_high) l.all = restart_runs(walk, l);
    }
    leave_place(at, sink);
    return l;
}

#endif
