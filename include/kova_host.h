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
 * character, byte 0xFF or ".." and is no device of Windows ("nul", "com1.x"). So is the file name
 * that a specification stands for, such as "en_us\0333.lco". Any other name behaves like that of a
 * file that does not exist. This holds for names given to calls that open locales, charmaps or
 * conversions and to ko_path_search, and for those in KO_ALL, KO_LANG and the variables of the
 * categories; ko_open_file finds nothing at all. Directories, the file name of a registry, KO_PATH
 * and VANTORDIR are the host's own and not confined. The setting belongs to the whole process: make
 * it before other threads load. */
KO_API int ko_secure_names(int on);

/* ---- Errors -------------------------------------------------------------------------------- */

/* Numbers beside those of ko_errnum. */
enum {
    KO_ENOLOCALE = 54,  /* there is no such locale or data root */
    KO_ENOCHAR = 55,    /* a character that the code set lacks */
    KO_ENOCODESET = 56, /* there is no code set of this name */
    KO_ENOCONV = 57     /* the data root has no conversion between these code sets */
};

/* Says in English what an error number means, without a point at its end; "an unknown error" for
 * any other number. The text lives as long as the library. */
KO_API const char *ko_error_text(int number);

/* ---- Locale records ------------------------------------------------------------------------ */

enum {
    KO_OPEN_VERIFY = 1,      /* check every file that is read against the hash in its header */
    KO_OPEN_SECURE_NAMES = 2 /* confine the names of this record, as ko_secure_names(1) does */
};

/* Opens a locale of one data root, so that two releases of the data can be used side by side.
 *   loc    gets the record, NULL after a failure; ko_close_locale gives it back
 *   root   a data root: the directory that contains "kova", in the notation of VANTORDIR; NULL
 *          searches as ko_lc_load does
 *   spec   "de_DE.unicode", a compound specification or the file name of an object; "" chooses as
 *          ko_setlocale_2 does. The code-set names of a stated root are those of its own registry,
 *          even while another registry is cached.
 *   flags  a sum of KO_OPEN_...
 * Returns 0 or the number of the error: KO_ENOLOCALE there is no such file, root, or code set;
 * KO_EOBJECT a file is damaged or, with KO_OPEN_VERIFY, is not what its header says or says nothing
 * of a hash; KO_EVERSION it was written by another version of the compiler; KO_ECODESET the
 * categories of a compound specification differ in their code sets; KO_ENOMEM, KO_EIO (also where
 * ko_lc_load would give an incomplete record); KO_ENULL loc or spec; KO_ERANGE a specification that
 * is too long, or unknown flags.
 *
 * A record with a stated root reads everything from there, also later in ko_setlocale_2: KO_PATH,
 * VANTORDIR and absolute names lead to no other place. It is shared with later calls that name the
 * same root, specification and flags, but with no other call; a NULL root is a root like others in
 * this. For a code set other than "unicode" the call also reads the tables between it and UTF-8,
 * "<utf8><code set>.cvo" and back; without them (or if they are damaged) the record serves kova.h
 * alone, and ko_locale_utf8 says why. */
KO_API int ko_open_locale(ko_lc_t *loc, const char *root, const char *spec, unsigned flags);

/* Gives a record of ko_open_locale back, as ko_lc_unload does. NULL is allowed. */
KO_API void ko_close_locale(ko_lc_t loc);

/* Tells whether a record serves the calls for UTF-8 and UTF-16 below: 0, or the number with which
 * they fail. KO_ENULL; KO_ECODESET: the record has another code set than "unicode" and was not made
 * by ko_open_locale, or its characters have more than two bytes; KO_EFILE: the data root lacks the
 * tables between its code set and UTF-8; KO_EOBJECT: they are damaged; KO_ENOMEM, KO_EIO. */
KO_API int ko_locale_utf8(ko_lc_t loc);

/* Names the version of a locale's order, as a text to keep with an index: keys and order of two
 * records are the same if their versions are. It consists of the hash of the object from which
 * LC_COLLATE was read; of "-k" with the number of the library's key format; where UTF-8 is ordered
 * in another code set than "unicode", of "-u" with the hash of the conversion from UTF-8; and, if
 * the object states one, of a blank and the release's name: "5d41402abc4b2a76-k1 2026.1".
 *   dst, room  get the text with a terminator, cut to the room; dst may be NULL with room 0
 * Returns the length of the whole text, without the terminator, or -KO_ENULL, -KO_ENOCAT (there is
 * no LC_COLLATE in the record), -KO_EOBJECT (its object states no hash). */
KO_API int ko_locale_version(ko_lc_t loc, char *dst, size_t room);

/* A locale of a data root. The texts live until the callback returns. */
typedef struct ko_locale_entry {
    const char *spec;     /* as ko_open_locale takes it: "de_DE.ISO-8859-1", "aa_ER.unicode@saah" */
    const char *codeset;  /* the name of its code set; "" with an error */
    const char *modifier; /* "" without one */
    int error;            /* 0, or why the header of its file cannot be read */
} ko_locale_entry;

/* Lists the locales of a data root, ordered by the names of their files. Nothing is loaded.
 *   root  as for ko_open_locale; NULL is the installation root, VANTORDIR or the default one
 *   each  called for every locale; a value other than 0 ends the list and becomes the result
 * Returns 0, what the callback returned, or the number of the error: KO_ENOLOCALE there is no data
 * root; KO_EIO a directory cannot be read; KO_ENOMEM; KO_ENULL; KO_EFILE the host has hooks for
 * files, which know no directories. All but KO_ENOMEM come before the first call of each. */
KO_API int ko_list_locales(const char *root, int (*each)(void *user, const ko_locale_entry *entry),
                           void *user);

/* Checks a whole data file of any kind against the hash in its header.
 *   content  gets the hash of what follows the header, 0 without a header; may be NULL
 * Returns 0, or KO_EOBJECT if it is no data file, is damaged or states no hash, or KO_ENULL. The
 * hash covers every byte after the header's lines but not these, which tell of sources and
 * compiler. */
KO_API int ko_verify_object(const void *bytes, size_t size, uint64_t *content);

/* Tells whether a record holds everything that its files hold. When there is no memory for a
 * string, or it cannot be read, loading continues without it and succeeds.
 *   loc      a record, also one whose load failed
 * Returns 0 for a complete record; KO_ENOMEM if memory ran short while the record was loaded or
 * copied or its tables were derived; KO_EIO if a stream reported an error while it was read or the
 * system failed to open a file; KO_EFILE if ko_lc_load or ko_createlocale_2 found none; KO_ENULL
 * for NULL. The first such number stays until the record is released; a copy of a category takes it
 * along. An incomplete record is not shared: the next ko_lc_load of its name reads the file again.
 * Memory that runs short in another thread at the same time counts, too. */
KO_API int ko_lc_status(ko_lc_t loc);

/* ---- Texts with a length ------------------------------------------------------------------- */

/* A text is a pointer and a length in units: bytes of UTF-8, or 16-bit units of UTF-16 in the
 * machine's order. It has no terminator, U+0000 is a character like any other, and NULL is a text
 * of length 0. These calls serve locales whose code set is "unicode", in which every 16-bit unit is
 * a character and a character beyond the basic plane is two, and records of ko_open_locale in other
 * code sets (ko_locale_utf8 tells). Each call fails with the number that ko_locale_utf8 returns,
 * and with KO_ENULL for a text or result that is NULL but has a length.
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

/* Convert UTF-8 to wide characters and back. Wide characters of "unicode" are units of UTF-16.
 *   bad  where the text is refused, written only with these two errors; may be NULL
 * -KO_EILSEQ: the text is ill-formed (in wide text, a surrogate is not part of a pair, or a value
 * is no character of the code set or none that Unicode has as one). -KO_ENOCHAR: the code set lacks
 * a character of the text. */
KO_API int64_t ko_utf8stowcs(ko_lc_t loc, ko_wchar_t *dst, size_t room, const char *text,
                             size_t len, ko_bad_text *bad);
KO_API int64_t ko_wcstoutf8s(ko_lc_t loc, char *dst, size_t room, const ko_wchar_t *text,
                             size_t len, ko_bad_text *bad);

/* Map a text to upper or lower case, character by character like im_towupper and im_towlower, which
 * know the units of "unicode" only: characters beyond the basic plane (Deseret, Osage, Vithkuqi,
 * Old Hungarian, Warang Citi, Medefaidrin, Adlam) are mapped alike in every locale of that code set
 * and keep their four bytes. -KO_EILSEQ: the text is ill-formed. -KO_ENOCHAR: the code set lacks a
 * character of the text. */
KO_API int64_t ko_utf8supper(ko_lc_t loc, char *dst, size_t room, const char *text, size_t len);
KO_API int64_t ko_utf8slower(ko_lc_t loc, char *dst, size_t room, const char *text, size_t len);

/* Compare two texts in the locale's order. Return 0 for texts that it does not distinguish, and a
 * value below or above 0 if the first text comes earlier or later. That is -1 or 1 without an
 * error; with an error it is further from 0 by the error's number, which KO_SCOLL_ERROR(result)
 * yields. The order is total even with an error, so that sorting works:
 *
 * KO_EILSEQ: ill-formed text was found. Bytes of UTF-8 that are not a character are weighed one by
 * one, after all characters and by their values; surrogates without a partner are units like any
 * other. Only as much of the texts is examined as the decision needs. So nothing is said of an
 * error after the units that decide, or among those with which both texts begin, and identical
 * texts give 0 even if they are ill-formed.
 *
 * KO_ENOCHAR: a character was found that the locale's code set lacks. It is weighed by its bytes in
 * UTF-8, like bytes that are not a character, and so are surrogates without a partner in such a
 * code set.
 *
 * KO_ENULL, the numbers of ko_locale_utf8, KO_ENOMEM (there was no memory for tables when the
 * locale was loaded) and KO_EOBJECT (a collation with elements in a backward pass, without a free
 * weight, or by the Thai method without bytes): the texts are compared unit by unit.
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

/* ---- Conversion ---------------------------------------------------------------------------- */

/* The number of a code set, whose name may be written in any usual way: "IBM-37", "cp037",
 * "ibm037" and "37"; "ISO8859-1", "iso_8859-1" and "latin1". Names are those of the registry, in
 * any case and with or without punctuation; a number, also after words such as "ibm", "cp" or
 * "windows", is one that the registry has. The encodings of Unicode need no registry: utf8,
 * utf16le, utf32be, utf32le, "unicode" (utf16be), and utf16, whose byte order a mark tells and
 * which is most significant byte first without one. root  as for ko_open_conversion Returns the
 * number, or -KO_ENOCODESET, -KO_ENULL, -KO_ENOMEM. */
KO_API int ko_codeset_number(const char *root, const char *name);

enum {
    KO_CONVERT_KEEP_MARK = 16,  /* a byte-order mark at the start of a text is a character */
    KO_CONVERT_WRITE_MARK = 32, /* texts in an encoding of Unicode begin with a mark */
    KO_CONVERT_DIRECT = 64      /* not through another code set */
};

/* Opens a conversion between two code sets of one data root, for ko_miconv, ko_cv_mconv and
 * ko_mconvlen; ko_cv_unload gives it back.
 *   cd        gets the descriptor, NULL after a failure
 *   root      a data root as for ko_open_locale; NULL searches as ko_cv_load does
 *   from, to  names as ko_codeset_number takes them
 *   flags     a sum of KO_CONVERT_... and KO_OPEN_VERIFY
 * Between the encodings of Unicode no object is needed: all characters are converted, and of
 * ill-formed text the error is at the first byte of what is no character. Other pairs have an
 * object, or one each between them and UTF-8. A code set is also converted to itself, which checks
 * the text. UTF-7 is converted by rule; so are ISO-2022-JP, -KR, -CN, their kin and HZ, with the
 * objects of those code sets whose characters they have. GB18030 and code sets that have single
 * characters for two code points are converted by their object, and by rule what it cannot hold.
 * Returns 0 or the number of the error: KO_ENOCODESET; KO_ENOCONV; KO_EOBJECT an object is damaged
 * or, with KO_OPEN_VERIFY, is not what its header says; KO_ENOMEM; KO_EIO; KO_ENULL; KO_ERANGE
 * unknown flags.
 *
 * A mark at the start of a text in an encoding of Unicode is dropped, unless it is to be kept; that
 * of utf16 always is. A conversion with a state serves a text in pieces, as conversions of stateful
 * code sets do: the conv_state then keeps what the mark said, too. By rule, source_state and
 * target_state keep more than shifts, such as which characters are announced and the bits of digits
 * that are not used up; the numbers mean something to the same conversion alone. The piece with
 * last_frag gets what ends a text, such as the way back to ASCII. Where there is no room
 * (KO_E2BIG), pointers, counts and state are those after the last character that was converted, so
 * that the call can be repeated with more room. */
KO_API int ko_open_conversion(ko_cv_t *cd, const char *root, const char *from, const char *to,
                              unsigned flags);

/* Where ko_make_image writes to. */
typedef struct ko_image_output {
    int (*put)(void *user, const void *bytes, size_t size); /* in order; not 0: a failure */
    /* Called for each name, if it is not NULL, with 0 and the size of what was taken, or why the
     * object is left out: KO_EFILE there is no such file; KO_EOBJECT it cannot be loaded; KO_ERANGE
     * reading it is as fast, or its tables have another form; KO_EIO; KO_ENOMEM. */
    void (*told)(void *user, const char *name, int error, size_t size);
    void *user;
} ko_image_output;

/* Makes the image of a data root: a file with the tables of conversions as they stand in memory, to
 * be stored as kova/image1 below the root. Opening such a conversion then maps the file in place of
 * reading the object, with the same results. It does not where size, time or header of the object
 * have changed, where stream hooks are installed, and where the file may be written by others than
 * its owner, who is the superuser or the process's user. Replace the file by renaming: processes
 * that have it mapped keep the old one.
 *   root   a data root as for ko_open_locale
 *   names  count names of objects in kova/cv9 below the root
 * Returns 0 or the number of the error: KO_ENULL; KO_EINVAL stream hooks are installed; KO_EIO put
 * has failed; KO_ENOMEM. */
KO_API int ko_make_image(const char *root, const char *const *names, size_t count,
                         const ko_image_output *output);

#ifdef __cplusplus
}
#endif

#endif
