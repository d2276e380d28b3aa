// A charmap object from anywhere either fails to load or serves: text and symbols convert without
// leaving their room, a measured text takes its measured room, and nothing is left behind. The end
// of the input is the text.
#include "fuzz_host.h"
#include "fuzz_object.h"

static void check_text(ko_cm_t cm, const std::vector<ko_mchar_t> &text) {
    const int len = int(text.size());
    std::vector<char> roomy(size_t(len) * 200 + 1);
    const ko_mchar_t *at = text.data();
    const int full = ko_mbstosyms(cm, roomy.data(), int(roomy.size()), &at, len);
    check(at >= text.data() && at <= text.data() + len, "the position is in the text");
    if (full < 0) return;
    check(strlen(roomy.data()) + 1 == size_t(full), "the result is the length");
    for (int size = 1; size <= full; size += 1 + full / 8) {
        std::vector<char> exact(static_cast<size_t>(size));
        at = text.data();
        const int cut = ko_mbstosyms(cm, exact.data(), size, &at, len);
        check(cut > 0 && cut <= size && !strncmp(exact.data(), roomy.data(), strlen(exact.data())),
              "a small room gets the front");
    }
    std::vector<ko_mchar_t> back(roomy.size() * 4 + 4);
    const char *symbols = roomy.data();
    const int read = ko_symstombs(cm, back.data(), int(back.size()), &symbols);
    if (read < 0) return; // a range may run out of its digits
    std::vector<ko_mchar_t> fits(static_cast<size_t>(read));
    symbols = roomy.data();
    check(ko_symstombs(cm, fits.data(), read, &symbols) == read, "the measured room suffices");
}

// A terminated text is not read behind its terminator.
static void check_terminated(ko_cm_t cm, std::vector<ko_mchar_t> text) {
    const size_t end = ko_mb_cm_min(cm) == 2 ? 2 : 1;
    text.resize((text.size() + end - 1) / end * end + end);
    const std::vector<ko_mchar_t> exact = text;
    std::vector<char> symbols(64);
    const ko_mchar_t *at = exact.data();
    ko_mbstosyms(cm, symbols.data(), 64, &at, 0);
    check(at >= exact.data() && at < exact.data() + exact.size(), "the end is the terminator");
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size,
                                          unsigned seed) {
    return mutate_object(data, size, max_size, seed, 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    file_hooks files;
    files.files["m\\x.cmo"].assign(data, data + size);
    const size_t tail = size < 48 ? size : 48;
    std::vector<ko_mchar_t> text(data + size - tail, data + size);
    ko_cm_t cm = nullptr;
    ko_cm_load(&cm, "x.cmo", nullptr, "m"); // what a failure leaves serves, too
    check(!files.streams, "the stream is closed");
    check_text(cm, text);
    check_terminated(cm, text);
    text.resize(tail + 4);
    const std::string symbols(text.begin(), text.end());
    std::vector<ko_mchar_t> bytes(16);
    const char *at = symbols.c_str();
    ko_symstombs(cm, bytes.data(), 16, &at);
    std::vector<char> list(32);
    for (int len = 1; len <= 4; ++len)
        ko_mbtosymlist(cm, list.data(), 32, text.data(), len);
    std::vector<ko_wchar_t> wide(16);
    at = symbols.c_str();
    ko_symstowcs(cm, wide.data(), 16, &at);
    ko_cm_unload(cm);
    check(memory.live == 0, "nothing is left");
    return 0;
}
