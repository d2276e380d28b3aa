// Reads and writes files of host records.
#include "kova/kova_frames.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace kovacli {

static constexpr size_t longest_record = size_t{1} << 26; // of a line or in parts
static constexpr size_t word_bytes = 4, longest_block = 32760;

frame_format parse_frames(const std::string &text) {
    static constexpr struct {
        const char *name;
        frame_kind kind;
        size_t least, most; // of the number; 0: none
        size_t usual;
    } rows[] = {
        {"fb",    frame_kind::fixed,    1,              1 << 24,       0            },
        {"v",     frame_kind::variable, 0,              0,             0            },
        {"vb",    frame_kind::blocked,  2 * word_bytes, longest_block, longest_block},
        {"vbs",   frame_kind::spanned,  16,             longest_block, longest_block},
        {"lines", frame_kind::lines,    0,              0,             0            },
    };
    const size_t at = std::min(text.find(':'), text.size());
    const std::string name = text.substr(0, at),
                      digits = text.substr(std::min(at + 1, text.size()));
    for (const auto &row : rows) {
        if (name != row.name) continue;
        size_t length = row.usual;
        const char *const end = digits.data() + digits.size();
        const auto got = std::from_chars(digits.data(), end, length);
        const bool number =
            got.ec == std::errc() && got.ptr == end && length >= row.least && length <= row.most;
        if (at == text.size() ? row.kind != frame_kind::fixed : number)
            return {row.kind, length, ""};
        break;
    }
    throw failure(bad_usage, "--records " + text +
                                 ": one of fb:LENGTH, v, vb, vbs, vb:BLOCK, vbs:BLOCK, lines, with "
                                 "a LENGTH up to 16777216 and a BLOCK up to 32760");
}

// ---- reading ----

static uint64_t offset_of(const frame_reader &reader) { return reader.in->offset; }

[[noreturn]] static void refuse(const frame_reader &reader, const std::string &why) {
    throw failure(bad_text, reader.in->name + ": record " + std::to_string(reader.count + 1) +
                                ", byte offset " + std::to_string(offset_of(reader)) + ": " + why);
}

// Makes bytes available; false if the file has none left. Part of them is no record.
static bool have(frame_reader &reader, size_t bytes, const char *what) {
    input &in = *reader.in;
    while (in.fill - in.at < bytes && more(in)) {
    }
    const size_t left = in.fill - in.at;
    if (left >= bytes) return true;
    if (left > 0) refuse(reader, std::string("the file ends inside ") + what);
    return false;
}

static std::string_view here(const frame_reader &reader, size_t bytes) {
    const void *const start = reader.in->block.data() + reader.in->at;
    return {static_cast<const char *>(start), bytes};
}

static size_t word_length(std::string_view word) {
    return size_t{static_cast<unsigned char>(word[0])} << 8 | static_cast<unsigned char>(word[1]);
}

// The length in a block's word, 0 if it is none. Where its first bit is set, all others are the
// length of a large block.
static size_t block_length(std::string_view word) {
    const size_t high = word_length(word), low = word_length(word.substr(2));
    const size_t length = high & 0x8000 ? (high & 0x7FFF) << 16 | low : high;
    const bool is_word = length >= word_bytes && (high & 0x8000 || low == 0);
    return is_word ? length : 0;
}

static bool read_fixed(frame_reader &reader, std::string &record) {
    if (!have(reader, reader.format.length, "a record")) return false;
    record = here(reader, reader.format.length);
    take(*reader.in, record.size());
    return true;
}

// The end of a line, which begins where a character does.
static size_t find_newline(std::string_view text, const std::string &newline, size_t from) {
    size_t end = text.find(newline, from);
    while (end != text.npos && end % newline.size() != 0)
        end = text.find(newline, end + 1);
    return end;
}

static bool read_line(frame_reader &reader, std::string &record) {
    input &in = *reader.in;
    const std::string &newline = reader.format.newline;
    for (size_t searched = 0;;) {
        const std::string_view text = here(reader, in.fill - in.at);
        const size_t end = find_newline(text, newline, searched);
        if (text.size() > longest_record) refuse(reader, "a line is longer than 64 MiB");
        if (end != text.npos) {
            record = text.substr(0, end);
            take(in, end + newline.size());
            return true;
        }
        searched = text.size() < newline.size() ? 0 : text.size() - newline.size() + 1;
        if (more(in)) continue;
        record = text;
        take(in, text.size());
        return !record.empty();
    }
}

// Enters the next block; false at the end of the file, and before a record also where reading
// stops.
static bool enter_block(frame_reader &reader, bool inside) {
    while (reader.block_left == 0) {
        if (!inside && offset_of(reader) >= reader.end) return false;
        if (!have(reader, word_bytes, "a block's descriptor word")) return false;
        const size_t length = block_length(here(reader, word_bytes));
        if (length == 0)
            refuse(reader, "no block's descriptor word; is the file of another form than --records "
                           "says?");
        take(*reader.in, word_bytes);
        reader.block_left = length - word_bytes;
    }
    return true;
}

// Reads one record or part of one after its word. Returns the word's third byte, -1 at the end.
static int read_part(frame_reader &reader, std::string &record, bool inside) {
    const bool blocks = reader.format.kind != frame_kind::variable;
    if (blocks && !enter_block(reader, inside)) return -1;
    if (!have(reader, word_bytes, "a record's descriptor word")) {
        if (reader.block_left > 0) refuse(reader, "the file ends inside a block");
        return -1;
    }
    const std::string_view word = here(reader, word_bytes);
    const size_t length = word_length(word);
    const unsigned part = static_cast<unsigned char>(word[2]);
    const unsigned most = reader.format.kind == frame_kind::spanned ? 3 : 0;
    if (length < word_bytes || part > most || word[3] != 0 ||
        (blocks && length > reader.block_left))
        refuse(reader, "no record's descriptor word; is the file of another form than --records "
                       "says?");
    if (!have(reader, length, "a record")) return -1;
    record += here(reader, length).substr(word_bytes);
    take(*reader.in, length);
    if (blocks) reader.block_left -= length;
    return int(part);
}

// Parts: 0 all of a record, 1 its first part, 2 its last, 3 one between.
static bool read_parts(frame_reader &reader, std::string &record) {
    int part = read_part(reader, record, false);
    if (part < 0) return false;
    if (part > 1) refuse(reader, "a record begins with a later part");
    while (part == 1 || part == 3) {
        part = read_part(reader, record, true);
        if (part < 2) refuse(reader, "a record lacks its last part");
        if (record.size() > longest_record) refuse(reader, "a record is longer than 64 MiB");
    }
    return true;
}

bool read_frame(frame_reader &reader, std::string &record) {
    record.clear();
    if (offset_of(reader) >= reader.end) return false;
    reader.at = offset_of(reader);
    const frame_kind kind = reader.format.kind;
    const bool read = kind == frame_kind::fixed   ? read_fixed(reader, record)
                      : kind == frame_kind::lines ? read_line(reader, record)
                                                  : read_parts(reader, record);
    if (read) ++reader.count;
    return read;
}

// ---- parts ----

namespace {
struct record_start {
    uint64_t offset = 0;
    size_t block_left = 0;
    unsigned long long before = 0; // records
};
} // namespace

// Where the first record begins at or after an offset: all before it are read, because their words
// alone tell.
static record_start first_record(const std::string &path, const frame_format &format,
                                 uint64_t wanted) {
    input in;
    open(in, path);
    frame_reader reader{&in, format};
    reader.end = wanted;
    for (std::string record; read_frame(reader, record);) {
    }
    return {offset_of(reader), reader.block_left, reader.count};
}

static record_start part_start(const frame_reader &reader, const std::string &path, uint64_t size,
                               uint64_t part, uint64_t parts) {
    if (part == 0) return {};
    if (part == parts) return {.offset = size};
    if (reader.format.kind != frame_kind::fixed)
        return first_record(path, reader.format, size / parts * part);
    const uint64_t records = size / reader.format.length;
    const uint64_t before = records / parts * part + records % parts * part / parts;
    return {.offset = before * reader.format.length, .before = before};
}

static void skip_to(input &in, uint64_t offset) {
    while (in.offset < offset) {
        if (in.at == in.fill && !more(in)) return;
        take(in, size_t(std::min<uint64_t>(offset - in.offset, in.fill - in.at)));
    }
}

void choose_part(frame_reader &reader, unsigned part, unsigned parts) {
    const frame_kind kind = reader.format.kind;
    if (kind == frame_kind::lines)
        throw failure(bad_usage, "--part takes the forms fb, v, vb and vbs");
    const uint64_t size = reader.in->size;
    const std::string path = reader.in->name;
    if (size == 0 || !is_regular_file(path))
        throw failure(bad_usage, "--part needs a regular file that has a name");
    const record_start start = part_start(reader, path, size, part - 1, parts);
    reader.end = part_start(reader, path, size, part, parts).offset;
    skip_to(*reader.in, start.offset);
    reader.block_left = start.block_left;
    reader.count = start.before;
}

// ---- writing ----

static std::string word_of(size_t length, unsigned part) {
    return {char(length >> 8), char(length), char(part), '\0'};
}

static void write_block(frame_writer &writer) {
    if (writer.block.empty()) return;
    write(*writer.out, word_of(writer.block.size() + word_bytes, 0));
    write(*writer.out, writer.block);
    writer.block.clear();
}

static void write_spanned(frame_writer &writer, std::string_view record) {
    const size_t most = writer.format.length - word_bytes;
    for (bool first = true; first || !record.empty(); first = false) {
        if (writer.block.size() + word_bytes >= most) write_block(writer);
        const size_t room = most - writer.block.size() - word_bytes;
        const std::string_view part = record.substr(0, room);
        record.remove_prefix(part.size());
        const bool last = record.empty();
        writer.block += word_of(part.size() + word_bytes, (first ? 0u : 2u) | (last ? 0u : 1u));
        writer.block += part;
    }
}

void write_frame(frame_writer &writer, std::string_view record) {
    const frame_format &format = writer.format;
    const size_t framed = record.size() + word_bytes;
    const size_t most = format.kind == frame_kind::blocked ? format.length - word_bytes : 0xFFFF;
    if (format.kind == frame_kind::fixed && record.size() != format.length)
        throw failure(bad_text, "a record of " + std::to_string(record.size()) +
                                    " bytes, where all have " + std::to_string(format.length));
    if ((format.kind == frame_kind::variable || format.kind == frame_kind::blocked) &&
        framed > most)
        throw failure(bad_text, "a record of " + std::to_string(record.size()) +
                                    " bytes is too long for its form");
    switch (format.kind) {
    case frame_kind::fixed:
        write(*writer.out, record);
        break;
    case frame_kind::lines:
        if (find_newline(record, format.newline, 0) != record.npos)
            throw failure(bad_text, "a record holds the end of a line");
        write(*writer.out, record);
        write(*writer.out, format.newline);
        break;
    case frame_kind::variable:
        write(*writer.out, word_of(framed, 0));
        write(*writer.out, record);
        break;
    case frame_kind::blocked:
        if (writer.block.size() + framed > most) write_block(writer);
        writer.block += word_of(framed, 0);
        writer.block += record;
        break;
    case frame_kind::spanned:
        write_spanned(writer, record);
        break;
    }
}

void finish_frames(frame_writer &writer) { write_block(writer); }

} // namespace kovacli
