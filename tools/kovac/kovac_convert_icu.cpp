// A code set as a converter of ICU knows it. ICU is large, so that it is loaded only when a code
// set needs it; the declarations are those of the version that kovac was built with.
#include "kovac/kovac_convert.h"

#if defined(KOVAC_HAS_ICU)
#include "kovac/kovac_icu.h"
#define U_SHOW_CPLUSPLUS_API 0
#include <unicode/ucnv.h>
#include <unicode/uset.h>
#endif

namespace kovac {

#if !defined(KOVAC_HAS_ICU)

bool has_icu() { return false; }

bool read_icu_set(const std::string &, conv_set &, std::string *why) {
    *why = "this kovac was built without ICU; install libicu-dev and build it again, or give a "
           "charmap or a mapping file by its path";
    return false;
}

#else

namespace {

struct icu_library : icu_part {
    icu_library() : icu_part("libicuuc.so." KOVAC_NAME(U_ICU_VERSION_MAJOR_NUM)) {}
    KOVAC_ICU_FUNCTION(open, ucnv_open);
    KOVAC_ICU_FUNCTION(close, ucnv_close);
    KOVAC_ICU_FUNCTION(type, ucnv_getType);
    KOVAC_ICU_FUNCTION(on_bad_bytes, ucnv_setToUCallBack);
    KOVAC_ICU_FUNCTION(on_bad_code, ucnv_setFromUCallBack);
    KOVAC_ICU_FUNCTION(stop_at_bytes, UCNV_TO_U_CALLBACK_STOP);
    KOVAC_ICU_FUNCTION(stop_at_code, UCNV_FROM_U_CALLBACK_STOP);
    KOVAC_ICU_FUNCTION(use_fallbacks, ucnv_setFallback);
    KOVAC_ICU_FUNCTION(reset_to_unicode, ucnv_resetToUnicode);
    KOVAC_ICU_FUNCTION(reset_from_unicode, ucnv_resetFromUnicode);
    KOVAC_ICU_FUNCTION(to_unicode, ucnv_toUnicode);
    KOVAC_ICU_FUNCTION(from_unicode, ucnv_fromUnicode);
    KOVAC_ICU_FUNCTION(known_codes, ucnv_getUnicodeSet);
    KOVAC_ICU_FUNCTION(new_set, uset_openEmpty);
    KOVAC_ICU_FUNCTION(free_set, uset_close);
    KOVAC_ICU_FUNCTION(count_items, uset_getItemCount);
    KOVAC_ICU_FUNCTION(item, uset_getItem);
};

const icu_library &icu() {
    static const icu_library loaded;
    return loaded;
}

struct icu_converter {
    UConverter *cv = nullptr;
    explicit icu_converter(const std::string &name) {
        UErrorCode status = U_ZERO_ERROR;
        cv = icu().open(name.c_str(), &status);
        if (!cv) return;
        status = U_ZERO_ERROR;
        icu().on_bad_bytes(cv, icu().stop_at_bytes, nullptr, nullptr, nullptr, &status);
        icu().on_bad_code(cv, icu().stop_at_code, nullptr, nullptr, nullptr, &status);
        icu().use_fallbacks(cv, true); // an entry that does not come back gets its flag
    }
    icu_converter(const icu_converter &) = delete;
    ~icu_converter() {
        if (cv) icu().close(cv);
    }
};

asked ask_code(UConverter *cv, const std::string &text, uint32_t *code) {
    UChar units[8], *to = units;
    const char *from = text.data();
    UErrorCode status = U_ZERO_ERROR;
    icu().reset_to_unicode(cv);
    icu().to_unicode(cv, &to, units + 8, &from, from + text.size(), nullptr, true, &status);
    if (status == U_TRUNCATED_CHAR_FOUND) return asked::incomplete;
    const auto count = to - units;
    if (U_FAILURE(status) || count == 0) return asked::invalid;
    const bool pair = count == 2 && U16_IS_LEAD(units[0]) && U16_IS_TRAIL(units[1]);
    if (count > 1 && !pair) return asked::several;
    *code = pair ? uint32_t(U16_GET_SUPPLEMENTARY(units[0], units[1])) : units[0];
    return asked::character;
}

bool ask_bytes(UConverter *cv, uint32_t code, std::string &bytes) {
    UChar units[2];
    int count = 0;
    U16_APPEND_UNSAFE(units, count, code);
    char out[16], *to = out;
    const UChar *from = units;
    UErrorCode status = U_ZERO_ERROR;
    icu().reset_from_unicode(cv);
    icu().from_unicode(cv, &to, out + sizeof out, &from, units + count, nullptr, true, &status);
    bytes.assign(out, size_t(to - out));
    return U_SUCCESS(status) != 0;
}

// The code points that the converter knows.
std::vector<std::pair<uint32_t, uint32_t>> known_ranges(UConverter *cv) {
    std::vector<std::pair<uint32_t, uint32_t>> ranges;
    USet *known = icu().new_set();
    UErrorCode status = U_ZERO_ERROR;
    icu().known_codes(cv, known, UCNV_ROUNDTRIP_AND_FALLBACK_SET, &status);
    const int32_t items = U_FAILURE(status) ? 0 : icu().count_items(known);
    for (int32_t i = 0; i < items; ++i) {
        UChar32 first = 0, last = 0;
        status = U_ZERO_ERROR;
        if (icu().item(known, i, &first, &last, nullptr, 0, &status) == 0)
            ranges.emplace_back(uint32_t(first), uint32_t(last));
    }
    icu().free_set(known);
    return ranges;
}

} // namespace

bool has_icu() { return icu().complete; }

bool read_icu_set(const std::string &name, conv_set &set, std::string *why) {
    *why = "libicuuc.so." KOVAC_NAME(
        U_ICU_VERSION_MAJOR_NUM) " cannot be loaded; install it, or give "
                                 "a charmap or a mapping file by its path";
    if (!icu().complete) return false;
    const icu_converter one(name);
    why->clear();
    if (!one.cv) return false;
    switch (icu().type(one.cv)) {
    case UCNV_SBCS:
    case UCNV_DBCS:
    case UCNV_MBCS:
    case UCNV_LATIN_1:
    case UCNV_US_ASCII:
        break;
    case UCNV_EBCDIC_STATEFUL:
        set.stateful = true;
        break;
    default:
        *why = "ICU converts it by a procedure, not by a table";
        return false;
    }
    const set_asker ask{
        [&one](const std::string &bytes, uint32_t *code) { return ask_code(one.cv, bytes, code); },
        [&one](uint32_t code, std::string &bytes) { return ask_bytes(one.cv, code, bytes); },
        known_ranges(one.cv),
    };
    read_by_asking(ask, name, set);
    if (set.codes.empty()) *why = "ICU's converter has no characters";
    return !set.codes.empty();
}

#endif

} // namespace kovac
