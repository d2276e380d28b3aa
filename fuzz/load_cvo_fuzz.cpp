// A conversion object from anywhere either fails to load or converts: it reads alike from memory
// and through stream hooks, its derived tables convert as the tables they come from, a measured
// length is the written one, a computed size suffices, and nothing is left behind. The input begins
// with the options, the room and the length of a text; the object follows the text.
#include "convert/kovacvlib.h"
#include "fuzz_host.h"

#include <string.h>

struct sample {
    const uint8_t *text; // zeros follow
    int size;
    int room;
    conv_state state;
    bool stateless, terminated;
};

struct outcome {
    int result, error, taken, made, sub;
    conv_state state;
    uint8_t *out; // a block of the room's size, so that a byte beyond is seen
};

static bool same(const outcome &a, const outcome &b) {
    return a.result == b.result && a.error == b.error && a.taken == b.taken && a.made == b.made &&
           a.sub == b.sub && a.state.source_state == b.state.source_state &&
           a.state.target_state == b.state.target_state;
}

static outcome run(iconv_rec *cv, const sample &s, bool measure) {
    outcome o = {.state = s.state, .out = static_cast<uint8_t *>(malloc(size_t(s.room) + 1))};
    const ko_mchar_t *from = s.text;
    ko_mchar_t *to = o.out;
    int left = s.size, room = s.room;
    int *const count = s.terminated ? nullptr : &left;
    conv_state *const state = s.stateless ? nullptr : &o.state;
    set_error(cv, 0);
    if (measure)
        o.result = ko_mconvlen(cv, state, &from, count, &room, &o.sub);
    else if (state)
        o.result = ko_cv_mconv(cv, state, &from, count, &to, &room, &o.sub);
    else
        o.result = ko_miconv(cv, &from, count, &to, &room, &o.sub);
    o.error = *ko_ext_errno(cv);
    o.taken = int(from - s.text);
    o.made = s.room - room;
    check(o.result == 0 || o.error != 0, "a failure has a reason");
    check(o.made >= 0 && room >= 0, "what is written fits the room");
    check(o.made <= ko_cv_outbuflen(cv, o.taken), "the computed size suffices");
    check(s.terminated || o.taken + left == s.size, "what is taken is accounted for");
    check(measure || to - o.out == o.made, "what is written is accounted for");
    return o;
}

static bool same_bytes(const outcome &a, const outcome &b) {
    return same(a, b) && !memcmp(a.out, b.out, size_t(a.made));
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

static void check_measure(iconv_rec *cv, const sample &s, const outcome &converted) {
    // Single bytes are measured by the entries' lengths, but always written as one.
    const bool stateful = cv->source_is_stateful || cv->target_is_stateful;
    if ((s.stateless || !stateful) && cv->miconv_fp != mb_miconv) return;
    const outcome measured = run(cv, s, true);
    check(same(measured, converted), "the measured length is the written one");
    free(measured.out);
}

static void check_derived(iconv_rec *cv, const sample &s, const outcome &converted) {
    cv_flat *const noshift = cv->flat_noshift, *const shift = cv->flat_shift;
    cv_bytes *const bytes = cv->bytes;
    cv->flat_noshift = cv->flat_shift = nullptr;
    cv->bytes = nullptr;
    const outcome plain = run(cv, s, false);
    check(same_bytes(plain, converted), "derived tables convert as the tables");
    free(plain.out);
    cv->flat_noshift = noshift;
    cv->flat_shift = shift;
    cv->bytes = bytes;
}

static void check_conversion(iconv_rec *streamed, iconv_rec *read, sample s) {
    if (s.terminated) {
        s.terminated =
            null_ends(read->conv_noshift, read->conv_noshift->root, true) &&
            (!read->conv_shift || null_ends(read->conv_shift, read->conv_shift->root, true));
    }
    const outcome converted = run(read, s, false), other = run(streamed, s, false);
    check(same_bytes(converted, other), "memory and stream convert alike");
    free(other.out);
    check_derived(read, s, converted);
    check_measure(read, s, converted);
    if (read->exports.sb2sb_table && s.stateless && !s.terminated)
        for (int i = 0; i < converted.made; ++i)
            check(converted.out[i] == read->exports.sb2sb_table[s.text[i]], "the table translates");
    free(converted.out);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 3) return 0;
    const unsigned options = data[0];
    const size_t text_size = data[2] < size - 3 ? data[2] : size - 3;
    const size_t times = 1 + (options >> 6), repeated = times * text_size;
    uint8_t *const text = static_cast<uint8_t *>(calloc(repeated + 2, 1));
    for (size_t i = 0; i < repeated; ++i)
        text[i] = data[3 + i % text_size];
    const sample s = {
        .text = text,
        .size = int(repeated),
        .room = data[1] == 255 ? 12 * int(repeated) : data[1],
        .state = {!!(options & 1), !!(options & 2), !!(options & 4), !!(options & 8), nullptr},
        .stateless = !!(options & 16),
        .terminated = !!(options & 32)
    };
    file_hooks files;
    files.files["\\o.cvo"].assign(data + 3 + text_size, data + size);
    ko_cv_t streamed, read;
    const int streamed_result = ko_iconv_open1(&streamed, "\\o.cvo");
    check(!files.streams, "streams are closed");
    ko_iconv_open1(&read, nullptr); // a descriptor with nothing in it
    set_error(read, 0);
    text_in in = {.pos = data + 3 + text_size, .end = data + size};
    const int read_result = read_cv_object(&in, descriptor(read));
    check(read_result == streamed_result && *ko_ext_errno(read) == *ko_ext_errno(streamed),
          "memory and stream read alike");
    if (!read_result) check_conversion(descriptor(streamed), descriptor(read), s);
    ko_cv_unload(streamed);
    ko_cv_unload(read);
    check(memory.live == 0, "nothing is left");
    free(text);
    return 0;
}
