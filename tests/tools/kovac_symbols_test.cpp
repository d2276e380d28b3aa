// Charmap objects as compiled, and the command that uses them.
#include "support/fixture.h"
#include "tools/command_run.h"

#include <sys/wait.h>

namespace fs = std::filesystem;

namespace {

const std::string root = env("KOVA_TEST_ROOT");

// Every character of a charmap, found by asking for the length of each sequence of bytes.
void collect(ko_cm_t cm, std::string &prefix, std::string &all) {
    for (int b = 0; b < 256; ++b) {
        prefix.push_back(static_cast<char>(b));
        const int len = static_cast<int>(prefix.size());
        const int got = ko_cm_mblen(cm, mb(prefix.c_str()), len);
        if (got >= 0)
            all += prefix;
        else if (static_cast<const gen_exports *>(cm)->ko_lerrno == KO_EINVAL && len < 4)
            collect(cm, prefix, all);
        prefix.pop_back();
    }
}

TEST(CompiledCharmaps, TextToSymbolsToTextIsTheIdentity) {
    if (!fs::is_directory(root + "/kova/cm3")) GTEST_SKIP() << "no compiled objects: " << root;
    int objects = 0;
    for (const auto &file : fs::directory_iterator(root + "/kova/cm3")) {
        if (file.path().extension() != ".cmo") continue;
        SCOPED_TRACE(file.path().filename().string());
        ko_cm_t cm;
        ASSERT_EQ(ko_cm_load(&cm, (file.path().filename().string()).c_str(), nullptr,
                             (root + "/kova/cm3").c_str()),
                  0);
        std::string prefix, all;
        collect(cm, prefix, all);
        EXPECT_GE(all.size(), 128U);
        std::vector<char> symbols(all.size() * 40);
        const ko_mchar_t *text = mb(all.data());
        const int len = static_cast<int>(all.size());
        ASSERT_GT(ko_mbstosyms(cm, symbols.data(), static_cast<int>(symbols.size()), &text, len),
                  3 * len / 4);
        std::vector<ko_mchar_t> back(all.size() + 4);
        const char *at = symbols.data();
        const int size = len + ko_mb_cm_min(cm);
        EXPECT_EQ(ko_symstombs(cm, back.data(), size, &at), size);
        EXPECT_TRUE(std::equal(all.begin(), all.end(), back.begin(),
                               [](char a, ko_mchar_t b) { return ko_mchar_t(a) == b; }));
        ko_cm_unload(cm);
        ++objects;
    }
    EXPECT_GE(objects, 20);
}

outcome run(const temp_dir &dir, const std::string &command, const std::string &in) {
    dir.write("in", in);
    const std::string line = "cd " + dir.path + " && PATH=" + env("KOVA_BIN_DIR") +
                             ":$PATH VANTORDIR=" + root + " KO_PATH= LC_ALL=C " + command +
                             " < in > out 2> err";
    const int status = std::system(line.c_str());
    return {WEXITSTATUS(status), dir.read("out"), dir.read("err")};
}

TEST(KovaSymbols, WritesAndReadsSymbolsAndSaysWhereTheyAreWrong) {
    if (!fs::is_directory(root + "/kova/cm3")) GTEST_SKIP() << "no compiled objects: " << root;
    temp_dir dir;
    const std::string many(70000, 'a');
    std::string many_symbols;
    for (size_t i = 0; i < many.size(); ++i)
        many_symbols += "<a>";
    static const struct {
        const char *args;
        std::string in;
        int status;
        std::string out, err;
    } rows[] = {
        {"IBM037",        "\xC1\x4C\x25\xE0",         0, "<A><less-than-sign><newline>\n<backslash>", ""                                                   },
        {"-d IBM037",     "<A>\n <U003C>\t<newline>", 0, "\xC1\x4C\x25",                              ""                                                   },
        {"SHIFT_JIS",     "a\x8a\xbf\n",              0, "<a><U6F22><newline>\n",                     ""                                                   },
        {"SHIFT_JIS",     "ab\n\x8a",                 1, "<a><b><newline>\n",                         "input:2: byte offset 3: the text ends"              },
        {"EUC-JP",        "a\xff",                    1, "<a>",                                       "byte offset 1: bytes that are not a character: ff"  },
        {"-d EUC-JP",     "<a>\n <zork>",             1, "a",                                         "input:2:2: the code set has no character <zork>"    },
        {"-d EUC-JP",     "<a><b",                    1, "a",                                         "input:1:4: a symbol such as <A> is expected, not <b"},
        {"zork",          "a",                        3, "",                                          "code set zork: there is no charmap object"          },
        {"ISO-8859-1",    many,                       0, many_symbols,                                ""                                                   },
        {"-d ISO-8859-1", many_symbols,               0, many,                                        ""                                                   },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.args + (" < " + row.in.substr(0, 40)));
        const outcome got = run(dir, std::string("kova symbols ") + row.args, row.in);
        EXPECT_EQ(got.status, row.status);
        EXPECT_EQ(got.out, row.out);
        EXPECT_NE(got.err.find(row.err), std::string::npos) << got.err;
    }
}

TEST(KovacCharmap, GivesEveryNameAndOneOfItsOwnToEveryCharacter) {
    temp_dir dir;
    dir.write("map",
              "<code_set_name> MY-SET\nCHARMAP\n<U0000> \\x00\n<U0041> \\x41\n<cap-a> \\x41\n"
              "%IRREVERSIBLE%<U0042> \\x41\n<U0042> \\x42\n%IRREVERSIBLE%<U0042> \\x43\n"
              "<j01>..<j12> \\x81\\x41\nEND CHARMAP\n");
    dir.write("reg", "my-set 57600\n");
    ASSERT_EQ(run(dir, "kovac charmap map --registry reg --names posix -o .", "").status, 0);
    const std::string object = dir.read("kova/cm3/e100.cmo");
    EXPECT_NE(
        object.find("\ns 0 A 1 41\ns 0 U0041 1 41\ns 0 cap-a 1 41\ns 0 B 1 42\ns 0 U0042 1 42\n"
                    "s 0 x43 1 43\n"),
        std::string::npos)
        << object;
    const outcome unknown = run(dir, "kovac charmap map -o .", "");
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.err.find("has no number"), std::string::npos);
    EXPECT_EQ(run(dir, "kovac charmap IBM930 -o .", "").status, 1);
    EXPECT_EQ(run(dir, "kovac charmap -o .", "").status, 2);
}

} // namespace
