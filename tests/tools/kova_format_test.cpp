// The commands that take formats, run as people run them: what they write, and how they point at
// the directive that fails.
#include "tools/command_run.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>

// Runs "kova ARGS" as the shell reads it; both outputs in one.
static outcome kova(const std::string &args) {
    const std::string line = "LC_ALL=C.UTF-8 VANTORDIR=" + env("KOVA_TEST_ROOT") + " " +
                             env("KOVA_BIN_DIR") + "/kova " + args + " 2>&1";
    outcome result;
    FILE *pipe = popen(line.c_str(), "r");
    for (int c; pipe && (c = getc(pipe)) != EOF;)
        result.out += static_cast<char>(c);
    const int status = pipe ? pclose(pipe) : -1;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

struct format_row {
    const char *args;
    int status;
    const char *out; // how the output begins
};

static void expect_rows(const format_row *rows, size_t count) {
    if (!std::filesystem::is_directory(env("KOVA_TEST_ROOT") + "/kova/lc11")) GTEST_SKIP();
    for (size_t i = 0; i < count; ++i) {
        SCOPED_TRACE(rows[i].args);
        const outcome got = kova(rows[i].args);
        const std::string want = rows[i].out;
        EXPECT_EQ(got.status, rows[i].status);
        EXPECT_EQ(got.out.substr(0, want.size()), want);
    }
}

TEST(KovaFormat, WritesAndReadsMoney) {
    static const format_row rows[] = {
        {"money de_DE.unicode %n 1234567.891 -5",                        0, "1.234.567,89 €\n-5,00 €\n"                },
        {"money en_US.8859-1 '%i is %(n' 1 -2 3 4",                      0, "USD 1.00 is ($2.00)\nUSD 3.00 is $4.00\n"     },
        {"money en_US.IBM037 '%(#6n|' 99.5 -1234.5",                     0, " $     99.50 |\n($  1,234.50)|\n"             },
        {"money en_US.IBM037 --bytes \"$(printf '\\154\\225')\" 9",      0, "\x5B\xF9\x4B\xF0\xF0\n"                       },
        {"money ja_JP.EUC-JP 合計%n 1234.5",                           0, "合計￥1,235\n"                             },
        {"money en_US.8859-1 100%%",                                     0, "100%\n"                                       },
        {"money da_DK.8859-1 '%n + %n' --parse 'kr. -1.234,50 + kr. 7'", 0, "-1234.5\n7\n"                                 },
        {"money en_US.8859-1 %n --parse 0.1",                            0, "0.1\n"                                        },
        {"money de_DE.8859-1 '%n und %5x' 1 2",                          2,
         "kova: directive 2, %5x, at character 8 of the format: a directive is % with"                                     },
        {"money ja_JP.EUC-JP 合計%n、%= 1",                           2,
         "kova: directive 2, %=, at character 6 of the format: a directive is % with flags, width, "
         "#digits, .digits and n or i\n  合計%n、%=\n          ^~\n"                                                    },
        {"money da_DK.8859-1 '%n x %n' --parse 'kr. 1 y kr. 2'",         1,
         "kova: x, at character 4 of the format: the text does not match\n  %n x %n\n     ^\n"                             },
        {"money da_DK.8859-1 %n --parse 'EUR 1'",                        1, "kova: directive 1, %n, at character 1 of"     },
        {"money en_US.8859-1 '%n %n' 1 2 3",                             2, "kova: FORMAT takes a VALUE for each directive"},
        {"money en_US.8859-1 text 1",                                    2, "kova: FORMAT has no directive"                },
        {"money en_US.8859-1 %n 1,5",                                    2, "kova: VALUE 1, 1,5, is not a number"          },
        {"money en_US.8859-1 %n 1e999",                                  2, "kova: VALUE 1, 1e999, is out of range"        },
        {"money en_US.8859-1 %n%n%n%n%n%n%n%n%n%n%n%n%n%n%n%n%n 1",      2,
         "kova: FORMAT has more than"                                                                                      },
    };
    expect_rows(rows, std::size(rows));
}

// What lasts from directive to directive lasts here as well.
TEST(KovaFormat, WritesAndReadsNumbers) {
    static const format_row rows[] = {
        {"number de_DE.unicode \"%'.2f kr|%5x|%s\" 1234.5 255 é€ 2 3 x",        0,
         "1.234,50 kr|   ff|é€\n2,00 kr|    3|x\n"                                                                                     },
        {"number en_US.8859-1 '%d %u %X %x %05d %-3d|' -1 2 171 171 7 8",          0,
         "-1 -2 -AB -AB -0007 -08|\n"                                                                                                     },
        {"number en_US.8859-1 '%-5d|%05d|%#lc|%x|' 7 8 é 9",                      0, "7    |8    |é|0x9|\n"                             },
        {"number en_US.IBM037 \"%'d%%%c\" 1234567 é",                             0, "1,234,567%é\n"                                    },
        {"number en_US.8859-1 a%%b",                                               0, "a%b\n"                                             },
        {"number ja_JP.EUC-JP \"合計%'d、%lld\" 1 2",                           2,
         "kova: directive 2, %lld, at character 7 of the format: a directive is % with flags, "
         "width, .digits, l or h, then one of d i u o q b x X c s e E f g G\n  合計%'d、%lld\n"
         "           ^~~~\n"                                                                                                              },
        {"number en_US.8859-1 '%d %' 1 2",                                         2, "kova: directive 2, %, at character 4 of the format"},
        {"number en_US.8859-1 '%*d' 1 2",                                          2, "kova: directive 1, %*d, at character 1"            },
        {"number en_US.8859-1 %d 2147483648",                                      2, "kova: VALUE 1, 2147483648, is not within"          },
        {"number en_US.8859-1 %hd 40000",                                          2, "kova: VALUE 1, 40000, is not within -32768 and"    },
        {"number en_US.8859-1 %u -- -1",                                           2, "kova: VALUE 1, -1, is not within 0 and 4294967295" },
        {"number en_US.8859-1 %d 1.5",                                             2, "kova: VALUE 1, 1.5, is not a whole number"         },
        {"number en_US.8859-1 %c ''",                                              2, "kova: directive 1, %c, at character 1"             },
        {"number de_DE.8859-1 \"%'f\" --parse 1.234,5",                            0, "1234.5\n"                                          },
        {"number en_US.8859-1 '%d%% %x %hd %s' --parse '-5% ff -3 rest é'",       0,
         "-5\n255\n-3\nrest é\n"                                                                                                         },
        {"number en_US.8859-1 '%*d %u %lc%c %ls' --parse '5 4294967295 é é bc'", 0,
         "4294967295\né\né\nbc\n"                                                                                                       },
        {"number en_US.8859-1 %d:%d --parse '1;2'",                                1,
         "kova: :, at character 3 of the format: the text does not match\n  %d:%d\n    ^\n"                                               },
        {"number en_US.8859-1 '%d %z' --parse '1 2'",                              2, "kova: directive 2, %z, at character 4"             },
        {"number en_US.8859-1 \"%'d\" --parse 1,23",                               1, "kova: directive 1, %'d, at character 1"            },
    };
    expect_rows(rows, std::size(rows));
}

TEST(KovaFormat, ReadsDates) {
    static const format_row rows[] = {
        {"parse-date de_DE.8859-1 '%d. %B %Y %T' '21. März 1999 1:2:3'",       0,
         "1999-03-21 01:02:03\n"                                                                              },
        {"parse-date ja_JP.EUC-JP '%EY%m月%d日%iF' '平成2年1月8日.5 x'", 0,
         "1990-01-08 00:00:00.500000\nnot read:  x\n"                                                         },
        {"parse-date en_US.IBM037 '%b %d' 'May 7' --today 2024-06-15",          0, "2024-05-07 00:00:00\n"    },
        {"parse-date en_US.8859-1 %D 6/15/24 --century F --today 2024-06-15",   0, "2124-06-15"               },
        {"parse-date en_US.8859-1 %D 2/29/00 --today 2024-06-15",               1,
         "kova: 2/29/00: there is no such date: the number is out of range (error 27)\n"                      },
        {"parse-date ja_JP.EUC-JP '%Y年%d日%H' '1999年32日5'",              1,
         "kova: directive 2, %d, at character 4 of the format: the number is out of range\n  "
         "%Y年%d日%H\n      ^~\nand at character 6 of the text\n  1999年32日5\n        ^\n"               },
        {"parse-date de_DE.8859-1 '%d %q' '5 5'",                               1, "kova: directive 2, %q, at"},
        {"parse-date de_DE.8859-1 '%d %' '5 5'",                                2, "kova: directive 2, %, at" },
        {"parse-date de_DE.8859-1 %d 5 --today 1.2.2024",                       2,
         "kova: --today, 1.2.2024, is not a date"                                                             },
        {"parse-date de_DE.8859-1 %d 5 --century X",                            2, "kova: --century"          },
    };
    expect_rows(rows, std::size(rows));
}
