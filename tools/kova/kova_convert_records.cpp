// kova convert: records of host files as lines of the text, and lines as records.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "kova/kova_convert_job.h"
#include "kova/kova_frames.h"

namespace kovacli {

// ---- lines between ----

static std::FILE *open_between() {
    std::FILE *const stream = std::tmpfile();
    if (!stream) throw failure(bad_file, std::string("no temporary file: ") + std::strerror(errno));
    return stream;
}

static const std::string &end_of(const line_controls &set) { return set.host ? set.nel : set.lf; }

// Is there an end of a line in a record, which would make two of it?
static bool holds_end(const line_controls &set, std::string_view record) {
    const size_t unit = end_of(set).size();
    for (const std::string *end : {&set.lf, &set.nel})
        for (size_t at = 0; !end->empty() && (at = record.find(*end, at)) != record.npos; ++at)
            if (at % unit == 0) return true;
    return false;
}

// What separates the lines of a result whose lines are records.
static std::string line_end(const data_place &place, const convert_job &job) {
    const line_controls &target = job.records.target;
    if (!job.ends.wanted.empty()) return job.ends.wanted;
    if (job.options->newline != "keep") return end_of(target);
    // The end of a line of the source as the target has it, which no option changes.
    const std::string &kept = find_controls(place, job.way.from).host ? target.nel : target.lf;
    if (kept.empty())
        throw failure(bad_usage, "--to-records: " + job.way.to.name +
                                     " lacks the end of a line that --newline keep leaves");
    return kept;
}

static line_controls controls_of(const data_place &place, const code_set &set) {
    const line_controls found = find_controls(place, set);
    if (end_of(found).empty())
        throw failure(bad_usage, "--records: " + set.name + " has nothing that ends a line");
    return found;
}

void learn_records(const data_place &place, convert_job &job) {
    const convert_options &options = *job.options;
    record_job &records = job.records;
    if (!options.records.empty()) {
        records.from = parse_frames(options.records);
        records.source = controls_of(place, job.way.from);
        constexpr unsigned char shift_out = 0x0E;
        route_state st;
        run(job.way, st, &shift_out, 1, false, job.scratch);
        records.shifts = source_state(st) != 0;
    }
    if (options.to_records.empty()) return;
    records.to = parse_frames(options.to_records);
    records.target = controls_of(place, job.way.to);
    records.to->newline = line_end(place, job);
    route_state st;
    route from_utf8;
    if (open_route(place, utf8_code_set(), job.way.to, from_utf8)) {
        run(from_utf8, st, bytes_of(" "), 1, false, job.scratch);
        records.blank = job.scratch.text();
    }
}

// ---- reading ----

void read_records(const record_job &records, input &in) {
    output lines;
    frame_reader reader{&in, *records.from};
    reader.format.newline = end_of(records.source);
    lines.stream = open_between();
    lines.name = "a temporary file";
    for (std::string record; read_frame(reader, record);) {
        if (records.from->kind != frame_kind::lines && holds_end(records.source, record))
            throw failure(bad_text, in.name + ": record " + std::to_string(reader.count) +
                                        ", byte offset " + std::to_string(reader.at) +
                                        ": it holds the end of a line, so that it is no text; "
                                        "kova records reads it by a layout");
        const size_t shift = record.find_last_of("\x0E\x0F");
        if (records.shifts && shift != record.npos && record[shift] == 0x0E) record += '\x0F';
        write(lines, record + reader.format.newline);
    }
    finish(lines);
    std::rewind(lines.stream);
    if (in.owned) std::fclose(in.stream);
    in.stream = lines.stream;
    in.owned = true;
    in.at_end = false;
    in.at = in.fill = 0;
    in.offset = 0;
    in.size = regular_size(in.stream);
}

// ---- writing ----

void open_lines(output &lines) {
    lines.stream = open_between();
    lines.name = "a temporary file";
}

static void pad(const record_job &records, std::string &record) {
    const size_t length = records.to->kind == frame_kind::fixed ? records.to->length : 0;
    while (!records.blank.empty() && record.size() + records.blank.size() <= length)
        record += records.blank;
}

void write_records(const record_job &records, output &lines, output &out) {
    input in;
    finish(lines);
    std::rewind(lines.stream);
    in.stream = lines.stream;
    in.owned = true;
    in.name = "the result";
    frame_reader reader{
        &in, {frame_kind::lines, 0, records.to->newline}
    };
    frame_writer writer{&out, *records.to, ""};
    for (std::string record; read_frame(reader, record);) {
        pad(records, record);
        try {
            write_frame(writer, record);
        } catch (const failure &e) {
            throw failure(e.status,
                          "line " + std::to_string(reader.count) + " of the result: " + e.what());
        }
    }
    finish_frames(writer);
}

} // namespace kovacli
