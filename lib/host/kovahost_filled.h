// Code sets of which an object holds nearly every character.
#ifndef KOVAHOST_FILLED_H
#define KOVAHOST_FILLED_H

#include "convert/kovacvlib.h"

bool is_filled(uint16_t number);

// The next character of such a code set that stands for two code points, in UTF-8. With waits the
// end of the text may cut one off.
struct filled_sequence {
    const ko_mchar_t *at; // where it begins; the end of the text if there is none
    size_t bytes;         // 0 if it may be cut off
};
constexpr size_t sequence_longest = 6; // bytes
filled_sequence find_filled_sequence(uint16_t number, const cv_span *s, bool waits);

// Converts between such a code set and UTF-8 by its object, and by rule what that lacks. Takes the
// object over, also without memory; then it returns NULL.
iconv_rec *make_filled(uint16_t number, bool to_utf8, iconv_rec *object);

#endif
