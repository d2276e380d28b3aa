// Writing files: whole or not at all, whoever else writes, reads, plants links or kills.
#include "common/tool_file.h"

#include "tools/command_run.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <thread>

namespace fs = std::filesystem;
using namespace kovatool;

static bool write_text(const std::string &path, const std::string &text,
                       link_in_place link = link_in_place::followed) {
    replacement file;
    if (!open_replacement(path, link, file)) return false;
    if (fwrite(text.data(), 1, text.size(), file.stream) == text.size())
        return commit_replacement(file);
    discard_replacement(file);
    return false;
}

// The status that a process ends with.
static int status_of(pid_t child) {
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

static size_t entries(const fs::path &dir) {
    return size_t(std::distance(fs::directory_iterator(dir), {}));
}

TEST(ToolFile, KeepsPermissionsWithoutSetUserIdAndHidesWhatIsUnfinished) {
    const temp_dir dir;
    const std::string path = dir.write("f", "old");
    for (const mode_t mode : {06755u, 01640u, 0600u}) {
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        replacement file;
        ASSERT_TRUE(open_replacement(path, link_in_place::followed, file));
        struct stat info = {};
        ASSERT_EQ(fstat(fileno(file.stream), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0600u);
        EXPECT_TRUE(fcntl(fileno(file.stream), F_GETFD) & FD_CLOEXEC);
        ASSERT_TRUE(commit_replacement(file));
        ASSERT_EQ(stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, mode & 0777);
    }
}

TEST(ToolFile, TreatsLinksDevicesAndFoldersAsDocumented) {
    const temp_dir dir;
    const std::string path = dir.write("f", "old"), link = dir.path + "/link";
    fs::create_symlink(path, link);
    EXPECT_TRUE(write_text(link, "through"));
    EXPECT_EQ(dir.read("f"), "through");
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_TRUE(write_text(link, "own", link_in_place::replaced));
    EXPECT_EQ(dir.read("f"), "through");
    EXPECT_FALSE(fs::is_symlink(link));
    fs::create_symlink(dir.path + "/new", dir.path + "/dangling");
    EXPECT_TRUE(write_text(dir.path + "/dangling", "made"));
    EXPECT_EQ(dir.read("new"), "made");
    EXPECT_TRUE(write_text("/dev/null", "nothing"));
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_FALSE(write_text("/dev/full", "too much"));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(write_text(dir.path, "folder"));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(entries(dir.path), 4u);
}

TEST(ToolFile, LeavesTheOldFileWhereTheNewOneDoesNotFit) {
    const temp_dir dir;
    const std::string path = dir.write("f", "old");
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small = {1000, limit.rlim_max};
    prepare_signals();
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool written = write_text(path, std::string(100000, 'x'));
    const int error = errno;
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_FALSE(written);
    EXPECT_EQ(error, EFBIG);
    EXPECT_EQ(dir.read("f"), "old");
    EXPECT_EQ(entries(dir.path), 1u);
}

TEST(ToolFile, CleansUpAfterDeadWritersOnly) {
    const temp_dir dir;
    const std::string path = dir.path + "/f", digits = "-0123456789abcdef";
    dir.write("f.kova-99999999" + digits, "dead");
    dir.write("f.kova-1" + digits + "0", "another name");
    dir.write("f.kova-x" + digits, "another name");
    fs::create_symlink(dir.path + "/victim", dir.path + "/f.kova-2" + digits);
    dir.write("victim", "precious");
    replacement living;
    ASSERT_TRUE(open_replacement(path, link_in_place::replaced, living));
    EXPECT_TRUE(write_text(path, "new", link_in_place::replaced));
    EXPECT_EQ(entries(dir.path), 6u) << "the dead one is gone, the living one and others stay";
    EXPECT_TRUE(fs::exists(living.beside));
    EXPECT_TRUE(commit_replacement(living));
    EXPECT_EQ(dir.read("victim"), "precious");
}

TEST(ToolFile, RemovesItsFileWhenASignalEndsTheProgram) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        const temp_dir dir;
        const std::string path = dir.write("f", "old");
        const pid_t child = fork();
        if (child == 0) {
            signal(number, SIG_DFL);
            replacement file;
            if (!open_replacement(path, link_in_place::followed, file)) _exit(1);
            raise(number);
            _exit(2);
        }
        const int status = status_of(child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << status;
        EXPECT_EQ(entries(dir.path), 1u);
        EXPECT_EQ(dir.read("f"), "old");
    }
}

// ---- two compilers -----------------------------------------------------------------------------

static pid_t start_compiler(const std::string &map, const std::string &root, bool quiet) {
    const std::string program = env("KOVA_BIN_DIR") + "/kovac";
    const pid_t child = fork();
    if (child != 0) return child;
    const int null = open("/dev/null", O_WRONLY);
    if (quiet) dup2(null, 2);
    execl(program.c_str(), "kovac", "charmap", map.c_str(), "-o", root.c_str(), nullptr);
    _exit(127);
}

TEST(KovacWrite, TwoCompilersAndAKillLeaveAReaderWholeObjects) {
    const temp_dir dir;
    const std::string chars = "<escape_char> /\nCHARMAP\n<U0000>..<U007F> /x00\nEND CHARMAP\n";
    const std::string maps[] = {dir.write("one", "<code_set_name> IBM850\n" + chars),
                                dir.write("two", "<code_set_name> CP850\n" + chars)};
    const fs::path object = dir.path + "/kova/cm3/0352.cmo";
    std::set<std::string> whole;
    for (const std::string &map : maps) {
        ASSERT_EQ(status_of(start_compiler(map, dir.path, false)), 0);
        whole.insert(slurp(object));
    }
    ASSERT_EQ(whole.size(), 2u);
    const fs::path victim = dir.write("victim", "precious");
    fs::create_symlink(victim, object.string() + ".new");
    fs::create_symlink(victim, object.string() + ".trial");
    std::mt19937 random(3);
    for (int round = 0; round < 12; ++round) {
        const bool kills = round % 3 == 2;
        pid_t children[] = {start_compiler(maps[0], dir.path, kills),
                            start_compiler(maps[1], dir.path, kills)};
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
        while (std::chrono::steady_clock::now() < end)
            ASSERT_TRUE(whole.contains(slurp(object)));
        if (kills) std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        for (const pid_t child : children) {
            if (kills) kill(child, SIGKILL);
            EXPECT_TRUE(status_of(child) == 0 || kills);
            ASSERT_TRUE(whole.contains(slurp(object)));
        }
    }
    EXPECT_EQ(status_of(start_compiler(maps[0], dir.path, false)), 0);
    EXPECT_EQ(entries(object.parent_path()), 3u) << "the object and two planted links";
    EXPECT_EQ(slurp(victim), "precious");
}
