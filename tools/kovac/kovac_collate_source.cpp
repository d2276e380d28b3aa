// Reads a collation section. A line places an item after the cursor; reorder-after only moves the
// cursor. Conditional lines and copied sources are processed where they occur.

#include "kovac/kovac_collate_source.h"

#include <algorithm>
#include <charconv>
#include <set>

namespace kovac {

static constexpr std::string_view category = "LC_COLLATE";

// More than any order of all characters needs.
static constexpr size_t most_items = size_t{1} << 21;
static constexpr size_t most_weights = size_t{1} << 23;
static constexpr size_t most_sections = 1024;
static constexpr size_t most_elements = 8192;
static constexpr size_t most_open_ifs = 64;
static constexpr size_t most_range_work = size_t{1} << 27; // characters visited by ranges

using line_tokens = std::vector<token>;

namespace {

// An ellipsis line whose range has not ended yet.
struct open_range {
    bool open = false;
    token dots;
    line_tokens weights;
    uint32_t from = no_code; // code of the character before it; no_code: it is the first line
};

struct reader {
    source_set &set;
    const charmap &map;
    diagnostics &diag;
    order &out;
    std::set<std::string, std::less<>> defined; // define NAME
    std::vector<bool> taken, active;            // per open ifdef: a branch was taken, is active
    uint32_t cursor = no_item;                  // lines are placed after it
    uint32_t skipped = no_item; // the last line was this item's, placed elsewhere before
    uint32_t section = no_item;
    bool reordering = false, moving_sections = false;
    uint32_t section_cursor = no_item;
    open_range range;
    size_t elements = 0, range_work = 0;
    int depth = 0;
    copy_budget copies;
};

} // namespace

static std::string text_of(std::string_view text) { return std::string(text); }

static uint32_t new_item(order &out, order_item::kind_t kind, position pos) {
    out.items.emplace_back();
    out.items.back().kind = kind;
    out.items.back().pos = pos;
    return uint32_t(out.items.size() - 1);
}

static uint32_t character_item(order &out, uint32_t code, position pos) {
    const auto [at, added] = out.by_code.try_emplace(code, 0);
    if (added) {
        at->second = new_item(out, order_item::character, pos);
        out.items[at->second].code = code;
    }
    return at->second;
}

static uint32_t symbol_item(order &out, std::string_view name, position pos) {
    const auto [at, added] = out.names.try_emplace(name, 0);
    if (added) {
        at->second = new_item(out, order_item::symbol, pos);
        out.items[at->second].name = name;
    }
    return at->second;
}

// May count more items follow? Checked before anything is added up, so that sums stay small.
static bool room_for(const reader &r, size_t count, position pos) {
    if (count <= most_items && r.out.items.size() <= most_items - count) return true;
    error(r.diag, pos,
          format("more than %zu characters and symbols in the order; shorten the ranges",
                 most_items));
    return false;
}

// The code point of a name like U0041 or U00010000, else of a charmap name, else no_code.
static uint32_t name_code(const charmap &map, std::string_view name) {
    const uint32_t code = symbol_code(name);
    if (code != no_code) return code;
    const auto at = map.names.find(text_of(name));
    return at == map.names.end() ? no_code : at->second;
}

// The item of a name. Declared names take precedence over characters; an undeclared name becomes a
// symbol, because sources do introduce symbols by an order line.
static uint32_t named_item(reader &r, std::string_view name, position pos) {
    const auto at = r.out.names.find(name);
    if (at != r.out.names.end()) return at->second;
    const uint32_t code = name_code(r.map, name);
    if (code != no_code) return character_item(r.out, code, pos);
    return symbol_item(r.out, name, pos);
}

// The item that a token names; no_item if it names none.
static uint32_t token_item(reader &r, const token &t) {
    if (t.kind == tok::symbol) return named_item(r, t.text, t.pos);
    if (t.kind == tok::bytes || (t.kind == tok::word && t.text.size() == 1)) {
        const uint32_t code = t.kind == tok::word ? uint32_t(static_cast<unsigned char>(t.text[0]))
                                                  : token_code(r.map, t);
        if (code != no_code) return character_item(r.out, code, t.pos);
    }
    if (t.kind == tok::number && t.text.size() == 1)
        return character_item(r.out, uint32_t(static_cast<unsigned char>(t.text[0])), t.pos);
    return no_item;
}

static uint32_t new_section(order &out, std::string_view name) {
    const uint32_t head = new_item(out, order_item::head, {});
    out.items[head].prev = out.items[head].next = head;
    out.items[head].section = uint32_t(out.sections.size());
    out.sections.push_back({name, head, {}});
    out.section_order.push_back(uint32_t(out.sections.size() - 1));
    return uint32_t(out.sections.size() - 1);
}

static uint32_t find_section(const order &out, std::string_view name) {
    for (uint32_t i = 0; i < out.sections.size(); ++i)
        if (out.sections[i].name == name) return i;
    return no_item;
}

static void unlink_item(order &out, uint32_t id) {
    order_item &it = out.items[id];
    if (it.section == no_item) return;
    out.items[it.prev].next = it.next;
    out.items[it.next].prev = it.prev;
    it.section = no_item;
}

// Puts an item after the cursor, which moves to it.
static void place_item(reader &r, uint32_t id, position pos) {
    if (id != r.cursor) {
        unlink_item(r.out, id);
        order_item &before = r.out.items[r.cursor];
        order_item &it = r.out.items[id];
        it.prev = r.cursor;
        it.next = before.next;
        r.out.items[before.next].prev = id;
        before.next = id;
        it.section = before.section;
        r.cursor = id;
    }
    r.out.items[id].pos = pos;
}

// Gets the items of the names in a weight string, or of its plain characters.
static bool string_items(reader &r, const token &t, std::vector<uint32_t> &ids) {
    const char escape = char(t.value);
    const std::string_view s = t.text;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '<') {
            std::string plain;
            size_t end = i + 1;
            for (; end < s.size() && s[end] != '>'; ++end) {
                if (s[end] == escape && end + 1 < s.size()) ++end;
                plain += s[end];
            }
            if (end >= s.size() || plain.empty()) {
                error(r.diag, t.pos, "symbol without its closing \">\" in a weight");
                return false;
            }
            std::string_view name = s.substr(i + 1, end - i - 1);
            if (plain != name) name = r.out.pool.emplace_back(std::move(plain));
            ids.push_back(named_item(r, name, t.pos));
            i = end;
        } else {
            if (s[i] == escape && i + 1 < s.size()) ++i;
            ids.push_back(character_item(r.out, static_cast<unsigned char>(s[i]), t.pos));
        }
    }
    return true;
}

// Reads one weight, the tokens [from, to); self is the item to which it belongs.
static bool weight_items(reader &r, const token *from, const token *to, uint32_t self,
                         std::vector<uint32_t> &ids) {
    ids.clear();
    if (from == to || from->kind == tok::ellipsis) {
        ids.push_back(self);
        return true;
    }
    if (is_word(*from, "IGNORE")) return true;
    for (const token *t = from; t != to; ++t) {
        if (t->kind == tok::string) {
            if (!string_items(r, *t, ids)) return false;
            continue;
        }
        const uint32_t id = token_item(r, *t);
        if (id == no_item) {
            if (t != from) break; // a remark after the last weight
            error(r.diag, t->pos, "not a weight: expected IGNORE, a symbol or a string");
            return false;
        }
        ids.push_back(id);
    }
    if (ids.size() > 255) {
        error(r.diag, from->pos, "a weight of more than 255 symbols");
        return false;
    }
    return true;
}

// Reads weights separated by semicolons, from line[first] on; without any, the item is weighed as
// itself.
static bool read_weights(reader &r, const line_tokens &line, size_t first, uint32_t id) {
    if (r.out.weights.size() > most_weights) {
        error(r.diag, line[0].pos,
              format("more than %zu weights in the order; remove some", most_weights));
        return false;
    }
    order_item &fresh = r.out.items[id];
    fresh.weighed = line.size() > first;
    fresh.counts.fill(0);
    fresh.first_weight = uint32_t(r.out.weights.size());
    if (!fresh.weighed) return true;
    std::vector<uint32_t> ids;
    size_t level = 0;
    const token *at = line.data() + first, *end = line.data() + line.size();
    for (;; ++level) {
        const token *stop = at;
        while (stop != end && stop->kind != tok::semicolon)
            ++stop;
        if (level == max_levels) {
            error(r.diag, at == end ? line[0].pos : at->pos, "more than 8 levels of weights");
            return false;
        }
        if (!weight_items(r, at, stop, id, ids)) return false;
        r.out.items[id].counts[level] = uint8_t(ids.size());
        r.out.weights.insert(r.out.weights.end(), ids.begin(), ids.end());
        if (stop == end) break;
        at = stop + 1;
    }
    // At a level without a weight, the item is weighed as itself.
    for (++level; level < r.out.levels; ++level) {
        r.out.items[id].counts[level] = 1;
        r.out.weights.push_back(id);
    }
    return true;
}

static bool place_range_code(reader &r, uint32_t code, position pos) {
    const uint32_t id = character_item(r.out, code, pos);
    // Places only what no other line has placed.
    if (r.out.items[id].section != no_item) return true;
    place_item(r, id, pos);
    return read_weights(r, r.range.weights, 1, id);
}

// Places what lies between the line before an ellipsis and the line after it (no_code: to the end).
static bool close_range(reader &r, uint32_t to, position pos) {
    if (!r.range.open) return true;
    r.range.open = false;
    const uint32_t from = r.range.from;
    const bool counted = r.range.dots.dots == 2;
    const size_t count = counted && from < to ? to - from : r.map.chars.size();
    r.range_work += std::min(count, most_items);
    if (r.range_work > most_range_work) {
        error(r.diag, r.range.dots.pos,
              "the ranges of the order overlap too often; remove those that repeat others");
        return false;
    }
    if (counted) {
        if (from == no_code || to == no_code || from >= to) {
            error(r.diag, r.range.dots.pos,
                  "\"..\" needs a character before it and a higher one after it");
            return false;
        }
        if (!room_for(r, to - from, r.range.dots.pos)) return false;
        for (uint32_t code = from + 1; code < to; ++code)
            if (!place_range_code(r, code, pos)) return false;
        return true;
    }
    const charmap_char *low = from == no_code ? nullptr : find_code(r.map, from);
    const charmap_char *high = to == no_code ? nullptr : find_code(r.map, to);
    for (const charmap_char &c : r.map.chars) {
        if (low && c.wide <= low->wide) continue;
        if (high && c.wide >= high->wide) continue;
        if (!place_range_code(r, c.code, pos)) return false;
    }
    return true;
}

// Reads an order line: an item with its weights, or an ellipsis.
static bool order_line(reader &r, const line_tokens &line) {
    const token &head = line[0];
    if (r.cursor == no_item) {
        if (r.section == no_item) r.section = new_section(r.out, {});
        r.cursor = r.out.items[r.out.sections[r.section].head].prev;
    }
    const uint32_t last = r.skipped == no_item ? r.cursor : r.skipped;
    r.skipped = no_item;
    if (head.kind == tok::ellipsis) {
        const order_item &before = r.out.items[last];
        r.range = {true, head, line, before.kind == order_item::character ? before.code : no_code};
        return true;
    }
    uint32_t id = no_item;
    if (is_word(head, "UNDEFINED")) {
        const auto at = r.out.names.find("UNDEFINED");
        id =
            at != r.out.names.end() ? at->second : new_item(r.out, order_item::undefined, head.pos);
        r.out.names.emplace("UNDEFINED", id);
    } else {
        id = token_item(r, head);
    }
    if (id == no_item) {
        error(r.diag, head.pos, "unknown keyword or not the name of a character or symbol");
        return false;
    }
    if (!close_range(r, r.out.items[id].code, head.pos)) return false;
    if (!r.reordering && r.out.items[id].section != no_item) {
        note(r.diag, head.pos, "already placed by an earlier line, which stays in force");
        r.skipped = id;
        return true;
    }
    place_item(r, id, head.pos);
    return read_weights(r, line, 1, id);
}

static bool read_rules(reader &r, const line_tokens &line, size_t at,
                       std::vector<level_rule> &rules) {
    level_rule rule;
    bool pending = false;
    for (; at < line.size(); ++at) {
        const token &t = line[at];
        if (t.kind == tok::semicolon) {
            rules.push_back(rule);
            rule = {};
            pending = false;
        } else if (is_word(t, "backward")) {
            rule.backward = pending = true;
        } else if (is_word(t, "position")) {
            rule.position = pending = true;
        } else if (is_word(t, "forward")) {
            pending = true;
        } else if (t.kind != tok::comma) {
            error(r.diag, t.pos, "expected forward, backward or position");
            return false;
        }
    }
    if (pending || rules.empty()) rules.push_back(rule);
    if (rules.size() <= max_levels) return true;
    error(r.diag, line[0].pos, "more than 8 levels: a locale object holds 8 passes");
    return false;
}

static bool order_start(reader &r, const line_tokens &line) {
    size_t at = 1;
    std::string_view name;
    if (line.size() > 1 && line[1].kind == tok::symbol) {
        name = line[1].text;
        at = line.size() > 2 && line[2].kind == tok::semicolon ? 3 : 2;
    }
    std::vector<level_rule> rules;
    if (!read_rules(r, line, at, rules)) return false;
    uint32_t section = find_section(r.out, name);
    if (section == no_item && r.out.sections.size() == most_sections) {
        error(r.diag, line[0].pos, "more than 1024 sections of the order; join some");
        return false;
    }
    if (section == no_item) section = new_section(r.out, name);
    r.section = section;
    if (r.out.sections[section].rules.empty()) r.out.sections[section].rules = rules;
    r.out.levels = std::max(r.out.levels, rules.size());
    r.cursor = r.out.items[r.out.sections[section].head].prev;
    r.skipped = no_item;
    r.reordering = false;
    return true;
}

static bool end_order(reader &r, const line_tokens &line) {
    const bool good = close_range(r, no_code, line[0].pos);
    r.cursor = r.skipped = no_item;
    r.section = no_item;
    r.reordering = false;
    return good;
}

static bool reorder_after(reader &r, const line_tokens &line) {
    if (!close_range(r, no_code, line[0].pos)) return false;
    const uint32_t id = line.size() > 1 ? token_item(r, line[1]) : no_item;
    if (id == no_item || r.out.items[id].section == no_item) {
        error(r.diag, line.size() > 1 ? line[1].pos : line[0].pos,
              "reorder-after needs a character or symbol that has a place in the order");
        return false;
    }
    r.cursor = id;
    r.skipped = no_item;
    r.reordering = true;
    return true;
}

static bool sections_after(reader &r, const line_tokens &line) {
    const uint32_t at = line.size() > 1 ? find_section(r.out, line[1].text) : no_item;
    if (at == no_item) {
        error(r.diag, line.back().pos, "reorder-sections-after needs a section of this order");
        return false;
    }
    r.section_cursor = at;
    r.moving_sections = true;
    return true;
}

// Reads a line between reorder-sections-after and its end: a script, possibly with new rules.
static bool move_section(reader &r, const line_tokens &line) {
    const uint32_t id = line[0].kind == tok::symbol ? find_section(r.out, line[0].text) : no_item;
    if (id == no_item) {
        error(r.diag, line[0].pos, "not the script of a section of this order");
        return false;
    }
    if (line.size() > 2) {
        std::vector<level_rule> rules;
        if (!read_rules(r, line, 2, rules)) return false;
        r.out.sections[id].rules = rules;
    }
    if (id == r.section_cursor) return true;
    auto &list = r.out.section_order;
    list.erase(std::find(list.begin(), list.end(), id));
    list.insert(std::find(list.begin(), list.end(), r.section_cursor) + 1, id);
    r.section_cursor = id;
    return true;
}

// Reads one to eight hexadecimal digits.
static bool all_hex(std::string_view digits, uint32_t &value) {
    const char *const end = digits.data() + digits.size();
    const auto read = std::from_chars(digits.data(), end, value, 16);
    return read.ec == std::errc() && read.ptr == end;
}

// Declares a range of symbols, such as <X0009> to <X327F>: the same text, then hexadecimal digits.
static bool symbol_range(reader &r, const token &first, const token &last, uint32_t step) {
    const std::string_view a = first.text, b = last.text;
    size_t same = 0;
    while (same < a.size() && same < b.size() && a[same] == b[same])
        ++same;
    uint32_t low = 0, high = 0;
    // Leading digits that are equal belong to the number, too.
    while (same > 0 && std::string_view("0123456789ABCDEF").find(a[same - 1]) != a.npos)
        --same;
    if (a.size() != b.size() || !all_hex(a.substr(same), low) || !all_hex(b.substr(same), high) ||
        high < low) {
        error(r.diag, first.pos,
              "a range of symbols needs two names that count up in hexadecimal digits");
        return false;
    }
    const uint32_t steps = (high - low) / step;
    if (!room_for(r, (size_t{steps} + 1) * (1 + a.size() / 64), first.pos)) return false;
    const int digits = int(a.size() - same);
    for (uint32_t i = 0; i <= steps; ++i) {
        std::string &name = r.out.pool.emplace_back(a.substr(0, same));
        name += format("%0*X", digits, unsigned(low + i * step));
        symbol_item(r.out, name, first.pos);
    }
    return true;
}

static bool collating_symbol(reader &r, const line_tokens &line) {
    if (line.size() < 2 || line[1].kind != tok::symbol) {
        error(r.diag, line[0].pos, "collating-symbol needs a name in angle brackets");
        return false;
    }
    if (line.size() >= 4 && line[2].kind == tok::ellipsis && line[3].kind == tok::symbol)
        return symbol_range(r, line[1], line[3], line[2].value);
    symbol_item(r.out, line[1].text, line[1].pos);
    return true;
}

static bool collating_element(reader &r, const line_tokens &line) {
    if (line.size() < 4 || line[1].kind != tok::symbol || !is_word(line[2], "from") ||
        line[3].kind != tok::string) {
        error(r.diag, line[0].pos, "expected: collating-element <name> from \"characters\"");
        return false;
    }
    if (++r.elements > most_elements) {
        error(r.diag, line[0].pos, "more than 8192 collating elements; remove some");
        return false;
    }
    const uint32_t id = symbol_item(r.out, line[1].text, line[1].pos);
    std::vector<std::string> unknown;
    order_item &it = r.out.items[id];
    it.kind = order_item::element;
    it.chars = string_codes(r.map, line[3], &unknown);
    if (!unknown.empty()) it.chars.clear(); // not in this code set
    return true;
}

static bool symbol_equivalence(reader &r, const line_tokens &line) {
    if (line.size() < 3 || line[1].kind != tok::symbol || line[2].kind != tok::symbol) {
        error(r.diag, line[0].pos, "symbol-equivalence needs two names in angle brackets");
        return false;
    }
    r.out.names[line[1].text] = named_item(r, line[2].text, line[2].pos);
    return true;
}

static bool section_script(reader &r, const line_tokens &line) {
    if (line.size() >= 2 && line[1].kind == tok::symbol) return true;
    error(r.diag, line[0].pos, "script needs a name in angle brackets");
    return false;
}

static bool end_reorder(reader &r, const line_tokens &line) { return end_order(r, line); }
static bool end_sections(reader &r, const line_tokens &) {
    r.moving_sections = false;
    return true;
}
static bool code_order(reader &r, const line_tokens &) {
    r.out.codepoint_order = true;
    return true;
}

static bool define_name(reader &r, const line_tokens &line) {
    if (line.size() > 1) r.defined.emplace(line[1].text);
    return true;
}
static bool undef_name(reader &r, const line_tokens &line) {
    if (line.size() > 1) r.defined.erase(text_of(line[1].text));
    return true;
}

static bool read_section(reader &r, lexer lex);

static bool copy_source(reader &r, const line_tokens &line) {
    if (line.size() < 2) {
        error(r.diag, line[0].pos, "copy needs the name of a locale source in quotation marks");
        return false;
    }
    lexer lex;
    if (!may_copy(r.copies, r.depth, r.diag, line[0].pos)) return false;
    if (!open_copy(r.set, r.diag, line[1], category, lex)) return false;
    ++r.depth;
    const bool good = read_section(r, lex);
    --r.depth;
    return good;
}

static bool collating_rest(reader &, const line_tokens &) { return true; }

static constexpr struct keyword {
    std::string_view name;
    bool (*act)(reader &, const line_tokens &);
} keywords[] = {
    {"collating-symbol",       collating_symbol  },
    {"collating-element",      collating_element },
    {"symbol-equivalence",     symbol_equivalence},
    {"script",                 section_script    },
    {"order_start",            order_start       },
    {"order_end",              end_order         },
    {"reorder-after",          reorder_after     },
    {"reorder-end",            end_reorder       },
    {"reorder-sections-after", sections_after    },
    {"reorder-sections-end",   end_sections      },
    {"codepoint_collation",    code_order        },
    {"define",                 define_name       },
    {"undef",                  undef_name        },
    {"copy",                   copy_source       },
    {"col_weight_max",         collating_rest    },
    {"section-symbol",         section_script    },
};

// Processes ifdef and its kin. False for any other line.
static bool conditional(reader &r, const line_tokens &line) {
    const std::string_view word = line[0].kind == tok::word ? line[0].text : std::string_view();
    const bool named = line.size() > 1 && r.defined.count(line[1].text) != 0;
    if (word == "ifdef" || word == "ifndef") {
        if (r.taken.size() == most_open_ifs) {
            error(r.diag, line[0].pos, "more than 64 nested ifdefs; close some");
        }
        const bool on = named == (word == "ifdef");
        r.taken.push_back(on);
        r.active.push_back(on);
        return true;
    }
    if (word != "elifdef" && word != "elifndef" && word != "else" && word != "endif") return false;
    if (r.taken.empty()) {
        error(r.diag, line[0].pos, text_of(word) + " without ifdef");
        return true;
    }
    if (word == "endif") {
        r.taken.pop_back();
        r.active.pop_back();
        return true;
    }
    const bool on = !r.taken.back() && (word == "else" || named == (word == "elifdef"));
    r.active.back() = on;
    if (on) r.taken.back() = true;
    return true;
}

static bool section_line(reader &r, const line_tokens &line) {
    if (conditional(r, line)) return true;
    if (std::find(r.active.begin(), r.active.end(), false) != r.active.end()) return true;
    if (line[0].kind == tok::word)
        for (const keyword &k : keywords)
            if (line[0].text == k.name) return k.act(r, line);
    return r.moving_sections ? move_section(r, line) : order_line(r, line);
}

static bool read_section(reader &r, lexer lex) {
    line_tokens line;
    const size_t open_ifs = r.taken.size();
    bool good = true, ended = false;
    while (next_line(lex, category, line, &ended)) {
        const bool broken = std::any_of(line.begin(), line.end(),
                                        [](const token &t) { return t.kind == tok::bad; });
        if (broken || !section_line(r, line)) good = false;
        if (r.taken.size() > most_open_ifs || !room_for(r, 0, line[0].pos)) return false;
        if (r.diag.errors > r.diag.max_errors) return false;
    }
    if (!ended) {
        error(r.diag, {lex.file, lex.at}, "end of file inside LC_COLLATE");
        good = false;
    }
    if (r.taken.size() != open_ifs) {
        error(r.diag, {lex.file, lex.at}, "ifdef without endif");
        r.taken.resize(open_ifs);
        r.active.resize(open_ifs);
        good = false;
    }
    return good;
}

// Numbers the chain, section by section.
static void rank_items(order &out) {
    uint32_t rank = 0;
    for (const uint32_t section : out.section_order) {
        const uint32_t head = out.sections[section].head;
        for (uint32_t id = out.items[head].next; id != head; id = out.items[id].next)
            out.items[id].rank = ++rank;
    }
}

bool read_order(source_set &set, const charmap &map, diagnostics &diag, order &result) {
    const int errors = diag.errors;
    lexer lex = open_lexer(*set.main, diag);
    if (!seek_category(lex, category)) {
        error(diag, {set.main, 0}, "the source has no LC_COLLATE");
        return false;
    }
    reader r{.set = set, .map = map, .diag = diag, .out = result};
    const bool good = read_section(r, lex);
    rank_items(result);
    return good && diag.errors == errors;
}

} // namespace kovac
