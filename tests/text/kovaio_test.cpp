// Characters and lines on the host's streams: in memory, failing, cut short, and on real files.
#include "support/char_records.h"

#include <stdio.h>

using std::string_literals::operator""s;
using std::string_view_literals::operator""sv;

namespace {

constexpr shape latin = shape::latin1, euc = shape::euc, two = shape::two_byte;

// A stream over a text in memory. The call of the given number (from 0) delivers nothing, or writes
// all but the last byte, and the stream then shows the given state.
enum class state { good, at_end, failed };
struct text_stream {
    std::string text;
    long fail_at = -1;
    state on_failure = state::failed, now = state::good;
    size_t pos = 0;
    long calls = 0;
    bool fails() {
        if (calls++ != fail_at) return false;
        now = on_failure;
        return true;
    }
};
text_stream *as_text(void *stream) { return static_cast<text_stream *>(stream); }

int text_getc(void *stream) {
    text_stream *const s = as_text(stream);
    if (s->fails()) return -1;
    if (s->pos < s->text.size()) return static_cast<unsigned char>(s->text[s->pos++]);
    s->now = state::at_end;
    return -1;
}
size_t text_write(const void *bytes, size_t size, size_t count, void *stream) {
    text_stream *const s = as_text(stream);
    if (s->fails()) --count;
    s->text.append(static_cast<const char *>(bytes), size * count);
    return count;
}
int text_eof(void *stream) { return as_text(stream)->now == state::at_end; }
int text_error(void *stream) { return as_text(stream)->now == state::failed; }

struct text_hooks {
    static void set(int code, ko_extfn_t fn) { ko_setextfunc(nullptr, code, fn); }
    text_hooks() {
        set(KO_EXT_FGETC, reinterpret_cast<ko_extfn_t>(text_getc));
        set(KO_EXT_FWRITE, reinterpret_cast<ko_extfn_t>(text_write));
        set(KO_EXT_FEOF, reinterpret_cast<ko_extfn_t>(text_eof));
        set(KO_EXT_FERROR, reinterpret_cast<ko_extfn_t>(text_error));
    }
    ~text_hooks() {
        for (const int code : {KO_EXT_FGETC, KO_EXT_FWRITE, KO_EXT_FEOF, KO_EXT_FERROR})
            set(code, nullptr);
    }
    text_hooks(const text_hooks &) = delete;
};

std::vector<ko_wchar_t> widened(std::string_view text, shape s) {
    std::vector<ko_wchar_t> wide;
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned c = static_cast<unsigned char>(text[i]);
        if (s == two || (s == euc && c > 0x7F)) c = c << 8 | static_cast<unsigned char>(text[++i]);
        wide.push_back(static_cast<ko_wchar_t>(c));
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
    const text_hooks hooks;
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        char_record r(row.s);
        text_stream bytes = {std::string(row.text), row.fail_at, row.shown}, wide = bytes;
        ko_mchar_t mb[4];
        EXPECT_EQ(ko_full_fgetmb(r, mb, &bytes), row.bytes);
        EXPECT_EQ(r.error(), row.error);
        EXPECT_EQ(row.bytes > 0 ? std::string(mb, mb + row.bytes) : "",
                  row.text.substr(0, row.bytes > 0 ? static_cast<size_t>(row.bytes) : 0));
        r.clear();
        EXPECT_EQ(ko_full_fgetwc(r, &wide), row.wide);
        EXPECT_EQ(r.error(), row.error);
        EXPECT_EQ(wide.pos, bytes.pos);
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
        {euc,         "a\xA3\xA4\nb",   "",               2,  -1, state::failed, KO_E2BIG },
        {euc,         "ab\n",           "",               -9, -1, state::failed, KO_E2BIG },
        {euc,         "",               "",               0,  -1, state::failed, KO_EEOF  },
        {euc,         "last",           "",               9,  -1, state::failed, KO_EEOF  },
        {euc,         "a\xA3",          "",               9,  -1, state::failed, KO_EINVAL},
        {euc,         "a\xFF\n",        "",               9,  -1, state::failed, KO_EILSEQ},
        {euc,         "ab\n",           "",               9,  1,  state::failed, KO_EIO   },
        {euc,         "a\0\n"sv,        "a\0\n"sv,        9,  -1, state::failed, 0        },
        {latin,       "a\xFF\n",        "a\xFF\n",        4,  -1, state::failed, 0        },
        {latin,       "a\xFF",          "",               9,  -1, state::failed, KO_EEOF  },
        {latin,       "a\n",            "",               9,  1,  state::good,   KO_EREAD },
        {shape::gaps, "\xE5\n",         "\xE5\n",         9,  -1, state::failed, 0        },
        {two,         "\0a\0\n\0b"sv,   "\0a\0\n"sv,      6,  -1, state::failed, 0        },
        {two,         "\0a\0\n\0b"sv,   "",               5,  -1, state::failed, KO_E2BIG },
        {two,         "\x0A\x0A\0\n"sv, "\x0A\x0A\0\n"sv, 9,  -1, state::failed, 0        },
    };
    const text_hooks hooks;
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text) + std::to_string(row.size));
        char_record r(row.s);
        text_stream bytes = {std::string(row.text), row.fail_at, row.shown}, wide = bytes;
        std::string buf(16, 'w');
        auto *const out = reinterpret_cast<ko_mchar_t *>(buf.data());
        EXPECT_EQ(ko_fgetmbs(r, out, row.size, &bytes), row.error ? nullptr : out);
        EXPECT_EQ(r.error(), row.error);
        const size_t end = row.s == two ? 2 : 1;
        const std::string want = std::string(row.line).append(end, '\0');
        EXPECT_EQ(row.error ? want : buf.substr(0, want.size()), want);
        const auto room = static_cast<size_t>(std::max(row.size, 0));
        EXPECT_EQ(buf.find_first_not_of('w', room), buf.npos); // nothing behind the size
        if (row.error == KO_E2BIG && row.size > 0) continue;   // wide sizes differ
        r.clear();
        std::vector<ko_wchar_t> line(16, 0x7777), wide_want = widened(row.line, row.s);
        wide_want.push_back(0);
        const int size = row.error ? row.size : static_cast<int>(wide_want.size());
        EXPECT_EQ(ko_fgetwcs(r, line.data(), size, &wide), row.error ? nullptr : line.data());
        EXPECT_EQ(r.error(), row.error);
        if (row.error) continue;
        EXPECT_TRUE(std::equal(wide_want.begin(), wide_want.end(), line.data()));
        text_stream again = {std::string(row.text)};
        EXPECT_EQ(ko_fgetwcs(r, line.data(), size - 1, &again), nullptr);
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
    const text_hooks hooks;
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        char_record r(row.s);
        text_stream out = {.fail_at = row.fail_at};
        EXPECT_EQ(ko_fputmbs(r, mb(row.text.data()), &out), row.error ? -1 : 0);
        EXPECT_EQ(r.error(), row.error);
        EXPECT_EQ(out.text, row.written);
        EXPECT_EQ(out.calls, out.text.empty() ? 0 : 1);
        if (row.error) continue;
        std::vector<ko_wchar_t> wide = widened(row.written, row.s);
        text_stream one, one_wide, all_wide;
        for (const ko_wchar_t wc : wide) {
            const ko_mchar_t *const from = mb(row.text.data()) + one.text.size();
            EXPECT_EQ(ko_fputmb(r, from, &one), from);
            EXPECT_EQ(ko_fputwc(r, wc, &one_wide), wc);
        }
        wide.push_back(0);
        EXPECT_EQ(ko_fputwcs(r, wide.data(), &all_wide), 0);
        EXPECT_EQ(one.text, row.written);
        EXPECT_EQ(one_wide.text, row.written);
        EXPECT_EQ(all_wide.text, row.written);
    }
}

TEST(StreamWrite, StopsAtTheFirstFailure) {
    const text_hooks hooks;
    char_record r(euc), none(two);
    text_stream out;
    EXPECT_EQ(ko_fputwcs(r, wcs(u"ab\xA4FFz").data(), &out), -1); // no such character
    EXPECT_EQ(r.error(), KO_EILSEQ);
    EXPECT_EQ(out.text, "ab");
    EXPECT_EQ(ko_fputwc(r, 0xFFFF, &out), 0xFFFF);
    EXPECT_EQ(ko_fputwcs(r, wcs(u"\uFFFF").data(), &out), -1);
    EXPECT_EQ(ko_fputmb(r, mb("\xFF"), &out), nullptr);
    text_stream failing = {.fail_at = 2};
    EXPECT_EQ(ko_fputwcs(r, wcs(u"abcd").data(), &failing), -1);
    EXPECT_EQ(r.error(), KO_EIO);
    EXPECT_EQ(failing.text, "ab");
    r.clear();
    EXPECT_NE(ko_fputmb(r, mb(""), &failing), nullptr); // the null character writes nothing
    EXPECT_EQ(ko_fputwc(r, 0, &failing), 0);
    EXPECT_EQ(failing.text, "ab");
    EXPECT_EQ(r.error(), 0);
    static_cast<mb_decode *>(none.loc.ctype)->max_char_len = 0;
    EXPECT_EQ(ko_fputmb(none, mb("\0a"), &out), nullptr);
    EXPECT_EQ(none.error(), KO_EINVAL);
}

// Without hooks, through the standard library.
TEST(Streams, RealFilesKeepLines) {
    const temp_dir dir;
    for (const shape s : {latin, euc, two}) {
        char_record r(s);
        const std::string line = s == two ? "\x03\x0A\0\n"s : "x\xA3\xA4\n", text = line + "\0\0"s;
        FILE *const file = fopen(dir.write("lines", "").c_str(), "w+b");
        for (int i = 0; i < 9000; ++i)
            ASSERT_EQ(ko_fputmbs(r, mb(text.data()), file), 0);
        rewind(file);
        ko_mchar_t buf[9];
        ko_wchar_t wide[9];
        for (int i = 0; i < 4500; ++i) {
            ASSERT_EQ(ko_fgetmbs(r, buf, sizeof buf, file), buf);
            ASSERT_EQ(std::string(buf, buf + line.size()), line);
            ASSERT_EQ(ko_fgetwcs(r, wide, 9, file), wide);
            ASSERT_EQ(std::vector(wide, wide + ko_wcslen(wide)), widened(line, s));
        }
        EXPECT_EQ(ko_full_fgetmb(r, buf, file), -1);
        EXPECT_EQ(r.error(), KO_EEOF);
        fclose(file);
    }
}
