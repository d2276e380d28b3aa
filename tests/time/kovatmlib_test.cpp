// Formatting of times, measuring, eras and the lists of names.
#include "support/answer.h"
#include "time/time_records.h"

#include <limits.h>

static const times plain = {
    .abday = "Su|Mo|Tu|We|Th|Fr|Sa",
    .eras = "+:2:1990/01/01:+*:Heisei:H:%EC-%Ey|+:1:1989/01/08:1989/12/31:Heisei:H:%EC-first|"
            "+:5:1980/06/15:1989/01/07:Showa::%EC:%Ey|-:1:1979/12/31:-*:Before:%Ey years %EC",
    .digits = "o|i|ii|iii|iv|v|vi|vii|viii|ix",
};
static const times bare = {.formats = "%c|%x|%T|am|pm|"};
static const times looped = {
    .formats = "%c|%X|%X%X|%EY|pm|", .eras = "+:1:1/1/1:+*:A:%EY", .era_formats = "|%H|%r"};

// Saturday 7 November 2026, 12:09:05.123456.
static const ko_tm_t noon = {123456, 5, 9, 12, 7, 10, 126, 6, 310};

// What a format makes of a time, or "error N" or what else the call has said; in bytes as well.
static std::string formatted(ko_lc_t loc, std::string_view format, const ko_tm_t &tm,
                             int maxsize = 200) {
    ko_wchar_t out[201] = {};
    ko_mchar_t bytes[201] = {};
    int &error = *ko_ext_errno(loc) = 0;
    const int m = ko_mbsftime(loc, bytes, maxsize, mb(std::string(format).c_str()), &tm);
    const int byte_error = std::exchange(error, 0);
    const int n = ko_wcsftime(loc, out, maxsize, in_code_set(loc, format).data(), &tm);
    EXPECT_EQ(byte_error, error) << format;
    EXPECT_EQ(m, error ? 0 : n) << format;
    if (error) return (n ? "-1 error " : "error ") + std::to_string(error);
    const std::u16string got = wide(out);
    EXPECT_EQ(got.size(), size_t(n)) << format;
    EXPECT_EQ(text(bytes), std::string(got.begin(), got.end()));
    return text(bytes);
}

TEST(TimeFormat, WritesEachDirective) {
    const loaded_locale loc(with_times(single_byte_object(), plain));
    static const char *const rows[][2] = {
        {"100%%%n%t|",                        "100%\n\t|"                                       },
        {"%a %A %b %h %B",                    "Sa Saturday Nov Nov November"                    },
        {"%C %g %d %D %e",                    "20 20 07 11/07/26  7"                            },
        {"%F %F3 %F0|%.3F %.7F",              "123456 123 |123 1234560"                         },
        {"%iF %iF0 %iF4 %iY %iy",             ".12 . .1234 2026 26"                             },
        {"%H %I %j %m %M %p %S",              "12 12 311 11 09 pm 05"                           },
        {"%R %T %u %w %y %Y",                 "12:09 12:09:05 06 06 26 2026"                    },
        {"%x|%X|%c|%r",                       "07.11.2026|12:09:05|07.11.2026 12:09:05|12:09 pm"},
        {"%EC %Eg %Ey %EY",                   "Heisei H 38 Heisei-38"                           },
        {"%Ex|%EX|%Ec",                       "Heisei38 11/07|12.09|Heisei38 11/07 12.09"       },
        {"%Od %Oe %OH %Oj %Ou",               "ovii  vii iii iiiii ovi"                         },
        {"%OD %OR %OC",                       "ii/ovii/iivi iii:oix iio"                        },
        {"%5d|%-5d|%05d|%.1d|%5.3d|",         "   07|07   |00007|7|  007|"                      },
        {"%4e|%-4e|%04e|%.2e|",               "   7| 7  | 007| 07|"                             },
        {"%10A|%-10A|%010A|%.3A|%5.3A|%.0A|",
         "  Saturday|Saturday  |00Saturday|Sat|  Sat|Saturday|"                                 },
        {"%10F3|%-8F2|%09.4F|%8iF|",          "       123|12      |000001234|.      12|"        },
        {"%8EC|%-8Ey|%.2Eg|",                 "  Heisei|38      |H|"                            },
        {"%8Od|%-8Od|%08Od|%.3Od|%09.1Om|",   "    ovii|ovii    |ooooovii|oovii|oooooooii|"     },
        {"%+#' d%12D%5T%9c",                  "0711/07/2612:09:0507.11.2026 12:09:05"           },
    };
    for (const auto &r : rows)
        EXPECT_EQ(formatted(loc, r[0], noon), r[1]) << r[0];
}

TEST(TimeFormat, ChecksTheRangeOfEachField) {
    const loaded_locale loc(with_times(single_byte_object(), plain));
    // formats: by blanks
    static const std::tuple<const char *, int ko_tm_t::*, int, int, int> rows[] = {
        {"%a %A %u %w %Ou",                 &ko_tm_t::tm_wday, 0,     6,    KO_EWDAYRANGE },
        {"%b %h %B %m %D %Om %EC %Eg %Ey",  &ko_tm_t::tm_mon,  0,     11,   KO_EMONTHRANGE},
        {"%C %g %Y %iY %OC %EC %Eg %Ey %x", &ko_tm_t::tm_year, -1900, 8099, KO_EYEARRANGE },
        {"%d %e %D %Od %Oe %EC %Eg %Ey",    &ko_tm_t::tm_mday, 1,     99,   KO_EDAYRANGE  },
        {"%H %I %p %R %T %OI %X %EX",       &ko_tm_t::tm_hour, 0,     23,   KO_EHOUR      },
        {"%j %Oj",                          &ko_tm_t::tm_yday, 0,     365,  KO_EYDAY      },
        {"%M %R %T %OM",                    &ko_tm_t::tm_min,  0,     59,   KO_EMIN       },
        {"%S %T %OS",                       &ko_tm_t::tm_sec,  0,     61,   KO_ESEC       },
    };
    for (const auto &[formats, field, first, last, error] : rows)
        for (const std::string &format : split(formats, ' '))
            for (const int value : {INT_MIN, first - 1, first, last, last + 1, INT_MAX}) {
                ko_tm_t tm = noon;
                tm.*field = value;
                const bool in = value >= first && value <= last;
                const std::string want = "error " + std::to_string(error);
                EXPECT_EQ(formatted(loc, format, tm) != want, in) << format << " of " << value;
            }
    for (const ko_long_t usec : {-1, 1000000}) {
        ko_tm_t tm = noon;
        tm.tm_usec = usec;
        for (const char *format : {"%F", "%iF", "%F2"})
            EXPECT_EQ(formatted(loc, format, tm), "error 33");
    }
}

TEST(TimeFormat, ShowsValuesAtTheEdges) {
    const loaded_locale loc(with_times(single_byte_object(), plain));
    static const std::tuple<const char *, const char *, int ko_tm_t::*, int> rows[] = {
        {"%I %OI %p", "12 iii am", &ko_tm_t::tm_hour, 0      },
        {"%I %p",     "01 pm",     &ko_tm_t::tm_hour, 13     },
        {"%u %w",     "07 00",     &ko_tm_t::tm_wday, 0      },
        {"%e|%Oe",    "31|iiii",   &ko_tm_t::tm_mday, 31     },
        {"%Y%C%y",    "0000000",   &ko_tm_t::tm_year, -1900  },
        {"%y %iy",    "-01 -01",   &ko_tm_t::tm_year, -1901  },
        {"%y",        "47",        &ko_tm_t::tm_year, INT_MAX},
        {"%C",        "5",         &ko_tm_t::tm_year, -1400  },
        {"%-5y|%Oy",  "-05  |-ov", &ko_tm_t::tm_year, -1905  },
        {"%j",        "366",       &ko_tm_t::tm_yday, 365    },
    };
    for (const auto &[format, want, field, value] : rows) {
        ko_tm_t tm = noon;
        tm.*field = value;
        EXPECT_EQ(formatted(loc, format, tm), want) << format << " of " << value;
    }
}

TEST(TimeFormat, RefusesWhatIsNoFormat) {
    const loaded_locale with(with_times(single_byte_object(), plain)),
        without(with_times(single_byte_object(), bare)),
        loops(with_times(single_byte_object(), looped));
    // formats: by blanks
    static const std::tuple<const loaded_locale &, const char *, const char *> rows[] = {
        {with,    "error 22",    "%q %Eq %OY %iH %*d %.*d %1$d"               },
        {with,    "error 15",    "% a%-05 %E %O %i"                           },
        {with,    "error 45",    "%.-d"                                       },
        {with,    "-1 error 22", "%F6 %iF9"                                   },
        {with,    "error 14",    "%99999999999d %.99999999999Od %.9999999999F"},
        {with,    "Saturday",    "%.99999999999A"                             },
        {without, "2007",        "%EC%Od"                                     },
        {without, "202620",      "%EY%Eg"                                     },
        {without, "error 22",    "%EEC %OOd %x"                               }, // "%x" holds itself
        {without, "error 15",    "%E"                                         },
        {loops,   "error 22",    "%c %EY %X"                                  },
        {loops,   "12",          "%EX%Ex"                                     },
    };
    for (const auto &[loc, want, formats] : rows)
        for (const std::string &format : split(formats, ' ')) {
            EXPECT_EQ(formatted(loc, format, noon), want) << format;
            if (!strstr(want, "error ") || !strcmp(want, "error 14")) continue;
            EXPECT_EQ(ko_mbsfmtexpand(loc, 1, mb(format.c_str())), -1) << format;
            EXPECT_TRUE(std::string(want).ends_with(" " + std::to_string(loc.error()))) << format;
        }
    EXPECT_EQ(answered(with, ko_mbsfmtexpand(with, 2, mb("%d"))), answer(-1, KO_ERANGE));
}

TEST(TimeFormat, FitsExactlyOrFails) {
    const loaded_locale loc(with_times(single_byte_object(), plain));
    for (const char *format : {"abc", "%d", "%A", "%10A", "%-10A", "%5d", "%F", "%iF3", "%T", "%EC",
                               "%Ey", "%EY", "%Od", "%8Od", "%-8Od|", "%e", "%C", "%n%%", "%j"}) {
        const std::string whole = formatted(loc, format, noon);
        const int size = int(whole.size());
        for (int max = -1; max <= size + 2; max++) {
            const bool fits = max > size;
            EXPECT_EQ(formatted(loc, format, noon, max), fits ? whole : "error 14") << format;
        }
    }
    // The full year alone tells its own lack of room.
    EXPECT_EQ(formatted(loc, "%Y", noon, 3), "error 41");
    EXPECT_EQ(formatted(loc, "%Y", noon, 4), "error 14");
    EXPECT_EQ(formatted(loc, "%iY", noon, 3), "error 14");
}

TEST(TimeFormat, FindsTheFirstEraAndCountsItsYears) {
    const loaded_locale loc(with_times(single_byte_object(), plain));
    // Showa's years change on the anniversary, not on New Year.
    for (const auto &w :
         table("2026 11 7 Heisei~38~Heisei-38; 1990 1 1 Heisei~2~Heisei-2; "
               "1989 1 8 Heisei~1~Heisei-first; 1989 1 7 Showa~13~Showa:13; "
               "1988 6 14 Showa~12~Showa:12; 1980 6 15 Showa~5~Showa:5; 1980 6 14 error~9; "
               "1979 12 31 Before~1~1~years~Before; 1979 12 30 Before~1~1~years~Before; "
               "1978 12 31 Before~2~2~years~Before")) {
        ko_tm_t tm = noon;
        tm.tm_year = whole(w[0]) - 1900, tm.tm_mon = whole(w[1]) - 1, tm.tm_mday = whole(w[2]);
        EXPECT_EQ(formatted(loc, "%EC %Ey %EY", tm), w[3]) << w[0] + "-" + w[1] + "-" + w[2];
    }
}

// ---- Measuring ----------------------------------------------------------------------------------

TEST(TimeMeasure, CountsTheLargestOutput) {
    times t = plain;
    t.eras += "|-:-12345:900/12/31:-*:Early:%EC";
    const loaded_locale loc(with_times(single_byte_object(), t));
    for (const std::string &row :
         split("abc%%%n 5|%d%H%y 6|%Y 4|%C%e%j 7|%F%F3%iF 12|%.9F%5iF 15|%A 9|%12A%.3A 15|%B 9|"
               "%5d%.3d 8|%.3e%5e 9|%T%D%R 21|%x%X%c%r 45|%EC%Eg 12|%Ey 6|%EY 19|%Ec 24|%.7Ey 8|"
               "%2.1Ey 6|%Od 8|%10Od 10")) {
        const auto words = split(row, ' ');
        EXPECT_EQ(ko_wcsfmtexpand(loc, 1, in_code_set(loc, words[0]).data()), whole(words[1]))
            << row;
    }
    // Names are gone through once for each precision that alternates, in whatever order.
    t.mon = std::string(9000, 'x') + t.mon;
    t.formats = t.eras = t.era_formats = "";
    for (int i = 0; i < 9000; ++i)
        t.formats += "%B", t.era_formats += i < 2000 ? "%.8B%.9000B" : "";
    for (int i = 0; i < 4000; ++i)
        t.eras += i ? "|+:1:1/1/1:+*:AB:C:" : "+:1:1/1/1:+*:AB:C:", t.eras += "%EC%Eg%Ey";
    t.formats = "|" + t.formats + "||am|pm|", t.era_formats += "||";
    const loaded_locale costly(with_times(single_byte_object(), t));
    EXPECT_EQ(ko_mbsfmtexpand(costly, 1, mb("%x")), 9000 * 9007);
    EXPECT_EQ(ko_mbsfmtexpand(costly, 1, mb("%EC%EY%.9B%EY%.8B%EY")), 2 + 7 + 9 + 7 + 8 + 7);
    EXPECT_EQ(answered(costly, ko_mbsfmtexpand(costly, 1, mb("%Ex"))), answer(-1, KO_EDIRECTIVE));
    int columns = 5, bytes = 7;
    const auto bad = wcs(u"abc%q"), good = wcs(u"%d");
    EXPECT_EQ(ko_wcsftime1(loc, nullptr, 0, bad.data(), nullptr, &columns, &bytes), 0);
    EXPECT_EQ(columns * 10 + bytes, 57);
    EXPECT_EQ(ko_wcsftime1(loc, nullptr, 0, good.data(), nullptr, &columns, nullptr), 0);
    EXPECT_EQ(ko_mbsftime1(loc, nullptr, 0, mb("%d"), nullptr, nullptr, &bytes), 0);
    EXPECT_EQ(columns * 10 + bytes, 79);
}

// Columns of a result; characters where the locale's own text is in it, which counts so.
static int columns_of(ko_lc_t loc, const ko_wchar_t *wcs, const std::string &format) {
    static const std::string own = "%c %x %X %r %EY %Ec %Ex %EX %9EY ";
    if (own.find(format + " ") != own.npos) return ko_wcslen(wcs);
    const errno_guard kept(loc);
    int columns = 0;
    for (; *wcs; ++wcs)
        columns += abs(ko_wcwidth(loc, *wcs)); // -1: of no character
    return columns;
}

TEST(CompiledLocales, WriteNoMoreThanTheMeasure) {
    const auto objects = compiled_objects();
    if (objects.empty()) GTEST_SKIP() << "no compiled data root";
    const auto formats =
        split("%a %A %b %B %C %d %D %e %F %F3 %iF %H %I %j %m %M %p %R %S %T %u %w %y %Y %iY %iy "
              "%c %x %X %r %EC %Eg %Ey %EY %Ec %Ex %EX %OC %Od %Oe %OH %OI %Oj %Om %Oy %Ou %OD %OT "
              "%9A %-9b| %.2A %03d %.3m %4e %.2e %7F %9Od %09Oj %.4Oy %-8Ow %2EC %7.1B %9EY %12Eg "
              "%.1iF",
              ' ');
    long written = 0;
    for (const auto &path : objects) {
        const compiled_locale loc(path);
        for (const std::string &format : formats) {
            std::mt19937 random(20261121);
            const auto wide_format = in_code_set(loc, format);
            int columns = 0, bytes = 0;
            ko_wcsftime1(loc, nullptr, 0, wide_format.data(), nullptr, &columns, &bytes);
            for (int i = 0; i < seeded_times && !HasFailure(); i++) {
                const ko_tm_t tm = random_time(random);
                ko_wchar_t out[200];
                ko_mchar_t narrow[400];
                if (ko_wcsftime(loc, out, 200, wide_format.data(), &tm) <= 0) continue;
                written++;
                EXPECT_LE(columns_of(loc, out, format), columns) << loc.name << " " << format;
                EXPECT_LE(ko_full_wcstombs(loc, narrow, out, 400), bytes) << format;
            }
        }
    }
    EXPECT_GT(written, seeded_times * 40L * long(objects.size()));
}

// ---- Eras, names, memory ------------------------------------------------------------------------

// A definition in the locale, and what becomes of it; the load fails where that is nothing.
TEST(Eras, TellNameAbbreviationAndFormatApartOrFailTheLoad) {
    const auto check = [](const std::string &definition, const std::string &want) {
        SCOPED_TRACE(definition);
        times t = plain;
        t.eras = "+:1:1/1/1:+*:A:%EY|" + definition;
        const locale_object object = with_times(single_byte_object(), t);
        env_hooks env;
        file_hooks files;
        files.files[std::string(object_path) + "x.lco"] = object.str();
        owned<ko_lc_unload> loc;
        const int result = ko_lc_load(&loc.handle, "x.lco", nullptr, nullptr);
        EXPECT_EQ(answered(loc, result), want.empty() ? answer(-1, KO_ECODESET) : answer(0, 0));
        if (want.empty()) return;
        const lera &era = record(loc)->ltime_info.decode_era[1];
        EXPECT_EQ(text(era.name) + " " + text(era.abbr) + " " + text(era.format), want);
    };
    for (const std::string &row :
         split("+:1:1990/01/08:+*:Era:%EC = Era Era %EC|-:-1:-5/1/1:2000/12/31:E:: = E E |"
               "+:+7:+5/1/1:-*:E: = E E |+:1:1/1/1:+*:Era:E:%H:%M = Era E %H:%M|"
               "+:1:1/1/1:+*:Era:%H:%M = Era Era %H:%M|+:1:1/1/1:+*:Era::%Ey = Era Era %Ey|"
               "+:1:1/1/1:+*:Era:E: = Era E "))
        check(row.substr(0, row.find(" = ")), row.substr(row.find(" = ") + 3));
    for (const std::string &bad :
         split("|*:1:1990/01/08:+*:Era:%EC|+::1990/01/08:+*:Era:%EC|+:1:1990/13/08:+*:Era:%EC|"
               "+:1234567890:1990/01/08:+*:E:%EC|+:1:1990/01/32:+*:Era:%EC|+:1:1990/0/1:+*:Era:%EC|"
               "+:1:1990/01:+*:Era:%EC|+:1:1990/01/08:*:Era:%EC|+:1:1990/01/08:+*::%EC|"
               "+:1:1990/01/08:+*:Era|+:1: 1990/01/08:+*:Era:%EC"))
        check(bad, "");
}

// The strings of a group, joined; "result count" without.
static std::string group(ko_lc_t loc, int infotype) {
    int count = 77;
    ko_mchar_t *none = nullptr, **strs = &none;
    const int result = ko_mbstimeinfo(loc, infotype, &strs, &count);
    std::string joined = std::to_string(result) + " " + std::to_string(count);
    for (int i = 0; strs && strs != &none && i < count; i++) {
        joined += " " + (strs[i] ? text(strs[i]) : "NULL");
        ko_destroystring(strs[i]);
    }
    if (strs != &none) ko_destroystring(strs);
    return joined;
}

TEST(TimeNames, AreCopiedByGroup) {
    const memory_hooks memory;
    {
        const loaded_locale loc(with_times(single_byte_object(), plain)),
            without(with_times(single_byte_object(), bare));
        const auto groups =
            split("-1 77|0 7 Sunday Monday Tuesday Wednesday Thursday Friday Saturday|"
                  "0 7 Su Mo Tu We Th Fr Sa|0 12 January February March April May Jun June August "
                  "September October November December|"
                  "0 12 Jan Feb Mar Apr May Jn Jl Aug Sep Oct Nov Dec|"
                  "0 4 Heisei Heisei Showa Before|0 4 H H Showa Before|"
                  "0 10 o i ii iii iv v vi vii viii ix|0 2 am pm|-1 77");
        for (int i = 0; i < 10; i++)
            EXPECT_EQ(group(loc, i), groups[size_t(i)]) << i;
        EXPECT_EQ(loc.error(), 0);
        for (const int i : {5, 6, 7})
            EXPECT_EQ(group(without, i), "-1 0");
        free_ptr(record(without)->ltime_info.am_pm[0]);
        record(without)->ltime_info.am_pm[0] = nullptr;
        EXPECT_EQ(group(without, 8), "0 2 NULL pm");
        EXPECT_EQ(without.error(), KO_ENULL);
    }
    EXPECT_EQ(memory.live, 0);
}

TEST(TimeFormat, SurvivesEveryAllocationFailure) {
    const loaded_locale loc(with_times(single_byte_object(), plain));
    const std::string format(300, 'x');
    static ko_mchar_t out[400];
    const long failed = each_allocation_fails([&] {
        *ko_ext_errno(loc) = 0;
        const int n = ko_mbsftime(loc, out, 400, mb(format.c_str()), &noon);
        EXPECT_EQ(loc.error(), n ? 0 : KO_ENOMEM);
        return n == 300;
    });
    EXPECT_EQ(failed, 2); // format and result
    each_allocation_fails([&] {
        const std::string copies = group(loc, 3);
        EXPECT_TRUE(copies == "-1 0" || copies.substr(0, 4) == "0 12") << copies;
        return copies != "-1 0";
    });
    // The formats of the wide form and short ones take no memory at all.
    const memory_hooks memory;
    formatted(loc, "%A %c %EY %Od %20A", noon, 128);

    EXPECT_EQ(memory.calls, 0);
}
