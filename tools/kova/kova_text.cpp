// Text between its outer form (UTF-8, or bytes of a locale's code set) and wide characters. The
// mapping comes from the conversion object of the code set, or from its charmap; for "unicode" it
// is UTF-16 itself.
#include "kova/kova_text.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "common/tool_charmap.h"
#include "common/tool_text.h"
#include "kova/kova_convert.h"
#include "kova/kova_platform.h"

namespace kovacli {

bool text_is_utf8(const common_options &common) {
    if (common.form != text_form::by_environment) return common.form == text_form::utf8;
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        std::string folded;
        for (const char c : env_text(name))
            if (c != '-') folded.push_back(c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c);
        if (!folded.empty()) return folded.find("utf8") != folded.npos;
    }
    return unicode_system();
}

bool text_is_utf8(const common_options &common, const locale_handle &handle) {
    if (common.form == text_form::by_environment && is_unicode(handle.object)) return true;
    return text_is_utf8(common);
}

static void learn_leads(codec &code) {
    code.pairs = std::make_unique<std::bitset<65536>>();
    for (unsigned first = 0; first < 256; ++first) {
        ko_mchar_t bytes[4] = {ko_mchar_t(first)};
        if (code.min_len < 2 && (first == 0 || ko_full_mblen(code.loc, bytes, 1) == 1)) {
            code.leads[first] = codec::alone;
            continue;
        }
        for (unsigned second = 0; second < 256; ++second) {
            bytes[1] = ko_mchar_t(second);
            if ((first | second) != 0 && ko_full_mblen(code.loc, bytes, 2) != 2) continue;
            if ((first | second) == 0 && code.min_len < 2) continue;
            code.leads[first] = codec::first_of_two;
            code.pairs->set(first << 8 | second);
        }
    }
}

static bool valid_wide(const codec &code, unsigned wide) {
    if (wide < 256 && code.min_len < 2) return code.leads[wide] == codec::alone;
    return code.leads[wide >> 8] == codec::first_of_two && code.pairs->test(wide);
}

static std::vector<std::string> charmap_dirs(const data_place &place) {
    std::vector<std::string> result;
    const std::string list = env_text("I18NPATH");
    for (size_t at = 0; at < list.size();) {
        const size_t end = std::min(list.find(':', at), list.size());
        if (end > at) result.push_back(list.substr(at, end - at) + "/charmaps");
        at = end + 1;
    }
    if (!place.root.empty()) result.push_back(place.root + "/charmaps");
    result.push_back("/usr/share/i18n/charmaps");
    return result;
}

// The charmap whose name has the same code-set number in the registry; "" for none.
static std::string charmap_of_number(const std::vector<std::string> &dirs, uint16_t number) {
    if (number == KO_NO_CODESET) return "";
    gen_exports scratch = {};
    for (const std::string &dir : dirs) {
        for (const std::string &entry : directory_entries(dir)) {
            const std::string name = entry.substr(0, entry.rfind(".gz"));
            if (name.size() <= 21 && ko_cs_name2cs_num(&scratch, name.c_str(), nullptr) == number)
                return dir + "/" + entry;
        }
    }
    return "";
}

static void keep_pair(codec &code, uint32_t point, uint16_t wide) {
    if (point < 65536)
        code.wide_of[point] = wide;
    else
        code.far_wide_of[point] = wide;
}

static void clear_mapping(codec &code) {
    code.wide_of.assign(65536, 0);
    code.code_of.assign(65536, no_code_point);
    code.far_wide_of.clear();
}

// The directories of conversion objects that belong to those of the locales.
static data_place conversions_of(const data_place &place) {
    if (place.root.empty()) return place; // KO_PATH names the directories of both
    return {
        place.root, {place.root + "/kova/cv9", place.root + "/kova/cv"}
    };
}

// Asks the conversion object for the code point of every character. A character that does not
// convert back maps in this direction only.
static bool map_by_object(const locale_handle &handle, const data_place &place, codec &code) {
    const code_set set{code.code_set, handle.object.number}, utf8 = utf8_code_set();
    const data_place conversions = conversions_of(place);
    if (object_path(conversions, set, utf8).empty()) return false;
    route way;
    try {
        open_route(conversions, set, utf8, way);
    } catch (const failure &) {
        return false; // damaged: use the charmap instead
    }
    clear_mapping(code);
    byte_buffer out;
    std::string bytes;
    for (unsigned wide = 0; wide < 65536; ++wide) {
        if (!valid_wide(code, wide)) continue;
        bytes.clear();
        encode_bytes(code, ko_wchar_t(wide), bytes);
        route_state st;
        const run_result got = run(way, st, reinterpret_cast<const unsigned char *>(bytes.data()),
                                   bytes.size(), false, out);
        uint32_t point = 0;
        if (got.error != KO_OK || out.used == 0 ||
            utf8_char(out.room.data(), out.used, point) != int(out.used))
            continue;
        code.code_of[wide] = point;
        if (!got.substituted) keep_pair(code, point, uint16_t(wide));
    }
    return true;
}

static void keep_mapping(const kovac::charmap &map, codec &code) {
    clear_mapping(code);
    for (const auto &[point, index] : map.by_code) {
        if (point >= kovac::private_code || index >= map.chars.size()) continue;
        const uint16_t wide = map.chars[index].wide;
        if (valid_wide(code, wide)) keep_pair(code, point, wide);
    }
    for (const kovac::charmap_char &c : map.chars)
        if (c.code < kovac::private_code && valid_wide(code, c.wide)) code.code_of[c.wide] = c.code;
}

bool add_mapping(const locale_handle &handle, const data_place &place, codec &code) {
    if (code.mapped || (code.mapped = map_by_object(handle, place, code))) return true;
    const std::vector<std::string> dirs = charmap_dirs(place);
    std::string name = code.code_set;
    for (const std::string &line : handle.object.header)
        if (line.compare(0, 8, "CHARMAP=") == 0) name = line.substr(8);
    if (kovac::names_a_path(name)) name.clear(); // an object must not choose which files are read
    if (kovac::find_file(dirs, name).empty()) name = charmap_of_number(dirs, handle.object.number);
    std::string said;
    kovac::diagnostics diag;
    diag.sink = &said;
    kovac::charmap map;
    if (name.empty()) {
        code.mapping_fault = "there is no charmap of the code set " + code.code_set +
                             " in $I18NPATH/charmaps or /usr/share/i18n/charmaps";
    } else if (!kovac::load_charmap(dirs, name, diag, map)) {
        code.mapping_fault = said.substr(0, said.find('\n'));
    } else {
        keep_mapping(map, code);
        code.mapped = true;
    }
    return code.mapped;
}

// Finds the character that ends a line: byte 10, or the charmap's newline in a code set where byte
// 10 is not a control character.
static void learn_newline(const locale_handle &handle, const data_place &place, codec &code) {
    if (code.utf16 || (valid_wide(code, 'A') && im_iswctype(code.loc, 'A', KO_CT_UPPER))) return;
    if (!add_mapping(handle, place, code))
        throw failure(bad_locale, "which byte ends a line of " + code.code_set +
                                      " is unknown: " + code.mapping_fault +
                                      "; install the charmaps (Debian: package locales)");
    if (code.wide_of['\n']) code.newline = code.wide_of['\n'];
    if (code.wide_of['?']) code.replacement = code.wide_of['?'];
}

void make_codec(const locale_handle &handle, const data_place &place, bool utf8, codec &code) {
    code.loc = handle.loc;
    code.utf8 = utf8;
    code.min_len = std::max(1, ko_mb_loc_min(handle.loc));
    if (const ko_mchar_t *name = ko_nl_langinfo(handle.loc, KO_CODESET))
        code.code_set = reinterpret_cast<const char *>(name);
    if (code.code_set.empty()) code.code_set = handle.object.code_set;
    learn_leads(code);
    std::string folded = code.code_set;
    std::transform(folded.begin(), folded.end(), folded.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
    code.utf16 = code.min_len == 2 && folded == "unicode";
    if (code.utf16) {
        code.mapped = true;
        code.wide_of.resize(65536);
        for (unsigned point = 0; point < 65536; ++point)
            if (valid_wide(code, point)) code.wide_of[point] = uint16_t(point);
        code.replacement = valid_wide(code, 0xFFFD) ? 0xFFFD : '?';
    }
    if (utf8 && !add_mapping(handle, place, code))
        throw failure(bad_locale, "no UTF-8 text under this locale: " + code.mapping_fault +
                                      "; install the charmaps (Debian: package locales) or use "
                                      "--bytes");
    learn_newline(handle, place, code);
}

data_place open_with_codec(const common_options &common, const std::string &locale,
                           locale_handle &handle, codec &code) {
    const data_place data = find_data(common);
    open_locale(data, locale, handle);
    make_codec(handle, data, text_is_utf8(common, handle), code);
    return data;
}

// ---- outer form to wide ----

int utf8_char(const unsigned char *text, size_t len, uint32_t &point) {
    const unsigned first = text[0];
    if (first < 0x80) {
        point = first;
        return 1;
    }
    const int count = first >= 0xF0 && first < 0xF5   ? 4
                      : first >= 0xE0 && first < 0xF0 ? 3
                      : first >= 0xC2 && first < 0xE0 ? 2
                                                      : 0;
    if (count == 0) return 0;
    point = first & (0x7Fu >> count);
    for (int i = 1; i < count; ++i) {
        if (size_t(i) == len) return -1;
        if ((text[i] & 0xC0) != 0x80) return 0;
        point = point << 6 | (text[i] & 0x3Fu);
        // The second byte shows overlong forms, surrogates and values beyond the last plane.
        if (i == 1 && ((count == 3 && (point < 0x20 || (point >= 0x360 && point < 0x380))) ||
                       (count == 4 && (point < 0x10 || point >= 0x110))))
            return 0;
    }
    return count;
}

// Writes a code point. Returns the units, 0 if the code set lacks it.
static size_t put_point(const codec &code, uint32_t point, ko_wchar_t *out) {
    if (point >= 0x10000 && code.utf16) {
        out[0] = ko_wchar_t(0xD800 + ((point - 0x10000) >> 10));
        out[1] = ko_wchar_t(0xDC00 + ((point - 0x10000) & 0x3FF));
        return valid_wide(code, out[0]) && valid_wide(code, out[1]) ? 2 : 0;
    }
    uint16_t wide = 0;
    if (point < 0x10000) {
        wide = code.wide_of[point];
    } else if (const auto it = code.far_wide_of.find(point); it != code.far_wide_of.end()) {
        wide = it->second;
    }
    out[0] = wide;
    return wide || point == 0 ? 1 : 0;
}

size_t utf8_bad_bytes(const unsigned char *text, size_t len) {
    uint32_t point;
    size_t seen = 1;
    while (seen < std::min<size_t>(len, 4) && utf8_char(text, seen, point) < 0)
        ++seen;
    return seen;
}

static void set_bad(bad_character &bad, fault why, const unsigned char *text, size_t at, size_t len,
                    size_t bytes) {
    bad.why = why;
    bad.offset = at;
    bad.len = bytes;
    std::copy_n(text + at, std::min<size_t>({bytes, len - at, 4}), bad.bytes.begin());
}

// Decodes ASCII at the beginning of a text, as far as the code set has it. Returns the units.
static size_t decode_ascii(const codec &code, const unsigned char *text, size_t len,
                           ko_wchar_t *out) {
    const uint16_t *const wide_of = code.wide_of.data();
    size_t units = 0;
    for (; units < len && text[units] < 0x80; ++units) {
        out[units] = wide_of[text[units]];
        if (!out[units] && text[units]) break;
    }
    return units;
}

static size_t decode_utf8(const codec &code, const unsigned char *text, size_t len, ko_wchar_t *out,
                          bad_character &bad) {
    size_t units = 0;
    for (size_t at = 0; at < len;) {
        const size_t run = decode_ascii(code, text + at, len - at, out + units);
        units += run;
        at += run;
        if (at == len) break;
        uint32_t point = 0;
        const int bytes = utf8_char(text + at, len - at, point);
        if (bytes <= 0) {
            const size_t seen = utf8_bad_bytes(text + at, len - at);
            set_bad(bad, bytes ? fault::cut : fault::invalid, text, at, len,
                    bytes ? len - at : std::max<size_t>(seen - 1, 1));
            break;
        }
        const size_t put = put_point(code, point, out + units);
        if (put == 0) {
            set_bad(bad, fault::missing, text, at, len, size_t(bytes));
            bad.code = point;
            break;
        }
        units += put;
        at += size_t(bytes);
    }
    return units;
}

static size_t decode_bytes(const codec &code, const unsigned char *text, size_t len,
                           ko_wchar_t *out, bad_character &bad) {
    size_t units = 0;
    for (size_t at = 0; at < len;) {
        const codec::lead lead = code.leads[text[at]];
        if (lead == codec::alone) {
            out[units++] = text[at++];
            continue;
        }
        if (lead == codec::first_of_two && at + 1 < len) {
            const unsigned wide = unsigned{text[at]} << 8 | text[at + 1];
            if (code.pairs->test(wide)) {
                out[units++] = ko_wchar_t(wide);
                at += 2;
                continue;
            }
        }
        // If every character has two bytes, a bad one has two as well.
        const bool cut = (lead == codec::first_of_two || code.min_len == 2) && at + 1 == len;
        set_bad(bad, cut ? fault::cut : fault::invalid, text, at, len,
                !cut && code.min_len == 2 ? 2 : 1);
        break;
    }
    return units;
}

size_t decode(const codec &code, const unsigned char *text, size_t len, ko_wchar_t *out,
              bad_character &bad) {
    bad = {};
    return code.utf8 ? decode_utf8(code, text, len, out, bad)
                     : decode_bytes(code, text, len, out, bad);
}

bool decode_text(const codec &code, std::string_view text, bool replace,
                 std::vector<ko_wchar_t> &out, bad_character &bad, uint64_t *replaced) {
    out.resize(text.size());
    const unsigned char *bytes = reinterpret_cast<const unsigned char *>(text.data());
    bad_character first;
    size_t units = 0;
    for (size_t at = 0; at < text.size();) {
        units += decode(code, bytes + at, text.size() - at, out.data() + units, bad);
        if (bad.why == fault::none) break;
        bad.offset += at;
        if (first.why == fault::none) first = bad;
        if (!replace) break;
        at = bad.offset + bad.len;
        out[units++] = code.replacement;
        if (replaced) ++*replaced;
    }
    out.resize(units);
    bad = first;
    return replace || bad.why == fault::none;
}

// ---- wide to outer form ----

// Writes at most four bytes; returns their end.
static char *put_utf8(uint32_t point, char *to) {
    const int more = point < 0x80 ? 0 : point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    static constexpr unsigned char first[] = {0, 0xC0, 0xE0, 0xF0};
    *to++ = char(first[more] | point >> (6 * more));
    for (int shift = 6 * (more - 1); shift >= 0; shift -= 6)
        *to++ = char(0x80 | (point >> shift & 0x3F));
    return to;
}

void append_utf8(uint32_t point, std::string &out) {
    char bytes[4];
    out.append(bytes, put_utf8(point, bytes));
}

static char *put_bytes(const codec &code, ko_wchar_t wide, char *to) {
    if (wide > 0xFF || code.min_len == 2) *to++ = char(wide >> 8);
    *to++ = char(wide & 0xFF);
    return to;
}

void encode_bytes(const codec &code, ko_wchar_t wide, std::string &out) {
    char bytes[2];
    out.append(bytes, put_bytes(code, wide, bytes));
}

uint32_t code_point(const codec &code, ko_wchar_t wide) {
    if (code.utf16) return (wide & 0xF800) == 0xD800 ? no_code_point : wide;
    return code.code_of.empty() ? no_code_point : code.code_of[wide];
}

bool is_pair(const ko_wchar_t *wide, size_t count) {
    return count >= 2 && (wide[0] & 0xFC00) == 0xD800 && (wide[1] & 0xFC00) == 0xDC00;
}

uint32_t point_of_pair(const ko_wchar_t *pair) {
    return 0x10000 + ((pair[0] & 0x3FFu) << 10) + (pair[1] & 0x3FFu);
}

void encode(const codec &code, const ko_wchar_t *wide, size_t count, std::string &out) {
    const size_t before = out.size();
    out.resize(before + 4 * count);
    char *to = &out[before];
    for (size_t i = 0; i < count; ++i) {
        if (!code.utf8) {
            to = put_bytes(code, wide[i], to);
        } else if (code.utf16 && is_pair(wide + i, count - i)) {
            to = put_utf8(point_of_pair(wide + i), to);
            ++i;
        } else {
            const uint32_t point = code_point(code, wide[i]);
            to = put_utf8(point == no_code_point ? 0xFFFD : point, to);
        }
    }
    out.resize(size_t(to - out.data()));
}

// Would a terminal obey a character? Without a mapping only ASCII is known.
static bool is_obeyed(const codec &code, ko_wchar_t wide) {
    const uint32_t point = code_point(code, wide);
    if (point != no_code_point) return kovatool::obeyed_by_terminals(point);
    return !code.mapped && wide < 0x80 && kovatool::obeyed_by_terminals(wide);
}

std::string visible(const codec &code, const std::string &text, std::string_view keep) {
    if (code.utf8) return kovatool::printable(text, keep);
    std::vector<ko_wchar_t> wide;
    bad_character bad;
    decode_text(code, text, true, wide, bad, nullptr);
    for (ko_wchar_t &c : wide) {
        const uint32_t point = code.mapped ? code_point(code, c) : c;
        const bool kept = point < 0x80 && keep.find(char(point)) != keep.npos;
        if (!kept && is_obeyed(code, c)) c = code.replacement;
    }
    std::string shown;
    encode(code, wide.data(), wide.size(), shown);
    return shown;
}

std::string for_terminal(const codec &code, const std::string &text) {
    return is_terminal(stdout) ? visible(code, text, "\n\t") : text;
}

// ---- messages ----

std::string hex(std::string_view bytes, const char *separator) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * (2 + std::strlen(separator)));
    for (const char c : bytes) {
        if (!out.empty()) out += separator;
        out.push_back(digits[uint8_t(c) >> 4]);
        out.push_back(digits[c & 15]);
    }
    return out;
}

std::string code_point_text(uint32_t code_point) {
    std::string text = "U+";
    const int first = code_point > 0xFFFFF ? 20 : code_point > 0xFFFF ? 16 : 12;
    for (int shift = first; shift >= 0; shift -= 4)
        text.push_back("0123456789ABCDEF"[code_point >> shift & 15]);
    return text;
}

std::string describe(const codec &code, const bad_character &bad) {
    if (bad.why == fault::missing) {
        std::string text = code.code_set + " has no character " + code_point_text(bad.code);
        if (bad.code >= 0xA0) {
            text += " (";
            append_utf8(bad.code, text);
            text += ")";
        }
        return text;
    }
    const std::string_view bytes(reinterpret_cast<const char *>(bad.bytes.data()),
                                 std::min<size_t>(bad.len, 4));
    const std::string form = code.utf8 ? "UTF-8" : code.code_set;
    if (bad.why == fault::cut)
        return "the text ends inside a character of " + form + " (" + hex(bytes, " ") + ")";
    return (bytes.size() == 1 ? "the byte " : "the bytes ") + hex(bytes, " ") +
           (bytes.size() == 1 ? " does not begin a character of " : " are not a character of ") +
           form;
}

std::string hint(const codec &code, const bad_character &bad) {
    if (bad.why == fault::missing) return "; a locale of the code set unicode has it";
    if (code.utf8) return "; --bytes takes texts in " + code.code_set;
    return "; --utf8 takes texts in UTF-8";
}

std::vector<ko_wchar_t> decode_argument(const codec &code, const std::string &text,
                                        const std::string &what) {
    std::vector<ko_wchar_t> wide;
    bad_character bad;
    if (decode_text(code, text, false, wide, bad, nullptr)) return wide;
    throw failure(bad_text, what + ": byte offset " + std::to_string(bad.offset) + ": " +
                                describe(code, bad) + hint(code, bad));
}

size_t distance(const std::string &a, const std::string &b) {
    std::vector<size_t> before, last(b.size() + 1), row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        before = std::exchange(last, row);
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t changed = last[j - 1] + (a[i - 1] != b[j - 1]);
            row[j] = std::min({changed, last[j] + 1, row[j - 1] + 1});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) row[j] = std::min(row[j], before[j - 2] + 1);
        }
    }
    return row[b.size()];
}

} // namespace kovacli
