// All passes of a key in one walk over the text, by its letters.
#ifndef KOVAHOST_LETTERS_H
#define KOVAHOST_LETTERS_H

#include "collate/kovacoll_letters.h"
#include "collate/kovacoll_pass.h"
#include "host/kovahost_spell.h"
#include "host/kovahost_text.h"

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

// Puts a common weight, or anything after a run that one byte does not express.
[[gnu::noinline]] static lanes put_code(letter_walk &walk, lanes l, unsigned pass, uint32_t code,
                                        uint32_t bytes) {
    lower_pass state = lower_of(walk, l, pass);
    side_sink *const side = &walk.side[pass - 1];
    const sink_place at = put_lower(state, code, bytes, place_in(side), side);
    return keep_lower(walk, l, pass, state, make_room(at, side));
}

static inline lanes put_op(letter_walk &walk, lanes l, letter_op op) {
    const short_pass &p = walk.keys->pass[op.pass];
    const unsigned lane = lane_bits * (op.pass - 1), run = unsigned(l.runs >> lane & lane_mask);
    const uint32_t bytes = op.code & short_bytes_mask;
    if (op.code < short_most_commons || run > p.longest_run)
        return put_code(walk, l, op.pass, op.code, bytes);
    side_sink *const side = &walk.side[op.pass - 1];
    sink_place at = place_in(side);
    if (run) {
        const unsigned runs = p.run_bytes[l.commons >> lane & lane_mask];
        const run_end end = bytes >> 16 > runs ? run_end::higher : run_end::lower;
        *at.out++ = run_byte(runs, p.longest_run, run, end);
        l.runs ^= uint64_t{run} << lane;
    }
    at.out = put_bytes(at.out, bytes, short_count(op.code));
    leave_place(make_room(at, side), side);
    return l;
}

static inline bool continues_runs(lanes l, const letter_pattern &pattern) {
    return !((l.commons ^ pattern.commons) & pattern.valid);
}

[[gnu::noinline]] static lanes change_runs(letter_walk &walk, lanes l,
                                           const letter_pattern &pattern) {
    for (unsigned pass = 1; pass < walk.passes; ++pass) {
        const unsigned lane = lane_bits * (pass - 1);
        if (pattern.runs >> lane & 1)
            l = put_code(walk, l, pass, uint32_t(pattern.commons >> lane & lane_mask), 0);
    }
    return l;
}

static inline lanes put_pattern(letter_walk &walk, lanes l, const letter_pattern &pattern) {
    if (continues_runs(l, pattern))
        l.runs += pattern.runs;
    else
        l = change_runs(walk, l, pattern);
    const letter_op *op = walk.letters->ops + pattern.first_op + pattern.num_firsts;
    for (unsigned i = pattern.num_firsts; i < pattern.num_ops; ++i)
        l = put_op(walk, l, *op++);
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

// A run of letters with one pattern that has no operations. While a lead holds, these are letters
// that take one more byte of it: all bits but those of that byte are alike. Otherwise they are
// letters that keep no lead.
struct letter_run {
    uint64_t letter, unlike;
    uint64_t runs; // of the pattern
};
constexpr uint64_t second_byte = 0xFF00;
constexpr uint64_t led_code = uint64_t{2} << 30 | short_keeps_lead;
constexpr uint64_t unled_code = uint64_t{2} << 30,
                   unled_bits =
                       letter_tie | uint64_t{1} << 30 | short_bytes_mask; // two or three bytes
constexpr letter_run no_run = {letter_none, 0, 0};

static inline letter_run run_of_pattern(const letter_walk &walk, first_pass first, lanes l,
                                        unsigned number) {
    const letter_pattern &pattern = walk.letters->patterns[number];
    if (pattern.num_ops || !continues_runs(l, pattern)) return no_run;
    const uint64_t letter = uint64_t{number} << letter_pattern_bit;
    if (!first.lead) return {letter | unled_code, unled_bits, pattern.runs};
    return {letter | led_code | first.lead << 16, second_byte, pattern.runs};
}

struct taken {
    unsigned unit; // 0 at the end
    uint64_t letter;
};

template <class Text> static inline taken take_letter(const short_letters *letters, Text &text) {
    const unsigned c = take(text);
    return {c, letters->page[c >> 8][c & 0xFF]};
}

static inline uint32_t letter_bytes(taken next) {
    const uint32_t code = letter_code(next.letter);
    return next.letter & letter_tie ? item_bytes(code, {coll_code_tie, ko_wchar_t(next.unit)})
                                    : code & short_bytes_mask;
}

template <bool led> static inline ko_mchar_t *put_letter(ko_mchar_t *out, taken next) {
    if (!led) return put_bytes(out, letter_bytes(next), short_count(letter_code(next.letter)));
    *out = ko_mchar_t(next.letter >> 8);
    return out + 1;
}

// Takes a letter that needs no rare step.
template <class Text>
static inline bool take_letter(const short_letters *letters, Text &text, taken *next) {
    if (!take_plain(text, &next->unit)) return false;
    next->letter = letters->page[next->unit >> 8][next->unit & 0xFF];
    return true;
}
static inline bool take_letter(const short_letters *letters, utf8_text &text, taken *next) {
    if (text.s == text.end) return false;
    next->unit = *text.s;
    next->letter = letters->bytes[next->unit];
    if (next->unit - 1 < 0x7F) {
        ++text.s;
        return true;
    }
    if (!take_plain(text, &next->unit)) return false;
    next->letter = letters->page[next->unit >> 8][next->unit & 0xFF];
    return true;
}

// Puts letters of the run while there is room, counts them, and takes the next one.
template <bool led, class Text>
static inline taken put_alike(const short_letters *letters, letter_run run, Text &text,
                              sink_place &at, size_t *count) {
    Text probe = text;
    ko_mchar_t *out = at.out;
    size_t n = 0;
    for (taken next; out < at.limit && take_letter(letters, probe, &next); ++n) {
        if ((next.letter ^ run.letter) & ~run.unlike) {
            text = probe;
            at.out = out;
            *count = n;
            return next;
        }
        out = put_letter<led>(out, next);
    }
    text = probe;
    at.out = out;
    *count = n;
    return take_letter(letters, text);
}

// The letter of the element that begins with the unit just taken, or of the unit itself.
template <class Text>
static inline uint64_t element_letter(const letter_walk &walk, taken edge, Text &text,
                                      ptrdiff_t *element) {
    const coll_flat_pass *p = &walk.flat->pass[0];
    const uint16_t weight = p->page[edge.unit >> 8][edge.unit & 0xFF];
    const coll_special &special = p->specials[weight & coll_low_bits];
    const coll_candidate *const found = find_candidate(special, text);
    if (!found) return edge.letter;
    *element = found - special.candidates;
    return walk.letters->elements[found->number];
}

// Puts the first pass into the sink, and what interrupts the others into the side sinks. Returns
// how these end.
template <class Text> static lanes walk_letters(letter_walk &walk, Text text, coll_sink *sink) {
    const short_letters *const letters = walk.letters;
    sink_place at = place_in(sink);
    first_pass first = {0};
    lanes l = {0, 0};
    letter_run run = no_run;
    for (;;) {
        size_t n;
        taken next = first.lead ? put_alike<true>(letters, run, text, at, &n)
                                : put_alike<false>(letters, run, text, at, &n);
        l.runs += run.runs * n;
        if (at.out >= at.limit) {
            at = flush_place(at, sink);
            l = shorten_runs(walk, l);
        }
        const uint64_t commons = l.commons;
        if (next.letter >> letter_flags_bit) {
            if (!next.unit) break;
            ptrdiff_t element = -1;
            if (next.letter & letter_edge) next.letter = element_letter(walk, next, text, &element);
            if (next.letter & letter_items) {
                coll_item own;
                const coll_seq seq = yielded(&walk.flat->pass[0], next.unit, element, &own);
                at = put_seq(first, walk.keys->pass[0].codes, seq, at, sink);
                l = put_yielded(walk, l, next.unit, element);
                run = no_run;
                continue;
            }
        }
        const uint32_t code = letter_code(next.letter);
        // Other letters fill the room, and then the runs are shortened.
        if (code)
            at = put_spelled(first, code, letter_bytes(next), at);
        else if (l.runs & all_lanes_high)
            l = shorten_runs(walk, l);
        unsigned number = letter_pattern_of(next.letter);
        const letter_pattern &pattern = letters->patterns[number];
        for (unsigned i = 0; i < pattern.num_firsts; ++i) {
            const letter_op op = letters->ops[pattern.first_op + i];
            at = make_room(put_spelled(first, op.code, op.code & short_bytes_mask, at), sink);
        }
        l = put_pattern(walk, l, pattern);
        // A letter with operations, such as a capital, need not end the run.
        const bool same = uint8_t(run.letter >> 16) == first.lead && l.commons == commons;
        if (pattern.num_ops) number = letter_pattern_of(run.letter);
        if (!same || number != letter_pattern_of(run.letter))
            run = run_of_pattern(walk, first, l, number);
    }
    leave_place(at, sink);
    return l;
}

#endif
