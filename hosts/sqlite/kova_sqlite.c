/* The SQLite extension: its entry, its collations, and functions that tell about locales. */
#include "kova_sqlite.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

SQLITE_EXTENSION_INIT1

/* ---- Arguments and results ---- */

connection *connection_of(sqlite3_context *ctx) { return sqlite3_user_data(ctx); }

void fail_with(sqlite3_context *ctx, const char *format, ...) {
    va_list values;
    va_start(values, format);
    char *text = sqlite3_vmprintf(format, values);
    va_end(values);
    if (text)
        sqlite3_result_error(ctx, text, -1);
    else
        sqlite3_result_error_nomem(ctx);
    sqlite3_free(text);
}

void fail_by(sqlite3_context *ctx, int error, const char *about) {
    if (error == KO_ENOMEM)
        sqlite3_result_error_nomem(ctx);
    else
        fail_with(ctx, "kova: %s: %s", about, ko_error_text(error));
}

static void fail_by_locale(sqlite3_context *ctx, int error, const char *name) {
    char *spec = error == KO_ENOMEM ? NULL : whole_spec(name);
    fail_by(ctx, spec ? error : KO_ENOMEM, spec);
    sqlite3_free(spec);
}

void *result_room(sqlite3_context *ctx, int64_t size) {
    sqlite3 *db = sqlite3_context_db_handle(ctx);
    if (size > sqlite3_limit(db, SQLITE_LIMIT_LENGTH, -1)) {
        sqlite3_result_error_toobig(ctx);
        return NULL;
    }
    void *room = sqlite3_malloc64(size ? (sqlite3_uint64)size : 1);
    if (!room) sqlite3_result_error_nomem(ctx);
    return room;
}

bool take_text(sqlite3_context *ctx, sqlite3_value *value, text_arg *text) {
    text->s = (const char *)sqlite3_value_text(value);
    text->n = (size_t)sqlite3_value_bytes(value);
    if (text->s || (sqlite3_value_type(value) == SQLITE_BLOB && !text->n)) return true;
    sqlite3_result_error_nomem(ctx);
    return false;
}

const char *take_name(sqlite3_context *ctx, sqlite3_value *value, const char *what) {
    text_arg name;
    if (!take_text(ctx, value, &name)) return NULL;
    if (name.n && strlen(name.s) == name.n) return name.s;
    fail_with(ctx, "kova: %s is %s", what, name.n ? "cut off by a null character" : "empty");
    return NULL;
}

ko_lc_t take_locale(sqlite3_context *ctx, sqlite3_value *value) {
    held_locale *held;
    const char *name = take_name(ctx, value, "the name of the locale");
    if (!name) return NULL;
    const int error = hold_locale(connection_of(ctx), name, &held);
    if (!error) return held->loc;
    fail_by_locale(ctx, error, name);
    return NULL;
}

bool has_null(int count, sqlite3_value **values) {
    for (int i = 0; i < count; i++)
        if (sqlite3_value_type(values[i]) == SQLITE_NULL) return true;
    return false;
}

/* ---- Collations ---- */

static int compare_utf8(void *held, int an, const void *a, int bn, const void *b) {
    return ko_utf8scoll(((held_locale *)held)->loc, a, (size_t)an, b, (size_t)bn);
}

static int compare_utf16(void *held, int an, const void *a, int bn, const void *b) {
    return ko_utf16scoll(((held_locale *)held)->loc, a, (size_t)an / 2, b, (size_t)bn / 2);
}

static void drop_collation(void *held) { drop_connection(((held_locale *)held)->of); }

/* Registers a collation for both encodings, so that SQLite converts no text to compare it. */
static int register_collation(connection *of, const char *collation, held_locale *held) {
    static const struct {
        int encoding;
        int (*compare)(void *, int, const void *, int, const void *);
    } rows[] = {
        {SQLITE_UTF8,          compare_utf8 },
        {SQLITE_UTF16_ALIGNED, compare_utf16}
    };
    int rc = SQLITE_OK;
    for (size_t i = 0; i < sizeof rows / sizeof *rows && rc == SQLITE_OK; i++) {
        of->users++;
        rc = sqlite3_create_collation_v2(of->db, collation, rows[i].encoding, held, rows[i].compare,
                                         drop_collation);
        if (rc != SQLITE_OK) drop_connection(of); /* SQLite calls no xDestroy then */
    }
    return rc;
}

#define COLLATION_PREFIX "kova_"
enum { prefix_length = sizeof COLLATION_PREFIX - 1, name_room = 400 };

/* Writes the name of the locale that a collation's name stands for: after "kova_", either what the
 * functions take, with "." or "@" in it, or language, territory and modifier joined by "_", then
 * perhaps "$" and a code set, in which "_" is "-". False: it is none of ours, or too long. */
static bool name_of_collation(const char *collation, char *name) {
    if (sqlite3_strnicmp(collation, COLLATION_PREFIX, prefix_length)) return false;
    const char *rest = collation + prefix_length;
    if (!*rest || strlen(rest) >= name_room - 1) return false;
    if (strpbrk(rest, ".@")) {
        strcpy(name, rest);
        return true;
    }
    const int place = (int)strcspn(rest, "$");
    const int language = (int)strcspn(rest, "_$");
    int territory = 0; /* with its "_" */
    if (rest[language] == '_') territory = 1 + (int)strcspn(rest + language + 1, "_$");
    const int modifier = language + territory; /* of its "_" */
    const int length = language + (territory > 1 ? territory : 0);
    int at = sprintf(name, "%.*s", length, rest);
    if (rest[place]) {
        name[at++] = '.';
        for (const char *c = rest + place + 1; *c; c++)
            name[at++] = *c == '_' ? '-' : *c;
        name[at] = 0;
    }
    if (modifier + 1 < place)
        sprintf(name + at, "@%.*s", place - modifier - 1, rest + modifier + 1);
    return true;
}

/* SQLite asks for a collation that it does not know. It has no way to hear of an error here: where
 * none is registered, the statement fails with "no such collation sequence"; the log has the
 * reason, and kova_collation() gives it as an error. */
static void collation_needed(void *user, sqlite3 *db, int encoding, const char *collation) {
    connection *of = user;
    char name[name_room];
    held_locale *held;
    (void)db, (void)encoding;
    if (!name_of_collation(collation, name)) return;
    const int error = hold_locale(of, name, &held);
    if (error)
        sqlite3_log(error == KO_ENOMEM ? SQLITE_NOMEM : SQLITE_ERROR, "kova: collation %s: %s",
                    collation, ko_error_text(error));
    else
        register_collation(of, collation, held);
}

/* kova_collation(name): registers a collation now, and returns its name. */
static void collation_function(sqlite3_context *ctx, int count, sqlite3_value **values) {
    char name[name_room];
    held_locale *held;
    if (has_null(count, values)) return;
    const char *collation = take_name(ctx, values[0], "the name of the collation");
    if (!collation) return;
    if (!name_of_collation(collation, name)) {
        fail_with(ctx, "kova: %s is not the name of a collation, such as kova_de_DE", collation);
        return;
    }
    const int error = hold_locale(connection_of(ctx), name, &held);
    if (error) {
        fail_by_locale(ctx, error, name);
        return;
    }
    const int rc = register_collation(connection_of(ctx), collation, held);
    if (rc == SQLITE_OK)
        sqlite3_result_value(ctx, values[0]);
    else
        sqlite3_result_error_code(ctx, rc);
}

/* ---- Functions that tell about locales ---- */

/* kova_version(locale) */
static void version_function(sqlite3_context *ctx, int count, sqlite3_value **values) {
    char version[400];
    if (has_null(count, values)) return;
    ko_lc_t loc = take_locale(ctx, values[0]);
    if (!loc) return;
    const int length = ko_locale_version(loc, version, sizeof version);
    if (length < 0)
        fail_by(ctx, -length, (const char *)sqlite3_value_text(values[0]));
    else
        sqlite3_result_text(ctx, version, -1, SQLITE_TRANSIENT);
}

/* kova_root() returns the connection's data root, NULL where the library searches; kova_root(dir)
 * sets it. What is held already stays as it is, so its root must not change. */
static void root_function(sqlite3_context *ctx, int count, sqlite3_value **values) {
    connection *of = connection_of(ctx);
    if (count && has_null(count, values)) {
        sqlite3_result_error(ctx, "kova: the data root is NULL", -1);
        return;
    }
    if (count) {
        const char *root = take_name(ctx, values[0], "the name of the data root");
        if (!root) return;
        const bool same = of->root && !strcmp(of->root, root);
        if (!same && (of->locales || of->conversions)) {
            sqlite3_result_error(ctx,
                                 "kova: this connection already uses locales of another data "
                                 "root",
                                 -1);
            return;
        }
        char *copy = sqlite3_mprintf("%s", root);
        if (!copy) {
            sqlite3_result_error_nomem(ctx);
            return;
        }
        sqlite3_free(of->root);
        of->root = copy;
    }
    sqlite3_result_text(ctx, of->root, -1, SQLITE_TRANSIENT);
}

/* ---- Registration ---- */

/* Pure functions may stand in indexes, generated columns and views of schemas that are not trusted.
 * What depends on the connection may not, and what reads names of directories not even in views. */
enum {
    pure = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS,
    telling = SQLITE_UTF8 | SQLITE_INNOCUOUS,
    setting = SQLITE_UTF8 | SQLITE_DIRECTONLY
};

static const struct function {
    const char *name;
    int count, flags;
    void (*call)(sqlite3_context *, int, sqlite3_value **);
} functions[] = {
    {"kova_key",       2, pure,    key_function      },
    {"kova_compare",   3, pure,    compare_function  },
    {"kova_upper",     2, pure,    upper_function    },
    {"kova_lower",     2, pure,    lower_function    },
    {"kova_convert",   3, pure,    convert_function  },
    {"kova_number",    3, pure,    number_function   },
    {"kova_money",     3, pure,    money_function    },
    {"kova_date",      3, pure,    date_function     },
    {"kova_version",   1, telling, version_function  },
    {"kova_collation", 1, setting, collation_function},
    {"kova_root",      0, setting, root_function     },
    {"kova_root",      1, setting, root_function     }
};
enum { function_count = sizeof functions / sizeof *functions };

/* SQLite unloads an extension whose entry fails, so nothing of it may stay registered. */
static void remove_functions(sqlite3 *db, size_t count) {
    for (size_t i = 0; i < count; i++)
        sqlite3_create_function_v2(db, functions[i].name, functions[i].count, functions[i].flags,
                                   NULL, NULL, NULL, NULL, NULL);
}

static int register_all(connection *of) {
    for (size_t i = 0; i < function_count; i++) {
        const struct function *f = &functions[i];
        of->users++;
        const int rc = sqlite3_create_function_v2(of->db, f->name, f->count, f->flags, of, f->call,
                                                  NULL, NULL, drop_connection);
        if (rc == SQLITE_OK) continue; /* SQLite has called xDestroy otherwise */
        remove_functions(of->db, i);
        return rc;
    }
    const int rc = sqlite3_collation_needed(of->db, of, collation_needed);
    if (rc != SQLITE_OK) remove_functions(of->db, function_count);
    return rc;
}

/* Connections of several threads load the extension at the same time. The table of SQLite's
 * functions is the same for all, and is written once. */
static void take_api(const sqlite3_api_routines *api) {
#ifdef SQLITE_CORE
    (void)api;
#else
    sqlite3_mutex *lock = api->mutex_alloc(SQLITE_MUTEX_STATIC_APP3);
    api->mutex_enter(lock);
    if (sqlite3_api != api) SQLITE_EXTENSION_INIT2(api);
    api->mutex_leave(lock);
#endif
}

#ifdef _WIN32
__declspec(dllexport)
#else
__attribute__((visibility("default")))
#endif
    int sqlite3_kova_init(sqlite3 *db, char **message, const sqlite3_api_routines *api);

int sqlite3_kova_init(sqlite3 *db, char **message, const sqlite3_api_routines *api) {
    (void)message;
    take_api(api);
    connection *of = make_connection(db);
    if (!of) return SQLITE_NOMEM;
    const int rc = register_all(of);
    drop_connection(of);
    return rc;
}
