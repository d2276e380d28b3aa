// Days of the Gregorian calendar.
#include "kova/kova_day.h"

#include <cstdio>

namespace kovacli {

using namespace std::chrono;

ko_tm_t tm_of(sys_days day) {
    const year_month_day date = day;
    ko_tm_t tm = {};
    tm.tm_year = int(date.year()) - 1900;
    tm.tm_mon = int(unsigned(date.month())) - 1;
    tm.tm_mday = int(unsigned(date.day()));
    tm.tm_wday = int(weekday{day}.c_encoding());
    tm.tm_yday = int((day - sys_days{date.year() / January / 1}).count());
    return tm;
}

ko_alt_tm_t alt_of(sys_days day) {
    const ko_tm_t tm = tm_of(day);
    ko_alt_tm_t alt = {};
    alt.alt_tm_year = tm.tm_year;
    alt.alt_tm_mon = alt.alt_tm_monidx = tm.tm_mon;
    alt.alt_tm_mday = tm.tm_mday;
    alt.alt_tm_wday = tm.tm_wday;
    alt.alt_tm_yday = tm.tm_yday;
    return alt;
}

sys_days day_of(const ko_tm_t &tm) {
    return year{tm.tm_year + 1900} / (tm.tm_mon + 1) / tm.tm_mday;
}

std::string day_text(sys_days day) {
    const year_month_day date = day;
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u", int(date.year()), unsigned(date.month()),
                  unsigned(date.day()));
    return text;
}

std::string date_fault(int year_ad, int month_no, int day_no) {
    static const char *const names[] = {"January",   "February", "March",    "April",
                                        "May",       "June",     "July",     "August",
                                        "September", "October",  "November", "December"};
    if (month_no < 1 || month_no > 12)
        return "there is no month " + std::to_string(month_no) + " in a year";
    const year_month_day_last last = year{year_ad} / month_no / std::chrono::last;
    const auto days = int(unsigned(last.day()));
    if (day_no >= 1 && day_no <= days) return "";
    return std::string(names[month_no - 1]) + " " + std::to_string(year_ad) + " has " +
           std::to_string(days) + " days";
}

sys_days system_day() {
    uint16_t mdy[3] = {};
    ko_ext_currdate(mdy);
    return year(mdy[2]) / int{mdy[0]} / int{mdy[1]};
}

} // namespace kovacli
