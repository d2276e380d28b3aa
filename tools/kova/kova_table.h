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

// Writes rows with two blanks between columns and none at a line's end.
void write_table(output &out, const std::vector<std::vector<cell>> &rows);

} // namespace kovacli
