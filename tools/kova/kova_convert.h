// Conversion objects as the commands use them: code sets by name or number, the way from one code
// set to another over one object or two, and conversion in pieces.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kova.h"
#include "kova/kova_locale.h"

namespace kovacli {

struct code_set {
    std::string name;                // as it was asked for
    uint16_t number = KO_NO_CODESET; // for one that the registry lacks
};

// A code set by a name or a number. One that is unknown may still have objects by its name.
code_set find_code_set(const std::string &name);
code_set utf8_code_set();
code_set unicode_code_set();
bool same_code_set(const code_set &a, const code_set &b);

struct registry_entry {
    std::string name;
    uint16_t number = 0;
};
// The registry's entries in its order; none without a registry.
std::vector<registry_entry> registry_entries();

// Bytes that are written over and over, so that the room is kept.
struct byte_buffer {
    std::vector<unsigned char> room;
    size_t used = 0;
    std::string_view text() const { return {reinterpret_cast<const char *>(room.data()), used}; }
};

// An open conversion descriptor; given back with its guard.
struct descriptor {
    ko_cv_t cd = nullptr;
    descriptor() = default;
    descriptor(const descriptor &) = delete;
    ~descriptor() {
        if (cd) ko_cv_unload(cd);
    }
};

// The way from one code set to another.
struct route {
    code_set from, to;
    size_t legs = 0;     // objects on the way; 0: the two are the same code set
    std::string through; // the code set between two legs
    std::array<descriptor, 2> leg;
    std::array<std::string, 2> files; // the objects
    byte_buffer between;
};

// Where a text stands on every leg. All zero is the start of a text.
struct route_state {
    std::array<conv_state, 2> leg{};
};

// Opens the object of the pair or those through "utf8" or "unicode". False when there is no way;
// throws failure for an object that cannot be loaded.
bool open_route(const data_place &place, const code_set &from, const code_set &to, route &way);

// The same where there must be a way: throws failure that tells what could have been meant.
void open_needed_route(const data_place &place, const code_set &from, const code_set &to,
                       route &way);

// Writes the list of code sets and compiled pairs to standard output.
int list_code_sets(const data_place &place);

// What one call of run has done.
struct run_result {
    size_t taken = 0;      // bytes of the source, whole characters; out holds what they become
    int error = 0;         // KO_EILSEQ, KO_EINVAL (cut off) or another reason for taking no more
    bool first_leg = true; // where the error was
    bool substituted = false;
    bool closed = false; // the end of the text is written, with the closing shift if it needs one
};

// Converts what it can of a piece; out holds only its bytes. last says that the text ends with it.
// The state is that behind the bytes taken, whatever ended them.
run_result run(route &way, route_state &st, const unsigned char *text, size_t len, bool last,
               byte_buffer &out);

// The target's shift state.
inline int &target_state(const route &way, route_state &st) {
    return st.leg[way.legs == 2 ? 1 : 0].target_state;
}

// The bytes that end the target's shifted state; "" for a target without one.
std::string closing_shift(route &way);

// The path of a pair's object; "" when there is none.
std::string object_path(const data_place &place, const code_set &from, const code_set &to);

} // namespace kovacli
