// Widths of all characters, and classes and case of those beyond the basic plane, beside the C
// library's. With KOVA_WRITE_CHARS the tables of the commands are made from them instead.
#include "kova/kova_char.h"
#include "kova_host.h"

#include "peers/peer_rows.h"

#include <cstdio>
#include <cwchar>
#include <cwctype>

namespace {

constexpr unsigned first_far = 0x10000, end_of_codes = 0x110000;

class PeerChars : public PeerTest {
  protected:
    void SetUp() override {
        if (!GetParam().unicode()) GTEST_SKIP() << "has no more characters than the others test";
        PeerTest::SetUp();
        for (const char *name : class_names)
            classes.emplace_back(wctype_l(name, peer), ko_ctype(loc, name));
    }
    unsigned peer_classes(unsigned code) const {
        unsigned found = 0;
        for (const auto &[type, mask] : classes)
            if (iswctype_l(code, type, peer)) found |= mask;
        return found;
    }
    void write_tables() const;
    std::vector<std::pair<wctype_t, unsigned>> classes;
};

// ---- the tables ----

struct range {
    unsigned first, last;
    int value;
    bool open; // what follows may lengthen it
};

void add(std::vector<range> &ranges, unsigned code, int value) {
    if (!ranges.empty() && ranges.back().open && ranges.back().value == value)
        ranges.back().last = code;
    else
        ranges.push_back({code, code, value, true});
}

void end_range(std::vector<range> &ranges) {
    if (!ranges.empty()) ranges.back().open = false;
}

template <class Name>
void write(FILE *to, const char *head, const std::vector<range> &ranges, Name name) {
    fprintf(to, "\nconstexpr %s[] = {", head);
    std::string line;
    for (const range &r : ranges) {
        char text[64];
        snprintf(text, sizeof text, "{0x%04X, 0x%04X, %s}, ", r.first, r.last,
                 std::string(name(r.value)).c_str());
        if (line.empty() || line.size() + strlen(text) > 97) {
            fprintf(to, "%s\n    ", line.substr(0, line.find_last_not_of(' ') + 1).c_str());
            line.clear();
        }
        line += text;
    }
    fprintf(to, "%s\n};\n", line.substr(0, line.find_last_not_of(' ') + 1).c_str());
}

const char *name_of(int mask) {
    static const struct {
        const char *name;
        int classes;
    } names[] = {
        {"letter", KO_CT_ALPHA              },
        {"upper",  KO_CT_ALPHA | KO_CT_UPPER},
        {"lower",  KO_CT_ALPHA | KO_CT_LOWER},
        {"punct",  KO_CT_PUNCT              }
    };
    for (const auto &n : names)
        if (mask == (n.classes | KO_CT_GRAPH | KO_CT_PRINT)) return n.name;
    ADD_FAILURE() << "kova_char.cpp needs a name for the classes " << mask;
    return "";
}

void PeerChars::write_tables() const {
    std::vector<range> of_classes, of_widths;
    for (unsigned c = 1; c < end_of_codes; ++c) {
        if (const unsigned found = c < first_far ? 0 : peer_classes(c))
            add(of_classes, c, int(found));
        else
            end_range(of_classes);
        // What is not printable may stand in any range.
        const int columns = wcwidth(wchar_t(c));
        if (columns == 1)
            end_range(of_widths);
        else if (columns >= 0)
            add(of_widths, c, columns);
    }
    FILE *const to =
        fopen((env("KOVA_SOURCE_DIR") + "/tools/kova/kova_char_tab.inc").c_str(), "wb");
    ASSERT_TRUE(to);
    fputs(
        "// Made by: KOVA_WRITE_CHARS=1 ctest --preset release -R 'peer_chars_test|peers.compile'\n"
        "// Classes of the characters beyond the basic plane, and widths other than 1.\n",
        to);
    write(to, "class_range class_ranges", of_classes, name_of);
    write(to, "width_range width_ranges", of_widths, [](int v) { return std::to_string(v); });
    fclose(to);
}

} // namespace

TEST_P(PeerChars, AreThoseOfTheCLibrary) {
    if (!env("KOVA_WRITE_CHARS").empty() && GetParam().name == "en_US") return write_tables();
    kovacli::codec code;
    code.loc = loc;
    code.utf16 = true;
    int bad = 0;
    for (unsigned c = 1; c < end_of_codes && bad < 20; ++c) {
        if (c >= 0xD800 && c < 0xE000) continue;
        const std::u16string text = utf16(c);
        std::vector<ko_wchar_t> wide = wcs(text);
        const auto differ = [&](const char *what, long ours, long theirs) {
            if (ours == theirs) return;
            ++bad;
            ADD_FAILURE() << std::hex << "U+" << c << ": " << what << ' ' << ours
                          << ", the C library " << theirs;
        };
        differ("columns", kovacli::columns_of(code, wide.data(), text.size()), wcwidth(wchar_t(c)));
        if (c < first_far) continue;
        differ("classes", kovacli::far_classes(c), peer_classes(c));
        for (const bool upper : {true, false}) {
            std::vector<ko_wchar_t> pair = wide;
            kovacli::map_pairs(code, pair.data(), 2, upper);
            const long made = 0x10000 + ((pair[0] & 0x3FF) << 10) + (pair[1] & 0x3FF);
            differ(upper ? "upper" : "lower", made,
                   long(upper ? towupper_l(c, peer) : towlower_l(c, peer)));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Locales, PeerChars, testing::ValuesIn(peer_rows()), row_name<peer_row>);
