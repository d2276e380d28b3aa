// kova classify: the characters of a text with their bytes, classes and case partners, or the
// number of characters of each class in files.
#include <algorithm>
#include <array>

#include "common/tool_text.h"
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

static bool is_combining(uint32_t point) {
    static constexpr struct {
        uint32_t first, last;
    } ranges[] = {
        {0x0300, 0x036F},
        {0x0591, 0x05BD},
        {0x05BF, 0x05BF},
        {0x05C1, 0x05C2},
        {0x064B, 0x065F},
        {0x0670, 0x0670},
        {0x0E31, 0x0E31},
        {0x0E34, 0x0E3A},
        {0x0E47, 0x0E4E},
        {0x20D0, 0x20F0},
        {0x3099, 0x309A},
        {0xFE20, 0xFE2F}
    };
    return std::any_of(std::begin(ranges), std::end(ranges), [&](const auto &range) {
        return point >= range.first && point <= range.last;
    });
}

// A character as a terminal can show it, with a combining mark on a dotted circle.
static cell shown(const codec &code, const ko_wchar_t *wide, size_t units) {
    const uint32_t point = code_point(code, wide[0]);
    if (units == 1 && (point < 0x20 || (point >= 0x7F && point < 0xA0) || point == no_code_point)) {
        if (point == '\n') return {"\\n"};
        if (point == '\t') return {"\\t"};
        return {point == ' ' ? " " : "."};
    }
    if (kovatool::obeyed_by_terminals(point)) return {"."};
    const bool plain = point < 0x7F;
    if (!code.utf8 && !plain && (code.min_len > 1 || code.newline != '\n')) return {"."};
    cell result{"", 1};
    if (code.utf8 && is_combining(point)) append_utf8(0x25CC, result.text);
    if (plain)
        append_utf8(point, result.text);
    else
        encode(code, wide, units, result.text);
    const ko_ctype_t full = ko_ctype(code.loc, "full_width");
    if (units == 2 || (full && im_iswctype(code.loc, wide[0], full))) result.width = 2;
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

static uint32_t point_of(const codec &code, const ko_wchar_t *wide, size_t units) {
    if (units == 2) return 0x10000 + ((wide[0] & 0x3FFu) << 10) + (wide[1] & 0x3FFu);
    return code_point(code, wide[0]);
}

static std::string names_of_classes(const codec &code, const std::vector<class_name> &classes,
                                    ko_wchar_t wide) {
    std::string text;
    for (const class_name &c : classes) {
        if (c.name == "alnum" || !im_iswctype(code.loc, wide, c.mask)) continue;
        text += (text.empty() ? "" : " ") + c.name;
    }
    return text.empty() ? "-" : text;
}

static cell partner(const codec &code, ko_wchar_t wide, ko_wchar_t other) {
    return wide == other ? cell{"-"} : shown(code, &other, 1);
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
            partner(code, wide[0], im_towupper(code.loc, wide[0])),
            partner(code, wide[0], im_towlower(code.loc, wide[0])),
            {names_of_classes(code, classes, wide[0])}};
}

static void add_rows(const codec &code, const std::vector<class_name> &classes,
                     const std::vector<ko_wchar_t> &text, std::vector<std::vector<cell>> &rows) {
    for (size_t i = 0; i < text.size(); ++i) {
        const bool pair = code.utf16 && i + 1 < text.size() && (text[i] & 0xFC00) == 0xD800 &&
                          (text[i + 1] & 0xFC00) == 0xDC00;
        rows.push_back(character_row(code, classes, &text[i], pair ? 2 : 1));
        i += pair ? 1 : 0;
    }
}

// ---- counting ----

namespace {
struct counts {
    std::vector<uint64_t> of_wide = std::vector<uint64_t>(65536);
    uint64_t bytes = 0;
    bad_count bad;
};
} // namespace

static void count_file(const codec &code, const std::string &path, counts &count) {
    std::vector<ko_wchar_t> wide;
    const auto add = [&](size_t units) {
        for (size_t i = 0; i < units; ++i)
            ++count.of_wide[wide[i]];
    };
    count.bytes +=
        read_text(code, path, wide, count.bad, add, [](const unsigned char *, size_t) {});
}

static void write_counts(const codec &code, const std::vector<class_name> &classes,
                         const counts &count, output &out) {
    std::vector<uint64_t> of_class(classes.size());
    uint64_t all = 0;
    for (unsigned wide = 0; wide < 65536; ++wide) {
        const uint64_t times = count.of_wide[wide];
        // The second half of a surrogate pair is not a character of its own.
        if (times == 0 || (code.utf16 && (wide & 0xFC00) == 0xDC00)) continue;
        all += times;
        for (size_t i = 0; i < classes.size(); ++i)
            if (im_iswctype(code.loc, ko_wchar_t(wide), classes[i].mask)) of_class[i] += times;
    }
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
    write_table(out, rows);
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
        write_counts(code, classes, count, out);
    } else {
        add_mapping(handle, data, code); // code points are optional if the form is bytes
        std::vector<std::vector<cell>> rows = {
            {{"char"}, {"code"}, {"bytes"}, {"wide"}, {"upper"}, {"lower"}, {"classes"}}
        };
        for (const std::string &text : options.texts)
            add_rows(code, classes, decode_argument(code, text, "TEXT"), rows);
        write_table(out, rows);
    }
    finish(out);
    return done;
}

} // namespace kovacli
