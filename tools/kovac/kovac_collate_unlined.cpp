// Characters of the code set "unicode" for which the source has no line. They are ordered by their
// codes, at the first level only: Hangul syllables after the letter that begins them, others after
// everything that the source orders, the units of surrogate pairs (characters beyond the basic
// plane) last.

#include <algorithm>

#include "kovac/kovac_collate_levels.h"

namespace kovac {

static constexpr uint16_t first_syllable = 0xAC00;
static constexpr size_t initials = 19, syllables_of_one = 588;

static weighed group(symbols text) {
    weighed some{.kind = weighed::undefined};
    some.levels[0] = std::move(text);
    some.by_code = true;
    return some;
}

static bool is_syllable(uint16_t wide) {
    return wide >= first_syllable && wide < first_syllable + initials * syllables_of_one;
}

// Are the letters that begin syllables weighed, and in the order of the syllables?
static bool orders_initials(const jamo_weights &jamo) {
    for (size_t i = 0; i < initials; ++i)
        if (jamo[i].empty() || (i > 0 && !(jamo[i - 1] < jamo[i]))) return false;
    return true;
}

std::vector<weighed> group_unlined(const std::vector<uint16_t> &wides, const jamo_weights &jamo) {
    // Keys write the code 1 as 2, so U+0001 is a group of its own.
    std::vector<weighed> groups = {group({after_first}), group({after_plane}),
                                   group({after_source})};
    constexpr size_t others = 0, surrogates = 1, lowest = 2, first_group = 3;
    const bool hangul = orders_initials(jamo);
    for (size_t i = 0; hangul && i < initials; ++i) {
        symbols text = jamo[i];
        text.push_back(after_letter);
        groups.push_back(group(std::move(text)));
    }
    weighed top{.wide = 0xFFFF};
    top.levels[0] = {after_all};
    bool has_top = false;
    for (const uint16_t wide : wides) {
        if (wide == top.wide) has_top = true;
        if (wide == top.wide) continue;
        size_t to = wide == 1 ? lowest : others;
        if (wide >= 0xD800 && wide < 0xE000) to = surrogates;
        if (hangul && is_syllable(wide))
            to = first_group + size_t(wide - first_syllable) / syllables_of_one;
        groups[to].chars.push_back(wide);
    }
    // The first group stays even if it is empty: it is row 0.
    groups.erase(std::remove_if(groups.begin() + 1, groups.end(),
                                [](const weighed &g) { return g.chars.empty(); }),
                 groups.end());
    if (has_top) groups.push_back(std::move(top));
    return groups;
}

} // namespace kovac
