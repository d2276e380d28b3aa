// Reading times by a format, with names and with digits alone, beside the C library and ICU, which
// gets its texts in UTF-16 and a precompiled pattern.
#include "peers.h"
#include "text.h"

#include <unicode/ucal.h>
#include <unicode/ucnv.h>
#include <unicode/udat.h>

#include <memory>
#include <string.h>
#include <time.h>

namespace {

constexpr int values = 64, text_room = 128;
using date_format = std::unique_ptr<UDateFormat, decltype(&udat_close)>;

const ko_mchar_t *mb(const char *text) { return reinterpret_cast<const ko_mchar_t *>(text); }

// One text in the forms that the contenders need.
struct job {
    char text[text_room];
    UChar units[text_room];
    int32_t len;
};

// A format in the code set of its locale, and the equivalent ICU pattern in that code set.
struct reading {
    const code_set &set;
    const char *icu_locale, *format, *pattern;
};

struct setting {
    ko_lc_t loc;
    locale_t libc, before;
    date_format icu;
    std::vector<job> jobs;
    setting(benchmark::State &state, const reading &r)
        : loc(bench_locale(state, r.set.spec)), libc(peer_locale(r.set.libc)),
          before(libc ? uselocale(libc) : nullptr), icu(nullptr, udat_close) {
        if (!loc) return;
        UErrorCode status = U_ZERO_ERROR;
        UConverter *converter = ucnv_open(r.set.icu, &status);
        UChar pattern[text_room];
        ucnv_toUChars(converter, pattern, text_room, r.pattern, -1, &status);
        static const UChar utc[] = {'U', 'T', 'C', 0};
        icu.reset(
            udat_open(UDAT_PATTERN, UDAT_PATTERN, r.icu_locale, utc, -1, pattern, -1, &status));
        text_random random = {7};
        for (int i = 0; i < values; ++i) {
            const unsigned day = random.below(20000);
            const time_t when = static_cast<time_t>(day) * 86400 + random.below(86400);
            tm parts;
            gmtime_r(&when, &parts);
            const ko_tm_t time = {.tm_usec = 0,
                                  .tm_sec = parts.tm_sec,
                                  .tm_min = parts.tm_min,
                                  .tm_hour = parts.tm_hour,
                                  .tm_mday = parts.tm_mday,
                                  .tm_mon = parts.tm_mon,
                                  .tm_year = parts.tm_year,
                                  .tm_wday = parts.tm_wday,
                                  .tm_yday = parts.tm_yday,
                                  .tm_isdst = 0,
                                  .tm_zone = nullptr,
                                  .tm_gmtoff = 0};
            job j;
            if (!ko_mbsftime(loc, reinterpret_cast<ko_mchar_t *>(j.text), text_room, mb(r.format),
                             &time))
                state.SkipWithError("a text cannot be made");
            j.len = ucnv_toUChars(converter, j.units, text_room, j.text, -1, &status);
            jobs.push_back(j);
        }
        ucnv_close(converter);
        if (U_FAILURE(status)) state.SkipWithError("ICU lacks the code set or the locale");
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

// A number by which the results of contenders are compared.
double sum_of(int year, int month, int day, int hour, int minute) {
    return (((year * 12.0 + month) * 31 + day) * 24 + hour) * 60 + minute;
}

void read_times(benchmark::State &state, const reading &r) {
    setting s(state, r);
    if (!s.loc) return;
    std::vector<contender> all;
    double ours = 0;
    const auto add = [&](const char *name, auto work) {
        const auto run = [&s, work] {
            double sum = 0;
            for (const job &j : s.jobs)
                sum += work(j);
            benchmark::DoNotOptimize(sum);
            return sum;
        };
        if (all.empty()) ours = run();
        if (run() != ours) state.SkipWithError((std::string(name) + " does not agree").c_str());
        all.push_back({name, run});
    };
    add("kova", [&](const job &j) {
        ko_tm_t t = {};
        if (!ko_mbsptime(s.loc, mb(j.text), mb(r.format), &t, 'R')) return -1.0;
        return sum_of(t.tm_year, t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min);
    });
    if (s.libc) {
        add("libc", [&](const job &j) {
            tm t = {};
            if (!strptime(j.text, r.format, &t)) return -1.0;
            return sum_of(t.tm_year, t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min);
        });
    }
    UErrorCode opened = U_ZERO_ERROR;
    UCalendar *calendar = ucal_open(nullptr, 0, r.icu_locale, UCAL_GREGORIAN, &opened);
    add("icu", [&s, calendar](const job &j) {
        UErrorCode status = U_ZERO_ERROR;
        ucal_clear(calendar);
        udat_parseCalendar(s.icu.get(), calendar, j.units, j.len, nullptr, &status);
        const auto get = [&](UCalendarDateFields f) { return ucal_get(calendar, f, &status); };
        return sum_of(get(UCAL_YEAR) - 1900, get(UCAL_MONTH), get(UCAL_DATE), get(UCAL_HOUR_OF_DAY),
                      get(UCAL_MINUTE));
    });
    compare(state, std::move(all), values);
    ucal_close(calendar);
}

void read_names(benchmark::State &state) {
    read_times(state, {latin1, "de_DE", "%A, %d. %B %Y %H:%M:%S", "EEEE, dd. MMMM yyyy HH:mm:ss"});
}
BENCHMARK(read_names)->Apply(paired_rounds);

void read_digits(benchmark::State &state) {
    read_times(state, {latin1, "de_DE", "%Y-%m-%d %H:%M:%S", "yyyy-MM-dd HH:mm:ss"});
}
BENCHMARK(read_digits)->Apply(paired_rounds);

// Year, month, day of the month, day of the week, in Japanese.
void read_double_byte_names(benchmark::State &state) {
    read_times(state, {euc_jp, "ja_JP", "%Y\xC7\xAF%m\xB7\xEE%d\xC6\xFC%A %H:%M",
                       "yyyy\xC7\xAFMM\xB7\xEE"
                       "dd\xC6\xFC"
                       "EEEE HH:mm"});
}
BENCHMARK(read_double_byte_names)->Apply(paired_rounds);

void read_double_byte_digits(benchmark::State &state) {
    read_times(state, {euc_jp, "ja_JP", "%Y-%m-%d %H:%M:%S", "yyyy-MM-dd HH:mm:ss"});
}
BENCHMARK(read_double_byte_digits)->Apply(paired_rounds);

} // namespace
