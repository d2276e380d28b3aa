// kova diff: what moved between the orders that two data roots have for one locale.
#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <random>
#include <set>

#include "common/tool_text.h"
#include "kova/kova_locale.h"
#include "kova/kova_table.h"
#include "kova/kova_text.h"
#include "kova_host.h"

namespace kovacli {

namespace {
// The locale in one of the roots.
struct release {
    ko_lc_t loc = nullptr;
    std::string root, version;
    std::vector<uint32_t> ranks; // of the characters; those that are not told apart share one
    std::vector<size_t> order;   // numbers of the characters, by rank and code
    release() = default;
    release(const release &) = delete;
    ~release() { ko_close_locale(loc); }
};
struct comparison {
    std::array<release, 2> sides;
    std::vector<uint32_t> chars; // code points that either code set has, ascending
    std::vector<size_t> moved;   // numbers of characters
    output out;
};
// What the whole basic plane but its surrogates is made of.
constexpr uint32_t plane_end = 0x10000, surrogates = 0xD800, surrogates_end = 0xE000;
constexpr size_t sample_pairs = 200000;
} // namespace

static std::string utf8(uint32_t code) {
    std::string text;
    append_utf8(code, text);
    return text;
}

// ---- The two locales ----

// Without a code set, and with UTF-8, it is "unicode".
static std::string whole_specification(const std::string &name) {
    const size_t at = std::min(name.find('@'), name.size()), point = name.find('.');
    const bool named = point < at;
    std::string set = named ? name.substr(point + 1, at - point - 1) : "";
    std::transform(set.begin(), set.end(), set.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 'a' - 'A') : c; });
    if (named && set != "utf-8" && set != "utf8") return name;
    return name.substr(0, named ? point : at) + ".unicode" + name.substr(at);
}

static void open_release(release &side, const std::string &root, const std::string &spec) {
    side.root = root;
    int error = ko_open_locale(&side.loc, root.c_str(), spec.c_str(), KO_OPEN_VERIFY);
    if (!error) error = ko_locale_utf8(side.loc);
    char version[256];
    if (!error) error = std::max(-ko_locale_version(side.loc, version, sizeof version), 0);
    if (error) throw failure(bad_locale, spec + " in " + root + ": " + ko_error_text(error));
    side.version = version;
}

// The version without the release's name.
static std::string hash_of(const release &side) {
    return side.version.substr(0, side.version.find(' '));
}

// ---- Characters ----

static bool has_char(const release &side, const std::string &text) {
    return ko_utf8stowcs(side.loc, nullptr, 0, text.data(), text.size(), nullptr) >= 0;
}

static std::string key_of(const release &side, const std::string &text) {
    std::string key(128, '\0');
    int64_t len = 0;
    while ((len = ko_utf8sxfrm(side.loc, key.data(), key.size(), text.data(), text.size())) >
           int64_t(key.size()))
        key.resize(size_t(len));
    if (len < 0)
        throw failure(bad_locale, side.root + ": no key can be made: " + ko_error_text(int(-len)));
    key.resize(size_t(len));
    return key;
}

static void rank_chars(const std::vector<uint32_t> &chars, release &side) {
    std::vector<std::string> keys;
    keys.reserve(chars.size());
    for (const uint32_t c : chars)
        keys.push_back(key_of(side, utf8(c)));
    side.order.resize(chars.size());
    std::iota(side.order.begin(), side.order.end(), size_t{0});
    std::stable_sort(side.order.begin(), side.order.end(),
                     [&](size_t a, size_t b) { return keys[a] < keys[b]; });
    side.ranks.resize(chars.size());
    uint32_t rank = 0;
    for (size_t i = 0; i < side.order.size(); ++i) {
        if (i && keys[side.order[i]] != keys[side.order[i - 1]]) ++rank;
        side.ranks[side.order[i]] = rank;
    }
}

namespace {
// Characters that share both ranks, and the longest chain of such groups that ends with them.
struct group {
    size_t first = 0, count = 0; // in the order by both ranks
    size_t length = 0;           // characters of the chain
    const group *before = nullptr;
};
} // namespace

// The longest chain among the first n ranks of the second side is the best of some nodes of a
// binary indexed tree.
static const group *best_below(const std::vector<const group *> &tree, size_t n) {
    const group *best = nullptr;
    for (; n; n &= n - 1)
        if (tree[n] && (!best || tree[n]->length > best->length)) best = tree[n];
    return best;
}
static void enter(std::vector<const group *> &tree, size_t rank, const group *entry) {
    for (size_t n = rank + 1; n < tree.size(); n += n & -n)
        if (!tree[n] || tree[n]->length < entry->length) tree[n] = entry;
}

// The fewest characters without which both orders are the same.
static void find_moved(comparison &both) {
    const std::vector<uint32_t> &r1 = both.sides[0].ranks, &r2 = both.sides[1].ranks;
    std::vector<size_t> sorted(both.chars.size());
    std::iota(sorted.begin(), sorted.end(), size_t{0});
    std::stable_sort(sorted.begin(), sorted.end(), [&](size_t a, size_t b) {
        return r1[a] != r1[b] ? r1[a] < r1[b] : r2[a] < r2[b];
    });
    std::vector<group> groups;
    groups.reserve(sorted.size());
    for (size_t i = 0; i < sorted.size(); ++i) {
        const bool same =
            i && r1[sorted[i]] == r1[sorted[i - 1]] && r2[sorted[i]] == r2[sorted[i - 1]];
        if (!same) groups.push_back({.first = i});
        ++groups.back().count;
    }
    std::vector<const group *> tree(sorted.size() + 1, nullptr);
    for (size_t begin = 0, end = 0; begin < groups.size(); begin = end) {
        const uint32_t rank = r1[sorted[groups[begin].first]];
        for (; end < groups.size() && r1[sorted[groups[end].first]] == rank; ++end) {
            group &g = groups[end];
            g.before = best_below(tree, r2[sorted[g.first]]);
            g.length = g.count + (g.before ? g.before->length : 0);
        }
        for (size_t i = begin; i < end; ++i)
            enter(tree, r2[sorted[groups[i].first]], &groups[i]);
    }
    std::vector<char> stays(sorted.size(), 0);
    for (const group *g = best_below(tree, sorted.size()); g; g = g->before)
        for (size_t i = g->first; i < g->first + g->count; ++i)
            stays[sorted[i]] = 1;
    for (size_t i = 0; i < stays.size(); ++i)
        if (!stays[i]) both.moved.push_back(i);
}

static void compare_chars(comparison &both) {
    for (uint32_t c = 1; c < plane_end; ++c) {
        if (c == surrogates) c = surrogates_end;
        const std::string text = utf8(c);
        if (has_char(both.sides[0], text) || has_char(both.sides[1], text)) both.chars.push_back(c);
    }
    for (release &side : both.sides)
        rank_chars(both.chars, side);
    find_moved(both);
}

// A character between its neighbours: code points, and the characters with the signs of the order.
static std::array<std::string, 2> between(const comparison &both, const release &side, size_t i) {
    const auto at =
        std::lower_bound(side.order.begin(), side.order.end(), i, [&](size_t a, size_t b) {
            return side.ranks[a] != side.ranks[b] ? side.ranks[a] < side.ranks[b] : a < b;
        });
    const auto sign = [&](size_t a, size_t b) {
        return side.ranks[a] == side.ranks[b] ? " = " : " < ";
    };
    const auto shown = [&](size_t a) { return kovatool::printable(utf8(both.chars[a])); };
    std::array<std::string, 2> result = {"first", shown(i)};
    if (at != side.order.begin()) {
        result[0] = code_point_text(both.chars[at[-1]]);
        result[1] = shown(at[-1]) + sign(at[-1], i) + result[1];
    }
    const bool last = at + 1 == side.order.end();
    result[0] += last ? " last" : " " + code_point_text(both.chars[at[1]]);
    if (!last) result[1] += sign(i, at[1]) + shown(at[1]);
    return result;
}

static void show_moved(comparison &both, size_t most) {
    const std::string count = std::to_string(both.moved.size());
    write(both.out, "\ncharacters that moved: " + count + " of " +
                        std::to_string(both.chars.size()) + " of the basic plane\n");
    std::vector<std::vector<cell>> rows = {
        {{"character"}, {"between in 1"}, {"between in 2"}, {"1; 2"}}
    };
    for (size_t i = 0; i < both.moved.size() && i < most; ++i) {
        const size_t c = both.moved[i];
        const auto one = between(both, both.sides[0], c), two = between(both, both.sides[1], c);
        rows.push_back(
            {{code_point_text(both.chars[c])}, {one[0]}, {two[0]}, {one[1] + "; " + two[1]}});
    }
    if (rows.size() > 1) write_table(both.out, rows);
}

// ---- Pairs of texts ----

static void add_text(const release &side, const std::string &text, std::set<uint32_t> &chars) {
    for (size_t i = 0; i < text.size();) {
        uint32_t c = 0;
        const int len =
            utf8_char(reinterpret_cast<const unsigned char *>(text.data()) + i, text.size() - i, c);
        if (len <= 0) return;
        i += size_t(len);
        if (c && has_char(side, utf8(c))) chars.insert(c);
    }
}

// The letters in the names of days and months and in ASCII, in both cases: those of the locale's
// language, whose elements of several letters they form.
static std::vector<uint32_t> own_letters(const comparison &both) {
    std::set<uint32_t> chars;
    for (const release &side : both.sides) {
        std::string text = "abcdefghijklmnopqrstuvwxyz-";
        for (unsigned item = KO_DAY_1; item < KO_ABMON_1; ++item) {
            const ko_wchar_t *name = ko_wc_nl_langinfo(side.loc, item);
            if (!name) continue;
            size_t len = 0;
            while (name[len])
                ++len;
            std::string part(4 * len, '\0');
            const int64_t made =
                ko_wcstoutf8s(side.loc, part.data(), part.size(), name, len, nullptr);
            if (made > 0 && size_t(made) <= part.size()) text += part.substr(0, size_t(made));
        }
        add_text(side, text, chars);
        for (const auto change : {ko_utf8supper, ko_utf8slower}) {
            std::string changed(4 * text.size(), '\0');
            const int64_t made =
                change(side.loc, changed.data(), changed.size(), text.data(), text.size());
            if (made > 0 && size_t(made) <= changed.size())
                add_text(side, changed.substr(0, size_t(made)), chars);
        }
    }
    return {chars.begin(), chars.end()};
}

// Characters that either order puts elsewhere than before the next code.
static std::vector<uint32_t> ordered_chars(const comparison &both) {
    std::set<uint32_t> chars;
    for (const release &side : both.sides)
        for (size_t i = 0; i + 1 < side.order.size(); ++i)
            if (side.order[i + 1] != side.order[i] + 1) chars.insert(both.chars[side.order[i]]);
    return {chars.begin(), chars.end()};
}

static int sign_of(const release &side, const std::string &a, const std::string &b) {
    const int order = ko_utf8scoll(side.loc, a.data(), a.size(), b.data(), b.size());
    return (order > 0) - (order < 0);
}

// Pairs that begin alike, so that the places differ at which elements of several letters begin.
// Returns the pairs that changed, at most so many.
static std::vector<std::vector<cell>> changed_pairs(const comparison &both, size_t most) {
    const std::vector<uint32_t> own = own_letters(both), ordered = ordered_chars(both);
    static constexpr const char *signs[] = {"<", "=", ">"};
    std::mt19937_64 random(1);
    std::vector<std::vector<cell>> rows;
    for (size_t n = 0; n < sample_pairs && rows.size() < most; ++n) {
        const std::vector<uint32_t> &from = n % 4 && !own.empty() ? own : ordered;
        if (from.empty()) continue;
        const auto add = [&](std::string &text, uint64_t count) {
            while (count--)
                append_utf8(from[size_t(random() % from.size())], text);
        };
        std::string a;
        add(a, random() % 3);
        std::string b = a;
        add(a, 1 + random() % 3);
        add(b, 1 + random() % 3);
        const int one = sign_of(both.sides[0], a, b), two = sign_of(both.sides[1], a, b);
        if (one != two)
            rows.push_back({{signs[one + 1]},
                            {signs[two + 1]},
                            {kovatool::printable(a) + "  " + kovatool::printable(b)}});
    }
    return rows;
}

// ---- The command ----

int run_diff(const diff_options &options) {
    refuse_path("locale", options.locale);
    const std::string spec = whole_specification(options.locale);
    comparison both;
    open_release(both.sides[0], options.first, spec);
    open_release(both.sides[1], options.second, spec);
    for (size_t i = 0; i < both.sides.size(); ++i)
        write(both.out, std::to_string(i + 1) + ": " + kovatool::printable(both.sides[i].root) +
                            "  " + kovatool::printable(both.sides[i].version) + "\n");
    const bool same_hash = hash_of(both.sides[0]) == hash_of(both.sides[1]);
    if (same_hash) {
        write(both.out, "the same order\n");
        finish(both.out);
        return done;
    }
    compare_chars(both);
    std::vector<std::vector<cell>> pairs = changed_pairs(both, options.most);
    if (both.moved.empty() && pairs.empty()) {
        write(both.out, "the same order, as far as was compared: characters of the basic plane: " +
                            std::to_string(both.chars.size()) +
                            ", pairs of texts: " + std::to_string(sample_pairs) + "\n");
        finish(both.out);
        return done;
    }
    show_moved(both, options.most);
    write(both.out, "\npairs of texts that changed: " +
                        (pairs.empty() ? "none of " + std::to_string(sample_pairs)
                                       : "the first " + std::to_string(pairs.size())) +
                        "\n");
    pairs.insert(pairs.begin(), {{"1"}, {"2"}, {"texts"}});
    if (pairs.size() > 1) write_table(both.out, pairs);
    finish(both.out);
    return order_changed;
}

} // namespace kovacli
