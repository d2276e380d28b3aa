// Code-set conversion: the descriptor of one pair of code sets and its derived tables.
#ifndef KOVACVLIB_H
#define KOVACVLIB_H

#include "locale/kovamulti.h"
#include "record/kovaspec.h"

// Bits of a conversion entry's first byte; the low three bits count its target bytes.
constexpr unsigned cv_terminator = 0x08;
constexpr unsigned cv_plain = 0x10; // no meaning of its own: makes a mapped entry's flags non-zero
constexpr unsigned cv_substitute = 0x20;
constexpr unsigned cv_shifted_target = 0x40;
constexpr unsigned cv_source_shift = 0x80; // the source sequence is itself a shift
constexpr unsigned cv_flags = 0xF8;
constexpr unsigned cv_length = 0x07;
constexpr int cv_max_target = 4;
constexpr int cv_max_source = 4;
constexpr int cv_endless = 0x7FFFFFFF; // the count of a text that a terminator ends

struct iconv_rec;
struct cv_shared;
typedef int (*conv_fn)(iconv_rec *cv, const ko_mchar_t **inmbs, int *inlen, ko_mchar_t **outmbs,
                       int *outlen, int *sub);
typedef int (*sconv_fn)(iconv_rec *cv, conv_state *st, const ko_mchar_t **inmbs, int *inlen,
                        ko_mchar_t **outmbs, int *outlen, int *sub);

// A conversion table flattened to rows of words, of 32 bits if the targets have at most three
// bytes, else of 64. The low bytes are the target bytes. The top byte is the entry's first byte
// with the bit of cv_plain inverted: it then marks what is not a character, is unmapped, or is a
// prefix. Most texts consist only of words without flags. A prefix names the row of the next byte:
// a full row of 256 words or, in a table of longer characters where all following bytes lie in
// 0x80..0xBF (the trail bytes of UTF-8), a short row of 64. The last row consists of unmapped
// words.
constexpr unsigned cv_special = cv_plain;
constexpr unsigned cv_full_row = cv_special | 7; // the top bytes of a prefix
constexpr unsigned cv_short_row = cv_special | 6;
constexpr unsigned cv_row_index = 0xFFFFFF; // the bits below the top byte, in units of 64 words
struct cv_trails {
    const void *two[256];          // the short row after a first byte, the last row for none
    const void *const *leads[256]; // after the first of three bytes: 64 rows, by the second
    const void *rows[17 * 64];     // for 0xE0 to 0xEF, then for none
};
// The longest target, by the number of source bytes less one and by the target's shift state; -1:
// none.
typedef int cv_longest[cv_max_source][2];
struct cv_flat {
    const void *words;
    bool owns_words; // else they lie in an image
    bool wide;       // words of 64 bits
    int most;        // the most target bytes per source byte, rounded up
    cv_longest longest;
    const void *none;        // the last row
    const void *second[256]; // the full row after a first byte, the last row for none
    cv_trails *trails;       // of UTF-8; NULL for other code sets
    bool one_byte;           // no character has more
    bool ascii;              // 0x00..0x7F map to themselves, unshifted and exactly, except
    uint64_t odd[2];         // at most two bytes, each repeated eight times; 0x80 for none
};

// Byte-to-byte translation.
struct cv_bytes;
// Translates n bytes, or with stop only those before the first special one; returns how many.
typedef size_t (*cv_translate)(const cv_bytes *b, unsigned char *out, const unsigned char *in,
                               size_t n, bool stop);
struct cv_bytes {
    unsigned char map[256];
    unsigned char special[256]; // 0xFF: unmapped, substituted, or a terminator other than NUL
    bool has_special;
    cv_translate translate;
};

// What a conversion by rules of its own works on.
struct cv_span {
    const ko_mchar_t *in, *end; // end is NULL if a terminator ends the text
    ko_mchar_t *out;
    size_t room;
    bool sub;
    bool cut_off = false; // nothing follows directly, yet the text goes on
};
// Converts a piece of a text. Returns 0 or the error; the span and the state are those after the
// last complete character in both cases, also where there is no room for the next one.
typedef int (*cv_rules)(const iconv_rec *cv, conv_state *st, cv_span *s);

constexpr int cv_legs_max = 5;

struct iconv_rec {
    iconv_exports exports;
    int source_is_stateful;
    int target_is_stateful;
    int target_si_len;
    int target_so_len;
    int source_si_len;
    int source_so_len;
    int target_min_len;
    int target_max_len;
    int source_shift_min_len;
    int source_shift_max_len;
    int source_noshift_min_len;
    int source_noshift_max_len;
    int needs_error_checking;
    float exp_ratio;
    unsigned char target_si[4];
    unsigned char target_so[4];
    unsigned char source_si[4];
    unsigned char source_so[4];
    mb_decode *conv_noshift;
    mb_decode *conv_shift;
    ko_cvmfn_t mtom_fn;
    conv_fn miconv_fp;
    sconv_fn smiconv_fp;
    // Derived when the descriptor is opened; NULL without memory (then the tables are walked).
    cv_flat *flat_noshift;
    cv_flat *flat_shift;
    cv_bytes *bytes;
    // Of conversions without a table of their own; NULL for others.
    cv_rules own;
    unsigned char forms[2]; // encodings of Unicode, source and target
    bool keeps_mark, writes_mark;
    bool looks_ahead;             // what follows a character decides on it
    bool quiet;                   // leaves its failures out of the log and the hook's error word
    bool by_words;                // the trees have no entries: those of the words count
    iconv_rec *legs[cv_legs_max]; // of a way through UTF-8, or what the rules make use of
    const void *scheme;           // by which the rules go
    cv_shared *shared;            // whose tables these are; NULL: its own
};

// Sharing (kovacvlib_share.cpp). What an opening depends on, but for the object's file.
struct cv_request {
    registry_stamp registry;
    size_t size;
    char names[512]; // of the code sets, then the variables of the search, each with its terminator
};
// False where the opening must not share.
bool prepare_request(cv_request *request, const char *to, const char *from);
iconv_rec *take_shared(const cv_request &request); // a new descriptor, NULL if none can be made
// Lets others share the tables of a descriptor that has just been opened by this registry.
void offer_shared(const cv_request &request, const registry_stamp &read, iconv_rec *cv);
bool give_back_shared(const iconv_rec *cv); // true if the tables are to be freed

// A new, empty descriptor; NULL without memory.
iconv_rec *make_descriptor();
// The routine behind the pointer of descriptors with rules of their own.
int own_smiconv(iconv_rec *, conv_state *, const ko_mchar_t **, int *, ko_mchar_t **, int *, int *);
// Gives a descriptor rules of its own.
void set_own_rules(iconv_rec *cv, cv_rules rules);
// Takes lengths of characters, shift codes and shift states: as source as one converts from, as
// target as last converts to.
void take_ends(iconv_rec *cv, const iconv_rec *one, const iconv_rec *last);
// Converts by any descriptor as by rules of its own; its error word is left alone.
int convert_span(const iconv_rec *cv, conv_state *st, cv_span *s);

// Reads an object into a new descriptor and prepares it; -1 with the reason in its error word.
int read_cv_object(text_in *in, iconv_rec *cv);
// Takes the tables of an object, opened by this path, from an image, and prepares the descriptor.
// False, with the descriptor as it was, where no image can have them.
bool take_mapped_object(const data_file &file, const char *path, iconv_rec *cv);

inline iconv_rec *descriptor(ko_cv_t cd) { return static_cast<iconv_rec *>(cd); }

// The routines of kovacvlib_conv.cpp, as a descriptor's pointers name them.
int mb_miconv(iconv_rec *, const ko_mchar_t **, int *, ko_mchar_t **, int *, int *);
int sb_miconv(iconv_rec *, const ko_mchar_t **, int *, ko_mchar_t **, int *, int *);
int sb_miconv_noerr(iconv_rec *, const ko_mchar_t **, int *, ko_mchar_t **, int *, int *);
int alg_miconv(iconv_rec *, const ko_mchar_t **, int *, ko_mchar_t **, int *, int *);
int mb_smiconv(iconv_rec *, conv_state *, const ko_mchar_t **, int *, ko_mchar_t **, int *, int *);
int db_smiconv(iconv_rec *, conv_state *, const ko_mchar_t **, int *, ko_mchar_t **, int *, int *);
int alg_smiconv(iconv_rec *, conv_state *, const ko_mchar_t **, int *, ko_mchar_t **, int *, int *);
// The end of a text in an encoding of Unicode that its first null character ends, which belongs to
// it; NULL for other sources, whose tables know it.
const ko_mchar_t *text_end(const iconv_rec *cv, const ko_mchar_t *text);
// Measures by rules of its own: the room shrinks by what conversion would write.
int measure_own(const iconv_rec *cv, conv_state *st, cv_span *s);

// Derived tables (kovacvlib_flat.cpp).
cv_flat *build_cv_flat(const mb_decode *table);
void drop_cv_lead(cv_flat *flat, unsigned byte); // leaves characters that begin so to the rules
void free_cv_flat(cv_flat *flat);
size_t count_cv_words(const mb_decode *table); // without the last row; 0 for a tree too deep
// The rows of an image, with the last one; they are checked unless they are proved. NULL without
// memory or if they are no rows.
cv_flat *use_cv_words(const void *words, size_t count, bool wide, const cv_longest &longest,
                      bool proved);

// Tables from an image (kovacvlib_image.cpp). False, with the descriptor as it was, without memory
// or where they are damaged.
struct image_tables; // see kovaimage.h
bool take_cv_image(const image_tables &tables, iconv_rec *cv);
// The entry of the character of so many bytes at in: all zeros if it is not mapped.
constexpr int cv_entry_room = 8;
const unsigned char *cv_word_entry(const cv_flat *flat, const ko_mchar_t *in, int taken,
                                   unsigned char *entry);

// Translation of bytes (kovacvlib_bytes.cpp).
cv_bytes *build_cv_bytes(const mb_decode *table);
// The translations that this processor can run, fastest last; returns how many.
constexpr int cv_translates_max = 3;
int cv_translates(cv_translate *kinds);
// The entry of a byte at the first level, whatever its flags; never NULL.
inline const unsigned char *cv_direct(const mb_decode *table, unsigned byte) {
    return node_item(table, table->root, byte);
}

#endif
