// Formats: the modifiers between "%" and the letter, and formats and texts in wide characters.
#ifndef KOVAFMT_H
#define KOVAFMT_H

#include "record/kovasetlc.h"

// The modifiers between a "%" and its conversion letter, for numbers and for times.
enum : unsigned {
    fmt_space = 0x01,
    fmt_alternate = 0x02, // "#"
    fmt_group = 0x04,     // "'"
    fmt_plus = 0x08,
    fmt_left = 0x10,
    fmt_zero = 0x20,
    fmt_upper = 0x40, // set by "X"
};
struct format_modifiers {
    unsigned flags; // callers whose flags persist keep them from directive to directive
    int width;      // 0: none; saturates
    int precision;  // -1: none; saturates
    bool width_star;
    bool precision_star;
};
inline bool pads_with_zeros(const format_modifiers &m) { return (m.flags & fmt_zero) != 0; }
inline bool pads_right(const format_modifiers &m) {
    return (m.flags & (fmt_left | fmt_zero)) == fmt_left;
}
// Reads position, flags, width and precision, adds to the flags, sets the rest, and moves *format
// to the first character after them. 0; or KO_EDIRECTIVE for a position, KO_EFORMAT if the format
// ends there, KO_EPRECISION.
int scan_format_modifiers(const kovaloc *loc, const ko_wchar_t **format, format_modifiers *m);

// Prepares the marks of LC_NUMERIC for the record's code set.
void derive_marks(kovaloc *loc);
// Prepares the usual amounts of money (kovamnlib_usual.cpp).
void derive_money(kovaloc *loc);

// Writes an integer in base 10 with width and precision, with "-" if it is negative and without a
// terminator. Returns its units; or -1 with KO_E2BIG if they exceed room.
int write_plain_number(kovaloc *loc, ko_wchar_t *out, int room, int value,
                       const format_modifiers &m);

// A multibyte format, text or name as wide characters: in its own room if it fits, else in a block
// of the host's memory.
constexpr int wide_text_room = 128;
struct wide_text {
    ko_wchar_t local[wide_text_room];
    ko_wchar_t *p = nullptr; // the text; NULL after a failure
    ko_wchar_t *block = nullptr;
    wide_text() = default;
    wide_text(const wide_text &) = delete;
    wide_text &operator=(const wide_text &) = delete;
    ~wide_text();
};
// Converts mbs, which is not NULL. Returns its characters, or -KO_EILSEQ, -KO_ENOMEM, or -KO_ERANGE
// where an int cannot count its bytes.
int try_widen(kovaloc *loc, const ko_mchar_t *mbs, wide_text *text);
// The same; -1 with the error stored.
inline int widen_text(kovaloc *loc, const ko_mchar_t *mbs, wide_text *text) {
    const int len = try_widen(loc, mbs, text);
    return len < 0 ? fail(loc, -len, -1) : len;
}
// Converts a wide result, storing no error; returns -KO_E2BIG or -KO_EILSEQ after a failure.
int try_narrow(kovaloc *loc, ko_mchar_t *out, int max_bytes, const ko_wchar_t *wcs);
// Converts a wide result into at most max_bytes bytes and a terminator. Returns the bytes before
// the terminator; or -1 with KO_E2BIG or KO_EILSEQ. In no case is more than max_bytes bytes and a
// terminator written.
inline int narrow_result(kovaloc *loc, ko_mchar_t *out, int max_bytes, const ko_wchar_t *wcs) {
    const int written = try_narrow(loc, out, max_bytes, wcs);
    return written < 0 ? fail(loc, -written, -1) : written;
}

#endif
