// kova money: amounts written, and read, in a locale's notation.
#include <array>

#include "kova/kova_format.h"

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

static void print_amounts(const codec &code, const format_text &format,
                          const std::vector<std::string> &texts, output &out) {
    amounts values{};
    std::vector<ko_wchar_t> result;
    const auto works = [&](const ko_wchar_t *front) {
        return write_amounts(code, front, values, result);
    };
    if (!works(format.wide.data())) bad_format(code, format, works);
    check_counts(format, texts);
    for (size_t at = 0; at < texts.size() || !at; at += format.directives.size()) {
        for (size_t i = 0; i < format.directives.size(); ++i)
            values[i] = decimal_value(texts[at + i], "VALUE " + std::to_string(at + i + 1));
        if (!works(format.wide.data())) bad_format(code, format, works);
        std::string line;
        encode(code, result.data(), result.size(), line);
        write(out, for_terminal(code, line) + "\n");
        if (format.directives.empty()) return;
    }
}

static void print_values(const codec &code, const format_text &format, const std::string &argument,
                         output &out) {
    std::vector<ko_wchar_t> text = decode_argument(code, argument, "TEXT");
    text.push_back(0);
    amounts values{};
    const auto works = [&](const ko_wchar_t *front) {
        read_amounts(code, text.data(), front, values);
        return *ko_ext_errno(code.loc) == 0;
    };
    if (!works(format.wide.data())) bad_format(code, format, works);
    for (size_t i = 0; i < format.directives.size(); ++i)
        write(out, shortest_digits(values[i]) + "\n");
}

int run_money(const common_options &common, const format_options &options) {
    return run_format(common, options,
                      {
                          {"!(+-^=", ""},
                          print_amounts, print_values
    });
}

} // namespace kovacli
