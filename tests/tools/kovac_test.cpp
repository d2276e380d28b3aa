// The locale compiler: charmaps, the lexer, every category but collation, diagnostics, the registry
// and the objects as the library reads them.
#include "kovac/kovac_license.h"
#include "kovac/kovac_locale.h"
#include "kovac/kovac_registry.h"
#include "kovac/kovac_write.h"

#include "kova_host.h"
#include "support/rows.h"
#include "tools/command_run.h"

#include <sstream>

#include <zlib.h>

using namespace kovac;
using namespace std::string_literals;

// A line of a keyword and strings: "am_pm am;pm" gets its quotation marks.
static std::string strings(const std::string &line) {
    std::string out = line.substr(0, line.find(' ') + 1) + '"';
    for (const char c : line.substr(line.find(' ') + 1))
        out += c == ';' ? "\";\"" : std::string(1, c);
    return out + "\"\n";
}

// A locale source in parts, so that a test replaces what it is about.
struct source_parts {
    std::string ctype = "upper A;B\nlower a;b\ntoupper (a,A);(b,B)\ntolower (A,a);(B,b)\n";
    std::string collate = "order_start forward\n<U0000>\n...\n<U0041>\n<U0061>\n<U0042>\n<U0062>\n"
                          "<U0043>\n...\norder_end\n";
    std::string numeric = "decimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\n";
    std::string monetary = "int_curr_symbol \"XXX \"\nfrac_digits 2\nn_sign_posn -1\n";
    std::string time = strings("abday s;m;t;w;h;f;a") + strings("day S;M;T;W;H;F;A") +
                       strings("abmon 1;2;3;4;5;6;7;8;9;a;b;c") +
                       strings("mon 1;2;3;4;5;6;7;8;9;a;b;c") + strings("am_pm am;pm") +
                       "d_t_fmt \"%c\"\nd_fmt \"%x\"\nt_fmt \"%X\"\n";
    std::string messages = "yesexpr \"^[yY]\"\nnoexpr \"^[nN]\"\n";
    std::string text() const {
        const auto section = [](const std::string &name, const std::string &body) {
            return name + "\n" + body + "END " + name + "\n\n";
        };
        return "comment_char %\nescape_char /\n" + section("LC_CTYPE", ctype) +
               section("LC_COLLATE", collate) + section("LC_NUMERIC", numeric) +
               section("LC_MONETARY", monetary) + section("LC_TIME", time) +
               section("LC_MESSAGES", messages);
    }
};

// ASCII, some letters of Latin and two double-byte characters.
static std::string small_charmap() {
    return "<code_set_name> SMALL\n<comment_char> %\n<escape_char> /\nCHARMAP\n"
           "<U0000>..<U007F> /x00 ascii\n"
           "<U00C4> /xc4 capital\n<U00E4> /xe4 small\n<U00A0> /xa0\n"
           "<U3042> /x81/x40 kana\n<U3044> /x81/x41\n"
           "END CHARMAP\nWIDTH\n<U3042>...<U3044> 2\nEND WIDTH\n";
}

// One compilation in memory.
struct compilation {
    temp_dir dir;
    std::string log;
    diagnostics diag{.sink = &log};
    source_set set;
    charmap map;
    locale_object object;

    compilation(const source_parts &parts, const std::string &charmap_text = small_charmap()) {
        set.dirs = {dir.path};
        dir.write("main", parts.text());
        dir.write("cs", charmap_text);
    }
    bool run() {
        set.main = load_source(set, diag, "main", {});
        return set.main && load_charmap({dir.path}, "cs", diag, map) &&
               compile_locale(set, map, diag, object, nullptr);
    }
    unsigned mask(uint32_t code) {
        const charmap_char *c = find_code(map, code);
        return c ? object.ctype.masks[size_t(c - map.chars.data())] : 0xFFFFu;
    }
    std::string partners(uint32_t code) {
        const auto at = size_t(find_code(map, code) - map.chars.data());
        const auto [upper, lower] = object.ctype.pairs[object.ctype.case_index[at]];
        return format("%X %X", unsigned(upper), unsigned(lower));
    }
};

TEST(KovacTime, FillsEmptyFormatsAndBoundsCenturies) {
    static const struct {
        const char *lines;
        std::string time_section::*format;
        const char *want;
    } rows[] = {
        {"t_fmt_ampm \"\"\n",                            &time_section::t_fmt_ampm, "%I:%M:%S %p"},
        {"am_pm \"\";\" \"\n",                           &time_section::t_fmt_ampm, "%T"         },
        {"t_fmt \"\"\n",                                 &time_section::t_fmt,      "%T"         },
        {"d_fmt \"%d\"\n",                               &time_section::era_d_fmt,  ""           },
        {"d_fmt \"%d\"\nera \"+:1\"\n",                  &time_section::era_d_fmt,  "%d"         },
        {"alt_digits \"00\";\"01\"\nd_fmt \"%OC%Oy\"\n", &time_section::d_fmt,      "%2.1OC%.1Oy"},
        {"alt_digits \"0\";\"01\"\nd_fmt \"%OC%Oy\"\n",  &time_section::d_fmt,      "%.1OC%.1Oy" },
    };
    for (const auto &r : rows) {
        compilation job({.time = source_parts().time + r.lines});
        ASSERT_TRUE(job.run()) << r.lines << job.log;
        EXPECT_EQ(job.object.time.*r.format, r.want) << r.lines;
    }
}

// Ramadan 1445 began on 11 March 2024, the next month on 10 April.
TEST(KovacTime, ListsTheMonthsOfUmmAlQura) {
    const std::vector<std::string> lines = umalqura_lines();
    if (lines.empty()) GTEST_SKIP() << "built without ICU";
    std::string digits;
    for (size_t i = 1; i < lines.size(); ++i)
        digits += lines[i].substr(lines[i].find('=') + 1);
    int day = std::stoi(lines[0].substr(14));
    for (int i = 0; i < 145 * 12 + 8; ++i)
        day += 29 +
               (std::stoi(digits.substr(size_t(i / 12 * 3), 3), nullptr, 16) >> (11 - i % 12) & 1);
    EXPECT_EQ(lines[0].substr(0, 14), "UMALQURA=1300 ");
    EXPECT_EQ(digits.size(), 900u);
    EXPECT_EQ(day, 19793);
}

// ---- charmaps ----------------------------------------------------------------------------------

static std::string in_charmap(const std::string &body, const std::string &widths = "") {
    return "<code_set_name> \"X-1\"\n<escape_char> /\n<comment_char> %\nCHARMAP\n" + body +
           "END CHARMAP\n" + widths;
}

static bool load_text(const std::string &contents, charmap &map, std::string *log) {
    const temp_dir dir;
    dir.write("cs", contents);
    diagnostics diag{.sink = log};
    return load_charmap({dir.path}, "cs", diag, map);
}

TEST(KovacCharmap, ReadsRangesWidthsAndOneWayLines) {
    charmap map;
    std::string log;
    const std::string body = "<U0020>..<U007E> /x20\n"
                             "%IRREVERSIBLE%<U0041> /x80\n" // 0x80 means A, A stays 0x41
                             "<U4E00>..<U4E05> /xb0/xfd\n"  // runs over the end of a row
                             "%IRREVERSIBLE%<U2016> /xa1/xc2\n<U2225> /xa1/xc2\n"
                             "<U20000> /x8f/xa1/xa1\n<j08>...<j11> /x90/d010\n";
    ASSERT_TRUE(load_text(in_charmap(body, "WIDTH\n<U4E00>...<U4E02> 2\n<U0041> 0\nEND WIDTH\n"),
                          map, &log))
        << log;
    EXPECT_EQ(map.name, "X-1");
    EXPECT_EQ(map.chars_of_three, 1);
    EXPECT_EQ(map.min_len, 1);
    EXPECT_EQ(map.max_len, 2);
    std::string shown;
    for (const charmap_char *c :
         {find_code(map, 'A'), find_wide(map, 0x80), find_code(map, 0x4E02), find_code(map, 0x4E03),
          find_wide(map, 0xA1C2), find_code(map, 0x2016), find_code(map, 0x20000)})
        shown += c ? format("%X %X %d, ", c->code, unsigned(c->wide), c->width) : "none";
    EXPECT_EQ(shown, "41 41 0, 41 80 1, 4E02 B0FF 2, 4E03 B100 1, "
                     "2225 A1C2 1, 2225 A1C2 1, none"); // the plain line of two decides
    EXPECT_EQ(find_code(map, map.names.at("j10"))->wide, 0x900C);
    EXPECT_NE(find_wide(map, 0), nullptr) << "every code set has a null character";
    for (size_t i = 1; i < map.chars.size(); ++i) {
        const charmap_char &a = map.chars[i - 1], &b = map.chars[i];
        EXPECT_LT(std::pair(a.len, a.wide), std::pair(b.len, b.wide));
    }
}

TEST(KovacCharmap, TakesLinesOfEveryForm) {
    charmap map;
    std::string log;
    ASSERT_TRUE(load_text(
        "<code_set_name> \t\"X\t\r\n<mb_cur_max> 1\r\n<escseq> x\n<addset> y\n<include> z\n"
        "<other> 1 \n<escape_char> /\nWIDTH_DEFAULT 2\nCHARMAP\r\n<U0041> /x41\r\n"
        "<B>\t/d066 second\n<U0043> /103\n<x8>..<xB> /x60\n<U0041> /x51\n"
        "END CHARMAP\nWIDTH\n<nowhere> 1\n<B>...<nowhere> 1\n<B> 1\nEND WIDTH",
        map, &log))
        << log;
    EXPECT_EQ(map.name, "\"X");
    EXPECT_NE(log.find("unknown setting <other>"), std::string::npos) << log;
    std::string shown;
    for (const uint32_t code :
         {uint32_t('A'), map.names.at("B"), uint32_t('C'), map.names.at("xA")})
        shown +=
            format("%X %d, ", unsigned(find_code(map, code)->wide), find_code(map, code)->width);
    EXPECT_EQ(shown, "41 2, 42 1, 43 2, 62 2, ");
    EXPECT_EQ(find_wide(map, 0x51)->code, uint32_t('A'));
}

static const char named[] = "<code_set_name> X\n<escape_char> /\n";
TEST(KovacCharmap, RefusesWhatItCannotRead) {
    const auto check = [](const std::string &text, const char *message,
                          const std::string &head = named) {
        charmap map;
        std::string log;
        EXPECT_FALSE(load_text(head + text, map, &log)) << text;
        EXPECT_NE(log.find(message), std::string::npos) << log;
    };
    check("", "no characters");
    check("CHARMAP\n<U0041>\nEND CHARMAP\n", "bytes");
    check("CHARMAP\n<U0041 /x41\nEND CHARMAP\n", "closing");
    check("CHARMAP\n<U0041> /x41\n", "no END");
    check("CHARMAP\n<U0045>..<U0041> /x41\nEND CHARMAP\n", "before its start");
    check("CHARMAP\n<x1>..<y2> /x41\nEND CHARMAP\n", "count up");
    check("CHARMAP\n<U0041> /x41\n<U0042> /x41/x42\nEND CHARMAP\n", "begins another");
    // Lines among the characters, and what is said of them.
    for (const auto &[line, message] : {
             std::pair("U0041 /x41", "angle brackets"),
             {"<U0041>.<U0042> /x41",            "two, three or four"},
             {"<U0041>.....<U0042> /x41",        "two, three or four"},
             {"<U0041>..U0042 /x41",             "angle brackets"    },
             {"<U0041>..<U0042>",                "bytes"             },
             {"<U0041> /x4",                     "bytes"             },
             {"<U0041> /xg1",                    "bytes"             },
             {"<U0041> /d999",                   "bytes"             },
             {"<U0041> /d1x",                    "bytes"             },
             {"<U0041> /181",                    "bytes"             },
             {"<U0041> x41",                     "bytes"             },
             {"<1a>...<1b> /x41",                "count up"          },
             {"<x>..<y> /x41",                   "count up"          },
             {"<x1>..<y> /x41",                  "count up"          },
             {"<U0041>..<y1> /x41",              "count up"          },
             {"<x123456789>..<x123456790> /x41", "count up"          },
             {"END OF",                          "END CHARMAP"       }
    })
        check("CHARMAP\n"s + line + "\nEND CHARMAP\n", message);
    check("CHARMAP\n<" + std::string(129, 'x') + "> /x41\nEND CHARMAP\n", "1 to 128 bytes");
    for (const auto &[line, message] : {
             std::pair("U0041 1", "angle brackets"),
             {"<U0041> x",        "0 to 100"      },
             {"<U0041> -1",       "0 to 100"      },
             {"<U0041> 9999999",  "0 to 100"      },
             {"<U0041>",          "0 to 100"      },
             {"<U0041>..U0042 1", "angle brackets"}
    })
        check("CHARMAP\n<U0041> /x41\nEND CHARMAP\nWIDTH\n"s + line + "\nEND WIDTH\n", message);
    check("WIDTH_DEFAULT x\n", "0 to 100");
    check("<mb_cur_max> \"\"\n", "has no value");
    check("nonsense\n", "is expected");
    check("CHARMAP\n<U0000>..<UFFFE> /x00\nEND CHARMAP\n", "more than 1 byte");
    check("CHARMAP\n<A01>...<A02> /xff/xff\nEND CHARMAP\n", "more than 2 byte");
    check("CHARMAP\n<XFFFFFFF0>..<XFFFFFFFF> /xf1\nEND CHARMAP\n", "more than 1 byte");
    check("CHARMAP\n<U0000>..<U7FFFFFFF> /x00\nEND CHARMAP\n", "131071");
    check("CHARMAP\n<U0041> /x41/x42/x43/x44/x45\nEND CHARMAP\n", "at most four");
    check("CHARMAP\n<> /x41\nEND CHARMAP\n", "1 to 128 bytes");
    check("CHARMAP\n<U0041> /x41\nEND CHARMAP\nWIDTH\n<U0041> 101\nEND WIDTH\n", "0 to 100");
    std::string many = "CHARMAP\n";
    for (int i = 0; i < 10; ++i)
        many += "<U0000>..<U1FFFF> /x80/x00/x00\n";
    check(many + "END CHARMAP\n", ":13:10: error: more than 1179648 characters");
    check("CHARMAP\n<U0041> \\x41\nEND CHARMAP\n", "<code_set_name>", "");
}

TEST(KovacCharmap, TakesGzipAndBuildsUnicodeFromUnits) {
    const temp_dir dir;
    const std::string packed = dir.path + "/UTF-8.gz";
    gzFile out = gzopen(packed.c_str(), "wb");
    const std::string contents = in_charmap("<U0041> /x41\n", "WIDTH\n<U3040>...<U309F> 2\n"
                                                              "<U1F600>...<U1F64F> 2\nEND WIDTH\n");
    ASSERT_EQ(gzwrite(out, contents.data(), unsigned(contents.size())), int(contents.size()));
    gzclose(out);
    charmap map, units;
    diagnostics diag;
    ASSERT_TRUE(load_charmap({dir.path}, "UTF-8", diag, map));
    EXPECT_EQ(map.chars.size(), 2u);
    ASSERT_TRUE(load_charmap({dir.path}, "unicode", diag, units));
    EXPECT_EQ(units.chars.size(), 0x10000u);
    EXPECT_EQ(find_code(units, 0x3042)->width, 2);
    EXPECT_EQ(find_code(units, 0xD800)->len, 2); // halves of pairs are characters, too
    EXPECT_EQ(find_wide(units, 0x41)->len, 2);
}

// ---- categories --------------------------------------------------------------------------------

TEST(KovacCtype, FillsClassesAsTheSourceSays) {
    // Characters and their masks, in hexadecimal digits.
    const auto fills = [](const char *ctype, const char *masks) {
        SCOPED_TRACE(ctype);
        compilation job({.ctype = ctype});
        ASSERT_TRUE(job.run()) << job.log;
        std::istringstream words(masks);
        for (std::string word; words >> word;) {
            const auto code = uint32_t(std::stoul(word, nullptr, 16));
            EXPECT_EQ(format("%X=%X", code, job.mask(code)), word);
        }
        EXPECT_EQ(job.diag.warnings, 0) << job.log;
    };
    fills("upper <U0041>..<U0043>\nlower a\n", "41=385 42=385");
    fills("upper <U0041>;...;<U0043>\nlower a\n", "43=385");
    fills("upper /x41\nlower a\n", "41=385");
    fills("upper <U0041>..(2)..<U0045>\nlower a\n", "42=380 43=385");
    fills("upper <U1F600>..<U1F610>;A;<nothing>\nlower a\n", "41=385");
    fills("punct <U00C4>...<U00E4>\n", "E4=1C0");
    fills("", "51=185 37=388 66=386 20=510 9=410 0=0 3042=800"); // left out: ASCII, full_width
    fills("cntrl <U0000>..<U001F>\n", "0=20");
    fills("print <U0020>\ngraph <U00A0>\n", "A0=180");
    fills("class \"kana\"; <U3042>\n", "3042=1800");
    fills("charclass one;two\none <U00C4>\ntwo <U00C4>;<U00E4>\n", "C4=3000");
    fills("translit_start\n<U00C4> \"A\"\ntranslit_end\noutdigit <U0030>\n", "C4=0");
}

TEST(KovacCtype, ReportsClassesBeyondTheFourthAndKeepsTheRest) {
    compilation job(
        {.ctype = "charclass c1;c2;none;c3;c4;c5\nc1 a\nc2 a\nc3 a\nc4 a\nc5 a\nnone <UAC00>\n"});
    ASSERT_TRUE(job.run()) << job.log;
    EXPECT_EQ(job.diag.warnings, 1);
    EXPECT_NE(job.log.find("class \"c5\" dropped"), std::string::npos) << job.log;
    EXPECT_EQ(job.mask('a'), 0xF000u | 0x0386u);
    std::string classes;
    for (const auto &c : job.object.ctype.classes)
        classes += c.name + std::to_string(c.bit) + " ";
    EXPECT_EQ(classes, "full_width0 c11 c22 c33 c44 ");
}

TEST(KovacCtype, PairsCharactersByBothMaps) {
    compilation job({.ctype = "toupper (<U00E4>,<U00C4>);(b,<U3042>);(c,<U4E00>);(d,d)\n"
                              "tolower (<U00C4>,<U00E4>);(<U3042>,b)\nmap \"totitle\"; (a,A)\n"});
    ASSERT_TRUE(job.run()) << job.log;
    // The partner of c is outside the code set; d is not its own.
    std::string partners;
    for (const uint32_t c :
         {0xE4u, 0xC4u, unsigned{'b'}, unsigned{'a'}, unsigned{'c'}, unsigned{'d'}})
        partners += job.partners(c) + ", ";
    EXPECT_EQ(partners, "C4 0, 0 E4, 8140 0, 0 0, 0 0, 0 0, ");
    EXPECT_EQ(job.object.ctype.case_ratio, 2.0);

    compilation inverse({.ctype = "toupper (a,A)\n", .numeric = "copy \"other\"\n"});
    inverse.dir.write("other", source_parts{.numeric = "decimal_point \"!\"\n"}.text());
    ASSERT_TRUE(inverse.run()) << inverse.log;
    EXPECT_EQ(inverse.partners('A'), "0 61");
    EXPECT_EQ(inverse.object.ctype.case_ratio, 1.0);
    EXPECT_EQ(inverse.object.numeric.decimal_point, "!");
    EXPECT_EQ(inverse.object.numeric.positive_sign, "+");
}

TEST(KovacText, BringsStringsIntoTheCodeSet) {
    source_parts parts{.ctype = "translit_start\n<U20AC> \"<U1234>\";\"EUR\"\ntranslit_end\n"};
    parts.numeric = "decimal_point \"<U3042>\"\nthousands_sep \"<U00A0>\"\ngrouping 3;2;-1\n"
                    "positive_sign \"\"\nnegative_sign \"~\"\n";
    parts.monetary = "int_curr_symbol \"a/\n/\"//\"\n% a comment\ncurrency_symbol \"<U20AC>\"\n"
                     "mon_thousands_sep \"\xC3\xA4<U2603>\"\nmon_grouping -1\n"
                     "p_cs_precedes -1\nn_sep_by_space 2\nint_n_sign_posn 1\n";
    compilation job(parts);
    ASSERT_TRUE(job.run()) << job.log;
    const numeric_section &n = job.object.numeric;
    const monetary_section &m = job.object.monetary;
    EXPECT_EQ(n.decimal_point + n.thousands_sep + n.negative_sign, "\x81\x40\xA0~");
    EXPECT_EQ(n.positive_sign, "");
    EXPECT_EQ(n.grouping, (std::vector<int>{3, 2, -1}));
    EXPECT_EQ(m.int_curr_symbol + m.currency_symbol, "a\"/EUR");
    EXPECT_EQ(m.thousands_sep, "\xE4") << "a snowman cannot be spelled";
    EXPECT_TRUE(m.grouping.empty());
    EXPECT_EQ(m.numbers[2], absent_number);
    EXPECT_EQ(m.numbers[5], 2);
    EXPECT_EQ(job.diag.warnings, 1) << job.log;
}

TEST(KovacText, PutsSundayFirst) {
    const auto check = [](const char *week, bool rotated, int first_weekday) {
        SCOPED_TRACE(week);
        compilation job({.time = source_parts().time + week});
        ASSERT_TRUE(job.run()) << job.log;
        const time_section &time = job.object.time;
        EXPECT_EQ(time.abday.front() + time.abday.back(), rotated ? "af" : "sa");
        EXPECT_EQ(time.first_weekday, first_weekday);
    };
    check("", false, 0);
    check("week 7;19971130;4\n", false, 0);
    check("week 7;19971201;4\n", true, 1);
    check("first_weekday 7\n", false, 6);
    check("first_weekday 8\n", false, 0);
    check("first_weekday 2\nweek 7;19971201;4\n", true, 2);
}

TEST(KovacText, TakesCalendarsWithTheMonthsTheyNeed) {
    // The months' short and full names, and the calendar or part of what is said.
    static const std::tuple<std::string, size_t, size_t, const char *> rows[] = {
        {"",                                  12, 12, "gregorian"                            },
        {"calendar \"islamic\"\n",            12, 13, "islamic"                              },
        {"calendar \"arabic\"\n",             14, 12, "arabic"                               },
        {"calendar \"hebrew\"\n",             14, 13, "mon has 13 strings instead of 14"     },
        {"calendar \"islamic\"\n",            11, 12, "abmon has 11 strings instead of 12 to"},
        {"calendar \"islamic\"\n",            12, 15, "mon has 15 strings instead of 12 to"  },
        {"calendar \"Hebrew\"\n",             14, 14, "one of \"gregorian\""                 },
        {"calendar hebrew\n",                 14, 14, "one of \"gregorian\""                 },
        {"calendar \"hebrew\";\"islamic\"\n", 14, 14, "one of \"gregorian\""                 },
    };
    const std::string names = "A;B;C;D;E;F;G;H;I;J;K;L;M;N;O";
    for (const auto &[calendar, abmon, mon, want] : rows) {
        SCOPED_TRACE(calendar + std::to_string(mon));
        compilation job({.time = source_parts().time + calendar +
                                 strings("abmon " + names.substr(0, 2 * abmon - 1)) +
                                 strings("mon " + names.substr(0, 2 * mon - 1))});
        if (job.run()) {
            EXPECT_EQ(job.object.time.calendar, want);
            EXPECT_EQ(job.object.time.mon.size(), mon);
        } else {
            EXPECT_NE(job.log.find(want), std::string::npos) << job.log;
        }
    }
}

// ---- diagnostics and files ---------------------------------------------------------------------

static std::string repeated(const char *line, int times) {
    std::string text;
    for (int i = 0; i < times; ++i)
        text += std::string(line) + std::to_string(i) + "\n";
    return text;
}

TEST(KovacDiagnostics, SaysOneThingAboutAMalformedSource) {
    const auto check = [](std::string source_parts::*part, const std::string &text,
                          const char *message) {
        SCOPED_TRACE(text.substr(0, 200));
        source_parts parts;
        parts.*part = text;
        compilation job(parts);
        EXPECT_FALSE(job.run());
        const size_t first = job.log.find("error: ");
        EXPECT_NE(first, std::string::npos) << job.log;
        EXPECT_EQ(job.log.find("error: ", first + 1), std::string::npos) << job.log;
        EXPECT_NE(job.log.find(message), std::string::npos) << job.log;
    };
    using parts = source_parts;
    check(&parts::ctype, "upper\t<U0041\n",
          ":4:7: error: symbol without its closing \">\"\n    upper\t<U0041\n         \t^\n");
    check(&parts::ctype, "upper .....\n", "error: ");
    check(&parts::ctype, "upper ..(0)..\n", "error: ");
    check(&parts::ctype, "upper /x41/x42/x43/x44/x45\n", "error: ");
    check(&parts::ctype, "upper ..<U0041>\n", "needs a character before");
    check(&parts::ctype, "upper <U0041>..\n", "needs a character after");
    check(&parts::ctype, "upper <U0043>..<U0041>\n", "before its start");
    check(&parts::ctype, "upper \"A\"\n", "a character, \";\" or");
    check(&parts::ctype, "toupper (a,A;(b,B)\n", "a pair is written");
    check(&parts::ctype, "class ; a\n", "a name is expected");
    check(&parts::ctype, "copy \"nowhere\"\n", "no locale source \"nowhere\"");
    check(&parts::ctype, "copy main\n", "copy needs the name");
    check(&parts::ctype, "copy \"main\"\n", "copy one another");
    check(&parts::ctype, "copy \"../main\"\n", "by name, not by path");
    check(&parts::ctype, repeated("charclass c", 257), "more than 256 classes");
    check(&parts::collate, "collating-symbol <A0>..<AFFFFFFFF>\n", "count up");
    check(&parts::collate, "collating-symbol <S00000000>..<SFFFFFFFF>\n", "more than 2097152");
    check(&parts::collate, "order_start forward\n<U0041>\n..\n<U7FFFFFFF>\norder_end\n",
          "more than 2097152");
    check(&parts::collate, repeated("ifdef X", 65), "more than 64 nested ifdefs");
    check(&parts::monetary, "frac_digits 2147483647\n", "from -1 (not stated) to 127");
    check(&parts::ctype, "END LC_TIME\n", "END of another category");
    check(&parts::numeric, "decimal_point 3\n", "a string is expected");
    check(&parts::numeric, "decimal_point \",\" \".\"\n", "the end of the line");
    check(&parts::numeric, "decimal_point \"<nothing>\"\n", "unknown character <nothing>");
    check(&parts::numeric, "grouping x\n", "a group size is expected");
    check(&parts::numeric, "grouping 200\n", "between -1 and 126");
    check(&parts::monetary, "frac_digits \"2\"\n", "one number is expected");
    check(&parts::monetary, "currency_symbol \"open\n", "closing quotation mark");
    check(&parts::time, "abday \"s\"\n", "1 strings instead of 7");
    check(&parts::time, "abday \"s\" \"m\"\n", "\";\" is expected");
    check(&parts::messages, "<U0041>\n", "a keyword is expected");
}

TEST(KovacDiagnostics, CutShortAnywhereItSaysSoAndNeverCrashes) {
    const std::string whole = source_parts().text();
    charmap map;
    ASSERT_TRUE(load_text(small_charmap(), map, nullptr));
    for (size_t cut = 0; cut + 2 < whole.size(); ++cut) {
        SCOPED_TRACE(cut);
        std::string log;
        diagnostics diag{.sink = &log};
        source_set set;
        set.files["main"] = std::make_unique<source_file>(
            source_file{.path = "main", .name = "main", .text = whole.substr(0, cut)});
        set.main = set.files["main"].get();
        locale_object object;
        EXPECT_FALSE(compile_locale(set, map, diag, object, nullptr));
        EXPECT_GE(diag.errors, 1);
        EXPECT_LE(diag.errors, 2) << log; // the cut itself and what it left of its line
    }
}

using KovacCommand = command_test;
TEST_F(KovacCommand, TellsItsFailuresApartAndLeavesNoFile) {
    source_parts bad;
    bad.time += "era \"+:1:x\"\n";
    spit(dir / "bad", bad.text());
    spit(dir / "main", source_parts().text());
    std::string chars = small_charmap();
    spit(dir / "cs", chars);
    spit(dir / "long", chars.insert(chars.find("END CHARMAP"), "<U4E00> /x8f/xa1/xa1\n"));
    spit(dir / "file", "");
    command = "kovac ";
    fails(2, "", "");
    fails(2, "locale -o root", "-i SOURCE");
    fails(2, "locale -o root -i main -f cs --codeset 1252", "ll_TT");
    for (const char *const name : {"xx_YY@toolong", "xx_YY@", "xx_YY@a-b"})
        fails(2, "locale -o root -i main -f cs --name "s + name, "one to four");
    for (const char *const name : {"xx__YY", "x1_YY", "1x_YY", "xx_1Y", "xx_Y1", "xxYY"})
        fails(2, "locale -o root -i main -f cs --name "s + name, "ll_TT");
    fails(2, "locale -o root -i main -f cs --name xx_YY --codeset 'a b'", "do not print");
    fails(2, "locale -o root -i main", "-f CHARMAP");
    spit(dir / "numbers", "x 5\n");
    spit(dir / "words", "x five\n");
    for (const auto &[registry, status, why] : {
             std::tuple("absent", 3, "cannot read registry"),
             {"words",   1, "words:1: a number"},
             {"numbers", 2, "has no number"    }
    })
        fails(status, "locale -o root -i main -f cs --name xx_YY --registry "s + registry, why);
    spit(dir / "five", "main cs xx_YY x y\n");
    spit(dir / "one", "main\n");
    for (const char *const list : {"five", "one"})
        fails(1, "locale -o root --list "s + list, "a line holds SOURCE CHARMAP");
    fails(2, "charmap -o root", "charmap needs CHARMAP");
    fails(3, "charmap -o root --list absent", "cannot read list");
    fails(1, "charmap -o root --list five", "five:1: one name per line");
    fails(2, "locale -o root -i main -f cs --name xx_YY", "has no number");
    fails(2, "locale -o root -i main -f cs --name xx_YY --codeset a-name-of-20-letters",
          "19 characters");
    fails(3, "locale -o root -i absent -f cs", "\"absent\"");
    fails(3, "locale -o root -i main -f absent", "\"absent\"");
    fails(3, "locale -o file -i main -f cs --default", "cannot write");
    fails(3, "locale -o root --list absent", "cannot read list");
    fails(1, "locale -o root -i bad -f cs --default", "does not load");
    writes("locale -o root -i main -f cs --default", "");
    fails(1, "locale -o root -i main -f long --default", "say --drop");
    writes("locale -o root -i main -f cs --name xx_YY@mod --codeset iso-8859-1", "");
    for (const char *const addition : {"bad", "big=65536", "=5", "x=", "x=a", "x=1:", "'#x=5'",
                                       "'a b=5'", "a-name-of-22-characters=5", "x=9999999999"})
        fails(2, "registry -o root --add "s + addition, "NAME=NUMBER");
    writes("registry -o root --add mine=4711", "");
    fails(3, "image absent", "cannot read absent/kova/cv9");
    fails(1, "image root 00010002", "00010002.cvo cannot be taken");
    const outcome dropped = shell("kovac locale -o root -i main -f long --default --drop");
    EXPECT_EQ(dropped.status, 0);
    EXPECT_NE(dropped.err.find("1 of three bytes are left out"), std::string::npos) << dropped.err;
    EXPECT_EQ(
        shell("find root -type f | sort").out,
        "root/kova/cm3/registry\nroot/kova/lc11/default.lco\nroot/kova/lc11/xx_yy/0333mod.lco\n");
}

// "ea" sorts after b followed by e, which one weight cannot say exactly.
TEST_F(KovacCommand, ProvesWhatTheListOfExceptionsAllowsAndNothingElse) {
    source_parts parts;
    parts.collate = "collating-element <ea> from \"ea\"\norder_start forward\n<U0061>\n<U0062>\n"
                    "<ea> \"<U0062><U0065>\"\n<U0063>\n<U0065>\norder_end\n";
    spit(dir / "xx_YY", parts.text());
    spit(dir / "cs", small_charmap());
    spit(dir / "none", "zz_ZZ SMALL element-1-00 99999 another locale\n");
    spit(dir / "list", "xx_YY SMALL element-1-00 99999 one weight\n"
                       "xx_YY SMALL element-0-00 99999 one weight\n");
    static const struct {
        const char *options;
        int status;
        const char *says;
    } rows[] = {
        {"--prove",                   1, "not proved"      },
        {"--prove --exceptions none", 1, "not proved"      },
        {"--prove --exceptions gone", 3, "cannot read list"},
        {"--exceptions list",         2, "--prove"         },
        {"--prove --exceptions list", 0, "one weight"      },
    };
    for (const auto &r : rows) {
        const outcome got = shell("kovac locale -o root -i xx_YY -f cs --default "s + r.options);
        EXPECT_EQ(got.status, r.status) << r.options << got.err;
        EXPECT_NE((got.out + got.err).find(r.says), std::string::npos) << r.options << got.err;
        EXPECT_EQ(shell("find root -name '*.lco'").out.empty(), r.status != 0) << r.options;
    }
}

TEST_F(KovacCommand, GivesTheSameBytesWhereverTheInputsAre) {
    made.write("here/locales/xx_YY", source_parts().text());
    made.write("here/charmaps/cs", small_charmap());
    environment["I18NPATH"] = made.path + "/here";
    command = "kovac locale ";
    writes("-i xx_YY -f cs --codeset 1252 -o here", "");
    writes("-i here/locales/xx_YY -f here/charmaps/cs --codeset 1252 -o there", "");
    const std::string object = made.read("here/kova/lc11/xx_yy/04e4.lco");
    EXPECT_NE(object, "");
    EXPECT_EQ(object, made.read("there/kova/lc11/xx_yy/04e4.lco"));
}

// ---- orders of less strength ----

static int sign_of(int n) { return n < 0 ? -1 : n > 0; }

// "a < b" or "=": the texts compare so, and so do their keys.
static void check_weak(ko_lc_t loc, const std::string &row) {
    const size_t sign = row.find(' ');
    const std::string texts[] = {row.substr(0, sign), row.substr(sign + 3)};
    const int want = row[sign + 1] == '<' ? -1 : 0;
    std::string keys[2];
    for (const int side : {0, 1}) {
        const std::string &text = texts[side], &other = texts[1 - side];
        keys[side].resize(256);
        const int64_t len = ko_utf8sxfrm(loc, keys[side].data(), 256, text.data(), text.size());
        ASSERT_TRUE(len >= 0 && len < 256);
        keys[side].resize(size_t(len));
        EXPECT_EQ(sign_of(ko_utf8scoll(loc, text.data(), text.size(), other.data(), other.size())),
                  side ? -want : want);
    }
    EXPECT_EQ(sign_of(keys[0].compare(keys[1])), want);
}

// The system's sources have case at level 3, in th_TH at 4, in ja_JP at 1.
TEST_F(KovacCommand, CompilesOrdersThatIgnoreCaseAndAccents) {
    if (!std::filesystem::exists("/usr/share/i18n/locales/de_DE")) GTEST_SKIP() << "no sources";
    spit(dir / "list", "de_DE unicode@ci\nde_DE unicode@ai\ntr_TR unicode@ci\nth_TH unicode@ci\n"
                       "th_TH unicode@ai\nja_JP unicode@ci\n");
    EXPECT_EQ(shell("kovac registry -o root").status, 0);
    EXPECT_EQ(shell("kovac locale --list list -o root").status, 0);
    // й is a letter of its own, and a vowel of Thai is no accent.
    static const char *const rows[] = {
        "de_DE.unicode@ci|ÄPFEL = äpfel|apfel < äpfel|a < B|straße = STRAẞE|STRASSE < straße",
        "de_DE.unicode@ci|Σοφός = σΟφόσ|σοφος < σοφός|Ёлка = ёЛКА|елка < ёлка",
        "de_DE.unicode@ci|ᲐᲑ = აბ|さくら = サクラ|カ < が",
        "de_DE.unicode@ai|straße = STRASSE|Äpfel = APFEL|Σοφός = σοφος|ёлка = ЕЛКА|и < й|が = カ",
        "tr_TR.unicode@ci|ISPARTA = ısparta|İzmir = izmir|ı < i",
        "th_TH.unicode@ci|\u0E02\u0E32 < \u0E02\u0E49\u0E32|aÀ = Aà",
        "th_TH.unicode@ai|\u0E02\u0E49\u0E32 = \u0E02\u0E32|\u0E02\u0E32 < \u0E40\u0E02\u0E32",
        "ja_JP.unicode@ci|さくらA = サクラa|か < ガ",
    };
    for (const std::string line : rows) {
        const auto words = split(line);
        owned<ko_close_locale> loc;
        ASSERT_EQ(
            ko_open_locale(&loc.handle, (dir / "root").c_str(), words[0].c_str(), KO_OPEN_VERIFY),
            0);
        for (size_t i = 1; i < words.size(); ++i) {
            SCOPED_TRACE(words[0] + " " + words[i]);
            check_weak(loc, words[i]);
        }
    }
    command = "kova ";
    environment["VANTORDIR"] = (dir / "root").string();
    writes("sort -u -l de_DE@ci", "A\nb\n\u00E9\n", "b\nA\n\u00E9\na\nB\n\u00C9\n");
    shows("locales", "de_DE without case and accents");
    shows("info de_DE@ci", "STRENGTH=ci, 2 of 4 levels; not total: what differs in case only is");
    fails(3, "compare de_DE a b", "there is no locale de_DE");
    command = "kovac locale -o root -f unicode --strength ai ";
    fails(1, "-i ko_KR", "tells case and accents apart");
    fails(2, "-i ca_ES@valencia --name ca_ES@valencia", "one to four");
    fails(2, "-i sr_RS@latin", "sr_RS@latn");
    command = "kovac locale -o root -i th_TH --thai ";
    fails(1, "-f unicode", "reads the bytes of TIS-620");
    shows("-f TIS-620 --prove", "object: 46011 strings of up to two characters");
    command = "kova ";
    shows("locales", "th_TH by the Thai method");
    shows("info th_TH.TIS-620@thai", "by the Thai method");
    const outcome sorted = shell("kova sort -l th_TH.TIS-620@thai --bytes",
                                 "\xE4\xA1\xE8\n\xA1\xA1\n\xA1\xD4\xB9\n\xA1\xE7\n");
    EXPECT_EQ(sorted.out, "\xA1\xE7\n\xA1\xA1\n\xA1\xD4\xB9\n\xE4\xA1\xE8\n") << sorted.err;
}

// What is up to date stays; what lacks a file, or failed, is compiled again.
TEST_F(KovacCommand, PacksWhatIsNotUpToDate) {
    command = "kovac pack -o root ";
    fails(2, "--only 'chart*'", "--only chart*: nothing has such a name");
    const auto summary = [this](const char *kind, const std::string &only) {
        const outcome got = shell(command + "--jobs 2 --only '" + only + "'");
        const size_t line = got.out.find(std::string("\n") + kind);
        std::istringstream words(got.out.substr(std::min(line, got.out.size())));
        std::string name, built, current, skipped, failed;
        words >> name >> built >> current >> skipped >> failed;
        return built + " " + current + " " + failed + ", status " + std::to_string(got.status);
    };
    EXPECT_EQ(summary("charmaps", "charmap ISO-8859-?"), "7 0 0, status 0");
    EXPECT_EQ(summary("charmaps", "charmap ISO-*"), "0 7 0, status 0");
    std::filesystem::remove(dir / "root/kova/cm3/0333.cmo");
    EXPECT_EQ(summary("charmaps", "charmap *-8859-?"), "1 6 0, status 0");
    EXPECT_EQ(summary("conversions", "utf8 unicode"), "1 0 0, status 0");
    made.write("own/locales/xx_YY", "nonsense\n");
    made.write("own/locales/ast_ES", source_parts().text());
    environment["I18NPATH"] = made.path + "/own";
    EXPECT_EQ(summary("locales", "xx_*"), "0 0 1, status 1");
    EXPECT_EQ(summary("locales", "ast_ES.unicode"), "1 0 0, status 0");
    EXPECT_EQ(summary("locales", "ast_ES.unicode"), "0 1 0, status 0");
    command = "kova ";
    shows("locales --root root", "qc_ES.unicode  unicode    57349  ast_ES");
    writes("compare --root root ast_ES a b", "<\n");
    command = "kovac pack -o root "; // a source that is carried along
    EXPECT_EQ(summary("locales", "he_IL.ISO-8859-8@hebr"), "1 0 0, status 0");
}

// ---- registry ----------------------------------------------------------------------------------

TEST(KovacLicense, SaysWhatTheSourcesSay) {
    kovac::source_set set;
    const auto add = [&set](std::string name, std::string text) {
        set.files[name] = std::make_unique<kovac::source_file>(
            kovac::source_file{.path = name, .name = name, .text = std::move(text), .pool = {}});
    };
    add("a", "% GNU Lesser General Public\n%   License as published\n");
    add("b", "LC_TIME\n");
    add("c", "# License: Public Domain\n% does not claim any copyright interest\r\n% in the locale "
             "data");
    EXPECT_EQ(kovac::license_lines(set),
              (std::vector<std::string>{"LICENSE=no copyright claimed in the data: c",
                                        "LICENSE=LGPL-2.1-or-later: a", "LICENSE=public domain: c",
                                        "LICENSE=nothing said: b"}));
    for (int i = 0; i < 40; ++i)
        add("long_name_" + std::to_string(i), "");
    const auto lines = kovac::license_lines(set);
    EXPECT_GT(lines.size(), 6u);
    for (const std::string &line : lines)
        EXPECT_LE(line.size(), 126u);
    EXPECT_TRUE(kovac::codeset_license("utf8").empty());
    EXPECT_FALSE(kovac::codeset_license("charmap IBM037").empty());
}

TEST(KovacRegistry, KeepsWhatAFileHoldsAndRefusesMalformedLines) {
    registry reg, again;
    std::string why;
    int line = 0;
    const std::string before = "# mine\n\n  ISO-8859-1   7  seven\nown 8\n";
    ASSERT_TRUE(parse_registry(before, reg, &line, &why)) << why;
    set_name(reg, "OWN", 9);
    add_code_sets(reg);
    const std::string after = registry_text(reg);
    EXPECT_TRUE(
        after.starts_with("# mine\n\niso-8859-1            7  seven\nown                   9\n"));
    ASSERT_TRUE(parse_registry(after, again, &line, &why)) << why;
    EXPECT_EQ(registry_text(again), after);
    EXPECT_EQ(find_name(again, "Iso-8859-1"), 7);
    EXPECT_EQ(find_name(again, "unicode"), 57349);
    for (const char *bad : {"name\n", "name x\n", "name 65536\n", "name 1x\n", "\x80 1\n",
                            "a-name-of-more-than-21-chars 1\n"}) {
        registry none;
        EXPECT_FALSE(parse_registry("fine 1\n" + std::string(bad), none, &line, &why)) << bad;
        EXPECT_EQ(line, 2);
    }
}

TEST(KovacRegistry, AgreesWithTheLibraryAndWithItself) {
    registry reg;
    add_code_sets(reg);
    for (const registry_line &line : reg.lines)
        EXPECT_LE(line.name.size(), name_limit) << line.name;
    std::set<unsigned> numbers;
    for (const code_set &set : code_sets())
        EXPECT_TRUE(numbers.insert(set.number).second) << set.number << " is there twice";
    // What the library reads from the file is what the compiler names its objects by.
    const temp_dir dir;
    const std::string file = dir.write("registry", registry_text(reg));
    test_handle handle;
    for (const char *name : {"ISO-8859-1", "KOI8-R", "SHIFT_JIS", "EUC-JP", "GB2312", "IBM037"})
        EXPECT_EQ(ko_cs_name2cs_num(handle, name, file.c_str()), find_code_set(name)) << name;
    // The library's built-in names keep their numbers in the file.
    ko_cache_registry(handle, (dir.path + "/absent").c_str());
    int built_in = 0;
    for (const registry_line &line : reg.lines) {
        const unsigned number = ko_cs_name2cs_num(handle, line.name.c_str(), nullptr);
        if (line.name.empty() || number == KO_NO_CODESET) continue;
        EXPECT_EQ(number, line.number) << line.name;
        ++built_in;
    }
    EXPECT_GE(built_in, 50);
}
