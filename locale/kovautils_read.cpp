// Token readers of the compiled text files. End of file ends every one of them.
#include "kovautils.h"

#include "kovaextsa.h"

#include <string.h>

int in_getc_stream(text_in *in) {
    const int c = ko_ext_getc(in->stream);
    if (c >= 0) return c & 0xFF;
    in->ended = true;
    return -1;
}

void in_ungetc_stream(text_in *in, int byte) { ko_ext_ungetc(byte, in->stream); }

static int memory_line(text_in *in, char *buf, int bound) {
    const auto left = size_t(in->end - in->pos);
    auto len = size_t(bound);
    if (left < len) len = left;
    if (const void *const newline = len ? memchr(in->pos, '\n', len) : nullptr)
        len = size_t(static_cast<const unsigned char *>(newline) + 1 - in->pos);
    else if (len == left && len < size_t(bound))
        in->ended = true;
    if (len) memcpy(buf, in->pos, len);
    buf[len] = 0;
    in->pos += len;
    return int(len);
}

int in_gets(text_in *in, char *buf, int bound) {
    buf[0] = 0;
    if (!in->stream) {
        if (!memory_line(in, buf, bound)) return 0;
    } else if (!ko_ext_fgets(buf, bound + 1, in->stream)) {
        in->ended = true;
        buf[0] = 0;
        return 0;
    }
    // A null byte ends the text that the caller sees, but a line that begins with one is not the
    // end of the file.
    const int len = int(strnlen(buf, size_t(bound)));
    return len ? len : 1;
}

bool in_header_line(text_in *in, char *line, int bound) {
    const int len = in_gets(in, line, bound);
    if (len) line[len - 1] = 0;
    return len != 0;
}

int header_number(const char *line) {
    const char *const value = strchr(line, '=');
    if (!value) return 0;
    const auto *const bytes = reinterpret_cast<const unsigned char *>(value + 1);
    text_in in = {.pos = bytes, .end = bytes + strlen(value + 1)};
    return get_int(&in);
}

void skip_whitespace(text_in *in) {
    int c;
    do
        c = in_getc(in);
    while (is_white(c));
    in_ungetc(in, c);
}

static bool is_decimal(int c) { return c >= '0' && c <= '9'; }

// A number of few digits after at most one white character, with something after it, as almost all
// are, read from memory; -1 for anything else.
static int plain_number(text_in *in) {
    constexpr int digits_max = 8;
    if (in->stream || in->end - in->pos < digits_max + 2) return -1;
    const unsigned char *digit = in->pos + is_white(*in->pos);
    const unsigned char *const last = digit + digits_max;
    int value = 0;
    if (!is_decimal(*digit)) return -1;
    do
        value = value * 10 + (*digit++ - '0');
    while (digit < last && is_decimal(*digit));
    if (is_decimal(*digit)) return -1;
    in->pos = digit;
    return value;
}

[[gnu::noinline]] static int any_number(text_in *in) {
    constexpr int digits_max = 39; // after the first character; further ones are dropped
    constexpr int64_t beyond = int64_t{1} << 31;
    skip_whitespace(in);
    const int first = in_getc(in);
    if (first < 0) in->cut = true;
    if (first < 0) return 0;
    int64_t value = is_decimal(first) ? first - '0' : 0;
    int c, taken = 0;
    while (is_decimal(c = in_getc(in))) {
        if (taken++ < digits_max && value < beyond) value = value * 10 + (c - '0');
        if (taken > digits_max) taken = digits_max;
    }
    in_ungetc(in, c);
    if (!is_decimal(first) && first != '-' && first != '+') return 0;
    if (first == '-') return int(value > beyond ? -beyond : -value);
    return int(value > beyond - 1 ? beyond - 1 : value);
}

int get_int(text_in *in) {
    const int value = plain_number(in);
    return value >= 0 ? value : any_number(in);
}

double get_dbl(text_in *in) {
    char text[128];
    int len = 0, c;
    skip_whitespace(in);
    while ((c = in_getc(in)) >= 0 && (is_decimal(c) || (c && strchr("+-.eE", c))))
        if (len < 127) text[len++] = char(c);
    in_ungetc(in, c);
    text[len] = 0;
    const char *end;
    return c_strtod(text, &end);
}

unsigned get_hex(text_in *in, int digits) {
    unsigned value = 0;
    if (!in->stream && in->end - in->pos >= digits) {
        for (const unsigned char *const end = in->pos + digits; in->pos < end; ++in->pos)
            value = value * 16 + get_hex_digit(*in->pos);
        return value;
    }
    for (int i = 0; i < digits; ++i) {
        const int c = in_getc(in);
        if (c < 0) break;
        value = value * 16 + get_hex_digit(c);
    }
    return value;
}

unsigned get_hex_byte(text_in *in) {
    unsigned value = 0;
    for (int i = 0; i < 2; ++i) {
        value = value * 16 + hex_digit_or_0(in_getc(in));
    }
    return value;
}

int get_str(text_in *in, char *buf, int bound) {
    int len = 0;
    while (len < bound) {
        const int c = in_getc(in);
        if (c < 0) break;
        if (is_white(c)) {
            in_ungetc(in, c);
            break;
        }
        buf[len++] = char(c);
    }
    buf[len] = 0;
    return len;
}

ko_wchar_t read_ko_wchar(text_in *in) {
    if (!in->stream && in->end - in->pos > 8) { // as mostly: at most one space before the digits
        const unsigned char *const s = in->pos + is_white(*in->pos);
        if (*s > ' ') {
            in->pos = s + 8;
            return ko_wchar_t(get_hex4(s) * 0x10000u + get_hex4(s + 4));
        }
    }
    skip_whitespace(in);
    return ko_wchar_t(get_hex(in, 8));
}

unsigned char *read_stream_bytes(void *stream, size_t *size) {
    *size = 0;
    unsigned char *bytes = std_read_all(static_cast<FILE *>(stream), size);
    if (bytes || !ko_ext_ferror(stream)) return bytes;
    return static_cast<unsigned char *>(ko_ext_malloc(1));
}

static unsigned char *read_hooked_bytes(void *stream, size_t *size) {
    size_t room = 4096, used = 0;
    *size = 0;
    ext_block<unsigned char> block(room);
    for (int c; block.p && (c = ko_ext_getc(stream)) >= 0; block.p[used++] = uint8_t(c)) {
        if (used < room) continue;
        ext_block<unsigned char> larger(room *= 2);
        if (!larger.p) return nullptr;
        memcpy(larger.p, block.p, used);
        unsigned char *const old = block.p;
        block.p = larger.release();
        larger.p = old;
    }
    *size = used;
    return block.release();
}

unsigned char *read_data_file(data_file *file, size_t *size) {
    if (file->stream) return read_hooked_bytes(file->stream, size);
    *size = 0;
    unsigned char *const bytes =
        std_read_all_plain(file->number, file->mark.size, size, &file->failed);
    return bytes || !file->failed ? bytes : static_cast<unsigned char *>(ko_ext_malloc(1));
}

static void set_text(text_image *image, unsigned char *bytes, size_t size) {
    image->bytes = bytes;
    image->in.pos = bytes;
    image->in.end = bytes + size;
}

bool open_data_text(data_file *file, text_image *image) {
    *image = {};
    image->in.stream = file->stream;
    if (file->stream) return true;
    size_t size;
    unsigned char *const bytes = read_data_file(file, &size);
    if (bytes) set_text(image, bytes, size);
    return bytes;
}

bool open_image(void *stream, text_image *image) {
    *image = {};
    if (stream_hooks_set()) {
        image->in.stream = stream;
        return true;
    }
    size_t size;
    unsigned char *const bytes = read_stream_bytes(stream, &size);
    if (bytes) set_text(image, bytes, size);
    return bytes;
}

void close_image(text_image *image) {
    free_ptr(image->bytes);
    *image = {};
}
