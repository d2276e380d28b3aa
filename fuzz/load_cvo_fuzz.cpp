// A conversion object from anywhere either fails to load or converts: it reads alike from memory
// and through stream hooks, its derived tables convert as the tables they come from, a measured
// length is the written one, a computed size suffices, and nothing is left behind. The input begins
// with the options, the room and the length of a text; the object follows the text.
#include "fuzz_host.h"
#include "fuzz_object.h"
#include "support/conversion_builder.h"

struct sample {
    std::string text;
    int room;
    conv_state state;
    bool stateless, terminated;
};

struct converted : cv_outcome {
    int source_state, target_state;
    bool operator==(const converted &) const = default;
};

static converted run(const cv_record &cv, const sample &s) {
    conv_state state = s.state;
    conv_state *const kept = s.stateless ? nullptr : &state;
    const cv_outcome o = convert(cv, s.text, s.room, kept, s.terminated ? -1 : -2);
    check(o.result == 0 || o.error != 0, "a failure has a reason");
    check(int(o.out.size()) <= ko_cv_outbuflen(cv, o.taken), "the computed size suffices");
    return {o, state.source_state, state.target_state};
}

// A null byte ends a text, or stops it as no character, wherever a character may begin; and no
// character takes one in.
static bool null_ends(const mb_decode *table, const multi_arr *node, bool first) {
    const unsigned char *item = node->data_arr ? node->data_arr : table->default_data;
    if (item[0] & cv_flags && !(first && item[0] & cv_terminator)) return false;
    if (node_flag(node, 0) == mb_prefix || (!first && node_flag(node, 0))) return false;
    for (unsigned byte = 0; byte < 256; ++byte)
        if (node_flag(node, byte) == mb_prefix && !null_ends(table, node_child(node, byte), false))
            return false;
    return true;
}

static void check_measure(const cv_record &cv, const sample &s, const converted &want) {
    // Single bytes are measured by the entries' lengths, but always written as one.
    const bool stateful = cv.rec()->source_is_stateful || cv.rec()->target_is_stateful;
    if ((s.stateless || !stateful) && cv.rec()->miconv_fp != mb_miconv) return;
    conv_state state = s.state;
    const ko_mchar_t *const text = mb(s.text.c_str()), *from = text;
    int left = int(s.text.size()), room = s.room, sub = 7;
    *ko_ext_errno(cv) = 0;
    const int result = ko_mconvlen(cv, s.stateless ? nullptr : &state, &from,
                                   s.terminated ? nullptr : &left, &room, &sub);
    check(result == want.result && cv.error() == want.error && from - text == want.taken &&
              size_t(s.room - room) == want.out.size() && sub == want.sub &&
              state.source_state == want.source_state && state.target_state == want.target_state,
          "the measured length is the written one");
}

static void check_object(const std::string &object, sample s) {
    const cv_record streamed(object), read(object, cv_from::memory);
    check(read.result == streamed.result && read.error() == streamed.error(),
          "memory and stream read alike");
    if (read.result) return;
    const iconv_rec *const rec = read.rec();
    s.terminated = s.terminated && null_ends(rec->conv_noshift, rec->conv_noshift->root, true) &&
                   (!rec->conv_shift || null_ends(rec->conv_shift, rec->conv_shift->root, true));
    const converted want = run(read, s);
    check(run(streamed, s) == want, "memory and stream convert alike");
    streamed.forget_derived();
    check(run(streamed, s) == want, "derived tables convert as the tables");
    check_measure(read, s, want);
    if (rec->exports.sb2sb_table && s.stateless && !s.terminated)
        for (size_t i = 0; i < want.out.size(); ++i)
            check(ko_mchar_t(want.out[i]) == rec->exports.sb2sb_table[ko_mchar_t(s.text[i])],
                  "the table translates");
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size,
                                          unsigned seed) {
    return mutate_object(data, size, max_size, seed, size < 3 ? 0 : 3u + data[2]);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 3) return 0;
    const unsigned options = data[0];
    const size_t text_size = data[2] < size - 3 ? data[2] : size - 3;
    sample s = {
        .state = {!!(options & 1), !!(options & 2), !!(options & 4), !!(options & 8), nullptr},
        .stateless = !!(options & 16),
        .terminated = !!(options & 32)
    };
    for (unsigned times = 0; times <= options >> 6; ++times)
        s.text.append(data + 3, data + 3 + text_size);
    s.room = data[1] == 255 ? 12 * int(s.text.size()) : data[1];
    check_object({data + 3 + text_size, data + size}, s);
    check(memory.live == 0, "nothing is left");
    return 0;
}
