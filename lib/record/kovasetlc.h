// The locale record: all categories of one locale side by side.
#ifndef KOVASETLC_H
#define KOVASETLC_H

#include "record/kovacoll_data.h"
#include "record/kovactype_data.h"
#include "record/kovafmt_data.h"
#include "record/kovatmlib_data.h"

#include "locale/kovaextsa.h"
#include "locale/kovaobject.h"

constexpr int codeset_room = 21; // a code-set name of 20 characters
constexpr int locname_room = 32;
constexpr int setting_room = 312; // a setting or file name of 311 characters

struct portable_set; // see kovaportable.h
struct host_map;     // see kovahost_map.h

// How ko_open_locale made a record; nothing of it is set in others.
struct record_origin {
    char *root;    // where all its files are; NULL: searched for
    bool confined; // all names it reads
    bool verified; // all files it reads
};

struct kovaloc {
    loc_exports exp;
    void *ctype; // mb_decode: class masks; also the definition of the code set
    int num_user_bits;
    user_bit *user_bits;
    void *cconv;          // mb_decode: indexes into cconv_arr
    conv_elem *cconv_arr; // from index 1
    void *coll;           // mb_decode: rows
    coll_data coll_info;
    monum monum_info;
    ltime ltime_info;
    koconv koconv_info;
    char codeset[6][codeset_room]; // by category less 2; empty: absent
    ko_wchar_t w_codeset[6][codeset_room];
    char locname[6][locname_room];
    ko_wchar_t w_locname[6][locname_room];
    // Derived and bookkeeping data after the listed fields.
    int num_conv_elems;   // entries of cconv_arr are 1..num_conv_elems
    ctype_flat *chars;    // of LC_CTYPE
    case_rows upper_rows; // of the single-byte case tables; no memory of their own
    case_rows lower_rows;
    coll_pairs pairs;             // of the class table, for collation; no memory of their own
    coll_flat *weights;           // of LC_COLLATE
    number_marks marks;           // of LC_NUMERIC
    money_forms money;            // of LC_MONETARY
    const portable_set *portable; // places of the portable characters; NULL: those of ASCII
    unsigned copied;              // category_bit: data that another record owns
    int status;                   // of ko_lc_status, see status_of
    record_origin origin;
    object_facts order_facts; // of the object of LC_COLLATE
    // Of data that were read and of which the tables are not derived yet, see kovashare.h; 0: none.
    uint64_t ctype_hash, coll_hash;
    const host_map *map; // between its code set and Unicode, where that is not "unicode"
    int map_error;       // why there is none; 0: none was asked for
};

inline kovaloc *record(ko_lc_t loc) { return static_cast<kovaloc *>(loc); }

constexpr bool is_category(int category) {
    return category >= KO_LC_CTYPE && category <= KO_LC_MESSAGES;
}
constexpr unsigned category_bit(int category) { return 1U << category; }

// By category number; the first two are empty.
extern const char *const category_markers[8]; // the line before a section of a locale object
extern const char *const category_params[8];  // name in the environment and in settings

// The first trouble of a record, 0 for none. Loads in other threads ask for that of any record in
// the list.
inline std::atomic_ref<int> status_of(kovaloc *loc) { return std::atomic_ref<int>(loc->status); }
inline void note_trouble(kovaloc *loc, int number) {
    int none = 0;
    status_of(loc).compare_exchange_strong(none, number, std::memory_order_relaxed);
}
// At the end of its block, notes in the record whether memory was short in the meantime.
struct memory_watch {
    kovaloc *loc;
    unsigned before;
    explicit memory_watch(kovaloc *watched) : loc(watched), before(failed_allocations()) {}
    memory_watch(const memory_watch &) = delete;
    memory_watch &operator=(const memory_watch &) = delete;
    ~memory_watch() {
        if (failed_allocations() != before) note_trouble(loc, KO_ENOMEM);
    }
};

// A handle's error word; 0 if the host's hook has none for the handle.
inline int error_of(void *handle) {
    int *const word = ko_ext_errno(handle);
    return word ? std::atomic_ref<int>(*word).load(std::memory_order_relaxed) : 0;
}
// Restores a handle's error word at the end of the block. Only for handles that no other thread has
// yet, or whose record the call may change.
struct errno_guard {
    int *word;
    int kept;
    explicit errno_guard(void *handle) : word(ko_ext_errno(handle)), kept(word ? *word : 0) {}
    errno_guard(const errno_guard &) = delete;
    errno_guard &operator=(const errno_guard &) = delete;
    ~errno_guard() {
        if (word) *word = kept;
    }
};

inline bool has_characters(const kovaloc *loc) {
    return loc->ctype && multi_max_length(loc->ctype) >= 1;
}

#endif
