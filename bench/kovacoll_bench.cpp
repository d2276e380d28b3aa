// Comparing words, sorting them and making their keys, beside strcoll_l and strxfrm_l of the C
// library and ICU's collator.
#include "peers.h"
#include "text.h"

#include <unicode/ucnv.h>
#include <unicode/ucol.h>

#include <memory>
#include <numeric>
#include <string.h>

namespace {

struct language {
    script text;
    const char *spec, *libc, *icu_codeset, *icu;
    const char *syllables; // of words, with blanks between; NULL: Japanese
};
constexpr language german = {
    script::latin1,
    "de_DE.8859-1",
    "de_DE.ISO-8859-1",
    "ISO-8859-1",
    "de",
    "ab an auf aus be ein ent er ge un ver zer haus bau hand werk stra\xDF"
    "e buch zeit arbeit land "
    "stadt m\xFChl gro\xDF k\xF6nig t\xFCr schl\xFCss el en er ung heit keit lich isch ig sam bar "
    "wort schrift spiel berg wald f\xE4hr st\xFC"
    "ck z\xFCg lehr schul freund kraft wagen"};
constexpr language swedish = {
    script::latin1,
    "sv_SE.8859-1",
    "sv_SE.ISO-8859-1",
    "ISO-8859-1",
    "sv",
    "av an be f\xF6r g\xE5 in ned om p\xE5 till under ut \xE5ter \xF6ver hus bok tid arbet land "
    "stad v\xE4g k\xF6p h\xE4st sk\xF6n sj\xF6 b\xE5t en et ar or er na ning het lig isk sam bar "
    "ord "
    "skrift spel berg skog f\xE4r styck l\xE4r skol v\xE4n kraft vagn ljus natt"};
constexpr language czech = {
    script::latin1, // one byte a character
    "cs_CZ.8859-2",
    "cs_CZ.ISO-8859-2",
    "ISO-8859-2",
    "cs",
    "ba b\xEC cho chy \xE8i do d\xEC hlav j\xE1 j\xED ko k\xF9 le le\xBE\xE1 m\xEC na n\xEC ov\xE1 "
    "po p\xF8\xED \xF8"
    "e \xF8o sta \xB9\xBB t\xE1 \xBBuk va v\xFD za \xBElu n\xFD ost"};
constexpr language japanese = {script::euc_jp, "ja_JP.EUC-JP", "ja_JP.EUC-JP",
                               "EUC-JP",       "ja",           nullptr};

std::vector<std::string> split(const char *text) {
    std::vector<std::string> parts(1);
    for (; *text; ++text) {
        if (*text == ' ') {
            parts.emplace_back();
        } else {
            parts.back() += *text;
        }
    }
    return parts;
}

std::string latin_word(const std::vector<std::string> &syllables, text_random &random) {
    std::string word;
    for (unsigned n = 2 + random.below(3); n; --n)
        word += syllables[random.below(static_cast<unsigned>(syllables.size()))];
    if (random.below(3) == 0 && word[0] >= 'a' && word[0] <= 'z') word[0] -= 32;
    return word;
}

std::string japanese_word(text_random &random) {
    std::string word;
    const unsigned row = random.below(2) ? 0 : 4 + random.below(2); // 0: kanji
    for (unsigned n = 2 + random.below(4); n; --n)
        put_jis(word, script::euc_jp, row ? row : 16 + random.below(31),
                1 + random.below(row ? 83 : 94));
    return word;
}

std::vector<std::string> make_words(const language &lang, size_t count) {
    text_random random{20111};
    std::vector<std::string> words(count);
    const auto syllables = split(lang.syllables ? lang.syllables : "");
    for (std::string &word : words)
        word = lang.syllables ? latin_word(syllables, random) : japanese_word(random);
    return words;
}

// A word in the forms that the contenders need.
struct entry {
    const ko_mchar_t *kova;
    const char *libc;
    const UChar *icu;
    int32_t icu_len;
};

struct setting {
    ko_lc_t loc;
    locale_t libc;
    UCollator *icu = nullptr;
    decltype(loc_exports::mbscoll) coll;
    decltype(loc_exports::mbsxfrm) xfrm;
    std::vector<std::string> words;
    std::vector<std::u16string> icu_words;
    std::vector<entry> entries;

    setting(benchmark::State &state, const language &lang, size_t count)
        : loc(bench_locale(state, lang.spec)), libc(peer_locale(lang.libc)),
          words(make_words(lang, count)), icu_words(count) {
        if (!loc) return;
        coll = static_cast<loc_exports *>(loc)->mbscoll;
        xfrm = static_cast<loc_exports *>(loc)->mbsxfrm;
        UErrorCode status = U_ZERO_ERROR;
        icu = ucol_open(lang.icu, &status);
        UConverter *converter = ucnv_open(lang.icu_codeset, &status);
        for (size_t i = 0; i < count; ++i) {
            const auto bytes = static_cast<int32_t>(words[i].size());
            icu_words[i].resize(words[i].size() + 1);
            const int32_t n = ucnv_toUChars(converter, icu_words[i].data(), bytes + 1,
                                            words[i].data(), bytes, &status);
            icu_words[i].resize(static_cast<size_t>(n));
            entries.push_back({reinterpret_cast<const ko_mchar_t *>(words[i].c_str()),
                               words[i].c_str(), icu_words[i].c_str(), n});
        }
        ucnv_close(converter);
        if (U_FAILURE(status)) {
            fprintf(stderr, "bench: ICU: %s\n", u_errorName(status));
            abort();
        }
    }
    ~setting() {
        if (icu) ucol_close(icu);
        if (libc) freelocale(libc);
        if (loc) ko_lc_unload(loc);
    }
    setting(const setting &) = delete;
    bool ready() const { return icu && loc; }

    int by_kova(const entry &a, const entry &b) const { return coll(loc, a.kova, b.kova); }
    int by_libc(const entry &a, const entry &b) const { return strcoll_l(a.libc, b.libc, libc); }
    int by_icu(const entry &a, const entry &b) const {
        return ucol_strcoll(icu, a.icu, a.icu_len, b.icu, b.icu_len);
    }
};

// Runs an order on pairs of adjacent words.
template <class Order> std::function<void()> each_pair(const setting &s, Order order) {
    return [&s, order] {
        int sum = 0;
        for (size_t i = 1; i < s.entries.size(); ++i)
            sum += (s.*order)(s.entries[i - 1], s.entries[i]);
        benchmark::DoNotOptimize(sum);
    };
}

template <class Order> std::function<void()> sorting(const setting &s, Order order) {
    return [&s, order] {
        std::vector<entry> sorted = s.entries;
        std::sort(sorted.begin(), sorted.end(),
                  [&s, order](const entry &a, const entry &b) { return (s.*order)(a, b) < 0; });
        benchmark::DoNotOptimize(sorted.data());
    };
}

void compare_words(benchmark::State &state, const language &lang, bool neighbours) {
    setting s(state, lang, 4000);
    if (!s.ready()) return;
    if (neighbours)
        std::sort(s.entries.begin(), s.entries.end(),
                  [&s](const entry &a, const entry &b) { return s.by_kova(a, b) < 0; });
    compare(state,
            {
                {"kova", each_pair(s,          &setting::by_kova)                          },
                {"libc", s.libc ? each_pair(s, &setting::by_libc) : std::function<void()>()},
                {"icu",  each_pair(s,          &setting::by_icu)                           }
    },
            static_cast<double>(s.entries.size() - 1));
}

void sort_words(benchmark::State &state, const language &lang) {
    setting s(state, lang, 200000);
    if (!s.ready()) return;
    compare(state,
            {
                {"kova", sorting(s,          &setting::by_kova)                          },
                {"libc", s.libc ? sorting(s, &setting::by_libc) : std::function<void()>()},
                {"icu",  sorting(s,          &setting::by_icu)                           }
    },
            static_cast<double>(s.entries.size()));
}

void word_keys(benchmark::State &state, const language &lang) {
    setting s(state, lang, 4000);
    if (!s.ready()) return;
    unsigned char key[512];
    const auto libc = [&] {
        for (const entry &e : s.entries)
            benchmark::DoNotOptimize(
                strxfrm_l(reinterpret_cast<char *>(key), e.libc, sizeof key, s.libc));
    };
    compare(state,
            {
                {"kova",
                 [&] {
                     for (const entry &e : s.entries)
                         benchmark::DoNotOptimize(s.xfrm(s.loc, key, e.kova, sizeof key));
                 }                                              },
                {"libc", s.libc ? libc : std::function<void()>()},
                {"icu",
                 [&] {
                     for (const entry &e : s.entries)
                         benchmark::DoNotOptimize(
                             ucol_getSortKey(s.icu, e.icu, e.icu_len, key, sizeof key));
                 }                                              }
    },
            static_cast<double>(s.entries.size()));
}

void few_rounds(benchmark::internal::Benchmark *row) {
    row->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);
}

} // namespace

BENCHMARK_CAPTURE(compare_words, random_de, german, false)->Apply(paired_rounds);
BENCHMARK_CAPTURE(compare_words, random_sv, swedish, false)->Apply(paired_rounds);
BENCHMARK_CAPTURE(compare_words, random_cs, czech, false)->Apply(paired_rounds);
BENCHMARK_CAPTURE(compare_words, random_euc_jp, japanese, false)->Apply(paired_rounds);
BENCHMARK_CAPTURE(compare_words, neighbours_de, german, true)->Apply(paired_rounds);
BENCHMARK_CAPTURE(compare_words, neighbours_sv, swedish, true)->Apply(paired_rounds);
BENCHMARK_CAPTURE(compare_words, neighbours_cs, czech, true)->Apply(paired_rounds);
BENCHMARK_CAPTURE(compare_words, neighbours_euc_jp, japanese, true)->Apply(paired_rounds);
BENCHMARK_CAPTURE(word_keys, de, german)->Apply(paired_rounds);
BENCHMARK_CAPTURE(word_keys, sv, swedish)->Apply(paired_rounds);
BENCHMARK_CAPTURE(word_keys, cs, czech)->Apply(paired_rounds);
BENCHMARK_CAPTURE(word_keys, euc_jp, japanese)->Apply(paired_rounds);
BENCHMARK_CAPTURE(sort_words, 200000_de, german)->Apply(few_rounds);
BENCHMARK_CAPTURE(sort_words, 200000_sv, swedish)->Apply(few_rounds);
BENCHMARK_CAPTURE(sort_words, 200000_cs, czech)->Apply(few_rounds);
BENCHMARK_CAPTURE(sort_words, 200000_euc_jp, japanese)->Apply(few_rounds);
