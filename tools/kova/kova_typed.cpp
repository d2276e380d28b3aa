// Texts as people type them.
#include "kova/kova_typed.h"

#include <algorithm>
#include <cmath>

#include "kova/kova_char.h"
#include "kova/kova_digits.h"

namespace kovacli {

// ---- how far a format reads ----

// Text and format, each continued by the same characters: they match where nothing is left over.
static bool match_continued(const reading &reads, const format_text &format, const wide_text &text,
                            const wide_text &after_text, const wide_text &after_format) {
    wide_text longer = text, pattern = format.wide;
    longer.insert(longer.end() - 1, after_text.begin(), after_text.end());
    pattern.insert(pattern.end() - 1, after_format.begin(), after_format.end());
    return reads(longer.data(), pattern.data());
}

bool reads_whole(const codec &code, const reading &reads, const format_text &format,
                 const wide_text &text) {
    if (!reads(text.data(), format.wide.data())) return false;
    for (const format_directive &d : format.directives)
        if (d.conversion == 's') return true;
    ko_wchar_t mark = 1;
    while (std::find(text.begin(), text.end(), mark) != text.end())
        ++mark;
    const ko_wchar_t blank = native(code, " ")[0];
    // A blank may be a separator of groups, and a symbol may need one at its end.
    return match_continued(reads, format, text, {mark}, {mark}) ||
           match_continued(reads, format, text, {blank, blank, mark}, {blank, mark});
}

size_t read_length(const codec &code, const reading &reads, const format_text &format,
                   const wide_text &text) {
    for (size_t length = text.size() - 1; length > 0; --length) {
        wide_text front(text.begin(), text.begin() + ptrdiff_t(length));
        front.push_back(0);
        if (reads_whole(code, reads, format, front)) return length;
    }
    return 0;
}

format_text front_of(const format_text &format, size_t length) {
    format_text front;
    front.wide.assign(format.wide.begin(), format.wide.begin() + ptrdiff_t(length));
    front.wide.push_back(0);
    for (const format_directive &d : format.directives)
        if (d.end <= length) front.directives.push_back(d);
    return front;
}

wide_text part_of(const codec &code, const reading &reads, const format_text &format,
                  const format_directive &d, const wide_text &text) {
    const size_t from = read_length(code, reads, front_of(format, d.start), text);
    const size_t to = read_length(code, reads, front_of(format, d.end), text);
    return {text.begin() + ptrdiff_t(from), text.begin() + ptrdiff_t(std::max(from, to))};
}

// The digits of the first number of a text, without zeros at either end and without its exponent;
// none of a hexadecimal one.
static std::string digits_in(const std::string &text) {
    size_t at = text.find_first_of("0123456789");
    std::string digits;
    for (; at < text.size() && (text[at] | 0x20) != 'e'; ++at) {
        if ((text[at] | 0x20) == 'x') return "";
        if (text[at] >= '0' && text[at] <= '9') digits += text[at];
    }
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
    digits.resize(digits.find_last_not_of('0') + 1);
    return digits;
}

void refuse_empty_group(const codec &code, const wide_text &part, const ko_wchar_t *separator,
                        const ko_wchar_t *decimal_point) {
    const auto is_digit = [&code](ko_wchar_t c) { return digit_value(code_point(code, c)) >= 0; };
    if (!separator || !separator[0]) return;
    const wide_text between(separator, separator + ko_wcslen(separator));
    const auto first = std::find_if(part.begin(), part.end(), is_digit);
    const auto end = std::find_if_not(first, part.end(), is_digit);
    const bool zero = std::all_of(
        first, end, [&code](ko_wchar_t c) { return digit_value(code_point(code, c)) == 0; });
    const bool point = decimal_point && decimal_point[0] == separator[0];
    if (first == end || end == part.end() || !zero || point ||
        std::search(end, part.end(), between.begin(), between.end()) != end)
        return;
    throw failure(bad_text, outer_text(code, part) + ": a number that is grouped by \"" +
                                outer_text(code, between) + "\" does not begin with 0");
}

std::string lost_digits(const codec &code, const wide_text &part, double value) {
    constexpr size_t always_kept = 15; // by any real
    std::string plain;
    for (const ko_wchar_t c : part) {
        uint32_t point = code_point(code, c);
        if (point == no_code_point) point = c;
        plain += point < 0x80 ? char(point) : '?';
    }
    const std::string digits = digits_in(plain), shown = outer_text(code, part);
    if (!digits.empty() && (!std::isfinite(value) || value == 0))
        throw failure(bad_text, shown + " is out of range");
    if (digits.size() <= always_kept || digits_in(shortest_digits(value)) == digits) return "";
    return shown + " has more digits than are kept: it is read as " + shortest_digits(value);
}

void refuse_rest(const codec &code, const reading &reads, const format_text &format,
                 const wide_text &text) {
    if (reads_whole(code, reads, format, text)) return;
    const size_t at = read_length(code, reads, format, text);
    const size_t columns = columns_of_text(code, text.data(), at);
    throw failure(bad_text,
                  "the format ends before the text, at character " + std::to_string(at + 1),
                  "  " + outer_text(code, {text.begin(), text.end() - 1}) + "\n  " +
                      std::string(columns, ' ') + '^');
}

// ---- other spellings ----

namespace {

// Characters that stand for each other.
enum class kin { none, blank, apostrophe, minus };

struct respelling {
    const codec &code;
    const wide_text &text;
    wide_text separator, minus;
    wide_text result;
    std::string done;
};

} // namespace

static kin kin_of(uint32_t point) {
    static constexpr struct {
        uint32_t point;
        kin group;
    } rows[] = {
        {' ',    kin::blank     },
        {0xA0,   kin::blank     },
        {0x2007, kin::blank     },
        {0x2009, kin::blank     },
        {0x202F, kin::blank     },
        {'\'',   kin::apostrophe},
        {0x2019, kin::apostrophe},
        {'-',    kin::minus     },
        {0x2212, kin::minus     },
    };
    for (const auto &row : rows)
        if (row.point == point) return row.group;
    return kin::none;
}

// The kind of a sign or separator; none if it has several characters.
static kin kin_of(const codec &code, const wide_text &text) {
    return text.size() == 1 ? kin_of(code_point(code, text[0])) : kin::none;
}

static int digit_at(const respelling &r, size_t at) {
    return at < r.text.size() - 1 ? digit_value(code_point(r.code, r.text[at])) : -1;
}

static void put(respelling &r, size_t at, const wide_text &instead) {
    r.result.insert(r.result.end(), instead.begin(), instead.end());
    if (instead.size() == 1 && instead[0] == r.text[at]) return;
    const std::string what = code_point_text(code_point(r.code, r.text[at])) + " is read as " +
                             code_point_text(code_point(r.code, instead[0]));
    if (r.done.find(what) == std::string::npos) r.done += (r.done.empty() ? "" : ", ") + what;
}

static void respell_at(respelling &r, size_t at) {
    const int digit = digit_at(r, at);
    if (digit >= 0) {
        const char plain = char('0' + digit);
        return put(r, at, native(r.code, {&plain, 1}));
    }
    const kin group = kin_of(code_point(r.code, r.text[at]));
    const bool inside = at > 0 && digit_at(r, at - 1) >= 0 && digit_at(r, at + 1) >= 0;
    if (inside && group != kin::none && group == kin_of(r.code, r.separator))
        return put(r, at, r.separator);
    if (group == kin::blank) return put(r, at, native(r.code, " "));
    if (group == kin::minus) return put(r, at, r.minus);
    r.result.push_back(r.text[at]);
}

std::string respell(const codec &code, const reading &reads, const format_text &format,
                    const wide_text &minus, wide_text &text) {
    if (reads_whole(code, reads, format, text)) return "";
    respelling r{.code = code, .text = text};
    const koconv *const conv = ko_localeconv(code.loc);
    if (conv && conv->w_thousands_sep)
        r.separator.assign(conv->w_thousands_sep,
                           conv->w_thousands_sep + ko_wcslen(conv->w_thousands_sep));
    r.minus = kin_of(code, minus) == kin::minus ? minus : native(code, "-");
    for (size_t at = 0; at + 1 < text.size(); ++at)
        respell_at(r, at);
    r.result.push_back(0);
    if (r.done.empty() || !reads_whole(code, reads, format, r.result)) return "";
    text = r.result;
    return r.done;
}

} // namespace kovacli
