// The proof of a compiled collation: over all its short strings the order of the sort keys is the
// order of the wide comparison and of the comparer that the locale gets.

#include <algorithm>
#include <random>

#include "kovac_collate_model.h"

namespace kovac {

static constexpr size_t sample_chars = 256; // of a double-byte code set; their pairs are taken

// Every string of up to two characters of a single-byte code set. Of others: every character, and
// all pairs of an even sample.
static std::vector<std::vector<uint16_t>> short_strings(const charmap &map) {
    std::vector<std::vector<uint16_t>> out{{}};
    std::vector<uint16_t> sample;
    const size_t count = map.chars.size();
    for (size_t i = 0; i < count; ++i) {
        const uint16_t wide = map.chars[i].wide;
        if (wide == 0) continue; // ends a string
        out.push_back({wide});
        if (count <= sample_chars || i * sample_chars / count != (i + 1) * sample_chars / count)
            sample.push_back(wide);
    }
    for (const uint16_t a : sample)
        for (const uint16_t b : sample)
            out.push_back({a, b});
    return out;
}

static std::string shown(const std::vector<uint16_t> &s) {
    std::string text;
    for (const uint16_t c : s)
        text += format(text.empty() ? "%02X" : " %02X", c);
    return text;
}

struct keyed {
    std::string key;
    const std::vector<uint16_t> *text;
};

static bool agree(const collation_model &m, const keyed &a, const keyed &b, proof_report &report) {
    const int keys = a.key.compare(b.key), sign = keys < 0 ? -1 : keys > 0;
    const int wide = compare_wide(m, *a.text, *b.text);
    const int installed = compare_installed(m, *a.text, *b.text);
    if (sign == wide && sign == installed) return true;
    report.ok = false;
    report.lines.push_back(format("\"%s\" against \"%s\": keys %d, wide %d, installed %d",
                                  shown(*a.text).c_str(), shown(*b.text).c_str(), sign, wide,
                                  installed));
    return false;
}

void prove_collation(const charmap &map, const collation &tables, proof_report &report) {
    const collation_model m = make_model(map, tables);
    const std::vector<std::vector<uint16_t>> strings = short_strings(map);
    std::vector<keyed> keys;
    for (const auto &s : strings)
        keys.push_back({sort_key(m, s), &s});
    std::sort(keys.begin(), keys.end(),
              [](const keyed &a, const keyed &b) { return a.key < b.key; });
    constexpr int most_shown = 10;
    int bad = 0;
    for (size_t i = 1; i < keys.size() && bad < most_shown; ++i)
        bad += !agree(m, keys[i - 1], keys[i], report);
    std::mt19937 random(1);
    const int pairs = 100000;
    for (int i = 0; i < pairs && bad < most_shown; ++i)
        bad += !agree(m, keys[random() % keys.size()], keys[random() % keys.size()], report);
    if (bad) return;
    report.lines.push_back(format("%zu strings of up to two characters: keys, wide comparison and "
                                  "installed comparer give one order (all neighbours and %d pairs)",
                                  keys.size(), pairs));
}

} // namespace kovac
