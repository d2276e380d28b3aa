// Time formats of locale sources in the library's spelling.
#include "kovac/kovac_times.h"

#include <gtest/gtest.h>

using namespace kovac;

static std::vector<uint32_t> codes(const std::string &text) { return {text.begin(), text.end()}; }

TEST(KovacTimes, SpellsWhatTheLibrarySpellsOtherwise) {
    static const struct {
        const char *source, *want;
        size_t dropped;
    } rows[] = {
        {"%a %d %b %Y %r %Z", "%a %d %b %Y %r",          0},
        {"%Z %T|%a (%z)|%Z",  "%T|%a|",                  0},
        {"%-d.%-m. %-e %_H",  "%.1d.%.1m. %.1d %2.1H",   0},
        {"%k %l %P %F",       "%2.1H %2.1I %p %Y-%m-%d", 0},
        {"%OC %Oe %Op %OT",   "%.1OC %.1Od %p %OT",      0},
        {"%EY %Ed %^a %%",    "%EY %d %a %%",            0},
        {"%V%g%s%+%N %",      " ",                       6},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.source);
        std::vector<std::string> dropped;
        const std::vector<uint32_t> got = library_format(codes(r.source), dropped);
        EXPECT_EQ(std::string(got.begin(), got.end()), r.want);
        EXPECT_EQ(dropped.size(), r.dropped);
    }
}

TEST(KovacTimes, SpellsErasInTheLibrarysWay) {
    static const char *const rows[][2] = {
        {"+:1:-543/01/01:+*:B.E.:%EC %Ey",      "+:1:-542/01/01:+*:B.E.:%EC %Ey"     },
        {"-:1:-0001/12/31:-*:BC:%EC%Ey",        "-:1:0/12/31:-*:BC:%EC%Ey"           },
        {"+:2:2020/01/01:-5/1/1:R:-6/%EC:-7/1", "+:2:2020/01/01:-4/1/1:R:-6/%EC:-7/1"},
        {"+:1:1911/12/31:-*:BR:%EC",            "-:1:1911/12/31:-*:BR:%EC"           },
        {"-5/1:-4/1:-3/1",                      "-5/1:-4/1:-3/1"                     },
    };
    for (const auto &r : rows) {
        std::vector<uint32_t> definition = codes(r[0]);
        library_era(definition);
        EXPECT_EQ(std::string(definition.begin(), definition.end()), r[1]);
    }
}
