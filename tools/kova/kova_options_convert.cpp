// Options and help of the commands about code sets: convert, records, chart and symbols.
#include "kova/kova_options.h"

#include "kova/kova_progress.h"

namespace kovacli {

static void add_escapes(CLI::App &command, convert_options &o) {
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

static void add_resuming(CLI::App &command, convert_options &o) {
    command
        .add_option("--output-dir", o.out_dir,
                    "Write a file of the same name into DIR for each FILE, in one step")
        ->type_name("DIR")
        ->excludes("--output");
    command.add_flag("--json", o.json,
                     "Write a report of all inputs to standard output, as one JSON object");
    command
        .add_option("--records", o.records,
                    "Form of the input, each record of which is a line: fb:LENGTH, v, vb, vbs or "
                    "lines")
        ->type_name("FORM");
    command
        .add_option("--to-records", o.to_records,
                    "Form of the output, for which each line is a record; blanks fill fixed ones")
        ->type_name("FORM");
    command.add_flag("--keep-part", o.keeps_part,
                     "Keep in FILE or DIR what precedes the character that stops a text");
    CLI::Option *offset =
        add_count(command, "--from-offset", o.from_offset, "Begin at this byte of the input");
    command.add_option("--state", o.state, "State of the text there, as an error said")
        ->type_name("STATE")
        ->needs(offset);
}

void add_convert(CLI::App &app, command_line &args) {
    CLI::App &command = *app.add_subcommand("convert", "Convert text from one code set to another");
    convert_options &o = args.hold<convert_options>();
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
        o.progress = !args.no_progress;
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

static void choose_part(const std::string &text, records_options &o) {
    if (text.empty()) return;
    char rest;
    const bool read =
        text.size() < 20 && std::sscanf(text.c_str(), "%9u/%9u%c", &o.part, &o.parts, &rest) == 2;
    if (!read || o.part < 1 || o.part > o.parts)
        throw failure(bad_usage, "--part " + text + ": I/N, from 1/N to N/N");
}

void add_records(CLI::App &app, command_line &args) {
    CLI::App &command =
        *app.add_subcommand("records", "Read host records into JSON lines or CSV, and back");
    records_options &o = args.hold<records_options>();
    std::string &part = args.hold<std::string>(), &bad_fields = args.hold<std::string>();
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
        .add_option("--keep-bad", bad_fields,
                    "Keep the bytes of fields that are wrong, or would come back otherwise, as "
                    "digits (hex), and continue")
        ->type_name("FORM")
        ->check(CLI::IsMember({"hex"}))
        ->excludes(encode);
    command.add_option("--part", part, "Read the part I of N, which begins with a record")
        ->type_name("I/N")
        ->excludes(encode);
    command.add_option("file", o.files, "Files; - or none: standard input")->type_name("FILE");
    command.add_option("-o,--output", o.out, "Write to FILE, in one step at the end")
        ->type_name("FILE");
    command.add_flag("--no-progress", args.no_progress,
                     "No progress line on the terminal for long input");
    const auto run = [&args, &o, &part, &bad_fields] {
        choose_part(part, o);
        if (args.no_progress) forbid_progress();
        o.keep_bad = !bad_fields.empty();
        return run_records(args.common, o);
    };
    add_common(command, args, run,
               "  kova records -l pay.layout --records fb:120 -f 037 pay.bin > pay.json\n"
               "  kova records -l pay.layout --records vb -f 939 --keep-bad hex pay.bin > pay\n"
               "  kova records -l pay.layout --records vb -f 939 --encode pay.json -o pay.bin\n");
}

void add_chart(CLI::App &app, command_line &args) {
    CLI::App &command = *app.add_subcommand("chart", "Draw the characters of a code set");
    chart_options &o = args.hold<chart_options>();
    command.add_option("codeset", o.code_set, "Code set, by name or number")
        ->required()
        ->type_name("CODESET");
    command
        .add_option("--lead", o.lead,
                    "Draw the characters that begin with these bytes, in hexadecimal")
        ->type_name("XX");
    add_page(command, o.html, o.out);
    add_common(command, args, [&args, &o] { return run_chart(args.common, o); },
               "  kova chart IBM037\n"
               "  kova chart SHIFT_JIS             also lists the lead bytes\n"
               "  kova chart SHIFT_JIS --lead 82\n"
               "  kova chart --html -o sjis.html SHIFT_JIS     with the grids of all lead bytes\n",
               {"The output is UTF-8. Default when LC_ALL, LC_CTYPE or LANG says so",
                "The output is ASCII: code points in hexadecimal instead of characters"});
}

void add_symbols(CLI::App &app, command_line &args) {
    CLI::App &command = *app.add_subcommand(
        "symbols", "Write the characters of text as symbolic names, or read such names back");
    symbols_options &o = args.hold<symbols_options>();
    command.add_option("codeset", o.code_set, "Code set of the text, by name or number")
        ->required()
        ->type_name("CODESET");
    command.add_option("file", o.files, "Files; - or none: standard input")->type_name("FILE");
    command.add_flag("-d,--decode", o.decode, "Read symbols; white space between them is left out");
    command.add_option("-o,--output", o.out, "Write to FILE, in one step at the end")
        ->type_name("FILE");
    add_common(command, args, [&args, &o] { return run_symbols(args.common, o); },
               "  kova symbols IBM037 payroll.ebcdic\n"
               "  printf '<A><b><c><newline>' | kova symbols -d IBM037 > abc.ebcdic\n",
               {"No effect: text is bytes of the code set", "No effect"});
}

} // namespace kovacli
