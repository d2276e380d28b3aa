// kova width, kova trim and kova count: the columns of lines, lines without trailing spaces, and
// the amount of text in files. Files are read block by block, so that memory does not grow with
// them.
#include <algorithm>
#include <array>
#include <charconv>

#include "kova/kova_char.h"
#include "kova/kova_locale.h"
#include "kova/kova_read.h"
#include "kova/kova_table.h"

namespace kovacli {

namespace {
struct text_job {
    codec code;
    std::array<int8_t, 65536> columns{}; // by wide character, -1 for none
    std::array<bool, 65536> space{};
    ko_wchar_t tab = '\t';
    std::vector<ko_wchar_t> wide;
    bad_count bad;
};
} // namespace

static void open_job(text_job &job, const common_options &common, const measure_options &options,
                     locale_handle &handle, const char *with_replace) {
    const data_place data = open_with_codec(common, options.locale, handle, job.code);
    add_mapping(handle, data, job.code); // if the form is bytes, marks are known if there is one
    if (job.code.mapped && job.code.wide_of['\t']) job.tab = job.code.wide_of['\t'];
    job.bad = {.replace = options.replace, .with_replace = with_replace};
    for (unsigned wide = 0; wide < 65536; ++wide) {
        const auto wc = ko_wchar_t(wide);
        job.columns[wide] = int8_t(columns_of(job.code, &wc, 1));
        job.space[wide] = im_iswctype(handle.loc, wc, KO_CT_SPACE) != 0;
    }
}

static constexpr int64_t tab_stop = 8;

// Columns of a character that stands at a column of its line; -1 for one that has none.
static int64_t columns_at(const text_job &job, const ko_wchar_t *wide, size_t units,
                          int64_t column) {
    if (wide[0] == job.tab) return tab_stop - column % tab_stop;
    return units == 2 ? columns_of(job.code, wide, units) : job.columns[wide[0]];
}

// Passes on a file's characters, and the bytes of each bad one. Returns the bytes in the file.
template <class Units, class Bad>
static uint64_t read_file(text_job &job, const std::string &path, Units take_units, Bad take_bad) {
    return read_text(
        job.code, path, job.wide, job.bad,
        [&](size_t units) { take_units(job.wide.data(), units); }, take_bad);
}

// ---- width ----

namespace {
struct line_widths {
    int64_t columns = 0; // of the line so far, -1 once a character has none
    int64_t widest = 0;
    bool begun = false;
    bool list = true;
    std::string text;
};
} // namespace

static void end_line(line_widths &lines) {
    lines.widest = std::max(lines.widest, lines.columns);
    if (lines.list) {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, lines.columns).ptr;
        lines.text.append(digits, end).push_back('\n');
    }
    lines.columns = 0;
    lines.begun = false;
}

static void add_columns(line_widths &lines, int64_t columns) {
    lines.begun = true;
    if (lines.columns < 0) return;
    lines.columns = columns < 0 ? -1 : lines.columns + columns;
}

int run_width(const common_options &common, const measure_options &options) {
    locale_handle handle;
    text_job job;
    open_job(job, common, options, handle, "gives its line no width and continues");
    output out;
    line_widths lines;
    lines.list = !options.widest;
    const auto units = [&](const ko_wchar_t *wide, size_t count) {
        for (size_t i = 0, size; i < count; i += size) {
            size = units_of(job.code, wide + i, count - i);
            if (wide[i] == job.code.newline)
                end_line(lines);
            else
                add_columns(lines, columns_at(job, wide + i, size, lines.columns));
        }
        write(out, lines.text);
        lines.text.clear();
    };
    for (const std::string &path : inputs_of(options.files)) {
        read_file(job, path, units, [&](const unsigned char *, size_t) { add_columns(lines, -1); });
        if (lines.begun) end_line(lines);
        write(out, lines.text);
        lines.text.clear();
    }
    if (options.widest) write(out, std::to_string(lines.widest) + "\n");
    finish(out);
    tell_bad(job.bad, "found");
    return done;
}

// ---- trim ----

namespace {
// Spaces that may turn out to be the last of their line, as runs of equal ones. The record is small
// because a long line of different spaces needs one for each.
struct space_run {
    ko_wchar_t wide;
    uint16_t count;
};

struct trimmer {
    text_job *job;
    output *out;
    std::vector<space_run> pending;
    std::vector<ko_wchar_t> kept;
    std::string bytes;
};
} // namespace

static constexpr size_t write_units = size_t{1} << 16;

static void write_kept(trimmer &to) {
    to.bytes.clear();
    encode(to.job->code, to.kept.data(), to.kept.size(), to.bytes);
    write(*to.out, to.bytes);
    to.kept.clear();
}

static void keep_pending(trimmer &to) {
    for (const space_run &run : to.pending) {
        to.kept.insert(to.kept.end(), run.count, run.wide);
        if (to.kept.size() >= write_units) write_kept(to);
    }
    to.pending.clear();
}

static void add_pending(trimmer &to, const ko_wchar_t *wide, const ko_wchar_t *end) {
    for (; wide < end; ++wide) {
        if (!to.pending.empty() && to.pending.back().wide == *wide &&
            to.pending.back().count < UINT16_MAX)
            ++to.pending.back().count;
        else
            to.pending.push_back({*wide, 1});
    }
}

static void trim_units(trimmer &to, const ko_wchar_t *wide, size_t count) {
    const ko_wchar_t *const last = wide + count;
    while (wide < last) {
        const ko_wchar_t *const end = std::find(wide, last, to.job->code.newline);
        const ko_wchar_t *kept = end;
        while (kept > wide && to.job->space[kept[-1]])
            --kept;
        if (kept > wide) {
            keep_pending(to);
            to.kept.insert(to.kept.end(), wide, kept);
        }
        wide = end;
        if (end == last) {
            add_pending(to, kept, end);
            break;
        }
        // A carriage return belongs to the end of the line, not to its text.
        const bool in_pending = kept == end && !to.pending.empty();
        if (in_pending ? to.pending.back().wide == '\r' : kept < end && end[-1] == '\r')
            to.kept.push_back('\r');
        to.pending.clear();
        to.kept.push_back(*wide++);
    }
    write_kept(to);
}

int run_trim(const common_options &common, const measure_options &options) {
    locale_handle handle;
    text_job job;
    open_job(job, common, options, handle, "leaves it as it is");
    output out;
    open(out, options.out);
    trimmer to{&job, &out, {}, {}, {}};
    for (const std::string &path : inputs_of(options.files)) {
        read_file(
            job, path, [&](const ko_wchar_t *wide, size_t count) { trim_units(to, wide, count); },
            [&](const unsigned char *bytes, size_t count) {
                keep_pending(to);
                write_kept(to);
                write(out, bytes, count);
            });
        to.pending.clear();
    }
    finish(out);
    tell_bad(job.bad, "left unchanged");
    return done;
}

// ---- count ----

namespace {
struct text_counts {
    uint64_t lines = 0, characters = 0, bytes = 0, columns = 0;
    int64_t column = 0; // of the line so far
};
} // namespace

static void count_units(const text_job &job, const ko_wchar_t *wide, size_t count,
                        text_counts &counts) {
    for (size_t i = 0, size; i < count; i += size) {
        size = units_of(job.code, wide + i, count - i);
        ++counts.characters;
        if (wide[i] == job.code.newline) {
            ++counts.lines;
            counts.column = 0;
            continue;
        }
        const int64_t columns =
            std::max<int64_t>(columns_at(job, wide + i, size, counts.column), 0);
        counts.column += columns;
        counts.columns += uint64_t(columns);
    }
}

static void add_row(std::vector<std::vector<cell>> &rows, const text_counts &c,
                    const std::string &name) {
    std::vector<cell> row;
    for (const uint64_t value : {c.lines, c.characters, c.bytes, c.columns})
        row.push_back({std::to_string(value), -1, true});
    row.push_back({name});
    rows.push_back(std::move(row));
}

int run_count(const common_options &common, const measure_options &options) {
    locale_handle handle;
    text_job job;
    open_job(job, common, options, handle, "counts it as a character and continues");
    std::vector<std::vector<cell>> rows = {
        {{"lines", -1, true},
         {"characters", -1, true},
         {"bytes", -1, true},
         {"columns", -1, true},
         {"file"}}
    };
    text_counts all;
    for (const std::string &path : inputs_of(options.files)) {
        text_counts c;
        c.bytes = read_file(
            job, path,
            [&](const ko_wchar_t *wide, size_t count) { count_units(job, wide, count, c); },
            [&](const unsigned char *, size_t) { ++c.characters; });
        add_row(rows, c, path);
        all.lines += c.lines;
        all.characters += c.characters;
        all.bytes += c.bytes;
        all.columns += c.columns;
    }
    if (options.files.size() > 1) add_row(rows, all, "total");
    output out;
    write_table(out, rows);
    finish(out);
    tell_bad(job.bad, "counted");
    return done;
}

} // namespace kovacli
