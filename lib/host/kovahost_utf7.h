// UTF-7, and the names of mailboxes.
#ifndef KOVAHOST_UTF7_H
#define KOVAHOST_UTF7_H

#include "convert/kovacvlib.h"

bool is_utf7(uint16_t number);

// Converts between such a code set and UTF-8; NULL without memory.
iconv_rec *make_utf7(uint16_t number, bool to_utf8);

#endif
