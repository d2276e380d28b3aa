// The words of a locale's times.
#include "kova/kova_names.h"

namespace kovacli {

wide_text native(const codec &code, std::string_view ascii) {
    wide_text wide;
    for (const char c : ascii) {
        const auto point = uint8_t(c);
        const ko_wchar_t mapped = code.mapped && !code.utf16 ? code.wide_of[point] : point;
        wide.push_back(mapped ? mapped : point);
    }
    return wide;
}

wide_text item_text(const codec &code, unsigned item) {
    const ko_wchar_t *text = ko_wc_nl_langinfo(code.loc, item);
    return text ? wide_text(text, text + ko_wcslen(text)) : wide_text();
}

wide_text lower_text(const codec &code, wide_text text) {
    wide_text result(text.size() + 1);
    text.push_back(0);
    ko_towcslower(code.loc, result.data(), text.data());
    result.pop_back();
    return result;
}

std::string outer_text(const codec &code, const wide_text &text) {
    std::string result;
    encode(code, text.data(), text.size(), result);
    return result;
}

// A copied name; an absent one is empty.
static wide_text take_name(const codec &code, ko_mchar_t *name) {
    if (!name) return {};
    int len = 0;
    ko_wchar_t *const wide = ko_mbstowcslen(code.loc, name, &len);
    const wide_text result = wide ? wide_text(wide, wide + len) : wide_text();
    ko_destroystring(wide);
    ko_destroystring(name);
    return result;
}

static int hex_digit(char c) {
    return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// The names that lines of an object's header give as bytes in hexadecimal.
static std::vector<wide_text> header_names(const codec &code, const object_file &object,
                                           std::string_view key) {
    std::vector<wide_text> names;
    for (const std::string &line : object.header) {
        const std::string start = std::string(key) + std::to_string(names.size() + 1) + "=";
        if (line.compare(0, start.size(), start) != 0) continue;
        std::vector<ko_mchar_t> bytes;
        for (size_t at = start.size(); at + 1 < line.size(); at += 2) {
            const int high = hex_digit(line[at]), low = hex_digit(line[at + 1]);
            if (high < 0 || low < 0) return {};
            bytes.push_back(ko_mchar_t(high * 16 + low));
        }
        bytes.resize(bytes.size() + 4);
        int len = 0;
        ko_wchar_t *const wide = ko_mbstowcslen(code.loc, bytes.data(), &len);
        if (wide) names.emplace_back(wide, wide + len);
        ko_destroystring(wide);
    }
    return names.size() == 12 ? names : std::vector<wide_text>();
}

int first_weekday(const object_file &object) {
    for (const std::string &line : object.header)
        if (line.size() == 15 && line.compare(0, 14, "FIRST_WEEKDAY=") == 0)
            return (line[14] - '0') % 7;
    return 0;
}

time_names names_of(const codec &code, const object_file &object) {
    time_names names;
    for (int group = full_days; group < name_groups; ++group) {
        ko_mchar_t **list = nullptr;
        int count = 0;
        if (ko_mbstimeinfo(code.loc, group, &list, &count) != 0) continue;
        for (int i = 0; i < count; ++i)
            names.of[size_t(group)].push_back(take_name(code, list[i]));
        ko_destroystring(list);
    }
    names.lone_months = header_names(code, object, "ALT_MON_");
    names.lone_short_months = header_names(code, object, "AB_ALT_MON_");
    if (const ko_mchar_t *name = ko_nl_langinfo(code.loc, KO_CALENDAR))
        names.calendar = reinterpret_cast<const char *>(name);
    names.calendar.erase(std::min(names.calendar.find('\n'), names.calendar.size()));
    names.gregorian = names.calendar == "gregorian";
    return names;
}

} // namespace kovacli
