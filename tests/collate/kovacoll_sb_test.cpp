// The byte comparers, in what they do differently from the wide path.
#include "collate/coll_builder.h"

namespace {

using comparer = int (*)(ko_lc_t, const ko_mchar_t *, const ko_mchar_t *);

void check(coll_record &r, comparer entry, const char *text) {
    ASSERT_EQ(r.result, 0);
    ASSERT_EQ(r.loc->exp.mbscoll, entry);
    for (const bool tables : {true, false}) {
        r.use_tables(tables);
        for (const order_row &o : orders(text))
            EXPECT_EQ(entry(r.handle, mb(o.a.c_str()), mb(o.b.c_str())), o.want)
                << o.a << " : " << o.b;
    }
    EXPECT_EQ(entry(r.handle, nullptr, mb("a")), 0);
    EXPECT_EQ(r.error(), KO_ENULL);
}

coll_spec bytes(std::string_view map, const char *weights, int pass = coll_forward) {
    coll_spec spec;
    spec.passes = {pass};
    spec.map = byte_map(map);
    spec.rows = weights_of(weights);
    return spec;
}

} // namespace

TEST(ByteComparers, BreakAForwardTieByTheFollowingBytes) {
    coll_record r(every_byte(), bytes("abxy", "50 2 3 9t 9t").text());
    // Also behind equal bytes; axy is greater by the byte y, though it weighs like x.
    check(r, is_mbscoll_back, "x=y xa=ya xa<yb xb>ya x<ya xb>xa axy>axx a<ab");
    // b weighs less than a, but behind x the smaller byte wins.
    coll_record tied(every_byte(), bytes("abx", "50 3 2 9t").text());
    check(tied, is_mbscoll_back, "xa<xb a>b");
}

TEST(ByteComparers, WalkBackwardFromTheTerminator) {
    // Byte 0 has row 0; z is ignored. The bytes in front of a tie decide it.
    coll_record r(every_byte(), bytes("abcz", "5 2 3t 3t 1", coll_backward).text());
    check(r, is_mbscoll_back, "= =z <a ab>ba azb>bb ac=ab ac<bc bac>aac");
    // When the terminator's weight is ignored, it counts for nothing.
    coll_record ignoring(every_byte(), bytes("ab", "1 2 3", coll_backward).text());
    check(ignoring, is_mbscoll_back, "ab>ba <a");
}

TEST(ByteComparers, ExpandABytesOnce) {
    // s: expands to seven a and two b, of which the b are cut; t: to the low bytes a, b; u: to t,
    // whose weight is taken as a number; v: a low byte of 0 ends the expansion.
    coll_spec spec = bytes("abstuv", "90 10 20 x x1 x2 x3");
    spec.expansions = {u"aaaaaaabb", u"\u4161\u4162", u"t", u"a\u0100b"};
    coll_record r(every_byte(), spec.text());
    check(r, is_mbscoll_exp, "s=aaaaaaa sb=aaaaaaab t=ab ta=aba u<a v=a as<aab");
}

TEST(ByteComparers, BreakTiesOfExpandedAndElementBytes) {
    coll_spec exp = bytes("abs", "90 7t 7t x");
    exp.expansions = {u"b"};
    coll_record r(every_byte(), exp.text());
    check(r, is_mbscoll_exp, "a<b s=b s>a");
    coll_spec elem = bytes("abch", "90 7t 8 9 10 7t 7t");
    elem.elements.assign({
        {u"ch",      5},
        {u"b\u0168", 5},
        {u"\u4161h", 5},
        {u"chh",     1}
    });
    coll_record e(every_byte(), elem.text());
    // a against the element's first byte
    check(e, is_mbscoll_elem, "a<ch ch>a chh=chh chb>ab bh=bh cc>ch");
}

TEST(ByteComparers, WeighAByteWithoutARowAsRowZero) {
    for (const unsigned kind : {0u, 1u, 2u}) {
        coll_spec spec = bytes("abc", "5 2 8 9");
        if (kind == 1) spec.expansions = {u"ab"};
        if (kind == 2) spec.elements.push_back({u"cc", 3});
        coll_record r(every_byte(), spec.text());
        constexpr comparer entries[] = {is_mbscoll_back, is_mbscoll_exp, is_mbscoll_elem};
        check(r, entries[kind], "a<\xF0 \xF0<b \xF0=\xF1");
    }
    // Row 0 may be an expansion too.
    coll_spec spec = bytes("ab", "x 2 8");
    spec.expansions = {u"b"};
    coll_record r(every_byte(), spec.text());
    check(r, is_mbscoll_exp, "\xF0>a \xF0=b");
}

TEST(ByteComparers, ServeForwardPassesAndOneFeature) {
    for (const unsigned kind :
         {0u, 1u, 2u, 3u, 4u, 5u, 6u}) { // 1 expansions, 2 elements, 4 backward
        SCOPED_TRACE(kind);
        coll_spec spec = bytes("ab", "5 2 8", kind & 4 ? coll_backward : coll_forward);
        if (kind & 1) spec.expansions = {u"ab"};
        if (kind & 2) spec.elements.push_back({u"ab", 1});
        coll_record r(every_byte(), spec.text());
        constexpr comparer entries[] = {is_mbscoll_back, is_mbscoll_exp,  is_mbscoll_elem,
                                        im_mbscoll,      is_mbscoll_back, im_mbscoll,
                                        im_mbscoll};
        EXPECT_EQ(r.loc->exp.mbscoll, entries[kind]);
        EXPECT_EQ(r.loc->exp.mbsxfrm, ko_full_mbsxfrm);
    }
}
