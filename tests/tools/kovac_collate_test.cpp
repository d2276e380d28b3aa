// The collation compiler on small sources: the order that they describe must come out of the
// tables, and the tables must keep the limits of the library's comparers.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "kovac/kovac_collate.h"
#include "kovac/kovac_collate_levels.h"
#include "kovac/kovac_collate_model.h"

using namespace kovac;

namespace {

std::vector<uint16_t> wide(const char *text) {
    std::vector<uint16_t> out;
    for (; *text; ++text)
        out.push_back(static_cast<unsigned char>(*text));
    return out;
}

// A code set of the bytes 0 to 255 that are the code points of the same numbers, or those below
// 128.
charmap byte_set(int count = 256) {
    charmap map;
    map.name = "TEST";
    for (int c = 0; c < count; ++c) {
        map.by_code[uint32_t(c)] = uint32_t(map.chars.size());
        map.chars.push_back({uint32_t(c), uint16_t(c), 1, 1});
    }
    return map;
}

// All sixteen-bit characters, two bytes each.
charmap wide_set() {
    charmap map;
    map.name = "WIDE";
    map.unicode = true;
    map.min_len = map.max_len = 2;
    for (uint32_t c = 0; c < 0x10000; ++c) {
        map.by_code[c] = c;
        map.chars.push_back({c, uint16_t(c), 2, 1});
    }
    return map;
}

struct compiled {
    charmap map;
    std::string messages;
    diagnostics diag;
    source_set set;
    collation tables;
    collation_model model;
    bool good = false;

    explicit compiled(const std::string &body, charmap chars = byte_set(), bool verbose = false)
        : map(std::move(chars)) {
        diag.sink = &messages;
        diag.verbose = verbose;
        add("main", body);
        set.main = set.files.find("main")->second.get();
    }
    // A line ends at "|" as well, so that short lines share one.
    void add(const std::string &name, std::string body) {
        std::replace(body.begin(), body.end(), '|', '\n');
        auto file = std::make_unique<source_file>();
        file->path = file->name = name;
        file->text = "comment_char %\nescape_char /\nLC_COLLATE\n" + body + "END LC_COLLATE\n";
        set.files[name] = std::move(file);
    }
    compiled &run(const collation_options &options = {}) {
        good = compile_collation(set, map, diag, tables, nullptr, options);
        EXPECT_TRUE(good) << messages;
        model = make_model(map, tables);
        return *this;
    }
    int compare(const char *a, const char *b) const {
        return compare_installed(model, wide(a), wide(b));
    }
    // "a < b = c": every neighbour as written.
    void expect(const char *chain) const {
        std::vector<std::string> words;
        std::string word;
        for (const char *at = chain;; ++at) {
            if (*at && *at != ' ') {
                word += *at;
                continue;
            }
            words.push_back(word);
            word.clear();
            if (!*at) break;
        }
        for (size_t i = 0; i + 2 < words.size(); i += 2)
            EXPECT_EQ(compare(words[i].c_str(), words[i + 2].c_str()), words[i + 1] == "<" ? -1 : 0)
                << words[i] << ' ' << words[i + 1] << ' ' << words[i + 2];
    }
    void prove() const {
        proof_report report;
        prove_collation(map, tables, report);
        for (const std::string &line : report.lines)
            EXPECT_TRUE(report.ok) << line;
    }
};

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
    compiled c(latin);
    c.run().expect("a < A < -aa < aa < aA < b < e < \xE9 < eb < \xE9"
                   "b < es < o < \xF6 < oa < ss < \xDF < st < z");
    c.expect("a-b < ab < A-b < Ab");
    c.prove();
    EXPECT_EQ(c.tables.pass_types.size(), 4u);
    EXPECT_LT(c.tables.num_weights, 254); // one byte a weight
}

// Two sources that copy one table: its lines are skipped the second time, ranges included.
TEST(CollateSource, CopiesOneTableTwice) {
    compiled c(R"(copy "first"|copy "second"
)");
    const std::string order = R"(order_start forward|<U0061>|.. <U0061>|<U0065>|<U007A>|order_end
)";
    c.add("base", order);
    c.add("first", "copy \"base\"\nreorder-after <U007A>\n<U0062>\nreorder-end\n");
    c.add("second", "copy \"base\"\nreorder-after <U007A>\n<U0063>\nreorder-end\n");
    c.run().expect("a = d < e < z < c < b");
    c.prove();
}

TEST(CollateSource, FollowsCopiesConditionsAndReordering) {
    compiled c(
        R"(define LAST_A|copy "base"|reorder-after <U0062>|ifdef LAST_A|<U007A>|elifdef OTHER|<U0073>|else
<U0074>|endif|reorder-end
)");
    c.add(
        "base",
        R"(order_start forward|<U0061>|<U0062>|ifndef LAST_A|<U0063>|endif|<U0064>|<U0073>|<U0074>|<U007A>
undef LAST_A|order_end
)");
    c.run().expect("a < b < t < d < s < z");
}

TEST(CollateSource, MovesSectionsAndEquatesSymbols) {
    compiled c(
        R"(symbol-equivalence <TWO> <ONE>|collating-symbol <ONE>|collating-symbol <X>|script <A>|script <B>
order_start <A>;forward;forward|<ONE>|<X>|<U0061> <U0061>;<TWO>|<U0062> <U0061>;<X>|order_end
order_start <B>;forward;forward|<U0031>|<U0032>|order_end|reorder-sections-after <B>|<A>
reorder-sections-end
)");
    c.run().expect("1 < 2 < a < b < aa < ab < bb");
}

TEST(CollateSource, FillsEllipses) {
    compiled c(
        R"(order_start forward;forward|<U0063>|<U0061> <U0061>;<U0061>|.. ..;IGNORE|<U0065> <U0065>;IGNORE
/x7a|...|UNDEFINED|order_end
)");
    c.run().expect("c < a < b < d < e < z < { < |");
    compiled hex("collating-symbol <X09>..<X0B>\norder_start forward\n<X0A>\n<X0B>\n<X09>\n"
                 "<U0061> <X0B>\n<U0062> <X0A>\n<U0063> <X09>\norder_end\n");
    hex.run().expect("b < a < c");
}

TEST(CollateSource, ReportsPlaceAndReason) {
    static const struct {
        const char *body, *want;
    } rows[] = {
        {"reorder-after <nowhere>\n",                            "main:4:15: error: reorder-after needs"},
        {"ifdef X\n",                                            "ifdef without endif"                  },
        {"endif\n",                                              "endif without ifdef"                  },
        {"order_start forward;sideways\n",                       "expected forward, backward"           },
        {"collating-element <x> \"ab\"\n",                       "collating-element <name> from"        },
        {"order_start forward\n<U0061> 12;\norder_end\n",        "not a weight"                         },
        {"collating-symbol <A1>..<B22>\n",                       "hexadecimal digits"                   },
        {"copy \"main\"\n",                                      "copy one another endlessly"           },
        {"order_start 1;2;3;4;5;6;7;8;9\n",                      "expected forward, backward"           },
        {"order_start forward;;;;;;;;forward\n",                 "more than 8 levels"                   },
        {"order_start forward\n<U0061> \"<U0062\"\norder_end\n", "without its closing"                  },
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.body);
        compiled c(r.body);
        EXPECT_FALSE(compile_collation(c.set, c.map, c.diag, c.tables, nullptr));
        EXPECT_NE(c.messages.find(r.want), std::string::npos) << c.messages;
    }
}

TEST(CollateTables, ExpandOnlyWhereOneNumberWouldNotDo) {
    compiled c(latin);
    c.run();
    // Sharp s is two letters at the first level, one number at the second; an accent is a number
    // at the second and spelled at none: the second level has told é from e already.
    const auto &sharp = c.tables.weights[c.tables.rows.at(0xDF)];
    const auto &acute = c.tables.weights[c.tables.rows.at(0xE9)];
    EXPECT_TRUE(sharp[0] & weight_expands);
    EXPECT_FALSE(sharp[1] & weight_expands);
    EXPECT_FALSE(acute[1] & weight_expands);
    EXPECT_FALSE(acute[2] & weight_expands);
    for (const auto &e : c.tables.expansions) {
        EXPECT_LE(e.size(), 7u);
        for (const uint16_t ch : e) {
            EXPECT_NE(ch, 0);
            for (const uint16_t w : c.tables.weights[c.tables.rows.at(ch)])
                EXPECT_FALSE(w & weight_expands);
        }
    }
}

// The weights of a level written one after the other, straight from a table of the test.
TEST(CollateTables, CompareAsTheSequencesOfTheirWeights) {
    struct line {
        char ch;
        std::vector<int> level[2];
    };
    // Marks that may follow any letter make accents inexact as numbers: they must be spelled.
    static const std::vector<line> lines = {
        {'\'',   {{}, {5}}       },
        {'"',    {{}, {6}}       },
        {'a',    {{1}, {4}}      },
        {'e',    {{2}, {4}}      },
        {'\xE9', {{2}, {4, 5}}   },
        {'\xEB', {{2}, {4, 6}}   },
        {'\xE6', {{1, 2}, {4, 4}}},
        {'o',    {{3}, {4}}      },
    };
    compiled c(
        R"(order_start forward;forward|<A>|<E>|<O>|<BASE>|<AC>|<UM>|<U0027> IGNORE;<AC>|<U0022> IGNORE;<UM>
<U0061> <A>;<BASE>|<U0065> <E>;<BASE>|<U00E9> <E>;"<BASE><AC>"|<U00EB> <E>;"<BASE><UM>"
<U00E6> "<A><E>";"<BASE><BASE>"|<U006F> <O>;<BASE>|order_end
)");
    c.run().prove();
    const auto sequence = [&](const std::string &s, int level) {
        std::vector<int> out;
        for (const char ch : s)
            for (const line &l : lines)
                if (l.ch == ch) out.insert(out.end(), l.level[level].begin(), l.level[level].end());
        return out;
    };
    std::mt19937 random(7);
    for (int i = 0; i < 20000; ++i) {
        std::string a, b;
        for (std::string *s : {&a, &b})
            for (size_t n = random() % 6; n > 0; --n)
                *s += lines[random() % lines.size()].ch;
        int want = 0;
        for (int level = 0; level < 2 && want == 0; ++level) {
            const auto x = sequence(a, level), y = sequence(b, level);
            want = x < y ? -1 : x > y;
        }
        ASSERT_EQ(c.compare(a.c_str(), b.c_str()), want) << a << " | " << b;
    }
}

TEST(CollateTables, ElementsMatchLongestFirstAndNeverExpand) {
    compiled c(
        R"(collating-element <ch> from "ch"|collating-element <chh> from "chh"|collating-symbol <CH>
order_start forward;forward|<U0061>|<U0063> <U0063>;<U0061>|<U0064> <U0064>;<U0061>
<U0068> <U0068>;<U0061>|<CH>|<ch> <CH>;"<U0061><U0061>"|<chh> "<CH><CH>";"<U0061><U0061><U0061>"
<U0069>|order_end
)");
    c.run().expect("c < ca < d < h < ch < cha < chd < chi < chh < i");
    c.prove();
    ASSERT_EQ(c.tables.elements.size(), 2u);
    EXPECT_EQ(c.tables.elements[0].chars.size(), 3u);
    for (const auto &e : c.tables.elements)
        for (const uint16_t w : c.tables.weights[e.row])
            EXPECT_EQ(w & (weight_expands | weight_by_code), 0);
}

// A digraph and the one character for it; a vowel written before the consonant it is read after.
TEST(CollateTables, ElementsSortBesideCharactersOfTheSameLetter) {
    compiled c(
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
)",
        wide_set());
    c.run().expect("a < \xE1 < d < D < dd < dz < \xE0 < Dz < \xC0 < dza < \xE0"
                   "a < dz\xE1 < k < ku < vk < vka < u");
    c.prove();
}

// g and y are one letter here, which gg and y have twice.
TEST(CollateTables, DoubledDigraphsSortAsTwoLetters) {
    compiled c(R"(collating-element <g-y> from "gy"|collating-element <g-g-y> from "ggy"
collating-symbol <GY>|collating-symbol <TWO>|order_start forward;forward|<U0061> <U0061>;<U0061>
<U0067> <U0067>;<U0061>|<GY>|<U0068> <U0068>;<U0061>|<U0079> <U0079>;<U0061>
<U007A> <U007A>;<U0061>|<TWO>|<g-y> <GY>;<U0061>|<g-g-y> "<GY><GY>";"<U0061><TWO>"|order_end
)",
               wide_set());
    c.run().expect("g < gz < gy < gya < ggy < ggya < ggyz < gyh < gyz < h");
    c.prove();
}

TEST(CollateTables, SectionsOfTwoDirectionsBecomeTwoPasses) {
    compiled c(R"(script <L>|script <G>|collating-symbol <BASE>|collating-symbol <AC>|<BASE>|<AC>
order_start <L>;forward;backward|<BASE>|<AC>|<U0061> <U0061>;<BASE>|<U0041> <U0061>;<AC>
<U0062> <U0062>;<BASE>|<U0042> <U0062>;<AC>|order_end|order_start <G>;forward;forward
<U0078> <U0078>;<BASE>|<U0058> <U0078>;<AC>|<U0079> <U0079>;<BASE>|<U0059> <U0079>;<AC>|order_end
)");
    c.run().expect("aba < Aba < abA < AbA < xy < xY < Xy < XY");
    c.prove();
    EXPECT_EQ(c.tables.pass_types, (std::vector<int>{1, 2, 1}));
}

TEST(CollateTables, BackwardLevelComparesAccentsFromTheEnd) {
    std::string source(latin);
    source.replace(source.find("forward;forward;forward"), 23, "forward;backward;forward");
    compiled c(source);
    c.run().prove();
    EXPECT_EQ(c.tables.pass_types, (std::vector<int>{1, 2, 1, 1}));
    EXPECT_EQ(c.compare("\xF6te", "ot\xE9"), -1);
    EXPECT_EQ(compiled(latin).run().compare("\xF6te", "ot\xE9"), 1);
}

TEST(CollateTables, CharactersWithoutALineWeighAsTheFirstThatHasOne) {
    compiled c("order_start forward|<U0062>|<U0061>|<U0063>|order_end\n");
    c.run().expect("b < a = x = y < c");
    EXPECT_EQ(c.tables.weights[0], c.tables.weights[c.tables.rows.at('a')]);
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
    std::string body = tied;
    for (int i = 0x1100; i <= 0x1112; ++i)
        body += format("<J%04X>\n<U%04X> <J%04X>;<BASE>;<MIN>;<U%04X>\n", i, i, i, i);
    return body + "order_end\n";
}

TEST(CollateTables, NoTwoStringsOfUnicodeAreEqual) {
    compiled c(tied_source(), wide_set());
    c.run().prove();
    static const std::vector<uint16_t> chars = {
        'a', 0xE1,   'b',    'B',    'c',    'd',    'h',    '-',    '~',    '^', 0x301,
        1,   0x1100, 0x1102, 0xAC00, 0xAC01, 0xB098, 0x3400, 0xD83D, 0xDE00, 2,   0x302};
    std::map<std::string, std::vector<uint16_t>> seen;
    const auto take = [&](const std::vector<uint16_t> &s) {
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
        std::vector<uint16_t> s(4 + random() % 3);
        for (uint16_t &ch : s)
            ch = chars[random() % chars.size()];
        take(s);
    }
    static const std::u16string up[] = {
        u"b",  u"h",  u"\u1100", u"\uAC00", u"\uAC01",     u"\u1102",    u"\uB098",
        u"\1", u"\2", u"\u3400", u"\uE000", u"\U0001F600", u"\U0001F601"};
    for (size_t i = 1; i < std::size(up); ++i) {
        const std::vector<uint16_t> low(up[i - 1].begin(), up[i - 1].end());
        const std::vector<uint16_t> high(up[i].begin(), up[i].end());
        EXPECT_EQ(compare_wide(c.model, low, high), -1) << i;
    }
    const std::vector<uint16_t> mark = {'a', '~'}, other = {'a', '^'};
    EXPECT_NE(compare_wide(c.model, mark, other), 0);
    compiled equal(tied_source(), wide_set());
    equal.run({.equal_ties = true}).prove();
    EXPECT_EQ(compare_wide(equal.model, mark, other), 0);
    equal.expect("a = a~ < b = B < c = d");
    equal.expect("ch = dh");
}

TEST(CollateTables, OnlyWhatEarlierPassesMayConfuseDiffersInTheLast) {
    std::string source = tied_source();
    compiled back(source, wide_set());
    compiled ahead(source.replace(source.find("backward"), 8, "forward"), wide_set());
    const auto last = [](const compiled &c, uint16_t ch) {
        return c.tables.weights[c.tables.rows.at(ch)].back();
    };
    for (compiled *c : {&back, &ahead}) {
        c->run();
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
                   "<U007A>|...|order_end\n");
        c.run().prove();
        spoil(c.tables);
        proof_report report;
        prove_collation(c.map, c.tables, report);
        EXPECT_FALSE(report.ok);
    }
}

TEST(CollateTables, CodeOrderIsRecognised) {
    std::string body = "order_start forward\n";
    for (int i = 0; i < 128; ++i)
        body += format("<U%04X>\n", i);
    compiled c(body + "order_end\n", byte_set(128));
    EXPECT_TRUE(c.run().tables.codeset_order);
    compiled word("codepoint_collation\n");
    EXPECT_TRUE(word.run().tables.codeset_order);
    EXPECT_EQ(word.compare("\x80", "\xFF"), -1);
    EXPECT_EQ(word.tables.weights.size(), 256u); // in code order even where nobody reads them
    EXPECT_FALSE(compiled(latin).run().tables.codeset_order);
}

TEST(CollateTables, LongRunsInCodeOrderShareAWeight) {
    compiled c("order_start forward;forward\n<U0041>\n<U0040>\n<U3000>\n.. ..;IGNORE\n<U9000> "
               "<U9000>;IGNORE\n<U0062>\norder_end\n",
               wide_set());
    c.run().prove();
    EXPECT_LE(c.tables.num_weights, max_weight);
    const auto weight = [&](uint16_t ch) { return c.tables.weights[c.tables.rows.at(ch)][0]; };
    EXPECT_TRUE(weight(0x4000) & weight_by_code);
    EXPECT_EQ(weight(0x4000), weight(0x5000));
    static const std::vector<uint16_t> up = {0x41, 0x40, 0x3000, 0x3001, 0x4000, 0x8FFF, 0x62};
    for (size_t i = 1; i < up.size(); ++i) {
        const uint16_t a[] = {up[i - 1]}, b[] = {up[i]};
        EXPECT_EQ(compare_wide(c.model, a, b), -1) << i;
        EXPECT_LT(sort_key(c.model, a), sort_key(c.model, b)) << i;
    }
}
