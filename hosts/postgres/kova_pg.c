/* The extension's entry: hooks, settings, and the locales and conversions that a backend holds. */
#include "kova_pg.h"

#include <mb/pg_wchar.h>
#include <miscadmin.h>
#include <storage/fd.h>
#include <utils/builtins.h>
#include <utils/guc.h>
#include <utils/memutils.h>

#include <string.h>

PG_MODULE_MAGIC;

void _PG_init(void);

static char *root; /* the setting kova.root */
uint64 kova_root_changes = 1;

/* Everything that the library allocates; its size stands in pg_backend_memory_contexts. */
static MemoryContext kova_memory;

/* ---- Hooks ---- */

#ifdef KOVA_FAILING_MEMORY
/* For tests: counts down to the allocation that fails. */
static int failing;
static char left[12];

static const char *failing_left(void) {
    snprintf(left, sizeof left, "%d", failing);
    return left;
}
#endif

static void *allocate(size_t size) {
    if (size > MaxAllocHugeSize / 2) return NULL;
#ifdef KOVA_FAILING_MEMORY
    if (failing && --failing == 0) return NULL;
#endif
    return MemoryContextAllocExtended(kova_memory, size, MCXT_ALLOC_NO_OOM | MCXT_ALLOC_HUGE);
}

static void give_back(void *block) {
    if (block) pfree(block);
}

/* The server's environment has no say in orders that indexes depend on. */
static char *no_variable(const char *name) {
    (void)name;
    return NULL;
}

static void set_hook(int code, ko_extfn_t hook) {
    if (ko_setextfunc(NULL, code, hook)) elog(ERROR, "kova: the library refuses hook %d", code);
}

static void root_assigned(const char *value, void *extra) {
    (void)value;
    (void)extra;
    kova_root_changes++;
}

void _PG_init(void) {
    kova_memory = AllocSetContextCreate(TopMemoryContext, "kova", ALLOCSET_DEFAULT_SIZES);
    set_hook(KO_EXT_MALLOC, (ko_extfn_t)allocate);
    set_hook(KO_EXT_FREE, (ko_extfn_t)give_back);
    set_hook(KO_EXT_GETENV, (ko_extfn_t)no_variable);
    ko_secure_names(1);
    DefineCustomStringVariable(
        "kova.root", "The folder of Kova's data: that which contains \"kova\".",
        "Releases of the data named in locales, such as 2026.1/de_DE, are folders in it. Empty: "
        "where the library was installed to look.",
        &root, "", PGC_SUSET, 0, NULL, root_assigned, NULL);
#ifdef KOVA_FAILING_MEMORY
    DefineCustomIntVariable("kova.failing", "The allocation from now on that fails, 0 for none.",
                            NULL, &failing, 0, 0, PG_INT32_MAX, PGC_SUSET, 0, NULL, NULL,
                            failing_left);
#endif
    MarkGUCPrefixReserved("kova");
}

/* ---- Errors ---- */

static const struct {
    int error, sqlstate;
} states[] = {
    {KO_EILSEQ,     ERRCODE_CHARACTER_NOT_IN_REPERTOIRE},
    {KO_EINVAL,     ERRCODE_CHARACTER_NOT_IN_REPERTOIRE},
    {KO_ENOCHAR,    ERRCODE_UNTRANSLATABLE_CHARACTER   },
    {KO_ENOMEM,     ERRCODE_OUT_OF_MEMORY              },
    {KO_EFILE,      ERRCODE_UNDEFINED_FILE             },
    {KO_EIO,        ERRCODE_IO_ERROR                   },
    {KO_EOBJECT,    ERRCODE_DATA_CORRUPTED             },
    {KO_EVERSION,   ERRCODE_DATA_CORRUPTED             },
    {KO_E2BIG,      ERRCODE_PROGRAM_LIMIT_EXCEEDED     },
    {KO_ENOLOCALE,  ERRCODE_UNDEFINED_OBJECT           },
    {KO_ENOCODESET, ERRCODE_UNDEFINED_OBJECT           },
    {KO_ENOCONV,    ERRCODE_UNDEFINED_OBJECT           },
};

void kova_fail(int error, const char *about, ...) {
    int sqlstate = ERRCODE_INVALID_PARAMETER_VALUE;
    char what[512];
    va_list values;
    va_start(values, about);
    vsnprintf(what, sizeof what, about, values);
    va_end(values);
    for (size_t i = 0; i < lengthof(states); i++)
        if (states[i].error == error) sqlstate = states[i].sqlstate;
    ereport(ERROR, (errcode(sqlstate), errmsg("%s: %s", what, ko_error_text(error))));
}

static void need_utf8(void) {
    if (GetDatabaseEncoding() == PG_UTF8) return;
    ereport(ERROR, (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                    errmsg("kova needs a database with the encoding UTF8; that of this one is %s",
                           GetDatabaseEncodingName())));
}

/* ---- Locales ---- */

typedef struct held_locale {
    ko_lc_t loc;
    struct held_locale *next;
    const char *root; /* the setting when it was opened; it stands after the name */
    size_t length;
    char name[FLEXIBLE_ARRAY_MEMBER];
} held_locale;

static held_locale *locales;

/* 0 if texts are ordered by the locale. An object whose order cannot be used would order them unit
 * by unit, and an index would keep that. */
static int order_error(ko_lc_t loc) {
    char key[16];
    int64_t size;
    const int error = ko_locale_utf8(loc);
    if (error) return error;
    size = ko_utf8sxfrm(loc, key, sizeof key, "a", 1);
    return size < 0 ? (int)-size : KO_SCOLL_ERROR(ko_utf8scoll(loc, "a", 1, "b", 1));
}

/* "de_DE" stands for "de_DE.unicode", and "de_DE@ci" for "de_DE.unicode@ci". */
static char *whole_spec(const char *name) {
    const int language = (int)strcspn(name, "@");
    if (strpbrk(name, ".=\\")) return pstrdup(name);
    return psprintf("%.*s.unicode%s", language, name, name + language);
}

/* Splits "2026.1/de_DE" and makes the folder of the release, NULL for the library's own place. */
static const char *split_release(const char *name, const char **spec) {
    const char *slash = strchr(name, '/');
    *spec = slash ? slash + 1 : name;
    if (!slash) return *root ? root : NULL;
    if (slash == name || name[0] == '.' || strchr(slash + 1, '/') || strchr(name, '\\'))
        kova_fail(KO_ENOLOCALE, "locale \"%s\"", name);
    if (!*root)
        ereport(ERROR, (errcode(ERRCODE_OBJECT_NOT_IN_PREREQUISITE_STATE),
                        errmsg("locale \"%s\" names a release of the data, but kova.root is empty",
                               name)));
    return psprintf("%s/%.*s", root, (int)(slash - name), name);
}

/* The library opens one file at a time. */
static void need_a_file(void) {
    if (AcquireExternalFD()) return;
    ereport(ERROR, (errcode(ERRCODE_INSUFFICIENT_RESOURCES),
                    errmsg("kova: too many files are open to read its data")));
}

static void open_locale(held_locale *made) {
    const char *spec, *place = split_release(made->name, &spec), *whole = whole_spec(spec);
    int error = KO_ENOLOCALE; /* an empty name would let the environment choose */
    if (*spec) {
        need_a_file();
        error = ko_open_locale(&made->loc, place, whole, KO_OPEN_VERIFY | KO_OPEN_SECURE_NAMES);
        ReleaseExternalFD();
    }
    if (!error && (error = order_error(made->loc))) ko_close_locale(made->loc);
    if (error) kova_fail(error, "locale \"%s\"", made->name);
}

/* In one block with the name, so that nothing can fail once the locale is open. */
static held_locale *new_locale(const char *name, size_t length) {
    const size_t room = offsetof(held_locale, name) + length + 1;
    held_locale *made = MemoryContextAllocZero(kova_memory, room + strlen(root) + 1);
    memcpy(made->name, name, length);
    made->length = length;
    made->root = strcpy((char *)made + room, root);
    return made;
}

ko_lc_t kova_hold_locale(const char *name, size_t length) {
    held_locale *made;
    for (held_locale *at = locales; at; at = at->next)
        if (at->length == length && !memcmp(at->name, name, length) && !strcmp(at->root, root))
            return at->loc;
    need_utf8();
    made = new_locale(name, length);
    PG_TRY();
    { open_locale(made); }
    PG_CATCH();
    {
        pfree(made);
        PG_RE_THROW();
    }
    PG_END_TRY();
    made->next = locales;
    locales = made;
    return made->loc;
}

/* What a call site remembers of its last locale. */
typedef struct remembered {
    uint64 root_changes;
    ko_lc_t loc;
    size_t length;
    char name[64];
} remembered;

ko_lc_t kova_locale_arg(FunctionCallInfo fcinfo, int arg) {
    text *name = PG_GETARG_TEXT_PP(arg);
    const size_t length = VARSIZE_ANY_EXHDR(name);
    remembered *last = fcinfo->flinfo->fn_extra;
    if (last && last->root_changes == kova_root_changes && last->length == length &&
        !memcmp(last->name, VARDATA_ANY(name), length))
        return last->loc;
    if (length >= sizeof last->name)
        kova_fail(KO_ENOLOCALE, "locale \"%s\"", text_to_cstring(name));
    if (!last) last = MemoryContextAllocZero(fcinfo->flinfo->fn_mcxt, sizeof *last);
    last->root_changes = 0; /* what follows can fail */
    last->loc = kova_hold_locale(VARDATA_ANY(name), length);
    last->length = length;
    memcpy(last->name, VARDATA_ANY(name), length);
    last->root_changes = kova_root_changes;
    fcinfo->flinfo->fn_extra = last;
    return last->loc;
}

PG_FUNCTION_INFO_V1(kova_version);
Datum kova_version(PG_FUNCTION_ARGS) {
    char version[256];
    const int size = ko_locale_version(kova_locale_arg(fcinfo, 0), version, sizeof version);
    if (size < 0) kova_fail(-size, "the version of the locale");
    if (size >= (int)sizeof version) kova_fail(KO_E2BIG, "the version of the locale");
    PG_RETURN_TEXT_P(cstring_to_text(version));
}

/* ---- Conversions ---- */

typedef struct held_conversion {
    ko_cv_t cd;
    struct held_conversion *next;
    const char *root, *from, *to; /* in names */
    char names[FLEXIBLE_ARRAY_MEMBER];
} held_conversion;

static held_conversion *conversions;

static held_conversion *new_conversion(const char *from, const char *to) {
    const size_t ends[] = {strlen(root) + 1, strlen(root) + strlen(from) + 2};
    held_conversion *made = MemoryContextAllocExtended(
        kova_memory, offsetof(held_conversion, names) + ends[1] + strlen(to) + 1,
        MCXT_ALLOC_NO_OOM | MCXT_ALLOC_ZERO);
    if (!made) return NULL;
    made->root = strcpy(made->names, root);
    made->from = strcpy(made->names + ends[0], from);
    made->to = strcpy(made->names + ends[1], to);
    return made;
}

ko_cv_t kova_hold_conversion(const char *from, const char *to) {
    held_conversion *made;
    int error;
    for (held_conversion *at = conversions; at; at = at->next)
        if (!strcmp(at->from, from) && !strcmp(at->to, to) && !strcmp(at->root, root))
            return at->cd;
    need_a_file();
    made = new_conversion(from, to);
    error = made ? ko_open_conversion(&made->cd, *root ? root : NULL, from, to, KO_OPEN_VERIFY)
                 : KO_ENOMEM;
    ReleaseExternalFD();
    if (error) {
        give_back(made);
        kova_fail(error, "conversion from \"%s\" to \"%s\"", from, to);
    }
    made->next = conversions;
    conversions = made;
    return made->cd;
}
