// Writes a compiled locale as a locale object file, and text files in general, completely or not at
// all.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

#include "kovac/kovac_locale.h"

namespace kovac {

enum class write_result { done, no_memory, io, unproved };

// Judges what was written at a temporary path; if false, it does not get its name.
using trial = std::function<bool(const std::string &path)>;

// Writes the object to path and creates the path's directories. The file appears under its name
// only when it is complete; a link in its place is replaced, not followed. After io, *why is the
// system's reason.
write_result write_locale(const std::string &path, const locale_object &object, const charmap &map,
                          std::string *why, const trial &prove = {});

// A header line for the hash of what follows the header (ko_verify_object).
inline constexpr size_t header_limit = 126; // bytes of a header line that count as one line
inline constexpr char unsealed_content[] = "CONTENT=0000000000000000";

// Writes what put writes, completely or not at all, and stores the hash in the header where it is
// unsealed_content. If put returns false, memory has run out.
write_result write_file(const std::string &path, std::string *why,
                        const std::function<bool(FILE *)> &put, const trial &prove = {});

// Gives a file a second name, or copies it where the file system has no hard links.
write_result link_file(const std::string &existing, const std::string &path, std::string *why);

// Writes text to a file in the way of write_file.
write_result write_text(const std::string &path, const std::string &text, std::string *why,
                        const trial &prove = {});

} // namespace kovac
