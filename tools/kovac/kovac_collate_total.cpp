// The last pass of an order in which no two strings are equal.
// A string is a sequence of tokens, that is, of its characters and elements, and two strings that
// differ have different sequences. Every token has exactly one weight here; none is ignored and
// none expands. So the pass compares the first different tokens of two strings with each other,
// unless one string ends before them. If all earlier passes hold the strings equal, each of them
// yields the same weights for both, and the same weights for the tokens that they begin with: what
// it yields for one of the two tokens begins what it yields for the other. Tokens of which that is
// true in every pass are rivals. Only rivals need different weights here, and only their order
// matters; all letters that earlier passes distinguish share a weight, of which the short keys
// write no more than a count.

#include <algorithm>

#include "kovac/kovac_collate_units.h"

namespace kovac {

namespace {

using profile_id = uint32_t; // what a token yields in the passes after the first

struct ranking {
    const std::vector<weighed> &all;
    const std::vector<pass_plan> &passes;
    std::vector<profile_id> profile; // per token
    std::vector<size_t> samples;     // per profile: a token
    std::vector<std::vector<profile_id>> rivals;
    std::vector<size_t> ranks; // per token
    // Tokens ranked so far: those of the first pass, by its first weight for them, and per profile
    // the lowest rank above all, and above those that the first pass ignores.
    std::map<uint32_t, std::vector<size_t>> heads;
    std::vector<size_t> above_all, above_late;
    size_t highest = 0;     // lowest rank above all of them
    size_t lowest_head = 0; // of those that the first pass weighs
};

} // namespace

static bool one_begins_other(const symbols &a, const symbols &b) {
    return std::equal(a.begin(), a.begin() + long(std::min(a.size(), b.size())), b.begin());
}

static bool rivals_from(const std::vector<pass_plan> &passes, size_t pass, size_t a, size_t b) {
    for (; pass < passes.size(); ++pass)
        if (!one_begins_other(passes[pass].yields[a], passes[pass].yields[b])) return false;
    return true;
}

// What characters yield does not have the codes of those that they are like.
static bool told_by_codes(const weighed &a, const weighed &b) {
    return !a.like.empty() && !b.like.empty() && a.like != b.like;
}

static void find_profiles(ranking &r, size_t tokens) {
    const auto before = [&r](size_t a, size_t b) {
        for (size_t pass = 1; pass < r.passes.size(); ++pass) {
            const symbols &x = r.passes[pass].yields[a], &y = r.passes[pass].yields[b];
            if (x != y) return x < y;
        }
        return false;
    };
    std::map<size_t, profile_id, decltype(before)> known(before);
    for (size_t i = 0; i < tokens; ++i) {
        const auto [at, added] = known.try_emplace(i, profile_id(r.samples.size()));
        if (added) r.samples.push_back(i);
        r.profile.push_back(at->second);
    }
    r.rivals.resize(r.samples.size());
    for (profile_id a = 0; a < r.samples.size(); ++a)
        for (profile_id b = 0; b <= a; ++b) {
            if (!rivals_from(r.passes, 1, r.samples[a], r.samples[b])) continue;
            r.rivals[a].push_back(b);
            if (a != b) r.rivals[b].push_back(a);
        }
    r.above_all.resize(r.samples.size());
    r.above_late.resize(r.samples.size());
}

// Gives a token the lowest rank above those of its rivals so far. The tokens that the first pass
// weighs begin above all that precede them, so that most get one rank whatever their rivals are.
static void rank_token(ranking &r, size_t token) {
    const symbols &first = r.passes[0].yields[token];
    const auto &late = first.empty() ? r.above_all : r.above_late;
    if (r.heads.empty()) r.lowest_head = r.highest;
    size_t rank = first.empty() ? 0 : r.lowest_head;
    for (const profile_id rival : r.rivals[r.profile[token]])
        rank = std::max(rank, late[rival]);
    if (!first.empty()) {
        std::vector<size_t> &heads = r.heads[first[0]];
        for (const size_t other : heads)
            if (r.ranks[other] >= rank && !told_by_codes(r.all[token], r.all[other]) &&
                rivals_from(r.passes, 0, token, other))
                rank = r.ranks[other] + 1;
        heads.push_back(token);
    }
    r.ranks[token] = rank;
    r.highest = std::max(r.highest, rank + 1);
    const profile_id own = r.profile[token];
    r.above_all[own] = std::max(r.above_all[own], rank + 1);
    if (first.empty()) r.above_late[own] = std::max(r.above_late[own], rank + 1);
}

// What the source gives a token at this level. Tokens that it ignores there sort below everything
// else if no earlier level weighs them, else above.
static symbols text_of(const level_work &w, size_t token) {
    if (w.own[token] != no_unit) return w.units[w.own[token]].text;
    return {ignored_so_far(w.in.all[token], w.in.level) ? 0 : no_weight_here};
}

// The tokens in the order of this level, those that it holds equal by code.
static std::vector<size_t> sorted_tokens(const level_work &w) {
    std::vector<std::pair<symbols, size_t>> keys;
    for (size_t i = 0; i < w.own.size(); ++i)
        keys.emplace_back(text_of(w, i), i);
    std::sort(keys.begin(), keys.end());
    std::vector<size_t> tokens;
    for (const auto &[text, token] : keys)
        tokens.push_back(token);
    return tokens;
}

void make_total(level_work &w) {
    const std::vector<size_t> tokens = sorted_tokens(w);
    ranking r{.all = w.in.all, .passes = w.in.earlier};
    r.ranks.resize(tokens.size());
    if (r.passes.empty()) { // groups that their codes distinguish have a rank of their own
        for (size_t i = 0; i < tokens.size(); ++i)
            r.ranks[tokens[i]] = i;
    } else {
        find_profiles(r, tokens.size());
        for (const size_t token : tokens)
            rank_token(r, token);
    }
    w.units.clear();
    w.index.clear();
    for (size_t i = 0; i < tokens.size(); ++i) {
        w.own[i] = unit_of(w, {uint32_t(r.ranks[i])});
        w.units[w.own[i]].who.push_back(i);
        w.units[w.own[i]].by_code |= r.passes.empty() && w.in.all[i].by_code;
    }
}

} // namespace kovac
