// LC_CTYPE shared by records: finding equal data, offering and giving back.
#include "chars/kovactype.h"

#include <string.h>

#include <utility>

// Changed under the state lock.
static constinit ctype_flat *offered = nullptr; // newest first
static constinit uint64_t numbers = 0;          // given to tables so far

static ctype_parts parts_of(const kovaloc *loc) {
    return {loc->ctype,     loc->cconv,          loc->cconv_arr,
            loc->user_bits, loc->num_conv_elems, loc->num_user_bits};
}

static size_t pair_bytes(const kovaloc *loc) {
    return (size_t(loc->num_conv_elems) + 1) * sizeof *loc->cconv_arr;
}

static uint64_t hash_of(const kovaloc *loc) {
    const void *pairs = loc->cconv_arr;
    const uint64_t hash = content_hash(static_cast<const unsigned char *>(pairs), pair_bytes(loc));
    return hash ? hash : 1;
}

static bool same_user_bits(const kovaloc *loc, const ctype_parts &parts) {
    if (loc->num_user_bits != parts.num_user_bits) return false;
    for (int i = 0; i < loc->num_user_bits; ++i) {
        const user_bit &own = loc->user_bits[i], &other = parts.user_bits[i];
        if (own.bitpos != other.bitpos || strcmp(own.name, other.name)) return false;
    }
    return true;
}

static bool same_ctype(const kovaloc *loc, const ctype_parts &parts) {
    return loc->num_conv_elems == parts.num_conv_elems &&
           !memcmp(loc->cconv_arr, parts.cconv_arr, pair_bytes(loc)) &&
           same_user_bits(loc, parts) &&
           same_table(static_cast<mb_decode *>(loc->ctype),
                      static_cast<mb_decode *>(parts.ctype)) &&
           same_table(static_cast<mb_decode *>(loc->cconv), static_cast<mb_decode *>(parts.cconv));
}

static void free_parts(const ctype_parts &parts) {
    free_multi(parts.ctype);
    free_multi(parts.cconv);
    for (int i = 0; parts.user_bits && i < parts.num_user_bits; ++i)
        free_ptr(parts.user_bits[i].name);
    free_ptr(parts.user_bits);
    free_ptr(parts.cconv_arr);
}

void share_ctype(kovaloc *loc) {
    loc->ctype_hash = 0;
    if (multi_max_length(loc->ctype) < 2 || !loc->cconv_arr) return;
    loc->ctype_hash = hash_of(loc);
    ctype_flat *const found = take_tables(&offered, loc->ctype_hash, [loc](const ctype_flat *flat) {
        return same_ctype(loc, flat->parts);
    });
    if (!found) return;
    free_parts(parts_of(loc));
    const ctype_parts &parts = found->parts;
    loc->ctype = parts.ctype;
    loc->cconv = parts.cconv;
    loc->cconv_arr = parts.cconv_arr;
    loc->user_bits = parts.user_bits;
    loc->num_conv_elems = parts.num_conv_elems;
    loc->num_user_bits = parts.num_user_bits;
    loc->chars = found;
}

void offer_ctype(kovaloc *loc) {
    const uint64_t hash = std::exchange(loc->ctype_hash, 0);
    if (!loc->chars || !hash) return;
    loc->chars->parts = parts_of(loc);
    const state_lock lock;
    loc->chars->number = ++numbers;
    offer_tables(lock, &offered, loc->chars, hash);
}

void release_ctype(kovaloc *loc) {
    if (loc->chars && !give_back_tables(&offered, loc->chars)) return;
    free_parts(parts_of(loc));
    free_ctype_flat(loc->chars);
}
