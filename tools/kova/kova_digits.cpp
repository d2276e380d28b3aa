// Digits of the scripts of the world.
#include "kova/kova_digits.h"

#include <algorithm>

#include "kova/kova_names.h"

namespace kovacli {

namespace {
struct numbering {
    const char *name;
    uint32_t zero; // the others follow it, except those of hanidec
};
} // namespace

static constexpr numbering numberings[] = {
    {"adlm",     0x1E950},
    {"ahom",     0x11730},
    {"arab",     0x660  },
    {"arabext",  0x6F0  },
    {"bali",     0x1B50 },
    {"beng",     0x9E6  },
    {"bhks",     0x11C50},
    {"brah",     0x11066},
    {"cakm",     0x11136},
    {"cham",     0xAA50 },
    {"deva",     0x966  },
    {"diak",     0x11950},
    {"fullwide", 0xFF10 },
    {"gong",     0x11DA0},
    {"gonm",     0x11D50},
    {"gujr",     0xAE6  },
    {"guru",     0xA66  },
    {"hanidec",  0x3007 },
    {"hmng",     0x16B50},
    {"hmnp",     0x1E140},
    {"java",     0xA9D0 },
    {"kali",     0xA900 },
    {"kawi",     0x11F50},
    {"khmr",     0x17E0 },
    {"knda",     0xCE6  },
    {"lana",     0x1A80 },
    {"lanatham", 0x1A90 },
    {"laoo",     0xED0  },
    {"latn",     0x30   },
    {"lepc",     0x1C40 },
    {"limb",     0x1946 },
    {"mathbold", 0x1D7CE},
    {"mathdbl",  0x1D7D8},
    {"mathmono", 0x1D7F6},
    {"mathsanb", 0x1D7EC},
    {"mathsans", 0x1D7E2},
    {"mlym",     0xD66  },
    {"modi",     0x11650},
    {"mong",     0x1810 },
    {"mroo",     0x16A60},
    {"mtei",     0xABF0 },
    {"mymr",     0x1040 },
    {"mymrshan", 0x1090 },
    {"mymrtlng", 0xA9F0 },
    {"nagm",     0x1E4F0},
    {"newa",     0x11450},
    {"nkoo",     0x7C0  },
    {"olck",     0x1C50 },
    {"orya",     0xB66  },
    {"osma",     0x104A0},
    {"rohg",     0x10D30},
    {"saur",     0xA8D0 },
    {"segment",  0x1FBF0},
    {"shrd",     0x111D0},
    {"sind",     0x112F0},
    {"sinh",     0xDE6  },
    {"sora",     0x110F0},
    {"sund",     0x1BB0 },
    {"takr",     0x116C0},
    {"talu",     0x19D0 },
    {"tamldec",  0xBE6  },
    {"telu",     0xC66  },
    {"thai",     0xE50  },
    {"tibt",     0xF20  },
    {"tirh",     0x114D0},
    {"tnsa",     0x16AC0},
    {"vaii",     0xA620 },
    {"wara",     0x118E0},
    {"wcho",     0x1E2F0},
};

static constexpr uint32_t han_zero = 0x3007;
static constexpr uint32_t han_digits[] = {0x3007, 0x4E00, 0x4E8C, 0x4E09, 0x56DB,
                                          0x4E94, 0x516D, 0x4E03, 0x516B, 0x4E5D};

// Languages, or locales, whose own digits are not 0 to 9.
static constexpr const char *natives[][2] = {
    {"ar",  "arab"   },
    {"as",  "beng"   },
    {"bho", "deva"   },
    {"bn",  "beng"   },
    {"bo",  "tibt"   },
    {"brx", "deva"   },
    {"ccp", "cakm"   },
    {"ckb", "arab"   },
    {"doi", "deva"   },
    {"dz",  "tibt"   },
    {"fa",  "arabext"},
    {"gu",  "gujr"   },
    {"hi",  "deva"   },
    {"jv",  "java"   },
    {"km",  "khmr"   },
    {"kn",  "knda"   },
    {"kok", "deva"   },
    {"ks",  "arabext"},
    {"lo",  "laoo"   },
    {"lrc", "arabext"},
    {"mai", "deva"   },
    {"ml",  "mlym"   },
    {"mr",  "deva"   },
    {"my",  "mymr"   },
    {"mzn", "arabext"},
    {"ne",  "deva"   },
    {"or",  "orya"   },
    {"pa",  "guru"   },
    {"pnb", "arabext"},
    {"ps",  "arabext"},
    {"sa",  "deva"   },
    {"sd",  "arab"   },
    {"ta",  "tamldec"},
    {"te",  "telu"   },
    {"th",  "thai"   },
    {"ug",  "arabext"},
    {"ur",  "arabext"},
    {"yue", "hanidec"},
    {"zh",  "hanidec"},
};

static std::string native_name(const object_file &object) {
    const std::string name = source_name(object);
    const std::string language = name.substr(0, name.find_first_of("_.@"));
    for (const auto &row : natives)
        if (language == row[0]) return row[1];
    return "latn";
}

static std::string outer_char(const codec &code, uint32_t point, const std::string &name) {
    std::string text;
    if (code.utf8) {
        append_utf8(point, text);
        return text;
    }
    const uint16_t wide = point < code.wide_of.size() ? code.wide_of[point] : uint16_t{0};
    if (!wide)
        throw failure(bad_text, "--digits " + name + ": " + code.code_set +
                                    " has no such digits; --utf8 writes them");
    encode_bytes(code, wide, text);
    return text;
}

digit_set digits_named(const codec &code, const std::string &name, const object_file &object) {
    const std::string wanted = name == "native" ? native_name(object) : name;
    digit_set digits;
    if (wanted.empty() || wanted == "latn") return digits;
    const auto found = std::find_if(std::begin(numberings), std::end(numberings),
                                    [&](const numbering &row) { return wanted == row.name; });
    if (found == std::end(numberings)) {
        std::string all;
        for (const numbering &row : numberings)
            all += std::string(" ") + row.name;
        throw failure(bad_usage, "--digits " + name + ": there are native and" + all);
    }
    for (uint32_t i = 0; i < 10; ++i)
        digits[i] =
            outer_char(code, found->zero == han_zero ? han_digits[i] : found->zero + i, wanted);
    return digits;
}

std::string with_digits(const codec &code, const digit_set &digits, const ko_wchar_t *wide,
                        size_t count) {
    std::string text;
    if (digits[0].empty()) {
        encode(code, wide, count, text);
        return text;
    }
    const wide_text plain = native(code, "0123456789");
    size_t done_to = 0;
    for (size_t at = 0; at < count; ++at) {
        const auto digit = std::find(plain.begin(), plain.end(), wide[at]);
        if (digit == plain.end()) continue;
        encode(code, wide + done_to, at - done_to, text);
        text += digits[size_t(digit - plain.begin())];
        done_to = at + 1;
    }
    encode(code, wide + done_to, count - done_to, text);
    return text;
}

std::string plain_digits(const codec &code, const std::string &text) {
    const auto ascii = [](char c) { return uint8_t(c) < 0x80; };
    if (!code.utf8 || std::all_of(text.begin(), text.end(), ascii)) return text;
    std::string plain;
    for (size_t at = 0; at < text.size();) {
        uint32_t point = 0;
        const auto *bytes = reinterpret_cast<const unsigned char *>(text.data()) + at;
        const int size = std::max(utf8_char(bytes, text.size() - at, point), 1);
        const int digit = size > 1 ? digit_value(point) : -1;
        plain += digit < 0 ? text.substr(at, size_t(size)) : std::string(1, char('0' + digit));
        at += size_t(size);
    }
    return plain;
}

int digit_value(uint32_t code_point) {
    for (const numbering &row : numberings)
        if (row.zero != han_zero && code_point - row.zero < 10) return int(code_point - row.zero);
    const auto han = std::find(std::begin(han_digits), std::end(han_digits), code_point);
    return han == std::end(han_digits) ? -1 : int(han - han_digits);
}

} // namespace kovacli
