// Specifications, the code-set registry and the names made from both.
#include "kovaspec.h"

#include "fixture.h"
#include "kovautils.h"

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

TEST(Registry, NamesAreFoundInTheFile) {
    static const struct {
        const char *name;
        uint16_t number;
        int error;
    } rows[] = {
        {"8859-1",                   819,           KO_OK    },
        {"LATIN-1",                  819,           KO_OK    },
        {"unicode",                  57349,         KO_OK    },
        {"wraps",                    1,             KO_OK    },
        {"A23456789012345678901",    1,             KO_OK    },
        {"a23456789012345678901cut", 1,             KO_OK    }, // 21 characters count
        {"latin",                    KO_NO_CODESET, KO_EINVAL},
        {"1252",                     1252,          KO_OK    }, // a number stands for itself
        {"65537",                    1,             KO_OK    },
        {"0",                        0,             KO_OK    },
        {"12a",                      KO_NO_CODESET, KO_EINVAL},
        {"",                         KO_NO_CODESET, KO_EINVAL},
        {"#",                        KO_NO_CODESET, KO_EINVAL},
    };
    registry_file registry;
    for (const bool cached : {false, true}) {
        if (cached) ko_cache_registry(registry.handle, registry.file());
        for (auto &r : rows) {
            SCOPED_TRACE(r.name);
            registry.handle.gen.ko_lerrno = 0;
            EXPECT_EQ(ko_cs_name2cs_num(registry.handle, r.name, registry.file()), r.number);
            EXPECT_EQ(registry.handle.error(), r.error);
        }
    }
    EXPECT_EQ(ko_cs_name2cs_num(registry.handle, nullptr, registry.file()), KO_NO_CODESET);
}

TEST(Registry, GrammarOfTheFile) {
    // What the file gives for "x", read afresh and from the cache, and how caching ends.
    static const struct {
        const char *contents;
        uint16_t fresh;
        int error;
        uint16_t cached;
        int cache_error;
    } rows[] = {
        {"x 5\n",                           5,             0,          5,             0         },
        {"  X\t\r\n 5 and more\n",          5,             0,          5,             0         },
        {"#c\n \n#d\n  #e\nx 5\n",          5,             0,          5,             0         },
        {"a 1 x 2\nx 5\n",                  5,             0,          5,             0         },
        {"x 5\nx 6\n",                      5,             0,          5,             0         },
        {"x 5",                             KO_NO_CODESET, KO_EOBJECT, KO_NO_CODESET, KO_EOBJECT},
        {"x 5#\n",                          KO_NO_CODESET, KO_EOBJECT, KO_NO_CODESET, KO_EOBJECT},
        {"x\n",                             KO_NO_CODESET, KO_EOBJECT, KO_NO_CODESET, KO_EOBJECT},
        {"x five\n",                        KO_NO_CODESET, KO_EOBJECT, KO_NO_CODESET, KO_EOBJECT},
        {"x -5\n",                          KO_NO_CODESET, KO_EOBJECT, KO_NO_CODESET, KO_EOBJECT},
        {"bare\nx 5\n",                     5,             0,          KO_NO_CODESET, KO_EOBJECT}, // the skip starts behind the name
        {"a 1 end",                         KO_NO_CODESET, KO_EOBJECT, KO_NO_CODESET, 0         },
        {"a 1\nx",                          KO_NO_CODESET, KO_EINVAL,  KO_NO_CODESET, 0         },
        {"a234567890123456789012 1\nx 5\n", KO_NO_CODESET, KO_EINVAL,  KO_NO_CODESET, 0         },
        {"\xE9 1\nx 5\n",                   5,             0,          KO_NO_CODESET, KO_EOBJECT}, // no character of a name
        {"x\xE9 5\n",                       KO_NO_CODESET, KO_EOBJECT, KO_NO_CODESET, KO_EOBJECT},
        {"# x 5",                           KO_NO_CODESET, KO_EINVAL,  KO_NO_CODESET, 0         },
    };
    for (auto &r : rows) {
        SCOPED_TRACE(r.contents);
        registry_file registry(r.contents);
        EXPECT_EQ(ko_cs_name2cs_num(registry.handle, "x", registry.file()), r.fresh);
        EXPECT_EQ(registry.handle.error(), r.error);
        registry.handle.gen.ko_lerrno = 0;
        ko_cache_registry(registry.handle, registry.file());
        EXPECT_EQ(registry.handle.error(), r.cache_error);
        // Where caching fails, the built-in table answers, whatever file is named.
        EXPECT_EQ(ko_cs_name2cs_num(nullptr, "x", registry.file()), r.cached);
        if (r.cache_error) {
            EXPECT_EQ(ko_cs_name2cs_num(nullptr, "sjis", registry.file()), 57350);
        }
    }
}

TEST(Registry, WithoutFileOrMemoryTheReasonIsStated) {
    registry_file registry;
    env_hooks environment;
    environment.vars["VANTORDIR"] = registry.dir.path + "/nowhere";
    EXPECT_EQ(ko_cs_name2cs_num(registry.handle, "1252", nullptr), KO_NO_CODESET);
    EXPECT_EQ(registry.handle.error(), KO_EFORMAT);
    registry.dir.write("kova/cm3/registry", "x 5\n");
    environment.vars["VANTORDIR"] = registry.dir.path;
    EXPECT_GT(each_allocation_fails([] {
                  test_handle handle;
                  const auto number = ko_cs_name2cs_num(handle, "x", nullptr);
                  EXPECT_EQ(handle.error(), number == 5 ? KO_OK : KO_ENOMEM);
                  return number == 5;
              }),
              0);
    EXPECT_GT(each_allocation_fails([] {
                  test_handle handle;
                  ko_cache_registry(handle, nullptr);
                  // "x" stands in the file alone, sjis in the built-in table alone.
                  EXPECT_EQ(ko_cs_name2cs_num(nullptr, handle.error() ? "sjis" : "x", nullptr),
                            handle.error() ? 57350 : 5);
                  return !handle.error();
              }),
              0);
    ko_cache_registry(registry.handle, (registry.dir.path + "/nowhere").c_str());
    EXPECT_EQ(registry.handle.error(), KO_EFORMAT);
}

TEST(Registry, TheBuiltInTableMatchesLowerCaseRowsOnly) {
    registry_file registry;
    ko_cache_registry(nullptr, (registry.dir.path + "/nowhere").c_str());
    static const struct {
        const char *name;
        uint16_t number;
    } rows[] = {
        {"sjis",    57350        },
        {"SJIS",    57350        },
        {"ujis",    57351        },
        {"big5",    57352        },
        {"gb",      57357        },
        {"utf8",    57372        },
        {"thai620", 57373        },
        {"euctw",   57375        },
        {"cns",     57375        },
        {"mazovia", 57384        },
        {"8859-1",  819          },
        {"8859-2",  912          },
        {"8859-3",  57346        },
        {"unicode", 57349        },
        {"pc-sjis", 932          },
        {"ascii",   KO_NO_CODESET},
        {"ASCII",   KO_NO_CODESET},
        {"Latin-1", KO_NO_CODESET},
        {"eucJP",   KO_NO_CODESET},
        {"tst",     57376        },
        {"437",     437          },
    };
    for (auto &r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(ko_cs_name2cs_num(nullptr, r.name, nullptr), r.number);
    }
}

TEST(BuiltInTable, HasEveryRowAndNoNumberByAccident) {
    static const struct {
        const char *name;
        int number;
    } rows[] = {
#include "kovaspec_tab.inc"
    };
    EXPECT_EQ(std::size(rows), 114u);
    std::map<std::string, int> numbers;
    for (auto &r : rows) {
        EXPECT_TRUE(numbers.emplace(r.name, r.number).second) << r.name << " stands twice";
        EXPECT_LE(strlen(r.name), size_t{cs_name_max});
        EXPECT_NE(r.number, 0xE000);
        EXPECT_LT(r.number, 0xE029) << r.name;
    }
    EXPECT_EQ(numbers["ASCII"], 57345);
    EXPECT_EQ(numbers["TChHstExSBCS"], 28709);
    EXPECT_EQ(numbers["CCSID28709"], 29709);
    EXPECT_EQ(numbers["eucJP"], 5050);
    EXPECT_EQ(numbers["EBCDIC-US"], 37);
    // Names of one code set stand together; a number met again elsewhere would be a slip.
    static const char *const apart[] = {"CP437", "Guobiao2312", "8859-5"};
    std::set<int> met;
    for (size_t i = 0; i < std::size(rows); ++i) {
        const bool again = i && rows[i].number == rows[i - 1].number;
        const bool known =
            std::count(std::begin(apart), std::end(apart), std::string(rows[i].name));
        EXPECT_TRUE(met.insert(rows[i].number).second || again || known) << rows[i].name;
    }
}

TEST(Specification, GivesNumberAndFileName) {
    static const struct {
        const char *spec;
        uint16_t number;
        int error;
        const char *fname; // NULL: fails with 7
    } rows[] = {
        {"en_US.8859-1",                                           819,           0,         "en_us\\0333.lco"              },
        {"en_US.8859-1@euro",                                      819,           0,         "en_us\\0333euro.lco"          },
        {"EN_us.Latin-1@Eu2",                                      819,           0,         "en_us\\0333Eu2.lco"           },
        {"sv_SE.unicode",                                          57349,         0,         "sv_se\\e005.lco"              },
        {"de_DE.1252",                                             1252,          0,         "de_de\\04e4.lco"              },
        {"de_DE.@euro",                                            7,             0,         "de_de\\0007.lco"              }, // the first character of a name may be "@"
        {"en_US.8859-1@euros",                                     KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"en_US.8859-1@",                                          KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"en_US.8859-1@eu-r",                                      KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"en_US.8859-1 ",                                          KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"en_US.nowhere",                                          KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"en_US.57344",                                            KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"en_US.#",                                                KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"en_US.",                                                 KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"en_US",                                                  KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"e1_US.8859-1",                                           KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"\xE9\xE9_US.8859-1",                                     KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"en_US.a23456789012345678901",                            1,             0,         "en_us\\0001.lco"              },
        {"en_US.a234567890123456789012",                           KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"8859-1",                                                 819,           0,         nullptr                        }, // a code set alone has a number only
        {"1252",                                                   1252,          0,         nullptr                        },
        {"",                                                       KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {nullptr,                                                  KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"KO_CTYPE = en_US.8859-1 ; ",                             819,           0,         "KO_CTYPE = en_us\\0333.lco ; "},
        {"KO_CTYPE = en_US.8859-1",                                KO_NO_CODESET, KO_EINVAL, "KO_CTYPE = en_us\\0333.lco"   },
        {"KO_TIME = de_DE.8859-1@x ; KO_MESSAGES = sv_SE.819 ; ",  819,           0,
         "KO_TIME = de_de\\0333x.lco ; KO_MESSAGES = sv_se\\0333.lco ; "                                                    },
        {"KO_TIME = de_DE.8859-1 ; KO_MESSAGES = sv_SE.819",       KO_NO_CODESET, KO_EINVAL,
         "KO_TIME = de_de\\0333.lco ; KO_MESSAGES = sv_se\\0333.lco"                                                        },
        {"KO_TIME = de_DE.8859-1 ; KO_MESSAGES = sv_SE.8859-2 ; ", KO_NO_CODESET, KO_EINVAL,
         nullptr                                                                                                            },
        {"KO_CTYPE = de_DE.8859-1 ; KO_CTYPE = de_DE.8859-1 ; ",   KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"KO_ALL = de_DE.8859-1 ; ",                               KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"KO_TIME= de_DE.8859-1 ; ",                               KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"KO_TIME = de_DE.8859-1; ",                               KO_NO_CODESET, KO_EINVAL, nullptr                        },
        {"KO_TIME = de_DE.8859-1 ;  ",                             KO_NO_CODESET, KO_EINVAL, nullptr                        },
    };
    registry_file registry;
    for (auto &r : rows) {
        SCOPED_TRACE(r.spec ? r.spec : "NULL");
        registry.handle.gen.ko_lerrno = 0;
        EXPECT_EQ(ko_lc_spec2cs_num(registry.handle, r.spec, registry.file()), r.number);
        EXPECT_EQ(registry.handle.error(), r.error);
        registry.handle.gen.ko_lerrno = 0;
        char out[spec_room] = "untouched";
        EXPECT_EQ(ko_lc_spec2lc_fname(registry.handle, r.spec, out, registry.file(), nullptr),
                  r.fname ? 0 : -1);
        EXPECT_STREQ(out, r.fname ? r.fname : "untouched");
        EXPECT_EQ(registry.handle.error(), r.fname ? KO_OK : KO_EINVAL);
    }
}

TEST(Specification, WithoutRegistryTheReasonsDiffer) {
    registry_file registry;
    const std::string nowhere = registry.dir.path + "/nowhere";
    char out[spec_room];
    EXPECT_EQ(ko_lc_spec2cs_num(registry.handle, "en_US.8859-1", nowhere.c_str()), KO_NO_CODESET);
    EXPECT_EQ(registry.handle.error(), KO_EFORMAT);
    EXPECT_EQ(ko_lc_spec2lc_fname(registry.handle, "en_US.8859-1", out, nowhere.c_str(), nullptr),
              -1);
    EXPECT_EQ(registry.handle.error(), KO_EINVAL);
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
    static const struct {
        const char *spec, *want;
    } rows[] = {
        {"en_US.8859-1@euro",                                 "en_us\\0333"},
        {"KO_MESSAGES = sv_SE.unicode",                       "sv_se\\e005"},
        {"KO_CTYPE = en_US.819 ; KO_MESSAGES = sv_SE.819 ; ", "sv_se\\0333"},
        {"KO_CTYPE = en_US.819",                              nullptr      },
        {"8859-1",                                            nullptr      },
    };
    registry_file registry;
    for (auto &r : rows) {
        SCOPED_TRACE(r.spec);
        registry.handle.gen.ko_lerrno = 0;
        char out[11] = "untouched";
        EXPECT_EQ(ko_lc_spec2msg_dname(registry.handle, r.spec, out, registry.file(), "dir"),
                  r.want ? 0 : -1);
        EXPECT_STREQ(out, r.want ? r.want : "untouched");
        EXPECT_EQ(registry.handle.error(), r.want ? KO_OK : KO_EINVAL);
    }
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
    static const struct {
        const char *lang_terr, *cs_num, *modifier, *want;
    } rows[] = {
        {"en_US",  "0333",        nullptr, "en_US.0333"      },
        {"EN_us",  "333",         "",      "EN_us.333"       },
        {"en_US",  "0333abc",     "euros", "en_US.0333a@euro"},
        {"en_US",  "0333abcdefg", nullptr, nullptr           },
        {"en_US",  "",            nullptr, nullptr           },
        {"en_US",  nullptr,       nullptr, nullptr           },
        {"en_USA", "0333",        nullptr, nullptr           },
        {"en-US",  "0333",        nullptr, nullptr           },
        {"en",     "0333",        nullptr, nullptr           },
        {"",       "0333",        nullptr, nullptr           },
        {nullptr,  "0333",        nullptr, nullptr           },
    };
    for (auto &r : rows) {
        SCOPED_TRACE(r.lang_terr ? r.lang_terr : "NULL");
        test_handle handle;
        char out[17] = {};
        EXPECT_EQ(ko_lc_pieces2lc_spec(handle, r.lang_terr, r.cs_num, r.modifier, out),
                  r.want ? 0 : -1);
        EXPECT_STREQ(out, r.want ? r.want : "");
        EXPECT_EQ(handle.error(), r.want ? KO_OK : KO_EINVAL);
        EXPECT_EQ(ko_lc_pieces2lc_spec(nullptr, r.lang_terr, r.cs_num, r.modifier, out),
                  r.want ? 0 : -1);
    }
}

TEST(Names, AFileNameFallsIntoPieces) {
    static const struct {
        const char *fname, *want; // pieces separated by "|"
        int error;
    } rows[] = {
        {"en_us\\0333.lco",      "en_US|819|",       0        },
        {"EN_US\\E005euro.lco",  "en_US|57349|euro", 0        },
        {"en_us\\03",            "en_US|3|",         0        },
        {"en_us\\0333a.lco",     "en_US|819|a",      0        },
        {"en_us\\fzz",           "en_US|15|zz",      0        },
        {"en_us\\ffffeuros.lco", "",                 KO_EINVAL},
        {"en_us\\.lco",          "",                 KO_EINVAL},
        {"en_us\\",              "",                 KO_EINVAL},
        {"en_us\\x.lco",         "",                 KO_EINVAL},
        {"en_us/0333.lco",       "",                 0        }, // without a number, on purpose
        {"en_us",                "",                 0        },
        {"default.lco",          "",                 KO_EINVAL},
        {"en",                   "",                 KO_EINVAL},
        {"",                     "",                 KO_EINVAL},
        {nullptr,                "",                 KO_EINVAL},
    };
    for (auto &r : rows) {
        SCOPED_TRACE(r.fname ? r.fname : "NULL");
        test_handle handle;
        char lang_terr[6] = {}, cs_num[6] = {}, modifier[5] = {};
        const int result = ko_lc_fname2lc_pieces(handle, r.fname, lang_terr, cs_num, modifier);
        EXPECT_EQ(result, *r.want ? 0 : -1);
        EXPECT_EQ(handle.error(), r.error);
        if (*r.want) {
            EXPECT_EQ(std::string(lang_terr) + "|" + cs_num + "|" + modifier, r.want);
        }
        EXPECT_EQ(ko_lc_fname2lc_pieces(nullptr, r.fname, lang_terr, cs_num, modifier), result);
    }
}
