// The proof of a compiled collation: for all its short strings, the order of the sort keys is that
// of the wide comparison and of the comparer that the locale gets. It is made for the tables, by
// the model, and for the written object, by the library that will read it.

#include <algorithm>
#include <random>

#include "kova_host.h"
#include "kovac/kovac_collate_model.h"

namespace kovac {

using text16 = std::vector<uint16_t>; // without a terminator

// What is to be proved: a model of the tables, or a loaded object.
struct judge {
    const collation_model *model;
    ko_lc_t loc; // null: only the model
};

static std::vector<ko_wchar_t> terminated(const text16 &s) {
    std::vector<ko_wchar_t> out(s.begin(), s.end());
    out.push_back(0);
    return out;
}

// The bytes of a string, followed by the longest terminator.
static std::vector<ko_mchar_t> bytes_of(const judge &j, const text16 &s) {
    std::vector<ko_mchar_t> out;
    const bool pairs = j.model->min_len == 2;
    for (const uint16_t c : s) {
        if (pairs || c > 0xFF) out.push_back(ko_mchar_t(c >> 8));
        out.push_back(ko_mchar_t(c));
    }
    out.resize(out.size() + 4);
    return out;
}

static std::string key_of(const judge &j, const text16 &s) {
    if (!j.loc) return sort_key(*j.model, s);
    const std::vector<ko_wchar_t> wide = terminated(s);
    std::vector<ko_mchar_t> key(s.size() * 128 + 64);
    const int len = ko_wcsxfrm(j.loc, key.data(), wide.data(), int(key.size()));
    if (len < 0 || size_t(len) >= key.size()) return "no key";
    return std::string(key.begin(), key.begin() + len);
}

static int wide_order(const judge &j, const text16 &a, const text16 &b) {
    if (!j.loc) return compare_wide(*j.model, a, b);
    return ko_full_wcscoll(j.loc, terminated(a).data(), terminated(b).data());
}

static int installed_order(const judge &j, const text16 &a, const text16 &b) {
    if (!j.loc) return compare_installed(*j.model, a, b);
    const loc_exports *head = static_cast<const loc_exports *>(j.loc);
    return head->mbscoll(j.loc, bytes_of(j, a).data(), bytes_of(j, b).data());
}

// The keys by which the calls of kova_host.h order two texts; "no key" without one.
static std::string host_key_of(const judge &j, const text16 &s) {
    std::u16string text(s.begin(), s.end());
    std::string key(s.size() * 128 + 64, '\0');
    const int64_t len = ko_utf16sxfrm(j.loc, key.data(), key.size(), text.data(), text.size());
    if (len < 0 || size_t(len) > key.size()) return "no key";
    key.resize(size_t(len));
    return key;
}

// Do the calls for texts with a length, where they serve the locale, say the same by comparison and
// by keys?
static bool hosts_agree(const judge &j, const text16 &a, const text16 &b, int order) {
    if (!j.loc || ko_locale_utf8(j.loc) != 0) return true;
    const std::u16string x(a.begin(), a.end()), y(b.begin(), b.end());
    const int keys = host_key_of(j, a).compare(host_key_of(j, b));
    return ko_utf16scoll(j.loc, x.data(), x.size(), y.data(), y.size()) == order &&
           (keys > 0) - (keys < 0) == order;
}

static constexpr size_t sample_chars = 256; // of a double-byte set; all their pairs are tested

// Every string of up to two characters in a single-byte code set. In others: every character, and
// all pairs from an even sample.
static std::vector<text16> short_strings(const charmap &map) {
    std::vector<text16> out{{}};
    text16 sample;
    const size_t count = map.chars.size();
    for (size_t i = 0; i < count; ++i) {
        const uint16_t wide = map.chars[i].wide;
        if (wide == 0) continue; // ends a string
        out.push_back({wide});
        if (count <= sample_chars || i * sample_chars / count != (i + 1) * sample_chars / count)
            sample.push_back(wide);
    }
    for (const uint16_t a : sample)
        for (const uint16_t b : sample)
            out.push_back({a, b});
    return out;
}

static std::string shown(const text16 &s) {
    std::string text;
    for (const uint16_t c : s)
        text += format(text.empty() ? "%02X" : " %02X", c);
    return text;
}

struct keyed {
    std::string key;
    const text16 *text;
};

static int sign_of(int n) { return n < 0 ? -1 : n > 0; }

static bool agree(const judge &j, const keyed &a, const keyed &b, proof_report &report) {
    const int keys = sign_of(a.key.compare(b.key));
    const int wide = wide_order(j, *a.text, *b.text);
    const int installed = installed_order(j, *a.text, *b.text);
    const bool hosts = hosts_agree(j, *a.text, *b.text, keys);
    if (keys == wide && keys == installed && hosts) return true;
    report.ok = false;
    report.lines.push_back(format("\"%s\" against \"%s\": keys %d, wide %d, installed %d%s",
                                  shown(*a.text).c_str(), shown(*b.text).c_str(), keys, wide,
                                  installed, hosts ? "" : ", texts with a length differ"));
    return false;
}

static void prove(const judge &j, const charmap &map, const char *who, proof_report &report) {
    const std::vector<text16> strings = short_strings(map);
    constexpr int most_shown = 10, pairs = 100000;
    int bad = 0;
    std::vector<keyed> keys;
    for (const text16 &s : strings) {
        keys.push_back({key_of(j, s), &s});
        if (!j.loc || j.model->tables->by_thai || bad >= most_shown) continue;
        if (keys.back().key == sort_key(*j.model, s)) continue;
        ++bad;
        report.ok = false;
        report.lines.push_back(
            format("\"%s\": the library's key differs from the compiler's", shown(s).c_str()));
    }
    const auto by_key = [](const keyed &a, const keyed &b) { return a.key < b.key; };
    std::sort(keys.begin(), keys.end(), by_key);
    for (size_t i = 1; i < keys.size() && bad < most_shown; ++i)
        bad += !agree(j, keys[i - 1], keys[i], report);
    std::mt19937 random(1);
    for (int i = 0; i < pairs && bad < most_shown; ++i) {
        const keyed &b = keys[random() % keys.size()];
        bad += !agree(j, keys[random() % keys.size()], b, report);
    }
    if (bad) return;
    report.lines.push_back(format("%s: %zu strings of up to two characters: keys, wide comparison "
                                  "and installed comparer give one order (neighbours, %d pairs)",
                                  who, keys.size(), pairs));
}

void prove_collation(const charmap &map, const collation &tables, proof_report &report) {
    const collation_model model = make_model(map, tables);
    prove({&model, nullptr}, map, "tables", report);
}

void prove_object(const charmap &map, const collation &tables, const std::string &path,
                  proof_report &report) {
    const collation_model model = make_model(map, tables);
    const size_t slash = path.find_last_of('/');
    const std::string dir = slash == path.npos ? "." : path.substr(0, slash);
    const std::string name = slash == path.npos ? path : path.substr(slash + 1);
    judge j{&model, nullptr};
    if (ko_lc_load(&j.loc, name.c_str(), nullptr, dir.c_str()) == 0 && ko_lc_status(j.loc) == 0) {
        prove(j, map, "object", report);
    } else {
        report.ok = false;
        report.lines.push_back(format("%s does not load: error %d", path.c_str(),
                                      static_cast<const gen_exports *>(j.loc)->ko_lerrno));
    }
    ko_lc_unload(j.loc);
}

} // namespace kovac
