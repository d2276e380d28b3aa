// The commands width, trim and count; and the widths of compiled locales against the charmaps that
// they were compiled from.
#include "command_run.h"
#include "fixture.h"

#include <stdio.h>
#include <sys/wait.h>

namespace fs = std::filesystem;
using namespace std::string_literals;

static const std::string root = env("KOVA_TEST_ROOT");

static outcome run(const temp_dir &dir, const std::string &args, const std::string &in,
                   const char *lang = "C.UTF-8") {
    dir.write("in", in);
    const std::string line = "cd " + dir.path + " && VANTORDIR=" + root +
                             " KO_PATH= LC_ALL=" + lang + " " + env("KOVA_BIN_DIR") + "/kova " +
                             args + " < in > out 2> err";
    const int status = std::system(line.c_str());
    return {WEXITSTATUS(status), dir.read("out"), dir.read("err")};
}

TEST(KovaWidth, WidthTrimAndCount) {
    if (!fs::is_directory(root + "/kova/lc11")) GTEST_SKIP() << "no compiled locales: " << root;
    static const struct {
        const char *args;
        std::string in, want;
        const char *lang = "C.UTF-8";
    } rows[] = {
        {"width ja_JP.EUC-JP", "漢字a\nab\tc\n\nｱ x ", "5\n-1\n0\n4\n"           },
        {"width ja_JP.EUC-JP", "\xB4\xC1\n\x8E\xB1\n",     "2\n1\n",                   "C"},
        {"width --widest de_DE.unicode",                    "ab\nabcd\n\t\n",                 "4\n"       },
        {"width de_DE.unicode",                    "",                          ""                       },
        {"width --replace de_DE.8859-1",                    "a\nb€\nc\n",                 "1\n-1\n1\n"},
        {"width en_US.IBM037 --bytes",                    "\xC8\x89\x25\x81",                   "2\n1\n"                     },
        {"trim ja_JP.EUC-JP",                    "漢 a \t　\n \r\nb \r\n　\nx  ",                            "漢 a\n\r\nb\r\n\nx"},
        {"trim de_DE.unicode --bytes",                    "\0a\0 \0\n\0 \0b"s,                   "\0a\0\n\0 \0b"s                           },
        {"trim --replace de_DE.8859-1",                    "a€ \n \xFF\n",                  "a€\n \xFF\n"},
        {"trim de_DE.unicode - in",                    "a \n ",                      "a\na\n"                                        },
        {"count ja_JP.EUC-JP",                    "Ab漢\n\nx",
         "lines  characters  bytes  columns  file\n    2           6      8        5  -\n"},
        {"count de_DE.unicode in in",                    "𝄞\n",
         "lines  characters  bytes  columns  file\n    1           2      5        0  in\n"
         "    1           2      5        0  in\n    2           4     10        0  total\n"                                     },
        {"count --replace de_DE.8859-1",                    "a€\n",
         "lines  characters  bytes  columns  file\n    1           3      5        1  -\n"},
    };
    const temp_dir dir;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.args + row.in);
        const outcome got = run(dir, row.args, row.in, row.lang);
        EXPECT_EQ(got.status, 0) << got.err;
        EXPECT_EQ(got.out, row.want);
    }
    for (const char *command : {"width", "trim", "count"}) {
        const outcome got = run(dir, std::string(command) + " de_DE.8859-1", "a\nb€\n");
        EXPECT_EQ(got.status, 1);
        EXPECT_NE(got.err.find("standard input:2: byte offset 3: "), std::string::npos) << got.err;
    }
    EXPECT_EQ(run(dir, "trim de_DE.unicode -o in in", "a \n").status, 0);
    EXPECT_EQ(dir.read("in"), "a\n");
}

// Lines, characters and runs of spaces across the ends of many blocks.
TEST(KovaWidth, BlocksDoNotShow) {
    if (!fs::is_directory(root + "/kova/lc11")) GTEST_SKIP() << "no compiled locales: " << root;
    const temp_dir dir;
    std::string text, trimmed, widths;
    for (const size_t n : {0u, 70000u, 1u, 3u, 700000u, 2u}) {
        std::string words;
        for (size_t i = 0; i < n; ++i)
            words += i % 3 ? "漢" : "  ";
        words += "x";
        text += words + std::string(2 * n, ' ') + "\n";
        trimmed += words + "\n";
        const size_t wide = n - (n + 2) / 3, spaces = 2 * ((n + 2) / 3) + 2 * n;
        widths += std::to_string(2 * wide + spaces + 1) + "\n";
    }
    EXPECT_TRUE(run(dir, "trim de_DE.unicode", text).out == trimmed);
    EXPECT_EQ(run(dir, "width de_DE.unicode", text).out, widths);
}

// ---- Widths as the charmaps say ----------------------------------------------------------------

namespace {

// What a charmap file says of its characters of one or two bytes.
struct widths_of_charmap {
    std::map<std::string, std::string> bytes; // by symbol
    std::map<std::string, int> width;         // by bytes
};

std::vector<std::string> symbols_of(const std::string &line) {
    std::vector<std::string> found;
    for (size_t at = 0; (at = line.find('<', at)) != line.npos;) {
        const size_t end = line.find('>', at);
        found.push_back(line.substr(at, end - at + 1));
        at = end;
    }
    return found;
}

// "/xb4/xc1" as bytes.
std::string byte_text(const std::string &line) {
    std::string bytes;
    for (size_t at = 0; (at = line.find("/x", at)) != line.npos; at += 4)
        bytes += static_cast<char>(std::stoi(line.substr(at + 2, 2), nullptr, 16));
    return bytes;
}

// A range of widths runs in the order of the bytes.
void read_width(widths_of_charmap &map, const std::string &line) {
    const std::vector<std::string> ends = symbols_of(line);
    if (ends.empty() || !map.bytes.count(ends.front()) || !map.bytes.count(ends.back())) return;
    const std::string &first = map.bytes[ends.front()], &last = map.bytes[ends.back()];
    const int width = std::stoi(line.substr(line.rfind('>') + 1));
    for (auto &[bytes, columns] : map.width) {
        if (bytes.size() == first.size() && bytes >= first && bytes <= last) columns = width;
    }
}

bool read_charmap(const std::string &name, widths_of_charmap &map) {
    const std::string path = "/usr/share/i18n/charmaps/" + name + ".gz";
    if (!fs::exists(path)) return false;
    FILE *const pipe = popen(("gzip -dc " + path).c_str(), "r");
    char buf[1000];
    for (std::string section; fgets(buf, sizeof buf, pipe);) {
        const std::string line = buf, word = line.substr(0, line.find_first_of(" \n"));
        if (word == "CHARMAP" || word == "WIDTH" || word == "END") {
            section = word;
        } else if (section == "CHARMAP" && line[0] == '<') {
            const std::string bytes = byte_text(line);
            if (bytes.size() > 2 || line.find(">..") != line.npos) continue; // no ranges here
            map.bytes[symbols_of(line)[0]] = bytes;
            map.width[bytes] = 1;
        } else if (section == "WIDTH") {
            read_width(map, line);
        }
    }
    return pclose(pipe) == 0;
}

} // namespace

TEST(CompiledWidths, AreThoseOfTheCharmap) {
    static const char *const rows[][2] = {
        {"ja_JP", "EUC-JP"   },
        {"ja_JP", "SHIFT_JIS"},
        {"ko_KR", "EUC-KR"   },
        {"zh_CN", "GB2312"   },
        {"zh_TW", "BIG5"     },
    };
    if (!fs::is_directory(root + "/kova/lc11")) GTEST_SKIP() << "no compiled locales: " << root;
    const real_variable place("VANTORDIR", root.c_str());
    for (const auto &[locale, charmap] : rows) {
        SCOPED_TRACE(charmap);
        widths_of_charmap map;
        if (!read_charmap(charmap, map)) GTEST_SKIP() << "no charmap " << charmap;
        ko_lc_t loc;
        ASSERT_EQ(ko_lc_load(&loc, (std::string(locale) + "." + charmap).c_str(), nullptr, nullptr),
                  0);
        int narrow = 0, wide = 0;
        for (const auto &[bytes, columns] : map.width) {
            const std::string text = bytes + std::string(2, '\0');
            const int got = ko_mbwidth(loc, mb(text.data()));
            ko_wchar_t wc = 0;
            ko_full_mbtowc(loc, &wc, mb(text.data()), 2);
            EXPECT_EQ(ko_wcwidth(loc, wc), got);
            if (bytes[0] == 0) continue;
            const bool print = im_ismctype(loc, mb(text.data()), KO_CT_PRINT) != 0;
            EXPECT_EQ(got, print ? columns : -1) << testing::PrintToString(bytes);
            EXPECT_TRUE(print || bytes.size() == 1); // only controls are not printable
            narrow += got == 1;
            wide += got == 2;
        }
        EXPECT_GE(narrow, 95);
        EXPECT_GE(wide, 6000);
        ko_lc_unload(loc);
    }
}
