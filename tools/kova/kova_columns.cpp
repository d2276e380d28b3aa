// kova text table: the cells of lines, aligned by the columns that they take.
#include <charconv>
#include <map>

#include "kova/kova_clusters.h"

namespace kovacli {

namespace {
struct text_cell {
    size_t at, units; // in the text
    int64_t columns;
};

struct text_row {
    size_t first_cell;
    bool ends_in_return; // before its newline
};

struct text_table {
    layout_job &job;
    std::vector<ko_wchar_t> separators = {};
    std::vector<ko_wchar_t> text = {}; // of all files, with a newline after each line
    std::vector<text_cell> cells = {};
    std::vector<text_row> rows = {};
    std::vector<int64_t> widths = {};
    std::vector<bool> right = {}; // the last counts for those after it
};
} // namespace

// ---- the list of columns ----

static failure bad_list(const std::string &text) {
    return failure(bad_usage,
                   "--right " + text + ": a list of columns from 1 to 10000, such as 2,4-6,9-");
}

static std::vector<bool> columns_of_list(const std::string &text) {
    constexpr unsigned most = 10000;
    std::vector<bool> chosen(most + 1);
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find(',', at), text.size());
        const char *const last = text.data() + end;
        unsigned from = 0, to = 0;
        auto read = std::from_chars(text.data() + at, last, from);
        if (read.ec != std::errc()) throw bad_list(text);
        to = from;
        if (read.ptr < last && *read.ptr == '-') {
            to = most;
            if (++read.ptr < last) read = std::from_chars(read.ptr, last, to);
        }
        if (read.ec != std::errc() || read.ptr != last || from < 1 || to < from || to > most)
            throw bad_list(text);
        std::fill(chosen.begin() + from, chosen.begin() + to + 1, true);
        at = end + 1;
    }
    return chosen;
}

// ---- cells ----

static int64_t cell_columns(const text_job &job, const ko_wchar_t *wide, size_t count) {
    int64_t columns = 0;
    for (size_t i = 0, units; i < count; i += units) {
        units = units_of(job.code, wide + i, count - i);
        const int64_t more = columns_at(job, wide + i, units, columns);
        columns += more < 0 ? 1 : more;
    }
    return columns;
}

static void add_cell(text_table &table, size_t at, size_t end, size_t column) {
    const int64_t columns = cell_columns(table.job.text, &table.text[at], end - at);
    if (column >= table.widths.size()) table.widths.resize(column + 1);
    table.widths[column] = std::max(table.widths[column], columns);
    table.cells.push_back({at, end - at, columns});
}

// The cells of a line, without its newline.
static void split_line(text_table &table, size_t at, size_t end) {
    const bool returns = end > at && table.text[end - 1] == table.job.signs.carriage_return;
    table.rows.push_back({table.cells.size(), returns});
    end -= returns;
    const auto separates = [&](ko_wchar_t c) {
        if (table.separators.empty()) return bool(table.job.text.space[c]);
        return std::find(table.separators.begin(), table.separators.end(), c) !=
               table.separators.end();
    };
    const bool runs = table.separators.empty();
    for (size_t column = 0; at < end; ++column) {
        while (runs && at < end && separates(table.text[at]))
            ++at;
        size_t stop = at;
        while (stop < end && !separates(table.text[stop]))
            ++stop;
        if (runs && stop == at) break;
        add_cell(table, at, stop, column);
        if (!runs && stop + 1 == end) add_cell(table, end, end, column + 1);
        at = stop + 1;
    }
}

static void read_table(text_table &table, const std::string &path) {
    const size_t begin = table.text.size();
    read_file(
        table.job.text, path,
        [&](const ko_wchar_t *wide, size_t count) {
            if (!table.job.end.known) learn_end(table.job, wide, count);
            table.text.insert(table.text.end(), wide, wide + count);
        },
        [&](const unsigned char *, size_t) {
            table.text.push_back(table.job.text.code.replacement);
        });
    const ko_wchar_t newline = table.job.signs.newline;
    if (table.text.size() > begin && table.text.back() != newline) table.text.push_back(newline);
}

// ---- writing ----

static void write_cell(text_table &table, const text_cell &c) {
    int64_t column = 0;
    const text_job &job = table.job.text;
    for (size_t i = 0, units; i < c.units; i += units) {
        const ko_wchar_t *const wide = &table.text[c.at + i];
        units = units_of(job.code, wide, c.units - i);
        const int64_t columns = columns_at(job, wide, units, column);
        column += columns < 0 ? 1 : columns;
        if (wide[0] == job.tab)
            keep(table.job.to, uint64_t(columns), table.job.signs.blank);
        else
            keep(table.job.to, {wide, wide + units});
    }
}

static void write_row(text_table &table, size_t row, const std::vector<ko_wchar_t> &between) {
    const bool last = row + 1 == table.rows.size();
    const size_t first = table.rows[row].first_cell,
                 end = last ? table.cells.size() : table.rows[row + 1].first_cell;
    for (size_t i = first; i < end; ++i) {
        const text_cell &c = table.cells[i];
        const size_t column = i - first;
        const auto pad = uint64_t(table.widths[column] - c.columns);
        const bool right =
            !table.right.empty() && table.right[std::min(column + 1, table.right.size() - 1)];
        if (column > 0) keep(table.job.to, between);
        if (right) keep(table.job.to, pad, table.job.signs.blank);
        write_cell(table, c);
        if (!right && i + 1 < end) keep(table.job.to, pad, table.job.signs.blank);
    }
    if (table.rows[row].ends_in_return) keep(table.job.to, 1, table.job.signs.carriage_return);
    keep(table.job.to, 1, table.job.signs.newline);
}

int run_table(const common_options &common, const text_options &options) {
    const std::vector<bool> right = columns_of_list(options.right);
    layout_job job;
    open_layout(job, common, options);
    text_table table{.job = job};
    if (!options.right.empty()) table.right = right;
    const codec &code = job.text.code;
    table.separators = options.separators == "\\t"
                           ? std::vector<ko_wchar_t>{job.signs.tab}
                           : decode_argument(code, options.separators, "--separator");
    const std::vector<ko_wchar_t> between = decode_argument(code, options.between, "--between");
    for (const std::string &path : inputs_of(options.files))
        read_table(table, path);
    for (size_t at = 0; at < table.text.size();) {
        const auto newline =
            std::find(table.text.begin() + ptrdiff_t(at), table.text.end(), job.signs.newline);
        const auto end = size_t(newline - table.text.begin());
        split_line(table, at, end);
        at = end + 1;
    }
    for (size_t row = 0; row < table.rows.size(); ++row)
        write_row(table, row, between);
    finish_layout(job);
    return done;
}

} // namespace kovacli
