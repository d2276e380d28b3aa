// Tables of text for people: columns padded by what a terminal shows.
#pragma once

#include <string>
#include <vector>

#include "kova/kova_io.h"

namespace kovacli {

struct cell {
    std::string text;
    int width = -1;             // columns; -1: one for each byte
    bool right = false;         // flush right
    const char *kind = nullptr; // in a page: "local" for a locale's words, or a class
};

// The form that JSON gives to text in UTF-8, in quotation marks; what a terminal would obey is
// spelled out, as JSON allows.
std::string json_quoted(const std::string &text);

// Writes a JSON object for each row but the first, which names the values: numbers in columns whose
// names are flush right, null for "-" in any but the first.
void write_json_rows(output &out, const std::vector<std::vector<cell>> &rows);

// Writes rows with two blanks between columns and none at a line's end.
void write_table(output &out, const std::vector<std::vector<cell>> &rows);

} // namespace kovacli
