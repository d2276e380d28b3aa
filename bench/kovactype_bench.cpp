// Case mapping of strings and counting of alphabetic characters, beside the C library and ICU.
#include "peers.h"
#include "text.h"

#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <ctype.h>
#include <memory>
#include <string.h>
#include <wchar.h>
#include <wctype.h>

namespace {

constexpr size_t long_text = 64 * 1024, short_text = 40;

using converter = std::unique_ptr<UConverter, void (*)(UConverter *)>;

struct job {
    std::string in;
    std::vector<char> out;
    std::vector<wchar_t> wide;
    std::vector<UChar> units, mapped;
    explicit job(std::string text)
        : in(std::move(text)), out(2 * in.size() + 4), wide(in.size() + 1), units(in.size() + 1),
          mapped(2 * in.size() + 1) {}
    const ko_mchar_t *mb() const { return reinterpret_cast<const ko_mchar_t *>(in.c_str()); }
    ko_mchar_t *mb_out() { return reinterpret_cast<ko_mchar_t *>(out.data()); }
};

// What every row of this file needs.
struct setting {
    ko_lc_t loc;
    locale_t libc, before;
    converter icu;
    std::vector<job> jobs;
    double bytes = 0;
    setting(benchmark::State &state, const code_set &set, size_t size)
        : loc(bench_locale(state, set.spec)), libc(peer_locale(set.libc)),
          before(libc ? uselocale(libc) : nullptr), icu(nullptr, ucnv_close) {
        UErrorCode status = U_ZERO_ERROR;
        icu.reset(ucnv_open(set.icu, &status));
        for (uint32_t i = 0; i < (size < 1000 ? 64u : 1u); ++i) {
            jobs.emplace_back(bench_text(set.text, size, i + 1));
            bytes += static_cast<double>(jobs.back().in.size());
        }
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

// The locale is set for the thread. Where the C library's inline forms use tables, the tables are
// fetched once per string, which is faster than any portable caller can be.
#if defined(__GLIBC__)
struct upper_table {
    const int32_t *table = *__ctype_toupper_loc();
    int operator()(unsigned char c) const { return table[c]; }
};
struct alpha_table {
    const unsigned short *table = *__ctype_b_loc();
    bool operator()(unsigned char c) const {
        return table[c] & static_cast<unsigned short>(_ISalpha);
    }
};
#else
struct upper_table {
    int operator()(unsigned char c) const { return toupper(c); }
};
struct alpha_table {
    bool operator()(unsigned char c) const { return isalpha(c) != 0; }
};
#endif

void libc_upper_bytes(job &j, locale_t) {
    const upper_table map;
    const size_t n = j.in.size();
    for (size_t i = 0; i < n; ++i) {
        j.out[i] = static_cast<char>(map(static_cast<unsigned char>(j.in[i])));
    }
    j.out[n] = 0;
}

void libc_upper_wide(job &j, locale_t) {
    const size_t n = mbstowcs(j.wide.data(), j.in.c_str(), j.wide.size());
    for (size_t i = 0; i < n; ++i)
        j.wide[i] = static_cast<wchar_t>(towupper(static_cast<wint_t>(j.wide[i])));
    wcstombs(j.out.data(), j.wide.data(), j.out.size());
}

void icu_upper(job &j, UConverter *icu) {
    UErrorCode status = U_ZERO_ERROR;
    const int32_t n = ucnv_toUChars(icu, j.units.data(), static_cast<int32_t>(j.units.size()),
                                    j.in.c_str(), static_cast<int32_t>(j.in.size()), &status);
    const int32_t m = u_strToUpper(j.mapped.data(), static_cast<int32_t>(j.mapped.size()),
                                   j.units.data(), n, "", &status);
    ucnv_fromUChars(icu, j.out.data(), static_cast<int32_t>(j.out.size()), j.mapped.data(), m,
                    &status);
}

void upper(benchmark::State &state, const code_set &set, size_t size) {
    setting s(state, set, size);
    if (!s.loc) return;
    const bool single = set.text == script::latin1;
    const auto libc_upper = single ? libc_upper_bytes : libc_upper_wide;
    std::vector<contender> all = {
        {"kova",
         [&] {
             for (job &j : s.jobs)
                 ko_tombsupper(s.loc, j.mb_out(), j.mb());
         }},
        {"libc",
         [&] {
             for (job &j : s.jobs)
                 libc_upper(j, s.libc);
         }},
        {"icu",
         [&] {
             for (job &j : s.jobs)
                 icu_upper(j, s.icu.get());
         }},
    };
    if (!s.libc) all[1].run = nullptr;
    compare(state, all, s.bytes);
}

// The counts must agree, or the row is an error.
int kova_alpha_bytes(ko_lc_t loc, const job &j) {
    const uint16_t *masks = static_cast<const loc_exports *>(loc)->sb_ctype_table;
    int count = 0;
    for (const char c : j.in)
        count += (masks[static_cast<unsigned char>(c)] & KO_CT_ALPHA) != 0;
    return count;
}

int libc_alpha_bytes(const job &j) {
    const alpha_table is_alpha;
    int count = 0;
    for (const char c : j.in)
        count += is_alpha(static_cast<unsigned char>(c));
    return count;
}

int kova_alpha_chars(ko_lc_t loc, job &j) {
    ko_wchar_t *wide = reinterpret_cast<ko_wchar_t *>(j.units.data());
    const int n = im_mbstowcs(loc, wide, j.mb(), static_cast<int>(j.units.size()));
    int count = 0;
    for (int i = 0; i < n; ++i)
        count += im_iswctype(loc, wide[i], KO_CT_ALPHA) != 0;
    return count;
}

int libc_alpha_chars(job &j) {
    const size_t n = mbstowcs(j.wide.data(), j.in.c_str(), j.wide.size());
    int count = 0;
    for (size_t i = 0; i < n; ++i)
        count += iswalpha(static_cast<wint_t>(j.wide[i])) != 0;
    return count;
}

int icu_alpha(UConverter *icu, job &j) {
    UErrorCode status = U_ZERO_ERROR;
    const int32_t n = ucnv_toUChars(icu, j.units.data(), static_cast<int32_t>(j.units.size()),
                                    j.in.c_str(), static_cast<int32_t>(j.in.size()), &status);
    int count = 0;
    for (int32_t i = 0; i < n; ++i)
        count += u_isalpha(j.units[static_cast<size_t>(i)]) != 0;
    return count;
}

void alpha(benchmark::State &state, const code_set &set) {
    setting s(state, set, long_text);
    if (!s.loc) return;
    const bool single = set.text == script::latin1;
    job &j = s.jobs[0];
    const auto ours = [&] {
        return single ? kova_alpha_bytes(s.loc, j) : kova_alpha_chars(s.loc, j);
    };
    const auto libcs = [&] { return single ? libc_alpha_bytes(j) : libc_alpha_chars(j); };
    if (s.libc && ours() != libcs()) return state.SkipWithError("the counts differ");
    std::vector<contender> all = {
        {"kova", [&] { benchmark::DoNotOptimize(ours()); }                   },
        {"libc", [&] { benchmark::DoNotOptimize(libcs()); }                  },
        {"icu",  [&] { benchmark::DoNotOptimize(icu_alpha(s.icu.get(), j)); }},
    };
    if (!s.libc) all[1].run = nullptr;
    compare(state, all, s.bytes);
}

} // namespace

// Nanoseconds per byte of the text.
BENCHMARK_CAPTURE(upper, 8859_1_64K, latin1, long_text)->Apply(paired_rounds);
BENCHMARK_CAPTURE(upper, eucjp_64K, euc_jp, long_text)->Apply(paired_rounds);
BENCHMARK_CAPTURE(upper, 8859_1_40, latin1, short_text)->Apply(paired_rounds);
BENCHMARK_CAPTURE(upper, eucjp_40, euc_jp, short_text)->Apply(paired_rounds);
BENCHMARK_CAPTURE(alpha, 8859_1_64K, latin1)->Apply(paired_rounds);
BENCHMARK_CAPTURE(alpha, eucjp_64K, euc_jp)->Apply(paired_rounds);
