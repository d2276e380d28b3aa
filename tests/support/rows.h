// Rows of tables as text, for rows that are too short for a line of their own.
#ifndef ROWS_H
#define ROWS_H

#include <algorithm>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

// The parts of a text between separators; none of an empty one.
inline std::vector<std::string> split(const std::string &text, char separator = '|') {
    std::vector<std::string> parts;
    for (size_t at = 0; !text.empty() && at <= text.size();) {
        const size_t end = std::min(text.find(separator, at), text.size());
        parts.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return parts;
}

// Rows of words; ";" and a blank end a row, and "~" stands for a blank.
inline std::vector<std::vector<std::string>> table(std::string_view text) {
    std::vector<std::vector<std::string>> rows;
    while (!text.empty()) {
        const size_t end = std::min(text.find("; "), text.size());
        std::istringstream row{std::string(text.substr(0, end))};
        rows.emplace_back();
        for (std::string word; row >> word; rows.back().push_back(word))
            std::replace(word.begin(), word.end(), '~', ' ');
        text.remove_prefix(std::min(end + 2, text.size()));
    }
    return rows;
}
inline int whole(const std::string &word) { return int(strtol(word.c_str(), nullptr, 10)); }

#endif
