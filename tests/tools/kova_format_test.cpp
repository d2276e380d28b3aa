// The commands that take formats, run as people run them: what they write, and how they point at
// the directive that fails.
#include "tools/command_run.h"

using KovaFormat = data_test;

TEST_F(KovaFormat, WritesAndReadsMoney) {
    static const command_row rows[] = {
        {"money de_DE.unicode %n 1234567.891 -5",                        "1.234.567,89 €\n-5,00 €\n",            0},
        {"money en_US.8859-1 '%i is %(n' 1 -2 3 4",                      "USD 1.00 is ($2.00)\nUSD 3.00 is $4.00\n", 0},
        {"money en_US.IBM037 --bytes \"$(printf '\\154\\225')\" 9",      "\x5B\xF9\x4B\xF0\xF0\n",                   0},
        {"money ja_JP.EUC-JP 合計%n 1234.5",                           "合計￥1,235\n",                         0},
        {"money en_US.8859-1 100%%",                                     "100%\n",                                   0},
        {"money da_DK.8859-1 '%n + %n' --parse 'kr. -1.234,50 + kr. 7'", "-1234.5\n7\n",                             0},
        {"money ja_JP.EUC-JP 合計%n、%= 1",
         "directive 2, %=, at character 6 of the format: a directive is % with flags, width, "
         "#digits, .digits and n or i\n  合計%n、%=\n          ^~\n",                                             2},
        {"money da_DK.8859-1 %n --parse 'EUR 1'",                        "directive 1, %n, at character 1 of",       1},
        {"money en_US.8859-1 '%n %n' 1 2 3",                             "FORMAT takes a VALUE for each directive",  2},
        {"money en_US.8859-1 text 1",                                    "FORMAT has no directive",                  2},
        {"money en_US.8859-1 %n 1,5",                                    "VALUE 1, 1,5, is not a number",            2},
        {"money en_US.8859-1 %n 1e999",                                  "VALUE 1, 1e999, is out of range",          2},
        {"money en_US.8859-1 %n%n%n%n%n%n%n%n%n%n%n%n%n%n%n%n%n 1",      "FORMAT has more than",                     2},
    };
    check(rows);
}

// What lasts from directive to directive lasts here as well.
TEST_F(KovaFormat, WritesAndReadsNumbers) {
    static const command_row rows[] = {
        {"number de_DE.unicode \"%'.2f kr|%5x|%s\" 1234.5 255 é€ 2 3 x",
         "1.234,50 kr|   ff|é€\n2,00 kr|    3|x\n",                                                                             0},
        {"number en_US.8859-1 '%d %u %X %x %05d %-3d|' -1 2 171 171 7 8",
         "-1 -2 -AB -AB -0007 -08|\n",                                                                                             0},
        {"number en_US.IBM037 \"%'d%%%c\" 1234567 é",                             "1,234,567%é\n",                               0},
        {"number fr_FR.8859-1 \"%'.2f\" -1234567.5",                               "-1 234 567,50\n",                            0},
        {"number ru_RU.KOI8-R \"%'d\" 1234567",                                    "1 234 567\n",                                0},
        {"number el_GR.8859-7 \"%'.1f\" 1234.5",                                   "1234,5\n",                                     0},
        {"number en_US.8859-1 a%%b",                                               "a%b\n",                                        0},
        {"number ja_JP.EUC-JP \"合計%'d、%lld\" 1 2",
         "directive 2, %lld, at character 7 of the format: a directive is % with flags, "
         "width, .digits, l or h, then one of d i u o q b x X c s e E f g G\n  合計%'d、%lld\n"
         "           ^~~~\n",                                                                                                      2},
        {"number en_US.8859-1 '%d %' 1 2",                                         "directive 2, %, at character 4 of the format", 2},
        {"number en_US.8859-1 %d 2147483648",                                      "VALUE 1, 2147483648, is not within",           2},
        {"number en_US.8859-1 %hd 40000",                                          "VALUE 1, 40000, is not within -32768 and",     2},
        {"number en_US.8859-1 %u -- -1",                                           "VALUE 1, -1, is not within 0 and 4294967295",  2},
        {"number en_US.8859-1 %d 1.5",                                             "VALUE 1, 1.5, is not a whole number",          2},
        {"number en_US.8859-1 %c ''",                                              "directive 1, %c, at character 1",              2},
        {"number de_DE.8859-1 \"%'f\" --parse 1.234,5",                            "1234.5\n",                                     0},
        {"number en_US.8859-1 '%*d %u %lc%c %ls' --parse '5 4294967295 é é bc'",
         "4294967295\né\né\nbc\n",                                                                                               0},
        {"number en_US.8859-1 %d:%d --parse '1;2'",
         ":, at character 3 of the format: the text does not match\n  %d:%d\n    ^\n",                                             1},
        {"number en_US.8859-1 '%d %z' --parse '1 2'",                              "directive 2, %z, at character 4",              2},
        {"number en_US.8859-1 \"%'d\" --parse 1,23",                               "directive 1, %'d, at character 1",             1},
    };
    check(rows);
}

TEST_F(KovaFormat, ReadsDates) {
    static const command_row rows[] = {
        {"parse-date de_DE.8859-1 '%d. %B %Y %T' '21. März 1999 1:2:3'",       "1999-03-21 01:02:03\n",
         0                                                                                                           },
        {"parse-date ja_JP.EUC-JP '%EY%m月%d日%iF' '平成2年1月8日.5 x'",
         "1990-01-08 00:00:00.500000\nnot read:  x\n",                                                              0},
        {"parse-date en_US.IBM037 '%b %d' 'May 7' --today 2024-06-15",          "2024-05-07 00:00:00\n",            0},
        {"parse-date en_US.8859-1 %D 6/15/24 --century F --today 2024-06-15",
         "2124-06-15 00:00:00\n",                                                                                   0},
        {"parse-date en_US.8859-1 %D 2/29/00 --today 2024-06-15",
         "2/29/00: there is no such date: the number is out of range (error 27)\n",                                 1},
        {"parse-date ja_JP.EUC-JP '%Y年%d日%H' '1999年32日5'",
         "directive 2, %d, at character 4 of the format: the number is out of range\n  "
         "%Y年%d日%H\n      ^~\nand at character 6 of the text\n  1999年32日5\n        ^\n",                    1},
        {"parse-date de_DE.8859-1 '%d %q' '5 5'",                               "directive 2, %q, at",              1},
        {"parse-date de_DE.8859-1 '%d %' '5 5'",                                "directive 2, %, at",               2},
        {"parse-date de_DE.8859-1 %d 5 --today 1.2.2024",                       "--today, 1.2.2024, is not a date", 2},
        {"parse-date de_DE.8859-1 %d 5 --century X",                            "--century",                        2},
    };
    check(rows);
}
