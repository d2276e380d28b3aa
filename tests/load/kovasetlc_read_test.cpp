// The reader of locale objects: fields, counts that lie, cut and damaged objects.
#include "chars/kovambwc.h"
#include "load/kovasetlc_load.h"
#include "support/locale_builder.h"
#include "support/rows.h"

#include <time.h>

#include <algorithm>

// A reader over text in memory or, where through_hooks, over a stream of the hooks.
struct reading {
    file_hooks files;
    text_in in;
    reading(const std::string &text, bool through_hooks = false) {
        const std::string &kept = files.files["text"] = text;
        in = through_hooks ? text_in{.stream = ko_ext_fopen("text", "r")} : memory_of(kept);
    }
    ~reading() {
        if (in.stream) ko_ext_fclose(in.stream);
    }
};

static const std::string &table_of_a() {
    static const std::string text = table_text(std::vector<table_entry>(1, {"a", 1}));
    return text;
}

TEST(ObjectReader, ReadsItsOwnHeader) {
    const auto reads = [](const std::string &text, int want, const char *name) {
        for (const bool hooks : {false, true}) {
            SCOPED_TRACE(text);
            reading from(text, hooks);
            char codeset[codeset_room] = {};
            object_facts facts = {};
            int error = 0;
            EXPECT_EQ(read_file_header(&from.in, codeset, &facts, &error), want ? 0 : 1);
            EXPECT_EQ(error, want);
            EXPECT_STREQ(codeset, name);
        }
    };
    const std::string type = "FILE_TYPE=locale_object\n", start = type + "COMPILER_VERSION=11\n";
    reads(start + "N=3\n  \n X-1\n", 0, "X-1");
    reads(start + "N=5\na\nb\nX-1 \n", 0, "X-1 ");
    reads(start + "N=-9\nX\n", 0, "X");
    reads(start + "no number\nX\n", 0, "X");
    reads(start + "N=2000000000\nX\n", 0, "");
    reads(start + "N=3\n12345678901234567890\n", 0, "1234567890123456789");
    reads(type + "COMPILER_VERSION=3\n", KO_EVERSION, "");
    reads(type, KO_EVERSION, "");
    reads("FILE_TYPE=locale_object\r\nCOMPILER_VERSION=11\n", KO_EOBJECT, "");
    reads("FILE_TYPE=charmap_object\nCOMPILER_VERSION=11\n", KO_EOBJECT, "");
    reads("", KO_EOBJECT, "");
}

// Four strings; "-" stands for an absent one.
static std::string messages(const std::string &object, bool hooks) {
    reading from(object, hooks);
    monum m = {};
    read_messages(&from.in, &m);
    std::string result;
    for (ko_mchar_t *s : {m.yesexpr, m.noexpr, m.yesstr, m.nostr}) {
        EXPECT_TRUE(!s || !s[zeros_at(s) + 3]);
        result += s ? "'" + text(s) + "'" : "-";
        free_ptr(s);
    }
    return result;
}

TEST(ObjectReader, ReadsByteStrings) {
    // Four strings and what is read. White space between them may be missing, and no digit counts
    // as 0. After the wrong byte the next string is read as if the first had ended there.
    const auto rows = split("3 414243\n0\n1 61\n2 6263\n>'ABC''''a''bc'|3 4142430 1 61 2 6263>"
                            "'ABC''''a''bc'|+1 4a\n-5\n1 4G\n1 G4\n>'J''''@''\4'|"
                            "1:2 6162 1 63 0>-'ab''c'''|2 6162>'ab'---|2 6162\n0>'ab'''--|"
                            "9 6162\n0\n0\n0\n>----|99999999999999999999 61\n0\n0\n0>----|>----");
    for (const bool hooks : {false, true}) {
        for (const std::string &row : rows) {
            memory_hooks memory;
            EXPECT_EQ(messages(split(row, '>')[0], hooks), split(row, '>')[1]) << row;
        }
        memory_hooks memory; // a string without memory is absent, and reading goes on
        memory.fail_at = 1;
        EXPECT_EQ(messages("1 61\n3 626364\n1 63\n1 64\n", hooks), "'a'-'c''d'");
    }
}

TEST(ObjectReader, KeepsFifteenGroupSizes) {
    for (const std::string &row : // from the count on, and what is kept
         split("2 3 2 0 0=2 3 2 |1 -1 0 0=1 -1 |-4 0 0=0 |0 0 0=0 |1 99999999999 0 0=1 2147483647 |"
               "2147483647 1 2=2 1 2 |17 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 0 0="
               "15 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 ")) {
        const auto fields = split(row, '=');
        reading from("0 0 " + fields[0]);
        monum m = {};
        read_numeric(&from.in, &m);
        std::string sizes;
        for (int i = 0; i <= m.group_num[0]; i++)
            sizes += std::to_string(m.group_num[i]) + " ";
        EXPECT_EQ(sizes, fields[1]);
        for (const monum_string &s : monum_strings)
            free_ptr(m.*s.mbs);
    }
}

TEST(ObjectReader, TakesTheCaseRatioFromTheRestOfTheLine) {
    const auto ratio = [&](const std::string &rest) {
        reading from(table_of_a() + "0\n" + table_of_a() + "1 00000041 00000061" + rest);
        own_record loc;
        EXPECT_EQ(read_ctype(&from.in, record(loc)), 0);
        EXPECT_EQ(loc->cconv_arr[1].upper, 'A');
        return +loc->exp.case_conv_ratio;
    };
    EXPECT_EQ(ratio(" 1.5\n"), 1.5);
    EXPECT_EQ(ratio(" 0.5\n"), 1.0) << "characters without a partner keep their length";
    EXPECT_EQ(ratio(" 3.25 tail\n"), 3.25);
    for (const char *none : {"\n", "   \n", " x\n", "", " nan\n", " 1e999\n"})
        EXPECT_EQ(ratio(none), 2.0) << none;
}

TEST(ObjectReader, ReadsClassNamesUpTo71Characters) {
    const std::string name(71, 'n');
    reading from(table_of_a() + "2\n3 " + name + "xyz\n 17 last\n" + table_of_a() + "0\n");
    own_record loc;
    // The rest of a longer word is left for the next reader: as a bit position it is 0.
    EXPECT_NE(read_ctype(&from.in, record(loc)), 0);
    EXPECT_EQ(loc->num_user_bits, 2);
    EXPECT_EQ(loc->user_bits[0].name, name);
    EXPECT_EQ(loc->user_bits[0].bitpos, 3u);
}

TEST(ObjectReader, TrustsNoCount) {
    const std::pair<int, std::string> rows[] = {
        {KO_LC_CTYPE, table_of_a() + "2147483647 1 x 2 y"                         },
        {KO_LC_CTYPE, table_of_a() + "0\n" + table_of_a() + "2147483647 00000041" },
        {KO_LC_TIME,  "gregorian\n0 0 0 0 0 0 0 0 0 0 0 0 0 0\n2147483647 1 61"   },
        {KO_LC_TIME,  "islamic\n0 0 0 0 0 0 0 0 0 0 0 0 0 0\n-3 -4 0 0 0 0 0 0 -1"},
    };
    for (const bool hooks : {false, true}) {
        for (auto &[category, text] : rows) {
            SCOPED_TRACE(text);
            const memory_hooks memory;
            reading from(text, hooks);
            const own_record loc;
            read_category(&from.in, record(loc), category);
        }
    }
}

// What a category of an object, from disk and through hooks, ends with.
static int error_of(const std::string &object, int category) {
    temp_dir dir;
    env_hooks env;
    env.vars["KO_PATH"] = dir.path;
    dir.write("x.lco", object);
    const auto load = [category] {
        const own_record loc;
        const bool found = loc.set(category, "x.lco") != "(null)";
        EXPECT_EQ(loc.error() == KO_OK, found);
        return loc.error();
    };
    const int from_disk = load();
    file_hooks files;
    files.files[dir.path + "\\x.lco"] = object;
    EXPECT_EQ(load(), from_disk) << "through hooks";
    return from_disk;
}

TEST(ObjectReader, FindsMarkersByTheBoundedLineRule) {
    // What stands before the marker: text and a run of "#". A line that is too long for one read
    // counts as several, so a marker after 127 characters is a line of its own.
    const locale_object head;
    const std::string start = head.type + head.version + "N=3\nX\n";
    const std::string messages = "### LC_MESSAGES\n" + fields({"a", "b", "c", "d"}) + " ";
    for (const int error : {int{KO_OK}, int{KO_EOBJECT}})
        for (const std::string &row : split(
                 error
                     ? ">126|>128|\n >0"
                     : ">0|# a line\n>0|>127|>254|x\n>127|### LC_MESSAGES \n>0|### LC_TIME\n>0")) {
            const auto fields = split(row, '>');
            const std::string before = fields[0] + std::string(size_t(whole(fields[1])), '#');
            EXPECT_EQ(error_of(start + before + messages, KO_LC_MESSAGES), error) << before;
        }
    // A keyword that is cut.
    for (const char *keyword : {"", "as_spec", "thai_smo", "as_speck\nmore\n"})
        EXPECT_EQ(error_of(start + "### LC_COLLATE\n" + keyword, KO_LC_COLLATE),
                  strchr(keyword, '\n') ? KO_ECODESET : KO_EOBJECT)
            << keyword;
}

TEST(ObjectReader, AThaiSectionEndsWithItsKeyword) {
    locale_object object = single_byte_object();
    object.collate = "thai_smo\n";
    reading from(object.str());
    own_record loc;
    EXPECT_EQ(read_locale_file(&from.in, record(loc)), 0);
    update_locale(record(loc));
    EXPECT_EQ(loc->coll_info.collate, collate_thai);
    EXPECT_EQ(loc->exp.mbscoll, thaismocoll);
    EXPECT_EQ(loc->exp.mbsxfrm, thaismoxfrm);
    EXPECT_EQ(multi_max_length(loc->coll), 0);
}

// Maps a text into exactly the room that is told; checked by the address sanitizer, and by the
// count.
static void use_told_sizes(ko_lc_t loc, const ko_mchar_t *word) {
    const int told = ko_case_conv_outbuflen(loc, ko_mbsbytes_nt(loc, word));
    if (told < 0 || told > 64) return; // no text of the code set
    const int terminator = std::clamp(ko_mb_loc_min(loc), 1, 4);
    for (auto *map : {ko_tombsupper, ko_tombslower}) {
        std::vector<ko_mchar_t> out(size_t(told + terminator));
        EXPECT_LE(map(loc, out.data(), word), told);
    }
    const auto longest = size_t(std::max(ko_mb_loc_max(loc), 1));
    for (auto *map : {im_tomupper, im_tomlower}) {
        std::vector<ko_mchar_t> out(longest);
        const size_t written = map(loc, out.data(), word) & 0xFF;
        EXPECT_TRUE(written == 0xFF || written <= longest);
    }
}

// Reads the whole object, derives and uses what there is, and gives it back.
static int load_and_use(const std::string &text) {
    text_in in = memory_of(text);
    own_record loc;
    const int result = read_locale_file(&in, record(loc));
    update_locale(record(loc));
    init_locale_info(record(loc));
    static const ko_mchar_t words[][8] = {"ch", "c h", "b\xDF", "bss", "B-a", "\xFF"};
    ko_mchar_t key[64];
    for (const auto &word : words) {
        loc->exp.mbscoll(loc, word, words[0]);
        loc->exp.mbsxfrm(loc, key, word, sizeof key);
        use_told_sizes(loc, word);
    }
    return result;
}

// The small object cut to its characters, with bytes that have partners of two bytes, or lengths
// that are not the characters'.
TEST(DamagedObject, ToldSizesSuffice) {
    locale_object object = double_byte_object(false);
    std::vector<table_entry> entries(4); // "a" and "b" have pairs 1 and 2, and some class
    for (size_t i = 0; i < 4; i++)
        entries[i].bytes = i == 3 ? "\x81\x40" : std::string(1, "ab\0"[i]);
    entries[0].item = 1, entries[1].item = 2;
    const std::string cases = table_text(entries);
    static const char none[] = "00000000 00000000 00000000 00000000 1.0";
    // Lengths, pairs and the ratio; 0 where the object is refused, -1 with single bytes as classes.
    static const std::tuple<std::string, std::string, double> rows[] = {
        {"2 1", "00000000 00000000 00008140 00000000 1.0", 2.0},
        {"2 1", "00000000 00008140 00000000 00000000 1.5", 2.0},
        {"2 1", "00000000 00008141 00000062 00000000 1.0", 1.0}, // no character
        {"2 1", "00000000 00008140 00000062 00000000 -9",  2.0},
        {"2 1", none,                                      1.0},
        {"0 1", none,                                      0  },
        {"1 1", none,                                      0  },
        {"2 5", none,                                      1.0},
        {"1 1", none,                                      -1 },
    };
    for (const auto &[lengths, pairs, want] : rows) {
        SCOPED_TRACE(lengths + " " + pairs);
        const std::string classes =
            table_text({entries.begin(), entries.begin() + (want < 0 ? 3 : 4)});
        object.ctype =
            lengths + classes.substr(classes.find(' ', 2)) + "0\n" + cases + "2 " + pairs + "\n";
        reading from(object.str());
        own_record loc;
        EXPECT_EQ(read_locale_file(&from.in, record(loc)), want > 0 ? 0 : 1);
        if (want <= 0) continue;
        update_locale(record(loc));
        EXPECT_EQ(loc->exp.case_conv_ratio, want);
        EXPECT_EQ(ko_mb_loc_max(loc), 2);
        use_told_sizes(loc, mb("aabba\0\0\0"));
    }
}

// A digit for every pair of bytes, in a code set of them.
TEST(HostileObject, DigitsThatBeginDifferentlyLoadInTimeOfTheirNumber) {
    locale_object object = double_byte_object(true);
    std::string table = "2 2 1 0000\n1 0\n0000110001\n0000000\n", digits;
    for (int i = 0; i < 256; i++)
        table += "1 0\n0000110004\n0000000\n";
    object.ctype = table + "0\n" + table + "0\n";
    for (int c = 0; c < 65536; c++)
        if (c & 0xFF) digits += field(std::string{char(c >> 8), char(c)});
    object.time.replace(object.time.rfind("\n3\n") + 1, std::string::npos, "65280\n" + digits);
    const clock_t start = clock();
    EXPECT_EQ(load_and_use(object.str()), 0);
    EXPECT_LT((clock() - start) / CLOCKS_PER_SEC, 2);
}

TEST(DamagedObject, EveryPrefixFailsAndEveryChangedByteFailsOrLoads) {
    const std::string whole = single_byte_object(true).str();
    EXPECT_EQ(load_and_use(whole), 0);
    each_damage(whole, {"\0\n 019f-\x7F\xFF", 10}, [&](const std::string &text) {
        const bool failed = load_and_use(text) != 0;
        EXPECT_TRUE(failed || text.size() + 1 >= whole.size()); // the last byte is white space
    });
    env_hooks env;
    const auto load_through_hooks = [&](const std::string &text) {
        file_hooks files;
        files.files[std::string(object_path) + "default.lco"] = text;
        ko_lc_t loc = nullptr;
        const int result = ko_createlocale_2(&loc);
        ko_lc_unload(loc);
        EXPECT_TRUE(result || text.size() == whole.size());
    };
    each_damage(whole, "1 ", load_through_hooks, 7);
}
