/* Functions on texts: keys, comparison, case, conversion between code sets. */
#include "kova_sqlite.h"

#include <limits.h>

SQLITE_EXTENSION_INIT3

/* ---- kova_key(text, locale), kova_compare(a, b, locale) ---- */

void key_function(sqlite3_context *ctx, int count, sqlite3_value **values) {
    char key[512];
    text_arg text;
    if (has_null(count, values)) return;
    ko_lc_t loc = take_locale(ctx, values[1]);
    if (!loc || !take_text(ctx, values[0], &text)) return;
    const int64_t size = ko_utf8sxfrm(loc, key, sizeof key, text.s, text.n);
    if (size < 0) {
        fail_by(ctx, (int)-size, "the key of a text");
    } else if (size <= (int64_t)sizeof key) {
        sqlite3_result_blob(ctx, key, (int)size, SQLITE_TRANSIENT);
    } else {
        void *whole = result_room(ctx, size);
        if (!whole) return;
        ko_utf8sxfrm(loc, whole, (size_t)size, text.s, text.n);
        sqlite3_result_blob64(ctx, whole, (sqlite3_uint64)size, sqlite3_free);
    }
}

/* Ill-formed text and characters that the code set lacks have their place in every order; with any
 * other error the texts would have been compared unit by unit. */
void compare_function(sqlite3_context *ctx, int count, sqlite3_value **values) {
    text_arg a, b;
    if (has_null(count, values)) return;
    ko_lc_t loc = take_locale(ctx, values[2]);
    if (!loc || !take_text(ctx, values[0], &a) || !take_text(ctx, values[1], &b)) return;
    const int order = ko_utf8scoll(loc, a.s, a.n, b.s, b.n);
    const int error = KO_SCOLL_ERROR(order);
    if (error && error != KO_EILSEQ && error != KO_ENOCHAR)
        fail_by(ctx, error, "the comparison of two texts");
    else
        sqlite3_result_int(ctx, (order > 0) - (order < 0));
}

/* ---- kova_upper(text, locale), kova_lower(text, locale) ---- */

typedef int64_t map_case(ko_lc_t loc, char *dst, size_t room, const char *text, size_t len);

static void case_function(sqlite3_context *ctx, int count, sqlite3_value **values, map_case *map) {
    text_arg text;
    if (has_null(count, values)) return;
    ko_lc_t loc = take_locale(ctx, values[1]);
    if (!loc || !take_text(ctx, values[0], &text)) return;
    int64_t room = (int64_t)text.n, size;
    char *result = result_room(ctx, room);
    if (!result) return;
    while ((size = map(loc, result, (size_t)room, text.s, text.n)) > room) { /* it has grown */
        sqlite3_free(result);
        result = result_room(ctx, room = size);
        if (!result) return;
    }
    if (size >= 0) {
        sqlite3_result_text64(ctx, result, (sqlite3_uint64)size, sqlite3_free, SQLITE_UTF8);
        return;
    }
    sqlite3_free(result);
    fail_by(ctx, (int)-size, "a text");
}

void upper_function(sqlite3_context *ctx, int count, sqlite3_value **values) {
    case_function(ctx, count, values, ko_utf8supper);
}

void lower_function(sqlite3_context *ctx, int count, sqlite3_value **values) {
    case_function(ctx, count, values, ko_utf8slower);
}

/* ---- kova_convert(bytes, from, to) ---- */

typedef struct conversion {
    ko_cv_t cd;
    const ko_mchar_t *in;
    int left; /* bytes of the text after in */
    int substituted;
} conversion;

/* Converts a whole text into the room; without a result, measures it. Returns the bytes made, or -1
 * and then c->in is at the error. */
static int convert(conversion *c, ko_mchar_t *result, int room) {
    conv_state state = {.first_frag = 1, .last_frag = 1};
    int left = room;
    const int failed =
        result ? ko_cv_mconv(c->cd, &state, &c->in, &c->left, &result, &left, &c->substituted)
               : ko_mconvlen(c->cd, &state, &c->in, &c->left, &left, &c->substituted);
    return failed ? -1 : room - left;
}

static void fail_in_text(sqlite3_context *ctx, const conversion *c, const ko_mchar_t *start,
                         const char *from, const char *to) {
    const int error = *ko_ext_errno(c->cd);
    if (error == KO_ENOMEM || error == KO_E2BIG) {
        fail_by(ctx, error, "the conversion of a text");
        return;
    }
    fail_with(ctx, "kova: %s to %s: byte %lld of the text begins %s", from, to,
              (long long)(c->in - start) + 1,
              error == KO_EINVAL ? "a character that is cut off"
                                 : "no character, or one that is not in both code sets");
}

/* The bytes of an argument. SQLite keeps a TEXT in the database's encoding, and gives it as UTF-8:
 * it is a text in no other code set. */
static bool take_bytes(sqlite3_context *ctx, sqlite3_value *value, const char *from,
                       text_arg *bytes) {
    if (sqlite3_value_type(value) == SQLITE_BLOB) {
        bytes->s = sqlite3_value_blob(value);
        bytes->n = (size_t)sqlite3_value_bytes(value);
        return true;
    }
    static const char *const same[] = {"utf8", "utf-8", "utf_8"};
    bool is_utf8 = false;
    for (size_t i = 0; i < sizeof same / sizeof *same; i++)
        is_utf8 |= !sqlite3_stricmp(from, same[i]);
    if (is_utf8) return take_text(ctx, value, bytes);
    fail_with(ctx, "kova: a text is converted from utf8; bytes in %s are a BLOB", from);
    return false;
}

void convert_function(sqlite3_context *ctx, int count, sqlite3_value **values) {
    conversion c = {0};
    text_arg bytes;
    if (has_null(count, values)) return;
    const char *from = take_name(ctx, values[1], "the name of a code set");
    const char *to = from ? take_name(ctx, values[2], "the name of a code set") : NULL;
    if (!to || !take_bytes(ctx, values[0], from, &bytes)) return;
    const int error = hold_conversion(connection_of(ctx), from, to, &c.cd);
    if (error) {
        char *names = sqlite3_mprintf("%s to %s", from, to);
        fail_by(ctx, names ? error : KO_ENOMEM, names);
        sqlite3_free(names);
        return;
    }
    const ko_mchar_t *start = bytes.s ? (const ko_mchar_t *)bytes.s : (const ko_mchar_t *)"";
    const int length = (int)bytes.n; /* SQLite's values are below INT_MAX */
    c.in = start;
    c.left = length;
    const int room = length < 4096 ? ko_cv_outbuflen(c.cd, length) : convert(&c, NULL, INT_MAX);
    if (room < 0) {
        fail_in_text(ctx, &c, start, from, to);
        return;
    }
    ko_mchar_t *result = result_room(ctx, room);
    if (!result) return;
    c.in = start;
    c.left = length;
    const int size = convert(&c, result, room);
    if (size >= 0 && !c.substituted) {
        sqlite3_result_blob(ctx, result, size, sqlite3_free);
        return;
    }
    sqlite3_free(result);
    if (size < 0)
        fail_in_text(ctx, &c, start, from, to);
    else
        fail_with(ctx, "kova: %s to %s: the text has a character that %s lacks", from, to, to);
}
