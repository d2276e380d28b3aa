// Respells the time formats and era definitions of the sources.
#include "kovac/kovac_times.h"

#include <string_view>

namespace kovac {

namespace {
// A directive of a source: flags, "E" or "O", and the letter.
struct source_directive {
    bool unpadded = false, blanks = false;
    char form = 0;
    char letter = 0;
};

struct respelling {
    char letter;
    const char *text;
};
} // namespace
static constexpr respelling respellings[] = {
    {'F', "%Y-%m-%d"},
    {'k', "%2.1H"   },
    {'l', "%2.1I"   },
    {'P', "%p"      },
    {'u', "%.1u"    },
    {'w', "%.1w"    },
};

static constexpr std::string_view numbers = "CdeHIjmMSuwyY";
static constexpr std::string_view digit_forms = "CDHIMRSTdejmuwy";
static constexpr std::string_view all_letters = "%ntaAbBchdDeHIjmMprRSTuwxXCyY";
static constexpr std::string_view era_forms = "CcgxXyY";

static bool holds(std::string_view letters, char letter) {
    return letters.find(letter) != letters.npos;
}

// Reads a directive; at moves from after its "%" to its end.
static source_directive take_directive(const std::vector<uint32_t> &format, size_t &at) {
    source_directive d;
    for (; at < format.size(); ++at) {
        const uint32_t c = format[at];
        d.unpadded |= c == '-';
        d.blanks |= c == '_';
        if (c != '-' && c != '_' && c != '^' && c != '#' && !(c >= '0' && c <= '9')) break;
    }
    if (at < format.size() && (format[at] == 'E' || format[at] == 'O')) d.form = char(format[at++]);
    if (at < format.size() && format[at] < 0x80) d.letter = char(format[at++]);
    return d;
}

// Gets the library's spelling; false for a directive without one.
static bool respell(const source_directive &d, std::string &text) {
    for (const respelling &r : respellings) {
        if (d.letter != r.letter) continue;
        text = r.text;
        return true;
    }
    const bool digits = d.form == 'O' && holds(digit_forms, d.letter);
    const bool era = d.form == 'E' && holds(era_forms, d.letter);
    char letter = d.letter;
    text = "%";
    // There, a locale's digits are not padded with a zero.
    if ((d.unpadded && holds(numbers, letter)) || (digits && !holds("DRT", letter))) text += ".1";
    if (d.blanks && holds(numbers, letter)) text += "2.1";
    if (text.size() > 1 && letter == 'e') letter = 'd';
    if (digits || era) text += d.form;
    text += letter;
    return era || holds(all_letters, letter);
}

static bool is_zone(const source_directive &d) { return d.letter == 'Z' || d.letter == 'z'; }

// Leaves out a time zone together with parentheses around it or one blank.
static void drop_zone(const std::vector<uint32_t> &format, size_t &at, std::vector<uint32_t> &out) {
    if (at < format.size() && format[at] == ')' && !out.empty() && out.back() == '(') {
        ++at;
        out.pop_back();
    }
    if (!out.empty() && out.back() == ' ')
        out.pop_back();
    else if (at < format.size() && format[at] == ' ')
        ++at;
}

std::vector<uint32_t> library_format(const std::vector<uint32_t> &format,
                                     std::vector<std::string> &dropped) {
    std::vector<uint32_t> out;
    for (size_t at = 0; at < format.size();) {
        if (format[at] != '%') {
            out.push_back(format[at++]);
            continue;
        }
        const size_t start = at++;
        const source_directive d = take_directive(format, at);
        std::string text;
        if (is_zone(d)) {
            drop_zone(format, at, out);
        } else if (respell(d, text)) {
            out.insert(out.end(), text.begin(), text.end());
        } else {
            dropped.emplace_back(format.begin() + long(start), format.begin() + long(at));
        }
    }
    return out;
}

static bool is_digit(uint32_t c) { return c >= '0' && c <= '9'; }

// Reads the year, with its sign, at a place and moves past it; the sources have no year 0.
static std::string counted_year(const std::vector<uint32_t> &definition, size_t &at) {
    long year = 0;
    while (at + 1 < definition.size() && is_digit(definition[at + 1]) && year < 100000)
        year = year * 10 + long(definition[++at] - '0');
    return std::to_string(1 - year);
}

void library_era(std::vector<uint32_t> &definition) {
    if (definition.size() < 2 || (definition[0] != '+' && definition[0] != '-')) return;
    if (definition[1] != ':') return;
    std::vector<uint32_t> out;
    int field = 0;
    for (size_t at = 0; at < definition.size(); ++at) {
        field += definition[at] == ':';
        out.push_back(definition[at]);
        const bool dates = definition[at] == ':' && (field == 2 || field == 3); // start and end
        if (!dates || at + 2 >= definition.size()) continue;
        const uint32_t sign = definition[at + 1], next = definition[at + 2];
        if (next == '*' && field == 3) out[0] = sign;
        if (sign != '-' || !is_digit(next)) continue;
        const std::string counted = counted_year(definition, ++at);
        out.insert(out.end(), counted.begin(), counted.end());
    }
    definition = out;
}

} // namespace kovac
