// kova width, kova trim and kova count: the columns of lines, lines without trailing spaces, and
// the amount of text in files. Files are read block by block, so that memory does not grow with
// them.
#include <algorithm>
#include <charconv>

#include "kova/kova_measure.h"
#include "kova/kova_table.h"

namespace kovacli {

static void open_job(text_job &job, const common_options &common, const measure_options &options,
                     locale_handle &handle, const char *with_replace) {
    open_job(job, common, options.locale, handle, with_replace);
    job.bad.replace = options.replace;
}

// ---- width ----

namespace {
struct line_widths {
    int64_t columns = 0; // of the line so far, -1 once a character has none
    int64_t widest = 0;
    bool begun = false;
    bool list = true, json = false;
    uint64_t number = 0;
    std::string text;
};
} // namespace

static void end_line(line_widths &lines) {
    lines.widest = std::max(lines.widest, lines.columns);
    if (lines.json && lines.list)
        lines.text += "{\"line\":" + std::to_string(++lines.number) +
                      ",\"columns\":" + std::to_string(lines.columns) + "}\n";
    else if (lines.list) {
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
    lines.json = common.json;
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
    const std::string widest = std::to_string(lines.widest);
    if (options.widest) write(out, common.json ? "{\"columns\":" + widest + "}\n" : widest + "\n");
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
    kept_text to;
    std::vector<space_run> pending;
};
} // namespace

static void keep_pending(trimmer &trim) {
    for (const space_run &run : trim.pending)
        keep(trim.to, run.count, run.wide);
    trim.pending.clear();
}

static void add_pending(trimmer &trim, const ko_wchar_t *wide, const ko_wchar_t *end) {
    for (; wide < end; ++wide) {
        if (!trim.pending.empty() && trim.pending.back().wide == *wide &&
            trim.pending.back().count < UINT16_MAX)
            ++trim.pending.back().count;
        else
            trim.pending.push_back({*wide, 1});
    }
}

static void trim_units(trimmer &trim, const ko_wchar_t *wide, size_t count) {
    const ko_wchar_t *const last = wide + count;
    while (wide < last) {
        const ko_wchar_t *const end = std::find(wide, last, trim.to.job->code.newline);
        const ko_wchar_t *kept = end;
        while (kept > wide && trim.to.job->space[kept[-1]])
            --kept;
        if (kept > wide) {
            keep_pending(trim);
            trim.to.wide.insert(trim.to.wide.end(), wide, kept);
        }
        wide = end;
        if (end == last) {
            add_pending(trim, kept, end);
            break;
        }
        // A carriage return belongs to the end of the line, not to its text.
        const bool in_pending = kept == end && !trim.pending.empty();
        if (in_pending ? trim.pending.back().wide == '\r' : kept < end && end[-1] == '\r')
            trim.to.wide.push_back('\r');
        trim.pending.clear();
        trim.to.wide.push_back(*wide++);
    }
    write_kept(trim.to);
}

int run_trim(const common_options &common, const measure_options &options) {
    locale_handle handle;
    text_job job;
    open_job(job, common, options, handle, "leaves it as it is");
    output out;
    open(out, options.out);
    trimmer trim{
        {&job,      &out, {}, {}},
        {}
    };
    for (const std::string &path : inputs_of(options.files)) {
        read_file(
            job, path, [&](const ko_wchar_t *wide, size_t count) { trim_units(trim, wide, count); },
            [&](const unsigned char *bytes, size_t count) {
                keep_pending(trim);
                write_kept(trim.to);
                write(out, bytes, count);
            });
        trim.pending.clear();
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
    common.json ? write_json_rows(out, rows) : write_table(out, rows);
    finish(out);
    tell_bad(job.bad, "counted");
    return done;
}

} // namespace kovacli
