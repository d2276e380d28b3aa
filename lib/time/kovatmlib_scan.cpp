// The scanner of the directives of times.
#include "time/kovatmlib_table.h"

// The digit after "F" is its precision. Above 5 it is refused: the sixth place is the default.
static int scan_fraction(const kovaloc *loc, const ko_wchar_t **format, time_spec *spec) {
    const unsigned digit = portable(loc, **format) - '0';
    if (digit > 9) return 0;
    ++*format;
    if (digit > 5) {
        spec->bad_fraction = true;
        return KO_EDIRECTIVE;
    }
    const int digits = int(digit);
    spec->fraction_digits = spec->m.precision = digits;
    if (spec->m.width < digits) spec->m.width = digits;
    return 0;
}

// The letter after "E", "O" or "i".
static int scan_form(const kovaloc *loc, char prefix, const ko_wchar_t **format, time_spec *spec) {
    const bool alternative = prefix == 'O';
    if ((prefix == 'E' && !has_eras(&loc->ltime_info)) ||
        (alternative && !has_alt_digits(&loc->ltime_info))) {
        return KO_EDIRECTIVE;
    }
    if (!**format) return KO_EFORMAT;
    const time_rows &rows = prefix == 'E'   ? era_by_letter
                            : prefix == 'O' ? time_by_letter
                                            : index_by_letter;
    spec->row = find_directive(rows, portable(loc, *(*format)++));
    spec->alternative = alternative;
    spec->pointed = prefix == 'i';
    return spec->row && (!alternative || spec->row->alternative) ? 0 : KO_EDIRECTIVE;
}

int scan_directive(const kovaloc *loc, const ko_wchar_t **format, time_spec *spec) {
    *spec = {.fraction_digits = -1};
    int error = scan_format_modifiers(loc, format, &spec->m);
    if (error) return error;
    if (spec->m.width_star || spec->m.precision_star) return KO_EDIRECTIVE;
    unsigned letter = portable(loc, *(*format)++);
    if ((letter == 'E' && !has_eras(&loc->ltime_info)) ||
        (letter == 'O' && !has_alt_digits(&loc->ltime_info))) { // one such letter is skipped
        if (!**format) return KO_EFORMAT;
        letter = portable(loc, *(*format)++);
    }
    spec->row = find_directive(time_by_letter, letter);
    if (!spec->row) return KO_EDIRECTIVE;
    if (spec->row->kind == time_kind::forms) {
        error = scan_form(loc, spec->row->letter, format, spec);
        if (error) return error;
    }
    return spec->row->kind == time_kind::fraction ? scan_fraction(loc, format, spec) : 0;
}
