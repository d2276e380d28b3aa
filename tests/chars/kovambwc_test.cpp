// Conversion between bytes and wide characters, lengths, terminators.
#include "support/answer.h"
#include "support/char_records.h"

using std::string_view_literals::operator""sv;

namespace {

// What the conversions must give, one character at a time by the tree.
struct expected {
    answer said;
    std::vector<ko_wchar_t> wide;
};

expected slow_mbstowcs(ko_lc_t tree, const ko_mchar_t *mbs, int n) {
    std::vector<ko_wchar_t> wide;
    const auto said = [&wide](int result, int error) {
        return expected{answer(result, error), wide};
    };
    for (int chars = 0; chars < n; ++chars) {
        const auto [taken, error] =
            answered(tree, ko_full_mbtowc(tree, &wide.emplace_back(), mbs, 4));
        if (taken < 0) return wide.pop_back(), said(-1, KO_EILSEQ);
        if (!wide.back()) return said(chars, 0);
        mbs += taken;
    }
    return said(n, 0);
}

} // namespace

TEST(MbWc, OneCharacterIsMeasuredAndRead) {
    static const std::tuple<shape, std::string_view, int, int, int, int> rows[] = {
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
    for (const auto &[s, bytes, n, result, wide, error] : rows)
        for (const bool flat : {false, true}) {
            SCOPED_TRACE(::testing::PrintToString(bytes) + (flat ? " flat" : " tree"));
            char_record r(s, flat && bytes.size() < 3);
            if (bytes.size() > 2) {
                EXPECT_EQ(insert(r.loc.ctype, bytes), 0);
                r.finish(flat);
            }
            ko_wchar_t wc = 0x7777;
            const ko_mchar_t *const at = mb(bytes.data());
            const answer want(result, error);
            EXPECT_EQ(answered(r, ko_full_mbtowc(r, &wc, at, n)), want);
            EXPECT_EQ(wc, wide < 0 ? 0x7777 : wide);
            EXPECT_EQ(answered(r, ko_full_mblen(r, at, n)), want);
            EXPECT_EQ(answered(r, ko_full_mbtowc(r, nullptr, at, n)), want);
            EXPECT_EQ(ko_full_mblen(r, nullptr, n), 0);
        }
}

TEST(MbWc, WideCharactersAreWrittenAsTheTableSpellsThem) {
    // The bytes and the number of the table's one character, its shortest length, a wide character,
    // the result, and the bytes written, also before a failure.
    static const std::tuple<const char *, unsigned, unsigned, int, unsigned, int, std::string_view>
        rows[] = {
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
    for (const auto &[why, bytes, has, min, wide, result, written] : rows)
        for (const bool flat : {false, true}) {
            SCOPED_TRACE(std::string(why) + (flat ? " flat" : " tree"));
            char_record r;
            r.add(has, bytes);
            static_cast<mb_decode *>(r.loc.ctype)->min_char_len = min;
            r.loc.coll = r.loc.ctype;
            r.finish(flat);
            r.loc.exp.single_byte = 0;
            for (const auto write : {ko_full_wctomb, sl_wctomb}) {
                ko_mchar_t out[5] = "****";
                EXPECT_EQ(answered(r, write(r, out, ko_wchar_t(wide))),
                          answer(result, result < 0 ? KO_EILSEQ : KO_OK));
                std::string want(written);
                EXPECT_EQ(std::string(out, out + 4), want.append(4 - want.size(), '*'));
            }
            EXPECT_EQ(ko_wclen(r, ko_wchar_t(wide)), result);
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
            flat.clear(), tree.clear();
            const expected want = slow_mbstowcs(tree, mbs, n);
            auto *wide = out.room<ko_wchar_t>(want.wide.size());
            for (ko_lc_t loc : {ko_lc_t(flat), ko_lc_t(tree)}) {
                ASSERT_EQ(answered(loc, (bytes ? is_mbstowcs : im_mbstowcs)(loc, wide, mbs, n)),
                          want.said);
                ASSERT_TRUE(std::equal(want.wide.begin(), want.wide.end(), wide));
            }
            const int chars = int(want.said.result), whole = int(used.size());
            if (chars < 0 || want.wide.empty() || want.wide.back()) continue;
            const bool walk_limit = s != shape::latin1 && s != shape::gaps;
            flat.loc.exp.single_byte = !walk_limit;
            for (ko_lc_t loc : {ko_lc_t(flat), ko_lc_t(tree)}) {
                ASSERT_EQ(im_mbslen(loc, mbs), chars);
                ASSERT_EQ(ko_mbsbytes(loc, mbs), whole);
            }
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
    const auto text = wcs(u"a\x1E4z");
    ko_mchar_t out[6] = "*****";
    EXPECT_EQ(answered(r, is_wcstombs(r, out, text.data(), 5)), answer(-1, KO_EILSEQ));
    EXPECT_EQ(out[0], 'a');
    memcpy(out, "*****", 5);
    EXPECT_EQ(ko_full_wcstombs(r, out, text.data(), 5), 4); // one byte written, two taken
    EXPECT_EQ(std::string(out, out + 5), std::string("a\xE4*z\0", 5));
    EXPECT_EQ(answered(r, ko_full_wcstombs(r, out, text.data(), 2)), answer(1, 0));
    EXPECT_EQ(ko_wclen(r, 0x1234), 1);
}

TEST(MbWc, NothingIsConvertedIntoNoRoom) {
    char_record r(shape::euc);
    ko_wchar_t wide[] = {7, 7};
    EXPECT_EQ(im_mbstowcs(r, wide, mb("a"), 0), 0);
    EXPECT_EQ(is_mbstowcs(r, wide, mb("a"), -1), 0);
    EXPECT_EQ(wide[0], 7);
    ko_mchar_t out[8] = "*";
    for (const int room : {0, -1})
        EXPECT_EQ(answered(r, ko_full_wcstombs(r, out, wide, room)), answer(0, 0));
    EXPECT_EQ(out[0], '*');
    for (const bool flat : {true, false}) {
        char_record either(shape::euc, flat);
        EXPECT_EQ(answered(either, ko_full_wcstombs(either, out, wcs(u"\xA3A4\xB000").data(), 8)),
                  answer(-1, KO_EILSEQ));
    }
    EXPECT_EQ(ko_wcsbytes(wcs(u"").data()), 2);
    EXPECT_EQ(ko_wcsbytes(wcs(u"abc").data()), 8);
}

TEST(MbWc, InvalidStringsHaveNoLength) {
    for (const bool flat : {false, true}) {
        char_record r(shape::euc, flat);
        EXPECT_EQ(im_mbslen(r, mb("ab\xA3\xA4\xFF")), -1);
        r.clear();
        EXPECT_EQ(answered(r, ko_mbsbytes(r, mb("ab\xA3"))), answer(0, KO_EILSEQ));
    }
    char_record longer; // three bytes are too many for a count
    add_ascii(longer);
    insert(longer.loc.ctype, "\x90\x91\x92");
    longer.finish(true);
    EXPECT_EQ(im_mbslen(longer, mb("ab")), 2);
    EXPECT_EQ(ko_full_mblen(longer, mb("\x90\x91\x92"), 3), 3);
    EXPECT_EQ(answered(longer, im_mbslen(longer, mb("ab\x90\x91\x92"))), answer(-1, KO_EINVAL));
}

TEST(MbWc, TerminatorsHaveTheShortestLength) {
    char_record two(shape::two_byte), one(shape::euc);
    ko_mchar_t out[4] = "***";
    EXPECT_EQ(ko_mbsterm(two, out), 2);
    EXPECT_EQ(std::string(out, out + 3), "\0\0*"sv);
    EXPECT_EQ(ko_ismbsterm(two, mb("\0a")), 0);
    EXPECT_EQ(ko_ismbsterm(two, out), 2);
    EXPECT_EQ(ko_ismbsterm(one, mb("\0a")), 1);
    const ko_mchar_t *text = mb("\xA3\xA4z\xFF");
    EXPECT_EQ(ko_full_mbsnext(one, text), text + 2);
    EXPECT_EQ(ko_full_mbsnext(one, text + 2), text + 3);
    EXPECT_EQ(ko_full_mbsnext(one, text + 4), text + 5); // the terminator is a character here
    EXPECT_EQ(one.error(), 0);
    EXPECT_EQ(answered(one, ko_full_mbsnext(one, text + 3)), answer(0, KO_EILSEQ));
}

TEST(MbWc, DamagedLengthsAndMissingTablesAreHarmless) {
    for (const int min : {0, -5, 9, 2000000000})
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
    kovaloc bare = {};
    ko_mchar_t out[16];
    ko_wchar_t wide[4];
    EXPECT_EQ(im_mbstowcs(&bare, wide, mb("ab"), 3), -1);
    EXPECT_EQ(im_towupper(&bare, 'a'), 'a');
    EXPECT_EQ(im_ismctype(&bare, mb("a"), 1), 0);
    EXPECT_EQ(ko_full_wctomb(&bare, out, 'a'), -1);
    EXPECT_EQ(bare.exp.gen.ko_lerrno, KO_EILSEQ);
}
