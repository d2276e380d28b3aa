// String operations: stepping, trailing spaces, searching, copying, widths.
#include "support/char_records.h"

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
            byte_classes.push_back(uint16_t(im_iswctype(&loc, ko_wchar_t(c), 0xFFFF)));
        loc.exp.sb_ctype_table = byte_classes.data();
        clear();
    }
};

const ko_mchar_t *units(std::string_view text) { return mb(text.data()); }

// ---- Edge cases by row: a result is a place in the string, a count, or -1 ----------------------

using op = int (*)(ko_lc_t loc, const ko_mchar_t *s, const ko_mchar_t *other, int n);
int place(const ko_mchar_t *s, const ko_mchar_t *at) { return at ? int(at - s) : -1; }
const ko_mchar_t *after(const ko_mchar_t *s, int n) { return s ? s + n : s; }

int result(const ko_mchar_t *s, const ko_mchar_t *at) { return place(s, at); }
int result(const ko_mchar_t *, int value) { return value; }

using text_ptr = const ko_mchar_t *;
// Operations on a string, on one and a count, on two; on a string and a place in it.
template <auto f>
constexpr op on = [](ko_lc_t l, text_ptr s, text_ptr o, int n) {
    if constexpr (std::is_invocable_v<decltype(f), ko_lc_t, text_ptr>)
        return result(s, f(l, s));
    else if constexpr (std::is_invocable_v<decltype(f), ko_lc_t, text_ptr, int>)
        return result(s, f(l, s, n));
    else
        return result(s, f(l, s, o));
};
template <auto f>
constexpr op at =
    [](ko_lc_t l, text_ptr s, text_ptr, int n) { return result(s, f(l, s, after(s, n))); };
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
    {"prev past end",   at<ko_full_mbsprev>, set::euc,      "ab\0cd",              none,        5,  2,  99       },
    {"prev at start",   at<ko_full_mbsprev>, set::euc,      "ab",                  none,        0,  -1, KO_EPOS  },
    {"prev over bad",   at<ko_full_mbsprev>, set::euc,      "\xFFzz",              none,        2,  -1, KO_EILSEQ},
    {"get beyond",      on<ko_full_getmbsi>, set::euc,      aXz,                   none,        4,  -1, KO_EINDEX},
    {"get bad",         on<ko_full_getmbsi>, set::euc,      bad,                   none,        2,  -1, KO_EILSEQ},
    {"skip to end",     get_null,            set::euc,      aXz,                   none,        9,  4,  99       },
    {"offset second",   offset,              set::euc,      aXz,                   none,        2,  21, 99       },
    {"offset end",      offset,              set::euc,      aXz,                   none,        4,  10, 99       },
    {"offset behind",   offset,              set::euc,      "a\0b",                none,        2,  -1, KO_EINVAL},
    {"offset before",   offset,              set::euc,      aXz + 1,               none,        -1, -1, KO_EINVAL},
    {"offset end wide", offset,              set::two_byte, wide_ab,               none,        4,  20, 99       },
    {"kept wide space", on<ko_mbsntsbytes>,  set::euc,      "a \xA3\xA4 \xA1\xA1", none,        0,  4,  99       },
    {"kept bad",        on<ko_mbsntsbytes>,  set::euc,      bad,                   none,        0,  -1, KO_EILSEQ},
    {"spaces",          on<ko_mbsp>,         set::euc,      "a b  ",               none,        0,  3,  99       },
    {"spaces only",     on<ko_mbsp>,         set::bytes,    "  ",                  none,        0,  0,  99       },
    {"bytes bad",       on<ko_mbsbytes_nt>,  set::euc,      bad,                   none,        0,  -1, KO_EILSEQ},
    {"chr terminator",  on<ko_full_mbschr>,  set::euc,      aXz,                   "",          0,  4,  99       },
    {"chr before bad",  on<ko_full_mbschr>,  set::euc,      bad,                   "a",         0,  0,  99       },
    {"rchr bad",        on<ko_full_mbsrchr>, set::euc,      bad,                   "a",         0,  -1, KO_EILSEQ},
    {"chr of bad",      on<ko_full_mbschr>,  set::euc,      "a",                   "\xFF",      0,  -1, KO_EILSEQ},
    {"spn",             on<ko_full_mbsspn>,  set::euc,      aXz,                   "a\xA3\xA4", 0,  2,  99       },
    {"cspn empty set",  on<ko_full_mbscspn>, set::euc,      aXz,                   "",          0,  3,  99       },
    {"cspn bad set",    on<ko_full_mbscspn>, set::euc,      "",                    "\xFF",      0,  -1, KO_EILSEQ},
    {"cspn bad",        on<ko_full_mbscspn>, set::euc,      bad,                   "x",         0,  -1, KO_EILSEQ},
    {"pbrk",            on<ko_full_mbspbrk>, set::euc,      aXz,                   "xz",        0,  3,  99       },
    {"pbrk absent",     on<ko_full_mbspbrk>, set::euc,      aXz,                   "x",         0,  -1, 0        },
    {"sub bad",         on<ko_full_mbsmbs>,  set::euc,      bad,                   "b",         0,  -1, KO_EILSEQ},
    {"sub of bad",      on<ko_full_mbsmbs>,  set::euc,      "a",                   bad,         0,  -1, KO_EILSEQ},
    {"wide bad",        wide_len,            set::euc,      bad,                   none,        0,  -1, KO_EILSEQ},
    {"width",           on<ko_mbswidth>,     set::euc,      aXz,                   none,        9,  4,  99       },
    {"width none",      on<ko_mbswidth>,     set::euc,      "\t",                  none,        0,  0,  99       },
    {"width control",   on<ko_mbswidth>,     set::euc,      "a\tb",                none,        9,  -1, KO_EINVAL},
    {"width bad",       on<ko_mbswidth>,     set::euc,      bad,                   none,        9,  -1, KO_EINVAL},
    {"width no byte",   on<ko_mbswidth>,     set::bytes,    "a\x80",               none,        9,  -1, KO_EINVAL},
    {"pwidth inside",   at<ko_mbspwidth>,    set::euc,      aXz,                   none,        2,  -1, KO_EPOS  },
    {"pwidth behind",   at<ko_mbspwidth>,    set::euc,      "a\0\t",               none,        3,  1,  99       },
    {"pwidth before",   at<ko_mbspwidth>,    set::euc,      aXz + 1,               none,        -1, -1, KO_EPOS  },
};

} // namespace

TEST(Str, EdgeCasesByFlatTableAndByTree) {
    for (const auto &row : edges)
        for (const bool flat : {false, true}) {
            SCOPED_TRACE(std::string(row.what) + (flat ? " flat" : " tree"));
            text_record r(row.s, flat);
            set_error(r, 99);
            const ko_mchar_t *text = row.text ? mb(row.text) : nullptr;
            EXPECT_EQ(row.run(r, text, row.other ? mb(row.other) : nullptr, row.n), row.result);
            EXPECT_EQ(r.error(), row.error);
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

// A byte 0 ends a string although the table has characters that begin with it.
TEST(Str, ZeroBytesEndStringsWhateverTheTableSays) {
    for (const bool flat : {true, false}) {
        char_record r;
        for (unsigned c = 1; c < 0x80; ++c)
            r.add(c, 1);
        for (const unsigned wide : {0x41u, 0x78u, 0xE9u})
            r.add(wide, 2);
        r.add(0xE9, 1);
        r.add(0xA1A1, 2);
        r.finish(flat);
        const auto text = "\xA1\xA1\0Ax\0xx\0"sv;
        EXPECT_EQ(ko_full_mbschr(r, units(text), mb("x")), nullptr) << flat;
        EXPECT_EQ(ko_full_mbscspn(r, units(text), mb("x")), 1) << flat;
        ko_mchar_t out[4] = {};
        const ko_wchar_t wide[] = {0xE9, 0};
        EXPECT_EQ(ko_full_wcstombs(r, out, wide, 4), 1) << flat;
        EXPECT_EQ(out[0], 0xE9) << flat;
    }
}

// ---- Operations that write ---------------------------------------------------------------------

namespace {

using writer = ko_mchar_t *(*)(ko_lc_t, ko_mchar_t *dst, const ko_mchar_t *src, int n);
template <auto f>
constexpr writer copying = [](ko_lc_t l, ko_mchar_t *d, text_ptr s, int) { return f(l, d, s); };
constexpr writer cpy = copying<ko_full_mbscpy>, cat = copying<ko_full_mbscat>;
constexpr writer put = [](ko_lc_t l, ko_mchar_t *d, const ko_mchar_t *s, int n) {
    return ko_full_putmbsi(l, d, n, s);
};
constexpr writer trunc = [](ko_lc_t l, ko_mchar_t *d, const ko_mchar_t *, int) {
    return ko_mbsntstrunc(l, d);
};

// at: the place returned, -1: NULL
const std::tuple<const char *, writer, set, std::string_view, std::string_view, int, int,
                 std::string_view, int>
    writes[] = {
        {"cpy bad",        cpy,        set::euc,      "zzz",             bad,         0,  -1, "zzz",              KO_EILSEQ},
        {"cpy two-byte",   cpy,        set::two_byte, "zzzzz",           "\0a\0\0"sv, 0,  0,  "\0a\0\0z"sv,       0        },
        {"cat to bad",     cat,        set::euc,      "\xFF\0zz"sv,      "cd",        0,  -1, "\xFF\0zz"sv,       KO_EILSEQ},
        {"cat bad",        cat,        set::euc,      "ab\0zz"sv,        bad,         0,  -1, "ab\0zz"sv,         KO_EILSEQ},
        {"ncpy part",      ko_mbsncpy, set::euc,      "zzzzzz",          aXz,         2,  0,  "a\xA3\xA4\0zz"sv,  0        },
        {"ncpy below",     ko_mbsncpy, set::euc,      "zzz",             aXz,         -1, -1, "zzz",              KO_EINDEX},
        {"ncpy bad",       ko_mbsncpy, set::euc,      "zzz",             bad,         2,  -1, "zzz",              KO_EILSEQ},
        {"ncpy good part", ko_mbsncpy, set::euc,      "zzz",             bad,         1,  0,  "a\0z"sv,           0        },
        {"ncat",           ko_mbsncat, set::euc,      "a\0zzz"sv,        aXz,         2,  0,  "aa\xA3\xA4\0"sv,   0        },
        {"put longer",     put,        set::euc,      "abz\0z"sv,        "\xA3\xA4",  1,  1,  "a\xA3\xA4z\0"sv,   0        },
        {"put shorter",    put,        set::euc,      "a\xA3\xA4\0z"sv,  "b",         1,  1,  "ab\0\0z"sv,        0        },
        {"put null",       put,        set::euc,      "abz\0z"sv,        "",          1,  1,  "az\0\0z"sv,        0        },
        {"put at end",     put,        set::euc,      "ab\0z"sv,         "c",         2,  -1, "ab\0z"sv,          KO_EINDEX},
        {"put bad",        put,        set::euc,      "ab\0z"sv,         "\xFF",      0,  -1, "ab\0z"sv,          KO_EILSEQ},
        {"put before bad", put,        set::euc,      "ab\xFF\0z"sv,     "c",         0,  -1, "ab\xFF\0z"sv,      KO_EILSEQ},
        {"trunc",          trunc,      set::euc,      "a \xA1\xA1\0z"sv, "",          0,  0,  "a\0\xA1\xA1\0z"sv, 0        },
        {"trunc bad",      trunc,      set::euc,      " \xFF\0z"sv,      "",          0,  -1, " \xFF\0z"sv,       KO_EILSEQ},
        {"trunc two-byte", trunc,      set::two_byte, "\0a\0 \0\0"sv,    "",          0,  0,  "\0a\0\0\0\0"sv,    0        },
};

} // namespace

TEST(Str, WritesWhatFitsTheRow) {
    for (const auto &[what, run, s, before, src, n, place_of, want, error] : writes)
        for (const bool flat : {false, true}) {
            SCOPED_TRACE(std::string(what) + (flat ? " flat" : " tree"));
            text_record r(s, flat);
            std::string dst(before);
            auto *const at = reinterpret_cast<ko_mchar_t *>(dst.data());
            EXPECT_EQ(place(at, run(r, at, units(src), n)), place_of);
            EXPECT_EQ(dst, want);
            EXPECT_EQ(r.error(), error);
        }
}

TEST(Str, EachFailingAllocationIsTold) {
    text_record r(set::euc, true);
    std::string many; // more two-byte members than a set lists
    for (int c = 0; c < 60; ++c)
        many += {'\xA3', char(0xA1 + c)};
    const auto failing = [&](auto run) {
        return each_allocation_fails([&] {
            r.clear();
            const bool done = run();
            EXPECT_EQ(r.error(), done ? 0 : KO_ENOMEM);
            return done;
        });
    };
    const std::string twice = many + "\xA3\xDD" + many + "z", last = many + "z";
    for (const op run : {on<ko_full_mbsspn>, on<ko_full_mbscspn>, on<ko_full_mbspbrk>, wide_len})
        EXPECT_EQ(failing([&] { return run(r, mb("\xA3\xDA"), mb(many.c_str()), 0) >= 0; }), 1);
    ko_mchar_t text[8] = "abc";
    EXPECT_EQ(failing([&] { return ko_mbcreplace(r, text, mb("x")) != nullptr; }), 1);
    // A long search is only slower without memory.
    EXPECT_EQ(failing([&] {
                  EXPECT_EQ(on<ko_full_mbsmbs>(r, mb(twice.c_str()), mb(last.c_str()), 0), 122);
                  return true;
              }),
              1);
    EXPECT_EQ(on<ko_full_mbsspn>(r, mb(twice.c_str()), mb(many.c_str()), 0), 60);
}

// ---- Both twins on random strings --------------------------------------------------------------

namespace {

// A string (wide is a pointer) or a character (wide is its value) in both forms.
template <class Wide> struct forms {
    const ko_mchar_t *mb;
    Wide wide;
};
int of_bytes(int n) { return n; }
int of_wide(int n) { return n; }
template <class Wide> const ko_mchar_t *of_bytes(forms<Wide> of) { return of.mb; }
template <class Wide> Wide of_wide(forms<Wide> of) { return of.wide; }
using texts = forms<const ko_wchar_t *>;

struct sample {
    std::string bytes; // with the terminator
    std::vector<ko_wchar_t> wide;
    std::vector<int> starts; // of the characters, the terminator last
    texts from(size_t i) const { return {units(bytes) + starts[i], wide.data() + i}; }
    int index(int result) const { return result; }
    int index(const ko_mchar_t *at) const {
        const auto found = std::find(starts.begin(), starts.end(), place(units(bytes), at));
        return !at ? -1 : found == starts.end() ? -9 : int(found - starts.begin());
    }
    int index(const ko_wchar_t *at) const { return at ? int(at - wide.data()) : -1; }
};

unsigned below(std::mt19937 &random, unsigned n) { return unsigned(random() % n); }

// Few different characters, so that searches find something; spaces at the end; rarely a control.
sample random_sample(std::mt19937 &random, set s, unsigned longest, unsigned kinds) {
    sample made;
    const size_t chars = random() % longest;
    const auto add = [&](unsigned wide) {
        made.starts.push_back(int(made.bytes.size()));
        made.wide.push_back(ko_wchar_t(wide));
        if (wide > 0xFF || s == set::two_byte) made.bytes += char(wide >> 8);
        made.bytes += char(wide & 0xFF);
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
    const sample &text; // results are places in it
    std::vector<ko_mchar_t> bytes = std::vector<ko_mchar_t>(1000);
    std::vector<ko_wchar_t> wide = std::vector<ko_wchar_t>(500);

    // Runs both with an error word of 99 and compares results and error words.
    template <auto mb_form, auto wide_form> void same(const char *what, auto... args) {
        set_error(r, 99);
        const int got = text.index(mb_form(r, of_bytes(args)...));
        const int error = r.error();
        set_error(r, 99);
        EXPECT_EQ(got, text.index(wide_form(r, of_wide(args)...))) << what;
        EXPECT_EQ(error, r.error()) << what;
    }
    // Compares what both write.
    template <auto mb_form, auto wide_form> void same_text(const char *what, auto... args) {
        EXPECT_EQ(mb_form(r, bytes.data(), of_bytes(args)...), bytes.data()) << what;
        if constexpr (std::is_invocable_v<decltype(wide_form), ko_lc_t, ko_wchar_t *>)
            EXPECT_EQ(wide_form(r, wide.data()), wide.data());
        else
            EXPECT_EQ(wide_form(wide.data(), of_wide(args)...), wide.data());
        int len;
        ko_wchar_t *const copy = ko_mbstowcslen(r, bytes.data(), &len);
        EXPECT_TRUE(copy && std::equal(copy, copy + len + 1, wide.data())) << what;
        ko_destroystring(copy);
    }
};

void compare_twins(text_record &r, std::mt19937 &random, const sample &a, const sample &b) {
    twins t{r, a};
    const int n = int(random() % 30);
    const size_t i = random() % a.starts.size(), j = random() % b.starts.size();
    const texts as = a.from(0), ai = a.from(i), bs = b.from(0), bj = b.from(j);
    const forms<ko_wchar_t> c = {bj.mb, *bj.wide};
    t.same<ko_mbsntslen, ko_wcsntslen>("ntslen", as);
    t.same<ko_full_mbsspn, ko_wcsspn>("spn", as, bs);
    t.same<ko_full_mbscspn, ko_wcscspn>("cspn", as, bs);
    t.same<ko_full_mbspbrk, ko_wcspbrk>("pbrk", as, bs);
    t.same<ko_full_mbschr, ko_wcschr>("chr", as, c);
    t.same<ko_full_mbsrchr, ko_wcsrchr>("rchr", as, c);
    t.same<ko_mbswidth, ko_wcswidth>("width", as, n);
    t.same<ko_mbwidth, ko_wcwidth>("char width", c);
    t.same<ko_mbspwidth, ko_wcspwidth>("pwidth", as, ai);
    t.same_text<ko_full_mbscpy, ko_wcscpy>("cpy", as);
    t.same_text<ko_full_mbscat, ko_wcscat>("cat", bs);
    t.same_text<ko_mbsncat, ko_wcsncat>("ncat", as, n);
    t.same_text<ko_mbsntstrunc, ko_wcsntstrunc>("trunc");
    t.same_text<ko_mbsncpy, ko_wcsncpy>("ncpy", bs, n);
    for (const texts part : {ai, bj}) { // what is there, long or short, and what may be
        const auto end = a.wide.end() - 1;
        const auto found =
            std::search(a.wide.begin(), end, part.wide, part.wide + ko_wcslen(part.wide));
        const bool absent = found == end && *part.wide;
        const int want = absent ? -1 : int(found - a.wide.begin());
        EXPECT_EQ(a.index(ko_full_mbsmbs(r, as.mb, part.mb)), want);
        EXPECT_EQ(a.index(ko_wcswcs(r, as.wide, part.wide)), want);
        EXPECT_EQ(r.error(), 0);
    }
    // Places: each character is behind the one before it and holds its own bytes.
    EXPECT_EQ(ko_full_getmbsi(r, as.mb, int(i)), ai.mb);
    EXPECT_EQ(ko_full_mbsprev(r, as.mb, ai.mb), i ? as.mb + a.starts[i - 1] : nullptr);
    int len;
    EXPECT_EQ(ko_charoffset(r, as.mb, ai.mb, &len), 0);
}

} // namespace

TEST(StrTwins, AgreeOnRandomStrings) {
    std::mt19937 random(24);
    for (const set s : all_sets) {
        text_record flat(s, true), tree(s, false);
        for (int round = 0; round < 10000 && !testing::Test::HasFailure(); ++round) {
            SCOPED_TRACE(round);
            const unsigned kinds = round % 10 ? 2 + below(random, 5) : 60; // rows of many members
            const sample a = random_sample(random, s, 150, kinds);
            const sample b = random_sample(random, s, round % 10 ? 6 : 120, kinds);
            compare_twins(round % 2 ? flat : tree, random, a, b);
        }
    }
}

TEST(StrTwins, LongSearchesFallBackOverRepeats) {
    std::mt19937 random(25);
    text_record flat(set::euc, true), tree(set::euc, false);
    for (int round = 0; round < 2000; ++round) {
        std::string text;
        while (text.size() < 400)
            text.append(below(random, 9), 'a').append(below(random, 3), 'b');
        std::string part = text.substr(below(random, 300), 65 + below(random, 35));
        if (round % 2) part[60 + below(random, 5)] ^= 'a' ^ 'b';
        const int want = int(text.find(part)); // -1 where it is not
        EXPECT_EQ(
            on<ko_full_mbsmbs>(round % 4 < 2 ? flat : tree, mb(text.c_str()), mb(part.c_str()), 0),
            want);
    }
}
