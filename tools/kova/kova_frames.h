// Files of records: fixed length, variable length with descriptor words, or lines.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "kova/kova_cli.h"
#include "kova/kova_io.h"

namespace kovacli {

// Forms of files. A descriptor word is two bytes of length, which counts the word, and two more.
//   fixed     records of one length
//   variable  each record after its word
//   blocked   blocks after a word each, of records after a word each
//   spanned   the same, but a record may go on in the next block; its word says which part it is
//   lines     each record before the end of a line
enum class frame_kind { fixed, variable, blocked, spanned, lines };
struct frame_format {
    frame_kind kind = frame_kind::lines;
    size_t length = 0;   // of a fixed record, or the most of a block
    std::string newline; // of lines
};

// "fb:80", "v", "vb", "vb:27998", "vbs", "vbs:27998" or "lines". Throws failure.
frame_format parse_frames(const std::string &text);

struct frame_reader {
    input *in = nullptr;
    frame_format format;
    size_t block_left = 0;        // of a block
    uint64_t end = UINT64_MAX;    // where reading stops, if the file goes on
    uint64_t at = 0;              // offset of the record last read
    unsigned long long count = 0; // records up to the one last read
};
// Reads the next record; false at the end. Throws failure for what is no record.
bool read_frame(frame_reader &reader, std::string &record);

// Sets a reader to one of several parts of its file, which begin and end with records.
void choose_part(frame_reader &reader, unsigned part, unsigned parts);

struct frame_writer {
    output *out = nullptr;
    frame_format format;
    std::string block; // of a blocked file, after the room for its word
};
void write_frame(frame_writer &writer, std::string_view record);
void finish_frames(frame_writer &writer);

} // namespace kovacli
