// What the tests of the command share: its surroundings and what a run gives.
#ifndef COMMAND_RUN_H
#define COMMAND_RUN_H

#include "support/fixture.h"

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>

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
        std::string all = "cd " + made.path + " && env -i";
        for (const auto &[name, value] : environment)
            all += " " + quoted(name + "=" + value);
        all += " sh -c " + quoted(line) + " < .in > " + out + " 2> .err";
        const int status = std::system(all.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out == ".out" ? slurp(dir / out) : "",
                slurp(dir / ".err")};
    }
    outcome kova(const std::string &args, const std::string &in = "") {
        return shell("kova " + args, in);
    }
    std::string command = "kova "; // in front of what follows
    // The command gives the output and says this, or nothing.
    void writes(const std::string &args, const std::string &want, const std::string &in = "",
                const std::string &told = "") {
        SCOPED_TRACE(command + args + " < " + in.substr(0, 100));
        const outcome got = shell(command + args, in);
        EXPECT_EQ(got.status, 0);
        EXPECT_TRUE(got.out == want) << got.out.substr(0, 1000);
        EXPECT_TRUE(got.err == told || (!told.empty() && got.err.find(told) != told.npos))
            << got.err;
    }
    // The command gives, among other things, this output.
    void shows(const std::string &args, const std::string &part) {
        const outcome got = shell(command + args);
        EXPECT_NE(got.out.find(part), std::string::npos) << args << got.out << got.err << part;
    }
    // The command fails and says why in one line; formats and texts that are pointed at have lines
    // of their own.
    void fails(int status, const std::string &args, const std::string &why,
               const std::string &in = "", const std::string &out = "") {
        SCOPED_TRACE(command + args + " < " + in.substr(0, 100));
        const outcome got = shell(command + args, in);
        EXPECT_EQ(got.status, status);
        EXPECT_TRUE(got.out == out) << got.out.substr(0, 1000);
        EXPECT_NE(got.err.find(why), std::string::npos) << got.err;
        if (got.err.ends_with("Run with --help for more information.\n")) return;
        const bool points = got.err.find("\n  ") != std::string::npos;
        EXPECT_TRUE(got.err.starts_with("kova") &&
                    (points || got.err.find('\n') == got.err.size() - 1))
            << got.err;
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
