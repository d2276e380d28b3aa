// The rare steps through UTF-8: characters of four bytes, bytes that are not a character, U+0000.
#include "host/kovahost_text.h"

unsigned take_rare(utf8_text &t) {
    while (t.s != t.end && !*t.s)
        ++t.s;
    if (t.s == t.end) return 0;
    if (is_trail(*t.s) && t.s != t.begin && t.s[-1] >= 0xF0) {
        const utf8_step pair = utf8_char(t.s - 1, t.end);
        if (pair.code != no_code) {
            t.s += 3;
            return low_unit(pair.code);
        }
    }
    const utf8_step step = utf8_char(t.s, t.end);
    if (step.code == no_code) {
        *t.ill_formed = true;
        return raw_first + *t.s++;
    }
    if (step.code > last_unit) {
        ++t.s;
        return high_unit(step.code);
    }
    t.s += step.bytes;
    return step.code;
}

unsigned take_rare(utf8_back &t) {
    while (t.s != t.begin && !t.s[-1])
        --t.s;
    const auto left = size_t(t.s - t.begin);
    if (!left) return 0;
    if (left >= 3 && t.s != t.end && t.s[-3] >= 0xF0) {
        const utf8_step pair = utf8_char(t.s - 3, t.end);
        if (pair.code != no_code) {
            t.s -= 3;
            return high_unit(pair.code);
        }
    }
    unsigned bytes = 1;
    while (bytes < 4 && bytes < left && is_trail(*(t.s - bytes)))
        ++bytes;
    const utf8_step step = utf8_char(t.s - bytes, t.s);
    if (step.code == no_code || step.bytes != bytes) {
        *t.ill_formed = true;
        return raw_first + *--t.s;
    }
    if (step.code > last_unit) {
        --t.s;
        return low_unit(step.code);
    }
    t.s -= bytes;
    return step.code;
}
