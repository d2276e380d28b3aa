/* The public headers are complete by themselves for a C11 program, and the shared library serves
 * both. */
#include "kova_host.h"

#include <stdio.h>

int main(void) {
    ko_lc_t loc = NULL;
    if (ko_create_null_locale_2(&loc) != 0 || !loc) {
        fprintf(stderr, "the library hands out no empty locale\n");
        return 1;
    }
    if (((const gen_exports *)loc)->ko_lerrno != KO_OK) {
        fprintf(stderr, "a fresh locale carries an error\n");
        return 1;
    }
    if (ko_lc_status(loc) != 0 || ko_lc_status(NULL) != KO_ENULL) {
        fprintf(stderr, "a fresh locale is not complete\n");
        return 1;
    }
    ko_lc_unload(loc);
    return 0;
}
