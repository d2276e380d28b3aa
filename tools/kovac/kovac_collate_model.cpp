// Written from the meaning of the tables, independently of the library, so that each can be checked
// against the other.

#include "kovac/kovac_collate_model.h"

#include <algorithm>

#include "kovac/kovac_collate_levels.h"

namespace kovac {

struct weight_of {
    uint16_t weight, ch;
};

collation_model make_model(const charmap &map, const collation &tables) {
    collation_model m{.tables = &tables, .single_byte = map.max_len == 1};
    m.min_len = map.min_len;
    m.code_digits = m.single_byte ? 2 : 3;
    m.row.assign(0x10000, 0);
    for (const auto &[wide, row] : tables.rows)
        m.row[wide] = row;
    m.element.resize(0x10000);
    for (uint32_t i = 0; i < tables.elements.size(); ++i)
        m.element[tables.elements[i].chars[0]].push_back(i);
    return m;
}

static const collation_element *element_at(const collation_model &m, wide_text s, size_t at) {
    for (const uint32_t i : m.element[s[at]]) {
        const collation_element &e = m.tables->elements[i];
        if (e.chars.size() <= s.size() - at &&
            std::equal(e.chars.begin(), e.chars.end(), s.begin() + long(at)))
            return &e;
    }
    return nullptr;
}

// The weights of a string in one pass, in the order of comparison. An element's weight counts once;
// an expansion of an element counts once for each of its characters.
static std::vector<weight_of> pass_weights(const collation_model &m, wide_text s, size_t pass,
                                           bool backward) {
    std::vector<weight_of> out;
    struct place {
        uint16_t ch, row;
        size_t count;
    };
    std::vector<place> places;
    for (size_t at = 0; at < s.size();) {
        const collation_element *e = element_at(m, s, at);
        if (e) {
            places.push_back({1, e->row, e->chars.size()});
        } else {
            places.push_back({s[at], m.row[s[at]], 1});
        }
        at += e ? e->chars.size() : 1;
    }
    if (backward) std::reverse(places.begin(), places.end());
    for (const place &p : places) {
        const uint16_t weight = m.tables->weights[p.row][pass];
        if (!(weight & weight_expands)) {
            if (weight != weight_ignored) out.push_back({weight, p.ch});
            continue;
        }
        const auto &chars = m.tables->expansions[weight & max_weight];
        for (size_t copy = 0; copy < p.count; ++copy)
            for (size_t i = 0; i < chars.size(); ++i) {
                const uint16_t ch = backward ? chars[chars.size() - 1 - i] : chars[i];
                const uint16_t inner = m.tables->weights[m.row[ch]][pass];
                if (inner != weight_ignored) out.push_back({inner, ch});
            }
    }
    return out;
}

static int compare_pass(const std::vector<weight_of> &a, const std::vector<weight_of> &b) {
    for (size_t i = 0; i < a.size() && i < b.size(); ++i) {
        const uint16_t x = a[i].weight & max_weight, y = b[i].weight & max_weight;
        if (x != y) return x < y ? -1 : 1;
        if ((a[i].weight & weight_by_code) && a[i].ch != b[i].ch) return a[i].ch < b[i].ch ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

static int compare_codes(wide_text a, wide_text b) {
    const auto order =
        std::lexicographical_compare_three_way(a.begin(), a.end(), b.begin(), b.end());
    return order < 0 ? -1 : order > 0;
}

int compare_wide(const collation_model &m, wide_text a, wide_text b) {
    if (m.tables->codeset_order) return compare_codes(a, b);
    for (size_t pass = 0; pass < m.tables->pass_types.size(); ++pass) {
        const bool backward = !(m.tables->pass_types[pass] & 1);
        const int sign =
            compare_pass(pass_weights(m, a, pass, backward), pass_weights(m, b, pass, backward));
        if (sign) return sign;
    }
    return 0;
}

// Compares one pass like the comparer for backward passes, which weighs the terminating NUL, too,
// and first.
static int compare_back_pass(const collation_model &m, wide_text a, wide_text b, size_t pass) {
    const auto weights = [&](wide_text s) {
        std::vector<uint16_t> out;
        const auto add = [&](uint16_t ch) {
            const uint16_t w = m.tables->weights[m.row[ch]][pass];
            if (w != weight_ignored) out.push_back(w & max_weight);
        };
        add(0);
        for (size_t i = s.size(); i > 0; --i)
            add(s[i - 1]);
        return out;
    };
    const std::vector<uint16_t> x = weights(a), y = weights(b);
    return compare_codes(x, y);
}

int compare_installed(const collation_model &m, wide_text a, wide_text b) {
    const collation &t = *m.tables;
    const bool back = std::count(t.pass_types.begin(), t.pass_types.end(), 2) != 0;
    const int features = int(!t.expansions.empty()) + int(!t.elements.empty()) + int(back);
    if (!m.single_byte || t.codeset_order || features > 1 || !back) return compare_wide(m, a, b);
    for (size_t pass = 0; pass < t.pass_types.size(); ++pass) {
        const bool backward = t.pass_types[pass] != 1;
        const int sign = backward ? compare_back_pass(m, a, b, pass)
                                  : compare_pass(pass_weights(m, a, pass, false),
                                                 pass_weights(m, b, pass, false));
        if (sign) return sign;
    }
    return 0;
}

static void write_weight(std::string &key, int weight, int digits) {
    int v = std::max(weight, 2) - 2;
    if (digits > 2) key += char(v / 64516 + 2), v %= 64516;
    if (digits > 1) key += char(v / 254 + 2), v %= 254;
    key += char(v + 2);
}

std::string sort_key(const collation_model &m, wide_text a) {
    std::string key;
    if (m.tables->codeset_order) {
        for (const uint16_t ch : a) {
            if (m.min_len == 2 || ch > 0xFF) key += char(ch >> 8);
            key += char(ch);
        }
        return key;
    }
    const int digits = m.tables->num_weights < 254 ? 1 : 2;
    for (size_t pass = 0; pass < m.tables->pass_types.size(); ++pass) {
        if (pass) key += char(1);
        for (const weight_of &w : pass_weights(m, a, pass, !(m.tables->pass_types[pass] & 1))) {
            write_weight(key, w.weight & max_weight, digits);
            if (w.weight & weight_by_code) write_weight(key, w.ch, m.code_digits);
        }
    }
    return key;
}

} // namespace kovac
