// An index of keys: rows are found and listed in a locale's order by comparing bytes alone.
//   key_index sv_SE A B < WORDS     the words from A up to but without B
// An index states the version of the order that its keys were made by, which a host compares when
// it opens the index again.
#include <kova_host.h>

#include <cstdint>
#include <iostream>
#include <map>
#include <string>
#include <string_view>

struct index {
    ko_lc_t loc = nullptr;
    std::string version;
    std::multimap<std::string, std::string> rows; // from key to text
};

static std::string make_key(ko_lc_t loc, std::string_view text) {
    std::string key(64, '\0');
    int64_t len = ko_utf8sxfrm(loc, key.data(), key.size(), text.data(), text.size());
    if (len < 0) return {};
    const bool fits = std::size_t(len) <= key.size();
    key.resize(std::size_t(len));
    if (!fits) ko_utf8sxfrm(loc, key.data(), key.size(), text.data(), text.size());
    return key;
}

int main(int argc, char **argv) {
    if (argc != 4) {
        std::cerr << "usage: key_index LOCALE FROM TO < WORDS\n";
        return 2;
    }
    index words;
    const std::string spec = std::string(argv[1]) + ".unicode";
    if (const int error = ko_open_locale(&words.loc, nullptr, spec.c_str(), KO_OPEN_VERIFY)) {
        std::cerr << spec << ": " << ko_error_text(error) << '\n';
        return 1;
    }
    char version[80];
    ko_locale_version(words.loc, version, sizeof version);
    words.version = version;

    for (std::string line; std::getline(std::cin, line);)
        words.rows.emplace(make_key(words.loc, line), line);
    const auto end = words.rows.lower_bound(make_key(words.loc, argv[3]));
    for (auto row = words.rows.lower_bound(make_key(words.loc, argv[2])); row != end; ++row)
        std::cout << row->second << '\n';
    std::cerr << "made by " << words.version << '\n';
    ko_close_locale(words.loc);
}
