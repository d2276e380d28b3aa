// Charmaps: the characters of a code set, their bytes, code points and widths, read from a charmap
// file (plain or gzip). Characters of more than two bytes are left out and counted.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/tool_source.h"

namespace kovac {

// One valid character of the code set.
struct charmap_char {
    uint32_t code; // code point; a charmap name without one has an id from private_code upward
    uint16_t wide; // the bytes, big-endian
    uint8_t len;   // number of bytes: 1 or 2
    uint8_t width; // columns, from the WIDTH section, else its default
};

constexpr uint32_t private_code = 0x80000000;

struct charmap {
    std::string name;                // <code_set_name>
    bool unicode = false;            // the built-in set of all 16-bit units, two bytes each
    int min_len = 1, max_len = 1;    // bytes of the shortest and longest character kept
    int chars_of_three = 0;          // characters left out for having three bytes,
    int chars_of_four = 0;           // and four
    std::vector<charmap_char> chars; // each byte sequence once, ascending by length, then bytes
    // From every code point and id in the charmap to an index of chars. Two code points may share
    // one character; chars[i].code is then the one to which the bytes convert.
    std::unordered_map<uint32_t, uint32_t> by_code;
    std::unordered_map<std::string, uint32_t> names; // names other than <Uxxxx>, to their code
    uint64_t hash = 0;                               // of the file's content
};

// A line of a charmap as it stands, or one character of its range.
struct charmap_line {
    uint32_t code;
    uint32_t bytes;   // big-endian
    uint8_t len;      // 1 to 4
    bool one_way;     // marked %IRREVERSIBLE%
    std::string name; // without <>
};

// FNV-1a; it only has to distinguish inputs.
uint64_t content_hash(const std::string &text);

// Reads a charmap by path or by bare name ("unicode" is built in). False after an error. lines (may
// be null) gets every character, including those of more than two bytes.
bool load_charmap(const std::vector<std::string> &dirs, const std::string &name, diagnostics &diag,
                  charmap &map, std::vector<charmap_line> *lines = nullptr);

// The character of a code point; null if the code set lacks it.
const charmap_char *find_code(const charmap &map, uint32_t code);

// The character of a wide value; null if there is none.
const charmap_char *find_wide(const charmap &map, uint16_t wide);

// The code of a symbol or bytes token: its code point, or the code of its charmap name, or no_code.
// The code set may still lack the code: see find_code.
uint32_t token_code(const charmap &map, const token &t);

// The codes of a string token: <Uxxxx> and charmap names, plain characters, escapes. Names that are
// not characters are dropped, and appended to unknown unless that is null.
std::vector<uint32_t> string_codes(const charmap &map, const token &t,
                                   std::vector<std::string> *unknown);

} // namespace kovac
