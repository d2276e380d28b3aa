/* The type kova_text: a text that carries the locale of its order, because operators see neither
 * the declaration of a column nor the options of an index. A column's locale is its type modifier,
 * kova_text('de_DE'), which every value gets when it is stored. A value without a locale, such as a
 * literal beside a column, takes that of the value it is compared with. */
#include "kova_pg.h"

#include <catalog/pg_type.h>
#include <common/hashfn.h>
#include <lib/hyperloglog.h>
#include <libpq/pqformat.h>
#include <nodes/makefuncs.h>
#include <nodes/nodeFuncs.h>
#include <nodes/supportnodes.h>
#include <port/pg_bswap.h>
#include <utils/array.h>
#include <utils/builtins.h>
#include <utils/sortsupport.h>
#include <utils/typcache.h>

#include <string.h>

/* ---- Locales as numbers ---- */

/* A type modifier is a number of 31 bits. That of a locale holds two letters of a language, two of
 * a territory and the modifier's place: none, one letter, two letters, or one of these. The numbers
 * are stored, so that this list grows at its end alone. */
static const char *const long_modifiers[] = {"abeg", "cyrl", "deva", "euro", "hebr", "iqte",
                                             "islm", "latn", "saah", "thai", "vale"};
enum { letters = 26, short_modifiers = 1 + letters + letters * letters, modifiers = 4699 };

/* The number of a letter in either case; 26 for another character. */
static int letter(char c) {
    const int small = (unsigned char)c | 0x20;
    return small >= 'a' && small <= 'z' ? small - 'a' : letters;
}

static int modifier_number(const char *name) {
    const size_t n = strlen(name);
    for (size_t i = 0; i < lengthof(long_modifiers); i++)
        if (!pg_strcasecmp(name, long_modifiers[i])) return short_modifiers + (int)i;
    for (size_t i = 0; i < n; i++)
        if (letter(name[i]) == letters) return -1;
    if (n == 1) return 1 + letter(name[0]);
    if (n == 2) return 1 + letters + letter(name[0]) * letters + letter(name[1]);
    return -1;
}

/* 0 for a name that has no number. */
static int32 locale_number(const char *name) {
    static const char shape[] = "ll_ll";
    int32 number = 0;
    int modifier = 0;
    for (int i = 0; i < 5; i++) {
        if (shape[i] == '_' ? name[i] != '_' : letter(name[i]) == letters) return 0;
        if (shape[i] != '_') number = number * letters + letter(name[i]);
    }
    if (name[5] == '@')
        modifier = modifier_number(name + 6);
    else if (name[5])
        return 0;
    return modifier < 0 ? 0 : number * modifiers + modifier + 1;
}

char *kova_typmod_name(int32 number) {
    const int modifier = (number - 1) % modifiers, pair = (number - 1) / modifiers;
    const int two = modifier - 1 - letters, row = modifier - short_modifiers;
    const char end[] = {two < 0 ? (char)('a' + modifier - 1) : (char)('a' + two / letters),
                        two < 0 ? (char)0 : (char)('a' + two % letters), 0};
    /* A value's number comes from a file, and may be any. */
    if (number < 1 || pair >= letters * letters * letters * letters ||
        row >= (int)lengthof(long_modifiers))
        ereport(ERROR, (errcode(ERRCODE_DATA_CORRUPTED),
                        errmsg("a kova_text has the unknown locale %d", number)));
    return psprintf("%c%c_%c%c%s%s", 'a' + pair / (letters * letters * letters),
                    'a' + pair / (letters * letters) % letters, 'A' + pair / letters % letters,
                    'A' + pair % letters, modifier ? "@" : "",
                    modifier == 0 ? ""
                    : row >= 0    ? long_modifiers[row]
                                  : end);
}

static ko_lc_t locale_of(int32 number) {
    static uint64 root_changes;
    static int32 last;
    static ko_lc_t loc;
    const char *name;
    if (last == number && root_changes == kova_root_changes) return loc;
    last = 0; /* what follows can fail */
    name = kova_typmod_name(number);
    loc = kova_hold_locale(name, strlen(name));
    root_changes = kova_root_changes;
    last = number;
    return loc;
}

/* ---- Values ---- */

/* A value is the number of its locale, 0 for none, and the text. */
typedef struct value {
    int32 locale;
    const char *text;
    size_t length;
} value;

static value value_of(const struct varlena *datum) {
    value v;
    if (VARSIZE_ANY_EXHDR(datum) < sizeof v.locale)
        ereport(ERROR, (errcode(ERRCODE_DATA_CORRUPTED), errmsg("a kova_text is too short")));
    memcpy(&v.locale, VARDATA_ANY(datum), sizeof v.locale);
    v.text = VARDATA_ANY(datum) + sizeof v.locale;
    v.length = VARSIZE_ANY_EXHDR(datum) - sizeof v.locale;
    return v;
}
#define GETARG_VALUE(n) value_of(PG_GETARG_VARLENA_PP(n))

static struct varlena *make_value(int32 typmod, const char *text, size_t length) {
    const int32 locale = Max(typmod, 0);
    struct varlena *made = palloc(VARHDRSZ + sizeof locale + length);
    SET_VARSIZE(made, VARHDRSZ + sizeof locale + length);
    memcpy(VARDATA(made), &locale, sizeof locale);
    memcpy(VARDATA(made) + sizeof locale, text, length);
    return made;
}

PG_FUNCTION_INFO_V1(kova_text_in);
Datum kova_text_in(PG_FUNCTION_ARGS) {
    const char *text = PG_GETARG_CSTRING(0);
    PG_RETURN_POINTER(make_value(PG_GETARG_INT32(2), text, strlen(text)));
}

PG_FUNCTION_INFO_V1(kova_text_out);
Datum kova_text_out(PG_FUNCTION_ARGS) {
    const value v = GETARG_VALUE(0);
    PG_RETURN_CSTRING(pnstrdup(v.text, v.length));
}

PG_FUNCTION_INFO_V1(kova_text_recv);
Datum kova_text_recv(PG_FUNCTION_ARGS) {
    StringInfo message = (StringInfo)PG_GETARG_POINTER(0);
    int length;
    const char *text = pq_getmsgtext(message, message->len - message->cursor, &length);
    PG_RETURN_POINTER(make_value(PG_GETARG_INT32(2), text, (size_t)length));
}

PG_FUNCTION_INFO_V1(kova_text_send);
Datum kova_text_send(PG_FUNCTION_ARGS) {
    const value v = GETARG_VALUE(0);
    StringInfoData message;
    pq_begintypsend(&message);
    pq_sendtext(&message, v.text, (int)v.length);
    PG_RETURN_BYTEA_P(pq_endtypsend(&message));
}

PG_FUNCTION_INFO_V1(kova_text_typmod_in);
Datum kova_text_typmod_in(PG_FUNCTION_ARGS) {
    Datum *names;
    int count;
    int32 number;
    const char *name;
    deconstruct_array(PG_GETARG_ARRAYTYPE_P(0), CSTRINGOID, -2, false, TYPALIGN_CHAR, &names, NULL,
                      &count);
    name = count == 1 ? DatumGetCString(names[0]) : "";
    number = locale_number(name);
    if (!number)
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                 errmsg("a kova_text takes one locale of the form ll_TT or ll_TT@modifier"),
                 errhint("Locales of other code sets and of stated releases serve kova_key.")));
    locale_of(number);
    PG_RETURN_INT32(number);
}

PG_FUNCTION_INFO_V1(kova_text_typmod_out);
Datum kova_text_typmod_out(PG_FUNCTION_ARGS) {
    PG_RETURN_CSTRING(psprintf("('%s')", kova_typmod_name(PG_GETARG_INT32(0))));
}

/* Casts: text and kova_text to a column's kova_text, kova_text to text. */

PG_FUNCTION_INFO_V1(kova_text_from_text);
Datum kova_text_from_text(PG_FUNCTION_ARGS) {
    const text *t = PG_GETARG_TEXT_PP(0);
    PG_RETURN_POINTER(make_value(PG_GETARG_INT32(1), VARDATA_ANY(t), VARSIZE_ANY_EXHDR(t)));
}

PG_FUNCTION_INFO_V1(kova_text_set_locale);
Datum kova_text_set_locale(PG_FUNCTION_ARGS) {
    struct varlena *datum = PG_GETARG_VARLENA_PP(0);
    const value v = value_of(datum);
    const int32 typmod = PG_GETARG_INT32(1);
    if (typmod < 0 || typmod == v.locale) PG_RETURN_POINTER(datum);
    PG_RETURN_POINTER(make_value(typmod, v.text, v.length));
}

PG_FUNCTION_INFO_V1(kova_text_to_text);
Datum kova_text_to_text(PG_FUNCTION_ARGS) {
    const value v = GETARG_VALUE(0);
    PG_RETURN_TEXT_P(cstring_to_text_with_len(v.text, (int)v.length));
}

PG_FUNCTION_INFO_V1(kova_text_locale);
Datum kova_text_locale(PG_FUNCTION_ARGS) {
    const value v = GETARG_VALUE(0);
    if (!v.locale) PG_RETURN_NULL();
    PG_RETURN_TEXT_P(cstring_to_text(kova_typmod_name(v.locale)));
}

/* ---- Comparison ---- */

static void fail_without_locale(void) pg_attribute_noreturn();
static void fail_without_locale(void) {
    ereport(ERROR, (errcode(ERRCODE_INDETERMINATE_COLLATION),
                    errmsg("a kova_text without a locale has no order"),
                    errhint("Declare the column, or write the value, as kova_text('de_DE').")));
}

static void fail_by_two_locales(int32 a, int32 b) pg_attribute_noreturn();
static void fail_by_two_locales(int32 a, int32 b) {
    ereport(ERROR, (errcode(ERRCODE_COLLATION_MISMATCH),
                    errmsg("kova_text values have the locales \"%s\" and \"%s\"",
                           kova_typmod_name(a), kova_typmod_name(b)),
                    errhint("Cast one of them to the other's type.")));
}

static ko_lc_t own_locale(const value *v) {
    if (!v->locale) fail_without_locale();
    return locale_of(v->locale);
}

static int compare(const value *a, const value *b) {
    if (a->locale && b->locale && a->locale != b->locale) fail_by_two_locales(a->locale, b->locale);
    return kova_order(own_locale(a->locale ? a : b), a->text, a->length, b->text, b->length);
}

// NOLINTBEGIN(bugprone-macro-parentheses): one argument is an operator
#define COMPARISON(name, test)                                                                     \
    PG_FUNCTION_INFO_V1(kova_text_##name);                                                         \
    Datum kova_text_##name(PG_FUNCTION_ARGS) {                                                     \
        const value a = GETARG_VALUE(0), b = GETARG_VALUE(1);                                      \
        PG_RETURN_BOOL(compare(&a, &b) test 0);                                                    \
    }
// NOLINTEND(bugprone-macro-parentheses)
COMPARISON(lt, <)
COMPARISON(le, <=)
COMPARISON(eq, ==)
COMPARISON(ne, !=)
COMPARISON(ge, >=)
COMPARISON(gt, >)

PG_FUNCTION_INFO_V1(kova_text_cmp);
Datum kova_text_cmp(PG_FUNCTION_ARGS) {
    const value a = GETARG_VALUE(0), b = GETARG_VALUE(1);
    PG_RETURN_INT32(compare(&a, &b));
}

PG_FUNCTION_INFO_V1(kova_text_smaller);
Datum kova_text_smaller(PG_FUNCTION_ARGS) {
    const value a = GETARG_VALUE(0), b = GETARG_VALUE(1);
    PG_RETURN_DATUM(PG_GETARG_DATUM(compare(&a, &b) <= 0 ? 0 : 1));
}

PG_FUNCTION_INFO_V1(kova_text_larger);
Datum kova_text_larger(PG_FUNCTION_ARGS) {
    const value a = GETARG_VALUE(0), b = GETARG_VALUE(1);
    PG_RETURN_DATUM(PG_GETARG_DATUM(compare(&a, &b) >= 0 ? 0 : 1));
}

/* A value alone cannot take another's locale. */
static bytea *own_key(const value *v) { return kova_make_key(own_locale(v), v->text, v->length); }

PG_FUNCTION_INFO_V1(kova_text_key);
Datum kova_text_key(PG_FUNCTION_ARGS) {
    const value v = GETARG_VALUE(0);
    PG_RETURN_BYTEA_P(own_key(&v));
}

/* Texts that a locale holds equal have the same key. */
static Datum hash(const value *v, uint64 seed, bool extended) {
    bytea *key = own_key(v);
    const unsigned char *bytes = (unsigned char *)VARDATA(key);
    const int length = (int)(VARSIZE(key) - VARHDRSZ);
    const Datum result =
        extended ? hash_any_extended(bytes, length, seed) : hash_any(bytes, length);
    pfree(key);
    return result;
}

/* The values of a list, which the executor hashes, take the locale of what is looked up in it. */
static value hashed_value(FunctionCallInfo fcinfo) {
    value v = GETARG_VALUE(0);
    const Node *call = fcinfo->flinfo->fn_expr;
    if (!v.locale && call && IsA(call, ScalarArrayOpExpr))
        v.locale = Max(exprTypmod(linitial(((const ScalarArrayOpExpr *)call)->args)), 0);
    return v;
}

PG_FUNCTION_INFO_V1(kova_text_hash);
Datum kova_text_hash(PG_FUNCTION_ARGS) {
    const value v = hashed_value(fcinfo);
    return hash(&v, 0, false);
}

PG_FUNCTION_INFO_V1(kova_text_hash_extended);
Datum kova_text_hash_extended(PG_FUNCTION_ARGS) {
    const value v = hashed_value(fcinfo);
    return hash(&v, (uint64)PG_GETARG_INT64(1), true);
}

/* ---- Planning ---- */

/* Gives a literal the locale of the column beside it. NULL: there is nothing to give. */
static Node *with_locale(Node *literal, const Node *column) {
    Const *made = (Const *)literal;
    const int32 typmod = exprTypmod(column);
    value v;
    if (!IsA(literal, Const) || made->constisnull || typmod < 0) return NULL;
    v = value_of(PG_DETOAST_DATUM_PACKED(made->constvalue));
    if (v.locale) return NULL;
    made = copyObject(made);
    made->constvalue = PointerGetDatum(make_value(typmod, v.text, v.length));
    made->consttypmod = typmod;
    return (Node *)made;
}

/* For the operator "=": an index of hashes finds nothing by a value without a locale. */
PG_FUNCTION_INFO_V1(kova_text_eq_support);
Datum kova_text_eq_support(PG_FUNCTION_ARGS) {
    const SupportRequestSimplify *request = (const SupportRequestSimplify *)PG_GETARG_POINTER(0);
    Node *left, *right, *given;
    Oid equal;
    if (!IsA(request, SupportRequestSimplify) || list_length(request->fcall->args) != 2)
        PG_RETURN_POINTER(NULL);
    left = linitial(request->fcall->args);
    right = lsecond(request->fcall->args);
    if ((given = with_locale(right, left)))
        right = given;
    else if ((given = with_locale(left, right)))
        left = given;
    else
        PG_RETURN_POINTER(NULL);
    equal = lookup_type_cache(exprType(given), TYPECACHE_EQ_OPR)->eq_opr;
    given = (Node *)make_opclause(equal, BOOLOID, false, (Expr *)left, (Expr *)right, InvalidOid,
                                  InvalidOid);
    ((OpExpr *)given)->opfuncid = request->fcall->funcid;
    PG_RETURN_POINTER(given);
}

/* ---- Sorting ---- */

/* Sorts compare the first bytes of keys as one number, and texts where these are equal. */
typedef struct sorting {
    hyperLogLogState distinct; /* estimates how many of the numbers differ */
} sorting;

/* A sort calls these millions of times in one memory context: copies of stored values are freed. */
static struct varlena *take(Datum datum) { return PG_DETOAST_DATUM_PACKED(datum); }
static void give(struct varlena *taken, Datum datum) {
    if (taken != (struct varlena *)DatumGetPointer(datum)) pfree(taken);
}

static int compare_texts(Datum x, Datum y, SortSupport ssup) {
    struct varlena *a = take(x), *b = take(y);
    const value one = value_of(a), other = value_of(b);
    const int order = compare(&one, &other);
    (void)ssup;
    give(a, x);
    give(b, y);
    return order;
}

/* A key that ends early is filled with zero bytes: it is then equal to some keys that it comes
 * before, and never more than one that it comes before. */
static Datum abbreviate(Datum original, SortSupport ssup) {
    sorting *s = ssup->ssup_extra;
    struct varlena *taken = take(original);
    const value v = value_of(taken);
    Datum start = 0;
    const int64_t size = ko_utf8sxfrm(own_locale(&v), &start, sizeof start, v.text, v.length);
    if (size < 0) kova_fail((int)-size, "a key");
    give(taken, original);
    addHyperLogLog(&s->distinct, DatumGetUInt32(hash_any((unsigned char *)&start, sizeof start)));
    return DatumBigEndianToNative(start);
}

/* Where few of the numbers differ, as in texts with long equal beginnings, they are work for
 * nothing. */
static bool abbreviation_fails(int count, SortSupport ssup) {
    sorting *s = ssup->ssup_extra;
    return count >= 10000 && estimateHyperLogLog(&s->distinct) < count / 50.0;
}

PG_FUNCTION_INFO_V1(kova_text_sortsupport);
Datum kova_text_sortsupport(PG_FUNCTION_ARGS) {
    SortSupport ssup = (SortSupport)PG_GETARG_POINTER(0);
    ssup->comparator = compare_texts;
    if (ssup->abbreviate) {
        sorting *s = MemoryContextAllocZero(ssup->ssup_cxt, sizeof *s);
        MemoryContext old = MemoryContextSwitchTo(ssup->ssup_cxt);
        initHyperLogLog(&s->distinct, 10);
        MemoryContextSwitchTo(old);
        ssup->ssup_extra = s;
        ssup->comparator = ssup_datum_unsigned_cmp;
        ssup->abbrev_converter = abbreviate;
        ssup->abbrev_abort = abbreviation_fails;
        ssup->abbrev_full_comparator = compare_texts;
    }
    PG_RETURN_VOID();
}
