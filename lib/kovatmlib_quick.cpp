#include "kovatmlib_quick.h"

#include "kovambwc.h"

#include <string.h>

// ---- Names --------------------------------------------------------------------------------------

// A name is copied as one block, so a block can be read at each, whatever its length.
constexpr size_t block_bytes = 32;
constexpr int quick_names_max = 14; // of a list, the months of a leap year included

template <class Unit> struct quick_name {
    const Unit *text; // NULL: the engine writes it
    int len;
};
template <class Unit> using quick_list = quick_name<Unit>[quick_names_max];
struct quick_times {
    quick_list<ko_mchar_t> bytes[time_lists];
    quick_list<ko_wchar_t> wide[time_lists];
};

static size_t length_of(const ko_mchar_t *s) { return strlen(reinterpret_cast<const char *>(s)); }
static size_t length_of(const ko_wchar_t *s) { return static_cast<size_t>(ko_wcslen(s)); }

template <class Unit> static bool is_quick(const Unit *name) {
    return name && length_of(name) * sizeof(Unit) <= block_bytes;
}

template <class Unit>
static void add_names(quick_list<Unit> &list, Unit *const *names, int count, unsigned char **pool) {
    for (int i = 0; i < count && i < quick_names_max && names; ++i) {
        if (!is_quick(names[i])) continue;
        list[i].len = static_cast<int>(length_of(names[i]));
        Unit *const text = reinterpret_cast<Unit *>(*pool);
        memcpy(text, names[i], length_of(names[i]) * sizeof(Unit));
        list[i].text = text;
        *pool += block_bytes;
    }
}

void build_quick_times(kovaloc *loc) {
    ltime *t = &loc->ltime_info;
    free_quick_times(t);
    constexpr size_t most = size_t{2} * time_lists * quick_names_max * block_bytes;
    unsigned char *const block =
        static_cast<unsigned char *>(ko_ext_malloc(sizeof(quick_times) + most));
    if (!block) return;
    memset(block, 0, sizeof(quick_times) + most);
    quick_times *const quick = t->quick = reinterpret_cast<quick_times *>(block);
    unsigned char *pool = block + sizeof(quick_times);
    for (int i = 0; i < time_lists; ++i) {
        const time_names list = names_of(t, static_cast<time_list>(i));
        add_names(quick->bytes[i], list.bytes, list.count, &pool);
        add_names(quick->wide[i], list.names, list.count, &pool);
    }
}

void free_quick_times(ltime *t) {
    free_ptr(t->quick);
    t->quick = nullptr;
}

// ---- Formatting ---------------------------------------------------------------------------------

constexpr int quick_units = 128;  // of a result, unless the last piece is longer
constexpr int quick_pieces = 512; // of a format and those inside it
constexpr int quick_depth = 2;

template <class Unit> struct quick_out {
    const kovaloc *loc;
    const ko_alt_tm_t *tm;
    const mb_flat *flat; // of bytes that make characters of two; NULL: each unit is a character
    const quick_list<Unit> *lists;
    const Unit *limit; // room for a block and more is left up to here
    int pieces;        // that may still come
};

// Each writer takes the place in the result and returns the place behind what it has written; NULL
// for what the engine must do.

static const ko_mchar_t *format_of(const ltime *t, const time_directive &row, const ko_mchar_t *) {
    return t->*row.format_bytes;
}
static const ko_wchar_t *format_of(const ltime *t, const time_directive &row, const ko_wchar_t *) {
    return t->*row.format;
}

template <class Unit> static inline Unit *put_pair(Unit *at, unsigned number) {
    at[0] = static_cast<Unit>('0' + number / 10);
    at[1] = static_cast<Unit>('0' + number % 10);
    return at + 2;
}

template <class Unit>
static inline Unit *quick_number(const quick_out<Unit> &q, Unit *at, const time_directive &row) {
    int value = 0;
    if (time_value(&q.loc->ltime_info, q.tm, row, &value)) return nullptr;
    const auto number = static_cast<unsigned>(value);
    if (row.digits == 2 && number < 100) return put_pair(at, number);
    if (row.digits == 4 && number < 10000)
        return put_pair(put_pair(at, number / 100), number % 100);
    if (row.kind != time_kind::day || number > 99) return nullptr;
    put_pair(at, number);
    if (number < 10) *at = ' ';
    return at + 2;
}

template <class Unit>
static inline Unit *quick_name_of(const quick_out<Unit> &q, Unit *at, const time_directive &row) {
    int index = 0;
    if (time_value(&q.loc->ltime_info, q.tm, row, &index)) return nullptr;
    if (static_cast<unsigned>(index) >= quick_names_max) return nullptr;
    const quick_name<Unit> &name = q.lists[row.list][index];
    if (!name.text) return nullptr;
    memcpy(at, name.text, block_bytes);
    return at + name.len;
}

template <class Unit>
static Unit *quick_parts(const quick_out<Unit> &q, Unit *at, const time_directive &row) {
    for (const char *c = row.parts; *c && at; ++c) {
        const time_directive *const part = time_by_letter[static_cast<unsigned char>(*c)];
        if (part)
            at = quick_number(q, at, *part);
        else
            *at++ = static_cast<Unit>(*c);
    }
    return at;
}

template <class Unit>
static Unit *quick_format(quick_out<Unit> &q, Unit *at, const Unit *format, int depth);

template <class Unit>
static inline Unit *quick_directive(quick_out<Unit> &q, Unit *at, const time_directive &row,
                                    int depth) {
    switch (row.kind) {
    case time_kind::unit:
        *at = static_cast<Unit>(*row.parts);
        return at + 1;
    case time_kind::name:
        return quick_name_of(q, at, row);
    case time_kind::number:
    case time_kind::day:
        return quick_number(q, at, row);
    case time_kind::parts:
        return quick_parts(q, at, row);
    case time_kind::format: {
        const Unit *const format = format_of(&q.loc->ltime_info, row, at);
        return format && depth < quick_depth ? quick_format(q, at, format, depth + 1) : nullptr;
    }
    default:
        return nullptr;
    }
}

template <class Unit>
static Unit *quick_format(quick_out<Unit> &q, Unit *at, const Unit *format, int depth) {
    const mb_flat *const flat = q.flat;
    for (;;) {
        const unsigned c = *format;
        if (at > q.limit || !q.pieces--) return nullptr;
        if (c == '%') {
            const time_directive *const row = find_directive(time_by_letter, format[1]);
            if (!row) return nullptr;
            at = quick_directive(q, at, *row, depth);
            if (!at) return nullptr;
            format += 2;
            continue;
        }
        if (!c) return at;
        *at++ = *format++;
        if (!flat || flat->flag1[c] == mb_final) continue;
        if (flat->flag1[c] != mb_prefix || flat->second->flags[c][*format] != mb_final) {
            return nullptr;
        }
        *at++ = *format++;
    }
}

// Copies a result; those of usual length in two blocks that overlap.
static inline void copy_result(void *to, const void *from, size_t size) {
    constexpr size_t half = block_bytes / 2;
    if (size < half || size > block_bytes) {
        memcpy(to, from, size);
        return;
    }
    memcpy(to, from, half);
    memcpy(static_cast<char *>(to) + size - half, static_cast<const char *>(from) + size - half,
           half);
}

template <class Unit>
static int quick_run(quick_out<Unit> &q, Unit *out, int maxsize, const Unit *format) {
    Unit result[quick_units + block_bytes];
    q.limit = result + quick_units;
    q.pieces = quick_pieces;
    const Unit *const end = quick_format(q, result, format, 0);
    if (!end || end - result >= maxsize) return -1;
    const auto n = static_cast<int>(end - result);
    copy_result(out, result, static_cast<size_t>(n) * sizeof(Unit));
    out[n] = 0;
    return n;
}

// Whether ASCII characters are what they seem and dates need no conversion.
static bool is_plain(const kovaloc *loc) {
    constexpr unsigned shared = category_bit(KO_LC_TIME) | category_bit(KO_LC_CTYPE);
    return loc->ltime_info.quick && !loc->portable && !(loc->copied & shared) &&
           loc->ltime_info.calendar == calendar_gregorian;
}

int quick_time(const kovaloc *loc, ko_mchar_t *out, int maxsize, const ko_mchar_t *format,
               const ko_alt_tm_t *tm) {
    if (!is_plain(loc)) return -1;
    const ctype_flat *const flat = loc->exp.single_byte ? nullptr : flat_classes(loc);
    if (!loc->exp.single_byte && (!flat || flat->classes.min_char_len != 1)) return -1;
    quick_out<ko_mchar_t> q = {
        loc, tm, flat ? &flat->classes : nullptr, loc->ltime_info.quick->bytes, nullptr, 0};
    return quick_run(q, out, maxsize, format);
}

int quick_time(const kovaloc *loc, ko_wchar_t *out, int maxsize, const ko_wchar_t *format,
               const ko_alt_tm_t *tm) {
    if (!is_plain(loc)) return -1;
    quick_out<ko_wchar_t> q = {loc, tm, nullptr, loc->ltime_info.quick->wide, nullptr, 0};
    return quick_run(q, out, maxsize, format);
}
