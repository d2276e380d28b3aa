// Loading: choosing the object file of a category and reading it.
#include "load/kovasetlc_load.h"

#include "locale/kovaextsa.h"
#include "locale/kovaobject.h"

#include <errno.h>
#include <string.h>

constexpr int line_bound = 127;
constexpr int direct_room = 128; // directory and file name of a default locale
constexpr size_t setting_max = setting_room - 1;
constexpr char default_name[] = "default.lco";
constexpr char native_name[] = "native";
constexpr char path_sep[] = "\\";

// ---- Objects in memory ----

namespace {
// The file that the last category came from. All six usually come from the same file: it is opened,
// read and searched once, but while openings are logged, it is opened for each category.
struct object_image {
    char name[setting_room]; // under which it was looked for
    char *path;
    unsigned char *bytes;
    const unsigned char *end;
    const unsigned char *sections[8]; // after the marker, NULL without one
    char codeset[codeset_room];
    object_facts facts;
    int error; // why the header is refused

    object_image() : name(), path(), bytes(), end(), sections(), codeset(), facts(), error() {}
    object_image(const object_image &) = delete;
    object_image &operator=(const object_image &) = delete;
    ~object_image() {
        free_ptr(path);
        free_ptr(bytes);
    }
};
} // namespace

static int marker_at(const unsigned char *at, const unsigned char *end, size_t *len) {
    for (int c = KO_LC_CTYPE; c <= KO_LC_MESSAGES; c++) {
        *len = strlen(category_markers[c]);
        if (size_t(end - at) < *len) continue;
        if (!memcmp(at, category_markers[c], *len)) return c;
    }
    return 0;
}

// Would reading bounded lines from the start begin a line here? A line longer than the bound counts
// as several.
static bool line_begins(const unsigned char *at, const unsigned char *start) {
    const unsigned char *line = at;
    while (line > start && line[-1] != '\n')
        line--;
    return (at - line) % line_bound == 0;
}

// Finds the first marker line of every section in one search. It scans back to the start of a line
// only for complete markers, of which a line contains only one, so the search stays linear.
static void find_sections(object_image *image, const unsigned char *start) {
    const unsigned char *at = start;
    while (at < image->end) {
        at = static_cast<const unsigned char *>(memchr(at, '#', size_t(image->end - at)));
        if (!at) return;
        size_t len;
        const int c = marker_at(at, image->end, &len);
        if (c && !image->sections[c] && line_begins(at, start)) image->sections[c] = at + len;
        at++;
    }
}

static void forget_image(object_image *image) {
    free_ptr(image->path);
    free_ptr(image->bytes);
    image->path = nullptr;
    image->bytes = nullptr;
    memset(image->sections, 0, sizeof image->sections);
    image->error = 0;
}

static bool is_intact(const object_image *image) {
    object_facts facts;
    uint64_t hash;
    return read_object_facts(image->bytes, size_t(image->end - image->bytes), &facts, &hash) &&
           is_content_intact(&facts, hash);
}

// Takes ownership of the path. False without memory.
static bool read_image(object_image *image, data_file *file, char *path, bool verified) {
    if (image->bytes && path && image->path && !strcmp(path, image->path)) {
        ko_ext_free(path);
        return true;
    }
    forget_image(image);
    size_t size = 0;
    image->path = path;
    image->bytes = read_data_file(file, &size);
    if (!image->bytes) return false;
    image->end = image->bytes + size;
    text_in in = {.pos = image->bytes, .end = image->end};
    if (!read_file_header(&in, image->codeset, &image->facts, &image->error)) return true;
    find_sections(image, in.pos);
    if (verified && !is_intact(image)) image->error = KO_EOBJECT;
    return true;
}

// ---- One category ----

static const char *find_text(const char *in, const char *text) {
    const size_t len = strlen(text);
    while ((in = strchr(in, *text)) && strncmp(in, text, len))
        in++;
    return in;
}

// Gets the part of a setting that names a category, or the whole setting.
void setting_value(const char *setting, int category, char *name) {
    const char *at = find_text(setting, category_params[category]);
    if (at) at = strchr(at, '=');
    if (!at) {
        strcpy(name, setting);
        return;
    }
    do
        at++;
    while (*at == ' ');
    size_t len = strcspn(at, " ");
    if (len > locname_room) len = locname_room;
    memcpy(name, at, len);
    name[len] = 0;
}

// Chooses the name of the category's object; false if the environment's is too long.
static bool choose_name(const char *setting, int category, char *name) {
    if (*setting) {
        setting_value(setting, category, name);
        return true;
    }
    const char *const variables[] = {"KO_ALL", category_params[category], "KO_LANG"};
    for (const char *variable : variables) {
        const char *value = ko_ext_getenv(variable);
        if (!value || !*value) continue;
        if (strlen(value) > setting_max) return false;
        strcpy(name, value);
        return true;
    }
    strcpy(name, default_name);
    return true;
}

char *join_path(const char *dir, const char *separator, const char *name) {
    char *path =
        static_cast<char *>(ko_ext_malloc(strlen(dir) + strlen(separator) + strlen(name) + 1));
    if (path) strcat(strcat(strcpy(path, dir), separator), name);
    return path;
}

// Notes why no object was found. A file that does not exist leaves the record's error word alone.
static bool no_object(kovaloc *loc, int error) {
    if (error == KO_ENOMEM) return fail(loc, KO_ENOMEM, false);
    if (error == KO_EIO) note_trouble(loc, KO_EIO);
    return false;
}

// Opens the category's object and gets its path.
static bool open_object(kovaloc *loc, const char *name, const char *dir, data_file *file,
                        char **path) {
    const char *const searched = strcmp(name, native_name) ? name : default_name;
    const char *const root = loc->origin.root;
    *path = nullptr;
    if (!root && loc->origin.confined && !is_confined(name)) return false;
    if (!root && dir && *dir) {
        if (!is_name_allowed(name)) return false;
        *path = join_path(dir, path_sep, name);
        if (!*path) return fail(loc, KO_ENOMEM, false);
        errno = 0;
        return open_data_file(file, *path) || no_object(loc, open_fault());
    }
    int error = KO_OK;
    const bool found = root ? find_data_file_below(file, root, searched, "lc", "11", path, &error)
                            : find_data_file(file, searched, "lc", "11", path, &error);
    return found || no_object(loc, error);
}

static void describe_category(kovaloc *loc, int category, const char *codeset,
                              const object_facts *facts) {
    memcpy(loc->codeset[category - 2], codeset, codeset_room);
    if (category == KO_LC_COLLATE) loc->order_facts = *facts;
}

static int read_from_image(kovaloc *loc, int category, const object_image *image) {
    if (image->error) return fail(loc, image->error, -1);
    describe_category(loc, category, image->codeset, &image->facts);
    const unsigned char *section = image->sections[category];
    if (!section) return fail(loc, KO_EOBJECT, -1);
    text_in in = {.pos = section, .end = image->end};
    return read_category(&in, loc, category);
}

static int read_from_stream(kovaloc *loc, int category, void *stream) {
    text_in in = {.stream = stream};
    char line[line_bound + 1], codeset[codeset_room] = {};
    object_facts facts = {};
    int error = 0;
    if (!read_file_header(&in, codeset, &facts, &error)) return fail(loc, error, -1);
    describe_category(loc, category, codeset, &facts);
    do {
        if (!in_gets(&in, line, line_bound)) return fail(loc, KO_EOBJECT, -1);
    } while (strcmp(line, category_markers[category]));
    return read_category(&in, loc, category);
}

// Replaces the category by the file's, or without an open file by the image's. Takes ownership of
// the path.
static int replace_category(kovaloc *loc, int category, data_file *file, char *path,
                            object_image *image) {
    ko_free_category(loc, category);
    if (ko_make_null_category(loc, category)) {
        free_ptr(path);
        return -1;
    }
    if (stream_hooks_set() && !loc->origin.verified) {
        free_ptr(path);
        return read_from_stream(loc, category, file->stream);
    }
    if (file->is_open() && !read_image(image, file, path, loc->origin.verified))
        return fail(loc, KO_ENOMEM, -1);
    return read_from_image(loc, category, image);
}

static int load_category(kovaloc *loc, int category, const char *setting, const char *dir,
                         object_image *image) {
    char name[setting_room], *path = nullptr;
    if (!choose_name(setting, category, name)) return fail(loc, KO_ERANGE, -1);
    data_file file = no_data_file;
    const unsigned failures = failed_allocations();
    if (!image->bytes || strcmp(image->name, name) || is_logged()) {
        strcpy(image->name, name);
        if (!open_object(loc, name, dir, &file, &path)) {
            free_ptr(path);
            if (failed_allocations() == failures) note_trouble(loc, KO_EFILE);
            return -1;
        }
    }
    const int result = replace_category(loc, category, &file, path, image);
    if (file.is_open()) {
        if (has_failed(file)) note_trouble(loc, KO_EIO);
        close_data_file(&file);
    }
    if (result) {
        reset_category(loc, category);
        return -1;
    }
    const size_t len = strnlen(name, locname_room - 1);
    memcpy(loc->locname[category - 2], name, len);
    return 0;
}

// ---- Settings ----

static void query_locname(const kovaloc *loc, int category, char *setting) {
    if (category != KO_LC_ALL) {
        strcpy(setting, loc->locname[category - 2]);
        return;
    }
    *setting = 0;
    for (int c = KO_LC_CTYPE; c <= KO_LC_MESSAGES; c++) {
        // There is room: six names of at most 11 characters and six values of at most 31.
        strcat(strcat(setting, category_params[c]), " = ");
        strcat(strcat(setting, loc->locname[c - 2]), " ; ");
    }
}

// Derives the record's dependent data after a failure, so that they describe what is there now; the
// error word keeps the reason of the failure.
static void update_after_failure(kovaloc *loc) {
    const errno_guard kept(loc);
    update_locale(loc);
    init_locale_info(loc);
}

// Loads the categories from first to last; the bytes of their file are freed before anything is
// derived.
static int load_sections(kovaloc *loc, int first, int last, const char *name, const char *dir) {
    object_image image;
    for (int c = first; c <= last; c++) {
        if (load_category(loc, c, name, dir, &image)) return -1;
    }
    return 0;
}

static int load_categories(kovaloc *loc, int category, const char *name, const char *dir) {
    const int first = category == KO_LC_ALL ? KO_LC_CTYPE : category;
    const int last = category == KO_LC_ALL ? KO_LC_MESSAGES : category;
    if (load_sections(loc, first, last, name, dir)) {
        if (!error_of(loc)) set_error(loc, KO_ECODESET);
        update_after_failure(loc);
        return -1;
    }
    update_locale(loc);
    if (init_locale_info(loc) >= 0) return 0;
    if (!error_of(loc)) set_error(loc, KO_ECODESET);
    return -1;
}

char *set_categories(kovaloc *loc, int category, const char *name, const char *dir) {
    if (is_error_record(loc)) return nullptr; // it keeps its error and nothing else
    ext_block<char> setting(setting_room);
    if (!setting.p) return fail(loc, KO_ENOMEM, nullptr);
    if (category != KO_LC_ALL && !is_category(category)) return fail(loc, KO_ERANGE, nullptr);
    if (name) {
        if (strlen(name) > setting_max) return fail(loc, KO_ERANGE, nullptr);
        const memory_watch watch(loc);
        if (load_categories(loc, category, name, dir)) return nullptr;
    }
    query_locname(loc, category, setting.p);
    return setting.release();
}

char *ko_setlocale_2(ko_lc_t loc, int category, const char *name) {
    if (!loc) return fail(loc, KO_ENULL, nullptr);
    const auto status = status_of(record(loc));
    const int before = status;
    char *setting = set_categories(record(loc), category, name, nullptr);
    if (status == KO_EFILE) status = before; // the categories are unchanged
    return setting;
}

// ---- The default locale ----

static void *open_default(const char *dir) {
    char path[direct_room];
    if (dir && strlen(dir) + strlen(default_name) < sizeof path) {
        strcat(strcpy(path, dir), default_name);
        if (void *stream = open_logged(path)) return stream;
    }
    return ko_path_search(nullptr, default_name, "lc", "11");
}

// Reads the whole object and closes the stream.
static int read_object(kovaloc *loc, void *stream) {
    text_image image;
    const bool opened = open_image(stream, &image);
    const int result = opened ? read_locale_file(&image.in, loc) : fail(loc, KO_ENOMEM, -1);
    const bool closed = opened && !image.bytes && !image.in.stream; // the reader has closed it
    close_image(&image);
    if (!closed) {
        note_read_error(loc, stream);
        ko_ext_fclose(stream);
    }
    return result;
}

int ko_createlocale_2(ko_lc_t *result) { return ko_createlocale2_2(result, nullptr); }

int ko_createlocale2_2(ko_lc_t *result, const char *dir) {
    if (ko_create_null_locale_2(result)) return -1;
    kovaloc *loc = record(*result);
    void *stream = open_default(dir);
    if (!stream) {
        free_locale(loc);
        return hand_out_filer(result);
    }
    const memory_watch watch(loc);
    if (read_object(loc, stream)) {
        update_after_failure(loc);
        return -1;
    }
    update_locale(loc);
    return init_locale_info(loc) < 0 ? -1 : 0;
}
