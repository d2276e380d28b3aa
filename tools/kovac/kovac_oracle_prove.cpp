// A compiled object against the evaluation of its source: which strings are compared, and how
// differences are counted, named and allowed.

#include <algorithm>
#include <charconv>
#include <random>

#include "kova_host.h"
#include "kovac/kovac_locale.h"
#include "kovac/kovac_oracle.h"

namespace kovac {
namespace {

using text16 = std::vector<uint16_t>;

constexpr size_t sampled_pairs = 20000; // of characters, and of words
constexpr size_t longest_word = 6;

struct subject { // one string
    text16 text;
    oracle_key key;
};

struct judge {
    const oracle &o;
    compare_function compare;
    void *context;
    judgement &result;
    std::vector<subject> subjects;
    std::mt19937 random{1};

    std::vector<uint16_t> lined;                // characters with a line, in their order
    std::vector<uint16_t> home, letters, marks; // the locale's own, of its script, beside these
    std::vector<size_t> place;                  // per wide character: its place in lined
};

} // namespace

static int sign_of(int n) { return n < 0 ? -1 : n > 0; }

static size_t below(judge &j, size_t n) { return size_t(j.random() % n); }

static uint16_t one_of(judge &j, const std::vector<uint16_t> &chars) {
    return chars[below(j, chars.size())];
}

static bool add(judge &j, text16 text) {
    std::vector<uint32_t> tokens;
    subject s{.text = std::move(text), .key = {}};
    if (!find_tokens(j.o, s.text, tokens)) return false;
    write_key(j.o, tokens, s.key);
    j.subjects.push_back(std::move(s));
    return true;
}

// ---- differences -------------------------------------------------------------------------------

// A text in code points, whatever the code set.
static std::string shown(const oracle &o, const text16 &text) {
    std::string out;
    for (const uint16_t c : text)
        out += format("\\u%04X", unsigned(o.codes[c]));
    return "\"" + out + "\"";
}

// The name of a difference: what is special in the pair from its first different tokens on, the
// level that decides in the source (0: none), and the page of its code point. Marks have no page,
// for they stand in all scripts.
static std::string matter(const judge &j, const text16 &a, const text16 &b, size_t level) {
    std::vector<uint32_t> x, y;
    find_tokens(j.o, a, x);
    find_tokens(j.o, b, y);
    const auto first = std::mismatch(x.begin(), x.end(), y.begin(), y.end());
    std::vector<uint32_t> rest(first.first, x.end());
    rest.insert(rest.end(), first.second, y.end());
    const auto find = [&](bool (*is)(const oracle_token &)) {
        const auto at =
            std::find_if(rest.begin(), rest.end(), [&](uint32_t id) { return is(j.o.tokens[id]); });
        return at == rest.end() ? -1 : int(j.o.codes[j.o.tokens[*at].chars[0]] >> 8);
    };
    int page = find([](const oracle_token &t) { return t.chars.size() > 1; });
    if (page >= 0) return format("element-%zu-%02X", level, unsigned(page));
    if (level != 1 && find([](const oracle_token &t) { return t.at[0] == t.at[1]; }) >= 0)
        return format("mark-%zu", level);
    page = find([](const oracle_token &t) { return t.lined && t.at[1] - t.at[0] > 1; });
    if (page >= 0) return format("expansion-%zu-%02X", level, unsigned(page));
    if (find([](const oracle_token &t) { return !t.lined; }) >= 0)
        return format("unlined-%zu", level);
    return format("letter-%zu", level);
}

static void note_difference(judge &j, const subject &a, const subject &b, int source, size_t level,
                            int object) {
    const char *const names[] = {"before", "equal", "after"};
    const std::string kind = matter(j, a.text, b.text, source ? level : 0);
    difference &d = j.result.kinds[kind];
    if (++d.count > 1) return;
    d.example = format("%s %s %s, in the source %s", shown(j.o, a.text).c_str(), names[object + 1],
                       shown(j.o, b.text).c_str(), names[source + 1]);
}

static void compare(judge &j, const subject &a, const subject &b) {
    size_t level = 0;
    const int source = compare_keys(a.key, b.key, &level);
    const int object = sign_of(j.compare(j.context, a.text, b.text));
    ++j.result.comparisons;
    if (source == object || (source == 0 && j.o.total)) return;
    note_difference(j, a, b, source, level, object);
}

// ---- strings -----------------------------------------------------------------------------------

// Sorts the subjects as the source does, and its ties as the object does: if neighbours are in
// order, all are.
static void compare_neighbours(judge &j) {
    std::vector<const subject *> order;
    for (const subject &s : j.subjects)
        order.push_back(&s);
    std::sort(order.begin(), order.end(), [](const subject *a, const subject *b) {
        const int sign = compare_keys(a->key, b->key, nullptr);
        return sign ? sign < 0 : a->text < b->text;
    });
    for (size_t i = 0; i < order.size();) {
        size_t end = i + 1;
        while (end < order.size() && order[end]->key == order[i]->key)
            ++end;
        std::stable_sort(order.begin() + long(i), order.begin() + long(end),
                         [&j](const subject *a, const subject *b) {
                             return j.compare(j.context, a->text, b->text) < 0;
                         });
        i = end;
    }
    for (size_t i = 1; i < order.size(); ++i)
        if (order[i - 1]->text != order[i]->text) compare(j, *order[i - 1], *order[i]);
}

static void compare_sampled(judge &j, size_t first) {
    const size_t count = j.subjects.size() - first;
    for (size_t i = 0; count && i < sampled_pairs; ++i) {
        const subject &b = j.subjects[first + below(j, count)];
        compare(j, j.subjects[first + below(j, count)], b);
    }
}

static void judge_characters(judge &j) {
    const size_t first = j.subjects.size();
    for (uint32_t c = 1; c < 0x10000; ++c)
        if (j.o.of_char[c] != no_token) add(j, {uint16_t(c)});
    compare_sampled(j, first);
}

// The characters that weigh as the weights of a token at the first level, one by one.
static text16 spelled(const judge &j, const std::vector<uint16_t> &carrier, const oracle_token &t) {
    text16 out;
    for (uint32_t at = t.at[0]; at < t.at[1]; ++at)
        if (j.o.weights[at] < carrier.size()) out.push_back(carrier[j.o.weights[at]]);
    if (std::find(out.begin(), out.end(), 0) != out.end()) out.clear();
    return out;
}

static text16 joined(text16 a, const text16 &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A token alone, with letters of its script before and after it, and what it is made of likewise.
static void judge_in_context(judge &j, const oracle_token &t, const text16 &parts,
                             const std::vector<uint16_t> &letters) {
    const size_t first = j.subjects.size();
    const text16 around = {one_of(j, letters), one_of(j, letters)};
    std::vector<text16> forms = {t.chars, parts};
    if (t.chars.size() > 1) {
        forms.emplace_back(t.chars.rbegin(), t.chars.rend());
        forms.push_back({t.chars[0]});
    }
    for (const text16 &form : forms) {
        if (form.empty()) continue;
        add(j, form);
        for (const uint16_t letter : around) {
            add(j, joined(form, {letter}));
            add(j, joined({letter}, form));
        }
        add(j, joined(form, t.chars));
    }
    for (size_t a = first; a < j.subjects.size(); ++a)
        for (size_t b = first; b < a; ++b)
            if (j.subjects[a].text != j.subjects[b].text) compare(j, j.subjects[a], j.subjects[b]);
}

static bool expands(const oracle &o, const oracle_token &t) {
    for (size_t level = 0; level < o.levels; ++level)
        if (t.at[level + 1] - t.at[level] > 1) return t.lined;
    return false;
}

// Letters by block of 128 codes, which is finer than the sections of some sources.
using blocks = std::vector<std::vector<uint16_t>>;
constexpr uint16_t block_size = 0x80;

static void judge_tokens(judge &j) {
    std::vector<uint16_t> carrier; // by rank: a character that weighs only this at the first level
    blocks letters(0x10000 / block_size);
    for (const uint16_t c : j.lined) {
        const oracle_token &t = j.o.tokens[j.o.of_char[c]];
        if (t.at[1] - t.at[0] != 1) continue;
        const uint32_t rank = j.o.weights[t.at[0]];
        carrier.resize(std::max<size_t>(carrier.size(), rank + 1));
        if (!carrier[rank]) carrier[rank] = c;
        letters[c / block_size].push_back(c);
    }
    for (const oracle_token &t : j.o.tokens) {
        const bool element = t.chars.size() > 1;
        if (t.chars[0] == 0 || (!element && !expands(j.o, t))) continue;
        const auto &near = letters[t.chars[0] / block_size];
        judge_in_context(j, t, spelled(j, carrier, t), near.empty() ? j.lined : near);
    }
}

// ---- words -------------------------------------------------------------------------------------

static uint16_t letter_of_word(judge &j) {
    const size_t of = below(j, 20);
    if (of < 11 && !j.home.empty()) return one_of(j, j.home);
    if (of < 17 && !j.letters.empty()) return one_of(j, j.letters);
    return of < 18 && !j.marks.empty() ? one_of(j, j.marks) : one_of(j, j.lined);
}

static text16 word(judge &j) {
    text16 out(1 + below(j, longest_word));
    for (uint16_t &c : out)
        c = letter_of_word(j);
    return out;
}

// A character that stands near another in the order.
static uint16_t neighbour(judge &j, uint16_t c) {
    const size_t at = j.place[c], reach = 4;
    const size_t low = at < reach ? 0 : at - reach;
    return j.lined[std::min(low + below(j, 2 * reach + 1), j.lined.size() - 1)];
}

// A word that differs in one or two places.
static text16 near(judge &j, text16 text) {
    for (size_t changes = 1 + below(j, 2); changes; --changes) {
        const size_t at = below(j, text.size());
        const size_t how = below(j, 5);
        if (how == 0) text[at] = letter_of_word(j);
        if (how == 1) text[at] = neighbour(j, text[at]);
        if (how == 2 && text.size() > 1) text.erase(text.begin() + long(at));
        if (how == 3 && text.size() < longest_word)
            text.insert(text.begin() + long(at), letter_of_word(j));
        if (how == 4) std::swap(text[at], text[below(j, text.size())]);
    }
    return text;
}

static void judge_words(judge &j) {
    for (size_t i = 0; i < sampled_pairs; ++i) {
        const text16 a = word(j), b = i % 4 ? near(j, a) : word(j);
        if (a == b) continue;
        const size_t first = j.subjects.size();
        if (add(j, a) && add(j, b)) compare(j, j.subjects[first], j.subjects[first + 1]);
    }
}

// The letters of a locale: those of its own lines and names, and their script in the order.
static void collect_letters(judge &j, const std::vector<uint16_t> &home) {
    std::vector<bool> wanted(0x10000), pages(0x100);
    pages[0x03] = true; // combining marks of no script
    for (const uint16_t c : home)
        wanted[c] = pages[c >> 8] = true;
    std::vector<std::pair<oracle_key, uint16_t>> order;
    std::vector<size_t> count(j.o.backward.size());
    for (uint32_t c = 1; c < 0x10000; ++c) {
        const uint32_t id = j.o.of_char[c];
        if (id == no_token || !j.o.tokens[id].lined) continue;
        oracle_key key;
        write_key(j.o, {id}, key);
        order.emplace_back(std::move(key), uint16_t(c));
        const oracle_token &t = j.o.tokens[id];
        if (wanted[c] && t.at[0] != t.at[1]) ++count[t.section];
        if (wanted[c] || t.own) j.home.push_back(uint16_t(c));
    }
    for (const oracle_token &t : j.o.tokens)
        if (t.own && t.chars.size() > 1)
            j.home.insert(j.home.end(), t.chars.begin(), t.chars.end());
    std::sort(order.begin(), order.end());
    const size_t script = size_t(std::max_element(count.begin(), count.end()) - count.begin());
    j.place.assign(0x10000, 0);
    for (const auto &[key, c] : order) {
        j.place[c] = j.lined.size();
        j.lined.push_back(c);
        const oracle_token &t = j.o.tokens[j.o.of_char[c]];
        const bool mark = t.at[0] == t.at[1];
        if (!mark && t.section == script) j.letters.push_back(c);
        if (mark && t.at[1] != t.at[2] && pages[c >> 8]) j.marks.push_back(c);
    }
}

void judge_order(const oracle &o, const std::vector<uint16_t> &home, compare_function compare,
                 void *context, judgement &result) {
    judge j{.o = o, .compare = compare, .context = context, .result = result};
    collect_letters(j, home);
    if (j.lined.empty()) return;
    judge_characters(j);
    judge_tokens(j);
    judge_words(j);
    compare_neighbours(j);
    result.strings = j.subjects.size();
}

// ---- report ------------------------------------------------------------------------------------

struct allowance {
    size_t count = 0;
    std::string_view reason;
};

static std::string_view next_word(std::string_view &line) {
    const size_t start = std::min(line.find_first_not_of(" \t\r"), line.size());
    const size_t end = std::min(line.find_first_of(" \t\r", start), line.size());
    const std::string_view word = line.substr(start, end - start);
    line.remove_prefix(end);
    return word;
}

// How well a word of the list fits a name: 0 not at all, 1 as "*", 2 by itself.
static int fit(std::string_view word, std::string_view name) {
    return word == name ? 2 : word == "*" ? 1 : 0;
}

// How many differences of a kind a list allows. The line that names the locale wins, then the one
// that names the code set, then the last one.
static allowance find_allowance(const exception_list &list, std::string_view locale,
                                std::string_view codeset, std::string_view kind) {
    allowance found;
    int best = 0;
    std::string_view text = list.text;
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        line = line.substr(0, line.find('#'));
        const int by_locale = fit(next_word(line), locale), by_set = fit(next_word(line), codeset);
        if (next_word(line) != kind || !by_locale || !by_set) continue;
        if (by_locale * 2 + by_set < best) continue;
        best = by_locale * 2 + by_set;
        const std::string_view count = next_word(line);
        found = {};
        const char *const last = count.data() + count.size();
        const auto read = std::from_chars(count.data(), last, found.count);
        if (read.ec != std::errc() || read.ptr != last) found.count = 0;
        line.remove_prefix(std::min(line.find_first_not_of(" \t\r"), line.size()));
        found.reason = line;
    }
    return found;
}

void report_judgement(const judgement &found, std::string_view locale, std::string_view codeset,
                      const exception_list &allowed, proof_report &report) {
    size_t bad = 0, known = 0;
    for (const auto &[kind, d] : found.kinds) {
        const allowance a = find_allowance(allowed, locale, codeset, kind);
        const bool fine = d.count <= a.count;
        (fine ? known : bad) += d.count;
        const std::string why =
            fine ? std::string(a.reason) : format("%s allows %zu", allowed.name.c_str(), a.count);
        report.lines.push_back(format("source: %s: %zu differences, %s; %s", kind.c_str(), d.count,
                                      d.example.c_str(), why.c_str()));
    }
    report.lines.push_back(format("source: %zu strings in %zu comparisons: %zu known differences, "
                                  "%zu others",
                                  found.strings, found.comparisons, known, bad));
    if (bad) report.ok = false;
}

// ---- the object --------------------------------------------------------------------------------

// The characters of a locale's names of days and months.
std::vector<uint16_t> prove_home(source_set &set, const charmap &map, diagnostics &diag) {
    std::vector<std::vector<token>> lines;
    std::vector<uint16_t> home;
    if (!category_lines(set, diag, "LC_TIME", lines)) return home;
    for (const std::vector<token> &line : lines) {
        const std::string_view key = line[0].text;
        if (key != "day" && key != "abday" && key != "mon" && key != "abmon") continue;
        for (const token &t : line) {
            if (t.kind != tok::string) continue;
            for (const uint32_t code : string_codes(map, t, nullptr))
                if (const charmap_char *c = find_code(map, code)) home.push_back(c->wide);
        }
    }
    std::sort(home.begin(), home.end());
    home.erase(std::unique(home.begin(), home.end()), home.end());
    return home;
}

static int compare_loaded(void *loc, oracle_text a, oracle_text b) {
    text16 x(a.begin(), a.end()), y(b.begin(), b.end());
    x.push_back(0);
    y.push_back(0);
    return ko_full_wcscoll(loc, x.data(), y.data());
}

void prove_source(source_set &set, const charmap &map, diagnostics &diag, const std::string &path,
                  const proof_terms &terms, proof_report &report) {
    oracle o;
    if (!read_oracle(set, map, diag, o) || !weaken_oracle(o, terms.keeps, terms.pairs)) {
        report.ok = false;
        return;
    }
    o.total &= !terms.equal_ties;
    const size_t slash = path.find_last_of('/');
    const std::string dir = slash == path.npos ? "." : path.substr(0, slash);
    ko_lc_t loc = nullptr;
    if (ko_lc_load(&loc, path.substr(slash + 1).c_str(), nullptr, dir.c_str()) == 0 &&
        ko_lc_status(loc) == 0) {
        judgement found;
        judge_order(o, prove_home(set, map, diag), compare_loaded, loc, found);
        const std::string codeset = map.name + (terms.modifier.empty() ? "" : "@") + terms.modifier;
        report_judgement(found, terms.locale, codeset, terms.allowed, report);
    } else {
        report.ok = false;
        report.lines.push_back(format("%s does not load", path.c_str()));
    }
    ko_lc_unload(loc);
}

} // namespace kovac
