// Money: what formatting and parsing of amounts share.
#ifndef KOVAMNLIB_H
#define KOVAMNLIB_H

#include "kovalibn.h"

// Where the symbol and the sign of an amount stand, as in the record.
struct mon_side {
    int cs_precedes;
    int sign_posn;
    int sep_by_space;
};
// The working conventions of one call, of positive and of negative amounts. Flags of a directive
// change them for the rest of the call, on purpose.
struct mon_positions {
    mon_side side[2];
};

// What a directive says.
struct mon_directive {
    ko_wchar_t fill;
    bool grouping;
    bool symbol;
    bool plus; // show the positive sign
    bool left; // padded behind, to the field width
    bool international;
    int width;           // 0: none; saturates
    int left_precision;  // 0: none; saturates
    int right_precision; // -1: the locale's; saturates
};

// The layout of an amount, a string of these pieces in their order; empty where the conventions
// choose none:
//   ( )  the parentheses     $  the currency symbol     S  the sign
//   V    the value           _  a separating space
const char *mon_mask(const mon_side &side);

mon_positions mon_working_positions(const monum *m);
// Reads the directive behind a "%" and moves *format behind it. False at a conversion other than
// "i" and "n"; an end of the format is one.
bool scan_mon_directive(const kovaloc *loc, const ko_wchar_t **format, mon_positions *positions,
                        mon_directive *d);
inline bool is_percent(const kovaloc *loc, ko_wchar_t wc) { return portable(loc, wc) == '%'; }

// A string of the record in its wide form, empty where the record lacks it. False, with KO_EILSEQ,
// when it is no text of the code set.
bool mon_text(kovaloc *loc, const ko_wchar_t *wide, const ko_mchar_t *mbs, wide_symbol *s);
bool mon_symbol(kovaloc *loc, const mon_directive &d, wide_symbol *s); // empty with "!"
bool mon_sign(kovaloc *loc, bool negative, wide_symbol *s);
// What stands between groups: deliberately the separator of numbers, not that of money.
bool mon_separator(kovaloc *loc, wide_symbol *s);
// The decimal symbol; "." in *dot where the record has none.
bool mon_radix(kovaloc *loc, ko_wchar_t *dot, wide_symbol *s);

// Reads an amount laid out by a mask. Returns its units; or -1 where the text is laid out
// otherwise.
int mon_maskmatch(kovaloc *loc, const ko_wchar_t *text, const char *mask, const wide_symbol &symbol,
                  const wide_symbol &sign, const mon_directive &d, double *value);

// Size of the next group from the right, at 0 first; 0: the rest is not grouped. The last size
// repeats.
inline int next_mon_group(const int *group, int *at) {
    if (*at < group[0]) ++*at;
    return *at && group[*at] > 0 ? group[*at] : 0;
}

#endif
