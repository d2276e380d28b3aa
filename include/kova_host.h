/* Kova for newer hosts: what kova.h cannot offer without changing what its calls do.
 *
 * This header adds to kova.h, for C11 and C++20, and uses its handles and types. One library serves
 * both headers: what is declared here carries the symbol version KOVA_2.87, and nothing here
 * changes what the calls of kova.h answer. In this header an error is the result of the call: the
 * error word of a handle is neither read nor written. */
#ifndef KOVA_HOST_H
#define KOVA_HOST_H

#include "kova.h"

#ifndef __cplusplus
#include <uchar.h> /* char16_t */
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Names --------------------------------------------------------------------------------- */

/* Confines the names that reach the library: none leads to a file outside the places where the
 * library looks for data files, so a host may pass on names that it has received from others.
 *   on       1 confines names from now on, 0 ends that, -1 only asks
 * Returns 1 where names were confined before the call, else 0. A process with raised rights (on
 * Linux: AT_SECURE, as after the start of a set-user-id program) always confines them.
 *
 * While names are confined, a name is allowed if it contains no slash, backslash, colon, control
 * character, byte 0xFF or ".."; the file name that a specification stands for, such as
 * "en_us\0333.lco", is allowed too. A name that is not allowed behaves like the name of a file that
 * does not exist. This holds for names given to calls that open locales, charmaps or conversions
 * and to ko_path_search, and for those in KO_ALL, KO_LANG and the variables of the categories;
 * ko_open_file finds nothing at all. Directories, the file name of a registry, KO_PATH and
 * VANTORDIR are the host's own and not confined. The setting belongs to the whole process: make it
 * before other threads load. */
KO_API int ko_secure_names(int on);

/* ---- Locale records ------------------------------------------------------------------------ */

/* Tells whether a record holds everything that its files hold. When there is no memory for a
 * string, or it cannot be read, loading continues without it and succeeds.
 *   loc      a record, also one whose load failed
 * Returns 0 for a complete record; KO_ENOMEM if memory ran short while the record was loaded or
 * copied or its tables were derived; KO_EIO if a stream reported an error while it was read;
 * KO_EFILE if ko_lc_load or ko_createlocale_2 did not find a file; KO_ENULL for NULL. The first
 * such number stays until the record is released, and a copy of a category takes it along. An
 * incomplete record is not shared: the next ko_lc_load of its name reads the file again. Memory
 * that runs short in another thread at the same time counts, too. */
KO_API int ko_lc_status(ko_lc_t loc);

/* ---- Texts with a length ------------------------------------------------------------------- */

/* A text is a pointer and a length in units: bytes of UTF-8, or 16-bit units of UTF-16 in the
 * machine's order. It has no terminator, U+0000 is a character like any other, and NULL is a text
 * of length 0. These calls serve locales whose code set is "unicode", in which every 16-bit unit is
 * a character and a character beyond the basic plane is two. The error is KO_ECODESET for a locale
 * of another code set, and KO_ENULL for a NULL locale and for a text or result that is NULL but has
 * a length.
 *
 * Calls that make a text return the length of the whole result in its units, or -KO_... for an
 * error. They write as many whole characters of the result as fit into the room, whose rest may be
 * overwritten. With room 0 dst may be NULL, so that a first call can measure. Result and text must
 * not overlap. */

/* The units of a refused text that are not a character: the longest beginning of a character at
 * that place, or one unit. A host may handle them in its own way and continue after them. */
typedef struct ko_bad_text {
    size_t at;     /* units before them */
    size_t length; /* their number */
    size_t made;   /* units of the result of the text before them */
} ko_bad_text;

/* Convert UTF-8 to wide characters and back. Wide characters of these locales are units of UTF-16.
 *   bad  where and how text is ill-formed, written only with -KO_EILSEQ; may be NULL
 * -KO_EILSEQ: the text is ill-formed (in wide text, a surrogate is not part of a pair). */
KO_API int64_t ko_utf8stowcs(ko_lc_t loc, ko_wchar_t *dst, size_t room, const char *text,
                             size_t len, ko_bad_text *bad);
KO_API int64_t ko_wcstoutf8s(ko_lc_t loc, char *dst, size_t room, const ko_wchar_t *text,
                             size_t len, ko_bad_text *bad);

/* Map a text to upper or lower case, character by character like im_towupper and im_towlower.
 * Characters beyond the basic plane stay as they are. -KO_EILSEQ: the text is ill-formed. */
KO_API int64_t ko_utf8supper(ko_lc_t loc, char *dst, size_t room, const char *text, size_t len);
KO_API int64_t ko_utf8slower(ko_lc_t loc, char *dst, size_t room, const char *text, size_t len);

/* Compare two texts in the locale's order. Return 0 for texts that it does not distinguish, and a
 * value below or above 0 if the first text comes earlier or later. That is -1 or 1 without an
 * error; with an error it is further from 0 by the error's number, which KO_SCOLL_ERROR(result)
 * yields. The order is total even with an error, so that sorting works:
 *
 * KO_EILSEQ: ill-formed text was found. Bytes of UTF-8 that are not a character are weighed one by
 * one, after all characters and by their values; surrogates without a partner are units like any
 * other. Only as much of the texts is examined as the decision needs: neither the units after it
 * nor those with which both texts begin. Identical texts give 0 even if they are ill-formed.
 *
 * KO_ENULL, KO_ECODESET, KO_ENOMEM (there was no memory for tables when the locale was loaded) and
 * KO_EOBJECT (a collation with elements in a backward pass, or without a free weight): the texts
 * are compared unit by unit.
 *
 * U+0000 is ignored until everything else is equal. Then the number of units before the first
 * U+0000 decides, then the number between the first and the second, and so on. */
#define KO_SCOLL_ERROR(result) ((result) < 0 ? -(result)-1 : (result) > 0 ? (result)-1 : 0)
KO_API int ko_utf8scoll(ko_lc_t loc, const char *a, size_t alen, const char *b, size_t blen);
KO_API int ko_utf16scoll(ko_lc_t loc, const char16_t *a, size_t alen, const char16_t *b,
                         size_t blen);

/* Make the key of a text. Comparing two keys byte by byte (a key comes before a longer one that
 * begins with it) gives the order of their texts, with the same sign as the calls above, for
 * well-formed and ill-formed texts alike. Both calls make the same key of the same text. Return the
 * bytes of the whole key, and write as many of them as the room holds, so that a host may keep a
 * prefix. There is no terminator. Keys are valid for one locale object only; docs/collation.md
 * describes them.
 *
 * -KO_ENOMEM also means that there was no memory for tables, which the locale's first key makes; a
 * later call tries again. -KO_EOBJECT also means that a collation has more weights than keys can
 * represent. */
KO_API int64_t ko_utf8sxfrm(ko_lc_t loc, void *dst, size_t room, const char *text, size_t len);
KO_API int64_t ko_utf16sxfrm(ko_lc_t loc, void *dst, size_t room, const char16_t *text, size_t len);

#ifdef __cplusplus
}
#endif

#endif
