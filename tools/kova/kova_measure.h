// What the commands that measure text share: the columns of each character of a locale's code set.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "kova/kova_char.h"
#include "kova/kova_locale.h"
#include "kova/kova_read.h"

namespace kovacli {

struct text_job {
    codec code;
    std::array<int8_t, 65536> columns{}; // by wide character, -1 for none
    std::array<bool, 65536> space{};
    ko_wchar_t tab = '\t';
    std::vector<ko_wchar_t> wide;
    bad_count bad;
};

// Opens a command's locale for measuring; with_replace says what its --replace does, "" if it has
// none.
void open_job(text_job &job, const common_options &common, const std::string &locale,
              locale_handle &handle, const char *with_replace);

inline constexpr int64_t usual_tab_stop = 8;

// Columns of a character other than a tab; -1 for one that has none.
inline int64_t columns_of(const text_job &job, const ko_wchar_t *wide, size_t units) {
    return units == 2 ? columns_of(job.code, wide, units) : job.columns[wide[0]];
}

// Columns of a character that stands at a column of its line; -1 for one that has none.
inline int64_t columns_at(const text_job &job, const ko_wchar_t *wide, size_t units,
                          int64_t column) {
    if (wide[0] == job.tab) return usual_tab_stop - column % usual_tab_stop;
    return columns_of(job, wide, units);
}

// Passes on a file's characters, and the bytes of each bad one. Returns the bytes in the file.
template <class Units, class Bad>
uint64_t read_file(text_job &job, const std::string &path, Units take_units, Bad take_bad) {
    return read_text(
        job.code, path, job.wide, job.bad,
        [&](size_t units) { take_units(job.wide.data(), units); }, take_bad);
}

// Text that is written in large pieces. Pieces end between characters.
struct kept_text {
    text_job *job;
    output *out;
    std::vector<ko_wchar_t> wide;
    std::string bytes;
};
void write_kept(kept_text &to);
inline void write_if_long(kept_text &to) {
    if (to.wide.size() >= size_t{1} << 16) write_kept(to);
}
inline void keep(kept_text &to, const std::vector<ko_wchar_t> &wide) {
    to.wide.insert(to.wide.end(), wide.begin(), wide.end());
    write_if_long(to);
}
void keep(kept_text &to, uint64_t count, ko_wchar_t wide);

} // namespace kovacli
