// What the LC_COLLATE section of a locale's object says: elements, expansions, weights. How they
// order texts is the library's business.
#pragma once

#include <cstdint>
#include <vector>

#include "kova/kova_names.h"

namespace kovacli {

struct weight_table {
    enum class method : uint8_t { weights, code, thai };
    struct element {
        wide_text text;
        size_t row = 0;
    };
    static constexpr unsigned ignored = 1, expands = 0x4000, ties = 0x8000, low_bits = 0x3FFF;

    method by = method::weights;
    std::vector<bool> forward; // by pass, which is called a level here
    std::vector<element> elements;
    std::vector<wide_text> expansions;
    std::vector<uint16_t> weights; // of row 0 in all passes, of row 1, ...
    void *rows = nullptr;          // of characters

    weight_table() = default;
    weight_table(const weight_table &) = delete;
    ~weight_table();

    unsigned weight(size_t row, size_t pass) const { return weights[row * forward.size() + pass]; }
};

// Reads the object that a locale was opened from. Throws failure.
void read_weights(const object_file &object, weight_table &table);

// The row of a character; row 0 is that of all characters that have none.
size_t row_of(const weight_table &table, ko_lc_t loc, ko_wchar_t wide);

// The first element of the object with which a text begins; NULL for none.
const weight_table::element *element_at(const weight_table &table, const ko_wchar_t *text,
                                        size_t len);

} // namespace kovacli
