// The short way of formatting: what nearly every format consists of, without a look aside. It
// leaves every other format and every error to the engine.
#ifndef KOVATMLIB_QUICK_H
#define KOVATMLIB_QUICK_H

#include "kovatmlib_table.h"

// Writes at most maxsize units with the terminator, the bytes of the locale's code set or wide
// characters. Returns the units before the terminator; or -1, with no error stored, for what the
// engine must do; some of out may then be written.
int quick_time(const kovaloc *loc, ko_mchar_t *out, int maxsize, const ko_mchar_t *format,
               const ko_alt_tm_t *tm);
int quick_time(const kovaloc *loc, ko_wchar_t *out, int maxsize, const ko_wchar_t *format,
               const ko_alt_tm_t *tm);

#endif
