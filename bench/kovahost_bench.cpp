// Texts in UTF-8 with a length: comparing words, making their keys, and conversion to UTF-16 and
// back, beside strcoll_l and strxfrm_l of the C library's UTF-8 locales and ICU.
#include "kova_host.h"

#include "peers.h"
#include "text.h"

#include <unicode/ucnv.h>
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

// ---- Between UTF-8 and UTF-16 ----

enum form { utf8, unicode, utf16le };
constexpr const char *names[] = {"utf8", "unicode", "utf16le"},
                     *icu_names[] = {"UTF-8", "UTF-16BE", "UTF-16LE"};

struct text_set {
    std::vector<std::string> in[3]; // by form
    std::vector<ko_wchar_t> out;
    double bytes = 0; // in UTF-8
    explicit text_set(std::vector<std::string> texts) {
        in[utf8] = std::move(texts);
        for (const std::string &text : in[utf8]) {
            const auto len = static_cast<int32_t>(text.size());
            std::vector<UChar> units(text.size());
            UErrorCode status = U_ZERO_ERROR;
            int32_t n;
            u_strFromUTF8(units.data(), len, &n, text.data(), len, &status);
            std::string little, big;
            for (int32_t i = 0; i < n; ++i) {
                const char high = static_cast<char>(units[static_cast<size_t>(i)] >> 8),
                           low = static_cast<char>(units[static_cast<size_t>(i)] & 0xFF);
                little += {low, high};
                big += {high, low};
            }
            in[utf16le].push_back(little);
            in[unicode].push_back(big);
            bytes += len;
            out.resize(std::max(out.size(), 2 * text.size() + 64));
        }
    }
};

// Running text of 64 KiB, or each word by itself.
std::vector<std::string> texts_of(const language &lang, bool running) {
    const std::vector<std::string> words = make_words(lang, 4000);
    if (!running) return words;
    std::string text;
    for (size_t i = 0; text.size() < 65536; ++i)
        text += words[i % words.size()] + ' ';
    return {text};
}

template <class To, class From> To *as(From *p) {
    void *any = const_cast<void *>(static_cast<const void *>(p));
    return static_cast<To *>(any);
}

void by_host(ko_lc_t loc, text_set &t, form from) {
    for (const std::string &in : t.in[from])
        if (from == utf8)
            benchmark::DoNotOptimize(
                ko_utf8stowcs(loc, t.out.data(), t.out.size(), in.data(), in.size(), nullptr));
        else
            benchmark::DoNotOptimize(ko_wcstoutf8s(loc, as<char>(t.out.data()), t.out.size(),
                                                   as<ko_wchar_t>(in.data()), in.size() / 2,
                                                   nullptr));
}

void by_descriptor(ko_cv_t cd, text_set &t, form from) {
    for (const std::string &in : t.in[from]) {
        const ko_mchar_t *at = as<const ko_mchar_t>(in.data());
        ko_mchar_t *to = as<ko_mchar_t>(t.out.data());
        int left = static_cast<int>(in.size()), room = static_cast<int>(t.out.size() * 2), sub;
        conv_state st = {1, 1, 0, 0, nullptr};
        benchmark::DoNotOptimize(ko_cv_mconv(cd, &st, &at, &left, &to, &room, &sub));
    }
}

// ICU's fastest call, which knows the machine's byte order only.
void by_icu(text_set &t, form from) {
    for (const std::string &in : t.in[from == utf8 ? utf8 : utf16le]) {
        UErrorCode status = U_ZERO_ERROR;
        int32_t n;
        const auto len = static_cast<int32_t>(in.size()), room = static_cast<int32_t>(t.out.size());
        if (from == utf8)
            u_strFromUTF8(as<UChar>(t.out.data()), room, &n, in.data(), len, &status);
        else
            u_strToUTF8(as<char>(t.out.data()), room, &n, as<UChar>(in.data()), len / 2, &status);
        benchmark::DoNotOptimize(n);
    }
}

void by_icu_converters(UConverter *to, UConverter *from, text_set &t, form from_form) {
    for (const std::string &in : t.in[from_form]) {
        UChar pivot[1024], *pivot_source = pivot, *pivot_target = pivot;
        const char *source = in.data();
        char *target = as<char>(t.out.data());
        UErrorCode status = U_ZERO_ERROR;
        ucnv_convertEx(to, from, &target, target + 2 * t.out.size(), &source, source + in.size(),
                       pivot, &pivot_source, &pivot_target, pivot + 1024, true, true, &status);
        benchmark::DoNotOptimize(target);
    }
}

void transcode(benchmark::State &state, const language &lang, bool running, form from, form to,
               bool host) {
    const ko_lc_t loc = bench_locale(state, languages[0].spec); // all do the same here
    if (!loc) return;
    text_set t(texts_of(lang, running));
    ko_cv_t cd = nullptr;
    if (ko_open_conversion(&cd, nullptr, names[from], names[to], 0))
        return state.SkipWithError("no conversion");
    UErrorCode status = U_ZERO_ERROR;
    UConverter *icu_from = ucnv_open(icu_names[from], &status),
               *icu_to = ucnv_open(icu_names[to], &status);
    compare(state,
            {
                {"kova",     [&] { host ? by_host(loc, t, from) : by_descriptor(cd, t, from); }},
                {"icu",      [&] { by_icu(t, from); }                                          },
                {"icu_conv", [&] { by_icu_converters(icu_to, icu_from, t, from); }             }
    },
            t.bytes);
    ucnv_close(icu_from);
    ucnv_close(icu_to);
    ko_cv_unload(cd);
    ko_lc_unload(loc);
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
        for (const bool running : {true, false}) {
            const std::string text = (running ? "text/" : "words/") + name;
            const auto add_pair = [&](const char *way, form from, form to, bool host) {
                add(std::string(way) + names[from] + "_" + names[to] + "/" + text,
                    [=, &lang](auto &state) { transcode(state, lang, running, from, to, host); });
            };
            add_pair("host_", utf8, utf16le, true);
            add_pair("host_", utf16le, utf8, true);
            for (const form other : {unicode, utf16le}) {
                add_pair("conversion_", utf8, other, false);
                add_pair("conversion_", other, utf8, false);
            }
        }
    }
    return true;
}();

} // namespace
