// Derives data from the strings of a loaded record: their wide forms, and the conventions in the
// layout of lconv.
#include "chars/kovambwc.h"
#include "load/kovasetlc_load.h"
#include "number/kovafmt.h"
#include "time/kovatmlib.h"

#include <string.h>

constexpr size_t string_end = 4; // zero bytes after every string of a locale object
constexpr char not_available = 127;

// ---- The lconv view ----

namespace {
struct koconv_string {
    char *koconv::*mbs;
    ko_wchar_t *koconv::*wcs;
    ko_mchar_t *monum::*source; // NULL for a grouping
};
} // namespace
static constexpr koconv_string koconv_strings[] = {
    {&koconv::decimal_point,     &koconv::w_decimal_point,     &monum::decimal_point    },
    {&koconv::thousands_sep,     &koconv::w_thousands_sep,     &monum::thousands_sep    },
    {&koconv::grouping,          &koconv::w_grouping,          nullptr                  },
    {&koconv::int_curr_symbol,   &koconv::w_int_curr_symbol,   &monum::int_curr_symbol  },
    {&koconv::currency_symbol,   &koconv::w_currency_symbol,   &monum::currency_symbol  },
    {&koconv::mon_decimal_point, &koconv::w_mon_decimal_point, &monum::mon_decimal_point},
    {&koconv::mon_thousands_sep, &koconv::w_mon_thousands_sep, &monum::mon_thousands_sep},
    {&koconv::mon_grouping,      &koconv::w_mon_grouping,      nullptr                  },
    {&koconv::positive_sign,     &koconv::w_positive_sign,     &monum::positive_sign    },
    {&koconv::negative_sign,     &koconv::w_negative_sign,     &monum::negative_sign    },
};
static constexpr char koconv::*koconv_values[8] = {
    &koconv::int_frac_digits, &koconv::frac_digits,   &koconv::p_cs_precedes,
    &koconv::p_sep_by_space,  &koconv::n_cs_precedes, &koconv::n_sep_by_space,
    &koconv::p_sign_posn,     &koconv::n_sign_posn,
};

static char one_byte(int value) {
    return value < 0 || value >= not_available ? not_available : char(value);
}

static char *copy_bytes(const ko_mchar_t *string) {
    const size_t size = zeros_at(string) + string_end;
    char *copy = static_cast<char *>(ko_ext_malloc(size));
    if (copy) memcpy(copy, string, size);
    return copy;
}

static char *grouping_bytes(const int *group) {
    const size_t n = size_t(group[0]);
    char *bytes = static_cast<char *>(ko_ext_malloc(n + string_end));
    if (!bytes) return nullptr;
    for (size_t i = 0; i < n; i++)
        bytes[i] = one_byte(group[i + 1]);
    memset(bytes + n, 0, string_end);
    return bytes;
}

void fill_koconv(kovaloc *loc) {
    koconv *conv = &loc->koconv_info;
    const monum *m = &loc->monum_info;
    for (const koconv_string &s : koconv_strings) {
        if (!s.source) {
            const bool monetary = s.mbs == &koconv::mon_grouping;
            conv->*s.mbs = grouping_bytes(monetary ? m->group_mon : m->group_num);
        } else if (m->*s.source) {
            conv->*s.mbs = copy_bytes(m->*s.source);
        } else {
            continue;
        }
        if (!(conv->*s.mbs)) set_error(loc, KO_ENOMEM);
    }
    for (int i = 0; i < 8; i++)
        conv->*koconv_values[i] = one_byte(m->*monum_values[i]);
}

void free_koconv(koconv *conv) {
    for (const koconv_string &s : koconv_strings) {
        free_ptr(conv->*s.mbs);
        free_ptr(conv->*s.wcs);
    }
    init_koconv_t(conv);
}

// Sizes are numbers, not text: in the code set, a size might not be a character.
static ko_wchar_t *widen_bytes(const char *bytes) {
    const size_t n = strlen(bytes) + 1;
    ko_wchar_t *wide = static_cast<ko_wchar_t *>(ko_ext_malloc(n * sizeof(ko_wchar_t)));
    for (size_t i = 0; wide && i < n; i++)
        wide[i] = uint8_t(bytes[i]);
    return wide;
}

void widen_koconv(kovaloc *loc) {
    koconv *conv = &loc->koconv_info;
    for (const koconv_string &s : koconv_strings) {
        free_ptr(conv->*s.wcs);
        conv->*s.wcs = nullptr;
        if (!(conv->*s.mbs)) continue;
        if (!s.source) {
            conv->*s.wcs = widen_bytes(conv->*s.mbs);
            if (!(conv->*s.wcs)) set_error(loc, KO_ENOMEM);
        } else {
            alloc_wc_from_mb(loc, reinterpret_cast<const ko_mchar_t *>(conv->*s.mbs),
                             &(conv->*s.wcs));
        }
    }
}

// ---- Names and strings ----

template <size_t room> static void widen_name(ko_wchar_t (&wide)[room], const char (&name)[room]) {
    for (size_t i = 0; i < room; i++)
        wide[i] = uint8_t(name[i]);
}

void widen_names(kovaloc *loc) {
    for (int i = 0; i < 6; i++) {
        widen_name(loc->w_codeset[i], loc->codeset[i]);
        widen_name(loc->w_locname[i], loc->locname[i]);
    }
}

// 1, or 0 if the record has no code set by which to widen. A string that is not valid text stays
// absent and leaves its error in the record.
static int init_monum_info(kovaloc *loc) {
    monum *m = &loc->monum_info;
    const bool widen = has_characters(loc);
    for (const monum_string &s : monum_strings) {
        if (loc->copied & category_bit(s.category)) continue; // copied with its wide forms
        free_ptr(m->*s.wcs);
        m->*s.wcs = nullptr;
        if (widen) alloc_wc_from_mb(loc, m->*s.mbs, &(m->*s.wcs));
    }
    derive_money(loc);
    return widen;
}

static int init_time_info(kovaloc *loc) {
    if (loc->copied & category_bit(KO_LC_TIME)) return has_characters(loc);
    if (derive_ltime(loc) < 0) return -1;
    return has_characters(loc);
}

int init_locale_info(kovaloc *loc) {
    widen_names(loc);
    const int time_result = init_time_info(loc), monum_result = init_monum_info(loc);
    if (time_result <= 0) {
        ko_message("Failed to initialize time information\n");
        return time_result;
    }
    if (!monum_result) {
        ko_message("Failed to initialize monum information\n");
        return 0;
    }
    widen_koconv(loc);
    return 1;
}
