// kova number --parse: numbers, characters and texts read in a locale's notation.
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

// The part of a text that a directive has read.
static wide_text part_of(const codec &code, const reading &reads, const format_text &format,
                         const format_directive &d, const wide_text &text) {
    const size_t from = read_length(code, reads, front_of(format, d.start), text);
    const size_t to = read_length(code, reads, front_of(format, d.end), text);
    return {text.begin() + ptrdiff_t(from), text.begin() + ptrdiff_t(std::max(from, to))};
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

static answer_value real_in(const slot &room) {
    double value;
    memcpy(&value, room.data(), sizeof value);
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
        const slot &one = stored[used++];
        const number_kind kind = kind_of(d);
        rest |= kind == number_kind::text;
        given.values.push_back(
            kind == number_kind::real      ? real_in(one)
            : kind != number_kind::integer ? answer_value{stored_text(code, d, one)}
            : rest                         ? integer_in(d, one)
                   : whole_text(code, d, part_of(code, reads, job.format, d, text)));
    }
    return given;
}

} // namespace kovacli
