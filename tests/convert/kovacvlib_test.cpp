// Conversion: objects and descriptors, the routines and what they take and write, texts in pieces,
// registered converters, and damaged objects.
#include "support/answer.h"
#include "support/conversion_builder.h"
#include "support/rows.h"

#include "locale/kovaextsa.h"

#include <random>

using namespace std::string_literals;

namespace {

const unsigned plain = cv_plain;

std::string byte(unsigned b) { return std::string(1, char(b)); }

// Bytes 0x20..0x7F swap case; 0x80 is a substitute, 0x81 unmapped.
cv_object bytes_object(int checks) {
    cv_object o;
    o.checks = checks;
    o.noshift.push_back({byte(0), cv_terminator, byte(0)});
    for (unsigned b = 1; b < (checks ? 0x80u : 0x100u); ++b)
        o.noshift.push_back({byte(b), plain, byte(b ^ 0x20)});
    if (checks) o.noshift.push_back({"\x80", plain | cv_substitute, "?"});
    return o;
}

// ASCII, and leads 0x81..0x83 with trails 0x40..0x4F; targets of 1 to target_max bytes.
cv_object double_object(int target_max) {
    cv_object o;
    o.target_max = target_max;
    o.max = 2;
    o.noshift.push_back({byte(0), cv_terminator, byte(0)});
    for (unsigned b = 1; b < 0x80; ++b)
        o.noshift.push_back({byte(b), plain, byte(b)});
    for (unsigned lead = 0x81; lead < 0x84; ++lead)
        for (unsigned trail = 0x40; trail < 0x50; ++trail) {
            const auto len = size_t(1 + trail % unsigned(target_max));
            const unsigned flags = trail == 0x4F ? plain | cv_substitute : plain;
            o.noshift.push_back(
                {byte(lead) + byte(trail), flags, std::string(len, char(lead + trail))});
        }
    return o;
}

// ASCII, and bytes with targets of one to three bytes.
cv_object letters_object() {
    cv_object o = bytes_object(1);
    o.target_max = 3;
    o.ratio = "3";
    for (cv_entry &e : o.noshift)
        if (!(e.flags & cv_substitute)) e.target = e.source;
    for (unsigned b = 0x82; b < 0x100; ++b)
        o.noshift.push_back({byte(b), plain, std::string(1 + b % 3, char(b))});
    return o;
}

// A host code set with one-byte shifts 0x0E and 0x0F into a stateless target of 1 to 3 bytes.
cv_object host_object() {
    cv_object o;
    o.source_stateful = 1;
    o.shifts = "0010e10f";
    o.target_max = 3;
    o.shift_min = o.shift_max = 2;
    o.noshift.push_back({byte(0), cv_terminator, byte(0)});
    o.noshift.push_back({"\x0e", cv_source_shift, ""});
    for (unsigned b = 0x40; b < 0x60; ++b)
        o.noshift.push_back({byte(b), plain, byte(b + 0x10)});
    for (unsigned lead = 0x41; lead < 0x44; ++lead)
        for (unsigned trail = 0x41; trail < 0x60; ++trail)
            o.shift.push_back(
                {byte(lead) + byte(trail), plain, std::string(1 + trail % 3, char(lead))});
    return o;
}

// A stateless source of one and two bytes into a stateful target: two-byte targets are shifted.
cv_object to_host_object() {
    cv_object o = double_object(2);
    o.target_stateful = 1;
    o.shifts = "10e10f00";
    o.ratio = "4";
    for (cv_entry &e : o.noshift)
        if (e.source.size() == 2) e.flags |= cv_shifted_target, e.target = "AB";
    return o;
}

// The general case: three-byte shift sequences on both sides.
cv_object both_stateful() {
    cv_object o = to_host_object();
    std::erase_if(o.noshift, [](const cv_entry &e) { return e.source == "\x1b"; });
    o.source_stateful = 1;
    o.shifts = "31b244230e0e0f31b244231b2842";
    o.shift_min = 2, o.shift_max = 3;
    o.noshift.push_back({"\x1b$B", cv_source_shift, ""});
    for (unsigned lead = 0x21; lead < 0x24; ++lead)
        for (unsigned trail = 0x21; trail < 0x30; ++trail)
            o.shift.push_back({byte(lead) + byte(trail), plain | cv_shifted_target, "XY"});
    o.shift.push_back({"\x1b(B", cv_source_shift, ""});
    return o;
}

// Bytes that need no checks, by a compiler that was careless: 'x' is substituted, 'q' unmapped, and
// a text ends with 'e' as well.
cv_object careless_object() {
    cv_object o = bytes_object(0);
    o.noshift['x'].flags |= cv_substitute;
    o.noshift['e'].flags |= cv_terminator;
    o.noshift.erase(o.noshift.begin() + 'q');
    return o;
}

} // namespace

TEST(Conversion, TakesAndWritesUpToTheLastWholeCharacter) {
    const cv_record single(bytes_object(1).str()), pairs(double_object(3).str()),
        careless(careless_object().str()), host(host_object().str()),
        to_host(to_host_object().str());
    ASSERT_EQ(careless.rec()->miconv_fp, sb_miconv_noerr);
    ASSERT_EQ(host.rec()->smiconv_fp, db_smiconv);
    static const struct {
        const char *claim;
        const cv_record &cv;
        std::string in;
        int room, len, states; // after a call with states: the source's, twice the target's
        cv_outcome want;
    } rows[] = {
        {"plain",                     single,   "ab",              9,  -2, -1, {0, "AB", 2, 0, 0}          },
        {"nothing",                   single,   "",                9,  -2, -1, {0, "", 0, 0, 0}            },
        {"substituted",               single,   "a\x80z",          9,  -2, -1, {0, "A?Z", 3, 1, 0}         },
        {"unmapped at a full buffer", single,   "ab\x81z",         2,  -2, -1, {-1, "AB", 2, 0, KO_EILSEQ} },
        {"full",                      single,   "abc",             2,  -2, -1, {-1, "AB", 2, 0, KO_E2BIG}  },
        {"substitute does not fit",   single,   "a\x80",           1,  -2, -1, {-1, "A", 1, 1, KO_E2BIG}   },
        {"terminated",                single,   "ab\0cd"s,         9,  -1, -1, {0, "AB\0"s, 3, 0, 0}       },
        {"counted over a null",       single,   "a\0b"s,           9,  -2, -1, {0, "A\0B"s, 3, 0, 0}       },
        {"pair",                      pairs,    "a\x81\x42z",      9,  -2, -1, {0, "a\xc3z", 4, 0, 0}      },
        {"cut pair",                  pairs,    "a\x81",           9,  -2, -1, {-1, "a", 1, 0, KO_EINVAL}  },
        {"bad trail",                 pairs,    "a\x81\x30",       9,  -2, -1, {-1, "a", 1, 0, KO_EILSEQ}  },
        {"bad lead",                  pairs,    "\xff",            9,  -2, -1, {-1, "", 0, 0, KO_EILSEQ}   },
        {"pair does not fit",         pairs,    "\x81\x41",        1,  -2, -1, {-1, "", 0, 0, KO_E2BIG}    },
        {"pair just fits",            pairs,    "\x81\x41",        3,  -2, -1, {0, "\xc2\xc2\xc2", 2, 0, 0}},
        {"terminated pairs",          pairs,    "\x82\x4f\0\x81"s, 9,  -1, -1, {0, "\xd1\xd1\0"s, 3, 1, 0} },
        {"counted: no checks",        careless, "axqe\0b"s,        9,  -2, -1, {0, "AX\0E\0B"s, 6, 0, 0}   },
        {"terminated: checks",        careless, "axb\0"s,          9,  -1, -1, {0, "AXB\0"s, 4, 1, 0}      },
        {"unmapped byte",             careless, "aqb\0"s,          9,  -1, -1, {-1, "A", 1, 0, KO_EILSEQ}  },
        {"other terminator",          careless, "aeb\0"s,          9,  -1, -1, {0, "AE", 2, 0, 0}          },
        {"shift out is built in",     host,     "\016AC\017A",     50, -2, 0,  {0, "AAQ", 5, 0, 0}         },
        {"half a shifted pair",       host,     "\016A",           50, -2, 1,  {-1, "", 1, 0, KO_EINVAL}   },
        {"no lead",                   host,     "\016\x70\101",    50, -2, 1,  {-1, "", 1, 0, KO_EILSEQ}   },
        {"terminator while shifted",  host,     "\016AC",          50, -1, 1,  {-1, "AA", 3, 0, KO_EINVAL} },
        {"shifts around a pair",      to_host,  "a\x81\x40z",      50, -2, 0,  {0, "a\016AB\017z", 4, 0, 0}},
        {"shifted to the end",        to_host,  "\x81\x40",        4,  -2, 2,  {0, "\016AB\017", 2, 0, 0}  },
        {"no room, but toggled",      to_host,  "\x81\x40",        3,  -2, 2,  {-1, "", 0, 0, KO_E2BIG}    },
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.claim);
        conv_state st = {1, 1, 0, 0, nullptr};
        const cv_outcome got = convert(r.cv, r.in, r.room, r.states < 0 ? nullptr : &st, r.len);
        EXPECT_EQ(got, r.want);
        EXPECT_EQ(st.source_state + 2 * st.target_state, std::max(r.states, 0));
    }
    const ko_mchar_t *from = mb("a\x81\x40");
    int left = 3, room = 9, sub = 7;
    EXPECT_EQ(ko_cv_mconv(to_host.handle, nullptr, &from, &left, nullptr, &room, &sub), 0);
    EXPECT_EQ(room, 6) << "lengths without a state are those without shifts";
    ko_mchar_t out[9], *to = out;
    left = -3;
    EXPECT_EQ(ko_miconv(single.handle, &from, &left, &to, &room, &sub), 0);
    EXPECT_EQ(left, 0) << "fewer than no bytes";
    // A null pointer is refused, but a descriptor without routines keeps the reason it has none.
    ko_cv_t no_file;
    EXPECT_EQ(ko_iconv_open(&no_file, "b", "b"), -1);
    for (const ko_cv_t cd : {no_file, single.handle}) {
        EXPECT_EQ(ko_miconv(cd, nullptr, nullptr, nullptr, nullptr, &sub), -1);
        EXPECT_EQ(*ko_ext_errno(cd), cd == no_file ? KO_EFILE : KO_ENULL);
        EXPECT_EQ(sub, 0);
    }
    const cv_record free_of_checks(bytes_object(0).str());
    ASSERT_NE(free_of_checks.rec()->exports.sb2sb_table, nullptr);
    EXPECT_EQ(free_of_checks.rec()->exports.sb2sb_table[0xC1], 0xE1);
    EXPECT_EQ(convert(free_of_checks, "a\xc1\x80", 2), (cv_outcome{-1, "A\xe1", 2, 0, KO_E2BIG}));
}

// What derived tables do must be what the rules say, whatever the text, its length and the room.
TEST(Conversion, RunsAgreeWithTheRules) {
    std::mt19937 random(20261121);
    cv_object lead_shifts_in = host_object(); // its pairs begin with the shift-in byte as well
    lead_shifts_in.shifts = "0010e141";
    cv_object vain_shift = to_host_object(); // of a source without states
    vain_shift.noshift['s'].flags |= cv_source_shift;
    const cv_object objects[] = {
        lead_shifts_in,   bytes_object(1),  bytes_object(0),  careless_object(), double_object(1),
        double_object(2), double_object(3), double_object(4), to_host_object(),  host_object(),
        both_stateful(),  letters_object(), vain_shift};
    for (const cv_object &o : objects) {
        const std::string object = o.str();
        const cv_record fast(object, cv_from::memory), slow(object);
        ASSERT_EQ(fast.result, 0);
        slow.forget_derived();
        const bool stateful = o.source_stateful || o.target_stateful;
        for (int round = 0; round < 3000; ++round) {
            std::string in;
            // Long ones end about where the search for a terminator looks on.
            const size_t size = round % 100 ? random() % 60 : 4085 + random() % 17;
            const auto &set = round % 2 && !o.shift.empty() ? o.shift : o.noshift;
            bool shifted = &set == &o.shift;
            while (in.size() < size) {
                const auto &from = shifted ? o.shift : o.noshift;
                const cv_entry &e = from[random() % from.size()];
                if (size > 60 && e.flags & cv_terminator) continue;
                in += e.source;
                if (o.source_stateful && e.flags & cv_source_shift) shifted = !shifted;
                if (o.source_stateful && shifted && o.shifts == "0010e10f" && !(random() % 8))
                    in += '\x0f', shifted = false;
                if (size <= 60 && !(random() % 30)) in += char(random());
            }
            const int room = int(random() % (4 * size + 2));
            const int start = round % 2 && o.source_stateful;
            conv_state a = {!start, int(random() % 2), start, round % 9 ? 0 : 2, nullptr}, b = a,
                       c = a;
            const int len = round % 5 ? -2 : -1;
            const auto f = convert(fast, in, room, stateful ? &a : nullptr, len);
            ASSERT_EQ(f, convert(slow, in, room, stateful ? &b : nullptr, len))
                << testing::PrintToString(in) << " room " << room;
            ASSERT_EQ(a.source_state, b.source_state);
            ASSERT_EQ(a.target_state, b.target_state);
            ASSERT_LE(int(f.out.size()), ko_cv_outbuflen(fast.handle, f.taken));
            // The computed length is the written one.
            const ko_mchar_t *p = mb(in.c_str());
            int left = int(in.size()), space = room, sub = 0;
            const bool measured = len == -2 && (o.checks || stateful);
            if (!measured) continue;
            const int result =
                ko_mconvlen(fast.handle, stateful ? &c : nullptr, &p, &left, &space, &sub);
            ASSERT_EQ(result, f.result);
            ASSERT_EQ(room - space, int(f.out.size()));
            ASSERT_EQ(c.target_state, a.target_state);
        }
    }
}

TEST(Conversion, EveryKindOfByteTranslationDoesTheSame) {
    const cv_record cv(careless_object().str());
    const cv_bytes *const bytes = cv.rec()->bytes;
    ASSERT_TRUE(bytes && bytes->has_special);
    cv_translate kinds[cv_translates_max];
    const int count = cv_translates(kinds);
    guarded_block text_block, out_block;
    std::mt19937 random(1);
    for (size_t round = 0; round < 1200; ++round) {
        const size_t size = round % 200;
        std::string in(size, 0);
        for (char &c : in)
            do
                c = char(random());
            while (c == 'x' || c == 'q' || c == 'e');
        if (round % 3 && size) in[random() % size] = "xqe"[round % 4 % 3];
        for (const bool stop : {false, true}) {
            const size_t done = stop ? std::min(in.find_first_of("xqe"), size) : size;
            std::string want = in.substr(0, done);
            for (char &c : want)
                c = !c || c == 'q' ? '\0' : char(c ^ 0x20);
            for (int k = 0; k < count; ++k) {
                auto *const out = out_block.room<unsigned char>(size);
                SCOPED_TRACE("kind " + std::to_string(k) + ", " + std::to_string(size) + " bytes");
                ASSERT_EQ(kinds[k](bytes, out, text_block.put(in), size, stop), done);
                ASSERT_EQ(std::string(out, out + done), want);
            }
        }
    }
}

// Converts a text split in two, as a caller with a small buffer does: when the room is short it
// restores the state and repeats the call with more; a cut character is joined to the next piece.
static std::string in_two_pieces(const cv_record &cv, const std::string &in, size_t split, int room,
                                 conv_state *final_state) {
    conv_state &st = *final_state;
    st = {1, 0, 0, 0, nullptr};
    std::string out, pending;
    for (const bool last : {false, true}) {
        pending += last ? in.substr(split) : in.substr(0, split);
        st.last_frag = last;
        const conv_state before = st;
        cv_outcome o = convert(cv, pending, room, &st);
        for (int more = room; o.error == KO_E2BIG && more < 200; more += 7) {
            st = before;
            o = convert(cv, pending, more, &st);
        }
        EXPECT_TRUE(!o.result || (o.error == KO_EINVAL && !last));
        out += o.out;
        pending.erase(0, size_t(o.taken));
        st.first_frag = 0;
    }
    EXPECT_EQ(pending, "");
    return out;
}

TEST(Conversion, PiecesAndSmallBuffersGiveTheWholeText) {
    const std::tuple<cv_object, std::string> rows[] = {
        {host_object(),    "AB\016ABACBD\017C\016CZ"            },
        {to_host_object(), "ab\x81\x40\x82\101c\x83\x4f\x83\x40"},
        {both_stateful(),  "a\033$B!!!\"\033(Bb\x81\102\033$B#/"},
    };
    for (const auto &[object, in] : rows) {
        const cv_record cv(object.str());
        conv_state st = {1, 1, 0, 0, nullptr};
        const cv_outcome whole = convert(cv, in, 200, &st);
        ASSERT_EQ(whole.result, 0);
        for (size_t split = 0; split < in.size(); ++split)
            for (int room = 0; room <= 16; ++room) {
                SCOPED_TRACE("split " + std::to_string(split) + " room " + std::to_string(room));
                conv_state end;
                ASSERT_EQ(in_two_pieces(cv, in, split, room, &end), whole.out);
                ASSERT_EQ(end.source_state, st.source_state);
                ASSERT_EQ(end.target_state, st.target_state);
            }
    }
}

// ---- Registered converters

namespace {

static_assert(KO_CV_TERMINATOR == 1 && KO_CV_ERROR == 2 && KO_CV_SUBSTITUTE == 4 && KO_CV_END == 8);

int alg_mode;
int upper_once(const ko_mchar_t *src, unsigned left, conv_state *st, conv_res *res) {
    if (!left) return res->flags = KO_CV_END;
    // No progress, more taken than there is, more written than fits, an error, fewer than nothing,
    // text from nothing.
    static const conv_res refused[] = {
        {0,           0,  0,  {}   },
        {0,           99, 0,  {}   },
        {0,           0,  17, {}   },
        {KO_CV_ERROR, 1,  1,  {}   },
        {0,           -1, 1,  {}   },
        {0,           1,  -1, {}   },
        {0,           0,  3,  "..."}
    };
    if (alg_mode) return *res = refused[alg_mode - 1], 0;
    if (st->first_frag && !st->ext_state) st->ext_state = &alg_mode;
    res->src_len = 1;
    res->dst_len = 2;
    res->dst_buf[0] = res->dst_buf[1] = static_cast<unsigned char>(*src - 0x20);
    res->flags = (*src ? 0 : KO_CV_TERMINATOR) | (left == 1 ? KO_CV_END : 0) |
                 (*src == 'x' ? KO_CV_SUBSTITUTE : 0);
    return 0;
}

} // namespace

TEST(Conversion, RegisteredConvertersRunAndAreKeptInCheck) {
    const ko_cv_funcdef def = {"low", "up", upper_once, 1, 1, 2, 2, 2.0f};
    ko_cvfns *list = ko_add_cvfns(nullptr, &def);
    ASSERT_TRUE(list);
    ko_cvfns *const kept = list;
    EXPECT_EQ(ko_add_cvfns(list, &def), kept);
    EXPECT_EQ(list->num_used, 2);
    EXPECT_EQ(list->num_allocated, 0);
    ko_cv_t cd;
    ko_cv_funcdef *const none = list->funcdef_arr;
    none->mtom_fn = nullptr;
    const int opened = ko_cv_fnopen(&cd, "xx_XX.up", "yy_YY.low", list);
    EXPECT_EQ(answered(cd, opened), answer(-1, KO_ENULL));
    EXPECT_EQ(ko_cv_unload(cd), 0);
    none->mtom_fn = upper_once;
    ASSERT_EQ(ko_cv_fnopen(&cd, "xx_XX.up", "yy_YY.low@m", list), 0);
    EXPECT_EQ(ko_iconv_expansion(cd), 2.0);
    // What the converter answers, a text, what is written in 8 bytes, and the error.
    for (const auto &w :
         table("0 axb AAXXBB 0; 0 _ _ 0; 0 axbcd AAXXBBCC 14; 1 a _ 1; 2 a _ 9; 3 a _ 9; "
               "4 a _ 0; 5 a _ 9; 6 a _ 9; 7 a ...... 14")) {
        alg_mode = whole(w[0]);
        const std::string in = w[1] == "_" ? "" : w[1], want = w[2] == "_" ? "" : w[2];
        const answer wanted(alg_mode || whole(w[3]) ? -1 : 0, whole(w[3]));
        conv_state piece = {0, 1, 0, 0, nullptr}, *const states[] = {nullptr, &piece};
        for (conv_state *const st : states) {
            const ko_mchar_t *from = mb(in.c_str());
            ko_mchar_t out[8], *to = out;
            int left = int(in.size()), room = 8, sub;
            EXPECT_EQ(answered(cd, ko_cv_mconv(cd, st, &from, &left, &to, &room, &sub)), wanted);
            EXPECT_EQ(std::string(out, to), want);
            EXPECT_EQ(sub, in.starts_with("ax"));
            from = mb(in.c_str());
            left = int(in.size());
            EXPECT_EQ(answered(cd, ko_mconvlen(cd, st, &from, &left, &(room = 8), &sub)), wanted);
            EXPECT_EQ(8 - room, to - out);
        }
    }
    alg_mode = 0;
    const ko_mchar_t *from = mb("ab");
    ko_mchar_t out[8], *to = out;
    int room = 8, sub;
    EXPECT_EQ(ko_miconv(cd, &from, nullptr, &to, &room, &sub), 0);
    EXPECT_EQ(std::string(out, to), "AABB\xE0\xE0") << "to the terminator";
    EXPECT_EQ(ko_add_cvfns(list, nullptr)->num_used, 2);
    const ko_cv_t found = cd;
    EXPECT_EQ(ko_cv_fnopen(&cd, "xx_XX.up", "yy_YY.lower", list), -1) << "of no converter";
    ko_cv_unload(std::exchange(cd, found));
    alg_mode = 0;
    ko_cv_unload(cd);
    ko_ext_free(list->funcdef_arr);
    ko_ext_free(list);
}

// ---- Opening

TEST(Conversion, OpenCallsGiveTheirOwnHandlesAndResults) {
    env_hooks env;
    env.vars["VANTORDIR"] = "r";
    const std::string object = double_object(3).str();
    std::string five = object;
    five.replace(five.find("1 3 0 0"), 3, "1 5");
    file_hooks files;
    files.files["r\\kova\\cv9\\a_b.cvo"] = files.files["r\\kova\\cv\\033304e4.cvo"] = object;
    files.files["dir\\033304e4.cvo"] = object;
    files.files["r\\kova\\cv9\\bad_b.cvo"] = "FILE_TYPE=other\n";
    files.files["r\\kova\\cv9\\five_b.cvo"] = five;
    files.files["r\\kova\\cv9\\cut_b.cvo"] = object.substr(0, object.size() - 3);
    ko_cv_t cd = nullptr;
    enum { null_handle = -1 };
    const auto check = [&](const char *what, int result, int want, int error) {
        SCOPED_TRACE(what ? what : "no name");
        EXPECT_EQ(result, want);
        EXPECT_EQ(cd == nullptr, error == null_handle);
        if (!cd) return;
        EXPECT_EQ(*ko_ext_errno(cd), error);
        EXPECT_EQ(ko_cv_unload(cd), 0);
    };
    const std::string long_name(1018, 'x');
    check("names", ko_iconv_open(&cd, "b", "a"), 0, 0);
    for (const char *source :
         {"b", static_cast<const char *>(nullptr), long_name.c_str(), "missing", "bad"})
        check(source, ko_iconv_open(&cd, "b", source), -1, KO_EFILE);
    check("target length", ko_iconv_open(&cd, "b", "five"), -1, 0);
    check("a cut table", ko_iconv_open(&cd, "b", "cut"), -1, KO_ENOMEM);
    check("no file name", ko_iconv_open1(&cd, nullptr), -1, KO_EFILE);
    check("specifications", ko_cv_open(&cd, "en_US.b@x", "en_US.a y"), 1, 0);
    check("equal code sets", ko_cv_open(&cd, "en_US.b", "de_DE.b"), 0, null_handle);
    for (const char *none : {static_cast<const char *>(nullptr), "", "en_US"}) {
        check(none, ko_cv_open(&cd, none, "de_DE.b"), -1, KO_EFILE);
        check(none, ko_cv_open(&cd, "de_DE.b", none), -1, KO_EFILE);
        check(none, ko_cv_fnopen(&cd, none, "de_DE.b", nullptr), -1, KO_EFILE);
        check(none, ko_cv_fnopen(&cd, "de_DE.b", none, nullptr), -1, KO_EFILE);
    }
    for (const char *none : {static_cast<const char *>(nullptr), ""})
        check("no name of a target", ko_iconv_open(&cd, none, "b"), -1, KO_EFILE);
    check("equal, converters", ko_cv_fnopen(&cd, "en_US.b", "de_DE.b", nullptr), 0, KO_EFILE);
    check("with converters", ko_cv_fnopen(&cd, "en_US.b", "de_DE.a", nullptr), 0, 0);
    test_handle handle;
    files.files["r\\kova\\cm3\\registry"] = ""; // read with the standard library, so not found
    ko_cache_registry(handle, "no such file");
    const auto load = [&](const char *to, const char *from, const char *dir) {
        return ko_cv_load(&cd, to, from, nullptr, dir);
    };
    check("numbers, searched", load("en_US.1252", "en_US.819", nullptr), 1, 0);
    check("numbers in a directory", load("en_US.1252", "819", "dir"), 1, 0);
    check("equal numbers", load("1252", "en_US.1252", nullptr), 0, null_handle);
    for (const char *unknown : {"en_US.unheard", static_cast<const char *>(nullptr)}) {
        check(unknown, load("1252", unknown, nullptr), -1, KO_EINVAL);
        check(unknown, load(unknown, "1252", ""), -1, KO_EINVAL);
    }
    check("by another registry", ko_cv_load(&cd, "1252", "819", "", nullptr), 1, 0);
    EXPECT_EQ(ko_cv_unload(nullptr), -1);
}

TEST(Conversion, ObjectsFailWithTheReason) {
    const std::string object = host_object().str(), count = "=4\nSOURCE=a test\n";
    const auto check = [&](const std::string &from, const std::string &to, int result, int error) {
        SCOPED_TRACE(to);
        std::string changed = object;
        ASSERT_NE(changed.find(from), std::string::npos) << object.substr(0, 200);
        changed.replace(changed.find(from), from.size(), to);
        const cv_record cv(changed);
        EXPECT_EQ(cv.result, result);
        EXPECT_EQ(cv.error(), error);
    };
    check("", "", 0, 0);
    for (const char *header : {"=3\n", "=-1\n", "\n"}) // fewer than three lines, no "="
        check(count, header, 0, 0);
    check("=4\n", "=5000\n", -1, KO_EFILE);
    check("=4\n", "=99999999999999999999\n", -1, KO_EFILE);
    check("VERSION=9", "VERSION=8", -1, KO_EFILE);
    check("\n0010e10f", "\n50010e10f00", -1, KO_EFILE); // a shift sequence of five bytes
    check("\n1 3 2 2", "\n1 0 2 2", -1, 0);             // targets of no byte
    check("\n1 3 2 2", "\n1 1 2 2", -1, KO_ENOMEM);     // an entry beyond its targets
    check("\n1\n1 1 ", "\n1\n5 1 ", -1, KO_ECHARLEN);   // characters of five bytes
}

TEST(Conversion, FailuresAreInTheLog) {
    temp_dir dir;
    exit_utilities(); // the switches are read anew
    {
        env_hooks env;
        env.vars["KOVALOG"] = "on";
        env.vars["HOME"] = env.vars["VANTORDIR"] = dir.path;
        cv_object o = double_object(2);
        const cv_record cv(o.str());
        convert(cv, "\xff", 9);
        convert(cv, "a", 0);
        o.noshift['b'].flags = 0;
        convert(cv_record(o.str()), "b", 9);
        std::string long_targets = o.str();
        long_targets.replace(long_targets.find("1 2 0 0"), 3, "1 5");
        for (const std::string &bad :
             {long_targets, "FILE_TYPE=other\n"s,
              "FILE_TYPE=codeset_conversion_object\nCOMPILER_VERSION=8\n"s})
            cv_record{bad};
    }
    exit_utilities();
    const std::string log = dir.read("kova.log"), opened = "Opened: \\o.cvo\n",
                      loaded = opened + "CVO file loaded successfully.\n";
    const size_t start = log.find("Opened");
    ASSERT_NE(start, std::string::npos);
    EXPECT_EQ(log.substr(start), loaded +
                                     "Error in Translation.\nError in Translation (KO_E2BIG)\n" +
                                     loaded + "Error in Translation (KO_EILSEQ)\n" + opened +
                                     "cv->target_max_len should be in range 1..4\n" + opened +
                                     "Invalid CVO file. Wrong FILE_TYPE.\n" + opened +
                                     "Invalid CVO file. Wrong Version.\n");
}

TEST(Conversion, SizesAreRoundedUpAndHoldWhatTheTablesMake) {
    cv_object halves, thirds = to_host_object(), filled = host_object();
    halves.max = 2;
    halves.noshift.push_back({"ab", plain, "c"});
    thirds.target_max = 3;
    thirds.noshift.assign(1, {"abc", plain | cv_shifted_target, "ABC"});
    filled.fill = "\23abc";
    const std::tuple<cv_object, const char *, int, int> rows[] = {
        {halves,           "2.0",  10,         20        },
        {halves,           "1.5",  10,         20        },
        {halves,           "0.5",  10,         10        },
        {halves,           "4",    0x40000000, 0x7FFFFFFF},
        {halves,           "1e30", 10,         0x7FFFFFFF},
        {halves,           "2",    -1,         0         },
        {halves,           "0.1",  10,         10        }, // one of two bytes
        {bytes_object(0),  "0.5",  11,         11        },
        {double_object(3), "-1",   10,         20        }, // three of two
        {host_object(),    "1",    10,         20        },
        {filled,           "1",    10,         30        }, // bytes that are no characters, too
        {to_host_object(), "1",    10,         20        }, // two bytes between two shifts
        {both_stateful(),  "1",    10,         40        },
        {thirds,           "1",    30000000,   60000000  }, // five of three
    };
    for (const auto &[object, ratio, bytes, want] : rows) {
        cv_object o = object;
        o.ratio = ratio;
        EXPECT_EQ(ko_cv_outbuflen(cv_record(o.str()).handle, bytes), want) << ratio;
    }
    EXPECT_EQ(ko_cv_outbuflen(nullptr, 12), 12);
    EXPECT_EQ(ko_iconv_expansion(nullptr), 1.0);
}

// ---- Hostile objects and hosts

TEST(Conversion, DamagedObjectsFailOrConvert) {
    const std::string object = host_object().str();
    const std::string sample = "AB\16ABACBD\17CZ\xff\x81\x40";
    each_damage(object, {"0147fo \n-\0\xff", 11}, [&](const std::string &damaged) {
        const cv_record cv(damaged), read(damaged, cv_from::memory);
        ASSERT_EQ(read.result, cv.result) << testing::PrintToString(damaged);
        if (cv.result) return;
        conv_state st = {1, 1, 0, 0, nullptr};
        convert(cv, sample, 20, &st);
        convert(cv, sample, 20);
    });
}

TEST(Conversion, EveryFailingAllocationAndReadIsReported) {
    for (const std::string &o : {both_stateful().str(), bytes_object(0).str()}) {
        const auto prepare = [&](file_hooks &files) { files.files["\\o.cvo"] = o; };
        const auto open = [] {
            ko_cv_t cd;
            const int result = ko_iconv_open1(&cd, "\\o.cvo");
            EXPECT_EQ(result < 0, *ko_ext_errno(cd) != 0);
            ko_cv_unload(cd);
            return result == 0;
        };
        file_hooks files;
        prepare(files);
        each_call_fails(open);
        each_call_fails(open, prepare);
    }
    const ko_cv_funcdef def = {"a", "b", upper_once, 1, 1, 2, 2, 2.0f};
    each_allocation_fails([&] {
        ko_cvfns *list = ko_add_cvfns(nullptr, &def);
        if (!list) return false;
        ko_ext_free(list->funcdef_arr);
        ko_ext_free(list);
        return true;
    });
}
