// kova convert --detect: the code sets that fit the bytes of a file, scored, with the reasons.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <set>

#include <nlohmann/json.hpp>

#include "common/tool_text.h"
#include "kova/kova_cli.h"
#include "kova/kova_convert.h"
#include "kova/kova_detect_cost.h"
#include "kova/kova_io.h"
#include "kova/kova_text.h"

namespace kovacli {

namespace {

constexpr size_t sample_bytes = size_t{1} << 16;
constexpr size_t shown_sets = 5;
constexpr double least_score = 1;

// Families of double-byte code sets, and the first bytes of their usual characters. Text converted
// by another family has many characters of the rest.
enum class family : uint8_t { none, japanese, korean, chinese };
struct double_byte {
    int number;
    family of;
    uint8_t first, last; // leads of the common characters; 0: not told by leads
};
constexpr double_byte double_bytes[] = {
    {932,   family::japanese, 0,    0   },
    {942,   family::japanese, 0,    0   },
    {943,   family::japanese, 0,    0   },
    {954,   family::japanese, 0,    0   },
    {5050,  family::japanese, 0,    0   },
    {57350, family::japanese, 0,    0   },
    {57418, family::japanese, 0,    0   },
    {57419, family::japanese, 0,    0   },
    {57491, family::japanese, 0,    0   },
    {930,   family::japanese, 0,    0   },
    {939,   family::japanese, 0,    0   },
    {1390,  family::japanese, 0,    0   },
    {1399,  family::japanese, 0,    0   },
    {5026,  family::japanese, 0,    0   },
    {5035,  family::japanese, 0,    0   },
    {949,   family::korean,   0xB0, 0xC8},
    {970,   family::korean,   0,    0   },
    {1361,  family::korean,   0,    0   },
    {1363,  family::korean,   0xB0, 0xC8},
    {933,   family::korean,   0,    0   },
    {1364,  family::korean,   0,    0   },
    {935,   family::chinese,  0x48, 0x5C},
    {1388,  family::chinese,  0x48, 0x5C},
    {937,   family::chinese,  0x4C, 0x68},
    {1371,  family::chinese,  0x4C, 0x68},
    {950,   family::chinese,  0xA4, 0xC6},
    {57352, family::chinese,  0xA4, 0xC6},
    {1375,  family::chinese,  0xA4, 0xC6},
    {1383,  family::chinese,  0xB0, 0xD7},
    {1386,  family::chinese,  0xB0, 0xD7},
    {1392,  family::chinese,  0xB0, 0xD7},
    {57357, family::chinese,  0xB0, 0xD7},
    {964,   family::chinese,  0xC4, 0xEE},
    {57375, family::chinese,  0xC4, 0xEE},
};

// Sets of pairs alone, which any bytes are: their texts have ideographs and neither blanks nor ends
// of lines of one byte.
constexpr int pair_sets[] = {300, 834, 835, 837, 9027, 16684, 57509};

// The sets that stand for those which convert the text alike, the most usual first.
constexpr int usual[] = {57372, 57349, 1202, 1204,  57345, 819,   1252,  923,   912,
                         1250,  915,   1251, 878,   813,   1253,  920,   1254,  1255,
                         916,   1256,  1089, 57373, 943,   57350, 5050,  1386,  57357,
                         950,   970,   1363, 37,    1047,  57499, 57500, 57501, 57508};

struct fit {
    std::string name;
    int number = 0;
    double score = 0;
    size_t proven = 0; // characters that hardly any text of another set spells by chance
    std::vector<std::string> reasons, same;
    std::vector<uint32_t> text;
};

struct sample {
    std::string name;
    std::string bytes;
    bool cut = false; // there is more
};

sample read_sample(const std::string &path) {
    input in;
    open(in, path);
    while (in.fill < sample_bytes + 1 && more(in)) {
    }
    const void *const start = in.block.data();
    const size_t len = std::min(in.fill, sample_bytes);
    return {in.name, std::string(static_cast<const char *>(start), len), in.fill > len};
}

// ---- one code set ----

struct decoded {
    std::vector<uint32_t> text;
    size_t invalid = 0, shifts = 0;
    uint64_t common = 0, rare = 0; // double-byte characters by their leads
};

const double_byte *double_bytes_of(int number) {
    for (const double_byte &row : double_bytes)
        if (row.number == number) return &row;
    return nullptr;
}

// Counts the leads of pairs; in code sets with shift codes, between these.
void count_leads(const double_byte &row, const std::string &bytes, decoded &got) {
    const bool shifts = row.last < 0x80;
    bool shifted = false;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const auto byte = uint8_t(bytes[i]);
        if (shifts && (byte == 0x0E || byte == 0x0F)) {
            shifted = byte == 0x0E;
        } else if (shifts ? shifted : byte >= 0x80) {
            const bool signs = shifts              ? byte <= 0x45
                               : row.first == 0xB0 ? byte > 0xA0 && byte < 0xAA
                                                   : byte > 0xA0 && byte < row.first;
            const bool common = byte >= row.first && byte <= row.last;
            got.common += !signs && common;
            got.rare += !signs && !common;
            ++i;
        }
    }
}

// Converts the sample; false if too much of it is invalid.
bool decode_sample(route &way, const sample &given, decoded &got) {
    const void *const start = given.bytes.data();
    const auto *const bytes = static_cast<const unsigned char *>(start);
    const size_t len = given.bytes.size();
    route_state st;
    byte_buffer out;
    st.leg[0].first_frag = 1;
    for (size_t at = 0; at < len;) {
        const run_result step = run(way, st, bytes + at, len - at, false, out);
        const unsigned char *text = out.room.data(), *const end = text + out.used;
        for (uint32_t code = 0; text < end;) {
            const int count = utf8_char(text, size_t(end - text), code);
            text += std::max(count, 1);
            if (count > 0) got.text.push_back(code);
        }
        at += step.taken;
        if (step.error == KO_OK && step.taken > 0) continue;
        if (at >= len || (given.cut && len - at < 4)) break;
        ++at;
        if (++got.invalid > 3 + len / 200) return false;
    }
    got.shifts = size_t(std::count(given.bytes.begin(), given.bytes.end(), '\x0e'));
    return true;
}

std::string percent(uint64_t part, uint64_t all) {
    return std::to_string(all ? (100 * part + all / 2) / all : 0) + " %";
}

// What the family of a double-byte set expects of its text.
double family_cost(const double_byte &row, const text_shape &shape, const decoded &got,
                   std::vector<std::string> &reasons) {
    const uint64_t asian = shape.han + shape.kana + shape.hangul;
    double cost = 0;
    if (row.of != family::japanese) cost += 0.8 * double(shape.kana);
    if (row.of != family::korean) cost += 1.0 * double(shape.hangul);
    if (row.of == family::japanese && asian >= 8 && shape.kana * 20 < asian) {
        cost += 0.4 * double(shape.han);
        reasons.push_back("ideographs without kana");
    }
    if (row.of == family::korean) {
        cost += (shape.hangul > shape.han ? 0.3 : 0.6) * double(shape.han);
        if (shape.hangul > 0) reasons.push_back("Hangul " + percent(shape.hangul, asian));
    }
    if (got.common + got.rare > 0) {
        cost += 0.7 * double(got.rare);
        reasons.push_back("common characters " + percent(got.common, got.common + got.rare));
    }
    if (row.of == family::japanese && shape.kana > 0)
        reasons.push_back("kana " + percent(shape.kana, asian));
    return cost;
}

void describe_shape(const text_shape &shape, const decoded &got, fit &found) {
    const auto count = [&](char_kind kind) { return shape.of_kind[size_t(kind)]; };
    const auto tell = [&](uint64_t number, const char *what) {
        if (number > 0) found.reasons.push_back(what + std::to_string(number));
    };
    found.reasons.push_back("letters " + percent(count(char_kind::letter), shape.characters) +
                            ", blanks " + percent(count(char_kind::blank), shape.characters));
    tell(got.invalid, "invalid: ");
    tell(count(char_kind::control), "controls: ");
    tell(count(char_kind::unassigned), "unassigned or rare: ");
    tell(count(char_kind::symbol), "signs: ");
    tell(shape.strange_pairs, "neighbours that words do not have: ");
    if (!shape.alphabet.empty() && shape.outside_alphabet == 0)
        found.reasons.push_back("letters of one alphabet (" + shape.alphabet + ")");
    tell(shape.outside_alphabet, "letters beside those of an alphabet: ");
}

// The cost of a text under a code set becomes a score by what could have gone wrong in it.
void score(const sample &given, const decoded &got, fit &found) {
    const text_shape shape = shape_of(found.text);
    double cost = shape.cost + 4.0 * double(got.invalid);
    if (const double_byte *const row = double_bytes_of(found.number))
        cost += family_cost(*row, shape, got, found.reasons);
    const bool ebcdic = shape.characters > 0 && found.text.size() > 0 &&
                        shape.beyond_ascii * 4 < shape.characters &&
                        std::count_if(given.bytes.begin(), given.bytes.end(),
                                      [](char c) { return uint8_t(c) >= 0x80; }) *
                                2 >
                            long(given.bytes.size());
    if (ebcdic) found.reasons.push_back("bytes above 7F that are letters and digits");
    if (got.shifts > 0 && double_bytes_of(found.number))
        found.reasons.push_back("shift codes: " + std::to_string(got.shifts));
    describe_shape(shape, got, found);
    const double telling = 4.0 + double(ebcdic ? shape.characters : shape.beyond_ascii);
    found.score = 100 * std::exp(-2 * cost / telling);
}

// ---- the encodings of Unicode ----

struct unicode_form {
    const char *name, *mark;
    size_t length;
};
constexpr unicode_form unicode_forms[] = {
    {"utf32le", "\xFF\xFE\0\0", 4},
    {"utf32be", "\0\0\xFE\xFF", 4},
    {"utf16le", "\xFF\xFE",     2},
    {"unicode", "\xFE\xFF",     2},
    {"utf8",    "\xEF\xBB\xBF", 3},
};

bool is_ideograph(uint32_t code) {
    return (code >= 0x3400 && code <= 0x9FFF) || (code >= 0xAC00 && code <= 0xD7A3);
}

// Bytes of units tell their order by where the zeros are, and by pairs of surrogates.
void judge_units(const sample &given, fit &found) {
    const size_t unit = found.name.starts_with("utf32") ? 4 : found.name == "utf8" ? 1 : 2;
    if (unit == 1) return;
    std::array<size_t, 4> zeros{};
    for (size_t i = 0; i < given.bytes.size(); ++i)
        zeros[i % unit] += given.bytes[i] == 0;
    std::string text;
    for (size_t i = 0; i < unit; ++i)
        text += (i > 0 ? ", " : "") + percent(zeros[i] * unit, given.bytes.size());
    found.reasons.push_back("zeros by their place in a unit: " + text);
    if (given.bytes.size() % unit != 0 && !given.cut) found.score /= 10;
    const bool little = found.name.ends_with("le");
    const size_t high = zeros[little ? unit - 1 : 0], low = zeros[little ? 0 : unit - 1];
    if (low > high) found.score /= 1 + double(low - high);
    const auto count = [&found](auto kind) {
        return size_t(std::count_if(found.text.begin(), found.text.end(), kind));
    };
    const size_t pairs = unit == 2 ? count([](uint32_t code) { return code > 0xFFFF; }) : 0;
    if (pairs * 2 > found.text.size()) {
        found.reasons.push_back("pairs of surrogates: " + std::to_string(pairs));
        found.score = std::max(found.score, 100 - 30 / double(pairs));
    }
    // Without zeros, and blanks of two bytes, any bytes are ideographs.
    const size_t all = zeros[0] + zeros[1] + zeros[2] + zeros[3];
    if (all * 50 < given.bytes.size() && count(is_ideograph) * 2 > found.text.size())
        found.score /= 2;
}

// Without a proof, a text as one in a set by rule would be read like ASCII.
bool judge_proof(const char *what, const decoded &got, fit &found) {
    const auto beyond = std::count_if(found.text.begin(), found.text.end(),
                                      [](uint32_t code) { return code >= 0x80; });
    if (beyond == 0 || got.invalid > 0) return false;
    found.proven = size_t(beyond);
    found.reasons.insert(found.reasons.begin(), what + std::to_string(beyond));
    found.score = std::max(found.score, 100 - 60 / (1.0 + double(beyond)));
    return true;
}

// What such characters leave to the other sets.
void cap_others(std::vector<fit> &fits) {
    size_t most = 0;
    for (const fit &one : fits)
        most = std::max(most, one.proven);
    for (fit &one : fits)
        if (most > 0 && one.proven == 0) one.score = std::min(one.score, 60 / (1.0 + double(most)));
    std::erase_if(fits, [](const fit &one) { return one.score < least_score; });
}

// ---- sets that convert by rule ----

struct ruled_set {
    int number;
    const char *sign; // that the text must have
};
constexpr ruled_set ruled_sets[] = {
    {57499, "\x1B$"  },
    {57500, "\x1B$"  },
    {57501, "\x1B"   },
    {57508, "\x1B$(" },
    {50221, "\x1B"   },
    {57502, "\x1B$)C"},
    {57503, "\x1B$"  },
    {57504, "\x1B$"  },
    {57505, "~{"     },
    {57506, "+"      },
};

bool is_ruled(int number) {
    return std::any_of(std::begin(ruled_sets), std::end(ruled_sets),
                       [=](const ruled_set &one) { return one.number == number; });
}

// ---- all of them ----

std::set<int> candidate_numbers(const data_place &place, const sample &given) {
    std::set<int> numbers;
    for (const ruled_set &one : ruled_sets)
        if (given.bytes.find(one.sign) != given.bytes.npos) numbers.insert(one.number);
    for (const unicode_form &form : unicode_forms)
        numbers.insert(find_code_set(form.name).number);
    const unsigned utf8 = utf8_code_set().number;
    for (const std::string &dir : place.dirs) {
        for (const std::string &file : directory_entries(dir)) {
            unsigned from = 0, to = 0;
            if (file.size() == 12 && std::sscanf(file.c_str(), "%4x%4x.cvo", &from, &to) == 2 &&
                to == utf8)
                numbers.insert(int(from));
        }
    }
    return numbers;
}

size_t rank_of(const fit &one) {
    return size_t(std::find(std::begin(usual), std::end(usual), one.number) - std::begin(usual));
}

std::string established_name(int number) {
    for (const char *const name : {"utf8", "unicode", "utf16le", "utf32be", "utf32le"})
        if (find_code_set(name).number == number) return name;
    for (const registry_entry &entry : registry_entries())
        if (entry.number == number) return entry.name;
    return std::to_string(number);
}

bool try_set(const data_place &place, int number, const sample &given, fit &found) {
    found.number = number;
    found.name = established_name(number);
    route way;
    decoded got;
    if (!open_route(place, find_code_set(std::to_string(number)), utf8_code_set(), way, 0) ||
        !decode_sample(way, given, got) || got.text.empty())
        return false;
    if (const double_byte *const row = double_bytes_of(number); row && row->last > 0)
        count_leads(*row, given.bytes, got);
    found.text = std::move(got.text);
    score(given, got, found);
    if (is_unicode(found.name)) judge_units(given, found);
    if (std::find(std::begin(pair_sets), std::end(pair_sets), number) != std::end(pair_sets)) {
        found.reasons.push_back("pairs alone");
        found.score /= 2;
    }
    if (found.name == "utf8") judge_proof("valid UTF-8 beyond ASCII: ", got, found);
    if (is_ruled(number) && !judge_proof("characters by escapes: ", got, found)) return false;
    for (const unicode_form &form : unicode_forms) {
        if (!given.bytes.starts_with(std::string(form.mark, form.length))) continue;
        if (form.name == found.name) {
            found.score = 100;
            found.reasons.insert(found.reasons.begin(), "byte-order mark");
        } else {
            found.score /= 10;
        }
        break;
    }
    return found.score >= least_score;
}

// The sets that fit, the best first; those that convert the text alike are one.
std::vector<fit> find_fits(const data_place &place, const sample &given) {
    std::vector<fit> fits;
    for (const int number : candidate_numbers(place, given)) {
        fit found;
        if (try_set(place, number, given, found)) fits.push_back(std::move(found));
    }
    cap_others(fits);
    std::stable_sort(fits.begin(), fits.end(), [](const fit &a, const fit &b) {
        const auto points = [](const fit &one) { return std::lround(one.score * 10); };
        return points(a) != points(b) ? points(a) > points(b) : rank_of(a) < rank_of(b);
    });
    std::vector<fit> apart;
    for (fit &one : fits) {
        const auto same = std::find_if(apart.begin(), apart.end(),
                                       [&](const fit &other) { return other.text == one.text; });
        if (same == apart.end())
            apart.push_back(std::move(one));
        else
            same->same.push_back(one.name);
    }
    return apart;
}

std::string joined(const std::vector<std::string> &words, const char *between) {
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : between) + word;
    return text;
}

void show(output &out, const sample &given, const std::vector<fit> &fits) {
    write(out, kovatool::printable(given.name) + ": " + (given.cut ? "the first " : "") +
                   std::to_string(given.bytes.size()) + " bytes\n");
    if (fits.empty()) write(out, "  no code set fits\n");
    for (size_t i = 0; i < std::min(fits.size(), shown_sets); ++i) {
        const fit &one = fits[i];
        char points[16];
        std::snprintf(points, sizeof points, "%5.1f", one.score);
        write(out, std::string(points) + "  " + one.name + ": " + joined(one.reasons, "; ") + "\n");
        if (!one.same.empty()) write(out, "       the same text: " + joined(one.same, " ") + "\n");
    }
}

nlohmann::ordered_json fits_json(const sample &given, const std::vector<fit> &fits) {
    nlohmann::ordered_json sets = nlohmann::ordered_json::array();
    for (const fit &one : fits)
        sets.push_back({
            {"code_set", one.name                       },
            {"number",   one.number                     },
            {"score",    std::round(one.score * 10) / 10},
            {"reasons",  one.reasons                    },
            {"same",     one.same                       }
        });
    return {
        {"input", given.name        },
        {"bytes", given.bytes.size()},
        {"whole", !given.cut        },
        {"sets",  sets              }
    };
}

} // namespace

int run_detect(const common_options &common, const convert_options &options) {
    const data_place place = find_data(common, data_kind::conversions);
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    if (!options.out_dir.empty())
        throw failure(bad_usage, "--detect: all answers go to standard output or -o FILE");
    output out;
    open(out, options.out);
    int status = done;
    for (const std::string &path : inputs_of(options.files)) {
        sample given;
        try {
            given = read_sample(path);
        } catch (const failure &e) { // the others are still told
            kovatool::tell("kova", e.what());
            status = bad_text;
            continue;
        }
        const std::vector<fit> fits = find_fits(place, given);
        if (fits.empty()) status = bad_text;
        if (options.json)
            all.push_back(fits_json(given, fits));
        else
            show(out, given, fits);
    }
    using handler = nlohmann::json::error_handler_t;
    if (options.json) {
        const nlohmann::ordered_json object = {
            {"files", all}
        };
        write(out, object.dump(2, ' ', false, handler::replace) + "\n");
    }
    finish(out);
    return status;
}

} // namespace kovacli
