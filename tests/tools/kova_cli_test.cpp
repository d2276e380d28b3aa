// The command kova, run as people run it: what it prints, its exit statuses, its one line for
// everything that goes wrong.
#include "kova/kova_locale.h"
#include "kova/kova_sort_runs.h"
#include "kova_host.h"

#include "tools/command_run.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <random>
#include <regex>

namespace fs = std::filesystem;
using namespace std::string_literals;

struct KovaCli : data_test {
    const std::string german = slurp(root + "/kova/lc11/de_de/0333.lco");
    // A data root of its own with the names of the other one and an object, of de_DE.
    fs::path own_root(const std::string &object, const char *name = "lc11/de_de/0333.lco") {
        const fs::path own = dir / "root/kova";
        fs::create_directories((own / name).parent_path());
        fs::create_directories(own / "cm3");
        spit(own / "cm3/registry", slurp(root + "/kova/cm3/registry"));
        spit(own / name, object);
        environment["VANTORDIR"] = dir / "root";
        return own;
    }
    static std::string with_header_lines(std::string object, const std::string &lines, int count) {
        static constexpr char key[] = "HEADER_LINES=";
        object.insert(object.find("FIRST_WEEKDAY="), lines);
        const size_t at = object.find(key) + sizeof key - 1, end = object.find('\n', at);
        const int before = std::stoi(object.substr(at));
        return object.replace(at, end - at, std::to_string(before + count));
    }
    // Writes a file and gives its path.
    std::string file(const std::string &name, const std::string &contents) {
        spit(dir / name, contents);
        return (dir / name).string();
    }
};

TEST_F(KovaCli, SortsOneListDifferentlyUnderEachLocale) {
    command = "kova sort -l ";
    writes("de_DE.8859-1", "apfel\nÄpfel\nÖl\nOma\nZebra\n", "Zebra\nÖl\nOma\nÄpfel\napfel\n");
    writes("sv_SE.unicode", "Zebra\nÅl\nÖl\nΩ\nя\n", "Öl\nZebra\nΩ\nÅl\nя\n");
    writes("POSIX", "B\na\nb\n", "b\nB\na\n");
}

TEST_F(KovaCli, SortsByFieldsStablyReversedAndUnique) {
    const std::string people = "b;Öl;1\na;Oma;2\nc;Öl;3\nd;oma;4\n";
    command = "kova sort -l de_DE.8859-1 ";
    writes("-t ';' -k 2,2 | cut -c 1", "b\nc\nd\na\n", people);
    writes("-t ';' -k 2,2 -r | cut -c 1", "a\nd\nc\nb\n", people);
    writes("-t ';' -k 2,2 -rs | cut -c 1", "a\nd\nb\nc\n", people);
    writes("-t ';' -k 2,2r -k 3n | cut -c 1", "a\nd\nb\nc\n", people);
    writes("-t ';' -k 2.2,2 | cut -c 1", "b\nc\na\nd\n", people);
    writes("-f -t ';' -k 2,2 -su | cut -c 1", "b\na\n", people);
    writes("-t ';' -k 2,2 -u | cut -c 1", "b\nd\na\n", people);
    writes("-t ';' -k 2,2 -k 3 -r | cut -c 1", "a\nd\nc\nb\n", people);
    writes("-t ';' -k 7 | cut -c 1", "a\nb\nc\nd\n", people);
    writes("-t ';' -k 7 -s | cut -c 1", "b\na\nc\nd\n", people);
    writes("| cut -c 1", "a\nb\nc\nd\n", people);
    writes("-k 2", "z \t a\n x  b\n\ta c\n", " x  b\n\ta c\nz \t a\n");
    // A null character is more than the end of a line or field, and less than all others.
    writes("-r | tr '\\0' ,", "b\na,b\na\n", "a\nb\na\0b\n"s);
    writes("-t ';' -k 1,1 -k 2 | tr '\\0' ,", "a;z\na,b;1\n", "a\0b;1\na;z\n"s);
}

TEST_F(KovaCli, SortsAsPeopleKnowSort) {
    file("b", "a\nc\n");
    command = "kova sort -l de_DE ";
    writes("-n", "-5\n-0,5\n0\nx\n999\n1.000,5\n", "999\nx\n-0,5\n1.000,5\n-5\n0\n");
    writes("-nr", "20\n3\n-1\n-10\n", "3\n-10\n20\n-1\n");
    writes("-k 1.2n", "c 7\nb 10\na 11\n", "a 11\nc 7\nb 10\n");
    writes("-k 2bn", "c  7\nb 10\na 011\n", "a 011\nc  7\nb 10\n");
    writes("-V", "a9\nA9\na10\na10b\n", "a10b\na10\nA9\na9\n");
    writes("-d", "a-b\na.c\n(d\n", "(d\na.c\na-b\n");
    writes("-bn -k 1.2", "b 1\na 2\n", "a 2\nb 1\n");
    writes("-d", "a\n😀b\n𐐨c\n", "😀b\n𐐨c\na\n");
    writes("-fs", "B\nb\nB\nÖ\n", "Ö\nB\nb\nB\n");
    writes("-fsu", "𐐨\n", "𐐨\n𐐀\n");
    writes("-z | tr '\\0' ,", "a,b\nc,", "b\nc\0a\0"s);
    writes("-k 1.2,1.2 -s", "😀a😀\n😀bé\n", "😀bé\n😀a😀\n");
    writes("-m - b", "a\nb\nc\nd\n", "b\nd\n");
    writes("-mu - b", "a\nc\nd\n", "a\nd");
    writes("-t '\\t' -k 2b", "b\t 1\na\t2\n", "a\t2\nb\t 1\n");
    writes("-t '\\0' -k 2,9", "b\0001\na\0002\n"s, "a\0002\nb\0001\n"s);
    writes("-n", "-1,5\n+7\n-\n 3\n007\n12,,3\n", "12,,3\n007\n 3\n-\n+7\n-1,5\n");
    writes("-mu $(printf 'b%.0s ' $(seq 200))", "a\nc\n"); // more than may be open
    writes("-c", "", "a\na\nb\n");
    file("w", "b\na\na\n");
    command = "kova sort -l de_DE ";
    fails(1, "-c w", "w:2: disorder: a");
    fails(1, "--check w", "w:2: disorder: a");
    fails(2, "-cu b b", "one file");
    fails(2, "--check=x b", "write quiet, silent");
    fails(2, "-c -o x b", "--output");
    fails(2, "-k 1nV b", "numbers and versions");
    fails(2, "-k 1x b", "unknown letter");
    fails(2, "-k x b", "lacks a number");
    fails(2, "-k 1,2,3 b", "more than two places");
    fails(2, "-k 1nd b", "letters and numbers");
    fails(2, "-d -n b", "letters and numbers");
    fails(2, "-t ab b", "-t takes one character");
    fails(2, "-k 2.0 b", "character 0");
    fails(2, "--parallel 0 b", "from 1 to 64");
    fails(2, "-S 9X b", "is not a size");
    fails(1, "-cu", "kova: standard input:3: disorder: b\n", "a\nb\nb\n");
    const outcome quiet = kova("sort -l de_DE -C w");
    EXPECT_EQ(quiet.status, 1);
    EXPECT_EQ(quiet.err, "");
}

// Many levels of runs, and runs sorted by several threads, against the standard library.
TEST(KovaSortRuns, DeliversWhatAStableSortDelivers) {
    using kovacli::tie_order;
    std::mt19937 random(11);
    static const std::tuple<tie_order, uint64_t, unsigned> rows[] = {
        {tie_order::as_read,           512,      1},
        {tie_order::by_bytes_reversed, 512,      2},
        {tie_order::as_read,           64 << 20, 3},
        {tie_order::by_bytes,          64 << 20, 3},
    };
    for (const auto &row : rows) {
        kovacli::sorter all;
        std::tie(all.ties, all.budget, all.threads) = row;
        all.line_end = 0;
        add_makers(all, 1);
        std::vector<std::pair<std::string, std::string>> want;
        for (int i = 0; i < 30000; ++i) {
            std::string key(random() % 4 ? 0 : 600, 'k');
            for (size_t left = random() % 12; left; --left)
                key += "\0\1a\377"[random() % 4];
            want.emplace_back(key, std::to_string(i));
            make_record(all.makers[0], key, want.back().second);
            take_records(all);
        }
        const auto less = [&](const auto &a, const auto &b) {
            const int by_key = a.first.compare(b.first);
            return (by_key ? by_key : compare_tied(all.ties, a.second, b.second)) < 0;
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
    command = "kova sort -l en_US.8859-1";
    writes("", "");
    writes("", "\n", "\n");
    writes("", "a\nb\n", "b\na");
    writes("", "a\r\nb\r\n", "b\r\na\r\n");
    writes("", "a\na\0b\nab\n"s, "ab\na\0b\na\n"s);
    writes("", "a\nb\n", "\uFEFFb\na\n");
    writes("", longer_than_a_block + "\nb\n", "b\n" + longer_than_a_block);
    command = "kova sort -l de_DE -r";
    writes("", "ab\nÄ\nA\na\0b\na\n"s, "A\nÄ\na\nab\na\0b\n"s);
}

TEST_F(KovaCli, StopsAtABadCharacterWithItsPlaceUnlessToldToGoOn) {
    file("w", "b\nxy\xFFz\na\n");
    fails(1, "sort -l de_DE.unicode w", "w:2: byte offset 4: ");
    fails(1, "sort -l de_DE.8859-1", "ISO-8859-1 has no character U+20AC (€)", "a\n\xE2\x82\xAC\n");
    fails(1, "sort -l ja_JP.EUC-JP --bytes", "standard input:1: byte offset 1: ", "a\xB0\n");
    fails(1, "upper de_DE.8859-1 ab€", "TEXT: byte offset 2: ");
    for (const char *const bad : {"\xED\xA0\x80", "\xE0\x80\x80", "\xF0\x80\x80\x80",
                                  "\xF4\x90\x80\x80", "\xF5", "\xC1\x80"})
        fails(1, "upper de_DE.unicode", "standard input:1: byte offset 1: the byte", "a"s + bad,
              "A");
    fails(1, "width de_DE.8859-1", "standard input:2: byte offset 3: ", "a\nb€\n", "1\n");
    fails(1, "trim de_DE.8859-1", "standard input:2: byte offset 3: ", "a\nb€\n", "a\nb");
    fails(1, "count de_DE.8859-1", "standard input:2: byte offset 3: ", "a\nb€\n");
    writes("lower de_DE.8859-1 --replace 2> /dev/null", "a\xFF€ä\n", "A\xFF€Ä\n");
    writes("sort -l de_DE.unicode --replace w", "a\nb\nxy\xFFz\n", "", "1 bad character was");
    std::string many; // for two threads
    for (int i = 0; i < 20000; ++i)
        many += i == 19000 ? "\xFF\n" : "a\n";
    writes("sort -l de_DE.unicode --replace - w | tail -n 2", "xy\xFFz\n\xFF\n", many,
           "2 bad characters were");
    fails(1, "sort -l de_DE.unicode", "standard input:19001: byte offset 38000", many);
}

TEST_F(KovaCli, ReplacesItsOutputInOneStepOrNotAtAll) {
    const std::string path = file("w", "b\na\n");
    fs::create_hard_link(path, dir / "other");
    writes("sort -l POSIX -o w w", "", "", "w had other names");
    EXPECT_EQ(slurp(path) + slurp(dir / "other"), "a\nb\nb\na\n");
    writes("sort -l POSIX -o w w", "");
    file("bad", "b\n\xFF\n");
    fails(1, "sort -l POSIX -o w bad", "bad:2");
    fails(1, "trim de_DE.8859-1 -o w bad", "bad:2");
    fails(4, "sort -l POSIX no/file", "cannot read no/file");
    fails(4, "sort -l POSIX .", "cannot read .");
    fails(4, "sort -l POSIX -o no/file", "cannot write no/file");
    fails(4, "upper POSIX a > /dev/full", "cannot write standard output: No space left");
    fails(4, "--help > /dev/full", "standard output: No space");
    command = "kova sort -l POSIX --buffer-size 64K ";
    fails(4, "--temporary-directory no/file", "temporary file", std::string(200000, '\n'));
    EXPECT_EQ(slurp(path), "a\nb\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), {}), 6); // no leftovers beside it
}

TEST_F(KovaCli, RefusesPathsAndShowsNoControls) {
    command = "";
    fails(3, "kova info ../../etc/passwd", "cannot be a path");
    fails(3, "LC_ALL=de_DE./etc/passwd kova sort", "cannot be a path");
    fails(3, "kova convert -f ../a -t utf8", "cannot be a path");
    fails(3, "kova info \"$(printf 'x\\033[31m\\342\\200\\256')\"", "\"x\\x1b[31m\\u202e\"");
    fails(4, "kova count POSIX \"$(printf 'a\\nkova: b\\302\\233')\"", "a\\x0akova: b\\u009b: ");
    fails(3, "kovac --help > /dev/full", "standard output: No space");
    fails(3, "kovac locale -i \"$(printf 'a\\033')\" -f x -o root", "\"a\\x1b\"");
    fails(3, "kovac locale -i POSIX -f ANSI_X3.4-1968 --default --prove -o root > /dev/full",
          "standard output: No space");
    // A reader that goes away is no failure.
    const outcome quiet = shell("kova sort -l POSIX | head -n 1", std::string(2000000, '\n'));
    EXPECT_EQ(quiet.out + quiet.err, "\n");
}

// Names of a registry and of an object, with an escape character in them.
TEST_F(KovaCli, SpellsControlsOfData) {
    const std::string sunday = "\n2 536f\n"; // "So"
    ASSERT_NE(german.find(sunday), german.npos);
    std::string object = german;
    const fs::path own = own_root(object.replace(object.find(sunday), 8, "\n2 1b6f\n"));
    fs::create_directories(own / "cv9");
    spit(own / "cv9/fde80333.cvo", "");
    spit(own / "cm3/registry", slurp(own / "cm3/registry") + "\na\x1B" + "b 65000\n");
    for (const char *line :
         {"kova convert --list", "kova info de_DE ABDAY_1", "kova info --all de_DE",
          "kova cal de_DE 3 2024", "script -qec 'kova date de_DE %a --at 2026-11-22' /dev/null"}) {
        const outcome got = shell(line);
        EXPECT_EQ(got.out.find('\x1b'), got.out.npos) << line;
        EXPECT_NE(got.out.find("\\x1b"), got.out.npos) << line << got.out << got.err;
    }
}

// ---- Pages ----

// Is it well-formed, with one root element? Entities are the five that markup needs.
static bool is_markup(const std::string &page) {
    std::vector<std::string> open;
    size_t roots = 0;
    for (size_t at = page.find('\n') + 1; at < page.size(); ++at) {
        if (page[at] == '>') return false;
        if (page[at] == '&' &&
            !std::regex_search(page.substr(at, 6), std::regex("^&(amp|lt|gt|quot|#39);")))
            return false;
        if (page[at] != '<') continue;
        static const std::regex tag("<(/?)([a-z0-9]+)(?: [a-z-]+=\"[^\"<>]*\")*(/?)>");
        const size_t end = page.find('>', at);
        std::smatch part;
        const std::string text = page.substr(at, end - at + 1);
        if (!std::regex_match(text, part, tag)) return false;
        if (part.length(1) && (open.empty() || open.back() != part[2])) return false;
        if (part.length(1))
            open.pop_back();
        else if (!part.length(3))
            roots += open.empty(), open.push_back(part[2]);
        at = end;
    }
    return open.empty() && roots == 1;
}

TEST_F(KovaCli, MakesPagesOfWhateverDataSays) {
    std::string object = german;
    const std::string sunday = "\n2 536f\n";
    const fs::path own = own_root(object.replace(object.find(sunday), 8, "\n8 1b3c2f7468223e27\n"));
    fs::create_directory_symlink(root + "/kova/cv9", own / "cv9");
    spit(own / "cm3/registry", slurp(own / "cm3/registry") + "\na<i>&\x1B 37\n");
    for (const std::string name : {"chart ", "cal ", "info ", "order ", "order --of 'a<b' "}) {
        const bool chart = name == "chart ";
        const outcome got = kova(name + "--html " + (chart ? "ibm037" : "de_DE.8859-1"));
        EXPECT_EQ(got.out.find(" a&lt;i&gt;&amp;\\x1b") != got.out.npos, chart) << got.out;
        EXPECT_TRUE(is_markup(got.out)) << name << got.out << got.err;
        EXPECT_EQ(got.out.find('\x1b'), got.out.npos) << name;
        EXPECT_EQ(got.out.find("http"), got.out.npos) << name;
        const bool named = name == "cal " || name == "info ";
        EXPECT_EQ(got.out.find("\\x1b&lt;/th&quot;&gt;&#39;") != got.out.npos, named) << name;
    }
}

TEST_F(KovaCli, PagesTellLanguageAndDirection) {
    const std::string rtl = " dir=\"rtl\"", ltr = " dir=\"ltr\"";
    static const struct {
        std::string args, part;
    } rows[] = {
        {"cal --html he_IL 3 2026",              "<html lang=\"he-IL\"" + rtl                                 },
        {"cal --html de_DE.8859-1 3 2026",       "<html lang=\"de-DE\"" + ltr                                 },
        {"cal --html POSIX 3 2026",              "<html lang=\"en\"" + ltr                                    },
        {"cal --html -w de_DE 12 2025",          "<tr><th scope=\"row\">1</th><td><time datetime="
                                        "\"2025-12-29\">29</time></td>"},
        {"cal --html he_IL.unicode@hebr 7 5784",
         "<time datetime=\"2024-04-08\">29</time><small>8</small>"                                            },
        {"info --html fa_IR",                    "<html lang=\"en\"" + ltr                                    },
        {"info --html fa_IR",                    "<th scope=\"row\">days</th><td lang=\"fa-IR\"" + rtl        },
        {"info --html ar_SA.8859-6@islm",        "<td lang=\"ar-SA\"" + rtl                                   },
        {"info --html ja_JP.EUC-JP",             "<td lang=\"ja-JP\"" + ltr + ">2026年11月21日"            },
        {"order --html fa_IR",                   "<th scope=\"row\" lang=\"fa-IR\"" + rtl + ">پ</th>"        },
        {"order --html cs_CZ.8859-2",            " title=\"one element\">ch</th>"                             },
        {"chart --html ibm037",                  "<th scope=\"row\">4x</th><td class=\"name\">SP<"            },
        {"chart --html ibm037",                  "<td>&lt;</td>"                                              },
        {"chart --html SHIFT_JIS",               "<span>Lead byte 82</span>"                                  },
    };
    for (const auto &row : rows)
        shows(row.args, row.part);
    writes("cal --html -o page de_DE 3 2026 && wc -l < page | grep -c '[1-9]'", "1\n");
    fails(2, "info --html --json de_DE", "excludes");
    fails(4, "order --html -o none/page de_DE", "cannot write none/page");
}

// ---- Orders ----

TEST_F(KovaCli, OrderIsThatOfComparison) {
    for (const std::string name :
         {"de_DE.unicode", "sv_SE.unicode", "fr_CA.unicode", "th_TH.unicode", "my_MM.unicode",
          "ja_JP.unicode", "cs_CZ.8859-2", "hu_HU.8859-2", "da_DK.8859-1", "fa_IR.unicode"}) {
        const outcome got = kova("order --json -n 0 " + name);
        ASSERT_EQ(got.status, 0) << name << got.err;
        std::vector<std::pair<std::string, int>> letters;
        const auto json = nlohmann::json::parse(got.out);
        for (const auto &group : json["groups"])
            for (const auto &letter : group["letters"]) {
                std::string text = letter["text"];
                if (text.starts_with("◌")) text.erase(0, 3);
                letters.push_back({text, letter.value("level", 1)});
            }
        EXPECT_GT(letters.size(), 40U) << name;
        ko_lc_t loc;
        ASSERT_EQ(ko_open_locale(&loc, root.c_str(), name.c_str(), 0), 0) << name;
        for (size_t i = 1; i < letters.size(); ++i) {
            const auto &[a, level_a] = letters[i - 1];
            const auto &[b, level] = letters[i];
            EXPECT_EQ(ko_utf8scoll(loc, a.data(), a.size(), b.data(), b.size()), level ? -1 : 0)
                << name << " " << a << " " << b;
        }
        ko_close_locale(loc);
    }
}

TEST_F(KovaCli, OrderShowsLevelsAndKeys) {
    const std::string de = "order de_DE.unicode ";
    shows("order cs_CZ.8859-2", "\nh   <<< H\nch  <<< cH <<< Ch <<< CH\ni   <<< I");
    shows(de, "\nlevel 2  forward  <<    a << á\nlevel 3  forward  <<<   a <<< A\n");
    shows(de, "\nß  (as ss)\nt  <<< T");
    shows(de + "--script latn -n 0", "\nß  <<< ẞ (as ss)\n");
    shows(de + "--script grek", " letters of grek\n");
    shows(de + "--from x --to y", "\n\nx  <<< X\ny  <<< Y << ý <<< Ý << ŷ <<< Ŷ << ÿ <<< Ÿ\n");
    shows(de + "-n 2", "\næ  <<< Æ (as ae)\n34 more lines; -n 0 shows all\n");
    shows("order fr_CA", "level 2  backward");
    shows("order POSIX", "in code-set order: letters of latn, the usual ones\n\nA\nB\n");
    shows("order th_TH.unicode", "(ignored at level 1)\n");
    for (const std::string locale : {"de_DE.unicode", "cs_CZ.8859-2", "POSIX"}) {
        const std::string text = locale == "POSIX" ? "Ab" : "Chata-ß";
        const auto json =
            nlohmann::json::parse(kova("order --json --of " + text + " " + locale).out);
        std::vector<std::string> sums(json["key"].size());
        for (const auto &part : json["parts"])
            for (size_t i = 0; i < sums.size(); ++i)
                if (part["weights"][i] != "-")
                    sums[i] += (sums[i].empty() ? "" : " ") + std::string(part["weights"][i]);
        EXPECT_TRUE(locale == "POSIX" || json["key"] == sums) << json;
        std::string key = kova("order --of " + text + " " + locale).out;
        key.erase(0, key.rfind("key ") + 4);
        key.erase(std::remove(key.begin(), key.end(), ' '), key.end());
        EXPECT_EQ(key, kova("key " + locale + " " + text).out);
        EXPECT_EQ(json["parts"].size(), locale[0] == 'P' ? 0U : locale[0] == 'c' ? 6U : 7U);
    }
    fails(2, de + "--of a --from b", "excludes");
    shows("order ko_KR", "ko_KR.EUC-KR by weights: letters of hang, the usual ones");
    shows("order de_DE.8859-1 --script all", "de_DE.8859-1 by weights: all characters");
    shows("order de_DE.8859-1 --of 'a b'", "U+0020");
    fails(2, de + "--script klingon", "there is no script \"klingon\"; scripts are all, latn, ");
    fails(1, "order de_DE.8859-1 --of 漢",
          "--of: byte offset 0: ISO-8859-1 has no character U+6F22");
}

#ifndef KOVA_SANITIZED // which takes terabytes of address space
TEST_F(KovaCli, TellsThatMemoryIsExhausted) {
    std::string object = german;
    const size_t answer = object.find("\n", object.find("### LC_MESSAGES")) + 1;
    object.replace(answer, object.find('\n', answer) - answer,
                   "9999999 " + std::string(2 * 9999999, '4'));
    own_root(object);
    command = "";
    fails(3, "ulimit -v 32000; kova info de_DE", "completely: memory is exhausted"); // one string
    fails(3, "ulimit -v 60000; kova info de_DE > page", "kova: memory is exhausted");
    fails(3, "ulimit -v 10000; kovac locale -i de_DE -f ISO-8859-1 -o out", "memory is exhausted");
}

// From where the system can start the commands at all. Before that its loader says so with status
// 127, or, in a few kilobytes between, crashes itself (139).
TEST_F(KovaCli, TellsItInWhateverRoomItStarts) {
    for (const std::string line : {"kova info de_DE.8859-1 57", "kovac registry -o ."}) {
        int told = 0;
        for (int kib = 4000, status = 127; status && kib < 20000; kib += 100) {
            const outcome got = shell("ulimit -v " + std::to_string(kib) + "; exec " + line);
            status = got.status;
            if (!status || status == 127 || (status == 139 && !told)) continue;
            EXPECT_EQ(status, 3) << kib << got.err;
            EXPECT_NE(got.err.find("memory is exhausted"), got.err.npos) << kib << got.err;
            ++told;
        }
        EXPECT_GT(told, 0) << line;
    }
}
#endif

TEST_F(KovaCli, SaysWhichLocalesExist) {
    fs::create_directory(dir / "empty");
    fails(3, "info de_DE.8859-7",
          "there is no locale de_DE.8859-7; de_DE exists as de_DE.ISO-8859-1");
    fails(3, "info de_DE.klingon", "no code set is called \"klingon\"; de_DE exists as");
    fails(3, "info ru_RU", "several code sets, name one: ru_RU.");
    fails(3, "info qq_QQ.8859-1", "there is no locale qq_QQ.8859-1; there are ");
    fails(3, "info german", "\"german\" is not a locale name");
    fails(3, "info de", "like de_DE.8859-1; there are de_DE.ISO-8859-1, de_DE.unicode\n");
    fails(3, "info de-de", "; de_DE exists as de_DE.ISO-8859-1, de_DE.unicode\n");
    fails(3, "info de_DE.", "no code set is called \"\"");
    fails(3, "info de_DE.8859-1@toolong", "there is no locale de_DE.8859-1@toolong");
    writes("compare fr_fr a b", "<\n"); // one code set: no need to name it
    writes("compare de_de.819 a b", "<\n");
    fails(3, "locales --root empty/no", "there is no directory");
    fails(3, "locales --root empty", "holds no locale objects");
    environment["VANTORDIR"] = "empty";
    fails(3, "locales", "VANTORDIR: empty");
    writes("compare --root " + root + " POSIX a b", "<\n");
    environment["KO_PATH"] = root + "/kova/lc11;" + root + "/kova/cm3";
    writes("compare sv_SE.8859-1 ö z", ">\n");
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
        shows("info POSIX", "LINE=199");
        shows("info POSIX", "ANSI_X3.4-1968");
    }
}

TEST_F(KovaCli, MarksDamagedObjectsAndRefusesThem) {
    const fs::path french = own_root(german) / "lc11/fr_fr";
    fs::create_directories(french);
    spit(french / "0333.lco", german);
    for (const std::string &damaged : {""s, "hello\n"s, german.substr(0, german.size() / 2)}) {
        own_root(damaged);
        fails(3, "info de_DE", "is damaged or not a locale object");
        const outcome list = kova("locales");
        EXPECT_EQ(list.status, 3);
        EXPECT_NE(list.out.find("! de_DE"), std::string::npos) << list.out;
        EXPECT_EQ(list.out.find("! fr_FR"), std::string::npos) << list.out;
    }
}

TEST_F(KovaCli, TakesBytesOfTheCodeSetOrUtf8) {
    environment["LC_ALL"] = "C";
    writes("sort -l sv_SE.8859-1", "z\n\xE5\n\xE4\n\xF6\n", "\xF6\n\xE4\nz\n\xE5\n");
    writes("upper de_DE.8859-1 '\xE4'", "\xC4\n");
    writes("upper --utf8 de_DE.8859-1 ä", "Ä\n");
    writes("width ja_JP.EUC-JP", "2\n1\n", "\xB4\xC1\n\x8E\xB1\n");
    // Lines end with the code set's own newline: 0x25 in EBCDIC, two bytes in "unicode".
    environment["LC_ALL"] = "";
    environment["LANG"] = "de_DE.utf8";
    writes("upper de_DE.8859-1 ä", "Ä\n");
    writes("upper --bytes de_DE.8859-1 '\xE4'", "\xC4\n");
    writes("sort --bytes -l en_US.IBM037", "\x81\x25\x82\x25", "\x82\x25\x81\x25");
    writes("sort --bytes -l de_DE.unicode", "\0a\0\n\1\0\x0A\5\0\n\0B\0\n"s,
           "\1\0\x0A\5\0\n\0B\0\n\0a\0\n"s);
    fails(1, "sort --bytes -l de_DE.unicode", "byte offset 4", "\0b\0\n\0"s);
    writes("sort", "Öl\nOma\nZebra\n", "Öl\nZebra\nOma\n"); // LANG names the order
}

TEST_F(KovaCli, MapsCaseOfTextsAndOfStreams) {
    writes("upper tr_TR.8859-9 istanbul ığ", "İSTANBUL\nIĞ\n");
    writes("lower tr_TR.8859-9 ISPARTA", "ısparta\n");
    writes("upper de_DE.unicode x𐐨😀𞤢", "X𐐀😀𞤀\n");
    writes("lower de_DE.unicode --bytes", "\0x\xD8\x01\xDC\x28\xD8\x01"s,
           "\0X\xD8\x01\xDC\0\xD8\x01"s);
    // Longer than a block, with characters across every block's end.
    for (size_t shift = 0; shift < 3; ++shift) {
        std::string text(shift, 'a'), want(shift, 'A');
        for (int i = 0; i < 250000; ++i)
            text += "äя\0"s, want += "ÄЯ\0"s;
        file("t", text);
        writes("upper de_DE.unicode", want, text);
        writes("upper de_DE.unicode -f t", want);
    }
}

TEST_F(KovaCli, WritesKeysThatOrderAsTextsCompare) {
    command = "kova compare ";
    writes("fr_FR.8859-1 coté côte", "<\n");
    writes("de_DE.unicode côté coté", ">\n");
    writes("de_DE.unicode '' ''", "=\n");
    const std::string key = kova("key fr_FR.8859-1 coté").out;
    EXPECT_LT(key, kova("key fr_FR.8859-1", "côte\n").out);
    EXPECT_EQ(kova("key --raw fr_FR.8859-1 coté").out.size(), (key.size() - 1) / 2);
}

TEST_F(KovaCli, ShowsCharactersItemsAndMonths) {
    shows("classify ja_JP.EUC-JP a漢", "a     U+0061  61     0x0061  A      -      lower alpha");
    shows("classify ja_JP.EUC-JP a漢", "漢    U+6F22  b4 c1  0xB4C1  -      -      alpha");
    shows("classify de_DE.unicode 𝄞", "U+1D11E  d8 34 dd 1e  0xD834 0xDD1E  -      -      punct");
    shows("classify de_DE.unicode 𐐨😀", "0xD801 0xDC28  𐐀      -      lower alpha graph print\n😀");
    shows("classify de_DE.unicode 😀x\u0301",
          "-      -      punct graph print full_width\nx     U+");
    shows("info de_DE.8859-1", "RADIXCHAR              55  ,");
    shows("info --all --utf8 en_US.IBM037", "fractions      -1,234.50\n");
    shows("info --all --utf8 en_US.IBM037", "date           11/21/2026\n");
    shows("info --all --utf8 en_US.IBM037", "money owed     -$1,234.50\n");
    shows("info --all --utf8 en_US.IBM037", "calendar       gregorian\n");
    shows("cal de_DE.8859-1 märz 2024",
          "     März 2024\nMo Di Mi Do Fr Sa So\n             1  2  3\n 4  5");
    shows("cal ja_JP.EUC-JP 2 2026", " 2月 2026 (令和8年)\n日 月 火 水 木 金 土\n 1  2  3");
    shows("cal he_IL.8859-8@hebr 7 5784",
          "     א'       ב'       ג'       ד'       ה'       ו'     "
          "  ש'\n          1 (11)   2 (12)   3 (13)");
    shows("cal he_IL.unicode@hebr ניסן 5784", "                   2024-04-09 - 2024-05-08\n");
    shows("cal he_IL.unicode@hebr אדר 5783", "21 (14)  22 (15)  23 (16)  24 (17)  25 (18)\n");
    shows("cal ar_SA.8859-6@islm 9 1420",
          "رمضان 1420\n                   1999-12-08 - 2000-01-06\n");
    shows("cal POSIX", "\nSun Mon Tue Wed Thu Fri Sat\n");
    shows("cal -w -3 de_DE 1 2026",
          "     Dezember 2025               Januar 2026                Februar 2026\n"
          "    Mo Di Mi Do Fr Sa So       Mo Di Mi Do Fr Sa So       Mo Di Mi Do Fr Sa So\n"
          "49   1  2  3  4  5  6  7    1            1  2  3  4    5                     1\n");
    shows("cal ja_JP 1 1989", "1月 1989 (昭和64年 - 平成元年)\n");
    shows("cal ja_JP 1 昭和64年", "1月 1989 (昭和64年 - 平成元年)\n");
    shows("cal th_TH พ.ศ.2569", "2026 (พ.ศ. 2569)");
    fails(2, "cal th_TH 11 2569", "พ.ศ. 2569 is 2026; the year 2569 itself is \"พ.ศ. 3112\"");
    fails(2, "cal ja_JP 11 foo", "\"foo\" is not a year");
    shows("cal he_IL.unicode@hebr 5784 | grep -c ' - '", "13\n");
    shows("cal de_DE 2024 | grep -cE '^ *[A-Z].* 2024$'", "4\n");
    EXPECT_EQ(kova("cal --bytes en_US.IBM037 2 2024").out.substr(7, 9),
              "\xC6\x85\x82\x99\xA4\x81\x99\xA8\x40"); // "February "
    const std::string counts = kova("classify --count de_DE.8859-1", "Ab 1ä\n").out;
    for (const std::string row : {"upper 1", "lower 2", "digit 1", "alnum 4", "space 2", "lines 1",
                                  "bytes 7", "all characters 6"}) {
        const size_t line = counts.find(row.substr(0, row.rfind(' ')) + "  ");
        ASSERT_NE(line, counts.npos) << row;
        EXPECT_EQ(counts[counts.find('\n', line) - 1], row.back()) << row;
    }
}

TEST_F(KovaCli, WritesObjectsOfJson) {
    writes("compare -l de_DE.8859-1 'ä\"' z --json",
           "{\"a\":\"ä\\\"\",\"b\":\"z\",\"order\":\"<\"}\n");
    const std::string key = kova("key de_DE ü").out;
    writes("key de_DE --json",
           "{\"text\":\"ü\",\"key\":\"" + key.substr(0, key.size() - 1) + "\"}\n", "ü\n");
    writes("classify de_DE --json -- - | cut -d , -f 1-2,5-6",
           "{\"char\":\"-\",\"code\":\"U+002D\",\"upper\":null,\"lower\":null\n");
    shows("classify de_DE --count --json < .out", "{\"class\":\"lines\",\"characters\":0}\n");
    writes("width ja_JP --json", "{\"line\":1,\"columns\":4}\n{\"line\":2,\"columns\":1}\n",
           "漢字\na");
    writes("width ja_JP --json --widest", "{\"columns\":4}\n", "漢字\na");
    writes("count ja_JP --json",
           "{\"lines\":1,\"characters\":3,\"bytes\":7,\"columns\":4,\"file\":null}\n", "漢字\n");
    writes("cal he_IL.unicode@hebr --json 7 5784 | tail -n 1",
           "{\"month\":\"אדר ב' 5784\",\"day\":29,\"date\":\"2024-04-08\",\"weekday\":\"שני\","
           "\"week\":15}\n");
    shows("convert --list --json", "{\"number\":273,\"code set\":\"");
    fails(2, "key de_DE a --json --raw", "--raw excludes --json");
    const std::string lines = kova("cal --json de_DE 2026; kova convert --list --json").out;
    for (size_t at = 0, end; (end = lines.find('\n', at)) != lines.npos; at = end + 1)
        EXPECT_TRUE(nlohmann::json::accept(lines.substr(at, end - at)))
            << lines.substr(at, end - at);
}

TEST_F(KovaCli, HelpsWithinTheColumnsOfTheTerminal) {
    writes("--version; kovac --version", "kova 2.86\nkovac 2.86\n");
    const std::string all = kova("--help").out;
    std::string names = "text fold\ntext wrap\ntext expand\ntext unexpand\ntext table\n";
    for (const char *at = all.c_str(); (at = std::strstr(at, "\n  ")) != nullptr; at += 3)
        if (at[3] >= 'a' && at[3] <= 'z') names += std::string(at + 3, strcspn(at + 3, " ")) + "\n";
    EXPECT_EQ(std::count(names.begin(), names.end(), '\n'), 30) << names;
    for (size_t at = 0, end; (end = names.find('\n', at)) != names.npos; at = end + 1) {
        const std::string name = names.substr(at, end - at), help = kova(name + " --help").out;
        EXPECT_EQ(help, kova("help " + name).out);
        EXPECT_TRUE(name == "text" || help.find("Examples:\n  kova ") != help.npos) << name;
        EXPECT_EQ(shell("kova " + name + " --help | kova width de_DE --widest | awk '$1 > 80'").out,
                  "")
            << name;
    }
    EXPECT_EQ(shell("COLUMNS=50 kova cal --help | awk 'length > 50 && !/^  kova/'").out, "");
    fails(2, "", "kova needs a command, one of those below");
    fails(2, "text", "kova text needs a command");
    fails(2, "text foldd", "there is no command \"text foldd\"; the nearest is fold");
    EXPECT_EQ(kova("frobnicate").err.find("nearest"), std::string::npos);
    fails(2, "frobnicate", "\n  sort compare key ");
    const outcome lost = shell("kovac frobnicate");
    EXPECT_EQ(lost.status, 2);
    EXPECT_NE(lost.err.find("one of charmap convert image locale pack"), lost.err.npos) << lost.err;
    fails(2, "sort --revers", "there is no option --revers; kova sort --help lists all");
    fails(2, "money", "LOCALE is missing; kova money --help");
}

TEST_F(KovaCli, TakesTheLocaleByNameAndNegativeValues) {
    environment.erase("LC_ALL");
    writes("compare A b -l de_DE", "<\n");
    writes("money --locale=de_DE %n -5 -1234.5 --stop", "-5,00 €\n-1.234,50 €\n");
    writes("number de_DE \"%'f\" --parse -1.234,5 -3", "-1234.5\n-3\n");
    writes("number -l de_DE %d -- -5", "-5\n");
    writes("date %x '-3 days' -l de_DE > x; test -s x", "");
    writes("cal -3 -l de_DE 2 2026 | head -n 1 | cut -c 1-20", "    Januar 2026     \n");
    writes("verify -lde_DE -", "", "a\nb\n");
    for (const std::string line :
         {"upper de_DE ü",     "lower de_DE Ü",      "number de_DE ü%d 1",
          "money de_DE ü%n 1", "date de_DE ü%Y",     "parse-date de_DE %dü 3ü",
          "classify de_DE ü",  "order de_DE --of ü", "locale de_DE mon",
          "info de_DE MON_3",  "info --all de_DE",   "cal de_DE märz 2026",
          "compare de_DE ü v", "key de_DE ü",        "sort -l de_DE",
          "width de_DE",       "count de_DE",        "trim de_DE",
          "text fold de_DE",   "text table de_DE",   "locales --language de"}) {
        const outcome got = kova(line, "ü\n");
        EXPECT_EQ(got.status, 0) << line << got.err;
        EXPECT_EQ(got.out, kova(line + " --utf8", "ü\n").out) << line;
    }
}

TEST_F(KovaCli, KnowsMonthsWithoutADay) {
    std::string lines;
    for (int i = 1; i <= 12; ++i)
        lines += "ALT_MON_" + std::to_string(i) + "=4c" + (i == 3 ? "e46e7a\n" : "6d\n");
    own_root(with_header_lines(german, lines, 12));
    shows("cal de_DE.8859-1 3 2024", " Länz 2024\n");
    shows("cal de_DE.8859-1 länz 2024", " Länz 2024\n");
    shows("cal de_DE.8859-1 März 2024", " Länz 2024\n");
    shows("cal de_DE.8859-1 ' länz' 2024", " Länz 2024\n");
    writes("date de_DE.8859-1 '%OB %B %Ob|%6OB|%-5.3OB|%06.2Ob|%-4.1V|%5G|%6Z|' --at 2024-03-05 "
           "--zone UTC",
           "Länz März Mär|  Länz|Län  |0000Mä|10  | 2024|   UTC|\n");
    writes("parse-date de_DE.8859-1 '%d. %B %Y' '5. länz 2024'", "2024-03-05 00:00:00\n");
    fails(1, "parse-date de_DE.8859-1 '%d. %B %Y' '5. Lm 2024'", "the text is both 2024-01-05 and");
}

// Nested repeats, which a matcher that goes back would try for hours.
TEST_F(KovaCli, MatchesAnswersInBoundedTime) {
    static constexpr char yes[] = "9 5e5b2b316a4a79595d\n";                          // ^[+1jJyY]
    static constexpr char endless[] = "19 5e28617c6161292a28617c6161292a28622429\n"; // ^(a|aa)*...
    std::string object = german;
    const size_t at = object.find(yes);
    ASSERT_NE(at, object.npos);
    own_root(object.replace(at, sizeof yes - 1, endless));
    const outcome got = shell("timeout 20 kova locale de_DE.8859-1 --yes " + std::string(200, 'a'));
    EXPECT_EQ(got.status, 2) << got.err;
    EXPECT_EQ(got.out, "neither\n");
}

TEST_F(KovaCli, ShowsTheMonthOfUmmAlQura) {
    std::string islamic = slurp(root + "/kova/lc11/ar_sa/0441islm.lco");
    for (size_t at; (at = islamic.find("UMALQURA")) != islamic.npos;)
        islamic.replace(at, 8, "-"); // where the compiler has found ICU
    own_root(with_header_lines(islamic, "UMALQURA=1444 19203\nUMALQURA_1=595749\n", 2),
             "lc11/ar_sa/0441islm.lco");
    shows("cal ar_SA.8859-6@islm 9 1444", " Umm al-Qura: 2023-03-23 - 2023-04-20\n");
    shows("cal ar_SA.8859-6@islm 12 1445", " Umm al-Qura: 2024-06-07 - 2024-07-06\n");
    writes("cal ar_SA.8859-6@islm 1 1446 | grep -c Umm || :", "0\n");
}

TEST_F(KovaCli, TakesTimesAsPeopleTypeThem) {
    static const char *const rows[][3] = {
        {"--at @1700000000.5 --zone UTC",               "%Y-%m-%d %T %iF %Z %s",
         "2023-11-14 22:13:20 .50 UTC 1700000000"                                                        },
        {"--at @-0.5 --zone UTC",                       "%T%iF %s",              "23:59:59.50 -1"        },
        {"--at 20261025T0230+0530 --zone +02:00",       "%Y-%m-%d %R %z",        "2026-10-24 23:00 +0200"},
        {"--at 2026-W53-5",                             "%Y-%m-%d",              "2027-01-01"            },
        {"--at 2027-01-01",                             "%G-W%V-%.1u",           "2026-W53-5"            },
        {"--at 2024-366T23",                            "%m-%d %H",              "12-31 23"              },
        {"--at '2026-03-01 12:00 -1 month'",            "%m-%d %R",              "02-01 12:00"           },
        {"--at '2024-02-29 3 weeks ago'",               "%m-%d %a",              "02-08 Thu"             },
        {"--at 2026-11-21T23:59:60Z --zone UTC",        "%T",                    "23:59:60"              },
        {"--at '2026-11-21 12:30AM in 2 hours'",        "%R",                    "02:30"                 },
        {"--at '9 pm 2026-11-21 '",                     "%d %R",                 "21 21:00"              },
        {"--at '2026-11-21 saturday'",                  "%d",                    "21"                    },
        {"--from 9999-12-30 --to 9999-12-31",           "%d",                    "30\n31"                },
        {"--at 2026-02-28T24:00",                       "%m-%d %R",              "03-01 00:00"           },
        {"--at 'T1430 2026-11-21'",                     "%d %R",                 "21 14:30"              },
        {"--at 2026-02-28t14.25",                       "%T",                    "14:15:00"              },
        {"--at 2026-02-28T14:30,0125",                  "%T %iF",                "14:30:00 .75"          },
        {"--at '2026-02-28 14:30 +0130' --zone UTC",    "%R",                    "13:00"                 },
        {"--at '9 pm UTC 2026-02-28' --zone +01",       "%R",                    "22:00"                 },
        {"--at '24 Dec 2026'",                          "%m-%d",                 "12-24"                 },
        {"--at 'Thu, dec 24th, 2026 9 pm'",             "%m-%d %R",              "12-24 21:00"           },
        {"--at 'first monday of december 2026'",        "%m-%d",                 "12-07"                 },
        {"--at 'last day of february 2028 +1w'",        "%m-%d",                 "03-07"                 },
        {"--at 'last sunday of sept. 2026'",            "%m-%d",                 "09-27"                 },
        {"--from 2026-01-30 --to 2026-02-10 --step 1w", "%d",                    "30\n06"                },
    };
    for (const auto &row : rows)
        writes("date en_US.8859-1 '"s + row[1] + "' " + row[0], row[2] + "\n"s);
    writes("date en_US.8859-1 --at '2026-01-01 +36 hours' -I", "2026-01-02\n");
    writes("date en_US.8859-1 --rfc-3339 ns --at '2026-01-01 14:30:05.25' --zone -03:30",
           "2026-01-01 14:30:05.250000000-03:30\n");
    writes("date en_US.8859-1 %m-%d --from 2026-01-31 --to 2026-03-31 --step 1month",
           "01-31\n02-28\n03-31\n", "",
           "February 2026 has 28 days; for day 31, 2026-02-28 is taken");
    writes("date en_US.8859-1 %F --at 2026-01-01", "000000\n", "", "%Y-%m-%d writes a date");
    writes("date en_US.8859-1 %A --at 'last monday'", "Monday\n");
    static const char *const refused[][2] = {
        {"--at 2025-W53-1",                                "2025 has no day 1 of a week 53"},
        {"--at '+9999999999 months'",                      "outside the years 0000 to 9999"},
        {"--at 12:00:60",                                  "is not a date and time"        },
        {"--at '2026-11-21 +574476768 hours'",             "outside the years 0000 to 9999"},
        {"--at '@0 14:30'",                                "beside what stands for both"   },
        {"--at '9.30 pm'",                                 "is not a date and time"        },
        {"--at '24 Dec 26'",                               "a year has four digits"        },
        {"--at 'fifth monday of june 2026 +1m'",           "is not a date and time"        },
        {"--at 'tue 24 Dec 2026'",                         "2026-12-24 is a thursday"      },
        {"--at 'in 3 days ago'",                           "is not a date and time"        },
        {"--iso-8601 seconds",                             "FORMAT excludes --iso-8601"    },
        {"-Iweeks",                                        "weeks not in {"                },
        {"--zone zone.tab",                                "has no such time zone"         },
        {"--from 2026-01-01 --to 2026-02-01 --step 0days", "does not lead on"              },
        {"--from 2026-01-01 --to 2025-02-01",              "is after --to"                 },
    };
    for (const auto &row : refused)
        fails(2, "date en_US.8859-1 "s + row[0], row[1]);
    writes("date de_DE %m-%d --at 'Do, 24. DEZ. 2026'", "12-24\n");
    writes("date pl_PL %m-%d --at '3 listopada 2026'", "11-03\n");
    writes("date de_DE %m-%d --at '3. MÄRZ'", "03-03\n", "", "the date has no year: 20");
    writes("date fr_FR %m-%d --at '3 mar 2026'", "03-03\n");
    fails(2, "date fr_FR --at mar", "\"mar\" could be several months or days");
    fails(2, "date th_TH --at '3 มกราคม 2569'", "is not a date and time");
    if (!fs::exists("/usr/share/zoneinfo/Europe/Paris")) return;
    writes("date en_US.8859-1 '%R %Z %z' --at 2026-10-25T01:30Z --zone Europe/Paris",
           "02:30 CET +0100\n");
    writes("date en_US.8859-1 '%R %Z' --at '2026-10-25 02:30' --zone Europe/Paris", "02:30 CEST\n",
           "", "happens twice");
    fails(2, "date en_US.8859-1 --at '2026-03-29 02:30' --zone Europe/Paris", "clocks skip it");
    writes("date en_US.8859-1 --rfc-3339 seconds --at 1880-01-01 --zone Europe/Paris",
           "1879-12-31 23:59:39+00:09\n", "", "has 21 seconds, which are not written");
    writes("date en_US.8859-1 '%T %z' --at 1880-01-01 --zone Europe/Paris", "00:00:00 +0009\n", "",
           "has 21 seconds");
    writes("date en_US.8859-1 %R --from 2026-03-28T02:30 --to 2026-03-29T04:00 --step 1day "
           "--zone Europe/Paris",
           "02:30\n03:30\n", "", "there is no 2026-03-29 02:30:00");
}

TEST_F(KovaCli, TellsItemsAndDatesAndMarksWhatFails) {
    writes("info de_DE.8859-1 MON_3 ko_radixchar 60 p_sign_posn", "März\n,\nISO-8859-1\n1\n");
    writes("info --json de_DE.8859-1 57 | tail -n 4",
           "  \"items\": {\n    \"YESSTR\": \"ja\"\n  }\n}\n");
    writes("info --utf8 en_US.IBM037 60 73", "IBM037\ngregorian\n");
    fails(2, "convort", "there is no command \"convort\"; the nearest is convert");
    fails(2, "mony de_DE %n 5", "the nearest is money");
    fails(2, "sotr README.md", "the nearest is sort");
    fails(2, "info de_DE.8859-1 74", "there is no item \"74\"");
    writes("date de_DE.8859-1 '%A, %.1d. %B %Y' --at 2026-03-07", "Samstag, 7. März 2026\n");
    writes("date --utf8 en_US.IBM037 %c --at '2026-11-21 14:30:05'",
           "Sat 21 Nov 2026 02:30:05 PM\n");
    writes("date ja_JP.EUC-JP '%EY|%F3' --at 2019-05-01T00:00:00.25", "令和元年|250\n");
    writes("date he_IL.unicode@hebr '%d %B %Y' --at 2026-11-21", "11 כסלו 5787\n");
    fails(2, "date ja_JP.EUC-JP '令和 %A%q'", "directive 2, %q, at character 6");
    fails(2, "date ja_JP.EUC-JP '令和 %A%q'", "\n  令和 %A%q\n         ^~");
    fails(2, "date de_DE.8859-1 --at 2026-02-29", "--at \"2026-02-29\": February 2026 has 28 days");
    fails(2, "date de_DE.8859-1 --at ''", "--at \"\"");
    fails(2, "date de_DE.8859-1 --at '2026-02-01 12:30.5'", "--at \"2026-02-01 12:30.5\"");
    fails(2, "date de_DE.8859-1 --at '2026-02-01 24:01'", "--at \"2026-02-01 24:01\"");
    fails(2, "cal he_IL.unicode@hebr 13 5783", "no such month");
    fails(2, "cal he_IL.unicode@hebr \"אדר א'\" 5783", "no such month");
    fails(2, "cal he_IL.unicode@hebr 1 14001", "cannot be converted");
    fails(2, "cal de_DE.8859-1 Smarch", "\"Smarch\" is not a month of de_DE");
    EXPECT_NE(kova("cal de_DE.8859-1 1 26").err.find("the year 26 itself"), std::string::npos);
    fails(2, "cal de_DE.8859-1 1 last", "\"last\" is not a year");
    fails(2, "cal de_DE.8859-1 1 99999", "no such month");
    for (const char *line : {"", "nonsense", "compare POSIX a", "sort --utf8 --bytes",
                             "sort -l POSIX -k 0", "sort -l POSIX -k 3,2", "classify POSIX",
                             "sort -l POSIX -k 2 -t ab", "sort -l POSIX --buffer-size 9X"})
        EXPECT_EQ(kova(line).status, 2) << line;
}
