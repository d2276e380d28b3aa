#include "kova/kova_convert_newline.h"

namespace kovacli {

line_controls find_controls(const data_place &place, const code_set &set) {
    line_controls found;
    route from_utf8;
    if (!open_route(place, utf8_code_set(), set, from_utf8)) return {"\n", "\r", "", false};
    byte_buffer made;
    const auto bytes = [&](std::string_view text) -> std::string {
        route_state st;
        const void *start = text.data();
        const auto *const first = static_cast<const unsigned char *>(start);
        run(from_utf8, st, first, text.size(), false, made); // with what goes before a text
        const run_result got = run(from_utf8, st, first, text.size(), false, made);
        const bool exact = got.error == KO_OK && got.taken == text.size() && !got.substituted;
        return exact ? std::string(made.text()) : "";
    };
    found.lf = bytes("\n");
    found.cr = bytes("\r");
    found.nel = bytes("\xC2\x85");
    // One of several bytes that are no unit could begin inside a character; UTF-8 excludes that.
    if (found.nel.size() > found.lf.size() && found.nel != "\xC2\x85") found.nel.clear();
    found.host = bytes("A") == "\xC1";
    return found;
}

line_ends plan_line_ends(const std::string &mode, const line_controls &source,
                         const line_controls &target, const std::string &target_name) {
    line_ends ends;
    ends.target = target;
    if (mode == "keep" || (mode.empty() && source.host == target.host)) return ends;
    const bool nel = mode == "nel" || (mode.empty() && target.host);
    ends.wanted = nel ? target.nel : mode == "crlf" ? target.cr + target.lf : target.lf;
    ends.joins_crlf = !mode.empty();
    if (ends.wanted.empty() && !mode.empty())
        throw failure(bad_usage,
                      "--newline " + mode + ": " + target_name + " has no such character");
    return ends;
}

static bool begins(std::string_view text, const std::string &control) {
    return !control.empty() && text.substr(0, control.size()) == control;
}

// The place of the next control character, or the end.
static size_t next_control(const line_ends &ends, std::string_view text, size_t at) {
    const size_t unit = ends.target.lf.size();
    for (; at < text.size(); at += unit) {
        const std::string_view rest = text.substr(at);
        if (begins(rest, ends.target.lf) || begins(rest, ends.target.nel) ||
            (ends.joins_crlf && begins(rest, ends.target.cr)))
            break;
    }
    return std::min(at, text.size());
}

void write_lines(line_ends &ends, output &out, std::string_view text) {
    if (!ends.changes()) return write(out, text);
    for (size_t at = 0; at < text.size();) {
        const std::string_view rest = text.substr(at);
        const bool lf = begins(rest, ends.target.lf), nel = begins(rest, ends.target.nel);
        if (ends.holds_cr && !lf) write(out, ends.target.cr);
        ends.holds_cr = false;
        if (lf || nel) {
            write(out, ends.wanted);
            at += lf ? ends.target.lf.size() : ends.target.nel.size();
        } else if (ends.joins_crlf && begins(rest, ends.target.cr)) {
            ends.holds_cr = true;
            at += ends.target.cr.size();
        } else {
            const size_t end = next_control(ends, text, at);
            write(out, text.substr(at, end - at));
            at = end;
        }
    }
}

void finish_lines(line_ends &ends, output &out) {
    if (ends.holds_cr) write(out, ends.target.cr);
    ends.holds_cr = false;
}

} // namespace kovacli
