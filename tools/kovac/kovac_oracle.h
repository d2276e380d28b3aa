// The order of two strings as the text of a source describes it, evaluated without tables: elements
// are found, their weights at a level are written in its direction, and the levels decide one after
// the other. With the compiler it shares the reader of lines and nothing else, so that compiled
// objects can be judged by it.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/tool_charmap.h"
#include "common/tool_source.h"
#include "kovac/kovac_collate.h"

namespace kovac {

constexpr size_t oracle_levels = 8;
constexpr uint32_t no_token = 0xFFFFFFFF;

using oracle_flags = std::array<bool, oracle_levels>; // per level

// A character or a collating element.
struct oracle_token {
    std::vector<uint16_t> chars;
    std::array<uint32_t, oracle_levels + 1>
        at{}; // level n: oracle::weights from at[n] to at[n + 1]
    uint32_t section = 0;
    bool lined = true; // the source has a line for it
    bool own = false;  // and not in the large source that it copies
};

struct oracle {
    size_t levels = 1;
    bool total = false; // in "unicode": ties of the source may be told apart
    std::vector<oracle_token> tokens;
    std::vector<uint32_t> weights;      // ranks in the order, from 1
    std::vector<oracle_flags> backward; // per section; what stands in none that has rules: forward
    oracle_flags position{};            // of the whole level, if any section says so
    std::vector<uint32_t> codes;        // wide character to its code point
    std::vector<uint32_t> of_char;      // wide character to its token, or no_token
    std::vector<std::vector<uint32_t>> elements; // by first character, the longest first
};

// Reads LC_COLLATE of set.main with everything it copies. False after an error.
bool read_oracle(source_set &set, const charmap &map, diagnostics &diag, oracle &out);

// Takes the levels away that a strength does not have. False if there is no such order.
bool weaken_oracle(oracle &o, strength keeps, const std::vector<letter_pair> &pairs);

using oracle_text = std::span<const uint16_t>; // without a terminator
using oracle_key = std::vector<uint32_t>; // levels with a 0 between two; compares like the text

// The tokens of a text. False if a character has none.
bool find_tokens(const oracle &o, oracle_text text, std::vector<uint32_t> &tokens);

// Writes the key of tokens.
void write_key(const oracle &o, const std::vector<uint32_t> &tokens, oracle_key &key);

// Compares two texts: -1, 0 or 1. *level (may be null) gets the level that decided, from 1.
int compare_keys(const oracle_key &a, const oracle_key &b, size_t *level);
int compare_texts(const oracle &o, oracle_text a, oracle_text b, size_t *level = nullptr);

// Differences between an object and its source, by kind.
struct difference {
    size_t count = 0;
    std::string example;
};
struct judgement {
    size_t strings = 0, comparisons = 0;
    std::map<std::string, difference> kinds;
};

using compare_function = int (*)(void *context, oracle_text a, oracle_text b);

// Compares all characters, elements and expansions in context, and seeded words of the locale, with
// an order that a function gives.
void judge_order(const oracle &o, const std::vector<uint16_t> &home, compare_function compare,
                 void *context, judgement &result);

// Differences that are known and explained: lines of LOCALE CODESET KIND COUNT REASON, where "*"
// stands for every locale or code set.
struct exception_list {
    std::string name, text;
};
extern const char *const known_exceptions; // data/collation_exceptions.list

// Says what was compared, and for each kind of difference whether the list allows it. False in
// report.ok if a kind is not in the list or more often than it says.
void report_judgement(const judgement &found, std::string_view locale, std::string_view codeset,
                      const exception_list &allowed, proof_report &report);

// The characters of a locale's names of days and months.
std::vector<uint16_t> prove_home(source_set &set, const charmap &map, diagnostics &diag);

struct proof_terms {
    std::string locale; // as the source is called
    exception_list allowed;
    bool equal_ties = false; // what the source holds equal is equal, also in "unicode"
    strength keeps = strength::all;
    std::string modifier;           // what it adds to the name of the code set in the list
    std::vector<letter_pair> pairs; // of letters that differ in case only
};

// Compares the object at path with its source.
void prove_source(source_set &set, const charmap &map, diagnostics &diag, const std::string &path,
                  const proof_terms &terms, proof_report &report);

} // namespace kovac
