// Texts in UTF-8 and UTF-16 for records of other code sets: what they lack, order, keys, case.
#include "host/host_order.h"
#include "host/host_records.h"
#include "host/host_roots.h"
#include "load/kovasetlc_load.h"
#include "support/rows.h"

using namespace std::string_literals;

TEST(OtherCodeSet, RefusesWhatItLacks) {
    const small_root root;
    const opened loc(root.path.c_str(), "de_DE.test-1");
    ASSERT_EQ(ko_locale_utf8(loc), 0);
    const struct {
        std::string text;
        int64_t units; // or the error
        size_t at, length;
    } rows[] = {
        {"",        0,           0, 0},
        {"aß\0b"s, 4,           0, 0},
        {"abx",     -KO_ENOCHAR, 2, 1}, // its approximation does not count
        {"ß漢a",  -KO_ENOCHAR, 2, 3},
        {"a😀",   -KO_ENOCHAR, 1, 4},
        {"a\xC3",   -KO_EILSEQ,  1, 1},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.text);
        ko_bad_text bad = {};
        ko_wchar_t units[8] = {};
        EXPECT_EQ(ko_utf8stowcs(loc, units, 8, r.text.data(), r.text.size(), &bad), r.units);
        EXPECT_EQ(bad.at, r.at);
        EXPECT_EQ(bad.length, r.length);
        char back[16];
        EXPECT_EQ(ko_utf8supper(loc, back, 16, r.text.data(), r.text.size()),
                  r.units < 0 ? r.units : int64_t(r.text.size()));
        if (r.units < 0) continue;
        const int64_t n = ko_wcstoutf8s(loc, back, 16, units, size_t(r.units), &bad);
        EXPECT_EQ(std::string(back, size_t(n)), r.text);
    }
    const ko_wchar_t none[] = {'a', 'x'};
    ko_bad_text bad = {};
    EXPECT_EQ(ko_wcstoutf8s(loc, nullptr, 0, none, 2, &bad), -KO_EILSEQ);
    EXPECT_EQ(bad.at * 100 + bad.length * 10 + bad.made, 111u);
    char upper[8];
    EXPECT_EQ(ko_utf8supper(loc, upper, 8, "aßC-s", 6), 6);
    EXPECT_EQ(std::string(upper, 6), "AßC-S");
    EXPECT_EQ(ko_utf8slower(loc, upper, 3, "AßCs", 5), 5);
    EXPECT_EQ(std::string(upper, 3), "aß");
}

TEST(OtherCodeSet, OrdersWhatItLacksAfterEverythingElse) {
    const small_root root;
    const opened loc(root.path.c_str(), "de_DE.test-1");
    // Ascending. The comparison of a text with the one before it tells "?" of a character that the
    // code set lacks, "!" of what is no character.
    std::vector<std::string> rows, told;
    for (const std::string &row :
         split("a|A|b|c|Ch|ch|h|s|ss|?sx|?x|xa|?x漢|?~|!\x80|!\xC3|!é|?漢|!\xED\xA0\x80|!\uFFFD|?😀|"
               "!\xFE")) {
        told.push_back(row.substr(0, row.find_first_not_of("?!")));
        rows.push_back(row.substr(told.back().size()));
    }
    for (size_t i = 0; i < rows.size(); ++i) {
        const std::string key_i = key(loc, rows[i]);
        for (size_t j = 0; j < rows.size(); ++j) {
            const int found = order(loc, rows[i], rows[j]);
            ASSERT_EQ(sign(found), sign(int(i) - int(j))) << rows[i] << " : " << rows[j];
            ASSERT_EQ(sign(key_i.compare(key(loc, rows[j]))), sign(found));
            if (j + 1 != i) continue;
            const int error = told[i] == "?" ? KO_ENOCHAR : told[i] == "!" ? KO_EILSEQ : 0;
            EXPECT_EQ(KO_SCOLL_ERROR(found), error) << rows[i];
        }
    }
    // UTF-16 has the same keys; its lone surrogates are in the place of their code.
    EXPECT_EQ(key(loc, u"s😀\xD800h\xD800"s), key(loc, "s😀\xED\xA0\x80h\xED\xA0\x80"));
    EXPECT_EQ(ko_utf16scoll(loc, u"\xD83D\xDE00", 2, u"\xD83D\xDE01", 2), -1 - KO_ENOCHAR);
    EXPECT_EQ(ko_utf16scoll(loc, u"\xD83D", 1, u"😀", 2), -1 - KO_EILSEQ);
    EXPECT_EQ(order(loc, "a\0b"s, "ab"), 1);
    EXPECT_EQ(order(loc, "c\0h"s, "ch"), 1);
}

TEST(OtherCodeSet, TellsWhyItDoesNotServe) {
    const small_root root;
    const std::string in = root.path, cvo = in + "/kova/cv9/e01c0001.cvo";
    const auto error = [&](unsigned flags) {
        const opened loc(in.c_str(), "de_DE.test-1", flags);
        EXPECT_EQ(loc.result, 0);
        const int why = ko_locale_utf8(loc);
        EXPECT_EQ(order(loc, "a", "B"), 1 + why);
        EXPECT_EQ(ko_utf8sxfrm(loc, nullptr, 0, "a", 1), -why);
        EXPECT_EQ(ko_utf8supper(loc, nullptr, 0, "a", 1), -why);
        EXPECT_EQ(ko_utf8stowcs(loc, nullptr, 0, "a", 1, nullptr), -why);
        return why;
    };
    std::string object = root.read("kova/cv9/e01c0001.cvo");
    object.back() ^= 1; // a digit, or the last line's end
    root.write("kova/cv9/e01c0001.cvo", object);
    EXPECT_EQ(error(KO_OPEN_VERIFY), KO_EOBJECT);
    root.write("kova/cv9/e01c0001.cvo", object.substr(0, object.size() / 2));
    EXPECT_EQ(error(0), KO_EOBJECT);
    std::filesystem::remove(cvo);
    EXPECT_EQ(error(0), KO_EFILE);
    const loaded_locale loaded(single_byte_object());
    EXPECT_EQ(ko_locale_utf8(loaded), KO_ECODESET);
    EXPECT_EQ(ko_locale_utf8(nullptr), KO_ENULL);
}

// ---- Compiled locales ----

// Every character of the record with its text.
static std::vector<std::pair<ko_wchar_t, std::string>> characters(ko_lc_t loc) {
    std::vector<std::pair<ko_wchar_t, std::string>> all;
    for (unsigned unit = 1; unit < 0x10000; ++unit) {
        const auto wc = ko_wchar_t(unit);
        char text[4];
        const int64_t n = ko_wcstoutf8s(loc, text, 4, &wc, 1, nullptr);
        if (n > 0) all.emplace_back(wc, std::string(text, size_t(n)));
    }
    return all;
}

TEST(OtherCodeSet, MapsCompiledCodeSetsBackAndForth) {
    each_locale(false, [](ko_lc_t loc) {
        const auto all = characters(loc);
        EXPECT_GE(all.size(), 127u);
        for (const auto &[wc, text] : all) {
            ko_wchar_t back = 0;
            EXPECT_EQ(ko_utf8stowcs(loc, &back, 1, text.data(), text.size(), nullptr), 1);
            EXPECT_EQ(back, wc) << text;
            char upper[4] = {}, want[4] = {};
            const ko_wchar_t partner = im_towupper(loc, wc);
            const int64_t n = ko_wcstoutf8s(loc, want, 4, &partner, 1, nullptr);
            ko_utf8supper(loc, upper, 4, text.data(), text.size());
            EXPECT_EQ(std::string(upper, 4), n > 0 ? std::string(want, 4) : std::string(upper, 4));
        }
    });
}

// The order of texts is that of their characters in the code set, and of their keys.
static void check_order(ko_lc_t loc) {
    const auto all = characters(loc);
    std::mt19937 random(11);
    const auto below = [&](size_t n) { return size_t(random() % n); };
    for (int round = 0; round < 4000; ++round) {
        std::string texts[2];
        std::vector<ko_wchar_t> wide[2];
        const size_t from = below(all.size());
        for (int i = 0; i < 2; ++i) {
            for (size_t n = below(6); n; --n) {
                const auto &c = all[(from + below(60)) % all.size()];
                texts[i] += c.second;
                wide[i].push_back(c.first);
            }
            wide[i].push_back(0);
        }
        const int found = order(loc, texts[0], texts[1]);
        const int want = sign(ko_full_wcscoll(loc, wide[0].data(), wide[1].data()));
        ASSERT_EQ(found, want) << texts[0] << " : " << texts[1];
        ASSERT_EQ(sign(key(loc, texts[0]).compare(key(loc, texts[1]))), want)
            << texts[0] << " : " << texts[1];
    }
}

TEST(OtherCodeSet, OrdersAsTheLocaleDoes) { each_locale(false, check_order); }

// The compiled th_TH.TIS-620, with the Thai method for its order.
TEST(OtherCodeSet, OrdersByTheThaiMethod) {
    const std::string data = env("KOVA_TEST_ROOT");
    const auto file = [&data](const char *name) { return slurp(data + "/kova/" + name); };
    std::string object = file("lc11/th_th/e01d.lco");
    if (object.empty()) GTEST_SKIP();
    const temp_dir root;
    const size_t section = object.find("### LC_COLLATE"), next = object.find("### LC_NUMERIC");
    object.replace(section, next - section, "### LC_COLLATE\nthai_smo\n");
    root.write("kova/lc11/th_th/e01d.lco", object);
    for (const char *name : {"cm3/registry", "cv9/e01ce01d.cvo", "cv9/e01de01c.cvo"})
        root.write("kova/"s + name, file(name));
    const opened loc(root.path.c_str(), "th_TH.TIS-620");
    ASSERT_EQ(ko_locale_utf8(loc), 0);
    check_order(loc);
    const std::string far(70000, 'a'); // places beyond one and two bytes
    const struct {
        std::string a, b;
        int want;
    } rows[] = {
        {"\u0E40\u0E01",       "\u0E02",             -1             },
        {"\u0E01\u0E49\u0E32", "\u0E01\u0E32\u0E01", -1             }, // marks last
        {"\u0E01\0\u0E02"s,    "\u0E01\u0E02",       1              },
        {"\u0E40\0\u0E01"s,    "\u0E40\u0E01",       1              },
        {"\u0E40\u0E01\0"s,    "\u0E40\0\u0E01"s,    1              },
        {"\u0E5B",             "\u00E9",             -1 - KO_ENOCHAR},
        {"\u0E40\u00E9",       "\u0E40\u6F22",       -1 - KO_ENOCHAR},
        {"\u0E5B",             "\xFF",               -1 - KO_EILSEQ },
        {far + "\u0E01\u0E48", far + "\u0E01\u0E49", -1             },
        {"a\u0E48" + far,      far + "a\u0E48",      -1             },
        {far + "a\u0E48",      far + "aa\u0E48",     1              }, // a place is more than a letter
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(&r - rows);
        EXPECT_EQ(order(loc, r.a, r.b), r.want);
        EXPECT_EQ(order(loc, r.b, r.a), -r.want);
        EXPECT_EQ(sign(key(loc, r.a).compare(key(loc, r.b))), sign(r.want));
    }
}
