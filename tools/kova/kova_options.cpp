// Options that many commands have.
#include "kova/kova_options.h"

namespace kovacli {

static constexpr char locale_help[] =
    "ll_TT[.codeset][@modifier], such as de_DE or de_DE.8859-1, or POSIX. "
    "Without a code set, and with UTF-8: unicode, or the only one compiled";

CLI::Option *add_locale_name(CLI::App &command, std::string &locale) {
    return command.add_option("locale,-l,--locale", locale, locale_help)
        ->required()
        ->type_name("LOCALE");
}

void add_common(CLI::App &command, command_line &args, std::function<int()> run,
                const std::string &examples, const form_help &help) {
    static constexpr char common[] = "Common options";
    command
        .add_option(
            "--root", args.common.root,
            "Data root, the directory that holds the directory kova. Default: VANTORDIR, the "
            "data beside the program, the root built in")
        ->type_name("DIR")
        ->group(common);
    CLI::Option *utf8 = command.add_flag("--utf8", args.utf8, help.utf8)->group(common);
    command.add_flag("--bytes", args.bytes, help.bytes)->group(common)->excludes(utf8);
    command.footer("Examples:\n" + examples);
    command.callback([&args, run] { args.run = run; });
}

CLI::Option *add_json(CLI::App &command, command_line &args) {
    return command.add_flag("--json", args.common.json,
                            "A JSON object for each row or answer, in UTF-8, for programs");
}

CLI::Option *add_count(CLI::App &command, const std::string &name, uint64_t &count,
                       const std::string &help) {
    return command.add_option(name, count, help)
        ->type_name("N")
        ->check([](const std::string &text) {
            return text.starts_with('-') ? text + " is less than 0" : std::string();
        });
}

CLI::Option *add_page(CLI::App &command, bool &html, std::string &out) {
    command.add_option("-o,--output", out, "Write to FILE, in one step at the end")
        ->type_name("FILE");
    return command.add_flag("--html", html, "A page in HTML, in UTF-8, complete in one file");
}

} // namespace kovacli
