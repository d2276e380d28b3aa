// Steps through multibyte strings and their terminators.
#include "kovastr.h"

#include <string.h>

text_char by_tree::at(const unit *s) const {
    if (ko_ismbsterm(loc, s)) return {0, 0, 0};
    text_char c = {0, 0, 0};
    const void *item = retrieve_text_multi(s, loc->ctype, &c.units, head(loc));
    if (!item) return {-1, 0, 0};
    for (int i = 0; i < c.units; ++i)
        c.wide = (c.wide << 8 | s[i]) & 0xFFFF;
    uint16_t classes;
    memcpy(&classes, item, sizeof classes);
    c.classes = classes;
    return c;
}

int ko_mbsterm(ko_lc_t loc, ko_mchar_t *mb) {
    if (!mb) return fail(loc, KO_ENULL, 0);
    const int n = terminator_len(record(loc));
    for (int i = 0; i < n; ++i)
        mb[i] = 0;
    return n;
}

int ko_ismbsterm(ko_lc_t loc, const ko_mchar_t *mb) {
    if (!mb) return fail(loc, KO_ENULL, 0);
    const int n = terminator_len(record(loc));
    for (int i = 0; i < n; ++i) {
        if (mb[i]) return 0;
    }
    return n;
}

// The terminator is an ordinary character here, where the code set has it.
ko_mchar_t *ko_full_mbsnext(ko_lc_t loc, const ko_mchar_t *mb) {
    ko_mchar_t *const none = nullptr;
    if (!mb) return fail(loc, KO_ENULL, none);
    const kovaloc *r = record(loc);
    int n = 1;
    if (!r->exp.single_byte) n = retrieve_text_multi_nv(mb, r->ctype, head(loc));
    if (!n) return none;
    return const_cast<ko_mchar_t *>(mb) + n;
}
