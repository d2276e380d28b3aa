// Records of the code set "unicode", and texts for them.
#ifndef HOST_RECORDS_H
#define HOST_RECORDS_H

#include "record/kovasetlc.h"
#include "support/fixture.h"

#include "kova_host.h"

#include <random>
#include <string.h>

// An empty record that claims the code set.
struct bare_record {
    ko_lc_t loc = nullptr;
    bare_record() {
        EXPECT_EQ(ko_create_null_locale_2(&loc), 0);
        for (auto &name : record(loc)->codeset)
            strcpy(name, "unicode");
    }
    ~bare_record() { ko_lc_unload(loc); }
    bare_record(const bare_record &) = delete;
};

// The objects of KOVA_TEST_ROOT in that code set, each in turn.
template <class Use> void each_unicode_locale(Use use) {
    const char *root = getenv("KOVA_TEST_ROOT");
    if (!root || !std::filesystem::is_directory(std::string(root) + "/kova/lc11")) GTEST_SKIP();
    const real_variable dir("VANTORDIR", root);
    int used = 0;
    for (const auto &file : std::filesystem::recursive_directory_iterator(root)) {
        const std::string name = file.path().filename().string();
        if (name.substr(0, 4) != "e005" || file.path().extension() != ".lco") continue;
        const std::string spec = file.path().parent_path().filename().string() + "\\" + name;
        SCOPED_TRACE(spec);
        ko_lc_t loc = nullptr;
        ASSERT_EQ(ko_lc_load(&loc, spec.c_str(), nullptr, nullptr), 0);
        use(loc);
        ko_lc_unload(loc);
        ++used;
    }
    EXPECT_GT(used, 0);
}

inline std::string utf8(char32_t code) {
    char bytes[4];
    size_t n = 1u + (code >= 0x80) + (code >= 0x800) + (code > 0xFFFF);
    for (size_t i = n; i-- > 1; code >>= 6)
        bytes[i] = static_cast<char>(0x80 | (code & 0x3F));
    bytes[0] = static_cast<char>((n == 1 ? 0u : 0xF00u >> n) | code);
    return {bytes, n};
}

inline std::u16string utf16(char32_t code) {
    if (code <= 0xFFFF) return {static_cast<char16_t>(code)};
    return {static_cast<char16_t>(0xD7C0 + (code >> 10)),
            static_cast<char16_t>(0xDC00 + (code & 0x3FF))};
}

// Seeded texts of one script a text, with letters that expand, form elements or are ignored.
struct random_texts {
    std::mt19937 random;
    unsigned below(unsigned n) { return static_cast<unsigned>(random() % n); }
    char32_t character() {
        static const std::u32string pools[] = {
            U"aAbcdeszZyngkäÄöéèêçßæœñ\u0301\u0308-' .,12",
            U"csdzdžlljnjszgyýřčůőűŐ\u030C\u0301 -",
            U"กขคฆงจเแโใไะาำ\u0E48\u0E49\u0E47\u0E4Cฯ",
            U"かがきぎアァイーっッ゛ゝ日本語一丁々・、",
            U"한국일본가각힣ㄱㅏ\u1100\u1161\u11A8",
            U"абвгдёйЁЖщъІїҐαάβΆΩςσא\u05B0ءآا\u064B\u0651ल\u093C",
            U"😀🚀𐐀𝄞\U00020000\U0010FFFF\uE000\uFFFD\uFFFF"};
        const std::u32string &pool = pools[below(4) ? script : below(std::size(pools))];
        return pool[below(static_cast<unsigned>(pool.size()))];
    }
    unsigned script = 0;
    std::u32string text(unsigned longest) {
        script = below(7);
        std::u32string made;
        for (unsigned n = below(longest + 1); n; --n)
            made += character();
        return made;
    }
};

#endif
