// Spellings of characters that a code set lacks, from the transliteration tables of the sources:
// for the strings of a locale (names, formats, currency symbols), and as an object for conversions.
#pragma once

#include <cstdint>
#include <span>
#include <string>
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

// Loads the source's own table and those of these names; the first that has a character counts.
void load_spellings(translit &tables, const charmap &map, std::span<const char *const> names);

// Writes the object of transliterations below a data root, from the tables in these directories. An
// exit status; *why says what failed.
int compile_translit(const std::string &root, const std::vector<std::string> &dirs,
                     std::string *why);

} // namespace kovac
