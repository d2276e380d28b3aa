// Code sets of which an object holds nearly every character, and rules the others: GB18030 numbers
// the planes after the first in one run, and a few characters stand for two code points.
#include "host/kovahost_filled.h"

#include "host/kovahost_form.h"
#include "host/kovahost_made.h"

#include <string.h>

namespace {

struct sequence {
    uint16_t codes[2];
    uint16_t bytes; // of JIS X 0213: row and cell in the first plane
};

enum class sequence_form : uint8_t { plain, euc, shift_jis, host };

struct filled_set {
    uint16_t number;
    sequence_form form;
    const sequence *rows; // NULL: GB18030
    size_t count;
};

} // namespace

// ---- Tables ----

static constexpr sequence japanese[] = {
    {{0x304B, 0x309A}, 0x2477},
    {{0x304D, 0x309A}, 0x2478},
    {{0x304F, 0x309A}, 0x2479},
    {{0x3051, 0x309A}, 0x247A},
    {{0x3053, 0x309A}, 0x247B},
    {{0x30AB, 0x309A}, 0x2577},
    {{0x30AD, 0x309A}, 0x2578},
    {{0x30AF, 0x309A}, 0x2579},
    {{0x30B1, 0x309A}, 0x257A},
    {{0x30B3, 0x309A}, 0x257B},
    {{0x30BB, 0x309A}, 0x257C},
    {{0x30C4, 0x309A}, 0x257D},
    {{0x30C8, 0x309A}, 0x257E},
    {{0x31F7, 0x309A}, 0x2678},
    {{0x00E6, 0x0300}, 0x2B44},
    {{0x0254, 0x0300}, 0x2B48},
    {{0x0254, 0x0301}, 0x2B49},
    {{0x028C, 0x0300}, 0x2B4A},
    {{0x028C, 0x0301}, 0x2B4B},
    {{0x0259, 0x0300}, 0x2B4C},
    {{0x0259, 0x0301}, 0x2B4D},
    {{0x025A, 0x0300}, 0x2B4E},
    {{0x025A, 0x0301}, 0x2B4F},
    {{0x02E9, 0x02E5}, 0x2B65},
    {{0x02E5, 0x02E9}, 0x2B66},
};
static constexpr uint16_t first_host_sequence = 0xECB5; // the others follow, in the same order

static constexpr sequence hong_kong[] = {
    {{0x00CA, 0x0304}, 0x8862},
    {{0x00CA, 0x030C}, 0x8864},
    {{0x00EA, 0x0304}, 0x88A3},
    {{0x00EA, 0x030C}, 0x88A5},
};

static constexpr filled_set filled_sets[] = {
    {1375,  sequence_form::plain,     hong_kong, std::size(hong_kong)},
    {1390,  sequence_form::host,      japanese,  std::size(japanese) },
    {1392,  sequence_form::plain,     nullptr,   0                   },
    {1399,  sequence_form::host,      japanese,  std::size(japanese) },
    {16684, sequence_form::host,      japanese,  std::size(japanese) },
    {57418, sequence_form::euc,       japanese,  std::size(japanese) },
    {57491, sequence_form::shift_jis, japanese,  std::size(japanese) },
};

static const filled_set *find_filled(uint16_t number) {
    for (const filled_set &set : filled_sets)
        if (set.number == number) return &set;
    return nullptr;
}
bool is_filled(uint16_t number) { return find_filled(number) != nullptr; }

static unsigned bytes_of(const filled_set *set, size_t row) {
    const unsigned bytes = set->rows[row].bytes, lead = bytes >> 8, trail = bytes & 0xFF;
    switch (set->form) {
    case sequence_form::plain:
        return bytes;
    case sequence_form::euc:
        return bytes | 0x8080;
    case sequence_form::host:
        return first_host_sequence + unsigned(row);
    default: // two rows share a first byte
        return ((lead - 0x21) / 2 + 0x81) << 8 |
               (lead % 2 ? trail + 0x1F + (trail >= 0x60) : trail + 0x7E);
    }
}

static size_t utf8_of(const sequence &row, ko_mchar_t *out) {
    const size_t first = units_of(out, row.codes[0]);
    return first + units_of(out + first, row.codes[1]);
}

// ---- What the object lacks ----

static int put_bytes(cv_span *s, const ko_mchar_t *bytes, size_t n, size_t taken) {
    if (n > s->room) return KO_E2BIG;
    for (size_t i = 0; i < n; ++i)
        *s->out++ = bytes[i];
    s->room -= n;
    s->in += taken;
    return KO_OK;
}

// Four bytes of GB18030 count up from 90 30 81 30, which is U+10000.
static int read_plane(cv_span *s) {
    static constexpr struct {
        uint8_t first, count;
    } digits[] = {
        {0x90, 0x54},
        {0x30, 10  },
        {0x81, 126 },
        {0x30, 10  }
    };
    unsigned at = 0;
    for (int i = 0; i < 4; ++i) {
        if (s->end - s->in == i) return KO_EINVAL;
        const unsigned digit = s->in[i] - unsigned{digits[i].first};
        if (digit >= digits[i].count) return KO_EILSEQ;
        at = at * digits[i].count + digit;
    }
    if (at > 0xFFFFF) return KO_EILSEQ;
    ko_mchar_t bytes[4];
    return put_bytes(s, bytes, units_of(bytes, 0x10000 + at), 4);
}

static int write_plane(cv_span *s) {
    const utf8_step step = utf8_char(s->in, s->end);
    if (step.code == no_code) return bad_utf8(s->in, step, s->end);
    if (step.code < 0x10000) return KO_EILSEQ;
    const unsigned at = step.code - 0x10000;
    const ko_mchar_t bytes[] = {ko_mchar_t(0x90 + at / 12600), ko_mchar_t(0x30 + at / 1260 % 10),
                                ko_mchar_t(0x81 + at / 10 % 126), ko_mchar_t(0x30 + at % 10)};
    return put_bytes(s, bytes, 4, 4);
}

static int read_sequence(const filled_set *set, cv_span *s) {
    const bool cut = s->end - s->in < 2;
    const unsigned bytes = unsigned{s->in[0]} << 8 | (cut ? 0u : s->in[1]);
    for (size_t i = 0; i < set->count; ++i) {
        const unsigned want = bytes_of(set, i);
        if (cut && want >> 8 == bytes >> 8) return KO_EINVAL;
        if (want != bytes) continue;
        ko_mchar_t text[sequence_longest];
        return put_bytes(s, text, utf8_of(set->rows[i], text), 2);
    }
    return KO_EILSEQ;
}

// ---- From the code set ----

static int read_rules(const iconv_rec *cv, conv_state *st, cv_span *s) {
    const auto *const set = static_cast<const filled_set *>(cv->scheme);
    conv_state now = *st;
    int error;
    do {
        error = convert_span(cv->legs[0], &now, s);
        now.first_frag = 0;
        if (error != KO_EILSEQ) break;
        const bool pairs =
            set->form != sequence_form::host || !cv->source_is_stateful || now.source_state == 1;
        error = !set->rows ? read_plane(s) : pairs ? read_sequence(set, s) : int{KO_EILSEQ};
    } while (!error);
    st->source_state = now.source_state;
    return error;
}

// ---- To the code set ----

namespace {
struct found_sequence {
    const ko_mchar_t *at; // where it begins, or where the text ends
    size_t row, bytes;    // of UTF-8; 0: none, or one that the end may have cut off
};
} // namespace

// Which row do both characters make? With only a beginning of them, none but *cut.
static size_t match_sequence(const filled_set *set, const ko_mchar_t *text, size_t len,
                             size_t *bytes, bool *cut) {
    for (size_t i = 0; i < set->count; ++i) {
        ko_mchar_t want[sequence_longest];
        const size_t size = utf8_of(set->rows[i], want), most = len < size ? len : size;
        if (memcmp(text, want, most) != 0) continue;
        *bytes = size;
        if (len >= size) return i;
        *cut = true;
    }
    return set->count;
}

// A first character at the end of a piece, or its beginning, waits for what follows it.
static found_sequence find_sequence(const filled_set *set, const cv_span *s, bool waits) {
    for (const ko_mchar_t *p = s->in; p != s->end; ++p) {
        if (*p != 0xE3 && (*p < 0xC3 || *p > 0xCB)) continue;
        bool cut = false;
        found_sequence found = {p, 0, 0};
        found.row = match_sequence(set, p, size_t(s->end - p), &found.bytes, &cut);
        if (found.row < set->count) return found;
        if (cut && waits) return {p, set->count, 0};
    }
    return {s->end, set->count, 0};
}

filled_sequence find_filled_sequence(uint16_t number, const cv_span *s, bool waits) {
    const found_sequence found = find_sequence(find_filled(number), s, waits);
    return {found.at, found.bytes};
}

static int write_sequence(const iconv_rec *cv, conv_state *st, const found_sequence &found,
                          cv_span *s) {
    const unsigned pair = bytes_of(static_cast<const filled_set *>(cv->scheme), found.row);
    const iconv_rec *const object = cv->legs[0];
    const bool ends = st->last_frag && s->in + found.bytes == s->end;
    ko_mchar_t bytes[12];
    size_t n = 0;
    for (int i = 0; cv->target_is_stateful && st->target_state != 1 && i < object->target_si_len;)
        bytes[n++] = object->target_si[i++];
    bytes[n++] = ko_mchar_t(pair >> 8);
    bytes[n++] = ko_mchar_t(pair & 0xFF);
    for (int i = 0; cv->target_is_stateful && ends && i < object->target_so_len;)
        bytes[n++] = object->target_so[i++];
    const int error = put_bytes(s, bytes, n, found.bytes);
    if (!error && cv->target_is_stateful) st->target_state = 1;
    return error;
}

// Converts up to an end by the object, whose shift states change before it knows that there is no
// room; they are set back to those after the last character.
static int write_part(const iconv_rec *cv, conv_state *st, const ko_mchar_t *end, cv_span *s) {
    const conv_state before = *st;
    const cv_span start = *s;
    cv_span part = {s->in, end, s->out, s->room, s->sub};
    st->last_frag = before.last_frag && end == s->end;
    const int error = convert_span(cv->legs[0], st, &part);
    if (error && cv->target_is_stateful) {
        *st = before;
        st->last_frag = 0;
        cv_span again = {start.in, part.in, start.out, size_t(part.out - start.out), false};
        convert_span(cv->legs[0], st, &again);
    }
    st->first_frag = 0;
    st->last_frag = before.last_frag;
    s->in = part.in;
    s->out = part.out;
    s->room = part.room;
    s->sub = part.sub;
    return error == KO_EINVAL && end != s->end ? int{KO_EILSEQ} : error;
}

static int write_rules(const iconv_rec *cv, conv_state *st, cv_span *s) {
    const auto *const set = static_cast<const filled_set *>(cv->scheme);
    const bool waits = !st->last_frag && !s->cut_off;
    conv_state now = *st;
    int error = KO_OK;
    do {
        const found_sequence found =
            set->rows ? find_sequence(set, s, waits) : found_sequence{s->end, 0, 0};
        error = write_part(cv, &now, found.at, s);
        if (error == KO_EILSEQ && !set->rows)
            error = write_plane(s);
        else if (!error && found.bytes && found.row < set->count)
            error = write_sequence(cv, &now, found, s);
        else if (!error && found.at != s->end)
            error = KO_EINVAL;
    } while (!error && s->in != s->end);
    st->target_state = now.target_state;
    return error;
}

// ---- Descriptors ----

iconv_rec *make_filled(uint16_t number, bool to_utf8, iconv_rec *object) {
    iconv_rec *const cv = object ? make_descriptor() : nullptr;
    if (!cv) {
        ko_cv_unload(object); // NULL is allowed
        return nullptr;
    }
    const filled_set *const set = find_filled(number);
    set_own_rules(cv, to_utf8 ? read_rules : write_rules);
    cv->scheme = set;
    cv->legs[0] = object;
    cv->looks_ahead = !to_utf8 && set->rows;
    take_ends(cv, object, object);
    cv->forms[0] = uint8_t(text_form::utf8); // a null byte ends a text in any case,
    cv->source_noshift_min_len = 1;          // whatever the object states
    cv->target_max_len = form_longest;
    const float growth = to_utf8 && set->rows ? float(sequence_longest) / 2 : 1;
    cv->exp_ratio = object->exp_ratio > growth ? object->exp_ratio : growth;
    return cv;
}
