// Money: prepares what "%n" and "%i" write.
#include "number/kovamnlib_usual.h"
#include "number/kovamnlib.h"

// Adds a text to that before the digits or after them; false if there is no room for it.
static bool add_text(ko_wchar_t (&text)[money_text_room], int *len, const wide_symbol &s) {
    if (s.len > money_text_room - *len) return false;
    for (int i = 0; i < s.len; ++i)
        text[(*len)++] = s.units[i];
    return true;
}

// False for what is left to the engine.
static bool lay_out(kovaloc *loc, bool international, bool negative, money_form *form) {
    const mon_directive d = {.symbol = true, .international = international};
    const mon_positions positions = mon_working_positions(&loc->monum_info);
    wide_symbol symbol, sign = {};
    if (!mon_symbol(loc, d, &symbol) || (negative && !mon_sign(loc, true, &sign))) return false;
    const char *piece = mon_mask(positions.side[negative]);
    if (!*piece) return false;
    *form = {};
    bool after = false, fits = true;
    for (; *piece && fits; ++piece) {
        auto &text = after ? form->after : form->before;
        int *const len = after ? &form->after_len : &form->before_len;
        const ko_wchar_t unit = *piece == '_' ? ko_wchar_t{' '} : ko_wchar_t(*piece);
        if (*piece == 'V')
            after = true;
        else if (*piece == '$' || *piece == 'S')
            fits = add_text(text, len, *piece == '$' ? symbol : sign);
        else
            fits = add_text(text, len, {&unit, 1});
    }
    return fits;
}

void derive_money(kovaloc *loc) {
    const errno_guard kept(loc);
    const monum *const m = &loc->monum_info;
    money_forms *const money = &loc->money;
    wide_symbol radix, separator;
    ko_wchar_t dot;
    money->ready[0] = money->ready[1] = 0;
    if (loc->portable || !mon_radix(loc, &dot, &radix) || !mon_separator(loc, &separator)) return;
    if (radix.len != 1 || separator.len > 1) return;
    const bool grouped = separator.len && m->group_mon[0] > 0;
    if (grouped && !groups_by_three(m->group_mon)) return;
    money->radix = radix.units[0];
    money->separator = grouped ? separator.units[0] : ko_wchar_t{0};
    for (const bool international : {false, true}) {
        const int right = right_precision(m, -1, international);
        money_form *const form = money->form[international];
        const bool known =
            lay_out(loc, international, false, form) && lay_out(loc, international, true, form + 1);
        if (known && right <= decimals) money->ready[international] = right + 1;
    }
}
