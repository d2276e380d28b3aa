// kovac pack: what there is to compile, what is up to date, and the summary.
#include "kovac/kovac_pack.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "common/tool_path.h"
#include "common/tool_source.h"
#include "common/tool_text.h"
#include "kova.h"
#include "kovac/kovac_convert.h"
#include "kovac/kovac_registry.h"
#include "kovac/kovac_write.h"
#include "kovac_lists.h"

namespace fs = std::filesystem;

namespace kovac {

// ---- lists ----

std::vector<list_line> list_lines(std::string_view text) {
    std::vector<list_line> lines;
    int number = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const std::string_view line = text.substr(at, std::min(text.find('#', at), end) - at);
        list_line found{++number, {}};
        for (size_t i = 0; i < line.size();) {
            const size_t start = line.find_first_not_of(" \t\r", i);
            if (start == line.npos) break;
            i = std::min(line.find_first_of(" \t\r", start), line.size());
            found.words.emplace_back(line.substr(start, i - start));
        }
        at = end + 1;
        if (!found.words.empty()) lines.push_back(std::move(found));
    }
    return lines;
}

std::map<std::string, std::string_view, std::less<>> carried_sources() {
    return {std::begin(own_sources), std::end(own_sources)};
}

std::string standin_name(const std::string &source) {
    for (const auto &[number, words] : list_lines(standins_list))
        if (words.size() == 2 && words[0] == source) return words[1];
    return {};
}

// ---- tasks ----

// "de_DE.ISO-8859-15@euro" for the source de_DE@euro.
static std::string locale_label(const std::string &source, const std::string &charmap) {
    const size_t at = std::min(source.find('@'), source.size());
    return source.substr(0, at) + "." + charmap + source.substr(at);
}

static void add_locale(std::vector<pack_task> &tasks, const std::vector<std::string> &words) {
    pack_task task;
    task.label = words.size() > 2 ? words[2] : locale_label(words[0], words[1]);
    task.words = words;
    const auto same = [&task](const pack_task &other) { return other.label == task.label; };
    if (std::none_of(tasks.begin(), tasks.end(), same)) tasks.push_back(std::move(task));
}

// The lines LOCALE CHARMAP of the system's list of supported locales. Each locale is compiled for
// "unicode", too.
static void add_supported(std::vector<pack_task> &tasks, std::string_view text) {
    static const std::set<std::string> longer = {"GB18030", "EUC-TW"};
    for (const auto &[number, words] : list_lines(text)) {
        if (words.size() != 2) continue;
        const size_t at = std::min(words[0].find('@'), words[0].size());
        const std::string source =
            words[0].substr(0, std::min(words[0].find('.'), at)) + words[0].substr(at);
        if (source == "C" || source == "POSIX") continue; // the default object
        if (words[1] != "UTF-8") add_locale(tasks, {source, words[1]});
        if (longer.contains(words[1]))
            tasks.back().skipped = "characters of more than two bytes; it is compiled for unicode";
        add_locale(tasks, {source, "unicode"});
    }
}

static void add_supported_of(std::vector<pack_task> &tasks, const std::string &list) {
    std::string text;
    if (read_whole(list, text)) return add_supported(tasks, text);
    const int why = errno;
    std::error_code error;
    if (why != ENOENT && fs::exists(kovatool::to_path(list), error))
        throw std::system_error(why ? why : EIO, std::generic_category(), "cannot read " + list);
}

// The names in a directory, sorted; none if it does not exist.
static std::vector<std::string> names_in(const std::string &dir) {
    std::error_code error;
    std::vector<std::string> names;
    for (fs::directory_iterator it(kovatool::to_path(dir), error), end; !error && it != end;
         it.increment(error))
        names.push_back(kovatool::from_path(it->path().filename()));
    if (error && error != std::errc::no_such_file_or_directory &&
        error != std::errc::not_a_directory)
        throw std::system_error(error, "cannot read " + dir);
    std::sort(names.begin(), names.end());
    return names;
}

static bool is_locale(const std::string &source) {
    const size_t line = source.find('_');
    return line == 2 || line == 3;
}

// Every source, also those that the system's list does not name.
static void add_sources(std::vector<pack_task> &tasks, const std::string &dir) {
    for (const std::string &name : names_in(dir))
        if (is_locale(name) && name.find_first_not_of("abcdefghijklmnopqrstuvwxyz"
                                                      "ABCDEFGHIJKLMNOPQRSTUVWXYZ_@") == name.npos)
            add_locale(tasks, {name, "unicode"});
}

// The name that stands for a code set in lists and messages.
static std::string listed_name(int number) {
    const code_set *known = registered(number);
    if (!known) return std::to_string(number);
    if (known->charmap != std::string_view("-")) return known->charmap;
    std::string name(known->names, strcspn(known->names, " "));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c; });
    return name;
}

// Every code set of data/mappings.list with utf8 and unicode, and the pairs of the other lists.
static void add_conversions(std::vector<pack_task> &tasks) {
    std::set<std::pair<int, int>> known;
    const auto add = [&](const std::vector<std::string> &words) {
        const std::pair ends = std::minmax({find_code_set(words[0]), find_code_set(words[1])});
        if (known.insert(ends).second)
            tasks.push_back({task_kind::conversion, words[0] + " " + words[1], words, {}, {}});
    };
    for (const std::string_view list : {conversions_list, pairs_list})
        for (const auto &[number, words] : list_lines(list))
            add(words);
    for (const set_source &set : set_sources())
        for (const char *pivot : {"utf8", "unicode"})
            add({listed_name(set.number), pivot});
}

std::vector<pack_task> pack_tasks(const std::vector<std::string> &locale_dirs) {
    std::vector<pack_task> tasks{
        {task_kind::registry, "registry", {}, {}, {}}
    };
    for (const auto &[number, words] : list_lines(pack_list))
        add_locale(tasks, words);
    for (const std::string &dir : locale_dirs) {
        add_supported_of(tasks, dir + "/../SUPPORTED");
        add_sources(tasks, dir);
    }
    for (const auto &[name, text] : own_sources)
        add_locale(tasks, {std::string(name), "unicode"});
    add_conversions(tasks);
    for (const auto &[number, words] : list_lines(charmaps_list))
        tasks.push_back({task_kind::charmap, "charmap " + words[0], words, {}, {}});
    return tasks;
}

// ---- what is up to date ----

static void mix(uint64_t &hash, std::string_view text) {
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
    hash = (hash ^ 0xFF) * 0x100000001b3u;
}

// Names, sizes and times of the files in directories.
static void mix_files(uint64_t &hash, const std::vector<std::string> &dirs) {
    std::set<std::string> lines;
    for (const std::string &dir : dirs) {
        std::error_code error;
        for (fs::directory_iterator it(kovatool::to_path(dir), error), end; !error && it != end;
             it.increment(error)) {
            if (!it->is_regular_file(error)) continue;
            const auto time = it->last_write_time(error).time_since_epoch().count();
            lines.insert(kovatool::from_path(it->path()) + " " +
                         std::to_string(error ? 0 : it->file_size(error)) + " " +
                         std::to_string(time));
        }
    }
    for (const std::string &line : lines)
        mix(hash, line);
}

// What everything is compiled from: compiler, options, sources and charmaps.
static std::string stamp_of_all(const pack_options &opt,
                                const std::vector<std::string> &locale_dirs,
                                const std::vector<std::string> &charmap_dirs) {
    uint64_t hash = 0xcbf29ce484222325u;
    std::string compiler;
    if (read_whole("/proc/self/exe", compiler)) mix(hash, compiler);
    mix(hash, ko_version());
    mix(hash, opt.release);
    mix(hash, opt.prove ? "proved" : "");
    mix_files(hash, locale_dirs);
    mix_files(hash, charmap_dirs);
    char text[20];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

static constexpr char record_name[] = "/pack.tsv";

// A record of earlier runs: label, stamp, warnings and files, separated by tabs.
struct record_row {
    std::string stamp;
    unsigned long long warnings = 0;
    std::vector<std::string> files;
};

static std::map<std::string, record_row> read_record(const std::string &root) {
    std::map<std::string, record_row> rows;
    std::string text;
    if (!read_whole(root + record_name, text)) return rows;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        std::vector<std::string> cells;
        for (size_t cell = at; cell <= end;) {
            const size_t tab = std::min(text.find('\t', cell), end);
            cells.push_back(text.substr(cell, tab - cell));
            cell = tab + 1;
        }
        at = end + 1;
        if (cells.size() < 4 || cells[0].starts_with('#')) continue;
        rows[cells[0]] = {
            cells[1],
            std::strtoull(cells[2].c_str(), nullptr, 10),
            {cells.begin() + 3, cells.end()}
        };
    }
    return rows;
}

static bool write_record(const std::string &root, const std::map<std::string, record_row> &rows,
                         std::string *why) {
    std::string text = "# What kovac pack compiled: name, stamp of the inputs, warnings, files\n";
    for (const auto &[label, row] : rows) {
        text += label + "\t" + row.stamp + "\t" + std::to_string(row.warnings);
        for (const std::string &file : row.files)
            text += "\t" + file;
        text += "\n";
    }
    return write_text(root + record_name, text, why) == write_result::done;
}

static unsigned long long size_of(const std::string &root, const std::vector<std::string> &files) {
    unsigned long long bytes = 0;
    for (const std::string &file : files) {
        std::error_code error;
        const auto size = fs::file_size(kovatool::to_path(root + "/" + file), error);
        if (!error) bytes += size;
    }
    return bytes;
}

static bool all_exist(const std::string &root, const std::vector<std::string> &files) {
    return std::all_of(files.begin(), files.end(), [&root](const std::string &file) {
        std::error_code error;
        return fs::is_regular_file(kovatool::to_path(root + "/" + file), error);
    });
}

// ---- choice ----

// * stands for any text, ? for one byte.
static bool matches(std::string_view glob, std::string_view text) {
    size_t at = 0, star = glob.npos, resume = 0; // the last *, and where text goes on after it
    for (size_t i = 0; i < text.size();) {
        if (at < glob.size() && glob[at] == '*') {
            star = at++;
            resume = i;
        } else if (at < glob.size() && (glob[at] == '?' || glob[at] == text[i])) {
            ++at;
            ++i;
        } else if (star != glob.npos) {
            at = star + 1;
            i = ++resume;
        } else {
            return false;
        }
    }
    return glob.find_first_not_of('*', at) == glob.npos;
}

// ---- summary ----

static const char *kind_name(task_kind kind) {
    static constexpr const char *names[] = {"registry", "locales", "conversions", "charmaps"};
    return names[int(kind)];
}

static std::string first_line(const std::string &messages) {
    const size_t error = messages.find("error");
    const size_t start = error == messages.npos ? 0 : messages.rfind('\n', error) + 1;
    return messages.substr(start, messages.find('\n', start) - start);
}

static void print_summary(const std::vector<pack_task> &tasks,
                          const std::vector<task_outcome> &outcomes, double seconds) {
    std::printf("%-12s %7s %10s %8s %8s %9s %9s %9s\n", "", "built", "up to date", "skipped",
                "failed", "warnings", "MiB", "seconds");
    for (const task_kind kind : {task_kind::locale, task_kind::conversion, task_kind::charmap}) {
        unsigned long long built = 0, current = 0, skipped = 0, failed = 0, warnings = 0, bytes = 0;
        double time = 0;
        for (size_t i = 0; i < tasks.size(); ++i) {
            if (tasks[i].kind != kind) continue;
            built += outcomes[i].result == task_result::built;
            current += outcomes[i].result == task_result::current;
            failed += outcomes[i].result == task_result::failed;
            skipped += outcomes[i].result == task_result::skipped;
            warnings += outcomes[i].warnings;
            bytes += outcomes[i].bytes;
            time += outcomes[i].seconds;
        }
        std::printf("%-12s %7llu %10llu %8llu %8llu %9llu %9.1f %9.1f\n", kind_name(kind), built,
                    current, skipped, failed, warnings, double(bytes) / 1048576.0, time);
    }
    std::printf("%.0f seconds in all\n", seconds);
    for (size_t i = 0; i < tasks.size(); ++i) {
        if (!tasks[i].skipped.empty())
            std::printf("skipped: %s: %s\n", tasks[i].label.c_str(), tasks[i].skipped.c_str());
        if (outcomes[i].result == task_result::failed)
            std::printf("failed: %s: %s\n", tasks[i].label.c_str(),
                        kovatool::printable(first_line(outcomes[i].messages)).c_str());
    }
}

// ---- the command ----

namespace {
struct pack_job {
    const pack_options *opt;
    std::vector<pack_task> tasks;
    std::vector<task_outcome> outcomes;
    std::map<std::string, record_row> record;
    size_t done = 0, total = 0;
};
} // namespace

static void choose(pack_job &job) {
    std::erase_if(job.tasks, [&job](const pack_task &task) {
        return task.kind != task_kind::registry && !job.opt->only.empty() &&
               !matches(job.opt->only, task.label);
    });
    job.outcomes.resize(job.tasks.size());
    for (size_t i = 0; i < job.tasks.size(); ++i) {
        pack_task &task = job.tasks[i];
        task_outcome &outcome = job.outcomes[i];
        if (!task.skipped.empty()) {
            outcome.result = task_result::skipped;
            continue;
        }
        const auto it = job.record.find(task.label);
        if (it != job.record.end() && it->second.stamp == task.stamp &&
            all_exist(job.opt->root, it->second.files)) {
            outcome.result = task_result::current;
            outcome.files = it->second.files;
            outcome.warnings = it->second.warnings;
            outcome.bytes = size_of(job.opt->root, outcome.files);
        }
        job.total += outcome.result == task_result::none;
    }
}

static void keep(pack_job &job, size_t number) {
    const pack_task &task = job.tasks[number];
    task_outcome &outcome = job.outcomes[number];
    const std::string below = job.opt->root + "/";
    for (std::string &file : outcome.files)
        if (file.starts_with(below)) file.erase(0, below.size());
    outcome.bytes = size_of(job.opt->root, outcome.files);
    ++job.done;
    job.record.erase(task.label);
    if (outcome.result == task_result::built)
        job.record[task.label] = {task.stamp, outcome.warnings, outcome.files};
    if (isatty(2))
        std::fprintf(stderr, "\r\033[K%zu of %zu: %s", job.done, job.total, task.label.c_str());
    if (job.opt->verbose && !outcome.messages.empty())
        std::fprintf(stderr, "%s%s:\n%s", isatty(2) ? "\n" : "", task.label.c_str(),
                     kovatool::printable(outcome.messages, "\n").c_str());
}

int pack(const pack_options &opt, const std::vector<std::string> &locale_dirs,
         const std::vector<std::string> &charmap_dirs, const task_run &run) {
    const auto start = std::chrono::steady_clock::now();
    pack_job job{&opt, pack_tasks(locale_dirs), {}, read_record(opt.root)};
    const std::string stamp = stamp_of_all(opt, locale_dirs, charmap_dirs);
    for (pack_task &task : job.tasks)
        task.stamp = stamp;
    choose(job);
    if (job.tasks.size() == 1) {
        kovatool::tell("kovac: error", "--only " + opt.only +
                                           ": nothing has such a name; names look like "
                                           "de_DE.unicode, \"IBM037 utf8\", \"charmap IBM037\"");
        return 2;
    }
    const int jobs = opt.jobs ? opt.jobs : int(std::max(1u, std::thread::hardware_concurrency()));
    run_tasks(
        job.tasks, jobs, run, [&job](size_t number) { keep(job, number); }, job.outcomes);
    if (isatty(2) && job.done) std::fputs("\r\033[K", stderr);
    std::string why, log;
    for (size_t i = 0; i < job.tasks.size(); ++i)
        if (!job.outcomes[i].messages.empty())
            log += job.tasks[i].label + ":\n" +
                   kovatool::printable(job.outcomes[i].messages, "\n") + "\n";
    if (!write_record(opt.root, job.record, &why) ||
        write_text(opt.root + "/pack.log", log, &why) != write_result::done) {
        kovatool::tell("kovac: error", "cannot write below " + opt.root + ": " + why);
        return 3;
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    print_summary(job.tasks, job.outcomes, taken.count());
    return std::any_of(job.outcomes.begin(), job.outcomes.end(), [](const task_outcome &outcome) {
        return outcome.result == task_result::failed;
    });
}

} // namespace kovac
