// kova text fold, expand and unexpand: lines cut at columns, tabs to blanks and back.
#include "kova/kova_clusters.h"

#include <charconv>

namespace kovacli {

// ---- fold ----

namespace {
struct fold_piece {
    uint32_t units;
    int64_t columns;
    ko_wchar_t first;
    bool blank;
};

struct folder {
    layout_job &job;
    int64_t width;
    int64_t column = 0;
    // With -s, the line since the last place where it was cut.
    bool at_blanks = false;
    std::vector<ko_wchar_t> line;
    std::vector<fold_piece> pieces;
};
} // namespace

static int64_t fold_column(const folder &fold, ko_wchar_t first, int64_t columns, int64_t column) {
    if (first == fold.job.signs.tab) return column + usual_tab_stop - column % usual_tab_stop;
    return column_after(fold.job.signs, first, columns, column);
}

static void write_line(folder &fold) {
    keep(fold.job.to, fold.line);
    fold.line.clear();
    fold.pieces.clear();
}

// Cuts the line after its last blank, or at its end, and counts the columns of what remains.
static void cut_line(folder &fold) {
    size_t cut = fold.pieces.size(), units = 0;
    while (cut > 0 && !fold.pieces[cut - 1].blank)
        --cut;
    if (cut == 0) cut = fold.pieces.size();
    for (size_t i = 0; i < cut; ++i)
        units += fold.pieces[i].units;
    const auto rest = fold.line.begin() + ptrdiff_t(units);
    keep(fold.job.to, {fold.line.begin(), rest});
    keep(fold.job.to, fold.job.end.wide);
    fold.line.erase(fold.line.begin(), rest);
    fold.pieces.erase(fold.pieces.begin(), fold.pieces.begin() + ptrdiff_t(cut));
    fold.column = 0;
    for (const fold_piece &p : fold.pieces)
        fold.column = fold_column(fold, p.first, p.columns, fold.column);
}

static void fold_cluster(folder &fold, const cluster &c) {
    const auto after = [&] { return fold_column(fold, c.wide[0], c.columns, fold.column); };
    if (is(c, fold.job.signs.newline)) {
        write_line(fold);
        keep(fold.job.to, c.wide);
        fold.column = 0;
        return;
    }
    while (after() > fold.width && fold.column > 0 && !c.continues)
        cut_line(fold);
    fold.column = after();
    if (!fold.at_blanks) return keep(fold.job.to, c.wide);
    fold.line.insert(fold.line.end(), c.wide.begin(), c.wide.end());
    fold.pieces.push_back({uint32_t(c.wide.size()), c.columns, c.wide[0], is_blank(fold.job, c)});
    // Characters without columns, and those that go back, could make a line of any length.
    if (fold.line.size() > 65536 + 4 * size_t(fold.width)) write_line(fold);
}

int run_fold(const common_options &common, const text_options &options) {
    layout_job job;
    open_layout(job, common, options);
    for (const std::string &path : inputs_of(options.files)) {
        folder fold{job, options.width, 0, options.spaces, {}, {}};
        read_clusters(job, path, [&](const cluster &c) { fold_cluster(fold, c); });
        write_line(fold);
    }
    finish_layout(job);
    return done;
}

// ---- tab stops ----

namespace {
struct tab_stops {
    std::vector<int64_t> at;
    int64_t every = 0; // after the last of them; 0: none
    int64_t origin = 0;
};
} // namespace

static constexpr int64_t last_stop = 1000000;

static failure bad_stops(const std::string &text) {
    return failure(bad_usage, "--tabs " + text +
                                  ": a number of columns, or a list of tab stops such as 4,8,20; "
                                  "its last can be /8 (every multiple of 8) or +8 (every 8 columns "
                                  "after the stop before)");
}

static tab_stops stops_of(const std::string &text) {
    tab_stops stops;
    bool ended = false;
    if (text.empty()) stops.every = usual_tab_stop;
    for (size_t at = 0; !text.empty() && at <= text.size();) {
        const size_t end = std::min(text.find_first_of(", ", at), text.size());
        const char kind = at < end && (text[at] == '/' || text[at] == '+') ? text[at++] : 0;
        int64_t value = 0;
        const auto read = std::from_chars(text.data() + at, text.data() + end, value);
        if (read.ec != std::errc() || read.ptr != text.data() + end || value < 1 ||
            value > last_stop || ended || (!kind && !stops.at.empty() && value <= stops.at.back()))
            throw bad_stops(text);
        if (kind) {
            ended = true;
            stops.every = value;
            stops.origin = kind == '+' && !stops.at.empty() ? stops.at.back() : 0;
        } else {
            stops.at.push_back(value);
        }
        at = end + 1;
    }
    if (!ended && stops.at.size() == 1) {
        stops.every = stops.at[0];
        stops.at.clear();
    }
    return stops;
}

// The first tab stop after a column, -1 if there is none.
static int64_t next_stop(const tab_stops &stops, int64_t column) {
    const auto found = std::upper_bound(stops.at.begin(), stops.at.end(), column);
    if (found != stops.at.end()) return *found;
    if (stops.every == 0) return -1;
    return column + stops.every - (column - stops.origin) % stops.every;
}

// ---- expand ----

int run_expand(const common_options &common, const text_options &options) {
    layout_job job;
    const tab_stops stops = stops_of(options.tabs);
    open_layout(job, common, options);
    for (const std::string &path : inputs_of(options.files)) {
        int64_t column = 0;
        bool converts = true;
        read_clusters(job, path, [&](const cluster &c) {
            if (is(c, job.signs.newline)) {
                column = 0, converts = true;
                return keep(job.to, c.wide);
            }
            if (!is(c, job.signs.tab)) {
                column = column_after(job.signs, c.wide[0], c.columns, column);
                if (options.initial && !is(c, job.signs.blank)) converts = false;
                return keep(job.to, c.wide);
            }
            const int64_t stop = next_stop(stops, column), count = stop < 0 ? 1 : stop - column;
            column += count;
            if (!converts) return keep(job.to, c.wide);
            keep(job.to, uint64_t(count), job.signs.blank);
        });
    }
    finish_layout(job);
    return done;
}

// ---- unexpand ----

namespace {
struct unexpander {
    layout_job &job;
    const tab_stops &stops;
    bool all;
    bool converts = true;
    int64_t column = 0;
    // Blanks not written yet: where they begin, and how many they are.
    int64_t from = 0;
    uint64_t blanks = 0;
    bool tab_only = false; // the only one is a tab
};
} // namespace

static void write_blanks(unexpander &u) {
    if (u.blanks == 0) return;
    const bool single = u.blanks == 1 && !u.tab_only; // as good as a tab, and no longer
    for (int64_t stop; !single && (stop = next_stop(u.stops, u.from)) > 0 && stop <= u.column;) {
        keep(u.job.to, 1, u.job.signs.tab);
        u.from = stop;
    }
    keep(u.job.to, uint64_t(u.column - u.from), u.job.signs.blank);
    u.blanks = 0;
}

static void unexpand_cluster(unexpander &u, const cluster &c) {
    const bool tab = is(c, u.job.signs.tab);
    const bool blank = c.wide.size() == 1 && (tab || is(c, u.job.signs.blank));
    const int64_t stop = next_stop(u.stops, u.column);
    if (blank && u.converts && stop < 0) write_blanks(u), u.converts = false;
    if (blank && u.converts) {
        if (u.blanks++ == 0) u.from = u.column;
        u.tab_only = tab;
        u.column = tab ? stop : u.column + 1;
        return;
    }
    write_blanks(u);
    keep(u.job.to, c.wide);
    if (tab)
        u.column = stop < 0 ? u.column + 1 : stop;
    else
        u.column = column_after(u.job.signs, c.wide[0], c.columns, u.column);
    if (!u.all && !blank) u.converts = false;
    if (is(c, u.job.signs.newline)) u.column = 0, u.converts = true;
}

int run_unexpand(const common_options &common, const text_options &options) {
    layout_job job;
    const tab_stops stops = stops_of(options.tabs);
    const bool all = options.all || (!options.tabs.empty() && !options.initial);
    open_layout(job, common, options);
    for (const std::string &path : inputs_of(options.files)) {
        unexpander u{job, stops, all};
        read_clusters(job, path, [&](const cluster &c) { unexpand_cluster(u, c); });
        write_blanks(u);
    }
    finish_layout(job);
    return done;
}

} // namespace kovacli
