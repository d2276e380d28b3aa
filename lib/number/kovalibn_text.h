// What the readers of integers and reals share: bounded texts of wide characters, or of bytes where
// a byte is a character, and the conversion of multibyte text to one of them.
#ifndef KOVALIBN_TEXT_H
#define KOVALIBN_TEXT_H

#include "chars/kovambwc.h"
#include "number/kovalibn.h"

#include <string.h>

template <class Unit> struct number_text {
    kovaloc *loc;
    const Unit *units;
    int most; // units that may be read, fewer where the text ends
    const portable_set *set = loc->portable;
};

// The portable value at a place, 0 at the end. Never called for places after the end.
template <class Unit> inline unsigned at(const number_text<Unit> &t, int i) {
    return i < t.most ? portable(t.set, t.units[i]) : 0;
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
        if (!has_class(t.loc, wc, KO_CT_SPACE) && !is_white(int(c))) break;
    }
    return i;
}

inline bool is_sign(unsigned c) { return c == '-' || c == '+'; }
// Is a character other than "-" and "+" taken for a sign, so that no number is read?
template <class Unit> inline bool takes_for_sign(const number_text<Unit> &t, int i) {
    const unsigned c = at(t, i);
    return c && c - '0' > 9 && has_class(t.loc, t.units[i], KO_CT_PUNCT);
}

// Adds a run of digits to a value, modulo 2^64, and returns its end.
template <class Unit>
inline int add_digits(const number_text<Unit> &t, int i, unsigned radix, uint64_t *value) {
    uint64_t sum = *value;
    if (radix == 10 && !t.set) {
        const Unit *const units = t.units;
        const int most = t.most;
        for (unsigned d; i < most && (d = units[i] - unsigned{'0'}) <= 9; ++i)
            sum = sum * 10 + d;
    } else {
        for (unsigned d; (d = digit_at(t, i)) < radix; ++i)
            sum = sum * radix + d;
    }
    *value = sum;
    return i;
}

// Digits with separators between them.
struct digit_groups {
    int end;
    int digits;
    uint64_t value;                // modulo 2^64
    int separators;                // one fewer than the groups
    uint16_t len[number_room + 1]; // of the groups, left to right
};

// Reads the groups of a number that starts at a place; digits start after its prefix, which counts
// as part of the first group. False if they take more units than a number can have.
template <class Unit>
inline bool scan_groups(const number_text<Unit> &t, int start, int prefix, unsigned radix,
                        const wide_symbol &separator, digit_groups *groups) {
    uint64_t value = 0;
    int separators = 0, digits = -prefix, group_start = start;
    for (int end = start + prefix;;) {
        end = add_digits(t, end, radix, &value);
        const int group = end - group_start;
        digits += group;
        if (end - start > number_room) return false;
        groups->len[separators] = uint16_t(group);
        const int len = symbol_len_at(t, end, separator);
        groups->end = end;
        if (!len) break;
        ++separators;
        group_start = end += len;
    }
    groups->digits = digits;
    groups->value = value;
    groups->separators = separators;
    return true;
}
// Cuts the number off after its first group.
template <class Unit>
inline void keep_first_group(const number_text<Unit> &t, int start, int prefix, unsigned radix,
                             digit_groups *groups) {
    groups->value = 0;
    groups->end = add_digits(t, start + prefix, radix, &groups->value);
    groups->digits = groups->end - start - prefix;
}
// Compares with a grouping (a count and sizes from the right; NULL: none). -1 if a group has the
// wrong size, else the number of groups at the left for which the grouping says nothing.
int check_groups(const digit_groups &groups, const int *grouping);

// The grouping of a mode that is in force for reading.
inline const int *grouping_of(const kovaloc *loc, int mode, const wide_symbol &separator) {
    if (!separator.len) return nullptr;
    return mode == mode_money ? loc->monum_info.group_mon : loc->monum_info.group_num;
}

// The results of a reader that finds no number.
template <class Value> struct number_failure {
    Value bad_text; // the multibyte text is empty or invalid
    Value failed;
    bool end_at_start; // *end becomes the start when reading fails; else it is left alone
};

// Stores the place after a number, if one was read.
template <class Unit> inline void store_end(Unit **end, const Unit *text, int used, bool at_start) {
    if (!end || !used || (used < 0 && !at_start)) return;
    *end = const_cast<Unit *>(text) + (used > 0 ? used : 0);
}

// Converts multibyte text that contains a number. Returns its characters, number_room if there are
// too many; or -1 with KO_EEMPTY or KO_EILSEQ.
int widen_number(kovaloc *loc, const ko_mchar_t *mbs, ko_wchar_t (&wide)[number_room]);
// Does a text of bytes, of which the first used ones were read, have too many for a number?
bool too_long(const ko_mchar_t *mbs, int used);

// Reads a multibyte number with a reader for both kinds of text; where every byte is a character
// the text is read without conversion. Deliberately, the end counts characters: it is right only
// where they are bytes.
template <class Value, class Reader>
inline Value read_multibyte(kovaloc *loc, const ko_mchar_t *mbs, ko_mchar_t **end,
                            const number_failure<Value> &failure, Reader read) {
    ko_wchar_t wide[number_room];
    Value value;
    int used;
    if (end) *end = nullptr;
    if (!loc || !mbs) return fail(loc, KO_ENULL, failure.bad_text);
    if (loc->exp.single_byte) {
        if (!*mbs) return fail(loc, KO_EEMPTY, failure.bad_text);
        used = read(number_text<ko_mchar_t>{loc, mbs, number_room}, &value);
        const int known = used > 0 ? used : 0;
        if (known == number_room || (mbs[known] && too_long(mbs, known)))
            return fail(loc, KO_EINVAL, failure.failed);
    } else {
        const int len = widen_number(loc, mbs, wide);
        if (len < 0) return failure.bad_text;
        if (len == number_room) return fail(loc, KO_EINVAL, failure.failed);
        used = read(number_text<ko_wchar_t>{loc, wide, len}, &value);
    }
    store_end(end, mbs, used, failure.end_at_start);
    return value;
}

#endif
