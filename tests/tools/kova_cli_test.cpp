// The command kova, run as people run it: what it prints, its exit statuses, its one line for
// everything that goes wrong.
#include "kova/kova_sort_runs.h"

#include "tools/command_run.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <sstream>

namespace fs = std::filesystem;
using namespace std::string_literals;

struct KovaCli : command_test {
    outcome kova(const std::vector<std::string> &args, const std::string &in = "",
                 const std::string &out = ".out") {
        std::string line = "kova";
        for (const std::string &arg : args)
            line += " " + quoted(arg);
        return shell(line, in, out);
    }
    std::string file(const std::string &name, const std::string &contents) {
        spit(dir / name, contents);
        return (dir / name).string();
    }
};

// One line "kova: ..." that holds text, nothing on standard output, and this status.
static void expect_complaint(const outcome &got, int status, const std::string &text) {
    EXPECT_EQ(got.status, status);
    EXPECT_EQ(got.out, "");
    EXPECT_EQ(got.err.compare(0, 6, "kova: "), 0) << got.err;
    EXPECT_EQ(std::count(got.err.begin(), got.err.end(), '\n'), 1) << got.err;
    EXPECT_NE(got.err.find(text), std::string::npos) << got.err;
}

TEST_F(KovaCli, SortsOneListDifferentlyUnderEachLocale) {
    static const struct {
        const char *locale, *words, *want;
    } rows[] = {
        {"de_DE.8859-1",     "Zebra\nÖl\nOma\nÄpfel\napfel\n",  "apfel\nÄpfel\nÖl\nOma\nZebra\n" },
        {"sv_SE.ISO-8859-1", "Öl\nÄpple\nÅl\nZebra\nApa\n",    "Apa\nZebra\nÅl\nÄpple\nÖl\n"   },
        {"cs_CZ.8859-2",     "ihned\nchata\nhora\ncihla\nčas\n", "cihla\nčas\nhora\nchata\nihned\n"},
        {"sv_SE.unicode",    "Öl\nZebra\nΩ\nÅl\nя\n",         "Zebra\nÅl\nÖl\nΩ\nя\n"        },
        {"POSIX",            "b\nB\na\n",                         "B\na\nb\n"                        },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.locale);
        const outcome got = kova({"sort", "-l", row.locale}, row.words);
        EXPECT_EQ(got.err, "");
        EXPECT_EQ(got.out, row.want);
        EXPECT_EQ(got.status, 0);
    }
}

TEST_F(KovaCli, SortsByFieldsStablyReversedAndUnique) {
    const std::string people = "b;Öl;1\na;Oma;2\nc;Öl;3\nd;oma;4\n";
    const std::pair<const char *, const char *> rows[] = {
  // the order of the people
        {"-t ; -k 2,2",         "bcda"},
        {"-t ; -k 2,2 -r",      "adbc"},
        {"-t ; -k 2,2 -u",      "bda" },
        {"-t ; -k 2,2 -k 3 -r", "adcb"},
        {"-t ; -k 7",           "bacd"},
        {"",                    "abcd"},
    };
    for (const auto &[options, want] : rows) {
        std::vector<std::string> args = {"sort", "-l", "de_DE.8859-1"};
        std::istringstream words(options);
        for (std::string option; words >> option;)
            args.push_back(option);
        std::istringstream out(kova(args, people).out);
        std::string got;
        for (std::string line; std::getline(out, line);)
            got += line[0];
        EXPECT_EQ(got, want) << options;
    }
    EXPECT_EQ(kova({"sort", "-l", "de_DE.8859-1", "-k", "2"}, " x  b\n\ta c\nz \t a\n").out,
              "z \t a\n x  b\n\ta c\n");
}

TEST_F(KovaCli, SpillingChangesNothing) {
    std::mt19937 random(7);
    std::string text;
    for (int i = 0; i < 12000; ++i)
        text += std::string("aAbB").substr(random() % 4) + " " + std::to_string(i) + "\n";
    const std::string path = file("words", text);
    for (const char *option : {"--no-progress", "-ru"}) {
        SCOPED_TRACE(option);
        std::vector<std::string> args = {"sort", option, "-l", "de_DE.unicode", "-k", "1,1", path};
        const outcome in_memory = kova(args);
        args.insert(args.end(), {"--buffer-size", "64K", "--temporary-directory", dir.string()});
        const outcome spilled = kova(args);
        EXPECT_EQ(spilled.err, "");
        EXPECT_FALSE(in_memory.out.empty());
        EXPECT_TRUE(spilled.out == in_memory.out);
    }
}

// Many levels of runs, against the standard library.
TEST(KovaSortRuns, DeliversWhatAStableSortDelivers) {
    std::mt19937 random(11);
    for (const bool reverse : {false, true}) {
        kovacli::sorter all;
        all.budget = 512;
        all.reverse = reverse;
        std::vector<std::pair<std::string, std::string>> want;
        for (int i = 0; i < 5000; ++i) {
            std::string key(random() % 12, '\0');
            for (char &c : key)
                c = "\0\1a\377"[random() % 4];
            want.emplace_back(key, std::to_string(i));
            add_record(all, key, want.back().second);
        }
        const auto less = [&](const auto &a, const auto &b) {
            return reverse ? b.first < a.first : a.first < b.first;
        };
        std::stable_sort(want.begin(), want.end(), less);
        EXPECT_LT(all.runs.size(), 100u);
        std::vector<std::string> got;
        deliver(all, [&](std::string_view line) { got.emplace_back(line); });
        ASSERT_EQ(got.size(), want.size());
        for (size_t i = 0; i < got.size(); ++i)
            ASSERT_EQ(got[i], want[i].second) << i;
    }
}

TEST_F(KovaCli, KeepsLinesAsTheyAre) {
    const std::string longer_than_a_block(700000, 'a');
    static const struct {
        std::string in, want;
    } rows[] = {
        {"",                          ""                           },
        {"\n",                        "\n"                         },
        {"b\na",                      "a\nb\n"                     },
        {"b\r\na\r\n",                "a\r\nb\r\n"                 },
        {"ab\na\0b\na\n"s,            "a\na\0b\nab\n"s             },
        {"\uFEFFb\na\n",              "a\nb\n"                     },
        {"b\n" + longer_than_a_block, longer_than_a_block + "\nb\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.in.substr(0, 20));
        EXPECT_TRUE(kova({"sort", "-l", "en_US.8859-1"}, row.in).out == row.want);
    }
}

TEST_F(KovaCli, StopsAtABadCharacterWithItsPlaceUnlessToldToGoOn) {
    const std::string path = file("w", "b\nxy\xFFz\na\n");
    expect_complaint(kova({"sort", "-l", "de_DE.unicode", path}), 1, path + ":2: byte offset 4: ");
    expect_complaint(kova({"sort", "-l", "de_DE.8859-1"}, "a\n\xE2\x82\xAC\n"), 1,
                     "standard input:2: byte offset 2: ISO-8859-1 has no character U+20AC (€)");
    expect_complaint(kova({"sort", "-l", "ja_JP.EUC-JP", "--bytes"}, "a\xB0\n"), 1,
                     "standard input:1: byte offset 1: ");
    expect_complaint(kova({"upper", "de_DE.8859-1", "ab€"}), 1, "TEXT: byte offset 2: ");
    const outcome got = kova({"sort", "-l", "de_DE.unicode", "--replace", path});
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.out, "a\nb\nxy\xFFz\n");
    EXPECT_NE(got.err.find("1 bad character was"), std::string::npos) << got.err;
    EXPECT_EQ(kova({"lower", "de_DE.8859-1", "--replace"}, "A\xFF€Ä\n").out, "a\xFF€ä\n");
}

TEST_F(KovaCli, ReplacesItsOutputInOneStepOrNotAtAll) {
    const std::string path = file("w", "b\na\n");
    chmod(path.c_str(), 0640);
    fs::create_symlink(path, dir / "link");
    EXPECT_EQ(kova({"sort", "-l", "POSIX", "-o", (dir / "link").string(), path}).status, 0);
    EXPECT_EQ(slurp(path), "a\nb\n");
    EXPECT_TRUE(fs::is_symlink(dir / "link"));
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0640));
    const std::string bad = file("bad", "b\n\xFF\n");
    expect_complaint(kova({"sort", "-l", "POSIX", "-o", path, bad}), 1, bad);
    EXPECT_EQ(slurp(path), "a\nb\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), {}), 6); // no leftovers beside it
}

TEST_F(KovaCli, SaysWhatCannotBeReadOrWritten) {
    const std::string missing = (dir / "no" / "file").string();
    expect_complaint(kova({"sort", "-l", "POSIX", missing}), 4, "cannot read " + missing);
    expect_complaint(kova({"sort", "-l", "POSIX", dir.string()}), 4, "cannot read " + dir.string());
    expect_complaint(kova({"sort", "-l", "POSIX", "-o", missing}, "a\n"), 4,
                     "cannot write " + missing);
    expect_complaint(kova({"upper", "POSIX", "a"}, "", "/dev/full"), 4,
                     "cannot write standard output: No space left");
    expect_complaint(
        kova({"sort", "-l", "POSIX", "--buffer-size", "64K", "--temporary-directory", missing},
             std::string(200000, '\n')),
        4, "temporary file");
}

TEST_F(KovaCli, RefusesPathsShowsNoControlsAndChecksItsOutput) {
    static const struct {
        const char *line;
        int status;
        const char *message;
    } rows[] = {
        {"kova info ../../etc/passwd",                                                    3, "cannot be a path"         },
        {"LC_ALL=de_DE./etc/passwd kova sort",                                            3, "cannot be a path"         },
        {"kova convert -f ../a -t utf8",                                                  3, "cannot be a path"         },
        {"kova chart /etc/passwd",                                                        3, "cannot be a path"         },
        {"kova symbols ../../etc/passwd",                                                 3, "cannot be a path"         },
        {"kova info \"$(printf 'x\\033[31m\\342\\200\\256')\"",                           3, "\"x\\x1b[31m\\u202e\""    },
        {"kova count POSIX \"$(printf 'a\\nkova: b\\302\\233')\"",                        4, "a\\x0akova: b\\u009b: "   },
        {"kova --help > /dev/full",                                                       4, "standard output: No space"},
        {"kovac --help > /dev/full",                                                      3, "standard output: No space"},
        {"kovac locale -i \"$(printf 'a\\033')\" -f x -o root",                           3, "\"a\\x1b\""               },
        {"kovac locale -i POSIX -f ANSI_X3.4-1968 --default --prove -o root > /dev/full", 3,
         "standard output: No space"                                                                                    },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.line);
        const outcome got = shell(row.line);
        EXPECT_EQ(got.status, row.status);
        EXPECT_NE(got.err.find(row.message), std::string::npos) << got.err;
        EXPECT_EQ(std::count(got.err.begin(), got.err.end(), '\n'), 1) << got.err;
    }
}

TEST_F(KovaCli, EndsQuietlyWhenTheReaderGoesAway) {
    const std::string path = file("w", std::string(2000000, '\n'));
    const std::string command = "VANTORDIR=" + root + " " + env("KOVA_BIN_DIR") +
                                "/kova sort -l POSIX " + path + " 2>" + (dir / "err").string() +
                                " | head -n 1 >/dev/null";
    EXPECT_EQ(system(command.c_str()), 0);
    EXPECT_EQ(slurp(dir / "err"), "");
}

TEST_F(KovaCli, SaysWhichLocalesExist) {
    static const struct {
        const char *spec, *text;
    } rows[] = {
        {"de_DE.8859-7",         "there is no locale de_DE.8859-7; de_DE exists as de_DE.ISO-8859-1"},
        {"de_DE.klingon",        "no code set is called \"klingon\"; de_DE exists as"               },
        {"de_DE",                "several code sets, name one: de_DE.ISO-8859-1, de_DE.unicode"     },
        {"qq_QQ.8859-1",         "there is no locale qq_QQ.8859-1; there are "                      },
        {"german",               "\"german\" is not a locale name"                                  },
        {"de_DE.",               "no code set is called \"\""                                       },
        {"de_DE.8859-1@toolong", "there is no locale de_DE.8859-1@toolong"                          },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.spec);
        expect_complaint(kova({"info", row.spec}), 3, row.text);
    }
    EXPECT_EQ(kova({"compare", "fr_fr", "a", "b"}).out, "<\n"); // one code set: no need to name it
    EXPECT_EQ(kova({"compare", "de_de.819", "a", "b"}).out, "<\n");
}

TEST_F(KovaCli, FindsItsDataWhereItIsTold) {
    const std::string empty = (dir / "empty").string();
    fs::create_directory(empty);
    expect_complaint(kova({"locales", "--root", empty + "/no"}), 3, "there is no directory");
    expect_complaint(kova({"locales", "--root", empty}), 3, "holds no locale objects");
    environment["VANTORDIR"] = empty;
    expect_complaint(kova({"locales"}), 3, "VANTORDIR: " + empty);
    EXPECT_EQ(kova({"compare", "--root", root, "POSIX", "a", "b"}).out, "<\n");
    environment["KO_PATH"] = root + "/kova/lc11;" + root + "/kova/cm3";
    EXPECT_EQ(kova({"compare", "sv_SE.8859-1", "ö", "z"}).out, ">\n");
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
        SCOPED_TRACE(damaged.size());
        spit(copy / "kova/lc11/de_de/0333.lco", damaged);
        expect_complaint(kova({"info", "de_DE"}), 3, "is damaged or not a locale object");
        const outcome list = kova({"locales"});
        EXPECT_EQ(list.status, 3);
        EXPECT_NE(list.out.find("! de_DE"), std::string::npos) << list.out;
        EXPECT_EQ(list.out.find("! fr_FR"), std::string::npos) << list.out;
    }
}

TEST_F(KovaCli, TakesBytesOfTheCodeSetOrUtf8) {
    environment["LC_ALL"] = "C";
    EXPECT_EQ(kova({"sort", "-l", "sv_SE.8859-1"}, "\xF6\n\xE4\nz\n\xE5\n").out,
              "z\n\xE5\n\xE4\n\xF6\n");
    EXPECT_EQ(kova({"upper", "de_DE.8859-1", "\xE4"}).out, "\xC4\n");
    EXPECT_EQ(kova({"upper", "--utf8", "de_DE.8859-1", "ä"}).out, "Ä\n");
    environment["LC_ALL"] = "";
    environment["LANG"] = "de_DE.utf8";
    EXPECT_EQ(kova({"upper", "de_DE.8859-1", "ä"}).out, "Ä\n");
    EXPECT_EQ(kova({"upper", "--bytes", "de_DE.8859-1", "\xE4"}).out, "\xC4\n");
    // Lines end with the code set's own newline: 0x25 in EBCDIC, two bytes in "unicode".
    EXPECT_EQ(kova({"sort", "--bytes", "-l", "en_US.IBM037"}, "\x82\x25\x81\x25").out,
              "\x81\x25\x82\x25");
    EXPECT_EQ(kova({"sort", "--bytes", "-l", "de_DE.unicode"}, "\1\0\x0A\5\0\n\0B\0\n\0a\0\n"s).out,
              "\0a\0\n\1\0\x0A\5\0\n\0B\0\n"s);
    expect_complaint(kova({"sort", "--bytes", "-l", "de_DE.unicode"}, "\0b\0\n\0"s), 1,
                     "byte offset 4");
    EXPECT_EQ(kova({"sort"}, "Öl\nZebra\nOma\n").out, "Öl\nOma\nZebra\n"); // LANG names the order
}

TEST_F(KovaCli, MapsCaseOfTextsAndOfStreams) {
    EXPECT_EQ(kova({"upper", "tr_TR.8859-9", "istanbul", "ığ"}).out, "İSTANBUL\nIĞ\n");
    EXPECT_EQ(kova({"lower", "tr_TR.8859-9", "ISPARTA"}).out, "ısparta\n");
    EXPECT_EQ(kova({"upper", "el_GR.8859-7", "αβγ"}).out, "ΑΒΓ\n");
    // Longer than a block, with characters across every block's end.
    for (const std::string shift : {"", "a", "aa"}) {
        std::string text = shift, want = shift.empty() ? "" : shift.size() == 1 ? "A" : "AA";
        for (int i = 0; i < 250000; ++i) {
            text += "äя\0"s;
            want += "ÄЯ\0"s;
        }
        EXPECT_TRUE(kova({"upper", "de_DE.unicode"}, text).out == want);
        EXPECT_TRUE(kova({"upper", "de_DE.unicode", "-f", file("t", text)}).out == want);
    }
}

TEST_F(KovaCli, KeysOrderAsTextsCompare) {
    const std::vector<std::string> words = {"cote", "coté", "côte", "côté", "Cote", "", "co-te"};
    for (const std::string locale : {"fr_FR.8859-1", "de_DE.unicode"}) {
        std::vector<std::string> args = {"key", locale};
        args.insert(args.end(), words.begin(), words.end());
        std::istringstream out(kova(args).out);
        std::vector<std::string> keys(words.size());
        for (std::string &key : keys)
            std::getline(out, key);
        for (size_t i = 0; i < words.size(); ++i) {
            for (size_t j = 0; j < words.size(); j += 2) {
                SCOPED_TRACE(locale + " " + words[i] + " " + words[j]);
                const char *sign = keys[i] < keys[j] ? "<\n" : keys[i] > keys[j] ? ">\n" : "=\n";
                EXPECT_EQ(kova({"compare", locale, words[i], words[j]}).out, sign);
            }
        }
    }
    const std::string text = kova({"key", "fr_FR.8859-1", "côte"}).out;
    EXPECT_EQ(kova({"key", "fr_FR.8859-1"}, "côte\n").out, text);
    EXPECT_EQ(kova({"key", "--raw", "fr_FR.8859-1", "côte"}).out.size(), (text.size() - 1) / 2);
}

TEST_F(KovaCli, ClassifiesAndCounts) {
    const std::string table = kova({"classify", "ja_JP.EUC-JP", "a漢"}).out;
    EXPECT_NE(table.find("a     U+0061  61     0x0061  A      -      lower alpha"), table.npos);
    EXPECT_NE(table.find("漢    U+6F22  b4 c1  0xB4C1  -      -      alpha"), table.npos) << table;
    EXPECT_NE(kova({"classify", "de_DE.unicode", "𝄞"}).out.find("U+1D11E  d8 34 dd 1e"),
              std::string::npos);
    const std::string counts = kova({"classify", "--count", "de_DE.8859-1"}, "Ab 1ä\n").out;
    for (const std::string row : {"upper 1", "lower 2", "digit 1", "alnum 4", "space 2", "lines 1",
                                  "bytes 7", "all characters 6"}) {
        const size_t line = counts.find(row.substr(0, row.rfind(' ')) + "  ");
        ASSERT_NE(line, counts.npos) << row;
        EXPECT_EQ(counts[counts.find('\n', line) - 1], row.back()) << row;
    }
}

TEST_F(KovaCli, TellsALocalesItems) {
    EXPECT_EQ(kova({"info", "de_DE.8859-1", "MON_3", "ko_radixchar", "60"}).out,
              "März\n,\nISO-8859-1\n");
    EXPECT_NE(kova({"info", "de_DE.8859-1"}).out.find("RADIXCHAR              55  ,"),
              std::string::npos);
    EXPECT_EQ(kova({"info", "--json", "de_DE.8859-1", "D_FMT", "57"}).out,
              "{\n  \"locale\": \"de_DE.8859-1\",\n  \"items\": {\n    \"D_FMT\": \"%d.%m.%Y\",\n"
              "    \"YESSTR\": \"ja\"\n  }\n}\n");
    EXPECT_EQ(kova({"info", "--utf8", "en_US.IBM037", "60", "73"}).out, "IBM037\ngregorian\n");
    const std::string page = kova({"info", "--all", "--utf8", "en_US.IBM037"}).out;
    for (const char *line : {"fractions      -1,234.50\n", "date           11/21/2026\n",
                             "money owed     -$1,234.50\n", "calendar       gregorian\n"})
        EXPECT_NE(page.find(line), std::string::npos) << line << page;
    expect_complaint(kova({"info", "de_DE.8859-1", "74"}), 2, "there is no item \"74\"");
}

TEST_F(KovaCli, DrawsAMonthOfTheLocalesCalendar) {
    static const struct {
        const char *locale, *month, *year, *want;
    } rows[] = {
        {"de_DE.8859-1",       "märz",    "2024",
         "     März 2024\nMo Di Mi Do Fr Sa So\n              1  2  3\n 4  5"                             },
        {"ja_JP.EUC-JP",       "2",        "2026", "      2月 2026\n日 月 火 水 木 金 土\n 1  2  3"},
        {"he_IL.8859-8@hebr",  "7",        "5784",
         "     א'       ב'       ג'       ד'       ה'       ו'       ש'\n            1 (11)   2 "
         "(12)   3 (13)"                                                                                   },
        {"he_IL.unicode@hebr", "ניסן", "5784", "                   2024-04-09 - 2024-05-08\n"          },
        {"he_IL.unicode@hebr", "אדר",   "5783", "21 (14)  22 (15)  23 (16)  24 (17)  25 (18)\n"         },
        {"ar_SA.8859-6@islm",  "9",        "1420",
         "رمضان 1420\n                   1999-12-08 - 2000-01-06\n"                                   },
    };
    for (const auto &r : rows) {
        const outcome got = kova({"cal", r.locale, r.month, r.year});
        EXPECT_NE(got.out.find(r.want), std::string::npos) << r.month << got.out << got.err;
    }
    EXPECT_EQ(kova({"cal", "--bytes", "en_US.IBM037", "2", "2024"}).out.substr(7, 9),
              "\xC6\x85\x82\x99\xA4\x81\x99\xA8\x40"); // "February "
    EXPECT_NE(kova({"cal", "POSIX"}).out.find("\nSun Mon Tue Wed Thu Fri Sat\n"),
              std::string::npos);
    const std::string hebrew = "he_IL.unicode@hebr", german = "de_DE.8859-1";
    expect_complaint(kova({"cal", hebrew, "13", "5783"}), 2, "no such month");
    expect_complaint(kova({"cal", hebrew, "אדר א'", "5783"}), 2, "no such month");
    expect_complaint(kova({"cal", hebrew, "1", "14001"}), 2, "cannot be converted");
    expect_complaint(kova({"cal", german, "Smarch"}), 2, "\"Smarch\" is not a month of de_DE");
    expect_complaint(kova({"cal", german, "1", "last"}), 2, "\"last\" is not a year");
    expect_complaint(kova({"cal", german, "1", "99999"}), 2, "no such month");
}

TEST_F(KovaCli, WritesADateAndMarksWhatFails) {
    static const std::vector<std::string> rows[] = {
        {"de_DE.8859-1",       "%A, %.1d. %B %Y", "2026-03-07",             "Samstag, 7. März 2026\n"     },
        {"en_US.IBM037",       "%c",              "2026-11-21 14:30:05",    "Sat 21 Nov 2026 02:30:05 PM\n"},
        {"ja_JP.EUC-JP",       "%EY|%F3",         "2019-05-01T00:00:00.25", "令和元年|250\n"           },
        {"th_TH.TIS-620",      "%Ey",             "2026-11-21",             "2569\n"                       },
        {"he_IL.unicode@hebr", "%d %B %Y",        "2026-11-21",             "11 כסלו 5787\n"           },
    };
    for (const auto &r : rows)
        EXPECT_EQ(kova({"date", "--utf8", r[0], r[1], "--at", r[2]}).out, r[3]) << r[0];
    const outcome bad = kova({"date", "--utf8", "ja_JP.EUC-JP", "令和 %A%q"});
    EXPECT_EQ(bad.status, 2);
    EXPECT_NE(bad.err.find("directive 2, %q, at character 6"), std::string::npos) << bad.err;
    EXPECT_NE(bad.err.find("\n  令和 %A%q\n         ^~"), std::string::npos) << bad.err;
    for (const char *at :
         {"2026-02-29", "", "-026-02-01", "2026-02-01 12:30.5", "2026-02-01 24:00"})
        expect_complaint(kova({"date", "de_DE.8859-1", "--at", at}), 2,
                         std::string("--at \"") + at + "\"");
}

TEST_F(KovaCli, HelpsWithEveryCommandAndRefusesWrongUsage) {
    for (const char *command : {"sort", "compare", "key", "upper", "lower", "classify", "info",
                                "locales", "cal", "width", "trim", "count"}) {
        const outcome got = kova({command, "--help"});
        EXPECT_EQ(got.status, 0);
        EXPECT_NE(got.out.find("Examples:\n  kova "), std::string::npos) << command;
    }
    for (const char *line : {" ", "nonsense", "compare POSIX a", "sort --utf8 --bytes",
                             "sort -l POSIX -k 0", "sort -l POSIX -k 3,2", "classify POSIX",
                             "sort -l POSIX -k 2 -t ab", "sort -l POSIX --buffer-size 9X"}) {
        SCOPED_TRACE(line);
        std::istringstream words(line);
        expect_complaint(kova({std::istream_iterator<std::string>(words), {}}), 2, "");
    }
}
