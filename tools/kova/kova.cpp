// The command kova: its subcommands, what goes wrong before one runs, and the exit status.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <utility>

#include "common/tool_describe.h"
#include "common/tool_text.h"
#include "kova.h"
#include "kova/kova_options.h"
#include "kova/kova_platform.h"
#include "kova/kova_text.h"

namespace {

using namespace kovacli;

// Shows the optional text of a flag as "[=TEXT]".
struct help_format : CLI::Formatter {
    std::string make_option_name(const CLI::Option *option, bool positional) const override {
        std::string name = CLI::Formatter::make_option_name(option, positional);
        const bool optional = name.find('{') != name.npos;
        for (size_t at = 0; (at = name.find('{')) != name.npos;)
            name.erase(at, name.find('}', at) + 1 - at);
        return optional ? name + "[=TEXT]" : name;
    }
};

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
    if (args.utf8) args.common.form = text_form::utf8;
    if (args.bytes) args.common.form = text_form::bytes;
    try {
        return args.run();
    } catch (const failure &e) {
        return complain(e);
    }
}

// Names a first word that is no command, and the command that is most like it.
void check_command(CLI::App &app, const std::vector<std::string> &words) {
    if (words.empty() || words[0].starts_with('-')) return;
    std::string nearest;
    size_t least = SIZE_MAX;
    for (const CLI::App *command : app.get_subcommands({})) {
        const size_t d = distance(words[0], command->get_name());
        if (d < least) nearest = command->get_name();
        least = std::min(least, d);
    }
    if (least)
        throw failure(bad_usage, "there is no command \"" + words[0] + "\"; the nearest is " +
                                     nearest + ", and kova --help lists all");
}

// "-Iseconds", as date(1) has it: a flag with an optional text has no such form of its own.
void spell_out_iso(std::vector<std::string> &words) {
    for (std::string &word : words)
        for (const char *const to : {"date", "hours", "minutes", "seconds", "ns"})
            if (words[0] == "date" && word == std::string("-I") + to)
                word = std::string("--iso-8601=") + to;
}

int run_main(int argc, char **argv) {
    command_line args;
    CLI::App app(
        "Sorts, compares, classifies, maps and converts text under compiled locales, with the same "
        "answers on every machine.",
        "kova");
    app.require_subcommand(1);
    app.set_version_flag("--version", ko_version());
    kovatool::add_describe(app);
    app.formatter(std::make_shared<help_format>());
    app.get_formatter()->column_width(34);
    add_sort(app, args);
    add_compare(app, args);
    add_key(app, args);
    add_case(app, args, "upper");
    add_case(app, args, "lower");
    add_classify(app, args);
    add_measures(app, args);
    add_text(app, args);
    add_info(app, args);
    add_number(app, args);
    add_money(app, args);
    add_date(app, args);
    add_locale(app, args);
    add_locales(app, args);
    add_verify(app, args);
    add_diff(app, args);
    add_convert(app, args);
    add_records(app, args);
    add_chart(app, args);
    add_order(app, args);
    add_cal(app, args);
    add_parse_date(app, args);
    add_symbols(app, args);
    app.footer(
        "kova COMMAND --help tells more, with examples.\n"
        "Exit status: 0 done, 1 bad text, 2 bad usage, 3 bad locale, code set or data root, or no "
        "memory, 4 bad file.");
    try {
        std::vector<std::string> words = program_arguments(argc, argv);
        check_command(app, words);
        spell_out_iso(words);
        std::reverse(words.begin(), words.end()); // CLI11 takes them last first
        app.parse(std::move(words));
    } catch (const CLI::Success &e) {
        return app.exit(e);
    } catch (const CLI::ParseError &e) {
        std::string text = e.what();
        return complain(bad_usage, (text + "; kova --help tells more").c_str());
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
    }
    return bad_locale;
}
