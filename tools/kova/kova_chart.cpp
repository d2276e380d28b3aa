// kova chart: the characters of a code set in grids of 16 by 16.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <utility>

#include "common/tool_text.h"
#include "kova/kova_convert.h"
#include "kova/kova_io.h"
#include "kova/kova_page.h"
#include "kova/kova_text.h"

namespace kovacli {

namespace {

struct chart_job {
    route way;
    bool to_utf16 = false; // the route leads to UTF-16: for utf8 itself
    bool utf8 = false;     // the output
    bool by_rule = false;  // the source's state says more than a shift
    byte_buffer out;
};

enum class slot_kind : uint8_t { none, character, lead, shift_out, shift_in };
struct slot {
    slot_kind kind = slot_kind::none;
    uint32_t code = 0;
};

bool code_of(const chart_job &job, uint32_t &code) {
    const unsigned char *bytes = job.out.room.data();
    if (!job.to_utf16) return utf8_char(bytes, job.out.used, code) > 0;
    code = job.out.used >= 2 ? uint32_t{bytes[0]} << 8 | bytes[1] : 0;
    if (job.out.used == 4)
        code = 0x10000 + ((code & 0x3FF) << 10) + ((uint32_t{bytes[2]} << 8 | bytes[3]) & 0x3FF);
    return job.out.used >= 2;
}

// What bytes are in a given shift state.
slot look_up(chart_job &job, const std::string &bytes, int shifted) {
    route_state st;
    st.leg[0].source_state = shifted;
    const run_result got = run(job.way, st, reinterpret_cast<const unsigned char *>(bytes.data()),
                               bytes.size(), false, job.out);
    if (got.error == KO_EINVAL && got.taken == 0) return {slot_kind::lead};
    if (got.error != KO_OK) return {};
    const int now = job.by_rule ? shifted : st.leg[0].source_state;
    if (now != shifted) return {now ? slot_kind::shift_out : slot_kind::shift_in};
    if (job.out.used == 0) // one that is skipped, or switches by rule
        return {bytes == "\x0E" ? slot_kind::shift_out : slot_kind::shift_in};
    slot found{slot_kind::character};
    return code_of(job, found.code) ? found : slot{};
}

// ---- cells ----

struct code_range {
    uint32_t first, last;
};

bool in_ranges(uint32_t code, const code_range *ranges, size_t count) {
    const code_range *end = ranges + count;
    const code_range *it = std::lower_bound(
        ranges, end, code, [](const code_range &r, uint32_t c) { return r.last < c; });
    return it != end && it->first <= code;
}

// Is a character drawn over the one before it?
bool is_combining(uint32_t code) {
    static constexpr code_range ranges[] = {
        {0x0300, 0x036F},
        {0x0483, 0x0489},
        {0x0591, 0x05BD},
        {0x05BF, 0x05BF},
        {0x05C1, 0x05C2},
        {0x05C4, 0x05C5},
        {0x05C7, 0x05C7},
        {0x0610, 0x061A},
        {0x064B, 0x065F},
        {0x0670, 0x0670},
        {0x06D6, 0x06DC},
        {0x06DF, 0x06E4},
        {0x06E7, 0x06E8},
        {0x06EA, 0x06ED},
        {0x0E31, 0x0E31},
        {0x0E34, 0x0E3A},
        {0x0E47, 0x0E4E},
        {0x1AB0, 0x1AFF},
        {0x1DC0, 0x1DFF},
        {0x20D0, 0x20F0},
        {0x302A, 0x302D},
        {0x3099, 0x309A},
        {0xFE00, 0xFE0F},
        {0xFE20, 0xFE2F}
    };
    return in_ranges(code, ranges, std::size(ranges));
}

// Does a character take two columns on a terminal?
bool is_wide(uint32_t code) {
    static constexpr code_range ranges[] = {
        {0x1100,  0x115F },
        {0x2E80,  0x303E },
        {0x3041,  0xA4CF },
        {0xA960,  0xA97C },
        {0xAC00,  0xD7A3 },
        {0xF900,  0xFAFF },
        {0xFE30,  0xFE6F },
        {0xFF01,  0xFF60 },
        {0xFFE0,  0xFFE6 },
        {0x1F300, 0x1F64F},
        {0x20000, 0x3FFFD}
    };
    return in_ranges(code, ranges, std::size(ranges));
}

// The name of a character that has no shape; NULL for all others.
const char *control_name(uint32_t code) {
    static constexpr const char *low[] = {
        "NUL", "SOH", "STX", "ETX", "EOT", "ENQ", "ACK", "BEL", "BS",  "HT",  "LF",
        "VT",  "FF",  "CR",  "SO",  "SI",  "DLE", "DC1", "DC2", "DC3", "DC4", "NAK",
        "SYN", "ETB", "CAN", "EM",  "SUB", "ESC", "FS",  "GS",  "RS",  "US",  "SP"};
    static constexpr const char *high[] = {
        "DEL", "PAD", "HOP", "BPH", "NBH", "IND", "NEL", "SSA", "ESA", "HTS", "HTJ", "VTS",
        "PLD", "PLU", "RI",  "SS2", "SS3", "DCS", "PU1", "PU2", "STS", "CCH", "MW",  "SPA",
        "EPA", "SOS", "SGC", "SCI", "CSI", "ST",  "OSC", "PM",  "APC", "NBSP"};
    static constexpr std::pair<uint32_t, const char *> others[] = {
        {0x00AD, "SHY" },
        {0x200B, "ZWSP"},
        {0x200C, "ZWNJ"},
        {0x200D, "ZWJ" },
        {0x200E, "LRM" },
        {0x200F, "RLM" },
        {0x202A, "LRE" },
        {0x202B, "RLE" },
        {0x202C, "PDF" },
        {0x202D, "LRO" },
        {0x202E, "RLO" },
        {0x2028, "LSEP"},
        {0x2029, "PSEP"},
        {0x3000, "IDSP"},
        {0xFEFF, "BOM" }
    };
    if (code <= 0x20) return low[code];
    if (code >= 0x7F && code <= 0xA0) return high[code - 0x7F];
    for (const auto &[other, name] : others)
        if (code == other) return name;
    return nullptr;
}

// Private use characters and noncharacters, which nothing can draw.
bool is_shapeless(uint32_t code) {
    return (code >= 0xE000 && code <= 0xF8FF) || code >= 0xF0000 || (code & 0xFFFE) == 0xFFFE ||
           (code >= 0x2000 && code <= 0x200A) || (code >= 0x2060 && code <= 0x206F);
}

std::string hex_code(uint32_t code) { return code_point_text(code).substr(2); }

cell drawn(const chart_job &job, uint32_t code) {
    if (const char *name = control_name(code)) return {name, -1, false, "name"};
    if (!job.utf8 || is_shapeless(code) || kovatool::obeyed_by_terminals(code))
        return {hex_code(code), -1, false, "name"};
    cell drawn_cell{"", is_wide(code) ? 2 : 1};
    if (is_combining(code)) append_utf8(0x25CC, drawn_cell.text);
    append_utf8(code, drawn_cell.text);
    return drawn_cell;
}

cell cell_of(const chart_job &job, const slot &found) {
    switch (found.kind) {
    case slot_kind::character:
        return drawn(job, found.code);
    case slot_kind::lead:
        return {">>", -1, false, "lead"};
    case slot_kind::shift_out:
        return {"SO", -1, false, "name"};
    case slot_kind::shift_in:
        return {"SI", -1, false, "name"};
    default:
        return {"--", -1, false, "none"};
    }
}

// ---- grids ----

std::string upper_hex(const std::string &bytes) {
    std::string text = hex(bytes, " ");
    for (char &c : text)
        if (c >= 'a') c = char(c - 'a' + 'A');
    return text;
}

struct grid_count {
    unsigned characters = 0, leads = 0;
};

// Looks up all characters that begin with these bytes and have one more.
grid_count look_up_grid(chart_job &job, const std::string &lead, int shifted, slot *slots) {
    grid_count count;
    for (unsigned i = 0; i < 256; ++i) {
        slots[i] = look_up(job, lead + char(i), shifted);
        count.characters += slots[i].kind == slot_kind::character;
        count.leads += slots[i].kind == slot_kind::lead;
    }
    return count;
}

std::vector<std::vector<cell>> grid_rows(const chart_job &job, const slot *slots) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::vector<std::vector<cell>> rows(1, {cell{" "}});
    for (size_t column = 0; column < 16; ++column)
        rows[0].push_back({std::string("x") + digits[column]});
    for (size_t row = 0; row < 16; ++row) {
        rows.push_back({cell{std::string(1, digits[row]) + "x"}});
        for (size_t column = 0; column < 16; ++column)
            rows.back().push_back(cell_of(job, slots[16 * row + column]));
    }
    return rows;
}

void write_grid(std::vector<std::vector<cell>> rows, output &out) {
    constexpr int cell_cols = 4; // for the longest name, and for a code point in most sets
    // All grids have the same width, whatever they contain.
    for (size_t column = 1; column <= 16; ++column) {
        cell &head = rows[0][column];
        head.text.append(size_t(cell_cols) - head.text.size(), ' ');
    }
    write_table(out, rows);
}

// ---- leads ----

constexpr size_t longest_character = 4;

struct lead_row {
    std::string bytes;
    int shifted = 0;
    unsigned characters = 0;
    std::array<unsigned, longest_character + 1> of_length{}; // of them, by their bytes
    std::vector<uint32_t> first;
};

// Counts the characters that begin with row.bytes; prefix is these bytes and what was appended.
void count_characters(chart_job &job, const std::string &prefix, lead_row &row) {
    constexpr size_t shown = 10;
    for (unsigned i = 0; i < 256; ++i) {
        const std::string bytes = prefix + char(i);
        const slot found = look_up(job, bytes, row.shifted);
        if (found.kind == slot_kind::lead && bytes.size() < longest_character)
            count_characters(job, bytes, row);
        if (found.kind != slot_kind::character) continue;
        ++row.characters;
        ++row.of_length[bytes.size()];
        if (row.first.size() < shown) row.first.push_back(found.code);
    }
}

bool has_shifts(chart_job &job) {
    for (unsigned i = 0; i < 256; ++i)
        if (look_up(job, std::string(1, char(i)), 0).kind == slot_kind::shift_out) return true;
    return false;
}

std::vector<lead_row> lead_rows(chart_job &job) {
    std::vector<lead_row> rows;
    for (int shifted = 0; shifted <= (has_shifts(job) ? 1 : 0); ++shifted) {
        for (unsigned i = 0; i < 256; ++i) {
            lead_row row{std::string(1, char(i)), shifted};
            if (look_up(job, row.bytes, shifted).kind != slot_kind::lead) continue;
            count_characters(job, row.bytes, row);
            if (row.characters > 0) rows.push_back(row);
        }
    }
    return rows;
}

std::vector<std::vector<cell>> rows_of(const chart_job &job, const std::vector<lead_row> &leads) {
    std::vector<std::vector<cell>> rows = {
        {{"lead"}, {"characters", -1, true}, {"from"}, {"first ones"}}
    };
    for (const lead_row &row : leads) {
        std::string first;
        for (const uint32_t code : row.first)
            first += (first.empty() ? "" : " ") + drawn(job, code).text;
        rows.push_back({
            {upper_hex(row.bytes)          },
            {std::to_string(row.characters), -1, true},
            {code_point_text(row.first[0])                         },
            {first }
        });
    }
    return rows;
}

std::string title(const chart_job &job) {
    const code_set &set = job.way.from;
    const std::string number = std::to_string(set.number);
    return kovatool::printable(set.name) +
           (set.number == KO_NO_CODESET || number == set.name ? "" : " (" + number + ")");
}

// ---- what is known of a code set ----

// The names of a code set beside the one that was given.
std::string aliases_of(const code_set &set) {
    std::string text;
    for (const registry_entry &entry : registry_entries())
        if (entry.number == set.number && entry.name != set.name) text += " " + entry.name;
    return text;
}

// What an object says that it was made from: "charmap IBM037".
std::string source_of(const std::string &path) {
    input in;
    open(in, path);
    more(in);
    const void *const bytes = in.block.data();
    const std::string_view text(static_cast<const char *>(bytes), in.fill);
    const size_t from = text.find("\nFROM=");
    if (from == text.npos) return "";
    const size_t start = from + 6, end = std::min(text.find('\n', start), start + 100);
    return std::string(text.substr(start, end - start));
}

std::string size_text(const grid_count &single, const std::vector<lead_row> &leads) {
    std::array<unsigned, longest_character + 1> count{0, single.characters};
    for (const lead_row &row : leads)
        for (size_t i = 2; i < count.size(); ++i)
            count[i] += row.of_length[i];
    std::string text;
    for (size_t i = 1; i < count.size(); ++i)
        if (count[i] > 0)
            text += (text.empty() ? "" : ", ") + std::to_string(count[i]) + " of " +
                    std::to_string(i) + (i == 1 ? " byte" : " bytes");
    return text;
}

// What is shown of a code set.
struct chart_view {
    std::string title;
    std::vector<std::pair<const char *, std::string>> facts;
    std::vector<std::vector<cell>> grid, leads;                               // empty: none
    std::vector<std::pair<std::string, std::vector<std::vector<cell>>>> more; // grids of leads
};

chart_view describe_set(const chart_job &job, const std::string &size) {
    const std::string aliases = aliases_of(job.way.from);
    const bool built_in = is_unicode(job.way.from.name) || !has_object(job.way);
    chart_view view{.title = title(job)};
    if (!aliases.empty()) view.facts.push_back({"aliases", kovatool::printable(aliases.substr(1))});
    view.facts.push_back(
        {"source", built_in ? "built in" : kovatool::printable(source_of(job.way.files[0]))});
    view.facts.push_back({"characters", size});
    return view;
}

// A page also has room for the grids of the leads whose next byte ends a character.
void add_lead_grids(chart_job &job, const std::vector<lead_row> &leads, chart_view &view) {
    for (const lead_row &row : leads) {
        if (row.of_length[2] == 0) continue;
        slot slots[256];
        look_up_grid(job, row.bytes, row.shifted, slots);
        view.more.push_back({"Lead byte " + upper_hex(row.bytes), grid_rows(job, slots)});
    }
}

// The characters that a code set by rule can write, whatever announces them.
size_t count_written(const data_place &place, const code_set &set) {
    route way;
    byte_buffer made;
    size_t count = 0;
    if (!open_route(place, utf8_code_set(), set, way)) return 0;
    for (uint32_t code = 0; code <= 0x10FFFF; ++code) {
        if (code >= 0xD800 && code <= 0xDFFF) continue;
        std::string text;
        append_utf8(code, text);
        route_state st;
        const void *const start = text.data();
        const run_result got =
            run(way, st, static_cast<const unsigned char *>(start), text.size(), false, made);
        count += got.error == KO_OK && !got.substituted;
    }
    return count;
}

chart_view view_rule(const data_place &place, chart_job &job) {
    slot slots[256];
    look_up_grid(job, "", 0, slots);
    const std::string count = std::to_string(count_written(place, job.way.from));
    chart_view view = describe_set(job, count + ", most of them after escapes");
    view.grid = grid_rows(job, slots);
    return view;
}

chart_view view_all(chart_job &job, bool with_grids) {
    slot slots[256];
    const grid_count count = look_up_grid(job, "", 0, slots);
    if (is_unicode(job.way.from.name) && !job.to_utf16) // in units, of which every byte is a lead
        return describe_set(job, "1112064, all of Unicode");
    const std::vector<lead_row> leads = lead_rows(job);
    chart_view view = describe_set(job, size_text(count, leads));
    if (count.characters > 0) view.grid = grid_rows(job, slots);
    if (!leads.empty()) view.leads = rows_of(job, leads);
    if (with_grids) add_lead_grids(job, leads, view);
    return view;
}

// "81-9F E0-FC".
std::string lead_list(const std::vector<lead_row> &leads) {
    std::string text;
    for (size_t i = 0; i < leads.size();) {
        size_t end = i + 1;
        const auto byte = [&](size_t at) { return unsigned{uint8_t(leads[at].bytes[0])}; };
        while (end < leads.size() && byte(end) == byte(end - 1) + 1)
            ++end;
        text += (text.empty() ? "" : " ") + upper_hex(leads[i].bytes);
        if (end - i > 1) text += "-" + upper_hex(leads[end - 1].bytes);
        i = end;
    }
    return text;
}

std::string parse_lead(const std::string &digits) {
    std::string bytes, plain;
    for (const char c : digits)
        if (c != ' ') plain.push_back(c);
    for (size_t i = 0; i + 1 < plain.size(); i += 2) {
        if (plain.find_first_not_of("0123456789abcdefABCDEF") != plain.npos) break;
        bytes.push_back(char(std::stoi(plain.substr(i, 2), nullptr, 16)));
    }
    if (bytes.empty() || bytes.size() > 3 || 2 * bytes.size() != plain.size())
        throw failure(bad_usage, "--lead: \"" + digits +
                                     "\" is not one to three bytes in hexadecimal, as 81 or 8FA2");
    return bytes;
}

chart_view view_lead(chart_job &job, const std::string &digits) {
    const std::string lead = parse_lead(digits);
    for (int shifted = 0; shifted <= 1; ++shifted) {
        slot slots[256];
        if (look_up(job, lead, shifted).kind != slot_kind::lead) continue;
        const grid_count count = look_up_grid(job, lead, shifted, slots);
        if (count.characters + count.leads == 0) continue;
        return {.title = title(job) + ", lead " + upper_hex(lead), .grid = grid_rows(job, slots)};
    }
    const std::vector<lead_row> leads = lead_rows(job);
    throw failure(bad_usage, job.way.from.name + " has no characters that begin with " +
                                 upper_hex(lead) +
                                 (leads.empty() ? "; all of its characters are single bytes"
                                                : "; its lead bytes are " + lead_list(leads)));
}

constexpr char legend[] = "-- no character, >> first byte of more\n";

void write_view(const chart_view &view, output &out) {
    write(out, view.title + "\n");
    for (const auto &[name, value] : view.facts)
        write(out, name + std::string(11 - std::strlen(name), ' ').replace(0, 1, ":") + " " +
                       value + "\n");
    if (!view.facts.empty()) write(out, "\n");
    if (!view.grid.empty()) write_grid(view.grid, out);
    if (!view.grid.empty() && !view.leads.empty()) write(out, "\n");
    if (!view.leads.empty()) write_table(out, view.leads);
    write(out, legend);
}

void write_view_html(const chart_view &view, output &out) {
    std::string body;
    const auto add = [&body](const std::string &caption, const auto &rows, const char *kind) {
        if (!rows.empty()) body += html_of({.caption = caption, .rows = rows, .kind = kind});
    };
    for (const auto &[name, value] : view.facts)
        body += html_element("p", std::string(name) + ": " + value);
    add("Characters by the high and the low digit of the byte", view.grid, "grid");
    add("First bytes of longer characters", view.leads, "plain");
    for (const auto &[caption, rows] : view.more)
        add(caption, rows, "grid");
    body += html_element("p", "A blank field is no character; >> is the first byte of longer ones.",
                         " class=\"dim\"");
    write_html(out, "Code set " + view.title, body);
}

} // namespace

int run_chart(const common_options &common, const chart_options &options) {
    const data_place place = find_data(common, data_kind::conversions);
    chart_job job;
    job.utf8 = options.html || text_is_utf8(common);
    const code_set set = find_code_set(options.code_set), utf8 = utf8_code_set();
    job.to_utf16 = same_code_set(set, utf8);
    open_needed_route(place, set, job.to_utf16 ? unicode_code_set() : utf8, job.way);
    job.by_rule = !is_unicode(set.name) && !has_object(job.way);
    const chart_view view = !options.lead.empty() ? view_lead(job, options.lead)
                            : job.by_rule         ? view_rule(place, job)
                                                  : view_all(job, options.html);
    output out;
    open(out, options.out);
    if (options.html)
        write_view_html(view, out);
    else
        write_view(view, out);
    finish(out);
    return done;
}

} // namespace kovacli
