// Texts as people type them.
#include "kova/kova_typed.h"

#include <algorithm>

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
