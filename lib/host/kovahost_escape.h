// Code sets that switch by escape sequences: ISO-2022 and HZ.
#ifndef KOVAHOST_ESCAPE_H
#define KOVAHOST_ESCAPE_H

#include "convert/kovacvlib.h"

bool is_escaped(uint16_t number);

// The code sets whose objects have the characters of such a one; 0 follows if there are fewer than
// cv_legs_max.
const uint16_t *escape_parts(uint16_t number);

// Converts between such a code set and UTF-8 by the objects of its parts in the same direction,
// which it takes over; NULL without memory.
iconv_rec *make_escaped(uint16_t number, bool to_utf8, iconv_rec *const parts[cv_legs_max]);

#endif
