// Look-up tables of multibyte code sets: trees of 256-entry nodes, one level per byte.
#ifndef KOVAMULTI_H
#define KOVAMULTI_H

#include "kova.h"
#include "kovautils.h"

#include <string.h>

enum { mb_invalid = 0, mb_prefix = 1, mb_final = 4 };
enum { multi_leaf_flags = 1, multi_compressed = 2 };
constexpr uint32_t multi_no_id = 0xFFFFFFFF;
// A node that was read lies in a block with those of the same parent, which begins with the first.
constexpr int multi_in_block = 1;
constexpr unsigned multi_max_depth = 4;

struct multi_arr {
    int flags;        // multi_in_block or 0; no look-up reads it
    int num_offsets;  // children
    uint32_t flag_id; // index into the shared lists, multi_no_id for none
    uint32_t data_id;
    unsigned char *flag_arr;   // 256 states: mb_invalid, mb_prefix, mb_final
    unsigned char *offset_arr; // 256 indexes into next_arr
    unsigned char *data_arr;   // 256 slots of 1 << log_data_size bytes
    multi_arr **next_arr;
    int next_slots; // of next_arr: 256 while building, after reading only the children
};

struct mb_decode {
    int data_size;
    int max_char_len;
    int min_char_len; // starts at 2, deliberately: look-ups by wide value depend on it
    unsigned flags;
    int data_arr_count;
    int flag_arr_count;
    int offset_arr_count;
    int err;
    multi_arr *root;
    unsigned char *default_data;
    unsigned log_data_size;
    unsigned char **flag_arrs;
    unsigned char **data_arrs;
    int *offset_count; // of lists that were read: children of the nodes that use a flag array
    bool one_block;    // begins the block of its whole tree; nothing is added to it
};

// The root of a table, the state of a byte at a node, and the child under a prefix byte. A table
// that could not be read has no root, and a record without memory for a table has no table.
inline const multi_arr *table_root(const mb_decode *table) { return table ? table->root : nullptr; }
inline unsigned node_flag(const multi_arr *node, unsigned byte) {
    return node && node->flag_arr ? node->flag_arr[byte] : unsigned{mb_invalid};
}
inline const multi_arr *node_child(const multi_arr *node, unsigned byte) {
    return node->next_arr ? node->next_arr[node->offset_arr[byte]] : nullptr;
}

// The item of a byte at a node, whatever its state. Tables of 16-bit items have item16.
inline unsigned char *node_item(const mb_decode *table, const multi_arr *node, unsigned byte) {
    if (!node->data_arr) return table->default_data;
    return node->data_arr + (size_t{byte} << table->log_data_size);
}
inline uint16_t item16(const unsigned char *item) {
    uint16_t value;
    memcpy(&value, item, sizeof value);
    return value;
}

// retrieve_text_multi_limit, which leaves the error to its caller.
void *find_limited(const ko_mchar_t *text, const mb_decode *table, int limit, int *taken,
                   int *error);

// The item of a wide value, NULL for what is not a character.
unsigned char *wide_item(const mb_decode *table, ko_wchar_t wc);
// Writes the bytes, at most four, of a wide value that is a character of the table. Returns their
// number, 0 for what is not a character.
int wide_to_bytes(const mb_decode *table, ko_mchar_t *dst, ko_wchar_t wc);

// Steps of building and freeing that the reader of the text form uses too. Each create_ function
// gives a node an array that it lacks and counts it in the table; NULL without memory.
multi_arr *create_arr(void);
multi_arr *create_block(int count); // of nodes, count > 0
// Arrays in a block, of which the first is counted.
unsigned char *alloc_flag_arrs(mb_decode *table, int count);
unsigned char *alloc_data_arrs(mb_decode *table, int count);
// So many arrays of a list that was read lie in a block.
constexpr int flags_in_block = 16;
inline int data_in_block(const mb_decode *table) { return table->log_data_size > 4 ? 1 : 16; }
unsigned char *create_flag_arr(multi_arr *node, mb_decode *table);
unsigned char *create_data_arr(multi_arr *node, mb_decode *table);
unsigned char *create_offset_arr(multi_arr *node, mb_decode *table);
multi_arr **create_next_arr(multi_arr *node, int count); // 256 slots for a count of 0
bool create_root(mb_decode *table);
// Repeats the bytes at the front of an array until they are there that many times.
void repeat_front(unsigned char *array, size_t bytes, size_t times);
void free_arr(multi_arr *node, bool owns_arrays);
void free_tree(mb_decode *table); // everything but the default item; counts become 0
bool is_compressed(const mb_decode *table);
bool same_table(const mb_decode *a, const mb_decode *b); // node by node
// In a table whose characters are all one byte, makes every byte a character.
void single_byte_exists(mb_decode *table);

// Reads the text form, with items of four hex digits, from a file that is being loaded. 0, or -1
// with the error number in the table's err. A tree deeper than its stored longest character is
// refused, so characters of a table read with max_len 2 are never longer than 2 bytes.
int read_multi_ub2(text_in *in, mb_decode *table, int max_len);
// Reads the text form with conversion entries as items: a byte of flags and length, then the target
// bytes, in hex digits.
int read_multi_entries(text_in *in, mb_decode *table, int max_len);

// A table of 16-bit items and characters of one or two bytes, flattened for hot loops: no array is
// ever NULL, since missing ones are pages of zero flags or of the default item. The arrays belong
// to the table or are static.
struct mb_second {                   // by first byte
    const unsigned char *flags[256]; // 256 states of the second byte
    const uint16_t *items[256];      // 256 items of two-byte characters
};
struct mb_flat {
    const unsigned char *flag1; // 256 states of a first byte
    const uint16_t *item1;      // 256 items of one-byte characters
    mb_second *second;          // owned; NULL where no first byte is a prefix
    uint16_t *default_page;     // owned: 256 times the default item
    int min_char_len;
    int max_char_len;
};
// Fills *flat from a table of 16-bit items. -1 without memory, or for a table that is deeper or
// states no shortest length.
int flatten_multi(const mb_decode *table, mb_flat *flat);
void free_flat(mb_flat *flat);

// Bytes of the character at s, 1 or 2; 0 for what is not a character.
inline int flat_mblen(const mb_flat &f, const unsigned char *s) {
    const unsigned char state = f.flag1[*s];
    if (state == mb_final) return 1;
    return state == mb_prefix && f.second->flags[*s][s[1]] == mb_final ? 2 : 0;
}

// The item of a wide value, NULL if it has none; stores no error.
inline const uint16_t *flat_wchar(const mb_flat *f, ko_wchar_t wc) {
    const unsigned hi = wc >> 8, lo = wc & 0xFF;
    if (f->min_char_len == 1 && !hi) return f->flag1[lo] == mb_final ? &f->item1[lo] : nullptr;
    if (f->min_char_len > 2) return nullptr;
    if (f->flag1[hi] != mb_prefix || f->second->flags[hi][lo] != mb_final) return nullptr;
    return &f->second->items[hi][lo];
}

#endif
