// Conversion of dates between the Gregorian calendar and the locale's.
#include "time/kovatmcvt.h"
#include "locale/kovautils.h"
#include "time/kovatmlib.h"

#include <iterator>

// By calendar number; dates of a calendar that is not here cannot be converted.
static constexpr struct {
    bool (*from_gregorian)(const calendar_date &from, calendar_date *to);
    bool (*to_gregorian)(const calendar_date &from, calendar_date *to);
    int century; // of two-digit years
} calendars[] = {
    {nullptr,              nullptr,              0 },
    {nullptr,              nullptr,              0 },
    {gregorian_to_hebrew,  hebrew_to_gregorian,  57},
    {gregorian_to_islamic, islamic_to_gregorian, 14},
};

static unsigned calendar_of(ko_lc_t loc) {
    const auto number = unsigned(record(loc)->ltime_info.calendar);
    return number < std::size(calendars) ? number : unsigned{calendar_none};
}

static bool convert(bool (*conversion)(const calendar_date &, calendar_date *),
                    const ko_alt_tm_t *from, ko_alt_tm_t *to) {
    if (!conversion) return false;
    const calendar_date date = {from->alt_tm_year + int64_t{1900}, from->alt_tm_mon,
                                from->alt_tm_monidx, from->alt_tm_mday};
    calendar_date result = {};
    if (!conversion(date, &result)) return false;
    *to = *from;
    to->alt_tm_year = int(result.year - 1900);
    to->alt_tm_mon = int(result.month);
    to->alt_tm_monidx = int(result.index);
    to->alt_tm_mday = int(result.day);
    to->alt_tm_wday = int(result.weekday);
    to->alt_tm_yday = int(result.yearday);
    return true;
}

static int convert_date(ko_lc_t loc, const ko_alt_tm_t *from, ko_alt_tm_t *to, bool to_gregorian) {
    if (!loc || !from || !to) return fail(loc, KO_ENULL, -1);
    const unsigned number = calendar_of(loc);
    const auto &c = calendars[number];
    if (number == calendar_gregorian) {
        *to = *from;
    } else if (!convert(to_gregorian ? c.to_gregorian : c.from_gregorian, from, to)) {
        *to = {};
        return -1;
    }
    return 0;
}

int ko_cal_gregorian_to_local(ko_lc_t loc, const ko_alt_tm_t *gregorian, ko_alt_tm_t *local) {
    return convert_date(loc, gregorian, local, false);
}

int ko_cal_local_to_gregorian(ko_lc_t loc, const ko_alt_tm_t *local, ko_alt_tm_t *gregorian) {
    return convert_date(loc, local, gregorian, true);
}

int ko_alt_getcentury(ko_lc_t loc, int, int, int, int) {
    return loc ? calendars[calendar_of(loc)].century : 0;
}
