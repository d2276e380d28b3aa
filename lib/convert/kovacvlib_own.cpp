// Conversions that follow rules of their own in place of a table: the routines behind a
// descriptor's pointers, and what those rules share.
#include "convert/kovacvlib.h"
#include "record/kovasetlc.h"

#include <limits.h>
#include <string.h>

// ---- The routines of a descriptor ----

const ko_mchar_t *text_end(const iconv_rec *cv, const ko_mchar_t *text) {
    constexpr size_t longest = 0x7FFFFFFC;
    static constexpr ko_mchar_t zeros[4] = {};
    while (!cv->forms[0] && cv->legs[0])
        cv = cv->legs[0];
    if (!cv->forms[0]) return nullptr;
    const size_t unit = size_t(cv->source_noshift_min_len);
    size_t at = 0;
    while (at < longest && memcmp(text + at, zeros, unit) != 0)
        at += unit;
    return text + at + unit;
}

int own_smiconv(iconv_rec *cv, conv_state *st, const ko_mchar_t **inmbs, int *inlen,
                ko_mchar_t **outmbs, int *outlen, int *sub) {
    const size_t left = inlen && *inlen > 0 ? size_t(*inlen) : 0;
    const size_t room = *outlen > 0 ? size_t(*outlen) : 0;
    cv_span s = {*inmbs, inlen ? *inmbs + left : text_end(cv, *inmbs), *outmbs, room, false};
    const int error = cv->own(cv, st, &s);
    if (inlen) *inlen = int(s.end - s.in);
    *inmbs = s.in;
    *outmbs = s.out;
    *outlen -= int(room - s.room);
    *sub = s.sub;
    return error ? fail(&cv->exports.exp, error, -1) : 0;
}

static int own_miconv(iconv_rec *cv, const ko_mchar_t **inmbs, int *inlen, ko_mchar_t **outmbs,
                      int *outlen, int *sub) {
    conv_state whole = {.first_frag = 1, .last_frag = 1};
    return own_smiconv(cv, &whole, inmbs, inlen, outmbs, outlen, sub);
}

// Marks the descriptor as one without a table; the routines above never call it.
static int no_converter(const ko_mchar_t *, unsigned, conv_state *, conv_res *res) {
    res->flags = KO_CV_ERROR;
    return -1;
}

void set_own_rules(iconv_rec *cv, cv_rules rules) {
    cv->own = rules;
    cv->mtom_fn = no_converter;
    cv->miconv_fp = own_miconv;
    cv->smiconv_fp = own_smiconv;
    cv->needs_error_checking = 1;
}

void take_ends(iconv_rec *cv, const iconv_rec *one, const iconv_rec *last) {
    cv->source_noshift_min_len = one->source_noshift_min_len;
    cv->source_noshift_max_len = one->source_noshift_max_len;
    cv->source_shift_min_len = one->source_shift_min_len;
    cv->source_shift_max_len = one->source_shift_max_len;
    cv->source_is_stateful = one->source_is_stateful;
    cv->target_is_stateful = last->target_is_stateful;
    cv->target_so_len = last->target_so_len;
    memcpy(cv->target_so, last->target_so, sizeof cv->target_so);
    cv->target_min_len = last->target_min_len;
    cv->target_max_len = last->target_max_len;
}

// ---- Other descriptors ----

int convert_span(const iconv_rec *cv, conv_state *st, cv_span *s) {
    if (cv->own) return cv->own(cv, st, s);
    iconv_rec copy = *cv; // its error word belongs to this call, and failures to one that succeeds
    copy.quiet = true;
    copy.exports.exp.ko_lerrno = KO_OK;
    const size_t most = s->room < INT_MAX ? s->room : INT_MAX;
    int left = s->end ? int(s->end - s->in) : 0, room = int(most), sub = 0;
    const int result =
        copy.smiconv_fp(&copy, st, &s->in, s->end ? &left : nullptr, &s->out, &room, &sub);
    s->room -= most - size_t(room);
    s->sub |= sub != 0;
    if (result == 0) return KO_OK;
    const int error = copy.exports.exp.ko_lerrno;
    return error ? error : int{KO_EILSEQ};
}

int measure_own(const iconv_rec *cv, conv_state *st, cv_span *s) {
    ko_mchar_t scratch[1024];
    conv_state now = *st;
    int error;
    bool more;
    do {
        cv_span piece = *s;
        piece.out = scratch;
        piece.room = s->room < sizeof scratch ? s->room : sizeof scratch;
        error = cv->own(cv, &now, &piece);
        more = error == KO_E2BIG && s->room > sizeof scratch;
        s->room -= size_t(piece.out - scratch);
        s->in = piece.in;
        s->sub |= piece.sub;
        now.first_frag = 0;
    } while (more);
    now.first_frag = st->first_frag;
    *st = now;
    return error;
}
