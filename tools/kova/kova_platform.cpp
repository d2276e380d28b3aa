// The operating system as the command line needs it: arguments, environment, terminals and scratch
// files, on POSIX systems and on Windows.
#include "kova/kova_platform.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <string_view>
#include <system_error>

#include "common/tool_file.h"
#include "common/tool_path.h"
#include "kova/kova_cli.h"

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <shellapi.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace fs = std::filesystem;

namespace kovacli {

using kovatool::from_path;
using kovatool::to_path;

#if defined(_WIN32)
static std::string from_wide(const wchar_t *text) { return from_path(fs::path(text)); }

std::vector<std::string> program_arguments(int, char **) {
    std::vector<std::string> result;
    int count = 0;
    wchar_t **words = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int i = 1; words && i < count; ++i)
        result.push_back(from_wide(words[i]));
    LocalFree(words);
    return result;
}

void prepare_process() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
}

bool reader_is_gone(int error) { return error == EPIPE || error == EINVAL; }

bool unicode_system() { return true; }

std::string env_text(const char *name) {
    const wchar_t *value = _wgetenv(fs::path(name).c_str());
    return value ? from_wide(value) : std::string();
}

std::string program_directory() {
    std::vector<wchar_t> name(32768);
    const DWORD len = GetModuleFileNameW(nullptr, name.data(), DWORD(name.size()));
    if (len == 0 || len >= name.size()) return "";
    return from_path(fs::path(name.data()).parent_path());
}

std::string built_in_root() { return "c:\\vantor"; }

std::string data_path(std::string path) { return path; }

bool is_terminal(std::FILE *stream) { return _isatty(_fileno(stream)) != 0; }

static std::FILE *open_path(const std::string &path, const wchar_t *mode) {
    return _wfopen(to_path(path).c_str(), mode);
}

std::FILE *open_input(const std::string &path) {
    if (is_directory(path)) {
        errno = EISDIR;
        return nullptr;
    }
    return open_path(path, L"rb");
}

uint64_t regular_size(std::FILE *stream) {
    const __int64 size = _filelengthi64(_fileno(stream));
    return size > 0 ? uint64_t(size) : 0;
}

std::FILE *open_scratch(const std::string &directory) {
    std::error_code error;
    const fs::path place = directory.empty() ? fs::temp_directory_path(error) : to_path(directory);
    for (int tries = 0; tries < 100; ++tries) {
        const fs::path name = place / ("kova-" + kovatool::random_digits() + ".tmp");
        const int fd = _wopen(
            name.c_str(), _O_RDWR | _O_CREAT | _O_EXCL | _O_BINARY | _O_TEMPORARY | _O_NOINHERIT,
            _S_IREAD | _S_IWRITE);
        if (fd >= 0) return _fdopen(fd, "w+b");
        if (errno != EEXIST) return nullptr;
    }
    return nullptr;
}

#else
std::vector<std::string> program_arguments(int argc, char **argv) {
    return std::vector<std::string>(argv + 1, argv + std::max(argc, 1));
}

void prepare_process() { kovatool::prepare_signals(); }

bool reader_is_gone(int error) { return error == EPIPE; }

bool unicode_system() { return false; }

std::string env_text(const char *name) {
    const char *value = std::getenv(name);
    return value ? value : "";
}

std::string program_directory() {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    return error ? std::string() : self.parent_path().string();
}

std::string built_in_root() {
#if defined(KOVA_DATA_ROOT)
    std::string root = KOVA_DATA_ROOT;
#else
    std::string root = "/usr/local/share/vantor/";
#endif
    while (root.size() > 1 && root.back() == '/')
        root.pop_back();
    return root;
}

std::string data_path(std::string path) {
    constexpr std::string_view root = "c:\\vantor\\";
    if (path.starts_with(root)) path.replace(0, root.size() - 1, built_in_root());
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

bool is_terminal(std::FILE *stream) { return isatty(fileno(stream)) != 0; }

std::FILE *open_input(const std::string &path) {
    if (is_directory(path)) {
        errno = EISDIR;
        return nullptr;
    }
    return std::fopen(path.c_str(), "rb");
}

uint64_t regular_size(std::FILE *stream) {
    struct stat info = {};
    if (fstat(fileno(stream), &info) != 0 || !S_ISREG(info.st_mode)) return 0;
    return uint64_t(info.st_size);
}

std::FILE *open_scratch(const std::string &directory) {
    std::string name = directory;
    if (name.empty()) name = env_text("TMPDIR");
    if (name.empty()) name = "/tmp";
    name += "/kova-XXXXXX";
    const int fd = mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0) return nullptr;
    unlink(name.c_str()); // no name: gone with the process, however it ends
    return fdopen(fd, "w+b");
}

#endif

static failure cannot_read(const std::string &path, int error) {
    return failure(bad_file, "cannot read " + path + ": " + std::strerror(error));
}

static fs::file_type type_of(const std::string &path) {
    std::error_code error;
    const fs::file_type type = fs::status(to_path(path), error).type();
    if (kovatool::is_fault(error)) throw cannot_read(path, error.default_error_condition().value());
    return type;
}

bool is_directory(const std::string &path) { return type_of(path) == fs::file_type::directory; }
bool is_regular_file(const std::string &path) { return type_of(path) == fs::file_type::regular; }

bool read_directory(const std::string &path, std::vector<std::string> &names) {
    std::error_code error;
    fs::directory_iterator it(to_path(path), error);
    for (; !error && it != fs::directory_iterator(); it.increment(error))
        names.push_back(from_path(it->path().filename()));
    if (error == std::errc::not_enough_memory) throw std::bad_alloc();
    std::sort(names.begin(), names.end());
    errno = error.default_error_condition().value();
    return !error;
}

std::vector<std::string> directory_entries(const std::string &path) {
    std::vector<std::string> names;
    if (!read_directory(path, names) && errno != ENOENT && errno != ENOTDIR)
        throw cannot_read(path, errno);
    return names;
}

#if defined(_WIN32)
bool has_system_zone(const std::string &) { return false; }
void check_own_zone() {}
bool choose_system_zone(const std::string &) { return false; }

int system_offset(int64_t seconds, std::string *abbreviation) {
    const __time64_t moment = seconds;
    std::tm local = {};
    if (_localtime64_s(&local, &moment) != 0) return 0;
    const auto offset = int(_mkgmtime64(&local) - moment);
    if (abbreviation) {
        char text[16];
        const int size = (offset < 0 ? -offset : offset) / 60;
        std::snprintf(text, sizeof text, "%c%02d:%02d", offset < 0 ? '-' : '+', size / 60,
                      size % 60);
        *abbreviation = text;
    }
    return offset;
}
#else
// The bytes of a file of zone data; "" if it is none.
static std::string zone_data(const std::string &file) {
    if (!is_regular_file(file)) return "";
    std::FILE *const in = open_input(file);
    if (!in) throw cannot_read(file, errno);
    std::string bytes(regular_size(in), '\0');
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), in));
    const bool failed = std::ferror(in) != 0;
    std::fclose(in);
    if (failed) throw cannot_read(file, EIO);
    return bytes.starts_with("TZif") ? bytes : "";
}

// The C library takes for UTC, without a word, a name that it does not know, a file that is none of
// zones, and one that it cannot read. A zone that it has read has a name that the file holds.
static void take_zone(const std::string &file, const std::string &data) {
    tzset();
    if (data.find(tzname[0]) == data.npos) throw cannot_read(file, EIO);
}

// Takes the zone, which the C library is told by TZ, or where set says so now.
static bool take_zone(const std::string &name, bool set) {
    const std::string own = env_text("TZDIR");
    const std::string file =
        name[0] == '/' ? name : (own.empty() ? "/usr/share/zoneinfo" : own) + "/" + name;
    // The files below "right" count other seconds than those since 1970.
    if (name.find("..") != name.npos || file.find("right/") != file.npos) return false;
    const std::string data = zone_data(file);
    if (data.empty()) return false;
    if (set && setenv("TZ", (":" + name).c_str(), 1) != 0) throw std::bad_alloc();
    take_zone(file, data);
    return true;
}

bool has_system_zone(const std::string &name) { return take_zone(name, false); }

void check_own_zone() {
    static const std::string file = "/etc/localtime";
    if (std::getenv("TZ")) return;
    if (const std::string data = zone_data(file); !data.empty()) take_zone(file, data);
}

bool choose_system_zone(const std::string &name) { return name[0] != '/' && take_zone(name, true); }

int system_offset(int64_t seconds, std::string *abbreviation) {
    const auto moment = static_cast<time_t>(seconds);
    std::tm local = {};
    if (moment != seconds || !localtime_r(&moment, &local)) return 0;
    if (abbreviation) *abbreviation = local.tm_zone ? local.tm_zone : "";
    return int(local.tm_gmtoff);
}
#endif

double seconds_now() {
    using clock = std::chrono::steady_clock;
    return std::chrono::duration<double>(clock::now().time_since_epoch()).count();
}

} // namespace kovacli
