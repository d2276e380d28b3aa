// String operations: stepping, trailing spaces, searching, copying, widths.
#include "char_records.h"

using std::string_view_literals::operator""sv;

namespace {

// Code sets with the classes that strings are about: ' ' and the last space of each are "space",
// controls are not printable, characters of two bytes are "full_width".
enum class set { bytes, euc, two_byte };
constexpr set all_sets[] = {set::bytes, set::euc, set::two_byte};
constexpr char full_width[] = "full_width";

struct text_record : char_record {
    user_bit bits[2] = {
        {3, const_cast<char *>("other")   },
        {0, const_cast<char *>(full_width)}
    };
    std::vector<uint16_t> byte_classes;
    text_record(set s, bool flat, bool wide_class = true) {
        const unsigned least = s == set::two_byte ? 2 : 1;
        for (unsigned c = 0; c < 0x80; ++c)
            add(c, least, c == ' ' ? 0x110 : c == '\n' ? 0x10 : c > ' ' && c < 0x7F ? 0x100 : 0);
        for (unsigned c = 0xA0; s == set::bytes && c < 0xF0; ++c)
            add(c, 1, c == 0xA0 ? 0x110 : 0x100);
        for (unsigned c = 0xA1A1; s != set::bytes && c < 0xA8A1; c += (c & 0xFF) == 0xFE ? 0xA3 : 1)
            add(c, 2, c == 0xA1A1 ? 0x910 : 0x900);
        finish(flat);
        if (wide_class) loc.user_bits = bits, loc.num_user_bits = 2;
        if (s != set::bytes || !flat) return;
        for (unsigned c = 0; c < 256; ++c)
            byte_classes.push_back(static_cast<uint16_t>(im_iswctype(&loc, ko_wchar_t(c), 0xFFFF)));
        loc.exp.sb_ctype_table = byte_classes.data();
        clear();
    }
};

const ko_mchar_t *units(std::string_view text) { return mb(text.data()); }

} // namespace

TEST(StrWidth, IsTheSumOfTheCharactersColumns) {
    static const struct {
        set s;
        std::string_view bytes;
        int n, width, error;
    } rows[] = {
        {set::euc,      "a\xA3\xA4"sv,       2,  3,  0        },
        {set::euc,      "a\xA3\xA4"sv,       1,  1,  0        },
        {set::euc,      "a\xA3\xA4"sv,       0,  0,  0        },
        {set::euc,      "a\xA3\xA4"sv,       -1, -1, KO_EINDEX},
        {set::euc,      "a\tb"sv,            9,  -1, KO_EINVAL},
        {set::euc,      "a\tb"sv,            1,  1,  0        },
        {set::euc,      "a\xA3"sv,           9,  -1, KO_EINVAL},
        {set::bytes,    "a \xC4"sv,          9,  3,  0        },
        {set::bytes,    "a\x80"sv,           9,  -1, KO_EINVAL},
        {set::bytes,    ""sv,                9,  0,  0        },
        {set::two_byte, "\0a\xA3\xA4\0\0"sv, 9,  3,  0        },
        {set::two_byte, "\0a\0\t\0\0"sv,     9,  -1, KO_EINVAL},
        {set::two_byte, "\0\0"sv,            9,  0,  0        },
    };
    for (const auto &row : rows) {
        for (const bool flat : {false, true}) {
            SCOPED_TRACE(testing::PrintToString(row.bytes) + (flat ? " flat" : " tree"));
            text_record r(row.s, flat);
            EXPECT_EQ(ko_mbswidth(r, units(row.bytes), row.n), row.width);
            EXPECT_EQ(r.error(), row.error);
        }
    }
    text_record plain(set::euc, true, false);
    EXPECT_EQ(ko_mbswidth(plain, mb("a\xA3\xA4"), 2), 2); // without the class
    EXPECT_EQ(ko_mbwidth(plain, mb("\xA3\xA4")), 1);
    EXPECT_EQ(ko_mbwidth(plain, nullptr), -1);
    EXPECT_EQ(plain.error(), KO_ENULL);
}

TEST(StrWidth, EndsBeforeAPosition) {
    static const struct {
        int from, to, width, error;
    } rows[] = {
        {0, 1, 1,  0      },
        {0, 3, 3,  0      },
        {0, 2, -1, KO_EPOS},
        {0, 4, 4,  0      },
        {0, 6, 4,  0      },
        {1, 1, 0,  0      },
        {1, 0, -1, KO_EPOS},
    };
    const ko_mchar_t *text = mb("a\xA3\xA4z\0b");
    for (const auto &row : rows) {
        SCOPED_TRACE(row.to);
        text_record r(set::euc, true);
        EXPECT_EQ(ko_mbspwidth(r, text + row.from, text + row.to), row.width);
        EXPECT_EQ(r.error(), row.error);
    }
    text_record r(set::bytes, true);
    const ko_wchar_t wide[] = {'a', 0xC4, 0x1C4, 0};
    EXPECT_EQ(ko_wcspwidth(r, wide, wide + 2), 2);
    EXPECT_EQ(ko_wcspwidth(r, wide, wide + 3), -1); // above the bytes there is no class
    EXPECT_EQ(r.error(), KO_EINVAL);
    EXPECT_EQ(ko_wcspwidth(r, wide, nullptr), -1);
    EXPECT_EQ(r.error(), KO_ENULL);
}
