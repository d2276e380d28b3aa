// Formatting of amounts of money, and reading them back.
#include "number/kovamnlib.h"
#include "number/number_records.h"
#include "support/answer.h"

#include <cmath>
#include <random>

using std::string;
using units = std::vector<ko_wchar_t>;

struct money_locale : loaded_locale {
    explicit money_locale(const char *symbol = "$", const char *positive = "+")
        : loaded_locale(with_conventions({.symbol = symbol, .mon_positive = positive})) {}
    monum &conventions() { return record(handle)->monum_info; }
    void prepare() { derive_money(record(handle)); } // after a change of conventions
    void lay_out(int positive_posn, int negative_posn, int sep, int precedes) {
        monum &m = conventions();
        m.p_sign_posn = positive_posn;
        m.n_sign_posn = negative_posn;
        m.p_sep_by_space = m.n_sep_by_space = sep;
        m.p_cs_precedes = m.n_cs_precedes = precedes;
        prepare();
    }
};

static string narrow(const ko_wchar_t *wcs) {
    string result;
    for (; *wcs; ++wcs)
        result += char(*wcs);
    return result;
}

static string with_error(ko_lc_t loc, const string &result) {
    const int error = taken_error(loc);
    return error ? result + "!" + std::to_string(error) : result;
}

// What is written, followed by "!" and the error's number after a failure. Bytes must be the same.
template <class... V> static string fmon(ko_lc_t loc, const string &format, V... values) {
    ko_wchar_t out[2000];
    const int n = ko_wcsfmon(loc, out, 1999, in_set(loc, format).data(), values...);
    const string result = narrow(out), all = with_error(loc, result);
    EXPECT_EQ(n, all == result ? int(result.size()) : -1) << format;
    if (!record(loc)->exp.single_byte) return all;
    ko_mchar_t bytes[2000];
    EXPECT_EQ(ko_mbsfmon(loc, bytes, 1999, mb(format.c_str()), values...), n) << format;
    EXPECT_EQ(with_error(loc, text(bytes)), all) << format;
    return all;
}
// What is read, ";" behind each amount.
static string pmon(ko_lc_t loc, const string &format, const string &text) {
    double v[3] = {};
    const int n =
        ko_wcspmon(loc, in_set(loc, text).data(), in_set(loc, format).data(), v, v + 1, v + 2);
    string result;
    char one[40];
    for (int i = 0; i < n; i++) {
        snprintf(one, sizeof one, "%.15g;", v[i]);
        result += one;
    }
    return with_error(loc, result);
}

static string replaced(string text, const string &from, const string &to) {
    const size_t at = text.find(from);
    return at == text.npos ? text : text.replace(at, from.size(), to);
}

// A negative amount, "V" for its digits, by sign_posn (a line each), sep_by_space and whether the
// symbol comes last.
static const char *const layouts[30] = {
    "($V)", "(V$)", "($ V)", "(V $)", "($V)", "(V$)", //
    "-$V",  "-V$",  "-$ V",  "-V $",  "- $V", "-V$",  //
    "$V-",  "V$-",  "$ V-",  "V $-",  "$V-",  "V$ -", //
    "-$V",  "V-$",  "-$ V",  "V -$",  "- $V", "V- $", //
    "$-V",  "V$-",  "$- V",  "V $-",  "$ -V", "V$ -",
};

TEST(Money, LaysOutAmountsByEveryKeyAndFlag) {
    money_locale loc;
    for (int key = 0; key < 30; key++) {
        const int posn = key / 6;
        loc.lay_out(posn, posn, key / 2 % 3, 1 - key % 2);
        const string own = layouts[key], opened = layouts[6 + key % 6], pad(13 - own.size(), ' ');
        const string kinds[] = {own,    posn ? own : opened, layouts[key % 6],
                                opened, pad + own,           own + pad};
        // A format, the amount's sign, the kind of layout, and what is replaced in it.
        for (const auto &w : table(
                 "%n - 0; %n + 0 -; %+n - 1; %+n + 1 - +; %(n - 2; %+(n - 2; %(+n - 3; %!n - 0 $; "
                 "%^n - 0; %20n - 4; %-20n - 5; %=*#6n - 0 V **V; %i - 0 $ USD~")) {
            SCOPED_TRACE(w[0] + " of key " + std::to_string(key));
            const bool below = w[1] == "-";
            string want = kinds[whole(w[2])];
            if (w.size() > 3) want = replaced(want, w[3], w.size() > 4 ? w[4] : "");
            want = replaced(want, "V", w[0][1] == '^' ? "1234.50" : "1,234.50");
            EXPECT_EQ(fmon(loc, w[0], below ? -1234.5 : 1234.5), want);
            const bool hidden = !posn && !below && want[0] == '(';
            EXPECT_EQ(pmon(loc, w[0], want), below || hidden ? "-1234.5;" : "1234.5;");
        }
    }
    static const int unknown[] = {5, 0, 1, -1, 0, 1, 1, 3, 1, 0, 10, 1, 1, 1, 2};
    for (const int *u = unknown; u < std::end(unknown); u += 3) {
        loc.lay_out(u[0], u[0], u[1], u[2]);
        EXPECT_EQ(fmon(loc, "<%5n>", 1.0), "<     >");
        EXPECT_EQ(pmon(loc, "%n", "$1.00"), "!22");
    }
}

// What was written before a failure stays. Format, amount and what is written.
TEST(Money, FormatsByEveryDirective) {
    static const char rows[] =
        "100%%~%n 1 100%~$1.00; %i -1 -USD~1.00; %2n 7 $7.00; %#0n 7 $7.00; %.0n 0.5 $1; %.n 2.5 "
        "$3; %n 9.995 $10.00; %n 999.999 $1,000.00; %n -0.001 -$0.00; %n -0.0 $0.00; %n nan "
        "$nan; %n -inf -$inf; %#5n inf ~$~~~inf; %.1n 999999999999999872 "
        "$999,999,999,999,999,872.0; %.1n 9007199254740991.5 $9,007,199,254,740,992.0; %=*#5n "
        "1234.5 ~$*1,234.50; %=*#5n 123456 ~$123,456.00; %=*^#5n 12 ~$***12.00; %==#3.0n 7 "
        "~$==7; %=0#7.0n 7 ~$000000007; %-(10#3n. -7 ($~~7.00)~.; %(#5n 12 ~$~~~~12.00~; %(#5n "
        "-12 ($~~~~12.00); a%x 1 a!20; a%5. 1 a!20; a%= 1 a!20; a% 1 a!20; a%-% 1 a!20; "
        "a%2147483647n 1 a!14; a%99999999999999999999n 1 a!14; a%#99999999999999999999n 1 a!14";
    money_locale loc("$", "");
    for (const auto &w : table(rows))
        EXPECT_EQ(fmon(loc, w[0], strtod(w[1].c_str(), nullptr)), w[2]) << w[0] << " of " << w[1];
    EXPECT_EQ(fmon(loc, "%.99999999999999999999n", 0.0), "$0." + string(100, '0'));
    EXPECT_EQ(fmon(money_locale("PESETA_", ""), "%n%%%n", -1e15, 1.5),
              "-PESETA_1,000,000,000,000,000.00%PESETA_1.50");
    EXPECT_EQ(fmon(money_locale("PESETAS_", ""), "%n,%i", -1.0, 2.0), "-PESETAS_1.00,USD 2.00");
}

TEST(Money, AlignsByColumnsAndLeavesBlanksOut) {
    money_locale loc("\xA4", "");
    loc.conventions().p_cs_precedes = 0;
    EXPECT_EQ(fmon(loc, "%#3.0n", 7.0), "     7\xA4");
    EXPECT_EQ(fmon(loc, "%#3.0n", -7.0), "-\xA4  7  ");
    money_locale spaced("$", "");
    spaced.lay_out(1, 1, 1, 1);
    EXPECT_EQ(fmon(spaced, "%#5n", 12.0), " $    12.00"); // the fill is space enough
    EXPECT_EQ(fmon(spaced, "%#5n", 12345.0), " $ 12,345.00");
    spaced.lay_out(1, 1, 2, 1);
    EXPECT_EQ(fmon(spaced, "%#5n", -12.0), "- $    12.00"); // not next to the value
    money_locale unprintable("\xA5", "");                   // has no width: counts as one column
    EXPECT_EQ(fmon(unprintable, "%#2n", 1.0), " \xA5 1.00");
    loc.lay_out(9, 1, 0, 1); // no layout for positive amounts: the padding of the other
    EXPECT_EQ(fmon(loc, "%#2n|", 1.0), "   |");
}

TEST(Money, FlagsLastForTheRestOfTheCall) {
    money_locale loc("$", "+");
    EXPECT_EQ(fmon(loc, "%(n %n", -1.0, -2.0), "($1.00) ($2.00)");
    EXPECT_EQ(fmon(loc, "%n", -1.0), "-$1.00");
    EXPECT_EQ(pmon(loc, "%(n %n", "($1.00) ($2.00)"), "-1;-2;");
    loc.lay_out(0, 0, 0, 1);
    EXPECT_EQ(fmon(loc, "%n %+n %n %n", 1.0, 2.0, 3.0, -4.0), "($1.00) +$2.00 $3.00 -$4.00");
}

TEST(Money, StandsInForWhatTheLocaleLacks) {
    money_locale loc;
    monum &m = loc.conventions();
    m.frac_digits = -1;
    m.int_frac_digits = monetary_absent;
    loc.prepare();
    EXPECT_EQ(fmon(loc, "%n%i", 1.0, 2.0), "$1.00USD 2.00");
    m.frac_digits = 7;
    loc.prepare();
    EXPECT_EQ(fmon(loc, "%n", 1.5), "$1.5000000");
    static const char *const groups[] = {"$1234567890", "$12,3456,7890", "$1,23,45,67,890",
                                         "$1234567,890", "$1234567,89,0"};
    static const int sizes[] = {0, 0, 0, 0, 1, 4, 0, 0, 2, 3, 2, 0, 2, 3, -1, 0, 3, 1, 2, 0};
    static constexpr size_t sizes_of_nine[] = {10, 12, 13, 11, 12}; // digits
    for (size_t i = 0; i < std::size(groups); i++) {
        std::copy_n(sizes + 4 * i, 4, m.group_mon);
        EXPECT_EQ(fmon(loc, "%.0n", 1234567890.0), groups[i]);
        EXPECT_EQ(pmon(loc, "%.0n", groups[i]), "1234567890;");
        EXPECT_EQ(fmon(loc, "%=*#10.0n", 7.0).size(), string(groups[i]).size() + 1) << groups[i];
        EXPECT_EQ(fmon(loc, "%=*#9.0n", 7.0).size(), sizes_of_nine[i] + 1);
    }
    // Marks that are no texts of the code set.
    for (const auto mark : {&monum::w_mon_decimal_point, &monum::w_currency_symbol,
                            &monum::w_thousands_sep, &monum::w_negative_sign}) {
        const auto text = std::exchange(m.*mark, nullptr);
        loc.prepare();
        EXPECT_EQ(fmon(loc, "a%n", -1234.0) + pmon(loc, "%n", "-$1,234"), "a!1!1");
        m.*mark = text;
    }
    const auto plus = std::exchange(m.w_positive_sign, nullptr);
    EXPECT_EQ(fmon(loc, "%#1n", -1.0) + fmon(loc, "%+n", 1.0) + pmon(loc, "%n", "$1"), "!1!1!1");
    m.w_positive_sign = plus;
    const own_record empty;
    EXPECT_EQ(fmon(empty, "<%3n>", 1.0), "<   >");
    monum &none = record(empty)->monum_info;
    none.p_cs_precedes = none.p_sep_by_space = 0;
    none.p_sign_posn = 1;
    EXPECT_EQ(fmon(empty, "%n", 1234.0), "1234.00");
    EXPECT_EQ(pmon(empty, "%n", "1234.00"), "1234;");
    ko_mchar_t bytes[8]; // there is no code set for them
    EXPECT_EQ(answered(empty, ko_mbsfmon(empty, bytes, 7, mb("%n"), 1.0)), answer(-1, KO_EILSEQ));
    // What is prepared follows the category.
    const money_locale other("EUR", "");
    ko_free_category(loc, KO_LC_MONETARY);
    EXPECT_EQ(fmon(loc, "<%n>", 1.0), "<>");
    ASSERT_EQ(ko_copy_cat(loc, other, KO_LC_MONETARY), 0);
    EXPECT_EQ(fmon(loc, "%n", 1234.0), "EUR1,234.00");
    ko_free_category(loc, KO_LC_NUMERIC);
    EXPECT_EQ(fmon(loc, "%n", 1234.0), "EUR1234.00");
}

// The rounded amount by way of text: "%f", one digit more than asked for, halves up.
static string rounded(double amount, int right) {
    char text[400];
    snprintf(text, sizeof text, "%f", std::fabs(amount));
    string digits = text;
    digits.resize(digits.find('.') + 1 + size_t(right) + 1, '0');
    bool carry = digits.back() >= '5';
    digits.pop_back();
    for (size_t i = digits.size(); carry && i-- > 0;) {
        if (digits[i] == '.') continue;
        carry = digits[i] == '9';
        digits[i] = carry ? '0' : char(digits[i] + 1);
    }
    if (carry) digits.insert(0, "1");
    if (!right) digits.pop_back();
    return digits;
}

// Conventions and a format, at random, with its right precision. No parentheses around both, which
// would hide the sign.
static string random_format(money_locale &loc, std::mt19937 &random, int *right) {
    const auto below = [&](int n) { return int(random() % unsigned(n)); };
    monum &m = loc.conventions();
    loc.lay_out(below(5), below(5), below(3), below(2));
    m.n_sep_by_space = below(3);
    m.n_cs_precedes = below(2);
    string format = "%";
    for (const char *flag : {"!", "(", "+", "-", "^", "=*", "=0", "=_"})
        if (!below(4)) format += flag;
    if (!m.n_sign_posn || format.find('(') != string::npos) m.p_sign_posn += !m.p_sign_posn;
    loc.prepare();
    if (!below(3)) format += std::to_string(1 + below(40));
    if (!below(3)) format += "#" + std::to_string(1 + below(12));
    *right = 2;
    if (!below(2)) format += "." + std::to_string(*right = below(7));
    return format + (below(3) ? 'n' : 'i');
}

TEST(Money, ReadsBackWhatItRoundsAndWritesInTheSizeItNeeds) {
    money_locale loc;
    std::mt19937 random(43);
    for (int i = 0; i < 150000; i++) {
        int right;
        const string format = random_format(loc, random, &right);
        const double scale = std::pow(10, int(random() % 10));
        double amount = (double(random()) / 4294967296 - 0.5) * scale;
        if (i % 2) amount = std::nearbyint(amount * 2000) / 2000 + (i % 4 == 1 ? 0 : 5e-7);
        SCOPED_TRACE(format + " of " + std::to_string(amount) + ", case " + std::to_string(i));
        const string written = fmon(loc, format, amount);
        const units spelled = in_set(loc, format);
        double got = NAN;
        ASSERT_EQ(ko_wcspmon(loc, in_set(loc, written).data(), spelled.data(), &got), 1) << written;
        ASSERT_EQ(got, std::copysign(strtod(rounded(amount, right).c_str(), nullptr), amount));
        const int size = int(written.size());
        units out(written.size() + 3, 0xFFFF);
        ASSERT_EQ(ko_wcsfmon(loc, out.data(), size, spelled.data(), amount), size);
        ASSERT_EQ(narrow(out.data()), written);
        ASSERT_EQ(out[written.size() + 1], 0xFFFF);
        out.assign(out.size(), 0xFFFF);
        ASSERT_EQ(ko_wcsfmon(loc, out.data(), size - 1, spelled.data(), amount), -1);
        ASSERT_EQ(out[0], 0);
        ASSERT_EQ(out[1], 0xFFFF);
        ASSERT_EQ(with_error(loc, ""), "!14");
    }
}

// Format, text and what is read.
TEST(Money, ReadsAmountsAndTellsWhereTheyEnd) {
    static const char rows[] =
        "%n $1,234.5 1234.5;; %n 1234.5678 1234.5678;; %!n $1 !22; %i USD~7 7;; %n ~~-$5 -5;; %n "
        "-5 -5;; %n +$5 5;; %(n ($5) -5;; %(n ($5 !22; %n ($5) !22; %n E5 !22; %n $ !22; %n ~ "
        "!22; %n $.5 !22; %n $1,23 !22; %n $1234,567 !22; %n $12,345678 !22; %n $1,,234 !22; %n "
        "$1, 1;; %n. $1. 1;; %^n $1,234 1;; %.2n $1.234 !22; %.0n $1.5 1;; %=*n $~**7 7;; %-8n%n "
        "$7.00~~~$8 7;8;; %-8n~%n $7.00~~~~~~~$8 7;8;; %%%n%% %$7% 7;; %n~to~%n $7~~~to~$8 7;8;; "
        "%n,%n $7;$8 7;!22; %n,%n $7, 7;!22; %n%x $7$8 7;!20; % $7 !20; %n "
        "$12345678901234567890.25 1.23456789012346e+19;";
    money_locale loc;
    const auto read = [&](const char *all) {
        for (const auto &w : table(all))
            EXPECT_EQ(pmon(loc, w[0], w[1]), w[2]) << w[0] << " of " << w[1];
    };
    read(rows);
    loc.lay_out(1, 1, 1, 0); // the symbol behind: missing, or another
    read("%n 5.00 5;; %n 5.00~$ 5;; %n 5.00~E !22; %i 5.00~USD 5;; %n,~%n 5.00,~6.00$ 5;6;");
    EXPECT_EQ(pmon(loc, "%n\t%n", "7.00$ \t8.00\t$"), "7;8;") << "blanks and spaces of a class";
    const string longest(255, '1');
    EXPECT_NE(pmon(loc, "%n", longest), "!22");
    EXPECT_EQ(pmon(loc, "%n", longest + "1"), "!22");
    loc.lay_out(1, 2, 0, 1);
    read("%n $5.00- -5;"); // the sign behind
    // Nothing shows a sign of blanks.
    units blank = {' ', 0};
    const auto minus = std::exchange(loc.conventions().w_negative_sign, blank.data());
    for (const int posn : {1, 2}) {
        loc.lay_out(1, posn, 0, 1);
        read("%n $5.00 5;; %n ~$5.00~ 5;; %(n ($5.00) -5;");
    }
    loc.lay_out(1, 1, 0, 1);
    loc.conventions().w_negative_sign = minus;
    // One symbol between groups and before the decimals.
    monum &m = loc.conventions();
    const auto point = std::exchange(m.w_mon_decimal_point, m.w_thousands_sep);
    read("%n $1,234,56 1234.56;; %n $1,234,567 1234567;");
    m.w_mon_decimal_point = point;
}

TEST(Money, RefusesNullAndKeepsToItsMemory) {
    const money_locale loc;
    ko_wchar_t out[8] = {1};
    ko_mchar_t bytes[8] = {1};
    double amount;
    EXPECT_EQ(
        answered(loc, ko_wcspmon(loc, in_set(loc, "$1").data(), in_set(loc, "%n").data(), nullptr)),
        answer(0, KO_ENULL));
    EXPECT_EQ(ko_wcsfmon(loc, out, 0, in_set(loc, "").data()), 0);
    EXPECT_EQ(out[0], 0);
    // A literal needs room for the terminator too, an amount does not.
    EXPECT_EQ(ko_wcsfmon(loc, out, 1, in_set(loc, "a").data()), -1);
    EXPECT_EQ(ko_wcsfmon(loc, out, 2, in_set(loc, "a").data()), 1);
    EXPECT_EQ(ko_mbsfmon(loc, bytes, 5, mb("%n"), 1.0), 5);
    *ko_ext_errno(loc) = 0;
    EXPECT_EQ(ko_mbsfmon(loc, bytes, 6, mb("%n%n"), 1.0, 2.0), -1);
    EXPECT_EQ(with_error(loc, text(bytes)), "$1.00!14");
    EXPECT_EQ(ko_mbspmon(loc, mb("EUR"), mb("%n"), &amount), -1);
    EXPECT_EQ(ko_mbsfmon(loc, bytes, -1, mb("%n"), 1.0), -1);
}

TEST(Money, SurvivesEveryFailingAllocation) {
    const money_locale loc;
    const string padding(200, ' '), format = padding + "%1n", amount = padding + "$5.00";
    std::vector<ko_mchar_t> out(300);
    double value;
    const auto writes = [&] { return ko_mbsfmon(loc, out.data(), 299, mb(format.c_str()), 5.0); };
    const auto reads = [&] {
        return ko_mbspmon(loc, mb(amount.c_str()), mb(format.c_str()), &value);
    };
    // That of the output buffer has no number.
    EXPECT_EQ(without_memory(loc, 205, writes), "-1!0 -1!3 205!0 ");
    EXPECT_EQ(text(out.data()), amount);
    EXPECT_EQ(without_memory(loc, 1, reads), "-1!3 -1!3 1!0 ");
}
