// Charmap objects: loading, and text written as symbols and read back.
#include "support/answer.h"
#include "support/fixture.h"
#include "support/rows.h"

#include <time.h>

namespace {

const std::string header = "FILE_TYPE=charmap_object\nCOMPILER_VERSION=3\nHEADER_LENGTH=5\n"
                           "CODESET=A-NAME-THAT-IS-CUT-HERE\nSOURCE_VERSION=7\nEND\n";
const std::string letters = header + "s 0 NUL 1 00\ns 0 A 1 41\ns 0 cap_a 1 41\ns 0 a<b 1 42\n"
                                     "s 0 C\\D 1 43\nr 0 j0101 101 3 2 81 fe\ns 0 next 2 82 01\n"
                                     "r 0 dig00 0 200 2 90 40\ns 0 two 2 90 42\n\n"
                                     "s 0 nul2 2 85 00\ns 0 long 3 8f a1 a1\n";

struct charmap : owned<ko_cm_unload> {
    explicit charmap(const char *spec = "own.cmo", const char *dir = "m") {
        ko_cache_registry(nullptr, "none"); // the built-in one
        result = ko_cm_load(&handle, spec, nullptr, dir);
    }
};

// One result of each call: what came out, how far the source was read, result, error.
using outcome = std::tuple<std::string, long, int, int>;

outcome to_symbols(const charmap &map, const char *text, int count, int size) {
    std::vector<char> out(size_t(size) + 1, '#');
    const ko_mchar_t *at = mb(text);
    *ko_ext_errno(map) = 0;
    const int result = ko_mbstosyms(map, out.data(), size, &at, count);
    EXPECT_EQ(out[size_t(size)], '#');
    return {size ? out.data() : "", at - mb(text), result, map.error()};
}

outcome to_text(const charmap &map, const char *symbols, int size) {
    std::vector<ko_mchar_t> out(size_t(size) + 1, '#');
    const char *at = symbols;
    *ko_ext_errno(map) = 0;
    const int result = ko_symstombs(map, out.data(), size, &at);
    EXPECT_EQ(out[size_t(size)], '#');
    return {size ? text(out.data()) : "", at - symbols, result, map.error()};
}

TEST(Charmap, LoadsByNumberOrNameAndFailsCleanly) {
    file_hooks files;
    files.files["m\\0333.cmo"] = letters;
    files.files["m\\own.cmo"] = letters;
    charmap numbered("8859-1"), named("own.cmo"), missing("nowhere.cmo"), unnamed(nullptr);
    ASSERT_EQ(numbered.result, 0);
    EXPECT_STREQ(ko_cm_csname(numbered), "A-NAME-THAT-IS-CUT-HE");
    EXPECT_EQ((std::vector{ko_cm_srcver(numbered), ko_cm_cmpver(numbered), ko_mb_cm_max(numbered),
                           ko_mb_cm_min(numbered), named.result}),
              (std::vector{7, 3, 3, 1, 0}));
    EXPECT_EQ(unnamed.result, -1);
    EXPECT_EQ(answered(missing, missing.result), answer(-1, KO_EFILE)); // both have one error word
    for (charmap *const none : {&missing, &unnamed}) {
        EXPECT_EQ(to_symbols(*none, "A", 0, 9), outcome("", 0, -1, KO_EILSEQ));
        EXPECT_EQ(to_text(*none, "<A>", 9), outcome("", 0, -1, KO_ENOSYMBOL));
    }
    const auto length = [&](const char *bytes, int limit) {
        return ko_cm_mblen(numbered, mb(bytes), limit);
    };
    EXPECT_EQ(
        (std::vector{length("A", 1), length("\x81\xfe", 2), length("", 1), length(nullptr, 4)}),
        (std::vector{1, 2, 0, 0}));
    EXPECT_EQ((std::vector{length("\x81\xfe", 1), length("\x82\x02", 2), length("z", 1)}),
              (std::vector{-1, -1, -1}));
    const auto check = [&](const std::string &records, int error) {
        SCOPED_TRACE(records);
        files.files["m\\bad.cmo"] = header + records;
        charmap map("bad.cmo");
        EXPECT_EQ(answered(map, map.result), answer(error ? -1 : 0, error));
    };
    for (const std::string &bad : split(
             "s 0 A 1|s 0 A 5 1 2 3 4 5|s 0 A 0|r 0 A1 1 0 1 41|r 0 A1 1 300 1 41|"
             "r 0 A1 -1 3 1 41|r 0 A1 0 2147483647 4 0 0 0 0|s x A 1 41|s 0 A 1 zz|s 0|s - A 1 41|"
             "s 9999999999 A 1 41|r 0 A1 2147483647 1 1 41|r 0 A1"))
        check(bad, KO_EOBJECT);
    for (const std::string &good : split("s +0 A 2 41\t4|s -7 A 1 41\ns 0 B 2 41 42|s 0 B 2 41 "
                                         "42\ns 0 A 1 41|s 0 A 1 41| \t\n|"))
        check(good, 0);
    files.files["m\\bad.cmo"] = header + "r 0 j01 1 3 1 41\nr 0 j01\n"; // serves what it has
    charmap half("bad.cmo");
    EXPECT_EQ(half.result, -1);
    EXPECT_EQ(to_symbols(half, "AB", 2, 99), outcome("<j01><j02>", 2, 11, 0));
    EXPECT_EQ(to_text(half, "<j03>", 9), outcome("C", 5, 2, 0));
    for (size_t cut = 0; cut < header.size(); ++cut) {
        files.files["m\\bad.cmo"] = header.substr(0, cut);
        charmap map("bad.cmo");
        EXPECT_EQ(map.result, cut > header.find("SOURCE") ? 0 : -1) << cut;
    }
}

TEST(Charmap, WritesSymbolsAndReadsThemBack) {
    file_hooks files;
    files.files["m\\own.cmo"] = letters;
    charmap map;
    ASSERT_EQ(map.result, 0);
    // A text, its count and the room, and what comes out with the part that was read, the result
    // and the error. A symbol that does not fit is dropped whole, and so is what follows it.
    for (const auto &w : table(
             "AB\x82\x02 0 99 <A><a\\<b> 2 -1 1; "
             "\x81\xfe\x82\x01\x90\x42\x90\x43\x90\x40 10 99 <j0101><next><two><dig03><dig00> 10 "
             "33 0; "
             "AAB 3 8 <A><A> 3 7 0; ABA 3 6 <A> 3 4 0; AzA 3 99 <A> 1 -1 1; A\x81 2 99 <A> 1 -1 7; "
             "A\x81 0 99 <A> 1 -1 1; A 1 0 _ 0 -1 9; C 1 7 <C\\\\D> 1 7 0; A\x85 0 99 <A> 1 -1 "
             "1")) {
        SCOPED_TRACE(w[3]);
        EXPECT_EQ(to_symbols(map, w[0].c_str(), whole(w[1]), whole(w[2])),
                  outcome(w[3] == "_" ? "" : w[3], whole(w[4]), whole(w[5]), whole(w[6])));
    }
    EXPECT_EQ(to_symbols(map, "\x82\0\x85\0", 4, 99), outcome("<j0103><nul2>", 4, 14, 0));
    // Symbols, the room, and what comes out with the part that was read, the result and the error.
    for (auto &w : table(
             "<A><cap_a><a\\<b> 9 AAB 16 4 0; <j0103><dig199> 9 \x82 7 -1 53; "
             "<dig99><two> 9 \x90\xA3\x90\x42 12 5 0; <A><j0104> 9 A 3 -1 53; "
             "<A>~<A> 9 A 3 -1 1; <A><A 9 A 3 -1 1; <A><A\\ 9 A 3 -1 1; "
             "<A><A> 2 A 3 -1 9; <j101> 9 _ 0 -1 53; <j99999999999999> 9 _ 0 -1 53; "
             "<j-> 9 _ 0 -1 53; "
             "<j01010101010101010101010101010101010101010101010101010101010101010101> 9 _ 0 -1 53; "
             "_ 1 _ 0 1 0; <A> 0 _ 0 -1 9")) {
        SCOPED_TRACE(w[0]);
        for (std::string *word : {&w[0], &w[2]})
            if (*word == "_") word->clear();
        EXPECT_EQ(to_text(map, w[0].c_str(), whole(w[1])),
                  outcome(w[2], whole(w[3]), whole(w[4]), whole(w[5])));
    }
    const auto listed = [&](const char *bytes, int size) {
        char list[32];
        const int result = ko_mbtosymlist(map, list, size, mb(bytes), int(strlen(bytes)));
        EXPECT_EQ(result, *list ? int(strlen(list)) + 1 : -1);
        return std::string(list);
    };
    EXPECT_EQ(listed("A", 32) + listed("\x90\x42", 6), "<A><cap_a><two>");
    EXPECT_EQ(listed("\x82\x01", 32) + listed("z", 32), "<next>") << "it is after the range";
    char list[32];
    const auto wide_text = wcs(u"A\u81fe\u9042");
    const ko_wchar_t *from = wide_text.data();
    EXPECT_EQ(ko_wcstosyms(map, list, 32, &from, 0), 16);
    EXPECT_STREQ(list, "<A><j0101><two>");
    ko_wchar_t back[8];
    const char *symbols = list;
    EXPECT_EQ(ko_symstowcs(map, back, 4, &symbols), 4);
    EXPECT_EQ(wide(back), u"A\u81fe\u9042");
    symbols = list;
    EXPECT_EQ(answered(map, ko_symstowcs(map, back, 3, &symbols)), answer(-1, KO_ERANGE));
    symbols = "<A><long>";
    EXPECT_EQ(answered(map, ko_symstowcs(map, back, 8, &symbols)), answer(-1, KO_EILSEQ));
    EXPECT_EQ(wide(back), u"A");
    EXPECT_STREQ(symbols, "<long>");
    const auto beyond = wcs(u"A\uFFFF");
    from = beyond.data();
    EXPECT_EQ(answered(map, ko_wcstosyms(map, list, 32, &from, 0)), answer(-1, KO_EILSEQ));
    EXPECT_EQ(from - beyond.data(), 1);
}

TEST(Charmap, FindsNamesAndCharactersAmongManyRangesInAnyOrder) {
    file_hooks files;
    for (const bool overlap : {false, true}) {
        std::string records;
        for (int i = 19; i >= 0; --i) { // of five characters each
            char line[64];
            snprintf(line, sizeof line, "r 0 N%03d %d 5 2 90 %02x\n", 10 * i, 10 * i, 10 * i);
            records += line;
        }
        if (overlap) records += "r 0 N042 42 3 2 90 2c\n";
        files.files["m\\own.cmo"] = header + records;
        const charmap map;
        ASSERT_EQ(map.result, 0);
        EXPECT_EQ(to_symbols(map, "\x90\x2c\x90\x14\x90\xbe", 6, 99),
                  outcome("<N044><N020><N190>", 6, 19, 0));
        EXPECT_EQ(to_text(map, "<N190><N044><N000>", 9), outcome("\x90\xbe\x90\x2c\x90", 18, 8, 0));
        EXPECT_EQ(to_text(map, "<N005>", 9), outcome("", 0, -1, KO_ENOSYMBOL));
        char list[32];
        ko_mbtosymlist(map, list, 32, mb("\x90\x2c"), 2);
        EXPECT_STREQ(list, overlap ? "<N044><N042>" : "<N044>");
        for (const char *const none : {"\x8f\xff", "\x90\xff"}) // before and after them
            EXPECT_EQ(answered(map, ko_mbtosymlist(map, list, 32, mb(none), 2)),
                      answer(-1, KO_ENOSYMBOL));
    }
}

// 65,536 names of one FNV-1a hash, whose blocks of four characters collide.
TEST(Charmap, FindsNamesOfOneHashInTimeOfTheirNumber) {
    const auto name_of = [](unsigned i) {
        std::string name = i & 1 ? "wE43" : "S204";
        for (unsigned bit = 1; bit < 16; ++bit)
            name += i >> bit & 1 ? "nE43" : "J204";
        return name;
    };
    std::string records;
    for (unsigned i = 0; i < 0x10000; ++i) {
        char bytes[16];
        snprintf(bytes, sizeof bytes, " 3 81 %02x %02x\n", i >> 8, i & 0xFF);
        records += "s 0 " + name_of(i) + bytes;
    }
    file_hooks files;
    files.files["m\\own.cmo"] = header + records;
    const clock_t start = clock();
    const charmap map;
    for (unsigned i = 0; i < 0x10000; i += 0xFFF)
        EXPECT_EQ(
            std::get<0>(to_symbols(map, std::string{'\x81', char(i >> 8), char(i)}.c_str(), 3, 99)),
            "<" + name_of(i) + ">");
    EXPECT_EQ(to_text(map, ("<" + name_of(0x4243) + ">").c_str(), 5),
              outcome("\x81\x42\x43", 66, 5, 0));
    EXPECT_LT((clock() - start) / CLOCKS_PER_SEC, 6);
}

// Blocks of the host's memory that count their bytes.
size_t live_bytes, most_bytes;
void *counting_malloc(size_t size) {
    size_t *const block = static_cast<size_t *>(malloc(size + 16));
    if (!block) return nullptr;
    live_bytes += *block = size;
    if (live_bytes > most_bytes) most_bytes = live_bytes;
    return block + 16 / sizeof *block;
}
void counting_free(void *at) {
    size_t *const block = static_cast<size_t *>(at) - 16 / sizeof(size_t);
    live_bytes -= *block;
    free(block);
}

TEST(Charmap, TakesAtMostEightTimesTheBytesOfItsRecords) {
    // format: of the record's number, twice
    // table: bytes of the table that measures text
    static const std::tuple<const char *, unsigned, size_t, int> rows[] = {
        {"s1 a 1 6\n",            1,          10000,     0         },
        {"s1 %x 4 %08x\n",        1,          800000,    0         },
        {"r1 %x0 0 1 4 %08x\n",   1,          800000,    0         },
        {"r1 a%xa0 0 1 4 %08x\n", 1,          800000,    0         },
        {"s1 a%x 4 %08x\n",       2654435761, 120000000, KO_EOBJECT},
    };
    file_hooks files;
    for (const auto &[format, factor, table, error] : rows) {
        std::string records;
        for (unsigned i = 0; i < 60000; ++i) {
            char line[64];
            snprintf(line, sizeof line, format, i, i * factor);
            records += line;
        }
        files.files["m\\own.cmo"] = header + records;
        const installed_hooks counting{
            {KO_EXT_MALLOC, as_hook(counting_malloc)},
            {KO_EXT_FREE,   as_hook(counting_free)  }
        };
        most_bytes = live_bytes = 0;
        {
            const charmap map;
            EXPECT_EQ(map.error(), error) << format;
            EXPECT_LT(most_bytes, 7 * records.size() + table) << format; // read in pieces
        }
        EXPECT_EQ(live_bytes, 0u);
    }
}

TEST(Charmap, GivesBackWhatItTookWhenHooksFail) {
    std::string object = letters;
    for (const char c : std::string("0123456789"))
        object += std::string("r 0 q") + c + "0 " + c + "0 2 2 91 " + c + "0\n";
    const auto load = [] {
        charmap map;
        return map.result == 0;
    };
    EXPECT_GT(each_stream_call_fails([&](file_hooks &f) { f.files["m\\own.cmo"] = object; }, load),
              10);
    file_hooks files;
    files.files["m\\own.cmo"] = object;
    EXPECT_GT(each_allocation_fails(load), 20);
}

} // namespace
