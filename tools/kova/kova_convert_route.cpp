// Code sets, their conversion objects, and conversion in pieces through one object or two.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <set>

#include "kova/kova_convert.h"
#include "kova/kova_locale.h"
#include "kova/kova_platform.h"

namespace kovacli {

// ---- code sets ----

code_set find_code_set(const std::string &name) {
    if (name.empty()) return {name, KO_NO_CODESET};
    const bool registered = code_set_number(name) != KO_NO_CODESET; // reads the registry once
    if (!registered) refuse_path("code set", name);
    const int number = ko_codeset_number(nullptr, name.c_str());
    return {name, number < 0 ? uint16_t(KO_NO_CODESET) : uint16_t(number)};
}
code_set utf8_code_set() { return find_code_set("utf8"); }
code_set unicode_code_set() { return find_code_set("unicode"); }

bool same_code_set(const code_set &a, const code_set &b) {
    return a.number == b.number && (a.number != KO_NO_CODESET || a.name == b.name);
}

// The encodings of Unicode are converted without objects.
static bool is_unicode(int number) {
    static const std::set<int> numbers = [] {
        std::set<int> found;
        for (const char *name : {"utf8", "unicode", "utf16le", "utf16", "utf32be", "utf32le"})
            found.insert(ko_codeset_number(nullptr, name));
        return found;
    }();
    return numbers.contains(number);
}
static bool is_unicode(const code_set &set) { return is_unicode(set.number); }

bool is_unicode(const std::string &name) {
    return is_unicode(ko_codeset_number(nullptr, name.c_str()));
}

static std::string lower_case(std::string text) {
    for (char &c : text)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return text;
}

std::vector<registry_entry> registry_entries() {
    std::vector<registry_entry> result;
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(open_registry(), std::fclose);
    if (!file) return result;
    char line[512];
    while (std::fgets(line, sizeof line, file.get())) {
        char name[24] = {};
        unsigned number = 0;
        if (line[0] == '#' || std::sscanf(line, " %21s %u", name, &number) != 2 || name[0] == '#' ||
            number > 0xFFFF)
            continue;
        result.push_back({lower_case(name), uint16_t(number)});
    }
    if (std::ferror(file.get())) throw unreadable_registry();
    return result;
}

// ---- objects ----

static constexpr const char *no_object = "no object is needed";

static void release(descriptor &leg) {
    if (leg.cd) ko_cv_unload(leg.cd);
    leg.cd = nullptr;
}

static bool by_number(const code_set &from, const code_set &to) {
    return from.number != KO_NO_CODESET && to.number != KO_NO_CODESET;
}

// Can a name be part of a file name?
static bool is_plain(const std::string &name) {
    return !name.empty() && name.find_first_of("/\\:") == name.npos;
}

static std::string existing(const data_place &place, const std::string &file) {
    for (const std::string &dir : place.dirs)
        if (is_regular_file(dir + "/" + file)) return dir + "/" + file;
    return "";
}

std::string object_path(const data_place &place, const code_set &from, const code_set &to) {
    if (by_number(from, to)) {
        char file[14];
        gen_exports scratch = {};
        ko_cs_nums2cv_fname(&scratch, from.number, to.number, file, nullptr);
        if (const std::string path = existing(place, file); !path.empty()) return path;
    }
    if (!is_plain(from.name) || !is_plain(to.name)) return "";
    return existing(place, from.name + "_" + to.name + ".cvo");
}

// Opens what converts a pair in one step. False if there is nothing.
static bool open_leg(const data_place &place, const code_set &from, const code_set &to,
                     unsigned flags, descriptor &leg, std::string &path) {
    release(leg);
    path = object_path(place, from, to);
    int error = KO_ENOCONV;
    if (by_number(from, to))
        error = ko_open_conversion(&leg.cd, nullptr, std::to_string(from.number).c_str(),
                                   std::to_string(to.number).c_str(), flags | KO_CONVERT_DIRECT);
    if (error == KO_ENOCONV) { // its object goes by names
        if (path.empty()) return false;
        const std::string file = path.substr(path.find_last_of('/') + 1);
        if (ko_iconv_open1(&leg.cd, file.c_str()) == 0) return true;
        error = *ko_ext_errno(leg.cd);
    }
    if (path.empty()) path = no_object;
    if (error == KO_OK) return true;
    if (error == KO_ENOMEM) throw std::bad_alloc();
    throw failure(bad_locale, path + " is damaged or not a conversion object (error " +
                                  std::to_string(error) + "); compile it again with kovac convert");
}

// The way through utf8 that the library opens by itself. False if there is none; the steps then say
// why.
static bool open_whole(const data_place &place, const code_set &middle, unsigned flags,
                       route &way) {
    release(way.leg[0]);
    if (!same_code_set(middle, utf8_code_set()) || !by_number(way.from, way.to) ||
        ko_open_conversion(&way.leg[0].cd, nullptr, std::to_string(way.from.number).c_str(),
                           std::to_string(way.to.number).c_str(), flags) != KO_OK)
        return false;
    way.files = {object_path(place, way.from, middle), object_path(place, middle, way.to)};
    for (std::string &file : way.files)
        if (file.empty()) file = no_object;
    way.legs = 1;
    return true;
}

bool open_route(const data_place &place, const code_set &from, const code_set &to, route &way,
                unsigned flags) {
    way.from = from;
    way.to = to;
    way.legs = 0;
    if (same_code_set(from, to) && !is_unicode(from)) return true;
    way.legs = 1;
    if (open_leg(place, from, to, flags, way.leg[0], way.files[0])) return true;
    way.legs = 2;
    for (const code_set &middle : {utf8_code_set(), unicode_code_set()}) {
        if (same_code_set(from, middle) || same_code_set(to, middle)) continue;
        way.through = middle.name;
        if (open_whole(place, middle, flags, way)) return true;
        if (open_leg(place, from, middle, flags & ~unsigned{KO_CONVERT_WRITE_MARK}, way.leg[0],
                     way.files[0]) &&
            open_leg(place, middle, to, flags | KO_CONVERT_KEEP_MARK, way.leg[1], way.files[1]))
            return true;
    }
    way.legs = 0;
    way.through.clear();
    return false;
}

// ---- conversion ----

static constexpr size_t longest_piece = size_t{1} << 20;

static void make_room(byte_buffer &out, size_t bytes) {
    if (out.room.size() < bytes) out.room.resize(bytes);
}

namespace {
struct leg_result {
    size_t taken = 0;
    int error = 0;
    bool substituted = false;
};
} // namespace

// Converts into at most the given room; after KO_E2BIG the shift states may have changed.
static leg_result convert_into(ko_cv_t cd, conv_state &st, const unsigned char *text, size_t len,
                               unsigned char *out, size_t &room) {
    const ko_mchar_t *in = text;
    ko_mchar_t *to = out;
    int left = int(len), space = int(room), substituted = 0;
    *ko_ext_errno(cd) = KO_OK;
    const int result = ko_cv_mconv(cd, &st, &in, &left, &to, &space, &substituted);
    int error = result == 0 ? int{KO_OK} : *ko_ext_errno(cd);
    if (result != 0 && error == KO_OK) error = KO_EILSEQ;
    room = size_t(to - out);
    return {size_t(in - text), error, substituted != 0};
}

// Converts with as much room as is needed.
static leg_result convert_leg(ko_cv_t cd, conv_state &st, const unsigned char *text, size_t len,
                              bool last, byte_buffer &out) {
    out.used = 0;
    if (len == 0) return {};
    const conv_state before = st;
    make_room(out, size_t(ko_cv_outbuflen(cd, int(len))) + 16);
    for (;;) {
        st = before;
        st.last_frag = last ? 1 : 0;
        out.used = out.room.size();
        const leg_result done = convert_into(cd, st, text, len, out.room.data(), out.used);
        if (done.error != KO_E2BIG) {
            st.first_frag = 0;
            return done;
        }
        if (out.room.size() > 64 * longest_piece) throw std::bad_alloc();
        out.room.resize(2 * out.room.size());
    }
}

// Bytes of the first leg's source before the character whose output begins at made or contains it.
static size_t source_of(route &way, conv_state st, const unsigned char *text, size_t len,
                        size_t made) {
    size_t room = made;
    make_room(way.between, made + 1);
    return convert_into(way.leg[0].cd, st, text, len, way.between.room.data(), room).taken;
}

static run_result run_both(route &way, route_state &st, const unsigned char *text, size_t len,
                           bool last, byte_buffer &out) {
    const conv_state before = st.leg[0];
    const leg_result one = convert_leg(way.leg[0].cd, st.leg[0], text, len, last, way.between);
    const bool ends = last && one.error == KO_OK && way.between.used > 0;
    const leg_result two =
        convert_leg(way.leg[1].cd, st.leg[1], way.between.room.data(), way.between.used, ends, out);
    if (two.error == KO_OK)
        return {one.taken, one.error, true, one.substituted || two.substituted, ends};
    // The first leg went too far: set it back to the character at which the second stopped.
    const size_t taken = source_of(way, before, text, one.taken, two.taken);
    void *const mark = st.leg[0].ext_state; // what the start of the text said holds for all of it
    st.leg[0] = before;
    const leg_result again = convert_leg(way.leg[0].cd, st.leg[0], text, taken, false, way.between);
    st.leg[0].first_frag = 0;
    st.leg[0].ext_state = mark;
    return {taken, KO_EILSEQ, false, again.substituted || two.substituted, false};
}

run_result run(route &way, route_state &st, const unsigned char *text, size_t len, bool last,
               byte_buffer &out) {
    if (len > longest_piece) {
        len = longest_piece;
        last = false;
    }
    out.used = 0;
    if (way.legs == 2) return run_both(way, st, text, len, last, out);
    if (way.legs == 1) {
        const leg_result one = convert_leg(way.leg[0].cd, st.leg[0], text, len, last, out);
        return {one.taken, one.error, true, one.substituted, last && one.error == KO_OK && len > 0};
    }
    make_room(out, len);
    std::copy_n(text, len, out.room.begin());
    out.used = len;
    return {len, KO_OK, true, false, last};
}

// What conversion from a shift state writes before a null character.
// A null character is none of the digits of UTF-7 and ends them by itself; what follows here may be
// one.
static std::string end_of_digits(const route &way, int state) {
    constexpr uint16_t utf7 = 57506;
    return way.to.number == utf7 && (state & 1) ? "-" : "";
}

std::string closing_shift(route &way, int state) {
    static constexpr unsigned char zeros[4] = {};
    byte_buffer plain, shifted;
    for (const size_t len : {size_t{1}, size_t{2}, size_t{4}}) {
        if (way.legs == 0 || state == 0) break;
        route_state st;
        target_state(way, st) = state;
        const run_result one = run(way, st, zeros, len, false, shifted);
        const run_result two = run(way, st, zeros, len, false, plain);
        if (one.error != KO_OK || two.error != KO_OK) continue;
        const std::string_view whole = shifted.text();
        if (whole.size() > plain.used && whole.substr(whole.size() - plain.used) == plain.text())
            return std::string(whole.substr(0, whole.size() - plain.used)) +
                   end_of_digits(way, state);
        break;
    }
    return "";
}

int state_after_closing(const route &way, int state) {
    constexpr uint16_t korean = 57502; // whose announcement stands once, and closing writes it
    constexpr int announced = 1 << 17;
    return way.to.number == korean && state != 0 ? announced : 0;
}

bool has_object(const route &way) { return !way.files.empty() && way.files[0] != no_object; }

} // namespace kovacli
