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
    std::vector<ko_wchar_t> ab = wcs(u"ab"), ac = wcs(u"aC"), d = wcs(u"%d"), n = wcs(u"%^!n"),
                            text = wcs(u"%s");
    ko_tm_t day = {.tm_mday = 7, .tm_year = 100};

    samples() {
        file_hooks files;
        files.files["m\\own.cmo"] = "FILE_TYPE=charmap_object\nCOMPILER_VERSION=3\n"
                                    "HEADER_LENGTH=3\nEND\ns 0 NUL 1 00\ns 0 A 1 61\ns 0 B 1 62\n";
        ko_cache_registry(nullptr, "none");
        EXPECT_EQ(ko_cm_load(&cm, "own.cmo", nullptr, "m"), 0);
        table = static_cast<mb_decode *>(create_multi(2, 0, nullptr));
        EXPECT_EQ(insert(table, "\x81\x61") + insert(table, "\x81\x62"), 0);
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
        o.target_max = o.checks = target_max;
        for (const char *c : {"a", "b"})
            o.noshift.push_back({c, cv_plain, c});
        o.noshift.push_back({"\x0e", cv_plain | cv_substitute, "?"});
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
    const ko_cv_t cd = converter(kind % 4).handle;
    const int result = kind & 8    ? ko_mconvlen(cd, &st, &in, &left, &room, &sub)
                       : kind == 3 ? ko_cv_mconv(cd, &st, &in, &left, &out, &room, &sub)
                                   : ko_miconv(cd, &in, &left, &out, &room, &sub);
    EXPECT_EQ(n - int64_t{room}, 2 - left);
    return result ? -*ko_ext_errno(cd) : 0;
}

// Places and lengths as results.
int size_of(const ko_mchar_t *s) { return s ? int(strlen(text(s).c_str())) : none; }
int size_of(const ko_wchar_t *s) { return s ? ko_wcslen(s) : none; }
int sign(int n) { return (n > 0) - (n < 0); }
int found(const void *p) { return p ? 0 : none; }

ko_mchar_t *letters(ko_mchar_t *out) {
    memcpy(out, "ab", 3);
    return out;
}

// A call with the count in question, and room for that many units and some more.
struct sized_call {
    const char *name;
    int (*call)(samples &s, ko_lc_t loc, ko_mchar_t *out, ko_wchar_t *wide, int n);
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

// clang-format off
#define CALL []([[maybe_unused]] samples &s, [[maybe_unused]] ko_lc_t loc, [[maybe_unused]] ko_mchar_t *out, [[maybe_unused]] ko_wchar_t *wide, int n) -> int
const sized_call calls[] = {
    {"is_wcstombs",       CALL { return is_wcstombs(loc, out, s.ab.data(), n); },        0, 0, 0, 0, 1, 2},
    {"ko_full_wcstombs",  CALL { return ko_full_wcstombs(loc, out, s.ab.data(), n); },   0, 0, 0, 0, 1, 2},
    {"ko_full_mbtowc",    CALL { return ko_full_mbtowc(loc, nullptr, mb("a"), n); }, 0, none, none, none, 1, 1},
    {"ko_full_getmbsi",   CALL { return found(ko_full_getmbsi(loc, letters(out), n)); }, 3, none, none, 0, 0, none},
    {"ko_full_putmbsi",   CALL { return found(ko_full_putmbsi(loc, letters(out), n, mb("c"))); }, 3, none, none, 0, 0, none},
    {"ko_mbsncpy",        CALL { return size_of(ko_mbsncpy(loc, out, mb("ab"), n)); }, 1, none, none, 0, 1, 2},
    {"ko_mbsncat",        CALL { return size_of(ko_mbsncat(loc, letters(out), mb("ab"), n)); }, 3, none, none, 2, 3, 4},
    {"ko_mbswidth",       CALL { return ko_mbswidth(s.mixed, mb("ab"), n); }, 0, none, none, 0, 1, 2},
    {"ko_full_mbsncmp",   CALL { return ko_full_mbsncmp(loc, mb("ab"), mb("aC"), n); }, 0, 0, 0, 0, 0, 'b' - 'C'},
    {"ko_full_mbsxfrm",   CALL { return ko_full_mbsxfrm(loc, out, mb(""), n) >= 0; }, 0, 1, 1, 1, 1, 1},
    {"ko_wcsxfrm",        CALL { return ko_wcsxfrm(loc, out, s.ab.data(), n) > 1; },     0, 1, 1, 1, 1, 1},
    {"thaismoxfrm",       CALL { return thaismoxfrm(loc, letters(out), out, n); }, 3, 2, 2, 2, 2, 2},
    {"ko_mbsfnum",        CALL { return ko_mbsfnum(loc, out, n, mb("%d"), 7) * (n < 64); }, 1, none, none, none, 1, 0},
    {"with nothing",      CALL { return ko_mbsfnum(s.bytes, out, n, mb("%s"), mb("")); }, 1, 0, 0, 0, 0, 0},
    {"and wide",          CALL { return ko_wcsfnum(loc, wide, n, s.text.data(), mb("")); },  1, 0, 0, 0, 0, 0},
    {"width of a number", CALL { return ko_mbsfnum(s.bytes, out, 8, mb("%*d"), n, 7); }, 9, none, 1, 1, 1, none},
    {"its precision",     CALL { return ko_mbsfnum(s.bytes, out, 8, mb("%.*d"), n, 7); }, 9, 1, 1, 1, 1, none},
    {"of a real",         CALL { return ko_mbsfnum(s.bytes, out, 8, mb("%.*f"), n, 7.); }, 9, 8, 8, 1, 3, none},
    {"ko_mbsfmon",        CALL { return ko_mbsfmon(loc, out, n, mb("%^!n"), 7.); }, 1, none, none, none, none, none},
    {"ko_mbsftime",       CALL { return ko_mbsftime(s.bytes, out, n, mb("%d"), &s.day); }, 0, 0, 0, 0, 0, 0},
    {"ko_mbsfmtexpand",   CALL { return ko_mbsfmtexpand(loc, n, mb("%d")); }, 0, none, none, none, 2, none},
    {"ko_getcentury, month", CALL { return ko_getcentury(loc, n, 1, 1, 'F') < 0; }, 0, 1, 1, 0, 0, 1},
    {"and day",           CALL { return ko_getcentury(loc, 1, n, 1, 'P') < 0; }, 0, 1, 1, 0, 0, 1},
    {"and year",          CALL { return ko_getcentury(loc, 1, 1, n, 'C') < 0; }, 0, 1, 0, 0, 0, 0},
    {"ko_ltombs",         CALL { return ko_ltombs(loc, out, n, 7, 10, 1); },    256, 0, 0, 0, 1, 1},
    {"and base",          CALL { return ko_ltombs(loc, out, 9, INT_MIN, n, 0); }, 256, 0, 0, 0, 0, 0},
    {"ko_mbstol, base",   CALL { return int(ko_mbstol(loc, mb("1"), nullptr, n, 0)); }, 0, 0, 0, 1, 0, 0},
    {"ko_nl_langinfo",    CALL { return found(ko_nl_langinfo(loc, unsigned(n))); }, 0, none, none, 0, 0, none},
    {"ko_case_conv_outbuflen", CALL { return sign(ko_case_conv_outbuflen(loc, n)); }, 0, -1, -1, 0, 1, 1},
    {"ko_cv_outbuflen",   CALL { return ko_cv_outbuflen(converter(0).handle, n); }, 0, 0, 0, 0, 1, itself},
    {"bytes converted",   CALL { return converted(0, out, n); },     0, -14, -14, -14, -14, 0},
    {"characters",        CALL { return converted(1, out, n); },     0, -14, -14, -14, -14, 0},
    {"of four bytes",     CALL { return converted(2, out, n); },     0, -14, -14, -14, -14, 0},
    {"with states",       CALL { return converted(3, out, n); },     0, -14, -14, -14, -14, 0},
    {"measured bytes",    CALL { return converted(8, out, n); },     0, -14, -14, -14, -14, 0},
    {"and characters",    CALL { return converted(9, out, n); },     0, -14, -14, -14, -14, 0},
    {"and with states",   CALL { return converted(11, out, n); },    0, -14, -14, -14, -14, 0},
    {"ko_add_cvfns",      CALL { return added(n); },      0, 0, 0, 1, 1, 0},
    {"ko_mbstosyms",      CALL { return symbols(s, out, n, 2); },             0, none, none, none, 1, 7},
    {"and its count",     CALL { return symbols(s, out, 9, n < 2 ? n : 2); },  9, 7, 7, 7, 4, 7},
    {"ko_wcstosyms",      CALL { const ko_wchar_t *in = s.ab.data(); return ko_wcstosyms(s.cm, reinterpret_cast<char *>(out), 9, &in, n < 2 ? n : 2); }, 9, 7, 7, 7, 4, 7},
    {"ko_mbtosymlist",    CALL { return ko_mbtosymlist(s.cm, reinterpret_cast<char *>(out), n, mb("a"), 1); }, 0, none, none, none, 1, 4},
    {"and its length",    CALL { return ko_mbtosymlist(s.cm, reinterpret_cast<char *>(out), 9, mb("a"), n); }, 9, none, none, none, 4, none},
    {"ko_symstombs",      CALL { const char *in = "<A>"; return ko_symstombs(s.cm, out, n, &in); }, 0, none, none, none, none, 2},
    {"ko_cm_mblen",       CALL { return ko_cm_mblen(s.cm, mb("a"), n); }, 0, none, none, none, 1, 1},
    {"retrieve_text_multi_limit", CALL { int len; return found(retrieve_text_multi_limit(mb("\x81" "a"), s.table, n, &len, nullptr)); }, 0, none, none, none, none, 0},
    {"retrieve_text_doub_limit", CALL { return found(retrieve_text_doub_limit(mb("\x81" "a"), s.table, n, nullptr)); }, 0, none, none, none, none, 0},
    {"insert_desc_multi", CALL { const char_desc c = {unsigned(n), {'c'}}; return insert_desc_multi(&c, nullptr, s.table); }, 0, none, none, none, 0, none},
    {"retrieve_desc_multi", CALL { const char_desc c = {unsigned(n), {'c'}}; return found(retrieve_desc_multi(&c, s.table)); }, 0, none, none, none, 0, none},
    {"create_multi",      CALL { void *const t = create_multi(unsigned(n), 0, nullptr); free_multi(t); return found(t); }, 0, none, none, 0, 0, none},
    {"ko_setextfunc",     CALL { return ko_setextfunc(loc, n, nullptr); }, 0, none, none, 0, 0, none},
    {"ko_make_null_category", CALL { return ko_make_null_category(fresh(), n); }, 0, none, none, none, none, none},
    {"ko_free_category",  CALL { return ko_free_category(fresh(), n), 0; }, 0, 0, 0, 0, 0, 0},
    {"ko_copy_cat",       CALL { return ko_copy_cat(fresh(), loc, n); }, 0, none, none, none, 0, none},
    {"ko_setlocale_2",    CALL { char *const t = ko_setlocale_2(loc, n, nullptr); ko_destroystring(t); return found(t); }, 0, none, none, none, 0, none},
    {"is_mbstowcs",       CALL { return is_mbstowcs(loc, wide, mb("ab"), n); },  0, 0, 0, 0, 1, 2},
    {"im_mbstowcs",       CALL { return im_mbstowcs(loc, wide, mb("ab"), n); },  0, 0, 0, 0, 1, 2},
    {"ko_wcsncpy",        CALL { return size_of(ko_wcsncpy(wide, s.ab.data(), n)); }, 1, none, none, 0, 1, 2},
    {"ko_wcsncat",        CALL { *wide = 0; return size_of(ko_wcsncat(wide, s.ab.data(), n)); }, 1, none, none, 0, 1, 2},
    {"ko_wcswidth",       CALL { return ko_wcswidth(s.mixed, s.ab.data(), n); }, 0, none, none, 0, 1, 2},
    {"ko_wcsncmp",        CALL { return ko_wcsncmp(s.ab.data(), s.ac.data(), n); }, 0, 0, 0, 0, 0, 'b' - 'C'},
    {"ko_wcspre",         CALL { return ko_wcspre(loc, s.ab.data(), 2, s.ab.data(), n); }, 0, 1, 1, 1, 1, 0},
    {"ko_wcspre, text",   CALL { return ko_wcspre(loc, s.ab.data(), n, s.ab.data(), 1); }, 0, 0, 0, 0, 1, 1},
    {"ko_wcsfnum",        CALL { return ko_wcsfnum(loc, wide, n, s.d.data(), 7); },       1, none, none, none, 1, 1},
    {"ko_wcsfmon",        CALL { return ko_wcsfmon(loc, wide, n, s.n.data(), 7.) > 1; },  1, 0, 0, 0, 0, 1},
    {"ko_wcsftime",       CALL { return ko_wcsftime(loc, wide, n, s.d.data(), &s.day); }, 0, 0, 0, 0, 0, 2},
    {"ko_wcsfmtexpand",   CALL { return ko_wcsfmtexpand(loc, n, s.d.data()); }, 0, none, none, none, 2, none},
    {"ko_ltowcs",         CALL { return ko_ltowcs(loc, wide, n, 7, 10, 1), ko_wcslen(wide); }, 9, 0, 0, 0, 1, 1},
    {"ko_symstowcs",      CALL { const char *in = "<A>"; return ko_symstowcs(s.cm, wide, n, &in); }, 0, none, none, none, none, 2},
};
// clang-format on

// Blocks of ordinary size alone.
void *small_blocks(size_t size) { return size > 1 << 20 ? nullptr : malloc(size); }

void run(samples &s, int n) {
    // Where an address has 32 bits, no room of so many wide characters exists.
    if (n > 0 && size_t(n) > PTRDIFF_MAX / sizeof(ko_wchar_t)) return;
    static guarded_block block, wide_block;
    const installed_hooks hook{std::pair(KO_EXT_MALLOC, as_hook(small_blocks))};
    for (const auto &c : calls)
        for (const ko_lc_t loc : {ko_lc_t(s.bytes), ko_lc_t(s.mixed)}) {
            SCOPED_TRACE(std::string(c.name) + " with " + std::to_string(n));
            const auto room = size_t(std::clamp(n, 0, 64) + c.more);
            auto *const out = block.room<ko_mchar_t>(room);
            auto *const wide_out = wide_block.room<ko_wchar_t>(room);
            memset(out, 0xAA, room);
            memset(wide_out, 0xAA, 2 * room);
            const int want = n < -1   ? c.least
                             : n < 0  ? c.minus_one
                             : n == 0 ? c.zero
                             : n == 1 ? c.one
                                      : c.most;
            EXPECT_EQ(c.call(s, loc, out, wide_out, n), want == itself ? n : want);
        }
}

} // namespace

TEST(Counts, AreHeldToTheirRangeInEveryCall) {
    samples s;
    ko_set_current_time(0, "", 1, 1, 2000);
    for (int n = INT_MIN; n < INT_MIN + 10; ++n)
        run(s, n);
    for (const int n : {-1, 0, 1, INT_MAX - 1, INT_MAX})
        run(s, n);
    ko_reset_time(0, "");
}
