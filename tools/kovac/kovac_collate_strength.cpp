// Orders that hold letters equal: the levels of a source up to those that tell case or accents
// apart. At which level a source tells case apart, its own letters show.

#include <algorithm>

#include "kovac/kovac_collate_levels.h"

namespace kovac {

namespace {

constexpr size_t no_place = SIZE_MAX;

struct weakening {
    std::vector<weighed> &all;
    std::vector<size_t> place; // per wide character: its own in all; no_place: it has no line
};

} // namespace

static void find_places(weakening &w) {
    w.place.assign(0x10000, no_place);
    for (size_t i = 0; i < w.all.size(); ++i)
        if (w.all[i].kind == weighed::character && w.all[i].item != no_item)
            w.place[w.all[i].wide] = i;
}

// The first level, from 1, at which two characters with lines weigh differently; 0: none.
static size_t parting_level(const weakening &w, letter_pair pair, size_t levels) {
    const weighed &a = w.all[w.place[pair.first]], &b = w.all[w.place[pair.second]];
    for (size_t level = 0; level < levels; ++level)
        if (a.levels[level] != b.levels[level]) return level + 1;
    return 0;
}

static bool both_placed(const weakening &w, letter_pair pair) {
    return w.place[pair.first] != no_place && w.place[pair.second] != no_place;
}

// The level that tells most letters from their capitals; 0: none does.
static size_t case_level(const weakening &w, const std::vector<letter_pair> &pairs, size_t levels) {
    std::array<size_t, max_levels + 1> count{};
    for (const letter_pair &pair : pairs)
        if (both_placed(w, pair)) ++count[parting_level(w, pair, levels)];
    const auto most = std::max_element(count.begin() + 1, count.end());
    return *most ? size_t(most - count.begin()) : 0;
}

// Takes a character out of its group of those without a line.
static void add_letter(weakening &w, weighed letter) {
    for (weighed &group : w.all)
        if (group.kind == weighed::undefined) std::erase(group.chars, letter.wide);
    w.place[letter.wide] = w.all.size();
    w.all.push_back(std::move(letter));
}

// Lets a character weigh as another.
static void take_line(weakening &w, uint16_t wide, uint16_t like) {
    weighed copy = w.all[w.place[like]];
    copy.wide = wide;
    if (w.place[wide] != no_place) {
        w.all[w.place[wide]] = std::move(copy);
    } else {
        add_letter(w, std::move(copy));
    }
}

// Makes the letters of pairs equal of which neither has a line: in "unicode" their codes would tell
// them apart.
static void pair_unlined(weakening &w, letter_pair pair) {
    const bool by_code =
        std::any_of(w.all.begin(), w.all.end(), [](const weighed &group) { return group.by_code; });
    if (!by_code) return;
    weighed letter{.wide = pair.second};
    letter.levels[0] = {after_ranks + pair.second};
    add_letter(w, letter);
    letter.wide = pair.first;
    add_letter(w, std::move(letter));
}

// Makes the letters of a pair equal where a line, or the first level, would tell them apart.
static void join_pair(weakening &w, letter_pair pair, bool first_level, bool lined) {
    const auto [capital, small] = pair;
    if (w.place[capital] == no_place && w.place[small] == no_place) {
        if (!lined) pair_unlined(w, pair);
    } else if (w.place[small] == no_place) {
        take_line(w, small, capital);
    } else if (w.place[capital] == no_place || first_level) {
        take_line(w, capital, small);
    }
}

bool weaken_order(std::vector<weighed> &all, size_t levels, const collation_options &options,
                  kept_levels &kept) {
    weakening w{all, {}};
    find_places(w);
    kept.of_case = case_level(w, options.pairs, levels);
    if (!kept.of_case || (kept.of_case == 1 && options.keeps == strength::letters)) return false;
    kept.levels = options.keeps == strength::letters ? 1 : std::max<size_t>(kept.of_case - 1, 1);
    for (const bool lined : {true, false}) // a small letter may have several capitals
        for (const letter_pair &pair : options.pairs)
            join_pair(w, pair, kept.of_case == 1, lined);
    for (const letter_pair &pair : options.pairs)
        if (both_placed(w, pair) && parting_level(w, pair, kept.levels) && !kept.apart++)
            kept.example = pair;
    return true;
}

} // namespace kovac
