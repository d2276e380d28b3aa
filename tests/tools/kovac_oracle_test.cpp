// The evaluation of a source: small sources, pairs of strings and the level that tells them apart;
// and the judgement of compiled orders by it, with orders that are wrong.
#include <gtest/gtest.h>

#include <algorithm>

#include "kovac/kovac_collate_model.h"
#include "kovac/kovac_oracle.h"

using namespace kovac;

namespace {

using text16 = std::vector<uint16_t>;

// Code points up to a limit; each is the wide character of the same number.
charmap codes_below(uint32_t limit, bool unicode) {
    charmap map;
    map.name = "TEST";
    map.unicode = unicode;
    map.max_len = unicode ? 2 : 1;
    map.min_len = map.max_len;
    for (uint32_t c = 0; c < limit; ++c) {
        map.by_code[c] = c;
        map.chars.push_back({c, uint16_t(c), uint8_t(map.max_len), 1});
    }
    return map;
}

const charmap &bytes() {
    static const charmap map = codes_below(0x100, false);
    return map;
}
const charmap &units() {
    static const charmap map = codes_below(0x10000, true);
    return map;
}

// A source of LC_COLLATE lines; "|" ends a line, too.
struct evaluated {
    std::string log;
    diagnostics diag{.sink = &log};
    source_set set;
    oracle order;

    explicit evaluated(const std::string &body, const charmap &map = bytes(),
                       const std::string &copied = "") {
        add("base", copied);
        add("main", body);
        set.main = set.files.find("main")->second.get();
        EXPECT_TRUE(read_oracle(set, map, diag, order)) << log;
    }
    void add(const std::string &name, std::string body) {
        std::replace(body.begin(), body.end(), '|', '\n');
        auto file = std::make_unique<source_file>();
        file->path = file->name = name;
        file->text = "comment_char %\nescape_char /\nLC_COLLATE\n" + body + "\nEND LC_COLLATE\n";
        set.files[name] = std::move(file);
    }
};

text16 wide(std::u16string_view text) { return text16(text.begin(), text.end()); }

// a b e o with case and accents at levels 2 and 3, a hyphen for the last level only, and o with an
// umlaut as "oe".
const std::string latin =
    "collating-symbol <B>|collating-symbol <ACUTE>|collating-symbol <UML>|collating-symbol <MIN>|"
    "collating-symbol <CAP>|<B>|<ACUTE>|<UML>|<MIN>|<CAP>|"
    "order_start <L>;forward;DIRECTION;forward;forward,position|"
    "<U002D> IGNORE;IGNORE;IGNORE;<U002D>|"
    "<U0301> IGNORE;<ACUTE>;<MIN>;IGNORE|"
    "<U0061> <U0061>;<B>;<MIN>;<U0061>|<U0041> <U0061>;<B>;<CAP>;<U0041>|"
    "<U0062> <U0062>;<B>;<MIN>;<U0062>|"
    "<U0065> <U0065>;<B>;<MIN>;<U0065>|<U00E9> <U0065>;\"<B><ACUTE>\";\"<MIN><MIN>\";<U00E9>|"
    "<U006F> <U006F>;<B>;<MIN>;<U006F>|<U00F4> <U006F>;\"<B><UML>\";\"<MIN><MIN>\";<U00F4>|"
    "<U00F6> \"<U006F><U0065>\";\"<B><UML><B>\";\"<MIN><MIN>\";<U00F6>|"
    "<U0078> <U0078>;<B>;<MIN>;IGNORE|order_end";

std::string latin_with(const char *direction) {
    std::string text = latin;
    return text.replace(text.find("DIRECTION"), 9, direction);
}

const std::string spanish =
    "collating-element <ch> from \"ch\"|collating-element <chh> from \"chh\"|"
    "order_start forward;forward|<U0061>|<U0068>|<U0063>|<ch>|<chh>|<U0064>|"
    "order_end";

struct pair_row {
    const std::string &source;
    const char16_t *a, *b;
    int sign;
    size_t level; // that decides; 0: none
};

void check(const std::vector<pair_row> &rows, const charmap &map, const std::string &copied = "") {
    for (const pair_row &r : rows) {
        const evaluated e(r.source, map, copied);
        const text16 a = wide(r.a), b = wide(r.b);
        size_t level = 0;
        const int sign = compare_texts(e.order, a, b, &level);
        const std::string name = r.source + "  row " + std::to_string(&r - rows.data());
        EXPECT_EQ(sign, r.sign) << name;
        EXPECT_EQ(sign ? level : 0, r.level) << name;
        EXPECT_EQ(compare_texts(e.order, b, a), -r.sign) << name;
    }
}

} // namespace

TEST(Oracle, ComparesLevelByLevel) {
    const std::string forward = latin_with("forward"), backward = latin_with("backward");
    check(
        {
            {forward,  u"ab",       u"aab",    1,  1},
            {forward,  u"a",        u"ab",     -1, 1},
            {forward,  u"Aa",       u"b",      -1, 1},
            {forward,  u"aA",       u"Aa",     -1, 3},
            {forward,  u"eb\xE9",
             u"\xE9"
             u"be",                            -1, 2},
            {backward, u"eb\xE9",
             u"\xE9"
             u"be",                            1,  2},
 // The weights of one character keep their order: umlaut before nothing, from the end.
            {backward, u"\xF4\xE9", u"o\xE9",  1,  2},
            {backward, u"\xE9-e",   u"e-\xE9", -1, 2},
 // Several weights are compared with those of other characters.
            {forward,  u"\xF6",     u"ob",     1,  1},
            {forward,  u"\xF6",     u"oe",     1,  2},
            {forward,
             u"\xF6"
             u"a",                  u"oeb",    -1, 1},
            {forward,  u"e\x301",   u"\xE9",   -1, 4},
    },
        units());
}

TEST(Oracle, PositionPutsWeightsThatComeLaterLater) {
    const std::string source = latin_with("forward");
    check(
        {
            {source, u"a-b",  u"ab",  -1, 4}, // a hyphen weighs less than b
            {source, u"x-a",  u"-xa", 1,  4}, // x is ignored there, but counts as a place
            {source, u"xx-",  u"x-x", 1,  4},
            {source, u"a-x",  u"a-x", 0,  0},
            {source, u"-xbx", u"-xb", 1,  1},
    },
        bytes());
}

TEST(Oracle, FindsTheLongestElement) {
    check(
        {
            {spanish, u"ch",   u"cha", -1, 1},
            {spanish, u"cd",   u"ch",  -1, 1},
            {spanish, u"chd",  u"chh", -1, 1},
            {spanish, u"chha", u"chd", 1,  1},
            {spanish, u"cch",  u"ch",  -1, 1},
    },
        bytes());
}

TEST(Oracle, ReadsWhatSourcesSay) {
    static const std::string base = "order_start forward|<U0061>|<U0062>|<U0063>|<U0064>|order_end";
    static const std::string
        moved = "copy \"base\"|reorder-after <U0062>|<U0064>|<U007A> <U0061>|reorder-end",
        twice = "copy \"base\"|order_start forward|<U0065>|<U0061>|order_end",
        hex = "order_start forward;forward|<U0061>|..|<U0065>|<U0030>|..(2)..|<U0034>|order_end",
        dots = "order_start forward;forward|<U0063> <U0063>;IGNORE|... ...;IGNORE|<U007A>|"
               "UNDEFINED|order_end",
        equal = "collating-symbol <ONE>|symbol-equivalence <TWO> <ONE>|order_start forward;forward|"
                "<ONE>|<U0062> <TWO>;<U0062>|<U0061> <ONE>;<U0061>|order_end",
        branch = "define X|ifdef Y|order_start forward|else|ifdef X|order_start backward|endif|"
                 "endif|<U0061>|undef X|ifndef X|<U0062>|elifdef X|<U0063>|endif|order_end",
        sections = "script <A>|script <B>|order_start <A>;forward|<U0061>|order_end|"
                   "order_start <B>;forward|<U0031>|order_end|reorder-sections-after <B>|<A>|"
                   "reorder-sections-end",
        lost = "order_start forward;forward|<U0061> \"<gone><U0061>\"|<U0062> <U0061>;<U0062>|"
               "order_end",
        signs = "order_start forward|b|/x61 \"b/<\"|<U0063> \"bc\"|/<|order_end",
        codes = "codepoint_collation";
    check(
        {
            {moved,    u"b",  u"d",  -1, 1},
            {moved,    u"d",  u"c",  -1, 1},
            {moved,    u"za", u"ab", -1, 1},
            {twice,    u"d",  u"e",  -1, 1},
            {twice,    u"a",  u"b",  -1, 1}, // a stays where its first line put it
            {hex,      u"a",  u"c",  -1, 1},
            {hex,      u"d",  u"e",  -1, 1},
            {hex,      u"2",  u"4",  -1, 1},
            {dots,     u"d",  u"c",  1,  1},
            {dots,     u"y",  u"z",  -1, 1},
            {equal,    u"b",  u"a",  -1, 2}, // they weigh alike at the first level
            {equal,    u"bb", u"a",  1,  1},
            {branch,   u"ab", u"ba", 1,  1},
            {sections, u"1",  u"a",  -1, 1},
            {lost,     u"a",  u"b",  -1, 2},
            {signs,    u"a",  u"bc", 1,  1},
            {signs,    u"c",  u"a",  -1, 1},
            {codes,    u"Z",  u"a",  -1, 1},
    },
        bytes(), base);
}

// What "unicode" adds to a source, and what the code set of bytes leaves open.
TEST(Oracle, WeighsCharactersWithoutALineByTheirCodesInUnicodeOnly) {
    std::string jamo = "order_start forward;forward";
    for (uint32_t c = 0x1100; c < 0x1113; ++c)
        jamo += format("|<U%04X>", c);
    jamo += "|<U0061>|order_end";
    check(
        {
            {jamo, u"\xAC00",       u"\x1100", 1,  1},
            {jamo, u"\xAC00",       u"\x1101", -1, 1},
            {jamo, u"\xAC01",       u"\xAC00", 1,  1},
            {jamo, u"a",            u"\x4E00", -1, 1},
            {jamo, u"\x4E00",       u"\xE000", -1, 1},
            {jamo, u"\xD83D\xDE00", u"\xE000", 1,  1},
            {jamo, u"\xD83D\xDE00", u"\xFFFF", -1, 1},
    },
        units());
    // U+F900 stands for U+8C48, U+FA6C for U+242EE; U+F901 has a place of its own.
    const std::string lines = "order_start forward;forward|<U0061>|<U8C48> <U8C48>;IGNORE|"
                              "<UF900> \"<U0061><U0061>\";<U0061>|<UF901>|order_end";
    check(
        {
            {lines, u"\xF900\x61", u"\x8C48",       1,  1},
            {lines, u"\xF900",     u"\x8C48",       0,  0},
            {lines, u"\xF901",     u"\x66F4",       -1, 1},
            {lines, u"\xFA6C",     u"\xD850\xDEEE", 0,  0},
            {lines, u"\xFAD2",     u"\x3B9D",       0,  0},
    },
        units());
    const evaluated e("order_start forward|<U0061>|order_end");
    std::vector<uint32_t> tokens;
    EXPECT_FALSE(find_tokens(e.order, wide(u"ab"), tokens));
    EXPECT_TRUE(find_tokens(e.order, wide(u"aa"), tokens));
}

// What differs in case only is equal up to the level before that of case, at the first level alone
// accents are, too; where that level tells case apart, capitals weigh as small letters.
TEST(Oracle, LeavesOutTheLevelsOfCaseAndAccents) {
    static const std::string one = "order_start forward|<U0041>|<U0042>|<U0061>|<U0062>|order_end";
    static const std::string two = latin_with("forward");
    const std::vector<letter_pair> pairs = {
        {'A',    'a'   },
        {'B',    'b'   },
        {0xA7C2, 0xA7C3},
    };
    static const struct {
        const std::string &source;
        strength keeps;
        const char16_t *a, *b;
        int sign;
    } rows[] = {
        {two, strength::accents, u"aB",      u"Ab",      0 },
        {two, strength::accents, u"\xE9",    u"e",       1 },
        {two, strength::accents, u"a-b",     u"ab",      0 },
        {two, strength::letters, u"\xE9",    u"e",       0 },
        {two, strength::letters, u"e",       u"o",       -1},
        {two, strength::accents, u"x\xA7C2", u"x\xA7C3", 0 },
        {two, strength::accents, u"\xA7C2",  u"\xA7C4",  -1},
        {one, strength::accents, u"A",       u"a",       0 },
        {one, strength::accents, u"B",       u"a",       1 },
    };
    for (const auto &r : rows) {
        evaluated e(r.source, units());
        ASSERT_TRUE(weaken_oracle(e.order, r.keeps, pairs));
        EXPECT_FALSE(e.order.total);
        EXPECT_EQ(compare_texts(e.order, wide(r.a), wide(r.b)), r.sign) << &r - rows;
        EXPECT_EQ(compare_texts(e.order, wide(r.b), wide(r.a)), -r.sign) << &r - rows;
    }
    evaluated e(one);
    EXPECT_FALSE(weaken_oracle(e.order, strength::letters, pairs));
    EXPECT_FALSE(weaken_oracle(e.order, strength::accents, {}));
}

// ---- judgement ---------------------------------------------------------------------------------

namespace {

struct compiled {
    evaluated source;
    collation tables;
    collation_model model;

    explicit compiled(const std::string &body) : source(body) {
        EXPECT_TRUE(compile_collation(source.set, bytes(), source.diag, tables, nullptr))
            << source.log;
    }
    static int compare(void *self, oracle_text a, oracle_text b) {
        return compare_wide(static_cast<compiled *>(self)->model, a, b);
    }
    judgement judge() {
        model = make_model(bytes(), tables);
        judgement found;
        judge_order(source.order, wide(u"acdh"), compare, this, found);
        return found;
    }
};

} // namespace

TEST(OracleJudgement, FindsTablesThatDifferFromTheirSource) {
    compiled good(spanish);
    const judgement none = good.judge();
    EXPECT_TRUE(none.kinds.empty()) << none.kinds.begin()->second.example;
    EXPECT_GT(none.comparisons, 20000u);

    compiled letters(spanish);
    std::swap(letters.tables.rows['a'], letters.tables.rows['h']);
    const judgement swapped = letters.judge();
    ASSERT_TRUE(swapped.kinds.count("letter-1"));
    EXPECT_EQ(swapped.kinds.at("letter-1").example,
              "\"\\u0061\" after \"\\u0068\", in the source before");

    compiled elements(spanish);
    elements.tables.elements.clear();
    EXPECT_TRUE(elements.judge().kinds.count("element-1-00"));

    compiled ties("order_start forward;forward|<U0061>|<U0062> <U0061>;<U0061>|<U0063>|order_end");
    ASSERT_TRUE(ties.judge().kinds.empty());
    ties.tables.rows['b'] = ties.tables.rows['c'];
    ties.tables.rows['c'] = ties.tables.rows['a'];
    EXPECT_TRUE(ties.judge().kinds.count("letter-0"));
}

TEST(OracleJudgement, AllowsWhatTheListNamesAndNoMore) {
    judgement found{.strings = 10, .comparisons = 20, .kinds = {}};
    found.kinds["element-1-0E"] = {.count = 5, .example = "\"\\u0061\" before \"\\u0062\""};
    static const struct {
        const char *list;
        bool ok;
        const char *says;
    } rows[] = {
        {"",                                                         false, "element-1-0E: 5 differences"},
        {"xx_YY unicode element-1-0E 5 the reason",                  true,  "the reason"                 },
        {"xx_YY unicode element-1-0E 4 the reason",                  false, "list allows 4"              },
        {"xx_YY unicode element-1-0F 9 another page",                false, "list allows 0"              },
        {"zz_ZZ unicode element-1-0E 9 another locale",              false, "list allows 0"              },
        {"xx_YY ISO-1 element-1-0E 9 another code set",              false, "list allows 0"              },
        {"# xx_YY unicode element-1-0E 9 a remark",                  false, "list allows 0"              },
        {"* * element-1-0E 9 all",                                   true,  "all"                        },
        {"xx_YY * element-1-0E 4 own\n* * element-1-0E 9 all",       false, "list allows 4"              },
        {"* * element-1-0E 4 all\nxx_YY unicode element-1-0E 5 own", true,  "own"                        },
        {"* unicode element-1-0E 4 set\n* * element-1-0E 9 all",     false, "list allows 4"              },
        {"xx_YY unicode element-1-0E -5 sign",                       false, "list allows"                },
    };
    for (const auto &r : rows) {
        proof_report report;
        report_judgement(found, "xx_YY", "unicode", {"list", r.list}, report);
        std::string lines;
        for (const std::string &line : report.lines)
            lines += line + "\n";
        EXPECT_EQ(report.ok, r.ok) << r.list;
        EXPECT_NE(lines.find(r.says), std::string::npos) << r.list << "\n" << lines;
    }
}
