// Every character of every compiled pair of code sets, both directions, beside the C library's own
// converter. KOVA_CONVERSIONS_LIST names the list of pairs, KOVA_TEST_ROOT the compiled objects.
#include "peers/peer_rows.h"

#include <iconv.h>

namespace {

struct conversion_row {
    std::string from, to;
};

void PrintTo(const conversion_row &r, std::ostream *out) { *out << r.from << " to " << r.to; }

std::vector<conversion_row> conversion_rows() {
    std::vector<conversion_row> rows;
    for (std::istringstream &words : list_lines(env("KOVA_CONVERSIONS_LIST"))) {
        conversion_row r;
        if (!(words >> r.from >> r.to)) continue;
        rows.push_back(r);
        rows.push_back({r.to, r.from});
    }
    return rows;
}

bool is_host(const std::string &set) { return set.rfind("IBM93", 0) == 0; }

std::string peer_name(const std::string &set) {
    if (set == "utf8") return "UTF-8";
    return set == "unicode" ? "UTF-16BE" : set;
}

std::string bytes_of(std::initializer_list<unsigned> list) { return {list.begin(), list.end()}; }

// Every text of one character that the code set could have, and more.
std::vector<std::string> every_text(const std::string &set) {
    std::vector<std::string> all;
    if (set == "utf8" || set == "unicode") {
        for (unsigned code = 0; code < 0x10000; ++code)
            if (code < 0xD800 || code > 0xDFFF)
                all.push_back(set == "utf8" ? utf8_of(code) : bytes_of({code >> 8, code & 0xFF}));
        return all;
    }
    const bool host = is_host(set);
    for (unsigned b = 0; b < 256; ++b)
        if (!host || (b != 0x0E && b != 0x0F)) all.push_back(bytes_of({b}));
    for (unsigned b = 0; b < 0x10000; ++b) {
        const unsigned lead = b >> 8, trail = b & 0xFF;
        // A shift byte between shift codes is told apart below.
        const bool shift = lead == 0x0E || lead == 0x0F || trail == 0x0E || trail == 0x0F;
        if (!host) all.push_back(bytes_of({lead, trail}));
        if (host && !shift) all.push_back(bytes_of({0x0E, lead, trail, 0x0F}));
        if (set == "EUC-JP" && lead > 0xA0 && trail > 0xA0)
            all.push_back(bytes_of({0x8F, lead, trail}));
    }
    return all;
}

// What a converter makes of a text; "-" for a text that it refuses.
std::string ours(ko_cv_t cd, const std::string &in) {
    ko_mchar_t out[32], *to = out;
    const auto *from = reinterpret_cast<const ko_mchar_t *>(in.data());
    int left = int(in.size()), room = sizeof out, sub = 0;
    conv_state st = {1, 1, 0, 0, nullptr};
    if (ko_cv_mconv(cd, &st, &from, &left, &to, &room, &sub)) return "-";
    return std::string(out, to);
}

std::string theirs(iconv_t cd, const std::string &in) {
    char out[32], *to = out, *from = const_cast<char *>(in.data());
    size_t left = in.size(), room = sizeof out;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    if (iconv(cd, &from, &left, &to, &room) == size_t(-1)) return "-";
    if (iconv(cd, nullptr, nullptr, &to, &room) == size_t(-1)) return "-";
    return std::string(out, to);
}

std::string shown(const std::string &s) { return s == "-" ? "refused" : hex(s); }

class PeerIconv : public testing::TestWithParam<conversion_row> {
  protected:
    void SetUp() override {
        setenv("VANTORDIR", env("KOVA_TEST_ROOT").c_str(), 1);
        const auto &[from, to] = GetParam();
        ASSERT_EQ(ko_iconv_open(&cd, to.c_str(), from.c_str()), 0) << "error " << *ko_ext_errno(cd);
        peer = iconv_open(peer_name(to).c_str(), peer_name(from).c_str());
        ASSERT_NE(peer, reinterpret_cast<iconv_t>(-1));
    }
    void TearDown() override {
        ko_cv_unload(cd);
        if (peer != reinterpret_cast<iconv_t>(-1)) iconv_close(peer);
    }
    ko_cv_t cd = nullptr;
    iconv_t peer = reinterpret_cast<iconv_t>(-1);
};

TEST_P(PeerIconv, ConvertsEveryCharacterAlike) {
    int differing = 0, converted = 0;
    for (const std::string &text : every_text(GetParam().from)) {
        const std::string got = ours(cd, text), want = theirs(peer, text);
        converted += got != "-";
        if (got == want) continue;
        if (++differing <= 10)
            ADD_FAILURE() << hex(text) << ": " << shown(got) << ", the C library " << shown(want);
    }
    EXPECT_EQ(differing, 0);
    EXPECT_GE(converted, 100);
    printf("%s to %s: %d characters\n", GetParam().from.c_str(), GetParam().to.c_str(), converted);
}

INSTANTIATE_TEST_SUITE_P(Pairs, PeerIconv, testing::ValuesIn(conversion_rows()),
                         row_name<conversion_row>);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PeerIconv);

} // namespace
