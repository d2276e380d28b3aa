// The hook table: what is called where, and what serves where nothing is installed.
#include "locale/kovaextsa.h"

#include "kova_host.h"
#include "locale/kovautils.h"
#include "support/answer.h"
#include "support/fixture.h"
#include "support/rows.h"

#include <string.h>
#include <time.h>

#ifndef _WIN32
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

TEST(Hooks, CodesOutsideTheTableAreRefused) {
    test_handle handle;
    for (const int code : {-1, 0, 17, 18}) {
        const bool known = code >= 0 && code < KO_EXT_COUNT;
        EXPECT_EQ(answered(handle, ko_setextfunc(handle, code, nullptr)),
                  known ? answer(0, KO_OK) : answer(-1, KO_ERANGE));
        EXPECT_EQ(ko_setextfunc(nullptr, code, nullptr), known ? 0 : -1) << code;
    }
}

// Every hook records its code and its arguments, and answers with the code.
static std::vector<long long> calls;
static char pointers[2 * KO_EXT_COUNT]; // a pointer is the byte of its number

template <class T> static T as_value(int number) {
    if constexpr (!std::is_pointer_v<T>)
        return static_cast<T>(number);
    else
        return static_cast<T>(static_cast<void *>(pointers + number));
}
template <class T> static long long number_of(T value) {
    if constexpr (!std::is_pointer_v<T>)
        return static_cast<long long>(value);
    else
        return static_cast<const char *>(static_cast<const void *>(value)) - pointers;
}

template <int code, class R, class... Args> static R noting_hook(Args... args) {
    calls = {code, number_of(args)...};
    return as_value<R>(code);
}

// Calls the service of a code; its arguments are the code and up.
template <int code, class R, class... Args> static void calls_its_hook(R (*service)(Args...)) {
    SCOPED_TRACE(code);
    const installed_hooks hook{std::pair(code, as_hook(noting_hook<code, R, Args...>))};
    std::vector<long long> want = {code};
    const auto next = [&want]<class T>(T &value) {
        const int number = code + int(want.size()) - 1;
        value = as_value<T>(number);
        want.push_back(number);
    };
    std::tuple<Args...> args;
    std::apply([&](auto &...each) { (next(each), ...); }, args);
    if constexpr (std::is_void_v<R>)
        std::apply(service, args);
    else
        EXPECT_EQ(std::apply(service, args), as_value<R>(code));
    EXPECT_EQ(calls, want);
}

template <auto... services, int... codes>
static void call_their_hooks(std::integer_sequence<int, codes...>) {
    static_assert(sizeof...(services) == KO_EXT_COUNT);
    (calls_its_hook<codes>(services), ...);
}

TEST(Hooks, EachServiceCallsItsOwnHookWithUnchangedArguments) {
    call_their_hooks<ko_ext_getenv, ko_ext_errno, ko_ext_fclose, ko_ext_feof, ko_ext_ferror,
                     ko_ext_fgetc, ko_ext_fgets, ko_ext_fopen, ko_ext_free, ko_ext_fseek,
                     ko_ext_ftell, ko_ext_fwrite, ko_ext_getc, ko_ext_malloc, ko_ext_ungetc,
                     ko_ext_putenv, ko_ext_currdate, ko_ext_currtime>(
        std::make_integer_sequence<int, KO_EXT_COUNT>());
}

TEST(Hooks, TheErrorWordIsTheFirstIntOfTheHandleUnlessRedirected) {
    test_handle handle;
    set_error(nullptr, KO_EFILE); // nowhere to store it
    EXPECT_EQ(ko_ext_errno(handle), &handle.gen.ko_lerrno);
    EXPECT_EQ(fail(handle, KO_EPOS, -1), -1);
    EXPECT_EQ(handle.error(), KO_EPOS);
    static int word;
    {
        const installed_hooks hook{std::pair(KO_EXT_ERRNO, as_hook(+[](void *) { return &word; }))};
        set_error(nullptr, KO_EFILE);
        EXPECT_EQ(word, KO_EFILE);
        word = 0;
        for (const char *name : {"none", "c:\\none"}) {
            EXPECT_FALSE(ko_path_search(nullptr, name, "lc", "11"));
            EXPECT_FALSE(ko_path_search_no_ext(nullptr, name, "lc", "11"));
            EXPECT_FALSE(ko_open_file(nullptr, name));
        }
        EXPECT_EQ(word, 0); // no handle was given
        set_error(handle, KO_EEOF);
    }
    const installed_hooks hook{
        std::pair(KO_EXT_ERRNO, as_hook(+[](void *) -> int * { return nullptr; }))};
    set_error(handle, KO_EEOF); // a hook without a word
    EXPECT_EQ(word, KO_EEOF);
    EXPECT_EQ(handle.gen.ko_lerrno, KO_EPOS);
}

TEST(Hooks, OneStreamHookIsEnoughToReadThroughHooks) {
    for (int code = -1; code <= KO_EXT_COUNT; ++code) {
        SCOPED_TRACE(code);
        EXPECT_FALSE(hook_set(code) || stream_hooks_set());
        if (code < 0 || code == KO_EXT_COUNT) continue;
        const installed_hooks hook{std::pair(code, as_hook(malloc))};
        EXPECT_TRUE(hook_set(code));
        const bool reads = code == KO_EXT_FOPEN || code == KO_EXT_GETC || code == KO_EXT_FGETS;
        const bool other = code == KO_EXT_MALLOC || code == KO_EXT_GETENV;
        EXPECT_TRUE(stream_hooks_set() ? !other : !reads);
    }
}

TEST(Fallbacks, StreamsAreTheStandardLibrarys) {
    temp_dir dir;
    const std::string path = dir.write("sub/text", "");
    void *out = ko_ext_fopen(path.c_str(), "w");
    ASSERT_TRUE(out);
    EXPECT_EQ(ko_ext_fwrite("one\ntwo", 1, 7, out), 7u);
    EXPECT_EQ(ko_ext_fclose(out), 0);
    void *in = ko_ext_fopen(path.c_str(), "r");
    ASSERT_TRUE(in);
    char line[16];
    EXPECT_EQ(ko_ext_ungetc(ko_ext_getc(in), in), 'o');
    EXPECT_EQ(ko_ext_fgets(line, sizeof line, in), line);
    EXPECT_STREQ(line, "one\n");
    EXPECT_EQ(ko_ext_fseek(in, -1, SEEK_END), 0);
    EXPECT_EQ(ko_ext_fgetc(in), 'o');
    EXPECT_EQ(ko_ext_feof(in), 0);
    EXPECT_EQ(ko_ext_fgetc(in), EOF);
    EXPECT_NE(ko_ext_feof(in), 0);
    EXPECT_EQ(ko_ext_ferror(in), 0);
    EXPECT_GE(ko_ext_ftell(in), 7);
    EXPECT_EQ(ko_ext_fclose(in), 0);
}

// In a copy of this program, which has data beside it.
TEST(DataRoot, DISABLED_HasTheFile) {
    for (const int raised : {0, 1, 0}) {
        assume_raised_rights(raised);
        FILE *const file = std_open("c:\\vantor\\kova\\lc11\\it.lco", "r");
        EXPECT_EQ(file != nullptr, !raised);
        if (file) fclose(file);
        int names = 0;
        std_list_names(
            "c:\\vantor\\kova\\lc11",
            [](void *n, const char *name) {
                *static_cast<int *>(n) += !strcmp(name, "it.lco");
                return 0;
            },
            &names);
        EXPECT_EQ(names, !raised);
    }
}

TEST(DataRoot, StandsBesideTheLibrarysOwnFileUnlessTheProcessHasRaisedRights) {
    temp_dir dir;
    dir.write("a tree/bin/x", "");
#ifdef _WIN32
    const std::filesystem::path self = _wpgmptr;
#else
    const std::filesystem::path self = "/proc/self/exe";
#endif
    const std::string copy = dir.path + "/a tree/bin/copy.exe";
    std::filesystem::copy_file(self, copy);
    const std::string command = "\"\"" + copy +
                                "\" --gtest_also_run_disabled_tests "
                                "--gtest_filter=DataRoot.DISABLED_HasTheFile\"";
    const auto run = [&] { // cmd.exe takes off the outer quotes, a shell has none
#ifdef _WIN32
        return system(command.c_str());
#else
        return system((command.substr(1, command.size() - 2) + " >/dev/null").c_str());
#endif
    };
    EXPECT_NE(run(), 0);
    dir.write("a tree/share/vantor/kova/lc11/it.lco", "here");
    EXPECT_EQ(run(), 0);
}

TEST(Fallbacks, EnvironmentAndClockAreTheStandardLibrarys) {
    static char setting[] = "KOVA_TEST_SETTING=7";
    EXPECT_EQ(ko_ext_putenv(setting), 0);
    EXPECT_STREQ(ko_ext_getenv("KOVA_TEST_SETTING"), "7");
    time_t before, after;
    uint16_t date[3];
    ko_tm_t now;
    do { // again when midnight or a second passes in between
        before = time(nullptr);
        EXPECT_EQ(ko_ext_currdate(date), 0);
        EXPECT_EQ(ko_ext_currtime(&now), 0);
        after = time(nullptr);
    } while (before != after);
    const tm *const want = localtime(&before);
    EXPECT_TRUE(date[0] == want->tm_mon + 1 && date[1] == want->tm_mday &&
                date[2] == want->tm_year + 1900);
    EXPECT_EQ((std::vector<int>{now.tm_usec, now.tm_sec, now.tm_hour, now.tm_mon, now.tm_year,
                                now.tm_wday, now.tm_yday, now.tm_isdst}),
              (std::vector<int>{0, want->tm_sec, want->tm_hour, want->tm_mon, want->tm_year,
                                want->tm_wday, want->tm_yday, want->tm_isdst}));
    EXPECT_TRUE(!now.tm_zone && !now.tm_gmtoff);
}

#ifndef _WIN32

TEST(PathTranslation, BackslashesBecomeSlashes) {
    temp_dir dir;
    dir.write("kova/lc11/default.lco", "x");
    FILE *file = std_open((dir.path + "\\kova\\lc11/default.lco").c_str(), "r");
    ASSERT_TRUE(file);
    fclose(file);
    EXPECT_FALSE(std_open((dir.path + "\\kova").c_str(), "r")) << "a directory is no file";
    EXPECT_FALSE(std_open((dir.path + "\\" + std::string(9000, 'x')).c_str(), "r"));
}

// How $HOME/kova.log is made before and what it holds after a line; it is not written where that is
// nothing, and there is no HOME where it is not made.
TEST(PathTranslation, TheLogIsAPrivateFileInTheHomeAndNothingElse) {
    const auto before = std::filesystem::current_path();
    const mode_t mask = umask(0);
    for (const std::string &row : split(
             "true>a|printf old >> kova.log; chmod 4644 kova.log>olda|ln -s there kova.log>|"
             "ln -s missing kova.log>|ln there kova.log>|mkfifo kova.log>|mkfifo kova.log # read>|"
             "mkdir kova.log>|>")) {
        SCOPED_TRACE(row);
        const std::string make = row.substr(0, row.rfind('>')), want = row.substr(make.size() + 1);
        temp_dir home, here;
        std::filesystem::current_path(here.path);
        const std::string log = home.path + "/kova.log";
        home.write("there", "kept");
        ASSERT_EQ(system(("cd " + home.path + "; " + make).c_str()), 0);
        const bool read = make.find('#') != make.npos;
        const int reader = read ? open(log.c_str(), O_RDONLY | O_NONBLOCK) : -1;
        real_variable variable("HOME", make.empty() ? nullptr : home.path.c_str());
        FILE *file = std_open("c:\\kova.log", "a");
        EXPECT_EQ(file != nullptr, !want.empty());
        if (file) fputs("a", file), fclose(file);
        if (reader >= 0) close(reader);
        EXPECT_EQ(home.read("there"), "kept");
        EXPECT_FALSE(std::filesystem::exists(home.path + "/missing"));
        EXPECT_TRUE(std::filesystem::is_empty(here.path));
        struct stat status;
        if (want.empty()) continue;
        EXPECT_EQ(home.read("kova.log"), want);
        ASSERT_EQ(stat(log.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0600u);
    }
    std::filesystem::current_path(before);
    umask(mask);
}

// Run as a set-user-id program by the test below.
TEST(RaisedRights, DISABLED_OfThisProcess) {
    EXPECT_TRUE(has_raised_rights());
    EXPECT_FALSE(ko_ext_getenv("HOME"));
    EXPECT_EQ(ko_secure_names(0), 1);
    ko_message("a line");
}

static int run_as_nobody(const std::string &program) {
    const pid_t child = fork();
    if (!child) {
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 1), dup2(null, 2);
        if (setgid(65534) || setuid(65534)) _exit(99);
        execl(program.c_str(), program.c_str(), "--gtest_also_run_disabled_tests",
              "--gtest_filter=RaisedRights.DISABLED_*", nullptr);
        _exit(98);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(RaisedRights, TurnTheEnvironmentAndTheLogOff) {
    temp_dir dir;
    real_variable home("HOME", dir.path.c_str()), log("KOVALOG", "on");
    assume_raised_rights(1);
    EXPECT_FALSE(ko_ext_getenv("HOME"));
    EXPECT_EQ(ko_secure_names(-1), 1);
    exit_utilities();
    {
        const installed_hooks hook{std::pair(KO_EXT_GETENV, as_hook(getenv))};
        EXPECT_TRUE(ko_ext_getenv("HOME")); // the host's word counts, but for the log
        ko_message("a line");
    }
    assume_raised_rights(-1);
    exit_utilities();
    EXPECT_EQ(ko_secure_names(-1), 0);
    EXPECT_EQ(dir.read("kova.log"), "");
    if (geteuid()) GTEST_SKIP() << "set-user-id programs take root to make";
    const std::string program = dir.path + "/program";
    std::filesystem::copy_file("/proc/self/exe", program);
    chmod(dir.path.c_str(), 0777);
    chmod(program.c_str(), 0755);
    EXPECT_EQ(run_as_nobody(program), 1) << "the program tells no difference";
    std::filesystem::remove(dir.path + "/kova.log");
    chmod(program.c_str(), 04755);
    EXPECT_EQ(run_as_nobody(program), 0);
    EXPECT_EQ(dir.read("kova.log"), "");
}

#else

TEST(PathTranslation, TheLogIsAPlainFile) {
    temp_dir dir;
    const std::string there = dir.write("there", "kept");
    remove("c:\\kova.log");
    for (const bool second_name : {false, true}) {
        if (second_name) {
            ASSERT_EQ(remove("c:\\kova.log"), 0);
        }
        if (second_name) std::filesystem::create_hard_link(there, "c:\\kova.log");
        FILE *const file = std_open("c:\\kova.log", "a");
        EXPECT_EQ(file != nullptr, !second_name);
        if (file) fputs("a\n", file), fclose(file);
    }
    EXPECT_EQ(dir.read("there"), "kept");
    remove("c:\\kova.log");
}

#endif

// The rest of a stream; "none" without memory.
static std::string read_all(FILE *file) {
    size_t size = 0;
    unsigned char *const got = file ? std_read_all(file, &size) : nullptr;
    const std::string text = got ? std::string(got, got + size) : "none";
    ko_ext_free(got);
    return text;
}

TEST(ReadAll, TakesWholeFilesAndLeavesNothingWithoutMemory) {
    temp_dir dir;
    for (const size_t len : {0u, 1u, 511u, 512u, 513u, 70000u}) {
        SCOPED_TRACE(len);
        std::string contents(len, 'x');
        for (size_t i = 0; i < len; i += 7)
            contents[i] = char('a' + i % 26);
        const std::string path = dir.write("file", contents);
        const auto read_it = [&] {
            FILE *file = std_open(path.c_str(), "r");
            const std::string got = read_all(file);
            if (file) fclose(file);
            EXPECT_TRUE(got == contents || got == "none");
            return got == contents;
        };
        each_allocation_fails(read_it);
    }
}

#ifndef _WIN32
TEST(ReadAll, GrowsForStreamsThatDoNotTellTheirLength) {
    memory_hooks memory;
    FILE *pipe = popen("seq 1 5000", "r");
    ASSERT_TRUE(pipe);
    std::string want;
    for (int i = 1; i <= 5000; ++i)
        want += std::to_string(i) + "\n";
    EXPECT_EQ(read_all(pipe), want);
    pclose(pipe);
}
#endif
