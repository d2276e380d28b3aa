// HTML pages for people: each complete in one file, without scripts or anything from elsewhere.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kova/kova_table.h"
#include "kova/kova_text.h"

namespace kovacli {

// The language of a text. A page's own words are English.
struct html_language {
    std::string tag = "en";
    bool rtl = false;
};

// That of a locale's words; "und" where the name of its object is no language.
html_language language_of(const codec &code, const object_file &object);

// UTF-8 as content or as an attribute's value, markup escaped. What a terminal would obey, and
// bytes that are not UTF-8, are spelled out.
std::string html_text(std::string_view utf8);

// lang="de-DE" dir="ltr", after a blank.
std::string html_attributes(const html_language &language);

// An element with a text in it; attributes are markup, each after a blank.
std::string html_element(const char *name, std::string_view text,
                         const std::string &attributes = {});

// A table with a caption, in a box that scrolls by itself.
struct html_table {
    std::string caption;
    std::vector<std::vector<cell>> rows;
    const char *kind = "plain"; // the class, by which the page's style knows it
    bool head_row = true;       // the first row has heads; so has the first column, always
    html_language local = {};   // of cells of the kind "local"
};
std::string html_of(const html_table &table);

// As html_of, around rows that are markup already.
std::string html_box(const std::string &caption, const char *kind, const std::string &rows,
                     bool rtl = false);

// Writes a page; its body is markup.
void write_html(output &out, std::string_view title, const std::string &body,
                const html_language &language = {});

} // namespace kovacli
