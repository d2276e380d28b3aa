// Help by columns: names on the left, what they mean on the right.
#include "common/tool_help.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include <CLI/CLI.hpp>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/ioctl.h>
#include <unistd.h>
#endif

namespace kovatool {

static int terminal_columns() {
#ifdef _WIN32
    CONSOLE_SCREEN_BUFFER_INFO screen;
    if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &screen)) return 0;
    return screen.srWindow.Right - screen.srWindow.Left + 1;
#else
    winsize size = {};
    return ioctl(1, TIOCGWINSZ, &size) ? 0 : size.ws_col;
#endif
}

int help_columns() {
    const char *const said = std::getenv("COLUMNS");
    int columns = said ? std::atoi(said) : 0;
    if (columns < 1) columns = terminal_columns();
    return columns < 1 ? 80 : std::clamp(columns, 40, 100);
}

// The words of a text from a column on, in as many lines as they need; later lines begin at indent.
static void put_words(std::ostream &out, const std::string &text, size_t column, size_t indent,
                      size_t columns) {
    std::istringstream words(text);
    bool first = true;
    for (std::string word; words >> word; first = false) {
        if (!first && column + 1 + word.size() > columns) {
            out << '\n' << std::string(indent, ' ');
            column = indent;
        } else if (!first) {
            out << ' ';
            ++column;
        }
        out << word;
        column += word.size();
    }
    out << '\n';
}

// Where the texts begin; names that reach there stand on lines of their own.
static size_t text_column(size_t columns) { return columns < 64 ? 20 : 26; }

static void put_row(std::ostream &out, const std::string &name, const std::string &text,
                    size_t columns) {
    const std::string left = "  " + name;
    const size_t column = text_column(columns);
    out << left;
    if (left.size() + 2 > column)
        out << '\n' << std::string(column, ' ');
    else
        out << std::string(column - left.size(), ' ');
    put_words(out, text, column, column, columns);
}

// The name of a value, without what it is checked for.
static std::string value_name(const CLI::Option &option) {
    const std::string type = option.get_type_name();
    return type.substr(0, type.find(':'));
}

static bool repeats(const CLI::Option &option) {
    return option.get_items_expected_max() >= CLI::detail::expected_max_vector_size;
}

// "LOCALE", "[FILE]...".
static std::string argument_name(const CLI::Option &option) {
    const std::string name = value_name(option);
    return (option.get_required() ? name : "[" + name + "]") + (repeats(option) ? "..." : "");
}

// "-o, --output FILE", "--replace[=TEXT]". A flag that takes a text names the one that it stands
// for without it in braces.
static std::string option_name(const CLI::Option &option) {
    std::string name;
    for (const std::string &letter : option.get_snames())
        name += (name.empty() ? "-" : ", -") + letter;
    for (const std::string &word : option.get_lnames())
        name += (name.empty() ? "--" : ", --") + word;
    if (option.get_name(false, true).find('{') != std::string::npos) return name + "[=TEXT]";
    return option.get_items_expected_max() ? name + " " + value_name(option) : name;
}

static std::string option_text(const CLI::Option &option) {
    if (option.get_positional()) return value_name(option) + " by name instead of by its place";
    const std::string value = option.get_default_str();
    return option.get_description() + (value.empty() ? "" : ". Default: " + value);
}

static void put_options(std::ostream &out, const CLI::App &app, const std::string &group,
                        bool arguments, size_t columns) {
    const auto wanted = [&group, arguments](const CLI::Option *option) {
        return option->get_group() == group &&
               (arguments ? option->get_positional() : option->nonpositional());
    };
    const auto options = app.get_options(wanted);
    if (options.empty()) return;
    out << "\n" << (arguments ? "Arguments" : group) << ":\n";
    for (const CLI::Option *option : options)
        if (arguments)
            put_row(out, argument_name(*option), option->get_description(), columns);
        else
            put_row(out, option_name(*option), option_text(*option), columns);
}

static void put_commands(std::ostream &out, const CLI::App &app, size_t columns) {
    std::string group;
    for (const CLI::App *command : app.get_subcommands({})) {
        if (command->get_group() != group) {
            group = command->get_group();
            out << '\n' << (group == "Subcommands" ? "Commands" : group) << ":\n";
        }
        put_row(out, command->get_name(), command->get_description(), columns);
    }
}

static void put_footer(std::ostream &out, const std::string &footer, size_t columns) {
    std::istringstream lines(footer);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(' '))
            out << line << '\n';
        else
            put_words(out, line, 0, 0, columns);
}

namespace {
struct column_layout : CLI::Formatter {
    size_t columns;
    explicit column_layout(int count) : columns(size_t(count)) {}

    std::string make_help(const CLI::App *app, std::string name,
                          CLI::AppFormatMode) const override {
        std::ostringstream out;
        const std::string what = app->get_description();
        put_words(out, what + (what.ends_with('.') ? "" : "."), 0, 0, columns);
        std::string usage = name + " [OPTIONS]";
        for (const CLI::Option *option : app->get_options())
            if (option->get_positional()) usage += " " + argument_name(*option);
        if (!app->get_subcommands({}).empty()) usage += " COMMAND";
        out << "\nUsage: ";
        put_words(out, usage, 7, 11, columns);
        put_options(out, *app, "Options", true, columns);
        put_commands(out, *app, columns);
        for (const std::string &group : app->get_groups())
            if (!group.empty()) put_options(out, *app, group, false, columns);
        if (!app->get_footer().empty()) out << '\n';
        put_footer(out, app->get_footer(), columns);
        return out.str();
    }
};
} // namespace

std::shared_ptr<CLI::FormatterBase> help_layout(int columns) {
    return std::make_shared<column_layout>(columns);
}

void add_help(CLI::App &app) {
    app.formatter(help_layout(help_columns()));
    app.set_help_flag("-h,--help", "Show this help");
    app.set_version_flag("--version", app.get_name() + " " KOVA_RELEASE, "Show the release");
}

} // namespace kovatool
