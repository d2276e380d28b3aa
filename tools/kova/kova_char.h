// Characters as terminals and texts count them: those beyond the basic plane, which are two wide
// characters of "unicode" and have no class there, and columns.
#pragma once

#include <vector>

#include "kova/kova_text.h"

namespace kovacli {

// The wide characters of the character at wide: 2 for a surrogate pair of "unicode", else 1.
size_t units_of(const codec &code, const ko_wchar_t *wide, size_t count);

// The code point of a character of so many units, no_code_point without a mapping.
uint32_t point_of(const codec &code, const ko_wchar_t *wide, size_t units);

// The masks of the standard classes of a character beyond the basic plane, the same in all locales.
unsigned far_classes(uint32_t point);

// Maps the surrogate pairs in a text of "unicode" to their case partners.
void map_pairs(const codec &code, ko_wchar_t *wide, size_t count, bool upper);

// Columns of a character on a terminal, -1 for one that is not printable. Combining marks have
// none in any code set. Otherwise the width is that of Unicode in "unicode", and that of the
// locale's class "full_width" elsewhere.
int columns_of(const codec &code, const ko_wchar_t *wide, size_t units);

// Columns of a text; what has none counts as one.
size_t columns_of_text(const codec &code, const ko_wchar_t *wide, size_t count);

} // namespace kovacli
