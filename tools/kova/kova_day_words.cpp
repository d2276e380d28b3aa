// Names in a text, without regard to case.
#include "kova/kova_day_words.h"

#include <algorithm>
#include <vector>

namespace kovacli {

namespace {
struct day_word {
    std::string text;
    int number;
};
using day_words = std::vector<day_word>;
} // namespace

static day_words english(std::initializer_list<const char *> names) {
    day_words words;
    int number = 0;
    for (const std::string name : names) {
        words.push_back({name, number});
        words.push_back({name.substr(0, 3), number++});
    }
    return words;
}

static day_words english_months() {
    day_words words = english({"January", "February", "March", "April", "May", "June", "July",
                               "August", "September", "October", "November", "December"});
    words.push_back({"Sept", 8});
    return words;
}

static day_words months = english_months();
static day_words weekdays =
    english({"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"});

static char folded(char c) { return c >= 'A' && c <= 'Z' ? char(c | 0x20) : c; }

static bool continues_word(char c) {
    return (c >= '0' && c <= '9') || (folded(c) >= 'a' && folded(c) <= 'z') || (c & 0x80);
}

static bool begins_with(const char *text, const std::string &name) {
    for (const char c : name)
        if (folded(*text++) != folded(c)) return false;
    return !continues_word(*text) || !continues_word(name.back());
}

static name_found name_at(const day_words &words, const char *text) {
    name_found found;
    for (const day_word &word : words) {
        if (word.text.size() < found.len || !begins_with(text, word.text)) continue;
        const bool other = word.text.size() == found.len && word.number != found.number;
        found = {word.text.size(), other ? -1 : word.number};
    }
    if (found.len && text[found.len] == '.') ++found.len;
    return found;
}

name_found month_at(const char *text) { return name_at(months, text); }
name_found weekday_at(const char *text) { return name_at(weekdays, text); }

// A name as it is, and in small and capital letters; for ASCII, folding sees to it.
static void add_name(const codec &code, const wide_text &name, int number, day_words &words) {
    wide_text upper(name.size() + 1), ended = name;
    ended.push_back(0);
    ko_towcsupper(code.loc, upper.data(), ended.data());
    upper.pop_back();
    for (const wide_text &form : {name, lower_text(code, name), upper}) {
        std::string text = outer_text(code, form);
        while (text.ends_with('.') || text.ends_with(' '))
            text.pop_back();
        text.erase(0, std::min(text.find_first_not_of(' '), text.size()));
        if (!text.empty() && !(text[0] >= '0' && text[0] <= '9')) words.push_back({text, number});
    }
}

static void add_names(const codec &code, const std::vector<wide_text> &names, day_words &words) {
    for (size_t i = 0; i < names.size(); ++i)
        add_name(code, names[i], int(i), words);
}

void choose_words(const codec &code, const time_names &names) {
    if (!code.utf8 && code.pairs) return; // bytes of a pair look like letters
    add_names(code, names.of[full_days], weekdays);
    add_names(code, names.of[short_days], weekdays);
    if (!names.gregorian || !names.of[full_eras].empty()) return;
    for (const auto *list : {&names.of[full_months], &names.of[short_months], &names.lone_months,
                             &names.lone_short_months})
        add_names(code, *list, months);
}

} // namespace kovacli
