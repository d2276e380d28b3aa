// Sixteen threads at once: calls of every family on records that they share, failures included,
// while the same and other records are loaded and unloaded. What each thread gets is what one
// thread gets alone. Build it with the thread sanitizer, too: cmake --workflow --preset tsan.
#include "kova_host.h"
#include "locale/kovautils.h"
#include "support/fixture.h"

#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <barrier>
#include <fstream>
#include <sstream>
#include <thread>

#ifdef __unix__
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

using namespace std::string_literals;
constexpr int threads = 16;

// Runs work(number) in all threads, which begin together.
template <class Work> void at_once(Work work) {
    std::barrier start(threads);
    std::vector<std::thread> all;
    for (int t = 0; t < threads; ++t)
        all.emplace_back([&start, &work, t] {
            start.arrive_and_wait();
            work(t);
        });
    for (std::thread &thread : all)
        thread.join();
}

// The error word of a host that wants each thread's own errors.
thread_local int own_word;
int *own_errno(void *) { return &own_word; }

// What calls gave, as text: results, errors (where a hook keeps each thread's own) and what was
// written.
struct answers {
    bool errors;
    std::string text;
    template <class T> void add(T result) {
        std::ostringstream shown;
        shown << result << '/' << (errors ? std::exchange(own_word, 0) : 0) << ' ';
        text += shown.str();
    }
    template <class Unit> void add(int64_t result, const Unit *made, size_t room) {
        add(result);
        const size_t n = result > 0 ? std::min(size_t(result), room) : 0;
        text.append(reinterpret_cast<const char *>(made), n * sizeof(Unit));
    }
};

// Texts of several code sets, few of them well-formed in all; the terminator has any length.
const std::string &sample(size_t i) {
    static const std::string zeros(4, '\0');
    static const std::string all[] = {
        "Stra\xDF"
        "e 1.234,56 EUR" +
            zeros,
        "\xA4\xA2\xB0\xA1 abc" + zeros,
        "\0A\0b\0\xE4\x30\x42"s + zeros,
        "\xFF\xFE\x80" + zeros,
        "Gr\xC3\xBC\xC3\x9F"
        "e aus K\xC3\xB6ln" +
            zeros,
        zeros,
        std::string(70, 'Q') + "\xE0\xE1" + zeros,
        "12 Sep 2024, 1,234.5" + zeros,
    };
    return all[i % std::size(all)];
}
constexpr size_t samples = 8;

void ask_order(ko_lc_t loc, answers *a) {
    const auto *const head = static_cast<loc_exports *>(loc);
    ko_mchar_t key[600];
    char own[600];
    for (size_t i = 0; i < samples * 2; ++i) {
        const std::string &x = sample(i), &y = sample(i * 3 + 1);
        a->add(head->mbscoll(loc, mb(x.data()), mb(y.data())));
        a->add(head->mbsxfrm(loc, key, mb(x.data()), sizeof key), key, sizeof key);
        a->add(ko_utf8scoll(loc, x.data(), x.size(), y.data(), y.size()));
        a->add(ko_utf8sxfrm(loc, own, sizeof own, x.data(), x.size()), own, sizeof own);
    }
}

void ask_characters(ko_lc_t loc, answers *a) {
    const auto *const head = static_cast<loc_exports *>(loc);
    ko_mchar_t out[600];
    ko_wchar_t wide_out[300];
    char own[600];
    for (size_t i = 0; i < samples; ++i) {
        const std::string &x = sample(i);
        const ko_mchar_t *const s = mb(x.data());
        a->add(ko_tombsupper(loc, out, s), out, sizeof out);
        a->add(im_ismctype(loc, s, KO_CT_ALPHA));
        a->add(head->mbstowcs(loc, wide_out, s, 300), wide_out, 300);
        a->add(ko_mbswidth(loc, s, 100));
        a->add(im_mbslen(loc, s));
        a->add(ko_full_mbsmbs(loc, s, mb(sample(i + 1).data())) != nullptr);
        a->add(ko_utf8supper(loc, own, sizeof own, x.data(), x.size()), own, sizeof own);
        a->add(ko_utf8stowcs(loc, wide_out, 300, x.data(), x.size(), nullptr), wide_out, 300);
    }
    for (const char16_t *wide : {u"abc\u00E4", u"\u3042\u4E9C", u"\xD800"})
        a->add(ko_full_wcstombs(loc, out, wcs(wide).data(), 100), out, sizeof out);
}

void ask_values(ko_lc_t loc, answers *a) {
    ko_wchar_t out[300];
    const ko_tm_t noon = {.tm_min = 30, .tm_hour = 12, .tm_mday = 7, .tm_mon = 8, .tm_year = 124};
    ko_tm_t tm = {};
    double real = 0;
    for (const char16_t *format : {u"%A %d %B %EY", u"%x %X", u"%H:%Q", u"%y-%m-%d"}) {
        a->add(ko_wcsftime(loc, out, 300, wcs(format).data(), &noon), out, 300);
        a->add(ko_wcsptime(loc, wcs(u"24-09-07").data(), wcs(format).data(), &tm, 'C') != nullptr);
        a->add(tm.tm_mon * 100 + tm.tm_mday);
        a->add(ko_mbsftime(loc, reinterpret_cast<ko_mchar_t *>(out), 8, mb("%p\0\0\0"), &noon));
    }
    for (const char16_t *format : {u"%'.2f", u"%e", u"%k"}) {
        a->add(ko_wcsfnum(loc, out, 300, wcs(format).data(), 1234567.5), out, 300);
        a->add(ko_wcspnum(loc, wcs(u"1.234,5").data(), wcs(u"%lf").data(), &real));
    }
    a->add(ko_wcsfmon(loc, out, 300, wcs(u"%n|%i").data(), -1234.5, 9.0), out, 300);
    a->add(ko_wcsfmon(loc, out, 300, wcs(u"%!").data(), 1.0));
    for (unsigned item = 0; item <= KO_LANGINFO_MAX + 1; ++item)
        a->add(ko_wc_nl_langinfo(loc, item) ? ko_wcslen(ko_wc_nl_langinfo(loc, item)) : -1);
}

void ask_conversion(ko_cv_t cd, answers *a) {
    for (size_t i = 0; i < samples; ++i)
        for (const int room : {400, 5}) {
            const std::string &x = sample(i);
            ko_mchar_t out[400], *to = out;
            const ko_mchar_t *from = mb(x.data());
            int left = int(x.size()) - 4, space = room, sub = 0;
            conv_state st = {.first_frag = 1, .last_frag = 1};
            a->add(ko_cv_mconv(cd, &st, &from, &left, &to, &space, &sub));
            a->add(left * 2 + sub);
            a->add(to - out, out, sizeof out);
        }
}

void ask_charmap(ko_cm_t cm, answers *a) {
    for (size_t i = 0; i < samples; ++i) {
        char out[900];
        const ko_mchar_t *from = mb(sample(i).data());
        a->add(ko_mbstosyms(cm, out, sizeof out, &from, int(sample(i).size()) - 4), out,
               sizeof out);
    }
}

// A handle of some kind, and what to ask of it.
struct subject {
    const char *name;
    int (*open)(void **handle, const char *name);
    void (*ask)(void *handle, answers *a);
    void (*close)(void *handle);
};
int load(void **loc, const char *name) { return ko_lc_load(loc, name, nullptr, nullptr); }
int open(void **loc, const char *name) { return ko_open_locale(loc, nullptr, name, 0); }
int make(void **loc, const char *name) { // of its own, a category from elsewhere
    ko_lc_t from = nullptr;
    char *const set = ko_createlocale_2(loc) ? nullptr : ko_setlocale_2(*loc, KO_LC_TIME, name);
    const int copied = load(&from, "de_DE.unicode") ? -1 : ko_copy_cat(*loc, from, KO_LC_TIME);
    ko_lc_unload(from);
    const bool made = set != nullptr;
    ko_destroystring(set);
    return made * 2 + (copied == 0);
}
int convert(void **cd, const char *to) { return ko_open_conversion(cd, nullptr, "EUC-JP", to, 0); }
int load_cv(void **cd, const char *to) {
    return ko_cv_load(cd, to, "de_DE.ISO-8859-1", nullptr, nullptr);
}
int load_cm(void **cm, const char *name) { return ko_cm_load(cm, name, nullptr, nullptr); }
void ask_all(void *loc, answers *a) {
    ask_order(loc, a), ask_characters(loc, a), ask_values(loc, a);
}
void ask_word(void *, answers *a) { a->add(0); }
void unload_cv(void *cd) { ko_cv_unload(cd); }

constexpr subject subjects[] = {
    {"en_US.ISO-8859-1", load,    ask_all,        ko_lc_unload   },
    {"de_DE.unicode",    load,    ask_all,        ko_lc_unload   },
    {"ja_JP.EUC-JP",     load,    ask_all,        ko_lc_unload   },
    {"th_TH.TIS-620",    open,    ask_all,        ko_close_locale},
    {"fr_CA.unicode",    open,    ask_all,        ko_close_locale},
    {"en_us\\0025.lco",  make,    ask_word,       ko_lc_unload   },
    {"xx_XX.ISO-8859-1", load,    ask_word,       ko_lc_unload   },
    {"de_DE.none",       open,    ask_word,       ko_close_locale},
    {"utf8",             convert, ask_conversion, unload_cv      },
    {"ISO-2022-JP",      convert, ask_conversion, unload_cv      },
    {"SHIFT_JIS",        convert, ask_conversion, unload_cv      },
    {"en_US.unicode",    load_cv, ask_conversion, unload_cv      },
    {"en_US.none",       load_cv, ask_word,       unload_cv      },
    {"EUC-JP",           load_cm, ask_charmap,    ko_cm_unload   },
    {"none",             load_cm, ask_word,       ko_cm_unload   },
};

struct held : std::vector<void *> { // all subjects
    std::vector<int> results;
    held() {
        for (const subject &s : subjects)
            push_back(nullptr), results.push_back(s.open(&back(), s.name));
    }
    ~held() {
        for (size_t i = 0; i < size(); ++i)
            subjects[i].close((*this)[i]);
    }
};

// What one thread gets of a subject that it opens, asks and closes.
std::string visit(const subject &s, bool errors) {
    void *handle = nullptr;
    own_word = 0;
    answers a = {errors, ""};
    a.add(s.open(&handle, s.name));
    s.ask(handle, &a);
    s.close(handle);
    return a.text;
}

std::atomic<long> live;
void *counted_malloc(size_t size) {
    void *const block = malloc(size);
    if (block) ++live;
    return block;
}
void counted_free(void *block) {
    if (block) --live;
    free(block);
}

struct Threads : ::testing::Test {
    real_variable root{"VANTORDIR", env("KOVA_TEST_ROOT").c_str()};
};
struct ThreadErrors : Threads, ::testing::WithParamInterface<bool> {};

} // namespace

TEST_P(ThreadErrors, GetFromSharedHandlesWhatOneThreadGets) {
    const bool errors = GetParam();
    const installed_hooks hooks = {
        {KO_EXT_ERRNO, errors ? as_hook(own_errno) : nullptr}
    };
    std::vector<std::string> want;
    {
        const held alone;
        for (size_t i = 0; i < alone.size(); ++i) {
            answers a = {errors, ""};
            own_word = 0;
            subjects[i].ask(alone[i], &a);
            want.push_back(a.text);
        }
    }
    const held shared; // no key of it has been made yet
    std::atomic<int> differ = 0;
    at_once([&](int t) {
        for (size_t i = 0; i < 2 * shared.size(); ++i) {
            const size_t at = (i + size_t(t / 2)) % shared.size();
            answers a = {errors, ""};
            own_word = 0;
            subjects[at].ask(shared[at], &a);
            differ += a.text != want[at];
        }
    });
    EXPECT_EQ(differ, 0);
}

TEST_P(ThreadErrors, LoadAndUnloadTheSameAndOtherHandles) {
    const bool errors = GetParam();
    const installed_hooks hooks = {
        {KO_EXT_ERRNO,  errors ? as_hook(own_errno) : nullptr},
        {KO_EXT_MALLOC, as_hook(counted_malloc)              },
        {KO_EXT_FREE,   as_hook(counted_free)                },
    };
    live = 0;
    std::vector<std::string> want;
    for (const subject &s : subjects)
        want.push_back(visit(s, errors));
    EXPECT_EQ(live, 0);
    std::atomic<int> differ = 0;
    at_once([&](int t) {
        for (size_t i = 0; i < std::size(subjects); ++i) {
            const size_t at = (i + size_t(t / 4)) % std::size(subjects);
            differ += visit(subjects[at], errors) != want[at];
            if (t % 8 == 0) ko_cache_registry(nullptr, nullptr);
            if (t % 8 == 1) ko_display_lc_node_list();
        }
    });
    EXPECT_EQ(differ, 0);
    EXPECT_EQ(live, 0);
}

// Loads a locale at every tenth allocation, and inside these none.
static void *loading_malloc(size_t size) {
    static thread_local int calls;
    static thread_local bool inside;
    if (!std::exchange(inside, true)) {
        ko_lc_t loc = nullptr;
        if (++calls % 10 == 0) ko_lc_load(&loc, "en_US.ISO-8859-1", nullptr, nullptr);
        ko_lc_unload(loc);
        inside = false;
    }
    return counted_malloc(size);
}

TEST_F(Threads, MayLoadInTheHooksThatLoadingCalls) {
    const std::string want = visit(subjects[0], false);
    const installed_hooks hooks = {
        {KO_EXT_MALLOC, as_hook(loading_malloc)},
        {KO_EXT_FREE,   as_hook(counted_free)  }
    };
    live = 0;
    std::atomic<int> differ = 0;
    at_once([&](int) { differ += visit(subjects[0], false) != want; });
    EXPECT_EQ(differ, 0);
    EXPECT_EQ(live, 0);
}

TEST_F(Threads, WriteWholeLinesToTheLog) {
    const temp_dir home;
    const real_variable folder("HOME", home.path.c_str()), on("KOVALOG", "on");
    exit_utilities();
    ko_init_debug();
    at_once([](int t) {
        for (int i = 0; i < 20; ++i)
            ko_message(std::string(100, char('a' + t)).c_str());
    });
    std::istringstream lines(home.read("kova.log"));
    int whole = 0;
    for (std::string line; std::getline(lines, line);)
        whole += line.size() == 100 && line.find_first_not_of(line[0]) == line.npos;
    EXPECT_EQ(whole, 20 * threads);
    exit_utilities();
}

// The sanitizers' own locks do not allow it.
#if defined(__unix__) && !defined(KOVA_SANITIZED)
TEST_F(Threads, LeaveTheLibraryUsableInAForkedChild) {
    // Without times: localtime has a lock of its own, which some C libraries do not look after.
    const subject orders = {subjects[0].name, load, ask_order, ko_lc_unload};
    const std::string want = visit(orders, false);
    std::atomic<int> failed = 0;
    std::atomic<bool> done = false;
    at_once([&](int t) {
        while (t && !done)
            visit(orders, false);
        for (int i = 0; !t && i < 60; ++i) {
            const pid_t child = fork();
            if (!child) {
                alarm(60); // a child that waits for ever
                _exit(visit(orders, false) != want);
            }
            int status = -1;
            failed += waitpid(child, &status, 0) != child || status;
        }
        if (!t) done = true;
    });
    EXPECT_EQ(failed, 0);
}
#endif

INSTANTIATE_TEST_SUITE_P(Errors, ThreadErrors, ::testing::Bool(),
                         [](const auto &p) { return p.param ? "OfEachThread" : "Shared"; });
