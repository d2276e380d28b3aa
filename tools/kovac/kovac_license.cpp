// Finds in the comments of locale sources what they say of their licenses, and knows what the
// makers of the sources of code sets say.
#include "kovac/kovac_license.h"

#include <array>
#include <set>

#include "kovac/kovac_write.h"

namespace kovac {

// What a source may say, and what the object says then. A source may say several things; the last
// row is for those that say none.
namespace {
struct saying {
    std::string_view words, meaning;
};
} // namespace
static constexpr saying sayings[] = {
    {"does not claim any copyright interest in the locale data",
     "no copyright claimed in the data"                                                      },
    {"GNU Lesser General Public License",                        "LGPL-2.1-or-later"         },
    {"Distribution and use is free",                             "free to distribute and use"},
    {"License: Open Government Data License 1.0",
     "Open Government Data License 1.0 (as CC BY 4.0)"                                       },
    {"License: Public Domain",                                   "public domain"             },
    {"under the MIT license of Kova",                            "MIT"                       },
    {"",                                                         "nothing said"              },
};
constexpr size_t saying_count = std::size(sayings);
constexpr size_t scan_bytes = 4096; // such words stand at the beginning

// The beginning of a text without the marks of comments, each stretch of blanks one blank.
static std::string plain_words(std::string_view text) {
    std::string words;
    bool at_start = true;
    for (const char c : text.substr(0, scan_bytes)) {
        const bool mark = at_start && (c == '%' || c == '#');
        const bool blank = c == ' ' || c == '\t' || c == '\n' || c == '\r' || mark;
        if (!blank) words += c;
        if (blank && !words.empty() && words.back() != ' ') words += ' ';
        at_start = c == '\n' || (at_start && blank);
    }
    return words;
}

std::vector<std::string> license_lines(const source_set &set) {
    std::array<std::set<std::string>, saying_count> names;
    for (const auto &[asked, file] : set.files) {
        const std::string words = plain_words(file->text);
        bool said = false;
        for (size_t row = 0; row < saying_count; ++row) {
            const bool last = row + 1 == saying_count;
            if (last ? said : words.find(sayings[row].words) == words.npos) continue;
            names[row].insert(file->name);
            said = true;
        }
    }
    std::vector<std::string> lines;
    for (size_t row = 0; row < saying_count; ++row) {
        const std::string start = "LICENSE=" + std::string(sayings[row].meaning) + ":";
        bool first = true;
        for (const std::string &name : names[row]) {
            if (first || lines.back().size() + name.size() + 1 > header_limit)
                lines.push_back(start);
            lines.back() += " " + name;
            first = false;
        }
    }
    return lines;
}

std::string codeset_license(std::string_view origin) {
    if (origin.starts_with("charmap "))
        return "LICENSE=nothing said by the charmap; the package locales is LGPL-2.1-or-later";
    if (origin.starts_with("ICU ")) return "LICENSE=ICU is under the Unicode license";
    if (origin.starts_with("C library "))
        return "LICENSE=answers of the C library's converter, which is LGPL-2.1-or-later";
    if (origin.starts_with("mapping ")) return "LICENSE=that of the mapping file";
    return "";
}

} // namespace kovac
