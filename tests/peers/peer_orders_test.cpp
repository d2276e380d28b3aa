// The orders of the compiled locales beside those that data/orders.list states. The sort keys of
// fixed texts stand for an order: indexes that hosts have built keep them.
#include "peers/peer_rows.h"

#include "kova_host.h"

#include <cstdint>
#include <random>

namespace {

constexpr size_t text_count = 20000;

struct key_hash {
    uint64_t value = 0xCBF29CE484222325u; // FNV-1a
    void add(std::string_view bytes) {
        for (const char c : bytes)
            value = (value ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
        value = (value ^ bytes.size()) * 0x100000001B3u;
    }
    std::string text() const {
        char digits[17];
        snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(value));
        return digits;
    }
};

// The key in UTF-16 of "unicode", and otherwise of the code set's characters; "-" without one.
std::string key_of(ko_lc_t loc, bool unicode, const std::u16string &text) {
    std::string key(64 + 24 * text.size(), '\0');
    std::vector<ko_wchar_t> units = wcs(text);
    const int64_t len = unicode
                            ? ko_utf16sxfrm(loc, key.data(), key.size(), text.data(), text.size())
                            : ko_wcsxfrm(loc, reinterpret_cast<ko_mchar_t *>(key.data()),
                                         units.data(), int(key.size()));
    EXPECT_LT(len, int64_t(key.size()));
    return len < 0 || len >= int64_t(key.size()) ? "-" : key.substr(0, size_t(len));
}

// All characters, and texts of two to six: half of the locale's early characters, in which the
// letters of one- and two-byte code sets lie, and half of all.
std::string hash_of_order(ko_lc_t loc, bool unicode) {
    std::u16string chars;
    for (unsigned c = 1; c < 0x10000; ++c) {
        ko_mchar_t bytes[8];
        const bool surrogate = c >= 0xD800 && c < 0xE000;
        if (unicode ? !surrogate : ko_full_wctomb(loc, bytes, ko_wchar_t(c)) > 0)
            chars += char16_t(c);
    }
    key_hash hash;
    for (const char16_t c : chars)
        hash.add(key_of(loc, unicode, {c}));
    std::mt19937_64 random(1);
    for (size_t n = 0; n < text_count; ++n) {
        const size_t among = n % 2 ? chars.size() : std::min(chars.size(), size_t{0x600});
        std::u16string text;
        for (uint64_t left = 2 + random() % 5; left; --left)
            text += chars[size_t(random() % among)];
        hash.add(key_of(loc, unicode, text));
    }
    return hash.text();
}

std::map<std::string, std::string> stated_orders(const std::string &path) {
    std::map<std::string, std::string> orders;
    for (std::istringstream &words : list_lines(path))
        if (std::string spec, hash; words >> spec >> hash) orders[spec] = hash;
    return orders;
}

// By specification: "de_DE.ISO-8859-1". The default object has none.
std::map<std::string, std::string> compiled_orders() {
    std::map<std::string, std::string> orders;
    const std::string root = env("KOVA_TEST_ROOT");
    for (std::istringstream &words : list_lines(env("KOVA_LOCALES_LIST"))) {
        std::string source, charmap, name, codeset;
        if (!(words >> source >> charmap) || source == "POSIX") continue;
        if (!(words >> name)) name = source;
        if (!(words >> codeset)) codeset = charmap;
        const size_t at = std::min(name.find('@'), name.size());
        const std::string spec = name.substr(0, at) + "." + codeset + name.substr(at);
        owned<ko_close_locale> loc;
        loc.result = ko_open_locale(&loc.handle, root.c_str(), spec.c_str(), KO_OPEN_VERIFY);
        EXPECT_EQ(loc.result, 0) << spec << ": " << ko_error_text(loc.result);
        if (!loc.result) orders[spec] = hash_of_order(loc, charmap == "unicode");
    }
    return orders;
}

TEST(PeerOrders, AreThoseOfTheList) {
    const std::string path = env("KOVA_SOURCE_DIR") + "/data/orders.list";
    const std::map<std::string, std::string> orders = compiled_orders();
    if (!env("KOVA_WRITE_ORDERS").empty()) {
        std::string head;
        std::istringstream before(slurp(path));
        for (std::string line; std::getline(before, line) && line.starts_with("#");)
            head += line + "\n";
        std::ofstream list(path);
        list << head;
        for (const auto &[spec, hash] : orders)
            list << spec << " " << hash << "\n";
        ASSERT_TRUE(list.flush());
    }
    const std::map<std::string, std::string> stated = stated_orders(path);
    std::string changed;
    for (const auto &[spec, hash] : orders)
        if (const auto at = stated.find(spec); at == stated.end() || at->second != hash)
            changed += " " + spec;
    for (const auto &[spec, hash] : stated)
        if (!orders.count(spec)) changed += " " + spec;
    EXPECT_EQ(changed, "") << "These orders are not those of data/orders.list, or only one side "
                              "has them. Its comment says what to do.";
}

} // namespace
