// Look-up tables: building, looking up, sharing, text form, damaged texts, lack of memory.
#include "locale/kovamulti.h"
#include "support/answer.h"
#include "support/rows.h"
#include "support/tables.h"

#include <random>
#include <stdio.h>
#include <string.h>

namespace {

int value_of(const void *item) { // -1: none
    uint16_t value;
    if (!item) return -1;
    memcpy(&value, item, sizeof value);
    return value;
}

int find(void *table, std::string_view bytes) {
    const char_desc desc = desc_of(bytes);
    return value_of(retrieve_desc_multi(&desc, table));
}

int read_item(void *stream, void *dest, int size) {
    char digits[5] = {};
    for (int i = 0; i < 4; ++i) {
        const int c = ko_ext_getc(stream);
        if (c < 0) return -1;
        digits[i] = char(c);
    }
    const auto item = uint16_t(strtol(digits, nullptr, 16));
    memcpy(dest, &item, size_t(size));
    return 0;
}

int read_back(const std::string &text, void *table, int max_len = 4, std::string *rest = nullptr,
              int (*read)(void *, void *, int) = read_item) {
    file_hooks files;
    files.files["table"] = text;
    void *stream = ko_ext_fopen("table", "r");
    const int result = fscanf_multi(stream, table, max_len, read);
    for (int c; rest && (c = ko_ext_getc(stream)) >= 0;)
        *rest += char(c);
    ko_ext_fclose(stream);
    return result;
}

// A code set of one- and two-byte characters with repeating rows and a few items.
void fill_mixed(void *table) {
    for (int c = 0; c < 0x80; ++c) {
        const char byte = char(c);
        insert(table, {&byte, 1}, c >= 'a' && c <= 'z' ? 6 : c & 1);
    }
    for (int a = 0xA1; a < 0xA9; ++a)
        for (int b = 0xA1; b < 0xFF; ++b) {
            const char bytes[] = {char(a), char(b)};
            insert(table, {bytes, 2}, a > 0xA4 ? 4 : -1);
        }
}

void fill_small(void *table) {
    for (const char *text : {"a", "b", "c", "d", "e", "\x81\x40", "\x81\x41", "\x82\x40"})
        insert(table, text, 7);
    insert(table, "z", 0x12);
}

// Ten times the shortest length of a character and the longest.
int lengths_of(void *table) { return 10 * multi_min_length(table) + multi_max_length(table); }

// Every two-byte string and every wide value gives the same answers in both tables.
void expect_same_answers(void *one, void *two) {
    for (int v = 0; v < 0x10000; ++v) {
        test_handle h1, h2;
        const ko_mchar_t bytes[5] = {ko_mchar_t(v >> 8), ko_mchar_t(v)};
        int n1 = -2, n2 = -2;
        const int i1 = value_of(retrieve_text_multi(bytes, one, &n1, &h1.gen));
        const int i2 = value_of(retrieve_text_multi(bytes, two, &n2, &h2.gen));
        const auto wc = ko_wchar_t(v);
        const int w1 = value_of(retrieve_wchar_multi_nl(&h1.gen, wc, one));
        const int w2 = value_of(retrieve_wchar_multi_nl(&h2.gen, wc, two));
        ASSERT_TRUE(i1 == i2 && n1 == n2 && w1 == w2 && h1.error() == h2.error()) << "at " << v;
    }
}

} // namespace

TEST(MultiTable, InsertRefusesConflictsAndBadLengths) {
    const auto second = [](std::string_view first, std::string_view bytes) {
        SCOPED_TRACE(::testing::PrintToString(bytes));
        table_guard table;
        EXPECT_EQ(insert(table, first, 1), 0);
        const int result = insert(table, bytes, 2);
        EXPECT_EQ(find(table, first), first == bytes ? 2 : 1);
        EXPECT_EQ(find(table, bytes) == 2, result == 0);
        return result;
    };
    for (const char *good : {"\x81\x41", "\x81\x40", "\x82\x40\x40\x40"})
        EXPECT_EQ(second("\x81\x40", good), 0);
    for (const char *bad : {"\x81", "\x81\x40\x41", "", "bcdef"})
        EXPECT_EQ(second("\x81\x40", bad), -1);
    EXPECT_EQ(second("\x81", "\x81\x40"), -1);
}

TEST(MultiTable, ItemsDefaultAndAreOverwritten) {
    const uint16_t nine = 9;
    table_guard table(2, &nine), odd(3, "xyz"); // slots of four bytes
    EXPECT_EQ(lengths_of(table), 20);
    insert(table, "a");
    insert(table, "b", 5);
    EXPECT_EQ(find(table, "a"), 9); // the fresh array is filled with the default
    insert(table, "b");
    EXPECT_EQ(find(table, "b"), 5);
    EXPECT_EQ(lengths_of(table), 11);
    const char_desc a = desc_of("a"), b = desc_of("b");
    insert_desc_multi(&a, "123", odd);
    insert_desc_multi(&b, nullptr, odd);
    EXPECT_EQ(memcmp(retrieve_desc_multi(&a, odd), "123", 3), 0);
    EXPECT_EQ(memcmp(retrieve_desc_multi(&b, odd), "xyz", 3), 0);
}

TEST(MultiTable, TextLookupsReportBytesAndErrors) {
    table_guard table;
    fill_small(table);
    insert(table, "\x90\x91\x92\x93", 8);
    // A text, the limit, the item, the bytes taken and the error.
    for (const auto &w :
         ::table("a 4 7 1 0; \x81@ 2 7 2 0; \x81@ 1 -1 1 7; \x81\x7F 4 -1 2 1; \xFF 4 -1 1 1; "
                 "a -3 -1 0 7; \x90\x91\x92\x93 4 8 4 0; \x90\x91\x92\x93 3 -1 3 7; _ 4 -1 1 1")) {
        const char *const text = w[0] == "_" ? "" : w[0].c_str();
        const int limit = whole(w[1]), want = whole(w[2]), taken = whole(w[3]), error = whole(w[4]);
        SCOPED_TRACE(::testing::PrintToString(text) + " " + w[1]);
        test_handle h;
        int len = -9;
        const void *item = retrieve_text_multi_limit(mb(text), table, limit, &len, &h.gen);
        EXPECT_EQ(value_of(item), want);
        EXPECT_EQ(len, taken);
        EXPECT_EQ(h.error(), error);
        if (limit < 4) continue;
        test_handle all, nl, nv;
        EXPECT_EQ(retrieve_text_multi(mb(text), table, &len, &all.gen), item);
        EXPECT_EQ(len, taken);
        EXPECT_EQ(retrieve_text_multi_nl(mb(text), table, &nl.gen), item);
        EXPECT_EQ(retrieve_text_multi_nv(mb(text), table, &nv.gen), item ? taken : 0);
        for (auto *each : {&all, &nl, &nv})
            EXPECT_EQ(each->error(), error);
    }
    for (const char *none : {"\x81", "aa", ""})
        EXPECT_EQ(find(table, none), -1);
    // The double-byte look-up reads no flag.
    table_guard pairs;
    test_handle h;
    EXPECT_EQ(answered(h, retrieve_text_doub_limit(mb("\x81\x40"), pairs, 2, &h.gen)),
              answer(0, KO_EILSEQ));
    insert(pairs, "\x81\x40", 3);
    EXPECT_EQ(value_of(retrieve_text_doub_limit(mb("\x81\x40"), pairs, 2, &h.gen)), 3);
    EXPECT_EQ(value_of(retrieve_text_doub_limit(mb("\x99\x41"), pairs, 2, &h.gen)), 0);
    EXPECT_EQ(answered(h, retrieve_text_doub_limit(mb("\x81\x40"), pairs, 1, &h.gen)),
              answer(0, KO_EINVAL));
}

TEST(MultiTable, CompressionKeepsAnswersAndSharesArrays) {
    table_guard plain, shared;
    fill_mixed(plain);
    fill_mixed(shared);
    const auto counts = [&] {
        std::vector<int> of(3); // items, flags, offsets
        multi_node_count(shared, &of[0], &of[1], &of[2]);
        return of;
    };
    EXPECT_EQ(counts(), (std::vector{5, 9, 1})); // the root and four rows of items
    ASSERT_EQ(compress_multi(shared), 0);
    EXPECT_EQ(counts(), (std::vector{2, 2, 1}));
    expect_same_answers(plain, shared);
    EXPECT_EQ(compress_multi(shared), 0);
    EXPECT_EQ(insert(shared, "\xB1\xB1", 1), -1);
    EXPECT_EQ(compress_multi(nullptr), 0);
}

TEST(MultiTable, SingleByteTablesTakeEveryByteWhenSharedOrWritten) {
    table_guard shared, written, wider;
    for (void *table : {shared.p, written.p, wider.p})
        insert(table, "a", 1);
    insert(wider, "\x81\x40", 1);
    compress_multi(shared), compress_multi(wider), printed(written);
    EXPECT_EQ(find(shared, "\xFF"), 0);
    EXPECT_EQ(find(written, "\xFF"), 0);
    EXPECT_EQ(find(wider, "\xFF"), -1);
}

TEST(MultiTable, TwoAreTheSameIfAllThatTheyHoldIs) {
    static const char other_item[2] = {1};
    const auto made = [](const char *words, unsigned size = 2, unsigned flags = 0,
                         const char *item = nullptr) {
        mb_decode *const table = static_cast<mb_decode *>(create_multi(size, flags, item));
        for (const std::string &word : split(words, ' ')) // a character, and its item behind "="
            EXPECT_EQ(insert(table, word.substr(0, word.find('=')), word.back()), 0);
        return table;
    };
    const char *const all = "a=1 \x81\x40=2 \x81\x41=3 \x82\x40=4";
    mb_decode *const table = made(all);
    const auto check = [&](mb_decode *other, bool same) {
        EXPECT_EQ(same_table(table, other), same);
        EXPECT_EQ(same_table(other, table), same);
        free_multi(other);
    };
    check(made(all), true);
    for (const char *const other :
         {"a=1 \x81\x40=2 \x81\x41=4 \x82\x40=4", "a=1 \x81\x40=2 \x81\x42=3 \x82\x40=4",
          "b=1 \x81\x40=2 \x81\x41=3 \x82\x40=4", "a=1 \x81\x40=2 \x81\x41=3 \x83\x40=4",
          "a=1 \x81\x40=2 \x81\x41=3", "a=1", "\x81\x40=2 \x81\x41=3 \x82\x40=4",
          "a=1 \x81\x40=2 \x81\x41=3 \x82\x40\x40=4"}) {
        SCOPED_TRACE(other);
        check(made(other), false);
    }
    check(nullptr, false);
    check(made(all, 1), false);
    check(made(all, 2, 0x100), false);
    check(made(all, 2, 0, other_item), false);
    free_multi(table);
}

TEST(MultiText, RunsAreChosenAsTheFormatSays) {
    static const std::pair<const char *, const char *> rows[] = {
  // items by byte
        {"123333",  "0000500100010002000300030003\n050010010003\n"    },
        {"555",     "00003001000500050005\n"                          },
        {"50006",   "0000500100050000000000000006\n"                  },
        {"500006",  "000010010005\n050010010006\n"                    },
        {"",        ""                                                },
        {"1222222", "000040010001000200020002\n04003001000200020002\n"},
    };
    for (auto &[items, want] : rows) {
        table_guard table;
        insert(table, "\x81\x40", 1); // keeps the flags of other bytes as they are
        for (char byte = 0; items[int(byte)]; ++byte)
            if (const int item = items[int(byte)] - '0'; item) insert(table, {&byte, 1}, item);
        if (!*items) insert(table, "a", 0);
        const std::string text = printed(table);
        const size_t data = text.find("0000000\n") + 8;
        EXPECT_EQ(text.substr(data, strlen(want) + 8), want + std::string("0000000\n"));
    }
}

TEST(MultiText, UncompressedAndCompressedFormsAreExact) {
    table_guard table;
    insert(table, "\x81\x40", 7);
    insert(table, "a", 0x1F);
    insert(table, "\x82\x40");
    EXPECT_EQ(printed(table), "2 1 1 0000\n"
                              "1 1\n6100100104\n810020010101\n0000000\n61001001001f\n0000000\n"
                              "1 1\n4000100104\n0000000\n400010010007\n0000000\n"
                              "1 0\n4000100104\n0000000\n");
    ASSERT_EQ(compress_multi(table), 0);
    EXPECT_EQ(printed(table), "2 1 3 0000\n"
                              "2 2\n6100100104\n810020010101\n0000000\n4000100104\n0000000\n"
                              "61001001001f\n0000000\n400010010007\n0000000\n"
                              "1 1 0 0\n1 1 1 1\n1 0 1 0\n");
}

TEST(MultiText, ReadingBackGivesTheSameAnswersAndTheSameText) {
    std::mt19937 random(7);
    for (int round = 0; round < 24; ++round) {
        SCOPED_TRACE(round);
        table_guard plain, table, back, from_memory;
        for (void *to : {plain.p, table.p})
            if (!round) fill_mixed(to);
        for (int i = 0; i < round * 40; ++i) {
            const char bytes[] = {char(random() % 41 * 6), char(random())}; // lists of many arrays
            const std::string_view character(bytes, 1 + random() % 2);
            const int item = int(random() % 4) - 1;
            insert(plain, character, item), insert(table, character, item);
        }
        ASSERT_EQ(round % 2 ? compress_multi(table) : 0, 0);
        const std::string text = printed(table);
        std::string rest;
        ASSERT_EQ(read_back(text + "next", back, 2, &rest), 0);
        EXPECT_EQ(multi_err(back), 0);
        // One white-space character may be left to the reader of what follows.
        EXPECT_TRUE(rest == "next" || rest == "\nnext") << rest;
        expect_same_answers(plain, back);
        EXPECT_EQ(printed(back), text);
        text_in in = memory_of(text);
        ASSERT_EQ(read_multi_ub2(&in, from_memory.operator->(), 2), 0);
        EXPECT_EQ(printed(from_memory), text);
    }
}

TEST(MultiText, DamageIsRefused) {
    const std::string flat = "2 1 1 0000\n1 1\n6100100104\n0000000\n", empty = "0000000\n",
                      list = "2 1 3 0000\n1 0\n" + empty;
    const auto check = [](const std::string &text, int error) {
        SCOPED_TRACE(text);
        table_guard stream_table, memory_table;
        EXPECT_EQ(read_back(text, stream_table, 2), error ? -1 : 0);
        EXPECT_EQ(multi_err(stream_table), error);
        text_in in = memory_of(text);
        EXPECT_EQ(read_multi_ub2(&in, memory_table.operator->(), 2), error ? -1 : 0);
        EXPECT_EQ(multi_err(memory_table), error);
        if (!error) return expect_same_answers(stream_table, memory_table);
        EXPECT_EQ(lengths_of(memory_table), 20);
    };
    check(flat + empty, 0);
    check("2 1 3 0000\n0 0\n0 0 0 0\n", 0);                          // a node without flags
    for (const char *lengths : {"1 9", "1 2", "1 0", "1 -1", "2 1"}) // only the longest counts
        check(std::string(lengths) + " 1 0000\n1 0\n6100100104\n" + empty, 0);
    for (const char *lengths : {"0 1", "-5 1", "0 9"}) // no room for "a"
        check(std::string(lengths) + " 1 0000\n1 0\n6100100104\n" + empty, KO_ENOMEM);
    check("0 3 1 0000\n1 0\n" + empty, 0);
    check("2 1 1 0000\n 1 1 \n\n6100100104\n0000000\r\n" + empty, 0); // white space
    check("3 1 1 0000\n0 0\n", KO_ECHARLEN);                          // too long characters
    check(flat, KO_ENOMEM);                                           // no terminator
    // Runs and repetitions past the end, the second beyond all numbers, and none.
    for (const char *run :
         {"ff0020010001000100\n", "fe0010030001\n", "ffffffffff0001\n", "000010000001\n"})
        check(flat + run + empty, KO_ENOMEM);
    // An unknown flag, a table that is too deep, a missing child, counts of lists.
    for (const char *damaged : {"2 1 1 0000\n1 0\n6100100102\n", "1 1 1 0000\n1 0\n6100100101\n",
                                "2 1 1 0000\n1 0\n6100100101\n", "-1 2 1 0000\n1 0\n",
                                "2 1 3 0000\n-1 0\n0 0 0 0\n", "2 1 3 0000\n2000000000 0\n"})
        check(damaged + empty, KO_ENOMEM);
    for (const char *ids : {"1 0 1 0\n", "1 1 0 0\n", "1 0 -1 0\n"}) // beyond their lists
        check(list + ids, KO_ENOMEM);
}

// Whatever loads must also answer, print, and load again alike; what fails has no characters.
static void load_damaged(const std::string &text) {
    table_guard table;
    text_in in = memory_of(text);
    const int result = read_multi_ub2(&in, table.operator->(), 2);
    ASSERT_EQ(result == 0, multi_err(table) == 0);
    test_handle h;
    int taken, found = 0;
    for (int v = 0; v < 0x10000; v += 0x3F) {
        const ko_mchar_t bytes[4] = {ko_mchar_t(v >> 8), ko_mchar_t(v)};
        found += retrieve_text_multi(bytes, table, &taken, &h.gen) != nullptr;
        retrieve_wchar_multi_nl(&h.gen, ko_wchar_t(v), table);
    }
    if (result) {
        ASSERT_TRUE(!found && insert(table, "\xA1\xA1", 1) && !compress_multi(table));
        return;
    }
    const std::string again = printed(table);
    table_guard back;
    text_in second = memory_of(again);
    ASSERT_EQ(read_multi_ub2(&second, back.operator->(), 2), 0) << again;
    ASSERT_EQ(printed(back), again);
    mb_flat flat;
    const bool flattened = !flatten_multi(back.operator->(), &flat);
    ASSERT_EQ(flattened, back->min_char_len > 0);
    for (unsigned v = 0; flattened && v < 0x10000; v += 0x3F) {
        const unsigned char *const want = wide_item(back.operator->(), ko_wchar_t(v));
        const uint16_t *const item = flat_wchar(&flat, ko_wchar_t(v));
        ASSERT_TRUE(want ? item && *item == item16(want) : !item) << v;
    }
    free_flat(&flat);
}

TEST(MultiText, EveryPrefixAndEveryChangedByteIsHarmless) {
    std::string bytes; // what is no digit acts alike
    for (int c = 0; c < 256; ++c)
        if (c <= 'g' || c % 16 == 0) bytes += char(c);
    for (const bool shared : {false, true}) {
        table_guard table;
        fill_small(table);
        if (shared) compress_multi(table);
        each_damage(printed(table), bytes, load_damaged);
    }
}

TEST(MultiText, FailedWritesAndItemReadersStop) {
    table_guard table, back;
    fill_small(table);
    const std::string whole = printed(table);
    long writes = 0;
    while (writes < 10000 && printed(table, writes) != whole)
        ++writes;
    EXPECT_GT(writes, 10);
    EXPECT_EQ(read_back(whole, back, 2, nullptr, [](void *, void *, int) { return -1; }), -1);
    EXPECT_EQ(multi_err(back), KO_ENOMEM);
}

// A node that was read has room for its own children only.
TEST(MultiText, ATableThatWasReadTakesMoreCharacters) {
    table_guard table, back;
    insert(table, "\x81\x40", 1);
    ASSERT_EQ(read_back(printed(table), back), 0);
    for (int lead = 0x82; lead < 0x100; ++lead) {
        const char bytes[] = {char(lead), '\x40'};
        for (void *t : {table.p, back.p})
            ASSERT_EQ(insert(t, {bytes, 2}, lead), 0) << lead;
    }
    EXPECT_EQ(find(back, "\x81\x40"), 1);
    expect_same_answers(table, back);
    EXPECT_EQ(printed(back), printed(table));
}

TEST(MultiText, ATableThatFailedCanBeReadAgain) {
    table_guard table, again;
    fill_mixed(table);
    compress_multi(table);
    const std::string text = printed(table);
    EXPECT_EQ(read_back(text.substr(0, text.size() / 2), again), -1);
    file_hooks files;
    void *stream = ko_ext_fopen("table", "w");
    EXPECT_EQ(fprintf_multi(stream, again, print_item), -1);
    ko_ext_fclose(stream);
    EXPECT_EQ(read_back(text, again), 0);
    expect_same_answers(table, again);
}

TEST(MultiTable, LackOfMemoryLeaksNothingAndCanBeRepeated) {
    each_allocation_fails([] {
        table_guard table;
        if (!table.p) return false;
        bool done = true;
        for (const char *text : {"\x81\x40", "\x81\x41", "a", "\x82\x40\x41\x42"}) {
            const int result = insert(table, text, 5);
            if (result) {
                done = false;
                printed(table); // walks past the slot that stays empty
                EXPECT_EQ(insert(table, text, 5), 0);
            }
            EXPECT_EQ(find(table, text), 5);
        }
        if (compress_multi(table)) {
            done = false;
            EXPECT_FALSE(table->flags & multi_compressed);
        }
        EXPECT_EQ(find(table, "\x81\x41"), 5);
        mb_flat flat;
        EXPECT_EQ(flatten_multi(table.operator->(), &flat), -1); // characters of four bytes
        free_flat(&flat);
        return done;
    });
}

TEST(MultiText, LackOfMemoryInReadingIsErrorThree) {
    for (const bool shared : {false, true}) {
        table_guard whole;
        fill_mixed(whole);
        if (shared) compress_multi(whole);
        const std::string text = printed(whole);
        each_allocation_fails([&] {
            table_guard table;
            if (!table.p) return false;
            text_in in = memory_of(text);
            const bool done = !read_multi_ub2(&in, table.operator->(), 2);
            EXPECT_EQ(multi_err(table), done ? KO_OK : KO_ENOMEM);
            if (!done) return false;
            mb_flat flat;
            const bool flattened = !flatten_multi(table.operator->(), &flat);
            free_flat(&flat);
            return flattened;
        });
    }
}

TEST(MultiTable, ANodeHasAtMost256Children) {
    table_guard table;
    table->root->num_offsets = 256;
    EXPECT_EQ(insert(table, "\x81\x40", 1), -1);
    EXPECT_EQ(find(table, "\x81\x40"), -1);
    table->root->num_offsets = 255;
    EXPECT_EQ(insert(table, "\x81\x40", 1), 0);
    EXPECT_EQ(find(table, "\x81\x40"), 1);
}
