// Locales with given conventions of numbers and money, and texts in their code sets.
#ifndef NUMBER_RECORDS_H
#define NUMBER_RECORDS_H

#include "support/locale_builder.h"
#include "support/rows.h"

enum charset { mixed, two_bytes, mainframe };
inline std::string spelled(std::string_view text, charset set) {
    return set == mainframe ? ebcdic(text) : encoded(text, set == two_bytes);
}

// Texts of ASCII.
struct conventions {
    std::string point = ".", separator = ",", groups = "1 3", positive = "", negative = "-";
    std::string symbol = "$", mon_groups = "1 3", mon_positive = "";
};

// Beside ASCII there is byte A4, a symbol of two columns.
inline locale_object with_conventions(const conventions &c, charset set = mixed) {
    locale_object object = double_byte_object(set == two_bytes);
    const auto bytes = [set](int byte) {
        return encoded(std::string(1, char(byte)), set == two_bytes);
    };
    std::vector<table_entry> classes(1, {bytes(0xA4), KO_CT_PRINT | 0x800});
    for (int b = 0; b < 128; b++) {
        const int mask = (isdigit(b) ? KO_CT_DIGIT : 0) | (ispunct(b) ? KO_CT_PUNCT : 0) |
                         (isprint(b) ? KO_CT_PRINT : 0) | (isspace(b) ? KO_CT_SPACE : 0) |
                         (isblank(b) ? KO_CT_BLANK : 0);
        classes.push_back({bytes(b), uint16_t(mask)});
    }
    const std::vector<table_entry> no_case(1, {bytes(0), 0});
    object.ctype = table_text(classes) + "1\n0 full_width\n" + table_text(no_case) + "0\n";
    if (set == mainframe) make_ebcdic(&object);
    const auto str = [set](const std::string &text) { return field(spelled(text, set)); };
    object.numeric =
        str(c.point) + str(c.separator) + c.groups + "\n" + str(c.positive) + str(c.negative);
    object.monetary = str("USD ") + str(c.symbol) + str(".") + str("'") + c.mon_groups + "\n" +
                      str(c.mon_positive) + str("-") + "2 2 1 0 1 0 1 1\n";
    return object;
}

// Text in the code set of a locale.
inline std::vector<ko_wchar_t> in_set(ko_lc_t loc, std::string_view text) {
    std::vector<ko_wchar_t> units;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        units.push_back(byte < 0x80 ? native(record(loc), byte) : byte);
    }
    units.push_back(0);
    return units;
}
inline int taken_error(ko_lc_t loc) { return std::exchange(*ko_ext_errno(loc), 0); }

// Results and errors of a call while one allocation after another fails, up to what is wanted.
template <class Call> std::string without_memory(ko_lc_t loc, int want, Call call) {
    std::string all;
    each_allocation_fails([&] {
        const int n = call();
        all += std::to_string(n) + "!" + std::to_string(taken_error(loc)) + " ";
        return n == want;
    });
    return all;
}

#endif
