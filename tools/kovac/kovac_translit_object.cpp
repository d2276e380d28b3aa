// The object of transliterations, from which kova convert takes what to write for characters that
// the target lacks.
#include "kovac/kovac_translit.h"

#include <cstdio>
#include <map>

#include "common/tool_text.h"
#include "kovac/kovac_license.h"
#include "kovac/kovac_write.h"

namespace kovac {

// The first table that has a character counts: spellings before shapes, letters of Hangul and
// variants of ideographs last.
static constexpr const char *tables_of_object[] = {"translit_neutral", "translit_combining",
                                                   "translit_hangul", "translit_cjk_variants"};

// "41+45;41": the spellings of a character, the best first; "-" leaves it out.
static std::string spellings_text(const std::vector<std::vector<uint32_t>> &spellings) {
    std::string text;
    for (const std::vector<uint32_t> &spelling : spellings) {
        std::string one;
        for (const uint32_t code : spelling)
            one += (one.empty() ? "" : "+") + format("%X", unsigned(code));
        text += (text.empty() ? "" : ";") + (one.empty() ? "-" : one);
    }
    return text;
}

// Names of a charmap that are no code points are not written.
static bool has_code_points(const std::vector<std::vector<uint32_t>> &spellings) {
    for (const std::vector<uint32_t> &spelling : spellings)
        for (const uint32_t code : spelling)
            if (code > 0x10FFFF) return false;
    return !spellings.empty();
}

static bool put_table(FILE *file, const translit &tables) {
    const std::vector<std::string> licenses = license_lines(tables.set);
    fprintf(file, "FILE_TYPE=transliteration_object\nCOMPILER_VERSION=1\nHEADER_LENGTH=%zu\nFROM=",
            licenses.size() + 6);
    for (const char *const name : tables_of_object)
        fprintf(file, "%s%s", name == tables_of_object[0] ? "" : " ", name);
    fprintf(file, "\nCOMPILER=kovac 2.86\n%s\n", unsealed_content);
    for (const std::string &line : licenses)
        fprintf(file, "%s\n", line.c_str());
    for (const auto &[code, spellings] : std::map(tables.spellings.begin(), tables.spellings.end()))
        if (code <= 0x10FFFF && has_code_points(spellings))
            fprintf(file, "%X %s\n", unsigned(code), spellings_text(spellings).c_str());
    return true;
}

int compile_translit(const std::string &root, const std::vector<std::string> &dirs,
                     std::string *why) {
    constexpr int source_missing = 3, unwritten = 3;
    const charmap none; // code points are the names of their characters
    source_set set{.dirs = dirs, .files = {}, .own = {}};
    translit tables{.set = set, .spellings = {}};
    load_spellings(tables, none, tables_of_object);
    if (tables.spellings.empty()) {
        *why = "there is no source translit_neutral; install the package \"locales\"";
        return source_missing;
    }
    const std::string path = root + "/kova/cv9/translit.trl";
    const auto put = [&tables](FILE *file) { return put_table(file, tables); };
    const write_result result = write_file(path, why, put);
    if (result != write_result::done) *why = "cannot write " + path + ": " + *why;
    return result == write_result::done ? 0 : unwritten;
}

} // namespace kovac
