// Services that every source uses: error words, blocks of the host's memory, file search, the
// diagnostic log and the token readers of the compiled text files.
#ifndef KOVAUTILS_H
#define KOVAUTILS_H

#include "kova.h"

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <atomic>

// Stores a number in an error word, which several threads may share: the last one to fail decides.
inline void store_word(int &word, int number) {
    std::atomic_ref<int>(word).store(number, std::memory_order_relaxed);
}
// The handle of a step whose failure is not that of its call: nothing is stored for it.
extern gen_exports nobody;
// Stores an error number in a handle; for a NULL handle, only an error hook can store it.
void set_error(void *handle, int number);

template <class R> inline R fail(void *handle, int number, R result) {
    set_error(handle, number);
    return result;
}

void *alloc_ptr(size_t size);     // NULL for size 0
void free_ptr(const void *block); // NULL allowed

// An array of the host's memory, freed unless released. Not cleared.
template <class T> struct ext_block {
    T *p;
    explicit ext_block(size_t n)
        : p(n <= PTRDIFF_MAX / sizeof(T) ? static_cast<T *>(ko_ext_malloc(n ? n * sizeof(T) : 1))
                                         : nullptr) {}
    ext_block(const ext_block &) = delete;
    ext_block &operator=(const ext_block &) = delete;
    ~ext_block() {
        if (p) ko_ext_free(p);
    }
    T *release() {
        T *kept = p;
        p = nullptr;
        return kept;
    }
};

// A text file being read: byte by byte through the stream hooks, or from memory where the host
// provides no streams.
struct text_in {
    void *stream;             // NULL: reading memory
    const unsigned char *pos; // next byte in memory
    const unsigned char *end;
    bool ended; // a read has met the end of the file
    bool cut;   // an expected item is missing or incomplete
};

int in_getc_stream(text_in *in);
void in_ungetc_stream(text_in *in, int byte);

inline int in_getc(text_in *in) {
    if (in->stream) return in_getc_stream(in);
    if (in->pos < in->end) return *in->pos++;
    in->ended = true;
    return -1;
}
inline void in_ungetc(text_in *in, int byte) { // the byte just read; -1 is ignored
    if (byte < 0) return;
    if (in->stream) return in_ungetc_stream(in, byte);
    --in->pos;
}
// An open stream as text to read, with its bytes in memory unless the host provides streams.
struct text_image {
    text_in in;
    unsigned char *bytes;
};
// False without memory. The stream stays open; the image may be closed before or after it.
bool open_image(void *stream, text_image *image);
void close_image(text_image *image);
// The bytes of a stream of the standard library; NULL without memory. A stream that cannot be read
// gives an empty file, which fails every check of a header.
unsigned char *read_stream_bytes(void *stream, size_t *size);
struct data_file; // see kovaextsa.h
// The bytes of a data file; NULL without memory. One that cannot be read gives an empty file.
unsigned char *read_data_file(data_file *file, size_t *size);
// Open data files as text.
bool open_data_text(data_file *file, text_image *image);
bool has_failed(const data_file &file); // was there a read error?
void close_data_file(data_file *file);

// Reads a line of at most bound characters, newline included, into buf (bound + 1 bytes). Returns
// its length, 0 at the end of the file.
int in_gets(text_in *in, char *buf, int bound);
// Reads a line and drops its last character, which is normally the newline. False, and an empty
// line, at the end of the file.
bool in_header_line(text_in *in, char *line, int bound);
int header_number(const char *line); // the number after the first "="; 0 without one

inline bool is_white(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

void skip_whitespace(text_in *in);
int get_int(text_in *in); // saturates; 0 at the end of the file
double get_dbl(text_in *in);
unsigned get_hex(text_in *in, int digits); // exactly that many characters, not validated
unsigned get_hex_byte(text_in *in);        // two; a non-hex digit counts as 0
// Values of hex digits; any other character has its code as value.
inline constexpr auto hex_values = [] {
    std::array<unsigned char, 256> values{};
    for (unsigned c = 0; c < 256; ++c) {
        unsigned value = c;
        if (c >= '0' && c <= '9') value = c - '0';
        if (c >= 'a' && c <= 'f') value = c - 'a' + 10;
        if (c >= 'A' && c <= 'F') value = c - 'A' + 10;
        values[c] = uint8_t(value);
    }
    return values;
}();
inline unsigned get_hex_digit(int c) { return hex_values[unsigned(c) & 0xFF]; }
// The value of four hex digits.
inline unsigned get_hex4(const unsigned char *s) {
    return hex_values[s[0]] * 0x1000u + hex_values[s[1]] * 0x100u + hex_values[s[2]] * 0x10u +
           hex_values[s[3]];
}
inline bool is_hex(int c) { return get_hex_digit(c) != (unsigned(c) & 0xFF); }
inline unsigned hex_digit_or_0(int c) { return is_hex(c) ? get_hex_digit(c) : 0; }
int get_str(text_in *in, char *buf, int bound); // a word of at most bound characters; its length
ko_wchar_t read_ko_wchar(text_in *in);          // white space, then 8 digits

// Copies the text before the delimiter into a new string and moves the cursor past the delimiter.
// -1 when the text ends first or without memory.
int alloc_str_copy(char **result, const char **cursor, char delimiter);
char *copy_string(const char *text); // a new string, NULL without memory

int digits(ko_long_t value, int base);
int udigits(ko_ulong_t value, int base);
int ipow(int base, int exponent);
double fpow(double base, int exponent);

// Reads a decimal number whose decimal point is "." whatever the process locale says. *end gets the
// first character not read.
double c_strtod(const char *text, const char **end);

void message_1(const char *format_with_one_s, const char *text); // a log line of any length

bool is_logged(void); // is the log or are pop-ups switched on?

void exit_utilities(void); // forgets the diagnostic switches

// Opens as ko_path_search does. *path gets the opened path in a new string, freed by the caller, or
// NULL when nothing was opened; path may be NULL. *error gets the reason why nothing was opened.
void *path_search_why(const char *name, const char *dir, const char *subdir, char **path,
                      int *error);
// May a name from a caller or the environment be opened? While names are confined, only one that
// stays below the place where it is looked for.
bool is_name_allowed(const char *name);
bool is_confined(const char *name); // whether or not names are confined
// Open a data file that the library reads itself; *file is open if they return true. The first two
// get the path as path_search_why does, and the second one searches below one stated root alone,
// and only for names that stay there; the third takes a name that the library has composed, the
// last one a path.
bool find_data_file(data_file *file, const char *name, const char *dir, const char *subdir,
                    char **path, int *error);
bool find_data_file_below(data_file *file, const char *root, const char *name, const char *dir,
                          const char *subdir, char **path, int *error);
bool open_composed_file(data_file *file, const char *name);
bool open_data_file(data_file *file, const char *path);
// The same by the standard library alone, whatever hooks the host has; for a path or a name.
bool open_plain_file(data_file *file, const char *path);
bool find_plain_file(data_file *file, const char *name, const char *dir, const char *subdir,
                     int *error);
// A new string: a place in the "kova" directory of a root, NULL being the installation root. NULL
// without memory.
char *root_path(const char *root, const char *rest);
// Opens one composed path through the open hook and logs the attempt.
void *open_logged(const char *path);
// Why one of the calls above has just opened nothing, if errno was 0 before: KO_EFILE there is no
// such file, as far as hooks can tell; KO_EIO or KO_ENOMEM the system could not open it.
int open_fault(void);
// Marks the file that find_plain_file would open. False where there is none, or where finding an
// equal mark later would not prove that the search still ends at this file and that it reads the
// same.
struct file_mark; // see kovaextsa.h
bool path_search_mark(const char *name, const char *dir, const char *subdir, file_mark *mark);
// Opens the profile file below the installation root with the standard library; unlogged.
void *open_profile(void);

#endif
