// Case mapping of texts in UTF-8, character by character: as the record maps wide characters, and
// beyond the basic plane by a table.
#include "chars/kovambwc.h"
#include "host/kovahost_made.h"
#include "host/kovahost_map.h"

namespace {
struct case_map {
    const kovaloc *loc;
    const case_second *pages; // NULL: the record's mapping serves
    ko_wchar_t (*by_record)(const kovaloc *loc, ko_wchar_t wc);
    const host_map *codeset; // NULL for "unicode"
    bool upper;
};

// Capitals beyond the basic plane, and how many codes above them their small letters are.
struct far_case {
    unsigned first, last, distance;
};
} // namespace

static constexpr far_case far_cases[] = {
    {0x10400, 0x10427, 40}, // Deseret
    {0x104B0, 0x104D3, 40}, // Osage
    {0x10570, 0x1057A, 39}, // Vithkuqi
    {0x1057C, 0x1058A, 39},
    {0x1058C, 0x10592, 39},
    {0x10594, 0x10595, 39},
    {0x10C80, 0x10CB2, 64}, // Old Hungarian
    {0x118A0, 0x118BF, 32}, // Warang Citi
    {0x16E40, 0x16E5F, 32}, // Medefaidrin
    {0x1E900, 0x1E921, 34}, // Adlam
};

// Surrogates have no case in a record; their pairs have the same one in every locale.
static unsigned far_partner(unsigned code, bool upper) {
    for (const far_case &c : far_cases) {
        const unsigned first = c.first + (upper ? c.distance : 0);
        if (code - first <= c.last - c.first) return upper ? code - c.distance : code + c.distance;
    }
    return code;
}

static unsigned partner_of(const case_map &map, unsigned unit) {
    const unsigned hi = unit >> 8, lo = unit & 0xFF;
    if (!map.pages) return map.by_record(map.loc, ko_wchar_t(unit));
    return map.pages->states[hi][lo] == case_mapped ? map.pages->partners[hi][lo] : unit;
}

// The code after the change, no_code for one that the code set lacks.
static unsigned mapped(const case_map &map, unsigned code) {
    if (map.codeset) {
        const unsigned wide = wide_of(map.codeset, code);
        if (wide == no_code) return no_code;
        const unsigned made = code_of(map.codeset, partner_of(map, wide));
        return made == no_code ? code : made;
    }
    if (code > last_unit) return far_partner(code, map.upper);
    const unsigned partner = partner_of(map, code);
    // Half a pair would make the text ill-formed.
    return is_high_unit(partner) || is_low_unit(partner) ? code : partner;
}

static int64_t map_text(const case_map &map, void *dst, size_t room, const char *text, size_t len) {
    if ((!text && len) || (!dst && room)) return -KO_ENULL;
    made_text<unsigned char> out;
    start_text(&out, static_cast<unsigned char *>(dst), room);
    const unsigned char *s = bytes_of(text), *const end = s + len;
    while (s != end) {
        const utf8_step step = utf8_char(s, end);
        if (step.code == no_code) return -KO_EILSEQ;
        const unsigned code = mapped(map, step.code);
        if (code == no_code) return -KO_ENOCHAR;
        unsigned char bytes[longest_char];
        put(&out, bytes, units_of(bytes, code));
        s += step.bytes;
    }
    return int64_t(out.total);
}

template <bool upper>
static int64_t change_case(ko_lc_t handle, void *dst, size_t room, const char *text, size_t len) {
    if (const int error = unfit(handle, KO_LC_CTYPE)) return -error;
    const kovaloc *const loc = record(handle);
    const auto by_record = upper ? upper_of : lower_of;
    const ctype_flat *flat = flat_cases(loc);
    const host_map *codeset = map_for(loc, KO_LC_CTYPE);
    if (flat && !codeset) {
        const case_pages &pages = upper ? flat->upper : flat->lower;
        return map_text({loc, pages.second, by_record, nullptr, upper}, dst, room, text, len);
    }
    return map_text({loc, nullptr, by_record, codeset, upper}, dst, room, text, len);
}

int64_t ko_utf8supper(ko_lc_t loc, char *dst, size_t room, const char *text, size_t len) {
    return change_case<true>(loc, dst, room, text, len);
}

int64_t ko_utf8slower(ko_lc_t loc, char *dst, size_t room, const char *text, size_t len) {
    return change_case<false>(loc, dst, room, text, len);
}
