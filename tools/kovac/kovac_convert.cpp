// kovac convert: from two names to the conversion objects of the pair.
#include "kovac/kovac_convert.h"

#include <algorithm>
#include <cstdio>

#include "common/tool_text.h"

namespace kovac {

static convert_status wrong(diagnostics &diag, convert_status status, const std::string &text) {
    error(diag, {}, text);
    return status;
}

static convert_status load_registry(const std::string &path, diagnostics &diag, registry &reg) {
    std::string text, why;
    int line = 0;
    if (!read_whole(path, text)) {
        return wrong(diag, convert_status::file, "cannot read registry " + path);
    }
    if (parse_registry(text, reg, &line, &why)) return convert_status::done;
    return wrong(diag, convert_status::source, path + ":" + std::to_string(line) + ": " + why);
}

// Reads bytes as hexadecimal digits; in a stateful code set two bytes are a character between
// shifts.
static bool parse_substitute(const std::string &text, const conv_set &to, char_bytes *bytes) {
    if (text.empty()) return true;
    if (text.size() % 2 || text.size() > 2 * max_char_bytes) return false;
    for (char c : text) {
        if (hex_value(c) < 0) return false;
        bytes->value = bytes->value << 4 | uint32_t(hex_value(c));
    }
    bytes->len = uint8_t(text.size() / 2);
    bytes->shifted = to.stateful && bytes->len == 2;
    return true;
}

namespace {
struct direction {
    const conv_object *object;
    std::vector<std::string> substituted;
};
} // namespace

static void print_report(const direction &d) {
    const conv_object &o = *d.object;
    printf("%s to %s: %zu characters convert, %zu of them by substitution, %zu have no mapping\n",
           kovatool::printable(o.from->names.front()).c_str(),
           kovatool::printable(o.to->names.front()).c_str(),
           size_t(std::count_if(o.entries.begin(), o.entries.end(),
                                [](const conv_entry &e) { return e.code != no_code; })),
           d.substituted.size(), o.unmapped.size());
    for (const std::string &line : d.substituted)
        printf("%s\n", line.c_str());
    for (const auto &[bytes, code] : o.unmapped) {
        printf("unmapped\t%0*x\tU+%04X\n", bytes.len * 2, unsigned(bytes.value), unsigned(code));
    }
}

static convert_status load_sets(const convert_options &opt, const std::vector<std::string> &dirs,
                                diagnostics &diag, conv_set &from, conv_set &to) {
    registry reg;
    const bool has_registry = !opt.registry_file.empty();
    convert_status status = convert_status::done;
    if (has_registry) status = load_registry(opt.registry_file, diag, reg);
    const registry *numbers = has_registry ? &reg : nullptr;
    if (status == convert_status::done) status = load_set(dirs, opt.from, numbers, diag, from);
    if (status == convert_status::done) status = load_set(dirs, opt.to, numbers, diag, to);
    if (status != convert_status::done) return status;
    if (from.number != no_number && from.number == to.number) {
        return wrong(diag, convert_status::usage,
                     format("%s and %s are one code set", opt.from.c_str(), opt.to.c_str()));
    }
    using named = std::pair<conv_set *, const std::vector<std::string> *>;
    for (const auto &[set, names] : {named(&from, &opt.from_names), named(&to, &opt.to_names)}) {
        for (const std::string &name : *names) {
            if (add_name(*set, name)) continue;
            return wrong(diag, convert_status::usage, "\"" + name + "\" cannot name a file");
        }
    }
    const bool built_in = from.form != set_form::listed && to.form != set_form::listed;
    const bool everything = built_in || (!opt.substitute.empty() && from.form != set_form::listed);
    for (const conv_set *set : {&from, &to})
        if (opt.report || opt.verbose) compare_sources(*set, dirs, diag);
    if (built_in && !opt.supplementary)
        warning(diag, {},
                "the planes of Unicode after the second are left out, 983040 code points; "
                "--supplementary compiles them");
    const uint32_t last = opt.supplementary ? last_code : built_in ? last_smp_code : last_bmp_code;
    if (from.form != set_form::listed) fill_builtin(from, to, last, everything);
    if (to.form != set_form::listed) fill_builtin(to, from, last, built_in);
    return convert_status::done;
}

static convert_status write_one(const convert_options &opt, const direction &d, diagnostics &diag) {
    std::string path;
    const convert_status status = write_object_files(opt.root, *d.object, diag, &path);
    if (status != convert_status::done) return status;
    if (opt.report) print_report(d);
    if (opt.verbose) {
        fprintf(stderr, "%s: %zu entries, %zu substituted, %zu unmapped, ratio %g\n",
                kovatool::printable(path).c_str(), d.object->entries.size(), d.substituted.size(),
                d.object->unmapped.size(), double(d.object->ratio));
    }
    return status;
}

convert_status run_convert(const convert_options &opt, const std::vector<std::string> &charmap_dirs,
                           diagnostics &diag) {
    conv_set from, to;
    const convert_status status = load_sets(opt, charmap_dirs, diag, from, to);
    if (status != convert_status::done) return status;
    char_bytes substitute;
    if (!parse_substitute(opt.substitute, to, &substitute)) {
        return wrong(diag, convert_status::usage,
                     "--substitute " + opt.substitute +
                         ": one to four bytes of two hexadecimal digits are expected");
    }
    conv_object forth, back;
    if (!make_object(from, to, substitute, diag, forth) || !make_object(to, from, {}, diag, back)) {
        return convert_status::source;
    }
    direction there{&forth, {}}, home{&back, {}};
    if (!prove_round_trips(forth, back, diag, &there.substituted)) return convert_status::source;
    // What a substitute adds to the first direction has no counterpart in the other.
    if (opt.both && !prove_round_trips(back, forth, diag, &home.substituted)) {
        return convert_status::source;
    }
    const convert_status written = write_one(opt, there, diag);
    return written == convert_status::done && opt.both ? write_one(opt, home, diag) : written;
}

} // namespace kovac
