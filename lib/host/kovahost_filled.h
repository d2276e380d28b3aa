// Code sets of which an object holds nearly every character.
#ifndef KOVAHOST_FILLED_H
#define KOVAHOST_FILLED_H

#include "convert/kovacvlib.h"

bool is_filled(uint16_t number);

// Converts between such a code set and UTF-8 by its object, and by rule what that lacks. Takes the
// object over, also without memory; then it returns NULL.
iconv_rec *make_filled(uint16_t number, bool to_utf8, iconv_rec *object);

#endif
