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

// A directory of its own, the compiled data and an environment.
struct command_test : testing::Test {
    temp_dir made;
    std::filesystem::path dir = made.path;
    std::string root = env("KOVA_TEST_ROOT");
    std::map<std::string, std::string> environment = {
        {"LC_ALL", "C.UTF-8"}
    };

    void SetUp() override {
        if (!std::filesystem::is_directory(root + "/kova/lc11"))
            GTEST_SKIP() << "no compiled data: " << root;
        environment["VANTORDIR"] = root;
        environment["PATH"] = env("KOVA_BIN_DIR") + ":" + env("PATH");
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
};

#endif
