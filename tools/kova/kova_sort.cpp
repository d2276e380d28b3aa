// kova sort: lines in the order of a locale. A key is made once for each line, by several threads;
// comparing keys byte by byte gives the order of the texts.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <system_error>
#include <thread>

#include "common/tool_text.h"
#include "kova/kova_cli.h"
#include "kova/kova_io.h"
#include "kova/kova_locale.h"
#include "kova/kova_sort_key.h"
#include "kova/kova_sort_lines.h"
#include "kova/kova_sort_runs.h"
#include "kova/kova_text.h"

namespace kovacli {

namespace {
// What one thread needs to make keys.
struct key_worker {
    std::vector<ko_wchar_t> wide;
    key_scratch scratch;
    std::string key;
    replaced_count replaced;
    line_share share;         // the lines at hand
    std::exception_ptr fault; // what stopped it
};

// What one run of the command works with.
struct sort_job {
    const sort_options *options = nullptr;
    codec code;
    line_rules lines;
    key_rules keys;
    sorter records;
    std::vector<key_worker> workers; // each has a maker in records
    uint64_t lines_done = 0, bytes_done = 0, total = 0;
    replaced_count replaced;
    double next_report = 0;
    bool reports = false;
    bool reported = false;
};
} // namespace

// ---- options ----

static uint64_t parse_size(const std::string &text) {
    size_t at = 0;
    uint64_t value = 0;
    while (at < text.size() && text[at] >= '0' && text[at] <= '9' && value < uint64_t{1} << 40)
        value = value * 10 + uint64_t(text[at++] - '0');
    static constexpr std::string_view units = "KkMmGgb";
    const size_t unit = at < text.size() ? units.find(text[at]) : 0;
    if (at == 0 || unit == units.npos || at + 1 < text.size())
        throw failure(bad_usage, "--buffer-size: \"" + text +
                                     "\" is not a size; write a number of KiB, or one with b "
                                     "(bytes), K, M or G");
    if (units[unit] != 'b') value <<= 10 * (unit / 2 + 1);
    return std::max(value, uint64_t{64} << 10);
}

static tie_order ties_of(const sort_options &options) {
    if (options.stable || options.unique) return tie_order::as_read;
    return options.reverse ? tie_order::by_bytes_reversed : tie_order::by_bytes;
}

// Threads that make keys at the same time. Only the calls of kova_host.h share a locale.
static size_t key_threads(const sort_job &job) {
    return job.keys.host_keys ? size_t(job.options->threads) : 1;
}

static void read_options(const sort_options &options, const data_place &data,
                         const locale_handle &handle, sort_job &job) {
    job.options = &options;
    if (options.numeric || options.version || !options.keys.empty())
        add_mapping(handle, data, job.code); // which characters are digits; without it, ASCII's
    make_key_rules(job.code, options, job.keys);
    job.lines = line_rules_of(job.code, options.nulls, options.replace);
    job.records.budget = parse_size(options.buffer_size);
    job.records.ties = ties_of(options);
    job.records.line_end = job.lines.end.size();
    job.records.unique = options.unique;
    job.records.scratch_directory = options.temporary_directory;
    if (options.threads < 1 || options.threads > 64)
        throw failure(bad_usage, "--parallel: write a number from 1 to 64");
    job.records.threads = unsigned(options.threads);
    job.workers.resize(key_threads(job));
    add_makers(job.records, job.workers.size());
}

// ---- progress ----

static std::string mebibytes(uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MiB", double(bytes) / 1048576.0);
    return text;
}

// The line on standard error, at most five times a second and not in the first second.
static void report(sort_job &job, bool reading) {
    const double now = seconds_now();
    if (now < job.next_report) return;
    job.next_report = now + 0.2;
    job.reported = true;
    std::string text = reading ? "read " : "written ";
    text += std::to_string(job.lines_done);
    if (!reading) text += " of " + std::to_string(job.records.kept);
    text += " lines, " + mebibytes(job.bytes_done);
    if (reading && job.total) text += " of " + mebibytes(job.total);
    std::fprintf(stderr, "\rkova: %s\033[K", text.c_str());
    std::fflush(stderr);
}

static void clear_report(sort_job &job) {
    if (job.reported) std::fputs("\r\033[K", stderr);
    job.reported = false;
}

// ---- keys ----

static void make_key(const sort_job &job, const std::string &file, const sort_line &line,
                     key_worker &worker) {
    decode_line(job.lines, file, line, worker.wide, worker.replaced);
    worker.key.clear();
    append_line_key(job.keys, worker.wide, worker.scratch, worker.key);
}

// Makes the record of a usual line in its place; false if it is not one.
static bool make_quickly(const sort_job &job, const sort_line &line, key_worker &worker,
                         record_maker &maker) {
    if (line.text.find('\0') != line.text.npos) return false;
    const int64_t units = decode_quickly(job.lines, line.text, worker.wide);
    if (units < 0) return false;
    const size_t most = usual_key_len(size_t(units));
    const size_t rest = sizeof(record_head) + line.whole.size();
    unsigned char *const room = record_room(maker, most + rest);
    unsigned char *const key = room + sizeof(record_head);
    const int64_t len = write_line_key(job.keys, worker.wide.data(), size_t(units), key, most);
    if (len < 0 || size_t(len) > most) return false;
    std::memcpy(key + len, line.whole.data(), line.whole.size());
    keep_record(maker, room, {uint32_t(len), uint32_t(line.whole.size())});
    return true;
}

static void make_share(const sort_job &job, const std::string &file, key_worker &worker,
                       record_maker &maker) {
    try {
        for (sort_line line; cut_line(job.lines, worker.share, line);) {
            if (job.keys.whole_lines && make_quickly(job, line, worker, maker)) continue;
            make_key(job, file, line, worker);
            make_record(maker, worker.key, line.whole);
        }
    } catch (...) {
        worker.fault = std::current_exception();
    }
}

static void make_shares(sort_job &job, const std::string &file) {
    std::deque<std::jthread> threads;
    for (size_t i = 1; i < job.workers.size(); ++i) {
        const auto work = [&job, &file, i] {
            make_share(job, file, job.workers[i], job.records.makers[i]);
        };
        if (job.workers[i].share.text.empty()) continue;
        try {
            threads.emplace_back(work);
        } catch (const std::system_error &) {
            work(); // the system has no thread to spare
        }
    }
    make_share(job, file, job.workers[0], job.records.makers[0]);
}

// Hands lines and their keys to the sorter, in the order of input. Stops at the first bad line.
static void keep_lines(sort_job &job, const std::string &file, line_share lines) {
    constexpr size_t worth_a_thread = 8192; // bytes
    const size_t each = std::max(lines.text.size() / job.workers.size(), worth_a_thread);
    for (key_worker &worker : job.workers) {
        const bool last = &worker == &job.workers.back();
        worker.share = cut_lines(job.lines, lines, last ? lines.text.size() : each);
        worker.replaced = {};
    }
    make_shares(job, file);
    for (key_worker &worker : job.workers) {
        if (worker.fault) std::rethrow_exception(worker.fault);
        if (job.replaced.count == 0) job.replaced.first = worker.replaced.first;
        job.replaced.count += worker.replaced.count;
    }
    take_records(job.records);
}

// ---- files ----

static void read_file(sort_job &job, const std::string &path) {
    const size_t at_once = size_t(std::min<uint64_t>(job.records.budget / 16, size_t{1} << 20));
    line_reader reader;
    open_lines(job.lines, path, reader);
    const uint64_t before = job.bytes_done, lines_before = job.lines_done;
    for (;;) {
        const line_share lines = next_lines(job.lines, reader, at_once);
        if (lines.text.empty()) return;
        keep_lines(job, reader.in.name, lines);
        job.lines_done = lines_before + reader.lines;
        job.bytes_done = before + reader.bytes;
        if (job.reports) report(job, true);
    }
}

static void write_lines(sort_job &job, output &out) {
    constexpr size_t worth_writing = size_t{1} << 18;
    std::string text;
    text.reserve(worth_writing);
    job.lines_done = job.bytes_done = 0;
    deliver(job.records, [&](std::string_view line) {
        if (text.size() + line.size() > worth_writing) {
            write(out, text);
            text.clear();
        }
        text += line;
        job.bytes_done += line.size();
        if (job.reports && (++job.lines_done & 1023) == 0) report(job, false);
    });
    write(out, text);
}

static void measure_files(sort_job &job, const std::vector<std::string> &files) {
    for (const std::string &path : files) {
        if (!is_regular_file(path)) {
            job.total = 0; // a pipe must be opened only once, and has no size
            return;
        }
        input in;
        open(in, path); // a file that cannot be read is reported before any work
        job.total += in.size;
    }
}

static void sort_files(sort_job &job, const std::vector<std::string> &files) {
    measure_files(job, files);
    output out;
    open(out, job.options->out); // does not touch the target yet: it may be one of the files read
    for (const std::string &path : files)
        read_file(job, path);
    write_lines(job, out);
    finish(out);
}

// ---- sorted input ----

namespace {
// A file that is sorted already, and its next line.
struct sorted_file {
    line_reader reader;
    sort_line line;
    key_worker maker;
    bool ended = false;
};
} // namespace

static bool advance(sort_job &job, sorted_file &file) {
    if (!next_line(job.lines, file.reader, file.line)) return false;
    make_key(job, file.reader.in.name, file.line, file.maker);
    if (file.maker.replaced.count) {
        if (job.replaced.count == 0) job.replaced.first = file.maker.replaced.first;
        job.replaced.count += file.maker.replaced.count;
        file.maker.replaced = {};
    }
    return true;
}

// Below 0 if the first line comes earlier, 0 if the order of input decides.
static int compare_lines(const sort_job &job, std::string_view a_key, std::string_view a,
                         std::string_view b_key, std::string_view b) {
    const int by_key = a_key.compare(b_key);
    return by_key ? by_key : compare_tied(job.records.ties, a, b);
}

static void merge_files(sort_job &job, const std::vector<std::string> &files) {
    constexpr size_t most_open = 128; // systems let a process open at least a few hundred files
    if (files.size() > most_open) return sort_files(job, files);
    std::deque<sorted_file> sources(files.size());
    std::vector<size_t> heap;
    output out;
    open(out, job.options->out);
    for (size_t i = 0; i < files.size(); ++i) {
        open_lines(job.lines, files[i], sources[i].reader);
        if (advance(job, sources[i])) heap.push_back(i);
    }
    const auto later = [&](size_t x, size_t y) {
        const sorted_file &a = sources[x], &b = sources[y];
        const int order = compare_lines(job, a.maker.key, a.line.text, b.maker.key, b.line.text);
        return order ? order > 0 : x > y;
    };
    std::make_heap(heap.begin(), heap.end(), later);
    std::string last;
    for (bool any = false; !heap.empty(); any = true) {
        std::pop_heap(heap.begin(), heap.end(), later);
        sorted_file &file = sources[heap.back()];
        if (!job.options->unique || !any || file.maker.key != last)
            write(out, file.line.whole.data(), file.line.whole.size());
        if (job.options->unique) last = file.maker.key;
        if (advance(job, file))
            std::push_heap(heap.begin(), heap.end(), later);
        else
            heap.pop_back();
    }
    finish(out);
}

static int check_order(sort_job &job, const std::vector<std::string> &files, bool quiet) {
    if (files.size() != 1) throw failure(bad_usage, "sort: one file can be checked at a time");
    sorted_file file;
    open_lines(job.lines, files[0], file.reader);
    std::string last_key, last;
    for (bool any = false; advance(job, file); any = true) {
        const int order =
            any ? compare_lines(job, last_key, last, file.maker.key, file.line.text) : -1;
        if (order > 0 || (order == 0 && job.options->unique)) {
            if (quiet) return bad_text;
            throw failure(bad_text,
                          file.reader.in.name + ":" + std::to_string(file.line.number) +
                              ": disorder: " + visible(job.code, std::string(file.line.text)));
        }
        last_key.swap(file.maker.key);
        last = file.line.text;
    }
    return done;
}

// ---- the command ----

static void open_sort_locale(const data_place &data, const std::string &name,
                             locale_handle &handle) {
    if (!name.empty()) return open_locale(data, name, handle);
    try {
        open_locale(data, environment_locale(), handle);
    } catch (const failure &e) {
        throw failure(e.status, std::string("the environment's locale: ") + e.what() +
                                    "; name another with -l");
    }
}

static void tell_replaced(const sort_job &job) {
    if (job.replaced.count == 0) return;
    std::fprintf(stderr, "kova: %s compared as %s, the first at %s\n",
                 job.replaced.count == 1
                     ? "1 bad character was"
                     : (std::to_string(job.replaced.count) + " bad characters were").c_str(),
                 job.code.replacement == 0xFFFD ? "U+FFFD" : "\"?\"",
                 kovatool::printable(job.replaced.first).c_str());
}

// Does the command check, and does it show what it finds?
static bool checks(const sort_options &options, bool &quiet) {
    quiet = options.quiet_check || options.check == "quiet" || options.check == "silent";
    const bool any = options.plain_check || options.quiet_check || !options.check.empty();
    if (!options.check.empty() && !quiet && options.check != default_check)
        throw failure(bad_usage, "--check: \"" + options.check +
                                     "\" is not a kind of check; write quiet, silent or " +
                                     default_check);
    if (any && !options.out.empty())
        throw failure(bad_usage, "sort: checking writes nothing; leave out --output");
    return any;
}

int run_sort(const common_options &common, const sort_options &options) {
    bool quiet = false;
    const bool checking = checks(options, quiet);
    const data_place data = find_data(common);
    locale_handle handle;
    open_sort_locale(data, options.locale, handle);
    sort_job job;
    make_codec(handle, data, text_is_utf8(common, handle), job.code);
    read_options(options, data, handle, job);
    job.reports = options.progress && is_terminal(stderr);
    job.next_report = seconds_now() + 1.0;
    const std::vector<std::string> files = inputs_of(options.files);
    int status = done;
    try {
        if (checking)
            status = check_order(job, files, quiet);
        else if (options.merge)
            merge_files(job, files);
        else
            sort_files(job, files);
    } catch (...) {
        clear_report(job);
        throw;
    }
    clear_report(job);
    tell_replaced(job);
    return status;
}

} // namespace kovacli
