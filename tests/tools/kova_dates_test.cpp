// What a locale writes, read back as kova parse-date reads: the same date, or a refusal.
#include "kova/kova_locale.h"
#include "kova/kova_reading.h"

#include "support/rows.h"
#include "tools/command_run.h"

#include <nlohmann/json.hpp>

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

// Each is what a person may type, and what the answer has to contain: the time, or after "!" the
// reason why there is none. "=" asks for the day of the row before.
TEST_F(KovaDateTable, MomentsAreReadAsPeopleTypeThem) {
    static const char moments[] =
        "0000-01-01>0000-01-01 00:00:00|10000-01-01>!is not a date|@-99999999999999>!is not a date|"
        "@12.5>1970-01-01 00:00:12,5|@-12.5>1969-12-31 23:59:47,5|@x>!is not a date|"
        "2026-13-01>!there is no month 13|2026-02-30>!February 2026 has 28 days|"
        "20261301>!there is no month 13|2026-1-2>!is not a date|2026/3/4>!is not a date|"
        "2026-W00>!no day 1 of a week 0|2026-W60>!no day 1 of a week 60|"
        "2026-W10-0>!no day 0 of a week 10|2026-W10-8>!no day 8 of a week 10|"
        "2026-W10>2026-03-02|2026W103>2026-03-04|2026-W53>2026-12-28|2026-000>!2026 has 365 days|"
        "2026-366>!2026 has 365 days|2026001>2026-01-01|20260102>2026-01-02|202613>!is not a date|"
        "12:60>!is not a date|25:00>!is not a date|2026-01-02 24:00>2026-01-03 00:00:00|"
        "24:00:01>!is not a date|24:00:00.5>!is not a date|23:59:60>23:59:60|"
        "12:30:60>!is not a date|13pm>!is not a date|0am>!is not a date|12am>00:00:00|"
        "12 pm>12:00:00|2026-01-02 3pm>2026-01-02 15:00:00|2026-01-02T1230>2026-01-02 12:30:00|"
        "2026-01-02T12:30z>2026-01-02 12:30:00|2026-01-02 12:30 utc>2026-01-02 12:30:00|"
        "2026-01-02 12:30 +0530>2026-01-02 07:00:00|2026-01-02 12:30 +24:00>!is not a date|"
        "2026-01-02 12:30 +05:60>!is not a date|2026-01-02 12:30 +x>!is not a date|"
        "2026-01-02 12:30:15,5>12:30:15,5|12:00 13:00>!is not a date|1st of May 2026>2026-05-01|"
        "2nd May 2026>2026-05-02|3rd May 2026>2026-05-03|4th may 2026>2026-05-04|"
        "0 May>!is not a date|12: May>!is not a date|May>!a month without a day|"
        "32 May 2026>!May 2026 has 31 days|31 April 2026>!April 2026 has 30 days|"
        "next month may>!a month without a day|next month>-|+1 month>=|last month>-|-1 month>=|"
        "last day of this month>-|last day of month>=|first Monday of next month>Monday|"
        "last friday of last month>Friday|this month>!is not a date|next year>-|+12 months>=|"
        "second friday of march 2026>2026-03-13|third day of march 2026>2026-03-03|"
        "last day of February 2028>2028-02-29|first of may>!is not a date|"
        "first monday of>!is not a date|fifth friday of february 2026>!no fifth such day|"
        "2026-01-02 friday>2026-01-02|2026-01-03 friday>!is a saturday|friday friday>Friday|"
        "friday monday>!two days of the week|last Friday>Friday|next sat>Saturday|"
        "2026-01-02 2026-01-03>!two days, 2026-01-02 and 2026-01-03|now now>-|now>=|"
        "@0 @0>!is not a date|@0 2026-01-01>!beside what stands for both|@0 now>!|"
        "0 days>-|today>=|2 hours ago>:|1 fortnight>!is not a date|+1>!is not a date|"
        "12345678901 days>!is not a date|2026-01-31 +1 month>2026-0|2026-01-02 -1 day>2026-01-01|"
        "9999-12-31 1 day>!outside the years|0000-01-01 1 day ago>!outside the years";
    environment["TZ"] = "UTC";
    std::string all;
    for (const std::string &row : split(moments))
        all += row.substr(0, row.rfind('>')) + "\n";
    const outcome got = kova("date POSIX '%Y-%m-%d %T,%F %A' -f - --json", all);
    EXPECT_EQ(got.status, 1);
    std::istringstream lines(got.out);
    std::string before, line;
    for (const std::string &row : split(moments)) {
        SCOPED_TRACE(row);
        ASSERT_TRUE(std::getline(lines, line));
        const auto json = nlohmann::json::parse(line);
        std::string want = row.substr(row.rfind('>') + 1);
        const bool refused = want[0] == '!';
        ASSERT_EQ(json.contains("error"), refused) << line;
        const std::string answer = json[refused ? "error" : "result"];
        if (refused) want.erase(0, 1);
        if (want == "=") want = before;
        before = answer.substr(0, 10);
        EXPECT_NE(answer.find(want), answer.npos) << answer;
    }
}

// What TZ is, and the time of the moment 1780000000, 20:26 in UTC; "!" where it names no zone.
TEST_F(KovaDateTable, ZonesOfTheEnvironmentAreRulesOrNames) {
    for (const std::string row : {"<+03>-3>23:26 +03",
                                  "<-03>3<-02>,M10.1.0/0,M3.3.0/0>17:26 -03",
                                  "CET-1CEST,M3.5.0,M10.5.0/3>22:26 CEST",
                                  "ABC5DEF,J60/25,J300>16:26 DEF",
                                  "ABC5DEF,60,300/167:00:00>16:26 DEF",
                                  "ABC5DEF4>16:26 DEF",
                                  "ABC1:00:00>19:26 ABC",
                                  "ABC5DEF4:30,M3.1.0,M4.1.0>15:26 ABC",
                                  "<A1+b->4>16:26 A1+b-",
                                  "ABC-14:59:59>11:26 ABC",
                                  "GMT>20:26 GMT",
                                  ":UTC>20:26 UTC",
                                  "ABC5DEF,M13.1.0,M1.1.0>!",
                                  "ABC5DEF,M3.6.0,M1.1.0>!",
                                  "ABC5DEF,M3.5.7,M1.1.0>!",
                                  "ABC5DEF,J0,J1>!",
                                  "ABC5DEF,366,1>!",
                                  "ABC5DEF,,1>!",
                                  "ABC5DEF,1234,1>!",
                                  "ABC5DEF,M3.5.0/168,1>!",
                                  "ABC5DEF,M3>!",
                                  "ABC5DEF,M3.5>!",
                                  "ABC5DEF,x>!",
                                  "ABC5DEF,1,2,3>!",
                                  "AB5>!",
                                  "ABC25>!",
                                  "ABC1234>!",
                                  "ABC1:60>!",
                                  "ABC1:00:00:00>!",
                                  "<AB>!",
                                  "<a+b->-4x>!",
                                  "Nowhere/City>!"}) {
        const size_t at = row.rfind('>');
        environment["TZ"] = row.substr(0, at);
        const outcome got = kova("date POSIX '%H:%M %Z' --at @1780000000");
        const bool none = row.ends_with("!");
        EXPECT_EQ(got.status != 0, none) << row << got.err;
        EXPECT_EQ(got.out, none ? "" : row.substr(at + 1) + "\n") << row;
    }
    environment["TZ"] = "UTC";
    for (const char *const bad : {"+24", "+x", "-03:60", "+02:00x", "Nowhere/City"})
        fails(2, std::string("date POSIX %T --zone ") + bad, std::string("--zone ") + bad);
    writes("date POSIX '%R %Z' --zone -0330 --at @1780000000", "16:56 -03:30\n");
    writes("date POSIX '%R %Z' --zone Z --at @1780000000", "20:26 UTC\n");
}

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
