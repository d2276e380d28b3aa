/* Loads a locale and prints its conventions for dates, numbers and money:
 *   locale_info en_US.8859-1
 * Text is printed in the locale's own code set. */
#include "kova.h"

#include <stdio.h>

static void print_item(ko_lc_t loc, const char *label, unsigned item) {
    const ko_mchar_t *text = ko_nl_langinfo(loc, item);
    printf("%-16s %s\n", label, text ? (const char *)text : "(none)");
}

int main(int argc, char **argv) {
    const char *spec = argc > 1 ? argv[1] : "en_US.8859-1";
    ko_lc_t loc;
    if (ko_lc_load(&loc, spec, NULL, NULL) != 0) {
        fprintf(stderr, "%s: error %d; set VANTORDIR to a root with compiled locales\n", spec,
                *ko_ext_errno(loc));
        ko_lc_unload(loc);
        return 1;
    }
    print_item(loc, "code set", KO_CODESET);
    print_item(loc, "first day", KO_DAY_1);
    print_item(loc, "first month", KO_MON_1);
    print_item(loc, "date", KO_D_FMT);
    print_item(loc, "time", KO_T_FMT);
    print_item(loc, "decimal point", KO_RADIXCHAR);
    print_item(loc, "thousands", KO_THOUSEP);
    print_item(loc, "currency", KO_CRNCYSTR);
    print_item(loc, "yes, no", KO_YESEXPR);
    printf("%-16s %d\n", "fraction digits", ko_localeconv(loc)->frac_digits);
    ko_lc_unload(loc);
    return 0;
}
