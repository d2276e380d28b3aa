// Multibyte to wide and back, beside mbstowcs and wcstombs of the C library and ICU's converters.
#include "peers.h"
#include "text.h"

#include <unicode/ucnv.h>

#include <memory>
#include <string.h>
#include <wchar.h>

namespace {

// One string, in every form from which a contender starts, and room for its result.
struct job {
    std::string bytes;
    std::vector<ko_wchar_t> wide;
    std::vector<wchar_t> libc_wide;
    std::vector<UChar> icu_wide;
    std::vector<char> out_bytes;
    job(std::string text, ko_lc_t loc, locale_t libc, UConverter *icu) : bytes(std::move(text)) {
        const int n = static_cast<int>(bytes.size()) + 1;
        const auto room = static_cast<size_t>(n);
        wide.resize(room);
        libc_wide.resize(room);
        icu_wide.resize(room);
        out_bytes.resize(2 * room + 4);
        static_cast<loc_exports *>(loc)->mbstowcs(loc, wide.data(), mb(), n);
        if (libc && mbstowcs(libc_wide.data(), bytes.c_str(), room) == SIZE_MAX) {
            fprintf(stderr, "bench: mbstowcs refuses the text\n");
            abort();
        }
        UErrorCode status = U_ZERO_ERROR;
        ucnv_toUChars(icu, icu_wide.data(), n, bytes.c_str(), -1, &status);
    }
    const ko_mchar_t *mb() const { return reinterpret_cast<const ko_mchar_t *>(bytes.c_str()); }
    int room() const { return static_cast<int>(out_bytes.size()); }
};

// size: bytes of a string; short strings take turns.
void convert(benchmark::State &state, const code_set &set, size_t size, bool to_wide) {
    ko_lc_t loc = bench_locale(state, set.spec);
    if (!loc) return;
    locale_t libc = peer_locale(set.libc);
    const locale_t before = libc ? uselocale(libc) : nullptr;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UConverter, void (*)(UConverter *)> icu(ucnv_open(set.icu, &status),
                                                            ucnv_close);
    std::vector<job> jobs;
    double bytes = 0;
    for (uint32_t i = 0; i < (size < 1000 ? 64u : 1u); ++i) {
        jobs.emplace_back(bench_text(set.text, size, i + 1), loc, libc, icu.get());
        bytes += static_cast<double>(jobs.back().bytes.size());
    }
    const auto mbstowcs_ptr = static_cast<loc_exports *>(loc)->mbstowcs;
    const bool single = static_cast<loc_exports *>(loc)->single_byte;
    std::vector<contender> all;
    if (to_wide) {
        all = {
            {"kova",
             [&] {
                 for (job &j : jobs)
                     mbstowcs_ptr(loc, j.wide.data(), j.mb(), static_cast<int>(j.wide.size()));
             }},
            {"libc",
             [&] {
                 for (job &j : jobs)
                     mbstowcs(j.libc_wide.data(), j.bytes.c_str(), j.libc_wide.size());
             }},
            {"icu",
             [&] {
                 for (job &j : jobs) {
                     UErrorCode error = U_ZERO_ERROR;
                     ucnv_toUChars(icu.get(), j.icu_wide.data(),
                                   static_cast<int32_t>(j.icu_wide.size()), j.bytes.c_str(), -1,
                                   &error);
                 }
             }},
        };
    } else {
        const auto wcstombs_fn = single ? is_wcstombs : ko_full_wcstombs;
        all = {
            {"kova",
             [&,       wcstombs_fn] {
                 for (job &j : jobs)
                     wcstombs_fn(loc, reinterpret_cast<ko_mchar_t *>(j.out_bytes.data()),
                                 j.wide.data(), j.room());
             }},
            {"libc",
             [&] {
                 for (job &j : jobs)
                     wcstombs(j.out_bytes.data(), j.libc_wide.data(), j.out_bytes.size());
             }},
            {"icu",
             [&] {
                 for (job &j : jobs) {
                     UErrorCode error = U_ZERO_ERROR;
                     ucnv_fromUChars(icu.get(), j.out_bytes.data(), j.room(), j.icu_wide.data(), -1,
                                     &error);
                 }
             } },
        };
    }
    if (!libc) all[1].run = nullptr;
    compare(state, all, bytes);
    if (libc) {
        uselocale(before);
        freelocale(libc);
    }
    ko_lc_unload(loc);
}

constexpr bool to_wide = true, to_bytes = false;
constexpr size_t long_text = 64 * 1024, short_text = 40;

} // namespace

// Nanoseconds per byte of the multibyte text.
BENCHMARK_CAPTURE(convert, mbstowcs_8859_1_64K, latin1, long_text, to_wide)->Apply(paired_rounds);
BENCHMARK_CAPTURE(convert, mbstowcs_sjis_64K, shift_jis, long_text, to_wide)->Apply(paired_rounds);
BENCHMARK_CAPTURE(convert, mbstowcs_eucjp_64K, euc_jp, long_text, to_wide)->Apply(paired_rounds);
BENCHMARK_CAPTURE(convert, wcstombs_8859_1_64K, latin1, long_text, to_bytes)->Apply(paired_rounds);
BENCHMARK_CAPTURE(convert, wcstombs_sjis_64K, shift_jis, long_text, to_bytes)->Apply(paired_rounds);
BENCHMARK_CAPTURE(convert, wcstombs_eucjp_64K, euc_jp, long_text, to_bytes)->Apply(paired_rounds);
BENCHMARK_CAPTURE(convert, mbstowcs_8859_1_40, latin1, short_text, to_wide)->Apply(paired_rounds);
BENCHMARK_CAPTURE(convert, mbstowcs_sjis_40, shift_jis, short_text, to_wide)->Apply(paired_rounds);
BENCHMARK_CAPTURE(convert, mbstowcs_eucjp_40, euc_jp, short_text, to_wide)->Apply(paired_rounds);
BENCHMARK_CAPTURE(convert, wcstombs_8859_1_40, latin1, short_text, to_bytes)->Apply(paired_rounds);
BENCHMARK_CAPTURE(convert, wcstombs_sjis_40, shift_jis, short_text, to_bytes)->Apply(paired_rounds);
BENCHMARK_CAPTURE(convert, wcstombs_eucjp_40, euc_jp, short_text, to_bytes)->Apply(paired_rounds);
