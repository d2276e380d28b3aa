// The text form of look-up tables inside locale, charmap and conversion objects: runs of flags and
// items, node by node. Writing goes through the host's write hook, reading through text_in.
#include "kovablocks.h"
#include "kovaextsa.h"
#include "kovamulti.h"

#include <stdio.h>
#include <string.h>

// ---- Writing -----------------------------------------------------------------------------------

namespace {
struct table_writer {
    void *stream;
    mb_decode *table;
    ko_item_printer print_item;
};
} // namespace

static bool put_text(const table_writer &out, const char *text) {
    const size_t size = strlen(text);
    return ko_ext_fwrite(text, 1, size, out.stream) == size;
}

namespace {
// One array of a node, of flags or of items.
struct array_view {
    const unsigned char *slots;
    size_t slot_bytes;
    size_t item_bytes;
    const unsigned char *empty; // the value that is not written
    bool items;
};
} // namespace

static bool same(const array_view &array, unsigned i, unsigned k) {
    const unsigned char *slots = array.slots;
    return !memcmp(slots + i * array.slot_bytes, slots + k * array.slot_bytes, array.item_bytes);
}

static bool is_empty(const array_view &array, unsigned i) {
    return !memcmp(array.slots + i * array.slot_bytes, array.empty, array.item_bytes);
}

namespace {
struct run_record {
    unsigned count; // values written
    unsigned repetitions;
};
} // namespace

// The record that starts at the non-empty index s: four or more equal values become a repetition.
// Anything else is a literal that stops at the fourth equal value in a row; the three before it
// belong to the literal.
static run_record choose_run(const array_view &array, unsigned s) {
    unsigned last = s, current = s, row = 0;
    bool differs = false;
    for (unsigned i = s + 1; i < 256; ++i) {
        if (same(array, i, current)) {
            ++row;
            if (differs && row == 3) break;
        } else {
            if (!differs && row >= 3) break;
            differs = true;
            current = i;
            row = 0;
        }
        if (!is_empty(array, i)) last = i;
    }
    if (!differs && row >= 3) return {1, row + 1};
    // A repetition that a different value ends never sets differs, so this is a literal.
    return {last - s + 1, 1};
}

static bool fprintf_run(const table_writer &out, const array_view &array, unsigned s,
                        run_record run) {
    char text[16];
    snprintf(text, sizeof text, "%02x%03x%03x", s, run.count, run.repetitions);
    if (!put_text(out, text)) return false;
    for (unsigned i = s; i < s + run.count; ++i) {
        const unsigned char *slot = array.slots + i * array.slot_bytes;
        if (array.items) {
            if (out.print_item(out.stream, slot) < 0) return false;
        } else {
            snprintf(text, sizeof text, "%02x", unsigned{*slot});
            if (!put_text(out, text)) return false;
        }
    }
    return put_text(out, "\n");
}

static bool fprintf_array(const table_writer &out, const array_view &array) {
    for (unsigned s = 0; s < 256;) {
        if (is_empty(array, s)) {
            ++s;
            continue;
        }
        const run_record run = choose_run(array, s);
        if (!fprintf_run(out, array, s, run)) return false;
        s += run.count * run.repetitions;
    }
    return put_text(out, "0000000\n");
}

static bool fprintf_flag_arr(const table_writer &out, const unsigned char *flags) {
    static constexpr unsigned char invalid = mb_invalid;
    return fprintf_array(out, {flags, 1, 1, &invalid, false});
}

static bool fprintf_data_arr(const table_writer &out, const unsigned char *data) {
    const size_t slot = size_t{1} << out.table->log_data_size;
    const auto size = size_t(out.table->data_size);
    return fprintf_array(out, {data, slot, size, out.table->default_data, true});
}

static bool fprintf_unc_node(const table_writer &out, const multi_arr *node) {
    char text[16];
    snprintf(text, sizeof text, "%d %d\n", node->flag_arr ? 1 : 0, node->data_arr ? 1 : 0);
    if (!put_text(out, text)) return false;
    if (node->flag_arr && !fprintf_flag_arr(out, node->flag_arr)) return false;
    return !node->data_arr || fprintf_data_arr(out, node->data_arr);
}

static bool fprintf_comp_node(const table_writer &out, const multi_arr *node) {
    char text[48];
    snprintf(text, sizeof text, "%d %d %u %u\n", node->flag_arr ? 1 : 0, node->data_arr ? 1 : 0,
             node->flag_arr ? unsigned{node->flag_id} : 0u,
             node->data_arr ? unsigned{node->data_id} : 0u);
    return put_text(out, text);
}

// Writes each node before its children, and children in ascending byte order.
static bool fprintf_nodes(const table_writer &out, const multi_arr *node, bool compressed) {
    if (!(compressed ? fprintf_comp_node(out, node) : fprintf_unc_node(out, node))) return false;
    if (node->num_offsets <= 0 || !node->next_arr || !node->flag_arr) return true;
    for (unsigned byte = 0; byte < 256; ++byte) {
        if (node->flag_arr[byte] != mb_prefix) continue;
        const multi_arr *child = node->next_arr[node->offset_arr[byte]];
        if (child && !fprintf_nodes(out, child, compressed)) return false;
    }
    return true;
}

static bool fprintf_lists(const table_writer &out) {
    const mb_decode *t = out.table;
    char text[32];
    snprintf(text, sizeof text, "%d %d\n", t->flag_arr_count, t->data_arr_count);
    if (!put_text(out, text)) return false;
    for (int i = 0; i < t->flag_arr_count; ++i) {
        if (!fprintf_flag_arr(out, t->flag_arrs[i])) return false;
    }
    for (int i = 0; i < t->data_arr_count; ++i) {
        if (!fprintf_data_arr(out, t->data_arrs[i])) return false;
    }
    return true;
}

int fprintf_multi(void *stream, void *table, ko_item_printer printer) {
    mb_decode *t = static_cast<mb_decode *>(table);
    if (!t->root) return -1; // its reading failed
    const table_writer out{stream, t, printer};
    const bool compressed = is_compressed(t);
    single_byte_exists(t);
    // The flags state the form that follows, whatever flags create_multi was given.
    const unsigned bit = multi_compressed;
    const unsigned flags = compressed ? t->flags | bit : t->flags & ~bit;
    char text[48];
    snprintf(text, sizeof text, "%d %d %u ", t->max_char_len, t->min_char_len, flags);
    if (!put_text(out, text) || printer(stream, t->default_data) < 0 || !put_text(out, "\n")) {
        return -1;
    }
    if (compressed && !fprintf_lists(out)) return -1;
    return fprintf_nodes(out, t->root, compressed) ? 0 : -1;
}

// ---- Reading -----------------------------------------------------------------------------------

static inline unsigned hex_field(text_in *in, int digits) {
    unsigned value = 0;
    for (int i = 0; i < digits; ++i) {
        const int c = in_getc(in);
        if (c < 0) return 0;
        value = (value << 4) + get_hex_digit(c);
    }
    return value;
}

static inline void skip_white(text_in *in) {
    if (in->stream) return skip_whitespace(in);
    while (in->pos < in->end && is_white(*in->pos))
        ++in->pos;
    if (in->pos == in->end) in->ended = true;
}

namespace {
// Where items come from: the host's reader on its own stream, four hexadecimal digits, or
// conversion entries.
struct host_items {
    ko_item_reader read;
};
struct ub2_items {};
} // namespace

static bool read_items(text_in *in, const host_items &items, unsigned char *slots, unsigned count,
                       const mb_decode *table) {
    for (unsigned i = 0; i < count; ++i) {
        unsigned char *slot = slots + (size_t{i} << table->log_data_size);
        if (items.read(in->stream, slot, table->data_size) < 0) return false;
    }
    return true;
}

#ifdef KOVA_BYTE_BLOCKS

// Reads numbers of four digits, as many as there are whole blocks of proper digits.
static unsigned read_numbers(const unsigned char *p, unsigned char *slots, unsigned count) {
    unsigned done = 0;
    for (__m128i bytes; count - done >= 4 && hex_bytes(load_digits(p), &bytes); done += 4, p += 16)
        store_eight(slots + size_t{2} * done, hex_numbers(bytes));
    return done;
}

// Reads entries that fill their slots of 2 or 4 bytes, as many as there are whole blocks of them.
template <unsigned slot_bytes>
static unsigned read_full_entries(text_in *in, unsigned char *slots, unsigned count) {
    constexpr unsigned in_block = 8 / slot_bytes;
    const __m128i most = slot_bytes == 2 ? _mm_set1_epi16(1) : _mm_set1_epi32(3);
    const __m128i mask = slot_bytes == 2 ? _mm_set1_epi16(7) : _mm_set1_epi32(7);
    unsigned done = 0;
    for (__m128i bytes; count - done >= in_block && in->end - in->pos >= 16; in->pos += 16) {
        if (!hex_bytes(load_digits(in->pos), &bytes)) break;
        const __m128i lengths = _mm_and_si128(bytes, mask);
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(lengths, most)) != 0xFFFF) break;
        store_eight(slots + size_t{slot_bytes} * done, bytes);
        done += in_block;
    }
    return done;
}

#else

static unsigned read_numbers(const unsigned char *, unsigned char *, unsigned) { return 0; }
template <unsigned> static unsigned read_full_entries(text_in *, unsigned char *, unsigned) {
    return 0;
}

#endif

static bool read_items(text_in *in, const ub2_items &, unsigned char *slots, unsigned count,
                       const mb_decode *) {
    const bool in_memory = !in->stream && in->end - in->pos >= ptrdiff_t{4} * int(count);
    for (unsigned i = in_memory ? read_numbers(in->pos, slots, count) : 0; i < count; ++i) {
        unsigned value;
        if (in_memory) {
            value = get_hex4(in->pos + size_t{4} * i);
        } else {
            value = hex_field(in, 4);
        }
        const auto item = uint16_t(value);
        memcpy(slots + size_t{2} * i, &item, 2);
    }
    if (in_memory) in->pos += size_t{4} * count;
    return true;
}

namespace {
// A conversion entry is a byte of flags and length as two hexadecimal digits, then as many bytes as
// its low three bits say. An entry longer than the table's items makes the table unreadable.
struct entry_items {};
} // namespace

static bool read_entry(text_in *in, unsigned char *slot, unsigned most) {
    const unsigned head = hex_field(in, 2) & 0xFF, len = head & 7;
    if (len > most) return false;
    memset(slot, 0, most + 1);
    slot[0] = uint8_t(head);
    for (unsigned k = 1; k <= len; ++k)
        slot[k] = uint8_t(hex_field(in, 2));
    return true;
}

static inline uint32_t byte_of_digits(const unsigned char *p) {
    return (hex_values[p[0]] * 16u + hex_values[p[1]]) & 0xFF;
}

// Reads entries into slots of 2 or 4 bytes, while as much text is left as a slot can take; *done is
// their number. False for an entry that is longer than most.
template <unsigned slot_bytes>
static bool read_entries(text_in *in, unsigned char *slot, unsigned count, unsigned most,
                         unsigned *done) {
    const unsigned char *p = in->pos;
    unsigned len = most, digits = 2 + 2 * most, i = 0;
    for (; i < count && in->end - p >= ptrdiff_t{2 * slot_bytes}; ++i, slot += slot_bytes) {
        uint32_t entry = 0;
        for (unsigned k = 0; k < slot_bytes; ++k)
            entry |= byte_of_digits(p + 2 * k) << (8 * k);
        // Most entries have the length of the one before: by guessing it, the processor starts on
        // the next entry before this one is known.
        if ((entry & 7) != len) [[unlikely]] {
            len = entry & 7;
            digits = 2 + 2 * len;
            if (len > most) return false;
        }
        entry &= 0xFFFFFFFF >> (24 - 8 * len);
        for (unsigned k = 0; k < slot_bytes; ++k)
            if (k < 3 || most == 3) slot[k] = uint8_t(entry >> (8 * k)); // an item may be shorter
        p += digits;
    }
    in->pos = p;
    *done = i;
    return true;
}

// Reads entries by blocks where they fill their slots, as in most runs, and some one by one where
// not. *done and false as above.
template <unsigned slot_bytes>
static bool read_slots(text_in *in, unsigned char *slots, unsigned count, unsigned most,
                       unsigned *done) {
    const unsigned some = most == slot_bytes - 1 ? 8 : count;
    for (unsigned i = 0, n = 1; i < count && n; *done = i += n) {
        if (most == slot_bytes - 1)
            i += read_full_entries<slot_bytes>(in, slots + slot_bytes * i, count - i);
        const unsigned left = count - i;
        if (!read_entries<slot_bytes>(in, slots + slot_bytes * i, left < some ? left : some, most,
                                      &n))
            return false;
    }
    return true;
}

static bool read_items(text_in *in, const entry_items &, unsigned char *slots, unsigned count,
                       const mb_decode *table) {
    const unsigned most = unsigned(table->data_size) - 1, log_size = table->log_data_size;
    unsigned i = 0;
    if (!in->stream && log_size == 1 && !read_slots<2>(in, slots, count, most, &i)) return false;
    if (!in->stream && log_size == 2 && !read_slots<4>(in, slots, count, most, &i)) return false;
    for (; i < count; ++i)
        if (!read_entry(in, slots + (size_t{i} << log_size), most)) return false;
    return true;
}

namespace {
struct run_head {
    unsigned first;
    unsigned count; // 0 ends the array
    unsigned repetitions;
};
} // namespace

// The value of digits in memory, as hex_field reads them.
static inline unsigned digits_at(const unsigned char *p, int digits) {
    unsigned value = 0;
    for (int i = 0; i < digits; ++i)
        value = (value << 4) + hex_values[p[i]];
    return value;
}

// False at the end of the file and for a run that reaches beyond the array.
static bool read_run_head(text_in *in, run_head *run) {
    // In the closing record the repetitions include the line's end.
    if (!in->stream && in->end - in->pos >= 8) {
        *run = {digits_at(in->pos, 2), digits_at(in->pos + 2, 3), digits_at(in->pos + 5, 3)};
        in->pos += 8;
    } else {
        *run = {hex_field(in, 2), hex_field(in, 3), hex_field(in, 3)};
    }
    if (in->ended) return false;
    if (!run->count) return true;
    return run->repetitions &&
           uint64_t{run->first} + uint64_t{run->count} * run->repetitions <= 256;
}

static bool is_flag(unsigned value) {
    return value == mb_invalid || value == mb_prefix || value == mb_final;
}

static bool fscanf_flag_arr(text_in *in, unsigned char *flags) {
    skip_white(in);
    for (run_head run;;) {
        if (!read_run_head(in, &run)) return false;
        if (!run.count) return true;
        unsigned char *to = flags + run.first;
        for (unsigned i = 0; i < run.count; ++i) {
            const unsigned value = hex_field(in, 2);
            if (!is_flag(value)) return false;
            to[i] = uint8_t(value);
        }
        repeat_front(to, run.count, run.repetitions);
        skip_white(in);
    }
}

template <class Items>
static bool fscanf_data_arr(text_in *in, const Items &items, unsigned char *data,
                            const mb_decode *table) {
    skip_white(in);
    for (run_head run;;) {
        if (!read_run_head(in, &run)) return false;
        if (!run.count) return true;
        unsigned char *to = data + (size_t{run.first} << table->log_data_size);
        if (!read_items(in, items, to, run.count, table)) return false;
        repeat_front(to, size_t{run.count} << table->log_data_size, run.repetitions);
        skip_white(in);
    }
}

static int count_prefixes(const unsigned char *flags) {
    int count = 0;
    for (int i = 0; i < 256; ++i)
        count += flags[i] == mb_prefix;
    return count;
}

namespace {
template <class Items> struct table_reader {
    text_in *in;
    mb_decode *table;
    Items items;
    unsigned depth; // levels that characters of the stored longest length need
    int *found;     // length of the longest character found, 0 without any
};
} // namespace

// Reads the indicators and arrays of an uncompressed node.
template <class Items>
static bool fscanf_unc_node(const table_reader<Items> &from, multi_arr *node) {
    mb_decode *t = from.table;
    const int has_flags = get_int(from.in), has_data = get_int(from.in);
    if (has_flags) {
        if (!create_flag_arr(node, t) || !fscanf_flag_arr(from.in, node->flag_arr)) return false;
        node->num_offsets = count_prefixes(node->flag_arr);
    }
    if (!has_data) return true;
    return create_data_arr(node, t) && fscanf_data_arr(from.in, from.items, node->data_arr, t);
}

// Reads the indicators of a compressed node, which refer to listed arrays.
template <class Items>
static bool fscanf_comp_node(const table_reader<Items> &from, multi_arr *node) {
    const mb_decode *t = from.table;
    const int has_flags = get_int(from.in), has_data = get_int(from.in);
    const int flag_id = get_int(from.in), data_id = get_int(from.in);
    if (has_flags) {
        if (flag_id < 0 || flag_id >= t->flag_arr_count) return false;
        node->flag_id = uint32_t(flag_id);
        node->flag_arr = t->flag_arrs[flag_id];
        node->num_offsets = t->offset_count[flag_id];
    }
    if (has_data) {
        if (data_id < 0 || data_id >= t->data_arr_count) return false;
        node->data_id = uint32_t(data_id);
        node->data_arr = t->data_arrs[data_id];
    }
    return true;
}

static void note_length(int *longest, const multi_arr *node, int length) {
    if (length > *longest && node->flag_arr && memchr(node->flag_arr, mb_final, 256))
        *longest = length;
}

// Reads a node and its children; the recursion is no deeper than the longest character.
template <class Items>
static bool fscanf_nodes(const table_reader<Items> &from, multi_arr *node, unsigned level,
                         bool compressed) {
    const bool read = compressed ? fscanf_comp_node(from, node) : fscanf_unc_node(from, node);
    if (!read || from.in->ended) return false;
    note_length(from.found, node, int(level) + 1);
    if (!node->num_offsets) return true;
    if (level + 1 >= from.depth) return false;
    if (!create_offset_arr(node, from.table)) return false;
    if (!create_next_arr(node, node->num_offsets)) return false;
    multi_arr *const children = create_block(node->num_offsets);
    if (!children) return false;
    for (int i = 0; i < node->num_offsets; ++i)
        node->next_arr[i] = children + i;
    for (unsigned byte = 0, k = 0; byte < 256; ++byte) {
        if (node->flag_arr[byte] != mb_prefix) continue;
        node->offset_arr[byte] = uint8_t(k);
        if (!fscanf_nodes(from, node->next_arr[k++], level + 1, compressed)) return false;
    }
    return true;
}

// No tree of this depth can have more nodes, nor therefore more listed arrays.
static int most_nodes(unsigned depth) {
    int nodes = 1;
    for (unsigned level = 1; level < depth; ++level)
        nodes = nodes * 256 + 1;
    return nodes;
}

// Makes room for one more entry in a growing array of the host's memory: its size follows what the
// file actually holds, not what it claims.
template <class T> static bool grow(T **list, int count, int *room) {
    if (count < *room) return true;
    const int wanted = *room ? *room * 2 : 16;
    ext_block<T> bigger{size_t(wanted)};
    if (!bigger.p) return false;
    if (count) memcpy(bigger.p, *list, size_t(count) * sizeof(T));
    free_ptr(*list);
    *list = bigger.release();
    *room = wanted;
    return true;
}

template <class Items> static bool fscanf_flag_list(const table_reader<Items> &from, int wanted) {
    mb_decode *t = from.table;
    int list_room = 1, count_room = 0; // one entry of the list exists
    if (!grow(&t->offset_count, 0, &count_room)) return false;
    for (int n = 0; n < wanted; ++n) {
        if (!grow(&t->flag_arrs, n, &list_room)) return false;
        if (!grow(&t->offset_count, n, &count_room)) return false;
        const int place = n % flags_in_block, left = wanted - n;
        unsigned char *const flags =
            place ? t->flag_arrs[n - 1] + 256
                  : alloc_flag_arrs(t, left < flags_in_block ? left : flags_in_block);
        if (!flags) return false;
        t->flag_arrs[n] = flags;
        t->flag_arr_count = n + 1;
        if (!fscanf_flag_arr(from.in, flags)) return false;
        t->offset_count[n] = count_prefixes(flags);
    }
    return true;
}

template <class Items> static bool fscanf_data_list(const table_reader<Items> &from, int wanted) {
    mb_decode *t = from.table;
    const int in_block = data_in_block(t);
    int room = 0;
    for (int n = 0; n < wanted; ++n) {
        if (!grow(&t->data_arrs, n, &room)) return false;
        const int place = n % in_block, left = wanted - n;
        unsigned char *const data = place ? t->data_arrs[n - 1] + (size_t{256} << t->log_data_size)
                                          : alloc_data_arrs(t, left < in_block ? left : in_block);
        if (!data) return false;
        t->data_arrs[n] = data;
        t->data_arr_count = n + 1;
        if (!fscanf_data_arr(from.in, from.items, data, t)) return false;
    }
    return true;
}

template <class Items> static bool fscanf_comp_multi(const table_reader<Items> &from) {
    mb_decode *t = from.table;
    const int flag_count = get_int(from.in), data_count = get_int(from.in);
    const int most = most_nodes(from.depth);
    if (flag_count < 0 || flag_count > most || data_count < 0 || data_count > most) return false;
    ext_block<unsigned char *> list(1);
    if (!list.p) return false;
    t->flag_arrs = list.release(); // from now on the lists own every array
    free_ptr(t->root->flag_arr);
    t->root->flag_arr = nullptr;
    t->flag_arr_count = 0;
    return fscanf_flag_list(from, flag_count) && fscanf_data_list(from, data_count) &&
           fscanf_nodes(from, t->root, 0, true);
}

template <class Items> static bool read_tree(text_in *in, mb_decode *table, const Items &items) {
    if (!create_root(table)) return false;
    skip_white(in);
    if (!read_items(in, items, table->default_data, 1, table)) return false;
    skip_white(in);
    const int longest = table->max_char_len < 1 ? 1 : table->max_char_len;
    const auto levels = unsigned(longest);
    const unsigned depth = levels < multi_max_depth ? levels : multi_max_depth;
    int found = 0;
    const table_reader<Items> from{in, table, items, depth, &found};
    const bool done = table->flags & multi_compressed ? fscanf_comp_multi(from)
                                                      : fscanf_nodes(from, table->root, 0, false);
    // Callers size buffers by the stored longest length; the shortest one is taken as it stands.
    return done && !in->ended && table->max_char_len >= found;
}

// An incomplete tree is freed: it is of no use, and its prefixes refer to children that it lacks.
// The table then has the lengths of one without characters.
static int unread(mb_decode *table) {
    free_tree(table);
    table->max_char_len = 0;
    table->min_char_len = 2;
    return -1;
}

template <class Items>
static int read_table(text_in *in, mb_decode *table, int max_len, const Items &items) {
    free_tree(table); // left by create_multi or an earlier reading
    table->max_char_len = get_int(in);
    table->min_char_len = get_int(in);
    table->flags = unsigned(get_int(in));
    if (in->ended)
        table->err = KO_ENOMEM;
    else if (table->max_char_len > max_len)
        table->err = KO_ECHARLEN;
    else
        table->err = read_tree(in, table, items) ? KO_OK : KO_ENOMEM;
    return table->err ? unread(table) : 0;
}

int fscanf_multi(void *stream, void *table, int max_len, ko_item_reader reader) {
    text_in in = {.stream = stream};
    auto *const read = static_cast<mb_decode *>(table);
    if (read_table(&in, read, max_len, host_items{reader})) return -1;
    if ((stream_hooks_set() && !hook_set(KO_EXT_FERROR)) || !ko_ext_ferror(stream)) return 0;
    read->err = KO_ENOMEM; // a number that the error has cut looks like another
    return unread(read);
}

int read_multi_ub2(text_in *in, mb_decode *table, int max_len) {
    return read_table(in, table, max_len, ub2_items{});
}

int read_multi_entries(text_in *in, mb_decode *table, int max_len) {
    return read_table(in, table, max_len, entry_items{});
}
