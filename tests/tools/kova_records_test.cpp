// The command kova records: the value of every kind of field and the way back, what is refused, and
// files of every form, whose records come back byte for byte.
#include "kova/kova_layout.h"

#include "support/rows.h"
#include "tools/command_run.h"

namespace fs = std::filesystem;
using namespace std::string_literals;
using namespace kovacli;

using KovaRecords = data_test;

static std::string bytes(const std::string &digits) { return unhex(digits); }

TEST_F(KovaRecords, ReadFieldsAndWriteThemBack) {
    // Length and kind, bytes, their value, and the bytes that this becomes where they are others.
    static const char rows[] =
        "3~packed 12345c 12345; 3~packed 00001d -1; 3~packed 00000d 0 00000c; "
        "3~packed~scale=2 12345f 123.45 12345c; 3~packed~scale=5~sign=none 00042f 0.00042; "
        "2~packed~scale=4 001b -0.0001 001d; "
        "16~packed 1234567890123456789012345678901c 1234567890123456789012345678901; "
        "4~zoned~scale=1 f1f2f3d4 -123.4; 2~zoned f0f7 7 f0c7; 2~zoned~sign=none f0f7 7; "
        "3~zoned~sign=leading d1f2f3 -123; 3~zoned~sign=separate-leading 60f1f2 -12; "
        "3~zoned~sign=separate-trailing f1f24e 12; 2~integer 8000 -32768; "
        "2~integer~sign=none 8000 32768; 8~integer 8000000000000000 -9223372036854775808; "
        "8~integer~sign=none ffffffffffffffff 18446744073709551615; "
        "3~integer~scale=2 fffff6 -0.10; 4~float c276a000 -118.625; "
        "8~float 4019999999999999 0.09999999999999999; 4~float 00000000 0; "
        "8~float 7fffffffffffffff 7.2370055773322621e+75; 4~text~codeset=037 c1408140 A~a; "
        "5~text~codeset=930 0e4f580f40 漢; 6~dbcs~codeset=930 4f5848f24040 漢字; "
        "3~hex 00ff41 00ff41";
    const data_place place = find_data({root}, data_kind::conversions);
    for (const auto &w : table(rows)) {
        SCOPED_TRACE(w[0] + " " + w[1]);
        spit(dir / "one.layout", "f 0 " + w[0] + "\n");
        layout all;
        read_layout(place, (dir / "one.layout").string(), "", all);
        const layout_field &field = all.fields[0];
        EXPECT_EQ(decode_field(field, bytes(w[1])).text, w[2]);
        EXPECT_EQ(encode_field(field, w[2]).text, bytes(w.size() > 3 ? w[3] : w[1]));
    }
}

TEST_F(KovaRecords, RefuseWhatIsNoFieldOrDoesNotFit) {
    spit(dir / "l", "p 0 2 packed scale=1\nz 2 2 zoned sign=none\ni 4 1 integer\nf 5 4 float\n"
                    "t 9 3 text\nd 12 4 dbcs codeset=930\nh 16 2 hex\n");
    const std::string good = bytes("123cf1f27f41100000c1c2c34f58404001ff");
    const std::string json = "{\"p\":12.3,\"z\":12,\"i\":127,\"f\":1,\"t\":\"ABC\",\"d\":\"漢\","
                             "\"h\":\"01ff\"}\n";
    command = "kova records -l l --records fb:18 -f 037 ";
    writes("", json + json, good + good);
    writes("--encode", good + good,
           json + "{\"p\":\"12.30\",\"z\":12,\"i\":127,\"f\":1.0,"
                  "\"t\":\"ABC\",\"d\":\"漢\",\"h\":{\"hex\":\"01ff\"}}\n");
    static const struct {
        size_t at;
        char byte;
        const char *why;
    } damages[] = {
        {0,  '\xA2', "field p: no packed decimal (a2 3c)"                                },
        {1,  '\x33', "field p: no sign in the last half byte of a packed decimal (12 33)"},
        {2,  '\x41', "field z: no zoned decimal (41 f2)"                                 },
        {12, '\x01', "field d: no text of 930 (01 58 40 40)"                             },
        {12, '\x0f', "field d: no text of 930 (0f 58 40 40)"                             },
    };
    for (const auto &row : damages) {
        std::string bad = good;
        bad[row.at] = row.byte;
        fails(1, "", "input: record 2, byte offset 18: "s + row.why + "; --keep-bad hex goes on",
              good + bad, json);
        const outcome kept = kova("records -l l --records fb:18 -f 037 --keep-bad hex", bad);
        EXPECT_EQ(kept.status, 0);
        EXPECT_NE(kept.err.find("1 field kept as hexadecimal digits"), std::string::npos);
        EXPECT_TRUE(kova("records -l l --records fb:18 -f 037 --encode", kept.out).out == bad);
    }
    // A text and the reason.
    static const char texts[] =
        R"({"p":1000}>field p: the number does not fit|)"
        R"({"p":1.25}>field p: "1.25" is no decimal number of at most 1 places|)"
        R"({"p":1e1}>field p: "1e1" is no decimal number|)"
        R"({"z":-1}>field z: the field has no sign|)"
        R"({"i":128}>field i: the number does not fit|)"
        R"({"f":"1e80"}>field f: the number does not fit|)"
        R"({"t":"ABCD"}>field t: the text does not fit|)"
        R"({"t":"漢"}>field t: 037 lacks a character of "漢"|)"
        R"({"d":"a"}>field d: 930 lacks a character of "a"|)"
        R"({"h":"0x"}>field h: these are not the field's hexadecimal digits|)"
        R"({"h":{"hex":"010203"}}>field h: "010203" is not its bytes|)"
        R"({"x":1}>the layout has no field "x"|{"p":[1,2]}>p has more values|)"
        R"({"p":1,"p":2}>a name appears twice|{"_rest":[]}>an empty array|)"
        R"({"_rest":5}>_rest needs {"hex":"..."}|)"
        R"({"_rest":{"hex":"zz"}}>_rest needs {"hex":"..."}|)"
        R"({"p":{"hex":"c1"},"z":1}>z comes after a field that is not whole|)"
        R"({"p":1,"i":1}>z is absent before i|{"p":1}>z is absent|)"
        R"({"p":1,"_bytes_5":{"hex":"00"}}>z is absent before _bytes_5|)"
        R"({"p":null}>null is no value|{"p":{"a":1}}>an object as a value holds "hex" alone|)"
        R"({"p":1>no JSON at byte|[1]>a row is one object)";
    command += "--encode ";
    for (const std::string &row : split(texts)) {
        const auto fields = split(row, '>');
        fails(1, "", "input:1: " + fields[1], fields[0] + "\n");
    }
}

TEST_F(KovaRecords, RefuseLayoutsWithTheirLine) {
    // A layout and the reason.
    for (const std::string &row :
         split(">the layout has no field|a 0 2>l:1: a line holds NAME OFFSET LENGTH KIND|"
               "a x 2 hex>l:1: offset \"x\" is no number|"
               "a 0 99999999999 hex>l:1: length \"99999999999\" is no number from 0 to|"
               "a 0 0 hex>a hex field cannot have 0 bytes|"
               "a 0 17 packed>a packed field cannot have 17 bytes|"
               "a 0 9 integer>a integer field cannot have 9 bytes|"
               "a 0 2 decimal>the kind \"decimal\" is none of text|"
               "a 0 2 text>say the code set of text|"
               "a 0 2 hex scale=1>\"scale=1\" is not possible here|"
               "a 0 2 packed sign=leading>sign=leading is not possible here|"
               "a 0 1 zoned sign=separate-leading>a separate sign needs|"
               "a 0 2 hex times=16777216>the field ends after byte 16777216|"
               "a 0 2 hex\n\na 2 2 hex>l:3: there is a field a before|"
               "a 0 2 hex\nb 1 2 hex>l:2: the field begins inside the one before|"
               "_a 0 2 hex>a name cannot begin with _")) {
        const auto fields = split(row, '>');
        spit(dir / "l", fields[0]);
        fails(2, "records -l l --records v", fields[1]);
    }
    spit(dir / "l", "a 0 2 hex");
    spit(dir / "f2", "h 0 1 hex");
    for (const char *form : {"fb", "fb:0", "fb:x", "vb:7", "vb:32761", "x", "lines:3"})
        fails(2, "records -l l --records "s + form, "one of fb:LENGTH");
    fails(2, "records -l l --records fb:1", "the layout has 2 bytes, a record 1");
    fails(1, "records -l f2 -f 037 --records lines --encode", "a record holds the end of a line",
          "{\"h\":\"15\"}\n");
    fails(2, "records -l l --records v --part 1/99999999999", "I/N, from 1/N to N/N");
    fails(2, "records -l l --records v --part 3/2", "I/N, from 1/N to N/N");
    fails(2, "records -l l --records lines -f 37 --part 1/2 l", "--part takes the forms fb, v, vb");
}

TEST_F(KovaRecords, KeepEveryByteOfEveryForm) {
    spit(dir / "l", "n 0 3 packed\nt 5 4 text\nm 9 1 hex times=3\n");
    // Records of every length, some with bytes between and after the fields.
    std::string json, lines;
    for (unsigned i = 0; i < 3000; ++i) {
        json += "{\"n\":" + std::to_string(i);
        if (i % 5 > 0) json += ",\"t\":\"" + std::string(i % 3, 'x') + "\"";
        if (i % 5 > 1) json += R"(,"m":["01"])";
        if (i % 5 > 2) json.insert(json.size() - 1, R"(,"02","03")");
        if (i % 7 == 0 && i % 5 > 0) json += R"(,"_bytes_3":{"hex":"00ff"})";
        if (i % 5 > 3) json += R"(,"_rest":{"hex":"aabb"})";
        json += "}\n";
    }
    spit(dir / "json", json);
    command = "kova records -l l -f 037 --records ";
    for (const char *form : {"v", "vb", "vb:100", "vbs:20", "vbs"}) {
        SCOPED_TRACE(form);
        const std::string keep = form + " --keep-bad hex "s;
        ASSERT_EQ(shell(command + form + " --encode json -o bin").status, 0);
        EXPECT_TRUE(shell(command + keep + "bin").out == json);
        std::string parts;
        for (const char *part : {"1/4", "2/4", "3/4", "4/4"})
            parts += shell(command + keep + "bin --part " + part).out;
        EXPECT_TRUE(parts == json);
    }
    // Records of one length, and the ends of lines.
    spit(dir / "f", "t 0 3 text\nn 3 1 zoned sign=none\n");
    const std::string fixed = bytes("c14040f1") + bytes("c1c2c3f2") + bytes("404040f3");
    const std::string rows = "t,n,_rest\r\nA,1,\r\nABC,2,\r\n,3,\r\n";
    command = "kova records -l f -f 037 --records fb:4 ";
    writes("--csv", rows, fixed);
    writes("--csv --encode", fixed, rows);
    spit(dir / "fixed", fixed);
    writes("--part 2/3 fixed", "{\"t\":\"ABC\",\"n\":2}\n", "");
    fails(1, "", "record 4, byte offset 12: the file ends inside a record", fixed + "x",
          "{\"t\":\"A\",\"n\":1}\n{\"t\":\"ABC\",\"n\":2}\n{\"t\":\"\",\"n\":3}\n");
    // More parts than records, and a file whose first row is not the names.
    std::string parts;
    for (const char *part : {"1/5", "2/5", "3/5", "4/5", "5/5"})
        parts += shell(command + "--csv fixed --part " + part).out;
    EXPECT_EQ(parts, rows);
    fails(1, "--csv --encode", "the first row of CSV must be t,n,_rest", "A,1,\r\n");
    // Texts that look like bytes, and empty cells between others.
    spit(dir / "c", "t 0 8 text times=3\n");
    command = "kova records -l c -f 037 --records fb:24 ";
    const std::string cells = "t_1,t_2,t_3,_rest\r\ntext:hex:c1c2,,x,\r\n";
    const std::string record = shell(command + "--csv --encode", cells).out;
    EXPECT_EQ(shell(command + "--csv", record).out, cells);
    // Blanks of two bytes.
    spit(dir / "u", "t 0 4 text\nh 8 2 hex\n");
    command = "kova records -l u -f unicode --records fb:10 --keep-bad hex ";
    const std::string wide = bytes("00410042202020201234") + bytes("00410042002000201234");
    const outcome kept = shell(command, wide);
    EXPECT_TRUE(shell("kova records -l u -f unicode --records fb:10 --encode", kept.out).out ==
                wide);
    // The bytes of a newline between two characters end no line.
    spit(dir / "w", "t 0 4 text\n");
    command = "kova records -l w -f unicode --records lines ";
    const std::string across = bytes("41000a41000a"), text = "{\"t\":\"\u4100\u0a41\"}\n";
    writes("", text, across);
    writes("--encode", across, text);
    command = "kova records -l f -f 037 --records lines ";
    writes("", "{\"t\":\"A\",\"n\":1}\n{\"t\":\"ABC\",\"n\":2}\n",
           bytes("c14040f115") + bytes("c1c2c3f2"));
}

TEST_F(KovaRecords, RefuseDamagedDescriptorWords) {
    spit(dir / "l", "h 0 1 hex\n");
    for (const auto &w : table(
             "v 0003000041 no~record's~descriptor~word; v 0005010041 no~record's~descriptor~word; "
             "v 00060000 the~file~ends~inside~a~record; v 0005 ends~inside~a~record's~descriptor; "
             "vb 00090001000500004100 no~block's~descriptor~word; "
             "vb 000800000005000041 no~record's~descriptor~word; "
             "vb 0010000000050000410005000041 the~file~ends~inside; "
             "vbs 000900000005020041 a~record~begins~with~a~later~part; "
             "vbs 000900000005010041 a~record~lacks~its~last~part; "
             "vbs 000900000005040041 no~record's~descriptor~word")) {
        const outcome got = kova("records -l l --records " + w[0], bytes(w[1]));
        EXPECT_EQ(got.status, 1) << w[1];
        EXPECT_NE(got.err.find(w[2]), std::string::npos) << w[1] << " " << got.err;
    }
}
