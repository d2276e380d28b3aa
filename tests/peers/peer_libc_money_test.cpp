// Amounts of money under every compiled locale against the C library's strfmon_l. What the two do
// differently, on purpose, is listed in docs/money.md: the second test shows each difference, and
// the first leaves it out.
#include "peers/peer_rows.h"

#include <monetary.h>

#include <random>

namespace {

class PeerMoney : public PeerAscii {
  protected:
    std::string ours(const std::string &format, double amount) const {
        ko_wchar_t out[300] = {};
        EXPECT_GE(ko_wcsfmon(loc, out, 299, widened(format).data(), amount), 0);
        return peer_text(out);
    }
    std::string theirs(const std::string &format, double amount) const {
        char out[600];
        const ssize_t size = strfmon_l(out, sizeof out, peer, format.c_str(), amount);
        return size < 0 ? "failed" : std::string(out, size_t(size));
    }
};

std::string trimmed(std::string text) {
    text.resize(text.find_last_not_of(' ') + 1);
    return text;
}

TEST_P(PeerMoney, AgreesWhereTheConventionsDo) {
    const koconv *conv = ko_localeconv(loc);
    const std::string name = GetParam().name;
    const bool bytes = ko_mb_loc_max(loc) == 1, behind = conv->n_sign_posn == 2;
    const bool around = conv->n_sign_posn == 0;                     // parentheses
    const bool twice = conv->p_cs_precedes && conv->p_sep_by_space; // symbol, space, value
    const bool same = !ko_wcscmp(conv->w_thousands_sep, conv->w_mon_thousands_sep);
    const bool special =
        name == "hu_HU" || name == "or_IN" || name == "ko_KR" || name.starts_with("zh_") || around;
    const std::pair<const char *, bool> formats[] = {
        {"%n",     true              },
        {"%+n",    !around           },
        {"%^n",    true              },
        {"%.0n",   true              },
        {"%.3n",   true              },
        {"%(n",    true              },
        {"%#9n",   !behind           },
        {"%=*#9n", !behind           },
        {"%20n",   bytes             },
        {"%-20n",  bytes             },
        {"%!n",    !twice && !around },
        {"%i",     !twice && !special},
    };
    std::mt19937_64 random(43);
    for (const auto &[format, agrees] : formats) {
        if (!agrees || (!same && format[1] != '^')) continue;
        for (int i = 0; i < 500; ++i) {
            // No digit of 5 behind the last one that is written.
            double amount = double(random() % 10000000000) + 0.1234 + 0.0000001;
            if (i % 2) amount = double(random() % 10000) + 0.7382;
            if (i % 3) amount = -amount;
            if (conv->p_sep_by_space == 2 && format[1] == '(' && amount > 0) continue;
            ASSERT_EQ(trimmed(ours(format, amount)), trimmed(theirs(format, amount)))
                << format << " of " << amount;
        }
    }
}

TEST_P(PeerMoney, DiffersAsListed) {
    static const std::tuple<std::string, const char *, double, const char *, const char *> rows[] =
        {
            {"en_US.ISO-8859-1", "%n",    0.125,      "$0.13",         "$0.12"        },
            {"en_US.ISO-8859-1", "%n",    0.00499999, "$0.01",         "$0.00"        },
            {"en_US.ISO-8859-1", "%(#4n", 1,          " $    1.00 ",   " $    1.00"   },
            {"de_DE.ISO-8859-1", "%i",    1,          "1,00 EUR ",     "1,00 EUR"     },
            {"de_DE.unicode",    "%8n",   1,          "  1,00 \u20AC", "1,00 \u20AC"  },
            {"da_DK.ISO-8859-1", "%i",    1,          "DKK  1,00",     "DKK 1,00"     },
            {"da_DK.ISO-8859-1", "%!n",   1,          " 1,00",         "1,00"         },
            {"da_DK.ISO-8859-1", "%(n",   1,          "kr. 1,00",      "kr.1,00"      },
            {"he_IL.ISO-8859-8", "%#4n",  -1,         "ILS    1.00-",  "ILS     1.00-"},
            {"hu_HU.ISO-8859-2", "%i",    1,          "1,00 HUF ",     "HUF 1,00"     },
            {"fa_IR.unicode",    "%!n",   1234,       "1,234 ",        "1\u066C234"   },
            {"zh_CN.GB2312",     "%i",    -1,         "CNY -1.00",     "-CNY1.00"     },
    };
    for (const auto &[locale, format, amount, our, their] : rows) {
        if (GetParam().name + "." + GetParam().charmap != locale) continue;
        EXPECT_EQ(ours(format, amount), our) << format;
        EXPECT_EQ(theirs(format, amount), their) << format;
    }
}

INSTANTIATE_TEST_SUITE_P(Locales, PeerMoney, testing::ValuesIn(peer_rows()), row_name<peer_row>);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PeerMoney);

} // namespace
