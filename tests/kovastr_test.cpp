// String operations: stepping, trailing spaces, searching, copying, widths.
#include "char_records.h"

#include <algorithm>

using std::string_view_literals::operator""sv;

namespace {

// Code sets with the classes that strings are about: ' ' and the last space of each are "space",
// controls are not printable, characters of two bytes are "full_width".
enum class set { bytes, euc, two_byte };
constexpr set all_sets[] = {set::bytes, set::euc, set::two_byte};
constexpr char full_width[] = "full_width";

struct text_record : char_record {
    user_bit bits[2] = {
        {3, const_cast<char *>("other")   },
        {0, const_cast<char *>(full_width)}
    };
    std::vector<uint16_t> byte_classes;
    text_record(set s, bool flat, bool wide_class = true) {
        const unsigned least = s == set::two_byte ? 2 : 1;
        for (unsigned c = 0; c < 0x80; ++c)
            add(c, least, c == ' ' ? 0x110 : c == '\n' ? 0x10 : c > ' ' && c < 0x7F ? 0x100 : 0);
        for (unsigned c = 0xA0; s == set::bytes && c < 0xF0; ++c)
            add(c, 1, c == 0xA0 ? 0x110 : 0x100);
        for (unsigned c = 0xA1A1; s != set::bytes && c < 0xA8A1; c += (c & 0xFF) == 0xFE ? 0xA3 : 1)
            add(c, 2, c == 0xA1A1 ? 0x910 : 0x900);
        finish(flat);
        if (wide_class) loc.user_bits = bits, loc.num_user_bits = 2;
        if (s != set::bytes || !flat) return;
        for (unsigned c = 0; c < 256; ++c)
            byte_classes.push_back(static_cast<uint16_t>(im_iswctype(&loc, ko_wchar_t(c), 0xFFFF)));
        loc.exp.sb_ctype_table = byte_classes.data();
        clear();
    }
};

const ko_mchar_t *units(std::string_view text) { return mb(text.data()); }

} // namespace

// ---- Edge cases by row: a result is a place in the string, a count, or -1 ----------------------

namespace {

using op = int (*)(ko_lc_t loc, const ko_mchar_t *s, const ko_mchar_t *other, int n);
int place(const ko_mchar_t *s, const ko_mchar_t *at) { return at ? static_cast<int>(at - s) : -1; }
const ko_mchar_t *after(const ko_mchar_t *s, int n) { return s ? s + n : s; }

int result(const ko_mchar_t *s, const ko_mchar_t *at) { return place(s, at); }
int result(const ko_mchar_t *, int value) { return value; }

// Operations on a string, on two, with a count, with a place in the string.
template <auto f>
constexpr op one =
    [](ko_lc_t l, const ko_mchar_t *s, const ko_mchar_t *, int) { return result(s, f(l, s)); };
template <auto f>
constexpr op both =
    [](ko_lc_t l, const ko_mchar_t *s, const ko_mchar_t *o, int) { return result(s, f(l, s, o)); };
template <auto f>
constexpr op count =
    [](ko_lc_t l, const ko_mchar_t *s, const ko_mchar_t *, int n) { return result(s, f(l, s, n)); };
template <auto f>
constexpr op at = [](ko_lc_t l, const ko_mchar_t *s, const ko_mchar_t *, int n) {
    return result(s, f(l, s, after(s, n)));
};
constexpr op prev = at<ko_full_mbsprev>, pwidth = at<ko_mbspwidth>;
constexpr op get = count<ko_full_getmbsi>, width = count<ko_mbswidth>;
constexpr op kept_chars = one<ko_mbsntslen>, kept_bytes = one<ko_mbsntsbytes>;
constexpr op spaces = one<ko_mbsp>, bytes_nt = one<ko_mbsbytes_nt>;
constexpr op chr = both<ko_full_mbschr>, rchr = both<ko_full_mbsrchr>;
constexpr op spn = both<ko_full_mbsspn>, cspn = both<ko_full_mbscspn>;
constexpr op pbrk = both<ko_full_mbspbrk>, sub = both<ko_full_mbsmbs>;
constexpr op get_null = [](ko_lc_t l, const ko_mchar_t *s, const ko_mchar_t *, int n) {
    int flag = 7;
    const int found = place(s, ko_getmbsinull(l, s, n, &flag));
    return flag ? -9 : found;
};
constexpr op offset = [](ko_lc_t l, const ko_mchar_t *s, const ko_mchar_t *, int n) {
    int len = 7;
    const int found = ko_charoffset(l, s, after(s, n), &len);
    return found < 0 ? found - len : 10 * len + found;
};
constexpr op wide_len = [](ko_lc_t l, const ko_mchar_t *s, const ko_mchar_t *, int) {
    int len = 7;
    ko_wchar_t *const copy = ko_mbstowcslen(l, s, &len);
    const int seen = copy ? ko_wcslen(copy) : -1;
    ko_destroystring(copy);
    return copy && seen != len ? -9 : seen;
};

constexpr const char *none = nullptr;
constexpr char bad[] = "a\xA3", aXz[] = "a\xA3\xA4z", wide_ab[] = "\0a\0b\0";

const struct {
    const char *what;
    op run;
    set s;
    const char *text, *other;
    int n, result, error; // the error word is 99 before
} edges[] = {
    {"prev inside",     prev,       set::euc,      aXz,                        none,        2,  1,  99       },
    {"prev behind it",  prev,       set::euc,      aXz,                        none,        3,  1,  99       },
    {"prev past end",   prev,       set::euc,      "ab\0cd",                   none,        5,  2,  99       },
    {"prev at start",   prev,       set::euc,      "ab",                       none,        0,  -1, KO_EPOS  },
    {"prev over bad",   prev,       set::euc,      "\xFFzz",                   none,        2,  -1, KO_EILSEQ},
    {"prev null",       prev,       set::euc,      none,                       none,        2,  -1, KO_ENULL },
    {"prev two-byte",   prev,       set::two_byte, wide_ab,                    none,        4,  2,  99       },
    {"get end",         get,        set::euc,      aXz,                        none,        3,  4,  99       },
    {"get beyond",      get,        set::euc,      aXz,                        none,        4,  -1, KO_EINDEX},
    {"get below",       get,        set::euc,      aXz,                        none,        -1, -1, KO_EINDEX},
    {"get null first",  get,        set::euc,      none,                       none,        -1, -1, KO_ENULL },
    {"get bad",         get,        set::euc,      bad,                        none,        2,  -1, KO_EILSEQ},
    {"get before bad",  get,        set::euc,      bad,                        none,        1,  1,  99       },
    {"get byte",        get,        set::bytes,    "a\xFFz",                   none,        2,  2,  99       },
    {"skip",            get_null,   set::euc,      aXz,                        none,        2,  3,  99       },
    {"skip to end",     get_null,   set::euc,      aXz,                        none,        9,  4,  99       },
    {"skip below",      get_null,   set::euc,      aXz,                        none,        -1, -1, KO_EINDEX},
    {"skip null",       get_null,   set::euc,      none,                       none,        1,  -1, KO_ENULL },
    {"skip two-byte",   get_null,   set::two_byte, wide_ab,                    none,        9,  4,  99       },
    {"offset second",   offset,     set::euc,      aXz,                        none,        2,  21, 99       },
    {"offset first",    offset,     set::euc,      aXz,                        none,        1,  20, 99       },
    {"offset end",      offset,     set::euc,      aXz,                        none,        4,  10, 99       },
    {"offset behind",   offset,     set::euc,      "a\0b",                     none,        2,  -1, KO_EINVAL},
    {"offset before",   offset,     set::euc,      aXz + 1,                    none,        -1, -1, KO_EINVAL},
    {"offset bad",      offset,     set::euc,      "\xFFzz",                   none,        2,  -1, KO_EILSEQ},
    {"offset end wide", offset,     set::two_byte, wide_ab,                    none,        4,  20, 99       },
    {"kept",            kept_chars, set::euc,      "ab  ",                     none,        0,  2,  99       },
    {"kept wide space", kept_bytes, set::euc,      "a \xA3\xA4 \xA1\xA1",      none,        0,  4,  99       },
    {"kept none",       kept_chars, set::euc,      " \n ",                     none,        0,  0,  99       },
    {"kept empty",      kept_chars, set::euc,      "",                         none,        0,  0,  99       },
    {"kept bad",        kept_bytes, set::euc,      bad,                        none,        0,  -1, KO_EILSEQ},
    {"kept null",       kept_chars, set::euc,      none,                       none,        0,  -1, KO_ENULL },
    {"kept byte",       kept_chars, set::bytes,    "a\xFF \xA0",               none,        0,  2,  99       },
    {"spaces",          spaces,     set::euc,      "a b  ",                    none,        0,  3,  99       },
    {"spaces none",     spaces,     set::euc,      "a b",                      none,        0,  -1, 99       },
    {"spaces only",     spaces,     set::bytes,    "  ",                       none,        0,  0,  99       },
    {"bytes",           bytes_nt,   set::two_byte, wide_ab,                    none,        0,  4,  99       },
    {"bytes bad",       bytes_nt,   set::euc,      bad,                        none,        0,  -1, KO_EILSEQ},
    {"bytes null",      bytes_nt,   set::euc,      none,                       none,        0,  -1, KO_ENULL },
    {"chr",             chr,        set::euc,      "\xA3\xA4\xA4\xA3\xA4\xA4", "\xA4\xA4",  0,  4,  99       },
    {"chr absent",      chr,        set::euc,      "\xA3\xA4\xA4\xA3",         "\xA4\xA4",  0,  -1, 0        },
    {"chr byte absent", chr,        set::bytes,    "abc",                      "x",         0,  -1, 0        },
    {"chr terminator",  chr,        set::euc,      aXz,                        "",          0,  4,  99       },
    {"chr byte end",    rchr,       set::bytes,    "abc",                      "",          0,  3,  99       },
    {"chr before bad",  chr,        set::euc,      bad,                        "a",         0,  0,  99       },
    {"rchr bad",        rchr,       set::euc,      bad,                        "a",         0,  -1, KO_EILSEQ},
    {"chr of bad",      chr,        set::euc,      "a",                        "\xFF",      0,  -1, KO_EILSEQ},
    {"chr of null",     chr,        set::euc,      "a",                        none,        0,  -1, KO_ENULL },
    {"rchr",            rchr,       set::euc,      "abab",                     "a",         0,  2,  99       },
    {"rchr byte",       rchr,       set::bytes,    "abab",                     "a",         0,  2,  99       },
    {"spn",             spn,        set::euc,      aXz,                        "a\xA3\xA4", 0,  2,  99       },
    {"spn empty set",   spn,        set::euc,      aXz,                        "",          0,  0,  99       },
    {"cspn empty set",  cspn,       set::euc,      aXz,                        "",          0,  3,  99       },
    {"cspn bad set",    cspn,       set::euc,      "",                         "\xFF",      0,  -1, KO_EILSEQ},
    {"cspn before bad", cspn,       set::euc,      bad,                        "xa",        0,  0,  99       },
    {"cspn bad",        cspn,       set::euc,      bad,                        "x",         0,  -1, KO_EILSEQ},
    {"spn null",        spn,        set::euc,      none,                       "x",         0,  -1, KO_ENULL },
    {"pbrk",            pbrk,       set::euc,      aXz,                        "xz",        0,  3,  99       },
    {"pbrk absent",     pbrk,       set::euc,      aXz,                        "x",         0,  -1, 0        },
    {"pbrk bad",        pbrk,       set::euc,      bad,                        "x",         0,  -1, KO_EILSEQ},
    {"sub",             sub,        set::euc,      "\xA3\xA4\xA4\xA3",         "\xA4\xA3",  0,  2,  0        },
    {"sub absent",      sub,        set::euc,      "\xA3\xA4\xA4\xA3",         "\xA4\xA4",  0,  -1, 0        },
    {"sub empty",       sub,        set::euc,      "",                         "",          0,  0,  0        },
    {"sub longer",      sub,        set::euc,      "ab",                       "abc",       0,  -1, 0        },
    {"sub bad",         sub,        set::euc,      bad,                        "b",         0,  -1, KO_EILSEQ},
    {"sub of bad",      sub,        set::euc,      "a",                        bad,         0,  -1, KO_EILSEQ},
    {"sub null",        sub,        set::euc,      none,                       "b",         0,  -1, KO_ENULL },
    {"sub byte",        sub,        set::bytes,    "xabab",                    "ab",        0,  1,  0        },
    {"wide",            wide_len,   set::euc,      aXz,                        none,        0,  3,  99       },
    {"wide empty",      wide_len,   set::bytes,    "",                         none,        0,  0,  99       },
    {"wide bad",        wide_len,   set::euc,      bad,                        none,        0,  -1, KO_EILSEQ},
    {"wide null",       wide_len,   set::euc,      none,                       none,        0,  -1, KO_ENULL },
    {"width",           width,      set::euc,      aXz,                        none,        9,  4,  99       },
    {"width part",      width,      set::euc,      aXz,                        none,        2,  3,  99       },
    {"width none",      width,      set::euc,      "\t",                       none,        0,  0,  99       },
    {"width below",     width,      set::euc,      "\t",                       none,        -1, -1, KO_EINDEX},
    {"width control",   width,      set::euc,      "a\tb",                     none,        9,  -1, KO_EINVAL},
    {"width before",    width,      set::euc,      "a\tb",                     none,        1,  1,  99       },
    {"width bad",       width,      set::euc,      bad,                        none,        9,  -1, KO_EINVAL},
    {"width byte",      width,      set::bytes,    "a \xC4",                   none,        9,  3,  99       },
    {"width no byte",   width,      set::bytes,    "a\x80",                    none,        9,  -1, KO_EINVAL},
    {"width two-byte",  width,      set::two_byte, wide_ab,                    none,        9,  2,  99       },
    {"width null",      width,      set::euc,      none,                       none,        -1, -1, KO_ENULL },
    {"pwidth",          pwidth,     set::euc,      aXz,                        none,        3,  3,  99       },
    {"pwidth inside",   pwidth,     set::euc,      aXz,                        none,        2,  -1, KO_EPOS  },
    {"pwidth behind",   pwidth,     set::euc,      "a\0\t",                    none,        3,  1,  99       },
    {"pwidth at start", pwidth,     set::euc,      "\t",                       none,        0,  0,  99       },
    {"pwidth before",   pwidth,     set::euc,      aXz + 1,                    none,        -1, -1, KO_EPOS  },
    {"pwidth byte",     pwidth,     set::bytes,    "ab\t",                     none,        2,  2,  99       },
    {"pwidth null",     pwidth,     set::euc,      none,                       none,        0,  -1, KO_ENULL },
};

} // namespace

TEST(Str, EdgeCasesByFlatTableAndByTree) {
    for (const auto &row : edges) {
        for (const bool flat : {false, true}) {
            SCOPED_TRACE(std::string(row.what) + (flat ? " flat" : " tree"));
            text_record r(row.s, flat);
            set_error(r, 99);
            const ko_mchar_t *text = row.text ? mb(row.text) : nullptr;
            EXPECT_EQ(row.run(r, text, row.other ? mb(row.other) : nullptr, row.n), row.result);
            EXPECT_EQ(r.error(), row.error);
        }
    }
}

TEST(Str, WidthsDependOnTheClass) {
    text_record plain(set::euc, true, false), bytes(set::bytes, true);
    EXPECT_EQ(ko_mbswidth(plain, mb(aXz), 9), 3);
    EXPECT_EQ(ko_wcwidth(plain, 0xA3A4), 1);
    const ko_wchar_t wide[] = {'a', 0xC4, 0x1C4, 0};
    EXPECT_EQ(ko_wcspwidth(bytes, wide, wide + 2), 2);
    EXPECT_EQ(ko_wcspwidth(bytes, wide, wide + 3), -1); // above the bytes there is no class
    EXPECT_EQ(bytes.error(), KO_EINVAL);
}

TEST(Str, DamagedAndMissingTablesAreHarmless) {
    for (const int min : {0, -5, 9, 2000000000}) {
        text_record r(set::euc, min != 9);
        void *const table = r.loc.ctype;
        static_cast<mb_decode *>(table)->min_char_len = min;
        if (min == -5) r.loc.ctype = nullptr;
        for (const auto &row : edges) {
            const std::string text(row.text ? row.text : ""), other(row.other ? row.other : "");
            const std::string padded = text + std::string(8, '\0');
            const std::string second = other + std::string(8, '\0');
            row.run(r, units(padded), units(second), std::max(0, std::min(row.n, 4)));
        }
        r.loc.ctype = table;
    }
}

// ---- Operations that write ---------------------------------------------------------------------

namespace {

using writer = ko_mchar_t *(*)(ko_lc_t, ko_mchar_t *dst, const ko_mchar_t *src, int n);
constexpr writer cpy = [](ko_lc_t l, ko_mchar_t *d, const ko_mchar_t *s, int) {
    return ko_full_mbscpy(l, d, s);
};
constexpr writer cat = [](ko_lc_t l, ko_mchar_t *d, const ko_mchar_t *s, int) {
    return ko_full_mbscat(l, d, s);
};
constexpr writer put = [](ko_lc_t l, ko_mchar_t *d, const ko_mchar_t *s, int n) {
    return ko_full_putmbsi(l, d, n, s);
};
constexpr writer trunc = [](ko_lc_t l, ko_mchar_t *d, const ko_mchar_t *, int) {
    return ko_mbsntstrunc(l, d);
};

const struct {
    const char *what;
    writer run;
    set s;
    std::string_view dst, src;
    int n, at; // the place returned, -1: NULL
    std::string_view want;
    int error;
} writes[] = {
    {"cpy",            cpy,        set::euc,      "zzzzzz",          aXz,         0,  0,  "a\xA3\xA4z\0z"sv,   0        },
    {"cpy bad",        cpy,        set::euc,      "zzz",             bad,         0,  -1, "zzz",               KO_EILSEQ},
    {"cpy two-byte",   cpy,        set::two_byte, "zzzzz",           "\0a\0\0"sv, 0,  0,  "\0a\0\0z"sv,        0        },
    {"cat",            cat,        set::euc,      "ab\0zz"sv,        "cd",        0,  0,  "abcd\0"sv,          0        },
    {"cat two-byte",   cat,        set::two_byte, "\0a\0\0zz"sv,     "\0b\0\0"sv, 0,  0,  "\0a\0b\0\0"sv,      0        },
    {"cat to bad",     cat,        set::euc,      "\xFF\0zz"sv,      "cd",        0,  -1, "\xFF\0zz"sv,        KO_EILSEQ},
    {"cat bad",        cat,        set::euc,      "ab\0zz"sv,        bad,         0,  -1, "ab\0zz"sv,          KO_EILSEQ},
    {"ncpy long",      ko_mbsncpy, set::euc,      "zzzzzz",          aXz,         9,  0,  "a\xA3\xA4z\0z"sv,   0        },
    {"ncpy part",      ko_mbsncpy, set::euc,      "zzzzzz",          aXz,         2,  0,  "a\xA3\xA4\0zz"sv,   0        },
    {"ncpy none",      ko_mbsncpy, set::euc,      "zzz",             aXz,         0,  0,  "\0zz"sv,            0        },
    {"ncpy below",     ko_mbsncpy, set::euc,      "zzz",             aXz,         -1, -1, "zzz",               KO_EINDEX},
    {"ncpy bad",       ko_mbsncpy, set::euc,      "zzz",             bad,         2,  -1, "zzz",               KO_EILSEQ},
    {"ncpy good part", ko_mbsncpy, set::euc,      "zzz",             bad,         1,  0,  "a\0z"sv,            0        },
    {"ncpy byte",      ko_mbsncpy, set::bytes,    "zzz",             "a\xFFz",    2,  0,  "a\xFF\0"sv,         0        },
    {"ncat",           ko_mbsncat, set::euc,      "a\0zzz"sv,        aXz,         2,  0,  "aa\xA3\xA4\0"sv,    0        },
    {"ncat none",      ko_mbsncat, set::euc,      "a\0zz"sv,         aXz,         0,  0,  "a\0zz"sv,           0        },
    {"ncat below",     ko_mbsncat, set::euc,      "a\0zz"sv,         aXz,         -1, -1, "a\0zz"sv,           KO_EINDEX},
    {"put longer",     put,        set::euc,      "abz\0z"sv,        "\xA3\xA4",  1,  1,  "a\xA3\xA4z\0"sv,    0        },
    {"put shorter",    put,        set::euc,      "a\xA3\xA4\0z"sv,  "b",         1,  1,  "ab\0\0z"sv,         0        },
    {"put null",       put,        set::euc,      "abz\0z"sv,        "",          1,  1,  "az\0\0z"sv,         0        },
    {"put at end",     put,        set::euc,      "ab\0z"sv,         "c",         2,  -1, "ab\0z"sv,           KO_EINDEX},
    {"put bad",        put,        set::euc,      "ab\0z"sv,         "\xFF",      0,  -1, "ab\0z"sv,           KO_EILSEQ},
    {"put before bad", put,        set::euc,      "ab\xFF\0z"sv,     "c",         0,  -1, "ab\xFF\0z"sv,       KO_EILSEQ},
    {"put two-byte",   put,        set::two_byte, "\0a\0b\0\0"sv,    "\xA3\xA4",  1,  2,  "\0a\xA3\xA4\0\0"sv, 0        },
    {"trunc",          trunc,      set::euc,      "a \xA1\xA1\0z"sv, "",          0,  0,  "a\0\xA1\xA1\0z"sv,  0        },
    {"trunc none",     trunc,      set::euc,      " a\0z"sv,         "",          0,  0,  " a\0z"sv,           0        },
    {"trunc bad",      trunc,      set::euc,      " \xFF\0z"sv,      "",          0,  -1, " \xFF\0z"sv,        KO_EILSEQ},
    {"trunc two-byte", trunc,      set::two_byte, "\0a\0 \0\0"sv,    "",          0,  0,  "\0a\0\0\0\0"sv,     0        },
};

} // namespace

TEST(Str, WritesWhatFitsTheRow) {
    for (const auto &row : writes) {
        for (const bool flat : {false, true}) {
            SCOPED_TRACE(std::string(row.what) + (flat ? " flat" : " tree"));
            text_record r(row.s, flat);
            std::string dst(row.dst);
            auto *const at = reinterpret_cast<ko_mchar_t *>(dst.data());
            ko_mchar_t *const got = row.run(r, at, units(row.src), row.n);
            EXPECT_EQ(place(at, got), row.at);
            EXPECT_EQ(dst, row.want);
            EXPECT_EQ(r.error(), row.error);
        }
    }
    text_record r(set::euc, true);
    ko_mchar_t out[8] = "abc";
    for (const writer run : {cpy, cat, writer(ko_mbsncpy), writer(ko_mbsncat), put}) {
        r.clear();
        EXPECT_EQ(run(r, nullptr, mb("a"), -1), nullptr); // pointers are checked before counts
        EXPECT_EQ(run(r, out, nullptr, -1), nullptr);
        EXPECT_EQ(r.error(), KO_ENULL);
    }
    EXPECT_EQ(text(out), "abc");
}

TEST(Str, EachFailingAllocationIsTold) {
    text_record r(set::euc, true);
    std::string many; // more two-byte members than a set lists
    for (int c = 0; c < 60; ++c)
        many += {'\xA3', static_cast<char>(0xA1 + c)};
    for (const op run : {spn, cspn, pbrk, wide_len}) {
        const long failed = each_allocation_fails([&] {
            r.clear();
            const bool done = run(r, mb("\xA3\xDA\xA3\xA1"), mb(many.c_str()), 0) >= 0;
            EXPECT_EQ(r.error(), done ? 0 : KO_ENOMEM);
            return done;
        });
        EXPECT_EQ(failed, 1);
    }
    EXPECT_EQ(spn(r, mb((many + "\xA3\xDD" + many).c_str()), mb(many.c_str()), 0), 60);
    ko_mchar_t text[8] = "abc";
    EXPECT_EQ(each_allocation_fails([&] {
                  r.clear();
                  const bool done = ko_mbcreplace(r, text, mb("x"));
                  EXPECT_EQ(r.error(), done ? 0 : KO_ENOMEM);
                  return done;
              }),
              1);
}

// ---- Both twins on random strings --------------------------------------------------------------

namespace {

struct sample {
    std::string bytes; // with the terminator
    std::vector<ko_wchar_t> wide;
    std::vector<int> starts; // of the characters, the terminator last
    const ko_mchar_t *mbs() const { return units(bytes); }
    int index(const ko_mchar_t *at) const {
        const auto found = std::find(starts.begin(), starts.end(), place(mbs(), at));
        return !at ? -1 : found == starts.end() ? -9 : static_cast<int>(found - starts.begin());
    }
    int index(const ko_wchar_t *at) const { return at ? static_cast<int>(at - wide.data()) : -1; }
};

unsigned below(std::mt19937 &random, unsigned n) { return static_cast<unsigned>(random() % n); }

// Few different characters, so that searches find something; spaces at the end; rarely a control.
sample random_sample(std::mt19937 &random, set s, unsigned longest, unsigned kinds) {
    sample made;
    const size_t chars = random() % longest;
    const auto add = [&](unsigned wide) {
        made.starts.push_back(static_cast<int>(made.bytes.size()));
        made.wide.push_back(static_cast<ko_wchar_t>(wide));
        if (wide > 0xFF || s == set::two_byte) made.bytes += static_cast<char>(wide >> 8);
        made.bytes += static_cast<char>(wide & 0xFF);
    };
    const unsigned space = s == set::bytes ? 0xA0 : 0xA1A1, odd = s == set::bytes ? 0xB0 : 0xA3A3;
    for (size_t i = 0; i < chars; ++i) {
        const bool last = i + below(random, 4) >= chars;
        const unsigned kind = last ? 30 + below(random, 9) : below(random, 40);
        const unsigned letter = below(random, kinds);
        add(kind < 16   ? 'a' + letter % 26
            : kind < 30 ? odd + letter
            : kind < 34 ? ' '
            : kind < 39 ? space
                        : '\t');
    }
    add(0);
    return made;
}

struct twins {
    text_record &r;
    std::vector<ko_mchar_t> bytes = std::vector<ko_mchar_t>(1000);
    std::vector<ko_wchar_t> wide = std::vector<ko_wchar_t>(500);

    // Runs both with an error word of 99 and compares results and error words.
    template <class A, class B> void same(const char *what, A of_bytes, B of_wide) {
        set_error(r, 99);
        const int got = of_bytes();
        const int error = r.error();
        set_error(r, 99);
        EXPECT_EQ(got, of_wide()) << what;
        EXPECT_EQ(error, r.error()) << what;
    }
    // Compares what both wrote.
    template <class A, class B> void same_text(const char *what, A to_bytes, B to_wide) {
        EXPECT_EQ(to_bytes(), bytes.data()) << what;
        EXPECT_EQ(to_wide(), wide.data()) << what;
        int len;
        ko_wchar_t *const copy = ko_mbstowcslen(r, bytes.data(), &len);
        EXPECT_TRUE(copy && std::equal(copy, copy + len + 1, wide.data())) << what;
        ko_destroystring(copy);
    }
};

void compare_twins(text_record &r, std::mt19937 &random, const sample &a, const sample &b) {
    twins t{r};
    const ko_mchar_t *am = a.mbs(), *bm = b.mbs();
    const ko_wchar_t *aw = a.wide.data(), *bw = b.wide.data();
    const int n = static_cast<int>(random() % 30);
    const size_t i = random() % a.starts.size(), j = random() % b.starts.size();
    const ko_mchar_t *bj = bm + b.starts[j];
    t.same(
        "ntslen", [&] { return ko_mbsntslen(r, am); }, [&] { return ko_wcsntslen(r, aw); });
    t.same(
        "spn", [&] { return ko_full_mbsspn(r, am, bm); }, [&] { return ko_wcsspn(r, aw, bw); });
    t.same(
        "cspn", [&] { return ko_full_mbscspn(r, am, bm); }, [&] { return ko_wcscspn(r, aw, bw); });
    t.same(
        "pbrk", [&] { return a.index(ko_full_mbspbrk(r, am, bm)); },
        [&] { return a.index(ko_wcspbrk(r, aw, bw)); });
    t.same(
        "chr", [&] { return a.index(ko_full_mbschr(r, am, bj)); },
        [&] { return a.index(ko_wcschr(r, aw, bw[j])); });
    t.same(
        "rchr", [&] { return a.index(ko_full_mbsrchr(r, am, bj)); },
        [&] { return a.index(ko_wcsrchr(r, aw, bw[j])); });
    const auto find = [&] { return a.index(ko_wcswcs(r, aw, bw + j)); };
    EXPECT_EQ(a.index(ko_full_mbsmbs(r, am, bj)), find());
    t.same(
        "width", [&] { return ko_mbswidth(r, am, n); }, [&] { return ko_wcswidth(r, aw, n); });
    t.same(
        "char width", [&] { return ko_mbwidth(r, bj); }, [&] { return ko_wcwidth(r, bw[j]); });
    t.same(
        "pwidth", [&] { return ko_mbspwidth(r, am, am + a.starts[i]); },
        [&] { return ko_wcspwidth(r, aw, aw + i); });
    ko_mchar_t *const out = t.bytes.data();
    ko_wchar_t *const wide = t.wide.data();
    t.same_text(
        "cpy", [&] { return ko_full_mbscpy(r, out, am); }, [&] { return ko_wcscpy(wide, aw); });
    t.same_text(
        "cat", [&] { return ko_full_mbscat(r, out, bm); }, [&] { return ko_wcscat(wide, bw); });
    t.same_text(
        "ncat", [&] { return ko_mbsncat(r, out, am, n); }, [&] { return ko_wcsncat(wide, aw, n); });
    t.same_text(
        "trunc", [&] { return ko_mbsntstrunc(r, out); }, [&] { return ko_wcsntstrunc(r, wide); });
    t.same_text(
        "ncpy", [&] { return ko_mbsncpy(r, out, bm, n); }, [&] { return ko_wcsncpy(wide, bw, n); });
    // Places: each character is behind the one before it and holds its own bytes.
    EXPECT_EQ(ko_full_getmbsi(r, am, static_cast<int>(i)), am + a.starts[i]);
    EXPECT_EQ(ko_full_mbsprev(r, am, am + a.starts[i]), i ? am + a.starts[i - 1] : nullptr);
    int len;
    EXPECT_EQ(ko_charoffset(r, am, am + a.starts[i], &len), 0);
}

} // namespace

TEST(StrTwins, AgreeOnRandomStrings) {
    std::mt19937 random(24);
    for (const set s : all_sets) {
        text_record flat(s, true), tree(s, false);
        for (int round = 0; round < 10000 && !testing::Test::HasFailure(); ++round) {
            SCOPED_TRACE(round);
            const unsigned kinds = round % 10 ? 2 + below(random, 5) : 60; // rows of many members
            const sample a = random_sample(random, s, 60, kinds);
            const sample b = random_sample(random, s, round % 10 ? 6 : 120, kinds);
            compare_twins(round % 2 ? flat : tree, random, a, b);
        }
    }
}
