// The two-byte characters of a class table as a few boxes of first and second bytes, for comparison
// by vector instructions.
#include "chars/kovactype.h"

// The longest run of second bytes for each first byte of the class table; hi 0: none.
namespace {
struct trail_runs {
    unsigned lo[256], hi[256];
};
} // namespace

static void find_runs(const multi_arr *root, trail_runs *runs) {
    const unsigned char *known = nullptr; // the second bytes of known_lead; most leads share them
    unsigned known_lead = 0;
    for (unsigned lead = 0; lead < 256; ++lead) {
        runs->lo[lead] = runs->hi[lead] = 0;
        if (root->flag_arr[lead] != mb_prefix || !root->next_arr || !root->offset_arr) continue;
        const multi_arr *child = root->next_arr[root->offset_arr[lead]];
        if (!child || !child->flag_arr) continue;
        if (known && (known == child->flag_arr || !memcmp(known, child->flag_arr, 256))) {
            runs->lo[lead] = runs->lo[known_lead];
            runs->hi[lead] = runs->hi[known_lead];
            continue;
        }
        known = child->flag_arr;
        known_lead = lead;
        for (unsigned from = 1, to; from < 256; from = to + 1) {
            to = from;
            if (child->flag_arr[from] != mb_final) continue;
            while (to < 256 && child->flag_arr[to] == mb_final)
                ++to;
            if (to - from > runs->hi[lead] - runs->lo[lead] + (runs->hi[lead] > 0)) {
                runs->lo[lead] = from;
                runs->hi[lead] = to - 1;
            }
        }
    }
}

// Puts the box with the most characters into the tables and removes its first bytes from the runs.
// A box may leave out at most a tenth of its first bytes' characters. False if there is none.
static bool take_box(trail_runs *runs, unsigned char *box_lo, unsigned char *box_hi) {
    unsigned best = 0, best_from = 0, best_to = 0, best_lo = 255, best_hi = 0;
    for (unsigned from = 0, end = 0; from < 256; ++from) {
        // A box that begins here is smaller than the one that begins at an equal run before.
        if (from && runs->hi[from] == runs->hi[from - 1] && runs->lo[from] == runs->lo[from - 1])
            continue;
        while (end < 256 && (end < from || runs->hi[end]))
            ++end; // of the first bytes without a gap
        if (end <= from || (end - from) * (runs->hi[from] - runs->lo[from] + 1) <= best) continue;
        unsigned lo = 0, hi = 255, all = 0;
        for (unsigned to = from; to < 256 && runs->hi[to]; ++to) {
            if (lo < runs->lo[to]) lo = runs->lo[to];
            if (hi > runs->hi[to]) hi = runs->hi[to];
            if (hi < lo) break;
            all += runs->hi[to] - runs->lo[to] + 1;
            const unsigned size = (hi - lo + 1) * (to - from + 1);
            if (size <= best || size < all / 10 * 9) continue;
            best = size;
            best_from = from, best_to = to, best_lo = lo, best_hi = hi;
        }
    }
    if (!best) return false;
    for (unsigned i = 0; i < 16; ++i) {
        box_lo[i] = uint8_t(i % 2 ? best_lo : best_from);
        box_hi[i] = uint8_t(i % 2 ? best_hi : best_to);
    }
    for (unsigned lead = best_from; lead <= best_to; ++lead)
        runs->hi[lead] = 0;
    return true;
}

void derive_pairs(const void *ctype, coll_pairs *pairs) {
    *pairs = {};
    const mb_decode *chars = static_cast<const mb_decode *>(ctype);
    if (!chars || chars->min_char_len != 1 || chars->max_char_len != 2) return;
    if (!chars->root || !chars->root->flag_arr || chars->root->flag_arr[0] != mb_final) return;
    trail_runs runs;
    find_runs(chars->root, &runs);
    for (int box = 0; box < coll_boxes; ++box) {
        if (take_box(&runs, pairs->lo[box], pairs->hi[box])) continue;
        if (!box) return;
        memcpy(pairs->lo[box], pairs->lo[0], sizeof pairs->lo[0]);
        memcpy(pairs->hi[box], pairs->hi[0], sizeof pairs->hi[0]);
    }
    pairs->any = true;
}
