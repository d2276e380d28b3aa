#include "kovatmlib_quick.h"

#include "kovambwc.h"

#include <string.h>

// ---- Names --------------------------------------------------------------------------------------

// A name is copied as one block, whatever its length.
constexpr size_t block_bytes = 32;
template <class Unit> constexpr size_t block_units = block_bytes / sizeof(Unit);
constexpr int months_of_year = 12; // locales with others go the long way

template <class Unit> struct quick_name {
    Unit text[block_units<Unit>];
    int len; // 0: the engine writes it
};
template <class Unit> using quick_list = quick_name<Unit>[months_of_year];
struct quick_times {
    quick_list<ko_mchar_t> bytes[time_lists];
    quick_list<ko_wchar_t> wide[time_lists];
};

static size_t length_of(const ko_mchar_t *s) { return strlen(reinterpret_cast<const char *>(s)); }
static size_t length_of(const ko_wchar_t *s) { return static_cast<size_t>(ko_wcslen(s)); }

template <class Unit> static void add_names(quick_list<Unit> &list, Unit *const *names, int count) {
    for (int i = 0; i < count && i < months_of_year && names; ++i) {
        const size_t len = names[i] ? length_of(names[i]) : 0;
        if (len > block_units<Unit>) continue;
        list[i].len = static_cast<int>(len);
        if (len) memcpy(list[i].text, names[i], len * sizeof(Unit));
    }
}

void build_quick_times(kovaloc *loc) {
    ltime *t = &loc->ltime_info;
    free_quick_times(t);
    if (t->calendar != calendar_gregorian || t->mon_count != months_of_year) return;
    t->quick = static_cast<quick_times *>(ko_ext_malloc(sizeof(quick_times)));
    if (!t->quick) return;
    *t->quick = {};
    for (int i = 0; i < time_lists; ++i) {
        const time_names list = names_of(t, static_cast<time_list>(i));
        add_names(t->quick->bytes[i], list.bytes, list.count);
        add_names(t->quick->wide[i], list.names, list.count);
    }
}

void free_quick_times(ltime *t) {
    free_ptr(t->quick);
    t->quick = nullptr;
}

// ---- Formatting ---------------------------------------------------------------------------------

constexpr int quick_units = 96;   // of a result, unless the last piece is longer
constexpr int quick_pieces = 512; // directives of a format and those inside it
constexpr int quick_depth = 2;

// The rows of the table again, small and by letter.
struct written_rule {
    const time_directive *row;
    int ko_alt_tm_t::*field;
    int lo;
    unsigned span;  // above lo
    unsigned first; // what lo is written as
    time_kind kind; // forms: left to the engine
    time_view view;
    time_list list;
};
static constexpr std::array<written_rule, 128> written_rules = [] {
    std::array<written_rule, 128> rules{};
    for (written_rule &rule : rules)
        rule.kind = time_kind::forms;
    for (const time_directive &row : time_directives) {
        const int hi = row.hi == by_months ? months_of_year - 1 : row.hi;
        const bool pairs = row.digits == 2 || row.digits == 4; // of digits, in every value
        const bool other = row.kind == time_kind::number && !pairs;
        rules[static_cast<unsigned char>(row.letter)] = {
            .row = &row,
            .field = row.field,
            .lo = row.lo,
            .span = static_cast<unsigned>(hi - row.lo),
            .first = static_cast<unsigned>(row.lo + row.bias),
            .kind = other ? time_kind::forms : row.kind,
            .view = row.view,
            .list = row.list,
        };
    }
    return rules;
}();

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

template <class Unit>
constexpr std::array<Unit, 200> digit_pairs = [] {
    std::array<Unit, 200> pairs;
    for (size_t i = 0; i < pairs.size(); ++i)
        pairs[i] = static_cast<Unit>('0' + (i % 2 ? i / 2 % 10 : i / 20));
    return pairs;
}();
template <class Unit> static inline Unit *put_pair(Unit *at, unsigned number) {
    memcpy(at, &digit_pairs<Unit>[2 * number], 2 * sizeof(Unit));
    return at + 2;
}

template <class Unit>
static inline Unit *put_name(const quick_out<Unit> &q, Unit *at, const written_rule &rule,
                             unsigned value) {
    const unsigned index = rule.view == time_view::plain ? value
                           : rule.view == time_view::month_index
                               ? static_cast<unsigned>(q.tm->alt_tm_monidx)
                               : value / 12;
    if (index >= months_of_year) return nullptr;
    const quick_name<Unit> &name = q.lists[rule.list][index];
    memcpy(at, name.text, block_bytes);
    return name.len ? at + name.len : nullptr;
}

template <class Unit>
static inline Unit *quick_field(const quick_out<Unit> &q, Unit *at, const written_rule &rule) {
    const unsigned value =
        static_cast<unsigned>(q.tm->*rule.field) - static_cast<unsigned>(rule.lo);
    if (value > rule.span) return nullptr;
    if (rule.kind == time_kind::name) return put_name(q, at, rule, value);
    switch (rule.view) {
    case time_view::short_year:
        return put_pair(at, value % 100);
    case time_view::full_year:
        return put_pair(put_pair(at, value / 100), value % 100);
    case time_view::hour12:
        return put_pair(at, value % 12 ? value % 12 : 12);
    case time_view::weekday7:
        return put_pair(at, value ? value : 7);
    default:
        put_pair(at, value + rule.first);
        if (rule.kind == time_kind::day && *at == '0') *at = ' ';
        return at + 2;
    }
}

template <class Unit>
static Unit *quick_parts(const quick_out<Unit> &q, Unit *at, const char *parts) {
    for (; *parts && at; ++parts) {
        const written_rule &rule = written_rules[static_cast<unsigned char>(*parts)];
        if (rule.row)
            at = quick_field(q, at, rule);
        else
            *at++ = static_cast<Unit>(*parts);
    }
    return at;
}

template <class Unit>
static Unit *quick_format(quick_out<Unit> &q, Unit *at, const Unit *format, int depth);

template <class Unit>
static inline Unit *quick_directive(quick_out<Unit> &q, Unit *at, const written_rule &rule,
                                    int depth) {
    if (rule.kind >= time_kind::name && rule.kind <= time_kind::day)
        return quick_field(q, at, rule);
    if (rule.kind == time_kind::parts) return quick_parts(q, at, rule.row->parts);
    if (rule.kind == time_kind::unit) {
        *at = static_cast<Unit>(*rule.row->parts);
        return at + 1;
    }
    if (rule.kind != time_kind::format || depth == quick_depth) return nullptr;
    const Unit *const format = format_of(&q.loc->ltime_info, *rule.row, at);
    return format ? quick_format(q, at, format, depth + 1) : nullptr;
}

template <class Unit>
static Unit *quick_format(quick_out<Unit> &q, Unit *at, const Unit *format, int depth) {
    const mb_flat *const flat = q.flat;
    const Unit *const limit = q.limit;
    for (unsigned c; (c = *format) != 0;) {
        if (at > limit) return nullptr;
        if (c == '%') {
            const unsigned letter = format[1];
            if (letter >= written_rules.size() || !q.pieces--) return nullptr;
            at = quick_directive(q, at, written_rules[letter], depth);
            if (!at) return nullptr;
            format += 2;
            continue;
        }
        *at++ = *format++;
        if (!flat || flat->flag1[c] == mb_final) continue;
        if (flat->flag1[c] != mb_prefix || flat->second->flags[c][*format] != mb_final) {
            return nullptr;
        }
        *at++ = *format++;
    }
    return at;
}

template <class Unit>
static int quick_run(quick_out<Unit> &q, Unit *out, int maxsize, const Unit *format) {
    constexpr size_t most = quick_units + block_units<Unit>;
    Unit room[most];
    Unit *const result = maxsize < static_cast<int>(most) ? room : out;
    q.limit = result + quick_units;
    q.pieces = quick_pieces;
    const Unit *const end = quick_format(q, result, format, 0);
    if (!end || end - result >= maxsize) return -1;
    const auto n = static_cast<int>(end - result);
    if (result != out) memcpy(out, result, static_cast<size_t>(n) * sizeof(Unit));
    out[n] = 0;
    return n;
}

// Whether ASCII characters are what they seem.
static bool is_plain(const kovaloc *loc) {
    constexpr unsigned shared = category_bit(KO_LC_TIME) | category_bit(KO_LC_CTYPE);
    return loc->ltime_info.quick && !loc->portable && !(loc->copied & shared);
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
