// The hook table and its fallbacks in the standard library, and the translation of path names from
// the system's own notation to the platform's.
#include "kovaextsa.h"

#include "kova_host.h"
#include "kovautils.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <sys/stat.h>
#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#define WIN32_LEAN_AND_MEAN // without names such as "byte"
#include <windows.h>
#else
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>
#endif
#ifdef __linux__
#include <sys/auxv.h>
#endif
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#define KOVA_KNOWS_THREADS 1
#endif

#include <atomic>

// Set by ko_setextfunc alone; hosts do so before they use anything else.
static constinit std::atomic<ko_extfn_t> funcptr_arr[KO_EXT_COUNT] = {};

// Counted by ko_ext_malloc, in any thread.
static constinit std::atomic<unsigned> failures = 0;
unsigned failed_allocations(void) { return failures.load(std::memory_order_relaxed); }

static ko_extfn_t slot(int code) { return funcptr_arr[code].load(std::memory_order_relaxed); }

template <class Fn> static Fn *hook(int code) { return reinterpret_cast<Fn *>(slot(code)); }

static FILE *as_file(void *stream) { return static_cast<FILE *>(stream); }

int ko_setextfunc(void *handle, int code, ko_extfn_t fn) {
    if (code < 0 || code >= KO_EXT_COUNT) return fail(handle, KO_ERANGE, -1);
    funcptr_arr[code].store(fn, std::memory_order_relaxed);
    return 0;
}

// ---- The lock ----

#ifdef _WIN32

static constinit SRWLOCK state = SRWLOCK_INIT;
state_lock::state_lock() : taken(true) { AcquireSRWLockExclusive(&state); }
state_lock::~state_lock() { ReleaseSRWLockExclusive(&state); }

#else

static constinit pthread_mutex_t state = PTHREAD_MUTEX_INITIALIZER;
static constinit pthread_once_t first_use = PTHREAD_ONCE_INIT;
static constinit std::atomic<bool> forks_are_watched = false;

static void lock_state(void) { pthread_mutex_lock(&state); }
static void unlock_state(void) { pthread_mutex_unlock(&state); }

// In the child, also of a fork that came before the thread that arranged it had said so.
static void after_fork(void) {
    forks_are_watched.store(true, std::memory_order_relaxed);
    unlock_state();
}

// A forked child has only the thread that forked, which therefore holds the lock while it forks.
static void watch_forks(void) {
    if (!forks_are_watched.load(std::memory_order_relaxed))
        forks_are_watched.store(!pthread_atfork(lock_state, unlock_state, after_fork),
                                std::memory_order_relaxed);
}

// Arranges this before anyone holds the lock: a child of a fork in between begins anew.
[[gnu::noinline]] static void prepare_forks(void) { pthread_once(&first_use, watch_forks); }

// Until its first thread, a process has nobody to keep apart, and a fork no lock to look after.
static bool has_threads(void) {
#ifdef KOVA_KNOWS_THREADS
    return !__libc_single_threaded;
#else
    return true;
#endif
}

state_lock::state_lock() : taken(has_threads()) {
    if (!taken) return;
    if (!forks_are_watched.load(std::memory_order_relaxed)) prepare_forks();
    lock_state();
    watch_forks(); // again, where memory had run short
}
state_lock::~state_lock() {
    if (taken) unlock_state();
}

#endif

// ---- Data root, rights and names ----

// The default data root, copied into found_root by the first thread to need it.
enum : signed char { root_unknown, root_in_work, root_known };
static constinit std::atomic<signed char> root_state = root_unknown;

// Whether the process has raised rights: asked of the system once, or set by a test; -1: not known
// yet.
static constinit std::atomic<signed char> rights = -1;

// Set by ko_secure_names alone, which hosts call before they use anything else.
static constinit std::atomic<bool> confinement_wanted = false;
// Derived from the two above.
constinit std::atomic<signed char> confinement = -1;

static void set_rights(int raised) {
    rights.store(static_cast<signed char>(raised), std::memory_order_relaxed);
}

void assume_raised_rights(int raised) {
    set_rights(raised);
    confinement.store(-1, std::memory_order_relaxed);
    root_state.store(root_unknown, std::memory_order_relaxed);
}

static bool wants_confinement(void) {
    return confinement_wanted.load(std::memory_order_relaxed) || has_raised_rights();
}

// If the host has decided in the meantime, its decision stands.
bool decide_confinement(void) {
    signed char before = -1;
    const bool confined = wants_confinement();
    if (confinement.compare_exchange_strong(before, confined, std::memory_order_relaxed))
        return confined;
    return before;
}

int ko_secure_names(int on) {
    const bool before = names_confined();
    if (on < 0) return before;
    confinement_wanted.store(on, std::memory_order_relaxed);
    confinement.store(wants_confinement(), std::memory_order_relaxed);
    return before;
}

static bool rights_of_process(void) {
#if defined(_WIN32)
    return false;
#elif defined(__linux__)
    return getauxval(AT_SECURE) != 0; // for capabilities of its file, too
#elif defined(__APPLE__) || defined(__FreeBSD__) || defined(__NetBSD__) || defined(__OpenBSD__)
    return issetugid() != 0;
#else
    return geteuid() != getuid() || getegid() != getgid();
#endif
}

bool has_raised_rights(void) {
    const signed char known = rights.load(std::memory_order_relaxed);
    if (known >= 0) return known;
    const bool raised = rights_of_process();
    set_rights(raised);
    return raised;
}

bool hook_set(int code) { return code >= 0 && code < KO_EXT_COUNT && slot(code); }

bool stream_hooks_set(void) {
    static constexpr int codes[] = {KO_EXT_FCLOSE, KO_EXT_FEOF,  KO_EXT_FERROR, KO_EXT_FGETC,
                                    KO_EXT_FGETS,  KO_EXT_FOPEN, KO_EXT_GETC,   KO_EXT_UNGETC};
    for (const int code : codes)
        if (slot(code)) return true;
    return false;
}

char *ko_ext_getenv(const char *name) {
    if (auto *h = hook<decltype(ko_ext_getenv)>(KO_EXT_GETENV)) return h(name);
    return has_raised_rights() ? nullptr : getenv(name);
}

int *ko_ext_errno(void *handle) {
    if (auto *h = hook<decltype(ko_ext_errno)>(KO_EXT_ERRNO)) return h(handle);
    return static_cast<int *>(handle); // ko_lerrno, the first field of every handle
}

int ko_ext_fclose(void *stream) {
    if (auto *h = hook<decltype(ko_ext_fclose)>(KO_EXT_FCLOSE)) return h(stream);
    return fclose(as_file(stream));
}

int ko_ext_feof(void *stream) {
    if (auto *h = hook<decltype(ko_ext_feof)>(KO_EXT_FEOF)) return h(stream);
    return feof(as_file(stream));
}

int ko_ext_ferror(void *stream) {
    if (auto *h = hook<decltype(ko_ext_ferror)>(KO_EXT_FERROR)) return h(stream);
    return ferror(as_file(stream));
}

int ko_ext_fgetc(void *stream) {
    if (auto *h = hook<decltype(ko_ext_fgetc)>(KO_EXT_FGETC)) return h(stream);
    return fgetc(as_file(stream));
}

char *ko_ext_fgets(char *buf, int size, void *stream) {
    if (auto *h = hook<decltype(ko_ext_fgets)>(KO_EXT_FGETS)) return h(buf, size, stream);
    return fgets(buf, size, as_file(stream));
}

void *ko_ext_fopen(const char *path, const char *mode) {
    if (auto *h = hook<decltype(ko_ext_fopen)>(KO_EXT_FOPEN)) return h(path, mode);
    return std_open(path, mode);
}

void ko_ext_free(void *block) {
    if (auto *h = hook<decltype(ko_ext_free)>(KO_EXT_FREE)) return h(block);
    free(block);
}

int ko_ext_fseek(void *stream, ko_long_t offset, int origin) {
    if (auto *h = hook<decltype(ko_ext_fseek)>(KO_EXT_FSEEK)) return h(stream, offset, origin);
    return fseek(as_file(stream), offset, origin);
}

ko_long_t ko_ext_ftell(void *stream) {
    if (auto *h = hook<decltype(ko_ext_ftell)>(KO_EXT_FTELL)) return h(stream);
    const long position = ftell(as_file(stream));
    return position > INT32_MAX ? -1 : ko_long_t(position);
}

size_t ko_ext_fwrite(const void *buf, size_t size, size_t count, void *stream) {
    if (auto *h = hook<decltype(ko_ext_fwrite)>(KO_EXT_FWRITE)) return h(buf, size, count, stream);
    return fwrite(buf, size, count, as_file(stream));
}

int ko_ext_getc(void *stream) {
    if (auto *h = hook<decltype(ko_ext_getc)>(KO_EXT_GETC)) return h(stream);
    return getc(as_file(stream));
}

void *ko_ext_malloc(size_t size) {
    auto *const h = hook<decltype(ko_ext_malloc)>(KO_EXT_MALLOC);
    void *const block = h ? h(size) : malloc(size);
    if (!block) failures.fetch_add(1, std::memory_order_relaxed);
    return block;
}

int ko_ext_ungetc(int byte, void *stream) {
    if (auto *h = hook<decltype(ko_ext_ungetc)>(KO_EXT_UNGETC)) return h(byte, stream);
    return ungetc(byte, as_file(stream));
}

int ko_ext_putenv(char *setting) {
    if (auto *h = hook<decltype(ko_ext_putenv)>(KO_EXT_PUTENV)) return h(setting);
#ifdef _WIN32
    return _putenv(setting);
#else
    return putenv(setting);
#endif
}

static bool local_now(tm *now) {
    const time_t seconds = time(nullptr);
#ifdef _WIN32
    const tm *const got = localtime(&seconds); // one record per thread
    if (got) *now = *got;
    return got != nullptr;
#else
    return localtime_r(&seconds, now) != nullptr;
#endif
}

int ko_ext_currdate(uint16_t *mdy) {
    if (auto *h = hook<decltype(ko_ext_currdate)>(KO_EXT_CURRDATE)) return h(mdy);
    tm now;
    if (!local_now(&now)) return -1;
    mdy[0] = uint16_t(now.tm_mon + 1);
    mdy[1] = uint16_t(now.tm_mday);
    mdy[2] = uint16_t(now.tm_year + 1900);
    return 0;
}

int ko_ext_currtime(ko_tm_t *out) {
    if (auto *h = hook<decltype(ko_ext_currtime)>(KO_EXT_CURRTIME)) return h(out);
    tm now;
    if (!local_now(&now)) return -1;
    *out = {.tm_usec = 0,
            .tm_sec = now.tm_sec,
            .tm_min = now.tm_min,
            .tm_hour = now.tm_hour,
            .tm_mday = now.tm_mday,
            .tm_mon = now.tm_mon,
            .tm_year = now.tm_year,
            .tm_wday = now.tm_wday,
            .tm_yday = now.tm_yday,
            .tm_isdst = now.tm_isdst,
            .tm_zone = nullptr,
            .tm_gmtoff = 0};
    return 0;
}

// ---- The default data root ----

static constexpr int path_room = 4096; // POSIX systems refuse longer names
static constexpr char default_root[] = "c:\\vantor\\";
static constexpr size_t read_all_max = size_t{1} << 29; // no data file comes near 512 MiB

// The way to the data that are installed with the library, from the folder of its file and from
// that of a program that contains it.
#ifdef KOVA_DATA_BESIDE_LIBRARY
static constexpr const char *beside_library = KOVA_DATA_BESIDE_LIBRARY;
static constexpr const char *beside_program = KOVA_DATA_BESIDE_PROGRAM;
#else
static constexpr const char *beside_library = nullptr, *beside_program = nullptr;
#endif

// The file that contains the library, with its folders, and whether that is the program's.
static bool own_file(char *out, bool *program);
static bool is_folder(const char *path);

#ifdef _WIN32

static constexpr char separator = '\\';
static constexpr const char *fixed_root = default_root;

static bool own_file(char *out, bool *program) {
    static constexpr char here = 0;
    const DWORD how =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    HMODULE module;
    if (!GetModuleHandleExA(how, &here, &module)) return false;
    *program = module == GetModuleHandleA(nullptr);
    const DWORD len = GetModuleFileNameA(module, out, path_room);
    return len && len < path_room;
}

static bool is_folder(const char *path) {
    const DWORD is = GetFileAttributesA(path);
    return is != INVALID_FILE_ATTRIBUTES && (is & FILE_ATTRIBUTE_DIRECTORY);
}

#else

#ifndef KOVA_DATA_ROOT
#define KOVA_DATA_ROOT "/usr/local/share/vantor/"
#endif
static constexpr char separator = '/';
static constexpr const char *fixed_root = KOVA_DATA_ROOT;

static bool own_file(char *out, bool *program) {
    static constexpr char here = 0;
    Dl_info own;
    *program = !dladdr(&here, &own); // a program without a dynamic loader
#ifdef __linux__
    Dl_info started;
    if (!*program)
        *program = dladdr(reinterpret_cast<const void *>(getauxval(AT_PHDR)), &started) &&
                   started.dli_fbase == own.dli_fbase;
    // The loader knows a program by what it was called, which need not lead to it.
    if (*program) return realpath("/proc/self/exe", out) != nullptr;
#endif
    return !*program && realpath(own.dli_fname, out);
}

static bool is_folder(const char *path) {
    struct stat is;
    return !stat(path, &is) && S_ISDIR(is.st_mode);
}

#endif

// A tree that was moved as a whole has its data where it had them, as seen from the library.
static bool find_beside(char *out) {
    bool program;
    // Whoever starts a program with raised rights may have given its file another name and place.
    if (!beside_library || has_raised_rights() || !own_file(out, &program)) return false;
    char *const name = strrchr(out, separator);
    const char *const way = program ? beside_program : beside_library;
    static constexpr char data[] = "kova";
    if (!name || size_t(name + 1 - out) + strlen(way) + sizeof data > path_room) return false;
    char *const end = name + 1 + strlen(way);
    memcpy(name + 1, way, strlen(way));
    memcpy(end, data, sizeof data);
    const bool found = is_folder(out);
    *end = 0;
    return found;
}

// Ends in a separator; may be in out.
static const char *data_root(char *out) {
    static constinit char found_root[path_room] = {};
    if (root_state.load(std::memory_order_acquire) == root_known) return found_root;
    const char *const root = find_beside(out) ? out : fixed_root;
    signed char before = root_unknown;
    if (!root_state.compare_exchange_strong(before, root_in_work, std::memory_order_relaxed))
        return root;
    strcpy(found_root, root);
    root_state.store(root_known, std::memory_order_release);
    return root;
}

#ifdef _WIN32

// The path itself, or in out one below the default root.
static const char *real_path(char *out, const char *path) {
    constexpr size_t root_len = sizeof default_root - 1;
    if (strncmp(path, default_root, root_len) != 0) return path;
    const char *const root = data_root(out);
    const size_t used = strlen(root), rest = strlen(path + root_len);
    if (rest >= path_room - used) return path;
    memmove(out, root, used);
    memcpy(out + used, path + root_len, rest + 1);
    return out;
}

// The log may contain names of a user's files, so it must be a file without a second name, and no
// link is followed.
static bool is_plain(HANDLE file) {
    constexpr DWORD other = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    BY_HANDLE_FILE_INFORMATION is;
    return GetFileType(file) == FILE_TYPE_DISK && GetFileInformationByHandle(file, &is) &&
           !(is.dwFileAttributes & other) && is.nNumberOfLinks == 1;
}

static FILE *open_plain_append(const char *path) {
    const HANDLE handle = CreateFileA(path, FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                      FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return nullptr;
    const int fd = is_plain(handle) ? _open_osfhandle(intptr_t(handle), _O_APPEND | _O_TEXT) : -1;
    if (fd < 0) {
        CloseHandle(handle);
        return nullptr;
    }
    FILE *const file = _fdopen(fd, "a");
    if (!file) _close(fd);
    return file;
}

FILE *std_open(const char *path, const char *mode) {
    char real[path_room];
    if (!strcmp(path, "c:\\kova.log") && *mode == 'a') return open_plain_append(path);
    return fopen(real_path(real, path), mode);
}

FILE *std_open_data(const char *path) {
    char real[path_room];
    struct _stat64 is;
    FILE *const file = fopen(real_path(real, path), "r");
    if (!file || (!_fstat64(_fileno(file), &is) && (is.st_mode & _S_IFREG))) return file;
    fclose(file); // a device
    return nullptr;
}

int std_list_names(const char *path, int (*each)(void *user, const char *name), void *user) {
    char pattern[1024], real[path_room];
    path = real_path(real, path);
    const size_t len = strlen(path);
    if (len > sizeof pattern - 3) return KO_EFILE;
    memcpy(pattern, path, len);
    memcpy(pattern + len, "\\*", 3);
    _finddata_t found;
    const intptr_t search = _findfirst(pattern, &found);
    if (search == -1) return errno == ENOENT ? KO_EFILE : KO_EIO;
    int result = 0, ended = 0;
    for (; !result && !ended; ended = _findnext(search, &found))
        result = each(user, found.name);
    if (!result && errno != ENOENT) result = KO_EIO;
    _findclose(search);
    return result;
}

// The system's times and numbers of files do not tell every change.
bool std_mark(const char *, file_mark *, bool *firm) { return *firm = false; }

// In text mode, as streams are.
int std_open_plain(const char *path, file_mark *mark) {
    char real[path_room];
    struct _stat64 is;
    const int file = _open(real_path(real, path), _O_RDONLY | _O_TEXT | _O_NOINHERIT);
    if (file < 0) return -1;
    if (_fstat64(file, &is) || !(is.st_mode & _S_IFREG)) {
        _close(file); // a device
        return -1;
    }
    *mark = {.size = uint64_t(is.st_size), .written_s = is.st_mtime};
    return file;
}

ptrdiff_t std_read(int file, void *to, size_t most) {
    return _read(file, to, most > INT_MAX ? INT_MAX : unsigned(most));
}

// Line ends of data files are newlines alone, so that text mode changes nothing.
size_t std_peek(int file, void *to, size_t most) {
    const ptrdiff_t read = std_read(file, to, most);
    return read < 0 || _lseek(file, 0, SEEK_SET) ? 0 : size_t(read);
}

void std_close(int file) { _close(file); }

// Whoever may write a data root there may also replace the library.
bool std_map(const char *path, file_view *view) {
    char real[path_room];
    const HANDLE file = CreateFileA(real_path(real, path), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    LARGE_INTEGER size;
    const bool sized =
        GetFileSizeEx(file, &size) && size.QuadPart > 0 && size.QuadPart <= int64_t{read_all_max};
    const HANDLE mapping =
        sized ? CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr) : nullptr;
    CloseHandle(file);
    if (!mapping) return false;
    const void *const bytes = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0);
    CloseHandle(mapping);
    *view = {static_cast<const unsigned char *>(bytes), size_t(size.QuadPart)};
    return bytes;
}

void std_unmap(const file_view *view) { UnmapViewOfFile(view->bytes); }

#else

// Joins the prefix, unchanged, and the rest with its backslashes turned into slashes. The prefix
// may be in out.
static bool join_path(char *out, const char *prefix, const char *rest) {
    const size_t prefix_len = strlen(prefix), rest_len = strlen(rest);
    if (prefix_len >= path_room || rest_len >= path_room - prefix_len) return false;
    memmove(out, prefix, prefix_len);
    for (size_t i = 0; i <= rest_len; ++i)
        out[prefix_len + i] = rest[i] == '\\' ? '/' : rest[i];
    return true;
}

static bool translate_path(char *out, const char *path, bool is_log) {
    constexpr size_t root_len = sizeof default_root - 1;
    if (is_log) {
        const char *const home = ko_ext_getenv("HOME");
        return home && *home && join_path(out, home, "/kova.log");
    }
    if (!strncmp(path, default_root, root_len))
        return join_path(out, data_root(out), path + root_len);
    return join_path(out, "", path);
}

// The log may contain names of a user's files, so it must be the process's own file, readable by
// nobody else and without a second name.
static bool is_private(int fd) {
    struct stat is;
    if (fstat(fd, &is) || !S_ISREG(is.st_mode)) return false;
    if (is.st_uid != geteuid() || is.st_nlink != 1) return false;
    return (is.st_mode & 07777) == 0600 || !fchmod(fd, 0600);
}

static FILE *open_private_append(const char *path) {
    // O_NONBLOCK: do not wait for the reader of a named pipe.
    const int flags = O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const int fd = open(path, flags, 0600);
    if (fd < 0) return nullptr;
    FILE *const file = is_private(fd) ? fdopen(fd, "a") : nullptr;
    if (!file) close(fd);
    return file;
}

// Opens a named pipe or a device without waiting for it, but waits for a file on which another
// process holds a lease.
static int open_data(const char *path) {
    const int flags = O_RDONLY | O_NOCTTY | O_CLOEXEC;
    const int fd = open(path, flags | O_NONBLOCK);
    if (fd >= 0 || errno != EWOULDBLOCK) return fd;
    struct stat is;
    return !stat(path, &is) && S_ISREG(is.st_mode) ? open(path, flags) : -1;
}

static bool is_regular(int fd, struct stat *is) {
    static_assert(sizeof is->st_size == 8 && sizeof is->st_ino == 8); // else large ones are errors
    return !fstat(fd, is) && S_ISREG(is->st_mode);
}

FILE *std_open_data(const char *path) {
    char translated[path_room];
    if (!translate_path(translated, path, false)) return nullptr;
    const int fd = open_data(translated);
    if (fd < 0) return nullptr;
    struct stat is;
    FILE *const file =
        is_regular(fd, &is) && fcntl(fd, F_SETFL, 0) >= 0 ? fdopen(fd, "r") : nullptr;
    if (!file) close(fd);
    return file;
}

int std_list_names(const char *path, int (*each)(void *user, const char *name), void *user) {
    char translated[path_room];
    if (!translate_path(translated, path, false)) return KO_EFILE;
    DIR *const directory = opendir(translated);
    if (!directory && errno == ENOMEM) return KO_ENOMEM;
    if (!directory) return errno == ENOENT || errno == ENOTDIR ? KO_EFILE : KO_EIO;
    int result = 0;
    while (!result) {
        errno = 0;
        const dirent *const entry = readdir(directory);
        if (!entry) {
            result = errno ? KO_EIO : 0;
            break;
        }
        result = each(user, entry->d_name);
    }
    closedir(directory);
    return result;
}

static bool is_directory(FILE *file) {
    struct stat status;
    return !fstat(fileno(file), &status) && S_ISDIR(status.st_mode);
}

FILE *std_open(const char *path, const char *mode) {
    char translated[path_room];
    const bool is_log = !strcmp(path, "c:\\kova.log");
    if (!translate_path(translated, path, is_log)) {
        errno = is_log ? ENOENT : ENAMETOOLONG;
        return nullptr;
    }
    if (is_log && *mode == 'a') return open_private_append(translated);
    FILE *const file = fopen(translated, mode);
    if (!file || !is_directory(file)) return file;
    fclose(file); // a directory can be opened for reading, but is not a file
    errno = EISDIR;
    return nullptr;
}

// A change within one clock tick after the mark was taken may leave the times as they are. So the
// times prove nothing until a file has been left alone for longer than any file system's tick.
static constexpr time_t tick_s = 2;
// Whoever can look up a file with these rights can read it.
static constexpr mode_t readable_by_all = S_IRUSR | S_IRGRP | S_IROTH;

static file_mark mark_of(const struct stat &is) {
    return {.device = is.st_dev,
            .inode = is.st_ino,
            .size = uint64_t(is.st_size),
            .written_s = is.st_mtim.tv_sec,
            .written_ns = is.st_mtim.tv_nsec,
            .changed_s = is.st_ctim.tv_sec,
            .changed_ns = is.st_ctim.tv_nsec};
}

bool std_mark(const char *path, file_mark *mark, bool *firm) {
    char translated[path_room];
    struct stat is;
    *firm = true;
    if (!translate_path(translated, path, false) || stat(translated, &is)) return false;
    if (!S_ISREG(is.st_mode)) return false;
    *mark = mark_of(is);
    *firm = (is.st_mode & readable_by_all) == readable_by_all &&
            is.st_ctim.tv_sec < time(nullptr) - tick_s;
    return true;
}

int std_open_plain(const char *path, file_mark *mark) {
    char translated[path_room];
    struct stat is;
    const int fd = translate_path(translated, path, false) ? open_data(translated) : -1;
    if (fd < 0) return -1;
    if (!is_regular(fd, &is)) {
        close(fd);
        return -1;
    }
    *mark = mark_of(is);
    return fd;
}

ptrdiff_t std_read(int file, void *to, size_t most) { return read(file, to, most); }

size_t std_peek(int file, void *to, size_t most) {
    const ssize_t read = pread(file, to, most, 0);
    return read > 0 ? size_t(read) : 0;
}

void std_close(int file) { close(file); }

static bool is_safe_to_map(int fd, struct stat *is) {
    if (fstat(fd, is) || !S_ISREG(is->st_mode)) return false;
    if (is->st_uid && is->st_uid != geteuid()) return false;
    return !(is->st_mode & (S_IWGRP | S_IWOTH)) && is->st_size > 0 &&
           uint64_t(is->st_size) <= read_all_max;
}

bool std_map(const char *path, file_view *view) {
    char translated[path_room];
    struct stat is;
    if (!translate_path(translated, path, false)) return false;
    const int fd = open_data(translated);
    if (fd < 0) return false;
    void *bytes = MAP_FAILED;
    if (is_safe_to_map(fd, &is))
        bytes = mmap(nullptr, size_t(is.st_size), PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    if (bytes == MAP_FAILED) return false;
    *view = {static_cast<const unsigned char *>(bytes), size_t(is.st_size)};
    return true;
}

void std_unmap(const file_view *view) {
    munmap(const_cast<unsigned char *>(view->bytes), view->size);
}

#endif

#ifdef _WIN32

// Bytes from the position to the end; 0 where the stream cannot tell.
static size_t size_hint(FILE *file) {
    const long start = ftell(file);
    if (start < 0 || fseek(file, 0, SEEK_END)) return 0;
    const long end = ftell(file);
    if (fseek(file, start, SEEK_SET)) return 0;
    return end > start ? size_t(end - start) : 0;
}

#else

static size_t size_hint(FILE *file) {
    struct stat about;
    if (fstat(fileno(file), &about) || about.st_size < 0) return 0;
    return size_t(about.st_size);
}

#endif

// Reads to the end, by a function that returns how many bytes it has read; fewer than asked for end
// the file. Beyond the room that the size asks for, the block grows.
template <class Read> static unsigned char *read_all(uint64_t about, size_t *size, Read read) {
    if (about >= read_all_max) return nullptr;
    size_t room = size_t(about) + 1, used = 0; // one more, to reach the end in the same read
    if (room < 512) room = 512;
    ext_block<unsigned char> block(room);
    while (block.p) {
        const ptrdiff_t more = read(block.p + used, room - used);
        if (more < 0) return nullptr;
        used += size_t(more);
        if (used < room) break;
        if (room > read_all_max / 2) return nullptr;
        ext_block<unsigned char> larger(room * 2);
        if (!larger.p) return nullptr;
        memcpy(larger.p, block.p, used);
        room *= 2;
        unsigned char *const old = block.p;
        block.p = larger.release();
        larger.p = old;
    }
    *size = used;
    return block.release();
}

unsigned char *std_read_all(FILE *file, size_t *size) {
    setvbuf(file, nullptr, _IONBF, 0); // reads go directly into the block
    return read_all(size_hint(file), size, [file](unsigned char *to, size_t most) {
        const size_t read = fread(to, 1, most, file);
        return ferror(file) ? ptrdiff_t{-1} : ptrdiff_t(read);
    });
}

unsigned char *std_read_all_plain(int file, uint64_t about, size_t *size, bool *failed) {
    return read_all(about, size, [file, failed](unsigned char *to, size_t most) {
        ptrdiff_t used = 0; // a system may give less than it has
        while (size_t(used) < most) {
            const ptrdiff_t read = std_read(file, to + used, most - size_t(used));
            if (read < 0) *failed = true;
            if (read <= 0) return read < 0 ? read : used;
            used += read;
        }
        return used;
    });
}
