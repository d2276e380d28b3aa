// Fair comparison with the C library and ICU: in every round each contender runs for about the same
// short time, in rotating order, so that a slow moment of the machine affects all of them. A row
// gives the medians in nanoseconds per unit and, as "ratio", the best peer's median divided by our
// own.
//   KOVA_BENCH_LOCPATH  folder of locales compiled by localedef; without it no C library rows
//   VANTORDIR           data root with the compiled locale objects
#ifndef PEERS_H
#define PEERS_H

#include "kova.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <locale.h>
#include <stdlib.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

struct contender {
    std::string name;          // of its column; the first contender is ours
    std::function<void()> run; // does the job once; empty: no such peer here
};

using bench_clock = std::chrono::steady_clock;

inline double seconds_of(const std::function<void()> &run, long times) {
    const auto start = bench_clock::now();
    for (long i = 0; i < times; ++i)
        run();
    return std::chrono::duration<double>(bench_clock::now() - start).count();
}

// How many runs take about half a millisecond; also warms caches.
inline long calibrate(const std::function<void()> &run) {
    long times = 1;
    while (seconds_of(run, times) < 0.25e-3 && times < (1L << 24))
        times *= 2;
    return times * 2;
}

inline double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

// One benchmark row: each iteration is a round of all contenders. units: bytes, characters or calls
// in one run. Register with ->Apply(paired_rounds).
inline void compare(benchmark::State &state, std::vector<contender> all, double units) {
    std::erase_if(all, [](const contender &c) { return !c.run; });
    std::vector<long> times;
    std::vector<std::vector<double>> samples(all.size());
    for (const contender &c : all)
        times.push_back(calibrate(c.run));
    size_t turn = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < all.size(); ++i) {
            const size_t k = (i + turn) % all.size();
            const double per_run = seconds_of(all[k].run, times[k]) / static_cast<double>(times[k]);
            samples[k].push_back(per_run);
            if (k == 0) state.SetIterationTime(per_run);
        }
        ++turn;
    }
    double best_peer = 0;
    for (size_t k = 0; k < all.size(); ++k) {
        const double middle = median(samples[k]);
        state.counters[all[k].name] = middle / units * 1e9;
        if (k && (best_peer == 0 || middle < best_peer)) best_peer = middle;
    }
    if (best_peer > 0) state.counters["ratio"] = best_peer / median(samples[0]);
}

// Seconds that a job takes in a new child process; negative if it fails there.
inline double first_run(const std::function<bool()> &run) {
    int ends[2];
    if (pipe(ends)) return -1;
    const pid_t child = fork();
    if (child == 0) {
        const auto start = bench_clock::now();
        const bool done = run();
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

struct first_contender {
    std::string name; // as in contender
    std::function<bool()> run;
};

// compare() for what is done first in a process: nobody finds anything in memory.
inline void compare_first(benchmark::State &state, const std::vector<first_contender> &all) {
    std::vector<std::vector<double>> samples(all.size());
    for (auto _ : state)
        for (size_t i = 0; i < all.size(); ++i) {
            const double took = first_run(all[i].run);
            if (took < 0) return state.SkipWithError((all[i].name + " fails").c_str());
            samples[i].push_back(took);
            if (i == 0) state.SetIterationTime(took);
        }
    double best_peer = 0;
    for (size_t i = 0; i < all.size(); ++i) {
        const double middle = median(samples[i]);
        state.counters[all[i].name] = middle * 1e9;
        if (i && (best_peer == 0 || middle < best_peer)) best_peer = middle;
    }
    if (best_peer > 0) state.counters["ratio"] = best_peer / median(samples[0]);
}

inline void paired_rounds(benchmark::internal::Benchmark *row) {
    row->UseManualTime()->Iterations(41)->Unit(benchmark::kMicrosecond);
}

// The C library's locale of a name in the private directory, or a null one.
inline locale_t peer_locale(const char *name) {
    const char *folder = getenv("KOVA_BENCH_LOCPATH");
    if (!folder) return nullptr;
    setenv("LOCPATH", folder, 1);
    return newlocale(LC_ALL_MASK, name, nullptr);
}

// Our locale by its specification; null, with the row marked, if it cannot be loaded.
inline ko_lc_t bench_locale(benchmark::State &state, const char *spec) {
    ko_lc_t loc;
    if (ko_lc_load(&loc, spec, nullptr, nullptr) == 0) return loc;
    const std::string why = std::string(spec) + ": error " + std::to_string(*ko_ext_errno(loc)) +
                            "; set VANTORDIR to a data root";
    state.SkipWithError(why.c_str());
    ko_lc_unload(loc);
    return nullptr;
}

#endif
