// The Thai method, which is the library's own and not described by a source.

#include "kovac/kovac_collate.h"

namespace kovac {

static constexpr uint32_t first_letter = 0x0E01, last_sign = 0x0E5B, page = 0x0E00;
static constexpr uint32_t baht = 0x0E3F, last_vowel = 0x0E3A; // between them there is nothing
static constexpr uint16_t thai_bytes = 0xA0;

bool make_thai(const charmap &map, diagnostics &diag, collation &result) {
    result = {};
    result.by_thai = true;
    bool fits = map.max_len == 1;
    for (uint32_t code = first_letter; code <= last_sign; ++code) {
        if (code > last_vowel && code < baht) continue;
        const charmap_char *c = find_code(map, code);
        fits = fits && c && c->wide == code - page + thai_bytes;
    }
    if (!fits)
        error(diag, {},
              format("the Thai method reads the bytes of TIS-620; %s has other characters there",
                     map.name.c_str()));
    return fits;
}

} // namespace kovac
