// kova money: amounts written, and read, in a locale's notation.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kova/kova_char.h"
#include "kova/kova_decimal.h"
#include "kova/kova_digits.h"
#include "kova/kova_typed.h"

namespace kovacli {

using amounts = std::array<double, directives_max>;

// Passes as many amounts as any format can take; the library reads those of its directives.
template <class Call, class Value, size_t... i>
static int call_with(Call call, Value &values, std::index_sequence<i...>) {
    return call(values[i]...);
}
static constexpr auto all_places = std::make_index_sequence<directives_max>();

static bool write_amounts(const codec &code, const ko_wchar_t *format, const amounts &values,
                          std::vector<ko_wchar_t> &result) {
    const auto write_into = [&](ko_wchar_t *out, int room) {
        return call_with([&](auto... v) { return ko_wcsfmon(code.loc, out, room, format, v...); },
                         values, all_places);
    };
    return written_text(code.loc, write_into, result);
}

static int read_amounts(const codec &code, const ko_wchar_t *text, const ko_wchar_t *format,
                        amounts &values) {
    *ko_ext_errno(code.loc) = 0;
    return call_with([&](auto &...v) { return ko_wcspmon(code.loc, text, format, &v...); }, values,
                     all_places);
}

[[noreturn]] static void bad_format(const codec &code, const format_text &format,
                                    const std::function<bool(const ko_wchar_t *)> &works) {
    const int error = *ko_ext_errno(code.loc);
    const size_t place = longest_working(format, works);
    switch (error) {
    case KO_EMONEY:
        fail_in_format(code, format, place, bad_usage,
                       "a directive is % with flags, width, #digits, .digits and n or i");
    case KO_EDIRECTIVE:
        fail_in_format(code, format, place, bad_text, "the text does not match");
    default:
        fail_in_format(code, format, place, bad_text,
                       "the result is too long, or the locale is damaged (error " +
                           std::to_string(error) + ")");
    }
}

// Is there a layout for amounts of this sign?
static bool is_laid_out(const koconv &conv, bool negative) {
    const char first = negative ? conv.n_cs_precedes : conv.p_cs_precedes;
    const char space = negative ? conv.n_sep_by_space : conv.p_sep_by_space;
    const char sign = negative ? conv.n_sign_posn : conv.p_sign_posn;
    return first >= 0 && first <= 1 && space >= 0 && space <= 2 && sign >= 0 && sign <= 4;
}

static void need_layout(const format_job &job, bool negative) {
    const koconv *const conv = ko_localeconv(job.code.loc);
    if (conv && is_laid_out(*conv, negative)) return;
    throw failure(bad_text,
                  job.handle.name + " has no " +
                      (conv && is_laid_out(*conv, !negative)
                           ? negative ? "layout of negative amounts" : "layout of positive amounts"
                           : "conventions of money") +
                      ", so nothing would be written");
}

static void check_format(const format_job &job) {
    const amounts zeros{};
    std::vector<ko_wchar_t> result;
    const auto works = [&](const ko_wchar_t *front) {
        return write_amounts(job.code, front, zeros, result);
    };
    if (!works(job.format.wide.data())) bad_format(job.code, job.format, works);
    if (!job.format.directives.empty()) need_layout(job, false);
}

// The decimals of an amount: those that a directive names, else the locale's, else 2.
static int places_of(const koconv *conv, const format_directive &d) {
    size_t at = 0; // after the flags, of which "=" takes the next character
    while (at < d.modifiers.size() && std::strchr("!(+-^=", d.modifiers[at]))
        at += d.modifiers[at] == '=' ? 2u : 1u;
    const size_t point = d.modifiers.find('.', at);
    if (point != std::string::npos) return number_up_to(d.modifiers.c_str() + point + 1, 99);
    constexpr char unknown = 127;
    const char places = !conv                 ? unknown
                        : d.conversion == 'i' ? conv->int_frac_digits
                                              : conv->frac_digits;
    return places == unknown ? 2 : places;
}

// The value of an amount. Refuses digits that the library, which writes what "%f" makes of a
// double, would change.
static double amount_value(const format_job &job, const format_directive &d,
                           const std::string &text, const std::string &what) {
    const double value = decimal_value(text, what);
    decimal exact, written;
    if (!read_decimal(text, exact)) return value; // infinite, or none
    char room[400];
    std::snprintf(room, sizeof room, "%f", value);
    read_decimal(room, written);
    const int places = places_of(ko_localeconv(job.code.loc), d);
    round_to(exact, places, rounding::nearest);
    round_to(written, places, rounding::nearest);
    if (exact.digits != written.digits || exact.point != written.point)
        throw failure(bad_usage, what + ", " + text + ", has more digits than an amount can have");
    return value;
}

static std::string print_amounts(const format_job &job, const std::vector<std::string> &texts,
                                 size_t first) {
    amounts values{};
    for (size_t i = 0; i < texts.size(); ++i) {
        values[i] = amount_value(job, job.format.directives[i], plain_digits(job.code, texts[i]),
                                 value_name(first ? first + i : 0));
        need_layout(job, values[i] < 0);
    }
    std::vector<ko_wchar_t> result;
    const auto works = [&](const ko_wchar_t *front) {
        return write_amounts(job.code, front, values, result);
    };
    if (!works(job.format.wide.data())) bad_format(job.code, job.format, works);
    return with_digits(job.code, job.digits, result.data(), result.size());
}

static wide_text minus_of(const codec &code) {
    const koconv *const conv = ko_localeconv(code.loc);
    if (!conv || !conv->w_negative_sign) return {};
    return {conv->w_negative_sign, conv->w_negative_sign + ko_wcslen(conv->w_negative_sign)};
}

// What is to be told where an amount has more decimals than its currency, so that a separator of
// groups may have been meant.
static std::string surplus_decimals(const format_job &job, const format_directive &d,
                                    const wide_text &part) {
    const koconv *const conv = ko_localeconv(job.code.loc);
    const ko_wchar_t *const symbol = conv ? conv->w_mon_decimal_point : nullptr;
    if (!symbol || !symbol[0]) return "";
    const auto is_digit = [&job](ko_wchar_t c) {
        return digit_value(code_point(job.code, c)) >= 0;
    };
    // The last one between digits: some locales separate groups by it, too.
    const auto first = std::find_if(part.begin(), part.end(), is_digit);
    const auto end = std::find_if(part.rbegin(), part.rend(), is_digit).base();
    if (first >= end) return "";
    const auto at = std::find_end(first, end, symbol, symbol + ko_wcslen(symbol));
    const int places = places_of(conv, d);
    if (std::count_if(at, end, is_digit) <= places) return "";
    return outer_text(job.code, part) + " has more digits after \"" +
           outer_text(job.code, {symbol, symbol + ko_wcslen(symbol)}) + "\" than the " +
           std::to_string(places) + " decimals of the currency";
}

static answer parse_amounts(const format_job &job, const std::string &argument) {
    const codec &code = job.code;
    wide_text text = decode_argument(code, argument, "TEXT");
    text.push_back(0);
    amounts values{};
    const auto reads = [&](const ko_wchar_t *from, const ko_wchar_t *format) {
        read_amounts(code, from, format, values);
        return *ko_ext_errno(code.loc) == 0;
    };
    const auto works = [&](const ko_wchar_t *front) { return reads(text.data(), front); };
    answer given;
    const std::string done = respell(code, reads, job.format, minus_of(code), text);
    if (!done.empty()) given.told.push_back(done);
    if (!works(job.format.wide.data())) {
        if (!job.format.directives.empty()) need_layout(job, false);
        works(job.format.wide.data());
        bad_format(code, job.format, works);
    }
    refuse_rest(code, reads, job.format, text);
    works(job.format.wide.data());
    const amounts stored = values; // finding the parts reads again
    for (size_t i = 0; i < job.format.directives.size(); ++i) {
        const format_directive &d = job.format.directives[i];
        const wide_text part = part_of(code, reads, job.format, d, text);
        if (const koconv *const conv = ko_localeconv(code.loc))
            refuse_empty_group(code, part, conv->w_thousands_sep, conv->w_mon_decimal_point);
        for (const std::string &told :
             {lost_digits(code, part, stored[i]), surplus_decimals(job, d, part)})
            if (!told.empty()) given.told.push_back(told);
        given.values.push_back({shortest_digits(stored[i]), std::isfinite(stored[i])});
    }
    return given;
}

int run_money(const common_options &common, const format_options &options) {
    return run_format(common, options,
                      {
                          {"!(+-^=", ""},
                          check_format, print_amounts, parse_amounts
    });
}

} // namespace kovacli
