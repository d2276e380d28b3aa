// Paths as the file system takes them: from UTF-8 on Windows, from bytes elsewhere.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

namespace kovatool {

inline std::filesystem::path to_path(const std::string &text) {
#if defined(_WIN32)
    return std::filesystem::path(reinterpret_cast<const char8_t *>(text.c_str()));
#else
    return std::filesystem::path(text);
#endif
}

inline std::string from_path(const std::filesystem::path &path) {
#if defined(_WIN32)
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
#else
    return path.string();
#endif
}

// Is it a fault of the system, which says nothing of whether a file is there?
inline bool is_fault(const std::error_code &error) {
    using std::errc;
    for (const errc fault : {errc::io_error, errc::interrupted, errc::not_enough_memory,
                             errc::too_many_files_open, errc::too_many_files_open_in_system})
        if (error == fault) return true;
    return false;
}

} // namespace kovatool
