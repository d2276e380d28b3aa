// The known code sets, and parsing, changing and writing a registry file.
#include "kovac/kovac_registry.h"

#include <algorithm>
#include <cstdio>

namespace kovac {

static constexpr code_set known[] = {
#define KOVAC_CODE_SET(number, charmap, names) {number, charmap, names},
#include "../../data/registry.inc"
#undef KOVAC_CODE_SET
};

std::span<const code_set> code_sets() { return known; }

const code_set *registered(int number) {
    for (const code_set &set : known)
        if (set.number == number) return &set;
    return nullptr;
}

static char lower(char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; }

static std::string lowered(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), lower);
    return out;
}

// Calls use(name) for every name of a code set.
template <class Use> static void each_name(const code_set &set, Use use) {
    std::string_view names = set.names;
    while (!names.empty()) {
        const size_t end = std::min(names.find(' '), names.size());
        if (end > 0) use(names.substr(0, end));
        names.remove_prefix(std::min(end + 1, names.size()));
    }
}

// The number of a name that consists of digits, else no_number.
static int digits_value(std::string_view name) {
    int value = 0;
    for (char c : name) {
        if (c < '0' || c > '9' || value > 0xFFFF) return no_number;
        value = value * 10 + (c - '0');
    }
    return name.empty() || value > 0xFFFF ? no_number : value;
}

int find_code_set(std::string_view name) {
    const std::string wanted = lowered(name);
    if (wanted == "-") return no_number;
    for (const code_set &set : known) {
        if (lowered(set.charmap) == wanted) return set.number;
    }
    int number = no_number;
    for (const code_set &set : known) {
        each_name(set, [&](std::string_view one) {
            if (number == no_number && one == wanted) number = set.number;
        });
    }
    return number != no_number ? number : digits_value(wanted);
}

int find_name(const registry &reg, std::string_view name) {
    const std::string wanted = lowered(name);
    for (const registry_line &line : reg.lines) {
        if (line.name == wanted) return int(line.number);
    }
    return no_number;
}

// ---- the file ----

static bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

static bool parse_line(std::string_view text, registry_line &line, std::string *why) {
    line = {};
    size_t at = 0;
    while (at < text.size() && is_space(text[at]))
        ++at;
    if (at == text.size() || text[at] == '#') {
        line.text = text;
        return true;
    }
    const size_t start = at;
    while (at < text.size() && text[at] > ' ' && text[at] < 0x7F)
        ++at;
    line.name = lowered(text.substr(start, at - start));
    if (line.name.empty() || (at < text.size() && !is_space(text[at]))) {
        *why = "a code-set name holds printable characters only";
        return false;
    }
    if (line.name.size() > name_limit) {
        *why = "code-set name of more than 21 characters";
        return false;
    }
    while (at < text.size() && is_space(text[at]))
        ++at;
    const size_t digits = at;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        line.number = line.number * 10 + unsigned(text[at] - '0');
        if (line.number > 0xFFFF) break;
    }
    if (at == digits || line.number > 0xFFFF || (at < text.size() && !is_space(text[at]))) {
        *why = "a number from 0 to 65535 must follow the name";
        return false;
    }
    line.text = text.substr(at);
    return true;
}

bool parse_registry(const std::string &text, registry &reg, int *bad_line, std::string *why) {
    reg.lines.clear();
    int number = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        registry_line line;
        ++number;
        if (!parse_line(std::string_view(text).substr(at, end - at), line, why)) {
            *bad_line = number;
            return false;
        }
        reg.lines.push_back(std::move(line));
        at = end + 1;
    }
    return true;
}

std::string registry_text(const registry &reg) {
    std::string out;
    for (const registry_line &line : reg.lines) {
        if (!line.name.empty()) {
            out += line.name;
            out.append(line.name.size() < name_limit + 1 ? name_limit + 1 - line.name.size() : 1,
                       ' ');
            out += std::to_string(line.number);
        }
        out += line.text + "\n";
    }
    return out;
}

void set_name(registry &reg, std::string_view name, unsigned number) {
    const std::string wanted = lowered(name);
    for (registry_line &line : reg.lines) {
        if (line.name != wanted) continue;
        line.number = number;
        return;
    }
    reg.lines.push_back({wanted, number, {}});
}

void add_code_sets(registry &reg) {
    if (reg.lines.empty()) {
        reg.lines.push_back(
            {{}, 0, "# Code sets: name and number. The first entry of a name counts."});
    }
    for (const code_set &set : known) {
        each_name(set, [&reg, &set](std::string_view name) {
            if (find_name(reg, name) == no_number) set_name(reg, name, set.number);
        });
    }
}

} // namespace kovac
