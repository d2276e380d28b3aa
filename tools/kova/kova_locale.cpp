// Finding the data, listing its locale objects, and opening one of them.
#include "kova/kova_locale.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "kova/kova_platform.h"
#include "kova_host.h"

namespace kovacli {

// What the library gets instead of the environment. Set once by find_data, before any load.
static std::string hook_root;
static bool hook_ignores_path;
static std::string hook_value;

extern "C" {
static char *environment_hook(const char *name) {
    if (std::strcmp(name, "VANTORDIR") == 0 && !hook_root.empty()) return hook_root.data();
    if (std::strcmp(name, "KO_PATH") == 0 && hook_ignores_path) return nullptr;
    hook_value = env_text(name);
    return hook_value.empty() ? nullptr : hook_value.data();
}
}

static void use_root(const std::string &root, bool ignore_path) {
    hook_root = root;
    hook_ignores_path = ignore_path;
    ko_setextfunc(nullptr, KO_EXT_GETENV, reinterpret_cast<ko_extfn_t>(environment_hook));
}

namespace {
// What is looked for below a root, and what the message calls it.
struct kind_names {
    const char *dirs[2];
    const char *missing, *compile;
};
} // namespace
static const kind_names &names_of(data_kind kind) {
    static constexpr kind_names locales = {
        {"/kova/lc11", "/kova/lc"},
        "locale objects (kova/lc11 is missing)", "kovac locale"
    };
    static constexpr kind_names conversions = {
        {"/kova/cv9", "/kova/cv"},
        "conversion objects (kova/cv9 is missing)", "kovac convert"
    };
    static constexpr kind_names charmaps = {
        {"/kova/cm3", "/kova/cm"},
        "charmap objects (kova/cm3 is missing)", "kovac charmap"
    };
    return kind == data_kind::locales       ? locales
           : kind == data_kind::conversions ? conversions
                                            : charmaps;
}

// The directories of objects below a root; none if it is not a data root.
static std::vector<std::string> object_dirs(const std::string &root, data_kind kind) {
    std::vector<std::string> result;
    for (const char *dir : names_of(kind).dirs)
        if (is_directory(root + dir)) result.push_back(root + dir);
    return result;
}

static data_place named_root(const std::string &name, const char *said_by, bool ignore_path,
                             data_kind kind) {
    const std::string root = data_path(name);
    const kind_names &names = names_of(kind);
    if (!is_directory(root))
        throw failure(bad_locale, std::string(said_by) + ": there is no directory " + root +
                                      "; name the directory that holds " + (names.dirs[0] + 1));
    data_place place{root, object_dirs(root, kind)};
    if (place.dirs.empty())
        throw failure(bad_locale, std::string(said_by) + ": " + root + " holds no " +
                                      names.missing + "; compile some with \"" + names.compile +
                                      " -o " + root + "\" or name another root");
    use_root(root, ignore_path);
    return place;
}

static data_place path_places(const std::string &list) {
    data_place place;
    for (size_t at = 0; at <= list.size();) {
        const size_t end = std::min(list.find(';', at), list.size());
        if (end > at) place.dirs.push_back(data_path(list.substr(at, end - at)));
        at = end + 1;
    }
    use_root(env_text("VANTORDIR"), false);
    return place;
}

data_place find_data(const common_options &common, data_kind kind) {
    if (!common.root.empty()) return named_root(common.root, "--root", true, kind);
    if (const std::string list = env_text("KO_PATH"); !list.empty()) return path_places(list);
    if (const std::string root = env_text("VANTORDIR"); !root.empty())
        return named_root(root, "VANTORDIR", false, kind);
    std::vector<std::string> tried;
    if (const std::string program = program_directory(); !program.empty()) {
        const std::string above = program.substr(0, program.find_last_of("/\\"));
        tried = {program + "/vantor", above + "/vantor", above + "/share/vantor"};
    }
    tried.push_back(built_in_root());
    std::string text;
    for (const std::string &root : tried) {
        data_place place{root, object_dirs(root, kind)};
        if (!place.dirs.empty()) {
            use_root(root, false);
            return place;
        }
        text += (text.empty() ? "" : ", ") + root;
    }
    throw failure(bad_locale, "no data root found (looked in " + text +
                                  "); give --root DIR or set VANTORDIR to the directory that "
                                  "holds " +
                                  (names_of(kind).dirs[0] + 1));
}

// Reads one line of at most limit bytes, without its end; a longer one counts as several.
static bool header_line(std::FILE *file, size_t limit, std::string &line) {
    line.clear();
    for (int c; line.size() < limit && (c = std::fgetc(file)) != EOF;) {
        if (c == '\n') return true;
        line.push_back(char(c));
    }
    return !line.empty();
}

static void read_header(object_file &object, std::FILE *file) {
    std::string line;
    if (!header_line(file, 127, line) || line != "FILE_TYPE=locale_object" ||
        !header_line(file, 127, line) || !header_line(file, 127, line))
        return;
    const size_t equals = line.find('=');
    const long lines =
        equals == line.npos ? 0 : std::strtol(line.c_str() + equals + 1, nullptr, 10);
    for (long i = 3; i < lines && header_line(file, 127, line); ++i)
        object.header.push_back(line);
    while (header_line(file, 20, line) && line.empty()) {
    }
    object.code_set = line;
}

void read_header(object_file &object) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(open_input(object.path),
                                                                std::fclose);
    object.fault = file ? 0 : errno;
    if (!file) return;
    read_header(object, file.get());
    if (std::ferror(file.get())) object.fault = EIO;
}

static failure unreadable(const object_file &object) {
    return failure(bad_locale, object.path + " cannot be read: " + std::strerror(object.fault));
}

std::vector<object_file> list_objects(const data_place &place) {
    std::vector<object_file> result;
    for (const std::string &dir : place.dirs) {
        for (const std::string &sub : directory_entries(dir)) {
            if (sub.size() != 5 || sub[2] != '_') continue;
            for (const std::string &entry : directory_entries(dir + "/" + sub)) {
                char language[6] = {}, number[6] = {}, modifier[5] = {};
                object_file object;
                object.file_name = sub + "\\" + entry;
                object.path = dir + "/" + sub + "/" + entry;
                if (entry.size() < 8 || entry.compare(entry.size() - 4, 4, ".lco") != 0 ||
                    ko_lc_fname2lc_pieces(nullptr, object.file_name.c_str(), language, number,
                                          modifier) != 0)
                    continue;
                object.language = language;
                object.number = uint16_t(std::strtoul(number, nullptr, 10));
                object.modifier = modifier;
                const auto same = [&](const object_file &o) {
                    return o.file_name == object.file_name;
                };
                if (std::any_of(result.begin(), result.end(), same)) continue;
                read_header(object);
                if (object.fault && object.fault != EACCES) throw unreadable(object);
                result.push_back(object);
            }
        }
    }
    return result;
}

void refuse_path(const char *what, const std::string &name) {
    if (name.find_first_of("/\\") == name.npos && name.find("..") == name.npos) return;
    throw failure(bad_locale, std::string("the name of a ") + what + " cannot be a path: \"" +
                                  name + "\"; --root names another place for the data");
}

std::FILE *open_registry() {
    errno = 0;
    void *const file = ko_path_search_no_ext(nullptr, "registry", "cm", "3");
    if (!file && errno && errno != ENOENT && errno != ENOTDIR) throw unreadable_registry();
    return static_cast<std::FILE *>(file);
}

failure unreadable_registry() {
    return failure(bad_locale, "the registry of code sets, kova/cm3/registry, cannot be read");
}

// Without a registry the library's own names serve, but not in place of one that cannot be read.
static void check_registry(int error) {
    if (error == KO_ENOMEM) throw std::bad_alloc();
    if (error == KO_EIO) throw unreadable_registry();
}

uint16_t code_set_number(const std::string &name) {
    static gen_exports scratch;
    static const int uncached = (ko_cache_registry(&scratch, nullptr), scratch.ko_lerrno);
    if (uncached) check_registry(uncached);
    return ko_cs_name2cs_num(&scratch, name.c_str(), nullptr);
}

std::string specification(const object_file &object) {
    const bool named = !object.code_set.empty() && object.code_set.size() <= 21 &&
                       code_set_number(object.code_set) == object.number;
    return object.language + "." +
           (named ? object.code_set : std::to_string(unsigned{object.number})) +
           (object.modifier.empty() ? "" : "@" + object.modifier);
}

static bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
static char lower(char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; }
static char upper(char c) { return c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c; }

static std::string folded(const std::string &name, std::string_view dropped) {
    std::string result;
    for (const char c : name)
        if (dropped.find(c) == dropped.npos) result.push_back(lower(c));
    return result;
}

static std::string header_value(const object_file &object, std::string_view key) {
    for (const std::string &line : object.header)
        if (line.starts_with(key)) return line.substr(key.size());
    return {};
}

std::string source_name(const object_file &object) { return header_value(object, "SOURCE="); }

std::string variant_name(const object_file &object) {
    const std::string text = header_value(object, "STRENGTH=") + header_value(object, "METHOD=");
    return text.substr(0, text.find(','));
}

bool is_unicode(const object_file &object) { return folded(object.code_set, "") == "unicode"; }

// The code set of a specification as the library calls it: what others call UTF-8 is the form that
// text of "unicode" has outside.
static std::string known_set(const std::string &name) {
    return folded(name, "-") == "utf8" ? "unicode" : name;
}

// "de_DE", with upper and lower case corrected; "" if the text does not begin like that.
static std::string language_of(const std::string &spec) {
    if (spec.size() < 5 || !is_letter(spec[0]) || !is_letter(spec[1]) || spec[2] != '_' ||
        !is_letter(spec[3]) || !is_letter(spec[4]))
        return "";
    return {lower(spec[0]), lower(spec[1]), '_', upper(spec[3]), upper(spec[4])};
}

static std::string names_of(const std::vector<object_file> &objects) {
    constexpr size_t most = 12;
    std::string text;
    for (size_t i = 0; i < objects.size() && i < most; ++i)
        text += (i ? ", " : "") + specification(objects[i]);
    if (objects.size() > most)
        text += " and " + std::to_string(objects.size() - most) + " more (see kova locales)";
    return text;
}

// The failure for a locale that does not exist, with what could have been meant.
static failure unknown_locale(const std::string &why, const std::string &language,
                              const std::vector<object_file> &all) {
    std::vector<object_file> near;
    for (const object_file &object : all)
        if (object.language == language) near.push_back(object);
    if (!near.empty())
        return failure(bad_locale, why + "; " + language + " exists as " + names_of(near));
    for (const object_file &object : all)
        if (!language.empty() && object.language.compare(0, 2, language, 0, 2) == 0)
            near.push_back(object);
    if (!near.empty()) return failure(bad_locale, why + "; there are " + names_of(near));
    if (!all.empty()) return failure(bad_locale, why + "; there are " + names_of(all));
    return failure(bad_locale, why + "; no locale is compiled here, only POSIX can be used");
}

// Why a record lacks its file or part of it; "" if it is complete.
static std::string damage_text(ko_lc_t loc) {
    switch (ko_lc_status(loc)) {
    case KO_OK:
        return "";
    case KO_ENOMEM:
        return "cannot be loaded completely: memory is exhausted";
    default:
        return "cannot be loaded completely: reading it failed";
    }
}

static std::string fault_text(ko_lc_t loc, const object_file &object) {
    const int error = *ko_ext_errno(loc);
    if (std::FILE *file = open_input(object.path)) {
        std::fclose(file);
    } else {
        return std::string("cannot be read: ") + std::strerror(errno);
    }
    if (std::string text = damage_text(loc); !text.empty()) return text;
    switch (error) {
    case KO_ENOMEM:
    case KO_E2BIG: // of lists that could not grow
        return "cannot be loaded: damaged, or memory is exhausted";
    case KO_EVERSION:
        return "was written by another version of kovac; compile it again";
    case KO_ECALENDAR:
        return "names an unknown calendar; compile it again with kovac locale";
    default:
        return "is damaged or not a locale object (error " + std::to_string(error) +
               "); compile it again with kovac locale";
    }
}

// Checks that the record and its object's header are complete, however the locale was opened.
static void check_whole(const locale_handle &handle) {
    if (const std::string text = damage_text(handle.loc); !text.empty())
        throw failure(bad_locale, handle.object.path + " " + text);
    if (handle.object.fault) throw unreadable(handle.object);
}

static void load(const std::string &name, locale_handle &handle) {
    if (ko_lc_load(&handle.loc, name.c_str(), nullptr, nullptr) == 0) return check_whole(handle);
    throw failure(bad_locale, handle.object.path + " " + fault_text(handle.loc, handle.object));
}

static void open_default(const data_place &place, locale_handle &handle) {
    object_file &object = handle.object;
    object.file_name = "default.lco";
    for (const std::string &dir : place.dirs) {
        object.path = dir + "/default.lco";
        read_header(object);
        if (!object.code_set.empty()) break;
    }
    object.number =
        object.code_set.empty() ? uint16_t(KO_NO_CODESET) : code_set_number(object.code_set);
    handle.name = "POSIX";
    if (ko_createlocale_2(&handle.loc) == 0) return check_whole(handle);
    const int error = *ko_ext_errno(handle.loc);
    if (error == KO_EFILE)
        throw failure(bad_locale, "the POSIX locale is missing: no default.lco in " +
                                      (place.dirs.empty() ? "KO_PATH" : place.dirs[0]) +
                                      "; name a locale, see kova locales");
    throw failure(bad_locale, object.path + " " + fault_text(handle.loc, object));
}

// Opens ll_TT or ll_TT@mod: its object of the code set "unicode", or else its only object.
static void open_bare(const std::string &spec, const std::string &language,
                      const std::vector<object_file> &all, locale_handle &handle) {
    const std::string modifier = spec.size() > 6 ? spec.substr(6) : "";
    std::vector<object_file> found;
    for (const object_file &object : all)
        if (object.language == language && object.modifier == modifier) {
            if (object.fault) throw unreadable(object); // it may be the one of "unicode"
            found.push_back(object);
        }
    if (found.empty()) throw unknown_locale("there is no locale " + spec, language, all);
    if (const auto it = std::find_if(found.begin(), found.end(), is_unicode); it != found.end())
        std::iter_swap(it, found.begin());
    else if (found.size() > 1)
        throw failure(bad_locale,
                      spec + " exists in several code sets, name one: " + names_of(found));
    handle.object = found[0];
    handle.name = specification(found[0]);
    load(found[0].file_name, handle);
}

// The specification of an object whose name is a stand-in for the name of its source, if that is
// the one asked for: "qb_ES" for ast_ES. "" if there is none.
static std::string stood_in(const std::string &spec, const std::vector<object_file> &all) {
    const size_t at = std::min(spec.find('@'), spec.size());
    const size_t dot = std::min(spec.find('.'), at);
    const std::string source = spec.substr(0, dot) + spec.substr(at);
    std::string found;
    for (const object_file &object : all) {
        const std::string modifier = object.modifier.empty() ? "" : "@" + object.modifier;
        if (object.language + modifier == source) return {}; // the name itself exists
        const std::string variant = variant_name(object);
        if (source_name(object) + (variant.empty() ? "" : "@" + variant) == source)
            found = object.language + spec.substr(dot, at - dot) + modifier;
    }
    return found;
}

// What a name without a territory, or with another sign before it, most probably means: "de",
// "de_DE".
static std::string meant_language(std::string spec) {
    if (spec.size() > 2) spec[2] = '_';
    const std::string language = language_of(spec.substr(0, 5));
    if (!language.empty() || spec.size() < 2) return language;
    return {char(spec[0] | 0x20), char(spec[1] | 0x20)};
}

void open_locale(const data_place &place, const std::string &asked, locale_handle &handle) {
    refuse_path("locale", asked);
    if (asked == "POSIX" || asked == "C" || asked == "default") return open_default(place, handle);
    const std::vector<object_file> all = list_objects(place);
    const std::string stand_in = stood_in(asked, all), &spec = stand_in.empty() ? asked : stand_in;
    const std::string language = language_of(spec);
    if (language.empty() || (spec.size() > 5 && spec[5] != '.' && spec[5] != '@'))
        throw unknown_locale("\"" + spec + "\" is not a locale name, which looks like de_DE.8859-1",
                             meant_language(spec), all);
    if (spec.size() == 5 || spec[5] == '@') return open_bare(spec, language, all, handle);
    const size_t at = std::min(spec.find('@'), spec.size());
    const std::string set = known_set(spec.substr(6, at - 6)),
                      modifier = spec.substr(std::min(at + 1, spec.size()));
    const uint16_t number = set.empty() ? uint16_t(KO_NO_CODESET) : code_set_number(set);
    if (number == KO_NO_CODESET)
        throw unknown_locale("no code set is called \"" + set + "\"", language, all);
    for (const object_file &object : all) {
        if (object.language != language || object.number != number || object.modifier != modifier)
            continue;
        handle.object = object;
        handle.name = language + "." + set + (modifier.empty() ? "" : "@" + modifier);
        return load(handle.name, handle);
    }
    throw unknown_locale("there is no locale " + spec, language, all);
}

locale_handle::~locale_handle() { ko_lc_unload(loc); }

std::string object_fault(const object_file &object) {
    ko_lc_t loc = nullptr;
    std::string fault;
    if (ko_lc_load(&loc, object.file_name.c_str(), nullptr, nullptr) != 0)
        fault = fault_text(loc, object);
    else
        fault = damage_text(loc);
    ko_lc_unload(loc);
    return fault;
}

std::string environment_locale() {
    std::string value;
    for (const char *name : {"LC_ALL", "LC_COLLATE", "LANG"})
        if (value = env_text(name); !value.empty()) break;
    const std::string language = language_of(value);
    if (language.empty()) return "POSIX";
    const size_t dot = value.find('.'), at = std::min(value.find('@'), value.size());
    if (dot == value.npos || dot > at) return language + value.substr(at);
    return language + "." + known_set(value.substr(dot + 1, at - dot - 1)) + value.substr(at);
}

} // namespace kovacli
