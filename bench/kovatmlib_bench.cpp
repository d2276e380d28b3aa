// Writing times by a format: with names, by the locale's own format, in a two-byte code set; beside
// strftime_l and ICU, which writes UTF-16 by a precompiled pattern.
#include "peers.h"
#include "text.h"

#include <unicode/ucnv.h>
#include <unicode/udat.h>

#include <memory>
#include <string.h>
#include <time.h>

namespace {

constexpr int values = 64, room = 128;
using date_format = std::unique_ptr<UDateFormat, decltype(&udat_close)>;

struct job {
    tm parts;
    ko_tm_t ours;
    UDate date;
};

// A format in the code set of its locale, and the equivalent ICU pattern in that code set.
struct writing {
    const code_set &set;
    const char *icu_locale, *format, *pattern;
};

job make_job(text_random &random) {
    const time_t when = static_cast<time_t>(random.below(20000)) * 86400 + random.below(86400);
    job j = {};
    gmtime_r(&when, &j.parts);
    j.ours.tm_sec = j.parts.tm_sec;
    j.ours.tm_min = j.parts.tm_min;
    j.ours.tm_hour = j.parts.tm_hour;
    j.ours.tm_mday = j.parts.tm_mday;
    j.ours.tm_mon = j.parts.tm_mon;
    j.ours.tm_year = j.parts.tm_year;
    j.ours.tm_wday = j.parts.tm_wday;
    j.ours.tm_yday = j.parts.tm_yday;
    j.date = static_cast<double>(when) * 1000;
    return j;
}

struct setting {
    ko_lc_t loc;
    locale_t libc;
    date_format icu;
    std::vector<job> jobs;
    setting(benchmark::State &state, const writing &w)
        : loc(bench_locale(state, w.set.spec)), libc(peer_locale(w.set.libc)),
          icu(nullptr, udat_close) {
        UErrorCode status = U_ZERO_ERROR;
        UConverter *converter = ucnv_open(w.set.icu, &status);
        UChar pattern[room];
        ucnv_toUChars(converter, pattern, room, w.pattern, -1, &status);
        ucnv_close(converter);
        static const UChar utc[] = {'U', 'T', 'C', 0};
        icu.reset(
            udat_open(UDAT_PATTERN, UDAT_PATTERN, w.icu_locale, utc, -1, pattern, -1, &status));
        if (U_FAILURE(status)) state.SkipWithError("ICU lacks the code set or the locale");
        text_random random = {7};
        for (int i = 0; i < values; ++i)
            jobs.push_back(make_job(random));
    }
    ~setting() {
        if (libc) freelocale(libc);
        ko_lc_unload(loc);
    }
    setting(const setting &) = delete;
};

size_t ours(const setting &s, const writing &w, const job &j, char *out) {
    const int n = ko_mbsftime(s.loc, reinterpret_cast<ko_mchar_t *>(out), room,
                              reinterpret_cast<const ko_mchar_t *>(w.format), &j.ours);
    return n > 0 ? static_cast<size_t>(n) : 0;
}

void write_times(benchmark::State &state, const writing &w) {
    setting s(state, w);
    if (!s.loc) return;
    char a[room], b[room];
    for (const job &j : s.jobs) {
        if (!s.libc) break;
        const size_t n = ours(s, w, j, a);
        // The formats of sources end in the name of the time zone, which the library does not
        // write.
        const size_t m = strftime_l(b, room, w.format, &j.parts, s.libc);
        if (!n || n > m || memcmp(a, b, n)) return state.SkipWithError("the texts differ");
    }
    std::vector<contender> all = {
        {"kova",
         [&] {
             for (const job &j : s.jobs)
                 benchmark::DoNotOptimize(ours(s, w, j, a));
         }},
        {"libc",
         [&] {
             for (const job &j : s.jobs)
                 benchmark::DoNotOptimize(strftime_l(a, room, w.format, &j.parts, s.libc));
         }},
        {"icu",
         [&] {
             UChar out[room];
             UErrorCode status = U_ZERO_ERROR;
             for (const job &j : s.jobs)
                 benchmark::DoNotOptimize(
                     udat_format(s.icu.get(), j.date, out, room, nullptr, &status));
         }},
    };
    if (!s.libc) all[1].run = nullptr;
    compare(state, all, values);
}

constexpr writing names = {latin1, "de_DE", "%A, %d. %B %Y", "EEEE, dd. MMMM yyyy"};
constexpr writing usual = {latin1, "de_DE", "%c", "EEE dd MMM yyyy HH:mm:ss"};
constexpr writing digits = {latin1, "de_DE", "%Y-%m-%d %H:%M:%S", "yyyy-MM-dd HH:mm:ss"};
constexpr writing japanese = {euc_jp, "ja_JP", "%Y\xC7\xAF%m\xB7\xEE%d\xC6\xFC %A",
                              "yyyy\xC7\xAFMM\xB7\xEE"
                              "dd\xC6\xFC EEEE"};
constexpr writing japanese_usual = {euc_jp, "ja_JP", "%c",
                                    "yyyy\xC7\xAFMM\xB7\xEE"
                                    "dd\xC6\xFC HH\xBB\xFEmm\xCA\xACss\xC9\xC3"};

} // namespace

// Nanoseconds per time.
BENCHMARK_CAPTURE(write_times, 8859_1_names, names)->Apply(paired_rounds);
BENCHMARK_CAPTURE(write_times, 8859_1_c, usual)->Apply(paired_rounds);
BENCHMARK_CAPTURE(write_times, 8859_1_digits, digits)->Apply(paired_rounds);
BENCHMARK_CAPTURE(write_times, eucjp_names, japanese)->Apply(paired_rounds);
BENCHMARK_CAPTURE(write_times, eucjp_c, japanese_usual)->Apply(paired_rounds);
