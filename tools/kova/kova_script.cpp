// Scripts by their ISO 15924 codes, and the blocks of Unicode's basic plane with their letters.
#include "kova/kova_script.h"

#include <algorithm>
#include <iterator>

namespace kovacli {

namespace {
struct block {
    uint16_t first, last;
};
constexpr size_t most_blocks = 10;
} // namespace

// The usual characters come first, in so many blocks.
struct script {
    const char *code;
    size_t usual;
    block blocks[most_blocks];
};

static constexpr script scripts[] = {
    {"latn",
     4,         {{0x0041, 0x005A},
      {0x0061, 0x007A},
      {0x00C0, 0x017F},
      {0x0218, 0x021B},
      {0x0180, 0x02AF},
      {0x1D00, 0x1DBF},
      {0x1E00, 0x1EFF},
      {0x2C60, 0x2C7F},
      {0xA722, 0xA7FF},
      {0xFB00, 0xFB06}}                                                          },
    {"grek", 1, {{0x0386, 0x03CE}, {0x0370, 0x03FF}, {0x1F00, 0x1FFF}}                  },
    {"cyrl",
     2,         {{0x0400, 0x045F},
      {0x0490, 0x0491},
      {0x0460, 0x052F},
      {0x1C80, 0x1C8F},
      {0x2DE0, 0x2DFF},
      {0xA640, 0xA69F}}                                                          },
    {"armn", 1, {{0x0531, 0x0588}, {0xFB13, 0xFB17}}                                    },
    {"hebr", 1, {{0x05D0, 0x05EA}, {0x05EF, 0x05F4}, {0xFB1D, 0xFB4F}}                  },
    {"arab",
     7,         {{0x0620, 0x064A},
      {0x067E, 0x067E},
      {0x0686, 0x0686},
      {0x0698, 0x0698},
      {0x06A9, 0x06A9},
      {0x06AF, 0x06AF},
      {0x06CC, 0x06CC},
      {0x066E, 0x06FF},
      {0x0750, 0x08FF},
      {0xFB50, 0xFEFC}}                                                          },
    {"syrc", 1, {{0x0710, 0x072F}, {0x0700, 0x074F}}                                    },
    {"thaa", 1, {{0x0780, 0x07BF}}                                                      },
    {"nkoo", 1, {{0x07C0, 0x07FF}}                                                      },
    {"deva", 1, {{0x0900, 0x097F}, {0xA8E0, 0xA8FF}}                                    },
    {"beng", 1, {{0x0980, 0x09FF}}                                                      },
    {"guru", 1, {{0x0A00, 0x0A7F}}                                                      },
    {"gujr", 1, {{0x0A80, 0x0AFF}}                                                      },
    {"orya", 1, {{0x0B00, 0x0B7F}}                                                      },
    {"taml", 1, {{0x0B80, 0x0BFF}}                                                      },
    {"telu", 1, {{0x0C00, 0x0C7F}}                                                      },
    {"knda", 1, {{0x0C80, 0x0CFF}}                                                      },
    {"mlym", 1, {{0x0D00, 0x0D7F}}                                                      },
    {"sinh", 1, {{0x0D80, 0x0DFF}}                                                      },
    {"thai", 1, {{0x0E00, 0x0E7F}}                                                      },
    {"laoo", 1, {{0x0E80, 0x0EFF}}                                                      },
    {"tibt", 1, {{0x0F00, 0x0FFF}}                                                      },
    {"mymr", 1, {{0x1000, 0x109F}, {0xA9E0, 0xA9FF}, {0xAA60, 0xAA7F}}                  },
    {"geor", 1, {{0x10D0, 0x10FF}, {0x10A0, 0x10CF}, {0x1C90, 0x1CBF}, {0x2D00, 0x2D2F}}},
    {"hang", 2, {{0x1100, 0x11FF}, {0x3131, 0x318E}, {0xA960, 0xA97F}, {0xAC00, 0xD7FF}}},
    {"ethi", 1, {{0x1200, 0x137F}, {0x1380, 0x139F}, {0x2D80, 0x2DDF}, {0xAB00, 0xAB2F}}},
    {"cher", 1, {{0x13A0, 0x13FF}, {0xAB70, 0xABBF}}                                    },
    {"cans", 1, {{0x1400, 0x167F}, {0x18B0, 0x18FF}}                                    },
    {"khmr", 1, {{0x1780, 0x17FF}}                                                      },
    {"mong", 1, {{0x1800, 0x18AF}}                                                      },
    {"olck", 1, {{0x1C50, 0x1C7F}}                                                      },
    {"tfng", 1, {{0x2D30, 0x2D7F}}                                                      },
    {"hira", 1, {{0x3041, 0x3096}, {0x3097, 0x309F}}                                    },
    {"kana", 1, {{0x30A1, 0x30FA}, {0x30FB, 0x30FF}, {0x31F0, 0x31FF}, {0xFF66, 0xFF9D}}},
    {"bopo", 1, {{0x3105, 0x312F}, {0x31A0, 0x31BF}}                                    },
    {"hani",
     1,         {{0x4E00, 0x9FFF},
      {0x2E80, 0x2FDF},
      {0x3005, 0x3007},
      {0x3021, 0x3029},
      {0x3400, 0x4DBF},
      {0xF900, 0xFAFF}}                                                          },
};

static bool in_blocks(const script &s, size_t count, uint32_t point) {
    return std::any_of(s.blocks, s.blocks + count, [point](const block &b) {
        return b.first && point >= b.first && point <= b.last;
    });
}

const script *find_script(std::string_view code) {
    std::string lower(code);
    for (char &c : lower)
        c = c >= 'A' && c <= 'Z' ? char(c + 'a' - 'A') : c;
    for (const script &s : scripts)
        if (lower == s.code) return &s;
    return nullptr;
}

const script *script_at(uint32_t point) {
    for (const script &s : scripts)
        if (has_character(s, point)) return &s;
    return nullptr;
}

const char *code_of(const script &s) { return s.code; }

bool has_character(const script &s, uint32_t point) { return in_blocks(s, most_blocks, point); }

bool has_usual_character(const script &s, uint32_t point) { return in_blocks(s, s.usual, point); }

std::string script_codes() {
    std::string text;
    for (const script &s : scripts)
        text += (text.empty() ? "" : ", ") + std::string(s.code);
    return text;
}

} // namespace kovacli
