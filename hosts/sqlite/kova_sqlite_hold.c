/* What a connection holds: the data root, locales and conversions; and the lock around the error
 * words of records. */
#include "kova_sqlite.h"

#include <string.h>

SQLITE_EXTENSION_INIT3

typedef struct held_conversion {
    char *from, *to;
    ko_cv_t cd;
    struct held_conversion *next;
} held_conversion;

/* NULL, which the calls below take, where SQLite was built or started without threads. */
static sqlite3_mutex *word_lock(void) { return sqlite3_mutex_alloc(SQLITE_MUTEX_STATIC_APP3); }
void lock_words(void) { sqlite3_mutex_enter(word_lock()); }
void unlock_words(void) { sqlite3_mutex_leave(word_lock()); }

/* ---- Connections ---- */

connection *make_connection(sqlite3 *db) {
    connection *made = sqlite3_malloc64(sizeof *made);
    if (made) *made = (connection){.db = db, .users = 1};
    return made;
}

static void free_locale(held_locale *held) {
    ko_close_locale(held->loc);
    sqlite3_free(held->name);
    sqlite3_free(held);
}

static void free_conversion(held_conversion *held) {
    if (held->cd) ko_cv_unload(held->cd);
    sqlite3_free(held->from);
    sqlite3_free(held->to);
    sqlite3_free(held);
}

void drop_connection(void *user) {
    connection *of = user;
    if (--of->users) return;
    for (held_locale *next, *held = of->locales; held; held = next) {
        next = held->next;
        free_locale(held);
    }
    for (held_conversion *next, *held = of->conversions; held; held = next) {
        next = held->next;
        free_conversion(held);
    }
    sqlite3_free(of->root);
    sqlite3_free(of);
}

/* ---- Locales and conversions ---- */

/* 0 if texts are ordered by the locale. An object whose order cannot be used would order them unit
 * by unit, and an index would keep that. */
static int order_error(ko_lc_t loc) {
    const int error = ko_locale_utf8(loc);
    return error ? error : KO_SCOLL_ERROR(ko_utf8scoll(loc, "a", 1, "b", 1));
}

static int open_locale(const connection *of, const char *spec, ko_lc_t *loc) {
    const int error = ko_open_locale(loc, of->root, spec, KO_OPEN_VERIFY | KO_OPEN_SECURE_NAMES);
    return error ? error : order_error(*loc);
}

char *whole_spec(const char *name) {
    const bool bare = *name && !strpbrk(name, "./=\\");
    const int language = (int)strcspn(name, "@");
    return bare ? sqlite3_mprintf("%.*s.unicode%s", language, name, name + language)
                : sqlite3_mprintf("%s", name);
}

int hold_locale(connection *of, const char *name, held_locale **held) {
    for (held_locale *at = of->locales; at; at = at->next)
        if (!strcmp(at->name, name)) {
            *held = at;
            return 0;
        }
    *held = NULL;
    held_locale *made = sqlite3_malloc64(sizeof *made);
    if (!made) return KO_ENOMEM;
    *made = (held_locale){.name = sqlite3_mprintf("%s", name), .of = of, .next = of->locales};
    char *spec = whole_spec(name);
    int error = KO_ENOMEM;
    if (spec && made->name) error = *spec ? open_locale(of, spec, &made->loc) : KO_ENOLOCALE;
    if (error) free_locale(made);
    sqlite3_free(spec);
    if (!error) *held = of->locales = made;
    return error;
}

int hold_conversion(connection *of, const char *from, const char *to, ko_cv_t *cd) {
    for (held_conversion *at = of->conversions; at; at = at->next)
        if (!strcmp(at->from, from) && !strcmp(at->to, to)) {
            *cd = at->cd;
            return 0;
        }
    held_conversion *made = sqlite3_malloc64(sizeof *made);
    if (!made) return KO_ENOMEM;
    *made = (held_conversion){sqlite3_mprintf("%s", from), sqlite3_mprintf("%s", to), NULL,
                              of->conversions};
    int error = KO_ENOMEM;
    if (made->from && made->to)
        error = ko_open_conversion(&made->cd, of->root, from, to, KO_OPEN_VERIFY);
    if (error) free_conversion(made);
    if (error) return error;
    of->conversions = made;
    *cd = made->cd;
    return 0;
}
