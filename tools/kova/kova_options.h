// What the options of all commands share. Each kova_options_<family>.cpp registers the commands of
// a family with their options and help.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "kova/kova_cli.h"

namespace kovacli {

// What a command line says: what all commands take, and the command to run, with its options.
struct command_line {
    common_options common;
    bool utf8 = false, bytes = false, no_progress = false;
    std::function<int()> run;
    std::vector<std::shared_ptr<void>> held;

    // Makes what the options of a command store; it lives as long as the command line.
    template <class T> T &hold() {
        const auto made = std::make_shared<T>();
        held.push_back(made);
        return *made;
    }
};

// Help for --utf8 and --bytes.
struct form_help {
    const char *utf8 = "Arguments, input and output are UTF-8. Default in locales of the code set "
                       "unicode, and when LC_ALL, LC_CTYPE or LANG says so";
    const char *bytes = "Arguments, input and output are bytes of the locale's code set";
};

// LOCALE, by its place or by -l.
CLI::Option *add_locale_name(CLI::App &command, std::string &locale);

// The options that all commands have, and what runs.
void add_common(CLI::App &command, command_line &args, std::function<int()> run,
                const std::string &examples, const form_help &help = {});

// JSON in place of a table or of single answers.
CLI::Option *add_json(CLI::App &command, command_line &args);

// The page in place of text, and the file.
CLI::Option *add_page(CLI::App &command, bool &html, std::string &out);

// A count or an offset; without a sign, which would wrap.
CLI::Option *add_count(CLI::App &command, const std::string &name, uint64_t &count,
                       const std::string &help);

// ---- The commands ----

void add_sort(CLI::App &app, command_line &args);
void add_compare(CLI::App &app, command_line &args);
void add_key(CLI::App &app, command_line &args);
void add_case(CLI::App &app, command_line &args); // upper, lower
void add_classify(CLI::App &app, command_line &args);
void add_measures(CLI::App &app, command_line &args); // width, trim, count
void add_text(CLI::App &app, command_line &args);

void add_number(CLI::App &app, command_line &args);
void add_money(CLI::App &app, command_line &args);
void add_date(CLI::App &app, command_line &args);
void add_parse_date(CLI::App &app, command_line &args);
void add_cal(CLI::App &app, command_line &args);

void add_info(CLI::App &app, command_line &args);
void add_locale(CLI::App &app, command_line &args);
void add_locales(CLI::App &app, command_line &args);
void add_order(CLI::App &app, command_line &args);
void add_verify(CLI::App &app, command_line &args);
void add_diff(CLI::App &app, command_line &args);

void add_convert(CLI::App &app, command_line &args);
void add_records(CLI::App &app, command_line &args);
void add_chart(CLI::App &app, command_line &args);
void add_symbols(CLI::App &app, command_line &args);

} // namespace kovacli
