// The conversion engine: stateless, stateful and algorithmic conversion of a text or its pieces,
// and computation of the resulting lengths. Ordinary characters are converted in runs from the flat
// tables; special ones (shifts, errors, terminators, those at the end of input or room) one at a
// time by the rules.
#include "convert/kovacvlib_run.h"

#include <string.h>

namespace {

struct cursor {
    const ko_mchar_t *in;
    int left;
    ko_mchar_t *out; // NULL: count only
    int room;
    int sub;
    bool endless;            // a terminator ends the text
    const ko_mchar_t *known; // endless: end of the bytes known to belong to the text, or NULL

    void advance(int taken, const unsigned char *bytes, int len) {
        put(bytes, len);
        in += taken;
        left -= taken;
    }
    void put(const unsigned char *bytes, int len) {
        if (out) {
            for (int i = 0; i < len; ++i)
                out[i] = bytes[i];
            out += len;
        }
        room -= len;
    }
    // Bytes that may be read: all that is left, or in an endless text at most up to the next zero
    // byte. Looking no further than a window keeps short calls on a long text short.
    int readable() {
        constexpr size_t window = 4096;
        if (!endless) return left;
        if (!known || known <= in || (known - in <= cv_max_source && known[-1])) {
            const size_t n = strnlen(reinterpret_cast<const char *>(in), window);
            known = in + n + (n < window ? 1 : 0);
        }
        const ptrdiff_t n = known - in;
        return n < left ? int(n) : left;
    }
};

int bytes_left(const int *count) { return !count ? cv_endless : *count < 0 ? 0 : *count; }

// A cursor made from the caller's pointers and counts, which are updated at its end.
struct call_cursor : cursor {
    const ko_mchar_t **inmbs;
    int *inlen;
    ko_mchar_t **outmbs;
    int *outlen;
    int *subp;
    call_cursor(const ko_mchar_t **i, int *il, ko_mchar_t **o, int *ol, int *s)
        : inmbs(i), inlen(il), outmbs(o), outlen(ol), subp(s) {
        in = *i;
        left = bytes_left(il);
        out = o ? *o : nullptr;
        room = *ol;
        sub = 0;
        endless = !il;
        known = nullptr;
    }
    call_cursor(const call_cursor &) = delete;
    call_cursor &operator=(const call_cursor &) = delete;
    ~call_cursor() {
        *inmbs = in;
        if (inlen) *inlen = left;
        if (outmbs) *outmbs = out;
        *outlen = room;
        *subp = sub;
    }
};

// Moves a cursor over a run; the first substitution is left to the rules.
void run(iconv_rec *cv, const cv_flat *flat, cv_rule rule, int *state, int readable, cursor *c) {
    if (!c->sub) rule.mask |= cv_substitute;
    const cv_run r = run_text(cv, flat, rule, state, c->in, readable, c->out, c->room);
    c->left -= int(r.p - c->in);
    c->in = r.p;
    if (c->out) c->out += r.made;
    c->room -= int(r.made);
}

// A quiet descriptor is the copy of one call, and its word no hook's.
int failed(iconv_rec *cv, int error) {
    if (!cv->quiet) return fail(&cv->exports.exp, error, -1);
    cv->exports.exp.ko_lerrno = error;
    return -1;
}

// ---- By the rules, one character at a time

enum class ending { done, no_character, unmapped, no_room };

int result_of(iconv_rec *cv, ending why) {
    if (why == ending::done) return 0;
    if (why == ending::no_character) return -1; // with the error of the look-up
    return failed(cv, why == ending::unmapped ? KO_EILSEQ : KO_E2BIG);
}

void log_ending(ending why) {
    static constexpr const char *texts[] = {nullptr, "Error in Translation.",
                                            "Error in Translation (KO_EILSEQ)",
                                            "Error in Translation (KO_E2BIG)"};
    if (const char *text = texts[int(why)]) ko_message(text);
}

struct shift_text {
    const unsigned char *bytes;
    int len;
};
struct shift_texts { // around a character
    shift_text before, after;
};

// Converts a run up to the next character that the rules must handle.
void run_general(iconv_rec *cv, const conv_state *st, bool shifted, cursor *c) {
    if (st && (st->target_state & ~1)) return; // a state of the caller's making
    cv_rule rule = {c->endless ? cv_terminator : 0, 0};
    int readable = c->readable();
    if (st) {
        if (cv->source_is_stateful) rule.mask |= cv_source_shift;
        rule.mask |= cv_shifted_target;
        rule.want = st->target_state ? cv_shifted_target : 0;
        readable -= cv_max_source; // the rules decide what shift the last character needs after it
    }
    run(cv, shifted ? cv->flat_shift : cv->flat_noshift, rule, nullptr, readable, c);
}

// Changes the states for a character; returns what is written around it.
shift_texts change_states(const iconv_rec *cv, conv_state *st, unsigned flags, bool last) {
    shift_texts around = {};
    if ((flags & cv_source_shift) && cv->source_is_stateful) st->source_state = !st->source_state;
    if (int(flags & cv_shifted_target ? 1 : 0) != st->target_state) {
        st->target_state = !st->target_state;
        around.before = st->target_state ? shift_text{cv->target_si, cv->target_si_len}
                                         : shift_text{cv->target_so, cv->target_so_len};
    }
    if (st->last_frag && st->target_state == 1 && last)
        around.after = {cv->target_so, cv->target_so_len};
    return around;
}

// Converts by the rules: stateless (without st), or stateful in general.
ending mb_convert(iconv_rec *cv, conv_state *st, cursor *c) {
    while (c->left > 0) {
        const bool shifted =
            st && cv->source_is_stateful && st->source_state == 1 && cv->conv_shift;
        run_general(cv, st, shifted, c);
        if (c->left <= 0) break;
        int taken, error;
        unsigned char unpacked[cv_entry_room];
        const auto *e = static_cast<const unsigned char *>(find_limited(
            c->in, shifted ? cv->conv_shift : cv->conv_noshift, c->left, &taken, &error));
        if (!e) {
            failed(cv, error);
            return ending::no_character;
        }
        if (cv->by_words)
            e = cv_word_entry(shifted ? cv->flat_shift : cv->flat_noshift, c->in, taken, unpacked);
        const unsigned flags = e[0] & cv_flags;
        const int len = int(e[0] & cv_length);
        if (!flags) return ending::unmapped;
        if (flags & cv_substitute) c->sub = 1;
        const bool at_end = c->endless && (flags & cv_terminator);
        shift_texts around = {};
        if (st) around = change_states(cv, st, flags, at_end || taken == c->left);
        if (around.before.len + len + around.after.len > c->room) return ending::no_room;
        c->put(around.before.bytes, around.before.len);
        c->advance(taken, e + 1, len);
        c->put(around.after.bytes, around.after.len);
        if (at_end) break;
    }
    return ending::done;
}

// Converts single bytes and byte pairs, switched by one-byte shifts, to a stateless target.
int db_convert(iconv_rec *cv, conv_state *st, cursor *c) {
    static const unsigned char shift_entry[2] = {cv_source_shift, 0};
    while (c->left > 0) {
        const cv_rule rule = {cv_source_shift | (c->endless ? cv_terminator : 0), 0};
        run(cv, cv->flat_noshift, rule, &st->source_state, c->readable(), c);
        if (c->left <= 0) break;
        const bool shifted = st->source_state == 1;
        const unsigned char *e;
        unsigned char unpacked[cv_entry_room];
        int taken = 1;
        if (!shifted && cv->by_words) {
            e = cv_word_entry(cv->flat_noshift, c->in, 1, unpacked);
        } else if (!shifted) {
            e = cv_direct(cv->conv_noshift, *c->in);
        } else if (*c->in == cv->source_so[0]) {
            e = shift_entry;
        } else {
            // The two-byte look-up reads no flags, so the first byte is tested here.
            taken = 2;
            if (c->left < 2 || (c->endless && !*c->in)) return failed(cv, KO_EINVAL);
            const multi_arr *root = cv->conv_shift->root;
            if (!root->flag_arr || root->flag_arr[*c->in] != mb_prefix)
                return failed(cv, KO_EILSEQ);
            e = static_cast<const unsigned char *>(
                retrieve_text_doub_limit(c->in, cv->conv_shift, c->left, &nobody));
            if (!e) return failed(cv, KO_EILSEQ);
            if (cv->by_words) e = cv_word_entry(cv->flat_shift, c->in, 2, unpacked);
        }
        const unsigned flags = e[0] & cv_flags;
        const int len = int(e[0] & cv_length);
        if (!flags) return failed(cv, KO_EILSEQ);
        if (flags & cv_substitute) c->sub = 1;
        if (flags & cv_source_shift) st->source_state = !st->source_state;
        if (len > c->room) return failed(cv, KO_E2BIG);
        c->advance(taken, e + 1, len);
        if (c->endless && (flags & cv_terminator)) break;
    }
    return 0;
}

int sb_convert(iconv_rec *cv, cursor *c) {
    while (c->left > 0) {
        if (cv->bytes) {
            // A terminator that ends the text is left to the rules below.
            int n = c->endless ? c->readable() - 1 : c->left;
            if (n > c->room) n = c->room;
            if (n > 0) {
                const int done =
                    int(cv->bytes->translate(cv->bytes, c->out, c->in, size_t(n), true));
                c->in += done;
                c->left -= done;
                c->out += done;
                c->room -= done;
                if (c->left <= 0) break;
            }
        }
        const unsigned char *e = cv_direct(cv->conv_noshift, *c->in);
        if (!(e[0] & cv_flags)) return failed(cv, KO_EILSEQ);
        if (e[0] & cv_substitute) c->sub = 1;
        if (c->room < 1) return failed(cv, KO_E2BIG);
        c->advance(1, e + 1, 1);
        if (c->endless && (e[0] & cv_terminator)) break;
    }
    return 0;
}

int alg_convert(iconv_rec *cv, conv_state *st, cursor *c) {
    if (st->first_frag) st->ext_state = nullptr;
    for (;;) {
        conv_res res = {};
        cv->mtom_fn(c->in, unsigned(c->left), st, &res);
        if (res.flags & KO_CV_ERROR) return -1;
        if (res.src_len < 0 || res.src_len > c->left || res.dst_len < 0 ||
            res.dst_len > int(sizeof res.dst_buf))
            return failed(cv, KO_ERANGE);
        if (res.flags & KO_CV_SUBSTITUTE) c->sub = 1;
        if (res.dst_len > c->room) return failed(cv, KO_E2BIG);
        c->advance(res.src_len, res.dst_buf, res.dst_len);
        if (c->endless && (res.flags & KO_CV_TERMINATOR)) return 0;
        if (res.flags & KO_CV_END) return 0;
        if (!res.src_len && !res.dst_len) return failed(cv, KO_EILSEQ);
    }
}

// The first piece begins unshifted on both sides; db_smiconv leaves the target's state alone.
void start_states(const iconv_rec *cv, conv_state *st) {
    if (!st->first_frag) return;
    st->source_state = 0;
    if (cv->smiconv_fp != db_smiconv) st->target_state = 0;
}

bool stateful(const iconv_rec *cv) { return cv->source_is_stateful || cv->target_is_stateful; }

conv_state whole_text() { return {.first_frag = 1, .last_frag = 1}; }

// Tests the arguments common to all calls; a NULL one is KO_ENULL. A descriptor that failed to open
// keeps its own error.
inline bool usable(iconv_rec *cv, const ko_mchar_t **inmbs, const int *outlen, int *sub) {
    if (sub) *sub = 0;
    const bool opened = cv && cv->miconv_fp;
    if (opened && inmbs && *inmbs && outlen && sub) return true;
    if (opened) set_error(&cv->exports.exp, KO_ENULL);
    return false;
}

} // namespace

// ---- The routines behind a descriptor's pointers. The usual call converts the whole text in one
// run; the rules take over where a run ends.

[[gnu::noinline]] static int mb_miconv_rest(iconv_rec *cv, const ko_mchar_t **inmbs, int *inlen,
                                            ko_mchar_t **outmbs, int *outlen, int *sub) {
    call_cursor c(inmbs, inlen, outmbs, outlen, sub);
    const ending why = mb_convert(cv, nullptr, &c);
    if (!cv->quiet) log_ending(why);
    return result_of(cv, why);
}

[[gnu::noinline]] static int db_smiconv_rest(iconv_rec *cv, conv_state *st,
                                             const ko_mchar_t **inmbs, int *inlen,
                                             ko_mchar_t **outmbs, int *outlen, int *sub) {
    call_cursor c(inmbs, inlen, outmbs, outlen, sub);
    return db_convert(cv, st, &c);
}

int mb_miconv(iconv_rec *cv, const ko_mchar_t **inmbs, int *inlen, ko_mchar_t **outmbs, int *outlen,
              int *sub) {
    *sub = 0;
    if (run_through(cv, nullptr, inmbs, inlen, outmbs, outlen)) return 0;
    return mb_miconv_rest(cv, inmbs, inlen, outmbs, outlen, sub);
}

int db_smiconv(iconv_rec *cv, conv_state *st, const ko_mchar_t **inmbs, int *inlen,
               ko_mchar_t **outmbs, int *outlen, int *sub) {
    *sub = 0;
    if (st->first_frag) st->source_state = 0;
    if (run_through(cv, &st->source_state, inmbs, inlen, outmbs, outlen)) return 0;
    return db_smiconv_rest(cv, st, inmbs, inlen, outmbs, outlen, sub);
}

// Translates as much of a counted text as there is room for, or less if it stops at a special byte.
static int translate_through(iconv_rec *cv, bool stop, const ko_mchar_t **inmbs, int *inlen,
                             ko_mchar_t **outmbs, int *outlen) {
    const int n = *inlen < *outlen ? *inlen : *outlen;
    if (n <= 0) return 0;
    const int done = int(cv->bytes->translate(cv->bytes, *outmbs, *inmbs, size_t(n), stop));
    *inmbs += done;
    *inlen -= done;
    *outmbs += done;
    *outlen -= done;
    return done;
}

int sb_miconv(iconv_rec *cv, const ko_mchar_t **inmbs, int *inlen, ko_mchar_t **outmbs, int *outlen,
              int *sub) {
    *sub = 0;
    if (inlen && cv->bytes && translate_through(cv, true, inmbs, inlen, outmbs, outlen) &&
        *inlen == 0)
        return 0;
    call_cursor c(inmbs, inlen, outmbs, outlen, sub);
    return sb_convert(cv, &c);
}

int sb_miconv_noerr(iconv_rec *cv, const ko_mchar_t **inmbs, int *inlen, ko_mchar_t **outmbs,
                    int *outlen, int *sub) {
    if (!inlen) return sb_miconv(cv, inmbs, inlen, outmbs, outlen, sub);
    *sub = 0;
    if (cv->bytes) {
        translate_through(cv, false, inmbs, inlen, outmbs, outlen);
    } else {
        for (; *inlen > 0 && *outlen > 0; --*inlen, --*outlen)
            *(*outmbs)++ = cv_direct(cv->conv_noshift, *(*inmbs)++)[1];
    }
    if (*inlen <= 0) {
        *inlen = 0;
        return 0;
    }
    return failed(cv, KO_E2BIG);
}

int alg_smiconv(iconv_rec *cv, conv_state *st, const ko_mchar_t **inmbs, int *inlen,
                ko_mchar_t **outmbs, int *outlen, int *sub) {
    call_cursor c(inmbs, inlen, outmbs, outlen, sub);
    return alg_convert(cv, st, &c);
}

int alg_miconv(iconv_rec *cv, const ko_mchar_t **inmbs, int *inlen, ko_mchar_t **outmbs,
               int *outlen, int *sub) {
    conv_state st = whole_text();
    return alg_smiconv(cv, &st, inmbs, inlen, outmbs, outlen, sub);
}

int mb_smiconv(iconv_rec *cv, conv_state *st, const ko_mchar_t **inmbs, int *inlen,
               ko_mchar_t **outmbs, int *outlen, int *sub) {
    if (!stateful(cv)) return cv->miconv_fp(cv, inmbs, inlen, outmbs, outlen, sub);
    call_cursor c(inmbs, inlen, outmbs, outlen, sub);
    start_states(cv, st);
    return result_of(cv, mb_convert(cv, st, &c));
}

// ---- The calls of a host

int ko_miconv(ko_cv_t cd, const ko_mchar_t **inmbs, int *inlen, ko_mchar_t **outmbs, int *outlen,
              int *sub) {
    iconv_rec *cv = descriptor(cd);
    if (!usable(cv, inmbs, outlen, sub)) return -1;
    if (!outmbs || !*outmbs) return fail(&cv->exports.exp, KO_ENULL, -1);
    return cv->miconv_fp(cv, inmbs, inlen, outmbs, outlen, sub);
}

static int count_own(iconv_rec *cv, conv_state *st, cursor *c) {
    const size_t room = c->room > 0 ? size_t(c->room) : 0;
    cv_span s = {c->in, c->endless ? text_end(cv, c->in) : c->in + c->left, nullptr, room, false};
    const int error = measure_own(cv, st, &s);
    if (!c->endless) c->left = int(s.end - s.in);
    c->in = s.in;
    c->room -= int(room - s.room);
    c->sub = s.sub;
    return error ? failed(cv, error) : 0;
}

// Computes lengths; a text without a state is counted by the stateless rules.
static int measure(iconv_rec *cv, conv_state *st, const ko_mchar_t **inmbs, int *inlen, int *outlen,
                   int *sub) {
    call_cursor c(inmbs, inlen, nullptr, outlen, sub);
    conv_state whole = whole_text();
    if (cv->own) return count_own(cv, st ? st : &whole, &c);
    if (cv->mtom_fn) return alg_convert(cv, st ? st : &whole, &c);
    if (!st || !stateful(cv)) return result_of(cv, mb_convert(cv, nullptr, &c));
    start_states(cv, st);
    if (cv->smiconv_fp == db_smiconv) return db_convert(cv, st, &c);
    return result_of(cv, mb_convert(cv, st, &c));
}

// Handles calls that compute lengths, have shifts or use a registered converter.
static int mconv_special(iconv_rec *cv, conv_state *st, const ko_mchar_t **inmbs, int *inlen,
                         ko_mchar_t **outmbs, int *outlen, int *sub) {
    if (!outmbs) return measure(cv, st, inmbs, inlen, outlen, sub);
    conv_state whole = whole_text();
    if (!st && (stateful(cv) || cv->mtom_fn)) st = &whole;
    if (!*outmbs) return fail(&cv->exports.exp, KO_ENULL, -1);
    return cv->smiconv_fp(cv, st, inmbs, inlen, outmbs, outlen, sub);
}

int ko_cv_mconv(ko_cv_t cd, conv_state *st, const ko_mchar_t **inmbs, int *inlen,
                ko_mchar_t **outmbs, int *outlen, int *sub) {
    iconv_rec *cv = descriptor(cd);
    if (!usable(cv, inmbs, outlen, sub)) return -1;
    if (cv->own && st && outmbs && *outmbs)
        return cv->smiconv_fp(cv, st, inmbs, inlen, outmbs, outlen, sub);
    if (!outmbs || !*outmbs || cv->mtom_fn)
        return mconv_special(cv, st, inmbs, inlen, outmbs, outlen, sub);
    // The stateful routine would do the same.
    if (!stateful(cv)) return cv->miconv_fp(cv, inmbs, inlen, outmbs, outlen, sub);
    if (!st) return mconv_special(cv, st, inmbs, inlen, outmbs, outlen, sub);
    return cv->smiconv_fp(cv, st, inmbs, inlen, outmbs, outlen, sub);
}

int ko_mconvlen(ko_cv_t cd, conv_state *st, const ko_mchar_t **inmbs, int *inlen, int *outlen,
                int *sub) {
    iconv_rec *cv = descriptor(cd);
    if (!usable(cv, inmbs, outlen, sub)) return -1;
    return measure(cv, st, inmbs, inlen, outlen, sub);
}
