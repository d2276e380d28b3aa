// Records of kova sort in memory, and their order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kovacli {

// A record is a head, the bytes of its key, and those of its line.
struct record_head {
    uint32_t key_len, line_len;
};

struct record_entry {
    uint64_t prefix;           // the first bytes of its key, big-endian: most pairs need no more
    const unsigned char *data; // the record
};

inline record_head head_of(const unsigned char *data) {
    record_head head;
    std::memcpy(&head, data, sizeof head);
    return head;
}

inline size_t record_len(record_head head) {
    return sizeof head + head.key_len + size_t{head.line_len};
}

inline std::string_view key_of(const unsigned char *data) {
    return {reinterpret_cast<const char *>(data) + sizeof(record_head), head_of(data).key_len};
}

inline std::string_view line_of(const unsigned char *data) {
    const record_head head = head_of(data);
    return {reinterpret_cast<const char *>(data) + sizeof head + head.key_len, head.line_len};
}

// Eight bytes of a key from a place on, as a number; 0 where it has ended.
uint64_t prefix_at(std::string_view key, size_t at);

inline record_entry entry_of(const unsigned char *data) {
    return {prefix_at(key_of(data), 0), data};
}

// The order of records with equal keys. Bytes are those of the lines without their ends.
enum class tie_order : uint8_t { as_read, by_bytes, by_bytes_reversed };

// Compares two lines in an order of ties; below 0 if the first comes earlier.
int compare_tied(tie_order ties, std::string_view a, std::string_view b);

// The order of records: below 0 if a comes earlier, 0 if the order of input decides.
struct record_order {
    tie_order ties;
    size_t line_end;

    int compare_whole(const unsigned char *a, const unsigned char *b) const;
    int compare(const record_entry &a, const record_entry &b) const {
        if (a.prefix != b.prefix) return a.prefix < b.prefix ? -1 : 1;
        return compare_whole(a.data, b.data);
    }
};

// Sorts count entries. Only the order of input keeps their prefixes and takes further memory.
void sort_entries(record_entry *first, size_t count, const record_order &order);

} // namespace kovacli
