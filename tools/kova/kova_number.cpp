// kova number: numbers, characters and texts written, and read, in a locale's notation.
#include <array>
#include <cstring>
#include <map>

#include "kova/kova_format.h"

namespace kovacli {

namespace {
enum class kind { integer, real, character, text, none };
} // namespace

static kind kind_of(const format_directive &d) {
    const auto is = [&](const char *set) { return d.conversion && strchr(set, d.conversion); };
    return is("diuoqbxX") ? kind::integer
           : is("eEfgG")  ? kind::real
           : is("c")      ? kind::character
           : is("s")      ? kind::text
                          : kind::none;
}

static char size_of(const format_directive &d) {
    const char last = d.modifiers.empty() ? '0' : d.modifiers.back();
    return strchr("lLhH", last) ? char(last | 0x20) : '\0';
}

static std::string reason(int error) {
    switch (error) {
    case KO_EDIRECTIVE:
        return "a directive is % with flags, width, .digits, l or h, then one of d i u o q b x X "
               "c s e E f g G";
    case KO_EFORMAT:
        return "the format ends inside a directive";
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

static int integer_value(const format_directive &d, const std::string &text,
                         const std::string &what) {
    const bool half = size_of(d) == 'h';
    if (d.conversion == 'u')
        return int(uint32_t(whole_value(text, what, 0, half ? 65535 : UINT32_MAX)));
    return int(half ? whole_value(text, what, INT16_MIN, INT16_MAX)
                    : whole_value(text, what, INT32_MIN, INT32_MAX));
}

// Writes an integer. If the effect of an earlier integer lasts, another integer that causes it is
// written first and cut off again.
static bool write_integer(const codec &code, const format_text &format, const format_directive &d,
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
    if (d.conversion == 'u') return true;
    state.negative |= value < 0;
    if (!state.upper) state.letter = format.wide[d.end - 1];
    state.upper |= d.conversion == 'X';
    return true;
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

static bool write_value(const codec &code, const format_text &format, const format_directive &d,
                        const std::string &argument, const std::string &what, lasting &state,
                        std::vector<ko_wchar_t> &result) {
    const kind k = kind_of(d);
    if (k == kind::integer)
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
    if (k == kind::real) return write(decimal_value(argument, what));
    const text_value text = text_of(code, argument, what);
    if (size_of(d) != 'l') return write(text.bytes.data());
    return k == kind::text ? write(text.wide.data()) : write(int(text.wide[0]));
}

// The text between directives, "%%" halved.
static void append_literal(const codec &code, const format_text &format, size_t from, size_t to,
                           std::vector<ko_wchar_t> &line) {
    std::vector<ko_wchar_t> part(&format.wide[from], &format.wide[to]), result;
    part.push_back(0);
    written_text(
        code.loc,
        [&](ko_wchar_t *out, int room) { return ko_wcsfnum(code.loc, out, room, part.data()); },
        result);
    line.insert(line.end(), result.begin(), result.end());
}

// Refuses what the library would refuse whatever the values.
static void check_directives(const codec &code, const format_text &format) {
    for (const format_directive &d : format.directives) {
        const bool known = kind_of(d) != kind::none;
        if (d.modifiers.find('*') != std::string::npos)
            fail_in_format(code, format, d.start, bad_usage, "digits must stand in place of \"*\"");
        if (!known)
            fail_in_format(code, format, d.start, bad_usage,
                           reason(d.conversion ? KO_EDIRECTIVE : KO_EFORMAT));
    }
}

static void print_numbers(const codec &code, const format_text &format,
                          const std::vector<std::string> &values, output &out) {
    check_directives(code, format);
    check_counts(format, values);
    for (size_t at = 0; at < values.size() || !at;) {
        lasting state;
        std::vector<ko_wchar_t> line, result;
        size_t done_to = 0;
        for (const format_directive &d : format.directives) {
            append_literal(code, format, done_to, d.start, line);
            const std::string what = "VALUE " + std::to_string(at + 1);
            if (!write_value(code, format, d, values[at++], what, state, result))
                fail_in_format(code, format, d.start, bad_usage, reason(*ko_ext_errno(code.loc)));
            line.insert(line.end(), result.begin(), result.end());
            done_to = d.end;
        }
        append_literal(code, format, done_to, format.wide.size() - 1, line);
        std::string text;
        encode(code, line.data(), line.size(), text);
        write(out, for_terminal(code, text) + "\n");
        if (format.directives.empty()) return;
    }
}

// ---- Reading ----

// Room for anything that a directive can store.
using slot = std::vector<ko_wchar_t>;
template <class Number> static Number number_in(const slot &room) {
    Number value;
    memcpy(&value, room.data(), sizeof value);
    return value;
}

template <size_t... i>
static int read_slots(const codec &code, const ko_wchar_t *text, const ko_wchar_t *format,
                      std::array<slot, directives_max> &slots, std::index_sequence<i...>) {
    *ko_ext_errno(code.loc) = 0;
    return ko_wcspnum(code.loc, text, format, static_cast<void *>(slots[i].data())...);
}

static std::string stored_text(const codec &code, const format_directive &d, const slot &room) {
    const kind k = kind_of(d);
    const bool half = size_of(d) == 'h', wide = size_of(d) == 'l', plain = d.conversion == 'u';
    if (k == kind::real) return shortest_digits(number_in<double>(room));
    if (k == kind::integer && half)
        return std::to_string(plain ? int{number_in<uint16_t>(room)} : number_in<int16_t>(room));
    if (k == kind::integer && plain) return std::to_string(number_in<uint32_t>(room));
    if (k == kind::integer) return std::to_string(number_in<int32_t>(room));
    slot units = room;
    const void *const bytes = room.data();
    if (!wide)
        static_cast<loc_exports *>(code.loc)->mbstowcs(
            code.loc, units.data(), static_cast<const ko_mchar_t *>(bytes), int(units.size()));
    std::string text;
    encode(code, units.data(), size_t(k == kind::text ? ko_wcslen(units.data()) : 1), text);
    return text;
}

static void print_values(const codec &code, const format_text &format, const std::string &argument,
                         output &out) {
    std::vector<ko_wchar_t> text = decode_argument(code, argument, "TEXT");
    text.push_back(0);
    std::array<slot, directives_max> slots;
    for (slot &room : slots)
        room.assign(2 * text.size() + sizeof(double), 0);
    const auto works = [&](const ko_wchar_t *front) {
        read_slots(code, text.data(), front, slots, std::make_index_sequence<directives_max>());
        return *ko_ext_errno(code.loc) == 0;
    };
    if (!works(format.wide.data())) {
        const int error = *ko_ext_errno(code.loc);
        const size_t place = longest_working(format, works);
        bool known = true;
        for (const format_directive &d : format.directives)
            if (place >= d.start && place < d.end) known = kind_of(d) != kind::none;
        const bool differs = known && (error == KO_EDIRECTIVE || error == KO_EINVAL);
        fail_in_format(code, format, place, known ? bad_text : bad_usage,
                       differs ? "the text does not match" : reason(error));
    }
    size_t used = 0;
    for (const format_directive &d : format.directives) {
        if (d.modifiers.find('*') != std::string::npos) continue;
        write(out, stored_text(code, d, slots[used++]) + "\n");
    }
}

int run_number(const common_options &common, const format_options &options) {
    return run_format(common, options,
                      {
                          {" #'+-", "lLhH"},
                          print_numbers, print_values
    });
}

} // namespace kovacli
