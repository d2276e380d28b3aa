// The months of the Umm al-Qura calendar, which no rule gives, as ICU knows them.
#include "kovac/kovac_locale.h"

#include <cstdio>

#if defined(KOVAC_HAS_ICU)
#include "kovac/kovac_icu.h"
#define U_SHOW_CPLUSPLUS_API 0
#include <unicode/ucal.h>
#endif

namespace kovac {

#if !defined(KOVAC_HAS_ICU)

std::vector<std::string> umalqura_lines() { return {}; }

#else

namespace {

struct icu_calendars : icu_part {
    icu_calendars() : icu_part("libicui18n.so." KOVAC_NAME(U_ICU_VERSION_MAJOR_NUM)) {}
    KOVAC_ICU_FUNCTION(open, ucal_open);
    KOVAC_ICU_FUNCTION(close, ucal_close);
    KOVAC_ICU_FUNCTION(clear, ucal_clear);
    KOVAC_ICU_FUNCTION(set_date, ucal_setDate);
    KOVAC_ICU_FUNCTION(millis, ucal_getMillis);
};

constexpr int first_year = 1300, years = 300, months = 12, years_in_line = 36;

// The day on which a month begins, counted since 1970; index counts from the first month.
long begin_of_month(const icu_calendars &icu, UCalendar *calendar, int index, UErrorCode *status) {
    icu.clear(calendar);
    icu.set_date(calendar, first_year + index / months, index % months, 1, status);
    return long(icu.millis(calendar, status) / 86400000.0);
}

} // namespace

// The first line has the day on which the first year begins, and the others three hexadecimal
// digits for each year, of which the highest bit is set if its first month has 30 days, and so on.
std::vector<std::string> umalqura_lines() {
    static const icu_calendars icu;
    if (!icu.complete) return {};
    static constexpr UChar utc[] = {'U', 'T', 'C', 0};
    UErrorCode status = U_ZERO_ERROR;
    UCalendar *const calendar =
        icu.open(utc, 3, "en@calendar=islamic-umalqura", UCAL_TRADITIONAL, &status);
    if (!calendar || U_FAILURE(status)) return {};
    long begin = begin_of_month(icu, calendar, 0, &status);
    std::vector<std::string> lines = {"UMALQURA=" + std::to_string(first_year) + " " +
                                      std::to_string(begin)};
    bool regular = true;
    for (int year = 0; year < years; ++year) {
        unsigned bits = 0;
        for (int month = 0; month < months; ++month) {
            const long next = begin_of_month(icu, calendar, year * months + month + 1, &status);
            regular &= next - begin == 29 || next - begin == 30;
            bits = bits * 2 + (next - begin == 30);
            begin = next;
        }
        char text[8];
        snprintf(text, sizeof text, "%03x", bits);
        if (year % years_in_line == 0)
            lines.push_back("UMALQURA_" + std::to_string(lines.size()) + "=");
        lines.back() += text;
    }
    icu.close(calendar);
    return regular && U_SUCCESS(status) ? lines : std::vector<std::string>();
}

#endif

} // namespace kovac
