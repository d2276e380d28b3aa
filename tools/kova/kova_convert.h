// Conversion objects as the commands use them: code sets by name or number, the route from one code
// set to another through one object or two, and conversion in pieces.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kova.h"
#include "kova/kova_locale.h"
#include "kova_host.h"

namespace kovacli {

struct code_set {
    std::string name;                // as it was asked for
    uint16_t number = KO_NO_CODESET; // if the registry lacks it
};

// Finds a code set by name or number. An unknown one may still have objects under its name.
code_set find_code_set(const std::string &name);
code_set utf8_code_set();
code_set unicode_code_set();
bool is_unicode(const std::string &name); // one of the encodings that need no object
bool same_code_set(const code_set &a, const code_set &b);

struct registry_entry {
    std::string name;
    uint16_t number = 0;
};
// The registry's entries in its order; none without a registry.
std::vector<registry_entry> registry_entries();

// A buffer whose memory is kept when its bytes are overwritten.
struct byte_buffer {
    std::vector<unsigned char> room;
    size_t used = 0;
    std::string_view text() const { return {reinterpret_cast<const char *>(room.data()), used}; }
};

// An open conversion descriptor, released by its guard.
struct descriptor {
    ko_cv_t cd = nullptr;
    descriptor() = default;
    descriptor(const descriptor &) = delete;
    ~descriptor() {
        if (cd) ko_cv_unload(cd);
    }
};

// The route from one code set to another.
struct route {
    code_set from, to;
    size_t legs = 0;     // descriptors on the route; 0: both are the same code set
    std::string through; // the code set between two objects
    std::array<descriptor, 2> leg;
    std::array<std::string, 2> files; // the objects
    byte_buffer between;
};

// The state of a text on every leg. All zero is the start of a text.
struct route_state {
    std::array<conv_state, 2> leg{};
};

// Opens the object of the pair, or those of a route through "utf8" or "unicode"; the encodings of
// Unicode need none between them. flags: KO_CONVERT_..._MARK. False if there is no route; throws
// failure for an object that cannot be loaded.
bool open_route(const data_place &place, const code_set &from, const code_set &to, route &way,
                unsigned flags = KO_CONVERT_KEEP_MARK);

// Opens a route that must exist: throws failure, which tells what could have been meant.
void open_needed_route(const data_place &place, const code_set &from, const code_set &to,
                       route &way, unsigned flags = KO_CONVERT_KEEP_MARK);

// Writes the list of code sets and compiled pairs to a file, or standard output.
int list_code_sets(const data_place &place, bool json, const std::string &path);

// The result of a call of run.
struct run_result {
    size_t taken = 0;      // bytes of the source, in whole characters; out holds their conversion
    int error = 0;         // KO_EILSEQ, KO_EINVAL (cut off) or another reason to stop
    bool first_leg = true; // where the error was
    bool substituted = false;
    bool closed = false; // the end of the text is written, with the closing shift if it needs one
};

// Converts as much of a piece as it can; out then holds only its result. last: the text ends with
// this piece. The state is that after the bytes taken, whatever ended the call.
run_result run(route &way, route_state &st, const unsigned char *text, size_t len, bool last,
               byte_buffer &out);

// The target's shift state.
inline int &target_state(const route &way, route_state &st) {
    return st.leg[way.legs == 2 ? 1 : 0].target_state;
}

// The bytes that end a shifted state of the target; "" if none do.
std::string closing_shift(route &way, int state);
int state_after_closing(const route &way, int state);
bool has_object(const route &way); // and not only rules

// The path of a pair's object; "" if there is none.
std::string object_path(const data_place &place, const code_set &from, const code_set &to);

} // namespace kovacli
