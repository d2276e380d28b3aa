/* Functions on texts: keys, comparison, case, conversion. */
#include "kova_pg.h"

#include <lib/stringinfo.h>
#include <mb/pg_wchar.h>
#include <miscadmin.h>
#include <utils/builtins.h>
#include <utils/memutils.h>

/* ---- Order ---- */

bytea *kova_make_key(ko_lc_t loc, const char *text, size_t length) {
    Size room = Min(4 * length + 24, MaxAllocSize - VARHDRSZ);
    bytea *key = palloc(VARHDRSZ + room);
    int64_t size;
    CHECK_FOR_INTERRUPTS();
    size = ko_utf8sxfrm(loc, VARDATA(key), room, text, length);
    if (size < 0) kova_fail((int)-size, "a key");
    if (size > (int64_t)(MaxAllocSize - VARHDRSZ))
        kova_fail(KO_E2BIG, "a key of %lld bytes", (long long)size);
    if (size > (int64_t)room) {
        key = repalloc(key, VARHDRSZ + (Size)size);
        size = ko_utf8sxfrm(loc, VARDATA(key), (size_t)size, text, length);
        if (size < 0) kova_fail((int)-size, "a key");
    }
    SET_VARSIZE(key, VARHDRSZ + (Size)size);
    return key;
}

int kova_order(ko_lc_t loc, const char *a, size_t alen, const char *b, size_t blen) {
    const int order = ko_utf8scoll(loc, a, alen, b, blen), error = KO_SCOLL_ERROR(order);
    /* Characters that a code set lacks have a place in the order; other errors mean none. */
    if (error && error != KO_ENOCHAR) kova_fail(error, "a comparison");
    return (order > 0) - (order < 0);
}

PG_FUNCTION_INFO_V1(kova_key);
Datum kova_key(PG_FUNCTION_ARGS) {
    text *t = PG_GETARG_TEXT_PP(0);
    ko_lc_t loc = kova_locale_arg(fcinfo, 1);
    PG_RETURN_BYTEA_P(kova_make_key(loc, VARDATA_ANY(t), VARSIZE_ANY_EXHDR(t)));
}

PG_FUNCTION_INFO_V1(kova_compare);
Datum kova_compare(PG_FUNCTION_ARGS) {
    text *a = PG_GETARG_TEXT_PP(0), *b = PG_GETARG_TEXT_PP(1);
    ko_lc_t loc = kova_locale_arg(fcinfo, 2);
    CHECK_FOR_INTERRUPTS();
    PG_RETURN_INT32(kova_order(loc, VARDATA_ANY(a), VARSIZE_ANY_EXHDR(a), VARDATA_ANY(b),
                               VARSIZE_ANY_EXHDR(b)));
}

/* ---- Case ---- */

/* Between two pieces a query can be cancelled. */
enum { piece_max = 1 << 16 };

typedef int64_t (*map_fn)(ko_lc_t loc, char *dst, size_t room, const char *text, size_t len);

/* Characters are mapped one by one, so that pieces give the same as the whole. */
static Datum map_case(FunctionCallInfo fcinfo, map_fn map) {
    text *t = PG_GETARG_TEXT_PP(0);
    ko_lc_t loc = kova_locale_arg(fcinfo, 1);
    const char *at = VARDATA_ANY(t);
    int left = (int)VARSIZE_ANY_EXHDR(t);
    StringInfoData out;
    initStringInfo(&out);
    while (left > 0) {
        const int piece = left > piece_max ? pg_mbcliplen(at, left, piece_max) : left;
        int64_t size;
        CHECK_FOR_INTERRUPTS();
        enlargeStringInfo(&out, piece);
        size = map(loc, out.data + out.len, (size_t)(out.maxlen - out.len), at, (size_t)piece);
        if (size >= out.maxlen - out.len) { /* a terminator has to fit, too */
            enlargeStringInfo(&out, (int)size);
            size = map(loc, out.data + out.len, (size_t)size, at, (size_t)piece);
        }
        if (size < 0) kova_fail((int)-size, "a change of case");
        out.len += (int)size;
        at += piece;
        left -= piece;
    }
    PG_RETURN_TEXT_P(cstring_to_text_with_len(out.data, out.len));
}

PG_FUNCTION_INFO_V1(kova_upper);
Datum kova_upper(PG_FUNCTION_ARGS) { return map_case(fcinfo, ko_utf8supper); }

PG_FUNCTION_INFO_V1(kova_lower);
Datum kova_lower(PG_FUNCTION_ARGS) { return map_case(fcinfo, ko_utf8slower); }

/* ---- Conversion ---- */

static void fail_at(ko_cv_t cd, const char *from, const char *to, size_t at) {
    const int error = *ko_ext_errno(cd);
    if (error != KO_EILSEQ && error != KO_EINVAL)
        kova_fail(error, "conversion from \"%s\" to \"%s\"", from, to);
    ereport(ERROR,
            (errcode(ERRCODE_CHARACTER_NOT_IN_REPERTOIRE),
             errmsg("conversion from \"%s\" to \"%s\": byte %zu begins %s", from, to, at + 1,
                    error == KO_EINVAL ? "a character that is cut off"
                                       : "no character, or one that is not in both code sets")));
}

/* What is left of a text, and the state between its pieces. */
typedef struct conversion {
    ko_cv_t cd;
    conv_state state;
    const ko_mchar_t *in;
    int left, substituted;
} conversion;

/* Converts one piece; the text's last one has what ends a text. False on an error at c->in. */
static bool convert_piece(conversion *c, StringInfo out, int piece) {
    const int before = piece;
    const bool last = piece == c->left;
    int room, failed;
    ko_mchar_t *to;
    enlargeStringInfo(out, ko_cv_outbuflen(c->cd, piece));
    room = out->maxlen - out->len - 1;
    to = (ko_mchar_t *)out->data + out->len;
    c->state.last_frag = last;
    *ko_ext_errno(c->cd) = 0;
    failed = ko_cv_mconv(c->cd, &c->state, &c->in, &piece, &to, &room, &c->substituted);
    out->len = (int)((char *)to - out->data);
    c->left -= before - piece;
    c->state.first_frag = 0;
    /* A character that the end of the piece cuts is the beginning of the next piece. */
    return !failed || (*ko_ext_errno(c->cd) == KO_EINVAL && !last && piece < before);
}

PG_FUNCTION_INFO_V1(kova_convert);
Datum kova_convert(PG_FUNCTION_ARGS) {
    bytea *bytes = PG_GETARG_BYTEA_PP(0), *result;
    const char *from = text_to_cstring(PG_GETARG_TEXT_PP(1));
    const char *to = text_to_cstring(PG_GETARG_TEXT_PP(2));
    const ko_mchar_t *start = (const ko_mchar_t *)VARDATA_ANY(bytes);
    conversion c = {.cd = kova_hold_conversion(from, to),
                    .state = {.first_frag = 1},
                    .in = start,
                    .left = (int)VARSIZE_ANY_EXHDR(bytes)};
    StringInfoData out;
    initStringInfo(&out);
    while (c.left > 0) {
        CHECK_FOR_INTERRUPTS();
        if (!convert_piece(&c, &out, Min(c.left, piece_max)))
            fail_at(c.cd, from, to, (size_t)(c.in - start));
    }
    if (c.substituted)
        ereport(ERROR, (errcode(ERRCODE_UNTRANSLATABLE_CHARACTER),
                        errmsg("conversion from \"%s\" to \"%s\": the text has a character that "
                               "\"%s\" lacks",
                               from, to, to)));
    result = palloc(VARHDRSZ + (Size)out.len);
    SET_VARSIZE(result, VARHDRSZ + (Size)out.len);
    memcpy(VARDATA(result), out.data, (Size)out.len);
    PG_RETURN_BYTEA_P(result);
}
