// Information queries over a small locale.
#include "kovasetlc.h"
#include "locale_builder.h"

TEST(LocaleInfo, AnswersEveryItemInBothForms) {
    const loaded_locale loc(single_byte_object());
    static const struct {
        unsigned item;
        const char *want;
    } rows[] = {
        {0,  "dt"                                                             },
        {1,  "day0"                                                           },
        {7,  "day6"                                                           },
        {8,  "ad0"                                                            },
        {14, "ad6"                                                            },
        {15, "month0"                                                         },
        {27, "month12"                                                        },
        {35, "am0"                                                            },
        {46, "am11"                                                           },
        {55, ","                                                              },
        {56, "."                                                              },
        {57, "yes"                                                            },
        {58, "no"                                                             },
        {59, "E"                                                              },
        {60, "TEST-1"                                                         },
        {61, "d"                                                              },
        {62, "t"                                                              },
        {63, "tap"                                                            },
        {64, "am"                                                             },
        {65, "pm"                                                             },
        {66, "+:1:1990/01/08:+*:Era:%EC %Ey;-:1:1990/01/07:-*:Eold:Eo:%Eg %Ey"},
        {67, "ed"                                                             },
        {68, "edt"                                                            },
        {69, "et"                                                             },
        {70, "zero;one;two"                                                   },
        {71, "^[yY]"                                                          },
        {72, "^[nN]"                                                          },
        {73, "gregorian\n"                                                    },
    };
    for (auto &r : rows) {
        SCOPED_TRACE(r.item);
        const ko_mchar_t *mbs = ko_nl_langinfo(loc, r.item);
        const ko_wchar_t *wcs = ko_wc_nl_langinfo(loc, r.item);
        ASSERT_TRUE(mbs && wcs);
        EXPECT_EQ(text(mbs), r.want);
        EXPECT_EQ(wide(wcs), std::u16string(r.want, r.want + strlen(r.want)));
    }
    EXPECT_EQ(loc.error(), 0);
}

TEST(LocaleInfo, KnowsTheMonthsOfItsCalendar) {
    const loaded_locale loc(single_byte_object()); // 13 names, 12 short ones
    static const struct {
        unsigned item;
        int error;
    } rows[] = {
        {27,         0        },
        {28,         KO_ERANGE},
        {34,         KO_ERANGE},
        {46,         0        },
        {47,         KO_ERANGE},
        {54,         KO_ERANGE},
        {74,         0        },
        {0xFFFFFFFF, 0        }
    };
    for (auto &r : rows) {
        SCOPED_TRACE(r.item);
        *ko_ext_errno(loc) = 0;
        ko_nl_langinfo(loc, r.item);
        EXPECT_EQ(loc.error(), r.error);
        const bool has_answer = !r.error && r.item <= KO_LANGINFO_MAX;
        EXPECT_EQ(ko_wc_nl_langinfo(loc, r.item) != nullptr, has_answer);
    }
}

TEST(LocaleInfo, HasNothingForAnEmptyLocale) {
    ko_lc_t loc = nullptr;
    ASSERT_EQ(ko_create_null_locale_2(&loc), 0);
    update_locale(record(loc));
    EXPECT_EQ(init_locale_info(record(loc)), 0);
    for (unsigned item = 0; item < 80; item++) {
        SCOPED_TRACE(item);
        if (item == KO_CODESET) {
            EXPECT_EQ(text(ko_nl_langinfo(loc, item)), "");
        } else {
            EXPECT_EQ(ko_nl_langinfo(loc, item), nullptr);
            EXPECT_EQ(ko_wc_nl_langinfo(loc, item), nullptr);
        }
    }
    EXPECT_EQ(ko_localeconv(loc)->decimal_point, nullptr);
    EXPECT_EQ(ko_localeconv(loc)->frac_digits, 127);
    ko_lc_unload(loc);
}

TEST(LocaleInfo, GivesTheConventionsInTheirLconvForm) {
    const loaded_locale loc(double_byte_object(true));
    const koconv *conv = ko_localeconv(loc);
    EXPECT_EQ(wide(conv->w_decimal_point), u",");
    EXPECT_EQ(std::string(conv->decimal_point, 4), std::string("\0,\0\0", 4));
    EXPECT_STREQ(conv->grouping, "\3\2");
    EXPECT_STREQ(conv->mon_grouping, "\3");
    EXPECT_EQ(wide(conv->w_int_curr_symbol), u"EUR ");
    EXPECT_EQ(wide(conv->w_positive_sign), u"");
    EXPECT_EQ(conv->int_frac_digits, 2);
    EXPECT_EQ(conv->p_cs_precedes, 0);
    EXPECT_EQ(conv->p_sign_posn, 1);
    EXPECT_EQ(conv->n_sign_posn, 127); // the object does not say
    EXPECT_EQ(ko_mb_loc_max(loc), 2);
    EXPECT_EQ(ko_mb_loc_min(loc), 2);
}

TEST(LocaleInfo, WidensGroupSizesThatAreNoCharacters) {
    locale_object object = double_byte_object(true);
    object.numeric = field(encoded(",", true)) + "0\n4 3 0 -1 200\n0\n0\n";
    const loaded_locale loc(object);
    EXPECT_EQ(std::string(ko_localeconv(loc)->grouping, 4), std::string("\3\0\x7F\x7F", 4));
    EXPECT_EQ(ko_localeconv(loc)->w_grouping[0], 3);
}

TEST(LocaleInfo, StatesTheVersionsOfTheFormats) {
    EXPECT_STREQ(ko_version(), "kovalib-2.86.TC1");
    EXPECT_STREQ(ko_cm_version(), "3");
    EXPECT_STREQ(ko_lc_version(), "11");
    EXPECT_STREQ(ko_cv_version(), "9");
}
