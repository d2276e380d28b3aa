// Conversions opened by name: the encodings of Unicode, ways through UTF-8, and names however they
// are written. Pieces of every length, rooms of every size and measuring give what one call gives.
#include "host/host_records.h"
#include "host/host_rules.h"
#include "support/rows.h"

namespace {

struct conversion_to : owned<ko_cv_unload> {
    conversion_to(const char *from, const char *to, unsigned flags = 0,
                  const char *root = nullptr) {
        result = ko_open_conversion(&handle, root, from, to, flags);
        EXPECT_EQ(handle == nullptr, result != 0) << from << " to " << to;
    }
};

std::string bytes(const std::string &digits) {
    std::string made;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        made += char(std::stoi(digits.substr(i, 2), nullptr, 16));
    return made;
}

// Two pieces, cut at every byte; what is not taken of the first begins the second.
void check_pieces(ko_cv_t cd, const std::string &text, const outcome &want) {
    for (size_t cut = 0; cut < text.size(); ++cut) {
        SCOPED_TRACE(cut);
        conv_state st = {.first_frag = 1};
        const size_t room = want.made.size() + 16;
        outcome one = convert_piece(cd, &st, text.substr(0, cut), room);
        if (one.error && one.error != KO_EINVAL) {
            EXPECT_TRUE(one == want);
            continue;
        }
        st.first_frag = 0;
        st.last_frag = std::array{1, 2, -1}[cut % 3]; // only 0 says that more follows
        const outcome two = convert_piece(cd, &st, text.substr(one.taken), room);
        EXPECT_EQ((outcome{one.made + two.made, one.taken + two.taken, two.error}), want);
    }
}

// Every room gives a beginning; going on with more gives the rest.
void check_rooms(ko_cv_t cd, const std::string &text, const outcome &want) {
    for (size_t room = 0; room < want.made.size(); ++room) {
        SCOPED_TRACE(room);
        conv_state st = {.first_frag = 1, .last_frag = 1};
        const outcome one = convert_piece(cd, &st, text, room);
        EXPECT_EQ(one.error, KO_E2BIG);
        st.first_frag = 0;
        const outcome two = convert_piece(cd, &st, text.substr(one.taken), want.made.size());
        EXPECT_EQ((outcome{one.made + two.made, one.taken + two.taken, two.error}), want);
        EXPECT_EQ(convert_piece(cd, nullptr, text, room, true).error, KO_E2BIG);
    }
    const outcome measured = convert_piece(cd, nullptr, text, 100000, true);
    EXPECT_EQ(measured, (outcome{std::to_string(want.made.size()), want.taken, want.error}));
}

// What a text becomes that a null character ends, which belongs to it.
std::string convert_terminated(ko_cv_t cd, std::string text, size_t &taken) {
    text += std::string(4, '\0') + "rest";
    const ko_mchar_t *in = mb(text.data());
    std::vector<ko_mchar_t> space(6 * text.size());
    ko_mchar_t *out = space.data();
    int room = static_cast<int>(space.size()), sub;
    EXPECT_EQ(ko_miconv(cd, &in, nullptr, &out, &room, &sub), 0);
    taken = size_t(in - mb(text.data()));
    const ko_mchar_t *again = mb(text.data());
    conv_state st = {.first_frag = 1, .last_frag = 1};
    int left = static_cast<int>(space.size());
    EXPECT_EQ(ko_mconvlen(cd, &st, &again, nullptr, &left, &sub), 0);
    EXPECT_TRUE(again == in && left == room) << "it is measured as it is written";
    return {space.data(), out};
}

// ---- Encodings of Unicode ----

struct encoding {
    const char *name;
    int unit; // bytes; negative: least significant first
};
constexpr encoding encodings[] = {
    {"utf8",    1 },
    {"unicode", 2 },
    {"utf16le", -2},
    {"utf16",   2 },
    {"utf32be", 4 },
    {"utf32le", -4}
};

std::string encoded(char32_t code, int unit) {
    if (unit == 1) return utf8(code);
    std::vector<uint32_t> units;
    if (std::abs(unit) == 4)
        units.push_back(code);
    else
        for (const char16_t part : utf16(code))
            units.push_back(part);
    std::string bytes;
    for (const uint32_t value : units)
        for (int i = 0; i < std::abs(unit); ++i)
            bytes += char(value >> 8 * (unit < 0 ? i : unit - 1 - i));
    return bytes;
}
std::string encoded(std::u32string_view text, int unit) {
    std::string bytes;
    for (const char32_t code : text)
        bytes += encoded(code, unit);
    return bytes;
}

template <class Use> void each_pair(Use use) {
    for (const encoding &from : encodings)
        for (const encoding &to : encodings) {
            SCOPED_TRACE(std::string(from.name) + " to " + to.name);
            const conversion_to cd(from.name, to.name);
            use(cd.handle, from.unit, to.unit);
        }
}

} // namespace

TEST(HostConversion, EncodingsHoldEveryCodePoint) {
    std::u32string all;
    for (char32_t code = 0; code < 0x110000; ++code)
        if (code < 0xD800 || code > 0xDFFF) all += code;
    std::map<int, std::string> texts;
    for (const encoding &form : encodings)
        texts.try_emplace(form.unit, encoded(all, form.unit));
    each_pair([&](ko_cv_t cd, int from, int to) {
        if (from != 1 && to != 1) return; // a block of units lies between all of them
        const outcome want = {texts[to], texts[from].size(), 0};
        EXPECT_TRUE(convert_whole(cd, texts[from]) == want);
    });
}

TEST(HostConversion, EncodingsInPiecesAndInLittleRoom) {
    std::u32string text = U"aé€\U0001F600字";
    for (int i = 0; i < 40; ++i)
        text += U"xyzäöüßабв漢字仮名\U00010000z\U0010FFFF"[i % 17];
    each_pair([&](ko_cv_t cd, int from, int to) {
        const std::string all = encoded(text, from);
        const outcome want = {encoded(text, to), all.size(), 0};
        ASSERT_EQ(convert_whole(cd, all), want);
        check_pieces(cd, all, want);
        check_rooms(cd, all, want);
        size_t taken;
        const std::string ended = convert_terminated(cd, all, taken);
        EXPECT_EQ(taken, all.size() + size_t(std::abs(from)));
        EXPECT_EQ(ended, want.made + std::string(size_t(std::abs(to)), 0));
    });
}

TEST(HostConversion, IllFormedTextStopsAtItsFirstByte) {
    // The encoding and the bytes of its units, a text, how much of it is taken, and the error.
    for (const auto &w :
         table("utf8 1 6180 1 1; utf8 1 C080 0 1; utf8 1 6162E08080 2 1; utf8 1 EDA080 0 1; "
               "utf8 1 F4908080 0 1; utf8 1 F5 0 1; utf8 1 61E6BC 1 7; utf8 1 61E6BC5A 1 1; "
               "utf8 1 F09F98 0 7; utf8 1 F490 0 1; unicode 2 0061DC00 2 1; "
               "unicode 2 0061D8000061 2 1; unicode 2 0061D800 2 7; unicode 2 006100 2 7; "
               "utf16le -2 610000DC 2 1; utf16le -2 00D800D8 0 1; utf32be 4 000000610000D800 4 1; "
               "utf32be 4 00110000 0 1; utf32le -4 610000000000007F 4 1; utf32le -4 610000 0 7")) {
        SCOPED_TRACE(w[0] + " " + w[2]);
        for (const char *to : {"utf8", "utf16le", "utf32be"}) {
            const conversion_to cd(w[0].c_str(), to);
            // Where it stops does not depend on how much text goes before.
            for (const int times : {0, 300}) {
                const std::string before =
                    encoded(std::u32string(size_t(times), U'x'), whole(w[1]));
                const outcome got = convert_whole(cd.handle, before + bytes(w[2]));
                EXPECT_EQ(got.taken, before.size() + size_t(whole(w[3])));
                EXPECT_EQ(got.error, whole(w[4]));
            }
        }
    }
}

TEST(HostConversion, MarksTellTheOrderAndAreDroppedOrWritten) {
    // From, to, the flags (16 keeps marks, 32 writes them), a text, and what is made of it.
    static_assert(KO_CONVERT_KEEP_MARK == 16 && KO_CONVERT_WRITE_MARK == 32);
    for (const auto &w : table(
             "utf8 unicode 0 EFBBBF61 0061; utf8 utf8 16 EFBBBF61 EFBBBF61; "
             "utf8 utf8 32 61 EFBBBF61; utf8 utf8 32 EFBBBF61EFBBBF EFBBBF61EFBBBF; "
             "utf8 utf8 32 ~ ~; utf16 utf8 0 FFFE61003DD800DE 61F09F9880; "
             "utf16 utf8 0 FEFF0061 61; utf16 utf8 0 0061FFFE 61EFBFBE; utf16 utf8 16 FFFE6100 61; "
             "utf16le utf8 0 FFFE6100 61; utf16le utf8 16 FFFE6100 EFBBBF61; "
             "utf32le utf16le 32 FFFE000061000000 FFFE6100; utf8 utf16 32 61 FEFF0061")) {
        SCOPED_TRACE(w[0] + " to " + w[1] + " " + w[3]);
        const std::string text = bytes(w[3]);
        const conversion_to cd(w[0].c_str(), w[1].c_str(), unsigned(whole(w[2])));
        const outcome want = {bytes(w[4]), text.size(), 0};
        EXPECT_EQ(convert_whole(cd.handle, text), want);
        check_pieces(cd.handle, text, want);
        check_rooms(cd.handle, text, want);
    }
}

// ---- Objects, and ways through UTF-8 ----

TEST(HostConversion, WaysThroughUtf8ConvertInPiecesAsInOneCall) {
    const std::string root = env("KOVA_TEST_ROOT");
    if (!std::filesystem::is_directory(root + "/kova/cv9")) GTEST_SKIP();
    std::u32string words;
    for (int i = 0; i < 80; ++i)
        words += i % 3 ? U"漢字仮名" : U"abc ";
    const std::string plain = encoded(words, 1);
    static const char *const targets[] = {"ibm-930", "SJIS", "euc_jp", "UTF-16LE", "cp939"};
    for (const char *from : targets)
        for (const char *to : targets) {
            SCOPED_TRACE(std::string(from) + " to " + to);
            const conversion_to in("UTF8", from, 0, root.c_str()),
                out("utf-8", to, 0, root.c_str()), cd(from, to, 0, root.c_str());
            const std::string text = convert_whole(in.handle, plain).made;
            const outcome want = {convert_whole(out.handle, plain).made, text.size(), 0};
            ASSERT_EQ(convert_whole(cd.handle, text), want);
            check_pieces(cd.handle, text, want);
            check_rooms(cd.handle, text, want);
            check_pieces(out.handle, plain, {want.made, plain.size(), 0});
            check_rooms(out.handle, plain, {want.made, plain.size(), 0});
            check_rooms(in.handle, plain, {text, plain.size(), 0});
        }
    // A character that the second code set lacks stops the first one there.
    const conversion_to cd("utf16le", "8859-1", 0, root.c_str());
    const std::string text = encoded(std::u32string(700, U'ä') + U"漢z", -2);
    EXPECT_EQ(convert_whole(cd.handle, text), (outcome{std::string(700, '\xE4'), 1400, KO_EILSEQ}));
    // A mark written after an object, or where there is room for it alone.
    for (const char *to : {"utf8", "unicode", "utf16le"}) {
        const conversion_to with("8859-1", to, KO_CONVERT_WRITE_MARK, root.c_str());
        const outcome want = {
            convert_whole(conversion_to("utf8", to, KO_CONVERT_WRITE_MARK).handle, "äb").made, 2,
            0};
        EXPECT_EQ(convert_whole(with.handle, "\344b"), want);
        check_rooms(with.handle, "\344b", want);
    }
    // A mark before the text of an object.
    const conversion_to marked("utf8", "8859-1", 0, root.c_str());
    check_pieces(marked.handle, "\uFEFFä", {"\xE4", 5, 0});
    const conversion_to kept("utf8", "8859-1", KO_CONVERT_KEEP_MARK, root.c_str());
    EXPECT_EQ(convert_whole(kept.handle, "\uFEFFä"), (outcome{"", 0, KO_EILSEQ}));
}

TEST(HostConversion, OpensByNameOrSaysWhyNot) {
    const small_root root;
    root.write("kova/cm3/registry", "utf8 57372\niso_8859-1 1\nwindows-1252 1252\nibm037 37\n");
    for (const auto &w :
         table("ISO8859-1 1; iso~8859~1 1; Windows-1252 1252; cp1252 1252; 1252 1252; IBM-37 37; "
               "cp037 37; ccsid~00037 37; 037 37; UTF8 57372; utf-16 1204; UTF-16LE 1202; "
               "UCS-2BE 57349; CP1208 57372; 00037 37; ibm38 none; ~ none; -- none; 65573 none; "
               "a~name~that~is~too~long none; ibmx none; cp1234567 none; {} none; 99999999 none"))
        EXPECT_EQ(ko_codeset_number(root.path.c_str(), w[0].c_str()),
                  w[1] == "none" ? -KO_ENOCODESET : whole(w[1]))
            << w[0];
    static const struct {
        const char *from, *to;
        unsigned flags;
        int error;
    } rows[] = {
        {"utf8",     "ISO8859_1", KO_OPEN_VERIFY,    0            },
        {"iso88591", "utf16",     0,                 0            },
        {"iso88591", "iso88591",  0,                 0            },
        {"iso88591", "utf16",     KO_CONVERT_DIRECT, KO_ENOCONV   },
        {"cp037",    "utf8",      0,                 KO_ENOCONV   },
        {"utf8",     "cp038",     0,                 KO_ENOCODESET},
        {"utf8",     "utf8",      8,                 KO_ERANGE    },
        {"utf8",     nullptr,     0,                 KO_ENULL     },
        {nullptr,    "utf8",      0,                 KO_ENULL     },
        {"cp038",    "utf8",      0,                 KO_ENOCODESET},
    };
    for (const auto &row : rows)
        EXPECT_EQ(conversion_to(row.from, row.to, row.flags, root.path.c_str()).result, row.error)
            << (row.from ? row.from : "NULL") << " " << (row.to ? row.to : "NULL");
    root.write("kova/cv9/e01c0001.cvo", conversion(false) + " ");
    EXPECT_EQ(conversion_to("utf8", "iso88591", KO_OPEN_VERIFY, root.path.c_str()).result,
              KO_EOBJECT);
    root.write("kova/cv9/e01c0001.cvo", "no object");
    EXPECT_EQ(conversion_to("utf8", "iso88591", 0, root.path.c_str()).result, KO_EOBJECT);
    EXPECT_EQ(ko_open_conversion(nullptr, nullptr, "utf8", "utf8", 0), KO_ENULL);
}

TEST(HostConversion, OpensWithoutMemoryOrNotAtAll) {
    const small_root root;
    const auto opens = [&](const char *from, const char *to) {
        ko_cv_t cd = nullptr;
        const int error = ko_open_conversion(&cd, root.path.c_str(), from, to, 0);
        EXPECT_EQ(cd == nullptr, error != 0);
        EXPECT_TRUE(!error || error == KO_ENOMEM) << error;
        if (!error) {
            EXPECT_EQ(convert_whole(cd, from[0] == 't' ? "\xDF" : "\xC3\x9F").taken,
                      from[0] == 't' ? 1u : 2u);
            ko_cv_unload(cd);
        }
        return !error;
    };
    each_allocation_fails([&] { return opens("utf8", "utf16"); });
    each_allocation_fails([&] { return opens("utf8", "test-1"); });
    each_allocation_fails([&] { return opens("test-1", "test-1"); });
}

// ---- By rule ----

TEST(HostConversion, CodeSetsThatNoObjectHoldsConvertByRule) {
    static const struct {
        const char *name, *bytes, *text;
    } rows[] = {
        {"iso-2022-jp",     "a\\\x1B$B$+\x1B(J\\~\x1B(B~\n",                                  "a\\か¥‾~\n"               },
        {"iso-2022-jp-1",   "\x1B$B$+\x1B$(D0!\x1B(B",                                        "か丂"                       },
        {"iso-2022-jp-2",   "\x1B.A\x1BNi\n\x1B.A\x1BN \x1B.F\x1BN\\\x1B$AVP\x1B$(C0!\x1B(B",
         "é\n\u00A0ά中가"                                                                                                },
        {"iso-2022-kr",
         "\x1B$)Ca\x0E"
         "0!\x0F\n\x0E"
         "0!\x0F",                                                                            "a가\n가"                    },
        {"iso-2022-cn",     "\x1B$)A\x0EVP\x1B$)GDc\x1B$*H\x1BN!!\x0F\n\x1B$)A\x0EVP\x0F",
         "中丂乂\n中"                                                                                                    },
        {"iso-2022-cn-ext", "\x1B$+M\x1BO!\"\x1B$)E\x0E+!\x0F!",                              "乃ɑ!"                       },
        {"iso-2022-jp-3",   "\x1B$B$+\x1B$(O$w)B\x1B(I1\x1B$B$+\x1B(B",                       "かか\u309AÊｱか"         },
        {"cp50221",         "\x1B$B-!y!$+\x1B(I1\x1B(B",                                      "①纊かｱ"                 },
        {"hz",              "a~~~{VP~}\n",                                                    "a~中\n"                      },
        {"utf-7",           "1A+ImIDkQ.+-+2D3eAA-a+AH4.+ZeUAKw.",                             "1A≢Α.+😀a~.日+."        },
        {"imap",            "~peter/&U,BTFw-/&-&ZeVnLIqe-&-&AAE-",                            "~peter/台北/&日本語&\x01"},
        {"gb18030",
         "\xD6\xD0\x81"
         "0\x81"
         "0\x90"
         "0\x81"
         "0\xE3"
         "2\x9A"
         "5",                                                                                 "中\u0080\U00010000\U0010FFFF"},
        {"sjis-2004",       "\x82\xA9\x82\xF5\x83\x97\x86\x86\x85\x85\x82\xA9",
         "かか\u309Aカ\u309A\u02E5\u02E9Êか"                                                                            },
        {"euc-2004",        "\xA4\xF7\xA4\xAB",                                               "か\u309Aか"                 },
        {"hkscs",           "\x88\x62\xA9\xC2\x88\xA5",                                       "Ê\u0304Êê\u030C"           },
        {"ibm1399",
         "a\x0E\x88\xA7\xEC\xB5\x0F"
         "b\x0E\xEC\xCD\x0F",                                                                 "aかか\u309Ab\u02E5\u02E9"   },
    };
    const rules_root root;
    const conversion_to units("utf8", "utf16le");
    std::minstd_rand rng(7);
    for (const auto &row : rows) {
        const std::string names[] = {row.name, "utf8", "utf16le"};
        const std::string texts[] = {row.bytes, row.text,
                                     convert_whole(units.handle, row.text).made};
        for (const auto &[from, to] : {
                 std::pair(0, 1), {1, 0},
                   {0, 2},
                   {2, 0},
                   {0, 0}
        }) {
            SCOPED_TRACE(names[from] + " to " + names[to]);
            const conversion_to cd(names[from].c_str(), names[to].c_str(), 0, root.path.c_str());
            const outcome want = {texts[to], texts[from].size(), 0};
            ASSERT_EQ(convert_whole(cd.handle, texts[from]), want);
            check_pieces(cd.handle, texts[from], want);
            check_rooms(cd.handle, texts[from], want);
            for (int i = 0; i < 150; ++i)
                EXPECT_EQ(convert_splits(cd.handle, texts[from], rng), want);
            size_t taken;
            const std::string ended = convert_terminated(cd.handle, texts[from], taken);
            EXPECT_EQ(taken, texts[from].size() + (from == 2 ? 2 : 1));
            EXPECT_EQ(ended, texts[to] + std::string(to == 2 ? 2 : 1, '\0'));
        }
    }
}

TEST(HostConversion, RulesStopAtTheFirstByteOfWhatIsNoCharacter) {
    static const struct {
        const char *from, *to, *text;
        size_t taken;
        int error;
    } rows[] = {
        {"iso-2022-jp", "utf8",          "a\x1B$B$",               4,  KO_EINVAL},
        {"iso-2022-jp", "utf8",          "a\x1B$",                 1,  KO_EINVAL},
        {"iso-2022-jp", "utf8",          "a\x1B$X",                1,  KO_EILSEQ},
        {"iso-2022-jp", "utf8",          "a\x0E",                  1,  KO_EILSEQ},
        {"iso-2022-jp", "utf8",          "\x1B$B$+$\x80",          5,  KO_EILSEQ},
        {"iso-2022-jp", "utf16le",       "\x1B$B$+!~",             5,  KO_EILSEQ},
        {"iso-2022-jp", "utf8",          "\x1B$A",                 0,  KO_EILSEQ},
        {"iso-2022-jp", "utf8",          "\x1B(I1\x1B$@$+\x1B(Jx", 13, 0        },
        {"cp50221",     "utf8",          "\x1B(I1`",               4,  KO_EILSEQ},
        {"utf8",        "cp50221",       "か\xEF\xBD",            3,  KO_EINVAL},
        {"utf8",        "iso-2022-jp-3", "か\u309A\u309A",        6,  KO_EILSEQ},
        {"iso-2022-kr", "utf8",
         "\x0F\x0E"
         "0",                                                      2,  KO_EINVAL},
        {"iso-2022-cn", "utf8",          "\x0EVP",                 0,  KO_EILSEQ},
        {"iso-2022-cn", "utf8",          "\x1B$)A\x0EVP\n!!",      8,  KO_EILSEQ},
        {"iso-2022-cn", "utf8",          "\x1BN!!",                0,  KO_EILSEQ},
        {"iso-2022-cn", "utf8",          "\x1B$*H\x1BN!",          4,  KO_EINVAL},
        {"hz",          "utf8",          "~x",                     0,  KO_EILSEQ},
        {"hz",          "utf8",          "~{VP~",                  4,  KO_EINVAL},
        {"hz",          "utf8",          "~{VP\na~\nb",            9,  0        },
        {"utf-7",       "utf8",          "+",                      0,  KO_EINVAL},
        {"utf-7",       "utf8",          "+!",                     0,  KO_EILSEQ},
        {"utf-7",       "utf8",          "!~",                     1,  KO_EILSEQ},
        {"utf-7",       "utf8",          "+AG-",                   1,  KO_EILSEQ},
        {"utf-7",       "utf8",          "+AGF-",                  4,  KO_EILSEQ},
        {"utf-7",       "utf8",          "+2D0-",                  1,  KO_EILSEQ},
        {"utf-7",       "utf8",          "+3gA-",                  1,  KO_EILSEQ},
        {"utf-7",       "utf8",          "+2D0AQQ-",               1,  KO_EILSEQ},
        {"utf-7",       "utf8",          "+AGF",                   4,  KO_EINVAL},
        {"imap",        "utf8",          "&AGE-",                  1,  KO_EILSEQ},
        {"imap",        "utf8",          "&U,A/",                  4,  KO_EILSEQ},
        {"gb18030",     "utf8",
         "a\x90"
         "0\x81",                                                  1,  KO_EINVAL},
        {"gb18030",     "utf8",
         "a\x90"
         "0\x81)",                                                 1,  KO_EILSEQ},
        {"gb18030",     "utf8",
         "\xE3"
         "2\x9A"
         "6",                                                      0,  KO_EILSEQ},
        {"sjis-2004",   "utf8",          "\x82\xA9\x82\x20",       2,  KO_EILSEQ},
        {"utf8",        "iso-2022-jp",   "かé",                  3,  KO_EILSEQ},
        {"utf8",        "iso-2022-jp",   "a\x1B",                  1,  KO_EILSEQ},
        {"utf8",        "iso-2022-jp",   "か\xE3\x81",            3,  KO_EINVAL},
        {"utf8",        "iso-2022-jp",   "\xE3\x81¥",             0,  KO_EILSEQ},
        {"utf8",        "gb18030",       "中\xF0\x90\x80",        3,  KO_EINVAL},
        {"utf8",        "sjis-2004",     "かか\xFF",             6,  KO_EILSEQ},
        {"sjis-2004",   "euc-2004",      "\x82\xA9\x82\xA9\xFF",   4,  KO_EILSEQ},
        {"sjis-2004",   "iso-2022-jp",   "\x82\xA9\x82\xF5",       2,  KO_EILSEQ},
    };
    const rules_root root;
    std::minstd_rand rng(7);
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.from) + " to " + row.to + " " + hex(row.text));
        const conversion_to cd(row.from, row.to, 0, root.path.c_str());
        const outcome got = convert_whole(cd.handle, row.text);
        EXPECT_EQ(got.taken, row.taken);
        EXPECT_EQ(got.error, row.error);
        for (int i = 0; i < 20; ++i)
            EXPECT_EQ(convert_splits(cd.handle, row.text, rng), got);
    }
}

// A text ends at its null byte whatever an object states about its characters.
TEST(HostConversion, ObjectsDoNotSayHowWideANullCharacterIs) {
    rules_root root;
    for (const int min : {0, 2, 5, -1}) {
        root.add(1375, {}, false, min);
        const conversion_to cd("hkscs", "utf8", 0, root.path.c_str());
        size_t taken;
        EXPECT_EQ(convert_terminated(cd.handle, "a\x88\x62", taken),
                  std::string("aÊ\u0304") + '\0');
        EXPECT_EQ(taken, 4u) << min;
    }
}

// A host may have one error word for all threads, which then tells failures of them alone.
TEST(HostConversion, WhatSucceedsLeavesNoFailureInTheLogOrTheErrorWord) {
    static int word;
    const rules_root root;
    const installed_hooks hooks{std::pair(KO_EXT_ERRNO, as_hook(+[](void *) { return &++word; }))};
    exit_utilities(); // the switches are read anew
    {
        env_hooks env;
        env.vars["KOVALOG"] = "on";
        env.vars["HOME"] = env.vars["VANTORDIR"] = root.path;
        for (const char *from : {"utf8", "utf16le", "hkscs", "iso-2022-jp"})
            for (const char *to : {"utf16le", "iso-2022-jp", "ibm1399", "gb18030"}) {
                const conversion_to in("utf8", from, 0, root.path.c_str()),
                    cd(from, to, 0, root.path.c_str());
                const std::string text = convert_whole(in.handle, std::string(20000, 'a')).made;
                word = 77;
                EXPECT_EQ(convert_whole(cd.handle, text).error, KO_OK) << from << " to " << to;
                EXPECT_EQ(word, 77) << from << " to " << to;
            }
    }
    exit_utilities();
    const std::string log = root.read("kova.log");
    EXPECT_NE(log.find("Opened"), log.npos);
    EXPECT_EQ(log.find("Error"), log.npos) << log;
}

TEST(HostConversion, RulesNeedTheirObjectsAndMemory) {
    const rules_root root;
    const auto error_of = [&](const char *from, const char *to) {
        ko_cv_t cd = nullptr;
        const int error = ko_open_conversion(&cd, root.path.c_str(), from, to, 0);
        EXPECT_EQ(cd == nullptr, error != 0);
        if (cd) ko_cv_unload(cd);
        return error;
    };
    const std::pair<const char *, const char *> pairs[] = {
        {"utf8",  "iso-2022-jp-2"},
        {"utf8",  "iso-2022-jp-3"},
        {"hkscs", "utf16"        },
        {"imap",  "hz"           }
    };
    for (const auto &names : pairs)
        each_allocation_fails([&] {
            const int error = error_of(names.first, names.second);
            EXPECT_TRUE(!error || error == KO_ENOMEM) << error;
            return !error;
        });
    root.write("kova/cv9/03cae01c.cvo", "no object");
    EXPECT_EQ(error_of("iso-2022-jp-2", "utf8"), KO_EOBJECT);
    std::filesystem::remove(root.path + "/kova/cv9/03cae01c.cvo");
    EXPECT_EQ(error_of("iso-2022-jp-2", "utf8"), KO_ENOCONV);
    EXPECT_EQ(error_of("iso-2022-jp", "utf8"), KO_OK);
}
