// A model of the library's comparison and sort keys on compiled tables, so that a collation can be
// checked before an object is written.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "kovac/kovac_collate.h"

namespace kovac {

using wide_text = std::span<const uint16_t>; // without a terminator

struct collation_model {
    const collation *tables = nullptr;
    bool single_byte = false;
    int min_len = 1;                            // bytes of the shortest character
    int code_digits = 2;                        // bytes of a character code in a key
    std::vector<uint16_t> row;                  // per wide value
    std::vector<std::vector<uint32_t>> element; // per first character below 256: elements in order
};

collation_model make_model(const charmap &map, const collation &tables);

// Compares like the wide comparison: -1, 0 or 1.
int compare_wide(const collation_model &m, wide_text a, wide_text b);

// Compares like the comparer that a locale of this code set gets, which works on bytes in
// single-byte code sets.
int compare_installed(const collation_model &m, wide_text a, wide_text b);

// The sort key without its terminator.
std::string sort_key(const collation_model &m, wide_text a);

} // namespace kovac
