// What a locale writes, read back as kova parse-date reads: the same date, or a refusal.
#include "kova/kova_locale.h"
#include "kova/kova_reading.h"

#include "tools/command_run.h"

#include <regex>

using namespace kovacli;

// A format, and whether it holds a whole date.
static const struct {
    const char *format;
    bool date;
} formats[] = {
    {"%c",                   true },
    {"%x",                   true },
    {"%X",                   false},
    {"%r",                   false},
    {"%Ec",                  true },
    {"%Ex",                  true },
    {"%EX",                  false},
    {"%A",                   false},
    {"%a",                   false},
    {"%B",                   false},
    {"%b",                   false},
    {"%EY",                  false},
    {"%Ey",                  false},
    {"%EC",                  false},
    {"%C",                   false},
    {"%y",                   false},
    {"%Od",                  false},
    {"%OH:%OM:%OS",          false},
    {"%OC%Oy %Om %Oe",       true },
    {"%p %I",                false},
    {"%I:%M %p",             false},
    {"%H%M%S",               false},
    {"%Y%m%d",               true },
    {"%C%y%j",               true },
    {"%D %T",                true },
    {"%A, %e. %B %Y",        true },
    {"%a %d %b %Y %H:%M:%S", true },
    {"%B %d %Y %I:%M:%S %p", true },
    {"%EC %Ey %m %d",        true },
    {"%j %Y",                true },
    {"%u %d.%m.%Y %R%iF",    true },
};

static const char *const times[] = {
    "2026-11-22 00:00:00", "2026-02-28 12:00:00", "2024-02-29 23:59:59", "2026-01-01 00:30:05",
    "2026-12-31 13:07:09", "1999-09-09 09:09:09", "1989-01-08 01:02:03", "1989-01-07 12:34:56",
    "2019-05-01 11:11:11", "2031-10-10 10:10:10", "2008-08-08 20:08:08", "1912-06-30 06:05:04",
    "2024-02-20 07:45:00", "2024-03-20 18:20:30", "2024-10-01 22:22:22",
};

static ko_tm_t time_from(const char *text) {
    int y = 0, mon = 0, d = 0, h = 0, min = 0, s = 0;
    sscanf(text, "%d-%d-%d %d:%d:%d", &y, &mon, &d, &h, &min, &s);
    ko_tm_t tm = tm_of(std::chrono::year(y) / mon / d);
    tm.tm_hour = h;
    tm.tm_min = min;
    tm.tm_sec = s;
    return tm;
}

namespace {
enum verdict { read_back, refused, not_written, wrong, verdicts };

struct open_one {
    locale_handle handle;
    codec code;
    time_names names;
};

struct trip {
    std::string text, why;
};
} // namespace

static bool write_time(const codec &code, const wide_text &format, const ko_tm_t &tm,
                       wide_text &out) {
    return written_text(
        code.loc,
        [&](ko_wchar_t *room, int most) {
            const int size = ko_wcsftime(code.loc, room, most, format.data(), &tm);
            return *ko_ext_errno(code.loc) ? -1 : size;
        },
        out);
}

static verdict round_trip(const open_one &one, const char *format, bool whole, const ko_tm_t &tm,
                          trip &told) {
    const format_text split = split_format(one.code, native(one.code, format), time_grammar());
    wide_text text, again;
    if (!write_time(one.code, split.wide, tm, text)) return not_written;
    told.text = outer_text(one.code, text);
    const date_setting setting{one.code, one.names, std::chrono::year(2026) / 11 / 22, 'C'};
    wide_text ended = text;
    ended.push_back(0);
    try {
        const read_date back = read_whole_date(setting, split, ended);
        told.why = day_text(day_of(back.tm)) + " " + std::to_string(back.tm.tm_hour) + ":" +
                   std::to_string(back.tm.tm_min);
        if (!write_time(one.code, split.wide, back.tm, again) || again != text) return wrong;
        const bool century =
            std::any_of(back.told.begin(), back.told.end(), [](const std::string &line) {
                return line.find(" is taken as ") != line.npos;
            });
        if (whole && !century && day_of(back.tm) != day_of(tm)) return wrong;
    } catch (const failure &e) {
        told.why = e.what();
        return refused;
    }
    return read_back;
}

TEST(KovaDates, ReadsBackWhatEachLocaleWrites) {
    if (!std::filesystem::is_directory(env("KOVA_TEST_ROOT") + "/kova/lc11")) GTEST_SKIP();
    common_options common{env("KOVA_TEST_ROOT"), text_form::utf8};
    const data_place place = find_data(common);
    const bool all = !env("KOVA_DATES_ALL").empty(); // also print refusals
#ifdef KOVA_SANITIZED
    const size_t step = 4; // through the times
#else
    const size_t step = 1;
#endif
    int count[verdicts] = {};
    for (const object_file &object : list_objects(place)) {
        open_one one;
        const data_place data =
            open_with_codec(common, specification(object), one.handle, one.code);
        if (!one.code.mapped) add_mapping(one.handle, data, one.code);
        one.names = names_of(one.code, one.handle.object);
        for (const auto &row : formats) {
            for (size_t i = 0; i < std::size(times); i += step) {
                const char *const time = times[i];
                trip told;
                const verdict v = round_trip(one, row.format, row.date, time_from(time), told);
                ++count[v];
                const std::string line = one.handle.name + "\t" + row.format + "\t" + time + "\t" +
                                         told.text + "\t" + told.why;
                if (v == wrong) ADD_FAILURE() << line;
                if (all && v != read_back) printf("%d\t%s\n", v, line.c_str());
            }
        }
    }
    printf("%d read back, %d refused, %d not written, %d wrong\n", count[read_back], count[refused],
           count[not_written], count[wrong]);
}

// What stands between backquotes in a cell, one after the other; in tables "|" has a backslash.
static std::vector<std::string> quoted_parts(const std::string &cell) {
    std::vector<std::string> parts;
    for (size_t at = 0; (at = cell.find('`', at)) != cell.npos;) {
        const size_t end = cell.find('`', ++at);
        parts.push_back(std::regex_replace(cell.substr(at, end - at), std::regex("\\\\\\|"), "|"));
        at = end + 1;
    }
    return parts;
}

struct KovaDateTable : data_test {
    // Runs a command, which must give a line, or anything if that is empty.
    void gives(const std::string &line, const std::string &want) {
        const outcome got = shell(line);
        EXPECT_EQ(got.status, 0) << line << "\n" << got.err;
        EXPECT_FALSE(got.out.empty()) << line;
        if (want.empty()) return;
        EXPECT_NE(("\n" + got.out).find("\n" + want + "\n"), std::string::npos)
            << line << "\n"
            << got.out << got.err;
    }
};

TEST_F(KovaDateTable, RowsOfTheDocumentationGiveWhatTheySay) {
    environment["TZ"] = "UTC";
    const bool zones = std::filesystem::exists("/usr/share/zoneinfo/Europe/Paris");
    const bool gnu = shell("date --version").out.find("GNU coreutils") != std::string::npos;
    std::ifstream in(env("KOVA_SOURCE_DIR") + "/docs/kova.md");
    int rows = 0, compared = 0;
    bool inside = false;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("#")) inside = line.starts_with("### Beside ");
        const size_t first = line.find(" | "), second = line.find(" | ", first + 1);
        if (!inside || !line.starts_with("| `") || second == line.npos) continue;
        if (!zones && line.find("Europe/Paris") != line.npos) continue;
        const std::string left = line.substr(0, first), right = line.substr(second);
        const std::string there = quoted_parts(left)[0];
        const std::vector<std::string> results = quoted_parts(right);
        gives(quoted_parts(line.substr(first, second - first))[0],
              results.empty() ? "" : results[0]);
        ++rows;
        const bool whole =
            left.find('`', 3) + 1 == left.size() && right.find("an error") == right.npos;
        if (!gnu || !whole || results.empty() || there.starts_with("cal ")) continue;
        environment["LC_ALL"] = "C";
        if (shell(there).status == 127) continue; // column and cal are not everywhere
        gives(there, results.back());
        environment["LC_ALL"] = "C.UTF-8";
        ++compared;
    }
    EXPECT_GT(rows, 66);
    EXPECT_TRUE(!gnu || compared > 45) << compared;
}
