// kovac pack: everything that the system's locale sources support, compiled into one data root.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kovac {

struct pack_options {
    std::string root, only, release;
    int jobs = 0; // 0: as many as there are processors
    bool prove = true, verbose = false;
};

// One thing to compile, as the command of its kind takes it.
enum class task_kind { registry, locale, conversion, charmap };
struct pack_task {
    task_kind kind = task_kind::locale;
    std::string label;              // "de_DE.unicode", "IBM037 utf8", "charmap IBM037"
    std::vector<std::string> words; // of a line of the kind's list
    std::string skipped;            // why it is not compiled; "" if it is
    std::string stamp;              // of what it was compiled from
};

enum class task_result { none, built, current, skipped, failed };
struct task_outcome {
    task_result result = task_result::none;
    std::vector<std::string> files; // below the root
    std::string messages;           // what was said while it was compiled
    unsigned long long warnings = 0, bytes = 0;
    double seconds = 0;
};

// The lines of a list that have words, without comments.
struct list_line {
    int number; // from 1
    std::vector<std::string> words;
};
std::vector<list_line> list_lines(std::string_view text);

// The locale sources that kovac carries along, by name.
std::map<std::string, std::string_view, std::less<>> carried_sources();

// The name ll_TT[@mod] of a locale whose source's name cannot be one; "" if there is none.
std::string standin_name(const std::string &source);

// Everything that sources in these directories and the lists of kovac name.
std::vector<pack_task> pack_tasks(const std::vector<std::string> &locale_dirs);

// Runs every task that has no result yet, several at a time, and calls done after each. run returns
// an exit status, and names the files that it wrote through note_file.
using task_run = std::function<int(const pack_task &)>;
using task_done = std::function<void(size_t task)>;
void run_tasks(const std::vector<pack_task> &tasks, int jobs, const task_run &run,
               const task_done &done, std::vector<task_outcome> &outcomes);

// Files written by this process, for run_tasks.
void note_file(const std::string &path);

// Compiles what is not up to date and prints a summary. The exit status is 0, or 1 if something was
// not compiled that should have been. dirs: where sources and charmaps are searched.
int pack(const pack_options &opt, const std::vector<std::string> &locale_dirs,
         const std::vector<std::string> &charmap_dirs, const task_run &run);

} // namespace kovac
