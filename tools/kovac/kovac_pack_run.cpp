// Tasks of kovac pack in processes of their own, several at a time; where the system has no fork,
// one after the other in this one.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "common/tool_text.h"
#include "kovac/kovac_pack.h"

#if !defined(_WIN32)
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace kovac {

static std::vector<std::string> noted;

void note_file(const std::string &path) { noted.push_back(path); }

static double now() {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(time).count();
}

static void keep_outcome(int status, task_outcome &outcome) {
    outcome.result = status == 0 ? task_result::built : task_result::failed;
    for (size_t at = 0; (at = outcome.messages.find("warning: ", at)) != std::string::npos; ++at)
        ++outcome.warnings;
}

#if defined(_WIN32)
void run_tasks(const std::vector<pack_task> &tasks, int, const task_run &run, const task_done &done,
               std::vector<task_outcome> &outcomes) {
    for (size_t i = 0; i < tasks.size(); ++i) {
        if (outcomes[i].result != task_result::none) continue;
        const double start = now();
        noted.clear();
        keep_outcome(run(tasks[i]), outcomes[i]);
        outcomes[i].files = noted;
        outcomes[i].seconds = now() - start;
        done(i);
    }
}
#else
namespace {
struct running_task {
    size_t number;
    pid_t process;
    int pipe; // what it says, and the files that it wrote
    double start;
};
} // namespace

static constexpr char file_mark = '\x1E'; // begins the line of a file that was written

// The child: what it prints goes into the pipe.
[[noreturn]] static void run_child(const pack_task &task, const task_run &run, int pipe) {
    int status = 1;
    if (dup2(pipe, 1) >= 0 && dup2(pipe, 2) >= 0) {
        status = run(task);
        for (const std::string &path : noted)
            std::printf("%c%s\n", file_mark, path.c_str());
        if (std::fflush(nullptr) != 0) status = 1;
    }
    _exit(status);
}

static running_task start(const std::vector<pack_task> &tasks, size_t number, const task_run &run) {
    int ends[2];
    std::fflush(nullptr);
    if (::pipe(ends) != 0) return {number, -1, -1, now()};
    const pid_t process = fork();
    if (process == 0) {
        close(ends[0]);
        run_child(tasks[number], run, ends[1]);
    }
    close(ends[1]);
    if (process < 0) close(ends[0]);
    return {number, process, process < 0 ? -1 : ends[0], now()};
}

// Takes the lines with files out of what a task printed.
static void split_files(task_outcome &outcome) {
    std::string rest;
    for (size_t at = 0; at < outcome.messages.size();) {
        const size_t end = std::min(outcome.messages.find('\n', at), outcome.messages.size());
        if (outcome.messages[at] == file_mark)
            outcome.files.push_back(outcome.messages.substr(at + 1, end - at - 1));
        else
            rest += outcome.messages.substr(at, end - at) + "\n";
        at = end + 1;
    }
    outcome.messages = rest;
}

static void finish(const running_task &task, task_outcome &outcome) {
    int status = 1;
    close(task.pipe);
    while (waitpid(task.process, &status, 0) < 0 && errno == EINTR) {
    }
    split_files(outcome);
    if (WIFSIGNALED(status))
        outcome.messages += std::string("ended by signal: ") + strsignal(WTERMSIG(status)) + "\n";
    keep_outcome(WIFEXITED(status) ? WEXITSTATUS(status) : 1, outcome);
    outcome.seconds = now() - task.start;
}

// Reads what a task said; false at its end.
static bool read_some(const running_task &task, task_outcome &outcome) {
    char bytes[4096];
    const ssize_t got = read(task.pipe, bytes, sizeof bytes);
    if (got > 0) outcome.messages.append(bytes, size_t(got));
    return got > 0 || (got < 0 && errno == EINTR);
}

void run_tasks(const std::vector<pack_task> &tasks, int jobs, const task_run &run,
               const task_done &done, std::vector<task_outcome> &outcomes) {
    std::vector<running_task> open;
    for (size_t next = 0; next < tasks.size() || !open.empty();) {
        while (next < tasks.size() && open.size() < size_t(jobs)) {
            const size_t number = next++;
            if (outcomes[number].result != task_result::none) continue;
            open.push_back(start(tasks, number, run));
            if (open.back().process > 0) continue;
            outcomes[number].messages = std::string("cannot start: ") + std::strerror(errno) + "\n";
            keep_outcome(1, outcomes[number]);
            open.pop_back();
            done(number);
        }
        if (open.empty()) break;
        std::vector<pollfd> waits;
        for (const running_task &task : open)
            waits.push_back({task.pipe, POLLIN, 0});
        if (poll(waits.data(), waits.size(), -1) < 0) continue;
        for (size_t i = open.size(); i-- > 0;) {
            if (!waits[i].revents || read_some(open[i], outcomes[open[i].number])) continue;
            const running_task ended = open[i];
            open.erase(open.begin() + std::ptrdiff_t(i));
            finish(ended, outcomes[ended.number]);
            done(ended.number);
        }
    }
}
#endif

} // namespace kovac
