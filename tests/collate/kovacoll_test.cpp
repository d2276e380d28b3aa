// Comparison and keys: what the tables mean, and that the fast paths keep to the row walk.
#include "collate/coll_builder.h"
#include "support/guarded_block.h"

#include <algorithm>
#include <random>

namespace {

int sign(int n) { return n < 0 ? -1 : n > 0; }

// Every entry that fits the record, with tables and without; keys are "text:digit.digit".
void check(const coll_spec &spec, const std::string &order, const std::string &keys = "") {
    SCOPED_TRACE(spec.text());
    coll_record r(every_byte(), spec.text());
    ASSERT_EQ(r.result, 0);
    for (const bool tables : {true, false}) {
        r.use_tables(tables);
        for (const order_row &o : orders(order)) {
            SCOPED_TRACE(o.a + " : " + o.b + (tables ? " tables" : " rows"));
            const ko_mchar_t *const a = mb(o.a.c_str()), *const b = mb(o.b.c_str());
            EXPECT_EQ(r.loc->exp.mbscoll(r.handle, a, b), o.want);
            EXPECT_EQ(im_mbscoll(r.handle, a, b), o.want);
            EXPECT_EQ(im_mbscoll(r.handle, b, a), -o.want);
            EXPECT_EQ(sign(sort_key(r.handle, o.a).compare(sort_key(r.handle, o.b))), o.want);
        }
        for (const std::string &row : split(keys, ' ')) {
            const size_t colon = row.find(':');
            std::string key;
            for (const std::string &digit : split(row.substr(colon + 1), '.'))
                key += char(std::stoi(digit));
            EXPECT_EQ(sort_key(r.handle, row.substr(0, colon)), key) << row << tables;
        }
    }
    EXPECT_EQ(r.error(), 0) << "a character without a row is no error";
}

} // namespace

TEST(Collation, OrdersAsItsTablesSay) {
    // The first pass outweighs the second; d is ignored; x has no row of its own.
    check(bytes_spec("abcd", "90.90 2.2 2.3 4.2 1.1"),
          "= <a a<b bc>ac ba<ac ab<abc a>d adb=ab d=dddd c<x", ":1 adb:2.2.1.2.3");
    coll_spec back = bytes_spec("abc", "90.90 2.2 2.3 x.x", "ab");
    back.passes[1] = coll_backward;
    check(back, "ab>ba c=ab c>ba ca<ac", "c:2.2.1.3.2"); // expansions are weighed last to first
    // The first element of the file wins, from the left; ab reaches out of the common start.
    check(bytes_spec("abcde", "90 2 3 4 10 5 20 30", "", "ab6 abb7 ca1"),
          "aab>aaa aab>aad cab<caab ca=a ab>b", "abb:20.3 caab:2.20 cab:2.3");
    // An element delivers its expansion once for each of its characters.
    check(bytes_spec("abc", "90 2 3 4 x", "c", "ab4"), "ab=cc", "aba:4.4.2");
    check(bytes_spec("abcd", "90 2t 2t 1 x", "ba"), "a<b ab<ba ab<aba cb>a d=ba");
}

TEST(Collation, ReplacesAnExpansionByANestedOne) {
    const coll_spec spec = bytes_spec("abcd", "90 2 3 x x1", "ab acb");
    check(spec, "", "da:2.2.3.2"); // a, then c's own a and b; the b is dropped
    coll_record r(every_byte(), spec.text());
    for (const bool tables : {true, false}) {
        r.use_tables(tables);
        EXPECT_EQ(im_mbscoll(r.handle, mb("d"), mb("aab")), 0);
    }
    // The byte comparer reads the inner expansion's weight as a number: 0 sorts before a's 2.
    EXPECT_EQ(is_mbscoll_exp(r.handle, mb("d"), mb("aa")), -1);
}

TEST(Collation, WidensWeightsWithTheLargestOne) {
    // The largest weight, that of a, and its key: 50.96 is (12288 - 2) / 254 + 2 and the rest + 2,
    // and 0 has no digit of its own.
    for (const auto &w : table(
             "253 200 a:200; 254 200 a:2.200; 254 256 a:3.2; 64515 12288 a:50.96; "
             "64516 300 a:2.3.46; 70000 300 a:2.3.46; 10 0 a:2; 10 7t a:7.2.97; 10 0t a:2.2.97")) {
        coll_spec spec = bytes_spec("a", ("90 " + w[1]).c_str());
        spec.num_weights = whole(w[0]);
        check(spec, "", w[2]);
    }
}

TEST(Collation, CutsAKeyAtItsRoomAndCountsOn) {
    coll_record good(every_byte(), bytes_spec("abc", "90.90 2.2 x.3 1.4", "aaa").text());
    std::string text;
    for (const size_t repeat : {1u, 40u, 300u}) {
        while (text.size() < 5 * repeat)
            text += "abcab";
        const std::string key = sort_key(good.handle, text);
        const int size = int(key.size());
        EXPECT_EQ(key.size(), repeat * (1 + 3 + 1 + 3 + 5) + 1);
        for (const int room : {-1, 0, 1, 2, 7, size, 100000}) {
            std::vector<ko_mchar_t> dst(100001, 0xEE);
            EXPECT_EQ(ko_full_mbsxfrm(good.handle, dst.data(), mb(text.c_str()), room), size);
            const size_t kept = std::min(key.size() + 1, size_t(std::max(room, 0)));
            EXPECT_EQ(memcmp(dst.data(), key.c_str(), kept), 0);
            EXPECT_EQ(dst[kept], 0xEE) << "nothing behind the key is touched";
        }
    }
}

TEST(Collation, FollowsTheCodesWithoutACategoryOrOnDemand) {
    coll_spec spec = bytes_spec("abc", "90 9 8 7");
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
    coll_record pairs({std::string(1, '\0'), "a", "b", "\x81\x41"}, spec.text());
    EXPECT_EQ(im_mbscoll(pairs.handle, mb("ba"), mb("b\x81\x41")), -1);
    EXPECT_EQ(sort_key(pairs.handle, "ab\x81\x41"), "ab\x81\x41");
    EXPECT_EQ(pairs.error(), 0);
    EXPECT_EQ(ko_wcsxfrm(pairs.handle, nullptr, wcs(u"a\uFFFF").data(), 0), -1);
    EXPECT_EQ(pairs.error(), KO_EILSEQ);
}

TEST(Collation, RefusesWhatIsNoString) {
    coll_spec spec = bytes_spec("ab", "50 2 3 4");
    spec.map.push_back({"\x81\x41", 3});
    coll_record r({std::string(1, '\0'), "a", "b", "\x81\x41"}, spec.text());
    ASSERT_EQ(r.result, 0);
    static const std::tuple<const char *, const char *, int, int> rows[] = {
        {"a",         "b",         -1, 0        },
        {"\x81\x41",  "b",         1,  0        },
        {"a\x81\x41", "a\x81",     0,  KO_EILSEQ},
        {"a",         "b\x81\x42", 0,  KO_EILSEQ}, // decided by the first weights, yet invalid
        {"ax",        "b",         0,  KO_EILSEQ},
        {"a\x82",     "a\x82",     0,  KO_EILSEQ},
    };
    for (const bool tables : {true, false})
        for (const auto &[a, b, want, error] : rows) {
            r.use_tables(tables);
            r.clear_error();
            EXPECT_EQ(im_mbscoll(r.handle, mb(a), mb(b)), want);
            EXPECT_EQ(r.error(), error) << b;
        }
    for (const char *const bad : {"a\x81", "\x81\x42"}) {
        r.clear_error();
        EXPECT_EQ(sort_key(r.handle, bad), "failed");
        EXPECT_EQ(sort_key(r.handle, std::string(1000, 'a') + bad), "failed");
        EXPECT_EQ(r.error(), KO_EILSEQ);
    }
    EXPECT_EQ(ko_full_mbsxfrm(r.handle, nullptr, mb("a"), 1), -1);
    EXPECT_EQ(ko_wcsxfrm(r.handle, nullptr, wcs(u"a").data(), 1), -1);
    EXPECT_EQ(r.error(), KO_ENULL);
}

TEST(Collation, ComparesCodesWithoutALocale) {
    coll_record r({std::string(1, '\0'), "a", "b", "\x81\x41"}, "thai_smo\n");
    static const struct {
        std::u16string a, b;
        int n, cmp, ncmp;
        const char *bytes_a, *bytes_b;
    } rows[] = {
        {u"a\u8141a", u"a\u8141b", 2, -1,   0,    "a\x81\x41\x61", "a\x81\x41\x62"},
        {u"a\u8141a", u"a\u8141b", 3, -1,   -1,   "a\x81\x41\x61", "a\x81\x41\x62"},
        {u"ab",       u"a",        2, 0x62, 0x62, "ab",            "a"            },
        {u"a",        u"ab",       2, -98,  -98,  "a",             "ab"           },
        {u"a",        u"a",        9, 0,    0,    "a",             "a"            },
    };
    for (const auto &row : rows) {
        EXPECT_EQ(ko_wcscmp(wcs(row.a).data(), wcs(row.b).data()), row.cmp);
        EXPECT_EQ(ko_wcsncmp(wcs(row.a).data(), wcs(row.b).data(), row.n), row.ncmp);
        EXPECT_EQ(ko_full_mbsncmp(r.handle, mb(row.bytes_a), mb(row.bytes_b), row.n),
                  sign(row.ncmp));
    }
    r.clear_error();
    EXPECT_EQ(ko_full_mbsncmp(r.handle, mb("a\x82"), mb("ab"), 2), -1) << "compared up to it";
    EXPECT_EQ(r.error(), KO_EILSEQ);
    const auto text = wcs(u"abc");
    EXPECT_EQ(ko_wcspre(r.handle, text.data(), 3, text.data(), 2), 1);
    EXPECT_EQ(ko_wcspre(r.handle, text.data() + 1, 2, text.data(), 2), 0);
}

TEST(Collation, PutsThaiVowelsBehindAndMarksLast) {
    coll_record r(every_byte(), "thai_smo\n");
    static const std::pair<const char *, const char *> rows[] = {
        {"\xE0\xA1",         "\xA1\xE0"                    }, // a leading vowel
        {"\xA1\xE8",         "\xA1\x01\x8F"                }, // a mark on the first character
        {"\xE0\xA1\xE8\xA2", "\xA1\xE0\xA2\x02\x8F"        },
        {"\xA1\xE0",         "\xA1\xE0"                    }, // a vowel left at the end
        {"\xE4\xA1\xE5\xA1", "\xA1\xE4\xE5\xA1"            }, // the last leading vowel, and none
        {"\xA1\xD1\xD2",     "\xA1\xD1\xD2"                },
        {"\xE0\xE8\xE1\xA1", "\xE1\xE0\xA1\x01\x8F"        }, // a vowel after a vowel
        {"\xE8\xA1\xEE\xE7", "\xA1\x01\x8F\x01\x95\x01\x8E"},
        {"",                 ""                            },
    };
    for (const auto &[from, want] : rows) {
        EXPECT_EQ(sort_key(r.handle, from), want);
        ko_mchar_t key[32];
        EXPECT_EQ(thaismoxfrm(r.handle, const_cast<ko_mchar_t *>(mb(from)), key, 32),
                  int(strlen(want)));
        EXPECT_EQ(text(key), want) << "the text comes first, the destination second";
    }
    EXPECT_EQ(im_mbscoll(r.handle, mb("\xE0\xA1"), mb("\xA2")), -1);
    EXPECT_EQ(ko_full_wcscoll(r.handle, wcs(u"\xE0\xA1").data(), wcs(u"\xA1\xE8").data()), 1);
    const std::string many(5000, '\xE8');
    EXPECT_GT(ko_full_mbsxfrm(r.handle, nullptr, mb(many.c_str()), 0), 200);
}

// The order of keys while both halves have room, and an order of all texts.
TEST(Collation, OrdersThaiTextsAsTheirKeysAndBeyondThem) {
    coll_record r(every_byte(), "thai_smo\n");
    static constexpr char chars[] = "\xA1\xA1\xA2\xD1\xE0\xE4\xE7\xEE\x01\x20";
    std::mt19937 random(3);
    const auto compare = [&r](const std::string &a, const std::string &b) {
        return thaismocoll(r.handle, mb(a.c_str()), mb(b.c_str()));
    };
    const auto sign = [](int n) { return (n > 0) - (n < 0); };
    for (int round = 0; round < 20000; ++round) {
        std::string texts[3], keys[3];
        const std::string start(round % 16 ? 0 : random() % 300, '\xA1');
        for (int i = 0; i < 3; ++i) {
            texts[i] = start;
            for (size_t n = random() % 5; n; --n)
                texts[i] += chars[random() % (sizeof chars - 1)];
            keys[i] = sort_key(r.handle, texts[i]);
        }
        const int ab = compare(texts[0], texts[1]), bc = compare(texts[1], texts[2]),
                  ac = compare(texts[0], texts[2]);
        EXPECT_EQ(compare(texts[1], texts[0]), -ab);
        EXPECT_TRUE(ab < 0 || bc < 0 || ac == std::max(ab, bc));
        EXPECT_TRUE(ab > 0 || bc > 0 || ac == std::min(ab, bc));
        EXPECT_TRUE(start.size() > 250 || ab == sign(keys[0].compare(keys[1])));
    }
    for (const char *const tail : {"\xA1\xA2", "\xA1\xA1\xE8", "\xE0\xA1"}) {
        std::string text(400, '\xA1');
        EXPECT_EQ(compare(text + "\xA1\xA1", text + tail), -1) << tail;
        EXPECT_EQ(compare(text + tail, text + tail), 0);
    }
    const std::string marks(300, '\xE8'); // the marks beyond the key count, too
    EXPECT_EQ(compare("\xA1" + marks + "\xE8", "\xA1" + marks + "\xE9"), -1);
}

TEST(Collation, FailsCleanlyWithoutMemory) {
    coll_spec spec = bytes_spec("abc", "90.90 2.2 2.3 4.x", "ab");
    spec.map.push_back({"AA", 1});
    coll_record r({std::string(1, '\0'), "a", "b", "AA"}, spec.text());
    coll_record by_rows({std::string(1, '\0'), "a", "b", "AA"}, spec.text());
    by_rows.use_tables(false);
    coll_record thai(every_byte(), "thai_smo\n");
    const std::string text(800, 'A');
    const auto pairs = wcs(std::u16string(400, u'\u4141')), letters = wcs(std::u16string(800, 'A'));
    for (const bool flat : {true, false}) // from the code set's pages and from its tree
        for (coll_record *const c : {&r, &by_rows, &thai}) {
            if (flat && c == &r) continue; // it takes none
            const ko_wchar_t *const wide = (c == &thai ? letters : pairs).data();
            ctype_flat *const pages = c->loc->chars;
            if (!flat) c->loc->chars = nullptr;
            const long failed = each_allocation_fails([&] {
                c->clear_error();
                const int order = im_mbscoll(c->handle, mb(text.c_str()), mb("a"));
                const int error = c->error();
                EXPECT_EQ(order, error ? 0 : c == &thai ? -1 : 1);
                const int wide_order = ko_full_wcscoll(c->handle, wide, wcs(u"a").data());
                EXPECT_TRUE(wide_order == order || c->error());
                const int key = ko_full_mbsxfrm(c->handle, nullptr, mb(text.c_str()), 0);
                const int wide_key = ko_wcsxfrm(c->handle, nullptr, wide, 0);
                EXPECT_TRUE(key == wide_key || c->error());
                EXPECT_TRUE(!c->error() || c->error() == KO_ENOMEM);
                return !c->error();
            });
            EXPECT_GT(failed, 0);
            c->loc->chars = pages;
        }
}

// What is derived of a class table must not serve another one.
TEST(Collation, ReadsShortStringsInTheCodeSetThatIsThereNow) {
    std::vector<std::string> characters = {std::string(1, '\0'), "a"};
    coll_spec spec;
    spec.rows = {{90}, {2}, {3}};
    for (int trail = 0xA1; trail < 0xFF; ++trail) {
        characters.push_back({'\xB0', char(trail)});
        spec.map.push_back({characters.back(), uint16_t(1 + trail % 2)});
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
    unsigned below(size_t n) { return unsigned(rng() % n); }
    bool chance(unsigned percent) { return below(100) < percent; }

    std::string bytes(char16_t c) const {
        if (c > 0xFF || wide_only) return {char(c >> 8), char(c)};
        return {char(c)};
    }
    std::u16string alphabet() const {
        if (pairs_only) return u"\uB0A1\uB0A2\uD0FE";
        return double_byte ? u"abcdef\uB0A1\uB0A2\uD0FE" : u"abcdef";
    }
    std::u16string string(unsigned longest, unsigned shortest = 0) {
        const std::u16string all = alphabet();
        std::u16string s(below(longest + 1), u'a');
        for (char16_t &c : s)
            c = all[below(all.size())];
        if (s.size() < shortest) s.resize(shortest, u'c');
        return s;
    }
    std::vector<std::string> characters() const {
        std::vector<std::string> all = {bytes(0)};
        if (!double_byte && !wide_only) return every_byte();
        for (const char16_t c : alphabet())
            all.push_back(bytes(c));
        for (char16_t c = 0xB0A1; double_byte && c < 0xD0FF; ++c) // strings of these go in blocks
            if ((c & 0xFF) > 0xA2 && (c & 0xFF) < 0xFF && c != 0xD0FE) all.push_back(bytes(c));
        return all;
    }
    unsigned weight(const coll_spec &spec, bool may_expand, bool may_tie) {
        if (chance(15)) return coll_ignored_weight;
        if (may_expand && !spec.expansions.empty() && chance(25))
            return coll_expansion | below(spec.expansions.size());
        unsigned w = 2 + below(5);
        if (chance(10)) w = 250 + below(20);
        if (!lawful && chance(3)) w = 0;
        return may_tie && w % 2 ? w | coll_code_tie : w; // equal weights tie alike
    }
    // Lets an element weigh as its first character alone in a pass.
    void fall_apart(coll_spec &s, const element_spec &e, size_t pass) const {
        unsigned weight = coll_ignored_weight;
        for (size_t i = e.chars.size(); i-- > 0;) {
            unsigned row = 0;
            for (const table_entry &entry : s.map)
                if (entry.bytes == bytes(e.chars[i])) row = entry.item;
            if (i) s.rows[row][pass] = coll_ignored_weight;
            weight = s.rows[row][pass];
        }
        s.rows[e.row][pass] = weight;
    }
    coll_spec spec(unsigned features) {
        coll_spec s;
        s.num_weights = chance(50) || lawful ? 300 : 253;
        s.passes.assign(1 + below(4), coll_forward);
        for (int &type : s.passes)
            if (features & 1 && chance(40)) type = coll_backward;
        for (unsigned n = features & 2 ? 1 + below(3) : 0; n; --n)
            s.expansions.push_back(string(chance(10) ? 9 : 3, lawful ? 1 : 0));
        for (unsigned n = features & 4 ? 1 + below(4) : 0; n; --n)
            s.elements.push_back({string(chance(10) ? 9 : 3, 1), below(12)});
        for (unsigned row = 0; row < 12; ++row) {
            s.rows.emplace_back();
            for (size_t p = 0; p < s.passes.size(); ++p)
                s.rows.back().push_back(weight(s, row > 0, features & 8));
        }
        s.map.push_back({bytes(0), 0});
        for (const char16_t c : alphabet())
            if (!chance(8)) s.map.push_back({bytes(c), uint16_t(1 + below(11))});
        for (const element_spec &e : s.elements)
            for (size_t p = 0; p < s.passes.size(); ++p)
                if (s.passes[p] == coll_backward && chance(80)) fall_apart(s, e, p);
        for (element_spec &e : s.elements)
            for (unsigned &w : s.rows[e.row]) // even weights never ask for a tie-break
                if (lawful && w & coll_code_tie) w &= ~(coll_code_tie | 1u);
        return s;
    }
    std::string encode(const std::u16string &s) const {
        std::string out;
        for (const char16_t c : s)
            out += bytes(c);
        return wide_only ? out + '\0' : out;
    }
    // A second string, mostly one that shares much with the first.
    std::u16string near(std::u16string s) {
        if (chance(30)) return string(8);
        const std::u16string other = string(2);
        return s.replace(below(s.size() + 1), below(3), other);
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
        {sort_key(r.handle, first), sort_key(r.handle, second)}
    };
}

std::string wide_key(ko_lc_t loc, const std::u16string &text) {
    ko_mchar_t key[4000];
    const int bytes = ko_wcsxfrm(loc, key, wcs(text).data(), sizeof key);
    return {key, key + std::clamp(bytes, 0, int(sizeof key))};
}

} // namespace

TEST(CollationRandom, TablesGiveTheResultsOfTheRowWalkAndKeysSortLikeComparison) {
    constexpr int rounds = 3000;
    int with_tables = 0, both_ways = 0, invalid = 0;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const int kind = round / 2 % 4;
        random_tables random = {std::mt19937(unsigned(round)), kind > 0, kind == 1, kind == 2,
                                round % 2 > 0};
        const coll_spec spec = random.spec(unsigned(round / 8) % 16);
        coll_record r(random.characters(), spec.text());
        if (r.result) continue; // expansions in a circle
        with_tables += r.flat != nullptr;
        const bool backward = std::count(spec.passes.begin(), spec.passes.end(), coll_backward);
        both_ways += r.flat && backward && !spec.elements.empty();
        for (int pair = 0; pair < 25; ++pair) {
            const unsigned longest = random.pairs_only ? 20 : random.chance(20) ? 40 : 8;
            const std::u16string a = random.string(longest), b = random.near(a);
            std::string bytes = random.encode(a);
            const std::string other = random.encode(b);
            const bool damaged = random.double_byte && !bytes.empty() && random.chance(15);
            if (damaged)
                bytes[random.below(unsigned(bytes.size()))] = "a\xA0\xFF\x80\xB0"[random.below(5)];
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
    EXPECT_GT(with_tables, rounds / 2);
    EXPECT_GT(both_ways, rounds / 50);
    EXPECT_GT(invalid, rounds / 2);
}
