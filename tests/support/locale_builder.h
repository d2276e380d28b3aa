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
    const auto all = [&str](std::initializer_list<const char *> texts) {
        std::string fields;
        for (const char *text : texts)
            fields += str(text);
        return fields;
    };
    const auto numbered = [&str](const std::string &stem, int count) {
        std::string fields;
        for (int i = 0; i < count; i++)
            fields += str(stem + std::to_string(i));
        return fields;
    };
    object->time = "gregorian\n" + numbered("ad", 7) + numbered("day", 7) + "12\n" +
                   numbered("am", 12) + "13\n" + numbered("month", 13) +
                   all({"dt", "d", "t", "am", "pm", "tap"}) + "2\n" +
                   all({"+:1:1990/01/08:+*:Era:%EC %Ey", "-:1:1990/01/07:-*:Eold:Eo:%Eg %Ey"}) +
                   all({"ed", "et", "edt"}) + "3\n" + all({"zero", "one", "two"});
    object->messages = str("^[yY]") + str("^[nN]") + str("yes") + str("no");
}

// A one-byte code set: a, b, c, h, s in both cases, an expansion (byte 0xDF for "ss"), an element
// ("ch" behind c), blank and hyphen ignored.
inline locale_object single_byte_object(bool compress = false) {
    std::vector<table_entry> classes, cases, rows;
    const auto add = [&](char c, int mask, int row) {
        classes.push_back({std::string(1, c), uint16_t(mask)});
        if (row) rows.push_back({std::string(1, c), uint16_t(row)});
    };
    add('\0', KO_CT_CNTRL, 0);
    add(' ', KO_CT_SPACE, 13);
    add('-', KO_CT_PUNCT, 14);
    add('\xDF', KO_CT_LOWER | KO_CT_ALPHA, 11);
    std::string pairs = "5", weights = "0011 0011\n";
    for (int n = 0; n < 5; n++) {
        const char pair[] = {char("abchs"[n] - 32), "abchs"[n]}; // upper, lower
        add(pair[1], KO_CT_LOWER | KO_CT_ALPHA, 2 * n + 1);
        add(pair[0], KO_CT_UPPER | KO_CT_ALPHA | 0x800, 2 * n + 2);
        for (const char &c : pair) {
            cases.push_back({std::string(1, c), uint16_t(n + 1)});
            pairs += " 000000" + hex({&c, 1});
        }
        const std::string weight = "000" + std::string(1, "3579b"[n]);
        weights += weight + " 0002\n" + weight + " 0003\n";
    }
    locale_object object;
    object.ctype = table_text(classes, compress) + "1\n0 capital\n" + table_text(cases, compress) +
                   pairs + "\n";
    object.collate = "as_specified\n" + table_text(rows, compress) +
                     "0 14 2 1 1 20\n00010001\n2000c 00000063 00000068\n"
                     "2 00000073 00000073\n" +
                     weights + "4000 4000\n0008 0002\n0001 0001\n0001 0001\n";
    add_conventions(&object);
    return object;
}

// LC_CTYPE without partners, class names and their like.
inline std::string caseless(const std::vector<table_entry> &classes, const std::string &null) {
    return table_text(classes) + "0\n" +
           table_text({
               table_entry{null, 0}
    }) +
           "0\n";
}

// ASCII in one byte and a row of characters in two bytes; wide: everything in two bytes.
inline locale_object double_byte_object(bool wide) {
    locale_object object;
    object.codeset = wide ? "TEST-W\n" : "TEST-2\n";
    std::vector<table_entry> classes, rows;
    for (int c = 0; c < 128; c++) {
        const std::string bytes = encoded(std::string(1, char(c)), wide);
        classes.push_back({bytes, KO_CT_PRINT});
        rows.push_back({bytes, uint16_t(c)});
    }
    for (int c = 0x40; c < 0x48; c++) {
        const std::string bytes = {'\x81', char(c)};
        classes.push_back({bytes, KO_CT_ALPHA});
        rows.push_back({bytes, uint16_t(0x40 + c)});
    }
    object.ctype = caseless(classes, classes[0].bytes);
    object.collate = "as_specified\n" + table_text(rows) + "0 135 1 0 0 140\n0001\n";
    for (int row = 0; row <= 135; row++) {
        const auto weight = char(row + 2);
        object.collate += "00" + hex({&weight, 1}) + "\n";
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
        bytes += char(native(&loc, c));
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
        classes.push_back({ebcdic({&c, 1}), uint16_t(mask)});
    }
    object->ctype = caseless(classes, {'\0'});
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
struct own_record : owned<ko_lc_unload> {
    own_record() { EXPECT_EQ(ko_create_null_locale_2(&handle), 0); }
    kovaloc *operator->() const { return static_cast<kovaloc *>(handle); }
    std::string set(int category, const char *name) const {
        char *setting = ko_setlocale_2(handle, category, name);
        std::string got = setting ? setting : "(null)";
        ko_destroystring(setting);
        return got;
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
