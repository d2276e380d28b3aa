// Conversions that are opened by the names of their code sets, each through its object, by rule
// (the encodings of Unicode, and code sets that no object can hold), or through UTF-8.
#include "host/kovahost_escape.h"
#include "host/kovahost_filled.h"
#include "host/kovahost_form.h"
#include "host/kovahost_object.h"
#include "host/kovahost_utf7.h"
#include "kova_host.h"
#include "locale/kovautils.h"
#include "record/kovaspec.h"

#include <string.h>

// ---- Through UTF-8 ----

// Converts exactly the characters of a piece that became made bytes.
static void convert_again(const iconv_rec *cv, conv_state *st, cv_span *s, ko_mchar_t *out,
                          size_t made) {
    s->out = out;
    s->room = made;
    convert_span(cv, st, s);
}

// Ends the shifted state of the target when what followed its last character made nothing.
static int close_shift(const iconv_rec *cv, const conv_state *st, cv_span *s) {
    if (!cv->target_is_stateful || st->target_state != 1) return KO_OK;
    if (size_t(cv->target_so_len) > s->room) return KO_E2BIG;
    for (int i = 0; i < cv->target_so_len; ++i)
        *s->out++ = cv->target_so[i];
    s->room -= size_t(cv->target_so_len);
    return KO_OK;
}

namespace {
struct block_result {
    int first, second; // the errors of both conversions
    size_t made;       // bytes between them
};
constexpr int another_block = -1; // this one was full
} // namespace

// Converts one block. Where the second conversion stops, the first is set back to that character.
static block_result convert_block(const iconv_rec *cv, leg_states *legs, cv_span *s) {
    ko_mchar_t between[1024];
    const leg_states before = *legs;
    cv_span one = {s->in, s->end, between, sizeof between, false};
    block_result result = {convert_span(cv->legs[0], &legs->leg[0], &one), KO_OK, 0};
    result.made = size_t(one.out - between);
    legs->leg[1].last_frag = before.leg[1].last_frag && result.first == KO_OK;
    cv_span two = {between, one.out, s->out, s->room, false, result.first == KO_EILSEQ};
    result.second = convert_span(cv->legs[1], &legs->leg[1], &two);
    if (result.second) {
        const auto taken = size_t(two.in - between), made = size_t(two.out - s->out);
        const bool whole = legs->leg[1].last_frag && two.in == one.out; // only its end has no room
        *legs = before;
        legs->leg[0].last_frag = legs->leg[1].last_frag = 0;
        one.in = s->in;
        convert_again(cv->legs[0], &legs->leg[0], &one, between, taken);
        result.made = size_t(one.out - between); // less if two code points were one character
        two.in = between;
        if (result.made < taken || !cv->legs[1]->looks_ahead) two.end = between + result.made;
        two.cut_off = whole || result.made < taken;
        convert_again(cv->legs[1], &legs->leg[1], &two, s->out, made);
        two.room = s->room - size_t(two.out - s->out);
    }
    *s = {one.in, s->end, two.out, two.room, s->sub || one.sub || two.sub};
    legs->leg[0].first_frag = legs->leg[1].first_frag = 0;
    legs->leg[0].last_frag = before.leg[0].last_frag;
    legs->leg[1].last_frag = before.leg[1].last_frag;
    return result;
}

// The second conversion waits for what follows the last character of a block, or takes no character
// for whole.
static int cut_between(const iconv_rec *cv, const block_result &done) {
    if (!cv->legs[1]->looks_ahead) return KO_EILSEQ;
    return done.first == KO_E2BIG ? another_block : int{KO_EINVAL};
}

static int route_rules(const iconv_rec *cv, conv_state *st, cv_span *s) {
    leg_states legs = split_state(st);
    if (st->first_frag)
        for (conv_state &leg : legs.leg)
            leg.source_state = leg.target_state = 0;
    int error;
    do {
        const block_result done = convert_block(cv, &legs, s);
        error = done.second == KO_EINVAL ? cut_between(cv, done) : done.second;
        if (!error) error = done.first;
        if (!error && st->last_frag && !done.made)
            error = close_shift(cv->legs[1], &legs.leg[1], s);
        else if (error == KO_E2BIG && !done.second)
            error = another_block;
    } while (error == another_block);
    join_states(&legs, st);
    return error;
}

// Drops a mark, then converts by the second descriptor alone.
static int marked_rules(const iconv_rec *cv, conv_state *st, cv_span *s) {
    leg_states legs = split_state(st);
    int error = drop_mark(cv->legs[0], &legs.leg[0], s);
    legs.leg[1].source_state = st->source_state;
    if (!error) error = convert_span(cv->legs[1], &legs.leg[1], s);
    const int source = legs.leg[1].source_state;
    join_states(&legs, st);
    st->source_state = source;
    return error;
}

// Converts by one descriptor whose shift states change before it knows that there is no room. They
// are set back to those after the last character.
static int settled_rules(const iconv_rec *cv, conv_state *st, cv_span *s) {
    const conv_state before = *st;
    const cv_span start = *s;
    const int error = convert_span(cv->legs[0], st, s);
    if (!error) return KO_OK;
    const int last = st->last_frag;
    *st = before;
    st->last_frag = 0;
    cv_span again = {start.in, s->in, nullptr, 0, false};
    convert_again(cv->legs[0], st, &again, start.out, size_t(s->out - start.out));
    st->last_frag = last;
    return error;
}

// Takes the conversions over, also without memory; two is NULL for settled_rules.
static iconv_rec *make_route(iconv_rec *one, iconv_rec *two, cv_rules rules) {
    const bool whole = one && (two || rules == settled_rules);
    iconv_rec *const cv = whole ? make_descriptor() : nullptr;
    if (!cv) {
        ko_cv_unload(one); // NULL is allowed
        ko_cv_unload(two);
        return nullptr;
    }
    set_own_rules(cv, rules);
    cv->legs[0] = one;
    cv->legs[1] = two;
    const iconv_rec *const last = two ? two : one;
    take_ends(cv, one, last);
    cv->exp_ratio = two ? one->exp_ratio * two->exp_ratio : one->exp_ratio;
    return cv;
}

// ---- Names ----

namespace {
struct form_row {
    const char *name; // folded
    text_form form;
    int usual;       // the number that is usual elsewhere
    uint16_t number; // the one that names of files are made of
};
} // namespace
static constexpr form_row form_rows[] = {
    {"windows1200", text_form::utf16le, 1202, 1202  }, // 1200 alone is the other order
    {"utf8",        text_form::utf8,    1208, 0xE01C},
    {"unicode",     text_form::utf16be, 1200, 0xE005},
    {"utf16be",     text_form::utf16be, 1200, 0xE005},
    {"ucs2be",      text_form::utf16be, 1200, 0xE005},
    {"utf16le",     text_form::utf16le, 1202, 1202  },
    {"ucs2le",      text_form::utf16le, 1202, 1202  },
    {"utf16",       text_form::utf16,   1204, 1204  },
    {"ucs2",        text_form::utf16,   1204, 1204  },
    {"utf32be",     text_form::utf32be, 1232, 1232  },
    {"utf32",       text_form::utf32be, 1232, 1232  },
    {"ucs4",        text_form::utf32be, 1232, 1232  },
    {"utf32le",     text_form::utf32le, 1234, 1234  },
};

static const form_row *row_of_number(uint16_t number) {
    for (const form_row &row : form_rows)
        if (row.number == number) return &row;
    return nullptr;
}

static const form_row *row_of_name(const char *name) {
    char folded[cs_name_max + 1];
    fold_cs_name(name, folded);
    const int number = number_in_cs_name(folded);
    for (const form_row &row : form_rows)
        if (!strcmp(row.name, folded) || row.usual == number || row.number == number) return &row;
    return nullptr;
}

namespace {
struct names_of_root { // where code sets are looked up, and its registry's path
    const char *root;
    char *registry;
    explicit names_of_root(const char *place)
        : root(place), registry(place ? root_path(place, "cm3\\registry") : nullptr) {}
    names_of_root(const names_of_root &) = delete;
    names_of_root &operator=(const names_of_root &) = delete;
    ~names_of_root() { free_ptr(registry); }
    bool has_memory() const { return !root || registry; }
};
} // namespace

static int number_of_name(const names_of_root &names, const char *name, uint16_t *number) {
    if (const form_row *const row = row_of_name(name)) {
        *number = row->number;
        return KO_OK;
    }
    const unsigned failures = failed_allocations();
    int error = KO_OK;
    *number = find_cs_loosely(name, {names.registry, names.root != nullptr}, &error);
    if (!error) return KO_OK;
    if (failed_allocations() != failures) return KO_ENOMEM;
    return error == KO_EIO || error == KO_ENOMEM ? error : int{KO_ENOCODESET};
}

int ko_codeset_number(const char *root, const char *name) {
    if (!name) return -KO_ENULL;
    const names_of_root names(root);
    if (!names.has_memory()) return -KO_ENOMEM;
    uint16_t number;
    const int error = number_of_name(names, name, &number);
    return error ? -error : number;
}

// ---- Opening ----

namespace {
struct conversion_call {
    data_origin origin;
    unsigned flags;
};
} // namespace

// The conversion of two code sets by its object. KO_EFILE if there is none.
static int open_object(const conversion_call &call, uint16_t from, uint16_t to, iconv_rec **rec) {
    char name[14];
    ko_cs_nums2cv_fname(nullptr, from, to, name, nullptr);
    cv_file file;
    if (const int error = read_cv(call.origin, name, cv_use::conversion, &file)) return error;
    *rec = file.rec;
    file.rec = nullptr;
    return KO_OK;
}

static text_form form_of(uint16_t number) {
    const form_row *const row = row_of_number(number);
    return row ? row->form : text_form::none;
}

static iconv_rec *form_step(const conversion_call &call, text_form from, text_form to) {
    return make_form_conversion(from, to, call.flags & KO_CONVERT_KEEP_MARK,
                                call.flags & KO_CONVERT_WRITE_MARK);
}

static constexpr uint16_t utf8_number = 0xE01C;

static bool is_ruled(uint16_t number) {
    return is_filled(number) || is_escaped(number) || is_utf7(number);
}

// The object of a code set with UTF-8, and what it lacks.
static int open_part(const conversion_call &call, uint16_t from, uint16_t to, iconv_rec **rec) {
    iconv_rec *object = nullptr;
    if (const int error = open_object(call, from, to, &object)) return error;
    const uint16_t number = to == utf8_number ? from : to;
    *rec = is_filled(number) ? make_filled(number, to == utf8_number, object) : object;
    return *rec ? KO_OK : KO_ENOMEM;
}

// The conversion between UTF-8 and a code set that no object holds whole.
static int open_rules(const conversion_call &call, uint16_t from, uint16_t to, iconv_rec **rec) {
    const bool to_utf8 = to == utf8_number;
    const uint16_t number = to_utf8 ? from : to;
    if (is_filled(number)) return open_part(call, from, to, rec);
    if (is_utf7(number)) {
        *rec = make_utf7(number, to_utf8);
        return *rec ? KO_OK : KO_ENOMEM;
    }
    iconv_rec *parts[cv_legs_max] = {};
    int error = KO_OK;
    const uint16_t *const numbers = escape_parts(number);
    for (int i = 0; !error && i < cv_legs_max && numbers[i]; ++i)
        error = open_part(call, to_utf8 ? numbers[i] : utf8_number,
                          to_utf8 ? utf8_number : numbers[i], &parts[i]);
    if (!error && (*rec = make_escaped(number, to_utf8, parts))) return KO_OK;
    for (iconv_rec *part : parts)
        ko_cv_unload(part); // NULL is allowed
    return error ? error : int{KO_ENOMEM};
}

static int open_through_utf8(const conversion_call &call, uint16_t from, uint16_t to,
                             iconv_rec **rec);

static int open_ruled(const conversion_call &call, uint16_t from, uint16_t to, iconv_rec **rec) {
    const bool known = from == utf8_number || to == utf8_number;
    if (!known && form_of(from) == text_form::none && form_of(to) == text_form::none)
        return KO_EFILE;
    if (!known) return open_through_utf8(call, from, to, rec);
    if (const int error = open_rules(call, from, to, rec)) return error;
    if (from == utf8_number && !(call.flags & KO_CONVERT_KEEP_MARK))
        *rec = make_route(form_step(call, text_form::utf8, text_form::utf8), *rec, marked_rules);
    else if (to == utf8_number && call.flags & KO_CONVERT_WRITE_MARK)
        *rec = make_route(*rec, make_form_conversion(text_form::utf8, text_form::utf8, true, true),
                          route_rules);
    return *rec ? KO_OK : KO_ENOMEM;
}

// Opens a conversion that needs no other code set between. KO_EFILE if there is none.
static int open_direct(const conversion_call &call, uint16_t from, uint16_t to, iconv_rec **rec) {
    if (is_ruled(from) || is_ruled(to)) return open_ruled(call, from, to, rec);
    const text_form source = form_of(from), target = form_of(to);
    if (source != text_form::none && target != text_form::none) {
        *rec = form_step(call, source, target);
        return *rec ? KO_OK : KO_ENOMEM;
    }
    iconv_rec *object = nullptr;
    if (const int error = open_object(call, from, to, &object)) return error;
    const bool drops = (source == text_form::utf8 || source == text_form::utf16be) &&
                       !(call.flags & KO_CONVERT_KEEP_MARK);
    const bool shifts = object->source_is_stateful || object->target_is_stateful;
    if (shifts) object = make_route(object, nullptr, settled_rules);
    if (!object) return KO_ENOMEM;
    *rec = drops ? make_route(form_step(call, source, source), object, marked_rules) : object;
    if (*rec && target != text_form::none && call.flags & KO_CONVERT_WRITE_MARK)
        *rec = make_route(*rec, make_form_conversion(target, target, true, true), route_rules);
    return *rec ? KO_OK : KO_ENOMEM;
}

static int open_through_utf8(const conversion_call &call, uint16_t from, uint16_t to,
                             iconv_rec **rec) {
    iconv_rec *one = nullptr, *two = nullptr;
    if (from == utf8_number || to == utf8_number) return KO_EFILE;
    const conversion_call first = {call.origin, call.flags & ~unsigned{KO_CONVERT_WRITE_MARK}};
    int error = open_direct(first, from, utf8_number, &one);
    if (error) return error;
    // The mark was dropped before; one that is kept is a character.
    const conversion_call rest = {call.origin, call.flags | KO_CONVERT_KEEP_MARK};
    if ((error = open_direct(rest, utf8_number, to, &two))) {
        ko_cv_unload(one);
        return error;
    }
    *rec = make_route(one, two, route_rules);
    return *rec ? KO_OK : KO_ENOMEM;
}

int ko_open_conversion(ko_cv_t *cd, const char *root, const char *from, const char *to,
                       unsigned flags) {
    constexpr unsigned known =
        unsigned{KO_OPEN_VERIFY} | KO_CONVERT_KEEP_MARK | KO_CONVERT_WRITE_MARK | KO_CONVERT_DIRECT;
    if (!cd) return KO_ENULL;
    *cd = nullptr;
    if (!from || !to) return KO_ENULL;
    if (flags & ~known) return KO_ERANGE;
    const names_of_root names(root);
    if (!names.has_memory()) return KO_ENOMEM;
    uint16_t source, target;
    if (const int error = number_of_name(names, from, &source)) return error;
    if (const int error = number_of_name(names, to, &target)) return error;
    const conversion_call call = {
        {root, (flags & KO_OPEN_VERIFY) != 0},
        flags
    };
    iconv_rec *rec = nullptr;
    int error = open_direct(call, source, target, &rec);
    if (error == KO_EFILE && !(flags & KO_CONVERT_DIRECT))
        error = open_through_utf8(call, source, target, &rec);
    if (!error) *cd = rec;
    return error == KO_EFILE ? int{KO_ENOCONV} : error;
}
