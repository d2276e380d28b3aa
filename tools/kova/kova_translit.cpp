// Reads the object of transliterations, whose form docs/conversion.md describes.
#include "kova/kova_translit.h"

#include <charconv>

#include "kova/kova_cli.h"
#include "kova/kova_io.h"
#include "kova/kova_text.h"
#include "kova_host.h"

namespace kovacli {

static constexpr char object_name[] = "translit.trl";
static constexpr size_t longest_spelling = 64; // characters

static uint32_t code_of(std::string_view digits) { // no_code_point if it is none
    uint32_t code = 0;
    const char *const end = digits.data() + digits.size();
    const std::from_chars_result read = std::from_chars(digits.data(), end, code, 16);
    const bool whole = read.ptr == end && read.ec == std::errc();
    const bool fits = code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    return whole && !digits.empty() && fits ? code : no_code_point;
}

// The part of text before a mark; text becomes what comes after it.
static std::string_view next_part(std::string_view &text, char mark) {
    const size_t end = std::min(text.find(mark), text.size());
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

// "0041+0045;0041": a spelling after the other. False if it is none.
static bool read_spellings(std::string_view text, std::vector<std::string> &spellings) {
    while (!text.empty()) {
        std::string_view spelling = next_part(text, ';');
        std::string made;
        size_t count = 0;
        if (spelling == "-") spelling = "";
        while (!spelling.empty()) {
            const uint32_t code = code_of(next_part(spelling, '+'));
            if (code == no_code_point || ++count > longest_spelling) return false;
            append_utf8(code, made);
        }
        spellings.push_back(made);
    }
    return !spellings.empty();
}

static bool read_table(std::string_view text, translit_table &table) {
    static constexpr std::string_view key = "HEADER_LENGTH=";
    int lines = 3; // of the header, as its third says
    for (int line = 1; line <= lines && !text.empty(); ++line) {
        const std::string_view read = next_part(text, '\n');
        if (line < 3) continue;
        if (line == 3 && !read.starts_with(key)) return false;
        if (line == 3) std::from_chars(read.data() + key.size(), read.data() + read.size(), lines);
    }
    while (!text.empty()) {
        std::string_view line = next_part(text, '\n');
        const uint32_t code = code_of(next_part(line, ' '));
        if (code == no_code_point || !read_spellings(line, table[code])) return false;
    }
    return !table.empty();
}

translit_table read_translit(const data_place &place) {
    for (const std::string &dir : place.dirs) {
        const std::string path = dir + "/" + object_name;
        if (!is_regular_file(path)) continue;
        input in;
        open(in, path);
        while (more(in)) {
        }
        const void *const bytes = in.block.data();
        const std::string_view text(static_cast<const char *>(bytes), in.fill);
        translit_table table;
        const bool sound = text.starts_with("FILE_TYPE=transliteration_object\n") &&
                           ko_verify_object(bytes, in.fill, nullptr) == KO_OK;
        if (sound && read_table(text, table)) return table;
        throw failure(bad_locale,
                      path + " is damaged or no object of transliterations; compile it again with "
                             "kovac translit");
    }
    throw failure(bad_locale, std::string("--translit: the data root has no ") + object_name +
                                  "; compile it with \"kovac translit -o " +
                                  (place.root.empty() ? "ROOT" : place.root) + "\"");
}

} // namespace kovacli
