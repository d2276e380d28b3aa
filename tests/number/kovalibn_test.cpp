// Integers and reals as text: reading, grouping, writing, and agreement with the C library.
#include "number/kovalibn.h"
#include "number/number_records.h"

#include <errno.h>
#include <math.h>

#include <random>

struct number_locale : loaded_locale {
    number_locale(const std::string &point, const std::string &separator, const std::string &groups,
                  charset set = mixed)
        : loaded_locale(with_conventions(
              {.point = point, .separator = separator, .groups = groups, .mon_groups = "1 2"},
              set)) {}
};

// What a reader did: units to the end, -1 where the end was left alone or is NULL.
struct outcome {
    double value;
    long end;
    int error;
    bool operator==(const outcome &) const = default;
};
static std::ostream &operator<<(std::ostream &out, const outcome &o) {
    return out << o.value << " to " << o.end << " error " << o.error;
}

template <class Unit, class Read>
static outcome read_text(const number_locale &loc, const Unit *text, Read read) {
    Unit *end = nullptr;
    const auto value = static_cast<double>(read(loc.handle, text, &end));
    return {value, end ? static_cast<long>(end - text) : -1, taken_error(loc)};
}

enum kind { k_long, k_ulong, k_real };

static outcome read_wide(const number_locale &loc, const ko_wchar_t *text, kind k, int base,
                         int group) {
    return read_text(loc, text, [=](ko_lc_t l, const ko_wchar_t *t, ko_wchar_t **end) -> double {
        if (k == k_long) return ko_wcstol(l, t, end, base, group);
        if (k == k_ulong) return ko_wcstoul(l, t, end, base, group);
        return ko_wcstod_num_mon(l, t, end, group, base);
    });
}
static outcome read_bytes(const number_locale &loc, const ko_mchar_t *text, kind k, int base,
                          int group) {
    return read_text(loc, text, [=](ko_lc_t l, const ko_mchar_t *t, ko_mchar_t **end) -> double {
        if (k == k_long) return ko_mbstol(l, t, end, base, group);
        if (k == k_ulong) return ko_mbstoul(l, t, end, base, group);
        return ko_mbstod(l, t, end, group);
    });
}

constexpr double bad = 2147483647.0, minus_1 = 4294967295.0;

TEST(Numbers, ReadsWhatTheGroupingAllows) {
    static const struct {
        const char *settings; // decimal point, separator, grouping: each up to a blank
        const char *text;
        kind k;
        int base; // of reals: the mode
        int group;
        outcome want;
    } rows[] = {
        {". , 1 3",    "  -17x",                      k_long,  10, 0, {-17, 5, 0}                 },
        {". , 1 3",    "0x1fg",                       k_long,  0,  0, {31, 4, 0}                  },
        {". , 1 3",    "zZ",                          k_long,  36, 0, {1295, 2, 0}                },
        {". , 1 3",    "7",                           k_long,  37, 0, {0, -1, 0}                  },
        {". , 1 3",    "-1",                          k_ulong, 10, 0, {minus_1, 2, 0}             },
        {". , 1 3",    "-4294967296",                 k_ulong, 10, 0, {minus_1, 11, 0}            },
        {". , 1 3",    " -1,234,567",                 k_long,  10, 1, {-1234567, 11, 0}           },
        {". , 1 3",    "12,34",                       k_ulong, 10, 1, {bad, -1, 7}                },
        {". , 1 3",    "1234",                        k_long,  10, 1, {bad, -1, 7}                },
        {". , 1 3",    "12x",                         k_long,  10, 1, {bad, -1, 7}                },
        {". , 1 3",    "1,234 ",                      k_long,  10, 1, {bad, -1, 7}                },
        {". , 1 3",    "1,234,",                      k_long,  10, 1, {bad, -1, 7}                },
        {". , 1 3",    "-",                           k_long,  10, 1, {0, -1, 0}                  },
        {". , 1 3",    "(1,234",                      k_long,  10, 1, {0, -1, 0}                  },
        {". , 1 3",    "(1,23",                       k_long,  10, 1, {bad, -1, 7}                },
        {". , 1 3",    "1,2",                         k_long,  10, 1, {bad, -1, 7}                },
        {". , 1 3",    "0x1,fff",                     k_long,  0,  1, {0x1fff, 7, 0}              },
        {". , 1 3",    "0x1fff",                      k_long,  16, 1, {bad, -1, 7}                },
        {". , 2 3 2",  "1,23,45,678",                 k_long,  10, 1, {12345678, 11, 0}           },
        {". , 2 3 -1", "1234,567",                    k_long,  10, 1, {1234567, 8, 0}             },
        {". , 2 3 -1", "1,234,567",                   k_long,  10, 1, {1, 1, 0}                   },
        {". , 2 3 0",  "12,345,678",                  k_long,  10, 1, {12, 2, 0}                  },
        {". , 0",      "1,234",                       k_long,  10, 1, {1, 1, 0}                   },
        {". / 1 3",    "1234",                        k_long,  10, 1, {1234, 4, 0}                },
        {". / 1 3",    "1,234",                       k_long,  10, 1, {bad, -1, 7}                },
        {". '' 1 3",   "1''234",                      k_long,  10, 1, {1234, 6, 0}                },
        {", . 1 3",    "-1.234,5e1 x",                k_real,  0,  1, {-12345, 10, 0}             },
        {", . 1 3",    "1.234e5",                     k_real,  0,  1, {1234, 5, 0}                },
        {", . 1 3",    "1.23",                        k_real,  0,  1, {bad, 0, 7}                 },
        {", . 1 3",    ",5",                          k_real,  0,  1, {0.5, 2, 0}                 },
        {", . 1 3",    ".123",                        k_real,  0,  1, {0.123, 4, 0}               },
        {", ' 1 3",    ".12'345'678'901'234'567'891", k_real,  0,  1, {0.12345678901234568, 27, 0}},
        {", . 1 3",    "(1.234",                      k_real,  0,  1, {0, -1, 0}                  },
        {", . 1 3",    "(1.23",                       k_real,  0,  1, {bad, 0, 7}                 },
        {", . 1 3",    "inf",                         k_real,  0,  1, {0, -1, 0}                  },
        {", . 2 3 -1", "1.234.567,5",                 k_real,  0,  1, {1, 1, 0}                   },
        {", . 1 3",    "1'23,5",                      k_real,  1,  1, {123.5, 6, 0}               },
        {"' . 1 3",    "9'23'45'67'89'01'23'45'67",   k_real,  1,  1, {92345678901234567.0, 25, 0}},
        {", . 1 3",    "1.234,5",                     k_real,  2,  1, {1, 1, 0}                   },
        {", . 1 3",    "+,5",                         k_real,  0,  0, {0.5, 3, 0}                 },
        {", . 1 3",    ",5",                          k_real,  0,  0, {0.5, 2, 0}                 },
        {", . 1 3",    "1.5,5",                       k_real,  0,  0, {1.5, 3, 0}                 },
        {", . 1 3",    "-,e1",                        k_real,  0,  0, {0, -1, 0}                  },
        {", . 1 3",    "-InfiniTe",                   k_real,  0,  0, {-HUGE_VAL, 4, 0}           },
        {", . 1 3",    "0x1,8p-1",                    k_real,  0,  0, {0.75, 8, 0}                },
        {", . 1 3",    "0x,p1",                       k_real,  0,  0, {0, 1, 0}                   },
        {":: . 1 3",   "2::25e",                      k_real,  0,  0, {2.25, 5, 0}                },
        {":: . 1 3",   "1.234::12345678901234567890", k_real,  0,  1, {1234.1234567890123, 27, 0} },
    };
    for (auto &r : rows) {
        SCOPED_TRACE(std::string(r.settings) + " reads " + r.text);
        const std::string all = r.settings;
        const size_t a = all.find(' '), b = all.find(' ', a + 1);
        std::string separator = all.substr(a + 1, b - a - 1);
        if (separator == "/") separator.clear();
        for (const charset set : {mixed, two_bytes, mainframe}) {
            const number_locale loc(all.substr(0, a).c_str(), separator.c_str(), &all[b + 1], set);
            EXPECT_EQ(read_wide(loc, in_set(loc, r.text).data(), r.k, r.base, r.group), r.want);
            if (r.k == k_real && r.base) continue; // of no multibyte form
            const std::string bytes = spelled(r.text, set) + std::string(2, '\0');
            EXPECT_EQ(read_bytes(loc, mb(bytes.c_str()), r.k, r.base, r.group), r.want);
        }
    }
}

TEST(Numbers, RefusesTextsThatAreTooLongOrNone) {
    const std::string n255 = std::string(254, '0') + "7", n256 = n255 + "0";
    const std::string rest(300, ' ');
    const struct {
        std::string text;
        kind k;
        int group;
        outcome wide, bytes;
    } rows[] = {
        {n255,              k_long,  0, {7, 255, 0},  {7, 255, 0}     },
        {n255,              k_long,  1, {7, 255, 0},  {7, 255, 0}     },
        {n256,              k_long,  0, {bad, 0, 7},  {bad, -1, 7}    },
        {"-" + n255,        k_ulong, 0, {bad, 0, 7},  {bad, -1, 7}    },
        {n256,              k_ulong, 1, {bad, -1, 7}, {bad, -1, 7}    },
        {"7" + rest,        k_ulong, 0, {7, 1, 0},    {bad, -1, 7}    },
        {n255,              k_real,  0, {7, 255, 0},  {7, 255, 0}     },
        {n256,              k_real,  0, {bad, 0, 7},  {bad, -1, 7}    },
        {n256,              k_real,  1, {70, 256, 0}, {bad, -1, 7}    },
        {n256 + "0",        k_real,  1, {bad, 0, 7},  {bad, -1, 7}    },
        {n256 + "." + n255, k_real,  1, {70, 512, 0}, {bad, -1, 7}    },
        {n256 + "." + n256, k_real,  1, {bad, 0, 7},  {bad, -1, 7}    },
        {"0x" + n256 + "p", k_real,  0, {bad, 0, 7},  {bad, -1, 7}    },
        {"",                k_long,  0, {0, -1, 0},   {bad, -1, 6}    },
        {"",                k_ulong, 0, {0, -1, 0},   {minus_1, -1, 6}},
        {"",                k_real,  0, {0, -1, 0},   {bad, -1, 6}    },
    };
    for (const charset set : {mixed, mainframe}) {
        const number_locale loc(".", ",", "0", set);
        for (auto &r : rows) {
            SCOPED_TRACE(r.text);
            const int base = r.k == k_real ? 0 : 10;
            const std::string bytes = spelled(r.text, set);
            EXPECT_EQ(read_wide(loc, in_set(loc, r.text).data(), r.k, base, r.group), r.wide);
            EXPECT_EQ(read_bytes(loc, mb(bytes.c_str()), r.k, base, r.group), r.bytes);
        }
    }
    const number_locale two(".", ",", "0", two_bytes);
    const std::string odd("\0"
                          "1\xFF\0\0",
                          5); // no such character behind the digit
    for (const kind k : {k_long, k_ulong, k_real})
        EXPECT_EQ(read_bytes(two, mb(odd.c_str()), k, 10, 0),
                  (outcome{k == k_ulong ? minus_1 : bad, -1, 1}));
    const number_locale threes(".", ",", "1 3");
    EXPECT_EQ(read_wide(threes, in_set(threes, n256).data(), k_real, 0, 1), (outcome{bad, 0, 7}));
}

TEST(Numbers, ReadsNoFurtherThanToldAndFindsRuns) {
    const number_locale loc(".", ",", "1 3");
    const auto text = wcs(u"1,234,567,x");
    ko_ulong_t value;
    EXPECT_EQ(read_ulong(record(loc), text.data(), 5, 10, true, &value), 5);
    EXPECT_EQ(value, 1234u);
    double real;
    EXPECT_EQ(read_real(record(loc), text.data(), 1, true, mode_number, &real), 1);
    EXPECT_EQ(read_real(record(loc), text.data(), 2, true, mode_number, &real), -1);
    EXPECT_EQ(taken_error(loc), KO_EINVAL);
    EXPECT_EQ(grouped_run(record(loc), text.data(), 100, 10), 9);
    EXPECT_EQ(grouped_run(record(loc), text.data(), 2, 10), 1);
}

TEST(Numbers, WritesGroupsWithinTheMaximum) {
    static const struct {
        const char *separator, *groups;
        ko_long_t value;
        int base, max, group;
        const char *want;
    } rows[] = {
        {",",  "1 3",    -1234,     10, 6,  1, "-1,234"                           },
        {",",  "1 3",    -1234,     10, 5,  1, ""                                 },
        {",",  "1 3",    -123,      10, 5,  1, "-123"                             },
        {",",  "1 3",    -123,      10, 4,  1, ""                                 },
        {",",  "1 3",    123,       10, 3,  1, "123"                              },
        {",",  "1 3",    0,         10, 0,  1, ""                                 },
        {",",  "1 3",    0,         10, -1, 0, "0"                                },
        {",",  "1 3",    INT32_MIN, 2,  0,  0, "-10000000000000000000000000000000"},
        {",",  "1 3",    INT32_MIN, 10, 99, 1, "-2,147,483,648"                   },
        {",",  "1 3",    -35,       36, 0,  0, "-Z"                               },
        {",",  "1 3",    1,         37, 9,  0, ""                                 },
        {",",  "1 3",    1,         1,  9,  0, ""                                 },
        {",",  "2 3 2",  123456789, 10, 12, 1, "12,34,56,789"                     },
        {"''", "2 3 -1", 123456789, 10, 11, 1, "123456''789"                      },
        {"''", "2 3 -1", 123456789, 10, 10, 1, ""                                 },
        {",",  "2 3 0",  123456789, 10, 10, 1, "123456,789"                       },
        {"",   "1 3",    123456789, 10, 9,  1, "123456789"                        },
        {",",  "0",      123456789, 10, 9,  1, "123456789"                        },
    };
    for (auto &r : rows) {
        SCOPED_TRACE(r.want);
        for (const charset set : {mixed, two_bytes, mainframe}) {
            const number_locale loc(".", r.separator, r.groups, set);
            ko_wchar_t out[64];
            std::fill_n(out, 64, ko_wchar_t{'#'});
            ko_ltowcs(loc, out, r.max, r.value, r.base, r.group);
            EXPECT_EQ(wide(out), wide(in_set(loc, r.want).data()));
            EXPECT_EQ(out[strlen(r.want) + 1], '#');
            ko_mchar_t bytes[256];
            const int n = ko_ltombs(loc, bytes, r.max, r.value, r.base, r.group);
            EXPECT_EQ(std::string_view(reinterpret_cast<char *>(bytes), static_cast<size_t>(n)),
                      spelled(r.want, set));
            EXPECT_EQ(loc.error(), 0);
        }
    }
    // A separator of more bytes than characters is written, but never read.
    locale_object object = double_byte_object(false);
    object.numeric = field(".") + field("\x81@") + "1 3\n" + field("") + field("-");
    const loaded_locale two(object);
    ko_mchar_t bytes[256];
    EXPECT_EQ(ko_ltombs(two, bytes, 9, 1234, 10, 1), 6);
    EXPECT_EQ(text(bytes), "1\x81@234");
    EXPECT_EQ(ko_mbstol(two, bytes, nullptr, 10, 1), 0x7FFFFFFF);
    EXPECT_EQ(two.error(), KO_EINVAL);
    // 314 bytes.
    const number_locale lavish(".", "____", "1 1", two_bytes);
    EXPECT_EQ(ko_ltombs(lavish, bytes, 255, INT32_MIN, 2, 1), -1);
    EXPECT_EQ(taken_error(lavish), KO_E2BIG);
    EXPECT_EQ(bytes[0] | bytes[1], 0);
    const number_locale loc(".", ",", "1 3");
    EXPECT_EQ(ko_ultombs(loc, bytes, 20, UINT32_MAX, 10, 1), 13);
    EXPECT_EQ(text(bytes), "4,294,967,295");
    ko_ultowcs(loc, nullptr, 9, 1, 10, 0);
    EXPECT_EQ(taken_error(loc), KO_ENULL);
}

TEST(Numbers, AgreeWithTheCLibrary) {
    const number_locale loc(".", ",", "0");
    std::mt19937 random(7);
    const auto pick = [&](std::string_view from) { return from[random() % from.size()]; };
    for (int n = 0; n < 20000; n++) {
        std::string text;
        for (size_t len = random() % 24; len; len--)
            text += random() % 8 ? pick("0123456789") : pick(" +-.eExXpainfy(_)g");
        if (n < 32) text = "-2147483648";
        SCOPED_TRACE(text);
        char *end;
        const double real = strtod(text.c_str(), &end);
        const long real_end = end == text.c_str() ? -1 : end - text.c_str();
        const outcome got = read_bytes(loc, mb(text.c_str()), k_real, 0, 0);
        if (text.empty()) continue;
        ASSERT_EQ(got.end, real_end);
        ASSERT_TRUE(isnan(real) ? isnan(got.value) : got.value == real) << got.value;
        ASSERT_EQ(signbit(got.value), signbit(real));
        const int base = static_cast<int>(random() % 4 ? random() % 37 : 0);
        if (base == 1) continue;
        errno = 0;
        const long long whole = strtoll(text.c_str(), &end, base);
        const long whole_end = end == text.c_str() ? -1 : end - text.c_str();
        const bool over = whole > INT32_MAX || whole < INT32_MIN;
        const double want = static_cast<double>(over ? whole < 0 ? INT32_MIN : INT32_MAX : whole);
        errno = 0;
        ASSERT_EQ(read_bytes(loc, mb(text.c_str()), k_long, base, 0),
                  (outcome{want, whole_end, 0}));
        ASSERT_EQ(errno == ERANGE, over);
    }
}
