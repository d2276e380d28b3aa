// All passes of a key in one walk over the text, by its letters.
#ifndef KOVAHOST_LETTERS_H
#define KOVAHOST_LETTERS_H

#include "collate/kovacoll_letters.h"
#include "collate/kovacoll_pass.h"
#include "host/kovahost_mapped.h"
#include "host/kovahost_spell.h"

#include <bit>

// Runs of common weights in the passes after the first, by lane as in letter_pattern.
struct lanes {
    uint64_t runs, commons;
};
// The first pass goes to a sink of its own, what interrupts the runs of the others to side sinks.
struct letter_walk {
    const coll_flat *flat;
    const short_keys *keys;
    const short_letters *letters;
    unsigned passes;
    bool nulls; // the text has U+0000
    side_sink side[letter_lanes];
};

static inline lower_pass lower_of(const letter_walk &walk, lanes l, unsigned pass) {
    const unsigned lane = lane_bits * (pass - 1);
    return {&walk.keys->pass[pass], size_t(l.runs >> lane & lane_mask),
            unsigned(l.commons >> lane & lane_mask)};
}

// Keeps a pass in its lane, with a run that leaves the lane room.
static inline lanes keep_lower(letter_walk &walk, lanes l, unsigned pass, lower_pass state,
                               sink_place at) {
    side_sink *const side = &walk.side[pass - 1];
    const unsigned longest = state.pass->longest_run;
    for (; state.run > longest; state.run -= longest) {
        *at.out++ = ko_mchar_t(state.pass->run_bytes[state.common] + 2 * longest);
        at = make_room(at, side);
    }
    leave_place(at, side);
    const unsigned lane = lane_bits * (pass - 1);
    l.runs = (l.runs & ~(lane_mask << lane)) | uint64_t{state.run} << lane;
    l.commons = (l.commons & ~(lane_mask << lane)) | uint64_t{state.common} << lane;
    return l;
}

[[gnu::noinline]] static lanes shorten_runs(letter_walk &walk, lanes l) {
    for (unsigned pass = 1; pass < walk.passes; ++pass)
        l = keep_lower(walk, l, pass, lower_of(walk, l, pass), place_in(&walk.side[pass - 1]));
    return l;
}

// Ends the run of a pass before a weight that is common, too.
static inline lanes change_run(letter_walk &walk, lanes l, unsigned pass, unsigned common) {
    lower_pass state = lower_of(walk, l, pass);
    side_sink *const side = &walk.side[pass - 1];
    const run_end end = common > state.common ? run_end::higher : run_end::lower;
    const unsigned lane = lane_bits * (pass - 1);
    l.commons ^= uint64_t{state.common ^ common} << lane;
    l.runs &= ~(lane_mask << lane);
    if (state.run > state.pass->longest_run)
        leave_place(make_room(put_run(state, end, place_in(side), side), side), side);
    else if (state.run)
        add_bytes(side, run_byte(bytes_of_run(*state.pass, state.common, end), unsigned(state.run)),
                  1);
    return l;
}

static inline lanes put_common(letter_walk &walk, lanes l, letter_op op) {
    const unsigned lane = lane_bits * (op.pass - 1);
    if ((l.commons >> lane & lane_mask) != op.code) l = change_run(walk, l, op.pass, op.code);
    l.runs += uint64_t{1} << lane;
    return l;
}

// Puts what is not a common weight after a run that one byte does not express.
[[gnu::noinline]] static lanes put_after_run(letter_walk &walk, lanes l, letter_op op) {
    lower_pass state = lower_of(walk, l, op.pass);
    side_sink *const side = &walk.side[op.pass - 1];
    const sink_place at =
        put_lower(state, op.code, op.code & short_bytes_mask, place_in(side), side);
    return keep_lower(walk, l, op.pass, state, make_room(at, side));
}

static inline lanes put_other(letter_walk &walk, lanes l, const letter_op &op) {
    const unsigned lane = lane_bits * (op.pass - 1), run = unsigned(l.runs >> lane & lane_mask);
    if (run > walk.keys->pass[op.pass].longest_run) return put_after_run(walk, l, op);
    const bool runs = run != 0;
    const uint64_t before = runs ? run_byte(op.run[l.commons >> lane & 1], run) : 0;
    add_bytes(&walk.side[op.pass - 1], before | uint64_t{op.bytes} << 8 * runs, op.count + runs);
    l.runs ^= uint64_t{run} << lane;
    return l;
}

// Puts the passes of a letter after the first.
static inline lanes put_pattern(letter_walk &walk, lanes l, const letter_pattern &pattern) {
    for (uint64_t rest; (rest = (l.commons ^ pattern.commons) & pattern.valid);) {
        const unsigned pass = unsigned(std::countr_zero(rest)) / lane_bits + 1;
        l = change_run(walk, l, pass, pattern.commons >> lane_bits * (pass - 1) & lane_mask);
    }
    l.runs += pattern.runs;
    const letter_op *op = walk.letters->ops + pattern.first_op + pattern.num_firsts;
    for (unsigned i = pattern.num_firsts; i < pattern.num_ops; ++i, ++op)
        l = op->code < short_most_commons ? put_common(walk, l, *op) : put_other(walk, l, *op);
    return l;
}

[[gnu::noinline]] static lanes put_yielded(letter_walk &walk, lanes l, unsigned unit,
                                           ptrdiff_t candidate) {
    for (unsigned pass = 1; pass < walk.passes; ++pass) {
        const coll_flat_pass *const p = &walk.flat->pass[pass];
        if (!p->forward) continue;
        coll_item own;
        const coll_seq seq = yielded(p, unit, candidate, &own);
        if (!seq.count) continue;
        lower_pass state = lower_of(walk, l, pass);
        side_sink *const side = &walk.side[pass - 1];
        const sink_place at =
            put_seq(state, walk.keys->pass[pass].codes, seq, place_in(side), side);
        l = keep_lower(walk, l, pass, state, at);
    }
    return l;
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

static inline uint32_t letter_bytes(taken next) {
    const uint32_t code = letter_code(next.letter);
    return next.letter & letter_tie ? item_bytes(code, {coll_code_tie, ko_wchar_t(next.unit)})
                                    : code & short_bytes_mask;
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

// Puts the first pass into the sink, and what interrupts the others into the side sinks. Returns
// how these end.
template <class Text> static lanes walk_letters(letter_walk &walk, Text text, coll_sink *sink) {
    const short_letters *const letters = walk.letters;
    sink_place at = place_in(sink);
    first_pass first = {0};
    lanes l = {0, 0};
    letter_run run = no_run;
    for (taken next; take_letter(letters, text, &next);) {
        if (!((next.letter ^ run.letter) & ~second_byte)) {
            *at.out++ = ko_mchar_t(next.letter >> 8);
            l.runs += run.runs;
            if (at.out <= at.limit) continue;
            at = flush_place(at, sink);
            l = shorten_runs(walk, l);
            continue;
        }
        if (next.letter >> letter_flags_bit) {
            ptrdiff_t element = -1;
            if (may_continue(walk.flat, letter_next(next.letter), text)) {
                Text rest = text;
                next.letter = element_letter(walk, next, rest, &element);
                text = rest;
            }
            if (next.letter & letter_items) {
                run = no_run;
                if (next.unit) {
                    coll_item own;
                    const coll_seq seq = yielded(&walk.flat->pass[0], next.unit, element, &own);
                    at = put_seq(first, walk.keys->pass[0].codes, seq, at, sink);
                    l = put_yielded(walk, l, next.unit, element);
                } else {
                    walk.nulls = true;
                }
                continue;
            }
        }
        const letter_pattern &pattern = letters->patterns[letter_pattern_of(next.letter)];
        const uint64_t commons = l.commons;
        if (const uint32_t code = letter_code(next.letter))
            at = put_spelled(first, code, letter_bytes(next), at);
        if (!pattern.num_ops && !((commons ^ pattern.commons) & pattern.valid)) {
            l.runs += pattern.runs;
            run = run_from(next.letter, pattern);
        } else {
            for (unsigned i = 0; i < pattern.num_firsts; ++i) {
                const letter_op op = letters->ops[pattern.first_op + i];
                at = make_room(put_spelled(first, op.code, op.code & short_bytes_mask, at), sink);
            }
            l = put_pattern(walk, l, pattern);
            if (uint8_t(run.letter >> 16) != first.lead || l.commons != commons) run = no_run;
            if (!pattern.num_ops) run = run_from(next.letter, pattern);
        }
        at = make_room(at, sink);
        if (l.runs & all_lanes_high) l = shorten_runs(walk, l);
    }
    leave_place(at, sink);
    return l;
}

#endif
