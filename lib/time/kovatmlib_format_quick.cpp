// The quick way of writing times. Each writer takes a place in the result and returns the place
// after what it has written; NULL for what the engine must do.
#include "chars/kovambwc.h"
#include "time/kovatmlib_quick.h"

#include <string.h>

constexpr int result_units = 96; // of a result, though the last piece may exceed it
constexpr int pieces_most = 512; // directives of a format and those inside it
constexpr int depth_most = 2;

// The rows of the table of directives in a small form, by letter.
namespace {
struct written_rule {
    const time_directive *row;
    int ko_alt_tm_t::*field;
    int lo;
    unsigned span;  // above lo
    unsigned first; // what is written for lo, if the view is plain
    time_kind kind; // forms: left to the engine
    time_view view;
    time_list list;
};

template <class Unit> struct quick_out {
    const kovaloc *loc;
    const ko_alt_tm_t *tm;
    const mb_flat *flat; // if characters may have two bytes; NULL: each unit is a character
    const quick_names<Unit> *names;
    const Unit *limit; // before this place there is room for at least a block
    int pieces;        // that may still come
};
} // namespace
static constexpr std::array<written_rule, 128> written_rules = [] {
    std::array<written_rule, 128> rules{};
    for (written_rule &rule : rules)
        rule.kind = time_kind::forms;
    for (const time_directive &row : time_directives) {
        const int hi = row.hi == by_months ? usual_months - 1 : row.hi;
        const bool pairs = row.digits == 2 || row.digits == 4; // whole pairs of digits
        const bool other = row.kind == time_kind::number && !pairs;
        const bool plain = row.view == time_view::plain;
        rules[uint8_t(row.letter)] = {
            .row = &row,
            .field = row.field,
            .lo = row.lo,
            .span = unsigned(hi - row.lo),
            .first = unsigned(plain ? row.lo + row.bias : 0),
            .kind = other ? time_kind::forms : row.kind,
            .view = row.view,
            .list = row.list,
        };
    }
    return rules;
}();

static const ko_mchar_t *format_of(const ltime *t, const time_directive &row, const ko_mchar_t *) {
    return t->*row.format_bytes;
}
static const ko_wchar_t *format_of(const ltime *t, const time_directive &row, const ko_wchar_t *) {
    return t->*row.format;
}

template <class Unit> static inline Unit *put_pair(Unit *at, unsigned number) {
    memcpy(at, digit_pairs<Unit>[number].data(), 2 * sizeof(Unit));
    return at + 2;
}

// above: the field's distance from the lowest value.
template <class Unit>
static inline Unit *put_name(const quick_out<Unit> &q, Unit *at, const written_rule &rule,
                             unsigned above) {
    const unsigned index = rule.view == time_view::month_index ? unsigned(q.tm->alt_tm_monidx)
                                                               : view_of(rule.view, above);
    if (index >= usual_months) return nullptr;
    const written_name<Unit> &name = q.names->written[rule.list][index];
    memcpy(at, name.text, block_bytes);
    return name.len ? at + name.len : nullptr;
}

template <class Unit>
static inline Unit *put_field(const quick_out<Unit> &q, Unit *at, const written_rule &rule) {
    const unsigned above = unsigned(q.tm->*rule.field) - unsigned(rule.lo);
    if (above > rule.span) return nullptr;
    if (rule.kind == time_kind::name) return put_name(q, at, rule, above);
    if (rule.view == time_view::full_year) return put_pair(put_pair(at, above / 100), above % 100);
    put_pair(at, view_of(rule.view, above) + rule.first);
    if (rule.kind == time_kind::day && *at == '0') *at = ' ';
    return at + 2;
}

template <class Unit>
static Unit *put_parts(const quick_out<Unit> &q, Unit *at, const char *parts) {
    for (; *parts && at; ++parts) {
        const written_rule &rule = written_rules[uint8_t(*parts)];
        if (rule.row)
            at = put_field(q, at, rule);
        else
            *at++ = Unit(*parts);
    }
    return at;
}

template <class Unit>
static Unit *put_format(quick_out<Unit> &q, Unit *at, const Unit *format, int depth);

template <class Unit>
static inline Unit *put_directive(quick_out<Unit> &q, Unit *at, const written_rule &rule,
                                  int depth) {
    if (is_field(rule.kind)) return put_field(q, at, rule);
    if (rule.kind == time_kind::parts) return put_parts(q, at, rule.row->parts);
    if (rule.kind == time_kind::unit) {
        *at = Unit(*rule.row->parts);
        return at + 1;
    }
    if (rule.kind != time_kind::format || depth == depth_most) return nullptr;
    const Unit *const format = format_of(&q.loc->ltime_info, *rule.row, at);
    return format ? put_format(q, at, format, depth + 1) : nullptr;
}

template <class Unit>
static Unit *put_format(quick_out<Unit> &q, Unit *at, const Unit *format, int depth) {
    const mb_flat *const flat = q.flat;
    const Unit *const limit = q.limit;
    for (unsigned c; (c = *format) != 0;) {
        if (at > limit) return nullptr;
        if (c == '%') {
            const unsigned letter = format[1];
            if (letter >= written_rules.size() || !q.pieces--) return nullptr;
            at = put_directive(q, at, written_rules[letter], depth);
            if (!at) return nullptr;
            format += 2;
            continue;
        }
        *at++ = *format++; // the shared step would make the next place wait for the flags
        if (sizeof(Unit) > 1 || !flat || flat->flag1[c] == mb_final) continue;
        if (flat->flag1[c] != mb_prefix || flat->second->flags[c][*format] != mb_final) {
            return nullptr;
        }
        *at++ = *format++;
    }
    return at;
}

template <class Unit>
static int run(quick_out<Unit> &q, Unit *out, int maxsize, const Unit *format) {
    constexpr size_t most = result_units + block_units<Unit>;
    Unit room[most];
    Unit *const result = maxsize < int(most) ? room : out;
    q.limit = result + result_units;
    q.pieces = pieces_most;
    const Unit *const end = put_format(q, result, format, 0);
    // NOLINTBEGIN(clang-analyzer-*): nobody reads the limit again
    if (!end || end - result >= maxsize) return -1;
    const auto n = int(end - result);
    if (result != out) memcpy(out, result, size_t(n) * sizeof(Unit));
    out[n] = 0;
    return n;
    // NOLINTEND(clang-analyzer-*)
}

// Is the quick way on, and are ASCII characters themselves?
static bool is_plain(const kovaloc *loc) {
    constexpr unsigned shared = category_bit(KO_LC_TIME) | category_bit(KO_LC_CTYPE);
    const quick_times *const quick = loc->ltime_info.quick;
    return quick && quick->writes && !loc->portable && !(loc->copied & shared);
}

int quick_format(const kovaloc *loc, ko_mchar_t *out, int maxsize, const ko_mchar_t *format,
                 const ko_alt_tm_t *tm) {
    if (!is_plain(loc)) return -1;
    const ctype_flat *const flat = loc->exp.single_byte ? nullptr : flat_classes(loc);
    if (!loc->exp.single_byte && (!flat || flat->classes.min_char_len != 1)) return -1;
    quick_out<ko_mchar_t> q = {
        loc, tm, flat ? &flat->classes : nullptr, &loc->ltime_info.quick->bytes, nullptr, 0};
    return run(q, out, maxsize, format);
}

int quick_format(const kovaloc *loc, ko_wchar_t *out, int maxsize, const ko_wchar_t *format,
                 const ko_alt_tm_t *tm) {
    if (!is_plain(loc)) return -1;
    quick_out<ko_wchar_t> q = {loc, tm, nullptr, &loc->ltime_info.quick->wide, nullptr, 0};
    return run(q, out, maxsize, format);
}
