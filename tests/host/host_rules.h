// Code sets that convert by rule, with small objects of those that have their characters, and
// conversion in pieces.
#ifndef HOST_RULES_H
#define HOST_RULES_H

#include "host/host_roots.h"

#include <algorithm>
#include <random>

struct small_pair {
    std::string bytes, text;
};

// A few characters, with ASCII unless the first is of its bytes; those of two bytes are between
// shift codes if there are such.
inline std::string small_conversion(const std::vector<small_pair> &pairs, bool to_utf8, bool shifts,
                                    int min = 1) {
    cv_object object;
    object.min = min;
    object.target_max = object.max = 4;
    object.ratio = "4";
    const auto add = [&](const std::string &bytes, const std::string &text) {
        const bool shifted = shifts && bytes.size() == 2;
        const unsigned flags =
            (text[0] ? cv_plain : cv_terminator) | (shifted && !to_utf8 ? cv_shifted_target : 0);
        auto &entries = shifted && to_utf8 ? object.shift : object.noshift;
        entries.push_back({to_utf8 ? bytes : text, flags, to_utf8 ? text : bytes});
    };
    const bool ascii = pairs.empty() || static_cast<uint8_t>(pairs[0].bytes[0]) >= 0x80;
    for (int c = 0; ascii && c < 128; ++c)
        if (!shifts || (c != 0x0E && c != 0x0F)) add({char(c)}, {char(c)});
    for (const small_pair &pair : pairs)
        add(pair.bytes, pair.text);
    if (shifts && to_utf8) {
        object.source_stateful = 1;
        object.shifts = "0010e10f";
        object.max = 1;
        object.shift_min = object.shift_max = 2;
        object.noshift.push_back({"\x0E", cv_source_shift, ""});
        object.shift.push_back({"\x0F", cv_source_shift, ""});
    } else if (shifts) {
        object.target_stateful = 1;
        object.shifts = "10e10f00";
    }
    return object.str();
}

struct rules_root : small_root {
    rules_root() {
        write("kova/cm3/registry",
              "utf8 57372\niso-2022-jp 57499\niso-2022-jp-1 57500\niso-2022-jp-2 57501\n"
              "iso-2022-kr 57502\niso-2022-cn 57503\niso-2022-cn-ext 57504\nhz 57505\nutf-7 57506\n"
              "imap 57507\niso-2022-jp-3 57508\niso-ir-165 57509\ncp50221 50221\ngb18030 "
              "1392\nsjis-2004 57491\neuc-2004 57418\nhkscs 1375\nibm1399 "
              "1399\n");
        add(5050, {
                      {"\xA4\xAB",     "か"},
                      {"\x8E\xB1",     "ｱ"},
                      {"\x8F\xB0\xA1", "丂"}
        });
        add(970, {
                     {"\xB0\xA1", "가"}
        });
        add(819, {
                     {"\xA0", "\u00A0"},
                     {"\xE9", "é"    }
        });
        add(813, {
                     {"\xDC", "ά"}
        });
        add(57357, {
                       {"\xD6\xD0", "中"}
        });
        add(57375, {
                       {"\xC4\xE3",         "丂"},
                       {"\x8E\xA2\xA1\xA1", "乂"},
                       {"\x8E\xA7\xA1\xA2", "乃"}
        });
        add(57509, {
                       {"+!", "ɑ"}
        });
        std::vector<small_pair> windows = {
            {"\x82\xA9", "か"},
            {"\xB1",     "ｱ"},
            {"\x87\x40", "①"},
            {"\xFA\x5C", "纊"}
        };
        add(943, windows);
        windows.back().bytes = "\xED\x40"; // where both places are read
        write("kova/cv9/03afe01c.cvo", small_conversion(windows, true, false));
        add(1392, {
                      {"\xD6\xD0",         "中"   },
                      {"\x81\x30\x81\x30", "\u0080"}
        });
        for (const int number : {57491, 57418, 1375, 1399})
            add(number,
                {
                    {number == 57491   ? "\x82\xA9"
                     : number == 57418 ? "\xA4\xAB"
                                       : "\x88\xA7",
                     "か"                                                    },
                    {number == 57491 ? "\x85\x85" : "\xA9\xC2",           "Ê"}
            },
                number == 1399);
    }
    void add(int number, const std::vector<small_pair> &pairs, bool shifts = false, int min = 1) {
        char name[32];
        snprintf(name, sizeof name, "kova/cv9/%04xe01c.cvo", unsigned(number));
        write(name, small_conversion(pairs, true, shifts, min));
        snprintf(name, sizeof name, "kova/cv9/e01c%04x.cvo", unsigned(number));
        write(name, small_conversion(pairs, false, shifts, min));
    }
};

// ---- Converting in pieces ----

struct outcome {
    std::string made;
    size_t taken;
    int error;
    bool operator==(const outcome &) const = default;
};
inline std::ostream &operator<<(std::ostream &to, const outcome &o) {
    return to << hex(o.made) << " of " << o.taken << " bytes, error " << o.error;
}

// One call, for the next piece; with measure nothing is written.
inline outcome convert_piece(ko_cv_t cd, conv_state *st, std::string_view text, size_t room,
                             bool measure = false) {
    std::vector<ko_mchar_t> copy(text.begin(), text.end()), space(room + 1);
    copy.reserve(1); // never NULL
    const ko_mchar_t *in = copy.data();
    ko_mchar_t *out = space.data();
    int left = static_cast<int>(text.size()), free = static_cast<int>(room), sub = 7;
    const int result = ko_cv_mconv(cd, st, &in, &left, measure ? nullptr : &out, &free, &sub);
    EXPECT_EQ(in - copy.data() + left, static_cast<ptrdiff_t>(text.size()));
    const size_t made = room - static_cast<size_t>(free);
    EXPECT_TRUE(measure || made == static_cast<size_t>(out - space.data()));
    return {measure ? std::to_string(made) : std::string(space.begin(), space.begin() + long(made)),
            static_cast<size_t>(in - copy.data()), result ? *ko_ext_errno(cd) : 0};
}
inline outcome convert_whole(ko_cv_t cd, std::string_view text) {
    return convert_piece(cd, nullptr, text,
                         static_cast<size_t>(ko_cv_outbuflen(cd, static_cast<int>(text.size()))));
}

// Pieces and rooms of random lengths.
inline outcome convert_splits(ko_cv_t cd, const std::string &text, std::minstd_rand &rng) {
    conv_state st = {.first_frag = 1};
    outcome all = {"", 0, KO_EINVAL};
    for (size_t end = 0; all.error == KO_EINVAL || all.error == KO_E2BIG;) {
        if (all.error == KO_EINVAL) end = std::min(text.size(), end + rng() % 9);
        st.last_frag = end == text.size();
        const std::string piece = text.substr(all.taken, end - all.taken);
        const outcome one = convert_piece(cd, &st, piece, rng() % 16);
        st.first_frag = 0;
        all = {all.made + one.made, all.taken + one.taken, one.error};
        if (st.last_frag && all.error == KO_EINVAL) break;
        if (!st.last_frag && !all.error) all.error = KO_EINVAL; // there is more
    }
    return all;
}

#endif
