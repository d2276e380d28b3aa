// Token readers, number conversion, lists, file search and the log.
#include "locale/kovautils.h"

#include "locale/kovaextsa.h"
#include "locale/kovalists.h"
#include "support/answer.h"
#include "support/rows.h"
#include "support/tables.h"

#include <math.h>
#include <string.h>

#include <clocale>
#include <fstream>
#include <functional>
#include <random>
#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

using namespace std::string_literals;

// Runs a check on the text in memory and through the stream hooks.
static void with_text(const std::string &contents, const std::function<void(text_in *)> &check) {
    {
        SCOPED_TRACE("memory");
        text_in in = memory_of(contents);
        check(&in);
    }
    SCOPED_TRACE("stream");
    file_hooks streams;
    streams.files["f"] = contents;
    text_in in = {.stream = ko_ext_fopen("f", "r")};
    check(&in);
    ko_ext_fclose(in.stream);
}

static std::string rest(text_in *in) {
    std::string result;
    for (int c; (c = in_getc(in)) >= 0;)
        result += char(c);
    return result;
}

// A text, the number and what is left. 40 characters count, further digits vanish.
TEST(TokenReaders, IntegersTakeOneCharacterThenDigits) {
    const std::string zeros(38, '0');
    for (const std::string &row :
         split(" \t\n\v\f\r42 7>42> 7|-17x>-17>x|+5>5>|x12,>0>,|--3>0>-3|   >0>|"
               "2147483648>2147483647>|-99999999999999999999999>-2147483648>|" +
               zeros + "12>12>|" + zeros + "01234>1>")) {
        SCOPED_TRACE(row);
        const auto fields = split(row, '>');
        with_text(fields[0], [&](text_in *in) {
            EXPECT_EQ(get_int(in), strtol(fields[1].c_str(), nullptr, 10));
            EXPECT_EQ(rest(in), fields[2]);
        });
    }
}

TEST(TokenReaders, OtherTokensAreTakenAsTheyCome) {
    with_text("0aF9zz2 00014e00g1 full_width  1.5e1x -0.25\nab\n\005", [](text_in *in) {
        for (const auto &[digits, want] : {
                 std::pair{4, 0x0AF9u      },
                 {2, 'z' * 17u    },
                 {0, 0u           },
                 {2, 2 * 16u + ' '}
        })
            EXPECT_EQ(get_hex(in, digits), want);
        EXPECT_EQ(read_ko_wchar(in), 0x4E00);
        EXPECT_EQ(get_hex_byte(in), 0x01u); // "g" counts as 0
        skip_whitespace(in);
        char word[8];
        for (const char *want : {"full", "_wid", "th", ""}) { // no leading white space is skipped
            EXPECT_EQ(get_str(in, word, 4), int(strlen(want)));
            EXPECT_STREQ(word, want);
        }
        EXPECT_EQ(get_dbl(in), 15);
        EXPECT_EQ(in_getc(in), 'x');
        EXPECT_EQ(get_dbl(in), -0.25);
        for (const char *want : {"1\n", "2ab", "1\n"})
            EXPECT_EQ(std::to_string(in_gets(in, word, 2)) + word, want);
        EXPECT_FALSE(in->ended);
        EXPECT_EQ(get_hex_byte(in), 0u); // a control character, then the end
        EXPECT_TRUE(in->ended);
        EXPECT_EQ(get_dbl(in), 0);
    });
}

TEST(CStrtod, ReadsDecimalNumbersOnly) {
    const char *end;
    // The number ends at the "|", where the standard function would go on in some texts.
    for (const std::string text :
         {"0|x10", "|inf", "|nan", "|.", "|-", "|", "1|,5", "1|e", "1|e+x", "-2.5e3|,", " +.5|",
          "7.|", "1e999999999999999999999|", "1e-999999999999999999999|",
          "4.9406564584124654e-324|", "2.2250738585072011e-308|", "9007199254740993|", "-0|",
          "9007199254740993.00000000000000000000000000000000001|"}) {
        SCOPED_TRACE(text);
        const size_t bar = text.find('|');
        const std::string whole = text.substr(0, bar) + text.substr(bar + 1);
        const double got = c_strtod(whole.c_str(), &end);
        const double want = strtod(text.substr(0, bar).c_str(), nullptr);
        EXPECT_TRUE(got == want && signbit(got) == signbit(want)) << got;
        EXPECT_EQ(end, text.substr(bar + 1));
    }
}

TEST(CStrtod, LongDigitStringsRoundLikeTheStandardLibrary) {
    std::mt19937 random(1);
    const char *end;
    for (int i = 0; i < 500; ++i) {
        std::string text;
        const auto len = 1 + random() % 1500, point = random() % (len + 1);
        for (unsigned k = 0; k < len; ++k) {
            if (k == point) text += '.';
            text += char('0' + random() % 10);
        }
        text += "e" + std::to_string(int(random() % 700) - 350 - int(point));
        EXPECT_EQ(c_strtod(text.c_str(), &end), strtod(text.c_str(), nullptr)) << text;
    }
    // One digit, far behind what is kept, decides a tie.
    const std::string zeros(2000, '0'), tie = "9007199254740993." + zeros;
    for (const std::string &long_one :
         {tie, tie + "1", "1" + zeros + "e-2000", "0." + zeros + "1e2001"})
        EXPECT_EQ(c_strtod(long_one.c_str(), &end), strtod(long_one.c_str(), nullptr)) << long_one;
}

#ifdef __GLIBC__
TEST(CStrtod, TheProcessLocaleHasNoSay) {
    temp_dir dir;
    const std::string make =
        "localedef -i de_DE -f UTF-8 " + dir.path + "/de_DE.UTF-8 >" + dir.path + "/out 2>&1";
    if (system(make.c_str()) != 0) GTEST_SKIP() << "localedef cannot make a locale here";
    real_variable variable("LOCPATH", dir.path.c_str());
    ASSERT_TRUE(setlocale(LC_NUMERIC, "de_DE.UTF-8"));
    const double standard = strtod("1,5", nullptr);
    const char *end;
    const double point = c_strtod("1.5", &end), comma = c_strtod("1,5", &end);
    setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(standard, 1.5) << "the locale was not in force";
    EXPECT_TRUE(point == 1.5 && comma == 1) << point << " " << comma;
}
#endif

TEST(Arithmetic, DigitsAndPowers) {
    const auto all = [](auto... numbers) { return std::vector<double>{double(numbers)...}; };
    EXPECT_EQ(all(digits(0, 10), digits(9, 10), digits(10, 10), digits(-12345, 10), udigits(5, 1),
                  digits(INT32_MAX, 2), udigits(0xFFFFFFFFu, 16)),
              all(1, 1, 2, 1, 1, 31, 8));
    EXPECT_EQ(all(ipow(-3, 3), ipow(7, 0), ipow(7, -2), ipow(2, 40)), all(-27, 1, 1, 0));
    EXPECT_EQ(all(fpow(10, 22), fpow(-2, 3), fpow(10, 0), fpow(10, -5), fpow(10, INT32_MAX)),
              all(1e22, -8, 1, 1, HUGE_VAL));
}

TEST(Blocks, TextIsCopiedUpToTheDelimiter) {
    memory_hooks memory;
    const char text[] = "one:two", *cursor = text;
    char *copy, *none;
    ASSERT_EQ(alloc_str_copy(&copy, &cursor, ':'), 0);
    EXPECT_STREQ(copy, "one");
    ko_destroystring(copy);
    EXPECT_EQ(alloc_str_copy(&none, &cursor, ':'), -1) << "the text ends first";
    EXPECT_TRUE(!none && cursor == std::string("two"));
    memory.fail_at = memory.calls;
    cursor = text;
    EXPECT_EQ(alloc_str_copy(&copy, &cursor, ':'), -1);
    EXPECT_EQ(cursor, text);
    EXPECT_EQ(alloc_ptr(0), nullptr);
    free_ptr(alloc_ptr(1));
    free_ptr(nullptr);
    ko_destroystring(nullptr);
}

TEST(Lists, CellsHoldCopiesInOrder) {
    const auto build = [] {
        link_list *const list = list_create();
        if (!list) return false;
        const auto expect = [list](const std::string &want) {
            std::string forward, backward;
            for (list_cell *cell = list->firstLink; cell; cell = cell->next)
                forward += static_cast<const char *>(cell->data);
            for (list_cell *cell = list->lastLink; cell; cell = cell->prev)
                backward.insert(0, static_cast<const char *>(cell->data));
            EXPECT_EQ(forward + backward, want + want);
        };
        char text[] = "b";
        list_cell *const b = list_insert(text, 2, nullptr, list);
        text[0] = 'd';
        list_cell *const d = b ? list_insert(text, 2, nullptr, list) : nullptr;
        list_cell *const c = d ? list_insert("c", 2, d, list) : nullptr;
        list_cell *const a = c ? list_insert("a", 2, b, list) : nullptr;
        if (a) {
            expect("abcd");
            EXPECT_EQ(list_delete(c, list), d);
            EXPECT_EQ(list_delete(a, list), b);
            EXPECT_EQ(list_delete(d, list), nullptr);
            expect("b");
            list_clear(list);
            expect("");
        }
        const bool whole = a && list_insert(nullptr, 0, nullptr, list);
        list_dispose(list);
        return whole;
    };
    EXPECT_GT(each_allocation_fails(build), 4);
    list_dispose(nullptr);
}

// ---- File search

static const std::string marked = std::string("d:\\x") + "\xFF" + "y\xFFz.lco";

TEST(FileSearch, TriesTheStatedPathsInOrder) {
    const std::string longest(1022, 'a');
    // tried: paths separated by a space
    const std::tuple<std::string, std::string, const char *, std::string> rows[] = {
        {"x.lco",           "-",               "d:\\r", "d:\\r\\kova\\lc11\\x.lco d:\\r\\kova\\lc\\x.lco"          },
        {"x.lco",           "",                "",      "c:\\vantor\\kova\\lc11\\x.lco c:\\vantor\\kova\\lc\\x.lco"},
        {"ll_tt\\0333.lco", "p1;;p2\\;",       "d:\\r", "p1\\ll_tt\\0333.lco p2\\\\ll_tt\\0333.lco"                },
        {"x",               ";;",              "d:\\r", ""                                                         },
        {"x",               longest + ";bc;d", "d:\\r", longest + "\\x b\\x"                                       }, // cut
        {"c:x.lco",         "p1",              "d:\\r", "p1\\c:x.lco"                                              },
        {marked,            "p1",              "d:\\r", "d:\\x\\y\\z.lco"                                          },
    };
    const auto check = [](const std::string &name, const std::string &path, const char *root,
                          const std::string &tried) {
        SCOPED_TRACE(name);
        env_hooks environment;
        if (path != "-") environment.vars["KO_PATH"] = path;
        environment.vars["VANTORDIR"] = root;
        memory_hooks memory;
        file_hooks streams;
        test_handle handle;
        EXPECT_EQ(answered(handle, ko_path_search(handle, name.c_str(), "lc", "11")),
                  answer(0, KO_EFILE));
        EXPECT_EQ(streams.tried, split(tried, ' '));
        EXPECT_EQ(ko_path_search(nullptr, name.c_str(), "lc", "11"), nullptr);
        if (tried.empty()) return;
        // The last place is found as well, and told.
        const std::string last = streams.tried.back();
        streams.files[last] = "";
        char *found;
        int error;
        void *const stream = path_search_why(name.c_str(), "lc", "11", &found, &error);
        ASSERT_TRUE(stream);
        EXPECT_EQ(found, last);
        ko_destroystring(found);
        ko_ext_fclose(stream);
    };
    for (const auto &[name, ko_path, root, tried] : rows)
        check(name, ko_path, root, tried);
    for (const char *whole : {"c:\\data\\x.lco", "C:/data/x.lco", "\\x.lco", "/x.lco"})
        check(whole, "p1", "d:\\r", whole);
}

TEST(FileSearch, MissingNamesHaveNoFile) {
    const file_hooks streams;
    test_handle h;
    EXPECT_EQ(answered(h, ko_path_search(h, nullptr, "lc", "11")), answer(0, KO_EFILE));
    for (const char *missing : {"missing", static_cast<const char *>(nullptr)})
        EXPECT_EQ(answered(h, ko_open_file(h, missing)), answer(0, KO_EFILE));
}

TEST(FileSearch, TheSecondFormNeverAsksTheHost) {
    temp_dir root;
    root.write("kova/cm/registry", "x 1\n");
    env_hooks environment;
    environment.vars["VANTORDIR"] = root.path;
    file_hooks streams;
    test_handle handle;
    void *const file = ko_path_search_no_ext(handle, "registry", "cm", "3");
    ASSERT_TRUE(file);
    EXPECT_EQ(getc(static_cast<FILE *>(file)), 'x');
    fclose(static_cast<FILE *>(file));
    EXPECT_EQ(ko_path_search_no_ext(handle, "other", "cm", "3"), nullptr);
    EXPECT_EQ(handle.error(), KO_EFILE);
    EXPECT_TRUE(streams.tried.empty());
}

#ifdef __linux__
// Another process that has a lease on the file gives it up when it is asked to: it ends.
TEST(FileSearch, AFileUnderALeaseIsWaitedFor) {
    temp_dir dir;
    const std::string name = dir.write("x", "found");
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = fork();
    if (!holder) {
        const int fd = open(name.c_str(), O_RDWR);
        const char held = fcntl(fd, F_SETLEASE, F_WRLCK) ? 'n' : 'y';
        if (write(ready[1], &held, 1) == 1 && held == 'y') pause();
        _exit(0);
    }
    char held = 0;
    EXPECT_EQ(read(ready[0], &held, 1), 1);
    FILE *const file = std_open_data(name.c_str());
    EXPECT_TRUE(file);
    if (file) fclose(file);
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    close(ready[0]), close(ready[1]);
    if (held != 'y') GTEST_SKIP() << "the file system gives no leases";
}
#endif

#ifndef _WIN32
TEST(FileSearch, OnlyRegularFilesAreFoundAndNoneIsWaitedFor) {
    temp_dir dir;
    dir.write("last/x", "found");
    real_variable path("KO_PATH", "");
    std::string list;
    for (const char *kind : {"directory", "fifo", "device"}) {
        const std::string folder = dir.path + "/" + kind, file = folder + "/x";
        std::filesystem::create_directory(folder);
        if (*kind == 'f')
            mkfifo(file.c_str(), 0600);
        else
            std::filesystem::create_directory_symlink(
                *kind == 'd' && kind[1] == 'i' ? folder : "/dev/zero", file);
        list += folder + ";";
        EXPECT_EQ(ko_path_search(nullptr, file.c_str(), "lc", "11"), nullptr) << kind;
    }
    real_variable whole("KO_PATH", (list + dir.path + "/last").c_str());
    for (auto *search : {ko_path_search, ko_path_search_no_ext}) {
        FILE *const file = static_cast<FILE *>(search(nullptr, "x", "lc", "11"));
        ASSERT_TRUE(file);
        EXPECT_EQ(getc(file), 'f');
        EXPECT_EQ(fcntl(fileno(file), F_GETFL) & O_NONBLOCK, 0);
        fclose(file);
    }
}
#endif

TEST(FileSearch, WithoutMemoryTheReasonIsStatedAndNothingIsLeft) {
    for (const char *path : {"", "p1;p2"})
        for (const std::string &name : {std::string("x"), std::string("/x"), marked}) {
            env_hooks environment;
            environment.vars["KO_PATH"] = path;
            const auto search_it = [&] {
                file_hooks streams;
                for (const char *there :
                     {"c:\\vantor\\kova\\lc\\x", "p2\\x", "/x", "d:\\x\\y\\z.lco"})
                    streams.files[there] = "";
                char *found;
                int error = KO_OK;
                void *const stream = path_search_why(name.c_str(), "lc", "11", &found, &error);
                EXPECT_EQ(error, stream ? KO_OK : KO_ENOMEM);
                EXPECT_EQ(stream != nullptr, found != nullptr);
                if (stream) ko_ext_fclose(stream);
                free_ptr(found);
                return stream != nullptr;
            };
            each_allocation_fails(search_it);
        }
}

// ---- The log

#ifdef _WIN32
static void set_profile(const temp_dir &, const char *key, const char *value) {
    WritePrivateProfileStringA("KOVA", key, value, "KOVA.INI");
}
#else
static void set_profile(const temp_dir &root, const char *key, const char *value) {
    root.write("KOVA.INI", value ? "[KOVA]\n" + std::string(key) + "=" + value + "\n" : "");
}
#endif

// The diagnostic services as at the start of a process, in an environment of their own.
struct fresh_log {
    temp_dir dir;
    env_hooks environment;
    fresh_log() {
        exit_utilities();
        environment.vars["HOME"] = dir.path;
        environment.vars["VANTORDIR"] = dir.path;
        std::filesystem::remove(name());
    }
    ~fresh_log() {
        set_profile(dir, "Logging", nullptr);
        std::filesystem::remove(name());
        exit_utilities();
    }
    std::string name() const {
#ifdef _WIN32
        return "c:\\kova.log";
#else
        return dir.path + "/kova.log";
#endif
    }
    std::string read() const {
        std::ifstream in(name()); // as text: lines end in two characters on Windows
        return {std::istreambuf_iterator<char>(in), {}};
    }
};

// Whether a log is written where the profile file says Logging=profile, or is as told, and KOVALOG
// is the variable; null pointers: there is none.
static bool logs(const char *profile, const char *variable, const char *whole_file = nullptr) {
    fresh_log log;
    if (profile) set_profile(log.dir, "Logging", profile);
    if (whole_file) log.dir.write("KOVA.INI", whole_file);
    if (variable) log.environment.vars["KOVALOG"] = variable;
    ko_message("text");
    return !log.read().empty();
}

TEST(Log, SwitchesAreOnExactlyForOn) {
    for (const char *on : {"on", "On", "one"})
        EXPECT_TRUE(logs(nullptr, on)) << on;
    for (const char *off : {"ON", "oN", "o", "off", static_cast<const char *>(nullptr)})
        EXPECT_FALSE(logs(nullptr, off)) << off;
    EXPECT_TRUE(logs("On", nullptr));
    EXPECT_TRUE(logs("", "on")) << "with nothing read from the profile the variable counts";
    EXPECT_FALSE(logs("ON", "on"));
    EXPECT_FALSE(logs("off", "on"));
}

TEST(Log, StartsWithAHeaderAndKeepsEveryMessage) {
    fresh_log log;
    log.environment.vars["KOVALOG"] = "on";
    ko_init_debug();
    ko_init_debug(); // once only
    std::string text = log.read();
    ASSERT_EQ(text.compare(0, 22, "----\nKOVA log started "), 0) << text;
    EXPECT_EQ(text.size(), 22 + 24 + 1 + 5u) << "a date of 24 characters with its newline";
    EXPECT_EQ(text.substr(text.size() - 6), "\n----\n");
    log.environment.vars["KOVALOG"] = "off"; // read once per process
    const std::string lengthy(5000, 'x'), directives = "100%s %d%n";
    ko_message("one");
    ko_message("two\n");
    ko_message(lengthy.c_str());
    ko_message(directives.c_str());
    ko_message(nullptr);
    ko_message("host's\tlines\n\x1b[2J\r");
    message_1("freeing %s now", "it\nOpened: \x1b[2J\t\x7f\xA0\x9b\xC2\x9b\u00DC\u20AC\xE9\xC3");
    message_1("without a place", "\u00A9\U0001F600\xF5\xF0\x9F");
    EXPECT_EQ(log.read(), text + "one\ntwo\n\n" + lengthy + "\n" + directives +
                              "\nhost's\tlines\n\\x1b[2J\\x0d\n"
                              "freeing it\\x0aOpened: \\x1b[2J\\x09\\x7f\xA0\\x9b\\xc2\\x9b"
                              "\u00DC\u20AC\xE9\xC3 now\n\u00A9\U0001F600\xF5\xF0\\x9f\n");
}

TEST(Log, TellsEveryTryOfASearch) {
    fresh_log log;
    file_hooks streams;
    streams.files["p2\\x"] = "";
    log.environment.vars["KOVALOG"] = "on";
    log.environment.vars["KO_PATH"] = "p1;p2";
    ko_init_debug();
    const size_t header = log.read().size();
    ko_ext_fclose(ko_path_search(nullptr, "x", "lc", "11"));
    ko_path_search(nullptr, "y", "lc", "11");
    ko_open_file(nullptr, marked.c_str());
    ko_path_search(nullptr, "/z", "lc", "11");
    std::string want = "Could not open: p1\\x\nOpened: p2\\x\n";
    for (const char *name :
         {"p1\\y", "p2\\y", "y", "d:\\x\\y\\z.lco", "d:\\x\\y\\z.lco", "/z", "/z"})
        want += "Could not open: "s + name + "\n";
    EXPECT_EQ(log.read().substr(header), want);
    EXPECT_EQ(streams.tried.size(), 6u) << "the log is never opened through the hooks";
}

#ifndef _WIN32

TEST(Log, PopUpsAreLinesOnStandardErrorAndAnUnwritableLogIsLeftAlone) {
    fresh_log log;
    log.environment.vars["KOVADEBUG"] = "on";
    testing::internal::CaptureStderr();
    ko_message("look here");
    message_1("Opened: %s", "x");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "KOVA: look here\nKOVA: Opened: x\n");
    EXPECT_EQ(log.read(), "") << "pop-ups alone write no log";
    exit_utilities();
    log.environment.vars["HOME"] = log.dir.path + "/missing";
    log.environment.vars.erase("KOVADEBUG");
    log.environment.vars["KOVALOG"] = "on";
    ko_message("lost");
    for (const std::string &home : {""s, std::string(5000, 'x')}) {
        exit_utilities();
        log.environment.vars["HOME"] = home;
        ko_message("lost");
    }
    EXPECT_FALSE(std::filesystem::exists(log.dir.path + "/missing"));
}

TEST(ProfileFile, FollowsTheRulesOfProfileFiles) {
    const std::string long_line(2000, 'x'), full(511, 'x'), cut(600, 'x'); // "K": the section
    for (const std::string &contents : {"K\nLogging=on\n+"s,
                                        "[kova]\r\n  LOGGING  =  On  \r\n+"s,
                                        "[ KOVA ]\nlogging=on+"s,
                                        "K\nLogging=\"on\"\n+"s,
                                        "[OTHER]\nLogging=on\nK\nPopups=off\nLogging=on\n+"s,
                                        "K\n" + long_line + "\nLogging=on\n+",
                                        "K\n" + full + "\nLogging=on\n+",
                                        "K\nLogging='on'\n+"s,
                                        "K\n\nLogging=on and on and on\n+"s,
                                        "K\nLogging='on\"\n"s,
                                        "K\nLogging=\"\n"s,
                                        "K\n" + cut + "Logging=on",
                                        "Logging=on\n"s,
                                        "[OTHER]\nLogging=on\n"s,
                                        "K\n;Logging=on\n"s,
                                        "K\nLogging=off\nLogging=on\n"s,
                                        "K\nLogging2=on\n"s,
                                        "[KOVA"s,
                                        "["s,
                                        "="s}) {
        SCOPED_TRACE(contents);
        std::string text = contents;
        if (const size_t k = text.find("K\n"); k != text.npos) text.replace(k, 1, "[KOVA]");
        const bool on = text.back() == '+';
        if (on) text.pop_back();
        EXPECT_EQ(logs(nullptr, nullptr, text.c_str()), on);
    }
}

TEST(ProfileFile, IsReadOnceForBothSettings) {
    for (const char *contents : {"[KOVA]\nPopups=on\nLogging=on\n",
                                 "[KOVA]\nLogging=on\nLogging=off\nPopups=on\nPopups=off"}) {
        fresh_log log;
        memory_hooks memory;
        log.dir.write("KOVA.INI", contents);
        testing::internal::CaptureStderr();
        ko_message("text");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "KOVA: text\n") << contents;
        EXPECT_NE(log.read(), "") << contents;
        EXPECT_EQ(memory.calls, 1) << "the path is made once";
    }
}

#endif
