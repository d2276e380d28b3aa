// Sorting records in memory, by eight bytes of their keys at a time: first by the bytes of these
// numbers, one after the other, and few of them by comparison.
#include "kova/kova_sort_entries.h"

#include <algorithm>
#include <array>

namespace kovacli {

static constexpr std::ptrdiff_t few = 64;       // entries that are compared
static constexpr std::ptrdiff_t few_equal = 16; // those with equal prefixes
static constexpr size_t most_prefixes = 64;     // one after the other; longer keys are compared

uint64_t prefix_at(std::string_view key, size_t at) {
    const auto *const bytes = reinterpret_cast<const unsigned char *>(key.data()) + at;
    uint64_t prefix = 0;
    if (key.size() >= at + 8) {
        for (size_t i = 0; i < 8; ++i)
            prefix = prefix << 8 | bytes[i];
        return prefix;
    }
    for (size_t i = 0; i < 8; ++i)
        prefix = prefix << 8 | (at + i < key.size() ? bytes[i] : 0u);
    return prefix;
}

int compare_tied(tie_order ties, std::string_view a, std::string_view b) {
    if (ties == tie_order::as_read) return 0;
    return ties == tie_order::by_bytes ? a.compare(b) : b.compare(a);
}

int record_order::compare_whole(const unsigned char *a, const unsigned char *b) const {
    const int by_key = key_of(a).compare(key_of(b));
    if (by_key || ties == tie_order::as_read) return by_key;
    std::string_view x = line_of(a), y = line_of(b);
    x.remove_suffix(line_end);
    y.remove_suffix(line_end);
    return compare_tied(ties, x, y);
}

using place = record_entry *;

// Moves entries to the parts of the range that belong to their bytes at shift; ends gets the ends
// of the parts. False if all have the same byte.
static bool distribute(place first, place last, unsigned shift, std::array<place, 256> &ends) {
    std::array<size_t, 256> counts{};
    for (place at = first; at != last; ++at)
        ++counts[at->prefix >> shift & 255];
    if (counts[first->prefix >> shift & 255] == size_t(last - first)) return false;
    std::array<place, 256> next;
    for (size_t i = 0; i < 256; ++i) {
        next[i] = first;
        ends[i] = first += counts[i];
    }
    for (size_t i = 0; i < 256; ++i) {
        while (next[i] != ends[i]) {
            record_entry moved = *next[i];
            for (size_t to; (to = moved.prefix >> shift & 255) != i;)
                std::swap(moved, *next[to]++);
            *next[i]++ = moved;
        }
    }
    return true;
}

// Sorts by prefixes that are equal above the byte at shift.
static void sort_by_prefix(place first, place last, unsigned shift) {
    std::array<place, 256> ends;
    while (last - first > few && !distribute(first, last, shift, ends)) {
        if (shift == 0) return;
        shift -= 8;
    }
    if (last - first <= few) {
        std::sort(first, last,
                  [](const record_entry &a, const record_entry &b) { return a.prefix < b.prefix; });
    } else if (shift) {
        for (const place end : ends) {
            if (end - first > 1) sort_by_prefix(first, end, shift - 8);
            first = end;
        }
    }
}

static void sort_from(place first, place last, size_t at, const record_order &order);

// Sorts entries whose keys are equal up to a place, or have ended there, but for zeros.
static void sort_equal(place first, place last, size_t at, const record_order &order) {
    const auto less = [&order](const record_entry &a, const record_entry &b) {
        return order.compare_whole(a.data, b.data) < 0;
    };
    if (last - first <= few_equal || at >= most_prefixes * 8) return std::sort(first, last, less);
    const place longer = std::partition(
        first, last, [at](const record_entry &entry) { return head_of(entry.data).key_len <= at; });
    std::sort(first, longer, less);
    for (place entry = longer; entry != last; ++entry)
        entry->prefix = prefix_at(key_of(entry->data), at);
    sort_from(longer, last, at, order);
}

// Sorts entries whose prefixes are those at a place of their keys.
static void sort_from(place first, place last, size_t at, const record_order &order) {
    sort_by_prefix(first, last, 56);
    while (first != last) {
        place end = first + 1;
        while (end != last && end->prefix == first->prefix)
            ++end;
        if (end - first > 1) sort_equal(first, end, at + 8, order);
        first = end;
    }
}

void sort_entries(record_entry *first, size_t count, const record_order &order) {
    if (order.ties != tie_order::as_read) return sort_from(first, first + count, 0, order);
    std::stable_sort(first, first + count, [&order](const record_entry &a, const record_entry &b) {
        return order.compare(a, b) < 0;
    });
}

} // namespace kovacli
