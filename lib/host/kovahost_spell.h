// Writing the weights of a pass into a key: leads, runs of common weights, and the places they are
// written to.
#ifndef KOVAHOST_SPELL_H
#define KOVAHOST_SPELL_H

#include "collate/kovacoll_key.h"
#include "collate/kovacoll_short.h"

#include <string.h>

// ---- Sinks ----

// make_room() gives room for coll_sink_spare bytes again.
static inline sink_place make_room(sink_place at, coll_sink *sink) {
    return at.out > at.limit ? flush_place(at, sink) : at;
}

// ---- Weights ----

static inline ko_mchar_t *put_bytes(ko_mchar_t *out, uint32_t bytes, unsigned count) {
    out[0] = ko_mchar_t(bytes >> 16);
    out[1] = ko_mchar_t(bytes >> 8);
    out[2] = ko_mchar_t(bytes);
    return out + count;
}

// What is written between weights depends on earlier ones: on a lead that is still valid, or a run
// of common weights.
struct first_pass {
    unsigned lead; // 0: none
};
struct lower_pass {
    const short_pass *pass;
    size_t run;
    unsigned common; // the run's
};

static inline ko_mchar_t *leave_lead(ko_mchar_t *out, unsigned lead, unsigned next) {
    if (lead) *out++ = ko_mchar_t(next < lead ? short_down : short_up);
    return out;
}

// Puts bytes as item_bytes returns them, with the count and the flag of their code.
static inline sink_place put_spelled(first_pass &state, uint32_t code, uint32_t bytes,
                                     sink_place at) {
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

template <class Sink>
static inline sink_place put_item(first_pass &state, uint32_t code, coll_item item, sink_place at,
                                  Sink *) {
    return put_spelled(state, code, item_bytes(code, item), at);
}

template <class Sink> static inline sink_place put_raw(first_pass &state, sink_place at, Sink *) {
    at.out = leave_lead(at.out, state.lead, short_raw);
    state.lead = 0;
    *at.out++ = short_raw;
    return at;
}

template <class Sink>
static inline sink_place end_pass(first_pass &, sink_place at, Sink *, bool last) {
    if (!last) *at.out++ = short_end;
    return at;
}

static inline ko_mchar_t run_byte(run_bytes bytes, unsigned n) {
    return ko_mchar_t(bytes.first + bytes.each * int(n));
}

template <class Sink>
static inline sink_place put_run(lower_pass &state, run_end end, sink_place at, Sink *sink) {
    if (!state.run) return at;
    const unsigned bytes = state.pass->run_bytes[state.common], longest = state.pass->longest_run;
    for (; state.run > longest; state.run -= longest) {
        *at.out++ = ko_mchar_t(bytes + 2 * longest);
        at = make_room(at, sink);
    }
    *at.out++ = run_byte(bytes_of_run(*state.pass, state.common, end), unsigned(state.run));
    state.run = 0;
    return at;
}

template <class Sink>
static inline sink_place put_lower(lower_pass &state, uint32_t code, uint32_t bytes, sink_place at,
                                   Sink *sink) {
    if (code < short_most_commons) {
        if (code != state.common) {
            at = put_run(state, code > state.common ? run_end::higher : run_end::lower, at, sink);
            state.common = code;
        }
        ++state.run;
        return at;
    }
    const bool higher = bytes >> 16 > state.pass->run_bytes[state.common];
    at = put_run(state, higher ? run_end::higher : run_end::lower, at, sink);
    at.out = put_bytes(at.out, bytes, short_count(code));
    return at;
}

template <class Sink>
static inline sink_place put_item(lower_pass &state, uint32_t code, coll_item item, sink_place at,
                                  Sink *sink) {
    return put_lower(state, code, item_bytes(code, item), at, sink);
}

template <class Sink>
static inline sink_place put_raw(lower_pass &state, sink_place at, Sink *sink) {
    at = put_run(state, run_end::higher, at, sink);
    *at.out++ = short_raw;
    return at;
}

template <class Sink>
static inline sink_place end_pass(lower_pass &state, sink_place at, Sink *sink, bool last) {
    if (state.run) return put_run(state, run_end::pass, at, sink);
    if (!last) *at.out++ = short_end;
    return at;
}

template <class State, class Sink>
static inline sink_place put_any(State &state, const uint32_t *codes, coll_item item, sink_place at,
                                 Sink *sink) {
    if (item.weight == coll_raw_weight) {
        at = put_raw(state, at, sink);
        *at.out++ = ko_mchar_t(item.ch);
    } else {
        at = put_item(state, item_code(codes, item), item, at, sink);
    }
    return make_room(at, sink);
}

template <class State, class Sink>
static inline sink_place put_seq(State &state, const uint32_t *codes, coll_seq seq, sink_place at,
                                 Sink *sink) {
    for (unsigned i = 0; i < seq.count; ++i)
        at = put_any(state, codes, seq.items[i], at, sink);
    return at;
}

#endif
