// The last pass of an order in which no two strings are equal.
// A string is a sequence of tokens, that is, of its characters and elements, and two strings that
// differ have different sequences. Every token has exactly one weight here; none is ignored and
// none expands. So the pass distinguishes strings of different lengths, and it compares their first
// different tokens with each other. These have different weights here, or their codes count, or an
// earlier forward pass weighs both and its first weights for them differ: since all tokens before
// them are the same, the weights of that pass differ at this place, and that pass has already
// decided.

#include <algorithm>

#include "kovac/kovac_collate_units.h"

namespace kovac {

// The earlier passes that run forward, whatever they leave to later ones.
static std::vector<const pass_plan *> forward_passes(const level_work &w) {
    std::vector<const pass_plan *> passes;
    for (const pass_plan &pass : w.in.earlier)
        if (!pass.backward) passes.push_back(&pass);
    return passes;
}

static bool decided(const std::vector<const pass_plan *> &passes, size_t a, size_t b) {
    return std::any_of(passes.begin(), passes.end(), [a, b](const pass_plan *pass) {
        return pass->first[a] && pass->first[b] && pass->first[a] != pass->first[b];
    });
}

// Puts a token into the first set, from a given one on, whose members earlier passes all
// distinguish from it.
static void join(const std::vector<const pass_plan *> &passes, size_t token, size_t from,
                 const std::vector<size_t> &rivals, std::vector<size_t> &set_of) {
    std::vector<bool> taken;
    for (const size_t other : rivals) {
        if (decided(passes, token, other)) continue;
        taken.resize(std::max(taken.size(), set_of[other] + 1));
        taken[set_of[other]] = true;
    }
    size_t set = from;
    while (set < taken.size() && taken[set])
        ++set;
    set_of[token] = set;
}

// Splits the tokens of one unit into sets whose members earlier passes distinguish. Tokens with
// different first weights in the first pass never compete.
static size_t split(const level_work &w, const unit &u, std::vector<size_t> &set_of) {
    const std::vector<const pass_plan *> passes = forward_passes(w);
    std::map<uint32_t, std::vector<size_t>> alike; // by first weight of the first pass
    std::vector<size_t> late, bare;                // weighed later only, and nowhere
    for (const size_t i : u.who) {
        const uint32_t first = passes.empty() ? 0 : passes[0]->first[i];
        if (first) {
            alike[first].push_back(i);
        } else {
            const bool weighed = std::any_of(passes.begin(), passes.end(),
                                             [i](const pass_plan *p) { return p->first[i] != 0; });
            (weighed ? late : bare).push_back(i);
        }
    }
    size_t sets = 0;
    const auto take = [&](size_t token, size_t from, std::vector<size_t> &rivals) {
        join(passes, token, from, rivals, set_of);
        rivals.push_back(token);
        sets = std::max(sets, set_of[token] + 1);
    };
    for (const auto &[first, tokens] : alike) {
        std::vector<size_t> rivals;
        for (const size_t token : tokens)
            take(token, 0, rivals);
    }
    std::vector<size_t> rivals;
    for (const size_t from = sets; const size_t token : late)
        take(token, from, rivals);
    for (const size_t token : bare)
        set_of[token] = sets++;
    return sets;
}

// Gives a weight to what this pass ignores: tokens that no pass weighs sort below everything else
// in this pass, the others above.
static void weigh_all(level_work &w) {
    for (size_t i = 0; i < w.in.all.size(); ++i) {
        if (w.own[i] != no_unit) continue;
        const bool nowhere = ignored_so_far(w.in.all[i], w.in.level);
        w.own[i] = unit_of(w, {nowhere ? 0 : no_weight_here});
        w.units[w.own[i]].who.push_back(i);
    }
}

// Distinguishes characters that share a row by their codes if the first pass does not run forward.
static void tell_groups(level_work &w) {
    if (!w.in.earlier.empty() && !w.in.earlier[0].backward) return;
    for (size_t i = 0; i < w.in.all.size(); ++i) {
        if (!w.in.all[i].by_code || w.units[w.own[i]].by_code) continue;
        w.own[i] = unit_of(w, {no_weight_here, uint32_t(i)});
        w.units[w.own[i]].by_code = true;
    }
}

void make_total(level_work &w) {
    weigh_all(w);
    tell_groups(w);
    std::vector<size_t> set_of(w.in.all.size());
    const size_t given = w.units.size();
    for (unit_id id = 0; id < given; ++id) {
        if (w.units[id].who.size() < 2) continue;
        const std::vector<size_t> who = w.units[id].who;
        if (split(w, w.units[id], set_of) < 2) continue;
        w.units[id].who.clear();
        const symbols text = w.units[id].text;
        for (const size_t token : who) {
            symbols own = text;
            if (set_of[token]) own.push_back(first_tie + uint32_t(set_of[token]));
            w.own[token] = unit_of(w, own);
            w.units[w.own[token]].who.push_back(token);
        }
    }
}

} // namespace kovac
