// Days of the Gregorian calendar as the commands on dates need them.
#pragma once

#include <chrono>
#include <string>

#include "kova.h"

namespace kovacli {

// The fields of a day at midnight, with its weekday and its day of the year.
ko_tm_t tm_of(std::chrono::sys_days day);
ko_alt_tm_t alt_of(std::chrono::sys_days day);

// The day of a record. Its fields must make a date.
std::chrono::sys_days day_of(const ko_tm_t &tm);

// "2026-11-21".
std::string day_text(std::chrono::sys_days day);

// Why there is no such date: "February 2026 has 28 days"; "" if there is one. month is from 1.
std::string date_fault(int year, int month, int day);

// The system's date.
std::chrono::sys_days system_day();

} // namespace kovacli
