// The imaginary host of the tests.
#include "support/fixture.h"

#include <string.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <sstream>

template <class Fn> static void install(int code, Fn *fn) {
    ko_setextfunc(nullptr, code, reinterpret_cast<ko_extfn_t>(fn));
}

static void uninstall(std::initializer_list<int> codes) {
    for (const int code : codes)
        ko_setextfunc(nullptr, code, nullptr);
}

static memory_hooks *memory;

static void *hook_malloc(size_t size) {
    if (memory->calls++ == memory->fail_at) return nullptr;
    void *const block = malloc(size);
    if (!block) return nullptr;
    memory->blocks.insert(block);
    ++memory->live;
    return block;
}

static void hook_free(void *block) {
    if (!block) return;
    if (!memory->blocks.erase(block)) {
        ADD_FAILURE() << "a block is freed that the hook did not hand out";
        return;
    }
    --memory->live;
    free(block);
}

memory_hooks::memory_hooks() {
    memory = this;
    install(KO_EXT_MALLOC, hook_malloc);
    install(KO_EXT_FREE, hook_free);
}

memory_hooks::~memory_hooks() {
    uninstall({KO_EXT_MALLOC, KO_EXT_FREE});
    for (void *block : blocks)
        free(block);
}

static file_hooks *files;

struct memory_stream {
    std::string *contents;
    size_t pos = 0;
    bool writes = false, at_end = false, failed = false;
};

static memory_stream *as_stream(void *stream) { return static_cast<memory_stream *>(stream); }

static bool call_fails() { return files->calls++ == files->fail_at; }

static void *hook_fopen(const char *path, const char *mode) {
    files->tried.push_back(path);
    if (call_fails()) return nullptr;
    const bool writes = *mode != 'r';
    if (!writes && !files->files.count(path)) return nullptr;
    if (*mode == 'w') files->files[path].clear();
    auto *const stream = new memory_stream{.contents = &files->files[path], .writes = writes};
    if (writes) stream->pos = stream->contents->size();
    ++files->streams;
    return stream;
}

static int hook_fclose(void *stream) {
    delete as_stream(stream);
    --files->streams;
    return 0;
}

static int hook_feof(void *stream) { return as_stream(stream)->at_end; }
static int hook_ferror(void *stream) { return as_stream(stream)->failed; }

static int read_byte(memory_stream *stream) {
    if (stream->pos < stream->contents->size())
        return static_cast<unsigned char>((*stream->contents)[stream->pos++]);
    stream->at_end = true;
    return -1;
}

static int hook_getc(void *stream) {
    if (!call_fails()) return read_byte(as_stream(stream));
    as_stream(stream)->failed = true;
    return -1;
}

static char *hook_fgets(char *buf, int size, void *stream) {
    int len = 0;
    if (call_fails()) {
        as_stream(stream)->failed = true;
        return nullptr;
    }
    for (int c; len < size - 1 && (c = read_byte(as_stream(stream))) >= 0;) {
        buf[len++] = static_cast<char>(c);
        if (c == '\n') break;
    }
    buf[len] = 0;
    return len ? buf : nullptr;
}

static int hook_ungetc(int byte, void *stream) {
    auto *const s = as_stream(stream);
    if (byte < 0) return -1;
    if (!s->pos || static_cast<unsigned char>((*s->contents)[s->pos - 1]) != byte) {
        ADD_FAILURE() << "a byte is pushed back that was not read";
        return -1;
    }
    --s->pos;
    s->at_end = false;
    return byte;
}

static size_t hook_fwrite(const void *buf, size_t size, size_t count, void *stream) {
    auto *const s = as_stream(stream);
    if (!s->writes || call_fails()) {
        s->failed = true;
        return 0;
    }
    s->contents->replace(s->pos, std::min(size * count, s->contents->size() - s->pos),
                         static_cast<const char *>(buf), size * count);
    s->pos += size * count;
    return count;
}

static int hook_fseek(void *stream, ko_long_t offset, int origin) {
    auto *const s = as_stream(stream);
    const auto size = static_cast<long>(s->contents->size());
    const long base = origin == SEEK_SET   ? 0
                      : origin == SEEK_END ? size
                                           : static_cast<long>(s->pos);
    if (base + offset < 0 || base + offset > size) return -1;
    s->pos = static_cast<size_t>(base + offset);
    s->at_end = false;
    return 0;
}

static ko_long_t hook_ftell(void *stream) { return static_cast<ko_long_t>(as_stream(stream)->pos); }

file_hooks::file_hooks() {
    ::files = this;
    install(KO_EXT_FOPEN, hook_fopen);
    install(KO_EXT_FCLOSE, hook_fclose);
    install(KO_EXT_FEOF, hook_feof);
    install(KO_EXT_FERROR, hook_ferror);
    install(KO_EXT_GETC, hook_getc);
    install(KO_EXT_FGETC, hook_getc);
    install(KO_EXT_FGETS, hook_fgets);
    install(KO_EXT_UNGETC, hook_ungetc);
    install(KO_EXT_FWRITE, hook_fwrite);
    install(KO_EXT_FSEEK, hook_fseek);
    install(KO_EXT_FTELL, hook_ftell);
}

file_hooks::~file_hooks() {
    uninstall({KO_EXT_FOPEN, KO_EXT_FCLOSE, KO_EXT_FEOF, KO_EXT_FERROR, KO_EXT_GETC, KO_EXT_FGETC,
               KO_EXT_FGETS, KO_EXT_UNGETC, KO_EXT_FWRITE, KO_EXT_FSEEK, KO_EXT_FTELL});
}

static env_hooks *environment;

// One buffer for every answer: a caller that keeps two of them sees only the last.
static char *hook_getenv(const char *name) {
    static std::string answer;
    const auto found = environment->vars.find(name);
    if (found == environment->vars.end()) return nullptr;
    answer = found->second;
    return answer.data();
}

static int hook_putenv(char *setting) {
    const char *const equals = strchr(setting, '=');
    if (!equals) return -1;
    environment->vars[std::string(setting, static_cast<size_t>(equals - setting))] = equals + 1;
    return 0;
}

env_hooks::env_hooks() {
    environment = this;
    install(KO_EXT_GETENV, hook_getenv);
    install(KO_EXT_PUTENV, hook_putenv);
}

env_hooks::~env_hooks() { uninstall({KO_EXT_GETENV, KO_EXT_PUTENV}); }

temp_dir::temp_dir() {
    std::random_device random;
    const auto name = "kova-test-" + std::to_string(random()) + std::to_string(random());
    const auto made = std::filesystem::temp_directory_path() / name;
    std::filesystem::create_directories(made);
    path = made.string();
}

temp_dir::~temp_dir() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string temp_dir::write(const std::string &name, std::string_view contents) const {
    const auto file = std::filesystem::path(path) / std::filesystem::path(name).make_preferred();
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << contents;
    return file.string();
}

std::string temp_dir::read(const std::string &name) const {
    std::ifstream in(std::filesystem::path(path) / name, std::ios::binary);
    std::ostringstream contents;
    contents << in.rdbuf();
    return contents.str();
}

static void set_variable(const char *name, const char *value) {
#ifdef _WIN32
    _putenv_s(name, value ? value : "");
#else
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
#endif
}

real_variable::real_variable(const char *variable, const char *value) : name(variable) {
    const char *const now = getenv(variable);
    was_set = now;
    if (now) before = now;
    set_variable(variable, value);
}

real_variable::~real_variable() { set_variable(name.c_str(), was_set ? before.c_str() : nullptr); }
