// Reads layouts of host records.
#include "kova/kova_layout.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <set>
#include <sstream>

#include "common/tool_source.h"
#include "common/tool_text.h"
#include "kova/kova_text.h"

namespace kovacli {

namespace {
constexpr size_t longest_record = 1 << 24; // bytes that a layout can describe

struct layout_line {
    std::string where; // file and line
    std::vector<std::string> words;
};

[[noreturn]] void refuse(const layout_line &line, const std::string &why) {
    throw failure(bad_usage, line.where + ": " + why);
}

size_t number(const layout_line &line, const std::string &text, const char *what, size_t most) {
    size_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value > most)
        refuse(line, std::string(what) + " \"" + text + "\" is no number from 0 to " +
                         std::to_string(most));
    return value;
}

struct kind_row {
    const char *name;
    field_kind kind;
    size_t longest;
};
constexpr kind_row kinds[] = {
    {"text",    field_kind::text,     longest_record},
    {"dbcs",    field_kind::dbcs,     longest_record},
    {"packed",  field_kind::packed,   16            },
    {"zoned",   field_kind::zoned,    32            },
    {"integer", field_kind::integer,  8             },
    {"float",   field_kind::floating, 8             },
    {"hex",     field_kind::hex,      longest_record},
};

void set_kind(const layout_line &line, layout_field &field) {
    const auto *const row =
        std::find_if(std::begin(kinds), std::end(kinds),
                     [&](const kind_row &r) { return line.words[3] == r.name; });
    if (row == std::end(kinds))
        refuse(line, "the kind \"" + line.words[3] +
                         "\" is none of text, dbcs, packed, zoned, integer, float, hex");
    field.kind = row->kind;
    const bool fits = field.length > 0 && field.length <= row->longest &&
                      (field.kind != field_kind::floating || field.length % 4 == 0) &&
                      (field.kind != field_kind::dbcs || field.length % 2 == 0);
    if (!fits)
        refuse(line, "a " + line.words[3] + " field cannot have " + std::to_string(field.length) +
                         " bytes");
}

void set_sign(const layout_line &line, const std::string &value, layout_field &field) {
    static const std::map<std::string, sign_place> places = {
        {"trailing",          sign_place::trailing         },
        {"leading",           sign_place::leading          },
        {"separate-trailing", sign_place::separate_trailing},
        {"separate-leading",  sign_place::separate_leading },
        {"none",              sign_place::none             },
    };
    const auto found = places.find(value);
    const bool zoned = field.kind == field_kind::zoned;
    const bool plain = field.kind == field_kind::packed || field.kind == field_kind::integer;
    if (found == places.end() || !(zoned || (plain && found->second == sign_place::none)))
        refuse(line, "sign=" + value +
                         " is not possible here; zoned fields have trailing, leading, "
                         "separate-trailing, separate-leading or none, packed and "
                         "integer fields none");
    field.sign = found->second;
    if (field.sign >= sign_place::separate_trailing && field.sign != sign_place::none &&
        field.length < 2)
        refuse(line, "a separate sign needs a field of two bytes at least");
}

void set_option(const layout_line &line, const std::string &word, layout_field &field,
                std::string &code_set) {
    const size_t at = std::min(word.find('='), word.size());
    const std::string key = word.substr(0, at), value = word.substr(std::min(at + 1, word.size()));
    const bool decimal = field.kind == field_kind::packed || field.kind == field_kind::zoned ||
                         field.kind == field_kind::integer;
    if (key == "scale" && decimal)
        field.scale = unsigned(number(line, value, "scale", 31));
    else if (key == "times")
        field.times = unsigned(number(line, value, "times", longest_record));
    else if (key == "sign")
        set_sign(line, value, field);
    else if (key == "codeset" && (field.kind == field_kind::text || field.kind == field_kind::dbcs))
        code_set = value;
    else
        refuse(line, "\"" + word +
                         "\" is not possible here; there are scale=, times=, sign= and "
                         "codeset=");
    if (field.times == 0) refuse(line, "times=0 leaves nothing");
}

// The bytes of a text in a code set; "" without an exact counterpart.
std::string exact_bytes(text_codec &codec, std::string_view text) {
    byte_buffer made;
    route_state st;
    st.leg[0].first_frag = st.leg[1].first_frag = 1;
    const void *const start = text.data();
    const run_result got = run(codec.from_utf8, st, static_cast<const unsigned char *>(start),
                               text.size(), false, made);
    return got.error == KO_OK && got.taken == text.size() ? std::string(made.text()) : "";
}

text_codec *find_codec(const data_place &place, const layout_line &line, const std::string &name,
                       bool double_byte, layout &all) {
    if (name.empty()) refuse(line, "say the code set of text: codeset=NAME here, or -f NAME");
    for (const auto &codec : all.codecs)
        if (codec->to_utf8.from.name == name && codec->double_byte == double_byte)
            return codec.get();
    auto codec = std::make_unique<text_codec>();
    codec->double_byte = double_byte;
    open_needed_route(place, find_code_set(name), utf8_code_set(), codec->to_utf8);
    open_needed_route(place, utf8_code_set(), find_code_set(name), codec->from_utf8);
    codec->blank = exact_bytes(*codec, double_byte ? "\u3000" : " ");
    if (double_byte && codec->blank.size() > 2)
        codec->blank = codec->blank.substr(codec->blank.size() - 2); // after a shift code
    if (codec->blank.empty()) refuse(line, name + " has no blank");
    all.codecs.push_back(std::move(codec));
    return all.codecs.back().get();
}

layout_field read_field(const data_place &place, const layout_line &line, std::string code_set,
                        layout &all) {
    if (line.words.size() < 4) refuse(line, "a line holds NAME OFFSET LENGTH KIND [KEY=VALUE...]");
    layout_field field;
    field.name = line.words[0];
    field.offset = number(line, line.words[1], "offset", longest_record);
    field.length = number(line, line.words[2], "length", longest_record);
    set_kind(line, field);
    for (size_t i = 4; i < line.words.size(); ++i)
        set_option(line, line.words[i], field, code_set);
    if (field.times > longest_record / field.length || field.end() > longest_record)
        refuse(line, "the field ends after byte " + std::to_string(longest_record));
    if (field.name.empty() || field.name[0] == '_') refuse(line, "a name cannot begin with _");
    if (field.kind == field_kind::text || field.kind == field_kind::dbcs)
        field.codec = find_codec(place, line, code_set, field.kind == field_kind::dbcs, all);
    return field;
}
} // namespace

void read_layout(const data_place &place, const std::string &path, const std::string &code_set,
                 layout &all) {
    std::string text;
    if (!kovac::read_whole(path, text)) throw failure(bad_file, "cannot read layout " + path);
    std::istringstream lines(text);
    std::set<std::string> names;
    std::string line;
    for (int count = 1; std::getline(lines, line); ++count) {
        layout_line words{path + ":" + std::to_string(count), {}};
        std::istringstream parts(line.substr(0, line.find('#')));
        for (std::string word; parts >> word;)
            words.words.push_back(word);
        if (words.words.empty()) continue;
        all.fields.push_back(read_field(place, words, code_set, all));
        const layout_field &field = all.fields.back();
        if (!names.insert(field.name).second)
            refuse(words, "there is a field " + field.name + " before");
        if (all.fields.size() > 1 && field.offset < all.fields[all.fields.size() - 2].end())
            refuse(words, "the field begins inside the one before");
        all.length = field.end();
    }
    if (all.fields.empty()) throw failure(bad_usage, path + ": the layout has no field");
}

} // namespace kovacli
