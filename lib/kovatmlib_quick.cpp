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
    Unit *at;
    const Unit *limit; // room for a block and more is left up to here
    int pieces;
};

static const ko_mchar_t *format_of(const ltime *t, const time_directive &row, const ko_mchar_t *) {
    return t->*row.format_bytes;
}
static const ko_wchar_t *format_of(const ltime *t, const time_directive &row, const ko_wchar_t *) {
    return t->*row.format;
}

template <class Unit> static inline void put_pair(Unit *&at, unsigned number) {
    at[0] = static_cast<Unit>('0' + number / 10);
    at[1] = static_cast<Unit>('0' + number % 10);
    at += 2;
}

template <class Unit>
static inline bool quick_number(quick_out<Unit> *q, const time_directive &row) {
    int value = 0;
    if (time_value(&q->loc->ltime_info, q->tm, row, &value)) return false;
    const auto number = static_cast<unsigned>(value);
    if (row.kind == time_kind::day && number < 10) {
        q->at[0] = ' ';
        q->at[1] = static_cast<Unit>('0' + number);
        q->at += 2;
        return true;
    }
    const bool two = row.digits == 2 || row.kind == time_kind::day;
    if (number > (two ? 99 : 9999) || (!two && row.digits != 4)) return false;
    if (!two) put_pair(q->at, number / 100);
    put_pair(q->at, number % 100);
    return true;
}

template <class Unit>
static inline bool quick_name_of(quick_out<Unit> *q, const time_directive &row) {
    int index = 0;
    if (time_value(&q->loc->ltime_info, q->tm, row, &index)) return false;
    if (index < 0 || index >= quick_names_max) return false;
    const quick_name<Unit> &name = q->lists[row.list][index];
    if (!name.text) return false;
    memcpy(q->at, name.text, block_bytes);
    q->at += name.len;
    return true;
}

template <class Unit> static bool quick_parts(quick_out<Unit> *q, const time_directive &row) {
    for (const char *c = row.parts; *c; ++c) {
        const time_directive *const part = time_by_letter[static_cast<unsigned char>(*c)];
        if (!part)
            *q->at++ = static_cast<Unit>(*c);
        else if (!quick_number(q, *part))
            return false;
    }
    return true;
}

template <class Unit> static bool quick_format(quick_out<Unit> *q, const Unit *format, int depth);

template <class Unit>
static inline bool quick_directive(quick_out<Unit> *q, const time_directive &row, int depth) {
    switch (row.kind) {
    case time_kind::unit:
        *q->at++ = static_cast<Unit>(*row.parts);
        return true;
    case time_kind::name:
        return quick_name_of(q, row);
    case time_kind::number:
    case time_kind::day:
        return quick_number(q, row);
    case time_kind::parts:
        return quick_parts(q, row);
    case time_kind::format: {
        const Unit *const format = format_of(&q->loc->ltime_info, row, q->at);
        return format && depth < quick_depth && quick_format(q, format, depth + 1);
    }
    default:
        return false;
    }
}

// False for what the engine must do.
template <class Unit> static bool quick_format(quick_out<Unit> *q, const Unit *format, int depth) {
    for (;;) {
        const unsigned c = *format;
        if (q->at > q->limit || !q->pieces--) return false;
        if (c == '%') {
            const time_directive *const row = find_directive(time_by_letter, format[1]);
            if (!row || !quick_directive(q, *row, depth)) return false;
            format += 2;
            continue;
        }
        if (!c) return true;
        *q->at++ = *format++;
        if (!q->flat || q->flat->flag1[c] == mb_final) continue;
        if (q->flat->flag1[c] != mb_prefix || q->flat->second->flags[c][*format] != mb_final) {
            return false;
        }
        *q->at++ = *format++;
    }
}

template <class Unit>
static int quick_run(quick_out<Unit> *q, Unit *out, int maxsize, const Unit *format) {
    Unit result[quick_units + block_bytes];
    q->at = result;
    q->limit = result + quick_units;
    q->pieces = quick_pieces;
    if (!quick_format(q, format, 0)) return -1;
    const auto n = static_cast<int>(q->at - result);
    if (n >= maxsize) return -1;
    memcpy(out, result, static_cast<size_t>(n) * sizeof(Unit));
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
        loc,     tm, flat ? &flat->classes : nullptr, loc->ltime_info.quick->bytes, nullptr,
        nullptr, 0};
    return quick_run(&q, out, maxsize, format);
}

int quick_time(const kovaloc *loc, ko_wchar_t *out, int maxsize, const ko_wchar_t *format,
               const ko_alt_tm_t *tm) {
    if (!is_plain(loc)) return -1;
    quick_out<ko_wchar_t> q = {loc, tm, nullptr, loc->ltime_info.quick->wide, nullptr, nullptr, 0};
    return quick_run(&q, out, maxsize, format);
}
