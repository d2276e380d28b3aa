// Specifications, the code-set registry and the names made from both.
#include "record/kovaspec.h"

#include "locale/kovautils.h"
#include "support/fixture.h"

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

// "name=number name=number ": a line of text for rows that are as short.
static std::vector<std::pair<std::string, uint16_t>> numbered(const std::string &text) {
    std::vector<std::pair<std::string, uint16_t>> rows;
    for (size_t at = 0, end; (end = text.find(' ', at)) != text.npos; at = end + 1) {
        const size_t sign = text.find('=', at);
        rows.emplace_back(text.substr(at, sign - at), atoi(text.c_str() + sign + 1));
    }
    return rows;
}

TEST(Registry, NamesAreFoundInTheFile) {
    registry_file registry;
    const auto find = [&](const std::string &name) {
        registry.handle.gen.ko_lerrno = 0;
        return ko_cs_name2cs_num(registry.handle, name.c_str(), registry.file());
    };
    for (const bool cached : {false, true}) {
        if (cached) ko_cache_registry(registry.handle, registry.file());
        // 21 characters count; a number stands for itself.
        for (const auto &[name, number] :
             numbered("8859-1=819 LATIN-1=819 unicode=57349 wraps=1 a23456789012345678901cut=1 "
                      "A23456789012345678901=1 1252=1252 65537=1 0=0 latin=57344 12a=57344 "
                      "=57344 #=57344 ")) {
            EXPECT_EQ(find(name), number) << name;
            EXPECT_EQ(registry.handle.error(), number == KO_NO_CODESET ? KO_EINVAL : KO_OK) << name;
        }
    }
    EXPECT_EQ(ko_cs_name2cs_num(registry.handle, nullptr, registry.file()), KO_NO_CODESET);
}

TEST(Registry, GrammarOfTheFile) {
    // What the file gives for "x", read afresh and from the cache, and how caching ends.
    constexpr uint16_t none = KO_NO_CODESET;
    static const struct {
        const char *contents;
        uint16_t fresh;
        int error;
        uint16_t cached;
        int cache_error;
    } rows[] = {
        {"x 5\n",                           5,    0,          5,    0         },
        {"  X\t\r\n 5 and more\n",          5,    0,          5,    0         },
        {"#c\n \n#d\n  #e\nx 5\n",          5,    0,          5,    0         },
        {"a 1 x 2\nx 5\n",                  5,    0,          5,    0         },
        {"x 5\nx 6\n",                      5,    0,          5,    0         },
        {"bare\nx 5\n",                     5,    0,          none, KO_EOBJECT}, // the skip starts behind the name
        {"a 1 end",                         none, KO_EOBJECT, none, 0         },
        {"a 1\nx",                          none, KO_EINVAL,  none, 0         },
        {"a234567890123456789012 1\nx 5\n", none, KO_EINVAL,  none, 0         },
        {"\xE9 1\nx 5\n",                   5,    0,          none, KO_EOBJECT}, // no character of a name
        {"# x 5",                           none, KO_EINVAL,  none, 0         },
    };
    const auto check = [](const char *contents, uint16_t fresh, int error, uint16_t cached,
                          int cache_error) {
        SCOPED_TRACE(contents);
        registry_file registry(contents);
        EXPECT_EQ(ko_cs_name2cs_num(registry.handle, "x", registry.file()), fresh);
        EXPECT_EQ(registry.handle.error(), error);
        registry.handle.gen.ko_lerrno = 0;
        ko_cache_registry(registry.handle, registry.file());
        EXPECT_EQ(registry.handle.error(), cache_error);
        // Where caching fails, the built-in table answers, whatever file is named.
        EXPECT_EQ(ko_cs_name2cs_num(nullptr, "x", registry.file()), cached);
        if (cache_error) {
            EXPECT_EQ(ko_cs_name2cs_num(nullptr, "sjis", registry.file()), 57350);
        }
    };
    for (auto &r : rows)
        check(r.contents, r.fresh, r.error, r.cached, r.cache_error);
    for (const char *bad : {"x 5", "x 5#\n", "x\n", "x five\n", "x -5\n", "x\xE9 5\n"})
        check(bad, none, KO_EOBJECT, none, KO_EOBJECT);
}

TEST(Registry, WithoutFileOrMemoryTheReasonIsStated) {
    registry_file registry;
    env_hooks environment;
    environment.vars["VANTORDIR"] = registry.dir.path + "/nowhere";
    EXPECT_EQ(ko_cs_name2cs_num(registry.handle, "1252", nullptr), KO_NO_CODESET);
    EXPECT_EQ(registry.handle.error(), KO_EFORMAT);
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

#ifdef __linux__
TEST(Registry, OneThatCannotBeReadToItsEndIsNone) {
    registry_file registry;
    const char *const torn = "/proc/self/mem"; // a regular file whose first page is none
    EXPECT_EQ(ko_cs_name2cs_num(registry.handle, "1252", torn), KO_NO_CODESET);
    EXPECT_EQ(registry.handle.error(), KO_EIO);
    registry.handle.gen.ko_lerrno = 0;
    ko_cache_registry(registry.handle, torn);
    EXPECT_EQ(registry.handle.error(), KO_EIO);
    EXPECT_EQ(ko_cs_name2cs_num(nullptr, "sjis", nullptr), 57350) << "the built-in table answers";
}
#endif

TEST(Registry, TheBuiltInTableMatchesLowerCaseRowsOnly) {
    registry_file registry;
    ko_cache_registry(nullptr, (registry.dir.path + "/nowhere").c_str());
    for (const auto &[name, number] :
         numbered("sjis=57350 SJIS=57350 ujis=57351 big5=57352 gb=57357 utf8=57372 thai620=57373 "
                  "euctw=57375 cns=57375 mazovia=57384 8859-1=819 8859-2=912 8859-3=57346 "
                  "unicode=57349 pc-sjis=932 tst=57376 437=437 "))
        EXPECT_EQ(ko_cs_name2cs_num(nullptr, name.c_str(), nullptr), number) << name;
    for (const char *name : {"ascii", "ASCII", "Latin-1", "eucJP"})
        EXPECT_EQ(ko_cs_name2cs_num(nullptr, name, nullptr), KO_NO_CODESET) << name;
}

// want: the file name, nullptr for a failure with 7.
static void check_spec(const char *spec, uint16_t number, const char *want) {
    SCOPED_TRACE(spec ? spec : "NULL");
    static registry_file registry;
    registry.handle.gen.ko_lerrno = 0;
    EXPECT_EQ(ko_lc_spec2cs_num(registry.handle, spec, registry.file()), number);
    EXPECT_EQ(registry.handle.error(), number == KO_NO_CODESET ? KO_EINVAL : KO_OK);
    registry.handle.gen.ko_lerrno = 0;
    char out[spec_room] = "untouched";
    EXPECT_EQ(ko_lc_spec2lc_fname(registry.handle, spec, out, registry.file(), nullptr),
              want ? 0 : -1);
    EXPECT_STREQ(out, want ? want : "untouched");
    EXPECT_EQ(registry.handle.error(), want ? KO_OK : KO_EINVAL);
}

TEST(Specification, GivesNumberAndFileName) {
    constexpr uint16_t none = KO_NO_CODESET;
    static const struct {
        const char *spec;
        uint16_t number;
        const char *want;
    } rows[] = {
        {"en_US.8859-1",                                          819,   "en_us\\0333.lco"              },
        {"en_US.8859-1@euro",                                     819,   "en_us\\0333euro.lco"          },
        {"EN_us.Latin-1@Eu2",                                     819,   "en_us\\0333Eu2.lco"           },
        {"sv_SE.unicode",                                         57349, "sv_se\\e005.lco"              },
        {"de_DE.@euro",                                           7,     "de_de\\0007.lco"              }, // "@" may begin a name
        {"en_US.a23456789012345678901",                           1,     "en_us\\0001.lco"              },
        {"8859-1",                                                819,   nullptr                        }, // a code set alone has a number only
        {"1252",                                                  1252,  nullptr                        },
        {nullptr,                                                 none,  nullptr                        },
        {"KO_CTYPE = en_US.8859-1 ; ",                            819,   "KO_CTYPE = en_us\\0333.lco ; "},
        {"KO_CTYPE = en_US.8859-1",                               none,  "KO_CTYPE = en_us\\0333.lco"   },
        {"KO_TIME = de_DE.8859-1@x ; KO_MESSAGES = sv_SE.819 ; ", 819,
         "KO_TIME = de_de\\0333x.lco ; KO_MESSAGES = sv_se\\0333.lco ; "                                },
        {"KO_TIME = de_DE.8859-1 ; KO_MESSAGES = sv_SE.819",      none,
         "KO_TIME = de_de\\0333.lco ; KO_MESSAGES = sv_se\\0333.lco"                                    },
    };
    for (auto &r : rows)
        check_spec(r.spec, r.number, r.want);
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
    EXPECT_STREQ(out, "KO_CTYPE = d\xFF"
                      "en_us\\0333.lco ; KO_TIME = d\xFF"
                      "en_us\\0333.lco");
    for (size_t len = 100; len < 200; ++len) {
        const std::string dir(len, 'd');
        const size_t whole = strlen(compound) + 2 * (len + 1 + strlen("\\0333.lco") - 4);
        const bool fits = whole < spec_room;
        strcpy(out, "untouched");
        EXPECT_EQ(ko_lc_spec2lc_fname(registry.handle, compound, out, registry.file(), dir.c_str()),
                  fits ? 0 : -1);
        EXPECT_EQ(strlen(out), fits ? whole : strlen("untouched"));
        EXPECT_EQ(out[spec_room], 'z');
    }
}

TEST(Specification, TheMessageDirectoryIsTheStartOfTheFileName) {
    registry_file registry;
    const auto directory = [&](const char *spec) {
        registry.handle.gen.ko_lerrno = 0;
        char out[11] = "(none)";
        const int result = ko_lc_spec2msg_dname(registry.handle, spec, out, registry.file(), "dir");
        EXPECT_EQ(result, *out == '(' ? -1 : 0);
        EXPECT_EQ(registry.handle.error(), result ? KO_EINVAL : KO_OK);
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
    EXPECT_EQ(ko_lc_spec2cs_num(registry.handle, "en_US.8859-1", nowhere.c_str()), KO_NO_CODESET);
    EXPECT_EQ(registry.handle.error(), KO_EFORMAT);
    EXPECT_EQ(ko_lc_spec2lc_fname(registry.handle, "en_US.8859-1", out, nowhere.c_str(), nullptr),
              -1);
    EXPECT_EQ(registry.handle.error(), KO_EINVAL);
}

TEST(Names, ConversionObjectsAndDirectories) {
    char out[32];
    ko_cs_nums2cv_fname(nullptr, 819, 1252, out, nullptr);
    EXPECT_STREQ(out, "033304e4.cvo");
    ko_cs_nums2cv_fname(nullptr, 0, 0xFFFF, out, "");
    EXPECT_STREQ(out, "0000ffff.cvo");
    ko_cs_nums2cv_fname(nullptr, 0xE005, 1, out, "c:\\x");
    EXPECT_STREQ(out, "c:\\x\xFF"
                      "e0050001.cvo");
    strcpy(out, "kept");
    pathcat_mark(out, "");
    pathcat_mark(out, nullptr);
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
    EXPECT_EQ(make("en_US", "0333", nullptr), "en_US.0333");
    EXPECT_EQ(make("EN_us", "333", ""), "EN_us.333");
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
    EXPECT_EQ(pieces("en_us\\0333.lco"), "en_US|819|");
    EXPECT_EQ(pieces("EN_US\\E005euro.lco"), "en_US|57349|euro");
    EXPECT_EQ(pieces("en_us\\03"), "en_US|3|");
    EXPECT_EQ(pieces("en_us\\0333a.lco"), "en_US|819|a");
    EXPECT_EQ(pieces("en_us\\fzz"), "en_US|15|zz");
    for (const char *bad : {"en_us\\ffffeuros.lco", "en_us\\.lco", "en_us\\", "en_us\\x.lco",
                            "default.lco", "en", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(pieces(bad), "error7") << bad;
    for (const char *odd : {"en_us/0333.lco", "en_us"}) // without a number, deliberately
        EXPECT_EQ(pieces(odd), "error0") << odd;
}
