// Texts in UTF-8 with a length: comparing words, making their keys, and conversion to UTF-16 and
// back, beside strcoll_l and strxfrm_l of the C library's UTF-8 locales and ICU.
#include "kova_host.h"

#include "peers.h"
#include "text.h"

#include <unicode/ucol.h>
#include <unicode/ustring.h>

#include <string.h>

namespace {

struct language {
    const char *name, *spec, *libc, *icu;
    const char *syllables; // of words, with blanks between
};
constexpr language languages[] = {
    {"german",   "de_DE.unicode", "de_DE.UTF-8", "de",
     "ab an auf aus be ein ent er ge un ver zer Haus Bau Hand Werk Straße Buch zeit arbeit Land "
     "stadt "
     "Mühl groß König tür schlüss el en er ung heit keit lich isch"                                                                                                                                                                          },
    {"czech",    "cs_CZ.unicode", "cs_CZ.UTF-8", "cs",
     "ba bě cho chy či do dě hlav já jí ko ků le ležá mě na ně ová po pří ro ře sta šť tá ťuk va "
     "vý za "
     "žlu ný ost"                                                                                                                                                                                                                               },
    {"japanese", "ja_JP.unicode", "ja_JP.UTF-8", "ja",
     "日 本 語 学 校 東 京 都 会 社 人 時 間 国 大 生 は が を に で と ひ らが な カ タカ ナー ッ "
     "ト"                                                                                                                                                                                                                                        },
    {"thai",     "th_TH.unicode", "th_TH.UTF-8", "th",
     "กา ขอ เค โง จะ ชา เด็ก ตา ที่ นี้ บ้าน ปี เป็น พูด ฟ้า มา ยา เรา ลูก วัน สวย หา อยู่ ไทย ใจ แม่"},
    {"korean",   "ko_KR.unicode", "ko_KR.UTF-8", "ko",
     "가 나 다 라 마 바 사 아 자 차 카 한 국 어 대 학 교 서 울 시 민 정 부 경 제 음 식 하 늘 물"                                                                                                                    },
    {"mixed",    "en_US.unicode", "en_US.UTF-8", "en",
     "the of -ing café naïve при вет Мос ква κα λη μέρα 日本 語 กา 한 국 0 12 2024 e+ (x) a_b 😀 ' "
     "& "                                                                                                                                                                                                                                         }
};

std::vector<std::string> make_words(const language &lang, size_t count) {
    std::vector<std::string> syllables(1), words(count);
    for (const char *s = lang.syllables; *s; ++s) {
        if (*s == ' ')
            syllables.emplace_back();
        else
            syllables.back() += *s;
    }
    text_random random{20112};
    for (std::string &word : words)
        for (unsigned n = 2 + random.below(3); n; --n)
            word += syllables[random.below(static_cast<unsigned>(syllables.size()))];
    return words;
}

struct setting {
    ko_lc_t loc;
    locale_t libc;
    UCollator *icu = nullptr;
    std::vector<std::string> words;

    setting(benchmark::State &state, const language &lang)
        : loc(bench_locale(state, lang.spec)), libc(peer_locale(lang.libc)),
          words(make_words(lang, 4000)) {
        UErrorCode status = U_ZERO_ERROR;
        if (loc) icu = ucol_open(lang.icu, &status);
    }
    ~setting() {
        if (icu) ucol_close(icu);
        if (libc) freelocale(libc);
        if (loc) ko_lc_unload(loc);
    }
    setting(const setting &) = delete;
    bool ready() const { return icu && loc; }
};

int by_kova(const setting &s, const std::string &a, const std::string &b) {
    return ko_utf8scoll(s.loc, a.data(), a.size(), b.data(), b.size());
}
int by_libc(const setting &s, const std::string &a, const std::string &b) {
    return strcoll_l(a.c_str(), b.c_str(), s.libc);
}
int by_icu(const setting &s, const std::string &a, const std::string &b) {
    UErrorCode status = U_ZERO_ERROR;
    return ucol_strcollUTF8(s.icu, a.data(), static_cast<int32_t>(a.size()), b.data(),
                            static_cast<int32_t>(b.size()), &status);
}

template <class Order> std::function<void()> each_pair(const setting &s, Order order) {
    return [&s, order] {
        int sum = 0;
        for (size_t i = 1; i < s.words.size(); ++i)
            sum += order(s, s.words[i - 1], s.words[i]);
        benchmark::DoNotOptimize(sum);
    };
}

void compare_words(benchmark::State &state, const language &lang, bool neighbours) {
    setting s(state, lang);
    if (!s.ready()) return;
    if (neighbours)
        std::sort(s.words.begin(), s.words.end(),
                  [&s](const auto &a, const auto &b) { return by_kova(s, a, b) < 0; });
    const auto libc = s.libc ? each_pair(s, by_libc) : std::function<void()>();
    compare(state,
            {
                {"kova",       each_pair(s, by_kova)},
                {"libc",       libc       },
                {"icu", each_pair(s,     by_icu)        }
    },
            static_cast<double>(s.words.size() - 1));
}

// ICU makes keys of UTF-16, so it converts first.
int32_t icu_key(const setting &s, const std::string &word, unsigned char *key, int32_t room) {
    UErrorCode status = U_ZERO_ERROR;
    UChar units[256];
    int32_t n = 0;
    u_strFromUTF8(units, 256, &n, word.data(), static_cast<int32_t>(word.size()), &status);
    return ucol_getSortKey(s.icu, units, n, key, room);
}

void word_keys(benchmark::State &state, const language &lang) {
    setting s(state, lang);
    if (!s.ready()) return;
    unsigned char key[1024];
    char libc_key[4096];
    const auto kova = [&] {
        for (const std::string &word : s.words)
            benchmark::DoNotOptimize(
                ko_utf8sxfrm(s.loc, key, sizeof key, word.data(), word.size()));
    };
    const auto libc = [&] {
        for (const std::string &word : s.words)
            benchmark::DoNotOptimize(strxfrm_l(libc_key, word.c_str(), sizeof libc_key, s.libc));
    };
    const auto icu = [&] {
        for (const std::string &word : s.words)
            benchmark::DoNotOptimize(icu_key(s, word, key, sizeof key));
    };
    double ours = 0, theirs = 0; // bytes of all keys
    for (const std::string &word : s.words) {
        ours += static_cast<double>(ko_utf8sxfrm(s.loc, nullptr, 0, word.data(), word.size()));
        theirs += icu_key(s, word, key, sizeof key);
    }
    compare(state,
            {
                {"kova", kova                                   },
                {"libc", s.libc ? libc : std::function<void()>()},
                {"icu",  icu                                    }
    },
            static_cast<double>(s.words.size()));
    state.counters["length"] = ours / theirs;
}

void transcode(benchmark::State &state, const language &lang, bool to_utf8) {
    setting s(state, lang);
    if (!s.ready()) return;
    std::string text;
    for (const std::string &word : s.words)
        text += word + ' ';
    std::vector<ko_wchar_t> units(text.size() + 64);
    std::string narrow(text.size() + 64, 0);
    const auto bytes = static_cast<int32_t>(text.size());
    const auto count =
        ko_utf8stowcs(s.loc, units.data(), units.size(), text.data(), text.size(), nullptr);
    const auto kova_in = [&] {
        benchmark::DoNotOptimize(
            ko_utf8stowcs(s.loc, units.data(), units.size(), text.data(), text.size(), nullptr));
    };
    const auto kova_out = [&] {
        benchmark::DoNotOptimize(ko_wcstoutf8s(s.loc, narrow.data(), narrow.size(), units.data(),
                                               static_cast<size_t>(count), nullptr));
    };
    const void *const room = units.data();
    UChar *const icu_units = static_cast<UChar *>(const_cast<void *>(room));
    const auto icu_in = [&] {
        UErrorCode status = U_ZERO_ERROR;
        int32_t n;
        benchmark::DoNotOptimize(u_strFromUTF8(icu_units, static_cast<int32_t>(units.size()), &n,
                                               text.data(), bytes, &status));
    };
    const auto icu_out = [&] {
        UErrorCode status = U_ZERO_ERROR;
        int32_t n;
        benchmark::DoNotOptimize(u_strToUTF8(narrow.data(), static_cast<int32_t>(narrow.size()), &n,
                                             icu_units, static_cast<int32_t>(count), &status));
    };
    if (to_utf8)
        compare(state,
                {
                    {"kova", kova_out},
                    {"icu",  icu_out }
        },
                bytes);
    else
        compare(state,
                {
                    {"kova", kova_in},
                    {"icu",  icu_in }
        },
                bytes);
}

// Each word by itself: short texts.
void transcode_words(benchmark::State &state, const language &lang) {
    setting s(state, lang);
    if (!s.ready()) return;
    ko_wchar_t units[256];
    UChar icu_units[256];
    double bytes = 0;
    for (const std::string &word : s.words)
        bytes += static_cast<double>(word.size());
    const auto kova = [&] {
        for (const std::string &word : s.words)
            benchmark::DoNotOptimize(
                ko_utf8stowcs(s.loc, units, 256, word.data(), word.size(), nullptr));
    };
    const auto icu = [&] {
        for (const std::string &word : s.words) {
            UErrorCode status = U_ZERO_ERROR;
            int32_t n;
            benchmark::DoNotOptimize(u_strFromUTF8(icu_units, 256, &n, word.data(),
                                                   static_cast<int32_t>(word.size()), &status));
        }
    };
    compare(state,
            {
                {"kova", kova},
                {"icu",  icu }
    },
            bytes);
}

const bool registered = [] {
    const auto add = [](const std::string &name, auto run) {
        benchmark::RegisterBenchmark(name.c_str(), run)->Apply(paired_rounds);
    };
    for (const language &lang : languages) {
        const std::string name = lang.name;
        add("host_compare/" + name, [&](auto &state) { compare_words(state, lang, false); });
        add("host_neighbours/" + name, [&](auto &state) { compare_words(state, lang, true); });
        add("host_keys/" + name, [&](auto &state) { word_keys(state, lang); });
        add("host_from_utf8/" + name, [&](auto &state) { transcode(state, lang, false); });
        add("host_words_from_utf8/" + name, [&](auto &state) { transcode_words(state, lang); });
        add("host_to_utf8/" + name, [&](auto &state) { transcode(state, lang, true); });
    }
    return true;
}();

} // namespace
