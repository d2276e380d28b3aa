// What the readers of integers and reals share: bounded texts of wide characters, or of bytes where
// a byte is a character, and the way from a multibyte text to one of them.
#ifndef KOVALIBN_TEXT_H
#define KOVALIBN_TEXT_H

#include "kovalibn.h"

#include <string.h>

template <class Unit> struct number_text {
    kovaloc *loc;
    const Unit *units;
    int most; // units that may be read, fewer where the text ends
};

// The portable value at a place, 0 at the end. Places behind the end are never asked for.
template <class Unit> inline unsigned at(const number_text<Unit> &t, int i) {
    return i < t.most ? portable(t.loc, t.units[i]) : 0;
}
template <class Unit> inline unsigned digit_at(const number_text<Unit> &t, int i) {
    const unsigned c = at(t, i);
    return c < 256 ? digit_values[c] : no_digit;
}
template <class Unit>
inline int symbol_len_at(const number_text<Unit> &t, int i, const wide_symbol &symbol) {
    return symbol_at(t.units + i, t.most - i, symbol) ? symbol.len : 0;
}

// Units of white space at the start.
template <class Unit> inline int white_len(const number_text<Unit> &t) {
    int i = 0;
    for (unsigned c; (c = at(t, i)) != 0 && c - '0' > 9; ++i) {
        const ko_wchar_t wc = t.units[i];
        if (!has_class(t.loc, wc, KO_CT_SPACE) && !is_white(static_cast<int>(c))) break;
    }
    return i;
}

inline bool is_sign(unsigned c) { return c == '-' || c == '+'; }
// Whether a character other than "-" and "+" is taken for a sign, so that no number is read.
template <class Unit> inline bool takes_for_sign(const number_text<Unit> &t, int i) {
    const unsigned c = at(t, i);
    return c && c - '0' > 9 && has_class(t.loc, t.units[i], KO_CT_PUNCT);
}

// Digits of the groups of a number, left to right, as they were met.
struct group_lengths {
    int separators = 0; // one less than the groups
    uint16_t len[number_room + 1];
};
// Compares with a grouping (a count and sizes from the right; NULL: none). -1 when a group has
// another size, else how many groups at the left are beyond what the grouping says.
int check_groups(const group_lengths &groups, const int *grouping);

// The grouping of a mode that is in force for reading.
inline const int *grouping_of(const kovaloc *loc, int mode, const wide_symbol &separator) {
    if (!separator.len) return nullptr;
    return mode == mode_money ? loc->monum_info.group_mon : loc->monum_info.group_num;
}

// Results of a reader that has no number to give.
template <class Value> struct number_failure {
    Value bad_text; // the multibyte text is none
    Value failed;
    bool end_at_start; // what *end becomes when reading fails; else it is left alone
};

// Stores the place behind a number that was read, if one was.
template <class Unit> inline void store_end(Unit **end, const Unit *text, int used, bool at_start) {
    if (!end || !used || (used < 0 && !at_start)) return;
    *end = const_cast<Unit *>(text) + (used > 0 ? used : 0);
}

// Characters of a multibyte text that holds a number; converted into wide unless a byte is a
// character. number_room: they are too many; -1 with KO_ENULL, KO_EEMPTY or KO_EILSEQ.
int widen_number(kovaloc *loc, const ko_mchar_t *mbs, ko_wchar_t (&wide)[number_room]);

// Reads a multibyte number by a reader of both kinds of text. The end counts characters, on
// purpose: it is right only where they are bytes.
template <class Value, class Reader>
inline Value read_multibyte(kovaloc *loc, const ko_mchar_t *mbs, ko_mchar_t **end,
                            const number_failure<Value> &failure, Reader read) {
    ko_wchar_t wide[number_room];
    Value value;
    if (end) *end = nullptr;
    const int len = widen_number(loc, mbs, wide);
    if (len < 0) return failure.bad_text;
    if (len == number_room) return fail(loc, KO_EINVAL, failure.failed);
    const int used = loc->exp.single_byte ? read(number_text<ko_mchar_t>{loc, mbs, len}, &value)
                                          : read(number_text<ko_wchar_t>{loc, wide, len}, &value);
    store_end(end, mbs, used, failure.end_at_start);
    return value;
}

#endif
