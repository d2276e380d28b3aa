// Finding the command that words name, and putting its words in order.
#include "kova/kova_words.h"

#include <algorithm>

#include <CLI/CLI.hpp>

#include "common/tool_help.h"
#include "kova/kova_cli.h"
#include "kova/kova_text.h"

namespace kovacli {

// The command that a word most probably means: one that differs in a third of its letters at most,
// or the first one that begins as the word does; else "".
static std::string nearest_command(const CLI::App &app, const std::string &word) {
    std::string nearest;
    size_t least = word.size() / 3 + 1;
    for (const CLI::App *command : app.get_subcommands({})) {
        const std::string name = command->get_name();
        const bool begins = name.starts_with(word) || word.starts_with(name);
        const size_t d = begins ? std::min<size_t>(1, least - 1) : distance(word, name);
        if (d < least) nearest = name, least = d;
    }
    return nearest;
}

// The names of the commands, group by group, in lines.
static std::string command_names(const CLI::App &app) {
    const size_t columns = size_t(kovatool::help_columns());
    std::string all, line, group;
    for (const CLI::App *command : app.get_subcommands({})) {
        const std::string name = command->get_name();
        if (group != command->get_group() || line.size() + 1 + name.size() > columns) {
            if (!line.empty()) all += line + "\n";
            line = " ";
        }
        group = command->get_group();
        line += " " + name;
    }
    return all + line;
}

// "kova text".
static std::string full_name(const CLI::App &app) {
    const CLI::App *const parent = app.get_parent();
    return (parent ? full_name(*parent) + " " : "") + app.get_name();
}

[[noreturn]] static void refuse(const CLI::App &app, const std::string &word) {
    const std::string name = full_name(app);
    const std::string help = name + " --help says what each does";
    if (word.empty())
        throw failure(bad_usage, name + " needs a command, one of those below; " + help,
                      command_names(app));
    const std::string no =
        "there is no command \"" + (app.get_parent() ? app.get_name() + " " : "") + word + "\"; ";
    const std::string nearest = nearest_command(app, word);
    if (nearest.empty()) throw failure(bad_usage, no + help, command_names(app));
    throw failure(bad_usage,
                  no + "the nearest is " + nearest + ", and " + name + " --help lists all");
}

static const CLI::App *command_named(const CLI::App &app, const std::string &name) {
    for (const CLI::App *command : app.get_subcommands({}))
        if (command->get_name() == name) return command;
    return nullptr;
}

static bool has_files(const CLI::App &command) {
    for (const CLI::Option *option : command.get_options())
        if (option->get_positional() && option->get_name(true) == "file") return true;
    return false;
}

// Does the command take a word that begins with "-" as an argument? That is one that would be a
// negative value: no letter follows, nor a digit that is an option.
static bool is_value(const CLI::App &command, const std::string &word) {
    const char next = word[1];
    const bool letter = (next >= 'a' && next <= 'z') || (next >= 'A' && next <= 'Z');
    return !letter && next != '-' && !has_files(command) &&
           !command.get_option_no_throw(word.substr(0, 2));
}

static const CLI::Option &option_named(const CLI::App &command, const std::string &name) {
    const CLI::Option *const option = command.get_option_no_throw(name);
    if (option) return *option;
    throw failure(bad_usage,
                  "there is no option " + name + "; " + full_name(command) + " --help lists all");
}

static bool takes_word(const CLI::Option &option) { return option.get_items_expected_max() > 0; }

// Is the value of an option the next word, and not a part of this one? Throws failure if there is
// no such option.
static bool wants_next(const CLI::App &command, const std::string &word) {
    if (word[1] == '-') {
        const size_t end = word.find('=');
        return takes_word(option_named(command, word.substr(0, end))) && end == word.npos;
    }
    for (size_t i = 1; i < word.size(); ++i)
        if (takes_word(option_named(command, std::string("-") + word[i])))
            return i + 1 == word.size();
    return false;
}

std::vector<std::string> arranged_words(const CLI::App &app, std::vector<std::string> words) {
    if (!words.empty() && words[0] == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    const CLI::App *command = &app;
    size_t at = 0;
    while (!command->get_subcommands({}).empty()) {
        const std::string word = at < words.size() ? words[at] : "";
        if (word.starts_with('-')) return words;
        const CLI::App *const named = command_named(*command, word);
        if (!named) refuse(*command, word);
        command = named;
        ++at;
    }
    std::vector<std::string> arranged(words.begin(), words.begin() + int64_t(at)), places;
    for (; at < words.size() && words[at] != "--"; ++at) {
        const std::string &word = words[at];
        if (word.size() < 2 || word[0] != '-' || is_value(*command, word)) {
            places.push_back(word);
            continue;
        }
        arranged.push_back(word);
        if (wants_next(*command, word) && at + 1 < words.size()) arranged.push_back(words[++at]);
    }
    if (at < words.size())
        places.insert(places.end(), words.begin() + int64_t(at) + 1, words.end());
    if (!places.empty()) arranged.emplace_back("--");
    arranged.insert(arranged.end(), places.begin(), places.end());
    return arranged;
}

} // namespace kovacli
