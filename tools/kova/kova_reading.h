// Reading a date so that nothing is guessed: every directive on its own, names in all their
// lengths, and a check of what was read.
#pragma once

#include <string>
#include <vector>

#include "kova/kova_day.h"
#include "kova/kova_format.h"
#include "kova/kova_names.h"

namespace kovacli {

// The bits of time_info::set.
enum seen : unsigned {
    seen_usec = 0x1,
    seen_second = 0x2,
    seen_minute = 0x4,
    seen_hour12 = 0x8,
    seen_ampm = 0x10,
    seen_hour24 = 0x20,
    seen_month_day = 0x40,
    seen_week_day = 0x80,
    seen_year_day = 0x100,
    seen_mon = 0x200,
    seen_monidx = 0x400,
    seen_era = 0x800,
    seen_era_off = 0x1000,
    seen_century = 0x2000,
    seen_year_off = 0x4000,
    seen_full_year = 0x8000,
};

// What the rest of a reading starts from.
struct date_setting {
    const codec &code;
    const time_names &names;
    std::chrono::sys_days today;
    char century;             // the rule for years of two digits
    bool short_years = false; // whole years may have fewer than four digits
};

// "14:30:05", with a fraction where there is one.
std::string clock_text(const ko_tm_t &tm);

// What the directives of a format have read.
struct read_fields {
    time_info info = {};
    wide_text era_text;               // what a whole era format (%EY) has read
    std::string fault;                // two directives contradict each other
    int iso_year = -1, iso_week = -1; // by the commands' own %G and %V
    int year_digits = 4;              // of a whole year, where it has fewer
};

struct read_date {
    ko_tm_t tm = {};
    std::vector<std::string> told; // what the text does not say, and where it comes from
    std::string fault;             // why the fields make no date; "" if they do
};

// Makes a date of what was read. A field that nothing decides, a date that does not exist and
// fields that contradict each other are faults.
read_date resolve_date(const date_setting &setting, const read_fields &fields);

// Reads a whole text, with its terminator. Throws failure.
read_date read_whole_date(const date_setting &setting, const format_text &format,
                          const wide_text &text);

} // namespace kovacli
