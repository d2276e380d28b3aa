// The object of transliterations: what may be written for a character that a code set lacks.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "kova/kova_locale.h"

namespace kovacli {

// Spellings in UTF-8, the best first; an empty one leaves the character out.
using translit_table = std::unordered_map<uint32_t, std::vector<std::string>>;

// Reads the object of a data root. Throws failure where there is none, or a damaged one.
translit_table read_translit(const data_place &place);

} // namespace kovacli
