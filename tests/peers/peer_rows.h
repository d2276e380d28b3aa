// The rows of data/locales.list for comparisons with the C library's own locale of the same source
// and charmap. KOVA_LOCALES_LIST names the list, KOVA_TEST_ROOT the compiled objects and
// KOVA_PEER_LOCPATH a folder in which localedef has compiled NAME.CHARMAP for each row.
#ifndef PEER_ROWS_H
#define PEER_ROWS_H

#include "host/host_records.h"

#include <clocale>
#include <cstdlib>
#include <fstream>
#include <sstream>

struct peer_row {
    std::string source, charmap, name, codeset;
    bool unicode() const { return charmap == "unicode"; }
};

inline void PrintTo(const peer_row &r, std::ostream *out) { *out << r.name << "." << r.charmap; }

// The lines of a list, without their comments.
inline std::vector<std::istringstream> list_lines(const std::string &path) {
    std::vector<std::istringstream> lines;
    std::ifstream list(path);
    for (std::string line; std::getline(list, line);)
        lines.emplace_back(line.substr(0, line.find('#')));
    return lines;
}

inline std::vector<peer_row> peer_rows() {
    std::vector<peer_row> rows;
    for (std::istringstream &words : list_lines(env("KOVA_LOCALES_LIST"))) {
        peer_row r;
        if (!(words >> r.source >> r.charmap) || r.source == "POSIX") continue;
        // The C library has none of the sources that lie beside the list.
        if (std::ifstream(env("KOVA_SOURCE_DIR") + "/data/locales/" + r.source)) continue;
        if (!(words >> r.name)) r.name = r.source;
        if (!(words >> r.codeset)) r.codeset = r.charmap;
        rows.push_back(r);
    }
    return rows;
}

// The classes that both sides know by the same names.
constexpr const char *class_names[] = {"upper", "lower", "alpha", "digit",  "space", "cntrl",
                                       "punct", "graph", "print", "xdigit", "blank"};

// Both locales of a row, open while the test runs.
class PeerTest : public testing::TestWithParam<peer_row> {
  protected:
    void SetUp() override {
        const peer_row &r = GetParam();
        setenv("VANTORDIR", env("KOVA_TEST_ROOT").c_str(), 1);
        setenv("LOCPATH", env("KOVA_PEER_LOCPATH").c_str(), 1);
        const std::string peer_name = r.name + "." + (r.unicode() ? "UTF-8" : r.charmap);
        peer = newlocale(LC_ALL_MASK, peer_name.c_str(), nullptr);
        ASSERT_TRUE(peer) << "the C library has no " << peer_name;
        before = uselocale(peer);
        const size_t modifier = std::min(r.name.find('@'), r.name.size());
        const std::string spec =
            r.name.substr(0, modifier) + "." + r.codeset + r.name.substr(modifier);
        ASSERT_EQ(ko_lc_load(&loc, spec.c_str(), nullptr, nullptr), 0)
            << spec << ": error " << *ko_ext_errno(loc);
    }
    void TearDown() override {
        ko_lc_unload(loc);
        if (before) uselocale(before);
        if (peer) freelocale(peer);
    }

    // The bytes that the C library has for a text.
    static std::string peer_text(const ko_wchar_t *wide) {
        std::string text;
        for (; *wide; ++wide) {
            if (!GetParam().unicode() && *wide > 0xFF) text += char(*wide >> 8);
            text += GetParam().unicode() ? utf8(*wide) : std::string(1, char(*wide));
        }
        return text;
    }

    locale_t peer = nullptr, before = nullptr;
    ko_lc_t loc = nullptr;
};

// Locales whose code set has ASCII, as the formats of the C library are.
class PeerAscii : public PeerTest {
  protected:
    void SetUp() override {
        if (GetParam().charmap.starts_with("IBM")) GTEST_SKIP();
        PeerTest::SetUp();
    }
    static std::vector<ko_wchar_t> widened(const std::string &format) {
        return {format.c_str(), format.c_str() + format.size() + 1};
    }
};

template <class Row> std::string row_name(const testing::TestParamInfo<Row> &info) {
    std::ostringstream out;
    PrintTo(info.param, &out);
    std::string name = out.str();
    for (char &c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

#endif
