// Records as rows of named values, in JSON lines or CSV.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kovacli {

// A value of a field: text as it stands, a number's digits, or bytes kept as hexadecimal digits.
struct row_value {
    std::string text;
    bool number = false, bytes = false;
};
// The values of each field that is present; several for a field that repeats.
using record_row = std::map<std::string, std::vector<row_value>, std::less<>>;

std::string json_text(const std::string &text); // in quotation marks

// Reads a line of JSON: an object of strings, numbers, arrays of these, and {"hex": "..."} for
// bytes. Returns what is wrong, "" if nothing is.
std::string parse_json_row(std::string_view line, record_row &row);

// The cells of one row of CSV, of which a quoted one may hold line ends; nothing if the text ends
// inside it.
std::optional<std::vector<std::string>> parse_csv_row(std::string_view line);
std::string csv_cell(const std::string &text);

} // namespace kovacli
