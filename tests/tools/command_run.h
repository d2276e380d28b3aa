// What the tests of the command share: its surroundings and what a run gives.
#ifndef COMMAND_RUN_H
#define COMMAND_RUN_H

#include "support/fixture.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

inline void spit(const std::filesystem::path &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

struct outcome {
    int status = -1;
    std::string out, err;
};

inline std::string quoted(const std::string &word) { // for the shell
    std::string result = "'";
    for (const char c : word)
        result += c == '\'' ? "'\\''" : std::string(1, c);
    return result + "'";
}

// A line of the shell and what it gives.
struct command_row {
    std::string args; // after the command's name
    std::string want; // the output; after a failure a part of the one line that says why
    int status = 0;
    std::string in = "";
    std::string out = ""; // after a failure
};

// A directory of its own, and an environment.
struct command_test : testing::Test {
    temp_dir made;
    std::filesystem::path dir = made.path;
    std::string root = env("KOVA_TEST_ROOT");
    std::map<std::string, std::string> environment = {
        {"LC_ALL",    "C.UTF-8"                              },
        {"VANTORDIR", root                                   },
        {"PATH",      env("KOVA_BIN_DIR") + ":" + env("PATH")}
    };

    command_test() {
        for (const char *name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TMPDIR"})
            if (getenv(name)) environment[name] = env(name);
    }
    // Runs a line of the shell in the directory.
    outcome shell(const std::string &line, const std::string &in = "",
                  const std::string &out = ".out") {
        spit(dir / ".in", in);
        std::string command = "cd " + made.path + " && env -i";
        for (const auto &[name, value] : environment)
            command += " " + quoted(name + "=" + value);
        command += " sh -c " + quoted(line) + " < .in > " + out + " 2> .err";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out == ".out" ? slurp(dir / out) : "",
                slurp(dir / ".err")};
    }
    outcome kova(const std::string &args, const std::string &in = "") {
        return shell("kova " + args, in);
    }
    template <size_t count>
    void check(const command_row (&rows)[count], const std::string &command = "kova ") {
        for (const command_row &row : rows) {
            SCOPED_TRACE(command + row.args + " < " + row.in.substr(0, 100));
            const outcome got = shell(command + row.args, row.in);
            EXPECT_EQ(got.status, row.status);
            const std::string &out = row.status ? row.out : row.want;
            EXPECT_TRUE(got.out == out) << got.out.substr(0, 1000);
            if (row.status == 0) {
                EXPECT_EQ(got.err, "");
                continue;
            }
            EXPECT_NE(got.err.find(row.want), std::string::npos) << got.err;
            if (got.err.ends_with("Run with --help for more information.\n")) continue;
            EXPECT_TRUE(got.err.starts_with("kova")) << got.err;
            // Formats and texts that are pointed at have lines of their own.
            const bool points = got.err.find("\n  ") != std::string::npos;
            EXPECT_TRUE(points || got.err.find('\n') == got.err.size() - 1) << got.err;
        }
    }
};

// A test that needs compiled data.
struct data_test : command_test {
    void SetUp() override {
        if (!std::filesystem::is_directory(root + "/kova/lc11"))
            GTEST_SKIP() << "no compiled data: " << root;
    }
};

#endif
