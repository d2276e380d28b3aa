// The commands kova convert and kova chart: what they write, where they say a text is wrong, and
// that the pieces in which a text is read do not show.
#include "kova/kova_convert.h"

#include "tools/command_run.h"

#include <nlohmann/json.hpp>

#include "kova/kova_cli.h"
#include "kova/kova_text.h"

namespace fs = std::filesystem;
using namespace std::string_literals;
using namespace kovacli;

using KovaConvert = data_test;

// One text in three code sets; characters in and out of the shifted state.
static const char mixed[] = "abc漢字def\nカナ gh、漢\n";
static const char mixed_sjis[] = "abc\x8a\xbf\x8e\232def\n\x83J\x83i gh\x81\x41\x8a\xbf\n";
static const char mixed_930[] = "\x62\x63\x64\x0e\x4f\x58\x48\xf2\x0f\x65\x66\x67\x15\x0e\x43\x86"
                                "\x43\x96\x0f\x40\x68\x69\x0e\x43\x44\x4f\x58\x0f\x15";

static std::string repeated(const char *text, int times) {
    std::string all;
    while (times--)
        all += text;
    return all;
}

TEST_F(KovaConvert, ConvertsDirectlyAndThroughAnotherCodeSet) {
    command = "kova convert -f ";
    writes("utf8 -t IBM037", "\xc8\x89\x6b\x40\x51\x15", "Hi, é\n");
    writes("37 -t latin1", "Hi\n", "\xc8\x89\x25");
    writes("SHIFT_JIS -t utf-8", mixed, mixed_sjis);
    writes("UTF8 -t ibm930", mixed_930, mixed);
    writes("cp930 -t utf8", mixed, mixed_930);
    writes("sjis -t 930", mixed_930, mixed_sjis);         // through utf8
    writes("930 -t sjis", mixed_sjis, mixed_930);         // through utf8
    writes("ISO-8859-1 -t koi8-r", "a\xbf\n", "a\xa9\n"); // through utf8
    writes("utf8 -t utf-8", mixed, mixed);                // the same
    // The encodings of Unicode need no object, and names are those that people write.
    writes("UTF_8 -t unicode", "\xd8\x42\xdf\xb7", "𠮷");
    writes("utf8 -t UTF-16LE --bom", "\xff\xfe\x42\xd8\xb7\xdf", "𠮷");
    writes("windows-1200 -t utf8", "A", "A\0"s);
    writes("Extended_UNIX_Code_Packed_Format_for_Japanese -t windows-65001", "漢", "\xb4\xc1");
    writes("utf-16 -t shift-jis", "\x8a\xbf", "\xff\xfe\x22\x6f");
    writes("utf-8 -t cp037", "\xc1", "\xef\xbb\277A");
    writes("utf-8 -t UTF-32BE --keep-bom", "\0\0\xfe\xff\0\0\0A"s, "\xef\xbb\277A");
    writes("sjis -t 930 -v", "", "", "sjis to 930 through utf8: ");
    const std::string host = repeated(mixed_930, 60000); // several blocks
    spit(dir / "t930", host);
    command = "(cat t930; cat t930) | kova convert -f 930 -t utf8 - | ";
    writes("kova convert -f utf8 -t sjis | kova convert -f sjis -t 930 -", host + host);
}

TEST_F(KovaConvert, ConvertsByRuleWhatHasNoObject) {
    fs::create_directories(dir / "rules/kova/cm3");
    fs::create_directories(dir / "rules/kova/cv9");
    spit(dir / "rules/kova/cm3/registry", "utf8 57372\neuc-jp 5050\nsjis 57350\nibm930 930\n"
                                          "iso-2022-jp 57499\nutf-7 57506\n");
    for (const char *name : {"13bae01c.cvo", "e01c13ba.cvo", "e006e01c.cvo", "e01ce006.cvo",
                             "03a2e01c.cvo", "e01c03a2.cvo"})
        fs::copy_file(root + "/kova/cv9/" + name, dir / "rules/kova/cv9" / name);
    command = "kova convert --root rules -f ";
    const std::string jis = "\x1B$B4A;z\x1B(B\n", kana = "\x1B$B%+\x1B(B";
    writes("sjis -t ISO-2022-JP", jis, "\x8a\xbf\x8e\x9a\n");
    writes("iso-2022-jp -t utf8", "漢字\n", jis);
    writes("utf8 -t iso-2022-jp -v", "", "", "utf8 to iso-2022-jp: no object is needed");
    writes("utf-7 -t 930", "\x0e\x4f\x58\x48\xf2\x0f", "+byJbVw-");
    writes("utf8 -t iso-2022-jp --skip", kana, "カé", "1 character skipped");
    writes("utf8 -t iso-2022-jp --replace=漢", "\x1B$B%+4A\x1B(B", "カé", "1 character replaced");
    // The place of a character, whatever switches to it.
    fails(bad_text, "iso-2022-jp -t sjis",
          "1:3: byte offset 6: the bytes 30 21 are U+4E02 (丂), which sjis lacks", "ab\x1B$(D0!",
          "ab");
    std::string text;
    for (int i = 0; i < 60000; ++i)
        text += i % 3 ? "漢字かな" : "abc\n";
    spit(dir / "long", text);
    command = "kova convert --root rules -f utf8 -t iso-2022-jp long | ";
    writes("kova convert --root rules -f iso-2022-jp -t utf-7 | "
           "kova convert --root rules -f utf-7 -t utf8",
           text);
    command = "kova convert --root rules ";
    shows("--list", "\niso-2022-jp  utf8 (by rule)\n");
}

TEST_F(KovaConvert, EndsLinesAsTheTargetDoesOrAsTold) {
    command = "kova convert -f ";
    const std::string host = "\x81\x15\x82\x25\x83\x0d\x25", text = "a\xc2\205b\nc\r\n";
    writes("37 -t utf8", "a\nb\nc\r\n", host);
    writes("37 -t utf8 --newline keep", text, host);
    writes("37 -t utf8 --newline lf", "a\nb\nc\n", host);
    writes("37 -t sjis --newline crlf", "a\r\nb\r\nc\r\n", host); // which has no NEL
    writes("utf8 -t 37", "\x81\x15\x82\x15\x83\x0d\x15", text);
    writes("utf8 -t 37 --newline keep", host, text);
    writes("utf8 -t utf8", text, text);
    writes("sjis -t 57350 --report", "\xff", "\xff", "bytes are copied and not examined");
    writes("utf8 -t utf16le --newline nel",
           "a\0\x85\0"
           "b\0\x85\0c\0\x85\0\r\0"s,
           text + "\r");
    writes("utf8 -t iso-2022-kr --newline crlf", "\x1B$)Ca\r\n\r\n\x0E\x30\x21\x0F\r\n",
           "a\n\xc2\205가\n"); // announced once
    writes("utf8 -t iso-2022-kr --newline lf", "\x1B$)C\n\x0E\x30\x21\x0F", "\xc2\205가");
    fails(2, "utf8 -t sjis --newline nel", "--newline nel: sjis has no such character");
    fails(1, "37 -t ascii", "3:1: byte offset 4: the byte 51 is U+00E9 (é), which ascii lacks",
          "\x81\x15\x82\x15\x51", "a\nb\n");
    const std::string many = repeated("x\r\n", 300000); // pieces that end between CR and LF
    spit(dir / "many", many);
    EXPECT_TRUE(kova("convert -f utf8 -t utf8 --newline lf many").out == repeated("x\n", 300000));
}

TEST_F(KovaConvert, RunTakesAnySplitOfAText) {
    const data_place place = find_data({root}, data_kind::conversions);
    std::string host = mixed_930;
    std::replace(host.begin(), host.end(), '\x15', '\x25');
    const std::tuple<const char *, const char *, std::string, std::string> rows[] = {
        {"utf8", "930",  mixed,      host      },
        {"930",  "utf8", host,       mixed     },
        {"sjis", "930",  mixed_sjis, host      },
        {"930",  "sjis", host,       mixed_sjis},
    };
    for (const auto &[from, to, in, want] : rows) {
        SCOPED_TRACE(from + " to "s + to);
        route way;
        ASSERT_TRUE(open_route(place, find_code_set(from), find_code_set(to), way));
        const size_t len = in.size();
        for (size_t first = 0; first <= len; ++first) {
            SCOPED_TRACE(first);
            route_state st;
            byte_buffer out;
            std::string all;
            size_t at = 0;
            for (const size_t end : {first, len}) {
                const run_result got = run(way, st, mb(&in[at]), end - at, end == len, out);
                EXPECT_TRUE(got.error == KO_OK || (got.error == KO_EINVAL && end < len));
                all += out.text();
                at += got.taken;
            }
            // A closing shift comes with the last character, so only a text that has one.
            EXPECT_TRUE(all == want || first == len);
            EXPECT_EQ(at, len);
        }
    }
}

TEST_F(KovaConvert, StopsWithPlaceBytesAndReason) {
    const std::string many = repeated(mixed, 100000) + std::string(700000, 'y'); // pieces
    const std::string late = "200001:700001: byte offset " + std::to_string(many.size()) +
                             ": the byte ff does not begin a character of utf8";
    command = "kova convert -f ";
    fails(1, "utf8 -t 8859-1",
          "input:2:2: byte offset 5: the bytes e2 82 ac are U+20AC (€), which 8859-1 lacks",
          "aé\nb€c", "a\xe9\nb");
    fails(1, "utf8 -t 8859-1",
          "1:3: byte offset 4: the byte ff does not begin a character of utf8; --skip or --replace "
          "continues",
          "éé\xff", "\xe9\xe9");
    fails(1, "utf8 -t koi8-r",
          "1:1: byte offset 0: the text ends inside a character of utf8 (e2 82)", "\xe2\x82");
    fails(1, "sjis -t utf8", "2:2: byte offset 3: the bytes 81 20 are not a character of sjis",
          "\n\x8a\xbf\x81 ", "\n漢");
    fails(1, "sjis -t 8859-1",
          "2:1: byte offset 2: the bytes 8a bf are U+6F22 (漢), which 8859-1 lacks", "x\n\x8a\xbf",
          "x\n");
    fails(1, "sjis -t eucjp", "1:2: byte offset 2: the text ends inside a character of sjis (8a)",
          "\x8a\xbf\x8a", "\xb4\xc1");
    fails(1, "930 -t utf8", "1:2: byte offset 2: the text ends inside a character of 930 (4f)",
          "\x62\x0e\x4f", "a");
    fails(1, "utf8 -t sjis", "1:2: byte offset 1: the bytes e6 bc 5a are not a character of utf8",
          "a\xe6\xbcZ", "a");
    // Another character would stand for it.
    fails(1, "utf8 -t 930",
          "1:5: byte offset 6: the bytes ef bf a4 are U+FFE4 (￤), which 930 lacks; the conversion "
          "writes 42 6a (U+00A6); --accept-substitutes, --skip or --replace continues",
          "Caf字￤", "\xc3\x62\x67\x0e\x48\xf2");
    fails(1, "utf8 -t 930",
          "1:4: byte offset 3: the bytes c3 a9 are U+00E9 (é), which 930 lacks; --", "Cafés",
          "\xc3\x62\x67");
    fails(1, "sjis -t eucjp", "2:1: byte offset 1: the byte 5c is U+00A5 (¥), which eucjp lacks",
          "\n\\", "\n");
    fails(1, "utf-8 -t utf8", "1:2: byte offset 1: the byte ff does not begin", "a\xff", "a");
    fails(1, "utf-16 -t utf8", "2:2: byte offset 8: the bytes 00 dc are not a character of utf-16",
          "\xff\376a\0\n\0b\0\0\xdc"s, "a\nb");
    fails(1, "utf8 -t sjis -o new", late, many + "\xffz\n");
    EXPECT_FALSE(fs::exists(dir / "new"));
}

TEST_F(KovaConvert, GoesOnWhereItIsTold) {
    command = "kova convert -f ";
    writes("utf8 -t sjis --skip", "a\x8a\xbf.", "a€漢\xff.",
           "1 character skipped (without a counterpart), the first at standard input:1:2: ");
    writes("utf8 -t sjis --replace", "a??.", "a€\xff.",
           "1 character replaced (invalid), the first at standard input:1:3: ");
    writes("sjis -t utf8 --replace", "a\uFFFD\uFFFD", "a\xfd\xfe",
           "2 characters replaced (invalid)");
    writes("sjis -t utf8 --replace=ö", "ö", "\x8a\xff", "1 character replaced");
    writes("sjis -t utf8 --skip", "\n", "\x81\n\x8a",
           "1 character skipped (cut off by the end of a text), the first at standard input:2:1: ");
    // The shift states of a replacement, and the closing shift when the end is left out.
    const std::string replaced = "1 character replaced", skipped = "1 character skipped";
    writes("utf8 -t 930 --replace=漢", "\x0e\x48\xf2\x4f\x58\x48\xf2\x0f", "字\xff字", replaced);
    writes("utf8 -t 930 --replace=x", "\x0e\x48\xf2\x0f\xb7\x0e\x48\xf2\x0f", "字\xff字", replaced);
    writes("utf8 -t 930 --skip", "\x0e\x48\xf2\x0f", "字\xff", skipped);
    writes("sjis -t 930 --skip", "\x0e\x48\xf2\x0f", "\x8e\x9a\xff", skipped);
    writes("utf8 -t 930 --replace=漢", "\x0e\x4f\x58\x0f", "\xff", replaced);
    writes("utf8 -t IBM037 --replace", "\x6f", "漢", replaced);
    // What the conversion substitutes; a character under other bytes stays the same character.
    writes("utf8 -t 930 --accept-substitutes", "\x0e\x48\xf2\x42\x6a\x48\xf2\x0f", "字￤字",
           "1 character substituted, the first at standard input:1:2: ");
    writes("utf8 -t 930 --replace=x", "\x0e\x48\xf2\x0f\xb7", "字￤", replaced);
    writes("utf8 -t 930 --skip", "\x0e\x48\xf2\x48\xf2\x0f", "字￤字", skipped);
    writes("BIG5 -t utf8 -v", "十.", "\xa2\xcc.",
           "1 character that would come back as other bytes");
    // The same at the start of a text that goes through another code set.
    writes("sjis -t 930 --replace=漢", "\x0e\x4f\x58\x0f\xc1\x15", "\377A\n", replaced);
    writes("sjis -t utf16le --bom --replace", "\xff\xfe\xfd\377A\0"s, "\377A", replaced);
    writes("utf16 -t 8859-1 --skip", "A", "\x30\x42\xff\xfe\0A"s, "2 characters skipped");
    writes("utf16le -t utf8 --skip", "AB", "\0\330A\0B\0"s, skipped);
    writes("8859-1 -t utf8 --bom", "\xef\xbb\277A", "A");
    const std::string many = repeated("\x82\xa0"
                                      "x",
                                      100000); // in little time
    writes("sjis -t 8859-1 --skip", std::string(100000, 'x'), many, "100000 characters skipped");
    environment["LC_ALL"] = "C"; // the replacement is bytes of the target then
    writes("utf8 -t IBM037 --replace='{'", "{", "\xff", replaced);
}

TEST_F(KovaConvert, WritesWhatTheTargetLacksAsAnEscapeOrByItsSpelling) {
    command = "kova convert -f ";
    const std::string escaped = "escaped, the first at standard input:1:2: ";
    writes("utf8 -t 8859-1 --escape xml", "a&#x20AC;&#x1F600;&amp;", "a€😀&amp;", escaped);
    writes("utf8 -t 8859-1 --escape uni", "a\\u20AC\\uD83D\\uDE00", "a€😀", escaped);
    writes("utf8 -t 8859-1 --escape hex", "a\\xE2\\x82\\xAC\\xFF.", "a€\xff.", escaped);
    writes("930 -t 8859-1 --escape hex", "A\\x0E\\x4F\\x58\\x0FA", "\xc1\x0e\x4f\x58\x0f\xc1",
           escaped);
    writes("utf8 -t 930 --escape xml", "\x0e\x4f\x58\x0f\x50\x7b\xb7\xc5\xf9\x5e\x0e\x4f\x58\x0f",
           "漢é漢", escaped); // not the control that the object has for it
    // Spellings begin no escape, and are not taken for the rest of one.
    writes("utf8 -t ascii --translit --escape xml", "&#xFF06;#65;R&De&#x26;#65;&#66",
           "＆#65;R&Dé&＃65；&#66", "3 characters transliterated");
    fails(1, "iso-2022-kr -t 8859-1 --escape hex", "byte offset 6: the bytes 30 21 are U+AC00",
          "\x1B$)Ca\x0E\x30\x21\x0F", "a");
    writes("utf8 -t 8859-1 --escape xml --keep-escapes", "&#65;&#x20AC;", "&#65;€",
           "1 character escaped");
    writes("utf8 -t ascii --translit", "Cafe EUR ss Lodz (", "Cafe\u0301 € ß Łódź (",
           "6 characters transliterated");
    fails(1, "utf8 -t ascii --translit", "1:2: byte offset 2: the bytes f0 9f 98 80 are", "é😀",
          "e");
    fails(1, "utf8 -t ascii --escape xml", "the byte ff does not begin", "\xff");
    // Read back; what is no escape, or no character, stays as it is.
    writes("8859-1 -t utf8 --unescape xml", "€😀A&#xD800;&amp;&#;&#x",
           "&#x20AC;&#128512;&#x041;&#xD800;&amp;&#;&#x");
    writes("8859-1 -t utf8 --unescape uni", "€😀😀\\uD83D\\u00é",
           "\\u20ac\\uD83d\\uDE00\\u{1F600}\\uD83D\\u00\xe9");
    writes("8859-1 -t 930 --unescape uni", "\x0e\x4f\x58\x48\xf2\x0f", "\\u6F22\\u5B57");
    fails(1, "utf8 -t 8859-1 --unescape xml",
          "1:2: byte offset 1: the escape &#x20AC; is U+20AC, which 8859-1 lacks", "a&#x20AC;",
          "a");
}

TEST_F(KovaConvert, ReadsItsEscapesBackExactly) {
    const std::string text =
        "&#x41;&#65;&amp; \\u0041\\uD83D\\uDE00\\u{41} \\x41\\\\&& カナ漢字、表ソ\\";
    const char *const between[] = {"8859-1", "37", "TIS-620"};
    size_t row = 0; // in turn each form goes through each set
    for (const char *set : {"utf8", "sjis", "utf16le", "utf16", "utf32be", "unicode"}) {
        ++row;
        spit(dir / "text",
             shell("kova convert -f utf8 -t "s + set, text + std::string(530000, 'y') + text).out);
        for (const char *form : {"xml", "uni", "hex"}) {
            const char *const through = between[row++ % 3];
            SCOPED_TRACE(set + " "s + form + " "s + through);
            const outcome there =
                kova("convert -f "s + set + " -t " + through + " --escape " + form + " text");
            const outcome back =
                kova("convert -t "s + set + " -f " + through + " --unescape " + form, there.out);
            EXPECT_EQ(there.status + back.status, 0) << there.err << back.err;
            EXPECT_TRUE(back.out == slurp(dir / "text")) << back.out.substr(0, 200);
        }
    }
}

// The output up to an error and that from there on are together what one run gives.
TEST_F(KovaConvert, ResumesAfterAnErrorExactly) {
    const std::tuple<const char *, std::string, const char *> rows[] = {
        {"930 -t sjis",                  "\x0e\x4f\x58\x0f\xc1\x25\x0e\x4f\x58\xfe\xfe\x48\xf2\x0f",
         "9 --state 1,0,0"                                                                                             },
        {"utf8 -t 930",                  "漢€\n漢€漢\xff漢",                                 "3 --state 0,1,0" },
        {"utf8 -t ascii --newline crlf", "a\r\xff\nb",                                               "2 --state 0,0,0r"},
        {"utf16 -t sjis",                "\xff\xfe\x22\x6f\0\xdc\x22\x6f"s,                          "4"               },
        {"sjis -t utf8",                 "\x8a\xbf\xff\x8a\xbf",                                     "2"               },
    };
    for (const auto &[sets, in, where] : rows) {
        SCOPED_TRACE(sets);
        spit(dir / "in", in);
        command = "kova convert in -f "s + sets;
        const outcome whole = shell(command + " --skip"), first = shell(command);
        const size_t told = first.err.find("--from-offset "); // where a state is pending
        const size_t end = first.err.find(" resumes there");
        const std::string from = told == std::string::npos ? "--from-offset "s + where
                                                           : first.err.substr(told, end - told);
        const outcome rest = shell(command + " --skip " + from);
        EXPECT_EQ(whole.status * 10 + first.status, 1);
        EXPECT_EQ(rest.status, 0) << rest.err;
        EXPECT_EQ(first.out + rest.out, whole.out);
        EXPECT_EQ(shell(command + " --keep-part -o part").status, 1);
        EXPECT_EQ(slurp(dir / "part"), first.out);
        EXPECT_TRUE(from.starts_with("--from-offset "s + where)) << from;
    }
    fails(2, " --from-offset 99", "--from-offset 99: in has 5 bytes");
    fails(2, " --from-offset=-1", "--from-offset: -1 is less than 0");
    fails(2, " --from-offset 1 --state x", "--state x: no state");
    command = "kova convert in -t utf16le ";
    writes("-f sjis --bom --from-offset 3", "\x22\x6f"s, "");
    fails(2, "-f utf16 --from-offset 2", "its order is that of the --state");
    fails(2, "-f sjis --from-offset 0 --state 0,0,0r",
          "no state that an error said"); // holds no CR
    // U+FEFF is no mark there, and text in another order than that of its mark is not read.
    spit(dir / "in", "a\xef\xbb\xbf");
    writes("-f utf8 --from-offset 1", "\xff\xfe", "");
    spit(dir / "in", "\xff\xfe\x41\0"s);
    fails(1, "-f unicode --skip",
          "in: the text begins with the byte-order mark of utf16le; -f utf16");
    writes("-f utf16 --keep-bom", "A\0"s, "");
    // After a character of UTF-7 the next one may have some of its bits before it.
    spit(dir / "in", "+JGAwojCi-");
    const auto stop = nlohmann::json::parse(kova("convert in -f utf7 -t sjis --json -o part").out);
    const auto &error = stop["files"][0]["error"];
    command = "kova convert in -f utf7 -t sjis ";
    const std::string kana = "\x83\x41\x83\x41";
    writes("--from-offset 4 --state " + error["next_state"].get<std::string>(), kana, "");
    writes("--skip", kana, "", "1 character skipped");
}

TEST_F(KovaConvert, FramesRecordsAsLinesAndBack) {
    const std::string fixed = "\xc1\xc2\x40\x40\xc3\x40\x40\x40";
    const std::string blocked = "\0\x0e\0\0\0\5\0\0\xc1\0\5\0\0\xc2"s;
    command = "kova convert ";
    writes("-f 37 -t utf8 --records fb:4", "AB  \nC   \n", fixed);
    writes("-f utf8 -t 37 --to-records fb:4", fixed, "AB\nC");
    writes("-f 37 -t utf8 --records vb", "A\nB\n", blocked);
    writes("-f utf8 -t 37 --to-records vb", blocked, "A\nB\n");
    writes("-f 37 -t 37 --records vb --to-records vbs:16", blocked, blocked);
    writes("-f 930 -t utf8 --records v", "漢\na\n", "\0\7\0\0\x0e\x4f\x58\0\5\0\0\x62"s);
    writes("-f 37 -t 8859-1 --records fb:1 --to-records v --newline keep", "\0\5\0\0A\0\5\0\0B"s,
           "\xc1\xc2");
    writes("-f 8859-1 -t 37 --to-records v --newline keep", "\0\5\0\0\xc1\0\5\0\0\xc2"s, "A\nB\n");
    writes("-f 37 -t utf8 --records vb", "A\nB\n", "\x80\0\0\x0e\0\5\0\0\xc1\0\5\0\0\xc2"s);
    spit(dir / "in", "\xc1\xc2\x15\xc3");
    fails(1, "-f 37 -t utf8 --records fb:2 in", "record 2, byte offset 2: it holds the end");
    fails(1, "-f 37 -t 37 --to-records fb:1 in", "line 1 of the result: a record of 2 bytes");
    fails(2, "-f 37 -t utf8 --records fb in", "--records fb: one of");
}

TEST_F(KovaConvert, ReportsEachInputAsJson) {
    for (const char *name : {"out", "a", "b"})
        fs::create_directory(dir / name);
    spit(dir / "a/x", "é€\n");
    spit(dir / "a/y", "é\n€é");
    spit(dir / "b/x", "é");
    const std::string to_dir = "convert -f utf8 -t 8859-1 --output-dir ";
    const outcome got = kova(to_dir + "out --json --translit a/x a/y missing");
    EXPECT_EQ(got.status, 4);
    const auto json = nlohmann::json::parse(got.out);
    const auto &x = json["files"][0];
    EXPECT_EQ(x["output"], "out/x");
    EXPECT_EQ(x["bytes_in"].get<int>() * 100 + x["bytes_out"].get<int>() * 10 +
                  x["characters"].get<int>(),
              653);
    EXPECT_EQ(x["transliterated"], 1);
    EXPECT_TRUE(x["error"].is_null());
    EXPECT_EQ(json["files"][2]["error"]["kind"], "other");
    EXPECT_EQ(slurp(dir / "out/x") + slurp(dir / "out/y"), "\xe9"
                                                           "EUR\n\xe9\nEUR\xe9");
    // A file that fails stays as it was, and the others are written.
    spit(dir / "a/x", "é");
    const auto failed = nlohmann::json::parse(kova(to_dir + "out --json a/y a/x").out);
    EXPECT_EQ(failed["status"], 1);
    // So is an escape whose character the target lacks.
    spit(dir / "a/x", "é&#8364;");
    const auto escape = nlohmann::json::parse(
        kova(to_dir + "out --json --unescape xml a/x").out)["files"][0]["error"];
    EXPECT_EQ(escape["kind"].get<std::string>() + escape["character"].get<std::string>(),
              "unmappedU+20AC");
    EXPECT_EQ(escape["resume_offset"].get<int>() * 100 + escape["next_offset"].get<int>(), 209);
    spit(dir / "a/x", "é");
    const nlohmann::json want = {
        {"kind",          "unmapped"},
        {"byte_offset",   3         },
        {"line",          2         },
        {"column",        1         },
        {"bytes",         "e282ac"  },
        {"character",     "U+20AC"  },
        {"resume_offset", 3         },
        {"next_offset",   6         },
        {"state",         ""        },
        {"next_state",    ""        },
    };
    nlohmann::json error = failed["files"][0]["error"];
    error.erase("message");
    EXPECT_EQ(error, want);
    EXPECT_EQ(slurp(dir / "out/x") + slurp(dir / "out/y"), "\xe9\xe9\nEUR\xe9");
    fails(2, to_dir + "out a/x b/x", "two files are called x");
    fails(2, to_dir + "a out/x a/y", "the result of a/y would replace the input a/y");
    fails(4, to_dir + "none a/x", "there is no directory none");
    fs::create_directories(dir / "links");
    for (const char *const name : {"x", "y"})
        fs::create_symlink(fs::path("..") / "joint", dir / "links" / name);
    fails(2, to_dir + "links a/x a/y", "links/x and links/y are one file");
    fails(2, "convert -f utf8 -t 8859-1 --json a/x", "--json: standard output has the text");
}

TEST_F(KovaConvert, ReportsSubstitutionsApartFromBadInput) {
    const std::string filler = repeated(mixed_sjis, 40000); // pieces of the search
    const outcome got =
        kova("convert -f sjis -t eucjp --report", "a\\b\n" + filler + "~\xfd\n\\\x81\n\x81");
    const auto at = [&](const char *place, size_t offset, const char *what) {
        return "kova:   standard input:"s + place + ": byte offset " + std::to_string(offset) +
               ": " + what + "\n";
    };
    const char yen[] = "the byte 5c is U+00A5 (¥), which eucjp lacks; the conversion writes 5c "
                       "(U+005C)";
    const char overline[] =
        "the byte 7e is U+203E (‾), which eucjp lacks; the conversion writes 7e "
        "(U+007E)";
    const size_t last = filler.size() + 4;
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.err,
              "kova: 3 characters substituted by the conversion\n" + at("1:2", 1, yen) +
                  at("80002:1", last, overline) + at("80003:1", last + 3, yen) +
                  "kova: 0 characters that would come back as other bytes\n"
                  "kova: 0 characters without a counterpart\nkova: 2 characters invalid\n" +
                  at("80002:2", last + 1, "the byte fd does not begin a character of sjis") +
                  at("80003:2", last + 4, "the bytes 81 0a are not a character of sjis") +
                  "kova: 1 character cut off by the end of a text\n" +
                  at("80004:1", last + 6, "the text ends inside a character of sjis (81)"));
}

// Sentences in fifteen languages, and code sets in which their texts are.
static const struct {
    const char *sets;
    std::vector<const char *> texts;
} corpus[] = {
    {"utf8 37 8859-1 utf16le",
     {"The ship leaves the harbour at six in the morning, and we are late.",
      "Payments are due on the first day of each month.\nAsk for a receipt.\n",
      "Two of the boxes were empty; the third held 40 letters."}                                                                                                                                                                                                                                                          },
    {"utf8 37 8859-1 utf16le",
     {"Die Straße führt über den Fluß, und die Häuser stehen näher am Wasser.",
      "Für größere Mengen gelten andere Preise.\nÜberweisen Sie den Betrag später.",
      "Das Mädchen hört süße Lieder und öffnet die Tür."}                                                                                                                                                                                                                                                           },
    {"utf8 37 8859-1 unicode",
     {"L'été dernier, nous avons mangé des pâtes près de la forêt où tu habites.",
      "Le garçon a reçu ses élèves à l'école; ça a été très agréable.",
      "Voilà où mènent les idées trop légères."}                                                                                                                                                                                                                                                                    },
    {"utf8 8859-1 37",
     {"El niño comió una manzana y después jugó en el jardín con su compañero.",
      "¿Dónde está la estación? Mañana saldrá el último autobús.",
      "La señora compró pan, jamón y café en el pequeño almacén."}                                                                                                                                                                                                                                                  },
    {"utf8 8859-2 utf16le",
     {"Książka leży na stole, a chłopiec śpi w ciepłym łóżku.",
      "Proszę zapłacić fakturę w ciągu czternastu dni; dziękujemy.",
      "Pójdźmy jutro nad morze, jeżeli będzie ładna pogoda."}                                                                                                                                                                                                                                                        },
    {"utf8 8859-2",
     {"Příliš mnoho lidí čeká na nádraží, protože vlak má zpoždění.",
      "Děti běžely přes louku a křičely, že už svítí slunce.",
      "Účet je třeba zaplatit do konce měsíce; potom hrozí pokuta."}                                                                                                                                                                                                                                                },
    {"utf8 8859-2",
     {"Az öreg tölgyfa alatt ültünk, és hűvös bort ittunk a kertből.",
      "Kérjük, őrizze meg a jegyét, mert az ellenőr később kérheti.",
      "A fiú gyűjtött két füzetet, és írt bele egy hosszú történetet."}                                                                                                                                                                                                                                         },
    {"utf8 8859-9 utf16le",
     {"Yaşlı adam her sabah göl kıyısında yürüyüş yapıyor ve kuşlara ekmek veriyor.",
      "Faturanızı ayın son gününe kadar ödemeniz gerekiyor, teşekkür ederiz.",
      "Küçük kız bahçede oynarken yağmur başladı, ağaçların altına koştu."}                                                                                                                                                                                                                                  },
    {"utf8 koi8-r 8859-5 utf16le",
     {"Поезд уходит рано утром, и мы должны прийти на станцию вовремя.",
      "Оплатите счёт до конца месяца. Спасибо за понимание.\nАдрес прежний.",
      "Маленькая девочка нашла в лесу большой белый гриб."}                                                                                                                                                                                                                     },
    {"utf8 8859-7",
     {"Το πλοίο φεύγει νωρίς το πρωί και πρέπει να είμαστε στο λιμάνι.",
      "Η μικρή πόλη βρίσκεται κοντά στη θάλασσα και έχει όμορφα σπίτια.",
      "Παρακαλώ πληρώστε τον λογαριασμό μέχρι το τέλος του μήνα."}                                                                                                                                                                                                        },
    {"utf8 sjis euc-jp 930 utf16le iso-2022-jp",
     {"明日は朝早く駅に行って、友だちと海へ出かけます。天気がよければ泳ぐつもりです。",
      "請求書の金額は月末までにお支払いください。ご不明な点はお問い合わせください。",
      "小さな犬が庭で遊んでいる。テレビの音が聞こえるが、だれも見ていない。"}                                                                                                                                                                                                           },
    {"utf16le unicode",                          {"H", "да €5", "😀"}                                                                                                                                                                                                                                               },
    {"utf8 gbk 935 gb2312 hz",
     {"明天早上我们一起去车站，然后坐船到海边的小城市。",
      "请在月底以前付清这张账单，谢谢您的合作。",
      "院子里有一只小狗在跑，孩子们都很高兴地看着它。"}                                                                                                                                                                                                                                            },
    {"utf8 big5 937",
     {"明天早上我們一起去車站，然後坐船到海邊的小城市。",
      "請在月底以前付清這張帳單，謝謝您的合作。",
      "院子裡有一隻小狗在跑，孩子們都很高興地看著牠。"}                                                                                                                                                                                                                                            },
    {"utf8 euc-kr 933 iso-2022-kr",
     {"내일 아침에 우리는 함께 역에 가서 바다로 떠날 것입니다.",
      "이번 달 말까지 요금을 내 주시기 바랍니다. 감사합니다.",
      "작은 강아지가 마당에서 뛰어놀고 아이들은 즐겁게 웃는다."}                                                                                                                                                                                                                                  },
    {"utf8 tis-620",
     {"พรุ่งนี้เราจะไปทะเลด้วยกันตอนเช้า", "กรุณาชำระเงินภายในสิ้นเดือนนี้", "เด็กเล็กคนหนึ่งวิ่งอยู่ในสวนหลังบ้าน"}},
};

// The first answer is the set, or one that converts these bytes to the same text.
TEST_F(KovaConvert, DetectsTheCodeSetOfShortTexts) {
    std::vector<std::pair<std::string, std::string>> files; // name, set
    std::string names;
    for (const auto &[sets, texts] : corpus) {
        std::istringstream words(sets);
        for (std::string set; words >> set;)
            for (const char *text : texts) {
                const std::string name = "f" + std::to_string(files.size());
                spit(dir / name, kova("convert -f utf8 -t " + set, text).out);
                files.push_back({name, set});
                names += " " + name;
            }
    }
    const outcome got = kova("convert --detect --json" + names);
    find_data({root}, data_kind::conversions); // for the numbers of names
    const auto json = nlohmann::json::parse(got.out)["files"];
    ASSERT_EQ(json.size(), files.size()) << got.err;
    size_t right = 0;
    for (size_t i = 0; i < files.size(); ++i) {
        const int wanted = ko_codeset_number(nullptr, files[i].second.c_str());
        ASSERT_GE(wanted, 0);
        const auto &best = json[i]["sets"][0];
        bool found = best["number"] == wanted;
        for (const auto &name : best["same"])
            found |= ko_codeset_number(nullptr, name.get<std::string>().c_str()) == wanted;
        right += found;
        if (!found) printf("%s: %s\n", files[i].second.c_str(), best.dump().c_str());
    }
    printf("%zu of %zu\n", right, files.size());
    EXPECT_GE(right * 100, files.size() * 95);
    // A missing file is told, and the others with it; one set alone has all points.
    spit(dir / "long", repeated("Größe über Straße\n", 300));
    const outcome more = kova("convert --detect --json missing long");
    EXPECT_EQ(more.status, 1);
    EXPECT_NE(more.err.find("missing"), std::string::npos);
    EXPECT_EQ(nlohmann::json::parse(more.out)["files"][0]["sets"].size(), 1u);
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
    fs::create_directories(dir / "broken/kova/cv9");
    spit(dir / "broken/kova/cv9/033301b5.cvo", "FILE_TYPE=other\n");
    fails(3, "convert -f sjist -t utf8", "no code set is called \"sjist\"; there are sjis");
    fails(3, "convert -f windows-1525 -t utf8", "\"windows-1525\"; there are cp125");
    fails(3, "convert -f utf8 -t KOI8-U", "no conversion from utf8 to KOI8-U, nor through");
    fails(3, "convert -f 65573 -t utf8", "no code set is called \"65573\"");
    fails(2, "convert -f utf7 -t ascii --escape xml", "convert it to utf8 first");
    writes("convert -f utf8 -t utf7 --skip", "+AOk-z", "é\xffz", "1 character skipped");
    fails(2, "convert -f utf8 -t 37 --bom", "--bom: 37 is no encoding of Unicode");
    fails(2, "convert -t utf8", "-f CODESET and -t CODESET");
    fails(3, "convert -f utf8 -t sjis --root nowhere", "there is no directory nowhere");
    fails(3, "convert -f utf8 -t sjis --root .", "holds no conversion objects");
    fails(2, "convert -f utf8 -t sjis --skip --replace", "excludes");
    fails(3, "convert -f 819 -t 437 --root broken", "033301b5.cvo is damaged");
    const std::string translit = "convert -f utf8 -t utf16 --translit --root broken";
    fails(3, translit, "the data root has no translit.trl; compile it with \"kovac translit -o");
    std::string table = slurp(root + "/kova/cv9/translit.trl");
    table.replace(table.find("20AC 45"), 4, "20AD"); // not what its hash says
    spit(dir / "broken/kova/cv9/translit.trl", table);
    fails(3, translit, "translit.trl is damaged");
    fails(1, "convert -f utf8 -t IBM037 --replace=漢", "--replace: IBM037 has no \"漢\"\n");
    fails(2, "chart sjis --lead 20", "lead bytes are 81-84 88-9F E0-EA\n");
    shows("convert --list", "   930  ibm930                cp930 ccsid930");
    shows("convert --list", "\neuc-jp          unicode shift_jis utf8\n");
}

TEST_F(KovaConvert, ChartsBytesLeadsAndPairs) {
    command = "kova chart ";
    shows("ISO-8859-1", "ISO-8859-1 (819)\naliases:    iso-8859-1 8859-1 latin-1 ");
    shows("ISO-8859-1", "\nsource:     charmap ISO-8859-1\ncharacters: 256 of 1 byte\n\n    x0 ");
    shows("37", "37\naliases:    ibm037 ");
    shows("sjis", "\ncharacters: 191 of 1 byte, 6879 of 2 bytes\n\n    x0 ");
    shows("utf32le", "\nsource:     built in\ncharacters: 1112064, all of Unicode\n");
    shows("ISO-8859-1", "\n1x  DLE   DC1   DC2   DC3   DC4   NAK   SYN   ETB   CAN   EM    SUB ");
    shows("ISO-8859-1", "\nAx  NBSP  ¡     ¢     £     ¤     ¥     ¦     §     ¨     ©     ª ");
    shows("IBM037", "\nCx  {     A     B     C     D     E     F     G     H     I     SHY ");
    shows("sjis", "\n8x  --    >>    >>    >>    >>    --    --    --    >>    >> ");
    shows("sjis", "\n81           147  U+3000  IDSP 、 。 ， ");
    shows("sjis --lead 82", "sjis (57350), lead 82\n");
    shows("sjis --lead 82", "--    --    ０\n5x  １    ２ ");
    shows("930 --lead 4F", "漢");                      // shifted
    shows("EUC-JP --lead 8F", "\nAx  --    --    >>"); // further leads
    shows("EUC-JP --lead 8fb0", "\nAx  --    丂");
    shows("utf-7", "\ncharacters: 1112064, most of them after escapes\n");
    environment["LC_ALL"] = "C"; // code points where the terminal has no UTF-8
    shows("sjis --lead 82", "  FF10\n5x  FF11  FF12  ");
}

// UTF-8 arguments and files of the other commands: an object maps them as the charmap does.
TEST_F(KovaConvert, MapsTextOfLocalesByObjectElseByCharmap) {
    const data_place place = find_data({root});
    data_place bare = place;
    bare.root = dir.string();
    if (!fs::is_directory("/usr/share/i18n/charmaps")) GTEST_SKIP() << "no charmaps";
    codec by_object, by_charmap;
    const auto make = [&](const char *name, uint16_t number) {
        locale_handle handle;
        open_locale(place, name, handle);
        if (number) handle.object.number = number;
        make_codec(handle, place, true, by_object = {});
        make_codec(handle, bare, true, by_charmap = {});
    };
    for (const char *name : {"ja_JP.EUC-JP", "en_US.IBM037", "th_TH.TIS-620"}) {
        SCOPED_TRACE(name);
        make(name, 0);
        EXPECT_TRUE(by_object.code_of == by_charmap.code_of);
        EXPECT_TRUE(by_object.wide_of == by_charmap.wide_of);
        EXPECT_EQ(by_object.newline, by_charmap.newline);
    }
    make("de_DE.8859-1", 37); // which of the two is used shows where they differ
    EXPECT_EQ(code_point(by_object, 0xC1), uint32_t{'A'});
    EXPECT_EQ(code_point(by_charmap, 0xC1), 0xC1u);
}
