// What the tests of the command share: its surroundings and what a run gives.
#ifndef COMMAND_RUN_H
#define COMMAND_RUN_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::string env(const char *name) {
    const char *value = getenv(name);
    return value ? value : "";
}

inline std::string slurp(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void spit(const std::filesystem::path &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

struct outcome {
    int status = -1;
    std::string out, err;
};

#endif
