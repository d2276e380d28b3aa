// Numbers and money, formatted and parsed with the locale's grouping, beside the C library and ICU.
// The C library reads grouped numbers only with scanf; in separate rows its plain conversions read
// a copy without separators, which are not checked. ICU reads and writes UTF-16.
#include "peers.h"
#include "text.h"

#include <unicode/unum.h>
#include <unicode/ustring.h>

#include <iterator>
#include <math.h>
#include <memory>
#include <monetary.h>
#include <stdio.h>
#include <string.h>

#pragma GCC diagnostic ignored "-Wformat" // the C library's grouping flag is POSIX, not C

namespace {

constexpr int values = 64, text_room = 64;
using number_format = std::unique_ptr<UNumberFormat, decltype(&unum_close)>;

// Amounts of two decimals and of three to nine digits before them.
std::vector<double> amounts() {
    std::vector<double> result;
    text_random random = {1};
    for (int i = 0; i < values; ++i) {
        const unsigned whole = random.below(10) * 100000000 + random.below(100000000);
        result.push_back(whole / pow(10, random.below(7)));
        result.back() = round(result.back() * 100) / 100;
    }
    return result;
}

// One value in all the forms that the rows need.
struct job {
    double amount;
    ko_long_t whole;
    char integer[text_room], real[text_room]; // grouped as the locale does
    UChar u_integer[text_room], u_real[text_room];
};

struct setting {
    ko_lc_t loc;
    locale_t libc, before;
    number_format whole, icu, currency;
    std::vector<job> jobs;
    explicit setting(benchmark::State &state)
        : loc(bench_locale(state, latin1.spec)), libc(peer_locale(latin1.libc)),
          before(libc ? uselocale(libc) : nullptr), whole(nullptr, unum_close),
          icu(nullptr, unum_close), currency(nullptr, unum_close) {
        UErrorCode status = U_ZERO_ERROR;
        whole.reset(unum_open(UNUM_DECIMAL, nullptr, 0, "de_DE", nullptr, &status));
        icu.reset(unum_open(UNUM_DECIMAL, nullptr, 0, "de_DE", nullptr, &status));
        unum_setAttribute(icu.get(), UNUM_MIN_FRACTION_DIGITS, 2);
        unum_setAttribute(icu.get(), UNUM_MAX_FRACTION_DIGITS, 2);
        currency.reset(unum_open(UNUM_CURRENCY, nullptr, 0, "de_DE", nullptr, &status));
        for (const double amount : amounts())
            add(amount);
    }
    void add(double amount) {
        job j = {.amount = amount, .whole = static_cast<ko_long_t>(amount)};
        UErrorCode status = U_ZERO_ERROR;
        const int n = unum_formatDouble(icu.get(), amount, j.u_real, text_room, nullptr, &status);
        u_austrncpy(j.real, j.u_real, text_room);
        memcpy(j.integer, j.real, static_cast<size_t>(n - 3));
        u_uastrcpy(j.u_integer, j.integer);
        jobs.push_back(j);
    }
    ~setting() {
        if (libc) {
            uselocale(before);
            freelocale(libc);
        }
        ko_lc_unload(loc);
    }
    setting(const setting &) = delete;
};

const ko_mchar_t *mb(const char *text) { return reinterpret_cast<const ko_mchar_t *>(text); }

// A job that every contender does on all values; a result that differs from ours is an error.
struct contest {
    benchmark::State &state;
    setting &s;
    std::vector<contender> all = {};
    double ours = 0;
    template <class Work> void add(const char *name, bool present, Work work) {
        const auto run = [this, work] {
            double sum = 0;
            for (job &j : s.jobs)
                sum += work(j);
            benchmark::DoNotOptimize(sum);
            return sum;
        };
        if (!present) return;
        if (all.empty()) ours = run();
        if (run() != ours) state.SkipWithError((std::string(name) + " does not agree").c_str());
        all.push_back({name, run});
    }
    void start() { compare(state, std::move(all), values); }
};

// ---- Formatting ----

// Results are lengths, so that contenders with different texts disagree.
struct text_out {
    char text[text_room];
    UChar units[text_room]; // wide characters of Latin-1 are those of UTF-16
    ko_mchar_t *mb() { return reinterpret_cast<ko_mchar_t *>(text); }
    ko_wchar_t *wide() { return reinterpret_cast<ko_wchar_t *>(units); }
};
constexpr int most = text_room - 1;
constexpr ko_wchar_t integer_format[] = {'%', '\'', 'd', 0};
constexpr ko_wchar_t real_format[] = {'%', '\'', '.', '2', 'f', 0};
constexpr ko_wchar_t money_format[] = {'%', 'n', 0};

void format_integer(benchmark::State &state, bool wide) {
    setting s(state);
    if (!s.loc) return;
    text_out out;
    contest c{state, s};
    c.add("kova", !wide, [&](const job &j) {
        return ko_mbsfnum(s.loc, out.mb(), most, mb("%'d"), static_cast<int>(j.whole));
    });
    c.add("kova", wide, [&](const job &j) {
        return ko_wcsfnum(s.loc, out.wide(), most, integer_format, static_cast<int>(j.whole));
    });
    c.add("libc", s.libc, [&](const job &j) {
        return snprintf(out.text, text_room, "%'d", static_cast<int>(j.whole));
    });
    c.add("icu", true, [&](const job &j) {
        UErrorCode status = U_ZERO_ERROR;
        return unum_format(s.whole.get(), j.whole, out.units, text_room, nullptr, &status);
    });
    c.start();
}
BENCHMARK_CAPTURE(format_integer, bytes, false)->Apply(paired_rounds);
BENCHMARK_CAPTURE(format_integer, wide, true)->Apply(paired_rounds);

void format_real(benchmark::State &state, bool wide) {
    setting s(state);
    if (!s.loc) return;
    text_out out;
    contest c{state, s};
    c.add("kova", !wide,
          [&](const job &j) { return ko_mbsfnum(s.loc, out.mb(), most, mb("%'.2f"), j.amount); });
    c.add("kova", wide,
          [&](const job &j) { return ko_wcsfnum(s.loc, out.wide(), most, real_format, j.amount); });
    c.add("libc", s.libc,
          [&](const job &j) { return snprintf(out.text, text_room, "%'.2f", j.amount); });
    c.add("icu", true, [&](const job &j) {
        UErrorCode status = U_ZERO_ERROR;
        return unum_formatDouble(s.icu.get(), j.amount, out.units, text_room, nullptr, &status);
    });
    c.start();
}
BENCHMARK_CAPTURE(format_real, bytes, false)->Apply(paired_rounds);
BENCHMARK_CAPTURE(format_real, wide, true)->Apply(paired_rounds);

// The contenders' symbols differ, "EUR" or a sign, so only success is compared.
void format_money(benchmark::State &state, bool wide) {
    setting s(state);
    if (!s.loc) return;
    text_out out;
    contest c{state, s};
    c.add("kova", !wide,
          [&](const job &j) { return ko_mbsfmon(s.loc, out.mb(), most, mb("%n"), j.amount) < 0; });
    c.add("kova", wide, [&](const job &j) {
        return ko_wcsfmon(s.loc, out.wide(), most, money_format, j.amount) < 0;
    });
    c.add("libc", s.libc,
          [&](const job &j) { return strfmon(out.text, text_room, "%n", j.amount) < 0; });
    c.add("icu", true, [&](const job &j) {
        UErrorCode status = U_ZERO_ERROR;
        unum_formatDouble(s.currency.get(), j.amount, out.units, text_room, nullptr, &status);
        return U_FAILURE(status);
    });
    c.start();
}
BENCHMARK_CAPTURE(format_money, bytes, false)->Apply(paired_rounds);
BENCHMARK_CAPTURE(format_money, wide, true)->Apply(paired_rounds);

// ---- Parsing ----

// The digits of a text, and a point for its decimal symbol.
void strip(char *to, const char *from) {
    for (; *from; ++from)
        if (*from != '.') *to++ = *from == ',' ? '.' : *from;
    *to = 0;
}

void parse_integer(benchmark::State &state, bool stripped) {
    setting s(state);
    if (!s.loc) return;
    contest c{state, s};
    c.add("kova", true,
          [&](const job &j) { return ko_mbstol(s.loc, mb(j.integer), nullptr, 10, 1); });
    c.add("scanf", s.libc && !stripped, [](const job &j) {
        long value = 0;
        return sscanf(j.integer, "%'ld", &value) == 1 ? static_cast<double>(value) : -1;
    });
    c.add("icu", !stripped, [&](const job &j) {
        UErrorCode status = U_ZERO_ERROR;
        return unum_parse(s.whole.get(), j.u_integer, -1, nullptr, &status);
    });
    c.add("strtol", stripped, [](const job &j) {
        char copy[text_room];
        strip(copy, j.integer);
        return static_cast<double>(strtol(copy, nullptr, 10));
    });
    c.start();
}
BENCHMARK_CAPTURE(parse_integer, grouped, false)->Apply(paired_rounds);
BENCHMARK_CAPTURE(parse_integer, stripped, true)->Apply(paired_rounds);

void parse_real(benchmark::State &state, bool stripped) {
    setting s(state);
    if (!s.loc) return;
    const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    contest c{state, s};
    c.add("kova", true, [&](const job &j) { return ko_mbstod(s.loc, mb(j.real), nullptr, 1); });
    c.add("scanf", s.libc && !stripped, [](const job &j) {
        double value = 0;
        return sscanf(j.real, "%'lf", &value) == 1 ? value : -1;
    });
    c.add("icu", !stripped, [&](const job &j) {
        UErrorCode status = U_ZERO_ERROR;
        return unum_parseDouble(s.icu.get(), j.u_real, -1, nullptr, &status);
    });
    c.add("strtod", stripped, [plain](const job &j) {
        char copy[text_room];
        strip(copy, j.real);
        return strtod_l(copy, nullptr, plain);
    });
    c.start();
    freelocale(plain);
}
BENCHMARK_CAPTURE(parse_real, grouped, false)->Apply(paired_rounds);
BENCHMARK_CAPTURE(parse_real, stripped, true)->Apply(paired_rounds);

} // namespace
