/* Orders two texts under two releases of the data at the same time:
 *   two_releases OLD_ROOT NEW_ROOT de_DE.unicode côte coté
 * Texts are UTF-8. Both roots are verified. The exit status is 1 if the order has changed. */
#include "kova_host.h"

#include <stdio.h>
#include <string.h>

static int fail(const char *root, const char *spec, int error) {
    fprintf(stderr, "%s in %s: %s\n", spec, root, ko_error_text(error));
    return 2;
}

int main(int argc, char **argv) {
    int orders[2];
    if (argc != 6) {
        fprintf(stderr, "usage: two_releases OLD_ROOT NEW_ROOT LOCALE A B\n");
        return 2;
    }
    const char *spec = argv[3], *a = argv[4], *b = argv[5];
    ko_lc_t locs[2] = {NULL, NULL};
    for (int i = 0; i < 2; i++) {
        const char *root = argv[1 + i];
        char version[80];
        int error = ko_open_locale(&locs[i], root, spec, KO_OPEN_VERIFY);
        if (!error) error = ko_locale_utf8(locs[i]);
        if (error) return fail(root, spec, error);
        ko_locale_version(locs[i], version, sizeof version);
        orders[i] = ko_utf8scoll(locs[i], a, strlen(a), b, strlen(b));
        printf("%s %s %s   %s\n", a, orders[i] < 0 ? "<" : orders[i] > 0 ? ">" : "=", b, version);
    }
    for (int i = 0; i < 2; i++)
        ko_close_locale(locs[i]);
    return (orders[0] > 0) - (orders[0] < 0) != (orders[1] > 0) - (orders[1] < 0);
}
