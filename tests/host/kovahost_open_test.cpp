// Records of one data root: what is read from where, what is shared, versions, hashes and lists.
#include "host/host_roots.h"
#include "load/kovasetlc_load.h"

using namespace std::string_literals;

static std::string version(ko_lc_t loc) {
    char text[80];
    const int len = ko_locale_version(loc, text, sizeof text);
    return len < 0 ? "error " + std::to_string(-len) : text;
}

TEST(OpenLocale, KeepsTwoRootsApart) {
    small_root one("one"), two;
    two.object.numeric = field(";") + field(".") + "0\n" + field("") + field("-");
    two.write("kova/lc11/de_de/0002.lco", sealed(two.object.str()));
    two.write("kova/cm3/registry", "test-1 2\n");
    two.write("kova/lc11/default.lco", sealed(double_byte_object(false).str()));
    const real_variable dir("VANTORDIR", two.path.c_str()), path("KO_PATH", "/nowhere");
    ko_cache_registry(nullptr, "/nowhere"); // the names that are built in lack this code set
    const opened a(one.path.c_str(), "de_DE.test-1"), b(two.path.c_str(), "de_DE.test-1");
    ASSERT_TRUE(!a.result && !b.result) << a.result << b.result;
    const auto radix = [](ko_lc_t loc) { return text(ko_nl_langinfo(loc, KO_RADIXCHAR)); };
    EXPECT_EQ(radix(a) + radix(b), ",;");
    EXPECT_EQ(version(a).substr(37) + version(b).substr(19), " one");
    const opened again(one.path.c_str(), "de_DE.TEST-1"),
        verified(one.path.c_str(), "de_DE.test-1", KO_OPEN_VERIFY);
    EXPECT_EQ(again.handle, a.handle);
    EXPECT_TRUE(verified.handle && verified.handle != a.handle);
    // Later loads into a record stay in its root, and other records of its name are not the same.
    const auto set = [](ko_lc_t loc, const char *name) {
        char *const setting = ko_setlocale_2(loc, KO_LC_CTYPE, name);
        const bool done = setting;
        ko_destroystring(setting);
        return done;
    };
    EXPECT_FALSE(set(a, "default.lco"));
    EXPECT_FALSE(set(b, (one.path + "/kova/lc11/de_de/0001.lco").c_str()));
    EXPECT_TRUE(set(b, "default.lco"));
    EXPECT_STREQ(record(b.handle)->codeset[0], "TEST-2");
    ko_lc_t other = nullptr;
    const std::string objects = one.path + "/kova/lc11/de_de";
    EXPECT_EQ(ko_lc_load(&other, "0001.lco", nullptr, objects.c_str()), 0);
    EXPECT_NE(other, a.handle);
    ko_lc_unload(other);
}

TEST(OpenLocale, SearchesWithoutARootAndFollowsTheEnvironment) {
    small_root one("one"), two("two");
    std::optional<real_variable> dir(std::in_place, "VANTORDIR", one.path.c_str());
    const real_variable all("KO_ALL", "de_de\\0001.lco"), path("KO_PATH", nullptr);
    const opened a(nullptr, "de_de\\0001.lco"), chosen(nullptr, "");
    dir.emplace("VANTORDIR", two.path.c_str());
    const opened b(nullptr, "de_de\\0001.lco");
    const auto name = [](ko_lc_t loc) { return version(loc).substr(version(loc).find(' ') + 1); };
    EXPECT_EQ(name(a) + name(b) + name(chosen), "onetwoone");
    // Later loads are held to what the record was opened for.
    const opened secure(nullptr, "de_de\\0001.lco", KO_OPEN_SECURE_NAMES);
    const std::string outside = one.path + "/kova/lc11/de_de/0001.lco";
    for (const auto &[loc, loads] : {std::pair(a.handle, true), std::pair(secure.handle, false)}) {
        char *const setting = ko_setlocale_2(loc, KO_LC_TIME, outside.c_str());
        EXPECT_EQ(setting != nullptr, loads);
        ko_destroystring(setting);
    }
}

TEST(OpenLocale, TellsTheReasonOfAFailure) {
    small_root root;
    const std::string whole = root.read("kova/lc11/de_de/0001.lco"), in = root.path;
    root.write("kova/lc11/de_de/0002.lco", double_byte_object(false).str());
    root.write("kova/lc11/de_de/0001cut.lco", whole.substr(0, whole.size() / 2));
    std::string old = whole;
    root.write("kova/lc11/old.lco", old.replace(old.find("=11"), 3, "=10"));
    root.write("x.lco", whole);
    const std::string compound =
        "KO_CTYPE = de_DE.test-1 ; KO_COLLATE = de_DE.test-1 ; KO_TIME = de_DE.test-1 ; "
        "KO_MONETARY = de_DE.test-1 ; KO_NUMERIC = de_DE.test-1 ; KO_MESSAGES = de_DE.test-1 ; ";
    const real_variable all("KO_ALL", nullptr), lang("KO_LANG", nullptr);
    const auto check = [](const std::string &from, const std::string &spec, unsigned flags,
                          int want) {
        SCOPED_TRACE(spec);
        EXPECT_EQ(opened(from.c_str(), spec.c_str(), flags).result, want);
    };
    for (const unsigned flags : {0u, unsigned{KO_OPEN_VERIFY}, unsigned{KO_OPEN_SECURE_NAMES}})
        check(in, "de_DE.test-1", flags, 0);
    for (const std::string &good : {"de_de\\0001.lco"s, compound, "de_DE.other"s})
        check(in, good, 0, 0);
    for (const std::string &none :
         {"fr_FR.test-1"s, "de_DE.unknown"s, "de_DE"s, ""s, in + "/x.lco", "../../x.lco"s,
          "..\\..\\x.lco"s, "KO_CTYPE = de_de\\0001.lco ; KO_COLLATE = de_de\\0002.lco ; "s})
        check(in, none, 0, KO_ENOLOCALE);
    check(in + "/nowhere", "de_DE.test-1", 0, KO_ENOLOCALE);
    check(in, "de_DE.test-1@cut", 0, KO_EOBJECT);
    check(in, "old.lco", 0, KO_EVERSION);
    check(in, "de_DE.other", KO_OPEN_VERIFY, KO_EOBJECT);
    check(in, std::string(400, 'x'), 0, KO_ERANGE);
    check(in, "de_DE.test-1", 4, KO_ERANGE);
    ko_lc_t loc = &loc;
    EXPECT_EQ(ko_open_locale(&loc, nullptr, nullptr, 0), KO_ENULL);
    EXPECT_EQ(loc, nullptr);
    EXPECT_EQ(ko_open_locale(nullptr, nullptr, "", 0), KO_ENULL);
    EXPECT_EQ(ko_lc_status(nullptr), KO_ENULL);
    const opened absolute(nullptr, (in + "/x.lco").c_str()),
        refused(nullptr, (in + "/x.lco").c_str(), KO_OPEN_SECURE_NAMES);
    EXPECT_EQ(absolute.result, 0);
    EXPECT_EQ(refused.result, KO_ENOLOCALE);
}

TEST(OpenLocale, VerifiedRefusesEveryChangeOfTheContent) {
    const std::string whole = sealed(single_byte_object().str());
    const size_t content = whole.find("TEST-1");
    for (size_t at = whole.find("CONTENT=") + 8; at < whole.size(); ++at) {
        if (at < content && whole[at] == '\n') at = content;
        std::string damaged = whole;
        damaged[at] ^= 1;
        ASSERT_EQ(ko_verify_object(damaged.data(), damaged.size(), nullptr), KO_EOBJECT) << at;
    }
    for (const char *line : {"FILE_TYPE=", "COMPILER_VERSION=", "HEADER_LINES=5"}) {
        std::string damaged = whole;
        damaged[whole.find(line)] = '0';
        if (*line == 'H') damaged[whole.find(line) + 13] = '9';
        EXPECT_EQ(ko_verify_object(damaged.data(), damaged.size(), nullptr), KO_EOBJECT) << line;
    }
    EXPECT_EQ(ko_verify_object(nullptr, 0, nullptr), KO_ENULL);
    EXPECT_EQ(ko_verify_object("", 0, nullptr), KO_EOBJECT);
    // A digit that loads all the same.
    std::string damaged = whole;
    damaged[whole.rfind("6e") + 1] = 'f';
    for (const auto &[object, flags, want] :
         {std::tuple(whole, unsigned{KO_OPEN_VERIFY}, 0), std::tuple(damaged, 0u, 0),
          std::tuple(damaged, unsigned{KO_OPEN_VERIFY}, int{KO_EOBJECT})}) {
        small_root root;
        root.write("kova/lc11/de_de/0001.lco", object);
        EXPECT_EQ(opened(root.path.c_str(), "de_DE.test-1", flags).result, want);
        file_hooks files;
        files.files["\\r\\kova\\lc11\\x.lco"] = object;
        EXPECT_EQ(opened("\\r", "x.lco", flags).result, want);
        for (const std::string &tried : files.tried)
            EXPECT_TRUE(tried.starts_with("\\r\\kova\\")) << tried;
    }
}

TEST(OpenLocale, SurvivesEveryFailureOfTheHost) {
    const small_root root;
    for (const unsigned flags : {0u, unsigned{KO_OPEN_VERIFY}}) {
        each_allocation_fails([&] {
            const opened loc(root.path.c_str(), "de_DE.test-1", flags);
            EXPECT_TRUE(!loc.result || loc.result == KO_ENOMEM) << loc.result;
            EXPECT_EQ(loc.result ? 0 : ko_locale_utf8(loc), 0);
            return !loc.result;
        });
        const std::string object = sealed(single_byte_object().str());
        each_stream_call_fails(
            [&](file_hooks &files) { files.files["\\r\\kova\\lc11\\x.lco"] = object; },
            [&] { return !opened("\\r", "x.lco", flags).result; });
    }
}

TEST(OpenLocale, LeavesAHostsErrorWordsAlone) {
    static int word;
    const small_root root;
    const installed_hooks hooks{std::pair(KO_EXT_ERRNO, as_hook(+[](void *) { return &word; }))};
    word = 77;
    EXPECT_EQ(opened(root.path.c_str(), "fr_FR.test-1").result, KO_ENOLOCALE);
    EXPECT_EQ(opened(root.path.c_str(), "de_DE.test-1").result, 0);
    EXPECT_EQ(word, 77);
}

TEST(LocaleVersion, IsCutToItsRoomAndGoesWithTheOrder) {
    const small_root root("2026.1");
    const opened loc(root.path.c_str(), "de_DE.test-1");
    const std::string whole = version(loc);
    EXPECT_EQ(whole.substr(16, 5) + whole.substr(37), "-k1-u 2026.1");
    EXPECT_NE(root.read("kova/lc11/de_de/0001.lco").find("CONTENT=" + whole.substr(0, 16)),
              std::string::npos);
    for (size_t room = 1; room < 60; ++room) {
        std::string dst(room + 1, '?');
        EXPECT_EQ(ko_locale_version(loc, dst.data(), room), int(whole.size()));
        EXPECT_EQ(dst.c_str(), whole.substr(0, room - 1));
        EXPECT_EQ(dst[room], '?');
    }
    EXPECT_EQ(ko_locale_version(loc, nullptr, 0), int(whole.size()));
    own_record copy;
    EXPECT_EQ(version(copy), "error 18");
    EXPECT_EQ(ko_copy_cat(copy, loc, KO_LC_COLLATE), 0);
    EXPECT_EQ(version(copy), whole.substr(0, 19) + " 2026.1"); // it does not take UTF-8
    ko_free_category(copy, KO_LC_COLLATE);
    EXPECT_EQ(version(copy), "error 18");
    root.write("kova/cv9/e01c0001.cvo", conversion(true)); // any other one
    const opened other(root.path.c_str(), "de_DE.test-1", KO_OPEN_VERIFY);
    EXPECT_NE(version(other).substr(19, 18), whole.substr(19, 18));
    EXPECT_EQ(version(other).substr(0, 19), whole.substr(0, 19));
    const loaded_locale unsealed(single_byte_object());
    EXPECT_EQ(version(unsealed), "error 11");
    EXPECT_EQ(version(nullptr), "error 2");
}

namespace {
struct listed {
    std::string text;
    size_t stop_after = SIZE_MAX, calls = 0;
    int list(const char *root) { return ko_list_locales(root, take, this); }
    static int take(void *user, const ko_locale_entry *entry) {
        auto *const self = static_cast<listed *>(user);
        self->text += entry->spec + " "s + entry->codeset + " @"s + entry->modifier +
                      (entry->error ? " !" + std::to_string(entry->error) : "") + "\n";
        return ++self->calls > self->stop_after ? 1000 : 0;
    }
};
} // namespace

TEST(ListLocales, NamesThemAsPeopleTypeThem) {
    small_root root;
    const std::string object = single_byte_object().str();
    for (const char *name : {"de_de/0001abcd.lco", "aa_er/0001Saah.lco", "aa_er/0003.lco"})
        root.write("kova/lc11/"s + name, object);
    root.write("kova/lc11/de_de/ffff.lco", "");
    for (const char *stray :
         {"default.lco", "de_de/readme", "de_de/00012.txt", "de_de/0001abcde.lco", "de_DE/0001.lco",
          "deutsch/0001.lco", "zz_zz", "de_de/000g.lco", "d{_de/0001.lco", "de_d_/0001.lco",
          "de_ded/0001.lco"})
        root.write("kova/lc11/"s + stray, object);
    const std::string want = "aa_ER.TEST-1@Saah TEST-1 @Saah\n"
                             "aa_er\\0003.lco TEST-1 @\n"
                             "de_DE.TEST-1 TEST-1 @\n"
                             "de_DE.TEST-1@abcd TEST-1 @abcd\n"
                             "de_de\\ffff.lco  @ !11\n";
    listed all, two{.stop_after = 1}, installed;
    EXPECT_EQ(all.list(root.path.c_str()), 0);
    EXPECT_EQ(all.text, want);
    EXPECT_EQ(two.list(root.path.c_str()), 1000);
    EXPECT_EQ(two.calls, 2u);
    const real_variable dir("VANTORDIR", root.path.c_str());
    EXPECT_EQ(installed.list(nullptr), 0);
    EXPECT_EQ(installed.text, want);
    EXPECT_EQ(ko_list_locales(nullptr, nullptr, nullptr), KO_ENULL);
    each_allocation_fails([&] {
        listed some;
        const int error = some.list(root.path.c_str());
        EXPECT_TRUE(error ? error == KO_ENOMEM : some.text == want) << error;
        return !error;
    });
}

TEST(ListLocales, TellsWhatItCannotRead) {
    const temp_dir root;
    const auto error = [&] { return listed().list(root.path.c_str()); };
    EXPECT_EQ(error(), KO_ENOLOCALE);
    std::filesystem::create_directories(root.path + "/kova/lc11");
    EXPECT_EQ(error(), 0);
    for (int i = 0; i < 200; ++i)
        root.write("kova/lc11/en_us/" + std::to_string(1000 + i) + ".lco", "");
    listed many;
    EXPECT_EQ(many.list(root.path.c_str()), 0);
    EXPECT_EQ(many.calls, 200u);
    // An object that ends with its header, and one that has gone since it was listed.
    const std::string object = single_byte_object().str();
    root.write("kova/lc11/aa_aa/0001.lco", object.substr(0, object.find("\n### LC_CTYPE")));
    std::filesystem::create_symlink("nowhere", root.path + "/kova/lc11/aa_aa/0002.lco");
    listed first{.stop_after = 1};
    EXPECT_EQ(first.list(root.path.c_str()), 1000);
    EXPECT_EQ(first.text, "aa_aa\\0001.lco  @ !11\naa_aa\\0002.lco  @ !13\n");
    std::filesystem::create_symlink("de_de", root.path + "/kova/lc11/de_de"); // leads to itself
    EXPECT_EQ(error(), KO_EIO);
    const file_hooks files;
    EXPECT_EQ(error(), KO_EFILE);
}

TEST(ErrorText, IsThereForEveryNumber) {
    const std::string unknown = ko_error_text(1000);
    std::set<std::string> texts;
    for (int number = -1; number < 100; ++number)
        texts.insert(ko_error_text(number));
    EXPECT_EQ(texts.size(), 50u + 1); // the numbers of both headers, and the unknown ones
    EXPECT_EQ(ko_error_text(10), unknown);
    EXPECT_STREQ(ko_error_text(KO_ENOLOCALE), "there is no such locale or data root");
}
