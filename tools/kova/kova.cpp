// The command kova: its subcommands, their options and their help.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <utility>

#include <CLI/CLI.hpp>

#include "common/tool_text.h"
#include "kova.h"
#include "kova/kova_cli.h"
#include "kova/kova_platform.h"

namespace {

using namespace kovacli;

// Everything that options store; one command runs, and the options of the others stay unused.
struct arguments {
    common_options common;
    bool utf8 = false, bytes = false, no_progress = false;
    sort_options sort;
    compare_options compare;
    key_options key;
    verify_options verify;
    diff_options diff;
    case_options upper, lower;
    classify_options classify;
    measure_options width, trim, count;
    text_options fold, wrap, expand, unexpand, table;
    info_options info;
    locale_options locale;
    locales_options locales;
    format_options money, number;
    convert_options convert;
    records_options records;
    std::string part, bad_fields;
    chart_options chart;
    cal_options cal;
    order_options order;
    date_options date;
    parse_date_options parse_date;
    symbols_options symbols;
    std::function<int()> run;
};

const char time_directives[] =
    "Directives:\n"
    "  %A %a weekday     %B %b month   %OB month without a day   %d %e %m day, month in digits\n"
    "  %Y %y %C year     %H %I hour of 24, of 12   %p AM or PM   %M %S %F minute, second, "
    "fraction\n"
    "  %j day of year    %u %w weekday in digits   %G %V year and week of ISO 8601\n"
    "  %c %x %X %r the locale's date and time, date, time, 12-hour time; %Ec %Ex %EX with its era\n"
    "  %EY %EC %Ey year by era, the era, its year    %Od %OH ... in the locale's own digits\n"
    "  %D %R %T as %m/%d/%y, %H:%M, %H:%M:%S    %n newline   %t tab   %% percent sign\n";

const char locale_help[] =
    "Locale: language_TERRITORY[.codeset][@modifier] such as de_DE or de_DE.8859-1, or POSIX. "
    "Without a code set, and with UTF-8: unicode, or the only one compiled";

// Help for --utf8 and --bytes.
struct form_help {
    const char *utf8 = "Arguments, input and output are UTF-8. Default when LC_ALL, LC_CTYPE or "
                       "LANG says so";
    const char *bytes = "Arguments, input and output are bytes of the locale's code set";
};

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

void add_common(CLI::App &command, arguments &args, std::function<int()> run,
                const std::string &examples, const form_help &help = {}) {
    command
        .add_option(
            "--root", args.common.root,
            "Data root, the directory that holds the directory kova. Default: VANTORDIR, the "
            "data beside the program, the root built in")
        ->type_name("DIR");
    CLI::Option *utf8 = command.add_flag("--utf8", args.utf8, help.utf8);
    command.add_flag("--bytes", args.bytes, help.bytes)->excludes(utf8);
    command.footer("Examples:\n" + examples);
    command.callback([&args, run] { args.run = run; });
}

// The page in place of text, and the file.
CLI::Option *add_page(CLI::App &command, bool &html, std::string &out) {
    command.add_option("-o,--output", out, "Write to FILE, in one step at the end")
        ->type_name("FILE");
    return command.add_flag("--html", html, "A page in HTML, in UTF-8, complete in one file");
}

// How lines, and parts without letters of their own, are compared.
void add_ordering(CLI::App &command, sort_options &o) {
    command.add_flag("-b,--ignore-leading-blanks", o.skip_blanks, "Skip blanks at the start");
    command.add_flag("-d,--dictionary-order", o.dictionary,
                     "Only blanks, letters and digits count");
    command.add_flag("-f,--ignore-case", o.fold, "Lower-case letters compare as upper-case ones");
    command.add_flag(
        "-n,--numeric-sort", o.numeric,
        "Compare the number at the start, with the locale's decimal symbol and groups");
    command.add_flag("-V,--version-sort", o.version, "Compare digits inside the text as numbers");
    command.add_flag("-r,--reverse", o.reverse, "Reverse the order");
}

void add_sort(CLI::App &app, arguments &args) {
    CLI::App &command = *app.add_subcommand("sort", "Sort lines in a locale's order");
    sort_options &o = args.sort;
    command
        .add_option("-l,--locale", o.locale,
                    "Locale to sort by. Default: what LC_ALL, LC_COLLATE or LANG names")
        ->type_name("LOCALE");
    command.add_option("file", o.files, "Files; - or none: standard input")->type_name("FILE");
    command
        .add_option("-k,--key", o.keys,
                    "Compare only from place FIRST to place LAST, or the end of the line. A place "
                    "is FIELD[.CHARACTER], counted from 1, and letters b d f n r V in place of the "
                    "options of these names. Repeat for further keys")
        ->type_name("FIRST[,LAST]")
        ->allow_extra_args(false);
    command
        .add_option("-t,--separator,--field-separator", o.separator,
                    "Character between fields. Default: runs of blanks")
        ->type_name("CHAR");
    add_ordering(command, o);
    command
        .add_option("-o,--output", o.out,
                    "Write to FILE, in one step at the end; it may be one of the files read")
        ->type_name("FILE");
    command.add_flag("-u,--unique", o.unique, "Write only the first of lines that compare equal");
    command.add_flag("-s,--stable", o.stable,
                     "Keep the order of lines that compare equal. Default: order them by bytes");
    command.add_flag("-z,--zero-terminated", o.nulls,
                     "Lines end with a null character, not with a newline");
    CLI::Option *merge =
        command.add_flag("-m,--merge", o.merge, "Merge files that are sorted already");
    command
        .add_flag("-c", o.plain_check,
                  "Only check whether a file is sorted: if not, status 1 and the first line out of "
                  "order")
        ->excludes(merge);
    command.add_flag("-C", o.quiet_check, "Like -c, without showing the line")->excludes(merge);
    command
        .add_flag("--check{" + std::string(default_check) + "}", o.check,
                  "Like -c, or with quiet or silent like -C")
        ->excludes(merge);
    command.add_flag("--replace", o.replace,
                     "Continue at invalid text: it compares as U+FFFD or ?, and the line is "
                     "written as it was read");
    command
        .add_option("-S,--buffer-size", o.buffer_size,
                    "Memory before lines are spilled to temporary files: KiB, or with b (bytes), "
                    "K, M or G")
        ->type_name("SIZE")
        ->capture_default_str();
    command
        .add_option("-T,--temporary-directory", o.temporary_directory,
                    "Directory for spilled lines. Default: the system's")
        ->type_name("DIR");
    command.add_option("--parallel", o.threads, "Number of threads")
        ->type_name("N")
        ->capture_default_str();
    command.add_flag("--no-progress", args.no_progress,
                     "No progress line on the terminal for long input");
    add_common(
        command, args, [&args] { return run_sort(args.common, args.sort); },
        "  kova sort -l de_DE words.txt\n"
        "  kova sort -l cs_CZ.8859-2 -t ';' -k 2,2 -k 4n -o people.csv people.csv\n"
        "  cut -f1 names | kova sort -l sv_SE -u\n"
        "  kova sort -l sv_SE -c words.txt            is it sorted?\n");
}

void add_compare(CLI::App &app, arguments &args) {
    CLI::App &command =
        *app.add_subcommand("compare", "Print <, = or > for the order of two texts");
    compare_options &o = args.compare;
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
    command.add_option("a", o.first, "First text")->required()->type_name("A");
    command.add_option("b", o.second, "Second text")->required()->type_name("B");
    add_common(
        command, args, [&args] { return run_compare(args.common, args.compare); },
        "  kova compare de_DE.8859-1 Äpfel Zebra     prints <\n"
        "  kova compare sv_SE.8859-1 Äpfel Zebra     prints >\n");
}

void add_key(CLI::App &app, arguments &args) {
    CLI::App &command =
        *app.add_subcommand("key", "Print sort keys: bytes whose order is the order of the texts");
    key_options &o = args.key;
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
    command.add_option("text", o.texts, "Texts; none: the lines of standard input")
        ->type_name("TEXT");
    command.add_flag("--raw", o.raw, "The bytes themselves instead of hexadecimal digits");
    add_common(
        command, args, [&args] { return run_key(args.common, args.key); },
        "  kova key fr_FR.8859-1 cote coté côte\n"
        "  kova key --raw fr_FR.8859-1 cote | od -tx1\n");
}

void add_case(CLI::App &app, arguments &args, const char *name, case_options &o) {
    CLI::App &command =
        *app.add_subcommand(name, std::string("Print texts or files in ") + name + " case");
    o.upper = std::string_view(name) == "upper";
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
    command.add_option("text", o.texts, "Texts; without texts and files: standard input")
        ->type_name("TEXT");
    command.add_option("-f,--file", o.files, "A file; - is standard input")
        ->type_name("FILE")
        ->allow_extra_args(false);
    command.add_flag("--replace", o.replace, "Leave invalid text as it is and continue");
    add_common(
        command, args, [&args, &o] { return run_case(args.common, o); },
        o.upper ? "  kova upper tr_TR.8859-9 'istanbul'\n"
                  "  kova upper el_GR.unicode -f novel.txt > NOVEL.TXT\n"
                : "  kova lower tr_TR.8859-9 'ISPARTA'\n"
                  "  kova lower ru_RU.KOI8-R --bytes < letter.koi8\n");
}

void add_classify(CLI::App &app, arguments &args) {
    CLI::App &command =
        *app.add_subcommand("classify", "Show each character's bytes, classes and case partners");
    classify_options &o = args.classify;
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
    command.add_option("text", o.texts, "Texts; with --count: files, - or none standard input")
        ->type_name("TEXT");
    CLI::Option *count =
        command.add_flag("--count", o.count, "How many characters of each class the files hold");
    command.add_flag("--replace", o.replace, "Count invalid bytes and continue")->needs(count);
    const auto run = [&args, &o] {
        if (o.count)
            o.files.swap(o.texts);
        else if (o.texts.empty())
            throw failure(bad_usage, "classify: no TEXT is given; kova classify --help tells more");
        return run_classify(args.common, o);
    };
    add_common(command, args, run,
               "  kova classify ja_JP.EUC-JP 'Aア漢'\n"
               "  kova classify --count de_DE.unicode book.txt\n");
}

// The options that width, trim and count share.
CLI::App &measure_command(CLI::App &app, const char *name, const char *what, const char *bad,
                          measure_options &o) {
    CLI::App &command = *app.add_subcommand(name, what);
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
    command.add_option("file", o.files, "Files; - or none: standard input")->type_name("FILE");
    command.add_flag("--replace", o.replace, bad);
    return command;
}

void add_measures(CLI::App &app, arguments &args) {
    CLI::App &width =
        measure_command(app, "width", "Print the display columns of each line",
                        "Continue after invalid text; its line has no width", args.width);
    width.add_flag("--widest", args.width.widest, "Print the columns of the widest line only");
    add_common(
        width, args, [&args] { return run_width(args.common, args.width); },
        "  kova width ja_JP.EUC-JP letter.txt          -1 for a line with a tab or control\n"
        "  kova width --widest de_DE.unicode < table\n");
    CLI::App &trim = measure_command(app, "trim", "Remove spaces at the ends of lines",
                                     "Leave invalid text as it is and continue", args.trim);
    trim.add_option("-o,--output", args.trim.out,
                    "Write to FILE, in one step at the end; it may be one of the files read")
        ->type_name("FILE");
    add_common(
        trim, args, [&args] { return run_trim(args.common, args.trim); },
        "  kova trim ja_JP.SHIFT_JIS --bytes -o letter.sjis letter.sjis\n"
        "  kova trim de_DE.unicode < notes.txt\n");
    CLI::App &count =
        measure_command(app, "count", "Count the lines, characters, bytes and columns of files",
                        "Count invalid bytes and continue", args.count);
    add_common(
        count, args, [&args] { return run_count(args.common, args.count); },
        "  kova count zh_TW.BIG5 --bytes chapter*.txt\n"
        "  kova count de_DE.unicode < book.txt\n");
}

// A command of kova text: its locale, files and output.
CLI::App &text_command(CLI::App &text, arguments &args, const char *name, const char *what,
                       text_options &o, int (*run)(const common_options &, const text_options &),
                       const std::string &examples) {
    CLI::App &command = *text.add_subcommand(name, what);
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
    command.add_option("file", o.files, "Files; - or none: standard input")->type_name("FILE");
    command
        .add_option("-o,--output", o.out,
                    "Write to FILE, in one step at the end; it may be one of the files read")
        ->type_name("FILE");
    add_common(
        command, args, [&args, &o, run] { return run(args.common, o); }, examples);
    return command;
}

void add_line_width(CLI::App &command, text_options &o) {
    command.add_option("-w,--width", o.width, "Columns of a line")
        ->type_name("N")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str();
}

void add_tabs(CLI::App &command, text_options &o) {
    command
        .add_option("-t,--tabs", o.tabs,
                    "Columns from one tab stop to the next, or a list of them: 4,8,20; its last "
                    "can be /N (every multiple of N) or +N (every N after the stop before). "
                    "Default: 8")
        ->type_name("STOPS");
}

void add_tab_commands(CLI::App &text, arguments &args) {
    CLI::App &expand = text_command(text, args, "expand", "Replace tabs by blanks", args.expand,
                                    run_expand, "  kova text expand de_DE -t 4 main.c\n");
    add_tabs(expand, args.expand);
    expand.add_flag("-i,--initial", args.expand.initial, "Only tabs at the start of a line");
    text_options &o = args.unexpand;
    CLI::App &unexpand =
        text_command(text, args, "unexpand", "Replace blanks at the start of lines by tabs", o,
                     run_unexpand, "  kova text unexpand de_DE -a table.txt\n");
    add_tabs(unexpand, o);
    CLI::Option *first = unexpand.add_flag("--first-only", o.initial,
                                           "Only blanks at the start of a line, with -t too");
    unexpand.add_flag("-a,--all", o.all, "All blanks; with -t, this is the default")
        ->excludes(first);
}

void add_text(CLI::App &app, arguments &args) {
    CLI::App &text = *app.add_subcommand(
        "text", "Fold, wrap, expand and align text by the columns that it takes on a terminal");
    text.require_subcommand(1);
    text.footer("kova text COMMAND --help tells more, with examples.");
    CLI::App &fold = text_command(text, args, "fold", "Cut lines at a column", args.fold, run_fold,
                                  "  kova text fold th_TH -w 40 letter.txt\n"
                                  "  kova text fold ja_JP.EUC-JP --bytes -s -w 72 < letter.euc\n");
    add_line_width(fold, args.fold);
    fold.add_flag("-s,--spaces", args.fold.spaces,
                  "After the last blank that fits, if there is one");
    text_options &w = args.wrap;
    CLI::App &wrap = text_command(
        text, args, "wrap", "Fill the lines of paragraphs", w, run_wrap,
        "  kova text wrap fr_FR -w 60 roman.txt\n"
        "  kova text wrap ja_JP -i -w 40 -o shousetsu.txt shousetsu.txt\n"
        "Paragraphs end at empty lines and where the indentation changes. Lines are cut at blanks, "
        "between ideographs, and inside a word only if it is wider than a line.\n");
    add_line_width(wrap, w);
    wrap.add_flag("-s,--split-only", w.split_only, "Cut long lines, but do not join short ones");
    wrap.add_flag("-u,--uniform-spacing", w.uniform, "One blank between words");
    wrap.add_flag("-i,--indented", w.indented,
                  "An indented line begins a paragraph; its other lines are not indented");
    add_tab_commands(text, args);
    text_options &t = args.table;
    CLI::App &table =
        text_command(text, args, "table", "Align the columns of a table", t, run_table,
                     "  kova text table de_DE cities.txt\n"
                     "  kova text table ja_JP -s , -R 2,4- --between ' | ' prices.csv\n");
    table
        .add_option("-s,--separator", t.separators,
                    "Characters of which each separates cells; \\t is the tab. Default: runs of "
                    "blanks")
        ->type_name("CHARS");
    table.add_option("--between", t.between, "Text between columns")
        ->type_name("TEXT")
        ->capture_default_str();
    table.add_option("-R,--right", t.right, "Columns that are flush right, such as 2,4-6,9-")
        ->type_name("LIST");
}

void add_info(CLI::App &app, arguments &args) {
    CLI::App &command = *app.add_subcommand("info", "Show what a locale says of itself");
    info_options &o = args.info;
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
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
        command, args, [&args] { return run_info(args.common, args.info); },
        "  kova info de_DE.8859-1\n"
        "  kova info --all ja_JP.EUC-JP\n"
        "  kova info --html -o de.html de_DE\n"
        "  kova info de_DE.8859-1 D_FMT MON_1 55\n");
}

// The options of the commands that answer many values.
void add_batch(CLI::App &command, batch_options &o) {
    command
        .add_option("-f,--file", o.files, "A file with a value on each line; - is standard input")
        ->type_name("FILE")
        ->allow_extra_args(false);
    command.add_option("--field", o.fields, "Fields of each line to replace: 2, 1,3 or 2-4")
        ->type_name("N");
    command
        .add_option("-t,--separator,--delimiter", o.separator,
                    "Text between fields. Default: runs of blanks")
        ->type_name("CHAR");
    command.add_option("--header", o.header, "Pass the first N lines of each file on")
        ->type_name("N");
    command.add_flag("-z,--null", o.nulls, "Lines end with a null character, not with a newline");
    command.add_flag("--json", o.json,
                     "Write a JSON object for each value, with its result or its error, in UTF-8");
    command.add_flag("--stop", o.stop, "Stop at the first bad line instead of going on");
}

// The options that number and money share.
CLI::App &add_format(CLI::App &app, arguments &args, const char *name, const char *what,
                     const char *format_help, format_options &o,
                     int (*run)(const common_options &, const format_options &),
                     const std::string &examples) {
    CLI::App &command = *app.add_subcommand(name, what);
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
    command.add_option("format", o.format, format_help)->required()->type_name("FORMAT");
    command
        .add_option("value", o.values,
                    "Values, with \".\" before decimals. If there are more than FORMAT takes, it "
                    "is used again for another line. None: the lines of standard input, each with "
                    "what FORMAT takes")
        ->type_name("VALUE");
    CLI::Option *text = command
                            .add_option("--parse", o.text,
                                        "Read TEXT, each VALUE or each line by FORMAT instead and "
                                        "print its values")
                            ->type_name("TEXT")
                            ->expected(0, 1);
    command
        .add_option("--digits", o.digits,
                    "Write digits of a script: native, or a name of CLDR such as arab or deva")
        ->type_name("NAME");
    add_batch(command, o.batch);
    add_common(
        command, args,
        [&args, &o, run, text] {
            o.parse = text->count() > 0;
            return run(args.common, o);
        },
        examples);
    return command;
}

void add_money(CLI::App &app, arguments &args) {
    add_format(app, args, "money", "Write amounts of money as a locale does, or read them",
               "Text with a directive for each amount: % with flags (! ( + - ^ =FILL), width, "
               "#DIGITS, .DIGITS, then n (national) or i (international)",
               args.money, run_money,
               "  kova money de_DE.unicode %n 1234567.891       prints 1.234.567,89 €\n"
               "  kova money en_US.8859-1 '%(#6n' 99.5 -1234.5\n"
               "  kova money da_DK.8859-1 %n --parse 'kr. -1.234,50'\n"
               "  kova money fr_FR %n --field 3 -t ';' < sales.csv\n");
}

void add_number(CLI::App &app, arguments &args) {
    format_options &o = args.number;
    CLI::App &command =
        add_format(app, args, "number", "Write numbers and texts as a locale does, or read them",
                   "Text with a directive for each value: % with flags (' groups digits, + - # 0 "
                   "and blank), width, .DIGITS, then a letter: d i u o q b x X of integers, e E f "
                   "g G of reals, c, s",
                   o, run_number,
                   "  kova number de_DE.8859-1 \"%'d\" 1234567               prints 1.234.567\n"
                   "  kova number sv_SE.8859-1 \"%'.2f kr|%5x\" 1234.5 255\n"
                   "  kova number de_DE.8859-1 \"%'f\" --parse 1.234,5\n"
                   "  kova number hi_IN \"%'d\" --digits native 1234567\n"
                   "  df -B1 | kova number de_DE %f --to iec-i --header 1 --field 2-4\n");
    const auto units = [&](const char *name, std::string &value, const char *help,
                           const std::vector<std::string> &names) {
        return command.add_option(name, value, help)->check(CLI::IsMember(names));
    };
    units("--from", o.from,
          "Units after values: si (K is 1000), iec (K is 1024), iec-i (Ki) or auto",
          {"si", "iec", "iec-i", "auto"})
        ->type_name("UNITS");
    CLI::Option *to = units("--to", o.to,
                            "Write with units: si, iec or iec-i, one decimal below ten unless "
                            "FORMAT says how many",
                            {"si", "iec", "iec-i"});
    to->type_name("UNITS");
    units("--round", o.round, "Round --to so: from-zero, towards-zero, up, down, nearest",
          {"from-zero", "towards-zero", "up", "down", "nearest"})
        ->type_name("HOW")
        ->capture_default_str()
        ->needs(to);
}

void add_verify(CLI::App &app, arguments &args) {
    CLI::App &command = *app.add_subcommand(
        "verify", "Check the objects of a data root, or the order of a file's lines");
    verify_options &o = args.verify;
    command
        .add_option("place", o.place,
                    "Directory whose objects are compared with the hashes in their headers; with "
                    "FILE, the locale in whose order its lines should be. Default: the data root")
        ->type_name("ROOT|LOCALE");
    command.add_option("file", o.file, "File of lines; - is standard input")->type_name("FILE");
    add_common(
        command, args, [&args] { return run_verify(args.common, args.verify); },
        "  kova verify /srv/kova                     prints what is damaged\n"
        "  kova verify de_DE.unicode words.txt       names the first line out of order\n");
}

void add_diff(CLI::App &app, arguments &args) {
    CLI::App &command = *app.add_subcommand(
        "diff", "Show what moved between the orders that two data roots have for a locale");
    diff_options &o = args.diff;
    command.add_option("root1", o.first, "Data root")->required()->type_name("ROOT1");
    command.add_option("root2", o.second, "Data root of another release")
        ->required()
        ->type_name("ROOT2");
    command
        .add_option("locale", o.locale,
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
    command.callback([&args] { args.run = [&args] { return run_diff(args.diff); }; });
}

void add_locale(CLI::App &app, arguments &args) {
    CLI::App &command = *app.add_subcommand(
        "locale", "Show a locale's values by category and name, or whether an answer means yes");
    locale_options &o = args.locale;
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
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

void add_locales(CLI::App &app, arguments &args) {
    CLI::App &command = *app.add_subcommand("locales", "List the compiled locales");
    locales_options &o = args.locales;
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
        command, args, [&args] { return run_locales(args.common, args.locales); },
        "  kova locales\n"
        "  kova locales 'de_*' '*@euro'\n"
        "  kova locales --language ja --code-set unicode --json\n"
        "  kova locales --root ./vantor\n");
}

void add_escapes(CLI::App &command, convert_options &o) {
    const auto forms = CLI::IsMember({"xml", "uni", "hex"});
    command.add_flag("--translit", o.translit,
                     "Write the usual spelling of characters that the output lacks");
    command
        .add_option("--escape", o.escape,
                    "Write what the output lacks as &#x20AC; (xml), \\u20AC (uni) or the bytes of "
                    "the input, \\xE2\\x82\\xAC (hex)")
        ->type_name("FORM")
        ->check(forms);
    command.add_option("--unescape", o.unescape, "Read such escapes back")
        ->type_name("FORM")
        ->check(forms);
    command
        .add_flag("--keep-escapes", o.keep_escapes,
                  "Leave escapes as they are that the input has already")
        ->needs("--escape");
}

void add_resuming(CLI::App &command, convert_options &o) {
    command
        .add_option("--output-dir", o.out_dir,
                    "Write a file of the same name into DIR for each FILE, in one step")
        ->type_name("DIR")
        ->excludes("--output");
    command.add_flag("--json", o.json,
                     "Write a report of all inputs to standard output, as one JSON object");
    CLI::Option *offset =
        command.add_option("--from-offset", o.from_offset, "Begin at this byte of the input")
            ->type_name("N");
    command.add_option("--state", o.state, "State of the text there, as an error said")
        ->type_name("STATE")
        ->needs(offset);
}

void add_convert(CLI::App &app, arguments &args) {
    CLI::App &command = *app.add_subcommand("convert", "Convert text from one code set to another");
    convert_options &o = args.convert;
    CLI::Option *list =
        command.add_flag("--list", o.list, "List the code sets and the pairs that are compiled");
    CLI::Option *detect =
        command
            .add_flag("--detect", o.detect,
                      "Show which code sets fit the bytes of each FILE, scored, with the reasons")
            ->excludes(list);
    command.add_option("-f,--from", o.from, "Code set of the input, by name or number")
        ->type_name("CODESET")
        ->excludes(list)
        ->excludes(detect);
    command.add_option("-t,--to", o.to, "Code set of the output, by name or number")
        ->type_name("CODESET")
        ->excludes(list)
        ->excludes(detect);
    command.add_option("file", o.files, "Files, each a text of its own; - or none: standard input")
        ->type_name("FILE")
        ->excludes(list);
    command
        .add_option("-o,--output", o.out,
                    "Write to FILE, in one step at the end; it may be one of the files read")
        ->type_name("FILE");
    add_escapes(command, o);
    add_resuming(command, o);
    CLI::Option *skip =
        command.add_flag("--skip", o.skip, "Leave out what cannot be converted and continue");
    command
        .add_flag("--replace{" + std::string(default_replacement) + "}", o.replacement,
                  "Write TEXT (U+FFFD or ?) for what cannot be converted and continue")
        ->excludes(skip);
    command
        .add_flag(
            "--accept-substitutes", o.accept,
            "Let other characters stand for those that the conversion object replaces by them")
        ->excludes("--skip")
        ->excludes("--replace");
    command
        .add_option("--newline", o.newline,
                    "What ends a line of the output: nel, lf, crlf, or keep as it is; by default "
                    "nel in host code sets and lf elsewhere, where one is converted to the other")
        ->type_name("END")
        ->check(CLI::IsMember({"nel", "lf", "crlf", "keep"}));
    command.add_flag("--bom", o.writes_mark,
                     "Begin the output with a byte-order mark, in an encoding of Unicode");
    command.add_flag("--keep-bom", o.keeps_mark,
                     "Convert a byte-order mark at the start of the input instead of dropping it");
    command.add_flag("--report", o.report,
                     "Continue as --skip does, and report how much was substituted, unmapped, "
                     "invalid or cut off, and the first places");
    command.add_flag("-v,--verbose", o.verbose, "Report which conversion objects are used");
    command.add_flag("--no-progress", args.no_progress,
                     "No progress line on the terminal for long input");
    const auto run = [&args, &o, &command] {
        if (o.detect) return run_detect(args.common, o);
        if (!o.list && (o.from.empty() || o.to.empty()))
            throw failure(bad_usage, "convert: -f CODESET and -t CODESET say what to convert; "
                                     "kova convert --list shows the code sets");
        o.replace = command.count("--replace") > 0;
        return run_convert(args.common, o);
    };
    add_common(command, args, run,
               "  kova convert -f SHIFT_JIS -t utf8 letter.txt > letter.utf8\n"
               "  kova convert -f 930 -t utf8 --report -o payroll.txt payroll.ebcdic\n"
               "  kova convert -f utf8 -t IBM037 --replace='?' < notes.txt\n"
               "  kova convert --list\n"
               "  kova convert --detect unknown.txt\n",
               {"The TEXT of --replace is UTF-8. Default when LC_ALL, LC_CTYPE or LANG says so",
                "The TEXT of --replace is bytes of the output's code set"});
}

void choose_part(const std::string &text, records_options &o) {
    if (text.empty()) return;
    char rest;
    const bool read =
        text.size() < 20 && std::sscanf(text.c_str(), "%9u/%9u%c", &o.part, &o.parts, &rest) == 2;
    if (!read || o.part < 1 || o.part > o.parts)
        throw failure(bad_usage, "--part " + text + ": I/N, from 1/N to N/N");
}

void add_records(CLI::App &app, arguments &args) {
    CLI::App &command =
        *app.add_subcommand("records", "Read host records into JSON lines or CSV, and back");
    records_options &o = args.records;
    command.add_option("-l,--layout", o.layout, "File with the fields, one a line")
        ->type_name("LAYOUT")
        ->required();
    command
        .add_option("--records", o.records,
                    "Form of the file: fb:LENGTH, v, vb[:BLOCK], vbs[:BLOCK] or lines")
        ->type_name("FORM")
        ->required();
    command.add_option("-f,--from", o.code_set, "Code set of text whose field names none")
        ->type_name("CODESET");
    command.add_flag("--csv", o.csv, "CSV with a head line instead of JSON lines");
    CLI::Option *encode = command.add_flag("--encode", o.encode, "Write records from such lines");
    command
        .add_option("--keep-bad", args.bad_fields,
                    "Keep the bytes of fields that are wrong, or would come back otherwise, and "
                    "continue")
        ->type_name("FORM")
        ->check(CLI::IsMember({"hex"}))
        ->excludes(encode);
    command.add_option("--part", args.part, "Read the part I of N, which begins with a record")
        ->type_name("I/N")
        ->excludes(encode);
    command.add_option("file", o.files, "Files; - or none: standard input")->type_name("FILE");
    command.add_option("-o,--output", o.out, "Write to FILE, in one step at the end")
        ->type_name("FILE");
    const auto run = [&args, &o] {
        choose_part(args.part, o);
        o.keep_bad = !args.bad_fields.empty();
        return run_records(args.common, o);
    };
    add_common(
        command, args, run,
        "  kova records -l pay.layout --records fb:120 -f 037 pay.bin > pay.json\n"
        "  kova records -l pay.layout --records vb -f 939 --keep-bad hex pay.bin > pay.json\n"
        "  kova records -l pay.layout --records vb -f 939 --encode pay.json -o pay.bin\n");
}

void add_chart(CLI::App &app, arguments &args) {
    CLI::App &command = *app.add_subcommand("chart", "Draw the characters of a code set");
    chart_options &o = args.chart;
    command.add_option("codeset", o.code_set, "Code set, by name or number")
        ->required()
        ->type_name("CODESET");
    command
        .add_option("--lead", o.lead,
                    "Draw the characters that begin with these bytes, in hexadecimal")
        ->type_name("XX");
    add_page(command, o.html, o.out);
    add_common(command, args, [&args] { return run_chart(args.common, args.chart); },
               "  kova chart IBM037\n"
               "  kova chart SHIFT_JIS             also lists the lead bytes\n"
               "  kova chart SHIFT_JIS --lead 82\n"
               "  kova chart --html -o sjis.html SHIFT_JIS     with the grids of all lead bytes\n",
               {"The output is UTF-8. Default when LC_ALL, LC_CTYPE or LANG says so",
                "The output is ASCII: code points in hexadecimal instead of characters"});
}

void add_symbols(CLI::App &app, arguments &args) {
    CLI::App &command = *app.add_subcommand(
        "symbols", "Write the characters of text as symbolic names, or read such names back");
    symbols_options &o = args.symbols;
    command.add_option("codeset", o.code_set, "Code set of the text, by name or number")
        ->required()
        ->type_name("CODESET");
    command.add_option("file", o.files, "Files; - or none: standard input")->type_name("FILE");
    command.add_flag("-d,--decode", o.decode, "Read symbols; white space between them is left out");
    command.add_option("-o,--output", o.out, "Write to FILE, in one step at the end")
        ->type_name("FILE");
    add_common(command, args, [&args] { return run_symbols(args.common, args.symbols); },
               "  kova symbols IBM037 payroll.ebcdic\n"
               "  printf '<A><b><c><newline>' | kova symbols -d IBM037 > abc.ebcdic\n",
               {"No effect: text is bytes of the code set", "No effect"});
}

void add_cal(CLI::App &app, arguments &args) {
    CLI::App &command = *app.add_subcommand("cal", "Draw months of a locale's calendar");
    cal_options &o = args.cal;
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
    command
        .add_option("month", o.month,
                    "Number of the month in its year, or its full or short name; or a year alone, "
                    "which is drawn whole; or both, as 2026-11. Default: this month")
        ->type_name("MONTH");
    command.add_option("year", o.year, "Year of the locale's calendar. Default: this year")
        ->type_name("YEAR");
    CLI::Option *year = command.add_flag("-y,--year", o.whole_year, "Draw the whole year");
    CLI::Option *three = command
                             .add_flag("-3,--three", o.three,
                                       "Draw the month, the one before it and the one after it")
                             ->excludes(year);
    command.add_option("-n,--months", o.months, "Draw so many months, from the month on")
        ->type_name("N")
        ->check(CLI::Range(1, 1200))
        ->excludes(year)
        ->excludes(three);
    command.add_flag("-w,--week", o.weeks, "Number the weeks as ISO 8601 does");
    command.add_flag("-j,--julian", o.year_days, "Count the days of the year");
    CLI::Option *monday = command.add_flag("-m,--monday", o.monday,
                                           "Begin weeks on Monday. Default: as the locale does");
    command.add_flag("-s,--sunday", o.sunday, "Begin weeks on Sunday")->excludes(monday);
    add_page(command, o.html, o.out);
    add_common(
        command, args, [&args] { return run_cal(args.common, args.cal); },
        "  kova cal de_DE.unicode\n"
        "  kova cal fr_FR.8859-1 février 2024\n"
        "  kova cal -3 -w pl_PL listopad 2026\n"
        "  kova cal th_TH 2026\n"
        "  kova cal --html -o 2026.html de_DE 2026\n"
        "  kova cal he_IL.unicode@hebr 7 5784     with the Gregorian days beside them\n");
}

// What an order shows: letters, or the weights of a text.
CLI::Option *add_order_choice(CLI::App &command, order_options &o) {
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

void add_order(CLI::App &app, arguments &args) {
    CLI::App &command =
        *app.add_subcommand("order", "Show the alphabet of a locale with its levels");
    order_options &o = args.order;
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
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
        "Letters of one line are alike at the first level; << is before a letter that differs\n"
        "from the one before it at the second level, <<< at the third, = at none.\n");
}

void add_date(CLI::App &app, arguments &args) {
    CLI::App &command = *app.add_subcommand("date", "Write a date and time as a locale does");
    date_options &o = args.date;
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
    CLI::Option *format =
        command
            .add_option(
                "format", o.format,
                "Text with directives, see below: '%A, %d %B %Y'. Default: %c, date and time "
                "in the locale's usual form")
            ->type_name("FORMAT");
    CLI::Option *at =
        command
            .add_option("--at", o.at,
                        "The time to write, such as \"2026-11-21 14:30\" or tomorrow, see below. "
                        "Default: now")
            ->type_name("WHEN");
    command
        .add_option("--zone", o.zone,
                    "Time zone, such as Europe/Paris, UTC or +02:00. Default: the system's")
        ->type_name("ZONE");
    CLI::Option *from =
        command.add_option("--from", o.from, "Write all times from WHEN on, one a line")
            ->type_name("WHEN")
            ->excludes(at);
    CLI::Option *to =
        command.add_option("--to", o.to, "The last time of --from")->type_name("WHEN")->needs(from);
    from->needs(to);
    command
        .add_option("--step", o.step, "From one time of --from to the next: 1month, \"2 weeks\"")
        ->type_name("STEP")
        ->needs(from)
        ->capture_default_str();
    CLI::Option *iso =
        command
            .add_flag(
                "-I{" + std::string(default_iso) + "},--iso-8601{" + default_iso + "}", o.iso,
                "Write ISO 8601 to the date, hours, minutes, seconds or ns in place of FORMAT")
            ->check(CLI::IsMember({"date", "hours", "minutes", "seconds", "ns"}));
    CLI::Option *rfc =
        command
            .add_option("--rfc-3339", o.rfc, "Write RFC 3339 to the date, seconds or ns likewise")
            ->type_name("TO")
            ->check(CLI::IsMember({"date", "seconds", "ns"}))
            ->excludes(iso);
    format->excludes(iso)->excludes(rfc);
    CLI::Option *times =
        command.add_option("when", o.times, "Times to write, one a line, as --at takes them")
            ->type_name("WHEN")
            ->excludes(at)
            ->excludes(from);
    add_batch(command, o.batch);
    command.get_option("--file")->excludes(at)->excludes(from)->excludes(times);
    command.get_option("--json")->excludes(from);
    add_common(
        command, args, [&args] { return run_date(args.common, args.date); },
        "  kova date de_DE.8859-1\n"
        "  kova date ja_JP.EUC-JP '%EY%m月%d日 (%A)' --at 1989-01-08\n"
        "  kova date sv_SE.unicode '%A %.1d %B kl. %H.%M' --at '2026-11-21 14:30'\n"
        "  kova date fr_FR '%A %x %Z' --at 2026-11-21T14:30Z --zone Europe/Paris\n"
        "  kova date de_DE '%OB %Y' --from 2026-01-31 --to 2026-12-31 --step 1month\n"
        "  kova date de_DE %x --field 2 -t ';' -f orders.csv\n\n" +
            std::string(time_directives) +
            "  %Z %z zone, its offset    %s seconds since 1970\n"
            "After %: a width, .N for at least N digits (%.1d is 7 and not 07), - to pad at the "
            "end.\n\n"
            "WHEN: now, a date, a time, or both, in this order or with steps after them:\n"
            "  2026-11-21   20261121   2026-W47-6   2026-325   14:30   2026-11-21T14:30:05Z   "
            "@SECONDS\n"
            "  today   tomorrow   yesterday   monday   'last monday'   'next month'   '+3 days'\n"
            "  'in 2 hours'   '2 hours ago'   'tomorrow 9:00'   '9 pm'   '2026-01-31 +1 month'");
}

void add_parse_date(CLI::App &app, arguments &args) {
    CLI::App &command =
        *app.add_subcommand("parse-date", "Read a date and time by a format of a locale");
    parse_date_options &o = args.parse_date;
    command.add_option("locale", o.locale, locale_help)->required()->type_name("LOCALE");
    command
        .add_option("format", o.format,
                    "How the text is written, with directives, see below: '%d. %B %Y'")
        ->required()
        ->type_name("FORMAT");
    command
        .add_option("text", o.texts,
                    "Dates; none: the lines of standard input. A year, month or day that a date "
                    "lacks is today's, with a word on standard error; a time that it lacks is 0")
        ->type_name("TEXT");
    command
        .add_option("--century", o.century,
                    "Century of a year of two digits: C closest to today, F in the future, P in "
                    "the past, R this one")
        ->check(CLI::IsMember({"C", "F", "P", "R"}))
        ->capture_default_str();
    command
        .add_option("--today", o.today,
                    "Another date for today, such as 2026-11-21, in the forms of kova date --at")
        ->type_name("WHEN");
    command.add_flag(
        "--allow-short-year", o.short_years,
        "Take a year below 1000 that %Y reads with fewer than four digits as it is, 26 "
        "as the year 26. Default: it is refused");
    add_batch(command, o.batch);
    add_common(
        command, args, [&args] { return run_parse_date(args.common, args.parse_date); },
        "  kova parse-date de_DE.8859-1 '%d. %B %Y' '21. März 1999'     prints 1999-03-21 "
        "00:00:00\n"
        "  kova parse-date ja_JP.EUC-JP '%EY%m月%d日' '平成2年1月8日'\n"
        "  kova parse-date en_US.8859-1 %D 6/15/24 --century F --today 2024-06-15\n\n" +
            std::string(time_directives) +
            "\nPrints YYYY-MM-DD HH:MM:SS of the Gregorian calendar. A text that is no date, or "
            "could "
            "be two,\nis refused with status 1.");
}

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

int run_command(arguments &args) {
    if (args.utf8) args.common.form = text_form::utf8;
    if (args.bytes) args.common.form = text_form::bytes;
    args.sort.progress = args.convert.progress = !args.no_progress;
    try {
        return args.run();
    } catch (const failure &e) {
        return complain(e);
    }
}

// How many characters must be changed, put in or left out to make one word of another.
size_t distance(const std::string &a, const std::string &b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i);
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t changed = diagonal + (a[i - 1] != b[j - 1]);
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
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
    arguments args;
    CLI::App app(
        "Sorts, compares, classifies, maps and converts text under compiled locales, with the same "
        "answers on every machine.",
        "kova");
    app.require_subcommand(1);
    app.set_version_flag("--version", ko_version());
    app.formatter(std::make_shared<help_format>());
    app.get_formatter()->column_width(34);
    add_sort(app, args);
    add_compare(app, args);
    add_key(app, args);
    add_case(app, args, "upper", args.upper);
    add_case(app, args, "lower", args.lower);
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
