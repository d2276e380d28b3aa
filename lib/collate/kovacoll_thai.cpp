// The Thai method: a key of the base text, with leading vowels moved after their consonant, then of
// the marks above and below, each with its place.
#include "collate/kovacoll_pass.h"

#include <string.h>

namespace {

constexpr unsigned half_room = 255; // the most bytes in each half of a key

struct thai_key {
    unsigned len_base, len_marks;
    ko_mchar_t base[half_room + 1];
    ko_mchar_t marks[half_room + 1];
};

enum thai_type { thai_ordinary, thai_vowel, thai_mark };

} // namespace

static thai_type type_of(ko_mchar_t c) {
    if (c >= 0xE0 && c <= 0xE4) return thai_vowel;
    return c >= 0xE7 && c <= 0xEE ? thai_mark : thai_ordinary;
}

static ko_mchar_t recode(ko_mchar_t c) {
    static constexpr ko_mchar_t vowels[] = {0x80, 0xD1, 0x81, 0x82, 0x83,
                                            0x84, 0x85, 0x86, 0x87, 0x88}; // 0xD1..0xDA
    if (c >= 0xD1 && c <= 0xDA) return vowels[c - 0xD1];
    return c >= 0xE7 && c <= 0xEE ? ko_mchar_t(c - 0xE7 + 0x8E) : c;
}

static void add_base(thai_key *key, ko_mchar_t c) {
    if (key->len_base < half_room) key->base[key->len_base++] = recode(c);
}

// A mark's place is that of the base character it stands on, counted from 1.
static void add_mark(thai_key *key, ko_mchar_t c) {
    if (key->len_marks + 2 > half_room) return;
    key->marks[key->len_marks++] = ko_mchar_t(key->len_base ? key->len_base : 1);
    key->marks[key->len_marks++] = recode(c);
}

static void make_key(const ko_mchar_t *text, thai_key *key) {
    key->len_base = key->len_marks = 0;
    ko_mchar_t vowel = 0; // a leading vowel that waits for the next character
    for (; *text; ++text) {
        if (type_of(*text) == thai_mark) {
            add_mark(key, *text);
        } else if (!vowel && type_of(*text) == thai_vowel) {
            vowel = *text;
        } else {
            add_base(key, *text);
            if (vowel) add_base(key, vowel);
            vowel = 0;
        }
    }
    if (vowel) add_base(key, vowel);
}

int thaismocoll(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2) {
    if (!mbs1 || !mbs2) return fail(loc, KO_ENULL, 0);
    ko_mchar_t bytes[2][2 * half_room + 1];
    const ko_mchar_t *texts[2] = {mbs1, mbs2};
    for (int i = 0; i < 2; ++i) {
        thai_key key;
        make_key(texts[i], &key);
        memcpy(bytes[i], key.base, key.len_base);
        memcpy(bytes[i] + key.len_base, key.marks, key.len_marks);
        bytes[i][key.len_base + key.len_marks] = 0;
    }
    return code_order(byte_text{bytes[0]}, byte_text{bytes[1]});
}

// Deliberately, dst is the text and mbs the destination.
int thaismoxfrm(ko_lc_t loc, ko_mchar_t *dst, const ko_mchar_t *mbs, int maxbytes) {
    if (!dst || (!mbs && maxbytes > 0)) return fail(loc, KO_ENULL, -1);
    thai_key key;
    make_key(dst, &key);
    ko_mchar_t *out = const_cast<ko_mchar_t *>(mbs);
    const unsigned room = maxbytes < 0 ? 0 : maxbytes < 256 ? unsigned(maxbytes) : 256;
    const unsigned full = key.len_base + key.len_marks;
    for (unsigned i = 0; i < room && i <= full; ++i)
        out[i] = i < key.len_base ? key.base[i]
                 : i < full       ? key.marks[i - key.len_base]
                                  : ko_mchar_t{0};
    return int(full);
}
