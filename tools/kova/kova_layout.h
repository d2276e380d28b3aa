// Layouts of host records: which bytes are which field, and how a field's bytes stand for a value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kova/kova_convert.h"

namespace kovacli {

enum class field_kind : uint8_t { text, dbcs, packed, zoned, integer, floating, hex };
enum class sign_place : uint8_t { trailing, leading, separate_trailing, separate_leading, none };

// Text of a code set: the ways to UTF-8 and back, and what fills a field.
struct text_codec {
    route to_utf8, from_utf8;
    bool double_byte = false; // pairs without shift codes
    std::string blank;        // one blank
};

struct layout_field {
    std::string name;
    size_t offset = 0, length = 0; // bytes of one value
    field_kind kind = field_kind::text;
    sign_place sign = sign_place::trailing;
    unsigned scale = 0; // decimal places
    unsigned times = 1; // values that follow one another
    text_codec *codec = nullptr;
    size_t end() const { return offset + length * times; }
};

struct layout {
    std::vector<layout_field> fields; // by offset
    std::vector<std::unique_ptr<text_codec>> codecs;
    std::string blank = "\x40"; // what fills bytes of no field
    size_t length = 0;          // of the longest field's end
};

// Reads a layout file: NAME OFFSET LENGTH KIND [KEY=VALUE...] a line. code_set is that of text
// whose line names none. Throws failure with the line.
void read_layout(const data_place &place, const std::string &path, const std::string &code_set,
                 layout &all);

// A value as text: decimal digits, UTF-8 text, or the hexadecimal digits of bytes.
struct field_value {
    std::string text;
    std::string why; // what is wrong with the bytes or the text; "" if nothing is
};
field_value decode_field(const layout_field &field, std::string_view bytes);
// The bytes of a value; why says what does not fit.
field_value encode_field(const layout_field &field, std::string_view text);
std::string unhex(std::string_view digits); // "" for what is no pairs of digits

// A field whose value is written as a number.
inline bool is_number(const layout_field &field) {
    return field.kind != field_kind::text && field.kind != field_kind::dbcs &&
           field.kind != field_kind::hex;
}

} // namespace kovacli
