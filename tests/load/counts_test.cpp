// Counts, sizes and lengths from a caller, at both ends of their range: every call that takes one
// gives the result that its declaration states and touches no more than the room it was given.
#include "support/conversion_builder.h"
#include "support/locale_builder.h"

#include <limits.h>

namespace {

constexpr int none = -1, itself = INT_MIN; // results; itself: the count

struct samples {
    loaded_locale bytes{single_byte_object()}, mixed{double_byte_object(false)};
    ko_cm_t cm = nullptr;
    mb_decode *table;
    std::vector<ko_wchar_t> ab = wcs(u"ab"), ac = wcs(u"aC"), d = wcs(u"%d"), n = wcs(u"%^!n");
    ko_tm_t day = {.tm_mday = 7, .tm_year = 100};

    samples() {
        file_hooks files;
        files.files["m\\own.cmo"] = "FILE_TYPE=charmap_object\nCOMPILER_VERSION=3\n"
                                    "HEADER_LENGTH=3\nEND\ns 0 NUL 1 00\ns 0 A 1 61\ns 0 B 1 62\n";
        ko_cache_registry(nullptr, "none");
        EXPECT_EQ(ko_cm_load(&cm, "own.cmo", nullptr, "m"), 0);
        table = static_cast<mb_decode *>(create_multi(2, 0, nullptr));
        for (const ko_mchar_t *last : {mb("a"), mb("b")}) {
            const char_desc pair = {
                2, {0x81, *last}
            };
            EXPECT_EQ(insert_desc_multi(&pair, nullptr, table), 0);
        }
    }
    ~samples() {
        ko_cm_unload(cm);
        free_multi(table);
    }
    samples(const samples &) = delete;
};

cv_record &converter(int kind) {
    static const auto object = [](int target_max) {
        cv_object o;
        o.target_max = target_max;
        for (const char *c : {"a", "b"})
            o.noshift.push_back({c, cv_plain, c});
        o.noshift.push_back({"\x0e", cv_plain | cv_substitute, "?"});
        o.checks = target_max;
        return o;
    };
    static cv_object shifted = object(2);
    shifted.target_stateful = 1;
    static cv_record all[] = {cv_record{object(1).str()}, cv_record{object(2).str()},
                              cv_record{object(4).str()}, cv_record{shifted.str()}};
    return all[kind];
}

// Converts "ab" into a room; with 8 added to the kind it is only measured.
int converted(int kind, ko_mchar_t *out, int n) {
    const ko_mchar_t *in = mb("ab");
    int left = 2, room = n, sub;
    conv_state st = {1, 1, 0, 0, nullptr};
    const ko_cv_t cd = converter(kind % 4).cd;
    const int result = kind & 8    ? ko_mconvlen(cd, &st, &in, &left, &room, &sub)
                       : kind == 3 ? ko_cv_mconv(cd, &st, &in, &left, &out, &room, &sub)
                                   : ko_miconv(cd, &in, &left, &out, &room, &sub);
    EXPECT_EQ(n - int64_t{room}, 2 - left);
    return result ? -*ko_ext_errno(cd) : 0;
}

// Places and lengths as results.
int size_of(const ko_mchar_t *s) { return s ? static_cast<int>(strlen(text(s).c_str())) : none; }
int size_of(const ko_wchar_t *s) { return s ? ko_wcslen(s) : none; }
int sign(int n) { return (n > 0) - (n < 0); }
int found(const void *p) { return p ? 0 : none; }

ko_mchar_t *letters(ko_mchar_t *out) {
    memcpy(out, "ab", 3);
    return out;
}

using bytes_out = ko_mchar_t *;
using wides_out = ko_wchar_t *;

// A call with the count in question, and room for that many units and some more.
template <class Out> struct sized_call {
    const char *name;
    int (*call)(samples &s, ko_lc_t loc, Out out, int n);
    int more;
    int least, minus_one, zero, one, most; // results
};

ko_lc_t fresh() {
    static ko_lc_t loc;
    ko_lc_unload(loc);
    ko_create_null_locale_2(&loc);
    return loc;
}

int symbols(samples &s, ko_mchar_t *out, int size, int count) {
    const ko_mchar_t *in = mb("ab");
    return ko_mbstosyms(s.cm, reinterpret_cast<char *>(out), size, &in, count);
}

int added(int used) {
    const ko_cv_funcdef def = {"a", "b", nullptr, 1, 1, 2, 2, 2.0f};
    ko_cvfns list = {used, 0, static_cast<ko_cv_funcdef *>(ko_ext_malloc(sizeof def))};
    const bool grown = ko_add_cvfns(&list, &def)->num_used != used;
    ko_ext_free(list.funcdef_arr);
    return grown;
}

#define BYTES [](samples & s, ko_lc_t loc, bytes_out out, int n) -> int
#define WIDES [](samples & s, ko_lc_t loc, wides_out out, int n) -> int

// clang-format off
const sized_call<bytes_out> byte_calls[] = {
    {"is_wcstombs",       BYTES { return is_wcstombs(loc, out, s.ab.data(), n); },        0, 0, 0, 0, 1, 2},
    {"ko_full_wcstombs",  BYTES { return ko_full_wcstombs(loc, out, s.ab.data(), n); },   0, 0, 0, 0, 1, 2},
    {"ko_full_mbtowc",    BYTES { return (void)s, (void)out, ko_full_mbtowc(loc, nullptr, mb("a"), n); }, 0, none, none, none, 1, 1},
    {"ko_full_getmbsi",   BYTES { return (void)s, found(ko_full_getmbsi(loc, letters(out), n)); }, 3, none, none, 0, 0, none},
    {"ko_full_putmbsi",   BYTES { return (void)s, found(ko_full_putmbsi(loc, letters(out), n, mb("c"))); }, 3, none, none, 0, 0, none},
    {"ko_mbsncpy",        BYTES { return (void)s, size_of(ko_mbsncpy(loc, out, mb("ab"), n)); }, 1, none, none, 0, 1, 2},
    {"ko_mbsncat",        BYTES { return (void)s, size_of(ko_mbsncat(loc, letters(out), mb("ab"), n)); }, 3, none, none, 2, 3, 4},
    {"ko_mbswidth",       BYTES { return (void)loc, (void)out, ko_mbswidth(s.mixed, mb("ab"), n); }, 0, none, none, 0, 1, 2},
    {"ko_full_mbsncmp",   BYTES { return (void)s, (void)out, ko_full_mbsncmp(loc, mb("ab"), mb("aC"), n); }, 0, 0, 0, 0, 0, 'b' - 'C'},
    {"ko_full_mbsxfrm",   BYTES { return (void)s, ko_full_mbsxfrm(loc, out, mb(""), n) >= 0; }, 0, 1, 1, 1, 1, 1},
    {"ko_wcsxfrm",        BYTES { return ko_wcsxfrm(loc, out, s.ab.data(), n) > 1; },     0, 1, 1, 1, 1, 1},
    {"thaismoxfrm",       BYTES { return (void)s, thaismoxfrm(loc, letters(out), out, n); }, 3, 2, 2, 2, 2, 2},
    {"ko_mbsfnum",        BYTES { return (void)s, ko_mbsfnum(loc, out, n, mb("%d"), 7) * (n < 64); }, 1, none, none, none, 1, 0},
    {"width of a number", BYTES { return (void)s, (void)loc, ko_mbsfnum(s.bytes, out, 8, mb("%*d"), n, 7); }, 9, none, 1, 1, 1, none},
    {"its precision",     BYTES { return (void)s, (void)loc, ko_mbsfnum(s.bytes, out, 8, mb("%.*d"), n, 7); }, 9, 1, 1, 1, 1, none},
    {"of a real",         BYTES { return (void)s, (void)loc, ko_mbsfnum(s.bytes, out, 8, mb("%.*f"), n, 7.); }, 9, 8, 8, 1, 3, none},
    {"ko_mbsfmon",        BYTES { return (void)s, ko_mbsfmon(loc, out, n, mb("%^!n"), 7.); }, 1, none, none, none, none, none},
    {"ko_mbsftime",       BYTES { return (void)loc, ko_mbsftime(s.bytes, out, n, mb("%d"), &s.day); }, 0, 0, 0, 0, 0, 0},
    {"ko_mbsfmtexpand",   BYTES { return (void)s, (void)out, ko_mbsfmtexpand(loc, n, mb("%d")); }, 0, none, none, none, 2, none},
    {"ko_getcentury, month", BYTES { return (void)s, (void)out, ko_getcentury(loc, n, 1, 1, 'F') < 0; }, 0, 1, 1, 0, 0, 1},
    {"and day",           BYTES { return (void)s, (void)out, ko_getcentury(loc, 1, n, 1, 'P') < 0; }, 0, 1, 1, 0, 0, 1},
    {"and year",          BYTES { return (void)s, (void)out, ko_getcentury(loc, 1, 1, n, 'C') < 0; }, 0, 1, 0, 0, 0, 0},
    {"ko_ltombs",         BYTES { return (void)s, ko_ltombs(loc, out, n, 7, 10, 1); },    256, 0, 0, 0, 1, 1},
    {"and base",          BYTES { return (void)s, ko_ltombs(loc, out, 9, INT_MIN, n, 0); }, 256, 0, 0, 0, 0, 0},
    {"ko_mbstol, base",   BYTES { return (void)s, (void)out, static_cast<int>(ko_mbstol(loc, mb("1"), nullptr, n, 0)); }, 0, 0, 0, 1, 0, 0},
    {"ko_nl_langinfo",    BYTES { return (void)s, (void)out, found(ko_nl_langinfo(loc, static_cast<unsigned>(n))); }, 0, none, none, 0, 0, none},
    {"ko_case_conv_outbuflen", BYTES { return (void)s, (void)out, sign(ko_case_conv_outbuflen(loc, n)); }, 0, -1, -1, 0, 1, 1},
    {"ko_cv_outbuflen",   BYTES { return (void)s, (void)loc, (void)out, ko_cv_outbuflen(converter(0).cd, n); }, 0, 0, 0, 0, 1, itself},
    {"bytes converted",   BYTES { return (void)s, (void)loc, converted(0, out, n); },     0, -14, -14, -14, -14, 0},
    {"characters",        BYTES { return (void)s, (void)loc, converted(1, out, n); },     0, -14, -14, -14, -14, 0},
    {"of four bytes",     BYTES { return (void)s, (void)loc, converted(2, out, n); },     0, -14, -14, -14, -14, 0},
    {"with states",       BYTES { return (void)s, (void)loc, converted(3, out, n); },     0, -14, -14, -14, -14, 0},
    {"measured bytes",    BYTES { return (void)s, (void)loc, converted(8, out, n); },     0, -14, -14, -14, -14, 0},
    {"and characters",    BYTES { return (void)s, (void)loc, converted(9, out, n); },     0, -14, -14, -14, -14, 0},
    {"and with states",   BYTES { return (void)s, (void)loc, converted(11, out, n); },    0, -14, -14, -14, -14, 0},
    {"ko_add_cvfns",      BYTES { return (void)s, (void)loc, (void)out, added(n); },      0, 0, 0, 1, 1, 0},
    {"ko_mbstosyms",      BYTES { return (void)loc, symbols(s, out, n, 2); },             0, none, none, none, 1, 7},
    {"and its count",     BYTES { return (void)loc, symbols(s, out, 9, n < 2 ? n : 2); },  9, 7, 7, 7, 4, 7},
    {"ko_wcstosyms",      BYTES { const ko_wchar_t *in = s.ab.data(); return (void)loc, ko_wcstosyms(s.cm, reinterpret_cast<char *>(out), 9, &in, n < 2 ? n : 2); }, 9, 7, 7, 7, 4, 7},
    {"ko_mbtosymlist",    BYTES { return (void)loc, ko_mbtosymlist(s.cm, reinterpret_cast<char *>(out), n, mb("a"), 1); }, 0, none, none, none, 1, 4},
    {"and its length",    BYTES { return (void)loc, ko_mbtosymlist(s.cm, reinterpret_cast<char *>(out), 9, mb("a"), n); }, 9, none, none, none, 4, none},
    {"ko_symstombs",      BYTES { const char *in = "<A>"; return (void)loc, ko_symstombs(s.cm, out, n, &in); }, 0, none, none, none, none, 2},
    {"ko_cm_mblen",       BYTES { return (void)loc, (void)out, ko_cm_mblen(s.cm, mb("a"), n); }, 0, none, none, none, 1, 1},
    {"retrieve_text_multi_limit", BYTES { int len; return (void)loc, (void)out, found(retrieve_text_multi_limit(mb("\x81" "a"), s.table, n, &len, nullptr)); }, 0, none, none, none, none, 0},
    {"retrieve_text_doub_limit", BYTES { return (void)loc, (void)out, found(retrieve_text_doub_limit(mb("\x81" "a"), s.table, n, nullptr)); }, 0, none, none, none, none, 0},
    {"insert_desc_multi", BYTES { const char_desc c = {static_cast<unsigned>(n), {'c'}}; return (void)loc, (void)out, insert_desc_multi(&c, nullptr, s.table); }, 0, none, none, none, 0, none},
    {"retrieve_desc_multi", BYTES { const char_desc c = {static_cast<unsigned>(n), {'c'}}; return (void)loc, (void)out, found(retrieve_desc_multi(&c, s.table)); }, 0, none, none, none, 0, none},
    {"create_multi",      BYTES { void *const t = create_multi(static_cast<unsigned>(n), 0, nullptr); free_multi(t); return (void)s, (void)loc, (void)out, found(t); }, 0, none, none, 0, 0, none},
    {"ko_setextfunc",     BYTES { return (void)s, (void)out, ko_setextfunc(loc, n, nullptr); }, 0, none, none, 0, 0, none},
    {"ko_make_null_category", BYTES { return (void)s, (void)loc, (void)out, ko_make_null_category(fresh(), n); }, 0, none, none, none, none, none},
    {"ko_free_category",  BYTES { return (void)s, (void)loc, (void)out, ko_free_category(fresh(), n), 0; }, 0, 0, 0, 0, 0, 0},
    {"ko_copy_cat",       BYTES { return (void)s, (void)out, ko_copy_cat(fresh(), loc, n); }, 0, none, none, none, 0, none},
    {"ko_setlocale_2",    BYTES { char *const t = ko_setlocale_2(loc, n, nullptr); ko_destroystring(t); return (void)s, (void)out, found(t); }, 0, none, none, none, 0, none},
};
const sized_call<wides_out> wide_calls[] = {
    {"is_mbstowcs",       WIDES { return (void)s, is_mbstowcs(loc, out, mb("ab"), n); },  0, 0, 0, 0, 1, 2},
    {"im_mbstowcs",       WIDES { return (void)s, im_mbstowcs(loc, out, mb("ab"), n); },  0, 0, 0, 0, 1, 2},
    {"ko_wcsncpy",        WIDES { return (void)loc, size_of(ko_wcsncpy(out, s.ab.data(), n)); }, 1, none, none, 0, 1, 2},
    {"ko_wcsncat",        WIDES { *out = 0; return (void)loc, size_of(ko_wcsncat(out, s.ab.data(), n)); }, 1, none, none, 0, 1, 2},
    {"ko_wcswidth",       WIDES { return (void)out, (void)loc, ko_wcswidth(s.mixed, s.ab.data(), n); }, 0, none, none, 0, 1, 2},
    {"ko_wcsncmp",        WIDES { return (void)out, (void)loc, ko_wcsncmp(s.ab.data(), s.ac.data(), n); }, 0, 0, 0, 0, 0, 'b' - 'C'},
    {"ko_wcspre",         WIDES { return (void)out, ko_wcspre(loc, s.ab.data(), 2, s.ab.data(), n); }, 0, 1, 1, 1, 1, 0},
    {"ko_wcspre, text",   WIDES { return (void)out, ko_wcspre(loc, s.ab.data(), n, s.ab.data(), 1); }, 0, 0, 0, 0, 1, 1},
    {"ko_wcsfnum",        WIDES { return ko_wcsfnum(loc, out, n, s.d.data(), 7); },       1, none, none, none, 1, 1},
    {"ko_wcsfmon",        WIDES { return ko_wcsfmon(loc, out, n, s.n.data(), 7.) > 1; },  1, 0, 0, 0, 0, 1},
    {"ko_wcsftime",       WIDES { return ko_wcsftime(loc, out, n, s.d.data(), &s.day); }, 0, 0, 0, 0, 0, 2},
    {"ko_wcsfmtexpand",   WIDES { return (void)out, ko_wcsfmtexpand(loc, n, s.d.data()); }, 0, none, none, none, 2, none},
    {"ko_ltowcs",         WIDES { return (void)s, ko_ltowcs(loc, out, n, 7, 10, 1), ko_wcslen(out); }, 9, 0, 0, 0, 1, 1},
    {"ko_symstowcs",      WIDES { const char *in = "<A>"; return (void)loc, ko_symstowcs(s.cm, out, n, &in); }, 0, none, none, none, none, 2},
};
// clang-format on

// Blocks of ordinary size alone.
void *small_blocks(size_t size) { return size > 1 << 20 ? nullptr : malloc(size); }

template <class Out, size_t count>
void run(samples &s, const sized_call<Out> (&calls)[count], int n) {
    static guarded_block block;
    const ko_lc_t both[] = {s.bytes, s.mixed};
    for (const auto &c : calls)
        for (const ko_lc_t loc : both) {
            // Where an address has 32 bits, no room of so many wide characters exists.
            if (n > 0 && static_cast<size_t>(n) > PTRDIFF_MAX / sizeof(std::remove_pointer_t<Out>))
                continue;
            SCOPED_TRACE(std::string(c.name) + " with " + std::to_string(n));
            const int room = n < 0 ? 0 : n > 64 ? 64 : n;
            const auto out =
                block.room<std::remove_pointer_t<Out>>(static_cast<size_t>(room + c.more));
            memset(out, 0xAA, static_cast<size_t>(room + c.more) * sizeof *out);
            ko_setextfunc(nullptr, KO_EXT_MALLOC, reinterpret_cast<ko_extfn_t>(small_blocks));
            const int got = c.call(s, loc, out, n);
            ko_setextfunc(nullptr, KO_EXT_MALLOC, nullptr);
            const int want = n < -1   ? c.least
                             : n < 0  ? c.minus_one
                             : n == 0 ? c.zero
                             : n == 1 ? c.one
                                      : c.most;
            EXPECT_EQ(got, want == itself ? n : want);
        }
}

} // namespace

TEST(Counts, AreHeldToTheirRangeInEveryCall) {
    samples s;
    ko_set_current_time(0, "", 1, 1, 2000);
    for (int n = INT_MIN; n < INT_MIN + 10; ++n)
        run(s, byte_calls, n), run(s, wide_calls, n);
    for (const int n : {-1, 0, 1, INT_MAX - 1, INT_MAX})
        run(s, byte_calls, n), run(s, wide_calls, n);
    ko_reset_time(0, "");
}
