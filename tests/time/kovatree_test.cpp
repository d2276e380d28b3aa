// Trees of names: insertion and look-up of both kinds.
#include "time/kovatree.h"

#include "support/answer.h"
#include "time/time_records.h"

// A tree of each kind with the same names.
struct trees {
    kovaloc *loc;
    wc_tnode *wide = nullptr;
    mb_tnode *bytes = nullptr;
    explicit trees(ko_lc_t handle) : loc(record(handle)) {}
    ~trees() {
        free_wc_cache(wide);
        free_mb_cache(bytes);
    }
    trees(const trees &) = delete;
    int add(const std::string &name, int val) {
        return cache_wc_string(loc, &wide, mb(name.c_str()), val) |
               cache_mb_string(loc, &bytes, mb(name.c_str()), val);
    }
    // Names are divided by "|"; the value of each is its place.
    bool add_all(const std::string &names) {
        int val = 0;
        for (const std::string &name : split(names)) {
            if (add(name, val++)) return false;
        }
        return true;
    }
    // Value, wide characters and bytes of what both trees find; empty for nothing.
    std::string find(const std::string &text) const {
        std::vector<ko_wchar_t> wcs(text.size() + 1);
        loc->exp.mbstowcs(loc, wcs.data(), mb(text.c_str()), int(wcs.size()));
        int len = -1, val = -1, len_bytes = -1, val_bytes = -1;
        const int failed = validate_wc_string(loc, wide, wcs.data(), &len, &val);
        EXPECT_EQ(validate_mb_string(loc, bytes, mb(text.c_str()), &len_bytes, &val_bytes), failed);
        EXPECT_EQ(val_bytes, val);
        if (failed) return "";
        return std::to_string(val) + " " + std::to_string(len) + " " + std::to_string(len_bytes);
    }
};

// Names, a text, and what is found: the shorter name wins and the later one of two, in either case
// where the code set has both, which it has not of all letters of JANUARY.
TEST(NameTree, FindsTheShortestNameInEitherCase) {
    loaded_locale loc(single_byte_object());
    for (const auto &w : table("jan|feb JANUARY; has|cab HaS 0~3~3; hash|has hashes 1~3~3; "
                               "has|hash hashes 0~3~3; hash|hab hac; hash|hab ha; "
                               "has|cab|has has 2~3~3; |has anything 0~0~0; has| hash 0~3~3; "
                               "has| hab 1~0~0; has| ~ 1~0~0")) {
        SCOPED_TRACE(w[0] + " <- " + w[1]);
        trees tree(loc);
        EXPECT_EQ(tree.find(w[1]), "");
        ASSERT_TRUE(tree.add_all(w[0]));
        EXPECT_EQ(tree.find(w[1]), w.size() > 2 ? w[2] : "");
    }
    EXPECT_EQ(loc.error(), 0);
}

TEST(NameTree, TakesCharactersOfTwoBytesAndRefusesWhatIsNone) {
    loaded_locale loc(double_byte_object(false));
    trees tree(loc);
    EXPECT_EQ(tree.add("\x81\x40x", 7) | tree.add("\x81\x41x", 8), 0);
    EXPECT_EQ(tree.find("\x81\x40xy"), "7 2 3");
    EXPECT_EQ(loc.error(), 0);
    const ko_wchar_t text[] = {0x8140, 0xFFFF, 0};
    int len, val;
    EXPECT_EQ(answered(loc, validate_wc_string(record(loc), tree.wide, text, &len, &val)),
              answer(-1, 0));
    const ko_mchar_t *const bad = mb("ab\xFF");
    EXPECT_EQ(answered(loc, cache_wc_string(record(loc), &tree.wide, bad, 1)),
              answer(-1, KO_EILSEQ));
    EXPECT_EQ(answered(loc, cache_mb_string(record(loc), &tree.bytes, bad, 1)),
              answer(-1, KO_EILSEQ));
    EXPECT_EQ(tree.find("ab"), "");
    EXPECT_EQ(loc.error(), 0);
}

TEST(NameTree, TakesLongNames) {
    loaded_locale loc(single_byte_object());
    trees tree(loc);
    const std::string name(200000, 'a');
    EXPECT_TRUE(tree.add_all("|" + name + "|" + name + "b"));
    EXPECT_EQ(tree.find(name + "b"), "1 200000 200000");
}
