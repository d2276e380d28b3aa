// Locale sources: files, diagnostics, the lexer, and copies of categories.
#include "common/tool_source.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>
#include <unistd.h>

#include "common/tool_path.h"
#include "common/tool_text.h"

namespace kovac {

// ---- text, files ----

std::string format(const char *fmt, ...) {
    char small[512];
    va_list args, again;
    va_start(args, fmt);
    va_copy(again, args);
    const int len = vsnprintf(small, sizeof small, fmt, args);
    va_end(args);
    std::string text(small, len < 0 ? 0 : std::min(size_t(len), sizeof small - 1));
    if (len >= int(sizeof small)) {
        text.resize(size_t(len) + 1);
        vsnprintf(text.data(), text.size(), fmt, again);
        text.pop_back();
    }
    va_end(again);
    return text;
}

bool read_whole(const std::string &path, std::string &text) {
    constexpr size_t limit = size_t(16) << 20;
    constexpr unsigned step = 1 << 18;
    errno = 0;
    gzFile in = gzopen(path.c_str(), "rb");
    if (!in && errno == ENOMEM) throw std::bad_alloc();
    if (!in) return false;
    gzbuffer(in, step);
    text.clear();
    int got = 0, error = Z_OK;
    do {
        const size_t old = text.size();
        text.resize(old + step);
        got = gzread(in, text.data() + old, step);
        text.resize(old + size_t(std::max(got, 0)));
    } while (got > 0 && text.size() <= limit);
    gzerror(in, &error);
    const int closed = gzclose(in);
    if (error == Z_MEM_ERROR) throw std::bad_alloc();
    return got >= 0 && closed == Z_OK && text.size() <= limit;
}

// Throws for a fault of the system: in place of this file another might be found.
static void refuse_fault(const std::string &path, const std::error_code &error) {
    if (kovatool::is_fault(error)) throw std::system_error(error, "cannot read " + path);
}

static bool is_readable(const std::string &path) {
    if (access(path.c_str(), R_OK) == 0) return true;
    refuse_fault(path, {errno, std::generic_category()});
    return false;
}

std::string find_file(const std::vector<std::string> &dirs, std::string_view name) {
    if (name.empty()) return {};
    std::string own(name);
    if (own.find('/') == std::string::npos) {
        for (const std::string &dir : dirs) {
            for (const char *suffix : {"", ".gz"}) {
                std::string path = dir + "/" + own + suffix;
                std::error_code error; // a pipe or device would never end
                const bool is_file = std::filesystem::is_regular_file(path, error);
                refuse_fault(path, error);
                if (is_file && is_readable(path)) return path;
            }
        }
    }
    return is_readable(own) ? own : std::string();
}

bool has_source(const source_set &set, std::string_view name) {
    return !find_file(set.dirs, name).empty() || set.own.contains(name);
}

const source_file *load_source(source_set &set, diagnostics &diag, std::string_view name,
                               position from) {
    if (auto found = set.files.find(name); found != set.files.end()) return found->second.get();
    auto file = std::make_unique<source_file>();
    file->path = find_file(set.dirs, name);
    if (const auto own = set.own.find(name); file->path.empty() && own != set.own.end()) {
        file->path = own->first;
        file->text = own->second;
    } else if (file->path.empty()) {
        std::string where;
        for (const std::string &dir : set.dirs)
            where += (where.empty() ? "" : ", ") + dir;
        error(diag, from,
              format("no locale source \"%s\"; searched %s", std::string(name).c_str(),
                     where.empty() ? "nowhere" : where.c_str()));
        return nullptr;
    } else if (!read_whole(file->path, file->text)) {
        error(diag, from, format("cannot read locale source %s", file->path.c_str()));
        return nullptr;
    }
    file->name = file->path.substr(file->path.rfind('/') + 1);
    return set.files.emplace(name, std::move(file)).first->second.get();
}

// ---- diagnostics ----

line_column locate(position pos) {
    line_column at{1, 1};
    if (!pos.file) return at;
    const std::string &text = pos.file->text;
    const size_t end = std::min<size_t>(pos.offset, text.size());
    size_t line_start = 0;
    for (size_t i = 0; i < end; ++i) {
        if (text[i] != '\n') continue;
        ++at.line;
        line_start = i + 1;
    }
    at.column = int(end - line_start) + 1;
    return at;
}

// The line of pos and, below it, a caret under its column; tabs are kept so that the two align.
static std::string excerpt(position pos, const char *caret) {
    const std::string &text = pos.file->text;
    const size_t at = std::min<size_t>(pos.offset, text.size());
    size_t start = at, end = at;
    while (start > 0 && text[start - 1] != '\n')
        --start;
    while (end < text.size() && text[end] != '\n' && text[end] != '\r')
        ++end;
    constexpr size_t widest = 240; // bytes shown of a very long line
    if (at - start > widest) return {};
    const std::string_view line = std::string_view(text).substr(start, end - start);
    const std::string front = kovatool::printable(line.substr(0, at - start), "\t");
    const std::string rest =
        kovatool::printable(line.substr(at - start, widest - (at - start)), "\t");
    std::string out = "    " + front + rest + "\n    ";
    for (const char c : front)
        out += c == '\t' ? '\t' : ' ';
    return out + caret + "\n";
}

static void report(diagnostics &diag, const char *severity, const char *colour, position pos,
                   const std::string &text) {
    std::string out;
    if (pos.file) {
        const line_column at = locate(pos);
        out = format("%s:%d:%d: ", kovatool::printable(pos.file->path).c_str(), at.line, at.column);
    } else {
        out = "kovac: ";
    }
    if (diag.colour) {
        out += format("\033[1;%sm%s:\033[0m ", colour, severity);
    } else {
        out += format("%s: ", severity);
    }
    out += kovatool::printable(text) + "\n";
    if (pos.file) out += excerpt(pos, diag.colour ? "\033[1;32m^\033[0m" : "^");
    if (diag.sink) {
        *diag.sink += out;
    } else {
        fputs(out.c_str(), stderr);
    }
}

void error(diagnostics &diag, position pos, const std::string &text) {
    if (++diag.errors <= diag.max_errors) report(diag, "error", "31", pos, text);
}

void warning(diagnostics &diag, position pos, const std::string &text) {
    if (++diag.warnings <= diag.max_errors) report(diag, "warning", "35", pos, text);
}

void note(diagnostics &diag, position pos, const std::string &text) {
    if (diag.verbose) report(diag, "note", "36", pos, text);
}

// ---- lexer ----

static bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v';
}
static bool is_digit(char c) { return c >= '0' && c <= '9'; }

static bool is_word_char(char c) {
    return is_digit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
           c == '-' || c == '+' || c == ':' || c == '@';
}

int hex_value(char c) {
    if (is_digit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

uint32_t utf8_code(std::string_view text, size_t &i) {
    const auto byte = [&text](size_t at) { return uint8_t(text[at]); };
    const uint32_t lead = byte(i);
    const size_t more = lead < 0xC2 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : lead < 0xF5 ? 3 : 0;
    if (more == 0 || text.size() - i <= more) return lead;
    uint32_t code = lead & (0x3Fu >> more);
    for (size_t k = 1; k <= more; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) return lead;
        code = code << 6 | (byte(i + k) & 0x3Fu);
    }
    i += more;
    return code;
}

lexer open_lexer(const source_file &file, diagnostics &diag) {
    lexer lex;
    lex.file = &file;
    lex.diag = &diag;
    if (file.text.starts_with("\xEF\xBB\xBF")) lex.at = 3; // a byte-order mark is not a token
    return lex;
}

static char char_at(const lexer &lex, size_t at) {
    return at < lex.file->text.size() ? lex.file->text[at] : '\0';
}

// Bytes of an escaped newline at a place (escape, optional return, newline); 0 if there is none.
static uint32_t continuation(const lexer &lex, size_t at) {
    if (char_at(lex, at) != lex.escape || at >= lex.file->text.size()) return 0;
    if (char_at(lex, at + 1) == '\n') return 2;
    return char_at(lex, at + 1) == '\r' && char_at(lex, at + 2) == '\n' ? 3 : 0;
}

static bool first_on_line(const lexer &lex, size_t at) {
    while (at > 0 && is_blank(lex.file->text[at - 1]))
        --at;
    return at == 0 || lex.file->text[at - 1] == '\n';
}

static void skip_to_newline(lexer &lex) {
    const size_t end = lex.file->text.find('\n', lex.at);
    lex.at = uint32_t(end == std::string::npos ? lex.file->text.size() : end);
}

// Moves to the next byte that belongs to a token or ends a line. A comment on a line of its own
// disappears completely, so that it does not split a continued line; one after tokens may end in
// the escape character, which continues the line.
static void skip_blank(lexer &lex) {
    const std::string &text = lex.file->text;
    while (lex.at < text.size()) {
        const char c = text[lex.at];
        if (is_blank(c)) {
            ++lex.at;
        } else if (c == lex.comment) {
            const bool whole_line = first_on_line(lex, lex.at);
            skip_to_newline(lex);
            const bool continued = text[lex.at - 1] == lex.escape;
            if ((whole_line || continued) && lex.at < text.size()) ++lex.at;
        } else if (const uint32_t skipped = continuation(lex, lex.at)) {
            lex.at += skipped;
        } else {
            return;
        }
    }
}

static token make_token(const lexer &lex, tok kind, uint32_t start) {
    token t;
    t.kind = kind;
    t.pos = {lex.file, start};
    t.text = std::string_view(lex.file->text).substr(start, lex.at - start);
    return t;
}

static token bad_token(lexer &lex, uint32_t start, const std::string &why) {
    error(*lex.diag, {lex.file, start}, why);
    return make_token(lex, tok::bad, start);
}

uint32_t symbol_code(std::string_view name) {
    if (name.size() < 5 || name.size() > 9 || name[0] != 'U') return no_code;
    uint32_t code = 0;
    for (char c : name.substr(1)) {
        const int digit = hex_value(c);
        if (digit < 0) return no_code;
        code = code << 4 | uint32_t(digit);
    }
    return code <= 0x7FFFFFFF ? code : no_code;
}

static token symbol_token(lexer &lex) {
    const std::string &text = lex.file->text;
    const uint32_t start = lex.at;
    bool escaped = false;
    uint32_t end = start + 1;
    while (end < text.size() && text[end] != '>' && text[end] != '\n') {
        if (text[end] == lex.escape && end + 1 < text.size() && text[end + 1] != '\n') {
            escaped = true;
            ++end;
        }
        ++end;
    }
    if (end >= text.size() || text[end] != '>') {
        skip_to_newline(lex);
        return bad_token(lex, start, "symbol without its closing \">\"");
    }
    lex.at = end + 1;
    token t = make_token(lex, tok::symbol, start);
    t.text = t.text.substr(1, t.text.size() - 2);
    if (t.text.empty()) return bad_token(lex, start, "empty symbol name \"<>\"");
    if (escaped) {
        std::string plain;
        for (size_t i = 0; i < t.text.size(); ++i) {
            if (t.text[i] == lex.escape && i + 1 < t.text.size()) ++i;
            plain += t.text[i];
        }
        t.text = lex.file->pool.emplace_back(std::move(plain));
    }
    t.value = symbol_code(t.text);
    return t;
}

static token string_token(lexer &lex) {
    const std::string &text = lex.file->text;
    const uint32_t start = lex.at;
    uint32_t end = start + 1;
    while (end < text.size() && text[end] != '"' && text[end] != '\n') {
        if (const uint32_t skipped = continuation(lex, end)) {
            end += skipped;
        } else {
            end += text[end] == lex.escape && end + 1 < text.size() ? 2u : 1u;
        }
    }
    if (end >= text.size() || text[end] != '"') {
        lex.at = uint32_t(std::min<size_t>(end, text.size()));
        return bad_token(lex, start, "string without its closing quotation mark");
    }
    lex.at = end + 1;
    token t = make_token(lex, tok::string, start);
    t.text = t.text.substr(1, t.text.size() - 2);
    t.value = uint8_t(lex.escape);
    return t;
}

static token ellipsis_token(lexer &lex) {
    const uint32_t start = lex.at;
    uint32_t dots = 0;
    while (char_at(lex, lex.at) == '.')
        ++dots, ++lex.at;
    uint32_t step = 1;
    if (dots == 2 && char_at(lex, lex.at) == '(') {
        step = 0;
        for (++lex.at; is_digit(char_at(lex, lex.at)) && step < 0x10000; ++lex.at) {
            step = step * 10 + uint32_t(char_at(lex, lex.at) - '0');
        }
        if (step == 0 || char_at(lex, lex.at) != ')' || char_at(lex, lex.at + 1) != '.' ||
            char_at(lex, lex.at + 2) != '.') {
            return bad_token(lex, start, "ellipsis with a step is written \"..(2)..\"");
        }
        lex.at += 3;
    }
    if (dots < 2 || dots > 4)
        return bad_token(lex, start, "an ellipsis has two, three or four dots");
    token t = make_token(lex, tok::ellipsis, start);
    t.dots = uint8_t(dots);
    t.value = step;
    return t;
}

// Reads one escaped byte at a place: /x41, /d065 or /101. Returns the bytes of text taken, 0 if
// there is none.
static uint32_t escaped_byte(std::string_view text, size_t at, char escape, uint32_t &byte) {
    if (at + 1 >= text.size() || text[at] != escape) return 0;
    const char radix = text[at + 1];
    const uint32_t base = radix == 'x' ? 16 : radix == 'd' ? 10 : 8;
    const size_t first = at + (base == 8 ? 1 : 2), most = base == 16 ? 2 : 3;
    size_t i = first;
    byte = 0;
    for (; i < text.size() && i < first + most; ++i) {
        const int digit = hex_value(text[i]);
        if (digit < 0 || uint32_t(digit) >= base) break;
        byte = byte * base + uint32_t(digit);
    }
    return i - first >= 2 && byte <= 0xFF ? uint32_t(i - at) : 0;
}

static token bytes_token(lexer &lex) {
    const uint32_t start = lex.at;
    uint32_t value = 0, byte = 0;
    uint8_t count = 0;
    while (const uint32_t taken = escaped_byte(lex.file->text, lex.at, lex.escape, byte)) {
        lex.at += taken;
        if (++count > 4) return bad_token(lex, start, "a character has at most four bytes");
        value = value << 8 | byte;
    }
    if (count == 0) {
        lex.at += 2; // an escaped plain character stands for itself
        lex.at = uint32_t(std::min<size_t>(lex.at, lex.file->text.size()));
        token t = make_token(lex, tok::word, start);
        t.text.remove_prefix(1);
        return t;
    }
    token t = make_token(lex, tok::bytes, start);
    t.dots = count;
    t.value = value;
    return t;
}

static token word_token(lexer &lex) {
    const uint32_t start = lex.at;
    while (is_word_char(char_at(lex, lex.at)))
        ++lex.at;
    if (lex.at == start) ++lex.at; // a single punctuation mark is a word
    token t = make_token(lex, tok::word, start);
    const size_t sign = t.text[0] == '-' || t.text[0] == '+' ? 1 : 0;
    const bool digits = t.text.size() > sign && t.text.size() <= sign + 18 &&
                        std::all_of(t.text.begin() + long(sign), t.text.end(), is_digit);
    if (!digits) return t;
    t.kind = tok::number;
    int64_t value = 0;
    for (char c : t.text.substr(sign))
        value = std::min<int64_t>(value * 10 + (c - '0'), INT32_MAX);
    t.value = uint32_t(int32_t(t.text[0] == '-' ? -value : value));
    return t;
}

// A raw UTF-8 character stands for its code point, like <Uxxxx>.
static token raw_token(lexer &lex) {
    const uint32_t start = lex.at;
    size_t last = start;
    const uint32_t code = utf8_code(lex.file->text, last);
    lex.at = uint32_t(last + 1);
    token t = make_token(lex, tok::symbol, start);
    t.value = code;
    return t;
}

static token plain_token(lexer &lex) {
    const uint32_t start = lex.at;
    const char c = lex.file->text[start];
    static constexpr struct {
        char mark;
        tok kind;
    } marks[] = {
        {';', tok::semicolon},
        {',', tok::comma    },
        {'(', tok::open     },
        {')', tok::close    }
    };
    for (const auto &m : marks) {
        if (c != m.mark) continue;
        ++lex.at;
        return make_token(lex, m.kind, start);
    }
    if (c == '<') return symbol_token(lex);
    if (c == '"') return string_token(lex);
    if (c == '.') return ellipsis_token(lex);
    if (c == lex.escape) return bytes_token(lex);
    if (uint8_t(c) >= 0x80) return raw_token(lex);
    return word_token(lex);
}

// Obeys a comment_char or escape_char line, which names one character, whatever it is.
static bool obey_setting(lexer &lex, const token &t) {
    const bool comment = t.text == "comment_char", escape = t.text == "escape_char";
    if (!comment && !escape) return false;
    while (is_blank(char_at(lex, lex.at)))
        ++lex.at;
    const char c = char_at(lex, lex.at);
    if (c == '\0' || c == '\n') {
        error(*lex.diag, t.pos, format("%s names no character", std::string(t.text).c_str()));
    } else {
        (comment ? lex.comment : lex.escape) = c;
    }
    skip_to_newline(lex);
    return true;
}

token next_token(lexer &lex) {
    for (;;) {
        skip_blank(lex);
        const uint32_t start = lex.at;
        const std::string &text = lex.file->text;
        if (start >= text.size()) {
            const tok kind = lex.line_open ? tok::end_line : tok::end_file;
            lex.line_open = false;
            return make_token(lex, kind, start);
        }
        if (text[start] == '\n') {
            ++lex.at;
            if (!lex.line_open) continue;
            lex.line_open = false;
            token t = make_token(lex, tok::end_line, start);
            return t;
        }
        const token t = plain_token(lex);
        if (!lex.line_open && t.kind == tok::word && obey_setting(lex, t)) continue;
        lex.line_open = true;
        return t;
    }
}

bool is_word(const token &t, std::string_view text) {
    return t.kind == tok::word && t.text == text;
}

// Moves past the current logical line without examining it.
static void skip_line(lexer &lex) {
    const std::string &text = lex.file->text;
    while (lex.at < text.size()) {
        skip_to_newline(lex);
        size_t last = lex.at;
        if (last > 0 && text[last - 1] == '\r') --last;
        const bool continued = last > 0 && text[last - 1] == lex.escape;
        if (lex.at < text.size()) ++lex.at;
        if (!continued) break;
    }
    lex.line_open = false;
}

bool seek_category(lexer &lex, std::string_view category) {
    for (;;) {
        skip_blank(lex);
        const uint32_t start = lex.at;
        if (start >= lex.file->text.size()) return false;
        // Only lines that begin like a category or a setting are worth lexing.
        const char c = lex.file->text[start];
        if (c == 'L' || c == 'c' || c == 'e') {
            lexer probe = lex;
            const token t = word_token(probe);
            if (t.text == "comment_char" || t.text == "escape_char") {
                lex = probe;
                obey_setting(lex, t);
                // "escape_char /" ends in the escape character but does not continue the line.
                if (lex.at < lex.file->text.size()) ++lex.at;
                continue;
            }
            if (t.text == category) {
                skip_line(lex);
                return true;
            }
        }
        skip_line(lex);
    }
}

bool next_line(lexer &lex, std::string_view category, std::vector<token> &line, bool *ended) {
    line.clear();
    if (ended) *ended = false;
    for (;;) {
        const token t = next_token(lex);
        if (t.kind == tok::end_file) return false;
        if (t.kind == tok::end_line) break;
        line.push_back(t);
    }
    if (!is_word(line[0], "END")) return true;
    if (line.size() < 2 || !is_word(line[1], category)) {
        error(*lex.diag, line[0].pos,
              format("END of another category inside %s", std::string(category).c_str()));
    } else if (ended) {
        *ended = true;
    }
    line.clear();
    return false;
}

bool may_copy(copy_budget &budget, int depth, diagnostics &diag, position pos) {
    constexpr int most_depth = 16;
    if (depth < most_depth && budget.left > 0) {
        --budget.left;
        return true;
    }
    error(diag, pos,
          depth < most_depth ? "more than 256 copies in one category; remove some"
                             : "sources copy one another endlessly; remove a copy line");
    return false;
}

bool names_a_path(std::string_view name) {
    return name.find_first_of("/\\") != std::string_view::npos;
}

bool open_copy(source_set &set, diagnostics &diag, const token &copy_token,
               std::string_view category, lexer &lex) {
    if (copy_token.kind != tok::string || copy_token.text.empty()) {
        error(diag, copy_token.pos, "copy needs the name of a locale source in quotation marks");
        return false;
    }
    if (names_a_path(copy_token.text)) {
        error(diag, copy_token.pos,
              "a source copies others by name, not by path; write the name alone and put the "
              "source beside this one or into $I18NPATH");
        return false;
    }
    const source_file *file = load_source(set, diag, copy_token.text, copy_token.pos);
    if (!file) return false;
    lex = open_lexer(*file, diag);
    const int errors = diag.errors;
    if (seek_category(lex, category)) return true;
    if (diag.errors > errors) return false;
    error(diag, copy_token.pos,
          format("%s has no %s to copy", file->path.c_str(), std::string(category).c_str()));
    return false;
}

} // namespace kovac
