// Strings, case, widths and order over texts of characters that a locale has: the multibyte forms
// do what the wide ones do, what has a plain definition keeps to it, the order is one, keys have
// it, and nothing is left behind. The input begins with the locale and the lengths of two texts;
// a third one follows. A byte below 0x80 is that character, another one and its follower choose
// among all characters.
#include "chars/kovambwc.h"
#include "fuzz_host.h"
#include "host/host_order.h"
#include "support/locale_builder.h"

namespace {

using wide_text = std::u16string;
using bytes_text = std::vector<ko_mchar_t>;

const ko_wchar_t *units(const wide_text &t) {
    static_assert(sizeof(char16_t) == sizeof(ko_wchar_t));
    return reinterpret_cast<const ko_wchar_t *>(t.c_str());
}
wide_text text_at(const ko_wchar_t *s) { return wide(s); }

struct subject {
    ko_lc_t loc;
    std::vector<ko_wchar_t> characters;
    bool has_cases = true; // of all characters, as those of the root have
    subject(ko_lc_t of, bool small) : loc(of) {
        ko_mchar_t bytes[8];
        for (unsigned c = 1; c < 0x10000; ++c) {
            if (ko_full_wctomb(loc, bytes, ko_wchar_t(c)) <= 0) continue;
            characters.push_back(ko_wchar_t(c));
            ko_wchar_t text[] = {ko_wchar_t(c), 0};
            has_cases = has_cases && (!small || ko_towcsupper(loc, text, text) == 0);
        }
        check(!characters.empty(), "a locale has characters");
    }
};

// Small ones and those of the root.
struct subjects {
    loaded_locale small[3] = {loaded_locale(single_byte_object()),
                              loaded_locale(double_byte_object(false)),
                              loaded_locale(double_byte_object(true))};
    root_locales root;
    std::vector<std::optional<subject>> known;
    subjects() { known.resize(std::size(small) + root.size()); }
    const subject &operator[](size_t i) {
        i %= known.size();
        const size_t of_root = i - std::size(small);
        const bool is_small = i < std::size(small);
        if (!known[i]) known[i].emplace(is_small ? small[i].handle : root[of_root], is_small);
        return *known[i];
    }
};

wide_text spelled(const subject &s, const uint8_t *data, size_t size) {
    wide_text made;
    for (size_t i = 0; i < size; ++i) {
        size_t at = data[i];
        if (at >= 0x80 && i + 1 < size) at = (at & 0x7F) << 8 | data[++i];
        made += char16_t(s.characters[at % s.characters.size()]);
        if (data[i] < 0x80) {
            const ko_wchar_t plain = native(record(s.loc), char(data[i]));
            ko_mchar_t bytes[8];
            if (plain && ko_full_wctomb(s.loc, bytes, plain) > 0) made.back() = char16_t(plain);
        }
    }
    return made;
}

// A text in both forms, and where its characters begin.
struct sample {
    wide_text wide;
    bytes_text bytes;
    std::vector<const ko_mchar_t *> starts; // with that of the terminator
    const ko_wchar_t *w() const { return units(wide); }
    const ko_mchar_t *m() const { return bytes.data(); }
    size_t index(const ko_mchar_t *p) const {
        return p ? size_t(std::find(starts.begin(), starts.end(), p) - starts.begin()) : wide.npos;
    }
    size_t index(const ko_wchar_t *p) const { return p ? size_t(p - w()) : wide.npos; }
    sample(ko_lc_t loc, wide_text text) : wide(std::move(text)) {
        ko_mchar_t one[8];
        std::vector<size_t> ends(1, 0);
        for (const char16_t c : wide) {
            const int n = ko_full_wctomb(loc, one, c);
            check(n > 0 && n == ko_wclen(loc, c), "a character has bytes");
            bytes.insert(bytes.end(), one, one + n);
            ends.push_back(bytes.size());
        }
        bytes.resize(bytes.size() + size_t(ko_mbsterm(loc, one)));
        for (const size_t end : ends)
            starts.push_back(bytes.data() + end);
    }
};

int taken_error(ko_lc_t loc) { return std::exchange(*ko_ext_errno(loc), 0); }

// ---- Laws ---------------------------------------------------------------------------------------

void check_forms(ko_lc_t loc, const sample &a) {
    const int chars = int(a.wide.size()), bytes = int(a.starts.back() - a.m());
    std::vector<ko_wchar_t> wide(a.wide.size() + 1);
    bytes_text narrow(a.bytes.size());
    check(record(loc)->exp.mbstowcs(loc, wide.data(), a.m(), chars + 1) == chars &&
              text_at(wide.data()) == a.wide,
          "bytes widen");
    check(ko_full_wcstombs(loc, narrow.data(), a.w(), int(a.bytes.size())) == bytes &&
              narrow == a.bytes,
          "wide characters narrow");
    check(im_mbslen(loc, a.m()) == chars && ko_mbsbytes_nt(loc, a.m()) == bytes &&
              ko_wcslen(a.w()) == chars,
          "lengths are those of the text");
    for (size_t i = 0; i < a.wide.size(); ++i) {
        check(ko_full_getmbsi(loc, a.m(), int(i)) == a.starts[i], "a character is at its place");
        check(ko_full_mbsnext(loc, a.starts[i]) == a.starts[i + 1], "the next one follows");
        check(ko_full_mbsprev(loc, a.m(), a.starts[i + 1]) == a.starts[i], "the last one precedes");
    }
}

// The whole as the characters one by one, and by bytes as wide.
void check_case(ko_lc_t loc, const sample &a, decltype(ko_towcsupper) *wide,
                decltype(ko_tombsupper) *bytes, decltype(im_towupper) *one) {
    std::vector<ko_wchar_t> made(a.wide.size() + 1);
    wide_text want;
    for (const char16_t c : a.wide)
        want += char16_t(one(loc, c));
    check(wide(loc, made.data(), a.w()) == 0 && text_at(made.data()) == want,
          "case maps character by character");
    check(wide(loc, made.data(), units(want)) == 0 && text_at(made.data()) == want,
          "mapping it again changes nothing");
    const sample mapped(loc, want);
    bytes_text out(size_t(ko_case_conv_outbuflen(loc, int(a.bytes.size()))) + 4);
    const int n = bytes(loc, out.data(), a.m());
    check(n == mapped.starts.back() - mapped.m() &&
              std::equal(mapped.bytes.begin(), mapped.bytes.end(), out.begin()),
          "bytes map as wide characters");
}

void check_widths(ko_lc_t loc, const sample &a) {
    int sum = 0;
    for (size_t i = 0; i <= a.wide.size(); ++i) {
        const int part = i < a.wide.size() ? ko_wcwidth(loc, a.w()[i]) : 0;
        if (i < a.wide.size()) check(ko_mbwidth(loc, a.starts[i]) == part, "bytes are as wide");
        check(ko_wcswidth(loc, a.w(), int(i)) == sum && ko_mbswidth(loc, a.m(), int(i)) == sum &&
                  ko_mbspwidth(loc, a.m(), a.starts[i]) == sum,
              "widths add up");
        sum = part < 0 || sum < 0 ? -1 : sum + part;
    }
    const size_t kept = [&] {
        size_t n = a.wide.size();
        while (n && im_iswctype(loc, a.w()[n - 1], KO_CT_SPACE))
            --n;
        return n;
    }();
    check(ko_wcsntslen(loc, a.w()) == int(kept) && ko_mbsntslen(loc, a.m()) == int(kept) &&
              ko_mbsntsbytes(loc, a.m()) == a.starts[kept] - a.m(),
          "trailing spaces do not count");
}

void check_search(ko_lc_t loc, const sample &a, const sample &b) {
    const auto same = [&](size_t want, const ko_wchar_t *wide, const ko_mchar_t *bytes) {
        check(a.index(wide) == want && a.index(bytes) == want, "what is searched is found");
    };
    const char16_t c = b.wide.empty() ? u'\0' : b.wide[0];
    const wide_text whole(a.w(), a.w() + a.wide.size() + 1); // with its terminator
    same(whole.find(c), ko_wcschr(loc, a.w(), c), ko_full_mbschr(loc, a.m(), b.m()));
    same(whole.rfind(c), ko_wcsrchr(loc, a.w(), c), ko_full_mbsrchr(loc, a.m(), b.m()));
    same(a.wide.find_first_of(b.wide), ko_wcspbrk(loc, a.w(), b.w()),
         ko_full_mbspbrk(loc, a.m(), b.m()));
    same(a.wide.find(b.wide), ko_wcswcs(loc, a.w(), b.w()), ko_full_mbsmbs(loc, a.m(), b.m()));
    const size_t in = std::min(a.wide.find_first_not_of(b.wide), a.wide.size()),
                 out = std::min(a.wide.find_first_of(b.wide), a.wide.size());
    check(ko_wcsspn(loc, a.w(), b.w()) == int(in) && ko_full_mbsspn(loc, a.m(), b.m()) == int(in),
          "what is in the set is counted");
    check(ko_wcscspn(loc, a.w(), b.w()) == int(out) &&
              ko_full_mbscspn(loc, a.m(), b.m()) == int(out),
          "what is not in the set is counted");
}

void check_copies(ko_lc_t loc, const sample &a, const sample &b, int n) {
    const sample want(loc, a.wide + b.wide.substr(0, size_t(n)));
    std::vector<ko_wchar_t> wide(want.wide.size() + 1);
    bytes_text bytes(want.bytes.size());
    ko_wcscpy(wide.data(), a.w());
    ko_full_mbscpy(loc, bytes.data(), a.m());
    check(ko_wcsncat(wide.data(), b.w(), n) && text_at(wide.data()) == want.wide &&
              ko_mbsncat(loc, bytes.data(), b.m(), n) && bytes == want.bytes,
          "the beginning of a text is appended");
}

int order_of(ko_lc_t loc, const sample &a, const sample &b) {
    const int order = ko_full_wcscoll(loc, a.w(), b.w());
    check(record(loc)->exp.mbscoll(loc, a.m(), b.m()) == order, "bytes have the order");
    return order;
}

std::string key_of(ko_lc_t loc, const sample &a) {
    const int len = ko_wcsxfrm(loc, nullptr, a.w(), 0);
    check(len >= 0, "every text has a key");
    bytes_text key(size_t(len) + 4), same = key;
    check(ko_wcsxfrm(loc, key.data(), a.w(), len + 4) == len &&
              ko_full_mbsxfrm(loc, same.data(), a.m(), len + 4) == len && key == same,
          "bytes have the key");
    return {key.begin(), key.begin() + len};
}

void check_order(ko_lc_t loc, const sample (&t)[3]) {
    const std::string keys[] = {key_of(loc, t[0]), key_of(loc, t[1]), key_of(loc, t[2])};
    int orders[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            orders[i][j] = order_of(loc, t[i], t[j]);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            check(orders[i][j] == sign(keys[i].compare(keys[j])), "keys have the order");
            check(orders[i][j] == -orders[j][i], "either text may come first");
        }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static subjects all;
    if (size < 3 || size > 600) return 0;
    const subject &s = all[data[0]];
    const long blocks = memory.live;
    const size_t one = std::min<size_t>(data[1], size - 3),
                 two = std::min<size_t>(data[2], size - 3 - one);
    const uint8_t *const from = data + 3;
    const sample texts[] = {
        {s.loc, spelled(s, from,             one)                 },
        {s.loc, spelled(s, from + one,       two)                 },
        {s.loc, spelled(s, from + one + two, size - 3 - one - two)}
    };
    taken_error(s.loc);
    for (const sample &t : texts) {
        check_forms(s.loc, t);
        if (s.has_cases) {
            check_case(s.loc, t, ko_towcsupper, ko_tombsupper, im_towupper);
            check_case(s.loc, t, ko_towcslower, ko_tombslower, im_towlower);
        }
        check_search(s.loc, texts[0], t);
        check_copies(s.loc, texts[0], t, data[0] % 5);
    }
    check(!taken_error(s.loc), "nothing failed");
    check_order(s.loc, texts);
    check_widths(s.loc, texts[1]);
    check(memory.live == blocks, "nothing is left");
    return 0;
}
