// The comparers of single-byte locales with only expansions, with only collating elements, and with
// neither. They work on the bytes themselves; the comparer for elements uses the derived pages
// where these give the same results.
#include "collate/kovacoll_block.h"
#include "collate/kovacoll_text.h"

// ---- Sources: what a text yields in a pass ----

namespace {

struct exp_source {
    const uint16_t *weights; // by byte
    coll_exp *const *direct;
    const ko_mchar_t *s;
    const ko_wchar_t *exp; // what an expansion still has to yield
    unsigned exp_left;
};

struct elem_source {
    const uint16_t *weights;
    const coll_data *coll;
    int pass;
    const ko_mchar_t *s;
};

struct byte_source {
    const uint16_t *weights;
    const ko_mchar_t *s;
};

struct back_source {
    const uint16_t *weights;
    const ko_mchar_t *s, *begin;
    bool ended;
};

} // namespace

static inline ko_mchar_t next_char_sb_exp(exp_source &t) {
    for (;;) {
        if (t.exp_left) {
            --t.exp_left;
            if (const auto c = ko_mchar_t(*t.exp++ & 0xFF)) return c;
            t.exp_left = 0;
        }
        const ko_mchar_t c = *t.s;
        if (!c) return 0;
        ++t.s;
        const coll_exp *exp = t.direct[c];
        if (!exp) return c;
        t.exp = exp->exp_data;
        t.exp_left = exp->nchars < 7 ? exp->nchars : 7;
    }
}

static inline coll_item next_sb_exp(exp_source &t) {
    for (;;) {
        const ko_mchar_t c = next_char_sb_exp(t);
        const uint16_t weight = t.weights[c];
        if (!c || weight != coll_ignored_weight) return {weight, c};
    }
}

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

// The next byte or element that the pass does not ignore. Ties are broken by its first byte.
static inline coll_item next_row_sb_elem(elem_source &t) {
    for (;;) {
        const ko_mchar_t c = *t.s;
        if (!c) return {0, 0};
        const int *candidate = t.coll->elem_candidate;
        const coll_elem *elem = candidate && candidate[c] ? true_elem(t.coll, t.s) : nullptr;
        const uint16_t weight = elem ? t.coll->pass_arr[t.pass][elem->row] : t.weights[c];
        t.s += elem ? elem->nchars : 1;
        if (weight != coll_ignored_weight) return {weight, c};
    }
}

// An item whose ties are broken, deliberately, by the byte at the place reached after it. 0x100
// distinguishes it from the end.
static inline coll_item byte_item(uint16_t weight, ko_mchar_t reached) {
    return {weight, ko_wchar_t(0x100 | reached)};
}

static inline coll_item next_forward(byte_source &t) {
    for (;;) {
        const ko_mchar_t c = *t.s;
        if (!c) return {0, 0};
        const uint16_t weight = t.weights[c];
        ++t.s;
        if (weight != coll_ignored_weight) return byte_item(weight, *t.s);
    }
}

// Walks backward. Deliberately begins with the terminator, whose weight counts like that of any
// other byte.
static inline coll_item next_back(back_source &t) {
    while (!t.ended) {
        const uint16_t weight = t.weights[*t.s ? *t.s : coll_end_byte];
        t.ended = t.s == t.begin;
        if (!t.ended) --t.s;
        if (weight != coll_ignored_weight) return byte_item(weight, *t.s);
    }
    return {0, 0};
}

// ---- Entries ----

// True if the comparison is decided without weights; *order gets the result.
static bool decided(ko_lc_t handle, const ko_mchar_t *a, const ko_mchar_t *b, int *order) {
    *order = 0;
    if (!handle || !a || !b) {
        set_error(handle, KO_ENULL);
        return true;
    }
    if (!by_code(record(handle))) return false;
    *order = code_order(byte_text{a}, byte_text{b});
    return true;
}

static inline void skip_common(const ko_mchar_t *&a, const ko_mchar_t *&b) {
    const size_t same = common_start(a, b);
    a += same;
    b += same;
}

// Compares pass by pass from where the strings part.
[[gnu::noinline]] static int exp_passes(const coll_data *coll, const ko_mchar_t *begin_a,
                                        const ko_mchar_t *begin_b) {
    int order = 0;
    for (int pass = 0; pass < coll->num_passes && !order; ++pass) {
        const uint16_t *const weights = coll->byte_weights[pass];
        byte_text a = {begin_a}, b = {begin_b};
        order = plain_order(a, b, [weights](ko_mchar_t c) { return weights[c]; });
        if (order) break;
        exp_source source_a = {weights, coll->exp_direct[pass], a.s, nullptr, 0};
        exp_source source_b = {weights, coll->exp_direct[pass], b.s, nullptr, 0};
        order = items_order<next_sb_exp>(source_a, source_b);
    }
    return order;
}

// The order from where two strings part.
static inline int exp_order(const kovaloc *loc, const ko_mchar_t *a, const ko_mchar_t *b) {
    if (const coll_flat *flat = loc->weights) { // decides most pairs
        const unsigned w1 = flat->first_weights[*a], w2 = flat->first_weights[*b];
        if (w1 && w2 && w1 != w2) return order_of(w1, w2);
    }
    return exp_passes(&loc->coll_info, a, b);
}

[[gnu::noinline]] static int exp_order_after_common(const kovaloc *loc, const ko_mchar_t *a,
                                                    const ko_mchar_t *b) {
    const size_t same = common_start(a, b);
    return a[same] == b[same] ? 0 : exp_order(loc, a + same, b + same);
}

int is_mbscoll_exp(ko_lc_t handle, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2) {
    if (!handle || !mbs1 || !mbs2) return fail(handle, KO_ENULL, 0);
    const kovaloc *loc = record(handle);
    if (!loc->weights && by_code(loc)) return code_order(byte_text{mbs1}, byte_text{mbs2});
    return *mbs1 == *mbs2 ? exp_order_after_common(loc, mbs1, mbs2) : exp_order(loc, mbs1, mbs2);
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
        // The pages break ties by the element's own code, not by its first byte; those of a pass
        // that is not forward are for a walk from the end.
        if (flat && flat->pass[pass].forward && !flat->pass[pass].ties) {
            order = pass_order(&flat->pass[pass], byte_text{mbs1}, byte_text{mbs2});
            continue;
        }
        elem_source a = {coll->byte_weights[pass], coll, pass, mbs1};
        elem_source b = {coll->byte_weights[pass], coll, pass, mbs2};
        order = items_order<next_row_sb_elem>(a, b);
    }
    return order;
}

static inline const ko_mchar_t *end_of(const ko_mchar_t *s) { return s + text_length(s); }

int is_mbscoll_back(ko_lc_t handle, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2) {
    int order;
    if (decided(handle, mbs1, mbs2, &order)) return order;
    const coll_data *coll = &record(handle)->coll_info;
    const ko_mchar_t *a = mbs1, *b = mbs2, *end1 = nullptr, *end2 = nullptr;
    skip_common(a, b);
    if (!*a && !*b) return 0;
    // A tie of the last common bytes is broken by the bytes after them.
    if (a != mbs1) --a, --b;
    for (int pass = 0; pass < coll->num_passes && !order; ++pass) {
        const uint16_t *const weights = coll->byte_weights[pass];
        if (coll->pass_type[pass] == coll_forward) {
            byte_source source_a = {weights, a}, source_b = {weights, b};
            order = items_order<next_forward>(source_a, source_b);
            continue;
        }
        if (!end1) end1 = end_of(mbs1), end2 = end_of(mbs2);
        back_source source_a = {weights, end1, mbs1, false},
                    source_b = {weights, end2, mbs2, false};
        order = items_order<next_back>(source_a, source_b);
    }
    return order;
}
