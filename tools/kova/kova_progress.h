// The line on a terminal that says how far a long input has been read.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kovacli {

struct progress {
    bool wanted = false, shown = false;
    uint64_t total = 0; // bytes of all files; 0 if one has no size
    double started = 0, next = 0;
};

void forbid_progress(); // no line is shown by this process

// Begins to count, where standard error is a terminal.
void start_progress(progress &line, bool wanted, const std::vector<std::string> &files);
// Shows the line, at most five times a second and not in the first second.
void show_progress(progress &line, uint64_t bytes);
void clear_progress(progress &line);

} // namespace kovacli
