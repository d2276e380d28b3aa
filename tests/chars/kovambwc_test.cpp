// Conversion between bytes and wide characters, lengths, terminators.
#include "support/char_records.h"

using std::string_view_literals::operator""sv;

namespace {

// What the conversions must give, one character at a time by the tree.
struct expected {
    int result, error;
    std::vector<ko_wchar_t> wide;
};

expected slow_mbstowcs(ko_lc_t tree, const ko_mchar_t *mbs, int n) {
    expected want = {0, 0, {}};
    *ko_ext_errno(tree) = 0;
    while (want.result < n) {
        ko_wchar_t wc = 0;
        const int taken = ko_full_mbtowc(tree, &wc, mbs, 4);
        if (taken < 0) return {-1, KO_EILSEQ, want.wide};
        want.wide.push_back(wc);
        if (!wc) break;
        mbs += taken;
        ++want.result;
    }
    return want;
}

} // namespace

TEST(MbWc, OneCharacterIsMeasuredAndRead) {
    static const struct {
        shape s;
        std::string_view bytes;
        int n, result, wide, error;
    } rows[] = {
        {shape::euc,      "a",                1, 1,  'a',    0        },
        {shape::euc,      "\xA3\xA4",         2, 2,  0xA3A4, 0        },
        {shape::euc,      "\xA3\xA4",         1, -1, -1,     KO_EINVAL},
        {shape::euc,      "\xA3\x20",         2, -1, -1,     KO_EILSEQ},
        {shape::euc,      "\xFF\x20",         1, -1, -1,     KO_EILSEQ},
        {shape::euc,      "a",                0, -1, -1,     KO_EINVAL},
        {shape::euc,      "\0"sv,             1, 0,  0,      0        },
        {shape::two_byte, "\0A"sv,            2, 2,  'A',    0        },
        {shape::two_byte, "\0\0"sv,           2, 0,  0,      0        },
        {shape::two_byte, "\0A"sv,            1, -1, -1,     KO_EINVAL},
        {shape::latin1,   "\xE4",             1, 1,  0xE4,   0        },
        {shape::gaps,     "\xE5",             1, -1, -1,     KO_EILSEQ},
        {shape::gaps,     "\x90\0\x92\x93"sv, 4, 4,  0x9293, 0        }, // the last two bytes count
        {shape::gaps,     "\x90\0\x92\x93"sv, 3, -1, -1,     KO_EINVAL},
        {shape::gaps,     "\x91\x94\x95",     3, 3,  0x9495, 0        },
    };
    for (auto &row : rows) {
        for (const bool flat : {false, true}) {
            SCOPED_TRACE(::testing::PrintToString(row.bytes) + (flat ? " flat" : " tree"));
            char_record r(row.s, flat && row.bytes.size() < 3);
            if (row.bytes.size() > 2) {
                EXPECT_EQ(insert(r.loc.ctype, row.bytes), 0);
                r.finish(flat);
            }
            ko_wchar_t wc = 0x7777;
            const auto *at = reinterpret_cast<const ko_mchar_t *>(row.bytes.data());
            EXPECT_EQ(ko_full_mbtowc(r, &wc, at, row.n), row.result);
            EXPECT_EQ(wc, row.wide < 0 ? 0x7777 : row.wide);
            EXPECT_EQ(r.error(), row.error);
            r.clear();
            EXPECT_EQ(ko_full_mblen(r, at, row.n), row.result);
            EXPECT_EQ(ko_full_mbtowc(r, nullptr, at, row.n), row.result);
            EXPECT_EQ(r.error(), row.error);
            EXPECT_EQ(ko_full_mblen(r, nullptr, row.n), 0);
        }
    }
}

TEST(MbWc, WideCharactersAreWrittenAsTheTableSpellsThem) {
    static const struct {
        const char *why;
        unsigned bytes, has; // the one character of the table
        int min;
        unsigned wide;
        int result;
        std::string_view out; // bytes written, also before a failure
    } rows[] = {
        {"one byte",           1, 0x41,   1, 0x41,   1,  "\x41"          },
        {"two bytes",          2, 0x8140, 1, 0x8140, 2,  "\x81\x40"      },
        {"padded to two",      2, 0x41,   2, 0x41,   2,  "\0\x41"sv      },
        {"padded to three",    3, 0x8140, 3, 0x8140, 3,  "\0\x81\x40"sv  },
        {"padded to four",     4, 0x8140, 4, 0x8140, 4,  "\0\0\x81\x40"sv},
        {"no such last byte",  2, 0x8140, 1, 0x8141, -1, "\x81"          },
        {"no such first byte", 2, 0x8140, 1, 0x8240, -1, ""              },
        {"no pairs at all",    1, 0x41,   1, 0x4100, -1, ""              },
        {"shortest length 0",  1, 0x41,   0, 0x41,   -1, ""              },
        {"shortest length 5",  1, 0x41,   5, 0x41,   -1, ""              },
    };
    for (auto &row : rows) {
        for (const bool flat : {false, true}) {
            SCOPED_TRACE(std::string(row.why) + (flat ? " flat" : " tree"));
            char_record r;
            r.add(row.has, row.bytes);
            static_cast<mb_decode *>(r.loc.ctype)->min_char_len = row.min;
            r.loc.coll = r.loc.ctype;
            r.finish(flat);
            r.loc.exp.single_byte = 0;
            for (const auto write : {ko_full_wctomb, sl_wctomb}) {
                r.clear();
                ko_mchar_t out[5] = "****";
                EXPECT_EQ(write(r, out, ko_wchar_t(row.wide)), row.result);
                std::string want(row.out);
                EXPECT_EQ(std::string(out, out + 4), want.append(4 - want.size(), '*'));
                EXPECT_EQ(r.error(), row.result < 0 ? KO_EILSEQ : KO_OK);
            }
            EXPECT_EQ(ko_wclen(r, ko_wchar_t(row.wide)), row.result);
        }
    }
}

// Strings of every shape, length, place and fault agree with the walk of single characters, and
// nothing is read or written beyond them.
TEST(MbWc, StringsConvertAsTheirCharactersDo) {
    std::mt19937 random(3);
    guarded_block in, out, back;
    for (const shape s : all_shapes) {
        char_records records(s);
        auto &[flat, tree] = records;
        for (int round = 0; round < 1500; ++round) {
            const unsigned bad = round % 3 ? 0 : 40;
            const std::string text =
                random_text(random, s, random() % (round < 700 ? 70 : 700), bad);
            const size_t ends = static_cast<mb_decode *>(tree.loc.ctype)->min_char_len == 2 ? 2 : 1;
            const std::string_view used = std::string_view(text).substr(0, text.size() - 2 + ends);
            const ko_mchar_t *mbs = in.put(used, random() % 3 ? 0 : random() % 5000);
            const int n = round % 4 ? int(text.size()) : int(random() % 90);
            const bool bytes = s == shape::latin1;
            const expected want = slow_mbstowcs(tree, mbs, n);
            auto *wide = out.room<ko_wchar_t>(want.wide.size());
            for (ko_lc_t loc : {ko_lc_t(flat), ko_lc_t(tree)}) {
                *ko_ext_errno(loc) = 0;
                ASSERT_EQ((bytes ? is_mbstowcs : im_mbstowcs)(loc, wide, mbs, n), want.result);
                ASSERT_EQ(*ko_ext_errno(loc), want.error);
                ASSERT_TRUE(std::equal(want.wide.begin(), want.wide.end(), wide));
            }
            if (want.result < 0 || want.wide.empty() || want.wide.back()) continue;
            const int chars = want.result, whole = int(used.size());
            const bool walk_limit = s != shape::latin1 && s != shape::gaps;
            flat.loc.exp.single_byte = !walk_limit;
            ASSERT_EQ(im_mbslen(flat, mbs), chars);
            ASSERT_EQ(ko_mbsbytes(flat, mbs), whole);
            ASSERT_EQ(im_mbslen(tree, mbs), chars);
            ASSERT_EQ(ko_mbsbytes(tree, mbs), whole);
            // Back again, whole and cut off.
            const int room = random() % 2 ? whole : int(random() % used.size()) + 1;
            std::string expect(used);
            int fits = 0;
            for (int k; fits < whole - int(ends); fits += k) {
                k = ko_full_mblen(tree, mbs + fits, 4);
                if (fits + k > room) break;
            }
            const bool ended = fits + int(ends) <= room && fits == whole - int(ends);
            const int written = ended ? whole : fits;
            auto *dst = back.room<ko_mchar_t>(size_t(written));
            for (ko_lc_t loc : {ko_lc_t(flat), ko_lc_t(tree)}) {
                ASSERT_EQ(ko_full_wcstombs(loc, dst, wide, room), fits);
                ASSERT_EQ(memcmp(dst, expect.data(), size_t(written)), 0);
            }
            if (!bytes) continue;
            ASSERT_EQ(is_wcstombs(flat, dst, wide, room), fits);
            ASSERT_EQ(memcmp(dst, expect.data(), size_t(written)), 0);
            if (!fits) continue;
            // A value that is no byte, anywhere.
            wide[random() % unsigned(fits)] = ko_wchar_t(0x100 | random());
            ASSERT_EQ(is_wcstombs(flat, dst, wide, room), -1);
        }
    }
}

TEST(MbWc, SingleByteSetsTreatLargeValuesAsTold) {
    char_record r(shape::latin1);
    const auto text = wcs(u"a\x1E4"
                          u"b");
    ko_mchar_t out[6] = "*****";
    EXPECT_EQ(is_wcstombs(r, out, text.data(), 5), -1);
    EXPECT_EQ(r.error(), KO_EILSEQ);
    EXPECT_EQ(out[0], 'a');
    r.clear();
    memcpy(out, "*****", 5);
    EXPECT_EQ(ko_full_wcstombs(r, out, text.data(), 5), 4); // one byte written, two taken
    EXPECT_EQ(std::string(out, out + 5), std::string("a\xE4*b\0", 5));
    EXPECT_EQ(ko_full_wcstombs(r, out, text.data(), 2), 1);
    EXPECT_EQ(r.error(), 0);
    EXPECT_EQ(ko_wclen(r, 0x1234), 1);
}

TEST(MbWc, NothingIsConvertedIntoNoRoom) {
    char_record r(shape::euc);
    ko_wchar_t wide[] = {7, 7};
    EXPECT_EQ(im_mbstowcs(r, wide, mb("a"), 0), 0);
    EXPECT_EQ(is_mbstowcs(r, wide, mb("a"), -1), 0);
    EXPECT_EQ(wide[0], 7);
    ko_mchar_t out[8] = "*";
    EXPECT_EQ(ko_full_wcstombs(r, out, wide, -1), 0);
    EXPECT_EQ(ko_full_wcstombs(r, out, wide, 0), 0);
    EXPECT_EQ(out[0], '*');
    EXPECT_EQ(r.error(), 0);
    EXPECT_EQ(ko_full_wcstombs(r, out, wcs(u"\xA3A4\xB000").data(), 8), -1);
    EXPECT_EQ(r.error(), KO_EILSEQ);
    EXPECT_EQ(ko_wcsbytes(wcs(u"").data()), 2);
    EXPECT_EQ(ko_wcsbytes(wcs(u"abc").data()), 8);
}

TEST(MbWc, InvalidStringsHaveNoLength) {
    for (const bool flat : {false, true}) {
        char_record r(shape::euc, flat);
        EXPECT_EQ(im_mbslen(r, mb("ab\xA3\xA4\xFF")), -1);
        EXPECT_EQ(ko_mbsbytes(r, mb("ab\xA3")), 0);
        EXPECT_EQ(r.error(), KO_EILSEQ);
    }
    char_record longer; // three bytes are too many for a count
    add_ascii(longer);
    insert(longer.loc.ctype, "\x90\x91\x92");
    longer.finish(true);
    EXPECT_EQ(im_mbslen(longer, mb("ab")), 2);
    EXPECT_EQ(ko_full_mblen(longer, mb("\x90\x91\x92"), 3), 3);
    EXPECT_EQ(im_mbslen(longer, mb("ab\x90\x91\x92")), -1);
    EXPECT_EQ(longer.error(), KO_EINVAL);
}

TEST(MbWc, TerminatorsHaveTheShortestLength) {
    char_record two(shape::two_byte), one(shape::euc);
    ko_mchar_t out[4] = "***";
    EXPECT_EQ(ko_mbsterm(two, out), 2);
    EXPECT_EQ(std::string(out, out + 3), std::string("\0\0*", 3));
    EXPECT_EQ(ko_ismbsterm(two, mb("\0a")), 0);
    EXPECT_EQ(ko_ismbsterm(two, out), 2);
    EXPECT_EQ(ko_ismbsterm(one, mb("\0a")), 1);
    const ko_mchar_t *text = mb("\xA3\xA4"
                                "b\xFF");
    EXPECT_EQ(ko_full_mbsnext(one, text), text + 2);
    EXPECT_EQ(ko_full_mbsnext(one, text + 2), text + 3);
    EXPECT_EQ(ko_full_mbsnext(one, text + 4), text + 5); // the terminator is a character here
    EXPECT_EQ(one.error(), 0);
    EXPECT_EQ(ko_full_mbsnext(one, text + 3), nullptr);
    EXPECT_EQ(one.error(), KO_EILSEQ);
}

TEST(MbWc, DamagedLengthsAndMissingTablesAreHarmless) {
    for (const int min : {0, -5, 9, 2000000000}) {
        for (const bool flat : {false, true}) {
            char_record r(shape::euc, false);
            static_cast<mb_decode *>(r.loc.ctype)->min_char_len = min;
            static_cast<mb_decode *>(r.loc.cconv)->min_char_len = min;
            r.finish(flat);
            ko_mchar_t out[16];
            ko_wchar_t wide[16];
            ko_mbsterm(r, out);
            const ko_mchar_t *text = mb("ab\0\0\0\0");
            EXPECT_EQ(im_mbstowcs(r, wide, text, 8), 2);
            ko_full_wcstombs(r, out, wide, 8);
            ko_tombsupper(r, out, text);
            ko_towcsupper(r, wide, wide);
            im_iswctype(r, 'a', 1);
        }
    }
    kovaloc bare = {};
    ko_mchar_t out[16];
    ko_wchar_t wide[4];
    EXPECT_EQ(im_mbstowcs(&bare, wide, mb("ab"), 3), -1);
    EXPECT_EQ(im_towupper(&bare, 'a'), 'a');
    EXPECT_EQ(im_ismctype(&bare, mb("a"), 1), 0);
    EXPECT_EQ(ko_full_wctomb(&bare, out, 'a'), -1);
    EXPECT_EQ(bare.exp.gen.ko_lerrno, KO_EILSEQ);
}
