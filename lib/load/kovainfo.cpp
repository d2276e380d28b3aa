// Information queries: strings by item number, conventions and versions. Every answer points into
// the record.
#include "host/kovahost_map.h"
#include "load/kovasetlc_load.h"
#include "time/kovatmlib.h"

#include "kova_host.h"

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

namespace {
// Both forms of one answer.
struct info_string {
    const ko_mchar_t *mbs;
    const ko_wchar_t *wcs;
};
} // namespace

template <class Record, class Row, size_t n>
static bool find_field(const Record *r, const Row (&rows)[n], unsigned item, info_string *answer) {
    for (const Row &f : rows) {
        if (f.item != item) continue;
        *answer = {r->*f.mbs, r->*f.wcs};
        return true;
    }
    return false;
}

static info_string entry(ko_mchar_t *const *mbs, ko_wchar_t *const *wcs, unsigned i) {
    return {mbs ? mbs[i] : nullptr, wcs ? wcs[i] : nullptr};
}

// Calendars differ in their months; a month that the locale's calendar lacks is an error.
static info_string month(kovaloc *loc, ko_mchar_t *const *mbs, ko_wchar_t *const *wcs, int count,
                         unsigned i) {
    if (count < 0 || i >= unsigned(count)) {
        return fail(loc, KO_ERANGE, info_string{});
    }
    return entry(mbs, wcs, i);
}

static info_string calendar(int number) {
    for (const calendar_name &c : calendar_names) {
        if (c.number == number) return {reinterpret_cast<const ko_mchar_t *>(c.name), c.w_name};
    }
    return {};
}

static info_string find_item(kovaloc *loc, unsigned item) {
    const ltime *t = &loc->ltime_info;
    if (item >= KO_DAY_1 && item < KO_ABDAY_1) return entry(t->day, t->w_day, item - KO_DAY_1);
    if (item >= KO_ABDAY_1 && item < KO_MON_1) {
        return entry(t->abday, t->w_abday, item - KO_ABDAY_1);
    }
    if (item >= KO_MON_1 && item < KO_ABMON_1) {
        return month(loc, t->mon, t->w_mon, t->mon_count, item - KO_MON_1);
    }
    if (item >= KO_ABMON_1 && item < KO_RADIXCHAR) {
        return month(loc, t->abmon, t->w_abmon, t->abmon_count, item - KO_ABMON_1);
    }
    if (item == KO_AM_STR || item == KO_PM_STR) {
        return entry(t->am_pm, t->w_am_pm, item - KO_AM_STR);
    }
    if (item == KO_CALENDAR) return calendar(t->calendar);
    if (item == KO_CODESET) { // deliberately that of LC_NUMERIC; empty if that is absent
        const int i = KO_LC_NUMERIC - 2;
        return {reinterpret_cast<const ko_mchar_t *>(loc->codeset[i]), loc->w_codeset[i]};
    }
    info_string answer = {};
    if (!find_field(t, time_strings, item, &answer) && item != no_item) {
        find_field(&loc->monum_info, monum_strings, item, &answer);
    }
    return answer;
}

const ko_mchar_t *ko_nl_langinfo(ko_lc_t loc, unsigned item) {
    if (!loc) return fail(loc, KO_ENULL, nullptr);
    return find_item(record(loc), item).mbs;
}

const ko_wchar_t *ko_wc_nl_langinfo(ko_lc_t loc, unsigned item) {
    if (!loc) return fail(loc, KO_ENULL, nullptr);
    return find_item(record(loc), item).wcs;
}

const koconv *ko_localeconv(ko_lc_t loc) {
    return loc ? &record(loc)->koconv_info : fail(loc, KO_ENULL, nullptr);
}

const char *ko_version(void) { return "kovalib-2.86.TC1"; }
const char *ko_cm_version(void) { return "3"; }
const char *ko_lc_version(void) { return "11"; }
const char *ko_cv_version(void) { return "9"; }

// ---- The version of an order ----

// Changes whenever the same weights are spelled with other bytes in the keys of kova_host.h.
constexpr int key_format = 1;

int ko_locale_version(ko_lc_t handle, char *dst, size_t room) {
    if (!handle || (!dst && room)) return -KO_ENULL;
    const kovaloc *loc = record(handle);
    const object_facts &facts = loc->order_facts;
    if (!loc->codeset[KO_LC_COLLATE - 2][0]) return -KO_ENOCAT;
    if (!facts.content[0]) return -KO_EOBJECT;
    // What a character of UTF-8 weighs in another code set depends on the conversion, too.
    const bool mapped = !is_unicode(loc, KO_LC_COLLATE) && !unfit(handle, KO_LC_COLLATE);
    char conversion[content_digits + 3] = "";
    if (mapped) snprintf(conversion, sizeof conversion, "-u%016" PRIx64, loc->map->content);
    char text[2 * content_digits + 16 + release_room];
    const int len = snprintf(text, sizeof text, "%s-k%d%s%s%s", facts.content, key_format,
                             conversion, facts.release[0] ? " " : "", facts.release);
    if (!room) return len;
    const size_t kept = size_t(len) < room ? size_t(len) : room - 1;
    memcpy(dst, text, kept);
    dst[kept] = 0;
    return len;
}
