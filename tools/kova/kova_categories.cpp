// kova locale: what a locale holds, by category and by the names that locale(1) uses, and whether
// an answer means yes or no.
#include <algorithm>
#include <regex>

#include "kova/kova_cli.h"
#include "kova/kova_info.h"
#include "kova/kova_names.h"

namespace kovacli {

// ---- names ----

namespace {
enum class source : uint8_t {
    items,
    convention,
    collation,
    longest,
    months,
    short_months,
    weekday
};

// A name of a category; its texts are count items, or come from elsewhere.
struct keyword {
    const char *category, *name;
    source from;
    unsigned first, count;
};

struct keyword_value {
    const char *category;
    std::string name;
    std::vector<std::string> texts;
    bool list = false, number = false;
};

struct open_job {
    locale_handle handle;
    codec code;
    std::vector<convention> conventions;
    time_names names;
};
} // namespace

static constexpr keyword keywords[] = {
    {"LC_CTYPE",    "charmap",           source::items,        KO_CODESET,     1 },
    {"LC_CTYPE",    "mb_cur_max",        source::longest,      0,              0 },
    {"LC_COLLATE",  "collation",         source::collation,    0,              0 },
    {"LC_NUMERIC",  "decimal_point",     source::convention,   0,              0 },
    {"LC_NUMERIC",  "thousands_sep",     source::convention,   0,              0 },
    {"LC_NUMERIC",  "grouping",          source::convention,   0,              0 },
    {"LC_MONETARY", "int_curr_symbol",   source::convention,   0,              0 },
    {"LC_MONETARY", "currency_symbol",   source::convention,   0,              0 },
    {"LC_MONETARY", "mon_decimal_point", source::convention,   0,              0 },
    {"LC_MONETARY", "mon_thousands_sep", source::convention,   0,              0 },
    {"LC_MONETARY", "mon_grouping",      source::convention,   0,              0 },
    {"LC_MONETARY", "positive_sign",     source::convention,   0,              0 },
    {"LC_MONETARY", "negative_sign",     source::convention,   0,              0 },
    {"LC_MONETARY", "int_frac_digits",   source::convention,   0,              0 },
    {"LC_MONETARY", "frac_digits",       source::convention,   0,              0 },
    {"LC_MONETARY", "p_cs_precedes",     source::convention,   0,              0 },
    {"LC_MONETARY", "p_sep_by_space",    source::convention,   0,              0 },
    {"LC_MONETARY", "n_cs_precedes",     source::convention,   0,              0 },
    {"LC_MONETARY", "n_sep_by_space",    source::convention,   0,              0 },
    {"LC_MONETARY", "p_sign_posn",       source::convention,   0,              0 },
    {"LC_MONETARY", "n_sign_posn",       source::convention,   0,              0 },
    {"LC_MONETARY", "crncystr",          source::items,        KO_CRNCYSTR,    1 },
    {"LC_TIME",     "abday",             source::items,        KO_ABDAY_1,     7 },
    {"LC_TIME",     "day",               source::items,        KO_DAY_1,       7 },
    {"LC_TIME",     "abmon",             source::items,        KO_ABMON_1,     20},
    {"LC_TIME",     "mon",               source::items,        KO_MON_1,       20},
    {"LC_TIME",     "ab_alt_mon",        source::short_months, 0,              0 },
    {"LC_TIME",     "alt_mon",           source::months,       0,              0 },
    {"LC_TIME",     "am_pm",             source::items,        KO_AM_STR,      2 },
    {"LC_TIME",     "d_t_fmt",           source::items,        KO_D_T_FMT,     1 },
    {"LC_TIME",     "d_fmt",             source::items,        KO_D_FMT,       1 },
    {"LC_TIME",     "t_fmt",             source::items,        KO_T_FMT,       1 },
    {"LC_TIME",     "t_fmt_ampm",        source::items,        KO_T_FMT_AMPM,  1 },
    {"LC_TIME",     "era",               source::items,        KO_ERA,         1 },
    {"LC_TIME",     "era_d_fmt",         source::items,        KO_ERA_D_FMT,   1 },
    {"LC_TIME",     "era_d_t_fmt",       source::items,        KO_ERA_D_T_FMT, 1 },
    {"LC_TIME",     "era_t_fmt",         source::items,        KO_ERA_T_FMT,   1 },
    {"LC_TIME",     "alt_digits",        source::items,        KO_ALT_DIGITS,  1 },
    {"LC_TIME",     "calendar",          source::items,        KO_CALENDAR,    1 },
    {"LC_TIME",     "first_weekday",     source::weekday,      0,              0 },
    {"LC_MESSAGES", "yesexpr",           source::items,        KO_YESEXPR,     1 },
    {"LC_MESSAGES", "noexpr",            source::items,        KO_NOEXPR,      1 },
    {"LC_MESSAGES", "yesstr",            source::items,        KO_YESSTR,      1 },
    {"LC_MESSAGES", "nostr",             source::items,        KO_NOSTR,       1 },
};

// What the sources of other systems say and compiled locales do not hold.
static constexpr const char *not_held[][2] = {
    {"LC_PAPER",          "height width"                                                                     },
    {"LC_NAME",           "name_fmt name_gen name_mr name_mrs name_miss name_ms"                             },
    {"LC_ADDRESS",        "postal_fmt country_name country_post country_ab2 country_ab3 "
                   "country_car country_num country_isbn lang_name lang_ab lang_term "
                   "lang_lib"                                                              },
    {"LC_TELEPHONE",      "tel_int_fmt tel_dom_fmt int_select int_prefix"                                    },
    {"LC_MEASUREMENT",    "measurement"                                                                      },
    {"LC_IDENTIFICATION", "title source address contact email tel fax language territory "
                          "audience application abbreviation revision date category"},
};

static void refuse_what_is_not_held(const std::string &name) {
    for (const auto &[category, names] : not_held) {
        const bool all = name == category;
        if (!all && (" " + std::string(names) + " ").find(" " + name + " ") == std::string::npos)
            continue;
        throw failure(bad_usage, name + (all ? "" : std::string(" is of ") + category + ", which") +
                                     " is not held by compiled locales; they hold LC_CTYPE, "
                                     "LC_COLLATE, LC_NUMERIC, LC_MONETARY, LC_TIME and "
                                     "LC_MESSAGES");
    }
}

// ---- values ----

static std::vector<std::string> outer_texts(const codec &code,
                                            const std::vector<wide_text> &names) {
    std::vector<std::string> texts;
    for (const wide_text &name : names)
        texts.push_back(outer_text(code, name));
    return texts;
}

static std::vector<std::string> item_texts(const codec &code, unsigned first, unsigned count) {
    std::vector<std::string> texts;
    std::string text;
    for (unsigned i = 0; i < count; ++i)
        if (item_text(code, first + i, text) || count == 1) texts.push_back(text);
    return texts;
}

static keyword_value value_of(const open_job &job, const keyword &key) {
    keyword_value value{key.category, key.name, {}};
    const auto months = [&](const std::vector<wide_text> &lone, unsigned first) {
        return lone.empty() ? item_texts(job.code, first, 20) : outer_texts(job.code, lone);
    };
    switch (key.from) {
    case source::items:
        value.texts = item_texts(job.code, key.first, key.count);
        value.list = key.count > 1;
        break;
    case source::convention:
        for (const convention &c : job.conventions)
            if (c.name == value.name) value.texts = {c.value}, value.number = c.number;
        break;
    case source::collation:
        value.texts = {collation_text(job.code)};
        break;
    case source::longest:
        value.texts = {std::to_string(ko_mb_loc_max(job.code.loc))};
        value.number = true;
        break;
    case source::months:
        value.texts = months(job.names.lone_months, KO_MON_1);
        value.list = true;
        break;
    case source::short_months:
        value.texts = months(job.names.lone_short_months, KO_ABMON_1);
        value.list = true;
        break;
    case source::weekday:
        value.texts = {std::to_string(first_weekday(job.handle.object) + 1)};
        value.number = true;
        break;
    }
    return value;
}

static const char *category_of_item(unsigned item) {
    for (const keyword &key : keywords)
        if (key.from == source::items && item >= key.first && item < key.first + key.count)
            return key.category;
    return "LC_NUMERIC"; // RADIXCHAR and THOUSEP, which conventions repeat
}

// The values that a word asks for: a category, a name of locale(1), or an item of "kova info".
static unsigned item_named(const std::string &word) {
    try {
        return item_of(word);
    } catch (const failure &) {
        throw failure(bad_usage, "there is no category or keyword \"" + word +
                                     "\", nor an item; kova locale LOCALE shows the keywords, and "
                                     "kova info LOCALE the items");
    }
}

static std::vector<keyword_value> values_of(const open_job &job, const std::string &word) {
    std::vector<keyword_value> values;
    for (const keyword &key : keywords)
        if (word == key.name || word == key.category || word.empty())
            values.push_back(value_of(job, key));
    if (!values.empty()) return values;
    refuse_what_is_not_held(word);
    const unsigned item = item_named(word);
    return {
        {category_of_item(item), item_name(item), item_texts(job.code, item, 1)}
    };
}

// ---- forms ----

static std::string joined(const keyword_value &value) {
    std::string text;
    if (value.number && value.texts == std::vector<std::string>{"-"}) return "-1";
    for (size_t i = 0; i < value.texts.size(); ++i)
        text += (i ? ";" : "") + value.texts[i];
    return text;
}

static std::string escaped(const std::string &text) {
    std::string result;
    for (const char c : text)
        result += c == '"' || c == '\\' ? std::string{'\\', c} : std::string(1, c);
    return result;
}

static void write_lines(const open_job &job, const std::vector<keyword_value> &values,
                        const locale_options &options, bool everything, output &out) {
    const char *category = "";
    std::string lines;
    const std::string end = newline_of(job.code);
    for (const keyword_value &value : values) {
        if ((options.categories || everything) && value.category != std::string_view(category))
            lines += (category = value.category) + end;
        const std::string text = visible(job.code, joined(value));
        if (!options.keywords && !everything)
            lines += text + end;
        else
            lines += value.name + "=" + (value.number ? text : "\"" + escaped(text) + "\"") + end;
    }
    write(out, lines);
}

static std::string value_json(const keyword_value &value) {
    if (value.number) return value.texts.empty() || value.texts[0] == "-" ? "null" : value.texts[0];
    if (!value.list) return json_quoted(joined(value));
    std::string list;
    for (const std::string &text : value.texts)
        list += (list.empty() ? "" : ", ") + json_quoted(text);
    return "[" + list + "]";
}

static void write_json(const open_job &job, std::vector<keyword_value> values, output &out) {
    std::stable_sort(values.begin(), values.end(), [](const auto &a, const auto &b) {
        return std::string_view(a.category) < b.category;
    });
    std::string json = "{\n  \"locale\": " + json_quoted(job.handle.name), last;
    for (size_t i = 0; i < values.size(); ++i) {
        const keyword_value &value = values[i];
        const bool begins = i == 0 || last != value.category;
        if (begins)
            json += (i ? "\n  },\n  " : ",\n  ") + json_quoted(last = value.category) + ": {\n";
        const bool again =
            std::any_of(values.begin(), values.begin() + long(i),
                        [&](const auto &v) { return v.name == value.name && v.category == last; });
        if (!again)
            json +=
                (begins ? "    " : ",\n    ") + json_quoted(value.name) + ": " + value_json(value);
    }
    write(out, json + (values.empty() ? "\n}\n" : "\n  }\n}\n"));
}

// ---- answers ----

static std::wstring points_of(const codec &code, const std::vector<ko_wchar_t> &wide) {
    std::wstring points;
    for (const ko_wchar_t c : wide) {
        const uint32_t point = code.utf16 ? c : code_point(code, c);
        constexpr wchar_t other = 0xFFFD; // wchar_t has 16 bits on some systems
        points += point <= 0xFFFF ? wchar_t(point) : point == no_code_point ? wchar_t(c) : other;
    }
    return points;
}

static bool fits(const codec &code, unsigned item, const std::wstring &answer) {
    const std::wstring expression = points_of(code, item_text(code, item));
    constexpr size_t longest = 1000; // the matcher's stack grows with expressions
    if (expression.empty()) return false;
    try {
        if (expression.size() > longest) throw std::regex_error(std::regex_constants::error_space);
        auto how = std::regex::extended;
#ifdef __GLIBCXX__
        how |= std::regex_constants::__polynomial; // nested repeats would take exponential time
#endif
        return std::regex_search(answer, std::wregex(expression, how));
    } catch (const std::regex_error &) {
        throw failure(bad_locale, item_name(item) +
                                      " of the locale is not a regular expression that can be "
                                      "matched");
    }
}

// As scripts ask: 0 yes, 1 no, 2 neither, so that text that cannot be read is not "no".
static int run_answer(const open_job &job, const locale_options &options, output &out) {
    const auto &code = job.code;
    std::wstring answer;
    try {
        answer = points_of(code, decode_argument(code, options.answer, "the answer"));
    } catch (const failure &e) {
        throw failure(e.status == bad_text ? int(bad_usage) : e.status, e.what());
    }
    // Expressions look at the first characters; the matcher's stack grows with those after them.
    answer.resize(std::min<size_t>(answer.size(), 1000));
    static constexpr const char *words[] = {"yes", "no", "neither"};
    const int found = fits(code, KO_YESEXPR, answer) ? 0 : fits(code, KO_NOEXPR, answer) ? 1 : 2;
    if (options.json)
        write(out, "{\n  \"locale\": " + json_quoted(job.handle.name) +
                       ",\n  \"answer\": " + json_quoted(options.answer) + ",\n  \"means\": \"" +
                       words[found] + "\"\n}\n");
    else
        write(out, std::string(words[found]) + "\n");
    finish(out);
    return found;
}

int run_locale(const common_options &common, const locale_options &options) {
    common_options asked = common;
    if (options.json) asked.form = text_form::utf8;
    open_job job;
    const data_place place = open_with_codec(asked, options.locale, job.handle, job.code);
    output out;
    if (options.asks) {
        add_mapping(job.handle, place, job.code);
        return run_answer(job, options, out);
    }
    job.conventions = conventions(job.code);
    job.names = names_of(job.code, job.handle.object);
    const bool everything = options.names.empty();
    std::vector<keyword_value> values;
    if (everything) values = values_of(job, "");
    for (const std::string &name : options.names) {
        if (name.empty()) throw failure(bad_usage, "the name of a value is empty");
        const std::vector<keyword_value> found = values_of(job, name);
        values.insert(values.end(), found.begin(), found.end());
    }
    if (options.json)
        write_json(job, values, out);
    else
        write_lines(job, values, options, everything, out);
    finish(out);
    return done;
}

} // namespace kovacli
