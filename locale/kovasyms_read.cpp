// Reading charmap objects into tables of symbols.
#include "kovasyms.h"

#include <assert.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

static constexpr int line_bound = 127;
static constexpr int max_range_chars = 0x200000; // of one object, over all its ranges

// ---- Tables -------------------------------------------------------------------------------------

unsigned name_bin(const char *name) {
    int sum = 0;
    for (; *name; ++name)
        sum += static_cast<signed char>(*name);
    return static_cast<unsigned>((sum % symbol_bins + symbol_bins) % symbol_bins);
}

unsigned char_bin(const char_desc &desc) {
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

const table_data *find_named(const symbol_table *table, const char *name, int type) {
    if (!table->slots) return nullptr;
    for (unsigned at = hash_bytes(name, strlen(name));; ++at) {
        const table_data *entry = table->slots[at & table->mask];
        if (!entry || (entry->type == type && !strcmp(entry->name, name))) return entry;
    }
}

static bool same_char(const char_desc &a, const char_desc &b) {
    return a.length == b.length && !memcmp(a.bytes, b.bytes, a.length);
}

const table_data *find_char(const symbol_table *table, const char_desc &desc) {
    if (!table->slots) return nullptr;
    for (unsigned at = hash_bytes(desc.bytes, desc.length);; ++at) {
        const table_data *entry = table->slots[at & table->mask];
        if (!entry || same_char(entry->desc, desc)) return entry;
    }
}

// Gives the table twice as many slots as it has entries, filled bin by bin: within a bin, and so
// for equal keys, in the order of the file.
static bool build_slots(symbol_table *table, bool by_name) {
    unsigned size = 16;
    while (size < 2 * table->count)
        size *= 2;
    ext_block<const table_data *> slots(size);
    if (!slots.p) return false;
    memset(slots.p, 0, size * sizeof *slots.p);
    table->mask = size - 1;
    for (const link_list &bin : table->bins) {
        for (const list_cell *cell = bin.firstLink; cell; cell = cell->next) {
            const auto *entry = static_cast<const table_data *>(cell->data);
            unsigned at = by_name ? hash_bytes(entry->name, strlen(entry->name))
                                  : hash_bytes(entry->desc.bytes, entry->desc.length);
            while (slots.p[at & table->mask])
                ++at;
            slots.p[at & table->mask] = entry;
        }
    }
    table->slots = slots.release();
    return true;
}

static table_data *add_entry(symbol_table *table, unsigned bin, const table_data &entry) {
    if (table->count > INT_MAX / 2) return nullptr;
    const list_cell *cell = list_insert(&entry, sizeof entry, nullptr, &table->bins[bin]);
    if (!cell) return nullptr;
    ++table->count;
    return static_cast<table_data *>(cell->data);
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

// Ascending order is that of length, then bytes.
static bool is_before(const char_desc &a, const char_desc &b) {
    return a.length != b.length ? a.length < b.length : char_value(a) < char_value(b);
}

int find_range(const kovacmap *map, const char_desc &desc, int i) {
    int end = map->range_count;
    if (map->ranges_ascend && i > 0) return -1;
    if (map->ranges_ascend) { // the last range that starts at or before the character
        while (i < end) {
            const int middle = i + (end - i) / 2;
            if (is_before(desc, map->ranges[middle]->base_char))
                end = middle;
            else
                i = middle + 1;
        }
        if (--i < 0) return -1;
        end = i + 1;
    }
    for (; i < end; ++i) {
        if (range_place(map->ranges[i], desc) >= 0) return i;
    }
    return -1;
}

static bool list_ranges(kovacmap *map) {
    ext_block<const range_data *> ranges(static_cast<size_t>(map->range_count));
    if (!ranges.p) return false;
    int n = 0;
    map->ranges_ascend = true;
    for (const list_cell *cell = map->range_list->firstLink; cell; cell = cell->next, ++n) {
        ranges.p[n] = static_cast<const range_data *>(cell->data);
        if (n == 0) continue;
        const range_data *before = ranges.p[n - 1];
        if (!is_before(range_char(before, before->length - 1), ranges.p[n]->base_char))
            map->ranges_ascend = false;
    }
    map->ranges = ranges.release();
    return true;
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

static char_desc field_char(record_line *in) {
    char_desc desc = {};
    const int count = field_number(in, 1);
    if (count > 4) in->error = KO_EOBJECT;
    for (int i = 0; i < count && !in->error; ++i) {
        while (is_white(*in->at))
            ++in->at;
        if (!*in->at) {
            in->error = KO_EOBJECT;
            break;
        }
        unsigned byte = get_hex_digit(*in->at++);
        if (*in->at && !is_white(*in->at)) byte = byte << 4 | get_hex_digit(*in->at++);
        desc.bytes[desc.length++] = static_cast<unsigned char>(byte);
    }
    return desc;
}

static int add_single(kovacmap *map, const table_data &entry) {
    if (!add_entry(&map->sym_char, name_bin(entry.name), entry) ||
        !add_entry(&map->char_sym, char_bin(entry.desc), entry) || !insert_char(map, entry.desc)) {
        return KO_ENOMEM;
    }
    return 0;
}

// The entry that ranges of this canonical name share, made where it is new. NULL without memory.
static table_data *range_entry(kovacmap *map, const char *canonical) {
    const unsigned bin = name_bin(canonical);
    for (list_cell *cell = map->sym_char.bins[bin].firstLink; cell; cell = cell->next) {
        auto *entry = static_cast<table_data *>(cell->data);
        if (entry->type == 'r' && !strcmp(entry->name, canonical)) return entry;
    }
    table_data entry = {.type = 'r', .name = {}, .desc = {}, .ranges = nullptr};
    memcpy(entry.name, canonical, strlen(canonical) + 1);
    table_data *added = add_entry(&map->sym_char, bin, entry);
    if (added) added->ranges = list_create();
    return added && added->ranges ? added : nullptr;
}

static int add_range(kovacmap *map, const range_data &range) {
    if (!list_insert(&range, sizeof range, nullptr, map->range_list)) return KO_ENOMEM;
    ++map->range_count;
    for (int i = 0; i < range.length; ++i) {
        if (!insert_char(map, range_char(&range, i))) return KO_ENOMEM;
    }
    char canonical[name_room];
    canonical_name(range.name, canonical);
    const table_data *entry = range_entry(map, canonical);
    if (!entry || !list_insert(&range, sizeof range, nullptr, entry->ranges)) return KO_ENOMEM;
    return 0;
}

static int read_single(record_line *in, kovacmap *map, const char *name) {
    table_data entry = {.type = 's', .name = {}, .desc = field_char(in), .ranges = nullptr};
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
    if (!map->mb_struct || !map->range_list) return KO_ENOMEM;
    if (const int error = read_header(in, map)) return error;
    char line[line_bound + 1];
    int chars_left = max_range_chars;
    while (in_gets(in, line, line_bound)) {
        if (is_blank_line(line)) continue;
        if (const int error = read_record(line, map, &chars_left)) return error;
    }
    if (in->stream && ko_ext_ferror(in->stream)) return KO_EFILE;
    const bool built =
        build_slots(&map->sym_char, true) && build_slots(&map->char_sym, false) && list_ranges(map);
    return built ? 0 : int{KO_ENOMEM};
}

static void free_table(symbol_table *table) {
    for (link_list &bin : table->bins) {
        for (const list_cell *cell = bin.firstLink; cell; cell = cell->next)
            list_dispose(static_cast<const table_data *>(cell->data)->ranges);
        list_clear(&bin);
    }
    free_ptr(table->slots);
}

void free_charmap(kovacmap *map) {
    if (map->mb_struct) free_multi(map->mb_struct);
    list_dispose(map->range_list);
    free_ptr(map->ranges);
    free_table(&map->sym_char);
    free_table(&map->char_sym);
    ko_ext_free(map);
}
