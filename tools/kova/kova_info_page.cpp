// The page and the JSON object of "kova info".
#include "kova/kova_info.h"

#include <algorithm>

#include "common/tool_text.h"
#include "kova/kova_page.h"

namespace kovacli {

// ---- the page ----

namespace {

// A format in the locale's characters; empty if they have no mapping.
std::vector<ko_wchar_t> format_of(const codec &code, const char *ascii) {
    std::vector<ko_wchar_t> wide;
    const bool ascii_set = code.newline == '\n';
    if (!ascii_set && !code.mapped) return {0};
    for (; *ascii; ++ascii) {
        const unsigned char c = uint8_t(*ascii);
        wide.push_back(ascii_set ? c : code.wide_of[c]);
    }
    wide.push_back(0);
    return wide;
}

std::string sample(const codec &code, const ko_wchar_t *written, int count) {
    std::string text;
    if (count > 0) outer_text(code, written, text);
    return text;
}

constexpr int sample_room = 256;

std::string number_sample(const codec &code, const char *format, double value) {
    ko_wchar_t out[sample_room + 1];
    const std::vector<ko_wchar_t> wide = format_of(code, format);
    return sample(code, out, ko_wcsfnum(code.loc, out, sample_room, wide.data(), value));
}

std::string money_sample(const codec &code, const char *format, double value) {
    ko_wchar_t out[sample_room + 1];
    const std::vector<ko_wchar_t> wide = format_of(code, format);
    return sample(code, out, ko_wcsfmon(code.loc, out, sample_room, wide.data(), value));
}

// The same moment on every page: a Saturday afternoon.
std::string time_sample(const codec &code, const char *format) {
    ko_tm_t when = {};
    when.tm_sec = 7;
    when.tm_min = 5;
    when.tm_hour = 15;
    when.tm_mday = 21;
    when.tm_mon = 10;
    when.tm_year = 126;
    when.tm_wday = 6;
    when.tm_yday = 324;
    ko_wchar_t out[sample_room];
    const std::vector<ko_wchar_t> wide = format_of(code, format);
    return sample(code, out, ko_wcsftime(code.loc, out, sample_room, wide.data(), &when));
}

std::string item_list(const codec &code, unsigned first, unsigned count) {
    std::string list, text;
    for (unsigned i = 0; i < count; ++i) {
        if (!item_text(code, first + i, text)) continue;
        list += (list.empty() ? "" : ", ") + text;
    }
    return list;
}

struct page {
    const codec &code;
    std::vector<std::vector<cell>> rows;
    void add(const char *name, const std::string &value, const char *kind = "local") {
        if (!value.empty())
            rows.push_back({
                {name },
                { visible(code, value), -1, false, kind}
            });
    }
};

void add_times(page &page, const codec &code) {
    page.add("date and time", time_sample(code, "%c"));
    page.add("date", time_sample(code, "%x"));
    page.add("time", time_sample(code, "%X"));
    page.add("12-hour time",
             item_list(code, KO_T_FMT_AMPM, 1).empty() ? "" : time_sample(code, "%r"));
    if (!item_list(code, KO_ERA, 1).empty()) {
        page.add("era date", time_sample(code, "%Ex"));
        page.add("era year", time_sample(code, "%EY"));
    }
    if (!item_list(code, KO_ALT_DIGITS, 1).empty())
        page.add("other digits", time_sample(code, "%Om %Od"));
    page.add("calendar", item_list(code, KO_CALENDAR, 1), nullptr);
    page.add("days", item_list(code, KO_DAY_1, 7));
    page.add("short days", item_list(code, KO_ABDAY_1, 7));
    page.add("months", item_list(code, KO_MON_1, 20));
    page.add("short months", item_list(code, KO_ABMON_1, 20));
}

} // namespace

static page page_of(const locale_handle &handle, const codec &code) {
    page page{code, {}};
    page.add("locale", handle.name, nullptr);
    page.add("object", handle.object.path, nullptr);
    page.add("code set",
             code.code_set + (handle.object.number == KO_NO_CODESET
                                  ? ""
                                  : ", number " + std::to_string(handle.object.number)),
             nullptr);
    page.add("characters", characters_text(code), nullptr);
    page.add("order", collation_text(code), nullptr);
    page.add("whole numbers", number_sample(code, "%'.0f", 1234567.0));
    page.add("fractions", number_sample(code, "%'.2f", -1234.5));
    page.add("money", money_sample(code, "%n", 1234567.89));
    page.add("money owed", money_sample(code, "%n", -1234.5));
    page.add("international", money_sample(code, "%i", 1234567.89));
    add_times(page, code);
    page.add("yes", item_list(code, KO_YESSTR, 1));
    page.add("no", item_list(code, KO_NOSTR, 1));
    page.add("yes matches", item_list(code, KO_YESEXPR, 1));
    page.add("no matches", item_list(code, KO_NOEXPR, 1));
    return page;
}

void write_page(const locale_handle &handle, const codec &code, output &out) {
    write_table(out, page_of(handle, code).rows);
}

void write_page_html(const locale_handle &handle, const codec &code, output &out) {
    const html_table table{.caption = "What the locale says of itself, with samples",
                           .rows = page_of(handle, code).rows,
                           .head_row = false,
                           .local = language_of(code, handle.object)};
    write_html(out, "Locale " + handle.name, html_of(table));
}

// ---- JSON ----

std::string json_quoted(const std::string &text) {
    std::string json = "\"";
    for (size_t at = 0, size; at < text.size(); at += size) {
        uint32_t point = 0;
        const auto *bytes = reinterpret_cast<const unsigned char *>(text.data() + at);
        const int taken = utf8_char(bytes, text.size() - at, point);
        size = taken > 0 ? size_t(taken) : 1;
        char escape[8];
        if (text[at] == '"' || text[at] == '\\') {
            json += std::string{'\\', text[at]};
        } else if (taken > 0 && !kovatool::obeyed_by_terminals(point)) {
            json.append(text, at, size);
        } else {
            std::snprintf(escape, sizeof escape, "\\u%04x", unsigned(taken > 0 ? point : 0xFFFD));
            json += escape;
        }
    }
    return json + '"';
}

static std::string items_json(const codec &code, const std::vector<unsigned> &items) {
    std::string json;
    for (const unsigned item : items) {
        std::string text;
        const bool known = item_text(code, item, text);
        json += (json.empty() ? "" : ",\n") + std::string("    ") + json_quoted(item_name(item)) +
                ": " + (known ? json_quoted(text) : "null");
    }
    return "{\n" + json + "\n  }";
}

static std::string conventions_json(const codec &code) {
    std::string json;
    for (const convention &c : conventions(code)) {
        json += (json.empty() ? "" : ",\n") + std::string("    ") + json_quoted(c.name) + ": " +
                (!c.number        ? json_quoted(c.value)
                 : c.value == "-" ? "null"
                                  : c.value);
    }
    return "{\n" + json + "\n  }";
}

void write_json(const locale_handle &handle, const codec &code,
                const std::vector<std::string> &items, output &out) {
    std::vector<unsigned> wanted;
    for (const std::string &name : items) {
        const unsigned item = item_of(name);
        if (std::find(wanted.begin(), wanted.end(), item) == wanted.end()) wanted.push_back(item);
    }
    for (unsigned item = 0; items.empty() && item <= KO_LANGINFO_MAX; ++item)
        if (ko_wc_nl_langinfo(code.loc, item)) wanted.push_back(item);
    std::string json = "{\n  \"locale\": " + json_quoted(handle.name);
    if (items.empty()) {
        json += ",\n  \"object\": " + json_quoted(handle.object.path);
        json += ",\n  \"code_set\": " + json_quoted(code.code_set);
        if (handle.object.number != KO_NO_CODESET)
            json += ",\n  \"code_set_number\": " + std::to_string(handle.object.number);
        json += ",\n  \"characters\": " + json_quoted(characters_text(code));
        json += ",\n  \"collation\": " + json_quoted(collation_text(code));
        json += ",\n  \"conventions\": " + conventions_json(code);
    }
    json += ",\n  \"items\": " + items_json(code, wanted) + "\n}\n";
    write(out, json);
}

} // namespace kovacli
