// Elements for which others, or none, are as good: those that weigh as their characters do one
// after the other, and those that weigh as their first character does and then alike. Compiled as
// they stand, elements of several weights would have one number, which is inexact.

#include <algorithm>
#include <iterator>
#include <map>

#include "kovac/kovac_collate_levels.h"

namespace kovac {

using characters = std::vector<const weighed *>; // by wide character; null: it has no line

static characters find_characters(const std::vector<weighed> &all) {
    characters of(0x10000);
    for (const weighed &w : all)
        if (w.kind == weighed::character) of[w.wide] = &w;
    return of;
}

// What characters weigh one after the other.
static symbols apart(const characters &of, const std::vector<uint16_t> &wides, size_t level) {
    symbols text;
    for (const uint16_t wide : wides)
        if (const weighed *ch = of[wide])
            text.insert(text.end(), ch->levels[level].begin(), ch->levels[level].end());
    return text;
}

// Would another element be found within the characters of one, if this one were none?
static bool hides(const weighed &one, const weighed &other) {
    const auto &in = one.chars;
    return std::search(in.begin(), in.end(), other.chars.begin(), other.chars.end()) != in.end();
}

// A fourth level, which only distinguishes spellings, need not be the same.
size_t drop_plain_elements(const std::vector<weighed> &all, size_t levels,
                           std::vector<weighed> &elements) {
    const characters of = find_characters(all);
    std::vector<weighed> kept, plain;
    for (weighed &e : elements) {
        bool same = true;
        for (size_t level = 0; level < levels; ++level)
            same &= e.levels[level] == apart(of, e.chars, level);
        (same ? plain : kept).push_back(std::move(e));
    }
    for (size_t i = 0; i < plain.size();) {
        const bool hiding = std::any_of(
            kept.begin(), kept.end(), [&](const weighed &other) { return hides(plain[i], other); });
        if (!hiding) {
            ++i;
            continue;
        }
        kept.push_back(std::move(plain[i]));
        plain.erase(plain.begin() + long(i));
        i = 0; // it may be hidden itself
    }
    elements = std::move(kept);
    return plain.size();
}

namespace {

// What an element is and weighs without its first character.
struct tail {
    std::vector<uint16_t> chars;
    std::array<symbols, max_levels> levels;
    bool operator<(const tail &other) const {
        return chars != other.chars ? chars < other.chars : levels < other.levels;
    }
};

} // namespace

// False if the element has two characters, or weighs otherwise than its first one and the tail. At
// the first level the tail must weigh as its characters, which may also follow other letters.
static bool find_tail(const characters &of, const weighed &e, size_t levels, tail &found) {
    const weighed *head = of[e.chars[0]];
    if (!head || e.chars.size() < 3) return false;
    found.chars.assign(e.chars.begin() + 1, e.chars.end());
    for (size_t level = 0; level < levels; ++level) {
        const symbols &first = head->levels[level], &text = e.levels[level];
        if (first.empty() || text.size() <= first.size() ||
            !std::equal(first.begin(), first.end(), text.begin()))
            return false;
        found.levels[level].assign(text.begin() + long(first.size()), text.end());
    }
    return found.levels[0] == apart(of, found.chars, 0);
}

size_t join_tails(const std::vector<weighed> &all, size_t levels, std::vector<weighed> &elements) {
    const characters of = find_characters(all);
    std::map<tail, std::vector<size_t>> tails;
    for (size_t i = 0; i < elements.size(); ++i) {
        tail t;
        if (find_tail(of, elements[i], levels, t)) tails[std::move(t)].push_back(i);
    }
    std::vector<bool> joined(elements.size());
    std::vector<weighed> added;
    for (const auto &[t, who] : tails) {
        const auto taken = [&chars = t.chars](const weighed &e) {
            return std::search(chars.begin(), chars.end(), e.chars.begin(), e.chars.end()) !=
                   chars.end();
        };
        if (who.size() < 2 || std::any_of(elements.begin(), elements.end(), taken)) continue;
        for (const size_t i : who)
            joined[i] = true;
        added.push_back(
            {.kind = weighed::element, .item = elements[who[0]].item, .chars = t.chars});
        added.back().levels = t.levels;
    }
    std::vector<weighed> kept;
    for (size_t i = 0; i < elements.size(); ++i)
        if (!joined[i]) kept.push_back(std::move(elements[i]));
    const size_t count = elements.size() - kept.size();
    std::move(added.begin(), added.end(), std::back_inserter(kept));
    elements = std::move(kept);
    return count;
}

} // namespace kovac
