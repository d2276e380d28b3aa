// Reading charmap objects into tables of symbols.
#include "kovasyms.h"

#include <assert.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

static constexpr int line_bound = 127;
static constexpr int max_range_chars = 0x200000; // of one object, over all its ranges

// Limits for the nodes of the table that measures characters, and for those of them with children:
// more than any code set has (GB 18030 in full: 160,147 and 1,387), but they bound the memory that
// a few characters can demand.
static constexpr int max_nodes = 1 << 18, max_parents = 1 << 13;

// ---- Records ------------------------------------------------------------------------------------

struct alignas(8) record_block {
    record_block *before;
};
static constexpr size_t least_block = 2048, most_block = 65536;

// Allocates a record and copies its name after it; NULL without memory.
template <class Record> static Record *new_record(record_pool *pool, const char *name) {
    const size_t name_size = strlen(name) + 1;
    const size_t size = (sizeof(Record) + name_size + 7) / 8 * 8;
    if (pool->room - pool->used < size) {
        const size_t room = !pool->room                   ? least_block
                            : pool->room < most_block / 2 ? 2 * pool->room
                                                          : most_block;
        auto *const block = static_cast<record_block *>(ko_ext_malloc(sizeof(record_block) + room));
        if (!block) return nullptr;
        block->before = pool->last;
        *pool = {.last = block, .used = 0, .room = room};
    }
    void *const at = reinterpret_cast<unsigned char *>(pool->last + 1) + pool->used;
    pool->used += size;
    auto *const record = static_cast<Record *>(at);
    *record = {};
    memcpy(record + 1, name, name_size);
    return record;
}

static void free_pool(record_pool *pool) {
    while (record_block *const block = pool->last) {
        pool->last = block->before;
        ko_ext_free(block);
    }
}

// ---- Tables -------------------------------------------------------------------------------------

static unsigned hash_bytes(const void *bytes, size_t len) {
    const auto *at = static_cast<const unsigned char *>(bytes);
    unsigned hash = 0x811C9DC5U;
    for (size_t i = 0; i < len; ++i)
        hash = (hash ^ at[i]) * 0x01000193U;
    return hash ^ hash >> 15;
}
static unsigned hash_of(const char *name) { return hash_bytes(name, strlen(name)); }
static unsigned hash_of(const char_desc &desc) { return hash_bytes(desc.bytes, desc.length); }

template <class Record> static bool matches(const Record *record, const char *name) {
    return !strcmp(name_of(record), name);
}
static bool matches(const single_char *single, const char_desc &desc) {
    return !memcmp(&single->desc, &desc, sizeof desc);
}

// The slot of a key, or the free slot where it belongs; the table must have slots.
template <class Record, class Key>
static Record **slot_of(const symbol_table<Record> &table, const Key &key) {
    for (unsigned at = hash_of(key);; ++at) {
        Record **const slot = &table.slots[at & table.mask];
        if (!*slot || matches(*slot, key)) return slot;
    }
}

template <class Record, class Key>
static Record *look_up(const symbol_table<Record> &table, const Key &key) {
    return table.slots ? *slot_of(table, key) : nullptr;
}

const single_char *find_named(const kovacmap *map, const char *name) {
    return look_up(map->by_name, name);
}
const range_group *find_group(const kovacmap *map, const char *canonical) {
    return look_up(map->groups, canonical);
}
const single_char *find_char(const kovacmap *map, const char_desc &desc) {
    return look_up(map->by_desc, desc);
}

// Makes room for one more record. False without memory.
template <class Record, class KeyOf> static bool grow(symbol_table<Record> *table, KeyOf key_of) {
    const unsigned old_size = table->slots ? table->mask + 1 : 0;
    if (table->count < old_size / 4 * 3) return true;
    if (old_size > UINT_MAX / 4) return false;
    const unsigned size = old_size ? 2 * old_size : 16;
    ext_block<Record *> slots(size);
    if (!slots.p) return false;
    memset(slots.p, 0, size * sizeof *slots.p);
    const symbol_table<Record> larger = {.slots = slots.p, .mask = size - 1, .count = table->count};
    for (unsigned i = 0; i < old_size; ++i)
        if (Record *const record = table->slots[i]) *slot_of(larger, key_of(record)) = record;
    free_ptr(table->slots);
    *table = larger;
    slots.release();
    return true;
}

static const char *name_key(const single_char *single) { return name_of(single); }
static const char *group_key(const range_group *group) { return name_of(group); }
static const char_desc &desc_key(const single_char *single) { return single->desc; }

// ---- Characters ---------------------------------------------------------------------------------

// Adds a character to the table that measures text. One that conflicts with another stays out of it
// but keeps its name. 0, or the error number.
static int insert_char(kovacmap *map, const char_desc &desc) {
    auto *table = static_cast<mb_decode *>(map->mb_struct);
    if (!insert_desc_multi(&desc, nullptr, table)) {
        const bool fits =
            table->flag_arr_count <= max_nodes && table->offset_arr_count <= max_parents;
        return fits ? 0 : int{KO_EOBJECT};
    }
    const multi_arr *node = table_root(table);
    for (unsigned i = 0; i < desc.length; ++i) {
        const unsigned flag = node_flag(node, desc.bytes[i]);
        if (flag == mb_final || (flag == mb_prefix && i + 1 == desc.length)) return 0;
        if (flag != mb_prefix) return KO_ENOMEM;
        node = node_child(node, desc.bytes[i]);
    }
    return 0;
}

char_desc range_char(const range_data *range, int i) {
    char_desc desc = range->base_char;
    unsigned carry = static_cast<unsigned>(i);
    for (unsigned at = desc.length; at-- > 0 && carry;) {
        carry += desc.bytes[at];
        desc.bytes[at] = static_cast<unsigned char>(carry);
        carry >>= 8;
    }
    return desc;
}

static uint32_t char_value(const char_desc &desc) {
    uint32_t value = 0;
    for (unsigned i = 0; i < desc.length; ++i)
        value = value << 8 | desc.bytes[i];
    return value;
}

int range_place(const range_data *range, const char_desc &desc) {
    if (desc.length != range->base_char.length) return -1;
    const uint32_t first = char_value(range->base_char), value = char_value(desc);
    if (value < first || value - first >= static_cast<uint32_t>(range->length)) return -1;
    return static_cast<int>(value - first);
}

// ---- Ranges -------------------------------------------------------------------------------------

// Sort keys for the indexes: of characters by length and bytes, of ranges by the numbers in their
// names.
static uint64_t char_place(const char_desc &desc) {
    return uint64_t{desc.length} << 33 | char_value(desc);
}
static uint64_t first_char(const range_data *range) { return char_place(range->base_char); }
static uint64_t first_number(const range_data *range) {
    return static_cast<uint64_t>(range->name_base);
}

static constexpr int few_ranges = 8; // so few are searched one by one

// Builds an index of a list that is linked by next. False without memory.
static bool build_index(const range_data *list, range_data *range_data::*next,
                        uint64_t (*first)(const range_data *), range_index *index) {
    size_t count = 0, n = 0;
    for (const range_data *range = list; range; range = range->*next)
        ++count;
    if (count <= few_ranges) return true;
    ext_block<range_start> starts(count);
    if (!starts.p) return false;
    for (const range_data *range = list; range; range = range->*next)
        starts.p[n++] = {first(range), range};
    std::sort(starts.p, starts.p + count,
              [](const range_start &a, const range_start &b) { return a.first < b.first; });
    for (n = 1; n < count; ++n) {
        const range_start &before = starts.p[n - 1];
        const auto length = static_cast<uint64_t>(before.range->length);
        if (starts.p[n].first - before.first < length) return true;
    }
    *index = {.at = starts.release(), .count = static_cast<int>(count)};
    return true;
}

// The last range that starts at or before a place; NULL if none does.
static const range_data *last_from(const range_index &index, uint64_t place) {
    int low = 0, high = index.count;
    while (low < high) {
        const int middle = low + (high - low) / 2;
        if (index.at[middle].first > place)
            high = middle;
        else
            low = middle + 1;
    }
    return low ? index.at[low - 1].range : nullptr;
}

const range_data *find_range(const kovacmap *map, const char_desc &desc, const range_data **from) {
    const range_data *range = *from;
    *from = nullptr;
    if (range && map->by_char.at) { // indexed, so in one range at most
        range = last_from(map->by_char, char_place(desc));
        return range && range_place(range, desc) >= 0 ? range : nullptr;
    }
    while (range && range_place(range, desc) < 0)
        range = range->next;
    if (range) *from = range->next;
    return range;
}

static bool holds_number(const range_data *range, int number) {
    return number >= range->name_base && number - range->name_base < range->length;
}

const range_data *find_number(const range_group *group, int number) {
    if (group->by_number.at) {
        const range_data *range = last_from(group->by_number, static_cast<uint64_t>(number));
        return range && holds_number(range, number) ? range : nullptr;
    }
    const range_data *range = group->ranges.first;
    while (range && !holds_number(range, number))
        range = range->sister;
    return range;
}

// False without memory.
static bool index_ranges(kovacmap *map) {
    const symbol_table<range_group> &groups = map->groups;
    for (unsigned i = 0; groups.slots && i <= groups.mask; ++i) {
        range_group *const group = groups.slots[i];
        if (!group) continue;
        if (!build_index(group->ranges.first, &range_data::sister, first_number, &group->by_number))
            return false;
    }
    return build_index(map->ranges.first, &range_data::next, first_char, &map->by_char);
}

// ---- Names --------------------------------------------------------------------------------------

static size_t stem_length(const char *name) {
    size_t len = strlen(name);
    while (len && name[len - 1] >= '0' && name[len - 1] <= '9')
        --len;
    return len;
}

int canonical_name(const char *name, char *canonical) {
    const size_t len = strlen(name), stem = stem_length(name);
    memcpy(canonical, name, stem);
    memset(canonical + stem, '0', len - stem);
    canonical[len] = 0;
    if (stem == len) return -1;
    int64_t number = 0;
    for (size_t i = stem; i < len && number <= INT_MAX; ++i)
        number = number * 10 + (name[i] - '0');
    return number <= INT_MAX ? static_cast<int>(number) : -1;
}

void calculate_name(const range_data *range, int i, char *out) {
    const char *const name = name_of(range);
    const size_t len = strlen(name), stem = stem_length(name);
    char digits[10];
    size_t count = 0;
    for (uint64_t n = static_cast<uint64_t>(range->name_base) + static_cast<uint64_t>(i);
         n || !count; n /= 10) {
        digits[count++] = static_cast<char>('0' + n % 10);
    }
    memcpy(out, name, stem);
    out += stem;
    for (size_t zeros = count; zeros < len - stem; ++zeros)
        *out++ = '0';
    while (count)
        *out++ = digits[--count];
    *out = 0;
}

// ---- Lines --------------------------------------------------------------------------------------

struct record_line {
    const char *at;
    int error;
};

static bool is_blank_line(const char *line) {
    while (is_white(*line))
        ++line;
    return !*line;
}

// The next decimal number, which must be least or more.
static int field_number(record_line *in, int least) {
    char *end;
    while (is_white(*in->at))
        ++in->at;
    const bool number = (*in->at >= '0' && *in->at <= '9') || *in->at == '-' || *in->at == '+';
    const long value = number ? strtol(in->at, &end, 10) : 0;
    if (!number || end == in->at || value < least || value > INT_MAX) {
        in->error = KO_EOBJECT;
        return 0;
    }
    in->at = end;
    return static_cast<int>(value);
}

// Refuses names for which the records have no room; no compiler writes such a file.
static constexpr int MAXNAMELEN = name_room;
static int check_name(const char *name) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast" // the text is shown as it stands
    assert(strlen(name) < (size_t)MAXNAMELEN);
#pragma GCC diagnostic pop
    if (strlen(name) < size_t{MAXNAMELEN}) return 0;
    ko_message("strlen(name) < (size_t) MAXNAMELEN");
    return KO_EOBJECT;
}

static int check_type(int type) {
    assert(type == 's' || type == 'r');
    if (type == 's' || type == 'r') return 0;
    ko_message("type == 's' || type == 'r'");
    return KO_EOBJECT;
}

static void field_name(record_line *in, char *name) {
    char word[line_bound + 1];
    size_t len = 0;
    while (is_white(*in->at))
        ++in->at;
    while (*in->at && !is_white(*in->at))
        word[len++] = *in->at++;
    word[len] = 0;
    if (!in->error) in->error = len ? check_name(word) : int{KO_EOBJECT};
    if (!in->error) memcpy(name, word, len + 1);
}

static char_desc field_char(record_line *in) {
    char_desc desc = {};
    const int count = field_number(in, 1);
    if (count > 4) in->error = KO_EOBJECT;
    for (int i = 0; i < count && !in->error; ++i) {
        while (is_white(*in->at))
            ++in->at;
        unsigned byte = 0;
        int digits = 0;
        for (; digits < 2 && is_hex(*in->at); ++digits)
            byte = byte << 4 | get_hex_digit(*in->at++);
        desc.bytes[desc.length++] = static_cast<unsigned char>(byte);
        if (!digits) in->error = KO_EOBJECT;
    }
    return desc;
}

static int add_single(kovacmap *map, const char *name, const char_desc &desc) {
    if (!grow(&map->by_name, name_key) || !grow(&map->by_desc, desc_key)) return KO_ENOMEM;
    single_char *const added = new_record<single_char>(&map->pool, name);
    if (!added) return KO_ENOMEM;
    added->desc = desc;
    single_char **slot = slot_of(map->by_name, name);
    if (!*slot) *slot = added, ++map->by_name.count;
    slot = slot_of(map->by_desc, desc);
    if (*slot) {
        added->same = (*slot)->same;
        (*slot)->same = added;
    } else {
        added->same = added;
        ++map->by_desc.count;
    }
    *slot = added;
    return insert_char(map, desc);
}

// The group of a canonical name, created if it is new. NULL without memory.
static range_group *group_of_name(kovacmap *map, const char *canonical) {
    if (!grow(&map->groups, group_key)) return nullptr;
    range_group **const slot = slot_of(map->groups, canonical);
    if (!*slot && (*slot = new_record<range_group>(&map->pool, canonical))) ++map->groups.count;
    return *slot;
}

static void append(range_list *list, range_data *range_data::*next, range_data *range) {
    (list->last ? list->last->*next : list->first) = range;
    list->last = range;
}

static int add_range(kovacmap *map, const char *name, const range_data &read) {
    char canonical[name_room];
    canonical_name(name, canonical);
    range_group *const group = group_of_name(map, canonical);
    range_data *const range = group ? new_record<range_data>(&map->pool, name) : nullptr;
    if (!range) return KO_ENOMEM;
    *range = read;
    append(&map->ranges, &range_data::next, range);
    append(&group->ranges, &range_data::sister, range);
    int error = 0;
    for (int i = 0; i < range->length && !error; ++i)
        error = insert_char(map, range_char(range, i));
    return error;
}

static int read_single(record_line *in, kovacmap *map, const char *name) {
    const char_desc desc = field_char(in);
    return in->error ? in->error : add_single(map, name, desc);
}

static int read_range(record_line *in, kovacmap *map, const char *name, int *chars_left) {
    range_data range = {};
    range.name_base = field_number(in, 0);
    range.length = in->error ? 0 : field_number(in, 1);
    if (!in->error) range.base_char = field_char(in);
    if (in->error) return in->error;
    const uint64_t end =
        uint64_t{char_value(range.base_char)} + static_cast<uint64_t>(range.length);
    if (end > uint64_t{1} << (8 * range.base_char.length)) return KO_EOBJECT;
    if (range.length > *chars_left || range.length > INT_MAX - range.name_base) return KO_EOBJECT;
    *chars_left -= range.length;
    return add_range(map, name, range);
}

// Reads "type number name", for a range also the number in its name and its length, then the bytes.
static int read_record(const char *line, kovacmap *map, int *chars_left) {
    const int type = static_cast<unsigned char>(*line);
    record_line in = {.at = line + 1, .error = check_type(type)};
    char name[name_room] = {};
    if (!in.error) field_number(&in, INT_MIN);
    if (!in.error) field_name(&in, name);
    if (in.error) return in.error;
    return type == 's' ? read_single(&in, map, name) : read_range(&in, map, name, chars_left);
}

// ---- Objects ------------------------------------------------------------------------------------

static bool starts_with(const char *line, const char *start) {
    return !strncmp(line, start, strlen(start));
}

static int read_header(text_in *in, kovacmap *map) {
    char line[line_bound + 1];
    if (!in_header_line(in, line, line_bound) || strcmp(line, "FILE_TYPE=charmap_object") != 0) {
        return KO_EOBJECT;
    }
    if (!in_header_line(in, line, line_bound)) return KO_EOBJECT;
    if (strcmp(line, "COMPILER_VERSION=3") != 0) return KO_EVERSION;
    map->compiler_version = 3;
    if (!in_header_line(in, line, line_bound) || !starts_with(line, "HEADER_LENGTH=")) {
        return KO_EOBJECT;
    }
    const int lines = header_number(line);
    if (lines < 3) return KO_EOBJECT;
    for (int i = 3; i < lines; ++i) {
        if (!in_header_line(in, line, line_bound)) return KO_EOBJECT;
        if (starts_with(line, "CODESET=")) {
            memset(map->codeset_name, 0, sizeof map->codeset_name);
            memcpy(map->codeset_name, line + 8, strnlen(line + 8, sizeof map->codeset_name - 1));
        } else if (starts_with(line, "SOURCE_VERSION=")) {
            map->source_version = header_number(line);
        }
    }
    in_header_line(in, line, line_bound); // the line that ends the header
    return in->stream && ko_ext_ferror(in->stream) ? int{KO_EFILE} : 0;
}

int read_charmap(text_in *in, kovacmap *map) {
    const uint16_t none = 0;
    map->mb_struct = create_multi(sizeof none, 0, &none);
    if (!map->mb_struct) return KO_ENOMEM;
    if (const int error = read_header(in, map)) return error;
    char line[line_bound + 1];
    int chars_left = max_range_chars;
    while (in_gets(in, line, line_bound)) {
        if (is_blank_line(line)) continue;
        if (const int error = read_record(line, map, &chars_left)) return error;
    }
    if (in->stream && ko_ext_ferror(in->stream)) return KO_EFILE;
    return index_ranges(map) ? 0 : int{KO_ENOMEM};
}

void free_charmap(kovacmap *map) {
    if (map->mb_struct) free_multi(map->mb_struct);
    const symbol_table<range_group> &groups = map->groups;
    for (unsigned i = 0; groups.slots && i <= groups.mask; ++i)
        if (groups.slots[i]) free_ptr(groups.slots[i]->by_number.at);
    free_ptr(groups.slots);
    free_ptr(map->by_name.slots);
    free_ptr(map->by_desc.slots);
    free_ptr(map->by_char.at);
    free_pool(&map->pool);
    ko_ext_free(map);
}
