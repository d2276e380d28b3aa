// Letters of several characters that their sources also know doubled (Hungarian gy and ggy, the
// latter gy twice). One number for "gy gy" would have to sort both before and after "gy" with
// another letter. But an element whose weight is an expansion delivers it once for each of its
// characters, and the order stays if the letter always weighs as so many of itself that these can
// be divided among them: gy as six, three for each character, and ggy as twelve, four for each.

#include <algorithm>
#include <numeric>
#include <set>

#include "kovac/kovac_collate_units.h"

namespace kovac {

namespace {

// The elements that weigh as a symbol once or several times in a row.
struct letter {
    std::vector<size_t> tokens;
    std::set<size_t> times;
    bool alone = true; // nothing else weighs as the symbol
};

} // namespace

static bool is_lent(const weighed &e) {
    return plain(e) && e.item == no_item && e.wide >= first_lent &&
           e.wide < first_lent + lent_count;
}

static bool is_row(const weighed &e) {
    const symbols &text = e.levels[0];
    return e.kind == weighed::element &&
           std::all_of(text.begin(), text.end(), [&text](uint32_t s) { return s == text[0]; });
}

// The letters of elements only, of which some are longer than one.
static std::map<uint32_t, letter> doubled(const std::vector<weighed> &all) {
    std::map<uint32_t, letter> letters;
    for (size_t i = 0; i < all.size(); ++i) {
        const symbols &text = all[i].levels[0];
        if (text.empty() || is_lent(all[i])) continue;
        if (!is_row(all[i])) {
            for (const uint32_t symbol : text)
                letters[symbol].alone = false;
            continue;
        }
        letters[text[0]].tokens.push_back(i);
        letters[text[0]].times.insert(text.size());
    }
    std::erase_if(letters,
                  [](const auto &l) { return !l.second.alone || l.second.times.size() < 2; });
    return letters;
}

std::vector<uint32_t> doubled_letters(const std::vector<weighed> &all) {
    std::vector<uint32_t> found;
    for (const auto &[symbol, l] : doubled(all))
        found.push_back(symbol);
    return found;
}

// As how many of itself a letter must weigh, so that all its elements can.
static size_t power_of(const level_work &w, const letter &l) {
    size_t power = 1;
    for (const size_t i : l.tokens) {
        const size_t chars = w.in.all[i].chars.size();
        power = std::lcm(power, chars / std::gcd(chars, w.in.all[i].levels[0].size()));
    }
    return power;
}

void spell_doubles(level_work &w) {
    for (const auto &[symbol, l] : doubled(w.in.all)) {
        const auto at = w.index.find({symbol});
        const size_t power = power_of(w, l);
        if (at == w.index.end() || w.units[at->second].carrier == 0) continue;
        if (power * *l.times.rbegin() > 2 * most_pieces(w)) continue;
        for (const size_t i : l.tokens) {
            const weighed &e = w.in.all[i];
            w.spelling[i].assign(e.levels[0].size() * power / e.chars.size(), at->second);
            w.clear[i] = true;
        }
    }
}

} // namespace kovac
