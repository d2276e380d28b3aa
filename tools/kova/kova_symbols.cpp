// kova symbols: text as the symbolic names of its characters, and back.
#include <algorithm>
#include <cctype>
#include <cstdio>

#include "kova/kova_cli.h"
#include "kova/kova_io.h"
#include "kova/kova_locale.h"
#include "kova/kova_text.h"

namespace kovacli {

namespace {

constexpr size_t piece_bytes = size_t{1} << 14;
constexpr size_t symbol_room = 160;    // of one character: a name of 80 bytes, each escaped
constexpr size_t longest_symbol = 512; // in an input; anything longer is not a symbol

struct charmap {
    ko_cm_t cm = nullptr;
    charmap() = default;
    charmap(const charmap &) = delete;
    ~charmap() { ko_cm_unload(cm); }
};

int error_of(const charmap &map) { return static_cast<const gen_exports *>(map.cm)->ko_lerrno; }

void open_charmap(const std::string &code_set, charmap &map) {
    refuse_path("code set", code_set);
    if (ko_cm_load(&map.cm, code_set.c_str(), nullptr, nullptr) == 0) return;
    const int error = error_of(map);
    const std::string what = "code set " + code_set + ": ";
    if (error == KO_EFILE)
        throw failure(bad_locale, what +
                                      "there is no charmap object; compile one with \"kovac "
                                      "charmap " +
                                      code_set + " -o ROOT\"");
    throw failure(bad_locale,
                  what + (error == KO_ENOMEM ? "memory is exhausted"
                                             : "the charmap object is damaged; compile it again"));
}

// ---- text to symbols ----

// The bytes of the first symbol in a text, its ">" included; 0 if it is cut off.
size_t symbol_length(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\') {
            ++i;
        } else if (text[i] == '>' || text[0] != '<') {
            return i + 1;
        }
    }
    return 0;
}

// Ends a line of the output wherever a line of the text ends.
void write_symbols(std::string_view symbols, output &out, uint64_t &line) {
    std::string lines;
    for (size_t at = 0, len; at < symbols.size(); at += len) {
        len = std::max<size_t>(symbol_length(symbols.substr(at)), 1);
        const std::string_view symbol = symbols.substr(at, len);
        lines += symbol;
        if (symbol != "<newline>" && symbol != "<LF>" && symbol != "<U000A>") continue;
        lines += '\n';
        ++line;
    }
    write(out, lines);
}

failure bad_bytes(const input &in, const charmap &map, uint64_t line, int error) {
    const size_t left = std::min<size_t>(in.fill - in.at, 4);
    const std::string_view bytes(reinterpret_cast<const char *>(&in.block[in.at]), left);
    const char *why = error == KO_EINVAL      ? "the text ends inside a character: "
                      : error == KO_ENOSYMBOL ? "a character without a name: "
                                              : "bytes that are not a character: ";
    return failure(bad_text, in.name + ":" + std::to_string(line) + ": byte offset " +
                                 std::to_string(in.offset) + ": " + why + hex(bytes, " ") +
                                 " (code set " + ko_cm_csname(map.cm) + ")");
}

void encode_file(const charmap &map, const std::string &path, output &out) {
    input in;
    open(in, path);
    uint64_t line = 1;
    std::string symbols;
    while (in.at < in.fill || more(in)) {
        const size_t len = std::min(in.fill - in.at, piece_bytes);
        const ko_mchar_t *const text = &in.block[in.at], *at = text;
        symbols.resize(len * symbol_room + 1);
        const int count = ko_mbstosyms(map.cm, symbols.data(), int(symbols.size()), &at, int(len));
        const int error = count < 0 ? error_of(map) : KO_OK;
        symbols.resize(symbols.find('\0'));
        write_symbols(symbols, out, line);
        take(in, size_t(at - text));
        const bool cut = error == KO_EINVAL && (in.fill - in.at > 4 || more(in));
        if (error && !cut) throw bad_bytes(in, map, line, error);
    }
}

// ---- symbols to text ----

struct place {
    uint64_t line = 1, column = 1;
};

failure bad_symbol(const input &in, const place &where, const std::string &symbol, int error) {
    std::string shown;
    for (char c : symbol.substr(0, 72))
        shown += uint8_t(c) < ' ' || c == 0x7F ? '?' : c;
    return failure(bad_text,
                   in.name + ":" + std::to_string(where.line) + ":" + std::to_string(where.column) +
                       ": " +
                       (error == KO_ENOSYMBOL ? "the code set has no character "
                                              : "a symbol such as <A> is expected, not ") +
                       shown);
}

void decode_file(const charmap &map, const std::string &path, output &out) {
    input in;
    open(in, path);
    place where;
    const int terminator = std::max(ko_mb_cm_min(map.cm), 1);
    while (in.at < in.fill || more(in)) {
        const std::string_view text(reinterpret_cast<const char *>(&in.block[in.at]),
                                    in.fill - in.at);
        if (std::isspace(uint8_t(text[0]))) {
            where =
                text[0] == '\n' ? place{where.line + 1, 1} : place{where.line, where.column + 1};
            take(in, 1);
            continue;
        }
        size_t len = symbol_length(text.substr(0, longest_symbol));
        if (len == 0 && text.size() < longest_symbol && more(in)) continue;
        if (len == 0) len = std::min(text.size(), longest_symbol);
        const std::string symbol(text.substr(0, len));
        const char *at = symbol.c_str();
        ko_mchar_t bytes[16];
        const int count = ko_symstombs(map.cm, bytes, sizeof bytes, &at);
        const bool whole = count >= 0 && at == symbol.c_str() + len;
        if (!whole) throw bad_symbol(in, where, symbol, count < 0 ? error_of(map) : KO_EILSEQ);
        write(out, bytes, size_t(count - terminator));
        where.column += len;
        take(in, len);
    }
}

} // namespace

int run_symbols(const common_options &common, const symbols_options &options) {
    find_data(common, data_kind::charmaps);
    charmap map;
    open_charmap(options.code_set, map);
    output out;
    open(out, options.out);
    const auto run_file = options.decode ? decode_file : encode_file;
    for (const std::string &path : inputs_of(options.files))
        run_file(map, path, out);
    finish(out);
    return done;
}

} // namespace kovacli
