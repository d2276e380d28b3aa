/* Kova: locale and code-set support with the same answers on every machine.
 *
 * This header is the first interface of the library, for C11 and for C++20; kova_host.h adds to it
 * and changes nothing of it. Every operation takes an opaque handle; a failing one stores an error
 * number in the handle's error word (reached with ko_ext_errno) and returns the failure value its
 * declaration names. Success leaves the word alone unless the declaration says otherwise. A NULL
 * locale is KO_ENULL to calls on records and strings, which only a hook for error words can take;
 * calls on one character do not look. "long" of this interface is 32 bits everywhere.
 *
 * The library holds no lock: install hooks before use, and serialise loading, unloading, copying
 * and registry caching. A loaded locale may be read from several threads at once. */
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
    KO_EILSEQ = 1,      /* bytes that are no character, or a wide character without bytes */
    KO_ENULL = 2,       /* a string argument is null or unusable */
    KO_ENOMEM = 3,      /* memory is exhausted; a stored table is unreadable */
    KO_EINDEX = 4,      /* a character index is negative or beyond the string */
    KO_EPOS = 5,        /* a position is inside a character or before the start */
    KO_EEMPTY = 6,      /* a number text is empty */
    KO_EINVAL = 7,      /* a character is incomplete, a result does not fit, a name is malformed */
    KO_EFILE = 8,       /* a data file cannot be opened or read */
    KO_ERANGE = 9,      /* an argument is out of range */
    KO_EOBJECT = 11,    /* not a data file of the expected kind, or a damaged one */
    KO_ECODESET = 12,   /* the categories of a locale name different code sets */
    KO_EIO = 13,        /* a stream reports an error or a write is short */
    KO_E2BIG = 14,      /* an output buffer or a table is full */
    KO_EFORMAT = 15,    /* a format ends early, a time is unreadable, no registry */
    KO_EEOF = 16,       /* the stream ends before a character */
    KO_EREAD = 17,      /* a read failed without a reason */
    KO_ENOCAT = 18,     /* the source of a copy lacks the category */
    KO_EHASCAT = 19,    /* the destination of a copy already has the category */
    KO_EMONEY = 20,     /* a conversion of money that is neither "i" nor "n" */
    KO_ECHARLEN = 21,   /* a stored table's longest character exceeds the limit */
    KO_EDIRECTIVE = 22, /* an unknown directive, or input that does not match one */
    KO_ESECRANGE = 24,  /* read, but out of range */
    KO_EMINRANGE = 25,
    KO_EHOURRANGE = 26,
    KO_EDAYRANGE = 27,
    KO_EWDAYRANGE = 28,
    KO_EYDAYRANGE = 29,
    KO_EMONTHRANGE = 30,
    KO_EYEARRANGE = 31,
    KO_EFRACTION = 33,
    KO_ESEC = 34, /* not readable; in formatting, out of range */
    KO_EMIN = 35,
    KO_EHOUR = 36,
    KO_EDAY = 37,
    KO_EWDAY = 38,
    KO_EYDAY = 39,
    KO_EMONTH = 40,
    KO_EYEAR = 41,
    KO_EERA = 42,
    KO_EPRECISION = 45, /* a "." of a directive without digits */
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

/* Host hooks, the codes of ko_setextfunc. */
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
    int ko_tmp;                        /* scratch word of callers' inline paths */
    double case_conv_ratio;            /* largest growth of a string under case mapping; proved */
    double coll_char_ratio;            /* as the object says; no bound of any size */
    unsigned char *sb_toupper_table;   /* 256 entries or NULL */
    unsigned char *sb_tolower_table;   /* 256 entries or NULL */
    uint16_t *sb_ctype_table;          /* 256 class masks or NULL */
    unsigned char *sb_collation_table; /* always NULL */
    int single_byte;                   /* every character of the code set is one byte */
    int codeset_order;                 /* collation is code-set order */
    const ko_mchar_t **coll_ignored;   /* NULL-terminated, or NULL */
    ko_coll_equiv_class_map *coll_equiv_class_map; /* ended by a NULL from, or NULL */
} loc_exports;

/* Numeric and monetary conventions in the layout of POSIX lconv; strings that the locale lacks are
 * NULL, one-byte values that it lacks are 127. Grouping strings hold one byte a group size. */
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

/* The working form of a time: in a calendar with leap months the month's place in its year and the
 * index of its name differ. */
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

/* Makes a fresh empty locale record in *result. Returns 0; or -1 with a static error record (error
 * word KO_ENOMEM) in *result. Give a record back with ko_lc_unload. */
KO_API int ko_create_null_locale_2(ko_lc_t *result);

/* Resets category 2..7 of a record to its empty state, without freeing what it held, and clears
 * the category's names; of LC_MESSAGES the names alone. Returns 0; or -1 with KO_ERANGE (category)
 * or KO_ENOMEM (the record stays releasable). */
KO_API int ko_make_null_category(ko_lc_t loc, int category);

/* Frees what category 2..7 of a record owns, clears it and its names. */
KO_API void ko_free_category(ko_lc_t loc, int category);

/* Gives back one load of a shared record, or releases another record, without the data of its
 * categories, which copies may share: they stay allocated. Static error records and NULL are left
 * alone. */
KO_API void ko_free_nonshared_loc(ko_lc_t loc);

/* Copies one category, or all with KO_LC_ALL, by reference: the source must outlive the copy, and
 * the copy is given back with ko_free_nonshared_loc. The source must hold the category and the
 * destination must not. Returns 0; or -1 with KO_ENOCAT, KO_EHASCAT or KO_ERANGE in the
 * destination's error word and nothing copied. A code-set mismatch stores KO_ECODESET but is no
 * failure. */
KO_API int ko_copy_cat(ko_lc_t dst, ko_lc_t src, int category);

/* Makes a record that holds the locale object default.lco in all categories. Names of the record
 * stay empty. dir is put before the file name as it stands; with NULL, or when there is no such
 * file, default.lco is searched. Returns 0; or -1 with the reason in (*result)'s error word (0 for
 * an unknown collation method): a static record when there is no memory for one or no file
 * (KO_EFILE), else the partly filled record. Give *result back with ko_lc_unload in every case. */
KO_API int ko_createlocale_2(ko_lc_t *result);
KO_API int ko_createlocale2_2(ko_lc_t *result, const char *dir);

/* Loads one category, or all with KO_LC_ALL, into a record. name is a locale object's file name,
 * "native", "" (the environment decides), or a setting of all categories as this call returns it;
 * NULL only queries. Returns the resulting setting, which the caller frees with ko_destroystring;
 * or NULL with the error word set, categories loaded before the failure staying loaded: KO_ERANGE
 * (category, or a name above 311 bytes), KO_EOBJECT, KO_EVERSION, KO_ECALENDAR, KO_ENOMEM, a
 * table's number, or, where the word was 0, KO_ECODESET (no such file). Success stores KO_ECODESET
 * when the categories' code sets differ. */
KO_API char *ko_setlocale_2(ko_lc_t loc, int category, const char *name);

/* Hands out the shared record of a locale specification such as "en_US.8859-1@euro", or of what
 * ko_setlocale_2 takes, loading it at first. registry names the registry file and dir the folder of
 * the objects; NULL for either: it is searched. A record is shared by its file name, whatever dir
 * says. Returns 0; or -1 with the reason in (*result)'s error word: those of ko_setlocale_2, also
 * KO_ECODESET for differing code sets. Give *result back with ko_lc_unload in either case. */
KO_API int ko_lc_load(ko_lc_t *result, const char *spec, const char *registry, const char *dir);

/* Gives one load back; the last one frees the record. NULL and static error records are left
 * alone. */
KO_API void ko_lc_unload(ko_lc_t loc);

/* Writes the list of shared records to the log. */
KO_API void ko_display_lc_node_list(void);

/* ---- Names, registry, file naming ---------------------------------------------------------- */

/* The number of a code set by its name. registry: path of the registry file, or NULL to search
 * it. Returns KO_NO_CODESET with KO_EFORMAT (no registry), KO_EOBJECT (malformed number) or
 * KO_EINVAL (unknown name). A name of digits stands for itself. */
KO_API uint16_t ko_cs_name2cs_num(void *handle, const char *name, const char *registry);

/* Reads the registry into memory (its bytes and 8 KB at most), or puts the built-in one in force
 * when that fails, with the reason in the handle's error word. */
KO_API void ko_cache_registry(void *handle, const char *registry);

/* The code-set number of a locale specification, a compound one, or a bare code-set name. */
KO_API uint16_t ko_lc_spec2cs_num(void *handle, const char *spec, const char *registry);

/* The locale object file name of a specification; out has room for 311 bytes, terminator
 * included. dir (may be NULL) goes into the names of a compound specification. Returns 0; or -1
 * with KO_EINVAL, also for a longer name. */
KO_API int ko_lc_spec2lc_fname(void *handle, const char *spec, char *out, const char *registry,
                               const char *dir);

/* The message directory of a specification: ten characters and a terminator. Returns 0; or -1 with
 * KO_EINVAL. */
KO_API int ko_lc_spec2msg_dname(void *handle, const char *spec, char *out, const char *registry,
                                const char *dir);

/* The file name of the conversion object between two code sets; out has room for the directory and
 * 14 bytes more. */
KO_API void ko_cs_nums2cv_fname(void *handle, uint16_t from, uint16_t to, char *out,
                                const char *dir);

/* Composes "ll_TT.hhhh[@mod]" into out (17 bytes and a terminator at most). handle and modifier
 * may be NULL. Returns 0; or -1 with KO_EINVAL. */
KO_API int ko_lc_pieces2lc_spec(void *handle, const char *lang_terr, const char *cs_num,
                                const char *modifier, char *out);

/* Splits a locale object file name into "ll_TT" (6 bytes), the decimal code-set number (6 bytes)
 * and the modifier (5 bytes). handle may be NULL. Returns 0; or -1, mostly with KO_EINVAL. */
KO_API int ko_lc_fname2lc_pieces(void *handle, const char *fname, char *lang_terr, char *cs_num,
                                 char *modifier);

/* ---- Host hooks and services --------------------------------------------------------------- */

typedef void (*ko_extfn_t)(void);

/* Installs a hook, cast to ko_extfn_t, under a KO_EXT_ code; NULL empties the slot. Each hook has
 * the type of the ko_ext_ function of its name. Returns 0; or -1 with KO_ERANGE in the handle
 * (which may be NULL). A host that brings streams installs every stream hook. */
KO_API int ko_setextfunc(void *handle, int code, ko_extfn_t fn);

/* Each calls its hook, or the standard library where none is installed. A stream is whatever the
 * open hook returned. ko_ext_errno gives the address of a handle's error word. Without a hook,
 * ko_ext_getenv finds no variable in a process with raised rights (a set-user-id program). */
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
/* Month 1..12, day of month and four-digit year of today. Returns 0. */
KO_API int ko_ext_currdate(uint16_t *mdy);
KO_API int ko_ext_currtime(ko_tm_t *tm);

/* Frees a string that the library returned; NULL is left alone. */
KO_API void ko_destroystring(void *string);

/* Reads the diagnostic switches (profile file, then KOVALOG and KOVADEBUG); the first message does
 * so by itself. */
KO_API void ko_init_debug(void);
/* Writes a line to the log, and to a pop-up, where switched on. On POSIX systems the log is
 * kova.log in $HOME: a regular file of the process's own user, of one name and mode 0600, reached
 * over no link; without HOME, and in a process with raised rights, there is none. Control
 * characters are written as "\x" and two digits; only newlines and tabs of text stay. */
KO_API void ko_message(const char *text);

/* Finds a data file, below KO_PATH or the installation root, and opens it for reading. dir and
 * subdir name its place, as "lc" and "11". Returns the stream; or NULL with KO_EFILE in the handle
 * (which may be NULL). The second form opens and is read with the standard library. Without an open
 * hook, only regular files are found. */
KO_API void *ko_path_search(void *handle, const char *name, const char *dir, const char *subdir);
KO_API void *ko_path_search_no_ext(void *handle, const char *name, const char *dir,
                                   const char *subdir);
/* Opens a composed name, each path mark (0xFF) of which becomes a backslash. */
KO_API void *ko_open_file(void *handle, const char *name);

/* ---- Information queries ------------------------------------------------------------------- */

/* A locale's string for a KO_ item; it belongs to the record. NULL where the locale has none, or
 * with KO_ERANGE for a month beyond the calendar's. */
KO_API const ko_mchar_t *ko_nl_langinfo(ko_lc_t loc, unsigned item);
KO_API const ko_wchar_t *ko_wc_nl_langinfo(ko_lc_t loc, unsigned item);
/* The record's conventions; they change when a category does. NULL of NULL. */
KO_API const koconv *ko_localeconv(ko_lc_t loc);
KO_API const char *ko_version(void);
KO_API const char *ko_cm_version(void);
KO_API const char *ko_lc_version(void);
KO_API const char *ko_cv_version(void);
/* Longest and shortest character of the locale's code set, in bytes; 0 and 2 without LC_CTYPE. */
KO_API int ko_mb_loc_max(ko_lc_t loc);
KO_API int ko_mb_loc_min(ko_lc_t loc);

/* ---- Multibyte look-up tables -------------------------------------------------------------- */

/* Writes one data item to a stream as text; 0, or negative on failure. */
typedef int (*ko_item_printer)(void *stream, const void *item);
/* Reads one data item of data_size bytes into dest; 0, or negative on failure. */
typedef int (*ko_item_reader)(void *stream, void *dest, int data_size);

/* Makes an empty table of data_size-byte items; default_item (NULL: zero bytes) is copied. NULL
 * without memory. Free it with free_multi. */
KO_API void *create_multi(unsigned data_size, unsigned flags, const void *default_item);
/* Adds a character, or overwrites its item; a NULL item stands for the default. Returns 0; or -1
 * for a character that is or has a prefix in the table, a bad length, a compressed table or
 * lack of memory. */
KO_API int insert_desc_multi(const char_desc *desc, const void *item, void *table);
/* Look-ups: the character's item, which lives as long as the table; NULL where there is none. With
 * gen they store KO_EILSEQ for what is no character and KO_EINVAL for one cut off by the limit.
 * *len_bytes gets the bytes taken, a bad one included. */
KO_API void *retrieve_desc_multi(const char_desc *desc, void *table);
KO_API void *retrieve_text_multi(const ko_mchar_t *text, void *table, int *len_bytes,
                                 gen_exports *gen);
KO_API void *retrieve_text_multi_nl(const ko_mchar_t *text, void *table, gen_exports *gen);
/* Bytes of the character, 0 for an invalid one. */
KO_API int retrieve_text_multi_nv(const ko_mchar_t *text, void *table, gen_exports *gen);
KO_API void *retrieve_text_multi_limit(const ko_mchar_t *text, void *table, int limit,
                                       int *len_bytes, gen_exports *gen);
/* For tables in which every first byte is a prefix: no validity test. KO_EINVAL for a limit below
 * two bytes. */
KO_API void *retrieve_text_doub_limit(const ko_mchar_t *text, void *table, int limit,
                                      gen_exports *gen);
KO_API void *retrieve_wchar_multi_nl(gen_exports *gen, ko_wchar_t wc, void *table);
KO_API int multi_max_length(void *table);
KO_API int multi_min_length(void *table);
/* Reason of the last failed fscanf_multi: KO_ENOMEM or KO_ECHARLEN, else 0. */
KO_API int multi_err(void *table);
KO_API void multi_node_count(void *table, int *data_arrays, int *flag_arrays, int *offset_arrays);
/* Shares equal arrays; look-ups stay the same, inserts fail from here on. Returns 0; or -1 without
 * memory and the table as it was. */
KO_API int compress_multi(void *table);
/* Writes the table's text form through ko_ext_fwrite. Returns 0; or -1 when a write fails. */
KO_API int fprintf_multi(void *stream, void *table, ko_item_printer printer);
/* Reads a text form into a fresh table; characters of more than max_len bytes are refused. The
 * stream is left right behind the table. Returns 0; or -1 with the reason in multi_err and a table
 * without characters, to be freed or read into again. */
KO_API int fscanf_multi(void *stream, void *table, int max_len, ko_item_reader reader);
KO_API void free_multi(void *table);

/* ---- Classes and case ---------------------------------------------------------------------- */

/* The mask of a class name, 0 when unknown. */
KO_API ko_ctype_t ko_ctype(ko_lc_t loc, const char *name);
/* Non-zero when the character has a bit of the mask; no character stores KO_EILSEQ. */
KO_API int im_iswctype(ko_lc_t loc, ko_wchar_t wc, ko_ctype_t mask);
KO_API int im_ismctype(ko_lc_t loc, const ko_mchar_t *mb, ko_ctype_t mask);
/* The case partner, or the character itself (with KO_EILSEQ where it is none). */
KO_API ko_wchar_t im_towupper(ko_lc_t loc, ko_wchar_t wc);
KO_API ko_wchar_t im_towlower(ko_lc_t loc, ko_wchar_t wc);
/* Write the partner's bytes, or the character's, without terminator. Source length in the high
 * byte of the result, bytes written in the low one (0xFF: the partner has no bytes, KO_EILSEQ). */
KO_API uint16_t im_tomupper(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mb);
KO_API uint16_t im_tomlower(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mb);
/* Map a string; dst has room for ko_case_conv_outbuflen of the source's bytes and a terminator,
 * and may be the source where no character grows. Return bytes written before the terminator; or
 * -1 with KO_EILSEQ and dst unterminated, or with KO_ENULL. */
KO_API int ko_tombsupper(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs);
KO_API int ko_tombslower(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs);
/* The wide forms return 0; or -1 with KO_EILSEQ and dst unterminated, or with KO_ENULL. */
KO_API int ko_towcsupper(ko_lc_t loc, ko_wchar_t *dst, const ko_wchar_t *wcs);
KO_API int ko_towcslower(ko_lc_t loc, ko_wchar_t *dst, const ko_wchar_t *wcs);
/* Bytes that case mapping of len_bytes bytes may need, terminator not counted: at least as many,
 * at most 0x7FFFFFFF. */
KO_API int ko_case_conv_outbuflen(ko_lc_t loc, int len_bytes);

/* ---- Multibyte and wide conversion, lengths ------------------------------------------------ */

/* The character at mb, of which len_bytes bytes may be read. Returns its bytes, 0 for the null
 * character or a NULL mb; or -1 with KO_EILSEQ or KO_EINVAL (cut off). */
KO_API int ko_full_mbtowc(ko_lc_t loc, ko_wchar_t *wc, const ko_mchar_t *mb, int len_bytes);
KO_API int ko_full_mblen(ko_lc_t loc, const ko_mchar_t *mb, int len_bytes);
/* Writes up to 4 bytes and returns their number; or -1 with KO_EILSEQ. sl_wctomb walks the
 * collation table instead of the class table. */
KO_API int ko_full_wctomb(ko_lc_t loc, ko_mchar_t *dst, ko_wchar_t wc);
KO_API int sl_wctomb(ko_lc_t loc, ko_mchar_t *dst, ko_wchar_t wc);
/* Convert at most n characters. Return wide characters before the terminator, which is written
 * only when met; -1 with KO_ENULL, and im_ with KO_EILSEQ. */
KO_API int is_mbstowcs(ko_lc_t loc, ko_wchar_t *dst, const ko_mchar_t *mbs, int n);
KO_API int im_mbstowcs(ko_lc_t loc, ko_wchar_t *dst, const ko_mchar_t *mbs, int n);
/* Convert into at most n bytes, stopping before a character that does not fit. Return bytes before
 * the terminator, which is written only when met; or -1 with KO_EILSEQ or KO_ENULL. */
KO_API int is_wcstombs(ko_lc_t loc, ko_mchar_t *dst, const ko_wchar_t *wcs, int n);
KO_API int ko_full_wcstombs(ko_lc_t loc, ko_mchar_t *dst, const ko_wchar_t *wcs, int n);
KO_API int ko_wcslen(const ko_wchar_t *wcs);
/* Bytes of a wide string, terminator included. */
KO_API int ko_wcsbytes(const ko_wchar_t *wcs);
/* Characters before the terminator; or -1 with KO_EILSEQ, KO_EINVAL or KO_ENULL. */
KO_API int im_mbslen(ko_lc_t loc, const ko_mchar_t *mbs);
/* Bytes with the terminator; 0 for a NULL or invalid string. */
KO_API int ko_mbsbytes(ko_lc_t loc, const ko_mchar_t *mbs);
/* Bytes of a wide character's multibyte form, always 1 in a single-byte code set; or -1 with
 * KO_EILSEQ. */
KO_API int ko_wclen(ko_lc_t loc, ko_wchar_t wc);

/* ---- Strings ------------------------------------------------------------------------------- */

/* Writes the terminator and returns its bytes. */
KO_API int ko_mbsterm(ko_lc_t loc, ko_mchar_t *mb);
/* Bytes of the terminator when one stands at mb, else 0. */
KO_API int ko_ismbsterm(ko_lc_t loc, const ko_mchar_t *mb);
/* The position behind the character at mb; or NULL with KO_EILSEQ or KO_ENULL. */
KO_API ko_mchar_t *ko_full_mbsnext(ko_lc_t loc, const ko_mchar_t *mb);
/* The start of the last character before mb, which lies behind the start mbs; or NULL with KO_EPOS,
 * KO_EILSEQ or KO_ENULL. */
KO_API ko_mchar_t *ko_full_mbsprev(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *mb);
/* Character i of a string, from 0, the terminator included; or NULL with KO_EINDEX, KO_EILSEQ or
 * KO_ENULL. */
KO_API ko_mchar_t *ko_full_getmbsi(ko_lc_t loc, const ko_mchar_t *mbs, int i);
/* Put the character mb in the place of character i, or of the one at the position; a longer one
 * needs that much room behind the string. Return the position; or NULL with KO_EINDEX, KO_EILSEQ,
 * KO_ENULL or KO_ENOMEM and the string as it was. The null character takes the old one away. */
KO_API ko_mchar_t *ko_full_putmbsi(ko_lc_t loc, ko_mchar_t *mbs, int i, const ko_mchar_t *mb);
KO_API ko_mchar_t *ko_mbcreplace(ko_lc_t loc, ko_mchar_t *position, const ko_mchar_t *mb);
/* Characters, or bytes, up to the last one that is not of class "space"; or -1. */
KO_API int ko_mbsntslen(ko_lc_t loc, const ko_mchar_t *mbs);
KO_API int ko_wcsntslen(ko_lc_t loc, const ko_wchar_t *wcs);
KO_API int ko_mbsntsbytes(ko_lc_t loc, const ko_mchar_t *mbs);
/* The start of the trailing spaces, NULL without any. */
KO_API ko_mchar_t *ko_mbsp(ko_lc_t loc, const ko_mchar_t *mbs);
/* Cut trailing spaces off and return the string; or NULL. */
KO_API ko_mchar_t *ko_mbsntstrunc(ko_lc_t loc, ko_mchar_t *mbs);
KO_API ko_wchar_t *ko_wcsntstrunc(ko_lc_t loc, ko_wchar_t *wcs);
/* Bytes before the terminator; or -1. */
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
/* The position behind n characters, or the terminator where it comes first. *flag becomes 0. */
KO_API ko_mchar_t *ko_getmbsinull(ko_lc_t loc, const ko_mchar_t *mbs, int n, int *flag);
/* The first, or the last, place of a character; NULL with an error word of 0 where it is absent,
 * or with KO_EILSEQ or KO_ENULL. The null character is found at the terminator. */
KO_API ko_mchar_t *ko_full_mbschr(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *mb);
KO_API ko_mchar_t *ko_full_mbsrchr(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *mb);
KO_API ko_wchar_t *ko_wcschr(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t wc);
KO_API ko_wchar_t *ko_wcsrchr(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t wc);
/* Leading characters that are, or are not, in the set; or -1 with KO_EILSEQ, KO_ENULL or
 * KO_ENOMEM. */
KO_API int ko_full_mbsspn(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *set);
KO_API int ko_full_mbscspn(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *set);
KO_API int ko_wcsspn(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *set);
KO_API int ko_wcscspn(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *set);
/* The first character that is in the set; NULL with an error word of 0 where there is none. */
KO_API ko_mchar_t *ko_full_mbspbrk(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *set);
KO_API ko_wchar_t *ko_wcspbrk(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *set);
/* The first place of a string in another; NULL with an error word of 0 where it is absent. */
KO_API ko_mchar_t *ko_full_mbsmbs(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *sub);
KO_API ko_wchar_t *ko_wcswcs(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *sub);
/* A wide copy, which the caller frees with ko_destroystring; *len_chars gets its characters before
 * the terminator. NULL with KO_EILSEQ, KO_ENULL or KO_ENOMEM. */
KO_API ko_wchar_t *ko_mbstowcslen(ko_lc_t loc, const ko_mchar_t *mbs, int *len_chars);
/* Bytes between the start of the character that holds the position and the position; *len_bytes
 * gets that character's length. -1 and a length of 0 with KO_EINVAL (not in the string) or
 * KO_EILSEQ. */
KO_API int ko_charoffset(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *position,
                         int *len_bytes);
/* Display columns: 0 for the null character, 2 for class "full_width", else 1; of a string the sum
 * over at most n characters, or before the end. -1 with KO_EINVAL (a character that is not
 * printable), KO_EINDEX (n below 0), KO_EPOS (a bad end) or KO_ENULL. */
KO_API int ko_wcwidth(ko_lc_t loc, ko_wchar_t wc);
KO_API int ko_mbwidth(ko_lc_t loc, const ko_mchar_t *mb);
KO_API int ko_wcswidth(ko_lc_t loc, const ko_wchar_t *wcs, int n);
KO_API int ko_mbswidth(ko_lc_t loc, const ko_mchar_t *mbs, int n);
KO_API int ko_wcspwidth(ko_lc_t loc, const ko_wchar_t *wcs, const ko_wchar_t *end);
KO_API int ko_mbspwidth(ko_lc_t loc, const ko_mchar_t *mbs, const ko_mchar_t *end);

/* ---- Streams ------------------------------------------------------------------------------- */

/* A stream is what the host's stream hooks take. */

/* Write one character; the null character writes nothing and succeeds. Return it; or NULL, 0xFFFF,
 * with KO_EILSEQ, KO_EINVAL (no code set) or KO_EIO. */
KO_API const ko_mchar_t *ko_fputmb(ko_lc_t loc, const ko_mchar_t *mb, void *stream);
KO_API ko_wchar_t ko_fputwc(ko_lc_t loc, ko_wchar_t wc, void *stream);
/* Write a string without its terminator. Return 0; or -1 with KO_EILSEQ (of a multibyte string
 * nothing was written) or KO_EIO. */
KO_API int ko_fputmbs(ko_lc_t loc, const ko_mchar_t *mbs, void *stream);
KO_API int ko_fputwcs(ko_lc_t loc, const ko_wchar_t *wcs, void *stream);
/* Read one character, the null character included, into mb (room for ko_mb_loc_max bytes). Return
 * its bytes, or the character; or -1, 0xFFFF, with KO_EEOF (nothing left), KO_EINVAL (the stream
 * ends inside a character), KO_EILSEQ, KO_EIO or KO_EREAD; what was read is gone. */
KO_API int ko_full_fgetmb(ko_lc_t loc, ko_mchar_t *mb, void *stream);
KO_API ko_wchar_t ko_full_fgetwc(ko_lc_t loc, void *stream);
/* Read a line with its newline, and terminate it, into size bytes or wide characters. Return buf;
 * or NULL with KO_E2BIG or the error of the read: a last line without newline is not returned. */
KO_API ko_mchar_t *ko_fgetmbs(ko_lc_t loc, ko_mchar_t *buf, int size, void *stream);
KO_API ko_wchar_t *ko_fgetwcs(ko_lc_t loc, ko_wchar_t *buf, int size, void *stream);

/* ---- Charmaps ------------------------------------------------------------------------------ */

typedef void *ko_cm_t; /* a charmap: symbolic names of a code set's characters */

/* Loads the charmap of a code-set specification from cm_dir, or from the search path for NULL.
 * registry: path of the registry file, or NULL to search it. Returns 0; or -1 with a handle,
 * perhaps a static one, whose error word tells KO_ENOMEM, KO_EFILE, KO_EOBJECT or KO_EVERSION. Give
 * the handle back with ko_cm_unload in either case. */
KO_API int ko_cm_load(ko_cm_t *cm, const char *cm_spec, const char *registry, const char *cm_dir);
KO_API void ko_cm_unload(ko_cm_t cm);
KO_API const char *ko_cm_csname(ko_cm_t cm); /* the charmap's own; lives as long as it */
KO_API int ko_cm_srcver(ko_cm_t cm);
KO_API int ko_cm_cmpver(ko_cm_t cm);
/* Bytes of the character at mb, of which limit bytes may be read; 0 for NULL and for the null
 * character; -1 with KO_EILSEQ or KO_EINVAL (cut off). */
KO_API int ko_cm_mblen(ko_cm_t cm, const ko_mchar_t *mb, int limit);
/* Longest and shortest character, in bytes. */
KO_API int ko_mb_cm_max(ko_cm_t cm);
KO_API int ko_mb_cm_min(ko_cm_t cm);
/* Write the characters of a text as symbols "<name>" into size characters, terminator included;
 * what does not fit is dropped by whole symbols. A count below 1: up to the terminator. *src moves
 * to the end, or to the character that failed. Return the characters written with the terminator;
 * or -1 with KO_EILSEQ, KO_EINVAL, KO_ENOSYMBOL, KO_ERANGE (size below 1) or KO_ENULL. */
KO_API int ko_mbstosyms(ko_cm_t cm, char *dst, int size, const ko_mchar_t **src, int len_bytes);
KO_API int ko_wcstosyms(ko_cm_t cm, char *dst, int size, const ko_wchar_t **src, int len_chars);
/* Read symbols back, up to the end of the string, into size bytes or wide characters, terminator
 * included. *src moves behind the last symbol taken. Return what was written with the terminator;
 * or -1 with KO_EILSEQ (no symbol, or wide: a character of more than two bytes), KO_ENOSYMBOL (an
 * unknown name), KO_ERANGE (dst is too small) or KO_ENULL; what was converted stays, terminated. */
KO_API int ko_symstombs(ko_cm_t cm, ko_mchar_t *dst, int size, const char **src);
KO_API int ko_symstowcs(ko_cm_t cm, ko_wchar_t *dst, int size, const char **src);
/* All symbols of one character, one behind the other; those that do not fit are dropped. Returns
 * the characters written with the terminator; or -1 with KO_ENOSYMBOL, KO_ERANGE or KO_ENULL. */
KO_API int ko_mbtosymlist(ko_cm_t cm, char *dst, int size, const ko_mchar_t *mb, int len_bytes);

/* ---- Collation ----------------------------------------------------------------------------- */

/* Compare under the locale: -1, 0 or 1. 0 with KO_ENULL, KO_EILSEQ or KO_ENOMEM on failure. The
 * handle's mbscoll pointer names the multibyte comparer that fits the locale; the is_ forms serve
 * single-byte locales with expansions, with collating elements, or with neither. */
KO_API int ko_full_wcscoll(ko_lc_t loc, const ko_wchar_t *wcs1, const ko_wchar_t *wcs2);
KO_API int im_mbscoll(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2);
KO_API int is_mbscoll_exp(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2);
KO_API int is_mbscoll_elem(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2);
KO_API int is_mbscoll_back(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2);
/* Write a sort key whose byte order is the comparison's order: at most maxbytes bytes with the
 * terminator. Return the bytes of the whole key, terminator not counted (maxbytes or more: dst is
 * cut; of a two-byte code set in code order also with maxbytes 1: nothing is written then, no
 * terminator either); dst may be NULL with maxbytes 0. -1 with KO_EILSEQ, KO_ENULL or KO_ENOMEM. */
KO_API int ko_wcsxfrm(ko_lc_t loc, ko_mchar_t *dst, const ko_wchar_t *wcs, int maxbytes);
KO_API int ko_full_mbsxfrm(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs, int maxbytes);
/* Code order: the difference of the first differing units. */
KO_API int ko_wcscmp(const ko_wchar_t *wcs1, const ko_wchar_t *wcs2);
KO_API int ko_wcsncmp(const ko_wchar_t *wcs1, const ko_wchar_t *wcs2, int n);
/* Byte order over at most len_chars characters of each string. */
KO_API int ko_full_mbsncmp(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2,
                           int len_chars);
/* 1 when str, len characters long, begins with the preflen characters of prefix. */
KO_API int ko_wcspre(ko_lc_t loc, const ko_wchar_t *str, int len, const ko_wchar_t *prefix,
                     int preflen);
/* The Thai method: compare, and transform. thaismoxfrm takes the text in dst and writes to mbs. */
KO_API int thaismocoll(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2);
KO_API int thaismoxfrm(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs, int maxbytes);

/* ---- Numbers ------------------------------------------------------------------------------- */

/* Read a number in the locale's notation. end (may be NULL) gets the position behind it; the
 * multibyte forms count characters. Where there is no number the wide forms leave it alone and the
 * multibyte forms store NULL; where a number fails reals and ungrouped integers store the start.
 * Digits are 0-9 and letters; base 0 and 2..36 as strtol takes them. With grouping the digits are
 * grouped as the locale does; an integer must then be the whole rest of the text. Punctuation in
 * front is taken for a sign; only "-" and "+" are part of a number. Results are clamped, with the C
 * errno ERANGE, to 32 bits. Failures: KO_EINVAL (grouping, or 256 characters and more; in multibyte
 * form of the whole text, and NULL is stored) and, of the multibyte forms, KO_EEMPTY or KO_EILSEQ,
 * with 0x7FFFFFFF; unsigned multibyte forms 0xFFFFFFFF for KO_EEMPTY and KO_EILSEQ; reals
 * 2147483647.0. */
KO_API ko_long_t ko_wcstol(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end, int base,
                           int grouping);
KO_API ko_ulong_t ko_wcstoul(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end, int base,
                             int grouping);
KO_API ko_long_t ko_mbstol(ko_lc_t loc, const ko_mchar_t *mbs, ko_mchar_t **end, int base,
                           int grouping);
KO_API ko_ulong_t ko_mbstoul(ko_lc_t loc, const ko_mchar_t *mbs, ko_mchar_t **end, int base,
                             int grouping);
KO_API double ko_wcstod(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end, int grouping);
/* mode 0: the grouping of numbers; 1: of money. */
KO_API double ko_wcstod_num_mon(ko_lc_t loc, const ko_wchar_t *wcs, ko_wchar_t **end, int grouping,
                                int mode);
KO_API double ko_mbstod(ko_lc_t loc, const ko_mchar_t *mbs, ko_mchar_t **end, int grouping);
/* Write a number in base 2..36, letters in upper case. maxlen counts characters without the
 * terminator and binds only with grouping; without it the output takes up to 34. The output is
 * empty on failure, so it has room for one in every case. */
KO_API void ko_ltowcs(ko_lc_t loc, ko_wchar_t *dst, int maxlen, ko_long_t value, int base,
                      int grouping);
KO_API void ko_ultowcs(ko_lc_t loc, ko_wchar_t *dst, int maxlen, ko_ulong_t value, int base,
                       int grouping);
/* The same in multibyte form, at most 256 bytes with the terminator whatever maxlen (in characters)
 * says. Return the bytes before the terminator, 0 on failure; -1, and an empty output, with
 * KO_E2BIG (more bytes), KO_EILSEQ or KO_ENULL. */
KO_API int ko_ltombs(ko_lc_t loc, ko_mchar_t *dst, int maxlen, ko_long_t value, int base,
                     int grouping);
KO_API int ko_ultombs(ko_lc_t loc, ko_mchar_t *dst, int maxlen, ko_ulong_t value, int base,
                      int grouping);

/* Formats values by directives in the manner of printf (docs/numbers.md). out has room for max
 * characters, or bytes, and a terminator. Values: int, ko_long_t (l), short as int (h), double,
 * ko_wchar_t as int (lc), pointers to a character or string. Returns the characters, or bytes,
 * before the terminator; or -1 with KO_E2BIG, KO_EDIRECTIVE, KO_EFORMAT (the format ends inside a
 * directive), KO_EPRECISION, KO_EILSEQ, KO_ENOMEM or KO_ENULL, the output terminated behind what
 * was written. The last form takes a va_list. */
KO_API int ko_wcsfnum(ko_lc_t loc, ko_wchar_t *out, int max_chars, const ko_wchar_t *format, ...);
KO_API int ko_mbsfnum(ko_lc_t loc, ko_mchar_t *out, int max_bytes, const ko_mchar_t *format, ...);
KO_API int ko_wcsfnum1(ko_lc_t loc, ko_wchar_t *out, int max_chars, const ko_wchar_t *format,
                       va_list values);
/* Read values by such a format into what the pointers name: int or ko_long_t (l) of 32 bits, short
 * (h), double, characters and strings, for which the caller has room. Return the values stored; the
 * walk may have ended early with KO_EDIRECTIVE (mismatch), KO_EFORMAT, KO_EPRECISION, KO_EINVAL,
 * KO_EILSEQ or KO_ENULL. The multibyte form returns -1 where none was stored. */
KO_API int ko_wcspnum(ko_lc_t loc, const ko_wchar_t *in, const ko_wchar_t *format, ...);
KO_API int ko_mbspnum(ko_lc_t loc, const ko_mchar_t *in, const ko_mchar_t *format, ...);
KO_API int ko_wcspnum1(ko_lc_t loc, const ko_wchar_t *in, const ko_wchar_t *format,
                       va_list pointers);

/* ---- Money --------------------------------------------------------------------------------- */

/* Formats amounts, one double a directive, by directives in the manner of strfmon (docs/money.md).
 * out has room for max characters, or bytes, and a terminator. Returns the characters, or bytes,
 * before the terminator; or -1 with KO_E2BIG, KO_EMONEY (neither "i" nor "n"), KO_EILSEQ or
 * KO_ENULL, the output terminated behind what was written. */
KO_API int ko_wcsfmon(ko_lc_t loc, ko_wchar_t *out, int max_chars, const ko_wchar_t *format, ...);
KO_API int ko_mbsfmon(ko_lc_t loc, ko_mchar_t *out, int max_bytes, const ko_mchar_t *format, ...);
KO_API int ko_wcsfmon1(ko_lc_t loc, ko_wchar_t *out, int max_chars, const ko_wchar_t *format,
                       va_list values);
/* Read amounts back by such a format, each into a double. Return the amounts stored; the walk may
 * have ended early with KO_EDIRECTIVE (mismatch) or KO_EMONEY. The multibyte form returns -1 where
 * none was stored. */
KO_API int ko_wcspmon(ko_lc_t loc, const ko_wchar_t *in, const ko_wchar_t *format, ...);
KO_API int ko_mbspmon(ko_lc_t loc, const ko_mchar_t *in, const ko_mchar_t *format, ...);

/* ---- Dates and times ----------------------------------------------------------------------- */

/* Formats a Gregorian date and time by the directives of docs/time.md, in the locale's calendar.
 * out has room for maxsize characters, or bytes, terminator included; undefined after a failure.
 * Returns the characters, or bytes, before the terminator. 0 is failure or an empty result:
 * KO_E2BIG out is too small, KO_EDIRECTIVE unknown letter, KO_EHOUR and its kin a field out of
 * range, KO_ERANGE no era, KO_EFORMAT no format; -1 of the wide form: a bad digit behind "F". */
KO_API int ko_wcsftime(ko_lc_t loc, ko_wchar_t *out, int maxsize, const ko_wchar_t *format,
                       const ko_tm_t *tm);
KO_API int ko_mbsftime(ko_lc_t loc, ko_mchar_t *out, int maxsize, const ko_mchar_t *format,
                       const ko_tm_t *tm);
/* The workers. With maxw or maxm they write nothing and add to *maxw the most columns and to *maxm
 * the most bytes that the format can produce; out and tm may then be NULL. */
KO_API int ko_wcsftime1(ko_lc_t loc, ko_wchar_t *out, int maxsize, const ko_wchar_t *format,
                        const ko_alt_tm_t *tm, int *maxw, int *maxm);
KO_API int ko_mbsftime1(ko_lc_t loc, ko_mchar_t *out, int maxsize, const ko_mchar_t *format,
                        const ko_alt_tm_t *tm, int *maxw, int *maxm);
/* The most bytes, or display columns, that a time format can produce; kind is 1. -1 with KO_ERANGE
 * for another kind, or with what is wrong with the format. */
KO_API int ko_mbsfmtexpand(ko_lc_t loc, int kind, const ko_mchar_t *format);
KO_API int ko_wcsfmtexpand(ko_lc_t loc, int kind, const ko_wchar_t *format);

/* Reads a date and time by a format. Fields that the format does not set keep their values. The
 * century of a two-digit year follows algorithm: 'C' closest, 'F' future, 'P' past, 'R' this one.
 * Returns the position behind what was read; or NULL with the error and *tm untouched. */
KO_API ko_wchar_t *ko_wcsptime(ko_lc_t loc, const ko_wchar_t *buf, const ko_wchar_t *format,
                               ko_tm_t *tm, int algorithm);
KO_API ko_mchar_t *ko_mbsptime(ko_lc_t loc, const ko_mchar_t *buf, const ko_mchar_t *format,
                               ko_tm_t *tm, int algorithm);

/* What a format read. */
typedef struct time_info {
    int era; /* index */
    int era_off;
    int century;
    int year_off;  /* two digits */
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
    int monidx;     /* of a month name */
    int year_type;  /* 1 full year, 2 two digits or century, 3 era */
    int hour_type;  /* 1 of 24 hours, 2 of 12 */
    ko_ulong_t set; /* bits of the fields seen */
} time_info;
/* The worker: fills *ti, which the caller zeroed. */
KO_API ko_wchar_t *ko_wcsptime1(ko_lc_t loc, const ko_wchar_t *buf, const ko_wchar_t *format,
                                time_info *ti, int algorithm);
/* The century of a two-digit year, month and day from 1 (0: today's), by the rule above; or -1 with
 * KO_EMONTHRANGE, KO_EDAYRANGE or KO_EYEARRANGE. */
KO_API int ko_getcentury(ko_lc_t loc, int month, int day, int year, int algorithm);
/* Give the century rule another today until it is reset; of the whole process. lineno and filename
 * tell the caller. */
KO_API void ko_set_current_time(int lineno, const char *filename, int day, int month, int year);
KO_API void ko_reset_time(int lineno, const char *filename);
/* Copies a group of the locale's time names: 1 days, 2 short days, 3 months, 4 short months, 5
 * eras, 6 short eras, 7 digits, 8 morning and afternoon. *strs and each string are freed with
 * ko_destroystring; an absent name is NULL with KO_ENULL. Returns 0; or -1 (another group: nothing
 * stored; an empty group, or KO_ENOMEM: NULL and 0). */
KO_API int ko_mbstimeinfo(ko_lc_t loc, int infotype, ko_mchar_t ***strs, int *count);
/* Convert a date between the Gregorian calendar and the locale's. Times are copied, weekday, day of
 * the year and month index computed. Return 0; or -1 with the output cleared. */
KO_API int ko_cal_gregorian_to_local(ko_lc_t loc, const ko_alt_tm_t *gregorian, ko_alt_tm_t *local);
KO_API int ko_cal_local_to_gregorian(ko_lc_t loc, const ko_alt_tm_t *local, ko_alt_tm_t *gregorian);
/* The century of two-digit years in the locale's calendar where it is not Gregorian, else 0. */
KO_API int ko_alt_getcentury(ko_lc_t loc, int month, int day, int year, int algorithm);

/* ---- Code-set conversion --------------------------------------------------------------------- */

typedef void *ko_cv_t; /* a conversion descriptor; begins with iconv_exports */
typedef ko_cv_t ko_iconv_t;

/* The head of a descriptor. sb2sb_table, where present, translates single bytes without a call; it
 * is gone with the descriptor. */
typedef struct iconv_exports {
    gen_exports exp;
    unsigned char *sb2sb_table; /* 256 entries or NULL */
} iconv_exports;

/* The caller's state of one text that is converted in pieces. */
typedef struct conv_state {
    int first_frag;   /* non-zero on the first piece */
    int last_frag;    /* non-zero on the piece that carries the end of the text */
    int source_state; /* 0 unshifted, 1 shifted */
    int target_state;
    void *ext_state; /* of a registered converter; cleared on the first piece */
} conv_state;

/* The flags of a conv_res. */
enum {
    KO_CV_TERMINATOR = 0x01, /* the character is the one that ends a text */
    KO_CV_ERROR = 0x02,
    KO_CV_SUBSTITUTE = 0x04, /* the target has no such character, only one in its place */
    KO_CV_END = 0x08         /* no more input */
};

/* What a registered converter makes of one character. */
typedef struct conv_res {
    int flags;   /* of KO_CV_TERMINATOR and the like */
    int src_len; /* source bytes taken */
    int dst_len; /* target bytes made, at most 16 */
    unsigned char dst_buf[16];
} conv_res;

/* Converts one character of the left bytes at src. Its result is ignored; on error it sets the
 * error word itself. It alone says, with KO_CV_END, when the input is used up. */
typedef int (*ko_cvmfn_t)(const ko_mchar_t *src, unsigned int left, conv_state *st, conv_res *res);

typedef struct ko_cv_funcdef {
    const char *from_name; /* kept by reference: the names outlive the list */
    const char *to_name;
    ko_cvmfn_t mtom_fn;
    int src_maxlen; /* bytes of a character */
    int src_minlen;
    int dst_maxlen;
    int dst_minlen;
    float exp_ratio; /* most target bytes of one source byte */
} ko_cv_funcdef;

/* A host's list of converters. The host frees funcdef_arr and the list with ko_ext_free. */
typedef struct ko_cvfns {
    int num_used;
    int num_allocated; /* always 0 */
    ko_cv_funcdef *funcdef_arr;
} ko_cvfns;

/* The opening calls store a descriptor, or a static error descriptor, whose error word holds the
 * reason; it is given back with ko_cv_unload in every case. Where no conversion is needed the
 * handle may be NULL: the text stays as it is. */

/* Opens the object SRC_DST.cvo. 0; or -1 with KO_EFILE, KO_ENOMEM or a table's number. */
KO_API int ko_iconv_open(ko_cv_t *cd, const char *dst, const char *src);
/* Opens an object by its file name. */
KO_API int ko_iconv_open1(ko_cv_t *cd, const char *file);
/* Opens by the code-set names of two locale specifications. 1; 0 with a NULL handle for equal
 * names; or -1. */
KO_API int ko_cv_open(ko_cv_t *cd, const char *to_lc_spec, const char *from_lc_spec);
/* The same with the host's converters first (fns_ref may be NULL). 0, equal names (with a static
 * descriptor) included; or -1. */
KO_API int ko_cv_fnopen(ko_cv_t *cd, const char *to_lc_spec, const char *from_lc_spec,
                        const ko_cvfns *fns_ref);
/* Opens by the code-set numbers of two specifications, from cv_dir or the search path. 1; 0 with a
 * NULL handle for equal numbers; or -1. registry and cv_dir may be NULL. */
KO_API int ko_cv_load(ko_cv_t *cv, const char *to_lc_spec, const char *from_lc_spec,
                      const char *registry, const char *cv_dir);
/* Adds a converter to a list, or to a new one for NULL. Returns the list; without memory NULL, or
 * the list with num_used unchanged. */
KO_API ko_cvfns *ko_add_cvfns(ko_cvfns *list, const ko_cv_funcdef *fndef);
/* Releases a descriptor. 0, for static ones too; -1 for NULL. */
KO_API int ko_cv_unload(ko_cv_t cd);
/* Most target bytes of one source byte, as the object states it or as its tables make it, whichever
 * is more; and a target size that is always enough (at most 0x7FFFFFFF). For NULL: 1.0 and the
 * length itself. */
KO_API double ko_iconv_expansion(ko_cv_t cd);
KO_API int ko_cv_outbuflen(ko_cv_t cd, int inbuflen);

/* Converts *inlen bytes at *inmbs, or with a NULL inlen up to and with the terminator, into at most
 * *outlen bytes at *outmbs. *sub becomes 1 when a character was substituted. Returns 0; or -1 with
 * KO_EILSEQ (no character, or unmapped), KO_EINVAL (cut off at the end), KO_E2BIG (the next
 * character does not fit) or KO_ENULL. The pointers and counts always tell what was taken and
 * written, up to the last whole character. Input and output must not overlap. A terminated text
 * ends where the object has a terminator: without one for the null character, or where it is the
 * second byte of a character, conversion runs on behind it. */
KO_API int ko_miconv(ko_cv_t cd, const ko_mchar_t **inmbs, int *inlen, ko_mchar_t **outmbs,
                     int *outlen, int *sub);
/* The same for a text in pieces. After KO_E2BIG the shift states may have moved: restore *st before
 * a retry. The end of the shifted state is written behind the last character, so keep that one for
 * the last piece: an empty one writes nothing. A NULL st converts one whole text; but with a NULL
 * outmbs this is ko_mconvlen, which then counts without shift sequences. */
KO_API int ko_cv_mconv(ko_cv_t cd, conv_state *st, const ko_mchar_t **inmbs, int *inlen,
                       ko_mchar_t **outmbs, int *outlen, int *sub);
/* Lowers *outlen by the bytes that conversion would write, with the same errors; *inmbs, *inlen and
 * *st move as in conversion. A NULL st counts stateless conversion. */
KO_API int ko_mconvlen(ko_cv_t cd, conv_state *st, const ko_mchar_t **inmbs, int *inlen,
                       int *outlen, int *sub);

#ifdef __cplusplus
}
#endif

#endif
