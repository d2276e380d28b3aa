// Options and help of the commands that show locales and their data: info, locale, locales, order,
// verify and diff.
#include "kova/kova_options.h"

namespace kovacli {

void add_info(CLI::App &app, command_line &args) {
    CLI::App &command = *app.add_subcommand("info", "Show what a locale says of itself");
    info_options &o = args.hold<info_options>();
    add_locale_name(command, o.locale);
    CLI::Option *item =
        command
            .add_option("item", o.items, "Items by name or number, printed one per line; none: all")
            ->type_name("ITEM");
    CLI::Option *all =
        command.add_flag("--all", o.all, "A page to read, with samples")->excludes(item);
    CLI::Option *json =
        command.add_flag("--json", o.json, "One JSON object, in UTF-8, for programs")
            ->excludes(all);
    add_page(command, o.html, o.out)->excludes(json)->excludes(item);
    add_common(
        command, args, [&args, &o] { return run_info(args.common, o); },
        "  kova info de_DE.8859-1\n"
        "  kova info --all ja_JP.EUC-JP\n"
        "  kova info --html -o de.html de_DE\n"
        "  kova info de_DE.8859-1 D_FMT MON_1 55\n");
}

void add_locale(CLI::App &app, command_line &args) {
    CLI::App &command = *app.add_subcommand(
        "locale", "Show a locale's values by category and name, or whether an answer means yes");
    locale_options &o = args.hold<locale_options>();
    add_locale_name(command, o.locale);
    CLI::Option *name =
        command
            .add_option("name", o.names,
                        "Categories (LC_CTYPE, LC_COLLATE, LC_NUMERIC, LC_MONETARY, LC_TIME, "
                        "LC_MESSAGES), names such as d_fmt and currency_symbol, or items of kova "
                        "info; none: everything, as with -ck")
            ->type_name("NAME");
    command.add_flag("-k,--keyword-name", o.keywords, "Write name=value, texts in quotation marks");
    command.add_flag("-c,--category-name", o.categories, "Write the category above its values");
    command.add_flag("--json", o.json, "One JSON object, in UTF-8, for programs");
    CLI::Option *yes =
        command
            .add_option("--yes", o.answer,
                        "Print yes, no or neither: what ANSWER means by the locale's expressions")
            ->type_name("ANSWER")
            ->excludes(name);
    add_common(
        command, args,
        [&args, &o, yes] {
            o.asks = yes->count() > 0;
            return run_locale(args.common, o);
        },
        "  kova locale de_DE                     everything\n"
        "  kova locale de_DE d_fmt mon           %d.%m.%Y and Januar;Februar;...\n"
        "  kova locale -k ja_JP LC_MONETARY\n"
        "  kova locale fr_FR --yes oui           prints yes\n"
        "Exit status with --yes: 0 yes, 1 no, 2 neither, or an answer that cannot be read.\n");
}

void add_locales(CLI::App &app, command_line &args) {
    CLI::App &command = *app.add_subcommand("locales", "List the compiled locales");
    locales_options &o = args.hold<locales_options>();
    command
        .add_option("pattern", o.patterns,
                    "Only locales whose name fits: * is any text, ? any character. A pattern "
                    "without a code set stands for all code sets")
        ->type_name("PATTERN");
    command.add_option("--language", o.language, "Only this language, such as de or de_AT")
        ->type_name("LANGUAGE");
    command
        .add_option("--code-set", o.code_set, "Only this code set, by any of its names or number")
        ->type_name("CODESET");
    command.add_flag("--json", o.json, "One JSON object, in UTF-8, for programs");
    add_common(
        command, args, [&args, &o] { return run_locales(args.common, o); },
        "  kova locales\n"
        "  kova locales 'de_*' '*@euro'\n"
        "  kova locales --language ja --code-set unicode --json\n"
        "  kova locales --root ./vantor\n");
}

// What an order shows: letters, or the weights of a text.
static CLI::Option *add_order_choice(CLI::App &command, order_options &o) {
    command
        .add_option("--script", o.scripts,
                    "All letters of scripts, by their ISO 15924 codes, such as latn, grek, cyrl; "
                    "all: every character. Default: the usual letters of the locale's scripts")
        ->type_name("CODE")
        ->allow_extra_args(false);
    command.add_option("--from", o.from, "From what weighs as TEXT at the first level on")
        ->type_name("TEXT");
    command.add_option("--to", o.to, "Up to what weighs as TEXT at the first level")
        ->type_name("TEXT");
    CLI::Option *of =
        command
            .add_option("--of", o.of,
                        "Show the elements of TEXT instead, their weights at each level and the "
                        "bytes of the key")
            ->type_name("TEXT");
    command.add_option("-n,--lines", o.most, "At most N lines; 0: all")
        ->type_name("N")
        ->capture_default_str();
    for (const char *const name : {"--script", "--from", "--to", "--lines"})
        of->excludes(command.get_option(name));
    return of;
}

void add_order(CLI::App &app, command_line &args) {
    CLI::App &command =
        *app.add_subcommand("order", "Show the alphabet of a locale with its levels");
    order_options &o = args.hold<order_options>();
    add_locale_name(command, o.locale);
    CLI::Option *of = add_order_choice(command, o);
    CLI::Option *json = command.add_flag("--json", o.json, "One JSON object, in UTF-8");
    add_page(command, o.html, o.out)->excludes(json);
    add_common(
        command, args,
        [&args, &o, of] {
            o.shows_text = of->count() > 0;
            return run_order(args.common, o);
        },
        "  kova order cs_CZ                       ch is a letter between h and i\n"
        "  kova order sv_SE --from z              what comes after z\n"
        "  kova order de_DE --of Äpfel\n"
        "  kova order --html -o order.html de_DE\n"
        "Letters of one line are alike at the first level; << is before a letter that differs "
        "from the one before it at the second level, <<< at the third, = at none.\n");
}

void add_verify(CLI::App &app, command_line &args) {
    CLI::App &command = *app.add_subcommand(
        "verify", "Check the objects of a data root, or the order of a file's lines");
    verify_options &o = args.hold<verify_options>();
    command
        .add_option("place,-l,--locale", o.place,
                    "Directory whose objects are compared with the hashes in their headers; with "
                    "FILE, the locale in whose order its lines should be. Default: the data root")
        ->type_name("ROOT|LOCALE");
    command.add_option("file", o.file, "File of lines; - is standard input")->type_name("FILE");
    add_common(
        command, args, [&args, &o] { return run_verify(args.common, o); },
        "  kova verify /srv/kova                     prints what is damaged\n"
        "  kova verify de_DE.unicode words.txt       names the first line out of order\n");
}

void add_diff(CLI::App &app, command_line &args) {
    CLI::App &command = *app.add_subcommand(
        "diff", "Show what moved between the orders that two data roots have for a locale");
    diff_options &o = args.hold<diff_options>();
    command.add_option("root1", o.first, "Data root")->required()->type_name("ROOT1");
    command.add_option("root2", o.second, "Data root of another release")
        ->required()
        ->type_name("ROOT2");
    command
        .add_option("locale,-l,--locale", o.locale,
                    "Locale: language_TERRITORY[.codeset][@modifier]. Without a code set: unicode")
        ->required()
        ->type_name("LOCALE");
    command.add_option("-n,--most", o.most, "Rows of each table")
        ->type_name("N")
        ->capture_default_str();
    command.footer("Exit status: 0 the same order, 1 another order, 3 bad data root or locale.\n"
                   "Examples:\n"
                   "  kova diff /srv/kova/2026.1 /srv/kova/2026.2 de_DE\n"
                   "  kova diff -n 1000 old new hu_HU.8859-2\n");
    command.callback([&args, &o] { args.run = [&o] { return run_diff(o); }; });
}

} // namespace kovacli
