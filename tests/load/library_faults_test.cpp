// Faults in every exported call: each allocation, each call of a stream hook and each call of the
// kernel fails in turn. A call that fails says so; one that succeeds answers as it does without a
// fault; nothing is left. Calls that take neither memory nor files are rows, too, so that one that
// begins to is noticed.
#include "faults/fault_plan.h"
#include "kova_host.h"
#include "support/locale_builder.h"
#include "support/rows.h"

#include <errno.h>
#include <stdarg.h>
#include <string.h>

#include <algorithm>
#include <span>
#include <sstream>
#include <tuple>

namespace {

// What a call without a result gives.
struct nothing {};
template <class T> T operator,(T result, nothing) { return result; }

// What a call works on, and what it gave: without memory of its own, so that a fault is the call's.
struct room {
    ko_lc_t loc; // a record in whose code set the texts are, or NULL
    bool wide;   // its characters have two bytes each
    const char *dir;
    ko_mchar_t texts[3000] = {}, out[1500] = {};
    ko_wchar_t wides[1500] = {}, wout[800] = {};
    size_t text_at = 0, wide_at = 0;
    uint16_t date[3] = {};
    int count = 0;
    uint64_t answer = 0xcbf29ce484222325u;
    int error = 0;      // the number with which a call failed
    bool exact = false; // the number says why
    bool wrote = false; // to the file

    room(ko_lc_t record, const char *in)
        : loc(record), wide(record && ko_mb_loc_min(record) == 2), dir(in) {
        for (size_t i = 0; i < 5; ++i)
            wout[i] = out[i << wide | wide] = ko_mchar_t("ab cd"[i]);
    }
    ko_mchar_t *m(const char *text) { // in the code set
        ko_mchar_t *const made = texts + text_at;
        for (; *text; ++text) {
            text_at += wide;
            texts[text_at++] = ko_mchar_t(*text);
        }
        text_at += 40;
        return made;
    }
    ko_wchar_t *w(const char *text) {
        ko_wchar_t *const made = wides + wide_at;
        while (*text)
            wides[wide_at++] = ko_wchar_t(*text++);
        wide_at += 20;
        return made;
    }
    char *name() { return reinterpret_cast<char *>(out); }
    void add(const void *bytes, size_t size) {
        for (size_t i = 0; i < size; ++i)
            answer = (answer ^ static_cast<const unsigned char *>(bytes)[i]) * 0x100000001b3u;
    }
    void add(const char *text) { add(text ? text : "null", text ? strlen(text) + 1 : 4); }
    template <class T> void took(T result) { // of a pointer, whether it is one
        if constexpr (std::is_empty_v<T>)
            return;
        else if constexpr (std::is_pointer_v<T>)
            add(result ? "there" : "null");
        else
            add(&result, sizeof result);
    }
    void fail(int number) {
        if (number && !error) error = number;
    }
    bool done(int number) { // of a call that answers with an error
        exact = true;
        fail(number);
        return !number;
    }
    int64_t length(int64_t result) { // of a call that answers with a length or an error
        exact = true;
        if (result < 0) fail(int(-result));
        return result;
    }
};

struct row {
    const char *names;
    void (*call)(room &);
};

// A call on the record of the room: what it works with is at hand.
#define CALL(names, ...)                                                                           \
    row {                                                                                          \
        names, [](room &r) {                                                                       \
            [[maybe_unused]] const ko_lc_t l = r.loc;                                              \
            [[maybe_unused]] const auto m = [&r](const char *text) { return r.m(text); };          \
            [[maybe_unused]] const auto w = [&r](const char *text) { return r.w(text); };          \
            [[maybe_unused]] ko_mchar_t *const o = r.out;                                          \
            [[maybe_unused]] ko_wchar_t *const p = r.wout;                                         \
            [[maybe_unused]] int *const n = &r.count;                                              \
            r.took((__VA_ARGS__, nothing()));                                                      \
        }                                                                                          \
    }
#define ROW(f, ...) CALL(#f, f(__VA_ARGS__))

// The workers that take their values as a list.
template <auto f>
int formats(ko_lc_t loc, ko_wchar_t *out, int most, const ko_wchar_t *format, ...) {
    va_list values;
    va_start(values, format);
    const int result = f(loc, out, most, format, values);
    va_end(values);
    return result;
}
int reads(ko_lc_t loc, const ko_wchar_t *text, const ko_wchar_t *format, ...) {
    va_list pointers;
    va_start(pointers, format);
    const int result = ko_wcspnum1(loc, text, format, pointers);
    va_end(pointers);
    return result;
}

const ko_tm_t noon = {.tm_min = 34, .tm_hour = 12, .tm_mday = 6, .tm_mon = 4, .tm_year = 124};
const ko_alt_tm_t alt_noon = {
    .alt_tm_hour = 12, .alt_tm_mday = 6, .alt_tm_mon = 4, .alt_tm_year = 124};
ko_tm_t read_tm;
ko_alt_tm_t made_tm;
time_info read_info;
double value;
gen_exports gen;
char_desc letter = {
    2, {0, 'b'}
};

// A table with one character, and a call on it.
template <class Call> void on_table(room &r, Call call) {
    const uint16_t none = 7, item = 9;
    void *const table = create_multi(sizeof none, 0, &none);
    if (!table || insert_desc_multi(&letter, &item, table)) {
        r.fail(KO_ENOMEM);
    } else {
        gen = {};
        call(table);
        r.took(multi_err(table)), r.fail(gen.ko_lerrno);
    }
    free_multi(table);
}
#define TABLE(f, ...) CALL(#f, on_table(r, [&r](void *t) { r.took(f(__VA_ARGS__)); }))
const ko_mchar_t *const b = mb("\0b");

// Calls whose arguments their types tell.
const std::string long_string = "12 " + std::string(500, 'a') + "b";
const char *const long_text = long_string.c_str(); // takes more than a call has on its stack
struct arguments {
    room &r;
    int texts = 0; // the first text is searched or written, the second is what for
    template <class T> T get() {
        const char *const text = ++texts == 1 ? long_text : "b";
        if constexpr (std::is_same_v<T, ko_lc_t>) return --texts, r.loc;
        if constexpr (std::is_same_v<T, const ko_mchar_t *>) return r.m(text);
        if constexpr (std::is_same_v<T, const ko_wchar_t *>) return r.w(text);
        if constexpr (std::is_same_v<T, ko_mchar_t *>) return r.out;
        if constexpr (std::is_same_v<T, ko_wchar_t *>) return r.wout;
        if constexpr (std::is_same_v<T, const ko_alt_tm_t *>) return &alt_noon;
        if constexpr (std::is_same_v<T, ko_alt_tm_t *>) return &made_tm;
        if constexpr (std::is_same_v<T, const char *>) return "upper";
        if constexpr (std::is_same_v<T, int *>) return &r.count;
        if constexpr (std::is_same_v<T, ko_wchar_t>) return 'a';
        if constexpr (std::is_pointer_v<T>)
            return nullptr;
        else
            return 9;
    }
    template <class R, class... Args> R make(R (*call)(Args...)) {
        return std::apply(call, std::tuple<Args...>{get<Args>()...});
    }
};
template <auto f> row row_of() {
    return {__PRETTY_FUNCTION__, [](room &r) { r.took((arguments{r}.make(f), nothing())); }};
}
template <auto... calls> std::vector<row> rows_of() { return {row_of<calls>()...}; }
const std::vector<row> typed_rows = rows_of<
    ko_nl_langinfo, ko_wc_nl_langinfo, ko_localeconv, ko_version, ko_cm_version, ko_lc_version,
    ko_cv_version, ko_mb_loc_max, ko_mb_loc_min, ko_error_text, ko_lc_status, ko_ext_errno,
    ko_ctype, im_iswctype, im_ismctype, im_towupper, im_towlower, im_tomupper, im_tomlower,
    ko_tombsupper, ko_tombslower, ko_towcsupper, ko_towcslower, ko_case_conv_outbuflen,
    ko_full_mbtowc, ko_full_wctomb, sl_wctomb, is_mbstowcs, im_mbstowcs, is_wcstombs,
    ko_full_wcstombs, ko_wcslen, ko_wcsbytes, im_mbslen, ko_mbsbytes, ko_full_mblen, ko_wclen,
    ko_mbsterm, ko_ismbsterm, ko_full_mbsnext, ko_full_getmbsi, ko_full_putmbsi, ko_mbcreplace,
    ko_mbsntslen, ko_wcsntslen, ko_mbsntsbytes, ko_mbsp, ko_mbsntstrunc, ko_wcsntstrunc,
    ko_mbsbytes_nt, ko_full_mbscpy, ko_wcscpy, ko_full_mbscat, ko_wcscat, ko_mbsncpy, ko_mbsncat,
    ko_wcsncpy, ko_wcsncat, ko_getmbsinull, ko_full_mbschr, ko_full_mbsrchr, ko_full_mbsspn,
    ko_full_mbscspn, ko_full_mbspbrk, ko_full_mbsmbs, ko_wcschr, ko_wcsrchr, ko_wcsspn, ko_wcscspn,
    ko_wcswcs, ko_wcspbrk, ko_wcwidth, ko_mbwidth, ko_wcswidth, ko_mbswidth, ko_full_wcscoll,
    ko_wcsxfrm, ko_full_mbsxfrm, im_mbscoll, is_mbscoll_exp, is_mbscoll_elem, is_mbscoll_back,
    thaismocoll, thaismoxfrm, ko_wcscmp, ko_wcsncmp, ko_full_mbsncmp, ko_wcspre, ko_wcstol,
    ko_wcstoul, ko_mbstol, ko_mbstoul, ko_wcstod, ko_wcstod_num_mon, ko_mbstod, ko_ltowcs,
    ko_ultowcs, ko_ltombs, ko_ultombs, ko_getcentury, ko_alt_getcentury, ko_cal_gregorian_to_local,
    ko_cal_local_to_gregorian>();

const row record_rows[] = {
    ROW(ko_locale_utf8, l),
    ROW(ko_secure_names, -1),
    ROW(ko_locale_version, l, reinterpret_cast<char *>(o), 100),
    CALL("ko_full_mbsprev", [&](ko_mchar_t *s) { return ko_full_mbsprev(l, s, s + 2); }(m("abc"))),
    CALL("ko_mbstowcslen ko_destroystring",
         [&] {
             ko_wchar_t *const made = ko_mbstowcslen(l, m("abc"), n);
             const int units = made ? ko_wcslen(made) : -1;
             ko_destroystring(made);
             return units;
         }()),
    CALL("ko_charoffset", [&](ko_mchar_t *s) { return ko_charoffset(l, s, s + 2, n); }(m("abc"))),
    CALL("ko_wcspwidth", [&](ko_wchar_t *s) { return ko_wcspwidth(l, s, s + 2); }(w("abc"))),
    CALL("ko_mbspwidth", [&](ko_mchar_t *s) { return ko_mbspwidth(l, s, s + 2); }(m("abc"))),
    // Numbers and money
    ROW(ko_wcsfnum, l, p, 90, w("a %f b"), 1234567.5),
    ROW(ko_mbsfnum, l, o, 90, m("a %f b"), 1234567.5),
    CALL("ko_wcsfnum1", formats<ko_wcsfnum1>(l, p, 90, w("a %f b"), 1234567.5)),
    ROW(ko_wcspnum, l, w("1234"), w("%f"), &value),
    ROW(ko_mbspnum, l, m("1234"), m("%f"), &value),
    CALL("ko_wcspnum1", reads(l, w("1234"), w("%f"), &value)),
    ROW(ko_mbsfmtexpand, l, 1, m("%d %B %Y")),
    ROW(ko_wcsfmtexpand, l, 1, w("%d %B %Y")),
    ROW(ko_wcsfmon, l, p, 90, w("a %n b"), 1234567.5),
    CALL("ko_mbsfmon",
         [&] { // without memory it fails without a number
             const int length = ko_mbsfmon(l, o, 90, m("a %n b"), 1234567.5);
             if (length < 0 && !*ko_ext_errno(l)) r.fail(KO_ENOMEM);
             return length;
         }()),
    CALL("ko_wcsfmon1", formats<ko_wcsfmon1>(l, p, 90, w("a %i b"), 1234567.5)),
    ROW(ko_wcspmon, l, w("1234"), w("%n"), &value),
    ROW(ko_mbspmon, l, m("1234"), m("%n"), &value),
    // Times
    ROW(ko_wcsftime, l, p, 90, w("%A %d %B %Ey %c"), &noon),
    ROW(ko_mbsftime, l, o, 90, m("%A %d %B %Ey %c"), &noon),
    ROW(ko_wcsftime1, l, p, 90, w("%A %d"), &alt_noon, nullptr, nullptr),
    ROW(ko_mbsftime1, l, o, 90, m("%A %d"), &alt_noon, n, nullptr),
    ROW(ko_wcsptime, l, w("06.05.2024 7"), w("%d.%m.%Y %Ey"), &read_tm, 'C'),
    ROW(ko_mbsptime, l, m("06.05.2024 7"), m("%d.%m.%Y %H"), &read_tm, 'C'),
    CALL("ko_wcsptime1", (read_info = {}, ko_wcsptime1(l, w("06"), w("%d"), &read_info, 'C'))),
    CALL("ko_set_current_time ko_reset_time",
         (ko_set_current_time(1, "x", 6, 5, 2024), ko_reset_time(1, "x"))),
    CALL("ko_mbstimeinfo",
         [&] {
             ko_mchar_t **names = nullptr;
             const int result = ko_mbstimeinfo(l, 3, &names, n);
             for (int i = 0; i < *n; ++i) {
                 r.add(reinterpret_cast<char *>(names[i]));
                 ko_destroystring(names[i]);
             }
             ko_destroystring(names);
             return result;
         }()),
    // Copies
    CALL("ko_create_null_locale_2 ko_copy_cat ko_free_category ko_make_null_category "
         "ko_free_nonshared_loc",
         [&] {
             ko_lc_t copy = nullptr;
             int result = ko_create_null_locale_2(&copy);
             if (!result) result = ko_copy_cat(copy, l, KO_LC_TIME);
             if (!result) r.took(ko_nl_langinfo(copy, KO_DAY_1));
             r.fail(result ? *ko_ext_errno(copy) : 0);
             if (!result) ko_free_category(copy, KO_LC_TIME);
             if (!result) r.took(ko_make_null_category(copy, KO_LC_TIME));
             r.fail(*ko_ext_errno(copy)), r.fail(ko_lc_status(copy));
             ko_free_nonshared_loc(copy);
         }()),
    // Tables
    CALL("create_multi insert_desc_multi free_multi multi_err", on_table(r, [](void *) {})),
    TABLE(retrieve_desc_multi, &letter, t),
    TABLE(retrieve_text_multi, b, t, &r.count, &gen),
    TABLE(retrieve_text_multi_nl, b, t, &gen),
    TABLE(retrieve_text_multi_nv, b, t, &gen),
    TABLE(retrieve_text_multi_limit, b, t, 2, &r.count, &gen),
    TABLE(retrieve_text_doub_limit, b, t, 2, &gen),
    TABLE(retrieve_wchar_multi_nl, &gen, 'b', t),
    TABLE(multi_max_length, t),
    TABLE(multi_min_length, t),
    CALL("multi_node_count", on_table(r, [&](void *table) { multi_node_count(table, n, n, n); })),
    CALL("compress_multi", on_table(r,
                                    [&](void *table) {
                                        if (compress_multi(table)) r.fail(KO_ENOMEM);
                                    })),
    // Texts with a length
    CALL("ko_utf8scoll", KO_SCOLL_ERROR(ko_utf8scoll(l, "abc", 3, "abd", 3))),
    CALL("ko_utf16scoll", KO_SCOLL_ERROR(ko_utf16scoll(l, u"abc", 3, u"abd", 3))),
    CALL("ko_utf8sxfrm", r.length(ko_utf8sxfrm(l, o, 300, "abc", 3))),
    CALL("ko_utf16sxfrm", r.length(ko_utf16sxfrm(l, o, 300, u"abc", 3))),
    CALL("ko_utf8stowcs", r.length(ko_utf8stowcs(l, p, 99, "abc", 3, nullptr))),
    CALL("ko_wcstoutf8s",
         r.length(ko_wcstoutf8s(l, reinterpret_cast<char *>(o), 99, w("abc"), 3, nullptr))),
    CALL("ko_utf8supper", r.length(ko_utf8supper(l, reinterpret_cast<char *>(o), 99, "abc", 3))),
    CALL("ko_utf8slower", r.length(ko_utf8slower(l, reinterpret_cast<char *>(o), 99, "ABC", 3))),
    // The host's own services
    ROW(ko_ext_getenv, "VANTORDIR"),
    ROW(ko_ext_currdate, r.date),
    ROW(ko_ext_currtime, &read_tm),
    CALL("ko_ext_malloc ko_ext_free",
         [&] {
             void *const block = ko_ext_malloc(10);
             r.fail(block ? 0 : KO_ENOMEM);
             ko_ext_free(block);
         }()),
};

// ---- Calls that read and write files -----------------------------------------------------------

const char *data_root() { return getenv("VANTORDIR"); }

void add_record(room &r, ko_lc_t loc) {
    if (!r.done(*ko_ext_errno(loc)) || !r.done(ko_lc_status(loc))) return;
    for (unsigned item = 0; item <= KO_LANGINFO_MAX; ++item)
        if (const ko_mchar_t *const text = ko_nl_langinfo(loc, item))
            r.add(text, size_t(std::max(ko_mbsbytes(loc, text), 0)));
    for (unsigned c = 1; c < 0x3000; c += c < 256 ? 1 : 61) {
        const auto wc = ko_wchar_t(c);
        const ko_wchar_t text[] = {wc, 'c', 'h', wc, 0};
        ko_mchar_t key[200] = {};
        r.took(im_iswctype(loc, wc, ~0u) ^ im_towupper(loc, wc) << 8 ^ im_towlower(loc, wc));
        r.took(ko_wcsxfrm(loc, key, text, sizeof key));
        r.add(key, sizeof key);
    }
    r.took(ko_localeconv(loc)->frac_digits);
    *ko_ext_errno(loc) = 0; // of characters that are none
}
void load(room &r, const char *spec) {
    ko_lc_t loc = nullptr;
    if (ko_lc_load(&loc, spec, nullptr, nullptr))
        r.fail(*ko_ext_errno(loc));
    else
        add_record(r, loc);
    ko_lc_unload(loc);
}
void open_locale(room &r, const char *spec) {
    ko_lc_t loc = nullptr;
    if (r.done(ko_open_locale(&loc, data_root(), spec, KO_OPEN_VERIFY)) &&
        r.done(ko_locale_utf8(loc))) {
        add_record(r, loc);
        r.took(r.length(ko_utf8sxfrm(loc, r.out, sizeof r.out,
                                     "Stra\xC3\x9F"
                                     "e",
                                     7)));
        ko_lc_t again = nullptr; // the same record
        r.took(ko_open_locale(&again, data_root(), spec, KO_OPEN_VERIFY) || again == loc ||
               ko_lc_status(loc));
        ko_close_locale(again);
    }
    ko_close_locale(loc);
}
void add_setting(room &r, int (*make)(ko_lc_t *)) {
    ko_lc_t loc = nullptr;
    if (make(&loc)) {
        r.fail(*ko_ext_errno(loc));
    } else {
        char *const set = ko_setlocale_2(loc, KO_LC_ALL, "de_de\\0333.lco");
        r.add(set);
        if (!set) r.fail(*ko_ext_errno(loc));
        ko_destroystring(set);
        if (!r.error) add_record(r, loc);
    }
    ko_lc_unload(loc);
}
int made_default(ko_lc_t *loc) { return ko_createlocale2_2(loc, nullptr); }

// A conversion as one of the calls opens it, and what it makes of a text.
template <class Open> void convert(room &r, Open open) {
    ko_cv_t cd = nullptr;
    const int opened = open(&cd);
    r.took(opened);
    const auto *from = reinterpret_cast<const ko_mchar_t *>("a\xE4z");
    ko_mchar_t out[100] = {}, *to = out; // what follows the result in the room is undefined
    int left = 3, room = 100, substituted = 0;
    if (opened < 0 || !cd) {
        r.fail(cd ? *ko_ext_errno(cd) : KO_ENULL);
    } else {
        conv_state st = {.first_frag = 1, .last_frag = 1};
        r.took(ko_mconvlen(cd, &st, &from, &left, &room, &substituted));
        from = reinterpret_cast<const ko_mchar_t *>("a\xE4z"), left = 3;
        r.took(ko_miconv(cd, &from, &left, &to, &room, &substituted));
        st = {.first_frag = 1, .last_frag = 1};
        from = reinterpret_cast<const ko_mchar_t *>("a\xE4z"), left = 3;
        r.took(ko_cv_mconv(cd, &st, &from, &left, &to, &room, &substituted));
        r.took(ko_iconv_expansion(cd) >= 1 && ko_cv_outbuflen(cd, 3) >= 4); // bounds
        r.fail(*ko_ext_errno(cd));
        r.add(out, size_t(to - out));
    }
    r.took(ko_cv_unload(cd));
}
int from_utf8(const ko_mchar_t *, unsigned, conv_state *, conv_res *res) {
    *res = {.flags = KO_CV_END};
    return 0;
}
void add_functions(room &r) {
    const ko_cv_funcdef own = {"x", "y", from_utf8, 1, 1, 1, 1, 1};
    ko_cvfns *const list = ko_add_cvfns(nullptr, &own);
    if (list && ko_add_cvfns(list, &own)->num_used == 2)
        convert(r, [list](ko_cv_t *cd) {
            return ko_cv_fnopen(cd, "de_DE.utf8", "de_DE.ISO-8859-1", list);
        });
    else
        r.fail(KO_ENOMEM);
    if (list) ko_ext_free(list->funcdef_arr);
    ko_ext_free(list);
}

void add_symbols(room &r) {
    ko_cm_t cm = nullptr;
    if (ko_cm_load(&cm, "ISO-8859-1", nullptr, nullptr)) {
        r.fail(*ko_ext_errno(cm));
    } else {
        char symbols[300] = {};
        const ko_mchar_t *text = mb("a~\xE4");
        const ko_wchar_t wide[] = {'a', 0xE4, 0}, *at = wide;
        const char *back = symbols;
        r.add(ko_cm_csname(cm));
        r.took(ko_cm_srcver(cm) + ko_cm_cmpver(cm) + ko_mb_cm_max(cm) + ko_mb_cm_min(cm));
        r.took(ko_cm_mblen(cm, text, 1));
        r.took(ko_mbtosymlist(cm, symbols, sizeof symbols, text, 1)), r.add(symbols);
        r.took(ko_wcstosyms(cm, symbols, sizeof symbols, &at, 2)), r.add(symbols);
        r.took(ko_mbstosyms(cm, symbols, sizeof symbols, &text, 3)), r.add(symbols);
        r.took(ko_symstombs(cm, r.out, 100, &back)), back = symbols;
        r.took(ko_symstowcs(cm, r.wout, 100, &back));
        r.fail(*ko_ext_errno(cm));
    }
    ko_cm_unload(cm);
}

// A call that names a handle's error word.
template <class Call> void with_handle(room &r, Call call) {
    gen_exports handle = {};
    r.took(call(static_cast<void *>(&handle)));
    r.fail(handle.ko_lerrno);
}
template <class Open> void read_stream(room &r, Open open) {
    with_handle(r, [&](void *handle) {
        void *const stream = open(handle);
        if (!stream) {
            r.fail(KO_EFILE);
            return false;
        }
        for (int c; (c = ko_ext_getc(stream)) >= 0 && r.count++ < 99;)
            r.took(c);
        r.took(ko_ext_ungetc(ko_ext_fgetc(stream), stream));
        char line[200] = {};
        if (ko_ext_fgets(line, sizeof line, stream)) r.add(line);
        if (ko_ext_fseek(stream, 10, 0)) r.fail(KO_EIO);
        r.took(ko_ext_ftell(stream)), r.took(ko_ext_getc(stream));
        if (ko_ext_ferror(stream)) r.fail(KO_EIO);
        r.took(ko_ext_feof(stream));
        if (ko_ext_fclose(stream)) r.fail(KO_EIO);
        return true;
    });
}
void read_registry(room &r, void *(*find)(void *, const char *, const char *, const char *)) {
    gen_exports handle = {};
    void *const stream = find(&handle, "registry", "cm", "3");
    r.took(stream), r.fail(handle.ko_lerrno);
    if (stream && find == ko_path_search) ko_ext_fclose(stream);
    if (stream && find != ko_path_search) fclose(static_cast<FILE *>(stream));
}

template <class Write> void write_stream(room &r, Write write) {
    void *const stream = ko_ext_fopen(r.dir, "w");
    if (!stream) return r.fail(KO_EFILE);
    write(stream);
    if (ko_ext_fclose(stream)) r.fail(KO_EIO);
    r.wrote = true;
}
template <class Read> void read_text(room &r, Read read) {
    void *const stream = ko_ext_fopen(r.dir, "r"); // written by the test
    if (!stream) return r.fail(KO_EFILE);
    read(stream);
    ko_ext_fclose(stream);
}

int add_entry(void *to, const ko_locale_entry *entry) {
    static_cast<room *>(to)->add(entry->spec);
    static_cast<room *>(to)->fail(entry->error);
    return 0;
}
int add_part(void *to, const void *bytes, size_t size) {
    static_cast<room *>(to)->add(bytes, size);
    return 0;
}
void told(void *to, const char *, int error, size_t) { static_cast<room *>(to)->fail(error); }
void make_image(room &r) {
    static const char *const names[] = {"0333e01c.cvo"};
    const ko_image_output output = {add_part, told, &r};
    r.done(ko_make_image(data_root(), names, 1, &output));
}
void *open_registry(void *handle) {
    char path[300];
    snprintf(path, sizeof path, "%s\\kova\\cm3\\registry", data_root());
    return ko_open_file(handle, path);
}
void print_table(room &r, void *stream) {
    on_table(r, [&](void *table) {
        if (fprintf_multi(stream, table, print_item)) r.fail(KO_EIO);
    });
}
void write_bytes(room &r, void *stream) {
    if (ko_ext_fwrite("abc", 1, 3, stream) != 3) r.fail(KO_EIO);
}
char setting[] = "KOVA_FAULTS_TEST=1";
char parts[3][40];

#define HANDLE(f, ...) CALL(#f, with_handle(r, [&](void *h) { return f(h, __VA_ARGS__); }))
#define CONVERTS(names, ...) CALL(names, convert(r, [&](ko_cv_t *cd) { return __VA_ARGS__; }))
const row file_rows[] = {
    CALL("ko_lc_load ko_lc_unload", load(r, "de_DE.ISO-8859-1")),
    CALL("ko_lc_load", load(r, "th_TH.TIS-620")),
    CALL("ko_open_locale ko_close_locale", open_locale(r, "de_DE.ISO-8859-1")),
    CALL("ko_open_locale", open_locale(r, "en_US.unicode")),
    CALL("ko_setlocale_2", add_setting(r, ko_create_null_locale_2)),
    CALL("ko_createlocale_2", add_setting(r, ko_createlocale_2)),
    CALL("ko_createlocale2_2", add_setting(r, made_default)),
    CALL("ko_list_locales", r.done(ko_list_locales(data_root(), add_entry, &r))),
    CALL("ko_make_image", make_image(r)),
    ROW(ko_verify_object, "x", 1, nullptr),
    CALL("ko_codeset_number", r.length(ko_codeset_number(data_root(), "latin1"))),
    CONVERTS("ko_open_conversion",
             -!r.done(ko_open_conversion(cd, data_root(), "latin1", "IBM-850", KO_OPEN_VERIFY))),
    CONVERTS("ko_open_conversion",
             -!r.done(ko_open_conversion(cd, data_root(), "UTF-7", "utf16", 0))),
    CONVERTS("ko_iconv_open", ko_iconv_open(cd, "e01c", "0333")),
    CONVERTS("ko_iconv_open1", ko_iconv_open1(cd, "0333e01c.cvo")),
    CONVERTS("ko_cv_open", ko_cv_open(cd, "x.e01c", "x.0333")),
    CONVERTS("ko_cv_load ko_cv_unload ko_miconv ko_cv_mconv ko_mconvlen ko_iconv_expansion "
             "ko_cv_outbuflen",
             ko_cv_load(cd, "de_DE.utf8", "de_DE.ISO-8859-1", nullptr, nullptr)),
    CALL("ko_add_cvfns ko_cv_fnopen", add_functions(r)),
    CALL("ko_cm_load ko_cm_unload ko_cm_csname ko_cm_srcver ko_cm_cmpver ko_cm_mblen ko_mb_cm_max "
         "ko_mb_cm_min ko_mbstosyms ko_wcstosyms ko_symstombs ko_symstowcs ko_mbtosymlist",
         add_symbols(r)),
    HANDLE(ko_cs_name2cs_num, "ISO-8859-1", nullptr),
    HANDLE(ko_lc_spec2cs_num, "de_DE.ISO-8859-1", nullptr),
    HANDLE(ko_lc_spec2lc_fname, "de_DE.ISO-8859-1", r.name(), nullptr, nullptr),
    HANDLE(ko_lc_spec2msg_dname, "de_DE.ISO-8859-1", r.name(), nullptr, nullptr),
    ROW(ko_cs_nums2cv_fname, nullptr, 0x333, 0xE005, r.name(), nullptr),
    HANDLE(ko_lc_pieces2lc_spec, "de_DE", "0333", "x", r.name()),
    HANDLE(ko_lc_fname2lc_pieces, "de_de\\0333x.lco", parts[0], parts[1], parts[2]),
    CALL("ko_path_search", read_registry(r, ko_path_search)),
    CALL("ko_path_search_no_ext", read_registry(r, ko_path_search_no_ext)),
    CALL("ko_open_file ko_ext_getc ko_ext_fgetc ko_ext_ungetc ko_ext_fgets ko_ext_fseek "
         "ko_ext_ftell ko_ext_feof ko_ext_ferror ko_ext_fclose",
         read_stream(r, open_registry)),
    CALL("ko_ext_fopen ko_ext_fwrite", write_stream(r, [&](void *s) { write_bytes(r, s); })),
    CALL("fprintf_multi", write_stream(r, [&](void *s) { print_table(r, s); })),
    ROW(ko_setextfunc, nullptr, KO_EXT_GETENV, nullptr),
    ROW(ko_ext_putenv, setting),
    CALL("ko_init_debug ko_message ko_display_lc_node_list",
         (ko_init_debug(), ko_message("text"), ko_display_lc_node_list())),
    CALL("ko_cache_registry", (gen = {}, ko_cache_registry(&gen, nullptr), r.fail(gen.ko_lerrno))),
};

int read_item(void *stream, void *to, int) {
    char digits[5] = {};
    for (int i = 0; i < 4; ++i)
        digits[i] = char(ko_ext_getc(stream));
    *static_cast<uint16_t *>(to) = uint16_t(strtol(digits, nullptr, 16));
    return ko_ext_ferror(stream);
}

// On a record and a stream.
#define WRITES(f, what)                                                                            \
    CALL(#f, write_stream(r, [&](void *s) { f(l, what, s), r.fail(*ko_ext_errno(l)); }))
#define READS(f, ...) CALL(#f, read_text(r, [&](void *s) { r.took(f(__VA_ARGS__)); }))
const row stream_rows[] = {
    WRITES(ko_fputmb, m("a")),
    WRITES(ko_fputwc, 'a'),
    WRITES(ko_fputmbs, m("abc")),
    WRITES(ko_fputwcs, w("abc")),
    READS(ko_full_fgetmb, l, o, s),
    READS(ko_full_fgetwc, l, s),
    READS(ko_fgetmbs, l, o, 100, s),
    READS(ko_fgetwcs, l, p, 100, s),
    CALL("fscanf_multi", read_text(r,
                                   [&](void *s) {
                                       const uint16_t none = 0;
                                       void *const table = create_multi(sizeof none, 0, &none);
                                       if (table && !fscanf_multi(s, table, 9, read_item)) {
                                           const void *const item =
                                               retrieve_desc_multi(&letter, table);
                                           r.took(item ? *static_cast<const uint16_t *>(item) : 0);
                                       } else
                                           r.fail(table && !multi_err(table) ? KO_EIO : KO_ENOMEM);
                                       free_multi(table);
                                   })),
};

// ---- Faults ------------------------------------------------------------------------------------

// Memory hooks whose n-th call fails, and those after it where it stays so.
struct {
    long calls, live, at = -1;
    bool stays;
} blocks;
void *give_block(size_t size) {
    const long n = blocks.calls++;
    if (blocks.at >= 0 && (n == blocks.at || (n > blocks.at && blocks.stays))) return nullptr;
    ++blocks.live;
    return malloc(size);
}
void take_block(void *block) {
    blocks.live -= block != nullptr;
    free(block);
}

struct result {
    uint64_t answer = 0;
    int error = 0;
    bool exact = false;
};
result once(const row &of, ko_lc_t loc, const char *file) {
    if (loc) *ko_ext_errno(loc) = 0;
    room r(loc, file);
    of.call(r);
    obey_faults(nullptr);
    if (loc) r.fail(*ko_ext_errno(loc));
    if (r.wrote) r.add(slurp(file).c_str());
    r.add(r.out, sizeof r.out), r.add(r.wout, sizeof r.wout);
    return {r.answer, r.error, r.exact};
}

std::map<std::string, long> counted; // faults by kind

// What the fault makes of a call, in comparison with the call without one. The calls of kova_host.h
// say what was wrong, those of kova.h that something was.
void judge(const char *kind, bool of_memory, long n, const result &want, const result &got,
           long leaked) {
    ++counted[kind];
    const auto place = [&] { return std::string(kind) + ", call " + std::to_string(n); };
    if (got.error == want.error) {
        EXPECT_EQ(got.answer, want.answer) << place() << ": another answer";
    } else {
        EXPECT_NE(got.error, KO_OK) << place();
        EXPECT_TRUE(!got.exact || got.error == KO_ENOMEM || (!of_memory && got.error == KO_EIO))
            << place() << ": fails with " << got.error;
    }
    EXPECT_EQ(leaked, 0) << place() << ": blocks left";
}

bool kernel_faults() {
    static fault_plan plan;
    static const bool made = obey_faults(&plan);
    obey_faults(nullptr);
    return made;
}

// The calls that fail, of so many: all or some, few where sanitizers and emulators are slow.
std::vector<long> some_calls(long count) {
    const std::string said = env("KOVA_FAULTS_MOST");
    const long most = said.empty() ? (kernel_faults() ? 300 : 20) : whole(said);
    std::vector<long> chosen;
    for (long i = 0; i < std::min(count, most); ++i)
        chosen.push_back(count <= most ? i : i * (count - 1) / (most - 1));
    return chosen;
}

const char *const locales[] = {"de_DE.ISO-8859-1", "ja_JP.EUC-JP", "th_TH.TIS-620",
                               "en_US.unicode"};

// The rows and the record that they get; NULL for rows that make their own.
template <class Check> void each_row(Check check) {
    if (env("KOVA_TEST_ROOT").empty()) GTEST_SKIP() << "no compiled data";
    const real_variable root("VANTORDIR", env("KOVA_TEST_ROOT").c_str());
    const temp_dir dir;
    const std::string text = dir.write("x", "abc\nd\n"),
                      table =
                          dir.write("table", table_text({
                                                 {std::string(2, '\0').replace(1, 1, "b"), 9}
    }));
    const auto rows = [&](ko_lc_t loc, std::span<const row> of) {
        for (const row &each : of) {
            SCOPED_TRACE(each.names);
            const bool reads_table = !strcmp(each.names, "fscanf_multi");
            if (!::testing::Test::HasFatalFailure())
                check(each, loc, (reads_table ? table : text).c_str());
        }
    };
    for (const char *const name : locales) {
        SCOPED_TRACE(name);
        ko_lc_t loc = nullptr;
        ASSERT_EQ(ko_open_locale(&loc, nullptr, name, 0), 0);
        rows(loc, typed_rows);
        rows(loc, record_rows);
        rows(loc, stream_rows);
        ko_close_locale(loc);
    }
    rows(nullptr, file_rows);
    gen_exports handle = {};
    ko_cache_registry(&handle, nullptr); // which its rows could not
    for (const auto &[kind, count] : counted)
        printf("%8ld  %s\n", count, kind.c_str());
    counted.clear();
}

} // namespace

TEST(LibraryFaults, OfEachAllocation) {
    const installed_hooks hooks{
        {KO_EXT_MALLOC, as_hook(give_block)},
        {KO_EXT_FREE,   as_hook(take_block)}
    };
    each_row([](const row &of, ko_lc_t loc, const char *file) {
        once(of, loc, file); // makes what a record keeps
        blocks.calls = 0;
        const long live = blocks.live;
        const result want = once(of, loc, file);
        const long calls = blocks.calls;
        for (const bool stays : {false, true})
            for (const long n : some_calls(calls)) {
                blocks = {.calls = 0, .live = live, .at = n, .stays = stays};
                const result got = once(of, loc, file);
                blocks.at = -1;
                judge(stays ? "memory from then" : "memory once", true, n, want, got,
                      blocks.live - live);
            }
    });
    EXPECT_EQ(blocks.live, 0);
}

TEST(LibraryFaults, OfEachCallOfAStreamHook) {
    each_row([](const row &of, ko_lc_t loc, const char *file) {
        std::map<std::string, std::string> files;
        for (size_t known = 1, before = 0; known != before;) {
            file_hooks host;
            host.files = files;
            once(of, loc, file);
            before = files.size();
            for (std::string path : host.tried) {
                const std::string name = path;
                std::replace(path.begin(), path.end(), '\\', '/');
                if (std::filesystem::is_regular_file(path)) files[name] = slurp(path);
            }
            known = files.size();
        }
        file_hooks host;
        host.files = files;
        const result want = once(of, loc, file);
        for (const long n : some_calls(host.calls)) {
            host.files = files;
            host.calls = 0;
            host.fail_at = n;
            result got = once(of, loc, file);
            got.exact = false; // a hook cannot say why
            host.fail_at = -1;
            judge("stream hook", false, n, want, got, host.streams);
        }
    });
}

TEST(LibraryFaults, OfEachCallOfTheKernel) {
    static const struct {
        const char *name;
        fault_call kind;
        int error;
        bool stays;
    } faults[] = {
        {"memory of the system once",      call_memory, ENOMEM, false},
        {"memory of the system from then", call_memory, ENOMEM, true },
        {"no descriptor",                  call_open,   EMFILE, false},
        {"cannot open",                    call_open,   EIO,    false},
        {"cannot read",                    call_read,   EIO,    false},
        {"read interrupted",               call_read,   EINTR,  false},
        {"short read",                     call_read,   0,      false},
        {"short reads",                    call_read,   0,      true },
        {"cannot write",                   call_write,  EIO,    false},
        {"disk full",                      call_write,  ENOSPC, true },
        {"short writes",                   call_write,  0,      true },
        {"cannot close",                   call_close,  EIO,    false},
        {"cannot ask",                     call_ask,    EIO,    false},
    };
    static fault_plan plan;
    if (!kernel_faults()) GTEST_SKIP() << "this system does not let calls be counted";
    each_row([](const row &of, ko_lc_t loc, const char *file) {
        once(of, loc, file);
        const auto planned = [&](int kind, int error, bool stays, long n) {
            for (auto &count : plan.calls)
                count = 0;
            plan.kind = kind, plan.error = error, plan.stays = stays, plan.at = n;
            plan.live = plan.injected = 0;
            obey_faults(&plan);
            const result got = once(of, loc, file);
            obey_faults(nullptr);
            return got;
        };
        const result want = planned(-1, 0, false, 0);
        long calls[call_kinds];
        std::copy(std::begin(plan.calls), std::end(plan.calls), calls);
        for (const auto &f : faults)
            for (const long n : some_calls(calls[f.kind])) {
                const result got = planned(f.kind, f.error, f.stays, n);
                const bool keeps = strstr(of.names, "ko_cache_registry") != nullptr;
                if (plan.injected)
                    judge(f.name, f.kind == call_memory, n, want, got, keeps ? 0 : long(plan.live));
            }
    });
}

// The compiler's name of a typed row has the call's among marks.
static bool is_mark(char c) { return strchr("&;]", c) != nullptr; }

TEST(LibraryFaults, AreTriedInEveryExport) {
    std::set<std::string> tried;
    for (const auto &rows : {std::span<const row>(record_rows), std::span<const row>(file_rows),
                             std::span<const row>(stream_rows), std::span<const row>(typed_rows)})
        for (const row &each : rows) {
            std::string names = each.names;
            std::replace_if(names.begin(), names.end(), is_mark, ' ');
            for (const std::string &name : split(names, ' '))
                tried.insert(name);
        }
    for (const char *const list : {"/tests/exports.txt", "/tests/exports_host.txt"}) {
        std::istringstream lines(slurp(env("KOVA_SOURCE_DIR") + list));
        for (std::string line; std::getline(lines, line);)
            EXPECT_TRUE(line.empty() || line[0] == '#' || tried.contains(line)) << line;
    }
}
