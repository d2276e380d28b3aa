// The sequences of weights at one level, and how each is represented in a pass.
#pragma once

#include <map>
#include <set>

#include "kovac/kovac_collate_levels.h"

namespace kovac {

using unit_id = uint32_t;
constexpr unit_id no_unit = 0xFFFFFFFF;

struct unit {
    symbols text;
    uint16_t carrier = 0;     // a character that weighs exactly this unit; 0: none
    bool clear = true;        // a single number preserves the order
    bool exact = true;        // that is true for everything that weighs it
    bool used = false;        // something weighs it
    bool by_code = false;     // its characters are distinguished by their codes
    bool before_stem = false; // sorts before the unit that it extends
    int owners = 0;           // number of characters that weigh it
    std::vector<size_t> who;  // all that have this sequence: indexes of weighed
    bool shared = false;      // elements, undefined characters or expansions need it, too
    uint16_t weight = 0;
};

struct level_work {
    const level_input &in;
    std::vector<unit> units;
    std::map<symbols, unit_id> index;
    std::vector<const pass_plan *> telling;     // earlier passes that tell characters apart here
    std::vector<unit_id> own;                   // per weighed: its sequence; no_unit: ignored
    std::vector<std::vector<unit_id>> spelling; // per weighed: the pieces, if not one unit
    // The tokens that weigh a unit, by their class: what they weigh first in the first pass.
    std::map<std::pair<unit_id, uint32_t>, std::vector<size_t>> owners;
    std::vector<uint32_t> place;   // per weighed: its own, where its first is not
    std::vector<bool> clear;       // per weighed: its representation is exact
    std::set<unit_id> approximate; // spelled, but not exact
    uint32_t highest_first = 0;    // highest of the symbols that begin a sequence
    unit_id high = no_unit;        // stands for ignored characters by position
};

unit_id unit_of(level_work &w, const symbols &text);
bool ignored_so_far(const weighed &c, size_t level);
bool plain(const weighed &c);

// Find the units of all sequences, and the earlier passes that distinguish characters.
void collect_units(level_work &w);
void find_telling(level_work &w);
bool told_apart(const level_work &w, size_t a, size_t b);

// Decides for every sequence: one unit, or pieces. Returns how many are not exact.
int choose_units(level_work &w);

// The shortest list of at most so many units with carriers that make up the text of a token of a
// class (0: any) and are clear there; empty if there is none.
std::vector<unit_id> spell(const level_work &w, const symbols &text, uint32_t in_class,
                           size_t most);
inline size_t most_pieces(const level_work &w) { return w.in.single_byte ? 7 : 15; }

// Spells characters whose last symbols no character weighs, and elements of several weights, at the
// first level.
void spell_tails(level_work &w);

// Spells letters of several characters, and those doubled, at the first level.
void spell_doubles(level_work &w);

// Makes the last pass of a total order: every character and element weighs exactly one unit, and
// earlier passes distinguish those that share it.
void make_total(level_work &w);

} // namespace kovac
