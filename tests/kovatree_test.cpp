// Trees of names: insertion and look-up of both kinds, and the trees that a locale gets.
#include "kovatree.h"

#include "locale_builder.h"

using namespace std::literals;

// Names are divided by "|"; the value of each is its place.
struct look_up {
    std::string_view names, text;
    int len, val; // len -1: not found
};

struct wide_kind {
    wc_tnode *root = nullptr;
    ~wide_kind() { free_wc_cache(root); }
    int add(kovaloc *loc, const std::string &name, int val) {
        return cache_wc_string(loc, &root, mb(name.c_str()), val);
    }
    int find(kovaloc *loc, std::string_view text, int *len, int *val) {
        const std::vector<ko_wchar_t> wide = wcs(std::u16string(text.begin(), text.end()));
        return validate_wc_string(loc, root, wide.data(), len, val);
    }
};
struct byte_kind {
    mb_tnode *root = nullptr;
    ~byte_kind() { free_mb_cache(root); }
    int add(kovaloc *loc, const std::string &name, int val) {
        return cache_mb_string(loc, &root, mb(name.c_str()), val);
    }
    int find(kovaloc *loc, std::string_view text, int *len, int *val) {
        return validate_mb_string(loc, root, mb(std::string(text).c_str()), len, val);
    }
};

template <class Kind> static int add_all(kovaloc *loc, Kind &tree, std::string_view names) {
    int failed = 0;
    for (int val = 0; !failed; val++) {
        const size_t bar = names.find('|');
        failed = tree.add(loc, std::string(names.substr(0, bar)), val);
        if (bar == names.npos) break;
        names.remove_prefix(bar + 1);
    }
    return failed;
}

template <class Kind> static void check_rows(kovaloc *loc) {
    static const look_up rows[] = {
        {"jan|feb",     "february", 3,  1 },
        {"jan|feb",     "JANUARY",  -1, -1}, // of those letters the code set has only some in both
        {"has|cab",     "HaS",      3,  0 },
        {"has|cab",     "CAB",      3,  1 },
        {"HAS|CAB",     "cab",      3,  1 },
        {"hash|has",    "hashes",   3,  1 }, // the shorter one wins
        {"has|hash",    "hashes",   3,  0 },
        {"hash|hab",    "hac",      -1, -1},
        {"hash|hab",    "ha",       -1, -1},
        {"has|cab|has", "has",      3,  2 }, // the later one wins
        {"",            "anything", 0,  0 },
        {"",            "",         0,  0 },
        {"has|",        "hash",     3,  0 },
        {"has|",        "hab",      0,  1 },
        {"has|",        "",         0,  1 },
        {"has",         "",         -1, -1},
        {"a|b|c|h|s",   "s",        1,  4 },
    };
    for (const look_up &row : rows) {
        SCOPED_TRACE(std::string(row.names) + " <- " + std::string(row.text));
        Kind tree;
        int len = -1, val = -1;
        EXPECT_EQ(tree.find(loc, row.text, &len, &val), -1);
        ASSERT_EQ(add_all(loc, tree, row.names), 0);
        EXPECT_EQ(tree.find(loc, row.text, &len, &val), row.len < 0 ? -1 : 0);
        EXPECT_EQ(len, row.len);
        EXPECT_EQ(val, row.val);
    }
}

TEST(NameTree, FindsTheShortestNameInEitherCase) {
    const locale_object object = single_byte_object();
    loaded_locale loc(object);
    check_rows<wide_kind>(record(loc));
    check_rows<byte_kind>(record(loc));
    EXPECT_EQ(loc.error(), 0);
}

TEST(NameTree, TakesCharactersOfTwoBytesAndRefusesWhatIsNone) {
    loaded_locale loc(double_byte_object(false));
    kovaloc *r = record(loc);
    wide_kind wides;
    byte_kind bytes;
    int len = 0, val = 0;
    EXPECT_EQ(wides.add(r, "\x81\x40x", 7), 0);
    EXPECT_EQ(bytes.add(r, "\x81\x40x", 7), 0);
    const ko_wchar_t text[] = {0x8140, 'x', 0xFFFF, 0};
    EXPECT_EQ(validate_wc_string(r, wides.root, text, &len, &val), 0);
    EXPECT_EQ(len, 2);
    EXPECT_EQ(bytes.find(r, "\x81\x40xy", &len, &val), 0);
    EXPECT_EQ(len, 3);
    EXPECT_EQ(wides.add(r, "ab\xFF", 1), -1);
    EXPECT_EQ(loc.error(), KO_EILSEQ);
    *ko_ext_errno(loc) = 0;
    EXPECT_EQ(bytes.add(r, "ab\xFF", 1), -1);
    EXPECT_EQ(loc.error(), KO_EILSEQ);
    *ko_ext_errno(loc) = 0;
    EXPECT_EQ(wides.find(r, "ab", &len, &val), -1);
    EXPECT_EQ(bytes.find(r, "ab", &len, &val), -1);
    EXPECT_EQ(loc.error(), 0);
}

TEST(NameTree, LeavesNothingBehindWithoutMemoryAndFreesLongNames) {
    loaded_locale loc(single_byte_object());
    each_allocation_fails([&] {
        wide_kind wides;
        byte_kind bytes;
        const bool done = !add_all(record(loc), wides, "has|hash|cab|") &&
                          !add_all(record(loc), bytes, "has|hash|cab|");
        EXPECT_EQ(loc.error(), done ? 0 : KO_ENOMEM);
        *ko_ext_errno(loc) = 0;
        return done;
    });
    wide_kind tree;
    const std::string name(200000, 'a');
    EXPECT_EQ(tree.add(record(loc), name, 1), 0);
    EXPECT_EQ(tree.add(record(loc), name + "b", 2), 0);
    int len = 0, val = 0;
    EXPECT_EQ(tree.find(record(loc), name + "b", &len, &val), 0);
    EXPECT_EQ(len, 200000);
    EXPECT_EQ(val, 1);
}

TEST(NameTree, EveryNameOfALocaleIsFoundInItsTree) {
    for (const bool wide : {false, true}) {
        loaded_locale loc(wide ? double_byte_object(true) : single_byte_object());
        const ltime &t = record(loc)->ltime_info;
        const auto check = [&](const wc_tnode *tree, ko_wchar_t *const *names, int count) {
            for (int i = 0; i < count; i++) {
                int len = -1, val = -1;
                EXPECT_EQ(validate_wc_string(record(loc), tree, names[i], &len, &val), 0);
                // month10 begins with month1
                EXPECT_EQ(val, count == 13 && i > 9 ? 1 : i);
            }
        };
        check(t.abbr_day_cache, t.w_abday, 7);
        check(t.full_day_cache, t.w_day, 7);
        check(t.abbr_mon_cache, t.w_abmon, 10);
        check(t.full_mon_cache, t.w_mon, t.mon_count);
        check(t.ampm_cache, t.w_am_pm, 2);
        check(t.alt_digits_cache, t.w_alt_digits, t.max_alt_digits);
        for (int i = 0; i < t.era_count; i++) {
            wc_found found = find_name(record(loc), t.full_era_cache, t.decode_era[i].w_name);
            ASSERT_NE(found.node, nullptr);
            EXPECT_EQ(found.node->val, i);
        }
    }
}
