// How much a text decoded under some code set looks unlike text: in costs, without a model of any
// language, beyond the letters of alphabets.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace kovacli {

enum class char_kind : uint8_t { letter, blank, digit, mark, symbol, control, unassigned };
inline constexpr size_t char_kinds = 7;

struct text_shape {
    std::array<uint64_t, char_kinds> of_kind{};
    uint64_t characters = 0, beyond_ascii = 0;
    uint64_t han = 0, kana = 0, hangul = 0, half_kana = 0;
    uint64_t strange_pairs = 0;    // neighbours that words do not have
    uint64_t outside_alphabet = 0; // letters that the best alphabet lacks
    std::string alphabet;          // its language
    double cost = 0;
};

text_shape shape_of(const std::vector<uint32_t> &text);

} // namespace kovacli
