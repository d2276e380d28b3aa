// Compiles LC_COLLATE: reads the order, gives every character and element its weights level by
// level, and folds equal weights into rows.

#include "kovac/kovac_collate.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "kovac/kovac_collate_levels.h"
#include "kovac/kovac_collate_source.h"
#include "kovac/kovac_equivalents.h"

namespace kovac {

struct compiler {
    const charmap &map;
    diagnostics &diag;
    const order &src;
    std::vector<weighed> all;
    std::vector<bool> reported; // per item: whether it was reported as a weight outside the order
};

// Gets the symbols of an item at every level. Weights without a place in the order are dropped.
static void take_levels(compiler &c, uint32_t id, weighed &to) {
    const order_item &it = c.src.items[id];
    if (!it.weighed) {
        for (size_t level = 0; level < c.src.levels; ++level)
            to.levels[level] = {it.rank};
        return;
    }
    uint32_t at = it.first_weight;
    for (size_t level = 0; level < c.src.levels; ++level) {
        for (uint8_t i = 0; i < it.counts[level]; ++i, ++at) {
            const order_item &weight = c.src.items[c.src.weights[at]];
            if (weight.rank) {
                to.levels[level].push_back(weight.rank);
            } else if (!c.reported[c.src.weights[at]]) {
                c.reported[c.src.weights[at]] = true;
                warning(c.diag, it.pos,
                        weight.kind == order_item::character
                            ? format("the weight <U%04X> has no place in the order", weight.code)
                            : format("the weight <%s> has no place in the order",
                                     std::string(weight.name).c_str()));
            }
        }
    }
}

static uint32_t placed_character(const order &src, uint32_t code) {
    const auto at = src.by_code.find(code);
    return at != src.by_code.end() && src.items[at->second].rank ? at->second : no_item;
}

// The items of the code set's characters. If a character's first code point has no line, another
// code point of the character may have one.
static std::vector<uint32_t> character_items(const charmap &map, const order &src) {
    std::vector<uint32_t> items;
    for (const charmap_char &ch : map.chars)
        items.push_back(placed_character(src, ch.code));
    std::vector<std::pair<uint32_t, uint32_t>> others; // code, index
    for (const auto &[code, index] : map.by_code)
        if (index < items.size() && items[index] == no_item &&
            placed_character(src, code) != no_item)
            others.emplace_back(code, index);
    std::sort(others.begin(), others.end());
    for (const auto &[code, index] : others)
        if (items[index] == no_item) items[index] = placed_character(src, code);
    return items;
}

// The ideograph that a character of "unicode" stands for, unless the source gives the character a
// place of its own, or has only one level, which must tell the two apart; 0: none.
static uint32_t stands_for(compiler &c, uint32_t id, uint32_t code) {
    const uint32_t ideograph = c.map.unicode && c.src.levels > 1 ? ideograph_of(code) : 0;
    if (!ideograph || id == no_item) return ideograph;
    weighed own;
    take_levels(c, id, own);
    const symbols &first = own.levels[0];
    return std::find(first.begin(), first.end(), c.src.items[id].rank) == first.end() ? ideograph
                                                                                      : 0;
}

// Compatibility ideographs weigh as the ideographs that they stand for.
static void add_equivalent(compiler &c, uint16_t wide, uint32_t ideograph) {
    weighed e{.wide = wide, .item = placed_character(c.src, ideograph)};
    if (e.item != no_item) {
        take_levels(c, e.item, e);
    } else {
        e.levels[0] = {after_first};
    }
    if (ideograph > 0xFFFF) e.like.push_back(uint16_t(0xD7C0 + (ideograph >> 10)));
    e.like.push_back(uint16_t(ideograph > 0xFFFF ? 0xDC00 + (ideograph & 0x3FF) : ideograph));
    c.all.push_back(std::move(e));
}

static void add_unlined(compiler &c, const std::vector<uint32_t> &items,
                        const std::vector<uint32_t> &ideographs) {
    std::vector<uint16_t> wides;
    for (size_t i = 0; i < items.size(); ++i)
        if (items[i] == no_item && !ideographs[i]) wides.push_back(c.map.chars[i].wide);
    jamo_weights jamo;
    for (uint32_t i = 0; i < jamo.size(); ++i) {
        const uint32_t id = placed_character(c.src, 0x1100 + i);
        weighed letter;
        if (id != no_item) take_levels(c, id, letter);
        jamo[i] = letter.levels[0];
    }
    c.all = group_unlined(wides, jamo);
}

// Adds the characters without a line. Like the C library, whatever UNDEFINED says, they weigh like
// the first character of the code set that has a line (other than NUL), once for each of their
// bytes. Those with the most bytes come first, in row 0.
static void add_undefined(compiler &c, const std::vector<uint32_t> &items) {
    uint32_t like = no_item;
    for (size_t i = 0; i < items.size() && like == no_item; ++i)
        if (c.map.chars[i].wide != 0) like = items[i];
    weighed once{.kind = weighed::undefined};
    if (like != no_item) take_levels(c, like, once);
    std::array<std::vector<uint16_t>, 3> who; // by bytes
    for (size_t i = 0; i < items.size(); ++i)
        if (items[i] == no_item) who[c.map.chars[i].len].push_back(c.map.chars[i].wide);
    for (size_t bytes = 2; bytes > 0; --bytes) {
        if (who[bytes].empty() && (bytes > 1 || !c.all.empty())) continue;
        weighed some{.kind = weighed::undefined, .chars = who[bytes]};
        for (size_t level = 0; level < c.src.levels; ++level)
            for (size_t i = 0; i < bytes; ++i)
                some.levels[level].insert(some.levels[level].end(), once.levels[level].begin(),
                                          once.levels[level].end());
        c.all.push_back(std::move(some));
    }
}

static void add_characters(compiler &c) {
    const std::vector<uint32_t> items = character_items(c.map, c.src);
    std::vector<uint32_t> ideographs; // that characters stand for
    for (size_t i = 0; i < items.size(); ++i)
        ideographs.push_back(stands_for(c, items[i], c.map.chars[i].code));
    if (c.map.unicode) {
        add_unlined(c, items, ideographs);
    } else {
        add_undefined(c, items);
    }
    const int missing = int(std::count(items.begin(), items.end(), no_item));
    const std::string text =
        format("%d characters of %s have no line in LC_COLLATE", missing, c.map.name.c_str());
    if (missing && c.map.unicode) note(c.diag, {}, text + "; they weigh by their codes");
    if (missing > 1 && !c.map.unicode) warning(c.diag, {}, text + " and share a weight");
    for (size_t i = 0; i < items.size(); ++i) {
        if (ideographs[i]) add_equivalent(c, c.map.chars[i].wide, ideographs[i]);
        if (items[i] == no_item || ideographs[i]) continue;
        weighed ch{.wide = c.map.chars[i].wide, .item = items[i]};
        take_levels(c, items[i], ch);
        c.all.push_back(std::move(ch));
    }
}

// The elements whose characters the code set has.
static std::vector<weighed> source_elements(compiler &c) {
    std::vector<weighed> found;
    for (uint32_t id = 0; id < c.src.items.size(); ++id) {
        const order_item &it = c.src.items[id];
        if (it.kind != order_item::element || !it.rank || it.chars.empty()) continue;
        weighed e{.kind = weighed::element, .item = id};
        for (const uint32_t code : it.chars) {
            const charmap_char *ch = find_code(c.map, code);
            if (ch) e.chars.push_back(ch->wide);
        }
        if (e.chars.size() != it.chars.size()) continue;
        if (e.chars.size() < 2 || e.chars.size() > 15) {
            warning(c.diag, it.pos, "a collating element has 2 to 15 characters; left out");
            continue;
        }
        if (std::find(e.chars.begin(), e.chars.end(), 0) != e.chars.end()) {
            warning(c.diag, it.pos, "a collating element cannot contain NUL; left out");
            continue;
        }
        take_levels(c, id, e);
        found.push_back(std::move(e));
    }
    return found;
}

// Does the first level have the same weights for an element as for its characters?
static bool says_the_same(const compiler &c, const weighed &e) {
    symbols apart;
    for (const uint16_t wide : e.chars) {
        const auto ch = std::find_if(c.all.begin(), c.all.end(), [&](const weighed &w) {
            return w.kind == weighed::character && w.wide == wide;
        });
        if (ch == c.all.end()) return false;
        apart.insert(apart.end(), ch->levels[0].begin(), ch->levels[0].end());
    }
    return apart == e.levels[0];
}

static bool only_common(const symbols &text, const symbols &common) {
    return std::all_of(text.begin(), text.end(), [&](uint32_t s) {
        return std::find(common.begin(), common.end(), s) != common.end();
    });
}

// The weights that most characters share at a level.
static symbols common_weights(const compiler &c, size_t level) {
    std::map<symbols, size_t> shared;
    for (const weighed &e : c.all)
        if (!e.levels[level].empty()) ++shared[e.levels[level]];
    symbols common;
    size_t most = 0;
    for (const auto &[text, count] : shared)
        if (count > most) most = count, common = text;
    return common;
}

static const order_section *section_of(const compiler &c, const weighed &e) {
    return e.item == no_item ? nullptr : &c.src.sections[c.src.items[e.item].section];
}

// What a section says at a level, and how many of its letters have something to tell there, beyond
// the weight that most characters share. A section of marks also holds what the first level
// ignores: marks stand alone between letters, where direction makes no difference.
struct section_use {
    level_rule rule;
    bool marks = false;
    size_t telling = 0;
};

static std::map<const order_section *, section_use> section_uses(const compiler &c, size_t level) {
    const symbols common = common_weights(c, level);
    std::map<const order_section *, section_use> uses;
    for (const weighed &e : c.all) {
        const order_section *section = section_of(c, e);
        if (!section || level >= section->rules.size() || e.levels[level].empty()) continue;
        section_use &use = uses[section];
        use.rule = section->rules[level];
        if (e.levels[0].empty()) {
            use.marks = true;
        } else if (!only_common(e.levels[level], common)) {
            ++use.telling;
        }
    }
    return uses;
}

// One rule for a whole pass: that of most letters with something to tell.
static level_rule pass_rule(const compiler &c, size_t level) {
    size_t backward = 0, position = 0, total = 0;
    for (const auto &[section, use] : section_uses(c, level)) {
        total += use.telling;
        backward += use.rule.backward ? use.telling : 0;
        position += use.rule.position ? use.telling : 0;
    }
    return {backward * 2 > total, position * 2 > total};
}

// One or two passes of a level.
struct level_part {
    size_t level;
    level_rule rule;
    std::vector<symbols> texts; // per weighed: what it weighs; empty: all of the level
};

namespace {

// Which weights of the first level run backward at another one: what most of those do that contain
// them. Their sections may differ: the large shared table has a Greek letter among the Latin ones,
// and the length mark of Japanese words, which squared words contain, among the symbols.
struct directions {
    const std::map<const order_section *, section_use> &uses;
    std::map<uint32_t, int> votes; // for backward
};

} // namespace

static bool runs_backward(const compiler &c, const directions &d, const weighed &e) {
    const auto use = d.uses.find(section_of(c, e));
    return use != d.uses.end() && use->second.rule.backward;
}

static directions find_directions(const compiler &c,
                                  const std::map<const order_section *, section_use> &uses) {
    directions d{uses, {}};
    for (const weighed &e : c.all)
        for (const uint32_t weight : e.levels[0])
            if (section_of(c, e)) d.votes[weight] += runs_backward(c, d, e) ? 1 : -1;
    return d;
}

// What the pass of a direction weighs. Where a level has a weight for each one of the first level,
// each has a direction of its own (signs of units that begin with a Greek letter).
static symbols text_of_direction(const compiler &c, const directions &d, const weighed &e,
                                 size_t level, bool backward) {
    const symbols &first = e.levels[0], &text = e.levels[level];
    const auto fits = [&](uint32_t weight) {
        const auto votes = d.votes.find(weight);
        const bool decided = votes != d.votes.end() && votes->second;
        return (decided ? votes->second > 0 : runs_backward(c, d, e)) == backward;
    };
    if (first.empty()) return text;
    if (first.size() != text.size()) return fits(first[0]) ? text : symbols();
    symbols part;
    for (size_t i = 0; i < text.size(); ++i)
        if (fits(first[i])) part.push_back(text[i]);
    return part;
}

// A level that runs backward for the letters of some sections and forward for those of others
// becomes two passes, the backward one first, each without the letters of the other; marks are in
// both. Strings with letters of one direction compare as the source says. A few letters of another
// direction are not worth a pass.
static void add_parts(compiler &c, size_t level, bool room, std::vector<level_part> &parts) {
    const auto uses = section_uses(c, level);
    size_t letters[2] = {}, with_marks[2] = {};
    for (const auto &[section, use] : uses)
        (use.marks ? with_marks : letters)[use.rule.backward] += use.telling;
    constexpr size_t few = 8; // one in so many
    const auto [less, more] = std::minmax(letters[0], letters[1]);
    if (level && room && less * few >= more && less) {
        const directions d = find_directions(c, uses);
        for (const bool backward : {true, false}) {
            level_part part{level, {.backward = backward}, {}};
            for (const weighed &e : c.all)
                part.texts.push_back(text_of_direction(c, d, e, level, backward));
            parts.push_back(std::move(part));
        }
        return;
    }
    const level_rule rule = pass_rule(c, level);
    const size_t other = letters[!rule.backward] + with_marks[!rule.backward];
    if (other)
        warning(c.diag, {},
                format("level %zu runs %s; %zu characters of sections that the source compares the "
                       "other way, and runs of marks there, do, too",
                       level + 1, rule.backward ? "backward" : "forward", other));
    parts.push_back({level, rule, {}});
}

// The marks that the first level ignores and that this level compares against the direction of the
// pass: in the source each run of them is compared from its end.
static std::vector<size_t> reversed_marks(const compiler &c, size_t level) {
    std::vector<size_t> marks;
    const bool backward = pass_rule(c, level).backward;
    for (size_t i = 0; i < c.all.size(); ++i) {
        const weighed &e = c.all[i];
        if (e.kind != weighed::character || !e.levels[0].empty() || e.levels[level].empty())
            continue;
        const order_section &section = c.src.sections[c.src.items[e.item].section];
        if (level < section.rules.size() && section.rules[level].backward != backward)
            marks.push_back(i);
    }
    return marks;
}

// Makes elements of pairs of marks, with their weights exchanged, because a pass has one direction.
static void add_mark_pairs(compiler &c, std::vector<weighed> &elements) {
    constexpr size_t most_marks = 16; // more pairs would slow every comparison down
    for (size_t level = 1; level < c.src.levels; ++level) {
        const std::vector<size_t> marks = reversed_marks(c, level);
        if (marks.size() < 2) continue;
        if (marks.size() > most_marks) {
            warning(c.diag, {},
                    format("level %zu: runs of %zu marks are compared in the direction of "
                           "the other characters",
                           level + 1, marks.size()));
            continue;
        }
        for (const size_t i : marks)
            for (const size_t j : marks) {
                if (i == j) continue;
                weighed pair{.kind = weighed::element, .item = c.all[i].item};
                pair.chars = {c.all[i].wide, c.all[j].wide};
                for (size_t l = 0; l < c.src.levels; ++l) {
                    const auto &[first, second] = l == level ? std::pair(j, i) : std::pair(i, j);
                    pair.levels[l] = c.all[first].levels[l];
                    const symbols &more = c.all[second].levels[l];
                    pair.levels[l].insert(pair.levels[l].end(), more.begin(), more.end());
                }
                elements.push_back(std::move(pair));
            }
        return; // only for one level; a second one would need the same elements
    }
}

// Adds the elements, longest first, because the first that matches is taken.
static void add_elements(compiler &c) {
    std::vector<weighed> found = source_elements(c);
    const size_t telling = std::min<size_t>(c.src.levels, 3);
    if (const size_t dropped = drop_plain_elements(c.all, telling, found))
        warning(c.diag, {},
                format("%zu collating elements weigh as their characters at the first %zu levels; "
                       "left out",
                       dropped, telling));
    if (const size_t joined = join_tails(c.all, telling, found))
        note(
            c.diag, {},
            format("%zu collating elements weigh as their first character and then alike; the rest "
                   "of them is the element",
                   joined));
    const bool same = std::all_of(found.begin(), found.end(),
                                  [&](const weighed &e) { return says_the_same(c, e); });
    if (!found.empty() && same && c.map.max_len == 1) {
        // An example is l with the middle dot in the shared table. Such elements would cost every
        // locale of the code set its single-byte comparer, and they sort next to their characters
        // anyway.
        warning(c.diag, {},
                format("%zu collating elements sort as their characters at the first level; "
                       "left out",
                       found.size()));
        found.clear();
    }
    if (c.map.max_len == 1) add_mark_pairs(c, found);
    std::stable_sort(found.begin(), found.end(), [](const weighed &a, const weighed &b) {
        return a.chars.size() > b.chars.size();
    });
    for (weighed &e : found)
        c.all.push_back(std::move(e));
}

static bool levels_match(const weighed &e) { return e.levels[1].size() == e.levels[2].size(); }

// The accents of the second level, and for how many characters the third says the same of one as
// most of all.
struct accent {
    size_t times = 0, usual = 0;
    bool letter = false; // stands for a letter as well
};

static std::unordered_map<uint32_t, accent> find_accents(const compiler &c, uint32_t usual) {
    std::unordered_map<uint32_t, accent> accents;
    for (const weighed &e : c.all) {
        const symbols &second = e.levels[1], &third = e.levels[2];
        for (size_t i = 0; i < second.size(); ++i) {
            accent &a = accents[second[i]];
            ++a.times;
            a.letter |= i == 0 && !e.levels[0].empty();
            a.usual += levels_match(e) && third[i] == usual;
        }
    }
    return accents;
}

// Strings are compared at the third level only if their second levels are equal, so they have the
// same accents there. What the third level says of an accent wherever it stands is left out: a
// letter with an accent then weighs as the letter and the accent written as two characters.
static void drop_usual(compiler &c) {
    if (c.src.levels < 3 || pass_rule(c, 2).position) return;
    // What the first two levels ignore and the third does not may stand between accents.
    const bool alone = std::any_of(c.all.begin(), c.all.end(), [](const weighed &e) {
        return e.levels[0].empty() && !e.levels[2].empty() && !levels_match(e);
    });
    if (alone) return;
    const symbols common = common_weights(c, 2);
    if (common.size() != 1) return;
    const auto accents = find_accents(c, common[0]);
    for (weighed &e : c.all) {
        if (!levels_match(e)) continue;
        const symbols third = std::exchange(e.levels[2], {});
        for (size_t i = 0; i < third.size(); ++i) {
            const accent &a = accents.at(e.levels[1][i]);
            if (third[i] != common[0] || a.letter || a.usual * 4 < a.times)
                e.levels[2].push_back(third[i]);
        }
        e.settled = !third.empty() && e.levels[2].empty();
    }
}

// The weights of sequences at a level that no character has alone. At the first level, those of
// elements with which nothing begins, and letters that elements have several times.
static std::vector<uint32_t> without_carrier(const compiler &c, size_t level) {
    std::set<uint32_t> carried, wanted;
    for (const weighed &e : c.all) {
        const symbols &text = e.levels[level];
        const bool alone = text.size() == 1 && e.kind == weighed::character && e.wide;
        if (level ? alone && e.like.empty() : !text.empty()) carried.insert(text[0]);
        if (text.size() > 1 && (level || e.kind == weighed::element))
            wanted.insert(text.begin(), text.end());
    }
    std::erase_if(wanted, [&](uint32_t s) { return carried.count(s) != 0; });
    std::vector<uint32_t> all(wanted.begin(), wanted.end());
    if (level == 0)
        for (const uint32_t letter : doubled_letters(c.all))
            all.push_back(letter);
    return all;
}

// Lets U+FDD0 and those after it, which no text has, carry the weights that no character has alone,
// so that expansions can be made of them.
static void lend_carriers(compiler &c) {
    std::vector<weighed> lent;
    for (size_t level = 0; level < c.src.levels; ++level) {
        const std::vector<uint32_t> wanted = without_carrier(c, level);
        for (uint32_t i = 0; i < wanted.size() && i < lent_count; ++i) {
            if (lent.size() == i) {
                lent.push_back({.wide = uint16_t(first_lent + i)});
                lent[i].levels[0] = {after_lent + i};
            }
            lent[i].levels[level] = {wanted[i]};
        }
    }
    for (const weighed &e : lent)
        for (weighed &group : c.all)
            std::erase(group.chars, e.kind == weighed::character ? e.wide : 0);
    c.all.insert(c.all.end(), lent.begin(), lent.end());
}

static bool ignored_everywhere(const compiler &c, size_t level) {
    return std::all_of(c.all.begin(), c.all.end(),
                       [&](const weighed &e) { return e.levels[level].empty(); });
}

static bool check_plan(compiler &c, size_t level, const pass_plan &plan) {
    if (plan.split)
        warning(c.diag, {},
                format("level %zu: %d sequences of weights are ordered as one weight each",
                       level + 1, plan.split));
    if (plan.highest <= last_wide) return true;
    error(c.diag, {},
          format("level %zu needs %d weights in an order that is not code order; a pass "
                 "holds %d",
                 level + 1, plan.highest - 1, last_wide - 1));
    return false;
}

static bool plan_levels(compiler &c, const collation_options &options, collation &out,
                        std::vector<pass_plan> &plans) {
    std::vector<level_part> parts;
    for (size_t level = 0; level < c.src.levels; ++level) {
        const bool room = parts.size() + 1 + (c.src.levels - level) <= max_levels;
        if (!ignored_everywhere(c, level)) add_parts(c, level, room, parts);
    }
    for (const level_part &part : parts) {
        const level_input in{.all = c.all,
                             .level = part.level,
                             .rule = part.rule,
                             .texts = part.texts,
                             .earlier = plans,
                             .last = &part == &parts.back(),
                             .single_byte = c.map.max_len == 1,
                             .total = c.map.unicode && !options.equal_ties &&
                                      options.keeps == strength::all};
        plans.push_back(plan_pass(in, out.expansions));
        if (!check_plan(c, part.level, plans.back())) return false;
    }
    if (out.expansions.size() <= max_weight) return true;
    error(c.diag, {},
          format("%zu expansions; an object holds %d", out.expansions.size(), max_weight));
    return false;
}

// Folds equal weights into rows; row 0 is that of the characters without a line.
static bool make_rows(compiler &c, const std::vector<pass_plan> &plans, collation &out) {
    std::map<std::vector<uint16_t>, uint16_t> known;
    for (size_t i = 0; i < c.all.size(); ++i) {
        std::vector<uint16_t> row;
        for (const pass_plan &plan : plans)
            row.push_back(plan.weights[i]);
        if (out.weights.size() > 0xFFFF) {
            error(c.diag, {}, "more than 65536 different rows of weights");
            return false;
        }
        const auto [at, added] = known.try_emplace(row, uint16_t(out.weights.size()));
        if (added) out.weights.push_back(std::move(row));
        const weighed &e = c.all[i];
        if (e.kind == weighed::element) {
            out.elements.push_back({e.chars, at->second});
        } else if (e.kind == weighed::character) {
            out.rows[e.wide] = at->second;
        } else if (at->second != 0) {
            for (const uint16_t wide : e.chars)
                out.rows[wide] = at->second;
        }
    }
    for (const pass_plan &plan : plans) {
        out.pass_types.push_back(plan.backward ? 2 : 1);
        out.num_weights = std::max(out.num_weights, plan.highest);
    }
    out.num_rows = int(out.weights.size()) - 1;
    return true;
}

// Makes one pass in code order: a weight for each character if there are enough numbers, else one
// weight for all with the code tie-break.
static void make_code_order(const charmap &map, collation &out) {
    out = {};
    out.codeset_order = true;
    out.pass_types = {1};
    std::vector<uint16_t> wides;
    for (const charmap_char &ch : map.chars)
        wides.push_back(ch.wide);
    if (map.max_len == 1) {
        wides.clear();
        for (uint16_t byte = 0; byte < 256; ++byte) // every byte is a character
            wides.push_back(byte);
    }
    std::sort(wides.begin(), wides.end());
    const bool by_code = wides.size() > size_t(max_weight - 1);
    uint16_t weight = weight_first;
    for (const uint16_t wide : wides) {
        if (!by_code || out.weights.empty()) {
            out.weights.push_back({uint16_t(weight | (by_code ? weight_by_code : 0))});
            out.num_weights = weight++;
        }
        out.rows[wide] = uint16_t(out.weights.size() - 1);
    }
    out.num_rows = int(out.weights.size()) - 1;
}

// Are strings in the order of their wide characters also in the order of their bytes? They are not
// if a character of one byte is above the first byte of a longer one.
static bool bytes_keep_order(const charmap &map) {
    uint16_t highest_single = 0, lowest_lead = 0xFF;
    for (const charmap_char &ch : map.chars) {
        if (ch.len == 1) highest_single = std::max(highest_single, ch.wide);
        if (ch.len == 2) lowest_lead = std::min<uint16_t>(lowest_lead, ch.wide >> 8);
    }
    return map.min_len == map.max_len || highest_single < lowest_lead;
}

// Do the tables order every character by its code alone? The key of such a locale is the string
// itself, so its bytes must give the same order.
static bool is_code_order(const charmap &map, const collation &c) {
    if (!bytes_keep_order(map)) return false;
    if (c.pass_types != std::vector<int>{1} || !c.elements.empty() || !c.expansions.empty())
        return false;
    std::map<uint16_t, uint16_t> weights;
    for (const charmap_char &ch : map.chars) {
        const auto at = c.rows.find(ch.wide);
        if (at == c.rows.end()) return false;
        weights[ch.wide] = c.weights[at->second][0];
    }
    uint16_t last = weight_ignored;
    for (const auto &[wide, weight] : weights) {
        if (weight <= last || weight > max_weight) return false;
        last = weight;
    }
    return true;
}

static bool keep_levels(compiler &c, order &src, const collation_options &options) {
    if (options.keeps == strength::all) return true;
    kept_levels kept;
    if (!weaken_order(c.all, src.levels, options, kept)) {
        error(c.diag, {},
              kept.of_case ? "the first level tells case and accents apart; there is no order "
                             "without them"
                           : "the order tells no letter from its capital");
        return false;
    }
    if (kept.apart)
        warning(c.diag, {},
                format("letters that differ in case, but not only in case at the first %zu levels: "
                       "%zu pairs (<U%04X> <U%04X>); they stay different",
                       kept.levels, kept.apart, unsigned(kept.example.first),
                       unsigned(kept.example.second)));
    src.levels = kept.levels;
    return true;
}

bool compile_collation(source_set &set, const charmap &map, diagnostics &diag, collation &result,
                       proof_report *report, const collation_options &options) {
    if (options.by_thai) return make_thai(map, diag, result);
    order src;
    if (!read_order(set, map, diag, src)) return false;
    result = {};
    if (src.codepoint_order && options.keeps != strength::all) {
        error(diag, {set.main, 0}, "code order tells case and accents apart");
        return false;
    }
    if (src.codepoint_order) {
        if (!bytes_keep_order(map))
            warning(diag, {set.main, 0},
                    format("code order: keys sort by bytes, comparison by characters of %s",
                           map.name.c_str()));
        make_code_order(map, result);
    } else {
        compiler c{.map = map, .diag = diag, .src = src};
        c.reported.resize(src.items.size());
        add_characters(c);
        result.source_levels = src.levels;
        if (!keep_levels(c, src, options)) return false;
        result.levels = src.levels;
        add_elements(c);
        if (map.unicode) drop_usual(c);
        if (map.unicode) lend_carriers(c);
        std::vector<pass_plan> plans;
        if (!plan_levels(c, options, result, plans) || !make_rows(c, plans, result)) return false;
        if (is_code_order(map, result)) make_code_order(map, result);
    }
    if (report) prove_collation(map, result, *report);
    return true;
}

} // namespace kovac
