// Reads charmap files: characters and their ranges, settings and widths.
#include "common/tool_charmap.h"

#include <algorithm>

namespace kovac {
namespace {

// One line of a charmap while it is scanned.
struct scanner {
    source_file *file;
    diagnostics *diag;
    size_t at = 0, line_end = 0;
    char escape = '\\', comment = '#';
};

struct symbol {
    std::string_view name; // without <>
    uint32_t code = no_code;
    uint32_t offset = 0;
};

// The most lines, with those of ranges counted one by one: as many as there are code points, plus
// as many names as two bytes can number.
constexpr size_t most_lines = 0x120000;
constexpr size_t longest_name = 128;
constexpr unsigned widest = 100;

// A character's bytes, big-endian; the code sets supported here have at most four.
struct byte_seq {
    uint32_t value = 0;
    int len = 0;
};

struct width_rule {
    symbol from, to;
    uint8_t width;
};

struct reader {
    scanner in;
    charmap *map;
    std::unordered_map<uint32_t, uint32_t> by_bytes; // len << 16 | wide, to an index of chars
    std::vector<bool> firm; // for each of chars: its code came from a line without %IRREVERSIBLE%
    std::vector<width_rule> widths;
    std::unordered_map<uint32_t, bool> too_long; // codes of characters left out
    uint8_t default_width = 1;
    size_t lines_read = 0;
    uint32_t next_private = private_code;
    std::vector<charmap_line> *lines = nullptr;
};

// The last rule for a character counts, so rules are applied in reverse, each to the characters
// that no later rule has reached: every character is visited once, however many rules overlap.
struct width_painter {
    std::vector<charmap_char> &chars;
    std::vector<uint32_t> next; // the first character at or after this one without a width
    explicit width_painter(std::vector<charmap_char> &all) : chars(all), next(all.size() + 1) {
        for (uint32_t i = 0; i < next.size(); ++i)
            next[i] = i;
    }
};

} // namespace

static position here(const scanner &in, size_t offset) { return {in.file, uint32_t(offset)}; }

static bool fail(const scanner &in, size_t offset, const std::string &why) {
    error(*in.diag, here(in, offset), why);
    return false;
}

static void skip_blank(scanner &in) {
    const std::string &text = in.file->text;
    while (in.at < in.line_end && (text[in.at] == ' ' || text[in.at] == '\t'))
        ++in.at;
}

// Moves to the next line that is not empty; comments such as "%IRREVERSIBLE%" are kept.
static bool next_charmap_line(scanner &in) {
    const std::string &text = in.file->text;
    size_t at = in.line_end;
    while (at < text.size()) {
        if (text[at] == '\n') ++at;
        in.at = at;
        in.line_end = std::min(text.find('\n', at), text.size());
        at = in.line_end;
        if (in.line_end > in.at && text[in.line_end - 1] == '\r') --in.line_end;
        skip_blank(in);
        if (in.at == in.line_end) continue;
        const bool irreversible = text.compare(in.at, 14, "%IRREVERSIBLE%") == 0;
        if (text[in.at] == in.comment && !irreversible) continue;
        return true;
    }
    return false;
}

static std::string_view rest_of_line(const scanner &in) {
    return std::string_view(in.file->text).substr(in.at, in.line_end - in.at);
}

static bool take(scanner &in, std::string_view word) {
    if (!rest_of_line(in).starts_with(word)) return false;
    in.at += word.size();
    return true;
}

static std::string_view take_word(scanner &in) {
    skip_blank(in);
    const std::string &text = in.file->text;
    const size_t start = in.at;
    while (in.at < in.line_end && text[in.at] != ' ' && text[in.at] != '\t')
        ++in.at;
    return std::string_view(text).substr(start, in.at - start);
}

static bool take_number(scanner &in, unsigned &value) {
    const std::string_view word = take_word(in);
    value = 0;
    for (char c : word) {
        if (c < '0' || c > '9' || value > 100000) return false;
        value = value * 10 + unsigned(c - '0');
    }
    return !word.empty();
}

static bool take_symbol(scanner &in, symbol &sym) {
    const std::string &text = in.file->text;
    sym.offset = uint32_t(in.at);
    if (in.at >= in.line_end || text[in.at] != '<') {
        return fail(in, in.at, "a character name in angle brackets is expected");
    }
    size_t end = in.at + 1;
    while (end < in.line_end && text[end] != '>')
        end += text[end] == in.escape ? 2u : 1u;
    if (end >= in.line_end) return fail(in, in.at, "character name without its closing \">\"");
    sym.name = std::string_view(text).substr(in.at + 1, end - in.at - 1);
    if (sym.name.empty() || sym.name.size() > longest_name) {
        return fail(in, in.at, "a character name has 1 to 128 bytes; shorten it");
    }
    sym.code = symbol_code(sym.name);
    in.at = end + 1;
    return true;
}

static bool take_byte(scanner &in, uint32_t &byte) {
    const std::string_view text = rest_of_line(in);
    if (text.size() < 3 || text[0] != in.escape) return false;
    const int base = text[1] == 'x' ? 16 : text[1] == 'd' ? 10 : 8;
    const size_t first = base == 8 ? 1 : 2, most = first + (base == 16 ? 2 : 3);
    size_t i = first;
    byte = 0;
    for (; i < std::min(most, text.size()); ++i) {
        const int digit = hex_value(text[i]);
        if (digit < 0 || digit >= base) break;
        byte = byte * uint32_t(base) + uint32_t(digit);
    }
    if (i - first < 2 || byte > 0xFF) return false;
    in.at += i;
    return true;
}

static bool take_bytes(scanner &in, byte_seq &seq) {
    skip_blank(in);
    const size_t start = in.at;
    uint32_t byte = 0;
    seq = {};
    while (take_byte(in, byte)) {
        if (seq.len == 4) return fail(in, start, "a character has at most four bytes; remove some");
        seq.value = seq.value << 8 | byte;
        ++seq.len;
    }
    return seq.len > 0 || fail(in, start, "the bytes of the character are expected, as in /x41");
}

// ---- characters ----

static uint32_t code_for(reader &rd, const symbol &sym, std::string_view name) {
    if (sym.code != no_code) return sym.code;
    auto [place, added] = rd.map->names.emplace(name, rd.next_private);
    if (added) ++rd.next_private;
    return place->second;
}

static void add_char(reader &rd, uint32_t code, byte_seq seq, bool irreversible,
                     std::string_view name) {
    charmap &map = *rd.map;
    if (rd.lines) {
        rd.lines->push_back({code, seq.value, uint8_t(seq.len), irreversible, std::string(name)});
    }
    if (seq.len > 2) {
        ++(seq.len == 3 ? map.chars_of_three : map.chars_of_four);
        rd.too_long.emplace(code, true);
        return;
    }
    const uint32_t key = uint32_t(seq.len) << 16 | seq.value;
    auto [place, added] = rd.by_bytes.emplace(key, uint32_t(map.chars.size()));
    const uint32_t index = place->second;
    if (added) {
        map.chars.push_back({code, uint16_t(seq.value), uint8_t(seq.len), 1});
        rd.firm.push_back(!irreversible);
    } else if (!irreversible && !rd.firm[index]) {
        map.chars[index].code = code;
        rd.firm[index] = true;
    }
    // An irreversible line holds for one direction only; a plain line, wherever it is, decides the
    // other.
    auto [known, first] = map.by_code.emplace(code, index);
    if (!first && !irreversible && !rd.firm[known->second]) known->second = index;
}

// Splits off the digits that a range counts: the trailing ones of the name, in the base of its
// ellipsis.
static bool split_number(std::string_view name, int base, std::string_view &stem, uint32_t &value) {
    size_t first = name.size();
    while (first > 0 && hex_value(name[first - 1]) >= 0 && hex_value(name[first - 1]) < base)
        --first;
    if (first == name.size() || name.size() - first > 8) return false;
    stem = name.substr(0, first);
    value = 0;
    for (char c : name.substr(first))
        value = value * uint32_t(base) + uint32_t(hex_value(c));
    return true;
}

// May count more characters follow? Checked before anything is added up, so that sums stay small.
static bool reserve_lines(reader &rd, size_t offset, size_t count) {
    if (count > most_lines - rd.lines_read) {
        return fail(rd.in, offset,
                    format("more than %zu characters with those of the ranges; shorten the ranges",
                           most_lines));
    }
    rd.lines_read += count;
    return true;
}

// The last character of a range must have as many bytes as the first.
static bool range_fits(const reader &rd, const symbol &to, byte_seq first, uint32_t count) {
    const uint64_t most = uint64_t{1} << 8 * first.len;
    if (count <= most - first.value) return true;
    return fail(rd.in, to.offset,
                format("the %u characters of this range from the bytes %0*x on need more than "
                       "%d byte%s; shorten the range or correct the bytes",
                       unsigned(count), first.len * 2, unsigned(first.value), first.len,
                       first.len == 1 ? "" : "s"));
}

static bool add_range(reader &rd, const symbol &from, const symbol &to, bool hex, byte_seq seq,
                      bool irreversible) {
    constexpr uint32_t most = 0x20000;
    const bool by_code = from.code != no_code && to.code != no_code;
    std::string_view stem, to_stem;
    uint32_t first = from.code, last = to.code;
    if (!by_code && (!split_number(from.name, hex ? 16 : 10, stem, first) ||
                     !split_number(to.name, hex ? 16 : 10, to_stem, last) || stem != to_stem)) {
        return fail(rd.in, from.offset, "the names of this range do not count up to one another");
    }
    if (last < first || last - first >= most) {
        return fail(rd.in, to.offset,
                    "the end of this range lies before its start or more than 131071 characters "
                    "after it");
    }
    const uint32_t count = last - first + 1;
    if (!range_fits(rd, to, seq, count) || !reserve_lines(rd, to.offset, count)) return false;
    const int digits = int(from.name.size() - stem.size());
    for (uint32_t i = 0; i < count; ++i, ++seq.value) {
        const uint32_t n = first + i;
        if (by_code) {
            add_char(rd, n, seq, irreversible,
                     format("U%0*X", int(from.name.size()) - 1, unsigned(n)));
        } else {
            const std::string name =
                std::string(stem) + format(hex ? "%0*X" : "%0*u", digits, unsigned(n));
            add_char(rd, code_for(rd, symbol{}, name), seq, irreversible, name);
        }
    }
    return true;
}

static bool read_char_line(reader &rd) {
    scanner &in = rd.in;
    const bool irreversible = take(in, "%IRREVERSIBLE%");
    symbol from, to;
    byte_seq seq;
    if (irreversible) skip_blank(in);
    if (!take_symbol(in, from)) return false;
    skip_blank(in);
    int dots = 0;
    while (dots < 5 && take(in, "."))
        ++dots;
    if (dots == 0) {
        if (!take_bytes(in, seq) || !reserve_lines(rd, from.offset, 1)) return false;
        add_char(rd, code_for(rd, from, from.name), seq, irreversible, from.name);
        return true;
    }
    if (dots > 4 || dots < 2) return fail(in, in.at - 1, "an ellipsis has two, three or four dots");
    skip_blank(in);
    if (!take_symbol(in, to) || !take_bytes(in, seq)) return false;
    return add_range(rd, from, to, dots == 2, seq, irreversible);
}

// ---- header and widths ----

static bool read_header_line(reader &rd) {
    scanner &in = rd.in;
    symbol key;
    if (!take_symbol(in, key)) return false;
    skip_blank(in);
    std::string_view value = rest_of_line(in);
    while (!value.empty() && (value.back() == ' ' || value.back() == '\t'))
        value.remove_suffix(1);
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        value = value.substr(1, value.size() - 2);
    }
    if (value.empty()) return fail(in, key.offset, "this setting has no value");
    if (key.name == "escape_char") {
        in.escape = value[0];
    } else if (key.name == "comment_char") {
        in.comment = value[0];
    } else if (key.name == "code_set_name") {
        rd.map->name = value;
    } else if (key.name != "mb_cur_min" && key.name != "mb_cur_max" && key.name != "include" &&
               key.name != "escseq" && key.name != "addset") {
        warning(*in.diag, here(in, key.offset),
                format("unknown setting <%s>", std::string(key.name).c_str()));
    }
    return true;
}

static bool take_width(scanner &in, unsigned &width) {
    skip_blank(in);
    const size_t start = in.at;
    return (take_number(in, width) && width <= widest) ||
           fail(in, start, "a width is a number from 0 to 100");
}

static bool read_width_line(reader &rd) {
    scanner &in = rd.in;
    width_rule rule{};
    if (!take_symbol(in, rule.from)) return false;
    rule.to = rule.from;
    skip_blank(in);
    int dots = 0;
    while (dots < 5 && take(in, "."))
        ++dots;
    skip_blank(in);
    if (dots && !take_symbol(in, rule.to)) return false;
    unsigned width = 0;
    if (!take_width(in, width)) return false;
    rule.width = uint8_t(width);
    rd.widths.push_back(rule);
    return true;
}

static const uint32_t *index_of(const reader &rd, const symbol &sym) {
    uint32_t code = sym.code;
    if (code == no_code) {
        const auto named = rd.map->names.find(std::string(sym.name));
        if (named == rd.map->names.end()) return nullptr;
        code = named->second;
    }
    const auto found = rd.map->by_code.find(code);
    return found == rd.map->by_code.end() ? nullptr : &found->second;
}

static bool by_bytes(const charmap_char &a, const charmap_char &b) {
    return a.len != b.len ? a.len < b.len : a.wide < b.wide;
}

static uint32_t next_unpainted(width_painter &paint, uint32_t at) {
    uint32_t end = at;
    while (paint.next[end] != end)
        end = paint.next[end];
    while (paint.next[at] != end) {
        const uint32_t step = paint.next[at];
        paint.next[at] = end;
        at = step;
    }
    return end;
}

static void paint_widths(width_painter &paint, uint32_t first, uint32_t end, uint8_t width) {
    for (uint32_t i = next_unpainted(paint, first); i < end; i = next_unpainted(paint, i)) {
        paint.chars[i].width = width;
        paint.next[i] = i + 1;
    }
}

// A range of widths runs in the order of the bytes, which is what the writers of this section mean.
// The characters are sorted.
static void apply_widths(reader &rd) {
    std::vector<charmap_char> &chars = rd.map->chars;
    width_painter paint(chars);
    for (charmap_char &c : chars)
        c.width = rd.default_width;
    for (auto rule = rd.widths.rbegin(); rule != rd.widths.rend(); ++rule) {
        const uint32_t *first = index_of(rd, rule->from), *last = index_of(rd, rule->to);
        if (!first || !last) {
            if (!rd.too_long.count(rule->from.code)) {
                note(*rd.in.diag, here(rd.in, rule->from.offset),
                     "width of a character that the code set lacks is ignored");
            }
            continue;
        }
        charmap_char to = chars[*last];
        to.len = chars[*first].len;
        const auto end = std::upper_bound(chars.begin(), chars.end(), to, by_bytes);
        paint_widths(paint, *first, uint32_t(end - chars.begin()), rule->width);
    }
}

static bool read_section(reader &rd, std::string_view name, bool (*read_line)(reader &)) {
    const size_t start = rd.in.at;
    while (next_charmap_line(rd.in)) {
        const std::string_view line = rest_of_line(rd.in);
        if (line.starts_with("END ")) {
            take(rd.in, "END ");
            if (take_word(rd.in) == name) return true;
            return fail(rd.in, rd.in.at, format("END %s is expected", std::string(name).c_str()));
        }
        if (!read_line(rd)) return false;
    }
    return fail(rd.in, start, format("section %s has no END", std::string(name).c_str()));
}

static bool read_top_line(reader &rd) {
    scanner &in = rd.in;
    const size_t start = in.at;
    if (in.file->text[start] == '<') return read_header_line(rd);
    const std::string_view word = take_word(in);
    if (word == "CHARMAP") return read_section(rd, word, read_char_line);
    if (word == "WIDTH") return read_section(rd, word, read_width_line);
    unsigned width = 0;
    if (word == "WIDTH_DEFAULT") {
        if (!take_width(in, width)) return false;
        rd.default_width = uint8_t(width);
        return true;
    }
    return fail(in, start, "CHARMAP, WIDTH or a setting in angle brackets is expected");
}

// ---- whole maps ----

uint64_t content_hash(const std::string &text) {
    uint64_t hash = 0xcbf29ce484222325u;
    for (char c : text)
        hash = (hash ^ uint8_t(c)) * 0x100000001b3u;
    return hash;
}

// Sorts the characters by length and bytes, and adapts both indexes.
static void finish(charmap &map) {
    std::vector<uint32_t> order(map.chars.size()), place(map.chars.size());
    for (uint32_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::sort(order.begin(), order.end(),
              [&map](uint32_t a, uint32_t b) { return by_bytes(map.chars[a], map.chars[b]); });
    std::vector<charmap_char> sorted;
    sorted.reserve(order.size());
    for (uint32_t i = 0; i < order.size(); ++i) {
        place[order[i]] = i;
        sorted.push_back(map.chars[order[i]]);
    }
    map.chars = std::move(sorted);
    for (auto &[code, index] : map.by_code)
        index = place[index];
    map.min_len = map.chars.front().len;
    map.max_len = map.chars.back().len;
}

// A byte that is a character must not also begin longer ones: no table could distinguish them.
static bool check_prefixes(const charmap &map, diagnostics &diag) {
    bool single[256] = {};
    for (const charmap_char &c : map.chars) {
        if (c.len == 1) single[c.wide] = true;
        if (c.len == 2 && single[c.wide >> 8]) {
            error(diag, {},
                  format("charmap %s: byte 0x%02x is a character and begins another",
                         map.name.c_str(), c.wide >> 8));
            return false;
        }
    }
    return true;
}

static bool read_charmap(reader &rd) {
    while (next_charmap_line(rd.in)) {
        if (!read_top_line(rd)) return false;
    }
    charmap &map = *rd.map;
    if (map.name.empty()) return fail(rd.in, 0, "the charmap has no <code_set_name>");
    if (map.chars.empty()) return fail(rd.in, 0, "the charmap has no characters");
    if (!find_code(map, 0)) {
        // Strings end with the null character, so every code set must have it.
        const bool wide_only = std::all_of(map.chars.begin(), map.chars.end(),
                                           [](const charmap_char &c) { return c.len == 2; });
        add_char(rd, 0, {0, wide_only ? 2 : 1}, false, "U0000");
    }
    finish(map);
    apply_widths(rd);
    return check_prefixes(map, *rd.in.diag);
}

static bool open_charmap(const std::vector<std::string> &dirs, const std::string &name,
                         diagnostics &diag, source_file &file) {
    file.path = find_file(dirs, name);
    if (file.path.empty()) {
        error(diag, {}, format("no charmap \"%s\"", name.c_str()));
        return false;
    }
    if (!read_whole(file.path, file.text)) {
        error(diag, {}, format("cannot read charmap %s", file.path.c_str()));
        return false;
    }
    file.name = name;
    return true;
}

// All 16-bit units, including surrogates, so that any text of such units is valid. Widths come from
// the charmap of UTF-8.
static bool load_unicode(const std::vector<std::string> &dirs, diagnostics &diag, charmap &map) {
    source_file file;
    charmap utf8;
    if (!open_charmap(dirs, "UTF-8", diag, file)) return false;
    reader rd{
        .in = {.file = &file, .diag = &diag},
          .map = &utf8
    };
    while (next_charmap_line(rd.in)) {
        if (take(rd.in, "WIDTH") && rd.in.at == rd.in.line_end &&
            !read_section(rd, "WIDTH", read_width_line)) {
            return false;
        }
    }
    map.name = "unicode";
    map.unicode = true;
    map.min_len = map.max_len = 2;
    map.hash = content_hash(file.text);
    map.chars.reserve(0x10000);
    map.by_code.reserve(0x10000);
    for (uint32_t unit = 0; unit < 0x10000; ++unit) {
        map.chars.push_back({unit, uint16_t(unit), 2, 1});
        map.by_code.emplace(unit, unit);
    }
    width_painter paint(map.chars);
    for (auto rule = rd.widths.rbegin(); rule != rd.widths.rend(); ++rule) {
        if (rule->from.code > 0xFFFF || rule->to.code == no_code) continue;
        paint_widths(paint, rule->from.code, std::min(rule->to.code, 0xFFFFu) + 1, rule->width);
    }
    return true;
}

bool load_charmap(const std::vector<std::string> &dirs, const std::string &name, diagnostics &diag,
                  charmap &map, std::vector<charmap_line> *lines) {
    if (name == "unicode") return load_unicode(dirs, diag, map);
    source_file file;
    if (!open_charmap(dirs, name, diag, file)) return false;
    map.hash = content_hash(file.text);
    reader rd{
        .in = {.file = &file, .diag = &diag},
          .map = &map, .lines = lines
    };
    return read_charmap(rd);
}

const charmap_char *find_code(const charmap &map, uint32_t code) {
    const auto found = map.by_code.find(code);
    return found == map.by_code.end() ? nullptr : &map.chars[found->second];
}

const charmap_char *find_wide(const charmap &map, uint16_t wide) {
    const auto search = [&map, wide](uint8_t len) -> const charmap_char * {
        const auto found = std::lower_bound(map.chars.begin(), map.chars.end(), wide,
                                            [len](const charmap_char &c, uint16_t value) {
                                                return c.len != len ? c.len < len : c.wide < value;
                                            });
        return found != map.chars.end() && found->len == len && found->wide == wide ? &*found
                                                                                    : nullptr;
    };
    if (wide > 0xFF) return search(2);
    return search(uint8_t(map.min_len));
}

uint32_t token_code(const charmap &map, const token &t) {
    if (t.kind == tok::symbol) {
        if (t.value != no_code) return t.value;
        const auto named = map.names.find(std::string(t.text));
        return named == map.names.end() ? no_code : named->second;
    }
    if (t.kind == tok::word && t.text.size() == 1) return uint8_t(t.text[0]);
    if (t.kind == tok::number && t.text.size() == 1) return uint8_t(t.text[0]);
    if (t.kind != tok::bytes || t.dots > 2) return no_code;
    const charmap_char *c = find_wide(map, uint16_t(t.value));
    return c && c->len == t.dots ? c->code : no_code;
}

std::vector<uint32_t> string_codes(const charmap &map, const token &t,
                                   std::vector<std::string> *unknown) {
    std::vector<uint32_t> codes;
    const char escape = char(t.value);
    const std::string_view text = t.text;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == escape && i + 1 < text.size()) {
            ++i;
            if (text[i] == '\r' && i + 1 < text.size()) ++i;
            if (text[i] != '\n') codes.push_back(uint8_t(text[i]));
            continue;
        }
        const size_t end = text[i] == '<' ? text.find('>', i) : std::string_view::npos;
        if (end == std::string_view::npos) {
            codes.push_back(utf8_code(text, i));
            continue;
        }
        const std::string name(text.substr(i + 1, end - i - 1));
        uint32_t code = symbol_code(name);
        const auto named = map.names.find(name);
        if (code == no_code && named != map.names.end()) code = named->second;
        if (code != no_code) {
            codes.push_back(code);
        } else if (unknown) {
            unknown->push_back(name);
        }
        i = end;
    }
    return codes;
}

} // namespace kovac
