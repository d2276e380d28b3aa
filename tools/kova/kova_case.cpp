// kova upper and kova lower: texts and files with every character mapped to its case partner.
#include <algorithm>

#include "kova/kova_char.h"
#include "kova/kova_locale.h"
#include "kova/kova_read.h"

namespace kovacli {

namespace {
struct case_job {
    codec code;
    bool upper = true;
    std::vector<ko_wchar_t> wide, mapped;
    std::string bytes;
    bad_count bad;
};
} // namespace

// Maps wide[0, units) into mapped, part by part, since the library's strings end at a null
// character.
static void map_units(case_job &job, size_t units) {
    job.wide.resize(units + 1);
    job.wide[units] = 0;
    job.mapped.resize(units + 1);
    const auto map_string = job.upper ? ko_towcsupper : ko_towcslower;
    const auto map_one = job.upper ? im_towupper : im_towlower;
    for (size_t at = 0; at <= units; ++at) {
        const auto from = job.wide.begin() + std::ptrdiff_t(at);
        const size_t end =
            size_t(std::find(from, job.wide.end(), ko_wchar_t{0}) - job.wide.begin());
        if (map_string(job.code.loc, &job.mapped[at], &job.wide[at]) != 0) {
            for (size_t i = at; i < end; ++i)
                job.mapped[i] = map_one(job.code.loc, job.wide[i]);
        }
        job.mapped[end] = 0;
        at = end;
    }
    map_pairs(job.code, job.mapped.data(), units, job.upper);
}

static void write_mapped(case_job &job, size_t units, output &out) {
    map_units(job, units);
    job.bytes.clear();
    encode(job.code, job.mapped.data(), units, job.bytes);
    write(out, job.bytes);
}

static void map_argument(case_job &job, const std::string &text, output &out) {
    job.wide = decode_argument(job.code, text, "TEXT");
    job.wide.push_back(job.code.newline);
    write_mapped(job, job.wide.size(), out);
}

static void map_file(case_job &job, const std::string &path, output &out) {
    read_text(
        job.code, path, job.wide, job.bad, [&](size_t units) { write_mapped(job, units, out); },
        [&](const unsigned char *bytes, size_t count) { write(out, bytes, count); });
}

int run_case(const common_options &common, const case_options &options) {
    locale_handle handle;
    case_job job;
    job.upper = options.upper;
    job.bad = {.replace = options.replace, .with_replace = "leaves it as it is"};
    open_with_codec(common, options.locale, handle, job.code);
    output out;
    for (const std::string &text : options.texts)
        map_argument(job, text, out);
    for (const std::string &path : options.files)
        map_file(job, path, out);
    if (options.texts.empty() && options.files.empty()) map_file(job, "-", out);
    finish(out);
    tell_bad(job.bad, "left unchanged");
    return done;
}

} // namespace kovacli
