// Characters that can be spelled but for their last symbols, which no character weighs (the signs
// for hours are digits and an ideograph without a line). What sorts where these symbols would is
// the unit below them and then a weight above all others, once for the lowest such tail above that
// unit, twice for the next.

#include <algorithm>

#include "kovac/kovac_collate_units.h"

namespace kovac {

// A token that waits for its tail, and the pieces before it.
struct headed {
    size_t token;
    std::vector<unit_id> head;
};
using tails = std::map<symbols, std::vector<headed>>;

static bool begins(const symbols &stem, const symbols &text) {
    return stem.size() <= text.size() && std::equal(stem.begin(), stem.end(), text.begin());
}

// Whatever stands opposite a tail must differ from it within its first unit.
static bool begins_with_unit(const level_work &w, const symbols &tail) {
    for (size_t n = 1; n <= tail.size(); ++n)
        if (w.index.count(symbols(tail.begin(), tail.begin() + long(n)))) return true;
    return false;
}

// The unit below a tail that a character weighs; what is between them must begin with it.
static unit_id unit_below(const level_work &w, const symbols &tail) {
    for (auto at = w.index.lower_bound(tail); at != w.index.begin();) {
        --at;
        const unit &u = w.units[at->second];
        if (!u.clear || u.carrier == 0) continue;
        const symbols &last = std::prev(w.index.lower_bound(tail))->first;
        return begins(u.text, last) ? at->second : no_unit;
    }
    return no_unit;
}

static void find_tail(const level_work &w, size_t token, size_t most, tails &found) {
    const symbols &text = w.units[w.own[token]].text;
    for (size_t n = 1; n < text.size(); ++n) {
        symbols tail(text.begin() + long(n), text.end());
        if (begins_with_unit(w, tail)) continue;
        auto head = spell(w, symbols(text.begin(), text.begin() + long(n)), 0, most);
        if (head.empty()) continue;
        found[std::move(tail)].push_back({token, std::move(head)});
        return;
    }
}

// An element delivers its expansion once for each of its characters, so a sequence of different
// weights cannot be exact. With a weight above all others at its end, the element sorts after all
// that begins with its weights, and before the rest. Two weights stay a number, which takes less of
// a key and sorts after all that begins with the first of them.
static void spell_elements(level_work &w, unit_id top) {
    for (size_t i = 0; i < w.own.size(); ++i) {
        if (w.clear[i] || w.in.all[i].kind != weighed::element) continue;
        const symbols &text = w.units[w.own[i]].text;
        auto pieces = spell(w, text, 0, most_pieces(w) - 1);
        if (text.size() < 3 || pieces.empty()) continue;
        pieces.push_back(top);
        w.spelling[i] = std::move(pieces);
        w.place[i] = own_place | w.own[i];
        w.approximate.insert(w.own[i]);
    }
}

void spell_tails(level_work &w) {
    const auto top = w.index.find({after_all});
    if (top == w.index.end()) return;
    const size_t most = most_pieces(w);
    tails found;
    for (size_t i = 0; i < w.own.size(); ++i)
        if (!w.clear[i] && plain(w.in.all[i])) find_tail(w, i, most, found);
    spell_elements(w, top->second);
    std::map<unit_id, size_t> above; // how many tails a unit has above it
    for (const auto &[tail, tokens] : found) {
        const unit_id below = unit_below(w, tail);
        if (below == no_unit) continue;
        const size_t times = ++above[below];
        for (const headed &h : tokens) {
            std::vector<unit_id> pieces = h.head;
            pieces.push_back(below);
            pieces.insert(pieces.end(), times, top->second);
            if (pieces.size() > most) continue;
            w.spelling[h.token] = std::move(pieces);
            w.clear[h.token] = true;
        }
    }
}

} // namespace kovac
