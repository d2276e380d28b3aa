/* The public header is complete by itself for a C11 program, and the shared library serves it. */
#include "kova.h"

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
    ko_lc_unload(loc);
    return 0;
}
