// Moments as people type them: now, dates and times of ISO 8601, @SECONDS, and steps from there.
#pragma once

#include <cstdint>
#include <string>

#include "kova/kova_day.h"

namespace kovacli {

// A time on the clocks of a zone.
struct moment {
    ko_tm_t tm = {};
    int64_t seconds = 0; // since 1970 in UTC
    int offset = 0;      // of the zone, in seconds
    std::string zone;    // its abbreviation
};

struct iso_week {
    int year, week;
};
iso_week iso_week_of(std::chrono::sys_days day);

// Chooses the zone of all moments: a name of the system's zone data, UTC or an offset such as
// +02:00; "" for that of the system, which TZ may name. Throws failure.
void choose_zone(const std::string &name);

// Reads a moment. option names it in messages. Throws failure.
moment moment_of(const std::string &text, const std::string &option);

// A distance such as "1 month" or "-2 weeks".
struct time_step {
    int64_t months = 0, days = 0, seconds = 0;
};
time_step step_of(const std::string &text, const std::string &option);

// A moment so many steps from another. A day that its month lacks becomes the month's last, which
// standard error tells. Throws failure beyond the years 0 to 9999.
moment moved(const moment &from, const time_step &step, int64_t times);

// The same moment, by clocks whose offset from UTC has no seconds.
moment in_whole_minutes(const moment &when);

// "2026-11-21 14:30:05".
std::string moment_text(const moment &when);

} // namespace kovacli
