// The evaluation of a source: small sources, pairs of strings and the level that tells them apart;
// and the judgement of compiled orders by it, with orders that are wrong.
#include "kovac/kovac_collate_model.h"
#include "kovac/kovac_oracle.h"

#include "tools/collate_sources.h"

using namespace kovac;

namespace {

struct evaluated : sources {
    oracle order;
    explicit evaluated(const std::string &body, const charmap &chars = byte_set(),
                       const std::string &copied = "")
        : sources(body, chars,
                  {
                      {"base", copied}
    }) {
        EXPECT_TRUE(read_oracle(set, map, diag, order)) << messages;
    }
};

// a b e o with case and accents at levels 2 and 3, a hyphen for the last level only, and o with an
// umlaut as "oe".
std::string latin_with(const std::string &direction) {
    return "collating-symbol <B>|collating-symbol <ACUTE>|collating-symbol <UML>|"
           "collating-symbol <MIN>|collating-symbol <CAP>|<B>|<ACUTE>|<UML>|<MIN>|<CAP>|"
           "order_start <L>;forward;" +
           direction +
           R"(;forward;forward,position|<U002D> IGNORE;IGNORE;IGNORE;<U002D>
<U0301> IGNORE;<ACUTE>;<MIN>;IGNORE|<U0061> <U0061>;<B>;<MIN>;<U0061>|<U0041> <U0061>;<B>;<CAP>;<U0041>
<U0062> <U0062>;<B>;<MIN>;<U0062>|<U0065> <U0065>;<B>;<MIN>;<U0065>
<U00E9> <U0065>;"<B><ACUTE>";"<MIN><MIN>";<U00E9>|<U006F> <U006F>;<B>;<MIN>;<U006F>
<U00F4> <U006F>;"<B><UML>";"<MIN><MIN>";<U00F4>|<U00F6> "<U006F><U0065>";"<B><UML><B>";"<MIN><MIN>";<U00F6>
<U0078> <U0078>;<B>;<MIN>;IGNORE|order_end)";
}
const std::string latin = latin_with("forward");

const std::string spanish =
    "collating-element <ch> from \"ch\"|collating-element <chh> from \"chh\"|"
    "order_start forward;forward|<U0061>|<U0068>|<U0063>|<ch>|<chh>|<U0064>|"
    "order_end";

int sign_of(char16_t sign) { return sign == u'<' ? -1 : sign == u'>'; }

// Rows by blanks: two texts, between them their order and the level that decides, 0 for none.
void check(const std::string &source, const std::u16string &rows, const charmap &map = byte_set(),
           const std::string &copied = "") {
    const evaluated e(source, map, copied);
    for (size_t at = 0, end; at < rows.size(); at = end + 1) {
        end = std::min(rows.find(u' ', at), rows.size());
        const size_t sign = rows.find_first_of(u"<=>", at);
        const units a = units_of(rows.substr(at, sign - at)),
                    b = units_of(rows.substr(sign + 2, end - sign - 2));
        size_t level = 0;
        const int order = compare_texts(e.order, a, b, &level);
        EXPECT_EQ(order, sign_of(rows[sign])) << source << " at " << at;
        EXPECT_EQ(order ? level : 0, size_t(rows[sign + 1] - u'0')) << source << " at " << at;
        EXPECT_EQ(compare_texts(e.order, b, a), -order) << source << " at " << at;
    }
}

} // namespace

TEST(Oracle, ComparesLevelByLevel) {
    // Several weights are compared with those of other characters. From the end the weights of one
    // character keep their order: umlaut before nothing.
    check(latin,
          u"ab>1aab a<1ab Aa<1b aA<3Aa ebé<2ébe ö>1ob ö>2oe öa<1oeb "
          u"e\u0301<4é",
          wide_set());
    check(latin_with("backward"), u"ebé>2ébe ôé>2oé é-e<2e-é", wide_set());
}

TEST(Oracle, PositionPutsWeightsThatComeLaterLater) {
    // A hyphen weighs less than b; x is ignored there, but counts as a place.
    check(latin, u"a-b<4ab x-a>4-xa xx->4x-x a-x=0a-x -xbx>1-xb");
}

TEST(Oracle, FindsTheLongestElement) {
    check(spanish, u"ch<1cha cd<1ch chd<1chh chha>1chd cch<1ch");
}

TEST(Oracle, ReadsWhatSourcesSay) {
    const std::string base = "order_start forward|<U0061>|<U0062>|<U0063>|<U0064>|order_end";
    check("copy \"base\"|reorder-after <U0062>|<U0064>|<U007A> <U0061>|reorder-end",
          u"b<1d d<1c za<1ab", byte_set(), base);
    // a stays where its first line put it
    check("copy \"base\"|order_start forward|<U0065>|<U0061>|order_end", u"d<1e a<1b", byte_set(),
          base);
    check("order_start forward;forward|<U0061>|..|<U0065>|<U0030>|..(2)..|<U0034>|order_end",
          u"a<1c d<1e 2<14");
    check("order_start forward;forward|<U0063> <U0063>;IGNORE|... ...;IGNORE|<U007A>|UNDEFINED|"
          "order_end",
          u"d>1c y<1z");
    check("collating-symbol <ONE>|symbol-equivalence <TWO> <ONE>|order_start forward;forward|<ONE>|"
          "<U0062> <TWO>;<U0062>|<U0061> <ONE>;<U0061>|order_end",
          u"b<2a bb>1a");
    check("define X|ifdef Y|order_start forward|else|ifdef X|order_start backward|endif|endif|"
          "<U0061>|undef X|ifndef X|<U0062>|elifdef X|<U0063>|endif|order_end",
          u"ab>1ba");
    check("script <A>|script <B>|order_start <A>;forward|<U0061>|order_end|order_start <B>;forward|"
          "<U0031>|order_end|reorder-sections-after <B>|<A>|reorder-sections-end",
          u"1<1a");
    check("order_start forward;forward|<U0061> \"<gone><U0061>\"|<U0062> <U0061>;<U0062>|order_end",
          u"a<2b");
    check("order_start forward|b|/x61 \"b/<\"|<U0063> \"bc\"|/<|order_end", u"a>1bc c<1a");
    check("codepoint_collation", u"Z<1a");
}

// What "unicode" adds to a source, and what the code set of bytes leaves open.
TEST(Oracle, WeighsCharactersWithoutALineByTheirCodesInUnicodeOnly) {
    std::string jamo = "order_start forward;forward";
    for (uint32_t c = 0x1100; c < 0x1113; ++c)
        jamo += format("|<U%04X>", c);
    check(jamo + "|<U0061>|order_end",
          u"\uAC00>1\u1100 \uAC00<1\u1101 \uAC01>1\uAC00 a<1\u4E00 \u4E00<1\uE000 "
          u"\U0001F600>1\uE000 \U0001F600<1\uFFFF",
          wide_set());
    // U+F900 stands for U+8C48, U+FA6C for U+242EE; U+F901 has a place of its own.
    check("order_start forward;forward|<U0061>|<U8C48> <U8C48>;IGNORE|"
          "<UF900> \"<U0061><U0061>\";<U0061>|<UF901>|order_end",
          u"\uF900a>1\u8C48 \uF900=0\u8C48 \uF901<1\u66F4 \uFA6C=0\U000242EE \uFAD2=0\u3B9D",
          wide_set());
    const evaluated e("order_start forward|<U0061>|order_end");
    std::vector<uint32_t> tokens;
    EXPECT_FALSE(find_tokens(e.order, units_of(u"ab"), tokens));
    EXPECT_TRUE(find_tokens(e.order, units_of(u"aa"), tokens));
}

// What differs in case only is equal up to the level before that of case, at the first level alone
// accents are, too; where that level tells case apart, capitals weigh as small letters.
TEST(Oracle, LeavesOutTheLevelsOfCaseAndAccents) {
    static const std::string one = "order_start forward|<U0041>|<U0042>|<U0061>|<U0062>|order_end";
    const std::vector<letter_pair> pairs = {
        {'A',    'a'   },
        {'B',    'b'   },
        {0xA7C2, 0xA7C3},
    };
    const auto weakly = [&](const std::string &source, strength keeps, std::u16string_view a,
                            char16_t sign, std::u16string_view b) {
        SCOPED_TRACE(source);
        evaluated e(source, wide_set());
        ASSERT_TRUE(weaken_oracle(e.order, keeps, pairs));
        EXPECT_FALSE(e.order.total);
        EXPECT_EQ(compare_texts(e.order, units_of(a), units_of(b)), sign_of(sign));
        EXPECT_EQ(compare_texts(e.order, units_of(b), units_of(a)), -sign_of(sign));
    };
    weakly(latin, strength::accents, u"aB", '=', u"Ab");
    weakly(latin, strength::accents, u"é", '>', u"e");
    weakly(latin, strength::accents, u"a-b", '=', u"ab");
    weakly(latin, strength::letters, u"é", '=', u"e");
    weakly(latin, strength::letters, u"e", '<', u"o");
    weakly(latin, strength::accents, u"x\uA7C2", '=', u"x\uA7C3");
    weakly(latin, strength::accents, u"\uA7C2", '<', u"\uA7C4");
    weakly(one, strength::accents, u"A", '=', u"a");
    weakly(one, strength::accents, u"B", '>', u"a");
    evaluated e(one);
    EXPECT_FALSE(weaken_oracle(e.order, strength::letters, pairs));
    EXPECT_FALSE(weaken_oracle(e.order, strength::accents, {}));
}

// ---- judgement ---------------------------------------------------------------------------------

namespace {

struct compiled : evaluated {
    collation_model model;
    explicit compiled(const std::string &body) : evaluated(body) {
        EXPECT_TRUE(compile()) << messages;
    }
    static int compare(void *self, oracle_text a, oracle_text b) {
        return compare_wide(static_cast<compiled *>(self)->model, a, b);
    }
    judgement judge() {
        model = make_model(map, tables);
        judgement found;
        judge_order(order, units_of(u"acdh"), compare, this, found);
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
