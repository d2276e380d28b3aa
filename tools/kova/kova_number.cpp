// kova number: numbers, characters and texts written in a locale's notation.
#include "kova/kova_number.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <map>

#include "kova/kova_decimal.h"
#include "kova/kova_names.h"

namespace kovacli {

number_kind kind_of(const format_directive &d) {
    const auto is = [&](const char *set) { return d.conversion && strchr(set, d.conversion); };
    return is("diuoqbxX") ? number_kind::integer
           : is("eEfgG")  ? number_kind::real
           : is("c")      ? number_kind::character
           : is("s")      ? number_kind::text
                          : number_kind::none;
}

bool is_number(const format_directive &d) {
    return kind_of(d) == number_kind::real || kind_of(d) == number_kind::integer;
}

char size_of(const format_directive &d) {
    const char last = d.modifiers.empty() ? '0' : d.modifiers.back();
    return strchr("lLhH", last) ? char(last | 0x20) : '\0';
}

unsigned base_of(const format_directive &d) {
    switch (d.conversion) {
    case 'o':
        return 8;
    case 'q':
        return 4;
    case 'b':
        return 2;
    case 'x':
    case 'X':
        return 16;
    default:
        return 10;
    }
}

std::string number_fault(int error) {
    switch (error) {
    case KO_EDIRECTIVE:
        return "a directive is % with flags, width, .digits, l or h, then one of d i u o q b x X "
               "c s e E f g G";
    case KO_EFORMAT:
        return "the format ends inside a directive; %% writes a %";
    case KO_EPRECISION:
        return "digits must follow the \".\"";
    case KO_EILSEQ:
        return "the value is not a character of the code set";
    default:
        return "the result is too long, or the locale is damaged (error " + std::to_string(error) +
               ")";
    }
}

// ---- Writing ----

namespace {
// Directives are formatted one by one, since arguments of arbitrary kinds cannot be passed in one
// call. This is what the library would keep between the directives of one call.
struct lasting {
    std::map<char, ko_wchar_t> flags;
    bool negative = false; // a negative integer was written
    bool upper = false;    // an "X" was used
    ko_wchar_t letter = 0; // the letter of a signed integer directive, "X" if there was one
};
} // namespace

// The format of a single directive, with the flags that last.
static std::vector<ko_wchar_t> single_format(const format_text &format, const format_directive &d,
                                             lasting &state) {
    const std::string &m = d.modifiers;
    size_t at = 0;
    for (; at < m.size() && strchr(" #'+-", m[at]); ++at)
        state.flags[m[at]] = format.wide[d.start + 1 + at];
    if (at < m.size() && m[at] == '0') {
        ++at;
        if (!state.flags.count('-')) state.flags['0'] = format.wide[d.start + at];
    }
    std::vector<ko_wchar_t> result = {format.wide[d.start]};
    if (state.flags.count('0')) state.flags.erase('-'); // zeros win, and "0" ends the flags
    for (const auto &[flag, unit] : state.flags)
        if (flag != '0') result.push_back(unit);
    if (const auto zero = state.flags.find('0'); zero != state.flags.end())
        result.push_back(zero->second);
    result.insert(result.end(), &format.wide[d.start + 1 + at], &format.wide[d.end]);
    result.push_back(0);
    return result;
}

namespace {
// An integer of 64 bits and its sign.
struct whole_number {
    uint64_t magnitude = 0;
    bool negative = false;
};
} // namespace

static whole_number integer_value(const format_directive &d, const std::string &text,
                                  const std::string &what) {
    const auto refuse = [&](const std::string &why) {
        throw failure(bad_usage,
                      what + (text.empty() ? ", an empty one, " : ", " + text + ", ") + why);
    };
    decimal number;
    if (!read_decimal(text, number)) refuse("is not a whole number");
    if (number.point < int64_t(number.digits.size()))
        refuse("is not a whole number; %f and %g write it");
    const bool half = size_of(d) == 'h', plain = d.conversion == 'u';
    const uint64_t most = half ? plain ? UINT16_MAX : INT16_MAX : plain ? UINT64_MAX : INT64_MAX;
    const uint64_t least = plain ? 0 : most + 1;
    whole_number value{0, number.negative};
    number.negative = false;
    const std::string digits = number.point > 20 ? "" : text_of(number);
    const auto error =
        std::from_chars(digits.data(), digits.data() + digits.size(), value.magnitude).ec;
    if (error != std::errc() || value.magnitude > (value.negative ? least : most))
        refuse("is not within " + std::string(plain ? "" : "-") + std::to_string(least) + " and " +
               std::to_string(most) + (half ? "; %d writes more" : "; %g writes it rounded"));
    return value;
}

// What a signed integer leaves to those after it.
static void note_written(const format_text &format, const format_directive &d, bool negative,
                         lasting &state) {
    state.negative |= negative;
    if (!state.upper) state.letter = format.wide[d.end - 1];
    state.upper |= d.conversion == 'X';
}

// Writes an integer. If the effect of an earlier integer lasts, another integer that causes it is
// written first and cut off again.
static bool write_small(const codec &code, const format_text &format, const format_directive &d,
                        int value, lasting &state, std::vector<ko_wchar_t> &result) {
    std::vector<ko_wchar_t> single = single_format(format, d, state), cause;
    const bool lasts = state.negative || state.upper;
    const int first = !lasts ? value : state.negative ? -1 : 1;
    const auto written = [&](const std::vector<ko_wchar_t> &one, std::vector<ko_wchar_t> &text) {
        return written_text(
            code.loc,
            [&](ko_wchar_t *out, int room) {
                return ko_wcsfnum(code.loc, out, room, one.data(), first, value);
            },
            text);
    };
    if (lasts) {
        const ko_wchar_t before[] = {single[0], state.letter};
        if (!written({before[0], before[1], 0}, cause)) return false;
        single.insert(single.begin(), before, before + 2);
    }
    if (!written(single, result)) return false;
    result.erase(result.begin(), result.begin() + ptrdiff_t(cause.size()));
    if (d.conversion != 'u') note_written(format, d, value < 0, state);
    return true;
}

static bool is_digit(char c) { return c >= '0' && c <= '9'; }

// The digits of a number of more than 32 bits, with the padding that its directive asks for.
static void pad_digits(const codec &code, const format_directive &d, const lasting &state,
                       size_t digits, std::vector<ko_wchar_t> &text) {
    const auto number_at = [&](size_t at) {
        size_t number = 0;
        for (; at < d.modifiers.size() && is_digit(d.modifiers[at]); ++at)
            number = std::min<size_t>(number * 10 + size_t(d.modifiers[at] - '0'), 10000000);
        return number;
    };
    const ko_wchar_t zero = native(code, "0")[0], blank = native(code, " ")[0];
    const bool octal = base_of(d) == 8 && state.flags.count('#');
    const size_t point = d.modifiers.find('.');
    const size_t least = point == std::string::npos ? 0 : number_at(point + 1);
    const size_t wanted = octal && digits >= least ? digits + 1 : least;
    const size_t width =
        number_at(std::min(d.modifiers.find_first_of("123456789."), d.modifiers.size()));
    const wide_text plain = native(code, "0123456789abcdefABCDEF");
    const auto first = std::find_first_of(text.begin(), text.end(), plain.begin(), plain.end());
    auto at = first - text.begin();
    const auto insert = [&](size_t count, ko_wchar_t unit) {
        text.insert(text.begin() + at, count, unit);
    };
    if (base_of(d) == 16 && state.flags.count('#')) {
        const wide_text prefix = native(code, state.upper || d.conversion == 'X' ? "0X" : "0x");
        text.insert(first, prefix.begin(), prefix.end());
        at += 2;
    }
    if (wanted > digits) insert(wanted - digits, zero);
    if (base_of(d) == 16 && state.flags.count('#')) at -= 2; // zeros of the width come before "0x"
    const size_t padding = width > text.size() ? width - text.size() : 0;
    if (state.flags.count('0')) return insert(padding, zero);
    at = state.flags.count('-') ? ptrdiff_t(text.size()) : 0;
    insert(padding, blank);
}

// Writes an integer of more than 32 bits: the library writes the sign and the groups of a power of
// ten with as many digits, whose digits are then replaced.
static bool write_large(const codec &code, const format_text &format, const format_directive &d,
                        const whole_number &value, lasting &state,
                        std::vector<ko_wchar_t> &result) {
    single_format(format, d, state); // takes the flags
    const bool negative = value.negative || state.negative;
    const bool upper = state.upper || d.conversion == 'X';
    char digits[64];
    const auto end =
        std::to_chars(digits, digits + sizeof digits, value.magnitude, int(base_of(d))).ptr;
    std::string plain(digits, end);
    for (char &c : plain)
        if (upper && c >= 'a') c = char(c - 32);
    std::string pattern = "%";
    for (const char flag : {'+', ' ', '\''})
        if (state.flags.count(flag)) pattern += flag;
    wide_text wide = native(code, pattern + ".0f");
    wide.push_back(0);
    const double power = decimal_value("1e" + std::to_string(plain.size() - 1), "");
    const auto write = [&](ko_wchar_t *out, int room) {
        return ko_wcsfnum(code.loc, out, room, wide.data(), negative ? -power : power);
    };
    if (!written_text(code.loc, write, result)) return false;
    const wide_text ten = native(code, "01"), shown = native(code, plain);
    size_t left = shown.size();
    for (size_t at = result.size(); at-- > 0 && left > 0;)
        if (result[at] == ten[0] || result[at] == ten[1]) result[at] = shown[--left];
    pad_digits(code, d, state, shown.size(), result);
    if (d.conversion != 'u') note_written(format, d, value.negative, state);
    return true;
}

static bool write_integer(const codec &code, const format_text &format, const format_directive &d,
                          const whole_number &value, lasting &state,
                          std::vector<ko_wchar_t> &result) {
    const uint64_t most = d.conversion == 'u' ? UINT32_MAX : INT32_MAX;
    if (value.magnitude > most + value.negative)
        return write_large(code, format, d, value, state, result);
    const auto bits = uint32_t(value.magnitude);
    return write_small(code, format, d, int(value.negative ? -bits : bits), state, result);
}

namespace {
// The text of a VALUE as the library takes it, and its first character.
struct text_value {
    std::vector<ko_wchar_t> wide;
    std::string bytes;
};
} // namespace
static text_value text_of(const codec &code, const std::string &argument, const std::string &what) {
    text_value value;
    value.wide = decode_argument(code, argument, what);
    for (const ko_wchar_t c : value.wide)
        encode_bytes(code, c, value.bytes);
    value.wide.push_back(0);
    value.bytes.append(4, '\0');
    return value;
}

// ---- Reals ----

// Of reals the library writes 15 digits, and then zeros.
static void refuse_surplus(const decimal &rounded, const std::string &argument,
                           const std::string &what) {
    constexpr size_t most_digits = 15;
    if (rounded.digits.size() > most_digits)
        throw failure(bad_usage, what + ", " + argument + ", has more digits than the " +
                                     std::to_string(most_digits) +
                                     " of reals; %d writes whole numbers of 19");
}

static double real_value(const format_directive &d, const std::string &argument,
                         const std::string &what) {
    constexpr int most_places = 400;
    const double value = decimal_value(argument, what);
    decimal number;
    if (!read_decimal(argument, number)) return value; // infinite, or none
    const size_t point = d.modifiers.find('.');
    const char *const digits = point == std::string::npos ? "" : d.modifiers.c_str() + point + 1;
    int places = *digits >= '0' && *digits <= '9' ? number_up_to(digits, most_places) : 6;
    const bool general = (d.conversion | 0x20) == 'g';
    if (d.conversion != 'f' && number.point > -most_places)
        places = (general ? std::max(places, 1) : places + 1) - int(number.point);
    round_to(number, places, rounding::nearest);
    refuse_surplus(number, argument, what);
    return value;
}

// ---- Units ----

// The same directive for a number with so many decimals and a unit after it.
static std::string directive_with_unit(const format_directive &d, const scaled &value) {
    const size_t flags = std::min(d.modifiers.find_first_not_of(" #'+-0"), d.modifiers.size());
    const std::string rest = d.modifiers.substr(flags);
    const size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
    const size_t width =
        digits ? size_t(std::stoul(rest.substr(0, std::min<size_t>(digits, 8)))) : 0;
    std::string text = "%" + d.modifiers.substr(0, flags);
    if (width > value.unit.size()) text += std::to_string(width - value.unit.size());
    return text + "." + std::to_string(value.places) + "f";
}

static rounding rounding_named(const std::string &name) {
    return name == "up"             ? rounding::up
           : name == "down"         ? rounding::down
           : name == "towards-zero" ? rounding::towards_zero
           : name == "nearest"      ? rounding::nearest
                                    : rounding::from_zero;
}

static bool write_scaled(const format_job &job, const format_directive &d,
                         const std::string &argument, const std::string &what, lasting &state,
                         std::string &line) {
    const format_options &options = *job.options;
    const codec &code = job.code;
    const size_t point = d.modifiers.find('.');
    const int places =
        point == std::string::npos ? -1 : number_up_to(d.modifiers.c_str() + point + 1, 15);
    decimal number = read_with_unit(argument, what, scale_named(options.from));
    const scaled value = scaled_to(std::move(number), scale_named(options.to), places,
                                   rounding_named(options.round));
    refuse_surplus(value.number, argument, what);
    const std::string directive = directive_with_unit(d, value);
    const format_text format = split_format(code, native(code, directive), {" #'+-", "lLhH", ""});
    const std::vector<ko_wchar_t> single = single_format(format, format.directives[0], state);
    std::vector<ko_wchar_t> result;
    const double real = decimal_value(text_of(value.number), what);
    const auto write = [&](ko_wchar_t *out, int room) {
        return ko_wcsfnum(code.loc, out, room, single.data(), real);
    };
    if (!written_text(code.loc, write, result)) return false;
    const ko_wchar_t blank = native(code, " ")[0]; // padding after the number goes after the unit
    size_t size = result.size();
    while (state.flags.count('-') && size > 0 && result[size - 1] == blank)
        --size;
    const wide_text unit = native(code, value.unit);
    result.insert(result.begin() + ptrdiff_t(size), unit.begin(), unit.end());
    line += with_digits(code, job.digits, result.data(), result.size());
    return true;
}

// ---- Lines ----

static bool write_value(const codec &code, const format_text &format, const format_directive &d,
                        const std::string &argument, const std::string &what, lasting &state,
                        std::vector<ko_wchar_t> &result) {
    const number_kind k = kind_of(d);
    if (k == number_kind::integer)
        return write_integer(code, format, d, integer_value(d, argument, what), state, result);
    const std::vector<ko_wchar_t> single = single_format(format, d, state);
    const auto write = [&](auto value) {
        return written_text(
            code.loc,
            [&](ko_wchar_t *out, int room) {
                return ko_wcsfnum(code.loc, out, room, single.data(), value);
            },
            result);
    };
    if (k == number_kind::real) return write(real_value(d, argument, what));
    const text_value text = text_of(code, argument, what);
    if (size_of(d) != 'l') return write(text.bytes.data());
    return k == number_kind::text ? write(text.wide.data()) : write(int(text.wide[0]));
}

// The text between directives, "%%" halved.
static void append_literal(const codec &code, const format_text &format, size_t from, size_t to,
                           std::string &line) {
    std::vector<ko_wchar_t> part(&format.wide[from], &format.wide[to]), result;
    part.push_back(0);
    written_text(
        code.loc,
        [&](ko_wchar_t *out, int room) { return ko_wcsfnum(code.loc, out, room, part.data()); },
        result);
    encode(code, result.data(), result.size(), line);
}

// Refuses what the library would refuse whatever the values.
static void check_directives(const format_job &job) {
    for (const format_directive &d : job.format.directives) {
        const number_kind kind = kind_of(d);
        const auto refuse = [&](const std::string &why) {
            fail_in_format(job.code, job.format, d.start, bad_usage, why);
        };
        if (d.modifiers.find('*') != std::string::npos)
            refuse("digits must stand in place of \"*\"");
        if (kind == number_kind::none)
            refuse(number_fault(d.conversion ? KO_EDIRECTIVE : KO_EFORMAT));
        if (!job.options->to.empty() && !strchr("diuf", d.conversion))
            refuse("--to needs one of d i u f");
    }
}

// Appends what a directive writes.
static bool append_value(const format_job &job, const format_directive &d,
                         const std::string &argument, const std::string &what, lasting &state,
                         std::string &line) {
    const bool number = is_number(d), decimal_digits = number && base_of(d) == 10;
    std::string value = number ? plain_digits(job.code, argument) : argument;
    if (number && !job.options->to.empty()) return write_scaled(job, d, value, what, state, line);
    if (number && !job.options->from.empty())
        value = text_of(read_with_unit(value, what, scale_named(job.options->from)));
    std::vector<ko_wchar_t> result;
    if (!write_value(job.code, job.format, d, value, what, state, result)) return false;
    line += with_digits(job.code, decimal_digits ? job.digits : digit_set(), result.data(),
                        result.size());
    return true;
}

static std::string print_numbers(const format_job &job, const std::vector<std::string> &values,
                                 size_t first) {
    lasting state;
    std::string line;
    size_t done_to = 0, at = 0;
    for (const format_directive &d : job.format.directives) {
        append_literal(job.code, job.format, done_to, d.start, line);
        const std::string what = value_name(first ? first + at : 0);
        if (!append_value(job, d, values[at++], what, state, line))
            fail_in_format(job.code, job.format, d.start, bad_usage,
                           number_fault(*ko_ext_errno(job.code.loc)));
        done_to = d.end;
    }
    append_literal(job.code, job.format, done_to, job.format.wide.size() - 1, line);
    return line;
}

int run_number(const common_options &common, const format_options &options) {
    return run_format(common, options,
                      {
                          {" #'+-", "lLhH"},
                          check_directives, print_numbers, parse_numbers
    });
}

} // namespace kovacli
