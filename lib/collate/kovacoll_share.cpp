// LC_COLLATE shared by records: finding equal data, offering and giving back.
#include "chars/kovactype.h"
#include "collate/kovacoll.h"
#include "collate/kovacoll_flat.h"

#include <string.h>

#include <utility>

// Newest first. Changed under the state lock.
static constinit coll_flat *offered = nullptr;

// The number of the class tables by which the lists and tables were made.
static uint64_t ctype_number(const kovaloc *loc) { return loc->chars ? loc->chars->number : 0; }

static size_t weight_bytes(const coll_data *coll) {
    return (size_t(coll->num_rows) + 1) * sizeof(uint16_t);
}

static uint64_t hash_of(const coll_data *coll) {
    uint64_t hash = uint64_t(coll->num_coll_elems) << 32 | unsigned(coll->num_expansions);
    for (int p = 0; p < coll->num_passes; ++p) {
        const void *const weights = coll->pass_arr[p];
        const auto *const bytes = static_cast<const unsigned char *>(weights);
        hash = hash * 31 + content_hash(bytes, weight_bytes(coll));
    }
    return hash ? hash : 1;
}

static bool same_chars(const ko_wchar_t *a, const ko_wchar_t *b, unsigned n) {
    return !memcmp(a, b, n * sizeof *a);
}

static bool same_elements(const coll_data *a, const coll_data *b) {
    if (a->num_coll_elems != b->num_coll_elems || a->num_expansions != b->num_expansions)
        return false;
    for (int i = 0; i < a->num_coll_elems; ++i) {
        const coll_elem &x = a->elem_arr[i], &y = b->elem_arr[i];
        if (x.nchars != y.nchars || x.row != y.row ||
            !same_chars(x.elem_data, y.elem_data, x.nchars))
            return false;
    }
    for (int i = 0; i < a->num_expansions; ++i) {
        const coll_exp &x = a->exp_arr[i], &y = b->exp_arr[i];
        if (x.nchars != y.nchars || !same_chars(x.exp_data, y.exp_data, x.nchars)) return false;
    }
    return true;
}

static bool same_weights(const coll_data *a, const coll_data *b) {
    if (a->num_passes != b->num_passes || a->num_rows != b->num_rows ||
        a->num_weights != b->num_weights || a->codeset_order_flg != b->codeset_order_flg)
        return false;
    for (int p = 0; p < a->num_passes; ++p)
        if (a->pass_type[p] != b->pass_type[p] ||
            memcmp(a->pass_arr[p], b->pass_arr[p], weight_bytes(a)) != 0)
            return false;
    return true;
}

static bool same_collation(const kovaloc *loc, const coll_flat *flat) {
    const coll_data *const own = &loc->coll_info, *const other = &flat->parts.info;
    return flat->ctype == ctype_number(loc) && same_weights(own, other) &&
           same_elements(own, other) &&
           same_table(static_cast<mb_decode *>(loc->coll),
                      static_cast<mb_decode *>(flat->parts.coll));
}

bool share_collation(kovaloc *loc) {
    loc->coll_hash = 0;
    if (!loc->ctype || multi_max_length(loc->ctype) < 2) return false;
    loc->coll_hash = hash_of(&loc->coll_info);
    coll_flat *const found = take_tables(&offered, loc->coll_hash, [loc](const coll_flat *flat) {
        return same_collation(loc, flat);
    });
    if (!found) return false;
    free_multi(loc->coll);
    free_coll_data(loc);
    loc->coll = found->parts.coll;
    loc->coll_info = found->parts.info;
    loc->exp.coll_ignored = found->parts.ignored;
    loc->exp.coll_equiv_class_map = found->parts.equivalents;
    loc->weights = found;
    return true;
}

void offer_collation(kovaloc *loc) {
    const uint64_t hash = std::exchange(loc->coll_hash, 0);
    if (!loc->weights || !hash || !ctype_number(loc)) return;
    loc->weights->parts = {loc->coll, loc->coll_info, loc->exp.coll_ignored,
                           loc->exp.coll_equiv_class_map};
    loc->weights->ctype = ctype_number(loc);
    offer_tables(state_lock(), &offered, loc->weights, hash);
}

void release_collate(kovaloc *loc) {
    if (loc->weights && !give_back_tables(&offered, loc->weights)) return;
    free_multi(loc->coll);
    free_coll_data(loc);
    free_coll_flat(loc->weights);
}
