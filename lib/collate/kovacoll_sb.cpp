// The comparers of single-byte locales with expansions only, with collating elements only, and
// with neither. They work on the bytes themselves. Each stands beside a form on the derived pages,
// taken where both give the same results.
#include "collate/kovacoll_text.h"

namespace {

struct sb_weights { // of a pass, by byte
    const uint16_t *p;
    uint16_t room[256];
};

struct exp_state {
    const ko_mchar_t *s;
    ko_mchar_t buffer[8]; // what an expansion still delivers, up to a 0
    unsigned at;
};

} // namespace

static int code_order(const ko_mchar_t *a, const ko_mchar_t *b) {
    while (*a && *a == *b)
        ++a, ++b;
    return *a < *b ? -1 : *a > *b;
}

static void pass_weights(const kovaloc *loc, int pass, sb_weights *weights) {
    weights->p = weights->room;
    if (loc->weights) {
        weights->p = loc->weights->pass[pass].byte_weights;
        return;
    }
    for (unsigned c = 0; c < 256; ++c) {
        const uint16_t row = coll_byte_row(loc->coll, static_cast<uint8_t>(c));
        weights->room[c] = loc->coll_info.pass_arr[pass][row];
    }
}

static int low_order(unsigned w1, unsigned w2) {
    const unsigned x = w1 & coll_low_bits, y = w2 & coll_low_bits;
    return x < y ? -1 : x > y;
}

// ---- Expansions ----

static ko_mchar_t next_char_sb_exp(coll_exp *const *direct, exp_state *state) {
    for (;;) {
        if (const ko_mchar_t c = state->buffer[state->at]) {
            ++state->at;
            return c;
        }
        const ko_mchar_t c = *state->s;
        if (!c) return 0;
        ++state->s;
        const coll_exp *exp = direct ? direct[c] : nullptr;
        if (!exp) return c;
        const unsigned n = exp->nchars < 7 ? exp->nchars : 7;
        for (unsigned i = 0; i < n; ++i)
            state->buffer[i] = static_cast<ko_mchar_t>(exp->exp_data[i] & 0xFF);
        state->buffer[n] = 0;
        state->at = 0;
    }
}

static int collate_sb_exp(const uint16_t *weights, coll_exp *const *direct, const ko_mchar_t *a,
                          const ko_mchar_t *b) {
    exp_state sa = {.s = a}, sb = {.s = b};
    for (;;) {
        ko_mchar_t c1, c2;
        do
            c1 = next_char_sb_exp(direct, &sa);
        while (c1 && weights[c1] == coll_ignored_weight);
        do
            c2 = next_char_sb_exp(direct, &sb);
        while (c2 && weights[c2] == coll_ignored_weight);
        if (!c1 || !c2) return c1 ? 1 : c2 ? -1 : 0;
        if (const int order = low_order(weights[c1], weights[c2])) return order;
        if ((weights[c1] & coll_code_tie) && c1 != c2) return c1 < c2 ? -1 : 1;
    }
}

// ---- Elements ----

static const coll_elem *true_elem(const coll_data *coll, const ko_mchar_t *s) {
    for (int i = 0; i < coll->num_coll_elems; ++i) {
        const coll_elem *elem = &coll->elem_arr[i];
        unsigned n = 0;
        while (n < elem->nchars && s[n] && elem->elem_data[n] == s[n])
            ++n;
        if (n && n == elem->nchars) return elem;
    }
    return nullptr;
}

// The weight of the next byte or element that the pass does not ignore, and its first byte in *c:
// 0 at the end.
static unsigned next_row_sb_elem(const coll_data *coll, int pass, const uint16_t *weights,
                                 const ko_mchar_t **s, ko_mchar_t *c) {
    while ((*c = **s) != 0) {
        const coll_elem *elem =
            coll->elem_candidate && coll->elem_candidate[*c] ? true_elem(coll, *s) : nullptr;
        const unsigned weight = elem ? coll->pass_arr[pass][elem->row] : weights[*c];
        *s += elem ? elem->nchars : 1;
        if (weight != coll_ignored_weight) return weight;
    }
    return 0;
}

static int collate_sb_elem(const coll_data *coll, int pass, const uint16_t *weights,
                           const ko_mchar_t *a, const ko_mchar_t *b) {
    for (;;) {
        ko_mchar_t c1, c2;
        const unsigned w1 = next_row_sb_elem(coll, pass, weights, &a, &c1);
        const unsigned w2 = next_row_sb_elem(coll, pass, weights, &b, &c2);
        if (!c1 || !c2) return c1 ? 1 : c2 ? -1 : 0;
        if (const int order = low_order(w1, w2)) return order;
        if ((w1 & coll_code_tie) && c1 != c2) return c1 < c2 ? -1 : 1;
    }
}

// ---- Neither ----

// The tie-break looks at the bytes behind the two just weighed, on purpose, and goes on where they
// are equal.
static int collate_sb_for(const uint16_t *weights, const ko_mchar_t *a, const ko_mchar_t *b) {
    for (;;) {
        while (*a && weights[*a] == coll_ignored_weight)
            ++a;
        while (*b && weights[*b] == coll_ignored_weight)
            ++b;
        if (!*a || !*b) return *a ? 1 : *b ? -1 : 0;
        const unsigned w1 = weights[*a++], w2 = weights[*b++];
        if (const int order = low_order(w1, w2)) return order;
        if ((w1 & coll_code_tie) && *a != *b) return *a < *b ? -1 : 1;
    }
}

struct back_state {
    const ko_mchar_t *s, *begin;
    bool ended;
};

// The weight of the byte at the position, which moves to the preceding one; -1 behind the first.
static int next_back(const uint16_t *weights, back_state *state) {
    while (!state->ended) {
        const unsigned weight = weights[*state->s];
        if (state->s == state->begin)
            state->ended = true;
        else
            --state->s;
        if (weight != coll_ignored_weight) return static_cast<int>(weight);
    }
    return -1;
}

// Starts at the terminator, on purpose: its weight counts like that of any other byte.
static int collate_sb_back(const uint16_t *weights, const ko_mchar_t *a, const ko_mchar_t *end_a,
                           const ko_mchar_t *b, const ko_mchar_t *end_b) {
    back_state sa = {end_a, a, false}, sb = {end_b, b, false};
    for (;;) {
        const int w1 = next_back(weights, &sa), w2 = next_back(weights, &sb);
        if (w1 < 0 || w2 < 0) return w1 >= 0 ? 1 : w2 >= 0 ? -1 : 0;
        const int order = low_order(static_cast<unsigned>(w1), static_cast<unsigned>(w2));
        if (order) return order;
        if ((static_cast<unsigned>(w1) & coll_code_tie) && *sa.s != *sb.s)
            return *sa.s < *sb.s ? -1 : 1;
    }
}

// ---- Entries ----

// True when the comparison is decided without weights, into *order.
static bool decided(ko_lc_t handle, const ko_mchar_t *a, const ko_mchar_t *b, int *order) {
    *order = 0;
    if (!handle || !a || !b) {
        set_error(handle, KO_ENULL);
        return true;
    }
    if (!by_code(record(handle))) return false;
    *order = code_order(a, b);
    return true;
}

static inline void skip_common(const ko_mchar_t *&a, const ko_mchar_t *&b) {
    while (*a && *a == *b)
        ++a, ++b;
}

// Pass by pass from where the strings part.
static int exp_passes(const kovaloc *loc, const ko_mchar_t *a, const ko_mchar_t *b) {
    const coll_data *coll = &loc->coll_info;
    int order = 0;
    for (int pass = 0; pass < coll->num_passes && !order; ++pass) {
        const coll_flat_pass *p = loc->weights ? &loc->weights->pass[pass] : nullptr;
        if (p && p->sb_specials) {
            order = compare_pass(p->page, p->sb_specials, byte_text{a}, byte_text{b});
            continue;
        }
        sb_weights weights;
        pass_weights(loc, pass, &weights);
        order = collate_sb_exp(weights.p, coll->exp_direct[pass], a, b);
    }
    return order;
}

int is_mbscoll_exp(ko_lc_t handle, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2) {
    if (!handle || !mbs1 || !mbs2) return fail(handle, KO_ENULL, 0);
    const kovaloc *loc = record(handle);
    const coll_flat *flat = loc->weights;
    if (!flat && by_code(loc)) return code_order(mbs1, mbs2);
    unsigned c1 = *mbs1, c2 = *mbs2;
    while (c1 == c2) {
        if (!c1) return 0;
        c1 = *++mbs1;
        c2 = *++mbs2;
    }
    if (flat) { // most pairs end here
        const unsigned w1 = flat->first_weights[c1], w2 = flat->first_weights[c2];
        if (w1 && w2 && w1 != w2) return w1 < w2 ? -1 : 1;
    }
    return exp_passes(loc, mbs1, mbs2);
}

int is_mbscoll_elem(ko_lc_t handle, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2) {
    int order;
    if (decided(handle, mbs1, mbs2, &order)) return order;
    const kovaloc *loc = record(handle);
    const coll_data *coll = &loc->coll_info;
    const coll_flat *flat = coll->num_expansions <= 0 ? loc->weights : nullptr;
    if (flat && !flat->byte_rows) flat = nullptr;
    if (flat) {
        const ko_mchar_t *begin = mbs1;
        skip_common(mbs1, mbs2);
        if (!*mbs1 && !*mbs2) return 0;
        while (mbs1 != begin && (flat->inner[0][*mbs1] || flat->inner[0][*mbs2]))
            --mbs1, --mbs2;
    }
    for (int pass = 0; pass < coll->num_passes && !order; ++pass) {
        // The pages break ties by a code of the element's own, not by its first byte.
        if (flat && !flat->pass[pass].ties) {
            const coll_flat_pass *p = &flat->pass[pass];
            order = compare_pass(p->page, p->specials, byte_text{mbs1}, byte_text{mbs2});
            continue;
        }
        sb_weights weights;
        pass_weights(loc, pass, &weights);
        order = collate_sb_elem(coll, pass, weights.p, mbs1, mbs2);
    }
    return order;
}

int is_mbscoll_back(ko_lc_t handle, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2) {
    int order;
    if (decided(handle, mbs1, mbs2, &order)) return order;
    const kovaloc *loc = record(handle);
    const coll_data *coll = &loc->coll_info;
    const ko_mchar_t *a = mbs1, *b = mbs2, *end1 = nullptr, *end2 = nullptr;
    skip_common(a, b);
    if (!*a && !*b) return 0;
    // A tie of the last common bytes is broken by the bytes behind them.
    if (a != mbs1) --a, --b;
    for (int pass = 0; pass < coll->num_passes && !order; ++pass) {
        sb_weights weights;
        pass_weights(loc, pass, &weights);
        if (coll->pass_type[pass] == coll_forward) {
            order = collate_sb_for(weights.p, a, b);
            continue;
        }
        if (!end1) {
            end1 = mbs1 + strlen(reinterpret_cast<const char *>(mbs1));
            end2 = mbs2 + strlen(reinterpret_cast<const char *>(mbs2));
        }
        order = collate_sb_back(weights.p, mbs1, end1, mbs2, end2);
    }
    return order;
}
