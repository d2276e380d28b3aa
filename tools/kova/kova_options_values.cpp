// Options and help of the commands that write and read values: number, money, date, parse-date and
// cal.
#include "kova/kova_options.h"

namespace kovacli {

static constexpr char time_directives[] =
    "Directives:\n"
    "  %A %a weekday     %B %b month   %OB month without a day   %d %e day   %m month\n"
    "  %Y %y %C year     %H %I hour of 24, of 12   %p AM or PM   %M minute\n"
    "  %S second, %F its fraction    %j day of year    %u %w weekday in digits\n"
    "  %c %x %X %r the locale's date and time, date, time, 12-hour time\n"
    "  %Ec %Ex %EX the same with its era    %EY %EC %Ey year by era, era, its year\n"
    "  %Od %OH ... in the locale's own digits    %G %V year and week of ISO 8601\n"
    "  %D %R %T as %m/%d/%y, %H:%M, %H:%M:%S    %n newline   %t tab   %% percent sign\n";

// The options of the commands that answer many values.
static void add_batch(CLI::App &command, batch_options &o) {
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
    add_count(command, "--header", o.header, "Pass the first N lines of each file on");
    command.add_flag("-z,--null", o.nulls, "Lines end with a null character, not with a newline");
    command.add_flag("--json", o.json,
                     "Write a JSON object for each value, with its result or its error, in UTF-8");
    command.add_flag("--stop", o.stop, "Stop at the first bad line instead of going on");
}

// The options that number and money share.
static CLI::App &add_format(CLI::App &app, command_line &args, const char *name, const char *what,
                            const char *format_help, format_options &o,
                            int (*run)(const common_options &, const format_options &),
                            const std::string &examples) {
    CLI::App &command = *app.add_subcommand(name, what);
    add_locale_name(command, o.locale);
    command.add_option("format", o.format, format_help)->required()->type_name("FORMAT");
    command
        .add_option("value", o.values,
                    "Values, with \".\" before decimals. If there are more than FORMAT takes, it "
                    "is used again for another line. None: the lines of standard input, each with "
                    "what FORMAT takes")
        ->type_name("VALUE");
    CLI::Option *parse =
        command.add_flag("--parse{" + std::string(default_parse) + "}", o.text,
                         "Read each VALUE, TEXT or each line by FORMAT instead and print its "
                         "values");
    command
        .add_option("--digits", o.digits,
                    "Write digits of a script: native, or a name of CLDR such as arab or deva")
        ->type_name("NAME");
    add_batch(command, o.batch);
    add_common(
        command, args,
        [&args, &o, run, parse] {
            o.parse = parse->count() > 0;
            if (o.text == default_parse) o.text.clear();
            return run(args.common, o);
        },
        examples);
    return command;
}

void add_money(CLI::App &app, command_line &args) {
    add_format(app, args, "money", "Write amounts of money as a locale does, or read them",
               "Text with a directive for each amount: % with flags (! ( + - ^ =FILL), width, "
               "#DIGITS, .DIGITS, then n (national) or i (international)",
               args.hold<format_options>(), run_money,
               "  kova money de_DE.unicode %n 1234567.891       prints 1.234.567,89 €\n"
               "  kova money en_US.8859-1 '%(#6n' 99.5 -1234.5\n"
               "  kova money da_DK.8859-1 %n --parse 'kr. -1.234,50'\n"
               "  kova money fr_FR %n --field 3 -t ';' < sales.csv\n");
}

void add_number(CLI::App &app, command_line &args) {
    format_options &o = args.hold<format_options>();
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
    command.get_option("--from")->excludes("--parse");
    to->excludes("--parse");
}

void add_date(CLI::App &app, command_line &args) {
    CLI::App &command = *app.add_subcommand("date", "Write a date and time as a locale does");
    date_options &o = args.hold<date_options>();
    add_locale_name(command, o.locale);
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
    add_common(
        command, args, [&args, &o] { return run_date(args.common, o); },
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
            "  2026-11-21   20261121   2026-W47-6   2026-325   14:30   @SECONDS\n"
            "  2026-11-21T14:30:05Z   '24 Dec 2026'   'Dec 24'   'December 24, 2026'\n"
            "  today   tomorrow   yesterday   monday   'last monday'   'next month'\n"
            "  'first monday of december'   'last friday of month'   'last day of february'\n"
            "  '+3 days'   '2 weeks'   'in 2 hours'   '2 hours ago'   '2026-01-31 +1 month'\n"
            "  'tomorrow 9:00'   '9 pm'\n"
            "Names of months and days are English ones or those of LOCALE. STEP: 1day, 1w, "
            "2weeks.");
}

void add_parse_date(CLI::App &app, command_line &args) {
    CLI::App &command =
        *app.add_subcommand("parse-date", "Read a date and time by a format of a locale");
    parse_date_options &o = args.hold<parse_date_options>();
    add_locale_name(command, o.locale);
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
        command, args, [&args, &o] { return run_parse_date(args.common, o); },
        "  kova parse-date de_DE.8859-1 '%d. %B %Y' '21. März 1999'\n"
        "      prints 1999-03-21 00:00:00\n"
        "  kova parse-date ja_JP.EUC-JP '%EY%m月%d日' '平成2年1月8日'\n"
        "  kova parse-date en_US.8859-1 %D 6/15/24 --century F --today 2024-06-15\n\n" +
            std::string(time_directives) +
            "\nPrints YYYY-MM-DD HH:MM:SS of the Gregorian calendar. A text that is no date, or "
            "could be two, is refused with status 1.");
}

void add_cal(CLI::App &app, command_line &args) {
    CLI::App &command = *app.add_subcommand("cal", "Draw months of a locale's calendar");
    cal_options &o = args.hold<cal_options>();
    add_locale_name(command, o.locale);
    command
        .add_option("month", o.month,
                    "Number of the month in its year, or its full or short name; or a year alone, "
                    "which is drawn whole; or both, as 2026-11. Default: this month")
        ->type_name("MONTH");
    command
        .add_option(
            "year", o.year,
            "Year of the locale's calendar, or of an era as %EY writes it. Default: this year")
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
    add_page(command, o.html, o.out)->excludes(add_json(command, args));
    add_common(
        command, args, [&args, &o] { return run_cal(args.common, o); },
        "  kova cal de_DE.unicode\n"
        "  kova cal fr_FR.8859-1 février 2024\n"
        "  kova cal -3 -w pl_PL listopad 2026\n"
        "  kova cal th_TH 2026\n"
        "  kova cal th_TH 11 'พ.ศ. 2569'\n"
        "  kova cal --html -o 2026.html de_DE 2026\n"
        "  kova cal he_IL.unicode@hebr 7 5784     with the Gregorian days beside them\n");
}

} // namespace kovacli
