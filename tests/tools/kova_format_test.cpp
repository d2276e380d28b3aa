// The commands that take formats, run as people run them: what they write, and how they point at
// the directive that fails.
#include "tools/command_run.h"

#include <sstream>

using KovaFormat = data_test;

TEST_F(KovaFormat, WritesAndReadsMoney) {
    command = "kova money ";
    writes("de_DE.unicode %n 1234567.891 -5", "1.234.567,89 €\n-5,00 €\n");
    writes("en_US.8859-1 '%i is %(n' 1 -2 3 4", "USD 1.00 is ($2.00)\nUSD 3.00 is $4.00\n");
    writes("en_US.IBM037 --bytes \"$(printf '\\154\\225')\" 9", "\x5B\xF9\x4B\xF0\xF0\n");
    writes("ja_JP.EUC-JP 合計%n 1234.5", "合計￥1,235\n");
    writes("en_US.8859-1 100%%", "100%\n");
    writes("da_DK.8859-1 '%n + %n' --parse 'kr. -1.234,50 + kr. 7'", "-1234.5\n7\n");
    fails(2, "ja_JP.EUC-JP 合計%n、%= 1",
          "directive 2, %=, at character 6 of the format: a directive is % with flags, width, "
          "#digits, .digits and n or i\n  合計%n、%=\n          ^~\n");
    fails(1, "da_DK.8859-1 %n --parse 'EUR 1'", "directive 1, %n, at character 1 of");
    fails(2, "en_US.8859-1 '%n %n' 1 2 3", "FORMAT takes a VALUE for each directive");
    fails(2, "en_US.8859-1 text 1", "FORMAT has no directive");
    fails(2, "en_US.8859-1 5", "FORMAT, 5, has no directive, such as %n");
    fails(2, "en_US.8859-1 %n 1,5", "VALUE 1, 1,5, is not a number");
    fails(2, "en_US.8859-1 %n 1e999", "VALUE 1, 1e999, is out of range");
    fails(2, "en_US.8859-1 %n%n%n%n%n%n%n%n%n%n%n%n%n%n%n%n%n 1", "FORMAT has more than");
    fails(1, "POSIX %n 5", "POSIX has no conventions of money");
    fails(1, "POSIX %n --parse 5", "POSIX has no conventions of money");
    fails(2, "de_DE.unicode %n 12345678901234567.89", "has more digits than an amount can have");
    fails(2, "de_DE.unicode %.7n 0.1234567", "has more digits than an amount can have");
    fails(2, "de_DE.unicode %.4294967295n 0.1234567", "has more digits than an amount can have");
    writes("de_DE.unicode '%=.#5n' --parse 100.000", "100000\n");
    fails(1, "de_DE.unicode %n --parse '0.123 €'", "by \".\" does not begin with 0");
    writes("de_DE.unicode %n --parse '0,00 €'", "0\n");
    writes("de_DE.unicode %n --parse '1,999 €'", "1.999\n", "",
           "than the 2 decimals of the currency");
    // Blanks and signs stand for each other.
    writes("fr_CA.unicode %n --parse '1\u202f234,50 $' '1 234,5\u00a0$'", "1234.5\n1234.5\n", "",
           "U+0020 is read as U+202F, U+00A0 is read as U+0020\n");
    writes("en_US.unicode %n --parse '−$5'", "-5\n", "", "U+2212 is read as U+002D\n");
    fails(1, "en_US.unicode %n --parse '$5 or so'", "at character 4\n  $5 or so\n     ^\n");
}

// What lasts from directive to directive lasts here as well.
TEST_F(KovaFormat, WritesAndReadsNumbers) {
    command = "kova number ";
    writes("de_DE.unicode \"%'.2f kr|%5x|%s\" 1234.5 255 é€ 2 3 x",
           "1.234,50 kr|   ff|é€\n2,00 kr|    3|x\n");
    writes("en_US.8859-1 '%d %u %X %x %05d %-3d|' -1 2 171 171 7 8", "-1 -2 -AB -AB -0007 -08|\n");
    writes("en_US.IBM037 \"%'d%%%c\" 1234567 é", "1,234,567%é\n");
    writes("fr_FR.8859-1 \"%'.2f\" -1234567.5", "-1 234 567,50\n");
    writes("en_US.8859-1 a%%b", "a%b\n");
    fails(2, "ja_JP.EUC-JP \"合計%'d、%lld\" 1 2",
          "directive 2, %lld, at character 7 of the format: a directive is % with flags, "
          "width, .digits, l or h, then one of d i u o q b x X c s e E f g G\n  合計%'d、%lld\n"
          "           ^~~~\n");
    fails(2, "en_US.8859-1 '%d %' 1 2", "directive 2, %, at character 4 of the format");
    fails(2, "en_US.8859-1 %d 9223372036854775808", "775807; %g writes it rounded");
    fails(2, "en_US.8859-1 %hd 40000", "VALUE 1, 40000, is not within -32768 and");
    fails(2, "en_US.8859-1 %u -- -1", "VALUE 1, -1, is not within 0 and 18446744073709551615");
    fails(2, "en_US.8859-1 %d 1.5", "VALUE 1, 1.5, is not a whole number; %f");
    fails(2, "en_US.8859-1 %c ''", "directive 1, %c, at character 1");
    writes("de_DE.8859-1 \"%'f\" --parse 1.234,5", "1234.5\n");
    writes("en_US.8859-1 '%*d %u %lc%c %ls' --parse '5 4294967295 é é bc'",
           "4294967295\né\né\nbc\n");
    fails(1, "en_US.8859-1 %d:%d --parse '1;2'",
          ":, at character 3 of the format: the text does not match\n  %d:%d\n    ^\n");
    fails(2, "en_US.8859-1 '%d %z' --parse '1 2'", "directive 2, %z, at character 4");
    fails(1, "en_US.8859-1 \"%'d\" --parse 1,23", "directive 1, %'d, at character 1");
    fails(1, "de_DE.8859-1 %d --parse '12 Stück'",
          "the format ends before the text, at character 4");
    writes("sv_SE.unicode \"%'d\" --parse '−1 234'", "-1234\n", "",
           "U+2212 is read as U+002D, U+0020");
    // A decimal symbol of another language, and more than a real can hold.
    fails(1, "de_DE %f --parse 1.234", "1.234: decimals come after \",\" in de_DE.unicode, and %'");
    writes("en_US.8859-1 \"%'d %'f\" --parse '0 0.5'", "0\n0.5\n");
    fails(1, "en_US.8859-1 \"%'d\" --parse 0,123", "by \",\" does not begin with 0");
    fails(1, "en_US.8859-1 %f --parse 1e400", "1e400 is out of range");
    writes("en_US.8859-1 '%f %f' --parse '100000 9007199254740993'", "100000\n9007199254740992\n",
           "", "9007199254740993 has more digits than are kept: it is read as 9007199254740992");
    fails(2, "en_US.8859-1 %.0f 9007199254740993", "has more digits than the 15 of reals");
    writes("en_US.8859-1 '%.2f %e' 3.14159265358979323846 12345678901234567",
           "3.14 1.234568e+16\n");
    fails(2, "en_US.8859-1 %f --parse 5 --from si", "--parse excludes --from");
    writes("de_DE '%+d|% d|%E' 5 5 5e9", "+5|+5|+5,000000E+09\n");
}

// Integers beyond 32 bits, written as the C library writes them.
TEST_F(KovaFormat, WritesAndReadsIntegersOf64Bits) {
    command = "kova number en_US.8859-1 ";
    static const char *const rows[][3] = {
        {"%d",      "-9223372036854775808", "-9223372036854775808"                       },
        {"%u",      "18446744073709551615", "18446744073709551615"                       },
        {"%x",      "4294967296",           "100000000"                                  },
        {"%#X",     "3000000000",           "0XB2D05E00"                                 },
        {"%#o",     "4294967296",           "040000000000"                               },
        {"%012d",   "-3000000000",          "-03000000000"                               },
        {"%-12d|",  "3000000000",           "3000000000  |"                              },
        {"%12.11d", "3000000000",           " 03000000000"                               },
        {"%'d",     "-9223372036854775807", "-9,223,372,036,854,775,807"                 },
        {"%'b",     "4294967296",           "100,000,000,000,000,000,000,000,000,000,000"},
        {"%d",      "3e9",                  "3000000000"                                 },
    };
    for (const auto &row : rows) {
        writes(quoted(row[0]) + " " + row[1], std::string(row[2]) + "\n");
        if (row[1][1] != 'e' && row[0][1] != '-' && row[0][1] != '#')
            writes(quoted(row[0]) + " --parse " + row[2], row[1] + std::string("\n"));
    }
    writes("'%d %d %u' -5000000000 7 6000000000", "-5000000000 -7 -6000000000\n");
    writes("'%X %x' 3000000000 3000000001", "B2D05E00 B2D05E01\n");
    writes("'%d;%3d%d %hd' --parse '99999999999;123-4 -32768'", "99999999999\n123\n-4\n-32768\n");
    fails(1, "%d --parse 9223372036854775808", "9223372036854775808 is beyond 64 bits");
    fails(1, "%hd --parse 32768", "32768 is beyond 16 bits");
}

TEST_F(KovaFormat, WritesUnitsAndDigitsOfScripts) {
    command = "kova number de_DE ";
    static const char *const rows[][2] = {
        {"%f --to si 1500 999949 999950 9950 1e33 -1001 5",
         "1,5K\n1,0M\n1,0M\n10K\n1000Q\n-1,1K\n5\n"                                   },
        {"%f --to iec 1023 1024 1025 10241",                "1023\n1,0K\n1,1K\n11K\n" },
        {"'%8.2f|' --to iec-i --round down 1535",           "  1,49Ki|\n"             },
        {"'%-8d|' --to si --round nearest 1049",            "1,0K    |\n"             },
        {"%d --from auto 1Ki 2k 1.5M 7",                    "1024\n2000\n1500000\n7\n"},
        {"%d --from iec 15E",                               "-\n"                     },
        {"%.3f --from si --to iec 1.024K",                  "1,000K\n"                },
        {"%d --digits deva १२",                         "१२\n"                },
        {"'2 %x %d' --digits arab 10 10",                   "2 a ١٠\n"              },
    };
    for (const auto &row : rows)
        if (row[1][0] != '-' || row[1][1] != '\n') writes(row[0], row[1]);
    fails(2, "%d --from iec 15E", "is not within");
    fails(2, "%d --from iec 1Ki", "--from auto or iec-i reads units with i");
    fails(2, "%d --from iec-i 1K", "reads units with i");
    fails(2, "%d 1K", "is not a whole number");
    fails(2, "%x --to si 1", "--to needs one of");
    fails(2, "%d --digits xxxx 1", "there are native and adlm");
    command = "kova ";
    writes("number fa_IR \"%'d\" --digits native 1234567", "۱,۲۳۴,۵۶۷\n");
    writes("number fa_IR \"%'d\" --parse ۱,۲۳۴", "1234\n", "", "U+06F1 is read as U+0031");
    writes("money or_IN '%!n' --digits native 120", "୧୨୦.୦୦\n");
    fails(1, "number th_TH.TIS-620 --bytes %d --digits deva 1", "TIS-620 has no such digits");
    writes("number th_TH.TIS-620 --bytes %d --digits native 1", "\xF1\n");
}

// Many values, each with an answer or an error.
TEST_F(KovaFormat, AnswersLinesAndFields) {
    command = "kova number de_DE ";
    const auto partly = [&](const std::string &args, const std::string &in, const std::string &out,
                            const std::string &told) {
        const outcome got = shell(command + args, in);
        EXPECT_EQ(got.out, out) << args << got.err;
        EXPECT_NE(got.err.find(told), std::string::npos) << args << got.err;
        EXPECT_EQ(got.status, 1) << args;
    };
    writes("%.1f", "1,0\r\n2,5\n", "1\r\n2.5");
    writes("'%d von %d'", "1 von 2\n3 von 4\n", " 1 2\n3\t4 \n");
    writes("\"%'d\" --field 2,4- -t ';'", "1000;1.000;;2.000;3.000\n", "1000;1000;;2000;3000\n");
    writes("\"%'d\" --field 2 --header 1", "a b\nx  1.000 1000\n", "a b\nx  1000 1000\n");
    writes("%d -z | od -An -c", "   1  \\0   2  \\0\n", std::string("1\0002", 3));
    partly("%d", "1\nx\n3\n", "1\n\n3\n", "standard input:2: VALUE, x, is not a whole number\n");
    partly("%d --stop", "1\nx\n3\n", "1\n", "standard input:2: ");
    partly("%d --field 2", "a 1\nb\n", "a 1\nb\n", "standard input:2: the line has no field 2");
    partly("'%d %d'", "1\n", "\n", "FORMAT takes 2 values; the line has 1");
    partly("%d --json 5 x", "",
           "{\"value\":1,\"input\":\"5\",\"result\":\"5\"}\n{\"value\":2,\"input\":\"x\","
           "\"error\":\"VALUE 2, x, is not a whole number\"}\n",
           "");
    partly("'%d %s' --parse --json", "5 é\n\x80\n",
           "{\"line\":1,\"input\":\"5 é\",\"result\":[5,\"é\"]}\n"
           "{\"line\":2,\"input\":\"\uFFFD\",\"error\":\"TEXT: byte offset 0: the byte 80 does "
           "not begin a character of UTF-8; --bytes takes texts in unicode\"}\n",
           "");
    fails(2, "%d --field 0", "--field 0: fields are such as");
    fails(2, "'%d %d' --field 1", "FORMAT takes one value for each field");
    fails(2, "%d -f x 5", "values are given, and --file");
    fails(4, "%d -f missing", "cannot read missing");
    spit(dir / "a", "1\n");
    writes("%d --parse --json -f a -f -",
           "{\"file\":\"a\",\"line\":1,\"input\":\"1\",\"result\":1}\n"
           "{\"file\":\"standard input\",\"line\":1,\"input\":\"2\",\"result\":2}\n",
           "2\n");
    command = "kova date de_DE ";
    writes("'%d. %B' 2026-03-01 2026-12-24", "01. März\n24. Dezember\n");
    writes("%x --field 2 -t ';' -f -", "a;21.11.2026;b\n", "a;2026-11-21;b\n");
    writes("-I -z -f - | tr '\\0' .", "2026-01-02.2026-01-03.",
           std::string("20260102\0002026-01-03", 19));
    writes("%x --from 2026-01-01 --to 2026-01-02 --json",
           "{\"value\":1,\"input\":\"2026-01-01 00:00:00\",\"result\":\"01.01.2026\"}\n"
           "{\"value\":2,\"input\":\"2026-01-02 00:00:00\",\"result\":\"02.01.2026\"}\n");
    command = "kova parse-date de_DE ";
    writes("%d.%m.%Y 1.2.2026 '3.4.2026'", "2026-02-01 00:00:00\n2026-04-03 00:00:00\n");
    partly("%d.%m.%Y", "1.2.2026\n30.2.2026\n", "2026-02-01 00:00:00\n\n",
           "standard input:2: 30.2.2026: there is no such date: February 2026 has 28 days\n");
    partly(
        "%d.%m.%Y --json", "31.4.2026\n1.1.2026\n",
        "{\"line\":1,\"input\":\"31.4.2026\",\"error\":\"31.4.2026: there is no such date: April "
        "2026 has 30 days\"}\n{\"line\":2,\"input\":\"1.1.2026\",\"result\":\"2026-01-01 "
        "00:00:00\"}\n",
        "");
    writes("%d.%m. --today 2026-05-05 --json 1.2.",
           "{\"value\":1,\"input\":\"1.2.\",\"result\":\"2026-02-01 00:00:00\",\"told\":[\"the "
           "text has "
           "no year: taken from today, 2026-05-05\"]}\n");
    command = "kova money fr_CA.unicode ";
    writes("%n --parse --field 2 -t ';'", "a;-1234.5;b\n", "a;(1\u202f234,50 $);b\n");
}

// Cells of a row of a table; "\\|" is no end of a cell.
static std::vector<std::string> cells_of(const std::string &row) {
    std::vector<std::string> cells(1);
    for (size_t i = 2; i < row.size(); ++i) {
        if (row[i] == '|') {
            cells.emplace_back();
            continue;
        }
        if (row.compare(i, 2, "\\|") == 0) ++i;
        cells.back() += row[i];
    }
    return cells;
}
// What stands between the first backticks of a cell that begins with one.
static std::string code_of(const std::string &cell) {
    const size_t from = cell.find_first_not_of(' ');
    if (from == cell.npos || cell[from] != '`') return "";
    return cell.substr(from + 1, cell.find('`', from + 1) - from - 1);
}

// The tables of docs/kova.md beside numfmt and printf: each command prints what its row says.
TEST_F(KovaFormat, PrintsWhatTheTablesSay) {
    std::istringstream page(slurp(env("KOVA_SOURCE_DIR") + "/docs/kova.md"));
    const bool peers = shell("numfmt --version").status == 0;
    bool inside = false;
    int run = 0;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("## ")) inside = line == "## Beside numfmt and printf";
        if (!inside || !line.starts_with("| ")) continue;
        const std::vector<std::string> cells = cells_of(line);
        const bool both = cells.size() == 4; // print the same; else each has a cell after it
        for (const size_t i : {0u, both ? 1u : 2u}) {
            const std::string tried = code_of(cells[i]), want = code_of(cells[both ? 2 : i + 1]);
            const bool here = tried.find("kova ") != tried.npos;
            if (want.empty() || (!here && !peers)) continue;
            std::string out = shell((here ? "" : "export LC_ALL=C; ") + tried).out;
            if (const size_t end = out.find('\n'); end != out.npos) out.resize(end);
            EXPECT_EQ(out, want) << tried;
            ++run;
        }
    }
    EXPECT_GE(run, peers ? 50 : 25);
}

TEST_F(KovaFormat, ReadsDates) {
    command = "kova parse-date ";
    writes("de_DE.8859-1 '%d. %B %Y %T' '21. März 1999 1:2:3'", "1999-03-21 01:02:03\n");
    writes("ja_JP.EUC-JP '%EY%m月%d日%iF' '平成2年1月8日.5 '", "1990-01-08 00:00:00.500000\n");
    writes("en_US.IBM037 '%b %d' 'May 7' --today 2024-06-15", "2024-05-07 00:00:00\n", "",
           "the text has no year: taken from today, 2024-06-15\n");
    writes("en_US.8859-1 %D 6/15/24 --century F --today 2024-06-15", "2124-06-15 00:00:00\n", "",
           "the year 24 is taken as 2124, by the rule F\n");
    writes("en_US.8859-1 '%y %j' '26 365' --century F --today 2026-11-22", "2026-12-31 00:00:00\n",
           "", "taken as 2026, by the rule F\n");
    writes("de_DE.8859-1 %x 21.11.26 --allow-short-year", "0026-11-21 00:00:00\n");
    writes("en_US.8859-1 %D 2/29/00 --today 'last monday'", "2000-02-29 00:00:00\n", "",
           "the year 00 is taken as 2000, by the rule C\n");
    // Numbers that nothing separates: the one reading that makes a date.
    writes("de_DE.8859-1 %d%m%Y 3122026", "2026-12-03 00:00:00\n");
    writes("de_DE.8859-1 %Y%m%d%H%M 202611220930", "2026-11-22 09:30:00\n");
    writes("de_DE.8859-1 %Y-%m-%dT%H%M 2026-11-22T930", "2026-11-22 09:30:00\n");
    writes("de_DE.8859-1 '%m %Y%d' '001 202607'", "2026-01-07 00:00:00\n");
    // An era year alone, with the locale's one era or with a name.
    writes("th_TH %x 09/09/2542", "1999-09-09 00:00:00\n");
    writes("ja_JP %EY 平成30年 --today 2024-06-15", "2018-06-15 00:00:00\n", "", "no month and no");
    writes("ja_JP %EY%m月%d日 令和1年5月1日 平成02年1月8日",
           "2019-05-01 00:00:00\n1990-01-08 00:00:00\n");
    writes("th_TH %d/%m/%Y 21/11/2569", "2569-11-21 00:00:00\n", "", "; พ.ศ. 2569 is 2026");
    writes("th_TH %x 09/09/2026", "1483-09-09 00:00:00\n", "", "one of the era, which is 1483");
    writes("ar_SA.unicode@islm '%d %m %Y' '1 1 2026'", "2587-03-30 00:00:00\n", "",
           "of the calendar \"islamic\"");
    fails(1, "ja_JP %EY%m月%d日 令和1年4月30日", "the era does not have this year");
    fails(1, "ja_JP %Ey 30", "the year is undecided");
    fails(1, "ja_JP %EY 昭和64年 --today 2024-06-15", "does not have this year on today's month");
    // Names that begin with another name, and digits that do.
    writes("tr_TR.8859-9 '%A %Y%m%d' 'Pazartesi 20261123'", "2026-11-23 00:00:00\n");
    writes("ja_JP %Y%m%d%OH:%OM:%OS 20261123十一:二十三:〇五", "2026-11-23 11:23:05\n");
    writes("en_US '%G-W%V-%u' 2026-W53-5", "2027-01-01 00:00:00\n");
    writes("en_US '%j %Y' '60 2024'", "2024-02-29 00:00:00\n");
    static const char *const refused[][2] = {
        {"%D 2/29/00 --century F",            "no such date in the century that the rule F takes" },
        {"%d%m%Y 1112026",                    "the month is undecided: the text is both 2026-01-1"},
        {"%Y-%m-%dT%H%M%S 2026-11-22T11111",  "the minute is undecided: the text is both 11:11:01"},
        {"%C%y%m%d 5261122",                  "the month is undecided: the text is both 5261-12-0"},
        {"%2d%2m%Y 1112026",                  "the month is undecided"                            },
        {"%d%m%Y 32112026",                   "directive 1, %d, at character 1 of the format: the"},
        {"%d.%m.%Y 21.11.26",                 "the year, 26, has fewer than four digits"          },
        {"'%G-W%V-%u' 26-W50-1",              "the year, 26, has fewer than four digits"          },
        {"%Y-%m-%d 2026-02-30",               "there is no such date: February 2026 has 28 days"  },
        {"'%A %Y-%m-%d' 'Monday 2026-02-28'", "of the week, Monday, contradicts the date, 2026-02"},
        {"'%m %B' '5 June'",                  "the month contradicts the date"                    },
        {"%d%e 1213",                         "the day is given twice"                            },
        {"%F 2026-11-21",                     "%F is the fraction of a second here, and %Y-%m-%d "},
        {"%A Monday",                         "the day is undecided"                              },
        {"%C 20",                             "the year is undecided"                             },
        {"'%I:%M' 7:30",                      "the hour is undecided"                             },
        {"%Y-%m-%d '2026-02-28 x'",           "the format ends before the text, at character 11"  },
        {"'%G-W%V-%u' 2025-W53-1",            "2025 has no week 53"                               },
        {"'%G-W%V' 2025-W50",                 "the day is undecided"                              },
        {"%D 2/30/26",                        "no such date: February 2026 has 28 days"           },
        {"'%j %Y' '366 2025'",                "no such date: the year 2025 has 365 days"          },
        {"%T 12:30:60",                       "a leap second, 60, ends an hour"                   },
        {"%T 12:59:61",                       "no minute has a second 61"                         },
        {"'%H %p' '13 AM'",                   "the half of the day contradicts the time, 13:00:00"},
        {"'%G %V %u %m' '2026 53 5 2'",       "the month contradicts the date, 2027-01-01"        },
        {"%% %",                              "the format reads no part of a date"                },
    };
    for (const auto &row : refused)
        fails(1, std::string("en_US.8859-1 ") + row[0] + " --today 2024-06-15", row[1]);
    fails(1, "ja_JP.EUC-JP '%Y年%d日%H' '1999年32日5'",
          "directive 2, %d, at character 4 of the format: the number is out of range\n  "
          "%Y年%d日%H\n      ^~\nand at character 6 of the text\n  1999年32日5\n        ^\n");
    fails(1, "de_DE.8859-1 '%d %q' '5 5'", "directive 2, %q, at");
    fails(1, "de_DE.8859-1 '%d %z' '5 5'", "kova date writes it, but it is not read");
    fails(2, "de_DE.8859-1 '%d %' '5 5'", "directive 2, %, at");
    fails(2, "de_DE.8859-1 %d 5 --today 1.2.2024", "--today \"1.2.2024\" is not a date");
    fails(2, "de_DE.8859-1 %d 5 --today 2024-2-01", "--today \"2024-2-01\" is not a date");
    environment["TZ"] = "No/Where";
    fails(3, "de_DE.8859-1 %d 5", "TZ, No/Where, names no time zone");
    environment["TZ"] = "<-0330>+3:30NDT,M3.2.0,J300/-2:30";
    writes("de_DE.8859-1 %Y%j 2026001", "2026-01-01 00:00:00\n");
    fails(2, "de_DE.8859-1 %d 5 --century X", "--century");
}
