// The imaginary host of the tests.
#include "support/fixture.h"

#include <string.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>

installed_hooks::installed_hooks(std::initializer_list<std::pair<int, ko_extfn_t>> hooks) {
    for (const auto &[code, fn] : hooks) {
        EXPECT_EQ(ko_setextfunc(nullptr, code, fn), 0);
        codes.push_back(code);
    }
}

installed_hooks::~installed_hooks() {
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

memory_hooks::memory_hooks()
    : installed{
          {KO_EXT_MALLOC, as_hook(hook_malloc)},
          {KO_EXT_FREE,   as_hook(hook_free)  }
} {
    memory = this;
}

memory_hooks::~memory_hooks() {
    EXPECT_EQ(live, 0) << "blocks left after " << calls << " allocations";
    for (void *block : blocks)
        free(block);
}

static file_hooks *files;

struct memory_stream {
    std::string *contents;
    size_t pos = 0;
    bool writes = false;
    stream_state state = stream_state::good;
};

static memory_stream *as_stream(void *stream) { return static_cast<memory_stream *>(stream); }

static bool call_fails(memory_stream *stream = nullptr) {
    const bool fails = files->calls++ == files->fail_at;
    if (fails && stream) stream->state = files->on_failure;
    return fails;
}

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

static int hook_feof(void *stream) { return as_stream(stream)->state == stream_state::at_end; }
static int hook_ferror(void *stream) { return as_stream(stream)->state == stream_state::failed; }

// A failure stays, as it does in the C library.
static void leave_end(memory_stream *stream) {
    if (stream->state == stream_state::at_end) stream->state = stream_state::good;
}

static int read_byte(memory_stream *stream) {
    if (stream->pos < stream->contents->size())
        return static_cast<unsigned char>((*stream->contents)[stream->pos++]);
    if (stream->state == stream_state::good) stream->state = stream_state::at_end;
    return -1;
}

static int hook_getc(void *stream) {
    return call_fails(as_stream(stream)) ? -1 : read_byte(as_stream(stream));
}

static char *hook_fgets(char *buf, int size, void *stream) {
    int len = 0;
    if (call_fails(as_stream(stream))) return nullptr;
    for (int c; len < size - 1 && (c = read_byte(as_stream(stream))) >= 0;) {
        buf[len++] = char(c);
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
    leave_end(s);
    return byte;
}

static size_t hook_fwrite(const void *buf, size_t size, size_t count, void *stream) {
    auto *const s = as_stream(stream);
    if (!s->writes) return 0;
    if (call_fails(s)) --count;
    s->contents->replace(s->pos, std::min(size * count, s->contents->size() - s->pos),
                         static_cast<const char *>(buf), size * count);
    s->pos += size * count;
    return count;
}

static int hook_fseek(void *stream, ko_long_t offset, int origin) {
    auto *const s = as_stream(stream);
    const auto size = long(s->contents->size());
    const long base = origin == SEEK_SET ? 0 : origin == SEEK_END ? size : long(s->pos);
    if (base + offset < 0 || base + offset > size) return -1;
    s->pos = size_t(base + offset);
    leave_end(s);
    return 0;
}

static ko_long_t hook_ftell(void *stream) { return ko_long_t(as_stream(stream)->pos); }

file_hooks::file_hooks()
    : installed{
          {KO_EXT_FOPEN,  as_hook(hook_fopen) },
          {KO_EXT_FCLOSE, as_hook(hook_fclose)},
          {KO_EXT_FEOF,   as_hook(hook_feof)  },
          {KO_EXT_FERROR, as_hook(hook_ferror)},
          {KO_EXT_GETC,   as_hook(hook_getc)  },
          {KO_EXT_FGETC,  as_hook(hook_getc)  },
          {KO_EXT_FGETS,  as_hook(hook_fgets) },
          {KO_EXT_UNGETC, as_hook(hook_ungetc)},
          {KO_EXT_FWRITE, as_hook(hook_fwrite)},
          {KO_EXT_FSEEK,  as_hook(hook_fseek) },
          {KO_EXT_FTELL,  as_hook(hook_ftell) }
} {
    ::files = this;
}

file_hooks::~file_hooks() { EXPECT_EQ(streams, 0) << "streams left after " << calls << " calls"; }

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
    environment->vars[std::string(setting, size_t(equals - setting))] = equals + 1;
    return 0;
}

env_hooks::env_hooks()
    : installed{
          {KO_EXT_GETENV, as_hook(hook_getenv)},
          {KO_EXT_PUTENV, as_hook(hook_putenv)}
} {
    environment = this;
}

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
    return slurp(std::filesystem::path(path) / name);
}

std::string slurp(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string env(const char *name) {
    const char *const value = getenv(name);
    return value ? value : "";
}

std::string hex(std::string_view bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
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
