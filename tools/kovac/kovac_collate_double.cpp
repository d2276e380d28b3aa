// Letters of several characters that their sources also know doubled (Hungarian gy and ggy, the
// latter gy twice). One number for "gy gy" would have to sort both before and after "gy" with
// another letter. But an element whose weight is an expansion delivers it once for each of its
// characters: with an expansion X that sorts where gy does, gy is X X and ggy is X X X, which
// compare as gy and gy gy do with all that may follow. X is the letter below gy and then a weight
// above all others.

#include <algorithm>
#include <set>

#include "kovac/kovac_collate_units.h"

namespace kovac {

// The elements that weigh as a symbol once or several times in a row.
struct letter {
    std::vector<size_t> tokens;
    std::map<size_t, std::set<size_t>> lengths; // by how often: the characters of the elements
};

static bool is_row_of(const symbols &text, uint32_t symbol) {
    return std::all_of(text.begin(), text.end(), [symbol](uint32_t s) { return s == symbol; });
}

static std::map<uint32_t, letter> element_letters(const level_work &w) {
    std::map<uint32_t, letter> letters;
    for (size_t i = 0; i < w.own.size(); ++i) {
        if (w.own[i] == no_unit || w.in.all[i].kind != weighed::element) continue;
        const symbols &text = w.units[w.own[i]].text;
        if (!is_row_of(text, text[0])) continue;
        letters[text[0]].tokens.push_back(i);
        letters[text[0]].lengths[text.size()].insert(w.in.all[i].chars.size());
    }
    return letters;
}

// More of the letter must take more characters, and as often the same number.
static bool grows(const letter &l) {
    size_t last = 0;
    for (const auto &[times, lengths] : l.lengths) {
        if (lengths.size() > 1 || *lengths.begin() <= last) return false;
        last = *lengths.begin();
    }
    return l.lengths.size() > 1;
}

// Whether something else than these elements weighs as the symbol.
static bool has_characters(const level_work &w, uint32_t symbol) {
    const auto at = w.index.find({symbol});
    if (at == w.index.end()) return false;
    const auto &who = w.units[at->second].who;
    return std::any_of(who.begin(), who.end(),
                       [&w](size_t i) { return w.in.all[i].kind != weighed::element; });
}

void spell_doubles(level_work &w) {
    const auto top = w.index.find({after_all});
    if (top == w.index.end()) return;
    const std::map<uint32_t, letter> letters = element_letters(w);
    unit_id below = no_unit; // the last unit passed that a character weighs as
    size_t between = 0;      // letters spelled since
    for (const auto &[text, id] : w.index) {
        const auto found = letters.find(text[0]);
        const bool spelled =
            found != letters.end() && grows(found->second) && !has_characters(w, text[0]);
        if (!spelled) {
            if (text.size() > 1) continue; // sorts directly after its beginning
            below = w.units[id].carrier ? id : no_unit;
            between = 0;
        }
        if (!spelled || text.size() > 1 || below == no_unit) continue;
        std::vector<unit_id> pieces = {below};
        pieces.insert(pieces.end(), ++between, top->second);
        for (const size_t token : found->second.tokens) {
            w.spelling[token] = pieces;
            w.clear[token] = true;
            w.place[token] = own_place | w.own[token];
        }
    }
}

} // namespace kovac
