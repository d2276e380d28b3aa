// The commands width, trim and count; and the widths of compiled locales against the charmaps that
// they were compiled from.
#include "common/tool_charmap.h"

#include "tools/command_run.h"

using namespace kovac;
using namespace std::string_literals;

using KovaWidth = data_test;

TEST_F(KovaWidth, WidthTrimAndCount) {
    const std::string head = "lines  characters  bytes  columns  file\n";
    writes("width ja_JP.EUC-JP", "5\n9\n-1\n0\n4\n", "漢字a\nab\tc\na\1\n\nｱ x ");
    writes("width --widest de_DE.unicode", "4\n", "ab\nabcd\n\n");
    writes("width en_US.IBM037 --bytes", "16\n", "\x81\x05\x81\x05");
    // Character by character, also where a terminal may join them.
    writes("width th_TH.unicode", "4\n4\n6\n1\n",
           "สวัสดี\nשָׁלוֹם\n👩‍👩‍👧\n❤️\n");
    writes("width th_TH.unicode", "4\n-1\n", "😀𐐀𐌰\n\U0001FFFD\n"); // the last is unassigned
    writes("width th_TH.TIS-620", "4\n", "สวัสดี\n");
    writes("width th_TH.TIS-620 --bytes", "4\n", "\xCA\xC7\xD1\xCA\xB4\xD5\n");
    writes("width --replace de_DE.8859-1 2> /dev/null", "1\n-1\n1\n", "a\nb€\nc\n");
    writes("width en_US.IBM037 --bytes", "2\n1\n", "\xC8\x89\x25\x81");
    writes("trim ja_JP.EUC-JP", "漢 a\n\r\nb\r\n\nx", "漢 a \t　\n \r\nb \r\n　\nx  ");
    writes("trim de_DE.unicode --bytes", "\0a\0\n\0 \0b"s, "\0a\0 \0\n\0 \0b"s);
    writes("trim --replace de_DE.8859-1 2> /dev/null", "a€\n \xFF\n", "a€ \n \xFF\n");
    writes("trim de_DE.unicode - .in", "a\na\n", "a \n ");
    writes("count ja_JP.EUC-JP", head + "    2           6      8        5  -\n", "Ab漢\n\nx");
    writes("count de_DE.unicode .in .in | tail -n 2",
           "    1           2      5        1  .in\n    2           4     10        2  total\n",
           "𝄞\n");
    writes("count de_DE.unicode", head + "    2           7     10       19  -\n", "a\tb\n\t😀\n");
    writes("count --replace de_DE.8859-1 2> /dev/null",
           head + "    1           3      5        1  -\n", "a€\n");
    spit(dir / "in", "a \n");
    writes("trim de_DE.unicode -o in in", "");
    EXPECT_EQ(slurp(dir / "in"), "a\n");
}

// Lines, characters and runs of spaces across the ends of many blocks.
TEST_F(KovaWidth, BlocksDoNotShow) {
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
    writes("trim de_DE.unicode", trimmed, text);
    writes("width de_DE.unicode", widths, text);
    // Pairs of which a block may hold the first half only; the last has no second one.
    std::string pairs = "\0a\0b\0c"s;
    for (int i = 0; i < 200000; ++i)
        pairs += "\xD8\x3D\xDE\0"s;
    for (const size_t skipped : {0u, 2u, 4u}) {
        const std::string units = pairs.substr(skipped);
        const size_t letters = 3 - skipped / 2;
        writes("width de_DE.unicode --bytes", std::to_string(letters + 400000) + "\n", units);
        writes("count de_DE.unicode --bytes | tail -n 1 | tr -s ' '",
               " 0 " + std::to_string(letters + 200001) + " " + std::to_string(units.size() + 2) +
                   " " + std::to_string(letters + 400000) + " -\n",
               units + "\xD8\x3D");
    }
}

TEST_F(KovaWidth, IsThatOfTheCharmap) {
    const real_variable place("VANTORDIR", root.c_str());
    for (const std::string spec :
         {"ja_JP.EUC-JP", "ja_JP.SHIFT_JIS", "ko_KR.EUC-KR", "zh_CN.GB2312", "zh_TW.BIG5"}) {
        SCOPED_TRACE(spec);
        charmap map;
        diagnostics diag;
        if (!load_charmap({"/usr/share/i18n/charmaps"}, spec.substr(6), diag, map))
            GTEST_SKIP() << "no charmap of " << spec;
        ko_lc_t loc;
        ASSERT_EQ(ko_lc_load(&loc, spec.c_str(), nullptr, nullptr), 0);
        int narrow = 0, wide = 0;
        for (const charmap_char &c : map.chars) {
            if (!c.wide) continue;
            ko_mchar_t text[4] = {ko_mchar_t(c.wide >> 8), ko_mchar_t(c.wide)};
            if (c.len == 1) std::swap(text[0], text[1]);
            const int got = ko_mbwidth(loc, text);
            const bool print = im_ismctype(loc, text, KO_CT_PRINT) != 0;
            EXPECT_EQ(ko_wcwidth(loc, c.wide), got);
            EXPECT_EQ(got, print ? c.width : -1) << c.wide;
            EXPECT_TRUE(print || c.wide < 0x100); // only controls are not printable
            narrow += got == 1;
            wide += got == 2;
        }
        EXPECT_GE(narrow, 95);
        EXPECT_GE(wide, 6000);
        ko_lc_unload(loc);
    }
}
