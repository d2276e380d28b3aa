// Numbers and money, formatted and parsed with the locale's grouping, beside the C library and ICU.
// The C library reads grouped numbers in scanf alone; the usual way round it, to copy the digits
// and convert the copy, has a column of its own. ICU works on UTF-16, and gets and gives that.
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

#pragma GCC diagnostic ignored "-Wformat" // the C library's flag for grouping is of POSIX alone

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
    number_format icu, currency;
    std::vector<job> jobs;
    explicit setting(benchmark::State &state)
        : loc(bench_locale(state, latin1.spec)), libc(peer_locale(latin1.libc)),
          before(libc ? uselocale(libc) : nullptr), icu(nullptr, unum_close),
          currency(nullptr, unum_close) {
        UErrorCode status = U_ZERO_ERROR;
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

// A job done by every contender over all values; the one that does not agree with ours is an error.
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
        if (run() != ours) state.SkipWithError((std::string(name) + " reads otherwise").c_str());
        all.push_back({name, run});
    }
    void start() { compare(state, std::move(all), values); }
};

// ---- Parsing ------------------------------------------------------------------------------------

// The digits of a text, and a point for its decimal symbol.
void strip(char *to, const char *from) {
    for (; *from; ++from)
        if (*from != '.') *to++ = *from == ',' ? '.' : *from;
    *to = 0;
}

void parse_integer(benchmark::State &state) {
    setting s(state);
    if (!s.loc) return;
    contest c{state, s};
    c.add("kova", true,
          [&](const job &j) { return ko_mbstol(s.loc, mb(j.integer), nullptr, 10, 1); });
    c.add("scanf", s.libc, [](const job &j) {
        long value = 0;
        return sscanf(j.integer, "%'ld", &value) == 1 ? static_cast<double>(value) : -1;
    });
    c.add("strtol", true, [](const job &j) {
        char copy[text_room];
        strip(copy, j.integer);
        return static_cast<double>(strtol(copy, nullptr, 10));
    });
    c.add("icu", true, [&](const job &j) {
        UErrorCode status = U_ZERO_ERROR;
        return unum_parse(s.icu.get(), j.u_integer, -1, nullptr, &status);
    });
    c.start();
}
BENCHMARK(parse_integer)->Apply(paired_rounds);

void parse_real(benchmark::State &state) {
    setting s(state);
    if (!s.loc) return;
    const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    contest c{state, s};
    c.add("kova", true, [&](const job &j) { return ko_mbstod(s.loc, mb(j.real), nullptr, 1); });
    c.add("scanf", s.libc, [](const job &j) {
        double value = 0;
        return sscanf(j.real, "%'lf", &value) == 1 ? value : -1;
    });
    c.add("strtod", true, [plain](const job &j) {
        char copy[text_room];
        strip(copy, j.real);
        return strtod_l(copy, nullptr, plain);
    });
    c.add("icu", true, [&](const job &j) {
        UErrorCode status = U_ZERO_ERROR;
        return unum_parseDouble(s.icu.get(), j.u_real, -1, nullptr, &status);
    });
    c.start();
    freelocale(plain);
}
BENCHMARK(parse_real)->Apply(paired_rounds);

} // namespace
