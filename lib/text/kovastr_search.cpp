// Searching for characters, members of sets and strings.
#include "text/kovastr.h"

// The result when nothing is found; an error word of 0 distinguishes it from a failure.
template <class Unit> static Unit *absent(ko_lc_t loc) {
    return fail(loc, KO_OK, static_cast<Unit *>(nullptr));
}

// ---- One character ----

namespace {
enum class which { first, last };
} // namespace

static bool same(text_char a, text_char b) { return a.units == b.units && a.code == b.code; }

template <class By, class Unit>
static Unit *find_char(const By &by, const Unit *s, text_char wanted, which side) {
    const Unit *found = nullptr;
    for (text_char c;; s += c.units) {
        if (wanted.units < 2) s += 2 * by.pairs(s);
        c = by.at(s);
        if (same(c, wanted)) { // nothing that is invalid is
            found = s;
            if (side == which::first) break;
        }
        if (c.units > 0) continue;
        if (c.units < 0) return nullptr;
        break;
    }
    return found ? const_cast<Unit *>(found) : absent<Unit>(by.loc);
}

static ko_mchar_t *find_char(const by_byte &by, const ko_mchar_t *s, text_char wanted, which side) {
    const void *text = s;
    const auto *bytes = static_cast<const char *>(text);
    const auto byte = int(wanted.code);
    const void *found = side == which::first ? strchr(bytes, byte) : strrchr(bytes, byte);
    return found ? static_cast<ko_mchar_t *>(const_cast<void *>(found))
                 : absent<ko_mchar_t>(by.loc);
}

static ko_mchar_t *find_mb(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *mb, which side) {
    ko_mchar_t *const none = nullptr;
    if (!loc || !mbs || !mb) return fail(loc, KO_ENULL, none);
    return by_code_set(loc, [=](const auto &by) {
        const text_char wanted = by.at(mb);
        return wanted.units < 0 ? none : find_char(by, mbs, wanted, side);
    });
}

static ko_wchar_t *find_wc(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t wc, which side) {
    ko_wchar_t *const none = nullptr;
    if (!wcs) return fail(loc, KO_ENULL, none);
    return find_char(by_wide{record(loc), 1}, wcs, {wc ? 1 : 0, wc}, side);
}

ko_mchar_t *ko_full_mbschr(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *mb) {
    return find_mb(loc, mbs, mb, which::first);
}
ko_mchar_t *ko_full_mbsrchr(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *mb) {
    return find_mb(loc, mbs, mb, which::last);
}
ko_wchar_t *ko_wcschr(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t wc) {
    return find_wc(loc, wcs, wc, which::first);
}
ko_wchar_t *ko_wcsrchr(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t wc) {
    return find_wc(loc, wcs, wc, which::last);
}

// ---- Sets ----

namespace {
// A set of values: those below 256 are bits; a few others are listed, and if there are more, they
// become bits, too.
struct char_set {
    static constexpr unsigned room = 24;
    uint32_t low[8] = {};
    unsigned count = 0;
    ko_wchar_t few[room];
    uint32_t *all = nullptr; // owned: a bit for every value
    bool pairs = false;      // a member has two units
    char_set() = default;
    char_set(const char_set &) = delete;
    char_set &operator=(const char_set &) = delete;
    ~char_set() { free_ptr(all); }
};
} // namespace

static void set_bit(uint32_t *bits, unsigned value) { bits[value >> 5] |= 1u << (value & 31); }
static bool bit_of(const uint32_t *bits, unsigned value) {
    return bits[value >> 5] >> (value & 31) & 1;
}

// False without memory.
static bool add_member(char_set *set, unsigned wide) {
    if (wide < 256) {
        set_bit(set->low, wide);
        return true;
    }
    if (!set->all && set->count < char_set::room) {
        set->few[set->count++] = ko_wchar_t(wide);
        return true;
    }
    if (!set->all) {
        constexpr size_t words = 0x10000 / 32;
        ext_block<uint32_t> bits(words);
        if (!bits.p) return false;
        memset(bits.p, 0, words * sizeof *bits.p);
        for (const ko_wchar_t member : set->few)
            set_bit(bits.p, member);
        set->all = bits.release();
    }
    set_bit(set->all, wide);
    return true;
}

static inline bool is_member(const char_set &set, unsigned wide) {
    if (wide < 256) return bit_of(set.low, wide);
    if (set.all) return bit_of(set.all, wide);
    for (unsigned i = 0; i < set.count; ++i) {
        if (set.few[i] == wide) return true;
    }
    return false;
}

template <class By> static bool read_set(const By &by, const typename By::unit *s, char_set *set) {
    for (text_char c; (c = by.at(s)).units; s += c.units) {
        if (c.units < 0) return false;
        set->pairs |= c.units > 1;
        if (!add_member(set, c.code & 0xFFFF)) return fail(by.loc, KO_ENOMEM, false);
    }
    return true;
}

namespace {
// Where the first character that is, or is not, a member begins.
template <class Unit> struct span_end {
    const Unit *at;  // NULL on failure
    ptrdiff_t chars; // -1 on failure
};
} // namespace
template <class By, class Unit>
static span_end<Unit> span_of(const By &by, const Unit *s, const Unit *members, bool inside) {
    const span_end<Unit> none = {nullptr, -1};
    char_set set;
    if (!read_set(by, members, &set)) return none;
    ptrdiff_t chars = 0;
    const bool pairs_go_on = !inside && !set.pairs;
    for (text_char c;; s += c.units, ++chars) {
        if (pairs_go_on) {
            const size_t pairs = by.pairs(s);
            s += 2 * pairs;
            chars += ptrdiff_t(pairs);
        }
        c = by.at(s);
        if (!c.units) break;
        if (unsigned(c.units) > 2) // characters of more units are not compared
            return c.units < 0 ? none : fail(by.loc, KO_EINVAL, none);
        if (is_member(set, c.code) != inside) break;
    }
    return {s, chars};
}

static span_end<ko_mchar_t> span_of(const by_byte &, const ko_mchar_t *s, const ko_mchar_t *members,
                                    bool inside) {
    const void *text = s, *set = members;
    const auto *bytes = static_cast<const char *>(text), *of = static_cast<const char *>(set);
    const size_t n = inside ? strspn(bytes, of) : strcspn(bytes, of);
    return {s + n, ptrdiff_t(n)};
}

static span_end<ko_mchar_t> span(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *set,
                                 bool inside) {
    const span_end<ko_mchar_t> none = {nullptr, -1};
    if (!loc || !mbs || !set) return fail(loc, KO_ENULL, none);
    return by_code_set(loc, [=](const auto &by) { return span_of(by, mbs, set, inside); });
}
static span_end<ko_wchar_t> span(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *set,
                                 bool inside) {
    const span_end<ko_wchar_t> none = {nullptr, -1};
    if (!wcs || !set) return fail(loc, KO_ENULL, none);
    return span_of(by_wide{record(loc), 1}, wcs, set, inside);
}

template <class Unit>
static int span_chars(ko_lc_t loc, const Unit *s, const Unit *set, bool inside) {
    const ptrdiff_t chars = span(loc, s, set, inside).chars;
    return chars < 0 ? -1 : counted(loc, size_t(chars));
}

template <class Unit> static Unit *find_member(ko_lc_t loc, const Unit *s, const Unit *set) {
    const span_end<Unit> end = span(loc, s, set, false);
    if (!end.at) return nullptr;
    bool ended = !*end.at;
    if constexpr (sizeof(Unit) == 1) ended = ko_ismbsterm(loc, end.at) != 0;
    return ended ? absent<Unit>(loc) : const_cast<Unit *>(end.at);
}

int ko_full_mbsspn(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *set) {
    return span_chars(loc, mbs, set, true);
}
int ko_full_mbscspn(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *set) {
    return span_chars(loc, mbs, set, false);
}
ko_mchar_t *ko_full_mbspbrk(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *set) {
    return find_member(loc, mbs, set);
}
int ko_wcsspn(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *set) {
    return span_chars(loc, wcs, set, true);
}
int ko_wcscspn(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *set) {
    return span_chars(loc, wcs, set, false);
}
ko_wchar_t *ko_wcspbrk(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *set) {
    return find_member(loc, wcs, set);
}

// ---- Strings ----

// Compares at every character. Both texts are read in whole characters from the same start, so that
// a match cannot extend beyond the end.
template <class By, class Unit>
static Unit *find_short(const By &by, const Unit *s, const Unit *sub, ptrdiff_t len) {
    for (text_char c;; s += c.units) {
        ptrdiff_t same_units = 0;
        while (same_units < len && s[same_units] == sub[same_units])
            ++same_units;
        if (same_units == len) return const_cast<Unit *>(s);
        c = by.at(s);
        if (c.units < 0) return nullptr;
        if (!c.units) return absent<Unit>(by.loc);
    }
}

namespace {
struct sub_char {
    text_char c;
    ptrdiff_t back; // how many characters up to this one are also the first ones of the string
};
} // namespace

// How many characters match after the next one, when so many matched before it.
static ptrdiff_t extend(const sub_char *sub, ptrdiff_t matched, text_char c) {
    while (matched && !same(sub[matched].c, c))
        matched = sub[matched - 1].back;
    return matched + same(sub[matched].c, c);
}

// Examines each character of the text once.
template <class By, class Unit>
static Unit *find_long(const By &by, const Unit *s, const Unit *sub, ptrdiff_t len,
                       sub_char *room) {
    ptrdiff_t chars = 0;
    for (ptrdiff_t at = 0; at < len; at += room[chars++].c.units) {
        room[chars] = {by.at(sub + at), 0};
        if (chars) room[chars].back = extend(room, room[chars - 1].back, room[chars].c);
    }
    ptrdiff_t matched = 0;
    for (text_char c; (c = by.at(s)).units;) {
        if (c.units < 0) return nullptr;
        s += c.units;
        matched = extend(room, matched, c);
        if (matched == chars) return const_cast<Unit *>(s) - len;
    }
    return absent<Unit>(by.loc);
}

template <class By, class Unit>
static Unit *find_text(const By &by, const Unit *s, const Unit *sub) {
    constexpr ptrdiff_t short_units = 64;
    const ptrdiff_t len = by.length(sub);
    if (len < 0) return nullptr;
    if (len > short_units) {
        const ext_block<sub_char> room{size_t(len)};
        if (room.p) return find_long(by, s, sub, len, room.p);
    }
    return find_short(by, s, sub, len); // without memory: slower, with the same result
}

static ko_mchar_t *find_text(const by_byte &by, const ko_mchar_t *s, const ko_mchar_t *sub) {
    const void *text = s, *part = sub;
    const void *found = strstr(static_cast<const char *>(text), static_cast<const char *>(part));
    return found ? static_cast<ko_mchar_t *>(const_cast<void *>(found))
                 : absent<ko_mchar_t>(by.loc);
}

ko_mchar_t *ko_full_mbsmbs(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *sub) {
    ko_mchar_t *const none = nullptr;
    if (error_of(loc)) set_error(loc, KO_OK);
    if (!loc || !mbs || !sub) return fail(loc, KO_ENULL, none);
    return by_code_set(loc, [=](const auto &by) { return find_text(by, mbs, sub); });
}
ko_wchar_t *ko_wcswcs(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *sub) {
    ko_wchar_t *const none = nullptr;
    if (!wcs || !sub) return fail(loc, KO_ENULL, none);
    return find_text(by_wide{record(loc), 1}, wcs, sub);
}
