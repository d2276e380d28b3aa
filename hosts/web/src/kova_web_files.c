/* The files of the packs as those of the C library. Opening, size and reading are asked of the
 * page, which holds the packs; there is no directory, no variable and nothing to write to. */
#include "kova_web.h"

#include <errno.h>
#include <malloc.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <wasi/api.h>

#include <sys/stat.h>

/* A number of 3 or more for an open file of this path, or -1. */
PAGE(open) int page_open(const char *path);
PAGE(close) void page_close(int file);
PAGE(size) int page_size(int file);
/* Copies the bytes from a place on, as many as there are; returns their number. */
PAGE(read) int page_read(int file, int at, void *to, int room);
/* Today's date: year * 10000 + month * 100 + day. */
PAGE(today) int page_today(void);

/* A place in each file that is open. */
enum { files_max = 32, first_file = 3 };
static int places[files_max];

static int refuse(int error) {
    errno = error;
    return -1;
}

static int is_file(int file) { return file >= first_file && file < files_max; }

int open(const char *path, int flags, ...) {
    (void)flags;
    const int file = page_open(path);
    if (!is_file(file)) {
        if (file >= files_max) page_close(file);
        return refuse(ENOENT);
    }
    places[file] = 0;
    return file;
}

int fcntl(int file, int command, ...) {
    (void)command;
    return is_file(file) ? 0 : refuse(EBADF);
}

int fstat(int file, struct stat *is) {
    if (!is_file(file)) return refuse(EBADF);
    memset(is, 0, sizeof *is);
    is->st_mode = S_IFREG | S_IRUSR | S_IRGRP | S_IROTH;
    is->st_nlink = 1;
    is->st_ino = 1;
    is->st_size = page_size(file);
    return 0;
}

int stat(const char *path, struct stat *is) {
    const int file = open(path, 0);
    if (file < 0) return -1;
    fstat(file, is);
    page_close(file);
    return 0;
}

/* Nothing is written, so that there is nobody to whom a file could belong. */
int fchmod(int file, mode_t mode) {
    (void)file, (void)mode;
    return refuse(EPERM);
}
int isatty(int file) { return (void)file, 0; }
uid_t getuid(void) { return 0; }
uid_t geteuid(void) { return 0; }
gid_t getgid(void) { return 0; }
gid_t getegid(void) { return 0; }
char *getenv(const char *name) { return (void)name, NULL; }

/* ---- What streams call ---- */

__wasi_errno_t __wasi_fd_read(__wasi_fd_t file, const __wasi_iovec_t *parts, size_t count,
                              __wasi_size_t *made) {
    *made = 0;
    if (!is_file((int)file)) return __WASI_ERRNO_BADF;
    for (size_t i = 0; i < count; ++i) {
        const int got = page_read((int)file, places[file], parts[i].buf, (int)parts[i].buf_len);
        places[file] += got;
        *made += (__wasi_size_t)got;
        if (got < (int)parts[i].buf_len) break;
    }
    return __WASI_ERRNO_SUCCESS;
}

__wasi_errno_t __wasi_fd_seek(__wasi_fd_t file, __wasi_filedelta_t by, __wasi_whence_t whence,
                              __wasi_filesize_t *place) {
    if (!is_file((int)file)) return __WASI_ERRNO_BADF;
    const int size = page_size((int)file);
    const int64_t base = whence == __WASI_WHENCE_SET   ? 0
                         : whence == __WASI_WHENCE_CUR ? places[file]
                                                       : size;
    if (by < -base || by > size - base) return __WASI_ERRNO_INVAL;
    places[file] = (int)(base + by);
    *place = (__wasi_filesize_t)places[file];
    return __WASI_ERRNO_SUCCESS;
}

__wasi_errno_t __wasi_fd_close(__wasi_fd_t file) {
    if (!is_file((int)file)) return __WASI_ERRNO_BADF;
    page_close((int)file);
    return __WASI_ERRNO_SUCCESS;
}

/* ---- The library's surroundings ---- */

static int current_date(uint16_t *mdy) {
    const int today = page_today();
    mdy[0] = (uint16_t)(today / 100 % 100);
    mdy[1] = (uint16_t)(today % 100);
    mdy[2] = (uint16_t)(today / 10000);
    return 0;
}

void WEB(web_start)(void) {
    ko_setextfunc(NULL, KO_EXT_CURRDATE, (ko_extfn_t)current_date);
    ko_secure_names(1);
}

void *WEB(web_take)(size_t size) { return malloc(size ? size : 1); }
void WEB(web_free)(void *block) { free(block); }

/* Bytes of memory that are in use. */
int WEB(web_used)(void) { return mallinfo().uordblks; }
