// Locale sources: finding and loading them, positions and diagnostics, and the lexer that turns
// their text into tokens and logical lines. Everything that reads a source starts here.
#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kovac {

// One source in memory. Tokens point into it; it lives as long as its source_set.
struct source_file {
    std::string path;                     // where it was found
    std::string name;                     // base name, which locale objects mention
    std::string text;                     // whole content
    mutable std::deque<std::string> pool; // symbol names that had to be unescaped
};

// Reads a whole file, unpacking gzip. False if it cannot be read or is larger than 16 MB.
bool read_whole(const std::string &path, std::string &text);

// The path of a name: the name itself if it contains a slash, else that in the first of dirs that
// has it (also with ".gz"), else that in the working directory. Empty if there is none.
std::string find_file(const std::vector<std::string> &dirs, std::string_view name);

// A place in a source. Line and column are counted only when a diagnostic is printed.
struct position {
    const source_file *file = nullptr; // null: the diagnostic has no place
    uint32_t offset = 0;               // bytes from the start of the text
};

// Prints "file:line:col: error: text", the source line and a caret.
struct diagnostics {
    std::string *sink = nullptr; // collects the text instead of standard error (tests)
    bool colour = false;         // colours severity and caret
    bool verbose = false;        // prints notes too
    int max_errors = 20;         // further errors are counted, not printed
    int errors = 0;
    int warnings = 0;
};

// Formats text like printf. On Windows the compiler must be told which printf is meant.
#if defined(__MINGW_PRINTF_FORMAT)
#define KOVAC_PRINTF __MINGW_PRINTF_FORMAT
#else
#define KOVAC_PRINTF printf
#endif
std::string format(const char *fmt, ...) __attribute__((format(KOVAC_PRINTF, 1, 2)));

void error(diagnostics &diag, position pos, const std::string &text);
void warning(diagnostics &diag, position pos, const std::string &text);
void note(diagnostics &diag, position pos, const std::string &text); // only when verbose

// Line and column, both from 1; a column counts bytes.
struct line_column {
    int line, column;
};
line_column locate(position pos);

// The sources of one compilation: the main one and all that it copies from.
struct source_set {
    std::vector<std::string> dirs; // searched in order for a bare name
    std::map<std::string, std::unique_ptr<source_file>, std::less<>> files; // by the name asked for
    const source_file *main = nullptr;                                      // set by the caller
    std::map<std::string, std::string_view, std::less<>> own; // texts for names that no dir has
};

// Is there a source of this name or path?
bool has_source(const source_set &set, std::string_view name);

// The source of a name or path, loaded once. Null after an error, which is reported at from.
const source_file *load_source(source_set &set, diagnostics &diag, std::string_view name,
                               position from);

// The code point at text[i]; i moves to its last byte. A byte that is not UTF-8 stands for itself.
uint32_t utf8_code(std::string_view text, size_t &i);

enum class tok : uint8_t {
    end_file,
    end_line, // end of a logical line; blank and comment lines produce none
    word,     // keyword or bare text: letters, digits, "_", "-", ...
    symbol,   // <...>, or a raw character outside ASCII
    string,   // "..."
    number,   // decimal, may be negative
    bytes,    // /x41, /d065, /101 and runs of them: one character given by its bytes
    semicolon,
    comma,
    open,  // (
    close, // )
    ellipsis,
    bad, // not a token; an error has been reported
};

constexpr uint32_t no_code = 0xFFFFFFFF;

int hex_value(char digit); // -1 for other characters

// The code point of a name from Uxxxx to Uxxxxxxxx, at most 7FFFFFFF; no_code for any other name.
uint32_t symbol_code(std::string_view name);

struct token {
    tok kind = tok::end_file;
    uint8_t dots = 0;      // ellipsis: 2 ".." hexadecimal, 3 "..." code order, 4 "...." decimal
                           // bytes: how many (1 to 4)
    uint32_t value = 0;    // symbol <Uxxxx> or <Uxxxxxxxx>: the code point, else no_code
                           // number: the value (as int32_t); bytes: the value, big-endian
                           // ellipsis: the step, 1 unless written ..(2)..
                           // string: the escape character in force
    std::string_view text; // word; symbol without <> and unescaped; string: raw text inside ""
    position pos;          // first byte of the token
};

// A lexer for one source. Copy it to remember a place.
struct lexer {
    const source_file *file = nullptr;
    diagnostics *diag = nullptr;
    uint32_t at = 0;
    char escape = '\\';
    char comment = '#';
    bool line_open = false; // a token of the current logical line was returned
};

lexer open_lexer(const source_file &file, diagnostics &diag);

// The next token. comment_char and escape_char lines take effect and are not returned.
token next_token(lexer &lex);

// Moves past the line that opens a category ("LC_COLLATE"). False if the source has none.
bool seek_category(lexer &lex, std::string_view category);

// Reads one logical line without its end_line token. False at "END <category>", which is consumed,
// and at the end of the file; line is then empty. *ended (may be null) tells whether END was seen.
bool next_line(lexer &lex, std::string_view category, std::vector<token> &line, bool *ended);

bool is_word(const token &t, std::string_view text);

// Is a name a path? A source may name other sources, but not say where they are.
bool names_a_path(std::string_view name);

// How many copies may still be made. Where sources copy others several times each, the number of
// copies grows exponentially with their depth.
struct copy_budget {
    int left = 256;
};
// May a copy line be followed? depth counts the copies around it. Reports an error if not.
bool may_copy(copy_budget &budget, int depth, diagnostics &diag, position pos);

// Opens the category that a copy line names in lex. False after an error. copy_token is the string
// after "copy".
bool open_copy(source_set &set, diagnostics &diag, const token &copy_token,
               std::string_view category, lexer &lex);

} // namespace kovac
