// Code-set conversion: the characters of a code set from its various sources, and the conversion
// object of a pair of code sets.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/tool_charmap.h"
#include "common/tool_source.h"
#include "kovac/kovac_registry.h"

namespace kovac {

// ---- code sets ----

// The bytes of one character; ordered as the tables list them.
struct char_bytes {
    bool shifted = false; // it is between the shift codes of a stateful code set
    uint8_t len = 0;      // 1 to 4
    uint32_t value = 0;   // big-endian
    auto operator<=>(const char_bytes &) const = default;
};
constexpr uint8_t max_char_bytes = 4;

enum class set_form : uint8_t { listed, unicode, utf8 };

struct conv_set {
    std::vector<std::string> names; // of files, the established one first
    int number = no_number;
    std::string origin; // the source of the characters, for the object's header
    set_form form = set_form::listed;
    bool stateful = false;
    unsigned char shift_out = 0x0E; // enters the shifted state
    unsigned char shift_in = 0x0F;  // ends it
    int sequences = 0;              // characters of several code points, left out
    uint32_t last = 0x10FFFF;       // the last code point to ask for
    // The two directions of a listed set; what only one of them has converts in that direction
    // only.
    std::map<char_bytes, uint32_t> codes;
    std::unordered_map<uint32_t, char_bytes> bytes;
    std::vector<bool> built_in; // by code point: which characters a built-in form has
};

// The bytes of a code point, len 0 if the set lacks it; the code point of bytes, or no_code.
char_bytes bytes_of(const conv_set &set, uint32_t code);
uint32_t code_of(const conv_set &set, char_bytes bytes);

// How a source relates bytes and a code point; the values are those of mapping files.
enum class tie : uint8_t { both = 0, to_bytes = 1, substitute = 2, to_code = 3, either = 4 };

// Collects a listed code set. A tie that holds both ways takes precedence over one-way ties; among
// equals, the first does.
struct set_builder {
    conv_set *set;
    std::map<char_bytes, int> code_ranks;
    std::unordered_map<uint32_t, int> bytes_ranks;
    void add(char_bytes bytes, uint32_t code, tie kind);
};

// Adds a name for file names. False if it cannot be part of one.
bool add_name(conv_set &set, const std::string &name);

// Adds the null character, with which strings end, if the source lacks it.
void complete_set(conv_set &set);

constexpr uint32_t last_code = 0x10FFFF;
constexpr uint32_t last_bmp_code = 0xFFFF;
constexpr uint32_t last_smp_code = 0x1FFFF; // with the plane of the emoji
constexpr uint32_t last_sip_code = 0x2FFFF; // with the plane of rare ideographs
constexpr uint32_t scalars = 0x110000 - 0x800;
constexpr bool is_scalar(uint32_t code) {
    return code <= last_code && (code < 0xD800 || code > 0xDFFF);
}

// The bytes of a code point in a built-in form.
char_bytes unicode_bytes(uint32_t code);
char_bytes utf8_bytes(uint32_t code);

enum class convert_status { done = 0, source = 1, usage = 2, file = 3 }; // also the exit status

// Finds a code set by registry name, charmap name, file, or name of the C library's converter, in
// this order; "unicode" and "utf8" are built in. Reports what is wrong.
convert_status load_set(const std::vector<std::string> &charmap_dirs, const std::string &name,
                        const registry *numbers, diagnostics &diag, conv_set &set);

// Reads a mapping file or a mapping table in UCM form. False after an error.
bool is_ucm(std::string_view text);
bool read_mapping(const source_file &file, diagnostics &diag, conv_set &set);
bool read_ucm(const source_file &file, diagnostics &diag, conv_set &set);

// ---- sources ----

constexpr int first_private_number = 0xE000; // below are established numbers

// Which characters of a source are taken: all, or only those of one or of two bytes.
enum class set_part : uint8_t { whole, single, pairs };
enum class source_kind : uint8_t { charmap, libc, icu };

// A row of data/mappings.list, whose comment explains it.
struct set_source {
    int number = no_number;
    source_kind kind = source_kind::charmap;
    std::string name; // in the source
    set_part part = set_part::whole;
    bool ascii_controls = false, euro = false;
    bool all = false; // every code point has bytes
};
const std::vector<set_source> &set_sources();
const set_source *source_of(int number); // null if the list has no row

// Changes what was read as the row says.
void change_set(conv_set &set, const set_source &source);

// Makes a part independent: without shift codes and shifted state.
void take_part(conv_set &set, set_part part);

// Reads a charmap by its name, with the mappings of data/fallbacks.inc. False after an error.
bool read_charmap_set(const std::vector<std::string> &dirs, const std::string &name,
                      diagnostics &diag, conv_set &set);

// Ask the converter of the running C library, and that of ICU, for every character. False if it
// cannot be written as a table, with *why, or if there is none of that name; *why is then empty.
bool read_libc_set(const std::string &name, conv_set &set, std::string *why);
bool read_icu_set(const std::string &name, conv_set &set, std::string *why);
bool has_icu(); // was kovac built with it?

// A converter that is asked for one character at a time, from its initial state.
enum class asked : uint8_t { character, several, incomplete, invalid };
struct set_asker {
    std::function<asked(const std::string &bytes, uint32_t *code)> code;
    std::function<bool(uint32_t code, std::string &bytes)> bytes; // shift codes included
    std::vector<std::pair<uint32_t, uint32_t>> ranges;            // code points to ask for
};
void read_by_asking(const set_asker &ask, const std::string &name, conv_set &set);

// Says on a terminal how far a step has come that takes longer than a second.
struct progress {
    std::string what;
    double next = 0; // when to say it
    bool shown = false;
};
void show_progress(progress &p, size_t done, size_t total);
void begin_progress(progress &p); // at once, for a step that cannot be divided
void end_progress(progress &p);

// Corrects the charmap of a host code set, found by a name, where another source holds; says so.
void correct_charmap(const std::string &name, charmap &map, diagnostics &diag);

// Warns of the characters in which other sources differ from that of the set; notes list them.
void compare_sources(const conv_set &set, const std::vector<std::string> &charmap_dirs,
                     diagnostics &diag);

// Fills a built-in form with the characters of its peer; with everything, also with the whole basic
// plane.
void fill_builtin(conv_set &set, const conv_set &peer, uint32_t last, bool everything);

// ---- conversion objects ----

// Bits of an entry's first byte; the low three count its target bytes.
enum entry_flag : uint8_t {
    entry_terminator = 0x08,
    entry_plain = 0x10,
    entry_substitute = 0x20,
    entry_shifted = 0x40,
    entry_shift_code = 0x80,
};

struct conv_entry {
    char_bytes source;
    char_bytes target; // len 0: none
    uint8_t flags;
    uint32_t code; // no_code for a shift code or an undefined byte
};

using conv_table = std::unique_ptr<void, void (*)(void *)>;

struct conv_object {
    const conv_set *from = nullptr, *to = nullptr;
    std::vector<conv_entry> entries; // what converts, ascending by source
    std::vector<std::pair<char_bytes, uint32_t>> unmapped;
    int target_min = 0, target_max = 0;
    int shift_min = 0, shift_max = 0, noshift_min = 0, noshift_max = 0;
    bool checks = true;
    float ratio = 1; // of lengths, shift codes included
    conv_table noshift{nullptr, nullptr}, shift{nullptr, nullptr};
};

// Makes the object of a pair. substitute (len 0: none) is the target of characters without a
// mapping. False after an error.
bool make_object(const conv_set &from, const conv_set &to, char_bytes substitute, diagnostics &diag,
                 conv_object &object);

// The bytes that an object's tables give for a character; len 0 if it is unmapped.
char_bytes convert_char(const conv_object &object, char_bytes source);

// Proves with the tables of both directions that every character without the substitution flag
// comes back. Appends those with the flag to lines as text, unless it is null. False if one that
// should come back does not.
bool prove_round_trips(const conv_object &forth, const conv_object &back, diagnostics &diag,
                       std::vector<std::string> *lines);

// Writes the object below root under its numbers and names. *path is the first of them.
convert_status write_object_files(const std::string &root, const conv_object &object,
                                  diagnostics &diag, std::string *path);

// ---- kovac convert ----

struct convert_options {
    std::string from, to, root, substitute, registry_file;
    std::vector<std::string> from_names, to_names; // further names of files
    bool both = false, report = false, supplementary = false, verbose = false;
};

convert_status run_convert(const convert_options &opt, const std::vector<std::string> &charmap_dirs,
                           diagnostics &diag);

} // namespace kovac
