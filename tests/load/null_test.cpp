// Null pointers from a caller: every call that takes a handle is made with each of its pointers
// null in turn, the counts of the call senseless, and gives the failure value of its declaration.
// Without a record, a host's hook gets the error.
#include "locale/kovautils.h"
#include "support/conversion_builder.h"
#include "support/locale_builder.h"

#include "kova_host.h"

#include <tuple>

namespace {

// What the pointers of the calls lead to; anew for each call.
struct samples {
    ko_mchar_t bytes[3] = {'a'};
    ko_wchar_t wide[3] = {'a'};
    const ko_mchar_t *from = bytes;
    const ko_wchar_t *from_wide = wide;
    char symbols[8] = "<A>";
    const char *from_symbols = symbols;
    conv_state state = {};
    ko_mchar_t *end = nullptr, **strings = nullptr;
    ko_wchar_t *wide_end = nullptr;
    int count = 0;
    char stream = 0;
    const char *name = "";
    double value = 0;
    ko_tm_t tm = {};
    ko_alt_tm_t alt_tm = {};
    time_info info = {};
    std::tuple<ko_mchar_t *, const ko_mchar_t *, ko_wchar_t *, const ko_wchar_t *, ko_mchar_t **,
               ko_mchar_t ***, ko_wchar_t **, int *, void *, double *, ko_tm_t *, const ko_tm_t *,
               const ko_alt_tm_t *, ko_alt_tm_t *, time_info *, const char *, char *, const char **,
               const ko_mchar_t **, const ko_wchar_t **, conv_state *>
        all = {bytes,  bytes,   wide,    wide,          &end,  &strings,   &wide_end,
               &count, &stream, &value,  &tm,           &tm,   &alt_tm,    &alt_tm,
               &info,  name,    symbols, &from_symbols, &from, &from_wide, &state};
    template <class T> T get() {
        if constexpr (std::is_pointer_v<T>)
            return std::get<T>(all);
        else
            return static_cast<T>(std::is_same_v<T, ko_wchar_t> ? 'a' : -1);
    }
};

int no_record_error;
int *error_word(void *handle) {
    return handle ? &static_cast<gen_exports *>(handle)->ko_lerrno : &no_record_error;
}

constexpr unsigned no_record = 1, first = 1 << 1, second = 1 << 2, third = 1 << 3;
constexpr unsigned silent = 1 << 4; // a query with an answer for a null record

template <class T> bool failed(T *result, int) { return !result; }
template <class T> bool failed(T result, int failure) { return result == static_cast<T>(failure); }

// Makes the call with the argument at the place null: 0 is the record.
template <class... Args, class Call, size_t... at>
void call_with_null(Call call, ko_lc_t loc, size_t place, int failure, bool quiet,
                    std::index_sequence<at...>) {
    constexpr bool pointers[] = {true, std::is_pointer_v<Args>...};
    if (!pointers[place]) return;
    samples s;
    *ko_ext_errno(loc) = no_record_error = 0;
    const auto result = call(place ? loc : nullptr, (place == at + 1 ? Args() : s.get<Args>())...);
    EXPECT_TRUE(failed(result, failure)) << "argument " << place;
    EXPECT_EQ(*ko_ext_errno(loc), place ? KO_ENULL : KO_OK) << "argument " << place;
    EXPECT_EQ(no_record_error, place || quiet ? KO_OK : KO_ENULL);
    EXPECT_EQ(s.bytes[0] + s.wide[0], 2 * 'a') << "something was written";
}

template <class... Args, class Call>
void each_null(Call call, ko_lc_t loc, int failure, unsigned optional) {
    for (size_t place = 0; place <= sizeof...(Args); ++place)
        if (!(optional >> place & 1))
            call_with_null<Args...>(call, loc, place, failure, optional & silent,
                                    std::index_sequence_for<Args...>());
}

template <class R, class... Args>
void each_null_of(R (*f)(ko_lc_t, Args...), ko_lc_t loc, int failure, unsigned optional) {
    each_null<Args...>(f, loc, failure, optional);
}
// The calls that take values after a format are made without any.
template <class R, class... Args>
void each_null_of(R (*f)(ko_lc_t, Args..., ...), ko_lc_t loc, int failure, unsigned optional) {
    const auto call = [f](ko_lc_t l, Args... args) { return f(l, args...); };
    each_null<Args...>(call, loc, failure, optional);
}

template <auto f> void refuses(ko_lc_t loc, int failure, unsigned optional) {
    SCOPED_TRACE(__PRETTY_FUNCTION__);
    each_null_of(f, loc, failure, optional);
}

// optional: bits of the arguments that may be null.
template <auto... calls> void refuse_of(void *handle, int failure, unsigned optional) {
    const installed_hooks hook{std::pair(KO_EXT_ERRNO, as_hook(error_word))};
    (refuses<calls>(handle, failure, optional), ...);
}
template <auto... calls> void refuse(int failure = -1, unsigned optional = 0) {
    const loaded_locale bytes(single_byte_object()), mixed(double_byte_object(false));
    for (const ko_lc_t loc : {ko_lc_t(bytes), ko_lc_t(mixed)})
        refuse_of<calls...>(loc, failure, optional);
}

} // namespace

TEST(Null, IsRefusedBeforeCountsAreRead) {
    refuse<ko_make_null_category, ko_nl_langinfo, ko_wc_nl_langinfo, ko_localeconv,
           ko_getcentury>();
    refuse<ko_case_conv_outbuflen>(-1, silent);
    refuse<ko_setlocale_2, ko_copy_cat>(-1, first | second);
    refuse<ko_mb_loc_max, ko_ctype, ko_mbsbytes>(0, first | silent);
    refuse<ko_mb_loc_min>(2, silent);
    refuse<ko_tombsupper, ko_tombslower, ko_towcsupper, ko_towcslower, im_mbstowcs,
           ko_full_wcstombs, im_mbslen>();
    refuse<im_iswctype, im_ismctype, im_tomupper, im_tomlower, ko_mbsterm, ko_ismbsterm>(0);
    refuse<im_towupper, im_towlower>('a');
    refuse<ko_full_wctomb, sl_wctomb, ko_wclen, ko_wcwidth, ko_mbwidth, ko_full_mbsnext>();
    refuse<ko_full_mbtowc>(-1, first | second);
    refuse<ko_full_mblen>(-1, first);
    refuse<is_mbstowcs, is_wcstombs>(-1, no_record);
    refuse<ko_full_mbsprev, ko_full_getmbsi, ko_full_putmbsi, ko_mbcreplace, ko_mbsntslen,
           ko_wcsntslen, ko_mbsntsbytes, ko_mbsp, ko_mbsntstrunc, ko_wcsntstrunc, ko_mbsbytes_nt,
           ko_full_mbscpy, ko_full_mbscat, ko_mbsncpy, ko_mbsncat, ko_getmbsinull>();
    refuse<ko_full_mbschr, ko_full_mbsrchr, ko_full_mbsspn, ko_full_mbscspn, ko_full_mbspbrk,
           ko_full_mbsmbs, ko_mbstowcslen, ko_charoffset, ko_wcswidth, ko_mbswidth, ko_wcspwidth,
           ko_mbspwidth>();
    refuse<ko_wcschr, ko_wcsrchr, ko_wcsspn, ko_wcscspn, ko_wcspbrk, ko_wcswcs>(-1, no_record);
    refuse<ko_fputmb, ko_fputwc, ko_fputmbs, ko_fputwcs, ko_full_fgetmb, ko_full_fgetwc, ko_fgetmbs,
           ko_fgetwcs>();
    refuse<ko_full_wcscoll, im_mbscoll, is_mbscoll_exp, is_mbscoll_elem, is_mbscoll_back,
           ko_full_mbsncmp>(0);
    refuse<thaismocoll>(0, no_record);
    refuse<thaismoxfrm>(-1, no_record | second);
    refuse<ko_wcspre>(0, no_record);
    refuse<ko_wcsxfrm, ko_full_mbsxfrm>(-1, first);
    refuse<ko_wcstol, ko_mbstol, ko_wcstoul, ko_wcstod, ko_mbstod>(INT32_MAX, second);
    refuse<ko_mbstoul>(-1, second);
    refuse<ko_ltombs, ko_ultombs>();
    refuse<ko_wcsfnum, ko_mbsfnum, ko_mbspnum, ko_wcsfmon, ko_mbsfmon, ko_mbspmon>();
    refuse<ko_wcspnum, ko_wcspmon>(0);
    refuse<ko_wcsftime, ko_mbsftime>(0, third); // a format that is null is a wrong one
    refuse<ko_cal_gregorian_to_local, ko_cal_local_to_gregorian>();
    refuse<ko_wcsptime, ko_mbsptime>(-1, second);
    refuse<ko_mbstimeinfo>(-1, second | third);
}

TEST(Null, IsRefusedByCharmapsAndConversions) {
    cv_object object;
    object.noshift.push_back({"a", cv_plain, "b"});
    const cv_record single(object.str());
    object.target_stateful = 1;
    const cv_record shifted(object.str());
    owned<ko_cm_unload> charmap;
    {
        file_hooks files;
        files.files["m\\own.cmo"] = "FILE_TYPE=charmap_object\nCOMPILER_VERSION=3\n"
                                    "HEADER_LENGTH=3\nEND\ns 0 A 1 61\n";
        ko_cache_registry(nullptr, "none");
        ASSERT_EQ(ko_cm_load(&charmap.handle, "own.cmo", nullptr, "m"), 0);
    }
    refuse_of<ko_mbstosyms, ko_wcstosyms, ko_symstombs, ko_symstowcs, ko_mbtosymlist>(charmap, -1,
                                                                                      silent);
    constexpr unsigned lengths = second | third, rest = 1 << 3; // of texts without one
    for (const cv_record *cv : {&single, &shifted}) {
        refuse_of<ko_miconv>(*cv, -1, silent | second);
        refuse_of<ko_cv_mconv>(*cv, -1, no_record | first | lengths | rest | silent);
        refuse_of<ko_mconvlen>(*cv, -1, no_record | first | lengths | silent);
    }
    const ko_mchar_t *none = nullptr;
    ko_mchar_t *nowhere = nullptr;
    const ko_wchar_t *no_text = nullptr;
    const char *no_symbols = nullptr;
    char symbols[4];
    ko_mchar_t out[4], *to = out;
    int left = 1, room = 4, sub;
    const ko_mchar_t *from = mb("a");
    for (const int result : {ko_mbstosyms(charmap, symbols, 4, &none, 1),
                             ko_wcstosyms(charmap, symbols, 4, &no_text, 1),
                             ko_symstombs(charmap, out, 4, &no_symbols)})
        EXPECT_EQ(result, -1);
    for (const int result : {ko_miconv(single, &none, &left, &to, &room, &sub),
                             ko_miconv(single, &from, &left, &nowhere, &room, &sub),
                             ko_cv_mconv(shifted, nullptr, &from, &left, &nowhere, &room, &sub),
                             ko_mconvlen(nullptr, nullptr, &from, &left, &room, &sub)})
        EXPECT_EQ(result, -1);
    EXPECT_EQ(charmap.error() + single.error() + shifted.error(), 3 * KO_ENULL);
    EXPECT_EQ(left + room, 5) << "nothing was converted";
}

TEST(Null, IsAnEmptyAnswerOfQueries) {
    const loaded_locale loc(single_byte_object());
    EXPECT_EQ(ko_wcslen(nullptr) + ko_mbsbytes(loc, nullptr) + ko_cm_mblen(nullptr, mb("a"), 1), 0);
    EXPECT_EQ(ko_cm_csname(nullptr), nullptr);
    EXPECT_EQ(ko_cm_srcver(nullptr) + ko_cm_cmpver(nullptr) + ko_mb_cm_max(nullptr) +
                  ko_mb_cm_min(nullptr),
              0);
    EXPECT_EQ(ko_codeset_number(nullptr, nullptr), -KO_ENULL);
    EXPECT_EQ(ko_copy_cat(loc, nullptr, KO_LC_TIME), -1);
    EXPECT_EQ(loc.error(), KO_ENULL);
    ko_cm_unload(nullptr);
    ko_lc_unload(nullptr);
    ko_free_category(nullptr, KO_LC_TIME);
}

TEST(Null, IsAWrongFormatOfTimes) {
    const loaded_locale loc(single_byte_object());
    ko_wchar_t wide[4] = {'a'}, *const no_wide = nullptr;
    ko_mchar_t bytes[4] = {'a'}, *const no_bytes = nullptr;
    ko_alt_tm_t tm = {};
    time_info info;
    int width = 0;
    const auto wrong = [&](int result, int failure) {
        EXPECT_EQ(result, failure);
        EXPECT_EQ(std::exchange(*ko_ext_errno(loc), 0), KO_EFORMAT);
    };
    wrong(ko_wcsftime1(loc, wide, 4, no_wide, &tm, nullptr, nullptr), 0);
    wrong(ko_mbsftime1(loc, bytes, 4, no_bytes, &tm, nullptr, &width), 0);
    wrong(ko_wcsfmtexpand(loc, 1, no_wide), -1);
    wrong(ko_mbsfmtexpand(loc, 1, no_bytes), -1);
    wrong(ko_wcsptime1(loc, wide, no_wide, &info, 0) != nullptr, 0);
    const ko_tm_t day = {};
    wrong(ko_wcsftime(loc, wide, 4, no_wide, &day), 0);
    wrong(ko_mbsftime(loc, bytes, 4, no_bytes, &day), 0);
    // Nor is one of bytes that are no characters.
    const loaded_locale mixed(double_byte_object(false));
    EXPECT_EQ(ko_mbsfmtexpand(mixed, 1, mb("\x81")), -1);
    EXPECT_EQ(ko_mbsftime1(mixed, bytes, 4, mb("\x81"), &tm, &width, nullptr) + width, 0);
    EXPECT_EQ(mixed.error(), KO_EILSEQ);
    EXPECT_EQ(ko_wcsftime1(nullptr, wide, 4, wide, &tm, nullptr, nullptr) +
                  ko_mbsfmtexpand(nullptr, 1, bytes) + ko_wcsfmtexpand(nullptr, 1, wide),
              -2);
    ko_mchar_t **names;
    EXPECT_EQ(ko_wcsftime1(loc, wide, 4, wide, nullptr, nullptr, nullptr) +
                  ko_mbsftime1(loc, bytes, 4, bytes, nullptr, nullptr, nullptr),
              0);
    EXPECT_EQ(ko_mbstimeinfo(loc, 1, nullptr, &width) + ko_mbstimeinfo(loc, 1, &names, nullptr),
              -2);
    EXPECT_EQ(loc.error(), KO_ENULL);
}

TEST(Null, HasNoPlaceForAHandle) {
    EXPECT_EQ(ko_create_null_locale_2(nullptr), -1);
    EXPECT_EQ(ko_createlocale2_2(nullptr, "x"), -1);
    EXPECT_EQ(ko_lc_load(nullptr, "x", nullptr, nullptr), -1);
    EXPECT_EQ(ko_cm_load(nullptr, "x", nullptr, nullptr), -1);
    EXPECT_EQ(ko_iconv_open(nullptr, "x", "y"), -1);
    EXPECT_EQ(ko_iconv_open1(nullptr, "x"), -1);
    EXPECT_EQ(ko_cv_open(nullptr, "a.x", "a.y"), -1);
    EXPECT_EQ(ko_cv_fnopen(nullptr, "a.x", "a.x", nullptr), -1);
    EXPECT_EQ(ko_cv_load(nullptr, "437", "437", nullptr, nullptr), -1);
    gen_exports head = {};
    EXPECT_EQ(ko_path_search(&head, "none", nullptr, nullptr), nullptr);
    EXPECT_EQ(head.ko_lerrno, KO_EFILE);
}
