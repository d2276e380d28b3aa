// Replaces files in one step: names beside a target, locks, links and permissions, on POSIX systems
// and on Windows.
#include "common/tool_file.h"
#include "common/tool_path.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <random>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#if defined(_WIN32)
#include <io.h>
#include <windows.h>
#else
#include <sys/file.h>
#include <unistd.h>
#endif

namespace fs = std::filesystem;

namespace kovatool {

static bool fail_with(int error) {
    errno = error;
    return false;
}

// ---- names beside a target ----

// TARGET.kova-PROCESS-DIGITS with 16 digits; the target's name is cut if it leaves no room for the
// rest.
static constexpr char mark[] = ".kova-";
static constexpr size_t digit_count = 16, most_stem_bytes = 200;

std::string random_digits() {
    std::random_device random;
    std::string digits;
    for (size_t i = 0; i < digit_count; ++i)
        digits += "0123456789abcdef"[random() & 15];
    return digits;
}

static std::string stem_of(const fs::path &target) {
    return from_path(target.filename()).substr(0, most_stem_bytes) + mark;
}

static std::string name_beside(const std::string &target) {
#if defined(_WIN32)
    const unsigned long process = GetCurrentProcessId();
#else
    const long process = getpid();
#endif
    const fs::path path = to_path(target);
    const std::string name = stem_of(path) + std::to_string(process) + "-" + random_digits();
    return from_path(path.parent_path() / to_path(name));
}

// The process in a name beside a target; 0 if the name is not one of ours.
static unsigned long writer_of(const std::string &name, const std::string &stem) {
    if (!name.starts_with(stem)) return 0;
    const size_t dash = name.find('-', stem.size());
    if (dash == name.npos || dash == stem.size() || dash - stem.size() > 9) return 0;
    const auto all_of = [&name](size_t from, size_t to, const char *digits) {
        return name.find_first_not_of(digits, from) >= to;
    };
    if (!all_of(stem.size(), dash, "0123456789") || name.size() != dash + 1 + digit_count ||
        !all_of(dash + 1, name.size(), "0123456789abcdef")) {
        return 0;
    }
    return std::stoul(name.substr(stem.size(), dash - stem.size()));
}

// ---- the system ----

#if defined(_WIN32)
void prepare_signals() {}
static void watch_file(const std::string &) {}
static void unwatch_file() {}
void remove_unfinished() {}

static int create_file(const std::string &path) {
    return _wopen(to_path(path).c_str(), _O_RDWR | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT,
                  _S_IREAD | _S_IWRITE);
}
static bool keep_lock(int) { return true; }
static int open_existing(const std::string &path) {
    return _wopen(to_path(path).c_str(), _O_WRONLY | _O_TRUNC | _O_BINARY | _O_NOINHERIT);
}
static void close_file(int fd) { _close(fd); }
static std::FILE *stream_of(int fd) { return _fdopen(fd, "wb"); }
static bool sync_file(std::FILE *stream) { return _commit(_fileno(stream)) == 0; }
static bool take_permissions(std::FILE *, const std::string &) { return true; }
static bool sync_directory(const std::string &) { return true; }

static void remove_if_left(const std::string &path, unsigned long process) {
    const HANDLE writer = OpenProcess(SYNCHRONIZE, FALSE, process);
    const bool ended = writer ? WaitForSingleObject(writer, 0) == WAIT_OBJECT_0
                              : GetLastError() == ERROR_INVALID_PARAMETER;
    if (writer) CloseHandle(writer);
    if (ended) DeleteFileW(to_path(path).c_str());
}

// An open file cannot be renamed here.
static bool move_over(replacement &file) {
    const bool closed = std::fclose(file.stream) == 0;
    file.stream = nullptr;
    if (!closed) return false;
    if (MoveFileExW(to_path(file.beside).c_str(), to_path(file.target).c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return true;
    return fail_with(EACCES);
}
#else
void prepare_signals() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

// The file that a signal must not leave. The handler reads it only while it is watched, and it is
// changed only while it is not.
static char watched_file[PATH_MAX];
static volatile std::sig_atomic_t file_is_watched;

void remove_unfinished() {
    if (file_is_watched) unlink(watched_file);
}

extern "C" {
static void remove_watched_file(int signal_number) {
    remove_unfinished();
    std::signal(signal_number, SIG_DFL);
    std::raise(signal_number);
}
}

static void watch_file(const std::string &path) {
    file_is_watched = 0;
    if (path.size() >= sizeof watched_file) return;
    std::memcpy(watched_file, path.c_str(), path.size() + 1);
    file_is_watched = 1;
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) {
        if (std::signal(number, remove_watched_file) == SIG_IGN) std::signal(number, SIG_IGN);
    }
}

static void unwatch_file() { file_is_watched = 0; }

static int create_file(const std::string &path) {
    return open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
}

// Takes a lock, which ends with the process, to tell others that the writer is alive. False if
// another process took the file for a leftover before it was locked. A file system without locks
// keeps leftovers.
static bool keep_lock(int fd) {
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) return errno != EWOULDBLOCK;
    struct stat info = {};
    return fstat(fd, &info) != 0 || info.st_nlink > 0;
}

static int open_existing(const std::string &path) {
    return open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOCTTY);
}
static void close_file(int fd) { close(fd); }
static std::FILE *stream_of(int fd) { return fdopen(fd, "wb"); }
static bool sync_file(std::FILE *stream) { return fsync(fileno(stream)) == 0; }

// Takes the permissions of the existing file, or those of any new file. If the file cannot be given
// its group, the group gets the rights of all others; the bits that change the user of a program
// are dropped.
static bool take_permissions(std::FILE *stream, const std::string &target) {
    struct stat old = {}, own = {};
    const int fd = fileno(stream);
    const mode_t mask = umask(0);
    umask(mask);
    mode_t mode = 0666 & ~mask;
    if (fstat(fd, &own) != 0) return false;
    if (lstat(target.c_str(), &old) == 0 && S_ISREG(old.st_mode)) {
        mode = old.st_mode & 0777;
        const bool owned =
            old.st_uid == own.st_uid || geteuid() != 0 || fchown(fd, old.st_uid, gid_t(-1)) == 0;
        const bool grouped = old.st_gid == own.st_gid || fchown(fd, uid_t(-1), old.st_gid) == 0;
        if (!owned || !grouped) mode = (mode & 0707) | (mode & 07) << 3;
    }
    return fchmod(fd, mode) == 0;
}

// Makes the new name as durable as the bytes. Not every file system can do this or permits reading
// the directory.
static bool sync_directory(const std::string &target) {
    const std::string parent = to_path(target).parent_path().string();
    const int fd = open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return true;
    const bool failed = fsync(fd) != 0 && errno == EIO;
    close(fd);
    return failed ? fail_with(EIO) : true;
}

static void remove_if_left(const std::string &path, unsigned long) {
    struct stat info = {};
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return;
    const bool dead = fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == geteuid() &&
                      flock(fd, LOCK_EX | LOCK_NB) == 0;
    if (dead) unlink(path.c_str()); // while locked: its writer checks under the lock, too
    close(fd);
}

static bool move_over(replacement &file) {
    return std::rename(file.beside.c_str(), file.target.c_str()) == 0;
}
#endif

// ---- writing ----

static void remove_quietly(const std::string &path) {
    const int error = errno;
    std::error_code ignored;
    fs::remove(to_path(path), ignored);
    errno = error;
}

// Files that killed programs left beside the target.
static void remove_left_over(const std::string &target) {
    const fs::path path = to_path(target);
    const std::string stem = stem_of(path);
    std::error_code error;
    fs::directory_iterator it(path.has_parent_path() ? path.parent_path() : fs::path("."), error);
    for (; !error && it != fs::directory_iterator(); it.increment(error)) {
        const unsigned long process = writer_of(from_path(it->path().filename()), stem);
        if (process) remove_if_left(from_path(it->path()), process);
    }
}

static bool open_beside(replacement &file) {
    remove_left_over(file.target);
    for (int tries = 0; tries < 100; ++tries) {
        file.beside = name_beside(file.target);
        watch_file(file.beside); // before it exists: a signal may come in between
        const int fd = create_file(file.beside);
        if (fd < 0 && errno == EEXIST) continue;
        if (fd < 0) break;
        if (!keep_lock(fd)) {
            close_file(fd);
            continue;
        }
        file.stream = stream_of(fd);
        if (file.stream) return true;
        close_file(fd);
        remove_quietly(file.beside);
        break;
    }
    unwatch_file();
    file.beside.clear();
    return false;
}

static bool open_directly(const std::string &path, replacement &file) {
    const int fd = open_existing(path);
    if (fd >= 0 && !(file.stream = stream_of(fd))) close_file(fd);
    return file.stream != nullptr;
}

// Does a path name something that is open already? It must not be replaced, whatever it is.
static bool names_open_file(const std::string &path) {
    return path.starts_with("/proc/") || path.starts_with("/dev/fd/") || path == "/dev/stdout" ||
           path == "/dev/stderr";
}

// The end of a chain of links, even if nothing exists there yet.
static std::string end_of_links(const std::string &path) {
    std::error_code error;
    fs::path at = to_path(path);
    for (int steps = 0; steps < 40 && fs::is_symlink(at, error); ++steps) {
        const fs::path next = fs::read_symlink(at, error);
        if (error) break;
        at = at.parent_path() / next; // next alone if it is absolute
    }
    return from_path(at);
}

bool open_replacement(const std::string &path, link_in_place link, replacement &file) {
    file.target = path;
    if (link == link_in_place::followed) {
        std::error_code error;
        // Asks by the name as it stands, so that the system refuses links that it does not trust.
        const fs::file_status status = fs::status(to_path(path), error);
        if (error && status.type() != fs::file_type::not_found) return fail_with(error.value());
        if (fs::is_directory(status)) return fail_with(EISDIR);
        if (names_open_file(path) || (fs::exists(status) && !fs::is_regular_file(status)))
            return open_directly(path, file);
        file.target = end_of_links(path);
    }
    return open_beside(file);
}

bool sync_replacement(replacement &file) {
    if (std::fflush(file.stream) != 0) return false;
    if (std::ferror(file.stream)) return fail_with(EIO);
    return file.beside.empty() || sync_file(file.stream);
}

bool commit_replacement(replacement &file) {
    bool good = sync_replacement(file);
    if (good && !file.beside.empty())
        good = take_permissions(file.stream, file.target) && move_over(file);
    if (!good) {
        discard_replacement(file);
        return false;
    }
    if (!file.beside.empty()) good = sync_directory(file.target);
    unwatch_file();
    file.beside.clear();
    std::FILE *const stream = file.stream;
    file.stream = nullptr;
    return (!stream || std::fclose(stream) == 0) && good;
}

void discard_replacement(replacement &file) {
    const int error = errno;
    if (file.stream) std::fclose(file.stream);
    file.stream = nullptr;
    if (!file.beside.empty()) remove_quietly(file.beside);
    unwatch_file();
    file.beside.clear();
    errno = error;
}

static std::error_code link_beside(const std::string &existing, const std::string &path) {
    const std::string beside = name_beside(path);
    std::error_code failed;
    watch_file(beside);
    fs::create_hard_link(to_path(existing), to_path(beside), failed);
    if (failed) fs::copy_file(to_path(existing), to_path(beside), failed);
    if (!failed) fs::rename(to_path(beside), to_path(path), failed);
    remove_quietly(beside); // it exists after a failure, and if both names were one file
    unwatch_file();
    return failed;
}

bool link_in_one_step(const std::string &existing, const std::string &path) {
    remove_left_over(path);
    std::error_code failed;
    for (int tries = 0; tries < 100; ++tries) {
        failed = link_beside(existing, path);
        if (!failed) return sync_directory(path);
        // The file is not locked, so another writer may have removed it as a leftover.
        if (failed != std::errc::no_such_file_or_directory) break;
    }
    return fail_with(failed.value());
}

} // namespace kovatool
