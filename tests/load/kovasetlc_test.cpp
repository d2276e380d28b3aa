// The locale record, loading, and the list of shared locales.
#include "chars/kovambwc.h"
#include "kova_host.h"
#include "load/kovasetlc_load.h"
#include "locale/kovaextsa.h"
#include "locale/kovautils.h"
#include "support/locale_builder.h"
#include "support/rows.h"

#include <optional>

#include <unistd.h>

// Small objects by the names of their files, built once: the builder needs the stream hooks for
// itself.
static const std::map<std::string, locale_object> &small_objects() {
    static const std::map<std::string, locale_object> all = {
        {"one.lco",  single_byte_object()     },
        {"two.lco",  double_byte_object(false)},
        {"wide.lco", double_byte_object(true) },
    };
    return all;
}
static const locale_object &single() { return small_objects().at("one.lco"); }
static std::string without_messages() {
    const std::string whole = single().str();
    return whole.substr(0, whole.find("### LC_MESSAGES"));
}

// A host whose objects are in memory: the small ones, copies of one.lco and those that a test adds.
struct object_host {
    const std::map<std::string, locale_object> &objects = small_objects();
    env_hooks env;
    file_hooks files;
    object_host() {
        for (const auto &[name, object] : objects)
            add(name, object.str());
        for (const char *name : {"a.lco", "b.lco", "c.lco"})
            add(name);
    }
    void add(const std::string &name, const std::string &object = single().str()) {
        files.files[object_path + name] = object;
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

// Everything that a record answers, one after the other.
struct answers {
    std::string all;
    void add(const void *bytes, size_t len) {
        value(bytes != nullptr);
        if (bytes) all.append(static_cast<const char *>(bytes), len);
    }
    template <class T> void value(T v) { all.append(reinterpret_cast<const char *>(&v), sizeof v); }
    void string(const void *s) { add(s, s ? zeros_at(s) : 0); }
    void string(const ko_wchar_t *s) { add(s, s ? size_t(ko_wcsbytes(s)) : 0); }
};

static void add_conventions(answers *a, const koconv *c) {
    a->string(c->grouping), a->string(c->mon_grouping), a->add(&c->int_frac_digits, 8);
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

static size_t digest(ko_lc_t loc) {
    answers a;
    const auto *exp = static_cast<const loc_exports *>(loc);
    for (unsigned item = 0; item <= KO_LANGINFO_MAX; item++) {
        const ko_mchar_t *const s = ko_nl_langinfo(loc, item);
        if (item == KO_CALENDAR || item == KO_CODESET) // end with one null byte
            a.add(s, s ? text(s).size() : 0);
        else
            a.string(s);
        a.string(ko_wc_nl_langinfo(loc, item));
    }
    add_conventions(&a, ko_localeconv(loc));
    a.add(exp->sb_toupper_table, 256), a.add(exp->sb_tolower_table, 256);
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
    return std::hash<std::string>()(a.all);
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
    EXPECT_EQ(host.files.tried, std::vector(6, object_path + std::string("one.lco")));
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
    host.add("default.lco");
    for (const auto &[vars, want] : rows) {
        host.env.vars = vars;
        own_record loc;
        EXPECT_EQ(loc.set(KO_LC_TIME, ""), want);
        EXPECT_EQ(loc.error() == KO_ERANGE, *want == '(');
    }
}

TEST(SetLocale, ReadsItsOwnSettingBackAndWarnsOfMixedCodeSets) {
    object_host host;
    own_record first, second;
    first.set(KO_LC_ALL, "a.lco");
    first.set(KO_LC_TIME, "b.lco");
    first.set(KO_LC_CTYPE, "c.lco");
    const std::string setting = first.set(KO_LC_ALL, nullptr);
    EXPECT_EQ(second.set(KO_LC_ALL, setting.c_str()), setting);
    EXPECT_EQ(second.set(KO_LC_CTYPE, nullptr), "c.lco");
    EXPECT_EQ(second.set(KO_LC_MESSAGES, "two.lco"), "two.lco");
    EXPECT_EQ(second.set(KO_LC_TIME, setting.c_str()), "b.lco");
    EXPECT_EQ(second.error(), 0);
    EXPECT_EQ(second.set(KO_LC_TIME, "two.lco"), "two.lco");
    EXPECT_EQ(second.error(), KO_ECODESET);
}

TEST(SetLocale, KeepsAtMost31CharactersOfANameAndSearchesNative) {
    const std::string name = std::string(28, 'n') + ".lco"; // 32
    object_host host;
    host.add(name);
    host.add("default.lco");
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
    const auto fails = [](int category, int error, const char *name) {
        const memory_hooks memory;
        own_record loc;
        EXPECT_EQ(loc.set(category, name), "(null)");
        EXPECT_EQ(loc.error(), error) << category << (name ? name : "");
    };
    const auto fails_with = [&](int category, int error, std::string locale_object::*part,
                                const char *text) {
        SCOPED_TRACE(text);
        locale_object object = single();
        object.*part = text;
        host.add("broken.lco", object.str());
        fails(category, error, "broken.lco");
    };
    using parts = locale_object;
    fails_with(KO_LC_ALL, KO_EOBJECT, &parts::type, "FILE_TYPE=locale_object\r\n");
    fails_with(KO_LC_ALL, KO_EVERSION, &parts::version, "COMPILER_VERSION=12\n");
    fails_with(KO_LC_CTYPE, KO_EOBJECT, &parts::codeset, "TEST-1\nx");
    fails_with(KO_LC_TIME, KO_ECALENDAR, &parts::time, "julian\n");
    fails_with(KO_LC_COLLATE, KO_ECODESET, &parts::collate, "unspecified\n");
    fails_with(KO_LC_CTYPE, KO_ECHARLEN, &parts::ctype, "3 1 1 0000\n1 0\n0000000\n");
    host.add("cut.lco", without_messages());
    fails(KO_LC_ALL, KO_EOBJECT, "cut.lco");
    fails(KO_LC_ALL, KO_ECODESET, "missing.lco");
    fails(8, KO_ERANGE, "one.lco");
    fails(0, KO_ERANGE, nullptr);
    fails(KO_LC_ALL, KO_ERANGE, std::string(312, 'n').c_str());
}

TEST(SetLocale, KeepsWhatWasLoadedBeforeAFailure) {
    locale_object broken = single();
    broken.time = "julian\n";
    object_host host;
    host.add("broken.lco", broken.str());
    own_record loc;
    loc.set(KO_LC_ALL, "one.lco");
    EXPECT_EQ(loc.set(KO_LC_ALL, "broken.lco"), "(null)");
    EXPECT_EQ(loc.set(KO_LC_ALL, nullptr),
              "KO_CTYPE = broken.lco ; KO_COLLATE = broken.lco ; KO_NUMERIC = broken.lco ; "
              "KO_MONETARY = broken.lco ; KO_TIME =  ; KO_MESSAGES = one.lco ; ");
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
                   table_text(std::vector<table_entry>(1, {"a", 0})) + "0\n";
    object_host host;
    host.add("x.lco", object.str());
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
    host.files.files["d:/mine/default.lco"] = small_objects().at("two.lco").str();
    const auto check = [](const char *dir, const char *codeset, int error) {
        SCOPED_TRACE(dir ? dir : "no directory");
        const default_record loc(dir);
        EXPECT_EQ(loc.result, error ? -1 : 0);
        EXPECT_EQ(loc.error(), error);
        EXPECT_STREQ(loc->codeset[5], codeset);
        EXPECT_STREQ(loc->locname[5], "");
    };
    check("d:/mine/", "TEST-2", KO_OK);
    check("d:/nothing/", "", KO_EFILE);
    host.add("default.lco");
    for (const char *dir : {static_cast<const char *>(nullptr), "d:/nothing/", endless.c_str()})
        check(dir, "TEST-1", KO_OK);
}

TEST(DefaultLocale, BrokenOrWithoutMemorySaysSo) {
    object_host host;
    host.add("default.lco", without_messages());
    {
        const default_record cut;
        EXPECT_EQ(cut.result, -1);
        EXPECT_EQ(cut.error(), KO_EOBJECT);
        EXPECT_EQ(text(ko_nl_langinfo(cut, KO_DAY_1)), "day0"); // partly filled
    }
    host.add("default.lco");
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
    // Two places, what is loaded before, the place that changes, its contents then, and what is
    // loaded after.
    enum { first, second, before, changed, filled, after };
    const auto rows = table("foo~16 - en_us\\0010.lco 0 foo~32 en_us\\0020.lco; "
                            "foo~16 - en_us\\0010.lco 0 - en_US.foo; "
                            "foo~16 foo~32 en_us\\0010.lco 0 - en_us\\0020.lco; "
                            "foo~16 foo~32 en_us\\0010.lco 1 - en_us\\0010.lco; "
                            "- foo~16 en_us\\0010.lco 0 foo~32 en_us\\0020.lco; "
                            "- - en_US.foo 1 foo~32 en_us\\0020.lco");
    constexpr int trials = 24; // the rows with and without KO_PATH, through hooks and without
    temp_dir dir;
    const auto put = [&dir](int trial, int place, const std::string &contents) {
        static const char *const places[] = {"/kova/cm3", "/kova/cm", "/1", "/2"};
        const std::string in = std::to_string(trial) + places[trial / 12 * 2 + place];
        if (contents == "-")
            std::filesystem::remove(dir.path + "/" + in + "/registry");
        else
            dir.write(in + "/registry", contents + "\n");
    };
    for (int trial = 0; trial < trials; ++trial) {
        put(trial, 0, rows[size_t(trial) % 6][first]);
        put(trial, 1, rows[size_t(trial) % 6][second]);
        const std::string in = trial < 12 ? std::to_string(trial) + "/kova/lc11/" : "objects/";
        for (const char *name : {"en_us/0010.lco", "en_us/0020.lco", "en_US.foo"})
            dir.write(in + name, single().str());
    }
    sleep(4); // files that were changed just now are read in any case
    const std::string named = dir.write("named", "foo 32\n");
    memory_hooks memory;
    std::vector<ko_lc_t> held;
    const auto load = [&](const char *registry, const std::string &want) {
        char name[311];
        test_handle handle;
        held.push_back(nullptr);
        EXPECT_EQ(ko_lc_load(&held.back(), "en_US.foo", registry, nullptr), 0);
        EXPECT_EQ(record(held.back())->locname[0], want);
        const int unknown = ko_lc_spec2lc_fname(handle, "en_US.foo", name, registry, nullptr);
        EXPECT_EQ(unknown ? "en_US.foo" : name, want);
    };
    for (int trial = 0; trial < trials; ++trial) {
        SCOPED_TRACE(trial);
        const auto &row = rows[size_t(trial) % 6];
        const std::string in = dir.path + "/" + std::to_string(trial);
        const std::string list = in + "/1;" + in + "/2;" + dir.path + "/objects";
        const bool hooked = trial / 6 % 2;
        real_variable root("VANTORDIR", hooked ? nullptr : in.c_str());
        real_variable path("KO_PATH", hooked || trial < 12 ? nullptr : list.c_str());
        std::optional<env_hooks> env;
        if (hooked)
            env.emplace().vars = {
                {"VANTORDIR", in                    },
                {"KO_PATH",   trial < 12 ? "" : list}
            };
        load(nullptr, row[before]);
        load(named.c_str(), "en_us\\0020.lco");
        load(nullptr, row[before]);
        put(trial, whole(row[changed]), row[filled]);
        load(nullptr, row[after]);
        load(nullptr, row[after]);
    }
    // The search leads to another registry after the first was marked, before it is read.
    static std::string lists[2];
    static int asked;
    lists[0] = dir.path + "/15/1;" + dir.path + "/objects"; // foo 16, unchanged
    lists[1] = dir.path + "/14/2;" + dir.path + "/objects"; // foo 32
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

// The ways of a name into the library.
using named = const std::string &;
static void load_time(named name, const char *dir) {
    own_record loc;
    ko_destroystring(set_categories(record(loc), KO_LC_TIME, name.c_str(), dir));
}
static void load_variable(std::string setting) {
    ko_ext_putenv(setting.data());
    load_time("", "d");
}
static void load_shared(named name, const char *dir) {
    EXPECT_EQ(shared_record(name.c_str(), dir).result, -1);
}
template <auto load, auto unload, class... Args> static void refuses(Args... args) {
    void *handle = nullptr;
    EXPECT_EQ(load(&handle, args...), -1);
    unload(handle);
}
static void (*const ways[])(named) = {
    [](named n) { load_shared(n, nullptr); },
    [](named n) { load_shared(n, "d"); },
    [](named n) { load_time("KO_TIME = " + n, nullptr); },
    [](named n) { load_time(n, "d"); },
    [](named n) { load_variable("KO_ALL=" + n); },
    [](named n) { load_variable("KO_TIME=" + n); },
    [](named n) { load_variable("KO_LANG=" + n); },
    [](named n) { ko_path_search(nullptr, n.c_str(), "", ""); },
    [](named n) { refuses<ko_cm_load, ko_cm_unload>(n.c_str(), nullptr, nullptr); },
    [](named n) { refuses<ko_cm_load, ko_cm_unload>(n.c_str(), nullptr, "d"); },
    [](named n) { refuses<ko_iconv_open1, ko_cv_unload>(n.c_str()); },
    // From here on in other names.
    [](named n) { refuses<ko_iconv_open, ko_cv_unload>(n.c_str(), "x"); },
    [](named n) { refuses<ko_cv_open, ko_cv_unload>("en_US.x", ("y." + n).c_str()); },
    [](named n) { refuses<ko_cv_fnopen, ko_cv_unload>(("y." + n).c_str(), "en_US.x", nullptr); },
    [](named n) { ko_open_file(nullptr, n.c_str()); },
};

TEST(SecureNames, LeadNowhereElse) {
    std::vector<std::string> hostile;
    std::istringstream list(
        "../../..|..|a..b|/etc/shadow|\\etc\\shadow|c:/x|c:x|a/b|a\\b|a\x1b|a\nb|"
        "\x7f|\xFFx|x\xFFy|en_us\\0333/../x.lco|en_us\\0333.lco/x|"
        "en_us\\0333abcde.lco|en_us\\0333..lco|x\\en_us\\0333.lco");
    for (std::string name; std::getline(list, name, '|');)
        hostile.push_back(name);
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
            for (const char *n :
                 {"\xE9.a", "com", "com12", "co", "null", "xnul.con", "comx\xB9", "comx", "com-"})
                EXPECT_EQ(tries(way, n) > 0, !open_file) << n;
            EXPECT_EQ(tries(way, "en_us\\0333euro.lco") > 0, formed);
            for (const char *n : {"con", "NUL", "Aux.lco", "prn  .x", "com1", "LPT0.lco", "com\xB9",
                                  "lpt\xC2\xB2.x", "conin$", "CONOUT$"})
                EXPECT_TRUE(!formed || !tries(way, n)) << n; // devices; others are part of a name
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
    refuses<ko_cv_load, ko_cv_unload>("1252", "819", nullptr, "d");
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
    const std::string log = dir.read("kova.log"), loc = address;
    std::string opened;
    for (int i = 0; i < 6; i++)
        opened += "Opened: " + std::string(object_path) + "one.lco\n";
    for (const std::string &part :
         {opened,
          "*** The lc node list\n    0\n        name: one.lco\n        loc:  " + loc +
              "\n        count:  2\n",
          "freeing locale " + loc + "\n\n*** No lc nodes saved\n"})
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
    const size_t want = digest(source);
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
static bool load_with_fault(const char *name, size_t want, long n, const long &calls, long &fail_at,
                            int reason, long *damaged) {
    SCOPED_TRACE(n);
    fail_at = n;
    const shared_record loc(name);
    const int status = ko_lc_status(loc);
    const bool reached = calls > n;
    fail_at = -1;
    EXPECT_TRUE(status == 0 || status == reason || (loc.result && status == KO_EFILE));
    const shared_record later(name);
    EXPECT_EQ(later.result, 0);
    EXPECT_EQ(ko_lc_status(later), 0);
    EXPECT_EQ(digest(later), want);
    if (loc.result) return reached;
    EXPECT_EQ(later.handle == loc.handle, status == 0);
    own_record copy;
    EXPECT_EQ(ko_copy_cat(copy, loc, KO_LC_TIME), 0);
    EXPECT_EQ(ko_lc_status(copy), status);
    EXPECT_TRUE(status || digest(loc) == want);
    *damaged += status != 0;
    return reached;
}

// Objects of our own with every call failing; compiled ones, calendars among them, with some.
TEST(Loading, TellsADamagedRecordFromAWholeOne) {
    // Objects, and the steps of memory calls and of stream calls.
    const auto rows =
        table("one.lco 1 13; two.lco 1 97; wide.lco 1 97; equal.lco 1 97; fr_fr\\0333.lco 7 2003; "
              "he_il\\0394hebr.lco 7 2003; ar_sa\\0441islm.lco 7 2003; "
              "ja_jp\\13ba.lco 61 99991; th_th\\e005.lco 61 199999");
    long by_memory = 0, by_stream = 0; // damaged records
    object_host host;
    host.add("equal.lco", small_objects().at("two.lco").str());
    for (const auto &w : rows) {
        const char *const name = w[0].c_str();
        const long steps[] = {whole(w[2]), whole(w[1])};
        SCOPED_TRACE(name);
        std::string path = env("KOVA_TEST_ROOT") + "/kova/lc11/" + name;
        std::replace(path.begin(), path.end(), '\\', '/');
        if (const std::string object = slurp(path); !object.empty())
            host.add(name, object);
        else if (steps[1] > 1)
            continue;
        std::optional<shared_record> held; // whose tables are taken
        if (w[0] == "equal.lco") held.emplace("two.lco");
        size_t want;
        {
            const shared_record whole(name);
            ASSERT_EQ(whole.result, 0);
            want = digest(whole);
        }
        for (const bool of_memory : {true, false}) {
            for (long n = 0, more = 1; more && !HasFailure(); n += steps[of_memory]) {
                memory_hooks memory;
                host.files.calls = 0;
                more = of_memory ? load_with_fault(name, want, n, memory.calls, memory.fail_at,
                                                   KO_ENOMEM, &by_memory)
                                 : load_with_fault(name, want, n, host.files.calls,
                                                   host.files.fail_at, KO_EIO, &by_stream);
                EXPECT_EQ(memory.live + host.files.streams, 0) << n;
            }
        }
    }
    EXPECT_TRUE(by_memory > 100 && by_stream > 0) << by_memory << " " << by_stream;
}

// Of two objects that differ in one place: whether the records share classes, and whether orders.
TEST(Loading, HoldsEqualTablesOfTwoByteLocalesOnce) {
    static const struct {
        std::string locale_object::*section;
        const char *from, *to; // the last in the section
        bool classes, order;
    } rows[] = {
        {&locale_object::messages, "796573",              "796574",              true,  true },
        {&locale_object::ctype,    "40001008",            "40001007",            false, false},
        {&locale_object::ctype,    "3 mine",              "3 mint",              false, false},
        {&locale_object::ctype,    "3 mine",              "4 mine",              false, false},
        {&locale_object::ctype,    "00000061",            "00000062",            false, false},
        {&locale_object::collate,  "00800081",            "00800082",            true,  false},
        {&locale_object::collate,  "0089\n",              "008a\n",              true,  false},
        {&locale_object::collate,  " 140\n",              " 141\n",              true,  false},
        {&locale_object::collate,  " 140\n0001",          " 140\n0003",          true,  false},
        {&locale_object::collate,  "2000c 00000063",      "2000c 00000062",      true,  false},
        {&locale_object::collate,  "2000c",               "2000d",               true,  false},
        {&locale_object::collate,  "2 00000073",          "1 00000073",          true,  false},
        {&locale_object::collate,  "00000073 00000073\n", "00000073 00000074\n", true,  false},
    };
    const auto change = [](std::string *text, const char *from, const std::string &to) {
        const size_t at = text->rfind(from);
        ASSERT_NE(at, std::string::npos) << from;
        text->replace(at, strlen(from), to);
    };
    const memory_hooks memory;
    object_host host;
    locale_object base = small_objects().at("two.lco");
    base.ctype.replace(base.ctype.find("0000000\n0\n") + 8, 2, "1\n3 mine\n");
    base.ctype.replace(base.ctype.size() - 2, 2, "1 00000041 00000061\n");
    change(&base.collate, "1 0 0 140\n0001\n",
           "1 1 1 140\n0001\n2000c 00000063 00000068\n2 00000073 00000073\n");
    host.add("base.lco", base.str());
    for (const auto &r : rows) {
        SCOPED_TRACE(std::string(r.from) + " " + r.to);
        locale_object other = base;
        change(&(other.*r.section), r.from, r.to);
        host.add("other.lco", other.str());
        std::optional<own_record> held(std::in_place), alone(std::in_place);
        alone->set(KO_LC_ALL, "other.lco");
        const size_t want = digest(*alone);
        alone.reset();
        held->set(KO_LC_ALL, "base.lco");
        const size_t want_held = digest(*held);
        own_record loc;
        loc.set(KO_LC_ALL, "other.lco");
        EXPECT_TRUE(loc->chars && loc->weights);
        EXPECT_EQ(loc->chars == (*held)->chars, r.classes);
        EXPECT_EQ(loc->weights == (*held)->weights, r.order);
        {
            own_record third; // gives what it has taken back with new classes
            third.set(KO_LC_ALL, "base.lco");
            third.set(KO_LC_CTYPE, "one.lco");
        }
        EXPECT_EQ(digest(*held), want_held);
        EXPECT_EQ(digest(loc), want);
        held.reset();
        EXPECT_EQ(digest(loc), want) << "without the first owner";
    }
}

TEST(Loading, TellsAMissingFileFromOneThatCannotBeRead) {
    own_record loc;
    EXPECT_EQ(loc.set(KO_LC_TIME, "nowhere.lco"), "(null)");
    EXPECT_EQ(ko_lc_status(loc), 0) << "as whole as before";
    static const std::tuple<const char *, const char *, int> rows[] = {
        {"nowhere.lco", nullptr,      KO_EFILE},
        {"nowhere.lco", "/proc/self", KO_EFILE},
#ifdef __linux__
        {"mem",         "/proc/self", KO_EIO  }, // a regular file whose first page is none
#endif
    };
    for (const auto &[name, in, status] : rows) {
        const shared_record failed(name, in);
        EXPECT_EQ(failed.result, -1);
        EXPECT_EQ(ko_lc_status(failed), status) << name;
    }
#ifdef __linux__
    temp_dir dir;
    std::filesystem::create_symlink("/proc/self/mem", dir.path + "/default.lco");
    const default_record failed((dir.path + "/").c_str());
    EXPECT_EQ(failed.result, -1);
    EXPECT_EQ(ko_lc_status(failed), KO_EIO);
#endif
}

// Small objects and every object of the compiled data root, from disk and through hooks.
TEST(Loading, FromDiskAndThroughHooksIsTheSame) {
    temp_dir small;
    std::vector<std::filesystem::path> objects;
    for (const auto &[name, object] : small_objects())
        objects.push_back(small.write(name, object.str()));
    const std::filesystem::path folder = env("KOVA_TEST_ROOT") + "/kova/lc11";
    if (exists(folder)) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(folder))
            if (entry.path().extension() == ".lco") objects.push_back(entry.path());
        EXPECT_GT(objects.size(), 23u);
    }
    for (const std::filesystem::path &path : objects) {
        SCOPED_TRACE(path.string());
        const std::string name = path.filename().string(), dir = path.parent_path().string();
        const auto load = [&] {
            own_record loc;
            ko_destroystring(set_categories(record(loc), KO_LC_ALL, name.c_str(), dir.c_str()));
            EXPECT_EQ(loc.error(), 0);
            return digest(loc);
        };
        const memory_hooks memory;
        const size_t from_disk = load();
        file_hooks files;
        files.files[dir + "\\" + name] = slurp(path);
        EXPECT_EQ(load(), from_disk);
    }
}
