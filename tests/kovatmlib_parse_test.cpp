// Reading of times: what directives take, what becomes of it, the century rule, eras, and that
// every compiled locale reads what it writes.
#include "time_records.h"

#include <chrono>
#include <random>

static const times plain;
static const times with_eras = {
    .eras = "+:2:1990/01/01:+*:Heisei:H:%EC%Ey|+:1:1989/01/08:1989/12/31:Heisei:H:%EC-first|"
            "+:2:1927/01/01:1989/01/07:Showa:S:%EC%Ey|+:1:1926/12/25:1926/12/31:Showa:S:%EC-first|"
            "-:1:1926/12/24:-*:Before:%Ey years %EC",
};
static const times with_digits = {.digits = "zero|one|two||four|5|6|7|8|9"};
static const times nested = {.formats = "%c|%x %x|%X%X%X%X%X|am|pm|",
                             .eras = "+:1:1/1/1:+*:A:%EY|+:1:1/1/1:+*:B:%EY"};
static const times empty_names = {.formats = "||||pm|"};

static std::string shown(const ko_tm_t &tm) {
    char text[80];
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%06d w%d y%d", tm.tm_year + 1900,
             tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
             static_cast<int>(tm.tm_usec), tm.tm_wday, tm.tm_yday);
    return text;
}

static std::string shown(const time_info &ti) {
    static constexpr struct {
        const char *name;
        int time_info::*field;
    } fields[] = {
        {"usec",     &time_info::usec     },
        {"second",   &time_info::second   },
        {"minute",   &time_info::minute   },
        {"hour12",   &time_info::hour12   },
        {"ampm",     &time_info::ampm     },
        {"hour24",   &time_info::hour24   },
        {"mday",     &time_info::month_day},
        {"wday",     &time_info::week_day },
        {"yday",     &time_info::year_day },
        {"mon",      &time_info::mon      },
        {"monidx",   &time_info::monidx   },
        {"era",      &time_info::era      },
        {"era_off",  &time_info::era_off  },
        {"century",  &time_info::century  },
        {"year_off", &time_info::year_off },
        {"full",     &time_info::full_year},
    };
    std::string text;
    for (size_t i = 0; i < std::size(fields); i++) {
        if (!(ti.set >> i & 1)) continue;
        text += (text.empty() ? "" : " ") + std::string(fields[i].name) + "=" +
                std::to_string(ti.*fields[i].field);
    }
    return text;
}

static std::u16string u16(const std::string &text) { return {text.begin(), text.end()}; }

// What a format reads, and behind " | " what it leaves; or the error.
static std::string fields_read(const loaded_locale &loc, const char *format, const char *text) {
    time_info ti = {};
    *ko_ext_errno(loc) = 0;
    const auto wide_text = wcs(u16(text)), wide_format = wcs(u16(format));
    const ko_wchar_t *end = ko_wcsptime1(loc, wide_text.data(), wide_format.data(), &ti, 'R');
    if (!end) return "error " + std::to_string(loc.error());
    EXPECT_EQ(loc.error(), 0);
    return shown(ti) + (*end ? " | " + std::string(text + (end - wide_text.data())) : "");
}

struct reading {
    const times &names;
    const char *format, *text, *want;
};

TEST(TimeReading, DirectivesTakeTheirFieldsOrFail) {
    static const reading rows[] = {
        {plain,       "%H:%M",    "  12:05",        "minute=5 hour24=12"                             },
        {plain,       "%H:%M",    "12 :05x",        "minute=5 hour24=12 | x"                         },
        {plain,       "%H : %M",  "12:05",          "minute=5 hour24=12"                             },
        {plain,       "%H",       "24",             "error 26"                                       },
        {plain,       "%H",       "x",              "error 36"                                       },
        {plain,       "%I",       "0",              "error 26"                                       },
        {plain,       "%I",       "13",             "error 26"                                       },
        {plain,       "%I",       "",               "error 36"                                       },
        {plain,       "%M%S",     "59 61",          "second=61 minute=59"                            },
        {plain,       "%M",       "60",             "error 25"                                       },
        {plain,       "%M",       "-",              "error 35"                                       },
        {plain,       "%S",       "62",             "error 24"                                       },
        {plain,       "%S",       "s",              "error 34"                                       },
        {plain,       "%d%m",     "0512",           "error 27"                                       },
        {plain,       "%2d%2m",   "0512",           "mday=5 mon=11"                                  },
        {plain,       "%2d%m",    "  +5 7",         "mday=5 mon=6"                                   },
        {plain,       "%1d",      "+5",             "error 37"                                       },
        {plain,       "%d",       "0",              "error 27"                                       },
        {plain,       "%e",       "31.",            "mday=31 | ."                                    },
        {plain,       "%d",       "99999999999999", "error 27"                                       },
        {plain,       "%m",       "13",             "error 30"                                       },
        {plain,       "%m",       "a",              "error 40"                                       },
        {plain,       "%j",       "366",            "yday=365"                                       },
        {plain,       "%j",       "367",            "error 29"                                       },
        {plain,       "%j",       "?",              "error 39"                                       },
        {plain,       "%u",       "7",              "wday=0"                                         },
        {plain,       "%u",       "0",              "error 28"                                       },
        {plain,       "%w",       "7",              "error 9"                                        },
        {plain,       "%w",       "w",              "error 38"                                       },
        {plain,       "%y",       "100",            "error 9"                                        },
        {plain,       "%y",       "y",              "error 41"                                       },
        {plain,       "%Y",       "10000",          "error 9"                                        },
        {plain,       "%Y",       "-1",             "error 9"                                        },
        {plain,       "%Y",       "0",              "full=-1900"                                     },
        {plain,       "%C",       "100",            "error 31"                                       },
        {plain,       "%g%y",     "19 70",          "century=19 year_off=70"                         },
        {plain,       "%EC%Oy",   "19 70",          "century=19 year_off=70"                         },
        {plain,       "%EEC",     "19",             "error 22"                                       },
        {plain,       "%D",       "2/3/04",         "mday=3 mon=1 year_off=4"                        },
        {plain,       "%D",       "2 /3/ 04",       "mday=3 mon=1 year_off=4"                        },
        {plain,       "%D",       "2-3-04",         "error 46"                                       },
        {plain,       "%R|%T",    "1:2|3:4:5",      "second=5 minute=4 hour24=3"                     },
        {plain,       "%r",       "1:02 pm",        "minute=2 hour12=1 ampm=1"                       },
        {plain,       "%r",       "1:02 xm",        "error 22"                                       },
        {plain,       "%c",       "1.2.1999 3:4:5", "second=5 minute=4 hour24=3 mday=1 mon=1 full=99"},
        {plain,       "%x",       "1.2.x",          "error 41"                                       },
        {plain,       "%a, %b",   "SundaY, Sep",    "error 46"                                       },
        {plain,       "%a, %b",   "Sunday, Sept",   "wday=0 monidx=8 | t"                            },
        {plain,       "%A",       "sat",            "wday=6"                                         },
        {plain,       "%A",       " Sat",           "error 38"                                       },
        {plain,       "%h",       "Foo",            "error 48"                                       },
        {plain,       "%B",       "June",           "monidx=5 | e"                                   },
        {plain,       "%B %m",    "May 3",          "mon=2"                                          },
        {plain,       "%m %B",    "3 May",          "monidx=4"                                       },
        {plain,       "%p",       "PM",             "error 46"                                       },
        {plain,       "%p",       "am",             "ampm=0"                                         },
        {empty_names, "%p%H",     "12",             "ampm=0 hour24=12"                               },
        {empty_names, "%p",       "",               "ampm=0"                                         },
        {empty_names, "%c%x%X%r", "z",              " | z"                                           },
        {plain,       "%F",       "25",             "usec=250000"                                    },
        {plain,       "%F",       "1234567",        "usec=123456"                                    },
        {plain,       "%F3",      "25",             "error 33"                                       },
        {plain,       "%F3",      "1234",           "usec=123000 | 4"                                },
        {plain,       "%F0",      "1",              "usec=100000"                                    },
        {plain,       "%F",       " 1",             "error 33"                                       },
        {plain,       "%F6",      "1",              "error 22"                                       },
        {plain,       "%iF",      ".5",             "usec=500000"                                    },
        {plain,       "%iF",      "5",              "error 33"                                       },
        {plain,       "%iY%iy",   "1999 98",        "year_off=98 full=99"                            },
        {plain,       "%iC",      "19",             "error 22"                                       },
        {plain,       "%%%n%t",   "%  ",            "error 46"                                       },
        {plain,       "%%",       " %",             "error 22"                                       },
        {plain,       "%n%d",     " 5",             "mday=5"                                         },
        {plain,       "%n",       "5",              "error 46"                                       },
        {plain,       "a  b",     "ab",             ""                                               },
        {plain,       " ",        "  x",            " | x"                                           },
        {plain,       "A",        "a",              "error 46"                                       },
        {plain,       "",         "a",              " | a"                                           },
        {plain,       "%K",       "a",              "error 22"                                       },
        {plain,       "%",        "a",              "error 15"                                       },
        {plain,       "%5",       "a",              "error 15"                                       },
        {plain,       "%5.!",     "a",              "error 45"                                       },
        {plain,       "%*d",      "5",              "error 22"                                       },
        {plain,       "%-+#3.2d", "5",              "mday=5"                                         },
        {with_digits, "%Od",      "onetwo",         "mday=12"                                        },
        {with_digits, "%3Od",     "onetwo",         "mday=1 | two"                                   },
        {with_digits, "%Od",      "1",              "error 37"                                       },
        {with_digits, "%Om",      "onefour",        "error 30"                                       },
        {with_digits, "%OD",      "one/two / 65",   "mday=2 mon=0 year_off=65"                       },
        {with_digits, "%OT",      " one:zero:two",  "second=2 minute=0 hour24=1"                     },
        {with_digits, "%OY",      "one",            "error 22"                                       },
        {with_digits, "%O",       "one",            "error 15"                                       },
        {with_digits, "%Oy",      "onezerozero",    "error 9"                                        },
        {with_eras,   "%EC%Ey",   "heiSei12",       "era=1 era_off=12"                               },
        {with_eras,   "%EC%Ey",   "Heisei 12",      "era=1 era_off=12"                               },
        {with_eras,   "%Eg%Ey",   "H-3",            "era=1 era_off=-3"                               },
        {with_eras,   "%EC%Ey",   "Heisei",         "error 41"                                       },
        {with_eras,   "%EY",      "Heisei2",        "era=0 era_off=2"                                },
        {with_eras,   "%EY",      "Showa-first",    "era=3"                                          },
        {with_eras,   "%EY",      "7 years Before", "era=4 era_off=7"                                },
        {with_eras,   "%EY",      "7 years Showa",  "error 42"                                       },
        {with_eras,   "%EY",      "Meiji",          "error 42"                                       },
        {with_eras,   "%Ec",      "Showa2 3/4 5.6", "minute=6 hour24=5 mday=4 mon=2 era=3 era_off=2" },
        {with_eras,   "%Ed",      "5",              "error 22"                                       },
        {with_eras,   "%E",       "5",              "error 15"                                       },
        {nested,      "%c",       "1",              "error 22"                                       },
        {nested,      "%EY",      "1",              "error 42"                                       },
    };
    for (const reading &row : rows) {
        SCOPED_TRACE(std::string(row.format) + " <- " + row.text);
        loaded_locale loc(with_times(single_byte_object(), row.names));
        EXPECT_EQ(fields_read(loc, row.format, row.text), row.want);
        // Bytes are read as wide characters are.
        ko_tm_t wide_tm = {}, tm = {};
        *ko_ext_errno(loc) = 0;
        const auto text = wcs(u16(row.text)), format = wcs(u16(row.format));
        const ko_wchar_t *wide_end = ko_wcsptime(loc, text.data(), format.data(), &wide_tm, 'R');
        const int error = loc.error();
        *ko_ext_errno(loc) = 0;
        const ko_mchar_t *end = ko_mbsptime(loc, mb(row.text), mb(row.format), &tm, 'R');
        EXPECT_EQ(loc.error(), error);
        EXPECT_EQ(end ? end - mb(row.text) : -1, wide_end ? wide_end - text.data() : -1);
        EXPECT_EQ(shown(tm), shown(wide_tm));
    }
}

// From Saturday 3 February 2001, 04:05:06.7.
static const ko_tm_t before = {.tm_usec = 7,
                               .tm_sec = 6,
                               .tm_min = 5,
                               .tm_hour = 4,
                               .tm_mday = 3,
                               .tm_mon = 1,
                               .tm_year = 101,
                               .tm_wday = 6,
                               .tm_yday = 33};

struct resolution {
    const times &names;
    char algorithm;
    const char *format, *text, *want;
};

static const times hebrew = {
    .calendar = "hebrew",
    .mon = "Tishri|Heshvan|Kislev|Tevet|Shevat|Adar|Nisan|Iyar|Sivan|Tammuz|Av|Elul|First|Second",
};
static const times islamic = {.calendar = "islamic"};
static const times arabic = {.calendar = "arabic"};

TEST(TimeReading, FieldsBecomeADateOverTheCallers) {
    static const resolution rows[] = {
        {plain,     'R', "%I",        "12",                "2001-02-03 12:05:06.000007 w6 y33"},
        {plain,     'R', "%I %p",     "12 am",             "2001-02-03 00:05:06.000007 w6 y33"},
        {plain,     'R', "%I %p",     "12 pm",             "2001-02-03 12:05:06.000007 w6 y33"},
        {plain,     'R', "%p %I",     "pm 1",              "2001-02-03 13:05:06.000007 w6 y33"},
        {plain,     'R', "%p %H",     "pm 9",              "2001-02-03 09:05:06.000007 w6 y33"},
        {plain,     'R', "%H %p",     "9 pm",              "2001-02-03 09:05:06.000007 w6 y33"},
        {plain,     'R', "%H %I",     "5 7",               "2001-02-03 07:05:06.000007 w6 y33"},
        {plain,     'R', "%I %H",     "7 5",               "2001-02-03 05:05:06.000007 w6 y33"},
        {plain,     'R', "%p",        "pm",                "2001-02-03 04:05:06.000007 w6 y33"},
        {plain,     'R', "%T%iF",     "1:2:3.25",          "2001-02-03 01:02:03.250000 w6 y33"},
        {plain,     'R', "%j %u",     "60 7",              "2001-02-03 04:05:06.000007 w0 y59"},
        {plain,     'R', "%B",        "May",               "2001-05-03 04:05:06.000007 w6 y33"},
        {plain,     'R', "%d.%m.%Y",  "31.2.1999",         "1999-02-31 04:05:06.000007 w6 y33"},
        {plain,     'R', "%y",        "30",                "2030-02-03 04:05:06.000007 w6 y33"},
        {plain,     'C', "%D",        "6/14/74",           "2074-06-14 04:05:06.000007 w6 y33"},
        {plain,     'C', "%D",        "6/16/74",           "1974-06-16 04:05:06.000007 w6 y33"},
        {plain,     'F', "%D",        "6/15/24",           "2124-06-15 04:05:06.000007 w6 y33"},
        {plain,     'F', "%y %B",     "24 June",           "2124-06-03 04:05:06.000007 w6 y33"},
        {plain,     'P', "%D",        "6/15/24",           "1924-06-15 04:05:06.000007 w6 y33"},
        {plain,     'P', "%y",        "24",                "2024-02-03 04:05:06.000007 w6 y33"},
        {plain,     'R', "%D",        "2/29/00",           "2000-02-29 04:05:06.000007 w6 y33"},
        {plain,     'C', "%D",        "2/29/00",           "error 27"                         },
        {plain,     'c', "%D",        "2/29/00",           "error 27"                         },
        {plain,     'R', "%C",        "19",                "1900-02-03 04:05:06.000007 w6 y33"},
        {plain,     'R', "%C %y",     "19 70",             "1970-02-03 04:05:06.000007 w6 y33"},
        {plain,     'R', "%Y %y",     "1999 5",            "2005-02-03 04:05:06.000007 w6 y33"},
        {plain,     'R', "%y %Y",     "5 1999",            "1999-02-03 04:05:06.000007 w6 y33"},
        {plain,     'R', "%Y %C",     "1999 18",           "1999-02-03 04:05:06.000007 w6 y33"},
        {with_eras, 'R', "%Ex",       "Showa2 3/4",        "1927-03-04 04:05:06.000007 w6 y33"},
        {with_eras, 'R', "%Ex",       "Showa1 12/25",      "1926-12-25 04:05:06.000007 w6 y33"},
        {with_eras, 'R', "%Ex",       "Showa1 12/24",      "error 42"                         },
        {with_eras, 'R', "%Ex",       "Showa64 1/7",       "1989-01-07 04:05:06.000007 w6 y33"},
        {with_eras, 'R', "%Ex",       "Showa64 1/8",       "error 42"                         },
        {with_eras, 'R', "%Ex",       "Heisei2 1/1",       "1990-01-01 04:05:06.000007 w6 y33"},
        {with_eras, 'R', "%Ex",       "H9999999999 1/1",   "error 42"                         },
        {with_eras, 'R', "%Ex",       "Before1 12/24",     "1926-12-24 04:05:06.000007 w6 y33"},
        {with_eras, 'R', "%Ex",       "Before1 12/25",     "1925-12-25 04:05:06.000007 w6 y33"},
        {with_eras, 'R', "%Ex",       "Before3 1/1",       "1924-01-01 04:05:06.000007 w6 y33"},
        {with_eras, 'R', "%EY %b%d",  "Heisei-first Jan8", "1989-01-08 04:05:06.000007 w6 y33"},
        {with_eras, 'R', "%EY %m/%d", "Heisei-first 1/7",  "error 42"                         },
        {with_eras, 'R', "%EC%Ey",    "Heisei3",           "2001-02-03 04:05:06.000007 w6 y33"},
        {with_eras, 'R', "%Y %EC%Ey", "1995 Heisei3",      "1995-02-03 04:05:06.000007 w6 y33"},
        {with_eras, 'R', "%Y %Ex",    "1995 Heisei3 5/6",  "1991-05-06 04:05:06.000007 w6 y33"},
        {with_eras, 'R', "%Ex %Y",    "Heisei3 5/6 1995",  "1995-05-06 04:05:06.000007 w6 y33"},
        {hebrew,    'R', "%d %B %Y",  "23 Tevet 5760",     "2000-01-01 04:05:06.000007 w6 y0" },
        {hebrew,    'C', "%d %B %y",  "1 First 60",        "2000-02-07 04:05:06.000007 w1 y37"},
        {hebrew,    'R', "%d.%m.%Y",  "1.7.5760",          "2000-03-08 04:05:06.000007 w3 y67"},
        {hebrew,    'R', "%d.%B",     "1.Second",          "error 31"                         },
        {hebrew,    'R', "%d",        "1",                 "2001-01-25 04:05:06.000007 w4 y24"},
        {hebrew,    'R', "%H",        "12",                "2001-02-03 12:05:06.000007 w6 y33"},
        {hebrew,    'R', "%m",        "15",                "error 30"                         },
        {islamic,   'R', "%d.%m.%Y",  "25.9.1420",         "2000-01-01 04:05:06.000007 w6 y0" },
        {islamic,   'R', "%d %B %y",  "25 September 20",   "2000-01-01 04:05:06.000007 w6 y0" },
        {arabic,    'R', "%H",        "12",                "2001-02-03 12:05:06.000007 w6 y33"},
        {arabic,    'R', "%d",        "12",                "error 31"                         },
    };
    ko_set_current_time(__LINE__, __FILE__, 15, 6, 2024);
    for (const resolution &row : rows) {
        SCOPED_TRACE(row.names.calendar + ": " + row.format + " <- " + row.text);
        loaded_locale loc(with_times(single_byte_object(), row.names));
        ko_tm_t tm = before;
        const ko_mchar_t *end = ko_mbsptime(loc, mb(row.text), mb(row.format), &tm, row.algorithm);
        if (!end) {
            EXPECT_EQ(shown(tm), shown(before));
        }
        EXPECT_EQ(end ? shown(tm) : "error " + std::to_string(loc.error()), row.want);
    }
    ko_reset_time(__LINE__, __FILE__);
}

// A text is read as far as it is needed, from any of its characters' bytes.
TEST(TimeReading, TextsMayGoOnForLongAndEndInWhatIsNone) {
    loaded_locale narrow(with_times(single_byte_object(), plain));
    loaded_locale mixed(with_times(double_byte_object(false), plain));
    loaded_locale wide_only(with_times(double_byte_object(true), plain, true));
    for (const size_t blanks : {0u, 100u, 120u, 127u, 128u, 1000u, 9000u, 200000u}) {
        const std::string text = std::string(blanks, ' ') + "1999-Sep-30 and so on";
        ko_tm_t tm = before;
        const ko_mchar_t *end = ko_mbsptime(narrow, mb(text.c_str()), mb("%Y-%b-%d"), &tm, 'R');
        EXPECT_EQ(end, mb(text.c_str()) + blanks + 11);
        EXPECT_EQ(shown(tm), "1999-09-30 04:05:06.000007 w6 y33");
    }
    static const struct {
        const char *format, *text;
        int end, error;
    } rows[] = {
        {"%Y-%m",        "1999-12 \xFF", 7,  0           },
        {"%Y-%m",        "1999-12\xFF",  7,  0           },
        {"%Y-%m",        "1999/12\xFF",  -1, KO_EMISMATCH},
        {"%Y\x81\x40%m",
         "1999\x81\x40"
         "12x",                          8,  0           },
        {"%Y\x81\x40%m",
         "1999\x81\x41"
         "12x",                          -1, KO_EMISMATCH},
        {"%Y\x81",       "1999",         -1, KO_EILSEQ   },
        {"%B",           "Januar\xFF",   3,  0           }, // Jan
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        ko_tm_t tm = before;
        *ko_ext_errno(mixed) = 0;
        const ko_mchar_t *end = ko_mbsptime(mixed, mb(row.text), mb(row.format), &tm, 'R');
        EXPECT_EQ(end ? end - mb(row.text) : -1, row.end);
        EXPECT_EQ(mixed.error(), row.error);
    }
    ko_tm_t tm = before;
    const std::string text = encoded("1999-September!", true) + std::string(2, '\0');
    const std::string format = encoded("%Y-%B", true) + std::string(2, '\0');
    EXPECT_EQ(ko_mbsptime(wide_only, mb(text.data()), mb(format.data()), &tm, 'R'),
              mb(text.data()) + 28);
    EXPECT_EQ(ko_mbsptime(wide_only, mb(text.data()), nullptr, &tm, 'R'), nullptr);
    EXPECT_EQ(wide_only.error(), KO_EFORMAT);
    EXPECT_EQ(ko_wcsptime(wide_only, nullptr, wcs(u"").data(), &tm, 'R'), nullptr);
    EXPECT_EQ(wide_only.error(), KO_ENULL);
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

TEST(CenturyRule, AgreesWithADayCountOnEveryTodayOfACentury) {
    using namespace std::chrono;
    loaded_locale loc(with_times(single_byte_object(), plain));
    std::mt19937 random(52);
    for (sys_days today = 1950y / 1 / 1; today < sys_days(2050y / 3 / 1); today += days(1)) {
        const year_month_day now(today);
        ko_set_current_time(__LINE__, __FILE__, int(unsigned(now.day())),
                            int(unsigned(now.month())), int(now.year()));
        const int month = random() % 4 ? int(1 + random() % 12) : int(unsigned(now.month()));
        const int day = random() % 4 ? int(1 + random() % 29) : int(unsigned(now.day()));
        for (int yy = 0; yy < 100; yy++) {
            for (const char algorithm : {'C', 'F', 'P', 'R'})
                ASSERT_EQ(ko_getcentury(loc, month, day, yy, algorithm),
                          model_century(now, month, day, yy, algorithm))
                    << algorithm << ' ' << yy << '-' << month << '-' << day << " on "
                    << today.time_since_epoch().count();
        }
    }
    ko_reset_time(__LINE__, __FILE__);
}

static int fixed_date(uint16_t *mdy) {
    mdy[0] = 12, mdy[1] = 31, mdy[2] = 1999;
    return 0;
}

TEST(CenturyRule, TakesTodayFromTheHostAndRefusesImpossibleDates) {
    loaded_locale loc(with_times(single_byte_object(), plain));
    loaded_locale other(with_times(single_byte_object(), islamic));
    static const struct {
        int month, day, year, algorithm, want, error;
    } rows[] = {
        {0,  0,  99,    'F', 20, 0             }, // today
        {0,  0,  99,    'P', 18, 0             },
        {1,  1,  0,     'C', 20, 0             },
        {12, 31, 49,    'C', 19, 0             },
        {1,  1,  250,   'C', 2,  0             },
        {13, 32, 1,     'C', -1, KO_EMONTHRANGE},
        {-1, 1,  1,     'F', -1, KO_EMONTHRANGE},
        {2,  30, 1,     'P', -1, KO_EDAYRANGE  },
        {2,  29, 0,     'C', -1, KO_EDAYRANGE  }, // not in 1800, 1900
        {2,  29, 4,     'C', 20, 0             },
        {1,  1,  -1801, 'C', -1, KO_EYEARRANGE },
        {13, 32, 1,     'R', 19, 0             },
        {4,  31, 1,     'x', -1, KO_EDAYRANGE  },
        {4,  30, 1,     'x', 19, 0             },
    };
    ko_setextfunc(nullptr, KO_EXT_CURRDATE, reinterpret_cast<ko_extfn_t>(fixed_date));
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        *ko_ext_errno(loc) = 0;
        EXPECT_EQ(ko_getcentury(loc, row.month, row.day, row.year, row.algorithm), row.want);
        EXPECT_EQ(loc.error(), row.error);
        EXPECT_EQ(ko_getcentury(other, row.month, row.day, row.year, row.algorithm), 14);
    }
    ko_setextfunc(nullptr, KO_EXT_CURRDATE, nullptr);
}
