// Small locale objects for tests, written field by field; the look-up tables are written by the
// library itself. Build objects before installing stream hooks: the builder installs its own.
#ifndef LOCALE_BUILDER_H
#define LOCALE_BUILDER_H

#include "chars/kovaportable.h"
#include "support/tables.h"

#include <ctype.h>
#include <stdio.h>

#include <algorithm>
#include <vector>

struct table_entry {
    std::string bytes;
    uint16_t item;
};

// The text form of a look-up table of 16-bit items.
inline std::string table_text(const std::vector<table_entry> &entries, bool compress = false) {
    const uint16_t none = 0;
    const table_guard table(sizeof none, &none);
    for (const table_entry &e : entries)
        EXPECT_EQ(insert(table, e.bytes, e.item), 0);
    EXPECT_EQ(compress ? compress_multi(table) : 0, 0);
    return printed(table);
}

// A byte string as an object holds it.
inline std::string field(std::string_view bytes) {
    return std::to_string(bytes.size()) + (bytes.empty() ? "" : " ") + hex(bytes) + "\n";
}

inline std::string fields(std::initializer_list<std::string_view> strings) {
    std::string text;
    for (const std::string_view s : strings)
        text += field(s);
    return text;
}

// An object in its parts; str() joins them.
struct locale_object {
    std::string type = "FILE_TYPE=locale_object\n", version = "COMPILER_VERSION=11\n";
    std::string header = "HEADER_LINES=5\nSOURCE=a test\nHASH=0\n", codeset = "TEST-1\n";
    std::string ctype, collate, numeric, monetary, time, messages;
    std::string str() const {
        return type + version + header + codeset + "### LC_CTYPE\n" + ctype + "### LC_COLLATE\n" +
               collate + "### LC_NUMERIC\n" + numeric + "### LC_MONETARY\n" + monetary +
               "### LC_TIME\n" + time + "### LC_MESSAGES\n" + messages;
    }
};

// The sections without characters, the same in every object; wide: each character takes two bytes.
inline std::string encoded(std::string_view text, bool wide) {
    std::string bytes;
    for (const char c : text) {
        if (wide) bytes += '\0';
        bytes += c;
    }
    return bytes;
}

inline void add_conventions(locale_object *object, bool wide = false) {
    const auto str = [wide](std::string_view text) { return field(encoded(text, wide)); };
    object->numeric = str(",") + str(".") + "2 3 2\n" + str("") + str("-");
    object->monetary = str("EUR ") + str("E") + str(",") + str(".") + "1 3\n" + str("") + str("-") +
                       "2 2 0 1 0 1 1 2147483647\n";
    std::string time = "gregorian\n";
    for (int i = 0; i < 7; i++)
        time += str("ad" + std::to_string(i));
    for (int i = 0; i < 7; i++)
        time += str("day" + std::to_string(i));
    time += "12\n";
    for (int i = 0; i < 12; i++)
        time += str("am" + std::to_string(i));
    time += "13\n";
    for (int i = 0; i < 13; i++)
        time += str("month" + std::to_string(i));
    for (const char *text : {"dt", "d", "t", "am", "pm", "tap"})
        time += str(text);
    time += "2\n" + str("+:1:1990/01/08:+*:Era:%EC %Ey") + str("-:1:1990/01/07:-*:Eold:Eo:%Eg %Ey");
    for (const char *text : {"ed", "et", "edt"})
        time += str(text);
    time += "3\n" + str("zero") + str("one") + str("two");
    object->time = time;
    object->messages = str("^[yY]") + str("^[nN]") + str("yes") + str("no");
}

// A one-byte code set: a, b, c, h, s in both cases, an expansion (byte 0xDF for "ss"), an element
// ("ch" behind c), blank and hyphen ignored.
inline locale_object single_byte_object(bool compress = false) {
    locale_object object;
    const std::string letters = "abchs";
    std::vector<table_entry> classes = {
        {std::string(1, '\0'), KO_CT_CNTRL},
        {" ",             KO_CT_SPACE               },
        {"-",             KO_CT_PUNCT},
        {"\xDF",             KO_CT_LOWER | KO_CT_ALPHA            }
    };
    std::vector<table_entry> cases, rows = {
                                        {"\xDF", 11},
                                        {" ",    13},
                                        {"-",    14}
    };
    std::string pairs = std::to_string(letters.size());
    for (size_t i = 0; i < letters.size(); i++) {
        const std::string lower(1, letters[i]), upper(1, static_cast<char>(letters[i] - 32));
        const auto n = static_cast<uint16_t>(i);
        classes.push_back({lower, KO_CT_LOWER | KO_CT_ALPHA});
        classes.push_back({upper, KO_CT_UPPER | KO_CT_ALPHA | 0x800});
        cases.push_back({lower, static_cast<uint16_t>(n + 1)});
        cases.push_back({upper, static_cast<uint16_t>(n + 1)});
        rows.push_back({lower, static_cast<uint16_t>(2 * n + 1)});
        rows.push_back({upper, static_cast<uint16_t>(2 * n + 2)});
        char pair[32];
        snprintf(pair, sizeof pair, " %08x %08x", upper[0], lower[0]);
        pairs += pair;
    }
    object.ctype = table_text(classes, compress) + "1\n0 capital\n" + table_text(cases, compress) +
                   pairs + "\n";
    std::string weights = "0011 0011\n";
    for (int n = 0; n < 5; n++) {
        char line[64];
        snprintf(line, sizeof line, "%04x 0002\n%04x 0003\n", 3 + 2 * n, 3 + 2 * n);
        weights += line;
    }
    weights += "4000 4000\n0008 0002\n0001 0001\n0001 0001\n";
    object.collate = "as_specified\n" + table_text(rows, compress) +
                     "0 14 2 1 1 20\n00010001\n2000c 00000063 00000068\n"
                     "2 00000073 00000073\n" +
                     weights;
    add_conventions(&object);
    return object;
}

// ASCII in one byte and a row of characters in two bytes; wide: everything in two bytes.
inline locale_object double_byte_object(bool wide) {
    locale_object object;
    object.codeset = wide ? "TEST-W\n" : "TEST-2\n";
    std::vector<table_entry> classes, rows;
    for (int c = 0; c < 128; c++) {
        const std::string bytes = encoded(std::string(1, static_cast<char>(c)), wide);
        classes.push_back({bytes, KO_CT_PRINT});
        rows.push_back({bytes, static_cast<uint16_t>(c)});
    }
    for (int c = 0x40; c < 0x48; c++) {
        const std::string bytes = {'\x81', static_cast<char>(c)};
        classes.push_back({bytes, KO_CT_ALPHA});
        rows.push_back({bytes, static_cast<uint16_t>(0x40 + c)});
    }
    object.ctype = table_text(classes) + "0\n" +
                   table_text({
                       {classes[0].bytes, 0}
    }) +
                   "0\n";
    object.collate = "as_specified\n" + table_text(rows) + "0 135 1 0 0 140\n0001\n";
    for (int row = 0; row <= 135; row++) {
        char weight[8];
        snprintf(weight, sizeof weight, "%04x\n", row + 2);
        object.collate += weight;
    }
    add_conventions(&object, wide);
    return object;
}

// A text of portable characters in EBCDIC.
inline std::string ebcdic(std::string_view text) {
    kovaloc loc = {};
    uint16_t classes[256] = {};
    std::fill_n(classes + 0xF0, 10, uint16_t{KO_CT_DIGIT});
    loc.exp.sb_ctype_table = classes;
    loc.exp.single_byte = 1;
    loc.portable = portable_of(&loc);
    std::string bytes;
    for (const char c : text)
        bytes += static_cast<char>(native(&loc, c));
    return bytes;
}
// Makes an object one of an EBCDIC code set. Its eras go: they are in ASCII.
inline void make_ebcdic(locale_object *object) {
    std::vector<table_entry> classes;
    for (char c = 0; c < 127; ++c) {
        const int mask = c >= '0' && c <= '9' ? KO_CT_DIGIT
                         : c == ' '           ? KO_CT_SPACE
                         : ispunct(c)         ? KO_CT_PUNCT
                                              : KO_CT_PRINT;
        classes.push_back({ebcdic({&c, 1}), static_cast<uint16_t>(mask)});
    }
    object->ctype = table_text(classes) + "0\n" +
                    table_text({
                        {std::string(1, '\0'), 0}
    }) +
                    "0\n";
    std::string &time = object->time;
    const size_t eras = time.find("\n2\n") + 1;
    size_t end = eras;
    for (int line = 0; line < 3; ++line)
        end = time.find('\n', end) + 1;
    time.replace(eras, end - eras, "0\n");
}

constexpr char object_path[] = "c:\\vantor\\kova\\lc11\\";
constexpr const char *environment_names[] = {
    "", "KO_ALL", "KO_CTYPE", "KO_COLLATE", "KO_NUMERIC", "KO_MONETARY", "KO_TIME", "KO_MESSAGES"};

// An empty record, given back at the end.
struct own_record {
    ko_lc_t handle = nullptr;
    own_record() { EXPECT_EQ(ko_create_null_locale_2(&handle), 0); }
    ~own_record() { ko_lc_unload(handle); }
    own_record(const own_record &) = delete;
    operator ko_lc_t() const { return handle; }
    kovaloc *operator->() const { return static_cast<kovaloc *>(handle); }
    int error() const { return *ko_ext_errno(handle); }
    std::string set(int category, const char *name) const {
        char *setting = ko_setlocale_2(handle, category, name);
        std::string result = setting ? setting : "(null)";
        ko_destroystring(setting);
        return result;
    }
};

// A record with an object in all its categories.
struct loaded_locale : own_record {
    explicit loaded_locale(const locale_object &object) {
        env_hooks env;
        file_hooks files;
        files.files[std::string(object_path) + "x.lco"] = object.str();
        EXPECT_NE(set(KO_LC_ALL, "x.lco"), "(null)");
        EXPECT_EQ(error(), 0);
    }
};

#endif
