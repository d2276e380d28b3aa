// Information queries over a small locale.
#include "load/kovasetlc_load.h"
#include "support/locale_builder.h"

TEST(LocaleInfo, AnswersEveryItemInBothForms) {
    const loaded_locale loc(single_byte_object()); // 13 months, 12 short ones
    std::map<unsigned, std::string> want;
    unsigned next = 0;
    const auto add = [&](const std::string &text) { want[next++] = text; };
    const auto add_numbered = [&](const std::string &stem, int count) {
        for (int i = 0; i < count; ++i)
            add(stem + std::to_string(i));
    };
    add("dt"), add_numbered("day", 7), add_numbered("ad", 7);
    next = KO_MON_1, add_numbered("month", 13);
    next = KO_ABMON_1, add_numbered("am", 12);
    next = KO_RADIXCHAR;
    for (const char *text : {",", ".", "yes", "no", "E", "TEST-1", "d", "t", "tap", "am", "pm",
                             "+:1:1990/01/08:+*:Era:%EC %Ey;-:1:1990/01/07:-*:Eold:Eo:%Eg %Ey",
                             "ed", "edt", "et", "zero;one;two", "^[yY]", "^[nN]", "gregorian\n"})
        add(text);
    for (unsigned item = 0; item < 76; ++item) {
        SCOPED_TRACE(item);
        *ko_ext_errno(loc) = 0;
        const ko_mchar_t *mbs = ko_nl_langinfo(loc, item);
        EXPECT_EQ(loc.error(), want.count(item) || item > KO_LANGINFO_MAX ? KO_OK : KO_ERANGE);
        const ko_wchar_t *wcs = ko_wc_nl_langinfo(loc, item);
        EXPECT_EQ(wcs != nullptr, want.count(item) == 1);
        if (!mbs || !wcs) continue;
        EXPECT_EQ(text(mbs), want[item]);
        EXPECT_EQ(wide(wcs), std::u16string(want[item].begin(), want[item].end()));
    }
    EXPECT_EQ(ko_nl_langinfo(loc, 0xFFFFFFFF), nullptr);
}

TEST(LocaleInfo, HasNothingForAnEmptyLocale) {
    const own_record loc;
    update_locale(record(loc));
    EXPECT_EQ(init_locale_info(record(loc)), 0);
    for (unsigned item = 0; item < 80; item++)
        EXPECT_TRUE(item == KO_CODESET ||
                    (!ko_nl_langinfo(loc, item) && !ko_wc_nl_langinfo(loc, item)))
            << item;
    EXPECT_EQ(text(ko_nl_langinfo(loc, KO_CODESET)), "");
    EXPECT_EQ(ko_localeconv(loc)->decimal_point, nullptr);
    EXPECT_EQ(ko_localeconv(loc)->frac_digits, 127);
}

TEST(LocaleInfo, GivesTheConventionsInTheirLconvForm) {
    locale_object object = double_byte_object(true);
    object.numeric = field(encoded(",", true)) + "0\n4 3 0 -1 200\n0\n0\n";
    const loaded_locale loc(object);
    const koconv *conv = ko_localeconv(loc);
    EXPECT_EQ(wide(conv->w_decimal_point), u",");
    EXPECT_EQ(std::string(conv->decimal_point, 4), std::string("\0,\0\0", 4));
    EXPECT_EQ(std::string(conv->grouping, 4), std::string("\3\0\x7F\x7F", 4)); // no characters
    EXPECT_EQ(conv->w_grouping[0], 3);
    EXPECT_STREQ(conv->mon_grouping, "\3");
    EXPECT_EQ(wide(conv->w_int_curr_symbol), u"EUR ");
    EXPECT_EQ(conv->p_sign_posn, 1);
    EXPECT_EQ(conv->n_sign_posn, 127); // the object does not say
}

TEST(LocaleInfo, StatesTheVersionsOfTheFormats) {
    EXPECT_STREQ(ko_version(), "kovalib-2.86.TC1");
    const std::string all[] = {ko_cm_version(), ko_lc_version(), ko_cv_version()};
    EXPECT_EQ(all[0] + " " + all[1] + " " + all[2], "3 11 9");
}
