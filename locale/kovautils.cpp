// Error words, blocks of the host's memory, short copies, and small arithmetic.
#include "kovautils.h"

#include "kovaextsa.h"

#include <float.h>
#include <stdlib.h>
#include <string.h>

constinit gen_exports nobody = {};

void set_error(void *handle, int number) {
    if (handle == &nobody || (!handle && !hook_set(KO_EXT_ERRNO))) return;
    if (int *const word = ko_ext_errno(handle)) store_word(*word, number);
}

void *alloc_ptr(size_t size) { return size ? ko_ext_malloc(size) : nullptr; }

void free_ptr(const void *block) {
    if (block) ko_ext_free(const_cast<void *>(block));
}

void ko_destroystring(void *string) { free_ptr(string); }

static char *copy_bytes(const char *text, size_t len_bytes) {
    char *const copy = static_cast<char *>(ko_ext_malloc(len_bytes + 1));
    if (!copy) return nullptr;
    memcpy(copy, text, len_bytes);
    copy[len_bytes] = 0;
    return copy;
}

char *copy_string(const char *text) { return copy_bytes(text, strlen(text)); }

int alloc_str_copy(char **result, const char **cursor, char delimiter) {
    const char *const start = *cursor;
    const char *end = start;
    *result = nullptr;
    while (*end && *end != delimiter)
        ++end;
    if (!*end) return -1;
    *result = copy_bytes(start, size_t(end - start));
    if (!*result) return -1;
    *cursor = end + 1;
    return 0;
}

int digits(ko_long_t value, int base) {
    return value < base ? 1 : udigits(ko_ulong_t(value), base);
}

int udigits(ko_ulong_t value, int base) {
    int count = 1;
    if (base < 2) return count;
    for (const auto radix = ko_ulong_t(base); value >= radix; value /= radix)
        ++count;
    return count;
}

int ipow(int base, int exponent) {
    auto result = 1u, square = unsigned(base); // wraps as repeated products do
    for (; exponent > 0; exponent >>= 1, square *= square)
        if (exponent & 1) result *= square;
    return int(result);
}

double fpow(double base, int exponent) {
    double result = 1;
    for (; exponent > 0; --exponent) {
        const double next = result * base;
        if (!(next < result || next > result)) return next; // 0, 1, infinity or NaN: stays so
        result = next;
    }
    return result;
}

static bool is_decimal(char c) { return c >= '0' && c <= '9'; }

namespace {
// The digits of a number without its decimal point, which moves into the exponent.
struct digit_text {
    // More digits than can decide the rounding of any double; further ones only mean "a little
    // more".
    static constexpr int digits_max = 800;
    char text[digits_max + 24];
    int len;
    long long exponent;
};
} // namespace

static const char *scan_digits(digit_text *d, const char *s, bool fraction) {
    for (; is_decimal(*s); ++s) {
        if (d->len < digit_text::digits_max) {
            if (d->len || *s != '0') d->text[d->len++] = *s;
            d->exponent -= fraction;
        } else {
            if (*s != '0') d->text[digit_text::digits_max - 1] |= 1; // as digits_max says
            d->exponent += !fraction;
        }
    }
    return s;
}

static const char *scan_exponent(digit_text *d, const char *s) {
    if ((*s | 0x20) != 'e') return s;
    const char *p = s + 1;
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    if (!is_decimal(*p)) return s;
    long long value = 0;
    for (; is_decimal(*p); ++p)
        if (value < (1LL << 40)) value = value * 10 + (*p - '0');
    d->exponent += negative ? -value : value;
    return p;
}

// A number of few digits and a small power of ten are exact as doubles, so that one operation
// rounds correctly: as most numbers of data files do, without the C library's conversion.
static bool is_small(const digit_text *d, double *value) {
    static constexpr double powers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7};
    constexpr int digits_max_small = 9, power_max = 7;
    if (FLT_EVAL_METHOD || d->len > digits_max_small) return false;
    if (d->exponent < -power_max || d->exponent > power_max) return false;
    unsigned number = 0;
    for (int i = 0; i < d->len; ++i)
        number = number * 10 + unsigned(d->text[i] - '0');
    *value = d->exponent < 0 ? number / powers[-d->exponent] : number * powers[d->exponent];
    return true;
}

static void append_exponent(digit_text *d) {
    long long rest = d->exponent;
    if (rest > 99999) rest = 99999; // far beyond every double either way
    if (rest < -99999) rest = -99999;
    char *out = d->text + d->len;
    *out++ = 'e';
    *out++ = rest < 0 ? '-' : '+';
    if (rest < 0) rest = -rest;
    for (int unit = 10000; unit; unit /= 10)
        *out++ = char('0' + rest / unit % 10);
    *out = 0;
}

double c_strtod(const char *text, const char **end) {
    digit_text d;
    d.len = 0;
    d.exponent = 0;
    const char *s = text;
    *end = text;
    while (is_white(uint8_t(*s)))
        ++s;
    const bool negative = *s == '-';
    if (*s == '-' || *s == '+') ++s;
    const bool leads = is_decimal(*s);
    s = scan_digits(&d, s, false);
    if (*s == '.' && (leads || is_decimal(s[1])))
        s = scan_digits(&d, s + 1, true);
    else if (!leads)
        return 0;
    *end = scan_exponent(&d, s);
    if (!d.len) return negative ? -0.0 : 0.0;
    double value;
    if (!is_small(&d, &value)) {
        append_exponent(&d);
        value = strtod(d.text, nullptr);
    }
    return negative ? -value : value;
}
