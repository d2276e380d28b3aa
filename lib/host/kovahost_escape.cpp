// Code sets that switch by escape sequences (ISO-2022) or tildes (HZ): seven bits a byte, from
// several sets of characters, each of which an object of another code set has.
#include "host/kovahost_escape.h"

#include "host/kovahost_filled.h"
#include "host/kovahost_form.h"
#include "host/kovahost_made.h"

#include <string.h>

namespace {

// Where an escape sequence puts a set of characters: in use at once, after the shift-out byte, or
// for the one character after the second or third single shift.
enum class place : uint8_t { at_once, shift_out, second, third };

// How a part writes the characters of a set: with all high bits set, as they are, or as Shift_JIS.
enum class layout : uint8_t { right, left, shift_jis };

struct char_set {
    const char *escape; // what follows the byte ESC
    place where;
    uint8_t part;    // the code set that has its characters, or roman
    uint8_t bytes;   // of a character
    uint8_t lead[2]; // what they follow in that code set
};
constexpr uint8_t roman = 0xFF; // ASCII with two characters exchanged; no code set is asked

struct scheme {
    uint16_t number;
    uint16_t reads, writes; // bits of its sets
    const char_set *sets;
    uint16_t parts[cv_legs_max];
    uint8_t ways;
};
enum scheme_ways : uint8_t {
    has_header = 1, // the one set after the shift-out byte is announced at the start
    forgets = 2,    // the end of a line ends announcements
    by_tilde = 4,   // and not by escape sequences and shift bytes
    has_pairs = 8   // characters of the second part stand for two code points
};

// What is in use; 0 is ASCII or nothing, otherwise a set and one more.
struct switches {
    unsigned now[4]; // by place
    bool shifted;
    bool started; // the header is written
};

constexpr ko_mchar_t escape_byte = 0x1B, out_byte = 0x0E, in_byte = 0x0F;
constexpr size_t longest_prefix = 16;

} // namespace

// ---- Tables ----

enum japanese : uint16_t {
    jis_roman = 1,
    jis_1983 = 2,
    jis_1978 = 4,
    jis_kana = 8,
    jis_1990 = 16,
    latin_1 = 32,
    greek = 64,
    gb_2312 = 128,
    ks_1001 = 256,
    japanese_short = jis_roman | jis_1983 | jis_1978 | jis_kana | jis_1990,
    japanese_long = japanese_short | latin_1 | greek | gb_2312 | ks_1001,
    writes_jp = jis_roman | jis_1983,
    writes_jp_1 = writes_jp | jis_1990,
    writes_jp_2 = japanese_long & ~(jis_1978 | jis_kana)
};
static constexpr char_set japanese_sets[] = {
    {"(J",  place::at_once, roman, 1, {}    },
    {"$B",  place::at_once, 0,     2, {}    },
    {"$@",  place::at_once, 0,     2, {}    },
    {"(I",  place::at_once, 0,     1, {0x8E}},
    {"$(D", place::at_once, 0,     2, {0x8F}},
    {".A",  place::second,  1,     1, {}    },
    {".F",  place::second,  2,     1, {}    },
    {"$A",  place::at_once, 3,     2, {}    },
    {"$(C", place::at_once, 4,     2, {}    },
};
// What the first plane of JIS X 0213 got in 2004 is written under the second name of it.
static constexpr uint16_t added_2004[] = {0x2E21, 0x2F7E, 0x4F54, 0x4F7E, 0x7427,
                                          0x7E7A, 0x7E7B, 0x7E7C, 0x7E7D, 0x7E7E};
static constexpr unsigned second_name = 4; // its place among the sets
static constexpr char_set planes_sets[] = {
    {"(J",  place::at_once, roman, 1, {}    },
    {"$B",  place::at_once, 0,     2, {}    },
    {"$@",  place::at_once, 0,     2, {}    },
    {"(I",  place::at_once, 0,     1, {0x8E}},
    {"$(Q", place::at_once, 1,     2, {}    },
    {"$(O", place::at_once, 1,     2, {}    },
    {"$(P", place::at_once, 1,     2, {0x8F}},
};
static constexpr char_set windows_sets[] = {
    {"(J", place::at_once, roman, 1, {}},
    {"$B", place::at_once, 0,     2, {}},
    {"$@", place::at_once, 0,     2, {}},
    {"(I", place::at_once, 0,     1, {}},
};
static constexpr char_set korean_sets[] = {
    {"$)C", place::shift_out, 0, 2, {}},
};
static constexpr char_set chinese_sets[] = {
    {"$)A", place::shift_out, 0, 2, {}          },
    {"$)G", place::shift_out, 1, 2, {}          },
    {"$*H", place::second,    1, 2, {0x8E, 0xA2}},
    {"$+I", place::third,     1, 2, {0x8E, 0xA3}},
    {"$+J", place::third,     1, 2, {0x8E, 0xA4}},
    {"$+K", place::third,     1, 2, {0x8E, 0xA5}},
    {"$+L", place::third,     1, 2, {0x8E, 0xA6}},
    {"$+M", place::third,     1, 2, {0x8E, 0xA7}},
    {"$)E", place::shift_out, 2, 2, {}          },
};
static constexpr char_set tilde_sets[] = {
    {"", place::shift_out, 0, 2, {}},
};

// What a scheme only reads is in use elsewhere under its name.
static constexpr uint16_t euc_jp = 5050, euc_kr = 970, euc_cn = 57357, euc_tw = 57375;
static constexpr uint16_t euc_jis_2004 = 57418, windows_31j = 943, iso_ir_165 = 57509;
static constexpr scheme schemes[] = {
    {50220, 0x0F,           0x03,        windows_sets,  {windows_31j},                      forgets            },
    {50221, 0x0F,           0x0B,        windows_sets,  {windows_31j},                      forgets            },
    {57499, japanese_short, writes_jp,   japanese_sets, {euc_jp},                           forgets            },
    {57500, japanese_short, writes_jp_1, japanese_sets, {euc_jp},                           forgets            },
    {57501, japanese_long,  writes_jp_2, japanese_sets, {euc_jp, 819, 813, euc_cn, euc_kr}, forgets            },
    {57502, 1,              1,           korean_sets,   {euc_kr},                           has_header         },
    {57503, 0x07,           0x07,        chinese_sets,  {euc_cn, euc_tw},                   forgets            },
    {57504, 0x1FF,          0x1FF,       chinese_sets,  {euc_cn, euc_tw, iso_ir_165},       forgets            },
    {57505, 1,              1,           tilde_sets,    {euc_cn},                           by_tilde           },
    {57508, 0x7F,           0x7B,        planes_sets,   {euc_jp, euc_jis_2004},             forgets | has_pairs},
};

static const scheme *find_scheme(uint16_t number) {
    for (const scheme &one : schemes)
        if (one.number == number) return &one;
    return nullptr;
}
bool is_escaped(uint16_t number) { return find_scheme(number) != nullptr; }
const uint16_t *escape_parts(uint16_t number) { return find_scheme(number)->parts; }

static layout layout_of(const scheme *by, unsigned part) {
    const uint16_t number = by->parts[part];
    return number == windows_31j  ? layout::shift_jis
           : number == iso_ir_165 ? layout::left
                                  : layout::right;
}

static const char_set *set_of(const scheme *by, unsigned one_more) {
    return one_more ? &by->sets[one_more - 1] : nullptr;
}

static const scheme *scheme_of(const iconv_rec *cv) {
    return static_cast<const scheme *>(cv->scheme);
}

// ---- Shift_JIS ----

// Two rows share a first byte.
static void shift_jis_of(const ko_mchar_t *jis, ko_mchar_t *out) {
    const unsigned row = jis[0] - 0x21u, cell = jis[1];
    out[0] = ko_mchar_t(row / 2 + (row < 62 ? 0x81 : 0xC1));
    out[1] = ko_mchar_t(row % 2 ? cell + 0x7E : cell + 0x1F + (cell >= 0x60));
}

// Pairs of Shift_JIS by their number; 94 of them are a row.
static unsigned pair_number(const ko_mchar_t *pair) {
    return (pair[0] - (pair[0] < 0xA0 ? 0x81u : 0xC1u)) * 188 + pair[1] - 0x40u - (pair[1] > 0x7F);
}

// The row and cell of a pair; false if it has none. The rows after the last are also in rows 89 to
// 92, in another order: ideographs, small numerals, and three signs, of which the first two are
// not those of other rows.
static bool jis_of(const ko_mchar_t *pair, ko_mchar_t *out) {
    constexpr unsigned rows = 94, cells = 94, copies = 88 * cells, numerals = 10, signs = 21;
    constexpr unsigned ideographs = 28, first_sign = 373, first_numeral = 362;
    unsigned at = pair_number(pair);
    if (at >= 114 * cells) {
        const unsigned added = at - 114 * cells;
        if (added < numerals)
            at = copies + first_numeral + added;
        else if (added >= signs && added < signs + 3)
            at = copies + first_sign + added - signs;
        else if (added >= ideographs && added < ideographs + 360)
            at = copies + added - ideographs;
    }
    if (at >= rows * cells) return false;
    out[0] = ko_mchar_t(0x21 + at / cells);
    out[1] = ko_mchar_t(0x21 + at % cells);
    return true;
}

// ---- The state of a text ----

// Four bits for each place, then the two others.
static int state_of(const switches &in_use) {
    unsigned bits = (in_use.shifted ? 1u << 16 : 0) | (in_use.started ? 1u << 17 : 0);
    for (int i = 0; i < 4; ++i)
        bits |= in_use.now[i] << 4 * i;
    return int(bits);
}

// What no text leads to is ignored, because the state is the caller's.
static switches switches_of(const scheme *by, int state) {
    const auto bits = unsigned(state);
    switches in_use = {{}, (bits & 1u << 16) != 0, (bits & 1u << 17) != 0};
    for (unsigned i = 0; i < 4; ++i) {
        const unsigned one_more = bits >> 4 * i & 0xF;
        if (one_more && by->reads >> (one_more - 1) & 1 && set_of(by, one_more)->where == place(i))
            in_use.now[i] = one_more;
    }
    if (by->ways & (has_header | by_tilde)) in_use.now[int(place::shift_out)] = 1;
    return in_use;
}

static void end_line(const scheme *by, switches *in_use) {
    if (!(by->ways & forgets)) return;
    for (const place where : {place::shift_out, place::second, place::third})
        in_use->now[int(where)] = 0;
}

static bool has_place(const scheme *by, place where) {
    for (unsigned i = 0; by->reads >> i; ++i)
        if (by->reads >> i & 1 && by->sets[i].where == where) return true;
    return false;
}

// Bytes that no character is: they would switch.
static bool is_switch(const scheme *by, ko_mchar_t byte) {
    if (by->ways & by_tilde) return byte == '~';
    return byte == escape_byte || byte == out_byte || byte == in_byte;
}

// ---- Reading ----

namespace {
enum class found : uint8_t { whole, cut, bad }; // a part of a text, as far as it is there
struct reader {
    const iconv_rec *cv;
    const scheme *by;
    switches in_use;
    cv_span *s;
};
} // namespace

static found match(const cv_span *s, size_t at, const char *want) {
    for (size_t i = 0; want[i]; ++i) {
        if (size_t(s->end - s->in) == at + i) return found::cut;
        if (s->in[at + i] != ko_mchar_t(want[i])) return found::bad;
    }
    return found::whole;
}

static int ill_formed(bool cut) { return cut ? int{KO_EINVAL} : int{KO_EILSEQ}; }

// A character of a set as its part writes it, and the other way.
static void to_part(layout form, const char_set *set, const ko_mchar_t *text, ko_mchar_t *out) {
    if (form == layout::shift_jis && set->bytes == 2) return shift_jis_of(text, out);
    for (int i = 0; i < set->bytes; ++i)
        out[i] = ko_mchar_t(form == layout::left ? text[i] : text[i] | 0x80);
}

// The complete characters of a set at a place of the text, at most so many, as bytes of its part.
static size_t gather(const reader *r, const char_set *set, const ko_mchar_t *text, size_t most,
                     ko_mchar_t *out) {
    const bool wide = set->where == place::second && set->bytes == 1;
    const layout form = layout_of(r->by, set->part);
    const bool kana = form == layout::shift_jis && set->bytes == 1;
    const ko_mchar_t least = wide ? 0x20 : 0x21, last = wide ? 0x7F : kana ? 0x5F : 0x7E;
    size_t count = 0;
    for (; count < most; ++count, text += set->bytes) {
        if (r->s->end - text < set->bytes || is_switch(r->by, *text)) break;
        if (text[0] < least || text[0] > last) break;
        if (set->bytes == 2 && (text[1] < least || text[1] > last)) break;
        for (int i = 0; i < 2 && set->lead[i]; ++i)
            *out++ = set->lead[i];
        to_part(form, set, text, out);
        out += set->bytes;
    }
    return count;
}

// Converts characters of a set that begin after a single shift or at once.
static int read_chars(reader *r, const char_set *set, size_t shift, size_t most) {
    constexpr size_t longest = 4, count_max = 128;
    ko_mchar_t bytes[longest * count_max];
    cv_span *const s = r->s;
    const ko_mchar_t *const text = s->in + shift;
    const size_t count = gather(r, set, text, most < count_max ? most : count_max, bytes);
    if (!count) {
        const ptrdiff_t left = s->end - text;
        return ill_formed(left < set->bytes && (!left || (*text > 0x20 && *text < 0x7F)));
    }
    const size_t each = size_t{set->bytes} + (set->lead[0] != 0) + (set->lead[1] != 0);
    conv_state st = {.first_frag = 1};
    cv_span part = {bytes, bytes + count * each, s->out, s->room, s->sub};
    const int error = convert_span(r->cv->legs[set->part], &st, &part);
    const size_t taken = size_t(part.in - bytes) / each; // NOLINT(clang-analyzer-*): not 0
    if (taken) s->in = text + taken * set->bytes;
    s->out = part.out;
    s->room = part.room;
    s->sub = part.sub;
    return error == KO_EINVAL ? int{KO_EILSEQ} : error;
}

// An escape sequence: a single shift with its character, or an announcement.
static int read_escape(reader *r) {
    const scheme *const by = r->by;
    bool cut = false;
    for (const place where : {place::second, place::third}) {
        const found shift = match(r->s, 1, where == place::second ? "N" : "O");
        const unsigned one_more = r->in_use.now[int(where)];
        if (shift == found::whole && one_more) return read_chars(r, set_of(by, one_more), 2, 1);
        cut |= shift == found::cut;
    }
    for (unsigned i = 0; by->reads >> i; ++i) {
        if (!(by->reads >> i & 1)) continue;
        const found sequence = match(r->s, 1, by->sets[i].escape);
        cut |= sequence == found::cut;
        if (sequence != found::whole) continue;
        r->in_use.now[int(by->sets[i].where)] = i + 1;
        r->s->in += 1 + strlen(by->sets[i].escape);
        return KO_OK;
    }
    const found ascii = has_place(by, place::at_once) ? match(r->s, 1, "(B") : found::bad;
    if (ascii != found::whole) return ill_formed(cut || ascii == found::cut);
    r->in_use.now[int(place::at_once)] = 0;
    r->s->in += 3;
    return KO_OK;
}

static int put_ascii(reader *r, ko_mchar_t byte, size_t taken) {
    if (!r->s->room) return KO_E2BIG;
    *r->s->out++ = byte;
    --r->s->room;
    r->s->in += taken;
    if (byte != '\n') return KO_OK;
    end_line(r->by, &r->in_use);
    if (r->by->ways & by_tilde) r->in_use.shifted = false;
    return KO_OK;
}

static int read_tilde(reader *r) {
    cv_span *const s = r->s;
    if (s->end - s->in < 2) return KO_EINVAL;
    const ko_mchar_t next = s->in[1];
    if (r->in_use.shifted ? next != '}' : next != '{' && next != '~' && next != '\n')
        return KO_EILSEQ;
    if (next == '~') return put_ascii(r, '~', 2);
    if (next != '\n') r->in_use.shifted = next == '{';
    s->in += 2;
    return KO_OK;
}

static int read_shift(reader *r) {
    const bool out = *r->s->in == out_byte;
    if (!has_place(r->by, place::shift_out) || (out && !r->in_use.now[int(place::shift_out)]))
        return KO_EILSEQ;
    r->in_use.shifted = out;
    ++r->s->in;
    return KO_OK;
}

// U+00A5 and U+203E are where ASCII has the backslash and the tilde.
static int read_roman(reader *r) {
    static constexpr ko_mchar_t yen[] = {0xC2, 0xA5}, overline[] = {0xE2, 0x80, 0xBE};
    cv_span *const s = r->s;
    const bool is_yen = *s->in == 0x5C;
    if (!is_yen && *s->in != 0x7E) return put_ascii(r, *s->in, 1);
    const size_t n = is_yen ? sizeof yen : sizeof overline;
    if (n > s->room) return KO_E2BIG;
    memcpy(s->out, is_yen ? yen : overline, n);
    s->out += n;
    s->room -= n;
    ++s->in;
    return KO_OK;
}

static int read_next(reader *r) {
    const ko_mchar_t byte = *r->s->in;
    const switches &in_use = r->in_use;
    if (byte >= 0x80) return KO_EILSEQ;
    if (is_switch(r->by, byte))
        return r->by->ways & by_tilde ? read_tilde(r)
               : byte == escape_byte  ? read_escape(r)
                                      : read_shift(r);
    const char_set *const set =
        set_of(r->by, in_use.now[int(in_use.shifted ? place::shift_out : place::at_once)]);
    if (byte <= 0x20 || byte == 0x7F || (!set && !in_use.shifted)) return put_ascii(r, byte, 1);
    if (!set) return KO_EILSEQ; // a line has ended since the announcement
    return set->part == roman ? read_roman(r) : read_chars(r, set, 0, SIZE_MAX);
}

static int read_rules(const iconv_rec *cv, conv_state *st, cv_span *s) {
    const scheme *const by = scheme_of(cv);
    reader r = {cv, by, switches_of(by, st->first_frag ? 0 : st->source_state), s};
    int error = KO_OK;
    while (!error && s->in != s->end)
        error = read_next(&r);
    st->source_state = state_of(r.in_use);
    return error;
}

// ---- Writing ----

namespace {
struct writer {
    const iconv_rec *cv;
    const scheme *by;
    switches in_use;
    cv_span *s;
};
struct prefix { // what goes before a character
    ko_mchar_t bytes[longest_prefix + 4];
    size_t len;
    void add(ko_mchar_t byte) { bytes[len++] = byte; }
    void add(const char *text) {
        for (; *text; ++text)
            add(ko_mchar_t(*text));
    }
};
} // namespace

static void shift(const scheme *by, switches *in_use, bool out, prefix *made) {
    if (in_use->shifted == out) return;
    in_use->shifted = out;
    if (by->ways & by_tilde)
        made->add(out ? "~{" : "~}");
    else
        made->add(out ? out_byte : in_byte);
}

static void announce(const scheme *by, switches *in_use, unsigned one_more, prefix *made) {
    const char_set *const set = set_of(by, one_more);
    unsigned &now = in_use->now[int(set ? set->where : place::at_once)];
    if (now == one_more) return;
    now = one_more;
    made->add(escape_byte);
    made->add(set ? set->escape : "(B");
}

// Switches to a set, 0 for ASCII.
static void switch_to(const scheme *by, switches *in_use, unsigned one_more, prefix *made) {
    if (by->ways & has_header && !in_use->started) {
        made->add(escape_byte);
        made->add(by->sets[0].escape);
        in_use->started = true;
    }
    const char_set *const set = set_of(by, one_more);
    announce(by, in_use, one_more, made);
    if (!set) return shift(by, in_use, false, made);
    if (set->where == place::shift_out) return shift(by, in_use, true, made);
    if (set->where == place::at_once) return;
    made->add(escape_byte);
    made->add(set->where == place::second ? "N" : "O");
}

// Writes a character of a set; false without room.
static bool write_char(writer *w, unsigned one_more, const ko_mchar_t *bytes, size_t len) {
    prefix made = {{}, 0};
    switches in_use = w->in_use;
    switch_to(w->by, &in_use, one_more, &made);
    for (size_t i = 0; i < len; ++i)
        made.add(ko_mchar_t(bytes[i] & 0x7F));
    if (!one_more && w->by->ways & by_tilde && *bytes == '~') made.add('~');
    if (made.len > w->s->room) return false;
    memcpy(w->s->out, made.bytes, made.len);
    w->s->out += made.len;
    w->s->room -= made.len;
    if (!one_more && *bytes == '\n') end_line(w->by, &in_use);
    w->in_use = in_use;
    return true;
}

namespace {
struct part_char { // a character as one of the parts has it
    unsigned one_more;
    ko_mchar_t bytes[2]; // of its set
    size_t len, whole;   // whole: of the part; 0: the scheme does not write it
};
} // namespace

static bool is_single(const ko_mchar_t *at) { return *at >= 0xA1 && *at <= 0xDF; }

// The bytes of a set that a part has for a character; false if it is not of the set.
static bool from_part(layout form, const char_set &set, const ko_mchar_t *at, ko_mchar_t *out) {
    if (form == layout::shift_jis) {
        if ((set.bytes == 1) != is_single(at)) return false;
        if (set.bytes == 2) return jis_of(at, out);
    }
    if (at[0] < (form == layout::left ? 0x21 : 0xA0)) return false;
    out[0] = at[0] & 0x7F;
    if (set.bytes == 2) out[1] = at[1] & 0x7F;
    return true;
}

// Does the scheme write these bytes in another set than in the one with this number?
static bool is_elsewhere(const scheme *by, unsigned set, const ko_mchar_t *bytes) {
    if (by->sets != planes_sets || set != second_name) return false;
    for (const uint16_t added : added_2004)
        if (added == (bytes[0] << 8 | bytes[1])) return false;
    return true;
}

static part_char classify(const scheme *by, unsigned part, const ko_mchar_t *at,
                          const ko_mchar_t *end) {
    part_char found = {0, {*at}, 1, is_switch(by, *at) && *at != '~' ? 0u : 1u};
    const layout form = layout_of(by, part);
    if (*at < 0x80 && form != layout::left) return found;
    for (unsigned i = 0; by->writes >> i; ++i) {
        const char_set &set = by->sets[i];
        const size_t leads = size_t{set.lead[0] != 0} + (set.lead[1] != 0);
        if (!(by->writes >> i & 1) || set.part != part || size_t(end - at) < leads + set.bytes ||
            memcmp(at, set.lead, leads) != 0 || !from_part(form, set, at + leads, found.bytes) ||
            is_elsewhere(by, i, found.bytes))
            continue;
        found.one_more = i + 1;
        found.len = set.bytes;
        found.whole = leads + set.bytes;
        return found;
    }
    found.whole = 0;
    return found;
}

// Converts characters up to an end; the text moves over those that found room. KO_EILSEQ at one
// that the part or the scheme lacks.
static int write_part(writer *w, unsigned part, const ko_mchar_t *end) {
    ko_mchar_t bytes[1024];
    const iconv_rec *const object = w->cv->legs[part];
    conv_state st = {.first_frag = 1, .last_frag = 1}; // the part waits for nothing
    cv_span made = {w->s->in, end, bytes, sizeof bytes, false};
    int error = convert_span(object, &st, &made);
    const ko_mchar_t *at = bytes;
    while (at != made.out) {
        const part_char c = classify(w->by, part, at, made.out);
        const bool lacks = !c.whole, full = !lacks && !write_char(w, c.one_more, c.bytes, c.len);
        if (lacks || full) {
            error = lacks ? int{KO_EILSEQ} : int{KO_E2BIG};
            break;
        }
        at += c.whole;
    }
    if (at != made.out) { // back to that character
        made = {w->s->in, end, bytes, size_t(at - bytes), false};
        st = {.first_frag = 1, .last_frag = 1};
        convert_span(object, &st, &made);
    } else if (error == KO_E2BIG) {
        error = KO_OK; // only the block is full
    }
    w->s->in = made.in;
    w->s->sub |= made.sub;
    return error == KO_EINVAL && end != w->s->end ? int{KO_EILSEQ} : error;
}

// A character that the first part lacks.
static int write_other(writer *w) {
    const utf8_step step = utf8_char(w->s->in, w->s->end);
    if (step.code == no_code) return bad_utf8(w->s->in, step, w->s->end);
    for (unsigned part = 1; part < cv_legs_max && w->by->parts[part]; ++part) {
        const int error = write_part(w, part, w->s->in + step.bytes);
        if (error != KO_EILSEQ) return error;
    }
    return KO_EILSEQ;
}

static bool is_yen(const ko_mchar_t *p, const ko_mchar_t *end) {
    return end - p >= 2 && p[0] == 0xC2 && p[1] == 0xA5;
}
static bool is_overline(const ko_mchar_t *p, const ko_mchar_t *end) {
    return end - p >= 3 && p[0] == 0xE2 && p[1] == 0x80 && p[2] == 0xBE;
}

// The next character of two code points, looked for no farther than a run goes.
static filled_sequence next_sequence(const writer *w, const ko_mchar_t *end, bool waits) {
    if (!(w->by->ways & has_pairs)) return {end, 0};
    cv_span near = *w->s;
    if (near.end - end > ptrdiff_t{sequence_longest}) near.end = end + sequence_longest;
    const filled_sequence found =
        find_filled_sequence(w->by->parts[1], &near, waits && near.end == w->s->end);
    return found.at < end ? found : filled_sequence{end, 0};
}

// Where a run ends: at a character that only the set roman has, or where it is long enough.
static const ko_mchar_t *run_end(const writer *w) {
    constexpr ptrdiff_t most = 300;
    const cv_span *const s = w->s;
    const ko_mchar_t *end = s->end - s->in > most ? s->in + most : s->end;
    for (int i = 0; i < 3 && end != s->end && is_trail(*end); ++i)
        --end;
    if (w->by->sets[0].part != roman) return end;
    for (const ko_mchar_t *p = s->in; p != end; ++p)
        if (is_yen(p, end) || is_overline(p, end)) return p;
    return end;
}

static int write_roman(writer *w) {
    const bool yen = is_yen(w->s->in, w->s->end);
    const ko_mchar_t byte = yen ? 0x5C : 0x7E;
    if (!write_char(w, 1, &byte, 1)) return KO_E2BIG;
    w->s->in += yen ? 2 : 3;
    return KO_OK;
}

static int write_run(writer *w, bool waits) {
    cv_span *const s = w->s;
    const ko_mchar_t *const end = run_end(w);
    if (end == s->in) return write_roman(w);
    const filled_sequence pair = next_sequence(w, end, waits);
    if (pair.at == s->in) return pair.bytes ? write_part(w, 1, s->in + pair.bytes) : KO_EINVAL;
    const int error = write_part(w, 0, pair.at);
    return error == KO_EILSEQ && s->in != s->end ? write_other(w) : error;
}

// waits: a character that may be the first half of one waits for what follows the text.
static int write_text(writer *w, bool waits) {
    while (w->s->in != w->s->end)
        if (const int error = write_run(w, waits)) return error;
    return KO_OK;
}

// Returns to ASCII at the end of a text.
static int finish(writer *w) {
    prefix made = {{}, 0};
    switches in_use = w->in_use;
    in_use.started = true; // no header for an empty text
    switch_to(w->by, &in_use, 0, &made);
    if (made.len > w->s->room) return KO_E2BIG;
    memcpy(w->s->out, made.bytes, made.len);
    w->s->out += made.len;
    w->s->room -= made.len;
    w->in_use = {};
    return KO_OK;
}

static int write_rules(const iconv_rec *cv, conv_state *st, cv_span *s) {
    const scheme *const by = scheme_of(cv);
    writer w = {cv, by, switches_of(by, st->first_frag ? 0 : st->target_state), s};
    int error = write_text(&w, !st->last_frag && !s->cut_off);
    if (!error && st->last_frag) error = finish(&w);
    st->target_state = state_of(w.in_use);
    return error;
}

// ---- Descriptors ----

iconv_rec *make_escaped(uint16_t number, bool to_utf8, iconv_rec *const parts[cv_legs_max]) {
    iconv_rec *const cv = make_descriptor();
    if (!cv) return nullptr;
    constexpr int longest = 8; // bytes of a character with its announcement
    const scheme *const by = find_scheme(number);
    set_own_rules(cv, to_utf8 ? read_rules : write_rules);
    cv->scheme = by;
    cv->looks_ahead = !to_utf8 && by->ways & has_pairs;
    memcpy(cv->legs, parts, sizeof cv->legs);
    cv->forms[0] = uint8_t(text_form::utf8); // a null byte ends a text in any case
    cv->source_noshift_min_len = cv->target_min_len = 1;
    cv->source_noshift_max_len = to_utf8 ? longest : form_longest;
    cv->target_max_len = to_utf8 ? form_longest : longest;
    cv->exp_ratio = to_utf8 ? 3.0f : 5.0f;
    return cv;
}
