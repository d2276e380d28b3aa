// Which source holds for a code set (data/mappings.list), and what the other sources have.
#include "kovac/kovac_convert.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "kovac/kovac_pack.h"
#include "kovac_lists.h"

namespace kovac {

static bool read_row(const std::vector<std::string> &words, set_source &row) {
    static constexpr std::string_view kinds[] = {"charmap", "libc", "icu"};
    if (words.size() < 3) return false;
    const std::string &number = words[0];
    const auto kind = std::find(std::begin(kinds), std::end(kinds), words[1]);
    if (std::from_chars(number.data(), number.data() + number.size(), row.number).ec != std::errc{})
        return false;
    row.kind = source_kind(kind - std::begin(kinds));
    row.name = words[2];
    for (size_t i = 3; i < words.size(); ++i) {
        if (words[i] == "single") row.part = set_part::single;
        if (words[i] == "pairs") row.part = set_part::pairs;
        row.ascii_controls |= words[i] == "ascii";
        row.all |= words[i] == "all";
        row.euro |= words[i] == "euro";
    }
    return kind != std::end(kinds);
}

const std::vector<set_source> &set_sources() {
    static const std::vector<set_source> rows = [] {
        std::vector<set_source> made;
        for (const list_line &line : list_lines(mappings_list)) {
            set_source row;
            if (read_row(line.words, row)) made.push_back(std::move(row));
        }
        return made;
    }();
    return rows;
}

const set_source *source_of(int number) {
    for (const set_source &row : set_sources())
        if (row.number == number) return &row;
    return nullptr;
}

// ---- changes of a source ----

void take_part(conv_set &set, set_part part) {
    if (part == set_part::whole) return;
    const int len = part == set_part::pairs ? 2 : 1;
    std::map<char_bytes, uint32_t> codes;
    for (const auto &[bytes, code] : set.codes)
        if (bytes.len == len) codes.emplace(char_bytes{false, bytes.len, bytes.value}, code);
    set.codes = std::move(codes);
    std::erase_if(set.bytes, [len](const auto &one) { return one.second.len != len; });
    for (auto &[code, bytes] : set.bytes)
        bytes.shifted = false;
    set.stateful = false;
}

static void relate(conv_set &set, char_bytes bytes, uint32_t code) {
    set.codes[bytes] = code;
    set.bytes[code] = bytes;
}

void change_set(conv_set &set, const set_source &source) {
    take_part(set, source.part);
    for (const uint32_t control : {0x1Au, 0x1Cu, 0x7Fu})
        if (source.ascii_controls) relate(set, {false, 1, control}, control);
    constexpr uint32_t currency_sign = 0xA4, euro_sign = 0x20AC;
    if (!source.euro || !set.bytes.contains(currency_sign)) return;
    relate(set, set.bytes.at(currency_sign), euro_sign);
    set.bytes.erase(currency_sign);
}

// ---- charmaps of locales ----

// The characters of the set with the columns of the charmap, in the order of their bytes.
static int replace_chars(const conv_set &set, charmap &map) {
    std::vector<charmap_char> chars;
    int changed = 0;
    for (const auto &[bytes, code] : set.codes) {
        const charmap_char *known = find_wide(map, uint16_t(bytes.value));
        changed += !known || known->code != code;
        chars.push_back({code, uint16_t(bytes.value), 1, known ? known->width : uint8_t(1)});
    }
    for (const charmap_char &c : map.chars)
        changed += !set.codes.contains({false, 1, c.wide});
    if (!changed) return 0;
    const std::vector<charmap_char> before = std::exchange(map.chars, chars);
    const auto names = std::exchange(map.by_code, {});
    for (uint32_t i = 0; i < map.chars.size(); ++i)
        map.by_code.emplace(map.chars[i].code, i);
    for (const auto &[code, index] : names) {
        if (code < private_code) continue; // a name without a code point keeps its byte
        const charmap_char *same = find_wide(map, before[index].wide);
        if (same) map.by_code.emplace(code, uint32_t(same - map.chars.data()));
    }
    for (const charmap_char &c : map.chars)
        map.hash = (map.hash ^ c.code) * 0x100000001b3u;
    return changed;
}

void correct_charmap(const std::string &name, charmap &map, diagnostics &diag) {
    const set_source *source = map.unicode || name.find('/') != std::string::npos
                                   ? nullptr
                                   : source_of(find_code_set(map.name));
    const charmap_char *a = map.max_len == 1 ? find_code(map, 'A') : nullptr;
    constexpr uint16_t host_a = 0xC1;
    if (!source || source->kind != source_kind::icu || !a || a->wide != host_a) return;
    conv_set set;
    std::string why;
    if (!read_icu_set(source->name, set, &why)) {
        warning(diag, {},
                format("charmap %s is taken as it is: the code set comes from ICU's %s, and %s",
                       map.name.c_str(), source->name.c_str(), why.c_str()));
        return;
    }
    complete_set(set);
    if (const int changed = replace_chars(set, map))
        warning(diag, {},
                format("charmap %s: %d characters are corrected as in ICU's %s", map.name.c_str(),
                       changed, source->name.c_str()));
}

// ---- comparison ----

// The names under which a source of this kind may have the code set; not those of another one.
static std::vector<std::string> names_in(source_kind kind, int number) {
    std::vector<std::string> names;
    const code_set *known = registered(number);
    const bool has_charmap = known && known->charmap != std::string_view("-");
    if (has_charmap) names.emplace_back(known->charmap);
    if (kind == source_kind::charmap || number >= first_private_number) return names;
    names.push_back(kind == source_kind::icu ? format("ibm-%d", number)
                                             : format("IBM%03d", number));
    if (kind == source_kind::libc) names.push_back(format("CP%d", number));
    std::erase_if(names, [number](const std::string &name) {
        const int other = find_code_set(name);
        return other != no_number && other != number;
    });
    return names;
}

static bool read_other(source_kind kind, const std::string &name,
                       const std::vector<std::string> &charmap_dirs, conv_set &set) {
    std::string quiet;
    if (kind == source_kind::libc) return read_libc_set(name, set, &quiet);
    if (kind == source_kind::icu) return read_icu_set(name, set, &quiet);
    diagnostics none{.sink = &quiet};
    return !find_file(charmap_dirs, name).empty() &&
           read_charmap_set(charmap_dirs, name, none, set);
}

static std::string code_text(const std::map<char_bytes, uint32_t> &codes, char_bytes bytes) {
    const auto found = codes.find(bytes);
    return found == codes.end() ? "nothing" : format("U+%04X", unsigned(found->second));
}

static std::string bytes_text(char_bytes bytes) {
    return format("%0*x", bytes.len * 2, unsigned(bytes.value));
}

// The characters that convert to other code points, and the code points that convert to other
// bytes, in one set than in the other. What only one of them converts to bytes does not count: many
// such mappings are mere likenesses.
static std::vector<std::string> differences(const conv_set &set, const conv_set &other,
                                            const std::string &label) {
    std::vector<std::string> lines;
    const auto compare = [&](char_bytes bytes) {
        const std::string here = code_text(set.codes, bytes), there = code_text(other.codes, bytes);
        if (here != there)
            lines.push_back(bytes_text(bytes) + ": " + here + ", " + label + " " + there);
    };
    for (const auto &[bytes, code] : set.codes)
        if (code <= other.last) compare(bytes);
    for (const auto &[bytes, code] : other.codes)
        if (!set.codes.contains(bytes)) compare(bytes);
    for (const auto &[code, bytes] : std::map(set.bytes.begin(), set.bytes.end())) {
        const auto found = other.bytes.find(code);
        if (found == other.bytes.end() || found->second == bytes) continue;
        lines.push_back(format("U+%04X: ", unsigned(code)) + bytes_text(bytes) + ", " + label +
                        " " + bytes_text(found->second));
    }
    return lines;
}

static void compare_with(const conv_set &set, conv_set &other, const std::string &label,
                         diagnostics &diag) {
    complete_set(other);
    const std::vector<std::string> lines = differences(set, other, label);
    if (lines.empty()) return;
    warning(diag, {},
            format("%s: %s and %s differ in %zu characters; the former holds",
                   set.names.front().c_str(), set.origin.c_str(), label.c_str(), lines.size()));
    for (const std::string &line : lines)
        note(diag, {}, line);
}

void compare_sources(const conv_set &set, const std::vector<std::string> &charmap_dirs,
                     diagnostics &diag) {
    static constexpr struct {
        source_kind kind;
        const char *label;
    } kinds[] = {
        {source_kind::charmap, "charmap"  },
        {source_kind::libc,    "C library"},
        {source_kind::icu,     "ICU"      }
    };
    const set_source *source = source_of(set.number);
    if (set.form != set_form::listed || set.number == no_number ||
        (source && source->part != set_part::whole))
        return;
    for (const auto &[kind, label] : kinds) {
        for (const std::string &name : names_in(kind, set.number)) {
            conv_set other;
            if (source && source->all) other.last = last_sip_code;
            if (set.origin.starts_with(label) || !read_other(kind, name, charmap_dirs, other))
                continue;
            compare_with(set, other, std::string(label) + " " + name, diag);
            break;
        }
    }
}

} // namespace kovac
