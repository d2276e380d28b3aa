// kova date: a date and time in the words of a locale.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "common/tool_text.h"
#include "kova/kova_batch.h"
#include "kova/kova_cli.h"
#include "kova/kova_day_words.h"
#include "kova/kova_format.h"
#include "kova/kova_io.h"
#include "kova/kova_own.h"

namespace kovacli {

// What the library's error numbers say of a format and a date.
static std::string reason(int error) {
    switch (error) {
    case KO_EDIRECTIVE:
        return "no such directive, or a format of the locale that contains itself";
    case KO_EFORMAT:
        return "the format ends inside a directive";
    case KO_EPRECISION:
        return "a \".\" without digits";
    case KO_ERANGE:
        return "no era contains the date";
    case KO_EYEARRANGE:
        return "the year is out of range, or the date is outside the locale's calendar";
    case KO_EYDAY:
        return "the day of the year is beyond 366";
    case KO_E2BIG:
        return "the result is too long";
    default:
        return "the date is out of range (error " + std::to_string(error) + ")";
    }
}

namespace {
struct date_job {
    locale_handle handle;
    codec code;
    time_names names;
    format_text format;
    bool offset_told = false; // that its seconds are left out
};
} // namespace

static bool write_date(const date_job &job, const wide_text &format, const moment &when,
                       wide_text &result) {
    const codec &code = job.code;
    const wide_text expanded = with_own_directives(code, job.names, format, when);
    const auto write_into = [&](ko_wchar_t *out, int room) {
        const int size = ko_wcsftime(code.loc, out, room, expanded.data(), &when.tm);
        int &error = *ko_ext_errno(code.loc);
        if (error == KO_EYEAR) error = KO_E2BIG; // the year alone names its own lack of room
        return error ? -1 : size;
    };
    return written_text(code.loc, write_into, result);
}

static std::string localized(const date_job &job, const moment &when) {
    wide_text result;
    if (!write_date(job, job.format.wide, when, result)) {
        const int error = *ko_ext_errno(job.code.loc);
        const auto works = [&](const ko_wchar_t *front) {
            const wide_text ended(front, front + ko_wcslen(front) + 1);
            return write_date(job, ended, when, result);
        };
        const size_t place = longest_working(job.format, works);
        const bool of_format =
            error == KO_EDIRECTIVE || error == KO_EFORMAT || error == KO_EPRECISION;
        fail_in_format(job.code, job.format, place, of_format ? bad_usage : bad_text,
                       reason(error));
    }
    if (result.empty() && job.format.wide.size() > 1)
        kovatool::tell("kova", job.handle.name + " writes nothing for this format");
    return outer_text(job.code, result);
}

// ISO 8601, or RFC 3339 with a blank and a point, to the unit that is named.
static std::string plain_text(const moment &when, const std::string &to, bool rfc) {
    std::string text = day_text(day_of(when.tm));
    if (to == "date") return text;
    const std::string clock = moment_text(when).substr(text.size() + 1);
    text += rfc ? ' ' : 'T';
    text += clock.substr(0, to == "hours" ? 2 : to == "minutes" ? 5 : 8);
    char part[32];
    std::snprintf(part, sizeof part, "%c%06d000", rfc ? '.' : ',', int(when.tm.tm_usec));
    if (to == "ns") text += part;
    const int size = (when.offset < 0 ? -when.offset : when.offset) / 60;
    std::snprintf(part, sizeof part, "%c%02d:%02d", when.offset < 0 ? '-' : '+', size / 60,
                  size % 60);
    return text + part;
}

// Offsets are written in hours and minutes; those before standard time had seconds.
static void tell_offset(date_job &job, const moment &when, bool plain) {
    const int seconds = std::abs(when.offset % 60);
    if (!seconds || job.offset_told) return;
    job.offset_told = true;
    kovatool::tell("kova", "the zone's offset at " + moment_text(when) + " has " +
                               std::to_string(seconds) + " seconds, which are not written" +
                               (plain ? ": the clocks are those of the offset without them" : ""));
}

static std::string moment_line(date_job &job, const date_options &options, const moment &when) {
    const bool plain = !options.iso.empty() || !options.rfc.empty();
    const std::string &to = options.iso.empty() ? options.rfc : options.iso;
    const auto shows_offset = [](const format_directive &d) { return d.conversion == 'z'; };
    const std::vector<format_directive> &all = job.format.directives;
    if (plain ? to != "date" : std::any_of(all.begin(), all.end(), shows_offset))
        tell_offset(job, when, plain);
    const moment shown = plain && to != "date" ? in_whole_minutes(when) : when;
    return plain ? plain_text(shown, to, options.iso.empty()) : localized(job, when);
}

static void write_range(date_job &job, const date_options &options, output &out) {
    const moment from = moment_of(options.from, "--from"), to = moment_of(options.to, "--to");
    const time_step step = step_of(options.step, "--step");
    if (from.seconds > to.seconds)
        throw failure(bad_usage, "--from " + options.from + " is after --to " + options.to);
    if (step.months <= 0 && step.days <= 0 && step.seconds <= 0)
        throw failure(bad_usage, "--step " + options.step + " does not lead on");
    moment at = from;
    for (int64_t i = 1; at.seconds <= to.seconds; ++i) {
        const std::string line = moment_line(job, options, at);
        write(out, options.batch.json
                       ? json_line(size_t(i), moment_text(at), {{{line}}, {}}) + "\n"
                       : for_terminal(job.code, line) + (options.batch.nulls ? '\0' : '\n'));
        if (at.seconds == to.seconds) break; // the next one may be beyond all years
        at = moved(from, step, i);
    }
}

// What %F means elsewhere.
static void hint_at_dates(const format_text &format) {
    bool fraction = false, second = false;
    for (const format_directive &d : format.directives) {
        fraction |= d.conversion == 'F' && d.end - d.start == 2;
        second |= d.conversion && std::string("STXcr").find(d.conversion) != std::string::npos;
    }
    if (fraction && !second)
        kovatool::tell("kova", "%F is the fraction of the second; %Y-%m-%d writes a date such as "
                               "2026-11-21");
}

static int write_times(date_job &job, const date_options &options) {
    std::vector<std::string> times = options.times;
    const bool lines = !options.batch.files.empty() && times.empty();
    if (times.empty()) times.push_back(options.at);
    const std::string what = options.times.empty() && !lines ? "--at" : "WHEN";
    return run_batch(job.code, options.batch, {times, 1, lines}, [&](const auto &some, size_t) {
        return answer{{{moment_line(job, options, moment_of(some[0], what))}}, {}};
    });
}

int run_date(const common_options &common, const date_options &options) {
    choose_zone(options.zone);
    date_job job;
    common_options asked = common;
    if (options.batch.json) asked.form = text_form::utf8;
    const data_place data = open_with_codec(asked, options.locale, job.handle, job.code);
    if (!job.code.mapped) add_mapping(job.handle, data, job.code);
    job.names = names_of(job.code, job.handle.object);
    choose_words(job.code, job.names);
    job.format = decode_format(job.code, options.format, time_grammar());
    hint_at_dates(job.format);
    if (options.from.empty()) return write_times(job, options);
    output out;
    write_range(job, options, out);
    finish(out);
    return done;
}

} // namespace kovacli
