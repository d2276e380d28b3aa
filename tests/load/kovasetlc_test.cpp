// The locale record, loading, and the list of shared locales.
#include "chars/kovambwc.h"
#include "kova_host.h"
#include "load/kovasetlc_load.h"
#include "locale/kovaextsa.h"
#include "locale/kovautils.h"
#include "support/locale_builder.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include <unistd.h>

using namespace std::string_literals;

// Built once: the builder needs the stream hooks for itself.
static const locale_object &single() {
    static const locale_object object = single_byte_object();
    return object;
}
static const std::pair<const char *, const locale_object &> *small_objects() {
    static const locale_object doubled = double_byte_object(false), wide = double_byte_object(true);
    static const std::pair<const char *, const locale_object &> objects[] = {
        {"one.lco",  single()},
        {"two.lco",  doubled },
        {"wide.lco", wide    }
    };
    return objects;
}

// A host whose objects are in memory: one.lco, two.lco, wide.lco and those that a test adds.
struct object_host {
    const std::pair<const char *, const locale_object &> *objects = small_objects();
    env_hooks env;
    file_hooks files;
    object_host() {
        for (int i = 0; i < 3; ++i)
            add(objects[i].first, objects[i].second);
    }
    void add(const std::string &name, const locale_object &object) {
        files.files[object_path + name] = object.str();
    }
};

// A record of a name, and the default one.
struct shared_record : owned<ko_lc_unload> {
    explicit shared_record(const char *name, const char *dir = nullptr) {
        result = ko_lc_load(&handle, name, nullptr, dir);
    }
};
struct default_record : owned<ko_lc_unload> {
    explicit default_record(const char *dir = nullptr) {
        result = ko_createlocale2_2(&handle, dir);
    }
    kovaloc *operator->() const { return record(handle); }
};

// Everything that a record answers, in one number.
struct answers {
    uint64_t sum = 0xCBF29CE484222325u;
    void add(const void *bytes, size_t len) {
        for (size_t i = 0; i < len; i++)
            sum = (sum ^ static_cast<const unsigned char *>(bytes)[i]) * 0x100000001B3u;
    }
    template <class T> void value(T v) { add(&v, sizeof v); }
    void string(const void *s, bool plain = false) {
        value(s != nullptr);
        if (s) add(s, plain ? strlen(static_cast<const char *>(s)) : zeros_at(s));
    }
    void string(const ko_wchar_t *s) {
        value(s != nullptr);
        if (s) add(s, size_t(ko_wcsbytes(s)));
    }
};

static void add_conventions(answers *a, const koconv *c) {
    a->string(c->grouping), a->string(c->mon_grouping);
    a->add(&c->int_frac_digits, 8);
    for (const ko_wchar_t *s :
         {c->w_decimal_point, c->w_thousands_sep, c->w_int_curr_symbol, c->w_currency_symbol,
          c->w_mon_decimal_point, c->w_mon_thousands_sep, c->w_positive_sign, c->w_negative_sign})
        a->string(s);
}

static void add_times(answers *a, ko_lc_t loc) {
    static const auto format = wcs(u"%A %a %B %b %c %x %X %p %r %EY %Ec %Ex %Od %Om");
    for (int year : {-800, 20, 90, 126}) {
        const ko_tm_t tm = {
            .tm_hour = 13, .tm_mday = 9, .tm_mon = year & 7, .tm_year = year, .tm_wday = year & 3};
        ko_wchar_t out[512] = {};
        ko_tm_t back = {};
        a->value(ko_wcsftime(loc, out, 512, format.data(), &tm));
        a->string(out);
        a->value(ko_wcsptime(loc, out, format.data(), &back, 'C') != nullptr);
        a->value(back.tm_year + 1000 * back.tm_mon + 100000 * back.tm_wday);
    }
}

static uint64_t digest(ko_lc_t loc) {
    answers a;
    const auto *exp = static_cast<const loc_exports *>(loc);
    for (unsigned item = 0; item <= KO_LANGINFO_MAX; item++) {
        a.string(ko_nl_langinfo(loc, item), item == KO_CALENDAR || item == KO_CODESET);
        a.string(ko_wc_nl_langinfo(loc, item));
    }
    add_conventions(&a, ko_localeconv(loc));
    for (const unsigned char *table : {exp->sb_toupper_table, exp->sb_tolower_table}) {
        a.value(table != nullptr);
        if (table) a.add(table, 256);
    }
    for (auto **s = exp->coll_ignored; s && *s; s++)
        a.string(*s);
    for (auto *pair = exp->coll_equiv_class_map; pair && pair->from; pair++)
        a.string(pair->from), a.string(pair->to);
    a.value(exp->case_conv_ratio + exp->coll_char_ratio);
    for (unsigned c = 1; c < 0x10000; c += c < 256 ? 1 : 37) {
        const ko_wchar_t wc = ko_wchar_t(c), text[] = {wc, 'c', 'h', wc, 0};
        ko_mchar_t key[200] = {};
        a.value(im_iswctype(loc, wc, ~0U) ^ im_towupper(loc, wc) << 8 ^ im_towlower(loc, wc));
        a.value(ko_wcsxfrm(loc, key, text, sizeof key));
        a.add(key, sizeof key);
    }
    a.value(ko_ctype(loc, "capital") + ko_ctype(loc, "full_width"));
    add_times(&a, loc);
    return a.sum;
}

TEST(LocaleRecord, StartsEmpty) {
    const memory_hooks memory;
    own_record loc;
    EXPECT_EQ(loc.error(), 0);
    EXPECT_EQ(loc->exp.case_conv_ratio, 1.0);
    EXPECT_EQ(loc->exp.coll_char_ratio, 4.0);
    EXPECT_EQ(ko_mb_loc_max(loc), 0);
    EXPECT_EQ(ko_mb_loc_min(loc), 2);
    EXPECT_EQ(loc->monum_info.p_sign_posn, 0x7FFFFFFF);
    for (int i = 0; i < 6; i++)
        EXPECT_TRUE(!*loc->codeset[i] && !*loc->locname[i]);
    EXPECT_EQ(ko_make_null_category(loc, 1), -1);
    EXPECT_EQ(loc.error(), KO_ERANGE);
}

TEST(LocaleRecord, WithoutMemoryIsTheErrorRecord) {
    each_allocation_fails([] {
        ko_lc_t loc = nullptr;
        const int result = ko_create_null_locale_2(&loc);
        EXPECT_EQ(*ko_ext_errno(loc), result ? KO_ENOMEM : 0);
        if (result) *ko_ext_errno(loc) = 0; // the next hand-out must say it again
        ko_lc_unload(loc);
        ko_free_nonshared_loc(loc == nullptr || !result ? nullptr : loc);
        return !result;
    });
}

TEST(SetLocale, OpensTheObjectOnceForEachCategory) {
    object_host host;
    own_record loc;
    const std::string setting = loc.set(KO_LC_ALL, "one.lco");
    EXPECT_EQ(setting, "KO_CTYPE = one.lco ; KO_COLLATE = one.lco ; KO_NUMERIC = one.lco ; "
                       "KO_MONETARY = one.lco ; KO_TIME = one.lco ; KO_MESSAGES = one.lco ; ");
    EXPECT_EQ(loc.error(), 0);
    const std::string path = std::string(object_path) + "one.lco";
    EXPECT_EQ(host.files.tried, std::vector<std::string>(6, path));
    EXPECT_EQ(loc.set(KO_LC_TIME, nullptr), "one.lco");
    EXPECT_EQ(wide(loc->w_codeset[0]), u"TEST-1");
    EXPECT_EQ(wide(loc->w_locname[5]), u"one.lco");
}

TEST(SetLocale, TakesTheFirstVariableThatIsNotEmpty) {
    const std::pair<std::map<std::string, std::string>, const char *> rows[] = {
        {{},                                                      "default.lco"},
        {{{"KO_ALL", ""}, {"KO_TIME", ""}, {"KO_LANG", "c.lco"}}, "c.lco"      },
        {{{"KO_TIME", "b.lco"}, {"KO_LANG", "c.lco"}},            "b.lco"      },
        {{{"KO_ALL", "a.lco"}, {"KO_TIME", "b.lco"}},             "a.lco"      },
        {{{"KO_ALL", "native"}},                                  "native"     },
        {{{"KO_ALL", std::string(312, 'x')}},                     "(null)"     },
    };
    object_host host;
    for (const char *name : {"default.lco", "a.lco", "b.lco", "c.lco"})
        host.add(name, single());
    for (const auto &[vars, want] : rows) {
        host.env.vars = vars;
        own_record loc;
        EXPECT_EQ(loc.set(KO_LC_TIME, ""), want);
        EXPECT_EQ(loc.error() == KO_ERANGE, *want == '(');
    }
}

TEST(SetLocale, ReadsItsOwnSettingBackAndWarnsOfMixedCodeSets) {
    object_host host;
    for (const char *name : {"a.lco", "b.lco", "c.lco"})
        host.add(name, single());
    own_record first, second;
    first.set(KO_LC_ALL, "a.lco");
    first.set(KO_LC_TIME, "b.lco");
    first.set(KO_LC_CTYPE, "c.lco");
    const std::string setting = first.set(KO_LC_ALL, nullptr);
    EXPECT_EQ(second.set(KO_LC_ALL, setting.c_str()), setting);
    EXPECT_EQ(second.set(KO_LC_CTYPE, nullptr), "c.lco");
    EXPECT_EQ(second.set(KO_LC_MESSAGES, "two.lco"), "two.lco");
    EXPECT_EQ(second.error(), 0);
    EXPECT_EQ(second.set(KO_LC_TIME, setting.c_str()), "b.lco");
    EXPECT_EQ(second.error(), 0);
    EXPECT_EQ(second.set(KO_LC_TIME, "two.lco"), "two.lco");
    EXPECT_EQ(second.error(), KO_ECODESET);
}

TEST(SetLocale, KeepsAtMost31CharactersOfANameAndSearchesNative) {
    const std::string name = std::string(28, 'n') + ".lco"; // 32
    object_host host;
    host.add(name, single());
    host.add("default.lco", single());
    host.files.files["d:\\x\\native"] = single().str();
    own_record loc;
    EXPECT_EQ(loc.set(KO_LC_NUMERIC, name.c_str()), name.substr(0, 31));
    EXPECT_EQ(loc.set(KO_LC_ALL, ("KO_TIME =  " + name + "xx ; ").c_str()), "(null)");
    EXPECT_EQ(loc.set(KO_LC_TIME, ("KO_TIME =  " + name + "xx ; ").c_str()), name.substr(0, 31));
    EXPECT_EQ(loc.set(KO_LC_TIME, "native"), "native"); // the default, or in the directory
    char *setting = set_categories(record(loc), KO_LC_MESSAGES, "native", "d:\\x");
    EXPECT_STREQ(setting, "native");
    ko_destroystring(setting);
    EXPECT_EQ(host.files.tried.back(), "d:\\x\\native");
}

TEST(SetLocale, NamesTheReasonOfAFailure) {
    object_host host;
    host.add("good.lco", single());
    const std::string good = single().str();
    host.files.files[std::string(object_path) + "cut.lco"] =
        good.substr(0, good.find("### LC_MESSAGES"));
    const std::string endless(312, 'n');
    const struct {
        int category;
        const char *name;
        int error;
        std::string locale_object::*part; // of broken.lco, and what it is
        const char *text;
    } rows[] = {
        {KO_LC_ALL,                      "broken.lco",  KO_EOBJECT,                                 &locale_object::type, "FILE_TYPE=locale_object\r\n"},
        {KO_LC_ALL, "broken.lco",              KO_EVERSION,                                                &locale_object::version, "COMPILER_VERSION=12\n"},
        {KO_LC_CTYPE,                   "broken.lco",KO_EOBJECT,&locale_object::codeset, "TEST-1\nx"},
        {KO_LC_TIME,                    "broken.lco",   KO_ECALENDAR,                                        &locale_object::time, "julian\n"},
        {KO_LC_COLLATE,                   "broken.lco",                                KO_ECODESET,                                                                 &locale_object::collate, "unspecified\n"},
        {KO_LC_CTYPE,                  "broken.lco",         KO_ECHARLEN,  &locale_object::ctype,
         "3 1 1 0000\n1 0\n0000000\n"},
        {KO_LC_ALL,                  "cut.lco", KO_EOBJECT},
        {KO_LC_ALL,               "missing.lco",                            KO_ECODESET                                                           },
        {8,                   "good.lco",   KO_ERANGE                                                             },
        {0,                      nullptr,         KO_ERANGE                                        },
        {KO_LC_ALL,                      endless.c_str(),        KO_ERANGE           },
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(&r - rows);
        locale_object other = single();
        if (r.part) other.*r.part = r.text;
        host.add("broken.lco", other);
        const memory_hooks memory;
        own_record loc;
        EXPECT_EQ(loc.set(r.category, r.name), "(null)");
        EXPECT_EQ(loc.error(), r.error);
    }
}

TEST(SetLocale, KeepsWhatWasLoadedBeforeAFailure) {
    locale_object broken = single();
    broken.time = "julian\n";
    object_host host;
    host.add("good.lco", single());
    host.add("broken.lco", broken);
    own_record loc;
    loc.set(KO_LC_ALL, "good.lco");
    EXPECT_EQ(loc.set(KO_LC_ALL, "broken.lco"), "(null)");
    EXPECT_EQ(loc.set(KO_LC_ALL, nullptr),
              "KO_CTYPE = broken.lco ; KO_COLLATE = broken.lco ; KO_NUMERIC = broken.lco ; "
              "KO_MONETARY = broken.lco ; KO_TIME =  ; KO_MESSAGES = good.lco ; ");
    EXPECT_EQ(ko_nl_langinfo(loc, KO_DAY_1), nullptr); // back in the empty state
    EXPECT_EQ(text(ko_nl_langinfo(loc, KO_YESSTR)), "yes");
    EXPECT_EQ(im_towupper(loc, 'a'), 'A');
}

TEST(SetLocale, RebuildsWhatDependsOnTheCodeSet) {
    object_host host;
    own_record loc;
    for (const char *name : {"two.lco", "wide.lco", "one.lco"}) {
        own_record fresh;
        EXPECT_NE(fresh.set(KO_LC_ALL, name), "(null)");
        *ko_ext_errno(loc) = 0;
        EXPECT_NE(loc.set(KO_LC_ALL, name), "(null)");
        EXPECT_EQ(loc.error(), 0);
        EXPECT_EQ(loc->exp.single_byte, *name == 'o');
        EXPECT_EQ(loc->exp.mbstowcs, *name == 'o' ? is_mbstowcs : im_mbstowcs);
        EXPECT_EQ(digest(loc), digest(fresh));
    }
    EXPECT_EQ(loc->exp.sb_ctype_table[+'A'], KO_CT_UPPER | KO_CT_ALPHA | 0x800);
    EXPECT_EQ(loc->exp.sb_toupper_table[+'c'], 'C');
    EXPECT_EQ(loc->exp.sb_toupper_table[200], 200);
    EXPECT_EQ(loc->exp.case_conv_ratio, 2.0);
}

TEST(SetLocale, ByteMasksAreTheItemsEvenOfBytesThatAreNoCharacters) {
    locale_object object = single();
    // One character, "a", and items of "a" and "b" besides the default.
    object.ctype = "1 1 1 0020\n1 1\n6100100104\n0000000\n6100200100010002\n0000000\n0\n" +
                   table_text({
                       {"a", 0}
    }) +
                   "0\n";
    object_host host;
    host.add("x.lco", object);
    own_record loc;
    EXPECT_EQ(loc.set(KO_LC_CTYPE, "x.lco"), "x.lco");
    const uint16_t *masks = loc->exp.sb_ctype_table;
    ASSERT_NE(masks, nullptr);
    EXPECT_EQ(masks[+'a'], 1);
    EXPECT_EQ(masks[+'b'], 2);
    EXPECT_EQ(masks[+'c'], 0x20);
    EXPECT_EQ(im_iswctype(loc, 'b', 2), 0);
}

TEST(DefaultLocale, HasCodeSetsAndNoNames) {
    object_host host;
    const std::string endless(117, 'x'); // with the name, one byte more than there is room
    const struct {
        const char *dir, *codeset;
        int result, error;
    } rows[] = {
        {"d:/mine/",      "TEST-2", 0,  KO_OK   },
        {"d:/nothing/",   "",       -1, KO_EFILE},
        {nullptr,         "TEST-1", 0,  KO_OK   }, // from here on there is one
        {"d:/nothing/",   "TEST-1", 0,  KO_OK   },
        {endless.c_str(), "TEST-1", 0,  KO_OK   },
    };
    host.files.files["d:/mine/default.lco"] = host.objects[1].second.str();
    for (auto &r : rows) {
        SCOPED_TRACE(r.dir ? r.dir : "no directory");
        if (!r.dir) host.add("default.lco", single());
        const default_record loc(r.dir);
        EXPECT_EQ(loc.result, r.result);
        EXPECT_STREQ(loc->codeset[5], r.codeset);
        EXPECT_STREQ(loc->locname[5], "");
        EXPECT_EQ(loc.error(), r.error);
    }
}

TEST(DefaultLocale, BrokenOrWithoutMemorySaysSo) {
    object_host host;
    const std::string object = single().str();
    std::string &file = host.files.files[std::string(object_path) + "default.lco"];
    file = object.substr(0, object.find("### LC_MESSAGES"));
    {
        const default_record cut;
        EXPECT_EQ(cut.result, -1);
        EXPECT_EQ(cut.error(), KO_EOBJECT);
        EXPECT_EQ(text(ko_nl_langinfo(cut, KO_DAY_1)), "day0"); // partly filled
    }
    file = object;
    EXPECT_GT(
        each_allocation_fails([] {
            const default_record loc;
            const int error = loc.error();
            EXPECT_TRUE(!loc.result || error == KO_ENOMEM || error == KO_EFILE || error == KO_E2BIG)
                << error;
            return !loc.result;
        }),
        100);
}

TEST(SharedLocale, IsLoadedOnceAndFreedWithTheLastUnload) {
    const memory_hooks memory;
    object_host host;
    ko_lc_t first = nullptr;
    ASSERT_EQ(ko_lc_load(&first, "one.lco", nullptr, nullptr), 0);
    const size_t opens = host.files.tried.size();
    {
        const shared_record second("one.lco");
        EXPECT_EQ(first, second.handle);
        EXPECT_EQ(host.files.tried.size(), opens);
        ko_lc_unload(first);
        EXPECT_EQ(text(ko_nl_langinfo(second, KO_DAY_1)), "day0");
    }
    // Released without its category data, which copies may share, but with its decoded eras: when
    // the copy is made the owner of what it shares, nothing is left.
    ASSERT_EQ(ko_lc_load(&first, "one.lco", nullptr, nullptr), 0);
    own_record heir;
    ASSERT_EQ(ko_copy_cat(heir, first, KO_LC_TIME), 0);
    const int eras = record(first)->ltime_info.era_count;
    EXPECT_EQ(eras, 2);
    for (int c = KO_LC_CTYPE; c <= KO_LC_MESSAGES; c++) {
        if (c != KO_LC_TIME) ko_free_category(first, c);
    }
    ko_free_nonshared_loc(first);
    EXPECT_EQ(text(ko_nl_langinfo(heir, KO_DAY_1)), "day0");
    heir->ltime_info.era_count = eras;
    heir->copied = 0;
}

// A specification stands for what the registry says now, whatever is held. Places are the first and
// the second of a search, on KO_PATH or below the root; contents "-": no file.
TEST(SharedLocale, FollowsTheRegistryThatIsInForce) {
    static const struct {
        const char *first, *second;
        int changed; // place
        const char *contents;
        const char *before, *after;
    } rows[] = {
        {"foo 16", "-",      0, "foo 32", "en_us\\0010.lco", "en_us\\0020.lco"},
        {"foo 16", "-",      0, "-",      "en_us\\0010.lco", "en_US.foo"      },
        {"foo 16", "foo 32", 0, "-",      "en_us\\0010.lco", "en_us\\0020.lco"},
        {"foo 16", "foo 32", 1, "-",      "en_us\\0010.lco", "en_us\\0010.lco"},
        {"-",      "foo 16", 0, "foo 32", "en_us\\0010.lco", "en_us\\0020.lco"},
        {"-",      "-",      1, "foo 32", "en_US.foo",       "en_us\\0020.lco"},
    };
    struct trial {
        bool path, hooked;
        decltype(rows[0]) row;
        std::string in; // below the directory
    };
    temp_dir dir;
    std::vector<trial> trials;
    for (const bool path : {true, false})
        for (const bool hooked : {true, false})
            for (const auto &r : rows)
                trials.push_back({path, hooked, r, std::to_string(trials.size())});
    const auto put = [&](const trial &t, int place, const std::string &contents) {
        static const char *const places[] = {"/kova/cm3", "/kova/cm", "/1", "/2"};
        const std::string file = t.in + places[2 * t.path + place] + "/registry";
        if (contents == "-")
            std::filesystem::remove(dir.path + "/" + file);
        else
            dir.write(file, contents + "\n");
    };
    for (const trial &t : trials) {
        put(t, 0, t.row.first);
        put(t, 1, t.row.second);
        for (const char *name : {"en_us/0010.lco", "en_us/0020.lco", "en_US.foo"})
            dir.write((t.path ? "objects/" : t.in + "/kova/lc11/") + name, single().str());
    }
    sleep(4); // files that were changed just now are read in any case
    const std::string named = dir.write("named", "foo 32\n");
    memory_hooks memory;
    std::vector<ko_lc_t> held;
    const auto load = [&](const char *registry, const char *want) {
        char name[311];
        test_handle handle;
        held.push_back(nullptr);
        EXPECT_EQ(ko_lc_load(&held.back(), "en_US.foo", registry, nullptr), 0);
        EXPECT_STREQ(record(held.back())->locname[0], want);
        const int unknown = ko_lc_spec2lc_fname(handle, "en_US.foo", name, registry, nullptr);
        EXPECT_STREQ(unknown ? "en_US.foo" : name, want);
    };
    std::vector<std::string> settings; // the environment keeps them
    settings.reserve(100);
    const auto set = [&](const std::string &setting) {
        settings.push_back(setting);
        ko_ext_putenv(settings.back().data());
    };
    for (const bool hooked : {true, false}) {
        real_variable vantordir("VANTORDIR", nullptr), ko_path("KO_PATH", nullptr);
        std::optional<env_hooks> env;
        if (hooked) env.emplace();
        for (const trial &t : trials) {
            if (t.hooked != hooked) continue;
            SCOPED_TRACE(t.in);
            const std::string in = dir.path + "/" + t.in, list = in + "/1;" + in + "/2;";
            set("KO_PATH=" + (t.path ? list + dir.path + "/objects" : ""));
            set("VANTORDIR=" + in);
            load(nullptr, t.row.before);
            load(named.c_str(), "en_us\\0020.lco");
            load(nullptr, t.row.before);
            put(t, t.row.changed, t.row.contents);
            for (int again = 0; again < 2; ++again)
                load(nullptr, t.row.after);
        }
    }
    // The search leads to another registry after the first was marked, before it is read.
    static std::string lists[2];
    static int asked;
    lists[0] = dir.path + "/9/1;" + dir.path + "/objects"; // foo 16, unchanged
    lists[1] = dir.path + "/8/2;" + dir.path + "/objects"; // foo 32
    asked = 0;
    {
        const installed_hooks hook{
            {KO_EXT_GETENV, as_hook(+[](const char *name) {
                 return strcmp(name, "KO_PATH") ? nullptr : lists[asked++ > 0].data();
             })}
        };
        load(nullptr, "en_us\\0020.lco");
        lists[1] = lists[0];
        load(nullptr, "en_us\\0010.lco");
    }
    test_handle handle;
    real_variable ko_path("KO_PATH", (dir.path + "/objects").c_str());
    for (const auto &[contents, want] :
         {std::pair("foo 16\n", "en_us\\0010.lco"), std::pair("foo 32\n", "en_us\\0020.lco")}) {
        ko_cache_registry(handle, dir.write("cached", contents).c_str());
        for (int again = 0; again < 2; ++again)
            load(nullptr, want);
    }
    EXPECT_EQ(held.back(), held[1]);
    for (const ko_lc_t loc : held)
        ko_lc_unload(loc);
}

static void load_time(const std::string &name, const char *dir) {
    own_record loc;
    ko_destroystring(set_categories(record(loc), KO_LC_TIME, name.c_str(), dir));
}
static void load_shared(const std::string &name, const char *dir) {
    EXPECT_EQ(shared_record(name.c_str(), dir).result, -1);
}
static void load_charmap(const std::string &name, const char *dir) {
    ko_cm_t cm = nullptr;
    EXPECT_EQ(ko_cm_load(&cm, name.c_str(), nullptr, dir), -1);
    ko_cm_unload(cm);
}
template <auto open, class... Args> static void open_conversion(Args... args) {
    ko_cv_t cv = nullptr;
    EXPECT_EQ(open(&cv, args...), -1);
    ko_cv_unload(cv);
}
static void load_variable(std::string setting) {
    ko_ext_putenv(setting.data());
    load_time("", "d");
}

// The ways of a name into the library.
using named = const std::string &;
static void (*const ways[])(named) = {
    [](named n) { load_shared(n, nullptr); },
    [](named n) { load_shared(n, "d"); },
    [](named n) { load_time("KO_TIME = " + n, nullptr); },
    [](named n) { load_time(n, "d"); },
    [](named n) { load_variable("KO_ALL=" + n); },
    [](named n) { load_variable("KO_TIME=" + n); },
    [](named n) { load_variable("KO_LANG=" + n); },
    [](named n) { ko_path_search(nullptr, n.c_str(), "", ""); },
    [](named n) { load_charmap(n, nullptr); },
    [](named n) { load_charmap(n, "d"); },
    [](named n) { open_conversion<ko_iconv_open1>(n.c_str()); },
    [](named n) { open_conversion<ko_iconv_open>(n.c_str(), "x"); }, // from here on in other names
    [](named n) { open_conversion<ko_cv_open>("en_US.x", ("y." + n).c_str()); },
    [](named n) { open_conversion<ko_cv_fnopen>(("y." + n).c_str(), "en_US.x", nullptr); },
    [](named n) { ko_open_file(nullptr, n.c_str()); },
};

TEST(SecureNames, LeadNowhereElse) {
    static const std::string hostile[] = {"../../..",
                                          "..",
                                          "a..b",
                                          "/etc/shadow",
                                          "\\etc\\shadow",
                                          "c:/x",
                                          "c:x",
                                          "a/b",
                                          "a\\b",
                                          "a\x1b",
                                          "a\nb",
                                          "\x7f",
                                          "\xFFx",
                                          "x\xFFy",
                                          "en_us\\0333/../x.lco",
                                          "en_us\\0333.lco/x",
                                          "en_us\\0333abcde.lco",
                                          "en_us\\0333..lco",
                                          "x\\en_us\\0333.lco"};
    object_host host;
    auto &tried = host.files.tried;
    const auto tries = [&](const auto &way, const std::string &n) {
        tried.clear();
        way(n);
        host.env.vars.clear();
        return tried.size();
    };
    for (const bool raised : {false, true}) {
        for (const auto &way : ways) {
            SCOPED_TRACE(&way - ways);
            const bool open_file = &way == std::end(ways) - 1, formed = &way < ways + 11;
            for (const std::string &n : hostile)
                EXPECT_GT(tries(way, n), 0u) << n;
            raised ? assume_raised_rights(1) : static_cast<void>(ko_secure_names(1));
            for (const std::string &n : hostile)
                EXPECT_EQ(tries(way, n), 0u) << n;
            EXPECT_EQ(tries(way, "\xE9.a") > 0, !open_file);
            EXPECT_EQ(tries(way, "en_us\\0333euro.lco") > 0, formed);
            assume_raised_rights(-1);
            EXPECT_EQ(ko_secure_names(0), !raised);
        }
    }
    // What the library composes stays open, and what is held is as closed as the file.
    auto &files = host.files.files;
    files["d\\033304e4.cvo"] = files["c:\\etc\\x"] = files["d\\en_us\\0333.lco"] = single().str();
    const shared_record held("c:\\etc\\x");
    ASSERT_EQ(held.result, 0);
    ko_secure_names(1);
    load_shared("c:\\etc\\x", nullptr);
    EXPECT_EQ(shared_record("en_us\\0333.lco", "d").result, 0);
    tried.clear();
    ko_cache_registry(held, "nowhere"); // the built-in one
    open_conversion<ko_cv_load>("1252", "819", nullptr, "d");
    EXPECT_EQ(tried, std::vector<std::string>{"d\\033304e4.cvo"});
    ko_secure_names(0);
}

TEST(SharedLocale, IsRefusedForMixedCodeSets) {
    object_host host;
    std::string setting;
    for (const char *category : {"CTYPE", "COLLATE", "NUMERIC", "MONETARY", "TIME", "MESSAGES"})
        setting +=
            std::string("KO_") + category + (category[2] == 'L' ? " = two" : " = one") + ".lco ; ";
    const shared_record mixed(setting.c_str()), none(nullptr);
    EXPECT_EQ(mixed.result, -1);
    EXPECT_EQ(mixed.error(), KO_ECODESET);
    EXPECT_STREQ(record(mixed)->codeset[1], "TEST-2");
    EXPECT_EQ(none.result, -1);
    EXPECT_EQ(none.error(), KO_ENULL);
}

TEST(SharedLocale, IsListedInTheLog) {
    temp_dir dir;
    exit_utilities(); // the switches are read anew
    char address[32];
    {
        object_host host;
        host.env.vars["KOVALOG"] = "on";
        host.env.vars["HOME"] = dir.path;
        {
            const shared_record loc("one.lco"), again("one.lco");
            snprintf(address, sizeof address, "%p", loc.handle);
            ko_display_lc_node_list();
        }
        ko_display_lc_node_list();
    }
    exit_utilities();
    std::string log = dir.read("kova.log"), opened;
    for (int i = 0; i < 6; i++)
        opened += "Opened: " + std::string(object_path) + "one.lco\n";
    for (const std::string &part :
         {opened,
          "*** The lc node list\n    0\n        name: one.lco\n        loc:  " +
              std::string(address) + "\n        count:  2\n",
          "freeing locale " + std::string(address) + "\n\n*** No lc nodes saved\n"})
        EXPECT_NE(log.find(part), std::string::npos) << part << log;
}

TEST(CopyCategory, RefusesWhatIsAbsentOrThere) {
    object_host host;
    own_record full, empty, numeric;
    full.set(KO_LC_ALL, "one.lco");
    numeric.set(KO_LC_NUMERIC, "one.lco");
    EXPECT_EQ(ko_copy_cat(empty, numeric, KO_LC_TIME), -1);
    EXPECT_EQ(empty.error(), KO_ENOCAT);
    *ko_ext_errno(numeric) = 0;
    EXPECT_EQ(ko_copy_cat(numeric, full, KO_LC_ALL), -1);
    EXPECT_EQ(numeric.error(), KO_EHASCAT);
    EXPECT_STREQ(numeric->codeset[0], "");
    EXPECT_EQ(ko_copy_cat(empty, numeric, KO_LC_ALL), -1);
    EXPECT_EQ(empty.error(), KO_ENOCAT);
    EXPECT_EQ(ko_copy_cat(empty, full, 0), -1);
    EXPECT_EQ(empty.error(), KO_ERANGE);
}

TEST(CopyCategory, SharesTheSourcesData) {
    const memory_hooks memory;
    object_host host;
    own_record source;
    source.set(KO_LC_ALL, "one.lco");
    const uint64_t want = digest(source);
    for (const int category : {int(KO_LC_ALL), int(KO_LC_NUMERIC)}) {
        ko_lc_t copy = nullptr;
        ko_create_null_locale_2(&copy);
        EXPECT_EQ(ko_copy_cat(copy, source, category), 0);
        EXPECT_EQ(ko_nl_langinfo(copy, KO_RADIXCHAR), ko_nl_langinfo(source, KO_RADIXCHAR));
        EXPECT_STREQ(ko_localeconv(copy)->decimal_point, ",");
        if (category == KO_LC_ALL) {
            EXPECT_EQ(*ko_ext_errno(copy), 0);
            EXPECT_EQ(record(copy)->exp.case_conv_ratio, 2.0);
            EXPECT_EQ(record(copy)->exp.mbscoll(copy, mb("a"), mb("b")), -1);
            EXPECT_EQ(wide(ko_wc_nl_langinfo(copy, KO_CODESET)), u"TEST-1");
            EXPECT_EQ(record(copy)->exp.sb_toupper_table[+'a'], 'A');
        }
        ko_free_nonshared_loc(copy);
    }
    // A category loaded over a copied one leaves the source whole, and so does ko_lc_unload.
    {
        own_record copy;
        EXPECT_EQ(ko_copy_cat(copy, source, KO_LC_ALL), 0);
        copy.set(KO_LC_TIME, "one.lco");
        copy.set(KO_LC_CTYPE, "one.lco");
    }
    EXPECT_EQ(digest(source), want);
}

// One load with the n-th call of a hook failing: calls and fail_at of either kind of hooks. A
// record that is not whole says so, is not shared, and its copies say so, too. False when the call
// was not reached.
static bool load_with_fault(const char *name, uint64_t want, long n, const long &calls,
                            long &fail_at, int reason, long *damaged) {
    fail_at = n;
    const shared_record loc(name);
    const int status = ko_lc_status(loc);
    const bool reached = calls > n;
    fail_at = -1;
    EXPECT_TRUE(status == 0 || status == reason || (loc.result && status == KO_EFILE)) << n;
    const shared_record later(name);
    EXPECT_EQ(later.result, 0);
    EXPECT_EQ(ko_lc_status(later), 0);
    EXPECT_EQ(digest(later), want) << "a later load, after call " << n;
    if (loc.result) return reached;
    EXPECT_EQ(later.handle == loc.handle, status == 0);
    own_record copy;
    EXPECT_EQ(ko_copy_cat(copy, loc, KO_LC_TIME), 0);
    EXPECT_EQ(ko_lc_status(copy), status);
    EXPECT_TRUE(status || digest(loc) == want) << n;
    *damaged += status != 0;
    return reached;
}

// Objects of our own with every call failing; compiled ones, calendars among them, with some.
TEST(Loading, TellsADamagedRecordFromAWholeOne) {
    const struct {
        const char *name;
        long memory_step, stream_step; // small numbers: every call
    } rows[] = {
        {"one.lco",             1,  13    },
        {"two.lco",             1,  97    },
        {"wide.lco",            1,  97    },
        {"fr_fr\\0333.lco",     7,  2003  },
        {"he_il\\0394hebr.lco", 7,  2003  },
        {"ar_sa\\0441islm.lco", 7,  2003  },
        {"ja_jp\\13ba.lco",     61, 99991 },
        {"th_th\\e005.lco",     61, 199999},
    };
    long by_memory = 0, by_stream = 0; // damaged records
    object_host host;
    for (auto &r : rows) {
        SCOPED_TRACE(r.name);
        std::string path = env("KOVA_TEST_ROOT") + "/kova/lc11/" + r.name;
        std::replace(path.begin(), path.end(), '\\', '/');
        if (const std::string object = slurp(path); !object.empty())
            host.files.files[std::string(object_path) + r.name] = object;
        else if (r.memory_step > 1)
            continue;
        uint64_t want;
        {
            const shared_record whole(r.name);
            ASSERT_EQ(whole.result, 0);
            want = digest(whole);
        }
        for (long n = 0, more = 1; more && !HasFailure(); n += r.memory_step) {
            memory_hooks memory;
            more = load_with_fault(r.name, want, n, memory.calls, memory.fail_at, KO_ENOMEM,
                                   &by_memory);
        }
        for (long n = 0, more = 1; more && !HasFailure(); n += r.stream_step) {
            memory_hooks memory;
            host.files.calls = 0;
            more = load_with_fault(r.name, want, n, host.files.calls, host.files.fail_at, KO_EIO,
                                   &by_stream);
            EXPECT_EQ(memory.live + host.files.streams, 0) << n;
        }
    }
    EXPECT_TRUE(by_memory > 100 && by_stream > 0) << by_memory << " " << by_stream;
}

TEST(Loading, TellsAMissingFileFromOneThatCannotBeRead) {
    own_record loc;
    EXPECT_EQ(loc.set(KO_LC_TIME, "nowhere.lco"), "(null)");
    EXPECT_EQ(ko_lc_status(loc), 0) << "as whole as before";
    const struct {
        const char *name, *dir;
        int status;
    } rows[] = {
        {"nowhere.lco", nullptr,      KO_EFILE},
        {"nowhere.lco", "/proc/self", KO_EFILE},
#ifdef __linux__
        {"mem",         "/proc/self", KO_EIO  }, // a regular file whose first page is none
#endif
    };
    for (auto &r : rows) {
        const shared_record failed(r.name, r.dir);
        EXPECT_EQ(failed.result, -1);
        EXPECT_EQ(ko_lc_status(failed), r.status) << r.name;
    }
#ifdef __linux__
    temp_dir dir;
    std::filesystem::create_symlink("/proc/self/mem", dir.path + "/default.lco");
    const default_record failed((dir.path + "/").c_str());
    EXPECT_EQ(failed.result, -1);
    EXPECT_EQ(ko_lc_status(failed), KO_EIO);
#endif
}

static void load_from(const own_record &loc, const std::string &name, const std::string &dir) {
    char *setting = set_categories(record(loc), KO_LC_ALL, name.c_str(), dir.c_str());
    EXPECT_NE(setting, nullptr);
    ko_destroystring(setting);
    EXPECT_EQ(loc.error(), 0);
}

// Small objects and every object of the compiled data root, from disk and through hooks.
TEST(Loading, FromDiskAndThroughHooksIsTheSame) {
    temp_dir small;
    std::vector<std::filesystem::path> objects;
    for (int i = 0; i < 3; ++i)
        objects.push_back(small.write(small_objects()[i].first, small_objects()[i].second.str()));
    const std::filesystem::path folder = env("KOVA_TEST_ROOT") + "/kova/lc11";
    if (exists(folder)) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(folder))
            if (entry.path().extension() == ".lco") objects.push_back(entry.path());
        EXPECT_GT(objects.size(), 23u);
    }
    for (const std::filesystem::path &path : objects) {
        SCOPED_TRACE(path.string());
        const memory_hooks memory;
        own_record disk, hooks;
        const std::string name = path.filename().string(), dir = path.parent_path().string();
        load_from(disk, name, dir);
        file_hooks files;
        files.files[dir + "\\" + name] = slurp(path);
        load_from(hooks, name, dir);
        EXPECT_EQ(digest(disk), digest(hooks));
    }
}
