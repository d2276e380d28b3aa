// How cost grows: nanoseconds a byte over the length of a text, loading over the size of an object,
// memory over the number of locales held, and lines for "kova sort". Rows of tab-separated values:
// plot, series, x, y.
//   growth texts BYTES   texts of 1 to BYTES bytes
//   growth load          every locale of the data root (VANTORDIR)
//   growth memory        its locales of the code set "unicode", in random order
//   growth lines COUNT   writes COUNT lines of Czech words
//   growth run COMMAND   runs a command, and writes its seconds and megabytes
// cmake/run_growth runs all of them and draws the plots.
#include "kova_host.h"

#include "peers.h"
#include "text.h"

#include <filesystem>
#include <malloc.h>
#include <memory>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void row(const char *plot, const char *series, double x, double y) {
    printf("%s\t%s\t%.9g\t%.5g\n", plot, series, x, y);
    fflush(stdout);
}

[[noreturn]] void give_up(const std::string &why) {
    fprintf(stderr, "growth: %s\n", why.c_str());
    exit(1);
}

// ---- Over the length of a text ----

constexpr const char *czech[] = {"ba", "bě",  "cho", "chy", "či", "do",   "dě",  "hlav",
                                 "já", "jí",  "ko",  "ků",  "le", "ležá", "mě",  "na",
                                 "ně", "ová", "po",  "pří", "ře", "řo",   "sta", "šť",
                                 "tá", "ťuk", "va",  "vý",  "za", "žlu",  "ný",  "ost"};
constexpr unsigned syllables = sizeof czech / sizeof *czech;

void put_czech_word(std::string &text, text_random &random) {
    for (unsigned n = 2 + random.below(3); n; --n)
        text += czech[random.below(syllables)];
}

std::string czech_text(size_t bytes) {
    std::string text;
    text.reserve(bytes + 64);
    for (text_random random{20113}; text.size() < bytes; text += ' ')
        put_czech_word(text, random);
    text.resize(bytes);
    while (!text.empty() && (text.back() & 0x80)) // may be a part of a character
        text.pop_back();
    text.resize(bytes, 'x');
    return text;
}

// Seconds of one run: the median of as many as take a fifth of a second, at least three.
double seconds_of_one(const std::function<void()> &run) {
    const long times = calibrate(run);
    std::vector<double> samples;
    const auto start = bench_clock::now();
    while (samples.size() < 3 ||
           (samples.size() < 101 &&
            std::chrono::duration<double>(bench_clock::now() - start).count() < 0.2))
        samples.push_back(seconds_of(run, times) / static_cast<double>(times));
    return median(samples);
}

void over_bytes(const char *plot, const char *series, size_t bytes,
                const std::function<void()> &run) {
    const auto n = static_cast<double>(bytes);
    row(plot, series, n, seconds_of_one(run) * 1e9 / n);
}

struct freed {
    void operator()(void *p) const { free(p); }
};
// Room that is not written before it is used.
struct room {
    size_t bytes;
    std::unique_ptr<void, freed> p;
    explicit room(size_t n) : bytes(n), p(malloc(n)) {
        if (!p) give_up("no memory");
    }
};

ko_lc_t open_locale(const char *spec) {
    ko_lc_t loc;
    if (const int error = ko_open_locale(&loc, nullptr, spec, 0))
        give_up(std::string(spec) + ": error " + std::to_string(error));
    return loc;
}

void conversion(const char *series, const char *from, const char *to, const std::string &text) {
    ko_cv_t cd;
    if (const int error = ko_open_conversion(&cd, nullptr, from, to, 0))
        give_up(std::string(from) + " to " + to + ": error " + std::to_string(error));
    const room out(std::min<size_t>(2 * text.size() + 16, INT_MAX));
    over_bytes("conversion", series, text.size(), [&] {
        const void *start = text.data();
        const auto *at = static_cast<const ko_mchar_t *>(start);
        auto *to_at = static_cast<ko_mchar_t *>(out.p.get());
        int left = static_cast<int>(text.size()), space = static_cast<int>(out.bytes), sub;
        if (ko_cv_mconv(cd, nullptr, &at, &left, &to_at, &space, &sub) < 0)
            give_up(std::string(series) + " fails");
    });
    ko_cv_unload(cd);
}

void key(const char *series, ko_lc_t loc, const std::string &text) {
    const room out(size_t(ko_utf8sxfrm(loc, nullptr, 0, text.data(), text.size())) + 1);
    over_bytes("order", series, text.size(), [&] {
        benchmark::DoNotOptimize(
            ko_utf8sxfrm(loc, out.p.get(), out.bytes, text.data(), text.size()));
    });
}

void comparison(const char *series, ko_lc_t loc, const std::string &a, const std::string &b) {
    over_bytes("order", series, a.size(), [&] {
        benchmark::DoNotOptimize(ko_utf8scoll(loc, a.data(), a.size(), b.data(), b.size()));
    });
}

void texts_of(size_t bytes) {
    const ko_lc_t loc = open_locale("cs_CZ.unicode");
    std::string text = czech_text(bytes);
    text[0] = 'b';
    {
        const room out(2 * (bytes + 1));
        over_bytes("conversion", "UTF-8 to UTF-16, Czech", bytes, [&] {
            benchmark::DoNotOptimize(ko_utf8stowcs(loc, static_cast<ko_wchar_t *>(out.p.get()),
                                                   bytes + 1, text.data(), bytes, nullptr));
        });
    }
    if (bytes > 1)
        conversion("EUC-JP to UTF-8", "EUC-JP", "utf8", bench_text(script::euc_jp, bytes));
    conversion("ISO-8859-1 to UTF-8", "8859-1", "utf8", bench_text(script::latin1, bytes));
    key("key", loc, text);
    std::string other = text;
    other.back() = other.back() == 'y' ? 'x' : 'y';
    comparison("comparison, other end", loc, text, other);
    other = text;
    other[0] = 'B';
    comparison("comparison, other case at the start", loc, text, other);
    ko_close_locale(loc);
}

void texts(size_t longest) {
    for (size_t bytes = 1; bytes <= longest; bytes *= 4)
        texts_of(bytes);
}

// ---- Loading ----

struct listed {
    std::string spec;
    bool unicode;
};

int note_locale(void *user, const ko_locale_entry *entry) {
    if (!entry->error)
        static_cast<std::vector<listed> *>(user)->push_back(
            {entry->spec, !strcmp(entry->codeset, "unicode")});
    return 0;
}

std::vector<listed> all_locales() {
    std::vector<listed> all;
    if (const int error = ko_list_locales(nullptr, note_locale, &all))
        give_up("the data root cannot be listed: error " + std::to_string(error));
    return all;
}

void load() {
    const char *root = getenv("VANTORDIR");
    if (!root) give_up("VANTORDIR names no data root");
    ko_close_locale(open_locale("de_DE.8859-1")); // reads the registry
    for (const listed &locale : all_locales()) {
        char name[311];
        if (ko_lc_spec2lc_fname(nullptr, locale.spec.c_str(), name, nullptr, nullptr)) continue;
        std::replace(std::begin(name), std::end(name), '\\', '/');
        const auto bytes =
            std::filesystem::file_size(std::filesystem::path(root) / "kova" / "lc11" / name);
        const double took =
            seconds_of_one([&] { ko_close_locale(open_locale(locale.spec.c_str())); });
        row("load", locale.unicode ? "unicode" : "another code set", static_cast<double>(bytes),
            took * 1e3);
    }
}

// ---- Memory ----

size_t held;
void *counted_malloc(size_t n) {
    void *const p = malloc(n);
    held += p ? malloc_usable_size(p) : 0;
    return p;
}
void counted_free(void *p) {
    held -= p ? malloc_usable_size(p) : 0;
    free(p);
}

template <class Hook> void install(int code, Hook hook) {
    ko_setextfunc(nullptr, code, reinterpret_cast<ko_extfn_t>(hook));
}

bool is_shown(size_t n, size_t of) { return n <= 8 || n % 8 == 0 || n == of; }

void memory() {
    install(KO_EXT_MALLOC, counted_malloc);
    install(KO_EXT_FREE, counted_free);
    std::vector<std::string> specs;
    for (const listed &locale : all_locales())
        if (locale.unicode) specs.push_back(locale.spec);
    text_random random{20114};
    for (unsigned n = static_cast<unsigned>(specs.size()); n > 1; --n)
        std::swap(specs[n - 1], specs[random.below(n)]);
    std::vector<ko_lc_t> open;
    for (const std::string &spec : specs) {
        open.push_back(open_locale(spec.c_str()));
        if (!is_shown(open.size(), specs.size())) continue;
        row("memory", "loaded", static_cast<double>(open.size()), static_cast<double>(held) / 1e6);
    }
    for (const ko_lc_t loc : open)
        ko_close_locale(loc);
    open.clear();
    for (const std::string &spec : specs) {
        open.push_back(open_locale(spec.c_str()));
        unsigned char bytes[16];
        ko_utf8sxfrm(open.back(), bytes, sizeof bytes, "a", 1);
        if (!is_shown(open.size(), specs.size())) continue;
        row("memory", "with a key made", static_cast<double>(open.size()),
            static_cast<double>(held) / 1e6);
    }
}

// ---- Lines ----

void lines(unsigned long count) {
    text_random random{20115};
    std::string block;
    for (; count; --count) {
        for (unsigned n = 2 + random.below(3); n; --n) {
            put_czech_word(block, random);
            block += n > 1 ? ' ' : '\n';
        }
        if (block.size() < 65536 && count > 1) continue;
        if (fwrite(block.data(), 1, block.size(), stdout) != block.size())
            give_up("cannot write the lines");
        block.clear();
    }
}

// ---- Commands ----

// A child counts the memory of the process that forks it, so that this has to be a small one.
void run_command(char **command) {
    const auto start = bench_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        execvp(*command, command);
        _exit(127);
    }
    int status;
    rusage usage;
    if (child < 0 || wait4(child, &status, 0, &usage) < 0 || status)
        give_up(std::string(*command) + " fails");
    const double took = std::chrono::duration<double>(bench_clock::now() - start).count();
    printf("%.4f\t%.1f\n", took, static_cast<double>(usage.ru_maxrss) / 1e3);
}

} // namespace

int main(int argc, char **argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    const unsigned long count = argc > 2 ? strtoul(argv[2], nullptr, 10) : 0;
    if (what == "texts" && count)
        texts(count);
    else if (what == "load")
        load();
    else if (what == "memory")
        memory();
    else if (what == "lines" && count)
        lines(count);
    else if (what == "run" && argc > 2)
        run_command(argv + 2);
    else
        give_up("usage: growth texts BYTES | load | memory | lines COUNT | run COMMAND");
    return fflush(stdout) || ferror(stdout) ? 1 : 0;
}
