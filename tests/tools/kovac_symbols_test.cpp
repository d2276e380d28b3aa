// Charmap objects as compiled, and the command that uses them.
#include "tools/command_run.h"

namespace fs = std::filesystem;

namespace {

using KovaSymbols = data_test;

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

using CompiledCharmaps = data_test;
TEST_F(CompiledCharmaps, TextToSymbolsToTextIsTheIdentity) {
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

TEST_F(KovaSymbols, WritesAndReadsSymbolsAndSaysWhereTheyAreWrong) {
    const std::string many(70000, 'a');
    std::string many_symbols;
    for (size_t i = 0; i < many.size(); ++i)
        many_symbols += "<a>";
    environment["LC_ALL"] = "C";
    command = "kova symbols ";
    writes("IBM037", "<A><less-than-sign><newline>\n<backslash>", "\xC1\x4C\x25\xE0");
    writes("-d IBM037", "\xC1\x4C\x25", "<A>\n <U003C>\t<newline>");
    writes("SHIFT_JIS", "<a><U6F22><newline>\n", "a\x8a\xbf\n");
    fails(1, "SHIFT_JIS", "input:2: byte offset 3: the text ends", "ab\n\x8a", "<a><b><newline>\n");
    fails(1, "EUC-JP", "byte offset 1: bytes that are not a character: ff", "a\xff", "<a>");
    fails(1, "-d EUC-JP", "input:2:2: the code set has no character <zork>", "<a>\n <zork>", "a");
    fails(1, "-d EUC-JP", "input:1:4: a symbol such as <A> is expected, not <b", "<a><b", "a");
    fails(3, "zork", "code set zork: there is no charmap object", "a");
    writes("ISO-8859-1", many_symbols, many);
    writes("-d ISO-8859-1", many, many_symbols);
}

TEST_F(KovaSymbols, GivesEveryNameAndOneOfItsOwnToEveryCharacter) {
    spit(dir / "map",
         "<code_set_name> MY-SET\nCHARMAP\n<U0000> \\x00\n<U0041> \\x41\n<cap-a> \\x41\n"
         "%IRREVERSIBLE%<U0042> \\x41\n<U0042> \\x42\n%IRREVERSIBLE%<U0042> \\x43\n"
         "<j01>..<j12> \\x81\\x41\nEND CHARMAP\n");
    spit(dir / "reg", "my-set 57600\n");
    ASSERT_EQ(shell("kovac charmap map --registry reg --names posix -o .").status, 0);
    const std::string object = slurp(dir / "kova/cm3/e100.cmo");
    EXPECT_NE(
        object.find("\ns 0 A 1 41\ns 0 U0041 1 41\ns 0 cap-a 1 41\ns 0 B 1 42\ns 0 U0042 1 42\n"
                    "s 0 x43 1 43\n"),
        std::string::npos)
        << object;
    command = "kovac charmap ";
    fails(2, "map -o .", "has no number");
    fails(1, "IBM930 -o .", "");
    fails(2, "-o .", "");
}

} // namespace
