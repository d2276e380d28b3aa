// Values on the command line, or one a line from files: what number, money, date and parse-date do
// with many of them, and their answers as lines or JSON.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "kova/kova_cli.h"
#include "kova/kova_text.h"

namespace kovacli {

// A value that was written or read.
struct answer_value {
    std::string text;
    bool number = false; // of JSON, too
};

struct answer {
    std::vector<answer_value> values;
    std::vector<std::string> told; // what was filled in or read as something else
};

// Answers some values; first is the number of the first one on the command line, 0 in lines.
// Throws failure.
using answering = std::function<answer(const std::vector<std::string> &values, size_t first)>;

// Where values come from.
struct batch_source {
    const std::vector<std::string> &values; // of the command line
    size_t each = 1;                        // how many are answered at a time
    bool lines = false;                     // those of the files instead
};

// Writes an answer for each value or line. A failure ends the command if a single value or plain
// values of the command line are answered; else it takes the place of the answer, and the status
// is bad_text in the end. Throws failure.
int run_batch(const codec &code, const batch_options &options, const batch_source &source,
              const answering &give);

// The JSON object, without a newline, of the answer for a value of the command line.
std::string json_line(size_t number, std::string_view input, const answer &given);

// The message that names a value of the command line: "VALUE 2, x, is not a number".
std::string value_name(size_t number);

} // namespace kovacli
