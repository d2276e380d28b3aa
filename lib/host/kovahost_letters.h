// All passes of a key in one walk over the text, by its letters.
#ifndef KOVAHOST_LETTERS_H
#define KOVAHOST_LETTERS_H

#include "collate/kovacoll_letters.h"
#include "collate/kovacoll_pass.h"
#include "host/kovahost_mapped.h"
#include "host/kovahost_spell.h"

#include <bit>

// A pass after the first while the walk goes on: the last few bytes in a word, from its low end on,
// those before them in the lane's room, and where its run began, in common weights of the pass.
struct letter_lane {
    uint64_t last;
    uint16_t count; // bytes in last
    uint16_t stored;
    uint32_t from;
};
constexpr unsigned lane_room = 256, lane_word = sizeof(uint64_t);

// The first pass goes to the sink, what interrupts the runs of the others to their lanes.
struct letter_walk {
    const coll_flat *flat;
    const short_keys *keys;
    const short_letters *letters;
    bool nulls;      // the text has U+0000
    bool incomplete; // the lanes do not tell the passes after the first
    letter_lane lane[letter_lanes];
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

[[gnu::noinline]] static void keep_word(letter_walk &walk, unsigned lane) {
    letter_lane &l = walk.lane[lane];
    store_word(walk.room[lane] + l.stored, l.last);
    l.stored = uint16_t(l.stored + l.count);
    l.last = l.count = 0;
    if (l.stored <= lane_room) return;
    walk.incomplete = true;
    l.stored = 0;
}

// Adds up to four bytes, the first one lowest.
static inline void add_bytes(letter_walk &walk, unsigned lane, uint64_t bytes, unsigned count) {
    letter_lane &l = walk.lane[lane];
    l.last |= bytes << 8 * l.count;
    l.count = uint16_t(l.count + count);
    if (l.count > lane_word - 4) keep_word(walk, lane);
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
    const unsigned to = lane_of(l.all, lane), run = to - walk.lane[lane].from;
    walk.lane[lane].from = to;
    if (run <= walk.letters->lane[lane].longest) return run;
    return shorten_run(walk, lane, lane_of(l.commons, lane), run);
}

static inline void change_run(letter_walk &walk, lanes l, unsigned lane) {
    const run_bytes bytes = walk.letters->lane[lane].change[lane_of(l.commons, lane)];
    if (const unsigned run = end_run(walk, l, lane)) add_bytes(walk, lane, run_byte(bytes, run), 1);
}

static inline lanes put_op(letter_walk &walk, lanes l, const letter_op &op) {
    const unsigned lane = op.pass - 1;
    if (op.code < short_most_commons) {
        if (lane_of(l.commons, lane) != op.code) {
            change_run(walk, l, lane);
            l.commons ^= uint64_t{1} << lane_bits * lane;
        }
        l.all += uint64_t{1} << lane_bits * lane;
        return l;
    }
    const unsigned run = end_run(walk, l, lane), runs = run > 0;
    const uint64_t before = runs ? run_byte(op.run[lane_of(l.commons, lane)], run) : 0;
    add_bytes(walk, lane, before | uint64_t{op.bytes} << 8 * runs, op.count + runs);
    return l;
}

// Puts the passes of a letter after the first.
static inline lanes put_pattern(letter_walk &walk, lanes l, const letter_pattern &pattern) {
    const uint64_t changes = (l.commons ^ pattern.commons) & pattern.valid;
    for (uint64_t rest = changes; rest; rest &= rest - 1)
        change_run(walk, l, unsigned(std::countr_zero(rest)) / lane_bits);
    l.commons ^= changes;
    l.all += pattern.runs;
    const letter_op *op = walk.letters->ops + pattern.first_op + pattern.num_firsts;
    for (unsigned i = pattern.num_firsts; i < pattern.num_ops; ++i, ++op)
        l = put_op(walk, l, *op);
    return l;
}

// Copies what a lane has stored.
[[gnu::noinline]] static sink_place copy_stored(const letter_walk &walk, unsigned lane,
                                                sink_place at, coll_sink *sink) {
    const unsigned stored = walk.lane[lane].stored;
    for (unsigned i = 0; i < stored; i += lane_word) {
        memcpy(at.out, walk.room[lane] + i, lane_word);
        at.out += stored - i < lane_word ? stored - i : lane_word;
        at = make_room(at, sink);
    }
    return at;
}

// Appends the passes of a range that the walk has made; more: others follow, or U+0000 does.
static inline void put_lanes(const letter_walk &walk, lanes l, unsigned pass, unsigned end,
                             bool more, coll_sink *sink) {
    sink_place at = place_in(sink);
    l = {l.all >> lane_bits * (pass - 1), l.commons >> lane_bits * (pass - 1)};
    for (; pass < end; ++pass) {
        const letter_lane &state = walk.lane[pass - 1];
        if (state.stored) at = copy_stored(walk, pass - 1, at, sink);
        store_word(at.out, state.last);
        at.out += state.count;
        const lane_runs &runs = walk.letters->lane[pass - 1];
        const unsigned common = l.commons & 1, run = unsigned(l.all & lane_mask) - state.from;
        if (run - 1 < runs.longest) {
            *at.out++ = run_byte(runs.end[common], run);
        } else if (run) {
            lower_pass lower = {&walk.keys->pass[pass], run, common};
            at = put_run(lower, run_end::pass, at, sink);
        } else if (pass + 1 < end || more) {
            *at.out++ = short_end;
        }
        at = make_room(at, sink);
        l = {l.all >> lane_bits, l.commons >> lane_bits};
    }
    leave_place(at, sink);
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
            if (!pattern.num_ops) {
                run = run_from(next.letter, pattern);
                if ((l.commons ^ pattern.commons) & pattern.valid)
                    l = put_pattern(walk, l, pattern);
                else
                    l.all += pattern.runs;
            } else {
                run = no_run;
                if (pattern.num_firsts) at = put_firsts(letters, pattern, first, at, sink);
                l = put_pattern(walk, l, pattern);
            }
            if (at.out <= at.limit && !(l.all & all_lanes_high)) continue;
        }
        at = make_room(at, sink);
        if (l.all & all_lanes_high) {
            walk.incomplete = true;
            l.all = 0;
        }
    }
    leave_place(at, sink);
    return l;
}

#endif
