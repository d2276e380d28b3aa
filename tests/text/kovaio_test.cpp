// Characters and lines on the host's streams: in memory, failing, cut short, and on real files.
#include "support/answer.h"
#include "support/char_records.h"

#include <stdio.h>

using std::string_view_literals::operator""sv;

namespace {

constexpr shape latin = shape::latin1, euc = shape::euc, two = shape::two_byte;

using state = stream_state;

// A file of the host with the text, open to be read; or empty, open to be written. The call of the
// given number after opening fails.
struct memory_file {
    file_hooks host;
    void *stream;
    explicit memory_file(std::string_view text, long fail_at = -1, state shown = state::failed) {
        host.files["f"] = text;
        open("r", fail_at, shown);
    }
    explicit memory_file(long fail_at = -1) { open("w", fail_at, state::failed); }
    ~memory_file() { ko_ext_fclose(stream); }
    void open(const char *mode, long fail_at, state shown) {
        stream = ko_ext_fopen("f", mode);
        host.calls = 0;
        host.fail_at = fail_at;
        host.on_failure = shown;
    }
    const std::string &text() { return host.files["f"]; }
    ko_long_t pos() const { return ko_ext_ftell(stream); }
};

std::vector<ko_wchar_t> widened(std::string_view text, shape s) {
    std::vector<ko_wchar_t> wide;
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned c = static_cast<unsigned char>(text[i]);
        if (s == two || (s == euc && c > 0x7F)) c = c << 8 | static_cast<unsigned char>(text[++i]);
        wide.push_back(ko_wchar_t(c));
    }
    return wide;
}

} // namespace

TEST(StreamRead, OneCharacterEachWay) {
    static const std::tuple<shape, std::string_view, long, state, int, int, int> rows[] = {
        {euc,         "a",         -1, state::good,   1,  'a',    0        },
        {euc,         "\xA3\xA4z", -1, state::good,   2,  0xA3A4, 0        },
        {euc,         "\xA3",      -1, state::good,   -1, 0xFFFF, KO_EINVAL},
        {euc,         "",          -1, state::good,   -1, 0xFFFF, KO_EEOF  },
        {euc,         "\xFFz",     -1, state::good,   -1, 0xFFFF, KO_EILSEQ},
        {euc,         "\xA3z",     -1, state::good,   -1, 0xFFFF, KO_EILSEQ},
        {euc,         "a",         0,  state::failed, -1, 0xFFFF, KO_EIO   },
        {euc,         "a",         0,  state::good,   -1, 0xFFFF, KO_EREAD },
        {euc,         "\xA3\xA4",  1,  state::failed, -1, 0xFFFF, KO_EIO   },
        {euc,         "\xA3\xA4",  1,  state::at_end, -1, 0xFFFF, KO_EINVAL},
        {two,         "\0\0"sv,    -1, state::good,   2,  0,      0        },
        {shape::gaps, "\xE5",      -1, state::good,   -1, 0xFFFF, KO_EILSEQ},
    };
    for (const auto &[s, text, fail_at, shown, bytes, wide, error] : rows) {
        SCOPED_TRACE(testing::PrintToString(text));
        char_record r(s);
        ko_mchar_t mb[4];
        ko_long_t pos[2];
        for (const bool in_bytes : {false, true}) {
            const memory_file file(text, fail_at, shown);
            EXPECT_EQ(in_bytes ? answered(r, ko_full_fgetmb(r, mb, file.stream))
                               : answered(r, ko_full_fgetwc(r, file.stream)),
                      answer(in_bytes ? bytes : wide, error));
            pos[in_bytes] = file.pos();
        }
        EXPECT_EQ(pos[0], pos[1]);
        const size_t len = bytes > 0 ? size_t(bytes) : 0;
        EXPECT_EQ(std::string(mb, mb + len), text.substr(0, len));
    }
}

TEST(StreamRead, LinesWithTheirNewline) {
    // A code set, a text, its line without the terminator, the size in bytes, the call that fails.
    static const std::tuple<shape, std::string_view, std::string_view, int, long, state, int>
        rows[] = {
            {euc,         "a\xA3\xA4\nb",   "a\xA3\xA4\n",    5,  -1, state::failed, 0        },
            {euc,         "a\xA3\xA4\nb",   "",               4,  -1, state::failed, KO_E2BIG },
            {euc,         "ab\n",           "",               -9, -1, state::failed, KO_E2BIG },
            {euc,         "",               "",               0,  -1, state::failed, KO_EEOF  },
            {euc,         "last",           "",               9,  -1, state::failed, KO_EEOF  },
            {euc,         "a\xA3",          "",               9,  -1, state::failed, KO_EINVAL},
            {euc,         "a\xFF\n",        "",               9,  -1, state::failed, KO_EILSEQ},
            {euc,         "ab\n",           "",               9,  1,  state::failed, KO_EIO   },
            {euc,         "a\0\n"sv,        "a\0\n"sv,        9,  -1, state::failed, 0        },
            {latin,       "a\xFF\n",        "a\xFF\n",        4,  -1, state::failed, 0        },
            {latin,       "a\n",            "",               9,  1,  state::good,   KO_EREAD },
            {shape::gaps, "\xE5\n",         "\xE5\n",         9,  -1, state::failed, 0        },
            {two,         "\0a\0\n\0b"sv,   "\0a\0\n"sv,      6,  -1, state::failed, 0        },
            {two,         "\0a\0\n\0b"sv,   "",               5,  -1, state::failed, KO_E2BIG },
            {two,         "\x0A\x0A\0\n"sv, "\x0A\x0A\0\n"sv, 9,  -1, state::failed, 0        },
    };
    for (const auto &[s, text, line, size, fail_at, shown, error] : rows) {
        SCOPED_TRACE(testing::PrintToString(text) + std::to_string(size));
        char_record r(s);
        std::string buf(16, 'w');
        auto *const out = reinterpret_cast<ko_mchar_t *>(buf.data());
        EXPECT_EQ(answered(r, ko_fgetmbs(r, out, size, memory_file(text, fail_at, shown).stream)),
                  answer(!error, error));
        const std::string want = std::string(line).append(s == two ? 2 : 1, '\0');
        EXPECT_EQ(error ? want : buf.substr(0, want.size()), want);
        EXPECT_EQ(buf.find_first_not_of('w', size_t(std::max(size, 0))), buf.npos);
        if (error == KO_E2BIG && size > 0) continue; // wide sizes differ
        std::vector<ko_wchar_t> wide(16, 0x7777), wide_want = widened(line, s);
        wide_want.push_back(0);
        const int fits = error ? size : int(wide_want.size());
        EXPECT_EQ(
            answered(r, ko_fgetwcs(r, wide.data(), fits, memory_file(text, fail_at, shown).stream)),
            answer(!error, error));
        if (error) continue;
        EXPECT_TRUE(std::equal(wide_want.begin(), wide_want.end(), wide.data()));
        EXPECT_EQ(answered(r, ko_fgetwcs(r, wide.data(), fits - 1, memory_file(text).stream)),
                  answer(0, KO_E2BIG));
    }
}

TEST(StreamWrite, CharactersAndStrings) {
    // text: with its terminator
    static const std::tuple<shape, std::string_view, std::string_view, long, int> rows[] = {
        {euc,         "a\xA3\xA4\0"sv,     "a\xA3\xA4",   -1, 0        },
        {euc,         "a\xA3\xA4\0"sv,     "a\xA3",       0,  KO_EIO   },
        {euc,         "\0"sv,              "",            0,  0        }, // no write at all
        {euc,         "a\xFF\0"sv,         "",            -1, KO_EILSEQ},
        {shape::gaps, "\xE5\0"sv,          "\xE5",        -1, 0        },
        {two,         "\0a\xA3\xA4\0\0"sv, "",            -1, KO_EILSEQ},
        {two,         "\0a\x03\0\0\0"sv,   "\0a\x03\0"sv, -1, 0        },
    };
    for (const auto &[s, text, written, fail_at, error] : rows) {
        SCOPED_TRACE(testing::PrintToString(text));
        char_record r(s);
        {
            memory_file out(fail_at);
            EXPECT_EQ(answered(r, ko_fputmbs(r, mb(text.data()), out.stream)),
                      answer(error ? -1 : 0, error));
            EXPECT_EQ(out.text(), written);
            EXPECT_EQ(out.host.calls, out.text().empty() ? 0 : 1);
        }
        if (error) continue;
        std::vector<ko_wchar_t> wide = widened(written, s);
        memory_file out; // each way once
        for (size_t i = 0; i < wide.size(); ++i) {
            const ko_mchar_t *const from = mb(text.data()) + out.text().size();
            EXPECT_EQ(ko_fputmb(r, from, out.stream), from);
        }
        for (const ko_wchar_t wc : wide)
            EXPECT_EQ(ko_fputwc(r, wc, out.stream), wc);
        wide.push_back(0);
        EXPECT_EQ(ko_fputwcs(r, wide.data(), out.stream), 0);
        const std::string once(written);
        EXPECT_EQ(out.text(), once + once + once);
    }
}

TEST(StreamWrite, StopsAtTheFirstFailure) {
    char_record r(euc), none(two);
    {
        memory_file out;
        EXPECT_EQ(answered(r, ko_fputwcs(r, wcs(u"ab\xA4FFz").data(), out.stream)),
                  answer(-1, KO_EILSEQ)); // no such character
        EXPECT_EQ(out.text(), "ab");
        EXPECT_EQ(ko_fputwc(r, 0xFFFF, out.stream), 0xFFFF);
        EXPECT_EQ(ko_fputmb(r, mb("\xFF"), out.stream), nullptr);
    }
    memory_file failing(2);
    r.clear();
    EXPECT_EQ(answered(r, ko_fputwcs(r, wcs(u"abcd").data(), failing.stream)), answer(-1, KO_EIO));
    // The null character writes nothing.
    EXPECT_EQ(answered(r, ko_fputmb(r, mb(""), failing.stream)), answer(1, 0));
    EXPECT_EQ(answered(r, ko_fputwc(r, 0, failing.stream)), answer(0, 0));
    EXPECT_EQ(failing.text(), "ab");
    static_cast<mb_decode *>(none.loc.ctype)->max_char_len = 0;
    EXPECT_EQ(answered(none, ko_fputmb(none, mb("\0a"), failing.stream)), answer(0, KO_EINVAL));
}
