// Reading of times: what directives take, what becomes of it, the century rule and eras.
#include "support/answer.h"
#include "time/time_records.h"

#include <chrono>
#include <random>
#include <span>

static const times plain;
static const times with_eras = {
    .eras = "+:2:1990/01/01:+*:Heisei:H:%EC%Ey|+:1:1989/01/08:1989/12/31:Heisei:H:%EC-first|"
            "+:2:1927/01/01:1989/01/07:Showa:S:%EC%Ey|+:1:1926/12/25:1926/12/31:Showa:S:%EC-first|"
            "-:1:1926/12/24:-*:Before:%Ey years %EC",
};
static const times long_digits = {.digits = "o|i|x|xi|xx|xxi"};
static const times with_digits = {.digits = "zero|one|two||four|5|6|7|8|9"};
static const times nested = {.formats = "%c|%x %x|%X%X%X%X%X|am|pm|",
                             .eras = "+:1:1/1/1:+*:A:%EY|+:1:1/1/1:+*:B:%EY"};
static std::string repeated(const std::string &text, int times) {
    std::string all;
    while (times--)
        all += text;
    return all;
}
// None fits, none is beyond a limit by itself, and all of them together would take minutes.
static const times costly = {.formats = repeated("%x", 9) + "|" + repeated("%X", 9) + "|" +
                                        std::string(9999, ' ') + "|||",
                             .eras = repeated("+:1:1/1/1:+*:A:%c!|", 999) + "+:1:1/1/1:+*:A:%c!"};
// The first passes the text again for each era, the second looks for a long name again and again.
static const std::string gap(1000000, ' '), letters(9000, 'a');
static const times again = {.eras = repeated("+:1:1/1/1:+*:A: x|+:1:1/1/1:+*:A:%n%H|", 999) +
                                    "+:1:1/1/1:+*:A:%Ey"};
static const times sought = {.day = "|" + letters + "b|c|d|e|f|g",
                             .formats = "|" + repeated("%A", 9000) + "||am|pm|"};
static const times alike = {.day = "Su|Sunday|Tuesday|Wednesday|Thursday|Friday|Saturday"};
static const times empty_names = {.formats = "||||pm|"};

static std::string shown(const ko_tm_t &tm) {
    char text[80];
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%06d w%d y%d", tm.tm_year + 1900,
             tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, int(tm.tm_usec),
             tm.tm_wday, tm.tm_yday);
    return text;
}

// The fields that were seen, by their bits.
static std::string shown(const time_info &ti) {
    static constexpr int time_info::*fields[] = {
        &time_info::usec,     &time_info::second,  &time_info::minute,    &time_info::hour12,
        &time_info::ampm,     &time_info::hour24,  &time_info::month_day, &time_info::week_day,
        &time_info::year_day, &time_info::mon,     &time_info::monidx,    &time_info::era,
        &time_info::era_off,  &time_info::century, &time_info::year_off,  &time_info::full_year};
    const auto names = split("usec|second|minute|hour12|ampm|hour24|mday|wday|yday|mon|monidx|era|"
                             "era_off|century|year_off|full");
    std::string text;
    for (size_t i = 0; i < names.size(); i++) {
        if (ti.set >> i & 1)
            text += (text.empty() ? "" : " ") + names[i] + "=" + std::to_string(ti.*fields[i]);
    }
    return text;
}

static std::u16string u16(const std::string &text) { return {text.begin(), text.end()}; }

// What a format reads of a text, and behind ">" what it leaves; or the error. Bytes are read as
// wide characters are.
static std::string fields_read(ko_lc_t loc, const std::string &format, const std::string &text) {
    const auto wide_text = wcs(u16(text)), wide_format = wcs(u16(format));
    const ko_mchar_t *const bytes = mb(text.c_str());
    time_info ti = {};
    ko_tm_t wide_tm = {}, tm = {};
    int &error = *ko_ext_errno(loc), first_error = error = 0;
    const ko_wchar_t *end = ko_wcsptime1(loc, wide_text.data(), wide_format.data(), &ti, 'R');
    std::swap(first_error, error);
    EXPECT_EQ(ko_wcsptime(loc, wide_text.data(), wide_format.data(), &wide_tm, 'R'), end);
    const ko_mchar_t *byte_end = ko_mbsptime(loc, bytes, mb(format.c_str()), &tm, 'R');
    EXPECT_EQ(error, first_error);
    EXPECT_EQ(byte_end ? byte_end - bytes : -1, end ? end - wide_text.data() : -1);
    EXPECT_EQ(shown(tm), shown(wide_tm));
    if (!end) return "!" + std::to_string(error);
    return shown(ti) + (*end ? ">" + text.substr(size_t(end - wide_text.data())) : "");
}

// Each is one or several divided by "|", a format, its text and what becomes of it; one alone goes
// with all of the others.
struct reading {
    const times &names;
    const char *formats, *texts, *wants;
    char algorithm = 'R';
};
template <class Read> static void check_readings(std::span<const reading> rows, Read read) {
    for (const reading &row : rows) {
        SCOPED_TRACE(std::string(row.formats) + " <- " + row.texts);
        loaded_locale loc(with_times(single_byte_object(), row.names));
        const auto formats = split(row.formats), texts = split(row.texts);
        std::string got;
        for (size_t i = 0; i < std::max({formats.size(), texts.size(), size_t{1}}); i++) {
            const auto pick = [i](const std::vector<std::string> &list) {
                return list.empty() ? "" : list[std::min(i, list.size() - 1)];
            };
            got += (i ? "|" : "") + read(loc, pick(formats), pick(texts), row.algorithm);
        }
        EXPECT_EQ(got, row.wants);
    }
}

// clang-format off
TEST(TimeReading, DirectivesTakeTheirFieldsOrFail) {
    static const reading rows[] = {
        {plain, "%H %I %M %S", "23 12 59 61|0 1 0 0", "second=61 minute=59 hour12=12 hour24=23|second=0 minute=0 hour12=1 hour24=0"},
        {plain, "%d %m %j %u", "31 12 366 7|1 1 1 1", "mday=31 wday=0 yday=365 mon=11|mday=1 wday=1 yday=0 mon=0"},
        {plain, "%w %C %y %Y", "6 99 99 9999|0 0 0 0", "wday=6 century=99 year_off=99 full=8099|wday=0 century=0 year_off=0 full=-1900"},
        {plain, "%H|%I|%M|%S|%d|%m|%j|%u|%w|%C|%y|%Y", "24|13|60|62|32|13|367|8|7|100|100|10000", "!26|!26|!25|!24|!27|!30|!29|!28|!9|!31|!9|!9"},
        {plain, "%H|%I|%d|%e|%m|%j|%u|%Y", "-1|0|0|99999999999999|0|0|0|-1", "!26|!26|!27|!27|!30|!29|!28|!9"},
        {plain, "%H|%I|%M|%S|%d|%m|%j|%u|%w|%C|%y|%Y", "x", "!36|!36|!35|!34|!37|!40|!39|!38|!38|!41|!41|!41"},
        {plain, "%H:%M", "  12:05|12 :05x|12:x", "minute=5 hour24=12|minute=5 hour24=12>x|!35"},
        {plain, "%H : %M|%e|%M%S", "12:05|31.|59 61", "minute=5 hour24=12|mday=31>.|second=61 minute=59"},
        {plain, "%d%m|%2d%2m|%2d%m|%1d|%M", "0512|0512|  +5 7|+5|-", "!27|mday=5 mon=11|mday=5 mon=6|!37|!35"},
        {plain, "%g%y|%EC%Oy|%EEC|%iY%iy|%iC", "19 70", "century=19 year_off=70|century=19 year_off=70|!22|year_off=70 full=-1881|!22"},
        {plain, "%D", "2/3/04|2 /3/ 04|2-3-04", "mday=3 mon=1 year_off=4|mday=3 mon=1 year_off=4|!46"},
        {plain, "%R;%T|%iY%iy", "1:2;3:4:5|1999 98", "second=5 minute=4 hour24=3|year_off=98 full=99"},
        {plain, "%r|%r|%x", "1:02 pm|1:02 xm|1.2.x", "minute=2 hour12=1 ampm=1|!22|!41"},
        {plain, "%c", "1.2.1999 3:4:5", "second=5 minute=4 hour24=3 mday=1 mon=1 full=99"},
        {plain, "%a, %b", "SundaY, Sep|Sunday, Sept", "!46|wday=0 monidx=8>t"},
        {plain, "%A|%A|%h|%B|%p|%p", "sat| Sat|Foo|June|PM|am", "wday=6|!38|!48|monidx=5>e|!46|ampm=0"},
        {plain, "%B %m|%m %B", "May 3|3 May", "mon=2|monidx=4"},
        {empty_names, "%p%H|%p%c%x%X%r", "12|z", "ampm=0 hour24=12|ampm=0>z"},
        {empty_names, "%p", "", "ampm=0"},
        {alike, "%A", "Sunday|Saturday", "wday=0>nday|wday=6"},
        {plain, "%F|%F|%F3|%F3|%F0|%F|%F6|%F", "25|1234567|25|1234|1| 1|1|x", "usec=250000|usec=123456|!33|usec=123000>4|usec=100000|!33|!22|!33"},
        {plain, "%iF|%iF|%%%n%t|%%|%n%d|%n", ".5|5|%  | %| 5|5", "usec=500000|!33|!46|!22|mday=5|!46"},
        {plain, "a  b| |A", "ab|  x|a", "|>x|!46"},
        {plain, "", "a", ">a"},
        {plain, "%K|%|%5|%5.!|%*d|%-+#3.2d", "5", "!22|!15|!15|!45|!22|mday=5"},
        {with_digits, "%Od", "onetwo|1|zero", "mday=12|!37|!27"},
        {with_digits, "%3Od|%Om|%OY|%O|%Oy", "onetwo|onefour|one|one|onezerozero", "mday=1>two|!30|!22|!15|!9"},
        {long_digits, "%Od|%Od|%Od:|%1Od|%2Od|%OH", "xi|xx|x:|xi|xxi|xxi", "mday=3|mday=4|mday=2|mday=2>i|mday=4>i|hour24=5"},
        {with_digits, "%OD|%OT", "one/two / 65| one:zero:two", "mday=2 mon=0 year_off=65|second=2 minute=0 hour24=1"},
        {with_eras, "%EC%Ey", "heiSei12|Heisei 12|Heisei|Taisho", "era=1 era_off=12|era=1 era_off=12|!41|!42"},
        {with_eras, "%Eg%Ey|%Ed|%E", "H-3|5|5", "era=1 era_off=-3|!22|!15"},
        {with_eras, "%EY", "Heisei2|Showa-first|7 years Before", "era=0 era_off=2|era=3|era=4 era_off=7"},
        {with_eras, "%EY", "7 years Showa|Meiji", "!42|!42"},
        {with_eras, "%Ec", "Showa2 3/4 5.6", "minute=6 hour24=5 mday=4 mon=2 era=3 era_off=2"},
        {nested, "%c|%EY", "1", "!22|!22"},
        {costly, "%EY", "1", "!22"},
        {again, "%EY", gap.c_str(), "!22"},
        {sought, "%x", letters.c_str(), "!22"},
    };
    check_readings(rows, [](ko_lc_t loc, const std::string &format, const std::string &text, char) {
        return fields_read(loc, format, text);
    });
}
// clang-format on

// Saturday 3 February 2001, 04:05:06.000007.
static const ko_tm_t before = {7, 6, 5, 4, 3, 1, 101, 6, 33};

// What has become of it: the date and the rest of it where they are others.
static std::string changed(const ko_tm_t &tm) {
    std::string text = shown(tm);
    for (const std::string_view tail : {" 04:05:06.000007 w6 y33", ".000007 w6 y33"}) {
        if (text.ends_with(tail)) text.resize(text.size() - tail.size());
    }
    return text.starts_with("2001-02-03 ") ? text.substr(11) : text;
}

static const times hebrew = {
    .calendar = "hebrew",
    .mon = "Tishri|Heshvan|Kislev|Tevet|Shevat|Adar|Nisan|Iyar|Sivan|Tammuz|Av|Elul|First|Second",
};
static const times islamic = {.calendar = "islamic"};
static const times arabic = {.calendar = "arabic"};

// clang-format off
TEST(TimeReading, FieldsBecomeADateOverTheCallers) {
    static const reading rows[] = {
        {plain, "%I|%I %p|%I %p|%p %I|%p %H", "12|12 am|12 pm|pm 1|pm 9", "12:05:06|00:05:06|12:05:06|13:05:06|09:05:06"},
        {plain, "%H %p|%H %I|%I %H|%p", "9 pm|5 7|7 5|pm", "09:05:06|07:05:06|05:05:06|2001-02-03"},
        {plain, "%T%iF|%j %u|%B", "1:2:3.25|60 7|May", "01:02:03.250000 w6 y33|04:05:06.000007 w0 y59|2001-05-03"},
        {plain, "%d.%m.%Y|%y|%C|%C %y", "31.2.1999|30|19|19 70", "1999-02-31|2030-02-03|1900-02-03|1970-02-03"},
        {plain, "%Y %y|%y %Y|%Y %C|%D", "1999 5|5 1999|1999 18|2/29/00", "2005-02-03|1999-02-03|1999-02-03|2000-02-29"},
        {plain, "%D", "6/14/74|6/16/74|2/29/00", "2074-06-14|1974-06-16|!27", 'C'},
        {plain, "%D|%y %B", "6/15/24|24 June", "2124-06-15|2124-06-03", 'F'},
        {plain, "%D|%y", "6/15/24|24", "1924-06-15|2024-02-03", 'P'},
        {plain, "%D", "2/29/00", "!27", 'c'},
        {with_eras, "%Ex", "Showa2 3/4|Showa1 12/25|Showa1 12/24|Showa64 1/7|Showa64 1/8", "1927-03-04|1926-12-25|!42|1989-01-07|!42"},
        {with_eras, "%Ex", "Heisei2 1/1|H9999999999 1/1|Before1 12/24|Before1 12/25|Before3 1/1", "1990-01-01|!42|1926-12-24|1925-12-25|1924-01-01"},
        {with_eras, "%EY %b%d|%EY %m/%d|%EC%Ey", "Heisei-first Jan8|Heisei-first 1/7|Heisei3", "1989-01-08|!42|2001-02-03"},
        {with_eras, "%Y %EC%Ey|%Y %Ex|%Ex %Y|%Ex %Y %EX", "1995 Heisei3|1995 Heisei3 5/6|Heisei3 5/6 1995|Heisei3 5/6 1995 4.5", "1995-02-03|1991-05-06|1995-05-06|1991-05-06"},
        {hebrew, "%d %B %Y|%d.%m.%Y|%d", "23 Tevet 5760|1.7.5760|1", "2000-01-01 04:05:06.000007 w6 y0|2000-03-08 04:05:06.000007 w3 y67|2001-01-25 04:05:06.000007 w4 y24"},
        {hebrew, "%d.%B|%H|%m", "1.Second|12|15", "!31|12:05:06|!30"},
        {hebrew, "%d %B %y", "1 First 60", "2000-02-07 04:05:06.000007 w1 y37", 'C'},
        {islamic, "%d.%m.%Y|%d %B %y", "25.9.1420|25 September 20", "2000-01-01 04:05:06.000007 w6 y0|2000-01-01 04:05:06.000007 w6 y0"},
        {arabic, "%H|%d", "12|12", "12:05:06|!31"},
    };
    ko_set_current_time(__LINE__, __FILE__, 15, 6, 2024);
    check_readings(rows, [](ko_lc_t loc, const std::string &format, const std::string &text, char algorithm) {
        ko_tm_t tm = before;
        const bool done = ko_mbsptime(loc, mb(text.c_str()), mb(format.c_str()), &tm, algorithm);
        EXPECT_TRUE(done || shown(tm) == shown(before));
        return done ? changed(tm) : "!" + std::to_string(*ko_ext_errno(loc));
    });
    ko_reset_time(__LINE__, __FILE__);
}
// clang-format on

// Thousands of names that differ in their first character, and a format with a name in every
// directive: each is looked up without passing all of the others.
TEST(TimeReading, ManyNamesAreLookedUpInNoTime) {
    std::vector<table_entry> classes(1, {std::string(1, '\0'), KO_CT_CNTRL});
    for (int c = 1; c < 128; c++)
        classes.push_back({std::string(1, char(c)), KO_CT_PRINT});
    times many = {.mon = "", .formats = repeated("%B", 100000) + "||||pm|"};
    for (int lead = 0x81; lead <= 0xFE; lead++) {
        for (int trail = 0x40; trail <= 0xFE; trail++) {
            const std::string bytes = {char(lead), char(trail)};
            classes.push_back({bytes, KO_CT_ALPHA});
            if (trail != '|') many.mon += "|" + bytes;
        }
    }
    locale_object object = double_byte_object(false);
    object.ctype = caseless(classes, classes[0].bytes);
    const loaded_locale loc(with_times(object, many));
    ko_tm_t tm = before;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(ko_mbsptime(loc, mb("x"), mb("%c"), &tm, 'R'));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

// A text is read as far as it is needed, from any of its characters' bytes.
TEST(TimeReading, TextsMayGoOnForLongAndEndInWhatIsNone) {
    loaded_locale narrow(with_times(single_byte_object(), plain));
    locale_object object = double_byte_object(false);
    std::vector<table_entry> classes = {
        {"\x81\x40", KO_CT_ALPHA},
        {"\x81\x41", KO_CT_SPACE}
    };
    for (int c = 0; c < 128; c++)
        classes.push_back(
            {std::string(1, char(c)), uint16_t(c == ' ' ? KO_CT_SPACE : KO_CT_PRINT)});
    object.ctype = caseless(classes, std::string(1, '\0'));
    loaded_locale mixed(with_times(object, plain));
    loaded_locale wide_only(with_times(double_byte_object(true), plain, true));
    for (const size_t blanks : {0u, 100u, 120u, 127u, 128u, 1000u, 9000u, 200000u}) {
        const std::string text = std::string(blanks, ' ') + "1999-Sep-30 and so on";
        ko_tm_t tm = before;
        const ko_mchar_t *end = ko_mbsptime(narrow, mb(text.c_str()), mb("%Y-%b-%d"), &tm, 'R');
        EXPECT_EQ(end, mb(text.c_str()) + blanks + 11);
        EXPECT_EQ(shown(tm), "1999-09-30 04:05:06.000007 w6 y33");
    }
    static const std::tuple<const char *, const char *, int, int> rows[] = {
        {"%Y-%m",         "1999-12 \xFF",     7,  0           },
        {"%Y-%m",         "1999-12\xFF",      7,  0           },
        {"%Y-%m",         "1999/12\xFF",      -1, KO_EMISMATCH},
        {"%Y\x81\x40-%m", "1999\x81\x40-12x", 9,  0           },
        {"%Y\x81\x40-%m", "1999\x81\x41-12x", -1, KO_EMISMATCH},
        {"%Y\x81",        "1999",             -1, KO_EILSEQ   },
        {"%B",            "Januar\xFF",       3,  0           }, // Jan
        {"%d ",           "12\x81\x41 \x81",  5,  0           },
        {"%d ",           "12 \x81\x40",      3,  0           },
        {"%d %m",
         "12 \x81\x41"
         "9",                                 6,  0           },
        {"%d\x81\x41|",   "12\x81\x41 |",     6,  0           },
    };
    for (const auto &[format, text, want, error] : rows) {
        SCOPED_TRACE(text);
        ko_tm_t tm = before;
        const ko_mchar_t *end = ko_mbsptime(mixed, mb(text), mb(format), &tm, 'R');
        EXPECT_EQ(answered(mixed, end ? end - mb(text) : -1), answer(want, error));
    }
    ko_tm_t tm = before;
    const std::string text = encoded("1999-September!", true) + std::string(2, '\0');
    const std::string format = encoded("%Y-%B", true) + std::string(2, '\0');
    EXPECT_EQ(ko_mbsptime(wide_only, mb(text.data()), mb(format.data()), &tm, 'R'),
              mb(text.data()) + 28);
    EXPECT_EQ(shown(tm), "1999-09-03 04:05:06.000007 w6 y33");
}

TEST(TimeReading, WithoutMemoryFailsAndLeavesNothing) {
    loaded_locale loc(with_times(single_byte_object(), with_eras));
    const std::string text = std::string(2000, ' ') + "Showa2 3/4";
    const std::string format = std::string(200, ' ') + "%Ex";
    const long failed = each_allocation_fails([&] {
        ko_tm_t tm = before;
        *ko_ext_errno(loc) = 0;
        const bool done = ko_mbsptime(loc, mb(text.c_str()), mb(format.c_str()), &tm, 'R');
        EXPECT_EQ(loc.error(), done ? 0 : KO_ENOMEM);
        EXPECT_EQ(tm.tm_year, done ? 27 : 101);
        return done;
    });
    EXPECT_GT(failed, 1);
}

// ---- The century rule ---------------------------------------------------------------------------

// The rule told anew, on the standard library's calendar. -1: an impossible date.
static int model_century(std::chrono::year_month_day today, int month, int day, int year,
                         int algorithm) {
    using namespace std::chrono;
    const int now = int(today.year()) / 100;
    if (algorithm == 'R') return now;
    sys_days dates[3];
    for (int i = 0; i < 3; i++) {
        const year_month_day date(std::chrono::year(100 * (now + i - 1) + year),
                                  std::chrono::month(unsigned(month)),
                                  std::chrono::day(unsigned(day)));
        if (!date.ok()) return -1;
        dates[i] = sys_days(date);
    }
    const sys_days here = sys_days(today);
    if (algorithm == 'F') return dates[1] > here ? now : now + 1;
    if (algorithm == 'P') return dates[1] < here ? now : now - 1;
    int best = 1; // this century; the next one wins ties with it, the last one those between both
    const auto far = [&](int i) { return abs(dates[i] - here); };
    if (far(2) <= far(1)) best = 2;
    if (far(1) >= far(0) && !(far(2) <= far(0))) best = 0;
    return now + best - 1;
}

TEST(CenturyRule, AgreesWithADayCountOverACentury) {
    using namespace std::chrono;
    loaded_locale loc(with_times(single_byte_object(), plain));
    std::mt19937 random(52);
    const days step(sanitized ? 19 : 1);
    for (sys_days today = 1950y / 1 / 1; today < sys_days(2050y / 3 / 1); today += step) {
        const year_month_day now(today);
        ko_set_current_time(__LINE__, __FILE__, int(unsigned(now.day())),
                            int(unsigned(now.month())), int(now.year()));
        const int month = random() % 4 ? int(1 + random() % 12) : int(unsigned(now.month()));
        const int day = random() % 4 ? int(1 + random() % 29) : int(unsigned(now.day()));
        for (int yy = 0; yy < 100; yy++)
            for (const char algorithm : {'C', 'F', 'P', 'R'})
                ASSERT_EQ(ko_getcentury(loc, month, day, yy, algorithm),
                          model_century(now, month, day, yy, algorithm))
                    << algorithm << ' ' << yy << '-' << month << '-' << day << " on "
                    << today.time_since_epoch().count();
    }
    ko_reset_time(__LINE__, __FILE__);
}

TEST(CenturyRule, TakesTodayFromTheHostAndRefusesImpossibleDates) {
    loaded_locale loc(with_times(single_byte_object(), plain));
    loaded_locale other(with_times(single_byte_object(), islamic));
    const installed_hooks hook{std::pair(KO_EXT_CURRDATE, as_hook(+[](uint16_t *mdy) {
                                             mdy[0] = 12, mdy[1] = 31, mdy[2] = 1999;
                                             return 0;
                                         }))};
    // Month, day, year, rule, century and error; no 29 February in 1800 and 1900.
    for (const auto &w :
         table("0 0 99 F 20 0; 0 0 99 P 18 0; 1 1 0 C 20 0; 1 1 250 C 2 0; 13 32 1 C -1 30; "
               "-1 1 1 F -1 30; 2 30 1 P -1 27; 2 29 0 C -1 27; 1 1 -1801 C -1 31; 13 32 1 R 19 0; "
               "4 31 1 x -1 27")) {
        const int month = whole(w[0]), day = whole(w[1]), year = whole(w[2]), rule = w[3][0];
        SCOPED_TRACE(w[0] + " " + w[1] + " " + w[2] + " " + w[3]);
        EXPECT_EQ(answered(loc, ko_getcentury(loc, month, day, year, rule)),
                  answer(whole(w[4]), whole(w[5])));
        EXPECT_EQ(ko_getcentury(other, month, day, year, rule), 14);
    }
}
