/* Kova: locale and code-set support with the same answers on every machine.
 *
 * This header is the library's primary interface, for C11 and C++20; kova_host.h adds to it without
 * changing it. Every operation takes an opaque handle. An operation that fails stores an error
 * number in the handle's error word (reached with ko_ext_errno) and returns the failure value that
 * its declaration names. Success leaves the word alone unless the declaration says otherwise. Calls
 * with a NULL locale fail with KO_ENULL, a number that only a KO_EXT_ERRNO hook can then store; a
 * call that maps a character returns it as it is, one that packs lengths returns 0. "long" means 32
 * bits everywhere in this interface. A count that no int can hold is refused with KO_ERANGE.
 *
 * Any thread may load and unload at any time, and any number of threads may use a handle at once in
 * calls that do not change it. Install hooks before any other call; docs/threads.md has the rest.
 */
#ifndef KOVA_H
#define KOVA_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#if defined(KOVA_BUILD)
#define KO_API __declspec(dllexport)
#elif defined(KOVA_STATIC)
#define KO_API
#else
#define KO_API __declspec(dllimport)
#endif
#else
#define KO_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t ko_long_t;
typedef uint32_t ko_ulong_t;
typedef uint16_t ko_wchar_t;      /* a character's bytes, big-endian, kept to 16 bits */
typedef unsigned char ko_mchar_t; /* one byte of a multibyte string */
typedef unsigned int ko_ctype_t;  /* a class mask: KO_CT_... and locale-defined classes */
typedef void *ko_lc_t;            /* a locale record; begins with loc_exports */

/* Error numbers. They are part of the binary interface. */
typedef enum ko_errnum {
    KO_OK = 0,
    KO_EILSEQ = 1,      /* bytes that are not a character, or a wide character without bytes */
    KO_ENULL = 2,       /* a string argument is null or unusable */
    KO_ENOMEM = 3,      /* memory is exhausted; a stored table is unreadable */
    KO_EINDEX = 4,      /* a character index is negative or beyond the string */
    KO_EPOS = 5,        /* a position is inside a character or before the start */
    KO_EEMPTY = 6,      /* a number text is empty */
    KO_EINVAL = 7,      /* an incomplete character, a result that does not fit, a malformed name */
    KO_EFILE = 8,       /* a data file cannot be opened or read */
    KO_ERANGE = 9,      /* an argument is out of range */
    KO_EOBJECT = 11,    /* a damaged data file, or one of another kind */
    KO_ECODESET = 12,   /* the categories of a locale name different code sets */
    KO_EIO = 13,        /* a stream reports an error, or a write falls short */
    KO_E2BIG = 14,      /* an output buffer or a table is full */
    KO_EFORMAT = 15,    /* a format ends early, a time is unreadable, no registry */
    KO_EEOF = 16,       /* the stream ends before a character */
    KO_EREAD = 17,      /* a read failed without a reason */
    KO_ENOCAT = 18,     /* the source of a copy lacks the category */
    KO_EHASCAT = 19,    /* the destination of a copy already has the category */
    KO_EMONEY = 20,     /* a money directive that is neither "i" nor "n" */
    KO_ECHARLEN = 21,   /* a stored table's longest character exceeds the limit */
    KO_EDIRECTIVE = 22, /* an unknown directive, or input that does not match one */
    KO_ESECRANGE = 24,  /* these eight: read, but out of range */
    KO_EMINRANGE = 25,
    KO_EHOURRANGE = 26,
    KO_EDAYRANGE = 27,
    KO_EWDAYRANGE = 28,
    KO_EYDAYRANGE = 29,
    KO_EMONTHRANGE = 30,
    KO_EYEARRANGE = 31,
    KO_EFRACTION = 33,
    KO_ESEC = 34, /* these eight: not readable; when formatting, out of range */
    KO_EMIN = 35,
    KO_EHOUR = 36,
    KO_EDAY = 37,
    KO_EWDAY = 38,
    KO_EYDAY = 39,
    KO_EMONTH = 40,
    KO_EYEAR = 41,
    KO_EERA = 42,
    KO_EPRECISION = 45, /* a "." without digits in a directive */
    KO_EMISMATCH = 46,  /* input differs from the text of the format */
    KO_EMONTHNAME = 48,
    KO_ECALENDAR = 50, /* a locale object names an unknown calendar */
    KO_EVERSION = 51,  /* a data file was written by another compiler version */
    KO_ENOSYMBOL = 53
} ko_errnum;

/* Categories. */
enum {
    KO_LC_ALL = 1,
    KO_LC_CTYPE = 2,
    KO_LC_COLLATE = 3,
    KO_LC_NUMERIC = 4,
    KO_LC_MONETARY = 5,
    KO_LC_TIME = 6,
    KO_LC_MESSAGES = 7
};

/* Standard character classes. A locale's own classes start at 0x0800. */
enum {
    KO_CT_UPPER = 0x0001,
    KO_CT_LOWER = 0x0002,
    KO_CT_ALPHA = 0x0004,
    KO_CT_DIGIT = 0x0008,
    KO_CT_SPACE = 0x0010,
    KO_CT_CNTRL = 0x0020,
    KO_CT_PUNCT = 0x0040,
    KO_CT_GRAPH = 0x0080,
    KO_CT_PRINT = 0x0100,
    KO_CT_XDIGIT = 0x0200,
    KO_CT_BLANK = 0x0400,
    KO_CT_ALNUM = 0x000C
};

/* Host hooks: the codes that ko_setextfunc takes. */
enum {
    KO_EXT_GETENV = 0,
    KO_EXT_ERRNO = 1,
    KO_EXT_FCLOSE = 2,
    KO_EXT_FEOF = 3,
    KO_EXT_FERROR = 4,
    KO_EXT_FGETC = 5,
    KO_EXT_FGETS = 6,
    KO_EXT_FOPEN = 7,
    KO_EXT_FREE = 8,
    KO_EXT_FSEEK = 9,
    KO_EXT_FTELL = 10,
    KO_EXT_FWRITE = 11,
    KO_EXT_GETC = 12,
    KO_EXT_MALLOC = 13,
    KO_EXT_UNGETC = 14,
    KO_EXT_PUTENV = 15,
    KO_EXT_CURRDATE = 16,
    KO_EXT_CURRTIME = 17,
    KO_EXT_COUNT = 18
};

/* Items of ko_nl_langinfo and ko_wc_nl_langinfo. */
enum {
    KO_D_T_FMT = 0,
    KO_DAY_1 = 1,    /* Sunday; KO_DAY_1 + i */
    KO_ABDAY_1 = 8,  /* KO_ABDAY_1 + i */
    KO_MON_1 = 15,   /* KO_MON_1 + i, i below 20 */
    KO_ABMON_1 = 35, /* KO_ABMON_1 + i, i below 20 */
    KO_RADIXCHAR = 55,
    KO_THOUSEP = 56,
    KO_YESSTR = 57,
    KO_NOSTR = 58,
    KO_CRNCYSTR = 59,
    KO_CODESET = 60,
    KO_D_FMT = 61,
    KO_T_FMT = 62,
    KO_T_FMT_AMPM = 63,
    KO_AM_STR = 64,
    KO_PM_STR = 65,
    KO_ERA = 66,
    KO_ERA_D_FMT = 67,
    KO_ERA_D_T_FMT = 68,
    KO_ERA_T_FMT = 69,
    KO_ALT_DIGITS = 70,
    KO_YESEXPR = 71,
    KO_NOEXPR = 72,
    KO_CALENDAR = 73,
    KO_LANGINFO_MAX = 73
};

#define KO_NO_CODESET 0xE000u /* the code-set number that means "none" */

/* The head of every handle. */
typedef struct gen_exports {
    int ko_lerrno; /* number of the last failed operation made with this handle */
} gen_exports;

typedef struct ko_coll_equiv_class_map {
    const ko_mchar_t *from; /* NULL ends the array */
    const ko_mchar_t *to;
} ko_coll_equiv_class_map;

/* The head of a locale record, open to callers for reading. */
typedef struct loc_exports {
    gen_exports gen;
    int (*mbscoll)(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2);
    int (*mbsxfrm)(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs, int maxbytes);
    int (*mbstowcs)(ko_lc_t loc, ko_wchar_t *dst, const ko_mchar_t *mbs, int n);
    int ko_tmp;                        /* scratch word for callers' inline code */
    double case_conv_ratio;            /* the most that case mapping lengthens a string; proved */
    double coll_char_ratio;            /* as the object states it; bounds nothing */
    unsigned char *sb_toupper_table;   /* 256 entries or NULL */
    unsigned char *sb_tolower_table;   /* 256 entries or NULL */
    uint16_t *sb_ctype_table;          /* 256 class masks or NULL */
    unsigned char *sb_collation_table; /* always NULL */
    int single_byte;                   /* every character of the code set is one byte */
    int codeset_order;                 /* collation is code-set order */
    const ko_mchar_t **coll_ignored;   /* NULL-terminated, or NULL */
    ko_coll_equiv_class_map *coll_equiv_class_map; /* ended by a NULL from, or NULL */
} loc_exports;

/* Numeric and monetary conventions in the layout of POSIX lconv. Strings that the locale lacks are
 * NULL, one-byte values that it lacks are 127. Grouping strings hold one byte per group size. */
typedef struct koconv {
    char *decimal_point;
    char *thousands_sep;
    char *grouping;
    char *int_curr_symbol;
    char *currency_symbol;
    char *mon_decimal_point;
    char *mon_thousands_sep;
    char *mon_grouping;
    char *positive_sign;
    char *negative_sign;
    char int_frac_digits;
    char frac_digits;
    char p_cs_precedes;
    char p_sep_by_space;
    char n_cs_precedes;
    char n_sep_by_space;
    char p_sign_posn;
    char n_sign_posn;
    ko_wchar_t *w_decimal_point;
    ko_wchar_t *w_thousands_sep;
    ko_wchar_t *w_grouping;
    ko_wchar_t *w_int_curr_symbol;
    ko_wchar_t *w_currency_symbol;
    ko_wchar_t *w_mon_decimal_point;
    ko_wchar_t *w_mon_thousands_sep;
    ko_wchar_t *w_mon_grouping;
    ko_wchar_t *w_positive_sign;
    ko_wchar_t *w_negative_sign;
} koconv;

/* A broken-down time. */
typedef struct ko_tm_t {
    ko_long_t tm_usec; /* 0..999999 */
    int tm_sec;        /* 0..61 */
    int tm_min;
    int tm_hour;
    int tm_mday; /* from 1 */
    int tm_mon;  /* from 0 */
    int tm_year; /* since 1900 */
    int tm_wday; /* 0 is Sunday */
    int tm_yday; /* from 0 */
    int tm_isdst;
    const char *tm_zone;
    ko_long_t tm_gmtoff;
} ko_tm_t;

/* The working form of a time. It holds the month twice because in a calendar with leap months the
 * month's place in its year differs from the index of its name. */
typedef struct ko_alt_tm_t {
    ko_long_t alt_tm_usec;
    int alt_tm_sec;
    int alt_tm_min;
    int alt_tm_hour;
    int alt_tm_mday;
    int alt_tm_mon;    /* from 0 */
    int alt_tm_monidx; /* into the locale's month names */
    int alt_tm_year;   /* the calendar's year less 1900 */
    int alt_tm_wday;
    int alt_tm_yday;
    int alt_tm_isdst;
    const char *alt_tm_zone;
    ko_long_t alt_tm_gmtoff;
} ko_alt_tm_t;

/* One character as bytes, first byte first. */
typedef struct char_desc {
    unsigned int length; /* 1..4 */
    unsigned char bytes[4];
} char_desc;

/* ---- Locale records ------------------------------------------------------------------------ */

/* Stores a new, empty locale record in *result. Returns 0; or -1 with a static error record (error
 * word KO_ENOMEM) in *result. Release the record with ko_lc_unload. */
KO_API int ko_create_null_locale_2(ko_lc_t *result);

/* Resets category 2..7 of a record to its empty state without freeing what it held, and clears the
 * category's names; for LC_MESSAGES it clears the names alone. Returns 0; or -1 with KO_ERANGE
 * (category) or KO_ENOMEM (the record can still be released). */
KO_API int ko_make_null_category(ko_lc_t loc, int category);

/* Frees what category 2..7 of a record owns, and clears the category and its names. */
KO_API void ko_free_category(ko_lc_t loc, int category);

/* Gives back one load of a shared record. When the last load is given back, or when the record is
 * not shared, releases the record and its decoded eras, but no other data of its categories: copies
 * may share them, so they stay allocated. Ignores static error records and NULL. */
KO_API void ko_free_nonshared_loc(ko_lc_t loc);

/* Copies one category, or all with KO_LC_ALL, by reference: the source must outlive the copy.
 * Release the copy with ko_free_nonshared_loc. The source must hold the category and the
 * destination must not. Returns 0; or -1 with KO_ENOCAT, KO_EHASCAT or KO_ERANGE in the
 * destination's error word and nothing copied. A code-set mismatch stores KO_ECODESET but is not a
 * failure. */
KO_API int ko_copy_cat(ko_lc_t dst, ko_lc_t src, int category);

/* Makes a record from the locale object default.lco, in all categories. The record's names stay
 * empty. dir is put before the file name as it stands; with NULL, or when there is no such file,
 * the library searches for default.lco. Returns 0; or -1 with the reason in (*result)'s error word
 * (0 for an unknown collation method): *result is a static record when there is no memory for one
 * or no file (KO_EFILE), else the partly filled record. Release *result with ko_lc_unload in every
 * case. */
KO_API int ko_createlocale_2(ko_lc_t *result);
KO_API int ko_createlocale2_2(ko_lc_t *result, const char *dir);

/* Loads one category, or all with KO_LC_ALL, into a record. name is a locale object's file name,
 * "native", "" (the environment decides), or a setting of all categories as this call returns it;
 * NULL only queries. Returns the resulting setting, which the caller frees with ko_destroystring;
 * or NULL with the error word set, and the categories loaded before the failure stay loaded.
 * Errors: KO_ERANGE (category, or a name of more than 311 bytes), KO_EOBJECT, KO_EVERSION,
 * KO_ECALENDAR, KO_ENOMEM, the number of a broken table, or, where the word was 0, KO_ECODESET (no
 * such file). Success stores KO_ECODESET when the categories' code sets differ. */
KO_API char *ko_setlocale_2(ko_lc_t loc, int category, const char *name);

/* Stores in *result the shared record of a locale specification such as "en_US.8859-1@euro", or of
 * a name that ko_setlocale_2 takes; the first call loads it. registry names the registry file and
 * dir the directory of the objects; NULL for either means that the library searches for it. Records
 * are shared by their file names, whatever dir says. Returns 0; or -1 with the reason in
 * (*result)'s error word: one of those of ko_setlocale_2, including KO_ECODESET for code sets that
 * differ. Release *result with ko_lc_unload in either case. */
KO_API int ko_lc_load(ko_lc_t *result, const char *spec, const char *registry, const char *dir);

/* Gives back one load of a record; the last one frees it. Ignores NULL and static error records. */
KO_API void ko_lc_unload(ko_lc_t loc);

/* Writes the list of shared records to the log. */
KO_API void ko_display_lc_node_list(void);

/* ---- Names, registry, file naming ---------------------------------------------------------- */

/* The number of a code set by its name. registry is the path of the registry file; NULL means that
 * the library searches for it. Fails with KO_NO_CODESET and KO_EFORMAT (no registry), KO_EOBJECT
 * (malformed number) or KO_EINVAL (unknown name). A name that consists of digits stands for
 * itself. */
KO_API uint16_t ko_cs_name2cs_num(void *handle, const char *name, const char *registry);

/* Caches the registry in memory (at most its size and 8 KB more). When that fails, the built-in
 * registry takes effect and the handle's error word holds the reason. */
KO_API void ko_cache_registry(void *handle, const char *registry);

/* The code-set number of a locale specification, simple or compound, or of a bare code-set name.
 * Fails as ko_cs_name2cs_num does. */
KO_API uint16_t ko_lc_spec2cs_num(void *handle, const char *spec, const char *registry);

/* The file name of the locale object that a specification stands for; out has room for 311 bytes,
 * terminator included. dir (may be NULL) goes into the names of a compound specification. Returns
 * 0; or -1 with KO_EINVAL, which also stands for a name that is too long. */
KO_API int ko_lc_spec2lc_fname(void *handle, const char *spec, char *out, const char *registry,
                               const char *dir);

/* The message directory of a specification; out has room for ten characters and a terminator.
 * Returns 0; or -1 with KO_EINVAL. */
KO_API int ko_lc_spec2msg_dname(void *handle, const char *spec, char *out, const char *registry,
                                const char *dir);

/* The file name of the conversion object between two code sets; out has room for the directory and
 * 14 more bytes. */
KO_API void ko_cs_nums2cv_fname(void *handle, uint16_t from, uint16_t to, char *out,
                                const char *dir);

/* Composes "ll_TT.hhhh[@mod]" in out (at most 17 bytes and a terminator). handle and modifier may
 * be NULL. Returns 0; or -1 with KO_EINVAL. */
KO_API int ko_lc_pieces2lc_spec(void *handle, const char *lang_terr, const char *cs_num,
                                const char *modifier, char *out);

/* Splits a locale object file name into "ll_TT" (6 bytes), the decimal code-set number (6 bytes)
 * and the modifier (5 bytes). handle may be NULL. Returns 0; or -1, usually with KO_EINVAL. */
KO_API int ko_lc_fname2lc_pieces(void *handle, const char *fname, char *lang_terr, char *cs_num,
                                 char *modifier);

/* ---- Host hooks and services --------------------------------------------------------------- */

typedef void (*ko_extfn_t)(void);

/* Installs a hook, cast to ko_extfn_t, under a KO_EXT_ code; NULL removes it. Each hook has the
 * type of the ko_ext_ function of the same name. Returns 0; or -1 with KO_ERANGE in the handle
 * (which may be NULL). A host that provides streams of its own installs every stream hook. */
KO_API int ko_setextfunc(void *handle, int code, ko_extfn_t fn);

/* Each of these calls its hook, or the standard library where no hook is installed. A stream is
 * whatever the open hook returned. ko_ext_errno returns the address of a handle's error word; its
 * hook gets NULL for a call that failed because its handle is NULL, and may return NULL, which
 * drops the number. A variable that a getenv hook does not know is not set, HOME included. Without
 * a hook, ko_ext_getenv finds no variable in a process with raised rights (set-user-id). */
KO_API char *ko_ext_getenv(const char *name);
KO_API int *ko_ext_errno(void *handle);
KO_API int ko_ext_fclose(void *stream);
KO_API int ko_ext_feof(void *stream);
KO_API int ko_ext_ferror(void *stream);
KO_API int ko_ext_fgetc(void *stream);
KO_API char *ko_ext_fgets(char *buf, int size, void *stream);
KO_API void *ko_ext_fopen(const char *path, const char *mode);
KO_API void ko_ext_free(void *block);
KO_API int ko_ext_fseek(void *stream, ko_long_t offset, int origin);
KO_API ko_long_t ko_ext_ftell(void *stream);
KO_API size_t ko_ext_fwrite(const void *buf, size_t size, size_t count, void *stream);
KO_API int ko_ext_getc(void *stream);
KO_API void *ko_ext_malloc(size_t size);
KO_API int ko_ext_ungetc(int byte, void *stream);
KO_API int ko_ext_putenv(char *setting);
/* Stores today's month (1..12), day of the month and four-digit year in mdy[0..2]. Returns 0; or -1
 * where the system cannot tell. */
KO_API int ko_ext_currdate(uint16_t *mdy);
KO_API int ko_ext_currtime(ko_tm_t *tm);

/* Frees a string that the library returned. Ignores NULL. */
KO_API void ko_destroystring(void *string);

/* Reads the diagnostic switches (the profile file, then KOVALOG and KOVADEBUG). The first message
 * does this too. */
KO_API void ko_init_debug(void);
/* Writes a line to the log and to a pop-up, where these are switched on. On POSIX systems the log
 * is kova.log in $HOME: a regular file that belongs to the process's user, has one name and mode
 * 0600, and is not reached through a link. There is no log without HOME (asked of the getenv hook,
 * where there is one) or in a process with raised rights. Control characters are written as "\x"
 * and two digits, except newlines and tabs in text. */
KO_API void ko_message(const char *text);

/* Finds a data file below KO_PATH or the installation root and opens it for reading. dir and subdir
 * name its place, such as "lc" and "11". Returns the stream; or NULL with KO_EFILE in the handle
 * (which may be NULL). The second form bypasses the hooks: its stream belongs to the standard
 * library. Without an open hook, only regular files are found. */
KO_API void *ko_path_search(void *handle, const char *name, const char *dir, const char *subdir);
KO_API void *ko_path_search_no_ext(void *handle, const char *name, const char *dir,
                                   const char *subdir);
/* Opens a composed name; each path mark (0xFF) in it becomes a backslash. Returns as ko_path_search
 * does. */
KO_API void *ko_open_file(void *handle, const char *name);

/* ---- Information queries ------------------------------------------------------------------- */

/* A locale's string for a KO_ item, owned by the record. NULL where the locale has none, or with
 * KO_ERANGE for a month beyond the calendar's. */
KO_API const ko_mchar_t *ko_nl_langinfo(ko_lc_t loc, unsigned item);
KO_API const ko_wchar_t *ko_wc_nl_langinfo(ko_lc_t loc, unsigned item);
/* The record's conventions, owned by the record; they change when one of its categories changes.
 * NULL for a NULL locale. */
KO_API const koconv *ko_localeconv(ko_lc_t loc);
KO_API const char *ko_version(void);
KO_API const char *ko_cm_version(void);
KO_API const char *ko_lc_version(void);
KO_API const char *ko_cv_version(void);
/* Bytes of the longest and the shortest character of the locale's code set; 0 and 2 without
 * LC_CTYPE. */
KO_API int ko_mb_loc_max(ko_lc_t loc);
KO_API int ko_mb_loc_min(ko_lc_t loc);

/* ---- Multibyte look-up tables -------------------------------------------------------------- */

/* Writes one data item to a stream as text; 0, or negative on failure. */
typedef int (*ko_item_printer)(void *stream, const void *item);
/* Reads one data item of data_size bytes into dest; 0, or negative on failure. */
typedef int (*ko_item_reader)(void *stream, void *dest, int data_size);

/* Makes an empty table of items of data_size bytes; default_item (NULL: zero bytes) is copied.
 * Returns NULL when memory runs out. Free the table with free_multi. */
KO_API void *create_multi(unsigned data_size, unsigned flags, const void *default_item);
/* Adds a character, or overwrites its item; a NULL item stands for the default. Returns 0; or -1
 * for a character that is a prefix of one in the table or has one as its prefix, for a bad length,
 * a compressed table or lack of memory. */
KO_API int insert_desc_multi(const char_desc *desc, const void *item, void *table);
/* Look-ups: return the character's item, which lives as long as the table, or NULL where there is
 * none. With a gen they store KO_EILSEQ for bytes that are not a character and KO_EINVAL for one
 * that the limit cuts off. *len_bytes gets the number of bytes taken, including a bad one. */
KO_API void *retrieve_desc_multi(const char_desc *desc, void *table);
KO_API void *retrieve_text_multi(const ko_mchar_t *text, void *table, int *len_bytes,
                                 gen_exports *gen);
KO_API void *retrieve_text_multi_nl(const ko_mchar_t *text, void *table, gen_exports *gen);
/* Returns the bytes of the character, 0 for an invalid one. */
KO_API int retrieve_text_multi_nv(const ko_mchar_t *text, void *table, gen_exports *gen);
KO_API void *retrieve_text_multi_limit(const ko_mchar_t *text, void *table, int limit,
                                       int *len_bytes, gen_exports *gen);
/* For tables in which every first byte is a prefix; validity is not tested. KO_EINVAL for a limit
 * of less than two bytes. */
KO_API void *retrieve_text_doub_limit(const ko_mchar_t *text, void *table, int limit,
                                      gen_exports *gen);
KO_API void *retrieve_wchar_multi_nl(gen_exports *gen, ko_wchar_t wc, void *table);
KO_API int multi_max_length(void *table);
KO_API int multi_min_length(void *table);
/* Why the last fscanf_multi failed: KO_ENOMEM or KO_ECHARLEN, else 0. */
KO_API int multi_err(void *table);
KO_API void multi_node_count(void *table, int *data_arrays, int *flag_arrays, int *offset_arrays);
/* Lets equal arrays share memory: look-ups answer as before, inserts fail from now on. Returns 0;
 * or -1 when memory runs out, with the table as it was. */
KO_API int compress_multi(void *table);
/* Writes the table's text form through ko_ext_fwrite. Returns 0; or -1 when a write fails. */
KO_API int fprintf_multi(void *stream, void *table, ko_item_printer printer);
/* Reads a text form into a new table; refuses characters of more than max_len bytes. Leaves the
 * stream just after the table's text. Returns 0; or -1 with the reason in multi_err and a table
 * without characters, which may be freed or read into again. */
KO_API int fscanf_multi(void *stream, void *table, int max_len, ko_item_reader reader);
KO_API void free_multi(void *table);

/* ---- Classes and case ---------------------------------------------------------------------- */

/* The mask of a class name, 0 when unknown. */
KO_API ko_ctype_t ko_ctype(ko_lc_t loc, const char *name);
/* Non-zero when the character has a bit of the mask. Stores KO_EILSEQ for what is not a
 * character. */
KO_API int im_iswctype(ko_lc_t loc, ko_wchar_t wc, ko_ctype_t mask);
KO_API int im_ismctype(ko_lc_t loc, const ko_mchar_t *mb, ko_ctype_t mask);
/* The case partner, or the character itself where it has none. What is not a character is returned
 * as it is, with KO_EILSEQ. */
KO_API ko_wchar_t im_towupper(ko_lc_t loc, ko_wchar_t wc);
KO_API ko_wchar_t im_towlower(ko_lc_t loc, ko_wchar_t wc);
/* Write the bytes of the case partner, or of the character itself, without a terminator, into room
 * for ko_mb_loc_max bytes, at least one. The high byte of the result is the source's length, the
 * low byte the number of bytes written (0xFF, with KO_EILSEQ: the partner has no bytes). */
KO_API uint16_t im_tomupper(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mb);
KO_API uint16_t im_tomlower(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mb);
/* Map a string. dst has room for ko_case_conv_outbuflen of the source's bytes and for a terminator;
 * it may be the source where no character grows. Return the bytes written before the terminator; or
 * -1 with KO_EILSEQ and dst unterminated, or with KO_ENULL. */
KO_API int ko_tombsupper(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs);
KO_API int ko_tombslower(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs);
/* The wide forms return 0; or -1 with KO_EILSEQ and dst unterminated, or with KO_ENULL. */
KO_API int ko_towcsupper(ko_lc_t loc, ko_wchar_t *dst, const ko_wchar_t *wcs);
KO_API int ko_towcslower(ko_lc_t loc, ko_wchar_t *dst, const ko_wchar_t *wcs);
/* The most bytes that mapping len_bytes bytes can produce, terminator not counted: at least
 * len_bytes, at most 0x7FFFFFFF. */
KO_API int ko_case_conv_outbuflen(ko_lc_t loc, int len_bytes);

/* ---- Multibyte and wide conversion, lengths ------------------------------------------------ */

/* Read the character at mb, where len_bytes bytes may be read. Return its bytes, 0 for the null
 * character or a NULL mb; or -1 with KO_EILSEQ or KO_EINVAL (cut off). */
KO_API int ko_full_mbtowc(ko_lc_t loc, ko_wchar_t *wc, const ko_mchar_t *mb, int len_bytes);
KO_API int ko_full_mblen(ko_lc_t loc, const ko_mchar_t *mb, int len_bytes);
/* Write up to 4 bytes. Return their number; or -1 with KO_EILSEQ. sl_wctomb looks the character up
 * in the collation table instead of the class table. */
KO_API int ko_full_wctomb(ko_lc_t loc, ko_mchar_t *dst, ko_wchar_t wc);
KO_API int sl_wctomb(ko_lc_t loc, ko_mchar_t *dst, ko_wchar_t wc);
/* Convert at most n characters. Return the wide characters before the terminator, which is written
 * only if it is reached; or -1 with KO_ENULL, or im_mbstowcs with KO_EILSEQ. */
KO_API int is_mbstowcs(ko_lc_t loc, ko_wchar_t *dst, const ko_mchar_t *mbs, int n);
KO_API int im_mbstowcs(ko_lc_t loc, ko_wchar_t *dst, const ko_mchar_t *mbs, int n);
/* Convert into at most n bytes, stopping before a character that does not fit. Return the bytes
 * before the terminator, which is written only if it is reached; or -1 with KO_EILSEQ or
 * KO_ENULL. */
KO_API int is_wcstombs(ko_lc_t loc, ko_mchar_t *dst, const ko_wchar_t *wcs, int n);
KO_API int ko_full_wcstombs(ko_lc_t loc, ko_mchar_t *dst, const ko_wchar_t *wcs, int n);
/* Wide characters before the terminator; bytes with it. NULL is an empty string; -1: too many. */
KO_API int ko_wcslen(const ko_wchar_t *wcs);
KO_API int ko_wcsbytes(const ko_wchar_t *wcs);
/* Characters before the terminator; or -1 with KO_EILSEQ, KO_EINVAL or KO_ENULL. */
KO_API int im_mbslen(ko_lc_t loc, const ko_mchar_t *mbs);
/* Bytes, terminator included; 0 for a NULL or invalid string. */
KO_API int ko_mbsbytes(ko_lc_t loc, const ko_mchar_t *mbs);
/* Bytes of a wide character's multibyte form, always 1 in a single-byte code set; or -1 with
 * KO_EILSEQ. */
KO_API int ko_wclen(ko_lc_t loc, ko_wchar_t wc);

/* ---- Strings ------------------------------------------------------------------------------- */

/* Writes the terminator and returns its bytes. */
KO_API int ko_mbsterm(ko_lc_t loc, ko_mchar_t *mb);
/* The bytes of the terminator if one stands at mb, else 0. */
KO_API int ko_ismbsterm(ko_lc_t loc, const ko_mchar_t *mb);
/* The position after the character at mb; or NULL with KO_EILSEQ or KO_ENULL. */
KO_API ko_mchar_t *ko_full_mbsnext(ko_lc_t loc, const ko_mchar_t *mb);
/* The start of the last character that begins before mb, a position after the start mbs; or NULL
 * with KO_EPOS, KO_EILSEQ or KO_ENULL. */
KO_API ko_mchar_t *ko_full_mbsprev(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *mb);
/* Character i of a string, counted from 0, terminator included; or NULL with KO_EINDEX, KO_EILSEQ
 * or KO_ENULL. */
KO_API ko_mchar_t *ko_full_getmbsi(ko_lc_t loc, const ko_mchar_t *mbs, int i);
/* Replace character i, or the one at the position, by the character mb; a longer one needs that
 * much more room after the string. Return the position; or NULL with KO_EINDEX, KO_EILSEQ, KO_ENULL
 * or KO_ENOMEM and the string as it was. The null character deletes the old one. */
KO_API ko_mchar_t *ko_full_putmbsi(ko_lc_t loc, ko_mchar_t *mbs, int i, const ko_mchar_t *mb);
KO_API ko_mchar_t *ko_mbcreplace(ko_lc_t loc, ko_mchar_t *position, const ko_mchar_t *mb);
/* Characters, or bytes, up to the last one that is not of class "space"; or -1 with KO_EILSEQ or
 * KO_ENULL. */
KO_API int ko_mbsntslen(ko_lc_t loc, const ko_mchar_t *mbs);
KO_API int ko_wcsntslen(ko_lc_t loc, const ko_wchar_t *wcs);
KO_API int ko_mbsntsbytes(ko_lc_t loc, const ko_mchar_t *mbs);
/* The start of the trailing spaces; NULL if there are none, or with KO_EILSEQ or KO_ENULL. */
KO_API ko_mchar_t *ko_mbsp(ko_lc_t loc, const ko_mchar_t *mbs);
/* Cut trailing spaces off and return the string; or NULL with KO_EILSEQ or KO_ENULL. */
KO_API ko_mchar_t *ko_mbsntstrunc(ko_lc_t loc, ko_mchar_t *mbs);
KO_API ko_wchar_t *ko_wcsntstrunc(ko_lc_t loc, ko_wchar_t *wcs);
/* Bytes before the terminator; or -1 with KO_EILSEQ, KO_EINVAL or KO_ENULL. */
KO_API int ko_mbsbytes_nt(ko_lc_t loc, const ko_mchar_t *mbs);
/* Copy, or append, a string or its first n characters; always terminated. Return dst; or NULL with
 * KO_EILSEQ, KO_EINDEX (n below 0) or KO_ENULL. The strings do not overlap. */
KO_API ko_mchar_t *ko_full_mbscpy(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *src);
KO_API ko_wchar_t *ko_wcscpy(ko_wchar_t *dst, const ko_wchar_t *src);
KO_API ko_mchar_t *ko_full_mbscat(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *src);
KO_API ko_wchar_t *ko_wcscat(ko_wchar_t *dst, const ko_wchar_t *src);
KO_API ko_mchar_t *ko_mbsncpy(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *src, int n);
KO_API ko_mchar_t *ko_mbsncat(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *src, int n);
KO_API ko_wchar_t *ko_wcsncpy(ko_wchar_t *dst, const ko_wchar_t *src, int n);
KO_API ko_wchar_t *ko_wcsncat(ko_wchar_t *dst, const ko_wchar_t *src, int n);
/* The position after n characters, or the terminator where that comes first; *flag becomes 0. NULL
 * with KO_EILSEQ, KO_EINDEX (n below 0) or KO_ENULL. */
KO_API ko_mchar_t *ko_getmbsinull(ko_lc_t loc, const ko_mchar_t *mbs, int n, int *flag);
/* The first, or the last, occurrence of a character; NULL with an error word of 0 where it is
 * absent, or with KO_EILSEQ or KO_ENULL. The null character is found at the terminator. */
KO_API ko_mchar_t *ko_full_mbschr(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *mb);
KO_API ko_mchar_t *ko_full_mbsrchr(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *mb);
KO_API ko_wchar_t *ko_wcschr(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t wc);
KO_API ko_wchar_t *ko_wcsrchr(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t wc);
/* The number of leading characters that are, or are not, in the set; or -1 with KO_EILSEQ, KO_ENULL
 * or KO_ENOMEM. */
KO_API int ko_full_mbsspn(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *set);
KO_API int ko_full_mbscspn(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *set);
KO_API int ko_wcsspn(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *set);
KO_API int ko_wcscspn(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *set);
/* The first character that is in the set; NULL with an error word of 0 where there is none. */
KO_API ko_mchar_t *ko_full_mbspbrk(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *set);
KO_API ko_wchar_t *ko_wcspbrk(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *set);
/* The first occurrence of a string in another; NULL with an error word of 0 where it is absent. */
KO_API ko_mchar_t *ko_full_mbsmbs(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *sub);
KO_API ko_wchar_t *ko_wcswcs(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *sub);
/* A wide copy, which the caller frees with ko_destroystring; *len_chars gets the number of its
 * characters before the terminator. NULL with KO_EILSEQ, KO_ENULL or KO_ENOMEM. */
KO_API ko_wchar_t *ko_mbstowcslen(ko_lc_t loc, const ko_mchar_t *mbs, int *len_chars);
/* Bytes from the start of the character that contains the position to the position; *len_bytes gets
 * that character's length. -1 and a length of 0 with KO_EINVAL (not in the string) or KO_EILSEQ. */
KO_API int ko_charoffset(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *position,
                         int *len_bytes);
/* Display columns: 0 for the null character, 2 for class "full_width", else 1; for a string, the
 * sum over at most n characters, or up to end. -1 with KO_EINVAL (a character that is not
 * printable), KO_EINDEX (n below 0), KO_EPOS (a bad end) or KO_ENULL. */
KO_API int ko_wcwidth(ko_lc_t loc, ko_wchar_t wc);
KO_API int ko_mbwidth(ko_lc_t loc, const ko_mchar_t *mb);
KO_API int ko_wcswidth(ko_lc_t loc, const ko_wchar_t *wcs, int n);
KO_API int ko_mbswidth(ko_lc_t loc, const ko_mchar_t *mbs, int n);
KO_API int ko_wcspwidth(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *end);
KO_API int ko_mbspwidth(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *end);

/* ---- Streams ------------------------------------------------------------------------------- */

/* A stream is whatever the host's stream hooks take. */

/* Write one character; the null character writes nothing and succeeds. Return it; or NULL, or
 * 0xFFFF, with KO_EILSEQ, KO_EINVAL (no code set) or KO_EIO. */
KO_API const ko_mchar_t *ko_fputmb(ko_lc_t loc, const ko_mchar_t *mb, void *stream);
KO_API ko_wchar_t ko_fputwc(ko_lc_t loc, ko_wchar_t wc, void *stream);
/* Write a string without its terminator. Return 0; or -1 with KO_EILSEQ (nothing of a multibyte
 * string was written) or KO_EIO. */
KO_API int ko_fputmbs(ko_lc_t loc, const ko_mchar_t *mbs, void *stream);
KO_API int ko_fputwcs(ko_lc_t loc, const ko_wchar_t *wcs, void *stream);
/* Read one character, the null character included, into mb (room for ko_mb_loc_max bytes). Return
 * its bytes, or the wide character; or -1, or 0xFFFF, with KO_EEOF (nothing left), KO_EINVAL (the
 * stream ends inside a character), KO_EILSEQ, KO_EIO or KO_EREAD. Bytes that were read are not put
 * back. */
KO_API int ko_full_fgetmb(ko_lc_t loc, ko_mchar_t *mb, void *stream);
KO_API ko_wchar_t ko_full_fgetwc(ko_lc_t loc, void *stream);
/* Read a line with its newline, and terminate it, into size bytes or wide characters. Return buf;
 * or NULL with KO_E2BIG or the error of the read. A last line without a newline is not returned. */
KO_API ko_mchar_t *ko_fgetmbs(ko_lc_t loc, ko_mchar_t *buf, int size, void *stream);
KO_API ko_wchar_t *ko_fgetwcs(ko_lc_t loc, ko_wchar_t *buf, int size, void *stream);

/* ---- Charmaps ------------------------------------------------------------------------------ */

typedef void *ko_cm_t; /* a charmap: symbolic names of a code set's characters */

/* Loads the charmap of a code-set specification from cm_dir, or from the search path for NULL.
 * registry is the path of the registry file; NULL means that the library searches for it. Returns
 * 0; or -1 with a handle, perhaps a static one, whose error word is KO_ENOMEM, KO_EFILE, KO_EOBJECT
 * or KO_EVERSION. Release the handle with ko_cm_unload in either case. */
KO_API int ko_cm_load(ko_cm_t *cm, const char *cm_spec, const char *registry, const char *cm_dir);
KO_API void ko_cm_unload(ko_cm_t cm);
KO_API const char *ko_cm_csname(ko_cm_t cm); /* owned by the charmap */
KO_API int ko_cm_srcver(ko_cm_t cm);
KO_API int ko_cm_cmpver(ko_cm_t cm);
/* Bytes of the character at mb, where limit bytes may be read; 0 for NULL and for the null
 * character; -1 with KO_EILSEQ or KO_EINVAL (cut off). */
KO_API int ko_cm_mblen(ko_cm_t cm, const ko_mchar_t *mb, int limit);
/* Bytes of the longest and the shortest character. */
KO_API int ko_mb_cm_max(ko_cm_t cm);
KO_API int ko_mb_cm_min(ko_cm_t cm);
/* Write the characters of a text as symbols "<name>" into size characters, terminator included;
 * symbols that do not fit whole are dropped. A count below 1 means up to the terminator. *src moves
 * to the end, or to the character that failed. Return the characters written, terminator included;
 * or -1 with KO_EILSEQ, KO_EINVAL, KO_ENOSYMBOL, KO_ERANGE (size below 1) or KO_ENULL. */
KO_API int ko_mbstosyms(ko_cm_t cm, char *dst, int size, const ko_mchar_t **src, int len_bytes);
KO_API int ko_wcstosyms(ko_cm_t cm, char *dst, int size, const ko_wchar_t **src, int len_chars);
/* Read symbols back, up to the end of the string, into size bytes or wide characters, terminator
 * included. *src moves past the last symbol taken. Return the bytes or wide characters written,
 * terminator included; or -1 with KO_EILSEQ (not a symbol; in wide form also a character of more
 * than two bytes), KO_ENOSYMBOL (an unknown name), KO_ERANGE (dst is too small) or KO_ENULL. What
 * was converted before a failure stays, terminated. */
KO_API int ko_symstombs(ko_cm_t cm, ko_mchar_t *dst, int size, const char **src);
KO_API int ko_symstowcs(ko_cm_t cm, ko_wchar_t *dst, int size, const char **src);
/* Writes all symbols of one character, one after the other; those that do not fit are dropped.
 * Returns the characters written, terminator included; or -1 with KO_ENOSYMBOL, KO_ERANGE or
 * KO_ENULL. */
KO_API int ko_mbtosymlist(ko_cm_t cm, char *dst, int size, const ko_mchar_t *mb, int len_bytes);

/* ---- Collation ----------------------------------------------------------------------------- */

/* Compare in the locale's order. Return -1, 0 or 1; on failure 0 with KO_ENULL, KO_EILSEQ or
 * KO_ENOMEM. The handle's mbscoll pointer is the multibyte comparer that fits the locale; the is_
 * forms serve single-byte locales with expansions, with collating elements, and with neither. */
KO_API int ko_full_wcscoll(ko_lc_t loc, const ko_wchar_t *wcs1, const ko_wchar_t *wcs2);
KO_API int im_mbscoll(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2);
KO_API int is_mbscoll_exp(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2);
KO_API int is_mbscoll_elem(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2);
KO_API int is_mbscoll_back(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2);
/* Write a sort key; comparing keys byte by byte gives the locale's order. At most maxbytes bytes
 * are written, terminator included; dst may be NULL with maxbytes 0. Return the bytes of the whole
 * key, terminator not counted: if that is maxbytes or more, dst holds the beginning of the key
 * without a terminator. In code order the key is the string itself, cut after a whole character and
 * with the code set's terminator, which is left out where it does not fit whole. -1 with KO_EILSEQ,
 * KO_ENULL or KO_ENOMEM. */
KO_API int ko_wcsxfrm(ko_lc_t loc, ko_mchar_t *dst, const ko_wchar_t *wcs, int maxbytes);
KO_API int ko_full_mbsxfrm(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs, int maxbytes);
/* Code order: the difference of the first units that differ, 0 if none do. ko_wcsncmp compares at
 * most n units. */
KO_API int ko_wcscmp(const ko_wchar_t *wcs1, const ko_wchar_t *wcs2);
KO_API int ko_wcsncmp(const ko_wchar_t *wcs1, const ko_wchar_t *wcs2, int n);
/* Byte order over at most len_chars characters of each string: below 0, 0 or above 0; 0 with
 * KO_ENULL. */
KO_API int ko_full_mbsncmp(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2,
                           int len_chars);
/* 1 if str, len characters long, begins with the preflen characters of prefix, else 0. */
KO_API int ko_wcspre(ko_lc_t loc, const ko_wchar_t *str, int len, const ko_wchar_t *prefix,
                     int preflen);
/* The Thai method: comparison and key. Deliberately, thaismoxfrm takes the text in dst and writes
 * the key to mbs. */
KO_API int thaismocoll(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2);
KO_API int thaismoxfrm(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs, int maxbytes);

/* ---- Numbers ------------------------------------------------------------------------------- */

/* Read a number in the locale's notation, after any white space. A number may begin with "-" or
 * "+"; its digits are 0-9 and letters, in base 0 or 2..36 as for strtol. No number is read after
 * other punctuation, except that a grouped real may begin with ".". With grouping, the digits are
 * grouped as the locale groups them, and an integer must be the whole rest of the text. Integers
 * that 32 bits cannot hold are clamped, and the C errno becomes ERANGE.
 *
 * A text without a number gives 0. Failures give 0x7FFFFFFF, and reals 2147483647.0:
 *   KO_EINVAL   wrong grouping, or 256 characters or more (in multibyte forms, of the whole text)
 *   KO_EEMPTY, KO_EILSEQ   multibyte forms only: an empty or invalid text; ko_mbstoul: 0xFFFFFFFF
 * end may be NULL. What *end gets:
 *   number read         the position after it; the multibyte forms count characters, so that it is
 *                       right only where every character is one byte
 *   no number           wide: *end is left alone; multibyte: NULL
 *   failure, wide       the start of the text; for grouped integers, *end is left alone
 *   failure, multibyte  NULL; for reals that fail with KO_EINVAL in a shorter text, its start */
KO_API ko_long_t ko_wcstol(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end, int base,
                           int grouping);
KO_API ko_ulong_t ko_wcstoul(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end, int base,
                             int grouping);
KO_API ko_long_t ko_mbstol(ko_lc_t loc, const ko_mchar_t *mbs, ko_mchar_t **end, int base,
                           int grouping);
KO_API ko_ulong_t ko_mbstoul(ko_lc_t loc, const ko_mchar_t *mbs, ko_mchar_t **end, int base,
                             int grouping);
KO_API double ko_wcstod(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end, int grouping);
/* mode chooses the grouping: 0 that of numbers, 1 that of money. */
KO_API double ko_wcstod_num_mon(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end, int grouping,
                                int mode);
KO_API double ko_mbstod(ko_lc_t loc, const ko_mchar_t *mbs, ko_mchar_t **end, int grouping);
/* Write a number in base 2..36, with upper-case letters. maxlen counts characters without the
 * terminator. It limits only grouped output; without grouping, dst has room for 34 characters. The
 * output is empty on failure, so dst always has room for the terminator. */
KO_API void ko_ltowcs(ko_lc_t loc, ko_wchar_t *dst, int maxlen, ko_long_t value, int base,
                      int grouping);
KO_API void ko_ultowcs(ko_lc_t loc, ko_wchar_t *dst, int maxlen, ko_ulong_t value, int base,
                       int grouping);
/* Write a number as multibyte text: at most 256 bytes, terminator included, whatever maxlen (in
 * characters) says. Return the bytes before the terminator; 0 on the failures of the wide forms; or
 * -1, and an empty output, with KO_E2BIG (more bytes), KO_EILSEQ or KO_ENULL. */
KO_API int ko_ltombs(ko_lc_t loc, ko_mchar_t *dst, int maxlen, ko_long_t value, int base,
                     int grouping);
KO_API int ko_ultombs(ko_lc_t loc, ko_mchar_t *dst, int maxlen, ko_ulong_t value, int base,
                      int grouping);

/* Formats values by directives in the manner of printf (docs/numbers.md). out has room for
 * max_chars characters, or max_bytes bytes, and a terminator. The values are int, ko_long_t (l),
 * short as int (h), double, ko_wchar_t as int (lc), and pointers to a character or string. Returns
 * the characters, or bytes, before the terminator; or -1 with KO_E2BIG, KO_EDIRECTIVE, KO_EFORMAT
 * (the format ends inside a directive), KO_EPRECISION, KO_EILSEQ, KO_ENOMEM or KO_ENULL, and the
 * output ends after what was written. The last form takes a va_list. */
KO_API int ko_wcsfnum(ko_lc_t loc, ko_wchar_t *out, int max_chars, const ko_wchar_t *format, ...);
KO_API int ko_mbsfnum(ko_lc_t loc, ko_mchar_t *out, int max_bytes, const ko_mchar_t *format, ...);
KO_API int ko_wcsfnum1(ko_lc_t loc, ko_wchar_t *out, int max_chars, const ko_wchar_t *format,
                       va_list values);
/* Read values by such a format into what the pointers point at: int or ko_long_t (l) of 32 bits,
 * short (h), double, characters and strings, for which the caller provides the room. Return the
 * number of values stored; reading may have ended early with KO_EDIRECTIVE (mismatch), KO_EFORMAT,
 * KO_EPRECISION, KO_EINVAL, KO_EILSEQ or KO_ENULL. The multibyte form returns -1 if none was
 * stored. */
KO_API int ko_wcspnum(ko_lc_t loc, const ko_wchar_t *in, const ko_wchar_t *format, ...);
KO_API int ko_mbspnum(ko_lc_t loc, const ko_mchar_t *in, const ko_mchar_t *format, ...);
KO_API int ko_wcspnum1(ko_lc_t loc, const ko_wchar_t *in, const ko_wchar_t *format,
                       va_list pointers);

/* ---- Money --------------------------------------------------------------------------------- */

/* Formats amounts, one double per directive, by directives in the manner of strfmon
 * (docs/money.md). out has room for max_chars characters, or max_bytes bytes, and a terminator.
 * Returns the characters, or bytes, before the terminator; or -1 with KO_E2BIG, KO_EMONEY (neither
 * "i" nor "n"), KO_EILSEQ or KO_ENULL, and the output ends after what was written. */
KO_API int ko_wcsfmon(ko_lc_t loc, ko_wchar_t *out, int max_chars, const ko_wchar_t *format, ...);
KO_API int ko_mbsfmon(ko_lc_t loc, ko_mchar_t *out, int max_bytes, const ko_mchar_t *format, ...);
KO_API int ko_wcsfmon1(ko_lc_t loc, ko_wchar_t *out, int max_chars, const ko_wchar_t *format,
                       va_list values);
/* Read amounts back by such a format, each into a double. Return the number of amounts stored;
 * reading may have ended early with KO_EDIRECTIVE (mismatch) or KO_EMONEY. The multibyte form
 * returns -1 if none was stored. */
KO_API int ko_wcspmon(ko_lc_t loc, const ko_wchar_t *in, const ko_wchar_t *format, ...);
KO_API int ko_mbspmon(ko_lc_t loc, const ko_mchar_t *in, const ko_mchar_t *format, ...);

/* ---- Dates and times ----------------------------------------------------------------------- */

/* Formats a Gregorian date and time by the directives of docs/time.md, in the locale's calendar.
 * out has room for maxsize characters, or bytes, terminator included; its contents are undefined
 * after a failure. Returns the characters, or bytes, before the terminator. 0 means an empty result
 * or a failure: KO_E2BIG (out is too small), KO_EDIRECTIVE (unknown letter), KO_EHOUR and its kin
 * (a field out of range), KO_ERANGE (no era), KO_EFORMAT (no format). The wide form returns -1 for
 * a bad digit after "F". */
KO_API int ko_wcsftime(ko_lc_t loc, ko_wchar_t *out, int maxsize, const ko_wchar_t *format,
                       const ko_tm_t *tm);
KO_API int ko_mbsftime(ko_lc_t loc, ko_mchar_t *out, int maxsize, const ko_mchar_t *format,
                       const ko_tm_t *tm);
/* The functions underneath, for the working form of a Gregorian time. If maxw or maxm is not NULL,
 * they write nothing; they add to *maxw the most columns and to *maxm the most bytes that the
 * format can produce, and out and tm may be NULL. */
KO_API int ko_wcsftime1(ko_lc_t loc, ko_wchar_t *out, int maxsize, const ko_wchar_t *format,
                        const ko_alt_tm_t *tm, int *maxw, int *maxm);
KO_API int ko_mbsftime1(ko_lc_t loc, ko_mchar_t *out, int maxsize, const ko_mchar_t *format,
                        const ko_alt_tm_t *tm, int *maxw, int *maxm);
/* The most bytes, or display columns, that a time format can produce; kind is 1. -1 with KO_ERANGE
 * for another kind, or with the error that the format causes. */
KO_API int ko_mbsfmtexpand(ko_lc_t loc, int kind, const ko_mchar_t *format);
KO_API int ko_wcsfmtexpand(ko_lc_t loc, int kind, const ko_wchar_t *format);

/* Reads a date and time by a format. Fields that the format does not set keep their values.
 * algorithm chooses the century of a two-digit year: 'C' the closest, 'F' the future, 'P' the past,
 * 'R' the current one. Returns the position after what was read; or NULL with the error set and *tm
 * untouched. */
KO_API ko_wchar_t *ko_wcsptime(ko_lc_t loc, const ko_wchar_t *buf, const ko_wchar_t *format,
                               ko_tm_t *tm, int algorithm);
KO_API ko_mchar_t *ko_mbsptime(ko_lc_t loc, const ko_mchar_t *buf, const ko_mchar_t *format,
                               ko_tm_t *tm, int algorithm);

/* What reading by a format found. */
typedef struct time_info {
    int era; /* index */
    int era_off;
    int century;
    int year_off;  /* the two digits read */
    int full_year; /* less 1900 */
    int hour12;
    int ampm;
    int hour24;
    int minute;
    int second;
    int usec;
    int year_day; /* from 0 */
    int month_day;
    int week_day;
    int mon;        /* from 0 */
    int monidx;     /* index of a month name */
    int year_type;  /* 1 full year, 2 two digits or century, 3 era and its year */
    int hour_type;  /* 1 24-hour clock, 2 12-hour clock */
    ko_ulong_t set; /* bits of the fields seen */
} time_info;
/* The function underneath: fills *ti, which the caller has set to zero. */
KO_API ko_wchar_t *ko_wcsptime1(ko_lc_t loc, const ko_wchar_t *buf, const ko_wchar_t *format,
                                time_info *ti, int algorithm);
/* The century of a two-digit year by the algorithm of ko_wcsptime. month and day count from 1; 0
 * stands for today's. -1 with KO_EMONTHRANGE, KO_EDAYRANGE or KO_EYEARRANGE. */
KO_API int ko_getcentury(ko_lc_t loc, int month, int day, int year, int algorithm);
/* Change what counts as today for the choice of a century, in the whole process, until
 * ko_reset_time. lineno and filename say where the call stands. */
KO_API void ko_set_current_time(int lineno, const char *filename, int day, int month, int year);
KO_API void ko_reset_time(int lineno, const char *filename);
/* Copies a group of the locale's time names: 1 days, 2 short days, 3 months, 4 short months, 5
 * eras, 6 short eras, 7 digits, 8 morning and afternoon. The caller frees *strs and each string
 * with ko_destroystring; an absent name is NULL with KO_ENULL. Returns 0; or -1: for another group
 * nothing is stored, for an empty group or with KO_ENOMEM *strs is NULL and *count 0. */
KO_API int ko_mbstimeinfo(ko_lc_t loc, int infotype, ko_mchar_t ***strs, int *count);
/* Convert a date between the Gregorian calendar and the locale's. The time of day is copied;
 * weekday, day of the year and month index are computed. Return 0; or -1 with the output
 * cleared. */
KO_API int ko_cal_gregorian_to_local(ko_lc_t loc, const ko_alt_tm_t *gregorian, ko_alt_tm_t *local);
KO_API int ko_cal_local_to_gregorian(ko_lc_t loc, const ko_alt_tm_t *local, ko_alt_tm_t *gregorian);
/* The century of two-digit years in the locale's calendar; 0 where that is the Gregorian one. */
KO_API int ko_alt_getcentury(ko_lc_t loc, int month, int day, int year, int algorithm);

/* ---- Code-set conversion --------------------------------------------------------------------- */

typedef void *ko_cv_t; /* a conversion descriptor; begins with iconv_exports */
typedef ko_cv_t ko_iconv_t;

/* The head of a descriptor. sb2sb_table, where present, translates single bytes without a call; it
 * lives as long as the descriptor. */
typedef struct iconv_exports {
    gen_exports exp;
    unsigned char *sb2sb_table; /* 256 entries or NULL */
} iconv_exports;

/* The caller's state while one text is converted in pieces. */
typedef struct conv_state {
    int first_frag;   /* non-zero on the first piece */
    int last_frag;    /* non-zero on the piece that carries the end of the text */
    int source_state; /* 0 unshifted, 1 shifted */
    int target_state;
    void *ext_state; /* belongs to a registered converter; cleared on the first piece */
} conv_state;

/* The flags of a conv_res. */
enum {
    KO_CV_TERMINATOR = 0x01, /* the character is the one that ends a text */
    KO_CV_ERROR = 0x02,
    KO_CV_SUBSTITUTE = 0x04, /* the target lacks the character; another took its place */
    KO_CV_END = 0x08         /* no more input */
};

/* What a registered converter makes of one character. */
typedef struct conv_res {
    int flags;   /* KO_CV_ values */
    int src_len; /* source bytes taken */
    int dst_len; /* target bytes produced, at most 16 */
    unsigned char dst_buf[16];
} conv_res;

/* Converts one character; left bytes may be read at src. The result is ignored. On an error the
 * converter sets the error word itself. Only its KO_CV_END tells the library that the input is used
 * up. */
typedef int (*ko_cvmfn_t)(const ko_mchar_t *src, unsigned int left, conv_state *st, conv_res *res);

typedef struct ko_cv_funcdef {
    const char *from_name; /* kept by reference: the names outlive the list */
    const char *to_name;
    ko_cvmfn_t mtom_fn;
    int src_maxlen; /* these four: bytes of a character */
    int src_minlen;
    int dst_maxlen;
    int dst_minlen;
    float exp_ratio; /* most target bytes per source byte */
} ko_cv_funcdef;

/* A host's list of converters. The host frees funcdef_arr and the list with ko_ext_free. */
typedef struct ko_cvfns {
    int num_used;
    int num_allocated; /* always 0 */
    ko_cv_funcdef *funcdef_arr;
} ko_cvfns;

/* The calls that open a conversion store a descriptor; when they fail, a static error descriptor
 * whose error word holds the reason. Release it with ko_cv_unload in every case. Where no
 * conversion is needed the handle may be NULL: the text stays as it is. */

/* Opens the object SRC_DST.cvo. Returns 0; or -1 with KO_EFILE, KO_ENOMEM or the number of a broken
 * table. */
KO_API int ko_iconv_open(ko_cv_t *cd, const char *dst, const char *src);
/* Opens an object by its file name. */
KO_API int ko_iconv_open1(ko_cv_t *cd, const char *file);
/* Opens by the code-set names of two locale specifications. Returns 1; 0 with a NULL handle for
 * equal names; or -1. */
KO_API int ko_cv_open(ko_cv_t *cd, const char *to_lc_spec, const char *from_lc_spec);
/* Opens like ko_cv_open, but tries the host's converters first (fns_ref may be NULL). Returns 0,
 * also for equal names, which get a static descriptor; or -1. */
KO_API int ko_cv_fnopen(ko_cv_t *cd, const char *to_lc_spec, const char *from_lc_spec,
                        const ko_cvfns *fns_ref);
/* Opens by the code-set numbers of two specifications, from cv_dir or the search path. Returns 1; 0
 * with a NULL handle for equal numbers; or -1. registry and cv_dir may be NULL. */
KO_API int ko_cv_load(ko_cv_t *cv, const char *to_lc_spec, const char *from_lc_spec,
                      const char *registry, const char *cv_dir);
/* Adds a converter to a list, or to a new one for NULL. Returns the list; when memory runs out,
 * NULL or the list with num_used unchanged. */
KO_API ko_cvfns *ko_add_cvfns(ko_cvfns *list, const ko_cv_funcdef *fndef);
/* Releases a descriptor. Returns 0, for static ones too; -1 for NULL. */
KO_API int ko_cv_unload(ko_cv_t cd);
/* The most target bytes per source byte, as the object states it or as its tables require,
 * whichever is more; and a target size that always suffices (at most 0x7FFFFFFF). For NULL: 1.0 and
 * inbuflen. */
KO_API double ko_iconv_expansion(ko_cv_t cd);
KO_API int ko_cv_outbuflen(ko_cv_t cd, int inbuflen);

/* Converts *inlen bytes at *inmbs, or with a NULL inlen everything through the terminator, into at
 * most *outlen bytes at *outmbs. *sub becomes 1 when a character was substituted. Returns 0; or -1
 * with KO_EILSEQ (not a character, or one without a mapping), KO_EINVAL (cut off at the end),
 * KO_E2BIG (the next character does not fit) or KO_ENULL. The pointers and counts always show what
 * was taken and written, up to the last whole character. Input and output must not overlap. A
 * terminated text ends where the object says that a terminator stands: if the object does not mark
 * the null character, or if the null byte is the second byte of a character, conversion continues
 * after it. */
KO_API int ko_miconv(ko_cv_t cd, const ko_mchar_t **inmbs, int *inlen, ko_mchar_t **outmbs,
                     int *outlen, int *sub);
/* Converts like ko_miconv, but a text in pieces. After KO_E2BIG the shift states may have changed:
 * restore *st before a retry. The sequence that ends a shifted state is written after the last
 * character, so keep that character for the last piece: an empty piece writes nothing. With a NULL
 * st this converts one whole text; with a NULL outmbs it is ko_mconvlen, which without st counts no
 * shift sequences. */
KO_API int ko_cv_mconv(ko_cv_t cd, conv_state *st, const ko_mchar_t **inmbs, int *inlen,
                       ko_mchar_t **outmbs, int *outlen, int *sub);
/* Lowers *outlen by the number of bytes that conversion would write, and fails where conversion
 * would; *inmbs, *inlen and *st change as they do in conversion. With a NULL st it counts
 * conversion without shift states. */
KO_API int ko_mconvlen(ko_cv_t cd, conv_state *st, const ko_mchar_t **inmbs, int *inlen,
                       int *outlen, int *sub);

#ifdef __cplusplus
}
#endif

#endif
