// Eras: decoding their definitions when the locale is loaded, the era of a date and the year within
// it.
#include "chars/kovambwc.h"
#include "chars/kovaportable.h"
#include "time/kovatmlib.h"

#include <string.h>

// ---- Definitions ----

namespace {
// direction ":" offset ":" start ":" end ":" name [":" abbreviation] ":" format
struct era_text {
    kovaloc *loc;
    const ko_wchar_t *at;
};

struct era_date {
    int year, month, day;
};
} // namespace

static bool take(era_text *in, int ascii) {
    if (portable(in->loc, *in->at) != unsigned(ascii)) return false;
    ++in->at;
    return true;
}

// Takes an optional sign and digits, of which there may be nine.
static bool take_number(era_text *in, int *value) {
    const bool minus = take(in, '-');
    if (!minus) take(in, '+');
    int n = 0, number = 0;
    for (; portable(in->loc, *in->at) - '0' < 10; ++in->at, ++n) {
        if (n == 9) return false;
        number = number * 10 + int(portable(in->loc, *in->at) - '0');
    }
    *value = minus ? -number : number;
    return n > 0;
}

static bool take_date(era_text *in, int *year, int *month, int *day) {
    return take_number(in, year) && take(in, '/') && take_number(in, month) && take(in, '/') &&
           take_number(in, day) && *month >= 1 && *month <= 12 && *day >= 1 && *day <= 31;
}

// An end without a date is "+*" or "-*".
static bool take_end(era_text *in, lera *era) {
    const unsigned sign = portable(in->loc, in->at[0]);
    if ((sign == '+' || sign == '-') && portable(in->loc, in->at[1]) == '*') {
        era->end_time = sign == '+' ? 1 : -1;
        in->at += 2;
        return true;
    }
    return take_date(in, &era->end_year, &era->end_month, &era->end_day);
}

static const ko_wchar_t *find(const kovaloc *loc, const ko_wchar_t *from, int ascii) {
    while (*from && portable(loc, *from) != unsigned(ascii))
        ++from;
    return *from ? from : nullptr;
}

static ko_wchar_t *copy_wide(const ko_wchar_t *from, const ko_wchar_t *end) {
    const size_t n = size_t(end - from);
    ko_wchar_t *copy = static_cast<ko_wchar_t *>(ko_ext_malloc((n + 1) * sizeof *copy));
    if (!copy) return nullptr;
    memcpy(copy, from, n * sizeof *copy);
    copy[n] = 0;
    return copy;
}

// Copies a wide string as bytes, ended by four zero bytes like every string of a locale object.
static ko_mchar_t *copy_bytes(kovaloc *loc, const ko_wchar_t *wide) {
    const size_t size = 4 * size_t(ko_wcslen(wide)) + 4;
    ko_mchar_t *copy = static_cast<ko_mchar_t *>(ko_ext_malloc(size));
    if (!copy) return nullptr;
    memset(copy, 0, size);
    ko_mchar_t *at = copy;
    for (; *wide; ++wide) {
        const int n = ko_full_wctomb(loc, at, *wide);
        if (n > 0) at += n;
    }
    return copy;
}

static bool copy_strings(kovaloc *loc, lera *era, const ko_wchar_t *const (&ends)[6]) {
    era->w_name = copy_wide(ends[0], ends[1]);
    era->w_abbr = copy_wide(ends[2], ends[3]);
    era->w_format = copy_wide(ends[4], ends[5]);
    if (!era->w_name || !era->w_abbr || !era->w_format) return false;
    era->name = copy_bytes(loc, era->w_name);
    era->abbr = copy_bytes(loc, era->w_abbr);
    era->format = copy_bytes(loc, era->w_format);
    return era->name && era->abbr && era->format;
}

// Takes the text after the dates. No abbreviation contains a "%" and every useful format does, so a
// part with one is the format, whose own colons do not count. An empty abbreviation would match
// every text in parsing, so the name replaces it.
static int take_strings(era_text *in, lera *era) {
    const ko_wchar_t *name = in->at, *name_end = find(in->loc, name, ':');
    if (!name_end || name_end == name) return KO_ECODESET;
    const ko_wchar_t *abbr = name, *abbr_end = name_end, *format = name_end + 1;
    const ko_wchar_t *colon = find(in->loc, format, ':'), *percent = find(in->loc, format, '%');
    if (colon && (!percent || percent > colon)) {
        if (colon > format) abbr = format, abbr_end = colon;
        format = colon + 1;
    }
    const ko_wchar_t *const ends[6] = {name,     name_end, abbr,
                                       abbr_end, format,   format + ko_wcslen(format)};
    return copy_strings(in->loc, era, ends) ? 0 : KO_ENOMEM;
}

// Decodes a definition. 0, or the error number.
static int decode_era(kovaloc *loc, const ko_wchar_t *definition, lera *era) {
    if (!definition) return KO_ENOMEM; // unreadable, or memory was short
    era_text in = {loc, definition};
    era->direction = take(&in, '+') ? 1 : take(&in, '-') ? -1 : 0;
    const bool dates = era->direction && take(&in, ':') && take_number(&in, &era->offset) &&
                       take(&in, ':') &&
                       take_date(&in, &era->start_year, &era->start_month, &era->start_day) &&
                       take(&in, ':') && take_end(&in, era) && take(&in, ':');
    return dates ? take_strings(&in, era) : KO_ECODESET;
}

void free_eras(ltime *t) {
    for (int i = 0; t->decode_era && i < t->era_count; i++) {
        const lera &era = t->decode_era[i];
        free_ptr(era.name);
        free_ptr(era.abbr);
        free_ptr(era.format);
        free_ptr(era.w_format);
        free_ptr(era.w_name);
        free_ptr(era.w_abbr);
    }
    free_ptr(t->decode_era);
    t->decode_era = nullptr;
}

int decode_eras(kovaloc *loc) {
    ltime *t = &loc->ltime_info;
    free_eras(t);
    if (t->era_count < 1 || !t->w_era) return 0;
    const size_t count = size_t(t->era_count);
    t->decode_era = static_cast<lera *>(ko_ext_malloc(count * sizeof(lera)));
    if (!t->decode_era) return fail(loc, KO_ENOMEM, -1);
    memset(t->decode_era, 0, count * sizeof(lera));
    for (int i = 0; i < t->era_count; i++) {
        const int error = decode_era(loc, t->w_era[i], &t->decode_era[i]);
        if (error) {
            free_eras(t);
            return fail(loc, error, -1);
        }
    }
    return 0;
}

// ---- Dates ----

// Below 0, 0, above 0: a is before b, equal to it, after it, in the direction in which the era
// counts.
static int compare_dates(int direction, const era_date &a, const era_date &b) {
    int order = 0;
    if (a.year != b.year) {
        order = a.year < b.year ? -1 : 1;
    } else if (a.month != b.month) {
        order = a.month < b.month ? -1 : 1;
    } else if (a.day != b.day) {
        order = a.day < b.day ? -1 : 1;
    }
    return direction * order;
}

int check_bounds(const lera *era, int day, int month, int year) {
    const era_date date = {year, month, day};
    const era_date start = {era->start_year, era->start_month, era->start_day};
    const era_date end = {era->end_year, era->end_month, era->end_day};
    if (compare_dates(era->direction, start, date) > 0) return -1;
    if (era->end_time * era->direction > 0) return 0;
    return compare_dates(era->direction, end, date) >= 0 ? 0 : -1;
}

// The sum of a field and its origin, limited to the range of an int.
static int plus(int64_t a, int64_t b) {
    const int64_t sum = a + b;
    return int(sum > INT32_MAX ? INT32_MAX : sum < -INT32_MAX ? -INT32_MAX : sum);
}

int current_era(const lera *eras, int count, const ko_alt_tm_t *tm) {
    const int year = plus(tm->alt_tm_year, 1900), month = plus(tm->alt_tm_mon, 1);
    for (int i = 0; eras && i < count; i++) {
        if (check_bounds(&eras[i], tm->alt_tm_mday, month, year) == 0) return i;
    }
    return -1;
}

// The era year advances on the anniversary of the era's start, not on New Year.
int era_offset(const lera *eras, int index, const ko_alt_tm_t *tm) {
    const lera &era = eras[index];
    const era_date date = {0, plus(tm->alt_tm_mon, 1), tm->alt_tm_mday};
    const era_date anniversary = {0, era.start_month, era.start_day};
    const int64_t years = int64_t{tm->alt_tm_year} + 1900 - era.start_year;
    const int before = compare_dates(era.direction, date, anniversary) < 0;
    return plus(era.direction * years, era.offset - before);
}
