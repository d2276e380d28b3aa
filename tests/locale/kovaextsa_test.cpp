// The hook table: what is called where, and what serves where nothing is installed.
#include "locale/kovaextsa.h"

#include "kova_host.h"
#include "locale/kovautils.h"
#include "support/fixture.h"

#include <string.h>
#include <time.h>
#ifndef _WIN32
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

static void install(int code, ko_extfn_t fn) { ASSERT_EQ(ko_setextfunc(nullptr, code, fn), 0); }

TEST(Hooks, CodesOutsideTheTableAreRefused) {
    test_handle handle;
    static const struct {
        int code, result, error;
    } rows[] = {
        {-1, -1, KO_ERANGE},
        {18, -1, KO_ERANGE},
        {17, 0,  KO_OK    },
        {0,  0,  KO_OK    }
    };
    for (auto &r : rows) {
        SCOPED_TRACE(r.code);
        handle.gen.ko_lerrno = KO_OK;
        EXPECT_EQ(ko_setextfunc(handle, r.code, nullptr), r.result);
        EXPECT_EQ(handle.error(), r.error);
        EXPECT_EQ(ko_setextfunc(nullptr, r.code, nullptr), r.result);
    }
}

// Every hook records its code and its arguments.
static std::string calls;
static char answer[] = "answer";
static int word;

static void record(const char *name, std::initializer_list<const void *> pointers,
                   std::initializer_list<long> numbers) {
    calls += name;
    for (const void *p : pointers)
        calls += p == answer ? " a" : p == &word ? " w" : p ? " ?" : " 0";
    for (const long n : numbers)
        calls += " " + std::to_string(n);
    calls += ";";
}

static char *on_getenv(const char *name) { return record("getenv", {name}, {}), answer; }
static int *on_errno(void *handle) { return record("errno", {handle}, {}), &word; }
static int on_fclose(void *s) { return record("fclose", {s}, {}), -7; }
static int on_feof(void *s) { return record("feof", {s}, {}), 3; }
static int on_ferror(void *s) { return record("ferror", {s}, {}), 4; }
static int on_fgetc(void *s) { return record("fgetc", {s}, {}), 5; }
static char *on_fgets(char *b, int n, void *s) { return record("fgets", {b, s}, {n}), answer; }
static void *on_fopen(const char *p, const char *m) { return record(m, {p}, {}), answer; }
static void on_free(void *p) { record("free", {p}, {}); }
static int on_fseek(void *s, ko_long_t n, int o) { return record("fseek", {s}, {n, o}), 9; }
static ko_long_t on_ftell(void *s) { return record("ftell", {s}, {}), -10; }
static size_t on_fwrite(const void *b, size_t n, size_t k, void *s) {
    return record("fwrite", {b, s}, {static_cast<long>(n), static_cast<long>(k)}), 11;
}
static int on_getc(void *s) { return record("getc", {s}, {}), 12; }
static void *on_malloc(size_t n) { return record("malloc", {}, {static_cast<long>(n)}), answer; }
static int on_ungetc(int c, void *s) { return record("ungetc", {s}, {c}), 14; }
static int on_putenv(char *t) { return record("putenv", {t}, {}), 15; }
static int on_currdate(uint16_t *) { return record("currdate", {}, {}), 16; }
static int on_currtime(ko_tm_t *) { return record("currtime", {}, {}), 17; }

TEST(Hooks, EachServiceCallsItsOwnHookWithUnchangedArguments) {
    const ko_extfn_t hooks[] = {as_hook(on_getenv), as_hook(on_errno),    as_hook(on_fclose),
                                as_hook(on_feof),   as_hook(on_ferror),   as_hook(on_fgetc),
                                as_hook(on_fgets),  as_hook(on_fopen),    as_hook(on_free),
                                as_hook(on_fseek),  as_hook(on_ftell),    as_hook(on_fwrite),
                                as_hook(on_getc),   as_hook(on_malloc),   as_hook(on_ungetc),
                                as_hook(on_putenv), as_hook(on_currdate), as_hook(on_currtime)};
    static_assert(std::size(hooks) == KO_EXT_COUNT);
    for (int code = 0; code < KO_EXT_COUNT; ++code)
        install(code, hooks[code]);
    uint16_t date[3];
    ko_tm_t now;
    calls.clear();
    EXPECT_EQ(ko_ext_getenv(answer), answer);
    EXPECT_EQ(ko_ext_errno(answer), &word);
    EXPECT_EQ(ko_ext_fclose(answer), -7);
    EXPECT_EQ(ko_ext_feof(answer), 3);
    EXPECT_EQ(ko_ext_ferror(answer), 4);
    EXPECT_EQ(ko_ext_fgetc(answer), 5);
    EXPECT_EQ(ko_ext_fgets(answer, 6, &word), answer);
    EXPECT_EQ(ko_ext_fopen(answer, "mode"), answer);
    ko_ext_free(answer);
    EXPECT_EQ(ko_ext_fseek(answer, -9, SEEK_END), 9);
    EXPECT_EQ(ko_ext_ftell(answer), -10);
    EXPECT_EQ(ko_ext_fwrite(answer, 3, 4, &word), 11u);
    EXPECT_EQ(ko_ext_getc(answer), 12);
    EXPECT_EQ(ko_ext_malloc(99), answer);
    EXPECT_EQ(ko_ext_ungetc('x', answer), 14);
    EXPECT_EQ(ko_ext_putenv(answer), 15);
    EXPECT_EQ(ko_ext_currdate(date), 16);
    EXPECT_EQ(ko_ext_currtime(&now), 17);
    for (int code = 0; code < KO_EXT_COUNT; ++code)
        install(code, nullptr);
    EXPECT_EQ(calls, "getenv a;errno a;fclose a;feof a;ferror a;fgetc a;fgets a w 6;mode a;free a;"
                     "fseek a -9 " +
                         std::to_string(SEEK_END) +
                         ";ftell a;fwrite a w 3 4;getc a;malloc 99;"
                         "ungetc a 120;putenv a;currdate;currtime;");
}

TEST(Hooks, TheErrorWordIsTheFirstIntOfTheHandleUnlessRedirected) {
    test_handle handle;
    set_error(nullptr, KO_EFILE); // nowhere to store it
    EXPECT_EQ(ko_ext_errno(handle), &handle.gen.ko_lerrno);
    EXPECT_EQ(fail(handle, KO_EPOS, -1), -1);
    EXPECT_EQ(handle.error(), KO_EPOS);
    word = 0;
    install(KO_EXT_ERRNO, as_hook(on_errno));
    set_error(nullptr, KO_EFILE);
    EXPECT_EQ(word, KO_EFILE);
    set_error(handle, KO_EEOF);
    install(KO_EXT_ERRNO, as_hook(+[](void *) -> int * { return nullptr; }));
    set_error(handle, KO_EEOF); // a hook without a word
    install(KO_EXT_ERRNO, nullptr);
    EXPECT_EQ(word, KO_EEOF);
    EXPECT_EQ(handle.error(), KO_EPOS);
}

TEST(Hooks, OneStreamHookIsEnoughToReadThroughHooks) {
    EXPECT_FALSE(stream_hooks_set());
    install(KO_EXT_MALLOC, as_hook(malloc));
    install(KO_EXT_GETENV, as_hook(on_getenv));
    EXPECT_FALSE(stream_hooks_set());
    install(KO_EXT_MALLOC, nullptr);
    install(KO_EXT_GETENV, nullptr);
    for (const int code : {KO_EXT_FOPEN, KO_EXT_GETC, KO_EXT_FGETS}) {
        install(code, as_hook(on_fgetc));
        EXPECT_TRUE(stream_hooks_set());
        EXPECT_TRUE(hook_set(code));
        install(code, nullptr);
        EXPECT_FALSE(hook_set(code));
    }
    EXPECT_FALSE(hook_set(-1));
    EXPECT_FALSE(hook_set(KO_EXT_COUNT));
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

// What stands at $HOME/kova.log before ("-": there is no HOME), and what is there after a line.
TEST(PathTranslation, TheLogIsAPrivateFileInTheHomeAndNothingElse) {
    static const struct {
        const char *before;
        bool written;
    } rows[] = {
        {"",                   true },
        {"echo old; chmod",    true },
        {"ln -s $there",       false},
        {"ln -s $missing",     false},
        {"ln $there",          false},
        {"mkfifo",             false},
        {"sleep 9 < & mkfifo", false},
        {"mkdir",              false},
        {"-",                  false},
    };
    const auto before = std::filesystem::current_path();
    const mode_t mask = umask(0);
    for (const auto &r : rows) {
        SCOPED_TRACE(r.before);
        temp_dir home, here;
        std::filesystem::current_path(here.path);
        const std::string log = home.path + "/kova.log", there = home.write("there", "kept"),
                          missing = home.path + "/missing", made = r.before;
        int reader = -1;
        if (made[0] == 'e') home.write("kova.log", "old"), chmod(log.c_str(), 04644);
        if (made == "ln -s $there") symlink(there.c_str(), log.c_str());
        if (made == "ln -s $missing") symlink(missing.c_str(), log.c_str());
        if (made == "ln $there") link(there.c_str(), log.c_str());
        if (made.find("mkfifo") != made.npos) mkfifo(log.c_str(), 0600);
        if (made[0] == 's') reader = open(log.c_str(), O_RDONLY | O_NONBLOCK);
        if (made == "mkdir") mkdir(log.c_str(), 0700);
        real_variable variable("HOME", made == "-" ? nullptr : home.path.c_str());
        FILE *file = std_open("c:\\kova.log", "a");
        EXPECT_EQ(file != nullptr, r.written);
        if (file) fputs("a", file), fclose(file);
        if (reader >= 0) close(reader);
        EXPECT_EQ(home.read("there"), "kept");
        EXPECT_FALSE(std::filesystem::exists(missing));
        EXPECT_TRUE(std::filesystem::is_empty(here.path));
        struct stat status;
        if (!r.written) continue;
        EXPECT_EQ(home.read("kova.log"), made.empty() ? "a" : "olda");
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
    install(KO_EXT_GETENV, as_hook(getenv)); // the host's word counts, but for the log
    EXPECT_TRUE(ko_ext_getenv("HOME"));
    ko_message("a line");
    install(KO_EXT_GETENV, nullptr);
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

#endif

TEST(ReadAll, TakesWholeFilesAndLeavesNothingWithoutMemory) {
    temp_dir dir;
    for (const size_t len : {0u, 1u, 511u, 512u, 513u, 70000u}) {
        SCOPED_TRACE(len);
        std::string contents(len, 'x');
        for (size_t i = 0; i < len; i += 7)
            contents[i] = static_cast<char>('a' + i % 26);
        const std::string path = dir.write("file", contents);
        const auto read_it = [&] {
            FILE *file = std_open(path.c_str(), "r");
            if (!file) return false;
            size_t size = 0;
            unsigned char *const got = std_read_all(file, &size);
            fclose(file);
            if (!got) return false;
            EXPECT_EQ(std::string(got, got + size), contents);
            ko_ext_free(got);
            return true;
        };
        EXPECT_GT(each_allocation_fails(read_it), 0);
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
    size_t size = 0;
    unsigned char *const got = std_read_all(pipe, &size);
    pclose(pipe);
    ASSERT_TRUE(got);
    EXPECT_EQ(std::string(got, got + size), want);
    ko_ext_free(got);
    EXPECT_EQ(memory.live, 0);
}
#endif
