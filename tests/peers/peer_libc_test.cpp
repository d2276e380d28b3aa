// Every compiled locale against the C library's own: the class and the case partners of every
// character, and the order of seeded pairs of strings.
#include "peers/peer_rows.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <numeric>
#include <random>

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
    static const char *const names[] = {"upper", "lower", "alpha", "digit",  "space", "cntrl",
                                        "punct", "graph", "print", "xdigit", "blank", "alnum"};
    for (const std::string &bytes : only_one)
        ADD_FAILURE() << "one side lacks " << hex(bytes);
    std::vector<const peer_char *> by_wide(0x10000);
    for (const peer_char &c : chars)
        by_wide[c.wide] = &c;
    int bad = 0;
    auto differ = [&](const peer_char &c, const char *what) {
        if (++bad <= 20)
            ADD_FAILURE() << hex(c.bytes) << " U+" << std::hex << unsigned(c.code) << ": " << what;
    };
    for (const char *name : names) {
        const ko_ctype_t mask = ko_ctype(loc, name);
        const wctype_t type = wctype_l(name, peer);
        for (const peer_char &c : chars)
            if (!im_iswctype(loc, c.wide, mask) != !iswctype_l(wint_t(c.code), type, peer))
                differ(c, name);
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
                differ(c, up ? "toupper" : "tolower");
        }
    EXPECT_EQ(bad, 0);
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
    pair_maker make{chars, {}, std::mt19937(20261121)};
    std::vector<size_t> all;
    for (size_t i = 0; i < chars.size(); ++i) {
        const wchar_t one[] = {chars[i].code, 0};
        if (wcscoll_l(one, L"\1", peer) < 0) continue;
        // Some sources have the first one above: then it weighs as others without a line.
        if (GetParam().unicode() &&
            (!wcscoll_l(one, L"\x378", peer) || !wcscoll_l(one, L"\xE000", peer)))
            continue;
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
