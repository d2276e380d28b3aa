// Sorts texts in UTF-8 and the same texts in UTF-16, and shows that both have one order:
//   sort_texts cs_CZ < WORDS
#include <kova_host.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

static bool in_order(ko_lc_t loc, const std::string &a, const std::string &b) {
    return ko_utf8scoll(loc, a.data(), a.size(), b.data(), b.size()) < 0;
}
static bool in_order(ko_lc_t loc, const std::u16string &a, const std::u16string &b) {
    return ko_utf16scoll(loc, a.data(), a.size(), b.data(), b.size()) < 0;
}

// UTF-16 units are wide characters of the code set "unicode".
static std::u16string to_utf16(ko_lc_t loc, const std::string &text) {
    std::vector<ko_wchar_t> units(text.size() + 1);
    const auto len =
        ko_utf8stowcs(loc, units.data(), units.size(), text.data(), text.size(), nullptr);
    return len < 0 ? std::u16string()
                   : std::u16string(units.data(), units.data() + std::size_t(len));
}

int main(int argc, char **argv) {
    ko_lc_t loc = nullptr;
    const std::string spec = std::string(argc > 1 ? argv[1] : "de_DE") + ".unicode";
    if (const int error = ko_open_locale(&loc, nullptr, spec.c_str(), 0)) {
        std::cerr << spec << ": " << ko_error_text(error) << '\n';
        return 1;
    }
    std::vector<std::string> texts;
    for (std::string line; std::getline(std::cin, line);)
        texts.push_back(line);
    std::vector<std::u16string> wide;
    wide.reserve(texts.size());
    for (const std::string &text : texts)
        wide.push_back(to_utf16(loc, text));
    const auto less = [loc](const auto &a, const auto &b) { return in_order(loc, a, b); };
    std::sort(texts.begin(), texts.end(), less);
    std::sort(wide.begin(), wide.end(), less);

    bool same = true;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        std::cout << texts[i] << '\n';
        same = same && to_utf16(loc, texts[i]) == wide[i];
    }
    ko_close_locale(loc);
    if (!same) std::cerr << "sort_texts: the two orders differ\n";
    return !same;
}
