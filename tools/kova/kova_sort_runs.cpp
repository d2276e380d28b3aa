// Sorting records by key with bounded memory: runs in scratch files, merged by a tournament.
#include "kova/kova_sort_runs.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <exception>
#include <system_error>
#include <thread>

#include "kova/kova_cli.h"
#include "kova/kova_platform.h"

namespace kovacli {

static constexpr size_t chunk_bytes = size_t{1} << 20; // at a time; less for small budgets
static constexpr size_t merge_width = 32;              // runs of one level before they are merged
static constexpr size_t run_buffer = size_t{1} << 17;  // of each run while merging

static record_order order_of(const sorter &all) {
    return {all.unique ? tie_order::as_read : all.ties, all.line_end};
}

// ---- making records ----

unsigned char *record_room(record_maker &maker, size_t len) {
    if (len <= maker.left) return maker.at;
    if (len > maker.chunk_bytes) {
        maker.large.push_back(std::make_unique_for_overwrite<unsigned char[]>(len));
        maker.held += len;
        return maker.large.back().get();
    }
    if (maker.chunks_used == maker.chunks.size())
        maker.chunks.push_back(std::make_unique_for_overwrite<unsigned char[]>(maker.chunk_bytes));
    maker.at = maker.chunks[maker.chunks_used++].get();
    maker.left = maker.chunk_bytes;
    maker.held += maker.chunk_bytes;
    return maker.at;
}

void keep_record(record_maker &maker, unsigned char *room, record_head head) {
    std::memcpy(room, &head, sizeof head);
    maker.entries.push_back(entry_of(room));
    if (room != maker.at) return;
    maker.at += record_len(head);
    maker.left -= record_len(head);
}

void make_record(record_maker &maker, std::string_view key, std::string_view line) {
    if (uint64_t{key.size()} > UINT32_MAX || uint64_t{line.size()} > UINT32_MAX)
        throw failure(bad_text, "the key of a line is longer than 4 GiB; compare fewer fields");
    const record_head head{uint32_t(key.size()), uint32_t(line.size())};
    unsigned char *const room = record_room(maker, record_len(head));
    std::copy(line.begin(), line.end(), std::copy(key.begin(), key.end(), room + sizeof head));
    keep_record(maker, room, head);
}

void add_makers(sorter &all, size_t count) {
    all.makers.resize(count);
    for (record_maker &maker : all.makers)
        maker.chunk_bytes = size_t(std::min<uint64_t>(all.budget / (8 * count), chunk_bytes));
}

// The memory stays for the records to come, except that of large ones.
static void drop_records(sorter &all) {
    all.entries.clear();
    for (record_maker &maker : all.makers) {
        maker.large.clear();
        maker.chunks_used = maker.left = 0;
        maker.at = nullptr;
        maker.held = 0;
    }
}

static void free_chunks(sorter &all) {
    for (record_maker &maker : all.makers)
        maker.chunks.clear();
}

// ---- scratch files ----

static failure scratch_failure(int error) {
    return failure(bad_file, std::string("temporary file: ") +
                                 (error ? std::strerror(error) : "it ends too early") +
                                 "; name one with more room with --temporary-directory");
}

namespace {
// A new run, and bytes that are not yet in its file.
struct run_writer {
    scratch_file file;
    std::vector<unsigned char> buffer;
    uint64_t bytes = 0;
};
} // namespace

static run_writer new_run(const sorter &all) {
    errno = 0;
    run_writer run{scratch_file(open_scratch(all.scratch_directory)), {}};
    if (!run.file) throw scratch_failure(errno);
    std::setvbuf(run.file.get(), nullptr, _IONBF,
                 0); // each run has its own buffer while it is used
    run.buffer.reserve(run_buffer);
    return run;
}

static void write_out(run_writer &run) {
    errno = 0;
    const size_t count = run.buffer.size();
    if (count && std::fwrite(run.buffer.data(), 1, count, run.file.get()) != count)
        throw scratch_failure(errno);
    run.buffer.clear();
    run.bytes += count;
}

static void put(run_writer &run, const unsigned char *data) {
    const size_t len = record_len(head_of(data));
    if (run.buffer.size() + len > run_buffer) write_out(run);
    run.buffer.insert(run.buffer.end(), data, data + len);
}

static sorted_run finish_run(run_writer &run, int level) {
    write_out(run);
    errno = 0;
    if (std::fflush(run.file.get()) != 0 || std::fseek(run.file.get(), 0, SEEK_SET) != 0)
        throw scratch_failure(errno);
    return {std::move(run.file), level};
}

// ---- sorting ----

namespace {
// A share of the entries, sorted by one thread, and its run if it is spilled.
struct sorted_part {
    record_entry *first;
    size_t count;
    sorted_run run = {};
    uint64_t bytes = 0; // of the run
    std::exception_ptr fault = {};
};
} // namespace

static void drop_duplicates(sorted_part &part) {
    const auto same = [](const record_entry &a, const record_entry &b) {
        return a.prefix == b.prefix && key_of(a.data) == key_of(b.data);
    };
    part.count = size_t(std::unique(part.first, part.first + part.count, same) - part.first);
}

static void spill_part(const sorter &all, sorted_part &part) {
    run_writer run = new_run(all);
    for (size_t i = 0; i < part.count; ++i)
        put(run, part.first[i].data);
    part.run = finish_run(run, 0);
    part.bytes = run.bytes;
}

static void sort_part_of(const sorter &all, bool spills, sorted_part &part) {
    try {
        sort_entries(part.first, part.count, order_of(all));
        if (all.unique) drop_duplicates(part);
        if (spills) spill_part(all, part);
    } catch (...) {
        part.fault = std::current_exception();
    }
}

// Sorts the entries in parts, in the order of input, and makes each a run if asked for.
static std::vector<sorted_part> sort_parts(sorter &all, bool spills) {
    constexpr size_t worth_a_thread = 4096;
    const size_t total = all.entries.size();
    const size_t count = std::clamp<size_t>(total / worth_a_thread, 1, all.threads);
    std::vector<sorted_part> parts;
    for (size_t i = 0; i < count; ++i) {
        const size_t first = total * i / count;
        parts.push_back({all.entries.data() + first, total * (i + 1) / count - first});
    }
    {
        std::deque<std::jthread> threads;
        for (size_t i = 1; i < count; ++i) {
            try {
                threads.emplace_back(
                    [&all, spills, &part = parts[i]] { sort_part_of(all, spills, part); });
            } catch (const std::system_error &) {
                sort_part_of(all, spills, parts[i]); // the system has no thread to spare
            }
        }
        sort_part_of(all, spills, parts[0]);
    }
    for (const sorted_part &part : parts)
        if (part.fault) std::rethrow_exception(part.fault);
    return parts;
}

// ---- merging ----

namespace {
// Sorted records, in memory or from a run, and the first of those that remain.
struct source {
    record_entry now = {0, nullptr}; // without data at the end
    const record_entry *next = nullptr, *end = nullptr;
    std::FILE *file = nullptr;
    std::vector<unsigned char> buffer;
    size_t at = 0, fill = 0; // unread bytes are buffer[at, fill)
};

// Finds the first record of several sources. A node keeps the source that lost there.
struct tournament {
    record_order order;
    std::vector<source> sources;
    std::vector<size_t> losers; // by node, from 1 on
    size_t winner = 0;
};
} // namespace

static constexpr size_t no_source = SIZE_MAX; // before all others: its place is not yet taken

// Makes a number of unread bytes available; false at the end of the file.
static bool available(source &from, size_t bytes) {
    if (from.fill - from.at >= bytes) return true;
    std::copy(from.buffer.data() + from.at, from.buffer.data() + from.fill, from.buffer.data());
    from.fill -= from.at;
    from.at = 0;
    if (from.buffer.size() < bytes) from.buffer.resize(std::max(bytes, run_buffer));
    while (from.fill < bytes) {
        errno = 0;
        const size_t got = std::fread(from.buffer.data() + from.fill, 1,
                                      from.buffer.size() - from.fill, from.file);
        if (got == 0 && (from.fill > 0 || std::ferror(from.file))) throw scratch_failure(errno);
        if (got == 0) return false;
        from.fill += got;
    }
    return true;
}

static const unsigned char *next_record(source &from) {
    if (!from.file) return from.next == from.end ? nullptr : from.next++->data;
    if (from.now.data) from.at += record_len(head_of(from.now.data));
    if (!available(from, sizeof(record_head))) return nullptr;
    const size_t len = record_len(head_of(&from.buffer[from.at]));
    if (!available(from, len)) throw scratch_failure(0);
    return &from.buffer[from.at];
}

static void advance(source &from) {
    const unsigned char *const data = next_record(from);
    from.now = data ? entry_of(data) : record_entry{0, nullptr};
}

// Of records with equal keys, that of the lower source comes first.
static bool comes_before(const tournament &all, size_t a, size_t b) {
    if (a == no_source || b == no_source) return a == no_source;
    const record_entry &x = all.sources[a].now, &y = all.sources[b].now;
    if (!x.data || !y.data) return x.data;
    const int order = all.order.compare(x, y);
    return order ? order < 0 : a < b;
}

static void play(tournament &all, size_t from) {
    for (size_t node = (from + all.sources.size()) / 2; node; node /= 2)
        if (comes_before(all, all.losers[node], from)) std::swap(all.losers[node], from);
    all.winner = from;
}

// Merges the sources and calls take with each record.
template <class Take> static void merge(tournament &all, bool unique, const Take &take) {
    all.losers.assign(all.sources.size(), no_source);
    for (size_t i = 0; i < all.sources.size(); ++i) {
        advance(all.sources[i]);
        play(all, i);
    }
    std::string last;
    for (bool any = false; all.sources[all.winner].now.data;) {
        source &first = all.sources[all.winner];
        const std::string_view key = key_of(first.now.data);
        if (!unique || !any || key != last) {
            take(first.now.data);
            if (unique) last = key;
            any = true;
        }
        advance(first);
        play(all, all.winner);
    }
}

// The runs from the first on.
static tournament runs_from(const sorter &all, size_t first) {
    tournament result{order_of(all), std::vector<source>(all.runs.size() - first), {}};
    for (size_t i = first; i < all.runs.size(); ++i)
        result.sources[i - first].file = all.runs[i].file.get();
    return result;
}

// Merges the last runs while there are many of one level, so that only few files are open.
static void merge_last_level(sorter &all) {
    while (all.runs.size() >= merge_width) {
        const size_t first = all.runs.size() - merge_width;
        const int level = all.runs.back().level;
        if (all.runs[first].level != level) return;
        free_chunks(all);
        run_writer run = new_run(all);
        tournament sources = runs_from(all, first);
        merge(sources, all.unique, [&run](const unsigned char *data) { put(run, data); });
        sorted_run merged = finish_run(run, level + 1);
        all.runs.resize(first);
        all.runs.push_back(std::move(merged));
    }
}

// ---- gathering ----

static void spill(sorter &all) {
    std::vector<sorted_part> parts = sort_parts(all, true);
    drop_records(all);
    for (sorted_part &part : parts) {
        all.spilled_bytes += part.bytes;
        all.runs.push_back(std::move(part.run));
        merge_last_level(all);
    }
}

void take_records(sorter &all) {
    // The order of input takes another half of the entries' bytes.
    const bool as_read = order_of(all).ties == tie_order::as_read;
    const uint64_t entry_bytes = sizeof(record_entry) * (as_read ? 3 : 2) / 2;
    const size_t before = all.entries.size();
    uint64_t held = 0;
    for (record_maker &maker : all.makers) {
        all.entries.insert(all.entries.end(), maker.entries.begin(), maker.entries.end());
        held += maker.held + maker.chunk_bytes; // one more, for the next records
        maker.entries.clear();
    }
    const size_t added = all.entries.size() - before;
    all.kept += added;
    if (held + (all.entries.size() + added) * entry_bytes > all.budget) spill(all);
}

void deliver(sorter &all, const line_sink &sink) {
    tournament sources = runs_from(all, 0);
    for (const sorted_part &part : sort_parts(all, false)) {
        sources.sources.emplace_back();
        sources.sources.back().next = part.first;
        sources.sources.back().end = part.first + part.count;
    }
    merge(sources, all.unique, [&sink](const unsigned char *data) { sink(line_of(data)); });
    drop_records(all);
    free_chunks(all);
    all.runs.clear();
}

} // namespace kovacli
