// The Thai method on strings of bytes: comparison, and keys that hold 255 bytes of the base text
// and of the marks.
#include "collate/kovacoll_thai.h"
#include "collate/kovacoll_text.h"

#include <string.h>

namespace {

constexpr unsigned half_room = 255; // the most bytes in each half of a key

struct thai_key {
    unsigned len_base, len_marks;
    ko_mchar_t base[half_room];
    ko_mchar_t marks[half_room];
};

struct thai_bytes {
    const ko_mchar_t *s, *end;
};
unsigned take(thai_bytes &text) { return text.s == text.end ? 0 : *text.s++; }

} // namespace

static void make_key(const ko_mchar_t *text, thai_key *key) {
    key->len_base = key->len_marks = 0;
    thai_walk<thai_bytes> walk({text, text + text_length(text)});
    while (const size_t number = thai_next(walk)) {
        if (walk.state != thai_marks) {
            if (key->len_base < half_room) key->base[key->len_base++] = ko_mchar_t(number);
            continue;
        }
        const size_t code = thai_next(walk);
        if (key->len_marks + 2 > half_room) break;
        key->marks[key->len_marks++] = ko_mchar_t(number < half_room ? number : half_room);
        key->marks[key->len_marks++] = ko_mchar_t(code);
    }
}

// The order of the keys as long as both halves have room, and of the numbers beyond them.
static int bythcmpr(const ko_mchar_t *r1, size_t len1, const ko_mchar_t *r2, size_t len2) {
    return thai_order(thai_bytes{r1, r1 + len1}, thai_bytes{r2, r2 + len2});
}

int thaismocoll(ko_lc_t loc, const ko_mchar_t *mbs1, const ko_mchar_t *mbs2) {
    if (!mbs1 || !mbs2) return fail(loc, KO_ENULL, 0);
    return bythcmpr(mbs1, text_length(mbs1), mbs2, text_length(mbs2));
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
