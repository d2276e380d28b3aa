// A format and a text from anywhere, divided by a newline: reading and writing end, bytes are read
// as wide characters are, the measured length suffices, and what was written and read back says the
// same again the next time, where a blank or sign divides its directives.
#include "fuzz_host.h"
#include "number/number_records.h"
#include "time/kovatmlib.h"
#include "time/time_records.h"

#include <string.h>

static const ko_mchar_t *mb(const std::string &text) { return ::mb(text.c_str()); }

// Eras of one name, digits of several characters and formats that contain themselves.
static const times sample = {
    .formats = "%a %x %X|%d.%m.%Y|%T|am||%I:%M:%S %p",
    .eras = "+:2:1990/01/01:+*:Heisei:H:%EC%Ey|+:1:1989/01/08:1989/12/31:Heisei:H:%EC-first|"
            "+:2:1927/01/01:1989/01/07:Showa:S:%EC%Ey|-:1:1926/12/24:-*:Before:%Ey years %EC",
    .era_formats = "%EY %OD|%OT%Ec|%Ex %EX",
    .digits = "zero|one|two|3|4|5|6|7|8|9",
};

static std::string written(kovaloc *loc, const std::string &format, const ko_tm_t &tm) {
    ko_mchar_t out[4096];
    const int n = ko_mbsftime(loc, out, sizeof out, mb(format), &tm);
    const int most = ko_mbsfmtexpand(loc, 1, mb(format));
    check(n <= 0 || most >= n, "the measured length suffices");
    return n > 0 ? std::string(reinterpret_cast<const char *>(out), size_t(n)) : "";
}

static bool read_whole(kovaloc *loc, const std::string &format, const std::string &text,
                       ko_tm_t *tm) {
    const ko_mchar_t *end = ko_mbsptime(loc, mb(text), mb(format), tm, 'R');
    return end && !*end;
}

// Whether what stands between the directives cannot be taken for a part of what they write.
static bool is_divided(const std::string &format) {
    for (size_t i = 0; i < format.size(); i++) {
        const unsigned char c = static_cast<unsigned char>(format[i]);
        const bool letter = (c | 32u) - 'a' < 26;
        if (c - '0' < 10u || (letter && (!i || !strchr("%EOi", format[i - 1])))) return false;
    }
    return true;
}

// With a terminator.
static std::vector<ko_wchar_t> widened(const std::string &text) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(text.c_str());
    return {bytes, bytes + text.size() + 1};
}

static void check_twins(kovaloc *loc, const std::string &format, const std::string &text) {
    const auto wide_format = widened(format), wide_text = widened(text);
    ko_tm_t a, b;
    memset(&a, 0, sizeof a); // with what lies between the fields
    memset(&b, 0, sizeof b);
    *ko_ext_errno(loc) = 0;
    const ko_mchar_t *end = ko_mbsptime(loc, mb(text), mb(format), &a, 'C');
    const int error = *ko_ext_errno(loc);
    *ko_ext_errno(loc) = 0;
    const ko_wchar_t *wide_end = ko_wcsptime(loc, wide_text.data(), wide_format.data(), &b, 'C');
    check(*ko_ext_errno(loc) == error && !end == !wide_end, "bytes fail as wide characters do");
    check(!end || end - mb(text) == wide_end - wide_text.data(), "both end at the same place");
    check(!memcmp(&a, &b, sizeof a), "both give the same time");
    check(!end == !!error, "a failure has a number");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const loaded_locale times(with_times(with_conventions({}), sample));
    kovaloc *const loc = record(times.handle);
    const long before = memory.live;
    ko_set_current_time(0, "", 15, 6, 2024);
    const std::string all(reinterpret_cast<const char *>(data), size);
    const size_t line = all.find('\n');
    const std::string format = all.substr(0, line);
    check_twins(loc, format, line == all.npos ? "" : all.substr(line + 1));
    std::mt19937 random(unsigned(std::hash<std::string>()(all)));
    ko_tm_t tm = random_time(random);
    const std::string first = written(loc, format, tm);
    if (is_divided(format) && !first.empty() && read_whole(loc, format, first, &tm)) {
        const std::string second = written(loc, format, tm);
        if (!second.empty() && read_whole(loc, format, second, &tm))
            check(written(loc, format, tm) == second, "what was read says the same again");
    }
    check(memory.live == before, "nothing is left");
    return 0;
}
