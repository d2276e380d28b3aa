// Every compiled locale against the C library's own: the class and the case partners of every
// character, and the order of seeded pairs of strings.
#include "peers/peer_rows.h"

#include <algorithm>
#include <climits>
#include <compare>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <langinfo.h>
#include <map>
#include <numeric>
#include <random>
#include <set>

namespace {

// One character in both worlds.
struct peer_char {
    std::string bytes; // Kova's
    std::string peer;  // the C library's
    ko_wchar_t wide;
    wchar_t code;
};

class PeerLibc : public PeerTest {
  protected:
    void SetUp() override {
        PeerTest::SetUp();
        if (!HasFatalFailure()) collect();
    }

    static std::string bytes_of(unsigned value, int len) {
        return len == 1 ? std::string{char(value)} : std::string{char(value >> 8), char(value)};
    }
    // The bytes of the C library's character; none where its code set lacks it.
    static std::string peer_bytes(wchar_t code) {
        char out[MB_LEN_MAX];
        mbstate_t state{};
        const size_t n = wcrtomb(out, code, &state);
        return n == size_t(-1) ? "" : std::string(out, n);
    }
    // The character of the C library that our bytes stand for; code 0 where it has none.
    peer_char pair_up(unsigned value, int len) const {
        peer_char c{bytes_of(value, len), "", ko_wchar_t(value), 0};
        if (GetParam().unicode()) {
            c.peer = peer_bytes(wchar_t(value));
            if (!c.peer.empty()) c.code = wchar_t(value);
            return c;
        }
        mbstate_t state{};
        const size_t n = mbrtowc(&c.code, c.bytes.data(), c.bytes.size(), &state);
        if (n != c.bytes.size()) c.code = 0;
        c.peer = c.bytes;
        return c;
    }
    // Kova's order of two texts that their characters' bytes give.
    int order(std::string a, std::string b) const {
        a += std::string(2, '\0'), b += std::string(2, '\0');
        return static_cast<loc_exports *>(loc)->mbscoll(loc, mb(a), mb(b));
    }
    bool has_line(wchar_t code) const {
        const wchar_t one[] = {code, 0};
        if (wcscoll_l(one, L"\1", peer) < 0) return false;
        // Some sources have the first one above: then it weighs as others without a line.
        return !GetParam().unicode() ||
               (wcscoll_l(one, L"\x378", peer) && wcscoll_l(one, L"\xE000", peer));
    }
    void collect() {
        const int shortest = ko_mb_loc_min(loc), longest = ko_mb_loc_max(loc);
        for (int len = shortest; len <= longest; ++len)
            for (unsigned v = len == 1 || shortest == 2 ? 1 : 0x100; v < 1u << 8 * len; ++v) {
                if (GetParam().unicode() && v >= 0xD800 && v <= 0xDFFF) continue;
                ko_wchar_t wide;
                const std::string b = bytes_of(v, len) + std::string(2, '\0');
                const bool ours = ko_full_mbtowc(loc, &wide, mb(b), len) == len;
                const peer_char c = pair_up(v, len);
                // A table of single bytes holds every byte, with or without a character.
                if (ours ? !c.code && longest > 1 : c.code != 0) only_one.push_back(c.bytes);
                if (ours && c.code) chars.push_back(c);
            }
    }
    static const ko_mchar_t *mb(const std::string &s) {
        return reinterpret_cast<const ko_mchar_t *>(s.c_str());
    }
    std::vector<peer_char> chars;
    std::vector<std::string> only_one; // characters that one side has and the other lacks
};

TEST_P(PeerLibc, HasTheSameCharactersClassesAndCasePartners) {
    for (const std::string &bytes : only_one)
        ADD_FAILURE() << "one side lacks " << hex(bytes);
    std::vector<const peer_char *> by_wide(0x10000);
    for (const peer_char &c : chars)
        by_wide[c.wide] = &c;
    int differing[2] = {};
    auto differ = [&](const peer_char &c, const char *what, bool in_case) {
        if (++differing[in_case] <= 20)
            ADD_FAILURE() << hex(c.bytes) << " U+" << std::hex << unsigned(c.code) << ": " << what;
    };
    for (const char *name : class_names) {
        const ko_ctype_t mask = ko_ctype(loc, name);
        const wctype_t type = wctype_l(name, peer);
        for (const peer_char &c : chars)
            if (!im_iswctype(loc, c.wide, mask) != !iswctype_l(wint_t(c.code), type, peer))
                differ(c, name, false);
    }
    for (const peer_char &c : chars)
        for (bool up : {true, false}) {
            const wint_t want =
                up ? towupper_l(wint_t(c.code), peer) : towlower_l(wint_t(c.code), peer);
            const std::string partner = peer_bytes(wchar_t(want));
            const ko_wchar_t got = up ? im_towupper(loc, c.wide) : im_towlower(loc, c.wide);
            const peer_char *ours = by_wide[got];
            // A partner outside the two-byte part of the code set stands for the character itself.
            const bool outside =
                partner.empty() || want > 0xFFFF ||
                (!GetParam().unicode() && partner.size() > size_t(ko_mb_loc_max(loc)));
            const std::string &wanted = outside || wchar_t(want) == c.code ? c.peer : partner;
            if (got == c.wide ? wanted != c.peer : !ours || ours->peer != wanted)
                differ(c, up ? "toupper" : "tolower", true);
        }
    printf("%s.%s: %zu characters, %d differ in class, %d in case\n", GetParam().name.c_str(),
           GetParam().codeset.c_str(), chars.size(), differing[0], differing[1]);
    EXPECT_EQ(differing[0] + differing[1], 0);
}

struct pair_maker {
    const std::vector<peer_char> &chars;
    std::vector<size_t> letters;
    std::mt19937 random;
    using text = std::vector<size_t>;

    size_t below(size_t n) { return size_t(random() % n); }
    text word(const std::vector<size_t> &from, size_t most) {
        text t(1 + below(most));
        for (size_t &c : t)
            c = from[below(from.size())];
        return t;
    }
    text near(text t) { // one change: another letter, a dropped, a doubled or a swapped one
        const size_t at = below(t.size()), change = below(4);
        if (change == 1) t.erase(t.begin() + long(at));
        if (change == 2) t.insert(t.begin() + long(at), letters[below(letters.size())]);
        if (change == 0) t[at] = letters[below(letters.size())];
        if (change == 3) std::swap(t[at], t.back());
        return t;
    }
    std::string joined(const text &t, std::string peer_char::*bytes) const {
        std::string all;
        for (const size_t c : t)
            all += chars[c].*bytes;
        return all;
    }
};

TEST_P(PeerLibc, OrdersSeededPairsAlike) {
    // A character that the source has no line for weighs below all others here, and there as its
    // bytes do one by one, which no table of characters can follow: such characters are left out.
    // So are compatibility ideographs, which weigh as what they stand for here alone.
    pair_maker make{chars, {}, std::mt19937(20261121)};
    std::vector<size_t> all;
    for (size_t i = 0; i < chars.size(); ++i) {
        if (!has_line(chars[i].code)) continue;
        if (GetParam().unicode() && chars[i].code >= 0xF900 && chars[i].code < 0xFB00) continue;
        all.push_back(i);
        if (iswalpha_l(wint_t(chars[i].code), peer)) make.letters.push_back(i);
    }
    ASSERT_FALSE(make.letters.empty());
    const int pairs = 100000;
    int differing = 0;
    for (int i = 0; i < pairs; ++i) {
        const auto a = i % 3 < 2 ? make.word(make.letters, 10) : make.word(all, 8);
        const auto b = i % 3 == 0   ? make.word(make.letters, 10)
                       : i % 3 == 1 ? make.near(a)
                                    : make.word(all, 8);
        const std::string left = make.joined(a, &peer_char::peer);
        const std::string right = make.joined(b, &peer_char::peer);
        const int want = strcoll_l(left.c_str(), right.c_str(), peer);
        const int got = order(make.joined(a, &peer_char::bytes), make.joined(b, &peer_char::bytes));
        if ((want > 0) - (want < 0) == got || (!want && GetParam().unicode())) continue;
        if (++differing <= 5)
            printf("  %s | %s: %d, the C library %d\n", hex(left).c_str(), hex(right).c_str(), got,
                   want);
    }
    printf("%s.%s: %d of %d pairs differ, %zu of %zu characters left out\n",
           GetParam().name.c_str(), GetParam().codeset.c_str(), differing, pairs,
           chars.size() - all.size(), chars.size());
    EXPECT_LE(differing, pairs / 1000);
}

// ---- words of a locale's own script ----

// Blocks that belong together, the first and last characters and the script: Latin (with marks that
// a locale's lines name), Greek, Cyrillic, Armenian, Hebrew, Arabic, Georgian, Hangul, Ethiopic,
// Canadian syllables, Khmer, Kana and Han. Elsewhere a script is a block of 128 characters.
unsigned script_of(unsigned code) {
    static constexpr unsigned blocks[] = {
        0x0041, 0x024F, 0x0041, 0x0250, 0x02AF, 0x0041, 0x0300, 0x036F, 0x0041, 0x1E00, 0x1EFF,
        0x0041, 0x0370, 0x03FF, 0x0370, 0x1F00, 0x1FFF, 0x0370, 0x0400, 0x052F, 0x0400, 0xA640,
        0xA69F, 0x0400, 0x0530, 0x058F, 0x0530, 0x0590, 0x05FF, 0x0590, 0x0600, 0x06FF, 0x0600,
        0x0750, 0x077F, 0x0600, 0x10A0, 0x10FF, 0x10A0, 0x1C90, 0x1CBF, 0x10A0, 0x1100, 0x11FF,
        0x1100, 0xAC00, 0xD7FF, 0x1100, 0x1200, 0x139F, 0x1200, 0x1400, 0x167F, 0x1400, 0x1780,
        0x17FF, 0x1780, 0x3040, 0x30FF, 0x3040, 0x3400, 0x9FFF, 0x3400};
    for (const unsigned *b = blocks; b < std::end(blocks); b += 3)
        if (code >= b[0] && code <= b[1]) return b[2];
    return code & ~0x7Fu;
}

// The characters that a locale's own lines of LC_COLLATE name, in its source or in those that it
// copies, but for the table that all have in common.
void add_ordered(const std::string &source, std::set<wchar_t> &found) {
    std::ifstream in("/usr/share/i18n/locales/" + source);
    bool inside = false;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("LC_COLLATE")) inside = true;
        if (line.starts_with("END LC_COLLATE")) return;
        if (!inside || line.starts_with('%')) continue;
        if (line.starts_with("copy")) {
            const std::string from = line.substr(line.find('"') + 1);
            if (!from.starts_with("iso14651")) add_ordered(from.substr(0, from.find('"')), found);
        }
        for (size_t at = 0; (at = line.find("<U", at)) != line.npos; ++at)
            if (line.find('>', at) == at + 6)
                found.insert(wchar_t(std::stoul(line.substr(at + 2, 4), nullptr, 16)));
    }
}

void add_names(locale_t peer, std::set<wchar_t> &found) {
    for (const nl_item first : {DAY_1, ABDAY_1, MON_1, ABMON_1})
        for (int i = 0; i < (first == DAY_1 || first == ABDAY_1 ? 7 : 12); ++i) {
            wchar_t wide[100];
            const size_t len = mbstowcs(wide, nl_langinfo_l(first + i, peer), 100);
            if (len < 100) found.insert(wide, wide + len);
        }
}

// The weights of the first level.
std::wstring base_of(wchar_t code, locale_t peer) {
    const wchar_t one[] = {code, 0};
    wchar_t key[100];
    wcsxfrm_l(key, one, 100, peer);
    key[99] = 0;
    return std::wstring(key, wcscspn(key, L"\1"));
}

struct word_maker {
    std::vector<wchar_t> own;                           // the locale's letters
    std::map<unsigned, std::vector<wchar_t>> of_script; // and their scripts
    std::map<wchar_t, std::vector<wchar_t>> alike;      // at the first level
    std::set<wchar_t> marks;                            // which that level ignores
    std::mt19937 random{20261122};

    size_t below(size_t n) { return size_t(random() % n); }
    template <class List> wchar_t any(const List &list) { return list[below(list.size())]; }
    wchar_t letter(unsigned script) {
        const wchar_t c = any(own);
        return script_of(unsigned(c)) == script && below(5) < 3 ? c : any(of_script[script]);
    }
    std::wstring word(size_t least) {
        const unsigned script = script_of(unsigned(any(own)));
        std::wstring made(least + below(5), L' ');
        for (size_t i = 0; i < made.size(); ++i)
            for (int tries = 20; tries; --tries) {
                made[i] = letter(script);
                // A mark follows a letter.
                if (!marks.contains(made[i]) || (i && !marks.contains(made[i - 1]))) break;
            }
        return made;
    }
    // One letter, accent or case is another, or a letter is missing, added, or has moved.
    std::wstring near(std::wstring made) {
        const size_t at = below(made.size()), change = below(8);
        wchar_t &c = made[at];
        const wchar_t other = letter(script_of(unsigned(c)));
        if (change < 3) c = any(alike[c]);
        const wint_t from = wint_t(c), partner = iswupper(from) ? towlower(from) : towupper(from);
        if (change == 3 && alike.contains(wchar_t(partner))) c = wchar_t(partner);
        if (change == 4) c = other;
        if (change == 5) made.erase(at, 1);
        if (change == 6) made.insert(at, 1, other);
        if (change == 7) std::swap(c, made[below(made.size())]);
        return made;
    }
};

// From the characters with a line.
word_maker words_of(const std::vector<wchar_t> &ordered, const peer_row &row, locale_t peer) {
    std::set<wchar_t> own;
    add_ordered(row.source, own);
    add_names(peer, own);
    word_maker make;
    std::map<std::wstring, std::vector<wchar_t>> by_base;
    for (const wchar_t c : ordered)
        if (own.contains(c) && (iswalpha(wint_t(c)) || !wcwidth(c))) make.own.push_back(c);
    for (const wchar_t c : make.own)
        make.of_script[script_of(unsigned(c))];
    for (const wchar_t c : ordered) {
        const auto script = make.of_script.find(script_of(unsigned(c)));
        if (script == make.of_script.end()) continue;
        if (!iswalpha(wint_t(c)) && !(own.contains(c) && !wcwidth(c))) continue;
        script->second.push_back(c);
        by_base[base_of(c, peer)].push_back(c);
    }
    for (const auto &[base, letters] : by_base)
        for (const wchar_t c : letters)
            make.alike[c] = letters;
    make.marks.insert(by_base[L""].begin(), by_base[L""].end());
    return make;
}

std::string in_utf8(const std::wstring &word) {
    std::string all;
    for (const wchar_t c : word)
        all += utf8(char32_t(c));
    return all;
}

int sign_of(int order) { return (order > 0) - (order < 0); }

// The level at which the C library tells two texts apart.
int level_of(const std::wstring &a, const std::wstring &b, locale_t peer) {
    wchar_t left[1000], right[1000];
    wcsxfrm_l(left, a.c_str(), 1000, peer);
    wcsxfrm_l(right, b.c_str(), 1000, peer);
    size_t at = 0;
    while (left[at] && left[at] == right[at])
        ++at;
    // A key has no separators after its last weight; the last level may have weights like them.
    return std::min(4, 1 + int(std::count(left, left + at, L'\1')) + ((left[at] | right[at]) == 1));
}

struct word_pair {
    std::wstring a, b;
    auto operator<=>(const word_pair &other) const = default;
};

std::wstring without(std::wstring text, size_t at) {
    return at < text.size() ? text.erase(at, 1) : text;
}

// The pair without every letter that it does not need to differ.
template <class Differs> word_pair smallest(word_pair p, Differs differs) {
    for (size_t i = 0; i < std::max(p.a.size(), p.b.size());) {
        const word_pair fewer[] = {
            {without(p.a, i), without(p.b, i)},
            {without(p.a,           i),   p.b },
            {p.a,           without(p.b,           i)}
        };
        const auto found =
            std::find_if(std::begin(fewer), std::end(fewer), [&](const word_pair &q) {
                return q.a.size() + q.b.size() < p.a.size() + p.b.size() && differs(q);
            });
        if (found == std::end(fewer)) {
            ++i;
        } else {
            p = *found;
            i = 0;
        }
    }
    return p;
}

TEST_P(PeerLibc, OrdersWordsOfItsScriptAlike) {
    if (!GetParam().unicode()) GTEST_SKIP() << "its letters are all its characters";
    std::vector<wchar_t> ordered;
    for (const peer_char &c : chars)
        if (has_line(c.code)) ordered.push_back(c.code);
    word_maker make = words_of(ordered, GetParam(), peer);
    ASSERT_FALSE(make.own.empty());
    const auto text = [](const std::wstring &word) {
        std::string all;
        for (const wchar_t c : word)
            all += bytes_of(unsigned(c), 2);
        return all;
    };
    const auto differs = [&](const word_pair &p) {
        const int want = sign_of(strcoll_l(in_utf8(p.a).c_str(), in_utf8(p.b).c_str(), peer));
        return want && want != order(text(p.a), text(p.b));
    };
    const int pairs = 100000;
    int differing = 0;
    std::map<std::string, std::map<word_pair, int>> kinds;
    for (int i = 0; i < pairs; ++i) {
        word_pair p{make.word(2), {}};
        p.b = i % 2 ? make.near(p.a) : make.word(2);
        if (!differs(p)) continue;
        ++differing;
        p = smallest(p, differs);
        char kind[80];
        snprintf(kind, sizeof kind, "level %d, %zu:%zu letters, U+%02X00", level_of(p.a, p.b, peer),
                 std::min(p.a.size(), p.b.size()), std::max(p.a.size(), p.b.size()),
                 unsigned(std::max(p.a[0], p.b[0])) >> 8);
        ++kinds[kind][p];
    }
    printf("%s.%s: %d of %d pairs of words differ, %zu letters of its own, %zu scripts\n",
           GetParam().name.c_str(), GetParam().codeset.c_str(), differing, pairs, make.own.size(),
           make.of_script.size());
    for (const auto &[kind, found] : kinds) {
        int count = 0;
        for (const auto &[p, times] : found)
            count += times;
        const word_pair &p = found.begin()->first;
        printf("  %5d %s: %s %s\n", count, kind.c_str(), in_utf8(p.a).c_str(),
               in_utf8(p.b).c_str());
    }
    // Most Yiddish letters take two points, which the C library compares from the end.
    EXPECT_LE(differing, GetParam().source == "yi_US" ? pairs / 400 : pairs / 1000);
}

// Also characters without a line, marks at another place, one character more or less.
TEST_P(PeerLibc, TellsAllStringsOfUnicodeApart) {
    if (!GetParam().unicode()) GTEST_SKIP() << "ties of the source stay";
    pair_maker make{chars, {}, std::mt19937(20261122)};
    std::vector<size_t> all(chars.size());
    std::iota(all.begin(), all.end(), size_t{0});
    make.letters = all;
    for (int i = 0; i < 30000; ++i) {
        const pair_maker::text word = make.word(all, 4);
        const std::string a = make.joined(word, &peer_char::bytes);
        const std::string b = make.joined(make.near(word), &peer_char::bytes);
        ASSERT_TRUE(a == b || order(a, b)) << hex(a) << hex(b);
    }
}

// Words whose vowels stand before the consonant that they are sorted after; the files are in the
// order of the languages' own sources.
TEST_P(PeerLibc, SortsThaiAndLaoWordsAlike) {
    if (!GetParam().unicode()) GTEST_SKIP() << "has no such words";
    for (const char *const file : {"thai", "lao"}) {
        const wchar_t first[] = {*file == 't' ? L'\xE01' : L'\xE81', 0};
        if (!wcscoll_l(first, L"\xE000", peer)) continue; // has no line for them
        std::vector<std::wstring> words;
        std::vector<std::string> texts;
        std::ifstream in(env("KOVA_SOURCE_DIR") + "/tests/peers/" + file + "_words.txt");
        for (std::string word; in >> word;) {
            wchar_t wide[32];
            ASSERT_LT(mbstowcs(wide, word.c_str(), 32), 32u);
            words.push_back(wide);
            texts.emplace_back();
            for (const wchar_t c : words.back())
                texts.back() += bytes_of(unsigned(c), 2);
        }
        ASSERT_GT(words.size(), 200u);
        for (size_t i = 0; i < words.size(); ++i)
            for (size_t j = 0; j < i; ++j) {
                const int want = wcscoll_l(words[i].c_str(), words[j].c_str(), peer);
                ASSERT_EQ(order(texts[i], texts[j]), (want > 0) - (want < 0))
                    << file << ' ' << j << ' ' << i;
            }
    }
}

INSTANTIATE_TEST_SUITE_P(Locales, PeerLibc, testing::ValuesIn(peer_rows()), row_name<peer_row>);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PeerLibc);

} // namespace
