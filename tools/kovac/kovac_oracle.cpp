// Texts to keys of an evaluated source.

#include "kovac/kovac_oracle.h"

#include <algorithm>

namespace kovac {

static uint32_t element_at(const oracle &o, oracle_text rest) {
    for (const uint32_t id : o.elements[rest[0]]) {
        const std::vector<uint16_t> &chars = o.tokens[id].chars;
        if (chars.size() <= rest.size() && std::equal(chars.begin(), chars.end(), rest.begin()))
            return id;
    }
    return no_token;
}

bool find_tokens(const oracle &o, oracle_text text, std::vector<uint32_t> &tokens) {
    tokens.clear();
    while (!text.empty()) {
        uint32_t id = element_at(o, text);
        if (id == no_token) id = o.of_char[text[0]];
        if (id == no_token) return false;
        tokens.push_back(id);
        text = text.subspan(o.tokens[id].chars.size());
    }
    return true;
}

static bool ignored(const oracle_token &t, size_t level) { return t.at[level] == t.at[level + 1]; }

// Turns every run of tokens round that the level compares backward. What the level ignores belongs
// to the run around it: it is as if it were not there.
static void turn_runs(const oracle &o, size_t level, std::vector<uint32_t> &tokens) {
    size_t begin = 0, last = 0; // of a run: its first token, and after its last backward one
    for (size_t i = 0; i < tokens.size(); ++i) {
        const oracle_token &t = o.tokens[tokens[i]];
        const bool backward = o.backward[t.section][level];
        if (backward) {
            last = i + 1;
        } else if (!ignored(t, level)) {
            std::reverse(tokens.begin() + long(begin),
                         tokens.begin() + long(std::max(last, begin)));
            begin = last = i + 1;
        }
    }
    std::reverse(tokens.begin() + long(begin), tokens.begin() + long(std::max(last, begin)));
}

// Writes a level. With "position", a weight comes after the number of tokens that are ignored
// between the weight before it and itself: the more, the later.
static void write_level(const oracle &o, size_t level, const std::vector<uint32_t> &tokens,
                        oracle_key &key) {
    uint32_t skipped = 0;
    for (const uint32_t id : tokens) {
        const oracle_token &t = o.tokens[id];
        if (ignored(t, level)) ++skipped;
        for (uint32_t at = t.at[level]; at < t.at[level + 1]; ++at) {
            if (o.position[level]) key.push_back(1 + skipped);
            key.push_back(o.weights[at]);
            skipped = 0;
        }
    }
}

void write_key(const oracle &o, const std::vector<uint32_t> &tokens, oracle_key &key) {
    key.clear();
    for (size_t level = 0; level < o.levels; ++level) {
        if (level) key.push_back(0);
        const bool turned = std::any_of(tokens.begin(), tokens.end(), [&](uint32_t id) {
            return o.backward[o.tokens[id].section][level];
        });
        if (turned) {
            std::vector<uint32_t> order = tokens;
            turn_runs(o, level, order);
            write_level(o, level, order, key);
        } else {
            write_level(o, level, tokens, key);
        }
    }
}

int compare_keys(const oracle_key &a, const oracle_key &b, size_t *level) {
    const auto [x, y] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    if (level) *level = 1 + size_t(std::count(a.begin(), x, 0u));
    if (x == a.end() || y == b.end()) return x == a.end() ? (y == b.end() ? 0 : -1) : 1;
    return *x < *y ? -1 : 1;
}

int compare_texts(const oracle &o, oracle_text a, oracle_text b, size_t *level) {
    std::vector<uint32_t> tokens;
    oracle_key x, y;
    if (find_tokens(o, a, tokens)) write_key(o, tokens, x);
    if (find_tokens(o, b, tokens)) write_key(o, tokens, y);
    return compare_keys(x, y, level);
}

} // namespace kovac
