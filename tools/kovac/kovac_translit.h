// Spellings of characters that a code set lacks, from the transliteration tables of the sources.
// They are used only for the strings of a locale: names, formats, currency symbols.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "common/tool_charmap.h"
#include "common/tool_source.h"

namespace kovac {

struct translit {
    source_set &set;
    bool loaded = false; // the tables are read when a character is first missing
    std::unordered_map<uint32_t, std::vector<std::vector<uint32_t>>> spellings; // best first
};

// The spelling of a code that map lacks in characters that it has; null if the tables have none.
const std::vector<uint32_t> *spell(translit &tables, const charmap &map, uint32_t code);

} // namespace kovac
