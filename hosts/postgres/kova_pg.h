/* What the sources of the PostgreSQL extension share: locales and conversions that a backend holds,
 * errors, and texts.
 *
 * The library never calls back into code that can raise an error: its memory hook returns NULL
 * where there is no memory, and files are read with the C library. So no error leaves it by a jump,
 * and what it allocates for a call is given back before the call ends. */
#ifndef KOVA_PG_H
#define KOVA_PG_H

#include <postgres.h>

#include <fmgr.h>
#include <kova_host.h>

/* ---- kova_pg.c ---- */

/* The record of a locale by its name: "de_DE", "de_DE@ci", "de_DE.ISO-8859-1" or, in the data
 * release 2026.1, "2026.1/de_DE". Raises an error where there is none whose order can be used. It
 * lives as long as the backend. */
ko_lc_t kova_hold_locale(const char *name, size_t length);

/* The same for a locale that an argument names, remembered from call to call. */
ko_lc_t kova_locale_arg(FunctionCallInfo fcinfo, int arg);

/* The conversion between two code sets, likewise. */
ko_cv_t kova_hold_conversion(const char *from, const char *to);

/* Changes when kova.root does: what was remembered of locales by other means is then out of date.
 */
extern uint64 kova_root_changes;

/* Raises the error that a number of the library stands for; about says what failed. */
void kova_fail(int error, const char *about, ...) pg_attribute_printf(2, 3) pg_attribute_noreturn();

/* ---- kova_pg_text.c ---- */

/* The key of a text, in the current memory context. */
bytea *kova_make_key(ko_lc_t loc, const char *text, size_t length);

/* -1, 0 or 1. */
int kova_order(ko_lc_t loc, const char *a, size_t alen, const char *b, size_t blen);

/* ---- kova_pg_type.c ---- */

/* The locale of a type modifier of kova_text. */
char *kova_typmod_name(int32 typmod);

#endif
