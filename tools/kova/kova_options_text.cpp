// Options and help of the commands that read text: sort, compare, key, upper, lower, classify,
// width, trim, count and text.
#include "kova/kova_options.h"

namespace kovacli {

// How lines, and parts without letters of their own, are compared.
static void add_ordering(CLI::App &command, sort_options &o) {
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

void add_sort(CLI::App &app, command_line &args) {
    CLI::App &command = *app.add_subcommand("sort", "Sort lines in a locale's order");
    sort_options &o = args.hold<sort_options>();
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
        command, args,
        [&args, &o] {
            o.progress = !args.no_progress;
            return run_sort(args.common, o);
        },
        "  kova sort -l de_DE words.txt\n"
        "  kova sort -l cs_CZ.8859-2 -t ';' -k 2,2 -k 4n -o people.csv people.csv\n"
        "  cut -f1 names | kova sort -l sv_SE -u\n"
        "  kova sort -l sv_SE -c words.txt            is it sorted?\n");
}

void add_compare(CLI::App &app, command_line &args) {
    CLI::App &command =
        *app.add_subcommand("compare", "Print <, = or > for the order of two texts");
    compare_options &o = args.hold<compare_options>();
    add_locale_name(command, o.locale);
    command.add_option("a", o.first, "First text")->required()->type_name("A");
    command.add_option("b", o.second, "Second text")->required()->type_name("B");
    add_json(command, args);
    add_common(
        command, args, [&args, &o] { return run_compare(args.common, o); },
        "  kova compare de_DE.8859-1 Äpfel Zebra     prints <\n"
        "  kova compare sv_SE.8859-1 Äpfel Zebra     prints >\n");
}

void add_key(CLI::App &app, command_line &args) {
    CLI::App &command =
        *app.add_subcommand("key", "Print sort keys: bytes whose order is the order of the texts");
    key_options &o = args.hold<key_options>();
    add_locale_name(command, o.locale);
    command.add_option("text", o.texts, "Texts; none: the lines of standard input")
        ->type_name("TEXT");
    CLI::Option *raw =
        command.add_flag("--raw", o.raw, "The bytes themselves instead of hexadecimal digits");
    add_json(command, args)->excludes(raw);
    add_common(
        command, args, [&args, &o] { return run_key(args.common, o); },
        "  kova key fr_FR.8859-1 cote coté côte\n"
        "  kova key --raw fr_FR.8859-1 cote | od -tx1\n");
}

static void add_mapping(CLI::App &app, command_line &args, const char *name) {
    case_options &o = args.hold<case_options>();
    CLI::App &command =
        *app.add_subcommand(name, std::string("Print texts or files in ") + name + " case");
    o.upper = std::string_view(name) == "upper";
    add_locale_name(command, o.locale);
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

void add_case(CLI::App &app, command_line &args) {
    add_mapping(app, args, "upper");
    add_mapping(app, args, "lower");
}

void add_classify(CLI::App &app, command_line &args) {
    CLI::App &command =
        *app.add_subcommand("classify", "Show each character's bytes, classes and case partners");
    classify_options &o = args.hold<classify_options>();
    add_locale_name(command, o.locale);
    command.add_option("text", o.texts, "Texts; with --count: files, - or none standard input")
        ->type_name("TEXT");
    CLI::Option *count =
        command.add_flag("--count", o.count, "How many characters of each class the files hold");
    command.add_flag("--replace", o.replace, "Count invalid bytes and continue")->needs(count);
    add_json(command, args);
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
static CLI::App &measure_command(CLI::App &app, const char *name, const char *what, const char *bad,
                                 measure_options &o) {
    CLI::App &command = *app.add_subcommand(name, what);
    add_locale_name(command, o.locale);
    command.add_option("file", o.files, "Files; - or none: standard input")->type_name("FILE");
    command.add_flag("--replace", o.replace, bad);
    return command;
}

void add_measures(CLI::App &app, command_line &args) {
    measure_options &w = args.hold<measure_options>(), &t = args.hold<measure_options>(),
                    &c = args.hold<measure_options>();
    CLI::App &width = measure_command(app, "width", "Print the display columns of each line",
                                      "Continue after invalid text; its line has no width", w);
    width.add_flag("--widest", w.widest, "Print the columns of the widest line only");
    add_json(width, args);
    add_common(
        width, args, [&args, &w] { return run_width(args.common, w); },
        "  kova width ja_JP.EUC-JP letter.txt          -1 for a line with a control\n"
        "  kova width --widest de_DE.unicode < table\n");
    CLI::App &trim = measure_command(app, "trim", "Remove spaces at the ends of lines",
                                     "Leave invalid text as it is and continue", t);
    trim.add_option("-o,--output", t.out,
                    "Write to FILE, in one step at the end; it may be one of the files read")
        ->type_name("FILE");
    add_common(
        trim, args, [&args, &t] { return run_trim(args.common, t); },
        "  kova trim ja_JP.SHIFT_JIS --bytes -o letter.sjis letter.sjis\n"
        "  kova trim de_DE.unicode < notes.txt\n");
    CLI::App &count =
        measure_command(app, "count", "Count the lines, characters, bytes and columns of files",
                        "Count invalid bytes and continue", c);
    add_json(count, args);
    add_common(
        count, args, [&args, &c] { return run_count(args.common, c); },
        "  kova count zh_TW.BIG5 --bytes chapter*.txt\n"
        "  kova count de_DE.unicode < book.txt\n");
}

// A command of kova text: its locale, files and output.
static CLI::App &text_command(CLI::App &text, command_line &args, const char *name,
                              const char *what, text_options &o,
                              int (*run)(const common_options &, const text_options &),
                              const std::string &examples) {
    CLI::App &command = *text.add_subcommand(name, what);
    add_locale_name(command, o.locale);
    command.add_option("file", o.files, "Files; - or none: standard input")->type_name("FILE");
    command
        .add_option("-o,--output", o.out,
                    "Write to FILE, in one step at the end; it may be one of the files read")
        ->type_name("FILE");
    command.add_flag("--replace", o.replace,
                     "Write U+FFFD or ? for what is not a character and continue");
    add_common(
        command, args, [&args, &o, run] { return run(args.common, o); }, examples);
    return command;
}

static void add_line_width(CLI::App &command, text_options &o) {
    command.add_option("-w,--width", o.width, "Columns of a line")
        ->type_name("N")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str();
}

static void add_tabs(CLI::App &command, text_options &o) {
    command
        .add_option("-t,--tabs", o.tabs,
                    "Columns from one tab stop to the next, or a list of them: 4,8,20; its last "
                    "can be /N (every multiple of N) or +N (every N after the stop before). "
                    "Default: 8")
        ->type_name("STOPS");
}

static void add_tab_commands(CLI::App &text, command_line &args) {
    text_options &e = args.hold<text_options>();
    CLI::App &expand = text_command(text, args, "expand", "Replace tabs by blanks", e, run_expand,
                                    "  kova text expand de_DE -t 4 main.c\n");
    add_tabs(expand, e);
    expand.add_flag("-i,--initial", e.initial, "Only tabs at the start of a line");
    text_options &o = args.hold<text_options>();
    CLI::App &unexpand =
        text_command(text, args, "unexpand", "Replace blanks at the start of lines by tabs", o,
                     run_unexpand, "  kova text unexpand de_DE -a table.txt\n");
    add_tabs(unexpand, o);
    CLI::Option *first = unexpand.add_flag("--first-only", o.initial,
                                           "Only blanks at the start of a line, with -t too");
    unexpand.add_flag("-a,--all", o.all, "All blanks; with -t, this is the default")
        ->excludes(first);
}

void add_text(CLI::App &app, command_line &args) {
    CLI::App &text = *app.add_subcommand(
        "text", "Fold, wrap, expand and align text by the columns that it takes on a terminal");
    text.require_subcommand(1);
    text.footer("kova text COMMAND --help tells more, with examples.");
    text_options &f = args.hold<text_options>();
    CLI::App &fold = text_command(text, args, "fold", "Cut lines at a column", f, run_fold,
                                  "  kova text fold th_TH -w 40 letter.txt\n"
                                  "  kova text fold ja_JP.EUC-JP --bytes -s -w 72 < letter.euc\n");
    add_line_width(fold, f);
    fold.add_flag("-s,--spaces", f.spaces, "After the last blank that fits, if there is one");
    text_options &w = args.hold<text_options>();
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
    text_options &t = args.hold<text_options>();
    CLI::App &table =
        text_command(text, args, "table", "Align the columns of a table", t, run_table,
                     "  kova text table de_DE cities.txt\n"
                     "  kova text table ja_JP -s , -R 2,4- --between ' | ' prices.csv\n");
    table
        .add_option("-s,--separator", t.separators,
                    "Characters of which each separates cells; \\t is the tab. Default: runs of "
                    "blanks")
        ->type_name("CHARS");
    table.add_option("--between", t.between, "Text between columns. Default: two blanks")
        ->type_name("TEXT");
    table.add_option("-R,--right", t.right, "Columns that are flush right, such as 2,4-6,9-")
        ->type_name("LIST");
}

} // namespace kovacli
