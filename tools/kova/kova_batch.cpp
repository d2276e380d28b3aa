// Values on the command line, or one a line from files.
#include "kova/kova_batch.h"

#include <charconv>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "common/tool_text.h"
#include "kova/kova_io.h"
#include "kova/kova_sort_lines.h"

namespace kovacli {

using json = nlohmann::ordered_json;

namespace {

struct field_range {
    size_t first = 1, last = SIZE_MAX;
};

struct batch_job {
    const codec &code;
    const batch_options &options;
    const answering &give;
    size_t each;
    line_rules rules;
    std::vector<field_range> fields;
    output out;
    bool several = false; // files
    int status = done;
};

// Where the values of an answer stand.
struct batch_place {
    std::string file;
    uint64_t number = 0;
    bool line = false; // else a value of the command line
};

// Part of a line: a field, or a word.
struct part {
    size_t at = 0, len = 0;
};

} // namespace

std::string value_name(size_t number) {
    return number ? "VALUE " + std::to_string(number) : "VALUE";
}

// ---- fields ----

static size_t field_number(const std::string &all, std::string_view text, size_t absent) {
    size_t number = 0;
    if (text.empty()) return absent;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 1)
        throw failure(bad_usage, "--field " + all + ": fields are such as 2, 1,3 or 2-4");
    return number;
}

static std::vector<field_range> fields_of(const std::string &text) {
    std::vector<field_range> ranges;
    if (text.empty()) return ranges;
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find(',', at), text.size());
        const std::string_view one = std::string_view(text).substr(at, end - at);
        const size_t dash = one.find('-');
        field_range range;
        range.first = field_number(text, one.substr(0, dash), dash == one.npos ? 0 : 1);
        range.last = range.first;
        if (dash != one.npos) range.last = field_number(text, one.substr(dash + 1), SIZE_MAX);
        if (!range.first || range.last < range.first) field_number(text, "-", 0);
        ranges.push_back(range);
        at = end + 1;
    }
    return ranges;
}

// The fields of a line, or its words, which blanks separate.
static std::vector<part> parts_of(std::string_view line, const std::string &separator) {
    std::vector<part> parts;
    static constexpr char blanks[] = " \t";
    if (separator.empty()) {
        for (size_t at = 0; (at = line.find_first_not_of(blanks, at)) != line.npos;) {
            const size_t end = std::min(line.find_first_of(blanks, at), line.size());
            parts.push_back({at, end - at});
            at = end;
        }
        return parts;
    }
    for (size_t at = 0;;) {
        const size_t end = std::min(line.find(separator, at), line.size());
        parts.push_back({at, end - at});
        if (end == line.size()) return parts;
        at = end + separator.size();
    }
}

static bool is_chosen(const batch_job &job, size_t number) {
    for (const field_range &range : job.fields)
        if (number >= range.first && number <= range.last) return true;
    return false;
}

// ---- answers ----

static json json_values(const answer &given) {
    json all = json::array();
    for (const answer_value &value : given.values)
        all.push_back(value.number ? json::parse(value.text, nullptr, false) : json(value.text));
    return all.size() == 1 ? all[0] : all;
}

static std::string joined(const answer &given, const char *between) {
    std::string text;
    for (size_t i = 0; i < given.values.size(); ++i)
        text += (i ? between : "") + given.values[i].text;
    return text;
}

static std::string name_of(const batch_place &place) {
    if (!place.line) return value_name(place.number);
    return place.file + ":" + std::to_string(place.number);
}

static json json_place(const batch_job &job, const batch_place &place, std::string_view input) {
    json object = json::object();
    if (place.line && job.several) object["file"] = place.file;
    object[place.line ? "line" : "value"] = place.number;
    object["input"] = input;
    return object;
}

static void write_json(batch_job &job, const json &object) {
    write(job.out, object.dump(-1, ' ', false, json::error_handler_t::replace) + "\n");
}

std::string json_line(size_t number, std::string_view input, const answer &given) {
    const json object = {
        {"value",  number            },
        {"input",  input             },
        {"result", json_values(given)}
    };
    return object.dump(-1, ' ', false, json::error_handler_t::replace);
}

static void tell_all(const batch_place &place, const answer &given) {
    for (const std::string &line : given.told)
        kovatool::tell("kova", (place.line ? name_of(place) + ": " : "") + line);
}

static void tell_failure(const batch_place &place, const failure &e) {
    kovatool::tell("kova", name_of(place) + ": " + e.what());
    if (!e.excerpt.empty())
        std::fprintf(stderr, "%s\n", kovatool::printable(e.excerpt, "\n").c_str());
}

// What is wrong with one value is no reason to give up the others.
static bool concerns_value(const failure &e) {
    return e.status == bad_text || e.status == bad_usage;
}

static void write_json_answer(batch_job &job, const batch_place &place, std::string_view input,
                              const std::function<answer()> &give) {
    json object = json_place(job, place, input);
    try {
        const answer given = give();
        object["result"] = json_values(given);
        if (!given.told.empty()) object["told"] = given.told;
    } catch (const failure &e) {
        if (!concerns_value(e)) throw;
        object["error"] = e.what();
        job.status = bad_text;
    }
    write_json(job, object);
    if (job.options.stop && job.status != done) throw failure(bad_text, "");
}

// ---- lines ----

// The answer for a whole line; its words are the values if there are several at a time.
static answer answer_line(const batch_job &job, std::string_view line) {
    if (job.each == 1) return job.give({std::string(line)}, 0);
    std::vector<std::string> values;
    for (const part &p : parts_of(line, job.options.separator))
        values.emplace_back(line.substr(p.at, p.len));
    if (values.size() != job.each)
        throw failure(bad_text, "FORMAT takes " + std::to_string(job.each) +
                                    " values; the line has " + std::to_string(values.size()));
    return job.give(values, 0);
}

// The line with answers in place of its chosen fields.
static answer answer_fields(const batch_job &job, std::string_view line) {
    answer all;
    std::string text;
    size_t done_to = 0, number = 0, chosen = 0;
    for (const part &p : parts_of(line, job.options.separator)) {
        if (!is_chosen(job, ++number)) continue;
        ++chosen;
        const answer one = job.give({std::string(line.substr(p.at, p.len))}, 0);
        all.told.insert(all.told.end(), one.told.begin(), one.told.end());
        text += line.substr(done_to, p.at - done_to);
        text += joined(one, " ");
        done_to = p.at + p.len;
    }
    if (!chosen) throw failure(bad_text, "the line has no field " + job.options.fields);
    text += line.substr(done_to);
    all.values.push_back({text});
    return all;
}

static void write_line(batch_job &job, const batch_place &place, std::string_view line) {
    std::string_view end = job.rules.end;
    const bool carriage = end == "\n" && line.ends_with('\r');
    if (carriage) line.remove_suffix(1);
    const auto give = [&] {
        return job.fields.empty() ? answer_line(job, line) : answer_fields(job, line);
    };
    if (job.options.json) return write_json_answer(job, place, line, give);
    std::string text;
    try {
        const answer given = give();
        tell_all(place, given);
        text = for_terminal(job.code, joined(given, "\t"));
    } catch (const failure &e) {
        if (!concerns_value(e)) throw;
        tell_failure(place, e);
        job.status = bad_text;
        if (job.options.stop) throw failure(bad_text, "");
        if (!job.fields.empty()) text = line; // nothing of it is lost
    }
    write(job.out, text + (carriage ? "\r" : ""));
    write(job.out, end);
}

static void write_lines(batch_job &job) {
    const std::vector<std::string> files = inputs_of(job.options.files);
    job.several = files.size() > 1;
    for (const std::string &path : files) {
        line_reader reader;
        open_lines(job.rules, path, reader);
        for (sort_line line; next_line(job.rules, reader, line);) {
            const batch_place place{reader.in.name, line.number, true};
            if (line.number > job.options.header)
                write_line(job, place, line.text);
            else if (!job.options.json)
                write(job.out, line.whole);
        }
    }
}

// ---- the command line ----

static void write_values(batch_job &job, const std::vector<std::string> &values) {
    const bool single = values.size() <= job.each;
    for (size_t at = 0; at < values.size() || !at; at += job.each) {
        const size_t end = std::min(at + job.each, values.size());
        const std::vector<std::string> some(values.begin() + ptrdiff_t(at),
                                            values.begin() + ptrdiff_t(end));
        const auto give = [&] { return job.give(some, at + 1); };
        const batch_place place{"", at / std::max<size_t>(job.each, 1) + 1};
        if (job.options.json) {
            std::string input;
            for (const std::string &one : some)
                input += (input.empty() ? "" : " ") + one;
            write_json_answer(job, place, input, give);
        } else {
            const answer given = give();
            tell_all(place, given);
            const std::string text = joined(given, single ? "\n" : "\t");
            write(job.out, for_terminal(job.code, text) + (job.options.nulls ? '\0' : '\n'));
        }
        if (!job.each) return;
    }
}

int run_batch(const codec &code, const batch_options &options, const batch_source &source,
              const answering &give) {
    batch_job job{code, options, give, source.each, line_rules_of(code, options.nulls, false)};
    job.fields = fields_of(options.fields);
    if (!job.fields.empty() && source.each != 1)
        throw failure(bad_usage, "--field: FORMAT takes one value for each field");
    if (source.lines && code.min_len > 1 && !code.utf8)
        throw failure(bad_usage, "lines are read in UTF-8 or in a code set that contains ASCII");
    if (!source.lines && (!options.files.empty() || !job.fields.empty()))
        throw failure(bad_usage, "values are given, and --file or --field, which need lines");
    try {
        if (source.lines)
            write_lines(job);
        else
            write_values(job, source.values);
    } catch (const failure &e) {
        if (e.what()[0] == '\0') finish(job.out); // what came before a line that ends the command
        throw;
    }
    finish(job.out);
    return job.status;
}

} // namespace kovacli
