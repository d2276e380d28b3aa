// LC_CTYPE: classes, classes of the locale's own and case pairs.
#include <algorithm>

#include "kovac/kovac_locale.h"

namespace kovac {
namespace {

enum : uint16_t {
    upper_bit = 0x0001,
    lower_bit = 0x0002,
    alpha_bit = 0x0004,
    digit_bit = 0x0008,
    space_bit = 0x0010,
    cntrl_bit = 0x0020,
    punct_bit = 0x0040,
    graph_bit = 0x0080,
    print_bit = 0x0100,
    xdigit_bit = 0x0200,
    blank_bit = 0x0400,
};

struct standard_class {
    const char *name;
    uint16_t bit;
    const char *fallback; // members if the source leaves the class out
};

constexpr const char *capitals = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr const char *smalls = "abcdefghijklmnopqrstuvwxyz";
constexpr standard_class standard_classes[] = {
    {"upper",  upper_bit,  capitals                },
    {"lower",  lower_bit,  smalls                  },
    {"alpha",  alpha_bit,  ""                      },
    {"digit",  digit_bit,  "0123456789"            },
    {"space",  space_bit,  " \t\n\v\f\r"           },
    {"cntrl",  cntrl_bit,  ""                      },
    {"punct",  punct_bit,  ""                      },
    {"graph",  graph_bit,  ""                      },
    {"print",  print_bit,  " "                     },
    {"xdigit", xdigit_bit, "0123456789ABCDEFabcdef"},
    {"blank",  blank_bit,  " \t"                   },
};

constexpr int user_bits = 5;           // bits of a 16-bit mask after the standard classes
constexpr size_t most_own_names = 256; // of classes or maps that a source may declare
constexpr size_t most_range_work = size_t{1} << 28;

struct source_class {
    std::string name;
    position pos;
    std::vector<bool> members; // per character of the charmap
    bool any = false;
};

// A range of code points and its step.
struct code_range {
    uint32_t first, last, step;
};

struct ctype_reader {
    const charmap *map;
    diagnostics *diag;
    ctype_section *out;
    std::vector<std::pair<uint32_t, uint32_t>> by_code; // code and index of a character, sorted
    std::vector<source_class> classes;
    std::vector<std::string> maps;      // names declared by charconv
    std::vector<uint16_t> upper, lower; // partner of each character, 0 none
    size_t range_work = 0;              // characters visited by ranges
    uint16_t given = 0;                 // classes present in the source
    bool upper_given = false, lower_given = false;
};

// Where the members of a list go: a standard class if bit is set, else one of the source's own.
struct member_sink {
    uint16_t bit;
    source_class *own;
};

} // namespace

static void add_index(ctype_reader &rd, const member_sink &sink, uint32_t index) {
    if (sink.bit) {
        rd.out->masks[index] = uint16_t(rd.out->masks[index] | sink.bit);
    } else if (sink.own) {
        sink.own->members[index] = true;
        sink.own->any = true;
    }
}

// Finds the character whose bytes convert to this code. A code that only converts to the bytes of
// another has no class of its own.
static bool own_index(const charmap &map, uint32_t code, uint32_t &index) {
    const charmap_char *c = find_code(map, code);
    if (!c || c->code != code) return false;
    index = uint32_t(c - map.chars.data());
    return true;
}

// Limits the work on ranges, so that millions of overlapping ones end soon.
static bool spend(ctype_reader &rd, const token &ellipsis, size_t characters) {
    rd.range_work += characters;
    if (rd.range_work <= most_range_work) return true;
    if (rd.range_work - characters <= most_range_work) {
        error(*rd.diag, ellipsis.pos,
              "the ranges of LC_CTYPE overlap too often; remove those that repeat others");
    }
    return false;
}

static void add_codes(ctype_reader &rd, const member_sink &sink, const token &ellipsis,
                      const code_range &range) {
    auto place = std::lower_bound(rd.by_code.begin(), rd.by_code.end(),
                                  std::pair<uint32_t, uint32_t>{range.first, 0});
    const auto end = std::upper_bound(place, rd.by_code.end(),
                                      std::pair<uint32_t, uint32_t>{range.last, UINT32_MAX});
    if (!spend(rd, ellipsis, size_t(end - place))) return;
    for (; place != end; ++place) {
        if ((place->first - range.first) % range.step == 0) add_index(rd, sink, place->second);
    }
}

// Adds a range of "...", which runs in the order of the charmap's bytes.
static void add_byte_range(ctype_reader &rd, const member_sink &sink, const token &ellipsis,
                           uint32_t first, uint32_t last) {
    const charmap_char *from = find_code(*rd.map, first), *to = find_code(*rd.map, last);
    if (!from || !to) {
        warning(*rd.diag, ellipsis.pos,
                "range in code-set order ignored: the code set lacks one of its ends");
        return;
    }
    if (from->len != to->len || from > to) {
        error(*rd.diag, ellipsis.pos,
              "the end of this range lies before its start in the code set");
        return;
    }
    if (!spend(rd, ellipsis, size_t(to - from) + 1)) return;
    for (const charmap_char *c = from; c <= to; ++c) {
        add_index(rd, sink, uint32_t(c - rd.map->chars.data()));
    }
}

static void add_range(ctype_reader &rd, const member_sink &sink, const token &ellipsis,
                      uint32_t first, uint32_t last) {
    if (ellipsis.dots == 3) return add_byte_range(rd, sink, ellipsis, first, last);
    if (last < first) {
        error(*rd.diag, ellipsis.pos, "the end of this range lies before its start");
        return;
    }
    add_codes(rd, sink, ellipsis, {first, last, ellipsis.value});
}

static bool is_char_token(const token &t) {
    return t.kind == tok::symbol || t.kind == tok::bytes || t.kind == tok::word ||
           t.kind == tok::number;
}

// Reads the members of a class: characters and ranges, written <a>..<z> or <a>;...;<z>.
static void read_members(ctype_reader &rd, const std::vector<token> &line, size_t at,
                         const member_sink &sink) {
    const token *ellipsis = nullptr;
    uint32_t last_code = no_code;
    for (; at < line.size(); ++at) {
        const token &t = line[at];
        if (t.kind == tok::semicolon) continue;
        if (t.kind == tok::bad) return;
        if (t.kind == tok::ellipsis) {
            if (ellipsis || last_code == no_code) {
                return error(*rd.diag, t.pos, "a range needs a character before its ellipsis");
            }
            ellipsis = &t;
            continue;
        }
        if (!is_char_token(t)) {
            return error(*rd.diag, t.pos, "a character, \";\" or an ellipsis is expected");
        }
        const uint32_t code = token_code(*rd.map, t);
        uint32_t index = 0;
        if (ellipsis) {
            if (code == no_code) return error(*rd.diag, t.pos, "unknown end of a range");
            add_range(rd, sink, *ellipsis, last_code, code);
            ellipsis = nullptr;
        } else if (code != no_code && own_index(*rd.map, code, index)) {
            add_index(rd, sink, index);
        }
        last_code = code;
    }
    if (ellipsis) error(*rd.diag, ellipsis->pos, "a range needs a character after its ellipsis");
}

static source_class &own_class(ctype_reader &rd, std::string_view name, position pos) {
    for (source_class &c : rd.classes) {
        if (c.name == name) return c;
    }
    if (rd.classes.size() == most_own_names) {
        error(*rd.diag, pos, "more than 256 classes of the source's own; remove some");
        return rd.classes.back();
    }
    rd.classes.push_back({std::string(name), pos, std::vector<bool>(rd.map->chars.size()), false});
    return rd.classes.back();
}

// Reads one (a,b) of a map at place at, which moves past it. False after an error.
static bool read_pair(ctype_reader &rd, const std::vector<token> &line, size_t &at,
                      std::pair<uint32_t, uint32_t> &codes) {
    static constexpr tok shape[] = {tok::open, tok::symbol, tok::comma, tok::symbol, tok::close};
    for (size_t i = 0; i < std::size(shape); ++i) {
        const bool there = at + i < line.size();
        const bool fits = there && (shape[i] == tok::symbol ? is_char_token(line[at + i])
                                                            : line[at + i].kind == shape[i]);
        if (fits) continue;
        if (there && line[at + i].kind == tok::bad) return false;
        error(*rd.diag, line[std::min(at + i, line.size() - 1)].pos,
              "a pair is written (<from>,<to>)");
        return false;
    }
    codes = {token_code(*rd.map, line[at + 1]), token_code(*rd.map, line[at + 3])};
    at += std::size(shape);
    return true;
}

// Reads the pairs of a case map. A pair of which the code set lacks one side is left out.
static void read_case_map(ctype_reader &rd, const std::vector<token> &line, size_t at,
                          std::vector<uint16_t> &partner) {
    while (at < line.size()) {
        if (line[at].kind == tok::semicolon) {
            ++at;
            continue;
        }
        std::pair<uint32_t, uint32_t> codes;
        if (!read_pair(rd, line, at, codes)) return;
        uint32_t from = 0;
        const charmap_char *to = find_code(*rd.map, codes.second);
        if (to && own_index(*rd.map, codes.first, from)) partner[from] = to->wide;
    }
}

// ---- keywords ----

// The name after "class" or "map", quoted or not; at moves past it and its semicolon.
static std::string_view take_name(ctype_reader &rd, const std::vector<token> &line, size_t &at) {
    if (at >= line.size() || (line[at].kind != tok::string && line[at].kind != tok::word)) {
        error(*rd.diag, line[std::min(at, line.size() - 1)].pos, "a name is expected here");
        return {};
    }
    const std::string_view name = line[at++].text;
    if (at < line.size() && line[at].kind == tok::semicolon) ++at;
    return name;
}

static bool read_standard_class(ctype_reader &rd, std::string_view name,
                                const std::vector<token> &line, size_t at) {
    for (const standard_class &c : standard_classes) {
        if (name != c.name) continue;
        rd.given = uint16_t(rd.given | c.bit);
        read_members(rd, line, at, {c.bit, nullptr});
        return true;
    }
    return false;
}

static bool read_map(ctype_reader &rd, std::string_view name, const std::vector<token> &line,
                     size_t at) {
    if (name == "toupper") {
        rd.upper_given = true;
        read_case_map(rd, line, at, rd.upper);
        return true;
    }
    if (name != "tolower") return false;
    rd.lower_given = true;
    read_case_map(rd, line, at, rd.lower);
    return true;
}

static void drop_map(ctype_reader &rd, std::string_view name, position pos) {
    note(*rd.diag, pos,
         format("map \"%s\" dropped: a locale object holds upper and lower case only",
                std::string(name).c_str()));
}

static void declare(ctype_reader &rd, const std::vector<token> &line, bool maps) {
    for (size_t at = 1; at < line.size(); ++at) {
        const token &t = line[at];
        if (t.kind == tok::semicolon) continue;
        if (t.kind != tok::word && t.kind != tok::string) {
            if (t.kind != tok::bad) error(*rd.diag, t.pos, "a name is expected here");
            return;
        }
        if (maps && rd.maps.size() == most_own_names) {
            return error(*rd.diag, t.pos, "more than 256 maps of the source's own; remove some");
        }
        if (maps) {
            rd.maps.emplace_back(t.text);
        } else {
            own_class(rd, t.text, t.pos);
        }
    }
}

static void read_line(ctype_reader &rd, const std::vector<token> &line) {
    const token &key = line[0];
    if (key.kind == tok::bad) return;
    if (key.kind != tok::word) return error(*rd.diag, key.pos, "a keyword of LC_CTYPE is expected");
    if (read_standard_class(rd, key.text, line, 1) || read_map(rd, key.text, line, 1)) return;
    size_t at = 1;
    if (key.text == "class") {
        const std::string_view name = take_name(rd, line, at);
        if (name.empty() || read_standard_class(rd, name, line, at)) return;
        return read_members(rd, line, at, {0, &own_class(rd, name, line[1].pos)});
    }
    if (key.text == "map") {
        const std::string_view name = take_name(rd, line, at);
        if (!name.empty() && !read_map(rd, name, line, at)) drop_map(rd, name, key.pos);
        return;
    }
    if (key.text == "charclass" || key.text == "charconv") {
        return declare(rd, line, key.text == "charconv");
    }
    for (source_class &c : rd.classes) {
        if (c.name == key.text) return read_members(rd, line, 1, {0, &c});
    }
    if (std::find(rd.maps.begin(), rd.maps.end(), key.text) != rd.maps.end()) {
        return drop_map(rd, key.text, key.pos);
    }
    if (key.text == "outdigit" || key.text == "alnum" || key.text == "include") return;
    warning(*rd.diag, key.pos,
            format("unknown keyword \"%s\" in LC_CTYPE", std::string(key.text).c_str()));
}

// ---- what the source leaves open ----

static void add_plain(ctype_reader &rd, const char *chars, uint16_t bit) {
    for (; *chars; ++chars) {
        uint32_t index = 0;
        if (own_index(*rd.map, uint8_t(*chars), index)) {
            add_index(rd, {bit, nullptr}, index);
        }
    }
}

static void fill_classes(ctype_reader &rd) {
    for (const standard_class &c : standard_classes) {
        if (!(rd.given & c.bit)) add_plain(rd, c.fallback, c.bit);
    }
    constexpr unsigned letters = upper_bit | lower_bit;
    constexpr unsigned visible =
        letters | alpha_bit | digit_bit | xdigit_bit | punct_bit | graph_bit;
    for (uint16_t &mask : rd.out->masks) {
        unsigned m = mask;
        if (m & letters) m |= alpha_bit;
        if (m & visible) m |= graph_bit | print_bit;
        mask = uint16_t(m);
    }
}

static void fill_case(ctype_reader &rd) {
    const charmap &map = *rd.map;
    uint32_t from = 0;
    for (int i = 0; !rd.upper_given && i < 26; ++i) {
        const charmap_char *to = find_code(map, uint32_t(capitals[i]));
        if (to && own_index(map, uint32_t(smalls[i]), from)) rd.upper[from] = to->wide;
    }
    if (rd.lower_given) return;
    for (uint32_t i = 0; i < map.chars.size(); ++i) {
        if (!rd.upper[i]) continue;
        const charmap_char *capital = find_wide(map, rd.upper[i]);
        if (capital) rd.lower[size_t(capital - map.chars.data())] = map.chars[i].wide;
    }
}

static void make_pairs(ctype_reader &rd) {
    ctype_section &out = *rd.out;
    const charmap &map = *rd.map;
    std::vector<std::pair<std::pair<uint16_t, uint16_t>, uint16_t>> seen;
    std::unordered_map<uint32_t, uint16_t> index_of;
    for (size_t i = 0; i < map.chars.size(); ++i) {
        // A character that maps to itself has no partner.
        const uint16_t self = map.chars[i].wide;
        const uint16_t upper = rd.upper[i] == self ? uint16_t(0) : rd.upper[i];
        const uint16_t lower = rd.lower[i] == self ? uint16_t(0) : rd.lower[i];
        if (!upper && !lower) continue;
        const uint32_t key = uint32_t(upper) << 16 | lower;
        if (out.pairs.size() > UINT16_MAX) {
            return error(*rd.diag, {}, "more than 65535 different pairs of cases; remove some");
        }
        auto [place, added] = index_of.emplace(key, uint16_t(out.pairs.size()));
        if (added) out.pairs.emplace_back(upper, lower);
        out.case_index[i] = place->second;
        for (uint16_t partner : {upper, lower}) {
            const charmap_char *to = partner ? find_wide(map, partner) : nullptr;
            if (to) out.case_ratio = std::max(out.case_ratio, double(to->len) / map.chars[i].len);
        }
    }
}

static void keep_class(ctype_reader &rd, const char *name, int bit,
                       const std::vector<bool> &members) {
    rd.out->classes.push_back({bit, name});
    for (size_t i = 0; i < members.size(); ++i) {
        if (members[i]) rd.out->masks[i] = uint16_t(rd.out->masks[i] | 0x0800u << bit);
    }
}

static void keep_classes(ctype_reader &rd) {
    const charmap &map = *rd.map;
    std::vector<bool> wide(map.chars.size());
    bool any_wide = false;
    for (size_t i = 0; i < map.chars.size(); ++i) {
        wide[i] = map.chars[i].width == 2;
        any_wide |= wide[i];
    }
    int bit = 0;
    if (any_wide) keep_class(rd, "full_width", bit, wide);
    for (const source_class &c : rd.classes) {
        if (!c.any || c.name == "full_width") continue;
        if (++bit < user_bits && c.name.size() <= 70) {
            keep_class(rd, c.name.c_str(), bit, c.members);
        } else {
            warning(*rd.diag, c.pos,
                    format("class \"%s\" dropped: a locale object has room for %d classes of its "
                           "own and names of 70 bytes",
                           c.name.c_str(), user_bits - 1));
        }
    }
}

bool compile_ctype(source_set &set, const charmap &map, diagnostics &diag, ctype_section &out) {
    const int errors = diag.errors;
    std::vector<std::vector<token>> lines;
    if (!category_lines(set, diag, "LC_CTYPE", lines)) return false;
    const size_t count = map.chars.size();
    out = {};
    out.masks.resize(count);
    out.case_index.resize(count);
    ctype_reader rd{.map = &map, .diag = &diag, .out = &out};
    rd.upper.resize(count);
    rd.lower.resize(count);
    for (uint32_t i = 0; i < count; ++i)
        rd.by_code.emplace_back(map.chars[i].code, i);
    std::sort(rd.by_code.begin(), rd.by_code.end());
    for (const std::vector<token> &line : lines)
        read_line(rd, line);
    fill_classes(rd);
    fill_case(rd);
    make_pairs(rd);
    keep_classes(rd);
    return diag.errors == errors;
}

} // namespace kovac
