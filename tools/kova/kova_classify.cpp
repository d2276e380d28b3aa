// kova classify: the characters of a text with their bytes, classes and case partners, or the
// number of characters of each class in files.
#include <algorithm>
#include <array>
#include <map>

#include "common/tool_text.h"
#include "kova/kova_char.h"
#include "kova/kova_locale.h"
#include "kova/kova_read.h"
#include "kova/kova_table.h"

namespace kovacli {

namespace {
struct class_name {
    ko_ctype_t mask;
    std::string name;
};
} // namespace

// The classes of a locale. The library finds a locale's own classes only by name, so the names that
// sources define are tried; a bit that none of them names is shown by its mask.
static std::vector<class_name> classes_of(ko_lc_t loc) {
    std::vector<class_name> result;
    for (const char *name : {"upper", "lower", "alpha", "digit", "xdigit", "alnum", "punct",
                             "graph", "print", "space", "blank", "cntrl"})
        result.push_back({ko_ctype(loc, name), name});
    std::array<const char *, 5> own{};
    for (const char *name : {"full_width", "combining", "combining_level3", "jspace", "jhira",
                             "jkata", "jkanji", "jdigit", "hangul", "hanja"}) {
        const ko_ctype_t mask = ko_ctype(loc, name);
        for (unsigned bit = 0; bit < own.size(); ++bit)
            if (mask == 0x0800u << bit && !own[bit]) own[bit] = name;
    }
    for (unsigned bit = 0; bit < own.size(); ++bit) {
        const ko_ctype_t mask = 0x0800u << bit;
        std::string name = own[bit] ? own[bit] : "";
        if (name.empty()) name = "0x" + hex(std::string{char(mask >> 8), char(mask & 0xFF)}, "");
        result.push_back({mask, name});
    }
    return result;
}

// ---- the table of a text ----

// A character as a terminal can show it, with a combining mark on a dotted circle.
static cell shown(const codec &code, const ko_wchar_t *wide, size_t units) {
    const uint32_t point = point_of(code, wide, units);
    if (units == 1 && (point < 0x20 || (point >= 0x7F && point < 0xA0) || point == no_code_point)) {
        if (point == '\n') return {"\\n"};
        if (point == '\t') return {"\\t"};
        return {point == ' ' ? " " : "."};
    }
    if (kovatool::obeyed_by_terminals(point)) return {"."};
    const bool plain = point < 0x7F;
    if (!code.utf8 && !plain && (code.min_len > 1 || code.newline != '\n')) return {"."};
    const int columns = columns_of(code, wide, units);
    const bool mark = code.utf8 && columns == 0;
    cell result{"", mark || columns < 0 ? 1 : columns};
    if (mark) append_utf8(0x25CC, result.text);
    if (plain)
        append_utf8(point, result.text);
    else
        encode(code, wide, units, result.text);
    return result;
}

static std::string upper_hex(uint32_t value, int digits) {
    std::string text;
    while (digits < 6 && value >> (4 * digits))
        ++digits;
    for (int i = digits - 1; i >= 0; --i)
        text.push_back("0123456789ABCDEF"[value >> (4 * i) & 15]);
    return text;
}

// The classes that locales define have no characters beyond the basic plane, but for the width.
static bool is_of(const codec &code, const class_name &c, const ko_wchar_t *wide, size_t units) {
    if (units == 1) return im_iswctype(code.loc, wide[0], c.mask) != 0;
    if (c.name == "full_width") return columns_of(code, wide, units) == 2;
    return (far_classes(point_of_pair(wide)) & c.mask) != 0;
}

static std::string names_of_classes(const codec &code, const std::vector<class_name> &classes,
                                    const ko_wchar_t *wide, size_t units) {
    std::string text;
    for (const class_name &c : classes) {
        if (c.name == "alnum" || !is_of(code, c, wide, units)) continue;
        text += (text.empty() ? "" : " ") + c.name;
    }
    return text.empty() ? "-" : text;
}

static cell partner(const codec &code, const ko_wchar_t *wide, size_t units, bool upper) {
    std::array<ko_wchar_t, 2> other{wide[0], units == 2 ? wide[1] : ko_wchar_t{0}};
    if (units == 2)
        map_pairs(code, other.data(), units, upper);
    else
        other[0] = (upper ? im_towupper : im_towlower)(code.loc, wide[0]);
    return std::equal(wide, wide + units, other.data()) ? cell{"-"}
                                                        : shown(code, other.data(), units);
}

static std::vector<cell> character_row(const codec &code, const std::vector<class_name> &classes,
                                       const ko_wchar_t *wide, size_t units) {
    std::string bytes;
    for (size_t i = 0; i < units; ++i)
        encode_bytes(code, wide[i], bytes);
    std::string values = "0x" + upper_hex(wide[0], 4);
    if (units == 2) values += " 0x" + upper_hex(wide[1], 4);
    const uint32_t point = point_of(code, wide, units);
    return {shown(code, wide, units),
            {point == no_code_point ? "-" : "U+" + upper_hex(point, 4)},
            {hex(bytes, " ")},
            {values},
            partner(code, wide, units, true),
            partner(code, wide, units, false),
            {names_of_classes(code, classes, wide, units)}};
}

static void add_rows(const codec &code, const std::vector<class_name> &classes,
                     const std::vector<ko_wchar_t> &text, std::vector<std::vector<cell>> &rows) {
    for (size_t i = 0, units; i < text.size(); i += units) {
        units = units_of(code, &text[i], text.size() - i);
        rows.push_back(character_row(code, classes, &text[i], units));
    }
}

// ---- counting ----

namespace {
struct counts {
    std::vector<uint64_t> of_wide = std::vector<uint64_t>(65536);
    std::map<std::array<ko_wchar_t, 2>, uint64_t> of_pair;
    uint64_t bytes = 0;
    bad_count bad;
};
} // namespace

static void count_file(const codec &code, const std::string &path, counts &count) {
    std::vector<ko_wchar_t> wide;
    const auto add = [&](size_t units) {
        for (size_t i = 0, size; i < units; i += size) {
            size = units_of(code, &wide[i], units - i);
            if (size == 2)
                ++count.of_pair[{wide[i], wide[i + 1]}];
            else
                ++count.of_wide[wide[i]];
        }
    };
    count.bytes +=
        read_text(code, path, wide, count.bad, add, [](const unsigned char *, size_t) {});
}

static void write_counts(const codec &code, const std::vector<class_name> &classes,
                         const counts &count, bool json, output &out) {
    std::vector<uint64_t> of_class(classes.size());
    uint64_t all = 0;
    const auto add_times = [&](const ko_wchar_t *wide, size_t units, uint64_t times) {
        all += times;
        for (size_t i = 0; times && i < classes.size(); ++i)
            if (is_of(code, classes[i], wide, units)) of_class[i] += times;
    };
    for (unsigned wide = 0; wide < 65536; ++wide) {
        const auto unit = ko_wchar_t(wide);
        add_times(&unit, 1, count.of_wide[wide]);
    }
    for (const auto &[pair, times] : count.of_pair)
        add_times(pair.data(), pair.size(), times);
    std::vector<std::vector<cell>> rows = {
        {{"class"}, {"characters", -1, true}}
    };
    const auto add = [&](const std::string &name, uint64_t value) {
        rows.push_back({
            {name },
            { std::to_string(value), -1, true}
        });
    };
    for (size_t i = 0; i < classes.size(); ++i)
        if (of_class[i] || classes[i].mask < 0x0800) add(classes[i].name, of_class[i]);
    add("all characters", all);
    add("lines", count.of_wide[code.newline]);
    add("bytes", count.bytes);
    if (count.bad.count) add("bad characters", count.bad.count);
    json ? write_json_rows(out, rows) : write_table(out, rows);
}

int run_classify(const common_options &common, const classify_options &options) {
    locale_handle handle;
    codec code;
    const data_place data = open_with_codec(common, options.locale, handle, code);
    const std::vector<class_name> classes = classes_of(handle.loc);
    output out;
    if (options.count) {
        counts count;
        count.bad = {.replace = options.replace, .with_replace = "counts it and continues"};
        for (const std::string &path : inputs_of(options.files))
            count_file(code, path, count);
        write_counts(code, classes, count, common.json, out);
    } else {
        add_mapping(handle, data, code); // code points are optional if the form is bytes
        std::vector<std::vector<cell>> rows = {
            {{"char"}, {"code"}, {"bytes"}, {"wide"}, {"upper"}, {"lower"}, {"classes"}}
        };
        for (const std::string &text : options.texts)
            add_rows(code, classes, decode_argument(code, text, "TEXT"), rows);
        common.json ? write_json_rows(out, rows) : write_table(out, rows);
    }
    finish(out);
    return done;
}

} // namespace kovacli
