// Turning one level of an order into one pass of an object: every sequence of weights becomes a
// single weight, an expansion or a weight with the code tie-break, such that the order is
// preserved.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "kovac/kovac_collate.h"
#include "kovac/kovac_collate_source.h"

namespace kovac {

constexpr uint16_t weight_ignored = 1;
constexpr uint16_t weight_first = 2;
constexpr uint16_t weight_expands = 0x4000;
constexpr uint16_t weight_by_code = 0x8000;
constexpr int max_weight = 0x3FFF;
// The last weight in sets of two bytes: bytes that are no character weigh more.
constexpr int last_wide = max_weight - 1;
constexpr int one_byte_weights = 253; // up to this number a weight takes one byte of a key

using symbols = std::vector<uint32_t>; // ranks of the symbols by which something is weighed

// Something that gets a row: a character, a collating element, or characters without a line.
struct weighed {
    enum kind_t : uint8_t { character, element, undefined } kind = character;
    uint16_t wide = 0;           // character
    uint32_t item = no_item;     // no_item: undefined
    std::vector<uint16_t> chars; // element: its characters; undefined: all of them
    std::array<symbols, max_levels> levels;
    bool by_code = false; // undefined: ordered among themselves by their codes
    bool settled = false; // the second level says all that the third would
    // A character that earlier passes cannot tell from these, one or two: it yields what they do.
    std::vector<uint16_t> like;
};

// Symbols above the ranks of every source.
constexpr uint32_t after_ranks = 0xF0000000;  // letters without a line that differ in case only:
                                              // each pair by the code of its small letter
constexpr uint32_t after_letter = 0xFFFFFF00; // what follows a letter directly: Hangul syllables
constexpr uint32_t after_source = 0xFFFFFF01; // characters without a line: U+0001, the others,
constexpr uint32_t after_first = 0xFFFFFF02;
constexpr uint32_t after_plane = 0xFFFFFF03; // and the units of characters beyond the basic plane
constexpr uint32_t after_lent = 0xFFFFFF10;  // noncharacters that carry weights for others
constexpr uint32_t after_all = 0xFFFFFFF0;   // U+FFFF, which no text has
constexpr uint16_t first_lent = 0xFDD0;      // the first of these noncharacters
constexpr uint32_t lent_count = 32;
constexpr uint32_t own_place = 0x40000000; // beyond all first weights
constexpr uint32_t no_weight_here = 0xFFFFFFFF;

using jamo_weights = std::array<symbols, 19>; // first level of U+1100 to U+1112; empty: no line

// Groups the characters without a line by how they are ordered; the first group has row 0.
std::vector<weighed> group_unlined(const std::vector<uint16_t> &wides, const jamo_weights &jamo);

// What is left of the levels of a source.
struct kept_levels {
    size_t levels = 0, of_case = 0; // how many; the first that tells most letters' case apart
    size_t apart = 0;               // pairs of letters that they tell apart all the same
    letter_pair example;            // one of these
};

// Finds how many levels an order keeps that does not tell case apart. Letters without a line weigh
// as those that differ from them in case only, and if both have none, as each other; where the
// first level tells case apart, capitals weigh as small letters. False if no level holds enough
// letters equal.
bool weaken_order(std::vector<weighed> &all, size_t levels, const collation_options &options,
                  kept_levels &kept);

// Leaves out the elements that weigh as their characters at the first levels (a Malayalam consonant
// with its virama), unless others would be found in them then. Returns how many.
size_t drop_plain_elements(const std::vector<weighed> &all, size_t levels,
                           std::vector<weighed> &elements);

// Makes one element of what several have after their first characters, where that weighs as much
// in all (virama and joiner after Malayalam consonants). Returns how many.
size_t join_tails(const std::vector<weighed> &all, size_t levels, std::vector<weighed> &elements);

// The symbols of letters that only elements have, once or several times, see spell_doubles.
std::vector<uint32_t> doubled_letters(const std::vector<weighed> &all);

struct pass_plan {
    bool backward = false;
    int highest = weight_ignored;  // largest weight in use
    std::vector<uint16_t> weights; // per weighed
    // Per weighed: the values that its weights have in comparison, code tie-break included, in the
    // order of the text even where the pass runs backward.
    std::vector<symbols> yields;
    std::vector<uint32_t> first; // per weighed: the first of them; 0: ignored
    // Per weighed: equal for those that may stand opposite each other after this pass.
    std::vector<uint32_t> place;
    int split = 0; // sequences whose exact order could not be preserved
};

struct level_input {
    const std::vector<weighed> &all;
    size_t level;
    level_rule rule;
    const std::vector<symbols> &texts;     // per weighed: what this pass weighs; empty: all
    const std::vector<pass_plan> &earlier; // the passes before it
    bool last;                             // nothing is compared after it
    bool single_byte;                      // the limits of the single-byte comparers apply
    bool total;                            // no two strings are equal after the last pass
};

// Plans a pass. All passes share the expansions; new ones are appended.
pass_plan plan_pass(const level_input &in, std::vector<std::vector<uint16_t>> &expansions);

} // namespace kovac
