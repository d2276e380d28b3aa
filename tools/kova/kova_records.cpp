// kova records: host records as JSON lines or CSV, and back.
#include "kova/kova_records.h"

#include <algorithm>
#include <cstdio>

#include "common/tool_text.h"
#include "kova/kova_cli.h"
#include "kova/kova_convert_newline.h"
#include "kova/kova_frames.h"
#include "kova/kova_layout.h"
#include "kova/kova_progress.h"
#include "kova/kova_text.h"

namespace kovacli {

namespace {

// Values beside the fields: bytes between them that are no blanks, by their offset, and bytes after
// them.
constexpr char gap_name[] = "_bytes_", rest_name[] = "_rest";

struct records_job {
    const records_options *options = nullptr;
    layout fields;
    std::string place; // of the record at hand, for messages
    unsigned long long bad = 0;
    std::string first_bad;
    kovacli::progress progress;
    uint64_t bytes = 0; // of the files before the one at hand
};

[[noreturn]] void refuse(const records_job &job, const std::string &why) {
    throw failure(bad_text, job.place + ": " + why);
}

// A bad field stops the command, or its bytes are kept.
row_value keep_bad(records_job &job, const layout_field &field, std::string_view bytes,
                   const std::string &why) {
    const std::string text =
        job.place + ": field " + field.name + ": " + why + " (" + hex(bytes, " ") + ")";
    if (!job.options->keep_bad) throw failure(bad_text, text + "; --keep-bad hex goes on");
    if (job.bad++ == 0) job.first_bad = text;
    return {hex(bytes, ""), false, true};
}

// ---- from records ----

row_value decode_value(records_job &job, const layout_field &field, std::string_view bytes) {
    const field_value value = decode_field(field, bytes);
    if (!value.why.empty()) return keep_bad(job, field, bytes, value.why);
    // Other bytes of the same value, such as another sign, would not come back.
    if (job.options->keep_bad && encode_field(field, value.text).text != bytes)
        return keep_bad(job, field, bytes, "\"" + value.text + "\" would come back as other bytes");
    return {value.text, is_number(field), false};
}

// Blanks for so many bytes; the last one may be cut.
std::string blanks(const layout &fields, size_t bytes) {
    std::string all;
    while (all.size() < bytes)
        all += fields.blank;
    all.resize(bytes);
    return all;
}

void add_bytes(record_row &row, const std::string &name, std::string_view bytes) {
    if (!bytes.empty()) row[name].push_back({hex(bytes, ""), false, true});
}

void decode_record(records_job &job, const std::string &record, record_row &row) {
    row.clear();
    size_t at = 0;
    for (const layout_field &field : job.fields.fields) {
        if (record.size() <= field.offset) break;
        const std::string_view gap = std::string_view(record).substr(at, field.offset - at);
        if (gap != blanks(job.fields, gap.size()))
            add_bytes(row, gap_name + std::to_string(at), gap);
        for (unsigned i = 0; i < field.times; ++i) {
            at = field.offset + i * field.length;
            if (record.size() <= at) break;
            const std::string_view bytes = std::string_view(record).substr(at, field.length);
            if (bytes.size() < field.length)
                row[field.name].push_back(keep_bad(job, field, bytes, "the record ends inside it"));
            else
                row[field.name].push_back(decode_value(job, field, bytes));
            at += bytes.size();
        }
    }
    if (at < record.size()) add_bytes(row, rest_name, std::string_view(record).substr(at));
}

std::string json_value(const row_value &value) {
    if (value.bytes) return "{\"hex\":\"" + value.text + "\"}";
    return value.number ? value.text : json_text(value.text);
}

std::string json_row(const layout &fields, const record_row &row) {
    std::string text = "{";
    const auto add = [&](const std::string &name, bool list) {
        const auto found = row.find(name);
        if (found == row.end()) return;
        text += (text.size() > 1 ? "," : "") + json_text(name) + ":" + (list ? "[" : "");
        for (size_t i = 0; i < found->second.size(); ++i)
            text += (i ? "," : "") + json_value(found->second[i]);
        if (list) text += "]";
    };
    for (const layout_field &field : fields.fields)
        add(field.name, field.times > 1);
    for (const auto &[name, values] : row)
        if (name[0] == '_') add(name, false);
    return text + "}\n";
}

// The columns of CSV: a field each, or a column for each value of one that repeats.
template <class Use> void each_column(const layout &fields, Use use) {
    for (const layout_field &field : fields.fields)
        for (unsigned i = 0; i < field.times; ++i)
            use(field, i);
}

std::string csv_head(const layout &fields) {
    std::string text;
    each_column(fields, [&](const layout_field &field, unsigned i) {
        text +=
            csv_cell(field.times > 1 ? field.name + "_" + std::to_string(i + 1) : field.name) + ",";
    });
    return text + rest_name + "\r\n";
}

std::string csv_row(const records_job &job, const record_row &row) {
    std::string text;
    const auto cell = [](const row_value &value) {
        if (value.bytes) return csv_cell("hex:" + value.text);
        const bool marked = value.text.starts_with("hex:") || value.text.starts_with("text:");
        return csv_cell(marked ? "text:" + value.text : value.text);
    };
    for (const auto &[name, values] : row)
        if (name.starts_with(gap_name))
            refuse(job, "there are bytes between the fields that are no blanks, which CSV has no "
                        "column for; add a field to the layout");
    each_column(job.fields, [&](const layout_field &field, unsigned i) {
        const auto found = row.find(field.name);
        if (found != row.end() && i < found->second.size()) text += cell(found->second[i]);
        text += ",";
    });
    const auto rest = row.find(rest_name);
    return text + (rest == row.end() ? "" : cell(rest->second[0])) + "\r\n";
}

void decode_file(records_job &job, frame_format format, const std::string &path, output &out) {
    input in;
    open(in, path);
    frame_reader reader{&in, std::move(format)};
    if (job.options->parts > 1) choose_part(reader, job.options->part, job.options->parts);
    std::string record;
    record_row row;
    while (read_frame(reader, record)) {
        job.place = in.name + ": record " + std::to_string(reader.count) + ", byte offset " +
                    std::to_string(reader.at);
        decode_record(job, record, row);
        write(out, job.options->csv ? csv_row(job, row) : json_row(job.fields, row));
        if ((reader.count & 1023) == 0) show_progress(job.progress, job.bytes + in.offset);
    }
    job.bytes += in.offset;
}

// ---- to records ----

std::string encode_value(const records_job &job, const layout_field &field,
                         const row_value &value) {
    if (value.bytes) {
        const std::string bytes = unhex(value.text);
        if (bytes.empty() || bytes.size() > field.length)
            refuse(job, "field " + field.name + ": \"" + value.text + "\" is not its bytes");
        return bytes;
    }
    const field_value made = encode_field(field, value.text);
    if (!made.why.empty()) refuse(job, "field " + field.name + ": " + made.why);
    return made.text;
}

// Bytes at a place of the record. Only the last ones may be fewer than a field has.
void place_bytes(const records_job &job, const std::string &name, size_t at, std::string_view bytes,
                 std::string &record) {
    if (record.size() > at) refuse(job, name + " comes after a field that is not whole");
    record += blanks(job.fields, at - record.size());
    record += bytes;
}

// The first name that the layout lacks.
std::string unknown_name(const records_job &job, const record_row &row) {
    for (const auto &entry : row) {
        const auto is = [&entry](const layout_field &field) { return field.name == entry.first; };
        const std::vector<layout_field> &fields = job.fields.fields;
        const bool beside = entry.first == rest_name || entry.first.starts_with(gap_name);
        if (!beside && std::none_of(fields.begin(), fields.end(), is)) return entry.first;
    }
    return row.empty() ? "" : row.begin()->first; // bytes at a place where they cannot be
}

std::string encode_record(const records_job &job, const record_row &row, size_t fixed) {
    std::string record;
    size_t known = 0, at = 0;
    bool cut = false;
    const layout_field *absent = nullptr; // a number, in place of which no blanks can stand
    const auto bytes_named = [&](const std::string &name, size_t place) {
        const auto found = row.find(name);
        if (found == row.end()) return;
        ++known;
        if (absent && place > record.size())
            refuse(job, absent->name + " is absent before " + name);
        const row_value &value = found->second[0];
        const std::string bytes = unhex(value.text);
        if (found->second.size() != 1 || !value.bytes || bytes.empty())
            refuse(job, name + " needs {\"hex\":\"...\"} with some bytes");
        place_bytes(job, name, place, bytes, record);
    };
    bytes_named(gap_name + std::string("0"), 0);
    for (const layout_field &field : job.fields.fields) {
        const auto found = row.find(field.name);
        if (found != row.end()) {
            ++known;
            if (found->second.size() > field.times) refuse(job, field.name + " has more values");
            for (at = field.offset; const row_value &value : found->second) {
                if (cut) refuse(job, field.name + " comes after a field that is not whole");
                const std::string bytes = encode_value(job, field, value);
                if (absent) refuse(job, absent->name + " is absent before " + field.name);
                place_bytes(job, field.name, at, bytes, record);
                cut = bytes.size() < field.length;
                at += field.length;
            }
        }
        const size_t values = found == row.end() ? 0 : found->second.size();
        if (!absent && is_number(field) && values < field.times) absent = &field;
        if (field.end() > 0) bytes_named(gap_name + std::to_string(field.end()), field.end());
    }
    if (row.contains(rest_name)) bytes_named(rest_name, record.size());
    if (known < row.size())
        refuse(job, "the layout has no field \"" + unknown_name(job, row) + "\"");
    if (absent && record.size() < fixed) refuse(job, absent->name + " is absent");
    if (record.size() < fixed) record += blanks(job.fields, fixed - record.size());
    return record;
}

row_value value_of_cell(const std::string &cell) {
    if (cell.starts_with("hex:")) return {cell.substr(4), false, true};
    return {cell.starts_with("text:") ? cell.substr(5) : cell, false, false};
}

void parse_csv(const records_job &job, std::string_view line, record_row &row) {
    const auto cells = parse_csv_row(line);
    size_t columns = 1, at = 0;
    each_column(job.fields, [&](const layout_field &, unsigned) { ++columns; });
    if (!cells || cells->size() != columns)
        refuse(job, "a row of CSV has " + std::to_string(columns) + " cells");
    row.clear();
    for (const layout_field &field : job.fields.fields) {
        size_t last = at + field.times;
        while (last > at && (*cells)[last - 1].empty()) // absent, and becomes blanks
            --last;
        for (size_t i = at; i < last; ++i) {
            if ((*cells)[i].empty() && is_number(field))
                refuse(job, "field " + field.name + ": an empty cell before others");
            row[field.name].push_back(value_of_cell((*cells)[i]));
        }
        at += field.times;
    }
    if (!cells->back().empty()) row[rest_name].push_back(value_of_cell(cells->back()));
}

void encode_file(records_job &job, const frame_format &format, const std::string &path,
                 frame_writer &writer) {
    input in;
    open(in, path);
    frame_reader lines{
        &in, {frame_kind::lines, 0, "\n"}
    };
    std::string line, more_lines;
    record_row row;
    const size_t fixed = format.kind == frame_kind::fixed ? format.length : 0;
    while (read_frame(lines, line)) {
        job.place = in.name + ":" + std::to_string(lines.count);
        while (job.options->csv && std::count(line.begin(), line.end(), '"') % 2 != 0 &&
               read_frame(lines, more_lines))
            line += "\n" + more_lines; // a line end inside quotation marks
        if (job.options->csv && line.ends_with('\r')) line.pop_back();
        if (job.options->csv && lines.count == 1) {
            if (line + "\r\n" != csv_head(job.fields))
                refuse(job, "the first row of CSV must be " + csv_head(job.fields));
            continue;
        }
        if (job.options->csv) {
            parse_csv(job, line, row);
        } else if (const std::string why = parse_json_row(line, row); !why.empty()) {
            refuse(job, why);
        }
        const std::string record = encode_record(job, row, fixed);
        if (fixed && record.size() > fixed) refuse(job, "the record is longer than the others");
        write_frame(writer, record);
        if ((lines.count & 1023) == 0) show_progress(job.progress, job.bytes + in.offset);
    }
    job.bytes += in.offset;
}

void convert_files(records_job &job, const frame_format &format, output &out) {
    const records_options &options = *job.options;
    const std::vector<std::string> files = inputs_of(options.files);
    start_progress(job.progress, true, files);
    if (options.csv && !options.encode && options.part == 1) write(out, csv_head(job.fields));
    frame_writer writer{&out, format};
    for (const std::string &path : files) {
        if (options.encode)
            encode_file(job, format, path, writer);
        else
            decode_file(job, format, path, out);
    }
    finish_frames(writer);
}

} // namespace

int run_records(const common_options &common, const records_options &options) {
    const data_place place = find_data(common, data_kind::conversions);
    records_job job;
    job.options = &options;
    read_layout(place, options.layout, options.code_set, job.fields);
    if (!job.fields.codecs.empty() && !job.fields.codecs[0]->double_byte)
        job.fields.blank = job.fields.codecs[0]->blank;
    frame_format format = parse_frames(options.records);
    if (format.kind == frame_kind::fixed && format.length < job.fields.length)
        throw failure(bad_usage, options.layout + ": the layout has " +
                                     std::to_string(job.fields.length) + " bytes, a record " +
                                     std::to_string(format.length));
    if (format.kind == frame_kind::lines) {
        if (options.code_set.empty())
            throw failure(bad_usage, "--records lines needs -f CODESET, which ends the lines");
        const line_controls controls = find_controls(place, find_code_set(options.code_set));
        format.newline = controls.host ? controls.nel : controls.lf;
    }
    output out;
    open(out, options.out);
    try {
        convert_files(job, format, out);
    } catch (const failure &) {
        clear_progress(job.progress);
        throw;
    }
    clear_progress(job.progress);
    finish(out);
    if (job.bad > 0)
        kovatool::tell("kova", std::to_string(job.bad) + (job.bad == 1 ? " field" : " fields") +
                                   " kept as hexadecimal digits, the first at " + job.first_bad);
    return done;
}

} // namespace kovacli
