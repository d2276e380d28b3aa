// UTF-7 and the form of it that names mailboxes: characters stand for themselves, or as units of
// UTF-16 in digits of six bits, which a plus sign or an ampersand begins.
#include "host/kovahost_utf7.h"

#include "host/kovahost_form.h"
#include "host/kovahost_made.h"

#include <string.h>

namespace {

struct dialect {
    uint16_t number;
    char opens;
    const char *digits;
    const char *direct; // besides letters and digits; NULL: all of ASCII that prints
};

// The bits of a digit that belong to the next character.
struct position {
    bool inside; // digits
    unsigned count, bits;
};

} // namespace

#define LETTERS "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+"
static constexpr dialect dialects[] = {
    {57506, '+', LETTERS "/", "'(),-./:? \t\r\n"},
    {57507, '&', LETTERS ",", nullptr           },
};
#undef LETTERS
// Characters that the first dialect also reads as themselves.
static constexpr const char optional_direct[] = "!\"#$%&*;<=>@[]^_`{|}";

static const dialect *find_dialect(uint16_t number) {
    for (const dialect &one : dialects)
        if (one.number == number) return &one;
    return nullptr;
}
bool is_utf7(uint16_t number) { return find_dialect(number) != nullptr; }

static const dialect *dialect_of(const iconv_rec *cv) {
    return static_cast<const dialect *>(cv->scheme);
}

// Two bits count pairs of bits, so that no state of a caller's making leads astray.
static position position_of(int state) {
    const auto word = unsigned(state);
    const unsigned count = 2 * (word >> 1 & 3) % 6;
    return {(word & 1) != 0, count, word >> 3 & ((1u << count) - 1)};
}
static int state_of(const position &at) {
    return at.inside ? int(1 | at.count / 2 << 1 | at.bits << 3) : 0;
}

static int digit_value(const dialect *by, ko_mchar_t byte) {
    const char *const found = byte ? strchr(by->digits, byte) : nullptr;
    return found ? int(found - by->digits) : -1;
}

// A null byte stands for itself, so that it ends a text in every code set.
static bool is_direct(const dialect *by, unsigned code) {
    if (code >= 0x7F || code == unsigned(by->opens)) return false;
    if (!by->direct) return code >= 0x20 || !code;
    const unsigned letter = code | 0x20;
    return letter - 'a' < 26 || code - '0' < 10 || !code || strchr(by->direct, int(code));
}
static bool reads_direct(const dialect *by, unsigned code) {
    return is_direct(by, code) || (by->direct && code < 0x7F && strchr(optional_direct, int(code)));
}

// ---- Reading ----

// The bits that the next digits give a unit; KO_EILSEQ if there are fewer digits.
static int read_unit(const dialect *by, const ko_mchar_t **p, const ko_mchar_t *end, position *at,
                     unsigned *unit) {
    unsigned count = at->count, bits = at->bits;
    for (; count < 16; count += 6) {
        if (*p == end) return KO_EINVAL;
        const int value = digit_value(by, **p);
        if (value < 0) return KO_EILSEQ;
        bits = bits << 6 | unsigned(value);
        ++*p;
    }
    at->count = count - 16;
    at->bits = bits & ((1u << at->count) - 1);
    *unit = bits >> at->count;
    return KO_OK;
}

static int put_code(cv_span *s, unsigned code, const ko_mchar_t *next) {
    ko_mchar_t bytes[form_longest];
    const size_t made = units_of(bytes, code);
    if (made > s->room) return KO_E2BIG;
    memcpy(s->out, bytes, made);
    s->out += made;
    s->room -= made;
    s->in = next;
    return KO_OK;
}

static int read_digits(const dialect *by, position *at, cv_span *s) {
    const ko_mchar_t *p = s->in;
    position next = *at;
    unsigned code, low;
    if (const int error = read_unit(by, &p, s->end, &next, &code)) return error;
    const bool needless = code && !by->direct && is_direct(by, code);
    if ((code & 0xFC00) == 0xDC00 || needless) return KO_EILSEQ;
    if ((code & 0xFC00) == 0xD800) {
        if (const int error = read_unit(by, &p, s->end, &next, &low)) return error;
        if ((low & 0xFC00) != 0xDC00) return KO_EILSEQ;
        code = 0x10000 + ((code & 0x3FF) << 10) + (low & 0x3FF);
    }
    if (const int error = put_code(s, code, p)) return error;
    *at = next;
    return KO_OK;
}

// The end of the digits, whose last bits are zero. The hyphen after them belongs to them.
static int leave_digits(const dialect *by, position *at, cv_span *s) {
    if (at->bits || (!by->direct && *s->in != '-')) return KO_EILSEQ;
    *at = {};
    s->in += *s->in == '-';
    return KO_OK;
}

static int read_next(const dialect *by, position *at, cv_span *s) {
    const ko_mchar_t byte = *s->in;
    if (at->inside)
        return digit_value(by, byte) < 0 ? leave_digits(by, at, s) : read_digits(by, at, s);
    if (byte != ko_mchar_t(by->opens))
        return reads_direct(by, byte) ? put_code(s, byte, s->in + 1) : int{KO_EILSEQ};
    if (s->end - s->in < 2) return KO_EINVAL;
    if (s->in[1] == '-') return put_code(s, byte, s->in + 2);
    if (digit_value(by, s->in[1]) < 0) return KO_EILSEQ;
    *at = {true, 0, 0};
    ++s->in;
    return KO_OK;
}

static int read_rules(const iconv_rec *cv, conv_state *st, cv_span *s) {
    position at = position_of(st->first_frag ? 0 : st->source_state);
    int error = KO_OK;
    while (!error && s->in != s->end)
        error = read_next(dialect_of(cv), &at, s);
    st->source_state = state_of(at);
    return error ? error : st->last_frag && at.bits ? int{KO_EINVAL} : int{KO_OK};
}

// ---- Writing ----

namespace {
struct made_bytes {
    char bytes[16];
    size_t len;
    void add(char byte) { bytes[len++] = byte; }
};
} // namespace

static bool put_made(const made_bytes &made, cv_span *s) {
    if (made.len > s->room) return false;
    memcpy(s->out, made.bytes, made.len);
    s->out += made.len;
    s->room -= made.len;
    return true;
}

static void add_bits(const dialect *by, position *at, unsigned bits, unsigned count,
                     made_bytes *made) {
    at->bits = at->bits << count | bits;
    at->count += count;
    for (; at->count >= 6; at->count -= 6)
        made->add(by->digits[at->bits >> (at->count - 6) & 0x3F]);
    at->bits &= (1u << at->count) - 1;
}

static void end_digits(const dialect *by, position *at, bool hyphen, made_bytes *made) {
    if (!at->inside) return;
    if (at->count) add_bits(by, at, 0, 6 - at->count, made);
    if (hyphen) made->add('-');
    *at = {};
}

static void add_char(const dialect *by, position *at, unsigned code, made_bytes *made) {
    const bool direct = is_direct(by, code);
    if (direct) {
        end_digits(by, at, !by->direct || code == '-' || digit_value(by, ko_mchar_t(code)) >= 0,
                   made);
        return made->add(char(code));
    }
    if (code == unsigned(by->opens) && (!at->inside || !by->direct)) {
        end_digits(by, at, true, made);
        made->add(by->opens);
        return made->add('-');
    }
    if (!at->inside) made->add(by->opens);
    at->inside = true;
    ko_wchar_t units[2];
    const size_t count = units_of(units, code);
    for (size_t i = 0; i < count; ++i)
        add_bits(by, at, units[i], 16, made);
}

static int write_rules(const iconv_rec *cv, conv_state *st, cv_span *s) {
    const dialect *const by = dialect_of(cv);
    position at = position_of(st->first_frag ? 0 : st->target_state);
    int error = KO_OK;
    while (!error && s->in != s->end) {
        const utf8_step step = utf8_char(s->in, s->end);
        if (step.code == no_code) {
            error = bad_utf8(s->in, step, s->end);
            break;
        }
        made_bytes made = {{}, 0};
        position next = at;
        add_char(by, &next, step.code, &made);
        if (!put_made(made, s)) {
            error = KO_E2BIG;
            break;
        }
        at = next;
        s->in += step.bytes;
    }
    if (!error && st->last_frag) {
        made_bytes made = {{}, 0};
        position next = at;
        end_digits(by, &next, true, &made);
        if (put_made(made, s))
            at = next;
        else
            error = KO_E2BIG;
    }
    st->target_state = state_of(at);
    return error;
}

// ---- Descriptors ----

iconv_rec *make_utf7(uint16_t number, bool to_utf8) {
    iconv_rec *const cv = make_descriptor();
    if (!cv) return nullptr;
    constexpr int longest = 8;
    set_own_rules(cv, to_utf8 ? read_rules : write_rules);
    cv->scheme = find_dialect(number);
    cv->forms[0] = uint8_t(text_form::utf8); // a null byte ends a text in both
    cv->source_noshift_min_len = cv->target_min_len = 1;
    cv->source_noshift_max_len = to_utf8 ? longest : form_longest;
    cv->target_max_len = to_utf8 ? form_longest : longest;
    cv->exp_ratio = to_utf8 ? 1.5f : 5.0f;
    return cv;
}
