// Lines of a file for kova sort: finding their ends, and decoding them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kova/kova_io.h"
#include "kova/kova_text.h"

namespace kovacli {

// How lines end, and what happens to bad characters.
struct line_rules {
    const codec *code = nullptr;
    std::string end; // the bytes that end a line
    bool replace = false;
};

// The rules for lines that end with a newline or, with nulls, with a null character.
line_rules line_rules_of(const codec &code, bool nulls, bool replace);

// A line, valid until the next is read.
struct sort_line {
    std::string_view text, whole; // without and with its end
    uint64_t number = 0, offset = 0;
};

struct line_reader {
    input in;
    uint64_t lines = 0, bytes = 0; // read so far
    size_t searched = 0;           // unread bytes known to hold no end
    std::string last;              // a last line without an end gets one
};

// Opens a file and skips a byte-order mark. Throws failure.
void open_lines(const line_rules &rules, const std::string &path, line_reader &reader);

// The next line if its end is among the bytes read; false if more must be read.
bool line_at_hand(const line_rules &rules, line_reader &reader, sort_line &line);

// The next line; false at the end of the file. Throws failure.
bool next_line(const line_rules &rules, line_reader &reader, sort_line &line);

// Bad characters that were replaced.
struct replaced_count {
    uint64_t count = 0;
    std::string first; // the place of the first
};

// Decodes a line of a file. Throws failure at a bad character that is not replaced.
void decode_line(const line_rules &rules, const std::string &file, const sort_line &line,
                 std::vector<ko_wchar_t> &wide, replaced_count &replaced);

} // namespace kovacli
