// The public headers are complete by themselves for a C++20 program, and their declarations have C
// linkage.
#include "kova_host.h"

#include <cstdio>
#include <type_traits>

static_assert(sizeof(ko_long_t) == 4 && sizeof(ko_ulong_t) == 4 && sizeof(ko_wchar_t) == 2);
static_assert(std::is_same_v<ko_lc_t, void *>);

int main() {
    ko_lc_t loc = nullptr;
    if (ko_create_null_locale_2(&loc) != 0 || ko_lc_status(loc) != 0) {
        std::fputs("the library hands out no empty locale\n", stderr);
        return 1;
    }
    ko_lc_unload(loc);
    return 0;
}
