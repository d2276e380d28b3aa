// Formats as arguments: their directives, their values and where they fail.
#include "kova/kova_format.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "kova/kova_char.h"
#include "kova/kova_decimal.h"

namespace kovacli {

// A character as ASCII, "?" for others.
static char ascii(const codec &code, ko_wchar_t wide) {
    uint32_t point = code_point(code, wide);
    if (point == no_code_point) point = wide; // no mapping: what looks like ASCII is ASCII
    return point < 0x80 ? char(point) : '?';
}

static bool is_one_of(const std::string &set, char c) { return set.find(c) != set.npos; }

// The directive whose "%" is at a place.
static format_directive scan_directive(const std::string &text, size_t start,
                                       const format_grammar &grammar) {
    size_t at = start + 1;
    while (at < text.size() && is_one_of(grammar.flags, text[at]))
        at += text[at] == '=' ? 2u : 1u;
    const std::string counts = "0123456789#.*";
    while (at < text.size() && is_one_of(counts, text[at]))
        ++at;
    while (at < text.size() && is_one_of(grammar.sizes, text[at]))
        ++at;
    format_directive d;
    d.start = start;
    if (at < text.size()) d.conversion = text[at];
    at = std::min(at, text.size());
    d.modifiers = text.substr(start + 1, at - start - 1);
    d.end = at + (d.conversion ? 1 : 0);
    const bool digit = d.end < text.size() && text[d.end] >= '0' && text[d.end] <= '9';
    if (digit && is_one_of(grammar.numbered, d.conversion)) ++d.end;
    return d;
}

format_text split_format(const codec &code, std::vector<ko_wchar_t> wide,
                         const format_grammar &grammar) {
    format_text format;
    format.wide = std::move(wide);
    std::string plain;
    for (const ko_wchar_t c : format.wide)
        plain += ascii(code, c);
    for (size_t at = 0; (at = plain.find('%', at)) != plain.npos;) {
        if (plain.compare(at, 2, "%%") == 0) {
            at += 2;
        } else {
            format.directives.push_back(scan_directive(plain, at, grammar));
            at = format.directives.back().end;
        }
    }
    format.wide.push_back(0);
    return format;
}

format_text decode_format(const codec &code, const std::string &text,
                          const format_grammar &grammar) {
    return split_format(code, decode_argument(code, text, "FORMAT"), grammar);
}

format_grammar time_grammar() { return {"-+ #'", "EOi", "F"}; }

size_t longest_working(const format_text &format,
                       const std::function<bool(const ko_wchar_t *front)> &works) {
    const auto last_of = [&](size_t good, size_t most, const auto &length) {
        while (good < most) { // what is longer fails, too
            const size_t tried = (good + most + 1) / 2;
            std::vector<ko_wchar_t> front = format.wide;
            front.resize(length(tried) + 1);
            front.back() = 0;
            if (works(front.data()))
                good = tried;
            else
                most = tried - 1;
        }
        return good;
    };
    const std::vector<format_directive> &all = format.directives;
    const auto end_of = [&](size_t count) { return count ? all[count - 1].end : 0; };
    const size_t directives = last_of(0, all.size(), end_of);
    const size_t next = directives < all.size() ? all[directives].start : format.wide.size() - 1;
    return last_of(end_of(directives), next, [](size_t length) { return length; });
}

void fail_in_format(const codec &code, const format_text &format, size_t place, int status,
                    const std::string &why) {
    const auto part = [&](size_t from, size_t to) {
        std::string text;
        encode(code, &format.wide[from], to - from, text);
        return text;
    };
    const size_t size = format.wide.size() - 1;
    size_t end = std::min(place + 1, size);
    std::string text;
    for (size_t i = 0; i < format.directives.size(); ++i) {
        const format_directive &d = format.directives[i];
        if (place < d.start || place >= d.end) continue;
        text = "directive " + std::to_string(i + 1) + ", ";
        place = d.start;
        end = d.end;
    }
    text += part(place, end) + ", at character " + std::to_string(place + 1) + " of the format: ";
    text += why;
    std::string shown = "  " + part(0, size) + "\n  ";
    shown += std::string(columns_of_text(code, format.wide.data(), place), ' ') + '^';
    const size_t marked = columns_of_text(code, &format.wide[place], end - place);
    if (marked > 1) shown += std::string(marked - 1, '~');
    throw failure(status, text, shown);
}

// ---- values ----

void check_counts(const format_text &format, const std::vector<std::string> &values) {
    const size_t takes = format.directives.size();
    if (takes > directives_max)
        throw failure(bad_usage,
                      "FORMAT has more than " + std::to_string(directives_max) + " directives");
    if (!takes && !values.empty())
        throw failure(bad_usage, "FORMAT has no directive, so no VALUE may follow");
    if (takes && (values.empty() || values.size() % takes))
        throw failure(bad_usage, "FORMAT takes a VALUE for each directive, " +
                                     std::to_string(takes) + " at a time; there are " +
                                     std::to_string(values.size()));
}

template <class Number> static std::errc number_of(const std::string &text, Number &value) {
    const char *first = text.data(), *const last = first + text.size();
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') ++first;
    const auto [end, error] = std::from_chars(first, last, value);
    if (error == std::errc() && end != last) return std::errc::invalid_argument;
    return error;
}

[[noreturn]] static void bad_value(const std::string &text, const std::string &what,
                                   const std::string &why) {
    throw failure(bad_usage, what + (text.empty() ? ", an empty one, " : ", " + text + ", ") + why);
}

double decimal_value(const std::string &text, const std::string &what) {
    double value = 0;
    const std::errc error = number_of(text, value);
    if (error == std::errc::result_out_of_range) bad_value(text, what, "is out of range");
    if (error != std::errc())
        bad_value(text, what, "is not a number, which has digits, \".\" and an exponent");
    return value;
}

std::string shortest_digits(double value) {
    if (value == 0) return "0";
    char text[400];
    const double size = std::fabs(value);
    const bool plain = size >= 1e-7 && size < 1e16; // else with an exponent
    const auto result =
        plain ? std::to_chars(text, text + sizeof text, value, std::chars_format::fixed)
              : std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

// ---- results ----

bool written_text(ko_lc_t loc, const std::function<int(ko_wchar_t *out, int room)> &call,
                  std::vector<ko_wchar_t> &result) {
    for (size_t room = 256;; room *= 4) {
        result.resize(room + 1);
        *ko_ext_errno(loc) = 0;
        const int size = call(result.data(), int(room));
        if (size >= 0) {
            result.resize(size_t(size));
            return true;
        }
        if (*ko_ext_errno(loc) != KO_E2BIG || room > 10000000) return false;
    }
}

int run_format(const common_options &common, const format_options &options,
               const format_command &command) {
    format_job job;
    job.options = &options;
    common_options asked = common;
    if (options.batch.json) asked.form = text_form::utf8;
    const data_place data = open_with_codec(asked, options.locale, job.handle, job.code);
    if (!job.code.mapped) add_mapping(job.handle, data, job.code);
    job.format = decode_format(job.code, options.format, command.grammar);
    const size_t takes = job.format.directives.size();
    if (takes > directives_max) check_counts(job.format, {});
    job.digits = digits_named(job.code, options.digits, job.handle.object);
    if (options.parse) {
        std::vector<std::string> texts = options.values;
        if (!options.text.empty()) texts.insert(texts.begin(), options.text);
        return run_batch(job.code, options.batch, {texts, 1, texts.empty()},
                         [&](const auto &some, size_t) { return command.parse(job, some[0]); });
    }
    decimal number;
    if (!takes && options.values.empty() && read_decimal(options.format, number))
        throw failure(bad_usage, "FORMAT, " + options.format +
                                     ", has no directive, such as %n or %f; values come after it");
    command.check(job);
    const bool lines = options.values.empty() && (takes || !options.batch.files.empty());
    if (!lines || !takes) check_counts(job.format, options.values);
    return run_batch(job.code, options.batch, {options.values, takes, lines && takes},
                     [&](const auto &some, size_t first) {
                         return answer{{{command.print(job, some, first)}}, {}};
                     });
}

} // namespace kovacli
