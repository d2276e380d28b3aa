// kova info and kova locales: what a locale says of itself, and which locales exist.
#include <algorithm>
#include <array>
#include <map>

#include "common/tool_text.h"
#include "kova/kova_cli.h"
#include "kova/kova_info.h"
#include "kova/kova_table.h"

namespace kovacli {

// ---- items ----

namespace {
// Runs of items: a single name, or a name followed by a number from 1.
struct item_run {
    const char *name;
    unsigned first, count;
};
} // namespace
static constexpr item_run item_runs[] = {
    {"D_T_FMT",     KO_D_T_FMT,     1 },
    {"DAY_",        KO_DAY_1,       7 },
    {"ABDAY_",      KO_ABDAY_1,     7 },
    {"MON_",        KO_MON_1,       20},
    {"ABMON_",      KO_ABMON_1,     20},
    {"RADIXCHAR",   KO_RADIXCHAR,   1 },
    {"THOUSEP",     KO_THOUSEP,     1 },
    {"YESSTR",      KO_YESSTR,      1 },
    {"NOSTR",       KO_NOSTR,       1 },
    {"CRNCYSTR",    KO_CRNCYSTR,    1 },
    {"CODESET",     KO_CODESET,     1 },
    {"D_FMT",       KO_D_FMT,       1 },
    {"T_FMT",       KO_T_FMT,       1 },
    {"T_FMT_AMPM",  KO_T_FMT_AMPM,  1 },
    {"AM_STR",      KO_AM_STR,      1 },
    {"PM_STR",      KO_PM_STR,      1 },
    {"ERA",         KO_ERA,         1 },
    {"ERA_D_FMT",   KO_ERA_D_FMT,   1 },
    {"ERA_D_T_FMT", KO_ERA_D_T_FMT, 1 },
    {"ERA_T_FMT",   KO_ERA_T_FMT,   1 },
    {"ALT_DIGITS",  KO_ALT_DIGITS,  1 },
    {"YESEXPR",     KO_YESEXPR,     1 },
    {"NOEXPR",      KO_NOEXPR,      1 },
    {"CALENDAR",    KO_CALENDAR,    1 },
};

std::string item_name(unsigned item) {
    for (const item_run &run : item_runs) {
        if (item < run.first || item >= run.first + run.count) continue;
        return run.count == 1 ? run.name : run.name + std::to_string(item - run.first + 1);
    }
    return "";
}

unsigned item_of(const std::string &text) {
    std::string name = text;
    for (char &c : name)
        c = c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c;
    if (name.compare(0, 3, "KO_") == 0) name.erase(0, 3);
    for (unsigned item = 0; item <= KO_LANGINFO_MAX; ++item)
        if (name == item_name(item) || name == std::to_string(item)) return item;
    throw failure(bad_usage, "there is no item \"" + text + "\"; items are numbers from 0 to " +
                                 std::to_string(unsigned{KO_LANGINFO_MAX}) +
                                 " or names such as D_FMT and DAY_1 (see kova info LOCALE)");
}

bool outer_text(const codec &code, const ko_wchar_t *wide, std::string &text) {
    text.clear();
    if (!wide) return false;
    encode(code, wide, size_t(ko_wcslen(wide)), text);
    return true;
}

bool item_text(const codec &code, unsigned item, std::string &text) {
    const ko_wchar_t *wide = ko_wc_nl_langinfo(code.loc, item);
    if (item != KO_CALENDAR && item != KO_CODESET) return outer_text(code, wide, text);
    // These names are the library's own: ASCII in every code set; those of calendars end in a
    // newline.
    text.clear();
    for (const ko_wchar_t *at = wide; at && *at && *at != '\n'; ++at)
        text += *at < 0x7F ? char(*at) : '?';
    return wide != nullptr;
}

std::string newline_of(const codec &code) {
    std::string text;
    if (code.utf8) return "\n";
    encode_bytes(code, code.newline, text);
    return text;
}

// ---- the figures of a locale ----

std::string collation_text(const codec &code) {
    const loc_exports *head = static_cast<const loc_exports *>(code.loc);
    if (head->codeset_order) return "in code-set order";
    static const struct {
        int (*comparer)(ko_lc_t, const ko_mchar_t *, const ko_mchar_t *);
        const char *text;
    } comparers[] = {
        {is_mbscoll_exp,  "by weights, characters that expand"                  },
        {is_mbscoll_elem, "by weights, collating elements of several characters"},
        {is_mbscoll_back, "by weights, one character at a time"                 },
        {im_mbscoll,      "by weights, general comparer"                        },
        {thaismocoll,     "by the Thai method"                                  },
    };
    for (const auto &row : comparers)
        if (row.comparer == head->mbscoll) return row.text;
    return "unknown method";
}

std::string characters_text(const codec &code) {
    const int shortest = ko_mb_loc_min(code.loc), longest = ko_mb_loc_max(code.loc);
    size_t characters = code.pairs->count();
    for (const codec::lead lead : code.leads)
        characters += lead == codec::alone;
    return std::to_string(characters) + " of " + std::to_string(shortest) +
           (longest > shortest ? " to " + std::to_string(longest) : "") +
           (longest == 1 ? " byte" : " bytes");
}

static size_t ignored_count(const loc_exports *head) {
    size_t count = 0;
    while (head->coll_ignored && head->coll_ignored[count])
        ++count;
    return count;
}

static size_t equivalent_count(const loc_exports *head) {
    size_t count = 0;
    while (head->coll_equiv_class_map && head->coll_equiv_class_map[count].from)
        ++count;
    return count;
}

static std::string ratio(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

static void add_figures(const locale_handle &handle, const codec &code,
                        std::vector<std::vector<cell>> &rows) {
    const auto add = [&](const char *name, const std::string &value) {
        rows.push_back({{name}, {kovatool::printable(value)}});
    };
    const loc_exports *head = static_cast<const loc_exports *>(handle.loc);
    add("locale", handle.name);
    add("object", handle.object.path);
    for (const std::string &line : handle.object.header)
        if (!line.empty()) add("  header", line);
    add("code set", code.code_set + (handle.object.number == KO_NO_CODESET
                                         ? std::string()
                                         : ", number " + std::to_string(handle.object.number)));
    add("characters", characters_text(code));
    add("single-byte", head->single_byte ? "yes" : "no");
    add("case mapping", head->case_conv_ratio > 1.0
                            ? "a text grows to " + ratio(head->case_conv_ratio) + " times its bytes"
                            : "a text keeps its number of bytes");
    add("collation", collation_text(code));
    if (const size_t count = ignored_count(head))
        add("  ignored", std::to_string(count) + " strings weigh nothing");
    if (const size_t count = equivalent_count(head))
        add("  equal", std::to_string(count) + " strings weigh as another one");
    add("  ratio", "a character weighs as at most " + ratio(head->coll_char_ratio) + " others");
}

// ---- numeric and monetary conventions ----

static std::string grouping_text(const ko_wchar_t *sizes) {
    std::string text;
    for (; sizes && *sizes; ++sizes) {
        if (!text.empty()) text += ';';
        text += std::to_string(*sizes);
    }
    return text;
}

std::vector<convention> conventions(const codec &code) {
    std::vector<convention> found;
    const koconv *conv = ko_localeconv(code.loc);
    if (!conv) return found;
    static constexpr struct {
        const char *name;
        ko_wchar_t *koconv::*field;
        bool sizes;
    } strings[] = {
        {"decimal_point",     &koconv::w_decimal_point,     false},
        {"thousands_sep",     &koconv::w_thousands_sep,     false},
        {"grouping",          &koconv::w_grouping,          true },
        {"int_curr_symbol",   &koconv::w_int_curr_symbol,   false},
        {"currency_symbol",   &koconv::w_currency_symbol,   false},
        {"mon_decimal_point", &koconv::w_mon_decimal_point, false},
        {"mon_thousands_sep", &koconv::w_mon_thousands_sep, false},
        {"mon_grouping",      &koconv::w_mon_grouping,      true },
        {"positive_sign",     &koconv::w_positive_sign,     false},
        {"negative_sign",     &koconv::w_negative_sign,     false},
    };
    for (const auto &row : strings) {
        std::string text;
        if (row.sizes)
            text = grouping_text(conv->*row.field);
        else if (!outer_text(code, conv->*row.field, text))
            continue;
        found.push_back({row.name, text, false});
    }
    static constexpr struct {
        const char *name;
        char koconv::*field;
    } numbers[] = {
        {"int_frac_digits", &koconv::int_frac_digits},
        {"frac_digits",     &koconv::frac_digits    },
        {"p_cs_precedes",   &koconv::p_cs_precedes  },
        {"p_sep_by_space",  &koconv::p_sep_by_space },
        {"n_cs_precedes",   &koconv::n_cs_precedes  },
        {"n_sep_by_space",  &koconv::n_sep_by_space },
        {"p_sign_posn",     &koconv::p_sign_posn    },
        {"n_sign_posn",     &koconv::n_sign_posn    },
    };
    constexpr char not_available = 127;
    for (const auto &row : numbers) {
        const char value = conv->*row.field;
        found.push_back({row.name, value == not_available ? "-" : std::to_string(value), true});
    }
    return found;
}

// The text of an item or of a convention, by its name.
static std::string named_text(const codec &code, const std::string &name) {
    for (const convention &c : conventions(code))
        if (c.name == name) return c.value;
    std::string text;
    item_text(code, item_of(name), text);
    return text;
}

static void write_everything(const locale_handle &handle, const codec &code, output &out) {
    std::vector<std::vector<cell>> rows;
    add_figures(handle, code, rows);
    write_table(out, rows);
    rows = {
        {{"item"}, {"number", -1, true}, {"value"}}
    };
    for (unsigned item = 0; item <= KO_LANGINFO_MAX; ++item) {
        std::string text;
        if (!item_text(code, item, text)) continue;
        rows.push_back({
            {item_name(item)},
            {     std::to_string(item),             -1, true},
            { visible(code,    text)}
        });
    }
    for (const convention &c : conventions(code))
        rows.push_back({{c.name}, {}, {visible(code, c.value)}});
    write(out, "\n");
    write_table(out, rows);
}

int run_info(const common_options &common, const info_options &options) {
    locale_handle handle;
    codec code;
    common_options asked = common;
    if (options.json || options.html) asked.form = text_form::utf8;
    const data_place place = open_with_codec(asked, options.locale, handle, code);
    output out;
    open(out, options.out);
    if (options.html) {
        write_page_html(handle, code, out);
    } else if (options.json) {
        write_json(handle, code, options.items, out);
    } else if (options.all) {
        add_mapping(handle, place, code);
        write_page(handle, code, out);
    } else if (options.items.empty()) {
        write_everything(handle, code, out);
    } else {
        for (const std::string &name : options.items)
            write(out, visible(code, named_text(code, name)) + newline_of(code));
    }
    finish(out);
    return done;
}

// ---- the list ----

// The source's name, where an object's name is a stand-in for it, and what its order ignores.
static std::string stands_for(const object_file &object) {
    const std::string name =
        object.language + (object.modifier.empty() ? "" : "@" + object.modifier);
    const std::string source = source_name(object), variant = variant_name(object);
    static const std::map<std::string, const char *> variants = {
        {"ci",   " without case"            },
        {"ai",   " without case and accents"},
        {"thai", " by the Thai method"      },
    };
    if (const auto at = variants.find(variant); at != variants.end()) return source + at->second;
    return source == name || source.find('_') == source.npos ? "" : source;
}

// Does a name fit a pattern with * and ?, in either case?
static bool fits(std::string_view pattern, std::string_view name) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; };
    size_t at = 0, from = 0, star = pattern.npos, resume = 0;
    while (from < name.size()) {
        if (at < pattern.size() && pattern[at] == '*') {
            star = at++, resume = from;
        } else if (at < pattern.size() &&
                   (pattern[at] == '?' || lower(pattern[at]) == lower(name[from]))) {
            ++at, ++from;
        } else if (star != pattern.npos) {
            at = star + 1, from = ++resume;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', at) == pattern.npos;
}

// Is an object, by its name, its name without the code set or the name that it stands for, one of
// those that are asked for?
static bool is_asked_for(const locales_options &options, uint16_t code_set,
                         const object_file &object) {
    const std::string variant = object.modifier.empty() ? "" : "@" + object.modifier;
    const std::string names[] = {specification(object), object.language + variant,
                                 source_name(object)};
    if (!options.code_set.empty() && object.number != code_set) return false;
    const std::string &language = options.language;
    if (!language.empty() &&
        std::none_of(std::begin(names), std::end(names), [&](const std::string &name) {
            return fits(language, name.substr(0, name.find_first_of("_.@"))) ||
                   fits(language, name.substr(0, name.find_first_of(".@")));
        }))
        return false;
    if (options.patterns.empty()) return true;
    return std::any_of(
        options.patterns.begin(), options.patterns.end(), [&](const std::string &pattern) {
            return std::any_of(std::begin(names), std::end(names),
                               [&](const std::string &name) { return fits(pattern, name); });
        });
}

static std::vector<object_file> objects_asked_for(const locales_options &options,
                                                  const data_place &data) {
    const std::string &name = options.code_set;
    uint16_t number = KO_NO_CODESET;
    if (!name.empty()) {
        number = code_set_number(fits("utf-8", name) || fits("utf8", name) ? "unicode" : name);
        if (number == KO_NO_CODESET)
            throw failure(bad_locale, "no code set is called \"" + name +
                                          "\"; kova convert --list shows the code sets");
    }
    std::vector<object_file> objects = list_objects(data);
    const bool any = !objects.empty();
    std::erase_if(objects, [&](const object_file &o) { return !is_asked_for(options, number, o); });
    if (any && objects.empty())
        throw failure(bad_locale, "no locale that is compiled here fits; kova locales lists all");
    return objects;
}

static std::string row_json(const object_file &object, const std::string &fault) {
    const auto field = [](const char *name, const std::string &text) {
        return json_quoted(name) + ": " + (text.empty() ? "null" : json_quoted(text));
    };
    return "    {" + field("locale", object.code_set.empty() ? "" : specification(object)) + ", " +
           field("code_set", object.code_set) +
           ", \"number\": " + std::to_string(unsigned{object.number}) + ", " +
           field("stands_for", stands_for(object)) + ", " + field("object", object.path) + ", " +
           field("fault", fault) + "}";
}

static int write_locales_json(const std::vector<object_file> &objects) {
    std::string rows;
    int status = done;
    for (const object_file &object : objects) {
        const std::string fault = object_fault(object);
        if (!fault.empty()) status = bad_locale;
        rows += (rows.empty() ? "" : ",\n") + row_json(object, fault);
    }
    output out;
    write(out, "{\n  \"locales\": [\n" + rows + (rows.empty() ? "" : "\n") + "  ]\n}\n");
    finish(out);
    return status;
}

int run_locales(const common_options &common, const locales_options &options) {
    const data_place data = find_data(common);
    const std::vector<object_file> objects = objects_asked_for(options, data);
    if (options.json) return write_locales_json(objects);
    std::vector<std::vector<cell>> rows = {
        {{"locale"}, {"code set"}, {"number", -1, true}, {"stands for"}, {"object"}}
    };
    std::string faults;
    for (const object_file &object : objects) {
        std::string name = object.code_set.empty() ? "?" : specification(object);
        if (const std::string fault = object_fault(object); !fault.empty()) {
            name = "! " + object.language + "." + std::to_string(object.number);
            faults += kovatool::printable("! " + object.path + " " + fault) + "\n";
        }
        rows.push_back({
            {kovatool::printable(name)                                           },
            {object.code_set.empty() ? "?" : kovatool::printable(object.code_set)},
            {std::to_string(object.number),                                        -1, true},
            {kovatool::printable(stands_for(object))                                                               },
            {kovatool::printable(object.path)                             }
        });
    }
    output out;
    std::string where = data.root;
    if (where.empty())
        for (const std::string &dir : data.dirs)
            where += (where.empty() ? "" : ";") + dir;
    where = kovatool::printable(where);
    if (rows.size() == 1) {
        write(out, "no locales below " + where + "\n");
    } else {
        write(out, "locales below " + where + "\n");
        write_table(out, rows);
    }
    write(out, faults);
    finish(out);
    return faults.empty() ? done : bad_locale;
}

} // namespace kovacli
