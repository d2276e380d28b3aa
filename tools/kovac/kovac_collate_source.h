// The order that LC_COLLATE describes: one chain of characters, collating elements and collating
// symbols, each with its weights at every level, which are links into the same chain.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/tool_charmap.h"
#include "common/tool_source.h"

namespace kovac {

constexpr uint32_t no_item = 0xFFFFFFFF;
constexpr size_t max_levels = 8;

// A link of the chain.
struct order_item {
    enum kind_t : uint8_t { symbol, character, element, head, undefined } kind = symbol;
    bool weighed = false;                     // a line has given weights; else its own
    uint32_t code = no_code;                  // character
    std::vector<uint32_t> chars;              // element: its code points
    std::string_view name;                    // symbol, element
    uint32_t first_weight = 0;                // into order::weights
    std::array<uint8_t, max_levels> counts{}; // weights per level; 0: ignored there
    uint32_t section = no_item;               // its section; no_item: none
    uint32_t prev = no_item, next = no_item;
    uint32_t rank = 0; // place in the whole order, from 1; 0: none
    position pos;      // the line that placed it
};

// How a section is compared at one level.
struct level_rule {
    bool backward = false;
    bool position = false; // the places of ignored characters count, too
};

// The lines from order_start to order_end; a section is moved as a whole.
struct order_section {
    std::string_view name; // empty: without a script symbol
    uint32_t head;         // the item that closes the section's ring of links
    std::vector<level_rule> rules;
};

struct order {
    std::vector<order_item> items;
    std::vector<uint32_t> weights; // items
    std::vector<order_section> sections;
    std::vector<uint32_t> section_order;
    std::unordered_map<std::string_view, uint32_t> names; // symbols and elements
    std::unordered_map<uint32_t, uint32_t> by_code;       // characters
    std::deque<std::string> pool;                         // names generated for ranges
    size_t levels = 1;
    bool codepoint_order = false; // the source asks for plain code order
};

// Reads LC_COLLATE of set.main with everything it copies, and ranks the chain. False after an
// error.
bool read_order(source_set &set, const charmap &map, diagnostics &diag, order &result);

} // namespace kovac
