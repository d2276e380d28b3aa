// How far a long input has been read, on a terminal.
#include "kova/kova_progress.h"

#include <cstdio>

#include "kova/kova_io.h"
#include "kova/kova_platform.h"

namespace kovacli {

static bool forbidden = false;

void forbid_progress() { forbidden = true; }

static std::string amount(double bytes) {
    char text[40];
    const bool large = bytes >= 1073741824.0;
    std::snprintf(text, sizeof text, "%.1f %s", bytes / (large ? 1073741824.0 : 1048576.0),
                  large ? "GiB" : "MiB");
    return text;
}

// Adds up the sizes of all files, if every one has a size.
static uint64_t total_of(const std::vector<std::string> &files) {
    uint64_t total = 0;
    for (const std::string &path : files) {
        if (path != "-" && !is_regular_file(path)) return 0; // opening a pipe would disturb it
        input in;
        open(in, path);
        if (in.size == 0) return 0;
        total += in.size;
    }
    return total;
}

void start_progress(progress &line, bool wanted, const std::vector<std::string> &files) {
    line.wanted = wanted && !forbidden && is_terminal(stderr);
    if (line.wanted) line.total = total_of(files);
    line.started = seconds_now();
    line.next = line.started + 1.0;
}

void show_progress(progress &line, uint64_t bytes) {
    if (!line.wanted) return;
    const double now = seconds_now();
    if (now < line.next) return;
    line.next = now + 0.2;
    line.shown = true;
    const double done_bytes = double(bytes), rate = done_bytes / (now - line.started);
    std::string text = amount(done_bytes);
    if (line.total > bytes)
        text += " of " + amount(double(line.total)) + " (" +
                std::to_string(int(100 * done_bytes / double(line.total))) + "%)";
    text += ", " + amount(rate) + "/s";
    if (line.total > bytes)
        text += ", " + std::to_string(int(double(line.total - bytes) / rate) + 1) + " s left";
    std::fprintf(stderr, "\rkova: %s\033[K", text.c_str());
    std::fflush(stderr);
}

void clear_progress(progress &line) {
    if (line.shown) std::fputs("\r\033[K", stderr);
    line.shown = false;
}

} // namespace kovacli
