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

// The part of a text that a directive of the format has read.
wide_text part_of(const codec &code, const reading &reads, const format_text &format,
                  const format_directive &d, const wide_text &text);

// Refuses a number that begins with 0 and a separator of groups, as 0.123 does in de_DE: no locale
// writes one, so decimals may be meant. Both symbols may be NULL. Throws failure.
void refuse_empty_group(const codec &code, const wide_text &part, const ko_wchar_t *separator,
                        const ko_wchar_t *decimal_point);

// Compares a real that was read with the digits that it was read from. Returns what is to be told
// where it has fewer; "" for nothing. Throws failure where no such number is held.
std::string lost_digits(const codec &code, const wide_text &part, double value);

// If a text, with its terminator, is not read as a whole, respells blanks and signs as the locale
// has them, and digits as 0 to 9; leaves it alone if that does not help. minus is the sign that
// directives read. Returns what was done, for people; "" for nothing.
std::string respell(const codec &code, const reading &reads, const format_text &format,
                    const wide_text &minus, wide_text &text);

// Throws failure that points at the rest of a text that the format does not read.
void refuse_rest(const codec &code, const reading &reads, const format_text &format,
                 const wide_text &text);

} // namespace kovacli
