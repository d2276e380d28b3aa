// Makes the tables between Unicode and the wide characters of a code set from its conversions.
#include "host/kovahost_map.h"

#include "host/kovahost_object.h"
#include "locale/kovaobject.h"

static constinit const ko_wchar_t no_wide[256] = {};
static constexpr auto no_codes = [] {
    std::array<uint32_t, 256> codes{};
    codes.fill(no_code);
    return codes;
}();

// ---- Entries of a conversion ----

namespace {
struct cv_walk {
    host_map *map;
    unsigned target_max; // bytes that an item has room for
    unsigned char source[cv_max_source];
    bool (*entry)(host_map *map, const unsigned char *source, unsigned len,
                  const unsigned char *target, unsigned target_len);
};
} // namespace

// Approximations are no characters of the code set, and shifted ones have no wide form.
static bool is_exact(unsigned first, unsigned target_max) {
    constexpr unsigned others = cv_substitute | cv_shifted_target | cv_source_shift;
    const unsigned len = first & cv_length;
    return first & cv_flags && !(first & others) && len && len <= target_max;
}

static bool walk_entries(cv_walk *walk, const mb_decode *table, const multi_arr *node,
                         unsigned depth) {
    for (unsigned byte = 0; node && byte < 256; ++byte) {
        walk->source[depth] = uint8_t(byte);
        const unsigned flag = node_flag(node, byte);
        if (flag == mb_prefix && depth + 1 < cv_max_source) {
            if (!walk_entries(walk, table, node_child(node, byte), depth + 1)) return false;
        } else if (flag == mb_final) {
            const unsigned char *item = node_item(table, node, byte);
            if (!is_exact(item[0], walk->target_max)) continue;
            if (!walk->entry(walk->map, walk->source, depth + 1, item + 1, item[0] & cv_length))
                return false;
        }
    }
    return true;
}

// ---- The map ----

template <class T> static T *own_page(const T **page, const T *shared) {
    if (*page == shared) {
        T *const fresh = static_cast<T *>(ko_ext_malloc(256 * sizeof(T)));
        if (!fresh) return nullptr;
        memcpy(fresh, shared, 256 * sizeof(T));
        *page = fresh;
    }
    return const_cast<T *>(*page);
}

static unsigned wide_value(const unsigned char *bytes, unsigned len) {
    return len == 1 ? bytes[0] : unsigned(bytes[0] << 8 | bytes[1]);
}

static unsigned single_code(const unsigned char *bytes, unsigned len) {
    const utf8_step step = utf8_char(bytes, bytes + len);
    return step.bytes == len ? step.code : no_code;
}

static bool add_wide(host_map *map, const unsigned char *source, unsigned len,
                     const unsigned char *target, unsigned target_len) {
    const unsigned code = single_code(source, len);
    if (code == no_code || target_len > 2) return true;
    ko_wchar_t *const page = own_page(&map->wide[code >> 8], no_wide);
    if (page) page[code & 0xFF] = ko_wchar_t(wide_value(target, target_len));
    return page;
}

static bool add_code(host_map *map, const unsigned char *source, unsigned len,
                     const unsigned char *target, unsigned target_len) {
    if (len > 2) return true;
    const unsigned wide = wide_value(source, len), code = single_code(target, target_len);
    uint32_t *const page = own_page(&map->codes[wide >> 8], no_codes.data());
    if (page) page[wide & 0xFF] = code;
    return page;
}

void free_host_map(const host_map *map) {
    if (!map) return;
    for (const uint32_t *page : map->codes)
        if (page != no_codes.data()) free_ptr(page);
    for (const ko_wchar_t *page : map->wide)
        if (page != no_wide) free_ptr(page);
    free_ptr(map);
}

// ---- Reading ----

static int add_conversion(const kovaloc *loc, uint16_t from, uint16_t to, cv_walk walk) {
    char name[14];
    ko_cs_nums2cv_fname(nullptr, from, to, name, nullptr);
    cv_file file;
    const data_origin origin = {loc->origin.root, loc->origin.verified};
    if (const int error = read_cv(origin, name, cv_use::entries, &file)) return error;
    if (file.rec->source_is_stateful || file.rec->target_is_stateful) return KO_ECODESET;
    object_facts facts;
    if (walk.entry == add_wide)
        read_object_facts(file.bytes, file.size, &facts, &walk.map->content);
    const mb_decode *const table = file.rec->conv_noshift;
    walk.target_max = unsigned(file.rec->target_max_len);
    return walk_entries(&walk, table, table_root(table), 0) ? KO_OK : KO_ENOMEM;
}

static host_map *empty_map(const char *codeset) {
    ext_block<host_map> block(1);
    if (!block.p) return nullptr;
    memcpy(block.p->codeset, codeset, codeset_room);
    block.p->content = 0;
    for (auto &page : block.p->codes)
        page = no_codes.data();
    for (auto &page : block.p->wide)
        page = no_wide;
    return block.release();
}

static int number_of(const char *name, const registry_choice &registry, uint16_t *number) {
    const unsigned failures = failed_allocations();
    int error = KO_OK;
    *number = find_cs_num(name, registry, &error);
    if (!error) return KO_OK;
    if (failed_allocations() != failures) return KO_ENOMEM;
    return error == KO_ENOMEM || error == KO_EIO ? error : int{KO_EFILE};
}

int make_host_map(kovaloc *loc, const registry_choice &registry) {
    if (is_unicode(loc, KO_LC_CTYPE)) return KO_OK;
    const char *const codeset = loc->codeset[KO_LC_CTYPE - 2];
    uint16_t utf8, own;
    if (const int error = number_of("utf8", registry, &utf8)) return error;
    if (const int error = number_of(codeset, registry, &own)) return error;
    host_map *const map = empty_map(codeset);
    if (!map) return KO_ENOMEM;
    int error = add_conversion(loc, utf8, own, {map, 0, {}, add_wide});
    if (!error) error = add_conversion(loc, own, utf8, {map, 0, {}, add_code});
    if (error)
        free_host_map(map);
    else
        loc->map = map;
    return error;
}
