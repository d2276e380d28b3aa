// Operations on multibyte strings beside the C library's way to the same answer: mbstowcs, then the
// wide function.
#include "peers.h"
#include "text.h"

#include <string.h>
#include <wchar.h>

namespace {

// One string and room for copies of it.
struct subject {
    ko_lc_t loc;
    std::string text;
    std::vector<ko_mchar_t> copy;
    std::vector<wchar_t> wide;
    const ko_mchar_t *mb() const { return reinterpret_cast<const ko_mchar_t *>(text.c_str()); }
    const wchar_t *widened() {
        mbstowcs(wide.data(), text.c_str(), wide.size());
        return wide.data();
    }
};

// What is searched for is in none of the texts.
const ko_mchar_t tilde[] = "~";
const wchar_t wide_tilde[] = L"~|^";

void width(subject &s) { benchmark::DoNotOptimize(ko_mbswidth(s.loc, s.mb(), INT_MAX)); }
void libc_width(subject &s) { benchmark::DoNotOptimize(wcswidth(s.widened(), SIZE_MAX)); }
void find(subject &s) { benchmark::DoNotOptimize(ko_full_mbschr(s.loc, s.mb(), tilde)); }
void libc_find(subject &s) { benchmark::DoNotOptimize(wcschr(s.widened(), L'~')); }
void span(subject &s) {
    const auto *set = reinterpret_cast<const ko_mchar_t *>("~|^");
    benchmark::DoNotOptimize(ko_full_mbscspn(s.loc, s.mb(), set));
}
void libc_span(subject &s) { benchmark::DoNotOptimize(wcscspn(s.widened(), wide_tilde)); }
// A copy that refuses an invalid string, as ours does.
void copy(subject &s) { benchmark::DoNotOptimize(ko_full_mbscpy(s.loc, s.copy.data(), s.mb())); }
void libc_copy(subject &s) {
    const size_t chars = mbstowcs(nullptr, s.text.c_str(), 0);
    if (chars != SIZE_MAX) memcpy(s.copy.data(), s.text.c_str(), s.text.size() + 1);
    benchmark::DoNotOptimize(chars);
}
void spaces(subject &s) { benchmark::DoNotOptimize(ko_mbsntslen(s.loc, s.mb())); }

// size: bytes of a string; short strings take turns.
void run(benchmark::State &state, void (*ours)(subject &), void (*libc_way)(subject &),
         const code_set &set, size_t size) {
    ko_lc_t loc = bench_locale(state, set.spec);
    if (!loc) return;
    locale_t libc = peer_locale(set.libc);
    const locale_t before = libc ? uselocale(libc) : nullptr;
    std::vector<subject> subjects;
    double bytes = 0;
    for (uint32_t i = 0; i < (size < 1000 ? 64u : 1u); ++i) {
        std::string text = bench_text(set.text, size, i + 1);
        std::replace(text.begin(), text.end(), '\n', ' '); // a newline has no width
        bytes += static_cast<double>(text.size());
        subjects.push_back({loc, text, std::vector<ko_mchar_t>(text.size() + 2),
                            std::vector<wchar_t>(text.size() + 1)});
    }
    const auto each = [&](void (*job)(subject &)) {
        return [&, job] {
            for (subject &s : subjects)
                job(s);
        };
    };
    std::vector<contender> all = {
        {"kova", each(ours)}
    };
    if (libc && libc_way) all.push_back({"libc", each(libc_way)});
    compare(state, all, bytes);
    if (libc) {
        uselocale(before);
        freelocale(libc);
    }
    ko_lc_unload(loc);
}

constexpr size_t long_text = 64 * 1024, short_text = 40;

#define ROWS(name, ours, libc_way)                                                                 \
    BENCHMARK_CAPTURE(run, name##_8859_1_64K, ours, libc_way, latin1, long_text)                   \
        ->Apply(paired_rounds);                                                                    \
    BENCHMARK_CAPTURE(run, name##_eucjp_64K, ours, libc_way, euc_jp, long_text)                    \
        ->Apply(paired_rounds);                                                                    \
    BENCHMARK_CAPTURE(run, name##_sjis_40, ours, libc_way, shift_jis, short_text)                  \
        ->Apply(paired_rounds);                                                                    \
    BENCHMARK_CAPTURE(run, name##_8859_1_40, ours, libc_way, latin1, short_text)                   \
        ->Apply(paired_rounds)

} // namespace

// Nanoseconds per byte of the multibyte text.
ROWS(width, width, libc_width);
ROWS(find, find, libc_find);
ROWS(cspan, span, libc_span);
ROWS(copy, copy, libc_copy);
ROWS(spaces, spaces, nullptr);
