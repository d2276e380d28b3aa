// The commands that take formats, run as people run them: what they write, and how they point at
// the directive that fails.
#include "tools/command_run.h"

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
    fails(2, "en_US.8859-1 %n 1,5", "VALUE 1, 1,5, is not a number");
    fails(2, "en_US.8859-1 %n 1e999", "VALUE 1, 1e999, is out of range");
    fails(2, "en_US.8859-1 %n%n%n%n%n%n%n%n%n%n%n%n%n%n%n%n%n 1", "FORMAT has more than");
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
    fails(2, "en_US.8859-1 %d 2147483648", "VALUE 1, 2147483648, is not within");
    fails(2, "en_US.8859-1 %hd 40000", "VALUE 1, 40000, is not within -32768 and");
    fails(2, "en_US.8859-1 %u -- -1", "VALUE 1, -1, is not within 0 and 4294967295");
    fails(2, "en_US.8859-1 %d 1.5", "VALUE 1, 1.5, is not a whole number");
    fails(2, "en_US.8859-1 %c ''", "directive 1, %c, at character 1");
    writes("de_DE.8859-1 \"%'f\" --parse 1.234,5", "1234.5\n");
    writes("en_US.8859-1 '%*d %u %lc%c %ls' --parse '5 4294967295 é é bc'",
           "4294967295\né\né\nbc\n");
    fails(1, "en_US.8859-1 %d:%d --parse '1;2'",
          ":, at character 3 of the format: the text does not match\n  %d:%d\n    ^\n");
    fails(2, "en_US.8859-1 '%d %z' --parse '1 2'", "directive 2, %z, at character 4");
    fails(1, "en_US.8859-1 \"%'d\" --parse 1,23", "directive 1, %'d, at character 1");
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
        {"'%G %V %u %m' '2026 53 5 2'",       "the month contradicts the date, 2027-01-01"        },
        {"%% %",                              "the format reads no part of a date"                },
    };
    for (const auto &row : refused)
        fails(1, std::string("en_US.8859-1 ") + row[0] + " --today 2024-06-15", row[1]);
    fails(1, "ja_JP.EUC-JP '%Y年%d日%H' '1999年32日5'",
          "directive 2, %d, at character 4 of the format: the number is out of range\n  "
          "%Y年%d日%H\n      ^~\nand at character 6 of the text\n  1999年32日5\n        ^\n");
    fails(1, "de_DE.8859-1 '%d %q' '5 5'", "directive 2, %q, at");
    fails(2, "de_DE.8859-1 '%d %' '5 5'", "directive 2, %, at");
    fails(2, "de_DE.8859-1 %d 5 --today 1.2.2024", "--today \"1.2.2024\" is not a date");
    fails(2, "de_DE.8859-1 %d 5 --today 2024-2-01", "--today \"2024-2-01\" is not a date");
    environment["TZ"] = "No/Where";
    fails(3, "de_DE.8859-1 %d 5", "TZ, No/Where, names no time zone");
    environment["TZ"] = "<-0330>+3:30NDT,M3.2.0,J300/-2:30";
    writes("de_DE.8859-1 %Y%j 2026001", "2026-01-01 00:00:00\n");
    fails(2, "de_DE.8859-1 %d 5 --century X", "--century");
}
