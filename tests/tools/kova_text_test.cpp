// The commands below kova text, kova locale and kova locales: beside the system's programs where
// these do the same, and by rows of their own where they do more.
#include "tools/command_run.h"

using namespace std::string_literals;

using KovaText = data_test;

namespace {

const char plain[] = "a\tbcd  efgh i\n\n\tTabs  and\t blanks here \t x\n  0123456789012345678901\n"
                     "one, two,three ,,five\nlast        line\tx  y";
const char words[] = "a bcd e\nxx  y\tzz\n", cells[] = "a,bb,ccc\nddd,e,ff\n,x,y\n";
const char prose[] = "  aa bb cc dd ee ff\n  gg\n\nab cd\n";

// What docs/kova.md says that two programs do alike.
constexpr struct {
    const char *theirs, *ours, *in;
} peer_rows[] = {
    {"fold",                              "text fold en_US",                             plain},
    {"fold -w 10",                        "text fold en_US -w 10",                       plain},
    {"fold -s -w 12",                     "text fold en_US -s -w 12",                    plain},
    {"expand",                            "text expand en_US",                           plain},
    {"expand -t 3",                       "text expand en_US -t 3",                      plain},
    {"expand -t 2,9,12",                  "text expand en_US -t 2,9,12",                 plain},
    {"expand -t 2,+5",                    "text expand en_US -t 2,+5",                   plain},
    {"expand -t 2,/5",                    "text expand en_US -t 2,/5",                   plain},
    {"expand -i",                         "text expand en_US -i",                        plain},
    {"unexpand",                          "text unexpand en_US",                         plain},
    {"unexpand -a",                       "text unexpand en_US -a",                      plain},
    {"unexpand -t 4",                     "text unexpand en_US -t 4",                    plain},
    {"unexpand -t 2,7",                   "text unexpand en_US -t 2,7",                  plain},
    {"unexpand --first-only -t 2",        "text unexpand en_US --first-only -t 2",       plain},
    {"fmt -w 40",                         "text wrap en_US -w 40",                       prose},
    {"fmt -u -w 40",                      "text wrap en_US -u -w 40",                    words},
    {"column -t",                         "text table en_US",                            words},
    {"column -t -s, -R2",                 "text table en_US -s , -R 2",                  cells},
    {"column -t -s, -o' | ' -R1,3",       "text table en_US -s , --between ' | ' -R1,3", cells},
    {"LC_ALL=C locale d_fmt day",         "locale POSIX d_fmt day",                      ""   },
    {"LC_ALL=C locale -k mon yesexpr",    "locale POSIX -k mon yesexpr",                 ""   },
    {"LC_ALL=C locale -ck decimal_point", "locale POSIX -ck decimal_point",              ""   },
    {"LC_ALL=C locale -k p_sign_posn",    "locale POSIX -k p_sign_posn",                 ""   },
};

// By display width; marks, flags and families stay together.
constexpr struct {
    const char *args, *in, *out;
} width_rows[] = {
    {"fold th_TH -w 2",                    "สวัสดี",                        "สวั\nสดี"                },
    {"fold th_TH.TIS-620 -w 2",            "สวัสดี",                        "สวั\nสดี"                },
    {"fold he_IL@hebr -w 3",               "שָׁלוֹם\n",                          "שָׁלוֹ\nם\n"                  },
    {"fold de_DE -w 5",                    "漢👩‍👧é🇩🇪x🇫🇷🇩🇪",
     "漢\n👩‍👧é\n🇩🇪x🇫🇷\n🇩🇪"                                                                        },
    {"fold de_DE -w 3",                    "👍🏽👍🏽",                          "👍🏽\n👍🏽"                  },
    {"fold ja_JP.EUC-JP -w 5",             "漢字かｱ",                              "漢字\nかｱ"                      },
    {"fold ja_JP -s -w 8",                 "漢字　かなab cd",                      "漢字　\nかなab \ncd"            },
    {"fold de_DE -s -w 6",                 "ab c\u00A0d\u202Fef",                       "ab \nc\u00A0d\u202Fef"               },
    {"fold de_DE -w 3",                    "abcd\r\nab\r\n",                            "abc\r\nd\r\nab\r\n"                  },
    {"expand th_TH",                       "สวัสดี\tx\n",                   "สวัสดี    x\n"           },
    {"unexpand de_DE -a",                  "漢字    x\n",                             "漢字\tx\n"                         },
    {"wrap ja_JP -w 10",                   "「猫」である、\n名前。",          "「猫」であ\nる、名前。\n"  },
    {"wrap ja_JP -i -w 8",                 "　ab漢\n字\n　か\n",                   "　ab漢字\n　か\n"               },
    {"wrap ko_KR.EUC-KR --utf8 -w 9",      "가나 다\n라 마\n",                     "가나 다\n라 마\n"               },
    {"wrap de_DE -w 4",                    "a\u0308bcdefg\r\nh",                        "a\u0308bcd\r\nefg\r\nh\r\n"          },
    {"wrap de_DE -w 6",                    "          ab cd\n",                         "   ab\n   cd\n"                      },
    {"wrap de_DE -w 7",                    "a  b\tc d e\n\n\n x",                       "a  b c\nd e\n\n\n x\n"               },
    {"wrap th_TH -w 3",                    "ab\u200Bcd\n",                              "ab\u200B\ncd\n"                      },
    {"wrap de_DE -s -w 5",                 "aa bb cc\ndd\n",                            "aa bb\ncc\ndd\n"                     },
    {"table th_TH -R 2",                   "สวัสดี 1\n😀 22\n",           "สวัสดี   1\n😀    22\n"},
    {"table de_DE -s '\\t' -R 1-",         "漢\tb\r\n\r\nc\tdd",                       "漢   b\r\n\r\n c  dd\n"             },
    {"table de_DE -s ';' --between '│'", "a;;b\nc;d;e;f\n",                           "a│ │b\nc│d│e│f\n"          },
    {"table de_DE -s ,",                   "a\tb,c\nd,e\n",                             "a       b  c\nd          e\n"        },
};

} // namespace

TEST_F(KovaText, DoesWhatTheSystemsProgramsDo) {
    int compared = 0;
    for (const auto &row : peer_rows) {
        const outcome peer = shell(row.theirs, row.in);
        if (peer.status == 127) continue;
        writes(row.ours, peer.out, row.in);
        ++compared;
    }
    EXPECT_GE(compared, 20);
}

TEST_F(KovaText, GoesByDisplayWidth) {
    command = "kova text ";
    for (const auto &row : width_rows)
        writes(row.args, row.out, row.in);
    writes("fold en_US.IBM037 --bytes -w 2", "\x81\x82\x25\x83\x25", "\x81\x82\x83\x25");
    writes("expand en_US.IBM037 --bytes -t 2", "\x81\x40\x81", "\x81\x05\x81");
}

TEST_F(KovaText, WritesNothingForBadText) {
    command = "kova text ";
    spit(dir / "kept", "kept\n");
    for (const std::string name : {"fold", "wrap", "expand", "unexpand", "table"}) {
        fails(1, name + " de_DE -o kept", "standard input:2: byte offset 4: ", "ok\na\xFF\n");
        fails(1, name + " de_DE.8859-1 --utf8 -o kept", "no character U+20AC", "€");
        EXPECT_EQ(slurp(dir / "kept"), "kept\n");
        writes(name + " de_DE --replace", "\na\uFFFD\n", "\na\xFF\n",
               "kova: 1 bad character replaced, the first at standard input:2: byte offset 2\n");
        writes(name + " de_DE.8859-1 --utf8 --replace -o out; cat out", "?\n", "€\n", "replaced");
    }
    writes("fold de_DE -w 3 -o kept kept", "");
    EXPECT_EQ(slurp(dir / "kept"), "kep\nt\n");
    fails(2, "fold de_DE -w 0", "not in range");
    for (const std::string stops : {"4,2", "0", "4,", "/2,8", "x", "9999999999999999999999"})
        fails(2, "expand de_DE -t " + stops, "--tabs " + stops);
    for (const std::string list : {"0", "2-1", "1,,2", "10001", "x", "1-2-3"})
        fails(2, "table de_DE -R " + list, "--right " + list);
}

// Lines, words and marks that are longer than any block.
TEST_F(KovaText, TakesLinesOfAnyLengthInBoundedMemory) {
#ifdef KOVA_SANITIZED
    const int lines = 24000;
    const std::string room;
#else
    const int lines = 240000;
    const std::string room = "ulimit -v 23000; "; // the text has more
#endif
    const auto wrote = [](int newlines, int bytes) {
        return std::to_string(newlines) + " " + std::to_string(newlines + bytes) + "\n";
    };
    const int all = lines * 100;
    const std::string x = "head -c " + std::to_string(all) + " /dev/zero | tr '\\0' ",
                      fold = " | kova text fold de_DE ", wrap = " | kova text wrap de_DE ",
                      count = " | wc -lc | tr -s ' ' | sed 's/^ //'";
    command = room;
    writes(x + "x" + fold + "-w 100" + count, wrote(lines - 1, all));
    writes(x + "' '" + fold + "-s -w 100" + count, wrote(lines - 1, all));
    writes(x + "'\\r'" + fold + "-s" + count, wrote(0, all));
    writes(x + "x" + wrap + "-w 100" + count, wrote(lines, all));
    writes("(" + x + "' '; echo x) | kova text unexpand de_DE" + count, wrote(1, all / 8 + 1));
    std::string marks = "a";
    for (int i = 0; i < 300000; ++i)
        marks += "\u0301";
    command = "kova text ";
    for (const std::string name : {"fold", "fold -s", "wrap", "expand", "unexpand", "table"})
        writes(name + " -o out de_DE; tr -d '\\n' < out", marks, marks);
}

TEST_F(KovaText, ShowsLocalesByName) {
    command = "kova locale ";
    writes("de_DE.8859-1 -ck d_fmt MON_3 decimal_point thousands_sep",
           "LC_TIME\nd_fmt=\"%d.%m.%Y\"\nMON_3=\"März\"\nLC_NUMERIC\ndecimal_point=\",\"\n"
           "thousands_sep=\".\"\n");
    writes("ja_JP.EUC-JP -k abday", "abday=\"日;月;火;水;木;金;土\"\n");
    writes(
        "de_DE --json frac_digits day d_fmt | tr -d ' \\n'",
        "{\"locale\":\"de_DE.unicode\",\"LC_MONETARY\":{\"frac_digits\":2},\"LC_TIME\":{\"day\":["
        "\"Sonntag\",\"Montag\",\"Dienstag\",\"Mittwoch\",\"Donnerstag\",\"Freitag\",\"Samstag\"]"
        ",\"d_fmt\":\"%d.%m.%Y\"}}");
    shows("de_DE", "LC_MONETARY\nint_curr_symbol=\"EUR \"\n");
    for (const std::string name : {"LC_PAPER", "postal_fmt", "tel_int_fmt", "measurement"})
        fails(2, "de_DE " + name, "not held by compiled locales");
    fails(2, "de_DE klingon", "no category or keyword \"klingon\"");
    static constexpr struct {
        const char *locale, *answer, *means;
        int status;
    } answers[] = {
        {"fr_FR",        "oui",                   "yes\n",     0},
        {"fr_FR",        "Non",                   "no\n",      1},
        {"fr_FR",        "peut",                  "neither\n", 2},
        {"fr_FR",        "''",                    "neither\n", 2},
        {"ja_JP.EUC-JP", "はい",                "yes\n",     0},
        {"ja_JP",        "いいえ",             "no\n",      1},
        {"ja_JP",        "ーはい",             "neither\n", 2},
        {"ru_RU.KOI8-R", "да",                  "yes\n",     0},
        {"en_US.IBM037", "no",                    "no\n",      1},
        {"de_DE.8859-1", "€",                   "",          2},
        {"de_DE",        "\"$(printf '\\377')\"", "",          2},
    };
    for (const auto &row : answers) {
        const outcome got = shell("kova locale --utf8 "s + row.locale + " --yes " + row.answer);
        EXPECT_EQ(got.out, row.means) << row.locale << row.answer << got.err;
        EXPECT_EQ(got.status, row.status) << row.locale << row.answer;
    }
}

TEST_F(KovaText, ListsLocalesThatFit) {
    command = "kova locales ";
    const std::string names = " | tail -n +3 | cut -d ' ' -f 1";
    writes("'DE_*'" + names, "de_DE.ISO-8859-1\nde_DE.unicode\n");
    writes("de_DE ?s_ES" + names, "de_DE.ISO-8859-1\nde_DE.unicode\nes_ES.ISO-8859-1\n");
    writes("'*@hebr' --code-set utf-8" + names, "he_IL.unicode@hebr\n");
    writes("--language ru --code-set koi8-r" + names, "ru_RU.KOI8-R\n");
    shows("--json --language th", "{\"locale\": \"th_TH.unicode\", \"code_set\": \"unicode\", ");
    fails(3, "de_D", "no locale that is compiled here fits");
    fails(3, "--code-set klingon", "no code set is called \"klingon\"");
}
