// Every compiled locale reads back what it writes of random times.
#include "kovatree.h"

#include "time_records.h"

#include <chrono>
#include <random>

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

// The letters of a format and of the formats inside it; "O" and "E" count where they are not
// skipped.
static std::string letters_of(ko_lc_t loc, const ko_wchar_t *format, int depth = 0) {
    const ltime &t = record(loc)->ltime_info;
    static const char numbers[] = "CdeFgHIjmMSuwyY";
    std::string letters;
    for (; format && *format && depth < 4; ++format) {
        if (portable(record(loc), *format) != '%') continue;
        bool bare = true, precision = false;
        do {
            const unsigned c = portable(record(loc), *++format);
            precision |= c == '.';
            bare &= precision || c - '1' > 8; // no width
        } while (strchr("-+ #'.0123456789", static_cast<int>(portable(record(loc), *format))));
        char letter = static_cast<char>(portable(record(loc), *format));
        const bool era = letter == 'E', prefix = era || letter == 'O';
        const bool skipped = era ? !t.era_count : t.max_alt_digits < 2;
        if (prefix && !skipped) letters += letter;
        if (prefix) letter = static_cast<char>(portable(record(loc), *++format));
        const bool in_era = era && !skipped;
        letters += letter;
        if (!in_era && bare && strchr(numbers, letter) && portable(record(loc), format[1]) == '%') {
            const std::string next = letters_of(loc, format + 1, 3);
            const size_t plain = next.find_first_not_of('O');
            if (plain != next.npos && strchr(numbers, next[plain])) letters += '#';
        }
        const auto add = [&](const ko_wchar_t *inner) {
            letters += letters_of(loc, inner, depth + 1);
        };
        if (letter == 'c') add(in_era ? t.w_era_d_t_fmt : t.w_d_t_fmt);
        if (letter == 'x') add(in_era ? t.w_era_d_fmt : t.w_d_fmt);
        if (letter == 'X') add(in_era ? t.w_era_t_fmt : t.w_t_fmt);
        if (letter == 'r') add(t.w_t_fmt_ampm);
        for (int i = 0; letter == 'Y' && in_era && i < t.era_count; i++)
            add(t.decode_era[i].w_format);
    }
    return letters;
}

// Each holds enough for its text to come back over any time, or over one of the same date.
static constexpr struct {
    const char *format;
    bool same_date;
} formats[] = {
    {"%Y-%m-%d %H:%M:%S.%F", false},
    {"%d|%m|%iY%iF",         false},
    {"%e %B %Y",             false},
    {"%d. %b %Y",            false},
    {"%h/%d %Y",             false},
    {"%Y.%m.%e %A",          false},
    {"%a, %Y %m %d %T",      false},
    {"%I:%M %p",             false},
    {"%I %S",                false},
    {"%D %R",                true },
    {"%j %u",                true },
    {"%w%%%t%%%n%u",         true },
    {"%x",                   true },
    {"%X",                   false},
    {"%c",                   true },
    {"%r %Y %m %d",          false},
    {"%EC %Ey %m %d",        false},
    {"%Eg %Ey/%m/%d",        false},
    {"%EY %m %d",            false},
    {"%Ex %m %d",            true },
    {"%EX",                  false},
    {"%Ec %m %d",            true },
    {"%Od",                  true },
    {"%OH:%OM:%OS",          false},
    {"%Od %Om",              true },
    {"%OT %OR",              false},
    {"%10Y/%3m/%03d",        false},
    {"%-6Y|%-4m|%-4d|",      false},
    {"%4Y%2m%2d%2H%2M%2S",   false},
    {"%F5",                  false},
    {"%C|%y %m %d",          false},
    {"%OD",                  true },
};

#if defined(__SANITIZE_ADDRESS__)
constexpr long times_each = 300;
#else
constexpr long times_each = 10000;
#endif

// A text that came from one time and is read over another one says the same again. 1, 0 for a time
// that the format refuses, such as one outside the eras.
static long check_round(ko_lc_t loc, const ko_wchar_t *format, const ko_tm_t &tm,
                        const ko_tm_t &base) {
    ko_wchar_t text[512], again[512] = {};
    *ko_ext_errno(loc) = 0;
    const int len = ko_wcsftime(loc, text, 512, format, &tm);
    if (len <= 0 && *ko_ext_errno(loc)) return 0;
    ko_tm_t read = base;
    const ko_wchar_t *end = ko_wcsptime(loc, text, format, &read, 'R');
    EXPECT_TRUE(end) << *ko_ext_errno(loc);
    EXPECT_TRUE(!end || !*end);
    const int len_again = ko_wcsftime(loc, again, 512, format, &read);
    EXPECT_EQ(len_again, len);
    EXPECT_EQ(memcmp(text, again, sizeof *text * static_cast<size_t>(len)), 0);
    return 1;
}

TEST(CompiledLocales, ReadWhatTheyWrite) {
    const auto objects = compiled_objects();
    if (objects.empty()) GTEST_SKIP() << "no compiled data root";
    long rows = 0, skipped = 0;
    for (const auto &path : objects) {
        compiled_locale loc(path);
        const std::string skip = unreadable(loc) + "#";
        for (const auto &row : formats) {
            SCOPED_TRACE(loc.name + " " + row.format);
            const auto format = in_code_set(loc, row.format);
            rows++;
            if (letters_of(loc, format.data()).find_first_of(skip) != skip.npos) {
                skipped++;
                continue;
            }
            std::mt19937 random(5);
            for (long i = 0; i < times_each && !HasFailure(); i++) {
                const ko_tm_t tm = random_time(random);
                ko_tm_t base = random_time(random);
                if (row.same_date) {
                    base.tm_year = tm.tm_year;
                    base.tm_mon = tm.tm_mon;
                    base.tm_mday = tm.tm_mday;
                }
                // A format of the locale with a directive that is none is refused every time.
                if (!check_round(loc, format.data(), tm, base) && i == times_each / 4) break;
            }
        }
    }
    EXPECT_LT(skipped, rows / 8);
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
