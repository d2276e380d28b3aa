// The commands kova convert and kova chart: what they write, where they say a text is wrong, and
// that the pieces in which a text is read do not show.
#include "kova/kova_convert.h"

#include "tools/command_run.h"

#include "kova/kova_cli.h"
#include "kova/kova_text.h"

namespace fs = std::filesystem;
using namespace std::string_literals;
using namespace kovacli;

using KovaConvert = data_test;

// One text in three code sets; characters in and out of the shifted state.
static const char mixed[] = "abc漢字def\nカナ gh、漢\n";
static const char mixed_sjis[] = "abc\x8a\xbf\x8e\x9a"
                                 "def\n\x83J\x83i gh\x81\x41\x8a\xbf\n";
static const char mixed_930[] = "\x62\x63\x64\x0e\x4f\x58\x48\xf2\x0f\x65\x66\x67\x25\x0e\x43\x86"
                                "\x43\x96\x0f\x40\x68\x69\x0e\x43\x44\x4f\x58\x0f\x25";

TEST_F(KovaConvert, ConvertsDirectlyAndThroughAnotherCodeSet) {
    static const command_row rows[] = {
        {"utf8 -t IBM037",       "\xc8\x89\x6b\x40\x51\x25", 0, "Hi, é\n"    },
        {"37 -t latin1",         "Hi\n",                     0, "\xc8\x89\x25"},
        {"SHIFT_JIS -t utf-8",   mixed,                      0, mixed_sjis    },
        {"UTF8 -t ibm930",       mixed_930,                  0, mixed         },
        {"cp930 -t utf8",        mixed,                      0, mixed_930     },
        {"sjis -t 930",          mixed_930,                  0, mixed_sjis    }, // through utf8
        {"930 -t sjis",          mixed_sjis,                 0, mixed_930     }, // through utf8
        {"ISO-8859-1 -t koi8-r", "a\xbf\n",                  0, "a\xa9\n"     }, // through utf8
        {"utf8 -t utf-8",        mixed,                      0, mixed         }, // the same
    };
    check(rows, "kova convert -f ");
    EXPECT_NE(kova("convert -v -f sjis -t 930").err.find("sjis to 930 through utf8: "),
              std::string::npos);
    std::string host; // several blocks
    for (int i = 0; i < 60000; ++i)
        host += mixed_930;
    spit(dir / "t930", host);
    const outcome piped = shell("(cat t930; cat t930) | kova convert -f 930 -t utf8 - | "
                                "kova convert -f utf8 -t sjis | kova convert -f sjis -t 930 -");
    EXPECT_TRUE(piped.out == host + host);
    EXPECT_EQ(piped.err, "");
}

TEST_F(KovaConvert, RunTakesAnySplitOfAText) {
    const data_place place = find_data({root}, data_kind::conversions);
    const struct {
        const char *from, *to;
        std::string in, want;
    } rows[] = {
        {"utf8", "930",  mixed,      mixed_930 },
        {"930",  "utf8", mixed_930,  mixed     },
        {"sjis", "930",  mixed_sjis, mixed_930 },
        {"930",  "sjis", mixed_930,  mixed_sjis},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.from + " to "s + row.to);
        route way;
        ASSERT_TRUE(open_route(place, find_code_set(row.from), find_code_set(row.to), way));
        const auto *text = reinterpret_cast<const unsigned char *>(row.in.data());
        const size_t len = row.in.size();
        for (size_t first = 0; first <= len; ++first) {
            SCOPED_TRACE(first);
            route_state st;
            byte_buffer out;
            std::string all;
            size_t at = 0;
            for (const size_t end : {first, len}) {
                const run_result got = run(way, st, text + at, end - at, end == len, out);
                EXPECT_TRUE(got.error == KO_OK || (got.error == KO_EINVAL && end < len));
                all += out.text();
                at += got.taken;
            }
            // A closing shift comes with the last character, so only a text that has one.
            EXPECT_TRUE(all == row.want || first == len);
            EXPECT_EQ(at, len);
        }
    }
}

TEST_F(KovaConvert, StopsWithPlaceBytesAndReason) {
    std::string many; // pieces
    for (int i = 0; i < 100000; ++i)
        many += mixed;
    many += std::string(700000, 'y');
    const std::string late = "200001:700001: byte offset " + std::to_string(many.size()) +
                             ": the byte ff does not begin a character of utf8";
    const command_row rows[] = {
        {"utf8 -t 8859-1",
         "input:2:2: byte offset 5: the bytes e2 82 ac are U+20AC (€), which 8859-1 lacks",           1,
         "aé\nb€c",                                                                                                       "a\xe9\nb"},
        {"utf8 -t 8859-1",
         "1:3: byte offset 4: the byte ff does not begin a character of utf8; --skip or --replace "
         "continues",                                                                                   1, "éé\xff",       "\xe9\xe9"},
        {"utf8 -t koi8-r",      "1:1: byte offset 0: the text ends inside a character of utf8 (e2 82)",
         1,                                                                                                "\xe2\x82",       ""        },
        {"sjis -t utf8",        "2:2: byte offset 3: the bytes 81 20 are not a character of sjis",      1,
         "\n\x8a\xbf\x81 ",                                                                                                  "\n漢"   },
        {"sjis -t 8859-1",
         "2:1: byte offset 2: the bytes 8a bf are U+6F22 (漢), which 8859-1 lacks",                    1,
         "x\n\x8a\xbf",                                                                                                      "x\n"     },
        {"sjis -t eucjp",       "1:2: byte offset 2: the text ends inside a character of sjis (8a)",    1,
         "\x8a\xbf\x8a",                                                                                                     "\xb4\xc1"},
        {"930 -t utf8",         "1:2: byte offset 2: the text ends inside a character of 930 (4f)",     1,
         "\x62\x0e\x4f",                                                                                                     "a"       },
        {"utf8 -t sjis -o new", late,                                                                   1, many + "\xffz\n", ""        },
    };
    check(rows, "kova convert -f ");
    EXPECT_FALSE(fs::exists(dir / "new"));
}

TEST_F(KovaConvert, GoesOnWhereItIsTold) {
    static const struct {
        const char *pair, *option, *in, *out, *told;
    } rows[] = {
        {"-f utf8 -t sjis",   "--skip",        "a€漢\xff.", "a\x8a\xbf.",
         "1 character skipped (without a counterpart), the first at standard input:1:2: "                                    },
        {"-f utf8 -t sjis",   "--replace",     "a€\xff.",    "a??.",
         "1 character replaced (invalid), the first at standard input:1:3: "                                                 },
        {"-f sjis -t utf8",   "--replace",     "a\xfd\xfe",    "a\xef\xbf\xbd\xef\xbf\xbd",
         "2 characters replaced (invalid)"                                                                                   },
        {"-f sjis -t utf8",   "--replace=ö",  "\x8a\xff",     "ö",                                   "1 character replaced"},
        {"-f sjis -t utf8",   "--skip",        "\x81\n\x8a",   "\n",
         "1 character skipped (cut off by the end of a text), the first at standard input:2:1: "                             },
 // The shift states of a replacement, and the closing shift when the end is left out.
        {"-f utf8 -t 930",    "--replace=漢", "字\xff字",   "\x0e\x48\xf2\x4f\x58\x48\xf2\x0f",
         "1 character replaced"                                                                                              },
        {"-f utf8 -t 930",    "--replace=x",   "字\xff字",   "\x0e\x48\xf2\x0f\xb7\x0e\x48\xf2\x0f",
         "1 character replaced"                                                                                              },
        {"-f utf8 -t 930",    "--skip",        "字\xff",      "\x0e\x48\xf2\x0f",                     "1 character skipped" },
        {"-f sjis -t 930",    "--skip",        "\x8e\x9a\xff", "\x0e\x48\xf2\x0f",                     "1 character skipped" },
        {"-f utf8 -t 930",    "--replace=漢", "\xff",         "\x0e\x4f\x58\x0f",                     "1 character replaced"},
        {"-f utf8 -t IBM037", "--replace",     "漢",          "\x6f",                                 "1 character replaced"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.pair + " "s + row.option + " " + row.in);
        const outcome got = kova("convert "s + row.pair + " " + row.option, row.in);
        EXPECT_EQ(got.out, row.out);
        EXPECT_NE(got.err.find(row.told), std::string::npos) << got.err;
        EXPECT_EQ(got.status, 0);
    }
    environment["LC_ALL"] = "C"; // the replacement is bytes of the target then
    EXPECT_EQ(kova("convert -f utf8 -t IBM037 --replace='{'", "\xff").out, "{");
}

TEST_F(KovaConvert, ReportsSubstitutionsApartFromBadInput) {
    std::string filler;
    for (int i = 0; i < 40000; ++i)
        filler += mixed_sjis; // over a block, so that the pieces of the search show
    const outcome got =
        kova("convert -f sjis -t eucjp --report", "a\\b\n" + filler + "~\xfd\n\\\x81\n\x81");
    const auto at = [&](const char *place, size_t offset) {
        return "kova:   standard input:"s + place + ": byte offset " + std::to_string(offset) +
               ": ";
    };
    const size_t last = filler.size() + 4;
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.err,
              "kova: 3 characters substituted by the conversion\n" + at("1:2", 1) + "5c\n" +
                  at("80002:1", last) + "7e\n" + at("80003:1", last + 3) +
                  "5c\nkova: 0 characters without a counterpart\n"
                  "kova: 2 characters invalid\n" +
                  at("80002:2", last + 1) + "the byte fd does not begin a character of sjis\n" +
                  at("80003:2", last + 4) +
                  "the bytes 81 0a are not a character of sjis\n"
                  "kova: 1 character cut off by the end of a text\n" +
                  at("80004:1", last + 6) + "the text ends inside a character of sjis (81)\n");
}

TEST_F(KovaConvert, ReplacesItsInputInOneStep) {
    // Each file is a text of its own: it begins and ends unshifted.
    const std::string shifted = "\x0e\x4f\x58\x0f\xb7\x0e\x4f\x58\x0f";
    spit(dir / "b", "\xfd");
    spit(dir / "c", "\x8a\xbf");
    EXPECT_EQ(kova("convert -f sjis -t 930 c - c -o c", "x").status, 0);
    EXPECT_EQ(slurp(dir / "c"), shifted);
    EXPECT_EQ(kova("convert -f sjis -t utf8 c b -o c").status, bad_text);
    EXPECT_EQ(kova("convert -f sjis -t utf8 missing -o c").status, bad_file);
    EXPECT_EQ(slurp(dir / "c"), shifted);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), {}), 5); // b c in out err
}

TEST_F(KovaConvert, TellsWhatIsMissing) {
    static const command_row rows[] = {
        {"convert -f sjiss -t utf8",                 "no code set is called \"sjiss\"; there are sjis", 3},
        {"convert -f utf8 -t KOI8-U",                "no conversion from utf8 to KOI8-U, nor through",  3},
        {"convert -t utf8",                          "-f CODESET and -t CODESET",                       2},
        {"convert -f utf8 -t sjis --root nowhere",   "there is no directory nowhere",                   3},
        {"convert -f utf8 -t sjis --root .",         "holds no conversion objects",                     3},
        {"convert -f utf8 -t sjis --skip --replace", "excludes",                                        2},
        {"convert -f 819 -t 437 --root broken",      "033301b5.cvo is damaged",                         3},
        {"convert -f utf8 -t IBM037 --replace=漢",  "--replace: IBM037 has no \"漢\"\n",              1},
        {"chart sjis --lead 20",                     "lead bytes are 81-84 88-9F E0-EA\n",              2},
    };
    fs::create_directories(dir / "broken/kova/cv9");
    spit(dir / "broken/kova/cv9/033301b5.cvo", "FILE_TYPE=other\n");
    check(rows);
    const std::string list = kova("convert --list").out;
    EXPECT_NE(list.find("   930  ibm930                cp930 ccsid930\n"), std::string::npos);
    EXPECT_NE(list.find("\neuc-jp          unicode shift_jis utf-8\n"), std::string::npos);
}

TEST_F(KovaConvert, ChartsBytesLeadsAndPairs) {
    static const std::pair<const char *, const char *> rows[] = {
        {"ISO-8859-1",         "ISO-8859-1 (819)\n    x0    x1    x2 "                                         },
        {"ISO-8859-1",         "\n1x  DLE   DC1   DC2   DC3   DC4   NAK   SYN   ETB   CAN   EM    SUB "        },
        {"ISO-8859-1",         "\nAx  NBSP  ¡     ¢     £     ¤     ¥     ¦     §     ¨     ©     ª "},
        {"IBM037",             "\nCx  {     A     B     C     D     E     F     G     H     I     SHY "        },
        {"sjis",               "\n8x  --    >>    >>    >>    >>    --    --    --    >>    >> "               },
        {"sjis",               "\n81           147  U+3000  IDSP 、 。 ， "                                 },
        {"sjis --lead 82",     "sjis (57350), lead 82\n"                                                       },
        {"sjis --lead 82",     "--    --    ０\n5x  １    ２ "                                              },
        {"930 --lead 4F",      "漢"                                                                           }, // shifted
        {"EUC-JP --lead 8F",   "\nAx  --    --    >>"                                                          }, // further leads
        {"EUC-JP --lead 8fb0", "\nAx  --    丂"                                                               },
    };
    for (const auto &[arguments, part] : rows) {
        const std::string chart = kova("chart "s + arguments).out;
        EXPECT_NE(chart.find(part), std::string::npos) << part << chart;
    }
    environment["LC_ALL"] = "C"; // code points where the terminal has no UTF-8
    EXPECT_NE(kova("chart sjis --lead 82").out.find("  FF10\n5x  FF11  FF12  "), std::string::npos);
}

// UTF-8 arguments and files of the other commands: an object maps them as the charmap does.
TEST_F(KovaConvert, MapsTextOfLocalesByObjectElseByCharmap) {
    const data_place place = find_data({root});
    data_place bare = place;
    bare.root = dir.string();
    for (const char *name : {"ja_JP.EUC-JP", "en_US.IBM037", "th_TH.TIS-620"}) {
        SCOPED_TRACE(name);
        locale_handle handle;
        open_locale(place, name, handle);
        codec by_object, by_charmap;
        make_codec(handle, place, true, by_object);
        if (!fs::is_directory("/usr/share/i18n/charmaps")) GTEST_SKIP() << "no charmaps";
        make_codec(handle, bare, true, by_charmap);
        EXPECT_TRUE(by_object.code_of == by_charmap.code_of);
        EXPECT_TRUE(by_object.wide_of == by_charmap.wide_of);
        EXPECT_EQ(by_object.newline, by_charmap.newline);
    }
    // Which of the two is used shows where they differ.
    locale_handle handle;
    open_locale(place, "de_DE.8859-1", handle);
    handle.object.number = 37;
    codec by_object, by_charmap;
    make_codec(handle, place, true, by_object);
    make_codec(handle, bare, true, by_charmap);
    EXPECT_EQ(code_point(by_object, 0xC1), uint32_t{'A'});
    EXPECT_EQ(code_point(by_charmap, 0xC1), 0xC1u);
}
