// Decimal numbers of any length, and units of 1000 and 1024.
#include "kova/kova_decimal.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "kova/kova_cli.h"

namespace kovacli {

static bool is_digit(char c) { return c >= '0' && c <= '9'; }

static void trim(decimal &number) {
    const size_t first = std::min(number.digits.find_first_not_of('0'), number.digits.size());
    number.digits.erase(0, first);
    number.point -= int64_t(first);
    number.digits.resize(number.digits.find_last_not_of('0') + 1);
    if (number.digits.empty()) number.point = 0;
}

bool read_decimal(std::string_view text, decimal &number) {
    number = {};
    size_t at = 0, digits = 0;
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) number.negative = text[at++] == '-';
    for (; at < text.size() && is_digit(text[at]); ++at, ++digits)
        number.digits += text[at];
    number.point = int64_t(digits);
    if (at < text.size() && text[at] == '.')
        for (++at; at < text.size() && is_digit(text[at]); ++at, ++digits)
            number.digits += text[at];
    if (!digits) return false;
    if (at < text.size() && (text[at] | 0x20) == 'e') {
        int exponent = 0;
        if (++at < text.size() && text[at] == '+' && text.substr(at + 1, 1) != "-") ++at;
        const auto [end, error] =
            std::from_chars(text.data() + at, text.data() + text.size(), exponent);
        if (error != std::errc() || exponent > 9999 || exponent < -9999) return false;
        at = size_t(end - text.data());
        number.point += exponent;
    }
    trim(number);
    return at == text.size();
}

std::string text_of(const decimal &number) {
    std::string text = number.negative ? "-" : "";
    const auto size = int64_t(number.digits.size());
    if (number.point <= 0) text += '0';
    for (int64_t i = 0; i < std::max(size, number.point); ++i) {
        if (i == 0 && number.point <= 0) text += '.' + std::string(size_t(-number.point), '0');
        if (i == number.point && i > 0) text += '.';
        text += i < size ? number.digits[size_t(i)] : '0';
    }
    return text;
}

void round_to(decimal &number, int places, rounding rule) {
    const int64_t keep = number.point + places;
    if (keep >= int64_t(number.digits.size())) return;
    const bool half = keep >= 0 && number.digits[size_t(keep)] >= '5';
    const bool away = rule == rounding::from_zero || (rule == rounding::up && !number.negative) ||
                      (rule == rounding::down && number.negative) ||
                      (rule == rounding::nearest && half);
    number.digits.resize(size_t(std::max<int64_t>(keep, 0)));
    if (keep < 0) number.point = -places;
    if (away) {
        size_t at = number.digits.size();
        while (at > 0 && number.digits[at - 1] == '9')
            number.digits[--at] = '0';
        if (at > 0) {
            ++number.digits[at - 1];
        } else {
            number.digits.insert(0, "1");
            ++number.point;
        }
    }
    trim(number);
}

// ---- units ----

static constexpr char units[] = "KMGTPEZYRQ";
static constexpr int powers_max = sizeof units - 1;

// Divides by 2, without rounding.
static void halve(decimal &number) {
    int rest = 0;
    for (char &c : number.digits) {
        const int value = rest * 10 + (c - '0');
        c = char('0' + value / 2);
        rest = value % 2;
    }
    if (rest) number.digits += '5';
    trim(number);
}

static void twice(decimal &number) {
    int carry = 0;
    for (size_t at = number.digits.size(); at-- > 0;) {
        const int value = 2 * (number.digits[at] - '0') + carry;
        number.digits[at] = char('0' + value % 10);
        carry = value / 10;
    }
    if (carry) {
        number.digits.insert(0, "1");
        ++number.point;
    }
    trim(number);
}

static void multiply(decimal &number, int power, bool binary) {
    if (!binary && !number.digits.empty()) number.point += 3 * power;
    for (int i = 0; binary && i < 10 * power; ++i)
        twice(number);
}

static void divide(decimal &number, bool binary) {
    if (!binary && !number.digits.empty()) number.point -= 3;
    for (int i = 0; binary && i < 10; ++i)
        halve(number);
}

unit_scale scale_named(const std::string &name) {
    static constexpr struct {
        const char *name;
        unit_scale scale;
    } rows[] = {
        {"si",    unit_scale::si   },
        {"iec",   unit_scale::iec  },
        {"iec-i", unit_scale::iec_i},
        {"auto",  unit_scale::any  },
    };
    for (const auto &row : rows)
        if (name == row.name) return row.scale;
    return unit_scale::none;
}

decimal read_with_unit(const std::string &text, const std::string &what, unit_scale scale) {
    std::string_view rest = text;
    const bool i = rest.size() > 1 && rest.back() == 'i';
    if (i) rest.remove_suffix(1);
    const char last = rest.empty() ? '\0' : rest.back();
    const char *const unit = last ? std::strchr(units, last == 'k' ? 'K' : last) : nullptr;
    if (unit) rest.remove_suffix(1);
    while (unit && !rest.empty() && rest.back() == ' ')
        rest.remove_suffix(1);
    decimal number;
    if ((i && !unit) || !read_decimal(rest, number))
        throw failure(bad_usage, what + ", " + text +
                                     ", is not a number with \".\" before decimals and a unit, one "
                                     "of K M G T P E Z Y R Q, after it");
    if (unit && i && (scale == unit_scale::si || scale == unit_scale::iec))
        throw failure(bad_usage, what + ", " + text + ": --from auto or iec-i reads units with i");
    if (unit && !i && scale == unit_scale::iec_i)
        throw failure(bad_usage, what + ", " + text +
                                     ": --from iec-i reads units with i, and --from iec or si "
                                     "those without");
    if (unit) multiply(number, int(unit - units) + 1, i || scale == unit_scale::iec);
    return number;
}

static bool reaches(const decimal &number, bool binary) {
    if (number.point != 4) return number.point > 4;
    std::string whole = number.digits.substr(0, 4);
    whole.resize(4, '0');
    return !binary || whole >= "1024";
}

scaled scaled_to(decimal number, unit_scale scale, int places, rounding rule) {
    const bool binary = scale != unit_scale::si;
    int power = 0;
    for (; power < powers_max && reaches(number, binary); ++power)
        divide(number, binary);
    round_to(number, places >= 0 ? places : number.point <= 1 ? 1 : 0, rule);
    if (power < powers_max && reaches(number, binary)) {
        divide(number, binary);
        ++power;
    }
    if (places < 0) places = !number.digits.empty() && number.point <= 1 && power > 0 ? 1 : 0;
    if (!places) round_to(number, 0, rule);
    scaled result{std::move(number), "", places};
    if (power) result.unit = units[power - 1];
    if (power && scale == unit_scale::iec_i) result.unit += 'i';
    return result;
}

} // namespace kovacli
