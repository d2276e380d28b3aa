// The encodings of Unicode as code sets of conversions.
#ifndef KOVAHOST_FORM_H
#define KOVAHOST_FORM_H

#include "convert/kovacvlib.h"
#include "host/kovahost_text.h"

enum class text_form : uint8_t { none, utf8, utf16be, utf16le, utf16, utf32be, utf32le };

// The bytes of the shortest and the longest character.
constexpr int form_shortest(text_form form) {
    return form == text_form::utf8 ? 1 : form < text_form::utf32be ? 2 : 4;
}
constexpr int form_longest = 4;

// Makes a descriptor between two encodings; NULL without memory.
iconv_rec *make_form_conversion(text_form from, text_form to, bool keeps_mark, bool writes_mark);

// The error at what is no character of UTF-8: its beginning, if it reaches the end, may go on in
// the next piece.
int bad_utf8(const ko_mchar_t *p, utf8_step step, const ko_mchar_t *end);

// Drops the byte-order mark at the start of a text. KO_EINVAL if the piece ends inside what may be
// one.
int drop_mark(const iconv_rec *cv, conv_state *st, cv_span *s);

// The states of two conversions in a row, in the one of their caller.
struct leg_states {
    conv_state leg[2];
};
leg_states split_state(const conv_state *st);
void join_states(const leg_states *legs, conv_state *st);

#endif
