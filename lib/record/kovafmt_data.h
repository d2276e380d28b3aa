// Numeric and monetary conventions: the data of LC_NUMERIC, LC_MONETARY and LC_MESSAGES.
#ifndef KOVAFMT_DATA_H
#define KOVAFMT_DATA_H

#include "kova.h"

constexpr int group_max = 16; // the count and at most 15 sizes
constexpr int monetary_absent = 0x7FFFFFFF;

struct monum {
    ko_mchar_t *decimal_point;
    ko_wchar_t *w_decimal_point;
    ko_mchar_t *thousands_sep;
    ko_wchar_t *w_thousands_sep;
    int group_num[group_max]; // count, then sizes from the right
    ko_mchar_t *int_curr_symbol;
    ko_wchar_t *w_int_curr_symbol;
    ko_mchar_t *currency_symbol;
    ko_wchar_t *w_currency_symbol;
    ko_mchar_t *mon_decimal_point;
    ko_wchar_t *w_mon_decimal_point;
    ko_mchar_t *mon_thousands_sep;
    ko_wchar_t *w_mon_thousands_sep;
    int group_mon[group_max];
    ko_mchar_t *positive_sign;
    ko_wchar_t *w_positive_sign;
    ko_mchar_t *negative_sign;
    ko_wchar_t *w_negative_sign;
    ko_mchar_t *num_positive_sign;
    ko_wchar_t *w_num_positive_sign;
    ko_mchar_t *num_negative_sign;
    ko_wchar_t *w_num_negative_sign;
    int int_frac_digits; // monetary_absent: the locale does not say
    int frac_digits;
    int p_cs_precedes;
    int p_sep_by_space;
    int n_cs_precedes;
    int n_sep_by_space;
    int p_sign_posn;
    int n_sign_posn;
    ko_mchar_t *yesexpr;
    ko_wchar_t *w_yesexpr;
    ko_mchar_t *noexpr;
    ko_wchar_t *w_noexpr;
    ko_mchar_t *yesstr;
    ko_wchar_t *w_yesstr;
    ko_mchar_t *nostr;
    ko_wchar_t *w_nostr;
};

// Marks of LC_NUMERIC in a single-byte code set, prepared for the usual formats.
struct number_marks {
    ko_wchar_t decimal; // the decimal symbol, if it is one byte; else 0
    ko_wchar_t threes;  // the separator, if it is one byte and all groups have three digits; else 0
};

// What "%n" and "%i" write, prepared for amounts of either sign: the text before the digits and the
// text after them.
constexpr int money_text_room = 8;
struct money_form {
    ko_wchar_t before[money_text_room], after[money_text_room];
    int before_len, after_len;
};
struct money_forms {
    money_form form[2][2]; // national and international, positive and negative
    int ready[2];          // one more than the decimals, which are at most six; 0: not prepared
    ko_wchar_t radix;
    ko_wchar_t separator; // between groups of three; 0: no groups
};

// The strings of the record with their wide twins, the item under which queries ask for them, and
// the category to which each belongs.
constexpr unsigned no_item = ~0u;
struct monum_string {
    unsigned item;
    ko_mchar_t *monum::*mbs;
    ko_wchar_t *monum::*wcs;
    int category;
};
extern const monum_string monum_strings[14];
// The eight one-byte values of LC_MONETARY, in the order of the record.
extern int monum::*const monum_values[8];

#endif
