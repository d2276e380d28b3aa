// What a data root holds: the locales whose objects lie in its directories.
#include "load/kovasetlc_load.h"
#include "record/kovaspec.h"

#include "kova_host.h"

#include <errno.h>
#include <string.h>

// ---- Names ----

namespace {
// Names of one length at most, ordered by their bytes.
constexpr size_t name_room = 24; // "ll_tt\\hhhhmmmm.lco"
struct name_list {
    char (*names)[name_room];
    size_t count, room;
    const char *directory; // put before each name, with a backslash; "" for none

    name_list() : names(), count(), room(), directory("") {}
    name_list(const name_list &) = delete;
    name_list &operator=(const name_list &) = delete;
    ~name_list() { free_ptr(names); }
};
} // namespace

static bool make_room(name_list *list) {
    if (list->count < list->room) return true;
    const size_t room = list->room ? list->room * 2 : 64;
    ext_block<char[name_room]> larger(room);
    if (!larger.p) return false;
    if (list->count) memcpy(larger.p, list->names, list->count * name_room);
    free_ptr(list->names);
    list->names = larger.release();
    list->room = room;
    return true;
}

// Sinks the name at the top of a heap to its place.
static void sink(char (*names)[name_room], size_t top, size_t count) {
    for (size_t child; (child = 2 * top + 1) < count; top = child) {
        if (child + 1 < count && strcmp(names[child], names[child + 1]) < 0) ++child;
        if (strcmp(names[top], names[child]) >= 0) return;
        char kept[name_room];
        memcpy(kept, names[top], name_room);
        memcpy(names[top], names[child], name_room);
        memcpy(names[child], kept, name_room);
    }
}

// In place, for the C library's sort may take memory that is not the host's.
static void sort_names(name_list *list) {
    char(*const names)[name_room] = list->names;
    for (size_t top = list->count / 2; top-- > 0;)
        sink(names, top, list->count);
    for (size_t count = list->count; count-- > 1;) {
        char last[name_room];
        memcpy(last, names[count], name_room);
        memcpy(names[count], names[0], name_room);
        memcpy(names[0], last, name_room);
        sink(names, 0, count);
    }
}

static bool is_lower(char c) { return c >= 'a' && c <= 'z'; }

static bool is_directory_name(const char *name) {
    return is_lower(name[0]) && is_lower(name[1]) && name[2] == '_' && is_lower(name[3]) &&
           is_lower(name[4]) && !name[5];
}

static bool is_file_name(const char *name) {
    size_t stem = 0;
    for (; is_spec_digit(name[stem]) || is_spec_letter(name[stem]); ++stem)
        if (stem < 4 && !is_hex(name[stem])) return false;
    return stem >= 4 && stem <= 8 && !strcmp(name + stem, ".lco");
}

static int add_name(void *user, const char *name) {
    name_list *const list = static_cast<name_list *>(user);
    const size_t before = strlen(list->directory);
    if (before ? !is_file_name(name) : !is_directory_name(name)) return 0;
    if (!make_room(list)) return KO_ENOMEM;
    char *const out = list->names[list->count++];
    memcpy(out, list->directory, before);
    if (before) out[before] = '\\';
    strcpy(out + before + (before != 0), name);
    return 0;
}

// The names of the objects in a directory of the root.
static int list_files(const char *objects, const char *directory, name_list *files) {
    char *const path = join_path(objects, "\\", directory);
    if (!path) return KO_ENOMEM;
    files->directory = directory;
    const int error = std_list_names(path, add_name, files);
    ko_ext_free(path);
    return error == KO_EFILE ? KO_OK : error; // a file of such a name, or it has gone
}

// ---- Entries ----

static int read_codeset(const char *objects, const char *file, char *codeset) {
    char *const path = join_path(objects, "\\", file);
    if (!path) return KO_ENOMEM;
    FILE *const stream = std_open_data(path);
    ko_ext_free(path);
    if (!stream) return errno == ENOMEM ? KO_ENOMEM : KO_EIO;
    text_in in = {.stream = stream};
    object_facts facts = {};
    int error = KO_OK;
    const bool read = read_file_header(&in, codeset, &facts, &error);
    if (!error && (!read || in_getc(&in) < 0)) error = KO_EOBJECT; // no object ends here
    if (ko_ext_ferror(stream)) error = KO_EIO;
    ko_ext_fclose(stream);
    return error;
}

// The specification by which the registry leads to a file, or the file's name itself.
static void name_locale(const char *file, const char *codeset, const char *modifier,
                        const registry_choice &registry, char *spec) {
    char name[spec_room], fname[spec_room];
    char *out = name;
    for (int i = 0; i < 5; ++i)
        *out++ = i < 3 ? file[i] : char(file[i] & ~0x20);
    *out++ = '.';
    strcpy(out, codeset);
    if (*modifier) strcat(strcat(out, "@"), modifier);
    const bool leads = *codeset && spec_to_fname(name, registry, nullptr, fname);
    strcpy(spec, leads && !strcmp(fname, file) ? name : file);
}

static int tell_locales(const char *objects, const char *registry, const name_list *files,
                        int (*each)(void *user, const ko_locale_entry *entry), void *user) {
    for (size_t i = 0; i < files->count; ++i) {
        const char *const file = files->names[i];
        char spec[spec_room], codeset[codeset_room] = {}, modifier[5] = {};
        memcpy(modifier, file + 10, strcspn(file + 10, "."));
        const int error = read_codeset(objects, file, codeset);
        if (error == KO_ENOMEM) return error;
        if (error) codeset[0] = 0;
        int fault = KO_OK;
        name_locale(file, codeset, modifier, {registry, true, &fault}, spec);
        if (fault) return fault;
        const ko_locale_entry entry = {spec, codeset, modifier, error};
        if (const int result = each(user, &entry)) return result;
    }
    return KO_OK;
}

static int list_all(const char *objects, name_list *files) {
    name_list directories;
    const int error = std_list_names(objects, add_name, &directories);
    if (error) return error == KO_EFILE ? int{KO_ENOLOCALE} : error;
    for (size_t i = 0; i < directories.count; ++i)
        if (const int unread = list_files(objects, directories.names[i], files)) return unread;
    sort_names(files);
    return KO_OK;
}

int ko_list_locales(const char *root, int (*each)(void *user, const ko_locale_entry *entry),
                    void *user) {
    if (!each) return KO_ENULL;
    if (stream_hooks_set()) return KO_EFILE;
    name_list files;
    char *const objects = root_path(root, "lc11"), *const registry =
                                                       root_path(root, "cm3\\registry");
    int error = objects && registry ? list_all(objects, &files) : KO_ENOMEM;
    if (!error) error = tell_locales(objects, registry, &files, each, user);
    free_ptr(objects);
    free_ptr(registry);
    return error;
}
