// Text as what stands together in a line: a character with its combining marks, or several that
// are shown as one.
#pragma once

#include <algorithm>

#include "kova/kova_measure.h"

namespace kovacli {

struct cluster {
    std::vector<ko_wchar_t> wide;
    int64_t columns = 0;            // of all characters; those without a width count as one
    uint32_t first = no_code_point; // of its characters
    uint32_t last = no_code_point;
    bool joinable = false;  // not a control
    bool continues = false; // belongs to the one before, which was too long for memory
};

// What programs that lay out lines need of a code set.
struct layout_signs {
    ko_wchar_t newline, blank, tab, carriage_return, backspace;
};
layout_signs signs_of(const codec &code);

// The end of a line that is inserted: that of the file's first line, as far as it is known.
struct line_end {
    std::vector<ko_wchar_t> wide;
    bool known = false;
};

// A job that lays out text.
struct layout_job {
    locale_handle handle;
    text_job text;
    layout_signs signs;
    output out;
    kept_text to;
    line_end end;
};
void open_layout(layout_job &job, const common_options &common, const text_options &options);
void finish_layout(layout_job &job);

inline bool is(const cluster &c, ko_wchar_t sign) { return c.wide[0] == sign; }

// A character after which a line may be cut. No-break spaces are not of class "space".
bool is_blank(const layout_job &job, const cluster &c);

// The column after a character other than a tab.
int64_t column_after(const layout_signs &signs, ko_wchar_t first, int64_t columns, int64_t column);

// Adds a character to the last cluster; true if it begins another one, and the last is complete.
bool begins_cluster(const text_job &job, const cluster &last, const ko_wchar_t *wide, size_t units,
                    cluster &next);

void learn_end(layout_job &job, const ko_wchar_t *wide, size_t count);

// Passes on the clusters of a file.
template <class Take>
void read_clusters(layout_job &job, const std::string &path, Take take_cluster) {
    cluster now, next;
    job.end = {{job.signs.newline}, false};
    const auto take = [&](const ko_wchar_t *wide, size_t count) {
        if (!job.end.known) learn_end(job, wide, count);
        for (size_t i = 0, size; i < count; i += size) {
            size = units_of(job.text.code, wide + i, count - i);
            if (!begins_cluster(job.text, now, wide + i, size, next)) {
                now.wide.insert(now.wide.end(), wide + i, wide + i + size);
                now.columns += next.columns;
                now.last = next.last;
                continue;
            }
            if (!now.wide.empty()) take_cluster(now);
            next.wide.assign(wide + i, wide + i + size);
            std::swap(now, next);
        }
    };
    read_file(job.text, path, take,
              [&](const unsigned char *, size_t) { take(&job.text.code.replacement, 1); });
    if (!now.wide.empty()) take_cluster(now);
}

} // namespace kovacli
