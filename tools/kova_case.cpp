// kova upper and kova lower: texts and files with every character's case partner.
#include <algorithm>
#include <cstdio>

#include "kova_cli.h"
#include "kova_io.h"
#include "kova_locale.h"
#include "kova_text.h"

namespace kovacli {

struct case_job {
    codec code;
    bool upper = true, replace = false;
    std::vector<ko_wchar_t> wide, mapped;
    std::string bytes;
    uint64_t left = 0; // bad characters left as they were
    std::string first_left;
};

// Maps wide[0, units) into mapped. The library's strings end at a null character.
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

static std::string place(const input &in, uint64_t line) {
    return in.name + ":" + std::to_string(line) + ": byte offset " + std::to_string(in.offset);
}

static void map_file(case_job &job, const std::string &path, output &out) {
    input in;
    open(in, path);
    uint64_t line = 1;
    while (in.at < in.fill || more(in)) {
        const unsigned char *text = in.block.data() + in.at;
        bad_character bad;
        job.wide.resize(in.fill - in.at);
        const size_t units = decode(job.code, text, in.fill - in.at, job.wide.data(), bad);
        line += uint64_t(std::count(job.wide.begin(), job.wide.begin() + std::ptrdiff_t(units),
                                    job.code.newline));
        write_mapped(job, units, out);
        take(in, bad.why == fault::none ? in.fill - in.at : bad.offset);
        if (bad.why == fault::none || (bad.why == fault::cut && more(in))) continue;
        if (!job.replace)
            throw failure(bad_text, place(in, line) + ": " + describe(job.code, bad) +
                                        hint(job.code, bad) + ", --replace leaves it as it is");
        if (job.left++ == 0) job.first_left = place(in, line);
        write(out, in.block.data() + in.at, bad.len);
        take(in, bad.len);
    }
}

int run_case(const common_options &common, const case_options &options) {
    locale_handle handle;
    case_job job;
    job.upper = options.upper;
    job.replace = options.replace;
    open_with_codec(common, options.locale, handle, job.code);
    output out;
    for (const std::string &text : options.texts)
        map_argument(job, text, out);
    for (const std::string &path : options.files)
        map_file(job, path, out);
    if (options.texts.empty() && options.files.empty()) map_file(job, "-", out);
    finish(out);
    if (job.left)
        std::fprintf(stderr, "kova: %llu bad character%s left as found, the first at %s\n",
                     static_cast<unsigned long long>(job.left), job.left == 1 ? "" : "s",
                     job.first_left.c_str());
    return done;
}

} // namespace kovacli
