// A format and a text from anywhere, divided by a newline: reading and writing end, bytes are read
// as wide characters are, the measured length suffices, and what was written and read back says the
// same again the next time, where a blank or sign divides its directives.
#include "fuzz_host.h"
#include "load/kovasetlc_load.h"
#include "time/kovatmlib.h"

#include <string.h>

#include <string>

static const ko_mchar_t *mb(const std::string &text) {
    return reinterpret_cast<const ko_mchar_t *>(text.c_str());
}

static ko_mchar_t *kept(const char *text) {
    const size_t size = strlen(text);
    ko_mchar_t *copy = static_cast<ko_mchar_t *>(ko_ext_malloc(size + 4));
    memset(copy, 0, size + 4);
    memcpy(copy, text, size);
    return copy;
}

template <size_t n> static ko_mchar_t **kept_list(const char *const (&texts)[n], int *count) {
    ko_mchar_t **list = static_cast<ko_mchar_t **>(ko_ext_malloc(n * sizeof *list));
    for (size_t i = 0; i < n; i++)
        list[i] = kept(texts[i]);
    *count = static_cast<int>(n);
    return list;
}

// Times with eras of one name, digits of several characters and formats that contain themselves.
static void fill_times(ltime *t) {
    static const char *const days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char *const full_days[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                            "Thursday", "Friday", "Saturday"};
    static const char *const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    static const char *const full_months[] = {"January",   "February", "March",    "April",
                                              "May",       "June",     "July",     "August",
                                              "September", "October",  "November", "December"};
    static const char *const eras[] = {
        "+:2:1990/01/01:+*:Heisei:H:%EC%Ey", "+:1:1989/01/08:1989/12/31:Heisei:H:%EC-first",
        "+:2:1927/01/01:1989/01/07:Showa:S:%EC%Ey", "-:1:1926/12/24:-*:Before:%Ey years %EC"};
    static const char *const digits[] = {"zero", "one", "two", "3", "4", "5", "6", "7", "8", "9"};
    t->calendar = calendar_gregorian;
    for (int i = 0; i < 7; i++) {
        t->abday[i] = kept(days[i]);
        t->day[i] = kept(full_days[i]);
    }
    t->abmon = kept_list(months, &t->abmon_count);
    t->mon = kept_list(full_months, &t->mon_count);
    t->era = kept_list(eras, &t->era_count);
    t->alt_digits = kept_list(digits, &t->max_alt_digits);
    t->am_pm[0] = kept("am");
    t->am_pm[1] = kept("");
    t->d_t_fmt = kept("%a %x %X");
    t->d_fmt = kept("%d.%m.%Y");
    t->t_fmt = kept("%T");
    t->t_fmt_ampm = kept("%I:%M:%S %p");
    t->era_d_fmt = kept("%EY %OD");
    t->era_t_fmt = kept("%OT%Ec");
    t->era_d_t_fmt = kept("%Ex %EX");
}

static kovaloc *make_locale() {
    ko_lc_t loc;
    check(ko_create_null_locale_2(&loc) == 0, "there is memory");
    kovaloc *r = record(loc);
    const uint16_t none = 0;
    free_multi(r->ctype);
    r->ctype = create_multi(sizeof none, 0, &none);
    for (unsigned b = 0; b < 256; b++) {
        const char_desc desc = {1, {static_cast<unsigned char>(b)}};
        const uint16_t item = b == ' ' || b - 9 < 5 ? KO_CT_SPACE : KO_CT_PRINT;
        check(insert_desc_multi(&desc, &item, r->ctype) == 0, "there is memory");
    }
    fill_times(&r->ltime_info);
    update_locale(r);
    check(init_locale_info(r) > 0, "the record serves");
    return r;
}

static std::string written(kovaloc *loc, const std::string &format, const ko_tm_t &tm) {
    ko_mchar_t out[4096];
    const int n = ko_mbsftime(loc, out, sizeof out, mb(format), &tm);
    const int most = ko_mbsfmtexpand(loc, 1, mb(format));
    check(n <= 0 || most >= n, "the measured length suffices");
    return n > 0 ? std::string(reinterpret_cast<const char *>(out), static_cast<size_t>(n)) : "";
}

static bool read_whole(kovaloc *loc, const std::string &format, const std::string &text,
                       ko_tm_t *tm) {
    const ko_mchar_t *end = ko_mbsptime(loc, mb(text), mb(format), tm, 'R');
    return end && !*end;
}

// Whether what stands between the directives cannot be taken for a part of what they write.
static bool is_divided(const std::string &format) {
    for (size_t i = 0; i < format.size(); i++) {
        const unsigned char c = static_cast<unsigned char>(format[i]);
        const bool letter = (c | 32u) - 'a' < 26;
        if (c - '0' < 10u || (letter && (!i || !strchr("%EOi", format[i - 1])))) return false;
    }
    return true;
}

static void check_twins(kovaloc *loc, const std::string &format, const std::string &text) {
    std::u16string wide_format, wide_text;
    for (const char c : format)
        wide_format += static_cast<unsigned char>(c);
    for (const char c : text)
        wide_text += static_cast<unsigned char>(c);
    const auto wcs = [](const std::u16string &s) {
        return reinterpret_cast<const ko_wchar_t *>(s.c_str());
    };
    ko_tm_t a, b;
    memset(&a, 0, sizeof a); // with what lies between the fields
    memset(&b, 0, sizeof b);
    *ko_ext_errno(loc) = 0;
    const ko_mchar_t *end = ko_mbsptime(loc, mb(text), mb(format), &a, 'C');
    const int error = *ko_ext_errno(loc);
    *ko_ext_errno(loc) = 0;
    const ko_wchar_t *wide_end = ko_wcsptime(loc, wcs(wide_text), wcs(wide_format), &b, 'C');
    check(*ko_ext_errno(loc) == error && !end == !wide_end, "bytes fail as wide characters do");
    check(!end || end - mb(text) == wide_end - wcs(wide_text), "both end at the same place");
    check(!memcmp(&a, &b, sizeof a), "both give the same time");
    check(!end == !!error, "a failure has a number");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static kovaloc *const loc = make_locale();
    const long before = live_blocks;
    ko_set_current_time(0, "", 15, 6, 2024);
    const std::string all(reinterpret_cast<const char *>(data), size);
    const size_t line = all.find('\n');
    const std::string format = all.substr(0, line);
    check_twins(loc, format, line == all.npos ? "" : all.substr(line + 1));
    uint32_t mixed = 2166136261u;
    for (const char c : all)
        mixed = (mixed ^ static_cast<unsigned char>(c)) * 16777619u;
    const auto part = [&mixed](unsigned n) {
        mixed = mixed * 1664525u + 1013904223u;
        return static_cast<int>((mixed >> 8) % n);
    };
    ko_tm_t tm = {.tm_usec = part(1000000),
                  .tm_sec = part(60),
                  .tm_min = part(60),
                  .tm_hour = part(24),
                  .tm_mday = 1 + part(28),
                  .tm_mon = part(12),
                  .tm_year = part(300) - 50,
                  .tm_wday = part(7),
                  .tm_yday = part(366)};
    const std::string first = written(loc, format, tm);
    if (is_divided(format) && !first.empty() && read_whole(loc, format, first, &tm)) {
        const std::string second = written(loc, format, tm);
        if (!second.empty() && read_whole(loc, format, second, &tm))
            check(written(loc, format, tm) == second, "what was read says the same again");
    }
    check(live_blocks == before, "nothing is left");
    return 0;
}
