// Reads the lines of LC_COLLATE for the evaluation of a source. Lines only place what they name;
// weights are looked up when the whole order is known.

#include <algorithm>
#include <list>
#include <set>
#include <unordered_map>

#include "kovac/kovac_equivalents.h"
#include "kovac/kovac_locale.h"
#include "kovac/kovac_oracle.h"

namespace kovac {
namespace {

constexpr uint32_t nowhere = 0xFFFFFFFF;

using line_tokens = std::vector<token>;
using chain = std::list<uint32_t>; // of entries

// What a line can place: a character, a symbol or an element.
struct entry {
    uint32_t code = no_code;           // character
    std::vector<uint32_t> chars;       // element: its code points
    const line_tokens *line = nullptr; // the line that placed it last
    uint32_t section = nowhere;
    chain::iterator place;
    uint32_t rank = 0;
};

struct script {
    std::string_view name;
    oracle_flags backward{}, position{};
    bool ruled = false;
    chain order;
};

struct ellipsis {
    const line_tokens *line = nullptr; // null: none is open
    uint32_t from = no_code;
};

struct reading {
    const charmap &map;
    diagnostics &diag;
    oracle &out;
    std::vector<entry> entries;
    std::vector<uint32_t> declared; // elements
    std::unordered_map<std::string_view, uint32_t> names;
    std::unordered_map<uint32_t, uint32_t> codes;
    std::list<script> scripts; // in order; addresses stay
    std::vector<script *> by_number;
    std::vector<std::pair<bool, bool>> conditions; // active, a branch was taken
    std::set<std::string_view> defined;
    script *at = nullptr; // where the next line is placed: before next in at->order
    chain::iterator next;
    bool moving = false; // inside reorder-after
    script *script_cursor = nullptr;
    ellipsis open;
    uint32_t last_code = no_code;
};

} // namespace

static bool complain(reading &r, const token &t, const char *text) {
    error(r.diag, t.pos, text);
    return false;
}

static uint32_t add_entry(reading &r) {
    r.entries.emplace_back();
    return uint32_t(r.entries.size() - 1);
}

static uint32_t entry_of_code(reading &r, uint32_t code) {
    const auto [at, added] = r.codes.try_emplace(code, 0);
    if (added) {
        at->second = add_entry(r);
        r.entries[at->second].code = code;
    }
    return at->second;
}

// The code point that a name stands for unless it is declared; no_code for other names.
static uint32_t code_of_name(const reading &r, std::string_view name) {
    const uint32_t code = symbol_code(name);
    if (code != no_code) return code;
    const auto at = r.map.names.find(std::string(name));
    return at == r.map.names.end() ? no_code : at->second;
}

static uint32_t entry_of_name(reading &r, std::string_view name) {
    if (const auto at = r.names.find(name); at != r.names.end()) return at->second;
    if (const uint32_t code = code_of_name(r, name); code != no_code) return entry_of_code(r, code);
    return r.names[name] = add_entry(r);
}

// What the first token of an order line places; nowhere if it can place nothing.
static uint32_t entry_of_token(reading &r, const token &t) {
    if (t.kind == tok::symbol) return entry_of_name(r, t.text);
    if (is_word(t, "UNDEFINED")) return entry_of_name(r, t.text);
    if (t.kind == tok::bytes) {
        const uint32_t code = token_code(r.map, t);
        return code == no_code ? nowhere : entry_of_code(r, code);
    }
    const bool letter = t.kind == tok::word || t.kind == tok::number;
    return letter && t.text.size() == 1 ? entry_of_code(r, uint8_t(t.text[0])) : nowhere;
}

// ---- placing -----------------------------------------------------------------------------------

static script *find_script(reading &r, std::string_view name) {
    for (script &s : r.scripts)
        if (s.name == name) return &s;
    return nullptr;
}

static uint32_t number_of(const reading &r, const script *s) {
    return uint32_t(std::find(r.by_number.begin(), r.by_number.end(), s) - r.by_number.begin());
}

static script *need_script(reading &r, std::string_view name) {
    if (script *found = find_script(r, name)) return found;
    r.scripts.emplace_back();
    r.scripts.back().name = name;
    r.by_number.push_back(&r.scripts.back());
    return &r.scripts.back();
}

static void put(reading &r, uint32_t id, const line_tokens &line) {
    entry &e = r.entries[id];
    if (e.section != nowhere) {
        if (e.place == r.next) ++r.next;
        r.by_number[e.section]->order.erase(e.place);
    }
    e.place = r.at->order.insert(r.next, id);
    e.section = number_of(r, r.at);
    e.line = &line;
}

static void put_new(reading &r, uint32_t code, const line_tokens &line) {
    const uint32_t id = entry_of_code(r, code);
    if (r.entries[id].section == nowhere) put(r, id, line);
}

// Places what an open ellipsis leaves between two characters: ".." counts code points, the others
// go through the code set.
static bool end_ellipsis(reading &r, uint32_t to) {
    const line_tokens *line = r.open.line;
    if (!line) return true;
    r.open.line = nullptr;
    const uint32_t from = r.open.from;
    const token &dots = line->front();
    if (dots.dots == 2) {
        if (from == no_code || to == no_code)
            return complain(r, dots, "\"..\" needs a character before it and one after it");
        for (uint64_t code = uint64_t{from} + dots.value; code < to; code += dots.value)
            put_new(r, uint32_t(code), *line);
        return true;
    }
    const charmap_char *low = from == no_code ? nullptr : find_code(r.map, from);
    const charmap_char *high = to == no_code ? nullptr : find_code(r.map, to);
    for (const charmap_char &c : r.map.chars)
        if ((!low || c.wide > low->wide) && (!high || c.wide < high->wide))
            put_new(r, c.code, *line);
    return true;
}

static void stand_at_end(reading &r, script *s) {
    r.at = s;
    r.next = s->order.end();
    r.moving = false;
    r.last_code = no_code;
}

static bool place_line(reading &r, const line_tokens &line) {
    if (!r.at) stand_at_end(r, need_script(r, {}));
    if (line[0].kind == tok::ellipsis) {
        r.open = {&line, r.last_code};
        return true;
    }
    const uint32_t id = entry_of_token(r, line[0]);
    if (id == nowhere) return complain(r, line[0], "names no character or symbol");
    if (!end_ellipsis(r, r.entries[id].code)) return false;
    if (r.moving || r.entries[id].section == nowhere) put(r, id, line);
    r.last_code = r.entries[id].code;
    return true;
}

// ---- keywords ----------------------------------------------------------------------------------

static void read_rules(reading &r, const line_tokens &line, size_t first, script &s) {
    s.backward = s.position = {};
    s.ruled = true;
    size_t level = 0;
    for (size_t i = first; i < line.size() && level < oracle_levels; ++i) {
        if (line[i].kind == tok::semicolon) ++level;
        if (level == oracle_levels) break;
        s.backward[level] |= is_word(line[i], "backward");
        s.position[level] |= is_word(line[i], "position");
    }
    if (line.size() > first && line.back().kind == tok::semicolon) --level;
    r.out.levels = std::max(r.out.levels, std::min(level + 1, oracle_levels));
}

static bool order_start(reading &r, const line_tokens &line) {
    const bool named = line.size() > 1 && line[1].kind == tok::symbol;
    script *s = need_script(r, named ? line[1].text : std::string_view());
    const bool marked = named && line.size() > 2 && line[2].kind == tok::semicolon;
    if (!s->ruled) read_rules(r, line, marked ? 3 : named ? 2 : 1, *s);
    stand_at_end(r, s);
    return true;
}

static bool order_end(reading &r, const line_tokens &) {
    const bool good = end_ellipsis(r, no_code);
    r.at = nullptr;
    r.moving = false;
    return good;
}

static bool reorder_after(reading &r, const line_tokens &line) {
    if (!end_ellipsis(r, no_code)) return false;
    const uint32_t id = line.size() > 1 ? entry_of_token(r, line[1]) : nowhere;
    if (id == nowhere || r.entries[id].section == nowhere)
        return complain(r, line[0], "nothing stands where this reorders");
    r.at = r.by_number[r.entries[id].section];
    r.next = std::next(r.entries[id].place);
    r.moving = true;
    r.last_code = r.entries[id].code;
    return true;
}

static bool sections_after(reading &r, const line_tokens &line) {
    r.script_cursor = line.size() > 1 ? find_script(r, line[1].text) : nullptr;
    return r.script_cursor || complain(r, line[0], "no such script");
}

static bool sections_end(reading &r, const line_tokens &) {
    r.script_cursor = nullptr;
    return true;
}

static bool move_script(reading &r, const line_tokens &line) {
    script *s = line[0].kind == tok::symbol ? find_script(r, line[0].text) : nullptr;
    if (!s) return complain(r, line[0], "no such script");
    if (line.size() > 2) read_rules(r, line, 2, *s);
    if (s == r.script_cursor) return true;
    const auto here = [&r](const script *wanted) {
        return std::find_if(r.scripts.begin(), r.scripts.end(),
                            [wanted](const script &other) { return &other == wanted; });
    };
    r.scripts.splice(std::next(here(r.script_cursor)), r.scripts, here(s));
    r.script_cursor = s;
    return true;
}

// Names of ranges need no declaration: their order lines introduce them.
static bool collating_symbol(reading &r, const line_tokens &line) {
    if (line.size() == 2 && line[1].kind == tok::symbol && !r.names.count(line[1].text))
        r.names[line[1].text] = add_entry(r);
    return true;
}

static bool collating_element(reading &r, const line_tokens &line) {
    if (line.size() < 4 || line[3].kind != tok::string)
        return complain(r, line[0], "an element needs a name and its characters");
    const auto [at, added] = r.names.try_emplace(line[1].text, 0);
    if (added) at->second = add_entry(r);
    std::vector<std::string> unknown;
    entry &e = r.entries[at->second];
    if (e.chars.empty()) r.declared.push_back(at->second);
    e.chars = string_codes(r.map, line[3], &unknown);
    if (!unknown.empty()) e.chars.clear();
    return true;
}

static bool symbol_equivalence(reading &r, const line_tokens &line) {
    if (line.size() < 3) return complain(r, line[0], "an equivalence needs two names");
    r.names[line[1].text] = entry_of_name(r, line[2].text);
    return true;
}

// Every character weighs as its code; units of surrogate pairs come last, as their code points do.
static bool code_order(reading &r, const line_tokens &line) {
    script *s = need_script(r, "codes");
    stand_at_end(r, s);
    std::vector<charmap_char> chars = r.map.chars;
    const auto key = [&r](const charmap_char &c) {
        return r.map.unicode && c.wide >= 0xD800 && c.wide < 0xE000 ? c.wide + 0x10000 : c.wide;
    };
    std::sort(chars.begin(), chars.end(),
              [&key](const charmap_char &a, const charmap_char &b) { return key(a) < key(b); });
    for (const charmap_char &c : chars)
        put_new(r, c.code, line);
    return true;
}

static bool define_name(reading &r, const line_tokens &line) {
    if (line.size() > 1) r.defined.insert(line[1].text);
    return true;
}
static bool undefine_name(reading &r, const line_tokens &line) {
    if (line.size() > 1) r.defined.erase(line[1].text);
    return true;
}
static bool declaration(reading &, const line_tokens &) { return true; }

static constexpr struct {
    std::string_view name;
    bool (*act)(reading &, const line_tokens &);
} keywords[] = {
    {"order_start",            order_start       },
    {"order_end",              order_end         },
    {"reorder-after",          reorder_after     },
    {"reorder-end",            order_end         },
    {"reorder-sections-after", sections_after    },
    {"reorder-sections-end",   sections_end      },
    {"collating-symbol",       collating_symbol  },
    {"collating-element",      collating_element },
    {"symbol-equivalence",     symbol_equivalence},
    {"codepoint_collation",    code_order        },
    {"define",                 define_name       },
    {"undef",                  undefine_name     },
    {"script",                 declaration       },
    {"section-symbol",         declaration       },
    {"col_weight_max",         declaration       },
};

// Follows ifdef and its kin. True if the line is one of them, or in a branch that is not taken.
static bool conditional(reading &r, const line_tokens &line) {
    const std::string_view word = line[0].kind == tok::word ? line[0].text : std::string_view();
    const bool known = line.size() > 1 && r.defined.count(line[1].text) != 0;
    if (word == "ifdef" || word == "ifndef") {
        const bool on = known == (word == "ifdef");
        r.conditions.emplace_back(on, on);
        return true;
    }
    const bool last = word == "endif", other = word == "else";
    if (!r.conditions.empty() && (last || other || word == "elifdef" || word == "elifndef")) {
        auto &[active, taken] = r.conditions.back();
        active = !taken && (other || known == (word == "elifdef"));
        taken |= active;
        if (last) r.conditions.pop_back();
        return true;
    }
    return std::any_of(r.conditions.begin(), r.conditions.end(),
                       [](const auto &c) { return !c.first; });
}

static bool take_line(reading &r, const line_tokens &line) {
    if (conditional(r, line)) return true;
    if (line[0].kind == tok::word)
        for (const auto &k : keywords)
            if (line[0].text == k.name) return k.act(r, line);
    return r.script_cursor ? move_script(r, line) : place_line(r, line);
}

// ---- weights -----------------------------------------------------------------------------------

static void number_entries(reading &r) {
    uint32_t rank = 0;
    for (script &s : r.scripts)
        for (const uint32_t id : s.order)
            r.entries[id].rank = ++rank;
}

static void add_rank(const reading &r, uint32_t id) {
    if (id != nowhere && r.entries[id].rank) r.out.weights.push_back(r.entries[id].rank);
}

static uint32_t known_name(const reading &r, std::string_view name) {
    if (const auto at = r.names.find(name); at != r.names.end()) return at->second;
    const auto at = r.codes.find(code_of_name(r, name));
    return at == r.codes.end() ? nowhere : at->second;
}

static uint32_t known_code(const reading &r, uint32_t code) {
    const auto at = r.codes.find(code);
    return at == r.codes.end() ? nowhere : at->second;
}

// Adds the weights of a string: names in angle brackets, and plain characters.
static void add_string(const reading &r, const token &t) {
    const char escape = char(t.value);
    const std::string_view s = t.text;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '<') {
            if (s[i] == escape && i + 1 < s.size()) ++i;
            add_rank(r, known_code(r, uint8_t(s[i])));
            continue;
        }
        std::string name;
        for (++i; i < s.size() && s[i] != '>'; ++i) {
            if (s[i] == escape && i + 1 < s.size()) ++i;
            name += s[i];
        }
        add_rank(r, known_name(r, name));
    }
}

// Adds one weight of an entry, the tokens from one semicolon to the next.
static void add_weight(const reading &r, uint32_t self, const token *t, const token *end) {
    if (t == end || t->kind == tok::ellipsis) return add_rank(r, self);
    if (is_word(*t, "IGNORE")) return;
    for (; t != end; ++t) {
        if (t->kind == tok::string) {
            add_string(r, *t);
        } else if (t->kind == tok::symbol) {
            add_rank(r, known_name(r, t->text));
        } else if (t->kind == tok::bytes) {
            add_rank(r, known_code(r, token_code(r.map, *t)));
        } else if (t->text.size() == 1) {
            add_rank(r, known_code(r, uint8_t(t->text[0])));
        } else {
            return; // a remark
        }
    }
}

// Fills in the weights of a token; what a line leaves out weighs as itself.
static void weigh(const reading &r, uint32_t id, oracle_token &out) {
    const line_tokens &line = *r.entries[id].line;
    const token *t = line.data() + 1, *end = line.data() + line.size();
    bool given = line.size() > 1;
    for (size_t level = 0; level < oracle_levels; ++level) {
        out.at[level] = uint32_t(r.out.weights.size());
        if (level >= r.out.levels) continue;
        if (!given) {
            add_rank(r, id);
            continue;
        }
        const token *stop =
            std::find_if(t, end, [](const token &x) { return x.kind == tok::semicolon; });
        add_weight(r, id, t, stop);
        given = stop != end;
        t = given ? stop + 1 : end;
    }
    out.at[oracle_levels] = uint32_t(r.out.weights.size());
}

// ---- tokens ------------------------------------------------------------------------------------

// The source with the most lines is the one that others copy; lines elsewhere are a locale's own.
static const source_file *shared_source(const reading &r) {
    std::map<std::string_view, std::pair<size_t, const source_file *>> lines;
    for (const entry &e : r.entries) {
        if (!e.line) continue;
        auto &count = lines[e.line->front().pos.file->name];
        ++count.first;
        count.second = e.line->front().pos.file;
    }
    std::pair<size_t, const source_file *> most{};
    for (const auto &[name, count] : lines)
        if (count.first > most.first) most = count;
    return most.second;
}

static void add_token(reading &r, uint32_t id, std::vector<uint16_t> chars,
                      const source_file *shared) {
    oracle_token t{.chars = std::move(chars), .section = r.entries[id].section};
    const source_file *file = r.entries[id].line->front().pos.file;
    t.own = file != shared;
    weigh(r, id, t);
    r.out.tokens.push_back(std::move(t));
}

static uint32_t placed(const reading &r, uint32_t code) {
    const uint32_t id = known_code(r, code);
    return id != nowhere && r.entries[id].rank ? id : nowhere;
}

static void add_characters(reading &r, const source_file *shared) {
    std::map<uint32_t, uint32_t> others; // other code points of a character, the lowest first
    for (const auto &[code, index] : r.map.by_code)
        if (index < r.map.chars.size() && r.map.chars[index].code != code) others[code] = index;
    std::vector<uint32_t> ids;
    for (const charmap_char &c : r.map.chars)
        ids.push_back(placed(r, c.code));
    for (const auto &[code, index] : others)
        if (ids[index] == nowhere) ids[index] = placed(r, code);
    for (size_t i = 0; i < ids.size(); ++i) {
        if (ids[i] == nowhere) continue;
        const uint16_t wide = r.map.chars[i].wide;
        r.out.of_char[wide] = uint32_t(r.out.tokens.size());
        add_token(r, ids[i], {wide}, shared);
    }
}

static void add_elements(reading &r, const source_file *shared) {
    std::vector<uint32_t> found;
    for (const uint32_t id : r.declared) {
        const entry &e = r.entries[id];
        std::vector<uint16_t> chars;
        for (const uint32_t code : e.chars)
            if (const charmap_char *c = find_code(r.map, code)) chars.push_back(c->wide);
        if (!e.rank || chars.size() != e.chars.size() || chars.size() < 2) continue;
        found.push_back(uint32_t(r.out.tokens.size()));
        add_token(r, id, std::move(chars), shared);
    }
    const auto size = [&r](uint32_t token) { return r.out.tokens[token].chars.size(); };
    std::stable_sort(found.begin(), found.end(),
                     [&size](uint32_t a, uint32_t b) { return size(a) > size(b); });
    for (const uint32_t token : found)
        r.out.elements[r.out.tokens[token].chars[0]].push_back(token);
}

// What the code set "unicode" adds to every source: characters without a line weigh by their codes,
// and at the first level only. Hangul syllables come after the letter that begins them, provided
// that the source orders these letters as the syllables are; others come after all that the source
// orders, the units of surrogate pairs last.
static void add_unlined(reading &r) {
    constexpr uint32_t others = 0xF0000000, last = 0xFFFD0000, syllables = 0xFFFE0000;
    oracle &o = r.out;
    std::array<std::span<const uint32_t>, 19> initials;
    bool hangul = true;
    const std::vector<uint32_t> ranks = o.weights;
    for (uint32_t i = 0; i < initials.size(); ++i) {
        const uint32_t token = o.of_char[0x1100 + i];
        if (token == no_token) continue;
        const oracle_token &t = o.tokens[token];
        initials[i] = std::span(ranks).subspan(t.at[0], t.at[1] - t.at[0]);
    }
    for (size_t i = 0; i < initials.size(); ++i)
        hangul &=
            !initials[i].empty() &&
            (i == 0 || std::lexicographical_compare(initials[i - 1].begin(), initials[i - 1].end(),
                                                    initials[i].begin(), initials[i].end()));
    for (uint32_t c = 0; c < 0x10000; ++c) {
        if (o.of_char[c] != no_token || (c >= 0xFDD0 && c <= 0xFDEF)) continue;
        oracle_token t{.chars = {uint16_t(c)}, .lined = false};
        t.at.fill(uint32_t(o.weights.size()));
        if (hangul && c >= 0xAC00 && c <= 0xD7A3) {
            const auto letter = initials[(c - 0xAC00) / 588];
            o.weights.insert(o.weights.end(), letter.begin(), letter.end());
            o.weights.push_back(syllables + c);
        } else {
            const bool unit = c >= 0xD800 && c < 0xE000;
            o.weights.push_back(c == 0xFFFF ? last + c : others + c + (unit ? 0x10000 : 0));
        }
        std::fill(t.at.begin() + 1, t.at.end(), uint32_t(o.weights.size()));
        o.of_char[c] = uint32_t(o.tokens.size());
        o.tokens.push_back(std::move(t));
    }
}

// Whether a line gives a character a place of its own at the first level.
static bool has_own_place(const reading &r, uint32_t code) {
    const uint32_t id = placed(r, code), token = r.out.of_char[code];
    if (id == nowhere) return false;
    const oracle_token &t = r.out.tokens[token];
    for (uint32_t at = t.at[0]; at < t.at[1]; ++at)
        if (r.out.weights[at] == r.entries[id].rank) return true;
    return false;
}

// Compatibility ideographs of "unicode" weigh as the ideographs that they stand for, unless they
// have a place of their own. A single level has to tell them apart.
static void equate_ideographs(reading &r) {
    oracle &o = r.out;
    if (o.levels == 1) return;
    for (uint32_t c = 0xF900; c < 0xFB00; ++c) {
        const uint32_t to = ideograph_of(c);
        if (!to || has_own_place(r, c)) continue;
        oracle_token &t = o.tokens[o.of_char[c]];
        const oracle_token &like = o.tokens[o.of_char[to > 0xFFFF ? 0xD7C0 + (to >> 10) : to]];
        t.at = like.at;
        t.section = like.section;
        t.lined = like.lined;
        if (to <= 0xFFFF) continue;
        const uint32_t high = o.weights[like.at[0]];
        t.at.fill(uint32_t(o.weights.size() + 2));
        t.at[0] -= 2;
        o.weights.push_back(high);
        o.weights.push_back(o.weights[o.tokens[o.of_char[0xDC00 + (to & 0x3FF)]].at[0]]);
    }
}

bool read_oracle(source_set &set, const charmap &map, diagnostics &diag, oracle &out) {
    std::vector<line_tokens> lines;
    if (!category_lines(set, diag, "LC_COLLATE", lines)) return false;
    out = {};
    out.total = map.unicode;
    out.of_char.assign(0x10000, no_token);
    for (uint32_t c = 0; c < 0x10000; ++c)
        out.codes.push_back(c);
    for (const charmap_char &c : map.chars)
        if (c.code < private_code) out.codes[c.wide] = c.code;
    out.elements.resize(0x10000);
    reading r{.map = map, .diag = diag, .out = out};
    for (const line_tokens &line : lines)
        if (!take_line(r, line)) return false;
    number_entries(r);
    for (const script *s : r.by_number) {
        out.backward.push_back(s->backward);
        for (size_t level = 0; level < oracle_levels; ++level)
            out.position[level] |= s->position[level];
    }
    if (out.backward.empty()) out.backward.emplace_back();
    const source_file *shared = shared_source(r);
    add_characters(r, shared);
    add_elements(r, shared);
    if (map.unicode) add_unlined(r);
    if (map.unicode) equate_ideographs(r);
    return true;
}

// ---- strength ----------------------------------------------------------------------------------

static const oracle_token *lined_token(const oracle &o, uint16_t wide) {
    const uint32_t id = o.of_char[wide];
    return id != no_token && o.tokens[id].lined ? &o.tokens[id] : nullptr;
}

static std::span<const uint32_t> weights_at(const oracle &o, const oracle_token &t, size_t level) {
    return std::span(o.weights).subspan(t.at[level], t.at[level + 1] - t.at[level]);
}

// Which level parts most letters from their capitals, counting from 0; o.levels if none does.
static size_t level_of_case(const oracle &o, const std::vector<letter_pair> &pairs) {
    std::vector<size_t> votes(o.levels + 1);
    for (const auto &[capital, small] : pairs) {
        const oracle_token *const a = lined_token(o, capital), *const b = lined_token(o, small);
        size_t level = 0;
        while (a && b && level < o.levels &&
               std::ranges::equal(weights_at(o, *a, level), weights_at(o, *b, level)))
            ++level;
        if (a && b && level < o.levels) ++votes[level];
    }
    const auto most = std::max_element(votes.begin(), votes.end());
    return *most ? size_t(most - votes.begin()) : o.levels;
}

// Letters without a line follow each other by their codes. Those that differ in case only come
// before the others, both by the code of the small one.
static oracle_token unlined_letter(oracle &o, uint16_t small) {
    constexpr uint32_t after_lines = 0xE0000000;
    oracle_token t{.lined = false};
    t.at.fill(uint32_t(o.weights.size() + 1));
    t.at[0] = uint32_t(o.weights.size());
    o.weights.push_back(after_lines + small);
    return t;
}

// Gives both letters the weights of the small one, or of the one that has a line. Pairs with a line
// come first, for a small letter may have several capitals.
static void unite(oracle &o, letter_pair pair, bool first_level, bool lined) {
    const oracle_token *const a = lined_token(o, pair.first), *const b =
                                                                  lined_token(o, pair.second);
    if (a && b && !first_level) return;
    if (!a && !b && (lined || !o.total)) return; // !total: codes do not tell them apart
    oracle_token both = b ? *b : a ? *a : unlined_letter(o, pair.second);
    for (const uint16_t wide : {pair.first, pair.second}) {
        both.chars = {wide};
        o.of_char[wide] = uint32_t(o.tokens.size());
        o.tokens.push_back(both);
    }
}

bool weaken_oracle(oracle &o, strength keeps, const std::vector<letter_pair> &pairs) {
    if (keeps == strength::all) return true;
    const size_t of_case = level_of_case(o, pairs);
    if (of_case == o.levels || (of_case == 0 && keeps == strength::letters)) return false;
    for (const bool lined : {true, false})
        for (const letter_pair &pair : pairs)
            unite(o, pair, of_case == 0, lined);
    o.levels = keeps == strength::letters ? 1 : std::max<size_t>(of_case, 1);
    o.total = false;
    return true;
}

} // namespace kovac
