// Dates and times: the data of LC_TIME in the record, and the names of the calendars.
#include "chars/kovambwc.h"
#include "chars/kovaportable.h"
#include "time/kovatree.h"

#include <string.h>

static constexpr ko_wchar_t w_gregorian[] = {'g', 'r', 'e', 'g', 'o', 'r', 'i', 'a', 'n', '\n', 0};
static constexpr ko_wchar_t w_hebrew[] = {'h', 'e', 'b', 'r', 'e', 'w', '\n', 0};
static constexpr ko_wchar_t w_islamic[] = {'i', 's', 'l', 'a', 'm', 'i', 'c', '\n', 0};
static constexpr ko_wchar_t w_arabic[] = {'a', 'r', 'a', 'b', 'i', 'c', '\n', 0};

const calendar_name calendar_names[4] = {
    {"gregorian\n", w_gregorian, 1},
    {"hebrew\n",    w_hebrew,    2},
    {"islamic\n",   w_islamic,   3},
    {"arabic\n",    w_arabic,    4},
};

const time_string time_strings[9] = {
    {KO_D_T_FMT,     &ltime::d_t_fmt,         &ltime::w_d_t_fmt        },
    {KO_D_FMT,       &ltime::d_fmt,           &ltime::w_d_fmt          },
    {KO_T_FMT,       &ltime::t_fmt,           &ltime::w_t_fmt          },
    {KO_T_FMT_AMPM,  &ltime::t_fmt_ampm,      &ltime::w_t_fmt_ampm     },
    {KO_ERA,         &ltime::era_info,        &ltime::w_era_info       },
    {KO_ERA_D_FMT,   &ltime::era_d_fmt,       &ltime::w_era_d_fmt      },
    {KO_ERA_D_T_FMT, &ltime::era_d_t_fmt,     &ltime::w_era_d_t_fmt    },
    {KO_ERA_T_FMT,   &ltime::era_t_fmt,       &ltime::w_era_t_fmt      },
    {KO_ALT_DIGITS,  &ltime::alt_digits_info, &ltime::w_alt_digits_info},
};

namespace {
struct counted_list {
    int ltime::*count;
    ko_mchar_t **ltime::*mbs;
    ko_wchar_t **ltime::*wcs;
};
} // namespace
static constexpr counted_list counted_lists[] = {
    {&ltime::abmon_count,    &ltime::abmon,      &ltime::w_abmon     },
    {&ltime::mon_count,      &ltime::mon,        &ltime::w_mon       },
    {&ltime::era_count,      &ltime::era,        &ltime::w_era       },
    {&ltime::max_alt_digits, &ltime::alt_digits, &ltime::w_alt_digits},
};

// ---- Freeing ----

template <class T> static void drop(T *&block) {
    free_ptr(block);
    block = nullptr;
}

template <class T> static void drop_all(T **list, int count) {
    for (int i = 0; list && i < count; i++)
        drop(list[i]);
}

static void free_wide(ltime *t) {
    free_name_trees(t);
    free_quick_times(t);
    for (const time_string &s : time_strings)
        drop(t->*s.wcs);
    for (const counted_list &l : counted_lists) {
        drop_all(t->*l.wcs, t->*l.count);
        drop(t->*l.wcs);
    }
    drop_all(t->w_abday, 7);
    drop_all(t->w_day, 7);
    drop_all(t->w_am_pm, 2);
}

void free_ltime(ltime *t) {
    free_eras(t);
    free_wide(t);
    for (const time_string &s : time_strings)
        drop(t->*s.mbs);
    for (const counted_list &l : counted_lists) {
        drop_all(t->*l.mbs, t->*l.count);
        drop(t->*l.mbs);
    }
    drop_all(t->abday, 7);
    drop_all(t->day, 7);
    drop_all(t->am_pm, 2);
    *t = {};
}

// ---- Derived strings ----

// Writes ";" in the code set, with as many bytes as its shortest character has.
static int separator_bytes(const kovaloc *loc, ko_mchar_t *bytes) {
    const int wanted = has_characters(loc) ? multi_min_length(loc->ctype) : 1;
    const int n = wanted < 1 || wanted > 4 ? 1 : wanted;
    memset(bytes, 0, 4);
    bytes[n - 1] = ko_mchar_t(native(loc, ';'));
    return n;
}

// Joins the strings that are present. *joined is NULL if none is; false without memory.
static bool join(const kovaloc *loc, ko_mchar_t *const *list, int count, ko_mchar_t **joined) {
    drop(*joined);
    if (!list || count < 1) return true;
    ko_mchar_t separator[4];
    const size_t gap = size_t(separator_bytes(loc, separator));
    const auto unit = [gap](const ko_mchar_t *s) { // whole characters, see zeros_at
        return s ? (zeros_at(s) + gap - 1) / gap * gap : 0;
    };
    size_t size = 4;
    for (int i = 0; i < count; i++)
        size += unit(list[i]) + gap;
    ko_mchar_t *at = static_cast<ko_mchar_t *>(ko_ext_malloc(size));
    if (!at) return false;
    *joined = at;
    for (int i = 0; i < count; i++) {
        if (i) memcpy(at, separator, gap), at += gap;
        const size_t len = unit(list[i]);
        if (len) memcpy(at, list[i], len), at += len;
    }
    memset(at, 0, 4);
    return true;
}

static int widen_list(kovaloc *loc, ko_mchar_t *const *list, int count, ko_wchar_t **wide) {
    for (int i = 0; list && i < count; i++) {
        if (alloc_wc_from_mb(loc, list[i], &wide[i])) return -1;
    }
    return 0;
}

static int widen_lists(kovaloc *loc) {
    ltime *t = &loc->ltime_info;
    for (const counted_list &l : counted_lists) {
        if (!(t->*l.mbs) || t->*l.count < 1) continue;
        const size_t size = size_t(t->*l.count) * sizeof(ko_wchar_t *);
        t->*l.wcs = static_cast<ko_wchar_t **>(ko_ext_malloc(size));
        if (!(t->*l.wcs)) return fail(loc, KO_ENOMEM, -1);
        memset(t->*l.wcs, 0, size);
        if (widen_list(loc, t->*l.mbs, t->*l.count, t->*l.wcs)) return -1;
    }
    return 0;
}

int derive_ltime(kovaloc *loc) {
    ltime *t = &loc->ltime_info;
    free_wide(t);
    if (!join(loc, t->era, t->era_count, &t->era_info) ||
        !join(loc, t->alt_digits, t->max_alt_digits, &t->alt_digits_info)) {
        return fail(loc, KO_ENOMEM, -1);
    }
    if (!has_characters(loc)) return 0;
    for (const time_string &s : time_strings) {
        if (alloc_wc_from_mb(loc, t->*s.mbs, &(t->*s.wcs))) return -1;
    }
    if (widen_list(loc, t->abday, 7, t->w_abday) || widen_list(loc, t->day, 7, t->w_day) ||
        widen_list(loc, t->am_pm, 2, t->w_am_pm)) {
        return -1;
    }
    if (widen_lists(loc)) return -1;
    if (decode_eras(loc) || build_name_trees(loc)) return -1;
    build_quick_times(loc);
    return 0;
}

// ---- Records of a time ----

bool leap_year(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

void tm_from_alt(ko_tm_t *tm, const ko_alt_tm_t *alt) {
    *tm = {
        .tm_usec = alt->alt_tm_usec,
        .tm_sec = alt->alt_tm_sec,
        .tm_min = alt->alt_tm_min,
        .tm_hour = alt->alt_tm_hour,
        .tm_mday = alt->alt_tm_mday,
        .tm_mon = alt->alt_tm_mon,
        .tm_year = alt->alt_tm_year,
        .tm_wday = alt->alt_tm_wday,
        .tm_yday = alt->alt_tm_yday,
        .tm_isdst = alt->alt_tm_isdst,
        .tm_zone = alt->alt_tm_zone,
        .tm_gmtoff = alt->alt_tm_gmtoff,
    };
}
