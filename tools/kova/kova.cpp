// The command kova: its subcommands, what goes wrong before one runs, and the exit status.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iterator>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

#include "common/tool_describe.h"
#include "common/tool_help.h"
#include "common/tool_text.h"
#include "kova/kova_options.h"
#include "kova/kova_platform.h"
#include "kova/kova_words.h"

namespace {

using namespace kovacli;

int complain(int status, const char *text) {
    if (*text) kovatool::tell("kova", text);
    return status;
}

int complain(const failure &e) {
    complain(e.status, e.what());
    if (!e.excerpt.empty())
        std::fprintf(stderr, "%s\n", kovatool::printable(e.excerpt, "\n").c_str());
    return e.status;
}

// Output counts as written only once the system has taken it.
int finish_output(int status) {
    if (kovatool::flush_standard_output() || status != done) return status;
    if (reader_is_gone(errno)) return bad_file;
    return complain(bad_file,
                    (std::string("cannot write standard output: ") + std::strerror(errno)).c_str());
}

int run_command(command_line &args) {
    if (args.utf8 || args.common.json) args.common.form = text_form::utf8;
    if (args.bytes) args.common.form = text_form::bytes;
    try {
        return args.run();
    } catch (const failure &e) {
        return complain(e);
    }
}

// "-Iseconds", as date(1) has it: a flag with an optional text has no such form of its own.
void spell_out_iso(std::vector<std::string> &words) {
    for (std::string &word : words)
        if (words[0] == "date" && word.starts_with("-I") && word.size() > 3)
            word.replace(0, 2, "--iso-8601=");
}

// What adds commands, in the groups that help shows.
struct family {
    const char *group;
    void (*add)(CLI::App &, command_line &);
    std::string_view names; // between blanks
};
constexpr family families[] = {
    {"Texts",                 add_sort,       " sort "            },
    {"Texts",                 add_compare,    " compare "         },
    {"Texts",                 add_key,        " key "             },
    {"Texts",                 add_case,       " upper lower "     },
    {"Texts",                 add_classify,   " classify "        },
    {"Texts",                 add_measures,   " width trim count "},
    {"Texts",                 add_text,       " text "            },
    {"Numbers, money, dates", add_number,     " number "          },
    {"Numbers, money, dates", add_money,      " money "           },
    {"Numbers, money, dates", add_date,       " date "            },
    {"Numbers, money, dates", add_parse_date, " parse-date "      },
    {"Numbers, money, dates", add_cal,        " cal "             },
    {"Locales",               add_info,       " info "            },
    {"Locales",               add_locale,     " locale "          },
    {"Locales",               add_locales,    " locales "         },
    {"Locales",               add_order,      " order "           },
    {"Locales",               add_verify,     " verify "          },
    {"Locales",               add_diff,       " diff "            },
    {"Code sets",             add_convert,    " convert "         },
    {"Code sets",             add_records,    " records "         },
    {"Code sets",             add_chart,      " chart "           },
    {"Code sets",             add_symbols,    " symbols "         },
};

// Adds the commands that a command line needs: the family of the one that it names, or all of them.
void add_families(CLI::App &app, command_line &args, const std::vector<std::string> &words) {
    const size_t at = !words.empty() && words[0] == "help";
    const std::string name = at < words.size() ? " " + words[at] + " " : "";
    const auto named = [&name](const family &f) {
        return !name.empty() && f.names.find(name) != f.names.npos;
    };
    const bool all = std::none_of(std::begin(families), std::end(families), named);
    for (const family &f : families) {
        if (!all && !named(f)) continue;
        f.add(app, args);
        for (CLI::App *command : app.get_subcommands({}))
            if (command->get_group() == "Subcommands") command->group(f.group);
    }
}

// What is wrong with a command line, and whose help tells more.
std::string parse_fault(const CLI::App &app, const CLI::ParseError &e) {
    const CLI::App *command = &app;
    std::string name = app.get_name(), text = e.what();
    for (; !command->get_subcommands().empty(); name += " " + command->get_name())
        command = command->get_subcommands()[0];
    if (e.get_exit_code() == int(CLI::ExitCodes::RequiredError))
        for (const CLI::Option *option : command->get_options())
            if (option->get_required() && !option->count()) {
                text = (option->get_positional() ? option->get_type_name() : option->get_name()) +
                       " is missing";
                break;
            }
    for (const CLI::Option *option : command->get_options()) {
        const std::string own = option->get_name();
        if (!option->get_positional()) continue; // arguments are known by the names that help shows
        if (text.starts_with(own + " ")) text.replace(0, own.size(), option->get_type_name());
        if (text.ends_with(" " + own))
            text.replace(text.size() - own.size(), own.size(), option->get_type_name());
    }
    return text + "; " + name + " --help tells more";
}

int run_main(int argc, char **argv) {
    command_line args;
    CLI::App app(
        "Sorts, compares, classifies, maps and converts text under compiled locales, with the same "
        "answers on every machine.",
        "kova");
    app.require_subcommand(1);
    kovatool::add_help(app);
    kovatool::add_describe(app);
    app.footer(
        "kova COMMAND --help tells more, with examples.\n"
        "Exit status: 0 done, 1 bad text, 2 bad usage, 3 bad locale, code set or data root, or no "
        "memory, 4 bad file.");
    try {
        std::vector<std::string> words = program_arguments(argc, argv);
        spell_out_iso(words);
        add_families(app, args, words);
        words = arranged_words(app, std::move(words));
        std::reverse(words.begin(), words.end()); // CLI11 takes them last first
        app.parse(std::move(words));
    } catch (const CLI::Success &e) {
        return app.exit(e);
    } catch (const CLI::ParseError &e) {
        return complain(bad_usage, parse_fault(app, e).c_str());
    } catch (const failure &e) {
        return complain(e);
    }
    return run_command(args);
}

} // namespace

static constexpr char exhausted[] =
    "kova: memory is exhausted; give it more, or sort with a smaller --buffer-size\n";

// Before the initialisers of the option parser, which allocate.
[[gnu::constructor(101)]] static void watch_memory() { kovatool::end_without_memory(exhausted); }

int main(int argc, char **argv) {
    prepare_process();
    try {
        return finish_output(run_main(argc, argv));
    } catch (const std::bad_alloc &) {
        std::fputs(exhausted, stderr);
    } catch (const std::length_error &) {
        std::fputs("kova: the input asks for more memory than there is\n", stderr);
    } catch (const std::system_error &e) {
        return complain(bad_file, e.what());
    }
    return bad_locale;
}
