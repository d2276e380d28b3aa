// A locale object from anywhere either fails to load or serves: it reads alike from memory and
// through stream hooks, its derived tables answer as the tables they come from, a string equals
// itself, two are in one order whichever comes first, a measured key length is the key's, and
// nothing is left behind.
#include "chars/kovambwc.h"
#include "fuzz_host.h"
#include "fuzz_object.h"
#include "load/kovasetlc_load.h"

static int load_from_memory(kovaloc *loc, text_in in) {
    const int result = read_locale_file(&in, loc);
    update_locale(loc);
    init_locale_info(loc);
    return result;
}

static void check_same_answers(kovaloc *a, kovaloc *b) {
    for (unsigned item = 0; item < KO_CALENDAR; item++) {
        const ko_mchar_t *first = ko_nl_langinfo(a, item), *second = ko_nl_langinfo(b, item);
        check(!first == !second, "the same strings are there");
        if (!first || item == KO_CODESET) continue;
        const size_t len = zeros_at(first);
        check(len == zeros_at(second) && !memcmp(first, second, len), "strings read alike");
    }
}

// What the derived tables answer about a character, or else the trees they come from.
struct character_facts {
    int classes, mb_classes, len, read, mb_upper;
    ko_wchar_t upper, lower, wide;
    ko_mchar_t bytes[4], upper_bytes[16];
    bool operator==(const character_facts &) const = default;
};
static character_facts facts_of(kovaloc *loc, ko_wchar_t wc) {
    character_facts f = {};
    ko_mchar_t text[8] = {ko_mchar_t(wc >> 8), ko_mchar_t(wc & 0xFF)};
    f.classes = im_iswctype(loc, wc, 0xFFFF);
    f.upper = im_towupper(loc, wc);
    f.lower = im_towlower(loc, wc);
    f.len = ko_full_wctomb(loc, f.bytes, wc);
    f.mb_classes = im_ismctype(loc, text, 0xFFFF);
    f.read = ko_full_mbtowc(loc, &f.wide, text, 4);
    f.mb_upper = ko_tombsupper(loc, f.upper_bytes, text);
    return f;
}

static void check_characters(kovaloc *loc) {
    ctype_flat *chars = loc->chars;
    for (unsigned c = 0; c < 0x10000; c = c < 256 ? c + 1 : c + 127) {
        const character_facts want = facts_of(loc, ko_wchar_t(c));
        loc->chars = nullptr;
        check(facts_of(loc, ko_wchar_t(c)) == want, "derived characters are the tree's");
        loc->chars = chars;
    }
}

static void check_strings(kovaloc *loc) {
    static const std::vector<ko_wchar_t> words[] = {wcs(u"a"),   wcs(u"ba"),     wcs(u"ch"),
                                                    wcs(u" A"),  wcs(u"\u00DF"), wcs(u"\u8140a"),
                                                    wcs(u"b-a"), wcs(u"")};
    coll_flat *weights = loc->weights;
    for (const auto &word : words) {
        const ko_wchar_t *const a = word.data();
        check(ko_full_wcscoll(loc, a, a) == 0, "a string equals itself");
        ko_mchar_t key[256];
        const int len = ko_wcsxfrm(loc, nullptr, a, 0);
        const int written = ko_wcsxfrm(loc, key, a, sizeof key);
        // A character without bytes is met only where it is written.
        check(written < 0 || written == len, "the measured length is the key's");
        for (const auto &other : words) {
            const ko_wchar_t *const b = other.data();
            const int order = ko_full_wcscoll(loc, a, b);
            check(order == -ko_full_wcscoll(loc, b, a), "either may come first");
            loc->weights = nullptr;
            check(ko_full_wcscoll(loc, a, b) == order, "derived weights order as the rows");
            loc->weights = weights;
        }
    }
    static const ko_mchar_t texts[][8] = {"ch", "c h", "b\xDF", "bss", "B-a", "\xFF", "\x81@"};
    for (const auto &a : texts)
        for (const auto &b : texts)
            loc->exp.mbscoll(loc, a, b);
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size,
                                          unsigned seed) {
    return mutate_object(data, size, max_size, seed, 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ko_verify_object(data, size, nullptr);
    file_hooks files;
    files.files["c:\\vantor\\kova\\lc11\\default.lco"].assign(data, data + size);
    ko_lc_t streamed, read;
    const int streamed_result = ko_createlocale_2(&streamed);
    check(!files.streams, "streams are closed");
    check(ko_create_null_locale_2(&read) == 0, "there is memory");
    const int read_result = load_from_memory(record(read), {.pos = data, .end = data + size});
    if (!read_result) {
        check_same_answers(record(streamed), record(read));
        check_characters(record(read));
        check_strings(record(read));
    } else {
        check(streamed_result != 0, "memory and stream read alike");
    }
    ko_lc_unload(streamed);
    ko_lc_unload(read);
    check(memory.live == 0, "nothing is left");
    return 0;
}
