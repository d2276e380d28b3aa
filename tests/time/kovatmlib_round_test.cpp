// Every compiled locale reads back what it writes of random times, and the quick way of reading
// reads what the engine does.
#include "chars/kovambwc.h"
#include "time/kovatmlib_quick.h"
#include "time/kovatree.h"

#include "time/time_records.h"

#include <chrono>
#include <random>

#include <stddef.h>

#ifndef __has_feature
#define __has_feature(x) 0
#endif

// Whether each of the names, in the given order of trees, is found whole and under its place.
static bool all_readable(ko_lc_t loc, std::initializer_list<const wc_tnode *> trees,
                         ko_wchar_t *const *names, int count) {
    for (int i = 0; i < count; i++) {
        if (!names[i] || has_class(record(loc), *names[i], KO_CT_SPACE)) return false;
        wc_found found = {};
        for (const wc_tnode *tree : trees) {
            if (!found.node) found = find_name(record(loc), tree, names[i]);
        }
        if (!found.node || found.node->val != i || found.len != ko_wcslen(names[i])) return false;
    }
    return count > 0;
}

// Directives that a locale writes, but cannot read back: names of nothing, names that begin like
// others or with a blank, which a blank of the format takes.
static std::string unreadable(ko_lc_t loc) {
    const ltime &t = record(loc)->ltime_info;
    std::string letters;
    const auto add = [&](char letter, bool readable) {
        letters += readable ? "" : std::string(1, letter);
    };
    add('a', all_readable(loc, {t.full_day_cache, t.abbr_day_cache}, t.w_abday, 7));
    add('A', all_readable(loc, {t.full_day_cache, t.abbr_day_cache}, t.w_day, 7));
    add('b', all_readable(loc, {t.full_mon_cache, t.abbr_mon_cache}, t.w_abmon, t.abmon_count));
    add('B', all_readable(loc, {t.full_mon_cache, t.abbr_mon_cache}, t.w_mon, t.mon_count));
    add('p', all_readable(loc, {t.ampm_cache}, t.w_am_pm, 2));
    add('O', t.max_alt_digits < 2 ||
                 all_readable(loc, {t.alt_digits_cache}, t.w_alt_digits, t.max_alt_digits));
    if (!is_gregorian(&t)) letters += 'D'; // two digits of a year say less there
    return letters;
}

static ko_tm_t random_time(std::mt19937 &random) {
    const auto below = [&](unsigned n) { return static_cast<int>(random() % n); };
    ko_tm_t tm = {.tm_usec = below(1000000),
                  .tm_sec = below(60),
                  .tm_min = below(60),
                  .tm_hour = below(24),
                  .tm_mday = 1 + below(28),
                  .tm_mon = below(12),
                  .tm_year = below(2) ? below(200) : below(8000) - 1000,
                  .tm_wday = below(7),
                  .tm_yday = below(366)};
    return tm;
}

// Each holds enough for its text to come back over any time, or over one of the same date. What the
// locale puts in place of some may be unreadable by itself: numbers side by side, names of nothing.
static constexpr struct {
    const char *format;
    bool same_date;
    bool by_locale = false;
} formats[] = {
    {"%Y-%m-%d %H:%M:%S.%F", false   },
    {"%d|%m|%iY%iF",         false   },
    {"%e %B %Y",             false   },
    {"%d. %b %Y",            false   },
    {"%h/%d %Y",             false   },
    {"%Y.%m.%e %A",          false   },
    {"%a, %Y %m %d %T",      false   },
    {"%I:%M %p",             false   },
    {"%I %S",                false   },
    {"%D %R",                true    },
    {"%j %u",                true    },
    {"%w%%%t%%%n%u",         true    },
    {"%x",                   true,     true},
    {"%X",                      false,                           true},
    {"%c",                  true,true},
    {"%r %Y %m %d", false,      true},
    {"%EC %Ey %m %d",          false            },
    {"%Eg %Ey/%m/%d",                      false               },
    {"%EY %m %d",                      false,    true},
    {"%Ex %m %d",                      true,     true},
    {"%EX",                  false,                       true},
    {"%Ec %m %d",true,true},
    {"%Od",                  true   },
    {"%OH:%OM:%OS",                      false                   },
    {"%Od %Om",                  true                             },
    {"%OT %OR", false     },
    {"%10Y/%3m/%03d",false},
    {"%-6Y|%-4m|%-4d|", false},
    {"%4Y%2m%2d%2H%2M%2S",                 false                   },
    {"%F5",                      false                                             },
    {"%C|%y %m %d",                 false                                             },
    {"%OD", true},
};

// Whether a text that came from one time and is read over another one says the same again. So does
// that of a time which the format refuses, such as one outside the eras.
static bool comes_back(ko_lc_t loc, const ko_wchar_t *format, const ko_tm_t &tm, ko_tm_t read) {
    ko_wchar_t text[512], again[512] = {};
    *ko_ext_errno(loc) = 0;
    const int len = ko_wcsftime(loc, text, 512, format, &tm);
    if (len <= 0 && *ko_ext_errno(loc)) return true;
    const ko_wchar_t *end = ko_wcsptime(loc, text, format, &read, 'R');
    return end && !*end && ko_wcsftime(loc, again, 512, format, &read) == len &&
           !memcmp(text, again, sizeof *text * static_cast<size_t>(len));
}

TEST(CompiledLocales, ReadWhatTheyWrite) {
    const auto objects = compiled_objects();
    if (objects.empty()) GTEST_SKIP() << "no compiled data root";
    size_t rows = 0, lost = 0;
    for (const auto &path : objects) {
        compiled_locale loc(path);
        const std::string skip = unreadable(loc);
        for (const auto &row : formats) {
            SCOPED_TRACE(loc.name + " " + row.format);
            const auto format = in_code_set(loc, row.format);
            rows++;
            if (std::string(row.format).find_first_of(skip) != std::string::npos) {
                lost++;
                continue;
            }
            std::mt19937 random(5);
            bool same = true;
            for (long i = 0; i < long{seeded_times} && same; i++) {
                const ko_tm_t tm = random_time(random);
                ko_tm_t base = random_time(random);
                if (row.same_date) {
                    base.tm_year = tm.tm_year;
                    base.tm_mon = tm.tm_mon;
                    base.tm_mday = tm.tm_mday;
                }
                same = comes_back(loc, format.data(), tm, base);
            }
            lost += !same;
            EXPECT_TRUE(same || row.by_locale) << *ko_ext_errno(loc);
        }
    }
    EXPECT_LT(lost, rows / 8);
}

// The date comes back over another one; 1, 0 outside all eras.
static long check_era(ko_lc_t loc, const char *directives, const ko_tm_t &tm) {
    ko_wchar_t text[512];
    const auto format = in_code_set(loc, directives);
    if (ko_wcsftime(loc, text, 512, format.data(), &tm) <= 0) return 0;
    ko_tm_t read = {.tm_mday = 9, .tm_mon = 9, .tm_year = 9};
    *ko_ext_errno(loc) = 0;
    const ko_wchar_t *end = ko_wcsptime(loc, text, format.data(), &read, 'R');
    EXPECT_TRUE(end && !*end && read.tm_year == tm.tm_year && read.tm_mon == tm.tm_mon &&
                read.tm_mday == tm.tm_mday)
        << directives << " of " << tm.tm_year + 1900 << '-' << tm.tm_mon + 1 << '-' << tm.tm_mday
        << " gave " << read.tm_year + 1900 << " or error " << *ko_ext_errno(loc);
    return 1;
}

TEST(CompiledLocales, ReadDatesOnBothSidesOfEveryEraBoundary) {
    using namespace std::chrono;
    const auto objects = compiled_objects();
    if (objects.empty()) GTEST_SKIP() << "no compiled data root";
    for (const auto &path : objects) {
        compiled_locale loc(path);
        const ltime &t = record(loc)->ltime_info;
        std::set<sys_days> dates;
        for (int i = 0; i < t.era_count; i++) {
            const lera &era = t.decode_era[i];
            const sys_days start =
                year(era.start_year) / month(unsigned(era.start_month)) / era.start_day;
            const sys_days end = year(era.end_year) / month(unsigned(era.end_month)) / era.end_day;
            for (const days step : {days(-1), days(0), days(1), days(400000)})
                dates.insert({start + step, era.end_time ? start : end + step});
        }
        long seen = 0;
        for (const sys_days date : dates) {
            const year_month_day day(date);
            const ko_tm_t tm = {.tm_mday = int(unsigned(day.day())),
                                .tm_mon = int(unsigned(day.month())) - 1,
                                .tm_year = int(day.year()) - 1900};
            for (const char *text : {"%EC %Ey %m %d", "%Eg %Ey %m %d", "%EY %m %d"})
                seen += check_era(loc, text, tm);
        }
        EXPECT_TRUE(seen || !t.era_count) << loc.name;
    }
}

// ---- The quick way ------------------------------------------------------------------------------

static const ko_mchar_t *read(kovaloc *loc, const ko_mchar_t *text, const ko_mchar_t *format,
                              ko_tm_t *tm) {
    return ko_mbsptime(loc, text, format, tm, 'C');
}
static const ko_wchar_t *read(kovaloc *loc, const ko_wchar_t *text, const ko_wchar_t *format,
                              ko_tm_t *tm) {
    return ko_wcsptime(loc, text, format, tm, 'C');
}

// 1 where the quick way serves.
template <class Unit>
static int check_both_ways(kovaloc *loc, const std::vector<Unit> &text,
                           const std::vector<Unit> &format) {
    ko_tm_t tm[2];
    const Unit *end[2];
    int error[2];
    const auto read_by = [&](int i) {
        memset(&tm[i], 1, sizeof tm[i]);
        *ko_ext_errno(loc) = 0;
        end[i] = read(loc, text.data(), format.data(), &tm[i]);
        error[i] = *ko_ext_errno(loc);
    };
    read_by(0);
    time_info quick = {}, slow = {};
    const bool taken = quick_parse(loc, text.data(), format.data(), &quick);
    EXPECT_EQ(*ko_ext_errno(loc), error[0]);
    const engine_alone engine(loc);
    read_by(1);
    EXPECT_EQ(end[0], end[1]);
    EXPECT_EQ(error[0], error[1]);
    EXPECT_EQ(memcmp(&tm[0], &tm[1], offsetof(ko_tm_t, tm_gmtoff) + sizeof tm->tm_gmtoff), 0);
    if (!taken) return 0;
    if constexpr (sizeof(Unit) > 1) {
        EXPECT_TRUE(ko_wcsptime1(loc, text.data(), format.data(), &slow, 'C'));
        EXPECT_EQ(memcmp(&quick, &slow, sizeof quick), 0);
    }
    return 1;
}

// Cuts the text, adds a blank or changes a unit: to anything, or to the other case of ASCII
// letters.
template <class Unit> static void damage(std::vector<Unit> &text, std::mt19937 &random) {
    static const char usual[] = "0123456789 :-/.,+%";
    const size_t at = random() % text.size();
    const auto how = random() % 8;
    if (how == 0) text[at] = 0;
    if (how == 1) text[at] = static_cast<Unit>(random());
    if (how == 2) text[at] = static_cast<Unit>(usual[random() % (sizeof usual - 1)]);
    if (how == 3) text[at] ^= 0x20;
    if (how == 4) text.insert(text.begin() + static_cast<ptrdiff_t>(at), ' ');
}

// In the bytes of the code set, with what comes behind them.
static std::vector<ko_mchar_t> narrow(kovaloc *loc, const std::vector<ko_wchar_t> &wide,
                                      const std::vector<ko_mchar_t> &tail) {
    std::vector<ko_mchar_t> bytes(4 * wide.size());
    const int n = ko_full_wcstombs(loc, bytes.data(), wide.data(), static_cast<int>(bytes.size()));
    EXPECT_GE(n, 0);
    bytes.resize(static_cast<size_t>(std::max(n, 0)));
    bytes.insert(bytes.end(), tail.begin(), tail.end());
    bytes.insert(bytes.end(), 4, 0);
    return bytes;
}

TEST(CompiledLocales, ReadTheQuickWayWhatTheEngineReads) {
    const auto pieces =
        split("%Y|%m|%d|%H|%M|%S|%A|%B|%a|%b|%h|%y|%C|%g|%j|%e|%I|%u|%w|%D|%T|%R|%p|"
              "%n|%x|%%| |  |-|:|, |x|1|%Y-%m-%d|%H:%M|%A, %d. %B %Y");
    const auto objects = compiled_objects();
    if (objects.empty()) GTEST_SKIP() << "no compiled data root";
    std::mt19937 random(11);
    long taken = 0, bytes_taken = 0;
    for (const auto &path : objects) {
        compiled_locale loc(path);
        kovaloc *const r = record(loc);
        for (long i = 0; i < 2 * long{seeded_times} && !HasFailure(); i++) {
            SCOPED_TRACE(loc.name + " " + std::to_string(i));
            std::vector<ko_wchar_t> format, text(512);
            for (auto n = random() % 6; n < 6; n++) {
                const auto piece = in_code_set(loc, pieces[random() % pieces.size()]);
                format.insert(format.end(), piece.begin(), piece.end() - 1);
                const ko_wchar_t *const name = r->ltime_info.w_day[random() % 7];
                if (random() % 4 || !name || !*name) continue;
                format.push_back(*name);
            }
            format.push_back(0);
            const ko_tm_t tm = random_time(random);
            const int len = ko_wcsftime(loc, text.data(), 512, format.data(), &tm);
            text.resize(static_cast<size_t>(std::max(len, 0)) + 1);
            std::vector<ko_mchar_t> tail;
            if (random() % 4 == 0) tail.push_back(static_cast<ko_mchar_t>(random()));
            std::vector<ko_mchar_t> bytes = narrow(r, text, tail);
            damage(text, random);
            damage(bytes, random);
            text.push_back(0);
            bytes.insert(bytes.end(), 4, 0);
            taken += check_both_ways(r, text, format);
            bytes_taken += check_both_ways(r, bytes, narrow(r, format, tail));
        }
    }
    const long rows = 2 * long{seeded_times} * static_cast<long>(objects.size());
    EXPECT_GT(taken, rows / 8);
    EXPECT_GT(bytes_taken, rows / 8);
}
