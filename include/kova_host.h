/* Kova for hosts of today: what kova.h cannot say without changing what its calls do.
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
 * machine's order. It has no terminator, U+0000 is a character like others, and NULL is a text of
 * length 0. These calls serve locales whose code set is "unicode", which has every 16-bit unit as a
 * character, a character beyond the basic plane as two. For a locale of another code set the error
 * is KO_ECODESET, for NULL it is KO_ENULL, as for a text or result that is NULL but has a length.
 *
 * Calls that make a text return the length of the whole result in its units, and write as many
 * whole characters of it as the room holds; room for the first units that is left over may be
 * overwritten. With room 0 dst may be NULL, so that a first call measures. -KO_... is an error.
 * Result and text must not overlap. */

/* What is no character in a text that was refused: the longest start of a character there, or one
 * unit. A host may treat these units its own way and go on after them. */
typedef struct ko_bad_text {
    size_t at;     /* units before it */
    size_t length; /* units of it */
    size_t made;   /* units that the text before it makes */
} ko_bad_text;

/* Converts UTF-8 to wide characters and back. Wide characters of these locales are units of UTF-16.
 *   bad  where and how text was ill-formed, written with -KO_EILSEQ alone; or NULL
 * -KO_EILSEQ: the text is ill-formed (a surrogate that is not part of a pair, in wide text). */
KO_API int64_t ko_utf8stowcs(ko_lc_t loc, ko_wchar_t *dst, size_t room, const char *text,
                             size_t len, ko_bad_text *bad);
KO_API int64_t ko_wcstoutf8s(ko_lc_t loc, char *dst, size_t room, const ko_wchar_t *text,
                             size_t len, ko_bad_text *bad);

/* Compares two texts in the locale's order. Returns 0 for texts without a difference in it, and
 * below or above 0 where the first comes earlier or later: -1 and 1 without an error, else further
 * away by the error's number, which KO_SCOLL_ERROR(result) gives. The order is total in spite of an
 * error, so that a sort ends well:
 *
 * KO_EILSEQ: an ill-formed text was met. The bytes of UTF-8 that are no character weigh after all
 * characters, one by one and by their values; surrogates without partner are units like others. Of
 * texts, only what it takes to decide is looked at: not the units after the decision, nor those
 * with which both begin. Two texts without a difference give 0 even then.
 *
 * KO_ENULL, KO_ECODESET, KO_ENOMEM (tables found no memory when the locale was loaded) and
 * KO_EOBJECT (a collation with elements in a backward pass, or without a free weight): the texts
 * are compared unit by unit.
 *
 * U+0000 is not seen until all else is equal. Then it counts how many units stand before the first
 * U+0000, then how many between the first and the second, and so on. */
#define KO_SCOLL_ERROR(result) ((result) < 0 ? -(result)-1 : (result) > 0 ? (result)-1 : 0)
KO_API int ko_utf8scoll(ko_lc_t loc, const char *a, size_t alen, const char *b, size_t blen);
KO_API int ko_utf16scoll(ko_lc_t loc, const char16_t *a, size_t alen, const char16_t *b,
                         size_t blen);

/* Makes the key of a text. Two keys compared byte by byte, a key first that the other begins with,
 * have the order of their texts, sign for sign what the calls above answer, for well-formed texts
 * and others alike; both calls make the same key of the same text. Returns the bytes of the whole
 * key and writes as many of them as the room holds, so that a host may keep a prefix. No
 * terminator. Keys are good for one locale object; docs/collation.md tells what is in them.
 *
 * -KO_ENOMEM: also when tables for the first key of the locale find no memory; a later call tries
 * again. -KO_EOBJECT: also when a collation has more weights than keys can spell. */
KO_API int64_t ko_utf8sxfrm(ko_lc_t loc, void *dst, size_t room, const char *text, size_t len);
KO_API int64_t ko_utf16sxfrm(ko_lc_t loc, void *dst, size_t room, const char16_t *text, size_t len);

#ifdef __cplusplus
}
#endif

#endif
