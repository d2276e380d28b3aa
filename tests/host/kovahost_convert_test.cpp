// Between UTF-8 and wide characters: what is no character, rooms of every size, all lengths of
// runs.
#include "host/host_records.h"
#include "host/kovahost_simd.h"
#include "host/kovahost_text.h"
#include "support/guarded_block.h"

namespace {

// What a text of bytes (in hex) has that is no character, as "place+length", and the rest
// converted.
std::string subparts(ko_lc_t loc, const std::string &text, std::u16string *made) {
    std::string found;
    for (size_t from = 0;;) {
        ko_wchar_t out[64];
        ko_bad_text bad = {99, 99, 99};
        const int64_t n =
            ko_utf8stowcs(loc, out, std::size(out), text.data() + from, text.size() - from, &bad);
        EXPECT_TRUE(n >= 0 || n == -KO_EILSEQ);
        made->append(out, out + (n < 0 ? bad.made : static_cast<size_t>(n)));
        if (n >= 0) return found;
        found += std::to_string(from + bad.at) + "+" + std::to_string(bad.length) + " ";
        from += bad.at + bad.length;
    }
}

template <class Unit> const Unit *at(const std::basic_string<Unit> &text) { return text.data(); }
const ko_wchar_t *at(const std::u16string &text) {
    const void *units = text.data();
    return static_cast<const ko_wchar_t *>(units);
}
int64_t convert(ko_lc_t loc, ko_wchar_t *dst, size_t room, const std::string &text) {
    return ko_utf8stowcs(loc, dst, room, text.data(), text.size(), nullptr);
}
int64_t convert(ko_lc_t loc, char *dst, size_t room, const std::u16string &text) {
    return ko_wcstoutf8s(loc, dst, room, at(text), text.size(), nullptr);
}

// Every room is filled with whole characters of the result, and nothing is written after it.
template <class Out, class In>
void check_rooms(ko_lc_t loc, const In &text, const std::basic_string<Out> &want,
                 bool (*inside_char)(unsigned)) {
    for (size_t room = 0; room <= want.size(); ++room) {
        guarded_block block;
        void *const start = block.end - room * sizeof(Out);
        auto *const dst = static_cast<Out *>(start);
        ASSERT_EQ(convert(loc, dst, room, text), static_cast<int64_t>(want.size())) << room;
        size_t whole = room;
        while (whole && whole < want.size() && inside_char(static_cast<unsigned>(want[whole])))
            --whole;
        ASSERT_TRUE(std::equal(dst, dst + whole, want.begin())) << room;
    }
}

// A text converted one character at a time.
template <class Out> struct by_character {
    std::basic_string<Out> made;
    std::vector<size_t> before; // units made before each place; SIZE_MAX inside a character
    size_t good = 0;            // the place of the first thing that is no character
};
template <class Out>
void add_character(by_character<Out> *all, const std::basic_string<Out> &units, size_t taken) {
    all->before[all->good] = all->made.size();
    all->made += units;
    all->good += taken;
    all->before[all->good] = all->made.size();
}
by_character<char16_t> each_character(const std::string &text) {
    by_character<char16_t> all;
    all.before.assign(text.size() + 1, SIZE_MAX);
    const unsigned char *const s = bytes_of(text.data());
    while (all.good < text.size()) {
        const utf8_step step = utf8_char(s + all.good, s + text.size());
        if (step.code == no_code) break;
        add_character(&all, utf16(step.code), step.bytes);
    }
    return all;
}
by_character<char> each_character(const std::u16string &text) {
    by_character<char> all;
    all.before.assign(text.size() + 1, SIZE_MAX);
    while (all.good < text.size()) {
        const char32_t unit = text[all.good];
        const bool pair = is_high_unit(unit) && all.good + 1 < text.size();
        const char32_t next = pair ? text[all.good + 1] : 0;
        if (!is_low_unit(next) && (unit & 0xF800) == 0xD800) break;
        const char32_t code = pair ? (unit - 0xD7C0) << 10 | (next & 0x3FF) : unit;
        add_character(&all, utf8(code), 1u + pair);
    }
    return all;
}

// The unit types of the library.
template <class Unit>
using inside = std::conditional_t<std::is_same_v<Unit, char>, unsigned char, ko_wchar_t>;

// One run stops between characters, has made what they are, and touches nothing outside. Returns
// the place where it stopped.
template <class In, class Out>
size_t check_run(run_way way, const std::basic_string<In> &text, const by_character<Out> &want,
                 size_t from, size_t room) {
    using to_unit = inside<Out>;
    using from_unit = inside<In>;
    static const guarded_block source, target;
    const size_t n = text.size() - from;
    void *const start = source.end - n * sizeof(In), *const end = target.end - room * sizeof(Out);
    if (n) memcpy(start, text.data() + from, n * sizeof(In));
    auto *const dst = static_cast<to_unit *>(end);
    const run_of run = convert_run(way, dst, room, static_cast<const from_unit *>(start), n);
    const size_t at = from + run.taken, made = want.before[from] + run.made;
    EXPECT_LE(run.made, room);
    EXPECT_LE(at, want.good);
    EXPECT_EQ(want.before[at], made);
    EXPECT_TRUE(std::equal(dst, dst + run.made, want.made.begin() + long(made - run.made),
                           [](to_unit a, Out b) { return a == static_cast<to_unit>(b); }));
    if (way == run_way::wide && want.good == text.size() && at < want.good) {
        size_t next = at + 1;
        while (want.before[next] == SIZE_MAX)
            ++next;
        const size_t least = std::is_same_v<Out, char> ? 6 : want.before[next] - made;
        EXPECT_LT(room - run.made, least);
    }
    return at;
}

constexpr run_way all_ways[] = {run_way::plain, run_way::shuffled, run_way::wide};

// Runs of each way through a text, with one character after each.
template <class In> void check_ways(const std::basic_string<In> &text, size_t room) {
    const auto want = each_character(text);
    for (const run_way way : all_ways) {
        if (way > best_way()) break;
        SCOPED_TRACE("way " + std::to_string(int(way)) + ", room " + std::to_string(room));
        for (size_t from = 0; from < want.good && !testing::Test::HasFailure();) {
            from = check_run(way, text, want, from, room);
            while (++from < want.good && want.before[from] == SIZE_MAX) {
            }
        }
    }
}

} // namespace

TEST(HostConvert, TellsMaximalSubpartsThatAreNoCharacters) {
    static const struct {
        std::string text;
        const char *found;
        std::u16string rest;
    } rows[] = {
        {"",                                                         "",                                 u""                              },
        {"x\xF1\x80\x80\xE1\x80\xC2y\x80z\x80\xBFw",                 "1+3 4+2 6+1 8+1 10+1 11+1 ",       u"xyzw"                          },
        {"\xC0\xAF\xE0\x80\xBF\xF0\x81\x82X",                        "0+1 1+1 2+1 3+1 4+1 5+1 6+1 7+1 ", u"X"                             },
        {"\xED\xA0\x80\xED\xBF\xBF\xED\xAFX",                        "0+1 1+1 2+1 3+1 4+1 5+1 6+1 7+1 ", u"X"                             },
        {"\xF4\x91\x92\x93\xFFX\x80\xBFY",                           "0+1 1+1 2+1 3+1 4+1 6+1 7+1 ",     u"XY"                            },
        {"\xF0\x90\x80",                                             "0+3 ",                             u""                              },
        {"\xE2\x82",                                                 "0+2 ",                             u""                              },
        {"\xC3",                                                     "0+1 ",                             u""                              },
        {"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF",             "",                                 u"\u007F\u0080\u07FF\u0800\uD7FF"},
        {"\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", "",
         u"\uE000\uFFFF\U00010000\U0010FFFF"                                                                                              },
    };
    bare_record r;
    for (const auto &row : rows) {
        // Also inside runs that are taken as blocks.
        for (const std::string &around : {std::string(), std::string(40, 'x')}) {
            SCOPED_TRACE(row.found + around);
            std::u16string made, want(around.size(), u'x');
            const std::string found = subparts(r.loc, row.text + around, &made);
            EXPECT_EQ(found, row.found);
            EXPECT_EQ(made, row.rest + want);
        }
    }
    static constexpr ko_wchar_t lone[][3] = {
        {'a', 0xD800, 'b'   },
        {'a', 0xDC00, 0xD800},
        {'a', 0xDBFF, 0xDBFF}
    };
    for (const auto &text : lone) {
        ko_bad_text bad = {};
        EXPECT_EQ(ko_wcstoutf8s(r.loc, nullptr, 0, text, 3, &bad), -KO_EILSEQ);
        EXPECT_EQ(bad.at + 10 * bad.length + 100 * bad.made, 111u);
    }
}

TEST(HostConvert, FillsEveryRoomWithWholeCharacters) {
    bare_record r;
    random_texts texts = {std::mt19937(2012)};
    static constexpr char32_t kinds[] = {U'a', U'ж', U'語', U'😀'};
    for (int round = 0; round < 300; ++round) {
        std::string narrow;
        std::u16string units;
        while (narrow.size() < 120) { // runs of one length each
            const char32_t first = kinds[texts.below(4)];
            for (unsigned n = texts.below(30); n; --n) {
                narrow += utf8(first + n % 8);
                units += utf16(first + n % 8);
            }
        }
        SCOPED_TRACE(narrow);
        for (size_t room = 0; room <= narrow.size(); ++room) {
            check_ways(narrow, room);
            check_ways(units, room);
        }
        check_rooms<ko_wchar_t>(r.loc, narrow, {units.begin(), units.end()},
                                [](unsigned unit) { return (unit & 0xFC00) == 0xDC00; });
        check_rooms<char>(r.loc, units, narrow,
                          [](unsigned byte) { return (byte & 0xC0) == 0x80; });
        if (HasFatalFailure()) return;
    }
}

// What is no character, after runs and in runs of every length, as the end of a text and before
// more of it.
TEST(HostConvert, FindsWhatIsNoCharacterInsideRuns) {
    static const struct {
        std::string bytes;
        size_t length; // of the part that is refused
    } rows[] = {
        {"\x80",             1},
        {"\xC0\x80",         1},
        {"\xC1\xBF",         1},
        {"\xC3",             1},
        {"\xE0\x9F\xBF",     1},
        {"\xE6\xBC",         2},
        {"\xE6\xC0\x80",     1},
        {"\xED\xA0\x80",     1},
        {"\xED\xBF\xBF",     1},
        {"\xF0\x8F\xBF\xBF", 1},
        {"\xF0\x9F\x98",     3},
        {"\xF4\x90\x80\x80", 1},
        {"\xF5\x80\x80\x80", 1},
        {"\xF8\x90\x80\x80", 1},
        {"\xFF\x90\x80\x80", 1},
    };
    bare_record r;
    for (const auto &row : rows)
        for (const char32_t code : {U'a', U'ж', U'語', U'😀'})
            for (size_t times = 0; times <= 200 / utf8(code).size(); ++times)
                for (const char *after : {"", "z",
                                          "é語😀 and more than 64 bytes of text, so that it is "
                                          "in the middle of a block"}) {
                    std::string text;
                    for (size_t i = 0; i < times; ++i)
                        text += utf8(code);
                    const size_t at = text.size(), made = times * utf16(code).size();
                    text += row.bytes + after;
                    SCOPED_TRACE(text);
                    ko_bad_text bad = {};
                    std::vector<ko_wchar_t> out(text.size());
                    ASSERT_EQ(ko_utf8stowcs(r.loc, out.data(), out.size(), text.data(), text.size(),
                                            &bad),
                              -KO_EILSEQ);
                    ASSERT_EQ(std::tie(bad.at, bad.length, bad.made),
                              std::tie(at, row.length, made));
                    check_ways(text, text.size());
                    ASSERT_FALSE(HasFailure());
                }
}

TEST(HostConvert, RunsHoldEveryCodePoint) {
    std::string narrow;
    std::u16string units;
    for (char32_t code = 0; code < 0x110000; ++code) {
        if ((code & ~0x7FFu) != 0xD800) narrow += utf8(code), units += utf16(code);
        if (code % 0xFE && code != 0x10FFFF) continue;
        for (const size_t room : {narrow.size(), narrow.size() / 2}) {
            check_ways(narrow, room);
            check_ways(units, room);
        }
        ASSERT_FALSE(HasFailure()) << unsigned{code};
        narrow.clear();
        units.clear();
    }
    for (size_t at = 0; at < 100; ++at)
        for (const char16_t lone : {u'\xD800', u'\xDBFF', u'\xDC00', u'\xDFFF'})
            for (const char16_t around : {u'a', u'ж', u'語'}) {
                units.assign(100, around);
                units[at] = lone;
                check_ways(units, 300);
                ASSERT_FALSE(HasFailure()) << at;
            }
}

TEST(HostConvert, RefusesOtherCodeSetsAndMissingTexts) {
    bare_record r;
    EXPECT_EQ(ko_utf8stowcs(nullptr, nullptr, 0, "a", 1, nullptr), -KO_ENULL);
    EXPECT_EQ(ko_utf8stowcs(r.loc, nullptr, 0, nullptr, 0, nullptr), 0);
    EXPECT_EQ(ko_utf8stowcs(r.loc, nullptr, 0, nullptr, 1, nullptr), -KO_ENULL);
    EXPECT_EQ(ko_wcstoutf8s(r.loc, nullptr, 1, nullptr, 0, nullptr), -KO_ENULL);
    for (const auto change : {&ko_utf8supper, &ko_utf8slower}) {
        EXPECT_EQ(change(r.loc, nullptr, 0, nullptr, 0), 0);
        EXPECT_EQ(change(r.loc, nullptr, 0, nullptr, 1), -KO_ENULL);
        EXPECT_EQ(change(r.loc, nullptr, 1, "a", 1), -KO_ENULL);
    }
    record(r.loc)->codeset[0][3] = 0;
    EXPECT_EQ(ko_wcstoutf8s(r.loc, nullptr, 0, nullptr, 0, nullptr), -KO_ECODESET);
    EXPECT_EQ(error_of(r.loc), 0);
}

TEST(HostCase, IsThatOfWideCharacters) {
    each_locale(true, [](ko_lc_t loc) {
        random_texts texts = {std::mt19937(2013)};
        for (int round = 0; round < 500; ++round) {
            std::string text, upper, lower;
            for (const char32_t code : texts.text(12)) {
                const bool wide = code > 0xFFFF;
                const auto unit = ko_wchar_t(code);
                text += utf8(code);
                upper += utf8(wide ? code : im_towupper(loc, unit));
                lower += utf8(code == U'𐐀' ? U'𐐨' : wide ? code : im_towlower(loc, unit));
            }
            char room[64];
            const size_t some = texts.below(64);
            for (const auto &[change, want] :
                 {std::pair(&ko_utf8supper, upper), std::pair(&ko_utf8slower, lower)}) {
                ASSERT_EQ(change(loc, room, some, text.data(), text.size()), int64_t(want.size()));
                size_t whole = std::min(some, want.size());
                while (whole < want.size() && (want[whole] & 0xC0) == 0x80)
                    --whole;
                ASSERT_EQ(std::string(room, whole), want.substr(0, whole));
            }
        }
        EXPECT_EQ(ko_utf8supper(loc, nullptr, 0, "a\xC3", 2), -KO_EILSEQ);
    });
}

// The first and last letters of each script, and what stands beside them.
TEST(HostCase, KnowsLettersBeyondTheBasicPlane) {
    const std::string mixed =
        "😀𐐧𐐨𐑏𐑐𐓓𐓔𐓘𐓻𐓼𐕺𐕻𐖗𐖡𐖢𐖤𐖼𐳀𐳲𐳳"
        "𑣀𑣟𑣠𖹠𖹿𖺀𞤢𞥃𞥄";
    const std::string upper =
        "😀𐐧𐐀𐐧𐑐𐓓𐓔𐒰𐓓𐓼𐕺𐕻𐕰𐕺𐖢𐕽𐖕𐲀𐲲𐳳"
        "𑢠𑢿𑣠𖹀𖹟𖺀𞤀𞤡𞥄";
    const std::string lower =
        "😀𐑏𐐨𐑏𐑐𐓻𐓔𐓘𐓻𐓼𐖡𐕻𐖗𐖡𐖢𐖤𐖼𐳀𐳲𐳳"
        "𑣀𑣟𑣠𖹠𖹿𖺀𞤢𞥃𞥄";
    each_locale(true, [&](ko_lc_t loc) {
        std::string made(mixed.size(), '\0');
        EXPECT_EQ(ko_utf8supper(loc, made.data(), made.size(), mixed.data(), mixed.size()),
                  int64_t(mixed.size()));
        EXPECT_EQ(made, upper);
        ko_utf8slower(loc, made.data(), made.size(), mixed.data(), mixed.size());
        EXPECT_EQ(made, lower);
    });
}
