// The list of shared locales: loading by specification, from anywhere and from one data root.
#include "host/kovahost_map.h"
#include "load/kovasetlc_load.h"
#include "record/kovaspec.h"

#include "kova_host.h"

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include <utility>

constexpr size_t setting_max = setting_room - 1;

namespace {
// The registry by which a specification became a file name, where no registry was named. As long as
// that registry is in force, the file name stays the same and the registry need not be read again.
struct spec_origin {
    char *spec; // NULL: none
    registry_stamp registry;
};

// A shared locale in the list.
struct lc_node {
    char *name; // file name or specification it was loaded under
    kovaloc *loc;
    int count; // outstanding loads
    lc_node *next;
    spec_origin origin; // of the name, for one of the specifications that led to it
    // Of ko_open_locale: where the record was looked for, NULL for ko_lc_load, and its flags.
    char *place;
    unsigned flags;
};
} // namespace
// Newest first. The list and everything in its nodes but name, loc, place and flags is read and
// changed under the state lock. A node stays where it is as long as a load of its record has not
// been given back.
static constinit lc_node *lc_node_root = nullptr;

// ---- Shared locales ----

// Does every name in the setting stay where data files are?
static bool is_setting_confined(const char *setting) {
    char name[setting_room];
    if (is_confined(setting)) return true;
    if (strlen(setting) > setting_max) return false;
    for (int c = KO_LC_CTYPE; c <= KO_LC_MESSAGES; c++) {
        setting_value(setting, c, name);
        if (!is_confined(name)) return false;
    }
    return true;
}

// An incomplete record is not shared with others, and a confined name must not reach a loaded
// record whose file it could not open.
static bool is_shared(const lc_node *node) {
    return !status_of(node->loc).load(std::memory_order_relaxed) &&
           (!names_confined() || is_setting_confined(node->name));
}

static bool is_of(const lc_node *node, const char *place, unsigned flags) {
    if (!place || !node->place) return place == node->place;
    return !strcmp(node->place, place) && node->flags == flags;
}

static lc_node *find_name(const state_lock &, const char *name, const char *place, unsigned flags) {
    lc_node *node = lc_node_root;
    while (node && (!is_of(node, place, flags) || strcmp(node->name, name) || !is_shared(node)))
        node = node->next;
    return node;
}

static bool still_holds(const spec_origin *origin, const char *spec, const registry_stamp &now) {
    return origin->spec && !strcmp(origin->spec, spec) && origin->registry == now;
}

// Changes the origin of a node that the caller holds. If there is no memory for it, the registry is
// read again next time.
static void keep_origin(lc_node *node, const char *spec, const registry_stamp &now) {
    char *copy = copy_string(spec);
    {
        const state_lock lock;
        spec_origin &origin = node->origin;
        if (!origin.spec || !(origin.registry == now)) { // else it serves another specification
            std::swap(origin.spec, copy);
            origin.registry = now;
        }
    }
    free_ptr(copy);
}

static lc_node *find_spec(const state_lock &, const char *spec, const registry_stamp &now) {
    lc_node *node = lc_node_root;
    while (node && (!still_holds(&node->origin, spec, now) || !is_shared(node)))
        node = node->next;
    return node;
}

static lc_node *make_node(const char *name, kovaloc *loc) {
    ext_block<lc_node> node(1);
    char *copy = node.p ? copy_string(name) : nullptr;
    if (!copy) return nullptr;
    *node.p = {copy, loc, 1, nullptr, {}, nullptr, 0};
    return node.release();
}

static void free_node(lc_node *node) {
    ko_ext_free(node->name);
    free_ptr(node->origin.spec);
    free_ptr(node->place);
    ko_ext_free(node);
}

// Counts one more load of a node's record; false for no node.
static bool hold(lc_node *node, ko_lc_t *result) {
    if (!node) return false;
    node->count++;
    *result = node->loc;
    return true;
}

// Lists the node of a record that has just been loaded. If another thread has listed the same one
// in the meantime, or a hook has, that one is handed out and the new one is freed.
static void list_node(lc_node *fresh, ko_lc_t *result) {
    {
        const state_lock lock;
        if (!hold(find_name(lock, fresh->name, fresh->place, fresh->flags), result)) {
            fresh->next = lc_node_root;
            lc_node_root = fresh;
            *result = fresh->loc;
            return;
        }
    }
    free_locale(fresh->loc);
    free_node(fresh);
}

// Takes the node out of the list if it was the last load; NULL otherwise.
static lc_node *unlist(const kovaloc *loc, node_state *state) {
    const state_lock lock;
    lc_node **link = &lc_node_root;
    while (*link && (*link)->loc != loc)
        link = &(*link)->next;
    lc_node *const node = *link;
    *state = !node ? node_missing : --node->count >= 1 ? node_in_use : node_dropped;
    if (*state != node_dropped) return nullptr;
    *link = node->next;
    return node;
}

node_state give_back_node(const kovaloc *loc) {
    node_state state;
    if (lc_node *const node = unlist(loc, &state)) free_node(node);
    return state;
}

// The object's name; a specification that the registry cannot resolve is itself the name.
static const char *object_name(const char *spec, const char *registry, char *room) {
    return spec_to_fname(spec, {registry, false}, nullptr, room) ? room : spec;
}

// Takes a record that is already held for a specification, while the registry is in memory.
static bool take_held(const char *spec, ko_lc_t *result) {
    const state_lock lock;
    const uint64_t now = lc_node_root ? registry_in_memory(lock) : 0;
    if (!now) return false;
    lc_node *node = lc_node_root;
    while (node && (node->origin.registry.in_memory != now || !node->origin.spec ||
                    strcmp(node->origin.spec, spec) || !is_shared(node)))
        node = node->next;
    return hold(node, result);
}

static bool is_any_listed(void) {
    const state_lock lock;
    return lc_node_root;
}

static bool take_spec(const char *spec, const registry_stamp &now, ko_lc_t *result) {
    const state_lock lock;
    return hold(find_spec(lock, spec, now), result);
}

static lc_node *take_name(const char *name, const char *place, unsigned flags, ko_lc_t *result) {
    const state_lock lock;
    lc_node *const node = find_name(lock, name, place, flags);
    return hold(node, result) ? node : nullptr;
}

[[gnu::noinline]] static int load_by_name(ko_lc_t *result, const char *spec, const char *registry,
                                          const char *dir) {
    char room[setting_room];
    registry_stamp now;
    const bool stamped = spec && !registry && is_any_listed() && stamp_registry(&now);
    if (stamped && take_spec(spec, now, result)) return 0;
    const char *const name = spec ? object_name(spec, registry, room) : nullptr;
    if (lc_node *const node = name ? take_name(name, nullptr, 0, result) : nullptr) {
        registry_stamp read; // the registry may have been replaced during the look-up
        if (stamped && stamp_registry(&read) && read == now) keep_origin(node, spec, now);
        return 0;
    }
    if (ko_create_null_locale_2(result)) return -1;
    kovaloc *loc = record(*result);
    if (!name) return fail(loc, KO_ENULL, -1);
    char *setting = set_categories(loc, KO_LC_ALL, name, dir);
    ko_destroystring(setting);
    if (!setting || error_of(loc)) return -1;
    lc_node *const node = make_node(name, loc);
    if (!node) return fail(loc, KO_ENOMEM, -1);
    list_node(node, result);
    return 0;
}

int ko_lc_load(ko_lc_t *result, const char *spec, const char *registry, const char *dir) {
    if (!result) return -1;
    if (spec && !registry && take_held(spec, result)) return 0;
    return load_by_name(result, spec, registry, dir);
}

// ---- Records of one data root ----

namespace {
// A call of ko_open_locale.
struct opening {
    const char *root;
    unsigned flags;
    char *registry; // of the root
    char *place;    // the root, or for NULL everything on which the usual search depends
    char name[setting_room];
    unsigned failures; // before the call

    opening(const char *stated_root, unsigned stated_flags)
        : root(stated_root), flags(stated_flags), registry(), place(), name(),
          failures(failed_allocations()) {}
    opening(const opening &) = delete;
    opening &operator=(const opening &) = delete;
    ~opening() {
        free_ptr(registry);
        free_ptr(place);
    }
};
} // namespace

static bool find_place(opening *o) {
    if (o->root) {
        o->place = copy_string(o->root);
        o->registry = root_path(o->root, "cm3\\registry");
        return o->place && o->registry;
    }
    const char *const list = ko_ext_getenv("KO_PATH");
    char *const searched = copy_string(list ? list : "");
    char *const installed = root_path(nullptr, "");
    if (searched && installed) o->place = join_path(searched, "\n", installed);
    free_ptr(searched);
    free_ptr(installed);
    return o->place != nullptr;
}

// Why a record is not handed out, 0 for a complete one.
static int open_error(const opening *o, kovaloc *loc, bool loaded) {
    if (failed_allocations() != o->failures) return KO_ENOMEM; // whatever it was taken for
    if (loc->status == KO_EFILE) return KO_ENOLOCALE;
    if (loc->status == KO_EIO) return KO_EIO; // the rest looks damaged
    const int word = error_of(loc);
    if (word && word != KO_ECODESET) return word;
    if (loc->status) return loc->status;
    return word || loaded ? word : int{KO_EOBJECT};
}

static int fill_opened(opening *o, kovaloc *loc) {
    loc->origin = {.root = o->root ? copy_string(o->root) : nullptr,
                   .confined = (o->flags & KO_OPEN_SECURE_NAMES) != 0,
                   .verified = (o->flags & KO_OPEN_VERIFY) != 0};
    if (o->root && !loc->origin.root) return KO_ENOMEM;
    char *const setting = set_categories(loc, KO_LC_ALL, o->name, nullptr);
    const int error = open_error(o, loc, setting != nullptr);
    ko_destroystring(setting);
    if (error) return error;
    loc->map_error = make_host_map(loc, {o->registry, o->root != nullptr});
    return loc->map_error == KO_ENOMEM || loc->map_error == KO_EIO ? loc->map_error : KO_OK;
}

// Names from the environment may change, so records of such names are not shared.
static int list_opened(opening *o, kovaloc *loc, ko_lc_t *result) {
    *result = loc;
    if (!*o->name) return KO_OK;
    lc_node *const node = make_node(o->name, loc);
    if (!node) return KO_ENOMEM;
    node->flags = o->flags;
    node->place = std::exchange(o->place, nullptr);
    list_node(node, result);
    return KO_OK;
}

static int load_opened(opening *o, ko_lc_t *result) {
    const errno_guard kept(nullptr); // of a host's hook that has one word for all handles
    ko_lc_t made;
    if (ko_create_null_locale_2(&made)) return KO_ENOMEM;
    int error = fill_opened(o, record(made));
    if (!error) error = list_opened(o, record(made), result);
    if (!error) return KO_OK;
    free_locale(record(made));
    *result = nullptr;
    return error;
}

int ko_open_locale(ko_lc_t *result, const char *root, const char *spec, unsigned flags) {
    if (!result) return KO_ENULL;
    *result = nullptr;
    if (!spec) return KO_ENULL;
    if (flags & ~unsigned{KO_OPEN_VERIFY | KO_OPEN_SECURE_NAMES}) return KO_ERANGE;
    if (strlen(spec) > setting_max) return KO_ERANGE;
    opening o(root, flags);
    if (!find_place(&o)) return KO_ENOMEM;
    int fault = KO_OK;
    if (!spec_to_fname(spec, {o.registry, root != nullptr, &fault}, nullptr, o.name)) {
        if (fault) return fault;
        strcpy(o.name, spec);
    }
    const bool confined = root || flags & KO_OPEN_SECURE_NAMES || names_confined();
    if (*o.name && confined && !is_setting_confined(o.name)) return KO_ENOLOCALE;
    if (*o.name && take_name(o.name, o.place, flags, result)) return KO_OK;
    return load_opened(&o, result);
}

void ko_close_locale(ko_lc_t loc) { ko_lc_unload(loc); }

void ko_lc_unload(ko_lc_t handle) {
    if (!handle || is_error_record(handle)) return;
    if (give_back_node(record(handle)) != node_in_use) free_locale(record(handle));
}

static void show(const char *format, uintmax_t value) {
    char line[64];
    snprintf(line, sizeof line, format, value);
    ko_message(line);
}

namespace {
struct shown_node {
    char name[setting_room];
    const kovaloc *loc;
    int count;
};
} // namespace

static bool copy_node(unsigned number, shown_node *shown) {
    const state_lock lock;
    const lc_node *node = lc_node_root;
    for (; node && number; --number)
        node = node->next;
    if (!node) return false;
    *shown = {{}, node->loc, node->count};
    snprintf(shown->name, sizeof shown->name, "%s", node->name);
    return true;
}

// The log is written without the lock; what other threads load or unload in between shows.
void ko_display_lc_node_list(void) {
    shown_node shown;
    ko_message(is_any_listed() ? "*** The lc node list" : "*** No lc nodes saved");
    for (unsigned number = 0; copy_node(number, &shown); ++number) {
        show("    %" PRIuMAX, number);
        message_1("        name: %s", shown.name);
        show("        loc:  0x%" PRIxMAX, reinterpret_cast<uintptr_t>(shown.loc));
        show("        count:  %" PRIuMAX, uintmax_t(shown.count));
    }
}
