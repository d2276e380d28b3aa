// A format and a text from anywhere, divided by a newline, after the locale (a byte): reading and
// writing end, bytes are read and written as wide characters are, the quick ways do what the engine
// does, the measured length suffices, and what was written and read back says the same again the
// next time, where a blank or sign divides its directives.
#include "fuzz_host.h"
#include "number/number_records.h"
#include "time/kovatmlib.h"
#include "time/time_records.h"

// Eras of one name, digits of several characters and formats that contain themselves.
static const times sample = {
    .formats = "%a %x %X|%d.%m.%Y|%T|am||%I:%M:%S %p",
    .eras = "+:2:1990/01/01:+*:Heisei:H:%EC%Ey|+:1:1989/01/08:1989/12/31:Heisei:H:%EC-first|"
            "+:2:1927/01/01:1989/01/07:Showa:S:%EC%Ey|-:1:1926/12/24:-*:Before:%Ey years %EC",
    .era_formats = "%EY %OD|%OT%Ec|%Ex %EX",
    .digits = "zero|one|two|3|4|5|6|7|8|9",
};

namespace {
using byte_string = std::vector<ko_mchar_t>; // with their terminators
using wide_string = std::vector<ko_wchar_t>;

// The small one, then those of the root.
struct records {
    loaded_locale small{with_times(with_conventions({}), sample)};
    root_locales root;
    kovaloc *operator[](size_t i) {
        i %= root.size() + 1;
        return record(i ? root[i - 1] : small.handle);
    }
};

// In the code set of a locale.
struct both_forms {
    wide_string wide;
    byte_string bytes;
    both_forms(kovaloc *loc, const std::string &text) {
        ko_mchar_t one[8];
        for (const char c : text.substr(0, 250)) {
            const auto byte = ko_mchar_t(c);
            const bool own = byte > 0x7F && ko_full_wctomb(loc, one, byte) > 0;
            wide.push_back(own ? byte : byte & 0x7F ? native(loc, byte & 0x7F) : ko_wchar_t{'x'});
        }
        wide.push_back(0);
        bytes.resize(4 * wide.size());
        check(ko_full_wcstombs(loc, bytes.data(), wide.data(), int(bytes.size())) >= 0,
              "a code set has the characters of formats");
    }
    both_forms(byte_string made, wide_string same)
        : wide(std::move(same)), bytes(std::move(made)) {}
};
} // namespace

static bool same_text(kovaloc *loc, const byte_string &bytes, const wide_string &wide) {
    byte_string narrow(4 * wide.size());
    const int n = ko_full_wcstombs(loc, narrow.data(), wide.data(), int(narrow.size()));
    return n >= 0 &&
           !memcmp(narrow.data(), bytes.data(), size_t(n + ko_mbsterm(loc, narrow.data() + n)));
}

constexpr size_t room = 2048;

// Nothing for a failure.
static std::optional<both_forms> written(kovaloc *loc, const both_forms &format,
                                         const ko_tm_t &tm) {
    byte_string out(room), again(room);
    wide_string wide(room);
    *ko_ext_errno(loc) = 0;
    const int n = ko_mbsftime(loc, out.data(), int(out.size()), format.bytes.data(), &tm);
    const int error = *ko_ext_errno(loc), most = ko_mbsfmtexpand(loc, 1, format.bytes.data());
    check(n <= 0 || most >= n, "the measured length suffices");
    {
        const engine_alone engine(loc);
        *ko_ext_errno(loc) = 0;
        check(ko_mbsftime(loc, again.data(), int(out.size()), format.bytes.data(), &tm) == n &&
                  *ko_ext_errno(loc) == error && (n <= 0 || again == out),
              "the quick way writes what the engine does");
    }
    const int chars = ko_wcsftime(loc, wide.data(), int(wide.size()), format.wide.data(), &tm);
    if (n <= 0) return {};
    check(chars > 0, "wide characters are written where bytes are");
    wide.resize(size_t(chars) + 1);
    check(same_text(loc, out, wide), "bytes are written as wide characters are");
    return both_forms(std::move(out), std::move(wide));
}

static bool read_whole(kovaloc *loc, const both_forms &format, const both_forms &text,
                       ko_tm_t *tm) {
    const ko_mchar_t *end = ko_mbsptime(loc, text.bytes.data(), format.bytes.data(), tm, 'R');
    return end && ko_ismbsterm(loc, end);
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

struct reading {
    ko_tm_t tm;
    int error;
    size_t taken; // characters, or npos for a failure
};
static bool same(const reading &a, const reading &b) {
    return !memcmp(&a.tm, &b.tm, sizeof a.tm) && a.error == b.error && a.taken == b.taken;
}

static reading read_bytes(kovaloc *loc, const both_forms &format, const both_forms &text) {
    reading r;
    memset(&r, 0, sizeof r); // with what lies between the fields
    *ko_ext_errno(loc) = 0;
    const ko_mchar_t *const from = text.bytes.data();
    const ko_mchar_t *end = ko_mbsptime(loc, from, format.bytes.data(), &r.tm, 'C');
    r.error = *ko_ext_errno(loc);
    r.taken = std::string::npos;
    if (!end) return r;
    r.taken = 0;
    for (const ko_mchar_t *at = from; at < end; at = ko_full_mbsnext(loc, at))
        ++r.taken;
    return r;
}

static void check_reading(kovaloc *loc, const both_forms &format, const both_forms &text) {
    reading wide;
    memset(&wide, 0, sizeof wide);
    const reading bytes = read_bytes(loc, format, text);
    check((bytes.taken == std::string::npos) == !!bytes.error, "a failure has a number");
    *ko_ext_errno(loc) = 0;
    const ko_wchar_t *end = ko_wcsptime(loc, text.wide.data(), format.wide.data(), &wide.tm, 'C');
    wide.error = *ko_ext_errno(loc);
    wide.taken = end ? size_t(end - text.wide.data()) : std::string::npos;
    check(same(bytes, wide), "bytes are read as wide characters are");
    const engine_alone engine(loc);
    check(same(read_bytes(loc, format, text), bytes), "the quick way reads what the engine does");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static records all;
    if (!size) return 0;
    kovaloc *const loc = all[data[0]];
    const long before = memory.live;
    ko_set_current_time(0, "", 15, 6, 2024);
    const std::string input(data + 1, data + size);
    const size_t line = input.find('\n');
    const std::string directives = input.substr(0, line);
    const both_forms format(loc, directives);
    check_reading(loc, format, {loc, line == input.npos ? "" : input.substr(line + 1)});
    std::mt19937 random(unsigned(std::hash<std::string>()(input)));
    ko_tm_t tm = random_time(random);
    if (const auto first = written(loc, format, tm)) {
        check_reading(loc, format, *first);
        if (is_divided(directives) && read_whole(loc, format, *first, &tm)) {
            const auto second = written(loc, format, tm);
            if (second && read_whole(loc, format, *second, &tm)) {
                const auto third = written(loc, format, tm);
                check(third && third->wide == second->wide, "what was read says the same again");
            }
        }
    }
    check(memory.live == before, "nothing is left");
    return 0;
}
