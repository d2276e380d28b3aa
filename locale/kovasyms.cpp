// Charmap handles: loading, and text written as symbols and back.
#include "kovasyms.h"

#include "kovaextsa.h"

#include <stdio.h>
#include <string.h>

// Handed out where no charmap can be made; only their error words are ever written.
static constinit kovacmap cm_enomem = {.exp = {.gen = {KO_ENOMEM}}};
static constinit kovacmap cm_fileerr = {.exp = {.gen = {KO_EFILE}}};

static kovacmap *charmap_of(ko_cm_t cm) { return static_cast<kovacmap *>(cm); }
static gen_exports *head(kovacmap *map) { return &map->exp.gen; }
static bool is_static(const kovacmap *map) { return map == &cm_enomem || map == &cm_fileerr; }

// ---- Loading ------------------------------------------------------------------------------------

// Stores the error word at every hand-out, because a host may have cleared that of a static record.
static int hand_out(ko_cm_t *cm, kovacmap *map, int error) {
    *cm = map;
    return fail(head(map), error, -1);
}

static void *open_charmap(kovacmap *map, const char *name, const char *dir) {
    if (!dir) return ko_path_search(head(map), name, "cm", "3");
    if (!is_name_allowed(name)) return nullptr;
    const size_t dir_len = strlen(dir), name_size = strlen(name) + 1;
    ext_block<char> path(dir_len + 1 + name_size);
    if (!path.p) return fail(head(map), KO_ENOMEM, nullptr);
    memcpy(path.p, dir, dir_len);
    path.p[dir_len] = '\\';
    memcpy(path.p + dir_len + 1, name, name_size);
    return open_logged(path.p);
}

static int read_stream(void *stream, kovacmap *map) {
    text_image image;
    if (!open_image(stream, &image)) return KO_ENOMEM;
    const int error = read_charmap(&image.in, map);
    close_image(&image);
    return error;
}

int ko_cm_load(ko_cm_t *cm, const char *cm_spec, const char *registry, const char *cm_dir) {
    if (!cm) return -1;
    ext_block<kovacmap> block(1);
    if (!block.p) return hand_out(cm, &cm_enomem, KO_ENOMEM);
    kovacmap *map = block.p;
    *map = {};
    if (!cm_spec) return hand_out(cm, &cm_fileerr, KO_EFILE);
    map->codeset_number = ko_lc_spec2cs_num(head(map), cm_spec, registry);
    char numbered[16];
    snprintf(numbered, sizeof numbered, "%04x.cmo", unsigned{map->codeset_number});
    const bool has_number = map->codeset_number != KO_NO_CODESET;
    set_error(head(map), 0);
    void *stream = open_charmap(map, has_number ? numbered : cm_spec, cm_dir);
    const bool no_memory = !stream && *ko_ext_errno(map) == KO_ENOMEM;
    if (!stream && !no_memory) return hand_out(cm, &cm_fileerr, KO_EFILE);
    const int error = no_memory ? int{KO_ENOMEM} : read_stream(stream, map);
    if (stream) ko_ext_fclose(stream);
    *cm = block.release();
    return fail(head(map), error, error ? -1 : 0);
}

void ko_cm_unload(ko_cm_t cm) {
    if (cm && !is_static(charmap_of(cm))) free_charmap(charmap_of(cm));
}

// ---- Queries ------------------------------------------------------------------------------------

const char *ko_cm_csname(ko_cm_t cm) { return cm ? charmap_of(cm)->codeset_name : nullptr; }
int ko_cm_srcver(ko_cm_t cm) { return cm ? charmap_of(cm)->source_version : 0; }
int ko_cm_cmpver(ko_cm_t cm) { return cm ? charmap_of(cm)->compiler_version : 0; }

static const mb_decode *table_of(ko_cm_t cm) {
    return cm ? static_cast<const mb_decode *>(charmap_of(cm)->mb_struct) : nullptr;
}
int ko_mb_cm_max(ko_cm_t cm) { return table_of(cm) ? table_of(cm)->max_char_len : 0; }
int ko_mb_cm_min(ko_cm_t cm) { return table_of(cm) ? table_of(cm)->min_char_len : 0; }

static bool all_zero(const ko_mchar_t *bytes, int len) {
    for (int i = 0; i < len; ++i) {
        if (bytes[i]) return false;
    }
    return true;
}

// Bytes of the character at mb; -1 with the error word set.
static int char_len(kovacmap *map, const ko_mchar_t *mb, int limit) {
    int taken = 0;
    if (!map->mb_struct || limit < 1) return fail(head(map), KO_EINVAL, -1);
    return retrieve_text_multi_limit(mb, map->mb_struct, limit, &taken, head(map)) ? taken : -1;
}

int ko_cm_mblen(ko_cm_t cm, const ko_mchar_t *mb, int limit) {
    if (!cm || !mb) return 0;
    const int len = char_len(charmap_of(cm), mb, limit);
    return len > 0 && all_zero(mb, len) ? 0 : len;
}

// ---- Characters to symbols ----------------------------------------------------------------------

// Writes "<name>" with its escapes. Returns the length with the terminator; writes nothing if that
// exceeds size.
static int string_to_symbol(const char *name, char *out, int size) {
    int needed = 3;
    for (const char *at = name; *at; ++at)
        needed += *at == '<' || *at == '\\' ? 2 : 1;
    if (needed > size) return needed;
    *out++ = '<';
    for (; *name; ++name) {
        if (*name == '<' || *name == '\\') *out++ = '\\';
        *out++ = *name;
    }
    *out++ = '>';
    *out = 0;
    return needed;
}

// Writes the name of a character; false if it has none.
static bool char_name(const kovacmap *map, const char_desc &desc, char *name) {
    if (const single_char *single = find_char(map, desc)) {
        strcpy(name, name_of(single));
        return true;
    }
    const range_data *from = map->ranges.first;
    const range_data *range = find_range(map, desc, &from);
    if (range) calculate_name(range, range_place(range, desc), name);
    return range;
}

static char_desc desc_of(const ko_mchar_t *mb, int len) {
    char_desc desc = {.length = unsigned(len), .bytes = {}};
    memcpy(desc.bytes, mb, desc.length);
    return desc;
}

// Writes the symbol of a character and returns its length, as string_to_symbol does. -1, and an
// empty string, for a character without a name.
static int mb_to_symbol(kovacmap *map, const ko_mchar_t *mb, int len, char *out, int size) {
    char name[name_room + 10];
    if (char_name(map, desc_of(mb, len), name)) return string_to_symbol(name, out, size);
    *out = 0;
    return fail(head(map), KO_ENOSYMBOL, -1);
}

static int terminator_len(const kovacmap *map) {
    const auto *table = static_cast<const mb_decode *>(map->mb_struct);
    const int n = table ? table->min_char_len : 1;
    return n < 1 ? 1 : n > 4 ? 4 : n;
}

namespace {
// A text that ends after a count of units or, with a count below 1, at its terminator.
template <class Unit> struct source_text {
    const Unit *at;
    int left; // below 1: terminated
    bool terminated;
};
} // namespace

// Bytes of a terminated text, but no more than a character can have.
static int bytes_before_end(const ko_mchar_t *at, int terminator) {
    int left = 0;
    while (left < 4 && !all_zero(at + left, terminator))
        left += terminator;
    return left < 4 ? left : 4;
}

// Gets the bytes of the next character. Returns its units, 0 at the end; -1 with the error word
// set.
static int next_char(kovacmap *map, const source_text<ko_mchar_t> &in, ko_mchar_t *bytes,
                     int *len) {
    const int left = in.terminated ? bytes_before_end(in.at, terminator_len(map)) : in.left;
    if (left < 1) return 0;
    *len = char_len(map, in.at, left);
    if (*len < 0) return in.terminated ? fail(head(map), KO_EILSEQ, -1) : -1;
    memcpy(bytes, in.at, size_t(*len));
    return *len;
}
static int next_char(kovacmap *map, const source_text<ko_wchar_t> &in, ko_mchar_t *bytes,
                     int *len) {
    if (in.terminated ? !*in.at : in.left < 1) return 0;
    *len = wide_to_bytes(static_cast<const mb_decode *>(map->mb_struct), bytes, *in.at);
    return *len > 0 ? 1 : fail(head(map), KO_EILSEQ, -1);
}

template <class Unit>
static int text_to_symbols(ko_cm_t cm, char *dst, int size, const Unit **src, int count) {
    if (!cm) return -1;
    kovacmap *map = charmap_of(cm);
    if (!dst || !src || !*src) return fail(head(map), KO_ENULL, -1);
    if (size < 1) return fail(head(map), KO_ERANGE, -1);
    source_text<Unit> in = {.at = *src, .left = count, .terminated = count < 1};
    char *out = dst;
    int room = size;
    ko_mchar_t bytes[4];
    for (int units, len; (units = next_char(map, in, bytes, &len)) != 0;) {
        char dropped;
        const int needed =
            units < 0 ? -1 : mb_to_symbol(map, bytes, len, room ? out : &dropped, room);
        if (needed < 0) {
            *out = 0;
            *src = in.at;
            return -1;
        }
        if (needed <= room) out += needed - 1;
        room = needed <= room ? room - (needed - 1) : 0;
        in.at += units;
        if (!in.terminated) in.left -= units;
    }
    *src = in.at;
    *out = 0;
    return int(out - dst) + 1;
}

int ko_mbstosyms(ko_cm_t cm, char *dst, int size, const ko_mchar_t **src, int len_bytes) {
    return text_to_symbols(cm, dst, size, src, len_bytes);
}
int ko_wcstosyms(ko_cm_t cm, char *dst, int size, const ko_wchar_t **src, int len_chars) {
    return text_to_symbols(cm, dst, size, src, len_chars);
}

namespace {
// A list to which symbols are added as long as they fit whole.
struct symbol_list {
    char *at;
    int room;
    int found;
};
} // namespace
static void add_symbol(symbol_list *list, const char *name) {
    const int needed = string_to_symbol(name, list->at, list->room);
    ++list->found;
    if (needed > list->room) {
        list->room = 0;
    } else {
        list->at += needed - 1;
        list->room -= needed - 1;
    }
}

int ko_mbtosymlist(ko_cm_t cm, char *dst, int size, const ko_mchar_t *mb, int len_bytes) {
    if (!cm) return -1;
    kovacmap *map = charmap_of(cm);
    if (!dst || !mb) return fail(head(map), KO_ENULL, -1);
    if (size < 1) return fail(head(map), KO_ERANGE, -1);
    *dst = 0;
    if (len_bytes < 1 || len_bytes > 4) return fail(head(map), KO_ENOSYMBOL, -1);
    const char_desc desc = desc_of(mb, len_bytes);
    symbol_list list = {.at = dst, .room = size, .found = 0};
    for (const single_char *at = find_char(map, desc); at; at = at->next)
        add_symbol(&list, name_of(at));
    const range_data *from = map->ranges.first;
    while (const range_data *range = find_range(map, desc, &from)) {
        char name[name_room + 10];
        calculate_name(range, range_place(range, desc), name);
        add_symbol(&list, name);
    }
    *list.at = 0;
    if (!list.found) return fail(head(map), KO_ENOSYMBOL, -1);
    return int(list.at - dst) + 1;
}

// ---- Symbols to characters ----------------------------------------------------------------------

// Finds the character of a name; single records take precedence over ranges.
static bool name_to_descriptor(const kovacmap *map, const char *name, char_desc *desc) {
    if (const single_char *single = find_named(map, name)) {
        *desc = single->desc;
        return true;
    }
    char canonical[name_room];
    const int number = canonical_name(name, canonical);
    if (number < 0) return false;
    const range_data *range = find_number(find_canonical(map, canonical), number);
    if (range) *desc = range_char(range, number - range->name_base);
    return range;
}

// Reads one symbol and moves past it. 0, or the error number.
static int symbol_to_descriptor(const kovacmap *map, const char **symbol, char_desc *desc) {
    const char *at = *symbol;
    char name[name_room];
    int len = 0;
    if (*at++ != '<') return KO_EILSEQ;
    for (; *at != '>'; ++at) {
        if (*at == '\\') ++at;
        if (!*at) return KO_EILSEQ;
        if (len < name_room) name[len++] = *at;
    }
    if (len == name_room) return KO_ENOSYMBOL; // longer than any name
    name[len] = 0;
    if (!name_to_descriptor(map, name, desc)) return KO_ENOSYMBOL;
    *symbol = at + 1;
    return 0;
}

// For both kinds of output: units of a terminator, units of a character (0: it has no such form),
// and writing a character.
static int end_units(const kovacmap *map, const ko_mchar_t *) { return terminator_len(map); }
static int end_units(const kovacmap *, const ko_wchar_t *) { return 1; }
static int char_units(const char_desc &desc, const ko_mchar_t *) { return int(desc.length); }
// A wide character has no room for more than two bytes.
static int char_units(const char_desc &desc, const ko_wchar_t *) { return desc.length > 2 ? 0 : 1; }
static void put_char(ko_mchar_t *out, const char_desc &desc) {
    memcpy(out, desc.bytes, desc.length);
}
static void put_char(ko_wchar_t *out, const char_desc &desc) {
    unsigned value = 0;
    for (unsigned i = 0; i < desc.length; ++i)
        value = value << 8 | desc.bytes[i];
    *out = ko_wchar_t(value);
}

template <class Unit>
static int symbols_to_text(ko_cm_t cm, Unit *dst, int size, const char **src) {
    if (!cm) return -1;
    kovacmap *map = charmap_of(cm);
    if (!dst || !src || !*src) return fail(head(map), KO_ENULL, -1);
    const int terminator = end_units(map, dst);
    if (size < terminator) return fail(head(map), KO_ERANGE, -1);
    Unit *out = dst;
    int room = size - terminator, error = 0;
    while (**src) {
        char_desc desc;
        const char *at = *src;
        if ((error = symbol_to_descriptor(map, &at, &desc)) != 0) break;
        const int units = char_units(desc, out);
        if (units < 1 || units > room) {
            error = units < 1 ? KO_EILSEQ : KO_ERANGE;
            break;
        }
        put_char(out, desc);
        out += units;
        room -= units;
        *src = at;
    }
    memset(out, 0, size_t(terminator) * sizeof *out);
    if (error) return fail(head(map), error, -1);
    return int(out - dst) + terminator;
}

int ko_symstombs(ko_cm_t cm, ko_mchar_t *dst, int size, const char **src) {
    return symbols_to_text(cm, dst, size, src);
}
int ko_symstowcs(ko_cm_t cm, ko_wchar_t *dst, int size, const char **src) {
    return symbols_to_text(cm, dst, size, src);
}
