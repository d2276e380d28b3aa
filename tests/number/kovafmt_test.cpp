// Number formatting and parsing. Every row runs in wide and in multibyte form, with room to spare,
// with just enough room and with one less.
#include "number/kovafmt.h"
#include "number/number_records.h"
#include "support/answer.h"

#include <limits.h>
#include <math.h>

#include <random>

// Marks: decimal symbol, separator, positive and negative sign, with blanks between; "_" is empty.
static locale_object numbers(const std::string &marks, const char *groups, charset set = mixed) {
    conventions c = {.groups = groups};
    std::istringstream words(marks);
    for (std::string *mark : {&c.point, &c.separator, &c.positive, &c.negative}) {
        words >> *mark;
        if (*mark == "_") mark->clear();
    }
    return with_conventions(c, set);
}
static const loaded_locale &english() {
    static const loaded_locale loc(numbers(". , + -", "1 3"));
    return loc;
}
// Checks each row in ASCII and in EBCDIC.
template <class Check> static void in_both_sets(const char *rows, Check check) {
    static const loaded_locale mainframe_english(numbers(". , + -", "1 3", mainframe));
    for (const loaded_locale *loc : {&english(), &mainframe_english})
        for (const auto &w : table(rows)) {
            SCOPED_TRACE(w[0] + " " + w[1]);
            check(*loc, w);
        }
}

static std::vector<ko_mchar_t> narrow(const std::vector<ko_wchar_t> &units) {
    return {units.begin(), units.end()};
}
template <class Unit> static std::string from_set(ko_lc_t loc, const Unit *units) {
    std::string text;
    for (; *units; ++units)
        text += char(portable(record(loc), *units));
    return text;
}
// ---- Formatting ---------------------------------------------------------------------------------

constexpr int room = 600;

template <class Unit, class Print> static std::string printed(ko_lc_t loc, Print print) {
    std::vector<Unit> out(room + 2, 0xAA);
    const int n = print(out.data(), room);
    if (n < 0) return "!" + std::to_string(taken_error(loc));
    EXPECT_EQ(taken_error(loc), 0);
    const std::string text = from_set(loc, out.data());
    EXPECT_EQ(text.size(), size_t(n));
    for (int max = n > 0 ? n - 1 : 0; max <= n; ++max) {
        std::vector<Unit> tight(size_t(max) + 2, 0xAA);
        EXPECT_EQ(answered(loc, print(tight.data(), max)),
                  max == n ? answer(n, 0) : answer(-1, KO_E2BIG));
        EXPECT_EQ(tight[size_t(max) + 1], 0xAA);
    }
    return text;
}
static int by_list(ko_lc_t loc, ko_wchar_t *out, int max, const ko_wchar_t *format, ...) {
    va_list values;
    va_start(values, format);
    const int n = ko_wcsfnum1(loc, out, max, format, values);
    va_end(values);
    return n;
}
template <class... Values>
static std::string fnum(ko_lc_t loc, std::string_view format, Values... values) {
    const auto wide_format = in_set(loc, format);
    const auto mb_format = narrow(wide_format);
    const std::string text = printed<ko_wchar_t>(loc, [&](ko_wchar_t *out, int max) {
        return ko_wcsfnum(loc, out, max, wide_format.data(), values...);
    });
    std::vector<ko_wchar_t> listed(room + 1);
    const answer by_values =
        answered(loc, by_list(loc, listed.data(), room, wide_format.data(), values...));
    EXPECT_EQ(by_values.error ? "!" + std::to_string(by_values.error)
                              : from_set(loc, listed.data()),
              text);
    EXPECT_EQ(printed<ko_mchar_t>(loc,
                                  [&](ko_mchar_t *out, int max) {
                                      return ko_mbsfnum(loc, out, max, mb_format.data(), values...);
                                  }),
              text);
    return text;
}

// A format, its values and the text, or "!" and the error.
static constexpr const char integer_rows[] =
    "a%5d|%-5d| 42 7 a~~~42|7~~~~|; %05d -42 -0042; %'d 1234567 1,234,567; %'d -999 -999; "
    "%'d -2147483648 -2,147,483,648; %'12d 1234567 ~~~1,234,567; %'012d 1234567 0001,234,567; "
    "%'.9d 1234567 001,234,567; %'d%d 123 999999 123999,999; %'x 1048576 100,000; %#o 8 010; "
    "%#.5o 8 00010; %#o~%#x 0 0 00~0x0; %#x~%#X 255 255 0xff~0XFF; %#08x 255 00000xff; "
    "%X~%x 171 171 AB~AB; %x -1 -1; %b~%q 10 27 1010~123; %d~%d -1 2 -1~-2; %i~%u -1 2 -1~-2; "
    "%u -1 4294967295; %hd~%hu 65537 65538 1~2; %Hd 40000 -25536; %ld -2147483648 -2147483648; "
    "%05d~%5d 7 8 00007~00008; %-5d|%05d| 7 8 7~~~~|8~~~~|; %05d|%-5d| 7 8 00007|00008|; "
    "%+d~%d 1 2 +1~+2; %~d 5 ~5; %~+d 5 +5; %8.5d -42 ~~-00042; %08.5d -42 -0000042; "
    "%.0d%.d 0 7 07; %*d 6 42 ~~~~42; %*d| -6 42 42~~~~|; %.*d 4 42 0042; %.*d -4 42 42; "
    "%%%d%% 7 %7%; %1$d 7 !22; %5% 7 !22; %0-5d 7 !22; %lld 7 !22; %y 7 !22; % 7 !15; %5. 7 !15; "
    "%.* 7 !15; %l 7 !15; %.-5d 7 !45; %.% 7 !45; %99999999999d 7 !14; %.99999999999d 7 !14; "
    "%2147483647d%d 7 7 !14";

TEST(NumberFormat, WritesIntegers) {
    in_both_sets(integer_rows, [](ko_lc_t loc, const auto &w) {
        EXPECT_EQ(fnum(loc, w[0], whole(w[1]), whole(w[2])), w.back());
    });
}

static constexpr const char real_rows[] =
    "%f 0.5 0.500000; %.2f 9.995 9.99; %.2f 99.999 100.00; %'.2f 1234567.891 1,234,567.89; "
    "%'.0f 1e21 1,000,000,000,000,000,000,000; %'012.1f -1234.5 -00001,234.5; %.0f 0.5 0; "
    "%.0f 1.5 2; %.1f 0.25 0.2; %#.0f 1 1.; %.20f 0.1 0.10000000000000000000; "
    "%.3f 333333333333333.31 333333333333333.000; %.1f 9999999999999999 10000000000000000.0; "
    "%.30f 1e-30 0.000000000000000000000000000001; %.29f 4e-30 0.00000000000000000000000000000; "
    "%.1f -0.0 0.0; %e 0 0.000000e+00; %.20e 0.1 1.00000000000000000000e-01; "
    "%E 1e100 1.000000E+100; %.3le -12345.678 -1.235e+04; %g 100000 100000; %g 1e6 1E+06; "
    "%g 999999.5 1E+06; %.17g 0.1 0.1; %G 0.00001234 1.234E-05; %g 0.0001234 0.0001234; "
    "%#g 1 1.00000; %#.1g 5 5.; %.0g 5 5; %'g 123456 123,456; %+.1f 2 +2.0; %~.1f 2 ~2.0; "
    "%-8.1f| 1.5 1.5~~~~~|; %010.2f -1.5 -000001.50; %06f inf ~~~inf; %-6f| -inf -inf~~|; "
    "%+G inf +INF; %E -inf -INF; %G nan NAN; %'e nan nan; %.99999f 1 !14; %F 1 !22";

TEST(NumberFormat, WritesReals) {
    in_both_sets(real_rows, [](ko_lc_t loc, const auto &w) {
        EXPECT_EQ(fnum(loc, w[0], strtod(w[1].c_str(), nullptr)), w[2]);
    });
}

// A double between two integers does not touch the sign of the second.
TEST(NumberFormat, KeepsTheSignOfIntegersForIntegersAlone) {
    EXPECT_EQ(fnum(english(), "%d %.1f %d", -1, 2.0, 3), "-1 2.0 -3");
    EXPECT_EQ(fnum(english(), "%.1f %d", -2.0, 3), "-2.0 3");
    EXPECT_EQ(fnum(english(), "%#d %.0f", 1, 2.0), "1 2.");
}

// Marks, groups, a format, a value and the text.
TEST(NumberFormat, FollowsTheMarksAndGroupsOfTheLocale) {
    static constexpr const char rows[] =
        ".~,~_~- 3~2~3~-1 %'d 123456789 1234,567,89; .~,~_~- 2~3~2 %'d 123456789 12,34,56,789; "
        ".~,~_~- 2~3~0 %'d 123456789 123,456,789; .~,~_~- 1~0 %'d 123456789 123456789; "
        ".~,~_~- 0 %'d 123456789 123456789; .~,~_~- 3~3~0~2 %'d 123456789 123456,789; "
        ".~,~_~- 1~300 %'d 123456789 123456789; .~::~_~- 1~3 %'12d 1234567 ~1::234::567; "
        ".~_~_~- 1~3 %'d 1234567 1234567; .~,~_~_ 1~3 %d -5 5; .~,~_~minus 1~3 %08d -5 minus005; "
        ".~,~ab~- 1~3 %~d 5 ~~5; .~,~ab~- 1~3 %+5d 5 ~~ab5; .~,~_~- 1~3 %~d 5 5; "
        "<>~.~_~- 1~3 %'.1f 1234.5 1.234<>5; ,~.~_~neg 1~3 %.1e -0.015 neg1,5eneg02; "
        ",~.~_~- 1~3 %.1e 15 1,5e01; .~,~_~- 2~3~2 %'.1f 123456789012 1,23,45,67,89,012.0; "
        ".~,~_~- 2~3~2 %'.0f 1e16 10,00,00,00,00,00,00,000";
    for (const auto &w : table(rows)) {
        SCOPED_TRACE(w[0] + " " + w[2]);
        const loaded_locale loc(numbers(w[0], w[1].c_str()));
        const bool real = w[2].find_first_of("ef") != std::string::npos;
        EXPECT_EQ(real ? fnum(loc, w[2], strtod(w[3].c_str(), nullptr))
                       : fnum(loc, w[2], whole(w[3])),
                  w[4]);
    }
}

TEST(NumberFormat, WritesStringsAndCharacters) {
    static constexpr const char rows[] =
        "%s|%% abc abc|%; %5s abc ~~abc; %-5s| abc abc~~|; %05s abc 00abc; %2s| abc ab|; "
        "%.2s abc ab; %5.2s abc ~~~ab; %3.3s abcdef ~~~abc; %.0s abc ~~~; %2.5s abcdef abcde; "
        "%2.5s abc abc; "
        "%-4.2s abcdef ab~~; %c%% xyz x%; %3c| x ~~x|; %-3c| x x~~|; %03c x 00x; %700s x !14";
    for (const auto &w : table(rows)) {
        SCOPED_TRACE(w[0] + " " + w[1]);
        EXPECT_EQ(fnum(english(), w[0], w[1].c_str()), w[2]);
    }
    EXPECT_EQ(fnum(english(), "%hs|", ""), "|");
    EXPECT_EQ(fnum(english(), "%c", ""), "!1");
    for (const char *format : {"%s", "%c", "%ls"})
        EXPECT_EQ(fnum(english(), format, nullptr), "!2");
    const auto units = wcs(u"abc");
    EXPECT_EQ(fnum(english(), "%-4ls|%.1Ls|%lc", units.data(), units.data(), 'x'), "abc |a|x");
    EXPECT_EQ(fnum(english(), "%lc", 0), "!1");
    EXPECT_EQ(fnum(english(), "%\xA4", 7), "!22");
    const std::string text(500, 'x');
    EXPECT_EQ(fnum(english(), "%s", text.c_str()), text);
    EXPECT_EQ(fnum(english(), text), text);
    // A character without a byte is the last thing told.
    for (const auto &w : table("a%lc%5d 2 14; a%lc%y 9 22; a%lc% 9 15; a%lcb 9 1; a%lc%lc 9 1")) {
        ko_mchar_t out[16];
        EXPECT_EQ(answered(english(), ko_mbsfnum(english(), out, whole(w[1]), mb(w[0].c_str()),
                                                 0x8140, 0x8141)),
                  answer(-1, whole(w[2])));
        EXPECT_EQ(out[0] << 8 | out[1], 'a' << 8) << w[0];
    }
}

TEST(NumberFormat, ServesMultibyteCodeSetsAndEmptyRecords) {
    const loaded_locale mixed(double_byte_object(false)), pairs(double_byte_object(true));
    ko_mchar_t out[32];
    memset(out, 0xAA, sizeof out);
    EXPECT_EQ(ko_mbsfnum(mixed, out, 6, mb("%'d%s"), 12, mb("\x81\x40\x81\x41")), 6);
    EXPECT_EQ(text(out), "12\x81\x40\x81\x41");
    out[6] = 0xAA;
    EXPECT_EQ(answered(mixed, ko_mbsfnum(mixed, out, 5, mb("%'d%s"), 12, mb("\x81\x40\x81\x41"))),
              answer(-1, KO_E2BIG));
    EXPECT_TRUE(out[0] == 0 && out[6] == 0xAA);
    EXPECT_EQ(answered(mixed, ko_mbsfnum(mixed, out, 9, mb("\x81\x20%d"), 12)),
              answer(-1, KO_EILSEQ));
    EXPECT_EQ(ko_mbsfnum(mixed, out, 9, mb("%s"), mb("\x81")), -1);
    ko_wchar_t units[32] = {};
    EXPECT_EQ(ko_wcsfnum(mixed, units, 31, wcs(u"%c").data(), mb("\x81\x40")), 1);
    EXPECT_EQ(wide(units), u"\u8140");

    const std::string format = encoded("%'.1f", true) + std::string(2, '\0');
    const std::string want = encoded("-1.23.456,5", true) + std::string(2, '\0');
    EXPECT_EQ(ko_mbsfnum(pairs, out, 22, mb(format.c_str()), -123456.5), 22);
    EXPECT_EQ(std::string_view(reinterpret_cast<char *>(out), 24), want);

    const own_record empty;
    EXPECT_EQ(ko_wcsfnum(empty, units, 31, wcs(u"%'d %+.1f").data(), -12345, 0.5), 10);
    EXPECT_EQ(wide(units), u"-12345 0.5");
    int value = 0;
    EXPECT_EQ(ko_wcspnum(empty, units, wcs(u"%d").data(), &value), 1);
    EXPECT_EQ(value, -12345);
}

// The part of the language that both have, at most 15 significant digits.
TEST(NumberFormat, AgreesWithPrintf) {
    std::mt19937_64 seeded(4711);
    const auto below = [&](int n) { return int(seeded() % unsigned(n)); };
    const loaded_locale &loc = english();
    ko_mchar_t out[room];
    char want[room];
    for (int i = 0; i < 100000; ++i) {
        const bool real = below(2), left = below(4) == 0;
        const char letter = real ? "efgEG"[below(5)] : "diuxXo"[below(6)];
        const bool is_signed = real || letter == 'd' || letter == 'i';
        std::string format = "<%";
        if (left) format += '-';
        if (is_signed && below(3) == 0) format += "+ "[below(2)];
        const bool zero = !left && below(3) == 0;
        if (real && below(4) == 0) format += '#';
        if (zero) format += '0';
        if (below(2)) format += std::to_string(1 + below(20));
        double value = ldexp(double(seeded() >> (11 + below(50))), below(2) ? -below(70) : 0);
        if (letter != 'f' && below(3) == 0) value *= pow(10, below(600) - 300);
        const int integer = int(seeded() >> (32 + below(31)));
        if (!isfinite(value)) continue;
        if (real && below(2) && value > 0) value = -value;
        const int whole = value != 0 ? int(floor(log10(fabs(value)))) + 1 : 1;
        const int most = letter == 'f' ? std::max(0, std::min(14 - whole, 40)) : 14;
        if (letter == 'f' && whole > 14) continue;
        if (real || !zero) format += "." + std::to_string(real ? below(most + 1) : 1 + below(8));
        format += letter;
        format += '>';
        const auto agree = [&](auto given) {
            const int n = ko_mbsfnum(loc, out, room - 1, mb(format.c_str()), given);
            const int len = snprintf(want, room, format.c_str(), given);
            if (letter == 'g') std::replace(want, want + len, 'e', 'E');
            return n == len && text(out) == want;
        };
        ASSERT_TRUE(real ? agree(value) : agree(is_signed ? integer : integer & INT_MAX))
            << text(out) << " for " << want << " by " << format;
    }
}

// ---- Parsing ------------------------------------------------------------------------------------

template <class... Pointers>
static std::string pnum(ko_lc_t loc, const char *in, const char *format, Pointers... pointers) {
    const auto wide_in = in_set(loc, in), wide_format = in_set(loc, format);
    const auto [n, error] =
        answered(loc, ko_wcspnum(loc, wide_in.data(), wide_format.data(), pointers...));
    EXPECT_EQ(answered(loc, ko_mbspnum(loc, narrow(wide_in).data(), narrow(wide_format).data(),
                                       pointers...)),
              answer(n ? n : -1, error));
    return std::to_string(n) + (error ? "!" + std::to_string(error) : "");
}

// A row's text, format and result, and what is then in two numbers.
template <class T> static void reads_numbers(ko_lc_t loc, const std::vector<std::string> &w) {
    T a = 77, b = 77;
    EXPECT_EQ(pnum(loc, w[0].c_str(), w[1].c_str(), &a, &b), w[2]);
    EXPECT_EQ(a, strtod(w[3].c_str(), nullptr));
    EXPECT_EQ(b, strtod(w[4].c_str(), nullptr));
}

TEST(NumberParse, ReadsIntegers) {
    static constexpr const char rows[] =
        "12~34 %d%d 2 12 34; 12~34 %d,%d 1!22 12 77; 12,34 %d,%d 2 12 34; ~12~~~34 %d~%d 2 12 34; "
        "-5 %d 1 -5 77; +5 %d 0!22 77 77; --5 %d 0!22 77 77; -~5 %d 0!22 77 77; -5 %u 0!22 77 77; "
        "abc %d 0!22 77 77; ~ %d 0!22 77 77; 1,234,567~8 %'d%d 2 1234567 8; "
        "-1,234 %'d 1 -1234 77; 12,34 %'d 0!7 77 77; 1,234 %'3d 0!7 77 77; 12345 %3d%d 2 123 45; "
        "-12345 %3d%d 2 -12 345; ~~~12 %3d 1 12 77; ~123 %-3d%d 2 12 3; ~~~5 %-3d 0!22 77 77; "
        "-5 %1d 0!22 77 77; 1~2 %*d%d 1 2 77; 1~2 %*d%d%d 1!22 2 77; 5 %*5d 0!22 77 77; "
        "50% %d%% 1 50 77; 50x %d%% 1!22 50 77; ff~0x1F %x%X 2 255 31; 777~1012~123 %o%b 2 511 5; "
        "123 %q 1 27 77; 12 %.5d 1 12 77; 99999999999 %d 1 -1 77; 5 % 0!15 77 77; "
        "5 %y 0!22 77 77; 5 %.%d 0!45 77 77; 5 %5 0!15 77 77; 5 %1$d 0!22 77 77";
    in_both_sets(rows, reads_numbers<int>);
    short pair[2] = {77, 77};
    EXPECT_EQ(pnum(english(), "-3", "%hd", pair), "1");
    EXPECT_TRUE(pair[0] == -3 && pair[1] == 77);
}

TEST(NumberParse, ReadsReals) {
    static constexpr const char rows[] =
        "1.5~-2e3 %f%g 2 1.5 -2000; 1.25 %3e%f 2 1.2 5; 1,234.5~6 %'f 1 1234.5 77; "
        "1,234.5,678 %'f 1 1234.5 77; 12,34.5 %'f 0!7 77 77; +1 %lf 1 1 77; - %f 0!22 77 77; "
        "~1 %-f 0!22 77 77; 1~2 %*f~%G 1 2 77";
    in_both_sets(rows, reads_numbers<double>);
}

TEST(NumberParse, ReadsStringsAndCharacters) {
    ko_mchar_t bytes[8] = {}, more[8] = {};
    EXPECT_EQ(pnum(english(), " abc def", "%s%4s", bytes, more), "2");
    EXPECT_EQ(text(bytes), "abc def"); // and the text stays
    EXPECT_EQ(text(more), "abc ");
    ko_wchar_t units[8] = {};
    EXPECT_EQ(pnum(english(), " abc", "%*s%2ls", units), "1");
    EXPECT_EQ(wide(units), u"ab");
    memset(bytes, 0xAA, sizeof bytes);
    EXPECT_EQ(pnum(english(), "abc", "%9ls", units), "1");
    EXPECT_EQ(wide(units), u"abc");
    EXPECT_EQ(pnum(english(), "a b", "%5c%lc", bytes, units), "2");
    EXPECT_TRUE(bytes[0] == 'a' && bytes[1] == 0xAA && units[0] == 'b');
    EXPECT_EQ(pnum(english(), "a", "%*c%c", bytes), "0!22");
    const loaded_locale mixed(double_byte_object(false));
    EXPECT_EQ(ko_mbspnum(mixed, mb("\x81\x40\x81\x41"), mb("%c%s"), bytes, more), 2);
    EXPECT_EQ(std::string_view(reinterpret_cast<char *>(bytes), 2), "\x81\x40");
    EXPECT_EQ(text(more), "\x81\x41");
    EXPECT_EQ(answered(mixed, ko_wcspnum(mixed, wcs(u"\x8150").data(), wcs(u"%s").data(), bytes)),
              answer(0, KO_EILSEQ));
    EXPECT_EQ(ko_mbspnum(mixed, mb("\x81"), mb("%c"), bytes), -1);
}

// ---- Both ---------------------------------------------------------------------------------------

TEST(NumberFormat, SurvivesEveryFailingAllocation) {
    const loaded_locale loc(double_byte_object(false));
    const std::string filler(200, 'x'), format = filler + "%s%d", in = filler + "12";
    std::vector<ko_mchar_t> out(2000);
    const auto writes = [&] {
        return ko_mbsfnum(loc, out.data(), 1999, mb(format.c_str()), filler.c_str(), 5);
    };
    int value;
    const auto reads = [&] {
        return ko_mbspnum(loc, mb(in.c_str()), mb((filler + "%d").c_str()), &value);
    };
    EXPECT_EQ(without_memory(loc, 401, writes), "-1!3 -1!3 -1!3 401!0 ");
    EXPECT_EQ(without_memory(loc, 1, reads), "-1!3 -1!3 1!0 ");
    const ko_lc_t bytes = english(); // loaded before the hooks count
    memory_hooks memory;
    EXPECT_GT(ko_mbsfnum(loc, out.data(), 255, mb("%'.2f %s"), 1234.5, "short"), 0);
    EXPECT_GT(ko_mbsfnum(bytes, out.data(), 1999, mb(format.c_str()), filler.c_str(), 5), 0);
    EXPECT_EQ(memory.calls, 0);
}

TEST(NumberFormat, RefusesNegativeRoomAndPlacesThatAreNull) {
    const ko_lc_t loc = english();
    ko_wchar_t out[4] = {1, 1, 1, 1};
    EXPECT_EQ(answered(loc, ko_wcsfnum(loc, out, -1, wcs(u"%d").data(), 1)), answer(-1, KO_E2BIG));
    EXPECT_EQ(out[0], 1);
    for (const char16_t *const format : {u"%d", u"%f", u"%c", u"%s", u"%ls"})
        EXPECT_EQ(answered(loc, ko_wcspnum(loc, wcs(u"1").data(), wcs(format).data(), nullptr)),
                  answer(0, KO_ENULL));
}
