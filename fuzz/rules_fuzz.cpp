// Code sets that convert by rule: pieces and rooms of any length give what one call gives, neither
// the text nor the room is left, and what converts comes back. The input begins with the code set
// and the direction, and a seed of the lengths.
#include "fuzz_host.h"
#include "host/host_rules.h"

namespace {
constexpr const char *names[] = {
    "iso-2022-jp", "iso-2022-jp-1", "iso-2022-jp-2", "iso-2022-kr", "iso-2022-cn-ext",
    "hz",          "utf-7",         "imap",          "gb18030",     "sjis-2004",
    "hkscs",       "ibm1399",       "iso-2022-jp-3", "cp50221"};
constexpr size_t sets = sizeof names / sizeof *names;

struct conversions {
    rules_root root;
    ko_cv_t all[sets][2] = {};
    conversions() {
        for (size_t i = 0; i < sets; ++i)
            for (const bool back : {false, true})
                check(!ko_open_conversion(&all[i][back], root.path.c_str(),
                                          back ? "utf8" : names[i], back ? names[i] : "utf8",
                                          KO_CONVERT_KEEP_MARK),
                      "the conversions can be opened");
    }
    ~conversions() {
        for (const auto &pair : all)
            for (const ko_cv_t cd : pair)
                ko_cv_unload(cd);
    }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const conversions opened;
    if (size < 2) return 0;
    const long before = memory.live;
    const auto &pair = opened.all[data[0] / 2 % sets];
    const bool back = data[0] % 2;
    const std::string text(data + 2, data + size);
    std::minstd_rand random(data[1] + 1u);
    const outcome made = convert_whole(pair[back], text);
    check(made.error != KO_E2BIG, "the computed size suffices");
    check(convert_splits(pair[back], text, random) == made, "pieces give what one call gives");
    if (back && !made.error) {
        const outcome again = convert_whole(pair[0], made.made);
        check(!again.error && again.made == text, "what converts comes back");
    }
    // A state that no text leads to does no harm.
    conv_state st = {0, data[1] & 1, int(data[1] * 0x10931u), int(data[1] * 0x10931u), nullptr};
    convert_piece(pair[back], &st, text, data[1]);
    check(memory.live == before, "nothing is left");
    return 0;
}
