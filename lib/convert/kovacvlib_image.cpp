// The tables of a conversion as an image holds them: the words of its flat rows, which are used
// where they lie, and the tree without its entries, which the words contain, too. Whatever the
// tables say is checked before it is used, as in an object.
#include "convert/kovacvlib.h"
#include "kova_host.h"
#include "locale/kovaextsa.h"
#include "locale/kovaimage.h"
#include "record/kovasetlc.h"

#include <stddef.h>
#include <string.h>

namespace {

// One table. Places are from the beginning of the tables.
struct table_part {
    int32_t data_size, max_char_len, min_char_len;
    uint32_t flags;
    uint32_t flag_arrays, flags_at; // of 256 bytes
    uint32_t nodes, nodes_at; // their arrays' numbers, -1 for none; each level after the other
    uint32_t words, words_at; // of the rows; with the last row
    cv_longest longest;
};

constexpr int part_max = 2;
struct cv_image {
    int32_t fields[13]; // see cv_fields
    float exp_ratio;
    unsigned char shifts[4][4];
    uint32_t parts;
    uint32_t spare;
    table_part part[part_max];
};

constexpr int iconv_rec::*cv_fields[13] = {
    &iconv_rec::source_is_stateful,     &iconv_rec::target_is_stateful,
    &iconv_rec::target_si_len,          &iconv_rec::target_so_len,
    &iconv_rec::source_si_len,          &iconv_rec::source_so_len,
    &iconv_rec::target_min_len,         &iconv_rec::target_max_len,
    &iconv_rec::source_shift_min_len,   &iconv_rec::source_shift_max_len,
    &iconv_rec::source_noshift_min_len, &iconv_rec::source_noshift_max_len,
    &iconv_rec::needs_error_checking,
};
constexpr unsigned char (iconv_rec::*cv_shifts[4])[4] = {
    &iconv_rec::target_si, &iconv_rec::target_so, &iconv_rec::source_si, &iconv_rec::source_so};
constexpr int iconv_rec::*cv_shift_lengths[4] = {
    &iconv_rec::target_si_len, &iconv_rec::target_so_len, &iconv_rec::source_si_len,
    &iconv_rec::source_so_len};

// ---- Using them ----

struct part_view {
    const unsigned char *flags; // the arrays
    const int32_t *nodes;
    const void *words;
};

template <class T> const T *items_at(const unsigned char *tables, uint32_t at) {
    const void *const items = tables + at;
    return static_cast<const T *>(items);
}

bool lies_in(size_t size, uint32_t at, uint64_t bytes) {
    return at % 16 == 0 && at <= size && bytes <= size - at;
}

bool view_part(const table_part &part, const unsigned char *tables, size_t size, part_view *view) {
    if (part.data_size < 2 || part.data_size > cv_max_target + 1) return false;
    if (part.max_char_len < 1 || part.max_char_len > cv_max_source || !part.nodes) return false;
    const uint64_t word = part.data_size > 4 ? 8 : 4;
    if (!lies_in(size, part.flags_at, uint64_t{part.flag_arrays} * 256) ||
        !lies_in(size, part.nodes_at, uint64_t{part.nodes} * sizeof(int32_t)) ||
        !lies_in(size, part.words_at, part.words * word))
        return false;
    *view = {tables + part.flags_at, items_at<int32_t>(tables, part.nodes_at),
             tables + part.words_at};
    return true;
}

// The prefixes of a flag array, -1 if it has what is no flag.
int count_prefixes(const unsigned char *flags) {
    unsigned prefixes = 0, bad = 0;
    for (int i = 0; i < 256; ++i) {
        prefixes += flags[i] == mb_prefix;
        bad |= flags[i] & ~unsigned{mb_prefix | mb_final};
        bad |= flags[i] == (mb_prefix | mb_final);
    }
    return bad ? -1 : int(prefixes);
}

// A flag array, with what the nodes that have it share.
struct flag_array {
    unsigned char *flags, *offsets;
    int prefixes;
};

// Finds out what the flag arrays say; returns how many have prefixes, -1 if one has what is no
// flag.
int read_flags(const table_part &part, const part_view &view, flag_array *arrays) {
    int branching = 0;
    for (uint32_t i = 0; i < part.flag_arrays; ++i) {
        const unsigned char *const flags = view.flags + size_t{256} * i;
        arrays[i] = {const_cast<unsigned char *>(flags), nullptr, count_prefixes(flags)};
        if (arrays[i].prefixes < 0) return -1;
        branching += arrays[i].prefixes > 0;
    }
    return branching;
}

void number_children(flag_array *array, unsigned char *offsets) {
    array->offsets = offsets;
    memset(offsets, 0, 256);
    for (unsigned byte = 0, k = 0; byte < 256; ++byte)
        if (array->flags[byte] == mb_prefix) offsets[byte] = uint8_t(k++);
}

// Where the nodes of a table are made, in the block that begins with it.
struct node_places {
    multi_arr *nodes, **next;
    size_t made; // nodes that have a parent, or are the root
};

// Links a node with its children, which follow those of the nodes before it. A node's flags hold
// its level meanwhile.
bool link_node(const table_part &part, const flag_array *arrays, int32_t number, multi_arr *node,
               node_places *places) {
    const int level = node->flags;
    *node = {.flag_id = multi_no_id, .data_id = multi_no_id};
    if (number < -1 || number >= int64_t{part.flag_arrays}) return false;
    if (number < 0) return true;
    const flag_array &array = arrays[number];
    node->flag_id = uint32_t(number);
    node->flag_arr = array.flags;
    node->num_offsets = node->next_slots = array.prefixes;
    if (!array.prefixes) return true;
    const auto children = size_t(array.prefixes);
    if (level >= part.max_char_len || children > part.nodes - places->made) return false;
    node->offset_arr = array.offsets;
    node->next_arr = places->next + places->made;
    for (size_t k = 0; k < children; ++k, ++places->made) {
        places->next[places->made] = places->nodes + places->made;
        places->nodes[places->made].flags = level + 1;
    }
    return true;
}

// A tree without entries, in one block; NULL without memory or for one that is no tree.
mb_decode *make_tree(const table_part &part, const part_view &view) {
    constexpr uint32_t nodes_max = 1 << 18;
    if (part.nodes > nodes_max || part.flag_arrays > nodes_max) return nullptr;
    ext_block<flag_array> arrays(part.flag_arrays);
    const int branching = arrays.p ? read_flags(part, view, arrays.p) : -1;
    if (branching < 0) return nullptr;
    const size_t n = part.nodes, heads = sizeof(mb_decode) + n * sizeof(multi_arr);
    ext_block<unsigned char> block(heads + n * sizeof(multi_arr *) + 256 * size_t(branching) + 8);
    if (!block.p) return nullptr;
    void *const table_place = block.p, *const nodes_place = block.p + sizeof(mb_decode),
                *const next_place = block.p + heads;
    node_places places = {static_cast<multi_arr *>(nodes_place),
                          static_cast<multi_arr **>(next_place), 1};
    unsigned char *offsets = block.p + heads + n * sizeof(multi_arr *);
    for (uint32_t i = 0; i < part.flag_arrays; ++i) {
        if (!arrays.p[i].prefixes) continue;
        number_children(&arrays.p[i], offsets);
        offsets += 256;
    }
    places.nodes[0].flags = 1;
    for (size_t i = 0; i < n; ++i)
        if (i >= places.made ||
            !link_node(part, arrays.p, view.nodes[i], &places.nodes[i], &places))
            return nullptr;
    memset(offsets, 0, 8);
    auto *const table = static_cast<mb_decode *>(table_place);
    *table = {.data_size = part.data_size,
              .max_char_len = part.max_char_len,
              .min_char_len = part.min_char_len,
              .flags = part.flags,
              .root = places.nodes,
              .default_data = offsets,
              .log_data_size = part.data_size == 2  ? 1u
                               : part.data_size < 5 ? 2u
                                                    : 3u,
              .one_block = true};
    block.release();
    return table;
}

bool take_part(const table_part &part, int target_max, const image_tables &tables, mb_decode **tree,
               cv_flat **flat) {
    part_view view;
    if (part.data_size - 1 != target_max || !view_part(part, tables.bytes, tables.size, &view))
        return false;
    *flat = use_cv_words(view.words, part.words, part.data_size > 4, part.longest, tables.proved);
    if (*flat) *tree = make_tree(part, view);
    return *tree;
}

bool take_fields(const cv_image &image, iconv_rec *cv) {
    for (int i = 0; i < 13; ++i)
        cv->*cv_fields[i] = image.fields[i];
    for (int i = 0; i < 4; ++i) {
        memcpy(cv->*cv_shifts[i], image.shifts[i], 4);
        if (unsigned(cv->*cv_shift_lengths[i]) > 4) return false;
    }
    cv->exp_ratio = image.exp_ratio;
    const bool single = cv->source_noshift_max_len == 1 && cv->target_max_len == 1;
    return !single && image.parts == (cv->source_is_stateful ? 2u : 1u);
}

bool take_tables(const image_tables &tables, iconv_rec *cv) {
    cv_image image;
    if (tables.size < sizeof image) return false;
    memcpy(&image, tables.bytes, sizeof image);
    if (!take_fields(image, cv)) return false;
    const int most = cv->target_max_len;
    return take_part(image.part[0], most, tables, &cv->conv_noshift, &cv->flat_noshift) &&
           (image.parts == 1 ||
            take_part(image.part[1], most, tables, &cv->conv_shift, &cv->flat_shift));
}

template <class W>
void unpack(const cv_flat *flat, const ko_mchar_t *in, int taken, unsigned char *entry) {
    constexpr unsigned top_byte = 8 * (sizeof(W) - 1);
    const W *const words = static_cast<const W *>(flat->words);
    W word = words[in[0]];
    for (int n = 1; n < taken; ++n) {
        const unsigned kind = unsigned(word >> top_byte), byte = in[n];
        const W *const row = words + size_t(word & cv_row_index) * 64;
        if (kind != cv_full_row && (kind != cv_short_row || (byte & 0xC0) != 0x80)) return;
        word = kind == cv_full_row ? row[byte] : row[byte & 0x3F];
    }
    const unsigned top = unsigned(word >> top_byte);
    if (top & cv_special) return;
    entry[0] = uint8_t(top | cv_plain);
    for (unsigned i = 0; i + 1 < sizeof word; ++i)
        entry[i + 1] = uint8_t(word >> 8 * i);
}

} // namespace

const unsigned char *cv_word_entry(const cv_flat *flat, const ko_mchar_t *in, int taken,
                                   unsigned char *entry) {
    memset(entry, 0, cv_entry_room);
    flat->wide ? unpack<uint64_t>(flat, in, taken, entry)
               : unpack<uint32_t>(flat, in, taken, entry);
    return entry;
}

bool take_cv_image(const image_tables &tables, iconv_rec *cv) {
    const iconv_rec before = *cv;
    if (take_tables(tables, cv)) {
        cv->by_words = true;
        if (!tables.proved) note_proved(tables);
        return true;
    }
    for (const mb_decode *tree : {cv->conv_noshift, cv->conv_shift})
        free_ptr(tree);
    for (cv_flat *flat : {cv->flat_noshift, cv->flat_shift})
        free_cv_flat(flat);
    *cv = before;
    return false;
}

// ---- Making them ----

namespace {

// A table on its way into an image.
struct part_source {
    const mb_decode *table;
    const cv_flat *flat;
    size_t words;
    ext_block<const multi_arr *> nodes; // level after level
    ext_block<const unsigned char *> flags;
    size_t node_count, flag_count;

    part_source(const mb_decode *from, const cv_flat *rows)
        : table(from), flat(rows), words(count_cv_words(from)), nodes(words / 64),
          flags(words / 64), node_count(), flag_count() {}
};

// An entry that only the look-ups that read no flags would find is not in the words.
bool has_hidden_entries(const mb_decode *table, const multi_arr *node) {
    for (unsigned b = 0; b < 256; ++b)
        if (node_flag(node, b) != mb_final && (*node_item(table, node, b) & cv_flags)) return true;
    return false;
}

size_t number_of_flags(part_source *from, const unsigned char *flags) {
    size_t i = 0;
    while (i < from->flag_count && memcmp(from->flags.p[i], flags, 256) != 0)
        ++i;
    if (i == from->flag_count) from->flags.p[from->flag_count++] = flags;
    return i;
}

// Lists the nodes; false without memory, or for a table that the form does not hold.
bool list_nodes(part_source *from) {
    if (!from->flat || !from->words || !from->nodes.p || !from->flags.p) return false;
    from->nodes.p[from->node_count++] = from->table->root;
    for (size_t i = 0; i < from->node_count; ++i) {
        const multi_arr *const node = from->nodes.p[i];
        if (has_hidden_entries(from->table, node)) return false;
        if (!node->flag_arr) continue;
        number_of_flags(from, node->flag_arr);
        for (unsigned b = 0; b < 256; ++b) {
            if (node->flag_arr[b] != mb_prefix) continue;
            const multi_arr *const child = node_child(node, b);
            if (!child || from->node_count == from->words / 64) return false;
            from->nodes.p[from->node_count++] = child;
        }
    }
    return true;
}

size_t stepped(size_t size) { return (size + 15) / 16 * 16; }
size_t word_bytes(const part_source &from) {
    return (from.words + 256) * (from.flat->wide ? 8 : 4);
}

// The place of the next part of the tables; moves the end.
uint32_t place(size_t *end, size_t size) {
    const size_t at = *end;
    *end += stepped(size);
    return uint32_t(at);
}

table_part place_part(const part_source &from, size_t *end) {
    table_part part = {.data_size = from.table->data_size,
                       .max_char_len = from.table->max_char_len,
                       .min_char_len = from.table->min_char_len,
                       .flags = from.table->flags};
    part.flag_arrays = uint32_t(from.flag_count);
    part.flags_at = place(end, 256 * from.flag_count);
    part.nodes = uint32_t(from.node_count);
    part.nodes_at = place(end, sizeof(int32_t) * from.node_count);
    part.words = uint32_t(from.words + 256);
    part.words_at = place(end, word_bytes(from));
    memcpy(part.longest, from.flat->longest, sizeof part.longest);
    return part;
}

void write_part(part_source *from, const table_part &part, unsigned char *tables) {
    for (size_t i = 0; i < from->flag_count; ++i)
        memcpy(tables + part.flags_at + 256 * i, from->flags.p[i], 256);
    for (size_t i = 0; i < from->node_count; ++i) {
        const unsigned char *const flags = from->nodes.p[i]->flag_arr;
        const int32_t number = flags ? int32_t(number_of_flags(from, flags)) : -1;
        memcpy(tables + part.nodes_at + sizeof number * i, &number, sizeof number);
    }
    memcpy(tables + part.words_at, from->flat->words, word_bytes(*from));
}

cv_image head_of(const iconv_rec *cv, uint32_t parts) {
    cv_image image = {.exp_ratio = cv->exp_ratio, .parts = parts};
    for (int i = 0; i < 13; ++i)
        image.fields[i] = cv->*cv_fields[i];
    for (int i = 0; i < 4; ++i)
        memcpy(image.shifts[i], cv->*cv_shifts[i], 4);
    return image;
}

// Adds the tables of a conversion. 0 or the error: KO_ERANGE if they have another form.
int add_tables(image_maker *maker, const char *name, const file_mark &mark,
               const unsigned char *object, const iconv_rec *cv, size_t *size) {
    if (cv->miconv_fp != mb_miconv) return KO_ERANGE; // by rules, or of bytes: as fast to read
    part_source single(cv->conv_noshift, cv->flat_noshift);
    part_source shifted(cv->conv_shift ? cv->conv_shift : cv->conv_noshift, cv->flat_shift);
    if (!list_nodes(&single) || (cv->conv_shift && !list_nodes(&shifted))) return KO_ERANGE;
    cv_image image = head_of(cv, cv->conv_shift ? 2 : 1);
    size_t end = stepped(sizeof image);
    image.part[0] = place_part(single, &end);
    if (cv->conv_shift) image.part[1] = place_part(shifted, &end);
    if (end > UINT32_MAX) return KO_ERANGE;
    ext_block<unsigned char> tables(end);
    if (!tables.p) return KO_ENOMEM;
    memset(tables.p, 0, end);
    memcpy(tables.p, &image, sizeof image);
    write_part(&single, image.part[0], tables.p);
    if (cv->conv_shift) write_part(&shifted, image.part[1], tables.p);
    const int error = add_to_image(maker, name, mark, object, tables.p, end);
    if (!error) *size = end;
    return error;
}

int add_object(image_maker *maker, const char *root, const char *name, size_t *size) {
    char stored[image_name_room] = "cv9/";
    int error = KO_OK;
    char *path;
    if (!is_confined(name) || strlen(name) >= sizeof stored - 4) return KO_EFILE;
    strcpy(stored + 4, name);
    data_file file = no_data_file;
    const bool found = find_data_file_below(&file, root, name, "cv", "9", &path, &error);
    free_ptr(path);
    if (!found) return error;
    const file_mark mark = file.mark;
    size_t object_size = 0;
    const unsigned failures = failed_allocations();
    unsigned char *const object = read_data_file(&file, &object_size);
    const bool is_read = !has_failed(file);
    close_data_file(&file);
    iconv_rec *const cv = object ? make_descriptor() : nullptr;
    text_in in = {.pos = object, .end = object + object_size};
    error = is_read ? KO_ENOMEM : KO_EIO;
    if (cv && object_size != mark.size)
        error = KO_EIO;
    else if (cv && read_cv_object(&in, cv))
        error = KO_EOBJECT;
    else if (cv && object_size < image_object_least)
        error = KO_ERANGE;
    else if (cv)
        error = add_tables(maker, stored, mark, object, cv, size);
    // An object without its tables looks damaged, or like one of another form.
    if (error && is_read && failed_allocations() != failures) error = KO_ENOMEM;
    if (cv) ko_cv_unload(cv);
    free_ptr(object);
    return error;
}

} // namespace

int ko_make_image(const char *root, const char *const *names, size_t count,
                  const ko_image_output *output) {
    if (!root || (count && !names) || !output || !output->put) return KO_ENULL;
    if (stream_hooks_set()) return KO_EINVAL;
    image_maker maker(output->put, output->user);
    for (size_t i = 0; i < count; ++i) {
        size_t size = 0;
        const int error = names[i] ? add_object(&maker, root, names[i], &size) : int{KO_ENULL};
        if (output->told) output->told(output->user, names[i], error, size);
        if (maker.failed) return KO_EIO;
    }
    return end_image(&maker);
}
