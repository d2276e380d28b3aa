// Reading charmap objects into tables of symbols.
#include "kovasyms.h"

#include <assert.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

static constexpr int line_bound = 127;
static constexpr int max_range_chars = 0x200000; // of one object, over all its ranges

// ---- Tables -------------------------------------------------------------------------------------

static unsigned name_bin(const char *name) {
    int sum = 0;
    for (; *name; ++name)
        sum += static_cast<signed char>(*name);
    return static_cast<unsigned>((sum % symbol_bins + symbol_bins) % symbol_bins);
}

static unsigned char_bin(const char_desc &desc) {
    unsigned sum = 0;
    for (unsigned i = 0; i < desc.length; ++i)
        sum += desc.bytes[i];
    return sum % symbol_bins;
}

static unsigned hash_bytes(const void *bytes, size_t len) {
    const auto *at = static_cast<const unsigned char *>(bytes);
    unsigned hash = 0x811C9DC5U;
    for (size_t i = 0; i < len; ++i)
        hash = (hash ^ at[i]) * 0x01000193U;
    return hash ^ hash >> 15;
}

// The slot of a key, or the free one where it belongs.
static table_data **name_slot(const symbol_table *table, const char *name, int type) {
    for (unsigned at = hash_bytes(name, strlen(name));; ++at) {
        table_data **slot = &table->slots[at & table->mask];
        if (!*slot || ((*slot)->type == type && !strcmp((*slot)->name, name))) return slot;
    }
}
static table_data **char_slot(const symbol_table *table, const char_desc &desc) {
    for (unsigned at = hash_bytes(desc.bytes, desc.length);; ++at) {
        table_data **slot = &table->slots[at & table->mask];
        if (!*slot || !memcmp(&(*slot)->desc, &desc, sizeof desc)) return slot;
    }
}

table_data *find_named(const symbol_table *table, const char *name, int type) {
    return table->slots ? *name_slot(table, name, type) : nullptr;
}

table_data *find_char(const symbol_table *table, const char_desc &desc) {
    return table->slots ? *char_slot(table, desc) : nullptr;
}

static table_data **entry_slot(const symbol_table *table, const table_data *entry) {
    return table->by_char ? char_slot(table, entry->desc)
                          : name_slot(table, entry->name, entry->type);
}

// Keeps half of the slots free.
static bool grow_slots(symbol_table *table) {
    if (table->slots && table->count < table->mask / 2) return true;
    const unsigned old_size = table->slots ? table->mask + 1 : 0;
    const unsigned size = old_size ? 2 * old_size : 16;
    table_data **old = table->slots;
    ext_block<table_data *> slots(size);
    if (!slots.p) return false;
    memset(slots.p, 0, size * sizeof *slots.p);
    table->slots = slots.release();
    table->mask = size - 1;
    for (unsigned i = 0; i < old_size; ++i) {
        if (old[i]) *entry_slot(table, old[i]) = old[i];
    }
    free_ptr(old);
    return true;
}

static table_data *add_entry(symbol_table *table, const table_data &entry) {
    if (table->count > INT_MAX / 2 || !grow_slots(table)) return nullptr;
    const unsigned bin = table->by_char ? char_bin(entry.desc) : name_bin(entry.name);
    const list_cell *cell = list_insert(&entry, sizeof entry, nullptr, &table->bins[bin]);
    if (!cell) return nullptr;
    auto *added = static_cast<table_data *>(cell->data);
    table_data **slot = entry_slot(table, added);
    if (*slot) {
        (*slot)->last_same->same = added;
    } else {
        *slot = added;
        ++table->count;
    }
    (*slot)->last_same = added;
    return added;
}

// ---- Characters ---------------------------------------------------------------------------------

// A character that conflicts with one that is there keeps its name and stays out of the table.
// False without memory.
static bool insert_char(kovacmap *map, const char_desc &desc) {
    auto *table = static_cast<mb_decode *>(map->mb_struct);
    if (!insert_desc_multi(&desc, nullptr, table)) return true;
    const multi_arr *node = table_root(table);
    for (unsigned i = 0; i < desc.length; ++i) {
        const unsigned flag = node_flag(node, desc.bytes[i]);
        if (flag == mb_final || (flag == mb_prefix && i + 1 == desc.length)) return true;
        if (flag != mb_prefix) return false;
        node = node_child(node, desc.bytes[i]);
    }
    return true;
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

static const range_data *range_of(const list_cell *cell) {
    return static_cast<const range_data *>(cell->data);
}

// Places of characters by length and bytes, and of the numbers in names.
static uint64_t char_place(const char_desc &desc) {
    return uint64_t{desc.length} << 33 | char_value(desc);
}
static uint64_t first_char(const range_data *range) { return char_place(range->base_char); }
static uint64_t first_number(const range_data *range) {
    return static_cast<uint64_t>(range->name_base);
}

static constexpr int few_ranges = 8; // are searched one by one

// False without memory.
static bool build_index(const link_list *list, uint64_t (*first)(const range_data *),
                        range_index *index) {
    size_t count = 0, n = 0;
    for (const list_cell *cell = list->firstLink; cell; cell = cell->next)
        ++count;
    if (count <= few_ranges) return true;
    ext_block<range_start> starts(count);
    if (!starts.p) return false;
    for (const list_cell *cell = list->firstLink; cell; cell = cell->next)
        starts.p[n++] = {first(range_of(cell)), range_of(cell)};
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

// The last range that starts at or before a place; NULL without one.
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

const range_data *find_range(const kovacmap *map, const char_desc &desc, const list_cell **from) {
    const list_cell *cell = *from;
    *from = nullptr;
    if (cell && map->by_char.at) { // in no more than one
        const range_data *range = last_from(map->by_char, char_place(desc));
        return range && range_place(range, desc) >= 0 ? range : nullptr;
    }
    for (; cell; cell = cell->next) {
        if (range_place(range_of(cell), desc) < 0) continue;
        *from = cell->next;
        return range_of(cell);
    }
    return nullptr;
}

static bool holds_number(const range_data *range, int number) {
    return number >= range->name_base && number - range->name_base < range->length;
}

const range_data *find_number(const table_data *entry, int number) {
    if (entry->by_number.at) {
        const range_data *range = last_from(entry->by_number, static_cast<uint64_t>(number));
        return range && holds_number(range, number) ? range : nullptr;
    }
    const list_cell *cell = entry->ranges ? entry->ranges->firstLink : nullptr;
    while (cell && !holds_number(range_of(cell), number))
        cell = cell->next;
    return cell ? range_of(cell) : nullptr;
}

// False without memory.
static bool index_ranges(kovacmap *map) {
    for (const link_list &bin : map->sym_char.bins) {
        for (list_cell *cell = bin.firstLink; cell; cell = cell->next) {
            auto *entry = static_cast<table_data *>(cell->data);
            if (!entry->ranges) continue;
            if (!build_index(entry->ranges, first_number, &entry->by_number)) {
                return false;
            }
        }
    }
    return build_index(map->range_list, first_char, &map->by_char);
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
    const size_t len = strlen(range->name), stem = stem_length(range->name);
    char digits[10];
    size_t count = 0;
    for (uint64_t n = static_cast<uint64_t>(range->name_base) + static_cast<uint64_t>(i);
         n || !count; n /= 10) {
        digits[count++] = static_cast<char>('0' + n % 10);
    }
    memcpy(out, range->name, stem);
    out += stem;
    for (size_t zeros = count; zeros < len - stem; ++zeros)
        *out++ = '0';
    while (count)
        *out++ = digits[--count];
    *out = 0;
}

// ---- Records ------------------------------------------------------------------------------------

struct record_line {
    const char *at;
    int error;
};

static bool is_blank_line(const char *line) {
    while (is_white(*line))
        ++line;
    return !*line;
}

// The next decimal number, from least on.
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

// The names that fit are those the records have room for; a file with others was not written by
// a compiler.
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

static bool is_hex(char c) { return get_hex_digit(c) != static_cast<unsigned char>(c); }

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

static int add_single(kovacmap *map, const table_data &entry) {
    const bool added = add_entry(&map->sym_char, entry) && add_entry(&map->char_sym, entry) &&
                       insert_char(map, entry.desc);
    return added ? 0 : int{KO_ENOMEM};
}

// The list of the ranges that share this canonical name, made where it is new. NULL without memory.
static link_list *ranges_of_name(kovacmap *map, const char *canonical) {
    table_data *known = find_named(&map->sym_char, canonical, 'r');
    if (known) return known->ranges;
    table_data entry = {.type = 'r'};
    memcpy(entry.name, canonical, strlen(canonical) + 1);
    known = add_entry(&map->sym_char, entry);
    return known ? known->ranges = list_create() : nullptr;
}

static int add_range(kovacmap *map, const range_data &range) {
    if (!list_insert(&range, sizeof range, nullptr, map->range_list)) return KO_ENOMEM;
    for (int i = 0; i < range.length; ++i) {
        if (!insert_char(map, range_char(&range, i))) return KO_ENOMEM;
    }
    char canonical[name_room];
    canonical_name(range.name, canonical);
    link_list *ranges = ranges_of_name(map, canonical);
    return ranges && list_insert(&range, sizeof range, nullptr, ranges) ? 0 : int{KO_ENOMEM};
}

static int read_single(record_line *in, kovacmap *map, const char *name) {
    table_data entry = {.type = 's', .desc = field_char(in)};
    if (in->error) return in->error;
    memcpy(entry.name, name, strlen(name) + 1);
    return add_single(map, entry);
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
    memcpy(range.name, name, strlen(name) + 1);
    return add_range(map, range);
}

// "type number name", of a range also the number in its name and its length, then the bytes.
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
    map->range_list = list_create();
    map->char_sym.by_char = true;
    if (!map->mb_struct || !map->range_list) return KO_ENOMEM;
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

static void free_table(symbol_table *table) {
    for (link_list &bin : table->bins) {
        for (const list_cell *cell = bin.firstLink; cell; cell = cell->next) {
            const auto *entry = static_cast<const table_data *>(cell->data);
            list_dispose(entry->ranges);
            free_ptr(entry->by_number.at);
        }
        list_clear(&bin);
    }
    free_ptr(table->slots);
}

void free_charmap(kovacmap *map) {
    if (map->mb_struct) free_multi(map->mb_struct);
    list_dispose(map->range_list);
    free_ptr(map->by_char.at);
    free_table(&map->sym_char);
    free_table(&map->char_sym);
    ko_ext_free(map);
}
