// kovac: compiles locale sources, charmaps and mappings into the objects that the library loads.
// Exit status: 0 done (warnings included), 1 a source, charmap or registry is wrong, 2 wrong usage,
// 3 a file cannot be found, read or written.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

#include "common/tool_describe.h"
#include "common/tool_file.h"
#include "common/tool_help.h"
#include "common/tool_text.h"
#include "kova_host.h"
#include "kovac/kovac_convert.h"
#include "kovac/kovac_image.h"
#include "kovac/kovac_license.h"
#include "kovac/kovac_locale.h"
#include "kovac/kovac_oracle.h"
#include "kovac/kovac_pack.h"
#include "kovac/kovac_registry.h"
#include "kovac/kovac_symbols.h"
#include "kovac/kovac_translit.h"
#include "kovac/kovac_write.h"

using namespace kovac;

enum exit_status { exit_done = 0, exit_source = 1, exit_usage = 2, exit_file = 3 };

struct locale_options {
    std::string source, charmap, root, name, codeset, registry_file, list, release;
    std::string sources;    // directory that is searched first
    std::string exceptions; // list instead of the built-in one
    std::string variant;    // "ci", "ai", "thai" or "", which is that of the charmap's name
    bool is_default = false, prove = false, verbose = false;
    bool drop = false;
    collation_options order;
};

struct registry_options {
    std::string root;
    std::vector<std::string> additions; // NAME=NUMBER
};

static constexpr const char *system_sources = "/usr/share/i18n";
// The orders that modifiers of a code set ask for, and what the headers of their objects say.
static constexpr struct {
    const char *name;
    strength keeps;
    bool by_thai;
    const char *equal; // what such texts differ in
} variants[] = {
    {"ci",   strength::accents, false, "case only"            },
    {"ai",   strength::letters, false, "case and accents only"},
    {"thai", strength::all,     true,  nullptr                },
};
static constexpr size_t codeset_limit = 19; // bytes of the code-set line that the library reads
static constexpr size_t modifier_limit = 4; // characters of a modifier in a file name

static int complain(int status, const std::string &text) {
    kovatool::tell("kovac: error", text);
    return status;
}

// The directories of I18NPATH with their subdirectory, then the system's.
static std::vector<std::string> search_dirs(const char *kind) {
    std::vector<std::string> dirs;
    std::string path = getenv("I18NPATH") ? getenv("I18NPATH") : "";
#ifdef _WIN32
    constexpr char separator = ';';
#else
    constexpr char separator = ':';
#endif
    for (size_t at = 0; at < path.size();) {
        const size_t end = std::min(path.find(separator, at), path.size());
        if (end > at) {
            dirs.push_back(path.substr(at, end - at) + "/" + kind);
            dirs.push_back(path.substr(at, end - at));
        }
        at = end + 1;
    }
    dirs.push_back(std::string(system_sources) + "/" + kind);
    return dirs;
}

// ---- where an object goes ----------------------------------------------------------------------

static bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

static std::string base_name(const std::string &path) {
    std::string base = path.substr(path.rfind('/') + 1);
    if (base.ends_with(".gz")) base.resize(base.size() - 3);
    return base;
}

// Splits "ll_TT" or "ll_TT@mod" into its parts, in lower case where file names need it. Returns ""
// or what is wrong.
static std::string split_name(const std::string &name, std::string &dir, std::string &modifier) {
    const size_t at = std::min(name.find('@'), name.size());
    dir = name.substr(0, at);
    modifier = at < name.size() ? name.substr(at + 1) : "";
    const bool shape = dir.size() == 5 && is_letter(dir[0]) && is_letter(dir[1]) && dir[2] == '_' &&
                       is_letter(dir[3]) && is_letter(dir[4]);
    if (!shape) return "\"" + name + "\" is not of the form ll_TT; use --name ll_TT";
    const bool plain = std::all_of(modifier.begin(), modifier.end(),
                                   [](char c) { return is_letter(c) || (c >= '0' && c <= '9'); });
    if (modifier.size() > modifier_limit || !plain || (at < name.size() && modifier.empty())) {
        return "the modifier of \"" + name +
               "\" must be one to four letters or digits; use --name ll_TT@mod";
    }
    std::transform(dir.begin(), dir.end(), dir.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; });
    return {};
}

// The name as stated, or else the source's; that of an order without case or accents gets them as
// its modifier.
static int object_name(const locale_options &opt, std::string *name) {
    *name = opt.name;
    if (name->empty()) *name = standin_name(base_name(opt.source));
    if (name->empty()) *name = base_name(opt.source);
    if (opt.variant.empty()) return exit_done;
    if (name->find('@') == std::string::npos) {
        *name += "@" + opt.variant;
    } else if (opt.name.empty()) {
        return complain(exit_usage, "\"" + *name +
                                        "\" has a modifier already; name the order with \"" +
                                        opt.variant + "\" by --name ll_TT@mod");
    }
    return exit_done;
}

static int number_from_file(const std::string &path, const std::string &name, int *number) {
    std::string text, why;
    registry reg;
    int line = 0;
    if (!read_whole(path, text)) return complain(exit_file, "cannot read registry " + path);
    if (!parse_registry(text, reg, &line, &why)) {
        return complain(exit_source, path + ":" + std::to_string(line) + ": " + why);
    }
    *number = find_name(reg, name);
    return exit_done;
}

// Gets the path of the object below the root.
static int object_path(const locale_options &opt, const std::string &codeset, std::string *path) {
    *path = opt.root + "/kova/lc11/default.lco";
    if (opt.is_default || opt.name == "default") return exit_done;
    std::string dir, modifier, name;
    if (int status = object_name(opt, &name)) return status;
    const std::string wrong = split_name(name, dir, modifier);
    if (!wrong.empty()) return complain(exit_usage, wrong);
    int number = no_number;
    if (!opt.registry_file.empty()) {
        if (int status = number_from_file(opt.registry_file, codeset, &number)) return status;
    }
    if (number == no_number) number = find_code_set(codeset);
    if (number == no_number) {
        return complain(exit_usage, "code set \"" + codeset +
                                        "\" has no number; give a registry with --registry or "
                                        "another name with --codeset");
    }
    *path = opt.root +
            format("/kova/lc11/%s/%04x%s.lco", dir.c_str(), unsigned(number), modifier.c_str());
    return exit_done;
}

// ---- kovac locale ------------------------------------------------------------------------------

// One hash of all inputs, in the order of their names, so that paths do not matter.
static uint64_t hash_inputs(const source_set &set, const charmap &map) {
    std::vector<const source_file *> files;
    for (const auto &[asked, file] : set.files)
        files.push_back(file.get());
    std::sort(files.begin(), files.end(), [](const source_file *a, const source_file *b) {
        return a->name != b->name ? a->name < b->name : a->text < b->text;
    });
    uint64_t hash = map.hash;
    for (size_t i = 0; i < files.size(); ++i) {
        if (i > 0 && files[i]->name == files[i - 1]->name && files[i]->text == files[i - 1]->text) {
            continue; // the same source under another name
        }
        for (const std::string *text : {&files[i]->name, &files[i]->text}) {
            for (char c : *text)
                hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
            hash = (hash ^ 0xFF) * 0x100000001b3u;
        }
    }
    return hash;
}

// Month names as they are without a day, in hexadecimal.
static void describe_names(const char *key, const std::vector<std::string> &names,
                           std::vector<std::string> &lines) {
    for (size_t i = 0; names.size() == months_min && i < months_min; ++i) {
        std::string line = format("%s_%zu=", key, i + 1);
        for (const char c : names[i])
            line += format("%02x", unsigned(uint8_t(c)));
        if (line.size() <= header_limit) lines.push_back(line);
    }
}

static void describe(const locale_options &opt, const source_set &set, const charmap &map,
                     locale_object &object) {
    object.description = {
        "SOURCE=" + base_name(set.main->path),
        "CHARMAP=" + map.name,
        "COMPILER=kovac 2.86",
        format("INPUTS=%016llx", static_cast<unsigned long long>(hash_inputs(set, map))),
        unsealed_content,
        format("FIRST_WEEKDAY=%d", object.time.first_weekday)};
    for (const std::string &line : license_lines(set))
        object.description.push_back(line);
    describe_names("ALT_MON", object.time.alt_mon, object.description);
    describe_names("AB_ALT_MON", object.time.ab_alt_mon, object.description);
    if (object.time.calendar == "islamic")
        for (const std::string &line : umalqura_lines())
            object.description.push_back(line);
    for (const auto &v : variants)
        if (opt.variant == v.name && v.equal)
            object.description.push_back(
                format("STRENGTH=%s, %zu of %zu levels; not total: what differs in %s is equal",
                       v.name, object.collate.levels, object.collate.source_levels, v.equal));
    if (object.collate.by_thai)
        object.description.push_back("METHOD=thai, base text and marks by the codes of TIS-620");
    if (!opt.release.empty()) object.description.push_back("RELEASE=" + opt.release);
    for (std::string &line : object.description)
        line = kovatool::printable(line).substr(0, header_limit);
    object.codeset = opt.codeset.empty() ? map.name : opt.codeset;
}

static bool print_proof(const proof_report &report) {
    for (const std::string &line : report.lines)
        printf("%s\n", kovatool::printable(line).c_str());
    return report.ok;
}

static int missing(const char *kind, const std::string &name) {
    return complain(exit_file, format("no %s \"%s\" in $I18NPATH or %s; give a path, or install "
                                      "the package \"locales\"",
                                      kind, name.c_str(), system_sources));
}

// An object holds characters of one and two bytes; what is lost is said, and has to be asked for.
static int tell_dropped(const locale_options &opt, const charmap &map, diagnostics &diag) {
    std::string lost;
    if (map.chars_of_three) lost += format("%d of three bytes", map.chars_of_three);
    if (map.chars_of_four)
        lost += format("%s%d of four bytes", lost.empty() ? "" : " and ", map.chars_of_four);
    if (lost.empty()) return exit_done;
    const std::string text = format("charmap %s: a locale object holds characters of one or two "
                                    "bytes; %zu characters fit, ",
                                    map.name.c_str(), map.chars.size()) +
                             lost;
    if (!opt.drop) return complain(exit_source, text + " do not; say --drop to leave them out");
    warning(diag, {}, text + " are left out");
    return exit_done;
}

static int load_inputs(const locale_options &opt, source_set &set, charmap &map,
                       diagnostics &diag) {
    const std::vector<std::string> charmap_dirs = search_dirs("charmaps");
    if (!has_source(set, opt.source)) return missing("locale source", opt.source);
    set.main = load_source(set, diag, opt.source, {});
    if (!set.main) return exit_file;
    if (opt.charmap != "unicode" && find_file(charmap_dirs, opt.charmap).empty()) {
        return missing("charmap", opt.charmap);
    }
    if (!load_charmap(charmap_dirs, opt.charmap, diag, map)) return exit_source;
    correct_charmap(opt.charmap, map, diag);
    return tell_dropped(opt, map, diag);
}

// 0, or the error with which the library refuses an object.
static int load_error(const std::string &path) {
    const size_t slash = path.rfind('/');
    ko_lc_t loc = nullptr;
    const bool loads = ko_lc_load(&loc, path.substr(slash + 1).c_str(), nullptr,
                                  path.substr(0, slash).c_str()) == 0;
    const int error = loads ? ko_lc_status(loc) : *ko_ext_errno(loc);
    ko_lc_unload(loc);
    return error;
}

// The differences from the source that are allowed: those of a file, else the known ones.
static int load_exceptions(const locale_options &opt, exception_list &list) {
    list = {"data/collation_exceptions.list", known_exceptions};
    if (opt.exceptions.empty()) return exit_done;
    list.name = opt.exceptions;
    if (read_whole(opt.exceptions, list.text)) return exit_done;
    return complain(exit_file, "cannot read list " + opt.exceptions);
}

// What a proof compares an object with.
struct proof_input {
    source_set &set;
    diagnostics &diag;
    proof_terms terms;
    proof_report report;
};

static bool prove_all(proof_input &in, const locale_object &object, const charmap &map,
                      const std::string &path) {
    prove_object(map, object.collate, path, in.report);
    if (!object.collate.by_thai) prove_source(in.set, map, in.diag, path, in.terms, in.report);
    return print_proof(in.report);
}

// Writes the object. The library loads it, and it is proved if there is a proof, before it gets its
// name.
static int write_object(const std::string &path, const locale_object &object, const charmap &map,
                        proof_input *proof) {
    std::string why;
    int error = KO_OK;
    const trial prove = [&](const std::string &beside) {
        error = load_error(beside);
        return error == KO_OK && (!proof || prove_all(*proof, object, map, beside));
    };
    const write_result result = write_locale(path, object, map, &why, prove);
    if (result == write_result::done) return exit_done;
    if (result == write_result::unproved && error != KO_OK)
        return complain(exit_source, format("%s: the library does not load what was compiled "
                                            "(error %d); correct the source, in LC_TIME its eras",
                                            path.c_str(), error));
    if (result == write_result::unproved)
        return complain(exit_source, path + ": the collation is not proved; nothing was written");
    if (result == write_result::no_memory) why = "memory is exhausted";
    return complain(exit_file, "cannot write " + path + ": " + why);
}

// Takes the variant from the name of the charmap, where lists have it: "unicode@ci".
static locale_options with_variant(locale_options opt) {
    for (const auto &v : variants) {
        const std::string suffix = std::string("@") + v.name;
        if (opt.charmap.ends_with(suffix)) {
            opt.charmap.resize(opt.charmap.size() - suffix.size());
            opt.variant = v.name;
        }
        if (opt.variant != v.name) continue;
        opt.order.keeps = v.keeps;
        opt.order.by_thai = v.by_thai;
    }
    return opt;
}

static bool in_colour() {
    const char *const no = getenv("NO_COLOR");
    return isatty(2) && !(no && *no);
}

static int compile_one(const locale_options &asked) {
    const locale_options opt = with_variant(asked);
    source_set set;
    set.dirs = search_dirs("locales");
    set.own = carried_sources();
    if (!opt.sources.empty()) set.dirs.insert(set.dirs.begin(), opt.sources);
    if (const size_t slash = opt.source.rfind('/'); slash != std::string::npos) {
        set.dirs.insert(set.dirs.begin(), opt.source.substr(0, slash + 1)); // the sources beside it
    }
    diagnostics diag{.colour = in_colour(), .verbose = opt.verbose};
    charmap map;
    if (int status = load_inputs(opt, set, map, diag)) return status;
    std::string path;
    const std::string &codeset = opt.codeset.empty() ? map.name : opt.codeset;
    if (codeset.size() > codeset_limit) {
        return complain(exit_usage, "code-set name \"" + codeset +
                                        "\" has more than 19 characters; use --codeset");
    }
    if (!std::all_of(codeset.begin(), codeset.end(), [](char c) { return c > ' ' && c < 0x7F; })) {
        return complain(exit_usage, "code-set name \"" + codeset +
                                        "\" has characters that do not print; use --codeset");
    }
    if (int status = object_path(opt, codeset, &path)) return status;
    locale_object object;
    proof_input proof{
        set,
        diag,
        {base_name(opt.source), {}, opt.order.equal_ties, opt.order.keeps, opt.variant, {}},
        {         }
    };
    if (int status = load_exceptions(opt, proof.terms.allowed)) return status;
    if (!compile_locale(set, map, diag, object, opt.prove ? &proof.report : nullptr, opt.order)) {
        if (diag.errors > diag.max_errors) {
            fprintf(stderr, "kovac: %d errors in %s\n", diag.errors,
                    kovatool::printable(opt.source).c_str());
        }
        return exit_source;
    }
    describe(opt, set, map, object);
    proof.terms.pairs = case_pairs(object.ctype, map);
    if (int status = write_object(path, object, map, opt.prove ? &proof : nullptr)) return status;
    if (opt.verbose) {
        fprintf(stderr, "%s: %zu characters, %zu case pairs, %d warnings\n",
                kovatool::printable(path).c_str(), map.chars.size(), object.ctype.pairs.size() - 1,
                diag.warnings);
    }
    return exit_done;
}

static bool read_list(const std::string &path, std::vector<list_line> &lines) {
    std::string text;
    if (!read_whole(path, text)) return false;
    lines = list_lines(text);
    return true;
}

// Compiles a list, which names one object per line as the options would: SOURCE CHARMAP [NAME
// [CODESET]].
static int compile_list(const locale_options &opt) {
    std::vector<list_line> lines;
    if (!read_list(opt.list, lines)) return complain(exit_file, "cannot read list " + opt.list);
    int worst = exit_done;
    for (const auto &[number, words] : lines) {
        if (words.size() < 2 || words.size() > 4) {
            return complain(exit_source, opt.list + ":" + std::to_string(number) +
                                             ": a line holds SOURCE CHARMAP [NAME [CODESET]]");
        }
        locale_options one = opt;
        one.source = words[0];
        one.charmap = words[1];
        if (words.size() > 2) one.name = words[2];
        if (words.size() > 3) one.codeset = words[3];
        one.sources = opt.list.substr(0, opt.list.rfind('/') + 1) + "locales";
        worst = std::max(worst, compile_one(one));
    }
    return worst;
}

// ---- kovac registry ----------------------------------------------------------------------------

static bool parse_addition(const std::string &text, std::string &name, unsigned &number) {
    const size_t at = text.rfind('=');
    if (at == std::string::npos || at == 0 || at > name_limit || at + 1 == text.size())
        return false;
    name = text.substr(0, at);
    number = 0;
    for (char c : text.substr(at + 1)) {
        if (c < '0' || c > '9' || number > 0xFFFF) return false;
        number = number * 10 + unsigned(c - '0');
    }
    const bool plain =
        std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 0x7F; });
    return plain && name[0] != '#' && number <= 0xFFFF;
}

static int write_registry(const registry_options &opt) {
    const std::string path = opt.root + "/kova/cm3/registry";
    std::string text, why;
    registry reg;
    int line = 0;
    if (!find_file({}, path).empty() && !read_whole(path, text)) {
        return complain(exit_file, "cannot read registry " + path);
    }
    if (!parse_registry(text, reg, &line, &why)) {
        return complain(exit_source, path + ":" + std::to_string(line) + ": " + why);
    }
    add_code_sets(reg);
    for (const std::string &addition : opt.additions) {
        std::string name;
        unsigned number = 0;
        if (!parse_addition(addition, name, number)) {
            return complain(exit_usage, "--add " + addition +
                                            ": NAME=NUMBER is expected, a name of at most 21 "
                                            "printable characters and a number up to 65535");
        }
        set_name(reg, name, number);
    }
    if (write_text(path, registry_text(reg), &why) != write_result::done) {
        return complain(exit_file, "cannot write " + path + ": " + why);
    }
    return exit_done;
}

// ---- kovac translit ----------------------------------------------------------------------------

static int write_translit(const std::string &root) {
    std::string why;
    const int status = compile_translit(root, search_dirs("locales"), &why);
    return status == exit_done ? exit_done : complain(status, why);
}

// ---- kovac charmap -----------------------------------------------------------------------------

static int compile_charmap(const symbols_options &opt) {
    diagnostics diag{.colour = in_colour(), .verbose = opt.verbose};
    return int(compile_symbols(opt, search_dirs("charmaps"), diag));
}

// ---- kovac pack --------------------------------------------------------------------------------

static int pack_locale(const pack_options &opt, const std::vector<std::string> &words) {
    locale_options one{.source = words[0], .charmap = words[1], .root = opt.root};
    if (words.size() > 2) one.name = words[2];
    one.release = opt.release;
    one.prove = opt.prove;
    one.drop = true; // said as a warning
    return compile_one(one);
}

static int pack_conversion(const pack_options &opt, const std::vector<std::string> &words) {
    convert_options one{.from = words[0], .to = words[1], .root = opt.root};
    one.both = true;
    for (size_t i = 2; i + 1 < words.size(); i += 2) {
        if (words[i] == "--from-name") one.from_names.push_back(words[i + 1]);
        if (words[i] == "--to-name") one.to_names.push_back(words[i + 1]);
        if (words[i] == "--substitute") one.substitute = words[i + 1];
    }
    diagnostics diag;
    return int(run_convert(one, search_dirs("charmaps"), diag));
}

static int pack_charmap(const pack_options &opt, const std::vector<std::string> &words) {
    symbols_options one{.charmap = words[0], .root = opt.root, .names = "posix"};
    return compile_charmap(one);
}

static int pack_all(const pack_options &opt) {
    const auto run = [&opt](const pack_task &task) {
        switch (task.kind) {
        case task_kind::registry:
            return std::max(write_registry({.root = opt.root, .additions = {}}),
                            write_translit(opt.root));
        case task_kind::locale:
            return pack_locale(opt, task.words);
        case task_kind::conversion:
            return pack_conversion(opt, task.words);
        default:
            return pack_charmap(opt, task.words);
        }
    };
    return pack(opt, search_dirs("locales"), search_dirs("charmaps"), run);
}

// ---- command line ------------------------------------------------------------------------------

// Hosts keep a release's name in one line beside their indexes.
static std::string release_error(const std::string &name) {
    const bool plain =
        std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 0x7F; });
    return plain && !name.empty() && name.size() < 40
               ? ""
               : "a release has 1 to 39 printable ASCII characters without blanks";
}

static CLI::App *add_locale_command(CLI::App &app, locale_options &opt) {
    CLI::App *cmd = app.add_subcommand("locale", "Compile a locale source into a locale object");
    auto *source = cmd->add_option("-i,--source", opt.source, "Locale source: path or name")
                       ->type_name("SOURCE");
    auto *charmap = cmd->add_option("-f,--charmap", opt.charmap,
                                    "Charmap: path or name; \"unicode\" is built in")
                        ->type_name("CHARMAP");
    auto *list =
        cmd->add_option(
               "--list", opt.list,
               "Compile every line of a file: SOURCE CHARMAP[@ci|@ai|@thai] [NAME [CODESET]]")
            ->type_name("FILE");
    cmd->add_option("-o,--root", opt.root, "Data root below which kova/lc11/... is written")
        ->type_name("DIR")
        ->required();
    auto *name =
        cmd->add_option("--name", opt.name, "Locale name ll_TT[@mod] instead of the source's")
            ->type_name("NAME");
    cmd->add_option("--codeset", opt.codeset, "Code-set name instead of the charmap's")
        ->type_name("CODESET");
    cmd->add_option("--registry", opt.registry_file,
                    "Registry file with the number of the code set")
        ->type_name("FILE");
    cmd->add_option("--release", opt.release, "Name of the data release, for the object's header")
        ->type_name("NAME")
        ->check(CLI::Validator(release_error, "NAME"));
    cmd->add_flag("--default", opt.is_default, "Write default.lco")->excludes(name);
    auto *prove = cmd->add_flag("--prove", opt.prove,
                                "Prove the collation against itself and against the source");
    cmd->add_option("--exceptions", opt.exceptions,
                    "Differences from the source that are allowed, instead of the built-in list")
        ->type_name("FILE")
        ->needs(prove);
    cmd->add_flag("--drop", opt.drop,
                  "Compile a code set with characters of more than two bytes without those");
    auto *strength =
        cmd->add_option("--strength", opt.variant,
                        "An order that is not total: \"ci\" ignores case, \"ai\" accents, too; "
                        "the locale is called ll_TT@ci, ll_TT@ai")
            ->check(CLI::IsMember({"ci", "ai"}));
    cmd->add_flag_callback(
           "--thai", [&opt] { opt.variant = "thai"; },
           "The Thai method instead of the source's order; the locale is called "
           "ll_TT@thai")
        ->excludes(strength);
    cmd->add_flag("--equal-ties", opt.order.equal_ties,
                  "Keep strings equal that the source's order of \"unicode\" holds equal");
    cmd->add_flag("-v,--verbose", opt.verbose, "Print notes and a summary");
    list->excludes(source)->excludes(charmap)->excludes(name);
    cmd->footer("Sources and charmaps are searched in $I18NPATH, then in /usr/share/i18n; what a\n"
                "source given by its path copies is searched beside it first, and the sources of\n"
                "a list in the folder \"locales\" beside the list.\n"
                "Example: kovac locale -i de_DE -f ISO-8859-1 -o data");
    return cmd;
}

static CLI::App *add_registry_command(CLI::App &app, registry_options &opt) {
    CLI::App *cmd = app.add_subcommand("registry", "Write or extend the code-set registry");
    cmd->add_option("-o,--root", opt.root, "Data root below which kova/cm3/registry is written")
        ->type_name("DIR")
        ->required();
    cmd->add_option("--add", opt.additions, "Further entry NAME=NUMBER; replaces an older one")
        ->type_name("NAME=NUMBER");
    cmd->footer("Existing entries of the file are kept.\n"
                "Example: kovac registry -o data --add my-set=57600");
    return cmd;
}

static CLI::App *add_image_command(CLI::App &app, image_options &opt) {
    CLI::App *cmd = app.add_subcommand(
        "image", "Put tables of conversions into a file that is mapped in place of reading them");
    cmd->add_option("ROOT", opt.root, "Data root; the file is kova/image1 below it")
        ->type_name("DIR")
        ->required();
    cmd->add_option("NAME", opt.names,
                    "Object in DIR/kova/cv9. Default: all that are named by numbers and gain")
        ->type_name("NAME");
    cmd->footer("Make it again when objects have changed; until then those are read.\n"
                "Example: kovac image data\n"
                "Example: kovac image data e006e01c.cvo e01ce006.cvo");
    return cmd;
}

static int make_image(const image_options &opt) {
    std::string why;
    const image_result result = write_image(opt, &why);
    if (result == image_result::done) return exit_done;
    return complain(result == image_result::left_out ? exit_source : exit_file, why);
}

static CLI::App *add_translit_command(CLI::App &app, std::string &root) {
    CLI::App *cmd = app.add_subcommand(
        "translit", "Compile what conversions write for characters that a code set lacks");
    cmd->add_option("-o,--root", root, "Data root below which kova/cv9/translit.trl is written")
        ->type_name("DIR")
        ->required();
    cmd->footer("The tables are those that the system's locale sources share.\n"
                "Example: kovac translit -o data");
    return cmd;
}

static CLI::App *add_convert_command(CLI::App &app, convert_options &opt) {
    CLI::App *cmd = app.add_subcommand("convert", "Compile the conversion of two code sets");
    cmd->add_option("-f,--from", opt.from, "Code set of the source")
        ->type_name("CODESET")
        ->required();
    cmd->add_option("-t,--to", opt.to, "Code set of the target")->type_name("CODESET")->required();
    cmd->add_option("-o,--root", opt.root, "Data root below which kova/cv9/... is written")
        ->type_name("DIR")
        ->required();
    cmd->add_flag("--both", opt.both, "Compile the other direction, too");
    cmd->add_option("--substitute", opt.substitute,
                    "Bytes, as hexadecimal digits, for what has no mapping")
        ->type_name("BYTES");
    cmd->add_option("--from-name", opt.from_names, "Further name of the source in file names")
        ->type_name("NAME");
    cmd->add_option("--to-name", opt.to_names, "Further name of the target in file names")
        ->type_name("NAME");
    cmd->add_option("--registry", opt.registry_file,
                    "Registry file with the numbers of the code sets")
        ->type_name("FILE");
    cmd->add_flag("--supplementary", opt.supplementary,
                  "Between utf8 and unicode: all planes, not only the first two");
    cmd->add_flag("--report", opt.report, "List the characters that do not come back");
    cmd->add_flag("-v,--verbose", opt.verbose, "Print notes and a summary");
    cmd->footer(
        "A code set is a name of the registry or of a charmap ($I18NPATH, then\n"
        "/usr/share/i18n), a file (charmap, mapping file, UCM table), or what the C library\n"
        "converts; \"utf8\" and \"unicode\" are built in.\n"
        "Example: kovac convert --from EUC-JP --to utf8 --both -o data");
    return cmd;
}

static CLI::App *add_charmap_command(CLI::App &app, symbols_options &opt) {
    CLI::App *cmd = app.add_subcommand("charmap", "Compile the symbolic names of a code set");
    auto *charmap =
        cmd->add_option("charmap", opt.charmap, "Charmap, or code set as convert takes it")
            ->type_name("CHARMAP");
    auto *list = cmd->add_option("--list", opt.list, "Compile every charmap that a file names")
                     ->type_name("FILE");
    cmd->add_option("-o,--root", opt.root, "Data root below which kova/cm3/... is written")
        ->type_name("DIR")
        ->required();
    cmd->add_option("--names", opt.names,
                    "posix: the traditional names of the portable characters first")
        ->check(CLI::IsMember({"posix"}));
    cmd->add_option("--registry", opt.registry_file,
                    "Registry file with the number of the code set")
        ->type_name("FILE");
    cmd->add_flag("-v,--verbose", opt.verbose, "Print notes and a summary");
    list->excludes(charmap);
    cmd->footer("Charmaps are looked for in $I18NPATH, then in /usr/share/i18n.\n"
                "Example: kovac charmap EUC-JP --names posix -o data");
    return cmd;
}

static int compile_charmaps(const symbols_options &opt) {
    if (opt.list.empty()) {
        if (!opt.charmap.empty()) return compile_charmap(opt);
        return complain(exit_usage, "charmap needs CHARMAP, or --list FILE");
    }
    std::vector<list_line> lines;
    if (!read_list(opt.list, lines)) return complain(exit_file, "cannot read list " + opt.list);
    int worst = exit_done;
    for (const list_line &line : lines) {
        symbols_options one = opt;
        if (line.words.size() != 1)
            return complain(exit_source,
                            opt.list + ":" + std::to_string(line.number) + ": one name per line");
        one.charmap = line.words[0];
        worst = std::max(worst, compile_charmap(one));
    }
    return worst;
}

static int convert_pair(const convert_options &opt) {
    diagnostics diag{.colour = in_colour(), .verbose = opt.verbose};
    return int(run_convert(opt, search_dirs("charmaps"), diag));
}

static CLI::App *add_pack_command(CLI::App &app, pack_options &opt) {
    CLI::App *cmd = app.add_subcommand(
        "pack", "Compile every locale, conversion and charmap that the sources support");
    cmd->add_option("-o,--root", opt.root, "Data root to fill")->type_name("DIR")->required();
    cmd->add_option("--only", opt.only, "Only what has such a name; * and ? as in file names")
        ->type_name("PATTERN");
    cmd->add_option("--jobs", opt.jobs, "Processes at a time. Default: one per processor")
        ->type_name("N")
        ->check(CLI::Range(1, 256));
    cmd->add_option("--release", opt.release, "Name of the data release, for the objects' headers")
        ->type_name("NAME")
        ->check(CLI::Validator(release_error, "NAME"));
    cmd->add_flag("!--no-prove", opt.prove, "Do not prove the collations");
    cmd->add_flag("-v,--verbose", opt.verbose, "Print the messages about each object");
    cmd->footer("What is up to date is not compiled again. ROOT/pack.log has all messages.\n"
                "Example: kovac pack -o data --only 'de_*'");
    return cmd;
}

static std::string needs_command(const CLI::App &app) {
    std::string text = "the first word is a command, one of";
    for (const CLI::App *command : app.get_subcommands({}))
        text += " " + command->get_name();
    return text + "; kovac --help says what each does";
}

static int run_main(int argc, char **argv) {
    CLI::App app("Compiles locales, charmaps, conversions and the code-set registry of Kova.",
                 "kovac");
    kovatool::add_help(app);
    app.footer("Exit status: 0 done, 1 an input is wrong, 2 wrong usage, 3 a file cannot be found, "
               "read or written, or memory is exhausted.");
    app.require_subcommand(1);
    kovatool::add_describe(app);
    locale_options locale;
    registry_options registry;
    convert_options convert;
    symbols_options symbols;
    pack_options packed;
    const CLI::App *charmap_cmd = add_charmap_command(app, symbols);
    const CLI::App *convert_cmd = add_convert_command(app, convert);
    image_options image;
    const CLI::App *image_cmd = add_image_command(app, image);
    const CLI::App *locale_cmd = add_locale_command(app, locale);
    const CLI::App *pack_cmd = add_pack_command(app, packed);
    const CLI::App *registry_cmd = add_registry_command(app, registry);
    std::string translit_root;
    const CLI::App *translit_cmd = add_translit_command(app, translit_root);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        const bool lacks = e.get_exit_code() == int(CLI::ExitCodes::RequiredError);
        if (lacks && app.get_subcommands().empty()) return complain(exit_usage, needs_command(app));
        return app.exit(e) == 0 ? exit_done : exit_usage;
    }
    if (charmap_cmd->parsed()) return compile_charmaps(symbols);
    if (convert_cmd->parsed()) return convert_pair(convert);
    if (image_cmd->parsed()) return make_image(image);
    if (registry_cmd->parsed()) return write_registry(registry);
    if (translit_cmd->parsed()) return write_translit(translit_root);
    if (pack_cmd->parsed()) return pack_all(packed);
    if (!locale_cmd->parsed()) return exit_usage;
    if (!locale.list.empty()) return compile_list(locale);
    if (locale.source.empty() || locale.charmap.empty()) {
        return complain(exit_usage, "locale needs -i SOURCE and -f CHARMAP, or --list FILE");
    }
    return compile_one(locale);
}

static constexpr char exhausted[] = "kovac: error: memory is exhausted\n";

// Before the initialisers of the option parser, which allocate.
[[gnu::constructor(101)]] static void watch_memory() { kovatool::end_without_memory(exhausted); }

int main(int argc, char **argv) {
    kovatool::prepare_signals();
    int status = exit_file;
    try {
        status = run_main(argc, argv);
    } catch (const std::bad_alloc &) {
        fputs(exhausted, stderr);
    } catch (const std::length_error &) {
        fputs("kovac: error: an input asks for more memory than there is\n", stderr);
    } catch (const std::system_error &e) {
        complain(exit_file, e.what());
    }
    if (kovatool::flush_standard_output() || status != exit_done) return status;
    return complain(exit_file, std::string("cannot write standard output: ") + strerror(errno));
}
