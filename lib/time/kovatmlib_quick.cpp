// Prepares a locale's names for the quick ways.
#include "time/kovatmlib_quick.h"
#include "time/kovatree.h"

#include <string.h>

constexpr int most_exact = 14; // names in a list, the months of a leap year included

static size_t length_of(const ko_mchar_t *s) { return strlen(reinterpret_cast<const char *>(s)); }
static size_t length_of(const ko_wchar_t *s) { return size_t(ko_wcslen(s)); }

template <class Unit>
static void copy_names(written_name<Unit> (&to)[usual_months], Unit *const *names, int count) {
    for (int i = 0; i < count && i < usual_months && names; ++i) {
        const size_t len = names[i] ? length_of(names[i]) : 0;
        if (len > block_units<Unit>) continue;
        to[i].len = int(len);
        if (len) memcpy(to[i].text, names[i], len * sizeof(Unit));
    }
}

// False if two names share a slot; the second is then left out.
template <class Unit>
static bool fill_slots(exact_list<Unit> &list, const exact_name<Unit> *names, int count) {
    bool alone = true;
    for (int i = 0; i < count; ++i) {
        exact_name<Unit> &slot = slot_of(list, names[i].name);
        if (slot.name)
            alone = false;
        else
            slot = names[i];
    }
    return alone;
}

template <class Unit>
static void hash_names(exact_list<Unit> &list, Unit *const *names, const bool *whole, int count) {
    exact_name<Unit> hashed[most_exact];
    int num_hashed = 0;
    for (int i = 0; i < count; ++i) {
        const size_t len = whole[i] ? length_of(names[i]) : 0;
        if (len >= 3) hashed[num_hashed++] = {names[i], int(len), i};
    }
    uint32_t factor = 1;
    for (int tries = 200; tries--;) {
        list = {.factor = factor = factor * 0x9E3779B1 + 2};
        if (fill_slots(list, hashed, num_hashed)) return;
    }
}

static void build_exact(kovaloc *loc, const wc_tnode *tree, const time_names &list,
                        exact_list<ko_mchar_t> &bytes, exact_list<ko_wchar_t> &wide) {
    if (!list.names || !list.bytes) return;
    const int count = list.count < most_exact ? list.count : most_exact;
    bool whole[most_exact];
    for (int i = 0; i < count; ++i) {
        const wc_found found = list.names[i] ? find_name(loc, tree, list.names[i]) : wc_found{};
        whole[i] = found.node && found.node->val == i; // else a shorter one is found
    }
    hash_names(bytes, list.bytes, whole, count);
    hash_names(wide, list.names, whole, count);
}

void build_quick_times(kovaloc *loc) {
    ltime *t = &loc->ltime_info;
    free_quick_times(t);
    if (month_count(t) < usual_months) return;
    quick_times *const quick = static_cast<quick_times *>(ko_ext_malloc(sizeof(quick_times)));
    if (!quick) return;
    *quick = {.writes = t->calendar == calendar_gregorian && t->mon_count == usual_months};
    t->quick = quick;
    for (int i = 0; i < time_lists && quick->writes; ++i) {
        const time_names list = names_of(t, static_cast<time_list>(i));
        copy_names(quick->bytes.written[i], list.bytes, list.count);
        copy_names(quick->wide.written[i], list.names, list.count);
    }
    build_exact(loc, t->full_day_cache, names_of(t, list_day), quick->bytes.exact.days,
                quick->wide.exact.days);
    build_exact(loc, t->full_mon_cache, names_of(t, list_mon), quick->bytes.exact.months,
                quick->wide.exact.months);
}

void free_quick_times(ltime *t) {
    free_ptr(t->quick);
    t->quick = nullptr;
}
