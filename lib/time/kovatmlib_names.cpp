// Copies of a locale's time names for a host.
#include "chars/kovambwc.h"

#include <string.h>

namespace {
// A group of names: a list of the record, or one string of each era.
struct name_group {
    int count;
    ko_mchar_t *const *list;
    ko_mchar_t *lera::*of_era;
};
} // namespace

static name_group find_group(const ltime *t, int infotype) {
    const int eras = t->decode_era ? t->era_count : 0;
    const name_group groups[8] = {
        {7,                 t->day,        nullptr    },
        {7,                 t->abday,      nullptr    },
        {t->mon_count,      t->mon,        nullptr    },
        {t->abmon_count,    t->abmon,      nullptr    },
        {eras,              nullptr,       &lera::name},
        {eras,              nullptr,       &lera::abbr},
        {t->max_alt_digits, t->alt_digits, nullptr    },
        {2,                 t->am_pm,      nullptr    },
    };
    name_group group = groups[infotype - 1];
    if (!group.list && !group.of_era) group.count = 0;
    return group;
}

// Copies a name. 0; or the error number with *copy NULL.
static int copy_name(kovaloc *loc, const ko_mchar_t *name, ko_mchar_t **copy) {
    *copy = nullptr;
    if (!name) return KO_ENULL;
    const char *const bytes = reinterpret_cast<const char *>(name);
    const int size = loc->exp.single_byte ? int(strlen(bytes)) + 1 : ko_mbsbytes(loc, name);
    if (size < 1) return KO_EILSEQ;
    *copy = static_cast<ko_mchar_t *>(ko_ext_malloc(size_t(size)));
    if (!*copy) return KO_ENOMEM;
    memcpy(*copy, name, size_t(size));
    return 0;
}

int ko_mbstimeinfo(ko_lc_t handle, int infotype, ko_mchar_t ***strs, int *count) {
    if (!handle) return fail(handle, KO_ENULL, -1);
    if (infotype < 1 || infotype > 8) return -1;
    kovaloc *loc = record(handle);
    if (!strs || !count) return fail(loc, KO_ENULL, -1);
    *strs = nullptr;
    *count = 0;
    const ltime *t = &loc->ltime_info;
    const name_group group = find_group(t, infotype);
    if (group.count < 1) return -1;
    const auto n = size_t(group.count);
    ext_block<ko_mchar_t *> copies(n);
    if (!copies.p) return fail(loc, KO_ENOMEM, -1);
    for (size_t i = 0; i < n; i++) {
        const ko_mchar_t *const name = group.list ? group.list[i] : t->decode_era[i].*group.of_era;
        const int error = copy_name(loc, name, &copies.p[i]);
        if (error) set_error(loc, error);
        if (error != KO_ENOMEM) continue;
        while (i-- > 0)
            free_ptr(copies.p[i]);
        return -1;
    }
    *strs = copies.release();
    *count = group.count;
    return 0;
}
