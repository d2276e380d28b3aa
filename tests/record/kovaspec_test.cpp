// Specifications, the code-set registry and the names made from both.
#include "record/kovaspec.h"

#include "locale/kovautils.h"
#include "support/answer.h"
#include "support/fixture.h"
#include "support/rows.h"

#include <string.h>

static const char usual[] = "# code sets\n"
                            "8859-1   819   Western\n"
                            "Latin-1  819\n"
                            "8859-2   912\n"
                            "# nothing\n\n"
                            "unicode  57349\n"
                            "a23456789012345678901  1\n"
                            "@euro 7\n"
                            "wraps 65537\n";

// A registry file, consulted afresh at every call.
struct registry_file {
    temp_dir dir;
    std::string path;
    test_handle handle;
    explicit registry_file(std::string_view contents = usual) {
        // An empty registry in the cache is as good as none.
        ko_cache_registry(nullptr, dir.write("empty", "").c_str());
        path = dir.write("registry", contents);
    }
    ~registry_file() { ko_cache_registry(nullptr, dir.write("empty", "").c_str()); }
    const char *file() const { return path.c_str(); }
};

// Looks up each name of rows "name=number".
template <class Find> static void check_names(const char *rows, Find find) {
    for (const std::string &row : split(rows, ' ')) {
        const size_t sign = row.find('=');
        EXPECT_EQ(find(row.substr(0, sign)), whole(row.substr(sign + 1))) << row;
    }
}

TEST(Registry, NamesAreFoundInTheFile) {
    registry_file registry;
    const auto find = [&](const std::string &name) {
        const answer found = answered(
            registry.handle, ko_cs_name2cs_num(registry.handle, name.c_str(), registry.file()));
        EXPECT_EQ(found.error, found.result == KO_NO_CODESET ? KO_EINVAL : KO_OK) << name;
        return found.result;
    };
    for (const bool cached : {false, true}) {
        if (cached) ko_cache_registry(registry.handle, registry.file());
        // 21 characters count; a number stands for itself.
        check_names("8859-1=819 LATIN-1=819 unicode=57349 wraps=1 a23456789012345678901cut=1 "
                    "A23456789012345678901=1 1252=1252 65537=1 0=0 latin=57344 12a=57344 =57344 "
                    "#=57344",
                    find);
    }
    EXPECT_EQ(ko_cs_name2cs_num(registry.handle, nullptr, registry.file()), KO_NO_CODESET);
}

TEST(Registry, GrammarOfTheFile) {
    constexpr int none = KO_NO_CODESET;
    const auto check = [](const std::string &contents, int fresh, int error, int cached,
                          int cache_error) {
        SCOPED_TRACE(contents);
        registry_file registry(contents);
        const char *const file = registry.file();
        EXPECT_EQ(answered(registry.handle, ko_cs_name2cs_num(registry.handle, "x", file)),
                  answer(fresh, error));
        ko_cache_registry(registry.handle, file);
        EXPECT_EQ(registry.handle.error(), cache_error);
        // Where caching fails, the built-in table answers, whatever file is named.
        EXPECT_EQ(ko_cs_name2cs_num(nullptr, "x", file), cached);
        EXPECT_EQ(ko_cs_name2cs_num(nullptr, "sjis", file), cache_error ? 57350 : none);
    };
    // Files, the number of "x" and the error, read afresh and from the cache.
    for (const std::string &good : split("x 5\n|  X\t\r\n 5 and more\n|#c\n \n#d\n  #e\nx 5\n|"
                                         "a 1 x 2\nx 5\n|x 5\nx 6\n"))
        check(good, 5, 0, 5, 0);
    // After a bare name the skip begins; and there is no such character in a name.
    for (const char *good : {"bare\nx 5\n", "\xE9 1\nx 5\n"})
        check(good, 5, 0, none, KO_EOBJECT);
    check("a 1 end", none, KO_EOBJECT, none, 0);
    for (const char *bad : {"a 1\nx", "a234567890123456789012 1\nx 5\n", "# x 5"})
        check(bad, none, KO_EINVAL, none, 0);
    for (const char *bad : {"x 5", "x 5#\n", "x\n", "x five\n", "x -5\n", "x\xE9 5\n"})
        check(bad, none, KO_EOBJECT, none, KO_EOBJECT);
}

TEST(Registry, WithoutFileOrMemoryTheReasonIsStated) {
    registry_file registry;
    env_hooks environment;
    environment.vars["VANTORDIR"] = registry.dir.path + "/nowhere";
    EXPECT_EQ(answered(registry.handle, ko_cs_name2cs_num(registry.handle, "1252", nullptr)),
              answer(KO_NO_CODESET, KO_EFORMAT));
    const std::string lengthy(5000, 'x'); // no path is so long
    EXPECT_EQ(
        answered(registry.handle, ko_cs_name2cs_num(registry.handle, "1252", lengthy.c_str())),
        answer(KO_NO_CODESET, KO_EFORMAT));
    registry.dir.write("kova/cm3/registry", "x 5\n");
    environment.vars["VANTORDIR"] = registry.dir.path;
    each_allocation_fails([] {
        test_handle handle;
        const auto number = ko_cs_name2cs_num(handle, "x", nullptr);
        EXPECT_EQ(handle.error(), number == 5 ? KO_OK : KO_ENOMEM);
        return number == 5;
    });
    each_allocation_fails([] {
        test_handle handle;
        ko_cache_registry(handle, nullptr);
        // "x" stands in the file alone, sjis in the built-in table alone.
        EXPECT_EQ(ko_cs_name2cs_num(nullptr, handle.error() ? "sjis" : "x", nullptr),
                  handle.error() ? 57350 : 5);
        return !handle.error();
    });
    ko_cache_registry(registry.handle, (registry.dir.path + "/nowhere").c_str());
    EXPECT_EQ(registry.handle.error(), KO_EFORMAT);
}

TEST(Registry, TwoNamesAreFoundAsOneByOne) {
    const char *const names[] = {
        "x",  "X",    "y",      "lonG-21-characters-xy", "longer-than-21-characters", "", "12",
        "no", "\xE9", "aa_bb.x"};
    for (const std::string &contents :
         split("x 5\ny 6\n|y 6\nx 5|x\n12 7\ny 8\n|x 5 y 6\nY 7\n12 1\n|"
               "x 5\ny\n12 3\n|y 1\nx five\n|\xE9 1\n x 5\n12 7\ny 8\n|"
               "long-21-characters-xy 3\nx 4\n|"
               "longer-than-21-characters 3\nx 4\ny 5\n|#x 1\nx 2\ny 70000\n")) {
        registry_file registry(contents);
        test_handle handle;
        for (const char *to : names)
            for (const char *from : names) {
                SCOPED_TRACE(contents + to + " " + from);
                uint16_t numbers[2];
                registry_stamp read;
                find_two_cs_nums({to, from}, registry.file(), numbers, &read);
                EXPECT_EQ(numbers[0], ko_lc_spec2cs_num(handle, to, registry.file()));
                EXPECT_EQ(numbers[1], ko_lc_spec2cs_num(handle, from, registry.file()));
            }
    }
}

#ifdef __linux__
TEST(Registry, OneThatCannotBeReadToItsEndIsNone) {
    registry_file registry;
    const char *const torn = "/proc/self/mem"; // a regular file whose first page is none
    EXPECT_EQ(answered(registry.handle, ko_cs_name2cs_num(registry.handle, "1252", torn)),
              answer(KO_NO_CODESET, KO_EIO));
    ko_cache_registry(registry.handle, torn);
    EXPECT_EQ(registry.handle.error(), KO_EIO);
    EXPECT_EQ(ko_cs_name2cs_num(nullptr, "sjis", nullptr), 57350) << "the built-in table answers";
}
#endif

TEST(Registry, TheBuiltInTableMatchesLowerCaseRowsOnly) {
    registry_file registry;
    ko_cache_registry(nullptr, (registry.dir.path + "/nowhere").c_str());
    check_names("sjis=57350 SJIS=57350 ujis=57351 big5=57352 gb=57357 utf8=57372 thai620=57373 "
                "euctw=57375 cns=57375 mazovia=57384 8859-1=819 8859-2=912 8859-3=57346 "
                "unicode=57349 pc-sjis=932 tst=57376 437=437 ascii=57344 ASCII=57344 "
                "Latin-1=57344 eucJP=57344",
                [](const auto &name) { return ko_cs_name2cs_num(nullptr, name.c_str(), nullptr); });
}

// want: the file name, nullptr for a failure with 7.
static void check_spec(const char *spec, uint16_t number, const char *want) {
    SCOPED_TRACE(spec ? spec : "NULL");
    static registry_file registry;
    void *const handle = registry.handle;
    EXPECT_EQ(answered(handle, ko_lc_spec2cs_num(handle, spec, registry.file())),
              answer(number, number == KO_NO_CODESET ? KO_EINVAL : KO_OK));
    char out[spec_room] = "untouched";
    EXPECT_EQ(answered(handle, ko_lc_spec2lc_fname(handle, spec, out, registry.file(), nullptr)),
              want ? answer(0, KO_OK) : answer(-1, KO_EINVAL));
    EXPECT_STREQ(out, want ? want : "untouched");
}

TEST(Specification, GivesNumberAndFileName) {
    constexpr uint16_t none = KO_NO_CODESET;
    // Specification, number and file name. "@" may begin a name of a code set.
    for (const std::string &row :
         split("en_US.8859-1>819>en_us\\0333.lco|en_US.8859-1@euro>819>en_us\\0333euro.lco|"
               "EN_us.Latin-1@Eu2>819>en_us\\0333Eu2.lco|sv_SE.unicode>57349>sv_se\\e005.lco|"
               "de_DE.@euro>7>de_de\\0007.lco|en_US.a23456789012345678901>1>en_us\\0001.lco|"
               "KO_CTYPE = en_US.8859-1 ; >819>KO_CTYPE = en_us\\0333.lco ; |"
               "KO_CTYPE = en_US.8859-1>57344>KO_CTYPE = en_us\\0333.lco|"
               "KO_TIME = de_DE.8859-1@x ; KO_MESSAGES = sv_SE.819 ; >819>"
               "KO_TIME = de_de\\0333x.lco ; KO_MESSAGES = sv_se\\0333.lco ; |"
               "KO_TIME = de_DE.8859-1 ; KO_MESSAGES = sv_SE.819>57344>"
               "KO_TIME = de_de\\0333.lco ; KO_MESSAGES = sv_se\\0333.lco")) {
        const auto fields = split(row, '>');
        check_spec(fields[0].c_str(), uint16_t(whole(fields[1])), fields[2].c_str());
    }
    check_spec("8859-1", 819, nullptr); // a code set alone has a number only
    check_spec("1252", 1252, nullptr);
    check_spec(nullptr, none, nullptr);
    check_spec("en_1S.8859-1", none, nullptr);
    check_spec("en_U1.8859-1", none, nullptr);
    for (const char *bad :
         {"en_US.8859-1@euros", "en_US.8859-1@", "en_US.8859-1@eu-r", "en_US.8859-1 ",
          "en_US.nowhere", "en_US.57344", "en_US.#", "en_US.", "en_US", "e1_US.8859-1",
          "\xE9\xE9_US.8859-1", "en_US.a234567890123456789012", "",
          "KO_TIME = de_DE.8859-1 ; KO_MESSAGES = sv_SE.8859-2 ; ",
          "KO_CTYPE = de_DE.8859-1 ; KO_CTYPE = de_DE.8859-1 ; ", "KO_ALL = de_DE.8859-1 ; ",
          "KO_TIME= de_DE.8859-1 ; ", "KO_TIME = de_DE.8859-1; ", "KO_TIME = de_DE.8859-1 ;  "})
        check_spec(bad, none, nullptr);
}

TEST(Specification, DirectoriesGoIntoCompoundNamesOnlyAndMustFit) {
    registry_file registry;
    const char *const compound = "KO_CTYPE = en_US.819 ; KO_TIME = en_US.819";
    char out[spec_room + 1] = {};
    out[spec_room] = 'z';
    EXPECT_EQ(ko_lc_spec2lc_fname(registry.handle, "en_US.819", out, registry.file(), "d"), 0);
    EXPECT_STREQ(out, "en_us\\0333.lco");
    EXPECT_EQ(ko_lc_spec2lc_fname(registry.handle, compound, out, registry.file(), "d"), 0);
    EXPECT_STREQ(out, "KO_CTYPE = d\377en_us\\0333.lco ; KO_TIME = d\377en_us\\0333.lco");
    for (size_t len = 100; len < 200; ++len) {
        const std::string dir(len, 'd');
        const size_t needed = strlen(compound) + 2 * (len + 1 + strlen("\\0333.lco") - 4);
        const bool fits = needed < spec_room;
        strcpy(out, "untouched");
        EXPECT_EQ(ko_lc_spec2lc_fname(registry.handle, compound, out, registry.file(), dir.c_str()),
                  fits ? 0 : -1);
        EXPECT_EQ(strlen(out), fits ? needed : strlen("untouched"));
        EXPECT_EQ(out[spec_room], 'z');
    }
}

TEST(Specification, TheMessageDirectoryIsTheStartOfTheFileName) {
    registry_file registry;
    const auto directory = [&](const char *spec) {
        char out[11] = "(none)";
        const int result = ko_lc_spec2msg_dname(registry.handle, spec, out, registry.file(), "dir");
        EXPECT_EQ(answered(registry.handle, result),
                  *out == '(' ? answer(-1, KO_EINVAL) : answer(0, KO_OK));
        return std::string(out);
    };
    EXPECT_EQ(directory("en_US.8859-1@euro"), "en_us\\0333");
    EXPECT_EQ(directory("KO_MESSAGES = sv_SE.unicode"), "sv_se\\e005");
    EXPECT_EQ(directory("KO_CTYPE = en_US.819 ; KO_MESSAGES = sv_SE.819 ; "), "sv_se\\0333");
    for (const char *none : {"KO_CTYPE = en_US.819", "8859-1"})
        EXPECT_EQ(directory(none), "(none)");
    // Without a registry the reasons differ.
    const std::string nowhere = registry.dir.path + "/nowhere";
    char out[spec_room];
    void *const handle = registry.handle;
    EXPECT_EQ(answered(handle, ko_lc_spec2cs_num(handle, "en_US.8859-1", nowhere.c_str())),
              answer(KO_NO_CODESET, KO_EFORMAT));
    EXPECT_EQ(answered(handle,
                       ko_lc_spec2lc_fname(handle, "en_US.8859-1", out, nowhere.c_str(), nullptr)),
              answer(-1, KO_EINVAL));
}

TEST(Names, ConversionObjectsAndDirectories) {
    const auto name = [](int from, int to, const char *dir) {
        char out[32];
        ko_cs_nums2cv_fname(nullptr, uint16_t(from), uint16_t(to), out, dir);
        return std::string(out);
    };
    EXPECT_EQ(name(819, 1252, nullptr) + name(0, 0xFFFF, ""), "033304e4.cvo0000ffff.cvo");
    EXPECT_EQ(name(0xE005, 1, "c:\\x"), "c:\\x\377e0050001.cvo");
    char out[8] = "kept";
    for (const char *none : {"", static_cast<const char *>(nullptr)})
        pathcat_mark(out, none);
    EXPECT_STREQ(out, "kept") << "nothing is written without a directory";
    pathcat_mark(out, "d");
    EXPECT_STREQ(out, "d\xFF");
}

TEST(Names, PiecesMakeASpecification) {
    const auto make = [](const char *lang_terr, const char *cs_num, const char *modifier) {
        test_handle handle;
        char out[17] = "error";
        const int result = ko_lc_pieces2lc_spec(handle, lang_terr, cs_num, modifier, out);
        EXPECT_EQ(ko_lc_pieces2lc_spec(nullptr, lang_terr, cs_num, modifier, out), result);
        return result ? out + std::to_string(handle.error()) : std::string(out);
    };
    EXPECT_EQ(make("en_US", "0333", nullptr) + make("EN_us", "333", ""), "en_US.0333EN_us.333");
    EXPECT_EQ(make("en_US", "0333abc", "euros"), "en_US.0333a@euro");
    for (const char *bad_number : {"0333abcdefg", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(make("en_US", bad_number, nullptr), "error7");
    for (const char *bad : {"en_USA", "en-US", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(make(bad, "0333", nullptr), "error7");
}

TEST(Names, AFileNameFallsIntoPieces) {
    const auto pieces = [](const char *fname) {
        test_handle handle;
        char lang_terr[6] = {}, cs_num[6] = {}, modifier[5] = {};
        const int result = ko_lc_fname2lc_pieces(handle, fname, lang_terr, cs_num, modifier);
        EXPECT_EQ(ko_lc_fname2lc_pieces(nullptr, fname, lang_terr, cs_num, modifier), result);
        return result ? "error" + std::to_string(handle.error())
                      : std::string(lang_terr) + "|" + cs_num + "|" + modifier;
    };
    for (const auto &w :
         table("en_us\\0333.lco en_US|819|; EN_US\\E005euro.lco en_US|57349|euro; "
               "en_us\\03 en_US|3|; en_us\\0333a.lco en_US|819|a; en_us\\fzz en_US|15|zz"))
        EXPECT_EQ(pieces(w[0].c_str()), w[1]);
    for (const char *bad : {"en_us\\ffffeuros.lco", "en_us\\.lco", "en_us\\", "en_us\\x.lco",
                            "default.lco", "en", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(pieces(bad), "error7") << bad;
    for (const char *odd : {"en_us/0333.lco", "en_us"}) // without a number, deliberately
        EXPECT_EQ(pieces(odd), "error0") << odd;
}
