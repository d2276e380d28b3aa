// The order of a locale as its commands and pages show it.
#pragma once

#include <string>
#include <vector>

#include "kova/kova_io.h"
#include "kova/kova_weights.h"

namespace kovacli {

// A character, or an element of several.
struct order_letter {
    wide_text text;
    std::string shown;
    size_t row = 0;
    std::vector<std::string> key; // its parts, one for each level
    int level = 0;                // where it differs from the letter before it; 0: nowhere
};

// Letters that are alike at the first level.
struct order_group {
    std::vector<order_letter> letters;
    std::string spelled;  // "ss": what its first letter expands to at the first level
    bool ignored = false; // at the first level
};

struct level_facts {
    bool forward = true;
    std::string first, second; // neighbours that only this level and those after it tell apart
};

struct order_view {
    std::string locale, by, letters; // by weights; "letters of latn"
    std::vector<level_facts> levels;
    std::vector<order_group> groups;
    size_t more = 0;                 // groups that are not shown
    size_t ignored = 0;              // characters that the first level ignores
    std::vector<std::string> sample; // some of them
    size_t weightless = 0;           // texts that every level ignores
    bool usual = false;              // only the usual letters of the scripts
};

// A character or element of a text, with its weight at each level.
struct order_part {
    std::string shown, spelled; // "ß", "ss"
    std::vector<std::string> weights;
};
struct order_of_text {
    std::string locale, text;
    std::vector<level_facts> levels;
    std::vector<order_part> parts;
    std::vector<std::string> key; // bytes in hexadecimal, one text for each level
};

// "<<" for the second level.
std::string level_sign(int level);

void write_json(const order_view &view, output &out);
void write_json(const order_of_text &view, output &out);
// own: the language of the locale's letters.
void write_html(const order_view &view, const struct html_language &own, output &out);
void write_html(const order_of_text &view, const struct html_language &own, output &out);

} // namespace kovacli
