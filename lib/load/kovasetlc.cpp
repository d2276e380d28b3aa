// The locale record: creating it empty, freeing and copying its categories, and deriving the data
// that depend on several categories.
#include "chars/kovambwc.h"
#include "chars/kovaportable.h"
#include "collate/kovacoll.h"
#include "collate/kovacoll_flat.h"
#include "host/kovahost_map.h"
#include "load/kovasetlc_load.h"
#include "number/kovafmt.h"
#include "time/kovatmlib.h"

#include "kova_host.h"

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

const char *const category_markers[8] = {"",
                                         "",
                                         "### LC_CTYPE\n",
                                         "### LC_COLLATE\n",
                                         "### LC_NUMERIC\n",
                                         "### LC_MONETARY\n",
                                         "### LC_TIME\n",
                                         "### LC_MESSAGES\n"};
const char *const category_params[8] = {
    "", "", "KO_CTYPE", "KO_COLLATE", "KO_NUMERIC", "KO_MONETARY", "KO_TIME", "KO_MESSAGES"};

const monum_string monum_strings[14] = {
    {KO_RADIXCHAR, &monum::decimal_point,     &monum::w_decimal_point,     KO_LC_NUMERIC },
    {KO_THOUSEP,   &monum::thousands_sep,     &monum::w_thousands_sep,     KO_LC_NUMERIC },
    {no_item,      &monum::num_positive_sign, &monum::w_num_positive_sign, KO_LC_NUMERIC },
    {no_item,      &monum::num_negative_sign, &monum::w_num_negative_sign, KO_LC_NUMERIC },
    {no_item,      &monum::int_curr_symbol,   &monum::w_int_curr_symbol,   KO_LC_MONETARY},
    {KO_CRNCYSTR,  &monum::currency_symbol,   &monum::w_currency_symbol,   KO_LC_MONETARY},
    {no_item,      &monum::mon_decimal_point, &monum::w_mon_decimal_point, KO_LC_MONETARY},
    {no_item,      &monum::mon_thousands_sep, &monum::w_mon_thousands_sep, KO_LC_MONETARY},
    {no_item,      &monum::positive_sign,     &monum::w_positive_sign,     KO_LC_MONETARY},
    {no_item,      &monum::negative_sign,     &monum::w_negative_sign,     KO_LC_MONETARY},
    {KO_YESEXPR,   &monum::yesexpr,           &monum::w_yesexpr,           KO_LC_MESSAGES},
    {KO_NOEXPR,    &monum::noexpr,            &monum::w_noexpr,            KO_LC_MESSAGES},
    {KO_YESSTR,    &monum::yesstr,            &monum::w_yesstr,            KO_LC_MESSAGES},
    {KO_NOSTR,     &monum::nostr,             &monum::w_nostr,             KO_LC_MESSAGES},
};
int monum::*const monum_values[8] = {
    &monum::int_frac_digits, &monum::frac_digits,    &monum::p_cs_precedes, &monum::p_sep_by_space,
    &monum::n_cs_precedes,   &monum::n_sep_by_space, &monum::p_sign_posn,   &monum::n_sign_posn,
};

// Handed out when no record can be made. Only their error words are ever written, at each hand-out,
// because a host may have cleared them. Never freed.
static constinit kovaloc loc_nomem = {.exp = {.gen = {KO_ENOMEM}}};
static constinit kovaloc loc_filer = {.exp = {.gen = {KO_EFILE}}};

static int hand_out(kovaloc *error_record, int error, ko_lc_t *result) {
    store_word(error_record->exp.gen.ko_lerrno, error);
    *result = error_record;
    return fail(error_record, error, -1);
}

int hand_out_filer(ko_lc_t *result) { return hand_out(&loc_filer, KO_EFILE, result); }

bool is_error_record(const void *loc) { return loc == &loc_nomem || loc == &loc_filer; }

int ko_lc_status(ko_lc_t loc) {
    if (!loc) return KO_ENULL;
    if (loc == &loc_nomem) return KO_ENOMEM;
    return loc == &loc_filer ? KO_EFILE : record(loc)->status;
}

void init_koconv_t(koconv *conv) { *conv = {}; }

static void clear_names(kovaloc *loc, int category) {
    const int i = category - 2;
    memset(loc->codeset[i], 0, sizeof loc->codeset[i]);
    memset(loc->w_codeset[i], 0, sizeof loc->w_codeset[i]);
    memset(loc->locname[i], 0, sizeof loc->locname[i]);
    memset(loc->w_locname[i], 0, sizeof loc->w_locname[i]);
}

static bool is_present(const kovaloc *loc, int category) {
    return loc->codeset[category - 2][0] && loc->locname[category - 2][0];
}

// ---- Categories: what each owns, and its empty state --------------------------------------------

static void clear_ctype(kovaloc *loc) {
    loc->ctype = loc->cconv = nullptr;
    loc->num_user_bits = 0;
    loc->user_bits = nullptr;
    loc->cconv_arr = nullptr;
    loc->num_conv_elems = 0;
    loc->chars = nullptr;
    loc->ctype_hash = 0;
    loc->pairs.any = false;
}

static void clear_collate(kovaloc *loc) {
    loc->coll = nullptr;
    loc->coll_info = {};
    loc->weights = nullptr;
    loc->coll_hash = 0;
    loc->order_facts = {};
    loc->exp.coll_ignored = nullptr;
    loc->exp.coll_equiv_class_map = nullptr;
}

static void release_strings(kovaloc *loc, int category) {
    for (const monum_string &s : monum_strings) {
        if (s.category != category) continue;
        free_ptr(loc->monum_info.*s.mbs);
        free_ptr(loc->monum_info.*s.wcs);
    }
}

static void clear_strings(kovaloc *loc, int category) {
    for (const monum_string &s : monum_strings) {
        if (s.category != category) continue;
        loc->monum_info.*s.mbs = nullptr;
        loc->monum_info.*s.wcs = nullptr;
    }
}

static void release_numeric(kovaloc *loc) { release_strings(loc, KO_LC_NUMERIC); }
static void clear_numeric(kovaloc *loc) {
    clear_strings(loc, KO_LC_NUMERIC);
    memset(loc->monum_info.group_num, 0, sizeof loc->monum_info.group_num);
    loc->marks = {};
    loc->money = {};
}

static void release_monetary(kovaloc *loc) { release_strings(loc, KO_LC_MONETARY); }
static void clear_monetary(kovaloc *loc) {
    clear_strings(loc, KO_LC_MONETARY);
    memset(loc->monum_info.group_mon, 0, sizeof loc->monum_info.group_mon);
    for (int monum::*value : monum_values)
        loc->monum_info.*value = monetary_absent;
    loc->money = {};
}

static void release_time(kovaloc *loc) { free_ltime(&loc->ltime_info); }
static void clear_time(kovaloc *loc) { loc->ltime_info = {}; }

static void release_messages(kovaloc *loc) { release_strings(loc, KO_LC_MESSAGES); }
static void clear_messages(kovaloc *loc) { clear_strings(loc, KO_LC_MESSAGES); }

namespace {
struct category_life {
    void (*release)(kovaloc *loc); // frees what the record owns; fields keep their values
    void (*clear)(kovaloc *loc);   // the empty state
};
} // namespace
static constexpr category_life lives[8] = {
    {nullptr,          nullptr       },
    {nullptr,          nullptr       },
    {release_ctype,    clear_ctype   },
    {release_collate,  clear_collate },
    {release_numeric,  clear_numeric },
    {release_monetary, clear_monetary},
    {release_time,     clear_time    },
    {release_messages, clear_messages},
};

template <class T> static void drop(T *&block) {
    free_ptr(block);
    block = nullptr;
}

static void drop_byte_tables(kovaloc *loc) {
    drop(loc->exp.sb_toupper_table);
    drop(loc->exp.sb_tolower_table);
    drop(loc->exp.sb_ctype_table);
    drop(loc->exp.sb_collation_table);
}

void ko_free_category(ko_lc_t handle, int category) {
    if (!handle || !is_category(category)) return;
    kovaloc *loc = record(handle);
    if (!(loc->copied & category_bit(category))) lives[category].release(loc);
    lives[category].clear(loc);
    loc->copied &= ~category_bit(category);
    if (category == KO_LC_COLLATE) drop_byte_tables(loc);
    clear_names(loc, category);
}

static void *empty_table(void) {
    static constexpr uint16_t none = 0;
    return create_multi(sizeof none, 0, &none);
}

int ko_make_null_category(ko_lc_t handle, int category) {
    if (!handle) return fail(handle, KO_ENULL, -1);
    if (!is_category(category)) return fail(handle, KO_ERANGE, -1);
    kovaloc *loc = record(handle);
    clear_names(loc, category);
    // The strings of LC_MESSAGES are cleared only with the record or when they are freed; here the
    // category loses only its names.
    if (category == KO_LC_MESSAGES) return 0;
    lives[category].clear(loc);
    loc->copied &= ~category_bit(category);
    if (category == KO_LC_CTYPE) {
        loc->exp.case_conv_ratio = 1.0;
        loc->ctype = empty_table();
        loc->cconv = empty_table();
        if (!loc->ctype || !loc->cconv) return fail(handle, KO_ENOMEM, -1);
    } else if (category == KO_LC_COLLATE) {
        loc->exp.coll_char_ratio = 4.0;
        loc->coll = empty_table();
        if (!loc->coll) return fail(handle, KO_ENOMEM, -1);
    }
    return 0;
}

void reset_category(kovaloc *loc, int category) {
    const errno_guard kept(loc);
    ko_free_category(loc, category);
    ko_make_null_category(loc, category);
}

// ---- Records ------------------------------------------------------------------------------------

int ko_create_null_locale_2(ko_lc_t *result) {
    if (!result) return -1;
    kovaloc *loc = static_cast<kovaloc *>(ko_ext_malloc(sizeof(kovaloc)));
    if (!loc) return hand_out(&loc_nomem, KO_ENOMEM, result);
    memset(loc, 0, sizeof *loc);
    set_error(loc, KO_OK);
    *result = loc;
    int failed = 0;
    for (int c = KO_LC_CTYPE; c <= KO_LC_MESSAGES; c++)
        failed |= ko_make_null_category(loc, c);
    if (!failed) return 0;
    free_locale(loc);
    return hand_out(&loc_nomem, KO_ENOMEM, result);
}

// What belongs to no category, and the record itself.
static void free_rest(kovaloc *loc) {
    drop_byte_tables(loc);
    free_koconv(&loc->koconv_info);
    free_host_map(loc->map);
    free_ptr(loc->origin.root);
    ko_ext_free(loc);
}

static void tell_freeing(const kovaloc *loc) {
    char line[64];
    // Deliberately, two newlines reach the log: the blank lines make the dump of a run stand out.
    snprintf(line, sizeof line, "freeing locale 0x%" PRIxPTR "\n",
             reinterpret_cast<uintptr_t>(loc));
    ko_message(line);
}

void free_locale(kovaloc *loc) {
    if (is_logged()) tell_freeing(loc);
    for (int c = KO_LC_CTYPE; c <= KO_LC_MESSAGES; c++)
        ko_free_category(loc, c);
    free_rest(loc);
}

void ko_free_nonshared_loc(ko_lc_t handle) {
    if (!handle || is_error_record(handle)) return;
    kovaloc *loc = record(handle);
    if (give_back_node(loc) == node_in_use) return;
    // Copies made of a present category live on, but for the decoded eras, which no copy has;
    // nobody can have copied an absent one.
    for (int c = KO_LC_CTYPE; c <= KO_LC_MESSAGES; c++) {
        if (!is_present(loc, c)) ko_free_category(loc, c);
    }
    if (!(loc->copied & category_bit(KO_LC_TIME))) free_eras(&loc->ltime_info);
    free_rest(loc);
}

// ---- Copies -------------------------------------------------------------------------------------

// 0, or why the copy is refused.
static int invalid_copy(const kovaloc *dst, const kovaloc *src, int category) {
    if (!is_present(src, category)) return KO_ENOCAT;
    const int i = category - 2;
    return dst->codeset[i][0] || dst->locname[i][0] ? KO_EHASCAT : 0;
}

static void copy_monum(monum *dst, const monum *src, int category) {
    for (const monum_string &s : monum_strings) {
        if (s.category != category) continue;
        dst->*s.mbs = src->*s.mbs;
        dst->*s.wcs = src->*s.wcs;
    }
    if (category == KO_LC_NUMERIC) memcpy(dst->group_num, src->group_num, sizeof dst->group_num);
    if (category != KO_LC_MONETARY) return;
    memcpy(dst->group_mon, src->group_mon, sizeof dst->group_mon);
    for (int monum::*value : monum_values)
        dst->*value = src->*value;
}

static void copy_ctype(kovaloc *dst, const kovaloc *src) {
    dst->ctype = src->ctype;
    dst->num_user_bits = src->num_user_bits;
    dst->user_bits = src->user_bits;
    dst->cconv = src->cconv;
    dst->cconv_arr = src->cconv_arr;
    dst->num_conv_elems = src->num_conv_elems;
    dst->chars = src->chars;
    dst->exp.case_conv_ratio = src->exp.case_conv_ratio;
}

// Copies by reference, except for the lists that the source's head owns.
static void copy_category(kovaloc *dst, const kovaloc *src, int category) {
    ko_free_category(dst, category);
    if (category == KO_LC_CTYPE) {
        copy_ctype(dst, src);
    } else if (category == KO_LC_COLLATE) {
        dst->coll = src->coll;
        dst->coll_info = src->coll_info;
        dst->weights = src->weights;
        dst->order_facts = src->order_facts;
        dst->exp.coll_char_ratio = src->exp.coll_char_ratio;
    } else if (category == KO_LC_TIME) {
        dst->ltime_info = src->ltime_info;
        dst->ltime_info.era_count = 0; // the decoded eras stay the source's, and go with it
        dst->ltime_info.decode_era = nullptr;
    } else {
        copy_monum(&dst->monum_info, &src->monum_info, category);
    }
    dst->copied |= category_bit(category);
    memcpy(dst->codeset[category - 2], src->codeset[category - 2], codeset_room);
    memcpy(dst->locname[category - 2], src->locname[category - 2], locname_room);
}

int ko_copy_cat(ko_lc_t dst_handle, ko_lc_t src_handle, int category) {
    if (!dst_handle || !src_handle) return fail(dst_handle, KO_ENULL, -1);
    if (category != KO_LC_ALL && !is_category(category)) return fail(dst_handle, KO_ERANGE, -1);
    if (is_error_record(dst_handle)) return -1;
    kovaloc *dst = record(dst_handle), *src = record(src_handle);
    const bool all = category == KO_LC_ALL;
    const int first = all ? KO_LC_CTYPE : category, last = all ? KO_LC_MESSAGES : category;
    for (int c = first; c <= last; c++) {
        if (const int error = invalid_copy(dst, src, c)) return fail(dst_handle, error, -1);
    }
    if (src->status) note_trouble(dst, src->status);
    const memory_watch watch(dst);
    for (int c = first; c <= last; c++)
        copy_category(dst, src, c);
    update_locale(dst);
    widen_names(dst);
    if (has_characters(dst)) widen_koconv(dst);
    derive_money(dst);
    return 0;
}

// ---- Data that depend on several categories -----------------------------------------------------

// Fills in the class masks of all bytes directly from the table's items, even for a byte that is
// not a character; tables that the library writes have no such byte.
static void fill_class_masks(uint16_t *masks, const mb_decode *table) {
    for (unsigned b = 0; b < 256; b++)
        masks[b] = item16(node_item(table, table->root, b));
}

// An existing case table deliberately stays: it lives until LC_COLLATE is freed.
static void build_case_table(kovaloc *loc, unsigned char **table, case_pages ctype_flat::*pages,
                             ko_wchar_t (*convert)(const kovaloc *, ko_wchar_t)) {
    if (*table) return;
    unsigned char *bytes = static_cast<unsigned char *>(ko_ext_malloc(256));
    if (!bytes) return;
    *table = bytes;
    const ctype_flat *flat = flat_cases(loc);
    if (flat && flat->cases.min_char_len == 1) {
        const case_pages &from = flat->*pages;
        for (unsigned b = 0; b < 256; b++)
            bytes[b] = uint8_t(from.state1[b] == case_mapped ? from.partner1[b] : b);
        return;
    }
    for (int b = 0; b < 256; b++)
        bytes[b] = static_cast<unsigned char>(convert(loc, ko_wchar_t(b)));
}

static void update_byte_tables(kovaloc *loc) {
    if (!loc->exp.single_byte) return drop_byte_tables(loc);
    build_case_table(loc, &loc->exp.sb_toupper_table, &ctype_flat::upper, upper_of);
    build_case_table(loc, &loc->exp.sb_tolower_table, &ctype_flat::lower, lower_of);
    derive_case_rows(loc->exp.sb_toupper_table, &loc->upper_rows);
    derive_case_rows(loc->exp.sb_tolower_table, &loc->lower_rows);
    if (!loc->exp.sb_ctype_table) {
        loc->exp.sb_ctype_table = static_cast<uint16_t *>(ko_ext_malloc(256 * sizeof(uint16_t)));
    }
    if (!loc->exp.sb_ctype_table) return;
    fill_class_masks(loc->exp.sb_ctype_table, static_cast<const mb_decode *>(loc->ctype));
}

using comparer = int (*)(ko_lc_t, const ko_mchar_t *, const ko_mchar_t *);

static comparer choose_comparer(const kovaloc *loc) {
    const coll_data *c = &loc->coll_info;
    if (c->collate == collate_thai) return thaismocoll;
    if (!loc->exp.single_byte) return im_mbscoll;
    bool backward = false;
    for (int p = 0; p < c->num_passes; p++)
        backward |= c->pass_type[p] == coll_backward;
    const bool elements = c->num_coll_elems > 0, expansions = c->num_expansions > 0;
    if (elements + expansions + backward > 1) return im_mbscoll;
    if (expansions) return is_mbscoll_exp;
    return elements ? is_mbscoll_elem : is_mbscoll_back;
}

// This is only a warning: a record that mixes code sets stays usable.
static void compare_codesets(kovaloc *loc) {
    const char *ctype = loc->codeset[KO_LC_CTYPE - 2];
    for (int c = KO_LC_COLLATE; c <= KO_LC_TIME; c++) {
        if (strcmp(ctype, loc->codeset[c - 2])) return set_error(loc, KO_ECODESET);
    }
}

static void derive_chars(kovaloc *loc) {
    const unsigned failures = failed_allocations();
    loc->chars = build_ctype_flat(loc);
    if (failed_allocations() != failures)
        loc->ctype_hash = 0; // others shall not lack what it lacks
    offer_ctype(loc);
}

static void derive_weights(kovaloc *loc) {
    loc->weights = build_coll_flat(loc);
    offer_collation(loc);
}

void update_locale(kovaloc *loc) {
    free_koconv(&loc->koconv_info);
    fill_koconv(loc);
    loc->exp.single_byte = loc->ctype && multi_max_length(loc->ctype) == 1;
    loc->exp.codeset_order = loc->coll_info.codeset_order_flg != 0;
    const bool own_chars = !(loc->copied & category_bit(KO_LC_CTYPE));
    if (!loc->chars && own_chars) derive_chars(loc);
    const bool own_weights = !(loc->copied & category_bit(KO_LC_COLLATE));
    if (!loc->weights && own_weights) derive_weights(loc);
    derive_pairs(loc->ctype, &loc->pairs);
    update_byte_tables(loc);
    loc->portable = portable_of(loc);
    derive_marks(loc);
    loc->exp.mbstowcs = loc->exp.single_byte ? is_mbstowcs : im_mbstowcs;
    loc->exp.mbsxfrm = loc->coll_info.collate == collate_thai ? thaismoxfrm : ko_full_mbsxfrm;
    loc->exp.mbscoll = choose_comparer(loc);
    compare_codesets(loc);
}
