// Lists what an option parser knows of a command, in lines of fields separated by tabs:
//   command   PATH  DESCRIPTION
//   option    PATH  NAMES  VALUE  MARKS  DESCRIPTION  DEFAULT  EXCLUDES  NEEDS
//   argument  PATH  VALUE  -      MARKS  DESCRIPTION
//   footer    PATH  TEXT
// PATH is the words that lead to the command. MARKS are letters: r required, m may be repeated, o
// its value may be left out. An argument that has a name, too, is listed as both. VALUE is empty
// for a flag, and ends in {A,B} if only these are taken. A backslash stands before "n" for a
// newline, "t" for a tab, and before a backslash.
#include "common/tool_describe.h"

#include <cstdio>
#include <initializer_list>
#include <set>
#include <string>

#include <CLI/CLI.hpp>

namespace kovatool {

static std::string escaped(const std::string &text) {
    std::string out;
    for (const char c : text) {
        const char *const spelled = c == '\n'   ? "\\n"
                                    : c == '\t' ? "\\t"
                                    : c == '\\' ? "\\\\"
                                                : nullptr;
        if (spelled)
            out += spelled;
        else
            out += c;
    }
    return out;
}

static void put_line(std::initializer_list<std::string> fields) {
    std::string line;
    for (const std::string &field : fields)
        line += (line.empty() ? "" : "\t") + escaped(field);
    std::puts(line.c_str());
}

// "-o,--output", shorter names first, without what the parser puts into the names of flags.
static std::string names_of(const CLI::Option &option) {
    std::string names;
    for (const std::string &name : option.get_snames())
        names += (names.empty() ? "-" : ",-") + name;
    for (const std::string &name : option.get_lnames())
        names += (names.empty() ? "--" : ",--") + name;
    return names;
}

static std::string joined(const std::set<CLI::Option *> &options) {
    std::string names;
    for (const CLI::Option *option : options)
        names += (names.empty() ? "" : " ") + option->get_name();
    return names;
}

// The name of a flag that may be followed by "=TEXT" is followed by the text that it stands for
// alone, in braces; that of a flag that turns something off by "false".
static bool takes_optional_text(const CLI::Option &option) {
    const std::string name = option.get_name(false, true);
    return name.find('{') != name.npos && name.find("{false}") == name.npos;
}

// The type without what it is checked for, unless that is a set of words.
static std::string value_of(const CLI::Option &option) {
    if (takes_optional_text(option)) return "TEXT";
    if (option.get_items_expected_max() == 0) return "";
    std::string value = option.get_type_name();
    const size_t colon = value.find(':');
    if (colon == value.npos) return value;
    return value[colon + 1] == '{' ? value.erase(colon, 1) : value.substr(0, colon);
}

static std::string marks_of(const CLI::Option &option) {
    std::string marks = option.get_required() ? "r" : "";
    if (option.get_items_expected_max() > 1) marks += "m";
    if (takes_optional_text(option)) marks += "o";
    return marks;
}

static void put_option(const std::string &path, const CLI::Option &option) {
    if (option.get_group().empty()) return;
    const std::string value = value_of(option), marks = marks_of(option);
    if (option.get_positional())
        put_line({"argument", path, value, "-", marks, option.get_description()});
    if (option.nonpositional())
        put_line({"option", path, names_of(option), value, marks, option.get_description(),
                  option.get_default_str(), joined(option.get_excludes()),
                  joined(option.get_needs())});
}

static void put_command(const std::string &path, const CLI::App &command) {
    put_line({"command", path, command.get_description()});
    for (const CLI::Option *option : command.get_options())
        put_option(path, *option);
    if (!command.get_footer().empty()) put_line({"footer", path, command.get_footer()});
    for (const CLI::App *inner : command.get_subcommands({}))
        put_command(path + " " + inner->get_name(), *inner);
}

void add_describe(CLI::App &app) {
    const auto describe = [&app] {
        put_command(app.get_name(), app);
        throw CLI::Success();
    };
    app.add_flag_callback("--describe", describe,
                          "List all commands and options, one a line, for programs")
        ->trigger_on_parse();
}

} // namespace kovatool
