// The collation compiler on small sources: the order that they describe must come out of the
// tables, and the tables must keep the limits of the library's comparers.
#include "kovac/kovac_collate_levels.h"
#include "kovac/kovac_collate_model.h"
#include "kovac/kovac_oracle.h"

#include "tools/collate_sources.h"

#include <random>

using namespace kovac;

namespace {

units bytes_of(const std::string &s) { return {mb(s.c_str()), mb(&*s.end())}; }

// Compiled sources, whose tables are proved.
struct compiled : sources {
    collation_model model;

    explicit compiled(const std::string &body, const charmap &chars = byte_set(),
                      const std::map<std::string, std::string> &others = {},
                      const collation_options &options = {})
        : sources(body, chars, others) {
        EXPECT_TRUE(compile(options)) << messages;
        model = make_model(map, tables);
        proof_report report;
        prove_collation(map, tables, report);
        for (const std::string &line : report.lines)
            EXPECT_TRUE(report.ok) << line;
    }
    int compare(const std::string &a, const std::string &b) const {
        return compare_installed(model, bytes_of(a), bytes_of(b));
    }
    int compare(std::u16string_view a, std::u16string_view b) const {
        return compare_wide(model, units_of(a), units_of(b));
    }
    // "a < b = c": every neighbour as written.
    template <class Char> void expect(const Char *chain) const {
        using text = std::basic_string<Char>;
        std::vector<text> words(1);
        for (; *chain; ++chain)
            *chain == ' ' ? words.emplace_back() : words.back() += *chain;
        for (size_t i = 2; i < words.size(); i += 2)
            EXPECT_EQ(compare(words[i - 2], words[i]), words[i - 1][0] == '<' ? -1 : 0)
                << testing::PrintToString(words[i - 2]) << testing::PrintToString(words[i]);
    }
    const std::vector<uint16_t> &weights_of(uint16_t ch) const {
        return tables.weights[tables.rows.at(ch)];
    }
};

// The chain is the order of a source.
void sorts(const char *chain, const charmap &chars, const std::string &body) {
    compiled(body, chars).expect(chain);
}

// Base letters and accents in the manner of the large shared table: e with acute, o with an
// umlaut, sharp s as two letters, a hyphen that only the last level sees.
const char *const latin =
    R"(script <MARKS>|collating-symbol <BASE>|collating-symbol <ACUTE>|collating-symbol <UML>
collating-symbol <LIG>|collating-symbol <MIN>|collating-symbol <CAP>
collating-symbol <s01>..<s1F>|<BASE>|<ACUTE>|<UML>|<LIG>|<MIN>|<CAP>|<s01>|<s02>|<s03>|<s04>
<s05>|<s06>|<s07>|order_start <MARKS>;forward;forward;forward;forward,position
<U0000> IGNORE;IGNORE;IGNORE;<U0000>|<U002D> IGNORE;IGNORE;IGNORE;<U002D>
<U0061> <s01>;<BASE>;<MIN>;<U0061>|<U0041> <s01>;<BASE>;<CAP>;<U0041>
<U0062> <s02>;<BASE>;<MIN>;<U0062>|<U0065> <s03>;<BASE>;<MIN>;<U0065>
<U00E9> <s03>;"<BASE><ACUTE>";"<MIN><MIN>";<U00E9>|<U006F> <s04>;<BASE>;<MIN>;<U006F>
<U00F6> <s04>;"<BASE><UML>";"<MIN><MIN>";<U00F6>|<U0073> <s05>;<BASE>;<MIN>;<U0073>
<U00DF> "<s05><s05>";"<BASE><LIG><BASE>";"<MIN><MIN>";<U00DF>|<U0074> <s06>;<BASE>;<MIN>;<U0074>
<U007A> <s07>;<BASE>;<MIN>;<U007A>|order_end
)";

} // namespace

TEST(CollateSource, OrdersByLevelsAndIgnores) {
    const compiled c(latin);
    c.expect("a < A < -aa < aa < aA < b < e < \xE9 < eb < \351b < es < o < \xF6 < oa < ss < \xDF < "
             "st < z");
    c.expect("a-b < ab < A-b < Ab");
    EXPECT_EQ(c.tables.pass_types.size(), 4u);
    EXPECT_LT(c.tables.num_weights, 254); // one byte a weight
}

// Two sources that copy one table: its lines are skipped the second time, ranges included.
TEST(CollateSource, CopiesOneTableTwice) {
    const compiled c(
        R"(copy "first"|copy "second"|)", byte_set(),
        {
            {"base",   R"(order_start forward|<U0061>|.. <U0061>|<U0065>|<U007A>|order_end|)"},
            {"first",  R"(copy "base"|reorder-after <U007A>|<U0062>|reorder-end|)"           },
            {"second", R"(copy "base"|reorder-after <U007A>|<U0063>|reorder-end|)"           }
    });
    c.expect("a = d < e < z < c < b");
}

TEST(CollateSource, FollowsCopiesConditionsAndReordering) {
    static const char base[] =
        R"(order_start forward|<U0061>|<U0062>|ifndef LAST_A|<U0063>|endif|<U0064>|<U0073>|<U0074>|<U007A>
undef LAST_A|order_end
)";
    const compiled c(
        R"(define LAST_A|copy "base"|reorder-after <U0062>|ifdef LAST_A|<U007A>|elifdef OTHER|<U0073>|else
<U0074>|endif|reorder-end
)",
        byte_set(), std::map<std::string, std::string>({std::pair("base", base)}));
    c.expect("a < b < t < d < s < z");
}

TEST(CollateSource, MovesSectionsAndEquatesSymbols) {
    sorts(
        "1 < 2 < a < b < aa < ab < bb", byte_set(),
        R"(symbol-equivalence <TWO> <ONE>|collating-symbol <ONE>|collating-symbol <X>|script <A>|script <B>
order_start <A>;forward;forward|<ONE>|<X>|<U0061> <U0061>;<TWO>|<U0062> <U0061>;<X>|order_end
order_start <B>;forward;forward|<U0031>|<U0032>|order_end|reorder-sections-after <B>|<A>
reorder-sections-end
)");
}

TEST(CollateSource, FillsEllipses) {
    const compiled c(
        R"(order_start forward;forward|<U0063>|<U0061> <U0061>;<U0061>|.. ..;IGNORE|<U0065> <U0065>;IGNORE
/x7a|...|UNDEFINED|order_end
)");
    c.expect("c < a < b < d < e < z < { < |");
    const compiled hex("collating-symbol <X09>..<X0B>|order_start forward|<X0A>|<X0B>|<X09>|"
                       "<U0061> <X0B>|<U0062> <X0A>|<U0063> <X09>|order_end|");
    hex.expect("b < a < c");
}

TEST(CollateSource, ReportsPlaceAndReason) {
    const auto refuses = [](const std::string &body, const char *want) {
        sources c(body);
        EXPECT_FALSE(c.compile());
        EXPECT_NE(c.messages.find(want), std::string::npos) << body << c.messages;
    };
    refuses("reorder-after <nowhere>\n", "main:4:15: error: reorder-after needs");
    refuses("ifdef X\n", "ifdef without endif");
    refuses("endif\n", "endif without ifdef");
    refuses("order_start forward;sideways\n", "expected forward, backward");
    refuses("collating-element <x> \"ab\"\n", "collating-element <name> from");
    refuses("order_start forward\n<U0061> 12;\norder_end\n", "not a weight");
    refuses("collating-symbol <A1>..<B22>\n", "hexadecimal digits");
    refuses("copy \"main\"\n", "copy one another endlessly");
    refuses("order_start 1;2;3;4;5;6;7;8;9\n", "expected forward, backward");
    refuses("order_start forward;;;;;;;;forward\n", "more than 8 levels");
    refuses("order_start forward\n<U0061> \"<U0062\"\norder_end\n", "without its closing");
}

TEST(CollateTables, ExpandOnlyWhereOneNumberWouldNotDo) {
    const compiled c(latin);
    // Sharp s is two letters at the first level, one number at the second; an accent is a number
    // at the second and spelled at none: the second level has told é from e already.
    const auto &sharp = c.weights_of(0xDF), &acute = c.weights_of(0xE9);
    EXPECT_TRUE(sharp[0] & weight_expands);
    EXPECT_FALSE((sharp[1] | acute[1] | acute[2]) & weight_expands);
    for (const auto &e : c.tables.expansions) {
        EXPECT_LE(e.size(), 7u);
        for (const uint16_t ch : e) {
            EXPECT_NE(ch, 0);
            for (const uint16_t w : c.weights_of(ch))
                EXPECT_FALSE(w & weight_expands);
        }
    }
}

// Marks that may follow any letter make accents inexact as numbers: they must be spelled.
TEST(CollateTables, CompareAsTheSequencesOfTheirWeights) {
    compiled c(
        R"(order_start forward;forward|<A>|<E>|<O>|<BASE>|<AC>|<UM>|<U0027> IGNORE;<AC>|<U0022> IGNORE;<UM>
<U0061> <A>;<BASE>|<U0065> <E>;<BASE>|<U00E9> <E>;"<BASE><AC>"|<U00EB> <E>;"<BASE><UM>"
<U00E6> "<A><E>";"<BASE><BASE>"|<U006F> <O>;<BASE>|order_end
)");
    oracle order; // which knows nothing of the tables
    ASSERT_TRUE(read_oracle(c.set, c.map, c.diag, order));
    std::mt19937 random(7);
    for (int i = 0; i < 20000; ++i) {
        std::string texts[2];
        for (std::string &text : texts)
            for (size_t n = random() % 6; n > 0; --n)
                text += "'\"ae\xE9\xEB\xE6o"[random() % 8];
        ASSERT_EQ(c.compare(texts[0], texts[1]),
                  compare_texts(order, bytes_of(texts[0]), bytes_of(texts[1])))
            << texts[0] << " | " << texts[1];
    }
}

// The second letter stands alone at the first level, where its accent needs no weight of its own.
// As an accent of the first letter it must have one.
// Capitals come before small letters, and no character weighs <SQ> alone. l with a dot is an
// element that cannot expand.
TEST(CollateTables, NoncharactersCarryWeightsThatNoCharacterHasAlone) {
    const compiled c(
        R"(collating-element <l.> from "l."|collating-symbol <BASE>|collating-symbol <CARON>
collating-symbol <DOT>|collating-symbol <CC>|collating-symbol <CAP>|collating-symbol <C>
collating-symbol <MIN>|collating-symbol <SQ>|<BASE>|<CARON>|<DOT>|<CC>|<CAP>|<C>|<MIN>|<SQ>
order_start forward;forward;forward;forward|<U002E> IGNORE;IGNORE;IGNORE;<U002E>
<U0064> <U0064>;<BASE>;<MIN>;<U0064>|<U010F> <U0064>;"<BASE><CARON>";"<MIN><MIN>";<U010F>
<U006A> <U006A>;<BASE>;<MIN>;<U006A>|<U004A> <U006A>;<BASE>;<CAP>;<U004A>
<U02B2> <U006A>;<BASE>;<C>;<U02B2>|<U006C> <U006C>;<BASE>;<MIN>;<U006C>
<U004C> <U006C>;<BASE>;<CAP>;<U004C>|<U216C> <U006C>;<BASE>;<CC>;<U216C>
<U0140> <U006C>;"<BASE><DOT>";"<MIN><MIN>";<U0140>|<l.> <U006C>;"<BASE><DOT>";"<MIN><MIN>";<U0140>
<U01C8> "<U006C><U006A>";"<BASE><BASE>";"<CC><C>";<U01C8>
<U33D1> "<U006C><U006A><U006A>";"<BASE><BASE><BASE>";"<SQ><SQ><MIN>";<U33D1>|order_end
)",
        wide_set());
    c.expect(u"l < \u0140 < l. < ld < l\u010F < l.d < \u0140\u010F < \u216CJ < \u01C8 < \u216Cj < "
             u"LJ < Lj < lj < \u01C8j < ljj < \u33D1 < l\uFDD0");
}

TEST(CollateTables, AccentsAreSpelledByWhatIsClearAmongTheirLetters) {
    sorts("o < o' < o/ < o/' = \xE1 < o, = \xE2 < oo < \xF8", byte_set(),
          R"(order_start forward;forward|<O>|<OE>|<BASE>|<AC>|<SLASH>|<TAIL>|<U0027> IGNORE;<AC>
<U002F> IGNORE;<SLASH>|<U002C> IGNORE;<TAIL>|<U006F> <O>;<BASE>|<U00F8> <OE>;"<BASE><SLASH>"
<U00E1> <O>;"<BASE><SLASH><AC>"|<U00E2> <O>;"<BASE><TAIL>"|order_end
)");
}

TEST(CollateTables, ElementsMatchLongestFirstAndNeverExpand) {
    const compiled c(
        R"(collating-element <ch> from "ch"|collating-element <chh> from "chh"|collating-symbol <CH>
order_start forward;forward|<U0061>|<U0063> <U0063>;<U0061>|<U0064> <U0064>;<U0061>
<U0068> <U0068>;<U0061>|<CH>|<ch> <CH>;"<U0061><U0061>"|<chh> "<CH><CH>";"<U0061><U0061><U0061>"
<U0069>|order_end
)");
    c.expect("c < ca < d < h < ch < cha < chd < chi < chh < i");
    ASSERT_EQ(c.tables.elements.size(), 2u);
    EXPECT_EQ(c.tables.elements[0].chars.size(), 3u);
    for (const auto &e : c.tables.elements)
        for (const uint16_t w : c.tables.weights[e.row])
            EXPECT_EQ(w & (weight_expands | weight_by_code), 0);
}

// A digraph and the one character for it; a vowel written before the consonant it is read after.
TEST(CollateTables, ElementsSortBesideCharactersOfTheSameLetter) {
    sorts(
        "a < \xE1 < d < D < dd < dz < \xE0 < Dz < \xC0 < dza < \340a < dz\xE1 < k < ku < vk < vka "
        "< u",
        wide_set(),
        R"(collating-element <d-z> from "dz"|collating-element <D-z> from "Dz"|collating-symbol <DZ>
collating-element <v-k> from "vk"|collating-symbol <BASE>|collating-symbol <AC>|collating-symbol <MIN>
collating-symbol <CAP>|<BASE>|<AC>|<MIN>|<CAP>|order_start forward;forward;forward;forward,position
<U0301> IGNORE;<AC>;<MIN>;<U0301>|<U0061> <U0061>;<BASE>;<MIN>;<U0061>
<U00E1> <U0061>;"<BASE><AC>";"<MIN><MIN>";<U00E1>|<U0064> <U0064>;<BASE>;<MIN>;<U0064>|<DZ>
<U0044> <U0064>;<BASE>;<CAP>;<U0044>|<d-z> <DZ>;"<BASE><BASE>";"<MIN><MIN>";<U0061>
<U00E0> <DZ>;"<BASE><BASE>";"<MIN><MIN>";<U0064>|<D-z> <DZ>;"<BASE><BASE>";"<CAP><MIN>";<U0061>
<U00C0> <DZ>;"<BASE><BASE>";"<CAP><MIN>";<U0064>|<U006B> <U006B>;<BASE>;<MIN>;<U006B>
<v-k> "<U006B><U0076>";<BASE>;<MIN>;<U006B>|<U0075> <U0075>;<BASE>;<MIN>;<U0075>
<U0076> <U0076>;<BASE>;<MIN>;<U0076>|<U007A> <U007A>;<BASE>;<MIN>;<U007A>|order_end
)");
}

// A consonant with a sign, which weighs as the two do, and a character that stands for both. Most
// letters sort after the sign.
TEST(CollateTables, ElementsThatWeighAsTheirCharactersAreLeftOut) {
    const std::string body = R"(collating-element <k-v> from "kv"|order_start forward;forward
<U0061> <U0061>;<U0061>|<U0062>|<U006B> <U006B>;<U0061>|<U0076> <U0076>;<U0061>
<U0077> <U0077>;<U0061>|<U0078> <U0078>;<U0061>|<U0079> <U0079>;<U0061>|<U007A> <U007A>;<U0061>
<U007B> <U007B>;<U0061>|<U007C> <U007C>;<U0061>|<U00E0> "<U006B><U0076>";"<U0061><U0062>"
<k-v> "<U006B><U0076>";)";
    compiled same(body + "\"<U0061><U0061>\"\norder_end\n", wide_set());
    same.expect("k < ka < kv < \xE0 < kva < \340a < kz < z");
    EXPECT_TRUE(same.tables.elements.empty());
    // Another second level: one weight, directly after that of the consonant.
    compiled other(body + "<U0062>\norder_end\n", wide_set());
    other.expect("k < ka < kv < kva < z");
    EXPECT_EQ(other.tables.elements.size(), 1u);
}

// kvw weighs as its characters, but vw does not; ^ makes a k be read as rck; what precedes vx
// counts as itself.
TEST(CollateTables, ElementsOfSeveralWeightsSortWhereTheirWeightsDo) {
    sorts("kv < kvx < kva < kvxa < kvw < kvwa < kvz < kz < v < vx < vz < vw", wide_set(),
          R"(collating-element <kvw> from "kvw"|collating-element <vw> from "vw"
collating-element <kvx> from "kvx"|collating-element <rvx> from "rvx"|collating-symbol <VW>
order_start forward;forward|<U0078> IGNORE;IGNORE|<U0061> <U0061>;<U0061>|<U0062>
<U006B> <U006B>;<U0061>|<U0072> <U0072>;<U0061>|<U0076> <U0076>;<U0061>|<U0077> <U0077>;<U0061>
<U007A> <U007A>;<U0061>|<VW>|<vw> <VW>;<U0061>|<kvx> "<U006B><U0076>";"<U0061><U0062>"
<rvx> "<U0072><U0076>";"<U0061><U0062>"
<kvw> "<U006B><U0076><U0077>";"<U0061><U0061><U0061>"|order_end
)");
    sorts("r < rc < rck < rckz < k^ < k^a < rcl < rl", wide_set(),
          R"(collating-element <k^> from "k^"|order_start forward;forward|<U005E>
<U0061> <U0061>;<U0061>|<U0063> <U0063>;<U0061>|<U006B> <U006B>;<U0061>|<U006C> <U006C>;<U0061>
<U0072> <U0072>;<U0061>|<U007A> <U007A>;<U0061>|<k^> "<U0072><U0063><U006B>";<U0061>|order_end
)");
}

// g and y are one letter here, which gg and y have twice.
TEST(CollateTables, DoubledDigraphsSortAsTwoLetters) {
    sorts("g < gz < gy < gya < gygy < ggy < gygya < ggya < gygyz < ggyz < gyh < gyz < h",
          wide_set(),
          R"(collating-element <g-y> from "gy"|collating-element <g-g-y> from "ggy"
collating-symbol <GY>|collating-symbol <TWO>|order_start forward;forward|<U0061> <U0061>;<U0061>
<U0067> <U0067>;<U0061>|<GY>|<U0068> <U0068>;<U0061>|<U0079> <U0079>;<U0061>
<U007A> <U007A>;<U0061>|<TWO>|<g-y> <GY>;<U0061>|<g-g-y> "<GY><GY>";"<U0061><TWO>"|order_end
)");
}

// Syllables that sort among the words of their letters, by weights that no character has.
TEST(CollateTables, ElementsThatNothingElseYieldsAreSpelled) {
    sorts(
        "k < ka < kk < kr < kra < krk < krr < krs < krg < krga < ks < r", wide_set(),
        R"(collating-element <k-r> from "kr"|collating-element <k-r-g> from "krg"|collating-symbol <V>
collating-symbol <W>|<V>|<W>|order_start forward;forward|<U0061> <U0061>;<U0061>
<U0067> <U0067>;<U0061>|<U006B> <U006B>;<U0061>|<U0072> <U0072>;<U0061>|<U0073> <U0073>;<U0061>
<k-r> "<U006B><U0072><V>";<U0061>|<k-r-g> "<U006B><U0072><W>";<U0061>|order_end
)");
}

// Signs of a number and an ideograph, of which two weigh nothing but signs. Other ideographs sort
// below and above these.
TEST(CollateTables, SignsWhoseLastWeightsNothingElseHasSortAsTheyAreSpelled) {
    sorts("1 < 11 < 13 < 133 < 13\xE8z < \xC2 < \3021 < \xC2\xE9 < \xC3 < \3031 < 13\xE9 < 16 < 1z "
          "< 1\xE8\xE9 < \xC1 < \xC1z < 1\xE9 < 3",
          wide_set(), R"(collating-symbol <HAN>|collating-symbol <SUN>|collating-symbol <POINT>
collating-symbol <PART>|collating-symbol <YEAR>|order_start forward;forward|<U0031>|<U0033>
<U0036>|<U007A>|<HAN>|<SUN>|<POINT>|<PART>|<YEAR>|<U00E8> "<HAN><SUN>";<U0031>
<U00E9> "<HAN><YEAR>";<U0031>|<U00C1> "<U0031><HAN><POINT>";"<U0031><U0031>"
<U00C2> "<U0031><U0033><HAN><POINT>";"<U0031><U0031>"
<U00C3> "<U0031><U0033><HAN><PART>";"<U0031><U0031>"|order_end
)");
}

TEST(CollateTables, SectionsOfTwoDirectionsBecomeTwoPasses) {
    const compiled c(
        R"(script <L>|script <G>|script <N>|collating-symbol <BASE>|collating-symbol <AC>|<BASE>|<AC>
order_start <L>;forward;backward|<BASE>|<AC>|<U0061> <U0061>;<BASE>|<U0041> <U0061>;<AC>
<U0062> <U0062>;<BASE>|<U0042> <U0062>;<AC>|<U0075> "<U0078><U0061>";"<BASE><AC>"|order_end
order_start <G>;forward;forward
<U0078> <U0078>;<BASE>|<U0058> <U0078>;<AC>|<U0079> <U0079>;<BASE>|<U0059> <U0079>;<AC>
<U0063> <U0061>;<BASE>|order_end
order_start <N>;forward|<U007A> <U007A>;<BASE>|<U005A> <U007A>;<AC>|order_end
)");
    c.expect("aba < Aba < abA < AbA < xy < xY < Xy < XY < z < Z");
    c.expect("Aba = Abc < abA = cbA"); // c weighs as a, among letters of the other direction
    c.expect("xAxa < xaxA = xau");     // and u as letters of both
    EXPECT_EQ(c.tables.pass_types, (std::vector<int>{1, 2, 1}));
}

TEST(CollateTables, BackwardLevelComparesAccentsFromTheEnd) {
    std::string source(latin);
    source.replace(source.find("forward;forward;forward"), 23, "forward;backward;forward");
    const compiled c(source);
    EXPECT_EQ(c.tables.pass_types, (std::vector<int>{1, 2, 1, 1}));
    c.expect("\xF6te < ot\xE9");
    compiled(latin).expect("ot\xE9 < \xF6te");
}

TEST(CollateTables, CharactersWithoutALineWeighAsTheFirstThatHasOne) {
    const compiled c("order_start forward|<U0062>|<U0061>|<U0063>|order_end|");
    c.expect("b < a = x = y < c");
    EXPECT_EQ(c.tables.weights[0], c.weights_of('a'));
}

// What a source of "unicode" may hold equal: letters without difference, marks and controls that it
// ignores everywhere or elsewhere, elements, a level that runs backward, characters without a line.
static const char *const tied =
    R"(collating-element <ch> from "ch"|collating-element <dh> from "dh"|collating-symbol <BASE>
collating-symbol <AC>|collating-symbol <MIN>|collating-symbol <J1100>..<J1112>|<BASE>|<AC>|<MIN>
order_start forward;backward;forward;forward,position|<U002D> IGNORE;IGNORE;IGNORE;<U002D>
<U007E> IGNORE;IGNORE;IGNORE;IGNORE|<U005E> IGNORE;IGNORE;IGNORE;IGNORE
<U0301> IGNORE;<AC>;<MIN>;<U0301>|<U0302> IGNORE;<AC>;<MIN>;<U0301>|<U0061> <U0061>;<BASE>;<MIN>;<U0061>
<U00E1> <U0061>;"<BASE><AC>";"<MIN><MIN>";<U00E1>|<U0062> <U0062>;<BASE>;<MIN>;<U0062>
<U0042> <U0062>;<BASE>;<MIN>;<U0062>|<U0063> <U0063>;IGNORE;IGNORE;IGNORE
<U0064> <U0063>;IGNORE;IGNORE;IGNORE|<U0068> <U0068>;<BASE>;<MIN>;<U0068>
<ch> "<U0063><U0068>";<BASE>;<MIN>;IGNORE|<dh> "<U0063><U0068>";<BASE>;<MIN>;IGNORE
)";

static std::string tied_source() {
    std::string source = tied;
    for (int i = 0x1100; i <= 0x1112; ++i)
        source += format("<J%04X>|<U%04X> <J%04X>;<BASE>;<MIN>;<U%04X>|", i, i, i, i);
    return source + "order_end|";
}

TEST(CollateTables, NoTwoStringsOfUnicodeAreEqual) {
    const compiled c(tied_source(), wide_set());
    static constexpr std::u16string_view chars = u"aábBcdh-~^\u0301\1\u1100\u1102\uAC00\uAC01"
                                                 u"\uB098\u3400\U0001F600\2\u0302";
    std::map<std::string, units> seen;
    const auto take = [&](const units &s) {
        const auto [at, added] = seen.try_emplace(sort_key(c.model, s), s);
        ASSERT_TRUE(added || at->second == s)
            << testing::PrintToString(s) << " = " << testing::PrintToString(at->second);
    };
    for (const uint16_t x : chars)
        for (const uint16_t y : chars) {
            take({x, y});
            for (const uint16_t z : chars)
                take({x, y, z});
        }
    std::mt19937 random(5);
    for (int i = 0; i < 20000; ++i) {
        units s(4 + random() % 3);
        for (uint16_t &ch : s)
            ch = chars[random() % chars.size()];
        take(s);
    }
    c.expect(u"b < h < \u1100 < \uAC00 < \uAC01 < \u1102 < \uB098 < \1 < \2 < \u3400 < \uE000 < "
             u"\U0001F600 < \U0001F601");
    EXPECT_NE(c.compare(u"a~", u"a^"), 0);
    const compiled equal(tied_source(), wide_set(), {}, {.equal_ties = true});
    EXPECT_EQ(equal.compare(u"a~", u"a^"), 0);
    equal.expect("a = a~ < b = B < c = d");
    equal.expect("ch = dh");
}

// Case at the level where the source has it; the capital of U+10D0, like the letters from U+A7C2
// on, has no line.
TEST(CollateTables, OrdersOfLessStrengthHoldCaseOrAccentsEqual) {
    static const std::string thai = // case last, at level 3
        "order_start forward;forward;forward|<U0042>|<U0062>|<U0302>|"
        "<U0061> <U0061>;<U0062>;<U0062>|<U0041> <U0061>;<U0062>;<U0042>|"
        "<U00E1> <U0061>;<U0302>;<U0062>|<U00C1> <U0061>;<U0302>;<U0042>|<U10D0>|order_end|",
                             first = "order_start forward|<U0041>|<U00C1>|<U0042>|<U0061>|<U00E1>|"
                                     "<U0062>|<U10D0>|order_end|",
                             alike = "order_start forward|<U0061>|<U0041> <U0061>|order_end|",
                             codes = "codepoint_collation|";
    static const struct {
        const std::string &source;
        strength keeps;
        const char16_t *chain;
        const char *says;
    } rows[] = {
        {thai,  strength::accents, u"b < a = A < \u00E1 = \u00C1",       ""                            },
        {thai,  strength::letters, u"a = A = \u00E1 = \u00C1 < \u10D0",  ""                            },
        {thai,  strength::accents, u"\u10D0 = \u1C90 < \uA7C2 = \uA7C3", ""                            },
        {thai,  strength::accents, u"\uA7C3 < \u4E00 < \u4E01",          ""                            },
        {first, strength::accents, u"A = a < \u00C1 = \u00E1 < b = B",   ""                            },
        {first, strength::letters, u"",                                  "tells case and accents apart"},
        {alike, strength::accents, u"",                                  "no letter from its capital"  },
        {codes, strength::accents, u"",                                  "code order tells"            },
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(&r - rows);
        collation_options options{.keeps = r.keeps, .pairs = {}};
        for (const std::u16string_view pair :
             {u"Aa", u"\u00C1\u00E1", u"Bb", u"\uA7C2\uA7C3", u"\u1C90\u10D0"})
            options.pairs.emplace_back(pair[0], pair[1]);
        if (*r.says) {
            sources c(r.source, wide_set());
            EXPECT_FALSE(c.compile(options));
            EXPECT_NE(c.messages.find(r.says), std::string::npos) << c.messages;
            continue;
        }
        const compiled c(r.source, wide_set(), {}, options);
        EXPECT_LT(c.tables.levels, c.tables.source_levels + (&r.source == &first));
        c.expect(r.chain);
    }
}

// Compatibility ideographs for one that has a line, one that has none, and one beyond the basic
// plane; the source places U+F901 itself. Accents, whose third level most letters share, stand
// alone, too.
TEST(CollateTables, EquivalentStringsDifferAtTheLastLevelOnly) {
    const compiled c(
        R"(collating-symbol <BASE>|collating-symbol <ACUTE>|collating-symbol <MIN>|collating-symbol <CAP>
collating-symbol <HAN>|<BASE>|<ACUTE>|<MIN>|<CAP>|<HAN>|order_start forward;forward;forward;forward
<U0301> IGNORE;<ACUTE>;<MIN>;<U0301>|<U0061> <U0061>;<BASE>;<MIN>;<U0061>
<U0041> <U0061>;<BASE>;<CAP>;<U0041>|<U00E1> <U0061>;"<BASE><ACUTE>";"<MIN><MIN>";<U00E1>
<U00C1> <U0061>;"<BASE><ACUTE>";"<CAP><MIN>";<U00C1>|<U0062> <U0062>;<BASE>;<MIN>;<U0062>
<U66F4> <U66F4>;IGNORE;IGNORE;IGNORE|<U8C48> <U8C48>;IGNORE;IGNORE;IGNORE
<UF901> <UF901>;IGNORE;IGNORE;IGNORE|<UF900> "<HAN><HAN>";<BASE>;<MIN>;<UF900>|order_end
)",
        wide_set());
    static constexpr struct {
        std::u16string_view one, other;
    } rows[] = {
        {u"\u00E1",        u"a\u0301"       },
        {u"\u00C1",        u"A\u0301"       },
        {u"\uF900",        u"\u8C48"        },
        {u"\uFAD2",        u"\u3B9D"        },
        {u"\uFA6C",        u"\U000242EE"    },
        {u"a\uF900\u00E1", u"a\u8C48a\u0301"},
    };
    for (const auto &r : rows) {
        const std::u16string one(r.one), other(r.other);
        EXPECT_NE(c.compare(one, other), 0) << &r - rows;
        EXPECT_EQ(c.compare(one + u"A", other + u"a"), 1) << &r - rows;
        EXPECT_EQ(c.compare(one + u"a", other + u"A"), -1) << &r - rows;
    }
    c.expect(u"\u66F4 < \u8C48 < \uF901 < \u3B9C < \uFAD2 < \u3B9E < \uE000 < \U000242ED < "
             u"\U000242EE < \uFA6C < \U000242EF");
}

TEST(CollateTables, OnlyWhatEarlierPassesMayConfuseDiffersInTheLast) {
    std::string source = tied_source();
    const compiled back(source, wide_set());
    const compiled ahead(source.replace(source.find("backward"), 8, "forward"), wide_set());
    const auto last = [](const compiled &c, uint16_t ch) { return c.weights_of(ch).back(); };
    for (const compiled *c : {&back, &ahead}) {
        EXPECT_EQ(last(*c, 'a'), last(*c, 'h'));
        EXPECT_EQ(last(*c, 'a'), last(*c, 0x1102));
        EXPECT_LT(last(*c, 'B'), last(*c, 'b'));
        EXPECT_LT(last(*c, '-'), last(*c, 'a'));
    }
    EXPECT_EQ(last(back, 'a'), last(back, 0xE1));
    EXPECT_LT(last(ahead, 'a'), last(ahead, 0xE1)); // an accent may follow the a
}

TEST(CollateTables, ProofFindsTablesWhoseKeysAndComparersDisagree) {
    void (*const spoils[])(collation &) = {
        // a code tie-break on one of two equal weights
        [](collation &t) {
            t.weights[t.rows.at('b')][0] = t.weights[t.rows.at('a')][0] | weight_by_code;
        },
        // a weight beyond the digits of a key, and one that keys cannot tell from the first
        [](collation &t) { t.weights[t.rows.at('z')][0] = uint16_t(t.num_weights + 255); },
        [](collation &t) { t.weights[t.rows.at('z')][0] = 0; },
    };
    for (auto *spoil : spoils) {
        compiled c("order_start forward;forward|<U0061>|<U0062>|<U0063>|.. <U0063>;<U0063>|"
                   "<U007A>|...|order_end|");
        spoil(c.tables);
        proof_report report;
        prove_collation(c.map, c.tables, report);
        EXPECT_FALSE(report.ok);
    }
}

TEST(CollateTables, CodeOrderIsRecognised) {
    std::string body = "order_start forward|";
    for (int i = 0; i < 128; ++i)
        body += format("<U%04X>|", i);
    EXPECT_TRUE(compiled(body + "order_end|", code_set_of(128, 1)).tables.codeset_order);
    const compiled word("codepoint_collation|");
    EXPECT_TRUE(word.tables.codeset_order);
    word.expect("\x80 < \xFF");
    EXPECT_EQ(word.tables.weights.size(), 256u); // in code order even where nobody reads them
    EXPECT_FALSE(compiled(latin).tables.codeset_order);
}

TEST(CollateTables, LongRunsInCodeOrderShareAWeight) {
    const compiled c("order_start forward;forward|<U0041>|<U0040>|<U3000>|.. ..;IGNORE|"
                     "<U9000> <U9000>;IGNORE|<U0062>|order_end|",
                     wide_set());
    EXPECT_LE(c.tables.num_weights, max_weight);
    EXPECT_TRUE(c.weights_of(0x4000)[0] & weight_by_code);
    EXPECT_EQ(c.weights_of(0x4000)[0], c.weights_of(0x5000)[0]);
    static constexpr std::u16string_view up = u"A@\u3000\u3001\u4000\u8FFFb";
    for (size_t i = 1; i < up.size(); ++i) {
        const auto a = up.substr(i - 1, 1), b = up.substr(i, 1);
        EXPECT_EQ(c.compare(a, b), -1) << i;
        EXPECT_LT(sort_key(c.model, units_of(a)), sort_key(c.model, units_of(b))) << i;
    }
}

TEST(CollateTables, LeaveAWeightForBytesThatAreNoCharacter) {
    std::string body = "order_start forward;forward\n";
    for (unsigned ch = 0x7FFF; ch > 0x7FFF - 16377; --ch) // against code order: no runs
        body += format("<U%04X> <U%04X>;IGNORE\n", ch, ch);
    sources full(body + "order_end\n", wide_set());
    EXPECT_FALSE(full.compile());
    EXPECT_NE(full.messages.find("needs 16382 weights"), std::string::npos) << full.messages;
}
