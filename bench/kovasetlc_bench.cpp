// Loading a locale: the first time in a process, and again while it is held. The first load is
// timed in a new child process, where no contender finds anything in memory.
//   KOVA_BENCH_LOCPATH, VANTORDIR  as in peers.h
#include "peers.h"

#include <sys/wait.h>
#include <unistd.h>

#include <unicode/ucol.h>
#include <unicode/udat.h>
#include <unicode/unum.h>

// Opens what our one record holds: collation, numbers, money, and the names of days and months.
static bool open_icu(const char *name) {
    UErrorCode status = U_ZERO_ERROR;
    ucol_open(name, &status);
    unum_open(UNUM_DECIMAL, nullptr, 0, name, nullptr, &status);
    udat_open(UDAT_FULL, UDAT_FULL, name, nullptr, 0, nullptr, 0, &status);
    return U_SUCCESS(status);
}

static bool open_libc(const char *name) { return peer_locale(name) != nullptr; }

static bool open_kova(const char *spec) {
    ko_lc_t loc;
    return ko_lc_load(&loc, spec, nullptr, nullptr) == 0;
}

// Seconds that the first open takes in a new child process; negative if it fails there.
static double first_open(bool (*open)(const char *), const char *name) {
    int ends[2];
    if (pipe(ends)) return -1;
    const pid_t child = fork();
    if (child == 0) {
        const auto start = bench_clock::now();
        const bool done = open(name);
        const double took = std::chrono::duration<double>(bench_clock::now() - start).count();
        const double answer = done ? took : -1;
        const bool sent = write(ends[1], &answer, sizeof answer) == sizeof answer;
        _exit(sent ? 0 : 1);
    }
    double answer = -1;
    if (child < 0 || read(ends[0], &answer, sizeof answer) != sizeof answer) answer = -1;
    if (child > 0) waitpid(child, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    return answer;
}

struct opener {
    const char *column;
    bool (*open)(const char *);
    const char *name;
};

static void first_load(benchmark::State &state, const char *spec, const char *libc,
                       const char *icu) {
    std::vector<opener> all = {
        {"kova", open_kova, spec}
    };
    if (getenv("KOVA_BENCH_LOCPATH")) all.push_back({"libc", open_libc, libc});
    all.push_back({"icu", open_icu, icu});
    std::vector<std::vector<double>> samples(all.size());
    for (auto _ : state) {
        for (size_t i = 0; i < all.size(); ++i) {
            const double took = first_open(all[i].open, all[i].name);
            if (took < 0) {
                const std::string why = std::string(all[i].name) + " cannot be opened";
                state.SkipWithError(why.c_str());
                return;
            }
            samples[i].push_back(took);
            if (i == 0) state.SetIterationTime(took);
        }
    }
    double best_peer = 0;
    for (size_t i = 0; i < all.size(); ++i) {
        const double middle = median(samples[i]);
        state.counters[all[i].column] = middle * 1e9;
        if (i && (best_peer == 0 || middle < best_peer)) best_peer = middle;
    }
    if (best_peer > 0) state.counters["ratio"] = best_peer / median(samples[0]);
}

static void load_again(benchmark::State &state, const char *spec, const char *libc,
                       const char *icu) {
    const ko_lc_t held = bench_locale(state, spec);
    if (!held) return;
    const locale_t held_libc = peer_locale(libc);
    UErrorCode status = U_ZERO_ERROR;
    UCollator *held_icu = ucol_open(icu, &status);
    std::vector<contender> all = {
        {"kova",
         [spec] {
             ko_lc_t loc;
             ko_lc_load(&loc, spec, nullptr, nullptr);
             ko_lc_unload(loc);
         }         },
        {"libc", {}},
        {"icu",
         [icu] {
             UErrorCode code = U_ZERO_ERROR;
             ucol_close(ucol_open(icu, &code));
         }         },
    };
    if (held_libc) {
        all[1].run = [libc] { freelocale(newlocale(LC_ALL_MASK, libc, nullptr)); };
    }
    compare(state, all, 1);
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
BENCHMARK_CAPTURE(first_load, de_DE_8859_1, "de_DE.8859-1", "de_DE.ISO-8859-1", "de_DE")
    ->Apply(paired_rounds);
BENCHMARK_CAPTURE(first_load, ja_JP_eucJP, "ja_JP.eucJP", "ja_JP.EUC-JP", "ja_JP")
    ->Apply(paired_rounds);
BENCHMARK_CAPTURE(load_again, de_DE_8859_1, "de_DE.8859-1", "de_DE.ISO-8859-1", "de_DE")
    ->Apply(paired_rounds);
BENCHMARK_CAPTURE(load_again_cached, de_DE_8859_1, "de_DE.8859-1", "de_DE.ISO-8859-1", "de_DE")
    ->Apply(paired_rounds);
