// Time sections of small locale objects, and compiled locales, for the tests of dates and times.
#ifndef TIME_RECORDS_H
#define TIME_RECORDS_H

#include "chars/kovaportable.h"
#include "load/kovasetlc_load.h"

#include "support/locale_builder.h"
#include "support/rows.h"

#include <random>

// Times of a test that goes through many: all of them in a release of 64 bits, fewer where test
// programs are slow, and a few under sanitizers.
#ifdef KOVA_SANITIZED
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif
#ifdef NDEBUG
constexpr int seeded_times = sanitized ? 250 : sizeof(void *) < 8 ? 2500 : 10000;
#else
constexpr int seeded_times = sanitized ? 250 : 2000;
#endif

// Strings of a time section, divided by "|".
struct times {
    std::string calendar = "gregorian";
    std::string abday = "Sun|Mon|Tue|Wed|Thu|Fri|Sat";
    std::string day = "Sunday|Monday|Tuesday|Wednesday|Thursday|Friday|Saturday";
    std::string abmon = "Jan|Feb|Mar|Apr|May|Jn|Jl|Aug|Sep|Oct|Nov|Dec";
    std::string mon = "January|February|March|April|May|Jun|June|August|September|October|"
                      "November|December";                          // two of them begin alike
    std::string formats = "%x %X|%d.%m.%Y|%H:%M:%S|am|pm|%I:%M %p"; // date and time, date, time, ..
    std::string eras;
    std::string era_formats = "%EC%Ey %m/%d|%H.%M|%Ex %EX"; // date, time, both
    std::string digits;
};

inline locale_object with_times(locale_object object, const times &t, bool wide = false) {
    object.time = t.calendar + "\n";
    const auto add = [&](const std::string &list, bool counted) {
        const std::vector<std::string> parts = split(list);
        if (counted) object.time += std::to_string(parts.size()) + "\n";
        for (const std::string &part : parts)
            object.time += field(encoded(part, wide));
    };
    add(t.abday, false);
    add(t.day, false);
    add(t.abmon, true);
    add(t.mon, true);
    add(t.formats, false);
    add(t.eras, true);
    add(t.era_formats, false);
    add(t.digits, true);
    return object;
}

// A locale of a compiled data root.
struct compiled_locale : own_record {
    std::string name; // folder and file
    explicit compiled_locale(const std::filesystem::path &path)
        : name(path.parent_path().filename().string() + "/" + path.filename().string()) {
        char *setting = set_categories(record(handle), KO_LC_ALL, path.filename().string().c_str(),
                                       path.parent_path().string().c_str());
        EXPECT_NE(setting, nullptr) << name;
        ko_destroystring(setting);
        EXPECT_EQ(error(), 0) << name;
    }
};

// Within the ranges of the directives. The days of months are those that all months have.
inline ko_tm_t random_time(std::mt19937 &random) {
    const auto below = [&random](unsigned n) { return int(random() % n); };
    // Microsecond, second, minute, hour, day, month, year, and the days of week and year.
    return {below(1000000),
            below(60),
            below(60),
            below(24),
            1 + below(28),
            below(12),
            below(2) ? below(200) : below(8000) - 1000,
            below(7),
            below(366)};
}

// Turns the quick ways of a record off within the block.
struct engine_alone {
    ltime &t;
    quick_times *const kept;
    explicit engine_alone(ko_lc_t loc)
        : t(record(loc)->ltime_info), kept(std::exchange(t.quick, nullptr)) {}
    ~engine_alone() { t.quick = kept; }
    engine_alone(const engine_alone &) = delete;
};

// The objects of KOVA_TEST_ROOT.
inline std::vector<std::filesystem::path> compiled_objects() {
    const char *root = getenv("KOVA_TEST_ROOT");
    const std::filesystem::path folder = std::filesystem::path(root ? root : "") / "kova/lc11";
    std::vector<std::filesystem::path> paths;
    if (!root || !exists(folder)) return paths;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.path().extension() == ".lco") paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

// ASCII text in the code set of a locale.
inline std::vector<ko_wchar_t> in_code_set(ko_lc_t loc, std::string_view text) {
    std::vector<ko_wchar_t> wide;
    for (const char c : text)
        wide.push_back(native(record(loc), c));
    wide.push_back(0);
    return wide;
}

#endif
