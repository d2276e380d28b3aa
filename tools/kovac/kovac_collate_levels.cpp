// Making a pass from the units of a level: they are numbered in order, and if a pass does not have
// enough numbers, runs of characters in code order share one.

#include "kovac/kovac_collate_levels.h"

#include <algorithm>
#include <map>
#include <unordered_map>

#include "kovac/kovac_collate_units.h"

namespace kovac {

// Where ignored characters count by their position, they weigh more than anything else: the string
// with more of them before its next weight is then the greater one. This can differ only at the end
// of a string, where they should not count.
static void weigh_positions(level_work &w) {
    if (!w.in.rule.position) return;
    for (size_t i = 0; i < w.in.all.size(); ++i) {
        const weighed &c = w.in.all[i];
        if (!c.levels[w.in.level].empty() || ignored_so_far(c, w.in.level)) continue;
        if (w.high == no_unit) w.high = unit_of(w, {no_weight_here});
        w.own[i] = w.high;
        w.units[w.high].who.push_back(i);
    }
}

// The units in use, in order. A unit that comes before its stem sorts by a key just below the
// stem's.
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

// Groups neighbours that earlier levels have already distinguished: when the last level is reached,
// such characters are compared with each other only if they are equal, so one weight suffices for
// all.
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
    if (!w.in.last || w.in.total || w.in.earlier.empty() || w.in.rule.backward) return false;
    return count > size_t(one_byte_weights - weight_first + 1);
}

// Lets runs of single characters in code order share one weight under the code tie-break: the
// longest runs first, until there are enough numbers. Marks the groups made.
static void merge_code_runs(const level_work &w, std::vector<std::vector<unit_id>> &groups,
                            std::vector<bool> &by_code) {
    constexpr size_t room = size_t(last_wide - weight_first + 1);
    by_code.assign(groups.size(), false);
    if (groups.size() <= room || w.in.single_byte) return;
    const auto single = [&](size_t g) {
        const unit &u = w.units[groups[g][0]];
        return groups[g].size() == 1 && u.who.size() == 1 && plain(w.in.all[u.who[0]]) &&
               w.in.all[u.who[0]].wide > 1; // 1 stands for an element
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

// The units in use, in groups that share a number.
static std::vector<std::vector<unit_id>> group_units(const level_work &w,
                                                     std::vector<bool> &by_code) {
    const std::vector<unit_id> sorted = sorted_units(w);
    std::vector<std::vector<unit_id>> groups;
    if (merge_pays(w, sorted.size())) {
        groups = merge_told_apart(w, sorted);
    } else {
        for (const unit_id id : sorted)
            groups.push_back({id});
    }
    merge_code_runs(w, groups, by_code);
    return groups;
}

// Where the numbers do not suffice, characters become expansions: the character below and then
// U+FFFF sort where their number would. The highest ones are taken, which are the rarest where
// strokes are counted. False when nothing could be done.
static bool spill(level_work &w, const std::vector<std::vector<unit_id>> &groups, size_t count) {
    const auto top = w.index.find({after_all});
    if (top == w.index.end() || (w.in.total && w.in.last)) return false;
    const size_t most = count;
    for (size_t g = groups.size() - 1; g > 0 && count > 0; --g) {
        unit &u = w.units[groups[g][0]];
        unit &below = w.units[groups[g - 1].back()];
        const bool fits = groups[g].size() == 1 && u.who.size() == 1 && !u.shared &&
                          plain(w.in.all[u.who[0]]) && groups[g - 1].size() == 1 &&
                          below.text.size() == 1 && below.carrier > 1;
        if (!fits || groups[g][0] == top->second) continue;
        w.spelling[u.who[0]] = {groups[g - 1].back(), top->second};
        u.used = false;
        below.shared = w.units[top->second].shared = true;
        --count;
        --g; // the one below stays
    }
    return count < most;
}

static int number_units(level_work &w) {
    constexpr size_t room = size_t(last_wide - weight_first + 1);
    std::vector<bool> by_code;
    std::vector<std::vector<unit_id>> groups = group_units(w, by_code);
    while (groups.size() > room && spill(w, groups, groups.size() - room))
        groups = group_units(w, by_code);
    int weight = weight_ignored;
    for (size_t g = 0; g < groups.size(); ++g) {
        ++weight;
        for (const unit_id id : groups[g])
            w.units[id].weight = uint16_t(std::min(weight, max_weight) |
                                          (by_code[g] || w.units[id].by_code ? weight_by_code : 0));
    }
    return weight;
}

namespace {

// The expansions of all passes, each once.
struct expansion_list {
    std::vector<std::vector<uint16_t>> &all;
    std::map<std::vector<uint16_t>, size_t> known;

    explicit expansion_list(std::vector<std::vector<uint16_t>> &expansions) : all(expansions) {
        for (size_t i = 0; i < all.size(); ++i)
            known.emplace(all[i], i);
    }
    // The weight that stands for characters. A pass that runs backward reads them from the last.
    uint16_t weight_of(std::vector<uint16_t> chars, bool backward) {
        if (backward) std::reverse(chars.begin(), chars.end());
        const auto [at, added] = known.try_emplace(chars, all.size());
        if (added) all.push_back(std::move(chars));
        return uint16_t(weight_expands | at->second);
    }
};

} // namespace

// Notes the values that weights have in comparison.
static void note_yields(const level_work &w, pass_plan &plan) {
    const auto value = [](const unit &u, uint16_t wide) {
        const uint32_t code = u.weight & weight_by_code ? wide : 0;
        return uint32_t(u.weight & max_weight) << 16 | code;
    };
    for (size_t i = 0; i < w.in.all.size(); ++i) {
        const weighed &c = w.in.all[i];
        symbols values;
        for (size_t times = c.kind == weighed::element ? c.chars.size() : 1; times > 0; --times)
            for (const unit_id piece : w.spelling[i])
                values.push_back(value(w.units[piece], w.units[piece].carrier));
        if (w.spelling[i].empty() && w.own[i] != no_unit)
            values.push_back(value(w.units[w.own[i]], c.wide));
        if (plan.backward) std::reverse(values.begin(), values.end());
        plan.first.push_back(values.empty() ? 0 : values[0]);
        plan.place.push_back(w.place[i] ? w.place[i] : plan.first[i]);
        plan.yields.push_back(std::move(values));
    }
}

// Which of all a character belongs to.
static std::vector<size_t> places_of_characters(const std::vector<weighed> &all) {
    std::vector<size_t> at(0x10000);
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i].kind == weighed::character) at[all[i].wide] = i;
        if (all[i].kind != weighed::undefined) continue;
        for (const uint16_t wide : all[i].chars)
            at[wide] = i;
    }
    return at;
}

// Gives characters that are like others the weight of these. Where codes decide, or where it is the
// weights of two, this is an expansion.
static void weigh_alike(const level_work &w, pass_plan &plan, expansion_list &list) {
    const std::vector<weighed> &all = w.in.all;
    const std::vector<size_t> at = places_of_characters(all);
    for (size_t i = 0; i < all.size(); ++i) {
        const std::vector<uint16_t> &like = all[i].like;
        if (like.empty()) continue;
        const size_t first = at[like[0]];
        const bool expands = plan.weights[first] & weight_by_code || like.size() > 1;
        const bool ignored = plan.weights[first] == weight_ignored;
        plan.weights[i] =
            expands && !ignored ? list.weight_of(like, plan.backward) : plan.weights[first];
        plan.first[i] = plan.first[first];
        plan.place[i] = plan.place[first];
        for (const uint16_t wide : like)
            plan.yields[i].insert(plan.yields[i].end(), plan.yields[at[wide]].begin(),
                                  plan.yields[at[wide]].end());
    }
}

pass_plan plan_pass(const level_input &in, std::vector<std::vector<uint16_t>> &expansions) {
    level_work w{.in = in};
    collect_units(w);
    find_telling(w);
    if (in.total && in.last) {
        make_total(w);
    } else {
        weigh_positions(w);
    }
    pass_plan plan{.backward = in.rule.backward};
    plan.split = choose_units(w);
    plan.highest = number_units(w);
    expansion_list list(expansions);
    for (size_t i = 0; i < in.all.size(); ++i) {
        uint16_t weight = weight_ignored;
        if (!w.spelling[i].empty()) {
            std::vector<uint16_t> chars;
            for (const unit_id piece : w.spelling[i])
                chars.push_back(w.units[piece].carrier);
            weight = list.weight_of(std::move(chars), plan.backward);
        } else if (w.own[i] != no_unit) {
            weight = w.units[w.own[i]].weight;
        }
        plan.weights.push_back(weight);
    }
    note_yields(w, plan);
    if (!in.total || !in.last) weigh_alike(w, plan, list);
    return plan;
}

} // namespace kovac
