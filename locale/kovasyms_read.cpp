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

// ---- Indexes ------------------------------------------------------------------------------------

static unsigned hash_bytes(const void *bytes, size_t len) {
    const auto *at = static_cast<const unsigned char *>(bytes);
    unsigned hash = 0x811C9DC5U;
    for (size_t i = 0; i < len; ++i)
        hash = (hash ^ at[i]) * 0x01000193U;
    return hash ^ hash >> 15;
}
static unsigned hash_of(const char *name) { return hash_bytes(name, strlen(name)); }
static unsigned hash_of(const char_desc &desc) { return hash_bytes(desc.bytes, desc.length); }

static int compare(const char *a, const char *b) { return strcmp(a, b); }
static int compare(const char_desc &a, const char_desc &b) { return memcmp(&a, &b, sizeof a); }

static const char *name_key(const single_char *single) { return name_of(single); }
static const char_desc &desc_key(const single_char *single) {
    return single->desc; // NOLINT(clang-analyzer-*): an index holds no null pointers
}

namespace {
struct canonical_text {
    char name[name_room];
};
} // namespace
static unsigned hash_of(const canonical_text &text) { return hash_of(text.name); }
static int compare(const canonical_text &a, const char *b) { return compare(a.name, b); }
static int compare(const canonical_text &a, const canonical_text &b) {
    return compare(a.name, b.name);
}
static canonical_text canonical_key(const range_data *range) {
    canonical_text text;
    canonical_name(name_of(range), text.name);
    return text;
}

// The first record of a key; NULL without one.
template <class Record, class Key, class KeyOf>
static const Record *look_up(const symbol_index<Record> &index, const Key &key, KeyOf key_of) {
    if (!index.at) return nullptr;
    const uint32_t *const starts = index.starts + (hash_of(key) & index.mask);
    uint32_t low = starts[0], high = starts[1];
    while (high - low > 1) { // if the key is there, its first record stands between them
        const uint32_t middle = low + (high - low - 1) / 2;
        if (compare(key_of(index.at[middle]), key) < 0)
            low = middle + 1;
        else
            high = middle + 1;
    }
    return low < high && !compare(key_of(index.at[low]), key) ? index.at[low] : nullptr;
}

const single_char *find_named(const kovacmap *map, const char *name) {
    return look_up(map->by_name, name, name_key);
}
const single_char *find_char(const kovacmap *map, const char_desc &desc) {
    return look_up(map->by_desc, desc, desc_key);
}
const range_data *find_canonical(const kovacmap *map, const char *canonical) {
    return look_up(map->by_canonical, canonical, canonical_key);
}

// Sorts by keys and keeps the order of equal ones. The spare room takes half as many.
template <class Record, class KeyOf>
static void sort_records(Record **at, size_t count, Record **spare, KeyOf key_of) {
    if (count < 2) return;
    const size_t half = count / 2;
    sort_records(at, half, spare, key_of);
    sort_records(at + half, count - half, spare, key_of);
    memcpy(spare, at, half * sizeof *at);
    Record **left = spare, **right = at + half, **const left_end = spare + half;
    for (Record **const end = at + count; left < left_end; ++at) {
        const bool keep = right == end || compare(key_of(*left), key_of(*right)) <= 0;
        *at = keep ? *left++ : *right++;
    }
}

// Puts a list into the buckets of an index, in each of them in its order. Returns the records of
// the largest one.
template <class Record, class KeyOf>
static uint32_t fill_buckets(Record *list, KeyOf key_of, const symbol_index<Record> &index) {
    const auto bucket_of = [&](const Record *record) {
        return index.starts + (hash_of(key_of(record)) & index.mask);
    };
    const size_t size = (size_t{index.mask} + 1) * sizeof *index.starts;
    uint32_t largest = 0, sum = 0;
    memset(index.starts, 0, size + sizeof *index.starts);
    for (const Record *record = list; record; record = record->next)
        ++*bucket_of(record);
    for (uint32_t i = 0; i <= index.mask; ++i) {
        const uint32_t count = index.starts[i];
        index.starts[i] = sum;
        sum += count;
        if (count > largest) largest = count;
    }
    for (Record *record = list; record; record = record->next)
        index.at[(*bucket_of(record))++] = record;
    memmove(index.starts + 1, index.starts, size); // filling made each start the next one's
    index.starts[0] = 0;
    return largest;
}

// Indexes a list by a key. False without memory.
template <class Record, class KeyOf>
static bool build_index(Record *list, KeyOf key_of, symbol_index<Record> *index) {
    uint32_t count = 0, buckets = 1;
    for (const Record *record = list; record; record = record->next)
        if (++count > 1u << 30) return false;
    if (!count) return true;
    while (buckets < count)
        buckets *= 2;
    ext_block<Record *> at(count);
    ext_block<uint32_t> starts(size_t{buckets} + 1);
    if (!at.p || !starts.p) return false;
    const symbol_index<Record> made = {.at = at.p, .starts = starts.p, .mask = buckets - 1};
    ext_block<Record *> spare(fill_buckets(list, key_of, made) / 2);
    if (!spare.p) return false;
    for (uint32_t i = 0; i < buckets; ++i)
        sort_records(at.p + starts.p[i], starts.p[i + 1] - starts.p[i], spare.p, key_of);
    *index = made;
    at.release();
    starts.release();
    return true;
}

// Links the records that share a key in file order.
template <class Record, class KeyOf>
static void link_equals(const symbol_index<Record> &index, KeyOf key_of, Record *Record::*next) {
    const uint32_t count = index.at ? index.starts[index.mask + 1] : 0;
    for (uint32_t i = 0; i < count; ++i) {
        Record *const after = i + 1 < count ? index.at[i + 1] : nullptr;
        const bool equal = after && !compare(key_of(index.at[i]), key_of(after));
        index.at[i]->*next = equal ? after : nullptr; // NOLINT(clang-analyzer-*): as in desc_key
    }
}

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
    unsigned carry = unsigned(i);
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
    if (value < first || value - first >= uint32_t(range->length)) return -1;
    return int(value - first);
}

// ---- Ranges -------------------------------------------------------------------------------------

// Sort keys for the indexes: of characters by length and bytes, of ranges by the numbers in their
// names.
static uint64_t char_place(const char_desc &desc) {
    return uint64_t{desc.length} << 33 | char_value(desc);
}
static uint64_t first_char(const range_data *range) { return char_place(range->base_char); }
static uint64_t first_number(const range_data *range) { return uint64_t(range->name_base); }

static constexpr int few_ranges = 8; // so few are searched one by one

// Builds an index of a list that is linked by next. False without memory.
static bool sort_ranges(const range_data *list, range_data *range_data::*next,
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
        const auto length = uint64_t(before.range->length);
        if (starts.p[n].first - before.first < length) return true;
    }
    *index = {.at = starts.release(), .count = int(count)};
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

const range_data *find_number(const range_data *first, int number) {
    if (first && first->by_number.at) {
        const range_data *range = last_from(first->by_number, uint64_t(number));
        return range && holds_number(range, number) ? range : nullptr;
    }
    const range_data *range = first;
    while (range && !holds_number(range, number))
        range = range->sister;
    return range;
}

// False without memory.
static bool index_ranges(kovacmap *map) {
    if (!build_index(map->ranges.first, canonical_key, &map->by_canonical)) return false;
    link_equals(map->by_canonical, canonical_key, &range_data::sister);
    for (range_data *range = map->ranges.first; range; range = range->next) {
        const bool first = find_canonical(map, canonical_key(range).name) == range;
        if (first && !sort_ranges(range, &range_data::sister, first_number, &range->by_number))
            return false;
    }
    return sort_ranges(map->ranges.first, &range_data::next, first_char, &map->by_char);
}

static bool index_singles(kovacmap *map) {
    single_char *const list = map->singles.first;
    if (!build_index(list, name_key, &map->by_name)) return false;
    if (!build_index(list, desc_key, &map->by_desc)) return false;
    link_equals(map->by_desc, desc_key, &single_char::next);
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
    return number <= INT_MAX ? int(number) : -1;
}

void calculate_name(const range_data *range, int i, char *out) {
    const char *const name = name_of(range);
    const size_t len = strlen(name), stem = stem_length(name);
    char digits[10];
    size_t count = 0;
    for (uint64_t n = uint64_t(range->name_base) + uint64_t(i); n || !count; n /= 10) {
        digits[count++] = char('0' + n % 10);
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

namespace {
struct record_line {
    const char *at;
    int error;
};
} // namespace

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
    const long long value = number ? strtoll(in->at, &end, 10) : 0; // a long may be an int
    if (!number || end == in->at || value < least || value > INT_MAX) {
        in->error = KO_EOBJECT;
        return 0;
    }
    in->at = end;
    return int(value);
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

template <class Record> static void append(record_list<Record> *list, Record *record) {
    (list->last ? list->last->next : list->first) = record;
    list->last = record;
}

static int add_single(kovacmap *map, const char *name, const char_desc &desc) {
    single_char *const added = new_record<single_char>(&map->pool, name);
    if (!added) return KO_ENOMEM;
    added->desc = desc;
    append(&map->singles, added);
    return insert_char(map, desc);
}

static int add_range(kovacmap *map, const char *name, const range_data &read) {
    range_data *const range = new_record<range_data>(&map->pool, name);
    if (!range) return KO_ENOMEM;
    *range = read;
    append(&map->ranges, range);
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
    const uint64_t end = uint64_t{char_value(range.base_char)} + uint64_t(range.length);
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

static int read_records(text_in *in, kovacmap *map) {
    char line[line_bound + 1];
    int chars_left = max_range_chars;
    while (in_gets(in, line, line_bound)) {
        if (is_blank_line(line)) continue;
        if (const int error = read_record(line, map, &chars_left)) return error;
    }
    return in->stream && ko_ext_ferror(in->stream) ? int{KO_EFILE} : 0;
}

int read_charmap(text_in *in, kovacmap *map) {
    const uint16_t none = 0;
    map->mb_struct = create_multi(sizeof none, 0, &none);
    if (!map->mb_struct) return KO_ENOMEM;
    if (const int error = read_header(in, map)) return error;
    const int error = read_records(in, map);
    if (index_singles(map) && index_ranges(map)) return error;
    return error ? error : int{KO_ENOMEM};
}

template <class Record> static void free_index(const symbol_index<Record> &index) {
    free_ptr(index.at);
    free_ptr(index.starts);
}

void free_charmap(kovacmap *map) {
    if (map->mb_struct) free_multi(map->mb_struct);
    for (const range_data *range = map->ranges.first; range; range = range->next)
        free_ptr(range->by_number.at);
    free_index(map->by_name);
    free_index(map->by_desc);
    free_index(map->by_canonical);
    free_ptr(map->by_char.at);
    free_pool(&map->pool);
    ko_ext_free(map);
}
