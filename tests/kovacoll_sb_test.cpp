// The byte comparers, in what they do differently from the wide path.
#include "coll_builder.h"

namespace {

constexpr unsigned tie = coll_code_tie, expands = coll_expansion;
using comparer = int (*)(ko_lc_t, const ko_mchar_t *, const ko_mchar_t *);

struct order_row {
    const char *a, *b;
    int want;
};

void check(coll_record &r, comparer entry, const std::vector<order_row> &rows) {
    ASSERT_EQ(r.result, 0);
    ASSERT_EQ(r.loc->exp.mbscoll, entry);
    for (const bool tables : {true, false}) {
        r.use_tables(tables);
        for (const order_row &o : rows)
            EXPECT_EQ(entry(r.handle, mb(o.a), mb(o.b)), o.want) << o.a << " : " << o.b;
    }
    EXPECT_EQ(entry(r.handle, nullptr, mb("a")), 0);
    EXPECT_EQ(r.error(), KO_ENULL);
}

coll_spec bytes(std::string_view map, std::vector<std::vector<unsigned>> weights,
                std::vector<int> passes = {coll_forward}) {
    coll_spec spec;
    spec.passes = std::move(passes);
    spec.map = byte_map(map);
    spec.rows = std::move(weights);
    return spec;
}

} // namespace

TEST(ByteComparers, BreakAForwardTieByTheFollowingBytes) {
    coll_record r(every_byte(), bytes("abxy", {{50}, {2}, {3}, {9 | tie}, {9 | tie}}).text());
    check(r, is_mbscoll_back,
          {
              {"x",   "y",   0 },
              {"xa",  "ya",  0 },
              {"xa",  "yb",  -1},
              {"xb",  "ya",  1 },
              {"x",   "ya",  -1},
              {"xb",  "xa",  1 }, // also behind equal bytes
              {"axy", "axx", 1 }, // by the byte y, though it weighs like x
              {"a",   "ab",  -1},
    });
}

TEST(ByteComparers, TieOfCommonBytesComesBeforeTheirSuccessorsWeights) {
    // b weighs less than a, but behind x the smaller byte wins.
    coll_record r(every_byte(), bytes("abx", {{50}, {3}, {2}, {9 | tie}}).text());
    check(r, is_mbscoll_back,
          {
              {"xa", "xb", -1},
              {"a",  "b",  1 },
    });
}

TEST(ByteComparers, WalkBackwardFromTheTerminator) {
    // Byte 0 has row 0; z is ignored.
    coll_record r(every_byte(),
                  bytes("abcz", {{5}, {2}, {3}, {3 | tie}, {1}}, {coll_backward}).text());
    check(r, is_mbscoll_back,
          {
              {"",    "",    0 },
              {"",    "z",   0 },
              {"",    "a",   -1},
              {"ab",  "ba",  1 },
              {"azb", "bb",  -1},
              {"ac",  "ab",  0 }, // the bytes in front of the tie are equal
              {"ac",  "bc",  -1}, // a against b in front of c
              {"bac", "aac", 1 },
    });
    // When the terminator's weight is ignored, it counts for nothing.
    coll_record ignoring(every_byte(), bytes("ab", {{1}, {2}, {3}}, {coll_backward}).text());
    check(ignoring, is_mbscoll_back,
          {
              {"ab", "ba", 1 },
              {"",   "a",  -1}
    });
}

TEST(ByteComparers, ExpandABytesOnce) {
    // s: expands to seven a and two b, of which the b are cut; t: to the low bytes a, b; u: to t.
    coll_spec spec =
        bytes("abstuv", {{90}, {10}, {20}, {expands}, {expands | 1}, {expands | 2}, {expands | 3}});
    spec.expansions = {u"aaaaaaabb", u"\u4161\u4162", u"t", u"a\u0100b"};
    coll_record r(every_byte(), spec.text());
    check(r, is_mbscoll_exp,
          {
              {"s",  "aaaaaaa",  0 },
              {"sb", "aaaaaaab", 0 },
              {"t",  "ab",       0 },
              {"ta", "aba",      0 },
              {"u",  "a",        -1}, // t's weight as a number
              {"v",  "a",        0 }, // a low byte of 0 ends the expansion
              {"as", "aab",      -1},
    });
}

TEST(ByteComparers, BreakTiesOfExpandedAndElementBytes) {
    coll_spec exp = bytes("abs", {{90}, {7 | tie}, {7 | tie}, {expands}});
    exp.expansions = {u"b"};
    coll_record r(every_byte(), exp.text());
    check(r, is_mbscoll_exp,
          {
              {"a", "b", -1},
              {"s", "b", 0 },
              {"s", "a", 1 }
    });

    coll_spec elem = bytes("abch", {{90}, {7 | tie}, {8}, {9}, {10}, {7 | tie}});
    elem.rows.push_back({7 | tie});
    elem.elements = {
        {u"ch",      5},
        {u"b\u0168", 5},
        {u"\u4161h", 5},
        {u"chh",     1}
    };
    coll_record e(every_byte(), elem.text());
    check(e, is_mbscoll_elem,
          {
              {"a",   "ch",  -1}, // a against the element's first byte
              {"ch",  "a",   1 },
              {"chh", "chh", 0 },
              {"chb", "ab",  1 },
              {"bh",  "bh",  0 },
              {"cc",  "ch",  1 },
    });
}

TEST(ByteComparers, WeighAByteWithoutARowAsRowZero) {
    for (const unsigned kind : {0u, 1u, 2u}) {
        coll_spec spec = bytes("abc", {{5}, {2}, {8}, {9}});
        if (kind == 1) spec.expansions = {u"ab"};
        if (kind == 2)
            spec.elements = {
                {u"cc", 3}
            };
        coll_record r(every_byte(), spec.text());
        constexpr comparer entries[] = {is_mbscoll_back, is_mbscoll_exp, is_mbscoll_elem};
        check(r, entries[kind],
              {
                  {"a",    "\xF0", -1},
                  {"\xF0", "b",    -1},
                  {"\xF0", "\xF1", 0 }
        });
    }
    // Row 0 may be an expansion too.
    coll_spec spec = bytes("ab", {{expands}, {2}, {8}});
    spec.expansions = {u"b"};
    coll_record r(every_byte(), spec.text());
    check(r, is_mbscoll_exp,
          {
              {"\xF0", "a", 1},
              {"\xF0", "b", 0}
    });
}
