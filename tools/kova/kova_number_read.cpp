// kova number --parse: numbers, characters and texts read in a locale's notation.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "kova/kova_char.h"
#include "kova/kova_number.h"
#include "kova/kova_typed.h"

namespace kovacli {

// Room for anything that a directive can store.
using slot = std::vector<ko_wchar_t>;
using slots = std::array<slot, directives_max>;

template <size_t... i>
static int read_slots(const codec &code, const ko_wchar_t *text, const ko_wchar_t *format,
                      slots &room, std::index_sequence<i...>) {
    *ko_ext_errno(code.loc) = 0;
    return ko_wcspnum(code.loc, text, format, static_cast<void *>(room[i].data())...);
}

static slots room_for(const wide_text &text) {
    slots room;
    for (slot &one : room) // texts of reads_whole are longer
        one.assign(2 * (text.size() + 4) + sizeof(double), 0);
    return room;
}

// ---- integers ----

static int value_in_base(uint32_t point) {
    if (point >= '0' && point <= '9') return int(point - '0');
    const uint32_t letter = point | 0x20;
    return letter >= 'a' && letter <= 'z' ? int(letter - 'a') + 10 : 99;
}

// The integer that stands in a part of a text that a directive has read, of which the library
// stores 32 bits. Separators are passed over.
static answer_value whole_text(const codec &code, const format_directive &d,
                               const wide_text &text) {
    const unsigned base = base_of(d);
    bool negative = false, over = false;
    uint64_t value = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        uint32_t point = code_point(code, text[i]);
        if (point == no_code_point) point = text[i];
        negative |= point == '-';
        const auto digit = unsigned(value_in_base(point));
        if (digit >= base) continue; // the x of "0x", too
        over |= value > (UINT64_MAX - digit) / base;
        value = value * base + digit;
    }
    const bool half = size_of(d) == 'h', plain = d.conversion == 'u';
    const uint64_t most = plain  ? half ? UINT16_MAX : UINT64_MAX
                          : half ? uint64_t{INT16_MAX}
                                 : uint64_t{INT64_MAX};
    if (over || value > most + (negative && !plain))
        throw failure(bad_text,
                      outer_text(code, text) + " is beyond " + (half ? "16" : "64") + " bits");
    return {(negative && value ? "-" : "") + std::to_string(value), true};
}

// ---- values ----

static std::string stored_text(const codec &code, const format_directive &d, const slot &room) {
    const bool text = kind_of(d) == number_kind::text;
    slot units = room;
    const void *const bytes = room.data();
    if (size_of(d) != 'l')
        static_cast<loc_exports *>(code.loc)->mbstowcs(
            code.loc, units.data(), static_cast<const ko_mchar_t *>(bytes), int(units.size()));
    std::string result;
    encode(code, units.data(), size_t(text ? ko_wcslen(units.data()) : 1), result);
    return result;
}

// Flags last.
static bool is_grouped(const format_job &job, const format_directive &d) {
    for (const format_directive &before : job.format.directives)
        if (before.start <= d.start && before.modifiers.find('\'') != std::string::npos)
            return true;
    return false;
}

// The library takes "." for a decimal symbol, whatever the locale has, and it would make 1.234 of
// what is 1234 there.
static void refuse_point(const format_job &job, const format_directive &d, const wide_text &part) {
    const ko_wchar_t point = native(job.code, ".")[0];
    const koconv *const conv = ko_localeconv(job.code.loc);
    if (!conv || std::find(part.begin(), part.end(), point) == part.end()) return;
    const auto is_point = [point](const ko_wchar_t *text) {
        return text && text[0] == point && !text[1];
    };
    const bool grouped = is_grouped(job, d);
    const bool separates = is_point(conv->w_thousands_sep);
    if (!conv->w_decimal_point || is_point(conv->w_decimal_point) || (grouped && separates)) return;
    const ko_wchar_t *const symbol = conv->w_decimal_point;
    throw failure(bad_text, outer_text(job.code, part) + ": decimals come after \"" +
                                outer_text(job.code, {symbol, symbol + ko_wcslen(symbol)}) +
                                "\" in " + job.handle.name +
                                (separates ? ", and %' reads \".\" between thousands" : ""));
}

// A real that the library has stored, and the part of the text that it read.
static answer_value real_in(const format_job &job, const format_directive &d, const slot &room,
                            const wide_text &part, answer &given) {
    double value;
    memcpy(&value, room.data(), sizeof value);
    refuse_point(job, d, part);
    const std::string lost = lost_digits(job.code, part, value);
    if (!lost.empty()) given.told.push_back(lost);
    return {shortest_digits(value), std::isfinite(value)};
}

// What the library has stored.
static answer_value integer_in(const format_directive &d, const slot &room) {
    int32_t value;
    memcpy(&value, room.data(), sizeof value);
    const bool half = size_of(d) == 'h', plain = d.conversion == 'u';
    if (half) return {std::to_string(plain ? int{uint16_t(value)} : int16_t(value)), true};
    return {plain ? std::to_string(uint32_t(value)) : std::to_string(value), true};
}

// A value that the library has stored. part: what it read, nullptr where that is not known.
static answer_value value_in(const format_job &job, const format_directive &d, const slot &room,
                             const wide_text *part, answer &given) {
    const koconv *const conv = ko_localeconv(job.code.loc);
    if (conv && part && is_grouped(job, d))
        refuse_empty_group(job.code, *part, conv->w_thousands_sep, conv->w_decimal_point);
    if (!is_number(d)) return {stored_text(job.code, d, room)};
    if (kind_of(d) == number_kind::real)
        return real_in(job, d, room, part ? *part : wide_text(), given);
    return part ? whole_text(job.code, d, *part) : integer_in(d, room);
}

[[noreturn]] static void refuse_text(const format_job &job, const reading &reads,
                                     const wide_text &text) {
    const int error = *ko_ext_errno(job.code.loc);
    const size_t place = longest_working(
        job.format, [&](const ko_wchar_t *front) { return reads(text.data(), front); });
    bool known = true;
    for (const format_directive &d : job.format.directives)
        if (place >= d.start && place < d.end) known = kind_of(d) != number_kind::none;
    const bool differs = known && (error == KO_EDIRECTIVE || error == KO_EINVAL);
    fail_in_format(job.code, job.format, place, known ? bad_text : bad_usage,
                   differs ? "the text does not match" : number_fault(error));
}

answer parse_numbers(const format_job &job, const std::string &argument) {
    const codec &code = job.code;
    wide_text text = decode_argument(code, argument, "TEXT");
    text.push_back(0);
    slots room = room_for(text);
    const reading reads = [&](const ko_wchar_t *from, const ko_wchar_t *format) {
        read_slots(code, from, format, room, std::make_index_sequence<directives_max>());
        return *ko_ext_errno(code.loc) == 0;
    };
    answer given;
    const std::string done = respell(code, reads, job.format, native(code, "-"), text);
    if (!done.empty()) given.told.push_back(done);
    if (!reads(text.data(), job.format.wide.data())) refuse_text(job, reads, text);
    refuse_rest(code, reads, job.format, text);
    room = room_for(text);
    reads(text.data(), job.format.wide.data());
    const slots stored = room; // finding the parts reads again
    size_t used = 0;
    bool rest = false; // was there a directive that takes the rest and leaves it to the next one?
    for (const format_directive &d : job.format.directives) {
        if (d.modifiers.find('*') != std::string::npos) continue;
        rest |= kind_of(d) == number_kind::text;
        const wide_text part =
            is_number(d) && !rest ? part_of(code, reads, job.format, d, text) : wide_text();
        given.values.push_back(value_in(job, d, stored[used++], rest ? nullptr : &part, given));
    }
    return given;
}

} // namespace kovacli
