// Between Unicode and the wide characters of another code set.
#ifndef KOVAHOST_MAP_H
#define KOVAHOST_MAP_H

#include "host/kovahost_text.h"
#include "record/kovaspec.h"

constexpr unsigned code_pages = 0x1100; // of 256 codes

struct host_map {
    char codeset[codeset_room];
    uint64_t content;                   // a hash of the conversion from UTF-8
    const uint32_t *codes[256];         // by the high byte: codes of wide characters, or no_code
    const ko_wchar_t *wide[code_pages]; // by the high bytes: wide characters of codes; 0: none
};

// The wide character of a code below 0x110000, no_code if the code set lacks it.
inline unsigned wide_of(const host_map *map, unsigned code) {
    const unsigned wide = map->wide[code >> 8][code & 0xFF];
    return wide || !code ? wide : no_code;
}
// The code of a wide character, no_code for none.
inline unsigned code_of(const host_map *map, unsigned wide) {
    return map->codes[wide >> 8][wide & 0xFF];
}

// 0 if the category of a record can serve texts of UTF-8 and UTF-16, else the error number.
inline int unfit(ko_lc_t handle, int category) {
    if (!handle) return KO_ENULL;
    const kovaloc *loc = record(handle);
    if (is_unicode(loc, category)) return 0;
    if (!loc->map) return loc->map_error ? loc->map_error : KO_ECODESET;
    return strcmp(loc->codeset[category - KO_LC_CTYPE], loc->map->codeset) ? KO_ECODESET : 0;
}
// The map that such a record needs, NULL for "unicode".
inline const host_map *map_for(const kovaloc *loc, int category) {
    return is_unicode(loc, category) ? nullptr : loc->map;
}

// Reads the conversions between the code set of a record's LC_CTYPE and UTF-8 from where the record
// came from. Returns 0, also if the code set is "unicode", or why there is no map.
int make_host_map(kovaloc *loc, const registry_choice &registry);
void free_host_map(const host_map *map);

#endif
