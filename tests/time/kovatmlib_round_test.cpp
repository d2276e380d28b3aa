// Every compiled locale reads back what it writes of random times, and the quick way of reading
// reads what the engine does.
#include "chars/kovambwc.h"
#include "time/kovatmlib_quick.h"
#include "time/kovatree.h"

#include "time/time_records.h"

#include <limits.h>

// Whether a text that came from one time and is read over another one says the same again. So does
// that of a time which the format refuses, such as one outside the eras.
static bool comes_back(ko_lc_t loc, const ko_wchar_t *format, const ko_tm_t &tm, ko_tm_t read) {
    ko_wchar_t text[512], again[512] = {};
    *ko_ext_errno(loc) = 0;
    const int len = ko_wcsftime(loc, text, 512, format, &tm);
    if (len <= 0 && *ko_ext_errno(loc)) return true;
    const ko_wchar_t *end = ko_wcsptime(loc, text, format, &read, 'R');
    return end && !*end && ko_wcsftime(loc, again, 512, format, &read) == len &&
           !memcmp(text, again, sizeof *text * size_t(len));
}

// Some locales write what they cannot read: names of nothing, names that begin like others, numbers
// side by side.
TEST(CompiledLocales, ReadWhatTheyWrite) {
    const auto objects = compiled_objects();
    if (objects.empty()) GTEST_SKIP() << "no compiled data root";
    // Each holds enough for its text to come back over any time; those of the second row over one
    // of the same date.
    static const char any[] =
        "%Y-%m-%d %H:%M:%S.%F;%d|%m|%iY%iF;%e %B %Y;%h/%d %Y;%a, %Y %m %d %T;%Y.%m.%e %A;%I:%M %p;"
        "%X;%r %Y %m %d;%EC %Ey %m %d;%Eg %Ey/%m/%d;%EY %m %d;%OH:%OM:%OS;%OT %OR;%10Y/%3m/%03d;"
        "%-6Y|%-4m|%-4d|;%4Y%2m%2d%2H%2M%2S;%C|%y %m %d";
    static const char same_date[] =
        "%D %R;%j %u;%w%%%t%%%n%u;%x;%c;%Ex %m %d;%Ec %m %d;%Od %Om;%OD";
    std::map<std::string, std::string> lost; // locales, by the format
    const auto compare = [&](const compiled_locale &loc, const std::string &spelling, bool dated) {
        const auto format = in_code_set(loc, spelling);
        std::mt19937 random(5);
        for (int i = 0; i < seeded_times; i++) {
            const ko_tm_t tm = random_time(random);
            ko_tm_t base = random_time(random);
            if (dated)
                base.tm_year = tm.tm_year, base.tm_mon = tm.tm_mon, base.tm_mday = tm.tm_mday;
            if (comes_back(loc, format.data(), tm, base)) continue;
            lost[spelling] += " " + loc.name;
            break;
        }
    };
    for (const auto &path : objects) {
        const compiled_locale loc(path);
        for (const std::string &format : split(any, ';'))
            compare(loc, format, false);
        for (const std::string &format : split(same_date, ';'))
            compare(loc, format, true);
    }
    for (const auto &[format, names] : lost) {
        const auto count = size_t(std::count(names.begin(), names.end(), ' '));
        EXPECT_LT(count, objects.size() / 3) << format << " is not read back in" << names;
    }
}

// ---- The quick way ------------------------------------------------------------------------------

// Directives that are ones and others, and what may stand between them: mostly those that the quick
// ways know.
static std::string random_format(std::mt19937 &random) {
    static const auto known =
        split("%Y|%m|%d|%H|%M|%S|%A|%B|%a|%b|%h|%y|%C|%g|%j|%e|%I|%u|%w|%D|%T|%R|%p|"
              "%n|%x|%%| |  |-|:|, |x|1|%Y-%m-%d|%H:%M|%A, %d. %B %Y");
    static const auto others = split("%c|%X|%r|%F|%F3|%iF|%iY|%EC|%Ey|%EY|%Ec|%Ex|%EX|%OC|%Od|%OH|"
                                     "%Oj|%OD|%9A|%-9b|%.2A|%03d|%.3m|%4e|%7F|%09Oj|%-8Ow|%9EY|"
                                     "%7.1B|%E|%O|%i|%5|%.|%q|%t| :/dT");
    const auto below = [&random](size_t n) { return random() % n; };
    const bool odd = below(3) == 0;
    std::string format;
    for (size_t pieces = below(12) ? below(8) : below(40); pieces != 0; --pieces) {
        const auto &list = odd && below(2) ? others : known;
        format += list[below(list.size())];
    }
    return format;
}

// Cuts a text, adds a blank or changes a unit: to anything, or to the other case of ASCII letters.
template <class Unit> static void damage(std::vector<Unit> &text, std::mt19937 &random) {
    static const char usual[] = "0123456789 :-/.,+%";
    const size_t at = random() % text.size();
    const auto how = random() % 8;
    if (how == 0) text[at] = 0;
    if (how == 1) text[at] = Unit(random());
    if (how == 2) text[at] = Unit(usual[random() % (sizeof usual - 1)]);
    if (how == 3) text[at] ^= 0x20;
    if (how == 4) text.insert(text.begin() + ptrdiff_t(at), ' ');
    text.insert(text.end(), 4, 0);
}

// What a text and its format are in both forms.
struct sample {
    std::vector<ko_wchar_t> format, text;
    std::vector<ko_mchar_t> byte_format, byte_text;
    ko_tm_t tm;
    int room;
    bool twins; // the formats are the same
};

template <class Unit> static std::string as_bytes(const Unit *of, size_t count) {
    return {reinterpret_cast<const char *>(of), count * sizeof *of};
}

// Without what fills the record up at its end.
static std::string as_bytes(const ko_tm_t &tm) {
    constexpr size_t size = offsetof(ko_tm_t, tm_gmtoff) + sizeof tm.tm_gmtoff;
    return {reinterpret_cast<const char *>(&tm), size};
}

// What both forms write and read, and what is then in their error word.
static std::string outcome(ko_lc_t loc, const sample &s) {
    std::string all;
    int &error = *ko_ext_errno(loc) = 0;
    const auto add = [&](ptrdiff_t result, const std::string &what) {
        all += std::to_string(result) + " error " + std::to_string(std::exchange(error, 0)) + what;
    };
    ko_wchar_t wide[400];
    ko_mchar_t narrow[400];
    const int n = ko_wcsftime(loc, wide, s.room, s.format.data(), &s.tm);
    add(n, as_bytes(wide, n > 0 ? unsigned(n) : 0));
    const int m = ko_mbsftime(loc, narrow, s.room, s.byte_format.data(), &s.tm);
    add(m, as_bytes(narrow, m > 0 ? unsigned(m) : 0));
    if (s.twins && n > 0 && m > 0) {
        ko_mchar_t converted[800];
        EXPECT_EQ(ko_full_wcstombs(loc, converted, wide, 800), m);
        EXPECT_EQ(memcmp(converted, narrow, unsigned(m)), 0);
    }
    ko_tm_t tm;
    memset(&tm, 1, sizeof tm);
    const ko_wchar_t *const end = ko_wcsptime(loc, s.text.data(), s.format.data(), &tm, 'C');
    add(end ? end - s.text.data() : -1, as_bytes(tm));
    memset(&tm, 1, sizeof tm);
    const ko_mchar_t *const byte_end =
        ko_mbsptime(loc, s.byte_text.data(), s.byte_format.data(), &tm, 'C');
    add(byte_end ? byte_end - s.byte_text.data() : -1, as_bytes(tm));
    return all;
}

// In the bytes of the code set, with what comes after them.
static std::vector<ko_mchar_t> narrow(ko_lc_t loc, const std::vector<ko_wchar_t> &wide,
                                      const std::string &tail) {
    std::vector<ko_mchar_t> bytes(4 * wide.size());
    const int n = ko_full_wcstombs(loc, bytes.data(), wide.data(), int(bytes.size()));
    bytes.resize(size_t(std::max(n, 0)));
    bytes.insert(bytes.end(), tail.begin(), tail.end());
    bytes.insert(bytes.end(), 4, 0);
    return bytes;
}

static sample random_sample(ko_lc_t loc, std::mt19937 &random) {
    static constexpr int ko_tm_t::*fields[] = {
        &ko_tm_t::tm_sec, &ko_tm_t::tm_min,  &ko_tm_t::tm_hour, &ko_tm_t::tm_mday,
        &ko_tm_t::tm_mon, &ko_tm_t::tm_year, &ko_tm_t::tm_wday, &ko_tm_t::tm_yday};
    static constexpr int hostile[] = {INT_MIN, -1901, -1, 12, 61, 100, 8100, INT_MAX};
    const auto below = [&random](unsigned n) { return random() % n; };
    sample s = {.format = in_code_set(loc, random_format(random)), .tm = random_time(random)};
    const ko_wchar_t *const name = record(loc)->ltime_info.w_day[below(7)];
    if (name && *name && !below(4)) s.format.insert(s.format.begin(), *name);
    const bool odd = !below(20);
    if (odd) s.format[0] = ko_wchar_t(below(0xFFFF));
    s.format.push_back(0);
    const std::string tail(below(4) ? 0 : 1, char(random()));
    s.byte_format = narrow(loc, s.format, tail);
    s.twins = tail.empty() && !odd;
    s.text.resize(512);
    const int written = ko_wcsftime(loc, s.text.data(), 512, s.format.data(), &s.tm);
    s.text.resize(size_t(std::max(written, 0)) + 1);
    s.byte_text = narrow(loc, s.text, tail);
    damage(s.text, random);
    damage(s.byte_text, random);
    s.room = below(2) ? 400 : std::min(400, std::max(written, 0) + int(below(3)));
    if (!below(4)) s.tm.*fields[below(8)] = hostile[below(8)];
    return s;
}

// Whether the quick way reads the text.
static bool compare_ways(ko_lc_t loc, const sample &s) {
    time_info ti = {};
    const bool taken = quick_parse(record(loc), s.text.data(), s.format.data(), &ti) &&
                       quick_parse(record(loc), s.byte_text.data(), s.byte_format.data(), &ti);
    const std::string quick = outcome(loc, s);
    const engine_alone slow(loc);
    EXPECT_EQ(quick, outcome(loc, s));
    return taken;
}

TEST(CompiledLocales, WriteAndReadTheQuickWayAsTheEngineDoes) {
    times odd; // names that are absent, many and long, formats within formats
    odd.day = "||c|" + std::string(40, 'd') + "|" + std::string(32, 'e') + "|f|g";
    odd.abmon += "|n|o", odd.formats = "%x%x|%X%X|%r%p%p|||%r%a";
    times odd_pairs = odd;
    odd_pairs.day = "\x81\x40||\x81\x41\x81\x42|" + std::string(40, 'd') + "||f\x81\x40|g";
    const loaded_locale single(with_times(single_byte_object(), odd)),
        narrow(with_times(double_byte_object(false), odd_pairs)),
        wide(with_times(double_byte_object(true), times(), true));
    std::mt19937 random(11);
    long taken = 0, rows = 0;
    const auto compare = [&](ko_lc_t loc, const std::string &name, int samples) {
        for (int i = 0; i < samples && !HasFailure(); ++i, ++rows) {
            SCOPED_TRACE(name + " " + std::to_string(i));
            taken += compare_ways(loc, random_sample(loc, random));
        }
    };
    for (const auto *loc : {&single, &narrow, &wide})
        compare(*loc, "of the test", seeded_times);
    for (const auto &path : compiled_objects()) {
        const compiled_locale loc(path);
        compare(loc, loc.name, 2 * seeded_times);
    }
    EXPECT_GT(taken, rows / 12);
}
