// Dates and times under every compiled locale against the C library's strftime_l. What the two do
// differently, on purpose, is listed in docs/time.md; the formats here are spelled so that they
// mean the same.
#include "peers/peer_rows.h"

#include <time.h>

#include <random>

namespace {

constexpr char zone[] = "ZONE";

class PeerTime : public PeerAscii {
  protected:
    std::string ours(const std::string &format, const tm &t) const {
        const ko_tm_t time = {0,        t.tm_sec,  t.tm_min,  t.tm_hour, t.tm_mday,
                              t.tm_mon, t.tm_year, t.tm_wday, t.tm_yday};
        ko_wchar_t out[300] = {};
        *ko_ext_errno(loc) = 0;
        ko_wcsftime(loc, out, 300, widened(format).data(), &time);
        const int error = *ko_ext_errno(loc);
        return error ? "error " + std::to_string(error) : peer_text(out);
    }
    // Without the time zone and what sets it apart.
    std::string theirs(const std::string &format, const tm &t) const {
        char out[600] = {};
        strftime_l(out, sizeof out, format.c_str(), &t, peer);
        std::string text = out;
        for (const std::string &part : {" (" + std::string(zone) + ")", " " + std::string(zone),
                                        std::string(zone) + " ", std::string(" +0000")}) {
            const size_t at = text.find(part);
            if (at != text.npos) text.erase(at, part.size());
        }
        return text;
    }
    bool has(unsigned item) const {
        const ko_wchar_t *text = ko_wc_nl_langinfo(loc, item);
        return text && *text;
    }
};

tm random_time(std::mt19937 &random, int first_year, int last_year) {
    const auto below = [&random](int n) { return int(random() % unsigned(n)); };
    tm t = {};
    t.tm_year = first_year + below(last_year - first_year + 1) - 1900;
    t.tm_mday = 1;
    const time_t when = timegm(&t) + below(365) * 86400L + below(86400);
    gmtime_r(&when, &t);
    t.tm_zone = zone;
    return t;
}

TEST_P(PeerTime, AgreesWhereTheDirectivesDo) {
    const bool eras = has(KO_ERA), digits = has(KO_ALT_DIGITS);
    const bool era_dates = GetParam().name != "ja_JP"; // whose years are padded there
    const bool lower = GetParam().name == "he_IL";     // "%P"
    const auto era = [&](unsigned item) { return !eras || has(item); };
    const std::tuple<const char *, const char *, bool> formats[] = {
        {"%a|%A|%b|%B|%h|%p",             "%a|%A|%b|%B|%h|%p",           true                                          },
        {"%C|%d|%D|%e|%y|%Y|%j|%m",       "%C|%d|%D|%e|%y|%Y|%j|%m",     true                                          },
        {"%H|%I|%M|%R|%S|%T|%n%t%%",      "%H|%I|%M|%R|%S|%T|%n%t%%",    true                                          },
        {"%.1u|%.1w|%2.1H|%2.1I|%.1d",    "%u|%w|%k|%l|%-d",             true                                          },
        {"%5.1d|%05m|%10Y",               "%_5d|%05m|%_10Y",             true                                          },
        {"%c|%x|%X",                      "%c|%x|%X",                    true                                          },
        {"%r",                            "%r",                          has(KO_T_FMT_AMPM) && has(KO_AM_STR) && !lower},
        {"%Ec",                           "%Ec",                         era(KO_ERA_D_T_FMT) && era_dates              },
        {"%Ex",                           "%Ex",                         era(KO_ERA_D_FMT) && era_dates                },
        {"%EX",                           "%EX",                         era(KO_ERA_T_FMT)                             },
        {"%EC|%.2Ey|%EY",                 "%EC|%Ey|%-EY",                true                                          },
        {"%.1Od|%.1OH|%.1Om|%.1OM|%.1OS", "%Od|%OH|%Om|%OM|%OS",         digits                                        },
        {"%Od|%OH|%OI|%Om|%OM|%OS|%Oy",   "%Od|%OH|%OI|%Om|%OM|%OS|%Oy", !digits                                       },
    };
    for (const auto &[format, peer_format, agrees] : formats) {
        if (!agrees) continue;
        std::mt19937 random(20261121);
        int differing = 0;
        for (int i = 0; i < 2000 && differing < 3; ++i) {
            const tm t = random_time(random, 1000, i % 2 ? 2100 : 9999);
            const std::string want = theirs(peer_format, t), got = ours(format, t);
            if (got == want) continue;
            ++differing;
            ADD_FAILURE() << format << " " << t.tm_year + 1900 << "-" << t.tm_mon + 1 << "-"
                          << t.tm_mday << ": " << got << "\n the C library: " << want;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Locales, PeerTime, testing::ValuesIn(peer_rows()), row_name<peer_row>);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PeerTime);

} // namespace
