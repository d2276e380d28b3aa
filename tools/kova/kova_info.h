// What the forms of "kova info" share: the items, conventions and figures of an open locale.
#pragma once

#include <string>
#include <vector>

#include "kova/kova_io.h"
#include "kova/kova_locale.h"
#include "kova/kova_table.h"
#include "kova/kova_text.h"

namespace kovacli {

std::string item_name(unsigned item);
// Finds an item by its name (in either case, with or without "KO_") or by its number. Throws
// failure.
unsigned item_of(const std::string &text);

// Converts a wide string of the locale to the outer form; false for NULL.
bool outer_text(const codec &code, const ko_wchar_t *wide, std::string &text);
bool item_text(const codec &code, unsigned item, std::string &text); // of a query item

std::string newline_of(const codec &code); // in the outer form

std::string collation_text(const codec &code);
std::string characters_text(const codec &code); // "7100 of 1 to 2 bytes"

struct convention {
    const char *name;
    std::string value; // "-" if the locale does not say
    bool number;
};
std::vector<convention> conventions(const codec &code);

// A page for people, with samples.
void write_page(const locale_handle &handle, const codec &code, output &out);
void write_page_html(const locale_handle &handle, const codec &code, output &out);
// One JSON object, in UTF-8; with only the named items if there are any.
void write_json(const locale_handle &handle, const codec &code,
                const std::vector<std::string> &items, output &out);

} // namespace kovacli
