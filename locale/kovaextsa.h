// The hook table: every service of the host, or of the standard library where no hook is set.
#ifndef KOVAEXTSA_H
#define KOVAEXTSA_H

#include "kova.h"

#include <stdio.h>

#include <atomic>

// Holds the lock of the library's own lists and caches while it lives. No hook is called and no
// file is read in the meantime, so hooks may call whatever they like, and a fork always finds the
// lists whole. Not recursive; functions that need it held take it as an argument.
struct state_lock {
    const bool taken; // else the process has one thread, which needs none
    state_lock();
    ~state_lock();
    state_lock(const state_lock &) = delete;
    state_lock &operator=(const state_lock &) = delete;
};

bool hook_set(int code);     // is a hook installed under the code?
bool stream_hooks_set(void); // is any hook installed that opens, reads or closes streams?
// How many allocations of the process have failed so far. A caller that finds the number changed
// knows that memory was short.
unsigned failed_allocations(void);

// Does the process run with rights that the user who started it may not have? Then its environment
// is ignored, no log is written and names are confined (see kova_host.h).
bool has_raised_rights(void);
void assume_raised_rights(int raised); // in tests: 1, 0, or -1 for what the system says

// Are names confined to the places of data files (ko_secure_names)? Every load asks.
extern std::atomic<signed char> confinement; // 1, 0, or -1 while it is not decided
bool decide_confinement(void);
inline bool names_confined(void) {
    const signed char confined = confinement.load(std::memory_order_relaxed);
    return confined < 0 ? decide_confinement() : confined;
}

// Opens a path, given in the system's own notation, with the standard library after translating it
// to the platform's notation.
FILE *std_open(const char *path, const char *mode);
// Opens a data file in the same way, for reading; only regular files are opened.
FILE *std_open_data(const char *path);
// Distinguishes a file's present state from every earlier one.
struct file_mark {
    uint64_t device, inode, size;
    int64_t written_s, written_ns; // the contents
    int64_t changed_s, changed_ns; // the contents, the name or the rights
};
// Marks the file that std_open_data would open. *firm is false where finding an equal mark later
// would not prove that the file still opens and reads the same. Returns false where there is no
// such file.
bool std_mark(const char *path, file_mark *mark, bool *firm);
// Calls each with the names in a directory, in any order, until it returns something other than 0.
// Returns that, 0, KO_EFILE (there is no such directory) or KO_EIO (it cannot be read).
int std_list_names(const char *path, int (*each)(void *user, const char *name), void *user);
// Opens a data file as std_open_data does, without a stream, which takes longer; marks it. Returns
// its number, -1 for none.
int std_open_plain(const char *path, file_mark *mark);
// Reads up to most bytes; -1 after an error.
ptrdiff_t std_read(int file, void *to, size_t most);
// Reads the first bytes of a file of which nothing has been read, and goes back there; returns how
// many.
size_t std_peek(int file, void *to, size_t most);
void std_close(int file);
// An open data file: a stream, where the host has stream hooks, else the system's number and the
// file's mark.
struct data_file {
    void *stream;
    int number;
    file_mark mark;
    bool failed; // reading it has

    bool is_open() const { return stream || number >= 0; }
};
constexpr data_file no_data_file = {.stream = nullptr, .number = -1, .mark = {}, .failed = false};
// A whole file as memory that is only read.
struct file_view {
    const unsigned char *bytes;
    size_t size;
};
// Maps a data file. False if that is not possible, or if others than its owner, who is the
// process's user or the system's, may write it: what is mapped must not change.
bool std_map(const char *path, file_view *view);
void std_unmap(const file_view *view);
// The next byte of a stream that no other thread uses, read without the stream's lock where the
// platform allows it.
inline int std_getc(FILE *file) {
#ifdef _WIN32
    return getc(file);
#else
    return getc_unlocked(file);
#endif
}
// Reads an open standard stream to its end into one block of the host's memory; *size gets the
// number of bytes. NULL without memory or after a read error.
unsigned char *std_read_all(FILE *file, size_t *size);
// The same for an open file of about so many bytes; tells read errors.
unsigned char *std_read_all_plain(int file, uint64_t about, size_t *size, bool *failed);

#endif
