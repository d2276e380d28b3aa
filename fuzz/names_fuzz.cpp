// Names from anywhere, of locales and code sets, against a registry, a profile file and an
// environment from anywhere: what a name stands for fits its room, a registry in memory answers as
// its file does, a setting that is made can be made again, confined names lead nowhere else, and
// nothing is left behind. The parts of the input are divided by form feeds: options, the registry,
// the profile, the environment (lines), and the names (lines).
#include "fuzz_host.h"
#include "record/kovaspec.h"
#include "support/locale_builder.h"

#include <algorithm>

#include <unistd.h>

namespace {

std::vector<std::string> parts_of(std::string_view text, char divider) {
    std::vector<std::string> parts;
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find(divider, at), text.size());
        parts.push_back(std::string(text.substr(at, end - at)));
        at = end + 1;
    }
    return parts;
}

// What the library reads through the C library: files that stay open and are filled anew.
struct real_files {
    temp_dir dir;
    std::string registry = dir.path + "/registry", profile = dir.path + "/KOVA.INI";
    FILE *const open[2] = {fopen(registry.c_str(), "w"), fopen(profile.c_str(), "w")};
    void fill(int i, const std::string &text) {
        rewind(open[i]);
        fwrite(text.data(), 1, text.size(), open[i]);
        fflush(open[i]);
        check(!ftruncate(fileno(open[i]), off_t(text.size())), "a file can be filled");
    }
};

void check_codesets(const std::string &registry, const std::vector<std::string> &names) {
    std::vector<std::pair<int, int>> answers;
    test_handle handle;
    for (const bool cached : {false, true}) {
        if (cached) ko_cache_registry(handle, registry.c_str());
        if (cached && (handle.error() || !registry_in_memory(state_lock())))
            return; // the built-in one is in force, or an empty one
        for (size_t i = 0; i < names.size(); ++i) {
            const registry_choice choice = {cached ? nullptr : registry.c_str(), !cached};
            int error = 0, loose = 0;
            const int number = find_cs_num(names[i].c_str(), choice, &error);
            const std::pair found = {number, error};
            const bool loosely = find_cs_loosely(names[i].c_str(), choice, &loose) != KO_NO_CODESET;
            check(loosely || error, "a name that is known is known however it is written");
            if (!cached) answers.push_back(found);
            check(found == answers[i] || answers[i].second == KO_EOBJECT, // a line without an end
                  "a registry in memory answers as its file");
        }
    }
}

void check_forms(const std::string &name, const std::string &registry) {
    const auto ended = [](const std::vector<char> &text, size_t room) {
        check(strnlen(text.data(), room) < room, "a name fits its room");
    };
    std::vector<char> file(spec_room), domain(11), spec(18), lang(6), number(6), modifier(5);
    test_handle handle;
    const char *const r = registry.c_str(), *const n = name.c_str();
    ko_lc_spec2cs_num(handle, n, r);
    if (!ko_lc_spec2msg_dname(handle, n, domain.data(), r, nullptr)) ended(domain, domain.size());
    if (ko_lc_spec2lc_fname(handle, n, file.data(), r, nullptr)) return;
    ended(file, file.size());
    if (ko_lc_fname2lc_pieces(handle, file.data(), lang.data(), number.data(), modifier.data()))
        return;
    ended(lang, 6), ended(number, 6), ended(modifier, 5);
    if (!ko_lc_pieces2lc_spec(handle, lang.data(), number.data(), modifier.data(), spec.data()))
        ended(spec, spec.size());
}

// Two specifications are looked up in one reading as one by one.
void check_pair(const std::string &one, const std::string &two, const std::string &registry) {
    test_handle handle;
    registry_stamp stamp;
    uint16_t numbers[2];
    find_two_cs_nums({one.c_str(), two.c_str()}, registry.c_str(), numbers, &stamp);
    check(numbers[0] == ko_lc_spec2cs_num(handle, one.c_str(), registry.c_str()) &&
              numbers[1] == ko_lc_spec2cs_num(handle, two.c_str(), registry.c_str()),
          "two names have the numbers that each has");
}

void check_setting(int category, const std::string &name) {
    const own_record loc;
    const std::string made = loc.set(category, name.c_str());
    if (made == "(null)") return;
    const int error = loc.error();
    check(loc.set(category, nullptr) == made, "a setting tells itself");
    check(loc.set(category, made.c_str()) == made || error, "a setting can be made again");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static real_files disk;
    static const std::string object = single_byte_object().str();
    const long blocks = memory.live;
    auto parts = parts_of({reinterpret_cast<const char *>(data), size}, '\f');
    parts.resize(5);
    const unsigned options = parts[0].empty() ? 0 : uint8_t(parts[0][0]);
    const bool confined = options & 1;
    const std::vector<std::string> names = parts_of(parts[4].substr(0, 2000), '\n');
    env_hooks env;
    file_hooks files;
    const std::string root = disk.dir.path, home = root + "\\kova\\";
    env.vars["VANTORDIR"] = root;
    for (const std::string &line : parts_of(parts[3].substr(0, 2000), '\n'))
        if (const size_t at = line.find('='); at != line.npos && !line.starts_with("VANTORDIR"))
            env.vars[line.substr(0, at)] = line.substr(at + 1);
    env.vars["HOME"] = "/nowhere";
    for (const char *name : {"default.lco", "de_de\\0333.lco", "en_us\\0001.lco"})
        files.files[home + "lc11\\" + name] = object;
    disk.fill(0, parts[1]);
    disk.fill(1, parts[2]);
    exit_utilities();
    ko_init_debug();
    check_codesets(disk.registry, names);
    const char *const list = ko_ext_getenv("KO_PATH");
    const bool paths = list && *list;
    ko_secure_names(confined);
    for (const std::string &name : names) {
        check_forms(name, disk.registry);
        check_pair(name, names.back(), disk.registry);
        check_setting(int(options >> 1) % 9, name);
        ko_lc_t shared;
        ko_lc_load(&shared, name.c_str(), options & 32 ? disk.registry.c_str() : nullptr, nullptr);
        ko_lc_unload(shared);
        ko_cm_t cm;
        ko_cm_load(&cm, name.c_str(), nullptr, nullptr);
        ko_cm_unload(cm);
    }
    for (const std::string &path : files.tried)
        check(!confined || paths ||
                  (path.starts_with(home) && path.find("..", home.size()) == path.npos &&
                   path.find('/', home.size()) == path.npos),
              "confined names lead nowhere else");
    ko_secure_names(0);
    check(memory.live == blocks && !files.streams, "nothing is left");
    return 0;
}
