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
    bool utf16 = false; // every well-formed text of UTF-8 becomes what it is in UTF-16
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

// Whole lines, one after the other, and the place of the first.
struct line_share {
    std::string_view text;
    uint64_t number = 0, offset = 0;
};

// The next lines, valid until more are read: at most so many bytes of them, or one line. Empty at
// the end of the file. Throws failure.
line_share next_lines(const line_rules &rules, line_reader &reader, size_t bytes);

// Takes lines off: the first with so many bytes, up to the end of the last of them.
line_share cut_lines(const line_rules &rules, line_share &rest, size_t bytes);

// Takes the first line off; false if there is none.
bool cut_line(const line_rules &rules, line_share &rest, sort_line &line);

// Bad characters that were replaced.
struct replaced_count {
    uint64_t count = 0;
    std::string first; // the place of the first
};

// Decodes a line of a file. Throws failure at a bad character that is not replaced.
void decode_line(const line_rules &rules, const std::string &file, const sort_line &line,
                 std::vector<ko_wchar_t> &wide, replaced_count &replaced);

// Decodes a line to the beginning of wide, which becomes as large as needed. Returns the units, or
// -1 where decode_line must do it: at bad characters, and in most code sets.
int64_t decode_quickly(const line_rules &rules, std::string_view text,
                       std::vector<ko_wchar_t> &wide);

} // namespace kovacli
