// A level compares strings by the weights of their characters written one after the other. A pass
// has one number for a character, so a sequence of weights becomes a unit with a number of its
// own wherever no confusion can follow: no unit that begins a longer one may be followed by
// something that sorts among the longer ones. Other sequences are spelled as an expansion, by
// characters whose own sequences join up to it.

#include "kovac/kovac_collate_levels.h"

#include <algorithm>
#include <map>
#include <unordered_map>

namespace kovac {

using unit_id = uint32_t;
static constexpr unit_id no_unit = 0xFFFFFFFF;

struct unit {
    symbols text;
    uint16_t carrier = 0;     // a character that weighs as just this unit; 0: none
    bool clear = true;        // a single number keeps the order
    bool used = false;        // something weighs as it
    bool before_stem = false; // sorts in front of the unit that it extends
    int owners = 0;           // characters that weigh as it
    std::vector<size_t> who;  // all that have this sequence: indexes of weighed
    bool shared = false;      // elements, undefined characters or expansions need it, too
    uint16_t weight = 0;
};

struct level_work {
    const level_input &in;
    std::vector<unit> units;
    std::map<symbols, unit_id> index;
    std::vector<const pass_plan *> telling;     // earlier passes that tell characters apart here
    std::vector<unit_id> own;                   // per weighed: its sequence; no_unit: ignored
    std::vector<std::vector<unit_id>> spelling; // per weighed: the pieces, when not one unit
    unit_id high = no_unit;                     // stands for ignored characters by position
};

static unit_id unit_of(level_work &w, const symbols &text) {
    const auto [at, added] = w.index.try_emplace(text, unit_id(w.units.size()));
    if (added) w.units.push_back({.text = text});
    return at->second;
}

static bool ignored_so_far(const weighed &c, size_t level) {
    for (size_t i = 0; i < level; ++i)
        if (!c.levels[i].empty()) return false;
    return true;
}

static bool plain(const weighed &c) { return c.kind == weighed::character; }

// Elements never expand: they would for each of their characters. Row 0 of a single-byte code set
// does not either, so that every byte has a weight at once.
static bool may_expand(const level_input &in, size_t i) {
    return plain(in.all[i]) || (in.all[i].kind == weighed::undefined && !in.single_byte);
}

// Counts owners and finds, for every unit, the character that spells it: the lowest, but rather a
// printing one of ASCII than a control.
static void collect_units(level_work &w) {
    const auto &all = w.in.all;
    w.own.assign(all.size(), no_unit);
    w.spelling.resize(all.size());
    for (size_t i = 0; i < all.size(); ++i) {
        const symbols &text = all[i].levels[w.in.level];
        if (text.empty()) continue;
        w.own[i] = unit_of(w, text);
        unit &u = w.units[w.own[i]];
        u.who.push_back(i);
        if (!plain(all[i])) continue;
        const uint16_t wide = all[i].wide;
        if (wide != 0 && (u.carrier == 0 || (u.carrier < 0x20 && wide >= 0x20))) u.carrier = wide;
    }
}

// An earlier pass tells two characters apart when both have weights there and the first ones
// differ: of two strings that are still equal at this level, the first that they differ in cannot
// be such a pair. What the pass weighs must all be seen here or in the first pass, or else the
// strings might differ earlier.
static void find_telling(level_work &w) {
    const auto &all = w.in.all;
    for (const pass_plan &pass : w.in.earlier) {
        bool telling = !pass.backward;
        for (size_t i = 0; i < all.size() && telling; ++i)
            telling = pass.first[i] == 0 || w.own[i] != no_unit || w.in.earlier[0].first[i] != 0;
        if (telling) w.telling.push_back(&pass);
    }
}

static bool told_apart(const level_work &w, size_t a, size_t b) {
    for (const pass_plan *pass : w.telling)
        if (pass->first[a] && pass->first[b] && pass->first[a] != pass->first[b]) return true;
    return false;
}

static bool all_told_apart(const level_work &w, const unit &a, const unit &b) {
    for (const size_t i : a.who)
        for (const size_t j : b.who)
            if (!told_apart(w, i, j)) return false;
    return true;
}

// A unit is clear when no unit that begins it can be followed by its next symbol or a higher one,
// and stand opposite it.
static void judge_units(level_work &w) {
    uint32_t highest_first = 0;
    for (const unit &u : w.units)
        highest_first = std::max(highest_first, u.text[0]);
    for (unit &u : w.units) {
        symbols stem;
        for (size_t n = 1; n < u.text.size() && u.clear; ++n) {
            stem.push_back(u.text[n - 1]);
            if (u.text[n] > highest_first) continue;
            const auto at = w.index.find(stem);
            u.clear = at == w.index.end() || all_told_apart(w, w.units[at->second], u);
        }
    }
}

// The shortest list of clear units with carriers that join up to text; empty when there is none.
static std::vector<unit_id> spell(const level_work &w, const symbols &text, size_t most) {
    const size_t n = text.size();
    std::vector<size_t> cost(n + 1, SIZE_MAX), from(n + 1, 0);
    std::vector<unit_id> by(n + 1, no_unit);
    cost[0] = 0;
    for (size_t a = 0; a < n; ++a) {
        if (cost[a] == SIZE_MAX) continue;
        for (size_t b = a + 1; b <= n; ++b) {
            const auto at = w.index.find(symbols(text.begin() + long(a), text.begin() + long(b)));
            if (at == w.index.end()) continue;
            const unit &u = w.units[at->second];
            if (!u.clear || u.carrier == 0 || cost[a] + 1 >= cost[b]) continue;
            cost[b] = cost[a] + 1;
            from[b] = a;
            by[b] = at->second;
        }
    }
    std::vector<unit_id> pieces;
    if (cost[n] > most) return pieces;
    for (size_t at = n; at > 0; at = from[at])
        pieces.push_back(by[at]);
    std::reverse(pieces.begin(), pieces.end());
    return pieces;
}

// True when most letters that may follow the stem sort above the symbol that extends it.
static bool mostly_above(const level_work &w, uint32_t symbol) {
    int above = 0, below = 0;
    for (const weighed &c : w.in.all) {
        const symbols &text = c.levels[w.in.level];
        if (plain(c) && !text.empty()) ++(text[0] > symbol ? above : below);
    }
    return above > below;
}

static void place_unclear(level_work &w, unit &u) {
    symbols stem;
    for (size_t n = 1; n < u.text.size(); ++n) {
        stem.push_back(u.text[n - 1]);
        const auto at = w.index.find(stem);
        if (at == w.index.end() || !w.units[at->second].used) continue;
        u.before_stem = n + 1 == u.text.size() && mostly_above(w, u.text[n]);
        return;
    }
}

// Spells what is not clear. Below the first level, sequences that extend the same stem are spelled
// all or not at all: a number and a spelling of one family would not compare.
static std::map<unit_id, std::vector<unit_id>> spell_units(const level_work &w) {
    const size_t most = w.in.single_byte ? 7 : 15;
    std::map<unit_id, std::vector<unit_id>> spelled;
    std::map<uint32_t, bool> family_spelled; // by first symbol
    for (unit_id id = 0; id < w.units.size(); ++id) {
        const unit &u = w.units[id];
        const bool expandable =
            std::any_of(u.who.begin(), u.who.end(), [&](size_t i) { return may_expand(w.in, i); });
        if (u.clear || !expandable) continue;
        spelled[id] = spell(w, u.text, most);
        family_spelled.try_emplace(u.text[0], true).first->second &= !spelled[id].empty();
    }
    if (w.in.earlier.empty()) return spelled;
    for (auto &[id, pieces] : spelled)
        if (!family_spelled[w.units[id].text[0]]) pieces.clear();
    return spelled;
}

// Decides for every sequence: one unit, or pieces. Returns how many are not exact.
static int choose_units(level_work &w) {
    const auto spelled = spell_units(w);
    int inexact = 0;
    for (size_t i = 0; i < w.in.all.size(); ++i) {
        if (w.own[i] == no_unit) continue;
        const auto pieces = spelled.find(w.own[i]);
        if (pieces != spelled.end() && !pieces->second.empty() && may_expand(w.in, i)) {
            w.spelling[i] = pieces->second;
            for (const unit_id piece : w.spelling[i])
                w.units[piece].used = w.units[piece].shared = true;
            continue;
        }
        unit &u = w.units[w.own[i]];
        u.used = true;
        if (plain(w.in.all[i])) {
            ++u.owners;
        } else {
            u.shared = true;
        }
    }
    for (unit &u : w.units) {
        if (!u.used || u.clear) continue;
        ++inexact;
        place_unclear(w, u);
    }
    return inexact;
}

// Where ignored characters count by their position, they weigh more than anything else: the
// string that has more of them in front of its next weight is then the greater one. Only at the
// end of a string, where they should not count, can that differ.
static void weigh_positions(level_work &w) {
    if (!w.in.rule.position) return;
    for (size_t i = 0; i < w.in.all.size(); ++i) {
        const weighed &c = w.in.all[i];
        if (!c.levels[w.in.level].empty() || ignored_so_far(c, w.in.level)) continue;
        if (w.high == no_unit) w.high = unit_of(w, {UINT32_MAX});
        w.own[i] = w.high;
        w.units[w.high].who.push_back(i);
    }
}

// The units in use, in order. A unit in front of its stem sorts by a key just below the stem's.
static std::vector<unit_id> sorted_units(const level_work &w) {
    const auto key = [](const unit &u) {
        std::vector<uint64_t> k;
        for (const uint32_t s : u.text)
            k.push_back(uint64_t(s) * 2);
        if (u.before_stem) k[k.size() - 2] -= 1;
        return k;
    };
    std::vector<std::pair<std::vector<uint64_t>, unit_id>> keys;
    for (unit_id i = 0; i < w.units.size(); ++i)
        if (w.units[i].used) keys.emplace_back(key(w.units[i]), i);
    std::sort(keys.begin(), keys.end());
    std::vector<unit_id> ids;
    for (const auto &k : keys)
        ids.push_back(k.second);
    return ids;
}

// Groups neighbours that earlier levels have told apart already: when the last level is reached,
// such characters stand opposite each other only when they are equal, so one weight does for all.
static std::vector<std::vector<unit_id>> merge_told_apart(const level_work &w,
                                                          const std::vector<unit_id> &sorted) {
    std::vector<std::vector<unit_id>> groups;
    std::unordered_map<uint32_t, std::vector<size_t>> members; // of the group, by first weight
    bool open = false;
    for (const unit_id id : sorted) {
        const unit &u = w.units[id];
        const bool single = u.owners == 1 && !u.shared;
        const uint32_t first = single ? w.in.earlier[0].first[u.who[0]] : 0;
        bool joins = open && first != 0;
        if (joins)
            for (const size_t other : members[first])
                joins = joins && told_apart(w, u.who[0], other);
        if (!joins) {
            groups.emplace_back();
            members.clear();
        }
        groups.back().push_back(id);
        open = first != 0;
        if (open) members[first].push_back(u.who[0]);
    }
    return groups;
}

static bool merge_pays(const level_work &w, size_t count) {
    if (!w.in.last || w.in.earlier.empty() || w.in.rule.backward) return false;
    return count > size_t(one_byte_weights - weight_first + 1);
}

// A run of single characters in code order can share one weight under the code tie-break.
// Takes the longest runs until the numbers suffice; marks the groups it made.
static void merge_code_runs(const level_work &w, std::vector<std::vector<unit_id>> &groups,
                            std::vector<bool> &by_code) {
    constexpr size_t room = size_t(max_weight - weight_first + 1);
    by_code.assign(groups.size(), false);
    if (groups.size() <= room || w.in.single_byte) return;
    const auto single = [&](size_t g) {
        const unit &u = w.units[groups[g][0]];
        return groups[g].size() == 1 && u.who.size() == 1 && plain(w.in.all[u.who[0]]) &&
               w.in.all[u.who[0]].wide > 1; // 1 is what an element delivers
    };
    const auto wide = [&](size_t g) { return w.in.all[w.units[groups[g][0]].who[0]].wide; };
    struct run {
        size_t begin, end;
    };
    std::vector<run> runs;
    for (size_t g = 0; g < groups.size(); ++g) {
        if (!single(g)) continue;
        size_t end = g + 1;
        while (end < groups.size() && single(end) && wide(end) > wide(end - 1))
            ++end;
        runs.push_back({g, end});
        g = end - 1;
    }
    std::sort(runs.begin(), runs.end(), [](const run &a, const run &b) {
        return a.end - a.begin != b.end - b.begin ? a.end - a.begin > b.end - b.begin
                                                  : a.begin < b.begin;
    });
    std::vector<size_t> leader(groups.size());
    for (size_t g = 0; g < groups.size(); ++g)
        leader[g] = g;
    size_t count = groups.size();
    for (const run &r : runs) {
        if (count <= room || r.end - r.begin < 2) break;
        for (size_t g = r.begin; g < r.end; ++g)
            leader[g] = r.begin;
        count -= r.end - r.begin - 1;
    }
    std::vector<std::vector<unit_id>> merged;
    std::vector<bool> marks;
    for (size_t g = 0; g < groups.size(); ++g) {
        if (leader[g] == g) {
            merged.push_back(std::move(groups[g]));
            marks.push_back(false);
        } else {
            merged.back().push_back(groups[g][0]);
            marks.back() = true;
        }
    }
    groups = std::move(merged);
    by_code = std::move(marks);
}

static int number_units(level_work &w) {
    const std::vector<unit_id> sorted = sorted_units(w);
    std::vector<std::vector<unit_id>> groups;
    if (merge_pays(w, sorted.size())) {
        groups = merge_told_apart(w, sorted);
    } else {
        for (const unit_id id : sorted)
            groups.push_back({id});
    }
    std::vector<bool> by_code;
    merge_code_runs(w, groups, by_code);
    int weight = weight_ignored;
    for (size_t g = 0; g < groups.size(); ++g) {
        ++weight;
        for (const unit_id id : groups[g])
            w.units[id].weight =
                uint16_t(std::min(weight, max_weight) | (by_code[g] ? weight_by_code : 0));
    }
    return weight;
}

static uint16_t expansion_weight(const level_work &w, const std::vector<unit_id> &pieces,
                                 std::map<std::vector<uint16_t>, size_t> &known,
                                 std::vector<std::vector<uint16_t>> &expansions) {
    std::vector<uint16_t> chars;
    for (const unit_id piece : pieces)
        chars.push_back(w.units[piece].carrier);
    if (w.in.rule.backward) std::reverse(chars.begin(), chars.end());
    const auto [at, added] = known.try_emplace(chars, expansions.size());
    if (added) expansions.push_back(chars);
    return uint16_t(weight_expands | at->second);
}

// What the first weight of everything compares as.
static void note_first(const level_work &w, pass_plan &plan) {
    const auto value = [&](const unit &u, uint16_t wide) {
        const uint32_t code = u.weight & weight_by_code ? wide : 0;
        return uint32_t(u.weight & max_weight) << 16 | code;
    };
    for (size_t i = 0; i < w.in.all.size(); ++i) {
        uint32_t first = 0;
        if (!w.spelling[i].empty()) {
            const unit &u = w.units[w.spelling[i][0]];
            first = value(u, u.carrier);
        } else if (w.own[i] != no_unit) {
            first = value(w.units[w.own[i]], w.in.all[i].wide);
        }
        plan.first.push_back(first);
    }
}

pass_plan plan_pass(const level_input &in, std::vector<std::vector<uint16_t>> &expansions) {
    level_work w{.in = in};
    collect_units(w);
    weigh_positions(w);
    find_telling(w);
    judge_units(w);
    pass_plan plan{.backward = in.rule.backward};
    plan.split = choose_units(w);
    plan.highest = number_units(w);
    std::map<std::vector<uint16_t>, size_t> known;
    for (size_t i = 0; i < expansions.size(); ++i)
        known.emplace(expansions[i], i);
    for (size_t i = 0; i < in.all.size(); ++i) {
        uint16_t weight = weight_ignored;
        if (!w.spelling[i].empty()) {
            weight = expansion_weight(w, w.spelling[i], known, expansions);
        } else if (w.own[i] != no_unit) {
            weight = w.units[w.own[i]].weight;
        }
        plan.weights.push_back(weight);
    }
    note_first(w, plan);
    return plan;
}

} // namespace kovac
