// Conversion descriptors: making them from compiled conversion objects or from converters that the
// host registers, and releasing them.
#include "convert/kovacvlib.h"

#include "locale/kovaextsa.h"
#include "locale/kovaimage.h"
#include "record/kovaspec.h"

#include <limits.h>
#include <math.h>
#include <string.h>

#include <bit>
#include <initializer_list>

// Handed out where no descriptor can be made; only their error words are ever written.
static constinit iconv_rec cd_enomem = {.exports = {.exp = {KO_ENOMEM}}};
static constinit iconv_rec cd_fileerr = {.exports = {.exp = {KO_EFILE}}};
static constinit iconv_rec cd_einval = {.exports = {.exp = {KO_EINVAL}}};

static bool is_static(const iconv_rec *cv) {
    return cv == &cd_enomem || cv == &cd_fileerr || cv == &cd_einval;
}

// Stores the error word at every hand-out, because a host may have cleared that of a static
// descriptor.
static int hand_out(ko_cv_t *cd, iconv_rec *cv, int error, int result) {
    *cd = cv;
    return fail(&cv->exports.exp, error, result);
}
static int no_file(ko_cv_t *cd, int result) { return hand_out(cd, &cd_fileerr, KO_EFILE, result); }

// Stores a new, empty descriptor in *cd; without memory returns NULL and stores cd_enomem.
static iconv_rec *new_descriptor(ko_cv_t *cd) {
    iconv_rec *const cv = make_descriptor();
    if (!cv) {
        hand_out(cd, &cd_enomem, KO_ENOMEM, -1);
        return nullptr;
    }
    *cd = cv;
    set_error(&cv->exports.exp, KO_OK);
    return cv;
}

iconv_rec *make_descriptor() {
    ext_block<iconv_rec> block(1);
    if (!block.p) return nullptr;
    *block.p = {};
    return block.release();
}

// ---- Choice of routines

static void fill_sb2sb(iconv_rec *cv) {
    ext_block<unsigned char> table(256);
    if (!table.p) return;
    unsigned char all[256];
    for (int i = 0; i < 256; ++i)
        all[i] = uint8_t(i);
    const ko_mchar_t *in = all;
    ko_mchar_t *out = table.p;
    int in_len = 256, out_len = 256, sub;
    sb_miconv_noerr(cv, &in, &in_len, &out, &out_len, &sub);
    cv->exports.sb2sb_table = table.release();
}

static bool is_shift_pair_source(const iconv_rec *cv) {
    return cv->source_is_stateful && !cv->target_is_stateful && cv->source_si_len == 1 &&
           cv->source_so_len == 1 && cv->source_noshift_max_len == 1 &&
           cv->source_shift_min_len == 2 && cv->source_shift_max_len == 2;
}

static bool is_single(const iconv_rec *cv) {
    return cv->source_noshift_max_len == 1 && cv->target_max_len == 1;
}

static void choose_routines(iconv_rec *cv) {
    cv->smiconv_fp = is_shift_pair_source(cv) ? db_smiconv : mb_smiconv;
    cv->miconv_fp = !is_single(cv)             ? mb_miconv
                    : cv->needs_error_checking ? sb_miconv
                                               : sb_miconv_noerr;
}

static void drop_shift_lead(iconv_rec *cv) {
    if (cv->flat_shift && cv->smiconv_fp == db_smiconv)
        drop_cv_lead(cv->flat_shift, cv->source_so[0]);
}

static void set_iconv_fps(iconv_rec *cv) {
    cv->exports.sb2sb_table = nullptr;
    if (cv->mtom_fn) {
        cv->miconv_fp = alg_miconv;
        cv->smiconv_fp = alg_smiconv;
        return;
    }
    const bool single = is_single(cv);
    choose_routines(cv);
    if (single) {
        cv->bytes = build_cv_bytes(cv->conv_noshift);
        if (!cv->needs_error_checking) fill_sb2sb(cv);
    }
    // The bytewise look-up of shifted sources must not meet prefixes, so a table that has some is
    // left to the rules.
    const bool walks = cv->smiconv_fp == mb_smiconv || multi_max_length(cv->conv_noshift) < 2;
    if (walks && (!single || cv->source_is_stateful || cv->target_is_stateful))
        cv->flat_noshift = build_cv_flat(cv->conv_noshift);
    if (cv->conv_shift) cv->flat_shift = build_cv_flat(cv->conv_shift);
    drop_shift_lead(cv);
}

// ---- Conversion objects

static bool read_cv_header(text_in *in) {
    char line[128];
    constexpr int bound = sizeof line - 1;
    if (!in_header_line(in, line, bound)) return false;
    if (strcmp(line, "FILE_TYPE=codeset_conversion_object") != 0) {
        ko_message("Invalid CVO file. Wrong FILE_TYPE.");
        return false;
    }
    if (!in_header_line(in, line, bound)) return false;
    if (strcmp(line, "COMPILER_VERSION=9") != 0) {
        ko_message("Invalid CVO file. Wrong Version.");
        return false;
    }
    if (!in_header_line(in, line, bound)) return false;
    for (int more = header_number(line); more > 3; --more)
        if (!in_header_line(in, line, bound)) return false;
    return true;
}

// Reads a shift sequence: its length as one digit, then that many bytes. False for more than four
// bytes.
static bool read_shift(text_in *in, unsigned char *bytes, int *len) {
    const unsigned n = get_hex(in, 1);
    if (n > 4) return false;
    *len = int(n);
    for (unsigned i = 0; i < n; ++i)
        bytes[i] = uint8_t(get_hex(in, 2));
    return true;
}

static bool read_cv_fields(text_in *in, iconv_rec *cv) {
    cv->source_is_stateful = get_int(in);
    cv->target_is_stateful = get_int(in);
    skip_whitespace(in);
    if (!read_shift(in, cv->target_si, &cv->target_si_len) ||
        !read_shift(in, cv->target_so, &cv->target_so_len) ||
        !read_shift(in, cv->source_si, &cv->source_si_len) ||
        !read_shift(in, cv->source_so, &cv->source_so_len))
        return false;
    for (int *field : {&cv->target_min_len, &cv->target_max_len, &cv->source_shift_min_len,
                       &cv->source_shift_max_len, &cv->source_noshift_min_len,
                       &cv->source_noshift_max_len, &cv->needs_error_checking})
        *field = get_int(in);
    cv->exp_ratio = float(get_dbl(in));
    return !in->ended;
}

// Reads one table; -1 with the number of a broken table, or KO_ENOMEM, in the error word.
static int read_cv_table(text_in *in, iconv_rec *cv, mb_decode **table) {
    static const unsigned char unmapped[cv_max_target + 1] = {};
    const unsigned size = unsigned(cv->target_max_len + 1);
    *table = static_cast<mb_decode *>(create_multi(size, 0, unmapped));
    if (!*table) return fail(&cv->exports.exp, KO_ENOMEM, -1);
    if (read_multi_entries(in, *table, cv_max_source) == 0) return 0;
    return fail(&cv->exports.exp, multi_err(*table), -1);
}

static int read_cv_tables(text_in *in, iconv_rec *cv) {
    gen_exports *gen = &cv->exports.exp;
    if (!read_cv_header(in)) return fail(gen, KO_EFILE, -1);
    if (!read_cv_fields(in, cv)) return fail(gen, KO_EFILE, -1);
    if (cv->target_max_len < 1 || cv->target_max_len > cv_max_target) {
        ko_message("cv->target_max_len should be in range 1..4");
        return -1;
    }
    if (read_cv_table(in, cv, &cv->conv_noshift) < 0) return -1;
    return cv->source_is_stateful ? read_cv_table(in, cv, &cv->conv_shift) : 0;
}

// ---- Growth

static void raise_ratio(iconv_rec *cv, int source_len, int made) {
    if (double{cv->exp_ratio} * source_len >= made) return; // also false for a NaN
    const double ratio = double(made) / source_len;
    const float nearest = float(ratio);
    cv->exp_ratio = double{nearest} < ratio
                        ? std::bit_cast<float>(std::bit_cast<uint32_t>(nearest) + 1)
                        : nearest;
}

// Counts bytes whether they are characters or not, because the double-byte look-up takes both.
static void count_direct(iconv_rec *cv, const mb_decode *table, const multi_arr *node, int bytes) {
    if (double{cv->exp_ratio} * bytes >= table->data_size - 1) return; // no entry is longer
    const unsigned char *entry = node_item(table, node, 0);
    const size_t step = node->data_arr ? size_t{1} << table->log_data_size : 0;
    int longest = -1;
    for (unsigned b = 0; b < 256; ++b, entry += step) {
        const int length = *entry & cv_flags ? *entry & int{cv_length} : -1;
        longest = length > longest ? length : longest;
    }
    if (longest >= 0) raise_ratio(cv, bytes, longest);
}
static void count_double(iconv_rec *cv) {
    count_direct(cv, cv->conv_noshift, cv->conv_noshift->root, 1);
    const multi_arr *const root = cv->conv_shift->root;
    for (unsigned b = 0; b < 256; ++b) {
        if (node_flag(root, b) != mb_prefix) continue;
        if (const multi_arr *node = node_child(root, b)) count_direct(cv, cv->conv_shift, node, 2);
    }
}

// Raises the ratio, by which callers size buffers, to what the tables require if the object states
// less. A call may write a shift sequence before each character, and the sequence that leaves the
// shifted state after the last one.
static void check_ratio(iconv_rec *cv) {
    const bool stateful = cv->source_is_stateful || cv->target_is_stateful;
    const bool shifts = stateful && cv->smiconv_fp == mb_smiconv;
    const int leave = shifts ? cv->target_so_len : 0;
    const int around[2] = {leave, shifts ? cv->target_si_len + leave : 0};
    const bool bytes = cv->miconv_fp != mb_miconv;
    if (bytes) raise_ratio(cv, 1, 1); // whatever their entries state
    if (bytes && !stateful) return;
    if (cv->smiconv_fp == db_smiconv) count_double(cv);
    if (!cv->flat_noshift || (cv->conv_shift && !cv->flat_shift))
        raise_ratio(cv, 1, cv->target_max_len + around[1]); // no character can have more
    for (const cv_flat *flat : {cv->flat_noshift, cv->flat_shift})
        for (int i = 0; flat && i < 2 * cv_max_source; ++i) {
            const int length = flat->longest[i / 2][i % 2];
            if (length >= 0) raise_ratio(cv, i / 2 + 1, length + around[i % 2]);
        }
}

int read_cv_object(text_in *in, iconv_rec *cv) {
    if (read_cv_tables(in, cv) < 0) return -1;
    set_iconv_fps(cv);
    check_ratio(cv);
    return 0;
}

bool take_mapped_object(const data_file &file, const char *path, iconv_rec *cv) {
    if (!path || file.stream) return false;
    image_tables tables;
    if (!find_in_image(file, path, &tables) || !take_cv_image(tables, cv)) return false;
    choose_routines(cv);
    drop_shift_lead(cv);
    return true;
}

static int read_cv_text(data_file *file, iconv_rec *cv) {
    text_image image;
    const bool readable = open_data_text(file, &image);
    const int result =
        readable ? read_cv_object(&image.in, cv) : fail(&cv->exports.exp, KO_ENOMEM, -1);
    close_image(&image);
    return result;
}

// Loads an opened object into a descriptor and closes it in every case; frees the path, by which it
// was found.
static int read_cv_file(data_file *file, char *path, iconv_rec *cv) {
    const bool taken = file->is_open() && take_mapped_object(*file, path, cv);
    free_ptr(path);
    if (!file->is_open()) return fail(&cv->exports.exp, KO_EFILE, -1);
    const int result = taken ? 0 : read_cv_text(file, cv);
    close_data_file(file);
    if (!result) ko_message("CVO file loaded successfully.");
    return result;
}

// ---- Opening

int ko_iconv_open1(ko_cv_t *cd, const char *file) {
    if (!cd) return -1;
    iconv_rec *cv = new_descriptor(cd);
    if (!cv) return -1;
    if (!file) return fail(&cv->exports.exp, KO_EFILE, -1);
    char *path;
    int why;
    data_file object = no_data_file;
    find_data_file(&object, file, "cv", "9", &path, &why);
    return read_cv_file(&object, path, cv);
}

namespace {
struct name_part { // a name inside a longer text
    const char *text;
    size_t len;
};
} // namespace
static bool same(name_part a, name_part b) {
    return a.len == b.len && memcmp(a.text, b.text, a.len) == 0;
}
static name_part whole_name(const char *name) {
    return {name ? name : "", name ? strlen(name) : 0};
}

// The code-set name of a locale specification: after the first point, up to a blank or "@".
static name_part codeset_part(const char *spec) {
    const char *point = spec ? strchr(spec, '.') : nullptr;
    if (!point) return {"", 0};
    return {point + 1, strcspn(point + 1, " \t@")};
}

// Opens the object of a pair of names, neither of them empty.
static int open_pair(ko_cv_t *cd, name_part dst, name_part src) {
    if (same(dst, src) || dst.len + src.len + 6 >= 1025) return no_file(cd, -1);
    char file[1025];
    memcpy(file, src.text, src.len);
    file[src.len] = '_';
    memcpy(file + src.len + 1, dst.text, dst.len);
    memcpy(file + src.len + 1 + dst.len, ".cvo", 5);
    return ko_iconv_open1(cd, file);
}

int ko_iconv_open(ko_cv_t *cd, const char *dst, const char *src) {
    if (!cd) return -1;
    const name_part to = whole_name(dst), from = whole_name(src);
    if (!to.len || !from.len) return no_file(cd, -1);
    return open_pair(cd, to, from);
}

int ko_cv_open(ko_cv_t *cd, const char *to_lc_spec, const char *from_lc_spec) {
    if (!cd) return -1;
    const name_part to = codeset_part(to_lc_spec), from = codeset_part(from_lc_spec);
    if (!to.len || !from.len) return no_file(cd, -1);
    if (same(to, from)) {
        *cd = nullptr;
        return 0;
    }
    return open_pair(cd, to, from) < 0 ? -1 : 1;
}

static int alg_open(ko_cv_t *cd, const ko_cv_funcdef *def) {
    iconv_rec *cv = new_descriptor(cd);
    if (!cv) return -1;
    if (!def->mtom_fn) return fail(&cv->exports.exp, KO_ENULL, -1);
    cv->target_min_len = def->dst_minlen;
    cv->target_max_len = def->dst_maxlen;
    cv->source_noshift_min_len = def->src_minlen;
    cv->source_noshift_max_len = def->src_maxlen;
    cv->needs_error_checking = 1;
    cv->exp_ratio = def->exp_ratio;
    cv->mtom_fn = def->mtom_fn;
    set_iconv_fps(cv);
    return 0;
}

int ko_cv_fnopen(ko_cv_t *cd, const char *to_lc_spec, const char *from_lc_spec,
                 const ko_cvfns *fns_ref) {
    if (!cd) return -1;
    const name_part to = codeset_part(to_lc_spec), from = codeset_part(from_lc_spec);
    if (!to.len || !from.len) return no_file(cd, -1);
    if (same(to, from)) return no_file(cd, 0); // unlike ko_cv_open; callers rely on it
    for (int i = 0; fns_ref && i < fns_ref->num_used; ++i) {
        const ko_cv_funcdef *def = &fns_ref->funcdef_arr[i];
        if (same(to, whole_name(def->to_name)) && same(from, whole_name(def->from_name)))
            return alg_open(cd, def);
    }
    return open_pair(cd, to, from);
}

// *read gets the registry that told the numbers, where none is named.
static int load_cv(ko_cv_t *cv, const char *to_lc_spec, const char *from_lc_spec,
                   const char *registry, const char *cv_dir, registry_stamp *read) {
    const char *const specs[2] = {to_lc_spec ? to_lc_spec : "", from_lc_spec ? from_lc_spec : ""};
    uint16_t numbers[2]; // a failed look-up is reported as KO_EINVAL
    find_two_cs_nums(specs, registry, numbers, read);
    const uint16_t to = numbers[0], from = numbers[1];
    if (to == KO_NO_CODESET || from == KO_NO_CODESET)
        return hand_out(cv, &cd_einval, KO_EINVAL, -1);
    if (to == from) {
        *cv = nullptr;
        return 0;
    }
    const bool in_dir = cv_dir && *cv_dir;
    ext_block<char> name((in_dir ? strlen(cv_dir) : 0) + 14);
    if (!name.p) return hand_out(cv, &cd_enomem, KO_ENOMEM, -1);
    iconv_rec *rec = new_descriptor(cv);
    if (!rec) return -1;
    ko_cs_nums2cv_fname(&rec->exports.exp, from, to, name.p, in_dir ? cv_dir : nullptr);
    char *path = nullptr;
    int why;
    data_file object = no_data_file;
    in_dir ? open_composed_file(&object, name.p)
           : find_data_file(&object, name.p, "cv", "9", &path, &why);
    return read_cv_file(&object, path, rec) < 0 ? -1 : 1;
}

int ko_cv_load(ko_cv_t *cv, const char *to_lc_spec, const char *from_lc_spec, const char *registry,
               const char *cv_dir) {
    if (!cv) return -1;
    cv_request request;
    registry_stamp read;
    if (registry || (cv_dir && *cv_dir) || !to_lc_spec || !from_lc_spec ||
        !prepare_request(&request, to_lc_spec, from_lc_spec))
        return load_cv(cv, to_lc_spec, from_lc_spec, registry, cv_dir, &read);
    if (iconv_rec *const shared = take_shared(request)) {
        *cv = shared;
        set_error(&shared->exports.exp, KO_OK);
        return 1;
    }
    const unsigned failures = failed_allocations();
    const int result = load_cv(cv, to_lc_spec, from_lc_spec, nullptr, nullptr, &read);
    // Others shall not lack what it lacks.
    if (result == 1 && failed_allocations() == failures)
        offer_shared(request, read, descriptor(*cv));
    return result;
}

// ---- Registered converters, release, sizes

ko_cvfns *ko_add_cvfns(ko_cvfns *list, const ko_cv_funcdef *fndef) {
    if (!list) {
        ext_block<ko_cvfns> fresh(1);
        if (!fresh.p) return nullptr;
        *fresh.p = {};
        if (!ko_add_cvfns(fresh.p, fndef)->num_used) return nullptr;
        return fresh.release();
    }
    if (!fndef || list->num_used < 0 || list->num_used == INT_MAX) return list;
    const size_t used = size_t(list->num_used);
    ext_block<ko_cv_funcdef> arr(used + 1);
    if (!arr.p) return list;
    if (used) memcpy(arr.p, list->funcdef_arr, used * sizeof *arr.p);
    arr.p[used] = *fndef;
    free_ptr(list->funcdef_arr);
    list->funcdef_arr = arr.release();
    ++list->num_used;
    return list;
}

int ko_cv_unload(ko_cv_t cd) {
    iconv_rec *cv = descriptor(cd);
    if (!cv) return -1;
    if (is_static(cv)) return 0;
    if (give_back_shared(cv)) {
        free_multi(cv->conv_noshift);
        free_multi(cv->conv_shift);
        free_cv_flat(cv->flat_noshift);
        free_cv_flat(cv->flat_shift);
        free_ptr(cv->bytes);
        free_ptr(cv->exports.sb2sb_table);
    }
    for (iconv_rec *leg : cv->legs)
        if (leg) ko_cv_unload(leg);
    ko_ext_free(cv);
    return 0;
}

double ko_iconv_expansion(ko_cv_t cd) { return cd ? double(descriptor(cd)->exp_ratio) : 1.0; }

int ko_cv_outbuflen(ko_cv_t cd, int inbuflen) {
    if (inbuflen <= 0) return 0;
    // The ratio is what is rounded up, as in ko_case_conv_outbuflen.
    const double room = inbuflen * ceil(ko_iconv_expansion(cd));
    if (!(room < 0x7FFFFFFF)) return 0x7FFFFFFF;
    return room > 0 ? int(room) : 0;
}
