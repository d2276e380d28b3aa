// Texts as people type them: with blanks, minus signs and digits that are not those of the locale.
#pragma once

#include <functional>
#include <string>

#include "kova/kova_format.h"
#include "kova/kova_names.h"

namespace kovacli {

// Does a text match a format? Both have terminators.
using reading = std::function<bool(const ko_wchar_t *text, const ko_wchar_t *format)>;

// Does the format read the whole text, perhaps but for blanks at its end? Always true after a
// directive that takes the rest.
bool reads_whole(const codec &code, const reading &reads, const format_text &format,
                 const wide_text &text);

// How many characters of a text the format reads.
size_t read_length(const codec &code, const reading &reads, const format_text &format,
                   const wide_text &text);

// The beginning of a format.
format_text front_of(const format_text &format, size_t length);

// If a text, with its terminator, is not read as a whole, respells blanks and signs as the locale
// has them, and digits as 0 to 9; leaves it alone if that does not help. minus is the sign that
// directives read. Returns what was done, for people; "" for nothing.
std::string respell(const codec &code, const reading &reads, const format_text &format,
                    const wide_text &minus, wide_text &text);

// Throws failure that points at the rest of a text that the format does not read.
void refuse_rest(const codec &code, const reading &reads, const format_text &format,
                 const wide_text &text);

} // namespace kovacli
