// The collation section: what is derived from it, and what is refused.
#include "collate/coll_builder.h"

#include <time.h>

namespace {

std::vector<std::string> ignored(const coll_record &r) {
    std::vector<std::string> all;
    for (const ko_mchar_t **s = r.loc->exp.coll_ignored; s && *s; ++s)
        all.push_back(text(*s));
    return all;
}

std::string equivalents(const coll_record &r) {
    std::string all;
    for (const auto *p = r.loc->exp.coll_equiv_class_map; p && p->from; ++p)
        all += text(p->from) + "=" + text(p->to) + " ";
    return all;
}

// a..j; an element "ij", an expansion "bc". d and h are ignored, yet no class; e in one pass only;
// f and g expand; the tie-break of i in the second pass bars its class with j.
coll_spec sample() {
    coll_spec spec = bytes_spec("abcdefghij", "99.99 2.2 3.2 3.2 1.1 1.2 x.x x.x 1.1 5.4t 5.4t",
                                "bc a", "ij2 gggggg4 outside2");
    spec.elements[2].chars = u"\u0141\u0142";
    return spec;
}

} // namespace

TEST(CollationSection, ListsIgnoredAndEquivalentCharacters) {
    coll_record r(every_byte(), sample().text());
    ASSERT_EQ(r.result, 0);
    EXPECT_EQ(ignored(r), (std::vector<std::string>{"gggggg", "d", "h"}));
    EXPECT_EQ(equivalents(r), "ij=c b=c f=bc g=bc ");
    EXPECT_EQ(r.loc->exp.coll_char_ratio, 6.0);
    EXPECT_EQ(r.error(), 0) << "the element outside the code set is left out";
    EXPECT_EQ(r.loc->coll_info.exp_direct[0][+'f'], r.loc->coll_info.exp_arr);
    EXPECT_EQ(r.loc->coll_info.exp_direct[1][+'a'], nullptr);
    EXPECT_EQ(r.loc->coll_info.exp_direct[2], nullptr);
    for (int c = 0; c < 256; ++c)
        EXPECT_EQ(r.loc->coll_info.elem_candidate[c], c == 'i' || c == 'g') << c;
}

TEST(CollationSection, ListsNothingWhereThereIsNothing) {
    coll_record r(every_byte(), bytes_spec("a", "99.99 2.2").text());
    EXPECT_EQ(r.loc->exp.coll_ignored, nullptr);
    EXPECT_EQ(r.loc->exp.coll_equiv_class_map, nullptr);
    EXPECT_EQ(r.loc->coll_info.elem_candidate, nullptr);
    // Characters of one row are no class, but rows alike without characters make the lists.
    coll_spec plain = bytes_spec("a", "99.99 2.2 2.2");
    plain.map.push_back({"b", 1});
    coll_record shared(every_byte(), plain.text());
    EXPECT_TRUE(ignored(shared).empty() && shared.loc->exp.coll_ignored);
    EXPECT_EQ(equivalents(shared), "a=b ");
    for (const int flag : {1, 2}) {
        coll_spec spec = sample();
        spec.codeset_order = flag;
        coll_record ordered(every_byte(), spec.text());
        EXPECT_EQ(ordered.loc->exp.coll_ignored != nullptr, flag == 2);
        EXPECT_EQ(ordered.loc->exp.codeset_order, 1);
    }
}

TEST(CollationSection, RefusesReferencesOutsideTheTables) {
    void (*const damages[])(coll_spec &) = {
        [](coll_spec &s) { s.map.back().item = 11; }, [](coll_spec &s) { s.elements[0].row = 11; },
        [](coll_spec &s) { s.rows[3][1] = coll_expansion | 2; },
        [](coll_spec &s) { s.passes.assign(9, 1); }, [](coll_spec &s) { s.rows.clear(); },
        [](coll_spec &s) { s.expansions[0] = u"f"; }, // a circle, and one of two
        [](coll_spec &s) {
            s.expansions[0] = u"bh", s.expansions[1] = u"af", s.rows[8][1] = coll_expansion | 1;
        },
        // Weights that part two strings in one direction only.
        [](coll_spec &s) { s.rows[10][1] = 4; },                // j without the tie-break of i
        [](coll_spec &s) { s.rows[3][0] = 2 | coll_code_tie; }, // c against a and the element
        [](coll_spec &s) { s.rows[0][0] = 0, s.rows[3][0] = coll_code_tie; }, // c against the rest
    };
    for (size_t i = 0; i < std::size(damages); ++i) {
        SCOPED_TRACE(i);
        coll_spec spec = sample();
        damages[i](spec);
        coll_record r(every_byte(), spec.text());
        EXPECT_EQ(r.result, -1);
        EXPECT_EQ(r.error(), KO_EOBJECT);
        EXPECT_EQ(r.loc->coll_info.collate, collate_none);
    }
    coll_record keyword(every_byte(), "as specified\n");
    EXPECT_EQ(keyword.result, -1);
    EXPECT_EQ(keyword.error(), 0);
}

TEST(CollationSection, LoadsWeightsThatAreNoOrderOfKeys) {
    // A row, its weight, the order by codes, two texts, and the orders of them and of their keys.
    static const std::tuple<size_t, unsigned, int, const char *, const char *, int, int> rows[] = {
        {2,  0,                  0, "b",  "a", -1, 0 }, // the key of 2, which a has
        {0,  0,                  0, "z",  "a", -1, 0 },
        {2,  256,                0, "b",  "a", 1,  -1}, // its digit is the low byte
        {7,  coll_expansion | 1, 0, "ga", "",  0,  0 }, // a null character ends the string
        {10, 5,                  1, "i",  "j", -1, -1}, // only stored
        {10, 5,                  2, "i",  "j", -1, -1},
    };
    for (const auto &[row, weight, codeset_order, a, b, order, key_order] : rows) {
        SCOPED_TRACE(a + std::to_string(weight));
        coll_spec spec = bytes_spec("abcdefghij", "99 2 3 3 1 1 x x 1 5 5", "bc a", "ij2 gggggg4");
        spec.rows[row][0] = weight;
        spec.codeset_order = codeset_order;
        spec.expansions[1] = {u'\0'};
        coll_record r(every_byte(), spec.text());
        ASSERT_EQ(r.result, 0);
        for (const bool tables : {true, false}) {
            r.use_tables(tables);
            EXPECT_EQ(im_mbscoll(r.handle, mb(a), mb(b)), order) << tables;
            EXPECT_EQ(im_mbscoll(r.handle, mb(b), mb(a)), -order) << tables;
            const int keys = sort_key(r.handle, a).compare(sort_key(r.handle, b));
            EXPECT_EQ(keys < 0 ? -1 : keys > 0, key_order) << tables;
        }
    }
}

TEST(CollationSection, BoundsItsCounts) {
    const std::string head = "as_specified\n" + table_text(byte_map("ab"));
    for (const char *counts :
         {"0 2147483647 1 0 0 9\n0001 0001", "0 0 1 2147483647 0 9\n0001 10000 0000",
          "0 0 1 0 2147483647 9\n0001 1 00000061", "0 -1 1 0 0 9\n0001 0001",
          "0 2 -1 0 0 9\n0001 0001", "0 2 1 -5 0 9\n0001 0001", "0 2 1 0 -7 9\n0001 0001"}) {
        coll_record r(every_byte(), head + counts);
        EXPECT_EQ(r.result, -1) << counts;
        EXPECT_EQ(r.error(), KO_EOBJECT) << counts;
    }
    coll_record r(every_byte(), head + "0 2 0 0 0 99999\n#");
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.loc->coll_info.num_weights, 0xFFFF);
    EXPECT_EQ(im_mbscoll(r.handle, mb("a"), mb("b")), 0) << "no pass tells them apart";
    EXPECT_EQ(sort_key(r.handle, "ab"), "");
    EXPECT_EQ(ignored(r).size(), 255u) << "in every pass of none";
}

// Two-byte characters that expand into each other, in chains of some length; the last one is
// ignored.
static coll_spec chains(unsigned count, unsigned length) {
    coll_spec spec;
    spec.passes.assign(5, coll_forward);
    spec.rows.assign(count + 1, std::vector<unsigned>(5, 1));
    for (unsigned i = 0; i < count; ++i) {
        const unsigned ch = 0x8100 + i;
        const std::string bytes = {char(ch >> 8), char(ch)};
        spec.map.push_back({bytes, uint16_t(i + 1)});
        const bool last = !((i + 1) % length);
        spec.expansions.push_back({char16_t(last ? ch : ch + 1)});
        if (!last) spec.rows[i + 1].assign(5, coll_expansion | i);
    }
    return spec;
}

TEST(CollationSection, BoundsWhatACharacterCosts) {
    for (const unsigned length : {256u, 257u, 0x4000u}) { // 256 expand 255 characters at most
        const clock_t start = clock();
        coll_record r(every_byte(), chains(16383, length).text());
        EXPECT_EQ(r.error(), length > 256 ? KO_EOBJECT : 0) << length;
        EXPECT_EQ(r.result, r.error() ? -1 : 0);
        EXPECT_LT((clock() - start) / CLOCKS_PER_SEC, 4);
    }
    coll_spec elements = sample();
    for (const size_t count : {16384u, 16385u}) {
        elements.elements.resize(count, elements.elements[0]);
        EXPECT_EQ(coll_record(every_byte(), elements.text()).result, count > 16384 ? -1 : 0);
    }
}

TEST(CollationSection, FindsEquivalentsAmongRowsOfOneHash) {
    const coll_spec spec = bytes_spec(
        "PQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwABC",
        "9000 122 126 217 221 529 533 779 783 872 1184 1188 1434 1438 1746 1750 1841 1845 2153 "
        "2157 2403 2407 2719 2808 2812 3058 3062 3370 3374 3465 3469 3777 3781 4027 4031 4343 "
        "4432 4436 4682 4686 4748 122 126 217");
    EXPECT_EQ(equivalents(coll_record(every_byte(), spec.text())), "A=P B=Q C=R ");
}

TEST(CollationSection, FailsAtEveryEarlyEndAndTakesAnyChangedByteWithoutHarm) {
    const std::string whole = sample().text();
    const size_t keyword = whole.find('\n') + 1;
    int loaded = 0;
    each_damage(whole, "09f \n\xB1", [&](const std::string &text) {
        coll_record r(every_byte(), text);
        const size_t end = text.size();
        if (end < whole.size()) { // in the end only white space is missing
            EXPECT_EQ(r.result, end + 1 < whole.size() ? -1 : 0);
            EXPECT_TRUE(!r.result || r.error() == KO_EOBJECT ||
                        (end >= keyword && r.error() == KO_ENOMEM));
        }
        if (r.result) return;
        ++loaded;
        im_mbscoll(r.handle, mb("abfij\xF0ggggggh"), mb("abfgi"));
        r.loc->exp.mbscoll(r.handle, mb("fgij\xF0"), mb("fgi"));
        ko_full_mbsxfrm(r.handle, nullptr, mb("abcdefghij"), 0);
    });
    EXPECT_GT(loaded, 100);
}
