// Where data files are found: below the elements of KO_PATH, else below the installation root.
#include "kovautils.h"

#include "kovaextsa.h"

#include <errno.h>
#include <initializer_list>
#include <string.h>

static constexpr char dir_mark = '\xFF';        // stands for a backslash in composed names
static constexpr size_t search_path_max = 1024; // characters of KO_PATH that count

static void *logged(void *stream, const char *path) {
    const int why = errno; // for open_fault
    message_1(stream ? "Opened: %s" : "Could not open: %s", path);
    errno = why;
    return stream;
}

void *open_logged(const char *path) {
    void *const stream = hook_set(KO_EXT_FOPEN) ? ko_ext_fopen(path, "r") : std_open_data(path);
    return logged(stream, path);
}

static void *open_logged_std(const char *path) { return logged(std_open_data(path), path); }

bool open_plain_file(data_file *file, const char *path) {
    *file = no_data_file;
    file->number = std_open_plain(path, &file->mark);
    logged(file->is_open() ? file : nullptr, path);
    return file->is_open();
}

bool open_data_file(data_file *file, const char *path) {
    if (!stream_hooks_set()) return open_plain_file(file, path);
    *file = no_data_file;
    file->stream = open_logged(path);
    return file->is_open();
}

bool has_failed(const data_file &file) {
    if (!file.stream) return file.failed;
    // A host that opens streams but has no hook for their errors reports none.
    return hook_set(KO_EXT_FERROR) && ko_ext_ferror(file.stream);
}

void close_data_file(data_file *file) {
    if (file->stream) ko_ext_fclose(file->stream);
    if (file->number >= 0) std_close(file->number);
    *file = no_data_file;
}

int open_fault(void) {
    if (hook_set(KO_EXT_FOPEN)) return KO_EFILE;
    const int why = errno;
    const bool lacks = why == EMFILE || why == ENFILE || why == EIO || why == EINTR;
    return why == ENOMEM ? KO_ENOMEM : lacks ? KO_EIO : KO_EFILE;
}

// ---- Names that stay below the roots ------------------------------------------------------------

static bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

static bool is_alnum(char c) { return is_letter(c) || (c >= '0' && c <= '9'); }

// The file name of a locale object that a specification stands for: language and territory, a
// backslash, the number and the modifier.
static bool is_object_name(const char *name) {
    static constexpr char shape[] = "aa_aa\\nnnn";
    for (const char *want = shape; *want; ++want, ++name) {
        const bool fits = *want == 'a'   ? is_letter(*name)
                          : *want == 'n' ? is_alnum(*name)
                                         : *name == *want;
        if (!fits) return false;
    }
    for (int i = 0; i < 4 && is_alnum(*name); ++i)
        ++name;
    return !strcmp(name, ".lco");
}

static bool is_word(const char *name, size_t len, const char *word) { // in any case
    for (size_t i = 0; i < len; ++i)
        if ((name[i] | 0x20) != word[i]) return false;
    return !word[len];
}

// Windows opens a device under these names in every directory, whatever follows a point. They are
// refused everywhere, so that a name means the same on every system.
static bool is_device(const char *name) {
    static constexpr const char *devices[] = {"con", "prn", "aux", "nul", "conin$", "conout$"};
    size_t len = strcspn(name, ".");
    while (len && name[len - 1] == ' ')
        --len;
    for (const char *device : devices)
        if (is_word(name, len, device)) return true;
    if (len < 4 || (!is_word(name, 3, "com") && !is_word(name, 3, "lpt"))) return false;
    // The number of a port is a digit, or a raised one: one byte or two beyond ASCII.
    if (name[3] & 0x80) return len <= 5;
    return len == 4 && name[3] >= '0' && name[3] <= '9';
}

bool is_name_allowed(const char *name) { return !names_confined() || is_confined(name); }

bool is_confined(const char *name) {
    if (!name || !*name) return false;
    if (is_object_name(name)) return true;
    if (strstr(name, "..") || is_device(name)) return false;
    for (; *name; ++name)
        if (strchr("/\\:\xFF\x7F", *name) || (*name > 0 && *name < ' ')) return false;
    return true;
}

// The pieces, of which some may be NULL, joined in a new string; NULL without memory.
static char *join(std::initializer_list<const char *> pieces) {
    size_t len = 0;
    for (const char *piece : pieces)
        if (piece) len += strlen(piece);
    char *const path = static_cast<char *>(ko_ext_malloc(len + 1));
    if (!path) return nullptr;
    char *out = path;
    for (const char *piece : pieces) {
        const size_t piece_len = piece ? strlen(piece) : 0;
        if (!piece_len) continue;
        memcpy(out, piece, piece_len);
        out += piece_len;
    }
    *out = 0;
    return path;
}

namespace {
struct search {
    void *(*open)(const char *path);
    const char *name;
    char **found; // gets the path of the opened file; may be NULL
    int error;    // why nothing was opened
    // If set, the file is marked instead of opened.
    file_mark *mark;
    bool *firm;
    // If set, gets the file, in place of a stream.
    data_file *file;
    bool (*open_file)(data_file *file, const char *path);
};
} // namespace

// A file that the system could not open, although it may be there, ends the search: the next one
// would be another.
static void *attempt(search *s, const char *path) {
    if (s->mark) return std_mark(path, s->mark, s->firm) ? s->mark : nullptr;
    errno = 0;
    void *opened = nullptr;
    if (!s->file)
        opened = s->open(path); // NOLINT(clang-analyzer-*): set without file and mark
    else if (s->open_file(s->file, path))
        opened = s->file;
    if (!opened && open_fault() != KO_EFILE) s->error = open_fault();
    return opened;
}

// Opens a composed path and frees it unless it is handed to the caller.
static void *try_path(search *s, char *path) {
    if (!path) {
        s->error = KO_ENOMEM;
        return nullptr;
    }
    void *const stream = attempt(s, path);
    if (stream && s->found)
        *s->found = path;
    else
        ko_ext_free(path);
    return stream;
}

static void *not_found(search *s, const char *bare_name) {
    if (s->error) return nullptr;
    message_1("Could not open: %s", bare_name);
    s->error = KO_EFILE;
    return nullptr;
}

// Opens a name that is already a path; its marks become backslashes.
static void *open_direct(search *s) {
    char *const path = copy_string(s->name);
    if (!path) {
        s->error = KO_ENOMEM;
        return nullptr;
    }
    for (char *mark = path; (mark = strchr(mark, dir_mark)) != nullptr;)
        *mark = '\\';
    void *stream = attempt(s, path);
    if (stream && s->found) {
        *s->found = path;
        return stream;
    }
    if (!stream) stream = not_found(s, path);
    ko_ext_free(path);
    return stream;
}

static void *search_elements(search *s, const char *list) {
    // Copied, because the host may reuse the memory of its answer at the next call.
    char elements[search_path_max + 1];
    const size_t len = strnlen(list, search_path_max);
    memcpy(elements, list, len);
    elements[len] = 0;
    for (char *element = elements, *next; element && !s->error; element = next) {
        next = strchr(element, ';');
        if (next) *next++ = 0;
        if (!*element) continue;
        if (void *const stream = try_path(s, join({element, "\\", s->name}))) return stream;
    }
    return not_found(s, s->name);
}

static constexpr char default_root[] = "c:\\vantor";

// The value of VANTORDIR, or the default; neither ends in a backslash.
static const char *install_root(void) {
    const char *const root = ko_ext_getenv("VANTORDIR");
    return root && *root ? root : default_root;
}

static char *data_path(const char *dir, const char *subdir, const char *name) {
    return join({install_root(), "\\kova\\", dir, subdir, "\\", name});
}

void *open_profile(void) {
    char *const path = join({install_root(), "\\KOVA.INI"});
    if (!path) return nullptr;
    void *const file = std_open_data(path);
    ko_ext_free(path);
    return file;
}

static bool is_slash(char c) { return c == '\\' || c == '/'; }

static bool is_path(const char *name) {
    return strchr(name, dir_mark) || is_slash(*name) ||
           (is_letter(name[0]) && name[1] == ':' && is_slash(name[2]));
}

static void *find_file(search *s, const char *dir, const char *subdir) {
    if (!is_name_allowed(s->name)) return not_found(s, s->name);
    if (is_path(s->name)) return open_direct(s);
    const char *const list = ko_ext_getenv("KO_PATH");
    if (list && *list) return search_elements(s, list);
    for (const char *part : {subdir, ""}) {
        if (void *const stream = try_path(s, data_path(dir, part, s->name))) return stream;
        if (s->error) break;
    }
    return not_found(s, s->name);
}

bool find_data_file_below(data_file *file, const char *root, const char *name, const char *dir,
                          const char *subdir, char **path, int *error) {
    *path = nullptr;
    search s = {.name = name, .found = path, .file = file, .open_file = open_data_file};
    for (const char *part : {subdir, ""}) {
        if (!is_confined(name) || s.error) break;
        if (try_path(&s, join({root, "\\kova\\", dir, part, "\\", name}))) return true;
    }
    not_found(&s, name);
    *error = s.error;
    return false;
}

char *root_path(const char *root, const char *rest) {
    return join({root ? root : install_root(), "\\kova\\", rest});
}

// Where no handle was given the number is stored nowhere: an errno hook is not asked.
static void *no_stream(void *handle, int error) {
    return handle ? fail(handle, error == KO_EIO ? int{KO_EFILE} : error, nullptr) : nullptr;
}

void *path_search_why(const char *name, const char *dir, const char *subdir, char **path,
                      int *error) {
    if (path) *path = nullptr;
    search s = {.open = open_logged, .name = name, .found = path, .error = KO_OK};
    void *const stream = name ? find_file(&s, dir, subdir) : nullptr;
    if (!stream) *error = name ? s.error : KO_EFILE;
    return stream;
}

static bool find_by(search *s, const char *dir, const char *subdir, int *error) {
    const bool found = s->name && find_file(s, dir, subdir);
    if (!found) *error = s->name ? s->error : KO_EFILE;
    return found;
}

bool find_data_file(data_file *file, const char *name, const char *dir, const char *subdir,
                    char **path, int *error) {
    *path = nullptr;
    search s = {.name = name, .found = path, .file = file, .open_file = open_data_file};
    return find_by(&s, dir, subdir, error);
}

bool find_plain_file(data_file *file, const char *name, const char *dir, const char *subdir,
                     int *error) {
    search s = {.name = name, .file = file, .open_file = open_plain_file};
    return find_by(&s, dir, subdir, error);
}

bool path_search_mark(const char *name, const char *dir, const char *subdir, file_mark *mark) {
    if (is_logged()) return false; // every search must leave its lines in the log
    bool firm = false;
    search s = {.name = name, .mark = mark, .firm = &firm};
    return find_file(&s, dir, subdir) && firm;
}

void *ko_path_search(void *handle, const char *name, const char *dir, const char *subdir) {
    int error;
    void *const stream = path_search_why(name, dir, subdir, nullptr, &error);
    return stream ? stream : no_stream(handle, error);
}

void *ko_path_search_no_ext(void *handle, const char *name, const char *dir, const char *subdir) {
    search s = {.open = open_logged_std, .name = name, .found = nullptr, .error = KO_OK};
    void *const stream = name ? find_file(&s, dir, subdir) : nullptr;
    return stream ? stream : no_stream(handle, name ? s.error : KO_EFILE);
}

void *ko_open_file(void *handle, const char *name) {
    if (names_confined()) return no_stream(handle, KO_EFILE);
    search s = {.open = open_logged, .name = name, .found = nullptr, .error = KO_OK};
    void *const stream = name ? open_direct(&s) : nullptr;
    return stream ? stream : no_stream(handle, name ? s.error : KO_EFILE);
}

bool open_composed_file(data_file *file, const char *name) {
    search s = {.name = name, .file = file, .open_file = open_data_file};
    return name && open_direct(&s);
}
