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

// The locales of KOVA_TEST_ROOT that take UTF-8, in "unicode" or in other code sets, each in turn.
template <class Use> void each_locale(bool unicode, Use use) {
    const std::string root = env("KOVA_TEST_ROOT");
    if (!std::filesystem::is_directory(root + "/kova/lc11")) GTEST_SKIP();
    struct wanted {
        bool unicode;
        std::vector<std::string> specs;
    } found{unicode, {}};
    const auto take = [](void *user, const ko_locale_entry *entry) {
        auto *const to = static_cast<wanted *>(user);
        if (!strcmp(entry->codeset, "unicode") == to->unicode) to->specs.push_back(entry->spec);
        return entry->error;
    };
    ASSERT_EQ(ko_list_locales(root.c_str(), take, &found), 0);
    int used = 0;
    for (const std::string &spec : found.specs) {
        SCOPED_TRACE(spec);
        owned<ko_close_locale> loc;
        ASSERT_EQ(ko_open_locale(&loc.handle, root.c_str(), spec.c_str(), 0), 0);
        if (ko_locale_utf8(loc)) continue;
        use(loc.handle);
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
            U"chsdzdžll·jnjszgyýřčůőűŐ\u030C\u0301 -",
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
