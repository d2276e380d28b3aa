// The hook table: every service of the host, or of the standard library where no hook is set.
#ifndef KOVAEXTSA_H
#define KOVAEXTSA_H

#include "kova.h"

#include <stdio.h>

#include <atomic>

bool hook_set(int code);     // is a hook installed under the code?
bool stream_hooks_set(void); // is any hook installed that opens, reads or closes streams?
// Allocations of the process that failed so far: who finds another number than before knows that
// memory was short.
unsigned failed_allocations(void);

// Does the process run with rights that whoever started it may not have? Then no variable of its
// environment counts, no log is written and names are confined (see kova_host.h).
bool has_raised_rights(void);
void assume_raised_rights(int raised); // in tests: 1, 0, or -1 for what the system says

// Do names stay below the places of data files (ko_secure_names)? Asked for at every load.
extern std::atomic<signed char> confinement; // 1, 0, or -1 while it is not decided
bool decide_confinement(void);
inline bool names_confined(void) {
    const signed char confined = confinement.load(std::memory_order_relaxed);
    return confined < 0 ? decide_confinement() : confined;
}

// Opens a path in the system's own notation with the standard library, translated to the
// platform's notation.
FILE *std_open(const char *path, const char *mode);
// The same for reading data: a regular file alone, whatever the path leads to.
FILE *std_open_data(const char *path);
// What tells one state of a file from every other that it has had.
struct file_mark {
    uint64_t device, inode, size;
    int64_t written_s, written_ns; // the contents
    int64_t changed_s, changed_ns; // the contents, the name or the rights
};
// Marks a path that std_open_data would open. *firm is false where an equal mark later would
// not prove that it opens and reads the same then. False where there is no such file.
bool std_mark(const char *path, file_mark *mark, bool *firm);
// The next byte of a stream that nobody else uses: without the stream's lock where there is such a
// call.
inline int std_getc(FILE *file) {
#ifdef _WIN32
    return getc(file);
#else
    return getc_unlocked(file);
#endif
}
// Reads an open standard stream to its end into one block of the host's memory. NULL without
// memory or after a read error; *size gets the bytes.
unsigned char *std_read_all(FILE *file, size_t *size);

#endif
