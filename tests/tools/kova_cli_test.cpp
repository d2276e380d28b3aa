// The command kova, run as people run it: what it prints, its exit statuses, its one line for
// everything that goes wrong.
#include "kova/kova_locale.h"
#include "kova/kova_sort_runs.h"

#include "tools/command_run.h"

#include <algorithm>
#include <random>
#include <sstream>

namespace fs = std::filesystem;
using namespace std::string_literals;

struct KovaCli : data_test {
    // Writes a file and gives its path.
    std::string file(const std::string &name, const std::string &contents) {
        spit(dir / name, contents);
        return (dir / name).string();
    }
};

TEST_F(KovaCli, SortsOneListDifferentlyUnderEachLocale) {
    static const command_row rows[] = {
        {"de_DE.8859-1",     "apfel\nÄpfel\nÖl\nOma\nZebra\n",  0, "Zebra\nÖl\nOma\nÄpfel\napfel\n" },
        {"sv_SE.ISO-8859-1", "Apa\nZebra\nÅl\nÄpple\nÖl\n",    0, "Öl\nÄpple\nÅl\nZebra\nApa\n"   },
        {"cs_CZ.8859-2",     "cihla\nčas\nhora\nchata\nihned\n", 0, "ihned\nchata\nhora\ncihla\nčas\n"},
        {"sv_SE.unicode",    "Zebra\nÅl\nÖl\nΩ\nя\n",         0, "Öl\nZebra\nΩ\nÅl\nя\n"        },
        {"POSIX",            "B\na\nb\n",                         0, "b\nB\na\n"                        },
    };
    check(rows, "kova sort -l ");
}

TEST_F(KovaCli, SortsByFieldsStablyReversedAndUnique) {
    const std::string people = "b;Öl;1\na;Oma;2\nc;Öl;3\nd;oma;4\n";
    const command_row rows[] = {
        {"-t ';' -k 2,2 | cut -c 1",         "b\nc\nd\na\n",           0, people                  },
        {"-t ';' -k 2,2 -r | cut -c 1",      "a\nd\nc\nb\n",           0, people                  },
        {"-t ';' -k 2,2 -rs | cut -c 1",     "a\nd\nb\nc\n",           0, people                  },
        {"-t ';' -k 2,2r -k 3n | cut -c 1",  "a\nd\nb\nc\n",           0, people                  },
        {"-t ';' -k 2.2,2 | cut -c 1",       "b\nc\na\nd\n",           0, people                  },
        {"-f -t ';' -k 2,2 -su | cut -c 1",  "b\na\n",                 0, people                  },
        {"-t ';' -k 2,2 -u | cut -c 1",      "b\nd\na\n",              0, people                  },
        {"-t ';' -k 2,2 -k 3 -r | cut -c 1", "a\nd\nc\nb\n",           0, people                  },
        {"-t ';' -k 7 | cut -c 1",           "a\nb\nc\nd\n",           0, people                  },
        {"-t ';' -k 7 -s | cut -c 1",        "b\na\nc\nd\n",           0, people                  },
        {"| cut -c 1",                       "a\nb\nc\nd\n",           0, people                  },
        {"-k 2",                             "z \t a\n x  b\n\ta c\n", 0, " x  b\n\ta c\nz \t a\n"},
    };
    check(rows, "kova sort -l de_DE.8859-1 ");
}

TEST_F(KovaCli, SortsAsPeopleKnowSort) {
    file("b", "a\nc\n");
    static const command_row rows[] = {
        {"-n",              "-5\n-0,5\n0\nx\n999\n1.000,5\n", 0, "999\nx\n-0,5\n1.000,5\n-5\n0\n"},
        {"-nr",             "20\n3\n-1\n-10\n",               0, "3\n-10\n20\n-1\n"              },
        {"-k 1.2n",         "c 7\nb 10\na 11\n",              0, "a 11\nc 7\nb 10\n"             },
        {"-k 2bn",          "c  7\nb 10\na 011\n",            0, "a 011\nc  7\nb 10\n"           },
        {"-V",              "a9\nA9\na10\na10b\n",            0, "a10b\na10\nA9\na9\n"           },
        {"-d",              "a-b\na.c\n(d\n",                 0, "(d\na.c\na-b\n"                },
        {"-bn -k 1.2",      "b 1\na 2\n",                     0, "a 2\nb 1\n"                    },
        {"-fs",             "B\nb\nB\nÖ\n",                  0, "Ö\nB\nb\nB\n"                 },
        {"-z | tr '\\0' ,", "a,b\nc,",                        0, "b\nc\0a\0"s                    },
        {"-k 1.2,1.2 -s",   "😀a😀\n😀bé\n",           0, "😀bé\n😀a😀\n"          },
        {"-m - b",          "a\nb\nc\nd\n",                   0, "b\nd\n"                        },
        {"-mu - b",         "a\nc\nd\n",                      0, "a\nd"                          },
        {"-c",              "",                               0, "a\na\nb\n"                     },
    };
    check(rows, "kova sort -l de_DE ");
    file("w", "b\na\na\n");
    static const command_row refused[] = {
        {"-c w",           "w:2: disorder: a",     1},
        {"--check w",      "w:2: disorder: a",     1},
        {"-cu b b",        "one file",             2},
        {"--check=x b",    "write quiet, silent",  2},
        {"-c -o x b",      "--output",             2},
        {"-k 1nV b",       "numbers and versions", 2},
        {"-k 1x b",        "unknown letter",       2},
        {"-k 2.0 b",       "character 0",          2},
        {"--parallel 0 b", "from 1 to 64",         2},
        {"-S 9X b",        "is not a size",        2},
    };
    check(refused, "kova sort -l de_DE ");
    const outcome unique = kova("sort -l de_DE -cu", "a\nb\nb\n"),
                  quiet = kova("sort -l de_DE -C w");
    EXPECT_EQ(unique.err, "kova: standard input:3: disorder: b\n");
    EXPECT_EQ(quiet.status, 1);
    EXPECT_EQ(quiet.err, "");
}

// Many levels of runs, and runs sorted by several threads, against the standard library.
TEST(KovaSortRuns, DeliversWhatAStableSortDelivers) {
    using kovacli::tie_order;
    std::mt19937 random(11);
    static const struct {
        tie_order ties;
        uint64_t budget;
        unsigned threads;
    } rows[] = {
        {tie_order::as_read,           512,      1},
        {tie_order::by_bytes_reversed, 512,      2},
        {tie_order::as_read,           64 << 20, 3},
        {tie_order::by_bytes,          64 << 20, 3},
    };
    for (const auto &row : rows) {
        kovacli::sorter all;
        all.budget = row.budget;
        all.ties = row.ties;
        all.threads = row.threads;
        all.line_end = 0;
        std::vector<std::pair<std::string, std::string>> want;
        for (int i = 0; i < 30000; ++i) {
            std::string key(random() % 12, '\0');
            for (char &c : key)
                c = "\0\1a\377"[random() % 4];
            want.emplace_back(key, std::to_string(i));
            add_record(all, key, want.back().second);
        }
        const auto less = [&](const auto &a, const auto &b) {
            const int by_key = a.first.compare(b.first);
            return (by_key ? by_key : compare_tied(row.ties, a.second, b.second)) < 0;
        };
        std::stable_sort(want.begin(), want.end(), less);
        EXPECT_LT(all.runs.size(), 100u);
        size_t at = 0;
        deliver(all, [&](std::string_view line) { EXPECT_EQ(line, want.at(at++).second); });
        EXPECT_EQ(at, want.size());
    }
}

TEST_F(KovaCli, KeepsLinesAsTheyAre) {
    const std::string longer_than_a_block(700000, 'a');
    const command_row rows[] = {
        {"", "",                            0, ""                         },
        {"", "\n",                          0, "\n"                       },
        {"", "a\nb\n",                      0, "b\na"                     },
        {"", "a\r\nb\r\n",                  0, "b\r\na\r\n"               },
        {"", "a\na\0b\nab\n"s,              0, "ab\na\0b\na\n"s           },
        {"", "a\nb\n",                      0, "\uFEFFb\na\n"             },
        {"", longer_than_a_block + "\nb\n", 0, "b\n" + longer_than_a_block},
    };
    check(rows, "kova sort -l en_US.8859-1");
}

TEST_F(KovaCli, StopsAtABadCharacterWithItsPlaceUnlessToldToGoOn) {
    file("w", "b\nxy\xFFz\na\n");
    static const command_row rows[] = {
        {"sort -l de_DE.unicode w",                   "w:2: byte offset 4: ",                     1, "",                  ""    },
        {"sort -l de_DE.8859-1",                      "ISO-8859-1 has no character U+20AC (€)", 1, "a\n\xE2\x82\xAC\n",
         ""                                                                                                                     },
        {"sort -l ja_JP.EUC-JP --bytes",              "standard input:1: byte offset 1: ",        1, "a\xB0\n",           ""    },
        {"upper de_DE.8859-1 ab€",                  "TEXT: byte offset 2: ",                    1, "",                  ""    },
        {"width de_DE.8859-1",                        "standard input:2: byte offset 3: ",        1, "a\nb€\n",         "1\n" },
        {"trim de_DE.8859-1",                         "standard input:2: byte offset 3: ",        1, "a\nb€\n",         "a\nb"},
        {"count de_DE.8859-1",                        "standard input:2: byte offset 3: ",        1, "a\nb€\n",         ""    },
        {"lower de_DE.8859-1 --replace 2> /dev/null", "a\xFF€ä\n",                             0, "A\xFF€Ä\n",      ""    },
    };
    check(rows);
    const outcome got = kova("sort -l de_DE.unicode --replace w");
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.out, "a\nb\nxy\xFFz\n");
    EXPECT_NE(got.err.find("1 bad character was"), std::string::npos) << got.err;
}

TEST_F(KovaCli, ReplacesItsOutputInOneStepOrNotAtAll) {
    const std::string path = file("w", "b\na\n");
    fs::create_hard_link(path, dir / "other");
    const outcome linked = kova("sort -l POSIX -o w w");
    EXPECT_EQ(linked.status, 0);
    EXPECT_NE(linked.err.find("w had other names"), std::string::npos) << linked.err;
    EXPECT_EQ(slurp(path) + slurp(dir / "other"), "a\nb\nb\na\n");
    EXPECT_EQ(kova("sort -l POSIX -o w w").err, "");
    file("bad", "b\n\xFF\n");
    static const command_row rows[] = {
        {"sort -l POSIX -o w bad",     "bad:2",                                       1},
        {"trim de_DE.8859-1 -o w bad", "bad:2",                                       1},
        {"sort -l POSIX no/file",      "cannot read no/file",                         4},
        {"sort -l POSIX .",            "cannot read .",                               4},
        {"sort -l POSIX -o no/file",   "cannot write no/file",                        4},
        {"upper POSIX a > /dev/full",  "cannot write standard output: No space left", 4},
        {"--help > /dev/full",         "standard output: No space",                   4},
    };
    check(rows);
    static const command_row crowded[] = {
        {"--temporary-directory no/file", "temporary file", 4, std::string(200000, '\n')}
    };
    check(crowded, "kova sort -l POSIX --buffer-size 64K ");
    EXPECT_EQ(slurp(path), "a\nb\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), {}), 6); // no leftovers beside it
}

TEST_F(KovaCli, RefusesPathsAndShowsNoControls) {
    static const command_row rows[] = {
        {"kova info ../../etc/passwd",                                                    "cannot be a path",          3},
        {"LC_ALL=de_DE./etc/passwd kova sort",                                            "cannot be a path",          3},
        {"kova convert -f ../a -t utf8",                                                  "cannot be a path",          3},
        {"kova chart /etc/passwd",                                                        "cannot be a path",          3},
        {"kova symbols ../../etc/passwd",                                                 "cannot be a path",          3},
        {"kova info \"$(printf 'x\\033[31m\\342\\200\\256')\"",                           "\"x\\x1b[31m\\u202e\"",     3},
        {"kova count POSIX \"$(printf 'a\\nkova: b\\302\\233')\"",                        "a\\x0akova: b\\u009b: ",    4},
        {"kovac --help > /dev/full",                                                      "standard output: No space", 3},
        {"kovac locale -i \"$(printf 'a\\033')\" -f x -o root",                           "\"a\\x1b\"",                3},
        {"kovac locale -i POSIX -f ANSI_X3.4-1968 --default --prove -o root > /dev/full",
         "standard output: No space",                                                                                  3},
    };
    check(rows, "");
    // A reader that goes away is no failure.
    const outcome quiet = shell("kova sort -l POSIX | head -n 1", std::string(2000000, '\n'));
    EXPECT_EQ(quiet.out + quiet.err, "\n");
}

// Names of a registry and of an object, with an escape character in them.
TEST_F(KovaCli, SpellsControlsOfData) {
    const fs::path copy = dir / "root";
    fs::create_directories(copy / "kova/lc11/de_de");
    fs::create_directories(copy / "kova/cv9");
    fs::copy(root + "/kova/cm3", copy / "kova/cm3", fs::copy_options::recursive);
    std::ofstream(copy / "kova/cm3/registry", std::ios::app) << "\na\x1b"
                                                                "b 65000\n";
    spit(copy / "kova/cv9/fde80333.cvo", "");
    std::string object = slurp(root + "/kova/lc11/de_de/0333.lco");
    const std::string sunday = "\n2 536f\n"; // "So"
    ASSERT_NE(object.find(sunday), object.npos);
    spit(copy / "kova/lc11/de_de/0333.lco",
         object.replace(object.find(sunday), sunday.size(), "\n2 1b6f\n"));
    environment["VANTORDIR"] = copy.string();
    for (const char *line :
         {"kova convert --list", "kova info de_DE ABDAY_1", "kova info --all de_DE",
          "kova cal de_DE 3 2024", "script -qec 'kova date de_DE %a --at 2026-11-22' /dev/null"}) {
        const outcome got = shell(line);
        EXPECT_EQ(got.out.find('\x1b'), got.out.npos) << line;
        EXPECT_NE(got.out.find("\\x1b"), got.out.npos) << line << got.out << got.err;
    }
}

#ifndef __SANITIZE_ADDRESS__ // which takes terabytes of address space
TEST_F(KovaCli, TellsThatMemoryIsExhausted) {
    fs::create_directories(dir / "kova/lc11/de_de");
    fs::create_directory_symlink(root + "/kova/cm3", dir / "kova/cm3");
    std::string object = slurp(root + "/kova/lc11/de_de/0333.lco");
    const size_t answer = object.find("\n", object.find("### LC_MESSAGES")) + 1;
    object.replace(answer, object.find('\n', answer) - answer,
                   "9999999 " + std::string(2 * 9999999, '4'));
    spit(dir / "kova/lc11/de_de/0333.lco", object);
    static const command_row rows[] = {
        {"ulimit -v 32000; VANTORDIR=. kova info de_DE",                "completely: memory is exhausted",
         3                                                                                                  }, // one string
        {"ulimit -v 60000; VANTORDIR=. kova info de_DE > page",         "kova: memory is exhausted",       3},
        {"ulimit -v 10000; kovac locale -i de_DE -f ISO-8859-1 -o out", "memory is exhausted",             3},
    };
    check(rows, "");
}

// From where the system can start the commands at all, which it says with status 127.
TEST_F(KovaCli, TellsItInWhateverRoomItStarts) {
    for (const char *command : {"kova info de_DE.8859-1 57", "kovac registry -o ."}) {
        int told = 0;
        for (int kib = 4000, status = 127; status && kib < 20000; kib += 100) {
            const outcome got = shell("ulimit -v " + std::to_string(kib) + "; exec " + command);
            status = got.status;
            if (!status || status == 127) continue;
            EXPECT_EQ(status, 3) << kib << got.err;
            EXPECT_NE(got.err.find("memory is exhausted"), got.err.npos) << kib << got.err;
            ++told;
        }
        EXPECT_GT(told, 0) << command;
    }
}
#endif

TEST_F(KovaCli, SaysWhichLocalesExist) {
    static const command_row rows[] = {
        {"info de_DE.8859-7",         "there is no locale de_DE.8859-7; de_DE exists as de_DE.ISO-8859-1",
         3                                                                                                  },
        {"info de_DE.klingon",        "no code set is called \"klingon\"; de_DE exists as",                3},
        {"info ru_RU",                "several code sets, name one: ru_RU.",                               3},
        {"info qq_QQ.8859-1",         "there is no locale qq_QQ.8859-1; there are ",                       3},
        {"info german",               "\"german\" is not a locale name",                                   3},
        {"info de_DE.",               "no code set is called \"\"",                                        3},
        {"info de_DE.8859-1@toolong", "there is no locale de_DE.8859-1@toolong",                           3},
        {"compare fr_fr a b",         "<\n",                                                               0}, // one code set: no need to name it
        {"compare de_de.819 a b",     "<\n",                                                               0},
        {"locales --root empty/no",   "there is no directory",                                             3},
        {"locales --root empty",      "holds no locale objects",                                           3},
    };
    fs::create_directory(dir / "empty");
    check(rows);
    const command_row elsewhere[] = {
        {"locales",                               "VANTORDIR: empty", 3},
        {"compare --root " + root + " POSIX a b", "<\n",              0},
    };
    environment["VANTORDIR"] = "empty";
    check(elsewhere);
    environment["KO_PATH"] = root + "/kova/lc11;" + root + "/kova/cm3";
    EXPECT_EQ(kova("compare sv_SE.8859-1 ö z").out, ">\n");
}

// The library loads the object, but its header cannot be read.
TEST_F(KovaCli, RefusesALocaleWithoutItsHeader) {
    fs::create_directories(dir / "de_de");
    fs::create_symlink("nowhere", dir / "default.lco");
    fs::create_symlink("nowhere", dir / "de_de/0333.lco");
    kovacli::common_options common;
    common.root = root;
    kovacli::data_place place = kovacli::find_data(common);
    place.dirs = {dir.string()};
    for (const char *spec : {"POSIX", "de_DE", "de_DE.8859-1"}) {
        kovacli::locale_handle handle;
        try {
            kovacli::open_locale(place, spec, handle);
            ADD_FAILURE() << spec;
        } catch (const kovacli::failure &e) {
            EXPECT_NE(std::string(e.what()).find(".lco cannot be read: No such"), std::string::npos)
                << e.what();
        }
    }
    ko_setextfunc(nullptr, KO_EXT_GETENV, nullptr);
}

// However the directory is spelled, and however many lines the header has.
TEST_F(KovaCli, ShowsTheHeaderThatTheLibraryReads) {
    std::string object = slurp(root + "/kova/lc11/default.lco");
    const size_t count = object.find("HEADER"), codeset = object.find("\n### LC_CTYPE");
    std::string lines = "LINES=203\n";
    for (int i = 0; i < 200; ++i)
        lines += "LINE=" + std::to_string(i) + "\n";
    const size_t name = object.rfind('\n', codeset - 1) + 1;
    fs::create_directories(dir / "a/b");
    spit(dir / "a/b/default.lco", object.substr(0, count) + lines + object.substr(name));
    for (const char *path : {"a/b", "a\\b", "none;.\\a\\b"}) {
        environment["KO_PATH"] = path;
        const outcome got = kova("info POSIX");
        EXPECT_EQ(got.status, 0) << got.err;
        EXPECT_NE(got.out.find("LINE=199"), std::string::npos) << path;
        EXPECT_NE(got.out.find("ANSI_X3.4-1968"), std::string::npos) << got.out.substr(0, 2000);
    }
}

TEST_F(KovaCli, MarksDamagedObjectsAndRefusesThem) {
    const fs::path copy = dir / "root";
    fs::create_directories(copy / "kova");
    fs::copy(root + "/kova/cm3", copy / "kova/cm3", fs::copy_options::recursive);
    fs::create_directories(copy / "kova/lc11/de_de");
    fs::create_directories(copy / "kova/lc11/fr_fr");
    const std::string object = slurp(root + "/kova/lc11/de_de/0333.lco");
    spit(copy / "kova/lc11/fr_fr/0333.lco", object);
    environment["VANTORDIR"] = copy.string();
    for (const std::string &damaged : {""s, "hello\n"s, object.substr(0, object.size() / 2)}) {
        static const command_row info[] = {
            {"info de_DE", "is damaged or not a locale object", 3}
        };
        spit(copy / "kova/lc11/de_de/0333.lco", damaged);
        check(info);
        const outcome list = kova("locales");
        EXPECT_EQ(list.status, 3);
        EXPECT_NE(list.out.find("! de_DE"), std::string::npos) << list.out;
        EXPECT_EQ(list.out.find("! fr_FR"), std::string::npos) << list.out;
    }
}

TEST_F(KovaCli, TakesBytesOfTheCodeSetOrUtf8) {
    static const command_row in_bytes[] = {
        {"sort -l sv_SE.8859-1",         "z\n\xE5\n\xE4\n\xF6\n", 0, "\xF6\n\xE4\nz\n\xE5\n"},
        {"upper de_DE.8859-1 '\xE4'",    "\xC4\n",                0, ""                     },
        {"upper --utf8 de_DE.8859-1 ä", "Ä\n",                  0, ""                     },
        {"width ja_JP.EUC-JP",           "2\n1\n",                0, "\xB4\xC1\n\x8E\xB1\n" },
    };
    environment["LC_ALL"] = "C";
    check(in_bytes);
    // Lines end with the code set's own newline: 0x25 in EBCDIC, two bytes in "unicode".
    static const command_row rows[] = {
        {"upper de_DE.8859-1 ä",             "Ä\n",                          0, ""                 },
        {"upper --bytes de_DE.8859-1 '\xE4'", "\xC4\n",                        0, ""                 },
        {"sort --bytes -l en_US.IBM037",      "\x81\x25\x82\x25",              0, "\x82\x25\x81\x25" },
        {"sort --bytes -l de_DE.unicode",     "\0a\0\n\1\0\x0A\5\0\n\0B\0\n"s, 0,
         "\1\0\x0A\5\0\n\0B\0\n\0a\0\n"s                                                             },
        {"sort --bytes -l de_DE.unicode",     "byte offset 4",                 1, "\0b\0\n\0"s       },
        {"sort",                              "Öl\nOma\nZebra\n",             0, "Öl\nZebra\nOma\n"}, // LANG names the order
    };
    environment["LC_ALL"] = "";
    environment["LANG"] = "de_DE.utf8";
    check(rows);
}

TEST_F(KovaCli, MapsCaseOfTextsAndOfStreams) {
    static const command_row rows[] = {
        {"upper tr_TR.8859-9 istanbul ığ", "İSTANBUL\nIĞ\n"},
        {"lower tr_TR.8859-9 ISPARTA",       "ısparta\n"      },
        {"upper el_GR.8859-7 αβγ",        "ΑΒΓ\n"        },
    };
    check(rows);
    // Longer than a block, with characters across every block's end.
    for (size_t shift = 0; shift < 3; ++shift) {
        std::string text(shift, 'a'), want(shift, 'A');
        for (int i = 0; i < 250000; ++i) {
            text += "äя\0"s;
            want += "ÄЯ\0"s;
        }
        file("t", text);
        EXPECT_TRUE(kova("upper de_DE.unicode", text).out == want);
        EXPECT_TRUE(kova("upper de_DE.unicode -f t").out == want);
    }
}

TEST_F(KovaCli, WritesKeysThatOrderAsTextsCompare) {
    static const command_row rows[] = {
        {"fr_FR.8859-1 coté côte",   "<\n"},
        {"de_DE.unicode côté coté", ">\n"},
        {"de_DE.unicode '' ''",        "=\n"},
    };
    check(rows, "kova compare ");
    const std::string key = kova("key fr_FR.8859-1 coté").out;
    EXPECT_LT(key, kova("key fr_FR.8859-1", "côte\n").out);
    EXPECT_EQ(kova("key --raw fr_FR.8859-1 coté").out.size(), (key.size() - 1) / 2);
}

TEST_F(KovaCli, ShowsCharactersItemsAndMonths) {
    static const std::pair<const char *, const char *> rows[] = {
  // and a part of the output
        {"classify ja_JP.EUC-JP a漢",           "a     U+0061  61     0x0061  A      -      lower alpha"                     },
        {"classify ja_JP.EUC-JP a漢",           "漢    U+6F22  b4 c1  0xB4C1  -      -      alpha"                          },
        {"classify de_DE.unicode 𝄞",          "U+1D11E  d8 34 dd 1e"                                                       },
        {"info de_DE.8859-1",                    "RADIXCHAR              55  ,"                                               },
        {"info --all --utf8 en_US.IBM037",       "fractions      -1,234.50\n"                                                 },
        {"info --all --utf8 en_US.IBM037",       "date           11/21/2026\n"                                                },
        {"info --all --utf8 en_US.IBM037",       "money owed     -$1,234.50\n"                                                },
        {"info --all --utf8 en_US.IBM037",       "calendar       gregorian\n"                                                 },
        {"cal de_DE.8859-1 märz 2024",
         "     März 2024\nMo Di Mi Do Fr Sa So\n              1  2  3\n 4  5"                                                },
        {"cal ja_JP.EUC-JP 2 2026",              "      2月 2026\n日 月 火 水 木 金 土\n 1  2  3"                     },
        {"cal he_IL.8859-8@hebr 7 5784",         "     א'       ב'       ג'       ד'       ה'       ו'     "
                                         "  ש'\n            1 (11)   2 (12)   3 (13)"},
        {"cal he_IL.unicode@hebr ניסן 5784", "                   2024-04-09 - 2024-05-08\n"                               },
        {"cal he_IL.unicode@hebr אדר 5783",   "21 (14)  22 (15)  23 (16)  24 (17)  25 (18)\n"                              },
        {"cal ar_SA.8859-6@islm 9 1420",
         "رمضان 1420\n                   1999-12-08 - 2000-01-06\n"                                                      },
        {"cal POSIX",                            "\nSun Mon Tue Wed Thu Fri Sat\n"                                            },
    };
    for (const auto &[args, part] : rows) {
        const outcome got = kova(args);
        EXPECT_NE(got.out.find(part), std::string::npos) << args << got.out << got.err;
    }
    EXPECT_EQ(kova("cal --bytes en_US.IBM037 2 2024").out.substr(7, 9),
              "\xC6\x85\x82\x99\xA4\x81\x99\xA8\x40"); // "February "
    const std::string counts = kova("classify --count de_DE.8859-1", "Ab 1ä\n").out;
    for (const std::string row : {"upper 1", "lower 2", "digit 1", "alnum 4", "space 2", "lines 1",
                                  "bytes 7", "all characters 6"}) {
        const size_t line = counts.find(row.substr(0, row.rfind(' ')) + "  ");
        ASSERT_NE(line, counts.npos) << row;
        EXPECT_EQ(counts[counts.find('\n', line) - 1], row.back()) << row;
    }
    for (const char *command : {"sort", "compare", "key", "upper", "lower", "classify", "info",
                                "locales", "cal", "width", "trim", "count"})
        EXPECT_NE(kova(command + " --help"s).out.find("Examples:\n  kova "), std::string::npos);
}

TEST_F(KovaCli, TellsItemsAndDatesAndMarksWhatFails) {
    static const command_row rows[] = {
        {"info de_DE.8859-1 MON_3 ko_radixchar 60",                 "März\n,\nISO-8859-1\n",             0},
        {"info --json de_DE.8859-1 57 | tail -n 4",
         "  \"items\": {\n    \"YESSTR\": \"ja\"\n  }\n}\n",                                              0},
        {"info --utf8 en_US.IBM037 60 73",                          "IBM037\ngregorian\n",                0},
        {"info de_DE.8859-1 74",                                    "there is no item \"74\"",            2},
        {"date de_DE.8859-1 '%A, %.1d. %B %Y' --at 2026-03-07",     "Samstag, 7. März 2026\n",           0},
        {"date --utf8 en_US.IBM037 %c --at '2026-11-21 14:30:05'",  "Sat 21 Nov 2026 02:30:05 PM\n",
         0                                                                                                 },
        {"date ja_JP.EUC-JP '%EY|%F3' --at 2019-05-01T00:00:00.25", "令和元年|250\n",                 0},
        {"date th_TH.TIS-620 %Ey --at 2026-11-21",                  "2569\n",                             0},
        {"date he_IL.unicode@hebr '%d %B %Y' --at 2026-11-21",      "11 כסלו 5787\n",                 0},
        {"date ja_JP.EUC-JP '令和 %A%q'",                         "directive 2, %q, at character 6",    2},
        {"date ja_JP.EUC-JP '令和 %A%q'",                         "\n  令和 %A%q\n         ^~",       2},
        {"date de_DE.8859-1 --at 2026-02-29",                       "--at \"2026-02-29\"",                2},
        {"date de_DE.8859-1 --at ''",                               "--at \"\"",                          2},
        {"date de_DE.8859-1 --at '2026-02-01 12:30.5'",             "--at \"2026-02-01 12:30.5\"",        2},
        {"date de_DE.8859-1 --at '2026-02-01 24:00'",               "--at \"2026-02-01 24:00\"",          2},
        {"cal he_IL.unicode@hebr 13 5783",                          "no such month",                      2},
        {"cal he_IL.unicode@hebr \"אדר א'\" 5783",              "no such month",                      2},
        {"cal he_IL.unicode@hebr 1 14001",                          "cannot be converted",                2},
        {"cal de_DE.8859-1 Smarch",                                 "\"Smarch\" is not a month of de_DE", 2},
        {"cal de_DE.8859-1 1 last",                                 "\"last\" is not a year",             2},
        {"cal de_DE.8859-1 1 99999",                                "no such month",                      2},
    };
    check(rows);
    for (const char *line : {"", "nonsense", "compare POSIX a", "sort --utf8 --bytes",
                             "sort -l POSIX -k 0", "sort -l POSIX -k 3,2", "classify POSIX",
                             "sort -l POSIX -k 2 -t ab", "sort -l POSIX --buffer-size 9X"})
        EXPECT_EQ(kova(line).status, 2) << line;
}
