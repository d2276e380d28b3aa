// Sorting records by key with bounded memory: records are gathered up to a budget, sorted, spilled
// to scratch files as runs, and merged.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kovacli {

// One record in memory: head, key bytes, line bytes.
struct record_head {
    uint32_t key_len, line_len;
};

struct record_entry {
    uint64_t prefix;           // first key bytes, big-endian: most pairs need no more
    const unsigned char *data; // the record
};

struct stream_closer {
    void operator()(std::FILE *stream) const { std::fclose(stream); }
};
using scratch_file = std::unique_ptr<std::FILE, stream_closer>;

// Sorted records in a scratch file. A run merged from runs of one level has the next level.
struct sorted_run {
    scratch_file file;
    int level = 0;
};

// The order of records with equal keys. Bytes are those of the lines without their ends.
enum class tie_order : uint8_t { as_read, by_bytes, by_bytes_reversed };

// Compares two lines in an order of ties; below 0 if the first comes earlier.
int compare_tied(tie_order ties, std::string_view a, std::string_view b);

struct sorter {
    // What the caller sets.
    uint64_t budget = uint64_t{256} << 20; // bytes of memory, before a run is spilled
    tie_order ties = tie_order::as_read;
    size_t line_end = 1; // bytes at the end of each line that do not count in ties
    bool unique = false; // of records with equal keys only the first, as read
    unsigned threads = 1;
    std::string scratch_directory;

    uint64_t spilled_bytes = 0;
    uint64_t kept = 0; // records handed in

    // Internal.
    std::vector<std::unique_ptr<unsigned char[]>> chunks;
    size_t chunk_left = 0;
    unsigned char *chunk_at = nullptr;
    uint64_t held = 0; // bytes of chunks and entries
    std::vector<record_entry> entries;
    std::vector<sorted_run> runs; // in the order of input, levels falling
};

using line_sink = std::function<void(std::string_view line)>;

// Throws failure if a scratch file fails.
void add_record(sorter &all, std::string_view key, std::string_view line);

// Passes every line to the sink, in order; the sorter is empty afterwards.
void deliver(sorter &all, const line_sink &sink);

} // namespace kovacli
