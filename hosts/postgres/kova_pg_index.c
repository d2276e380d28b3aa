/* On which locales does the order of an index depend? */
#include "kova_pg.h"

#include <access/htup_details.h>
#include <catalog/dependency.h>
#include <catalog/pg_index.h>
#include <catalog/pg_proc.h>
#include <catalog/pg_type.h>
#include <commands/extension.h>
#include <nodes/nodeFuncs.h>
#include <utils/array.h>
#include <utils/builtins.h>
#include <utils/lsyscache.h>
#include <utils/syscache.h>

#include <string.h>

typedef struct locales {
    Oid extension, type; /* kova and kova_text */
    Datum names[65];     /* the last one stays free */
    int count;
    bool unknown; /* a locale that the definition does not name, or too many of them */
} locales;

static void add_name(locales *found, const char *name) {
    for (int i = 0; i < found->count; i++)
        if (!strcmp(TextDatumGetCString(found->names[i]), name)) return;
    if (found->count + 1 == (int)lengthof(found->names))
        found->unknown = true;
    else
        found->names[found->count++] = CStringGetTextDatum(name);
}

/* A column or an expression of the type. */
static void add_typmod(locales *found, int32 typmod) {
    if (typmod < 0)
        found->unknown = true;
    else
        add_name(found, kova_typmod_name(typmod));
}

/* The last argument of the functions on texts is the locale; that of kova_convert is none, but its
 * data have no version either. */
static void add_call(locales *found, const FuncExpr *call) {
    Node *last = call->args ? llast(call->args) : NULL;
    if (!last || exprType(last) != TEXTOID ||
        getExtensionOfObject(ProcedureRelationId, call->funcid) != found->extension)
        return;
    if (IsA(last, Const) && !((Const *)last)->constisnull && list_length(call->args) > 1 &&
        strcmp(get_func_name(call->funcid), "kova_convert"))
        add_name(found, TextDatumGetCString(((Const *)last)->constvalue));
    else if (list_length(call->args) > 1)
        found->unknown = true;
}

static bool visit(Node *node, locales *found) {
    if (!node) return false;
    if (IsA(node, FuncExpr)) add_call(found, (FuncExpr *)node);
    if ((IsA(node, Var) || IsA(node, FuncExpr)) && exprType(node) == found->type)
        add_typmod(found, exprTypmod(node));
    return expression_tree_walker(node, visit, found);
}

static void visit_attribute(HeapTuple tuple, AttrNumber attribute, locales *found) {
    bool none;
    const Datum tree = SysCacheGetAttr(INDEXRELID, tuple, attribute, &none);
    /* Not simplified as the planner would: that calls functions of the index's owner. */
    if (!none) visit(stringToNode(TextDatumGetCString(tree)), found);
}

/* The table's columns: those of an index may be of another type, such as a hash. */
static void visit_columns(HeapTuple tuple, locales *found) {
    const Form_pg_index index = (Form_pg_index)GETSTRUCT(tuple);
    for (int i = 0; i < index->indnkeyatts; i++) {
        Oid type, collation;
        int32 typmod;
        if (!index->indkey.values[i]) continue; /* an expression */
        get_atttypetypmodcoll(index->indrelid, index->indkey.values[i], &type, &typmod, &collation);
        if (getBaseTypeAndTypmod(type, &typmod) == found->type) add_typmod(found, typmod);
    }
}

PG_FUNCTION_INFO_V1(kova_index_locales);
Datum kova_index_locales(PG_FUNCTION_ARGS) {
    locales found = {.extension = get_extension_oid("kova", false)};
    bool nulls[lengthof(found.names)] = {false};
    int dims[1], lower[1] = {1};
    HeapTuple tuple = SearchSysCache1(INDEXRELID, ObjectIdGetDatum(PG_GETARG_OID(0)));
    if (!HeapTupleIsValid(tuple))
        ereport(ERROR, (errcode(ERRCODE_WRONG_OBJECT_TYPE),
                        errmsg("relation %u is not an index", PG_GETARG_OID(0))));
    found.type = getExtensionType(found.extension, "kova_text");
    visit_columns(tuple, &found);
    visit_attribute(tuple, Anum_pg_index_indexprs, &found);
    visit_attribute(tuple, Anum_pg_index_indpred, &found);
    ReleaseSysCache(tuple);
    nulls[found.count] = true; /* after the names, for a locale that is not known */
    dims[0] = found.count + (found.unknown ? 1 : 0);
    if (!dims[0]) PG_RETURN_ARRAYTYPE_P(construct_empty_array(TEXTOID));
    PG_RETURN_ARRAYTYPE_P(
        construct_md_array(found.names, nulls, 1, dims, lower, TEXTOID, -1, false, TYPALIGN_INT));
}
