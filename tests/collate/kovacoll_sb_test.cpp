// The byte comparers, in what they do differently from the wide path.
#include "collate/coll_builder.h"

namespace {

using comparer = int (*)(ko_lc_t, const ko_mchar_t *, const ko_mchar_t *);

void check(const coll_spec &spec, comparer entry, const char *text) {
    coll_record r(every_byte(), spec.text());
    ASSERT_EQ(r.result, 0);
    ASSERT_EQ(r.loc->exp.mbscoll, entry);
    for (const bool tables : {true, false}) {
        r.use_tables(tables);
        for (const order_row &o : orders(text))
            EXPECT_EQ(entry(r.handle, mb(o.a.c_str()), mb(o.b.c_str())), o.want)
                << o.a << " : " << o.b;
    }
}

} // namespace

TEST(ByteComparers, BreakAForwardTieByTheFollowingBytes) {
    // Also after equal bytes; axy is greater by the byte y, though it weighs like x.
    check(bytes_spec("abxy", "50 2 3 9t 9t"), is_mbscoll_back,
          "x=y xa=ya xa<yb xb>ya x<ya xb>xa axy>axx a<ab");
    // b weighs less than a, but after x the smaller byte wins.
    check(bytes_spec("abx", "50 3 2 9t"), is_mbscoll_back, "xa<xb a>b");
}

TEST(ByteComparers, WalkBackwardFromTheTerminator) {
    // Byte 0 has row 0; z is ignored. The bytes in front of a tie decide it.
    check(bytes_spec("abcz", "5 2 3t 3t 1", "", "", coll_backward), is_mbscoll_back,
          "= =z <a ab>ba azb>bb ac=ab ac<bc bac>aac");
    // When the terminator's weight is ignored, it counts for nothing.
    check(bytes_spec("ab", "1 2 3", "", "", coll_backward), is_mbscoll_back, "ab>ba <a");
}

TEST(ByteComparers, ExpandABytesOnce) {
    // s: expands to seven a and two b, of which the b are cut; t: to the low bytes a, b; u: to t,
    // whose weight is taken as a number; v: a low byte of 0 ends the expansion.
    coll_spec spec = bytes_spec("abstuv", "90 10 20 x x1 x2 x3");
    spec.expansions = {u"aaaaaaabb", u"\u4161\u4162", u"t", u"a\u0100b"};
    check(spec, is_mbscoll_exp, "s=aaaaaaa sb=aaaaaaab t=ab ta=aba u<a v=a as<aab");
}

TEST(ByteComparers, BreakTiesOfExpandedAndElementBytes) {
    check(bytes_spec("abs", "90 7t 7t x", "b"), is_mbscoll_exp, "a<b s=b s>a");
    coll_spec spec = bytes_spec("abch", "90 7t 8 9 10 7t 7t", "", "ch5 b5 h5 chh1");
    spec.elements[1].chars = u"b\u0168", spec.elements[2].chars = u"\u4161h";
    // a against the element's first byte
    check(spec, is_mbscoll_elem, "a<ch ch>a chh=chh chb>ab bh=bh cc>ch");
}

TEST(ByteComparers, WalkElementsForwardInPassesOfAnyType) {
    // The wide path walks from the end where bit 0 of the type is clear.
    for (const int type : {0, int{coll_forward}, 4})
        check(bytes_spec("chs", "90 8 9 10 50", "", "ch4", type), is_mbscoll_elem,
              "ch>cs hch>hcs c<ch sch<chs");
}

TEST(ByteComparers, WeighAByteWithoutARowAsRowZero) {
    const char *const text = "a<\xF0 \xF0<b \xF0=\xF1";
    check(bytes_spec("abc", "5 2 8 9"), is_mbscoll_back, text);
    check(bytes_spec("abc", "5 2 8 9", "ab"), is_mbscoll_exp, text);
    check(bytes_spec("abc", "5 2 8 9", "", "cc3"), is_mbscoll_elem, text);
    check(bytes_spec("ab", "x 2 8", "b"), is_mbscoll_exp, "\xF0>a \xF0=b"); // row 0 expands, too
}

TEST(ByteComparers, ServeForwardPassesAndOneFeature) {
    static const std::tuple<int, const char *, const char *, comparer> rows[] = {
        {coll_forward,  "ab", "ab1", im_mbscoll     },
        {coll_backward, "",   "",    is_mbscoll_back},
        {coll_backward, "ab", "",    im_mbscoll     },
        {coll_backward, "",   "ab1", im_mbscoll     },
    };
    for (const auto &[pass, expansions, elements, entry] : rows) {
        const coll_spec spec = bytes_spec("ab", "5 2 8", expansions, elements, pass);
        coll_record r(every_byte(), spec.text());
        EXPECT_EQ(r.loc->exp.mbscoll, entry) << pass << expansions << elements;
        EXPECT_EQ(r.loc->exp.mbsxfrm, ko_full_mbsxfrm);
    }
}
