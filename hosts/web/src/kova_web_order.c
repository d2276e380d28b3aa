/* Locales, their order and case. */
#include "kova_web.h"

#include <stdlib.h>
#include <string.h>

/* A record; or an error of the library, negated. */
int WEB(web_locale)(const char *spec) {
    ko_lc_t loc;
    const int error = ko_open_locale(&loc, NULL, spec, KO_OPEN_VERIFY | KO_OPEN_SECURE_NAMES);
    return error ? -error : (int)(intptr_t)loc;
}

void WEB(web_close_locale)(ko_lc_t loc) { ko_close_locale(loc); }

int WEB(web_status)(ko_lc_t loc) { return -ko_locale_utf8(loc); }

int WEB(web_version)(ko_lc_t loc, char *out, size_t room) {
    return ko_locale_version(loc, out, room);
}

const char *WEB(web_error_text)(int number) { return ko_error_text(number); }

const char *WEB(web_library_version)(void) { return ko_version(); }

/* Checks the hash of a data file, which it writes to *content. */
int WEB(web_verify)(const void *bytes, size_t size, uint64_t *content) {
    return -ko_verify_object(bytes, size, content);
}

int WEB(web_compare)(ko_lc_t loc, const char16_t *a, size_t alen, const char16_t *b, size_t blen) {
    return ko_utf16scoll(loc, a, alen, b, blen);
}

static int result_of(int64_t size) { return size > INT32_MAX ? -KO_ENOMEM : (int)size; }

int WEB(web_key)(ko_lc_t loc, void *out, size_t room, const char16_t *text, size_t len) {
    return result_of(ko_utf16sxfrm(loc, out, room, text, len));
}

int WEB(web_upper)(ko_lc_t loc, char *out, size_t room, const char *text, size_t len) {
    return result_of(ko_utf8supper(loc, out, room, text, len));
}

int WEB(web_lower)(ko_lc_t loc, char *out, size_t room, const char *text, size_t len) {
    return result_of(ko_utf8slower(loc, out, room, text, len));
}

/* ---- Sorting ---- */

typedef struct row {
    uint64_t start; /* the key's first bytes as a number */
    const unsigned char *key;
    uint32_t length, index;
} row;

static uint64_t first_bytes(const unsigned char *key, size_t length) {
    uint64_t start = 0;
    for (size_t i = 0; i < sizeof start; ++i)
        start = start << 8 | (i < length ? key[i] : 0);
    return start;
}

static int is_after(const row *a, const row *b) {
    if (a->start != b->start) return a->start > b->start;
    const size_t both = a->length < b->length ? a->length : b->length;
    const int order = memcmp(a->key, b->key, both);
    return order ? order > 0 : a->length > b->length;
}

/* Rows that are equal stay in sequence. Returns the one of both arrays that is sorted. */
static row *merge_all(row *from, row *to, size_t count) {
    for (size_t run = 1; run < count; run *= 2) {
        for (size_t at = 0; at < count; at += 2 * run) {
            const size_t middle = count - at < run ? count : at + run;
            const size_t end = count - at < 2 * run ? count : at + 2 * run;
            size_t left = at, right = middle;
            for (size_t i = at; i < end; ++i) {
                const int second =
                    left == middle || (right < end && is_after(&from[left], &from[right]));
                to[i] = from[second ? right++ : left++];
            }
        }
        row *const other = from;
        from = to;
        to = other;
    }
    return from;
}

typedef struct keys {
    unsigned char *bytes;
    size_t used, room;
} keys;

static int add_key(ko_lc_t loc, const char16_t *text, size_t len, keys *all, row *made) {
    for (;;) {
        const size_t left = all->room - all->used;
        const int64_t size =
            ko_utf16sxfrm(loc, all->bytes ? all->bytes + all->used : NULL, left, text, len);
        if (size < 0) return (int)size;
        if ((uint64_t)size <= left) {
            made->length = (uint32_t)size;
            all->used += (size_t)size;
            return 0;
        }
        const uint64_t room = 2 * (uint64_t)all->room + (uint64_t)size + 4096;
        unsigned char *const more = room > INT32_MAX ? NULL : realloc(all->bytes, (size_t)room);
        if (!more) return -KO_ENOMEM;
        all->bytes = more;
        all->room = (size_t)room;
    }
}

static int make_rows(ko_lc_t loc, const char16_t *texts, const uint32_t *ends, size_t count,
                     keys *all, row *rows) {
    for (size_t i = 0; i < count; ++i) {
        const uint32_t start = i ? ends[i - 1] : 0;
        const int error = add_key(loc, texts + start, ends[i] - start, all, &rows[i]);
        if (error) return error;
        rows[i].index = (uint32_t)i;
    }
    const unsigned char *key = all->bytes;
    for (size_t i = 0; i < count; key += rows[i++].length) {
        rows[i].key = key;
        rows[i].start = first_bytes(key, rows[i].length);
    }
    return 0;
}

/* Sorts texts that stand one after the other and end at these units: writes to ends which text
 * comes at each place. */
int WEB(web_sort)(ko_lc_t loc, const char16_t *texts, uint32_t *ends, size_t count) {
    keys all = {NULL, 0, 0};
    if (count > INT32_MAX / (2 * sizeof(row))) return -KO_ENOMEM;
    row *const rows = malloc(2 * count * sizeof *rows + 1);
    const int error = rows ? make_rows(loc, texts, ends, count, &all, rows) : -KO_ENOMEM;
    if (!error) {
        const row *const sorted = merge_all(rows, rows + count, count);
        for (size_t i = 0; i < count; ++i)
            ends[i] = sorted[i].index;
    }
    free(all.bytes);
    free(rows);
    return error;
}
