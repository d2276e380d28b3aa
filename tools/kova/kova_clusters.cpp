#include "kova/kova_clusters.h"

#include "kova/kova_names.h"

namespace kovacli {

layout_signs signs_of(const codec &code) {
    const wide_text wide = native(code, " \t\r\b");
    return {code.newline, wide[0], wide[1], wide[2], wide[3]};
}

void open_layout(layout_job &job, const common_options &common, const text_options &options) {
    open_job(job.text, common, options.locale, job.handle,
             "writes U+FFFD for it, or ? where the code set lacks that");
    job.text.bad.replace = options.replace;
    open(job.out, options.out);
    job.signs = signs_of(job.text.code);
    job.to.job = &job.text;
    job.to.out = &job.out;
}

void finish_layout(layout_job &job) {
    write_kept(job.to);
    finish(job.out);
    tell_bad(job.text.bad, "replaced");
}

static constexpr uint32_t zero_width_space = 0x200B, joiner = 0x200D;

bool is_blank(const layout_job &job, const cluster &c) {
    return (c.wide.size() == 1 && job.text.space[c.wide[0]] && !is(c, job.signs.newline) &&
            !is(c, job.signs.carriage_return)) ||
           c.last == zero_width_space;
}

int64_t column_after(const layout_signs &signs, ko_wchar_t first, int64_t columns, int64_t column) {
    if (first == signs.carriage_return) return 0;
    if (first == signs.backspace) return std::max<int64_t>(column - 1, 0);
    return column + columns;
}

static bool is_region(uint32_t point) { return point >= 0x1F1E6 && point <= 0x1F1FF; }
static bool is_skin(uint32_t point) { return point >= 0x1F3FB && point <= 0x1F3FF; }

// Is a character of "unicode" shown as one with what stands before it, although it has columns?
// Two letters of a region make a flag.
static bool joins(const cluster &last, uint32_t point) {
    return last.last == joiner || is_skin(point) ||
           (is_region(point) && is_region(last.last) && last.first == last.last &&
            last.wide.size() == 2);
}

bool begins_cluster(const text_job &job, const cluster &last, const ko_wchar_t *wide, size_t units,
                    cluster &next) {
    const int64_t columns = columns_of(job, wide, units);
    constexpr size_t longest = 1024;
    const uint32_t point = job.code.mapped ? point_of(job.code, wide, units) : no_code_point;
    next.columns = columns < 0 ? 1 : columns;
    next.last = point;
    const bool together =
        last.joinable && columns >= 0 && (columns == 0 || (job.code.utf16 && joins(last, point)));
    if (together && last.wide.size() < longest) return false;
    next.first = point;
    next.joinable = columns >= 0;
    next.continues = together;
    return true;
}

void learn_end(layout_job &job, const ko_wchar_t *wide, size_t count) {
    const ko_wchar_t *const at = std::find(wide, wide + count, job.signs.newline);
    if (at == wide + count) return;
    job.end.known = true;
    if (at > wide && at[-1] == job.signs.carriage_return)
        job.end.wide.insert(job.end.wide.begin(), job.signs.carriage_return);
}

} // namespace kovacli
