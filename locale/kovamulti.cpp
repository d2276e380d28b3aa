// Look-up tables of multibyte code sets: building, looking up, sharing of equal arrays, freeing.
// The text form is in kovamulti_text.cpp.
#include "kovamulti.h"

#include <limits.h>
#include <string.h>

static mb_decode *table_of(void *table) { return static_cast<mb_decode *>(table); }

// ---- Arrays and nodes ----

unsigned char *alloc_flag_arrs(mb_decode *table, int count) {
    const size_t size = 256 * size_t(count);
    ext_block<unsigned char> flags(size);
    if (!flags.p) return nullptr;
    memset(flags.p, mb_invalid, size);
    ++table->flag_arr_count;
    return flags.release();
}

unsigned char *create_flag_arr(multi_arr *node, mb_decode *table) {
    if (!node->flag_arr) node->flag_arr = alloc_flag_arrs(table, 1);
    return node->flag_arr;
}

void repeat_front(unsigned char *array, size_t bytes, size_t times) {
    const size_t all = bytes * times;
    for (size_t done = bytes; done < all;) {
        const size_t more = done < all - done ? done : all - done;
        memcpy(array + done, array, more);
        done += more;
    }
}

// Bytes between the items stay zero, so equal arrays are equal as blocks.
unsigned char *alloc_data_arrs(mb_decode *table, int count) {
    const size_t slot = size_t{1} << table->log_data_size, slots = 256 * size_t(count);
    ext_block<unsigned char> data(slots * slot);
    if (!data.p) return nullptr;
    memset(data.p, 0, slot);
    memcpy(data.p, table->default_data, size_t(table->data_size));
    repeat_front(data.p, slot, slots);
    ++table->data_arr_count;
    return data.release();
}

unsigned char *create_data_arr(multi_arr *node, mb_decode *table) {
    if (!node->data_arr) node->data_arr = alloc_data_arrs(table, 1);
    return node->data_arr;
}

unsigned char *create_offset_arr(multi_arr *node, mb_decode *table) {
    if (node->offset_arr) return node->offset_arr;
    ext_block<unsigned char> offsets(256);
    if (!offsets.p) return nullptr;
    memset(offsets.p, 0, 256);
    ++table->offset_arr_count;
    return node->offset_arr = offsets.release();
}

// Existing children stay. An array that was read has no room for more and is replaced.
multi_arr **create_next_arr(multi_arr *node, int count) {
    const int slots = count ? count : 256;
    if (node->next_slots >= slots) return node->next_arr;
    ext_block<multi_arr *> next{size_t(slots)};
    if (!next.p) return nullptr;
    for (int i = 0; i < slots; ++i)
        next.p[i] = i < node->next_slots ? node->next_arr[i] : nullptr;
    free_ptr(node->next_arr);
    node->next_slots = slots;
    return node->next_arr = next.release();
}

static constexpr multi_arr empty_node = {.flag_id = multi_no_id, .data_id = multi_no_id};

multi_arr *create_arr(void) {
    ext_block<multi_arr> node(1);
    if (!node.p) return nullptr;
    *node.p = empty_node;
    return node.release();
}

multi_arr *create_block(int count) {
    ext_block<multi_arr> nodes{size_t(count)};
    if (!nodes.p) return nullptr;
    for (int i = 0; i < count; ++i) {
        nodes.p[i] = empty_node;
        nodes.p[i].flags = multi_in_block;
    }
    return nodes.release();
}

static void free_inside(multi_arr *node, bool owns_arrays) {
    multi_arr *block = nullptr;
    for (int i = 0; node->next_arr && i < node->num_offsets; ++i) {
        multi_arr *const child = node->next_arr[i];
        if (!child) continue;
        free_inside(child, owns_arrays);
        if (!(child->flags & multi_in_block))
            free_ptr(child);
        else if (!block)
            block = child;
    }
    free_ptr(block);
    if (owns_arrays) {
        free_ptr(node->flag_arr);
        free_ptr(node->data_arr);
    }
    free_ptr(node->offset_arr);
    free_ptr(node->next_arr);
}

void free_arr(multi_arr *node, bool owns_arrays) {
    if (!node) return;
    free_inside(node, owns_arrays);
    free_ptr(node);
}

bool is_compressed(const mb_decode *table) {
    return (table->flags & multi_compressed) && table->flag_arrs;
}

static void free_list(unsigned char **list, int count, int in_block) {
    for (int i = 0; list && i < count; i += in_block)
        free_ptr(list[i]);
    free_ptr(list);
}

void free_tree(mb_decode *table) {
    const bool shared = is_compressed(table);
    free_arr(table->root, !shared);
    if (shared) {
        const bool read = table->offset_count;
        free_list(table->flag_arrs, table->flag_arr_count, read ? flags_in_block : 1);
        free_list(table->data_arrs, table->data_arr_count, read ? data_in_block(table) : 1);
        free_ptr(table->offset_count);
    }
    table->root = nullptr;
    table->flag_arrs = table->data_arrs = nullptr;
    table->offset_count = nullptr;
    table->flag_arr_count = table->data_arr_count = table->offset_arr_count = 0;
}

bool create_root(mb_decode *table) {
    multi_arr *root = create_arr();
    if (!root) return false;
    if (!create_flag_arr(root, table)) {
        free_arr(root, true);
        return false;
    }
    table->root = root;
    return true;
}

// ---- Building ----

void *create_multi(unsigned data_size, unsigned flags, const void *default_item) {
    if (data_size > INT_MAX / 512) return nullptr; // an array of such items would be too large
    ext_block<mb_decode> table(1);
    ext_block<unsigned char> item(data_size);
    if (!table.p || !item.p) return nullptr;
    memset(item.p, 0, data_size ? data_size : 1);
    if (default_item) memcpy(item.p, default_item, data_size);
    unsigned log_size = 0;
    while ((1u << log_size) < data_size)
        ++log_size;
    *table.p = {.data_size = int(data_size),
                .min_char_len = 2,
                .flags = flags | multi_leaf_flags,
                .default_data = item.p,
                .log_data_size = log_size};
    if (!create_root(table.p)) return nullptr;
    item.release();
    return table.release();
}

static int insert_last(unsigned byte, const void *item, multi_arr *node, mb_decode *table) {
    const bool flagged = table->flags & multi_leaf_flags;
    if (flagged && !create_flag_arr(node, table)) return -1;
    if (flagged && node->flag_arr[byte] == mb_prefix) return -1;
    if (item && !create_data_arr(node, table)) return -1;
    if (flagged) node->flag_arr[byte] = mb_final;
    if (item) {
        const auto size = size_t(table->data_size);
        memcpy(node->data_arr + (size_t{byte} << table->log_data_size), item, size);
    }
    return 0;
}

static int recursive_insert(const char_desc *desc, unsigned level, const void *item,
                            multi_arr *node, mb_decode *table) {
    const unsigned byte = desc->bytes[level];
    if (level + 1 == desc->length) return insert_last(byte, item, node, table);
    if (!create_flag_arr(node, table)) return -1;
    if (node->flag_arr[byte] == mb_final) return -1;
    if (!create_offset_arr(node, table) || !create_next_arr(node, 0)) return -1;
    if (node->flag_arr[byte] == mb_prefix) {
        multi_arr *child = node->next_arr[node->offset_arr[byte]];
        return recursive_insert(desc, level + 1, item, child, table);
    }
    if (node->num_offsets >= 256) return -1;
    const int k = node->num_offsets++; // stays taken, with an empty slot, if the rest fails
    multi_arr *child = create_arr();
    if (!child) return -1;
    if (recursive_insert(desc, level + 1, item, child, table)) {
        free_arr(child, true);
        return -1;
    }
    node->flag_arr[byte] = mb_prefix;
    node->offset_arr[byte] = uint8_t(k);
    node->next_arr[k] = child;
    return 0;
}

int insert_desc_multi(const char_desc *desc, const void *item, void *table) {
    mb_decode *t = table_of(table);
    if (desc->length < 1 || desc->length > multi_max_depth) return -1;
    if (!t->root || is_compressed(t)) return -1;
    if (recursive_insert(desc, 0, item, t->root, t)) return -1;
    const int length = int(desc->length);
    if (length > t->max_char_len) t->max_char_len = length;
    if (length < t->min_char_len) t->min_char_len = length;
    return 0;
}

// ---- Looking up ----

// The item of the character at text, NULL if there is none; *taken gets the number of bytes
// examined.
static inline void *walk_text(const ko_mchar_t *text, const mb_decode *table, int *taken) {
    const multi_arr *node = table_root(table);
    for (int n = 1;; ++n, ++text) {
        const unsigned flag = node_flag(node, *text);
        if (flag == mb_prefix) {
            node = node_child(node, *text);
            continue;
        }
        *taken = n;
        return flag == mb_final ? node_item(table, node, *text) : nullptr;
    }
}

void *retrieve_text_multi(const ko_mchar_t *text, void *table, int *len_bytes, gen_exports *gen) {
    void *item = walk_text(text, table_of(table), len_bytes);
    if (!item) set_error(gen, KO_EILSEQ);
    return item;
}

void *retrieve_text_multi_nl(const ko_mchar_t *text, void *table, gen_exports *gen) {
    int taken;
    return retrieve_text_multi(text, table, &taken, gen);
}

int retrieve_text_multi_nv(const ko_mchar_t *text, void *table, gen_exports *gen) {
    int taken;
    return retrieve_text_multi(text, table, &taken, gen) ? taken : 0;
}

void *find_limited(const ko_mchar_t *text, const mb_decode *table, int limit, int *taken,
                   int *error) {
    *taken = 0;
    *error = KO_EINVAL;
    const multi_arr *node = table_root(table);
    while (*taken < limit) {
        const ko_mchar_t byte = text[(*taken)++];
        const unsigned flag = node_flag(node, byte);
        if (flag == mb_final) return node_item(table, node, byte);
        if (flag != mb_prefix) {
            *error = KO_EILSEQ;
            return nullptr;
        }
        node = node_child(node, byte);
    }
    return nullptr;
}

void *retrieve_text_multi_limit(const ko_mchar_t *text, void *table, int limit, int *len_bytes,
                                gen_exports *gen) {
    int error;
    void *const item = find_limited(text, table_of(table), limit, len_bytes, &error);
    if (!item) set_error(gen, error);
    return item;
}

// Reads no flags, because its callers have tables in which every first byte is a prefix.
void *retrieve_text_doub_limit(const ko_mchar_t *text, void *table, int limit, gen_exports *gen) {
    void *const none = nullptr;
    if (limit < 2) return fail(gen, KO_EINVAL, none);
    const mb_decode *t = table_of(table);
    const multi_arr *node = t->root ? node_child(t->root, text[0]) : nullptr;
    return node ? node_item(t, node, text[1]) : fail(gen, KO_EILSEQ, none);
}

void *retrieve_desc_multi(const char_desc *desc, void *table) {
    if (desc->length < 1 || desc->length > multi_max_depth) return nullptr;
    const mb_decode *t = table_of(table);
    const multi_arr *node = table_root(t);
    for (unsigned i = 0; i < desc->length; ++i) {
        const unsigned byte = desc->bytes[i], flag = node_flag(node, byte);
        if (flag == mb_final) return i + 1 == desc->length ? node_item(t, node, byte) : nullptr;
        if (flag != mb_prefix) return nullptr;
        node = node_child(node, byte);
    }
    return nullptr;
}

unsigned char *wide_item(const mb_decode *table, ko_wchar_t wc) {
    const unsigned char bytes[4] = {0, 0, uint8_t(wc >> 8), uint8_t(wc & 0xFF)};
    int n = table ? table->min_char_len : 0;
    if (n < 2 && wc > 0xFF) n = 2;
    if (n < 1 || n > 4) return nullptr;
    const multi_arr *node = table_root(table);
    for (int i = 4 - n; i < 3; ++i) {
        if (node_flag(node, bytes[i]) != mb_prefix) return nullptr;
        node = node_child(node, bytes[i]);
    }
    return node_flag(node, bytes[3]) == mb_final ? node_item(table, node, bytes[3]) : nullptr;
}

void *retrieve_wchar_multi_nl(gen_exports *gen, ko_wchar_t wc, void *table) {
    void *item = wide_item(table_of(table), wc);
    if (!item) set_error(gen, KO_EILSEQ);
    return item;
}

int wide_to_bytes(const mb_decode *table, ko_mchar_t *dst, ko_wchar_t wc) {
    const ko_mchar_t bytes[4] = {0, 0, ko_mchar_t(wc >> 8), ko_mchar_t(wc & 0xFF)};
    int n = table ? table->min_char_len : 0;
    if (n < 2 && wc > 0xFF) n = 2;
    if (n < 1 || n > 4) return 0;
    const multi_arr *node = table_root(table);
    for (int i = 4 - n; i < 4; ++i) {
        if (node_flag(node, bytes[i]) != (i < 3 ? mb_prefix : mb_final)) return 0;
        *dst++ = bytes[i];
        if (i < 3) node = node_child(node, bytes[i]);
    }
    return n;
}

int multi_max_length(void *table) { return table_of(table)->max_char_len; }

int multi_min_length(void *table) { return table_of(table)->min_char_len; }

int multi_err(void *table) { return table_of(table)->err; }

void multi_node_count(void *table, int *data_arrays, int *flag_arrays, int *offset_arrays) {
    *data_arrays = table_of(table)->data_arr_count;
    *flag_arrays = table_of(table)->flag_arr_count;
    *offset_arrays = table_of(table)->offset_arr_count;
}

// ---- Sharing equal arrays ----

void single_byte_exists(mb_decode *table) {
    if (table->max_char_len >= 2 || table->min_char_len != 1) return;
    if (table->root && table->root->flag_arr) memset(table->root->flag_arr, mb_final, 256);
}

// Returns the array's place in the list of distinct ones; appends it there or frees it as a
// duplicate.
static uint32_t share_array(unsigned char **array, unsigned char **list, int *count, size_t size) {
    if (!*array) return multi_no_id;
    int i = 0;
    while (i < *count && memcmp(list[i], *array, size) != 0)
        ++i;
    if (i == *count) {
        list[(*count)++] = *array;
    } else {
        free_ptr(*array);
        *array = list[i];
    }
    return uint32_t(i);
}

static void recursive_compress(multi_arr *node, mb_decode *table) {
    const size_t data_bytes = size_t{256} << table->log_data_size;
    node->flag_id = share_array(&node->flag_arr, table->flag_arrs, &table->flag_arr_count, 256);
    node->data_id =
        share_array(&node->data_arr, table->data_arrs, &table->data_arr_count, data_bytes);
    if (!node->next_arr || !node->flag_arr) return;
    for (unsigned byte = 0; byte < 256; ++byte) {
        if (node->flag_arr[byte] != mb_prefix) continue;
        multi_arr *child = node->next_arr[node->offset_arr[byte]];
        if (child) recursive_compress(child, table);
    }
}

int compress_multi(void *table) {
    mb_decode *t = table_of(table);
    if (!t || !t->root || is_compressed(t)) return 0;
    ext_block<unsigned char *> flag_list(size_t(t->flag_arr_count));
    if (!flag_list.p) return -1;
    if (t->data_arr_count) {
        ext_block<unsigned char *> data_list(size_t(t->data_arr_count));
        if (!data_list.p) return -1;
        t->data_arrs = data_list.release();
    }
    single_byte_exists(t);
    t->flags |= multi_compressed;
    t->flag_arrs = flag_list.release();
    t->flag_arr_count = t->data_arr_count = 0;
    recursive_compress(t->root, t);
    return 0;
}

void free_multi(void *table) {
    mb_decode *t = table_of(table);
    if (!t) return;
    if (!t->one_block) {
        free_tree(t);
        free_ptr(t->default_data);
    }
    free_ptr(t);
}

// ---- Comparing ----

static bool same_block(const void *a, const void *b, size_t size) {
    return a && b ? !memcmp(a, b, size) : a == b;
}

static bool same_node(const multi_arr *a, const multi_arr *b, size_t data_bytes) {
    if (!a || !b) return a == b;
    if (a->num_offsets != b->num_offsets || !a->next_arr != !b->next_arr) return false;
    if (!same_block(a->flag_arr, b->flag_arr, 256) ||
        !same_block(a->offset_arr, b->offset_arr, 256) ||
        !same_block(a->data_arr, b->data_arr, data_bytes))
        return false;
    for (int i = 0; a->next_arr && i < a->num_offsets; ++i)
        if (!same_node(a->next_arr[i], b->next_arr[i], data_bytes)) return false;
    return true;
}

bool same_table(const mb_decode *a, const mb_decode *b) {
    if (!a || !b || a->data_size != b->data_size || a->flags != b->flags) return false;
    if (a->max_char_len != b->max_char_len || a->min_char_len != b->min_char_len) return false;
    const auto size = size_t(a->data_size);
    return same_block(a->default_data, b->default_data, size) &&
           same_node(a->root, b->root, size_t{256} << a->log_data_size);
}

// ---- Flat tables ----

static constexpr unsigned char no_flags[256] = {};

// Items have native byte order, and the arrays are aligned for any type.
static const uint16_t *items_of(const multi_arr *node, const uint16_t *default_page) {
    if (!node->data_arr) return default_page;
    const void *items = node->data_arr;
    return static_cast<const uint16_t *>(items);
}

// False for a tree of more than two levels.
static bool fill_second(const multi_arr *root, const unsigned char *first_flags,
                        const uint16_t *default_page, mb_second *second) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        second->flags[byte] = no_flags;
        second->items[byte] = default_page;
        if (first_flags[byte] != mb_prefix) continue;
        const multi_arr *child = node_child(root, byte);
        if (!child) continue;
        if (child->flag_arr && memchr(child->flag_arr, mb_prefix, 256)) return false;
        if (child->flag_arr) second->flags[byte] = child->flag_arr;
        second->items[byte] = items_of(child, default_page);
    }
    return true;
}

int flatten_multi(const mb_decode *table, mb_flat *flat) {
    *flat = {.min_char_len = table->min_char_len, .max_char_len = table->max_char_len};
    // Wide values of a damaged table without a shortest length are found in the tree alone.
    if (table->data_size != 2 || !table->root || table->min_char_len < 1) return -1;
    ext_block<uint16_t> page(256);
    if (!page.p) return -1;
    for (int i = 0; i < 256; ++i)
        memcpy(&page.p[i], table->default_data, 2);
    const multi_arr *root = table->root;
    flat->flag1 = root->flag_arr ? root->flag_arr : no_flags;
    flat->item1 = items_of(root, page.p);
    if (memchr(flat->flag1, mb_prefix, 256)) {
        ext_block<mb_second> second(1);
        if (!second.p || !fill_second(root, flat->flag1, page.p, second.p)) return -1;
        flat->second = second.release();
    }
    flat->default_page = page.release();
    return 0;
}

void free_flat(mb_flat *flat) {
    free_ptr(flat->second);
    free_ptr(flat->default_page);
    *flat = {};
}
