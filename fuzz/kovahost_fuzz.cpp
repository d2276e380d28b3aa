// The calls of kova_host.h on texts from anywhere: the order of three texts is one, their keys have
// it, a short room gets the beginning of the result and nothing is written after it, what converts
// comes back, and nothing is left behind. The input begins with the record, a small one or one of
// the root, the length of the first two texts and the room.
#include "fuzz_host.h"
#include "host/host_order.h"
#include "host/host_roots.h"

#include <memory>

// Three passes, the second one backward: letters, accents, and codes for all else. wide: "unicode".
static std::string three_passes(bool wide) {
    locale_object object;
    object.codeset = wide ? "unicode\n" : "TEST-1\n";
    std::vector<table_entry> classes, rows;
    std::string weights = "bffe 0002 8002\n";
    const auto add = [&](unsigned unit, unsigned letter, unsigned accent) {
        std::string bytes(1, char(unit));
        if (wide) bytes.insert(0, 1, char(unit >> 8));
        char text[16];
        snprintf(text, sizeof text, "%04x %04x 8002\n", letter, accent);
        classes.push_back({bytes, KO_CT_PRINT});
        rows.push_back({bytes, uint16_t(rows.size() + 1)});
        weights += text;
    };
    for (unsigned c = 0; c < 128; ++c)
        add(c, c == '-' || c == ' ' ? 1 : (c - 'A' < 26 ? c | 32 : c) + 2, 2);
    add(0xDF, 's' + 2, 4);
    if (wide) add(0xE4, 'a' + 2, 4);
    if (wide) add(0x301, 1, 3);
    const std::string last_row = std::to_string(rows.size());
    object.ctype = caseless(classes, classes[0].bytes);
    object.collate = "as_specified\n" + table_text(rows) + "0 " + last_row +
                     " 3 0 0 16382\n000100020001\n" + weights;
    add_conventions(&object, wide);
    return sealed(object.str());
}

namespace {
// In the order of the first byte of an input; then come those of the data root.
struct records {
    small_root root;
    ko_lc_t small[4] = {};
    root_locales compiled;
    std::vector<size_t> usable; // of the compiled ones, those that take UTF-8
    records() {
        root.write("kova/lc11/de_de/e005.lco", three_passes(true));
        root.write("kova/lc11/de_de/0001back.lco", three_passes(false));
        const char *const specs[] = {"de_de\\e005.lco", "de_DE.test-1", "de_DE.test-1@back"};
        for (int i = 0; i < 3; ++i)
            check(!ko_open_locale(&small[i], root.path.c_str(), specs[i], KO_OPEN_VERIFY) &&
                      !ko_locale_utf8(small[i]),
                  "the records can be opened");
        check(!ko_create_null_locale_2(&small[3]), "there is memory");
        for (auto &name : record(small[3])->codeset)
            strcpy(name, "unicode");
        for (const ko_lc_t loc : small) // what the first key makes stays with its record
            check(ko_utf8sxfrm(loc, nullptr, 0, "a", 1) > 0, "keys can be made");
        for (size_t i = 0; i < compiled.size(); ++i)
            if (!ko_locale_utf8(compiled[i])) usable.push_back(i);
    }
    ~records() {
        for (const ko_lc_t loc : small)
            ko_close_locale(loc);
    }
    ko_lc_t operator[](size_t i) {
        i %= std::size(small) + usable.size();
        return i < std::size(small) ? small[i] : compiled[usable[i - std::size(small)]];
    }
};
} // namespace

// What a call makes in a room of its own, whose end the sanitizer watches.
template <class Call> static std::string made(size_t room, int64_t want, Call call) {
    const std::unique_ptr<char[]> dst(new char[room]);
    check(call(dst.get(), room) == want, "a result has one length");
    return {dst.get(), std::min(room, size_t(want))};
}

template <class Text> static std::string key(ko_lc_t loc, const Text &text, size_t room) {
    const int64_t len = put_key(loc, nullptr, 0, text);
    check(len >= 0, "every text has a key");
    const auto call = [&](char *dst, size_t n) { return put_key(loc, dst, n, text); };
    const std::string whole = made(size_t(len), len, call);
    check(whole.starts_with(made(std::min(room, whole.size()), len, call)),
          "a short room gets the beginning");
    return whole;
}

template <class Text> static void check_order(ko_lc_t loc, const Text (&texts)[3], size_t room) {
    int orders[3][3];
    std::string keys[3];
    for (int i = 0; i < 3; ++i) {
        keys[i] = key(loc, texts[i], room);
        for (int j = 0; j < 3; ++j)
            orders[i][j] = order(loc, texts[i], texts[j]);
    }
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            check(orders[i][j] == -orders[j][i], "either text may come first");
            check(sign(orders[i][j]) == sign(keys[i].compare(keys[j])), "keys have the order");
            const int k = 3 - i - j;
            if (k < 0 || k > 2 || orders[i][j] > 0 || orders[j][k] > 0) continue;
            check(orders[i][k] <= 0 && (orders[i][k] || (!orders[i][j] && !orders[j][k])),
                  "the order is transitive");
        }
    }
}

// Whole characters of the result fill a short room.
static void check_case(ko_lc_t loc, const std::string &text, size_t room,
                       decltype(ko_utf8supper) *to) {
    const int64_t len = to(loc, nullptr, 0, text.data(), text.size());
    if (len < 0) return;
    const auto call = [&](char *dst, size_t n) {
        return to(loc, dst, n, text.data(), text.size());
    };
    const std::string whole = made(size_t(len), len, call);
    check(ko_utf8stowcs(loc, nullptr, 0, whole.data(), whole.size(), nullptr) >= 0,
          "a case is well-formed");
    size_t fit = std::min(room, whole.size());
    const std::string some = made(fit, len, call);
    while (fit && fit < whole.size() && (whole[fit] & 0xC0) == 0x80)
        --fit;
    check(some.compare(0, fit, whole, 0, fit) == 0, "a short room gets whole characters");
}

static void check_round_trip(ko_lc_t loc, const std::string &text, bool utf16) {
    ko_bad_text bad = {};
    const int64_t len = ko_utf8stowcs(loc, nullptr, 0, text.data(), text.size(), &bad);
    if (len < 0) {
        check(bad.length && bad.at + bad.length <= text.size(), "the bad part is inside the text");
        check(ko_utf8stowcs(loc, nullptr, 0, text.data(), bad.at, nullptr) == int64_t(bad.made),
              "the text before the bad part converts");
        return;
    }
    const std::unique_ptr<ko_wchar_t[]> units(new ko_wchar_t[size_t(len)]);
    check(ko_utf8stowcs(loc, units.get(), size_t(len), text.data(), text.size(), nullptr) == len,
          "a result has one length");
    const auto back = [&](char *dst, size_t room) {
        return ko_wcstoutf8s(loc, dst, room, units.get(), size_t(len), nullptr);
    };
    check(made(text.size(), int64_t(text.size()), back) == text, "what converts comes back");
    if (!utf16) return;
    const std::u16string same(units.get(), units.get() + len);
    check(key(loc, same, 0) == key(loc, text, 0), "both forms of a text have one key");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static records opened;
    if (size < 4) return 0;
    const ko_lc_t loc = opened[data[0]];
    const long before = memory.live;
    const size_t room = data[3];
    const std::string bytes(data + 4, data + size);
    const size_t first = std::min<size_t>(data[1], bytes.size());
    const size_t second = std::min<size_t>(data[2], bytes.size() - first);
    const std::string texts[] = {bytes.substr(0, first), bytes.substr(first, second),
                                 bytes.substr(first + second)};
    std::u16string units[3];
    const bool utf16 = !strcmp(record(loc)->codeset[0], "unicode");
    for (int i = 0; i < 3; ++i) {
        units[i].resize(texts[i].size() / 2);
        if (!units[i].empty()) memcpy(units[i].data(), texts[i].data(), units[i].size() * 2);
        check_case(loc, texts[i], room, ko_utf8supper);
        check_case(loc, texts[i], room, ko_utf8slower);
        check_round_trip(loc, texts[i], utf16);
    }
    check_order(loc, texts, room);
    check_order(loc, units, room);
    check(memory.live == before, "nothing is left");
    return 0;
}
