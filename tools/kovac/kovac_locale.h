// A locale in the shape of its object file, and the readers that fill it from a source.
// LC_COLLATE has its own header.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "common/tool_charmap.h"
#include "common/tool_source.h"
#include "kovac/kovac_collate.h"
#include "kovac/kovac_translit.h"

namespace kovac {

// A class of the locale's own; bit counts from the first bit after the standard classes.
struct user_class {
    int bit;
    std::string name;
};

struct ctype_section {
    std::vector<uint16_t> masks;                         // per character of the charmap
    std::vector<user_class> classes;                     // at most 5
    std::vector<uint16_t> case_index;                    // per character; 0: no partner
    std::vector<std::pair<uint16_t, uint16_t>> pairs{1}; // upper, lower; entry 0 is unused
    double case_ratio = 1.0; // the most that case mapping lengthens a string, in bytes
};

constexpr int absent_number = 0x7FFFFFFF; // a monetary number that the source leaves open

// Strings are bytes of the code set without terminator; an absent one is empty.
struct numeric_section {
    std::string decimal_point, thousands_sep;
    std::vector<int> grouping;
    std::string positive_sign, negative_sign;
};

struct monetary_section {
    std::string int_curr_symbol, currency_symbol, decimal_point, thousands_sep;
    std::vector<int> grouping;
    std::string positive_sign, negative_sign;
    // int_frac_digits, frac_digits, p_cs_precedes, p_sep_by_space, n_cs_precedes, n_sep_by_space,
    // p_sign_posn, n_sign_posn
    std::array<int, 8> numbers{absent_number, absent_number, absent_number, absent_number,
                               absent_number, absent_number, absent_number, absent_number};
};

struct time_section {
    std::string calendar = "gregorian";           // or "hebrew", "islamic", "arabic"
    int first_weekday = 0;                        // of calendars on paper, 0 is Sunday
    std::vector<std::string> abday, day;          // 7 each, Sunday first
    std::vector<std::string> abmon, mon;          // 12 to 14
    std::vector<std::string> ab_alt_mon, alt_mon; // where they differ without a day; may be empty
    std::string d_t_fmt, d_fmt, t_fmt;
    std::vector<std::string> am_pm; // 2
    std::string t_fmt_ampm;
    std::vector<std::string> era;
    std::string era_d_fmt, era_t_fmt, era_d_t_fmt;
    std::vector<std::string> alt_digits;
};
constexpr size_t months_min = 12, months_max = 14;

struct messages_section {
    std::string yesexpr, noexpr, yesstr, nostr;
};

struct locale_object {
    std::string codeset;                  // code-set name line, at most 19 characters
    std::vector<std::string> description; // header lines from the fourth on
    ctype_section ctype;
    collation collate;
    numeric_section numeric;
    monetary_section monetary;
    time_section time;
    messages_section messages;
};

// The input of the categories that consist of strings and numbers.
struct text_job {
    source_set &set;
    const charmap &map;
    diagnostics &diag;
    translit &fallback;
    bool formats = false; // a "%" in a string begins a time directive
};

// Compile one category of set.main, including copies. Errors go to diag; false if there were any.
bool compile_ctype(source_set &set, const charmap &map, diagnostics &diag, ctype_section &out);
bool compile_numeric(const text_job &job, numeric_section &out);
bool compile_monetary(const text_job &job, monetary_section &out);
bool compile_time(const text_job &job, time_section &out);
bool compile_messages(const text_job &job, messages_section &out);

// The letters that differ in case only: what LC_CTYPE maps to lower case, and katakana with
// hiragana.
std::vector<letter_pair> case_pairs(const ctype_section &ctype, const charmap &map);

// Header lines with the months of the Umm al-Qura calendar, for locales whose calendar is Islamic;
// none where ICU is missing.
std::vector<std::string> umalqura_lines();

// Compiles all six categories. report may be null.
bool compile_locale(source_set &set, const charmap &map, diagnostics &diag, locale_object &out,
                    proof_report *report, const collation_options &options = {});

// Gets a category's logical lines, including those of copied sources, in the order in which they
// take effect. Leaves out lines between translit_start and translit_end. False after an error.
bool category_lines(source_set &set, diagnostics &diag, std::string_view category,
                    std::vector<std::vector<token>> &lines);

} // namespace kovac
