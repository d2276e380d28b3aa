/* What the sources of the SQLite extension share: the state of a connection, the locales and
 * conversions that it holds, and results. */
#ifndef KOVA_SQLITE_H
#define KOVA_SQLITE_H

#include "kova_host.h"

#include <sqlite3ext.h>
#include <stdbool.h>

/* A connection with the extension. Functions and collations hold it; the last one that SQLite
 * drops, at the latest when the connection is closed, frees it. SQLite serialises its use. */
typedef struct connection connection;

/* A locale that a connection holds. */
typedef struct held_locale {
    char *name; /* as it was asked for */
    ko_lc_t loc;
    connection *of;
    struct held_locale *next;
} held_locale;

struct connection {
    sqlite3 *db;
    int users;  /* functions and collations, and the one who makes it */
    char *root; /* a data root; NULL: the library searches */
    held_locale *locales;
    struct held_conversion *conversions;
};

/* ---- kova_sqlite_hold.c ---- */

/* Formatting tells its errors by the error word of a record, which connections share, so a call and
 * the look at its word happen between these. The lock is SQLite's SQLITE_MUTEX_STATIC_APP3. Nothing
 * else needs it: the library guards loading itself. */
void lock_words(void);
void unlock_words(void);

/* Makes a connection with one user; NULL without memory. */
connection *make_connection(sqlite3 *db);
void drop_connection(void *user); /* ends one use; fits xDestroy */

/* Holds a locale. An incomplete or unfit one is refused: order and keys have to be the locale's
 * own. name   as whole_spec takes it *held  lives as long as the connection Returns 0, or an error
 * number of the library. */
int hold_locale(connection *of, const char *name, held_locale **held);

/* The specification that a name stands for: "de_DE.unicode" for de_DE. NULL without memory. */
char *whole_spec(const char *name);

/* Holds the conversion from one code set to another. Returns 0, or an error number. */
int hold_conversion(connection *of, const char *from, const char *to, ko_cv_t *cd);

/* ---- kova_sqlite.c ---- */

/* An argument as UTF-8. False without memory, which becomes the result. */
typedef struct text_arg {
    const char *s;
    size_t n;
} text_arg;
bool take_text(sqlite3_context *ctx, sqlite3_value *value, text_arg *text);

/* An argument that is a name: without U+0000. NULL: an error became the result. */
const char *take_name(sqlite3_context *ctx, sqlite3_value *value, const char *what);

/* The locale that an argument names. NULL: an error became the result. */
ko_lc_t take_locale(sqlite3_context *ctx, sqlite3_value *value);

bool has_null(int count, sqlite3_value **values);

/* The connection that the function was registered for. */
connection *connection_of(sqlite3_context *ctx);

/* Makes an error the result: the formatted text, or out of memory. */
void fail_with(sqlite3_context *ctx, const char *format, ...);

/* Makes an error number of the library the result, after what it is about. */
void fail_by(sqlite3_context *ctx, int error, const char *about);

/* Memory for a result or for work on one. NULL: it exceeds SQLITE_LIMIT_LENGTH or there is none,
 * which became the result. */
void *result_room(sqlite3_context *ctx, int64_t size);

/* ---- functions, called by SQLite ---- */

void key_function(sqlite3_context *ctx, int count, sqlite3_value **values);
void compare_function(sqlite3_context *ctx, int count, sqlite3_value **values);
void upper_function(sqlite3_context *ctx, int count, sqlite3_value **values);
void lower_function(sqlite3_context *ctx, int count, sqlite3_value **values);
void convert_function(sqlite3_context *ctx, int count, sqlite3_value **values);
void number_function(sqlite3_context *ctx, int count, sqlite3_value **values);
void money_function(sqlite3_context *ctx, int count, sqlite3_value **values);
void date_function(sqlite3_context *ctx, int count, sqlite3_value **values);

#endif
