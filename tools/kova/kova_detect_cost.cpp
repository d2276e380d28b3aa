// How much a text decoded under some code set looks unlike text.
#include "kova/kova_detect_cost.h"

#include <algorithm>
#include <string_view>

namespace kovacli {

namespace {
enum class script : uint8_t { none, latin, greek, cyrillic, hebrew, arabic, thai, asian, other };
struct code_class {
    uint32_t first, last;
    char_kind kind;
    script of;
};
} // namespace

// What characters are, in blocks; what is not listed is not assigned, or rare.
static constexpr code_class classes[] = {
    {0x0000,  0x0008,  char_kind::control, script::none    },
    {0x0009,  0x000D,  char_kind::blank,   script::none    },
    {0x000E,  0x001F,  char_kind::control, script::none    },
    {0x0020,  0x0020,  char_kind::blank,   script::none    },
    {0x0021,  0x002F,  char_kind::mark,    script::none    },
    {0x0030,  0x0039,  char_kind::digit,   script::none    },
    {0x003A,  0x0040,  char_kind::mark,    script::none    },
    {0x0041,  0x005A,  char_kind::letter,  script::latin   },
    {0x005B,  0x0060,  char_kind::mark,    script::none    },
    {0x0061,  0x007A,  char_kind::letter,  script::latin   },
    {0x007B,  0x007E,  char_kind::mark,    script::none    },
    {0x007F,  0x0084,  char_kind::control, script::none    },
    {0x0085,  0x0085,  char_kind::blank,   script::none    },
    {0x0086,  0x009F,  char_kind::control, script::none    },
    {0x00A0,  0x00A0,  char_kind::blank,   script::none    },
    {0x00A1,  0x00BF,  char_kind::symbol,  script::none    },
    {0x00C0,  0x00D6,  char_kind::letter,  script::latin   },
    {0x00D7,  0x00D7,  char_kind::symbol,  script::none    },
    {0x00D8,  0x00F6,  char_kind::letter,  script::latin   },
    {0x00F7,  0x00F7,  char_kind::symbol,  script::none    },
    {0x00F8,  0x024F,  char_kind::letter,  script::latin   },
    {0x0300,  0x036F,  char_kind::letter,  script::none    },
    {0x0370,  0x03FF,  char_kind::letter,  script::greek   },
    {0x0400,  0x052F,  char_kind::letter,  script::cyrillic},
    {0x0591,  0x05F4,  char_kind::letter,  script::hebrew  },
    {0x060C,  0x061F,  char_kind::mark,    script::none    },
    {0x0620,  0x06FF,  char_kind::letter,  script::arabic  },
    {0x0E01,  0x0E5B,  char_kind::letter,  script::thai    },
    {0x1E00,  0x1EFF,  char_kind::letter,  script::latin   },
    {0x1F00,  0x1FFF,  char_kind::letter,  script::greek   },
    {0x2000,  0x206F,  char_kind::mark,    script::none    },
    {0x20A0,  0x2BFF,  char_kind::symbol,  script::none    },
    {0x2E80,  0x2FDF,  char_kind::symbol,  script::asian   },
    {0x3000,  0x3000,  char_kind::blank,   script::none    },
    {0x3001,  0x3020,  char_kind::mark,    script::none    },
    {0x3021,  0x3040,  char_kind::symbol,  script::none    },
    {0x3041,  0x30FF,  char_kind::letter,  script::asian   },
    {0x3400,  0x9FFF,  char_kind::letter,  script::asian   },
    {0xAC00,  0xD7A3,  char_kind::letter,  script::asian   },
    {0xF900,  0xFAFF,  char_kind::symbol,  script::asian   },
    {0xFF01,  0xFF0F,  char_kind::mark,    script::none    },
    {0xFF10,  0xFF19,  char_kind::digit,   script::none    },
    {0xFF1A,  0xFF20,  char_kind::mark,    script::none    },
    {0xFF21,  0xFF5E,  char_kind::letter,  script::other   },
    {0xFF61,  0xFF9F,  char_kind::symbol,  script::asian   },
    {0xFFE0,  0xFFEE,  char_kind::symbol,  script::none    },
    {0x1F300, 0x1FAFF, char_kind::symbol,  script::none    },
    {0x20000, 0x3134F, char_kind::symbol,  script::asian   },
};

static code_class class_of(uint32_t code) {
    const auto *const end = std::end(classes);
    const auto *const found =
        std::lower_bound(std::begin(classes), end, code,
                         [](const code_class &one, uint32_t wanted) { return one.last < wanted; });
    if (found != end && found->first <= code) return *found;
    return {code, code, char_kind::unassigned, script::none};
}

// The letters of alphabets beyond those of ASCII, in lower case.
static constexpr struct {
    const char *language;
    std::u32string_view letters;
} alphabets[] = {
    {"German",     U"äöüß"                                                                },
    {"French",     U"àâæçéèêëîïôœùûüÿ"                                        },
    {"Spanish",    U"áéíñóúü¿¡ªº"                                                  },
    {"Portuguese", U"áâãàçéêíóôõúüªº"                                          },
    {"Italian",    U"àèéìíîòóùú"                                                    },
    {"Nordic",     U"åäöæøéü"                                                          },
    {"Icelandic",  U"áðéíóúýþæö"                                                    },
    {"Dutch",      U"áéëïíóöúüèê"                                                  },
    {"Polish",     U"ąćęłńóśźż"                                                      },
    {"Czech",      U"áčďéěíňóřšťúůýžľĺŕäô"                                },
    {"Hungarian",  U"áéíóöőúüű"                                                      },
    {"Croatian",   U"čćđšž"                                                              },
    {"Romanian",   U"ăâîșțşţ"                                                          },
    {"Turkish",    U"çğıöşüâîû"                                                      },
    {"Estonian",   U"äõöüšž"                                                            },
    {"Lithuanian", U"ąčęėįšųūž"                                                      },
    {"Latvian",    U"āčēģīķļņšūž"                                                  },
    {"Vietnamese", U"àáâãèéêìíòóôõùúýăđĩũơư"                            },
    {"Russian",    U"абвгдежзийклмнопрстуфхцчшщъыьэюяё"      },
    {"Ukrainian",  U"абвгґдежзийклмнопрстуфхцчшщьюяєії"      },
    {"Serbian",    U"абвгдежзиклмнопрстуфхцчшђјљњћџѓѕќ"      },
    {"Greek",      U"αβγδεζηθικλμνξοπρσςτυφχψωάέήίόύώϊϋΐΰ"},
};

static bool is_upper(uint32_t code) {
    const auto in = [code](uint32_t first, uint32_t last) { return code >= first && code <= last; };
    if (in(0x139, 0x148) || in(0x179, 0x17E)) return code % 2 == 1;
    if (in(0x100, 0x17F)) return code % 2 == 0 && code != 0x138;
    return in('A', 'Z') || (in(0xC0, 0xDE) && code != 0xD7) ||
           (in(0x386, 0x3AB) && code != 0x390) || in(0x400, 0x42F) || code == 0x490;
}

static uint32_t lower(uint32_t code) {
    if (!is_upper(code)) return code;
    if (code == 0x130) return 'i';
    if (code == 0x178) return 0xFF;
    if (code >= 0x100 && code < 0x180) return code + 1;
    if (code == 0x386) return 0x3AC;
    if (code >= 0x388 && code <= 0x38A) return code + 37;
    if (code == 0x38C) return 0x3CC;
    if (code == 0x38E || code == 0x38F) return code + 63;
    if (code >= 0x400 && code < 0x410) return code + 80;
    return code == 0x490 ? 0x491 : code + 32;
}

static void count_asian(text_shape &shape, uint32_t code) {
    shape.han += code >= 0x3400 && code <= 0x9FFF;
    shape.kana += code >= 0x3041 && code <= 0x30FF;
    shape.hangul += code >= 0xAC00 && code <= 0xD7A3;
    shape.half_kana += code >= 0xFF61 && code <= 0xFF9F;
}

static bool is_han(uint32_t code) { return code >= 0x3400 && code <= 0x9FFF; }

// In Thai a vowel or tone above or below needs a consonant before it, a vowel written in front
// needs one after it, and digits and signs are rare within words.
static bool breaks_thai(uint32_t last, uint32_t code) {
    const auto consonant = [](uint32_t c) { return c >= 0xE01 && c <= 0xE2E; };
    const auto above = [](uint32_t c) {
        return c == 0xE31 || (c >= 0xE34 && c <= 0xE3A) || (c >= 0xE47 && c <= 0xE4E);
    };
    const auto in_front = [](uint32_t c) { return c >= 0xE40 && c <= 0xE44; };
    if (above(code)) return !consonant(last) && !above(last);
    if (in_front(last)) return !consonant(code);
    return code == 0xE2F || code == 0xE3F || code >= 0xE4F;
}

// Neighbours that words do not have: letters of two scripts, a capital letter after a small one,
// a sign between letters.
static bool is_strange(const code_class &before, uint32_t last, const code_class &now,
                       uint32_t code) {
    if (now.of == script::thai) return breaks_thai(last, code);
    const bool letters = before.kind == char_kind::letter && now.kind == char_kind::letter;
    if (letters && before.of != now.of && before.of != script::none && now.of != script::none)
        return true;
    if (letters && is_upper(code) && !is_upper(last)) return now.of != script::asian;
    return before.kind == char_kind::letter && now.kind == char_kind::symbol;
}

// The alphabet that lacks the fewest of the letters beyond ASCII.
static void find_alphabet(text_shape &shape, const std::vector<uint32_t> &text) {
    std::array<uint64_t, std::size(alphabets)> lacking{};
    uint64_t letters = 0;
    for (const uint32_t code : text) {
        const script of = class_of(code).of;
        const bool told =
            code >= 0x80 && (of == script::latin || of == script::cyrillic || of == script::greek);
        letters += told;
        for (size_t i = 0; told && i < lacking.size(); ++i)
            lacking[i] +=
                alphabets[i].letters.find(char32_t(lower(code))) == std::u32string_view::npos;
    }
    if (letters == 0) return;
    const auto best = std::min_element(lacking.begin(), lacking.end());
    shape.outside_alphabet = *best;
    if (*best < letters) shape.alphabet = alphabets[best - lacking.begin()].language;
}

text_shape shape_of(const std::vector<uint32_t> &text) {
    static constexpr double costs[char_kinds] = {0, 0, 0, 0.05, 1, 4, 6};
    text_shape shape;
    code_class before{0, 0, char_kind::blank, script::none};
    uint32_t last = ' ', before_last = ' ';
    for (const uint32_t code : text) {
        const code_class now = class_of(code);
        ++shape.of_kind[size_t(now.kind)];
        shape.beyond_ascii += code >= 0x80;
        count_asian(shape, code);
        shape.strange_pairs += is_strange(before, last, now, code);
        shape.cost += costs[size_t(now.kind)];
        if (is_upper(code) && before.kind == char_kind::letter) shape.cost += 0.2;
        if (last == ' ' && is_han(code) && is_han(before_last)) shape.cost += 0.5;
        before = now;
        before_last = last;
        last = code;
    }
    shape.characters = text.size();
    find_alphabet(shape, text);
    shape.cost += double(shape.strange_pairs) + 0.8 * double(shape.outside_alphabet);
    return shape;
}

} // namespace kovacli
