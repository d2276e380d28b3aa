// Money: what formatting and parsing of amounts share.
#ifndef KOVAMNLIB_H
#define KOVAMNLIB_H

#include "number/kovalibn.h"

// Where the symbol and the sign of an amount stand, as in the record.
struct mon_side {
    int cs_precedes;
    int sign_posn;
    int sep_by_space;
};
// The conventions in effect during one call, for positive and negative amounts. Deliberately, the
// flags of a directive change them for the rest of the call.
struct mon_positions {
    mon_side side[2];
};

// A directive as read from the format.
struct mon_directive {
    ko_wchar_t fill;
    bool grouping;
    bool symbol;
    bool plus; // show the positive sign
    bool left; // padded at the end, to the field width
    bool international;
    int width;           // 0: none; saturates
    int left_precision;  // 0: none; saturates
    int right_precision; // -1: the locale's; saturates
};

// The layout of an amount is a string of these pieces in their order, empty where the conventions
// choose none:
//   ( )  the parentheses     $  the currency symbol     S  the sign
//   V    the value           _  a separating space
// By sign_posn, sep_by_space, and the symbol first or last. Some rows with a sep_by_space of 2
// deliberately equal those with 0.
inline constexpr char mon_layouts[5][3][2][6] = {
    {{"($V)", "(V$)"}, {"($_V)", "(V_$)"}, {"($V)", "(V$)"}},
    {{"S$V", "SV$"},   {"S$_V", "SV_$"},   {"S_$V", "SV$"} },
    {{"$VS", "V$S"},   {"$_VS", "V_$S"},   {"$VS", "V$_S"} },
    {{"S$V", "VS$"},   {"S$_V", "V_S$"},   {"S_$V", "VS_$"}},
    {{"$SV", "V$S"},   {"$S_V", "V_$S"},   {"$_SV", "V$_S"}},
};
inline const char *mon_mask(const mon_side &side) {
    const bool known = side.sign_posn >= 0 && side.sign_posn <= 4 && side.sep_by_space >= 0 &&
                       side.sep_by_space <= 2 && (side.cs_precedes == 0 || side.cs_precedes == 1);
    return known ? mon_layouts[side.sign_posn][side.sep_by_space][1 - side.cs_precedes] : "";
}

inline mon_positions mon_working_positions(const monum *m) {
    return {
        {{m->p_cs_precedes, m->p_sign_posn, m->p_sep_by_space},
         {m->n_cs_precedes, m->n_sign_posn, m->n_sep_by_space}}
    };
}
// Reads the directive after a "%" and moves *format past it. False for a conversion other than "i"
// and "n" and at the end of the format.
bool scan_mon_directive(const kovaloc *loc, const ko_wchar_t **format, mon_positions *positions,
                        mon_directive *d);
inline bool is_percent(const kovaloc *loc, ko_wchar_t wc) { return portable(loc, wc) == '%'; }

// ---- Strings of the record ----

// Gets a string in its wide form, empty if the record lacks it. False, with KO_EILSEQ, if it is not
// text in the code set.
inline bool mon_text(kovaloc *loc, const ko_wchar_t *wide, const ko_mchar_t *mbs, wide_symbol *s) {
    *s = {wide, 0};
    if (!wide) return !mbs || fail(loc, KO_EILSEQ, false);
    while (wide[s->len])
        ++s->len;
    return true;
}
inline bool mon_symbol(kovaloc *loc, const mon_directive &d, wide_symbol *s) { // empty with "!"
    *s = {};
    if (!d.symbol) return true;
    const monum *m = &loc->monum_info;
    return d.international ? mon_text(loc, m->w_int_curr_symbol, m->int_curr_symbol, s)
                           : mon_text(loc, m->w_currency_symbol, m->currency_symbol, s);
}
inline bool mon_sign(kovaloc *loc, bool negative, wide_symbol *s) {
    const monum *m = &loc->monum_info;
    return negative ? mon_text(loc, m->w_negative_sign, m->negative_sign, s)
                    : mon_text(loc, m->w_positive_sign, m->positive_sign, s);
}
// The separator between groups: deliberately that of numbers, not that of money.
inline bool mon_separator(kovaloc *loc, wide_symbol *s) {
    return mon_text(loc, loc->monum_info.w_thousands_sep, loc->monum_info.thousands_sep, s);
}
// The decimal symbol; "." in *dot if the record has none.
inline bool mon_radix(kovaloc *loc, ko_wchar_t *dot, wide_symbol *s) {
    const monum *m = &loc->monum_info;
    if (m->mon_decimal_point) return mon_text(loc, m->w_mon_decimal_point, m->mon_decimal_point, s);
    *dot = native(loc, '.');
    *s = {dot, 1};
    return true;
}

// ---- Layouts and groups ----

// The strings from which an amount is put together.
struct mon_strings {
    wide_symbol symbol, sign, separator, radix;
    ko_wchar_t dot;
};
// Reads an amount in the layout of a mask. Returns its units; or -1 if the text has another layout.
int mon_maskmatch(kovaloc *loc, const ko_wchar_t *text, const char *mask, const mon_strings &s,
                  const mon_directive &d, double *value);

// Size of the next group from the right; *at is 0 at first. 0: the rest is not grouped. The last
// size repeats.
inline int next_mon_group(const int *group, int *at) {
    if (*at < group[0]) ++*at;
    return *at && group[*at] > 0 ? group[*at] : 0;
}

#endif
