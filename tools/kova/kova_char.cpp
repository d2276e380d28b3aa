#include "kova/kova_char.h"

#include <algorithm>
#include <iterator>

#include "kova_host.h"

namespace kovacli {

namespace {
struct class_range {
    uint32_t first, last;
    unsigned classes;
};
struct width_range {
    uint32_t first, last;
    int columns;
};

constexpr unsigned letter = KO_CT_ALPHA | KO_CT_GRAPH | KO_CT_PRINT;
constexpr unsigned upper = letter | KO_CT_UPPER;
constexpr unsigned lower = letter | KO_CT_LOWER;
constexpr unsigned punct = KO_CT_PUNCT | KO_CT_GRAPH | KO_CT_PRINT;

#include "kova/kova_char_tab.inc"
} // namespace

// The range that holds a code point, NULL without one.
template <class Range, size_t count>
static const Range *find(const Range (&ranges)[count], uint32_t point) {
    const Range *const r =
        std::lower_bound(std::begin(ranges), std::end(ranges), point,
                         [](const Range &range, uint32_t p) { return range.last < p; });
    return r != std::end(ranges) && point >= r->first ? r : nullptr;
}

static int unicode_columns(uint32_t point) {
    const width_range *const r = find(width_ranges, point);
    return r ? r->columns : 1;
}

size_t units_of(const codec &code, const ko_wchar_t *wide, size_t count) {
    return code.utf16 && is_pair(wide, count) ? 2 : 1;
}

uint32_t point_of(const codec &code, const ko_wchar_t *wide, size_t units) {
    return units == 2 ? point_of_pair(wide) : code_point(code, wide[0]);
}

unsigned far_classes(uint32_t point) {
    const class_range *const r = find(class_ranges, point);
    return r ? r->classes : 0;
}

static void map_pair(const codec &code, ko_wchar_t *pair, bool to_upper) {
    std::string text;
    append_utf8(point_of_pair(pair), text);
    char made[4];
    const auto map = to_upper ? ko_utf8supper : ko_utf8slower;
    if (map(code.loc, made, sizeof made, text.data(), text.size()) != int64_t(text.size())) return;
    ko_utf8stowcs(code.loc, pair, 2, made, sizeof made, nullptr);
}

void map_pairs(const codec &code, ko_wchar_t *wide, size_t count, bool to_upper) {
    for (size_t i = 0, units; i < count; i += units) {
        units = units_of(code, wide + i, count - i);
        if (units == 2) map_pair(code, wide + i, to_upper);
    }
}

int columns_of(const codec &code, const ko_wchar_t *wide, size_t units) {
    const uint32_t point = point_of(code, wide, units);
    if (units == 2) return far_classes(point) & KO_CT_PRINT ? unicode_columns(point) : -1;
    const int columns = ko_wcwidth(code.loc, wide[0]);
    if (columns < 0 || !wide[0] || point == no_code_point) return columns;
    const int by_unicode = unicode_columns(point);
    return code.utf16 || by_unicode == 0 ? by_unicode : columns;
}

size_t columns_of_text(const codec &code, const ko_wchar_t *wide, size_t count) {
    size_t total = 0;
    for (size_t i = 0, units; i < count; i += units) {
        units = units_of(code, wide + i, count - i);
        const int columns = columns_of(code, wide + i, units);
        total += columns < 0 ? 1 : size_t(columns);
    }
    return total;
}

} // namespace kovacli
