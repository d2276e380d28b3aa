// Integers: reading and writing under a locale, and the steps that reals share.
#include "number/kovalibn_text.h"

#include "chars/kovambwc.h"

#include <errno.h>
#include <limits.h>

// ---- Symbols ----

static wide_symbol readable(const kovaloc *loc, const ko_mchar_t *mbs, const ko_wchar_t *wcs) {
    if (!mbs || !wcs) return {nullptr, 0};
    int len = 0;
    while (wcs[len])
        ++len;
    if (loc->exp.single_byte || terminator_len(loc) > 1) return {wcs, len};
    const void *bytes = mbs;
    const bool alike = strlen(static_cast<const char *>(bytes)) == size_t(len);
    return {wcs, alike ? len : 0};
}

wide_symbol group_separator(const kovaloc *loc, int mode) {
    const monum *m = &loc->monum_info;
    if (mode == mode_number) return readable(loc, m->thousands_sep, m->w_thousands_sep);
    if (mode == mode_money) return readable(loc, m->mon_thousands_sep, m->w_mon_thousands_sep);
    return {nullptr, 0};
}

wide_symbol decimal_symbol(const kovaloc *loc) {
    return readable(loc, loc->monum_info.decimal_point, loc->monum_info.w_decimal_point);
}

int check_groups(const digit_groups &groups, const int *grouping) {
    int left = groups.separators;
    if (!grouping || grouping[0] < 1) return left + 1;
    const int *size = grouping + 1;
    for (; left > 0 && *size > 0; --left) {
        if (groups.len[left] != *size) return -1;
        if (size < grouping + grouping[0]) ++size;
    }
    if (*size <= 0) return left + 1;
    return groups.len[0] > *size ? -1 : 0;
}

// ---- Reading integers ----

namespace {
struct integer {
    uint64_t magnitude; // if beyond 32 bits, not exact
    bool negative;
};
} // namespace

// The value of digits with separators between them; a value beyond 32 bits is not exact.
template <class Unit>
static uint64_t limited_value(const number_text<Unit> &t, int i, int end, unsigned radix) {
    uint64_t value = 0;
    for (; i < end; ++i) {
        const unsigned digit = digit_at(t, i);
        if (digit < radix && value < uint64_t{1} << 40) value = value * radix + digit;
    }
    return value;
}
constexpr int surely_fit = 12; // digits that 64 bits hold in any base

// Length of the prefix of a base, after which a digit must follow; *radix gets the resulting base.
template <class Unit>
static int prefix_len(const number_text<Unit> &t, int i, int base, unsigned *radix) {
    *radix = unsigned(base ? base : 10);
    if ((base && base != 16) || at(t, i) != '0') return 0;
    if (!base) *radix = 8;
    if ((at(t, i + 1) | 0x20) != 'x' || digit_at(t, i + 2) >= 16) return 0;
    *radix = 16;
    return 2;
}

int grouped_run(kovaloc *loc, const ko_wchar_t *text, int most, int base) {
    const wide_symbol separator = group_separator(loc, mode_number);
    const number_text<ko_wchar_t> t = {loc, text, most};
    unsigned radix;
    int run = 0; // up to the last digit
    for (int i = prefix_len(t, 0, base, &radix); at(t, i);) {
        if (digit_at(t, i) < radix) {
            run = ++i;
        } else if (const int len = run ? symbol_len_at(t, i, separator) : 0) {
            i += len;
        } else {
            break;
        }
    }
    return run;
}

// Reads digits from a place on. Returns the units read; 0: no digits, -1: too many.
template <class Unit>
static int plain_digits(const number_text<Unit> &t, int start, int base, uint64_t *value) {
    unsigned radix;
    const int first = start + prefix_len(t, start, base, &radix);
    *value = 0;
    const int end = add_digits(t, first, radix, value);
    if (end - first > surely_fit) *value = limited_value(t, first, end, radix);
    return end == first ? 0 : end - start < number_room ? end - start : -1;
}

// The separator of decimal groups of three, if it is one byte; else 0.
template <class Unit> static unsigned separator_of_threes(const number_text<Unit> &t) {
    const unsigned unit = t.loc->marks.threes;
    const ko_wchar_t *const wide = t.loc->monum_info.w_thousands_sep;
    return !t.set && unit - '0' > 9 && wide && *wide == unit ? unit : 0;
}

// Reads a short rest of a text that consists of decimal groups of three. Returns the units read; 0
// for any other text.
template <class Unit>
static int short_threes(const number_text<Unit> &t, int start, unsigned separator,
                        uint64_t *value) {
    const Unit *const units = t.units + start;
    const int most = t.most - start;
    const auto digit = [units](int i) { return units[i] - unsigned{'0'}; };
    uint64_t sum = 0;
    int i = 0;
    for (; i < 3 && i < most && digit(i) <= 9; ++i)
        sum = sum * 10 + digit(i);
    for (; i && i < most && units[i]; i += 4) {
        if (units[i] != separator || i > surely_fit || most - i < 4) return 0;
        if (digit(i + 1) > 9 || digit(i + 2) > 9 || digit(i + 3) > 9) return 0;
        sum = sum * 1000 + (digit(i + 1) * 100 + digit(i + 2) * 10 + digit(i + 3));
    }
    *value = sum;
    return i;
}

// Reads grouped digits, which must be the whole rest of the text. If the grouping gives no size for
// more than one group at the left, the number ends at its first separator.
template <class Unit>
static int grouped_digits(const number_text<Unit> &t, int start, int base, uint64_t *value) {
    if (const unsigned threes = base == 10 ? separator_of_threes(t) : 0)
        if (const int read = short_threes(t, start, threes, value)) return read;
    const wide_symbol separator = group_separator(t.loc, mode_number);
    unsigned radix;
    digit_groups groups;
    const int prefix = prefix_len(t, start, base, &radix);
    if (!scan_groups(t, start, prefix, radix, separator, &groups)) return -1;
    if (at(t, groups.end) || groups.end - start >= number_room) return -1;
    const int beyond = check_groups(groups, grouping_of(t.loc, mode_number, separator));
    if (beyond < 0) return -1;
    if (beyond > 1) keep_first_group(t, start, prefix, radix, &groups);
    *value = groups.digits <= surely_fit ? groups.value
                                         : limited_value(t, start + prefix, groups.end, radix);
    return groups.end - start;
}

template <class Unit>
static int read_integer(const number_text<Unit> &t, int base, bool grouping, integer *result) {
    *result = {};
    if (base < 0 || base == 1 || base > 36) {
        errno = EINVAL;
        return 0;
    }
    const int white = white_len(t);
    const unsigned c = at(t, white);
    // With another sign there is no number, but grouped digits after it can still be refused.
    const bool other_sign = !is_sign(c) && takes_for_sign(t, white);
    if (other_sign && !grouping) return 0;
    const int i = white + (is_sign(c) || other_sign);
    result->negative = c == '-';
    const int read = grouping ? grouped_digits(t, i, base, &result->magnitude)
                              : plain_digits(t, i, base, &result->magnitude);
    // The sign counts: 255 digits and a sign are too many.
    if (read < 0 || (!grouping && i - white + read >= number_room))
        return fail(t.loc, KO_EINVAL, -1);
    if (other_sign) *result = {};
    return read && !other_sign ? i + read : 0;
}

static ko_long_t signed_value(const integer &n) {
    const uint64_t most = uint64_t{INT32_MAX} + n.negative;
    if (n.magnitude > most) {
        errno = ERANGE;
        return n.negative ? INT32_MIN : INT32_MAX;
    }
    const auto value = int64_t(n.magnitude);
    return ko_long_t(n.negative ? -value : value);
}

static ko_ulong_t unsigned_value(const integer &n) {
    if (n.magnitude > UINT32_MAX) {
        errno = ERANGE;
        return UINT32_MAX;
    }
    return ko_ulong_t(n.negative ? 0 - n.magnitude : n.magnitude);
}

namespace {
// How the two kinds of integers are bounded and fail.
struct signed_kind {
    using value = ko_long_t;
    static constexpr number_failure<value> failure = {long_failure, long_failure, false};
    static value of(const integer &n) { return signed_value(n); }
};
struct unsigned_kind {
    using value = ko_ulong_t;
    static constexpr number_failure<value> failure = {UINT32_MAX, long_failure, false};
    static value of(const integer &n) { return unsigned_value(n); }
};
} // namespace

template <class Kind, class Unit>
static int read_kind(const number_text<Unit> &t, int base, bool grouping,
                     typename Kind::value *value) {
    integer n;
    const int used = read_integer(t, base, grouping, &n);
    *value = used < 0 ? Kind::failure.failed : Kind::of(n);
    return used;
}

template <class Kind>
static typename Kind::value wide_integer(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end,
                                         int base, bool grouping) {
    if (!loc || !wcs) return fail(loc, KO_ENULL, Kind::failure.failed);
    typename Kind::value value;
    const int used =
        read_kind<Kind>(number_text<ko_wchar_t>{record(loc), wcs, INT_MAX}, base, grouping, &value);
    store_end(end, wcs, used, !grouping);
    return value;
}

template <class Kind>
static typename Kind::value multibyte_integer(ko_lc_t loc, const ko_mchar_t *mbs, ko_mchar_t **end,
                                              int base, bool grouping) {
    return read_multibyte(record(loc), mbs, end, Kind::failure,
                          [=](const auto &t, typename Kind::value *value) {
                              return read_kind<Kind>(t, base, grouping, value);
                          });
}

int widen_number(kovaloc *loc, const ko_mchar_t *mbs, ko_wchar_t (&wide)[number_room]) {
    const int len = im_mbslen(loc, mbs);
    if (len < 0) return -1;
    if (!len) return fail(loc, KO_EEMPTY, -1);
    return len < number_room ? loc->exp.mbstowcs(loc, wide, mbs, number_room) : number_room;
}

bool too_long(const ko_mchar_t *mbs, int used) {
    const void *const rest = mbs + used;
    const auto room = size_t(number_room - used);
    return strnlen(static_cast<const char *>(rest), room) == room;
}

int read_ulong(kovaloc *loc, const ko_wchar_t *text, int most, int base, bool grouping,
               ko_ulong_t *value) {
    return read_kind<unsigned_kind>(number_text<ko_wchar_t>{loc, text, most}, base, grouping,
                                    value);
}

ko_long_t ko_wcstol(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end, int base, int grouping) {
    return wide_integer<signed_kind>(loc, wcs, end, base, grouping != 0);
}

ko_ulong_t ko_wcstoul(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end, int base,
                      int grouping) {
    return wide_integer<unsigned_kind>(loc, wcs, end, base, grouping != 0);
}

ko_long_t ko_mbstol(ko_lc_t loc, const ko_mchar_t *mbs, ko_mchar_t **end, int base, int grouping) {
    return multibyte_integer<signed_kind>(loc, mbs, end, base, grouping != 0);
}

ko_ulong_t ko_mbstoul(ko_lc_t loc, const ko_mchar_t *mbs, ko_mchar_t **end, int base,
                      int grouping) {
    return multibyte_integer<unsigned_kind>(loc, mbs, end, base, grouping != 0);
}

// ---- Writing integers ----

constexpr int digits_room = 33; // a sign and 32 digits

char *long_base_str(char *end, ko_ulong_t value, int base) {
    static constexpr char letters[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    const auto radix = ko_ulong_t(base);
    do {
        *--end = letters[value % radix];
        value /= radix;
    } while (value);
    return end;
}

namespace {
// Walks the groups of digits from the right, one separator per step.
struct group_walk {
    const int *grouping;
    int size = 1;
    int done = 0; // digits to the right of the next separator
};
} // namespace
static bool next_separator(group_walk *walk, int digits) {
    if (walk->grouping[0] < walk->size || walk->grouping[walk->size] <= 0) return false;
    if (walk->grouping[walk->size] >= digits - walk->done) return false;
    walk->done += walk->grouping[walk->size];
    if (walk->size < walk->grouping[0]) ++walk->size;
    return true;
}

static int count_separators(const int *grouping, int digits) {
    group_walk walk = {grouping};
    int count = 0;
    while (next_separator(&walk, digits))
        ++count;
    return count;
}

// Writes digits, which may begin with a sign, with separators between their groups. Returns the
// end.
static ko_wchar_t *add_grp_sep(const kovaloc *loc, ko_wchar_t *dst, const char *digits,
                               const char *digits_end, const wide_symbol &separator) {
    const int *const grouping = loc->monum_info.group_num;
    if (*digits == '-') *dst++ = native(loc, *digits++);
    const auto n = int(digits_end - digits);
    const int separators = separator.len ? count_separators(grouping, n) : 0;
    ko_wchar_t *const end = dst + n + separators * separator.len;
    ko_wchar_t *to = end;
    group_walk walk = {grouping};
    for (int left = separators, done = 0; done < n;) {
        const int stop = left-- > 0 && next_separator(&walk, n) ? walk.done : n;
        for (; done < stop; ++done)
            *--to = native(loc, *--digits_end);
        for (int i = done < n ? separator.len : 0; i--;)
            *--to = separator.units[i];
    }
    return end;
}

// Writes an integer. Returns the characters written; with grouping at most maxlen, else all.
static int write_integer(const kovaloc *loc, ko_wchar_t *dst, int maxlen, ko_ulong_t magnitude,
                         bool negative, int base, bool grouping) {
    *dst = 0;
    if (base < 2 || base > 36) return 0;
    char digits[digits_room];
    char *const digits_end = digits + digits_room;
    char *first = long_base_str(digits_end, magnitude, base);
    if (negative) *--first = '-';
    wide_symbol separator = {nullptr, 0};
    if (grouping) {
        const monum *const m = &loc->monum_info;
        separator = {m->w_thousands_sep, ko_wcslen(m->w_thousands_sep)};
        // Deliberately, the sign counts as a digit here: "-123" needs the room of a separator.
        const auto n = int(digits_end - first);
        const int64_t len = n + int64_t{count_separators(m->group_num, n)} * separator.len;
        if (len > maxlen) return 0;
    }
    ko_wchar_t *const end = add_grp_sep(loc, dst, first, digits_end, separator);
    *end = 0;
    return int(end - dst);
}

namespace {
struct signed_long {
    ko_ulong_t magnitude;
    bool negative;
};
} // namespace
static signed_long take_apart(ko_long_t value) {
    const auto bits = ko_ulong_t(value);
    return {value < 0 ? 0 - bits : bits, value < 0};
}

static void wide_long(ko_lc_t loc, ko_wchar_t *dst, int maxlen, const signed_long &n, int base,
                      int grouping) {
    if (!loc || !dst) return set_error(loc, KO_ENULL);
    write_integer(record(loc), dst, maxlen, n.magnitude, n.negative, base, grouping != 0);
}

static int multibyte_long(ko_lc_t loc, ko_mchar_t *dst, int maxlen, const signed_long &n, int base,
                          int grouping) {
    constexpr int limit = 256;
    if (!loc || !dst) return fail(loc, KO_ENULL, -1);
    ko_wchar_t wide[limit];
    kovaloc *const r = record(loc);
    write_integer(r, wide, maxlen < limit ? maxlen : limit - 1, n.magnitude, n.negative, base,
                  grouping != 0);
    return narrow_result(r, dst, limit - terminator_len(r), wide);
}

void ko_ltowcs(ko_lc_t loc, ko_wchar_t *dst, int maxlen, ko_long_t value, int base, int grouping) {
    wide_long(loc, dst, maxlen, take_apart(value), base, grouping);
}

void ko_ultowcs(ko_lc_t loc, ko_wchar_t *dst, int maxlen, ko_ulong_t value, int base,
                int grouping) {
    wide_long(loc, dst, maxlen, {value, false}, base, grouping);
}

int ko_ltombs(ko_lc_t loc, ko_mchar_t *dst, int maxlen, ko_long_t value, int base, int grouping) {
    return multibyte_long(loc, dst, maxlen, take_apart(value), base, grouping);
}

int ko_ultombs(ko_lc_t loc, ko_mchar_t *dst, int maxlen, ko_ulong_t value, int base, int grouping) {
    return multibyte_long(loc, dst, maxlen, {value, false}, base, grouping);
}
