// Sorting records by key with bounded memory: records are gathered up to a budget, sorted, spilled
// to scratch files as runs, and merged.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kova/kova_sort_entries.h"

namespace kovacli {

struct stream_closer {
    void operator()(std::FILE *stream) const { std::fclose(stream); }
};
using scratch_file = std::unique_ptr<std::FILE, stream_closer>;

// Sorted records in a scratch file. A run merged from runs of one level has the next level.
struct sorted_run {
    scratch_file file;
    int level = 0;
};

// Records that one thread makes, and their memory.
struct record_maker {
    std::vector<record_entry> entries; // not yet handed over

    // Internal.
    using bytes = std::unique_ptr<unsigned char[]>;
    size_t chunk_bytes = 0;
    std::vector<bytes> chunks, large; // large: of one record each
    size_t chunks_used = 0, left = 0; // left: bytes after at
    unsigned char *at = nullptr;
    uint64_t held = 0; // bytes of chunks in use
};

// Room for a record of at most len bytes. It is written there; keep_record makes it one.
unsigned char *record_room(record_maker &maker, size_t len);
void keep_record(record_maker &maker, unsigned char *room, record_head head);

// Makes a record of a key and a line. Throws failure.
void make_record(record_maker &maker, std::string_view key, std::string_view line);

struct sorter {
    // What the caller sets.
    uint64_t budget = uint64_t{256} << 20; // bytes of memory, before runs are spilled
    tie_order ties = tie_order::as_read;
    size_t line_end = 1; // bytes at the end of each line that do not count in ties
    bool unique = false; // of records with equal keys only the first, as read
    unsigned threads = 1;
    std::string scratch_directory;

    uint64_t spilled_bytes = 0;
    uint64_t kept = 0; // records handed over

    // Internal.
    std::vector<record_maker> makers;
    std::vector<record_entry> entries;
    std::vector<sorted_run> runs; // in the order of input, levels falling
};

using line_sink = std::function<void(std::string_view line)>;

// Prepares for records from a number of threads.
void add_makers(sorter &all, size_t count);

// Takes over what the makers have made, in their order. Throws failure if a scratch file fails.
void take_records(sorter &all);

// Passes every line to the sink, in order; the sorter is empty afterwards.
void deliver(sorter &all, const line_sink &sink);

} // namespace kovacli
