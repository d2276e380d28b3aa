// The scanner of modifiers as a function, for callers that do not need it inline.
#include "number/kovafmt_scan.h"

int scan_format_modifiers(const kovaloc *loc, const ko_wchar_t **format, format_modifiers *m) {
    return scan_modifiers(loc, format, m);
}
