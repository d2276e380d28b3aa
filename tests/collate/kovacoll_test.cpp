// Comparison and keys: what the tables mean, and that the fast paths keep to the row walk.
#include "collate/coll_builder.h"
#include "support/guarded_block.h"

#include <algorithm>
#include <random>

namespace {

constexpr unsigned tie = coll_code_tie, expands = coll_expansion;

int sign(int n) { return n < 0 ? -1 : n > 0; }

// a to e, with the weights of each; row 0 is everything else.
coll_spec letters(const char *weights) {
    coll_spec spec;
    spec.rows = weights_of(weights);
    const size_t passes = spec.rows[0].size();
    spec.passes.assign(passes, coll_forward);
    spec.map = byte_map(std::string("abcde").substr(0, spec.rows.size()));
    spec.rows.insert(spec.rows.begin(), std::vector<unsigned>(passes, 90));
    return spec;
}

// Every entry that fits the record, with tables and without.
void check_orders(coll_record &r, const std::string &text) {
    for (const bool tables : {true, false}) {
        r.use_tables(tables);
        for (const order_row &o : orders(text)) {
            SCOPED_TRACE(o.a + " : " + o.b + (tables ? " tables" : " rows"));
            const ko_mchar_t *const a = mb(o.a.c_str()), *const b = mb(o.b.c_str());
            EXPECT_EQ(r.loc->exp.mbscoll(r.handle, a, b), o.want);
            EXPECT_EQ(im_mbscoll(r.handle, a, b), o.want);
            EXPECT_EQ(im_mbscoll(r.handle, b, a), -o.want);
            EXPECT_EQ(sign(sort_key(r.handle, o.a).compare(sort_key(r.handle, o.b))), o.want);
        }
    }
}

} // namespace

TEST(Collation, OrdersByTheFirstPassThatTellsApart) {
    coll_record r(every_byte(), letters("2.2 2.3 4.2 1.1").text());
    ASSERT_EQ(r.result, 0);
    // The first pass outweighs the second; d is ignored; x has no row of its own.
    check_orders(r, "= <a a<b bc>ac ba<ac ab<abc a>d adb=ab d=dddd c<x");
    EXPECT_EQ(sort_key(r.handle, ""), "\1");
    EXPECT_EQ(sort_key(r.handle, "adb"), "\2\2\1\2\3");
    EXPECT_EQ(r.error(), 0) << "a character without a row is no error";
}

TEST(Collation, ReadsABackwardPassFromTheEnd) {
    coll_spec spec = letters("2.2 2.3 x.x");
    spec.passes = {coll_forward, coll_backward};
    spec.expansions = {u"ab"};
    coll_record r(every_byte(), spec.text());
    check_orders(r, "ab>ba c=ab c>ba ca<ac");
    EXPECT_EQ(sort_key(r.handle, "c"), "\2\2\1\3\2") << "an expansion is weighed last to first";
}

TEST(Collation, TakesTheFirstElementOfTheFile) {
    coll_spec spec = letters("2 3 4 10 5");
    spec.rows.insert(spec.rows.end(), {{20}, {30}});
    spec.elements.assign({
        {u"ab",  6},
        {u"abb", 7},
        {u"ca",  1}
    });
    coll_record r(every_byte(), spec.text());
    EXPECT_EQ(sort_key(r.handle, "abb"), std::string({20, 3}));
    EXPECT_EQ(sort_key(r.handle, "caab"), std::string({2, 20})) << "marked from the left";
    EXPECT_EQ(sort_key(r.handle, "cab"), std::string({2, 3}));
    check_orders(r, "aab>aaa aab>aad cab<caab ca=a ab>b"); // ab reaches out of the common start
}

TEST(Collation, DeliversAnElementsExpansionOnceForEachCharacter) {
    coll_spec spec = letters("2 3 4");
    spec.rows.push_back({expands});
    spec.elements.push_back({u"ab", 4});
    spec.expansions = {u"c"};
    coll_record r(every_byte(), spec.text());
    EXPECT_EQ(sort_key(r.handle, "aba"), "\4\4\2");
    check_orders(r, "ab=cc");
}

TEST(Collation, ReplacesAnExpansionByANestedOne) {
    coll_spec spec = letters("2 3 x x1");
    spec.expansions = {u"ab", u"acb"};
    coll_record r(every_byte(), spec.text());
    EXPECT_EQ(sort_key(r.handle, "da"), "\2\2\3\2") << "a, then c's own a and b; the b is dropped";
    for (const bool tables : {true, false}) {
        r.use_tables(tables);
        EXPECT_EQ(im_mbscoll(r.handle, mb("d"), mb("aab")), 0);
    }
    // The byte comparer reads the inner expansion's weight as a number: 0 sorts before a's 2.
    EXPECT_EQ(is_mbscoll_exp(r.handle, mb("d"), mb("aa")), -1);
}

TEST(Collation, BreaksTiesByCode) {
    coll_spec spec = letters("2t 2t 1 x");
    spec.expansions = {u"ba"};
    coll_record r(every_byte(), spec.text());
    check_orders(r, "a<b ab<ba ab<aba cb>a d=ba");
}

TEST(Collation, WidensWeightsWithTheLargestOne) {
    static const struct {
        int num_weights;
        const char *weight;
        std::string want;
    } rows[] = {
        {253,   "200",   {char(200)}                                                 },
        {254,   "200",   {2, char(200)}                                              },
        {254,   "256",   {3, 2}                                                      },
        {64515, "12288", {char((0x3000 - 2) / 254 + 2), char((0x3000 - 2) % 254 + 2)}},
        {64516, "300",   {2, 3, 46}                                                  },
        {10,    "0",     {2}                                                         }, // no digit of its own
        {10,    "7t",    {7, 2, 'a'}                                                 },
        {10,    "0t",    {2, 2, 'a'}                                                 },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.weight);
        coll_spec spec = letters(row.weight);
        spec.num_weights = row.num_weights;
        coll_record r(every_byte(), spec.text());
        for (const bool tables : {true, false}) {
            r.use_tables(tables);
            EXPECT_EQ(sort_key(r.handle, "a"), row.want);
        }
    }
}

TEST(Collation, CutsAKeyAtItsRoomAndCountsOn) {
    coll_spec spec = letters("2.2 x.3 1.4");
    spec.expansions = {u"aaa"};
    coll_record good(every_byte(), spec.text());
    for (const size_t repeat : {1u, 40u, 300u}) {
        std::string text;
        for (size_t i = 0; i < repeat; ++i)
            text += "abcab";
        const std::string key = sort_key(good.handle, text);
        EXPECT_EQ(key.size(), repeat * (1 + 3 + 1 + 3 + 5) + 1);
        for (const int room : {-1, 0, 1, 2, 7, static_cast<int>(key.size()), 100000}) {
            std::vector<ko_mchar_t> dst(100001, 0xEE);
            EXPECT_EQ(ko_full_mbsxfrm(good.handle, dst.data(), mb(text.c_str()), room),
                      static_cast<int>(key.size()));
            const size_t kept = std::min(key.size() + 1, static_cast<size_t>(std::max(room, 0)));
            EXPECT_EQ(memcmp(dst.data(), key.c_str(), kept), 0);
            EXPECT_EQ(dst[kept], 0xEE) << "nothing behind the key is touched";
        }
    }
}

TEST(Collation, FollowsTheCodesWithoutACategoryOrOnDemand) {
    coll_spec spec = letters("9 8 7");
    spec.codeset_order = 1;
    coll_record flagged(every_byte(), spec.text());
    EXPECT_EQ(flagged.flat, nullptr);
    coll_record built_in(every_byte(), "thai_smo\n");
    built_in.loc->coll_info.collate = collate_none;
    for (coll_record *r : {&flagged, &built_in}) {
        for (auto *entry : {im_mbscoll, is_mbscoll_exp, is_mbscoll_elem, is_mbscoll_back}) {
            EXPECT_EQ(entry(r->handle, mb("a"), mb("c")), -1);
            EXPECT_EQ(entry(r->handle, mb("b\xFF"), mb("b")), 1);
            EXPECT_EQ(entry(r->handle, mb("b"), mb("b")), 0);
        }
        EXPECT_EQ(ko_full_wcscoll(r->handle, wcs(u"a").data(), wcs(u"\u4000").data()), -1);
        EXPECT_EQ(sort_key(r->handle, "cab"), "cab");
        ko_mchar_t dst[8] = {};
        EXPECT_EQ(ko_wcsxfrm(r->handle, dst, wcs(u"a\u0100").data(), 8), -1);
        EXPECT_EQ(r->error(), KO_EILSEQ);
    }
}

TEST(Collation, RefusesWhatIsNoString) {
    coll_spec spec;
    spec.rows = {{50}, {2}, {3}, {4}};
    spec.map.assign({
        {"a",        1},
        {"b",        2},
        {"\x81\x41", 3}
    });
    coll_record r({std::string(1, '\0'), "a", "b", "\x81\x41"}, spec.text());
    ASSERT_EQ(r.result, 0);
    static const struct {
        const char *a, *b;
        int want, error;
    } rows[] = {
        {"a",         "b",         -1, 0        },
        {"\x81\x41",  "b",         1,  0        },
        {"a\x81\x41", "a\x81",     0,  KO_EILSEQ},
        {"a",         "b\x81\x42", 0,  KO_EILSEQ}, // decided by the first weights, yet invalid
        {"ax",        "b",         0,  KO_EILSEQ},
        {"a\x82",     "a\x82",     0,  KO_EILSEQ},
    };
    for (const bool tables : {true, false})
        for (const auto &row : rows) {
            r.use_tables(tables);
            r.clear_error();
            EXPECT_EQ(im_mbscoll(r.handle, mb(row.a), mb(row.b)), row.want);
            EXPECT_EQ(r.error(), row.error) << row.b;
        }
    r.clear_error();
    EXPECT_EQ(ko_full_mbsxfrm(r.handle, nullptr, mb("a\x81"), 0), -1);
    EXPECT_EQ(r.error(), KO_EILSEQ);
    EXPECT_EQ(im_mbscoll(r.handle, mb("a"), nullptr), 0);
    EXPECT_EQ(ko_full_wcscoll(r.handle, nullptr, wcs(u"a").data()), 0);
    EXPECT_EQ(r.error(), KO_ENULL);
}

TEST(Collation, ComparesCodesWithoutALocale) {
    static const struct {
        std::u16string a, b;
        int n, cmp, ncmp;
    } rows[] = {
        {u"abc", u"abd", 2,  -1,   0   },
        {u"abc", u"abd", 3,  -1,   -1  },
        {u"a",   u"",    1,  0x61, 0x61},
        {u"a",   u"b",   -3, -1,   0   },
        {u"a",   u"a",   9,  0,    0   },
    };
    for (const auto &r : rows) {
        EXPECT_EQ(ko_wcscmp(wcs(r.a).data(), wcs(r.b).data()), r.cmp);
        EXPECT_EQ(ko_wcsncmp(wcs(r.a).data(), wcs(r.b).data(), r.n), r.ncmp);
    }
    coll_record r({std::string(1, '\0'), "a", "b", "\x81\x41"}, "thai_smo\n");
    const ko_mchar_t ends_a[] = {'a', 0x81, 0x41, 'a', 0}, ends_b[] = {'a', 0x81, 0x41, 'b', 0};
    EXPECT_EQ(ko_full_mbsncmp(r.handle, ends_a, ends_b, 2), 0);
    EXPECT_EQ(ko_full_mbsncmp(r.handle, ends_a, ends_b, 3), -1);
    EXPECT_EQ(ko_full_mbsncmp(r.handle, mb("ab"), mb("a"), 2), 1);
    EXPECT_EQ(ko_full_mbsncmp(r.handle, mb("a"), mb("ab"), 2), -1);
    EXPECT_EQ(ko_full_mbsncmp(r.handle, mb("a"), mb("b"), -1), 0);
    r.clear_error();
    EXPECT_EQ(ko_full_mbsncmp(r.handle, mb("a\x82"), mb("ab"), 2), -1) << "compared up to it";
    EXPECT_EQ(r.error(), KO_EILSEQ);
    const auto text = wcs(u"abc");
    EXPECT_EQ(ko_wcspre(r.handle, text.data(), 3, text.data(), 2), 1);
    EXPECT_EQ(ko_wcspre(r.handle, text.data(), 1, text.data(), 2), 0);
    EXPECT_EQ(ko_wcspre(r.handle, text.data() + 1, 2, text.data(), 2), 0);
}

TEST(Collation, PutsThaiVowelsBehindAndMarksLast) {
    coll_record r(every_byte(), "thai_smo\n");
    ASSERT_EQ(r.result, 0);
    EXPECT_EQ(r.loc->exp.mbscoll, thaismocoll);
    EXPECT_EQ(r.loc->exp.mbsxfrm, thaismoxfrm);
    static const std::pair<const char *, const char *> rows[] = {
        {"\xE0\xA1",         "\xA1\xE0"            }, // a leading vowel
        {"\xA1\xE8",         "\xA1\x01\x8F"        }, // a mark on the first character
        {"\xE0\xA1\xE8\xA2", "\xA1\xE0\xA2\x02\x8F"},
        {"\xA1\xE0",         "\xA1\xE0"            }, // a vowel left at the end
        {"\xA1\xD1\xD2",     "\xA1\x80\xD1"        },
        {"",                 ""                    },
    };
    for (const auto &[from, want] : rows) {
        EXPECT_EQ(sort_key(r.handle, from), want);
        ko_mchar_t key[32];
        EXPECT_EQ(thaismoxfrm(r.handle, const_cast<ko_mchar_t *>(mb(from)), key, 32),
                  static_cast<int>(strlen(want)));
        EXPECT_EQ(text(key), want) << "the text comes first, the destination second";
    }
    EXPECT_EQ(im_mbscoll(r.handle, mb("\xE0\xA1"), mb("\xA2")), -1);
    const ko_wchar_t one[] = {0xE0, 0xA1, 0}, other[] = {0xA1, 0xE8, 0};
    EXPECT_EQ(ko_full_wcscoll(r.handle, one, other), 1);
    const std::string many(5000, '\xE8');
    EXPECT_GT(ko_full_mbsxfrm(r.handle, nullptr, mb(many.c_str()), 0), 200);
}

TEST(Collation, FailsCleanlyWithoutMemory) {
    coll_spec spec = letters("2.2 2.3 4.x");
    spec.expansions = {u"ab"};
    spec.map.push_back({"\x81\x41", 1});
    coll_record r({std::string(1, '\0'), "a", "b", "\x81\x41"}, spec.text());
    std::string text;
    for (int i = 0; i < 400; ++i)
        text += "\x81\x41";
    r.use_tables(false);
    const long failed = each_allocation_fails([&] {
        r.clear_error();
        const int order = im_mbscoll(r.handle, mb(text.c_str()), mb("a"));
        const int error = r.error(), key = ko_full_mbsxfrm(r.handle, nullptr, mb(text.c_str()), 0);
        EXPECT_EQ(order, error ? 0 : 1);
        EXPECT_TRUE(!r.error() || r.error() == KO_ENOMEM);
        return !error && key > 0;
    });
    EXPECT_GT(failed, 1);
}

// What is derived of a class table must not serve another one.
TEST(Collation, ReadsShortStringsInTheCodeSetThatIsThereNow) {
    std::vector<std::string> characters = {std::string(1, '\0'), "a"};
    coll_spec spec;
    spec.rows = {{90}, {2}, {3}};
    for (int trail = 0xA1; trail < 0xFF; ++trail) {
        characters.push_back({'\xB0', static_cast<char>(trail)});
        spec.map.push_back({characters.back(), static_cast<uint16_t>(1 + trail % 2)});
    }
    coll_record r(characters, spec.text());
    ASSERT_EQ(im_mbscoll(r.handle, mb("\xB0\xA2"), mb("\xB0\xA1")), -1);
    ko_free_category(r.handle, KO_LC_CTYPE);
    EXPECT_EQ(ko_make_null_category(r.handle, KO_LC_CTYPE), 0);
    r.clear_error();
    EXPECT_EQ(im_mbscoll(r.handle, mb("\xB0\xA2"), mb("\xB0\xA1")), 0);
    EXPECT_EQ(r.error(), KO_EILSEQ) << "no code set has these characters now";
}

// ---- Random tables ----

namespace {

struct random_tables {
    std::mt19937 rng;
    bool double_byte = false, wide_only = false, pairs_only = false, lawful = false;
    unsigned below(unsigned n) { return static_cast<unsigned>(rng() % n); }
    bool chance(unsigned percent) { return below(100) < percent; }

    std::string bytes(char16_t c) const {
        if (c > 0xFF || wide_only) return {static_cast<char>(c >> 8), static_cast<char>(c)};
        return {static_cast<char>(c)};
    }
    std::u16string alphabet() const {
        std::u16string all = u"abcdef";
        if (double_byte) all += u"\uB0A1\uB0A2\uD0FE";
        return pairs_only ? all.substr(6) : all;
    }
    std::u16string string(unsigned longest) {
        const std::u16string all = alphabet();
        std::u16string s(below(longest + 1), u'a');
        for (char16_t &c : s)
            c = all[below(static_cast<unsigned>(all.size()))];
        return s;
    }
    std::u16string part(unsigned shortest) {
        std::u16string s = string(chance(10) ? 9 : 3);
        while (s.size() < shortest)
            s += u'c';
        return s;
    }
    std::vector<std::string> characters() const {
        std::vector<std::string> all;
        if (!double_byte && !wide_only) return every_byte();
        all.push_back(bytes(0));
        for (const char16_t c : alphabet())
            all.push_back(bytes(c));
        for (char16_t c = 0xB0A1; double_byte && c < 0xD0FF; ++c) // strings of these go in blocks
            if ((c & 0xFF) > 0xA2 && (c & 0xFF) < 0xFF && c != 0xD0FE) all.push_back(bytes(c));
        return all;
    }
    unsigned weight(const coll_spec &spec, bool may_expand, bool may_tie) {
        if (chance(15)) return coll_ignored_weight;
        if (may_expand && !spec.expansions.empty() && chance(25))
            return expands | below(static_cast<unsigned>(spec.expansions.size()));
        unsigned w = 2 + below(5);
        if (chance(10)) w = 250 + below(20);
        if (!lawful && chance(3)) w = 0;
        return may_tie && w % 2 ? w | tie : w; // equal weights tie alike
    }
    coll_spec spec(unsigned features) {
        coll_spec s;
        s.num_weights = chance(50) ? 300 : 253;
        if (lawful) s.num_weights = 300;
        s.passes.assign(1 + below(4), coll_forward);
        for (int &type : s.passes)
            if (features & 1 && chance(40)) type = coll_backward;
        if (features & 2)
            for (unsigned n = 1 + below(3); n; --n)
                s.expansions.push_back(part(lawful ? 1 : 0));
        if (features & 4)
            for (unsigned n = 1 + below(4); n; --n)
                s.elements.push_back({part(1), below(12)});
        const bool ties = features & 8;
        for (unsigned row = 0; row < 12; ++row) {
            s.rows.emplace_back();
            for (size_t p = 0; p < s.passes.size(); ++p)
                s.rows.back().push_back(weight(s, row > 0, ties));
        }
        s.map.push_back({bytes(0), 0});
        for (const char16_t c : alphabet())
            if (!chance(8)) s.map.push_back({bytes(c), static_cast<uint16_t>(1 + below(11))});
        if (lawful)
            for (element_spec &e : s.elements)
                for (unsigned &w : s.rows[e.row])
                    if (w & tie) w &= ~(tie | 1u); // even weights never ask for a tie-break
        return s;
    }
    std::string encode(const std::u16string &s) const {
        std::string out;
        for (const char16_t c : s)
            out += bytes(c);
        return wide_only ? out + '\0' : out;
    }
    // A second string, mostly one that shares much with the first.
    std::u16string near(const std::u16string &s) {
        if (chance(30)) return string(8);
        std::u16string t = s;
        const std::u16string other = string(2);
        t.replace(below(static_cast<unsigned>(t.size() + 1)), below(3), other);
        return t;
    }
};

// Both orders, the installed comparer's and the keys of two strings, and what is then in the error
// word. The strings end with their pages, or some bytes before.
struct coll_results {
    int order, back, installed, error;
    std::string keys[2];
    bool operator==(const coll_results &) const = default;
};
coll_results results(coll_record &r, const std::string &a, const std::string &b, size_t gap) {
    static guarded_block block_a, block_b;
    const ko_mchar_t *const first = block_a.put({a.c_str(), a.size() + 1}, gap);
    const ko_mchar_t *const second = block_b.put({b.c_str(), b.size() + 1});
    r.clear_error();
    return {
        im_mbscoll(r.handle, first, second),
        im_mbscoll(r.handle, second, first),
        r.loc->exp.mbscoll(r.handle, first, second),
        r.error(),
        {sort_key(r.handle, a), sort_key(r.handle, b)}
    };
}

std::string wide_key(ko_lc_t loc, const std::u16string &text) {
    ko_mchar_t key[4000];
    const int bytes = ko_wcsxfrm(loc, key, wcs(text).data(), sizeof key);
    return {key, key + std::clamp(bytes, 0, static_cast<int>(sizeof key))};
}

constexpr int random_rounds = 3000;

} // namespace

TEST(CollationRandom, TablesGiveTheResultsOfTheRowWalkAndKeysSortLikeComparison) {
    int with_tables = 0, invalid = 0;
    for (int round = 0; round < random_rounds && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        random_tables random = {std::mt19937(static_cast<unsigned>(round))};
        random.lawful = round % 2;
        random.double_byte = round / 2 % 4 > 0;
        random.wide_only = round / 2 % 4 == 1;
        random.pairs_only = round / 2 % 4 == 2;
        const coll_spec spec = random.spec(static_cast<unsigned>(round / 8) % 16);
        coll_record r(random.characters(), spec.text());
        if (r.result) continue; // expansions in a circle
        with_tables += r.flat != nullptr;
        for (int pair = 0; pair < 25; ++pair) {
            const std::u16string a = random.string(8), b = random.near(a);
            std::string bytes = random.encode(a);
            const std::string other = random.encode(b);
            const bool damaged = random.double_byte && !bytes.empty() && random.chance(15);
            if (damaged)
                bytes[random.below(static_cast<unsigned>(bytes.size()))] =
                    "a\xA0\xFF\x80\xB0"[random.below(5)];
            const size_t gap = random.chance(50) ? random.below(40) : 0;
            const coll_results by_tables = results(r, bytes, other, gap);
            r.use_tables(false);
            const coll_results by_rows = results(r, bytes, other, gap);
            ASSERT_TRUE(by_tables == by_rows) << pair;
            ASSERT_EQ(by_rows.order, -by_rows.back) << "either may come first";
            invalid += by_rows.error != 0;
            for (const bool tables : {false, true}) {
                r.use_tables(tables);
                if (damaged) continue;
                ASSERT_EQ(by_rows.order, ko_full_wcscoll(r.handle, wcs(a).data(), wcs(b).data()));
                ASSERT_EQ(by_rows.keys[0], wide_key(r.handle, a));
                ASSERT_EQ(r.error(), 0);
            }
            if (random.lawful && !by_rows.error) {
                ASSERT_EQ(by_rows.order, sign(by_rows.keys[0].compare(by_rows.keys[1])));
            }
        }
    }
    EXPECT_GT(with_tables, random_rounds / 2);
    EXPECT_GT(invalid, random_rounds / 2);
}
