// Reading bytes with their place in a file, and writing with every error checked.
#include "kova/kova_io.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "common/tool_path.h"
#include "common/tool_text.h"
#include "kova/kova_cli.h"

namespace kovacli {

static constexpr size_t block_bytes = size_t{1} << 18;

static failure file_failure(const char *what, const std::string &name, int error) {
    return failure(bad_file, std::string("cannot ") + what + " " + name + ": " +
                                 (error ? std::strerror(error) : "unknown reason"));
}

input::~input() {
    if (owned && stream) std::fclose(stream);
}

void open(input &in, const std::string &path) {
    if (path == "-") {
        in.name = "standard input";
        in.stream = stdin;
    } else {
        in.name = path;
        errno = 0;
        in.stream = open_input(path);
        if (!in.stream) throw file_failure("read", path, errno);
        in.owned = true;
    }
    in.size = regular_size(in.stream);
}

bool more(input &in) {
    if (in.at_end) return false;
    if (in.at > 0) {
        if (in.fill > in.at) std::memmove(in.block.data(), &in.block[in.at], in.fill - in.at);
        in.fill -= in.at;
        in.at = 0;
    }
    if (in.block.size() - in.fill < block_bytes / 2)
        in.block.resize(in.fill < block_bytes ? 2 * block_bytes : 2 * in.fill);
    errno = 0;
    const size_t got =
        std::fread(in.block.data() + in.fill, 1, in.block.size() - in.fill, in.stream);
    if (got == 0 && std::ferror(in.stream)) throw file_failure("read", in.name, errno);
    in.fill += got;
    in.at_end = got == 0;
    return got > 0;
}

void take(input &in, size_t bytes) {
    in.at += bytes;
    in.offset += bytes;
}

output::~output() {
    if (replaces) discard_replacement(file);
}

void open(output &out, const std::string &path) {
    if (path.empty() || path == "-" || path == "/dev/stdout") return;
    errno = 0;
    if (!open_replacement(path, kovatool::link_in_place::followed, out.file))
        throw file_failure("write", path, errno);
    out.name = path;
    out.stream = out.file.stream;
    out.replaces = true;
}

static failure write_failure(const output &out, int error) {
    if (!out.replaces && reader_is_gone(error)) return failure(bad_file, "");
    return file_failure("write", out.name, error);
}

void write(output &out, const void *bytes, size_t count) {
    errno = 0;
    if (count > 0 && std::fwrite(bytes, 1, count, out.stream) != count)
        throw write_failure(out, errno);
    out.written += count;
}

void finish(output &out) {
    errno = 0;
    if (std::fflush(out.stream) != 0 || std::ferror(out.stream)) throw write_failure(out, errno);
    if (!out.replaces) return;
    out.replaces = false;
    std::error_code error;
    const auto names = std::filesystem::hard_link_count(kovatool::to_path(out.file.target), error);
    const bool others = !error && names > 1;
    if (!commit_replacement(out.file)) throw file_failure("write", out.name, errno);
    if (others)
        kovatool::tell("kova",
                       out.name + " had other names (hard links), which keep what they had");
}

} // namespace kovacli
