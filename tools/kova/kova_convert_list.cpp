// The list of code sets and compiled pairs, and the message for a pair without a route.
#include "kova/kova_convert.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <set>

#include "common/tool_text.h"
#include "kova/kova_cli.h"
#include "kova/kova_io.h"
#include "kova/kova_table.h"
#include "kova/kova_text.h"

namespace kovacli {

namespace {
struct listed_set {
    std::vector<std::string> names;
    std::set<uint16_t> targets;
};
} // namespace

// "033304e4.cvo": the two numbers.
static bool numbers_of(const std::string &file, uint16_t &from, uint16_t &to) {
    if (file.size() != 12 || file.compare(8, 4, ".cvo") != 0) return false;
    const char *text = file.data();
    return std::from_chars(text, text + 4, from, 16).ptr == text + 4 &&
           std::from_chars(text + 4, text + 8, to, 16).ptr == text + 8;
}

// Is a file named by two names of which the registry lacks one? Only names open it.
static bool lacks_number(const std::string &file, const std::set<std::string> &known) {
    if (file.size() < 8 || file.compare(file.size() - 4, 4, ".cvo") != 0) return false;
    std::string stem = file.substr(0, file.size() - 4);
    std::transform(stem.begin(), stem.end(), stem.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
    for (size_t at = stem.find('_'); at != stem.npos; at = stem.find('_', at + 1))
        if (known.contains(stem.substr(0, at)) && known.contains(stem.substr(at + 1))) return false;
    return stem.find('_') != stem.npos;
}

static std::string established_name(const std::map<uint16_t, listed_set> &sets, uint16_t number) {
    const auto it = sets.find(number);
    return it == sets.end() || it->second.names.empty() ? std::to_string(number)
                                                        : it->second.names[0];
}

// Is a code set converted without an object of its own?
static bool follows_rules(uint16_t number) {
    descriptor cd;
    const unsigned direct = KO_CONVERT_DIRECT;
    return ko_open_conversion(&cd.cd, nullptr, std::to_string(number).c_str(), "utf8", direct) ==
           KO_OK;
}

static std::string joined(const std::vector<std::string> &words, size_t first) {
    std::string text;
    for (size_t i = first; i < words.size(); ++i)
        text += (i > first ? " " : "") + words[i];
    return text;
}

int list_code_sets(const data_place &place, bool json, const std::string &path) {
    std::map<uint16_t, listed_set> sets;
    std::set<std::string> known;
    for (const registry_entry &entry : registry_entries()) {
        if (!known.insert(entry.name).second) continue; // the first entry of a name counts
        sets[entry.number].names.push_back(kovatool::printable(entry.name));
    }
    std::vector<std::string> by_name;
    for (const std::string &dir : place.dirs) {
        for (const std::string &file : directory_entries(dir)) {
            uint16_t from = 0, to = 0;
            if (numbers_of(file, from, to))
                sets[from].targets.insert(to);
            else if (lacks_number(file, known))
                by_name.push_back(kovatool::printable(file));
        }
    }
    std::vector<std::vector<cell>> rows = {
        {{"number", -1, true}, {"code set"}, {"aliases"}}
    };
    std::vector<std::vector<cell>> pairs = {
        {{"from"}, {"to"}}
    };
    for (const auto &[number, set] : sets) {
        const std::string name = established_name(sets, number);
        rows.push_back({
            {std::to_string(number), -1, true},
            {name                     },
            {joined(set.names,       1)                    }
        });
        std::string targets;
        if (set.targets.empty() && follows_rules(number)) targets = "utf8 (by rule)";
        for (const uint16_t to : set.targets)
            targets += (targets.empty() ? "" : " ") + established_name(sets, to);
        if (!targets.empty()) pairs.push_back({{name}, {targets}});
    }
    output out;
    open(out, path);
    if (json) {
        write_json_rows(out, rows);
        write_json_rows(out, pairs);
        finish(out);
        return done;
    }
    write_table(out, rows);
    write(out,
          "\nCompiled pairs; others go through utf8 or unicode where both have a pair with it:\n");
    write_table(out, pairs);
    for (const std::string &file : by_name)
        write(out, "by name only: " + file.substr(0, file.size() - 4) + "\n");
    finish(out);
    return done;
}

// Letters and digits in lower case.
static std::string folded(const std::string &name) {
    std::string text;
    for (const char c : name) {
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) text.push_back(c);
        if (c >= 'A' && c <= 'Z') text.push_back(char(c + 32));
    }
    return text;
}

// A folded name whose number follows one of the words that all mean the same: "cp1252" for
// "windows1252"; any other name as it is.
static std::string numbered(const std::string &name) {
    for (const std::string_view word : {"windows", "win", "ccsid", "cp", "ibm", "ms", "dos"}) {
        const std::string rest = name.starts_with(word) ? name.substr(word.size()) : "";
        if (!rest.empty() && rest.find_first_not_of("0123456789") == rest.npos) return "cp" + rest;
    }
    return name;
}

// How little a name resembles the wanted one: 0 for a part of it, then by what was mistyped;
// SIZE_MAX if it does not.
static size_t strangeness(const std::string &wanted, const std::string &name) {
    const std::string other = folded(name);
    if (other.size() < 3) return SIZE_MAX;
    if (other.find(wanted) != other.npos || wanted.find(other) != wanted.npos) return 0;
    const size_t mistyped =
        std::min(distance(wanted, other), distance(numbered(wanted), numbered(other)));
    return mistyped * 4 <= wanted.size() ? mistyped : SIZE_MAX;
}

// Is a name of the kind that the first word of the wanted name asks for?
static bool is_of_kind(const std::string &wanted, const std::string &name) {
    const bool host = wanted.starts_with("ibm") || wanted.starts_with("ccsid");
    if (wanted.starts_with("win")) return name.starts_with("cp125");
    return name.starts_with("ibm") == host;
}

// "; there are sjis, cp932", one name a code set, or "" when nothing resembles the name.
static std::string similar_names(const std::string &name) {
    constexpr size_t most = 5;
    const std::string wanted = folded(name);
    if (wanted.size() < 2) return "";
    std::vector<std::pair<std::pair<size_t, bool>, registry_entry>> close;
    for (const registry_entry &entry : registry_entries())
        if (const size_t far = strangeness(wanted, entry.name); far != SIZE_MAX)
            close.push_back({
                {far, !is_of_kind(wanted, entry.name)},
                entry
            });
    const bool by_kind = wanted.starts_with("win"); // whatever number was mistyped
    std::stable_sort(close.begin(), close.end(), [&](const auto &a, const auto &b) {
        return by_kind && a.first.second != b.first.second ? b.first.second : a.first < b.first;
    });
    std::string text;
    std::set<uint16_t> told;
    for (const auto &[far, entry] : close)
        if (told.size() < most && told.insert(entry.number).second)
            text += (text.empty() ? "; there are " : ", ") + entry.name;
    return text;
}

void open_needed_route(const data_place &place, const code_set &from, const code_set &to,
                       route &way, unsigned flags) {
    if (open_route(place, from, to, way, flags)) return;
    for (const code_set &set : {from, to}) {
        if (set.number == KO_NO_CODESET)
            throw failure(bad_locale, "no code set is called \"" + set.name + "\"" +
                                          similar_names(set.name) +
                                          "; kova convert --list shows them");
    }
    throw failure(bad_locale, "there is no conversion from " + from.name + " to " + to.name +
                                  ", nor through utf8 or unicode; compile one with \"kovac "
                                  "convert --from " +
                                  from.name + " --to " + to.name + " --both -o " +
                                  (place.root.empty() ? "ROOT" : place.root) + "\"");
}

} // namespace kovacli
