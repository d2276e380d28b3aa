// kova sort: lines in the order of a locale. A key is made once for each line; comparing keys byte
// by byte gives the order of the texts.
#include <algorithm>
#include <climits>
#include <cstdio>

#include "common/tool_text.h"
#include "kova/kova_cli.h"
#include "kova/kova_io.h"
#include "kova/kova_locale.h"
#include "kova/kova_sort_runs.h"
#include "kova/kova_text.h"

namespace kovacli {

namespace {
// Fields first..last, from 1; last 0: to the end of the line.
struct sort_field {
    int first = 0, last = 0;
};

// What one run of the command works with.
struct sort_job {
    const sort_options *options = nullptr;
    codec code;
    std::vector<sort_field> fields;
    int separator = -1;      // wide character, or none
    std::vector<bool> blank; // per wide character, without a separator
    sorter records;
    uint64_t lines = 0, bytes = 0, total = 0;
    uint64_t replaced = 0;
    std::string first_replaced; // its place
    double next_report = 0;
    bool reports = false;
    bool reported = false;
    // Scratch memory for one line.
    std::vector<ko_wchar_t> wide, part;
    std::vector<std::pair<size_t, size_t>> spans; // of its fields
    std::string key;
};
} // namespace

// ---- options ----

static uint64_t parse_size(const std::string &text) {
    size_t at = 0;
    uint64_t value = 0;
    while (at < text.size() && text[at] >= '0' && text[at] <= '9' && value < uint64_t{1} << 40)
        value = value * 10 + uint64_t(text[at++] - '0');
    static constexpr std::string_view units = "KkMmGg";
    const size_t unit = at < text.size() ? units.find(text[at]) : units.npos;
    const bool plain = at == text.size(), scaled = unit != units.npos && at + 1 == text.size();
    if (at == 0 || !(plain || scaled))
        throw failure(bad_usage, "--buffer-size: \"" + text +
                                     "\" is not a size; write bytes, or a number with K, M or G");
    if (scaled) value <<= 10 * (unit / 2 + 1);
    return std::max(value, uint64_t{64} << 10);
}

static sort_field parse_field(const std::string &text) {
    sort_field field;
    int *target = &field.first;
    bool good = !text.empty();
    for (const char c : text) {
        if (c == ',' && target == &field.first && field.first > 0)
            target = &field.last;
        else if (c >= '0' && c <= '9' && *target < 100000)
            *target = *target * 10 + (c - '0');
        else
            good = false;
    }
    if (target == &field.last && field.last < field.first) good = false;
    if (!good || field.first < 1)
        throw failure(bad_usage,
                      "-k: \"" + text + "\" names no fields; write FIELD or FIELD,FIELD, from 1");
    return field;
}

static void read_options(const sort_options &options, sort_job &job) {
    job.options = &options;
    job.records.budget = parse_size(options.buffer_size);
    job.records.reverse = options.reverse;
    job.records.unique = options.unique;
    job.records.scratch_directory = options.temporary_directory;
    for (const std::string &text : options.keys)
        job.fields.push_back(parse_field(text));
    if (!options.separator.empty()) {
        const std::string text = options.separator == "\\t" ? "\t" : options.separator;
        const std::vector<ko_wchar_t> wide = decode_argument(job.code, text, "-t");
        if (wide.size() != 1)
            throw failure(bad_usage, "-t takes one character (\\t is the tab character)");
        job.separator = wide[0];
    } else if (!job.fields.empty()) {
        job.blank.resize(65536);
        for (unsigned c = 0; c < 65536; ++c)
            job.blank[c] = im_iswctype(job.code.loc, ko_wchar_t(c), KO_CT_BLANK) != 0;
    }
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
    text += std::to_string(job.lines);
    if (!reading) text += " of " + std::to_string(job.records.kept);
    text += " lines, " + mebibytes(job.bytes);
    if (reading && job.total) text += " of " + mebibytes(job.total);
    std::fprintf(stderr, "\rkova: %s\033[K", text.c_str());
    std::fflush(stderr);
}

static void clear_report(sort_job &job) {
    if (job.reported) std::fputs("\r\033[K", stderr);
    job.reported = false;
}

// ---- keys ----

// Appends the key of units wide characters, none of them null; a null character follows them.
static void append_key(sort_job &job, const ko_wchar_t *wide, size_t units) {
    const size_t before = job.key.size();
    job.key.resize(before + 64 + 8 * units);
    for (;;) {
        const size_t room = std::min<size_t>(job.key.size() - before, INT_MAX);
        const int len = ko_wcsxfrm(job.code.loc, reinterpret_cast<ko_mchar_t *>(&job.key[before]),
                                   wide, int(room));
        if (len < 0)
            throw failure(bad_text, "a line is too long to compare, or memory is exhausted");
        const bool fits = size_t(len) < room;
        job.key.resize(before + size_t(len) + (fits ? 0 : 1));
        if (fits) return;
    }
}

// Ends a part of a key: lower than every key byte, and as wide as a unit of code-order keys.
static void end_part(sort_job &job) { job.key.append(size_t(job.code.min_len), '\0'); }

// Appends the key of a text. The library's strings end at a null character, so the parts between
// null characters are keyed one by one, and a null character sorts before all others.
static void append_text_key(sort_job &job, const ko_wchar_t *wide, size_t units) {
    job.part.assign(wide, wide + units);
    job.part.push_back(0);
    for (size_t at = 0;;) {
        const size_t end =
            size_t(std::find(job.part.begin() + std::ptrdiff_t(at), job.part.end(), ko_wchar_t{0}) -
                   job.part.begin());
        append_key(job, &job.part[at], end - at);
        if (end == units) return;
        end_part(job);
        at = end + 1;
    }
}

static void find_fields(sort_job &job) {
    job.spans.clear();
    const size_t len = job.wide.size();
    if (job.separator >= 0) {
        for (size_t at = 0; at <= len;) {
            size_t end = at;
            while (end < len && job.wide[end] != job.separator)
                ++end;
            job.spans.emplace_back(at, end);
            at = end + 1;
        }
        return;
    }
    for (size_t at = 0; at < len;) {
        while (at < len && job.blank[job.wide[at]])
            ++at;
        size_t end = at;
        while (end < len && !job.blank[job.wide[end]])
            ++end;
        if (end > at) job.spans.emplace_back(at, end);
        at = end;
    }
}

static void make_key(sort_job &job) {
    job.key.clear();
    if (job.fields.empty()) return append_text_key(job, job.wide.data(), job.wide.size());
    find_fields(job);
    for (const sort_field &field : job.fields) {
        if (size_t(field.first) <= job.spans.size()) {
            const size_t last = field.last ? std::min(size_t(field.last), job.spans.size()) : 0;
            const size_t from = job.spans[size_t(field.first) - 1].first;
            const size_t to = last ? job.spans[last - 1].second : job.wide.size();
            append_text_key(job, job.wide.data() + from, to - from);
        }
        end_part(job);
    }
}

// ---- lines ----

static std::string place(const input &in, uint64_t line, uint64_t offset) {
    return in.name + ":" + std::to_string(line) + ": byte offset " + std::to_string(offset);
}

static void take_line(sort_job &job, const input &in, uint64_t number, std::string_view text,
                      std::string_view with_end) {
    if (with_end.size() > INT_MAX / 16)
        throw failure(bad_text, in.name + ":" + std::to_string(number) +
                                    ": the line is longer than 128 MiB; is this a text file?");
    bad_character bad;
    const uint64_t before = job.replaced;
    if (!decode_text(job.code, text, job.options->replace, job.wide, bad, &job.replaced))
        throw failure(bad_text, place(in, number, in.offset + bad.offset) + ": " +
                                    describe(job.code, bad) + hint(job.code, bad) +
                                    ", --replace continues");
    if (before == 0 && job.replaced > 0)
        job.first_replaced = place(in, number, in.offset + bad.offset);
    make_key(job);
    add_record(job.records, job.key, with_end);
}

// The end of the first line of text, or npos. A unit of two bytes is searched for at even places.
static size_t find_newline(const sort_job &job, const unsigned char *text, size_t from,
                           size_t len) {
    const std::string_view bytes(reinterpret_cast<const char *>(text), len);
    const bool outer = job.code.utf8;
    const char low = outer ? '\n' : char(job.code.newline & 0xFF);
    if (outer || job.code.min_len == 1) return bytes.find(low, from);
    const char high = char(job.code.newline >> 8);
    for (size_t at = from & ~size_t{1}; at + 1 < len; at += 2)
        if (bytes[at] == high && bytes[at + 1] == low) return at;
    return std::string_view::npos;
}

static void read_lines(sort_job &job, input &in) {
    const size_t end_len = job.code.utf8 ? 1 : size_t(job.code.min_len);
    std::string end_text;
    if (job.code.utf8)
        end_text = "\n";
    else
        encode_bytes(job.code, job.code.newline, end_text);
    size_t searched = 0;
    std::string last;
    for (uint64_t number = 1;;) {
        const unsigned char *text = in.block.data() + in.at;
        const size_t len = in.fill - in.at;
        const size_t end = find_newline(job, text, searched, len);
        const char *chars = reinterpret_cast<const char *>(text);
        if (end == std::string_view::npos) {
            searched = len & ~size_t{1};
            if (more(in)) continue;
            if (len == 0) return;
            last.assign(chars, len);
            last += end_text; // the last line of a file may have no end
            take_line(job, in, number, std::string_view(last).substr(0, len), last);
        } else {
            take_line(job, in, number, {chars, end}, {chars, end + end_len});
        }
        const size_t taken = end == std::string_view::npos ? len : end + end_len;
        take(in, taken);
        searched = 0;
        ++number;
        ++job.lines;
        job.bytes += taken;
        if (job.reports && (job.lines & 1023) == 0) report(job, true);
    }
}

static void read_file(sort_job &job, const std::string &path) {
    input in;
    open(in, path);
    more(in);
    static constexpr unsigned char mark[] = {0xEF, 0xBB, 0xBF};
    if (job.code.utf8 && in.fill >= 3 && std::equal(mark, mark + 3, in.block.data())) take(in, 3);
    read_lines(job, in);
}

static void write_lines(sort_job &job, output &out) {
    job.lines = job.bytes = 0;
    deliver(job.records, [&](std::string_view line) {
        write(out, line.data(), line.size());
        job.bytes += line.size();
        if (job.reports && (++job.lines & 1023) == 0) report(job, false);
    });
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

int run_sort(const common_options &common, const sort_options &options) {
    const data_place data = find_data(common);
    locale_handle handle;
    open_sort_locale(data, options.locale, handle);
    sort_job job;
    make_codec(handle, data, text_is_utf8(common), job.code);
    read_options(options, job);
    job.reports = options.progress && is_terminal(stderr);
    job.next_report = seconds_now() + 1.0;
    const std::vector<std::string> files = inputs_of(options.files);
    measure_files(job, files);
    output out;
    try {
        open(out, options.out); // does not touch the target yet: it may be one of the files read
        for (const std::string &path : files)
            read_file(job, path);
        write_lines(job, out);
        finish(out);
    } catch (...) {
        clear_report(job);
        throw;
    }
    clear_report(job);
    if (job.replaced)
        std::fprintf(stderr, "kova: %s compared as %s, the first at %s\n",
                     job.replaced == 1
                         ? "1 bad character was"
                         : (std::to_string(job.replaced) + " bad characters were").c_str(),
                     job.code.replacement == 0xFFFD ? "U+FFFD" : "\"?\"",
                     kovatool::printable(job.first_replaced).c_str());
    return done;
}

} // namespace kovacli
