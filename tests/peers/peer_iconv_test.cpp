// Every character of the compiled code sets, both ways, beside the C library's converter and ICU's.
//   tests/peers/codesets.list  the names of each code set there, and the known differences
//   KOVA_CONVERSIONS_LIST      the pairs that were compiled; "all" for every code set of that list
//   KOVA_TEST_ROOT             the compiled objects
//   KOVA_DIFFERENCES           if set, every difference is printed
#include "kova_host.h"
#include "peers/peer_rows.h"

#include <fnmatch.h>
#include <iconv.h>
#include <map>
#include <memory>
#include <set>

#ifdef KOVA_PEER_ICU
#define U_SHOW_CPLUSPLUS_API 0
#include <unicode/ucnv.h>
#endif

namespace {

const std::string refused = "refused", cut_off = "cut off";
constexpr uint32_t last_code = 0x10FFFF;
constexpr size_t most_long_leads = 16384; // beginnings of three bytes that are followed up

bool is_scalar(uint32_t code) { return code < 0xD800 || (code > 0xDFFF && code <= last_code); }

// ---- converters that are asked for one character ----

struct converter {
    virtual ~converter() = default;
    // The code points of a text, as UTF-32BE; or refused, or cut_off inside a character.
    virtual std::string decode(const std::string &bytes) = 0;
    virtual std::string encode(uint32_t code) = 0; // or refused
};

std::string utf32_of(uint32_t code) {
    return {char(code >> 24), char(code >> 16 & 0xFF), char(code >> 8 & 0xFF), char(code & 0xFF)};
}

// Do pairs of bytes between shift codes make a character?
bool has_shifts(converter &one) { return one.decode("\x0e\x40\x40\x0f") == utf32_of(0x3000); }

uint32_t code_of(const std::string &utf32) {
    uint32_t code = 0;
    for (const char c : utf32)
        code = code << 8 | uint8_t(c);
    return code;
}

struct libc_converter : converter {
    iconv_t down, up;
    explicit libc_converter(const std::string &name)
        : down(iconv_open("UTF-32BE", name.c_str())), up(iconv_open(name.c_str(), "UTF-32BE")) {}
    ~libc_converter() override {
        for (iconv_t cd : {down, up})
            if (cd != reinterpret_cast<iconv_t>(-1)) iconv_close(cd);
    }
    static std::string convert(iconv_t cd, const std::string &in) {
        char out[64], *to = out, *from = const_cast<char *>(in.data());
        size_t left = in.size(), room = sizeof out;
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        const size_t result = iconv(cd, &from, &left, &to, &room);
        if (result == size_t(-1)) return errno == EINVAL ? cut_off : refused;
        if (result || iconv(cd, nullptr, nullptr, &to, &room) == size_t(-1) || to == out)
            return refused;
        return std::string(out, to);
    }
    std::string decode(const std::string &bytes) override { return convert(down, bytes); }
    std::string encode(uint32_t code) override { return convert(up, utf32_of(code)); }
};

#ifdef KOVA_PEER_ICU
struct icu_converter : converter {
    UConverter *cv;
    explicit icu_converter(const std::string &name) {
        UErrorCode status = U_ZERO_ERROR;
        cv = ucnv_open(name.c_str(), &status);
        status = U_ZERO_ERROR;
        ucnv_setToUCallBack(cv, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
        ucnv_setFromUCallBack(cv, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
        ucnv_setFallback(cv, true);
    }
    ~icu_converter() override { ucnv_close(cv); }
    std::string decode(const std::string &bytes) override {
        UChar units[16];
        UErrorCode status = U_ZERO_ERROR;
        ucnv_resetToUnicode(cv);
        const int count = ucnv_toUChars(cv, units, 16, bytes.data(), int(bytes.size()), &status);
        if (status == U_TRUNCATED_CHAR_FOUND) return cut_off;
        if (U_FAILURE(status) || !count) return refused;
        std::string text;
        for (int i = 0; i < count;) {
            uint32_t code = units[i++];
            if (i < count && code >> 10 == 0xD800 >> 10)
                code = 0x10000 + ((code & 0x3FF) << 10) + (units[i++] & 0x3FFu);
            text += utf32_of(code);
        }
        return text;
    }
    std::string encode(uint32_t code) override {
        UChar units[2] = {UChar(code), 0};
        const int count = code > 0xFFFF ? 2 : 1;
        if (count == 2) {
            units[0] = UChar(0xD7C0 + (code >> 10));
            units[1] = UChar(0xDC00 | (code & 0x3FF));
        }
        char out[16];
        UErrorCode status = U_ZERO_ERROR;
        ucnv_resetFromUnicode(cv);
        const int len = ucnv_fromUChars(cv, out, sizeof out, units, count, &status);
        return U_FAILURE(status) || !len ? refused : std::string(out, size_t(len));
    }
};
#endif

// The characters of one or of two bytes of a code set with shift codes, as a set of their own.
struct part_converter : converter {
    std::unique_ptr<converter> whole;
    bool pairs, shifts;
    part_converter(std::unique_ptr<converter> all, bool two)
        : whole(std::move(all)), pairs(two), shifts(has_shifts(*whole)) {}
    std::string decode(const std::string &bytes) override {
        if (pairs && bytes.size() == 1) return cut_off;
        if (bytes.size() != (pairs ? 2 : 1)) return refused;
        if (shifts && (bytes[0] == 0x0E || bytes[0] == 0x0F)) return refused;
        const std::string text = whole->decode(pairs && shifts ? "\x0e" + bytes + "\x0f" : bytes);
        return text == cut_off ? refused : text;
    }
    std::string encode(uint32_t code) override {
        std::string bytes = whole->encode(code);
        if (bytes.size() == 4 && bytes[0] == 0x0E) bytes = bytes.substr(1, 2);
        return bytes.size() == (pairs ? 2 : 1) ? bytes : refused;
    }
};

std::string open_number(ko_cv_t &cd, unsigned from, unsigned to) {
    const std::string a = std::to_string(from), b = std::to_string(to);
    const int error = ko_open_conversion(&cd, nullptr, a.c_str(), b.c_str(),
                                         unsigned{KO_CONVERT_KEEP_MARK} | KO_CONVERT_DIRECT);
    return error ? a + " to " + b + ": error " + std::to_string(error) : "";
}

std::string convert(ko_cv_t cd, const std::string &in) {
    ko_mchar_t out[64], *to = out;
    const auto *from = reinterpret_cast<const ko_mchar_t *>(in.data());
    int left = int(in.size()), room = sizeof out, sub = 0;
    conv_state st = {1, 1, 0, 0, nullptr};
    if (ko_cv_mconv(cd, &st, &from, &left, &to, &room, &sub))
        return *ko_ext_errno(cd) == KO_EINVAL ? cut_off : refused;
    return to == out ? refused : std::string(out, to);
}

enum : unsigned { unicode_number = 57349, utf8_number = 57372 };

bool is_ruled(unsigned number) {
    return (number >= 57499 && number <= 57508) || number == 50220 || number == 50221;
}

// The conversions between a set and utf8 or unicode.
struct our_converter : converter {
    ko_cv_t down = nullptr, up = nullptr;
    libc_converter pivot;
    std::string trouble;
    our_converter(unsigned number, bool utf8) : pivot(utf8 ? "UTF-8" : "UTF-16BE") {
        const unsigned other = utf8 ? utf8_number : unicode_number;
        trouble = open_number(down, number, other) + open_number(up, other, number);
    }
    ~our_converter() override {
        ko_cv_unload(down);
        ko_cv_unload(up);
    }
    std::string decode(const std::string &bytes) override {
        const std::string text = convert(down, bytes);
        return text == refused || text == cut_off ? text : pivot.decode(text);
    }
    std::string encode(uint32_t code) override {
        const std::string bytes = convert(up, pivot.encode(code));
        return bytes == cut_off ? refused : bytes;
    }
};

// ---- the list ----

struct set_row {
    unsigned number = 0;
    std::string names[2];             // in the C library and ICU; "-" if they lack it
    std::map<std::string, int> known; // "icu:d-other" and its like
};
constexpr const char *peer_labels[] = {"libc", "icu"};

void PrintTo(const set_row &r, std::ostream *out) { *out << r.number; }

std::set<unsigned> compiled_sets() {
    std::set<unsigned> numbers;
    setenv("VANTORDIR", env("KOVA_TEST_ROOT").c_str(), 1);
    gen_exports scratch = {};
    for (std::istringstream &words : list_lines(env("KOVA_CONVERSIONS_LIST"))) {
        std::string name;
        if (words >> name) numbers.insert(ko_cs_name2cs_num(&scratch, name.c_str(), nullptr));
    }
    // These need no objects, or those of EUC-JP, EUC-KR and GB2312.
    for (const char *name : {"iso-2022-jp", "iso-2022-jp-1", "iso-2022-kr", "hz", "utf-7"})
        if (const int number = ko_codeset_number(nullptr, name); number >= 0)
            numbers.insert(unsigned(number));
    return numbers;
}

std::vector<set_row> set_rows() {
    const std::string list = env("KOVA_CONVERSIONS_LIST");
    const std::set<unsigned> compiled = list == "all" ? std::set<unsigned>{} : compiled_sets();
    std::vector<set_row> rows;
    for (std::istringstream &words :
         list_lines(env("KOVA_SOURCE_DIR") + "/tests/peers/codesets.list")) {
        set_row r;
        if (!(words >> r.number >> r.names[0] >> r.names[1])) continue;
        for (std::string word; words >> word;) {
            const size_t at = word.find('=');
            r.known[word.substr(0, at)] = atoi(word.c_str() + at + 1);
        }
        if (list == "all" || compiled.count(r.number)) rows.push_back(r);
    }
    return rows;
}

std::unique_ptr<converter> open_peer(int peer, std::string name) {
    const size_t slash = name.find('/');
    const std::string part = slash == name.npos ? "" : name.substr(slash + 1);
    name = name.substr(0, slash);
    std::unique_ptr<converter> made;
    if (peer == 0) made = std::make_unique<libc_converter>(name);
#ifdef KOVA_PEER_ICU
    if (peer == 1) made = std::make_unique<icu_converter>(name);
#endif
    if (!part.empty() && made)
        made = std::make_unique<part_converter>(std::move(made), part == "pairs");
    return made;
}

// ---- what is asked ----

using converters = std::vector<std::unique_ptr<converter>>;

// Every text of one character that some converter knows, and those around it.
struct texts_of {
    const converters &all;
    bool stateful;
    std::set<std::string> texts;
    std::vector<std::string> long_leads;

    void add(const std::string &text) {
        bool cut = false;
        for (const auto &one : all)
            cut |= one && one->decode(text) == cut_off;
        texts.insert(text);
        if (!cut || text.size() > 3) return;
        if (text.size() == 3)
            long_leads.push_back(text);
        else
            add_followers(text);
    }
    void add_followers(const std::string &text) {
        for (unsigned b = 0; b < 256; ++b)
            add(text + char(b));
    }
    void add_all() {
        if (!stateful) {
            add_followers("");
            if (long_leads.size() > most_long_leads) long_leads.clear();
            for (const std::string &lead : long_leads)
                for (unsigned b = 0; b < 256; ++b)
                    texts.insert(lead + char(b));
            return;
        }
        for (unsigned b = 0; b < 0x10000; ++b) {
            const unsigned lead = b >> 8, trail = b & 0xFF;
            const auto shift = [](unsigned byte) { return byte == 0x0E || byte == 0x0F; };
            if (b < 256 && !shift(b)) texts.insert({char(b)});
            if (!shift(lead) && !shift(trail)) texts.insert({0x0E, char(lead), char(trail), 0x0F});
        }
    }
};

struct tally {
    std::map<std::string, int> differing;
    std::vector<std::string> shown;
    int agreeing = 0;

    void count(const std::string &label, const std::string &what, const std::string &ours,
               const std::string &theirs) {
        const auto none = [](const std::string &s) { return s == refused || s == cut_off; };
        if (none(ours) && none(theirs)) return;
        if (ours == theirs) {
            ++agreeing;
            return;
        }
        const char *kinds[] = {"other", "lacks", "more"}; // what the peer does
        const std::string kind = label + kinds[none(theirs) ? 1 : none(ours) ? 2 : 0];
        ++differing[kind];
        const auto text = [&none](const std::string &s) { return none(s) ? "-" : hex(s); };
        shown.push_back(kind + " " + what + ": " + text(ours) + ", peer " + text(theirs));
    }
};

// Of code sets with escape sequences only what some converter writes is read.
void ask_all(const converters &all, tally *tallies, bool stateful, bool escapes) {
    texts_of candidates{all, stateful, {}, {}};
    if (!escapes) candidates.add_all();
    for (uint32_t code = 0; code <= last_code; ++code) {
        if (!is_scalar(code)) continue;
        const std::string ours = all[0]->encode(code);
        if (ours != refused && !stateful) candidates.texts.insert(ours);
        for (size_t p = 1; p < all.size(); ++p) {
            if (!all[p]) continue;
            const std::string theirs = all[p]->encode(code);
            if (theirs != refused && !stateful) candidates.texts.insert(theirs);
            if (ours != refused || theirs != refused)
                tallies[p - 1].count(std::string(peer_labels[p - 1]) + ":e-",
                                     "U+" + hex(utf32_of(code)), ours, theirs);
        }
    }
    for (const std::string &text : candidates.texts)
        for (size_t p = 1; p < all.size(); ++p)
            if (all[p])
                tallies[p - 1].count(std::string(peer_labels[p - 1]) + ":d-", hex(text),
                                     all[0]->decode(text), all[p]->decode(text));
}

void expect_known(const set_row &row, const char *label, const tally &t) {
    std::set<std::string> kinds;
    for (const auto &[kind, count] : row.known)
        if (kind.starts_with(label)) kinds.insert(kind);
    for (const auto &[kind, count] : t.differing)
        kinds.insert(kind);
    for (const std::string &kind : kinds) {
        const auto known = row.known.find(kind), found = t.differing.find(kind);
        const int want = known == row.known.end() ? 0 : known->second;
        const int got = found == t.differing.end() ? 0 : found->second;
        EXPECT_EQ(got, want) << row.number << " " << kind << "=" << got;
        int left = got == want ? 0 : 10;
        for (const std::string &line : t.shown)
            if (line.starts_with(kind + " ") && left-- > 0) ADD_FAILURE() << line;
    }
    if (!env("KOVA_DIFFERENCES").empty())
        for (const std::string &line : t.shown)
            printf("%u %s\n", row.number, line.c_str());
    printf("%u %s: %d agree, %zu differ\n", row.number, label, t.agreeing, t.shown.size());
}

class PeerIconv : public testing::TestWithParam<set_row> {};

TEST_P(PeerIconv, ConvertsEveryCharacterAlike) {
    const set_row &row = GetParam();
    setenv("VANTORDIR", env("KOVA_TEST_ROOT").c_str(), 1);
    int compared = 0;
    for (const bool utf8 : {true, false}) {
        converters all;
        auto ours = std::make_unique<our_converter>(row.number, utf8);
        // data/conversions.list has some sets with utf8 alone.
        if (!ours->trouble.empty() && env("KOVA_CONVERSIONS_LIST") != "all") continue;
        ASSERT_EQ(ours->trouble, "");
        ++compared;
        const bool stateful = has_shifts(*ours);
        all.push_back(std::move(ours));
        for (int peer = 0; peer < 2; ++peer)
            all.push_back(row.names[peer] == "-" ? nullptr : open_peer(peer, row.names[peer]));
        tally tallies[2];
        ask_all(all, tallies, stateful, is_ruled(row.number));
        for (int peer = 0; peer < 2; ++peer)
            if (all[size_t(peer) + 1]) expect_known(row, peer_labels[peer], tallies[peer]);
    }
    EXPECT_GT(compared, 0) << row.number;
}

// ---- names ----

std::vector<std::string> libc_names() {
    std::vector<std::string> names;
    const std::unique_ptr<FILE, int (*)(FILE *)> list(popen("iconv -l", "r"), pclose);
    for (char line[200]; list && fgets(line, sizeof line, list.get());) {
        std::string name(line, strcspn(line, " \n"));
        if (name.ends_with("//")) name.resize(name.size() - 2);
        names.push_back(name);
    }
    return names;
}

std::vector<std::string> icu_names() {
    std::vector<std::string> names;
#ifdef KOVA_PEER_ICU
    UErrorCode status = U_ZERO_ERROR;
    for (int i = 0; i < ucnv_countAvailable(); ++i) {
        const char *set = ucnv_getAvailableName(i);
        for (uint16_t k = 0; k < ucnv_countAliases(set, &status); ++k)
            names.push_back(ucnv_getAlias(set, k, &status));
    }
#endif
    return names;
}

// What tells converters apart: ICU's own name, what the C library's make of bytes and pairs.
std::string mark_of(int peer, const std::string &name) {
#ifdef KOVA_PEER_ICU
    if (peer == 1) {
        const icu_converter one(name);
        UErrorCode status = U_ZERO_ERROR;
        return one.cv ? ucnv_getName(one.cv, &status) : "";
    }
#endif
    libc_converter one(name);
    std::string mark;
    for (unsigned byte = 0; byte < 0x10000; byte += byte < 256 ? 1 : 37) {
        const std::string lead = byte < 256 ? "" : std::string(1, char(byte >> 8));
        mark += one.decode(lead + char(byte & 0xFF)) + ",";
        if (!lead.empty()) mark += one.decode("\x0e" + lead + char(byte & 0xFF) + "\x0f") + ",";
    }
    for (uint32_t code = 0xA0; code < 0xD800; code += code < 0x2600 ? 1 : 101)
        mark += one.encode(code) + ",";
    return mark;
}

// The patterns of tests/peers/names.list.
std::vector<std::string> patterns_of_others() {
    std::vector<std::string> patterns;
    for (std::istringstream &words : list_lines(env("KOVA_SOURCE_DIR") + "/tests/peers/names.list"))
        for (std::string word; words >> word;)
            patterns.push_back(word);
    return patterns;
}

// A name belongs to the set whose converter the peer opens by it. One that the registry has for a
// set of its own, which is not compiled, is as good.
TEST(PeerNames, OpenTheSetThatTheyNameElsewhere) {
    setenv("VANTORDIR", env("KOVA_TEST_ROOT").c_str(), 1);
    const std::set<std::string> known = {
        "x-JISAutoDetect", // is for detection, and no set
        "cns11643",
        "ibm-eucTW", // the C library's EUC-TW, and not 964
        "UTF16_PlatformEndian",
        "UTF16_OppositeEndian", // of the machine
        "UTF32_PlatformEndian",
        "UTF32_OppositeEndian",
    };
    const std::vector<std::string> others = patterns_of_others();
    for (int peer = 0; peer < 2; ++peer) {
        std::multimap<std::string, int> sets;
        for (const set_row &row : set_rows())
            if (!is_ruled(row.number) && row.names[peer] != "-" &&
                row.names[peer].find('/') == std::string::npos)
                sets.insert({mark_of(peer, row.names[peer]), int(row.number)});
        if (peer == 1)
            for (const char *name : {"UTF-8", "UTF-16BE", "UTF-16LE", "UTF-32BE", "UTF-32LE"})
                sets.insert({mark_of(peer, name), ko_codeset_number(nullptr, name)});
        int opened = 0, registered = 0, listed = 0;
        for (const std::string &name : peer == 0 ? libc_names() : icu_names()) {
            const auto [first, last] = sets.equal_range(mark_of(peer, name));
            const int got = ko_codeset_number(nullptr, name.c_str());
            if (first == last || known.count(name)) {
                const bool other =
                    std::any_of(others.begin(), others.end(), [&name](const std::string &one) {
                        return fnmatch(one.c_str(), name.c_str(), 0) == 0;
                    });
                EXPECT_TRUE(got >= 0 || other) << name << " is in neither list";
                ++(got >= 0 ? registered : listed);
                continue;
            }
            const auto is_got = [got](const auto &set) { return set.second == got; };
            const bool own = std::none_of(sets.begin(), sets.end(), is_got);
            EXPECT_TRUE(got >= 0 && (own || std::any_of(first, last, is_got)))
                << name << " is " << first->second << ", not " << got;
            ko_cv_t cd = nullptr;
            const int error = ko_open_conversion(&cd, nullptr, name.c_str(), "utf8", 0);
            EXPECT_TRUE(error == KO_OK || own) << name << ": error " << error;
            ko_cv_unload(cd);
            opened += error == KO_OK;
        }
        printf("%s: %d names of packed sets open, %d are of the registry, %d of no set here\n",
               peer_labels[peer], opened, registered, listed);
    }
}

// ---- pairs without utf8 and unicode ----

struct pair_row {
    std::string from, to;
};

void PrintTo(const pair_row &r, std::ostream *out) { *out << r.from << " to " << r.to; }

std::vector<pair_row> direct_pairs() {
    const std::string data = env("KOVA_SOURCE_DIR") + "/data/";
    std::vector<std::string> lists = {env("KOVA_CONVERSIONS_LIST")};
    if (lists[0] == "all") lists = {data + "pairs.list", data + "conversions.list"};
    std::set<std::pair<std::string, std::string>> known;
    std::vector<std::istringstream> lines;
    for (const std::string &list : lists)
        for (std::istringstream &words : list_lines(list))
            lines.push_back(std::move(words));
    for (std::istringstream &words : lines) {
        pair_row r;
        if (!(words >> r.from >> r.to) || r.to == "utf8" || r.to == "unicode" || r.from == "utf8")
            continue;
        known.insert({r.from, r.to});
        known.insert({r.to, r.from});
    }
    std::vector<pair_row> rows;
    for (const auto &[from, to] : known)
        rows.push_back({from, to});
    return rows;
}

class DirectPair : public testing::TestWithParam<pair_row> {};

TEST_P(DirectPair, ConvertsAsThroughUtf8) {
    setenv("VANTORDIR", env("KOVA_TEST_ROOT").c_str(), 1);
    gen_exports scratch = {};
    const unsigned from = ko_cs_name2cs_num(&scratch, GetParam().from.c_str(), nullptr);
    const unsigned to = ko_cs_name2cs_num(&scratch, GetParam().to.c_str(), nullptr);
    for (const unsigned ruled : {1375u, 1390u, 1392u, 1399u, 16684u, 57418u, 57491u})
        if (from == ruled || to == ruled)
            GTEST_SKIP() << "through utf8, whatever objects there are";
    converters all;
    all.push_back(std::make_unique<our_converter>(from, true));
    our_converter target(to, true);
    ko_cv_t direct = nullptr;
    ASSERT_EQ(open_number(direct, from, to), "");
    texts_of candidates{all, has_shifts(*all[0]), {}, {}};
    candidates.add_all();
    int converted = 0;
    for (const std::string &text : candidates.texts) {
        const std::string codes = all[0]->decode(text), got = convert(direct, text);
        std::string want = refused;
        if (codes.size() == 4) want = target.encode(code_of(codes));
        converted += got == want && got != refused;
        EXPECT_EQ(hex(got == cut_off ? refused : got), hex(want)) << hex(text);
    }
    EXPECT_GE(converted, 100);
    ko_cv_unload(direct);
}

INSTANTIATE_TEST_SUITE_P(Pairs, DirectPair, testing::ValuesIn(direct_pairs()), row_name<pair_row>);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(DirectPair);

INSTANTIATE_TEST_SUITE_P(Sets, PeerIconv, testing::ValuesIn(set_rows()), row_name<set_row>);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PeerIconv);

} // namespace
