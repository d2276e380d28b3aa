// The code sets that kovac knows, from data/registry.inc, and the registry file of a data root.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kovac {

struct code_set {
    uint16_t number;
    const char *charmap; // name of its charmap, "-" if it has none
    const char *names;   // names and aliases in lower case, separated by blanks
};

std::span<const code_set> code_sets();
const code_set *registered(int number); // null if there is none

constexpr int no_number = -1;
constexpr size_t name_limit = 21; // bytes of a code-set name in a registry

// One line of a registry file; a line without an entry has an empty name.
struct registry_line {
    std::string name; // lower case
    unsigned number;
    std::string text; // comment, or the rest of the line after the number, unchanged
};

struct registry {
    std::vector<registry_line> lines;
};

// Reads the text of a registry file. False with *why and the line number in *bad_line.
bool parse_registry(const std::string &text, registry &reg, int *bad_line, std::string *why);
std::string registry_text(const registry &reg);

// The number of a name in either case; no_number if there is none.
int find_name(const registry &reg, std::string_view name);
int find_code_set(std::string_view name); // by charmap name, other names, digits

// Sets the number of a name, adding it if it is new.
void set_name(registry &reg, std::string_view name, unsigned number);
// Adds every known name that the registry lacks.
void add_code_sets(registry &reg);

} // namespace kovac
