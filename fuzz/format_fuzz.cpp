// A format and a text from anywhere, for numbers and money: what is written fits and is written
// alike into exactly its room, the multibyte twin agrees, directives of C write what C writes,
// parsing ends within the text, grouped output reads back, and nothing is left behind.
//   Input: the locale (a byte), an integer (4 bytes), a real (8 bytes), the format, a line feed and
//   the text, both of ASCII or Latin-1 characters.
#include "chars/kovambwc.h"
#include "fuzz_host.h"
#include "number/kovafmt.h"
#include "number/number_records.h"

#include <math.h>

using wide_string = std::vector<ko_wchar_t>; // with its terminator
using byte_string = std::vector<ko_mchar_t>;

static kovaloc *locale_at(size_t i) {
    static const loaded_locale locales[] = {
        loaded_locale(with_conventions({})),
        loaded_locale(with_conventions({",", ".", "2 3 2", "", "-", "EUR", "2 3 2"}, two_bytes)),
        loaded_locale(with_conventions({"::", "''", "3 3 2 -1", "", "-", "kr", "3 3 2 -1"})),
        loaded_locale(with_conventions({.separator = "", .symbol = ""})),
    };
    // Where symbols stand, with a space or not, and where signs do: parentheses around amounts that
    // are not negative would hide the sign.
    static constexpr int layouts[][4] = {
        {1, 0, 1, 1},
        {0, 1, 4, 4},
        {0, 2, 0, 1},
        {1, 1, 2, 2}
    };
    static root_locales root;
    i %= std::size(locales) + root.size();
    if (i >= std::size(locales)) { // not EBCDIC: the format is taken apart below
        kovaloc *const compiled = record(root[i - std::size(locales)]);
        return compiled->portable ? record(locales[0].handle) : compiled;
    }
    kovaloc *const loc = record(locales[i].handle);
    monum *const m = &loc->monum_info;
    const int *const layout = layouts[i];
    m->p_cs_precedes = m->n_cs_precedes = layout[0];
    m->p_sep_by_space = m->n_sep_by_space = layout[1];
    m->n_sign_posn = layout[2];
    m->p_sign_posn = layout[3];
    derive_money(loc);
    return loc;
}

// ---- Formats ------------------------------------------------------------------------------------

// What the values of a format are, all of one kind.
enum value_kind { no_value, integer_value, real_value, bytes_value, wide_value };
constexpr int directives_max = 6; // with two stars each, 18 values

static value_kind kind_of(const ko_wchar_t *letter) {
    const bool is_long = (*letter | 0x20) == 'l';
    const bool sized = is_long || (*letter | 0x20) == 'h';
    const ko_wchar_t c = letter[sized];
    if (!c || c > 0x7F) return no_value;
    if (strchr("diuoqbxX", c)) return integer_value;
    if (strchr("eEfgG", c)) return real_value;
    if (c == 'c') return is_long ? integer_value : bytes_value;
    return c != 's' ? no_value : is_long ? wide_value : bytes_value;
}

// Cuts a format where a value of another kind than before follows. Parsing takes pointers, of which
// stars get none.
static value_kind cut_format(const kovaloc *loc, wide_string *format, bool parsing) {
    value_kind kind = no_value;
    int directives = 0;
    format_modifiers m = {};
    for (ko_wchar_t *at = format->data(); *at;) {
        ko_wchar_t *const start = at;
        if (*at++ != '%' || *at == '%') {
            at += *start == '%';
            continue;
        }
        const ko_wchar_t *letter = at;
        if (scan_format_modifiers(loc, &letter, &m)) return kind;
        const value_kind found = kind_of(letter);
        const bool stars = m.width_star || m.precision_star;
        const bool fits = parsing ? !m.precision_star : !stars || found == integer_value;
        if (!fits || (!parsing && kind && found != kind) || ++directives > directives_max) {
            *start = 0;
            return kind;
        }
        kind = found;
        if (!found) return kind; // an unknown letter ends the walk
        at += letter - at;
    }
    return kind;
}

// ---- Laws ---------------------------------------------------------------------------------------

struct setting {
    kovaloc *loc;
    int number;
    double real;
    wide_string text;
    byte_string mb_text; // empty: the text has no bytes
};

static byte_string narrow(kovaloc *loc, const ko_wchar_t *wide) {
    byte_string bytes(2 * size_t(ko_wcslen(wide)) + 4);
    const auto convert = loc->exp.single_byte ? is_wcstombs : ko_full_wcstombs;
    const int n = convert(loc, bytes.data(), wide, int(bytes.size()));
    bytes.resize(n < 0 ? 0 : size_t(n) + 2);
    return bytes;
}

using wide_formatter = int(ko_lc_t, ko_wchar_t *, int, const ko_wchar_t *, ...);
using byte_formatter = int(ko_lc_t, ko_mchar_t *, int, const ko_mchar_t *, ...);

constexpr int room = 2000;

struct formatter {
    wide_formatter *wide;
    byte_formatter *bytes;
    int spare; // room left over that a character of the format asks for
};
static constexpr formatter numbers = {ko_wcsfnum, ko_mbsfnum, 0};
static constexpr formatter money = {ko_wcsfmon, ko_mbsfmon, 1};

template <class... Value>
static void check_formatting(const setting &s, const wide_string &format, const formatter &f,
                             Value... values) {
    wide_string out(room + 1), exact;
    const int n = f.wide(s.loc, out.data(), room, format.data(), values...);
    check(n >= -1 && n <= room && (n < 0 || ko_wcslen(out.data()) == n),
          "the result is the length");
    if (n > 0) {
        const int most = n + f.spare;
        exact.resize(size_t(most) + 1);
        check(f.wide(s.loc, exact.data(), most, format.data(), values...) == n,
              "its room suffices");
        check(std::equal(exact.data(), exact.data() + n + 1, out.data()), "it is written alike");
        exact.resize(size_t(n));
        check(f.wide(s.loc, exact.data(), n - 1, format.data(), values...) < 0, "less does not");
    }
    const byte_string mb_format = narrow(s.loc, format.data());
    if (mb_format.empty()) return;
    byte_string mb_out(room + 4);
    const int m = f.bytes(s.loc, mb_out.data(), room, mb_format.data(), values...);
    const byte_string same = n < 0 ? byte_string() : narrow(s.loc, out.data());
    if (same.empty() || same.size() > room + 2) {
        check(m < 0, "the twin fails, too");
    } else {
        check(m + 2 == int(same.size()), "the twin has the length");
        check(!memcmp(mb_out.data(), same.data(), size_t(m)), "the twin agrees");
    }
}

static void check_numbers(const setting &s, wide_string format) {
    const int i = s.number, w = i % 40, p = i % 17;
    const double r = s.real;
    const ko_mchar_t *const t = s.mb_text.data();
    const ko_wchar_t *const u = s.text.data();
    const value_kind kind = cut_format(s.loc, &format, false);
    if (kind == integer_value || kind == no_value) {
        check_formatting(s, format, numbers, i, w, p, i, p, w, ~i, w, p, i, w, p, i, w, p, i, w, p);
    } else if (kind == real_value) {
        check_formatting(s, format, numbers, r, -r, r * 1e9, r, r / 1e9, r);
    } else if (kind == wide_value) {
        check_formatting(s, format, numbers, u, u, u, u, u, u);
    } else if (t) {
        check_formatting(s, format, numbers, t, t, t, t, t, t);
    }
}

static void check_money(const setting &s, wide_string format) {
    int directives = 0;
    for (ko_wchar_t &unit : format)
        if (unit == '%' && ++directives > directives_max) unit = 0;
    const double r = s.real;
    check_formatting(s, format, money, r, -r, r * 1e9, r, r / 1e9, r);
}

using wide_parser = int(ko_lc_t, const ko_wchar_t *, const ko_wchar_t *, ...);
using byte_parser = int(ko_lc_t, const ko_mchar_t *, const ko_mchar_t *, ...);

static void check_parsing(const setting &s, const wide_string &format, wide_parser *wide,
                          byte_parser *bytes) {
    // Each has room for the whole text in every form.
    std::vector<std::vector<double>> to(directives_max, std::vector<double>(s.text.size() + 8));
    void *p[directives_max];
    for (size_t i = 0; i < directives_max; ++i)
        p[i] = to[i].data();
    const int n = wide(s.loc, s.text.data(), format.data(), p[0], p[1], p[2], p[3], p[4], p[5]);
    check(n >= 0 && n <= directives_max, "as many as there are directives");
    const byte_string mb_format = narrow(s.loc, format.data());
    if (mb_format.empty() || s.mb_text.empty()) return;
    const int m =
        bytes(s.loc, s.mb_text.data(), mb_format.data(), p[0], p[1], p[2], p[3], p[4], p[5]);
    check(m == (n ? n : -1), "the twin agrees");
}

// A directive that means the same in C, a real of at most 15 digits. The last small locale writes
// numbers as C does, but for the sign of exponents.
static void check_reference(const setting &s, const wide_string &format) {
    if (s.loc != locale_at(3) || format[0] != '%') return;
    char flag[2] = "", letter = 0;
    unsigned width = 0, precision = 6;
    const std::string text(format.begin() + 1, format.end());
    const int taken = sscanf(text.c_str(), "%1[-0]", flag);
    const char *const rest = text.c_str() + (taken > 0);
    if (sscanf(rest, "%3u.%2u%c", &width, &precision, &letter) != 3 || !width) return;
    const bool real = strchr("eEf", letter), negative = s.number < 0;
    if (!letter || !strchr(negative ? "dieEf" : "dioxXeEf", letter)) return;
    const int digits = letter == 'f' ? 15 - int(precision) : 1;
    if (real && !(fabs(s.real) < (letter == 'f' ? pow(10, digits) : 1e300))) return;
    if (real ? precision > 14 || s.real == 0 : *flag == '0')
        return; // "0" yields to a precision in C
    const std::string c_format = "%" + text.substr(0, text.find(letter) + 1);
    std::string want(room, 0);
    const wide_string own(c_format.c_str(), c_format.c_str() + c_format.size() + 1);
    wide_string out(room + 1);
    const int n = real ? snprintf(want.data(), room, c_format.c_str(), s.real)
                       : snprintf(want.data(), room, c_format.c_str(), s.number);
    const int made = real ? ko_wcsfnum(s.loc, out.data(), room, own.data(), s.real)
                          : ko_wcsfnum(s.loc, out.data(), room, own.data(), s.number);
    want.resize(size_t(n));
    const size_t sign = want.find_first_of("eE") + 1;
    if (sign && want[sign] == '+') return; // has none where the positive sign is empty
    check(std::string(out.data(), out.data() + made) == want,
          "directives of C write what C writes");
}

// Grouped numbers and amounts of two decimals.
static void check_round_trip(const setting &s) {
    ko_wchar_t out[room + 1];
    int number = 0;
    double real = 0;
    const wide_string integer = wcs(u"%'d"), fixed = wcs(u"%'.2f"), amount = wcs(u"%.2n");
    check(ko_wcsfnum(s.loc, out, room, integer.data(), s.number) > 0 &&
              ko_wcspnum(s.loc, out, integer.data(), &number) == 1 && number == s.number,
          "a grouped integer reads back");
    if (!(fabs(s.real) < 1e12)) return;
    const auto close = [&] { return fabs(real - s.real) < 0.00501; };
    check(ko_wcsfnum(s.loc, out, room, fixed.data(), s.real) > 0 &&
              ko_wcspnum(s.loc, out, fixed.data(), &real) == 1 && close(),
          "a grouped real reads back");
    check(ko_wcsfmon(s.loc, out, room, amount.data(), s.real) > 0 &&
              ko_wcspmon(s.loc, out, amount.data(), &real) == 1 && close(),
          "an amount reads back");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 13 || size > 4096) return 0;
    setting s = {.loc = locale_at(data[0])};
    const long blocks = memory.live;
    memcpy(&s.number, data + 1, sizeof s.number);
    memcpy(&s.real, data + 5, sizeof s.real);
    const uint8_t *const end = data + size, *const line = std::find(data + 13, end, '\n');
    wide_string format(data + 13, line);
    format.push_back(0);
    s.text.assign(line == end ? end : line + 1, end);
    s.text.push_back(0);
    s.text.resize(size_t(ko_wcslen(s.text.data())) + 1);
    s.mb_text = narrow(s.loc, s.text.data());
    check_numbers(s, format);
    check_money(s, format);
    check_reference(s, format);
    check_round_trip(s);
    check_parsing(s, format, ko_wcspmon, ko_mbspmon);
    cut_format(s.loc, &format, true);
    check_parsing(s, format, ko_wcspnum, ko_mbspnum);
    check(memory.live == blocks, "nothing is left");
    return 0;
}
