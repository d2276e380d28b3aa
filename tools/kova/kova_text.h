// Text between its outer form (UTF-8, or bytes of a locale's code set) and the wide characters on
// which the library works.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kova.h"
#include "kova/kova_locale.h"

namespace kovacli {

constexpr uint32_t no_code_point = 0xFFFFFFFF;

// The shape of a locale's code set and, for UTF-8, its mapping.
struct codec {
    ko_lc_t loc = nullptr;
    bool utf8 = false;         // the outer form
    bool utf16 = false;        // the code set is "unicode": units of UTF-16, high byte first
    int min_len = 1;           // bytes of the shortest character
    bool mapped = false;       // the mapping below exists, or is not needed (utf16)
    std::string code_set;      // for messages
    std::string mapping_fault; // why there is no mapping
    // For bytes: what each first byte is, and which pairs are characters.
    enum lead : uint8_t { never, alone, first_of_two };
    std::array<lead, 256> leads{};
    std::unique_ptr<std::bitset<65536>> pairs;
    // For the mapping: by code points below 0x10000, by the others, and back. 0 means only the null
    // character.
    std::vector<uint16_t> wide_of;
    std::unordered_map<uint32_t, uint16_t> far_wide_of;
    std::vector<uint32_t> code_of;
    ko_wchar_t newline = '\n';
    ko_wchar_t replacement = '?'; // stands for bad characters, where asked for
};

// Like text_is_utf8 of the options alone; a locale whose code set is "unicode" speaks UTF-8 unless
// --bytes says otherwise.
bool text_is_utf8(const common_options &common, const locale_handle &handle);

// Prepares the codec of an open locale. Throws failure if UTF-8 needs a charmap that does not
// exist.
void make_codec(const locale_handle &handle, const data_place &place, bool utf8, codec &code);

// Opens a command's locale, with the text form that its options and the environment ask for.
// Returns where the data was found.
data_place open_with_codec(const common_options &common, const std::string &locale,
                           locale_handle &handle, codec &code);

// Loads the mapping of a codec that works on bytes, for showing characters; false without one.
bool add_mapping(const locale_handle &handle, const data_place &place, codec &code);

enum class fault : uint8_t {
    none,
    invalid, // bytes that are not a character
    cut,     // the text ends inside a character
    missing  // a character that the code set lacks
};

// Where and why decoding stopped.
struct bad_character {
    fault why = fault::none;
    size_t offset = 0;                    // of its first byte in the text
    size_t len = 0;                       // bytes to skip
    uint32_t code = no_code_point;        // fault::missing
    std::array<unsigned char, 4> bytes{}; // its first bytes
};

// Decodes up to the first bad character or the end. out has room for one unit per byte. Returns the
// units; bad tells why it stopped. A character cut off by the end is fault::cut.
size_t decode(const codec &code, const unsigned char *text, size_t len, ko_wchar_t *out,
              bad_character &bad);

// Decodes a whole text. With replace, bad characters become code.replacement and are counted in
// *replaced (may be null); without it, false at the first one.
bool decode_text(const codec &code, std::string_view text, bool replace,
                 std::vector<ko_wchar_t> &out, bad_character &bad, uint64_t *replaced);

// Appends the outer form of wide characters such as decode produces.
void encode(const codec &code, const ko_wchar_t *wide, size_t count, std::string &out);

// Appends the bytes of one character in the code set.
void encode_bytes(const codec &code, ko_wchar_t wide, std::string &out);

void append_utf8(uint32_t code_point, std::string &out);

// Bytes of the UTF-8 character at text, 0 if it is not one, -1 if the text ends inside it.
int utf8_char(const unsigned char *text, size_t len, uint32_t &point);

// The bytes that show that no character begins at text: those of its beginning, and the first one
// that does not continue it.
size_t utf8_bad_bytes(const unsigned char *text, size_t len);

// "U+20AC".
std::string code_point_text(uint32_t code_point);

// The code point of a character, no_code_point without a mapping or for half a surrogate pair.
uint32_t code_point(const codec &code, ko_wchar_t wide);

// Do wide characters of "unicode" begin with a surrogate pair?
bool is_pair(const ko_wchar_t *wide, size_t count);
uint32_t point_of_pair(const ko_wchar_t *pair);

// Such as "ISO-8859-1 has no character U+20AC (€)".
std::string describe(const codec &code, const bad_character &bad);

// What the user can do about it, as a continuation of the sentence.
std::string hint(const codec &code, const bad_character &bad);

// Decodes a text argument. Throws failure that names it by what.
std::vector<ko_wchar_t> decode_argument(const codec &code, const std::string &text,
                                        const std::string &what);

// Text in the outer form, safe for terminals: characters that they would obey are spelled out in
// UTF-8, and replaced in bytes of a code set. ASCII characters in keep stay.
std::string visible(const codec &code, const std::string &text, std::string_view keep = {});

// The visible form, with line ends and tabs, if standard output is a terminal; else the text as it
// is.
std::string for_terminal(const codec &code, const std::string &text);

std::string hex(std::string_view bytes, const char *separator);

// How many characters must be changed, put in, left out or swapped with the next one to make one
// word of another.
size_t distance(const std::string &a, const std::string &b);

} // namespace kovacli
