// Integers and reals as text: reading, grouping, writing, and agreement with the C library.
#include "number/kovalibn.h"
#include "number/number_records.h"
#include "support/answer.h"

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

// The value that a reader gave, units to the end, -1 where it was left alone or is NULL, the error.
using outcome = std::tuple<double, long, int>;

enum kind : char { k_long = 'l', k_ulong = 'u', k_real = 'r' };

// base: of reals the mode, which is the wide form's alone.
template <class Unit>
static outcome read_text(const number_locale &loc, const Unit *text, kind k, int base, int group) {
    Unit *end = nullptr;
    const auto read = [&]() -> double {
        if constexpr (sizeof *text == 1) {
            if (k == k_long) return ko_mbstol(loc, text, &end, base, group);
            if (k == k_ulong) return ko_mbstoul(loc, text, &end, base, group);
            return ko_mbstod(loc, text, &end, group);
        } else {
            if (k == k_long) return ko_wcstol(loc, text, &end, base, group);
            if (k == k_ulong) return ko_wcstoul(loc, text, &end, base, group);
            return ko_wcstod_num_mon(loc, text, &end, group, base);
        }
    };
    const double value = read();
    return {value, end ? long(end - text) : -1, taken_error(loc)};
}
static outcome read_wide(const number_locale &loc, std::string_view text, kind k, int base,
                         int group) {
    return read_text(loc, in_set(loc, text).data(), k, base, group);
}
static outcome read_bytes(const number_locale &loc, const std::string &text, kind k, int base,
                          int group) {
    return read_text(loc, mb(text.c_str()), k, base, group);
}

constexpr double bad = 2147483647.0, minus_1 = 4294967295.0;

// Of a locale's decimal point, separator and groups: texts, their kinds with the bases or modes,
// whether groups are read, and value, end and error.
static void check_reading(const std::string &point, const std::string &separator,
                          const std::string &groups, const char *rows) {
    for (const charset set : {mixed, two_bytes, mainframe}) {
        const number_locale loc(point, separator, groups, set);
        for (const auto &w : table(rows)) {
            SCOPED_TRACE(point + " " + separator + " " + groups + " reads " + w[0]);
            const auto k = kind(w[1][0]);
            const int base = whole(w[1].substr(1)), group = whole(w[2]);
            const outcome want = {strtod(w[3].c_str(), nullptr), whole(w[4]), whole(w[5])};
            EXPECT_EQ(read_wide(loc, w[0], k, base, group), want);
            if (k == k_real && base) continue; // of no multibyte form
            const std::string bytes = spelled(w[0], set) + std::string(2, '\0');
            EXPECT_EQ(read_bytes(loc, bytes, k, base, group), want);
        }
    }
}

TEST(Numbers, ReadsWhatTheGroupingAllows) {
    check_reading(
        ".", ",", "1 3",
        "~~-17x l10 0 -17 5 0; 0x1fg l0 0 31 4 0; zZ l36 0 1295 2 0; 7 l37 0 0 -1 0; "
        "-1 u10 0 4294967295 2 0; -4294967296 u10 0 4294967295 11 0; "
        "18446744073709551621 l10 0 2147483647 20 0; "
        "~-1,234,567 l10 1 -1234567 11 0; 12,34 u10 1 2147483647 -1 7; "
        "1234 l10 1 2147483647 -1 7; 12x l10 1 2147483647 -1 7; "
        "1,234~ l10 1 2147483647 -1 7; 1,234, l10 1 2147483647 -1 7; - l10 1 0 -1 0; "
        "(1,234 l10 1 0 -1 0; (1,23 l10 1 2147483647 -1 7; 1,2 l10 1 2147483647 -1 7; "
        "0x1,fff l0 1 0x1fff 7 0; 0x1fff l16 1 2147483647 -1 7; "
        "001,234 u10 1 1234 7 0; 1,2345 u10 1 2147483647 -1 7; 1,,234 u10 1 2147483647 -1 "
        "7; 4,294,967,295 u10 1 4294967295 13 0; 123,456,789,012 u10 1 4294967295 15 0; "
        "123,456,789,012,345 l10 1 2147483647 19 0; 1,23a u10 1 2147483647 -1 7");
    check_reading(".", "5", "1 3", "1523 l10 1 2147483647 -1 7; 152 l10 1 152 3 0");
    check_reading(".", ",", "2 3 2", "1,23,45,678 l10 1 12345678 11 0");
    check_reading(".", ",", "2 3 -1", "1234,567 l10 1 1234567 8 0; 1,234,567 l10 1 1 1 0");
    check_reading(".", ",", "2 3 0", "12,345,678 l10 1 12 2 0");
    check_reading(".", ",", "0", "1,234 l10 1 1 1 0");
    check_reading(".", "", "1 3", "1234 l10 1 1234 4 0; 1,234 l10 1 2147483647 -1 7");
    check_reading(".", "''", "1 3", "1''234 l10 1 1234 6 0");
    check_reading(",", ".", "1 3",
                  "-1.234,5e1~x r0 1 -12345 10 0; 1.234e5 r0 1 1234 5 0; "
                  "1.23 r0 1 2147483647 0 7; ,5 r0 1 0.5 2 0; .123 r0 1 0.123 4 0; "
                  "(1.234 r0 1 0 -1 0; (1.23 r0 1 2147483647 0 7; inf r0 1 0 -1 0; "
                  "1'23,5 r1 1 123.5 6 0; 1.234,5 r2 1 1 1 0; +,5 r0 0 0.5 3 0; ,5 r0 0 0.5 2 0; "
                  "1.5,5 r0 0 1.5 3 0; -,e1 r0 0 0 -1 0; -InfiniTe r0 0 -inf 4 0; "
                  "0x1,8p-1 r0 0 0.75 8 0; 0x,p1 r0 0 0 1 0");
    check_reading(",", "'", "1 3", ".12'345'678'901'234'567'891 r0 1 0.12345678901234568 27 0");
    check_reading(",", ".", "2 3 -1", "1.234.567,5 r0 1 1 1 0");
    check_reading("'", ".", "1 3", "9'23'45'67'89'01'23'45'67 r1 1 92345678901234567 25 0");
    check_reading("::", ".", "1 3",
                  "2::25e r0 0 2.25 5 0; "
                  "1.234::12345678901234567890 r0 1 1234.1234567890123 27 0");
}

TEST(Numbers, RefusesTextsThatAreTooLongOrNone) {
    const std::string n255 = std::string(254, '0') + "7", n256 = n255 + "0";
    const std::string rest(300, ' ');
    const std::tuple<std::string, kind, int, outcome, outcome> rows[] = {
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
        for (const auto &[text, k, group, wide, bytes] : rows) {
            SCOPED_TRACE(text);
            const int base = k == k_real ? 0 : 10;
            EXPECT_EQ(read_wide(loc, text, k, base, group), wide);
            EXPECT_EQ(read_bytes(loc, spelled(text, set), k, base, group), bytes);
        }
    }
    const number_locale two(".", ",", "0", two_bytes);
    const std::string odd("\0002\xFF\0\0", 5); // no such character after the digit
    for (const kind k : {k_long, k_ulong, k_real})
        EXPECT_EQ(read_bytes(two, odd, k, 10, 0), outcome(k == k_ulong ? minus_1 : bad, -1, 1));
    const number_locale threes(".", ",", "1 3");
    EXPECT_EQ(read_wide(threes, n256, k_real, 0, 1), outcome(bad, 0, 7));
}

TEST(Numbers, ReadsNoFurtherThanToldAndFindsRuns) {
    const number_locale loc(".", ",", "1 3");
    const auto text = wcs(u"1,234,567,x");
    ko_ulong_t value;
    EXPECT_EQ(read_ulong(record(loc), text.data(), 5, 10, true, &value), 5);
    EXPECT_EQ(value, 1234u);
    double real;
    EXPECT_EQ(read_real(record(loc), text.data(), 1, true, mode_number, &real), 1);
    EXPECT_EQ(answered(loc, read_real(record(loc), text.data(), 2, true, mode_number, &real)),
              answer(-1, KO_EINVAL));
    EXPECT_EQ(grouped_run(record(loc), text.data(), 100, 10), 9);
    EXPECT_EQ(grouped_run(record(loc), text.data(), 2, 10), 1);
    for (const char16_t *const beyond : {u" 12\u8140", u" 12\u0661"}) { // no digits of a byte
        EXPECT_EQ(ko_wcstol(loc, wcs(beyond).data(), nullptr, 10, 0), 12);
        EXPECT_EQ(ko_wcstod(loc, wcs(beyond).data(), nullptr, 1), 12);
    }
    const own_record empty;
    EXPECT_EQ(ko_wcstol(empty, wcs(u" \t12").data(), nullptr, 10, 0), 12)
        << "blanks without classes";
}

TEST(Numbers, WritesGroupsWithinTheMaximum) {
    static const char rows[] =
        ", 1~3 -1234 10 6 1 -1,234; , 1~3 -1234 10 5 1 _; , 1~3 -123 10 5 1 -123; "
        ", 1~3 -123 10 4 1 _; , 1~3 123 10 3 1 123; , 1~3 0 10 0 1 _; , 1~3 0 10 -1 0 0; "
        ", 1~3 -2147483648 2 0 0 -10000000000000000000000000000000; "
        ", 1~3 -2147483648 10 99 1 -2,147,483,648; , 1~3 -35 36 0 0 -Z; , 1~3 1 37 9 0 _; "
        ", 1~3 1 1 9 0 _; , 2~3~2 123456789 10 12 1 12,34,56,789; "
        "'' 2~3~-1 123456789 10 11 1 123456''789; '' 2~3~-1 123456789 10 10 1 _; "
        ", 2~3~0 123456789 10 10 1 123456,789; _ 1~3 123456789 10 9 1 123456789; "
        ", 0 123456789 10 9 1 123456789";
    for (auto &w : table(rows)) {
        for (std::string *word : {&w[0], &w[6]})
            if (*word == "_") word->clear();
        const int value = whole(w[2]), base = whole(w[3]), max = whole(w[4]), group = whole(w[5]);
        SCOPED_TRACE(w[2] + " as " + w[6]);
        for (const charset set : {mixed, two_bytes, mainframe}) {
            const number_locale loc(".", w[0], w[1], set);
            ko_wchar_t out[64];
            std::fill_n(out, 64, ko_wchar_t{'#'});
            ko_ltowcs(loc, out, max, value, base, group);
            EXPECT_EQ(wide(out), wide(in_set(loc, w[6]).data()));
            EXPECT_EQ(out[w[6].size() + 1], '#');
            ko_mchar_t bytes[256];
            const int n = ko_ltombs(loc, bytes, max, value, base, group);
            EXPECT_EQ(std::string(bytes, bytes + n), spelled(w[6], set));
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
    EXPECT_EQ(answered(two, ko_mbstol(two, bytes, nullptr, 10, 1)), answer(INT32_MAX, KO_EINVAL));
    // 314 bytes.
    const number_locale lavish(".", "____", "1 1", two_bytes);
    EXPECT_EQ(answered(lavish, ko_ltombs(lavish, bytes, 255, INT32_MIN, 2, 1)),
              answer(-1, KO_E2BIG));
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
        static constexpr const char *special[] = {"-2147483648", "infinity", "-INFINITYx", "nan",
                                                  "NaN(",        "nan(1_z)", "+nan(12",    "nan()"};
        if (n < 32) text = special[n % 8];
        SCOPED_TRACE(text);
        char *end;
        const double real = strtod(text.c_str(), &end);
        const long real_end = end == text.c_str() ? -1 : end - text.c_str();
        const auto [got, got_end, error] = read_bytes(loc, text, k_real, 0, 0);
        if (text.empty()) continue;
        ASSERT_EQ(got_end, real_end) << error;
        ASSERT_TRUE(isnan(real) ? isnan(got) : got == real) << got;
        ASSERT_EQ(signbit(got), signbit(real));
        const int base = int(random() % 4 ? random() % 37 : 0);
        if (base == 1) continue;
        errno = 0;
        const long long whole = strtoll(text.c_str(), &end, base);
        const long whole_end = end == text.c_str() ? -1 : end - text.c_str();
        const bool over = whole > INT32_MAX || whole < INT32_MIN;
        const double want = double(over ? whole < 0 ? INT32_MIN : INT32_MAX : whole);
        errno = 0;
        ASSERT_EQ(read_bytes(loc, text, k_long, base, 0), outcome(want, whole_end, 0));
        ASSERT_EQ(errno == ERANGE, over);
    }
}
