// Data roots with a small locale and its conversions, for calls that open locales.
#ifndef HOST_ROOTS_H
#define HOST_ROOTS_H

#include "kova_host.h"
#include "support/conversion_builder.h"
#include "support/locale_builder.h"

// An object with the hash of its content.
inline std::string sealed(std::string object) {
    uint64_t content = 0;
    const size_t at = object.find("HASH=0\n");
    if (at != object.npos) object.replace(at, 7, "CONTENT=0000000000000000\n");
    EXPECT_EQ(ko_verify_object(object.data(), object.size(), &content), KO_EOBJECT);
    char digits[17];
    snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(content));
    return object.replace(object.find("CONTENT=") + 8, 16, digits);
}

// The conversions of the code set of single_byte_object, whose characters are those of ISO-8859-1.
inline std::vector<std::string> single_byte_characters() {
    std::vector<std::string> all = {{'\0'}, "\xC3\x9F"};
    for (const char c : std::string(" -abchsABCHS"))
        all.push_back({c});
    return all;
}
inline std::string conversion(bool to_utf8) {
    cv_object object;
    for (const std::string &text : single_byte_characters()) {
        const std::string own = text.size() == 1 ? text : "\xDF";
        const unsigned flags = text[0] ? cv_plain : cv_plain | cv_terminator;
        object.noshift.push_back({to_utf8 ? own : text, flags, to_utf8 ? text : own});
    }
    // Approximations do not count as characters of the code set.
    if (!to_utf8) object.noshift.push_back({"x", cv_substitute, "a"});
    (to_utf8 ? object.target_max : object.max) = 2;
    object.header = "FILE_TYPE=codeset_conversion_object\nCOMPILER_VERSION=9\nHEADER_LENGTH=4\n"
                    "CONTENT=0000000000000000\n";
    return sealed(object.str());
}

constexpr char small_registry[] = "utf8 57372\ntest-1 1\nother 2\n";

// A root on disk: "de_DE.test-1" is a sealed object with conversions.
struct small_root : temp_dir {
    locale_object object = single_byte_object();
    explicit small_root(const char *release = nullptr) {
        if (release)
            object.header = std::string("HEADER_LINES=5\nHASH=0\nRELEASE=") + release + "\n";
        write("kova/lc11/de_de/0001.lco", sealed(object.str()));
        write("kova/cm3/registry", small_registry);
        write("kova/cv9/e01c0001.cvo", conversion(false));
        write("kova/cv9/0001e01c.cvo", conversion(true));
    }
};

// A record of ko_open_locale, given back at the end.
struct opened : owned<ko_close_locale> {
    opened(const char *root, const char *spec, unsigned flags = 0) {
        result = ko_open_locale(&handle, root, spec, flags);
        EXPECT_EQ(handle == nullptr, result != 0);
    }
};

#endif
