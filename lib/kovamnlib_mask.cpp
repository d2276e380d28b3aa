// Money: the conventions of the record, and how a directive names and changes them.
#include "kovamnlib.h"

// By sign_posn and sep_by_space; the symbol first, and last. Some rows with a sep_by_space of 2
// equal those with 0, on purpose.
static constexpr char layouts[5][3][2][6] = {
    {{"($V)", "(V$)"}, {"($_V)", "(V_$)"}, {"($V)", "(V$)"}},
    {{"S$V", "SV$"},   {"S$_V", "SV_$"},   {"S_$V", "SV$"} },
    {{"$VS", "V$S"},   {"$_VS", "V_$S"},   {"$VS", "V$_S"} },
    {{"S$V", "VS$"},   {"S$_V", "V_S$"},   {"S_$V", "VS_$"}},
    {{"$SV", "V$S"},   {"$S_V", "V_$S"},   {"$_SV", "V$_S"}},
};

const char *mon_mask(const mon_side &side) {
    const bool known = side.sign_posn >= 0 && side.sign_posn <= 4 && side.sep_by_space >= 0 &&
                       side.sep_by_space <= 2 && (side.cs_precedes == 0 || side.cs_precedes == 1);
    return known ? layouts[side.sign_posn][side.sep_by_space][1 - side.cs_precedes] : "";
}

mon_positions mon_working_positions(const monum *m) {
    return {
        {{m->p_cs_precedes, m->p_sign_posn, m->p_sep_by_space},
         {m->n_cs_precedes, m->n_sign_posn, m->n_sep_by_space}}
    };
}

// ---- Directives ---------------------------------------------------------------------------------

// Flags and conversions are known by the low byte of their unit alone, on purpose.
static unsigned low_byte(const kovaloc *loc, ko_wchar_t wc) { return portable(loc, wc & 0xFFu); }

// False where the unit at *format is no flag.
static bool take_flag(const kovaloc *loc, const ko_wchar_t **format, mon_positions *positions,
                      mon_directive *d) {
    mon_side *const positive = &positions->side[0], *const negative = &positions->side[1];
    switch (low_byte(loc, **format)) {
    case '!':
        d->symbol = false;
        break;
    case '(':
        negative->sign_posn = 0;
        break;
    case '+':
        d->plus = true;
        if (positive->sign_posn == 0) positive->sign_posn = 1;
        if (negative->sign_posn == 0) negative->sign_posn = 1;
        break;
    case '-':
        d->left = true;
        break;
    case '^':
        d->grouping = false;
        break;
    case '=':
        if (!(*format)[1]) return false; // an "=" that ends the format is no conversion either
        d->fill = *++*format;
        break;
    default:
        return false;
    }
    ++*format;
    return true;
}

static int take_number(const kovaloc *loc, const ko_wchar_t **format) {
    int number = 0;
    for (unsigned digit; (digit = portable(loc, **format) - '0') < 10; ++*format) {
        number = number > (INT32_MAX - 9) / 10 ? INT32_MAX : number * 10 + static_cast<int>(digit);
    }
    return number;
}

bool scan_mon_directive(const kovaloc *loc, const ko_wchar_t **format, mon_positions *positions,
                        mon_directive *d) {
    *d = {.fill = native(loc, ' '), .grouping = true, .symbol = true, .right_precision = -1};
    while (take_flag(loc, format, positions, d)) {
    }
    d->width = take_number(loc, format);
    if (portable(loc, **format) == '#') {
        ++*format;
        d->left_precision = take_number(loc, format);
    }
    if (portable(loc, **format) == '.') {
        ++*format;
        d->right_precision = take_number(loc, format);
    }
    const unsigned conversion = low_byte(loc, **format);
    d->international = conversion == 'i';
    if (conversion != 'i' && conversion != 'n') return false;
    ++*format;
    return true;
}

// ---- Strings of the record ----------------------------------------------------------------------

bool mon_text(kovaloc *loc, const ko_wchar_t *wide, const ko_mchar_t *mbs, wide_symbol *s) {
    *s = {wide, 0};
    if (!wide) return !mbs || fail(loc, KO_EILSEQ, false);
    while (wide[s->len])
        ++s->len;
    return true;
}

bool mon_symbol(kovaloc *loc, const mon_directive &d, wide_symbol *s) {
    *s = {};
    if (!d.symbol) return true;
    const monum *m = &loc->monum_info;
    return d.international ? mon_text(loc, m->w_int_curr_symbol, m->int_curr_symbol, s)
                           : mon_text(loc, m->w_currency_symbol, m->currency_symbol, s);
}

bool mon_sign(kovaloc *loc, bool negative, wide_symbol *s) {
    const monum *m = &loc->monum_info;
    return negative ? mon_text(loc, m->w_negative_sign, m->negative_sign, s)
                    : mon_text(loc, m->w_positive_sign, m->positive_sign, s);
}

bool mon_separator(kovaloc *loc, wide_symbol *s) {
    const monum *m = &loc->monum_info;
    return mon_text(loc, m->w_thousands_sep, m->thousands_sep, s);
}

bool mon_radix(kovaloc *loc, ko_wchar_t *dot, wide_symbol *s) {
    const monum *m = &loc->monum_info;
    if (m->mon_decimal_point) return mon_text(loc, m->w_mon_decimal_point, m->mon_decimal_point, s);
    *dot = native(loc, '.');
    *s = {dot, 1};
    return true;
}
