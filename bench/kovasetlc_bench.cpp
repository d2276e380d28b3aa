// Loading a locale: the first time in a process, and again while it is held. The first load is
// timed in a new child process, where no contender finds anything in memory.
//   KOVA_BENCH_LOCPATH, VANTORDIR  as in peers.h
#include "peers.h"

#include <ctype.h>
#include <langinfo.h>
#include <monetary.h>
#include <string.h>
#include <time.h>

#include <unicode/ucol.h>
#include <unicode/udat.h>
#include <unicode/unum.h>
#include <unicode/ustring.h>

constexpr tm when = {.tm_min = 5,
                     .tm_hour = 9,
                     .tm_mday = 17,
                     .tm_mon = 4,
                     .tm_year = 124,
                     .tm_wday = 5,
                     .tm_yday = 137};

// Opens what our one record holds: collation, numbers, money, and the names of days and months.
static bool open_icu(const char *name, bool use) {
    UErrorCode status = U_ZERO_ERROR;
    UCollator *const order = ucol_open(name, &status);
    UNumberFormat *const number = unum_open(UNUM_DECIMAL, nullptr, 0, name, nullptr, &status);
    UDateFormat *const date =
        udat_open(UDAT_FULL, UDAT_FULL, name, nullptr, 0, nullptr, 0, &status);
    if (!use || U_FAILURE(status)) return U_SUCCESS(status);
    UChar out[200];
    const bool less = ucol_strcoll(order, u"abc", 3, u"abd", 3) == UCOL_LESS;
    UNumberFormat *const money = unum_open(UNUM_CURRENCY, nullptr, 0, name, nullptr, &status);
    unum_formatDouble(number, 1234567.5, out, 200, nullptr, &status);
    unum_formatDouble(money, 1234567.5, out, 200, nullptr, &status);
    udat_format(date, 1715936700000.0, out, 200, nullptr, &status);
    u_strToUpper(out, 200, u"abc", 3, name, &status);
    return U_SUCCESS(status) && less;
}

static bool open_libc(const char *name, bool use) {
    const locale_t loc = peer_locale(name);
    if (!use || !loc) return loc;
    char out[200];
    return strcoll_l("abc", "abd", loc) < 0 && toupper_l('a', loc) == 'A' &&
           strftime_l(out, sizeof out, "%c", &when, loc) &&
           strfmon_l(out, sizeof out, loc, "%n", 1234567.5) > 0 && *nl_langinfo_l(YESEXPR, loc) &&
           *nl_langinfo_l(RADIXCHAR, loc);
}

static bool open_kova(const char *spec, bool use) {
    ko_lc_t loc;
    if (ko_lc_load(&loc, spec, nullptr, nullptr)) return false;
    if (!use) return true;
    const auto *const a = reinterpret_cast<const ko_mchar_t *>("abc");
    const auto *const b = reinterpret_cast<const ko_mchar_t *>("abd");
    const ko_tm_t then = {.tm_min = when.tm_min,
                          .tm_hour = when.tm_hour,
                          .tm_mday = when.tm_mday,
                          .tm_mon = when.tm_mon,
                          .tm_year = when.tm_year,
                          .tm_wday = when.tm_wday,
                          .tm_yday = when.tm_yday};
    ko_mchar_t out[200];
    const auto format = [](const char *text) { return reinterpret_cast<const ko_mchar_t *>(text); };
    return static_cast<const loc_exports *>(loc)->mbscoll(loc, a, b) < 0 &&
           ko_tombsupper(loc, out, a) >= 0 && ko_mbsftime(loc, out, 200, format("%c"), &then) > 0 &&
           ko_mbsfmon(loc, out, 200, format("%n"), 1234567.5) > 0 &&
           ko_nl_langinfo(loc, KO_YESEXPR) && ko_nl_langinfo(loc, KO_RADIXCHAR);
}

static void first_load(benchmark::State &state, const char *spec, const char *libc, const char *icu,
                       bool use) {
    std::vector<first_contender> all = {
        {"kova", [=] { return open_kova(spec, use); }}
    };
    if (getenv("KOVA_BENCH_LOCPATH")) all.push_back({"libc", [=] { return open_libc(libc, use); }});
    all.push_back({"icu", [=] { return open_icu(icu, use); }});
    compare_first(state, all);
}

// Loads and frees a locale; ICU opens and closes what it is given.
static std::vector<contender> loads(const char *spec, const char *libc, std::function<void()> icu) {
    std::vector<contender> all = {
        {"kova",
         [spec] {
             ko_lc_t loc;
             ko_lc_load(&loc, spec, nullptr, nullptr);
             ko_lc_unload(loc);
         }                     },
        {"libc", {}            },
        {"icu",  std::move(icu)},
    };
    if (const locale_t found = peer_locale(libc)) {
        freelocale(found);
        all[1].run = [libc] { freelocale(newlocale(LC_ALL_MASK, libc, nullptr)); };
    }
    return all;
}

static void open_collator(const char *icu) {
    UErrorCode code = U_ZERO_ERROR;
    ucol_close(ucol_open(icu, &code));
}

// None is held: ours is freed each time, and the peers keep theirs in memory.
static void load_and_free(benchmark::State &state, const char *spec, const char *libc,
                          const char *icu) {
    const auto open_and_close = [icu] {
        UErrorCode code = U_ZERO_ERROR;
        open_collator(icu);
        unum_close(unum_open(UNUM_DECIMAL, nullptr, 0, icu, nullptr, &code));
        udat_close(udat_open(UDAT_FULL, UDAT_FULL, icu, nullptr, 0, nullptr, 0, &code));
    };
    compare(state, loads(spec, libc, open_and_close), 1);
}

static void load_again(benchmark::State &state, const char *spec, const char *libc,
                       const char *icu) {
    const ko_lc_t held = bench_locale(state, spec);
    if (!held) return;
    const locale_t held_libc = peer_locale(libc);
    UErrorCode status = U_ZERO_ERROR;
    UCollator *held_icu = ucol_open(icu, &status);
    compare(state, loads(spec, libc, [icu] { open_collator(icu); }), 1);
    ucol_close(held_icu);
    if (held_libc) freelocale(held_libc);
    ko_lc_unload(held);
}

// Loading again with the registry cached, as a host that loads often keeps it.
static void load_again_cached(benchmark::State &state, const char *spec, const char *libc,
                              const char *icu) {
    ko_lc_t held = bench_locale(state, spec);
    if (!held) return;
    ko_cache_registry(held, nullptr);
    load_again(state, spec, libc, icu);
    ko_lc_unload(held);
}

// These rows come before any that load in this process.
BENCHMARK_CAPTURE(first_load, de_DE_8859_1, "de_DE.8859-1", "de_DE.ISO-8859-1", "de_DE", false)
    ->Apply(paired_rounds);
BENCHMARK_CAPTURE(first_load, de_DE_8859_1_used, "de_DE.8859-1", "de_DE.ISO-8859-1", "de_DE", true)
    ->Apply(paired_rounds);
BENCHMARK_CAPTURE(first_load, ja_JP_eucJP, "ja_JP.eucJP", "ja_JP.EUC-JP", "ja_JP", false)
    ->Apply(paired_rounds);
BENCHMARK_CAPTURE(first_load, ja_JP_eucJP_used, "ja_JP.eucJP", "ja_JP.EUC-JP", "ja_JP", true)
    ->Apply(paired_rounds);
BENCHMARK_CAPTURE(load_and_free, de_DE_8859_1, "de_DE.8859-1", "de_DE.ISO-8859-1", "de_DE")
    ->Apply(paired_rounds);
BENCHMARK_CAPTURE(load_again, de_DE_8859_1, "de_DE.8859-1", "de_DE.ISO-8859-1", "de_DE")
    ->Apply(paired_rounds);
BENCHMARK_CAPTURE(load_again_cached, de_DE_8859_1, "de_DE.8859-1", "de_DE.ISO-8859-1", "de_DE")
    ->Apply(paired_rounds);
