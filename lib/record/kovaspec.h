// Names of locales and code sets, and the file names they stand for.
#ifndef KOVASPEC_H
#define KOVASPEC_H

#include "locale/kovaextsa.h"

#include <stdint.h>
#include <string.h>

constexpr unsigned char path_mark = 0xFF;

// Room for the longest composed file name or setting that is handed out, terminator included.
constexpr int spec_room = 311;

constexpr int cs_name_max = 21; // characters of a code-set name

// Writes the directory and the path mark, or nothing without a directory; out has room.
void pathcat_mark(char *out, const char *dir);

// Where code-set names are looked up.
struct registry_choice {
    const char *file;     // NULL: searched for
    bool uncached;        // even while another one is in memory
    int *fault = nullptr; // gets KO_EIO or KO_ENOMEM where there is one that could not be read
};
// The number of a code-set name. KO_NO_CODESET with the reason in *error, which success leaves
// alone.
uint16_t find_cs_num(const char *name, const registry_choice &registry, int *error);
// The same for a name however it is written: without regard to case and punctuation, and by its
// number after words such as "ibm" or "cp", if the registry has a code set of that number.
uint16_t find_cs_loosely(const char *name, const registry_choice &registry, int *error);
// The numbers of two names by one reading of a registry file, which is marked. False where that
// does not tell both, or where every search leaves its lines in the log.
bool find_by_one_reading(const char *const (&names)[2], const char *registry,
                         uint16_t (&numbers)[2], file_mark *mark);
// The letters and digits of a name, in lower case; out has cs_name_max + 1.
void fold_cs_name(const char *name, char *out);
int number_in_cs_name(const char *folded); // 37 of "ibm037", -1 for none
// The file name that a specification stands for; false, with out undefined, for any other text. out
// has spec_room.
bool spec_to_fname(const char *spec, const registry_choice &registry, const char *dir, char *out);
// Identifies the registry in force where none is named: as long as two stamps are equal, every name
// has the same number.
struct registry_stamp {
    uint64_t in_memory; // how often a registry was cached, 0 if none is now
    file_mark file;     // if none is cached
};
uint64_t registry_in_memory(const state_lock &); // the stamp's in_memory
// False if the registry cannot be identified.
bool stamp_registry(registry_stamp *stamp);
// The numbers of two specifications, as ko_lc_spec2cs_num gives them, by one reading of the
// registry where that suffices. *read gets the stamp of the registry that was read, or an in_memory
// that none has if that cannot be told.
void find_two_cs_nums(const char *const (&specs)[2], const char *registry, uint16_t (&numbers)[2],
                      registry_stamp *read);
inline bool operator==(const registry_stamp &a, const registry_stamp &b) {
    if (a.in_memory || b.in_memory) return a.in_memory == b.in_memory;
    return !memcmp(&a.file, &b.file, sizeof a.file); // without padding
}

inline bool is_spec_char(int c) { return c >= 0x21 && c <= 0x7E; }
inline bool is_spec_digit(int c) { return c >= '0' && c <= '9'; }
inline bool is_spec_letter(int c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
inline char spec_lower(char c) { return c >= 'A' && c <= 'Z' ? char(c | 0x20) : c; }

#endif
