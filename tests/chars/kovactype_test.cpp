// Classes and case: of one character, of strings, by tables, pages and trees.
#include "support/answer.h"
#include "support/char_records.h"
#include "support/rows.h"

using std::string_view_literals::operator""sv;

TEST(Ctype, ClassNamesBecomeMasks) {
    char_record r;
    char full_width[] = "full_width", space[] = "space", wild[] = "wild", mine[] = "mine";
    user_bit bits[] = {
        {0,  full_width},
        {2,  space     }, // a locale cannot redefine it
        {5,  mine      }, // carried by no character
        {40, wild      },
        {1,  full_width}
    };
    r.loc.user_bits = bits;
    r.loc.num_user_bits = 5;
    static const char *const names[] = {"upper", "lower", "alpha", "digit",  "space", "cntrl",
                                        "punct", "graph", "print", "xdigit", "blank", "full_width"};
    for (unsigned bit = 0; bit < std::size(names); ++bit)
        EXPECT_EQ(ko_ctype(r, names[bit]), 1u << bit) << names[bit];
    EXPECT_EQ(ko_ctype(r, "alnum"), 0x000Cu);
    EXPECT_EQ(ko_ctype(r, "mine"), 0x10000u);
    for (const char *none : {"wild", "Upper", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(ko_ctype(r, none), 0u);
    EXPECT_EQ(r.error(), 0);
}

// Class, case and error word of every wide value and every two bytes, by pages and by the tree.
TEST(Ctype, PagesAnswerAsTheTreeDoes) {
    for (const shape s : all_shapes) {
        char_records records(s, false);
        for (unsigned v = 0; v < 0x10000; ++v) {
            const auto wc = ko_wchar_t(v);
            const ko_mchar_t text[4] = {ko_mchar_t(v >> 8), ko_mchar_t(v & 0xFF)};
            std::vector<int> answers[2];
            for (char_record *r : {&records.flat, &records.tree}) {
                ko_mchar_t out[8] = {};
                r->clear();
                answers[r == &records.tree] = {im_iswctype(*r, wc, 0x1F),
                                               im_towupper(*r, wc),
                                               im_towlower(*r, wc),
                                               r->error(),
                                               im_ismctype(*r, text, 0x1F),
                                               im_tomupper(*r, out, text),
                                               out[0] << 8 | out[1],
                                               im_tomlower(*r, out, text),
                                               r->error()};
            }
            ASSERT_EQ(answers[0], answers[1]) << "at " << v;
        }
    }
}

TEST(Ctype, OneCharacterChangesCase) {
    // What is mapped, the lengths of both, what becomes of it, and the error. Two bytes become one,
    // what is no character is copied, and a partner may have no bytes.
    for (const auto &w : table("a 257 A 0; A 257 A 0; \xF0\xF0 513 X 0; \xF1 258 \xA1\xA1 0; "
                               "\xA1\xA1 514 \xA1\xA1 0; \xFA 257 \xFA 1; \xF2 511 \xA1 1"))
        for (const bool flat : {false, true}) {
            SCOPED_TRACE(::testing::PrintToString(w[0]));
            char_record r(shape::odd_case, false);
            r.add(0xF2, 1, 0, 0xA1FF);
            r.finish(flat);
            ko_mchar_t out[8] = {};
            EXPECT_EQ(answered(r, im_tomupper(r, out, mb(w[0].c_str()))),
                      answer(whole(w[1]), whole(w[3])));
            EXPECT_EQ(text(out), w[2]);
        }
}

TEST(Ctype, AWideCharacterWithoutPartnerStaysButAStringFails) {
    ko_wchar_t out[8] = {};
    for (const bool flat : {false, true}) {
        char_record r(shape::euc, flat);
        EXPECT_EQ(answered(r, im_towupper(r, '5')), answer('5', 0));
        EXPECT_EQ(answered(r, im_towupper(r, 0xFEFE)), answer(0xFEFE, KO_EILSEQ));
        EXPECT_EQ(answered(r, ko_towcsupper(r, out, wcs(u"ab\xFEFE").data())),
                  answer(-1, KO_EILSEQ));
        EXPECT_EQ(out[1], 'B');
        EXPECT_EQ(ko_towcslower(r, out, wcs(u"aB\xA3A4").data()), 0);
        EXPECT_EQ(wide(out), u"ab\xA3A5");
    }
    char_record bytes(shape::latin1); // values beyond the byte table stay as they are
    EXPECT_EQ(ko_towcsupper(bytes, out, wcs(u"a\x1E4\xE4").data()), 0);
    EXPECT_EQ(wide(out), u"A\x1E4\xC4");
}

// What mapping a string must give, one character at a time by the tree.
static std::string slow_map(char_record &tree, const ko_mchar_t *mbs, bool upper, int *result) {
    std::string want;
    for (int total = 0;;) {
        if (ko_ismbsterm(tree, mbs)) {
            *result = total;
            return want;
        }
        ko_mchar_t out[8];
        tree.clear();
        const int lengths = (upper ? im_tomupper : im_tomlower)(tree, out, mbs);
        if (tree.error()) {
            *result = -1;
            return want;
        }
        want.append(out, out + (lengths & 0xFF));
        total += lengths & 0xFF;
        mbs += lengths >> 8;
    }
}

TEST(Ctype, StringsMapAsTheirCharactersDo) {
    std::mt19937 random(11);
    guarded_block in, out;
    for (const shape s : all_shapes) {
        char_records records(s);
        auto &[flat, tree] = records;
        for (int round = 0; round < 1500; ++round) {
            const bool upper = round % 2;
            const bool bytes = flat.loc.exp.sb_toupper_table;
            const unsigned bad = round % 3 || bytes ? 0 : 40;
            std::string text = random_text(random, s, random() % (round < 700 ? 70 : 700), bad);
            const size_t ends = s == shape::two_byte ? 2 : 1;
            text.resize(text.size() - 2 + ends);
            const ko_mchar_t *mbs = in.put(text, random() % 3 ? 0 : random() % 5000);
            const auto map = upper ? ko_tombsupper : ko_tombslower;
            int result;
            const std::string want = slow_map(tree, mbs, upper, &result);
            auto *dst = out.room<ko_mchar_t>(want.size() + (result < 0 ? 2 : ends));
            for (char_record *r : {&flat, &tree}) {
                r->clear();
                ASSERT_EQ(map(*r, dst, mbs), result);
                ASSERT_EQ(std::string(dst, dst + want.size()), want);
                ASSERT_EQ(r->error(), result < 0 ? KO_EILSEQ : KO_OK);
            }
            if (result < 0) continue;
            ASSERT_EQ(dst[want.size()], 0);
            if (s == shape::odd_case) continue;
            ko_mchar_t *same = in.put(text); // in place, nothing grows
            ASSERT_EQ(map(flat, same, same), result);
            ASSERT_EQ(std::string(same, same + want.size()), want);
        }
    }
}

TEST(Ctype, AnyByteTableMapsThroughItsRows) {
    std::mt19937 random(5);
    guarded_block in, out;
    kovaloc loc = {};
    loc.exp.single_byte = 1;
    unsigned char plain[256], table[256];
    for (unsigned c = 0; c < 256; ++c)
        plain[c] = static_cast<unsigned char>(c);
    for (int round = 0; round < 400; ++round) {
        memcpy(table, plain, 256);
        for (unsigned n = 0; n < unsigned(round % 40); ++n)
            table[random() % 256] = static_cast<unsigned char>(random());
        loc.exp.sb_toupper_table = table;
        // Rows of another table do not serve.
        derive_case_rows(round % 3 ? table : plain, &loc.upper_rows);
        std::string text;
        for (size_t n = random() % 300; n; --n)
            text += char(1 + random() % 255);
        std::string want;
        for (const char c : text)
            want += char(table[static_cast<unsigned char>(c)]);
        const ko_mchar_t *mbs = in.put(text + '\0', random() % 2 ? 0 : random() % 4200);
        auto *dst = out.room<ko_mchar_t>(text.size() + 1);
        ASSERT_EQ(ko_tombsupper(&loc, dst, mbs), int(text.size()));
        ASSERT_EQ(std::string(dst, dst + want.size()), want);
    }
}

TEST(Ctype, MappingNeedsAsMuchRoomAsTheRatioSays) {
    char_record r;
    for (const auto &w : table("1.5 10 20; 1.0 10 10; 1.01 1 2; 1.5 0 0; 0.0 10 10; -1e99 10 10; "
                               "2.0 2147483638 2147483647; 1e99 -5 -2147483648")) {
        r.loc.exp.case_conv_ratio = strtod(w[0].c_str(), nullptr);
        EXPECT_EQ(ko_case_conv_outbuflen(r, whole(w[1])), whole(w[2])) << w[0];
    }
}

TEST(Ctype, AnIndexBeyondThePairsMeansNoPartner) {
    for (const bool flat : {false, true}) {
        char_record r;
        add_ascii(r);
        insert(r.loc.cconv, "a", 60000);
        r.finish(flat, false);
        EXPECT_EQ(im_towupper(r, 'a'), 'a');
        EXPECT_EQ(im_towupper(r, 'b'), 'B');
        ko_mchar_t out[4];
        EXPECT_EQ(ko_tombsupper(r, out, mb("ab")), 2);
        EXPECT_EQ(text(out), "aB");
    }
}

// The case table knows other characters than the class table, so the pages cannot serve.
TEST(Ctype, TablesThatDisagreeAreWalked) {
    char_record r;
    add_ascii(r);
    r.add(0xA1A1, 2, 0, 0, 0, 1);
    r.add(0xE4, 1, 0, 0xC4, 0, 2); // neither it nor its partner is a character
    r.add(0xE5, 1, 0, 0, 0, 2);
    r.finish(true);
    ASSERT_NE(r.loc.chars, nullptr);
    EXPECT_FALSE(r.loc.chars->has_cases);
    ko_mchar_t out[8];
    EXPECT_EQ(ko_tombsupper(r, out, mb("a\xE5")), 2);
    EXPECT_EQ(text(out), "A\xE5");
    EXPECT_EQ(ko_tombsupper(r, out, mb("a\xE4")), -1);
    EXPECT_EQ(ko_tombsupper(r, out, mb("a\xA1\xA1")), -1);
    EXPECT_EQ(im_towupper(r, 0xE4), 0xC4);
}

TEST(Ctype, LackOfMemoryLeavesTheTreeToServe) {
    each_allocation_fails([] {
        char_record r;
        if (!r.loc.ctype || !r.loc.cconv) return false;
        for (const std::string_view c : {"a"sv, "\0"sv, "\xA3\xA4"sv})
            if (insert(r.loc.ctype, c) || insert(r.loc.cconv, c)) return false;
        r.finish(true);
        ko_wchar_t out[4];
        EXPECT_EQ(im_mbstowcs(r, out, mb("a\xA3\xA4"), 4), 2);
        ko_mchar_t bytes[8];
        EXPECT_EQ(ko_tombsupper(r, bytes, mb("a\xA3\xA4")), 3);
        return r.loc.chars && r.loc.chars->has_cases;
    });
}
