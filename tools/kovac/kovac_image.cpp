// kovac image: names the objects of a root that an image can hold, and writes what the library
// makes of them.
#include "kovac/kovac_image.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "common/tool_path.h"
#include "common/tool_text.h"
#include "kova_host.h"
#include "kovac/kovac_write.h"

namespace fs = std::filesystem;

namespace kovac {

namespace {

struct image_run {
    FILE *to = nullptr;
    bool named = false; // the objects were named: all of them or none
    size_t taken = 0, left = 0;
    unsigned long long bytes = 0;
    std::string failed; // why the first named one is not
};

// Objects have further names, of code sets; those of numbers are the ones that are looked for
// first.
bool is_numbered(const std::string &name) {
    return name.size() == 12 && name.ends_with(".cvo") &&
           name.find_first_not_of("0123456789abcdef") == 8;
}

bool list_objects(const fs::path &directory, std::vector<std::string> *names, std::string *why) {
    std::error_code failed;
    for (fs::directory_iterator at(directory, failed), end; !failed && at != end;
         at.increment(failed)) {
        const std::string name = kovatool::from_path(at->path().filename());
        if (is_numbered(name)) names->push_back(name);
    }
    if (failed) *why = "cannot read " + kovatool::from_path(directory) + ": " + failed.message();
    std::sort(names->begin(), names->end());
    return !failed;
}

std::string reason(int error) {
    if (error == KO_ERANGE) return "is as fast to read, or has tables of another form";
    return std::string("cannot be taken: ") + ko_error_text(error);
}

int put(void *user, const void *bytes, size_t size) {
    return fwrite(bytes, 1, size, static_cast<image_run *>(user)->to) != size;
}

void told(void *user, const char *name, int error, size_t size) {
    image_run &run = *static_cast<image_run *>(user);
    if (!error) {
        printf("%s %zu\n", name, size);
        ++run.taken;
        run.bytes += size;
        return;
    }
    ++run.left;
    const bool matters = run.named || error != KO_ERANGE;
    if (matters && run.failed.empty()) run.failed = kovatool::printable(name) + " " + reason(error);
}

} // namespace

image_result write_image(const image_options &opt, std::string *why) {
    std::vector<std::string> names = opt.names;
    const fs::path root = kovatool::to_path(opt.root);
    if (names.empty() && !list_objects(root / "kova" / "cv9", &names, why))
        return image_result::failed;
    std::vector<const char *> list;
    for (std::string &name : names) {
        if (!name.ends_with(".cvo")) name += ".cvo";
        list.push_back(name.c_str());
    }
    image_run run{.named = !opt.names.empty()};
    int error = KO_OK;
    const std::string path = opt.root + "/kova/image1";
    const auto make = [&](FILE *stream) {
        run.to = stream;
        const ko_image_output output = {put, told, &run};
        error = ko_make_image(opt.root.c_str(), list.data(), list.size(), &output);
        return error == KO_OK;
    };
    const auto has_named = [&](const std::string &) { return !run.named || run.failed.empty(); };
    const write_result result = write_file(path, why, make, has_named);
    if (result == write_result::unproved) {
        *why = run.failed + "; nothing was written";
        return image_result::left_out;
    }
    if (result != write_result::done) {
        if (error && error != KO_EIO) *why = ko_error_text(error);
        *why = "cannot write " + path + ": " + *why;
        return image_result::failed;
    }
    // The library maps only what its owner alone can change.
    std::error_code ignored;
    fs::permissions(kovatool::to_path(path), fs::perms::group_write | fs::perms::others_write,
                    fs::perm_options::remove, ignored);
    printf("%zu objects, %llu bytes; %zu left out\n", run.taken, run.bytes, run.left);
    *why = run.failed;
    return run.failed.empty() ? image_result::done : image_result::left_out;
}

} // namespace kovac
