// A level compares strings by the weights of their characters, written one after the other. A pass
// has one number for each character, so a sequence of weights becomes a unit with a number of its
// own wherever that is unambiguous: no unit that is the beginning of a longer one may be followed
// by something that sorts among the longer ones. Other sequences are spelled as an expansion, by
// characters whose own sequences make it up.

#include "kovac/kovac_collate_units.h"

#include <algorithm>

namespace kovac {

unit_id unit_of(level_work &w, const symbols &text) {
    const auto [at, added] = w.index.try_emplace(text, unit_id(w.units.size()));
    if (added) w.units.push_back({.text = text});
    return at->second;
}

bool ignored_so_far(const weighed &c, size_t level) {
    for (size_t i = 0; i < level; ++i)
        if (!c.levels[i].empty()) return false;
    return true;
}

bool plain(const weighed &c) { return c.kind == weighed::character; }

// May something expand? Elements do not: they would expand once for each of their characters. Row 0
// of a single-byte code set does not either, so that every byte has a weight directly.
static bool may_expand(const level_input &in, size_t i) {
    return plain(in.all[i]) || (in.all[i].kind == weighed::undefined && !in.single_byte);
}

// Counts owners and finds, for every unit, the character that spells it: the lowest, but a printing
// ASCII character rather than a control character.
void collect_units(level_work &w) {
    const auto &all = w.in.all;
    w.own.assign(all.size(), no_unit);
    w.spelling.resize(all.size());
    for (size_t i = 0; i < all.size(); ++i) {
        const symbols &text = w.in.texts.empty() ? all[i].levels[w.in.level] : w.in.texts[i];
        if (!all[i].like.empty() && !(w.in.total && w.in.last)) continue;
        if (text.empty()) continue;
        w.own[i] = unit_of(w, text);
        unit &u = w.units[w.own[i]];
        u.who.push_back(i);
        u.by_code |= all[i].by_code;
        if (!plain(all[i])) continue;
        const uint16_t wide = all[i].wide;
        if (wide != 0 && (u.carrier == 0 || (u.carrier < 0x20 && wide >= 0x20))) u.carrier = wide;
    }
}

// An earlier pass distinguishes two characters if both have weights there and their first weights
// differ: if two strings are still equal at this level, the first characters in which they differ
// cannot be such a pair. Everything that the pass weighs must also be weighed here or in the first
// pass, because otherwise the strings might differ earlier.
void find_telling(level_work &w) {
    const auto &all = w.in.all;
    for (const pass_plan &pass : w.in.earlier) {
        bool telling = !pass.backward;
        for (size_t i = 0; i < all.size() && telling; ++i)
            telling = pass.first[i] == 0 || w.own[i] != no_unit || all[i].settled ||
                      w.in.earlier[0].first[i] != 0;
        if (telling) w.telling.push_back(&pass);
    }
}

bool told_apart(const level_work &w, size_t a, size_t b) {
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

// A unit is clear if no unit that is its beginning can be compared with it and be followed by its
// next symbol or a higher one.
static void judge_units(level_work &w) {
    for (const unit &u : w.units)
        w.highest_first = std::max(w.highest_first, u.text[0]);
    for (unit &u : w.units) {
        symbols stem;
        for (size_t n = 1; n < u.text.size() && u.clear && !u.by_code; ++n) {
            stem.push_back(u.text[n - 1]);
            if (u.text[n] > w.highest_first) continue;
            const auto at = w.index.find(stem);
            u.clear = at == w.index.end() || all_told_apart(w, w.units[at->second], u);
        }
    }
}

// A unit is clear if its owners are told apart from those of its beginnings. Where it spells a
// token of a class, the class must have no such owners at all.
static bool clear_piece(const level_work &w, const unit &u, uint32_t in_class) {
    if (!u.clear || !in_class) return u.clear;
    symbols stem;
    for (size_t n = 1; n < u.text.size(); ++n) {
        stem.push_back(u.text[n - 1]);
        const auto at = w.index.find(stem);
        if (at == w.index.end() || u.text[n] > w.highest_first) continue;
        if (w.owners.count({at->second, in_class}) || w.owners.count({at->second, 0})) return false;
    }
    return true;
}

// Below the first level of "unicode", where noncharacters carry what no character weighs alone,
// pieces are single symbols: everything that is spelled can then be compared, and nothing is
// spelled by what is spelled itself. A pass of one direction may lack such a character.
static bool letter_by_letter(const level_work &w) {
    return w.in.level > 0 && !w.in.single_byte && w.in.texts.empty();
}

std::vector<unit_id> spell(const level_work &w, const symbols &text, uint32_t in_class,
                           size_t most) {
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
            if (u.carrier == 0 || cost[a] + 1 >= cost[b] || !clear_piece(w, u, in_class)) continue;
            if (letter_by_letter(w) && b > a + 1) continue;
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

// Do most letters that may follow the stem sort above the symbol that extends it?
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
        // An element such as a vowel and the consonant after which it is read sorts directly after
        // that consonant: what may follow the consonant in its script sorts below the vowel.
        // Characters with a spelling do not have the number that is placed here.
        const bool element = std::none_of(u.who.begin(), u.who.end(), [&w](size_t i) {
            return plain(w.in.all[i]) && w.spelling[i].empty();
        });
        u.before_stem = n + 1 == u.text.size() && !element && mostly_above(w, u.text[n]);
        return;
    }
}

// A token's class: those with its place in the first pass, which alone can stand opposite it
// when this level is reached. 0: none, it may stand opposite everything.
static uint32_t class_of(const level_work &w, size_t i) {
    const bool known = !w.telling.empty() && w.telling[0] == &w.in.earlier[0];
    return known ? w.in.earlier[0].place[i] : 0;
}

// Is one owner of a unit clear, because everything that weighs a beginning of its sequence is
// distinguished from it?
static bool token_clear(const level_work &w, size_t i) {
    const unit &u = w.units[w.own[i]];
    if (u.clear || u.by_code) return true;
    const uint32_t own = class_of(w, i);
    if (!own) return false;
    symbols stem;
    for (size_t n = 1; n < u.text.size(); ++n) {
        stem.push_back(u.text[n - 1]);
        const auto at = w.index.find(stem);
        if (at == w.index.end() || u.text[n] > w.highest_first) continue;
        for (const uint32_t rival : {own, uint32_t{0}}) {
            const auto who = w.owners.find({at->second, rival});
            if (who == w.owners.end()) continue;
            for (const size_t other : who->second)
                if (!told_apart(w, i, other)) return false;
        }
    }
    return true;
}

static bool is_lent(const unit &u) {
    return u.who.size() == 1 && u.carrier >= first_lent && u.carrier < first_lent + lent_count;
}

// Can other units yield a sequence, or begin with it?
static bool others_yield(const level_work &w, const symbols &text) {
    std::vector<bool> reached(text.size() + 1);
    reached[0] = true;
    for (size_t a = 0; a < text.size(); ++a) {
        if (!reached[a]) continue;
        symbols part;
        for (size_t b = a; b < text.size(); ++b) {
            part.push_back(text[b]);
            const auto at = w.index.find(part);
            if (at != w.index.end() && part.size() < text.size() && !is_lent(w.units[at->second]))
                reached[b + 1] = true;
        }
        const auto longer = w.index.upper_bound(part);
        if (longer != w.index.end() && longer->first.size() > part.size() &&
            std::equal(part.begin(), part.end(), longer->first.begin()))
            return true;
    }
    return reached[text.size()];
}

// Do only elements of one length yield a sequence of the first level? Then their expansion may
// yield it repeatedly.
static bool may_repeat(const level_work &w, const unit &u) {
    if (w.in.level || w.in.single_byte) return false;
    for (const size_t i : u.who) {
        const weighed &e = w.in.all[i];
        if (plain(e) || e.chars.size() != w.in.all[u.who[0]].chars.size()) return false;
    }
    return !others_yield(w, u.text);
}

// What an expansion must contain for a token: an element yields it once for each of its characters.
// Empty if that cannot make up the token's sequence.
static symbols part_of(const level_work &w, size_t i) {
    const weighed &token = w.in.all[i];
    const symbols &text = w.units[w.own[i]].text;
    if (token.kind != weighed::element) return may_expand(w.in, i) ? text : symbols();
    if (may_repeat(w, w.units[w.own[i]])) return text;
    const size_t times = token.chars.size(), size = text.size() / times;
    if (w.in.single_byte || text.size() % times) return {};
    for (size_t n = size; n < text.size(); ++n)
        if (text[n] != text[n - size]) return {};
    return symbols(text.begin(), text.begin() + long(size));
}

namespace {

// What holds for all tokens of a class with several weights.
struct verdict {
    bool clear = true, spelled = true;
    std::map<uint32_t, symbols> fixed; // by first symbol: the lowest that only elements weigh
};

} // namespace

// An element that cannot expand has a number, which sorts above all spellings that begin like it.
// So what comes after it in the order is a number, too.
static bool is_fixed(const verdict &v, const symbols &text) {
    const auto at = v.fixed.find(text[0]);
    return at != v.fixed.end() && at->second <= text;
}

static void fix(verdict &v, const symbols &text) {
    symbols &lowest = v.fixed.try_emplace(text[0], text).first->second;
    lowest = std::min(lowest, text);
}

// Spells what is not clear. Below the first level, the tokens of a class stay numbers if all of
// them are clear, and are spelled if all its characters can be, because a number and a spelling
// cannot be compared.
static void spell_tokens(level_work &w) {
    const size_t most = most_pieces(w);
    for (size_t i = 0; i < w.own.size(); ++i)
        if (w.own[i] != no_unit) w.owners[{w.own[i], class_of(w, i)}].push_back(i);
    std::map<uint64_t, verdict> classes; // tokens without a class, by their first symbol
    const auto key = [&](size_t i) {
        const uint32_t own = class_of(w, i);
        return own ? uint64_t{own} : uint64_t{w.units[w.own[i]].text[0]} << 32;
    };
    const auto several = [&](size_t i) {
        return w.own[i] != no_unit && w.units[w.own[i]].text.size() > 1;
    };
    for (size_t i = 0; i < w.own.size(); ++i) {
        if (!several(i)) continue;
        verdict &v = classes[key(i)];
        const unit &u = w.units[w.own[i]];
        v.clear &= token_clear(w, i);
        const symbols part = part_of(w, i);
        if (!part.empty()) w.spelling[i] = spell(w, part, class_of(w, i), most);
        if (!w.spelling[i].empty()) continue;
        v.spelled &= !may_expand(w.in, i) || u.clear;
        if (!may_expand(w.in, i)) fix(v, u.text);
    }
    for (size_t i = 0; i < w.own.size(); ++i) {
        if (!several(i)) continue;
        const verdict &v = classes[key(i)];
        const unit &u = w.units[w.own[i]];
        const bool clear = u.clear || v.clear, below = !w.in.earlier.empty();
        const bool number = v.clear || (u.clear && !letter_by_letter(w)) ||
                            (below && (!v.spelled || is_fixed(v, u.text)));
        if (number) w.spelling[i].clear();
        w.clear[i] = clear || !w.spelling[i].empty();
    }
}

// Decides for every sequence whether it is one unit or pieces. Returns how many are not exact.
int choose_units(level_work &w) {
    w.clear.assign(w.own.size(), true);
    w.place.assign(w.own.size(), 0);
    if (!w.in.total || !w.in.last) { // else each is one unit already
        judge_units(w);
        spell_tokens(w);
        if (w.in.level == 0 && !w.in.single_byte) {
            spell_doubles(w);
            spell_tails(w);
        }
    }
    int inexact = int(w.approximate.size());
    for (size_t i = 0; i < w.in.all.size(); ++i) {
        if (w.own[i] == no_unit) continue;
        if (!w.spelling[i].empty()) {
            for (const unit_id piece : w.spelling[i])
                w.units[piece].used = w.units[piece].shared = true;
            continue;
        }
        unit &u = w.units[w.own[i]];
        u.used = true;
        u.exact &= w.clear[i];
        if (plain(w.in.all[i])) {
            ++u.owners;
        } else {
            u.shared = true;
        }
    }
    for (unit &u : w.units) {
        if (!u.used || u.exact) continue;
        ++inexact;
        place_unclear(w, u);
    }
    return inexact;
}

} // namespace kovac
