// Loads transliteration tables and finds spellings in them.
#include "kovac/kovac_translit.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <string>
#include <system_error>

namespace kovac {
namespace {

constexpr int include_depth = 8;

struct loader {
    translit *tables;
    const charmap *map;
    diagnostics quiet{.max_errors = 0}; // a broken table only means that a spelling is missing
    std::set<std::string> seen;         // sources read so far
};

} // namespace

static std::vector<uint32_t> codes_of(const charmap &map, const token &t) {
    if (t.kind == tok::string) return string_codes(map, t, nullptr);
    const uint32_t code = token_code(map, t);
    return code == no_code ? std::vector<uint32_t>() : std::vector<uint32_t>{code};
}

// Reads <from> <to>;"<to><to>";... The first table that has a character takes precedence.
static void read_entry(loader &ld, const std::vector<token> &line) {
    const std::vector<uint32_t> from = codes_of(*ld.map, line[0]);
    if (from.size() != 1 || ld.tables->spellings.count(from[0])) return;
    std::vector<std::vector<uint32_t>> &to = ld.tables->spellings[from[0]];
    for (size_t i = 1; i < line.size(); ++i) {
        if (line[i].kind == tok::semicolon) continue;
        to.push_back(codes_of(*ld.map, line[i]));
        if (to.back().empty() && line[i].kind != tok::string) to.pop_back();
    }
}

static void read_table(loader &ld, std::string_view name, int depth) {
    if (depth > include_depth || (depth > 0 && names_a_path(name)) ||
        !ld.seen.insert(std::string(name)).second)
        return;
    const source_file *file = load_source(ld.tables->set, ld.quiet, name, {});
    if (!file && has_source(ld.tables->set, name))
        throw std::system_error(EIO, std::generic_category(), "cannot read " + std::string(name));
    if (!file) return;
    lexer lex = open_lexer(*file, ld.quiet);
    if (!seek_category(lex, "LC_CTYPE")) return;
    std::vector<token> line;
    bool inside = false;
    while (next_line(lex, "LC_CTYPE", line, nullptr)) {
        const bool named = line.size() > 1 && line[1].kind == tok::string;
        if (is_word(line[0], "translit_start")) {
            inside = true;
        } else if (is_word(line[0], "translit_end")) {
            inside = false;
        } else if (is_word(line[0], inside ? "include" : "copy") && named) {
            read_table(ld, line[1].text, depth + 1);
        } else if (inside) {
            read_entry(ld, line);
        }
    }
}

// Loads the source's own table first, then the neutral ones to which most sources refer.
static void load_tables(translit &tables, const charmap &map) {
    static constexpr const char *neutral[] = {"translit_neutral", "translit_combining"};
    load_spellings(tables, map, neutral);
}

void load_spellings(translit &tables, const charmap &map, std::span<const char *const> names) {
    tables.loaded = true;
    loader ld{.tables = &tables, .map = &map};
    if (tables.set.main) read_table(ld, tables.set.main->path, 0);
    for (const char *const name : names)
        read_table(ld, name, 0);
}

const std::vector<uint32_t> *spell(translit &tables, const charmap &map, uint32_t code) {
    if (!tables.loaded) load_tables(tables, map);
    const auto found = tables.spellings.find(code);
    if (found == tables.spellings.end()) return nullptr;
    for (const std::vector<uint32_t> &way : found->second) {
        const bool fits = std::all_of(way.begin(), way.end(),
                                      [&map](uint32_t c) { return find_code(map, c) != nullptr; });
        if (fits) return &way;
    }
    return nullptr;
}

} // namespace kovac
