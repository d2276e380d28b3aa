// Sorting records by key with bounded memory: runs in scratch files, merged with a heap.
#include "kova/kova_sort_runs.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>

#include "kova/kova_cli.h"
#include "kova/kova_platform.h"

namespace kovacli {

static constexpr size_t chunk_bytes = size_t{1} << 20; // at a time; less for small budgets
static constexpr size_t merge_width = 32;              // runs of one level before they are merged
static constexpr size_t run_buffer = size_t{1} << 17;  // of each run while merging

static record_head head_of(const unsigned char *data) {
    record_head head;
    std::memcpy(&head, data, sizeof head);
    return head;
}

static std::string_view bytes_at(const unsigned char *data, size_t len) {
    return {reinterpret_cast<const char *>(data), len};
}

static std::string_view key_of(const unsigned char *data) {
    return bytes_at(data + sizeof(record_head), head_of(data).key_len);
}

static std::string_view line_of(const unsigned char *data) {
    const record_head head = head_of(data);
    return bytes_at(data + sizeof head + head.key_len, head.line_len);
}

static uint64_t prefix_of(std::string_view key) {
    uint64_t prefix = 0;
    for (size_t i = 0; i < 8; ++i)
        prefix = prefix << 8 | (i < key.size() ? uint8_t(key[i]) : 0u);
    return prefix;
}

int compare_tied(tie_order ties, std::string_view a, std::string_view b) {
    if (ties == tie_order::as_read) return 0;
    return ties == tie_order::by_bytes ? a.compare(b) : b.compare(a);
}

namespace {
// The order of records: below 0 if a comes earlier, 0 if the order of input decides.
struct record_order {
    tie_order ties;
    size_t line_end;

    int compare(const record_entry &a, const record_entry &b) const {
        if (a.prefix != b.prefix) return a.prefix < b.prefix ? -1 : 1;
        const int by_key = key_of(a.data).compare(key_of(b.data));
        if (by_key || ties == tie_order::as_read) return by_key;
        std::string_view x = line_of(a.data), y = line_of(b.data);
        x.remove_suffix(line_end);
        y.remove_suffix(line_end);
        return compare_tied(ties, x, y);
    }
    bool operator()(const record_entry &a, const record_entry &b) const {
        return compare(a, b) < 0;
    }
};
} // namespace

static record_order order_of(const sorter &all) {
    return {all.unique ? tie_order::as_read : all.ties, all.line_end};
}

static unsigned char *take_bytes(sorter &all, size_t count) {
    if (count > all.chunk_left) {
        const size_t size =
            std::max(count, size_t(std::min<uint64_t>(all.budget / 8, chunk_bytes)));
        all.chunks.push_back(std::make_unique_for_overwrite<unsigned char[]>(size));
        all.chunk_at = all.chunks.back().get();
        all.chunk_left = size;
        all.held += size;
    }
    unsigned char *taken = all.chunk_at;
    all.chunk_at += count;
    all.chunk_left -= count;
    return taken;
}

using entry_place = std::vector<record_entry>::iterator;

// Runs work in a thread, or at once where the system has none to spare.
template <class Work> static std::jthread beside(const Work &work) {
    try {
        return std::jthread(work);
    } catch (const std::system_error &) {
        work();
        return {};
    }
}

// Sorts a range with a number of threads. Lines that are equal in their bytes cannot be told apart,
// so only the order of input needs the stable algorithm, which takes more memory.
static void sort_range(entry_place first, entry_place last, const record_order &order,
                       unsigned threads) {
    constexpr std::ptrdiff_t worth_a_thread = 4096;
    if (threads < 2 || last - first < 2 * worth_a_thread) {
        if (order.ties == tie_order::as_read)
            std::stable_sort(first, last, order);
        else
            std::sort(first, last, order);
        return;
    }
    const entry_place middle = first + (last - first) / std::ptrdiff_t(threads);
    {
        const std::jthread helper = beside([=] { sort_range(first, middle, order, 1); });
        sort_range(middle, last, order, threads - 1);
    }
    std::inplace_merge(first, middle, last, order);
}

static void sort_entries(sorter &all) {
    sort_range(all.entries.begin(), all.entries.end(), order_of(all), all.threads);
    if (!all.unique) return;
    const auto same = [](const record_entry &a, const record_entry &b) {
        return a.prefix == b.prefix && key_of(a.data) == key_of(b.data);
    };
    all.entries.erase(std::unique(all.entries.begin(), all.entries.end(), same), all.entries.end());
}

static void drop_memory(sorter &all) {
    all.entries.clear();
    all.chunks.clear();
    all.chunk_left = 0;
    all.held = 0;
}

static failure scratch_failure(int error) {
    return failure(bad_file, std::string("temporary file: ") +
                                 (error ? std::strerror(error) : "it ends too early") +
                                 "; name one with more room with --temporary-directory");
}

static scratch_file new_scratch(const sorter &all) {
    errno = 0;
    scratch_file file(open_scratch(all.scratch_directory));
    if (!file) throw scratch_failure(errno);
    std::setvbuf(file.get(), nullptr, _IOFBF, run_buffer);
    return file;
}

static void put(std::FILE *file, const void *bytes, size_t count) {
    errno = 0;
    if (count && std::fwrite(bytes, 1, count, file) != count) throw scratch_failure(errno);
}

static void rewind_run(std::FILE *file) {
    errno = 0;
    if (std::fflush(file) != 0 || std::fseek(file, 0, SEEK_SET) != 0) throw scratch_failure(errno);
}

// ---- merging ----

namespace {
// A run and its next record.
struct open_run {
    std::FILE *file;
    std::vector<unsigned char> data;
    uint64_t prefix = 0;
};
} // namespace

static bool read_record(open_run &run) {
    record_head head;
    errno = 0;
    const size_t got = std::fread(&head, 1, sizeof head, run.file);
    if (got == 0 && !std::ferror(run.file)) return false;
    if (got != sizeof head) throw scratch_failure(errno);
    const size_t len = size_t{head.key_len} + head.line_len;
    run.data.resize(sizeof head + len);
    std::memcpy(run.data.data(), &head, sizeof head);
    if (std::fread(run.data.data() + sizeof head, 1, len, run.file) != len)
        throw scratch_failure(errno);
    run.prefix = prefix_of(key_of(run.data.data()));
    return true;
}

// Merges the runs from first on and calls take with each record; of records with equal keys, that
// of the lower run comes first.
template <class Take> static void merge(sorter &all, size_t first, const Take &take) {
    std::vector<open_run> open(all.runs.size() - first);
    const record_order records = order_of(all);
    const auto later = [&](size_t a, size_t b) {
        const record_entry x{open[a].prefix, open[a].data.data()};
        const record_entry y{open[b].prefix, open[b].data.data()};
        const int order = records.compare(x, y);
        return order ? order > 0 : a > b;
    };
    std::vector<size_t> heap;
    for (size_t i = 0; i < open.size(); ++i) {
        open[i].file = all.runs[first + i].file.get();
        if (read_record(open[i])) heap.push_back(i);
    }
    std::make_heap(heap.begin(), heap.end(), later);
    std::string last;
    bool any = false;
    while (!heap.empty()) {
        std::pop_heap(heap.begin(), heap.end(), later);
        open_run &run = open[heap.back()];
        const std::string_view key = key_of(run.data.data());
        if (!all.unique || !any || key != last) {
            take(run.data.data());
            if (all.unique) last = key;
            any = true;
        }
        if (read_record(run))
            std::push_heap(heap.begin(), heap.end(), later);
        else
            heap.pop_back();
    }
}

// Merges the last runs while there are many of one level, so that only few files are open.
static void merge_last_level(sorter &all) {
    while (all.runs.size() >= merge_width) {
        const size_t first = all.runs.size() - merge_width;
        const int level = all.runs.back().level;
        if (all.runs[first].level != level) return;
        scratch_file file = new_scratch(all);
        merge(all, first, [&](const unsigned char *data) {
            const record_head head = head_of(data);
            put(file.get(), data, sizeof head + head.key_len + head.line_len);
        });
        rewind_run(file.get());
        all.runs.resize(first);
        all.runs.push_back({std::move(file), level + 1});
    }
}

// ---- gathering ----

static void spill(sorter &all) {
    sort_entries(all);
    scratch_file file = new_scratch(all);
    for (const record_entry &entry : all.entries) {
        const record_head head = head_of(entry.data);
        const size_t len = sizeof head + head.key_len + head.line_len;
        put(file.get(), entry.data, len);
        all.spilled_bytes += len;
    }
    rewind_run(file.get());
    all.runs.push_back({std::move(file), 0});
    drop_memory(all);
    merge_last_level(all);
}

void add_record(sorter &all, std::string_view key, std::string_view line) {
    if (uint64_t{key.size()} > UINT32_MAX || uint64_t{line.size()} > UINT32_MAX)
        throw failure(bad_text, "the key of a line is longer than 4 GiB; compare fewer fields");
    const record_head head{uint32_t(key.size()), uint32_t(line.size())};
    const size_t len = sizeof head + key.size() + line.size();
    // Sorting needs another half of the entries' bytes.
    constexpr uint64_t entry_bytes = sizeof(record_entry) * 3 / 2;
    if (!all.entries.empty() &&
        all.held + len + (all.entries.size() + 1) * entry_bytes > all.budget)
        spill(all);
    unsigned char *data = take_bytes(all, len);
    std::memcpy(data, &head, sizeof head);
    if (!key.empty()) std::memcpy(data + sizeof head, key.data(), key.size());
    if (!line.empty()) std::memcpy(data + sizeof head + key.size(), line.data(), line.size());
    all.entries.push_back({prefix_of(key), data});
    ++all.kept;
}

void deliver(sorter &all, const line_sink &sink) {
    if (all.runs.empty()) {
        sort_entries(all);
        for (const record_entry &entry : all.entries)
            sink(line_of(entry.data));
    } else {
        spill(all);
        merge(all, 0, [&](const unsigned char *data) { sink(line_of(data)); });
    }
    drop_memory(all);
    all.runs.clear();
}

} // namespace kovacli
