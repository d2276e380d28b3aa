// Code-set conversion of whole buffers and of short strings, beside the C library's iconv and ICU.
#include "peers.h"
#include "text.h"

#include <iconv.h>
#include <string.h>
#include <unicode/ucnv.h>

namespace {

struct pair_row {
    const char *from, *to;           // registry names
    const char *libc_from, *libc_to; // the C library's
    const char *icu_from, *icu_to;
    char letters; // of the text: l(atin), g(reek), r(ussian), j(apanese), k(orean), c(hinese)
};
constexpr pair_row pair_rows[] = {
    {"iso-8859-1", "ibm437",     "ISO-8859-1", "IBM437",     "ISO-8859-1", "ibm-437",    'l'},
    {"iso-8859-7", "utf8",       "ISO-8859-7", "UTF-8",      "ISO-8859-7", "UTF-8",      'g'},
    {"koi8-r",     "utf8",       "KOI8-R",     "UTF-8",      "KOI8-R",     "UTF-8",      'r'},
    {"ibm037",     "iso-8859-1", "IBM037",     "ISO-8859-1", "ibm-37",     "ISO-8859-1", 'l'},
    {"shift_jis",  "euc-jp",     "SHIFT_JIS",  "EUC-JP",     "Shift_JIS",  "EUC-JP",     'j'},
    {"shift_jis",  "utf8",       "SHIFT_JIS",  "UTF-8",      "Shift_JIS",  "UTF-8",      'j'},
    {"utf8",       "shift_jis",  "UTF-8",      "SHIFT_JIS",  "UTF-8",      "Shift_JIS",  'j'},
    {"euc-kr",     "utf8",       "EUC-KR",     "UTF-8",      "EUC-KR",     "UTF-8",      'k'},
    {"930",        "utf8",       "IBM930",     "UTF-8",      "ibm-930",    "UTF-8",      'j'},
    {"933",        "utf8",       "IBM933",     "UTF-8",      "ibm-933",    "UTF-8",      'k'},
    {"935",        "utf8",       "IBM935",     "UTF-8",      "ibm-935",    "UTF-8",      'c'},
    {"937",        "utf8",       "IBM937",     "UTF-8",      "ibm-937",    "UTF-8",      'c'},
};

std::string utf8(unsigned code) {
    if (code < 0x80) return std::string(1, static_cast<char>(code));
    std::string s;
    if (code < 0x800) {
        s += static_cast<char>(0xC0 | code >> 6);
    } else {
        s += static_cast<char>(0xE0 | code >> 12);
        s += static_cast<char>(0x80 | (code >> 6 & 0x3F));
    }
    return s + static_cast<char>(0x80 | (code & 0x3F));
}

bool through_iconv(iconv_t cd, const std::string &in, std::string &out) {
    out.resize(in.size() * 4 + 16);
    char *from = const_cast<char *>(in.data()), *to = out.data();
    size_t left = in.size(), room = out.size();
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    if (iconv(cd, &from, &left, &to, &room) == static_cast<size_t>(-1)) return false;
    iconv(cd, nullptr, nullptr, &to, &room);
    out.resize(out.size() - room);
    return true;
}

// The characters of a script that the code set has, in UTF-8.
std::vector<std::string> repertoire(const pair_row &row, iconv_t back) {
    unsigned first = 0xC0, last = 0xFF;
    if (row.letters == 'g') first = 0x391, last = 0x3CE;
    if (row.letters == 'r') first = 0x410, last = 0x44F;
    if (row.letters == 'j' || row.letters == 'c') first = 0x4E00, last = 0x7FFF;
    if (row.letters == 'k') first = 0xAC00, last = 0xD7A3;
    std::vector<std::string> all;
    std::string bytes;
    for (unsigned code = first; code <= last; ++code)
        if (through_iconv(back, utf8(code), bytes)) all.push_back(utf8(code));
    return all;
}

// Text of about size bytes in the source code set: runs of the script, one word in six Latin.
// Korean has words of two to five syllables with blanks between them, Greek and Russian of two to
// nine letters.
std::string source_text(const pair_row &row, size_t size, uint32_t seed) {
    const iconv_t back = iconv_open(row.libc_from, "UTF-8"),
                  other = iconv_open(row.libc_to, "UTF-8");
    std::vector<std::string> letters = repertoire(row, back);
    std::erase_if(letters, [&](const std::string &c) {
        std::string bytes;
        return !through_iconv(other, c, bytes);
    });
    iconv_close(other);
    text_random random{seed * 977 + 1};
    std::string text, bytes;
    const size_t wanted = row.letters == 'l' ? size : size + size / 2;
    const unsigned longest = row.letters == 'k' ? 4 : strchr("gr", row.letters) ? 8 : 0;
    const bool words = longest != 0;
    while (text.size() < wanted) {
        const bool latin =
            row.letters == 'l' ? random.below(12) != 0 : random.below(6) == 0 && !words;
        for (unsigned n = words ? 2 + random.below(longest) : 3 + random.below(latin ? 8 : 20); n;
             --n)
            text += latin ? std::string(1, static_cast<char>('a' + random.below(26)))
                          : letters[random.below(static_cast<unsigned>(letters.size()))];
        if (latin || words) text += ' ';
    }
    if (!through_iconv(back, text, bytes)) bytes.clear();
    iconv_close(back);
    return bytes;
}

struct texts {
    std::vector<std::string> all;
    std::vector<char> out;
    double bytes = 0;
};

int our_conversion(ko_cv_t cd, const std::string &in, std::vector<char> &out) {
    const auto *from = reinterpret_cast<const ko_mchar_t *>(in.data());
    auto *to = reinterpret_cast<ko_mchar_t *>(out.data());
    int left = static_cast<int>(in.size()), room = static_cast<int>(out.size()), sub;
    conv_state st = {1, 1, 0, 0, nullptr};
    return ko_cv_mconv(cd, &st, &from, &left, &to, &room, &sub);
}

void icu_conversion(UConverter *to, UConverter *from, const std::string &in,
                    std::vector<char> &out) {
    UChar pivot[1024], *pivot_source = pivot, *pivot_target = pivot;
    const char *source = in.data();
    char *target = out.data();
    UErrorCode status = U_ZERO_ERROR;
    ucnv_convertEx(to, from, &target, target + out.size(), &source, source + in.size(), pivot,
                   &pivot_source, &pivot_target, pivot + 1024, true, true, &status);
}

void conversion(benchmark::State &state, const pair_row &row, size_t size) {
    ko_cv_t cd;
    if (ko_cv_load(&cd, row.to, row.from, nullptr, nullptr) != 1) {
        state.SkipWithError("no conversion object; set VANTORDIR to a data root");
        ko_cv_unload(cd);
        return;
    }
    texts t;
    for (uint32_t i = 0; i < (size < 1000 ? 64u : 1u); ++i) {
        t.all.push_back(source_text(row, size, i + 1));
        t.bytes += static_cast<double>(t.all.back().size());
    }
    t.out.resize(size * 4 + 64);
    if (our_conversion(cd, t.all[0], t.out)) state.SkipWithError("our conversion fails");
    const iconv_t libc = iconv_open(row.libc_to, row.libc_from);
    UErrorCode status = U_ZERO_ERROR;
    UConverter *from = ucnv_open(row.icu_from, &status), *to = ucnv_open(row.icu_to, &status);
    std::vector<contender> all = {
        {"kova_ns",
         [&] {
             for (const std::string &in : t.all)
                 our_conversion(cd, in, t.out);
         }},
        {"libc_ns",
         [&] {
             for (const std::string &in : t.all) {
                 char *source = const_cast<char *>(in.data()), *target = t.out.data();
                 size_t left = in.size(), room = t.out.size();
                 iconv(libc, nullptr, nullptr, nullptr, nullptr);
                 iconv(libc, &source, &left, &target, &room);
             }
         }},
    };
    if (U_SUCCESS(status))
        all.push_back({"icu_ns", [&] {
                           for (const std::string &in : t.all)
                               icu_conversion(to, from, in, t.out);
                       }});
    compare(state, all, t.bytes);
    ucnv_close(from);
    ucnv_close(to);
    iconv_close(libc);
    ko_cv_unload(cd);
}

bool opened(const pair_row &row) {
    ko_cv_t cd;
    return ko_cv_load(&cd, row.to, row.from, nullptr, nullptr) == 1;
}

// Opening in a new process, from names to tables. A data root may have an image.
void first_open(benchmark::State &state, const pair_row &row) {
    const auto open_libc = [&] {
        return iconv_open(row.libc_to, row.libc_from) != reinterpret_cast<iconv_t>(-1);
    };
    const auto open_icu = [&] {
        UErrorCode status = U_ZERO_ERROR;
        ucnv_open(row.icu_from, &status);
        ucnv_open(row.icu_to, &status);
        return U_SUCCESS(status) != 0;
    };
    compare_first(state, {
                             {"kova_ns", [&] { return opened(row); }},
                             {"libc_ns", open_libc                  },
                             {"icu_ns",  open_icu                   }
    });
}

// Opening an object in a running process, in nanoseconds per call, while one of ours is held or
// none is. The peers keep theirs in memory.
void open_object(benchmark::State &state, const pair_row &row, bool held) {
    const auto open = [&] {
        ko_cv_t cd;
        ko_cv_load(&cd, row.to, row.from, nullptr, nullptr);
        ko_cv_unload(cd);
    };
    const auto open_libc = [&] { iconv_close(iconv_open(row.libc_to, row.libc_from)); };
    gen_exports word = {};
    ko_cache_registry(&word, nullptr); // measures the object, not the registry
    ko_cv_t first = nullptr;
    if (held) ko_cv_load(&first, row.to, row.from, nullptr, nullptr);
    compare(state,
            {
                {"kova_ns", open     },
                {"libc_ns", open_libc}
    },
            1);
    if (held) ko_cv_unload(first);
}

const int registered = [] {
    for (const pair_row &row : pair_rows) // before any is opened in this process
        benchmark::RegisterBenchmark(
            (std::string(row.from) + "_to_" + row.to + "/first_open").c_str(), first_open, row)
            ->Apply(paired_rounds);
    for (const pair_row &row : pair_rows) {
        const std::string name = std::string(row.from) + "_to_" + row.to;
        for (const size_t size : {size_t{40}, size_t{16} << 20})
            benchmark::RegisterBenchmark((name + (size < 1000 ? "/40_bytes" : "/16_MiB")).c_str(),
                                         conversion, row, size)
                ->Apply(paired_rounds);
        for (const bool held : {false, true})
            benchmark::RegisterBenchmark((name + (held ? "/open_held" : "/open")).c_str(),
                                         open_object, row, held)
                ->Apply(paired_rounds);
    }
    return 0;
}();

} // namespace
