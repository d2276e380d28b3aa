// kova verify: are the objects of a data root what their headers say, and is a file in a locale's
// order?
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "common/tool_text.h"
#include "kova/kova_read.h"
#include "kova_host.h"

namespace kovacli {

// ---- objects ----

namespace {
struct object_kind {
    const char *suffix, *first_line;
};
struct verification {
    output *out;
    std::string bytes; // of the object at hand
    uint64_t objects = 0, misfits = 0;
};
} // namespace
static constexpr object_kind object_kinds[] = {
    {".lco", "FILE_TYPE=locale_object\n"            },
    {".cvo", "FILE_TYPE=codeset_conversion_object\n"},
    {".cmo", "FILE_TYPE=charmap_object\n"           },
    {".trl", "FILE_TYPE=transliteration_object\n"   },
};

static void read_whole(const std::string &path, std::string &bytes) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(open_input(path), std::fclose);
    if (!file) throw failure(bad_file, "cannot read " + path + ": " + std::strerror(errno));
    bytes.resize(size_t(regular_size(file.get())) + 1); // one more, to meet the end
    size_t used = 0, n = 0;
    while ((n = std::fread(bytes.data() + used, 1, bytes.size() - used, file.get())) > 0) {
        used += n;
        if (used == bytes.size()) bytes.resize(2 * used);
    }
    if (std::ferror(file.get()))
        throw failure(bad_file, "cannot read " + path + ": " + std::strerror(errno));
    bytes.resize(used);
}

// What is wrong with an object, "" for a sound one.
static std::string misfit(const std::string &bytes, const char *first_line) {
    uint64_t content = 0;
    const int error = ko_verify_object(bytes.data(), bytes.size(), &content);
    if (bytes.compare(0, std::strlen(first_line), first_line) != 0)
        return "is not the kind of object that its name says";
    if (!error) return "";
    if (!content) return "has no complete header";
    const std::string header = bytes.substr(0, 4096);
    return header.find("\nCONTENT=") == header.npos ? "states no hash of its content"
                                                    : "has another content than its header says";
}

static void verify_object(verification &all, const std::string &path, const object_kind &kind) {
    read_whole(path, all.bytes);
    ++all.objects;
    const std::string wrong = misfit(all.bytes, kind.first_line);
    if (wrong.empty()) return;
    ++all.misfits;
    write(*all.out, kovatool::printable(path) + " " + wrong + "\n");
}

static void verify_below(verification &all, const std::string &directory) {
    std::vector<std::string> names;
    if (!read_directory(directory, names))
        throw failure(bad_file, "cannot read " + directory + ": " + std::strerror(errno));
    for (const std::string &name : names) {
        const std::string path = directory + "/" + name;
        if (is_directory(path)) {
            verify_below(all, path);
            continue;
        }
        for (const object_kind &kind : object_kinds)
            if (name.ends_with(kind.suffix)) verify_object(all, path, kind);
    }
}

static int verify_root(const common_options &common, const std::string &named) {
    const std::string root = named.empty() ? find_data(common).root : named;
    if (root.empty())
        throw failure(bad_usage, "KO_PATH names no data root; give the directory to verify");
    output out;
    verification all = {.out = &out, .bytes = {}};
    verify_below(all, root);
    if (!all.objects) throw failure(bad_locale, root + " holds no objects");
    const std::string count = std::to_string(all.objects);
    if (!all.misfits) write(out, "sound objects: " + count + "\n");
    finish(out);
    if (!all.misfits) return done;
    throw failure(bad_text, "damaged objects: " + std::to_string(all.misfits) + " of " + count);
}

// ---- order ----

namespace {
struct order_check {
    codec code;
    std::string path;
    std::vector<ko_wchar_t> before, line;
    uint64_t number = 0;
    bool begun = false;
};
} // namespace

// Compares lines that end with a null character. Those within them are less than all other
// characters, and more than the end.
static int compare_lines(ko_lc_t loc, const std::vector<ko_wchar_t> &a,
                         const std::vector<ko_wchar_t> &b) {
    for (auto x = a.begin(), y = b.begin(); x != a.end() && y != b.end(); ++x, ++y) {
        if (const int order = ko_full_wcscoll(loc, &*x, &*y)) return order;
        x = std::find(x, a.end(), ko_wchar_t{0});
        y = std::find(y, b.end(), ko_wchar_t{0});
        if (x + 1 == a.end() || y + 1 == b.end()) return (y + 1 == b.end()) - (x + 1 == a.end());
    }
    return 0;
}

static void end_line(order_check &check) {
    check.line.push_back(0);
    const bool first = ++check.number == 1;
    if (!first && compare_lines(check.code.loc, check.before, check.line) > 0) {
        std::string text;
        encode(check.code, check.line.data(), check.line.size() - 1, text);
        throw failure(bad_text,
                      check.path + ":" + std::to_string(check.number) +
                          ": comes before the line above it: " + visible(check.code, text));
    }
    check.before.swap(check.line);
    check.line.clear();
    check.begun = false;
}

static int verify_order(const common_options &common, const verify_options &options) {
    locale_handle handle;
    order_check check;
    check.path = options.file == "-" ? "standard input" : options.file;
    open_with_codec(common, options.place, handle, check.code);
    std::vector<ko_wchar_t> wide;
    bad_count bad;
    const auto add = [&](size_t units) {
        for (size_t i = 0; i < units; ++i) {
            check.begun = true;
            if (wide[i] == check.code.newline)
                end_line(check);
            else
                check.line.push_back(wide[i]);
        }
    };
    read_text(check.code, options.file, wide, bad, add, [](const unsigned char *, size_t) {});
    if (check.begun) end_line(check);
    return done;
}

int run_verify(const common_options &common, const verify_options &options) {
    return options.file.empty() ? verify_root(common, options.place)
                                : verify_order(common, options);
}

} // namespace kovacli
