// A charmap, a locale source, a mapping file, a mapping table or a registry from anywhere is
// either refused with a message or read into bounded memory. A charmap keeps characters of one and
// two bytes, each once and in order; what compiles is written as an object that the library loads;
// what a registry file says is what it says after it was written and read again. The first byte of
// the input chooses the reader.
#include "common/tool_charmap.h"
#include "kova.h"
#include "kovac/kovac_convert.h"
#include "kovac/kovac_locale.h"
#include "kovac/kovac_registry.h"
#include "kovac/kovac_write.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

using namespace kovac;

namespace {

void check(bool holds, const char *law) {
    if (holds) return;
    fprintf(stderr, "broken: %s\n", law);
    abort();
}

// Files of this run, in memory where the system has such a place.
struct folder {
    std::string path = access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : "/tmp/";
    std::string input, object;
    folder() {
        path += "kova_fuzz_" + std::to_string(getpid());
        input = path + ".in";
        object = path + ".lco";
    }
    ~folder() {
        remove(input.c_str());
        remove(object.c_str());
    }
};
folder files;

void put_input(std::string_view text) {
    FILE *out = fopen(files.input.c_str(), "wb");
    check(out && fwrite(text.data(), 1, text.size(), out) == text.size() && fclose(out) == 0,
          "the input is written");
}

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
    put_input(text);
    messages m;
    charmap map;
    std::vector<charmap_line> lines;
    const bool good = load_charmap({}, files.input, m.diag, map, &lines);
    check_said(m, good);
    if (good) check_map(map);
}

const charmap &plain_map() {
    static const charmap map = [] {
        put_input("<code_set_name> PLAIN\n<comment_char> %\n<escape_char> /\nCHARMAP\n"
                  "<U0000>..<U007F> /x00\n<U00E0>..<U00FF> /xe0\n<U4E00>..<U4E0F> /x81/x40\n"
                  "END CHARMAP\n");
        charmap made;
        messages m;
        check(load_charmap({}, files.input, m.diag, made), "the charmap of the fuzzer is good");
        return made;
    }();
    return map;
}

void try_source(std::string_view text) {
    const charmap &map = plain_map();
    put_input(text);
    messages m;
    source_set set;
    set.main = load_source(set, m.diag, files.input, {});
    check(set.main, "the source is read");
    locale_object object;
    const bool good = compile_locale(set, map, m.diag, object, nullptr);
    check_said(m, good);
    if (!good) return;
    object.codeset = map.name;
    std::string why;
    check(write_locale(files.object, object, map, &why) == write_result::done, "it is written");
    ko_lc_t loc = nullptr;
    const size_t slash = files.object.rfind('/');
    // Eras are the source's own text; the command loads an object before that gets its name.
    check(ko_lc_load(&loc, files.object.c_str() + slash + 1, nullptr,
                     files.object.substr(0, slash).c_str()) == 0 ||
              !object.time.era.empty(),
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
    switch (data[0] % 5) {
    case 0:
        try_charmap(text);
        break;
    case 1:
        try_source(text);
        break;
    case 2:
        try_set(text, read_mapping);
        break;
    case 3:
        try_set(text, read_ucm);
        break;
    default:
        try_registry(text);
    }
    return 0;
}
