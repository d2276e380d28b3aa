// Characters and lines on the host's streams: in memory, failing, cut short, and on real files.
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
    static const struct {
        shape s;
        std::string_view text;
        long fail_at;
        state shown;
        int bytes, wide, error;
    } rows[] = {
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
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        char_record r(row.s);
        ko_mchar_t mb[4];
        ko_long_t pos;
        {
            const memory_file bytes(row.text, row.fail_at, row.shown);
            EXPECT_EQ(ko_full_fgetmb(r, mb, bytes.stream), row.bytes);
            pos = bytes.pos();
        }
        EXPECT_EQ(r.error(), row.error);
        EXPECT_EQ(row.bytes > 0 ? std::string(mb, mb + row.bytes) : "",
                  row.text.substr(0, row.bytes > 0 ? size_t(row.bytes) : 0));
        r.clear();
        const memory_file wide(row.text, row.fail_at, row.shown);
        EXPECT_EQ(ko_full_fgetwc(r, wide.stream), row.wide);
        EXPECT_EQ(r.error(), row.error);
        EXPECT_EQ(wide.pos(), pos);
    }
}

TEST(StreamRead, LinesWithTheirNewline) {
    static const struct {
        shape s;
        std::string_view text, line; // without the terminator
        int size;                    // in bytes
        long fail_at;
        state shown;
        int error;
    } rows[] = {
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
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text) + std::to_string(row.size));
        char_record r(row.s);
        std::string buf(16, 'w');
        auto *const out = reinterpret_cast<ko_mchar_t *>(buf.data());
        EXPECT_EQ(
            ko_fgetmbs(r, out, row.size, memory_file(row.text, row.fail_at, row.shown).stream),
            row.error ? nullptr : out);
        EXPECT_EQ(r.error(), row.error);
        const size_t end = row.s == two ? 2 : 1;
        const std::string want = std::string(row.line).append(end, '\0');
        EXPECT_EQ(row.error ? want : buf.substr(0, want.size()), want);
        const auto room = size_t(std::max(row.size, 0));
        EXPECT_EQ(buf.find_first_not_of('w', room), buf.npos); // nothing behind the size
        if (row.error == KO_E2BIG && row.size > 0) continue;   // wide sizes differ
        r.clear();
        std::vector<ko_wchar_t> line(16, 0x7777), wide_want = widened(row.line, row.s);
        wide_want.push_back(0);
        const int size = row.error ? row.size : int(wide_want.size());
        EXPECT_EQ(
            ko_fgetwcs(r, line.data(), size, memory_file(row.text, row.fail_at, row.shown).stream),
            row.error ? nullptr : line.data());
        EXPECT_EQ(r.error(), row.error);
        if (row.error) continue;
        EXPECT_TRUE(std::equal(wide_want.begin(), wide_want.end(), line.data()));
        EXPECT_EQ(ko_fgetwcs(r, line.data(), size - 1, memory_file(row.text).stream), nullptr);
        EXPECT_EQ(r.error(), KO_E2BIG);
    }
}

TEST(StreamWrite, CharactersAndStrings) {
    static const struct {
        shape s;
        std::string_view text; // with its terminator
        std::string_view written;
        long fail_at;
        int error;
    } rows[] = {
        {euc,         "a\xA3\xA4\0"sv,     "a\xA3\xA4",   -1, 0        },
        {euc,         "a\xA3\xA4\0"sv,     "a\xA3",       0,  KO_EIO   },
        {euc,         "\0"sv,              "",            0,  0        }, // no write at all
        {euc,         "a\xFF\0"sv,         "",            -1, KO_EILSEQ},
        {shape::gaps, "\xE5\0"sv,          "\xE5",        -1, 0        },
        {two,         "\0a\xA3\xA4\0\0"sv, "",            -1, KO_EILSEQ},
        {two,         "\0a\x03\0\0\0"sv,   "\0a\x03\0"sv, -1, 0        },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        char_record r(row.s);
        {
            memory_file out(row.fail_at);
            EXPECT_EQ(ko_fputmbs(r, mb(row.text.data()), out.stream), row.error ? -1 : 0);
            EXPECT_EQ(r.error(), row.error);
            EXPECT_EQ(out.text(), row.written);
            EXPECT_EQ(out.host.calls, out.text().empty() ? 0 : 1);
        }
        if (row.error) continue;
        std::vector<ko_wchar_t> wide = widened(row.written, row.s);
        memory_file out; // each way once
        size_t at = 0;
        for (size_t i = 0; i < wide.size(); ++i) {
            const ko_mchar_t *const from = mb(row.text.data()) + at;
            EXPECT_EQ(ko_fputmb(r, from, out.stream), from);
            at = out.text().size();
        }
        for (const ko_wchar_t wc : wide)
            EXPECT_EQ(ko_fputwc(r, wc, out.stream), wc);
        wide.push_back(0);
        EXPECT_EQ(ko_fputwcs(r, wide.data(), out.stream), 0);
        const std::string once(row.written);
        EXPECT_EQ(out.text(), once + once + once);
    }
}

TEST(StreamWrite, StopsAtTheFirstFailure) {
    char_record r(euc), none(two);
    {
        memory_file out;
        EXPECT_EQ(ko_fputwcs(r, wcs(u"ab\xA4FFz").data(), out.stream), -1); // no such character
        EXPECT_EQ(r.error(), KO_EILSEQ);
        EXPECT_EQ(out.text(), "ab");
        EXPECT_EQ(ko_fputwc(r, 0xFFFF, out.stream), 0xFFFF);
        EXPECT_EQ(ko_fputmb(r, mb("\xFF"), out.stream), nullptr);
    }
    memory_file failing(2);
    EXPECT_EQ(ko_fputwcs(r, wcs(u"abcd").data(), failing.stream), -1);
    EXPECT_EQ(r.error(), KO_EIO);
    EXPECT_EQ(failing.text(), "ab");
    r.clear();
    EXPECT_NE(ko_fputmb(r, mb(""), failing.stream), nullptr); // the null character writes nothing
    EXPECT_EQ(ko_fputwc(r, 0, failing.stream), 0);
    EXPECT_EQ(failing.text(), "ab");
    EXPECT_EQ(r.error(), 0);
    static_cast<mb_decode *>(none.loc.ctype)->max_char_len = 0;
    EXPECT_EQ(ko_fputmb(none, mb("\0a"), failing.stream), nullptr);
    EXPECT_EQ(none.error(), KO_EINVAL);
}
