// Fields of host records as text, and back: exact decimals without floating point, text of a code
// set, hexadecimal floating numbers.
#include "kova/kova_layout.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kova/kova_text.h"

namespace kovacli {

namespace {

const unsigned char *start_of(std::string_view text) {
    const void *const start = text.data();
    return static_cast<const unsigned char *>(start);
}

std::string hex_digits(std::string_view bytes) { return hex(bytes, ""); }

field_value wrong(std::string why) { return {"", std::move(why)}; }

// ---- decimals ----

struct decimal {
    bool negative = false;
    std::string digits; // without a point
};

// "-12.30" of 1230 with two places. Zero has no sign.
std::string decimal_text(decimal value, unsigned scale) {
    std::string &digits = value.digits;
    value.negative = value.negative && digits.find_first_not_of('0') != digits.npos;
    if (digits.size() <= scale) digits.insert(0, scale + 1 - digits.size(), '0');
    const size_t whole = digits.size() - scale;
    size_t first = 0;
    while (first + 1 < whole && digits[first] == '0')
        ++first;
    std::string text = value.negative ? "-" : "";
    text += digits.substr(first, whole - first);
    if (scale > 0) text += "." + digits.substr(whole);
    return text;
}

// The digits of a text with so many places, without leading zeros. False if it is no decimal number
// of at most that many.
bool parse_decimal(std::string_view text, unsigned scale, decimal &value) {
    value.negative = !text.empty() && text[0] == '-';
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) text.remove_prefix(1);
    const size_t point = std::min(text.find('.'), text.size());
    std::string whole(text.substr(0, point)), part(text.substr(std::min(point + 1, text.size())));
    const auto digits = [](const std::string &some) {
        return std::all_of(some.begin(), some.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    if (whole.empty() || !digits(whole) || !digits(part)) return false;
    while (part.size() > scale && part.back() == '0')
        part.pop_back();
    if (part.size() > scale) return false;
    part.append(scale - part.size(), '0');
    value.digits = whole + part;
    value.digits.erase(0, std::min(value.digits.find_first_not_of('0'), value.digits.size()));
    return true;
}

field_value no_decimal(const layout_field &field, std::string_view text) {
    return wrong("\"" + std::string(text) + "\" is no decimal number of at most " +
                 std::to_string(field.scale) + " places");
}

// Packed: two digits a byte, the sign in the last half byte.
field_value decode_packed(const layout_field &field, std::string_view bytes) {
    decimal value;
    for (size_t i = 0; i < 2 * bytes.size(); ++i) {
        const unsigned byte = static_cast<unsigned char>(bytes[i / 2]);
        const unsigned half = i % 2 ? byte & 15 : byte >> 4;
        if (i + 1 < 2 * bytes.size()) {
            if (half > 9) return wrong("no packed decimal");
            value.digits += char('0' + half);
        } else {
            if (half < 10) return wrong("no sign in the last half byte of a packed decimal");
            value.negative = half == 0xB || half == 0xD;
        }
    }
    return {decimal_text(value, field.scale), ""};
}

field_value encode_packed(const layout_field &field, std::string_view text) {
    decimal value;
    if (!parse_decimal(text, field.scale, value)) return no_decimal(field, text);
    const size_t room = 2 * field.length - 1;
    if (value.digits.size() > room) return wrong("the number does not fit");
    if (value.negative && field.sign == sign_place::none) return wrong("the field has no sign");
    value.digits.insert(0, room - value.digits.size(), '0');
    std::string bytes(field.length, '\0');
    for (size_t i = 0; i < room; ++i)
        bytes[i / 2] = char(bytes[i / 2] | (value.digits[i] - '0') << (i % 2 ? 0 : 4));
    const int sign = field.sign == sign_place::none ? 0xF : value.negative ? 0xD : 0xC;
    bytes.back() = char(bytes.back() | sign);
    return {bytes, ""};
}

// Zoned: a digit a byte, F0 to F9; a sign over the first or last digit, or beside them.
bool is_separate(const layout_field &field) {
    return field.sign == sign_place::separate_leading ||
           field.sign == sign_place::separate_trailing;
}

field_value decode_zoned(const layout_field &field, std::string_view bytes) {
    constexpr char plus = '\x4E', minus = '\x60';
    decimal value;
    if (is_separate(field)) {
        const bool leads = field.sign == sign_place::separate_leading;
        const char sign = leads ? bytes.front() : bytes.back();
        if (sign != plus && sign != minus) return wrong("no separate sign");
        value.negative = sign == minus;
        leads ? bytes.remove_prefix(1) : bytes.remove_suffix(1);
    }
    const size_t over = field.sign == sign_place::trailing  ? bytes.size() - 1
                        : field.sign == sign_place::leading ? 0
                                                            : bytes.size();
    for (size_t i = 0; i < bytes.size(); ++i) {
        const unsigned byte = static_cast<unsigned char>(bytes[i]), zone = byte >> 4;
        if ((byte & 15) > 9 || zone < 10 || (i != over && zone != 15))
            return wrong("no zoned decimal");
        if (i == over) value.negative = zone == 0xB || zone == 0xD;
        value.digits += char('0' + (byte & 15));
    }
    return {decimal_text(value, field.scale), ""};
}

field_value encode_zoned(const layout_field &field, std::string_view text) {
    decimal value;
    if (!parse_decimal(text, field.scale, value)) return no_decimal(field, text);
    const size_t room = field.length - (is_separate(field) ? 1 : 0);
    if (value.digits.size() > room) return wrong("the number does not fit");
    if (value.negative && field.sign == sign_place::none) return wrong("the field has no sign");
    std::string bytes(room - value.digits.size(), '\xF0');
    for (const char digit : value.digits)
        bytes += char(0xF0 | (digit - '0'));
    const auto signed_digit = [&](char &byte) {
        byte = char((byte & 15) | (value.negative ? 0xD0 : 0xC0));
    };
    const char sign = value.negative ? '\x60' : '\x4E';
    switch (field.sign) {
    case sign_place::trailing:
        signed_digit(bytes.back());
        break;
    case sign_place::leading:
        signed_digit(bytes.front());
        break;
    case sign_place::separate_trailing:
        bytes += sign;
        break;
    case sign_place::separate_leading:
        bytes.insert(0, 1, sign);
        break;
    case sign_place::none:
        break;
    }
    return {bytes, ""};
}

// ---- binary numbers ----

field_value decode_integer(const layout_field &field, std::string_view bytes) {
    uint64_t value = 0;
    for (const char byte : bytes)
        value = value << 8 | static_cast<unsigned char>(byte);
    const bool negative = field.sign != sign_place::none && (bytes[0] & 0x80);
    if (negative) value = ~value + 1;
    if (negative && bytes.size() < 8) value &= (uint64_t{1} << 8 * bytes.size()) - 1;
    return {decimal_text({negative, std::to_string(value)}, field.scale), ""};
}

field_value encode_integer(const layout_field &field, std::string_view text) {
    decimal wanted;
    if (!parse_decimal(text, field.scale, wanted)) return no_decimal(field, text);
    uint64_t value = 0;
    for (const char digit : wanted.digits) {
        const auto more = uint64_t(digit - '0');
        if (value > (UINT64_MAX - more) / 10) return wrong("the number does not fit");
        value = value * 10 + more;
    }
    const bool is_signed = field.sign != sign_place::none;
    if (wanted.negative && value && !is_signed) return wrong("the field has no sign");
    const unsigned bits = unsigned(8 * field.length) - (is_signed ? 1 : 0);
    const uint64_t most = (bits < 64 ? (uint64_t{1} << bits) - 1 : UINT64_MAX) +
                          (is_signed && wanted.negative ? 1 : 0);
    if (value > most) return wrong("the number does not fit");
    if (wanted.negative) value = ~value + 1;
    std::string bytes(field.length, '\0');
    for (size_t i = 0; i < field.length; ++i)
        bytes[field.length - 1 - i] = char(value >> 8 * i);
    return {bytes, ""};
}

// Hexadecimal floating numbers: a sign, an exponent of 16 with 64 added, and a fraction.
field_value encode_float(const layout_field &field, std::string_view text) {
    const std::string copy(text);
    char *end = nullptr;
    long double value = std::strtold(copy.c_str(), &end);
    const bool plain = copy.find_first_not_of("0123456789+-.eE") == copy.npos;
    if (copy.empty() || *end || !plain || !std::isfinite(value))
        return wrong("\"" + copy + "\" is no number");
    const int digits = int(2 * field.length) - 2;
    const bool negative = std::signbit(value);
    value = std::fabs(value);
    int exponent = 64;
    uint64_t fraction = 0;
    if (value != 0) {
        int binary = 0;
        (void)std::frexp(value, &binary);
        const int power = binary > 0 ? (binary + 3) / 4 : -(-binary / 4);
        exponent += power;
        fraction = uint64_t(std::roundl(std::ldexp(value, 4 * (digits - power))));
        if (fraction >> 4 * digits) {
            fraction >>= 4;
            ++exponent;
        }
    }
    if (exponent < 0 || exponent > 127) return wrong("the number does not fit");
    if (value == 0) exponent = 0;
    std::string bytes(field.length, '\0');
    for (size_t i = 1; i < field.length; ++i)
        bytes[field.length - i] = char(fraction >> 8 * (i - 1));
    bytes[0] = char(unsigned(exponent) | (negative ? 0x80u : 0u));
    return {bytes, ""};
}

// The shortest decimal that gives the same bytes.
field_value decode_float(const layout_field &field, std::string_view bytes) {
    uint64_t fraction = 0;
    for (const char byte : bytes.substr(1))
        fraction = fraction << 8 | static_cast<unsigned char>(byte);
    const int digits = int(2 * bytes.size()) - 2, power = (bytes[0] & 0x7F) - 64;
    long double value = std::ldexp(static_cast<long double>(fraction), 4 * (power - digits));
    if ((bytes[0] & 0x80) && value != 0) value = -value;
    char text[64];
    for (int precision = 1; precision <= 21; ++precision) {
        std::snprintf(text, sizeof text, "%.*Lg", precision, value);
        if (encode_float(field, text).text == bytes) break;
    }
    return {text, ""};
}

// ---- text ----

std::string_view without(std::string_view text, std::string_view blank) {
    while (text.size() >= blank.size() && text.substr(text.size() - blank.size()) == blank)
        text.remove_suffix(blank.size());
    return text;
}

// Pairs without shift codes have none inside.
bool has_shifts(const text_codec &codec, std::string_view bytes) {
    return codec.double_byte && bytes.find_first_of("\x0E\x0F") != bytes.npos;
}

field_value decode_text(const layout_field &field, std::string_view bytes) {
    text_codec &codec = *field.codec;
    byte_buffer made;
    route_state st;
    for (conv_state &leg : st.leg)
        leg.first_frag = codec.double_byte ? 0 : 1;
    if (codec.double_byte) st.leg[0].source_state = 1;
    const run_result got = run(codec.to_utf8, st, start_of(bytes), bytes.size(), true, made);
    if (got.error != KO_OK || got.taken != bytes.size() || has_shifts(codec, bytes))
        return wrong("no text of " + codec.to_utf8.from.name);
    return {std::string(without(made.text(), codec.double_byte ? "\u3000" : " ")), ""};
}

field_value encode_text(const layout_field &field, std::string_view text) {
    text_codec &codec = *field.codec;
    byte_buffer made;
    route_state st;
    for (conv_state &leg : st.leg)
        leg.first_frag = codec.double_byte ? 0 : 1;
    if (codec.double_byte) target_state(codec.from_utf8, st) = 1;
    std::string bytes;
    if (!text.empty()) {
        const run_result got =
            run(codec.from_utf8, st, start_of(text), text.size(), !codec.double_byte, made);
        if (got.error != KO_OK || got.taken != text.size() || has_shifts(codec, made.text()))
            return wrong(codec.to_utf8.from.name + " lacks a character of \"" + std::string(text) +
                         "\"");
        bytes = made.text();
        if (got.substituted && decode_text(field, bytes).text != without(text, " "))
            return wrong(codec.to_utf8.from.name + " lacks a character of \"" + std::string(text) +
                         "\"");
    }
    if (bytes.size() > field.length) return wrong("the text does not fit");
    while (bytes.size() + codec.blank.size() <= field.length)
        bytes += codec.blank;
    return bytes.size() == field.length ? field_value{bytes, ""} : wrong("the text does not fit");
}

} // namespace

std::string unhex(std::string_view digits) {
    std::string bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        unsigned value = 0;
        for (const char c : digits.substr(i, 2)) {
            const char low = char(c | 0x20);
            const bool decimal = c >= '0' && c <= '9';
            if (!decimal && (low < 'a' || low > 'f')) return "";
            value = value * 16 + unsigned(decimal ? c - '0' : low - 'a' + 10);
        }
        bytes += char(value);
    }
    return digits.size() % 2 ? "" : bytes;
}

field_value decode_field(const layout_field &field, std::string_view bytes) {
    switch (field.kind) {
    case field_kind::packed:
        return decode_packed(field, bytes);
    case field_kind::zoned:
        return decode_zoned(field, bytes);
    case field_kind::integer:
        return decode_integer(field, bytes);
    case field_kind::floating:
        return decode_float(field, bytes);
    case field_kind::hex:
        return {hex_digits(bytes), ""};
    default:
        return decode_text(field, bytes);
    }
}

field_value encode_field(const layout_field &field, std::string_view text) {
    switch (field.kind) {
    case field_kind::packed:
        return encode_packed(field, text);
    case field_kind::zoned:
        return encode_zoned(field, text);
    case field_kind::integer:
        return encode_integer(field, text);
    case field_kind::floating:
        return encode_float(field, text);
    case field_kind::hex: {
        const std::string bytes = unhex(text);
        return bytes.size() == field.length ? field_value{bytes, ""}
                                            : wrong("these are not the field's hexadecimal digits");
    }
    default:
        return encode_text(field, text);
    }
}

} // namespace kovacli
