// LC_COLLATE: a source's collation section as compiled, in the form of the collation section of a
// locale object.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common/tool_charmap.h"
#include "common/tool_source.h"

namespace kovac {

// Several characters that are weighed as one row.
struct collation_element {
    std::vector<uint16_t> chars; // 2 to 15 wide characters
    uint16_t row;
};

// Rows are numbered from 0 (row 0: characters without a line in the source) to num_rows.
struct collation {
    bool codeset_order = false;
    bool by_thai = false;                 // nothing of what follows counts
    size_t levels = 0, source_levels = 0; // those of the order, and those of its source
    int num_rows = 0;                     // highest row number
    int num_weights = 0;         // highest weight in use; decides the bytes of a weight in keys
    std::vector<int> pass_types; // per pass: 1 forward, 2 backward; at most 8
    std::vector<collation_element> elements;       // in matching order: the first match wins
    std::vector<std::vector<uint16_t>> expansions; // wide characters of each
    std::vector<std::vector<uint16_t>> weights;    // [row][pass], num_rows + 1 rows
    std::unordered_map<uint16_t, uint16_t> rows;   // wide character to row
};

// The findings of --prove, one line of text each.
struct proof_report {
    std::vector<std::string> lines;
    bool ok = true;
};

// What an order tells apart: all that its source does, or not case, or neither case nor accents.
enum class strength { all, accents, letters };

using letter_pair = std::pair<uint16_t, uint16_t>; // a capital and its small letter

struct collation_options {
    // What the source treats as equal stays equal. Otherwise no two strings of "unicode" are equal.
    bool equal_ties = false;
    bool by_thai = false; // the Thai method instead of the source's order
    strength keeps = strength::all;
    std::vector<letter_pair> pairs; // that differ in case only, where that is not to count
};

// Compiles LC_COLLATE of set.main. Errors go to diag; false if there were any. If report is null,
// nothing is proved except what the choice of a form needs.
bool compile_collation(source_set &set, const charmap &map, diagnostics &diag, collation &result,
                       proof_report *report, const collation_options &options = {});

// Asks for the Thai method. False if the code set is none that it can read.
bool make_thai(const charmap &map, diagnostics &diag, collation &result);

// Checks the tables on all short strings of the code set and reports what holds.
void prove_collation(const charmap &map, const collation &tables, proof_report &report);

// Checks the object at path, which was written from the tables, with the library.
void prove_object(const charmap &map, const collation &tables, const std::string &path,
                  proof_report &report);

} // namespace kovac
