// What the commands that take formats share: the directives of a format, values as arguments, and
// messages that point at the directive that fails.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "kova/kova_batch.h"
#include "kova/kova_cli.h"
#include "kova/kova_digits.h"
#include "kova/kova_text.h"

namespace kovacli {

// One directive of a format. "%%" is not a directive.
struct format_directive {
    size_t start = 0;      // of the "%", in characters
    size_t end = 0;        // after the conversion; the format's end if it has none
    std::string modifiers; // everything between, in ASCII; "?" for other characters
    char conversion = 0;   // 0: none
};

// The characters that may come before width and precision ("=" includes the next character), those
// between them and the conversion, and the conversions that a digit may follow.
struct format_grammar {
    std::string flags, sizes, numbered;
};

struct format_text {
    std::vector<ko_wchar_t> wide; // with its terminator
    std::vector<format_directive> directives;
};

// Decodes a format argument and finds its directives. If arguments are bytes of a code set, the
// mapping must have been added. Throws failure.
format_text decode_format(const codec &code, const std::string &text,
                          const format_grammar &grammar);
format_text split_format(const codec &code, std::vector<ko_wchar_t> wide,
                         const format_grammar &grammar);

// The directives of times.
format_grammar time_grammar();

// The end of the longest beginning of a format with which a call still succeeds.
size_t longest_working(const format_text &format,
                       const std::function<bool(const ko_wchar_t *front)> &works);

// Ends the command with the reason, the directive or character at a place, and a line that marks
// it.
[[noreturn]] void fail_in_format(const codec &code, const format_text &format, size_t place,
                                 int status, const std::string &why);

// Refuses a format with more directives than this, and values whose number is not a multiple of
// that of the directives.
constexpr size_t directives_max = 16;
void check_counts(const format_text &format, const std::vector<std::string> &values);

// The number that a whole value argument consists of. what names it in messages. Throws failure.
double decimal_value(const std::string &text, const std::string &what);

// The shortest digits that denote the value, with an exponent if it is huge or tiny.
std::string shortest_digits(double value);

// Gets a result of unknown length: call writes into room for that many characters and a terminator,
// and returns how many it wrote, or -1 with the locale's error word set. False after an error other
// than KO_E2BIG.
bool written_text(ko_lc_t loc, const std::function<int(ko_wchar_t *out, int room)> &call,
                  std::vector<ko_wchar_t> &result);

struct format_job {
    locale_handle handle;
    codec code;
    format_text format;
    digit_set digits;
    const format_options *options = nullptr;
};

// What a command does with a format: refuse it whatever the values are, write a line for some
// values, or read the values from a text. first: of batch's answering.
struct format_command {
    format_grammar grammar;
    void (*check)(const format_job &job);
    std::string (*print)(const format_job &job, const std::vector<std::string> &values,
                         size_t first);
    answer (*parse)(const format_job &job, const std::string &text);
};
int run_format(const common_options &common, const format_options &options,
               const format_command &command);

} // namespace kovacli
