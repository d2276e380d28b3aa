/* The order that the hosts are compared with: sorts the lines of standard input by ko_utf8scoll.
 *   host_order ROOT LOCALE      such as  host_order build/release/data de_DE.unicode
 * Prints each line after its key in hexadecimal and a tab. Fails unless the keys are in order, too.
 */
#include "kova_host.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef struct line {
    char *text;
    size_t length;
    unsigned char *key;
    size_t key_length;
} line;

typedef struct lines {
    line *all;
    size_t count, room;
} lines;

static ko_lc_t loc;

static int compare(const void *a, const void *b) {
    const line *one = a, *two = b;
    return ko_utf8scoll(loc, one->text, one->length, two->text, two->length);
}

/* As memcmp, and a key comes before a longer one that begins with it. */
static int compare_keys(const line *a, const line *b) {
    const size_t both = a->key_length < b->key_length ? a->key_length : b->key_length;
    const int order = memcmp(a->key, b->key, both);
    return order ? order : (a->key_length > b->key_length) - (a->key_length < b->key_length);
}

static void *need(void *memory) {
    if (memory) return memory;
    fprintf(stderr, "host_order: no memory\n");
    exit(2);
}

static void make_key(line *l) {
    const int64_t size = ko_utf8sxfrm(loc, NULL, 0, l->text, l->length);
    if (size < 0) {
        fprintf(stderr, "host_order: %s\n", ko_error_text((int)-size));
        exit(2);
    }
    l->key_length = (size_t)size;
    l->key = need(malloc(l->key_length + 1));
    ko_utf8sxfrm(loc, l->key, l->key_length, l->text, l->length);
}

static void read_lines(lines *to) {
    static char text[1 << 16];
    while (fgets(text, sizeof text, stdin)) {
        if (to->count == to->room) {
            to->room = to->room ? 2 * to->room : 1024;
            to->all = need(realloc(to->all, to->room * sizeof *to->all));
        }
        line *l = &to->all[to->count++];
        l->length = strcspn(text, "\n");
        l->text = need(malloc(l->length + 1));
        memcpy(l->text, text, l->length);
        make_key(l);
    }
}

int main(int argc, char **argv) {
    lines read = {0};
    if (argc != 3) {
        fprintf(stderr, "usage: host_order ROOT LOCALE < lines\n");
        return 2;
    }
    const int error = ko_open_locale(&loc, argv[1], argv[2], KO_OPEN_VERIFY);
    if (error) {
        fprintf(stderr, "host_order: %s: %s\n", argv[2], ko_error_text(error));
        return 2;
    }
    read_lines(&read);
    if (read.count) qsort(read.all, read.count, sizeof *read.all, compare);
    for (size_t i = 0; i < read.count; i++) {
        const line *l = &read.all[i];
        if (i && compare_keys(l - 1, l) > 0) {
            fprintf(stderr, "host_order: the keys are in another order at line %zu\n", i + 1);
            return 1;
        }
        for (size_t k = 0; k < l->key_length; k++)
            printf("%02x", l->key[k]);
        printf("\t%.*s\n", (int)l->length, l->text);
    }
    for (size_t i = 0; i < read.count; i++) {
        free(read.all[i].text);
        free(read.all[i].key);
    }
    free(read.all);
    ko_close_locale(loc);
    return 0;
}
