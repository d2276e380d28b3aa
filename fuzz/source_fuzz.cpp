// A charmap, a locale source, a mapping file, a mapping table or a registry from anywhere is
// either refused with a message or read into bounded memory. A charmap keeps characters of one and
// two bytes, each once and in order; what compiles is written as an object that the library loads;
// what a registry file says is what it says after it was written and read again. The first byte of
// the input chooses the reader.
#include "common/tool_charmap.h"
#include "fuzz_host.h"
#include "kovac/kovac_convert.h"
#include "kovac/kovac_locale.h"
#include "kovac/kovac_registry.h"
#include "kovac/kovac_write.h"

using namespace kovac;

namespace {

const temp_dir files;

// Gives the path.
std::string put_input(std::string_view text) { return files.write("input", text); }

struct messages {
    std::string said;
    diagnostics diag{.sink = &said, .verbose = true};
};

void check_said(const messages &m, bool good) {
    check(good == (m.diag.errors == 0), "a failure has a message, and success none");
}

void check_map(const charmap &map) {
    check(!map.chars.empty() && find_code(map, 0), "a charmap has the null character");
    for (size_t i = 0; i < map.chars.size(); ++i) {
        const charmap_char &c = map.chars[i];
        check(c.len == 2 || (c.len == 1 && c.wide <= 0xFF), "bytes fit their number");
        check(c.width <= 100, "widths are small");
        if (i == 0) continue;
        const charmap_char &before = map.chars[i - 1];
        check(before.len < c.len || (before.len == c.len && before.wide < c.wide), "sorted, once");
    }
    for (const auto &[code, index] : map.by_code)
        check(index < map.chars.size(), "an index names a character");
}

void try_charmap(std::string_view text) {
    messages m;
    charmap map;
    std::vector<charmap_line> lines;
    const bool good = load_charmap({}, put_input(text), m.diag, map, &lines);
    check_said(m, good);
    if (good) check_map(map);
}

const charmap &plain_map() {
    static const charmap map = [] {
        const std::string path =
            put_input("<code_set_name> PLAIN\n<comment_char> %\n<escape_char> /\nCHARMAP\n"
                      "<U0000>..<U007F> /x00\n<U00E0>..<U00FF> /xe0\n<U4E00>..<U4E0F> /x81/x40\n"
                      "END CHARMAP\n");
        charmap made;
        messages m;
        check(load_charmap({}, path, m.diag, made), "the charmap of the fuzzer is good");
        return made;
    }();
    return map;
}

void try_source(std::string_view text) {
    const charmap &map = plain_map();
    messages m;
    source_set set;
    set.main = load_source(set, m.diag, put_input(text), {});
    check(set.main, "the source is read");
    locale_object object;
    const bool good = compile_locale(set, map, m.diag, object, nullptr);
    check_said(m, good);
    if (!good) return;
    object.codeset = map.name;
    std::string why;
    check(write_locale(files.path + "/x.lco", object, map, &why) == write_result::done,
          "it is written");
    ko_lc_t loc = nullptr;
    // Eras are the source's own text; the command loads an object before that gets its name.
    check(ko_lc_load(&loc, "x.lco", nullptr, files.path.c_str()) == 0 || !object.time.era.empty(),
          "what is written loads");
    ko_lc_unload(loc);
}

void try_set(std::string_view text, bool (*read)(const source_file &, diagnostics &, conv_set &)) {
    messages m;
    source_file file{.path = "input", .name = "input", .text = std::string(text), .pool = {}};
    conv_set set, utf8;
    const bool good = read(file, m.diag, set);
    check_said(m, good);
    if (!good) return;
    complete_set(set);
    set.names = {"a"};
    utf8.names = {"utf8"};
    utf8.form = set_form::utf8;
    fill_builtin(utf8, set, last_bmp_code, false);
    conv_object forth, back;
    if (make_object(set, utf8, {}, m.diag, forth) && make_object(utf8, set, {}, m.diag, back))
        check(prove_round_trips(forth, back, m.diag, nullptr), "what is compiled is proved");
}

void try_registry(std::string_view text) {
    registry first, again;
    std::string why;
    int line = 0;
    if (!parse_registry(std::string(text), first, &line, &why)) {
        check(line > 0 && !why.empty(), "a failure has a line and a reason");
        return;
    }
    check(parse_registry(registry_text(first), again, &line, &why), "what is written is read");
    check(registry_text(first) == registry_text(again), "and says the same");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const unsigned reader = data[0] % 5;
    if (reader == 0) try_charmap(text);
    if (reader == 1) try_source(text);
    if (reader == 2) try_set(text, read_mapping);
    if (reader == 3) try_set(text, read_ucm);
    if (reader == 4) try_registry(text);
    return 0;
}
