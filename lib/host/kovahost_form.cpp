// Conversion between the encodings of Unicode: text is decoded to units of UTF-16, a block at a
// time, and encoded from these. A text that has no mark and no byte order is most significant byte
// first.
#include "host/kovahost_form.h"

#include "host/kovahost_made.h"
#include "host/kovahost_wide.h"

#include <bit>

// ---- The state of a text ----

// Bits of ext_state, which is cleared at the start of a text.
enum : uintptr_t {
    mark_seen = 1,    // the start of the source has been examined for a mark
    is_reversed = 2,  // the mark of utf16 says: least significant byte first
    mark_written = 4, // the mark of the target is written, or not wanted
    state_bits = 3    // of one conversion
};

static uintptr_t bits_of(const conv_state *st) {
    return reinterpret_cast<uintptr_t>(st->ext_state);
}
static void set_bits(conv_state *st, uintptr_t bits) {
    st->ext_state = reinterpret_cast<void *>(bits); // never dereferenced
}

leg_states split_state(const conv_state *st) {
    leg_states legs = {
        {*st, *st}
    };
    const uintptr_t bits = st->first_frag ? 0 : bits_of(st);
    set_bits(&legs.leg[0], bits & ((uintptr_t{1} << state_bits) - 1));
    set_bits(&legs.leg[1], bits >> state_bits);
    legs.leg[0].target_state = 0;
    legs.leg[1].source_state = 0;
    return legs;
}

void join_states(const leg_states *legs, conv_state *st) {
    st->source_state = legs->leg[0].source_state;
    st->target_state = legs->leg[1].target_state;
    set_bits(st, bits_of(&legs->leg[0]) | bits_of(&legs->leg[1]) << state_bits);
}

// ---- Units of other byte orders ----

static constexpr bool host_is_little = std::endian::native == std::endian::little;

static bool is_little(text_form form, const conv_state *st) {
    return form == text_form::utf16le || form == text_form::utf32le ||
           (form == text_form::utf16 && bits_of(st) & is_reversed);
}

static ko_wchar_t swapped(ko_wchar_t unit) { return ko_wchar_t(unit << 8 | unit >> 8); }

static uint32_t get_code(const ko_mchar_t *p, bool little) {
    return little ? p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24
                  : p[3] | uint32_t{p[2]} << 8 | uint32_t{p[1]} << 16 | uint32_t{p[0]} << 24;
}
static void put_code(ko_mchar_t *p, uint32_t code, bool little) {
    for (int i = 0; i < 4; ++i)
        p[i] = uint8_t(code >> (little ? 8 * i : 24 - 8 * i));
}

// ---- Decoding ----

namespace {
constexpr size_t block_room = 512;
// A block of decoded text. Its last character is whole.
struct unit_block {
    ko_wchar_t units[block_room];
    size_t count, most; // how many there are, and may be
    bool is_full() const { return count + 2 > most; }
};
} // namespace

int bad_utf8(const ko_mchar_t *p, utf8_step step, const ko_mchar_t *end) {
    const bool cut = p + step.bytes == end && *p - 0xC2u <= 0xF4 - 0xC2;
    return cut ? int{KO_EINVAL} : int{KO_EILSEQ};
}

static int decode_utf8(const ko_mchar_t **p, const ko_mchar_t *end, unit_block *b) {
    const run_way way = best_way();
    while (*p != end && !b->is_full()) {
        const run_of run =
            convert_run(way, b->units + b->count, b->most - b->count, *p, size_t(end - *p));
        *p += run.taken;
        b->count += run.made;
        for (int few = run.taken ? 4 : 16; few && *p != end && !b->is_full(); --few) {
            const utf8_step step = utf8_char(*p, end);
            if (step.code == no_code) return bad_utf8(*p, step, end);
            b->count += units_of(b->units + b->count, step.code);
            *p += step.bytes;
        }
    }
    return KO_OK;
}

// Counts whole characters among n units; the text has no more than these if they are the last.
static size_t whole_units(const ko_wchar_t *units, size_t n, bool last, int *error) {
    size_t good = 0;
    while (good < n) {
        if ((units[good] & 0xF800) != 0xD800) {
            ++good;
            continue;
        }
        if (good + 1 == n && !is_low_unit(units[good])) {
            *error = last ? int{KO_EINVAL} : int{KO_OK}; // the other half goes with the next block
            break;
        }
        if (is_low_unit(units[good]) || !is_low_unit(units[good + 1])) {
            *error = KO_EILSEQ;
            break;
        }
        good += 2;
    }
    return good;
}

static int decode_utf16(const ko_mchar_t **p, const ko_mchar_t *end, bool little, unit_block *b) {
    while (end - *p >= 2 && !b->is_full()) {
        const size_t room = b->most - b->count;
        const size_t left = size_t(end - *p) / 2, n = left < room ? left : room;
        ko_wchar_t *const units = b->units + b->count;
        memcpy(units, *p, 2 * n);
        unsigned surrogates = 0;
        for (size_t i = 0; i < n; ++i) {
            if (little != host_is_little) units[i] = swapped(units[i]);
            surrogates |= (units[i] & 0xF800) == 0xD800;
        }
        int error = KO_OK;
        const size_t good = surrogates ? whole_units(units, n, n == left, &error) : n;
        b->count += good;
        *p += 2 * good;
        if (error || good < n) return error;
    }
    return *p != end && end - *p < 2 ? int{KO_EINVAL} : int{KO_OK};
}

static int decode_utf32(const ko_mchar_t **p, const ko_mchar_t *end, bool little, unit_block *b) {
    for (; end - *p >= 4 && !b->is_full(); *p += 4) {
        const uint32_t code = get_code(*p, little);
        if (code > 0x10FFFF || (code & ~0x7FFu) == 0xD800) return KO_EILSEQ;
        b->count += units_of(b->units + b->count, code);
    }
    return *p != end && end - *p < 4 ? int{KO_EINVAL} : int{KO_OK};
}

static int decode(text_form form, bool little, const ko_mchar_t **p, const ko_mchar_t *end,
                  unit_block *b) {
    b->count = 0;
    if (form == text_form::utf8) return decode_utf8(p, end, b);
    if (form < text_form::utf32be) return decode_utf16(p, end, little, b);
    return decode_utf32(p, end, little, b);
}

// ---- Encoding ----

static unsigned code_at(const ko_wchar_t *units, size_t *len) {
    // NOLINTBEGIN(clang-analyzer-*): what is decoded into a block has whole pairs
    *len = is_high_unit(*units) ? 2 : 1;
    return *len == 2 ? (units[0] - 0xD7C0u) << 10 | (units[1] & 0x3FFu) : units[0];
    // NOLINTEND(clang-analyzer-*)
}

static size_t encode_utf8(const unit_block *b, cv_span *s) {
    const run_way way = best_way();
    size_t at = 0;
    while (at < b->count) {
        const run_of run = convert_run(way, s->out, s->room, b->units + at, b->count - at);
        at += run.taken;
        s->out += run.made;
        s->room -= run.made;
        for (int few = run.taken ? 4 : 16; few && at < b->count; --few) {
            size_t len;
            unsigned char bytes[longest_char];
            const size_t made = units_of(bytes, code_at(b->units + at, &len));
            if (made > s->room) return at;
            for (size_t i = 0; i < made; ++i)
                s->out[i] = bytes[i];
            s->out += made;
            s->room -= made;
            at += len;
        }
    }
    return at;
}

static size_t encode_utf16(const unit_block *b, bool little, cv_span *s) {
    size_t n = b->count < s->room / 2 ? b->count : s->room / 2;
    if (n && n < b->count && is_high_unit(b->units[n - 1])) --n;
    for (size_t i = 0; i < n; ++i) {
        const ko_wchar_t unit = little == host_is_little ? b->units[i] : swapped(b->units[i]);
        memcpy(s->out + 2 * i, &unit, 2);
    }
    s->out += 2 * n;
    s->room -= 2 * n;
    return n;
}

static size_t encode_utf32(const unit_block *b, bool little, cv_span *s) {
    size_t at = 0;
    for (size_t len; at < b->count && s->room >= 4; at += len) {
        put_code(s->out, code_at(b->units + at, &len), little);
        s->out += 4;
        s->room -= 4;
    }
    return at;
}

// Writes a block as far as there is room; returns the units written.
static size_t encode(text_form form, const unit_block *b, cv_span *s) {
    if (form == text_form::utf8) return encode_utf8(b, s);
    const bool little = form == text_form::utf16le || form == text_form::utf32le;
    return form < text_form::utf32be ? encode_utf16(b, little, s) : encode_utf32(b, little, s);
}

// The bytes from which units were decoded.
static size_t source_bytes(text_form form, const ko_wchar_t *units, size_t count) {
    size_t bytes = 0;
    for (size_t i = 0, len; i < count; i += len) {
        const unsigned code = code_at(units + i, &len);
        bytes += form == text_form::utf8    ? 1u + (code >= 0x80) + (code >= 0x800) + (len > 1)
                 : form_shortest(form) == 2 ? 2 * len
                                            : 4;
    }
    return bytes;
}

// ---- Byte-order marks ----

static constexpr unsigned mark_code = 0xFEFF;

static size_t put_mark(text_form form, ko_mchar_t *bytes) {
    if (form == text_form::utf8) return units_of(bytes, mark_code);
    if (form >= text_form::utf32be) {
        put_code(bytes, mark_code, form == text_form::utf32le);
        return 4;
    }
    const bool little = form == text_form::utf16le;
    bytes[little] = mark_code >> 8;
    bytes[!little] = mark_code & 0xFF;
    return 2;
}

// Does no mark begin with a byte? Answers for most texts without looking further.
static bool begins_no_mark(text_form form, unsigned byte) {
    if (form == text_form::utf8) return byte != 0xEF;
    return form < text_form::utf32be && byte < 0xFE;
}

int drop_mark(const iconv_rec *cv, conv_state *st, cv_span *s) {
    if (bits_of(st) & mark_seen) return KO_OK;
    const auto form = text_form(cv->forms[0]);
    const size_t left = size_t(s->end - s->in);
    if (!left) return KO_OK;
    if (begins_no_mark(form, *s->in)) {
        set_bits(st, bits_of(st) | mark_seen);
        return KO_OK;
    }
    uintptr_t found = mark_seen;
    size_t drop = 0;
    for (const bool reversed : {false, true}) {
        ko_mchar_t bytes[form_longest];
        const size_t len = put_mark(reversed ? text_form::utf16le : form, bytes);
        if (reversed && form != text_form::utf16) break;
        if (memcmp(s->in, bytes, left < len ? left : len) != 0) continue;
        if (left < len) return KO_EINVAL;
        if (reversed) found |= is_reversed;
        drop = len;
        break;
    }
    if (!cv->keeps_mark || form == text_form::utf16) s->in += drop;
    set_bits(st, bits_of(st) | found);
    return KO_OK;
}

static int write_mark(const iconv_rec *cv, conv_state *st, cv_span *s) {
    if (bits_of(st) & mark_written || s->in == s->end) return KO_OK;
    if (!cv->writes_mark) {
        set_bits(st, bits_of(st) | mark_written);
        return KO_OK;
    }
    ko_mchar_t bytes[form_longest];
    const size_t len = put_mark(text_form(cv->forms[1]), bytes);
    if (len > s->room) return KO_E2BIG;
    for (size_t i = 0; i < len; ++i)
        *s->out++ = bytes[i];
    s->room -= len;
    set_bits(st, bits_of(st) | mark_written);
    return KO_OK;
}

// ---- Conversion ----

static bool is_utf16(text_form form) {
    return form >= text_form::utf16be && form <= text_form::utf16;
}

// Converts between UTF-8 and UTF-16 as far as wide runs do. Returns false if there are none.
static inline bool convert_wide(text_form from, text_form to, bool little, cv_span *s) {
    if (!has_wide_runs()) return false;
    const size_t left = size_t(s->end - s->in);
    if (from == text_form::utf8 && is_utf16(to)) {
        const bool swapped = (to == text_form::utf16le) != host_is_little;
        const run_of run = wide_from_utf8(s->out, s->room / 2, s->in, left, swapped);
        s->in += run.taken;
        s->out += 2 * run.made;
        s->room -= 2 * run.made;
        return true;
    }
    if (!is_utf16(from) || to != text_form::utf8) return false;
    const run_of run = wide_to_utf8(s->out, s->room, s->in, left / 2, little != host_is_little);
    s->in += 2 * run.taken;
    s->out += run.made;
    s->room -= run.made;
    return true;
}

// Converts the next characters, up to a block of them or those that stop wide runs.
[[gnu::noinline]] static int convert_block(text_form from, text_form to, bool little, size_t most,
                                           cv_span *s) {
    unit_block block;
    block.most = most;
    const ko_mchar_t *const start = s->in;
    const int error = decode(from, little, &s->in, s->end, &block);
    const size_t written = encode(to, &block, s);
    if (written == block.count) return error;
    s->in = start + source_bytes(from, block.units, written);
    return KO_E2BIG;
}

static int form_rules(const iconv_rec *cv, conv_state *st, cv_span *s) {
    const auto from = text_form(cv->forms[0]), to = text_form(cv->forms[1]);
    if (st->first_frag) st->ext_state = nullptr;
    int error = drop_mark(cv, st, s);
    if (!error) error = write_mark(cv, st, s);
    const bool little = is_little(from, st);
    while (!error && s->in != s->end) {
        // What stops a wide run is near.
        const size_t most = convert_wide(from, to, little, s) ? 64 : block_room;
        if (s->in == s->end) break;
        error = convert_block(from, to, little, most, s);
    }
    return error;
}

// Converts a whole short text without a mark in one run. Returns the bytes written; 0: it is not
// one.
static inline size_t convert_short(const iconv_rec *cv, const ko_mchar_t *in, size_t n,
                                   ko_mchar_t *out, size_t room) {
    constexpr size_t few = 64;
    const auto from = text_form(cv->forms[0]), to = text_form(cv->forms[1]);
    if (n > few || cv->writes_mark || !begins_no_mark(from, *in)) return 0;
    cv_span s = {in, in + n, out, room, false};
    return convert_wide(from, to, from == text_form::utf16le, &s) && s.in == s.end
               ? size_t(s.out - out)
               : 0;
}

static int form_smiconv(iconv_rec *cv, conv_state *st, const ko_mchar_t **inmbs, int *inlen,
                        ko_mchar_t **outmbs, int *outlen, int *sub) {
    if (st->first_frag && inlen && *inlen > 0 && *outlen > 0) {
        const auto n = size_t(*inlen);
        if (const size_t made = convert_short(cv, *inmbs, n, *outmbs, size_t(*outlen))) {
            set_bits(st, mark_seen | mark_written);
            *inmbs += n;
            *inlen = 0;
            *outmbs += made;
            *outlen -= int(made);
            *sub = 0;
            return 0;
        }
    }
    return own_smiconv(cv, st, inmbs, inlen, outmbs, outlen, sub);
}

iconv_rec *make_form_conversion(text_form from, text_form to, bool keeps_mark, bool writes_mark) {
    iconv_rec *const cv = make_descriptor();
    if (!cv) return nullptr;
    set_own_rules(cv, form_rules);
    cv->smiconv_fp = form_smiconv;
    cv->forms[0] = uint8_t(from);
    cv->forms[1] = uint8_t(to);
    cv->keeps_mark = keeps_mark;
    cv->writes_mark = writes_mark;
    cv->source_noshift_min_len = form_shortest(from);
    cv->source_noshift_max_len = form_longest;
    cv->target_min_len = form_shortest(to);
    cv->target_max_len = form_longest;
    // A unit of two bytes is at most three bytes of UTF-8.
    const int in = form_shortest(from), out = form_shortest(to);
    const float growth = in == 2 && out == 1 ? 1.5f : in < out ? float(out) / float(in) : 1.0f;
    cv->exp_ratio = growth + (writes_mark ? float(form_longest) : 0.0f);
    return cv;
}
